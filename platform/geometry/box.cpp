#include "platform/geometry/box.h"

#include <algorithm>

namespace ruGeom {

using ruLinear::Point;
using ruLinear::Range3d;
using ruLinear::Vector;

BoundingBox::BoundingBox(const Range3d& range) noexcept {
  if (range.isValid()) set(range.getMin(), range.getMax());
}

void BoundingBox::setInvalid() noexcept {
  valid_ = false;
  min_ = max_ = Point();
}

void BoundingBox::set(const Point& a, const Point& b) noexcept {
  min_ = Point(std::min(a.x, b.x), std::min(a.y, b.y), std::min(a.z, b.z));
  max_ = Point(std::max(a.x, b.x), std::max(a.y, b.y), std::max(a.z, b.z));
  valid_ = true;
}

void BoundingBox::extend(const Point& p) noexcept {
  if (!valid_) {
    set(p, p);
    return;
  }
  for (int i = 0; i < 3; ++i) {
    min_[i] = std::min(min_[i], p[i]);
    max_[i] = std::max(max_[i], p[i]);
  }
}

void BoundingBox::extend(const BoundingBox& other) noexcept {
  if (!other.valid_) return;
  extend(other.min_);
  extend(other.max_);
}

bool BoundingBox::contains(const Point& p) const noexcept {
  if (!valid_) return false;
  for (int i = 0; i < 3; ++i) {
    if (p[i] < min_[i] || p[i] > max_[i]) return false;
  }
  return true;
}

Range3d BoundingBox::asRange3d() const noexcept {
  Range3d range;
  range.setUnbounded();
  if (valid_) range.set(min_, max_);
  return range;
}

OrientedBox::OrientedBox(const Range3d& range) noexcept {
  if (!range.isValid()) return;
  origin_ = range.getMin();
  const Vector d = range.getDiagonal();
  axes_[0] = Vector(d.getX(), 0, 0);
  axes_[1] = Vector(0, d.getY(), 0);
  axes_[2] = Vector(0, 0, d.getZ());
  valid_ = true;
}

OrientedBox::OrientedBox(const Point& origin, const Vector& axis0, const Vector& axis1, const Vector& axis2) noexcept
    : origin_(origin), axes_{axis0, axis1, axis2}, valid_(true) {}

void OrientedBox::setUnbounded() noexcept {
  valid_ = false;
  origin_ = Point();
  axes_[0] = axes_[1] = axes_[2] = Vector();
}

Point OrientedBox::getCenter() const noexcept { return origin_ + (axes_[0] + axes_[1] + axes_[2]) * 0.5; }

Point OrientedBox::getCorner(int i) const noexcept {
  Point p = origin_;
  for (int a = 0; a < 3; ++a) {
    if (i & (1 << a)) p += axes_[a];
  }
  return p;
}

bool OrientedBox::contains(const Point& p, double tolerance) const noexcept {
  if (!valid_) return false;
  const Vector d = p - origin_;
  for (int a = 0; a < 3; ++a) {
    const double length = axes_[a].length();
    const double s = length > 0 ? ruLinear::dot(d, axes_[a]) / length : ruLinear::dot(d, axes_[a]);
    if (s < -tolerance || s > length + tolerance) return false;
  }
  return true;
}

Range3d OrientedBox::getRange3d() const noexcept {
  Range3d range;
  range.setUnbounded();
  if (!valid_) return range;
  for (int i = 0; i < 8; ++i) range.include(getCorner(i));
  return range;
}

OrientedBox OrientedBox::transformed(const ruLinear::AffineMatrix& matrix) const noexcept {
  if (!valid_) return *this;
  return OrientedBox(origin_ * matrix, axes_[0] * matrix, axes_[1] * matrix, axes_[2] * matrix);
}

}  // namespace ruGeom
