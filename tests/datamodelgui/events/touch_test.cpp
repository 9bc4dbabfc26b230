#include "datamodelgui/events/touch.h"

#include <gtest/gtest.h>

using namespace voEV;

namespace {

ru::Reference<Touch> finger(int id, Point at, TouchPhase phase, double time = 1.0) {
  return ru::Reference<Touch>(new Touch(id, at, at, 1, phase, time));
}

}  // namespace

TEST(TouchEvent, AnEventWithNoTouchesIsBothAnInteractionStartAndEnd) {
  TouchEvent empty{TouchMap()};
  EXPECT_TRUE(empty.isInteractionStart());
  EXPECT_TRUE(empty.isInteractionEnd());
  EXPECT_FALSE(empty.isInteractionChange());
  EXPECT_EQ(empty.getType(), ScrenTouch);
}

TEST(TouchEvent, OneFingerBeginningBesideAStationaryOneIsAChangeNotAStart) {
  TouchMap touches;
  touches[1] = finger(1, Point(0, 0), TouchStationary);
  touches[2] = finger(2, Point(50, 0), TouchBegan);
  TouchEvent event(touches);
  EXPECT_FALSE(event.isInteractionStart());
  EXPECT_TRUE(event.isInteractionChange());
  event.setLogicalInteractionStart();
  EXPECT_TRUE(event.isInteractionStart());
  EXPECT_FALSE(event.isInteractionChange());
}

TEST(TouchEvent, ACancelledTouchIsAReleaseInMouseForm) {
  auto mouse = finger(3, Point(7, 8), TouchCancelled)->asMouseEvent();
  EXPECT_EQ(mouse->getType(), MouseButtonRelease);
  EXPECT_EQ(mouse->getButtonMask(), 0);
  EXPECT_EQ(mouse->getButton(), 1);
  EXPECT_EQ(finger(3, Point(7, 8), TouchStationary)->asMouseEvent()->getType(), MouseMove);
  EXPECT_EQ(finger(3, Point(7, 8), TouchBegan)->asMouseEvent()->getType(), MouseButtonPress);
}

TEST(TouchEvent, HistoryThatIsNoMultipleOfItsEventsRoundsTheTouchCountDown) {
  ru::vector<HistoricalTouch> samples(7);
  HistoricalTouchData history(3, samples);
  EXPECT_TRUE(samples.empty());
  EXPECT_EQ(history.getNumEvents(), 3);
  EXPECT_EQ(history.getNumTouches(), 2);
  ru::vector<HistoricalTouch> none(4);
  HistoricalTouchData rejected(0, none);
  EXPECT_EQ(rejected.getNumTouches(), 0);
}

TEST(TouchEvent, ACloneCopiesTheTouchesDeeplyAndSharesTheHistory) {
  TouchMap touches;
  touches[4] = finger(4, Point(1, 1), TouchMoved);
  ru::vector<HistoricalTouch> samples(2);
  ru::Reference<HistoricalTouchData> history(new HistoricalTouchData(1, samples));
  ru::Reference<Event> event(new TouchEvent(touches, history));
  auto copy = ru::dynamicCast<TouchEvent>(event->clone());
  ASSERT_TRUE(copy);
  EXPECT_NE(copy->find(4).get(), touches[4].get());
  EXPECT_FALSE(*copy->find(4) != *touches[4]);
  EXPECT_EQ(copy->getHistoricalData().get(), history.get());
  EXPECT_TRUE(identical(*copy, static_cast<const TouchEvent&>(*event)));
}

TEST(TouchEvent, TheClosingEventEndsEveryFingerStillDownAtItsPlace) {
  TouchMap touches;
  touches[1] = ru::Reference<Touch>(new Touch(1, Point(5, 5), Point(4, 4), 2, TouchMoved, 3.0));
  touches[2] = finger(2, Point(9, 9), TouchEnded);
  auto end = ru::dynamicCast<TouchEvent>(TouchEvent(touches).createInteractionEnd());
  ASSERT_TRUE(end);
  ASSERT_EQ(end->getTouches().size(), 1u);
  const Touch& closed = *end->find(1);
  EXPECT_EQ(closed.getPhase(), TouchEnded);
  EXPECT_EQ(closed.getPosition(), Point(5, 5));
  EXPECT_EQ(closed.getPreviousPosition(), Point(5, 5));
  EXPECT_EQ(closed.getTapCount(), 0);
  EXPECT_EQ(closed.getTimestamp(), 3.0);
  TouchMap done;
  done[1] = finger(1, Point(), TouchCancelled);
  EXPECT_FALSE(TouchEvent(done).createInteractionEnd());
}
