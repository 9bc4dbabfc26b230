#include "datamodelgui/selection/selectionset.h"

#include "datamodelgui/draw/documentdraw.h"

#include "../docfixture.h"
#include "platform/support/callinfo.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <string>
#include <vector>

namespace {

using doctest::DocFixture;
using doctest::part;
using voDMG::ObjectSelection;
using voDMG::SelectionItem;
using voDMG::SelectionSet;

// Opens the protected batch interface, as a selector does.
class Batch : public SelectionSet {
public:
  using SelectionSet::erase;
  using SelectionSet::eraseAll;
  using SelectionSet::find;
  using SelectionSet::insert;
  using SelectionSet::lock;
  using SelectionSet::lockedClear;
  using SelectionSet::unlock;
};

// Records the three signals of a set in the order they come, with the changed items' count.
struct Recorder {
  explicit Recorder(SelectionSet& set) {
    set.sigModified.addCallback([this](SelectionSet*) { calls.push_back("modified"); }, client);
    set.sigModified2.addCallback([this](SelectionSet*) { calls.push_back("modified2"); }, client);
    set.sigMembershipChanged.addCallback(
        [this](const ru::set<SelectionItem>& items) {
          calls.push_back("membership");
          changed.push_back(std::vector<SelectionItem>(items.begin(), items.end()));
        },
        client);
  }
  ruRTB::SignalClient client;
  std::vector<std::string> calls;
  std::vector<std::vector<SelectionItem>> changed;
};

const std::vector<std::string> kOneEmission{"modified", "modified2", "membership"};

SelectionSet setOf(std::initializer_list<SelectionItem> items) {
  Batch set;
  for (const SelectionItem& item : items) set.insert(item);
  return SelectionSet(set);
}

class SelectionSetTest : public ::testing::Test {
protected:
  DocFixture doc;
  voDMD::Object* a = doc.addCuboid(ruLinear::Range3d(ruLinear::Point(0, 0, 0), ruLinear::Point(1, 1, 1)));
  voDMD::Object* b = doc.addCuboid(ruLinear::Range3d(ruLinear::Point(2, 0, 0), ruLinear::Point(3, 2, 1)));
  voDMD::Object* c = doc.addCuboid(ruLinear::Range3d(ruLinear::Point(-1, -1, -1), ruLinear::Point(0, 0, 0)));
};

TEST_F(SelectionSetTest, ItemConstructorsValidityAndSubItems) {
  SelectionItem none;
  EXPECT_FALSE(none.valid());
  EXPECT_FALSE(none.isSubItem());
  EXPECT_EQ(none.getObject(), nullptr);
  SelectionItem whole(a);
  EXPECT_TRUE(whole.valid());
  EXPECT_FALSE(whole.isSubItem());
  ru::Reference<ru::ReferenceCount> payload;
  SelectionItem sub(part(a, payload));
  EXPECT_TRUE(sub.valid());
  EXPECT_TRUE(sub.isSubItem());
  EXPECT_EQ(sub.getObject(), a);
  EXPECT_EQ(sub.getSubObject().payload(), payload.get());
  SelectionItem copy(sub);
  EXPECT_EQ(copy.compare(sub), 0);
}

TEST_F(SelectionSetTest, ItemsOrderByObjectThenWholeBeforeParts) {
  ru::Reference<ru::ReferenceCount> p1, p2;
  SelectionItem subA1(part(a, p1)), subA2(part(a, p2));
  SelectionItem wholeA(a), wholeB(b);
  const bool aFirst = reinterpret_cast<std::uintptr_t>(a) < reinterpret_cast<std::uintptr_t>(b);
  EXPECT_EQ(wholeA.compare(wholeB) < 0, aFirst);
  EXPECT_EQ(wholeB.compare(wholeA) < 0, !aFirst);
  EXPECT_LT(wholeA.compare(subA1), 0);
  EXPECT_GT(subA1.compare(wholeA), 0);
  EXPECT_EQ(wholeA.compare(SelectionItem(a)), 0);
  EXPECT_EQ(subA1.compare(subA2), subA1.getSubObject().compare(subA2.getSubObject()));
  EXPECT_NE(subA1.compare(subA2), 0);
  // A part of the smaller object sorts before the larger object's whole item.
  EXPECT_EQ(subA1.compare(wholeB) < 0, aFirst);
}

TEST_F(SelectionSetTest, DefaultConstructorTakesTheDocumentDrawOfTheCallInfo) {
  SelectionSet none;
  EXPECT_EQ(none.getDraw(), nullptr);
  voSupport::CallInfo info;
  auto* fake = reinterpret_cast<voDMG::DocumentDraw*>(&info);  // only compared, never used
  info.set<voDMG::DocumentDraw>(fake);
  voSupport::CallScope scope(info);
  SelectionSet set;
  EXPECT_EQ(set.getDraw(), fake);
  SelectionSet copy(set);
  EXPECT_EQ(copy.getDraw(), fake);
}

TEST_F(SelectionSetTest, ClearOfAnEmptySetEmitsNothing) {
  SelectionSet set;
  Recorder recorder(set);
  set.clear();
  EXPECT_TRUE(recorder.calls.empty());
}

TEST_F(SelectionSetTest, AddOfAnEmptySetEmitsAllThreeSignalsWithEmptyChangedItems) {
  SelectionSet set = setOf({a});
  Recorder recorder(set);
  set.add(SelectionSet());
  EXPECT_EQ(recorder.calls, kOneEmission);
  ASSERT_EQ(recorder.changed.size(), 1u);
  EXPECT_TRUE(recorder.changed[0].empty());
  EXPECT_EQ(set.items().size(), 1u);
}

TEST_F(SelectionSetTest, AddReportsOnlyTheNewMembers) {
  SelectionSet set = setOf({a});
  Recorder recorder(set);
  set.add(setOf({a, b}));
  EXPECT_EQ(recorder.calls, kOneEmission);
  ASSERT_EQ(recorder.changed[0].size(), 1u);
  EXPECT_EQ(recorder.changed[0][0].getObject(), b);
  EXPECT_EQ(set.items().size(), 2u);
}

TEST_F(SelectionSetTest, ClearReportsTheFormerMembers) {
  SelectionSet set = setOf({a, b});
  Recorder recorder(set);
  set.clear();
  EXPECT_TRUE(set.empty());
  EXPECT_EQ(recorder.calls, kOneEmission);
  EXPECT_EQ(recorder.changed[0].size(), 2u);
}

TEST_F(SelectionSetTest, ToggleReportsEveryItemOfTheOtherSet) {
  SelectionSet set = setOf({a, b});
  Recorder recorder(set);
  set.toggle(setOf({b, c}));
  ASSERT_EQ(recorder.changed.size(), 1u);
  EXPECT_EQ(recorder.changed[0].size(), 2u);  // b dropped, c added: both listed
  EXPECT_TRUE(set.items().count(SelectionItem(a)));
  EXPECT_FALSE(set.items().count(SelectionItem(b)));
  EXPECT_TRUE(set.items().count(SelectionItem(c)));
}

TEST_F(SelectionSetTest, RemoveOfASubsetReportsEmptyChangedItems) {
  SelectionSet set = setOf({a, b, c});
  Recorder recorder(set);
  set.remove(setOf({a, b}));
  EXPECT_EQ(recorder.calls, kOneEmission);
  EXPECT_TRUE(recorder.changed[0].empty());
  EXPECT_EQ(set.items().size(), 1u);
  EXPECT_TRUE(set.items().count(SelectionItem(c)));
}

TEST_F(SelectionSetTest, RemoveListsTheItemsOfTheOtherSetThatWereNotMembers) {
  SelectionSet set = setOf({a});
  Recorder recorder(set);
  set.remove(setOf({a, b}));
  ASSERT_EQ(recorder.changed[0].size(), 1u);
  EXPECT_EQ(recorder.changed[0][0].getObject(), b);
  EXPECT_TRUE(set.empty());
}

TEST_F(SelectionSetTest, ContainsOfAnEmptySetIsFalseAlsoForAnEmptyReceiver) {
  EXPECT_FALSE(SelectionSet().contains(SelectionSet()));
  EXPECT_FALSE(setOf({a}).contains(SelectionSet()));
  EXPECT_TRUE(setOf({a, b}).contains(setOf({a})));
  EXPECT_FALSE(setOf({a}).contains(setOf({a, b})));
  EXPECT_FALSE(setOf({a, b}).contains(setOf({c})));
}

TEST_F(SelectionSetTest, IntersectsAndEquivalent) {
  EXPECT_TRUE(setOf({a, b}).intersects(setOf({b, c})));
  EXPECT_FALSE(setOf({a}).intersects(setOf({b, c})));
  EXPECT_TRUE(SelectionSet().equivalent(SelectionSet()));
  EXPECT_TRUE(setOf({a, b}).equivalent(setOf({b, a})));
  EXPECT_FALSE(setOf({a, b}).equivalent(setOf({a, c})));
  EXPECT_FALSE(setOf({a}).equivalent(setOf({a, c})));
}

TEST_F(SelectionSetTest, TwoNestedBatchesEmitOnceAtTheOutermostUnlock) {
  Batch set;
  Recorder recorder(set);
  set.lock();
  set.insert(SelectionItem(a));
  set.lock();
  set.insert(SelectionItem(b));
  set.unlock();
  EXPECT_TRUE(recorder.calls.empty());
  set.unlock();
  EXPECT_EQ(recorder.calls, kOneEmission);
  EXPECT_EQ(recorder.changed[0].size(), 2u);
  // changedItems is empty afterwards: a next batch reports only its own change.
  set.lock();
  set.insert(SelectionItem(c));
  set.unlock();
  ASSERT_EQ(recorder.changed.size(), 2u);
  EXPECT_EQ(recorder.changed[1].size(), 1u);
}

TEST_F(SelectionSetTest, InsertOfAMemberIsStillReported) {
  Batch set;
  set.lock();
  set.insert(SelectionItem(a));
  set.unlock();
  Recorder recorder(set);
  set.lock();
  set.insert(SelectionItem(a));
  set.unlock();
  EXPECT_EQ(recorder.calls, kOneEmission);
  EXPECT_EQ(recorder.changed[0].size(), 1u);
}

TEST_F(SelectionSetTest, EraseAllRemovesTheRunOfOneObjectAndAnEmptyRunEmitsNothing) {
  ru::Reference<ru::ReferenceCount> p1, p2;
  Batch set;
  set.lock();
  set.insert(SelectionItem(a));
  set.insert(SelectionItem(part(a, p1)));
  set.insert(SelectionItem(part(a, p2)));
  set.insert(SelectionItem(b));
  set.unlock();
  Recorder recorder(set);
  set.lock();
  set.eraseAll(c);
  set.unlock();
  EXPECT_TRUE(recorder.calls.empty());
  set.lock();
  set.eraseAll(a);
  set.unlock();
  EXPECT_EQ(recorder.calls, kOneEmission);
  EXPECT_EQ(recorder.changed[0].size(), 3u);
  ASSERT_EQ(set.items().size(), 1u);
  EXPECT_EQ(set.items().begin()->getObject(), b);
}

TEST_F(SelectionSetTest, EraseAndLockedClearReportTheirItems) {
  Batch set;
  set.lock();
  set.insert(SelectionItem(a));
  set.insert(SelectionItem(b));
  set.unlock();
  Recorder recorder(set);
  set.lock();
  set.erase(set.find(SelectionItem(a)));
  set.unlock();
  ASSERT_EQ(recorder.changed.size(), 1u);
  ASSERT_EQ(recorder.changed[0].size(), 1u);
  EXPECT_EQ(recorder.changed[0][0].getObject(), a);
  set.lock();
  set.lockedClear();
  set.unlock();
  ASSERT_EQ(recorder.changed.size(), 2u);
  EXPECT_EQ(recorder.changed[1].size(), 1u);
  EXPECT_TRUE(set.empty());
}

TEST_F(SelectionSetTest, SwapReportsTheSameDifferenceOnBothSidesEvenWhenEqual) {
  SelectionSet left = setOf({a, b});
  SelectionSet right = setOf({b, c});
  Recorder leftRecorder(left), rightRecorder(right);
  left.swap(right);
  EXPECT_TRUE(left.items().count(SelectionItem(c)));
  EXPECT_TRUE(right.items().count(SelectionItem(a)));
  EXPECT_EQ(leftRecorder.calls, kOneEmission);
  EXPECT_EQ(rightRecorder.calls, kOneEmission);
  EXPECT_EQ(leftRecorder.changed[0].size(), 2u);
  EXPECT_EQ(rightRecorder.changed[0].size(), 2u);
  // Equal members: both still emit, with an empty difference.
  SelectionSet same = setOf({a, b});
  SelectionSet other = setOf({a, b});
  Recorder sameRecorder(same), otherRecorder(other);
  same.swap(other);
  EXPECT_EQ(sameRecorder.calls, kOneEmission);
  EXPECT_EQ(otherRecorder.calls, kOneEmission);
  EXPECT_TRUE(sameRecorder.changed[0].empty());
}

TEST_F(SelectionSetTest, AssignCopiesMembersAndEmitsTheDifference) {
  SelectionSet set = setOf({a});
  Recorder recorder(set);
  set.assign(setOf({b, c}));
  EXPECT_TRUE(set.equivalent(setOf({b, c})));
  EXPECT_EQ(recorder.calls, kOneEmission);
  EXPECT_EQ(recorder.changed[0].size(), 3u);
}

TEST_F(SelectionSetTest, SwapExchangesTheDocumentDrawsAndAssignTakesTheOthers) {
  voSupport::CallInfo info;
  // Only compared, never used.
  auto* first = reinterpret_cast<voDMG::DocumentDraw*>(&info);
  auto* second = reinterpret_cast<voDMG::DocumentDraw*>(&doc);
  info.set<voDMG::DocumentDraw>(first);
  std::unique_ptr<SelectionSet> left;
  {
    voSupport::CallScope scope(info);
    left = std::make_unique<SelectionSet>();
  }
  voSupport::CallInfo otherInfo;
  otherInfo.set<voDMG::DocumentDraw>(second);
  std::unique_ptr<SelectionSet> right;
  {
    voSupport::CallScope scope(otherInfo);
    right = std::make_unique<SelectionSet>();
  }
  ASSERT_EQ(left->getDraw(), first);
  ASSERT_EQ(right->getDraw(), second);
  left->swap(*right);
  EXPECT_EQ(left->getDraw(), second);
  EXPECT_EQ(right->getDraw(), first);
  SelectionSet plain;  // no document draw
  left->assign(plain);
  EXPECT_EQ(left->getDraw(), nullptr);
  EXPECT_EQ(plain.getDraw(), nullptr);
}

TEST_F(SelectionSetTest, ToggleAndClearInsideABatchReplaceWhatTheBatchListedSoFar) {
  Batch set;
  set.lock();
  set.insert(SelectionItem(a));
  set.unlock();
  Recorder recorder(set);
  // A held batch lists c, then a toggle replaces the list by the toggled set's items.
  set.lock();
  set.insert(SelectionItem(c));
  set.toggle(setOf({b}));
  set.unlock();
  ASSERT_EQ(recorder.changed.size(), 1u);
  EXPECT_EQ(recorder.changed[0], std::vector<SelectionItem>{SelectionItem(b)});
  // The same for clear: the former members replace what was listed.
  set.lock();
  set.toggle(setOf({b}));
  set.clear();
  set.unlock();
  ASSERT_EQ(recorder.changed.size(), 2u);
  std::vector<SelectionItem> members{SelectionItem(a), SelectionItem(c)};
  std::sort(members.begin(), members.end());
  EXPECT_EQ(recorder.changed[1], members);
  EXPECT_TRUE(set.empty());
}

TEST_F(SelectionSetTest, ACopyMadeDuringABatchHasNoConnectionsNoPendingItemsAndNoBatch) {
  Batch set;
  Recorder recorder(set);
  set.lock();
  set.insert(SelectionItem(a));
  SelectionSet copy(set);
  // Not locked: the copy's own change emits at once, and only its own item; the source's
  // listeners hear nothing of it.
  int copyEmissions = 0;
  std::vector<SelectionItem> copyChanged;
  ruRTB::SignalClient listener;
  copy.sigMembershipChanged.addCallback(
      [&](const ru::set<SelectionItem>& items) {
        ++copyEmissions;
        copyChanged.assign(items.begin(), items.end());
      },
      listener);
  copy.add(setOf({b}));
  EXPECT_EQ(copyEmissions, 1);
  EXPECT_EQ(copyChanged, std::vector<SelectionItem>{SelectionItem(b)});
  EXPECT_TRUE(recorder.calls.empty());
  EXPECT_EQ(copy.items().size(), 2u);
  set.unlock();
  EXPECT_EQ(recorder.calls, kOneEmission);
  EXPECT_EQ(recorder.changed[0], std::vector<SelectionItem>{SelectionItem(a)});
}

TEST_F(SelectionSetTest, AListenerThatChangesTheSetStartsANewBatchWhileTheListIsStillFull) {
  SelectionSet set = setOf({a});
  std::vector<std::string> calls;
  std::vector<std::vector<SelectionItem>> changed;
  ruRTB::SignalClient listener;
  bool once = true;
  set.sigModified.addCallback(
      [&](SelectionSet* self) {
        calls.push_back("modified");
        // From inside the first emission: a batch of its own, reported at once with the list of
        // the batch under way still in it.
        if (once) {
          once = false;
          self->add(setOf({c}));
        }
      },
      listener);
  set.sigMembershipChanged.addCallback(
      [&](const ru::set<SelectionItem>& items) {
        calls.push_back("membership");
        changed.emplace_back(items.begin(), items.end());
      },
      listener);
  set.add(setOf({b}));
  EXPECT_EQ(calls, (std::vector<std::string>{"modified", "modified", "membership", "membership"}));
  ASSERT_EQ(changed.size(), 2u);
  std::vector<SelectionItem> both{SelectionItem(b), SelectionItem(c)};
  std::sort(both.begin(), both.end());
  EXPECT_EQ(changed[0], both);
  // The inner emission emptied the list the outer one then reports.
  EXPECT_TRUE(changed[1].empty());
  EXPECT_EQ(set.items().size(), 3u);
}

TEST_F(SelectionSetTest, AWholeItemAndASubItemOfOneObjectAreTwoMembersAndOneUniqueObject) {
  ru::Reference<ru::ReferenceCount> payload;
  SelectionSet set = setOf({a, part(a, payload), b});
  EXPECT_EQ(set.items().size(), 3u);
  ObjectSelection view(set);
  EXPECT_EQ(view.numItems(), 3);
  EXPECT_EQ(view.numObjects(), 2);
  EXPECT_EQ(view.numUniqueObjects(), 2);
  ru::vector<voDMD::Object*> owners;
  view.subObjectOwners(owners);
  ASSERT_EQ(owners.size(), 1u);
  EXPECT_EQ(owners[0], a);
  ru::vector<voDMD::SubObject> parts;
  view.subObjects(a, parts);
  ASSERT_EQ(parts.size(), 1u);
  EXPECT_EQ(parts[0].payload(), payload.get());
  ru::vector<voDMD::Object*> unique;
  view.uniqueObjects(unique);
  EXPECT_EQ(unique.size(), 2u);
}

TEST_F(SelectionSetTest, FirstObjectOfOnlySubItemsIsNullWhileNumItemsIsPositive) {
  ru::Reference<ru::ReferenceCount> p1, p2;
  SelectionSet set = setOf({part(a, p1), part(b, p2)});
  ObjectSelection view(set);
  EXPECT_EQ(view.firstObject(), nullptr);
  EXPECT_EQ(view.numItems(), 2);
  EXPECT_EQ(view.numObjects(), 0);
  ru::vector<voDMD::Object*> objects;
  view.objects(objects);
  EXPECT_TRUE(objects.empty());
}

TEST_F(SelectionSetTest, ObjectSelectionDefaultsToTheSetOfTheCallInfo) {
  SelectionSet set = setOf({b});
  voSupport::CallInfo info;
  info.set<SelectionSet>(&set);
  voSupport::CallScope scope(info);
  ObjectSelection view;
  EXPECT_EQ(view.firstObject(), b);
}

TEST_F(SelectionSetTest, BoundingBoxOfAnEmptySetIsTheUnboundedRange) {
  const ruLinear::Range3d box = voDMG::getBoundingBox(SelectionSet());
  ruLinear::Range3d unbounded;
  unbounded.setUnbounded();
  EXPECT_EQ(box, unbounded);
  EXPECT_FALSE(box.isValid());
}

TEST_F(SelectionSetTest, BoundingBoxSpansTheItemsWorldBoxes) {
  const ruLinear::Range3d box = voDMG::getBoundingBox(setOf({a, b}));
  ruLinear::Range3d expected = doc.meshOf(a)->owner()->findAttribute<voDMD::BoundingBox>()->getWorldSpace();
  expected.include(b->findAttribute<voDMD::BoundingBox>()->getWorldSpace());
  EXPECT_EQ(box, expected);
  EXPECT_DOUBLE_EQ(box.getMin(0), 0.0);
  EXPECT_DOUBLE_EQ(box.getMax(0), 3.0);
  EXPECT_DOUBLE_EQ(box.getMax(1), 2.0);
  ru::Reference<ru::ReferenceCount> payload;
  const voDMD::SubObject sub = part(c, payload);
  EXPECT_EQ(voDMG::getBoundingBox(setOf({sub})), c->findAttribute<voDMD::BoundingBox>()->getWorldSpace(sub));
}

TEST_F(SelectionSetTest, OrientedBoxOfTwoItemsIsAxisAlignedEvenIfEachObjectIsRotated) {
  ruLinear::AffineMatrix turn;
  turn.rotate(0.5, ruLinear::Vector(0, 0, 1));
  voDMD::Object* r1 = doc.addCuboid(ruLinear::Range3d(ruLinear::Point(0, 0, 0), ruLinear::Point(2, 1, 1)), turn);
  voDMD::Object* r2 = doc.addCuboid(ruLinear::Range3d(ruLinear::Point(3, 0, 0), ruLinear::Point(4, 1, 1)), turn);
  voSupport::CallInfo info;
  info.set<voDMD::Document>(&doc.document);
  voSupport::CallScope scope(info);
  const ruGeom::OrientedBox two = voDMG::getOrientedBox(setOf({r1, r2}));
  for (int axis = 0; axis < 3; ++axis) {
    const ruLinear::Vector edge = two.getAxis(axis);
    int nonZero = 0;
    for (int k = 0; k < 3; ++k) nonZero += std::abs(edge[k]) > 1e-12 ? 1 : 0;
    EXPECT_LE(nonZero, 1) << "axis " << axis;
  }
  // One item: the object's own oriented box, which is turned with it.
  const ruGeom::OrientedBox one = voDMG::getOrientedBox(setOf({r1}));
  const ruGeom::OrientedBox expected =
      r1->findAttribute<voDMD::BoundingBox>()->getOrientedWorldSpace(doc.document.getToleranceTable());
  EXPECT_NEAR(one.getAxis(0)[1], expected.getAxis(0)[1], 1e-12);
  EXPECT_GT(std::abs(one.getAxis(0)[1]), 0.1);
}

}  // namespace
