#include "datamodelgui/events/dispatcher.h"

#include "platform/support/callinfo.h"
#include "platform/support/debug.h"

#include <algorithm>
#include <optional>

namespace voEV {

using voSupport::DebugEvents;
using voSupport::DebugPrint;

namespace {

// The domain of the current call, for the contexts held around each delivery.
voSupport::Domain* currentDomain() { return voSupport::ci().find<voSupport::Domain>(); }

class DispatcherImpl : public ru::ImplBase, public ruRTB::SignalClient {
public:
  explicit DispatcherImpl(Dispatcher& owner) : dispatcher(&owner) {
    parser.sigEventsReady.connect(this, &DispatcherImpl::onEventsReady, this);
  }
  ~DispatcherImpl() override = default;

  void dispatch(const Event& event) {
    print(event);
    switch (event.getType()) {
      case MouseMotion:
        if (auto* mouse = dynamic_cast<const MouseEvent*>(&event)) {
          ru::Reference<Event> clone = mouse->clone();
          dispatchMotion(static_cast<const MouseEvent&>(*clone));
        }
        return;
      case MouseHover:
        if (auto* mouse = dynamic_cast<const MouseEvent*>(&event)) dispatchHover(*mouse);
        return;
      case Wheel:
        if (auto* wheel = dynamic_cast<const WheelEvent*>(&event)) dispatchWheel(*wheel);
        return;
      default:
        break;
    }
    const auto* key = (event.getType() == KeyPress || event.getType() == KeyRelease)
                          ? dynamic_cast<const KeyEvent*>(&event)
                          : nullptr;
    if (key && focusLocked && focus) {
      // A locked focus decides about every key; one it refuses goes nowhere.
      MapEvent map(event, KeyboardInteraction);
      const bool toMouse = !focus->isMultiTouchEnabled();
      if (!focus->wantsInteraction(map.type(toMouse), map.event(toMouse))) return;
    }
    bool taken = false;
    // Key repeats never enter the parser.
    if (!key || !key->isRepeat()) taken = parser.add(event);
    // For a key, keyState sees only repeats and what the parser did not take.
    if (key && !taken) dispatchKey(*key);
  }

  void addClient(Client* client, bool atFront) {
    if (atFront) {
      clients.push_front(client);
    } else {
      clients.push_back(client);
    }
  }

  void removeClient(Client* client) {
    auto it = std::find(clients.begin(), clients.end(), client);
    if (it != clients.end()) clients.erase(it);
  }

  bool isClient(Client* client) const { return std::find(clients.begin(), clients.end(), client) != clients.end(); }

  void cancelInteraction() {
    DebugPrint("`anonymous-namespace'::DispatcherImpl::cancelInteraction", DebugEvents)(
        "EventDispatcher: cancelInteraction");
    parser.cancelInteraction();
  }

  void dispatchMotion(const MouseEvent& event) {
    voSupport::Context context(currentDomain(), voSupport::Context::Motion);
    const DebugPrint print("`anonymous-namespace'::DispatcherImpl::dispatchMotion", DebugEvents);
    Client* result = offer(event, &Client::mouseMotion, print, "EventDispatcher: motion to focus.",
                           "EventDispatcher: motion to client.");
    dispatcher->sigClient.emit(result);
  }

  void dispatchHover(const MouseEvent& event) {
    voSupport::Context context(currentDomain(), voSupport::Context::Hover);
    const DebugPrint print("`anonymous-namespace'::DispatcherImpl::dispatchHover", DebugEvents);
    Client* result = offer(event, &Client::mouseHover, print, "EventDispatcher: hover to focus.",
                           "EventDispatcher: hover to client.");
    dispatcher->sigClient.emit(result);
  }

  void dispatchKey(const KeyEvent& event) {
    voSupport::Context context(currentDomain(), voSupport::Context::KeyOrWheel);
    const DebugPrint print("`anonymous-namespace'::DispatcherImpl::dispatchKey", DebugEvents);
    Client* result =
        offer(event, &Client::keyState, print, "EventDispatcher: key to focus.", "EventDispatcher: key to client.");
    dispatcher->sigClient.emit(result);
  }

  void dispatchWheel(const WheelEvent& event) {
    voSupport::Context context(currentDomain(), voSupport::Context::KeyOrWheel);
    const DebugPrint print("`anonymous-namespace'::DispatcherImpl::dispatchWheel", DebugEvents);
    // "wheelto" is the text as it has always been printed.
    Client* result =
        offer(event, &Client::wheel, print, "EventDispatcher: wheel to focus.", "EventDispatcher: wheelto client.");
    dispatcher->sigClient.emit(result);
  }

  // Offers an event outside interactions: to the focus alone when there is one (its refusal is
  // final), else to each client in order until one takes it. Returns the client that took it.
  template <class E>
  Client* offer(const E& event, bool (Client::*call)(const E&), const DebugPrint& print, const char* toFocus,
                const char* toClient) {
    if (focus) {
      print("%s", toFocus);
      return (focus->*call)(event) ? focus : nullptr;
    }
    // A client may add or remove clients from its answer: walk a copy, skipping any that left. A
    // client added during the walk is first asked at the next event.
    const ru::vector<Client*> walk(clients.begin(), clients.end());
    for (Client* client : walk) {
      if (walk.size() > 1 && !isClient(client)) continue;
      if ((client->*call)(event)) {
        print("%s", toClient);
        return client;
      }
    }
    return nullptr;
  }

  void onEventsReady() {
    EventList batch;
    parser.stealEvents(batch);
    // Each run of moves shrinks to its last event; moves apart from one another are all kept.
    if (batch.size() >= 2) {
      auto kept = batch.begin();
      for (auto it = batch.begin(); it != batch.end(); ++it) {
        auto next = std::next(it);
        if (next != batch.end() && (*it)->getType() == MouseMove && (*next)->getType() == MouseMove) continue;
        if (kept != it) *kept = std::move(*it);
        ++kept;
      }
      batch.erase(kept, batch.end());
    }
    const InteractionType interaction = parser.getInteraction();
    const Parser::State state = parser.getState();
    const ru::Reference<Event> first = batch.empty() ? ru::Reference<Event>() : batch.front();
    // Mouse clients see the pointer arrive just before a start and leave just after a finish.
    if (state == Parser::InteractionStarted && first) sendMotion(*first);
    onDispatchParsed(interaction, state, batch);
    if (state == Parser::InteractionFinished && first) sendMotion(*first);
  }

  void sendMotion(const Event& event) {
    auto* mouse = dynamic_cast<const MouseEvent*>(&event);
    if (!mouse) return;
    ru::Reference<MouseEvent> motion = MouseEvent::create(MouseMotion, 0, 0, mouse->getModifierMask(), 0,
                                                          mouse->getPosition(), mouse->getTimestamp());
    dispatchMotion(*motion);
  }

  void onDispatchParsed(InteractionType interaction, Parser::State state, EventList& batch) {
    const DebugPrint print("`anonymous-namespace'::DispatcherImpl::onDispatchParsed", DebugEvents);
    switch (state) {
      case Parser::InteractionStarted:
        print("EventDispatcher: interaction started: %s", asString(interaction).c_str());
        if (!batch.empty()) setFocus(interaction, *batch.front());
        if (focus) {
          voSupport::Context context(currentDomain(), voSupport::Context::StartBatch);
          deliver(interaction, batch, true, false);
        }
        break;
      case Parser::InteractionInProgress:
        print("EventDispatcher: interaction: %s", asString(interaction).c_str());
        if (focus) deliver(interaction, batch, false, false);
        break;
      case Parser::InteractionFinished:
        print("EventDispatcher: interaction finished: %s", asString(interaction).c_str());
        if (focus) {
          voSupport::Context context(currentDomain(), voSupport::Context::FinishBatch);
          deliver(interaction, batch, false, true);
        }
        if (!focusLocked) focus = nullptr;
        break;
      default:
        break;
    }
  }

  void setFocus(InteractionType interaction, const Event& event) {
    // A locked client keeps the interaction without being asked.
    if (focusLocked) return;
    const DebugPrint print("`anonymous-namespace'::DispatcherImpl::setFocus", DebugEvents);
    print("EventDispatcher::setFocus: type(%d)", static_cast<int>(interaction));
    MapEvent map(event, interaction);
    const ru::vector<Client*> walk(clients.begin(), clients.end());
    for (Client* client : walk) {
      if (walk.size() > 1 && !isClient(client)) continue;
      const bool toMouse = !client->isMultiTouchEnabled();
      if (client->wantsInteraction(map.type(toMouse), map.event(toMouse))) {
        // The first taker holds the interaction; nobody after it is asked.
        focus = client;
        print("EventDispatcher: setFocus: client(%p)", static_cast<void*>(client));
        return;
      }
    }
  }

  void deliver(InteractionType interaction, EventList& batch, bool start, bool finish) {
    if (batch.empty()) return;
    const Event* firstEvent = batch.front().get();
    const Event* lastEvent = batch.back().get();
    // Eavesdroppers first, in client order, then the focus, always last. The list is fixed here,
    // so clients that come or go during the delivery do not disturb it.
    Client* const target = focus;
    ru::vector<Client*> targets;
    for (Client* client : clients) {
      if (client != target && client->isEavesdropping()) targets.push_back(client);
    }
    targets.push_back(target);
    for (const ru::Reference<Event>& event : batch) {
      MapEvent map(*event, interaction);
      std::optional<voSupport::Context> context;
      if (!start && !finish) context.emplace(currentDomain(), voSupport::Context::ProgressEvent);
      for (Client* client : targets) {
        const bool toMouse = !client->isMultiTouchEnabled();
        const InteractionType type = map.type(toMouse);
        const Event& form = map.event(toMouse);
        if (start && event.get() == firstEvent && client == target) {
          client->interactionStarted(type, form);
        } else if (finish && event.get() == lastEvent && client == target) {
          client->interactionFinished(type, form);
        } else {
          // Eavesdroppers only ever get this call.
          client->interaction(type, form);
        }
      }
      dispatcher->sigClient.emit(focus);
    }
    batch.clear();
  }

  ru::list<Client*> clients;
  Dispatcher* dispatcher;
  Parser parser;
  Client* focus = nullptr;
  bool focusLocked = false;
  TextInput* textInput = nullptr;
};

DispatcherImpl& implOf(ru::ImplBase* impl) { return *static_cast<DispatcherImpl*>(impl); }

}  // namespace

// ---------------------------------------------------------------------------------------------
// Dispatcher

Dispatcher::Dispatcher() : impl_(new DispatcherImpl(*this)) {}

Dispatcher::~Dispatcher() {
  // Clients outliving their dispatcher must not reach back into it.
  for (Client* client : implOf(impl_).clients) client->dispatcher_ = nullptr;
  if (ownsImpl_) delete impl_;
}

void Dispatcher::dispatch(const Event& event) { implOf(impl_).dispatch(event); }

void Dispatcher::dispatchModifierKey(const KeyEvent& event) { sigModifierKey.emit(event); }

void Dispatcher::addClient(Client* client, bool atFront) { implOf(impl_).addClient(client, atFront); }

void Dispatcher::removeClient(Client* client) { implOf(impl_).removeClient(client); }

const ru::list<Client*>& Dispatcher::clients() const noexcept { return implOf(impl_).clients; }

void Dispatcher::cancelInteraction() { implOf(impl_).cancelInteraction(); }

void Dispatcher::lockFocus(Client* client) {
  implOf(impl_).focusLocked = true;
  implOf(impl_).focus = client;
}

void Dispatcher::unlockFocus(bool clearFocus) {
  implOf(impl_).focusLocked = false;
  if (clearFocus) implOf(impl_).focus = nullptr;
}

Client* Dispatcher::focus() const noexcept { return implOf(impl_).focus; }

bool Dispatcher::isFocusLocked() const noexcept { return implOf(impl_).focusLocked; }

Parser& Dispatcher::parser() noexcept { return implOf(impl_).parser; }

void Dispatcher::setTextInput(TextInput* textInput) { implOf(impl_).textInput = textInput; }

TextInput* Dispatcher::getTextInput() const noexcept { return implOf(impl_).textInput; }

// ---------------------------------------------------------------------------------------------
// Client

Client::Client(Dispatcher& dispatcher, bool multiTouchEnabled, bool atFront)
    : dispatcher_(&dispatcher), multiTouchEnabled_(multiTouchEnabled) {
  dispatcher_->addClient(this, atFront);
}

Client::~Client() {
  if (!dispatcher_) return;
  dispatcher_->removeClient(this);
  // A dying client must not stay the focus: later batches would reach a dead object.
  if (dispatcher_->focus() == this) dispatcher_->unlockFocus(true);
}

bool Client::mouseMotion(const MouseEvent&) { return false; }

bool Client::mouseHover(const MouseEvent&) { return false; }

bool Client::keyState(const KeyEvent&) { return false; }

bool Client::wheel(const WheelEvent&) { return false; }

bool Client::eavesdropping() const { return false; }

void Client::lockFocus() {
  if (dispatcher_) dispatcher_->lockFocus(this);
}

void Client::unlockFocus(bool clearFocus) {
  if (dispatcher_) dispatcher_->unlockFocus(clearFocus);
}

void Client::pushFrontGesture(ru::Reference<Gesture> gesture) {
  if (dispatcher_) dispatcher_->parser().pushFrontGesture(std::move(gesture));
}

void Client::removeGesture(ru::Reference<Gesture> gesture) {
  if (dispatcher_) dispatcher_->parser().removeGesture(std::move(gesture));
}

void Client::pushFrontGestures(const ru::list<ru::Reference<Gesture>>& gestures) {
  if (!dispatcher_) return;
  // Reversed, then each to the front: the list ends up at the head in its given order.
  ru::list<ru::Reference<Gesture>> copy(gestures);
  copy.reverse();
  for (const ru::Reference<Gesture>& gesture : copy) dispatcher_->parser().pushFrontGesture(gesture);
}

void Client::removeGestures(const ru::list<ru::Reference<Gesture>>& gestures) {
  if (!dispatcher_) return;
  for (const ru::Reference<Gesture>& gesture : gestures) dispatcher_->parser().removeGesture(gesture);
}

InstallGesturesMsg::~InstallGesturesMsg() = default;

}  // namespace voEV
