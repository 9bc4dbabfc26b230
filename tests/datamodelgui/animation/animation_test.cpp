#include "datamodelgui/animation/animation.h"

#include "platform/support/debug.h"
#include "tests/datamodelgui/animation/frames.h"
#include "tests/testhost/testhost.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace animationtest;

namespace {

const std::string kMgr = "`anonymous-namespace'::MgrImpl::";

} // namespace

TEST(Animation, FrameWithNoIntervalsAndNoWatchersIsStatic) {
  testhost::TestHost host;
  voANM::Manager manager;
  AnimationLog log;
  const FrameResult r = frame(manager);
  EXPECT_FALSE(r.executing);
  EXPECT_FALSE(r.again);
  EXPECT_EQ(log.lines, (std::vector<std::string>{kMgr + "preUpdate: Anim time 0.00", kMgr + "preExecute: Anim preExecute",
                                                 kMgr + "postUpdate: Anim postUpdate - static"}));
}

TEST(Animation, ClockAdvancesAtEachFrameAndFrameTimeHoldsBetween) {
  testhost::TestHost host(100.0);
  voANM::Manager manager;
  EXPECT_EQ(manager.frameTime(), 0.0);
  host.advance(0.25);
  EXPECT_DOUBLE_EQ(manager.currentTime(), 0.25);
  EXPECT_EQ(manager.frameTime(), 0.0);
  manager.preUpdate();
  EXPECT_DOUBLE_EQ(manager.frameTime(), 0.25);
  host.advance(0.5);
  EXPECT_DOUBLE_EQ(manager.frameTime(), 0.25);
  EXPECT_DOUBLE_EQ(manager.currentTime(), 0.75);
}

TEST(Animation, IntervalCreatedBetweenFramesReadsItsStartValueUntilTheNextFrame) {
  testhost::TestHost host;
  voANM::Manager manager;
  manager.preUpdate();
  host.advance(0.5);
  ru::Reference<voANM::Interval> interval(new voANM::Interval(manager, 1.0, false));
  EXPECT_DOUBLE_EQ(interval->startTime(), 0.5);
  EXPECT_GT(interval->startTime(), manager.frameTime());
  EXPECT_EQ(interval->evaluate(), 0.0);
  EXPECT_TRUE(interval->dynamic());
  host.advance(0.25);
  manager.preUpdate();
  EXPECT_DOUBLE_EQ(interval->evaluate(), 0.25);
}

TEST(Animation, IntervalRampsAndEndsAtItsEndValue) {
  testhost::TestHost host;
  voANM::Manager manager;
  ru::Reference<voANM::Interval> interval(new voANM::Interval(manager, 2.0, false));
  host.advance(0.5);
  manager.preUpdate();
  EXPECT_DOUBLE_EQ(interval->evaluate(), 0.25);
  interval->setReverse(true);
  EXPECT_DOUBLE_EQ(interval->evaluate(), 0.75);
  host.advance(3.0);
  manager.preUpdate();
  EXPECT_EQ(interval->evaluate(), 0.0);
  EXPECT_FALSE(interval->dynamic());
}

TEST(Animation, EvaluateAtExactlyTheEndGivesToAndIsNotDynamic) {
  testhost::TestHost host;
  voANM::Manager manager;
  ru::Reference<voANM::Interval> interval(new voANM::Interval(manager, 0.5, false));
  host.advance(0.5);
  manager.preUpdate();
  EXPECT_EQ(manager.frameTime(), interval->startTime() + interval->duration());
  EXPECT_EQ(interval->evaluate(), 1.0);
  EXPECT_FALSE(interval->dynamic());
  EXPECT_FALSE(manager.postUpdate());
}

TEST(Animation, CyclicIntervalSawsAndNeverExpires) {
  testhost::TestHost host;
  voANM::Manager manager;
  ru::Reference<voANM::Interval> interval(new voANM::Interval(manager, 1.0, true));
  host.advance(2.25);
  manager.preUpdate();
  EXPECT_DOUBLE_EQ(interval->evaluate(), 0.25);
  EXPECT_TRUE(interval->dynamic());
  EXPECT_TRUE(manager.postUpdate());
  host.advance(100.0);
  EXPECT_TRUE(frame(manager).again);
}

TEST(Animation, CyclicIntervalBeforeItsStartGivesANegativeValue) {
  testhost::TestHost host;
  voANM::Manager manager;
  manager.preUpdate();
  host.advance(0.5);
  ru::Reference<voANM::Interval> interval(new voANM::Interval(manager, 1.0, true));
  // Frame time 0, start 0.5: the remainder of -0.5 by 1 is -0.5.
  EXPECT_DOUBLE_EQ(interval->evaluate(), -0.5);
}

TEST(Animation, ZeroDurationGoesStraightToTheEndValue) {
  testhost::TestHost host;
  voANM::Manager manager;
  ru::Reference<voANM::Interval> interval(new voANM::Interval(manager, 0.0, false));
  manager.preUpdate();
  EXPECT_EQ(interval->evaluate(), 1.0);
  EXPECT_FALSE(interval->dynamic());
}

TEST(Animation, ReverseOnAnExpiredIntervalChangesNothing) {
  testhost::TestHost host;
  voANM::Manager manager;
  ru::Reference<voANM::Interval> interval(new voANM::Interval(manager, 1.0, false));
  host.advance(2.0);
  manager.preUpdate();
  const double start = interval->startTime();
  interval->reverse();
  EXPECT_FALSE(interval->isReversed());
  EXPECT_EQ(interval->startTime(), start);
}

TEST(Animation, ReverseAtThirtyPercentKeepsTheValueAndReachesZeroAfterThirtyPercent) {
  testhost::TestHost host;
  voANM::Manager manager;
  ru::Reference<voANM::Interval> interval(new voANM::Interval(manager, 1.0, false));
  host.advance(0.3);
  manager.preUpdate();
  EXPECT_NEAR(interval->evaluate(), 0.3, 1e-12);
  interval->reverse();
  EXPECT_TRUE(interval->isReversed());
  EXPECT_NEAR(interval->evaluate(), 0.3, 1e-12);
  host.advance(0.15);
  manager.preUpdate();
  EXPECT_NEAR(interval->evaluate(), 0.15, 1e-12);
  host.advance(0.15);
  manager.preUpdate();
  EXPECT_NEAR(interval->evaluate(), 0.0, 1e-12);
  EXPECT_FALSE(interval->dynamic());
}

TEST(Animation, FirstIntervalCreatesTheKeepAliveFunctionAndTheSecondDoesNot) {
  testhost::TestHost host;
  voANM::Manager manager;
  AnimationLog log;
  testhost::RecordingScheduler& anim = host.timers().anim();
  ru::Reference<voANM::Interval> first(new voANM::Interval(manager, 1.0, false));
  EXPECT_EQ(log.lines, (std::vector<std::string>{kMgr + "intervalCreated: Anim interval created (starting 0.00 for 1.00)",
                                                 kMgr + "intervalCreated: Anim function created"}));
  EXPECT_EQ(anim.calls(), (std::vector<std::string>{"start"}));
  log.lines.clear();
  ru::Reference<voANM::Interval> second(new voANM::Interval(manager, 2.0, false));
  EXPECT_FALSE(log.contains(kMgr + "intervalCreated: Anim function created"));
  EXPECT_EQ(anim.starts(), 1);
}

TEST(Animation, TheKeepAliveFunctionAdvancesTheClockOnEachPass) {
  testhost::TestHost host;
  voANM::Manager manager;
  ru::Reference<voANM::Interval> interval(new voANM::Interval(manager, 1.0, false));
  AnimationLog log;
  host.advance(0.5);
  host.timers().anim().runPass(host.domain());
  EXPECT_DOUBLE_EQ(manager.frameTime(), 0.5);
  EXPECT_EQ(log.lines, (std::vector<std::string>{kMgr + "onAnim: Anim func at time 0.50"}));
}

TEST(Animation, LastIntervalDestroyedWhileRunningKeepsTheFunctionUntilTheNextPostUpdate) {
  testhost::TestHost host;
  voANM::Manager manager;
  testhost::RecordingScheduler& anim = host.timers().anim();
  ru::Reference<voANM::Interval> interval(new voANM::Interval(manager, 1.0, false));
  AnimationLog log;
  interval.reset();
  EXPECT_EQ(log.lines, (std::vector<std::string>{kMgr + "intervalDestroyed: Anim interval destroyed"}));
  EXPECT_TRUE(anim.isRunning());
  manager.preUpdate();
  EXPECT_FALSE(manager.postUpdate());
  EXPECT_TRUE(log.contains(kMgr + "postUpdate: Anim function deleted"));
  EXPECT_FALSE(anim.isRunning());
  EXPECT_EQ(anim.calls(), (std::vector<std::string>{"start", "stop"}));
}

TEST(Animation, SchedulerStartsAndStopsAsIntervalsComeAndGo) {
  testhost::TestHost host;
  voANM::Manager manager;
  testhost::RecordingScheduler& anim = host.timers().anim();
  ru::Reference<voANM::Interval> a(new voANM::Interval(manager, 1.0, false));
  host.advance(0.5);
  EXPECT_TRUE(frame(manager).again);
  host.advance(0.6);
  EXPECT_FALSE(frame(manager).again);  // expired: the function goes
  EXPECT_EQ(anim.calls(), (std::vector<std::string>{"start", "stop"}));
  ru::Reference<voANM::Interval> b(new voANM::Interval(manager, 1.0, false));
  EXPECT_EQ(anim.calls(), (std::vector<std::string>{"start", "stop", "start"}));
  // An old interval made dynamic again restarts nothing: only postUpdate's answer shows it.
  b.reset();
  EXPECT_FALSE(frame(manager).again);
  a->setCyclic(true);
  EXPECT_EQ(anim.starts(), 2);
  EXPECT_TRUE(frame(manager).again);
  EXPECT_EQ(anim.starts(), 2);
}

TEST(Animation, NeedsUpdateForcesOneMoreFrameAndTheNextPreUpdateClearsIt) {
  testhost::TestHost host;
  voANM::Manager manager;
  AnimationLog log;
  manager.preUpdate();
  manager.needsUpdate();
  EXPECT_TRUE(manager.postUpdate());
  EXPECT_TRUE(log.contains(kMgr + "postUpdate: Anim postUpdate - needs update"));
  EXPECT_FALSE(frame(manager).again);
}

TEST(Animation, SignalsComeInFrameOrder) {
  testhost::TestHost host;
  voANM::Manager manager;
  std::vector<std::string> order;
  ruRTB::SignalClient client;
  manager.sigUpdated.addCallback([&] { order.push_back("updated"); }, client);
  manager.sigExecuting.addCallback([&] { order.push_back("executing"); }, client);
  manager.sigIntervalCreated.addCallback([&](voANM::Interval*) { order.push_back("created"); }, client);
  manager.sigIntervalDestroyed.addCallback([&](voANM::Interval* i) {
    order.push_back("destroyed");
    EXPECT_GT(i->duration(), 0.0);
  }, client);
  ru::Reference<voANM::Interval> interval(new voANM::Interval(manager, 1.0, false));
  EXPECT_TRUE(frame(manager).executing);  // someone listens to sigExecuting
  interval.reset();
  EXPECT_EQ(order, (std::vector<std::string>{"created", "updated", "executing", "destroyed"}));
}

TEST(Animation, InitializeSubscribesOnceAtUnitFourModuleZero) {
  testhost::TestHost host;
  const std::size_t before = host.broadcaster().numHandlers(typeid(voSupport::InitializeReflectionMsg));
  voANM::initialize();
  voANM::initialize();
  EXPECT_EQ(host.broadcaster().numHandlers(typeid(voSupport::InitializeReflectionMsg)), before + 1);
  host.broadcaster().reset();
  voANM::initialize();
  EXPECT_EQ(host.broadcaster().numHandlers(typeid(voSupport::InitializeReflectionMsg)), 1u);
  host.broadcaster().reset();
}
