#include "tests/datamodelgui/snap/projector_fixture.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

using ruLinear::distance;
using projectortest::Host;
using ruLinear::Line;
using ruLinear::Normal;
using ruLinear::Plane;
using ruLinear::Point;
using ruLinear::Point2;
using ruLinear::Vector;
using voDMG::LineProjector;
using voDMG::PlaneProjector;
using voDMG::Projector;
using voDMG::SupportingPlaneProjector;

namespace {

void expectNear(const Point& actual, const Point& expected, double tolerance) {
  EXPECT_LE(distance(actual, expected), tolerance)
      << "actual (" << actual.getX() << ", " << actual.getY() << ", " << actual.getZ() << ") expected ("
      << expected.getX() << ", " << expected.getY() << ", " << expected.getZ() << ")";
}

bool sameNormal(const Normal& a, const Normal& b) {
  return std::fabs(a.getX() - b.getX()) < 1e-12 && std::fabs(a.getY() - b.getY()) < 1e-12 &&
         std::fabs(a.getZ() - b.getZ()) < 1e-12;
}

}  // namespace

// --- The cases every tool meets -------------------------------------------------------------

TEST(Projector, ProjectOfAPointTheCameraCannotProjectReturnsThatVeryPoint) {
  Host host;  // eye at (0, 0, 10) looking down -z
  ru::Reference<Projector> plane = PlaneProjector::create(Plane(Point(0, 0, 0), Normal::z));
  ru::Reference<Projector> line = LineProjector::create(Line(Point(0, 0, 0), Vector(1, 0, 0)));
  for (const Point& unseen : {Point(0, 0, 10), Point(1, 2, 11), Point(-3, 4, 50)}) {
    Point2 position;
    ASSERT_FALSE(host.camera().project(unseen, position));
    const Point fromPlane = plane->project(unseen);
    const Point fromLine = line->project(unseen);
    EXPECT_EQ(fromPlane.getX(), unseen.getX());
    EXPECT_EQ(fromPlane.getY(), unseen.getY());
    EXPECT_EQ(fromPlane.getZ(), unseen.getZ());
    EXPECT_EQ(fromLine.getX(), unseen.getX());
    EXPECT_EQ(fromLine.getY(), unseen.getY());
    EXPECT_EQ(fromLine.getZ(), unseen.getZ());
  }
}

TEST(Projector, ProjectOfAVisiblePointGoesThroughItsScreenPosition) {
  Host host;
  host.look(Point(1, 2, 0), Point(6, -4, 8), Vector(0, 0, 1));
  ru::Reference<Projector> projector = PlaneProjector::create(Plane(Point(0, 0, 0), Normal::z));
  // A point above the plane lands where the eye's ray through it meets the plane.
  const Point above(2, 1, 3);
  const Point eye = host.camera().getEyeLocation();
  const Vector ray = above - eye;
  const Point expected = eye + ray * (-eye.getZ() / ray.getZ());
  expectNear(projector->project(above), expected, 1e-9);
  // A point on the plane stays where it is.
  expectNear(projector->project(Point(-1, 3, 0)), Point(-1, 3, 0), 1e-9);
}

TEST(Projector, RayParallelToAPlaneProjectorsPlaneGivesTheFallbackOfIntersectAndNoError) {
  Host host;
  // Eye on the plane z = 0, looking along it: the centre ray runs in the plane.
  host.look(Point(0, 0, 0), Point(0, -10, 0), Vector(0, 0, 1));
  ru::Reference<PlaneProjector> projector = PlaneProjector::create(Plane(Point(3, 4, 0), Normal::z));
  const Point2 centre(128, 128);
  const Line ray = host.camera().getWorldSpaceRay(centre);
  ASSERT_NEAR(ray.getDirection().getZ(), 0.0, 1e-15);
  bool intersected = true;
  const Point fallback = ruLinear::intersect(ray, projector->getPlane(), intersected, ruLinear::perpendicular2Tol);
  EXPECT_FALSE(intersected);
  const Point result = projector->project(centre);
  EXPECT_EQ(result.getX(), fallback.getX());
  EXPECT_EQ(result.getY(), fallback.getY());
  EXPECT_EQ(result.getZ(), fallback.getZ());
  // Which is the foot of the eye on the plane: finite, and nothing else changed.
  expectNear(result, Point(0, -10, 0), 1e-12);
  expectNear(projector->getPlane().getPoint(), Point(3, 4, 0), 0.0);
}

TEST(Projector, RayParallelToALineProjectorsLineGivesTheFallbackOfIntersect) {
  Host host;
  ru::Reference<LineProjector> projector = LineProjector::create(Line(Point(2, 1, -5), Vector(0, 0, -3)));
  const Point2 centre(128, 128);  // the ray runs along -z, parallel to the line
  const Point result = projector->project(centre);
  expectNear(result, Point(2, 1, 10), 1e-12);  // the foot of the eye on the line
  EXPECT_TRUE(std::isfinite(result.getX()) && std::isfinite(result.getY()) && std::isfinite(result.getZ()));
}

TEST(Projector, CameraLookingAlongThePlaneGivesAFinitePointForEveryCursor) {
  Host host;
  host.look(Point(0, 0, 0), Point(0, -10, 0), Vector(0, 0, 1));
  ru::Reference<Projector> projector = PlaneProjector::create(Plane(Point(0, 0, 0), Normal::z));
  for (double y : {0.0, 64.0, 127.0, 128.0, 129.0, 255.0}) {
    const Point result = projector->project(Point2(100, y));
    EXPECT_TRUE(std::isfinite(result.getX()) && std::isfinite(result.getY()) && std::isfinite(result.getZ()));
    EXPECT_NEAR(result.getZ(), 0.0, 1e-9) << "cursor y " << y;
  }
}

TEST(Projector, CursorOutsideTheViewportStillProjectsAlongItsRay) {
  Host host;
  ru::Reference<Projector> projector = PlaneProjector::create(Plane(Point(0, 0, 0), Normal::z));
  // Positions beyond each edge: the ray continues the frustum, and the result stays on the plane
  // and on the ray through the position.
  for (const Point2& outside : {Point2(-40, 128), Point2(300, 128), Point2(128, -1), Point2(128, 1000)}) {
    const Point result = projector->project(outside);
    EXPECT_NEAR(result.getZ(), 0.0, 1e-9);
    Point2 back;
    ASSERT_TRUE(host.camera().project(result, back));
    EXPECT_NEAR(back.x, outside.x, 1e-6);
    EXPECT_NEAR(back.y, outside.y, 1e-6);
  }
}

TEST(Projector, LineOfZeroLengthProjectsToItsPoint) {
  Host host;
  ru::Reference<LineProjector> projector = LineProjector::create(Line(Point(1, -2, 3), Vector(0, 0, 0)));
  for (const Point2& position : {Point2(0, 0), Point2(128, 128), Point2(255, 17), Point2(-500, 900)}) {
    expectNear(projector->project(position), Point(1, -2, 3), 0.0);
  }
  expectNear(projector->project(Point(4, 4, 0)), Point(1, -2, 3), 0.0);
  projector->update(Point(5, 5, 5));
  expectNear(projector->project(Point2(10, 10)), Point(5, 5, 5), 0.0);
}

TEST(Projector, PlaneBehindTheCameraStillGivesAPoint) {
  Host host;  // eye at z = 10 looking down -z
  ru::Reference<Projector> projector = PlaneProjector::create(Plane(Point(0, 0, 20), Normal::z));
  const Point result = projector->project(Point2(128, 128));
  expectNear(result, Point(0, 0, 20), 1e-9);
}

TEST(Projector, LineProjectionGivesThePointOfTheLineNearestTheRay) {
  Host host;
  host.look(Point(0, 0, 0), Point(4, -9, 6), Vector(0, 0, 1));
  const Line line(Point(1, 1, 0), Vector(1, 0, 0));
  ru::Reference<Projector> projector = LineProjector::create(line);
  // The cursor on the screen position of a point of the line gives that point back.
  const Point onLine(3.5, 1, 0);
  Point2 position;
  ASSERT_TRUE(host.camera().project(onLine, position));
  expectNear(projector->project(position), onLine, 1e-9);
  // Off the line, the result is on the line and the segment to the ray is perpendicular to both.
  const Point2 off(position.x + 20, position.y + 35);
  const Point result = projector->project(off);
  EXPECT_NEAR(result.getY(), 1.0, 1e-12);
  EXPECT_NEAR(result.getZ(), 0.0, 1e-12);
  const Line ray = host.camera().getWorldSpaceRay(off);
  const Point nearest = ruLinear::project(result, ray);
  EXPECT_NEAR(ruLinear::dot(nearest - result, line.getDirection()), 0.0, 1e-9);
}

// --- Updates ----------------------------------------------------------------------------------

TEST(Projector, UpdateMovesTheLineThroughThePointKeepingItsDirection) {
  Host host;
  ru::Reference<LineProjector> projector = LineProjector::create(Line(Point(0, 0, 0), Vector(0, 2, 0)));
  projector->update(Point(3, 4, 5));
  expectNear(projector->getLine().getPoint(), Point(3, 4, 5), 0.0);
  EXPECT_EQ(projector->getLine().getDirection().getY(), 2.0);
  EXPECT_EQ(projector->getLine().getDirection().getX(), 0.0);
}

TEST(Projector, UpdateMovesThePlaneThroughThePointKeepingItsNormal) {
  Host host;
  ru::Reference<PlaneProjector> projector = PlaneProjector::create(Plane(Point(0, 0, 0), Normal::y));
  projector->update(Point(3, 4, 5));
  expectNear(projector->getPlane().getPoint(), Point(3, 4, 5), 0.0);
  EXPECT_TRUE(sameNormal(projector->getPlane().getNormal(), Normal::y));
  // The next projection lands on the moved plane.
  host.look(Point(0, 4, 0), Point(0, 14, 0.5), Vector(0, 0, 1));
  EXPECT_NEAR(projector->project(Point2(128, 128)).getY(), 4.0, 1e-9);
}

TEST(Projector, SupportingPlaneProjectorStartsOnTheCurrentModelingPlane) {
  Host host;
  host.planes.setPlane(Plane(Point(1, 2, 3), Normal::y));
  ru::Reference<SupportingPlaneProjector> projector = SupportingPlaneProjector::create();
  expectNear(projector->getPlane().getPoint(), Point(1, 2, 3), 0.0);
  EXPECT_TRUE(sameNormal(projector->getPlane().getNormal(), Normal::y));
}

TEST(Projector, SupportingPlaneUpdateThenModelingPlaneChangeGivesPlaneThroughPointWithNewNormalAtNextProject) {
  Host host;  // default modeling plane: normal +x
  host.look(Point(0, 0, 0), Point(7, 5, 9), Vector(0, 0, 1));
  ru::Reference<SupportingPlaneProjector> projector = SupportingPlaneProjector::create();
  EXPECT_TRUE(sameNormal(projector->getPlane().getNormal(), Normal::x));
  const Point through(2, -1, 4);
  projector->update(through);
  expectNear(projector->getPlane().getPoint(), through, 0.0);
  EXPECT_TRUE(sameNormal(projector->getPlane().getNormal(), Normal::x));

  // The view turns the modeling plane; the projector sees it at its next projection only.
  host.planes.setPlane(voDMG::viewBasedDominantModelingPlane(host.camera()));  // +z for this view
  EXPECT_TRUE(sameNormal(projector->getPlane().getNormal(), Normal::x));
  const Point2 cursor(90, 150);
  const Point result = projector->project(cursor);
  expectNear(projector->getPlane().getPoint(), through, 0.0);
  EXPECT_TRUE(sameNormal(projector->getPlane().getNormal(), Normal::z));
  EXPECT_NEAR(result.getZ(), through.getZ(), 1e-9);  // on the plane z = 4
  Point2 back;
  ASSERT_TRUE(host.camera().project(result, back));
  EXPECT_NEAR(back.x, cursor.x, 1e-6);
  EXPECT_NEAR(back.y, cursor.y, 1e-6);
}

// --- Transactions -----------------------------------------------------------------------------

TEST(Projector, AfterUpdateAndUndoGetLineGivesTheFormerValue) {
  Host host;
  ru::Reference<LineProjector> projector = LineProjector::create(Line(Point(1, 2, 3), Vector(0, 1, 0)));
  ASSERT_TRUE(host.manager().begin("move"));
  projector->update(Point(7, 8, 9));
  projector->update(Point(10, 11, 12));  // one record per transaction: the value from before it
  ASSERT_TRUE(host.manager().commit());
  expectNear(projector->getLine().getPoint(), Point(10, 11, 12), 0.0);
  ASSERT_TRUE(host.manager().undo());
  expectNear(projector->getLine().getPoint(), Point(1, 2, 3), 0.0);
  EXPECT_EQ(projector->getLine().getDirection().getY(), 1.0);
  ASSERT_TRUE(host.manager().redo());
  expectNear(projector->getLine().getPoint(), Point(10, 11, 12), 0.0);
}

TEST(Projector, AfterUpdateAndUndoGetPlaneGivesTheFormerValue) {
  Host host;
  ru::Reference<PlaneProjector> projector = PlaneProjector::create(Plane(Point(1, 2, 3), Normal::y));
  ASSERT_TRUE(host.manager().begin("move"));
  projector->update(Point(7, 8, 9));
  ASSERT_TRUE(host.manager().commit());
  ASSERT_TRUE(host.manager().begin("turn"));
  projector->setPlane(Plane(Point(0, 0, 0), Normal::x));
  ASSERT_TRUE(host.manager().commit());

  ASSERT_TRUE(host.manager().undo());
  expectNear(projector->getPlane().getPoint(), Point(7, 8, 9), 0.0);
  EXPECT_TRUE(sameNormal(projector->getPlane().getNormal(), Normal::y));
  ASSERT_TRUE(host.manager().undo());
  expectNear(projector->getPlane().getPoint(), Point(1, 2, 3), 0.0);
  ASSERT_TRUE(host.manager().redo());
  ASSERT_TRUE(host.manager().redo());
  expectNear(projector->getPlane().getPoint(), Point(0, 0, 0), 0.0);
  EXPECT_TRUE(sameNormal(projector->getPlane().getNormal(), Normal::x));
}

TEST(Projector, AfterUpdateAndUndoSupportingPlaneGivesTheFormerPlane) {
  Host host;
  ru::Reference<SupportingPlaneProjector> projector = SupportingPlaneProjector::create();
  const Plane before = projector->getPlane();
  ASSERT_TRUE(host.manager().begin("drag"));
  projector->update(Point(0, 5, 5));
  host.planes.setPlane(Plane(Point(0, 0, 0), Normal::z));
  projector->project(Point2(128, 128));  // turns the plane to +z inside the transaction
  ASSERT_TRUE(host.manager().commit());
  EXPECT_TRUE(sameNormal(projector->getPlane().getNormal(), Normal::z));
  ASSERT_TRUE(host.manager().undo());
  expectNear(projector->getPlane().getPoint(), before.getPoint(), 0.0);
  EXPECT_TRUE(sameNormal(projector->getPlane().getNormal(), before.getNormal()));
}

TEST(Projector, UndoRestoresTheProjectorTogetherWithTheDocumentEdit) {
  Host host;
  ru::Reference<voDMD::Object> object = voDMD::Object::create(host.document, nullptr);
  object->setName("before");
  ASSERT_TRUE(host.document.insert(object));
  ru::Reference<PlaneProjector> projector = PlaneProjector::create(Plane(Point(0, 0, 0), Normal::z));
  ASSERT_TRUE(host.manager().begin("drag"));
  object->setName("after");
  projector->update(Point(0, 0, 2));
  ASSERT_TRUE(host.manager().commit());
  ASSERT_TRUE(host.manager().undo());
  EXPECT_STREQ(object->name().c_str(), "before");
  expectNear(projector->getPlane().getPoint(), Point(0, 0, 0), 0.0);
}

TEST(Projector, WritesOutsideATransactionAreNotRecorded) {
  Host host;
  ru::Reference<LineProjector> projector = LineProjector::create(Line(Point(0, 0, 0), Vector(1, 0, 0)));
  projector->update(Point(1, 1, 1));
  EXPECT_EQ(projector->txnNumRecords(), 0u);
  EXPECT_FALSE(host.manager().canUndo());
  expectNear(projector->getLine().getPoint(), Point(1, 1, 1), 0.0);
}

TEST(Projector, ProjectorsLiveUnderTheCallInfosTransactionManager) {
  Host host;
  EXPECT_EQ(LineProjector::create(Line())->txnManager(), host.txn.get());
  EXPECT_EQ(PlaneProjector::create(Plane())->txnManager(), host.txn.get());
  EXPECT_EQ(SupportingPlaneProjector::create()->txnManager(), host.txn.get());
}

TEST(Projector, LastReleaseInsideATransactionRecordsTheProjectorAndLeavesUndoWorking) {
  Host host;
  ru::Reference<voDMD::Object> object = voDMD::Object::create(host.document, nullptr);
  ASSERT_TRUE(host.document.insert(object));
  ASSERT_TRUE(host.manager().begin("drag"));
  {
    ru::Reference<PlaneProjector> projector = PlaneProjector::create(Plane(Point(0, 0, 0), Normal::z));
    projector->update(Point(0, 0, 1));
    object->setName("moved");
  }  // the projector dies here, inside the transaction
  ASSERT_TRUE(host.manager().commit());
  ASSERT_TRUE(host.manager().undo());
  EXPECT_STREQ(object->name().c_str(), "");
  ASSERT_TRUE(host.manager().redo());
  EXPECT_STREQ(object->name().c_str(), "moved");
}

// --- Casts ------------------------------------------------------------------------------------

TEST(Projector, TryTypeCastOfALineProjectorToPlaneProjectorGivesNull) {
  Host host;
  ru::Reference<Projector> line = LineProjector::create(Line());
  EXPECT_FALSE(PlaneProjector::tryTypeCast(line).valid());
  EXPECT_FALSE(SupportingPlaneProjector::tryTypeCast(line).valid());
  ru::Reference<LineProjector> back = LineProjector::tryTypeCast(line);
  EXPECT_EQ(back.get(), line.get());
}

TEST(Projector, TryTypeCastOfASupportingPlaneProjectorToPlaneProjectorSucceeds) {
  Host host;
  ru::Reference<Projector> supporting = SupportingPlaneProjector::create();
  ru::Reference<PlaneProjector> plane = PlaneProjector::tryTypeCast(supporting);
  ASSERT_TRUE(plane.valid());
  EXPECT_EQ(static_cast<Projector*>(plane.get()), supporting.get());
  EXPECT_FALSE(LineProjector::tryTypeCast(supporting).valid());
  // A plain plane projector is not a supporting one.
  EXPECT_FALSE(SupportingPlaneProjector::tryTypeCast(PlaneProjector::create(Plane())).valid());
}

TEST(Projector, TryTypeCastReleasesTheGivenReference) {
  Host host;
  ru::Reference<LineProjector> line = LineProjector::create(Line());
  EXPECT_EQ(line->refCount(), 1);
  {
    ru::Reference<PlaneProjector> none = PlaneProjector::tryTypeCast(line);
    EXPECT_EQ(line->refCount(), 1);
    ru::Reference<LineProjector> same = LineProjector::tryTypeCast(line);
    EXPECT_EQ(line->refCount(), 2);
  }
  EXPECT_EQ(line->refCount(), 1);
}

// --- Modeling planes, as far as the projectors use them ---------------------------------------

TEST(ModelingPlanes, StartsOnTheOriginWithNormalXAndVisible) {
  voDMG::ModelingPlanes planes;
  EXPECT_TRUE(planes.isVisible());
  expectNear(planes.getPlane().getPoint(), Point(0, 0, 0), 0.0);
  EXPECT_TRUE(sameNormal(planes.getPlane().getNormal(), Normal::x));
}

TEST(ModelingPlanes, SetPlaneKeepsPointAndNormalAndEmitsWithItself) {
  voDMG::ModelingPlanes planes;
  int heard = 0;
  ruRTB::SignalClient client;
  planes.sigModified.addCallback([&](voDMG::ModelingPlanes* p) { heard += (p == &planes); }, client);
  planes.setPlane(Plane(Point(1, 2, 3), Normal(0, 1, 1)));
  EXPECT_EQ(heard, 1);
  expectNear(planes.getPlane().getPoint(), Point(1, 2, 3), 0.0);
  EXPECT_TRUE(sameNormal(planes.getPlane().getNormal(), Normal(0, 1, 1)));
  const Vector first = planes.getParamPlane().getFirstVector();
  EXPECT_NEAR(ruLinear::dot(first, Vector(Normal(0, 1, 1))), 0.0, 1e-12);
  planes.setVisibility(true);  // unchanged: silent
  EXPECT_EQ(heard, 1);
  planes.setVisibility(false);
  EXPECT_EQ(heard, 2);
}

TEST(ModelingPlanes, ViewBasedDominantPlaneTakesThePositiveAxisClosestToTheView) {
  Host host;
  host.look(Point(0, 0, 0), Point(1, 2, -9), Vector(0, 1, 0));
  EXPECT_TRUE(sameNormal(voDMG::viewBasedDominantModelingPlane(host.camera()).getNormal(), Normal::z));
  host.look(Point(0, 0, 0), Point(-8, 2, 1), Vector(0, 0, 1));
  EXPECT_TRUE(sameNormal(voDMG::viewBasedDominantModelingPlane(host.camera()).getNormal(), Normal::x));
  host.look(Point(0, 0, 0), Point(1, 1, 0), Vector(0, 0, 1));  // a tie between x and y goes to x
  EXPECT_TRUE(sameNormal(voDMG::viewBasedDominantModelingPlane(host.camera()).getNormal(), Normal::x));
}

// --- What a transaction sees of a projector -----------------------------------------------------

namespace {

// Writes down each call a projector makes on a serializer.
class RecordingSerializer : public voTXN::Serializer {
public:
  void beginScope(const voTXN::Object* object, int flags) override {
    calls.push_back(std::string("begin ") + (object == expected ? "self " : "other ") + std::to_string(flags));
  }
  void field(void* value, const voTXN::FieldOps& operations) override {
    // The field's own write operation saves it; reading it back as each candidate type tells
    // which one it was.
    voTXN::Writer writer;
    operations.write(writer, value);
    voTXN::Writer::Record record = writer.takeRecord();
    Line line;
    Plane plane;
    bool flag = false;
    if (voTXN::Reader(record).restore(line)) {
      calls.push_back("line");
      EXPECT_EQ(line.getPoint().getX(), lineX);
    } else if (voTXN::Reader(record).restore(plane)) {
      calls.push_back("plane");
    } else if (voTXN::Reader(record).restore(flag)) {
      calls.push_back("base");
    } else {
      calls.push_back("unknown");
    }
  }
  void endScope() override { calls.push_back("end"); }
  using voTXN::Serializer::field;

  const voTXN::Object* expected = nullptr;
  double lineX = 0.0;
  std::vector<std::string> calls;
};

}  // namespace

TEST(Projector, OnTransactOpensItsScopeWithZeroPassesTheBaseThenItsOneFieldAndCloses) {
  Host host;
  ru::Reference<LineProjector> line = LineProjector::create(Line(Point(4, 0, 0), Vector(0, 0, 1)));
  RecordingSerializer lineCalls;
  lineCalls.expected = line.get();
  lineCalls.lineX = 4.0;
  line->onTransact(lineCalls);
  EXPECT_EQ(lineCalls.calls, (std::vector<std::string>{"begin self 0", "base", "line", "end"}));

  ru::Reference<PlaneProjector> plane = PlaneProjector::create(Plane(Point(0, 0, 0), Normal::z));
  RecordingSerializer planeCalls;
  planeCalls.expected = plane.get();
  plane->onTransact(planeCalls);
  EXPECT_EQ(planeCalls.calls, (std::vector<std::string>{"begin self 0", "base", "plane", "end"}));

  // The supporting projector adds a scope of its own around the plane projector's, and no field.
  ru::Reference<SupportingPlaneProjector> supporting = SupportingPlaneProjector::create();
  RecordingSerializer supportingCalls;
  supportingCalls.expected = supporting.get();
  supporting->onTransact(supportingCalls);
  EXPECT_EQ(supportingCalls.calls,
            (std::vector<std::string>{"begin self 0", "begin self 0", "base", "plane", "end", "end"}));
}
