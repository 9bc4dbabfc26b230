#include "datamodelgui/events/initialize.h"

#include "platform/support/broadcaster.h"
#include "platform/support/callinfo.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

TEST(EventsInitialize, SubscribesTheReflectionHandlerOnceAtPriorityOneZeroAndAgainAfterAReset) {
  voSupport::Broadcaster broadcaster;
  voSupport::CallInfo info;
  info.set<voSupport::Broadcaster>(&broadcaster);
  voSupport::CallScope scope(info);

  std::vector<std::string> order;
  broadcaster.addHandler<voSupport::InitializeReflectionMsg>(
      voSupport::Priority(1, 1), [&](voSupport::InitializeReflectionMsg&) { order.push_back("after"); });
  broadcaster.addHandler<voSupport::InitializeReflectionMsg>(
      voSupport::Priority(0, 9), [&](voSupport::InitializeReflectionMsg&) { order.push_back("before"); });

  ASSERT_TRUE(voEV::isFirstInitialization());
  voEV::initialize();
  EXPECT_FALSE(voEV::isFirstInitialization());
  EXPECT_EQ(broadcaster.numHandlers(typeid(voSupport::InitializeReflectionMsg)), 3u);
  voEV::initialize();  // not again
  EXPECT_EQ(broadcaster.numHandlers(typeid(voSupport::InitializeReflectionMsg)), 3u);

  // The handler registers nothing yet, and runs between the two others.
  voSupport::InitializeReflectionMsg message(nullptr);
  broadcaster.broadcast(message);
  EXPECT_EQ(order, (std::vector<std::string>{"before", "after"}));

  broadcaster.reset();
  EXPECT_TRUE(voEV::isFirstInitialization());
  voEV::initialize();
  EXPECT_EQ(broadcaster.numHandlers(typeid(voSupport::InitializeReflectionMsg)), 1u);
  broadcaster.reset();
}

TEST(EventsInitialize, WithoutABroadcasterInTheCallInfoNothingIsSubscribed) {
  voSupport::CallInfo empty;
  voSupport::CallScope scope(empty);
  const bool before = voEV::isFirstInitialization();
  voEV::initialize();
  EXPECT_EQ(voEV::isFirstInitialization(), before);
}
