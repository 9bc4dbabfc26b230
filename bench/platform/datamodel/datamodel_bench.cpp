#include "platform/datamodel/actions.h"
#include "platform/datamodel/meshhealth.h"
#include "platform/datamodel/print.h"
#include "platform/geometry/algorithms.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <vector>

namespace {

// A closed box of 12 * n * n triangles a shell, hollow: an outer shell facing out and an inner one
// facing the cavity, walls 1 unit thick. Vertices are shared along each face's grid (faces are
// not welded to each other, which the thickness rays do not mind).
ru::Reference<ruGeom::CompactMesh> hollowBox(int n) {
  ru::Reference<ruGeom::CompactMesh> mesh(new ruGeom::CompactMesh());
  static const int faces[6][4] = {{0, 2, 3, 1}, {4, 5, 7, 6}, {0, 1, 5, 4}, {2, 6, 7, 3}, {0, 4, 6, 2}, {1, 3, 7, 5}};
  for (int shell = 0; shell < 2; ++shell) {
    const float lo = shell ? 1.0f : 0.0f, hi = shell ? 99.0f : 100.0f;
    for (const auto& face : faces) {
      auto corner = [&](int bits) {
        return ruLinear::Point((bits & 1) ? hi : lo, (bits & 2) ? hi : lo, (bits & 4) ? hi : lo);
      };
      const ruLinear::Point a = corner(face[0]);
      const ruLinear::Vector u = corner(face[1]) - a, v = corner(face[3]) - a;
      const auto base = static_cast<std::uint32_t>(mesh->getNumVertices());
      for (int j = 0; j <= n; ++j) {
        for (int i = 0; i <= n; ++i) mesh->addVertex(a + u * (double(i) / n) + v * (double(j) / n));
      }
      for (int j = 0; j < n; ++j) {
        for (int i = 0; i < n; ++i) {
          const std::uint32_t p = base + j * (n + 1) + i, q = p + 1, r = p + n + 2, s = p + n + 1;
          if (shell) {
            mesh->addTriangle(p, r, q);
            mesh->addTriangle(p, s, r);
          } else {
            mesh->addTriangle(p, q, r);
            mesh->addTriangle(p, r, s);
          }
        }
      }
    }
  }
  return mesh;
}

// Wall thickness of every triangle corner (the analysis runs on every core).
void BM_ThicknessAnalysis(benchmark::State& state) {
  const ru::Reference<ruGeom::CompactMesh> mesh = hollowBox(static_cast<int>(state.range(0)));
  voDMA::computeThickness(*mesh);  // the acceleration structure is built once per mesh
  for (auto _ : state) benchmark::DoNotOptimize(voDMA::computeThickness(*mesh).data());
  state.counters["triangles"] = mesh->getNumTriangles();
}
// 65 -> 101,400 triangles; 204 -> 998,784 triangles.
BENCHMARK(BM_ThicknessAnalysis)->Arg(65)->Arg(204)->Unit(benchmark::kMillisecond);

void BM_MeshHealth(benchmark::State& state) {
  const ru::Reference<ruGeom::CompactMesh> mesh = hollowBox(static_cast<int>(state.range(0)));
  for (auto _ : state) benchmark::DoNotOptimize(voDMA::analyseMeshHealth(*mesh).openEdges);
  state.counters["triangles"] = mesh->getNumTriangles();
}
BENCHMARK(BM_MeshHealth)->Arg(204)->Unit(benchmark::kMillisecond);

// Ten thousand small print objects inserted in one transaction, then undone so each run starts
// from the same document.
void BM_InsertObjectsInOneTransaction(benchmark::State& state) {
  voDMA::TxnManager txn;
  voDMD::Document document(*txn.get());
  const ru::Reference<ruGeom::CompactMesh> cube = hollowBox(1);
  document.insert(voDMD::createPrinterObject(document, ruLinear::Range3d(ruLinear::Point(-1e4, -1e4, 0), ruLinear::Point(1e4, 1e4, 1e3)),
                                             ruLinear::Range3d(ruLinear::Point(-1e4, -1e4, 0), ruLinear::Point(1e4, 1e4, 1e3))));
  const int count = static_cast<int>(state.range(0));
  for (auto _ : state) {
    txn.get()->begin("Insert many");
    for (int i = 0; i < count; ++i) {
      document.insert(voDMD::createKLTMeshObject(
          document, cube, ruLinear::AffineMatrix::translation(ruLinear::Vector((i % 100) * 150.0 - 7500, (i / 100) * 150.0 - 7500, 0))));
    }
    txn.get()->commit();
    state.PauseTiming();
    txn.get()->undo();
    txn.get()->clearHistory();
    state.ResumeTiming();
  }
}
BENCHMARK(BM_InsertObjectsInOneTransaction)->Arg(10000)->Unit(benchmark::kMillisecond);

// A closed UV sphere of 2 * rings * (segments - 1) triangles: every vertex is on its hull, the
// hardest case for the world box.
ru::Reference<ruGeom::CompactMesh> sphere(int rings, int segments) {
  ru::Reference<ruGeom::CompactMesh> mesh(new ruGeom::CompactMesh());
  const double pi = 3.14159265358979323846;
  mesh->addVertex(ruLinear::Point(0, 0, 50));
  for (int r = 1; r < rings; ++r) {
    const double theta = pi * r / rings;
    for (int s = 0; s < segments; ++s) {
      const double phi = 2 * pi * s / segments;
      mesh->addVertex(ruLinear::Point(50 * std::sin(theta) * std::cos(phi), 50 * std::sin(theta) * std::sin(phi), 50 * std::cos(theta)));
    }
  }
  const auto south = static_cast<std::uint32_t>(mesh->addVertex(ruLinear::Point(0, 0, -50)));
  auto at = [&](int r, int s) { return static_cast<std::uint32_t>(1 + (r - 1) * segments + (s % segments)); };
  for (int s = 0; s < segments; ++s) mesh->addTriangle(0, at(1, s), at(1, s + 1));
  for (int r = 1; r + 1 < rings; ++r) {
    for (int s = 0; s < segments; ++s) {
      mesh->addTriangle(at(r, s), at(r + 1, s), at(r + 1, s + 1));
      mesh->addTriangle(at(r, s), at(r + 1, s + 1), at(r, s + 1));
    }
  }
  for (int s = 0; s < segments; ++s) mesh->addTriangle(south, at(rings - 1, s + 1), at(rings - 1, s));
  return mesh;
}

// A print part of about a million triangles on the bed of a printer, moved inside one open
// transaction as a drag does: each iteration sets a new transform and reads the refreshed world
// box (the placement against the printer is refreshed with it). Arg 0: the hollow box (flat
// faces), 1: the sphere (every vertex on the hull). Arg 1: 0 drags (translations), 1 turns.
void BM_TransformChangeRefreshesTheWorldBox(benchmark::State& state) {
  voDMA::TxnManager txn;
  voDMD::Document document(*txn.get());
  document.insert(voDMD::createPrinterObject(document, ruLinear::Range3d(ruLinear::Point(-500, -500, 0), ruLinear::Point(500, 500, 500)),
                                             ruLinear::Range3d(ruLinear::Point(-500, -500, 0), ruLinear::Point(500, 500, 500))));
  const ru::Reference<ruGeom::CompactMesh> mesh = state.range(0) == 0 ? hollowBox(204) : sphere(708, 707);
  ru::Reference<voDMD::Object> part = voDMD::createKLTMeshObject(document, mesh);
  document.insert(part);
  voDMD::Transform* transform = part->findAttribute<voDMD::Transform>();
  const voDMD::KLTMeshBBox* box = part->findAttribute<voDMD::KLTMeshBBox>();
  const bool turn = state.range(1) != 0;
  txn.get()->begin("Drag");
  long step = 0;
  for (auto _ : state) {
    ++step;
    ruLinear::AffineMatrix m = ruLinear::AffineMatrix::translation(ruLinear::Vector(double(step % 100), double(step % 37), 0));
    if (turn) m.preMultiply(ruLinear::AffineMatrix::rotation(0.001 * double(step % 1000), ruLinear::Vector(0.2, 0.3, 1)));
    transform->setObjToWorld(m);
    benchmark::DoNotOptimize(box->getWorldSpace().getMax(0));
  }
  txn.get()->commit();
  state.counters["triangles"] = mesh->getNumTriangles();
  state.counters["hullCandidates"] = static_cast<double>(ruGeom::meshHullCandidates(*mesh)->size());
}
BENCHMARK(BM_TransformChangeRefreshesTheWorldBox)
    ->ArgNames({"sphere", "turn"})
    ->Args({0, 0})
    ->Args({0, 1})
    ->Args({1, 0})
    ->Args({1, 1})
    ->Unit(benchmark::kMicrosecond);

} // namespace
