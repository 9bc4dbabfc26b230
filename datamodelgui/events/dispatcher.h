#pragma once

#include "datamodelgui/events/event.h"
#include "datamodelgui/events/gesture.h"
#include "datamodelgui/events/parser.h"
#include "datamodelgui/events/textinput.h"
#include "datamodelgui/export.h"
#include "platform/base/containers.h"
#include "platform/base/reference.h"
#include "platform/base/signal.h"
#include "platform/support/broadcaster.h"

namespace voEV {

class Client;

// The front door of the input layer. The host hands it every event with dispatch(), inside the
// call info of the document (which must hold the voEV::Timers and the voSupport::Domain). Motion,
// hover and wheel go straight to clients; button, key, touch and pen events go through the parser,
// and the interactions it recognises are delivered to one client, the focus, after any
// eavesdropping clients. Clients are not owned.
class DMGUI_API Dispatcher {
public:
  Dispatcher();
  Dispatcher(const Dispatcher& other) = delete;
  Dispatcher& operator=(const Dispatcher& other) = delete;
  // Clients still registered are detached, not deleted.
  ~Dispatcher();

  // The entry point for all events. The dispatcher keeps clones only, so the caller may drop its
  // event as soon as this returns.
  void dispatch(const Event& event);
  // Emits sigModifierKey with the event and does nothing else.
  void dispatchModifierKey(const KeyEvent& event);

  // Prepends when `atFront`, else appends. The client is not owned.
  void addClient(Client* client, bool atFront);
  // Erases the first entry with that pointer, if any. A client that holds the focus keeps it: end
  // the interaction or call unlockFocus(true) before destroying it.
  void removeClient(Client* client);
  const ru::list<Client*>& clients() const noexcept;

  // Closes a running pen or touch interaction (see Parser::cancelInteraction).
  void cancelInteraction();

  // Makes `client` the focus at once and keeps it there across interactions until unlockFocus.
  void lockFocus(Client* client);
  // Lets the focus go with the next finished interaction; nulls it at once when `clearFocus`.
  void unlockFocus(bool clearFocus);
  // The client holding the current interaction, or null.
  Client* focus() const noexcept;
  bool isFocusLocked() const noexcept;

  Parser& parser() noexcept;
  // Stored for the host; the layer does not read it. Not owned.
  void setTextInput(TextInput* textInput);
  TextInput* getTextInput() const noexcept;

  // After each delivery: the client that took the event, or null.
  ruRTB::SignalArg<Client*> sigClient;
  ruRTB::SignalArg<const KeyEvent&> sigModifierKey;

private:
  ru::ImplBase* impl_;
  bool ownsImpl_ = true;
};

// Anything that takes input; the application's tools derive from it. A client registers with its
// dispatcher for its whole life. A client without multi-touch support sees touch and pen input as
// mouse input: each interaction type goes through mapToMouse and each event through its mouse form.
class DMGUI_API Client {
public:
  Client(const Client& other) = delete;
  Client& operator=(const Client& other) = delete;
  // Removes the client from its dispatcher. A client that holds the focus also gives it up (and a
  // lock it set), so no batch ever reaches a destroyed client; removeClient alone keeps the focus.
  virtual ~Client();

  // Offered at the start of an interaction; true takes it (and the focus) for its whole length.
  virtual bool wantsInteraction(InteractionType interaction, const Event& event) = 0;
  // The first event of an interaction the client took.
  virtual void interactionStarted(InteractionType interaction, const Event& event) = 0;
  // Each event in between (and every event, for an eavesdropper that is not the focus).
  virtual void interaction(InteractionType interaction, const Event& event) = 0;
  // The last event.
  virtual void interactionFinished(InteractionType interaction, const Event& event) = 0;
  // Outside interactions: true means the client took the event. Nothing is taken by default.
  virtual bool mouseMotion(const MouseEvent& event);
  virtual bool mouseHover(const MouseEvent& event);
  virtual bool keyState(const KeyEvent& event);
  virtual bool wheel(const WheelEvent& event);

  bool isMultiTouchEnabled() const noexcept { return multiTouchEnabled_; }
  // An eavesdropper gets every event of every interaction another client holds, as interaction().
  bool isEavesdropping() const { return eavesdropping(); }
  // The dispatcher the client registered with, or null once that dispatcher has gone (the
  // forwarding calls below then do nothing).
  Dispatcher* dispatcher() const noexcept { return dispatcher_; }

  // Gesture lists on the dispatcher's parser. pushFrontGestures puts the list at the head of the
  // parser's list in its given order.
  void pushFrontGesture(ru::Reference<Gesture> gesture);
  void removeGesture(ru::Reference<Gesture> gesture);
  void pushFrontGestures(const ru::list<ru::Reference<Gesture>>& gestures);
  void removeGestures(const ru::list<ru::Reference<Gesture>>& gestures);

protected:
  // Registers with `dispatcher` through addClient(this, atFront).
  Client(Dispatcher& dispatcher, bool multiTouchEnabled, bool atFront);

  virtual bool eavesdropping() const;

  void lockFocus();
  void unlockFocus(bool clearFocus);

private:
  friend class Dispatcher;
  Dispatcher* dispatcher_;
  bool multiTouchEnabled_;
};

// Broadcast by the host when a parser needs its gestures: each listener installs what it wants
// with pushFrontGesture or pushBackGesture. There is no built-in default set.
class DMGUI_API InstallGesturesMsg : public voSupport::Message {
public:
  explicit InstallGesturesMsg(Parser& parser) noexcept : parser_(&parser) {}
  InstallGesturesMsg(const InstallGesturesMsg& other) = default;
  InstallGesturesMsg& operator=(const InstallGesturesMsg& other) = default;
  ~InstallGesturesMsg() override;

  Parser& parser() const noexcept { return *parser_; }

private:
  Parser* parser_;
};

}  // namespace voEV
