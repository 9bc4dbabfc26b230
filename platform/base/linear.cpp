#include "platform/base/linear.h"

#include <cfloat>
#include <cmath>

namespace ruLinear {

double toRadians(double degrees) noexcept { return degrees * (pi / 180.0); }
double toDegrees(double radians) noexcept { return radians * (180.0 / pi); }

// --- 2D --------------------------------------------------------------------------------------

const Point2 Point2::origin{0.0, 0.0};

double Vector2::length() const noexcept { return std::hypot(x, y); }

double distance(const Point2& a, const Point2& b) noexcept { return std::hypot(a.x - b.x, a.y - b.y); }

bool equivalent(const Point2& a, const Point2& b, double tolerance) noexcept {
  return distance(a, b) <= tolerance;
}

// --- Vectors, normals, points ----------------------------------------------------------------

const Vector Vector::x{1.0, 0.0, 0.0};
const Vector Vector::y{0.0, 1.0, 0.0};
const Vector Vector::z{0.0, 0.0, 1.0};
const Vector Vector::zero{0.0, 0.0, 0.0};

const Normal Normal::x{Normal::Raw{}, 1.0, 0.0, 0.0};
const Normal Normal::y{Normal::Raw{}, 0.0, 1.0, 0.0};
const Normal Normal::z{Normal::Raw{}, 0.0, 0.0, 1.0};

const Point Point::origin{0.0, 0.0, 0.0};

double Vector::length() const noexcept { return std::sqrt(length2()); }

Vector Vector::normalized() const noexcept {
  Vector v = *this;
  v.normalize();
  return v;
}

double Vector::normalize() noexcept {
  const double len = length();
  if (len > 0.0 && std::isfinite(len)) {
    *this /= len;
  }
  return len;
}

Vector Vector::orthogonalVector() const noexcept {
  const double ax = std::fabs(c_[0]);
  const double ay = std::fabs(c_[1]);
  const double az = std::fabs(c_[2]);
  const Vector* axis = &Vector::x;
  if (ay < ax && ay <= az) {
    axis = &Vector::y;
  } else if (az < ax && az < ay) {
    axis = &Vector::z;
  }
  return cross(*this, *axis).normalized();
}

Normal::Normal(double nx, double ny, double nz) noexcept : Normal(Vector(nx, ny, nz)) {}

Normal::Normal(const Vector& v) noexcept {
  const Vector n = v.normalized();
  c_[0] = n.getX();
  c_[1] = n.getY();
  c_[2] = n.getZ();
}

Normal Normal::operator-() const noexcept { return Normal(Raw{}, -c_[0], -c_[1], -c_[2]); }

bool operator==(const Vector& a, const Vector& b) noexcept {
  return a.getX() == b.getX() && a.getY() == b.getY() && a.getZ() == b.getZ();
}
bool operator==(const Normal& a, const Normal& b) noexcept {
  return a.getX() == b.getX() && a.getY() == b.getY() && a.getZ() == b.getZ();
}
bool operator==(const Point& a, const Point& b) noexcept { return a.x == b.x && a.y == b.y && a.z == b.z; }

double dot(const Vector& a, const Vector& b) noexcept {
  return a.getX() * b.getX() + a.getY() * b.getY() + a.getZ() * b.getZ();
}

Vector cross(const Vector& a, const Vector& b) noexcept {
  return Vector(a.getY() * b.getZ() - a.getZ() * b.getY(), a.getZ() * b.getX() - a.getX() * b.getZ(),
                a.getX() * b.getY() - a.getY() * b.getX());
}

double length(const Vector& v) noexcept { return v.length(); }
Vector normalize(const Vector& v) noexcept { return v.normalized(); }
double distance2(const Point& a, const Point& b) noexcept { return (a - b).length2(); }
double distance(const Point& a, const Point& b) noexcept { return std::sqrt(distance2(a, b)); }
bool equivalent(const Point& a, const Point& b, double tolerance) noexcept { return distance(a, b) <= tolerance; }
bool equivalent(const Vector& a, const Vector& b, double tolerance) noexcept {
  return (a - b).length() <= tolerance;
}
Point midpoint(const Point& a, const Point& b) noexcept {
  return Point(0.5 * (a.x + b.x), 0.5 * (a.y + b.y), 0.5 * (a.z + b.z));
}

// --- Lines and planes ------------------------------------------------------------------------

Plane::Plane(const ParamPlane& plane) noexcept : point_(plane.getOrigin()), normal_(plane.getNormal()) {}

double Plane::signedDistance(const Point& p) const noexcept { return dot(p - point_, normal_); }

namespace {

// u normalised, v made unit and perpendicular to u within their plane (Gram-Schmidt).
void orthonormalizePair(Vector& u, Vector& v) noexcept {
  u.normalize();
  v = v - u * dot(v, u);
  v.normalize();
}

} // namespace

ParamPlane::ParamPlane(const Point& origin, const Vector& u, const Vector& v, bool orthonormalize) noexcept
    : origin_(origin), normal_(cross(u, v)), u_(u), v_(v) {
  if (orthonormalize) {
    orthonormalizePair(u_, v_);
  }
}

ParamPlane::ParamPlane(const Point& origin, const Normal& normal, const Vector& u, const Vector& v,
                       bool orthonormalize) noexcept
    : origin_(origin), normal_(normal), u_(u), v_(v) {
  if (orthonormalize) {
    orthonormalizePair(u_, v_);
  }
}

Point project(const Point& p, const Line& line) noexcept {
  const Vector& d = line.getDirection();
  const double dd = d.length2();
  if (dd == 0.0) {
    return line.getPoint();
  }
  return line.getPoint() + d * (dot(p - line.getPoint(), d) / dd);
}

Point project(const Point& p, const ParamLine& line, double& t) noexcept {
  const Vector& d = line.getDirection();
  const double dd = d.length2();
  t = dd == 0.0 ? 0.0 : dot(p - line.getOrigin(), d) / dd;
  return line.evaluate(t);
}

Point project(const Point& p, const Plane& plane) noexcept {
  const Vector n = plane.getNormal();
  return p - n * dot(p - plane.getPoint(), n);
}

Point intersect(const Line& first, const Line& second, bool& intersected, double tolerance) noexcept {
  const Vector& d1 = first.getDirection();
  const Vector& d2 = second.getDirection();
  const double a = d1.length2();
  const double c = d2.length2();
  const double sine2 = (a > 0.0 && c > 0.0) ? cross(d1, d2).length2() / (a * c) : 0.0;
  if (!(sine2 >= tolerance) || sine2 == 0.0) {
    intersected = false;
    return project(first.getPoint(), second);
  }
  intersected = true;
  const Vector w = first.getPoint() - second.getPoint();
  const double b = dot(d1, d2);
  const double d = dot(d1, w);
  const double e = dot(d2, w);
  const double t = (a * e - b * d) / (a * c - b * b);
  return second.evaluate(t);
}

Point intersect(const Line& line, const Plane& plane, bool& intersected, double tolerance) noexcept {
  const Vector& d = line.getDirection();
  const Vector n = plane.getNormal();
  const double dn = dot(d, n);
  const double dd = d.length2();
  const double nn = n.length2();
  const double sine2 = (dd > 0.0 && nn > 0.0) ? dn * dn / (dd * nn) : 0.0;
  if (!(sine2 >= tolerance) || dn == 0.0) {
    intersected = false;
    return project(line.getPoint(), plane);
  }
  intersected = true;
  return line.evaluate(dot(plane.getPoint() - line.getPoint(), n) / dn);
}

// --- Ranges ----------------------------------------------------------------------------------

Range1d::Range1d() noexcept { setEmpty(); }

void Range1d::set(double a, double b) noexcept {
  min_ = std::fmin(a, b);
  max_ = std::fmax(a, b);
}

void Range1d::setEmpty() noexcept {
  min_ = DBL_MAX;
  max_ = -DBL_MAX;
}

void Range1d::include(double value) noexcept {
  min_ = std::fmin(min_, value);
  max_ = std::fmax(max_, value);
}

void Range1d::include(const Range1d& other) noexcept {
  if (other.isValid()) {
    include(other.min_);
    include(other.max_);
  }
}

bool operator==(const Range1d& a, const Range1d& b) noexcept {
  return a.getMin() == b.getMin() && a.getMax() == b.getMax();
}

Range3d::Range3d() noexcept { setUnbounded(); }

void Range3d::setUnbounded() noexcept {
  min_ = Point(DBL_MAX, DBL_MAX, DBL_MAX);
  max_ = Point(-DBL_MAX, -DBL_MAX, -DBL_MAX);
}

bool Range3d::isUnbounded() const noexcept {
  return min_ == Point(DBL_MAX, DBL_MAX, DBL_MAX) && max_ == Point(-DBL_MAX, -DBL_MAX, -DBL_MAX);
}

void Range3d::set(const Point& a, const Point& b) noexcept {
  for (int i = 0; i < 3; ++i) {
    min_[i] = std::fmin(a[i], b[i]);
    max_[i] = std::fmax(a[i], b[i]);
  }
}

void Range3d::include(const Point& p) noexcept {
  for (int i = 0; i < 3; ++i) {
    min_[i] = std::fmin(min_[i], p[i]);
    max_[i] = std::fmax(max_[i], p[i]);
  }
}

void Range3d::include(const Range3d& other) noexcept {
  // An unbounded range holds nothing, so it widens nothing (component-wise min and max of its
  // inverted corners would leave every axis as it was anyway).
  for (int i = 0; i < 3; ++i) {
    min_[i] = std::fmin(min_[i], other.min_[i]);
    max_[i] = std::fmax(max_[i], other.max_[i]);
  }
}

bool Range3d::isValid() const noexcept { return min_.x <= max_.x && min_.y <= max_.y && min_.z <= max_.z; }

bool Range3d::contains(const Point& p) const noexcept {
  for (int i = 0; i < 3; ++i) {
    if (p[i] < min_[i] || p[i] > max_[i]) {
      return false;
    }
  }
  return true;
}

bool operator==(const Range3d& a, const Range3d& b) noexcept {
  return a.getMin() == b.getMin() && a.getMax() == b.getMax();
}

// --- Affine matrices -------------------------------------------------------------------------

const AffineMatrix AffineMatrix::Identity{};

AffineMatrix::AffineMatrix() noexcept
    : m_{{1.0, 0.0, 0.0}, {0.0, 1.0, 0.0}, {0.0, 0.0, 1.0}, {0.0, 0.0, 0.0}} {}

AffineMatrix::AffineMatrix(const Vector& xAxis, const Vector& yAxis, const Vector& zAxis,
                           const Vector& translation) noexcept {
  setRow(0, xAxis);
  setRow(1, yAxis);
  setRow(2, zAxis);
  setRow(3, translation);
}

void AffineMatrix::setRow(int row, const Vector& v) noexcept {
  m_[row][0] = v.getX();
  m_[row][1] = v.getY();
  m_[row][2] = v.getZ();
}

AffineMatrix AffineMatrix::translation(const Vector& t) noexcept {
  AffineMatrix m;
  m.setRow(3, t);
  return m;
}

AffineMatrix AffineMatrix::scaling(double s) noexcept { return scaling(Vector(s, s, s)); }

AffineMatrix AffineMatrix::scaling(const Vector& s) noexcept {
  AffineMatrix m;
  m.m_[0][0] = s.getX();
  m.m_[1][1] = s.getY();
  m.m_[2][2] = s.getZ();
  return m;
}

AffineMatrix AffineMatrix::rotation(double angle, const Vector& axis) noexcept {
  return Quaternion(angle, axis).getMatrix();
}

AffineMatrix AffineMatrix::rotation(double angle, const Point& point, const Vector& axis) noexcept {
  // Move the point to the origin, rotate, move back.
  return translation(-point.asVector()) * rotation(angle, axis) * translation(point.asVector());
}

AffineMatrix& AffineMatrix::translate(const Vector& t) noexcept { return preMultiply(translation(t)); }
AffineMatrix& AffineMatrix::scale(double s) noexcept { return preMultiply(scaling(s)); }
AffineMatrix& AffineMatrix::scale(const Vector& s) noexcept { return preMultiply(scaling(s)); }
AffineMatrix& AffineMatrix::rotate(double angle, const Vector& axis) noexcept {
  return preMultiply(rotation(angle, axis));
}
AffineMatrix& AffineMatrix::rotate(double angle, const Point& point, const Vector& axis) noexcept {
  return preMultiply(rotation(angle, point, axis));
}
AffineMatrix& AffineMatrix::rotate(double angle, const Line& axis) noexcept {
  return rotate(angle, axis.getPoint(), axis.getDirection());
}

AffineMatrix& AffineMatrix::preMultiply(const AffineMatrix& other) noexcept {
  *this = other * *this;
  return *this;
}

AffineMatrix& AffineMatrix::postMultiply(const AffineMatrix& other) noexcept {
  *this = *this * other;
  return *this;
}

double AffineMatrix::determinant() const noexcept {
  return dot(getRow(0), cross(getRow(1), getRow(2)));
}

bool AffineMatrix::isIdentity() const noexcept { return *this == Identity; }

AffineMatrix AffineMatrix::inverse(bool* invertible) const noexcept {
  const double det = determinant();
  if (det == 0.0 || !std::isfinite(det)) {
    if (invertible) {
      *invertible = false;
    }
    return AffineMatrix();
  }
  if (invertible) {
    *invertible = true;
  }
  // The inverse of the linear part is the transposed cofactor matrix over the determinant; with
  // row vectors its columns are the cross products of the rows.
  const Vector r0 = getRow(0), r1 = getRow(1), r2 = getRow(2);
  const Vector c0 = cross(r1, r2) / det;
  const Vector c1 = cross(r2, r0) / det;
  const Vector c2 = cross(r0, r1) / det;
  AffineMatrix inv;
  for (int i = 0; i < 3; ++i) {
    inv.m_[i][0] = c0[i];
    inv.m_[i][1] = c1[i];
    inv.m_[i][2] = c2[i];
  }
  inv.setRow(3, -(getTranslation() * inv));
  return inv;
}

AffineMatrix AffineMatrix::linearPart() const noexcept {
  AffineMatrix m = *this;
  m.setRow(3, Vector::zero);
  return m;
}

AffineMatrix operator*(const AffineMatrix& a, const AffineMatrix& b) noexcept {
  AffineMatrix r;
  for (int i = 0; i < 4; ++i) {
    for (int j = 0; j < 3; ++j) {
      double sum = i == 3 ? b(3, j) : 0.0;
      for (int k = 0; k < 3; ++k) {
        sum += a(i, k) * b(k, j);
      }
      r(i, j) = sum;
    }
  }
  return r;
}

bool operator==(const AffineMatrix& a, const AffineMatrix& b) noexcept {
  for (int i = 0; i < 4; ++i) {
    for (int j = 0; j < 3; ++j) {
      if (a(i, j) != b(i, j)) {
        return false;
      }
    }
  }
  return true;
}

Point operator*(const Point& p, const AffineMatrix& m) noexcept {
  return Point(p.x * m(0, 0) + p.y * m(1, 0) + p.z * m(2, 0) + m(3, 0),
               p.x * m(0, 1) + p.y * m(1, 1) + p.z * m(2, 1) + m(3, 1),
               p.x * m(0, 2) + p.y * m(1, 2) + p.z * m(2, 2) + m(3, 2));
}

Vector operator*(const Vector& v, const AffineMatrix& m) noexcept {
  return Vector(v[0] * m(0, 0) + v[1] * m(1, 0) + v[2] * m(2, 0), v[0] * m(0, 1) + v[1] * m(1, 1) + v[2] * m(2, 1),
                v[0] * m(0, 2) + v[1] * m(1, 2) + v[2] * m(2, 2));
}

Normal operator*(const Normal& n, const AffineMatrix& m) noexcept {
  // The inverse transpose: for row vectors, n' = n * (M^-1)^T, i.e. n' = M^-1 * n as a column.
  const AffineMatrix inv = m.inverse();
  const Vector v(inv(0, 0) * n[0] + inv(0, 1) * n[1] + inv(0, 2) * n[2],
                 inv(1, 0) * n[0] + inv(1, 1) * n[1] + inv(1, 2) * n[2],
                 inv(2, 0) * n[0] + inv(2, 1) * n[1] + inv(2, 2) * n[2]);
  return Normal(v);
}

Line operator*(const Line& l, const AffineMatrix& m) noexcept {
  return Line(l.getPoint() * m, l.getDirection() * m);
}

Plane operator*(const Plane& p, const AffineMatrix& m) noexcept {
  return Plane(p.getPoint() * m, p.getNormal() * m);
}

Range3d operator*(const Range3d& r, const AffineMatrix& m) noexcept {
  if (!r.isValid()) {
    return r;
  }
  Range3d out;
  for (int corner = 0; corner < 8; ++corner) {
    const Point p((corner & 1) ? r.getMax().x : r.getMin().x, (corner & 2) ? r.getMax().y : r.getMin().y,
                  (corner & 4) ? r.getMax().z : r.getMin().z);
    out.include(p * m);
  }
  return out;
}

// --- Quaternions -----------------------------------------------------------------------------

Quaternion::Quaternion(double angle, const Vector& axis) noexcept {
  const Vector a = axis.normalized();
  if (a.length2() == 0.0) {
    return;
  }
  const double s = std::sin(0.5 * angle);
  w_ = std::cos(0.5 * angle);
  x_ = a.getX() * s;
  y_ = a.getY() * s;
  z_ = a.getZ() * s;
}

double Quaternion::length() const noexcept { return std::sqrt(w_ * w_ + x_ * x_ + y_ * y_ + z_ * z_); }

void Quaternion::normalize() noexcept {
  const double len = length();
  if (len == 0.0 || !std::isfinite(len)) {
    *this = Quaternion();
    return;
  }
  w_ /= len;
  x_ /= len;
  y_ /= len;
  z_ /= len;
}

void Quaternion::setFrame(const Vector& xAxis, const Vector& yAxis, const Vector& zAxis) noexcept {
  // R is the column-vector rotation matrix whose columns are the frame's axes; the usual
  // trace-based extraction, choosing the largest diagonal term for stability.
  const double r00 = xAxis[0], r10 = xAxis[1], r20 = xAxis[2];
  const double r01 = yAxis[0], r11 = yAxis[1], r21 = yAxis[2];
  const double r02 = zAxis[0], r12 = zAxis[1], r22 = zAxis[2];
  const double trace = r00 + r11 + r22;
  if (trace > 0.0) {
    const double s = 2.0 * std::sqrt(trace + 1.0);
    w_ = 0.25 * s;
    x_ = (r21 - r12) / s;
    y_ = (r02 - r20) / s;
    z_ = (r10 - r01) / s;
  } else if (r00 > r11 && r00 > r22) {
    const double s = 2.0 * std::sqrt(1.0 + r00 - r11 - r22);
    w_ = (r21 - r12) / s;
    x_ = 0.25 * s;
    y_ = (r01 + r10) / s;
    z_ = (r02 + r20) / s;
  } else if (r11 > r22) {
    const double s = 2.0 * std::sqrt(1.0 + r11 - r00 - r22);
    w_ = (r02 - r20) / s;
    x_ = (r01 + r10) / s;
    y_ = 0.25 * s;
    z_ = (r12 + r21) / s;
  } else {
    const double s = 2.0 * std::sqrt(1.0 + r22 - r00 - r11);
    w_ = (r10 - r01) / s;
    x_ = (r02 + r20) / s;
    y_ = (r12 + r21) / s;
    z_ = 0.25 * s;
  }
}

AffineMatrix Quaternion::getMatrix() const noexcept {
  const double w = w_, x = x_, y = y_, z = z_;
  // Columns of the column-vector rotation matrix are the images of the axes; they are our rows.
  const Vector xImage(1 - 2 * (y * y + z * z), 2 * (x * y + w * z), 2 * (x * z - w * y));
  const Vector yImage(2 * (x * y - w * z), 1 - 2 * (x * x + z * z), 2 * (y * z + w * x));
  const Vector zImage(2 * (x * z + w * y), 2 * (y * z - w * x), 1 - 2 * (x * x + y * y));
  return AffineMatrix(xImage, yImage, zImage, Vector::zero);
}

Vector Quaternion::rotate(const Vector& v) const noexcept { return v * getMatrix(); }

Quaternion operator*(const Quaternion& a, const Quaternion& b) noexcept {
  // Applying a then b is the Hamilton product b a.
  const double aw = a.getW(), ax = a.getX(), ay = a.getY(), az = a.getZ();
  const double bw = b.getW(), bx = b.getX(), by = b.getY(), bz = b.getZ();
  return Quaternion(bw * aw - bx * ax - by * ay - bz * az, bw * ax + bx * aw + by * az - bz * ay,
                    bw * ay - bx * az + by * aw + bz * ax, bw * az + bx * ay - by * ax + bz * aw);
}

// --- Projective matrices ---------------------------------------------------------------------

ProjMatrix::ProjMatrix() noexcept : m_{{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}, {0, 0, 0, 1}} {}

ProjMatrix::ProjMatrix(const AffineMatrix& m) noexcept {
  for (int i = 0; i < 4; ++i) {
    for (int j = 0; j < 3; ++j) {
      m_[i][j] = m(i, j);
    }
    m_[i][3] = i == 3 ? 1.0 : 0.0;
  }
}

ProjMatrix ProjMatrix::inverse(bool* invertible) const noexcept {
  // Gauss-Jordan elimination with partial pivoting.
  double a[4][8];
  for (int i = 0; i < 4; ++i) {
    for (int j = 0; j < 4; ++j) {
      a[i][j] = m_[i][j];
      a[i][j + 4] = i == j ? 1.0 : 0.0;
    }
  }
  for (int col = 0; col < 4; ++col) {
    int pivot = col;
    for (int r = col + 1; r < 4; ++r) {
      if (std::fabs(a[r][col]) > std::fabs(a[pivot][col])) {
        pivot = r;
      }
    }
    if (a[pivot][col] == 0.0 || !std::isfinite(a[pivot][col])) {
      if (invertible) {
        *invertible = false;
      }
      return ProjMatrix();
    }
    if (pivot != col) {
      for (int j = 0; j < 8; ++j) {
        std::swap(a[pivot][j], a[col][j]);
      }
    }
    const double inv = 1.0 / a[col][col];
    for (int j = 0; j < 8; ++j) {
      a[col][j] *= inv;
    }
    for (int r = 0; r < 4; ++r) {
      if (r != col && a[r][col] != 0.0) {
        const double f = a[r][col];
        for (int j = 0; j < 8; ++j) {
          a[r][j] -= f * a[col][j];
        }
      }
    }
  }
  ProjMatrix out;
  for (int i = 0; i < 4; ++i) {
    for (int j = 0; j < 4; ++j) {
      out.m_[i][j] = a[i][j + 4];
    }
  }
  if (invertible) {
    *invertible = true;
  }
  return out;
}

Point ProjMatrix::transform(const Point& p, double* w) const noexcept {
  double out[4];
  for (int j = 0; j < 4; ++j) {
    out[j] = p.x * m_[0][j] + p.y * m_[1][j] + p.z * m_[2][j] + m_[3][j];
  }
  if (w) {
    *w = out[3];
  }
  if (out[3] == 0.0) {
    return Point(out[0], out[1], out[2]);
  }
  return Point(out[0] / out[3], out[1] / out[3], out[2] / out[3]);
}

ProjMatrix operator*(const ProjMatrix& a, const ProjMatrix& b) noexcept {
  ProjMatrix r;
  for (int i = 0; i < 4; ++i) {
    for (int j = 0; j < 4; ++j) {
      double sum = 0.0;
      for (int k = 0; k < 4; ++k) {
        sum += a(i, k) * b(k, j);
      }
      r(i, j) = sum;
    }
  }
  return r;
}

bool operator==(const ProjMatrix& a, const ProjMatrix& b) noexcept {
  for (int i = 0; i < 4; ++i) {
    for (int j = 0; j < 4; ++j) {
      if (a(i, j) != b(i, j)) {
        return false;
      }
    }
  }
  return true;
}

Point operator*(const Point& p, const ProjMatrix& m) noexcept { return m.transform(p); }

ProjMatrixFlt::ProjMatrixFlt() noexcept : ProjMatrixFlt(ProjMatrix()) {}

ProjMatrixFlt::ProjMatrixFlt(const ProjMatrix& m) noexcept {
  for (int i = 0; i < 4; ++i) {
    for (int j = 0; j < 4; ++j) {
      m_[i][j] = static_cast<float>(m(i, j));
    }
  }
}

ProjMatrix ProjMatrixFlt::asProjMatrix() const noexcept {
  ProjMatrix m;
  for (int i = 0; i < 4; ++i) {
    for (int j = 0; j < 4; ++j) {
      m(i, j) = m_[i][j];
    }
  }
  return m;
}

} // namespace ruLinear
