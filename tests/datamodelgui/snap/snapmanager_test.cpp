#include "tests/datamodelgui/snap/snapfixture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

using ruLinear::Point;
using ruLinear::Point2;
using ruLinear::Vector;
using snaptest::fixed;
using snaptest::HostPoint;
using snaptest::SnapHost;
using snaptest::SnapLog;
using voDMG::CoordinateAxisSnapItem;
using voDMG::SnapClient;
using voDMG::SnapItem;

namespace {

std::string format(const char* pattern, const void* pointer, int priority) {
  char text[128];
  std::snprintf(text, sizeof text, pattern, pointer, priority);
  return text;
}

// Rejects one item.
class RejectOne : public voDMG::SnapFilter {
public:
  explicit RejectOne(const SnapItem* rejected) : rejected_(rejected) {}
  bool accept(SnapItem* item) override { return item != rejected_; }

private:
  const SnapItem* rejected_;
};

// The x axis through the origin; along it, 100 pixels right of the origin's projection, the
// cursor is far outside the origin's dead zone.
struct AxisScene {
  SnapHost& host;
  ru::Reference<CoordinateAxisSnapItem> axis{new CoordinateAxisSnapItem(Point(0, 0, 0), Vector(1, 0, 0))};
  Point2 origin = host.pixel(Point(0, 0, 0));
  Point2 off(double dy) const { return Point2{origin.x + 100.0, origin.y + dy}; }
};

// Snaps, and lets go of the result (an axis result and its draw hold each other until then).
bool snapped(SnapClient& client, const Point2& cursor) {
  ru::Reference<voDMG::SnapResult> result = client.snap(cursor);
  if (result) result->setDraw(nullptr);
  return static_cast<bool>(result);
}

}  // namespace

TEST(SnapManager, WithNoRegisteredClientSnapReturnsNullAndLastCursorDoesNotChange) {
  SnapHost host;
  SnapLog log;
  voDMG::SnapManager& manager = host.manager;
  EXPECT_FALSE(manager.snap(nullptr, Point2{40, 50}));
  EXPECT_EQ(manager.lastCursor().x, 0.0);
  EXPECT_EQ(manager.lastCursor().y, 0.0);
  EXPECT_TRUE(log.lines.empty());
  // A client that came and went leaves the manager as empty.
  { SnapClient client{voGR::HitTestConfig()}; }
  EXPECT_FALSE(manager.snap(nullptr, Point2{40, 50}));
  EXPECT_EQ(manager.lastCursor().x, 0.0);
}

TEST(SnapManager, AnAxisItemCaughtAtUnder15PixelsStaysActiveUntilTheCursorIs45PixelsAway) {
  SnapHost host;
  AxisScene scene{host};
  SnapClient client{voGR::HitTestConfig()};
  client.addFactory(fixed(scene.axis));
  client.beginSnap();
  EXPECT_FALSE(client.snap(scene.off(20.0)));  // within the hint band, not caught
  ru::Reference<voDMG::SnapResult> result = client.snap(scene.off(10.0));
  ASSERT_TRUE(result);
  EXPECT_EQ(client.getSnapItem().get(), scene.axis.get());
  EXPECT_TRUE(result->hasVector());
  // The result lies on the axis, under the cursor's x.
  EXPECT_NEAR(result->getPosition().y, 0.0, 1e-9);
  // Nearest to the ray, so on screen within a fraction of a pixel of the cursor's column.
  EXPECT_NEAR(host.pixel(result->getPosition()).x, scene.off(0).x, 0.5);
  EXPECT_NEAR(result->getPosition().x, result->getVector().evaluate(static_cast<voDMG::CoordinateAxisSnapResult&>(*result).param()).x, 1e-12);
  result->setDraw(nullptr);
  for (double dy : {20.0, 30.0, 40.0, 44.0, -44.0}) {
    SnapLog log;
    EXPECT_TRUE(snapped(client, scene.off(dy))) << dy;
    EXPECT_EQ(client.getSnapItem().get(), scene.axis.get()) << dy;
    EXPECT_FALSE(log.hasPrefix("Active item")) << dy;
  }
  SnapLog log;
  EXPECT_FALSE(client.snap(scene.off(46.0)));
  EXPECT_FALSE(client.getSnapItem());
  EXPECT_TRUE(log.has(format("Active item (%p) priority=%d is tearing.", scene.axis.get(), 1)));
  client.endSnap();
}

TEST(SnapManager, SnapLogsTheCursorTheItemsAndTheNewItem) {
  SnapHost host;
  AxisScene scene{host};
  SnapClient client{voGR::HitTestConfig()};
  client.addFactory(fixed(scene.axis));
  SnapLog log;
  ASSERT_TRUE(snapped(client, Point2{scene.off(5).x, scene.off(5).y}));
  char text[160];
  std::snprintf(text, sizeof text, "SnapManager::snap( client = %p, cursorPos = (%g,%g) )",
                static_cast<const void*>(&client), scene.off(5).x, scene.off(5).y);
  EXPECT_TRUE(log.has(text));
  EXPECT_TRUE(log.has("SnapManager::createSnapItems"));
  EXPECT_TRUE(log.has("  now have 1 SnapItems"));
  std::snprintf(text, sizeof text, "  found a new item to snap (%p) priority=%d, type=%s",
                static_cast<const void*>(scene.axis.get()), 1, typeid(CoordinateAxisSnapItem).name());
  EXPECT_TRUE(log.has(text));
  for (const auto& line : log.lines) {
    if (line.text.rfind("SnapManager::snap(", 0) == 0) { EXPECT_EQ(line.function, "voDMG::SnapManager::snap"); }
    if (line.text == "SnapManager::createSnapItems") { EXPECT_EQ(line.function, "voDMG::SnapManager::createSnapItems"); }
    if (line.text.rfind("  now have", 0) == 0) { EXPECT_EQ(line.function, "voDMG::SnapManager::addStaticSnapItems"); }
  }
}

TEST(SnapManager, AMeshItemInReachTakesOverFromAnActiveAxisButAnAxisWaitsForAnActiveMeshItemToTear) {
  SnapHost host;
  AxisScene scene{host};
  // A surface point at mesh priority, 10 pixels above the axis.
  const Point2 onAxis = scene.off(0.0);
  ruLinear::Line ray = host.camera().getWorldSpaceRay(Point2{onAxis.x, onAxis.y + 10.0});
  bool hit = false;
  const Point meshPoint = ruLinear::intersect(ray, ruLinear::Plane(Point(0, 0, 0), ruLinear::Normal::z), hit);
  ASSERT_TRUE(hit);
  ru::Reference<HostPoint> mesh(new HostPoint(voDMG::SnapPriorityMesh, meshPoint));
  SnapClient client{voGR::HitTestConfig()};
  client.addFactory(fixed(scene.axis));
  client.addFactory(fixed(mesh));
  // The axis catches first, the mesh point being out of reach.
  ASSERT_TRUE(snapped(client, scene.off(-6.0)));
  EXPECT_EQ(client.getSnapItem().get(), scene.axis.get());
  // The mesh point comes in reach while the axis still holds: it takes over.
  ASSERT_TRUE(snapped(client, scene.off(7.0)));
  EXPECT_EQ(client.getSnapItem().get(), mesh.get());
  // Back at the axis, which is in its catch radius, but the mesh point holds up to 8 pixels.
  ASSERT_TRUE(snapped(client, scene.off(3.0)));
  EXPECT_EQ(client.getSnapItem().get(), mesh.get());
  // Past the mesh point's tear distance the axis catches again in the same step.
  ASSERT_TRUE(snapped(client, scene.off(1.0)));
  EXPECT_EQ(client.getSnapItem().get(), scene.axis.get());
}

TEST(SnapManager, AfterATearTheSameStepMayCatchAnotherItemAndTheClientSeesNoGap) {
  SnapHost host;
  ru::Reference<HostPoint> left(new HostPoint(voDMG::SnapPriority(4), Point(-0.2, 0, 0)));
  ru::Reference<HostPoint> right(new HostPoint(voDMG::SnapPriority(4), Point(0.2, 0, 0)));
  const Point2 l = host.pixel(left->position());
  const Point2 r = host.pixel(right->position());
  ASSERT_GT(r.x - l.x, 10.0);
  ASSERT_LT(r.x - l.x, 16.0);
  SnapClient client{voGR::HitTestConfig()};
  client.addFactory(fixed(left));
  client.addFactory(fixed(right));
  ASSERT_TRUE(snapped(client, Point2{l.x + 1.0, l.y}));
  EXPECT_EQ(client.getSnapItem().get(), left.get());
  SnapLog log;
  ru::Reference<voDMG::SnapResult> result = client.snap(Point2{r.x - 1.0, r.y});
  ASSERT_TRUE(result);
  EXPECT_EQ(client.getSnapItem().get(), right.get());
  EXPECT_TRUE(log.has(format("Active item (%p) priority=%d is tearing.", left.get(), 4)));
  EXPECT_EQ(host.manager.activeItem(&client).get(), right.get());
}

TEST(SnapManager, AFilterPushedWhileAnItemIsActiveDoesNotReleaseIt) {
  SnapHost host;
  AxisScene scene{host};
  SnapClient client{voGR::HitTestConfig()};
  client.addFactory(fixed(scene.axis));
  ASSERT_TRUE(snapped(client, scene.off(5.0)));
  client.pushFilter(new RejectOne(scene.axis.get()));
  for (double dy : {0.0, 10.0, 30.0, 44.0}) {
    EXPECT_TRUE(snapped(client, scene.off(dy))) << dy;
    EXPECT_EQ(client.getSnapItem().get(), scene.axis.get()) << dy;
  }
  // Torn, it cannot catch again while the filter stands.
  EXPECT_FALSE(client.snap(scene.off(50.0)));
  EXPECT_FALSE(client.snap(scene.off(5.0)));
  client.popFilter();
  EXPECT_TRUE(client.filters().empty());
  EXPECT_TRUE(snapped(client, scene.off(5.0)));
  // A null filter is skipped.
  client.pushFilter(nullptr);
  EXPECT_TRUE(snapped(client, scene.off(5.0)));
}

TEST(SnapManager, WithTwoClientsASnapForOneEmptiesTheOthersListButItsActiveItemStaysAndJoinsThisList) {
  SnapHost host;
  AxisScene scene{host};
  ru::Reference<HostPoint> point(new HostPoint(voDMG::SnapPriority(3), Point(-1, -1, 0)));
  SnapClient first{voGR::HitTestConfig()};
  SnapClient second{voGR::HitTestConfig()};
  first.addFactory(fixed(scene.axis));
  second.addFactory(fixed(point));
  ASSERT_TRUE(snapped(first, scene.off(2.0)));
  ASSERT_NE(host.manager.items(&first), nullptr);
  EXPECT_FALSE(second.snap(Point2{5, 5}));
  EXPECT_EQ(host.manager.items(&first), nullptr);
  EXPECT_EQ(host.manager.activeItem(&first).get(), scene.axis.get());
  const auto* list = host.manager.items(&second);
  ASSERT_NE(list, nullptr);
  ASSERT_EQ(list->size(), 2u);
  // Higher priority first: the point (3) before the first client's axis (1).
  EXPECT_EQ((*list)[0].get(), point.get());
  EXPECT_EQ((*list)[1].get(), scene.axis.get());
}

TEST(SnapManager, EndSnapForAClientWithNoListAndNoActiveItemDoesNothing) {
  SnapHost host;
  AxisScene scene{host};
  SnapClient first{voGR::HitTestConfig()};
  SnapClient second{voGR::HitTestConfig()};
  first.addFactory(fixed(scene.axis));
  ASSERT_TRUE(snapped(first, scene.off(2.0)));
  second.beginSnap();
  EXPECT_TRUE(second.isSnapping());
  second.endSnap();
  EXPECT_FALSE(second.isSnapping());
  EXPECT_EQ(host.manager.activeItem(&first).get(), scene.axis.get());
  EXPECT_NE(host.manager.items(&first), nullptr);
  EXPECT_TRUE(host.manager.hasClient(&second));
}

TEST(SnapManager, EndSnapEndsEachItemOfTheListAndForgetsTheActiveItem) {
  SnapHost host;
  ru::Reference<HostPoint> a(new HostPoint(voDMG::SnapPriority(3), Point(0, 0, 0)));
  ru::Reference<HostPoint> b(new HostPoint(voDMG::SnapPriority(5), Point(1, 1, 0)));
  SnapClient client{voGR::HitTestConfig()};
  client.addFactory(fixed(a));
  client.addFactory(fixed(b));
  client.beginSnap();
  ASSERT_TRUE(snapped(client, host.pixel(a->position())));
  client.endSnap();
  EXPECT_EQ(a->endSnaps, 1);
  EXPECT_EQ(b->endSnaps, 1);
  EXPECT_FALSE(client.getSnapItem());
  EXPECT_FALSE(host.manager.activeItem(&client));
  EXPECT_NE(host.manager.items(&client), nullptr);  // the list stays until the next snap
}

TEST(SnapManager, RemoveClientDuringADragDropsTheActiveItemAndTheClientsOwnItemStillHoldsIt) {
  SnapHost host;
  AxisScene scene{host};
  SnapClient client{voGR::HitTestConfig()};
  client.addFactory(fixed(scene.axis));
  client.beginSnap();
  ASSERT_TRUE(snapped(client, scene.off(2.0)));
  const int before = scene.axis->refCount();
  host.manager.removeClient(&client);
  EXPECT_FALSE(host.manager.hasClient(&client));
  EXPECT_FALSE(host.manager.activeItem(&client));
  EXPECT_EQ(host.manager.items(&client), nullptr);
  EXPECT_EQ(client.getSnapItem().get(), scene.axis.get());
  EXPECT_LT(scene.axis->refCount(), before);
  // With no client left the manager is off.
  EXPECT_FALSE(host.manager.snap(&client, scene.off(2.0)));
}

TEST(SnapManager, WithinOnePriorityTheFirstInListOrderWinsNotTheNearest) {
  SnapHost host;
  ru::Reference<HostPoint> a(new HostPoint(voDMG::SnapPriority(4), Point(0, 0, 0)));
  ru::Reference<HostPoint> b(new HostPoint(voDMG::SnapPriority(4), Point(0.15, 0, 0)));
  SnapClient client{voGR::HitTestConfig()};
  voDMG::SnapItemSet both;
  both.insert(a);
  both.insert(b);
  client.addFactory(new voDMG::FixedSnapItemFactory(both));
  const ru::Reference<HostPoint>& first = std::less<const void*>()(a.get(), b.get()) ? a : b;
  const ru::Reference<HostPoint>& other = first.get() == a.get() ? b : a;
  // A cursor nearer `other` but within reach of both.
  const Point2 pf = host.pixel(first->position());
  const Point2 po = host.pixel(other->position());
  const Point2 cursor{pf.x + (po.x - pf.x) * 0.7, pf.y};
  ASSERT_LT(ruLinear::distance(cursor, pf), 8.0);
  ASSERT_TRUE(snapped(client, cursor));
  EXPECT_EQ(client.getSnapItem().get(), first.get());
}

TEST(SnapManager, TheModelingPlaneCatchesAnywhereNeverTearsAndYieldsToHigherPriorities) {
  SnapHost host;
  host.planes.setPlane(ruLinear::Plane(Point(0, 0, -1), ruLinear::Normal::z));
  ru::Reference<HostPoint> point(new HostPoint(voDMG::SnapPriority(3), Point(0.5, 0.5, 0)));
  SnapClient client{voGR::HitTestConfig()};
  client.addFactory(new voDMG::ModelingPlaneSnapItemFactory());
  client.addFactory(fixed(point));
  ru::Reference<voDMG::SnapResult> result = client.snap(Point2{20, 30});
  ASSERT_TRUE(result);
  EXPECT_EQ(client.getSnapItem()->priority(), voDMG::SnapPriorityPlane);
  ru::Reference<voDMG::ModelingPlaneSnapResult> onPlane = voDMG::ModelingPlaneSnapResult::asModelingPlaneSnapResult(result);
  ASSERT_TRUE(onPlane);
  EXPECT_FALSE(voDMG::FreePointSnapResult::asFreePointSnapResult(result));
  EXPECT_TRUE(onPlane->hasFrame());
  EXPECT_NEAR(onPlane->getPosition().z, -1.0, 1e-9);
  EXPECT_NEAR(onPlane->getFrame().getNormal().getZ(), 1.0, 1e-12);
  const Point2 back = host.pixel(onPlane->getPosition());
  EXPECT_NEAR(back.x, 20.0, 1e-6);
  EXPECT_NEAR(back.y, 30.0, 1e-6);
  // The point outranks the plane.
  ASSERT_TRUE(snapped(client, host.pixel(point->position())));
  EXPECT_EQ(client.getSnapItem().get(), point.get());
  // Far from the point the plane catches again.
  ASSERT_TRUE(snapped(client, Point2{250, 250}));
  EXPECT_EQ(client.getSnapItem()->priority(), voDMG::SnapPriorityPlane);
}

TEST(SnapManager, ClearItemsForgetsActiveItemsAndLists) {
  SnapHost host;
  AxisScene scene{host};
  SnapClient client{voGR::HitTestConfig()};
  client.addFactory(fixed(scene.axis));
  ASSERT_TRUE(snapped(client, scene.off(2.0)));
  host.manager.clearItems();
  EXPECT_FALSE(host.manager.activeItem(&client));
  EXPECT_EQ(host.manager.items(&client), nullptr);
  // With the item gone from the factory too, the next move finds nothing stale.
  client.removeFactory(client.factories().front());
  EXPECT_TRUE(client.factories().empty());
  EXPECT_FALSE(client.snap(scene.off(2.0)));
}

TEST(SnapManager, ACopiedClientIsNotRegistered) {
  SnapHost host;
  SnapClient client{voGR::HitTestConfig()};
  client.pushFilter(nullptr);
  client.addFactory(new voDMG::ModelingPlaneSnapItemFactory());
  {
    SnapClient copy(client);
    EXPECT_FALSE(host.manager.hasClient(&copy));
    EXPECT_EQ(copy.filters().size(), 1u);
    EXPECT_EQ(copy.factories().size(), 1u);
  }
  EXPECT_TRUE(host.manager.hasClient(&client));
}

TEST(SnapManager, ACursorOutsideTheViewportGivesNoStaleItem) {
  SnapHost host;
  AxisScene scene{host};
  SnapClient client{voGR::HitTestConfig()};
  client.addFactory(fixed(scene.axis));
  EXPECT_FALSE(client.snap(Point2{-5000, 9000}));
  EXPECT_FALSE(client.snap(Point2{std::nan(""), 3}));
  EXPECT_FALSE(client.getSnapItem());
}

namespace {

// Items of priorities cycling through `priorities`, spread over three fixed factories, so that
// equal priorities come from several factories and several places in each.
struct PriorityCase {
  const char* name;
  std::vector<int> priorities;
};

class SnapManagerOrder : public ::testing::TestWithParam<PriorityCase> {};

}  // namespace

TEST_P(SnapManagerOrder, TheListIsByPriorityHighestFirstKeepingTheGatheredOrderOfEquals) {
  SnapHost host;
  SnapClient client{voGR::HitTestConfig()};
  const std::vector<int>& priorities = GetParam().priorities;
  std::vector<ru::Reference<SnapItem>> gathered;
  for (int factory = 0; factory < 3; ++factory) {
    voDMG::SnapItemSet set;
    for (int i = 0; i < 10; ++i) {
      const int priority = priorities[static_cast<std::size_t>(factory * 10 + i) % priorities.size()];
      // Far outside the viewport: none catches, so the walk leaves the list as it was built.
      set.insert(ru::Reference<SnapItem>(new HostPoint(voDMG::SnapPriority(priority), Point(1000.0 + i, 0, 0))));
    }
    gathered.insert(gathered.end(), set.begin(), set.end());  // the set's (pointer) order
    client.addFactory(new voDMG::FixedSnapItemFactory(set));
  }
  std::vector<ru::Reference<SnapItem>> expected = gathered;
  std::stable_sort(expected.begin(), expected.end(),
                   [](const auto& a, const auto& b) { return a->priority() > b->priority(); });
  for (int move = 0; move < 2; ++move) {
    EXPECT_FALSE(client.snap(Point2{128, 128}));
    const auto* list = host.manager.items(&client);
    ASSERT_NE(list, nullptr);
    ASSERT_EQ(list->size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) EXPECT_EQ((*list)[i].get(), expected[i].get()) << "at " << i;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Priorities, SnapManagerOrder,
    ::testing::Values(PriorityCase{"OnePriority", {4}}, PriorityCase{"ThreeInterleaved", {1, 6, 3}},
                      PriorityCase{"TwelveDistinct", {0, 11, 5, 2, 9, 7, 1, 10, 3, 8, 6, 4}},
                      PriorityCase{"NegativeAndLarge", {-3, 2000000000, 0, -2000000000}}),
    [](const ::testing::TestParamInfo<PriorityCase>& param) { return std::string(param.param.name); });

namespace {

// A fixed factory that offers one more item than its set.
class FixedPlusOne : public voDMG::FixedSnapItemFactory {
public:
  FixedPlusOne(ru::Reference<SnapItem> item, ru::Reference<SnapItem> extra)
      : FixedSnapItemFactory(std::move(item)), extra_(std::move(extra)) {}
  void getItems(voDMG::SnapItemSet& items) override {
    FixedSnapItemFactory::getItems(items);
    items.insert(extra_);
  }

private:
  ru::Reference<SnapItem> extra_;
};

}  // namespace

TEST(SnapManager, AFactoryDerivedFromTheFixedOneOffersWhatItsOwnGetItemsGives) {
  SnapHost host;
  ru::Reference<HostPoint> own(new HostPoint(voDMG::SnapPriority(4), Point(0, 0, 0)));
  ru::Reference<HostPoint> extra(new HostPoint(voDMG::SnapPriority(5), Point(0.5, 0.5, 0)));
  SnapClient client{voGR::HitTestConfig()};
  client.addFactory(new FixedPlusOne(own, extra));
  ASSERT_TRUE(snapped(client, host.pixel(extra->position())));
  EXPECT_EQ(client.getSnapItem().get(), extra.get());
  const auto* list = host.manager.items(&client);
  ASSERT_NE(list, nullptr);
  ASSERT_EQ(list->size(), 2u);
  EXPECT_EQ((*list)[0].get(), extra.get());
  EXPECT_EQ((*list)[1].get(), own.get());
}
