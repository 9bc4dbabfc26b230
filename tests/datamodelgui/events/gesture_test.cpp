#include "datamodelgui/events/gesture.h"

#include "platform/support/settings.h"
#include "tests/datamodelgui/events/debug_capture.h"
#include "tests/datamodelgui/events/recording_client.h"
#include "tests/testhost/testhost.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

using namespace voEV;
using namespace eventstest;
using eventstest::DebugCapture;

namespace {

EventList queue(std::initializer_list<ru::Reference<Event>> events) { return EventList(events); }

// A gesture of a host that finds where its interaction began: the index of the first key event.
class FromFirstKey : public Gesture {
public:
  FromFirstKey() : Gesture(KeyboardInteraction, 0.5) {}

private:
  State onGetState(const EventList& events, double) const override {
    for (std::size_t i = 0; i < events.size(); ++i) {
      if (dynamic_cast<const KeyEvent*>(events[i].get())) {
        setStartIndex(static_cast<int>(i));
        return Recognized;
      }
    }
    return Possible;
  }
};

// Restores the moving threshold after a test that changes it.
struct ThresholdGuard {
  double saved = voSupport::getMovingGestureThreshold();
  ~ThresholdGuard() { voSupport::setMovingGestureThreshold(saved); }
};

}  // namespace

TEST(GestureVerdict, OnceFailedALaterEventThatWouldSatisfyItChangesNothingUntilResetState) {
  ClickMouse click;
  const Point at(100, 100);
  // A move away fails the click ...
  EXPECT_EQ(click.getState(queue({press(at, 0), move(Point(150, 100), 0.05)}), 0.05), Gesture::Failed);
  // ... and a queue that is a perfect click now gets the stored verdict.
  const EventList perfect = queue({press(at, 0), release(at, 0.1)});
  EXPECT_EQ(click.getState(perfect, 0.1), Gesture::Failed);
  click.resetState();
  EXPECT_EQ(click.getCachedState(), Gesture::Possible);
  EXPECT_EQ(click.getState(perfect, 0.1), Gesture::Recognized);
}

TEST(GestureVerdict, AnEmptyQueueOrANullEntryIsNothingToJudgeAndLeavesTheVerdictPossible) {
  ClickMouse click;
  DragMouse drag;
  PressMouse pressGesture;
  KeyClick keys(ru::set<KeyCode>{});
  for (Gesture* gesture : std::initializer_list<Gesture*>{&click, &drag, &pressGesture, &keys}) {
    EXPECT_EQ(gesture->getState(EventList(), 0.0), Gesture::Possible);
    EXPECT_EQ(gesture->getState(queue({nullptr}), 0.0), Gesture::Possible);
    EXPECT_EQ(gesture->getState(queue({press(Point(1, 1), 0), nullptr}), 0.0), Gesture::Possible);
    EXPECT_EQ(gesture->getCachedState(), Gesture::Possible);
  }
  // A real queue is judged afterwards as usual.
  EXPECT_EQ(click.getState(queue({press(Point(1, 1), 0), release(Point(1, 1), 0.1)}), 0.1), Gesture::Recognized);
}

TEST(GestureVerdict, ResetStateDoesNotClearStartIndex) {
  FromFirstKey gesture;
  EXPECT_EQ(gesture.startIndex(), 0);
  EXPECT_EQ(gesture.getState(queue({press(Point(), 0), keyPress(KeyA)}), 0.0), Gesture::Recognized);
  EXPECT_EQ(gesture.startIndex(), 1);
  gesture.resetState();
  EXPECT_EQ(gesture.startIndex(), 1);
  // The gesture sets it again in its own onGetState.
  EXPECT_EQ(gesture.getState(queue({keyPress(KeyB)}), 0.0), Gesture::Recognized);
  EXPECT_EQ(gesture.startIndex(), 0);
}

TEST(GestureVerdict, ACopyMadeWhileRecognisedIsRecognisedToo) {
  ClickMouse click(0.4);
  ASSERT_EQ(click.getState(queue({press(Point(), 0), release(Point(), 0.1)}), 0.1), Gesture::Recognized);
  ClickMouse copy(click);
  EXPECT_EQ(copy.getCachedState(), Gesture::Recognized);
  EXPECT_EQ(copy.getRecognitionInterval(), 0.4);
  EXPECT_EQ(copy.getInteraction(), ClickMouseInteraction);
  // Even a queue that is no click gets the copied verdict.
  EXPECT_EQ(copy.getState(queue({keyPress(KeyA)}), 5.0), Gesture::Recognized);
  FromFirstKey keyed;
  keyed.getState(queue({press(Point(), 0), press(Point(), 0), keyPress(KeyA)}), 0.0);
  FromFirstKey keyedCopy(keyed);
  EXPECT_EQ(keyedCopy.startIndex(), 2);
}

TEST(GestureVerdict, TheDefaultIntervalsAndInteractionsAreThoseOfTheTable) {
  EXPECT_EQ(ClickMouse().getRecognitionInterval(), 0.3);
  EXPECT_EQ(ClickMouse().getInteraction(), ClickMouseInteraction);
  EXPECT_EQ(DragMouse().getRecognitionInterval(), 1.0);
  EXPECT_EQ(DragMouse().getInteraction(), DragMouseInteraction);
  EXPECT_EQ(PressMouse().getRecognitionInterval(), 0.3);
  EXPECT_EQ(PressMouse().getInteraction(), PressMouseInteraction);
  EXPECT_EQ(KeyClick({KeyA}).getRecognitionInterval(), 0.0);
  EXPECT_EQ(KeyClick({KeyA}).getInteraction(), KeyboardInteraction);
  EXPECT_EQ(std::string(Gesture::stateName(Gesture::Possible)), "possible");
  EXPECT_EQ(std::string(Gesture::stateName(Gesture::Recognized)), "recognized");
  EXPECT_EQ(std::string(Gesture::stateName(Gesture::Failed)), "failed");
}

TEST(GestureVerdict, AGestureForAnotherKindOfInputFailsAtOnceOnTheFirstEvent) {
  EXPECT_EQ(ClickMouse().getState(queue({keyPress(KeyA)}), 0.0), Gesture::Failed);
  EXPECT_EQ(DragMouse().getState(queue({keyPress(KeyA)}), 0.0), Gesture::Failed);
  EXPECT_EQ(PressMouse().getState(queue({move(Point(), 0.0)}), 0.0), Gesture::Failed);
  EXPECT_EQ(KeyClick({KeyA}).getState(queue({press(Point(), 0.0)}), 0.0), Gesture::Failed);
}

TEST(MouseInteractionDescriptor, SendTriggeringEventKeepsItsOwnCloneThatOutlivesTheCallers) {
  struct Descriptor : MouseInteractionDescriptor {
    std::vector<std::string> told;
    void onTriggeringEvent(InteractionType interaction, const MouseEvent& event) override {
      told.push_back(asString(interaction).str() + " " + describe(event));
    }
  };
  Descriptor descriptor;
  EXPECT_FALSE(descriptor.hasTriggeringEvent());
  EXPECT_EQ(descriptor.triggeringInteraction(), UndecidedInteraction);
  const MouseEvent* callers = nullptr;
  {
    auto event = press(Point(3, 4), 1.0);
    callers = event.get();
    descriptor.sendTriggeringEvent(DragMouseInteraction, *event);
  }
  ASSERT_TRUE(descriptor.hasTriggeringEvent());
  EXPECT_NE(&descriptor.triggeringEvent(), callers);
  EXPECT_EQ(descriptor.triggeringEvent().getPosition(), Point(3, 4));
  EXPECT_EQ(descriptor.triggeringInteraction(), DragMouseInteraction);
  EXPECT_EQ(descriptor.told, (std::vector<std::string>{"DragMouse MouseButtonPress(3,4)"}));
  Descriptor copy(descriptor);
  EXPECT_EQ(&copy.triggeringEvent(), &descriptor.triggeringEvent());
}

// ---------------------------------------------------------------------------------------------
// The mouse and key gestures one by one

TEST(ClickMouse, AReleaseOfAnotherButtonOrFarAwayIsPassedOver) {
  const Point at(10, 10);
  EXPECT_EQ(ClickMouse().getState(queue({press(at, 0), release(at, 0.1, ButtonRight, 1)}), 0.1), Gesture::Possible);
  EXPECT_EQ(ClickMouse().getState(queue({press(at, 0), release(Point(90, 10), 0.1)}), 0.1), Gesture::Possible);
  EXPECT_EQ(ClickMouse().getState(queue({press(at, 0), release(Point(90, 10), 0.1), release(at, 0.1)}), 0.1),
            Gesture::Recognized);
}

TEST(ClickMouse, TimeIsTestedFirstSoAHeldButtonFailsOnATick) {
  EXPECT_EQ(ClickMouse().getState(queue({press(Point(), 0)}), 0.31), Gesture::Failed);
  EXPECT_EQ(ClickMouse().getState(queue({keyPress(KeyA)}), 0.31), Gesture::Failed);
}

TEST(DragMouse, ASecondButtonPressedAwayCountsAsADrag) {
  EXPECT_EQ(DragMouse().getState(queue({press(Point(), 0), press(Point(50, 0), 0.1, ButtonRight, 3)}), 0.1),
            Gesture::Recognized);
  EXPECT_EQ(DragMouse().getState(queue({press(Point(), 0), press(Point(1, 0), 0.1, ButtonRight, 3)}), 0.1),
            Gesture::Possible);
}

TEST(DragMouse, AnyReleaseEndsTheScanInPlaceFailedAwayRecognized) {
  EXPECT_EQ(DragMouse().getState(queue({press(Point(), 0), release(Point(), 0.1, ButtonRight, 1)}), 0.1),
            Gesture::Failed);
  EXPECT_EQ(DragMouse().getState(queue({press(Point(), 0), release(Point(40, 0), 0.1)}), 0.1), Gesture::Recognized);
  // The scan ended at the release: a move away after it comes too late.
  EXPECT_EQ(DragMouse().getState(queue({press(Point(), 0), release(Point(), 0.1), move(Point(80, 0), 0.2)}), 0.2),
            Gesture::Failed);
}

TEST(PressMouse, AnyOtherEventThanMovesInPlaceAndTheReleaseFails) {
  EXPECT_EQ(PressMouse().getState(queue({press(Point(), 0), keyPress(KeyA)}), 0.5), Gesture::Failed);
  EXPECT_EQ(PressMouse().getState(queue({press(Point(), 0), press(Point(), 0.1, ButtonRight, 3)}), 0.5),
            Gesture::Failed);
  EXPECT_EQ(PressMouse().getState(queue({press(Point(), 0), move(Point(2, 2), 0.1)}), 5.0), Gesture::Possible);
  EXPECT_EQ(PressMouse().getState(queue({press(Point(), 0), move(Point(2, 2), 0.1), release(Point(), 0.5)}), 0.5),
            Gesture::Recognized);
}

TEST(KeyClick, AnEmptySetFailsOnEveryKey) {
  for (int key = 0; key < 60; ++key) {
    KeyClick gesture({});
    EXPECT_EQ(gesture.getState(queue({keyPress(KeyCode(key))}), 0.0), Gesture::Failed) << key;
  }
}

TEST(KeyClick, AKeyReleaseAsFirstEventFails) {
  KeyClick gesture({KeyA});
  EXPECT_EQ(gesture.getState(queue({keyRelease(KeyA)}), 0.0), Gesture::Failed);
}

TEST(KeyClick, OnlyTheFirstEventCountsAndTimeIsIgnored) {
  KeyClick gesture({KeyA, KeyB});
  EXPECT_EQ(gesture.getState(queue({keyPress(KeyB), press(Point(), 0)}), 100.0), Gesture::Recognized);
  KeyClick other({KeyA});
  EXPECT_EQ(other.getState(queue({keyPress(KeyC), keyPress(KeyA)}), 0.0), Gesture::Failed);
  ru::set<KeyCode> keys = {KeyA};
  KeyClick own(keys);
  keys.insert(KeyC);
  EXPECT_EQ(own.keys().size(), 1u);
}

TEST(GestureThreshold, AMoveExactlyAtTheThresholdIsDecidedByEquivalentAsTheSamePlace) {
  ThresholdGuard guard;
  voSupport::setMovingGestureThreshold(5.0);
  const Point at(100, 100);
  // 3-4-5: exactly the threshold away is still the same place ...
  EXPECT_TRUE(samePlace(at, Point(103, 104)));
  EXPECT_EQ(ClickMouse().getState(queue({press(at, 0), move(Point(103, 104), 0.1)}), 0.1), Gesture::Possible);
  EXPECT_EQ(DragMouse().getState(queue({press(at, 0), move(Point(103, 104), 0.1)}), 0.1), Gesture::Possible);
  EXPECT_EQ(PressMouse().getState(queue({press(at, 0), move(Point(103, 104), 0.1)}), 0.1), Gesture::Possible);
  // ... one pixel further is not.
  EXPECT_FALSE(samePlace(at, Point(106, 100)));
  EXPECT_EQ(DragMouse().getState(queue({press(at, 0), move(Point(106, 100), 0.1)}), 0.1), Gesture::Recognized);
}

TEST(GestureThreshold, TheThresholdIsReadAtEveryComparison) {
  ThresholdGuard guard;
  const EventList events = queue({press(Point(), 0), move(Point(8, 0), 0.1)});
  voSupport::setMovingGestureThreshold(10.0);
  EXPECT_EQ(DragMouse().getState(events, 0.1), Gesture::Possible);
  voSupport::setMovingGestureThreshold(7.0);
  EXPECT_EQ(DragMouse().getState(events, 0.1), Gesture::Recognized);
}

TEST(GestureIntervals, ElapsedExactlyEqualToAnIntervalDoesNotExceedIt) {
  const Point at(50, 50);
  const EventList held = queue({press(at, 0)});
  const EventList released = queue({press(at, 0), release(at, 0.3)});
  EXPECT_EQ(ClickMouse().getState(held, 0.3), Gesture::Possible);
  EXPECT_EQ(ClickMouse().getState(released, 0.3), Gesture::Recognized);
  EXPECT_EQ(PressMouse().getState(released, 0.3), Gesture::Failed);
  EXPECT_EQ(DragMouse().getState(held, 1.0), Gesture::Possible);
  // Just past each interval the verdicts turn.
  EXPECT_EQ(ClickMouse().getState(held, 0.30001), Gesture::Failed);
  EXPECT_EQ(PressMouse().getState(released, 0.30001), Gesture::Recognized);
  EXPECT_EQ(DragMouse().getState(held, 1.00001), Gesture::Failed);
}

// ---------------------------------------------------------------------------------------------
// The four scenarios with the default intervals and all three mouse gestures, through the parser
// and the dispatcher to one client.

namespace {

using Script = std::function<void(testhost::TestHost&)>;

struct MouseScenario {
  const char* name;
  Script decisive;  // input up to the decision
  Script after;     // input after it
  const char* click;
  const char* drag;
  const char* press;
  std::vector<std::string> calls;  // what the one client sees, in order
};

const Point here(200, 200);
const Point away(230, 200);

// The last verdict printed for the gesture whose class name ends in `name`.
std::string lastVerdict(const DebugCapture& capture, const std::string& name) {
  std::string verdict;
  const std::string key = name + " is ";
  for (const auto& record : capture.records) {
    const auto at = record.text.find(key);
    if (record.text.rfind("EventParser: ", 0) == 0 && at != std::string::npos) verdict = record.text.substr(at + key.size());
  }
  return verdict;
}

class DefaultIntervalScenario : public ::testing::TestWithParam<MouseScenario> {};

}  // namespace

TEST_P(DefaultIntervalScenario, GivesTheVerdictsAndTheDeliveryOfTheTable) {
  testhost::TestHost host;
  host.parser().pushBackGesture(new ClickMouse);
  host.parser().pushBackGesture(new DragMouse);
  host.parser().pushBackGesture(new PressMouse);
  std::vector<Call> log;
  RecordingClient client(host.dispatcher(), "tool", log);
  {
    DebugCapture capture;
    GetParam().decisive(host);
    EXPECT_EQ(lastVerdict(capture, "ClickMouse"), GetParam().click);
    EXPECT_EQ(lastVerdict(capture, "DragMouse"), GetParam().drag);
    EXPECT_EQ(lastVerdict(capture, "PressMouse"), GetParam().press);
  }
  GetParam().after(host);
  EXPECT_EQ(texts(log), GetParam().calls);
  EXPECT_EQ(host.dispatcher().focus(), nullptr);
  EXPECT_EQ(host.parser().getState(), Parser::InteractionPending);
}

INSTANTIATE_TEST_SUITE_P(
    MouseGestures, DefaultIntervalScenario,
    ::testing::Values(
        MouseScenario{"PressAndReleaseInPlaceWithinClickTimeIsAClickStartingAtTheRelease",
                      [](testhost::TestHost& host) {
                        host.dispatch(*press(here, host.now()));
                        host.advance(0.2);
                        host.dispatch(*release(here, host.now()));
                      },
                      [](testhost::TestHost&) {}, "recognized", "failed", "failed",
                      {"tool:motion MouseMotion(200,200)", "tool:wants ClickMouse MouseButtonPress(200,200)",
                       "tool:started ClickMouse MouseButtonPress(200,200)",
                       "tool:finished ClickMouse MouseButtonRelease(200,200)", "tool:motion MouseMotion(200,200)"}},
        MouseScenario{"PressHeldHalfASecondInPlaceThenReleasedIsAPress",
                      [](testhost::TestHost& host) {
                        host.dispatch(*press(here, host.now()));
                        host.advance(0.5);
                        host.dispatch(*release(here, host.now()));
                      },
                      [](testhost::TestHost&) {}, "failed", "failed", "recognized",
                      {"tool:motion MouseMotion(200,200)", "tool:wants PressMouse MouseButtonPress(200,200)",
                       "tool:started PressMouse MouseButtonPress(200,200)",
                       "tool:finished PressMouse MouseButtonRelease(200,200)", "tool:motion MouseMotion(200,200)"}},
        MouseScenario{"PressThenMoveBeyondTheThresholdAfterATenthIsADragStartingAtThatMove",
                      [](testhost::TestHost& host) {
                        host.dispatch(*press(here, host.now()));
                        host.advance(0.1);
                        host.dispatch(*move(away, host.now()));
                      },
                      [](testhost::TestHost& host) {
                        host.advance(0.1);
                        host.dispatch(*release(away, host.now()));
                      },
                      "failed", "recognized", "failed",
                      {"tool:motion MouseMotion(200,200)", "tool:wants DragMouse MouseButtonPress(200,200)",
                       "tool:started DragMouse MouseButtonPress(200,200)", "tool:interaction DragMouse MouseMove(230,200)",
                       "tool:finished DragMouse MouseButtonRelease(230,200)", "tool:motion MouseMotion(230,200)"}},
        MouseScenario{"PressHeldStillLongerThanADragThenMovedFailsAllAndIgnoresInputUntilTheRelease",
                      [](testhost::TestHost& host) {
                        host.dispatch(*press(here, host.now()));
                        host.advance(1.2);
                        host.dispatch(*move(away, host.now()));
                      },
                      [](testhost::TestHost& host) {
                        EXPECT_EQ(host.parser().getState(), Parser::InteractionIgnored);
                        host.dispatch(*move(here, host.now()));
                        host.dispatch(*release(here, host.now()));
                        EXPECT_EQ(host.parser().getState(), Parser::InteractionIgnored);
                        // The next press opens a new interaction: a click.
                        host.dispatch(*press(here, host.now()));
                        host.dispatch(*release(here, host.now()));
                      },
                      "failed", "failed", "failed",
                      {"tool:motion MouseMotion(200,200)", "tool:wants ClickMouse MouseButtonPress(200,200)",
                       "tool:started ClickMouse MouseButtonPress(200,200)",
                       "tool:finished ClickMouse MouseButtonRelease(200,200)", "tool:motion MouseMotion(200,200)"}}),
    [](const auto& testInfo) { return std::string(testInfo.param.name); });

TEST(GestureTieBreak, KeyClickWithIntervalZeroLosesToARecognisedGestureWithAPositiveInterval) {
  // A host's own key gesture with a positive interval, recognised together with KeyClick.
  class SlowKey : public Gesture {
  public:
    SlowKey() : Gesture(MouseMotionInteraction, 0.1) {}

  private:
    State onGetState(const EventList& events, double) const override {
      return dynamic_cast<const KeyEvent*>(events.front().get()) ? Recognized : Failed;
    }
  };
  testhost::TestHost host;
  host.parser().pushBackGesture(new KeyClick({KeyA}));
  host.parser().pushBackGesture(new SlowKey);
  std::vector<Call> log;
  RecordingClient client(host.dispatcher(), "tool", log);
  host.dispatch(*keyPress(KeyA));
  ASSERT_FALSE(log.empty());
  EXPECT_EQ(log.front().text(), "tool:wants MouseMotion KeyPress(KeyA)");
  EXPECT_EQ(host.parser().getInteraction(), MouseMotionInteraction);
}

TEST(GestureTieBreak, OnEqualIntervalsTheEarlierGestureInTheListWins) {
  testhost::TestHost host;
  host.parser().pushBackGesture(new KeyClick({KeyA}));
  host.parser().pushBackGesture(new KeyClick({KeyA, KeyB}));
  ru::Reference<Gesture> first = host.parser().gestures().front();
  host.dispatch(*keyPress(KeyA));
  EXPECT_EQ(host.parser().getInteraction(), KeyboardInteraction);
  EXPECT_EQ(host.parser().getState(), Parser::InteractionInProgress);
  EXPECT_EQ(host.parser().getGesture(), first);
}
