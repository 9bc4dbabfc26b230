#include "datamodelgui/events/parser.h"

#include "datamodelgui/events/touch.h"
#include "tests/datamodelgui/events/debug_capture.h"
#include "tests/datamodelgui/events/recording_client.h"
#include "tests/testhost/testhost.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

using namespace voEV;
using namespace eventstest;

namespace {

// Takes each batch the parser announces, as the dispatcher does, and writes it down as
// "<state>: <event> <event> ...".
class BatchRecorder : public ruRTB::SignalClient {
public:
  explicit BatchRecorder(Parser& parser) : parser_(parser) {
    parser.sigEventsReady.connect(this, &BatchRecorder::onReady, this);
    parser.sigInputBegan.addCallback([this](const Event& event) { began.push_back(describe(event)); }, this);
  }

  std::vector<std::string> batches;
  std::vector<std::string> began;

private:
  void onReady() {
    EventList batch;
    parser_.stealEvents(batch);
    std::string text = Parser::stateName(parser_.getState());
    text += ":";
    for (const auto& event : batch) text += " " + describe(*event);
    batches.push_back(text);
  }
  Parser& parser_;
};

// A pen tap of a host: the pen went down and came up in place.
class PenTap : public Gesture {
public:
  PenTap() : Gesture(TapPenInteraction, 0.2) {}

private:
  State onGetState(const EventList& events, double) const override {
    auto* first = dynamic_cast<const PenEvent*>(events.front().get());
    if (!first || first->getType() != PenDown) return Failed;
    for (std::size_t i = 1; i < events.size(); ++i) {
      auto* pen = dynamic_cast<const PenEvent*>(events[i].get());
      if (!pen) return Failed;
      if (pen->getType() == PenMove && !samePlace(pen->getPosition(), first->getPosition())) return Failed;
      if (pen->getType() == PenUp) return Recognized;
    }
    return Possible;
  }
};

// Every finger came down and went up again: a tap of a host's touch gesture.
class TouchTap : public Gesture {
public:
  TouchTap() : Gesture(TapTouchInteraction, 0.2) {}

private:
  State onGetState(const EventList& events, double) const override {
    auto* first = dynamic_cast<const TouchEvent*>(events.front().get());
    if (!first || !first->isInteractionStart()) return Failed;
    for (std::size_t i = 1; i < events.size(); ++i) {
      auto* touch = dynamic_cast<const TouchEvent*>(events[i].get());
      if (touch && touch->isInteractionEnd()) return Recognized;
    }
    return Possible;
  }
};

void installMouseGestures(Parser& parser) {
  parser.pushBackGesture(new ClickMouse);
  parser.pushBackGesture(new DragMouse);
  parser.pushBackGesture(new PressMouse);
}

const Point here(100, 100);
const Point there(160, 100);

}  // namespace

TEST(Parser, StartsPendingWithNoGestureAndNoTimer) {
  testhost::TestHost host;
  Parser parser;
  EXPECT_EQ(parser.getState(), Parser::InteractionPending);
  EXPECT_EQ(parser.getInteraction(), UndecidedInteraction);
  EXPECT_FALSE(parser.haveGestures());
  EXPECT_EQ(parser.timer(), nullptr);
  EXPECT_TRUE(parser.activeKeys().empty());
  EXPECT_EQ(Parser::tickInterval, 0.05);
}

TEST(Parser, WithAnEmptyGestureListEveryEventFailsAndTheNextEvaluatesAfresh) {
  testhost::TestHost host;
  Parser parser;
  BatchRecorder recorder(parser);
  DebugCapture capture;
  EXPECT_FALSE(parser.add(*press(here, 0.0)));
  EXPECT_EQ(parser.getState(), Parser::InteractionIgnored);
  EXPECT_TRUE(parser.queuedEvents().empty());
  EXPECT_EQ(parser.timer(), nullptr);
  // Input is tracked (the button is down): dropped without evaluation.
  capture.clear();
  EXPECT_FALSE(parser.add(*move(there, 0.1)));
  EXPECT_TRUE(capture.records.empty());
  EXPECT_FALSE(parser.add(*release(there, 0.2)));
  // Nothing tracked any more: the next event is evaluated afresh, and fails again.
  EXPECT_FALSE(parser.add(*keyPress(KeyA)));
  EXPECT_EQ(capture.texts(), (std::vector<std::string>{"EventParser: InteractionPending (1 events)", "EventParser: reset"}));
  EXPECT_EQ(parser.getState(), Parser::InteractionIgnored);
  EXPECT_TRUE(recorder.batches.empty());
}

TEST(Parser, ADragRecognisedByAnEventDestroysTheTimerSoTheReleaseIsTheFinishBatchAlone) {
  testhost::TestHost host;
  Parser parser;
  installMouseGestures(parser);
  BatchRecorder recorder(parser);
  EXPECT_TRUE(parser.add(*press(here, 0.0)));
  EXPECT_NE(parser.timer(), nullptr);
  EXPECT_EQ(host.timers().liveCount(), 1);
  host.advance(0.1);
  EXPECT_TRUE(parser.add(*move(there, 0.1)));
  EXPECT_EQ(parser.timer(), nullptr);
  EXPECT_EQ(host.timers().liveCount(), 0);
  EXPECT_EQ(parser.getState(), Parser::InteractionInProgress);
  EXPECT_EQ(parser.getInteraction(), DragMouseInteraction);
  EXPECT_TRUE(parser.add(*move(Point(170, 100), 0.2)));
  EXPECT_TRUE(parser.add(*release(Point(170, 100), 0.3)));
  EXPECT_EQ(recorder.batches,
            (std::vector<std::string>{"InteractionStarted: MouseButtonPress(100,100)",
                                      "InteractionInProgress: MouseMove(160,100)",
                                      "InteractionInProgress: MouseMove(170,100)",
                                      "InteractionFinished: MouseButtonRelease(170,100)"}));
  EXPECT_EQ(parser.getState(), Parser::InteractionPending);
  EXPECT_EQ(parser.getInteraction(), UndecidedInteraction);
}

TEST(Parser, AnInteractionRecognisedOnATickKeepsItsTimerAndEachTickStartsItAgain) {
  testhost::TestHost host;
  Parser parser;
  installMouseGestures(parser);
  BatchRecorder recorder(parser);
  DebugCapture capture;
  parser.add(*press(here, 0.0));
  host.advance(0.1);
  // A second button pressed away: a drag, while the click is still possible.
  EXPECT_TRUE(parser.add(*press(there, 0.1, ButtonRight, ButtonLeft | ButtonRight)));
  EXPECT_EQ(parser.getState(), Parser::InteractionPending);
  host.advance(0.3);  // the click times out on a tick
  EXPECT_EQ(parser.getState(), Parser::InteractionStarted);
  EXPECT_EQ(parser.getInteraction(), DragMouseInteraction);
  EXPECT_NE(parser.timer(), nullptr);
  const auto texts = capture.texts();
  EXPECT_NE(std::find(texts.begin(), texts.end(), "EventParser: recognized on timer"), texts.end());
  EXPECT_TRUE(recorder.batches.empty());
  // The next event releases the queue.
  EXPECT_TRUE(parser.add(*move(there, 0.4, 3)));
  EXPECT_EQ(recorder.batches, (std::vector<std::string>{"InteractionStarted: MouseButtonPress(100,100)",
                                                        "InteractionInProgress: MouseButtonPress(160,100) MouseMove(160,100)"}));
  // A tick writes the start again, so the next event is a new start batch.
  host.advance(0.05);
  EXPECT_EQ(parser.getState(), Parser::InteractionStarted);
  recorder.batches.clear();
  EXPECT_TRUE(parser.add(*move(Point(170, 100), 0.5, 3)));
  EXPECT_EQ(recorder.batches, (std::vector<std::string>{"InteractionStarted: MouseMove(170,100)"}));
  // With the timer alive nothing finishes: both releases travel as progress.
  recorder.batches.clear();
  parser.add(*release(there, 0.5, ButtonRight, ButtonLeft));
  parser.add(*release(there, 0.5, ButtonLeft, 0));
  EXPECT_EQ(recorder.batches, (std::vector<std::string>{"InteractionInProgress: MouseButtonRelease(160,100)",
                                                        "InteractionInProgress: MouseButtonRelease(160,100)"}));
  EXPECT_NE(parser.timer(), nullptr);
}

TEST(Parser, AfterRecognitionOnATickTheQueuedEventsWaitForTheNextAddHoweverLong) {
  testhost::TestHost host;
  Parser parser;
  installMouseGestures(parser);
  BatchRecorder recorder(parser);
  parser.add(*press(here, 0.0));
  parser.add(*press(there, 0.0, ButtonRight, 3));
  host.advance(0.4);
  ASSERT_EQ(parser.getState(), Parser::InteractionStarted);
  host.advance(60.0);
  EXPECT_TRUE(recorder.batches.empty());
  EXPECT_EQ(parser.queuedEvents().size(), 2u);
  parser.add(*move(there, 60.4, 3));
  EXPECT_EQ(recorder.batches.size(), 2u);
}

TEST(Parser, ASecondMouseButtonDuringAnInteractionDoesNotEmitInputBegan) {
  testhost::TestHost host;
  Parser parser;
  installMouseGestures(parser);
  BatchRecorder recorder(parser);
  parser.add(*press(here, 0.0));
  parser.add(*move(there, 0.0));
  ASSERT_EQ(parser.getState(), Parser::InteractionInProgress);
  EXPECT_TRUE(parser.add(*press(there, 0.0, ButtonRight, 3)));
  EXPECT_EQ(recorder.began, (std::vector<std::string>{"MouseButtonPress(100,100)"}));
  EXPECT_EQ(parser.getState(), Parser::InteractionInProgress);
  EXPECT_EQ(parser.buttonMask(), 3);
  EXPECT_EQ(recorder.batches.back(), "InteractionInProgress: MouseButtonPress(160,100)");
}

TEST(Parser, AMoveWithNothingTrackedOpensItsOwnPendingInteractionThatMouseGesturesFailAtOnce) {
  testhost::TestHost host;
  Parser parser;
  installMouseGestures(parser);
  DebugCapture capture;
  EXPECT_FALSE(parser.add(*move(here, 0.0, 0)));
  EXPECT_EQ(parser.getState(), Parser::InteractionIgnored);
  EXPECT_EQ(capture.texts()[0], "EventParser: InteractionPending (1 events)");
  // Nothing is tracked, so the next event starts afresh: a click.
  BatchRecorder recorder(parser);
  EXPECT_TRUE(parser.add(*press(here, 0.0)));
  EXPECT_TRUE(parser.add(*release(here, 0.1)));
  EXPECT_EQ(recorder.batches, (std::vector<std::string>{"InteractionStarted: MouseButtonPress(100,100)",
                                                        "InteractionFinished: MouseButtonRelease(100,100)"}));
}

TEST(Parser, CancelInteractionWhileStartedDoesNothingButClearTheLastEvent) {
  testhost::TestHost host;
  Parser parser;
  parser.pushBackGesture(new PenTap);
  parser.pushBackGesture(new DragMouse);
  BatchRecorder recorder(parser);
  parser.add(PenEvent(PenDown, here, 0.0, 0.5f, false));
  parser.cancelGestures();
  ASSERT_EQ(parser.getState(), Parser::InteractionStarted);
  parser.cancelInteraction();
  EXPECT_EQ(parser.getState(), Parser::InteractionStarted);
  EXPECT_TRUE(recorder.batches.empty());
  EXPECT_EQ(parser.queuedEvents().size(), 1u);
  // In progress, the newest event (a pen move) closes with a pen up.
  parser.add(PenEvent(PenMove, here, 0.1, 0.5f, false));
  ASSERT_EQ(parser.getState(), Parser::InteractionInProgress);
  recorder.batches.clear();
  parser.cancelInteraction();  // closes with a PenUp: the pen's last event was the move
  EXPECT_EQ(recorder.batches, (std::vector<std::string>{"InteractionInProgress: PenUp(100,100)"}));
}

TEST(Parser, CancelInteractionDuringAMouseDragOnlyClearsTheLastEventAndTheDragGoesOn) {
  testhost::TestHost host;
  Parser parser;
  installMouseGestures(parser);
  BatchRecorder recorder(parser);
  parser.add(*press(here, 0.0));
  parser.add(*move(there, 0.1));
  recorder.batches.clear();
  parser.cancelInteraction();
  EXPECT_TRUE(recorder.batches.empty());
  EXPECT_EQ(parser.getState(), Parser::InteractionInProgress);
  parser.add(*move(Point(180, 100), 0.2));
  parser.add(*release(Point(180, 100), 0.3));
  EXPECT_EQ(recorder.batches, (std::vector<std::string>{"InteractionInProgress: MouseMove(180,100)",
                                                        "InteractionFinished: MouseButtonRelease(180,100)"}));
}

TEST(Parser, CancelInteractionOfAPendingPenInteractionFeedsTheClosingEventToTheGestures) {
  testhost::TestHost host;
  Parser parser;
  parser.pushBackGesture(new PenTap);
  BatchRecorder recorder(parser);
  EXPECT_TRUE(parser.add(PenEvent(PenDown, here, 0.0, 0.5f, false)));
  EXPECT_EQ(parser.getState(), Parser::InteractionPending);
  parser.cancelInteraction();
  // The resting pen is recognised as a tap by its closing event.
  EXPECT_EQ(recorder.batches, (std::vector<std::string>{"InteractionStarted: PenDown(100,100)",
                                                        "InteractionFinished: PenUp(100,100)"}));
  EXPECT_EQ(parser.getState(), Parser::InteractionPending);
}

TEST(Parser, CancelInteractionOfAPendingTouchInteractionFeedsTheClosingEventToTheGestures) {
  testhost::TestHost host;
  Parser parser;
  parser.pushBackGesture(new TouchTap);
  BatchRecorder recorder(parser);
  TouchMap touches;
  touches[1] = new Touch(1, here, here, 1, TouchBegan, 0.0);
  EXPECT_TRUE(parser.add(TouchEvent(touches)));
  parser.cancelInteraction();
  EXPECT_EQ(recorder.batches, (std::vector<std::string>{"InteractionStarted: ScrenTouch", "InteractionFinished: ScrenTouch"}));
}

TEST(Parser, AKeyHeldThroughADragsReleaseKeepsItGoingUntilTheKeyReleaseFinishesIt) {
  testhost::TestHost host;
  Parser parser;
  installMouseGestures(parser);
  BatchRecorder recorder(parser);
  parser.add(*press(here, 0.0));
  parser.add(*move(there, 0.1));
  EXPECT_TRUE(parser.add(*keyPress(KeyS)));
  EXPECT_TRUE(parser.add(*release(there, 0.2)));
  EXPECT_EQ(parser.getState(), Parser::InteractionInProgress);
  EXPECT_TRUE(parser.add(*keyRelease(KeyS)));
  EXPECT_EQ(recorder.batches,
            (std::vector<std::string>{"InteractionStarted: MouseButtonPress(100,100)",
                                      "InteractionInProgress: MouseMove(160,100)", "InteractionInProgress: KeyPress(KeyS)",
                                      "InteractionInProgress: MouseButtonRelease(160,100)",
                                      "InteractionFinished: KeyRelease(KeyS)"}));
}

TEST(Parser, ACtrlAloneKeyRecognisedByKeyClickDeliversItsStartBatchAndStillResets) {
  testhost::TestHost host;
  Parser parser;
  parser.pushBackGesture(new KeyClick({KeyC}));
  BatchRecorder recorder(parser);
  DebugCapture capture;
  EXPECT_TRUE(parser.add(*keyPress(KeyC, ModifierCtrl)));
  // The key is not tracked, so the interaction is over at once; there is no event for a finish.
  EXPECT_TRUE(parser.activeKeys().empty());
  EXPECT_EQ(recorder.batches, (std::vector<std::string>{"InteractionStarted: KeyPress(KeyC)"}));
  EXPECT_EQ(parser.getState(), Parser::InteractionPending);
  EXPECT_EQ(parser.timer(), nullptr);
  EXPECT_EQ(capture.texts(), (std::vector<std::string>{"EventParser: InteractionPending (1 events)",
                                                       "EventParser: voEV::KeyClick is recognized",
                                                       "EventParser: interaction started",
                                                       "EventParser: interaction in progress", "EventParser: reset"}));
  // Its release opens and fails an interaction of its own, harmlessly.
  EXPECT_FALSE(parser.add(*keyRelease(KeyC, ModifierCtrl)));
  EXPECT_EQ(parser.getState(), Parser::InteractionIgnored);
  // A key with another modifier is tracked and finishes on its release.
  recorder.batches.clear();
  EXPECT_TRUE(parser.add(*keyPress(KeyC, ModifierCtrl | ModifierShift)));
  EXPECT_EQ(parser.activeKeys().count(KeyC), 1u);
  EXPECT_TRUE(parser.add(*keyRelease(KeyC)));
  EXPECT_EQ(recorder.batches, (std::vector<std::string>{"InteractionStarted: KeyPress(KeyC)",
                                                        "InteractionFinished: KeyRelease(KeyC)"}));
}

TEST(Parser, ATickWithAnEmptyQueueWhileGesturesAreUndecidedEvaluatesNothing) {
  testhost::TestHost host;
  Parser parser;
  installMouseGestures(parser);
  BatchRecorder recorder(parser);
  parser.add(*press(here, 0.0));
  parser.cancelGestures();
  parser.add(*move(here, 0.01));  // flushes the queue under the cancelled gestures
  ASSERT_TRUE(parser.queuedEvents().empty());
  ASSERT_NE(parser.timer(), nullptr);
  DebugCapture capture;
  host.advance(0.05);
  EXPECT_TRUE(capture.records.empty());
  EXPECT_EQ(parser.getState(), Parser::InteractionInProgress);
  // The tick armed a new timer all the same.
  EXPECT_NE(parser.timer(), nullptr);
  EXPECT_EQ(host.timers().liveCount(), 1);
}

TEST(Parser, CancelGesturesLetsEveryEventThroughUnderTheCurrentInteractionUntilAReset) {
  testhost::TestHost host;
  Parser parser;
  installMouseGestures(parser);
  BatchRecorder recorder(parser);
  parser.add(*press(here, 0.0));
  parser.cancelGestures();
  EXPECT_EQ(parser.getState(), Parser::InteractionStarted);
  EXPECT_EQ(parser.getInteraction(), UndecidedInteraction);
  DebugCapture capture;
  EXPECT_TRUE(parser.add(*move(Point(500, 500), 0.01)));
  EXPECT_EQ(capture.texts(), (std::vector<std::string>{"EventParser: interaction started",
                                                       "EventParser: interaction in progress"}));
  EXPECT_EQ(recorder.batches, (std::vector<std::string>{"InteractionStarted: MouseButtonPress(100,100)",
                                                        "InteractionInProgress: MouseMove(500,500)"}));
}

TEST(Parser, TicksComeEveryFiftyMillisecondsAndFixTimeLimitedVerdicts) {
  testhost::TestHost host;
  Parser parser;
  ru::Reference<Gesture> click(new ClickMouse), drag(new DragMouse);
  parser.pushBackGesture(click);
  parser.pushBackGesture(drag);
  parser.add(*press(here, 0.0));
  const int fired = host.timers().firedCount();
  host.advance(0.25);
  EXPECT_EQ(host.timers().firedCount() - fired, 5);
  EXPECT_EQ(click->getCachedState(), Gesture::Possible);
  host.advance(0.1);
  EXPECT_EQ(click->getCachedState(), Gesture::Failed);
  EXPECT_EQ(drag->getCachedState(), Gesture::Possible);
  host.advance(0.7);
  EXPECT_EQ(drag->getCachedState(), Gesture::Failed);
  // A failure on a tick is not acted on: the parser waits for the next event.
  EXPECT_EQ(parser.getState(), Parser::InteractionPending);
  EXPECT_FALSE(parser.add(*move(there, 1.1)));
  EXPECT_EQ(parser.getState(), Parser::InteractionIgnored);
}

TEST(Parser, AResetKeepsTheTrackedInputAndOnlyTheInputClearsIt) {
  testhost::TestHost host;
  Parser parser;
  parser.add(*press(here, 0.0, ButtonMiddle));
  parser.add(*keyPress(KeyA));
  ASSERT_EQ(parser.getState(), Parser::InteractionIgnored);
  EXPECT_EQ(parser.buttonMask(), ButtonMiddle);
  EXPECT_EQ(parser.activeKeys().count(KeyA), 1u);
  parser.add(*release(here, 0.1, ButtonMiddle));
  parser.add(*keyRelease(KeyA));
  EXPECT_EQ(parser.buttonMask(), 0);
  EXPECT_TRUE(parser.activeKeys().empty());
}

TEST(Parser, KeyRepeatsAndCtrlAloneKeysAreNotTracked) {
  testhost::TestHost host;
  Parser parser;
  parser.add(*keyPress(KeyA, 0, true));
  parser.add(*keyPress(KeyB, ModifierCtrl));
  EXPECT_TRUE(parser.activeKeys().empty());
  parser.add(*keyPress(KeyD, ModifierAlt | ModifierCtrl));
  EXPECT_EQ(parser.activeKeys().count(KeyD), 1u);
}

TEST(Parser, InputBeganIsEmittedForTheFirstButtonATouchStartAndPenDown) {
  testhost::TestHost host;
  Parser parser;
  BatchRecorder recorder(parser);
  parser.add(*press(here, 0.0));
  parser.add(*press(here, 0.0, ButtonRight, 3));
  parser.add(*release(here, 0.0, ButtonRight, 1));
  parser.add(*release(here, 0.0, ButtonLeft, 0));
  parser.add(*keyPress(KeyA));
  parser.add(*keyRelease(KeyA));
  parser.add(PenEvent(PenDown, here, 0.0, 0.5f, false));
  parser.add(PenEvent(PenUp, here, 0.0, 0.5f, false));
  TouchMap touches;
  touches[1] = new Touch(1, here, here, 1, TouchBegan, 0.0);
  parser.add(TouchEvent(touches));
  EXPECT_EQ(recorder.began, (std::vector<std::string>{"MouseButtonPress(100,100)", "PenDown(100,100)", "ScrenTouch"}));
}

TEST(Parser, GestureListOperationsKeepOrderAndPrintTheirTexts) {
  testhost::TestHost host;
  Parser parser;
  DebugCapture capture;
  ru::Reference<Gesture> a(new ClickMouse), b(new DragMouse), c(new PressMouse);
  parser.pushBackGesture(a);
  parser.pushFrontGesture(b);
  parser.pushBackGesture(c);
  EXPECT_TRUE(parser.haveGestures());
  EXPECT_EQ(parser.gestures(), (ru::list<ru::Reference<Gesture>>{b, a, c}));
  parser.removeGesture(a);
  parser.removeGesture(ru::Reference<Gesture>(new ClickMouse));  // not in the list: no error
  EXPECT_EQ(parser.gestures(), (ru::list<ru::Reference<Gesture>>{b, c}));
  EXPECT_EQ(capture.lines(),
            (std::vector<std::string>{"voEV::Parser::pushBackGesture|EventParser: pushing client gesture",
                                      "voEV::Parser::pushFrontGesture|EventParser: pushing client gesture",
                                      "voEV::Parser::pushBackGesture|EventParser: pushing client gesture",
                                      "voEV::Parser::removeGesture|EventParser: removing client gesture",
                                      "voEV::Parser::removeGesture|EventParser: removing client gesture"}));
}

TEST(Parser, RemovingOneOfTwoEntriesOfTheSameGestureErasesOnlyTheFirst) {
  testhost::TestHost host;
  Parser parser;
  ru::Reference<Gesture> a(new ClickMouse), b(new DragMouse);
  parser.pushBackGesture(a);
  parser.pushBackGesture(b);
  parser.pushBackGesture(a);
  parser.removeGesture(a);
  EXPECT_EQ(parser.gestures(), (ru::list<ru::Reference<Gesture>>{b, a}));
}

TEST(Parser, EvaluationAsksEveryGestureInOrderAndPrintsEachVerdict) {
  testhost::TestHost host;
  Parser parser;
  installMouseGestures(parser);
  DebugCapture capture;
  parser.add(*press(here, 0.0));
  parser.add(*move(there, 0.0));
  EXPECT_EQ(capture.lines(),
            (std::vector<std::string>{
                "voEV::Parser::add|EventParser: InteractionPending (1 events)",
                "voEV::Parser::evaluateEvents|EventParser: voEV::ClickMouse is possible",
                "voEV::Parser::evaluateEvents|EventParser: voEV::DragMouse is possible",
                "voEV::Parser::evaluateEvents|EventParser: voEV::PressMouse is possible",
                "voEV::Parser::add|EventParser: InteractionPending (2 events)",
                "voEV::Parser::evaluateEvents|EventParser: voEV::ClickMouse is failed",
                "voEV::Parser::evaluateEvents|EventParser: voEV::DragMouse is recognized",
                "voEV::Parser::evaluateEvents|EventParser: voEV::PressMouse is failed",
                "voEV::Parser::flushEvents|EventParser: interaction started",
                "voEV::Parser::flushEvents|EventParser: interaction in progress"}));
}

TEST(Parser, DestroyingTheParserResetsItAndItsTimerDiesFirst) {
  testhost::TestHost host;
  std::optional<Parser> parser;
  parser.emplace();
  installMouseGestures(*parser);
  parser->add(*press(here, 0.0));
  EXPECT_EQ(host.timers().liveCount(), 1);
  const auto gestures = parser->gestures();
  host.advance(0.4);  // the click fails on a tick
  EXPECT_EQ(gestures.front()->getCachedState(), Gesture::Failed);
  {
    DebugCapture capture;
    parser.reset();
    EXPECT_EQ(capture.texts(), (std::vector<std::string>{"EventParser: reset"}));
  }
  EXPECT_EQ(host.timers().liveCount(), 0);
  for (const auto& gesture : gestures) EXPECT_EQ(gesture->getCachedState(), Gesture::Possible);
  // Nothing fires after the parser has gone.
  const int fired = host.timers().firedCount();
  host.advance(1.0);
  EXPECT_EQ(host.timers().firedCount(), fired);
}

TEST(Parser, TheTimerIsMadeThroughTheTimersOfTheCallInfoWithTheDomainOfTheCall) {
  testhost::TestHost host;
  Parser parser;
  installMouseGestures(parser);
  parser.add(*press(here, 0.0));
  ASSERT_NE(parser.timer(), nullptr);
  EXPECT_EQ(parser.timer()->getTimeout(), 0.05);
  EXPECT_EQ(parser.timer()->getDomain(), &host.domain());
  EXPECT_EQ(parser.timer()->getElapsed(), 0.0);
}

TEST(Parser, AKeyReleasedWhileIgnoredWithOtherInputTrackedReturnsFalseAndTheDispatcherOffersItAsUnconsumed) {
  testhost::TestHost host;
  installMouseGestures(host.parser());
  std::vector<Call> log;
  RecordingClient tool(host.dispatcher(), "tool", log);
  // The key fails every mouse gesture; the button pressed meanwhile is dropped.
  host.dispatch(*keyPress(KeyA));
  host.dispatch(*press(here, 0.0));
  ASSERT_EQ(host.parser().getState(), Parser::InteractionIgnored);
  EXPECT_FALSE(host.parser().add(*keyRelease(KeyB)));
  log.clear();
  host.dispatch(*keyRelease(KeyA));
  EXPECT_EQ(host.parser().buttonMask(), ButtonLeft);
  EXPECT_EQ(host.parser().getState(), Parser::InteractionIgnored);
  EXPECT_EQ(texts(log), (std::vector<std::string>{"tool:key KeyRelease(KeyA)"}));
}
