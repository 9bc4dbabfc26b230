// Speed of libGeometry on a deterministic mesh of 1,000,000 triangles, with raw Embree measured in
// the same run as the yardstick for the ray queries and the acceleration build.

#include "platform/geometry/algorithms.h"
#include "platform/geometry/camera.h"
#include "platform/geometry/meshio.h"
#include "platform/geometry/raycast.h"

#include "bench/benchmeshes.h"
#include "bench/rawembree.h"

#include <benchmark/benchmark.h>
#include <embree3/rtcore.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <random>
#include <string>
#include <unistd.h>
#include <vector>

using namespace ruGeom;
using ruLinear::Point;
using ruLinear::Vector;

namespace {

// The generated torus as a value (copies share its buffers).
CompactMesh makeTorus(int around, int tube) { return *bench::torus(around, tube); }

// 1000 * 500 quads: 1,000,000 triangles, 500,000 vertices.
const CompactMesh& millionTriangles() {
  static const CompactMesh mesh = makeTorus(1000, 500);
  return mesh;
}

struct Ray {
  float origin[3];
  float direction[3];
};

// Rays from a box around the torus toward random points near it: most hit.
const std::vector<Ray>& rays() {
  static const std::vector<Ray> list = [] {
    std::vector<Ray> result(1 << 16);
    std::mt19937 random(12345);
    std::uniform_real_distribution<float> box(-4, 4), near(-2.5f, 2.5f);
    for (Ray& ray : result) {
      const float o[3] = {box(random), box(random), box(random) + 3.0f};
      const float target[3] = {near(random), near(random), 0.5f * near(random)};
      float d[3] = {target[0] - o[0], target[1] - o[1], target[2] - o[2]};
      const float length = std::sqrt(d[0] * d[0] + d[1] * d[1] + d[2] * d[2]);
      for (int k = 0; k < 3; ++k) {
        ray.origin[k] = o[k];
        ray.direction[k] = d[k] / length;
      }
    }
    return result;
  }();
  return list;
}

using bench::rawDevice;
using bench::rawScene;

void BM_RawEmbreeBuild(benchmark::State& state) {
  const CompactMesh& mesh = millionTriangles();
  rtcReleaseScene(rawScene(mesh));  // warm up: device and worker threads
  for (auto _ : state) {
    RTCScene scene = rawScene(mesh);
    benchmark::DoNotOptimize(scene);
    rtcReleaseScene(scene);
  }
}
BENCHMARK(BM_RawEmbreeBuild)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(3.0);

void BM_AccelerationBuild(benchmark::State& state) {
  CompactMesh mesh = millionTriangles();
  mesh.editVertices();  // our own buffer, so that each write below only renews its identity
  { MeshRayQuery warmUp(mesh); }
  for (auto _ : state) {
    state.PauseTiming();
    mesh.editVertices();  // a new identity: the next query must build
    state.ResumeTiming();
    MeshRayQuery query(mesh);
    benchmark::DoNotOptimize(query.valid());
  }
}
BENCHMARK(BM_AccelerationBuild)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(3.0);

void BM_RawEmbreeIntersectPerRay(benchmark::State& state) {
  RTCScene scene = rawScene(millionTriangles());
  const std::vector<Ray>& list = rays();
  std::size_t i = 0;
  long hits = 0;
  for (auto _ : state) {
    const Ray& ray = list[i++ & (list.size() - 1)];
    RTCIntersectContext context;
    rtcInitIntersectContext(&context);
    RTCRayHit rayHit;
    rayHit.ray.org_x = ray.origin[0], rayHit.ray.org_y = ray.origin[1], rayHit.ray.org_z = ray.origin[2];
    rayHit.ray.dir_x = ray.direction[0], rayHit.ray.dir_y = ray.direction[1], rayHit.ray.dir_z = ray.direction[2];
    rayHit.ray.tnear = 0, rayHit.ray.tfar = INFINITY, rayHit.ray.time = 0, rayHit.ray.mask = ~0u;
    rayHit.ray.id = 0, rayHit.ray.flags = 0;
    rayHit.hit.geomID = RTC_INVALID_GEOMETRY_ID;
    rtcIntersect1(scene, &context, &rayHit);
    hits += rayHit.hit.geomID != RTC_INVALID_GEOMETRY_ID;
  }
  state.counters["hitRate"] = static_cast<double>(hits) / static_cast<double>(state.iterations());
  rtcReleaseScene(scene);
}
BENCHMARK(BM_RawEmbreeIntersectPerRay);

// The query object in its single-precision form, as a hot loop would use it.
void BM_MeshRayQueryFloatPerRay(benchmark::State& state) {
  MeshRayQuery query(millionTriangles());
  const std::vector<Ray>& list = rays();
  std::size_t i = 0;
  long hits = 0;
  for (auto _ : state) {
    const Ray& ray = list[i++ & (list.size() - 1)];
    float distance, u, v;
    hits += query.intersect(ray.origin, ray.direction, INFINITY, distance, u, v) >= 0;
  }
  state.counters["hitRate"] = static_cast<double>(hits) / static_cast<double>(state.iterations());
}
BENCHMARK(BM_MeshRayQueryFloatPerRay);

// The general nearest-hit query with a world-space line, giving distance, barycentrics and point.
void BM_MeshRayQueryLinePerRay(benchmark::State& state) {
  MeshRayQuery query(millionTriangles());
  const std::vector<Ray>& list = rays();
  std::size_t i = 0;
  long hits = 0;
  for (auto _ : state) {
    const Ray& ray = list[i++ & (list.size() - 1)];
    const ruLinear::Line line(Point(ray.origin[0], ray.origin[1], ray.origin[2]),
                              Vector(ray.direction[0], ray.direction[1], ray.direction[2]));
    MeshRayHit hit;
    hits += query.intersect(line, hit);
  }
  state.counters["hitRate"] = static_cast<double>(hits) / static_cast<double>(state.iterations());
}
BENCHMARK(BM_MeshRayQueryLinePerRay);

// The free function: cache look-up on every call.
void BM_MeshRayIntersectPerRay(benchmark::State& state) {
  const CompactMesh& mesh = millionTriangles();
  MeshRayQuery keepBuilt(mesh);
  const std::vector<Ray>& list = rays();
  std::size_t i = 0;
  long hits = 0;
  for (auto _ : state) {
    const Ray& ray = list[i++ & (list.size() - 1)];
    const ruLinear::Line line(Point(ray.origin[0], ray.origin[1], ray.origin[2]),
                              Vector(ray.direction[0], ray.direction[1], ray.direction[2]));
    MeshRayHit hit;
    hits += meshRayIntersect(mesh, line, hit);
  }
  state.counters["hitRate"] = static_cast<double>(hits) / static_cast<double>(state.iterations());
}
BENCHMARK(BM_MeshRayIntersectPerRay);

// A pick with a one-pixel tolerance under a cursor that hits the mesh, and one away from it.
void pickScreen(benchmark::State& state, double cursorX) {
  const CompactMesh& mesh = millionTriangles();
  Camera camera;
  camera.setViewport(Viewport(0, 0, 1000, 800));
  AngleAspect frustum;
  frustum.setAspectRatio(1000.0 / 800.0);
  frustum.setDepthRange(1, 100);
  camera.setFrustum(frustum);
  camera.setWorldToEye(Point(0, 0, 0), Point(0, -8, 8), Vector(0, 0, 1));
  const ruLinear::ProjMatrixFlt matrix(camera.getWorldToViewport());
  const ruLinear::Point2 cursor(cursorX, 400.5);
  const ruLinear::Line ray = camera.getWorldSpaceRay(cursor);
  ruLinear::Point2 centre;
  camera.project(Point(0, 0, 0), centre);
  MeshRayQuery keepBuilt(mesh);
  bool valid = false;
  for (auto _ : state) valid = meshRayIntersectScreen(mesh, matrix, static_cast<int>(cursor.x), 400, 1, ray).valid();
  state.counters["hit"] = valid;
}
void BM_MeshRayIntersectScreenOnMesh(benchmark::State& state) { pickScreen(state, 300.5); }
BENCHMARK(BM_MeshRayIntersectScreenOnMesh);
void BM_MeshRayIntersectScreenBesideMesh(benchmark::State& state) { pickScreen(state, 5.5); }
BENCHMARK(BM_MeshRayIntersectScreenBesideMesh);
// Through the hole of the torus: inside the projected box, so the box test alone cannot refuse it.
void BM_MeshRayIntersectScreenInHole(benchmark::State& state) { pickScreen(state, 500.5); }
BENCHMARK(BM_MeshRayIntersectScreenInHole)->Unit(benchmark::kMillisecond);

// The eye inside the mesh's box (in the hole of the torus, looking across the ring) and the
// cursor above the ring: the ray misses, so the tolerance search walks the ray from the eye.
void BM_MeshRayIntersectScreenEyeInsideBox(benchmark::State& state) {
  const CompactMesh& mesh = millionTriangles();
  Camera camera;
  camera.setViewport(Viewport(0, 0, 1000, 800));
  AngleAspect frustum;
  frustum.setAspectRatio(1000.0 / 800.0);
  frustum.setDepthRange(0.05, 100);
  camera.setFrustum(frustum);
  camera.setWorldToEye(Point(3, 1, 0.6), Point(0.2, 0.1, 0.3), Vector(0, 0, 1));
  const ruLinear::ProjMatrixFlt matrix(camera.getWorldToViewport());
  const ruLinear::Point2 cursor(500.5, 790.5);
  const ruLinear::Line ray = camera.getWorldSpaceRay(cursor);
  MeshRayQuery keepBuilt(mesh);
  bool valid = false;
  for (auto _ : state) valid = meshRayIntersectScreen(mesh, matrix, 500, 790, 1, ray).valid();
  state.counters["hit"] = valid;
}
BENCHMARK(BM_MeshRayIntersectScreenEyeInsideBox)->Unit(benchmark::kMillisecond);

void BM_CompactMeshCopy(benchmark::State& state) {
  CompactMesh mesh = millionTriangles();
  mesh.allocAttributes("thickness", 1);
  meshComputeNormals(mesh);
  for (auto _ : state) {
    CompactMesh copy(mesh);
    benchmark::DoNotOptimize(copy.getVertices());
  }
}
BENCHMARK(BM_CompactMeshCopy);

void BM_MeshComputeNormals(benchmark::State& state) {
  CompactMesh mesh = millionTriangles();
  for (auto _ : state) {
    meshComputeNormals(mesh);
    benchmark::DoNotOptimize(mesh.getNormals());
  }
}
BENCHMARK(BM_MeshComputeNormals)->Unit(benchmark::kMillisecond);

void BM_MeshAdjTris(benchmark::State& state) {
  const CompactMesh& mesh = millionTriangles();
  for (auto _ : state) {
    MeshAdjTris adjacency;
    meshAdjTris(mesh, adjacency);
    benchmark::DoNotOptimize(adjacency.getNumTriangles());
  }
}
BENCHMARK(BM_MeshAdjTris)->Unit(benchmark::kMillisecond);

// 20,000 triangles around one hub vertex that is every triangle's second corner: the valence of
// one vertex is the whole mesh.
void BM_MeshAdjTrisFanOf20000(benchmark::State& state) {
  CompactMesh fan;
  const int count = 20000;
  fan.setNumVertices(count + 2);
  MeshVertex* v = fan.editVertices();
  for (int i = 1; i < count + 2; ++i) {
    const double angle = 2 * ruLinear::pi * i / (count + 1);
    v[i] = MeshVertex(Point(std::cos(angle), std::sin(angle), 0));
  }
  fan.setNumTriangles(count);
  std::uint32_t* t = fan.editTriangles();
  for (std::uint32_t i = 0; i < static_cast<std::uint32_t>(count); ++i) {
    // The edge leaving the hub meets its partner only in the next triangle.
    t[3 * i] = i + 1, t[3 * i + 1] = 0, t[3 * i + 2] = i + 2;
  }
  for (auto _ : state) {
    MeshAdjTris adjacency;
    meshAdjTris(fan, adjacency);
    benchmark::DoNotOptimize(adjacency.getNumTriangles());
  }
}
BENCHMARK(BM_MeshAdjTrisFanOf20000)->Unit(benchmark::kMillisecond);

void BM_ComputeStrips128(benchmark::State& state) {
  CompactMesh mesh = millionTriangles();
  MeshAdjTris adjacency;
  meshAdjTris(mesh, adjacency);
  int strips = 0;
  for (auto _ : state) strips = MeshTriStrip(mesh, adjacency).computeStrips(128, 0);
  state.counters["strips"] = strips;
}
BENCHMARK(BM_ComputeStrips128)->Unit(benchmark::kMillisecond);

void BM_MeshSplitTwoMillionVertices(benchmark::State& state) {
  static const CompactMesh mesh = [] {
    CompactMesh m = makeTorus(2000, 1000);  // 2,000,000 vertices
    const WritableMeshAttributes thickness = m.allocAttributes("thickness", 1);
    for (int i = 0; i < m.getNumVertices(); ++i) thickness.editFloat()[i] = static_cast<float>(i);
    return m;
  }();
  std::size_t parts = 0;
  for (auto _ : state) {
    ru::vector<CompactMesh*> out;
    meshSplit(mesh, 65535, out);
    parts = out.size();
    state.PauseTiming();
    for (CompactMesh* part : out) delete part;
    state.ResumeTiming();
  }
  state.counters["parts"] = static_cast<double>(parts);
}
BENCHMARK(BM_MeshSplitTwoMillionVertices)->Unit(benchmark::kMillisecond);

void BM_ImportBinaryStlMillionTriangles(benchmark::State& state) {
  const std::string path = (std::filesystem::temp_directory_path() /
                            ("ru_bench_" + std::to_string(::getpid()) + ".stl")).string();
  if (!writeStlBinary(millionTriangles(), path)) {
    state.SkipWithError("cannot write the STL file");
    return;
  }
  int vertices = 0;
  for (auto _ : state) {
    CompactMesh mesh;
    ruString::CString error;
    if (!importMesh(path, mesh, &error)) {
      state.SkipWithError(error.c_str());
      break;
    }
    vertices = mesh.getNumVertices();
  }
  state.counters["vertices"] = vertices;
  std::remove(path.c_str());
}
BENCHMARK(BM_ImportBinaryStlMillionTriangles)->Unit(benchmark::kMillisecond);

// The hull candidates of a new vertex buffer (the bumpy torus of a million triangles): paid once
// per buffer, at the first box taken after the mesh changed.
void BM_HullCandidatesOfANewBuffer(benchmark::State& state) {
  std::size_t kept = 0;
  for (auto _ : state) {
    state.PauseTiming();
    CompactMesh mesh = millionTriangles();
    mesh.editVertices();  // a new identity, so nothing is cached for it
    state.ResumeTiming();
    kept = meshHullCandidates(mesh)->size();
  }
  state.counters["candidates"] = static_cast<double>(kept);
}
BENCHMARK(BM_HullCandidatesOfANewBuffer)->Unit(benchmark::kMillisecond);

// The box of the torus's vertices under a new rotation each time: over the cached candidates, and
// by carrying every vertex (what a move cost before the candidates).
void BM_TransformedRangeOfAMillionTriangles(benchmark::State& state) {
  const CompactMesh& mesh = millionTriangles();
  const bool everyVertex = state.range(0) != 0;
  meshHullCandidates(mesh);
  long step = 0;
  for (auto _ : state) {
    const ruLinear::AffineMatrix m = ruLinear::AffineMatrix::rotation(0.001 * double(++step % 3000), Vector(0.3, -0.2, 1));
    if (everyVertex) {
      ruLinear::Range3d range;
      for (int i = 0; i < mesh.getNumVertices(); ++i) range.include(mesh.getVertices()[i].asPoint() * m);
      benchmark::DoNotOptimize(range.getMax(0));
    } else {
      benchmark::DoNotOptimize(meshTransformedRange(mesh, m).getMax(0));
    }
  }
}
BENCHMARK(BM_TransformedRangeOfAMillionTriangles)->ArgName("everyVertex")->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);

}  // namespace
