// Scripts of input dispatched with time advanced in between, each checked against everything a
// client sees. The gestures are installed as a host installs them, through InstallGesturesMsg.
#include "datamodelgui/events/dispatcher.h"

#include "tests/datamodelgui/events/debug_capture.h"
#include "tests/datamodelgui/events/recording_client.h"
#include "tests/testhost/testhost.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

using namespace voEV;
using namespace eventstest;

namespace {

const Point here(100, 100);
const Point there(160, 100);
const Point further(200, 120);

class InteractionScript : public ::testing::Test {
protected:
  void SetUp() override {
    host.broadcaster().addHandler<InstallGesturesMsg>(voSupport::Priority(1, 0), [](InstallGesturesMsg& message) {
      message.parser().pushBackGesture(new ClickMouse);
      message.parser().pushBackGesture(new DragMouse);
      message.parser().pushBackGesture(new PressMouse);
      message.parser().pushBackGesture(new KeyClick({KeyC, KeyEscape}));
    });
    host.installGestures();
  }

  void send(const ru::Reference<MouseEvent>& event) { host.dispatch(*event); }
  void send(const ru::Reference<KeyEvent>& event) { host.dispatch(*event); }
  double t() const { return host.now(); }

  testhost::TestHost host;
  std::vector<Call> log;
  RecordingClient tool{host.dispatcher(), "tool", log};
};

}  // namespace

TEST_F(InteractionScript, OneClickStepByStep) {
  DebugCapture capture;
  {
    // The host's event goes as soon as dispatch returns: the parser keeps a clone.
    auto event = press(here, t());
    host.dispatch(*event);
    EXPECT_EQ(host.parser().queuedEvents().size(), 1u);
    EXPECT_NE(host.parser().queuedEvents().front().get(), event.get());
  }
  // The parser started its stopwatch and a 0.05-second tick timer; all mouse gestures are possible.
  ASSERT_NE(host.parser().timer(), nullptr);
  EXPECT_EQ(host.parser().timer()->getTimeout(), 0.05);
  EXPECT_EQ(host.timers().armedCount(), 1);
  for (const auto& gesture : host.parser().gestures()) {
    if (gesture->getInteraction() != KeyboardInteraction) {
      EXPECT_EQ(gesture->getCachedState(), Gesture::Possible);
    }
  }
  EXPECT_TRUE(log.empty());
  // The release at the same place within 0.3 seconds.
  host.advance(0.2);
  capture.clear();
  host.dispatch(*release(here, t()));
  std::vector<std::string> verdicts;
  for (const auto& text : capture.texts()) {
    if (text.rfind("EventParser: voEV::", 0) == 0) verdicts.push_back(text);
  }
  EXPECT_EQ(verdicts, (std::vector<std::string>{"EventParser: voEV::ClickMouse is recognized",
                                                "EventParser: voEV::DragMouse is failed",
                                                "EventParser: voEV::PressMouse is failed",
                                                "EventParser: voEV::KeyClick is failed"}));
  // The press is the start batch and the release the finish batch, offered to the client.
  EXPECT_EQ(texts(log), (std::vector<std::string>{"tool:motion MouseMotion(100,100)",
                                                  "tool:wants ClickMouse MouseButtonPress(100,100)",
                                                  "tool:started ClickMouse MouseButtonPress(100,100)",
                                                  "tool:finished ClickMouse MouseButtonRelease(100,100)",
                                                  "tool:motion MouseMotion(100,100)"}));
  EXPECT_EQ(host.dispatcher().focus(), nullptr);
  EXPECT_EQ(host.parser().timer(), nullptr);
  EXPECT_EQ(host.timers().liveCount(), 0);
  EXPECT_EQ(host.parser().getState(), Parser::InteractionPending);
}

TEST_F(InteractionScript, AClickPrintsTheParsersAndDispatchersTextsInOrder) {
  DebugCapture capture;
  send(press(here, t()));
  host.advance(0.08);  // one tick
  send(release(here, t()));
  char focusText[64];
  std::snprintf(focusText, sizeof focusText, "EventDispatcher: setFocus: client(%p)", static_cast<void*>(&tool));
  const std::string parser = "voEV::Parser::";
  const std::string dispatcher = "`anonymous-namespace'::DispatcherImpl::";
  EXPECT_EQ(capture.lines(),
            (std::vector<std::string>{
                "|MouseEvent:", "|  type: MouseButtonPress", "|  button: ButtonLeft", "|  buttons: ButtonLeft",
                "|  modifiers: ", "|  clickCount: 1", "|  pos: (100,100)\n",
                parser + "add|EventParser: InteractionPending (1 events)",
                parser + "evaluateEvents|EventParser: voEV::ClickMouse is possible",
                parser + "evaluateEvents|EventParser: voEV::DragMouse is possible",
                parser + "evaluateEvents|EventParser: voEV::PressMouse is possible",
                parser + "evaluateEvents|EventParser: voEV::KeyClick is failed",
                // the tick
                parser + "evaluateEvents|EventParser: voEV::ClickMouse is possible",
                parser + "evaluateEvents|EventParser: voEV::DragMouse is possible",
                parser + "evaluateEvents|EventParser: voEV::PressMouse is possible",
                parser + "evaluateEvents|EventParser: voEV::KeyClick is failed",
                // the release
                "|MouseEvent:", "|  type: MouseButtonRelease", "|  button: ButtonLeft", "|  buttons: ",
                "|  modifiers: ", "|  clickCount: 1", "|  pos: (100,100)\n",
                parser + "add|EventParser: InteractionPending (2 events)",
                parser + "evaluateEvents|EventParser: voEV::ClickMouse is recognized",
                parser + "evaluateEvents|EventParser: voEV::DragMouse is failed",
                parser + "evaluateEvents|EventParser: voEV::PressMouse is failed",
                parser + "evaluateEvents|EventParser: voEV::KeyClick is failed",
                parser + "flushEvents|EventParser: interaction started",
                dispatcher + "onDispatchParsed|EventDispatcher: interaction started: ClickMouse",
                dispatcher + "setFocus|EventDispatcher::setFocus: type(1)", dispatcher + "setFocus|" + focusText,
                parser + "flushEvents|EventParser: interaction in progress",
                parser + "flushEvents|EventParser: interaction finished",
                dispatcher + "onDispatchParsed|EventDispatcher: interaction finished: ClickMouse",
                parser + "reset|EventParser: reset"}));
  for (const auto& record : capture.records) EXPECT_EQ(record.code, 40);
}

TEST_F(InteractionScript, PressHeldPastClickTimeIsAPressReportedAtTheRelease) {
  send(press(here, t()));
  host.advance(0.45);
  EXPECT_TRUE(log.empty());
  send(release(here, t()));
  EXPECT_EQ(texts(log), (std::vector<std::string>{"tool:motion MouseMotion(100,100)",
                                                  "tool:wants PressMouse MouseButtonPress(100,100)",
                                                  "tool:started PressMouse MouseButtonPress(100,100)",
                                                  "tool:finished PressMouse MouseButtonRelease(100,100)",
                                                  "tool:motion MouseMotion(100,100)"}));
}

TEST_F(InteractionScript, DragStartingAfterATenthDeliversTheLastMoveOfTheQueueAndEveryLaterOne) {
  send(press(here, t()));
  host.advance(0.05);
  send(move(Point(102, 101), t()));  // within the threshold: still undecided
  host.advance(0.05);
  send(move(there, t()));
  host.advance(0.05);
  send(move(further, t()));
  send(release(further, t()));
  EXPECT_EQ(texts(log), (std::vector<std::string>{
                            "tool:motion MouseMotion(100,100)", "tool:wants DragMouse MouseButtonPress(100,100)",
                            "tool:started DragMouse MouseButtonPress(100,100)",
                            "tool:interaction DragMouse MouseMove(160,100)",
                            "tool:interaction DragMouse MouseMove(200,120)",
                            "tool:finished DragMouse MouseButtonRelease(200,120)", "tool:motion MouseMotion(200,120)"}));
}

TEST_F(InteractionScript, PressHeldStillForLongThenMovedIsIgnoredUntilTheButtonIsReleased) {
  send(press(here, t()));
  host.advance(1.2);
  send(move(there, t()));
  send(move(further, t()));
  host.advance(0.5);
  send(release(further, t()));
  EXPECT_TRUE(log.empty());
  EXPECT_EQ(host.parser().getState(), Parser::InteractionIgnored);
  send(press(further, t()));
  send(release(further, t()));
  EXPECT_EQ(log.size(), 5u);
  EXPECT_EQ(log[2].text(), "tool:started ClickMouse MouseButtonPress(200,120)");
}

TEST_F(InteractionScript, ASecondButtonDuringADragTravelsInTheDragWhichEndsWithTheLastRelease) {
  send(press(here, t()));
  send(move(there, t()));
  send(press(there, t(), ButtonRight, ButtonLeft | ButtonRight));
  send(move(further, t(), ButtonLeft | ButtonRight));
  send(release(further, t(), ButtonRight, ButtonLeft));
  send(release(further, t(), ButtonLeft, 0));
  EXPECT_EQ(texts(log), (std::vector<std::string>{
                            "tool:motion MouseMotion(100,100)", "tool:wants DragMouse MouseButtonPress(100,100)",
                            "tool:started DragMouse MouseButtonPress(100,100)",
                            "tool:interaction DragMouse MouseMove(160,100)",
                            "tool:interaction DragMouse MouseButtonPress(160,100)",
                            "tool:interaction DragMouse MouseMove(200,120)",
                            "tool:interaction DragMouse MouseButtonRelease(200,120)",
                            "tool:finished DragMouse MouseButtonRelease(200,120)", "tool:motion MouseMotion(200,120)"}));
}

TEST_F(InteractionScript, AKeyHeldThroughADragsReleaseFinishesTheDragWithTheKeyRelease) {
  tool.takesKeys = true;
  send(press(here, t()));
  send(move(there, t()));
  send(keyPress(KeyS, ModifierShift));
  send(release(there, t()));
  send(move(further, t(), 0));
  send(keyRelease(KeyS, ModifierShift));
  EXPECT_EQ(texts(log), (std::vector<std::string>{
                            "tool:motion MouseMotion(100,100)", "tool:wants DragMouse MouseButtonPress(100,100)",
                            "tool:started DragMouse MouseButtonPress(100,100)",
                            "tool:interaction DragMouse MouseMove(160,100)",
                            "tool:interaction DragMouse KeyPress(KeyS)",
                            "tool:interaction DragMouse MouseButtonRelease(160,100)",
                            "tool:interaction DragMouse MouseMove(200,120)",
                            "tool:finished DragMouse KeyRelease(KeyS)"}));
  EXPECT_EQ(host.dispatcher().focus(), nullptr);
}

TEST_F(InteractionScript, KeyRepeatsGoToKeyStateWhetherTheKeyIsAnInteractionOrNot) {
  tool.takesKeys = true;
  send(keyPress(KeyA));
  send(keyPress(KeyA, 0, true));
  send(keyPress(KeyA, 0, true));
  send(keyRelease(KeyA));
  send(keyPress(KeyC));
  send(keyPress(KeyC, 0, true));
  send(keyRelease(KeyC));
  EXPECT_EQ(texts(log), (std::vector<std::string>{
                            "tool:key KeyPress(KeyA)", "tool:key KeyPress(KeyA)", "tool:key KeyPress(KeyA)",
                            "tool:key KeyRelease(KeyA)", "tool:wants Keyboard KeyPress(KeyC)",
                            "tool:started Keyboard KeyPress(KeyC)", "tool:key KeyPress(KeyC)",
                            "tool:finished Keyboard KeyRelease(KeyC)"}));
}

TEST_F(InteractionScript, CtrlAloneKeysStartAKeyboardInteractionThatHasNoFinish) {
  tool.takesKeys = true;
  DebugCapture capture;
  send(keyPress(KeyC, ModifierCtrl));
  // The key is not tracked: the start batch is all there is, and the parser is idle again.
  EXPECT_EQ(texts(log), (std::vector<std::string>{"tool:wants Keyboard KeyPress(KeyC)",
                                                  "tool:started Keyboard KeyPress(KeyC)"}));
  EXPECT_EQ(host.parser().getState(), Parser::InteractionPending);
  // With no finish batch the focus is not cleared; the release fails the gestures and goes to it.
  EXPECT_EQ(host.dispatcher().focus(), &tool);
  send(keyRelease(KeyC, ModifierCtrl));
  EXPECT_EQ(log.back().text(), "tool:key KeyRelease(KeyC)");
  EXPECT_EQ(capture.texts().back(), "EventDispatcher: key to focus.");
  // A Ctrl key that no gesture takes goes to keyState.
  send(keyPress(KeyX, ModifierCtrl));
  EXPECT_EQ(log.back().text(), "tool:key KeyPress(KeyX)");
  // The next interaction asks the clients again.
  log.clear();
  send(press(here, t()));
  send(release(here, t()));
  EXPECT_EQ(log[1].text(), "tool:wants ClickMouse MouseButtonPress(100,100)");
  EXPECT_EQ(host.dispatcher().focus(), nullptr);
}

TEST_F(InteractionScript, CancelInteractionDuringADragChangesNothingForMouseInput) {
  send(press(here, t()));
  send(move(there, t()));
  host.dispatcher().cancelInteraction();
  send(move(further, t()));
  send(release(further, t()));
  EXPECT_EQ(texts(log), (std::vector<std::string>{
                            "tool:motion MouseMotion(100,100)", "tool:wants DragMouse MouseButtonPress(100,100)",
                            "tool:started DragMouse MouseButtonPress(100,100)",
                            "tool:interaction DragMouse MouseMove(160,100)",
                            "tool:interaction DragMouse MouseMove(200,120)",
                            "tool:finished DragMouse MouseButtonRelease(200,120)", "tool:motion MouseMotion(200,120)"}));
}

TEST_F(InteractionScript, CancelGesturesDuringADragStartsItAgainWithTheNextEvent) {
  send(press(here, t()));
  send(move(there, t()));
  host.parser().cancelGestures();
  send(move(further, t()));
  send(release(further, t()));
  EXPECT_EQ(texts(log), (std::vector<std::string>{
                            "tool:motion MouseMotion(100,100)", "tool:wants DragMouse MouseButtonPress(100,100)",
                            "tool:started DragMouse MouseButtonPress(100,100)",
                            "tool:interaction DragMouse MouseMove(160,100)", "tool:motion MouseMotion(200,120)",
                            "tool:wants DragMouse MouseMove(200,120)", "tool:started DragMouse MouseMove(200,120)",
                            "tool:finished DragMouse MouseButtonRelease(200,120)", "tool:motion MouseMotion(200,120)"}));
  EXPECT_EQ(host.parser().getState(), Parser::InteractionPending);
}

TEST_F(InteractionScript, CancelGesturesWhilePendingPassesEverythingUnderNoInteractionWhileTheTimerRuns) {
  send(press(here, t()));
  host.parser().cancelGestures();
  host.advance(0.1);
  send(move(there, t()));
  host.advance(0.1);
  send(release(there, t()));
  host.advance(1.0);
  EXPECT_EQ(texts(log), (std::vector<std::string>{
                            "tool:motion MouseMotion(100,100)", "tool:wants Undecided MouseButtonPress(100,100)",
                            "tool:started Undecided MouseButtonPress(100,100)",
                            "tool:interaction Undecided MouseMove(160,100)",
                            "tool:interaction Undecided MouseButtonRelease(160,100)"}));
  // The tick timer lives on, so this interaction does not finish through its events.
  EXPECT_NE(host.parser().timer(), nullptr);
  EXPECT_EQ(host.dispatcher().focus(), &tool);
}

TEST_F(InteractionScript, AFocusLockedByAClientThatRefusesKeysSwallowsKeysAndKeepsMouseInteractions) {
  RecordingClient other(host.dispatcher(), "other", log);
  other.takesKeys = true;
  tool.wants = [](InteractionType type, const Event&) { return type != KeyboardInteraction; };
  tool.lockFocus();
  send(keyPress(KeyC));
  send(keyRelease(KeyC));
  send(keyPress(KeyA));
  send(press(here, t()));
  send(release(here, t()));
  EXPECT_EQ(texts(log), (std::vector<std::string>{
                            "tool:wants Keyboard KeyPress(KeyC)", "tool:wants Keyboard KeyRelease(KeyC)",
                            "tool:wants Keyboard KeyPress(KeyA)", "tool:motion MouseMotion(100,100)",
                            "tool:started ClickMouse MouseButtonPress(100,100)",
                            "tool:finished ClickMouse MouseButtonRelease(100,100)", "tool:motion MouseMotion(100,100)"}));
  EXPECT_EQ(host.dispatcher().focus(), &tool);
  EXPECT_TRUE(host.parser().activeKeys().empty());
}
