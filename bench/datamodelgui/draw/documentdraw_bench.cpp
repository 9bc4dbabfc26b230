// Frame costs of the document draw: an idle frame, the frame after a transaction that moves one
// object, a hover change on a large mesh, and the first draw of a large document.

#include "datamodelgui/draw/documentdraw.h"
#include "datamodelgui/draw/objectdraw.h"
#include "datamodelgui/selection/hittester.h"
#include "datamodelgui/selection/selectionset.h"
#include "platform/datamodel/attributes.h"
#include "platform/datamodel/document.h"
#include "platform/geometry/algorithms.h"
#include "platform/geometry/construct.h"
#include "platform/graphics/draw.h"
#include "platform/graphics/world.h"
#include "platform/support/callinfo.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <memory>
#include <vector>

namespace {

using ruLinear::Point;

class Batch : public voDMG::SelectionSet {
public:
  using SelectionSet::insert;
  using SelectionSet::lock;
  using SelectionSet::unlock;
};

// A document with its draw on an off-screen draw system, entered in the call info as a host does.
struct Scene {
  std::unique_ptr<voGR::DrawSystem> system;
  ru::Reference<voGR::Database> database;
  voTXN::Manager manager;
  std::unique_ptr<voDMD::Document> document;
  voDMG::SelectionSet selection;
  voDMG::DocumentHitTester hitTester;
  std::unique_ptr<voDMG::CandidateSet> candidates;
  voSupport::CallInfo info;
  std::unique_ptr<voSupport::CallScope> scope;
  voDMG::DocumentDraw* documentDraw = nullptr;
  std::vector<voDMD::Object*> objects;
  ruRTB::SignalClient client;

  Scene() {
    system = voGR::DrawSystem::createOffscreen();
    if (!system) return;
    database = new voGR::Database(system->getGraph());
    database->addWorld(new voGR::ListWorld(true), {});
    database->addWorld(new voGR::ListWorld(true), [](voGR::DrawItem& item) { return item.isActive(); });
    system->setActiveDatabase(database);
    document = std::make_unique<voDMD::Document>(manager);
    info.set<voGR::DrawSystem>(system.get());
    info.set<voDMD::Document>(document.get());
    info.set<voDMD::Camera>(document->camera());
    info.set<voDMG::SelectionSet>(&selection);
    info.set<voDMG::DocumentHitTester>(&hitTester);
    scope = std::make_unique<voSupport::CallScope>(info);
    // Made inside the scope: it connects to the hit tester of the call info.
    candidates = std::make_unique<voDMG::CandidateSet>();
    info.set<voDMG::CandidateSet>(candidates.get());
  }
  ~Scene() {
    client.disconnectAll();
    if (documentDraw) documentDraw->destroy();
    scope.reset();
    document.reset();
  }
  void startDraw() {
    documentDraw = new voDMG::DocumentDraw(document.get());
    info.set<voDMG::DocumentDraw>(documentDraw);
    client.disconnectAll();
    selection.sigMembershipChanged.connect(documentDraw, &voDMG::DocumentDraw::onSelectionModified, client);
    candidates->sigMembershipChanged.connect(documentDraw, &voDMG::DocumentDraw::onSelectionModified, client);
  }
  voDMD::Object* add(const ru::Reference<ruGeom::CompactMesh>& mesh, const ruLinear::AffineMatrix& placement) {
    ru::Reference<voDMD::Object> object = voDMD::Object::create(*document, voDMD::MeshClass::get());
    object->addAttribute<voDMD::Mesh>(mesh);
    object->addAttribute<voDMD::Transform>(placement);
    object->addAttribute<voDMD::BoundingBox>();
    document->insert(object);
    objects.push_back(object.get());
    return object.get();
  }
  // 10,000 small boxes on a grid, in one transaction.
  void addSmallObjects(int count) {
    ru::Reference<ruGeom::CompactMesh> box = new ruGeom::CompactMesh();
    ruGeom::constructCuboid(ruLinear::Range3d(Point(0, 0, 0), Point(0.5, 0.5, 0.5)), *box);
    manager.begin("populate");
    for (int i = 0; i < count; ++i) {
      ruLinear::AffineMatrix placement;
      placement.translate(ruLinear::Vector(i % 100, i / 100, 0));
      add(box, placement);
    }
    manager.commit();
  }
};

constexpr int kObjects = 10000;

void BM_IdleFrame(benchmark::State& state) {
  Scene scene;
  if (!scene.system) return state.SkipWithError("no off-screen context");
  scene.addSmallObjects(kObjects);
  scene.startDraw();
  scene.documentDraw->draw();
  for (auto _ : state) scene.documentDraw->draw();
  state.counters["objects"] = scene.documentDraw->numDraws();
}
BENCHMARK(BM_IdleFrame)->Unit(benchmark::kNanosecond);

void BM_FrameAfterMovingOneObject(benchmark::State& state) {
  Scene scene;
  if (!scene.system) return state.SkipWithError("no off-screen context");
  scene.addSmallObjects(kObjects);
  scene.startDraw();
  scene.documentDraw->draw();
  voDMD::Transform* transform = scene.objects[kObjects / 2]->findAttribute<voDMD::Transform>();
  double z = 0;
  // Timed whole: the transaction (which marks the object and rebuilds the registry at its commit)
  // and the frame that walks the registry and re-emits the one object.
  for (auto _ : state) {
    z += 0.25;
    ruLinear::AffineMatrix placement;
    placement.translate(ruLinear::Vector(50, 50, z));
    scene.manager.begin("move");
    transform->setObjToWorld(placement);
    scene.manager.commit();
    scene.documentDraw->draw();
  }
}
BENCHMARK(BM_FrameAfterMovingOneObject)->Unit(benchmark::kMicrosecond);

// The same frame without the transaction: the registry walk and the one re-emission alone.
void BM_DrawAfterMovingOneObject(benchmark::State& state) {
  Scene scene;
  if (!scene.system) return state.SkipWithError("no off-screen context");
  scene.addSmallObjects(kObjects);
  scene.startDraw();
  scene.documentDraw->draw();
  voDMD::Transform* transform = scene.objects[kObjects / 2]->findAttribute<voDMD::Transform>();
  double z = 0;
  for (auto _ : state) {
    state.PauseTiming();
    z += 0.25;
    ruLinear::AffineMatrix placement;
    placement.translate(ruLinear::Vector(50, 50, z));
    scene.manager.begin("move");
    transform->setObjToWorld(placement);
    scene.manager.commit();
    state.ResumeTiming();
    scene.documentDraw->draw();
  }
}
BENCHMARK(BM_DrawAfterMovingOneObject)->Unit(benchmark::kMicrosecond);

// A mesh of about a million triangles, with normals and strips made once, as a loaded mesh has.
ru::Reference<ruGeom::CompactMesh> bigMesh() {
  ru::Reference<ruGeom::CompactMesh> mesh = new ruGeom::CompactMesh();
  const int side = 708;  // 2 * 707 * 707 = 999,698 triangles
  for (int y = 0; y < side; ++y) {
    for (int x = 0; x < side; ++x) mesh->addVertex(Point(x * 0.01, y * 0.01, 0.02 * std::sin(x * 0.1 + y * 0.07)));
  }
  mesh->setNumTriangles(2 * (side - 1) * (side - 1));
  std::uint32_t* t = mesh->editTriangles();
  for (int y = 0; y + 1 < side; ++y) {
    for (int x = 0; x + 1 < side; ++x) {
      const std::uint32_t a = y * side + x, b = a + 1, c = a + side, d = c + 1;
      *t++ = a, *t++ = b, *t++ = d;
      *t++ = a, *t++ = d, *t++ = c;
    }
  }
  ruGeom::meshComputeNormals(*mesh);
  ruGeom::MeshAdjTris adjacency;
  ruGeom::meshAdjTris(*mesh, adjacency);
  ruGeom::MeshTriStrip(*mesh, adjacency).computeStrips(128, 0);
  return mesh;
}

void BM_HoverChangeOnAMillionTriangleMesh(benchmark::State& state) {
  Scene scene;
  if (!scene.system) return state.SkipWithError("no off-screen context");
  ru::Reference<ruGeom::CompactMesh> mesh = bigMesh();
  voDMD::Object* object = scene.add(mesh, ruLinear::AffineMatrix::Identity);
  scene.startDraw();
  scene.documentDraw->draw();
  const voGR::DrawStatistics before = scene.system->getStatistics();
  Batch hover;
  hover.lock();
  hover.insert(voDMG::SelectionItem(object));
  hover.unlock();
  bool on = false;
  bool shared = true;
  for (auto _ : state) {
    state.PauseTiming();
    on = !on;
    if (on) {
      scene.candidates->add(hover);
    } else {
      scene.candidates->clear();
    }
    state.ResumeTiming();
    scene.documentDraw->draw();
    state.PauseTiming();
    voDMG::ObjectDraw* draw = scene.documentDraw->getDraw(object);
    voGR::DrawData* data = draw ? draw->getDrawData(draw) : nullptr;
    if (!data || data->getItems().empty() || !data->getItems()[0]->getMesh()) {
      return state.SkipWithError("the mesh drew no item");
    }
    const ruGeom::CompactMesh* drawn = data->getItems()[0]->getMesh();
    // No mesh copy: the item's mesh shares the attribute's vertex, normal and strip buffers.
    shared = shared && drawn->getVertexBufferId() == mesh->getVertexBufferId() &&
             drawn->getNormalBufferId() == mesh->getNormalBufferId() &&
             drawn->getStripBufferId() == mesh->getStripBufferId() && data->getItems()[0]->isActive() == on;
    state.ResumeTiming();
  }
  state.counters["triangles"] = mesh->getNumTriangles();
  state.counters["buffersShared"] = shared ? 1 : 0;
  state.counters["uploads"] = static_cast<double>(scene.system->getStatistics().bufferUploads - before.bufferUploads);
}
BENCHMARK(BM_HoverChangeOnAMillionTriangleMesh)->Unit(benchmark::kMicrosecond);

void BM_FirstDrawOfTenThousandObjects(benchmark::State& state) {
  Scene scene;
  if (!scene.system) return state.SkipWithError("no off-screen context");
  scene.addSmallObjects(kObjects);
  double items = 0;
  for (auto _ : state) {
    scene.startDraw();
    scene.documentDraw->draw();
    state.PauseTiming();
    items = static_cast<double>(scene.database->getAllItems().size());
    scene.documentDraw->destroy();
    scene.documentDraw = nullptr;
    state.ResumeTiming();
  }
  state.counters["items"] = items;
}
BENCHMARK(BM_FirstDrawOfTenThousandObjects)->Unit(benchmark::kMillisecond)->Iterations(5);

}  // namespace
