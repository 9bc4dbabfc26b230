#include "platform/base/clock.h"

#include <gtest/gtest.h>

namespace {
struct ManualClockScope {
  ruOS::ManualClock clock{100.0};
  ManualClockScope() { ruOS::setClock(&clock); }
  ~ManualClockScope() { ruOS::setClock(nullptr); }
};
}  // namespace

TEST(StopWatch, NewWatchIsStoppedAndReadsZero) {
  ManualClockScope time;
  ruOS::StopWatch watch;
  time.clock.advance(5);
  EXPECT_FALSE(watch.isRunning());
  EXPECT_EQ(watch.check(), 0.0);
}

TEST(StopWatch, MeasuresTheManualClock) {
  ManualClockScope time;
  ruOS::StopWatch watch;
  watch.start();
  time.clock.advance(0.25);
  EXPECT_DOUBLE_EQ(watch.check(), 0.25);
  watch.stop();
  time.clock.advance(1.0);
  EXPECT_DOUBLE_EQ(watch.check(), 0.25);
  watch.start();
  time.clock.advance(0.5);
  EXPECT_DOUBLE_EQ(watch.check(), 0.75);
}

TEST(StopWatch, ClearZeroesAndKeepsARunningWatchRunning) {
  ManualClockScope time;
  ruOS::StopWatch watch;
  watch.start();
  time.clock.advance(2.0);
  watch.clear();
  EXPECT_TRUE(watch.isRunning());
  EXPECT_EQ(watch.check(), 0.0);
  time.clock.advance(0.5);
  EXPECT_DOUBLE_EQ(watch.check(), 0.5);
  watch.stop();
  watch.clear();
  EXPECT_EQ(watch.check(), 0.0);
}

TEST(StopWatch, StartWhileRunningChangesNothing) {
  ManualClockScope time;
  ruOS::StopWatch watch;
  watch.start();
  time.clock.advance(1.0);
  watch.start();
  time.clock.advance(1.0);
  EXPECT_DOUBLE_EQ(watch.check(), 2.0);
}

TEST(Clock, ManualClockSetsAndAdvances) {
  ruOS::ManualClock clock;
  clock.set(3.0);
  clock.advance(0.05);
  EXPECT_DOUBLE_EQ(clock.now(), 3.05);
}

TEST(Clock, NullRestoresTheSteadyClock) {
  ruOS::ManualClock manual(7.0);
  ruOS::setClock(&manual);
  EXPECT_EQ(ruOS::currentClock().now(), 7.0);
  ruOS::setClock(nullptr);
  const double a = ruOS::currentClock().now();
  const double b = ruOS::currentClock().now();
  EXPECT_LE(a, b);
  EXPECT_NE(&ruOS::currentClock(), static_cast<ruOS::Clock*>(&manual));
}
