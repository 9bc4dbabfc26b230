#pragma once

#include "platform/base/export.h"

#include <cstddef>

// Double-precision geometry values: points, vectors, lines, planes, ranges and matrices.
//
// Conventions, shared by every library that uses these values:
// - Matrices act on row vectors: a point is transformed as `p * M`, and `A * B` applies A first,
//   then B. The in-place operations (`translate`, `scale`, `rotate`) pre-multiply, `M = Op * M`, so
//   they act in the matrix's local space: "identity; translate by t; scale by s" maps v to s*v + t.
// - Angles are radians unless a name says degrees.
// - Every value is a plain, trivially copyable record; nothing allocates and nothing throws. Where an
//   operation has no answer (normalising a zero vector, inverting a singular matrix) the comment on
//   the call says what it returns instead.
namespace ruLinear {

// The squared-sine tolerance below which two directions count as parallel (`intersect`).
inline constexpr double perpendicular2Tol = 1e-12;
inline constexpr double pi = 3.14159265358979323846;

RU_BASE_API double toRadians(double degrees) noexcept;
RU_BASE_API double toDegrees(double radians) noexcept;

class Normal;

// ---------------------------------------------------------------------------------------------
// Two-dimensional values. Coordinates are public: screen positions are read and written directly.

struct RU_BASE_API Vector2 {
  double x = 0.0;
  double y = 0.0;

  constexpr Vector2() noexcept = default;
  constexpr Vector2(double x_, double y_) noexcept : x(x_), y(y_) {}

  double length() const noexcept;
  double length2() const noexcept { return x * x + y * y; }

  Vector2& operator+=(const Vector2& o) noexcept { x += o.x; y += o.y; return *this; }
  Vector2& operator-=(const Vector2& o) noexcept { x -= o.x; y -= o.y; return *this; }
  Vector2& operator*=(double s) noexcept { x *= s; y *= s; return *this; }
  Vector2& operator/=(double s) noexcept { x /= s; y /= s; return *this; }
};

struct RU_BASE_API Point2 {
  double x = 0.0;
  double y = 0.0;

  static const Point2 origin;

  constexpr Point2() noexcept = default;
  constexpr Point2(double x_, double y_) noexcept : x(x_), y(y_) {}

  Point2& operator+=(const Vector2& v) noexcept { x += v.x; y += v.y; return *this; }
  Point2& operator-=(const Vector2& v) noexcept { x -= v.x; y -= v.y; return *this; }
};

constexpr bool operator==(const Vector2& a, const Vector2& b) noexcept { return a.x == b.x && a.y == b.y; }
constexpr bool operator==(const Point2& a, const Point2& b) noexcept { return a.x == b.x && a.y == b.y; }
constexpr Vector2 operator+(const Vector2& a, const Vector2& b) noexcept { return {a.x + b.x, a.y + b.y}; }
constexpr Vector2 operator-(const Vector2& a, const Vector2& b) noexcept { return {a.x - b.x, a.y - b.y}; }
constexpr Vector2 operator-(const Vector2& a) noexcept { return {-a.x, -a.y}; }
constexpr Vector2 operator*(const Vector2& a, double s) noexcept { return {a.x * s, a.y * s}; }
constexpr Vector2 operator*(double s, const Vector2& a) noexcept { return {a.x * s, a.y * s}; }
constexpr Vector2 operator/(const Vector2& a, double s) noexcept { return {a.x / s, a.y / s}; }
constexpr Vector2 operator-(const Point2& a, const Point2& b) noexcept { return {a.x - b.x, a.y - b.y}; }
constexpr Point2 operator+(const Point2& p, const Vector2& v) noexcept { return {p.x + v.x, p.y + v.y}; }
constexpr Point2 operator-(const Point2& p, const Vector2& v) noexcept { return {p.x - v.x, p.y - v.y}; }
constexpr double dot(const Vector2& a, const Vector2& b) noexcept { return a.x * b.x + a.y * b.y; }

// Euclidean distance.
RU_BASE_API double distance(const Point2& a, const Point2& b) noexcept;
// True when the points are at most `tolerance` apart (Euclidean, inclusive): a pointer that moved
// exactly the tolerance has not moved.
RU_BASE_API bool equivalent(const Point2& a, const Point2& b, double tolerance) noexcept;

// ---------------------------------------------------------------------------------------------
// Three-dimensional values. `Vector` and `Normal` keep their axes as static members named x, y
// and z, so their components are read with getX()/getY()/getZ() or by index.

class RU_BASE_API Vector {
public:
  static const Vector x;
  static const Vector y;
  static const Vector z;
  static const Vector zero;

  constexpr Vector() noexcept = default;
  constexpr Vector(double vx, double vy, double vz) noexcept : c_{vx, vy, vz} {}

  constexpr double getX() const noexcept { return c_[0]; }
  constexpr double getY() const noexcept { return c_[1]; }
  constexpr double getZ() const noexcept { return c_[2]; }
  void setX(double v) noexcept { c_[0] = v; }
  void setY(double v) noexcept { c_[1] = v; }
  void setZ(double v) noexcept { c_[2] = v; }
  void set(double vx, double vy, double vz) noexcept { c_[0] = vx; c_[1] = vy; c_[2] = vz; }
  // Component by axis index 0, 1, 2 (the caller keeps the index in range).
  constexpr double operator[](int axis) const noexcept { return c_[axis]; }
  double& operator[](int axis) noexcept { return c_[axis]; }

  double length() const noexcept;
  constexpr double length2() const noexcept { return c_[0] * c_[0] + c_[1] * c_[1] + c_[2] * c_[2]; }
  // The unit vector in this direction; the zero vector stays zero.
  Vector normalized() const noexcept;
  // Normalises in place and answers the length before (0 for the zero vector, which stays zero).
  double normalize() noexcept;
  // A unit vector perpendicular to this one, chosen deterministically: the normalised cross product
  // with the axis along which this vector has its smallest absolute component (ties go to x, then y,
  // then z). The zero vector gives the zero vector.
  Vector orthogonalVector() const noexcept;

  Vector& operator+=(const Vector& o) noexcept { for (int i = 0; i < 3; ++i) c_[i] += o.c_[i]; return *this; }
  Vector& operator-=(const Vector& o) noexcept { for (int i = 0; i < 3; ++i) c_[i] -= o.c_[i]; return *this; }
  Vector& operator*=(double s) noexcept { for (double& c : c_) c *= s; return *this; }
  Vector& operator/=(double s) noexcept { for (double& c : c_) c /= s; return *this; }

private:
  double c_[3] = {0.0, 0.0, 0.0};
};

// A unit direction. Every constructor normalises (a zero input stays zero, the one non-unit
// normal). A normal converts to a `Vector` implicitly; the other way is explicit.
class RU_BASE_API Normal {
public:
  static const Normal x;
  static const Normal y;
  static const Normal z;

  // +z.
  constexpr Normal() noexcept = default;
  Normal(double nx, double ny, double nz) noexcept;
  explicit Normal(const Vector& v) noexcept;

  constexpr double getX() const noexcept { return c_[0]; }
  constexpr double getY() const noexcept { return c_[1]; }
  constexpr double getZ() const noexcept { return c_[2]; }
  constexpr double operator[](int axis) const noexcept { return c_[axis]; }

  constexpr operator Vector() const noexcept { return Vector(c_[0], c_[1], c_[2]); }
  Vector asVector() const noexcept { return Vector(c_[0], c_[1], c_[2]); }
  Normal operator-() const noexcept;
  // See `Vector::orthogonalVector`.
  Vector orthogonalVector() const noexcept { return asVector().orthogonalVector(); }

private:
  struct Raw {};
  constexpr Normal(Raw, double nx, double ny, double nz) noexcept : c_{nx, ny, nz} {}
  double c_[3] = {0.0, 0.0, 1.0};
};

class RU_BASE_API Point {
public:
  static const Point origin;

  double x = 0.0;
  double y = 0.0;
  double z = 0.0;

  constexpr Point() noexcept = default;
  constexpr Point(double px, double py, double pz) noexcept : x(px), y(py), z(pz) {}

  constexpr double getX() const noexcept { return x; }
  constexpr double getY() const noexcept { return y; }
  constexpr double getZ() const noexcept { return z; }
  void set(double px, double py, double pz) noexcept { x = px; y = py; z = pz; }
  // Coordinate by axis index 0, 1, 2 (the caller keeps the index in range).
  double operator[](int axis) const noexcept { return axis == 0 ? x : (axis == 1 ? y : z); }
  double& operator[](int axis) noexcept { return axis == 0 ? x : (axis == 1 ? y : z); }
  // The vector from the origin to this point.
  constexpr Vector asVector() const noexcept { return Vector(x, y, z); }

  Point& operator+=(const Vector& v) noexcept { x += v.getX(); y += v.getY(); z += v.getZ(); return *this; }
  Point& operator-=(const Vector& v) noexcept { x -= v.getX(); y -= v.getY(); z -= v.getZ(); return *this; }
};

// Exact comparisons.
RU_BASE_API bool operator==(const Vector& a, const Vector& b) noexcept;
RU_BASE_API bool operator==(const Normal& a, const Normal& b) noexcept;
RU_BASE_API bool operator==(const Point& a, const Point& b) noexcept;

inline Vector operator+(const Vector& a, const Vector& b) noexcept { Vector r = a; return r += b; }
inline Vector operator-(const Vector& a, const Vector& b) noexcept { Vector r = a; return r -= b; }
inline Vector operator-(const Vector& a) noexcept { return Vector(-a.getX(), -a.getY(), -a.getZ()); }
inline Vector operator*(const Vector& a, double s) noexcept { Vector r = a; return r *= s; }
inline Vector operator*(double s, const Vector& a) noexcept { Vector r = a; return r *= s; }
inline Vector operator/(const Vector& a, double s) noexcept { Vector r = a; return r /= s; }
inline Point operator+(const Point& p, const Vector& v) noexcept { Point r = p; return r += v; }
inline Point operator-(const Point& p, const Vector& v) noexcept { Point r = p; return r -= v; }
inline Vector operator-(const Point& a, const Point& b) noexcept { return Vector(a.x - b.x, a.y - b.y, a.z - b.z); }

RU_BASE_API double dot(const Vector& a, const Vector& b) noexcept;
// Right-handed cross product.
RU_BASE_API Vector cross(const Vector& a, const Vector& b) noexcept;
RU_BASE_API double length(const Vector& v) noexcept;
RU_BASE_API Vector normalize(const Vector& v) noexcept;
RU_BASE_API double distance(const Point& a, const Point& b) noexcept;
RU_BASE_API double distance2(const Point& a, const Point& b) noexcept;
// True when the points are at most `tolerance` apart (inclusive).
RU_BASE_API bool equivalent(const Point& a, const Point& b, double tolerance) noexcept;
// True when the vectors differ by at most `tolerance` in length (inclusive).
RU_BASE_API bool equivalent(const Vector& a, const Vector& b, double tolerance) noexcept;
// The midpoint of two points.
RU_BASE_API Point midpoint(const Point& a, const Point& b) noexcept;

// ---------------------------------------------------------------------------------------------
// Lines and planes.

// An unbounded line: a point and a direction, kept as given (the direction is not normalised).
class RU_BASE_API Line {
public:
  // Through the origin along +z.
  constexpr Line() noexcept = default;
  constexpr Line(const Point& point, const Vector& direction) noexcept : point_(point), direction_(direction) {}

  const Point& getPoint() const noexcept { return point_; }
  const Vector& getDirection() const noexcept { return direction_; }
  void setPoint(const Point& p) noexcept { point_ = p; }
  void setDirection(const Vector& d) noexcept { direction_ = d; }
  // point + t * direction.
  Point evaluate(double t) const noexcept { return point_ + direction_ * t; }

private:
  Point point_;
  Vector direction_{0.0, 0.0, 1.0};
};

// A parametrised line, origin + t * direction: t in [0, 1] spans the segment from the origin to
// origin + direction.
class RU_BASE_API ParamLine {
public:
  // The unit segment from the origin along +x.
  constexpr ParamLine() noexcept = default;
  constexpr ParamLine(const Point& origin, const Vector& direction) noexcept : origin_(origin), direction_(direction) {}
  // From `start` (t = 0) to `end` (t = 1).
  ParamLine(const Point& start, const Point& end) noexcept : origin_(start), direction_(end - start) {}

  const Point& getOrigin() const noexcept { return origin_; }
  const Vector& getDirection() const noexcept { return direction_; }
  void setOrigin(const Point& p) noexcept { origin_ = p; }
  void setDirection(const Vector& d) noexcept { direction_ = d; }
  Point evaluate(double t) const noexcept { return origin_ + direction_ * t; }
  // The unbounded line carrying this one.
  Line asLine() const noexcept { return Line(origin_, direction_); }

private:
  Point origin_;
  Vector direction_{1.0, 0.0, 0.0};
};

class ParamPlane;

// An unbounded plane: a point on it and its unit normal.
class RU_BASE_API Plane {
public:
  // The plane z = 0 with normal +z.
  constexpr Plane() noexcept = default;
  Plane(const Point& point, const Normal& normal) noexcept : point_(point), normal_(normal) {}
  // The normal is normalised.
  Plane(const Point& point, const Vector& normal) noexcept : point_(point), normal_(normal) {}
  // The plane carrying a parametrised plane: its origin and its normal.
  explicit Plane(const ParamPlane& plane) noexcept;

  const Point& getPoint() const noexcept { return point_; }
  const Normal& getNormal() const noexcept { return normal_; }
  void setPoint(const Point& p) noexcept { point_ = p; }
  void setNormal(const Normal& n) noexcept { normal_ = n; }
  // Signed distance of `p` from the plane, positive on the side the normal points to.
  double signedDistance(const Point& p) const noexcept;

private:
  Point point_;
  Normal normal_;
};

// A parametrised plane: origin + s * u + t * v, with a unit normal kept alongside.
class RU_BASE_API ParamPlane {
public:
  // The xy plane: origin, normal +z, u = +x, v = +y.
  constexpr ParamPlane() noexcept = default;
  // The normal is the normalised cross product u x v. With `orthonormalize` true, u is normalised
  // and v made a unit vector perpendicular to it in the same plane.
  ParamPlane(const Point& origin, const Vector& u, const Vector& v, bool orthonormalize = false) noexcept;
  // The normal is stored as given (normalised); see above for `orthonormalize`.
  ParamPlane(const Point& origin, const Normal& normal, const Vector& u, const Vector& v,
             bool orthonormalize = false) noexcept;

  const Point& getOrigin() const noexcept { return origin_; }
  const Normal& getNormal() const noexcept { return normal_; }
  const Vector& getFirstVector() const noexcept { return u_; }
  const Vector& getSecondVector() const noexcept { return v_; }
  void setOrigin(const Point& p) noexcept { origin_ = p; }
  void setNormal(const Normal& n) noexcept { normal_ = n; }
  void setFirstVector(const Vector& u) noexcept { u_ = u; }
  void setSecondVector(const Vector& v) noexcept { v_ = v; }

  Point evaluate(double s, double t) const noexcept { return origin_ + u_ * s + v_ * t; }
  Point evaluate(const Point2& st) const noexcept { return evaluate(st.x, st.y); }
  // The plane carrying this one.
  Plane asPlane() const noexcept { return Plane(origin_, normal_); }

private:
  Point origin_;
  Normal normal_;
  Vector u_{1.0, 0.0, 0.0};
  Vector v_{0.0, 1.0, 0.0};
};

// The foot of `p` on the line.
RU_BASE_API Point project(const Point& p, const Line& line) noexcept;
// The foot of `p` on the line and its parameter: foot = origin + t * direction. A zero direction
// gives the origin and t = 0.
RU_BASE_API Point project(const Point& p, const ParamLine& line, double& t) noexcept;
// The foot of `p` on the plane.
RU_BASE_API Point project(const Point& p, const Plane& plane) noexcept;
// The point on `second` nearest to `first`. `intersected` is false when the directions are parallel
// within `tolerance` (a squared sine) or one is zero; the answer is then the foot of the first
// line's point on the second line.
RU_BASE_API Point intersect(const Line& first, const Line& second, bool& intersected,
                            double tolerance = perpendicular2Tol) noexcept;
// Where the line meets the plane. `intersected` is false when the line is parallel to the plane
// within `tolerance` (squared sine of the angle between direction and plane); the answer is then the
// foot of the line's point on the plane.
RU_BASE_API Point intersect(const Line& line, const Plane& plane, bool& intersected,
                            double tolerance = perpendicular2Tol) noexcept;

// ---------------------------------------------------------------------------------------------
// Ranges.

// A closed interval. The default range is empty (inverted: min above max) so that `include`
// grows it from nothing.
class RU_BASE_API Range1d {
public:
  Range1d() noexcept;
  // The two ends in any order.
  Range1d(double a, double b) noexcept { set(a, b); }

  void set(double a, double b) noexcept;
  void setEmpty() noexcept;
  void include(double value) noexcept;
  void include(const Range1d& other) noexcept;
  bool isValid() const noexcept { return min_ <= max_; }
  bool contains(double value) const noexcept { return min_ <= value && value <= max_; }
  double getMin() const noexcept { return min_; }
  double getMax() const noexcept { return max_; }
  // max - min (negative for an empty range).
  double length() const noexcept { return max_ - min_; }
  double middle() const noexcept { return 0.5 * (min_ + max_); }

private:
  double min_;
  double max_;
};

RU_BASE_API bool operator==(const Range1d& a, const Range1d& b) noexcept;

// An axis-aligned box. `setUnbounded` makes the "nothing taken yet" range: every minimum is
// +DBL_MAX and every maximum -DBL_MAX, so `include` grows it from its first point and a range whose
// maximum is at or above its minimum is one that was really taken. It is finite, so it serialises.
class RU_BASE_API Range3d {
public:
  // Unbounded (see above).
  Range3d() noexcept;
  // The box spanned by two points in any order.
  Range3d(const Point& a, const Point& b) noexcept { set(a, b); }

  void setUnbounded() noexcept;
  bool isUnbounded() const noexcept;
  // The box spanned by two corners in any order.
  void set(const Point& a, const Point& b) noexcept;
  void include(const Point& p) noexcept;
  void include(const Range3d& other) noexcept;
  // True when the maximum is at or above the minimum on every axis.
  bool isValid() const noexcept;
  bool contains(const Point& p) const noexcept;

  const Point& getMin() const noexcept { return min_; }
  const Point& getMax() const noexcept { return max_; }
  double getMin(int axis) const noexcept { return min_[axis]; }
  double getMax(int axis) const noexcept { return max_[axis]; }
  Range1d getRange(int axis) const noexcept { return Range1d(min_[axis], max_[axis]); }
  Point getMiddle() const noexcept { return midpoint(min_, max_); }
  // max - min.
  Vector getDiagonal() const noexcept { return max_ - min_; }

private:
  Point min_;
  Point max_;
};

RU_BASE_API bool operator==(const Range3d& a, const Range3d& b) noexcept;

// ---------------------------------------------------------------------------------------------
// Matrices.

// An affine transformation for row vectors: `p * M`. Rows 0 to 2 hold the images of the x, y and
// z axes, row 3 the translation.
class RU_BASE_API AffineMatrix {
public:
  static const AffineMatrix Identity;

  // The identity.
  AffineMatrix() noexcept;
  // From the images of the axes and the translation.
  AffineMatrix(const Vector& xAxis, const Vector& yAxis, const Vector& zAxis, const Vector& translation) noexcept;

  static AffineMatrix translation(const Vector& t) noexcept;
  static AffineMatrix scaling(double s) noexcept;
  static AffineMatrix scaling(const Vector& s) noexcept;
  // Right-handed rotation by `angle` radians about the axis through the origin along `axis`.
  static AffineMatrix rotation(double angle, const Vector& axis) noexcept;
  // Rotation by `angle` radians about the line through `point` along `axis`.
  static AffineMatrix rotation(double angle, const Point& point, const Vector& axis) noexcept;

  // In place, acting in local space (M = Op * M).
  AffineMatrix& translate(const Vector& t) noexcept;
  AffineMatrix& scale(double s) noexcept;
  AffineMatrix& scale(const Vector& s) noexcept;
  AffineMatrix& rotate(double angle, const Vector& axis) noexcept;
  AffineMatrix& rotate(double angle, const Point& point, const Vector& axis) noexcept;
  AffineMatrix& rotate(double angle, const Line& axis) noexcept;
  // M = other * M.
  AffineMatrix& preMultiply(const AffineMatrix& other) noexcept;
  // M = M * other.
  AffineMatrix& postMultiply(const AffineMatrix& other) noexcept;

  // Entry at row 0..3 and column 0..2.
  double operator()(int row, int column) const noexcept { return m_[row][column]; }
  double& operator()(int row, int column) noexcept { return m_[row][column]; }
  Vector getRow(int row) const noexcept { return Vector(m_[row][0], m_[row][1], m_[row][2]); }
  void setRow(int row, const Vector& v) noexcept;
  Vector getTranslation() const noexcept { return getRow(3); }
  void setTranslation(const Vector& t) noexcept { setRow(3, t); }

  double determinant() const noexcept;
  bool isIdentity() const noexcept;
  // The inverse. A singular matrix has none: the answer is the identity and `invertible`, when
  // given, is set false.
  AffineMatrix inverse(bool* invertible = nullptr) const noexcept;
  // The linear part only.
  AffineMatrix linearPart() const noexcept;

private:
  double m_[4][3];
};

// a then b.
RU_BASE_API AffineMatrix operator*(const AffineMatrix& a, const AffineMatrix& b) noexcept;
// Exact comparisons.
RU_BASE_API bool operator==(const AffineMatrix& a, const AffineMatrix& b) noexcept;
RU_BASE_API Point operator*(const Point& p, const AffineMatrix& m) noexcept;
// The linear part only: directions do not translate.
RU_BASE_API Vector operator*(const Vector& v, const AffineMatrix& m) noexcept;
// By the inverse transpose, normalised, so the normal stays perpendicular to transformed surfaces.
RU_BASE_API Normal operator*(const Normal& n, const AffineMatrix& m) noexcept;
RU_BASE_API Line operator*(const Line& l, const AffineMatrix& m) noexcept;
RU_BASE_API Plane operator*(const Plane& p, const AffineMatrix& m) noexcept;
// The box holding the eight transformed corners (an empty range stays as it is).
RU_BASE_API Range3d operator*(const Range3d& r, const AffineMatrix& m) noexcept;

// A rotation as a unit quaternion w + xi + yj + zk.
class RU_BASE_API Quaternion {
public:
  // No rotation.
  constexpr Quaternion() noexcept = default;
  constexpr Quaternion(double w, double x, double y, double z) noexcept : w_(w), x_(x), y_(y), z_(z) {}
  // Rotation by `angle` radians about `axis` (right-handed); a zero axis gives no rotation.
  Quaternion(double angle, const Vector& axis) noexcept;

  double getW() const noexcept { return w_; }
  double getX() const noexcept { return x_; }
  double getY() const noexcept { return y_; }
  double getZ() const noexcept { return z_; }

  // The rotation taking the local x, y and z axes to `xAxis`, `yAxis` and `zAxis`, which the
  // caller gives as an orthonormal right-handed frame (camera right, up and back, say).
  void setFrame(const Vector& xAxis, const Vector& yAxis, const Vector& zAxis) noexcept;
  // Scales to unit length; a zero quaternion becomes no rotation.
  void normalize() noexcept;
  double length() const noexcept;
  Quaternion conjugate() const noexcept { return Quaternion(w_, -x_, -y_, -z_); }
  // The rotation matrix (row vectors: rows are the images of the axes).
  AffineMatrix getMatrix() const noexcept;
  // The vector rotated.
  Vector rotate(const Vector& v) const noexcept;

private:
  double w_ = 1.0;
  double x_ = 0.0;
  double y_ = 0.0;
  double z_ = 0.0;
};

// a then b, matching matrix products: (a * b).getMatrix() == a.getMatrix() * b.getMatrix().
RU_BASE_API Quaternion operator*(const Quaternion& a, const Quaternion& b) noexcept;

// A projective 4x4 matrix for row vectors, for camera transforms: (x, y, z, 1) * M = (X, Y, Z, W)
// and the transformed point is (X/W, Y/W, Z/W).
class RU_BASE_API ProjMatrix {
public:
  // The identity.
  ProjMatrix() noexcept;
  // The affine matrix, last column (0, 0, 0, 1).
  ProjMatrix(const AffineMatrix& m) noexcept;

  double operator()(int row, int column) const noexcept { return m_[row][column]; }
  double& operator()(int row, int column) noexcept { return m_[row][column]; }
  const double* data() const noexcept { return &m_[0][0]; }

  // The inverse. A singular matrix has none: the answer is the identity and `invertible`, when
  // given, is set false.
  ProjMatrix inverse(bool* invertible = nullptr) const noexcept;
  // The transformed point and its homogeneous weight W. With W zero the point is returned
  // undivided.
  Point transform(const Point& p, double* w = nullptr) const noexcept;

private:
  double m_[4][4];
};

RU_BASE_API ProjMatrix operator*(const ProjMatrix& a, const ProjMatrix& b) noexcept;
RU_BASE_API bool operator==(const ProjMatrix& a, const ProjMatrix& b) noexcept;
// The homogeneous product divided back by W (see `ProjMatrix::transform`).
RU_BASE_API Point operator*(const Point& p, const ProjMatrix& m) noexcept;

// A single-precision copy of a projective matrix, for code that works in floats (ray casting on the
// graphics side).
class RU_BASE_API ProjMatrixFlt {
public:
  // The identity.
  ProjMatrixFlt() noexcept;
  explicit ProjMatrixFlt(const ProjMatrix& m) noexcept;

  float operator()(int row, int column) const noexcept { return m_[row][column]; }
  float& operator()(int row, int column) noexcept { return m_[row][column]; }
  const float* data() const noexcept { return &m_[0][0]; }
  // Back to double precision.
  ProjMatrix asProjMatrix() const noexcept;

private:
  float m_[4][4];
};

} // namespace ruLinear
