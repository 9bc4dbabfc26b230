// Costs of the print mesh draw on a 1,000,000-triangle printable mesh with its thickness analysis:
// the first draw (cut into parts, thickness laid on a copy, items emitted) and the re-draw after a
// hover change (the cached parts emitted again, nothing rebuilt, the thin-wall verdict kept).

#include "../../benchmeshes.h"
#include "datamodelgui/draw/documentdraw.h"
#include "datamodelgui/print/meshdraw.h"
#include "datamodelgui/selection/hittester.h"
#include "datamodelgui/selection/selectionset.h"
#include "platform/datamodel/document.h"
#include "platform/datamodel/print.h"
#include "platform/graphics/draw.h"
#include "platform/graphics/world.h"
#include "platform/support/broadcaster.h"
#include "platform/support/callinfo.h"
#include "platform/support/settings.h"
#include "platform/support/tags.h"

#include <benchmark/benchmark.h>

#include <memory>

namespace {

using ruLinear::Point;

// The candidate set with its batch interface open, for hovering by hand; made before any hit
// tester is in the call info, so it listens to none.
class HoverSet : public voDMG::CandidateSet {
public:
  using SelectionSet::clear;
  using SelectionSet::insert;
  using SelectionSet::lock;
  using SelectionSet::unlock;
};

// A document with a printer and one analysed million-triangle print mesh, drawn through the
// registered print classes on an off-screen draw system.
struct PrintScene {
  std::unique_ptr<voGR::DrawSystem> system;
  ru::Reference<voGR::Database> database;
  voTXN::Manager manager;
  std::unique_ptr<voDMD::Document> document;
  voDMG::SelectionSet selection;
  HoverSet candidates;
  voSupport::Broadcaster broadcaster;
  voSupport::PropertySet settings;
  voSupport::TagRegistry tags;
  voSupport::CallInfo info;
  std::unique_ptr<voSupport::CallScope> scope;
  voDMG::DocumentDraw* documentDraw = nullptr;
  voDMD::Object* object = nullptr;
  ruRTB::SignalClient client;

  PrintScene() {
    system = voGR::DrawSystem::createOffscreen();
    if (!system) return;
    database = new voGR::Database(system->getGraph());
    database->addWorld(new voGR::ListWorld(true), {});
    system->setActiveDatabase(database);
    document = std::make_unique<voDMD::Document>(manager);
    info.set<voGR::DrawSystem>(system.get());
    info.set<voDMD::Document>(document.get());
    info.set<voDMD::Camera>(document->camera());
    info.set<voDMG::SelectionSet>(&selection);
    info.set<voDMG::CandidateSet>(&candidates);
    info.set<voSupport::Broadcaster>(&broadcaster);
    info.set<voSupport::PropertySet>(&settings);
    info.set<voSupport::TagRegistry>(&tags);
    scope = std::make_unique<voSupport::CallScope>(info);
    settings.add("vo.app.settings.showOutOfBounds", new voSupport::PropertyTBase<bool>(true));
    settings.add("vo.app.settings.thicknessSurfaceCoverage", new voSupport::PropertyTBase<double>(0.5));

    manager.begin("populate");
    document->insert(voDMD::createPrinterObject(*document, ruLinear::Range3d(Point(-10, -10, 0), Point(10, 10, 20)),
                                                ruLinear::Range3d(Point(-11, -11, 0), Point(11, 11, 21))));
    ru::Reference<voDMD::Object> mesh = voDMD::createKLTMeshObject(*document, bench::torus(1000, 500));
    document->insert(mesh);
    object = mesh.get();
    object->findAttribute<voDMD::KLTMesh>()->analyseThickness();
    manager.commit();

    voDMG::initialize();
    documentDraw = new voDMG::DocumentDraw(document.get());
    info.set<voDMG::DocumentDraw>(documentDraw);
    voDMG::RegisterObjectDrawMsg message(*documentDraw);
    broadcaster.broadcast(message);
    candidates.sigMembershipChanged.connect(documentDraw, &voDMG::DocumentDraw::onSelectionModified, client);
  }
  ~PrintScene() {
    client.disconnectAll();
    if (documentDraw) documentDraw->destroy();
    broadcaster.reset();
    scope.reset();
    document.reset();
  }
  voDMG::KLTMeshDraw* meshDraw() const { return dynamic_cast<voDMG::KLTMeshDraw*>(documentDraw->getDraw(object)); }
};

void BM_FirstDrawOfAMillionTrianglePrintMesh(benchmark::State& state) {
  PrintScene scene;
  if (!scene.system) return state.SkipWithError("no off-screen context");
  std::size_t parts = 0;
  for (auto _ : state) {
    state.PauseTiming();
    scene.documentDraw->resetDraw(scene.object);  // a new drawing object with no parts
    scene.documentDraw->setModified();
    state.ResumeTiming();
    scene.documentDraw->draw();
    state.PauseTiming();
    voDMG::KLTMeshDraw* draw = scene.meshDraw();
    parts = draw ? draw->getParts().size() : 0;
    if (!parts || !draw->getParts()[0]->getAttributes("thickness").valid())
      return state.SkipWithError("the mesh drew no part with thickness");
    state.ResumeTiming();
  }
  state.counters["parts"] = static_cast<double>(parts);
  state.counters["triangles"] = 1000000;
}
BENCHMARK(BM_FirstDrawOfAMillionTrianglePrintMesh)->Unit(benchmark::kMillisecond)->Iterations(5);

void BM_RedrawAfterHoverChangeOnAMillionTrianglePrintMesh(benchmark::State& state) {
  PrintScene scene;
  if (!scene.system) return state.SkipWithError("no off-screen context");
  scene.documentDraw->draw();
  voDMG::KLTMeshDraw* draw = scene.meshDraw();
  if (!draw || draw->getParts().empty()) return state.SkipWithError("the mesh drew no part");
  const ruGeom::CompactMesh* firstPart = draw->getParts()[0].get();
  const int scansBefore = draw->thicknessScans();
  bool on = false;
  bool rebuilt = false;
  for (auto _ : state) {
    state.PauseTiming();
    on = !on;
    scene.candidates.lock();
    if (on) scene.candidates.insert(voDMG::SelectionItem(scene.object));
    else scene.candidates.clear();
    scene.candidates.unlock();
    state.ResumeTiming();
    scene.documentDraw->draw();
    state.PauseTiming();
    rebuilt = rebuilt || scene.meshDraw()->getParts().empty() || scene.meshDraw()->getParts()[0].get() != firstPart;
    state.ResumeTiming();
  }
  state.counters["parts"] = static_cast<double>(draw->getParts().size());
  state.counters["partsRebuilt"] = rebuilt ? 1 : 0;
  // Scans of the million thickness values the hover redraws made (the verdict is kept).
  state.counters["thicknessScans"] = draw->thicknessScans() - scansBefore;
}
BENCHMARK(BM_RedrawAfterHoverChangeOnAMillionTrianglePrintMesh)->Unit(benchmark::kMicrosecond);

}  // namespace
