#include "datamodelgui/events/velocity.h"

#include "datamodelgui/events/dispatcher.h"
#include "platform/support/settings.h"
#include "tests/testhost/testhost.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

using voEV::Velocity1d;
using voEV::Velocity2d;

TEST(Velocity, ValueBeforeSmoothIsZero) {
  Velocity1d v;
  v.start(0, 0);
  v.update(100, 0.5);
  EXPECT_EQ(v.value(), 0.0);
  v.smooth();
  EXPECT_DOUBLE_EQ(v.value(), 200.0);
}

TEST(Velocity, FourUpdatesLeaveThreeSamplesWithoutTheOldest) {
  Velocity1d v;
  v.start(0, 0);
  v.update(10, 1);
  v.update(20, 2);
  v.update(30, 3);
  ASSERT_EQ(v.getSamples().size(), 3u);
  EXPECT_EQ(v.getSamples().front(), ruLinear::Point2(10, 1));
  EXPECT_EQ(v.getSamples().back(), ruLinear::Point2(30, 3));
  v.update(40, 4);
  ASSERT_EQ(v.getSamples().size(), 3u);
  EXPECT_EQ(v.getSamples().front(), ruLinear::Point2(20, 2));
}

TEST(Velocity, TwoSamplesAtTheSameTimeGiveZero) {
  Velocity1d v;
  v.start(0, 1.0);
  v.end(50, 1.0);
  EXPECT_EQ(v.getDelta().y, 0.0);
  EXPECT_EQ(v.getDelta().x, 50.0);
  EXPECT_EQ(v.value(), 0.0);
}

TEST(Velocity, ARestingFingerAddsNothingForATenthOfASecondThenSlowsTheEstimate) {
  Velocity1d v;
  v.start(0, 0);
  v.update(100, 0.1);
  v.update(100, 0.15);  // same place, 0.05 s later: ignored
  EXPECT_EQ(v.getSamples().size(), 2u);
  v.update(100, 0.2);  // same place, a tenth later: taken
  EXPECT_EQ(v.getSamples().size(), 3u);
  v.smooth();
  EXPECT_DOUBLE_EQ(v.value(), 500.0);
}

TEST(Velocity, ExtrapolateWithNoMovementGivesTimeZeroEvenWhenTimePassed) {
  Velocity1d v;
  v.start(42, 0);
  v.end(42, 0.5);
  EXPECT_NE(v.getDelta().y, 0.0);
  double time = -1, position = -1;
  v.extrapolate(time, position);
  EXPECT_EQ(time, 0.0);
  EXPECT_EQ(position, 42.0);
}

TEST(Velocity, NegativeVelocityExtrapolatesBelowTheLastPositionWithPositiveTime) {
  Velocity1d v(1.0 / voSupport::getDisplayDPI());  // deceleration 1 pixel/s^2
  v.start(100, 0);
  v.end(90, 1);  // -10 pixels/s
  double time = 0, position = 0;
  v.extrapolate(time, position);
  EXPECT_DOUBLE_EQ(time, 10.0);
  EXPECT_DOUBLE_EQ(position, 90.0 - 50.0);
}

TEST(Velocity, DefaultDecelerationAt96DotsPerInchIs3456PixelsPerSecondSquared) {
  const double dpi = voSupport::getDisplayDPI();
  voSupport::setDisplayDPI(96);
  EXPECT_DOUBLE_EQ(Velocity1d().getDeceleration(), 3456.0);
  EXPECT_DOUBLE_EQ(Velocity2d().getX().getDeceleration(), 3456.0);
  voSupport::setDisplayDPI(dpi);
}

TEST(Velocity, UpdateOfAnEmptyEstimatorTakesTheSample) {
  Velocity2d v;
  v.start(voEV::Point(10, 20), 0);  // the y estimator has no sample yet
  v.update(voEV::Point(30, 60), 0.5);
  EXPECT_EQ(v.getY().getSamples().size(), 1u);
}

TEST(Velocity, TwoDimensionalStartFeedsBothCoordinatesToX) {
  Velocity2d v;
  v.start(voEV::Point(10, 20), 0);
  // x got 10, then was restarted with the y coordinate.
  ASSERT_EQ(v.getX().getSamples().size(), 1u);
  EXPECT_EQ(v.getX().getSamples().front(), ruLinear::Point2(20, 0));
  EXPECT_TRUE(v.getY().getSamples().empty());
}

TEST(Velocity, TwoDimensionalSpeedAndExtrapolation) {
  Velocity2d v(1.0 / voSupport::getDisplayDPI());
  v.start(voEV::Point(0, 0), 0);
  v.update(voEV::Point(0, 0), 0.5);  // y's first sample
  v.end(voEV::Point(30, 40), 1.0);
  // x: samples (0, 0) [the y of the start], (0, 0.5), (30, 1): 30 in 1 s. y: (0, 0.5), (40, 1): 80/s.
  EXPECT_DOUBLE_EQ(v.getX().value(), 30.0);
  EXPECT_DOUBLE_EQ(v.getY().value(), 80.0);
  EXPECT_DOUBLE_EQ(v.value(), std::sqrt(30.0 * 30.0 + 80.0 * 80.0));
  double time = 0;
  ruLinear::Point2 rest;
  v.extrapolate(time, rest);
  EXPECT_DOUBLE_EQ(time, 80.0);  // the y estimate wins
  EXPECT_DOUBLE_EQ(rest.x, 30.0 + 0.5 * 30.0 * 30.0);
  EXPECT_DOUBLE_EQ(rest.y, 40.0 + 0.5 * 80.0 * 80.0);
}

namespace {

// Takes motion events while `taking` is set.
class MotionClient : public voEV::Client {
public:
  explicit MotionClient(voEV::Dispatcher& dispatcher) : Client(dispatcher, false, false) {}
  bool wantsInteraction(voEV::InteractionType, const voEV::Event&) override { return false; }
  void interactionStarted(voEV::InteractionType, const voEV::Event&) override {}
  void interaction(voEV::InteractionType, const voEV::Event&) override {}
  void interactionFinished(voEV::InteractionType, const voEV::Event&) override {}
  bool mouseMotion(const voEV::MouseEvent&) override { return taking; }
  bool taking = true;
};

} // namespace

TEST(Tracker, EmitsOnceForARunOfOneClientAndOnceWhenNobodyTakesAnEvent) {
  testhost::TestHost host;
  MotionClient client(host.dispatcher());
  voEV::Tracker tracker(host.dispatcher());
  std::vector<voEV::Client*> changes;
  ruRTB::SignalClient listener;
  tracker.sigClientChanged.addCallback([&](voEV::Client* c) { changes.push_back(c); }, listener);
  auto motion = [&](int x) {
    host.dispatch(*voEV::MouseEvent::create(voEV::MouseMotion, 0, 0, 0, 0, voEV::Point(x, 0), host.now()));
  };
  motion(1);
  motion(2);
  motion(3);
  EXPECT_EQ(changes, (std::vector<voEV::Client*>{&client}));
  client.taking = false;
  motion(4);
  motion(5);
  EXPECT_EQ(changes, (std::vector<voEV::Client*>{&client, nullptr}));
  EXPECT_EQ(tracker.getClient(), nullptr);
}
