#pragma once

#include "datamodelgui/events/event.h"
#include "datamodelgui/export.h"
#include "platform/base/containers.h"
#include "platform/base/reference.h"

namespace voEV {

// A recogniser of one kind of interaction. The parser asks it again and again, while input
// arrives, whether its whole queue of events is still possibly, certainly or no longer this
// interaction. A gesture keeps no running state: it re-reads the queue from the start at every
// question, and its first verdict other than "possible" sticks until resetState(). Because the
// verdict lives in the gesture, one gesture object serves one parser at a time.
class DMGUI_API Gesture : public ru::ReferenceCount {
public:
  enum State : int {
    Possible = 0,    // printed "possible"
    Recognized = 1,  // printed "recognized"
    Failed = 2,      // printed "failed"
  };

  // "possible", "recognized" or "failed"; empty for any other value.
  static const char* stateName(State state) noexcept;

  Gesture(InteractionType interaction, double recognitionInterval) noexcept;
  Gesture(const Gesture& other) = default;
  Gesture& operator=(const Gesture& other) = default;
  ~Gesture() override;

  // The verdict on `events` (the parser's queue, oldest first) `elapsed` seconds after the first
  // of them. Once not possible, the stored verdict is returned without asking again. An empty
  // queue, or one holding a null reference, is nothing to judge: the stored verdict is returned
  // and the gesture is not asked.
  State getState(const EventList& events, double elapsed);
  // Back to possible; startIndex() is left as it is.
  void resetState() noexcept { state_ = Possible; }

  InteractionType getInteraction() const noexcept { return interaction_; }
  // Seconds; also the rank of this gesture when several are recognised at once (larger wins).
  double getRecognitionInterval() const noexcept { return recognitionInterval_; }
  // The queue index at which the interaction really began (0 unless a gesture says otherwise).
  int startIndex() const noexcept { return startIndex_; }
  // The stored verdict, without asking.
  State getCachedState() const noexcept { return state_; }

protected:
  // For gestures that find their own start in the queue, from within onGetState.
  void setStartIndex(int index) const noexcept { startIndex_ = index; }

private:
  // The verdict from the queue (never empty, no null entries), the elapsed seconds and the
  // interval alone. An override tests element 0 first and fails at once on input of another kind.
  virtual State onGetState(const EventList& events, double elapsed) const = 0;

  InteractionType interaction_;
  double recognitionInterval_;
  State state_ = Possible;
  mutable int startIndex_ = 0;
};

// Two pointer positions count as one place when they are within the moving-gesture threshold
// (voSupport::getMovingGestureThreshold(), read at every call), inclusive.
DMGUI_API bool samePlace(const Point& a, const Point& b);

// A button pressed and released in place within the interval (0.3 s by default), by the clock.
class DMGUI_API ClickMouse : public Gesture {
public:
  explicit ClickMouse(double recognitionInterval = 0.3) noexcept;
  ClickMouse(const ClickMouse& other) = default;
  ~ClickMouse() override;

private:
  State onGetState(const EventList& events, double elapsed) const override;
};

// A button pressed, then the pointer (or another press, or a release) away from the press within
// the interval (1.0 s by default).
class DMGUI_API DragMouse : public Gesture {
public:
  explicit DragMouse(double recognitionInterval = 1.0) noexcept;
  DragMouse(const DragMouse& other) = default;
  ~DragMouse() override;

private:
  State onGetState(const EventList& events, double elapsed) const override;
};

// A button held in place for longer than the interval (0.3 s by default); reported at its release.
class DMGUI_API PressMouse : public Gesture {
public:
  explicit PressMouse(double recognitionInterval = 0.3) noexcept;
  PressMouse(const PressMouse& other) = default;
  ~PressMouse() override;

private:
  State onGetState(const EventList& events, double elapsed) const override;
};

// A press of one of the given keys, recognised at once. Its interval is 0.0, so any other
// recognised gesture with a positive interval wins over it.
class DMGUI_API KeyClick : public Gesture {
public:
  explicit KeyClick(const ru::set<KeyCode>& keys);
  KeyClick(const KeyClick& other) = default;
  ~KeyClick() override;

  const ru::set<KeyCode>& keys() const noexcept { return keys_; }

private:
  State onGetState(const EventList& events, double elapsed) const override;

  ru::set<KeyCode> keys_;
};

// Remembers the mouse interaction that set something off, and passes it on. Subclasses (outside
// this library) decide what to do with it.
class DMGUI_API MouseInteractionDescriptor {
public:
  MouseInteractionDescriptor() = default;
  // Copies share the stored event.
  MouseInteractionDescriptor(const MouseInteractionDescriptor& other) = default;
  MouseInteractionDescriptor& operator=(const MouseInteractionDescriptor& other) = default;
  virtual ~MouseInteractionDescriptor();

  // Stores a clone of `event` (never the caller's object) and the interaction, then tells the
  // subclass through onTriggeringEvent with the same arguments.
  void sendTriggeringEvent(InteractionType interaction, const MouseEvent& event);

  // The stored event; only valid after sendTriggeringEvent.
  const MouseEvent& triggeringEvent() const noexcept { return *triggeringEvent_; }
  bool hasTriggeringEvent() const noexcept { return triggeringEvent_.valid(); }
  InteractionType triggeringInteraction() const noexcept { return triggeringInteraction_; }

private:
  virtual void onTriggeringEvent(InteractionType interaction, const MouseEvent& event) = 0;

  void setTriggeringEvent(const MouseEvent& event);
  void setTriggeringInteraction(InteractionType interaction) noexcept { triggeringInteraction_ = interaction; }

  ru::Reference<MouseEvent> triggeringEvent_;
  InteractionType triggeringInteraction_ = UndecidedInteraction;
};

}  // namespace voEV
