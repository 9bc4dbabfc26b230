// Cursor moves through DocumentHitTester::hitTest on a document holding the 1,000,000-triangle
// generated torus and 1,000 small boxes, with raw Embree (rtcIntersect1 through the same pixel) in
// the same run as the yardstick: a move whose hits do not change, a move that changes the hovered
// object through the candidate set and DocumentDraw::draw, and a miss with radius 4.

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
#include "platform/support/settings.h"

#include "bench/benchmeshes.h"

#include <benchmark/benchmark.h>
#include <embree3/rtcore.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>
#include <vector>

// Every allocation of the program is counted, so a benchmark can report how many its step makes.
namespace {
std::atomic<long> allocations{0};
}  // namespace

void* operator new(std::size_t size) {
  allocations.fetch_add(1, std::memory_order_relaxed);
  if (void* p = std::malloc(size ? size : 1)) return p;
  throw std::bad_alloc();
}
void* operator new[](std::size_t size) { return operator new(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  allocations.fetch_add(1, std::memory_order_relaxed);
  return std::malloc(size ? size : 1);
}
void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept { return operator new(size, tag); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { std::free(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { std::free(p); }

namespace {

using ruLinear::Point;
using voDMG::DocumentHitTester;

// The document on an off-screen draw system, every per-document object entered in the call info
// as a host enters them, seen from above in an 800 x 800 viewport.
struct Scene {
  std::unique_ptr<voGR::DrawSystem> system;
  ru::Reference<voGR::Database> database;
  voTXN::Manager manager;
  std::unique_ptr<voDMD::Document> document;
  voSupport::CallInfo info;
  std::unique_ptr<voSupport::CallScope> scope;
  voDMG::DocumentHitTester hitTester;
  voDMG::DocumentDraw* documentDraw = nullptr;
  std::unique_ptr<voDMG::SelectionSet> selection;
  std::unique_ptr<voDMG::CandidateSet> candidates;
  ru::Reference<ruGeom::CompactMesh> torus;
  voDMD::Object* torusObject = nullptr;
  std::vector<voDMD::Object*> boxes;
  ruGeom::Camera camera;
  ruRTB::SignalClient client;

  Scene() {
    ruString::CString error;
    system = voGR::DrawSystem::createOffscreen(&error);
    if (!system) {
      std::fprintf(stderr, "no draw system: %s\n", error.c_str());
      std::exit(1);
    }
    database = new voGR::Database(system->getGraph());
    database->addWorld(new voGR::ListWorld(true), {});
    database->addWorld(new voGR::ListWorld(true), [](voGR::DrawItem& item) { return item.isActive(); });
    system->setActiveDatabase(database);
    document = std::make_unique<voDMD::Document>(manager);

    camera.setViewport(ruGeom::Viewport(0, 0, 800, 800));
    ruGeom::AngleAspect frustum;
    frustum.setAngle(ruLinear::pi / 3);
    frustum.setAspectRatio(1.0);
    frustum.setDepthRange(0.1, 100.0);
    camera.setFrustum(frustum);
    camera.setWorldToEye(Point(0, 0, 0), Point(0.5, -1.0, 8.0), ruLinear::Vector(0, 1, 0));
    document->camera()->set(camera);

    info.set<voGR::DrawSystem>(system.get());
    info.set<voDMD::Document>(document.get());
    info.set<voDMD::Camera>(document->camera());
    info.set<voDMG::DocumentHitTester>(&hitTester);
    scope = std::make_unique<voSupport::CallScope>(info);

    // The torus with normals and strips made once, as a loaded mesh has them, so that a hover
    // re-emission shares its buffers.
    torus = bench::torus(1000, 500);
    ruGeom::meshComputeNormals(*torus);
    ruGeom::MeshAdjTris adjacency;
    ruGeom::meshAdjTris(*torus, adjacency);
    ruGeom::MeshTriStrip(*torus, adjacency).computeStrips(128, 0);
    manager.begin("populate");
    torusObject = add(torus, ruLinear::AffineMatrix::Identity);
    // 1,000 small boxes on a ring around the torus.
    ru::Reference<ruGeom::CompactMesh> box = new ruGeom::CompactMesh();
    ruGeom::constructCuboid(ruLinear::Range3d(Point(-0.04, -0.04, -0.04), Point(0.04, 0.04, 0.04)), *box);
    for (int i = 0; i < 1000; ++i) {
      const double angle = 2 * ruLinear::pi * (i / 4) / 250.0;
      const double radius = 3.1 + 0.2 * (i % 4);
      ruLinear::AffineMatrix placement;
      placement.translate(ruLinear::Vector(radius * std::cos(angle), radius * std::sin(angle), 0));
      boxes.push_back(add(box, placement));
    }
    manager.commit();

    documentDraw = new voDMG::DocumentDraw(document.get());
    info.set<voDMG::DocumentDraw>(documentDraw);
    selection = std::make_unique<voDMG::SelectionSet>();
    candidates = std::make_unique<voDMG::CandidateSet>();
    info.set<voDMG::SelectionSet>(selection.get());
    info.set<voDMG::CandidateSet>(candidates.get());
    selection->sigMembershipChanged.connect(documentDraw, &voDMG::DocumentDraw::onSelectionModified, client);
    candidates->sigMembershipChanged.connect(documentDraw, &voDMG::DocumentDraw::onSelectionModified, client);
    documentDraw->draw();
  }
  ~Scene() {
    client.disconnectAll();
    candidates.reset();
    selection.reset();
    documentDraw->destroy();
    scope.reset();
  }
  voDMD::Object* add(const ru::Reference<ruGeom::CompactMesh>& mesh, const ruLinear::AffineMatrix& placement) {
    ru::Reference<voDMD::Object> object = voDMD::Object::create(*document, voDMD::MeshClass::get());
    object->addAttribute<voDMD::Mesh>(mesh);
    object->addAttribute<voDMD::Transform>(placement);
    object->addAttribute<voDMD::BoundingBox>();
    document->insert(object);
    return object.get();
  }
  ruLinear::Point2 pixel(const Point& world) const {
    ruLinear::Point2 p;
    camera.project(world, p);
    return ruLinear::Point2(std::floor(p.x) + 0.5, std::floor(p.y) + 0.5);
  }
  // The top of the torus body, and the pixel beside it: the same object under both.
  ruLinear::Point2 onTorus() const { return pixel(Point(2.0, 0.0, 0.7)); }
  ruLinear::Point2 besideOnTorus() const { return ruLinear::Point2(onTorus().x + 1, onTorus().y); }
  ruLinear::Point2 onBox() const { return pixel(Point(3.1, 0.0, 0.04)); }
  ruLinear::Point2 inHole() const { return pixel(Point(0, 0, 0)); }
};

Scene& scene() {
  static Scene* s = new Scene();
  return *s;
}

// The yardstick: Embree used directly on the torus alone, one ray through the same pixel.
void BM_RawEmbreeRayOnPixel(benchmark::State& state) {
  Scene& s = scene();
  RTCDevice device = rtcNewDevice("threads=0");
  RTCScene rtc = rtcNewScene(device);
  rtcSetSceneBuildQuality(rtc, RTC_BUILD_QUALITY_MEDIUM);
  RTCGeometry geometry = rtcNewGeometry(device, RTC_GEOMETRY_TYPE_TRIANGLE);
  const ruGeom::CompactMesh& mesh = *s.torus;
  auto* vertices = static_cast<float*>(
      rtcSetNewGeometryBuffer(geometry, RTC_BUFFER_TYPE_VERTEX, 0, RTC_FORMAT_FLOAT3, 12, mesh.getNumVertices()));
  std::copy_n(reinterpret_cast<const float*>(mesh.getVertices()), 3 * static_cast<std::size_t>(mesh.getNumVertices()), vertices);
  auto* indices = static_cast<std::uint32_t*>(
      rtcSetNewGeometryBuffer(geometry, RTC_BUFFER_TYPE_INDEX, 0, RTC_FORMAT_UINT3, 12, mesh.getNumTriangles()));
  std::copy_n(mesh.getTriangles(), 3 * static_cast<std::size_t>(mesh.getNumTriangles()), indices);
  rtcCommitGeometry(geometry);
  rtcAttachGeometry(rtc, geometry);
  rtcReleaseGeometry(geometry);
  rtcCommitScene(rtc);
  const ruLinear::Line line = s.camera.getWorldSpaceRay(s.onTorus());
  long hits = 0;
  for (auto _ : state) {
    RTCIntersectContext context;
    rtcInitIntersectContext(&context);
    RTCRayHit rayHit;
    rayHit.ray.org_x = float(line.getPoint().x), rayHit.ray.org_y = float(line.getPoint().y);
    rayHit.ray.org_z = float(line.getPoint().z);
    rayHit.ray.dir_x = float(line.getDirection().getX()), rayHit.ray.dir_y = float(line.getDirection().getY());
    rayHit.ray.dir_z = float(line.getDirection().getZ());
    rayHit.ray.tnear = 0, rayHit.ray.tfar = INFINITY, rayHit.ray.time = 0, rayHit.ray.mask = ~0u;
    rayHit.ray.id = 0, rayHit.ray.flags = 0;
    rayHit.hit.geomID = RTC_INVALID_GEOMETRY_ID;
    rtcIntersect1(rtc, &context, &rayHit);
    hits += rayHit.hit.geomID != RTC_INVALID_GEOMETRY_ID;
  }
  state.counters["hitRate"] = static_cast<double>(hits) / static_cast<double>(state.iterations());
  rtcReleaseScene(rtc);
  rtcReleaseDevice(device);
}
BENCHMARK(BM_RawEmbreeRayOnPixel);

// voGR::visibilityTest alone, with the candidate set's config, at the same two pixels: what the
// hit tester adds is the difference to BM_HitTestMoveSameHits.
void BM_VisibilityTestAloneSamePixels(benchmark::State& state) {
  Scene& s = scene();
  const voGR::HitTestConfig config = s.candidates->hitTestConfig();
  const ruLinear::Point2 a = s.onTorus(), b = s.besideOnTorus();
  ru::vector<voGR::HitRecord> records;
  bool flip = false;
  for (auto _ : state) {
    flip = !flip;
    voGR::visibilityTest(*s.system, s.camera, flip ? a : b, config, records);
  }
  state.counters["records"] = static_cast<double>(records.size());
  state.counters["radius"] = config.radius;
}
BENCHMARK(BM_VisibilityTestAloneSamePixels)->Unit(benchmark::kNanosecond);

// The same with one ray (radius 0), to tell the cost per ray from the cost per item.
void BM_VisibilityTestAloneRadius0(benchmark::State& state) {
  Scene& s = scene();
  voGR::HitTestConfig config = s.candidates->hitTestConfig();
  config.radius = 0;
  const ruLinear::Point2 a = s.onTorus();
  ru::vector<voGR::HitRecord> records;
  for (auto _ : state) voGR::visibilityTest(*s.system, s.camera, a, config, records);
  state.counters["records"] = static_cast<double>(records.size());
}
BENCHMARK(BM_VisibilityTestAloneRadius0)->Unit(benchmark::kNanosecond);

// The cursor moves between two pixels over the torus: the hits stay the same, so nothing but the
// test runs (no set, no signal). The candidate set's key has the settings' radius.
void BM_HitTestMoveSameHits(benchmark::State& state) {
  Scene& s = scene();
  int changes = 0;
  ruRTB::SignalClient listener;
  s.candidates->sigCandidatesChanged.addCallback([&] { ++changes; }, listener);
  const ruLinear::Point2 a = s.onTorus(), b = s.besideOnTorus();
  s.hitTester.hitTest(a, DocumentHitTester::Move);
  s.hitTester.hitTest(b, DocumentHitTester::Move);
  const int before = changes;
  const long allocationsBefore = allocations.load();
  bool flip = false;
  for (auto _ : state) {
    flip = !flip;
    s.hitTester.hitTest(flip ? a : b, DocumentHitTester::Move);
  }
  // The record vector of each test is the one allocation a move may make.
  state.counters["allocationsPerMove"] =
      static_cast<double>(allocations.load() - allocationsBefore) / static_cast<double>(state.iterations());
  state.counters["candidateChanges"] = changes - before;
  state.counters["candidates"] = static_cast<double>(s.candidates->items().size());
  state.counters["radius"] = s.candidates->hitTestConfig().radius;
}
BENCHMARK(BM_HitTestMoveSameHits)->Unit(benchmark::kNanosecond);

// The cursor moves between the torus and a small box: each move changes the candidates, and the
// frame's DocumentDraw::draw re-emits the two objects.
void BM_HoverChangeThroughCandidatesAndDraw(benchmark::State& state) {
  Scene& s = scene();
  int changes = 0;
  ruRTB::SignalClient listener;
  s.candidates->sigCandidatesChanged.addCallback([&] { ++changes; }, listener);
  const ruLinear::Point2 a = s.onTorus(), b = s.onBox();
  bool flip = false;
  for (auto _ : state) {
    flip = !flip;
    s.hitTester.hitTest(flip ? a : b, DocumentHitTester::Move);
    s.documentDraw->draw();
  }
  state.counters["candidateChangesPerMove"] = static_cast<double>(changes) / static_cast<double>(state.iterations());
}
BENCHMARK(BM_HoverChangeThroughCandidatesAndDraw)->Unit(benchmark::kMicrosecond)->MeasureProcessCPUTime();

// The worst case of a miss: radius 4 in the torus hole, every ray of the disc passing the body.
void BM_HitTestMissRadius4(benchmark::State& state) {
  Scene& s = scene();
  const int saved = voSupport::getHitTestRadius();
  voSupport::setHitTestRadius(4);
  voDMG::CandidateSet wide;
  voSupport::setHitTestRadius(saved);
  const ruLinear::Point2 hole = s.inHole();
  s.hitTester.hitTest(hole, DocumentHitTester::Move);
  long empty = 0;
  for (auto _ : state) {
    s.hitTester.hitTest(hole, DocumentHitTester::Move);
    empty += wide.empty();
  }
  state.counters["missRate"] = static_cast<double>(empty) / static_cast<double>(state.iterations());
  state.counters["keys"] = s.hitTester.numKeys();
}
BENCHMARK(BM_HitTestMissRadius4)->Unit(benchmark::kNanosecond);

}  // namespace
