#pragma once

#include "datamodelgui/events/gesture.h"
#include "datamodelgui/events/touch.h"
#include "datamodelgui/export.h"

// The gestures of finger and pen input. Like every gesture they re-read the whole queue at each
// question: the touch gestures replay it through a TouchState, the pen gestures walk the samples of
// each pen event (its history, oldest first, then the event itself). `elapsed` is the seconds since
// the first queued event by the parser's clock; event timestamps are compared only where a gesture
// says so. The prefixes Dbl and Trpl count fingers, not repeated taps.
namespace voEV {

// One finger down and up in place within the interval (0.2 s by default).
class DMGUI_API TapTouch : public Gesture {
public:
  explicit TapTouch(double recognitionInterval = 0.2) noexcept;
  ~TapTouch() override;

private:
  State onGetState(const EventList& events, double elapsed) const override;
};

// One finger that moves, or stays down longer than the interval (0.2 s by default).
class DMGUI_API DragTouch : public Gesture {
public:
  explicit DragTouch(double recognitionInterval = 0.2) noexcept;
  ~DragTouch() override;

private:
  State onGetState(const EventList& events, double elapsed) const override;
};

// A tap with a given number of fingers, which need not land in one event. Made through its
// subclasses.
class DMGUI_API MultiTapTouch : public Gesture {
public:
  ~MultiTapTouch() override;
  int fingers() const noexcept { return fingers_; }

protected:
  MultiTapTouch(InteractionType interaction, int fingers, double recognitionInterval) noexcept;

private:
  State onGetState(const EventList& events, double elapsed) const override;
  int fingers_;
};

// A tap with two fingers (0.2 s by default).
class DMGUI_API DblTapTouch : public MultiTapTouch {
public:
  explicit DblTapTouch(double recognitionInterval = 0.2) noexcept;
  ~DblTapTouch() override;
};

// A tap with three fingers (0.2 s by default).
class DMGUI_API TrplTapTouch : public MultiTapTouch {
public:
  explicit TrplTapTouch(double recognitionInterval = 0.2) noexcept;
  ~TrplTapTouch() override;
};

// Two fingers that land within the interval of the first (0.25 s by default) and then move. It
// screens out taps, one-finger drags and two-finger taps first, with gestures of its own made for
// each evaluation. Its start index is the event where both fingers are down.
class DMGUI_API DblDragTouch : public Gesture {
public:
  explicit DblDragTouch(double recognitionInterval = 0.25) noexcept;
  ~DblDragTouch() override;

private:
  State onGetState(const EventList& events, double elapsed) const override;
};

// One finger held in place longer than the interval (0.35 s by default), recognised by its age when
// an event shows it, or by the elapsed time on a tick.
class DMGUI_API PressTouch : public Gesture {
public:
  explicit PressTouch(double recognitionInterval = 0.35) noexcept;
  ~PressTouch() override;

private:
  State onGetState(const EventList& events, double elapsed) const override;
};

// Two fingers held in place longer than the interval (0.35 s by default). Its start index is the
// first event with both fingers down.
class DMGUI_API DblPressTouch : public Gesture {
public:
  explicit DblPressTouch(double recognitionInterval = 0.35) noexcept;
  ~DblPressTouch() override;

private:
  State onGetState(const EventList& events, double elapsed) const override;
};

// The pen put down and lifted in place within the interval (0.2 s by default).
class DMGUI_API TapPen : public Gesture {
public:
  explicit TapPen(double recognitionInterval = 0.2) noexcept;
  ~TapPen() override;

private:
  State onGetState(const EventList& events, double elapsed) const override;
};

// The pen moved, or held past the interval (0.0 s by default: any later sample is a drag).
class DMGUI_API DragPen : public Gesture {
public:
  explicit DragPen(double recognitionInterval = 0.0) noexcept;
  ~DragPen() override;

private:
  State onGetState(const EventList& events, double elapsed) const override;
};

// The pen held in place longer than the interval (0.5 s by default).
class DMGUI_API PressPen : public Gesture {
public:
  explicit PressPen(double recognitionInterval = 0.5) noexcept;
  ~PressPen() override;

private:
  State onGetState(const EventList& events, double elapsed) const override;
};

} // namespace voEV
