#include "datamodelgui/events/touchgesture.h"

#include "tests/datamodelgui/events/recording_client.h"
#include "tests/datamodelgui/events/touch_helpers.h"
#include "tests/testhost/testhost.h"

#include <gtest/gtest.h>

#include <string>

using namespace touchtest;
using G = Gesture;

namespace {

struct DefaultCase {
  const char* name;
  ru::Reference<Gesture> gesture;
  InteractionType interaction;
  double interval;
};

class TouchGestureDefaults : public ::testing::TestWithParam<DefaultCase> {};

} // namespace

TEST_P(TouchGestureDefaults, InteractionAndDefaultInterval) {
  EXPECT_EQ(GetParam().gesture->getInteraction(), GetParam().interaction);
  EXPECT_EQ(GetParam().gesture->getRecognitionInterval(), GetParam().interval);
}

INSTANTIATE_TEST_SUITE_P(
    TouchGesture, TouchGestureDefaults,
    ::testing::Values(DefaultCase{"TapTouch", new TapTouch(), TapTouchInteraction, 0.2},
                      DefaultCase{"DragTouch", new DragTouch(), DragTouchInteraction, 0.2},
                      DefaultCase{"DblTapTouch", new DblTapTouch(), DblTapTouchInteraction, 0.2},
                      DefaultCase{"TrplTapTouch", new TrplTapTouch(), TrplTapTouchInteraction, 0.2},
                      DefaultCase{"DblDragTouch", new DblDragTouch(), DblDragTouchInteraction, 0.25},
                      DefaultCase{"PressTouch", new PressTouch(), PressTouchInteraction, 0.35},
                      DefaultCase{"DblPressTouch", new DblPressTouch(), DblPressTouchInteraction, 0.35},
                      DefaultCase{"TapPen", new TapPen(), TapPenInteraction, 0.2},
                      DefaultCase{"DragPen", new DragPen(), DragPenInteraction, 0.0},
                      DefaultCase{"PressPen", new PressPen(), PressPenInteraction, 0.5}),
    [](const ::testing::TestParamInfo<DefaultCase>& testInfo) { return std::string(testInfo.param.name); });

TEST(TouchGesture, OneFingerTapInPlaceIsATapOnTheLiftAndNoDrag) {
  const EventList events = queue({touches({finger(1, Point(10, 10), TouchBegan, 0.0)}),
                                  touches({finger(1, Point(12, 10), TouchEnded, 0.1)})});
  EXPECT_EQ(TapTouch().getState(events, 0.1), G::Recognized);
  EXPECT_EQ(DragTouch().getState(events, 0.1), G::Failed);
  // Before the lift both are still possible.
  const EventList down = queue({events[0]});
  EXPECT_EQ(TapTouch().getState(down, 0.1), G::Possible);
  EXPECT_EQ(DragTouch().getState(down, 0.1), G::Possible);
}

TEST(TouchGesture, TwoFingerTapFailsTheTapAndIsADoubleTapOnTheLift) {
  const EventList events = queue(
      {touches({finger(1, Point(10, 10), TouchBegan, 0.0), finger(2, Point(80, 10), TouchBegan, 0.0)}),
       touches({finger(1, Point(10, 10), TouchEnded, 0.1), finger(2, Point(80, 10), TouchEnded, 0.1)})});
  EXPECT_EQ(TapTouch().getState(queue({events[0]}), 0.0), G::Failed);
  EXPECT_EQ(DblTapTouch().getState(events, 0.1), G::Recognized);
  EXPECT_EQ(TrplTapTouch().getState(events, 0.1), G::Failed);
}

TEST(TouchGesture, ThreeFingersLandingInSeparateEventsAreATripleTap) {
  const EventList events = queue(
      {touches({finger(1, Point(0, 0), TouchBegan, 0.0)}),
       touches({finger(1, Point(0, 0), TouchStationary, 0.03), finger(2, Point(40, 0), TouchBegan, 0.03)}),
       touches({finger(1, Point(0, 0), TouchStationary, 0.06), finger(2, Point(40, 0), TouchStationary, 0.06),
                finger(3, Point(80, 0), TouchBegan, 0.06)}),
       touches({finger(1, Point(0, 0), TouchEnded, 0.1), finger(2, Point(40, 0), TouchEnded, 0.1),
                finger(3, Point(80, 0), TouchEnded, 0.1)})});
  EXPECT_EQ(TrplTapTouch().getState(events, 0.1), G::Recognized);
  EXPECT_EQ(DblTapTouch().getState(events, 0.1), G::Failed);
}

TEST(TouchGesture, AMultiTapThatMovesFails) {
  const EventList events = queue(
      {touches({finger(1, Point(0, 0), TouchBegan, 0.0), finger(2, Point(40, 0), TouchBegan, 0.0)}),
       touches({finger(1, Point(30, 0), TouchMoved, 0.05), finger(2, Point(40, 0), TouchStationary, 0.05)})});
  EXPECT_EQ(DblTapTouch().getState(events, 0.05), G::Failed);
}

TEST(TouchGesture, AFingerHeldStillPastTheIntervalIsADragByElapsedTime) {
  const EventList events = queue({touches({finger(1, Point(10, 10), TouchBegan, 0.0)})});
  EXPECT_EQ(DragTouch().getState(events, 0.2), G::Possible);
  EXPECT_EQ(DragTouch().getState(events, 0.21), G::Recognized);
  EXPECT_EQ(TapTouch().getState(events, 0.21), G::Failed);
  EXPECT_EQ(PressTouch().getState(events, 0.21), G::Possible);
}

TEST(TouchGesture, AMovingFingerIsADragAtOnce) {
  const EventList events = queue({touches({finger(1, Point(10, 10), TouchBegan, 0.0)}),
                                  touches({finger(1, Point(30, 10), TouchMoved, 0.02)})});
  EXPECT_EQ(DragTouch().getState(events, 0.02), G::Recognized);
  EXPECT_EQ(PressTouch().getState(events, 0.02), G::Failed);
}

TEST(TouchGesture, PressTouchIsRecognisedByTheFingersAgeOrOnATick) {
  const EventList held = queue({touches({finger(1, Point(10, 10), TouchBegan, 0.0)}),
                                touches({finger(1, Point(11, 10), TouchStationary, 0.36)})});
  // The event shows the finger 0.36 s old: recognised whatever the parser's clock says.
  EXPECT_EQ(PressTouch().getState(held, 0.1), G::Recognized);
  const EventList down = queue({held[0]});
  EXPECT_EQ(PressTouch().getState(down, 0.35), G::Possible);
  EXPECT_EQ(PressTouch().getState(down, 0.36), G::Recognized);
  // Lifting ends any press.
  const EventList lifted = queue({held[0], touches({finger(1, Point(10, 10), TouchEnded, 0.2)})});
  EXPECT_EQ(PressTouch().getState(lifted, 0.2), G::Failed);
}

TEST(TouchGesture, TwoFingersHeldStillAreADoublePressFromWhereBothAreDown) {
  DblPressTouch press;
  const EventList events = queue(
      {touches({finger(1, Point(0, 0), TouchBegan, 0.0)}),
       touches({finger(1, Point(0, 0), TouchStationary, 0.05), finger(2, Point(60, 0), TouchBegan, 0.05)})});
  EXPECT_EQ(press.getState(events, 0.2), G::Possible);
  EXPECT_EQ(press.startIndex(), 1);
  EXPECT_EQ(press.getState(events, 0.4), G::Recognized);
  DblPressTouch single;
  EXPECT_EQ(single.getState(queue({events[0]}), 0.4), G::Failed);
  EXPECT_EQ(single.startIndex(), -1);
}

TEST(TouchGesture, AQueueThatDoesNotBeginWithAStartFails) {
  const EventList events = queue({touches({finger(1, Point(10, 10), TouchMoved, 0.0)})});
  EXPECT_EQ(TapTouch().getState(events, 0.0), G::Failed);
  EXPECT_EQ(DragTouch().getState(events, 0.0), G::Failed);
  EXPECT_EQ(DblDragTouch().getState(events, 0.0), G::Failed);
  const EventList mouse = queue({MouseEvent::create(MouseButtonPress, 1, 1, 0, 1, Point(0, 0), 0.0)});
  EXPECT_EQ(TapTouch().getState(mouse, 0.0), G::Failed);
  EXPECT_EQ(DblDragTouch().getState(mouse, 0.0), G::Failed);
}

namespace {

EventList twoFingerDown(double second = 0.05, int idA = 1, int idB = 2) {
  return queue({touches({finger(idA, Point(0, 0), TouchBegan, 0.0)}),
                touches({finger(idA, Point(0, 0), TouchStationary, second), finger(idB, Point(100, 0), TouchBegan, second)})});
}

} // namespace

TEST(TouchGesture, TwoFingersThatMoveTogetherAreADoubleDrag) {
  DblDragTouch drag;
  EventList events = twoFingerDown();
  EXPECT_EQ(drag.getState(events, 0.1), G::Possible);
  EXPECT_EQ(drag.startIndex(), 1);
  events.push_back(touches({finger(1, Point(20, 0), TouchMoved, 0.12), finger(2, Point(120, 0), TouchMoved, 0.12)}));
  EXPECT_EQ(drag.getState(events, 0.12), G::Recognized);
}

TEST(TouchGesture, TwoFingersLandingFarApartInTimeStartNoDoubleDrag) {
  EventList events = twoFingerDown(0.3);
  events.push_back(touches({finger(1, Point(20, 0), TouchMoved, 0.32), finger(2, Point(120, 0), TouchMoved, 0.32)}));
  EXPECT_EQ(DblDragTouch().getState(events, 0.32), G::Failed);
}

TEST(TouchGesture, DoubleDragMatchesFingersByIdWhateverOrderTheyArriveIn) {
  // Ids 7 and 3: the landing pair is (3, 7) in id order.
  EventList events = queue({touches({finger(7, Point(0, 0), TouchBegan, 0.0)}),
                            touches({finger(7, Point(0, 0), TouchStationary, 0.05), finger(3, Point(100, 0), TouchBegan, 0.05)})});
  events.push_back(touches({finger(3, Point(100, 0), TouchStationary, 0.1), finger(7, Point(30, 0), TouchMoved, 0.1)}));
  EXPECT_EQ(DblDragTouch().getState(events, 0.1), G::Recognized);
}

TEST(TouchGesture, DoubleDragStaysPossibleThroughAnEventWithUnknownFingers) {
  EventList events = twoFingerDown();
  events.push_back(touches({finger(5, Point(300, 0), TouchBegan, 0.1), finger(6, Point(400, 0), TouchBegan, 0.1)}));
  EXPECT_EQ(DblDragTouch().getState(events, 0.1), G::Possible);
  events.push_back(touches({finger(1, Point(0, 0), TouchStationary, 0.12), finger(2, Point(100, 0), TouchStationary, 0.12)}));
  EXPECT_EQ(DblDragTouch().getState(events, 0.12), G::Possible);
}

TEST(TouchGesture, DoubleDragMustStartBeforeItsIntervalIsOverWithNoSlack) {
  const EventList events = twoFingerDown();
  EXPECT_EQ(DblDragTouch().getState(events, 0.2499), G::Possible);
  EXPECT_EQ(DblDragTouch().getState(events, 0.25), G::Failed);
}

TEST(TouchGesture, DoubleDragReadsTheSamplesBetweenEvents) {
  ru::vector<HistoricalTouch> samples{{1, Point(0, 0), 0.08}, {2, Point(100, 0), 0.08},
                                      {1, Point(25, 0), 0.09}, {2, Point(125, 0), 0.09}};
  EventList events = twoFingerDown();
  // The event itself is back in place; the samples in between moved.
  events.push_back(touches({finger(1, Point(0, 0), TouchMoved, 0.1), finger(2, Point(100, 0), TouchMoved, 0.1)},
                           new HistoricalTouchData(2, samples)));
  EXPECT_EQ(DblDragTouch().getState(events, 0.1), G::Recognized);
}

TEST(TouchGesture, DoubleDragTakesASampleMissingAFingerAsNoVerdict) {
  ru::vector<HistoricalTouch> samples{{1, Point(50, 0), 0.08}, {9, Point(500, 0), 0.08}};
  EventList events = twoFingerDown();
  events.push_back(touches({finger(1, Point(0, 0), TouchStationary, 0.1), finger(2, Point(100, 0), TouchStationary, 0.1)},
                           new HistoricalTouchData(1, samples)));
  EXPECT_EQ(DblDragTouch().getState(events, 0.1), G::Possible);
}

TEST(TouchGesture, DoubleDragScreensWithFreshGesturesAtEachEvaluation) {
  // A two-finger tap is screened out...
  const EventList tap = queue(
      {touches({finger(1, Point(0, 0), TouchBegan, 0.0), finger(2, Point(100, 0), TouchBegan, 0.0)}),
       touches({finger(1, Point(0, 0), TouchEnded, 0.1), finger(2, Point(100, 0), TouchEnded, 0.1)})});
  DblDragTouch drag;
  EXPECT_EQ(drag.getState(tap, 0.1), G::Failed);
  // ...and the same gesture, reset, judges a drag on its own merits: no screen kept a verdict.
  drag.resetState();
  EventList events = twoFingerDown();
  events.push_back(touches({finger(1, Point(20, 0), TouchMoved, 0.12), finger(2, Point(120, 0), TouchMoved, 0.12)}));
  EXPECT_EQ(drag.getState(events, 0.12), G::Recognized);
}

TEST(TouchGesture, DoubleDragRefusesAQueueThatBeginsWithNoFinger) {
  EXPECT_EQ(DblDragTouch().getState(queue({touches({})}), 0.0), G::Failed);
}

TEST(PenGesture, APenDownAndUpInPlaceIsATap) {
  const EventList events = queue({pen(PenDown, Point(10, 10), 0.0), pen(PenUp, Point(11, 10), 0.1)});
  EXPECT_EQ(TapPen().getState(events, 0.1), G::Recognized);
  EXPECT_EQ(DragPen().getState(events, 0.1), G::Recognized);  // any later sample is a drag at 0.0
  EXPECT_EQ(PressPen().getState(events, 0.1), G::Failed);
}

TEST(PenGesture, APenLiftedLateInPlaceIsAPressNotATap) {
  const EventList events = queue({pen(PenDown, Point(10, 10), 0.0), pen(PenUp, Point(10, 10), 0.6)});
  EXPECT_EQ(TapPen().getState(events, 0.6), G::Failed);
  EXPECT_EQ(PressPen().getState(events, 0.6), G::Recognized);
}

TEST(PenGesture, HistoricalSamplesCountBeforeTheEventItself) {
  // The move ends in place, but a sample on the way left the spot: no tap, no press.
  const EventList events =
      queue({pen(PenDown, Point(10, 10), 0.0), pen(PenMove, Point(10, 10), 0.1, {{Point(40, 10), 0.05, 0.5f}})});
  EXPECT_EQ(TapPen().getState(events, 0.1), G::Failed);
  EXPECT_EQ(PressPen().getState(events, 0.1), G::Failed);
  EXPECT_EQ(DragPen(0.5).getState(events, 0.1), G::Recognized);
}

TEST(PenGesture, PressPenHeldInPlaceIsRecognisedBySampleTimeOrOnATick) {
  const EventList moved = queue({pen(PenDown, Point(10, 10), 0.0), pen(PenMove, Point(11, 10), 0.55)});
  EXPECT_EQ(PressPen().getState(moved, 0.1), G::Recognized);
  const EventList down = queue({pen(PenDown, Point(10, 10), 0.0)});
  EXPECT_EQ(PressPen().getState(down, 0.5), G::Possible);
  EXPECT_EQ(PressPen().getState(down, 0.51), G::Recognized);
  EXPECT_EQ(PressPen().getState(queue({down[0], pen(PenDown, Point(10, 10), 0.1)}), 0.1), G::Failed);
}

TEST(PenGesture, ATickWithOnlyThePenDownIsNoDrag) {
  const EventList down = queue({pen(PenDown, Point(10, 10), 0.0)});
  EXPECT_EQ(DragPen().getState(down, 5.0), G::Possible);
}

TEST(PenGesture, DragPenLiftedInPlaceWithinItsIntervalFails) {
  const EventList events = queue({pen(PenDown, Point(10, 10), 0.0), pen(PenUp, Point(10, 10), 0.1)});
  EXPECT_EQ(DragPen(0.5).getState(events, 0.1), G::Failed);
}

TEST(PenGesture, PenGesturesNeedAPenDownFirstAndAcceptAnEmptyHistory) {
  const EventList mouse = queue({MouseEvent::create(MouseButtonPress, 1, 1, 0, 1, Point(0, 0), 0.0)});
  EXPECT_EQ(TapPen().getState(mouse, 0.0), G::Failed);
  EXPECT_EQ(DragPen().getState(mouse, 0.0), G::Failed);
  EXPECT_EQ(PressPen().getState(mouse, 0.0), G::Failed);
  EXPECT_EQ(TapPen().getState(queue({pen(PenMove, Point(0, 0), 0.0)}), 0.0), G::Failed);
  ru::vector<HistoricalPenEvent> none;
  const EventList events = queue({pen(PenDown, Point(10, 10), 0.0),
                                  ru::Reference<PenEvent>(new PenEvent(PenUp, Point(10, 10), 0.1, 0.f, false,
                                                                       new HistoricalPenData(none)))});
  EXPECT_EQ(TapPen().getState(events, 0.1), G::Recognized);
}

TEST(PenGesture, DragPenWithIntervalZeroLosesEveryTieToARecognisedGestureWithAPositiveInterval) {
  // A pen put down and lifted in place at once: DragPen (0.0) and TapPen (0.2) are both recognised
  // on the lift, and the tap wins.
  testhost::TestHost host;
  host.parser().pushBackGesture(new DragPen);
  host.parser().pushBackGesture(new TapPen);
  std::vector<eventstest::Call> log;
  eventstest::RecordingClient client(host.dispatcher(), "tool", log, true);
  host.dispatch(*pen(PenDown, Point(10, 10), host.now()));
  host.advance(0.01);
  host.dispatch(*pen(PenUp, Point(10, 10), host.now()));
  ASSERT_FALSE(log.empty());
  for (const auto& call : log) EXPECT_EQ(call.interaction, TapPenInteraction) << call.text();
  EXPECT_EQ(log.back().what, "finished");
}
