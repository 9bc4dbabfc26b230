// Cost of a print-view thumbnail: the whole bed (printer wire box and ten print meshes) rendered
// off-screen at 256 x 256 and read back; and of a print-view frame of the 1,000,000-triangle
// generated mesh at 1920 x 1080 (compare with GraphicsBench's BM_RawFrame, the same mesh drawn by
// one raw OpenGL pass at the same size).

#include "../../benchmeshes.h"
#include "datamodelgui/print/kltsurfacedraw.h"
#include "platform/datamodel/attributes.h"
#include "platform/datamodel/document.h"
#include "platform/datamodel/print.h"
#include "platform/geometry/algorithms.h"
#include "platform/geometry/construct.h"
#include "platform/graphics/draw.h"
#include "platform/graphics/graph.h"
#include "platform/graphics/shader.h"
#include "platform/graphics/world.h"
#include "platform/support/callinfo.h"
#include "platform/support/settings.h"

#include <benchmark/benchmark.h>

#include <memory>

namespace {

// A document with a printer and ten print meshes (bumpy tori of 20,000 triangles each) whose
// items are emitted into the print surface's database, as their drawing objects would.
struct Scene {
  std::unique_ptr<voGR::DrawSystem> system;
  voTXN::Manager manager;
  std::unique_ptr<voDMD::Document> document;
  voSupport::PropertySet settings;
  voSupport::CallInfo info;
  std::unique_ptr<voSupport::CallScope> scope;
  ru::Reference<voDMG::KLTSurfaceDraw> surface;
  std::unique_ptr<voGR::DrawContext> context;
  int source = 0;

  Scene() {
    system = voGR::DrawSystem::createOffscreen();
    if (!system) return;
    document = std::make_unique<voDMD::Document>(manager);
    settings.set("vo.app.settings.CutawayCaps", true);
    info.set<voGR::DrawSystem>(system.get());
    info.set<voDMD::Document>(document.get());
    info.set<voDMD::Camera>(document->camera());
    info.set<voSupport::PropertySet>(&settings);
    scope = std::make_unique<voSupport::CallScope>(info);
    const ruRen::FBOKey key = system->createFBOKey(ruRen::FBOInfo(256, 256, true, false, false));
    surface = new voDMG::KLTSurfaceDraw(*system, system->createRenderTarget("Frame", key));
    surface->initialize();
    context = std::make_unique<voGR::DrawContext>(system.get(), system->allocateID());

    const ruLinear::Range3d total(ruLinear::Point(-100, -100, 0), ruLinear::Point(100, 100, 150));
    document->insert(voDMD::createPrinterObject(*document, total, total));
    voGR::Draw draw(*context, &source, false);
    ru::Reference<ruGeom::CompactMesh> box = new ruGeom::CompactMesh();
    ruGeom::constructBoxEdgeLineStrips(ruGeom::BoundingBox(total), *box);
    draw.setType(voGR::TypeHelper);
    draw.setMesh(box, false);
    draw.emit();
    draw.setType(voGR::TypeOrdinary);
    ru::Reference<ruGeom::CompactMesh> shape = bench::torus(200, 50);
    for (int i = 0; i < 10; ++i) {
      // Row vectors: scaled first, then moved to its place on the bed.
      const ruLinear::AffineMatrix place =
          ruLinear::AffineMatrix::scaling(10.0) *
          ruLinear::AffineMatrix::translation(ruLinear::Vector(-80.0 + 40.0 * (i % 5), -30.0 + 60.0 * (i / 5), 10.0));
      ru::Reference<voDMD::Object> object = voDMD::createKLTMeshObject(*document, shape, place);
      document->insert(object);
      draw.setTransform(place);
      draw.setColor(0.8f, 0.3f, 0.2f, 1.0f);
      draw.setMesh(shape);
      draw.emit();
    }
  }
  ~Scene() {
    surface = nullptr;
    scope.reset();
  }
};

void BM_BedThumbnail256(benchmark::State& state) {
  Scene scene;
  if (!scene.system) return state.SkipWithError("no off-screen context");
  for (int i = 0; i < 3; ++i) scene.surface->renderThumb(nullptr, 256, 256);
  for (auto _ : state) benchmark::DoNotOptimize(scene.surface->renderThumb(nullptr, 256, 256));
}
BENCHMARK(BM_BedThumbnail256)->Unit(benchmark::kMillisecond);

// The print view's whole chain (background, triangles with caps, lines, three glows, x-ray, screen
// space) on one million-triangle print mesh in the faceted print shader, read back by one pixel so
// that the frame is finished when the timing stops.
void BM_PrintViewFrame1080(benchmark::State& state) {
  constexpr int width = 1920, height = 1080;
  std::unique_ptr<voGR::DrawSystem> system = voGR::DrawSystem::createOffscreen();
  if (!system) return state.SkipWithError("no off-screen context");
  voTXN::Manager manager;
  voDMD::Document document(manager);
  voSupport::PropertySet settings;
  settings.set("vo.app.settings.CutawayCaps", true);
  voSupport::CallInfo info;
  info.set<voGR::DrawSystem>(system.get());
  info.set<voDMD::Document>(&document);
  info.set<voDMD::Camera>(document.camera());
  info.set<voSupport::PropertySet>(&settings);
  voSupport::CallScope scope(info);
  ruRen::FBOKey key = system->createFBOKey(ruRen::FBOInfo(width, height, true, false, false));
  ru::Reference<voDMG::KLTSurfaceDraw> surface = new voDMG::KLTSurfaceDraw(*system, system->createRenderTarget("Frame", key));
  surface->initialize();
  voGR::DrawContext context(system.get(), system->allocateID());

  const ruLinear::Range3d total(ruLinear::Point(-100, -100, 0), ruLinear::Point(100, 100, 150));
  document.insert(voDMD::createPrinterObject(document, total, total));
  ru::Reference<ruGeom::CompactMesh> mesh = bench::torus(1000, 500);
  ruGeom::meshComputeNormals(*mesh);
  const ruLinear::AffineMatrix place =
      ruLinear::AffineMatrix::scaling(20.0) * ruLinear::AffineMatrix::translation(ruLinear::Vector(0, 0, 20));
  int source = 0;
  {
    voGR::Draw draw(context, &source, false);
    draw.setTransform(place);
    draw.setColor(0.8f, 0.3f, 0.2f, 1.0f);
    draw.setShader(ru::Reference<voGR::Shader>(new voGR::KLTFacetedShader()));
    draw.setMesh(mesh);
    draw.emit();
  }
  ruGeom::Camera camera;
  camera.setViewport(ruGeom::Viewport(0, 0, width, height));
  ruGeom::AngleAspect frustum;
  frustum.setAspectRatio(double(width) / height);
  frustum.setDepthRange(1.0, 1000.0);
  camera.setFrustum(frustum);
  camera.setWorldToEye(ruLinear::Point(0, 0, 20), ruLinear::Point(0, -150, 130), ruLinear::Vector(0, 0, 1));
  document.camera()->set(camera);
  surface->updateCamera(camera);

  ruImage::TypedImage<ruImage::Byte4> pixel;
  auto frame = [&] {
    key.lock();
    system->draw(surface->renderTargetNode());
    system->getRenDeviceContext()->readColorBuffer(key, width / 2, height / 2, 1, 1, pixel);
    key.unlock();
  };
  frame();  // uploads once
  const std::int64_t uploads = system->getStatistics().bufferUploads;
  for (auto _ : state) frame();
  state.counters["uploads"] = double(system->getStatistics().bufferUploads - uploads);
  surface = nullptr;
}
BENCHMARK(BM_PrintViewFrame1080)->Unit(benchmark::kMillisecond);

}  // namespace
