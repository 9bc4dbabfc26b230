#pragma once

#include "datamodelgui/events/event.h"
#include "datamodelgui/events/gesture.h"
#include "datamodelgui/export.h"
#include "platform/base/clock.h"
#include "platform/base/containers.h"
#include "platform/base/reference.h"
#include "platform/base/signal.h"

namespace voSupport {
class Domain;
}

namespace voEV {

class FunctionScheduler;

// A one-shot timer of the host. After getTimeout() seconds the host emits sigTimer once, with the
// timer as argument, on the thread that feeds events. A listener may delete the timer from within
// that emission, and a timer deleted before its time never fires. The host arms a timer when it
// makes it.
class DMGUI_API Timer {
public:
  Timer(const Timer& other) = delete;
  Timer& operator=(const Timer& other) = delete;
  virtual ~Timer();

  // Hooks for the host: arm again from now, and disarm. They do nothing here.
  virtual void start();
  virtual void stop();

  // Seconds since the timer was made.
  double getElapsed() const { return stopwatch_.check(); }
  // Seconds, as given at creation.
  double getTimeout() const noexcept { return timeout_; }
  // The domain of the call in which the timer was made (may be null).
  voSupport::Domain* getDomain() const noexcept { return domain_; }

  ruRTB::SignalArg<Timer*> sigTimer;

protected:
  // Takes the domain from voSupport::ci() and starts counting at once.
  explicit Timer(double timeout);

private:
  ruOS::StopWatch stopwatch_;
  double timeout_;
  voSupport::Domain* domain_;
};

// The host's clock: it makes timers and holds the two function schedulers. The layer finds it in
// voSupport::ci() by its exact type, so the host enters it as a voEV::Timers.
class DMGUI_API Timers {
public:
  Timers(const Timers& other) = delete;
  Timers& operator=(const Timers& other) = delete;
  // Deletes both schedulers.
  virtual ~Timers();

  // A new armed timer of `timeout` seconds; the caller owns it and deletes it to cancel it.
  Timer* create(double timeout) { return onCreate(timeout); }

  FunctionScheduler* animScheduler() const noexcept { return animScheduler_; }
  FunctionScheduler* idleScheduler() const noexcept { return idleScheduler_; }

protected:
  // Takes ownership of both schedulers (either may be null).
  Timers(FunctionScheduler* anim, FunctionScheduler* idle) noexcept;

private:
  // Makes a host timer, armed, that emits sigTimer once after `timeout` seconds.
  virtual Timer* onCreate(double timeout) = 0;

  FunctionScheduler* animScheduler_;
  FunctionScheduler* idleScheduler_;
};

// Turns button, key, touch and pen events into interactions. It queues clones of the events, asks
// its gestures about the queue until one wins, then releases the queue in batches: one start
// batch of one event, any number of progress batches, and one finish batch of one event, each
// announced by sigEventsReady with getState() telling which it is. Time comes from a 0.05 s tick
// timer made through the voEV::Timers of the call info, which must be present while events are fed.
class DMGUI_API Parser : public ruRTB::SignalClient {
public:
  enum State : int {
    InteractionPending = 0,     // idle, or events queued and undecided
    InteractionStarted = 1,     // a gesture won; the first event is not yet released
    InteractionInProgress = 2,  // the first event has been released
    InteractionFinished = 3,    // only during the final batch
    InteractionIgnored = 4,     // all gestures failed; input is ignored until tracked input ends
  };

  // Seconds between two ticks, whatever the gestures' intervals.
  static constexpr double tickInterval = 0.05;

  // Empty: pending, with no gesture.
  Parser();
  Parser(const Parser& other) = delete;
  Parser& operator=(const Parser& other) = delete;
  // Resets first, so the timer dies before the parser.
  ~Parser();

  // Feeds one event (the parser keeps a clone). True when the parser took it; false when the
  // gestures failed on it or it was ignored, and for a record whose class does not fit its type
  // (refused before anything is noted).
  bool add(const Event& event);

  void pushFrontGesture(ru::Reference<Gesture> gesture);
  void pushBackGesture(ru::Reference<Gesture> gesture);
  // Erases the first entry that is this very object; a gesture not in the list is no error.
  void removeGesture(ru::Reference<Gesture> gesture);
  bool haveGestures() const noexcept { return !gestures_.empty(); }
  const ru::list<ru::Reference<Gesture>>& gestures() const noexcept { return gestures_; }

  // Stops recognising until the next reset: the state becomes started and every later event
  // passes through under the current interaction. The timer is left as it is.
  void cancelGestures();
  // Closes a running pen or touch interaction by feeding the closing event of the newest one;
  // mouse and key interactions have none and go on.
  void cancelInteraction();

  // Swaps the queue with `events`: how a listener of sigEventsReady takes the batch.
  void stealEvents(EventList& events) noexcept { events_.swap(events); }

  State getState() const noexcept { return state_; }
  InteractionType getInteraction() const noexcept { return interaction_; }
  // The winning gesture of the running interaction, or null.
  const ru::Reference<Gesture>& getGesture() const noexcept { return gesture_; }
  const ru::set<KeyCode>& activeKeys() const noexcept { return keys_; }
  int buttonMask() const noexcept { return buttonMask_; }
  // The tick timer, or null when none runs (not owned by the caller).
  const Timer* timer() const noexcept { return timer_; }
  // Events queued now (for inspection; a batch is taken with stealEvents).
  const EventList& queuedEvents() const noexcept { return events_; }

  // "InteractionPending" ... "InteractionIgnored".
  static const char* stateName(State state) noexcept;

  // A batch waits in the queue.
  ruRTB::SignalVoid sigEventsReady;
  // Tracked input has just begun (first button, key down with input idle, touch start, pen down).
  ruRTB::SignalArg<const Event&> sigInputBegan;

private:
  bool noteEvent(const Event& event);
  bool trackingInput() const noexcept;
  Gesture::State evaluateEvents(ru::Reference<Gesture>& best);
  void flushEvents(bool failed);
  void reset(bool ignoreRest);
  void resetGestureStates();
  void onTimer(Timer* timer);
  double maxGestureInterval() const;
  void startTimer();
  void destroyTimer();

  EventList events_;
  ru::Reference<Event> lastEvent_;
  State state_ = InteractionPending;
  ru::Reference<Gesture> gesture_;
  InteractionType interaction_ = UndecidedInteraction;
  Timer* timer_ = nullptr;
  ruOS::StopWatch stopwatch_;
  ru::list<ru::Reference<Gesture>> gestures_;
  ru::set<KeyCode> keys_;
  int buttonMask_ = 0;
  bool touchActive_ = false;
  bool penActive_ = false;
  bool gesturesCancelled_ = false;
};

}  // namespace voEV
