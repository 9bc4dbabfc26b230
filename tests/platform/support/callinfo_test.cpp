#include "platform/support/callinfo.h"

#include <gtest/gtest.h>

#include <vector>

namespace {
struct Alpha {
  int value = 1;
};
struct Beta {};
struct DerivedAlpha : Alpha {};
}  // namespace

TEST(CallInfo, FindsByExactTypeAndMissGivesNull) {
  voSupport::CallInfo info;
  Alpha alpha;
  DerivedAlpha derived;
  info.set(&alpha);
  EXPECT_EQ(info.find<Alpha>(), &alpha);
  EXPECT_EQ(info.find<Beta>(), nullptr);
  EXPECT_EQ(info.find<DerivedAlpha>(), nullptr);  // no derivation test
  info.set(&derived);
  EXPECT_EQ(info.find<DerivedAlpha>(), &derived);
  EXPECT_EQ(info.find<Alpha>(), &alpha);
}

TEST(CallInfo, EntryUnderABaseTypeIsFoundOnlyUnderThatType) {
  voSupport::CallInfo info;
  DerivedAlpha derived;
  info.set<Alpha>(&derived);
  EXPECT_EQ(info.find<Alpha>(), &derived);
  EXPECT_EQ(info.find<DerivedAlpha>(), nullptr);
}

TEST(CallInfo, SetReplacesTheEntryOfTheSameType) {
  voSupport::CallInfo info;
  Alpha a, b;
  info.set(&a);
  info.set(&b);
  EXPECT_EQ(info.size(), 1u);
  EXPECT_EQ(info.find<Alpha>(), &b);
  info.remove<Alpha>();
  EXPECT_EQ(info.find<Alpha>(), nullptr);
}

TEST(CallInfo, InnermostScopeAnswersAndScopesNest) {
  voSupport::CallInfo outer, inner;
  Alpha a1, a2;
  Beta b;
  outer.set(&a1);
  outer.set(&b);
  inner.set(&a2);
  {
    voSupport::CallScope scopeOuter(outer);
    EXPECT_EQ(voSupport::ci().find<Alpha>(), &a1);
    {
      voSupport::CallScope scopeInner(inner);
      EXPECT_EQ(voSupport::ci().find<Alpha>(), &a2);
      EXPECT_EQ(voSupport::ci().find<Beta>(), nullptr);  // tables do not chain
    }
    EXPECT_EQ(voSupport::ci().find<Alpha>(), &a1);
  }
  EXPECT_EQ(voSupport::ci().find<Alpha>(), nullptr);
}

TEST(CallInfo, CallInfoScopeIsTheSameScope) {
  voSupport::CallInfo info;
  Alpha alpha;
  info.set(&alpha);
  {
    voSupport::CallInfoScope scope(info);
    EXPECT_EQ(voSupport::ci().find<Alpha>(), &alpha);
  }
  EXPECT_EQ(voSupport::ci().find<Alpha>(), nullptr);
}

TEST(CallInfo, WithNoScopeTheProcessTableAnswers) {
  EXPECT_EQ(voSupport::ci().find<Beta>(), nullptr);
  Beta b;
  voSupport::ci().set(&b);
  EXPECT_EQ(voSupport::ci().find<Beta>(), &b);
  voSupport::ci().remove<Beta>();
  EXPECT_EQ(voSupport::ci().find<Beta>(), nullptr);
}

TEST(Domain, EntersItselfInItsOwnTable) {
  voSupport::Domain domain;
  EXPECT_EQ(domain.callInfo().find<voSupport::Domain>(), &domain);
}

TEST(Domain, EmitsItsDestroyingSignalBeforeItDies) {
  voSupport::Domain* seen = nullptr;
  bool tableAlive = false;
  auto* domain = new voSupport::Domain;
  domain->sigDestroying.addCallback([&](voSupport::Domain* dying) {
    seen = dying;
    tableAlive = dying->callInfo().find<voSupport::Domain>() == dying;
  });
  delete domain;
  EXPECT_EQ(seen, domain);
  EXPECT_TRUE(tableAlive);
}

TEST(Context, PushesTheDomainsTableAndTellsTheMode) {
  voSupport::Domain domain;
  Alpha alpha;
  domain.callInfo().set(&alpha);
  EXPECT_EQ(voSupport::Context::current(), nullptr);
  {
    voSupport::Context context(&domain, voSupport::Context::Hover);
    EXPECT_EQ(voSupport::ci().find<voSupport::Domain>(), &domain);
    EXPECT_EQ(voSupport::ci().find<Alpha>(), &alpha);
    EXPECT_EQ(voSupport::Context::current(), &context);
    EXPECT_EQ(voSupport::Context::current()->mode(), 6);
  }
  EXPECT_EQ(voSupport::ci().find<voSupport::Domain>(), nullptr);
  EXPECT_EQ(voSupport::Context::current(), nullptr);
}

TEST(Context, ModeValuesAreTheFixedNumbers) {
  EXPECT_EQ(voSupport::Context::StartBatch, 0);
  EXPECT_EQ(voSupport::Context::ProgressEvent, 1);
  EXPECT_EQ(voSupport::Context::FinishBatch, 2);
  EXPECT_EQ(voSupport::Context::KeyOrWheel, 3);
  EXPECT_EQ(voSupport::Context::Motion, 4);
  EXPECT_EQ(voSupport::Context::Hover, 6);
}

TEST(Context, ModeMayBeGivenByItsNumber) {
  voSupport::Domain domain;
  {
    voSupport::Context context(&domain, 4);
    EXPECT_EQ(voSupport::Context::current(), &context);
    EXPECT_EQ(context.mode(), voSupport::Context::Motion);
    EXPECT_EQ(voSupport::ci().find<voSupport::Domain>(), &domain);
    voSupport::Context inner(&domain, 0);
    EXPECT_EQ(inner.mode(), voSupport::Context::StartBatch);
  }
  EXPECT_EQ(voSupport::Context::current(), nullptr);
}

TEST(Context, NullDomainOpensNothing) {
  voSupport::CallInfo info;
  Alpha alpha;
  info.set(&alpha);
  voSupport::CallScope scope(info);
  voSupport::Context context(nullptr, voSupport::Context::Motion);
  EXPECT_EQ(voSupport::ci().find<Alpha>(), &alpha);
  EXPECT_EQ(voSupport::Context::current()->mode(), voSupport::Context::Motion);
}

TEST(Context, ClosingWorkRunsWhenTheOutermostContextCloses) {
  voSupport::Domain domain;
  std::vector<int> done;
  {
    voSupport::Context outer(&domain, voSupport::Context::StartBatch);
    {
      voSupport::Context inner(&domain, voSupport::Context::ProgressEvent);
      domain.addClosingWork([&] { done.push_back(1); });
      EXPECT_EQ(domain.openContexts(), 2);
    }
    EXPECT_TRUE(done.empty());
  }
  EXPECT_EQ(done, std::vector<int>{1});
  domain.addClosingWork([&] { done.push_back(2); });  // no context open: at once
  EXPECT_EQ(done, (std::vector<int>{1, 2}));
}

TEST(Context, OpenAndCloseAtOnceRunsQueuedClosingWork) {
  voSupport::Domain domain;
  int runs = 0;
  {
    voSupport::Context context(&domain, voSupport::Context::Motion);
    domain.addClosingWork([&] {
      ++runs;
      // Work added by closing work runs in the same round.
      domain.addClosingWork([&] { ++runs; });
    });
  }
  EXPECT_EQ(runs, 2);
}

TEST(Domain, HostEntriesAreFoundInsideAndOutsideContexts) {
  voSupport::Domain domain;
  Alpha alpha;
  domain.callInfo().set(&alpha);
  voSupport::CallScope scope(domain.callInfo());
  EXPECT_EQ(voSupport::ci().find<Alpha>(), &alpha);
  voSupport::Context context(&domain, voSupport::Context::KeyOrWheel);
  EXPECT_EQ(voSupport::ci().find<Alpha>(), &alpha);
}
