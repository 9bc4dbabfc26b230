#pragma once

// A document drawn on a real off-screen draw system with everything a host enters in the call
// info for hit testing: the draw system, the document and its camera, the hit tester, the document
// draw, the selection set and the candidate set (both made after the document draw, so they
// belong to it). Both sets' membership signals reach DocumentDraw::onSelectionModified.
// The scene renders the world "SceneW" (every item); "SelectedW" collects the active items.

#include "../../platform/graphics/glscene.h"
#include "../docfixture.h"
#include "datamodelgui/draw/documentdraw.h"
#include "datamodelgui/draw/objectdraw.h"
#include "datamodelgui/selection/hittester.h"
#include "datamodelgui/selection/selectionset.h"
#include "datamodelgui/selection/selector.h"
#include "platform/datamodel/attributes.h"
#include "platform/geometry/construct.h"
#include "platform/graphics/world.h"
#include "platform/support/callinfo.h"
#include "platform/support/debug.h"

#include <memory>
#include <string>
#include <vector>

namespace hittest {

inline ruLinear::AffineMatrix translation(double x, double y, double z) {
  ruLinear::AffineMatrix matrix;
  matrix.translate(ruLinear::Vector(x, y, z));
  return matrix;
}

inline ruLinear::Range3d box(double x0, double y0, double z0, double x1, double y1, double z1) {
  return ruLinear::Range3d(ruLinear::Point(x0, y0, z0), ruLinear::Point(x1, y1, z1));
}

// Opens the protected batch interface, as a selector does.
class Batch : public voDMG::SelectionSet {
public:
  using SelectionSet::insert;
};

inline voDMG::SelectionSet setOf(std::initializer_list<voDMG::SelectionItem> items) {
  Batch set;
  for (const voDMG::SelectionItem& item : items) set.insert(item);
  return voDMG::SelectionSet(set);
}

inline std::vector<voDMG::SelectionItem> itemsOf(const voDMG::SelectionSet& set) {
  return std::vector<voDMG::SelectionItem>(set.items().begin(), set.items().end());
}

// Records the debug prints of one channel while alive.
struct DebugLog {
  explicit DebugLog(int code = voSupport::DebugHitTest) : code_(code) {
    voSupport::Debug::getInstance().setEnabled(code_, true);
    voSupport::Debug::getInstance().setSink([this](int printed, const char* function, const char* text) {
      if (printed == code_) lines.push_back(std::string(function ? function : "") + ": " + text);
    });
  }
  ~DebugLog() {
    voSupport::Debug::getInstance().setSink({});
    voSupport::Debug::getInstance().setEnabled(code_, false);
  }
  int count(const std::string& line) const {
    int n = 0;
    for (const std::string& l : lines) n += l == line ? 1 : 0;
    return n;
  }
  std::vector<std::string> lines;

private:
  int code_;
};

// Records each emission of a hit signal.
struct HitsRecorder {
  void connect(voDMG::DocumentHitTester::HitsSignal& signal) {
    signal.addCallback(
        [this](const ru::vector<voGR::HitRecord>& records, voDMG::DocumentHitTester::EventType type) {
          sizes.push_back(static_cast<int>(records.size()));
          types.push_back(type);
        },
        client);
  }
  ruRTB::SignalClient client;
  std::vector<int> sizes;
  std::vector<voDMG::DocumentHitTester::EventType> types;
};

struct HitFixture {
  HitFixture() {
    // A camera on the whole frame from the front, looking along +y at the origin.
    camera = voGR::test::GLScene::camera(ruLinear::Point(0, -10, 0), ruLinear::Point(0, 0, 0));
    scene.setCamera(camera);
    doc.document.camera()->set(camera);
    selection.sigMembershipChanged.connect(documentDraw, &voDMG::DocumentDraw::onSelectionModified, client);
    candidates.sigMembershipChanged.connect(documentDraw, &voDMG::DocumentDraw::onSelectionModified, client);
  }
  ~HitFixture() {
    client.disconnectAll();
    for (voGR::DrawData* data : foreign) delete data;
    documentDraw->destroy();
  }

  // The viewport point where a world point shows.
  ruLinear::Point2 pixelOf(const ruLinear::Point& world) const {
    ruLinear::Point2 out;
    camera.project(world, out);
    return out;
  }
  // Emits a cube through another drawing id (a manipulator, say), under `owner` when given; an
  // x-ray one (depth interaction 1) is never hidden.
  void drawForeignCube(const ruLinear::Range3d& range, voDMG::ObjectDraw* owner = nullptr, bool xray = false) {
    auto* source = new int(0);
    sources.emplace_back(source);
    voGR::DrawData* data = scene.system->getDrawData(source, true);
    foreign.push_back(data);
    data->setObjectDrawOwner(owner);
    ru::Reference<ruGeom::CompactMesh> mesh = new ruGeom::CompactMesh();
    ruGeom::constructCuboid(range, *mesh);
    voGR::Draw draw(*scene.context, source, false);
    draw.setType(0);
    draw.setDepthInteraction(xray ? 1 : 0);
    draw.setMesh(mesh);
    draw.setDrawable(true);
    draw.emit();
  }

  voGR::test::GLScene scene;
  doctest::DocFixture doc;
  ruGeom::Camera camera;
  voGR::World* selectedWorld = nullptr;
  voDMG::DocumentHitTester hitTester;
  voSupport::CallInfo info;
  std::unique_ptr<voSupport::CallScope> scope = enter();
  voDMG::DocumentDraw* documentDraw = makeDocumentDraw();
  voDMG::SelectionSet selection;
  voDMG::CandidateSet candidates;
  std::vector<voGR::DrawData*> foreign;
  std::vector<std::unique_ptr<int>> sources;
  ruRTB::SignalClient client;

private:
  std::unique_ptr<voSupport::CallScope> enter() {
    selectedWorld = new voGR::ListWorld(true);
    const int index = scene.database->addWorld(selectedWorld, [](voGR::DrawItem& item) { return item.isActive(); });
    scene.database->getWorldNode(index)->setName("SelectedW");
    info.set<voGR::DrawSystem>(scene.system.get());
    info.set<voDMD::Document>(&doc.document);
    info.set<voDMD::Camera>(doc.document.camera());
    info.set<voDMG::DocumentHitTester>(&hitTester);
    return std::make_unique<voSupport::CallScope>(info);
  }
  voDMG::DocumentDraw* makeDocumentDraw() {
    auto* draw = new voDMG::DocumentDraw(&doc.document);
    info.set<voDMG::DocumentDraw>(draw);
    info.set<voDMG::SelectionSet>(&selection);
    info.set<voDMG::CandidateSet>(&candidates);
    return draw;
  }
};

}  // namespace hittest
