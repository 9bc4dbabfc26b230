#include "datamodelgui/events/touch.h"

#include "platform/support/settings.h"
#include "tests/datamodelgui/events/touch_helpers.h"

#include <gtest/gtest.h>

using namespace touchtest;

TEST(TouchState, AFingerKeepsItsOriginUntilASecondFingerJoins) {
  TouchState state;
  EXPECT_TRUE(state.event(*touches({finger(1, Point(10, 10), TouchBegan, 0.0)})));
  EXPECT_TRUE(state.isInteractionStart());
  EXPECT_TRUE(state.event(*touches({finger(1, Point(30, 10), TouchMoved, 0.1)})));
  const Touch& moved = *state.getTouches().at(1);
  EXPECT_EQ(state.getOrigin(moved), Point(10, 10));
  EXPECT_DOUBLE_EQ(state.getAge(moved), 0.1);
  EXPECT_DOUBLE_EQ(state.getInterval(moved), 0.1);
  EXPECT_TRUE(state.hasMoved(moved));
  // A second finger joins: every origin restarts at this event.
  EXPECT_TRUE(state.event(*touches({finger(1, Point(40, 10), TouchMoved, 0.2), finger(2, Point(90, 90), TouchBegan, 0.2)})));
  EXPECT_FALSE(state.isInteractionStart());
  EXPECT_EQ(state.fingers(), 2);
  EXPECT_EQ(state.getOrigin(*state.getTouches().at(1)), Point(40, 10));
  EXPECT_EQ(state.getOrigin(*state.getTouches().at(2)), Point(90, 90));
  EXPECT_FALSE(state.anyMoved());
}

TEST(TouchState, MovingExactlyTheThresholdIsNotMoving) {
  const double threshold = voSupport::getMovingGestureThreshold();
  voSupport::setMovingGestureThreshold(5.0);
  TouchState state;
  state.event(*touches({finger(1, Point(0, 0), TouchBegan, 0.0)}));
  state.event(*touches({finger(1, Point(3, 4), TouchMoved, 0.1)}));
  EXPECT_FALSE(state.hasMoved(*state.getTouches().at(1)));
  state.event(*touches({finger(1, Point(3, 5), TouchMoved, 0.2)}));
  EXPECT_TRUE(state.hasMoved(*state.getTouches().at(1)));
  voSupport::setMovingGestureThreshold(threshold);
}

TEST(TouchState, FingersAbsentFromAnEventLoseTheirOrigins) {
  TouchState state;
  state.event(*touches({finger(1, Point(0, 0), TouchBegan, 0.0)}));
  state.event(*touches({finger(2, Point(50, 50), TouchMoved, 0.1)}));  // finger 1 gone, 2 unseen
  const Touch& second = *state.getTouches().at(2);
  EXPECT_EQ(state.getOrigin(second), Point(50, 50));
  EXPECT_EQ(state.fingers(), 1);
  state.event(*touches({finger(1, Point(9, 9), TouchMoved, 0.2)}));
  EXPECT_EQ(state.getOrigin(*state.getTouches().at(1)), Point(9, 9));
}

TEST(TouchState, ANonTouchEventIsRefusedAndChangesNothing) {
  TouchState state;
  state.event(*touches({finger(1, Point(0, 0), TouchBegan, 0.0)}));
  EXPECT_FALSE(state.event(*MouseEvent::create(MouseButtonPress, 1, 1, 0, 1, Point(0, 0), 0.0)));
  EXPECT_EQ(state.fingers(), 1);
  EXPECT_TRUE(state.isInteractionStart());
}

TEST(TouchState, TheEndOfAnInteractionIsSeen) {
  TouchState state;
  state.event(*touches({finger(1, Point(0, 0), TouchBegan, 0.0)}));
  state.event(*touches({finger(1, Point(0, 0), TouchEnded, 0.1)}));
  EXPECT_TRUE(state.isInteractionEnd());
  EXPECT_EQ(state.fingers(), 1);  // the lifted finger is still reported in its last event
}
