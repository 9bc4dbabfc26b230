#include "datamodelgui/events/touchfilter.h"

#include "platform/support/debug.h"
#include "tests/datamodelgui/events/touch_helpers.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace touchtest;

namespace {

std::vector<std::string>* captured = nullptr;

struct Capture {
  std::vector<std::string> lines;
  Capture() {
    captured = &lines;
    voSupport::Debug::getInstance().setEnabled(voSupport::DebugEvents, true);
    voSupport::Debug::getInstance().setSink([](int code, const char* function, const char* text) {
      if (code == voSupport::DebugEvents) captured->push_back(std::string(function) + "|" + text);
    });
  }
  ~Capture() {
    voSupport::Debug::getInstance().setSink({});
    voSupport::Debug::getInstance().setEnabled(voSupport::DebugEvents, false);
    captured = nullptr;
  }
};

} // namespace

TEST(DragTouchFilter, OneDragGoesStartedDraggingEndedThenQuietUntilReset) {
  DragTouchFilter filter;
  EXPECT_EQ(filter.getState(), DragTouchFilter::Invalid);
  filter.event(*touches({finger(1, Point(0, 0), TouchBegan, 0.0)}));
  EXPECT_EQ(filter.getState(), DragTouchFilter::Started);
  filter.event(*touches({finger(1, Point(5, 0), TouchMoved, 0.1)}));
  EXPECT_EQ(filter.getState(), DragTouchFilter::Dragging);
  EXPECT_EQ(filter.getTouch()->getPosition(), Point(5, 0));
  filter.event(*touches({finger(1, Point(9, 0), TouchEnded, 0.2)}));
  EXPECT_EQ(filter.getState(), DragTouchFilter::Ended);
  // The event after the end sets done: a new finger is ignored until reset.
  filter.event(*touches({finger(2, Point(0, 0), TouchBegan, 0.3)}));
  EXPECT_EQ(filter.getState(), DragTouchFilter::Invalid);
  filter.event(*touches({finger(2, Point(0, 0), TouchBegan, 0.3)}));
  EXPECT_EQ(filter.getState(), DragTouchFilter::Invalid);
  filter.reset();
  filter.event(*touches({finger(2, Point(0, 0), TouchBegan, 0.4)}));
  EXPECT_EQ(filter.getState(), DragTouchFilter::Started);
}

TEST(DragTouchFilter, ASecondFingerDuringADragChangesNothing) {
  DragTouchFilter filter;
  filter.event(*touches({finger(1, Point(0, 0), TouchBegan, 0.0)}));
  filter.event(*touches({finger(1, Point(5, 0), TouchMoved, 0.1), finger(2, Point(50, 0), TouchBegan, 0.1)}));
  EXPECT_EQ(filter.getState(), DragTouchFilter::Dragging);
  EXPECT_EQ(filter.getTouch()->getID(), 1);
  filter.event(*touches({finger(1, Point(6, 0), TouchMoved, 0.2), finger(2, Point(50, 0), TouchEnded, 0.2)}));
  EXPECT_EQ(filter.getState(), DragTouchFilter::Dragging);
}

TEST(DragTouchFilter, AFirstFingerAlreadyMovingIsResetAndStaysInvalid) {
  DragTouchFilter filter;
  filter.event(*touches({finger(1, Point(0, 0), TouchMoved, 0.0)}));
  EXPECT_EQ(filter.getState(), DragTouchFilter::Invalid);
  EXPECT_FALSE(filter.getTouch());
  filter.event(*touches({finger(1, Point(1, 0), TouchMoved, 0.1)}));
  EXPECT_EQ(filter.getState(), DragTouchFilter::Invalid);
}

TEST(DragTouchFilter, ANonTouchEventInMidDragIsInvalidAndTheDragResumes) {
  DragTouchFilter filter;
  filter.event(*touches({finger(1, Point(0, 0), TouchBegan, 0.0)}));
  filter.event(*MouseEvent::create(MouseMotion, 0, 0, 0, 0, Point(0, 0), 0.05));
  EXPECT_EQ(filter.getState(), DragTouchFilter::Invalid);
  filter.event(*touches({finger(1, Point(5, 0), TouchMoved, 0.1)}));
  EXPECT_EQ(filter.getState(), DragTouchFilter::Dragging);
}

TEST(DragTouchFilter, TheLatchedFingerMissingFromAnEventEndsTheDrag) {
  DragTouchFilter filter;
  filter.event(*touches({finger(1, Point(0, 0), TouchBegan, 0.0)}));
  filter.event(*touches({finger(2, Point(5, 0), TouchMoved, 0.1)}));
  EXPECT_EQ(filter.getState(), DragTouchFilter::Ended);
  EXPECT_FALSE(filter.getTouch());
}

TEST(DblDragTouchFilter, TwoFingersStartWhateverTheirPhasesAndLosingOneEndsTheDrag) {
  Capture capture;
  DblDragTouchFilter filter;
  filter.event(*touches({finger(1, Point(0, 0), TouchBegan, 0.0)}));
  EXPECT_EQ(filter.getState(), DblDragTouchFilter::Invalid);
  EXPECT_FALSE(filter.getTouch1());
  filter.event(*touches({finger(1, Point(0, 0), TouchMoved, 0.1), finger(2, Point(50, 0), TouchStationary, 0.1)}));
  EXPECT_EQ(filter.getState(), DblDragTouchFilter::Started);
  EXPECT_EQ(filter.getTouch1()->getID(), 1);
  EXPECT_EQ(filter.getTouch2()->getID(), 2);
  filter.event(*touches({finger(1, Point(5, 0), TouchMoved, 0.2), finger(2, Point(55, 0), TouchMoved, 0.2)}));
  EXPECT_EQ(filter.getState(), DblDragTouchFilter::Dragging);
  filter.event(*touches({finger(1, Point(6, 0), TouchMoved, 0.3)}));
  EXPECT_EQ(filter.getState(), DblDragTouchFilter::Ended);
  EXPECT_EQ(filter.getTouch1()->getID(), 1);
  EXPECT_FALSE(filter.getTouch2());  // the event no longer holds it
  filter.event(*touches({finger(1, Point(6, 0), TouchMoved, 0.4), finger(3, Point(0, 0), TouchBegan, 0.4)}));
  EXPECT_EQ(filter.getState(), DblDragTouchFilter::Invalid);
  const std::string f = "voEV::DblDragTouchFilter::event|";
  EXPECT_EQ(capture.lines, (std::vector<std::string>{f + "DblDragTouchFilter Invalid", f + "DblDragTouchFilter Started",
                                                     f + "DblDragTouchFilter Ended", f + "DblDragTouchFilter Done"}));
}

TEST(DblDragTouchFilter, ALiftedFingerEndsTheDrag) {
  DblDragTouchFilter filter;
  filter.event(*touches({finger(1, Point(0, 0), TouchBegan, 0.0), finger(2, Point(50, 0), TouchBegan, 0.0)}));
  filter.event(*touches({finger(1, Point(0, 0), TouchEnded, 0.1), finger(2, Point(50, 0), TouchMoved, 0.1)}));
  EXPECT_EQ(filter.getState(), DblDragTouchFilter::Ended);
}

TEST(DblDragTouchFilter, ANonTouchEventInMidDragIsInvalidAndTheDragResumes) {
  DblDragTouchFilter filter;
  filter.event(*touches({finger(1, Point(0, 0), TouchBegan, 0.0), finger(2, Point(50, 0), TouchBegan, 0.0)}));
  filter.event(*MouseEvent::create(MouseMotion, 0, 0, 0, 0, Point(0, 0), 0.05));
  EXPECT_EQ(filter.getState(), DblDragTouchFilter::Invalid);
  filter.event(*touches({finger(1, Point(3, 0), TouchMoved, 0.1), finger(2, Point(53, 0), TouchMoved, 0.1)}));
  EXPECT_EQ(filter.getState(), DblDragTouchFilter::Dragging);
}

TEST(TouchFilters, CopiesShareTheLatchedTouches) {
  DragTouchFilter filter;
  filter.event(*touches({finger(1, Point(0, 0), TouchBegan, 0.0)}));
  const DragTouchFilter copy = filter;
  EXPECT_EQ(copy.getTouch().get(), filter.getTouch().get());
  EXPECT_EQ(copy.getState(), DragTouchFilter::Started);
}
