#include "datamodelgui/animation/watcher.h"

#include "platform/support/debug.h"
#include "tests/datamodelgui/animation/frames.h"
#include "tests/testhost/testhost.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

using namespace animationtest;

namespace {

// Records the watcher's signals and the frames they fell in.
struct WatcherLog {
  ruRTB::SignalClient client;
  std::vector<std::string> events;
  WatcherLog(voANM::Manager& manager, voANM::AttributeWatcher& watcher) {
    (void)manager;
    watcher.onAnimateSignal().addCallback([this](voANM::AttributeWatcher*) { events.push_back("animate"); }, client);
    watcher.onAnimationEndedSignal().addCallback([this](voANM::AttributeWatcher*) { events.push_back("ended"); },
                                                 client);
  }
  int count(const std::string& what) const { return static_cast<int>(std::count(events.begin(), events.end(), what)); }
};

const std::string kWatcher = "`anonymous-namespace'::WatcherImpl::";

} // namespace

TEST(AttributeWatcher, CollectsThreeIntervalsAndEndsWithOneMoreFrameWhenTheLastExpires) {
  testhost::TestHost host;
  voANM::Manager manager;
  ru::Reference<voANM::AttributeWatcher> watcher(new voANM::AttributeWatcher(manager));
  watcher->start(true);
  ru::Reference<voANM::Interval> a(new voANM::Interval(manager, 0.5, false));
  ru::Reference<voANM::Interval> b(new voANM::Interval(manager, 1.0, false));
  ru::Reference<voANM::Interval> c(new voANM::Interval(manager, 1.5, false));
  watcher->stop();
  ru::Reference<voANM::Interval> unwatched(new voANM::Interval(manager, 0.1, false));
  EXPECT_EQ(watcher->numIntervals(), 3);
  WatcherLog log(manager, *watcher);

  host.advance(0.5);
  FrameResult r = frame(manager);
  EXPECT_TRUE(r.executing);
  EXPECT_TRUE(r.again);
  EXPECT_EQ(log.count("animate"), 1);
  host.advance(0.5);
  frame(manager);
  EXPECT_EQ(log.count("animate"), 2);

  // The frame where the last expires: the end comes in preUpdate, before any onAnimate of that
  // frame, and is the last signal of the animation.
  log.events.clear();
  host.advance(0.5);
  log.events.push_back("preUpdate");
  manager.preUpdate();
  log.events.push_back("preExecute");
  r.executing = manager.preExecute();
  r.again = manager.postUpdate();
  EXPECT_EQ(log.events, (std::vector<std::string>{"preUpdate", "ended", "preExecute"}));
  EXPECT_FALSE(r.executing);  // the last watcher has ended
  EXPECT_TRUE(r.again);       // one more frame for the final values, though nothing is dynamic
  EXPECT_FALSE(c->dynamic());
  r = frame(manager);
  EXPECT_FALSE(r.again);
  EXPECT_EQ(log.count("ended"), 1);
  EXPECT_EQ(log.count("animate"), 0);
  EXPECT_FALSE(manager.preExecute());
}

TEST(AttributeWatcher, EndOfAnimationPrintsTheCount) {
  testhost::TestHost host;
  voANM::Manager manager;
  ru::Reference<voANM::AttributeWatcher> watcher(new voANM::AttributeWatcher(manager));
  AnimationLog log;
  watcher->start(true);
  ru::Reference<voANM::Interval> a(new voANM::Interval(manager, 0.5, false));
  ru::Reference<voANM::Interval> b(new voANM::Interval(manager, 0.5, false));
  watcher->stop();
  host.advance(1.0);
  log.lines.clear();
  manager.preUpdate();
  EXPECT_NE(std::find(log.lines.begin(), log.lines.end(), kWatcher + "onMgrUpdated: Anim watcher: all 2 ival's expired."),
            log.lines.end());
}

TEST(AttributeWatcher, AWatcherWithACyclicIntervalNeverEnds) {
  testhost::TestHost host;
  voANM::Manager manager;
  ru::Reference<voANM::AttributeWatcher> watcher(new voANM::AttributeWatcher(manager));
  watcher->start(true);
  ru::Reference<voANM::Interval> cyclic(new voANM::Interval(manager, 0.5, true));
  watcher->stop();
  WatcherLog log(manager, *watcher);
  for (int i = 0; i < 20; ++i) {
    host.advance(0.4);
    EXPECT_TRUE(frame(manager).executing);
  }
  EXPECT_EQ(log.count("ended"), 0);
  EXPECT_EQ(log.count("animate"), 20);
}

TEST(AttributeWatcher, AnIntervalOutsideTheSetDyingPrintsNothing) {
  testhost::TestHost host;
  voANM::Manager manager;
  ru::Reference<voANM::AttributeWatcher> watcher(new voANM::AttributeWatcher(manager));
  ru::Reference<voANM::Interval> outside(new voANM::Interval(manager, 1.0, false));
  watcher->start(true);
  ru::Reference<voANM::Interval> inside(new voANM::Interval(manager, 1.0, false));
  watcher->stop();
  AnimationLog log;
  outside.reset();
  for (const auto& line : log.lines) EXPECT_EQ(line.find(kWatcher), std::string::npos) << line;
  log.lines.clear();
  inside.reset();
  EXPECT_NE(std::find(log.lines.begin(), log.lines.end(), kWatcher + "onIntervalDestroyed: Anim watcher: ival destroyed."),
            log.lines.end());
  EXPECT_EQ(watcher->numIntervals(), 0);
}

TEST(AttributeWatcher, IntervalsDyingEarlyEndTheAnimationSilently) {
  testhost::TestHost host;
  voANM::Manager manager;
  ru::Reference<voANM::AttributeWatcher> watcher(new voANM::AttributeWatcher(manager));
  watcher->start(true);
  ru::Reference<voANM::Interval> a(new voANM::Interval(manager, 1.0, false));
  watcher->stop();
  WatcherLog log(manager, *watcher);
  host.advance(0.2);
  frame(manager);
  a.reset();
  for (int i = 0; i < 5; ++i) {
    host.advance(0.5);
    frame(manager);
  }
  EXPECT_EQ(log.count("ended"), 0);
  EXPECT_EQ(log.count("animate"), 1);
}

TEST(AttributeWatcher, ClearOnARunningWatcherStopsAnimateWithoutAnEnd) {
  testhost::TestHost host;
  voANM::Manager manager;
  ru::Reference<voANM::AttributeWatcher> watcher(new voANM::AttributeWatcher(manager));
  watcher->start(true);
  ru::Reference<voANM::Interval> a(new voANM::Interval(manager, 1.0, false));
  watcher->stop();
  WatcherLog log(manager, *watcher);
  host.advance(0.2);
  frame(manager);
  EXPECT_EQ(log.count("animate"), 1);
  watcher->clear();
  EXPECT_EQ(watcher->numIntervals(), 0);
  for (int i = 0; i < 4; ++i) {
    host.advance(0.5);
    frame(manager);
  }
  EXPECT_EQ(log.count("animate"), 1);
  EXPECT_EQ(log.count("ended"), 0);
  // clear left the frame connections made: preExecute still has a listener.
  EXPECT_TRUE(manager.preExecute());
}

TEST(AttributeWatcher, WatcherDroppedByItsEndHandlerSurvivesTheEmission) {
  testhost::TestHost host;
  voANM::Manager manager;
  ru::Reference<voANM::AttributeWatcher> watcher(new voANM::AttributeWatcher(manager));
  watcher->start(true);
  ru::Reference<voANM::Interval> a(new voANM::Interval(manager, 0.5, false));
  watcher->stop();
  ruRTB::SignalClient client;
  int ended = 0;
  watcher->onAnimationEndedSignal().addCallback(
      [&](voANM::AttributeWatcher*) {
        ++ended;
        watcher.reset();
      },
      client);
  host.advance(1.0);
  frame(manager);
  EXPECT_EQ(ended, 1);
  EXPECT_FALSE(watcher);
}

TEST(AttributeWatcher, SecondStartWithoutStopKeepsTheOlderCollectingConnection) {
  testhost::TestHost host;
  voANM::Manager manager;
  ru::Reference<voANM::AttributeWatcher> watcher(new voANM::AttributeWatcher(manager));
  watcher->start(true);
  watcher->start(false);
  watcher->stop();  // cuts only the newest
  ru::Reference<voANM::Interval> a(new voANM::Interval(manager, 1.0, false));
  EXPECT_EQ(watcher->numIntervals(), 1);
  EXPECT_EQ(manager.sigIntervalCreated.numConnections(), 1u);
}

TEST(AttributeWatcher, RestartAfterTheEndWithTheOldSetEndsAgainAtOnce) {
  testhost::TestHost host;
  voANM::Manager manager;
  ru::Reference<voANM::AttributeWatcher> watcher(new voANM::AttributeWatcher(manager));
  watcher->start(true);
  ru::Reference<voANM::Interval> a(new voANM::Interval(manager, 0.5, false));
  watcher->stop();
  WatcherLog log(manager, *watcher);
  host.advance(1.0);
  frame(manager);
  EXPECT_EQ(log.count("ended"), 1);
  watcher->start(false);
  watcher->stop();
  frame(manager);
  EXPECT_EQ(log.count("ended"), 2);
}

TEST(AttributeWatcher, DyingWatcherLeavesNoConnections) {
  testhost::TestHost host;
  voANM::Manager manager;
  {
    ru::Reference<voANM::AttributeWatcher> watcher(new voANM::AttributeWatcher(manager));
    watcher->start(true);
    EXPECT_EQ(manager.sigUpdated.numConnections(), 1u);
  }
  EXPECT_EQ(manager.sigUpdated.numConnections(), 0u);
  EXPECT_EQ(manager.sigExecuting.numConnections(), 0u);
  EXPECT_EQ(manager.sigIntervalCreated.numConnections(), 0u);
  EXPECT_EQ(manager.sigIntervalDestroyed.numConnections(), 0u);
}

namespace {

// A watcher over one half-second interval, with the clock just past its end.
struct EndingAnimation {
  testhost::TestHost host;
  voANM::Manager manager;
  ru::Reference<voANM::AttributeWatcher> watcher{new voANM::AttributeWatcher(manager)};
  ru::Reference<voANM::Interval> interval;
  std::vector<std::string> events;
  ruRTB::SignalClient client;

  EndingAnimation() {
    watcher->start(true);
    interval = new voANM::Interval(manager, 0.5, false);
    watcher->stop();
    watcher->onAnimateSignal().addCallback([this](voANM::AttributeWatcher*) { events.push_back("animate"); }, client);
    watcher->onAnimationEndedSignal().addCallback([this](voANM::AttributeWatcher*) { events.push_back("ended"); }, client);
    host.advance(0.25);
    frame(manager);
    events.clear();
    host.advance(0.5);
  }
};

} // namespace

TEST(AttributeWatcher, InTheFrameTheLastIntervalExpiresTheEndComesBeforeAnyAnimate) {
  EndingAnimation a;
  a.events.push_back("preUpdate");
  a.manager.preUpdate();
  a.events.push_back("preExecute");
  a.manager.preExecute();
  a.manager.postUpdate();
  EXPECT_EQ(a.events, (std::vector<std::string>{"preUpdate", "ended", "preExecute"}));
}

TEST(AttributeWatcher, PostUpdateAnswersTrueInTheEndingFrameAndFalseInTheNext) {
  EndingAnimation a;
  const FrameResult ending = frame(a.manager);
  EXPECT_FALSE(a.interval->dynamic());
  EXPECT_TRUE(ending.again);
  EXPECT_FALSE(frame(a.manager).again);
}

TEST(AttributeWatcher, AfterTheLastWatcherEndedPreExecuteAnswersFalse) {
  EndingAnimation a;
  a.manager.preUpdate();
  EXPECT_FALSE(a.manager.preExecute());
  a.manager.postUpdate();
}
