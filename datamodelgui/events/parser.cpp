#include "datamodelgui/events/parser.h"

#include "datamodelgui/events/scheduler.h"
#include "datamodelgui/events/touch.h"
#include "platform/base/typename.h"
#include "platform/support/callinfo.h"
#include "platform/support/debug.h"

#include <algorithm>

namespace voEV {

using voSupport::DebugEvents;
using voSupport::DebugPrint;

// ---------------------------------------------------------------------------------------------
// Timer and Timers

Timer::Timer(double timeout) : timeout_(timeout), domain_(voSupport::ci().find<voSupport::Domain>()) {
  stopwatch_.start();
}

Timer::~Timer() = default;

void Timer::start() {}

void Timer::stop() {}

Timers::Timers(FunctionScheduler* anim, FunctionScheduler* idle) noexcept
    : animScheduler_(anim), idleScheduler_(idle) {}

Timers::~Timers() {
  delete animScheduler_;
  delete idleScheduler_;
}

// ---------------------------------------------------------------------------------------------
// Parser

const char* Parser::stateName(State state) noexcept {
  switch (state) {
    case InteractionPending:
      return "InteractionPending";
    case InteractionStarted:
      return "InteractionStarted";
    case InteractionInProgress:
      return "InteractionInProgress";
    case InteractionFinished:
      return "InteractionFinished";
    case InteractionIgnored:
      return "InteractionIgnored";
  }
  return "";
}

Parser::Parser() = default;

Parser::~Parser() { reset(false); }

void Parser::pushFrontGesture(ru::Reference<Gesture> gesture) {
  DebugPrint("voEV::Parser::pushFrontGesture", DebugEvents)("EventParser: pushing client gesture");
  gestures_.push_front(std::move(gesture));
}

void Parser::pushBackGesture(ru::Reference<Gesture> gesture) {
  DebugPrint("voEV::Parser::pushBackGesture", DebugEvents)("EventParser: pushing client gesture");
  gestures_.push_back(std::move(gesture));
}

void Parser::removeGesture(ru::Reference<Gesture> gesture) {
  DebugPrint("voEV::Parser::removeGesture", DebugEvents)("EventParser: removing client gesture");
  auto it = std::find(gestures_.begin(), gestures_.end(), gesture);
  if (it != gestures_.end()) gestures_.erase(it);
}

bool Parser::trackingInput() const noexcept { return buttonMask_ != 0 || touchActive_ || penActive_ || !keys_.empty(); }

bool Parser::noteEvent(const Event& event) {
  switch (event.getType()) {
    case MouseButtonPress: {
      const auto& mouse = static_cast<const MouseEvent&>(event);
      const bool began = buttonMask_ == 0;
      buttonMask_ |= mouse.getButton();
      return began;
    }
    case MouseButtonRelease:
      buttonMask_ &= ~static_cast<const MouseEvent&>(event).getButton();
      return false;
    case KeyPress: {
      // A key pressed with Ctrl alone is a shortcut and deliberately not tracked; its release then
      // erases nothing.
      const auto& key = static_cast<const KeyEvent&>(event);
      if (!key.isRepeat() && key.getModifierMask() != ModifierCtrl) keys_.insert(key.getKeyCode());
      return false;
    }
    case KeyRelease:
      keys_.erase(static_cast<const KeyEvent&>(event).getKeyCode());
      return false;
    case ScrenTouch: {
      const auto* touchEvent = dynamic_cast<const TouchEvent*>(&event);
      if (!touchEvent) return false;
      const auto& touch = *touchEvent;
      if (touch.isInteractionStart()) {
        touchActive_ = true;
        return true;
      }
      if (touch.isInteractionEnd()) touchActive_ = false;
      return false;
    }
    case PenDown:
      penActive_ = true;
      return true;
    case PenUp:
      penActive_ = false;
      return false;
    default:
      return false;
  }
}

bool Parser::add(const Event& event) {
  // Event kinds are trusted by type below; a record whose class does not fit its type is refused.
  switch (event.getType()) {
    case MouseButtonPress:
    case MouseButtonRelease:
    case MouseMove:
    case MouseMotion:
    case MouseHover:
      if (!dynamic_cast<const MouseEvent*>(&event)) return false;
      break;
    case KeyPress:
    case KeyRelease:
      if (!dynamic_cast<const KeyEvent*>(&event)) return false;
      break;
    case ScrenTouch:
      if (!dynamic_cast<const TouchEvent*>(&event)) return false;
      break;
    default:
      break;
  }

  const bool wasTracking = trackingInput();
  if (noteEvent(event)) sigInputBegan.emit(event);

  if (state_ == InteractionIgnored) {
    lastEvent_ = nullptr;
    // Everything up to the end of the tracked input that failed is dropped.
    if (wasTracking) return false;
    state_ = InteractionPending;
  }

  lastEvent_ = event.clone();
  events_.push_back(lastEvent_);

  bool failed = false;
  if (!gesturesCancelled_ && state_ == InteractionPending) {
    DebugPrint("voEV::Parser::add", DebugEvents)("EventParser: InteractionPending (%d events)",
                                                 static_cast<int>(events_.size()));
    if (events_.size() == 1) {
      stopwatch_.clear();
      stopwatch_.start();
      startTimer();
    }
    ru::Reference<Gesture> best;
    const Gesture::State verdict = evaluateEvents(best);
    if (verdict == Gesture::Recognized) {
      state_ = InteractionStarted;
      gesture_ = best;
      interaction_ = best->getInteraction();
      // Decided by an event: no more ticks, so the interaction can finish.
      destroyTimer();
    }
    failed = verdict == Gesture::Failed;
  }
  flushEvents(failed);
  return !failed;
}

Gesture::State Parser::evaluateEvents(ru::Reference<Gesture>& best) {
  best = nullptr;
  const double elapsed = stopwatch_.check();
  bool anyPossible = false;
  const DebugPrint print("voEV::Parser::evaluateEvents", DebugEvents);
  // One full pass, no early exit: every gesture sees every evaluation.
  for (const ru::Reference<Gesture>& gesture : gestures_) {
    const Gesture::State state = gesture->getState(events_, elapsed);
    if (print.enabled()) print("EventParser: %s is %s", ru::classNameOf(*gesture).c_str(), Gesture::stateName(state));
    if (state == Gesture::Possible) anyPossible = true;
    // The longest interval wins; on a tie the earlier gesture stays.
    if (state == Gesture::Recognized &&
        (!best || gesture->getRecognitionInterval() > best->getRecognitionInterval())) {
      best = gesture;
    }
  }
  // A recognised gesture wins only when no other is still possible.
  if (anyPossible) {
    best = nullptr;
    return Gesture::Possible;
  }
  return best ? Gesture::Recognized : Gesture::Failed;
}

void Parser::flushEvents(bool failed) {
  const DebugPrint print("voEV::Parser::flushEvents", DebugEvents);
  const bool finished = timer_ == nullptr && !trackingInput();
  if (state_ == InteractionPending) {
    // Undecided events wait; a failed evaluation throws the queue away, to nobody.
    if (finished || failed) reset(failed);
    return;
  }
  ru::Reference<Event> first;
  if (state_ == InteractionStarted) {
    print("EventParser: interaction started");
    first = events_.front();
    events_.erase(events_.begin());
  }
  ru::Reference<Event> last;
  if (finished && !events_.empty()) {
    last = events_.back();
    events_.pop_back();
  }
  if (first) {
    // The start batch is the first event alone; the rest waits aside meanwhile.
    EventList rest;
    rest.swap(events_);
    events_.push_back(first);
    sigEventsReady.emit();
    state_ = InteractionInProgress;
    print("EventParser: interaction in progress");
    // Whatever the listener left behind is dropped here.
    events_.swap(rest);
  }
  if (!events_.empty()) sigEventsReady.emit();
  if (finished) {
    // With nothing left for a finish batch (a key with Ctrl alone, recognised on its press and
    // never tracked) there is no finish batch; the interaction still ends here.
    if (last) {
      print("EventParser: interaction finished");
      state_ = InteractionFinished;
      events_.push_back(last);
      sigEventsReady.emit();
    }
    reset(false);
  }
}

void Parser::reset(bool ignoreRest) {
  DebugPrint("voEV::Parser::reset", DebugEvents)("EventParser: reset");
  destroyTimer();
  stopwatch_.stop();
  stopwatch_.clear();
  state_ = ignoreRest ? InteractionIgnored : InteractionPending;
  interaction_ = UndecidedInteraction;
  gesture_ = nullptr;
  lastEvent_ = nullptr;
  events_.clear();
  resetGestureStates();
  gesturesCancelled_ = false;
}

void Parser::resetGestureStates() {
  for (const ru::Reference<Gesture>& gesture : gestures_) gesture->resetState();
}

void Parser::onTimer(Timer* timer) {
  // The timer is deleted from within its own signal; the host's timer allows that.
  if (timer == timer_) timer_ = nullptr;
  delete timer;

  // Gestures need at least one event. With an empty queue (after cancelGestures, or once a batch
  // has been taken) only gestures that have already decided can be asked; while any is still
  // undecided the tick evaluates nothing.
  const bool undecided = std::any_of(gestures_.begin(), gestures_.end(), [](const ru::Reference<Gesture>& g) {
    return g->getCachedState() == Gesture::Possible;
  });
  if (!events_.empty() || !undecided) {
    ru::Reference<Gesture> best;
    if (evaluateEvents(best) == Gesture::Recognized) {
      state_ = InteractionStarted;
      gesture_ = best;
      interaction_ = best->getInteraction();
      DebugPrint("voEV::Parser::onTimer", DebugEvents)("EventParser: recognized on timer");
    }
  }
  // Whatever the verdict: a failure on a tick waits for the next event to be acted on.
  startTimer();
}

double Parser::maxGestureInterval() const {
  // Kept for reference: the tick is deliberately not tied to the gestures' intervals.
  double longest = 0.0;
  for (const ru::Reference<Gesture>& gesture : gestures_) longest = std::max(longest, gesture->getRecognitionInterval());
  return longest;
}

void Parser::startTimer() {
  destroyTimer();
  Timers* timers = voSupport::ci().find<Timers>();
  // The host must enter its Timers in the call info; without one there is no tick.
  if (!timers) return;
  timer_ = timers->create(tickInterval);
  if (timer_) timer_->sigTimer.connect(this, &Parser::onTimer, this);
}

void Parser::destroyTimer() {
  delete std::exchange(timer_, nullptr);
}

void Parser::cancelGestures() {
  gesturesCancelled_ = true;
  state_ = InteractionStarted;
}

void Parser::cancelInteraction() {
  if (lastEvent_ && (state_ == InteractionPending || state_ == InteractionInProgress)) {
    // Pen and touch input closes with an event of its own; mouse and key input has none.
    ru::Reference<Event> end = lastEvent_->createInteractionEnd();
    if (end) add(*end);
  }
  lastEvent_ = nullptr;
}

}  // namespace voEV
