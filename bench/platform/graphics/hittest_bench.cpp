// Speed of voGR::visibilityTest on a deterministic mesh of 1,000,000 triangles, with raw Embree
// (rtcIntersect1 through the same pixels) measured in the same run as the yardstick; and among a
// thousand small items, still and while one of them is dragged.

#include "platform/geometry/camera.h"
#include "platform/geometry/construct.h"
#include "platform/geometry/mesh.h"
#include "platform/graphics/draw.h"
#include "platform/graphics/hittest.h"
#include "platform/graphics/world.h"

#include "bench/benchmeshes.h"
#include "bench/rawembree.h"

#include <benchmark/benchmark.h>
#include <embree3/rtcore.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

using namespace voGR;
using ruGeom::CompactMesh;
using ruGeom::MeshVertex;
using ruLinear::Point;
using ruLinear::Vector;

namespace {

ru::Reference<CompactMesh> makeTorus(int around, int tube) { return bench::torus(around, tube); }

// The torus as the one item of the active database, seen from above in an 800 x 800 viewport.
struct Setup {
  std::unique_ptr<DrawSystem> system;
  ru::Reference<Database> database;
  std::unique_ptr<DrawContext> context;
  ru::Reference<CompactMesh> mesh = makeTorus(1000, 500);
  ruGeom::Camera camera;
  int source = 0;
  std::vector<ruLinear::Point2> onTorus;  // pixel centres whose ray hits the torus

  Setup() {
    ruString::CString error;
    system = DrawSystem::createOffscreen(&error);
    if (!system) {
      std::fprintf(stderr, "no draw system: %s\n", error.c_str());
      std::exit(1);
    }
    database = new Database(system->getGraph());
    system->setActiveDatabase(database);
    context = std::make_unique<DrawContext>(system.get(), system->allocateID());
    {
      Draw draw(*context, &source, false);
      draw.setMesh(mesh);
      draw.emit();
    }
    camera.setViewport(ruGeom::Viewport(0, 0, 800, 800));
    camera.setWorldToEye(Point(0, 0, 0), Point(0.5, -1.0, 8.0), Vector(0, 1, 0));
    // Pixels along a ring over the torus body.
    for (int k = 0; k < 256; ++k) {
      const double a = 2 * ruLinear::pi * k / 256;
      ruLinear::Point2 p;
      if (camera.project(Point(2 * std::cos(a), 2 * std::sin(a), 0.7), p))
        onTorus.emplace_back(std::floor(p.x) + 0.5, std::floor(p.y) + 0.5);
    }
  }
};

Setup& setup() {
  static Setup* s = new Setup();
  return *s;
}

using bench::rawDevice;
using bench::rawScene;

// One raw ray from the eye through each pixel of the ring.
void BM_RawEmbreeRayOnPixel(benchmark::State& state) {
  Setup& s = setup();
  RTCScene scene = rawScene(*s.mesh);
  std::vector<std::array<float, 6>> rays;
  for (const ruLinear::Point2& p : s.onTorus) {
    const ruLinear::Line line = s.camera.getWorldSpaceRay(p);
    rays.push_back({float(line.getPoint().x), float(line.getPoint().y), float(line.getPoint().z),
                    float(line.getDirection().getX()), float(line.getDirection().getY()), float(line.getDirection().getZ())});
  }
  std::size_t i = 0;
  long hits = 0;
  for (auto _ : state) {
    const auto& ray = rays[i++ % rays.size()];
    RTCIntersectContext context;
    rtcInitIntersectContext(&context);
    RTCRayHit rayHit;
    rayHit.ray.org_x = ray[0], rayHit.ray.org_y = ray[1], rayHit.ray.org_z = ray[2];
    rayHit.ray.dir_x = ray[3], rayHit.ray.dir_y = ray[4], rayHit.ray.dir_z = ray[5];
    rayHit.ray.tnear = 0, rayHit.ray.tfar = INFINITY, rayHit.ray.time = 0, rayHit.ray.mask = ~0u;
    rayHit.ray.id = 0, rayHit.ray.flags = 0;
    rayHit.hit.geomID = RTC_INVALID_GEOMETRY_ID;
    rtcIntersect1(scene, &context, &rayHit);
    hits += rayHit.hit.geomID != RTC_INVALID_GEOMETRY_ID;
  }
  state.counters["hitRate"] = static_cast<double>(hits) / static_cast<double>(state.iterations());
  rtcReleaseScene(scene);
}
BENCHMARK(BM_RawEmbreeRayOnPixel);

// visibilityTest at radius 0 on the same pixels (every one a hit).
void BM_VisibilityTestRadius0Hit(benchmark::State& state) {
  Setup& s = setup();
  HitTestConfig config;
  ru::vector<HitRecord> records;
  visibilityTest(*s.system, s.camera, s.onTorus[0], config, records);  // builds the shared structure
  std::size_t i = 0;
  long hits = 0;
  for (auto _ : state) {
    visibilityTest(*s.system, s.camera, s.onTorus[i++ % s.onTorus.size()], config, records);
    hits += !records.empty();
  }
  state.counters["hitRate"] = static_cast<double>(hits) / static_cast<double>(state.iterations());
}
BENCHMARK(BM_VisibilityTestRadius0Hit);

// visibilityTest at radius 4 in the torus hole: 49 rays, all missing.
void BM_VisibilityTestRadius4Miss(benchmark::State& state) {
  Setup& s = setup();
  HitTestConfig config;
  config.radius = 4;
  ru::vector<HitRecord> records;
  ruLinear::Point2 hole;
  s.camera.project(Point(0, 0, 0), hole);
  visibilityTest(*s.system, s.camera, hole, config, records);
  long hits = 0;
  for (auto _ : state) {
    visibilityTest(*s.system, s.camera, hole, config, records);
    hits += !records.empty();
  }
  state.counters["hitRate"] = static_cast<double>(hits) / static_cast<double>(state.iterations());
}
BENCHMARK(BM_VisibilityTestRadius4Miss);

// A field of 1,000 small boxes in a database of their own (made active for the benchmark), seen
// like the torus: what a pick costs among many items, and what a drag costs, moving one box (a
// re-emission: the old item leaves, a new one joins) and picking it at every step.
struct Field {
  static constexpr int kBoxes = 1000;
  ru::Reference<Database> database;
  ru::Reference<CompactMesh> box = new CompactMesh();
  int sources[kBoxes] = {};
  std::vector<Point> places;

  explicit Field(Setup& s) : database(new Database(s.system->getGraph())) {
    ruGeom::constructCuboid(ruLinear::Range3d(Point(-0.04, -0.04, -0.04), Point(0.04, 0.04, 0.04)), *box);
    const ru::Reference<Database> former = s.system->setActiveDatabase(database);
    for (int i = 0; i < kBoxes; ++i) {
      const double angle = 2 * ruLinear::pi * (i / 4) / 250.0;
      const double radius = 1.6 + 0.2 * (i % 4);
      places.emplace_back(radius * std::cos(angle), radius * std::sin(angle), 0);
      emit(s, i, places.back());
    }
    s.system->setActiveDatabase(former);
  }
  void emit(Setup& s, int i, const Point& at) {
    Draw draw(*s.context, &sources[i], false);
    draw.setTransform(ruLinear::AffineMatrix::translation(at.asVector()));
    draw.setMesh(box);
    draw.emit();
  }
  ruLinear::Point2 pixel(const Setup& s, const Point& at) const {
    ruLinear::Point2 p;
    s.camera.project(at + Vector(0, 0, 0.04), p);
    return ruLinear::Point2(std::floor(p.x) + 0.5, std::floor(p.y) + 0.5);
  }
};

// A pick at radius 4 on one box of the field, nothing changing.
void BM_PickAmongAThousandBoxes(benchmark::State& state) {
  Setup& s = setup();
  Field field(s);
  const ru::Reference<Database> former = s.system->setActiveDatabase(field.database);
  HitTestConfig config;
  config.radius = 4;
  ru::vector<HitRecord> records;
  const ruLinear::Point2 at = field.pixel(s, field.places[300]);
  long hits = 0;
  for (auto _ : state) {
    visibilityTest(*s.system, s.camera, at, config, records);
    hits += !records.empty();
  }
  state.counters["hitRate"] = static_cast<double>(hits) / static_cast<double>(state.iterations());
  s.system->setActiveDatabase(former);
}
BENCHMARK(BM_PickAmongAThousandBoxes)->Unit(benchmark::kNanosecond);

// A drag: each step re-emits one box a little further along and picks it there (radius 4).
void BM_DragOneOfAThousandBoxesAndPick(benchmark::State& state) {
  Setup& s = setup();
  Field field(s);
  const ru::Reference<Database> former = s.system->setActiveDatabase(field.database);
  HitTestConfig config;
  config.radius = 4;
  ru::vector<HitRecord> records;
  long hits = 0, step = 0;
  for (auto _ : state) {
    const Point at = field.places[300] + Vector(0.3 * std::sin(0.01 * double(step++)), 0.3, 0.1);
    field.emit(s, 300, at);
    visibilityTest(*s.system, s.camera, field.pixel(s, at), config, records);
    hits += !records.empty();
  }
  state.counters["hitRate"] = static_cast<double>(hits) / static_cast<double>(state.iterations());
  s.system->setActiveDatabase(former);
}
BENCHMARK(BM_DragOneOfAThousandBoxesAndPick)->Unit(benchmark::kNanosecond);

}  // namespace
