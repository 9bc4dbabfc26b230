#include "tests/datamodelgui/snap/snapfixture.h"

#include "platform/datamodel/attributes.h"
#include "platform/datamodel/document.h"
#include "platform/geometry/construct.h"

#include <gtest/gtest.h>

#include <cmath>

using ruLinear::Point;
using ruLinear::Point2;
using ruLinear::Vector;
using snaptest::fixed;
using snaptest::SnapHost;
using voDMG::CoordinateAxisSnapItem;
using voDMG::SnapClient;
using voDMG::SnapItem;
using voDMG::SnapResult;

namespace {

// Lets go of a result whose draw would keep it alive, answering whether there was one.
bool release(const ru::Reference<SnapResult>& result) {
  if (result) result->setDraw(nullptr);
  return static_cast<bool>(result);
}

bool snapped(SnapClient& client, const Point2& cursor) { return release(client.snap(cursor)); }

// A plain mesh object of one sub-mesh in the host's document.
voDMD::Object* addMesh(SnapHost& host, const ru::Reference<ruGeom::CompactMesh>& mesh) {
  ru::Reference<voDMD::Object> object = voDMD::Object::create(host.document, voDMD::MeshClass::get());
  object->addAttribute<voDMD::Mesh>(mesh);
  object->addAttribute<voDMD::Transform>(ruLinear::AffineMatrix::Identity);
  object->addAttribute<voDMD::BoundingBox>();
  host.document.insert(object, nullptr);
  return object.get();
}

ru::Reference<ruGeom::CompactMesh> triangle(const Point& a, const Point& b, const Point& c) {
  ru::Reference<ruGeom::CompactMesh> mesh = new ruGeom::CompactMesh();
  mesh->addVertex(a);
  mesh->addVertex(b);
  mesh->addVertex(c);
  mesh->addTriangle(0, 1, 2);
  return mesh;
}

// The mesh item a mesh factory offers.
ru::Reference<SnapItem> meshItem(voDMD::Mesh* mesh) {
  voDMG::MeshSnapFactory factory(mesh);
  voDMG::SnapItemSet items;
  factory.getItems(items);
  return items.size() == 1 ? *items.begin() : nullptr;
}

// The x axis; the cursor 100 pixels right of the origin's projection is outside its dead zone.
struct AxisScene {
  SnapHost& host;
  ru::Reference<CoordinateAxisSnapItem> axis{new CoordinateAxisSnapItem(Point(0, 0, 0), Vector(1, 0, 0))};
  Point2 origin = host.pixel(Point(0, 0, 0));
  Point2 off(double dy, double dx = 100.0) const { return Point2{origin.x + dx, origin.y + dy}; }
};

}  // namespace

TEST(SnapItems, ACursor14PixelsFromAnAxisCatchesAt15NotWithTheAxisCaught44HoldsAnd45Tears) {
  SnapHost host;
  AxisScene scene{host};
  EXPECT_EQ(scene.axis->snapDistance(), 15);
  EXPECT_EQ(scene.axis->tearDistance(), 45);
  EXPECT_EQ(scene.axis->priority(), voDMG::SnapPriorityAxis);
  EXPECT_TRUE(scene.axis->shouldSnap(scene.off(14.0)));
  EXPECT_TRUE(scene.axis->shouldSnap(scene.off(-14.0)));
  EXPECT_FALSE(scene.axis->shouldSnap(scene.off(15.0)));
  SnapClient client{voGR::HitTestConfig()};
  client.addFactory(fixed(scene.axis));
  ASSERT_TRUE(snapped(client, scene.off(14.0)));
  EXPECT_TRUE(snapped(client, scene.off(44.0)));
  EXPECT_EQ(client.getSnapItem().get(), scene.axis.get());
  EXPECT_FALSE(snapped(client, scene.off(45.0)));
  EXPECT_FALSE(client.getSnapItem());
}

TEST(SnapItems, NearTheAxisOriginAnAxisDoesNotCatchAndAnAxisCaughtEarlierHoldsThroughIt) {
  SnapHost host;
  AxisScene scene{host};
  // 40 pixels from the origin, 3 from the axis: inside the dead zone.
  EXPECT_FALSE(scene.axis->shouldSnap(scene.off(3.0, 40.0)));
  EXPECT_FALSE(scene.axis->shouldSnap(scene.off(0.0, 0.0)));
  EXPECT_TRUE(scene.axis->shouldSnap(scene.off(3.0, 70.0)));
  SnapClient client{voGR::HitTestConfig()};
  client.addFactory(fixed(scene.axis));
  EXPECT_FALSE(snapped(client, scene.off(3.0, 40.0)));
  ASSERT_TRUE(snapped(client, scene.off(3.0, 100.0)));
  for (double dx : {60.0, 30.0, 0.0, -30.0, -100.0}) {
    ru::Reference<SnapResult> result = client.snap(scene.off(3.0, dx));
    ASSERT_TRUE(result) << dx;
    EXPECT_NEAR(result->getPosition().y, 0.0, 1e-9);
    EXPECT_NEAR(host.pixel(result->getPosition()).x, scene.off(0, dx).x, 0.5) << dx;
    release(result);
  }
}

TEST(SnapItems, AnAxisResultHasItsAxisAsVectorAndParamAlongIt) {
  SnapHost host;
  ru::Reference<CoordinateAxisSnapItem> flat(new CoordinateAxisSnapItem(ruLinear::ParamLine(Point(0, 1, 0), Vector(2, 0, 0))));
  const Point2 at = host.pixel(Point(2, 1, 0));
  ru::Reference<SnapResult> result = flat->snap(at);
  ASSERT_TRUE(result);
  auto* onAxis = dynamic_cast<voDMG::CoordinateAxisSnapResult*>(result.get());
  ASSERT_NE(onAxis, nullptr);
  EXPECT_NEAR(onAxis->param(), 1.0, 1e-6);
  EXPECT_TRUE(result->hasVector());
  EXPECT_EQ(result->getVector().getDirection().getX(), 2.0);
  EXPECT_TRUE(result->hasDraw());
  EXPECT_FALSE(result->datamodelCreator().valid());
  release(result);
}

TEST(SnapItems, OnAMeshAHit7PixelsFromACornerGivesAVertexResultAt8AFaceResult) {
  SnapHost host;
  voDMD::Object* object = addMesh(host, triangle(Point(0, 0, 0), Point(3, 0, 0), Point(0, 3, 0)));
  voDMD::Mesh* mesh = object->findAttribute<voDMD::Mesh>();
  ru::Reference<SnapItem> item = meshItem(mesh);
  ASSERT_TRUE(item);
  EXPECT_EQ(item->priority(), voDMG::SnapPriorityMesh);
  const Point2 corner = host.pixel(Point(0, 0, 0));
  const double diagonal = std::sqrt(0.5);
  const Point2 near{corner.x + 7.0 * diagonal, corner.y + 7.0 * diagonal};
  ASSERT_TRUE(item->shouldSnap(near));
  ru::Reference<SnapResult> result = item->snap(near);
  auto* vertex = dynamic_cast<voDMG::MeshVertexSnapResult*>(result.get());
  ASSERT_NE(vertex, nullptr);
  EXPECT_EQ(vertex->mesh(), mesh);
  EXPECT_EQ(vertex->subMeshID(), 0);
  EXPECT_EQ(vertex->vertexID(), 0);
  EXPECT_EQ(result->getPosition().x, 0.0);
  EXPECT_FALSE(result->datamodelCreator().valid());
  release(result);

  const Point2 far{corner.x + 8.0 * diagonal + 1e-3, corner.y + 8.0 * diagonal + 1e-3};
  ASSERT_TRUE(item->shouldSnap(far));
  result = item->snap(far);
  auto* face = dynamic_cast<voDMG::MeshFaceSnapResult*>(result.get());
  ASSERT_NE(face, nullptr);
  EXPECT_EQ(face->faceId(), 0);
  EXPECT_EQ(face->subMeshId(), 0);
  EXPECT_TRUE(result->hasFrame());
  EXPECT_NEAR(result->getFrame().getNormal().getZ(), 1.0, 1e-12);
  // The hit point lies under the cursor.
  const Point2 back = host.pixel(result->getPosition());
  EXPECT_NEAR(back.x, far.x, 1e-3);
  EXPECT_NEAR(back.y, far.y, 1e-3);
  EXPECT_FALSE(result->datamodelCreator().valid());
  release(result);
}

TEST(SnapItems, TwoCornersInReachTheFirstInTriangleOrderWinsAlsoIfTheOtherIsNearer) {
  SnapHost host;
  voDMD::Object* object = addMesh(host, triangle(Point(0, 0, 0), Point(0.2, 0, 0), Point(0, 3, 0)));
  ru::Reference<SnapItem> item = meshItem(object->findAttribute<voDMD::Mesh>());
  const Point2 a = host.pixel(Point(0, 0, 0));
  const Point2 b = host.pixel(Point(0.2, 0, 0));
  const Point2 cursor{a.x + 0.75 * (b.x - a.x), a.y + 0.5};
  ASSERT_LT(ruLinear::distance(cursor, b), ruLinear::distance(cursor, a));
  ASSERT_LT(ruLinear::distance(cursor, a), 8.0);
  ASSERT_TRUE(item->shouldSnap(cursor));
  ru::Reference<SnapResult> result = item->snap(cursor);
  auto* vertex = dynamic_cast<voDMG::MeshVertexSnapResult*>(result.get());
  ASSERT_NE(vertex, nullptr);
  EXPECT_EQ(vertex->vertexID(), 0);
  release(result);
}

TEST(SnapItems, ACursorOffTheMeshTearsACaughtMeshSnapItemAtOnceWhateverItsTearDistance) {
  SnapHost host;
  voDMD::Object* object = addMesh(host, triangle(Point(0, 0, 0), Point(3, 0, 0), Point(0, 3, 0)));
  ru::Reference<SnapItem> item = meshItem(object->findAttribute<voDMD::Mesh>());
  item->setTearDistance(1000);
  SnapClient client{voGR::HitTestConfig()};
  client.addFactory(fixed(item));
  const Point2 inside = host.pixel(Point(1, 1, 0));
  ASSERT_TRUE(snapped(client, inside));
  EXPECT_EQ(client.getSnapItem().get(), item.get());
  const Point2 outside = host.pixel(Point(-1, -1, 0));
  EXPECT_TRUE(item->shouldTear(outside));
  EXPECT_FALSE(snapped(client, outside));
  EXPECT_FALSE(client.getSnapItem());
}

TEST(SnapItems, OnSnapOfAMeshSnapItemBeforeAnyWithinDistanceGivesNull) {
  SnapHost host;
  voDMD::Object* object = addMesh(host, triangle(Point(0, 0, 0), Point(3, 0, 0), Point(0, 3, 0)));
  ru::Reference<SnapItem> item = meshItem(object->findAttribute<voDMD::Mesh>());
  EXPECT_FALSE(item->snap(host.pixel(Point(1, 1, 0))));
  // A null mesh is never within distance and never snaps.
  ru::Reference<SnapItem> none = meshItem(nullptr);
  EXPECT_FALSE(none->shouldSnap(Point2{128, 128}));
  EXPECT_FALSE(none->snap(Point2{128, 128}));
}

TEST(SnapItems, WithNoOtherItemInReachAPlaneFactoryMakesEverySnapAModelingPlaneResultWithNoDraw) {
  SnapHost host;
  host.planes.setPlane(ruLinear::Plane(Point(0, 0, 0), ruLinear::Normal::z));
  AxisScene scene{host};
  SnapClient client{voGR::HitTestConfig()};
  client.addFactory(new voDMG::ModelingPlaneSnapItemFactory());
  client.addFactory(fixed(scene.axis));
  for (const Point2& cursor : {Point2{10, 10}, Point2{128, 200}, Point2{250, 3}, Point2{128, 128}}) {
    ru::Reference<SnapResult> result = client.snap(cursor);
    ASSERT_TRUE(voDMG::ModelingPlaneSnapResult::asModelingPlaneSnapResult(result));
    EXPECT_FALSE(result->hasDraw());
    EXPECT_NEAR(result->getPosition().z, 0.0, 1e-9);
  }
  // The axis outranks the plane when it comes in reach.
  ru::Reference<SnapResult> result = client.snap(scene.off(4.0));
  EXPECT_TRUE(dynamic_cast<voDMG::CoordinateAxisSnapResult*>(result.get()));
  release(result);
}

TEST(SnapItems, DatamodelCreatorOfAMeshResultIsInvalidOfAnObjectCentreResultTheWholeObjectItem) {
  SnapHost host;
  voDMD::Object* object = addMesh(host, triangle(Point(0, 0, 0), Point(2, 0, 0), Point(0, 2, 0)));
  ru::Reference<voDMG::ObjectCenterSnapItem> centre(new voDMG::ObjectCenterSnapItem(object));
  EXPECT_EQ(centre->priority(), voDMG::SnapPriorityObjectCenter);
  EXPECT_EQ(centre->object(), object);
  const Point2 at = host.pixel(Point(1, 1, 0));
  ASSERT_TRUE(centre->shouldSnap(at));
  ru::Reference<SnapResult> result = centre->snap(at);
  ASSERT_TRUE(voDMG::FreePointSnapResult::asFreePointSnapResult(result));
  EXPECT_NEAR(result->getPosition().x, 1.0, 1e-12);
  EXPECT_NEAR(result->getPosition().y, 1.0, 1e-12);
  const voDMG::SelectionItem creator = result->datamodelCreator();
  EXPECT_TRUE(creator.valid());
  EXPECT_EQ(creator.getObject(), object);
  EXPECT_FALSE(creator.isSubItem());
  release(result);

  ru::Reference<SnapItem> item = meshItem(object->findAttribute<voDMD::Mesh>());
  ASSERT_TRUE(item->shouldSnap(host.pixel(Point(0.5, 0.5, 0))));
  result = item->snap(host.pixel(Point(0.5, 0.5, 0)));
  ASSERT_TRUE(result);
  EXPECT_FALSE(result->datamodelCreator().valid());
  release(result);
}

TEST(SnapItems, ACameraLookingAlongThePlaneGivesAFinitePlaneResultAndNoCrash) {
  SnapHost host;
  // The eye on the plane z = 0, looking along it.
  host.look(Point(0, 5, 0), Point(0, -5, 0), Vector(0, 0, 1));
  ru::Reference<SnapItem> plane(new voDMG::ModelingPlaneSnapItem(ruLinear::Plane(Point(0, 0, 0), ruLinear::Normal::z)));
  for (const Point2& cursor : {Point2{128, 128}, Point2{10, 128}, Point2{250, 128}}) {
    ru::Reference<SnapResult> result = plane->snap(cursor);
    ASSERT_TRUE(result);
    EXPECT_TRUE(std::isfinite(result->getPosition().x));
    EXPECT_TRUE(std::isfinite(result->getPosition().y));
    EXPECT_TRUE(std::isfinite(result->getPosition().z));
  }
}

TEST(SnapItems, AnAxisOfZeroLengthNeverCatchesAndSnapsToItsOrigin) {
  SnapHost host;
  ru::Reference<CoordinateAxisSnapItem> axis(new CoordinateAxisSnapItem(Point(1, 1, 0), Vector(0, 0, 0)));
  const Point2 at = host.pixel(Point(1, 1, 0));
  for (double dx : {0.0, 3.0, 70.0, 100.0}) EXPECT_FALSE(axis->shouldSnap(Point2{at.x + dx, at.y})) << dx;
  EXPECT_TRUE(axis->shouldTear(Point2{at.x + 100.0, at.y}));
  ru::Reference<SnapResult> result = axis->snap(Point2{at.x + 100.0, at.y});
  ASSERT_TRUE(result);
  EXPECT_TRUE(std::isfinite(result->getPosition().x));
  release(result);
}

TEST(SnapItems, AnObjectRemovedWhileADragRunsLeavesNothingStaleAfterClearItems) {
  SnapHost host;
  voDMD::Object* object = addMesh(host, triangle(Point(0, 0, 0), Point(2, 0, 0), Point(0, 2, 0)));
  ru::Reference<voDMG::SnapItemFactory> centre(
      new voDMG::FixedSnapItemFactory(ru::Reference<SnapItem>(new voDMG::ObjectCenterSnapItem(object))));
  SnapClient client{voGR::HitTestConfig()};
  client.addFactory(centre);
  client.addFactory(new voDMG::MeshSnapFactory(object->findAttribute<voDMD::Mesh>()));
  client.beginSnap();
  ASSERT_TRUE(snapped(client, host.pixel(Point(1, 1, 0))));
  ASSERT_TRUE(client.getSnapItem());
  // The host takes the object away: it clears the manager's items and the tool its factories.
  host.manager.clearItems();
  client.removeFactory(centre);
  client.removeFactory(client.factories().front());
  client.endSnap();
  ASSERT_TRUE(host.document.remove(object));
  EXPECT_FALSE(client.getSnapItem());
  client.beginSnap();
  EXPECT_FALSE(snapped(client, host.pixel(Point(1, 1, 0))));
  EXPECT_FALSE(client.getSnapItem());
  EXPECT_FALSE(host.manager.activeItem(&client));
  client.endSnap();
}

TEST(SnapItems, APointItemMeasuresAgainstTheCameraOfEachMove) {
  SnapHost host;
  ru::Reference<snaptest::HostPoint> point(new snaptest::HostPoint(voDMG::SnapPriority(3), Point(1, 0, 0)));
  const Point2 before = host.pixel(point->position());
  ASSERT_TRUE(point->shouldSnap(before));
  // The view turns: the point is elsewhere on the screen, and the old place is out of reach.
  host.look(Point(1, 1, 0), Point(4, 1, 10), Vector(0, 1, 0));
  const Point2 after = host.pixel(point->position());
  ASSERT_GT(ruLinear::distance(before, after), 20.0);
  EXPECT_FALSE(point->shouldSnap(before));
  EXPECT_TRUE(point->shouldSnap(after));
  // Back to the first view, the first place catches again.
  host.look(Point(0, 0, 0), Point(0, 0, 10), Vector(0, 1, 0));
  EXPECT_TRUE(point->shouldSnap(before));
  EXPECT_FALSE(point->shouldSnap(after));
  // Two items at one place but with different positions each keep their own.
  ru::Reference<snaptest::HostPoint> other(new snaptest::HostPoint(voDMG::SnapPriority(3), Point(-1, 0, 0)));
  EXPECT_FALSE(other->shouldSnap(before));
  EXPECT_TRUE(other->shouldSnap(host.pixel(other->position())));
}

TEST(SnapItems, APointItemCatchesStrictlyInsideItsDistanceAtAnyAngle) {
  SnapHost host;
  ru::Reference<snaptest::HostPoint> point(new snaptest::HostPoint(voDMG::SnapPriority(3), Point(0.3, -0.2, 0)));
  const Point2 at = host.pixel(point->position());
  for (double angle = 0.0; angle < 6.28; angle += 0.37) {
    const double c = std::cos(angle), s = std::sin(angle);
    EXPECT_TRUE(point->shouldSnap(Point2{at.x + 7.999 * c, at.y + 7.999 * s})) << angle;
    EXPECT_FALSE(point->shouldSnap(Point2{at.x + 8.001 * c, at.y + 8.001 * s})) << angle;
  }
  // On the radius exactly, along an axis and along a 3-4-5 diagonal, it does not catch.
  EXPECT_FALSE(point->shouldSnap(Point2{at.x + 8.0, at.y}));
  point->setSnapDistance(5);
  const Point2 diagonal{at.x + 3.0, at.y + 4.0};
  EXPECT_EQ(point->shouldSnap(diagonal), 5.0 > ruLinear::distance(diagonal, at));
  // No distance catches nothing, not even the point itself.
  point->setSnapDistance(0);
  EXPECT_FALSE(point->shouldSnap(at));
  point->setSnapDistance(-4);
  EXPECT_FALSE(point->shouldSnap(at));
}

TEST(SnapItems, AMeshItemSearchesAgainWhenTheMeshOrTheCameraChangesUnderAStillCursor) {
  SnapHost host;
  voDMD::Object* object = addMesh(host, triangle(Point(0, 0, 0), Point(3, 0, 0), Point(0, 3, 0)));
  voDMD::Mesh* mesh = object->findAttribute<voDMD::Mesh>();
  ru::Reference<SnapItem> item = meshItem(mesh);
  const Point2 corner = host.pixel(Point(0, 0, 0));
  const Point2 cursor{corner.x + 3.0, corner.y + 2.0};
  const auto vertexAt = [&](const Point2& where) -> int {
    if (!item->shouldSnap(where)) return -2;
    ru::Reference<SnapResult> result = item->snap(where);
    auto* vertex = dynamic_cast<voDMG::MeshVertexSnapResult*>(result.get());
    const int found = vertex ? vertex->vertexID() : -1;
    release(result);
    return found;
  };
  ASSERT_EQ(vertexAt(cursor), 0);
  ASSERT_EQ(vertexAt(cursor), 0);
  // The same corner, now second in the vertex list.
  mesh->setSubMeshes({triangle(Point(3, 0, 0), Point(0, 0, 0), Point(0, 3, 0))});
  EXPECT_EQ(vertexAt(cursor), 1);
  // The mesh moved away from the cursor.
  mesh->setSubMeshes({triangle(Point(5, 5, 0), Point(8, 5, 0), Point(5, 8, 0))});
  EXPECT_EQ(vertexAt(cursor), -2);
  // A copy of the mesh's own sub-mesh, its vertices written: the corner is back under the cursor,
  // third in the list now.
  ru::Reference<ruGeom::CompactMesh> copy = new ruGeom::CompactMesh(mesh->getSubMesh(0));
  ruGeom::MeshVertex* vertices = copy->editVertices();
  vertices[0] = ruGeom::MeshVertex(3.f, 0.f, 0.f);
  vertices[1] = ruGeom::MeshVertex(0.f, 3.f, 0.f);
  vertices[2] = ruGeom::MeshVertex(0.f, 0.f, 0.f);
  mesh->setSubMeshes({copy});
  EXPECT_EQ(vertexAt(cursor), 2);
  // The camera moves and the cursor falls off the triangle.
  host.look(Point(40, 40, 0), Point(40, 40, 10), Vector(0, 1, 0));
  EXPECT_EQ(vertexAt(cursor), -2);
  host.look(Point(0, 0, 0), Point(0, 0, 10), Vector(0, 1, 0));
  EXPECT_EQ(vertexAt(cursor), 2);
  // A farther reach from the same cursor: the outcome follows the distance asked for.
  const Point2 between{corner.x + 12.0, corner.y + 9.0};
  EXPECT_EQ(vertexAt(between), -1);
  item->setSnapDistance(40);
  EXPECT_EQ(vertexAt(between), 2);
}
