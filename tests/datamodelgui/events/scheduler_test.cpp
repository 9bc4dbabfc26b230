#include "datamodelgui/events/scheduler.h"

#include "tests/testhost/testhost.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <string>
#include <vector>

using namespace voEV;

namespace {

class FunctionSchedulerTest : public ::testing::Test {
protected:
  testhost::RecordingScheduler& scheduler() { return host.timers().anim(); }
  void pass() { scheduler().runPass(host.domain()); }

  // Makes a function that writes its name into `fired` when it runs.
  ScheduledFunction* make(const std::string& name) {
    ScheduledFunction* function = scheduler().createFunction();
    names[function] = name;
    function->sigExecute.addCallback([this, name](ScheduledFunction*) { fired.push_back(name); }, connections);
    return function;
  }

  // The names in the order the scheduler fires them: by address.
  std::vector<std::string> byAddress(std::vector<ScheduledFunction*> functions) {
    std::sort(functions.begin(), functions.end(), std::less<ScheduledFunction*>());
    std::vector<std::string> out;
    for (auto* function : functions) out.push_back(names[function]);
    return out;
  }

  testhost::TestHost host;
  std::vector<std::string> fired;
  std::map<ScheduledFunction*, std::string> names;
  ruRTB::SignalClient connections;
};

}  // namespace

TEST_F(FunctionSchedulerTest, TheFirstFunctionStartsExecutionBeforeItIsReturnedWithNoListenerYet) {
  int listenersAtStart = -1;
  EXPECT_EQ(scheduler().functionCount(), 0);
  auto* function = scheduler().createFunction();
  EXPECT_EQ(scheduler().calls(), (std::vector<std::string>{"start"}));
  EXPECT_TRUE(scheduler().isRunning());
  listenersAtStart = function->sigExecute.numConnections();
  EXPECT_EQ(listenersAtStart, 0);
  auto* second = scheduler().createFunction();
  EXPECT_EQ(scheduler().starts(), 1);
  EXPECT_EQ(scheduler().functionCount(), 2);
  delete function;
  EXPECT_EQ(scheduler().stops(), 0);
  delete second;
  EXPECT_EQ(scheduler().calls(), (std::vector<std::string>{"start", "stop"}));
  EXPECT_FALSE(scheduler().isRunning());
  EXPECT_EQ(host.timers().idle().starts(), 0);
}

TEST_F(FunctionSchedulerTest, EveryFunctionFiresOnEveryPassInOrderOfItsAddress) {
  std::vector<ScheduledFunction*> functions = {make("a"), make("b"), make("c"), make("d")};
  pass();
  EXPECT_EQ(fired, byAddress(functions));
  fired.clear();
  pass();
  EXPECT_EQ(fired, byAddress(functions));
  for (auto* function : functions) delete function;
}

TEST_F(FunctionSchedulerTest, AFunctionThatDeletesItselfDuringItsOwnSignalEndsNormallyAndGoesAtTheEndOfThePass) {
  auto* self = make("self");
  bool stillRegisteredAfterDelete = false;
  int executingAfterDelete = -1;
  self->sigExecute.addCallback(
      [&](ScheduledFunction* function) {
        delete function;
        stillRegisteredAfterDelete = scheduler().functionCount() == 1;
        executingAfterDelete = scheduler().isExecuting();
      },
      connections);
  pass();
  EXPECT_EQ(fired, (std::vector<std::string>{"self"}));
  EXPECT_TRUE(stillRegisteredAfterDelete);
  EXPECT_EQ(executingAfterDelete, 1);
  // It was the last: the pass erased it and stopped execution.
  EXPECT_EQ(scheduler().functionCount(), 0);
  EXPECT_EQ(scheduler().calls(), (std::vector<std::string>{"start", "stop"}));
  EXPECT_EQ(scheduler().functionCount(&host.domain()), 0);
}

TEST_F(FunctionSchedulerTest, AFunctionThatDeletesALaterOneErasesItAtOnceAndItDoesNotFire) {
  auto* a = make("a");
  auto* b = make("b");
  ScheduledFunction* first = std::min(a, b, std::less<ScheduledFunction*>());
  ScheduledFunction* later = std::max(a, b, std::less<ScheduledFunction*>());
  auto* keep = make("keep");
  first->sigExecute.addCallback(
      [&](ScheduledFunction*) {
        if (later) {
          delete later;
          later = nullptr;
          EXPECT_EQ(scheduler().functionCount(), 2);
        }
      },
      connections);
  const std::string laterName = names[later];
  pass();
  EXPECT_EQ(std::count(fired.begin(), fired.end(), laterName), 0);
  EXPECT_EQ(std::count(fired.begin(), fired.end(), names[first]), 1);
  EXPECT_EQ(std::count(fired.begin(), fired.end(), "keep"), 1);
  EXPECT_EQ(scheduler().functionCount(), 2);
  delete first;
  delete keep;
}

TEST_F(FunctionSchedulerTest, AFunctionCreatedDuringAPassFiresFromTheNextPassWhateverItsAddress) {
  auto* creator = make("creator");
  std::vector<ScheduledFunction*> created;
  creator->sigExecute.addCallback(
      [&](ScheduledFunction*) {
        // Many, so that some sit after the creator in address order.
        if (created.empty()) {
          for (int i = 0; i < 8; ++i) created.push_back(make("new"));
        }
      },
      connections);
  pass();
  EXPECT_EQ(fired, (std::vector<std::string>{"creator"}));
  EXPECT_EQ(scheduler().functionCount(), 9);
  fired.clear();
  pass();
  EXPECT_EQ(std::count(fired.begin(), fired.end(), "new"), 8);
  for (auto* function : created) delete function;
  delete creator;
}

TEST_F(FunctionSchedulerTest, APassOverADomainWithNoFunctionsDoesNothingAndLeavesAnEmptyEntry) {
  EXPECT_FALSE(scheduler().hasDomain(&host.domain()));
  pass();
  EXPECT_TRUE(scheduler().hasDomain(&host.domain()));
  EXPECT_EQ(scheduler().functionCount(&host.domain()), 0);
  EXPECT_TRUE(scheduler().calls().empty());
}

TEST_F(FunctionSchedulerTest, FunctionsBelongToTheDomainOfTheCallInWhichTheyWereMade) {
  auto* mine = make("mine");
  voSupport::Domain other;
  ScheduledFunction* theirs = nullptr;
  {
    voSupport::Context context(&other, voSupport::Context::Background);
    theirs = make("theirs");
  }
  EXPECT_EQ(scheduler().functionCount(&host.domain()), 1);
  EXPECT_EQ(scheduler().functionCount(&other), 1);
  pass();
  EXPECT_EQ(fired, (std::vector<std::string>{"mine"}));
  fired.clear();
  scheduler().runPass(other);
  EXPECT_EQ(fired, (std::vector<std::string>{"theirs"}));
  fired.clear();
  // Without a context, every domain with functions gets a pass, in address order of the domains.
  scheduler().runPassWithoutContext();
  EXPECT_EQ(fired.size(), 2u);
  {
    voSupport::Context context(&other, voSupport::Context::Background);
    delete theirs;
  }
  delete mine;
  EXPECT_EQ(scheduler().calls(), (std::vector<std::string>{"start", "stop"}));
}

TEST_F(FunctionSchedulerTest, APassWithoutContextRunsTheFunctionsWithNoContextOpenAndSkipsEmptyDomains) {
  auto* function = make("f");
  std::vector<int> openContexts;
  function->sigExecute.addCallback(
      [&](ScheduledFunction*) {
        openContexts.push_back(host.domain().openContexts());
        EXPECT_EQ(voSupport::Context::current(), nullptr);
      },
      connections);
  voSupport::Domain empty;
  scheduler().runPass(empty);  // leaves an empty entry, which the walk passes over
  scheduler().runPassWithoutContext();
  EXPECT_EQ(openContexts, (std::vector<int>{0}));
  EXPECT_EQ(fired, (std::vector<std::string>{"f"}));
  delete function;
}

TEST_F(FunctionSchedulerTest, ADeletionUnderAnotherDomainFindsNoEntryAndIsIgnored) {
  auto* function = make("f");
  voSupport::Domain other;
  {
    voSupport::Context context(&other, voSupport::Context::Background);
    delete function;
  }
  // The entry stays, and keeps the scheduler running.
  EXPECT_EQ(scheduler().functionCount(), 1);
  EXPECT_EQ(scheduler().functionCount(&host.domain()), 1);
  EXPECT_EQ(scheduler().stops(), 0);
}

TEST_F(FunctionSchedulerTest, AFunctionDeletedUnderAnotherDomainNeverRunsAgain) {
  auto* function = make("f");
  std::unique_ptr<ScheduledFunction> g(make("g"));
  voSupport::Domain other;
  {
    voSupport::Context context(&other, voSupport::Context::Background);
    delete function;
  }
  pass();
  pass();
  EXPECT_EQ(fired, (std::vector<std::string>{"g", "g"}));
}

TEST_F(FunctionSchedulerTest, AFunctionDeletingItselfInAPassWithoutContextIsErased) {
  voSupport::Domain other;
  ScheduledFunction* function = nullptr;
  {
    voSupport::Context context(&other, voSupport::Context::Background);
    function = scheduler().createFunction();
  }
  int runs = 0;
  ruRTB::SignalClient client;
  function->sigExecute.addCallback(
      [&](ScheduledFunction* self) {
        ++runs;
        delete self;
      },
      client);
  EXPECT_EQ(scheduler().functionCount(&other), 1);
  scheduler().runPassWithoutContext();
  EXPECT_EQ(runs, 1);
  EXPECT_EQ(scheduler().functionCount(&other), 0);
  scheduler().runPassWithoutContext();
  EXPECT_EQ(runs, 1);
}

TEST_F(FunctionSchedulerTest, ADestroyedDomainDropsItsEntryWithoutCountingItsFunctionsDown) {
  ScheduledFunction* orphan = nullptr;
  {
    voSupport::Domain other;
    voSupport::Context context(&other, voSupport::Context::Background);
    orphan = make("orphan");
    EXPECT_TRUE(scheduler().hasDomain(&other));
  }
  EXPECT_EQ(scheduler().functionCount(), 1);
  EXPECT_EQ(scheduler().calls(), (std::vector<std::string>{"start"}));
  // Deleting the orphan finds nothing to erase; stopExecution is never called for it.
  delete orphan;
  EXPECT_EQ(scheduler().functionCount(), 1);
  EXPECT_EQ(scheduler().stops(), 0);
}

TEST_F(FunctionSchedulerTest, AScheduledFunctionTellsItsListenersItIsGoingBeforeItsSignalsDie) {
  auto function = std::make_unique<ScheduledFunction>();
  std::vector<ScheduledFunction*> told;
  function->sigDestroying.addCallback([&](ScheduledFunction* f) { told.push_back(f); }, connections);
  ScheduledFunction* address = function.get();
  function.reset();
  EXPECT_EQ(told, (std::vector<ScheduledFunction*>{address}));
}

TEST(Timers, DeleteBothSchedulersWhenTheyGo) {
  struct CountingScheduler : FunctionScheduler {
    explicit CountingScheduler(int& deaths) : deaths_(deaths) {}
    ~CountingScheduler() override { ++deaths_; }
    void startExecution() override {}
    void stopExecution() override {}
    int& deaths_;
  };
  struct OwnTimers : Timers {
    OwnTimers(FunctionScheduler* a, FunctionScheduler* i) : Timers(a, i) {}
    Timer* onCreate(double) override { return nullptr; }
  };
  int deaths = 0;
  {
    auto* anim = new CountingScheduler(deaths);
    auto* idle = new CountingScheduler(deaths);
    OwnTimers timers(anim, idle);
    EXPECT_EQ(timers.animScheduler(), anim);
    EXPECT_EQ(timers.idleScheduler(), idle);
  }
  EXPECT_EQ(deaths, 2);
}
