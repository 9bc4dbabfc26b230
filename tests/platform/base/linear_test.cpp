#include "platform/base/linear.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <array>
#include <random>
#include <type_traits>

using namespace ruLinear;

namespace {

void expectNear(const Point& a, const Point& b, double tol = 1e-9) {
  EXPECT_NEAR(a.x, b.x, tol);
  EXPECT_NEAR(a.y, b.y, tol);
  EXPECT_NEAR(a.z, b.z, tol);
}

void expectNear(const Vector& a, const Vector& b, double tol = 1e-9) {
  EXPECT_NEAR(a.getX(), b.getX(), tol);
  EXPECT_NEAR(a.getY(), b.getY(), tol);
  EXPECT_NEAR(a.getZ(), b.getZ(), tol);
}

void expectNear(const AffineMatrix& a, const AffineMatrix& b, double tol = 1e-9) {
  for (int i = 0; i < 4; ++i) {
    for (int j = 0; j < 3; ++j) {
      EXPECT_NEAR(a(i, j), b(i, j), tol) << "row " << i << " column " << j;
    }
  }
}

} // namespace

TEST(Linear, AxesAndOriginsAreTheUnitConstants) {
  EXPECT_EQ(Vector::x, Vector(1, 0, 0));
  EXPECT_EQ(Vector::y, Vector(0, 1, 0));
  EXPECT_EQ(Vector::z, Vector(0, 0, 1));
  EXPECT_EQ(Vector::zero, Vector(0, 0, 0));
  EXPECT_EQ(Normal::x.getX(), 1.0);
  EXPECT_EQ(Normal::y.getY(), 1.0);
  EXPECT_EQ(Normal::z.getZ(), 1.0);
  EXPECT_EQ(Point::origin, Point(0, 0, 0));
  EXPECT_EQ(Point2::origin, Point2(0, 0));
  EXPECT_EQ(Vector2(), Vector2(0, 0));
}

TEST(Linear, PointArithmeticIsAffine) {
  const Point p(1, 2, 3);
  const Vector v(0.5, -1, 2);
  EXPECT_EQ(p + v, Point(1.5, 1, 5));
  EXPECT_EQ(p - v, Point(0.5, 3, 1));
  EXPECT_EQ(Point(4, 4, 4) - p, Vector(3, 2, 1));
  EXPECT_EQ(p[0], 1.0);
  EXPECT_EQ(p[2], 3.0);
  EXPECT_EQ(v / 2, Vector(0.25, -0.5, 1));
  EXPECT_EQ(-v, Vector(-0.5, 1, -2));
  EXPECT_EQ(2.0 * v, v * 2.0);
  Point2 q(3, 4);
  q.x = 7;
  EXPECT_EQ(q - Point2(1, 1), Vector2(6, 3));
}

TEST(Linear, NormalisingKeepsDirectionAndLeavesZeroAlone) {
  expectNear(Vector(3, 0, 4).normalized(), Vector(0.6, 0, 0.8));
  EXPECT_EQ(Vector::zero.normalized(), Vector::zero);
  Vector v(0, 0, 5);
  EXPECT_EQ(v.normalize(), 5.0);
  EXPECT_EQ(v, Vector::z);
  const Normal n(0, 3, 4);
  EXPECT_NEAR(n.getY(), 0.6, 1e-15);
  EXPECT_NEAR(Vector(n).length(), 1.0, 1e-15);
}

TEST(Linear, NormalsCompareExactlyAndNegate) {
  EXPECT_EQ(-Normal::x, Normal(-1, 0, 0));
  EXPECT_FALSE(Normal::x == Normal::y);
  EXPECT_TRUE(Normal(Vector(0, 0, 2)) == Normal::z);
  EXPECT_TRUE(Normal() == Normal::z);
}

TEST(Linear, CrossProductIsRightHanded) {
  EXPECT_EQ(cross(Vector::x, Vector::y), Vector::z);
  EXPECT_EQ(cross(Vector::y, Vector::z), Vector::x);
  EXPECT_EQ(cross(Normal::z, Vector::x), Vector::y);
  EXPECT_EQ(dot(Vector(1, 2, 3), Vector(4, 5, 6)), 32.0);
  EXPECT_EQ(length(Vector(2, 3, 6)), 7.0);
}

TEST(Linear, OrthogonalVectorCrossesTheAxisOfTheSmallestComponent) {
  // The z component is smallest, so the answer is n x z normalised.
  const Vector n(3, 2, 1);
  expectNear(n.orthogonalVector(), cross(n, Vector::z).normalized());
  // Ties go to x first: (0, 0, 1) crosses x giving +y.
  EXPECT_EQ(Vector::z.orthogonalVector(), Vector::y);
  // The x axis: y and z tie, so y wins: x cross y = z.
  EXPECT_EQ(Vector::x.orthogonalVector(), Vector::z);
  EXPECT_EQ(Vector::zero.orthogonalVector(), Vector::zero);
  std::mt19937 rng(7);
  std::uniform_real_distribution<double> d(-10, 10);
  for (int i = 0; i < 200; ++i) {
    const Vector v(d(rng), d(rng), d(rng));
    const Vector o = v.orthogonalVector();
    EXPECT_NEAR(o.length(), 1.0, 1e-12);
    EXPECT_NEAR(dot(o, v) / v.length(), 0.0, 1e-12);
  }
}

TEST(Linear, EquivalentIsInclusiveEuclideanDistance) {
  EXPECT_EQ(distance(Point2(0, 0), Point2(3, 4)), 5.0);
  EXPECT_TRUE(equivalent(Point2(0, 0), Point2(3, 4), 5.0));
  EXPECT_FALSE(equivalent(Point2(0, 0), Point2(3, 4), 4.999));
  // Manhattan distance would say 7, Chebyshev 4.
  EXPECT_FALSE(equivalent(Point2(0, 0), Point2(3, 4), 4.5));
  EXPECT_TRUE(equivalent(Point(1, 1, 1), Point(1, 1, 3), 2.0));
  EXPECT_FALSE(equivalent(Point(1, 1, 1), Point(1, 1, 3), 1.9));
}

TEST(Linear, AnglesConvert) {
  EXPECT_DOUBLE_EQ(toRadians(90), pi / 2);
  EXPECT_DOUBLE_EQ(toDegrees(pi), 180.0);
}

TEST(Linear, ProjectOntoLinesGivesTheFoot) {
  const Line line(Point(0, 0, 1), Vector(2, 0, 0));
  expectNear(project(Point(5, 3, 1), line), Point(5, 0, 1));
  double t = 0;
  const ParamLine seg(Point(1, 0, 0), Point(3, 0, 0));
  expectNear(project(Point(2.5, 1, 0), seg, t), Point(2.5, 0, 0));
  EXPECT_DOUBLE_EQ(t, 0.75);
  EXPECT_EQ(seg.evaluate(1.0), Point(3, 0, 0));
  const ParamLine zero(Point(1, 1, 1), Vector::zero);
  EXPECT_EQ(project(Point(5, 5, 5), zero, t), Point(1, 1, 1));
  EXPECT_EQ(t, 0.0);
}

TEST(Linear, LineLineIntersectionGivesThePointOnTheSecondLine) {
  bool flag = false;
  // Skew lines: the first along x at z = 1, the second along y at z = 0 through (2, 0, 0).
  const Line first(Point(0, 0, 1), Vector::x);
  const Line second(Point(2, 5, 0), Vector(0, 3, 0));
  expectNear(intersect(first, second, flag, perpendicular2Tol), Point(2, 0, 0));
  EXPECT_TRUE(flag);
  // And the other way round, the point on the first line.
  expectNear(intersect(second, first, flag, perpendicular2Tol), Point(2, 0, 1));
  EXPECT_TRUE(flag);
}

TEST(Linear, ParallelLinesReportNoIntersectionAndGiveTheFoot) {
  bool flag = true;
  const Line first(Point(1, 2, 3), Vector::x);
  const Line second(Point(0, 0, 0), Vector(-4, 0, 0));
  expectNear(intersect(first, second, flag, perpendicular2Tol), Point(1, 0, 0));
  EXPECT_FALSE(flag);
  flag = true;
  intersect(first, Line(Point::origin, Vector::zero), flag, perpendicular2Tol);
  EXPECT_FALSE(flag);
}

TEST(Linear, LinePlaneIntersection) {
  bool flag = false;
  const Plane ground(Point(0, 0, 2), Normal::z);
  expectNear(intersect(Line(Point(1, 1, 10), Vector(0, 0, -3)), ground, flag, 1e-5), Point(1, 1, 2));
  EXPECT_TRUE(flag);
  expectNear(intersect(Line(Point(0, 0, 0), Vector(1, 1, 1)), ground, flag, 1e-5), Point(2, 2, 2));
  EXPECT_TRUE(flag);
}

TEST(Linear, LineParallelToPlaneGivesTheFootOfItsPoint) {
  bool flag = true;
  const Plane ground(Point(0, 0, 2), Normal::z);
  expectNear(intersect(Line(Point(4, 5, 9), Vector::x), ground, flag, 1e-5), Point(4, 5, 2));
  EXPECT_FALSE(flag);
}

TEST(Linear, PlanesAndParamPlanes) {
  const Plane p(Point(0, 0, 1), Vector(0, 0, 5));
  EXPECT_EQ(p.getNormal(), Normal::z);
  EXPECT_DOUBLE_EQ(p.signedDistance(Point(3, 3, 4)), 3.0);
  expectNear(project(Point(3, 3, 4), p), Point(3, 3, 1));

  // Two parameter vectors: the normal is their normalised cross product.
  const ParamPlane yz(Point::origin, Normal::y, Normal::z, false);
  EXPECT_EQ(yz.getNormal(), Normal::x);
  EXPECT_EQ(yz.getFirstVector(), Vector::y);
  EXPECT_EQ(Plane(yz).getNormal(), Normal::x);
  EXPECT_EQ(yz.evaluate(2, 3), Point(0, 2, 3));
  EXPECT_EQ(yz.evaluate(Point2(0.5, 0.5)), Point(0, 0.5, 0.5));

  // With a normal: kept as given even if it is not the cross product.
  const ParamPlane given(Point(1, 1, 1), -Normal::z, Vector::x, Vector::y, false);
  EXPECT_EQ(given.getNormal(), -Normal::z);
  EXPECT_EQ(given.evaluate(1, 1), Point(2, 2, 1));

  const ParamPlane ortho(Point::origin, Vector(2, 0, 0), Vector(1, 1, 0), true);
  expectNear(ortho.getFirstVector(), Vector::x);
  expectNear(ortho.getSecondVector(), Vector::y);

  const ParamPlane def;
  EXPECT_EQ(def.getNormal(), Normal::z);
  EXPECT_EQ(def.evaluate(1, 1), Point(1, 1, 0));
}

TEST(Linear, UnboundedRangeIsInvertedAndGrowsByInclude) {
  Range3d r;
  r.setUnbounded();
  EXPECT_TRUE(r.isUnbounded());
  EXPECT_FALSE(r.isValid());
  EXPECT_EQ(r.getMin().x, DBL_MAX);
  EXPECT_EQ(r.getMax().x, -DBL_MAX);
  EXPECT_LT(r.getMax(0), r.getMin(0));
  r.include(Point(1, 2, 3));
  EXPECT_TRUE(r.isValid());
  EXPECT_EQ(r.getMin(), Point(1, 2, 3));
  EXPECT_EQ(r.getMax(), Point(1, 2, 3));
  r.include(Range3d(Point(0, 5, 0), Point(2, 4, 1)));
  EXPECT_EQ(r.getMin(), Point(0, 2, 0));
  EXPECT_EQ(r.getMax(), Point(2, 5, 3));
  // An unbounded range holds nothing: including it changes nothing.
  Range3d nothing;
  r.include(nothing);
  EXPECT_EQ(r.getMin(), Point(0, 2, 0));
  EXPECT_EQ(r.getMax(), Point(2, 5, 3));
}

TEST(Linear, RangeFromTwoPointsInAnyOrder) {
  const Range3d r(Point(3, -1, 2), Point(1, 4, -2));
  EXPECT_EQ(r.getMin(), Point(1, -1, -2));
  EXPECT_EQ(r.getMax(), Point(3, 4, 2));
  EXPECT_EQ(r.getMiddle(), Point(2, 1.5, 0));
  EXPECT_EQ(r.getDiagonal(), Vector(2, 5, 4));
  EXPECT_TRUE(r.contains(Point(2, 0, 0)));
  EXPECT_FALSE(r.contains(Point(2, 0, 3)));
  Range3d s;
  s.set(Point(3, 3, 3), Point(0, 0, 0));
  EXPECT_EQ(s.getMin(), Point::origin);
  EXPECT_EQ(s.getRange(1).length(), 3.0);
}

TEST(Linear, Range1dSetAndInclude) {
  Range1d r;
  EXPECT_FALSE(r.isValid());
  r.set(5.0, -5.0);
  EXPECT_EQ(r.getMin(), -5.0);
  EXPECT_EQ(r.getMax(), 5.0);
  r.include(7.0);
  EXPECT_EQ(r.getMax(), 7.0);
  EXPECT_EQ(r.middle(), 1.0);
}

TEST(Linear, MatrixProductAppliesLeftOperandFirst) {
  const AffineMatrix t = AffineMatrix::translation(Vector(1, 0, 0));
  const AffineMatrix s = AffineMatrix::scaling(2.0);
  // Translate then scale: (0,0,0) -> (1,0,0) -> (2,0,0).
  EXPECT_EQ(Point::origin * (t * s), Point(2, 0, 0));
  // Scale then translate: (0,0,0) -> (0,0,0) -> (1,0,0).
  EXPECT_EQ(Point::origin * (s * t), Point(1, 0, 0));
  EXPECT_TRUE(AffineMatrix().isIdentity());
  EXPECT_TRUE(AffineMatrix() == AffineMatrix::Identity);
  EXPECT_TRUE(t != AffineMatrix::Identity);
}

TEST(Linear, InPlaceOperationsActInLocalSpace) {
  AffineMatrix m;
  m.translate(Vector(10, 0, 0));
  m.scale(2.0);
  // Scale applies first (local space), then the translation: v -> 2v + (10, 0, 0).
  EXPECT_EQ(Point(1, 1, 1) * m, Point(12, 2, 2));
}

TEST(Linear, BillboardRecipePlacesAVertexAtPositionPlusDeltaPlusScaledRotation) {
  // identity; translate by position; translate by delta; scale by scale; finally rotation * matrix.
  const Vector position(5, 6, 7);
  const Vector delta(1, 0, -1);
  const double scaleFactor = 3.0;
  Quaternion q;
  q.setFrame(Vector(0, 1, 0), Vector(-1, 0, 0), Vector(0, 0, 1));  // 90 degrees about z
  q.normalize();
  const AffineMatrix rotation = q.getMatrix();
  AffineMatrix m;
  m.translate(position);
  m.translate(delta);
  m.scale(scaleFactor);
  m = rotation * m;
  const Vector v(1, 2, 3);
  const Point expected = Point::origin + position + delta + (v * rotation) * scaleFactor;
  expectNear(Point(1, 2, 3) * m, expected);
  // The rotation took x to y.
  expectNear(Vector::x * rotation, Vector::y);
}

TEST(Linear, RotationAboutALine) {
  AffineMatrix m;
  m.rotate(pi / 2, Line(Point(1, 0, 0), Vector::z));
  expectNear(Point(2, 0, 0) * m, Point(1, 1, 0));
  expectNear(Point(1, 0, 5) * m, Point(1, 0, 5));
  expectNear(Vector::x * AffineMatrix::rotation(pi / 2, Vector::z), Vector::y);
}

TEST(Linear, VectorsIgnoreTranslationAndNormalsUseTheInverseTranspose) {
  AffineMatrix m = AffineMatrix::scaling(Vector(2, 1, 1));
  m.postMultiply(AffineMatrix::translation(Vector(5, 5, 5)));
  EXPECT_EQ(Vector(1, 1, 0) * m, Vector(2, 1, 0));
  // A 45-degree plane under a stretch along x: the normal tilts towards y.
  const Normal n(1, 1, 0);
  const Normal t = n * m;
  expectNear(t, Vector(0.5, 1, 0).normalized());
  EXPECT_NEAR(dot(t, Vector(1, -1, 0) * m), 0.0, 1e-12);
}

TEST(Linear, InverseUndoesTheMatrix) {
  std::mt19937 rng(11);
  std::uniform_real_distribution<double> d(-2, 2);
  for (int i = 0; i < 50; ++i) {
    AffineMatrix m;
    m.rotate(d(rng), Vector(d(rng), d(rng), d(rng) + 3));
    m.scale(Vector(1 + std::fabs(d(rng)), 1 + std::fabs(d(rng)), 1 + std::fabs(d(rng))));
    m.translate(Vector(d(rng), d(rng), d(rng)));
    bool ok = false;
    const AffineMatrix inv = m.inverse(&ok);
    EXPECT_TRUE(ok);
    expectNear(m * inv, AffineMatrix::Identity, 1e-9);
    expectNear(inv * m, AffineMatrix::Identity, 1e-9);
  }
  bool ok = true;
  EXPECT_EQ(AffineMatrix::scaling(Vector(1, 0, 1)).inverse(&ok), AffineMatrix::Identity);
  EXPECT_FALSE(ok);
}

TEST(Linear, QuaternionFrameMapsLocalAxesToTheFrame) {
  std::mt19937 rng(3);
  std::uniform_real_distribution<double> d(-1, 1);
  for (int i = 0; i < 100; ++i) {
    const Vector a = Vector(d(rng), d(rng), d(rng) + 2).normalized();
    const Vector b = a.orthogonalVector();
    const Vector c = cross(a, b);
    Quaternion q;
    q.setFrame(a, b, c);
    q.normalize();
    const AffineMatrix m = q.getMatrix();
    expectNear(Vector::x * m, a, 1e-9);
    expectNear(Vector::y * m, b, 1e-9);
    expectNear(Vector::z * m, c, 1e-9);
  }
  // Half turns take the other branches of the extraction.
  for (const auto& frame : {std::array<Vector, 3>{Vector(-1, 0, 0), Vector(0, -1, 0), Vector(0, 0, 1)},
                            std::array<Vector, 3>{Vector(1, 0, 0), Vector(0, -1, 0), Vector(0, 0, -1)},
                            std::array<Vector, 3>{Vector(-1, 0, 0), Vector(0, 1, 0), Vector(0, 0, -1)}}) {
    Quaternion q;
    q.setFrame(frame[0], frame[1], frame[2]);
    const AffineMatrix m = q.getMatrix();
    expectNear(Vector::x * m, frame[0]);
    expectNear(Vector::y * m, frame[1]);
    expectNear(Vector::z * m, frame[2]);
  }
}

TEST(Linear, QuaternionProductAppliesLeftOperandFirst) {
  const Quaternion a(pi / 2, Vector::z);
  const Quaternion b(pi / 2, Vector::x);
  expectNear((a * b).getMatrix(), a.getMatrix() * b.getMatrix());
  expectNear(a.rotate(Vector::x), Vector::y);
  Quaternion zero(0, 0, 0, 0);
  zero.normalize();
  EXPECT_TRUE(zero.getMatrix().isIdentity());
}

TEST(Linear, ProjectiveMatrixDividesByW) {
  ProjMatrix m;
  // Perspective-like: w = z.
  m(2, 3) = 1.0;
  m(3, 3) = 0.0;
  double w = 0;
  const Point p = m.transform(Point(2, 4, 2), &w);
  EXPECT_EQ(w, 2.0);
  EXPECT_EQ(p, Point(1, 2, 1));
  EXPECT_EQ(Point(2, 4, 2) * m, Point(1, 2, 1));
  // W zero: undivided.
  EXPECT_EQ(m.transform(Point(1, 1, 0)), Point(1, 1, 0));
}

TEST(Linear, ProjectiveInverseAndConversions) {
  AffineMatrix a;
  a.rotate(0.3, Vector(1, 2, 3));
  a.translate(Vector(1, -2, 5));
  ProjMatrix m(a);
  m(2, 3) = 0.5;
  bool ok = false;
  const ProjMatrix inv = m.inverse(&ok);
  EXPECT_TRUE(ok);
  const ProjMatrix id = m * inv;
  for (int i = 0; i < 4; ++i) {
    for (int j = 0; j < 4; ++j) {
      EXPECT_NEAR(id(i, j), i == j ? 1.0 : 0.0, 1e-12);
    }
  }
  const Point p(0.3, -0.7, 2.0);
  expectNear(p * m * inv, p);
  EXPECT_EQ(Point(1, 2, 3) * ProjMatrix(a), Point(1, 2, 3) * a);
  ProjMatrix singular;
  singular(1, 1) = 0.0;
  singular.inverse(&ok);
  EXPECT_FALSE(ok);
  const ProjMatrixFlt f(m);
  EXPECT_EQ(f(2, 3), 0.5f);
  EXPECT_FLOAT_EQ(f(3, 0), static_cast<float>(m(3, 0)));
  EXPECT_NEAR(f.asProjMatrix()(0, 0), m(0, 0), 1e-7);
}

TEST(Linear, TransformedRangesHoldTheTransformedCorners) {
  const Range3d r(Point(0, 0, 0), Point(1, 2, 3));
  const Range3d t = r * AffineMatrix::rotation(pi / 2, Vector::z);
  expectNear(t.getMin(), Point(-2, 0, 0));
  expectNear(t.getMax(), Point(0, 1, 3));
  Range3d empty;
  EXPECT_TRUE((empty * AffineMatrix::translation(Vector(1, 1, 1))).isUnbounded());
}

TEST(Linear, ValuesAreTriviallyCopyable) {
  static_assert(std::is_trivially_copyable_v<Point>);
  static_assert(std::is_trivially_copyable_v<Line>);
  static_assert(std::is_trivially_copyable_v<Plane>);
  static_assert(std::is_trivially_copyable_v<AffineMatrix>);
  static_assert(std::is_trivially_copyable_v<Range3d>);
  SUCCEED();
}
