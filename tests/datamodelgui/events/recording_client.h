#pragma once

#include "datamodelgui/events/dispatcher.h"
#include "datamodelgui/events/event.h"
#include "platform/support/callinfo.h"

#include <functional>
#include <string>
#include <vector>

// Helpers of the event tests: event makers at given times, and a client that records every call
// the dispatcher makes on it. The client is a real voEV::Client, as a host's tool would be.
namespace eventstest {

using namespace voEV;

inline ru::Reference<MouseEvent> press(Point at, double time, int button = ButtonLeft, int mask = -1) {
  return MouseEvent::create(MouseButtonPress, button, mask < 0 ? button : mask, 0, 1, at, time);
}
inline ru::Reference<MouseEvent> release(Point at, double time, int button = ButtonLeft, int mask = 0) {
  return MouseEvent::create(MouseButtonRelease, button, mask, 0, 1, at, time);
}
inline ru::Reference<MouseEvent> move(Point at, double time, int mask = ButtonLeft) {
  return MouseEvent::create(MouseMove, 0, mask, 0, 0, at, time);
}
inline ru::Reference<MouseEvent> motion(Point at, double time, int modifiers = 0) {
  return MouseEvent::create(MouseMotion, 0, 0, modifiers, 0, at, time);
}
inline ru::Reference<MouseEvent> hover(Point at, double time) {
  return MouseEvent::create(MouseHover, 0, 0, 0, 0, at, time);
}
inline ru::Reference<KeyEvent> keyPress(KeyCode key, int modifiers = 0, bool repeat = false) {
  return KeyEvent::create(KeyPress, key, repeat, modifiers);
}
inline ru::Reference<KeyEvent> keyRelease(KeyCode key, int modifiers = 0) {
  return KeyEvent::create(KeyRelease, key, false, modifiers);
}
inline ru::Reference<WheelEvent> wheel(Point at, int delta) { return WheelEvent::create(Wheel, 0, 0, at, delta); }

// "MouseButtonPress(10,20)" or "KeyPress(KeyA)": enough to tell the events of a script apart.
inline std::string describe(const Event& event) {
  std::string text = asString(event.getType()).str();
  if (auto* key = dynamic_cast<const KeyEvent*>(&event)) return text + "(" + asString(key->getKeyCode()).str() + ")";
  if (auto* mouse = dynamic_cast<const MouseEvent*>(&event)) return text + mouse->getPosition().asString().str();
  if (auto* pen = dynamic_cast<const PenEvent*>(&event)) return text + pen->getPosition().asString().str();
  if (auto* w = dynamic_cast<const WheelEvent*>(&event)) return text + "(" + std::to_string(w->getDelta()) + ")";
  return text;
}

// One call on a client.
struct Call {
  std::string client;
  std::string what;  // wants, started, interaction, finished, motion, hover, key, wheel
  InteractionType interaction = UndecidedInteraction;
  std::string event;
  int contextMode = -1;  // mode of the innermost voSupport::Context, -1 when none
  ru::Reference<Event> clone;

  std::string text() const {
    std::string out = client + ":" + what;
    if (what == "wants" || what == "started" || what == "interaction" || what == "finished") {
      out += " " + asString(interaction).str();
    }
    return out + " " + event;
  }
};

class RecordingClient : public Client {
public:
  // `log` is shared between clients so that the order across them shows.
  RecordingClient(Dispatcher& dispatcher, std::string name, std::vector<Call>& log, bool multiTouch = false,
                  bool atFront = false)
      : Client(dispatcher, multiTouch, atFront), name_(std::move(name)), log_(log) {}

  // Answers; by default the client takes every interaction and no plain event.
  std::function<bool(InteractionType, const Event&)> wants = [](InteractionType, const Event&) { return true; };
  bool takesMotion = false;
  bool takesHover = false;
  bool takesKeys = false;
  bool takesWheel = false;
  bool eavesdrops = false;
  // Run after each recorded call, for clients that act from within a delivery.
  std::function<void(const Call&)> after;

  bool wantsInteraction(InteractionType interaction, const Event& event) override {
    const bool answer = wants(interaction, event);
    record("wants", interaction, event);
    return answer;
  }
  void interactionStarted(InteractionType interaction, const Event& event) override {
    record("started", interaction, event);
  }
  void interaction(InteractionType interaction, const Event& event) override { record("interaction", interaction, event); }
  void interactionFinished(InteractionType interaction, const Event& event) override {
    record("finished", interaction, event);
  }
  bool mouseMotion(const MouseEvent& event) override {
    record("motion", UndecidedInteraction, event);
    return takesMotion;
  }
  bool mouseHover(const MouseEvent& event) override {
    record("hover", UndecidedInteraction, event);
    return takesHover;
  }
  bool keyState(const KeyEvent& event) override {
    record("key", UndecidedInteraction, event);
    return takesKeys;
  }
  bool wheel(const WheelEvent& event) override {
    record("wheel", UndecidedInteraction, event);
    return takesWheel;
  }

  using Client::lockFocus;
  using Client::unlockFocus;
  const std::string& name() const noexcept { return name_; }

private:
  bool eavesdropping() const override { return eavesdrops; }

  void record(const char* what, InteractionType interaction, const Event& event) {
    Call call;
    call.client = name_;
    call.what = what;
    call.interaction = interaction;
    call.event = describe(event);
    const voSupport::Context* context = voSupport::Context::current();
    call.contextMode = context ? static_cast<int>(context->mode()) : -1;
    call.clone = event.clone();
    log_.push_back(call);
    if (after) {
      const Call copy = log_.back();
      after(copy);
    }
  }

  std::string name_;
  std::vector<Call>& log_;
};

// The texts of the calls, in order.
inline std::vector<std::string> texts(const std::vector<Call>& calls) {
  std::vector<std::string> out;
  for (const Call& call : calls) out.push_back(call.text());
  return out;
}

}  // namespace eventstest
