#include "tests/datamodelgui/snap/snapfixture.h"

#include <gtest/gtest.h>

using ruLinear::Point;
using ruLinear::Point2;
using snaptest::HostPoint;
using snaptest::SnapHost;
using voDMG::SnapResult;
using voDMG::SnapResultDraw;

namespace {

// An item that never has a result, as an item may when what it found is gone.
class EmptyItem : public voDMG::SnapItem {
public:
  EmptyItem() : SnapItem(voDMG::SnapPriorityMesh) {}

private:
  bool withinDistance(const Point2&, int, DistanceType) override { return true; }
  ru::Reference<SnapResult> onSnap(const Point2&) const override { return nullptr; }
  voDMG::SelectionItem getCreator() const override { return voDMG::SelectionItem(); }
};

int g_drawsAlive = 0;

class CountedDraw : public SnapResultDraw {
public:
  explicit CountedDraw(ru::Reference<SnapResult> result) : SnapResultDraw(std::move(result)) { ++g_drawsAlive; }
  ~CountedDraw() override { --g_drawsAlive; }

private:
  void onDrawPosition(voGR::Draw&) const override {}
  void onDrawVector(voGR::Draw&) const override {}
  void onDrawFrame(voGR::Draw&) const override {}
};

}  // namespace

TEST(SnapModel, ANewItemHasSnapDistanceAndTearDistanceBoth8) {
  SnapHost host;
  ru::Reference<HostPoint> item(new HostPoint(voDMG::SnapPriority(3), Point(0, 0, 0)));
  EXPECT_EQ(item->snapDistance(), 8);
  EXPECT_EQ(item->tearDistance(), 8);
  EXPECT_EQ(item->priority(), 3);
}

TEST(SnapModel, AnItemWithEqualDistancesCatchesAndTearsAtTheSameRadius) {
  SnapHost host;
  ru::Reference<HostPoint> item(new HostPoint(voDMG::SnapPriorityObjectCenter, Point(0.5, -0.25, 0)));
  const Point2 at = host.pixel(item->position());
  // Strictly inside: catches and holds.
  const Point2 inside{at.x + 7.75, at.y};
  EXPECT_TRUE(item->shouldSnap(inside));
  EXPECT_FALSE(item->shouldTear(inside));
  // Exactly on the radius: neither catches nor holds.
  const Point2 onRadius{at.x, at.y - 8.0};
  EXPECT_FALSE(item->shouldSnap(onRadius));
  EXPECT_TRUE(item->shouldTear(onRadius));
  // A wider tear radius holds where catching fails.
  item->setTearDistance(12);
  EXPECT_FALSE(item->shouldSnap(onRadius));
  EXPECT_FALSE(item->shouldTear(onRadius));
}

TEST(SnapModel, SnapOfAnItemWhoseOnSnapGivesNullGivesNullAndSetsNoCreator) {
  SnapHost host;
  ru::Reference<EmptyItem> item(new EmptyItem());
  EXPECT_EQ(item->refCount(), 1);
  EXPECT_FALSE(item->snap(Point2{10, 10}));
  // No result took a reference to the item.
  EXPECT_EQ(item->refCount(), 1);
}

TEST(SnapModel, SnapSetsTheCreatorOfAResult) {
  SnapHost host;
  ru::Reference<HostPoint> item(new HostPoint(voDMG::SnapPriorityObjectCenter, Point(1, 2, 3)));
  ru::Reference<SnapResult> result = item->snap(Point2{0, 0});
  ASSERT_TRUE(result);
  EXPECT_EQ(result->creator().get(), item.get());
  EXPECT_TRUE(result->hasPosition());
  EXPECT_EQ(result->getPosition().z, 3.0);
  // The host point names no object.
  EXPECT_FALSE(result->datamodelCreator().valid());
}

TEST(SnapModel, SetDrawTwiceDeletesTheFirstDrawAndSetDrawNullLeavesNoDraw) {
  SnapHost host;
  ru::Reference<SnapResult> result(new voDMG::FreePointSnapResult(Point(0, 0, 0)));
  result->setDraw(new CountedDraw(result));
  EXPECT_EQ(g_drawsAlive, 1);
  const SnapResultDraw* second = new CountedDraw(result);
  result->setDraw(const_cast<SnapResultDraw*>(second));
  EXPECT_EQ(g_drawsAlive, 1);
  EXPECT_EQ(result->getDraw(), second);
  EXPECT_EQ(result->getDraw()->result().get(), result.get());
  result->setDraw(nullptr);
  EXPECT_EQ(g_drawsAlive, 0);
  EXPECT_FALSE(result->hasDraw());
  EXPECT_EQ(result->getDraw(), nullptr);
}

TEST(SnapModel, AResultAndItsDrawOutliveTheLastOutsideReferenceUntilSetDrawNull) {
  SnapHost host;
  SnapResult* raw = nullptr;
  {
    ru::Reference<SnapResult> result(new voDMG::FreePointSnapResult(Point(0, 0, 0)));
    result->setDraw(new CountedDraw(result));
    raw = result.get();
  }
  // The draw's reference keeps the pair alive.
  EXPECT_EQ(g_drawsAlive, 1);
  EXPECT_EQ(raw->refCount(), 1);
  raw->setDraw(nullptr);  // breaks the cycle: both go
  EXPECT_EQ(g_drawsAlive, 0);
}

TEST(SnapModel, HasVectorIsFalseAndGetVectorIsTheDefaultForAPointResult) {
  ru::Reference<SnapResult> result(new voDMG::FreePointSnapResult(Point(4, 5, 6)));
  EXPECT_TRUE(result->hasPosition());
  EXPECT_FALSE(result->hasVector());
  EXPECT_FALSE(result->hasFrame());
  const ruLinear::ParamLine fresh;
  EXPECT_EQ(result->getVector().getOrigin().x, fresh.getOrigin().x);
  EXPECT_EQ(result->getVector().getOrigin().y, fresh.getOrigin().y);
  EXPECT_EQ(result->getVector().getOrigin().z, fresh.getOrigin().z);
  EXPECT_EQ(result->getVector().getDirection().getX(), fresh.getDirection().getX());
  EXPECT_EQ(result->getVector().getDirection().getY(), fresh.getDirection().getY());
  EXPECT_EQ(result->getVector().getDirection().getZ(), fresh.getDirection().getZ());
  EXPECT_FALSE(result->hasDraw());
  EXPECT_FALSE(result->creator());
}

TEST(SnapModel, AResultHasNoTransactedSize) {
  ru::Reference<SnapResult> result(new voDMG::FreePointSnapResult(Point(0, 0, 0)));
  EXPECT_EQ(voTXN::getSize(result), 0u);
}

TEST(SnapModel, AFixedFactoryAddsItsItemsInPointerOrder) {
  SnapHost host;
  voDMG::SnapItemSet mine;
  std::vector<ru::Reference<voDMG::SnapItem>> made;
  for (int i = 0; i < 5; ++i) {
    made.emplace_back(new HostPoint(voDMG::SnapPriority(3), Point(i, 0, 0)));
    mine.insert(made.back());
  }
  voDMG::FixedSnapItemFactory factory(mine);
  voDMG::SnapItemSet out;
  factory.getItems(out);
  factory.getItems(out);  // a second call adds nothing new: the same items
  ASSERT_EQ(out.size(), 5u);
  const voDMG::SnapItem* previous = nullptr;
  for (const auto& item : out) {
    EXPECT_TRUE(previous == nullptr || std::less<const void*>()(previous, item.get()));
    previous = item.get();
  }
}
