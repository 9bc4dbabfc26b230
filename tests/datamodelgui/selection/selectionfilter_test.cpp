#include "datamodelgui/selection/selectionfilter.h"

#include "hitfixture.h"

#include <gtest/gtest.h>

namespace {

using doctest::part;
using hittest::box;
using hittest::itemsOf;
using hittest::setOf;
using voDMG::SelectionItem;
using voDMG::SelectionSet;

class SelectionFilterGLTest : public ::testing::Test, public hittest::HitFixture {
protected:
  std::vector<voGR::DrawItem*> drawItemsOf(voDMD::Object* object) const {
    std::vector<voGR::DrawItem*> out;
    voDMG::ObjectDraw* draw = documentDraw->getDraw(object);
    for (const auto& item : draw->getDrawData(draw)->getItems()) out.push_back(item.get());
    return out;
  }
  voDMD::Object* twoPartObject(const ruLinear::Range3d& a, const ruLinear::Range3d& b) {
    ru::Reference<ruGeom::CompactMesh> first = new ruGeom::CompactMesh(), second = new ruGeom::CompactMesh();
    ruGeom::constructCuboid(a, *first);
    ruGeom::constructCuboid(b, *second);
    voDMD::Object* object = doc.addMesh(first);
    doc.meshOf(object)->setSubMeshes({first, second});
    return object;
  }
  ru::Reference<voDMG::SelectionSetHitFilter> hitFilter = new voDMG::SelectionSetHitFilter();
};

TEST_F(SelectionFilterGLTest, ItemOfAnotherSubsystemFailsEvenWithASelectedObjectsPointer) {
  voDMD::Object* a = doc.addCuboid(box(-1, -1, -1, 1, 1, 1));
  documentDraw->draw();
  selection.add(setOf({a}));
  // A manipulator's item whose owner pointer is that of the selected object's draw.
  drawForeignCube(box(2, -1, -1, 3, 1, 1), documentDraw->getDraw(a));
  auto foreignItems = foreign.front()->getItems();
  ASSERT_EQ(foreignItems.size(), 1u);
  EXPECT_EQ(foreignItems[0]->getObjectDrawOwner(), documentDraw->getDraw(a));
  EXPECT_NE(foreignItems[0]->getSubsystemId(), documentDraw->getID());
  EXPECT_FALSE(hitFilter->accepts(*foreignItems[0]));
  // The document's own item of the same object passes.
  EXPECT_TRUE(hitFilter->accepts(*drawItemsOf(a).front()));
}

TEST_F(SelectionFilterGLTest, SelectionWithOnlyASubItemOfAPassesEveryItemOfA) {
  voDMD::Object* a = twoPartObject(box(-1, -1, -1, 0, 1, 1), box(0.5, -1, -1, 1, 1, 1));
  voDMD::Object* b = doc.addCuboid(box(3, -1, -1, 4, 1, 1));
  documentDraw->draw();
  ru::Reference<ru::ReferenceCount> keep;
  selection.add(setOf({part(a, keep)}));
  const auto items = drawItemsOf(a);
  ASSERT_EQ(items.size(), 2u);
  for (voGR::DrawItem* item : items) EXPECT_TRUE(hitFilter->accepts(*item));
  for (voGR::DrawItem* item : drawItemsOf(b)) EXPECT_FALSE(hitFilter->accepts(*item));
}

TEST_F(SelectionFilterGLTest, EmptySelectionFailsEveryItem) {
  voDMD::Object* a = twoPartObject(box(-1, -1, -1, 0, 1, 1), box(0.5, -1, -1, 1, 1, 1));
  voDMD::Object* b = doc.addCuboid(box(3, -1, -1, 4, 1, 1));
  documentDraw->draw();
  ASSERT_TRUE(selection.empty());
  int tested = 0;
  for (voDMD::Object* object : {a, b}) {
    for (voGR::DrawItem* item : drawItemsOf(object)) {
      EXPECT_FALSE(hitFilter->accepts(*item));
      ++tested;
    }
  }
  EXPECT_EQ(tested, 3);
}

TEST_F(SelectionFilterGLTest, FilterReadsTheLiveSelection) {
  voDMD::Object* a = doc.addCuboid(box(-1, -1, -1, 1, 1, 1));
  documentDraw->draw();
  voGR::DrawItem* item = drawItemsOf(a).front();
  EXPECT_FALSE(hitFilter->accepts(*item));
  selection.add(setOf({a}));
  EXPECT_TRUE(hitFilter->accepts(*item));
  selection.clear();
  EXPECT_FALSE(hitFilter->accepts(*item));
}

TEST_F(SelectionFilterGLTest, ObjectFilterWithAWholeObjectItemLeavesASubItemOfThatObject) {
  voDMD::Object* a = doc.addCuboid(box(-1, -1, -1, 1, 1, 1));
  ru::Reference<ru::ReferenceCount> keep;
  const voDMD::SubObject sub = part(a, keep);
  ru::Reference<voDMG::SelectionFilter> filter = new voDMG::ObjectFilter(setOf({a}));
  SelectionSet target = setOf({a, sub});
  (*filter)(target);
  ASSERT_EQ(target.items().size(), 1u);
  EXPECT_EQ(*target.items().begin(), SelectionItem(sub));
}

TEST_F(SelectionFilterGLTest, ObjectFilterKeepsItsOwnCopyAndEmitsOnTheTarget) {
  voDMD::Object* a = doc.addCuboid(box(-1, -1, -1, 1, 1, 1));
  voDMD::Object* b = doc.addCuboid(box(2, -1, -1, 3, 1, 1));
  SelectionSet source = setOf({a});
  voDMG::ObjectFilter filter(source);
  // Later changes of the source do not reach the filter.
  source.add(setOf({b}));
  SelectionSet target = setOf({a, b});
  int emissions = 0;
  ruRTB::SignalClient listener;
  target.sigModified.addCallback([&](SelectionSet*) { ++emissions; }, listener);
  filter(target);
  EXPECT_EQ(itemsOf(target), std::vector<SelectionItem>{SelectionItem(b)});
  EXPECT_EQ(emissions, 1);
  // A copy filters alike.
  voDMG::ObjectFilter copy(filter);
  SelectionSet other = setOf({a, b});
  copy(other);
  EXPECT_EQ(itemsOf(other), std::vector<SelectionItem>{SelectionItem(b)});
}

struct NoRule : voDMG::SelectionRule {
  bool appliesTo(const SelectionItem&) override { return false; }
  void expand(const SelectionItem&, SelectionSet&) override {}
  void ruleOperation3() override {}
};

TEST_F(SelectionFilterGLTest, RuleBaseIsNeverApplicableToAWholeSet) {
  voDMD::Object* a = doc.addCuboid(box(-1, -1, -1, 1, 1, 1));
  ru::Reference<voDMG::SelectionRule> rule = new NoRule();
  EXPECT_FALSE(rule->isApplicable(setOf({a})));
  EXPECT_FALSE(rule->isApplicable(SelectionSet()));
}

}  // namespace
