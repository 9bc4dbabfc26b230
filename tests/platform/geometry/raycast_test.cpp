#include "platform/geometry/raycast.h"

#include "platform/geometry/camera.h"
#include "platform/geometry/construct.h"
#include "testmeshes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <random>
#include <thread>
#include <vector>

using namespace ruGeom;
using ruLinear::Line;
using ruLinear::Point;
using ruLinear::Vector;

namespace {

// True when the barycentrics lie within `margin` of the triangle's border: a ray there may be
// counted on either side by float and double arithmetic.
bool nearBorder(const MeshRayHit& hit, double margin) {
  return hit.u < margin || hit.v < margin || 1 - hit.u - hit.v < margin;
}

Point randomPointOnTriangle(const CompactMesh& mesh, int t, std::mt19937& random) {
  std::uniform_real_distribution<double> unit(0, 1);
  double u = unit(random), v = unit(random);
  if (u + v > 1) u = 1 - u, v = 1 - v;
  const std::uint32_t* tri = mesh.getTriangles() + 3 * t;
  const Point a = mesh.getVertices()[tri[0]].asPoint(), b = mesh.getVertices()[tri[1]].asPoint(),
              c = mesh.getVertices()[tri[2]].asPoint();
  return a + (b - a) * u + (c - a) * v;
}

// Casts `count` random rays at the mesh, half of them aimed at a random triangle, and compares
// with brute force.
void compareWithBruteForce(const CompactMesh& mesh, int count, unsigned seed, const MeshRayOptions& options,
                           int minimumHits) {
  std::mt19937 random(seed);
  const BoundingBox box = mesh.getBoundingBox();
  const Vector diagonal = box.getDiagonal();
  std::uniform_real_distribution<double> unit(-0.5, 1.5);
  std::normal_distribution<double> gauss;
  std::uniform_int_distribution<int> anyTriangle(0, mesh.getNumTriangles() - 1);
  MeshRayQuery query(mesh);
  int hits = 0, borderCases = 0;
  for (int i = 0; i < count; ++i) {
    const Point origin = box.getMin() + Vector(diagonal.getX() * unit(random), diagonal.getY() * unit(random),
                                               diagonal.getZ() * unit(random) + 0.3 * (unit(random) - 0.5));
    Vector direction(gauss(random), gauss(random), gauss(random));
    if (i % 2 == 0) direction = randomPointOnTriangle(mesh, anyTriangle(random), random) - origin;
    if (direction.length2() == 0) continue;
    const Line ray(origin, direction * 3.0);  // the direction's length must not matter
    MeshRayHit expected, actual, viaQuery;
    const bool expectedHit = ruGeomTest::bruteForceIntersect(mesh, ray, expected, options);
    const bool actualHit = meshRayIntersect(mesh, ray, actual, options);
    EXPECT_EQ(query.intersect(ray, viaQuery, options), actualHit);
    EXPECT_EQ(viaQuery.triangle, actual.triangle);
    if (expectedHit != actualHit) {
      // Only rays grazing an edge may differ.
      const MeshRayHit& found = expectedHit ? expected : actual;
      EXPECT_TRUE(nearBorder(found, 1e-4)) << "ray " << i;
      ++borderCases;
      continue;
    }
    if (!expectedHit) continue;
    ++hits;
    // Float rounding of the ray moves the hit along it by more where the ray grazes the triangle.
    const std::uint32_t* tri = mesh.getTriangles() + 3 * expected.triangle;
    const Vector normal = ruLinear::cross(mesh.getVertices()[tri[1]].asPoint() - mesh.getVertices()[tri[0]].asPoint(),
                                          mesh.getVertices()[tri[2]].asPoint() - mesh.getVertices()[tri[0]].asPoint())
                              .normalized();
    const double grazing = std::max(std::fabs(ruLinear::dot(normal, direction.normalized())), 0.01);
    const double tolerance = 1e-4 * (1 + expected.distance) / grazing;
    EXPECT_NEAR(actual.distance, expected.distance, tolerance) << "ray " << i;
    EXPECT_LT(ruLinear::distance(actual.point, expected.point), 10 * tolerance) << "ray " << i;
    if (actual.triangle != expected.triangle) {
      // Two triangles at the same distance (a shared edge or a coincident face) are both right.
      ++borderCases;
      EXPECT_TRUE(nearBorder(expected, 1e-3) || nearBorder(actual, 1e-3)) << "ray " << i;
    } else {
      EXPECT_NEAR(actual.u, expected.u, 1e-3);
      EXPECT_NEAR(actual.v, expected.v, 1e-3);
    }
  }
  EXPECT_GE(hits, minimumHits);
  EXPECT_LT(borderCases, count / 100 + 2);
}

}  // namespace

TEST(MeshRayQuery, AgreesWithBruteForceOnRandomRaysOverEveryGeneratedMesh) {
  unsigned seed = 1;
  for (const ruGeomTest::NamedMesh& entry : ruGeomTest::corpus()) {
    SCOPED_TRACE(entry.name);
    compareWithBruteForce(entry.mesh, 3000, seed++, MeshRayOptions(), 1000);
  }
}

TEST(MeshRayQuery, AgreesWithBruteForceWithinADistanceRange) {
  MeshRayOptions options;
  options.minDistance = 0.5;
  options.maxDistance = 2.0;
  unsigned seed = 100;
  for (const ruGeomTest::NamedMesh& entry : ruGeomTest::corpus()) {
    SCOPED_TRACE(entry.name);
    compareWithBruteForce(entry.mesh, 1000, seed++, options, 20);
  }
}

TEST(MeshRayQuery, OneQueryServesSeveralThreadsAtOnce) {
  const CompactMesh torus = ruGeomTest::makeTorus(40, 20);
  const MeshRayQuery query(torus);
  std::vector<Line> rays;
  std::mt19937 random(9);
  std::uniform_real_distribution<double> coordinate(-3, 3);
  for (int i = 0; i < 400; ++i) {
    rays.emplace_back(Point(coordinate(random), coordinate(random), 4), Vector(coordinate(random), coordinate(random), -4));
  }
  std::vector<int> first(rays.size()), second(rays.size());
  auto run = [&](std::vector<int>& out) {
    for (std::size_t i = 0; i < rays.size(); ++i) {
      MeshRayHit hit;
      query.intersect(rays[i], hit);
      out[i] = hit.triangle;
    }
  };
  std::thread a(run, std::ref(first)), b(run, std::ref(second));
  a.join();
  b.join();
  EXPECT_EQ(first, second);
  for (std::size_t i = 0; i < rays.size(); ++i) {
    MeshRayHit expected;
    ruGeomTest::bruteForceIntersect(torus, rays[i], expected);
    if (expected.hit && !nearBorder(expected, 1e-4)) {
      EXPECT_EQ(first[i], expected.triangle) << i;
    }
  }
}

TEST(MeshRayQuery, MaxDistanceShortOfTheSurfaceMisses) {
  const CompactMesh sphere = ruGeomTest::makeSphere(16, 16);
  MeshRayHit hit;
  ASSERT_TRUE(meshRayIntersect(sphere, Line(Point(0, 0, 5), Vector(0, 0, -1)), hit));
  EXPECT_NEAR(hit.distance, 4.0, 1e-5);
  EXPECT_NEAR(hit.point.z, 1.0, 1e-5);
  MeshRayOptions options;
  options.maxDistance = 3.9;
  EXPECT_FALSE(meshRayIntersect(sphere, Line(Point(0, 0, 5), Vector(0, 0, -1)), hit, options));
  EXPECT_FALSE(hit.hit);
  EXPECT_EQ(hit.triangle, -1);
}

TEST(MeshRayQuery, HitsFromInsideAndFromTheBackSide) {
  const CompactMesh sphere = ruGeomTest::makeSphere(16, 16);
  MeshRayHit hit;
  ASSERT_TRUE(meshRayIntersect(sphere, Line(Point(0, 0, 0), Vector(1, 0, 0)), hit));
  EXPECT_NEAR(hit.distance, 1.0, 0.05);
}

TEST(MeshRayQuery, IgnoringTheStartTriangleFindsTheOppositeWall) {
  // The thickness analysis casts inward from a triangle's corner, skipping that triangle.
  CompactMesh box;
  constructCuboid(ruLinear::Range3d(Point(0, 0, 0), Point(4, 4, 2)), box);
  std::mt19937 random(3);
  for (int t = 0; t < box.getNumTriangles(); ++t) {
    const Point start = randomPointOnTriangle(box, t, random);
    const std::uint32_t* tri = box.getTriangles() + 3 * t;
    const Vector inward = -ruLinear::cross(box.getVertices()[tri[1]].asPoint() - box.getVertices()[tri[0]].asPoint(),
                                           box.getVertices()[tri[2]].asPoint() - box.getVertices()[tri[0]].asPoint());
    MeshRayOptions options;
    options.ignoreTriangle = t;
    MeshRayHit hit, expected;
    ASSERT_TRUE(meshRayIntersect(box, Line(start, inward), hit, options)) << t;
    ASSERT_TRUE(ruGeomTest::bruteForceIntersect(box, Line(start, inward), expected, options));
    EXPECT_NE(hit.triangle, t);
    EXPECT_NEAR(hit.distance, expected.distance, 1e-4);
    const double wall = std::fabs(inward.normalized().getZ()) > 0.5 ? 2.0 : 4.0;
    EXPECT_NEAR(hit.distance, wall, 1e-4) << t;
  }
}

TEST(MeshRayQuery, IgnoringTheStartVertexSkipsEveryTriangleAroundTheCorner) {
  // Toward the centre through a sphere's vertex: without the option the ray stops at the
  // triangles around that vertex; with it, it reaches the far side.
  const CompactMesh sphere = ruGeomTest::makeSphere(16, 16);
  for (int vertex : {0, 5, 40, 100}) {
    // Through a point of a triangle just beside the corner (a ray exactly through a vertex may
    // count on any of its triangles or none), from just outside.
    int around = -1;
    for (int t = 0; t < sphere.getNumTriangles() && around < 0; ++t) {
      for (int c = 0; c < 3; ++c) around = sphere.getTriangles()[3 * t + c] == static_cast<std::uint32_t>(vertex) ? t : around;
    }
    ASSERT_GE(around, 0);
    const std::uint32_t* corners = sphere.getTriangles() + 3 * around;
    Vector beside;
    for (int c = 0; c < 3; ++c) {
      const double weight = corners[c] == static_cast<std::uint32_t>(vertex) ? 0.96 : 0.02;
      beside += (sphere.getVertices()[corners[c]].asPoint() - Point()) * weight;
    }
    const Line inward(Point() + beside * 1.001, -beside);
    MeshRayHit hit;
    ASSERT_TRUE(meshRayIntersect(sphere, inward, hit));
    EXPECT_LT(hit.distance, 0.01);
    MeshRayOptions options;
    options.ignoreVertex = vertex;
    MeshRayHit far, expected;
    ASSERT_TRUE(meshRayIntersect(sphere, inward, far, options)) << vertex;
    ASSERT_TRUE(ruGeomTest::bruteForceIntersect(sphere, inward, expected, options));
    EXPECT_NEAR(far.distance, expected.distance, 1e-4);
    EXPECT_GT(far.distance, 1.9);
    const std::uint32_t* tri = sphere.getTriangles() + 3 * far.triangle;
    EXPECT_TRUE(tri[0] != static_cast<std::uint32_t>(vertex) && tri[1] != static_cast<std::uint32_t>(vertex) &&
                tri[2] != static_cast<std::uint32_t>(vertex));
  }
}

TEST(MeshRayQuery, AgreesWithBruteForceWhenIgnoringAVertexAndATriangle) {
  MeshRayOptions options;
  options.ignoreVertex = 7;
  options.ignoreTriangle = 3;
  unsigned seed = 200;
  for (const ruGeomTest::NamedMesh& entry : ruGeomTest::corpus()) {
    SCOPED_TRACE(entry.name);
    compareWithBruteForce(entry.mesh, 1000, seed++, options, 300);
  }
}

TEST(MeshRayQuery, AMeshWithoutTrianglesNeverHits) {
  CompactMesh lines;
  constructLineSegment(Point(0, 0, 0), Point(1, 0, 0), lines);
  MeshRayHit hit;
  EXPECT_FALSE(meshRayIntersect(lines, Line(Point(0.5, 0, 1), Vector(0, 0, -1)), hit));
  MeshRayQuery query(lines);
  EXPECT_FALSE(query.valid());
  EXPECT_FALSE(meshRayIntersect(CompactMesh(), Line(Point(), Vector(1, 0, 0)), hit));
}

TEST(MeshRayQuery, AZeroDirectionNeverHits) {
  const CompactMesh sphere = ruGeomTest::makeSphere(8, 8);
  MeshRayHit hit;
  EXPECT_FALSE(meshRayIntersect(sphere, Line(Point(0, 0, 5), Vector(0, 0, 0)), hit));
}

TEST(MeshRayQuery, IndicesOutOfRangeNeverHitNorCrash) {
  CompactMesh mesh = ruGeomTest::makeGrid(2, 2);
  mesh.addTriangle(0, 1, 12345);
  MeshRayHit hit;
  EXPECT_FALSE(meshRayIntersect(mesh, Line(Point(0.5, 0.5, 5), Vector(0, 0, -1)), hit));
}

TEST(MeshRayQuery, FloatFormGivesTheSameHit) {
  const CompactMesh sphere = ruGeomTest::makeSphere(16, 16);
  MeshRayQuery query(sphere);
  const float origin[3] = {0, 0, 5}, direction[3] = {0, 0, -2};
  float distance = 0, u = 0, v = 0;
  const int triangle = query.intersect(origin, direction, 1e30f, distance, u, v);
  MeshRayHit hit;
  ASSERT_TRUE(meshRayIntersect(sphere, Line(Point(0, 0, 5), Vector(0, 0, -1)), hit));
  EXPECT_EQ(triangle, hit.triangle);
  EXPECT_NEAR(distance * 2, hit.distance, 1e-5);  // in units of the direction's length
}

TEST(AccelerationCache, IsBuiltOnceForAMeshAndItsCopies) {
  CompactMesh mesh = ruGeomTest::makeTorus(20, 10);
  const std::uint64_t before = accelerationBuildCount();
  MeshRayHit hit;
  meshRayIntersect(mesh, Line(Point(2, 0, 5), Vector(0, 0, -1)), hit);
  EXPECT_EQ(accelerationBuildCount(), before + 1);
  const CompactMesh copy = mesh;
  ru::Reference<CompactMesh> another(new CompactMesh(copy));
  meshRayIntersect(copy, Line(Point(2, 0, 5), Vector(0, 0, -1)), hit);
  meshRayIntersect(*another, Line(Point(-2, 0, 5), Vector(0, 0, -1)), hit);
  MeshRayQuery query(mesh);
  EXPECT_EQ(accelerationBuildCount(), before + 1);
}

TEST(AccelerationCache, IsReleasedWithTheBuffer) {
  const std::size_t before = accelerationCacheSize();
  {
    CompactMesh mesh = ruGeomTest::makeSphere(8, 8);
    MeshRayHit hit;
    meshRayIntersect(mesh, Line(Point(0, 0, 5), Vector(0, 0, -1)), hit);
    EXPECT_EQ(accelerationCacheSize(), before + 1);
    CompactMesh copy = mesh;
    mesh.clear();
    EXPECT_EQ(accelerationCacheSize(), before + 1);  // the copy still holds the buffers
  }
  EXPECT_EQ(accelerationCacheSize(), before);
}

TEST(AccelerationCache, WritingTheVerticesRebuildsAndTheOldCopyKeepsItsOwn) {
  CompactMesh mesh = ruGeomTest::makeGrid(4, 4);
  MeshRayHit hit;
  const Line down(Point(1.5, 1.2, 5), Vector(0, 0, -1));
  ASSERT_TRUE(meshRayIntersect(mesh, down, hit));
  const double before = hit.distance;
  const CompactMesh original = mesh;
  MeshVertex* v = mesh.editVertices();
  for (int i = 0; i < mesh.getNumVertices(); ++i) v[i].z += 1.0f;
  ASSERT_TRUE(meshRayIntersect(mesh, down, hit));
  EXPECT_NEAR(hit.distance, before - 1.0, 1e-5);
  ASSERT_TRUE(meshRayIntersect(original, down, hit));
  EXPECT_NEAR(hit.distance, before, 1e-6);
  // Writing an unshared buffer in place drops its structure too.
  CompactMesh alone = ruGeomTest::makeGrid(4, 4);
  ASSERT_TRUE(meshRayIntersect(alone, down, hit));
  const std::size_t cached = accelerationCacheSize();
  alone.editVertices()[0].z = 0.0f;
  EXPECT_EQ(accelerationCacheSize(), cached - 1);
}

namespace {

Camera pickCamera() {
  Camera camera;
  camera.setViewport(Viewport(0, 0, 400, 300));
  AngleAspect frustum = camera.getFrustum();
  frustum.setAspectRatio(400.0 / 300.0);
  frustum.setDepthRange(0.5, 100);
  camera.setFrustum(frustum);
  camera.setWorldToEye(Point(0, 0, 0), Point(0, -3, 6), Vector(0, 0, 1));
  return camera;
}

}  // namespace

TEST(MeshRayIntersectScreen, GivesTheNearestTriangleUnderThePixel) {
  const CompactMesh sphere = ruGeomTest::makeSphere(24, 24);
  const Camera camera = pickCamera();
  const ruLinear::ProjMatrixFlt matrix(camera.getWorldToViewport());
  ruLinear::Point2 pixel;
  ASSERT_TRUE(camera.project(Point(0, 0, 0), pixel));
  const Line ray = camera.getWorldSpaceRay(pixel);
  const MeshCoord coord = meshRayIntersectScreen(sphere, matrix, static_cast<int>(pixel.x), static_cast<int>(pixel.y), 1, ray);
  ASSERT_TRUE(coord.valid());
  MeshRayHit expected;
  ASSERT_TRUE(ruGeomTest::bruteForceIntersect(sphere, ray, expected));
  EXPECT_EQ(coord.getTriangle(), expected.triangle);
  EXPECT_LT(ruLinear::distance(coord.evaluate(), expected.point), 1e-4);
  // The front of the sphere, toward the camera.
  EXPECT_LT(ruLinear::distance(coord.evaluate(), camera.getEyeLocation()), ruLinear::distance(Point(), camera.getEyeLocation()));
}

TEST(MeshRayIntersectScreen, TakesTheCamerasMatrixAsItComesWithTheSameAnswerAsItsFloatForm) {
  const CompactMesh sphere = ruGeomTest::makeSphere(24, 24);
  const Camera camera = pickCamera();
  const ruLinear::ProjMatrixFlt matrix(camera.getWorldToViewport());
  int hits = 0;
  for (int y = 0; y < 256; y += 17) {
    for (int x = 0; x < 256; x += 13) {
      const Line ray = camera.getWorldSpaceRay(ruLinear::Point2(x + 0.5, y + 0.5));
      const MeshCoord fromDouble = meshRayIntersectScreen(sphere, camera.getWorldToViewport(), x, y, 1, ray);
      const MeshCoord fromFloat = meshRayIntersectScreen(sphere, matrix, x, y, 1, ray);
      ASSERT_EQ(fromDouble.valid(), fromFloat.valid()) << x << ", " << y;
      if (!fromDouble.valid()) continue;
      ++hits;
      EXPECT_EQ(fromDouble.getTriangle(), fromFloat.getTriangle()) << x << ", " << y;
      EXPECT_EQ(fromDouble.evaluate(), fromFloat.evaluate()) << x << ", " << y;
    }
  }
  EXPECT_GT(hits, 0);
}

TEST(MeshRayIntersectScreen, MissesAwayFromTheMesh) {
  const CompactMesh sphere = ruGeomTest::makeSphere(12, 12, 0.2);
  const Camera camera = pickCamera();
  const ruLinear::ProjMatrixFlt matrix(camera.getWorldToViewport());
  const Line ray = camera.getWorldSpaceRay(ruLinear::Point2(5.5, 5.5));
  const MeshCoord coord = meshRayIntersectScreen(sphere, matrix, 5, 5, 1, ray);
  EXPECT_FALSE(coord.valid());
  EXPECT_EQ(coord.getTriangle(), -1);
}

TEST(MeshRayIntersectScreen, ATriangleWithinTheTolerancePixelCountsWhenTheRayMisses) {
  // A thin sliver that a ray through the pixel centre misses but whose projection passes within a
  // pixel of it.
  const Camera camera = pickCamera();
  const ruLinear::ProjMatrixFlt matrix(camera.getWorldToViewport());
  ruLinear::Point2 centre;
  ASSERT_TRUE(camera.project(Point(0, 0, 0), centre));
  const double perPixel = camera.pixelScaleForDepth(camera.screenDepthAtPoint(Point()), 1.0);
  CompactMesh sliver;
  const Vector right = camera.getRightVector(), up = camera.getUpVector();
  const Point base = Point() + right * (0.6 * perPixel);
  sliver.addVertex(base - up * 5.0);
  sliver.addVertex(base + right * (0.01 * perPixel) - up * 5.0);
  sliver.addVertex(base + up * 5.0);
  sliver.addTriangle(0, 1, 2);
  const int x = static_cast<int>(std::floor(centre.x)), y = static_cast<int>(std::floor(centre.y));
  const Line ray = camera.getWorldSpaceRay(ruLinear::Point2(x + 0.5, y + 0.5));
  MeshRayHit direct;
  ASSERT_FALSE(meshRayIntersect(sliver, ray, direct));
  EXPECT_FALSE(meshRayIntersectScreen(sliver, matrix, x, y, 0, ray).valid());
  const MeshCoord coord = meshRayIntersectScreen(sliver, matrix, x, y, 1, ray);
  ASSERT_TRUE(coord.valid());
  EXPECT_EQ(coord.getTriangle(), 0);
  EXPECT_LT(ruLinear::distance(coord.evaluate(), Point()), 3 * perPixel);
}

namespace {

// Screen distance from a point to a projected triangle (0 inside); infinite when a corner has no
// screen position.
double screenDistance(const ruLinear::ProjMatrix& m, const CompactMesh& mesh, int t, double cx, double cy) {
  double x[3], y[3];
  for (int i = 0; i < 3; ++i) {
    double w = 0;
    const Point q = m.transform(mesh.getVertices()[mesh.getTriangles()[3 * t + i]].asPoint(), &w);
    if (!(w > 0)) return INFINITY;
    x[i] = q.x, y[i] = q.y;
  }
  const double area = (x[1] - x[0]) * (y[2] - y[0]) - (x[2] - x[0]) * (y[1] - y[0]);
  if (area != 0) {
    const double l1 = ((cx - x[0]) * (y[2] - y[0]) - (x[2] - x[0]) * (cy - y[0])) / area;
    const double l2 = ((x[1] - x[0]) * (cy - y[0]) - (cx - x[0]) * (y[1] - y[0])) / area;
    if (l1 >= 0 && l2 >= 0 && l1 + l2 <= 1) return 0;
  }
  double best = INFINITY;
  for (int e = 0; e < 3; ++e) {
    const int i = e, j = (e + 1) % 3;
    const double dx = x[j] - x[i], dy = y[j] - y[i];
    const double length2 = dx * dx + dy * dy;
    const double f = length2 > 0 ? std::clamp(((cx - x[i]) * dx + (cy - y[i]) * dy) / length2, 0.0, 1.0) : 0.0;
    best = std::min(best, std::hypot(x[i] + f * dx - cx, y[i] + f * dy - cy));
  }
  return best;
}

}  // namespace

TEST(MeshRayIntersectScreen, FindsATriangleExactlyWhenOneLiesWithinTheToleranceOfThePixel) {
  // Rows of pixels across a torus seen at an angle: over it, beside it and through its hole.
  const CompactMesh torus = ruGeomTest::makeTorus(24, 12);
  Camera camera;
  camera.setViewport(Viewport(0, 0, 200, 150));
  AngleAspect frustum;
  frustum.setAspectRatio(200.0 / 150.0);
  frustum.setDepthRange(0.5, 100);
  camera.setFrustum(frustum);
  camera.setWorldToEye(Point(0, 0, 0), Point(0, -7, 5), Vector(0, 0, 1));
  const ruLinear::ProjMatrix matrix = camera.getWorldToViewport();
  const ruLinear::ProjMatrixFlt matrixFlt(matrix);
  int found = 0, missed = 0;
  for (int y = 20; y < 130; y += 11) {
    for (int x = 0; x < 200; ++x) {
      const Line ray = camera.getWorldSpaceRay(ruLinear::Point2(x + 0.5, y + 0.5));
      const MeshCoord coord = meshRayIntersectScreen(torus, matrixFlt, x, y, 1, ray);
      double nearest = INFINITY;
      for (int t = 0; t < torus.getNumTriangles(); ++t) nearest = std::min(nearest, screenDistance(matrix, torus, t, x + 0.5, y + 0.5));
      // Float rounding of the matrix blurs the border by a hair.
      if (std::fabs(nearest - 1.0) < 1e-3) continue;
      EXPECT_EQ(coord.valid(), nearest <= 1.0) << x << "," << y << " nearest " << nearest;
      if (coord.valid()) {
        EXPECT_LE(screenDistance(matrix, torus, coord.getTriangle(), x + 0.5, y + 0.5), 1.0 + 1e-3);
        ++found;
      } else {
        ++missed;
      }
    }
  }
  EXPECT_GT(found, 200);
  EXPECT_GT(missed, 200);
}

TEST(MeshRayIntersectScreen, IsRightWithTheEyeInsideTheMeshBox) {
  // From inside the hole of a torus, looking across the ring and above it: the rays start
  // inside the mesh's box.
  const CompactMesh torus = ruGeomTest::makeTorus(24, 12);
  Camera camera;
  camera.setViewport(Viewport(0, 0, 200, 150));
  AngleAspect frustum;
  frustum.setAspectRatio(200.0 / 150.0);
  frustum.setDepthRange(0.05, 100);
  camera.setFrustum(frustum);
  camera.setWorldToEye(Point(3, 1, 0.6), Point(0.2, 0.1, 0.3), Vector(0, 0, 1));
  ASSERT_TRUE(torus.getBoundingBox().contains(camera.getEyeLocation()));
  const ruLinear::ProjMatrix matrix = camera.getWorldToViewport();
  const ruLinear::ProjMatrixFlt matrixFlt(matrix);
  int hits = 0, near = 0, missed = 0;
  for (int y = 2; y < 150; y += 7) {
    for (int x = 1; x < 200; x += 3) {
      const Line ray = camera.getWorldSpaceRay(ruLinear::Point2(x + 0.5, y + 0.5));
      const MeshCoord coord = meshRayIntersectScreen(torus, matrixFlt, x, y, 1, ray);
      MeshRayHit expected;
      if (ruGeomTest::bruteForceIntersect(torus, ray, expected)) {
        ASSERT_TRUE(coord.valid()) << x << "," << y;
        EXPECT_NEAR(coord.getDistance(), expected.distance, 1e-4) << x << "," << y;
        ++hits;
        continue;
      }
      double nearest = INFINITY;
      for (int t = 0; t < torus.getNumTriangles(); ++t) nearest = std::min(nearest, screenDistance(matrix, torus, t, x + 0.5, y + 0.5));
      if (std::fabs(nearest - 1.0) < 1e-3) continue;
      EXPECT_EQ(coord.valid(), nearest <= 1.0) << x << "," << y << " nearest " << nearest;
      if (coord.valid()) {
        EXPECT_LE(screenDistance(matrix, torus, coord.getTriangle(), x + 0.5, y + 0.5), 1.0 + 1e-3);
        ++near;
      } else {
        ++missed;
      }
    }
  }
  EXPECT_GT(hits, 200);
  EXPECT_GT(near, 0);
  EXPECT_GT(missed, 200);
}

TEST(MeshCoord, EvaluateIsTheBarycentricPoint) {
  const MeshCoord coord(4, 0.25, 0.5, Point(0, 0, 0), Point(4, 0, 0), Point(0, 4, 0), 1.0);
  EXPECT_TRUE(coord.valid());
  EXPECT_EQ(coord.getTriangle(), 4);
  EXPECT_EQ(coord.evaluate(), Point(1, 2, 0));
  EXPECT_FALSE(MeshCoord().valid());
}

// Run first, as death tests are: the child process makes its device with bad options, which
// Embree refuses; every query must then miss, and say why, instead of crashing on a null device.
TEST(RayQueryDeathTest, AFailedEmbreeDeviceMakesQueriesMissAndSaysWhy) {
  // Threadsafe: the child runs this test again from the start in a new process, whose device is
  // not made yet. Nothing before EXPECT_EXIT may make it.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        ::setenv("RUGEOM_EMBREE_CONFIG", "threads=many", 1);
        CompactMesh grid = ruGeomTest::makeGrid(4, 4);
        MeshRayHit hit;
        const bool any = meshRayIntersect(grid, ruLinear::Line(Point(0.5, 0.5, 1), ruLinear::Vector(0, 0, -1)), hit);
        MeshRayQuery query(grid);
        const std::string why = rayQueryError().str();
        std::fprintf(stderr, "%s\n", why.c_str());
        // _Exit: the child skips the leak check and static destruction of the parent's test run.
        std::_Exit(!any && !hit.hit && !query.valid() && !why.empty() ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "Embree device could not be created with options 'threads=0,threads=many'");
  // This process's device, made without the variable, works.
  EXPECT_TRUE(rayQueryError().empty()) << rayQueryError().c_str();
}
