#include "datamodelgui/events/dispatcher.h"

#include "datamodelgui/events/touch.h"
#include "tests/datamodelgui/events/debug_capture.h"
#include "tests/datamodelgui/events/recording_client.h"
#include "tests/testhost/testhost.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

using namespace voEV;
using namespace eventstest;

namespace {

const Point here(100, 100);
const Point there(160, 100);

// Recognises the first event at once as the given interaction, whatever it is: a host gesture
// for input the mouse gestures do not cover.
class Immediate : public Gesture {
public:
  Immediate(InteractionType interaction, EventType type, double interval = 0.1)
      : Gesture(interaction, interval), type_(type) {}

private:
  State onGetState(const EventList& events, double) const override {
    return events.front()->getType() == type_ ? Recognized : Failed;
  }
  EventType type_;
};

// A pen gesture of a host that only knows pen-down taps.
class PenDownOnly : public Gesture {
public:
  PenDownOnly() : Gesture(TapPenInteraction, 0.2) {}

private:
  State onGetState(const EventList& events, double) const override {
    return events.front()->getType() == PenDown ? Possible : Failed;
  }
};

class DispatcherTest : public ::testing::Test {
protected:
  void SetUp() override {
    host.parser().pushBackGesture(new ClickMouse);
    host.parser().pushBackGesture(new DragMouse);
    host.parser().pushBackGesture(new PressMouse);
  }

  void click(Point at) {
    host.dispatch(*press(at, host.now()));
    host.dispatch(*release(at, host.now()));
  }
  void drag(Point from, Point to) {
    host.dispatch(*press(from, host.now()));
    host.dispatch(*move(to, host.now()));
    host.dispatch(*release(to, host.now()));
  }

  ru::Reference<TouchEvent> touch(TouchPhase phase, Point at, int tapCount = 1) {
    TouchMap touches;
    touches[1] = new Touch(1, at, at, tapCount, phase, host.now());
    return ru::Reference<TouchEvent>(new TouchEvent(touches));
  }

  testhost::TestHost host;
  std::vector<Call> log;
};

}  // namespace

TEST_F(DispatcherTest, AClientRefusingAtTheStartNeverHearsOfTheInteractionEvenIfItWouldTakeLaterEvents) {
  RecordingClient refuser(host.dispatcher(), "refuser", log);
  RecordingClient taker(host.dispatcher(), "taker", log);
  bool refuse = true;
  refuser.wants = [&](InteractionType, const Event&) { return !refuse; };
  host.dispatch(*press(here, 0.0));
  host.dispatch(*move(there, 0.0));
  refuse = false;  // it would take the later events now, but is not asked again
  host.dispatch(*move(Point(170, 100), 0.0));
  host.dispatch(*release(Point(170, 100), 0.0));
  std::vector<std::string> refusersCalls;
  for (const Call& call : log) {
    if (call.client == "refuser" && call.what != "motion") refusersCalls.push_back(call.text());
  }
  EXPECT_EQ(refusersCalls, (std::vector<std::string>{"refuser:wants DragMouse MouseButtonPress(100,100)"}));
  EXPECT_EQ(texts(log), (std::vector<std::string>{
                            "refuser:motion MouseMotion(100,100)", "taker:motion MouseMotion(100,100)",
                            "refuser:wants DragMouse MouseButtonPress(100,100)",
                            "taker:wants DragMouse MouseButtonPress(100,100)",
                            "taker:started DragMouse MouseButtonPress(100,100)",
                            "taker:interaction DragMouse MouseMove(160,100)",
                            "taker:interaction DragMouse MouseMove(170,100)",
                            "taker:finished DragMouse MouseButtonRelease(170,100)",
                            "refuser:motion MouseMotion(170,100)", "taker:motion MouseMotion(170,100)"}));
}

TEST_F(DispatcherTest, WithoutMultiTouchATapTouchArrivesAsClickMouseWithAMouseEventAndDblTapKeepsItsType) {
  host.parser().pushFrontGesture(new Immediate(TapTouchInteraction, ScrenTouch));
  RecordingClient mouseOnly(host.dispatcher(), "mouse", log, false);
  host.dispatch(*touch(TouchBegan, here));
  host.dispatch(*touch(TouchEnded, here));
  ASSERT_GE(log.size(), 3u);
  EXPECT_EQ(texts(log), (std::vector<std::string>{"mouse:wants ClickMouse MouseButtonPress(100,100)",
                                                  "mouse:started ClickMouse MouseButtonPress(100,100)",
                                                  "mouse:finished ClickMouse MouseButtonRelease(100,100)"}));
  EXPECT_TRUE(dynamic_cast<MouseEvent*>(log[1].clone.get()));

  log.clear();
  host.parser().removeGesture(host.parser().gestures().front());
  host.parser().pushFrontGesture(new Immediate(DblTapTouchInteraction, ScrenTouch));
  host.dispatch(*touch(TouchBegan, there));
  host.dispatch(*touch(TouchEnded, there));
  EXPECT_EQ(texts(log), (std::vector<std::string>{"mouse:wants DblTapTouch MouseButtonPress(160,100)",
                                                  "mouse:started DblTapTouch MouseButtonPress(160,100)",
                                                  "mouse:finished DblTapTouch MouseButtonRelease(160,100)"}));
}

TEST_F(DispatcherTest, AMultiTouchClientSeesTouchEventsAndTypesAsTheyAre) {
  host.parser().pushFrontGesture(new Immediate(TapTouchInteraction, ScrenTouch));
  RecordingClient touchClient(host.dispatcher(), "touch", log, true);
  host.dispatch(*touch(TouchBegan, here));
  host.dispatch(*touch(TouchEnded, here));
  EXPECT_EQ(texts(log), (std::vector<std::string>{"touch:wants TapTouch ScrenTouch", "touch:started TapTouch ScrenTouch",
                                                  "touch:finished TapTouch ScrenTouch"}));
}

TEST_F(DispatcherTest, AnEavesdropperHoldingTheFocusGetsEachEventOnceLastWithTheStartAndFinishCalls) {
  RecordingClient spy(host.dispatcher(), "spy", log);
  RecordingClient tool(host.dispatcher(), "tool", log);
  RecordingClient ear(host.dispatcher(), "ear", log);
  spy.eavesdrops = true;
  ear.eavesdrops = true;
  drag(here, there);
  std::vector<std::string> interactionCalls;
  for (const Call& call : log) {
    if (call.what != "motion" && call.what != "wants") interactionCalls.push_back(call.text());
  }
  EXPECT_EQ(interactionCalls, (std::vector<std::string>{"ear:interaction DragMouse MouseButtonPress(100,100)",
                                                        "spy:started DragMouse MouseButtonPress(100,100)",
                                                        "ear:interaction DragMouse MouseMove(160,100)",
                                                        "spy:interaction DragMouse MouseMove(160,100)",
                                                        "ear:interaction DragMouse MouseButtonRelease(160,100)",
                                                        "spy:finished DragMouse MouseButtonRelease(160,100)"}));
}

TEST_F(DispatcherTest, EavesdroppersOnlyEverGetInteractionAndComeBeforeTheFocus) {
  RecordingClient tool(host.dispatcher(), "tool", log);
  RecordingClient ear(host.dispatcher(), "ear", log);
  ear.eavesdrops = true;
  EXPECT_TRUE(ear.isEavesdropping());
  EXPECT_FALSE(tool.isEavesdropping());
  click(here);
  std::vector<std::string> calls;
  for (const Call& call : log) {
    if (call.what != "motion" && call.what != "wants") calls.push_back(call.text());
  }
  EXPECT_EQ(calls, (std::vector<std::string>{"ear:interaction ClickMouse MouseButtonPress(100,100)",
                                             "tool:started ClickMouse MouseButtonPress(100,100)",
                                             "ear:interaction ClickMouse MouseButtonRelease(100,100)",
                                             "tool:finished ClickMouse MouseButtonRelease(100,100)"}));
}

TEST_F(DispatcherTest, IfNobodyAcceptsAStartEveryBatchGoesToNobodyEavesdroppersIncluded) {
  RecordingClient ear(host.dispatcher(), "ear", log);
  ear.eavesdrops = true;
  ear.wants = [](InteractionType, const Event&) { return false; };
  drag(here, there);
  for (const Call& call : log) EXPECT_TRUE(call.what == "motion" || call.what == "wants") << call.text();
  EXPECT_EQ(host.dispatcher().focus(), nullptr);
  EXPECT_EQ(host.parser().getState(), Parser::InteractionPending);
}

TEST_F(DispatcherTest, WithALockedFocusThatRefusesKeysTheKeysVanish) {
  RecordingClient locked(host.dispatcher(), "locked", log);
  RecordingClient other(host.dispatcher(), "other", log);
  locked.takesKeys = true;
  other.takesKeys = true;
  locked.wants = [](InteractionType type, const Event&) { return type != KeyboardInteraction; };
  locked.lockFocus();
  EXPECT_EQ(host.dispatcher().focus(), &locked);
  EXPECT_TRUE(host.dispatcher().isFocusLocked());
  host.dispatch(*keyPress(KeyA));
  host.dispatch(*keyRelease(KeyA));
  host.dispatch(*keyPress(KeyA, 0, true));
  EXPECT_EQ(texts(log), (std::vector<std::string>{"locked:wants Keyboard KeyPress(KeyA)",
                                                  "locked:wants Keyboard KeyRelease(KeyA)",
                                                  "locked:wants Keyboard KeyPress(KeyA)"}));
  EXPECT_TRUE(host.parser().activeKeys().empty());
}

TEST_F(DispatcherTest, WithoutALockKeysThatNoGestureTakesAreOfferedToAllClientsInOrder) {
  RecordingClient first(host.dispatcher(), "first", log);
  RecordingClient second(host.dispatcher(), "second", log);
  RecordingClient third(host.dispatcher(), "third", log);
  second.takesKeys = true;
  host.dispatch(*keyPress(KeyA));
  EXPECT_EQ(texts(log), (std::vector<std::string>{"first:key KeyPress(KeyA)", "second:key KeyPress(KeyA)"}));
  EXPECT_EQ(log[0].contextMode, 3);
}

TEST_F(DispatcherTest, TwoMovesInABatchWithAReleaseBetweenThemAreBothKept) {
  RecordingClient tool(host.dispatcher(), "tool", log);
  // A drag decided on a tick: the queue waits, then goes out as one batch.
  host.dispatch(*press(here, 0.0));
  host.dispatch(*press(there, 0.0, ButtonRight, 3));
  host.dispatch(*move(Point(101, 100), 0.0, 3));
  host.dispatch(*release(there, 0.0, ButtonRight, 1));
  host.dispatch(*move(Point(102, 100), 0.0, 1));
  host.advance(0.4);
  host.dispatch(*move(Point(103, 100), 0.4, 1));
  std::vector<std::string> progress;
  for (const Call& call : log) {
    if (call.what == "interaction") progress.push_back(call.event);
  }
  EXPECT_EQ(progress, (std::vector<std::string>{"MouseButtonPress(160,100)", "MouseMove(101,100)",
                                                "MouseButtonRelease(160,100)", "MouseMove(103,100)"}));
}

TEST_F(DispatcherTest, ARunOfMovesInABatchShrinksToItsLastMove) {
  RecordingClient tool(host.dispatcher(), "tool", log);
  host.dispatch(*press(here, 0.0));
  host.dispatch(*move(Point(101, 100), 0.0));
  host.dispatch(*move(Point(102, 100), 0.0));
  host.dispatch(*move(Point(103, 101), 0.0));
  host.advance(0.1);
  host.dispatch(*release(Point(103, 101), 0.1));
  std::vector<std::string> calls;
  for (const Call& call : log) {
    if (call.what != "motion" && call.what != "wants") calls.push_back(call.text());
  }
  EXPECT_EQ(calls, (std::vector<std::string>{"tool:started ClickMouse MouseButtonPress(100,100)",
                                             "tool:interaction ClickMouse MouseMove(103,101)",
                                             "tool:finished ClickMouse MouseButtonRelease(103,101)"}));
}

TEST_F(DispatcherTest, AKeyRepeatGoesToKeyStateWithoutEnteringTheParserEvenDuringAnInteraction) {
  RecordingClient tool(host.dispatcher(), "tool", log);
  tool.takesKeys = true;
  host.dispatch(*press(here, 0.0));
  host.dispatch(*move(there, 0.0));
  log.clear();
  DebugCapture capture;
  host.dispatch(*keyPress(KeyA, 0, true));
  EXPECT_EQ(texts(log), (std::vector<std::string>{"tool:key KeyPress(KeyA)"}));
  EXPECT_TRUE(host.parser().activeKeys().empty());
  EXPECT_EQ(capture.texts(), (std::vector<std::string>{"EventDispatcher: key to focus."}));
}

TEST_F(DispatcherTest, SigClientIsEmittedWithNullWhenNobodyTookAMotion) {
  RecordingClient tool(host.dispatcher(), "tool", log);
  std::vector<Client*> emitted;
  ruRTB::SignalClient connections;
  host.dispatcher().sigClient.addCallback([&](Client* client) { emitted.push_back(client); }, connections);
  DebugCapture capture;
  host.dispatch(*motion(here, 0.0));
  EXPECT_EQ(emitted, (std::vector<Client*>{nullptr}));
  // Nothing took it, so nothing is printed beyond the event itself.
  EXPECT_EQ(capture.texts().front(), "MouseEvent:");
  EXPECT_EQ(capture.texts().back(), "  pos: (100,100)\n");
  tool.takesMotion = true;
  host.dispatch(*motion(here, 0.0));
  EXPECT_EQ(emitted, (std::vector<Client*>{nullptr, &tool}));
  EXPECT_EQ(capture.texts().back(), "EventDispatcher: motion to client.");
}

TEST_F(DispatcherTest, PenHoverEntersTheParserAndEachOneOpensAPendingInteractionThatPenGesturesFailAtOnce) {
  host.parser().pushFrontGesture(new PenDownOnly);
  RecordingClient tool(host.dispatcher(), "tool", log);
  DebugCapture capture;
  host.dispatch(PenEvent(PenHover, here, 0.0, 0.0f, false));
  EXPECT_EQ(host.parser().getState(), Parser::InteractionIgnored);
  host.dispatch(PenEvent(PenHover, there, 0.0, 0.0f, false));
  int pendings = 0;
  for (const auto& text : capture.texts()) pendings += text == "EventParser: InteractionPending (1 events)";
  EXPECT_EQ(pendings, 2);
  EXPECT_TRUE(log.empty());
}

TEST_F(DispatcherTest, AKeyPressDuringARunningInteractionReachesTheFocusThroughInteractionNotKeyState) {
  RecordingClient tool(host.dispatcher(), "tool", log);
  tool.takesKeys = true;
  host.dispatch(*press(here, 0.0));
  host.dispatch(*move(there, 0.0));
  log.clear();
  host.dispatch(*keyPress(KeyS));
  EXPECT_EQ(texts(log), (std::vector<std::string>{"tool:interaction DragMouse KeyPress(KeyS)"}));
  EXPECT_TRUE(dynamic_cast<KeyEvent*>(log[0].clone.get()));
}

TEST_F(DispatcherTest, RemovingTheFocusClientDuringAnInteractionLeavesTheFocusPointingAtIt) {
  RecordingClient tool(host.dispatcher(), "tool", log);
  host.dispatch(*press(here, 0.0));
  host.dispatch(*move(there, 0.0));
  ASSERT_EQ(host.dispatcher().focus(), &tool);
  host.dispatcher().removeClient(&tool);
  EXPECT_TRUE(host.dispatcher().clients().empty());
  EXPECT_EQ(host.dispatcher().focus(), &tool);
  // The interaction still reaches it.
  host.dispatch(*release(there, 0.0));
  EXPECT_EQ(log.back().text(), "tool:finished DragMouse MouseButtonRelease(160,100)");
  EXPECT_EQ(host.dispatcher().focus(), nullptr);
}

TEST_F(DispatcherTest, ADestroyedClientLeavesTheListAndNeverStaysTheFocus) {
  auto tool = std::make_unique<RecordingClient>(host.dispatcher(), "tool", log);
  RecordingClient other(host.dispatcher(), "other", log);
  host.dispatch(*press(here, 0.0));
  host.dispatch(*move(there, 0.0));
  ASSERT_EQ(host.dispatcher().focus(), tool.get());
  tool.reset();
  EXPECT_EQ(host.dispatcher().focus(), nullptr);
  EXPECT_EQ(host.dispatcher().clients(), (ru::list<Client*>{&other}));
  host.dispatch(*release(there, 0.0));
  for (const Call& call : log) EXPECT_NE(call.client == "other" ? call.what : "", "finished");
}

TEST_F(DispatcherTest, MotionHoverKeysAndWheelGoToTheFocusAloneAndItsRefusalIsFinal) {
  RecordingClient first(host.dispatcher(), "first", log);
  RecordingClient second(host.dispatcher(), "second", log);
  second.takesMotion = second.takesHover = second.takesKeys = second.takesWheel = true;
  first.lockFocus();
  DebugCapture capture;
  host.dispatch(*motion(here, 0.0));
  host.dispatch(*hover(here, 0.0));
  host.dispatch(*wheel(here, 2));
  host.dispatch(*keyPress(KeyA, 0, true));
  EXPECT_EQ(texts(log), (std::vector<std::string>{"first:motion MouseMotion(100,100)", "first:hover MouseHover(100,100)",
                                                  "first:wheel Wheel(2)", "first:wants Keyboard KeyPress(KeyA)",
                                                  "first:key KeyPress(KeyA)"}));
  std::vector<std::string> routes;
  for (const auto& line : capture.lines()) {
    if (line.find("EventDispatcher") != std::string::npos) routes.push_back(line);
  }
  EXPECT_EQ(routes, (std::vector<std::string>{
                        "`anonymous-namespace'::DispatcherImpl::dispatchMotion|EventDispatcher: motion to focus.",
                        "`anonymous-namespace'::DispatcherImpl::dispatchHover|EventDispatcher: hover to focus.",
                        "`anonymous-namespace'::DispatcherImpl::dispatchWheel|EventDispatcher: wheel to focus.",
                        "`anonymous-namespace'::DispatcherImpl::dispatchKey|EventDispatcher: key to focus."}));
}

TEST_F(DispatcherTest, WithoutAFocusPlainEventsGoToTheFirstClientThatTakesThem) {
  RecordingClient first(host.dispatcher(), "first", log);
  RecordingClient second(host.dispatcher(), "second", log);
  RecordingClient third(host.dispatcher(), "third", log);
  second.takesHover = second.takesWheel = true;
  std::vector<Client*> emitted;
  ruRTB::SignalClient connections;
  host.dispatcher().sigClient.addCallback([&](Client* client) { emitted.push_back(client); }, connections);
  DebugCapture capture;
  host.dispatch(*hover(here, 0.0));
  host.dispatch(*wheel(here, -1));
  EXPECT_EQ(texts(log), (std::vector<std::string>{"first:hover MouseHover(100,100)", "second:hover MouseHover(100,100)",
                                                  "first:wheel Wheel(-1)", "second:wheel Wheel(-1)"}));
  EXPECT_EQ(emitted, (std::vector<Client*>{&second, &second}));
  std::vector<std::string> routes;
  for (const auto& text : capture.texts()) {
    if (text.find("EventDispatcher") != std::string::npos) routes.push_back(text);
  }
  // "wheelto" is the text as printed.
  EXPECT_EQ(routes, (std::vector<std::string>{"EventDispatcher: hover to client.", "EventDispatcher: wheelto client."}));
}

TEST_F(DispatcherTest, EachDeliveryRunsInsideAContextOfItsMode) {
  RecordingClient tool(host.dispatcher(), "tool", log);
  tool.takesKeys = true;
  host.dispatch(*press(here, 0.0));
  host.dispatch(*move(there, 0.0));
  host.dispatch(*release(there, 0.0));
  host.dispatch(*hover(here, 0.0));
  host.dispatch(*wheel(here, 1));
  host.dispatch(*keyPress(KeyA, 0, true));
  std::vector<std::string> modes;
  for (const Call& call : log) modes.push_back(call.what + "=" + std::to_string(call.contextMode));
  EXPECT_EQ(modes, (std::vector<std::string>{"motion=4", "wants=-1", "started=0", "interaction=1", "finished=2",
                                             "motion=4", "hover=6", "wheel=3", "key=3"}));
}

TEST_F(DispatcherTest, SigClientFollowsEveryEventOfABatchWithTheFocus) {
  RecordingClient tool(host.dispatcher(), "tool", log);
  std::vector<Client*> emitted;
  ruRTB::SignalClient connections;
  host.dispatcher().sigClient.addCallback([&](Client* client) { emitted.push_back(client); }, connections);
  drag(here, there);
  // motion (nobody), start, progress, finish, motion (nobody)
  EXPECT_EQ(emitted, (std::vector<Client*>{nullptr, &tool, &tool, &tool, nullptr}));
}

TEST_F(DispatcherTest, ALockedFocusKeepsInteractionsWithoutBeingAskedUntilUnlocked) {
  RecordingClient first(host.dispatcher(), "first", log);
  RecordingClient locked(host.dispatcher(), "locked", log);
  locked.lockFocus();
  click(here);
  EXPECT_EQ(host.dispatcher().focus(), &locked);
  for (const Call& call : log) EXPECT_NE(call.what, "wants") << call.text();
  locked.unlockFocus(false);
  EXPECT_EQ(host.dispatcher().focus(), &locked);
  EXPECT_FALSE(host.dispatcher().isFocusLocked());
  log.clear();
  click(here);
  EXPECT_EQ(host.dispatcher().focus(), nullptr);
  EXPECT_EQ(log[1].text(), "first:wants ClickMouse MouseButtonPress(100,100)");
  locked.lockFocus();
  locked.unlockFocus(true);
  EXPECT_EQ(host.dispatcher().focus(), nullptr);
}

TEST_F(DispatcherTest, ClientsRegisterAtTheFrontOrBackAndPushGesturesThroughTheParser) {
  RecordingClient back(host.dispatcher(), "back", log);
  RecordingClient front(host.dispatcher(), "front", log, false, true);
  EXPECT_EQ(host.dispatcher().clients(), (ru::list<Client*>{&front, &back}));
  EXPECT_FALSE(front.isMultiTouchEnabled());
  EXPECT_EQ(front.dispatcher(), &host.dispatcher());
  ru::Reference<Gesture> a(new KeyClick({KeyA})), b(new KeyClick({KeyB}));
  const auto before = host.parser().gestures();
  front.pushFrontGestures({a, b});
  auto now = host.parser().gestures();
  ASSERT_EQ(now.size(), before.size() + 2);
  EXPECT_EQ(now.front(), a);
  EXPECT_EQ(*std::next(now.begin()), b);
  front.removeGestures({a, b});
  EXPECT_EQ(host.parser().gestures(), before);
  front.pushFrontGesture(b);
  EXPECT_EQ(host.parser().gestures().front(), b);
  front.removeGesture(b);
  EXPECT_EQ(host.parser().gestures(), before);
}

TEST_F(DispatcherTest, DispatchModifierKeyOnlyEmitsItsSignal) {
  RecordingClient tool(host.dispatcher(), "tool", log);
  tool.takesKeys = true;
  std::vector<std::string> seen;
  ruRTB::SignalClient connections;
  host.dispatcher().sigModifierKey.addCallback([&](const KeyEvent& key) { seen.push_back(describe(key)); }, connections);
  host.dispatcher().dispatchModifierKey(*keyPress(KeyA, ModifierShift));
  EXPECT_EQ(seen, (std::vector<std::string>{"KeyPress(KeyA)"}));
  EXPECT_TRUE(log.empty());
  EXPECT_TRUE(host.parser().activeKeys().empty());
}

TEST_F(DispatcherTest, CancelInteractionPrintsAndClosesAPenInteraction) {
  host.parser().pushFrontGesture(new Immediate(DragPenInteraction, PenDown));
  RecordingClient tool(host.dispatcher(), "tool", log, true);
  host.dispatch(PenEvent(PenDown, here, 0.0, 0.5f, false));
  host.dispatch(PenEvent(PenMove, there, 0.0, 0.5f, false));
  DebugCapture capture;
  host.dispatcher().cancelInteraction();
  EXPECT_EQ(capture.lines().front(),
            "`anonymous-namespace'::DispatcherImpl::cancelInteraction|EventDispatcher: cancelInteraction");
  EXPECT_EQ(log.back().text(), "tool:finished DragPen PenUp(160,100)");
  EXPECT_EQ(host.dispatcher().focus(), nullptr);
}

TEST_F(DispatcherTest, TouchAndPenInteractionsSendNoMotionBeforeTheStartOrAfterTheFinish) {
  host.parser().pushFrontGesture(new Immediate(DragPenInteraction, PenDown));
  RecordingClient tool(host.dispatcher(), "tool", log, true);
  host.dispatch(PenEvent(PenDown, here, 0.0, 0.5f, false));
  host.dispatch(PenEvent(PenUp, here, 0.0, 0.5f, false));
  EXPECT_EQ(texts(log), (std::vector<std::string>{"tool:wants DragPen PenDown(100,100)", "tool:started DragPen PenDown(100,100)",
                                                  "tool:finished DragPen PenUp(100,100)"}));
}

TEST_F(DispatcherTest, TheTextInputIsStoredForTheHost) {
  ru::Reference<TextInput> input(new TextInput);
  EXPECT_EQ(host.dispatcher().getTextInput(), nullptr);
  host.dispatcher().setTextInput(input.get());
  EXPECT_EQ(host.dispatcher().getTextInput(), input.get());
}

TEST(Dispatcher, InstallGesturesMsgCarriesTheParserToTheHostsListenersAndThereIsNoDefaultSet) {
  testhost::TestHost fresh;
  EXPECT_FALSE(fresh.parser().haveGestures());
  fresh.broadcaster().addHandler<InstallGesturesMsg>(voSupport::Priority(1, 0), [](InstallGesturesMsg& message) {
    message.parser().pushBackGesture(new DragMouse);
  });
  fresh.broadcaster().addHandler<InstallGesturesMsg>(voSupport::Priority(0, 0), [](InstallGesturesMsg& message) {
    message.parser().pushBackGesture(new ClickMouse);
  });
  fresh.installGestures();
  ASSERT_EQ(fresh.parser().gestures().size(), 2u);
  EXPECT_EQ(fresh.parser().gestures().front()->getInteraction(), ClickMouseInteraction);
  EXPECT_EQ(fresh.parser().gestures().back()->getInteraction(), DragMouseInteraction);
}

TEST(Dispatcher, AClientOutlivingItsDispatcherIsDetachedAndItsForwardingCallsDoNothing) {
  testhost::TestHost host;
  std::vector<Call> log;
  auto dispatcher = std::make_unique<Dispatcher>();
  RecordingClient client(*dispatcher, "client", log);
  EXPECT_EQ(client.dispatcher(), dispatcher.get());
  dispatcher.reset();
  EXPECT_EQ(client.dispatcher(), nullptr);
  client.lockFocus();
  client.pushFrontGesture(new ClickMouse);
  client.pushFrontGestures({ru::Reference<Gesture>(new DragMouse)});
  client.removeGestures({});
  client.unlockFocus(true);
  EXPECT_TRUE(log.empty());
}
