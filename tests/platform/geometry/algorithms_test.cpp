#include "platform/geometry/algorithms.h"

#include "testmeshes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <memory>
#include <set>

using namespace ruGeom;
using ruLinear::Point;
using ruLinear::Vector;

namespace {

// The corners of triangle k of strip `strip`, with the strip's alternation undone.
void stripTriangle(const std::uint32_t* strip, int k, std::uint32_t out[3]) {
  if (k % 2 == 0) {
    out[0] = strip[k], out[1] = strip[k + 1], out[2] = strip[k + 2];
  } else {
    out[0] = strip[k + 1], out[1] = strip[k], out[2] = strip[k + 2];
  }
}

bool sameWinding(const std::uint32_t a[3], const std::uint32_t* b) {
  for (int r = 0; r < 3; ++r) {
    if (a[0] == b[r] && a[1] == b[(r + 1) % 3] && a[2] == b[(r + 2) % 3]) return true;
  }
  return false;
}

void expectStripsCoverEveryTriangleOnce(const CompactMesh& mesh, int limit) {
  ASSERT_TRUE(mesh.hasStrips());
  std::vector<int> seen(mesh.getNumTriangles(), 0);
  const std::uint32_t* indices = mesh.getStripIndices();
  const std::uint32_t* triangles = mesh.getStripTriangles();
  int offset = 0, stripTriangleIndex = 0;
  for (int s = 0; s < mesh.getNumStrips(); ++s) {
    const int length = static_cast<int>(mesh.getStripLength(s));
    ASSERT_GE(length, 3);
    EXPECT_LE(length - 2, limit);
    for (int k = 0; k < length - 2; ++k, ++stripTriangleIndex) {
      std::uint32_t corners[3];
      stripTriangle(indices + offset, k, corners);
      const int t = static_cast<int>(triangles[stripTriangleIndex]);
      ASSERT_LT(t, mesh.getNumTriangles());
      ++seen[t];
      EXPECT_TRUE(sameWinding(corners, mesh.getTriangles() + 3 * t)) << "strip " << s << " triangle " << k;
    }
    offset += length;
  }
  EXPECT_EQ(offset, mesh.getNumStripIndices());
  for (int t = 0; t < mesh.getNumTriangles(); ++t) EXPECT_EQ(seen[t], 1) << "triangle " << t;
}

}  // namespace

TEST(MeshNormals, AreUnitLengthAndPointOutwardOnClosedMeshes) {
  for (ruGeomTest::NamedMesh& entry : ruGeomTest::corpus()) {
    CompactMesh& mesh = entry.mesh;
    ASSERT_TRUE(meshComputeNormals(mesh)) << entry.name;
    ASSERT_TRUE(mesh.hasNormals());
    for (int i = 0; i < mesh.getNumVertices(); ++i) {
      EXPECT_NEAR(mesh.getNormals()[i].asVector().length(), 1.0, 1e-5) << entry.name << " vertex " << i;
    }
    if (!entry.closed) continue;
    const Point centre = mesh.getBoundingBox().getCenter();
    for (int i = 0; i < mesh.getNumVertices(); ++i) {
      const Point p = mesh.getVertices()[i].asPoint();
      // Sphere: away from the centre; torus: away from the tube's core circle.
      Vector out = p - centre;
      if (entry.name == "torus") {
        const double ring = std::hypot(p.x, p.y);
        out = p - Point(2 * p.x / ring, 2 * p.y / ring, 0);
      }
      EXPECT_GT(ruLinear::dot(mesh.getNormals()[i].asVector(), out.normalized()), 0.9) << entry.name << " vertex " << i;
    }
  }
}

TEST(MeshNormals, AnOpenGridFacingUpGetsUpwardNormals) {
  CompactMesh mesh = ruGeomTest::makeGrid(4, 4);
  ASSERT_TRUE(meshComputeNormals(mesh));
  for (int i = 0; i < mesh.getNumVertices(); ++i) EXPECT_GT(mesh.getNormals()[i].z, 0.5f);
}

TEST(MeshNormals, AVertexWithoutTrianglesGetsTheZAxis) {
  CompactMesh mesh = ruGeomTest::makeGrid(1, 1);
  const int lonely = mesh.addVertex(Point(7, 7, 7));
  ASSERT_TRUE(meshComputeNormals(mesh));
  EXPECT_EQ(mesh.getNormals()[lonely].z, 1.0f);
}

TEST(MeshNormals, FailWithoutVerticesOrWithIndicesOutOfRange) {
  CompactMesh empty;
  EXPECT_FALSE(meshComputeNormals(empty));
  CompactMesh bad = ruGeomTest::makeGrid(1, 1);
  bad.addTriangle(0, 1, 99);
  EXPECT_FALSE(meshComputeNormals(bad));
  EXPECT_FALSE(bad.hasNormals());
}

TEST(MeshAdjacency, ClosedMeshesHaveNoOpenEdgesAndLinksAreMutual) {
  for (ruGeomTest::NamedMesh& entry : ruGeomTest::corpus()) {
    if (!entry.closed) continue;
    MeshAdjTris adjacency;
    ASSERT_TRUE(meshAdjTris(entry.mesh, adjacency));
    ASSERT_EQ(adjacency.getNumTriangles(), entry.mesh.getNumTriangles());
    for (int t = 0; t < adjacency.getNumTriangles(); ++t) {
      for (int e = 0; e < 3; ++e) {
        const int n = adjacency.neighbour(t, e);
        ASSERT_GE(n, 0) << entry.name;
        int back = 0;
        for (int f = 0; f < 3; ++f) back += adjacency.neighbour(n, f) == t;
        EXPECT_GE(back, 1);
      }
    }
  }
}

TEST(MeshAdjacency, MarksExactlyTheOpenEdgesOfAnOpenMesh) {
  const int n = 5, m = 3;
  const CompactMesh mesh = ruGeomTest::makeGrid(n, m);
  MeshTriAdjTrisDynamic adjacency;
  ASSERT_TRUE(meshTriAdjTris(mesh, adjacency));
  // Count how many triangles use each undirected edge: an edge used once is open.
  std::map<std::pair<std::uint32_t, std::uint32_t>, int> uses;
  for (int t = 0; t < mesh.getNumTriangles(); ++t) {
    for (int e = 0; e < 3; ++e) {
      std::uint32_t a = mesh.getTriangles()[3 * t + e], b = mesh.getTriangles()[3 * t + (e + 1) % 3];
      ++uses[{std::min(a, b), std::max(a, b)}];
    }
  }
  for (int t = 0; t < mesh.getNumTriangles(); ++t) {
    for (int e = 0; e < 3; ++e) {
      std::uint32_t a = mesh.getTriangles()[3 * t + e], b = mesh.getTriangles()[3 * t + (e + 1) % 3];
      const bool open = uses[{std::min(a, b), std::max(a, b)}] == 1;
      EXPECT_EQ(adjacency.neighbour(t, e) == -1, open) << "triangle " << t << " edge " << e;
    }
  }
  EXPECT_EQ(adjacency.countOpenEdges(), 2 * (n + m));
}

TEST(MeshAdjacency, EdgeZeroIsABEdgeOneBCEdgeTwoCA) {
  CompactMesh mesh;
  for (int i = 0; i < 4; ++i) mesh.addVertex(Point(i & 1, i >> 1, 0));
  mesh.addTriangle(0, 1, 3);
  mesh.addTriangle(0, 3, 2);
  MeshTriAdjTrisDynamic adjacency;
  ASSERT_TRUE(meshTriAdjTris(mesh, adjacency));
  EXPECT_EQ(adjacency.neighbour(0, 0), -1);
  EXPECT_EQ(adjacency.neighbour(0, 1), -1);
  EXPECT_EQ(adjacency.neighbour(0, 2), 1);  // (3, 0)
  EXPECT_EQ(adjacency.neighbour(1, 0), 0);  // (0, 3)
  EXPECT_EQ(adjacency.neighbour(1, 1), -1);
  EXPECT_EQ(adjacency.neighbour(5, 0), -1);
  EXPECT_EQ(adjacency.neighbour(0, 3), -1);
}

TEST(MeshAdjacency, RemovingATriangleOpensItsNeighboursEdges) {
  const CompactMesh mesh = ruGeomTest::makeSphere(6, 6);
  MeshTriAdjTrisDynamic adjacency;
  ASSERT_TRUE(meshTriAdjTris(mesh, adjacency));
  EXPECT_EQ(adjacency.countOpenEdges(), 0);
  adjacency.removeTriangle(10);
  EXPECT_EQ(adjacency.countOpenEdges(), 6);
}

namespace {

// The adjacency rule spelt out edge by edge, in quadratic time: edges in triangle order, each
// still open taking the first open edge of another triangle that runs it the other way, else the
// first that runs it the same way.
std::vector<int> adjacencyByPairSearch(const CompactMesh& mesh) {
  const int n = mesh.getNumTriangles();
  const std::uint32_t* tri = mesh.getTriangles();
  std::vector<int> table(static_cast<std::size_t>(n) * 3, -1);
  for (int t = 0; t < n; ++t) {
    for (int e = 0; e < 3; ++e) {
      const std::uint32_t a = tri[3 * t + e], b = tri[3 * t + (e + 1) % 3];
      if (table[3 * t + e] != -1 || a == b) continue;
      int opposite = -1, same = -1;
      for (int o = 0; o < n * 3 && opposite == -1; ++o) {
        if (o / 3 == t || table[o] != -1) continue;
        const std::uint32_t oa = tri[o], ob = tri[o % 3 == 2 ? o - 2 : o + 1];
        if (oa == b && ob == a) opposite = o;
        if (oa == a && ob == b && same == -1) same = o;
      }
      const int other = opposite != -1 ? opposite : same;
      if (other == -1) continue;
      table[3 * t + e] = other / 3;
      table[other] = t;
    }
  }
  return table;
}

// Meshes beyond the corpus that put the tie-breaks to work: edges of three and four triangles in
// both directions, triangles naming a vertex twice, flipped triangles and a fan around one hub.
std::vector<ruGeomTest::NamedMesh> adjacencyMeshes() {
  std::vector<ruGeomTest::NamedMesh> meshes = ruGeomTest::corpus();
  CompactMesh book;
  for (int i = 0; i < 7; ++i) book.addVertex(Point(i, i % 2, i % 3));
  book.addTriangle(0, 1, 2);
  book.addTriangle(0, 1, 3);
  book.addTriangle(1, 0, 4);
  book.addTriangle(0, 1, 5);
  book.addTriangle(1, 0, 6);
  book.addTriangle(0, 1, 0);
  book.addTriangle(1, 1, 2);
  book.addTriangle(2, 1, 6);
  book.addTriangle(1, 2, 6);
  meshes.push_back({"book", book, false});
  CompactMesh flipped = ruGeomTest::makeSphere(8, 10);
  std::uint32_t* t = flipped.editTriangles();
  for (int i = 0; i < flipped.getNumTriangles(); i += 3) std::swap(t[3 * i], t[3 * i + 1]);
  meshes.push_back({"flipped sphere", flipped, true});
  CompactMesh fan;
  fan.addVertex(Point());
  for (int i = 0; i < 40; ++i) fan.addVertex(Point(std::cos(i * 0.15), std::sin(i * 0.15), 0));
  for (std::uint32_t i = 1; i < 40; ++i) fan.addTriangle(i, 0, i + 1);
  meshes.push_back({"fan", fan, false});
  CompactMesh doubled = ruGeomTest::makeTorus(8, 6);
  const int count = doubled.getNumTriangles();
  for (int i = 0; i < count; i += 2) {
    const std::uint32_t* c = doubled.getTriangles() + 3 * i;
    doubled.addTriangle(c[0], c[2], c[1]);
  }
  meshes.push_back({"doubled torus", doubled, true});
  return meshes;
}

}  // namespace

TEST(MeshAdjacency, PairsEdgesAsAnEdgeByEdgeSearchDoesOnEveryMesh) {
  for (const ruGeomTest::NamedMesh& entry : adjacencyMeshes()) {
    SCOPED_TRACE(entry.name);
    MeshAdjTris adjacency;
    ASSERT_TRUE(meshAdjTris(entry.mesh, adjacency));
    EXPECT_EQ(adjacency.table(), adjacencyByPairSearch(entry.mesh));
    MeshTriAdjTrisDynamic dynamic;
    ASSERT_TRUE(meshTriAdjTris(entry.mesh, dynamic));
    EXPECT_EQ(dynamic.table(), adjacency.table());
  }
}

TEST(MeshAdjacency, FailsOnIndicesOutOfRange) {
  CompactMesh mesh = ruGeomTest::makeGrid(1, 1);
  mesh.addTriangle(0, 1, 1000);
  MeshAdjTris adjacency;
  EXPECT_FALSE(meshAdjTris(mesh, adjacency));
  EXPECT_EQ(adjacency.getNumTriangles(), 0);
}

TEST(MeshTriStrip, StripsCoverEveryTriangleExactlyOnceWithAtMost128AStrip) {
  for (ruGeomTest::NamedMesh& entry : ruGeomTest::corpus()) {
    SCOPED_TRACE(entry.name);
    MeshAdjTris adjacency;
    ASSERT_TRUE(meshAdjTris(entry.mesh, adjacency));
    MeshTriStrip strips(entry.mesh, adjacency);
    const int count = strips.computeStrips(128, 0);
    EXPECT_GT(count, 0);
    EXPECT_EQ(count, entry.mesh.getNumStrips());
    expectStripsCoverEveryTriangleOnce(entry.mesh, 128);
  }
}

namespace {

// A ribbon of triangles laid out in strip order: one strip of `count` triangles if nothing cuts it.
CompactMesh makeRibbon(int count) {
  CompactMesh mesh;
  const int pairs = count / 2 + 2;
  for (int i = 0; i < pairs; ++i) {
    mesh.addVertex(Point(i, 1, 0));  // top: even strip positions
    mesh.addVertex(Point(i, 0, 0));  // bottom: odd strip positions
  }
  for (int k = 0; k < count; ++k) {
    const std::uint32_t s0 = k, s1 = k + 1, s2 = k + 2;
    if (k % 2 == 0) {
      mesh.addTriangle(s0, s1, s2);
    } else {
      mesh.addTriangle(s1, s0, s2);
    }
  }
  return mesh;
}

}  // namespace

TEST(MeshTriStrip, LongStripsAreCutAtTheLimit) {
  CompactMesh mesh = makeRibbon(300);
  MeshAdjTris adjacency;
  ASSERT_TRUE(meshAdjTris(mesh, adjacency));
  MeshTriStrip strips(mesh, adjacency);
  EXPECT_EQ(strips.computeStrips(128, 0), 3);
  expectStripsCoverEveryTriangleOnce(mesh, 128);
  EXPECT_EQ(mesh.getStripLength(0), 130u);
  EXPECT_EQ(mesh.getStripLength(1), 130u);
  EXPECT_EQ(mesh.getStripLength(2), 300u - 256u + 2u);
  EXPECT_EQ(strips.computeStrips(6, 0), 50);
  expectStripsCoverEveryTriangleOnce(mesh, 6);
  // An odd limit leaves the next triangle at the wrong parity to continue, but still covers all.
  EXPECT_GT(strips.computeStrips(5, 0), 60);
  expectStripsCoverEveryTriangleOnce(mesh, 5);
}

TEST(MeshTriStrip, AStartTriangleOutOfRangeCountsAsZero) {
  CompactMesh mesh = makeRibbon(10);
  MeshAdjTris adjacency;
  ASSERT_TRUE(meshAdjTris(mesh, adjacency));
  EXPECT_EQ(MeshTriStrip(mesh, adjacency).computeStrips(128, 99), 1);
  expectStripsCoverEveryTriangleOnce(mesh, 128);
}

TEST(MeshTriStrip, FailsWhenTheAdjacencyIsOfAnotherMesh) {
  CompactMesh mesh = ruGeomTest::makeGrid(2, 2);
  MeshAdjTris adjacency;
  ASSERT_TRUE(meshAdjTris(ruGeomTest::makeGrid(3, 3), adjacency));
  MeshTriStrip strips(mesh, adjacency);
  EXPECT_EQ(strips.computeStrips(128, 0), -1);
  EXPECT_FALSE(mesh.hasStrips());
}

TEST(MeshTriStrip, ACopyKeepsTheStripsOfItsSource) {
  CompactMesh mesh = ruGeomTest::makeTorus(8, 6);
  MeshAdjTris adjacency;
  meshAdjTris(mesh, adjacency);
  MeshTriStrip(mesh, adjacency).computeStrips(128, 0);
  const CompactMesh copy = mesh;
  EXPECT_TRUE(copy.hasStrips());
  EXPECT_EQ(copy.getStripIndices(), mesh.getStripIndices());
}

namespace {

CompactMesh bigMeshWithAttributes(int n, int m) {
  CompactMesh mesh = ruGeomTest::makeGrid(n, m);
  meshComputeNormals(mesh);
  const WritableMeshAttributes thickness = mesh.allocAttributes("thickness", 1);
  const WritableMeshAttributes pair = mesh.allocAttributes("pair", 2);
  for (int i = 0; i < mesh.getNumVertices(); ++i) {
    thickness.editFloat()[i] = static_cast<float>(i);
    pair.editFloat()[2 * i] = static_cast<float>(-i);
    pair.editFloat()[2 * i + 1] = 0.5f * static_cast<float>(i);
  }
  return mesh;
}

}  // namespace

TEST(MeshSplit, AMeshOfAtLeast65535VerticesYieldsPartsUnderTheLimitHoldingEveryTriangleAndAttribute) {
  const CompactMesh mesh = bigMeshWithAttributes(400, 200);  // 401 * 201 = 80601 vertices
  ASSERT_GE(mesh.getNumVertices(), 65535);
  ru::vector<CompactMesh*> raw;
  ASSERT_TRUE(meshSplit(mesh, 65535, raw));
  std::vector<ru::Reference<CompactMesh>> parts(raw.begin(), raw.end());
  ASSERT_GE(parts.size(), 2u);
  int triangle = 0;
  std::set<float> thicknessSeen;
  for (const auto& part : parts) {
    EXPECT_LE(part->getNumVertices(), 65535);
    ASSERT_TRUE(part->hasNormals());
    const MeshAttributes thickness = part->getAttributes("thickness");
    const MeshAttributes pair = part->getAttributes("pair");
    ASSERT_TRUE(thickness.valid());
    ASSERT_TRUE(pair.valid());
    EXPECT_EQ(pair.getWidth(), 2);
    for (int t = 0; t < part->getNumTriangles(); ++t, ++triangle) {
      for (int c = 0; c < 3; ++c) {
        const std::uint32_t local = part->getTriangles()[3 * t + c];
        const std::uint32_t global = mesh.getTriangles()[3 * triangle + c];
        // Same corner position, normal and attribute values, triangle by triangle in order.
        EXPECT_EQ(part->getVertices()[local], mesh.getVertices()[global]);
        EXPECT_EQ(part->getNormals()[local].z, mesh.getNormals()[global].z);
        EXPECT_EQ(thickness.asFloat()[local], static_cast<float>(global));
        EXPECT_EQ(pair.asFloat()[2 * local], -static_cast<float>(global));
        EXPECT_EQ(pair.asFloat()[2 * local + 1], 0.5f * static_cast<float>(global));
        thicknessSeen.insert(thickness.asFloat()[local]);
      }
    }
  }
  EXPECT_EQ(triangle, mesh.getNumTriangles());
  EXPECT_EQ(static_cast<int>(thicknessSeen.size()), mesh.getNumVertices());
}

TEST(MeshSplit, AMeshOfExactly65535VerticesStaysInOnePart) {
  const CompactMesh mesh = bigMeshWithAttributes(254, 256);  // 255 * 257 = 65535 vertices
  ASSERT_EQ(mesh.getNumVertices(), 65535);
  ru::vector<CompactMesh*> raw;
  ASSERT_TRUE(meshSplit(mesh, 65535, raw));
  ASSERT_EQ(raw.size(), 1u);
  ru::Reference<CompactMesh> part(raw[0]);
  EXPECT_EQ(part->getNumVertices(), 65535);
  EXPECT_EQ(part->getNumTriangles(), mesh.getNumTriangles());
  EXPECT_TRUE(part->hasAttributes("thickness"));
}

TEST(MeshSplit, AMeshOneVertexOverTheLimitSplitsInTwo) {
  const CompactMesh mesh = bigMeshWithAttributes(255, 255);  // 256 * 256 = 65536 vertices
  ru::vector<CompactMesh*> raw;
  ASSERT_TRUE(meshSplit(mesh, 65535, raw));
  std::vector<ru::Reference<CompactMesh>> parts(raw.begin(), raw.end());
  ASSERT_EQ(parts.size(), 2u);
  EXPECT_EQ(parts[0]->getNumTriangles() + parts[1]->getNumTriangles(), mesh.getNumTriangles());
}

TEST(MeshSplit, ExactlyTheLimitFitsInOnePart) {
  CompactMesh mesh = ruGeomTest::makeGrid(2, 1);  // 6 vertices
  ru::vector<CompactMesh*> raw;
  ASSERT_TRUE(meshSplit(mesh, 6, raw));
  ASSERT_EQ(raw.size(), 1u);
  ru::Reference<CompactMesh> part(raw[0]);
  EXPECT_EQ(part->getNumVertices(), 6);
  EXPECT_EQ(part->getNumTriangles(), 4);
}

TEST(MeshSplit, SmallLimitsStillKeepEveryTriangle) {
  const CompactMesh mesh = ruGeomTest::makeTorus(10, 8);
  ru::vector<CompactMesh*> raw;
  ASSERT_TRUE(meshSplit(mesh, 3, raw));
  std::vector<ru::Reference<CompactMesh>> parts(raw.begin(), raw.end());
  int total = 0;
  for (const auto& part : parts) {
    EXPECT_LE(part->getNumVertices(), 3);
    total += part->getNumTriangles();
  }
  EXPECT_EQ(total, mesh.getNumTriangles());
}

TEST(MeshSplit, LinesAreKeptToo) {
  CompactMesh mesh;
  for (int i = 0; i < 10; ++i) mesh.addVertex(Point(i, 0, 0));
  for (int i = 0; i < 9; ++i) mesh.addLine(i, i + 1);
  ru::vector<CompactMesh*> raw;
  ASSERT_TRUE(meshSplit(mesh, 4, raw));
  std::vector<ru::Reference<CompactMesh>> parts(raw.begin(), raw.end());
  int lines = 0;
  for (const auto& part : parts) {
    EXPECT_LE(part->getNumVertices(), 4);
    lines += part->getNumLines();
  }
  EXPECT_EQ(lines, 9);
}

TEST(MeshSplit, RejectsLimitsBelowThreeAndIndicesOutOfRange) {
  CompactMesh mesh = ruGeomTest::makeGrid(2, 2);
  ru::vector<CompactMesh*> raw;
  EXPECT_FALSE(meshSplit(mesh, 2, raw));
  mesh.addTriangle(0, 1, 500);
  EXPECT_FALSE(meshSplit(mesh, 100, raw));
  EXPECT_TRUE(raw.empty());
}

// --- Hull candidates -------------------------------------------------------------------------

namespace {

ruLinear::Range3d bruteForceRange(const CompactMesh& mesh, const ruLinear::AffineMatrix& m) {
  ruLinear::Range3d range;
  for (int i = 0; i < mesh.getNumVertices(); ++i) range.include(mesh.getVertices()[i].asPoint() * m);
  return range;
}

void expectSameRange(const ruLinear::Range3d& expected, const ruLinear::Range3d& actual, double tolerance) {
  ASSERT_TRUE(expected.isValid());
  ASSERT_TRUE(actual.isValid());
  for (int axis = 0; axis < 3; ++axis) {
    EXPECT_NEAR(expected.getMin(axis), actual.getMin(axis), tolerance) << "axis " << axis;
    EXPECT_NEAR(expected.getMax(axis), actual.getMax(axis), tolerance) << "axis " << axis;
  }
}

// Rotations about skewed axes, non-uniform scales, shears and translations.
std::vector<ruLinear::AffineMatrix> someTransforms() {
  std::vector<ruLinear::AffineMatrix> transforms;
  transforms.push_back(ruLinear::AffineMatrix::Identity);
  for (int i = 0; i < 24; ++i) {
    ruLinear::AffineMatrix m = ruLinear::AffineMatrix::rotation(0.37 * i + 0.1, Vector(std::sin(i), std::cos(1.7 * i), 0.3 + i % 3));
    if (i % 3 == 1) m.postMultiply(ruLinear::AffineMatrix::scaling(Vector(1.0 + 0.1 * i, 0.5, 2.0)));
    if (i % 4 == 2) m.postMultiply(ruLinear::AffineMatrix(Vector(1, 0.4, 0), Vector(0, 1, 0.2), Vector(0.3, 0, 1), Vector(0, 0, 0)));
    m.postMultiply(ruLinear::AffineMatrix::translation(Vector(10.0 * i, -3.0 * i, 0.5 * i)));
    transforms.push_back(m);
  }
  return transforms;
}

// A grid-tessellated box: every face carries (n + 1)^2 vertices, only the eight corners matter.
CompactMesh makeTessellatedBox(int n) {
  CompactMesh mesh;
  for (int axis = 0; axis < 3; ++axis) {
    for (int side = 0; side < 2; ++side) {
      for (int i = 0; i <= n; ++i) {
        for (int j = 0; j <= n; ++j) {
          double p[3];
          p[axis] = side ? 4.0 : -1.0;
          p[(axis + 1) % 3] = -1.0 + 5.0 * i / n;
          p[(axis + 2) % 3] = -1.0 + 5.0 * j / n;
          mesh.addVertex(Point(p[0], p[1], p[2]));
        }
      }
    }
  }
  return mesh;
}

}  // namespace

TEST(MeshHullCandidates, TransformedRangeMatchesEveryVertexOverTheCorpus) {
  std::vector<ruGeomTest::NamedMesh> meshes = ruGeomTest::corpus();
  meshes.push_back({"tessellated box", makeTessellatedBox(9), true});
  for (const auto& named : meshes) {
    SCOPED_TRACE(named.name);
    for (const ruLinear::AffineMatrix& m : someTransforms()) {
      expectSameRange(bruteForceRange(named.mesh, m), meshTransformedRange(named.mesh, m), 1e-9 * 100);
    }
  }
}

TEST(MeshHullCandidates, KeepOnlyTheCornersOfAFlatFacedPart) {
  const CompactMesh box = makeTessellatedBox(20);
  ASSERT_EQ(box.getNumVertices(), 6 * 21 * 21);
  // The eight corners, and at most one face point for each of the six axis directions.
  EXPECT_GE(meshHullCandidates(box)->size(), 8u);
  EXPECT_LE(meshHullCandidates(box)->size(), 14u);
}

TEST(MeshHullCandidates, DropTheInsideOfARoundPart) {
  // Vertices strictly inside the sphere can never be extreme; the surface keeps what it must.
  CompactMesh mesh = ruGeomTest::makeSphere(24, 32, 2.0);
  const int surface = mesh.getNumVertices();
  for (int i = 0; i < 500; ++i) mesh.addVertex(Point(std::sin(i) * 1.2, std::cos(3.0 * i) * 1.2, std::sin(7.0 * i) * 0.5));
  const std::size_t kept = meshHullCandidates(mesh)->size();
  EXPECT_LE(kept, static_cast<std::size_t>(surface));
  for (const auto& m : someTransforms()) expectSameRange(bruteForceRange(mesh, m), meshTransformedRange(mesh, m), 1e-9);
}

TEST(MeshHullCandidates, AFlatMeshKeepsEveryVertexAndStaysExact) {
  const CompactMesh grid = ruGeomTest::makeGrid(6, 4);
  CompactMesh flat = grid;
  MeshVertex* v = flat.editVertices();
  for (int i = 0; i < flat.getNumVertices(); ++i) v[i].z = 0.0f;
  for (const auto& m : someTransforms()) expectSameRange(bruteForceRange(flat, m), meshTransformedRange(flat, m), 1e-9);
}

TEST(MeshHullCandidates, AMeshWithoutVerticesHasNoRange) {
  const CompactMesh empty;
  EXPECT_TRUE(meshHullCandidates(empty)->empty());
  EXPECT_FALSE(meshTransformedRange(empty, ruLinear::AffineMatrix::Identity).isValid());
}

TEST(MeshHullCandidates, AreComputedOncePerBufferAndReleasedWithIt) {
  const std::size_t before = hullCandidateCacheSize();
  {
    ru::Reference<CompactMesh> mesh(new CompactMesh(ruGeomTest::makeSphere(8, 8)));
    const auto first = meshHullCandidates(*mesh);
    EXPECT_EQ(hullCandidateCacheSize(), before + 1);
    // A copy shares the buffer and its candidates.
    CompactMesh copy = *mesh;
    EXPECT_EQ(meshHullCandidates(copy).get(), first.get());
    EXPECT_EQ(hullCandidateCacheSize(), before + 1);
    // Writing the copy's vertices gives it its own identity and candidates that follow the edit.
    copy.editVertices()[0] = MeshVertex(0, 0, 50);
    EXPECT_NE(meshHullCandidates(copy).get(), first.get());
    EXPECT_EQ(meshTransformedRange(copy, ruLinear::AffineMatrix::Identity).getMax(2), 50.0);
    EXPECT_EQ(hullCandidateCacheSize(), before + 2);
  }
  // Both buffers died: both entries went with them.
  EXPECT_EQ(hullCandidateCacheSize(), before);
}

TEST(MeshHullCandidates, ARoundPartWithEveryVertexOnItsHullIsSearchedExactly) {
  // Every vertex is a candidate, so the box comes from the search through the tree of boxes.
  const CompactMesh sphere = ruGeomTest::makeSphere(100, 200, 30.0, Point(5, -7, 11));
  ASSERT_GT(meshHullCandidates(sphere)->size(), 15000u);
  for (int i = 0; i < 60; ++i) {
    ruLinear::AffineMatrix m = ruLinear::AffineMatrix::rotation(0.05 * i, Vector(std::cos(i), std::sin(2.0 * i), 1.0));
    if (i % 5 == 0) m.postMultiply(ruLinear::AffineMatrix::scaling(Vector(1.0, 0.25, 3.0)));
    m.postMultiply(ruLinear::AffineMatrix::translation(Vector(i, -i, 2.0 * i)));
    const ruLinear::Range3d expected = bruteForceRange(sphere, m), actual = meshTransformedRange(sphere, m);
    for (int axis = 0; axis < 3; ++axis) {
      EXPECT_EQ(expected.getMin(axis), actual.getMin(axis)) << "turn " << i << " axis " << axis;
      EXPECT_EQ(expected.getMax(axis), actual.getMax(axis)) << "turn " << i << " axis " << axis;
    }
  }
}
