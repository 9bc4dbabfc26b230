#pragma once

#include "datamodelgui/events/touch.h"
#include "datamodelgui/export.h"

// Filters a client keeps for the length of a touch drag and feeds with each event: they latch onto
// one finger or two and tell, event by event, whether the drag has just started, goes on, or has
// just ended. For one drag: Invalid while nothing fits, Started once, Dragging any number of times,
// Ended once, then Invalid for good until reset().
namespace voEV {

class DMGUI_API DragTouchFilter {
public:
  enum State : int {
    Invalid = 0,   // no drag at this event
    Started = 1,   // the drag began at this event
    Dragging = 2,  // the drag goes on
    Ended = 3,     // the drag ended at this event
  };

  DragTouchFilter() { reset(); }

  // Feeds one event. Only a single finger that has just begun starts a drag; the filter then
  // follows that finger's id, whatever other fingers come and go, and ends when it lifts or is no
  // longer reported.
  void event(const Event& event);
  State getState() const noexcept { return state_; }
  void reset();
  // The latched finger as of the last event; may be null.
  const ru::Reference<Touch>& getTouch() const noexcept { return touch_; }

private:
  State state_ = Invalid;
  ru::Reference<Touch> touch_;
  bool done_ = false;
};

class DMGUI_API DblDragTouchFilter {
public:
  enum State : int {
    Invalid = 0,
    Started = 1,
    Dragging = 2,
    Ended = 3,
  };

  DblDragTouchFilter() { reset(); }

  // Feeds one event. Any event with exactly two fingers starts a drag, whatever their phases; the
  // drag ends at the event where either finger is gone or done. Prints under code 40.
  void event(const Event& event);
  State getState() const noexcept { return state_; }
  void reset();
  // Null while the state is Invalid, and for a finger the last event no longer holds.
  ru::Reference<Touch> getTouch1() const { return state_ == Invalid ? ru::Reference<Touch>() : touch1_; }
  ru::Reference<Touch> getTouch2() const { return state_ == Invalid ? ru::Reference<Touch>() : touch2_; }

private:
  State state_ = Invalid;
  ru::Reference<Touch> touch1_;
  ru::Reference<Touch> touch2_;
  bool done_ = false;
};

} // namespace voEV
