#include "datamodelgui/events/touch.h"

#include "platform/base/linear.h"
#include "platform/support/settings.h"

#include <iterator>

namespace voEV {

namespace {
constexpr const char* phaseNames[] = {"TouchBegan", "TouchMoved", "TouchStationary", "TouchEnded", "TouchCancelled"};
}  // namespace

ruString::CString asString(TouchPhase phase) {
  if (phase < 0 || static_cast<std::size_t>(phase) >= std::size(phaseNames)) return {};
  return phaseNames[phase];
}

// ---------------------------------------------------------------------------------------------
// Touch

Touch::Touch(int id, const Point& position, const Point& prevPosition, int tapCount, TouchPhase phase,
             double timestamp) noexcept
    : position_(position),
      prevPosition_(prevPosition),
      timestamp_(timestamp),
      id_(id),
      tapCount_(tapCount),
      phase_(phase) {}

Touch::~Touch() = default;

ru::Reference<Touch> Touch::clone() const { return ru::Reference<Touch>(new Touch(*this)); }

ru::Reference<MouseEvent> Touch::asMouseEvent() const {
  EventType type = MouseMove;
  int buttonMask = 1;
  if (phase_ == TouchBegan) {
    type = MouseButtonPress;
  } else if (isDone()) {
    type = MouseButtonRelease;
    buttonMask = 0;
  }
  return MouseEvent::create(type, 1, buttonMask, 0, tapCount_, position_, timestamp_);
}

bool Touch::operator!=(const Touch& other) const noexcept {
  return position_ != other.position_ || prevPosition_ != other.prevPosition_ || timestamp_ != other.timestamp_ ||
         id_ != other.id_ || tapCount_ != other.tapCount_ || phase_ != other.phase_;
}

// ---------------------------------------------------------------------------------------------
// HistoricalTouchData

HistoricalTouchData::HistoricalTouchData(int numEvents, ru::vector<HistoricalTouch>& touches)
    : numEvents_(numEvents > 0 ? numEvents : 0), numTouches_(0) {
  // A record of no samples is refused: it keeps nothing, and the caller keeps its touches, rather
  // than divide by zero.
  if (numEvents_ == 0) return;
  touches_.swap(touches);
  numTouches_ = static_cast<int>(touches_.size()) / numEvents_;
}

HistoricalTouchData::~HistoricalTouchData() = default;

// ---------------------------------------------------------------------------------------------
// TouchEvent

TouchEvent::TouchEvent(const TouchMap& touches) : Event(ScrenTouch), touches_(touches) {}

TouchEvent::TouchEvent(const TouchMap& touches, ru::Reference<HistoricalTouchData> historicalData)
    : Event(ScrenTouch), touches_(touches), historicalData_(std::move(historicalData)) {}

TouchEvent::TouchEvent(const TouchEvent& other)
    : Event(other), historicalData_(other.historicalData_), logicalInteractionStart_(other.logicalInteractionStart_) {
  for (const auto& [id, touch] : other.touches_) touches_[id] = touch->clone();
}

TouchEvent::~TouchEvent() = default;

ru::Reference<Touch> TouchEvent::find(int id) const {
  auto it = touches_.find(id);
  return it == touches_.end() ? ru::Reference<Touch>() : it->second;
}

ru::Reference<Touch> TouchEvent::getAnyTouch() const { return touches_.begin()->second; }

Point TouchEvent::getMidpoint() const {
  double x = 0.0, y = 0.0;
  for (const auto& [id, touch] : touches_) {
    x += touch->getPosition().x;
    y += touch->getPosition().y;
  }
  const double count = static_cast<double>(touches_.size());
  return Point(ruLinear::Point2(x / count, y / count));
}

bool TouchEvent::isInteractionStart() const noexcept {
  if (logicalInteractionStart_) return true;
  for (const auto& [id, touch] : touches_) {
    if (touch->getPhase() != TouchBegan) return false;
  }
  return true;
}

bool TouchEvent::isInteractionEnd() const noexcept {
  for (const auto& [id, touch] : touches_) {
    if (!touch->isDone()) return false;
  }
  return true;
}

bool TouchEvent::isInteractionChange() const noexcept {
  bool change = false;
  for (const auto& [id, touch] : touches_) {
    if (touch->getPhase() == TouchBegan || touch->isDone()) change = true;
  }
  return change && !isInteractionStart() && !isInteractionEnd();
}

Event* TouchEvent::onClone() const { return new TouchEvent(*this); }

Event* TouchEvent::onCreateInteractionEnd() const {
  TouchMap ended;
  for (const auto& [id, touch] : touches_) {
    if (touch->getPhase() >= TouchEnded) continue;
    ended[id] = new Touch(id, touch->getPosition(), touch->getPosition(), 0, TouchEnded, touch->getTimestamp());
  }
  if (ended.empty()) return nullptr;
  return new TouchEvent(ended);
}

bool identical(const TouchEvent& a, const TouchEvent& b) {
  if (a.isLogicalInteractionStart() != b.isLogicalInteractionStart()) return false;
  if (a.getTouches().size() != b.getTouches().size()) return false;
  auto ia = a.getTouches().begin();
  auto ib = b.getTouches().begin();
  for (; ia != a.getTouches().end(); ++ia, ++ib) {
    if (ia->first != ib->first || *ia->second != *ib->second) return false;
  }
  return true;
}

// --- TouchState ------------------------------------------------------------------------------

bool TouchState::event(const Event& event) {
  if (event.getType() != ScrenTouch) return false;
  const auto* touchEvent = dynamic_cast<const TouchEvent*>(&event);
  if (!touchEvent) return false;
  // A finger joining or leaving restarts every origin.
  if (touchEvent->isInteractionChange()) {
    origins_.clear();
    interactionStart_ = false;
    interactionEnd_ = false;
  }
  previous_ = current_;
  current_.clear();
  TouchMap before;
  before.swap(origins_);
  for (const auto& [id, touch] : touchEvent->getTouches()) {
    if (touch->getPhase() == TouchBegan) {
      origins_[id] = touch->clone();
    } else {
      auto found = before.find(id);
      origins_[id] = found != before.end() ? found->second : touch->clone();
    }
    current_[id] = touch->clone();
  }
  interactionStart_ = touchEvent->isInteractionStart();
  interactionEnd_ = touchEvent->isInteractionEnd();
  return true;
}

Point TouchState::getOrigin(const Touch& touch) const {
  auto found = origins_.find(touch.getID());
  return found != origins_.end() ? found->second->getPosition() : touch.getPosition();
}

double TouchState::getAge(const Touch& touch) const {
  auto found = origins_.find(touch.getID());
  return found != origins_.end() ? touch.getTimestamp() - found->second->getTimestamp() : 0.0;
}

double TouchState::getInterval(const Touch& touch) const {
  auto found = previous_.find(touch.getID());
  return found != previous_.end() ? touch.getTimestamp() - found->second->getTimestamp() : 0.0;
}

bool TouchState::hasMoved(const Touch& touch) const {
  // Strictly beyond the threshold, like the stationary test of the mouse gestures.
  return ruLinear::distance(getOrigin(touch).asPoint2(), touch.getPosition().asPoint2()) >
         voSupport::getMovingGestureThreshold();
}

bool TouchState::anyMoved() const {
  for (const auto& [id, touch] : current_) {
    if (hasMoved(*touch)) return true;
  }
  return false;
}

}  // namespace voEV
