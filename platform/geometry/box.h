#pragma once

#include "platform/base/linear.h"
#include "platform/geometry/export.h"

namespace ruGeom {

// An axis-aligned box in world units that may be invalid (hold nothing). A default box is
// invalid; extending an invalid box by a valid one gives that one.
class RU_GEOM_API BoundingBox {
public:
  BoundingBox() noexcept = default;
  // The box of two corners in any order.
  BoundingBox(const ruLinear::Point& a, const ruLinear::Point& b) noexcept { set(a, b); }
  // The box of a range; an inverted range (one never included into, as setUnbounded leaves it)
  // gives an invalid box.
  explicit BoundingBox(const ruLinear::Range3d& range) noexcept;

  bool valid() const noexcept { return valid_; }
  void setInvalid() noexcept;
  void set(const ruLinear::Point& a, const ruLinear::Point& b) noexcept;
  // Grows to hold the point or the other box (an invalid other changes nothing).
  void extend(const ruLinear::Point& p) noexcept;
  void extend(const BoundingBox& other) noexcept;

  // Corners; meaningless for an invalid box.
  const ruLinear::Point& getMin() const noexcept { return min_; }
  const ruLinear::Point& getMax() const noexcept { return max_; }
  ruLinear::Point getCenter() const noexcept { return ruLinear::midpoint(min_, max_); }
  ruLinear::Vector getDiagonal() const noexcept { return max_ - min_; }
  bool contains(const ruLinear::Point& p) const noexcept;

  // The same box as a range; an invalid box gives the inverted (unbounded) range, whose maximum
  // stands below its minimum.
  ruLinear::Range3d asRange3d() const noexcept;
  explicit operator ruLinear::Range3d() const noexcept { return asRange3d(); }

  friend bool operator==(const BoundingBox& a, const BoundingBox& b) noexcept {
    return a.valid_ == b.valid_ && (!a.valid_ || (a.min_ == b.min_ && a.max_ == b.max_));
  }

private:
  ruLinear::Point min_;
  ruLinear::Point max_;
  bool valid_ = false;
};

// A box with its own axes: the points origin + s * axis0 + t * axis1 + u * axis2 for s, t, u in
// [0, 1]. The axes carry the lengths of the edges. An unbounded box holds nothing (invalid), as
// an unbounded ruLinear::Range3d does; a default box is unbounded.
class RU_GEOM_API OrientedBox {
public:
  OrientedBox() noexcept = default;
  // The axis-aligned box of a range; an inverted range gives an unbounded box.
  explicit OrientedBox(const ruLinear::Range3d& range) noexcept;
  OrientedBox(const ruLinear::Point& origin, const ruLinear::Vector& axis0, const ruLinear::Vector& axis1,
              const ruLinear::Vector& axis2) noexcept;

  void setUnbounded() noexcept;
  bool isUnbounded() const noexcept { return !valid_; }
  bool valid() const noexcept { return valid_; }

  const ruLinear::Point& getOrigin() const noexcept { return origin_; }
  // Edge vector `i` (0, 1 or 2), with the edge's length.
  const ruLinear::Vector& getAxis(int i) const noexcept { return axes_[i]; }
  ruLinear::Point getCenter() const noexcept;
  // Corner `i` (0..7): bit 0 adds axis 0, bit 1 axis 1, bit 2 axis 2.
  ruLinear::Point getCorner(int i) const noexcept;
  bool contains(const ruLinear::Point& p, double tolerance = 0.0) const noexcept;
  // The smallest axis-aligned range holding the box; inverted when unbounded.
  ruLinear::Range3d getRange3d() const noexcept;
  // The box moved by `matrix` (row vectors); an unbounded box stays unbounded.
  OrientedBox transformed(const ruLinear::AffineMatrix& matrix) const noexcept;

private:
  ruLinear::Point origin_;
  ruLinear::Vector axes_[3];
  bool valid_ = false;
};

}  // namespace ruGeom
