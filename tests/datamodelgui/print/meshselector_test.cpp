// The print mesh selector on a real document of printable meshes and a real selection set: whole
// and partial items, the edits of the live vertex and face lists, and one emission per selector.

#include "../docfixture.h"
#include "datamodelgui/print/meshselector.h"
#include "datamodelgui/selection/selectionset.h"
#include "platform/datamodel/print.h"
#include "platform/geometry/construct.h"
#include "platform/support/callinfo.h"

#include <gtest/gtest.h>

#include <deque>
#include <memory>

namespace {

using Indices = std::deque<unsigned int>;

ru::Reference<voDMD::KLTSelection> indices(Indices vertices, Indices faces) {
  ru::Reference<voDMD::KLTSelection> selection = new voDMD::KLTSelection();
  selection->vertices() = std::move(vertices);
  selection->faces() = std::move(faces);
  return selection;
}

class KLTMeshSelectorTest : public ::testing::Test {
protected:
  KLTMeshSelectorTest() {
    info.set<voDMD::Document>(&doc.document);
    scope = std::make_unique<voSupport::CallScope>(info);
    set = std::make_unique<voDMG::SelectionSet>();
    info.set<voDMG::SelectionSet>(set.get());
    set->sigMembershipChanged.connect(this, &KLTMeshSelectorTest::onChanged, client);
    first = addMesh(0);
    second = addMesh(3);
  }
  ~KLTMeshSelectorTest() override {
    client.disconnectAll();
    set.reset();
    scope.reset();
  }

  voDMD::KLTMesh* addMesh(double x) {
    ru::Reference<ruGeom::CompactMesh> mesh = new ruGeom::CompactMesh();
    ruGeom::constructCuboid(ruLinear::Range3d(ruLinear::Point(x, 0, 0), ruLinear::Point(x + 1, 1, 1)), *mesh);
    ru::Reference<voDMD::Object> object = voDMD::createKLTMeshObject(doc.document, mesh);
    doc.document.insert(object);
    return object->findAttribute<voDMD::KLTMesh>();
  }
  void onChanged(const ru::set<voDMG::SelectionItem>&) { ++emissions; }

  int wholeItems(voDMD::KLTMesh* mesh) const {
    int count = 0;
    for (const voDMG::SelectionItem& item : set->items()) count += item.getObject() == mesh->owner() && !item.isSubItem();
    return count;
  }
  int partialItems(voDMD::KLTMesh* mesh) const {
    int count = 0;
    for (const voDMG::SelectionItem& item : set->items())
      count += item.getObject() == mesh->owner() && mesh->asSelection(item.getSubObject()).valid();
    return count;
  }
  // The live selection of the mesh's partial item, or null.
  ru::Reference<voDMD::KLTSelection> live(voDMD::KLTMesh* mesh) const {
    for (const voDMG::SelectionItem& item : set->items())
      if (item.getObject() == mesh->owner())
        if (auto selection = mesh->asSelection(item.getSubObject())) return selection;
    return nullptr;
  }

  doctest::DocFixture doc;
  voSupport::CallInfo info;
  std::unique_ptr<voSupport::CallScope> scope;
  std::unique_ptr<voDMG::SelectionSet> set;
  ruRTB::SignalClient client;
  int emissions = 0;
  voDMD::KLTMesh* first = nullptr;
  voDMD::KLTMesh* second = nullptr;
};

TEST_F(KLTMeshSelectorTest, AddObjectTwiceLeavesOneItemAndRemoveObjectOfAnUnselectedMeshAnswersTrue) {
  {
    voDMG::KLTMeshSelector selector;
    selector.addObject(first);
    selector.addObject(first);
  }
  EXPECT_EQ(set->items().size(), 1u);
  EXPECT_EQ(wholeItems(first), 1);
  EXPECT_EQ(emissions, 1);
  voDMG::KLTMeshSelector selector(*set);
  EXPECT_TRUE(selector.removeObject(second));
  EXPECT_TRUE(selector.removeObject(first));
  EXPECT_TRUE(set->empty());
}

TEST_F(KLTMeshSelectorTest, ToggleObjectOnAMeshWithOnlyAPartialItemAddsTheWholeItemAndASecondToggleRemovesBoth) {
  {
    voDMG::KLTMeshSelector selector;
    selector.addSelection(first, indices({1, 2}, {0}));
  }
  ASSERT_EQ(partialItems(first), 1);
  {
    voDMG::KLTMeshSelector selector;
    selector.toggleObject(first);
  }
  EXPECT_EQ(wholeItems(first), 1);
  EXPECT_EQ(partialItems(first), 1);
  EXPECT_EQ(live(first)->vertices(), (Indices{1, 2}));
  {
    voDMG::KLTMeshSelector selector;
    selector.toggleObject(first);
  }
  EXPECT_EQ(wholeItems(first), 0);
  EXPECT_EQ(partialItems(first), 0);
  EXPECT_TRUE(set->empty());
}

TEST_F(KLTMeshSelectorTest, AddSelectionTwiceWithTheSameVerticesDoublesThemAndOneRemoveSelectionRemovesOneOccurrence) {
  voDMG::KLTMeshSelector selector;
  selector.addSelection(first, indices({4, 7}, {2}));
  selector.addSelection(first, indices({4, 7}, {2}));
  EXPECT_EQ(partialItems(first), 1);
  ASSERT_TRUE(live(first));
  EXPECT_EQ(live(first)->vertices(), (Indices{4, 7, 4, 7}));
  EXPECT_EQ(live(first)->faces(), (Indices{2, 2}));
  selector.removeSelection(first, indices({7, 4, 9}, {2}));
  EXPECT_EQ(live(first)->vertices(), (Indices{4, 7}));
  EXPECT_EQ(live(first)->faces(), (Indices{2}));
  // Emptied, the partial item stays.
  selector.removeSelection(first, indices({4, 7}, {2}));
  EXPECT_EQ(partialItems(first), 1);
  EXPECT_TRUE(live(first)->vertices().empty());
  EXPECT_TRUE(live(first)->faces().empty());
}

TEST_F(KLTMeshSelectorTest, RemoveSelectionOnAMeshWithNoPartialItemCreatesNothing) {
  {
    voDMG::KLTMeshSelector selector;
    selector.addObject(first);
    selector.removeSelection(first, indices({1}, {1}));
    selector.removeSelection(second, indices({1}, {1}));
  }
  EXPECT_EQ(set->items().size(), 1u);
  EXPECT_EQ(partialItems(first), 0);
  EXPECT_EQ(partialItems(second), 0);
}

TEST_F(KLTMeshSelectorTest, GetSelectionOnAMeshWithNoPartialItemAnswersANewEmptySelectionAndInsertsNothing) {
  voDMG::KLTMeshSelector selector;
  ru::Reference<voDMD::KLTSelection> detached = selector.getSelection(first);
  ASSERT_TRUE(detached);
  EXPECT_TRUE(detached->vertices().empty());
  EXPECT_TRUE(detached->faces().empty());
  EXPECT_TRUE(set->empty());
  // With a partial item the answer is the live list the set's item carries.
  selector.addSelection(first, indices({3}, {}));
  ru::Reference<voDMD::KLTSelection> attached = selector.getSelection(first);
  EXPECT_EQ(attached.get(), live(first).get());
  attached->vertices().push_back(8);
  EXPECT_EQ(live(first)->vertices(), (Indices{3, 8}));
  EXPECT_NE(selector.getSelection(second).get(), selector.getSelection(second).get());
}

TEST_F(KLTMeshSelectorTest, ClearSelectionLeavesTheWholeItemWhileRemoveObjectDoesNot) {
  voDMG::KLTMeshSelector selector;
  selector.addObject(first);
  selector.addSelection(first, indices({1}, {2}));
  selector.addObject(second);
  selector.addSelection(second, indices({5}, {}));
  selector.clearSelection(first);
  EXPECT_EQ(wholeItems(first), 1);
  EXPECT_EQ(partialItems(first), 0);
  EXPECT_EQ(partialItems(second), 1);
  selector.addSelection(first, indices({1}, {2}));
  selector.removeObject(first);
  EXPECT_EQ(wholeItems(first), 0);
  EXPECT_EQ(partialItems(first), 0);
  EXPECT_EQ(wholeItems(second), 1);
  EXPECT_EQ(partialItems(second), 1);
}

TEST_F(KLTMeshSelectorTest, SelectAllOnADocumentWithNoMeshLeavesTheSetWithoutMeshItems) {
  doctest::DocFixture empty;
  voSupport::CallInfo emptyInfo;
  emptyInfo.set<voDMD::Document>(&empty.document);
  voSupport::CallScope emptyScope(emptyInfo);
  voDMG::SelectionSet emptySet;
  // A plain mesh only: no printable one.
  empty.addCuboid(ruLinear::Range3d(ruLinear::Point(0, 0, 0), ruLinear::Point(1, 1, 1)));
  {
    voDMG::KLTMeshSelector selector(emptySet);
    selector.selectAll();
  }
  EXPECT_TRUE(emptySet.empty());
}

TEST_F(KLTMeshSelectorTest, SelectAllSelectsEveryMeshWholeHiddenOnesTooAndClearLeavesOtherObjects) {
  second->setVisible(false);
  voDMD::Object* plain = doc.addCuboid(ruLinear::Range3d(ruLinear::Point(5, 0, 0), ruLinear::Point(6, 1, 1)));
  {
    voDMG::KLTMeshSelector selector;
    selector.addSelection(first, indices({1}, {}));
  }
  {
    voDMG::ObjectSelector objects;
    objects.add(plain);
  }
  emissions = 0;
  {
    voDMG::KLTMeshSelector selector;
    selector.selectAll();
  }
  EXPECT_EQ(emissions, 1);
  EXPECT_EQ(wholeItems(first), 1);
  EXPECT_EQ(wholeItems(second), 1);
  // clear() before selecting took the partial selection away.
  EXPECT_EQ(partialItems(first), 0);
  EXPECT_EQ(set->items().size(), 3u);
  {
    voDMG::KLTMeshSelector selector;
    selector.clear();
  }
  ASSERT_EQ(set->items().size(), 1u);
  EXPECT_EQ(set->items().begin()->getObject(), plain);
}

TEST_F(KLTMeshSelectorTest, ListenersHearOfTheListEditsInTheSelectorsOneEmission) {
  {
    voDMG::KLTMeshSelector selector;
    selector.addSelection(first, indices({1}, {}));
  }
  ASSERT_EQ(emissions, 1);
  ru::Reference<voDMD::KLTSelection> seen;
  ruRTB::SignalClient listener;
  set->sigMembershipChanged.addCallback(
      [&](const ru::set<voDMG::SelectionItem>& changed) {
        for (const voDMG::SelectionItem& item : changed)
          if (auto selection = first->asSelection(item.getSubObject())) seen = selection;
      },
      listener);
  {
    voDMG::KLTMeshSelector selector;
    selector.addSelection(first, indices({2}, {}));
    EXPECT_EQ(emissions, 1);
  }
  EXPECT_EQ(emissions, 2);
  ASSERT_TRUE(seen);
  EXPECT_EQ(seen->vertices(), (Indices{1, 2}));
}

TEST_F(KLTMeshSelectorTest, AddObjectLeavesThePartialItemAndAddSelectionLeavesTheWholeItem) {
  voDMG::KLTMeshSelector selector;
  selector.addSelection(first, indices({6}, {1}));
  selector.addObject(first);
  EXPECT_EQ(wholeItems(first), 1);
  EXPECT_EQ(partialItems(first), 1);
  EXPECT_EQ(live(first)->vertices(), (Indices{6}));
  selector.addSelection(first, indices({8}, {}));
  EXPECT_EQ(wholeItems(first), 1);
  EXPECT_EQ(partialItems(first), 1);
  EXPECT_EQ(live(first)->vertices(), (Indices{6, 8}));
  EXPECT_EQ(live(first)->faces(), (Indices{1}));
  EXPECT_EQ(set->items().size(), 2u);
  // The argument's lists are read, never taken over.
  ru::Reference<voDMD::KLTSelection> argument = indices({9}, {});
  selector.addSelection(first, argument);
  EXPECT_NE(live(first).get(), argument.get());
  EXPECT_EQ(argument->vertices(), (Indices{9}));
}

}  // namespace
