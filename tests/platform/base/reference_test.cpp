#include "platform/base/reference.h"
#include "platform/base/threadcount.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace {

struct Counted : ru::ReferenceCount {
  explicit Counted(int* deathCount = nullptr) : deaths(deathCount) {}
  ~Counted() override {
    if (deaths) ++*deaths;
  }
  int* deaths;
};

struct Derived : Counted {
  using Counted::Counted;
  int extra = 7;
};

struct Unrelated : ru::ReferenceCount {};

// A pointee with its own virtual ref/unref and no ru::ReferenceCount base.
struct VirtualCounted {
  virtual ~VirtualCounted() = default;
  virtual void ref() const { ++refs; }
  virtual void unref() const {
    ++unrefs;
    if (--count == 0) delete this;
  }
  void bump() const { ++count; }
  mutable int count = 0;
  static inline int refs = 0;
  static inline int unrefs = 0;
};
struct VirtualCountedChild : VirtualCounted {
  void ref() const override {
    bump();
    VirtualCounted::ref();
  }
};

struct ProtectedDestructor : ru::ReferenceCount {
  static inline int deaths = 0;

protected:
  ~ProtectedDestructor() override { ++deaths; }
};

struct Atomic : ruThread::ReferenceCount {
  static inline int deaths = 0;
  ~Atomic() override { ++deaths; }
};

}  // namespace

TEST(ReferenceCount, StartsAtZero) {
  Counted object;
  EXPECT_EQ(object.refCount(), 0);
}

TEST(ReferenceCount, CopyStartsAtZeroAndAssignmentKeepsTargetCount) {
  ru::Reference<Counted> held(new Counted);
  Counted copy(*held);
  EXPECT_EQ(copy.refCount(), 0);
  ru::Reference<Counted> other(new Counted);
  ru::Reference<Counted> second = other;
  *other = *held;
  EXPECT_EQ(other->refCount(), 2);
  EXPECT_EQ(held->refCount(), 1);
}

TEST(Reference, LastReferenceDeletesTheObject) {
  int deaths = 0;
  {
    ru::Reference<Counted> a(new Counted(&deaths));
    EXPECT_EQ(a->refCount(), 1);
    {
      ru::Reference<Counted> b = a;
      EXPECT_EQ(a->refCount(), 2);
    }
    EXPECT_EQ(a->refCount(), 1);
    EXPECT_EQ(deaths, 0);
  }
  EXPECT_EQ(deaths, 1);
}

TEST(Reference, DefaultIsNullAndResetReleases) {
  int deaths = 0;
  ru::Reference<Counted> a;
  EXPECT_FALSE(a);
  EXPECT_EQ(a, nullptr);
  a = new Counted(&deaths);
  EXPECT_TRUE(a);
  a.reset();
  EXPECT_EQ(deaths, 1);
  EXPECT_FALSE(a);
}

TEST(Reference, DerivedConvertsToBaseAndSharesTheCount) {
  int deaths = 0;
  ru::Reference<Derived> derived(new Derived(&deaths));
  ru::Reference<Counted> base = derived;
  EXPECT_EQ(base->refCount(), 2);
  EXPECT_EQ(base, derived);
  derived.reset();
  EXPECT_EQ(deaths, 0);
  base.reset();
  EXPECT_EQ(deaths, 1);
}

TEST(Reference, MoveLeavesTheSourceNullWithoutTouchingTheCount) {
  ru::Reference<Derived> derived(new Derived);
  ru::Reference<Counted> moved(std::move(derived));
  EXPECT_FALSE(derived);
  EXPECT_EQ(moved->refCount(), 1);
  ru::Reference<Counted> target;
  target = std::move(moved);
  EXPECT_FALSE(moved);
  EXPECT_EQ(target->refCount(), 1);
}

TEST(Reference, SelfAssignmentKeepsTheObject) {
  int deaths = 0;
  ru::Reference<Counted> a(new Counted(&deaths));
  ru::Reference<Counted>& alias = a;
  a = alias;
  a = a.get();
  EXPECT_EQ(deaths, 0);
  EXPECT_EQ(a->refCount(), 1);
}

TEST(Reference, AssigningAnObjectOwnedOnlyThroughTheOldOneIsSafe) {
  struct Node : ru::ReferenceCount {
    ru::Reference<Node> next;
  };
  ru::Reference<Node> head(new Node);
  head->next = new Node;
  head = head->next;  // the old head owned the new one
  EXPECT_EQ(head->refCount(), 1);
}

TEST(Reference, ComparesByIdentityAndOrdersByPointer) {
  ru::Reference<Counted> a(new Counted), b(new Counted);
  ru::Reference<Counted> a2 = a;
  EXPECT_EQ(a, a2);
  EXPECT_NE(a, b);
  EXPECT_TRUE(a == a.get());
  EXPECT_TRUE(a.get() == a);
  EXPECT_TRUE(a != b.get());
  EXPECT_EQ(a < b, a.get() < b.get());
  EXPECT_EQ(b < a, b.get() < a.get());
}

TEST(Reference, DynamicCastGivesNullForTheWrongType) {
  ru::Reference<ru::ReferenceCount> base(new Derived);
  EXPECT_TRUE(ru::dynamicCast<Derived>(base));
  EXPECT_TRUE(ru::dynamicCast<Counted>(base));
  EXPECT_FALSE(ru::dynamicCast<Unrelated>(base));
  EXPECT_EQ(ru::dynamicCast<Derived>(base)->extra, 7);
  EXPECT_FALSE(ru::dynamicCast<Derived>(ru::Reference<ru::ReferenceCount>()));
}

TEST(Reference, CallsThePointeesOwnVirtualRefAndUnref) {
  VirtualCounted::refs = VirtualCounted::unrefs = 0;
  {
    ru::Reference<VirtualCounted> a(new VirtualCountedChild);
    ru::Reference<VirtualCounted> b = a;
    EXPECT_EQ(VirtualCounted::refs, 2);
    EXPECT_EQ(a->count, 2);
  }
  EXPECT_EQ(VirtualCounted::unrefs, 2);
}

TEST(Reference, ConstPointeeIsCounted) {
  int deaths = 0;
  {
    ru::Reference<const Counted> a(new Counted(&deaths));
    ru::Reference<Counted> b(new Counted(&deaths));
    ru::Reference<const Counted> c = b;
    EXPECT_EQ(c->refCount(), 2);
  }
  EXPECT_EQ(deaths, 2);
}

TEST(Reference, ObjectWithProtectedDestructorIsDeletedThroughTheBase) {
  ProtectedDestructor::deaths = 0;
  { ru::Reference<ProtectedDestructor> a(new ProtectedDestructor); }
  EXPECT_EQ(ProtectedDestructor::deaths, 1);
}

TEST(ThreadReferenceCount, CountsFromManyThreadsAndDeletesOnce) {
  Atomic::deaths = 0;
  {
    ru::Reference<Atomic> shared(new Atomic);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
      threads.emplace_back([shared] {
        for (int i = 0; i < 10000; ++i) {
          ru::Reference<Atomic> copy = shared;
        }
      });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(shared->refCount(), 1);
  }
  EXPECT_EQ(Atomic::deaths, 1);
}

TEST(ThreadReferenceCount, StartsAtZeroAndIsNotCopied) {
  ru::Reference<Atomic> a(new Atomic);
  Atomic copy(*a);
  EXPECT_EQ(copy.refCount(), 0);
  EXPECT_EQ(a->refCount(), 1);
}

TEST(ImplBase, DeletesTheImplementationThroughTheBase) {
  static int deaths = 0;
  struct Impl : ru::ImplBase {
    ~Impl() override { ++deaths; }
  };
  ru::ImplBase* impl = new Impl;
  delete impl;
  EXPECT_EQ(deaths, 1);
}
