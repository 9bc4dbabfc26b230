#include "datamodelgui/selection/selector.h"

#include "hitfixture.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

using doctest::part;
using hittest::box;
using hittest::itemsOf;
using hittest::setOf;
using voDMG::ObjectSelector;
using voDMG::RawSelector;
using voDMG::SelectionItem;
using voDMG::SelectionSet;

// Records the three signals of a set in order, with the changed items of each membership signal.
struct Recorder {
  explicit Recorder(SelectionSet& set) {
    set.sigModified.addCallback([this](SelectionSet*) { calls.push_back("modified"); }, client);
    set.sigModified2.addCallback([this](SelectionSet*) { calls.push_back("modified2"); }, client);
    set.sigMembershipChanged.addCallback(
        [this](const ru::set<SelectionItem>& items) {
          calls.push_back("membership");
          changed.emplace_back(items.begin(), items.end());
        },
        client);
  }
  ruRTB::SignalClient client;
  std::vector<std::string> calls;
  std::vector<std::vector<SelectionItem>> changed;
};

const std::vector<std::string> kOneEmission{"modified", "modified2", "membership"};

// A drawing object without parts (the base's onGetSubObjectItem).
class NoPartsDraw : public voDMG::ObjectDraw {
public:
  NoPartsDraw(voDMG::DocumentDraw* documentDraw, voDMD::Object* object) : ObjectDraw(documentDraw, object) {}

protected:
  void onDraw(voGR::DrawContext& context, voDMG::SelectionIterator, voDMG::SelectionIterator, voDMG::SelectionIterator,
              voDMG::SelectionIterator, ru::Reference<voGR::DrawPolicy>) override {
    voGR::Draw draw(context, this, false);
    ru::Reference<ruGeom::CompactMesh> mesh = new ruGeom::CompactMesh();
    ruGeom::constructCuboid(box(-3, -1, -1, -1, 1, 1), *mesh);
    draw.setMesh(mesh);
    draw.setSubItem(true);
    draw.emit();
  }
};

class SelectorGLTest : public ::testing::Test, public hittest::HitFixture {
protected:
  void twoCubes() {
    a = doc.addCuboid(box(-3, -1, -1, -1, 1, 1));
    b = doc.addCuboid(box(1, -1, -1, 3, 1, 1));
    documentDraw->draw();
  }
  // The records under a world point, as the graphics library gives them.
  ru::vector<voGR::HitRecord> recordsAt(const ruLinear::Point& world) const {
    ru::vector<voGR::HitRecord> records;
    voGR::visibilityTest(*scene.system, camera, pixelOf(world), voGR::HitTestConfig(), records);
    return records;
  }
  ru::vector<voGR::HitRecord> overA() const { return recordsAt(ruLinear::Point(-2, -1, 0)); }
  ru::vector<voGR::HitRecord> overB() const { return recordsAt(ruLinear::Point(2, -1, 0)); }

  voDMD::Object* a = nullptr;
  voDMD::Object* b = nullptr;
};

TEST_F(SelectorGLTest, AddTurnsRecordsIntoItemsAndEmitsOnceAtTheEndOfTheScope) {
  twoCubes();
  Recorder recorder(selection);
  {
    RawSelector selector(selection);
    selector.add(overA());
    selector.add(overB());
    EXPECT_EQ(selection.items().size(), 2u);
    EXPECT_TRUE(recorder.calls.empty());
  }
  EXPECT_EQ(recorder.calls, kOneEmission);
  std::vector<SelectionItem> both{SelectionItem(a), SelectionItem(b)};
  std::sort(both.begin(), both.end());
  EXPECT_EQ(itemsOf(selection), both);
  EXPECT_EQ(recorder.changed[0], both);
}

TEST_F(SelectorGLTest, AnEmptyRecordVectorChangesNothingAndTheSelectorEmitsNothing) {
  twoCubes();
  selection.add(setOf({a}));
  Recorder recorder(selection);
  {
    RawSelector selector(selection);
    selector.add({});
    selector.remove({});
  }
  EXPECT_TRUE(recorder.calls.empty());
  EXPECT_EQ(itemsOf(selection), std::vector<SelectionItem>{SelectionItem(a)});
  // Unless something else in the batch set modified.
  {
    RawSelector selector(selection);
    selector.add({});
    ObjectSelector(selection).add(a);
  }
  EXPECT_EQ(recorder.calls, kOneEmission);
}

TEST_F(SelectorGLTest, SetWithAnEmptyVectorOnANonEmptySetEmptiesItAndEmitsOnce) {
  twoCubes();
  selection.add(setOf({a, b}));
  const std::vector<SelectionItem> former = itemsOf(selection);
  Recorder recorder(selection);
  { RawSelector(selection).set({}); }
  EXPECT_TRUE(selection.empty());
  EXPECT_EQ(recorder.calls, kOneEmission);
  EXPECT_EQ(recorder.changed[0], former);
}

TEST_F(SelectorGLTest, SetReplacesTheMembersWithTheRecordsItems) {
  twoCubes();
  selection.add(setOf({a}));
  { RawSelector(selection).set(overB()); }
  EXPECT_EQ(itemsOf(selection), std::vector<SelectionItem>{SelectionItem(b)});
}

TEST_F(SelectorGLTest, AddWithARecordAlreadyAMemberStillEmitsWithThatItem) {
  twoCubes();
  selection.add(setOf({a}));
  Recorder recorder(selection);
  { RawSelector(selection).add(overA()); }
  EXPECT_EQ(itemsOf(selection), std::vector<SelectionItem>{SelectionItem(a)});
  EXPECT_EQ(recorder.calls, kOneEmission);
  EXPECT_EQ(recorder.changed[0], std::vector<SelectionItem>{SelectionItem(a)});
}

TEST_F(SelectorGLTest, ASubObjectHitForADrawWithoutSubObjectsAddsNothing) {
  voDMD::Object* plain = doc.addGroup();
  documentDraw->update();
  documentDraw->setDraw(plain, new NoPartsDraw(documentDraw, plain));
  documentDraw->draw();
  const auto records = recordsAt(ruLinear::Point(-2, -1, 0));
  ASSERT_EQ(records.size(), 1u);
  ASSERT_TRUE(records[0].subObject);
  Recorder recorder(selection);
  { RawSelector(selection).add(records); }
  EXPECT_TRUE(selection.empty());
  EXPECT_TRUE(recorder.calls.empty());
  // The same hit as a whole-object hit names the object.
  auto whole = records;
  whole[0].subObject = false;
  { RawSelector(selection).add(whole); }
  EXPECT_EQ(itemsOf(selection), std::vector<SelectionItem>{SelectionItem(plain)});
}

TEST_F(SelectorGLTest, RemoveWithAHitOnASubItemRemovesAlsoTheWholeObjectItem) {
  twoCubes();
  ru::Reference<ru::ReferenceCount> keep;
  const voDMD::SubObject sub = part(a, keep);
  selection.add(setOf({a, sub, b}));
  const auto records = overA();
  ASSERT_FALSE(records.empty());
  ASSERT_TRUE(records[0].subObject);
  Recorder recorder(selection);
  { RawSelector(selection).remove(records); }
  EXPECT_EQ(itemsOf(selection), std::vector<SelectionItem>{SelectionItem(b)});
  EXPECT_EQ(recorder.calls, kOneEmission);
  EXPECT_EQ(recorder.changed[0], (std::vector<SelectionItem>{SelectionItem(a), SelectionItem(sub)}));
}

TEST_F(SelectorGLTest, RecordsOfAnotherSubsystemAreSkipped) {
  twoCubes();
  drawForeignCube(box(-0.5, -5, 1.2, 0.5, -4, 1.8));
  const auto records = recordsAt(ruLinear::Point(0, -5, 1.5));
  ASSERT_EQ(records.size(), 1u);
  EXPECT_NE(records[0].id, documentDraw->getID());
  selection.add(setOf({a}));
  {
    RawSelector selector(selection);
    selector.add(records);
    selector.remove(records);
  }
  EXPECT_EQ(itemsOf(selection), std::vector<SelectionItem>{SelectionItem(a)});
}

TEST_F(SelectorGLTest, ARecordWithoutADrawingObjectIsSkipped) {
  twoCubes();
  voGR::HitRecord stray;
  stray.id = documentDraw->getID();
  stray.owner = nullptr;
  selection.add(setOf({a}));
  Recorder recorder(selection);
  {
    RawSelector selector(selection);
    selector.add({stray});
    selector.remove({stray});
  }
  EXPECT_EQ(itemsOf(selection), std::vector<SelectionItem>{SelectionItem(a)});
  EXPECT_TRUE(recorder.calls.empty());
}

TEST_F(SelectorGLTest, ObjectSelectorAddsObjectsPartsAndListsOnTheCallInfosSet) {
  twoCubes();
  ru::Reference<ru::ReferenceCount> keep;
  const voDMD::SubObject sub = part(b, keep);
  Recorder recorder(selection);
  {
    ObjectSelector selector;
    selector.add(sub);
    selector.add(ru::vector<voDMD::Object*>{b, a});
  }
  std::vector<SelectionItem> expected{SelectionItem(a), SelectionItem(b), SelectionItem(sub)};
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(itemsOf(selection), expected);
  EXPECT_EQ(recorder.calls, kOneEmission);
}

TEST_F(SelectorGLTest, ObjectSelectorAddsANullObjectUncheckedAsTheFirstItem) {
  twoCubes();
  { ObjectSelector(selection).add(a); }
  { ObjectSelector(selection).add(static_cast<voDMD::Object*>(nullptr)); }
  ASSERT_EQ(selection.items().size(), 2u);
  EXPECT_FALSE(selection.items().begin()->valid());
}

TEST_F(SelectorGLTest, NestedSelectorsOnOneSetEmitOnceWhenTheOuterEnds) {
  twoCubes();
  Recorder recorder(selection);
  {
    ObjectSelector outer(selection);
    outer.add(a);
    { RawSelector(selection).add(overB()); }
    EXPECT_TRUE(recorder.calls.empty());
  }
  EXPECT_EQ(recorder.calls, kOneEmission);
  EXPECT_EQ(selection.items().size(), 2u);
}

TEST_F(SelectorGLTest, ACopyTakesNoLockButUnlocksWhenItEnds) {
  twoCubes();
  Recorder recorder(selection);
  {
    ObjectSelector selector(selection);
    selector.add(a);
    { ObjectSelector copy(selector); }
    // The copy's end closed the batch the original opened.
    EXPECT_EQ(recorder.calls, kOneEmission);
  }
  EXPECT_EQ(recorder.calls, kOneEmission);
}

TEST_F(SelectorGLTest, TheSelectorBringsTheDocumentDrawUpToDateBeforeReading) {
  twoCubes();
  // An object added since the last draw has no drawing object until the registry is updated.
  voDMD::Object* c = doc.addCuboid(box(-1, -1, 3, 1, 1, 4));
  documentDraw->draw();
  EXPECT_NE(documentDraw->getDraw(c), nullptr);
  voDMD::Object* d = doc.addCuboid(box(-1, -1, -4, 1, 1, -3));
  { ObjectSelector selector(selection); }
  EXPECT_NE(documentDraw->getDraw(d), nullptr);
}

TEST_F(SelectorGLTest, ObjectDrawNamesItsObjectForAHitAndAMeshNamesItForAPartHit) {
  twoCubes();
  const auto records = overA();
  ASSERT_EQ(records.size(), 1u);
  voDMG::ObjectDraw* draw = records[0].owner;
  ASSERT_EQ(draw, documentDraw->getDraw(a));
  EXPECT_EQ(draw->getItem(records[0]), SelectionItem(a));
  EXPECT_EQ(draw->getSubObjectItem(records[0]), SelectionItem(a));
  EXPECT_FALSE(draw->getSubObjectItem(records[0]).isSubItem());
  // A draw without parts names nothing for a part hit, but its object for a whole hit.
  voDMD::Object* plain = doc.addGroup();
  documentDraw->update();
  auto* noParts = new NoPartsDraw(documentDraw, plain);
  documentDraw->setDraw(plain, noParts);
  EXPECT_FALSE(noParts->getSubObjectItem(records[0]).valid());
  EXPECT_EQ(noParts->getItem(records[0]), SelectionItem(plain));
}

}  // namespace
