#pragma once

// A document drawn on a real off-screen draw system, connected as a host connects it: the draw
// system, the document, its camera, the selection set, the hit tester, the candidate set and the
// document draw are entered in the call info; the sets' membership signals reach DocumentDraw::onSelectionModified.
// The scene renders the world "SceneW" (every item); "SelectedW" collects the active items.

#include "../../platform/graphics/glscene.h"
#include "../docfixture.h"
#include "datamodelgui/draw/documentdraw.h"
#include "datamodelgui/draw/objectdraw.h"
#include "datamodelgui/selection/hittester.h"
#include "datamodelgui/selection/selectionset.h"
#include "platform/graphics/world.h"
#include "platform/support/callinfo.h"

#include <memory>
#include <vector>

namespace drawtest {

// Opens the protected batch interface, as a selector does.
class Batch : public voDMG::SelectionSet {
public:
  using SelectionSet::eraseAll;
  using SelectionSet::insert;
  using SelectionSet::lock;
  using SelectionSet::unlock;
};

inline voDMG::SelectionSet setOf(std::initializer_list<voDMG::SelectionItem> items) {
  Batch set;
  for (const voDMG::SelectionItem& item : items) set.insert(item);
  return voDMG::SelectionSet(set);
}

struct DrawFixture {
  DrawFixture() {
    info.set<voDMG::CandidateSet>(&candidates);
    documentDraw = new voDMG::DocumentDraw(&doc.document);
    info.set<voDMG::DocumentDraw>(documentDraw);
    selection.sigMembershipChanged.connect(documentDraw, &voDMG::DocumentDraw::onSelectionModified, client);
    candidates.sigMembershipChanged.connect(documentDraw, &voDMG::DocumentDraw::onSelectionModified, client);
  }
  ~DrawFixture() {
    client.disconnectAll();
    if (documentDraw) documentDraw->destroy();
    scope.reset();
  }

  // The items the object's drawing object holds now (its own source).
  std::vector<voGR::DrawItem*> itemsOf(voDMD::Object* object) const {
    std::vector<voGR::DrawItem*> out;
    voDMG::ObjectDraw* draw = documentDraw->getDraw(object);
    if (!draw) return out;
    voGR::DrawData* data = draw->getDrawData(draw);
    if (!data) return out;
    for (const auto& item : data->getItems()) out.push_back(item.get());
    return out;
  }
  static bool holds(const voGR::World& world, const voGR::DrawItem* item) {
    bool found = false;
    world.forEach([&](voGR::DrawItem& candidate) { found = found || &candidate == item; });
    return found;
  }
  // Items of every world of the database, counted once per world holding them.
  int itemsInWorlds() const {
    int count = 0;
    for (int i = 0; i < scene.database->getNumWorlds(); ++i) count += static_cast<int>(scene.database->getWorld(i)->size());
    return count;
  }

  voGR::test::GLScene scene;
  doctest::DocFixture doc;
  voGR::World* selectedWorld = nullptr;
  voDMG::SelectionSet selection;
  voDMG::DocumentHitTester hitTester;
  voSupport::CallInfo info;
  // Entered before the candidate set is made: it connects to the hit tester of the call info.
  std::unique_ptr<voSupport::CallScope> scope = enter();
  voDMG::CandidateSet candidates;
  voDMG::DocumentDraw* documentDraw = nullptr;
  ruRTB::SignalClient client;

private:
  std::unique_ptr<voSupport::CallScope> enter() {
    selectedWorld = new voGR::ListWorld(true);
    const int index = scene.database->addWorld(selectedWorld, [](voGR::DrawItem& item) { return item.isActive(); });
    scene.database->getWorldNode(index)->setName("SelectedW");
    info.set<voGR::DrawSystem>(scene.system.get());
    info.set<voDMD::Document>(&doc.document);
    info.set<voDMD::Camera>(doc.document.camera());
    info.set<voDMG::SelectionSet>(&selection);
    info.set<voDMG::DocumentHitTester>(&hitTester);
    return std::make_unique<voSupport::CallScope>(info);
  }
};

}  // namespace drawtest
