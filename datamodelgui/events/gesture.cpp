#include "datamodelgui/events/gesture.h"

#include "platform/support/settings.h"

namespace voEV {

const char* Gesture::stateName(State state) noexcept {
  switch (state) {
    case Possible:
      return "possible";
    case Recognized:
      return "recognized";
    case Failed:
      return "failed";
  }
  return "";
}

Gesture::Gesture(InteractionType interaction, double recognitionInterval) noexcept
    : interaction_(interaction), recognitionInterval_(recognitionInterval) {}

Gesture::~Gesture() = default;

Gesture::State Gesture::getState(const EventList& events, double elapsed) {
  if (state_ != Possible || events.empty()) return state_;
  // The overrides read events.front() and each entry without checking.
  for (const auto& event : events) {
    if (!event) return state_;
  }
  state_ = onGetState(events, elapsed);
  return state_;
}

bool samePlace(const Point& a, const Point& b) {
  // The threshold is read at every comparison so that a change of the setting counts at once.
  return ruLinear::equivalent(a.asPoint2(), b.asPoint2(), voSupport::getMovingGestureThreshold());
}

namespace {

const MouseEvent* asMouse(const Event& event) { return dynamic_cast<const MouseEvent*>(&event); }

}  // namespace

// ---------------------------------------------------------------------------------------------
// ClickMouse

ClickMouse::ClickMouse(double recognitionInterval) noexcept : Gesture(ClickMouseInteraction, recognitionInterval) {}

ClickMouse::~ClickMouse() = default;

Gesture::State ClickMouse::onGetState(const EventList& events, double elapsed) const {
  // Time first: a click must end within the interval by the clock, so a tick fails a button that
  // is still down.
  if (elapsed > getRecognitionInterval()) return Failed;
  const MouseEvent* first = asMouse(*events.front());
  if (!first || first->getType() != MouseButtonPress) return Failed;
  for (std::size_t i = 1; i < events.size(); ++i) {
    const MouseEvent* event = asMouse(*events[i]);
    if (!event) continue;
    if (event->getType() == MouseMove) {
      if (!samePlace(event->getPosition(), first->getPosition())) return Failed;
    } else if (event->getType() == MouseButtonRelease) {
      // Another button's release, or one far away, is passed over.
      if (event->getButton() == first->getButton() && samePlace(event->getPosition(), first->getPosition())) {
        return Recognized;
      }
    }
  }
  return Possible;
}

// ---------------------------------------------------------------------------------------------
// DragMouse

DragMouse::DragMouse(double recognitionInterval) noexcept : Gesture(DragMouseInteraction, recognitionInterval) {}

DragMouse::~DragMouse() = default;

Gesture::State DragMouse::onGetState(const EventList& events, double elapsed) const {
  const MouseEvent* first = asMouse(*events.front());
  if (!first || first->getType() != MouseButtonPress) return Failed;
  for (std::size_t i = 1; i < events.size(); ++i) {
    const MouseEvent* event = asMouse(*events[i]);
    if (!event) continue;
    const EventType type = event->getType();
    if (type == MouseMove || type == MouseButtonPress) {
      // A second button pressed away from the first counts as a drag.
      if (!samePlace(event->getPosition(), first->getPosition())) return Recognized;
    } else if (type == MouseButtonRelease) {
      // The release of any button ends the scan.
      return samePlace(event->getPosition(), first->getPosition()) ? Failed : Recognized;
    }
  }
  // A button held still past the interval is no longer a drag, even if it moves later.
  return elapsed > getRecognitionInterval() ? Failed : Possible;
}

// ---------------------------------------------------------------------------------------------
// PressMouse

PressMouse::PressMouse(double recognitionInterval) noexcept : Gesture(PressMouseInteraction, recognitionInterval) {}

PressMouse::~PressMouse() = default;

Gesture::State PressMouse::onGetState(const EventList& events, double elapsed) const {
  const MouseEvent* first = asMouse(*events.front());
  if (!first || first->getType() != MouseButtonPress) return Failed;
  for (std::size_t i = 1; i < events.size(); ++i) {
    const Event& event = *events[i];
    switch (event.getType()) {
      case MouseButtonPress:
        return Failed;
      case MouseButtonRelease:
        // The only way to be recognised: a press is reported when the button is let go.
        return elapsed > getRecognitionInterval() ? Recognized : Failed;
      case MouseMove: {
        const MouseEvent* move = asMouse(event);
        if (!move || !samePlace(move->getPosition(), first->getPosition())) return Failed;
        break;
      }
      default:
        return Failed;
    }
  }
  return Possible;
}

// ---------------------------------------------------------------------------------------------
// KeyClick

KeyClick::KeyClick(const ru::set<KeyCode>& keys) : Gesture(KeyboardInteraction, 0.0), keys_(keys) {}

KeyClick::~KeyClick() = default;

Gesture::State KeyClick::onGetState(const EventList& events, double) const {
  const auto* first = dynamic_cast<const KeyEvent*>(events.front().get());
  if (!first || first->getType() != KeyPress) return Failed;
  return keys_.count(first->getKeyCode()) ? Recognized : Failed;
}

// ---------------------------------------------------------------------------------------------
// MouseInteractionDescriptor

MouseInteractionDescriptor::~MouseInteractionDescriptor() = default;

void MouseInteractionDescriptor::sendTriggeringEvent(InteractionType interaction, const MouseEvent& event) {
  setTriggeringEvent(event);
  setTriggeringInteraction(interaction);
  onTriggeringEvent(interaction, event);
}

void MouseInteractionDescriptor::setTriggeringEvent(const MouseEvent& event) {
  triggeringEvent_ = ru::staticCast<MouseEvent>(event.clone());
}

}  // namespace voEV
