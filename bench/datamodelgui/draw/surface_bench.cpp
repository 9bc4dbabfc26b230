// Costs of the standard surface and of billboards: a frame of the standard surface's graph, a
// camera move that re-places many billboards through their signal, and the per-draw evaluate.

#include "datamodelgui/draw/affordance.h"
#include "datamodelgui/draw/surfacedraw.h"
#include "platform/datamodel/attributes.h"
#include "platform/datamodel/document.h"
#include "platform/geometry/construct.h"
#include "platform/graphics/graph.h"
#include "platform/graphics/world.h"
#include "platform/resources/resources.h"
#include "platform/support/callinfo.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <memory>

namespace {

ruGeom::Camera lookAt(double distance, double angle) {
  ruGeom::Camera camera;
  camera.setViewport(ruGeom::Viewport(0, 0, 256, 256));
  camera.setWorldToEye(ruLinear::Point(0, 0, 0),
                       ruLinear::Point(distance * std::sin(angle), 0, distance * std::cos(angle)),
                       ruLinear::Vector(0, 1, 0));
  return camera;
}

// A document with the standard surface on an off-screen draw system, entered in the call info.
struct Scene {
  std::unique_ptr<voGR::DrawSystem> system;
  voTXN::Manager manager;
  std::unique_ptr<voDMD::Document> document;
  voRES::Loader loader;
  voSupport::CallInfo info;
  std::unique_ptr<voSupport::CallScope> scope;
  ru::Reference<voDMG::DefaultDocumentSurfaceDraw> surface;
  ruRen::FBOKey key;
  std::unique_ptr<voGR::DrawContext> context;

  Scene() {
    system = voGR::DrawSystem::createOffscreen();
    if (!system) return;
    document = std::make_unique<voDMD::Document>(manager);
    document->camera()->set(lookAt(10.0, 0.0));
    info.set<voGR::DrawSystem>(system.get());
    info.set<voDMD::Document>(document.get());
    info.set<voDMD::Camera>(document->camera());
    info.set<voRES::Loader>(&loader);
    scope = std::make_unique<voSupport::CallScope>(info);
    key = system->createFBOKey(ruRen::FBOInfo(256, 256, true, false, false));
    surface = new voDMG::DefaultDocumentSurfaceDraw(*system, system->createRenderTarget("Frame", key));
    surface->initialize();
    surface->updateCamera(document->camera()->get());
    context = std::make_unique<voGR::DrawContext>(system.get(), system->allocateID());
    ru::Reference<ruImage::TypedImage<ruImage::Byte4>> image = new ruImage::TypedImage<ruImage::Byte4>(16, 16);
    loader.addImage("Bench//Marker", ru::Reference<ruImage::Image>(image.get()));
  }
  ~Scene() {
    surface = nullptr;
    scope.reset();
  }

  // `count` billboards on a grid, emitted under one source.
  void addBillboards(int count) {
    ru::Reference<voDMG::ImageAtPoint> marker = new voDMG::ImageAtPoint("Bench//Marker", voDMG::AffordanceCentred);
    voGR::Draw draw(*context, this, false);
    for (int i = 0; i < count; ++i) {
      marker->setWorldPosition(ruLinear::Point((i % 32) * 0.2 - 3.2, (i / 32) * 0.2 - 3.2, 0.0));
      marker->draw(draw);
    }
  }
};

// One frame of the standard surface (every pass of its graph) with a mesh and 100 billboards.
void BM_StandardSurfaceFrame(benchmark::State& state) {
  Scene scene;
  if (!scene.system) return state.SkipWithError("no off-screen context");
  ru::Reference<ruGeom::CompactMesh> mesh = new ruGeom::CompactMesh();
  ruGeom::constructCuboid(ruLinear::Range3d(ruLinear::Point(-1, -1, -1), ruLinear::Point(1, 1, 1)), *mesh);
  int source = 0;
  {
    voGR::Draw draw(*scene.context, &source, false);
    draw.setMesh(mesh);
    draw.emit();
  }
  scene.addBillboards(100);
  voGR::RenderTargetNode* target = scene.surface->renderTargetNode();
  scene.key.lock();
  for (int i = 0; i < 3; ++i) scene.system->draw(target);
  for (auto _ : state) benchmark::DoNotOptimize(scene.system->draw(target));
  scene.key.unlock();
}
BENCHMARK(BM_StandardSurfaceFrame)->Unit(benchmark::kMillisecond);

// A camera change re-placing N billboards through their signal connections (no re-emission).
void BM_CameraMoveReplacesBillboards(benchmark::State& state) {
  Scene scene;
  if (!scene.system) return state.SkipWithError("no off-screen context");
  scene.addBillboards(static_cast<int>(state.range(0)));
  double angle = 0.0;
  for (auto _ : state) {
    angle += 0.01;
    scene.document->camera()->set(lookAt(10.0, angle));
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_CameraMoveReplacesBillboards)->Arg(1000)->Arg(10000)->Unit(benchmark::kMicrosecond);

// What a pass pays per billboard for its placement: a copy.
void BM_BillboardEvaluate(benchmark::State& state) {
  voTXN::Manager manager;
  voDMD::Document document(manager);
  document.camera()->set(lookAt(10.0, 0.3));
  voSupport::CallInfo info;
  info.set<voDMD::Camera>(document.camera());
  voSupport::CallScope scope(info);
  ru::Reference<voDMG::BillboardTransformer> transformer =
      new voDMG::BillboardTransformer(ruLinear::Point(1, 2, 3), ruLinear::Vector(4, 5, 0));
  for (auto _ : state) benchmark::DoNotOptimize(transformer->evaluate());
}
BENCHMARK(BM_BillboardEvaluate);

}  // namespace
