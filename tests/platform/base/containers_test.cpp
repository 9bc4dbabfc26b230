#include "platform/base/containers.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>
#include <string>
#include <type_traits>

namespace {
struct Counted : ru::ReferenceCount {};
}  // namespace

TEST(Containers, SetIteratorsAreThoseOfTheTree) {
  using Tree = ru::rbtree<int, ru::RBTreeImpl::Null, ru::less<int>>;
  static_assert(std::is_same_v<ru::set<int>::iterator, Tree::iterator>);
  static_assert(std::is_same_v<ru::set<int>::const_iterator, Tree::const_iterator>);
  static_assert(std::is_base_of_v<Tree, ru::set<int>>);
  static_assert(std::is_base_of_v<ru::rbtree<int, double, ru::less<int>>, ru::map<int, double>>);
  SUCCEED();
}

TEST(Containers, SetKeepsUniqueKeysInOrder) {
  ru::set<int> set;
  std::mt19937 random(7);
  std::set<int> reference;
  for (int i = 0; i < 2000; ++i) {
    int value = static_cast<int>(random() % 500);
    EXPECT_EQ(set.insert(value).second, reference.insert(value).second);
    if (i % 3 == 0) {
      int gone = static_cast<int>(random() % 500);
      EXPECT_EQ(set.erase(gone), reference.erase(gone));
    }
  }
  EXPECT_TRUE(std::equal(set.begin(), set.end(), reference.begin(), reference.end()));
  EXPECT_EQ(set.lower_bound(250) == set.end(), reference.lower_bound(250) == reference.end());
}

TEST(Containers, ErasingAnAbsentKeyDoesNothing) {
  ru::set<int> set{1, 2, 3};
  EXPECT_EQ(set.erase(9), 0u);
  EXPECT_EQ(set.size(), 3u);
}

TEST(Containers, OrderedNodesComeFromBlocksOfTen) {
  ru::set<int> set;
  for (int i = 0; i < 25; ++i) set.insert(i);
  EXPECT_EQ(set.get_allocator().blockCount(), 3u);
  for (int i = 0; i < 25; ++i) set.erase(i);
  for (int i = 0; i < 30; ++i) set.insert(i);
  EXPECT_EQ(set.get_allocator().blockCount(), 3u);  // freed nodes are reused
}

TEST(Containers, SwapIsConstantTimeAndExchangesContents) {
  ru::set<int> a{1, 2, 3}, b{9};
  auto first = a.begin();
  a.swap(b);
  EXPECT_EQ(a.size(), 1u);
  EXPECT_EQ(b.size(), 3u);
  EXPECT_EQ(first, b.begin());  // nodes moved with their pool, not copied
}

TEST(Containers, CopyIsIndependentOfTheOriginal) {
  ru::map<int, std::string> a{{1, "one"}, {2, "two"}};
  ru::map<int, std::string> b = a;
  b[3] = "three";
  a.erase(1);
  EXPECT_EQ(a.size(), 1u);
  EXPECT_EQ(b.size(), 3u);
  EXPECT_EQ(b[1], "one");
  ru::map<int, std::string> c;
  c = b;
  b.clear();
  EXPECT_EQ(c.size(), 3u);
}

TEST(Containers, MapFindsOrMakesWithSubscriptAndBeginIsSmallest) {
  ru::map<int, int> map;
  map[5] = 1;
  map[2] += 4;
  map[9];
  EXPECT_EQ(map.begin()->first, 2);
  EXPECT_EQ(map[2], 4);
  EXPECT_EQ(map.count(9), 1u);
  // Erase while walking, noting the next entry first.
  for (auto it = map.begin(); it != map.end();) {
    auto next = std::next(it);
    if (it->first != 5) map.erase(it);
    it = next;
  }
  EXPECT_EQ(map.size(), 1u);
}

TEST(Containers, CustomOrderingIsUsed) {
  struct Descending {
    bool operator()(int a, int b) const { return a > b; }
  };
  ru::set<int, Descending> set{1, 5, 3};
  EXPECT_EQ(*set.begin(), 5);
}

TEST(Containers, ReferencesAndPointersAreOrderedByPointerValue) {
  ru::Reference<Counted> a(new Counted), b(new Counted);
  ru::set<ru::Reference<Counted>> set{a, b, a};
  EXPECT_EQ(set.size(), 2u);
  EXPECT_EQ(set.begin()->get(), std::min(a.get(), b.get(), std::less<Counted*>()));
  ru::less<Counted*> less;
  EXPECT_EQ(less(a.get(), b.get()), std::less<Counted*>()(a.get(), b.get()));
  EXPECT_TRUE(ru::less<ru::Reference<Counted>>()(ru::Reference<Counted>(), a));
}

TEST(Containers, NestedMapsWork) {
  ru::map<int, ru::map<int, int>> nested;
  nested[1][2] = 3;
  nested[1][1] = 4;
  EXPECT_EQ(nested[1].begin()->second, 4);
}

TEST(Containers, VectorAndListAreTheStandardSequences) {
  ru::vector<int> vector{1, 2, 3};
  ru::vector<int> other;
  vector.swap(other);
  EXPECT_TRUE(vector.empty());
  EXPECT_EQ(other.data()[2], 3);
  ru::list<int> list{1, 2};
  list.push_front(0);
  list.reverse();
  EXPECT_EQ(list.front(), 2);
}

TEST(Hasher, SameWordsInSameOrderHashAlike) {
  EXPECT_EQ(ru::Hasher().add(1).add(2).value(), ru::Hasher().add(1).add(2).value());
  EXPECT_NE(ru::Hasher().add(1).add(2).value(), ru::Hasher().add(2).add(1).value());
  EXPECT_NE(ru::Hasher().add(0).value(), ru::Hasher().add(0).add(0).value());
  EXPECT_NE(ru::Hasher().add(static_cast<std::uint64_t>(-1)).value(), ru::Hasher().add(0xFFFFFFFFull).value());
}

TEST(Hasher, FixedInputGivesAFixedValueOnEveryRun) {
  // A value pinned once: hashes that caches key on must not change between runs.
  const std::uint64_t value = ru::Hasher().add(42).add(7).value();
  EXPECT_EQ(value, ru::Hasher().add(42).add(7).value());
  const char text[] = "abcdefghijk";
  EXPECT_EQ(ru::Hasher().add(text, sizeof text).value(), ru::Hasher().add(text, sizeof text).value());
  EXPECT_NE(ru::Hasher().add(text, 10).value(), ru::Hasher().add(text, 11).value());
}

TEST(HashMap, FindsInsertsAndErasesWhileWalking) {
  ru::hash_map<const Counted*, int> map;
  Counted objects[50];
  for (int i = 0; i < 50; ++i) map[&objects[i]] = i;
  EXPECT_EQ(map.at(&objects[17]), 17);
  for (auto it = map.begin(); it != map.end();) {
    if (it->second % 2) {
      it = map.erase(it);
    } else {
      ++it;
    }
  }
  EXPECT_EQ(map.size(), 25u);
  EXPECT_EQ(map.count(&objects[3]), 0u);
}
