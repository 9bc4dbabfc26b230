#include "datamodelgui/events/touchgesture.h"

#include <functional>

namespace voEV {

namespace {

using State = Gesture::State;

// What a row of the shared touch loop decides: a verdict, or nothing (go on).
enum class Step { Continue, Recognized, Failed };

State asState(Step step) { return step == Step::Recognized ? Gesture::Recognized : Gesture::Failed; }

// The loop the one-finger and multi-finger touch gestures share: feed each event to a fresh
// TouchState, fail on a non-touch event or a queue that does not begin with a start, then ask
// `check` (the gesture's own rows, in order) after each event. At the end of the queue, `atEnd`.
State replay(const EventList& events, const std::function<Step(TouchState&, int)>& check,
             const std::function<State()>& atEnd) {
  TouchState state;
  for (int i = 0; i < static_cast<int>(events.size()); ++i) {
    if (!state.event(*events[i])) return Gesture::Failed;
    if (i == 0 && !state.isInteractionStart()) return Gesture::Failed;
    const Step step = check(state, i);
    if (step != Step::Continue) return asState(step);
  }
  return atEnd();
}

// The finger with the lowest id in the state's last event, or null.
const Touch* lowestTouch(const TouchState& state) {
  return state.getTouches().empty() ? nullptr : state.getTouches().begin()->second.get();
}

// One sample of pen input: a position and a time.
struct PenSample {
  Point position;
  double timestamp;
};

// The samples of a pen event, oldest first: its history, then the event itself.
template <class F>
Step forEachSample(const PenEvent& event, bool firstOnly, F f) {
  if (const HistoricalPenData* history = event.getHistoricalData().get()) {
    const HistoricalPenEvent* samples = history->getEvents();
    for (int i = 0; i < history->getNumEvents(); ++i) {
      const Step step = f(PenSample{samples[i].position, samples[i].timestamp});
      if (step != Step::Continue || firstOnly) return step;
    }
  }
  return f(PenSample{event.getPosition(), event.getTimestamp()});
}

const PenEvent* asPen(const Event& event) { return dynamic_cast<const PenEvent*>(&event); }

} // namespace

// --- One-finger and multi-finger gestures ----------------------------------------------------

TapTouch::TapTouch(double recognitionInterval) noexcept : Gesture(TapTouchInteraction, recognitionInterval) {}
TapTouch::~TapTouch() = default;

Gesture::State TapTouch::onGetState(const EventList& events, double elapsed) const {
  return replay(
      events,
      [](TouchState& state, int) {
        if (state.fingers() != 1) return Step::Failed;
        if (state.anyMoved()) return Step::Failed;
        if (state.isInteractionEnd()) return Step::Recognized;
        return Step::Continue;
      },
      [&] { return elapsed > getRecognitionInterval() ? Failed : Possible; });
}

DragTouch::DragTouch(double recognitionInterval) noexcept : Gesture(DragTouchInteraction, recognitionInterval) {}
DragTouch::~DragTouch() = default;

Gesture::State DragTouch::onGetState(const EventList& events, double elapsed) const {
  return replay(
      events,
      [](TouchState& state, int) {
        if (state.fingers() > 1) return Step::Failed;
        if (state.anyMoved()) return Step::Recognized;
        if (state.isInteractionEnd()) return Step::Failed;
        return Step::Continue;
      },
      [&] { return elapsed > getRecognitionInterval() ? Recognized : Possible; });
}

MultiTapTouch::MultiTapTouch(InteractionType interaction, int fingers, double recognitionInterval) noexcept
    : Gesture(interaction, recognitionInterval), fingers_(fingers) {}
MultiTapTouch::~MultiTapTouch() = default;

Gesture::State MultiTapTouch::onGetState(const EventList& events, double elapsed) const {
  bool reached = false;
  return replay(
      events,
      [&](TouchState& state, int) {
        if (state.anyMoved()) return Step::Failed;
        if (state.fingers() == fingers_) reached = true;
        if (state.fingers() > fingers_) return Step::Failed;
        if (state.isInteractionEnd()) return reached ? Step::Recognized : Step::Failed;
        return Step::Continue;
      },
      [&] { return elapsed > getRecognitionInterval() ? Failed : Possible; });
}

DblTapTouch::DblTapTouch(double recognitionInterval) noexcept
    : MultiTapTouch(DblTapTouchInteraction, 2, recognitionInterval) {}
DblTapTouch::~DblTapTouch() = default;

TrplTapTouch::TrplTapTouch(double recognitionInterval) noexcept
    : MultiTapTouch(TrplTapTouchInteraction, 3, recognitionInterval) {}
TrplTapTouch::~TrplTapTouch() = default;

PressTouch::PressTouch(double recognitionInterval) noexcept : Gesture(PressTouchInteraction, recognitionInterval) {}
PressTouch::~PressTouch() = default;

Gesture::State PressTouch::onGetState(const EventList& events, double elapsed) const {
  const double interval = getRecognitionInterval();
  return replay(
      events,
      [interval](TouchState& state, int) {
        if (state.fingers() > 1) return Step::Failed;
        if (state.anyMoved()) return Step::Failed;
        if (state.isInteractionEnd()) return Step::Failed;
        // Recognised by the finger's own age as soon as an event shows it held long enough.
        const Touch* touch = lowestTouch(state);
        if (touch && state.getAge(*touch) > interval) return Step::Recognized;
        return Step::Continue;
      },
      [&] { return elapsed > interval ? Recognized : Possible; });
}

DblPressTouch::DblPressTouch(double recognitionInterval) noexcept
    : Gesture(DblPressTouchInteraction, recognitionInterval) {}
DblPressTouch::~DblPressTouch() = default;

Gesture::State DblPressTouch::onGetState(const EventList& events, double elapsed) const {
  setStartIndex(-1);
  bool started = false;
  int lastFingers = 0;
  return replay(
      events,
      [&](TouchState& state, int index) {
        lastFingers = state.fingers();
        if (state.fingers() == 2 && !started) {
          started = true;
          setStartIndex(index);
        }
        if (state.fingers() > 2) return Step::Failed;
        if (state.anyMoved()) return Step::Failed;
        if (state.isInteractionEnd()) return Step::Failed;
        return Step::Continue;
      },
      [&] {
        if (elapsed > getRecognitionInterval()) return lastFingers == 2 ? Recognized : Failed;
        return Possible;
      });
}

// --- Two-finger drag -------------------------------------------------------------------------

DblDragTouch::DblDragTouch(double recognitionInterval) noexcept
    : Gesture(DblDragTouchInteraction, recognitionInterval) {}
DblDragTouch::~DblDragTouch() = default;

Gesture::State DblDragTouch::onGetState(const EventList& events, double elapsed) const {
  const double interval = getRecognitionInterval();
  // 1. Screen out taps, one-finger drags and two-finger taps, with fixed intervals of their own.
  {
    const ru::Reference<Gesture> screens[] = {ru::Reference<Gesture>(new TapTouch(0.2)),
                                              ru::Reference<Gesture>(new DragTouch(0.2)),
                                              ru::Reference<Gesture>(new DblTapTouch(0.2))};
    for (const auto& screen : screens) {
      if (screen->getState(events, elapsed) == Recognized) return Failed;
    }
  }
  // 2, 3.
  setStartIndex(-1);
  const auto* first = dynamic_cast<const TouchEvent*>(events[0].get());
  if (!first) return Failed;
  // A queue that begins with no finger at all cannot start a two-finger drag.
  if (first->getTouches().empty()) return Failed;
  const double t0 = first->getAnyTouch()->getTimestamp();

  // 4. Find the event where both fingers are down.
  ru::Reference<Touch> a, b;
  int pair = -1;
  for (int i = 0; i < static_cast<int>(events.size()); ++i) {
    const auto* event = dynamic_cast<const TouchEvent*>(events[i].get());
    if (!event) return Failed;
    if (i == 0 && !event->isInteractionStart()) return Failed;
    const TouchMap& touches = event->getTouches();
    if (touches.size() > 2) return Failed;
    auto it = touches.begin();
    a = it != touches.end() ? (it++)->second : ru::Reference<Touch>();
    b = it != touches.end() ? it->second : ru::Reference<Touch>();
    if (touches.size() == 2) {
      pair = i;
      setStartIndex(i);
      break;
    }
  }

  // 5. Both fingers must land within the interval of the first.
  if (a && a->getTimestamp() - t0 > interval) return Failed;
  if (a && b) {
    if (b->getTimestamp() - t0 > interval) return Failed;
    // The four checks of one pair of positions against the landing pair.
    auto check = [&](const Point& cPos, double cTime, const Point& dPos, double dTime) {
      if (cTime - a->getTimestamp() > interval) return Step::Failed;
      if (dTime - b->getTimestamp() > interval) return Step::Failed;
      if (!samePlace(cPos, a->getPosition())) return Step::Recognized;
      if (!samePlace(dPos, b->getPosition())) return Step::Recognized;
      return Step::Continue;
    };
    // 6. Follow the pair through the later events.
    for (int i = pair + 1; i < static_cast<int>(events.size()); ++i) {
      const auto* event = dynamic_cast<const TouchEvent*>(events[i].get());
      if (!event) return Failed;
      const TouchMap& touches = event->getTouches();
      if (touches.size() != 2) return Failed;
      auto it = touches.begin();
      ru::Reference<Touch> c = (it++)->second;
      ru::Reference<Touch> d = it->second;
      // Kept although touches come in id order: a host's map may order them otherwise.
      if (c->getID() == b->getID() && d->getID() == a->getID()) std::swap(c, d);
      // An event with other fingers is passed over.
      if (c->getID() != a->getID() || d->getID() != b->getID()) continue;
      // 7. The samples between the events first.
      if (const HistoricalTouchData* history = event->getHistoricalData().get()) {
        for (int h = 0; h < history->getNumEvents(); ++h) {
          const HistoricalTouch* records = history->getTouchesForEvent(h);
          const HistoricalTouch* cRecord = nullptr;
          const HistoricalTouch* dRecord = nullptr;
          for (int k = 0; k < history->getNumTouches(); ++k) {
            if (records[k].id == c->getID() && !cRecord) cRecord = &records[k];
            if (records[k].id == d->getID() && !dRecord) dRecord = &records[k];
          }
          // A sample missing either finger gives no verdict.
          if (!cRecord || !dRecord) continue;
          const Step step = check(cRecord->position, cRecord->timestamp, dRecord->position, dRecord->timestamp);
          if (step != Step::Continue) return asState(step);
        }
      }
      // 8. Then the event itself.
      const Step step = check(c->getPosition(), c->getTimestamp(), d->getPosition(), d->getTimestamp());
      if (step != Step::Continue) return asState(step);
    }
  }
  // 9. Not strict, on purpose: the drag must start before the interval is over.
  return elapsed >= interval ? Failed : Possible;
}

// --- Pen gestures ----------------------------------------------------------------------------

TapPen::TapPen(double recognitionInterval) noexcept : Gesture(TapPenInteraction, recognitionInterval) {}
TapPen::~TapPen() = default;

Gesture::State TapPen::onGetState(const EventList& events, double elapsed) const {
  const PenEvent* first = asPen(*events[0]);
  if (!first || first->getType() != PenDown) return Failed;
  const double interval = getRecognitionInterval();
  for (std::size_t i = 1; i < events.size(); ++i) {
    const PenEvent* pen = asPen(*events[i]);
    if (!pen) continue;
    Step step = Step::Continue;
    if (pen->getType() == PenMove) {
      step = forEachSample(*pen, false, [&](const PenSample& s) {
        if (s.timestamp - first->getTimestamp() > interval) return Step::Failed;
        if (!samePlace(s.position, first->getPosition())) return Step::Failed;
        return Step::Continue;
      });
    } else if (pen->getType() == PenUp) {
      step = forEachSample(*pen, false, [&](const PenSample& s) {
        if (s.timestamp - first->getTimestamp() > interval) return Step::Failed;
        if (samePlace(s.position, first->getPosition())) return Step::Recognized;
        return Step::Continue;
      });
    }
    if (step != Step::Continue) return asState(step);
  }
  return elapsed > interval ? Failed : Possible;
}

DragPen::DragPen(double recognitionInterval) noexcept : Gesture(DragPenInteraction, recognitionInterval) {}
DragPen::~DragPen() = default;

Gesture::State DragPen::onGetState(const EventList& events, double elapsed) const {
  const PenEvent* first = asPen(*events[0]);
  if (!first || first->getType() != PenDown) return Failed;
  const double interval = getRecognitionInterval();
  for (std::size_t i = 1; i < events.size(); ++i) {
    const PenEvent* pen = asPen(*events[i]);
    if (!pen) continue;
    Step step = Step::Continue;
    if (pen->getType() == PenMove || pen->getType() == PenDown) {
      step = forEachSample(*pen, false, [&](const PenSample& s) {
        if (s.timestamp - first->getTimestamp() > interval || elapsed > interval) return Step::Recognized;
        if (!samePlace(s.position, first->getPosition())) return Step::Recognized;
        return Step::Continue;
      });
    } else if (pen->getType() == PenUp) {
      step = forEachSample(*pen, true, [&](const PenSample& s) {
        if (s.timestamp - first->getTimestamp() > interval || elapsed > interval) return Step::Recognized;
        if (!samePlace(s.position, first->getPosition())) return Step::Recognized;
        return Step::Failed;
      });
    }
    if (step != Step::Continue) return asState(step);
  }
  // Time alone is only read while scanning an event: a tick with only the PenDown is no drag.
  return Possible;
}

PressPen::PressPen(double recognitionInterval) noexcept : Gesture(PressPenInteraction, recognitionInterval) {}
PressPen::~PressPen() = default;

Gesture::State PressPen::onGetState(const EventList& events, double elapsed) const {
  const PenEvent* first = asPen(*events[0]);
  if (!first || first->getType() != PenDown) return Failed;
  const double interval = getRecognitionInterval();
  for (std::size_t i = 1; i < events.size(); ++i) {
    const PenEvent* pen = asPen(*events[i]);
    if (!pen || pen->getType() == PenDown) return Failed;
    Step step = Step::Continue;
    if (pen->getType() == PenMove) {
      step = forEachSample(*pen, false, [&](const PenSample& s) {
        if (!samePlace(s.position, first->getPosition())) return Step::Failed;
        if (s.timestamp - first->getTimestamp() > interval) return Step::Recognized;
        return Step::Continue;
      });
    } else if (pen->getType() == PenUp) {
      // Only the lift's own time counts; its samples are not read.
      step = pen->getTimestamp() - first->getTimestamp() > interval ? Step::Recognized : Step::Failed;
    } else {
      return Failed;
    }
    if (step != Step::Continue) return asState(step);
  }
  return elapsed > interval ? Recognized : Possible;
}

} // namespace voEV
