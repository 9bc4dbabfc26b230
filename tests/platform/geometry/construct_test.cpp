#include "platform/geometry/construct.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace ruGeom;
using ruLinear::Point;
using ruLinear::Vector;

namespace {

// The normal of triangle t from its corners (unnormalised).
Vector faceNormal(const CompactMesh& mesh, int t) {
  const std::uint32_t* tri = mesh.getTriangles() + 3 * t;
  const Point a = mesh.getVertices()[tri[0]].asPoint(), b = mesh.getVertices()[tri[1]].asPoint(),
              c = mesh.getVertices()[tri[2]].asPoint();
  return ruLinear::cross(b - a, c - a);
}

// Every triangle of a closed convex mesh faces away from `inside`.
void expectOutward(const CompactMesh& mesh, const Point& inside) {
  for (int t = 0; t < mesh.getNumTriangles(); ++t) {
    const Point a = mesh.getVertices()[mesh.getTriangles()[3 * t]].asPoint();
    EXPECT_GT(ruLinear::dot(faceNormal(mesh, t), a - inside), 0) << "triangle " << t;
  }
}

}  // namespace

TEST(Construct, RectangleOfAParamPlaneIsItsParameterSquare) {
  CompactMesh mesh;
  const ruLinear::ParamPlane plane(Point(1, 2, 3), Vector(2, 0, 0), Vector(0, 3, 0));
  constructRectangle(plane, mesh);
  ASSERT_EQ(mesh.getNumVertices(), 4);
  ASSERT_EQ(mesh.getNumTriangles(), 2);
  EXPECT_EQ(mesh.getVertices()[0].asPoint(), Point(1, 2, 3));
  EXPECT_EQ(mesh.getVertices()[1].asPoint(), Point(3, 2, 3));
  EXPECT_EQ(mesh.getVertices()[2].asPoint(), Point(3, 5, 3));
  EXPECT_EQ(mesh.getVertices()[3].asPoint(), Point(1, 5, 3));
  ASSERT_TRUE(mesh.hasTextureCoordinates());
  ASSERT_TRUE(mesh.hasNormals());
  const float uv[4][2] = {{0, 0}, {1, 0}, {1, 1}, {0, 1}};
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(mesh.getTextureCoordinates()[i].u, uv[i][0]);
    EXPECT_EQ(mesh.getTextureCoordinates()[i].v, uv[i][1]);
    EXPECT_EQ(mesh.getNormals()[i].z, 1.0f);
  }
  for (int t = 0; t < 2; ++t) EXPECT_GT(faceNormal(mesh, t).getZ(), 0);
}

TEST(Construct, RectangleOverRangesFacesPlusAxisWhenTheFlagIsTrue) {
  CompactMesh mesh;
  const float w = 3.0f, h = 2.0f;
  constructRectangle(-0.5 * w, 0.5 * w, -0.5 * h, 0.5 * h, 2, 0.0, mesh, true);
  ASSERT_EQ(mesh.getNumVertices(), 4);
  ASSERT_EQ(mesh.getNumTriangles(), 2);
  const BoundingBox box = mesh.getBoundingBox();
  EXPECT_EQ(box.getMin(), Point(-1.5, -1, 0));
  EXPECT_EQ(box.getMax(), Point(1.5, 1, 0));
  for (int t = 0; t < 2; ++t) EXPECT_GT(faceNormal(mesh, t).getZ(), 0);
  EXPECT_EQ(mesh.getTextureCoordinates()[0].u, 0.0f);
  EXPECT_EQ(mesh.getTextureCoordinates()[2].u, 1.0f);
  EXPECT_EQ(mesh.getTextureCoordinates()[2].v, 1.0f);
  EXPECT_EQ(mesh.getVertices()[2].asPoint(), Point(1.5, 1, 0));
}

TEST(Construct, RectangleOverRangesFacesMinusAxisWhenTheFlagIsFalse) {
  CompactMesh mesh;
  constructRectangle(0, 1, 0, 1, 0, 4.0, mesh, false);
  ASSERT_EQ(mesh.getNumTriangles(), 2);
  for (int t = 0; t < 2; ++t) EXPECT_LT(faceNormal(mesh, t).getX(), 0);
  EXPECT_EQ(mesh.getNormals()[0].x, -1.0f);
  // Axis 0: the rectangle's coordinates are y then z.
  EXPECT_EQ(mesh.getVertices()[2].asPoint(), Point(4, 1, 1));
}

TEST(Construct, RectangleWithAnAxisOutOfRangeAddsNothing) {
  CompactMesh mesh;
  constructRectangle(0, 1, 0, 1, 3, 0.0, mesh, true);
  EXPECT_EQ(mesh.getNumVertices(), 0);
}

TEST(Construct, UnitCappedCylinderHasItsRadiusAndCaps) {
  CompactMesh mesh;
  const double radius = 0.009999999776482582;
  constructCappedCylinder(ruLinear::ParamLine(Point::origin, Vector::z), radius, 10, mesh);
  EXPECT_EQ(mesh.getNumVertices(), 4 * 10 + 2);
  EXPECT_EQ(mesh.getNumTriangles(), 4 * 10);
  const BoundingBox box = mesh.getBoundingBox();
  EXPECT_NEAR(box.getMin().z, 0, 1e-7);
  EXPECT_NEAR(box.getMax().z, 1, 1e-7);
  int onBottom = 0, onTop = 0;
  for (int i = 0; i < mesh.getNumVertices(); ++i) {
    const Point p = mesh.getVertices()[i].asPoint();
    const double r = std::hypot(p.x, p.y);
    EXPECT_TRUE(std::fabs(r - radius) < 1e-8 || r < 1e-9) << i;
    onBottom += std::fabs(p.z) < 1e-9;
    onTop += std::fabs(p.z - 1) < 1e-7;
  }
  EXPECT_EQ(onBottom, 21);
  EXPECT_EQ(onTop, 21);
  expectOutward(mesh, Point(0, 0, 0.5));
  // Both caps are there: triangles facing down and up.
  int down = 0, up = 0;
  for (int t = 0; t < mesh.getNumTriangles(); ++t) {
    const Vector n = faceNormal(mesh, t);
    down += n.getZ() < -1e-12 && std::fabs(n.getX()) < 1e-12 && std::fabs(n.getY()) < 1e-12;
    up += n.getZ() > 1e-12 && std::fabs(n.getX()) < 1e-12 && std::fabs(n.getY()) < 1e-12;
  }
  EXPECT_EQ(down, 10);
  EXPECT_EQ(up, 10);
}

TEST(Construct, CylinderAlongXRunsFromTheOriginToOne) {
  CompactMesh mesh;
  constructCappedCylinder(ruLinear::ParamLine(Point::origin, Vector::x), 0.5, 10, mesh);
  const BoundingBox box = mesh.getBoundingBox();
  EXPECT_NEAR(box.getMin().x, 0, 1e-7);
  EXPECT_NEAR(box.getMax().x, 1, 1e-7);
  for (int i = 0; i < mesh.getNumVertices(); ++i) {
    const Point p = mesh.getVertices()[i].asPoint();
    const double r = std::hypot(p.y, p.z);
    EXPECT_TRUE(std::fabs(r - 0.5) < 1e-6 || r < 1e-9) << i;
  }
  expectOutward(mesh, Point(0.5, 0, 0));
}

TEST(Construct, CylinderWithTooFewSidesAddsNothing) {
  CompactMesh mesh;
  constructCappedCylinder(ruLinear::ParamLine(Point::origin, Vector::x), 1, 2, mesh);
  EXPECT_EQ(mesh.getNumVertices(), 0);
}

TEST(Construct, LineSegmentOfAParamLineHoldsOneLineOnly) {
  CompactMesh mesh;
  constructLineSegment(ruLinear::ParamLine(Point(1, 1, 1), Vector(2, 0, 0)), mesh, 0.0, 1.0);
  EXPECT_EQ(mesh.getNumVertices(), 2);
  EXPECT_EQ(mesh.getNumLines(), 1);
  EXPECT_EQ(mesh.getNumTriangles(), 0);
  EXPECT_EQ(mesh.getVertices()[mesh.getLines()[0]].asPoint(), Point(1, 1, 1));
  EXPECT_EQ(mesh.getVertices()[mesh.getLines()[1]].asPoint(), Point(3, 1, 1));
}

TEST(Construct, LineSegmentBetweenPointsAppends) {
  CompactMesh mesh;
  constructLineSegment(Point(0, 0, 0), Point(0, 1, 0), mesh);
  constructLineSegment(Point(0, 0, 1), Point(0, 1, 1), mesh);
  EXPECT_EQ(mesh.getNumVertices(), 4);
  EXPECT_EQ(mesh.getNumLines(), 2);
  EXPECT_EQ(mesh.getLines()[2], 2u);
  EXPECT_FALSE(mesh.hasTriangles());
}

TEST(Construct, CuboidIsAClosedOutwardBoxOfTheRange) {
  CompactMesh mesh;
  constructCuboid(ruLinear::Range3d(Point(2, 3, 4), Point(-1, 0, 1)), mesh);
  EXPECT_EQ(mesh.getNumVertices(), 24);
  EXPECT_EQ(mesh.getNumTriangles(), 12);
  EXPECT_EQ(mesh.getBoundingBox().getMin(), Point(-1, 0, 1));
  EXPECT_EQ(mesh.getBoundingBox().getMax(), Point(2, 3, 4));
  expectOutward(mesh, Point(0.5, 1.5, 2.5));
  EXPECT_FALSE(mesh.hasLines());
}

TEST(Construct, CuboidOfAnInvertedRangeAddsNothing) {
  CompactMesh mesh;
  ruLinear::Range3d range;
  range.setUnbounded();
  constructCuboid(range, mesh);
  EXPECT_EQ(mesh.getNumVertices(), 0);
}

TEST(Construct, BoxEdgesAreTwelveLinesAlongTheAxes) {
  CompactMesh mesh;
  constructBoxEdgeLineStrips(BoundingBox(Point(0, 0, 0), Point(1, 2, 3)), mesh);
  EXPECT_EQ(mesh.getNumVertices(), 8);
  ASSERT_EQ(mesh.getNumLines(), 12);
  EXPECT_EQ(mesh.getNumTriangles(), 0);
  double total = 0;
  for (int l = 0; l < 12; ++l) {
    const Point a = mesh.getVertices()[mesh.getLines()[2 * l]].asPoint();
    const Point b = mesh.getVertices()[mesh.getLines()[2 * l + 1]].asPoint();
    int differing = 0;
    for (int axis = 0; axis < 3; ++axis) differing += a[axis] != b[axis];
    EXPECT_EQ(differing, 1);
    total += ruLinear::distance(a, b);
  }
  EXPECT_DOUBLE_EQ(total, 4 * (1 + 2 + 3));
}

TEST(Construct, BoxEdgesOfAnInvalidBoxAddNothing) {
  CompactMesh mesh;
  constructBoxEdgeLineStrips(BoundingBox(), mesh);
  EXPECT_EQ(mesh.getNumVertices(), 0);
}

TEST(Construct, ConstructionsAppendAfterExistingVertices) {
  CompactMesh mesh;
  constructCuboid(ruLinear::Range3d(Point(0, 0, 0), Point(1, 1, 1)), mesh);
  constructRectangle(ruLinear::ParamPlane(Point(5, 0, 0), Vector(1, 0, 0), Vector(0, 1, 0)), mesh);
  EXPECT_EQ(mesh.getNumVertices(), 28);
  EXPECT_EQ(mesh.getNumTriangles(), 14);
  for (int i = 36; i < 42; ++i) EXPECT_GE(mesh.getTriangles()[i], 24u);
}
