#include "datamodelgui/events/touchfilter.h"

#include "platform/support/debug.h"

namespace voEV {

void DragTouchFilter::reset() {
  state_ = Invalid;
  done_ = false;
  touch_.reset();
}

void DragTouchFilter::event(const Event& event) {
  if (state_ == Ended) {
    state_ = Invalid;
    done_ = true;
  }
  // Quiet until reset().
  if (done_) return;
  state_ = Invalid;
  if (event.getType() != ScrenTouch) return;
  const auto* touchEvent = dynamic_cast<const TouchEvent*>(&event);
  if (!touchEvent) return;
  if (touch_) {
    touch_ = touchEvent->find(touch_->getID());
    // A latched finger the event no longer reports ends the drag, as a lifted one does.
    state_ = (!touch_ || touch_->isDone()) ? Ended : Dragging;
  } else if (touchEvent->getTouches().size() == 1) {
    touch_ = touchEvent->getAnyTouch();
    // A finger that is already moving cannot be picked up.
    if (touch_->getPhase() != TouchBegan) {
      reset();
    } else {
      state_ = Started;
    }
  }
}

void DblDragTouchFilter::reset() {
  state_ = Invalid;
  done_ = false;
  touch1_.reset();
  touch2_.reset();
}

void DblDragTouchFilter::event(const Event& event) {
  const voSupport::DebugPrint print("voEV::DblDragTouchFilter::event", voSupport::DebugEvents);
  if (state_ == Ended) {
    print("DblDragTouchFilter Done");
    state_ = Invalid;
    done_ = true;
  }
  if (done_) return;
  state_ = Invalid;
  if (event.getType() != ScrenTouch) return;
  const auto* touchEvent = dynamic_cast<const TouchEvent*>(&event);
  if (!touchEvent) return;
  if (touch1_) {
    touch1_ = touchEvent->find(touch1_->getID());
    touch2_ = touch2_ ? touchEvent->find(touch2_->getID()) : ru::Reference<Touch>();
    if (touch1_ && touch2_ && !touch1_->isDone() && !touch2_->isDone()) {
      state_ = Dragging;
    } else {
      state_ = Ended;
      print("DblDragTouchFilter Ended");
    }
    return;
  }
  if (touchEvent->getTouches().size() != 2) {
    print("DblDragTouchFilter Invalid");
    return;
  }
  auto it = touchEvent->getTouches().begin();
  touch1_ = (it++)->second;
  touch2_ = it->second;
  state_ = Started;
  print("DblDragTouchFilter Started");
}

} // namespace voEV
