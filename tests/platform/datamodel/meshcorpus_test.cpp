// Health, repair and thickness over every test mesh and over randomly damaged copies of each:
// holes punched, triangles flipped, duplicated and degenerated, with fixed seeds.

#include "platform/datamodel/actions.h"
#include "platform/datamodel/meshhealth.h"
#include "platform/datamodel/print.h"
#include "platform/geometry/construct.h"

#include "../geometry/testmeshes.h"
#include "meshes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace {

struct CorpusMesh {
  std::string name;
  ru::Reference<ruGeom::CompactMesh> mesh;
  bool closed;
};

ru::Reference<ruGeom::CompactMesh> adopt(const ruGeom::CompactMesh& mesh) {
  return ru::Reference<ruGeom::CompactMesh>(new ruGeom::CompactMesh(mesh));
}

// Every mesh the geometry and data-model tests generate.
std::vector<CorpusMesh> corpus() {
  std::vector<CorpusMesh> meshes;
  for (const auto& named : ruGeomTest::corpus()) meshes.push_back({named.name, adopt(named.mesh), named.closed});
  meshes.push_back({"box", testmesh::toMesh(testmesh::box()), true});
  meshes.push_back({"gridded box", testmesh::toMesh(testmesh::box({0, 0, 0}, {3, 2, 1}, 3)), true});
  meshes.push_back({"hollow box", testmesh::toMesh(testmesh::hollowBox(10, 1, 2)), true});
  testmesh::Soup twoCubes;
  testmesh::addBox(twoCubes, {0, 0, 0}, {1, 1, 1});
  testmesh::addBox(twoCubes, {1, 1, 0}, {2, 2, 1});
  meshes.push_back({"cubes sharing an edge", testmesh::toMesh(twoCubes), true});
  ru::Reference<ruGeom::CompactMesh> cuboid(new ruGeom::CompactMesh());
  ruGeom::constructCuboid(ruLinear::Range3d(ruLinear::Point(-1, -2, -3), ruLinear::Point(4, 5, 6)), *cuboid);
  meshes.push_back({"cuboid with a seam at every edge", cuboid, true});
  ru::Reference<ruGeom::CompactMesh> cylinder(new ruGeom::CompactMesh());
  ruGeom::constructCappedCylinder(ruLinear::ParamLine(ruLinear::Point(0, 0, 0), ruLinear::Vector(0, 0, 5)), 2.0, 12, *cylinder);
  meshes.push_back({"capped cylinder", cylinder, true});
  return meshes;
}

// A damaged copy of `mesh`, and what was done to it. std::mt19937 is the same everywhere, and
// only its raw output is used, so every seed gives the same damage on every machine.
ru::Reference<ruGeom::CompactMesh> damage(const ruGeom::CompactMesh& mesh, unsigned seed, std::string& what) {
  std::mt19937 random(seed);
  auto pick = [&](std::size_t n) { return static_cast<std::size_t>(random() % n); };
  std::vector<std::uint32_t> t(mesh.getTriangles(), mesh.getTriangles() + 3 * mesh.getNumTriangles());
  const std::size_t numVertices = static_cast<std::size_t>(mesh.getNumVertices());
  const unsigned kinds = 1u + static_cast<unsigned>(random() % 15u);  // at least one kind
  if (kinds & 1u) {
    // A hole: every triangle around one vertex goes.
    const std::uint32_t v = t[pick(t.size())];
    std::vector<std::uint32_t> kept;
    for (std::size_t i = 0; i < t.size(); i += 3) {
      if (t[i] != v && t[i + 1] != v && t[i + 2] != v) kept.insert(kept.end(), {t[i], t[i + 1], t[i + 2]});
    }
    if (!kept.empty()) t = kept;
    what += " hole";
  }
  if (kinds & 2u) {
    for (std::size_t k = 1 + pick(3); k-- > 0;) {
      const std::size_t i = 3 * pick(t.size() / 3);
      std::swap(t[i + 1], t[i + 2]);
    }
    what += " flipped";
  }
  if (kinds & 4u) {
    for (std::size_t k = 1 + pick(3); k-- > 0;) {
      const std::size_t i = 3 * pick(t.size() / 3);
      const std::size_t r = pick(3);  // a copy may start at another corner
      t.insert(t.end(), {t[i + r], t[i + (r + 1) % 3], t[i + (r + 2) % 3]});
    }
    what += " duplicated";
  }
  if (kinds & 8u) {
    for (std::size_t k = 1 + pick(3); k-- > 0;) {
      const auto a = static_cast<std::uint32_t>(pick(numVertices)), b = static_cast<std::uint32_t>(pick(numVertices));
      if (pick(2)) {
        t.insert(t.end(), {a, b, a});
      } else {
        t.insert(t.end(), {a, a, a});
      }
    }
    what += " degenerated";
  }
  ru::Reference<ruGeom::CompactMesh> damaged(new ruGeom::CompactMesh(mesh));
  damaged->clearStrips();
  damaged->setNumTriangles(static_cast<int>(t.size() / 3));
  std::copy(t.begin(), t.end(), damaged->editTriangles());
  return damaged;
}

using PositionKey = std::array<float, 9>;

// The triangle's three corner positions, in a fixed order whatever its winding and first corner.
PositionKey positionKey(const ruGeom::CompactMesh& mesh, const std::uint32_t* c) {
  std::array<std::array<float, 3>, 3> corners;
  for (int k = 0; k < 3; ++k) {
    const ruGeom::MeshVertex& v = mesh.getVertices()[c[k]];
    corners[static_cast<std::size_t>(k)] = {v.x + 0.0f, v.y + 0.0f, v.z + 0.0f};
  }
  std::sort(corners.begin(), corners.end());
  PositionKey key;
  for (std::size_t k = 0; k < 9; ++k) key[k] = corners[k / 3][k % 3];
  return key;
}

bool sameHealth(const voDMA::MeshHealth& a, const voDMA::MeshHealth& b) {
  return a.openEdges == b.openEdges && a.nonManifoldEdges == b.nonManifoldEdges &&
         a.inconsistentEdges == b.inconsistentEdges && a.degenerateTriangles == b.degenerateTriangles &&
         a.duplicateTriangles == b.duplicateTriangles;
}

bool indexDegenerate(const std::uint32_t* c) { return c[0] == c[1] || c[1] == c[2] || c[0] == c[2]; }

// Repairs `mesh` as a print mesh would be, and checks what the repair promises.
void checkRepair(const ruGeom::CompactMesh& input, bool closed) {
  voDMA::TxnManager txn;
  voDMD::Document document(*txn.get());
  // Each vertex carries its own index, to see where attributes go.
  ru::Reference<ruGeom::CompactMesh> mesh(new ruGeom::CompactMesh(input));
  float* id = mesh->allocAttributes("id", 1).editFloat();
  for (int i = 0; i < mesh->getNumVertices(); ++i) id[i] = float(i);
  ru::Reference<voDMD::Object> part = voDMD::createKLTMeshObject(document, mesh);
  document.insert(part);
  voDMD::KLTMesh* attribute = part->findAttribute<voDMD::KLTMesh>();
  const voDMA::MeshHealth before = voDMA::analyseMeshHealth(*mesh);
  EXPECT_EQ(attribute->needsRepair(), !before.healthy());
  voDMA::MeshRepairReport report;
  if (!attribute->repair(&report)) {
    EXPECT_TRUE(before.healthy());
    return;
  }
  const ru::Reference<const ruGeom::CompactMesh> repaired = attribute->getMesh();
  const voDMA::MeshHealth after = voDMA::analyseMeshHealth(*repaired);
  // What the repair says is left is what is left.
  EXPECT_TRUE(sameHealth(after, report.remaining));
  // Only holes too large to close may stay, and a closed part has none.
  EXPECT_EQ(after.nonManifoldEdges, 0u);
  EXPECT_EQ(after.inconsistentEdges, 0u);
  EXPECT_EQ(after.degenerateTriangles, 0u);
  EXPECT_EQ(after.duplicateTriangles, 0u);
  if (closed) {
    EXPECT_TRUE(after.healthy()) << "open edges left: " << after.openEdges;
  }
  // No triangle lost that was not meant to go.
  EXPECT_EQ(static_cast<std::size_t>(repaired->getNumTriangles()),
            static_cast<std::size_t>(mesh->getNumTriangles()) - report.removedDegenerate - report.removedDuplicate +
                report.addedTriangles);
  std::map<PositionKey, int> have;
  for (int t = 0; t < repaired->getNumTriangles(); ++t) ++have[positionKey(*repaired, repaired->getTriangles() + 3 * t)];
  std::map<PositionKey, int> wanted;
  bool slivers = false;
  for (int t = 0; t < mesh->getNumTriangles(); ++t) {
    const std::uint32_t* c = mesh->getTriangles() + 3 * t;
    if (indexDegenerate(c)) continue;
    const PositionKey key = positionKey(*mesh, c);
    const ruLinear::Vector e1 = mesh->getVertices()[c[1]].asPoint() - mesh->getVertices()[c[0]].asPoint();
    const ruLinear::Vector e2 = mesh->getVertices()[c[2]].asPoint() - mesh->getVertices()[c[0]].asPoint();
    if (ruLinear::cross(e1, e2).length() <= 1e-10 * e1.length() * e2.length()) {
      slivers = true;  // no area: removed, and its neighbour may be cut at its corner
      continue;
    }
    wanted[key] = 1;  // duplicates count once
  }
  if (!slivers) {
    for (const auto& [key, count] : wanted) EXPECT_GE(have[key], count) << "a triangle went missing";
  }
  // Every vertex keeps its attributes; a copy carries those of a vertex at its place.
  const ruGeom::MeshAttributes ids = repaired->getAttributes("id");
  ASSERT_TRUE(ids.valid());
  ASSERT_GE(repaired->getNumVertices(), mesh->getNumVertices());
  for (int i = 0; i < repaired->getNumVertices(); ++i) {
    const float value = ids.asFloat()[i];
    if (i < mesh->getNumVertices()) {
      EXPECT_EQ(value, float(i));
    } else {
      const auto source = static_cast<int>(value);
      ASSERT_GE(source, 0);
      ASSERT_LT(source, mesh->getNumVertices());
      EXPECT_EQ(repaired->getVertices()[i], mesh->getVertices()[source]);
    }
  }
}

// Thickness values: three a triangle, each negative (nothing measured) or no longer than the
// mesh's box diagonal.
void checkThickness(const ruGeom::CompactMesh& mesh) {
  const std::vector<float> thickness = voDMA::computeThickness(mesh);
  ASSERT_EQ(thickness.size(), 3 * static_cast<std::size_t>(mesh.getNumTriangles()));
  const double diagonal = mesh.getBoundingBox().asRange3d().getDiagonal().length();
  for (float value : thickness) {
    EXPECT_TRUE(std::isfinite(value));
    EXPECT_TRUE(value < 0.0f || value <= diagonal * (1 + 1e-6)) << value;
  }
}

} // namespace

TEST(MeshCorpus, EveryTestMeshIsJudgedRepairedAndMeasured) {
  for (const CorpusMesh& c : corpus()) {
    SCOPED_TRACE(c.name);
    const voDMA::MeshHealth health = voDMA::analyseMeshHealth(*c.mesh);
    if (c.closed && c.name != "cubes sharing an edge") {
      EXPECT_TRUE(health.healthy());
    }
    checkRepair(*c.mesh, c.closed);
    checkThickness(*c.mesh);
  }
}

TEST(MeshCorpus, RandomlyDamagedCopiesAreRepairedWithoutLosingTriangles) {
  for (const CorpusMesh& c : corpus()) {
    for (unsigned seed = 1; seed <= 40; ++seed) {
      std::string what;
      const ru::Reference<ruGeom::CompactMesh> damaged = damage(*c.mesh, seed, what);
      SCOPED_TRACE(c.name + ", seed " + std::to_string(seed) + ":" + what);
      // A repeated or corner-sharing triangle is always found.
      if (what.find("duplicated") != std::string::npos || what.find("degenerated") != std::string::npos) {
        EXPECT_FALSE(voDMA::analyseMeshHealth(*damaged).healthy());
      }
      checkRepair(*damaged, c.closed);
      if (seed % 8 == 0) checkThickness(*damaged);
    }
  }
}
