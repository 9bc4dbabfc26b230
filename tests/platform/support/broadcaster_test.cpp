#include "platform/support/broadcaster.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {
struct PingMsg : voSupport::Message {
  std::vector<std::string> log;
};
struct PongMsg : voSupport::Message {
  int hits = 0;
};
struct LoudPingMsg : PingMsg {};
}  // namespace

TEST(Broadcaster, CallsHandlersInAscendingPriorityThenRegistrationOrder) {
  voSupport::Broadcaster broadcaster;
  auto add = [&](voSupport::Priority priority, std::string name) {
    broadcaster.addHandler<PingMsg>(priority, [name](PingMsg& m) { m.log.push_back(name); });
  };
  add({10, 1}, "print");
  add({1, 0}, "events");
  add({10, 0}, "document");
  add({4, 0}, "animation");
  add({10, 0}, "document2");
  PingMsg message;
  broadcaster.broadcast(message);
  EXPECT_EQ(message.log, (std::vector<std::string>{"events", "animation", "document", "document2", "print"}));
}

TEST(Broadcaster, ChoosesHandlersByTheExactMessageType) {
  voSupport::Broadcaster broadcaster;
  int pings = 0, pongs = 0;
  broadcaster.addHandler<PingMsg>({1, 0}, [&](PingMsg&) { ++pings; });
  broadcaster.addHandler<PongMsg>({1, 0}, [&](PongMsg& m) {
    ++pongs;
    ++m.hits;
  });
  PongMsg pong;
  broadcaster.broadcast(pong);
  LoudPingMsg loud;
  voSupport::Message& asBase = loud;
  broadcaster.broadcast(asBase);  // a derived message is not a PingMsg for routing
  EXPECT_EQ(pings, 0);
  EXPECT_EQ(pongs, 1);
  EXPECT_EQ(pong.hits, 1);
  PingMsg ping;
  broadcaster.broadcast(ping);
  EXPECT_EQ(pings, 1);
  EXPECT_EQ(broadcaster.numHandlers(typeid(PingMsg)), 1u);
}

TEST(Broadcaster, HandlerAddedDuringABroadcastWaitsForTheNext) {
  voSupport::Broadcaster broadcaster;
  int late = 0;
  broadcaster.addHandler<PingMsg>({1, 0}, [&](PingMsg&) {
    broadcaster.addHandler<PingMsg>({0, 0}, [&](PingMsg&) { ++late; });
  });
  PingMsg message;
  broadcaster.broadcast(message);
  EXPECT_EQ(late, 0);
  broadcaster.broadcast(message);
  EXPECT_EQ(late, 1);
}

TEST(Broadcaster, ResetDropsHandlersAndSetsFirstTimeFlagsAgain) {
  voSupport::Broadcaster broadcaster;
  bool firstTime = true;
  auto initialize = [&] {
    if (firstTime) {
      firstTime = false;
      broadcaster.addFirstTimeFlag(firstTime);
      broadcaster.addHandler<PingMsg>({1, 0}, [](PingMsg& m) { m.log.push_back("registered"); });
    }
  };
  initialize();
  initialize();  // the flag keeps the second call from registering twice
  EXPECT_EQ(broadcaster.numHandlers(), 1u);
  broadcaster.reset();
  EXPECT_EQ(broadcaster.numHandlers(), 0u);
  EXPECT_TRUE(firstTime);
  initialize();
  PingMsg message;
  broadcaster.broadcast(message);
  EXPECT_EQ(message.log, std::vector<std::string>{"registered"});
}

TEST(Broadcaster, ResetDuringABroadcastFinishesThatBroadcast) {
  voSupport::Broadcaster broadcaster;
  int calls = 0;
  broadcaster.addHandler<PingMsg>({1, 0}, [&](PingMsg&) {
    ++calls;
    broadcaster.reset();
  });
  broadcaster.addHandler<PingMsg>({2, 0}, [&](PingMsg&) { ++calls; });
  PingMsg message;
  broadcaster.broadcast(message);
  EXPECT_EQ(calls, 2);
  broadcaster.broadcast(message);
  EXPECT_EQ(calls, 2);
}

TEST(InitializeReflectionMsg, AnswersItsDatabase) {
  auto* database = reinterpret_cast<voRFL::Database*>(0x1000);
  voSupport::InitializeReflectionMsg message(database);
  EXPECT_EQ(message.getDB(), database);
}

TEST(Priority, OrdersByUnitThenModule) {
  EXPECT_LT(voSupport::Priority(1, 0), voSupport::Priority(4, 0));
  EXPECT_LT(voSupport::Priority(10, 0), voSupport::Priority(10, 1));
  EXPECT_EQ(voSupport::Priority(10, 1), voSupport::Priority(10, 1));
}
