#include "platform/geometry/box.h"

#include <gtest/gtest.h>

using namespace ruGeom;
using ruLinear::Point;
using ruLinear::Range3d;
using ruLinear::Vector;

TEST(BoundingBox, ADefaultBoxIsInvalid) {
  BoundingBox box;
  EXPECT_FALSE(box.valid());
}

TEST(BoundingBox, ExtendingAnInvalidBoxGivesTheOther) {
  BoundingBox box;
  box.extend(BoundingBox(Point(1, 2, 3), Point(0, 5, -1)));
  ASSERT_TRUE(box.valid());
  EXPECT_EQ(box.getMin(), Point(0, 2, -1));
  EXPECT_EQ(box.getMax(), Point(1, 5, 3));
}

TEST(BoundingBox, ExtendIsTheUnion) {
  BoundingBox box(Point(0, 0, 0), Point(1, 1, 1));
  box.extend(BoundingBox(Point(2, -1, 0.5), Point(3, 0, 0.5)));
  EXPECT_EQ(box.getMin(), Point(0, -1, 0));
  EXPECT_EQ(box.getMax(), Point(3, 1, 1));
  box.extend(BoundingBox());
  EXPECT_EQ(box.getMax(), Point(3, 1, 1));
  box.extend(Point(-5, 0, 0));
  EXPECT_EQ(box.getMin(), Point(-5, -1, 0));
}

TEST(BoundingBox, SetInvalidMakesItInvalid) {
  BoundingBox box(Point(0, 0, 0), Point(1, 1, 1));
  box.setInvalid();
  EXPECT_FALSE(box.valid());
}

TEST(BoundingBox, AnInvertedRangeGivesAnInvalidBox) {
  Range3d range;
  range.setUnbounded();
  EXPECT_FALSE(BoundingBox(range).valid());
}

TEST(BoundingBox, RangeRoundTripKeepsTheCorners) {
  const Range3d range(Point(1, 2, 3), Point(-1, 4, 0));
  const BoundingBox box(range);
  ASSERT_TRUE(box.valid());
  EXPECT_EQ(box.asRange3d(), range);
  EXPECT_EQ(static_cast<Range3d>(box), range);
}

TEST(BoundingBox, AnInvalidBoxGivesARangeWhoseMaximumStandsBelowItsMinimum) {
  const Range3d range = BoundingBox().asRange3d();
  EXPECT_FALSE(range.isValid());
  EXPECT_LT(range.getMax().x, range.getMin().x);
  EXPECT_FALSE(BoundingBox(range).valid());
}

TEST(BoundingBox, ADegeneratePointBoxIsValid) {
  BoundingBox box;
  box.extend(Point(1, 1, 1));
  EXPECT_TRUE(box.valid());
  EXPECT_TRUE(box.contains(Point(1, 1, 1)));
  EXPECT_FALSE(box.contains(Point(1, 1, 1.1)));
}

TEST(OrientedBox, FromARangeIsAxisAligned) {
  const OrientedBox box(Range3d(Point(0, 0, 0), Point(1, 2, 3)));
  ASSERT_TRUE(box.valid());
  EXPECT_EQ(box.getOrigin(), Point(0, 0, 0));
  EXPECT_EQ(box.getAxis(0), Vector(1, 0, 0));
  EXPECT_EQ(box.getAxis(1), Vector(0, 2, 0));
  EXPECT_EQ(box.getAxis(2), Vector(0, 0, 3));
  EXPECT_EQ(box.getCorner(7), Point(1, 2, 3));
  EXPECT_EQ(box.getCenter(), Point(0.5, 1, 1.5));
  EXPECT_EQ(box.getRange3d(), Range3d(Point(0, 0, 0), Point(1, 2, 3)));
  EXPECT_TRUE(box.contains(Point(0.5, 1, 1)));
  EXPECT_FALSE(box.contains(Point(0.5, 3, 1)));
}

TEST(OrientedBox, SetUnboundedHoldsNothing) {
  OrientedBox box(Range3d(Point(0, 0, 0), Point(1, 1, 1)));
  box.setUnbounded();
  EXPECT_TRUE(box.isUnbounded());
  EXPECT_FALSE(box.valid());
  EXPECT_FALSE(box.getRange3d().isValid());
  EXPECT_FALSE(box.contains(Point(0.5, 0.5, 0.5)));
}

TEST(OrientedBox, AnInvertedRangeGivesAnUnboundedBox) {
  Range3d range;
  range.setUnbounded();
  EXPECT_TRUE(OrientedBox(range).isUnbounded());
}

TEST(OrientedBox, TransformedMovesEveryCorner) {
  const OrientedBox box(Range3d(Point(0, 0, 0), Point(1, 1, 1)));
  const ruLinear::AffineMatrix m = ruLinear::AffineMatrix::rotation(ruLinear::pi / 2, Vector(0, 0, 1)) *
                                   ruLinear::AffineMatrix::translation(Vector(5, 0, 0));
  const OrientedBox moved = box.transformed(m);
  for (int i = 0; i < 8; ++i) {
    const Point expected = box.getCorner(i) * m;
    EXPECT_NEAR(ruLinear::distance(moved.getCorner(i), expected), 0.0, 1e-12);
  }
}
