#include "tests/testhost/testhost.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace {

struct Firing : ruRTB::SignalClient {
  std::vector<std::pair<std::string, double>> fired;
};

// Connects `timer` so that its firing is written down with the clock time, under `name`.
void watch(voEV::Timer* timer, const std::string& name, Firing& firing, testhost::TestHost& host) {
  timer->sigTimer.addCallback([&firing, &host, name](voEV::Timer*) { firing.fired.emplace_back(name, host.now()); },
                              firing);
}

}  // namespace

TEST(TestHost, EntersTimersDomainAndBroadcasterInTheCurrentCallInfo) {
  testhost::TestHost host(5.0);
  EXPECT_EQ(voSupport::ci().find<voEV::Timers>(), &host.timers());
  EXPECT_EQ(voSupport::ci().find<voSupport::Domain>(), &host.domain());
  EXPECT_EQ(voSupport::ci().find<voSupport::Broadcaster>(), &host.broadcaster());
  EXPECT_EQ(host.now(), 5.0);
  EXPECT_EQ(&ruOS::currentClock(), &host.clock());
}

TEST(TestHost, TimersArmWhenMadeAndFireOnceInDueOrderWithTheClockAtTheirTime) {
  testhost::TestHost host;
  Firing firing;
  std::unique_ptr<voEV::Timer> late(host.timers().create(0.3));
  std::unique_ptr<voEV::Timer> early(host.timers().create(0.1));
  std::unique_ptr<voEV::Timer> same(host.timers().create(0.1));
  watch(late.get(), "late", firing, host);
  watch(early.get(), "early", firing, host);
  watch(same.get(), "same", firing, host);
  EXPECT_EQ(host.timers().armedCount(), 3);
  host.advance(0.05);
  EXPECT_TRUE(firing.fired.empty());
  host.advance(1.0);
  EXPECT_EQ(firing.fired, (std::vector<std::pair<std::string, double>>{{"early", 0.1}, {"same", 0.1}, {"late", 0.3}}));
  EXPECT_EQ(host.now(), 1.05);
  host.advance(1.0);
  EXPECT_EQ(firing.fired.size(), 3u);
  EXPECT_EQ(host.timers().armedCount(), 0);
}

TEST(TestHost, StartArmsATimerAgainFromNowAndStopDisarmsIt) {
  testhost::TestHost host;
  Firing firing;
  std::unique_ptr<voEV::Timer> timer(host.timers().create(0.2));
  watch(timer.get(), "t", firing, host);
  host.advance(0.1);
  timer->start();
  host.advance(0.15);
  EXPECT_TRUE(firing.fired.empty());
  host.advance(0.1);
  EXPECT_EQ(firing.fired.size(), 1u);
  EXPECT_DOUBLE_EQ(firing.fired[0].second, 0.3);
  timer->start();
  timer->stop();
  host.advance(1.0);
  EXPECT_EQ(firing.fired.size(), 1u);
}

TEST(TestHost, ATimerDeletedInsideItsOwnSignalSurvivesTheEmission) {
  testhost::TestHost host;
  voEV::Timer* timer = host.timers().create(0.1);
  int calls = 0;
  ruRTB::SignalClient connections;
  timer->sigTimer.addCallback([&](voEV::Timer* t) { ++calls; delete t; }, connections);
  timer->sigTimer.addCallback([&](voEV::Timer*) { ++calls; }, connections);
  host.advance(0.2);
  EXPECT_EQ(calls, 1);  // the emission stops after the slot that deleted its signal
  EXPECT_EQ(host.timers().liveCount(), 0);
}

TEST(TestHost, ATimerDeletedBeforeItsTimeNeverFires) {
  testhost::TestHost host;
  Firing firing;
  voEV::Timer* timer = host.timers().create(0.1);
  watch(timer, "t", firing, host);
  host.advance(0.05);
  delete timer;
  host.advance(1.0);
  EXPECT_TRUE(firing.fired.empty());
}

TEST(TestHost, ATimerMadeByAListenerFiresInTheSameAdvanceWhenItFallsDue) {
  testhost::TestHost host;
  std::vector<double> ticks;
  ruRTB::SignalClient connections;
  voEV::Timer* current = nullptr;
  std::function<void(voEV::Timer*)> rearm = [&](voEV::Timer* fired) {
    ticks.push_back(host.now());
    delete fired;
    current = host.timers().create(0.25);
    current->sigTimer.addCallback(rearm, connections);
  };
  current = host.timers().create(0.25);
  current->sigTimer.addCallback(rearm, connections);
  host.advance(1.0);
  EXPECT_EQ(ticks, (std::vector<double>{0.25, 0.5, 0.75, 1.0}));
  EXPECT_EQ(host.timers().liveCount(), 1);
  delete current;
}
