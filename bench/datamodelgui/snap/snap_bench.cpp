// One SnapClient::snap per cursor move, over a scene of the 1,000,000-triangle generated mesh
// (drawn, so the snap's hit test sees it and its MeshDraw offers the mesh snap items), 100 objects
// with centre items and the three coordinate axes: with the cursor still, and with the active item
// changing at every move.

#include "bench/benchmeshes.h"
#include "datamodelgui/draw/documentdraw.h"
#include "datamodelgui/draw/objectdraw.h"
#include "datamodelgui/selection/hittester.h"
#include "datamodelgui/selection/selectionset.h"
#include "datamodelgui/snap/snapitems.h"
#include "datamodelgui/snap/snapmanager.h"
#include "platform/datamodel/attributes.h"
#include "platform/datamodel/document.h"
#include "platform/geometry/camera.h"
#include "platform/geometry/construct.h"
#include "platform/graphics/draw.h"
#include "platform/graphics/hittest.h"
#include "platform/graphics/world.h"
#include "platform/support/callinfo.h"

#include <benchmark/benchmark.h>

#include <memory>
#include <vector>

namespace {

using ruLinear::Point;
using ruLinear::Point2;

struct Scene {
  std::unique_ptr<voGR::DrawSystem> system;
  ru::Reference<voGR::Database> database;
  voTXN::Manager manager;
  std::unique_ptr<voDMD::Document> document;
  voDMG::SelectionSet selection;
  std::unique_ptr<voDMG::CandidateSet> candidates;
  voSupport::CallInfo info;
  std::unique_ptr<voSupport::CallScope> scope;
  voDMG::DocumentDraw* documentDraw = nullptr;
  std::unique_ptr<voDMG::SnapManager> snapManager;
  std::unique_ptr<voDMG::SnapClient> client;
  std::vector<ru::Reference<voDMG::SnapItem>> centres;
  ru::Reference<voDMG::SnapItem> xAxis;

  Scene() {
    system = voGR::DrawSystem::createOffscreen();
    if (!system) return;
    database = new voGR::Database(system->getGraph());
    database->addWorld(new voGR::ListWorld(true), {});
    system->setActiveDatabase(database);
    document = std::make_unique<voDMD::Document>(manager);
    ruGeom::Camera camera;
    camera.setViewport(ruGeom::Viewport(0, 0, 1920, 1080));
    ruGeom::AngleAspect frustum;
    frustum.setAspectRatio(1920.0 / 1080.0);
    camera.setFrustum(frustum);
    camera.setWorldToEye(Point(0, 0, 0), Point(0, -9, 7), ruLinear::Vector(0, 0, 1));
    document->camera()->set(camera);
    info.set<voGR::DrawSystem>(system.get());
    info.set<voDMD::Document>(document.get());
    info.set<voDMD::Camera>(document->camera());
    info.set<voDMG::SelectionSet>(&selection);
    snapManager = std::make_unique<voDMG::SnapManager>();
    info.set<voDMG::SnapManager>(snapManager.get());
    scope = std::make_unique<voSupport::CallScope>(info);
    candidates = std::make_unique<voDMG::CandidateSet>();
    info.set<voDMG::CandidateSet>(candidates.get());

    manager.begin("populate");
    add(bench::torus(1000, 500), ruLinear::AffineMatrix::Identity);
    ru::Reference<ruGeom::CompactMesh> box = new ruGeom::CompactMesh();
    ruGeom::constructCuboid(ruLinear::Range3d(Point(0, 0, 0), Point(0.1, 0.1, 0.1)), *box);
    std::vector<voDMD::Object*> boxes;
    for (int i = 0; i < 100; ++i) {
      ruLinear::AffineMatrix placement;
      placement.translate(ruLinear::Vector(-4.5 + (i % 10), -4.5 + (i / 10), -1.0));
      boxes.push_back(add(box, placement));
    }
    manager.commit();
    documentDraw = new voDMG::DocumentDraw(document.get());
    info.set<voDMG::DocumentDraw>(documentDraw);
    documentDraw->draw();

    client = std::make_unique<voDMG::SnapClient>(voGR::HitTestConfig());
    voDMG::SnapItemSet statics;
    for (voDMD::Object* object : boxes) {
      centres.emplace_back(new voDMG::ObjectCenterSnapItem(object));
      statics.insert(centres.back());
    }
    xAxis = new voDMG::CoordinateAxisSnapItem(Point(0, 0, 0), ruLinear::Vector(1, 0, 0));
    statics.insert(xAxis);
    statics.insert(ru::Reference<voDMG::SnapItem>(new voDMG::CoordinateAxisSnapItem(Point(0, 0, 0), ruLinear::Vector(0, 1, 0))));
    statics.insert(ru::Reference<voDMG::SnapItem>(new voDMG::CoordinateAxisSnapItem(Point(0, 0, 0), ruLinear::Vector(0, 0, 1))));
    client->addFactory(new voDMG::FixedSnapItemFactory(statics));
    client->beginSnap();
  }
  ~Scene() {
    if (client) client->endSnap();
    client.reset();
    centres.clear();
    xAxis = nullptr;
    if (snapManager) snapManager->clearItems();
    if (documentDraw) documentDraw->destroy();
    candidates.reset();
    scope.reset();
    document.reset();
  }
  voDMD::Object* add(const ru::Reference<ruGeom::CompactMesh>& mesh, const ruLinear::AffineMatrix& placement) {
    ru::Reference<voDMD::Object> object = voDMD::Object::create(*document, voDMD::MeshClass::get());
    object->addAttribute<voDMD::Mesh>(mesh);
    object->addAttribute<voDMD::Transform>(placement);
    object->addAttribute<voDMD::BoundingBox>();
    document->insert(object);
    return object.get();
  }
  Point2 pixel(const Point& world) const {
    Point2 out;
    document->camera()->get().project(world, out);
    return out;
  }
  // One move: the result is let go of as a tool does when it is done with it.
  bool snap(const Point2& cursor) {
    ru::Reference<voDMG::SnapResult> result = client->snap(cursor);
    if (result) result->setDraw(nullptr);
    return static_cast<bool>(result);
  }
};

// The cursor still on the mesh: a hit test, new mesh items, the walk; the mesh item holds.
void BM_SnapStillOnMesh(benchmark::State& state) {
  Scene scene;
  if (!scene.system) return state.SkipWithError("no off-screen context");
  const Point2 cursor = scene.pixel(Point(2.0, -2.0, 0.7));
  if (!scene.snap(cursor)) return state.SkipWithError("the cursor misses the mesh");
  for (auto _ : state) benchmark::DoNotOptimize(scene.snap(cursor));
}
BENCHMARK(BM_SnapStillOnMesh)->Unit(benchmark::kMicrosecond);

// The cursor still on an object centre, off the mesh: the centre stays active.
void BM_SnapStillOnCentre(benchmark::State& state) {
  Scene scene;
  if (!scene.system) return state.SkipWithError("no off-screen context");
  const Point2 cursor = scene.pixel(Point(-4.45, -4.45, -0.95));
  if (!scene.snap(cursor)) return state.SkipWithError("the cursor misses the centre");
  for (auto _ : state) benchmark::DoNotOptimize(scene.snap(cursor));
}
BENCHMARK(BM_SnapStillOnCentre)->Unit(benchmark::kMicrosecond);

// Every move changes the active item: an object centre, then the x axis, off the mesh.
void BM_SnapActiveItemChanges(benchmark::State& state) {
  Scene scene;
  if (!scene.system) return state.SkipWithError("no off-screen context");
  const Point2 centre = scene.pixel(Point(-4.45, -4.45, -0.95));
  const Point2 axis = scene.pixel(Point(-4.0, 0.0, 0.0));
  if (!scene.snap(axis) || scene.client->getSnapItem().get() != scene.xAxis.get())
    return state.SkipWithError("the cursor misses the axis");
  bool onCentre = false;
  for (auto _ : state) {
    onCentre = !onCentre;
    benchmark::DoNotOptimize(scene.snap(onCentre ? centre : axis));
  }
}
BENCHMARK(BM_SnapActiveItemChanges)->Unit(benchmark::kMicrosecond);

// The part of each move above that is the hit test alone (the same call the manager makes), to
// tell the snap logic's own cost from the hit test's.
void BM_HitTestAloneStillOnCentre(benchmark::State& state) {
  Scene scene;
  if (!scene.system) return state.SkipWithError("no off-screen context");
  const Point2 cursor = scene.pixel(Point(-4.45, -4.45, -0.95));
  ru::vector<voGR::HitRecord> records;
  for (auto _ : state) {
    benchmark::DoNotOptimize(voGR::visibilityTest(*scene.system, scene.document->camera()->get(), cursor,
                                                  voGR::HitTestConfig(), records));
  }
}
BENCHMARK(BM_HitTestAloneStillOnCentre)->Unit(benchmark::kMicrosecond);

void BM_HitTestAloneStillOnMesh(benchmark::State& state) {
  Scene scene;
  if (!scene.system) return state.SkipWithError("no off-screen context");
  const Point2 cursor = scene.pixel(Point(2.0, -2.0, 0.7));
  ru::vector<voGR::HitRecord> records;
  for (auto _ : state) {
    benchmark::DoNotOptimize(voGR::visibilityTest(*scene.system, scene.document->camera()->get(), cursor,
                                                  voGR::HitTestConfig(), records));
  }
}
BENCHMARK(BM_HitTestAloneStillOnMesh)->Unit(benchmark::kMicrosecond);

}  // namespace
