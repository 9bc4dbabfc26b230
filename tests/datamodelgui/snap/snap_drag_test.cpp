// A drag end to end: input dispatched through the test host to a tool that moves an object with a
// snap client and a plane projector, over a document drawn on the off-screen context. The cursor
// catches a corner of another object, holds it, tears away, and one undo puts the object and the
// projector's plane back together.

#include "datamodelgui/events/dispatcher.h"
#include "datamodelgui/draw/modelingplanes.h"
#include "datamodelgui/events/gesture.h"
#include "datamodelgui/snap/projector.h"
#include "datamodelgui/snap/snapitems.h"
#include "datamodelgui/snap/snapmanager.h"
#include "platform/datamodel/actions.h"
#include "tests/datamodelgui/draw/drawfixture.h"
#include "tests/testhost/testhost.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>

using ruLinear::Point;
using ruLinear::Point2;
using ruLinear::Vector;

namespace {

ruLinear::AffineMatrix translation(const Vector& by) {
  ruLinear::AffineMatrix m;
  m.translate(by);
  return m;
}

// Keeps the dragged object out of its own snapping.
class NotOwnedBy : public voGR::HitFilter {
public:
  explicit NotOwnedBy(const voDMG::ObjectDraw* owner) : owner_(owner) {}

private:
  bool filter(const voGR::DrawItem& item) const override { return item.getObjectDrawOwner() != owner_; }
  const voDMG::ObjectDraw* owner_;
};

// The tool: a mouse drag moves `object` so that its origin follows the snapped point, or the
// cursor projected on the plane of its last position.
class MoveTool : public voEV::Client {
public:
  MoveTool(voEV::Dispatcher& dispatcher, voTXN::Manager& manager, voDMD::Object* object, voGR::HitTestConfig config)
      : Client(dispatcher, false, false), manager_(manager), object_(object), snap(std::move(config)) {}

  bool wantsInteraction(voEV::InteractionType interaction, const voEV::Event&) override {
    return interaction == voEV::DragMouseInteraction;
  }
  void interactionStarted(voEV::InteractionType, const voEV::Event&) override {
    manager_.begin("move");
    projector = voDMG::PlaneProjector::create(ruLinear::Plane(Point(0, 0, 0), ruLinear::Normal::z));
    snap.beginSnap();
  }
  void interaction(voEV::InteractionType, const voEV::Event& event) override {
    const auto* mouse = dynamic_cast<const voEV::MouseEvent*>(&event);
    if (!mouse || mouse->getType() != voEV::MouseMove) return;
    const Point2 cursor = mouse->getPosition().asPoint2();
    lastResult = snap.snap(cursor);
    Point target = projector->project(cursor);
    if (lastResult && lastResult->hasPosition()) target = lastResult->getPosition();
    if (lastResult) lastResult->setDraw(nullptr);
    projector->update(target);
    object_->findAttribute<voDMD::Transform>()->setObjToWorld(translation(target - Point(0, 0, 0)));
    if (auto* draw = voSupport::ci().find<voDMG::DocumentDraw>()) draw->draw();
  }
  void interactionFinished(voEV::InteractionType, const voEV::Event&) override {
    snap.endSnap();
    manager_.commit();
  }

  voTXN::Manager& manager_;
  voDMD::Object* object_;
  voDMG::SnapClient snap;
  ru::Reference<voDMG::PlaneProjector> projector;
  ru::Reference<voDMG::SnapResult> lastResult;
};

// The document of the drags below on the off-screen context: the box to move, 0.5 wide, at
// (-2, 0, 0), and another box from (0.5, 0, 0) to (1.5, 1, 0.5) to snap to; the camera looks down
// from (0, 0, 10); the tool keeps the moved box out of its own snapping.
struct DragScene {
  testhost::TestHost host;
  voGR::test::GLScene scene;
  voDMA::TxnManager txn;
  voDMD::Document document{*txn.get()};
  voDMG::SelectionSet selection;
  voDMG::CandidateSet candidates;
  voDMG::SnapManager snapManager;
  voDMG::ModelingPlanes planes;
  voDMG::DocumentDraw* documentDraw = nullptr;
  voDMD::Object* moved = nullptr;
  voDMD::Object* other = nullptr;
  std::unique_ptr<MoveTool> tool;

  DragScene() {
    host.broadcaster().addHandler<voEV::InstallGesturesMsg>(voSupport::Priority(1, 0), [](voEV::InstallGesturesMsg& message) {
      message.parser().pushBackGesture(new voEV::DragMouse);
    });
    host.installGestures();
    if (!scene.system) return;
    voSupport::CallInfo& info = host.callInfo();
    info.set<voGR::DrawSystem>(scene.system.get());
    info.set<voDMD::Document>(&document);
    info.set<voDMD::Camera>(document.camera());
    info.set<voDMA::TxnManager>(&txn);
    info.set<voDMG::SelectionSet>(&selection);
    info.set<voDMG::CandidateSet>(&candidates);
    info.set<voDMG::SnapManager>(&snapManager);
    info.set<voDMG::ModelingPlanes>(&planes);
    document.camera()->set(voGR::test::GLScene::camera(Point(0, 0, 10), Point(0, 0, 0), Vector(0, 1, 0)));

    txn.get()->begin("populate");
    moved = add(ruLinear::Range3d(Point(-0.25, -0.25, 0), Point(0.25, 0.25, 0.5)), translation(Vector(-2, 0, 0)));
    other = add(ruLinear::Range3d(Point(0.5, 0, 0), Point(1.5, 1, 0.5)), ruLinear::AffineMatrix::Identity);
    txn.get()->commit();
    documentDraw = new voDMG::DocumentDraw(&document);
    info.set<voDMG::DocumentDraw>(documentDraw);
    documentDraw->draw();

    voGR::HitTestConfig config;
    // Neither seen nor hiding anything: the moved box may come to stand in front of the eye.
    config.secondFilter = new NotOwnedBy(documentDraw->getDraw(moved));
    config.firstFilter = config.secondFilter;
    tool = std::make_unique<MoveTool>(host.dispatcher(), *txn.get(), moved, config);
  }
  ~DragScene() {
    tool.reset();
    snapManager.clearItems();
    if (documentDraw) documentDraw->destroy();
  }

  voDMD::Object* add(const ruLinear::Range3d& range, const ruLinear::AffineMatrix& placement) {
    ru::Reference<ruGeom::CompactMesh> mesh = new ruGeom::CompactMesh();
    ruGeom::constructCuboid(range, *mesh);
    ru::Reference<voDMD::Object> object = voDMD::Object::create(document, voDMD::MeshClass::get());
    object->addAttribute<voDMD::Mesh>(mesh);
    object->addAttribute<voDMD::Transform>(placement);
    object->addAttribute<voDMD::BoundingBox>();
    document.insert(object, nullptr);
    return object.get();
  }
  Vector position() const { return moved->findAttribute<voDMD::Transform>()->getObjToWorld().getTranslation(); }
  Point2 pixel(const Point& world) const {
    Point2 out;
    document.camera()->get().project(world, out);
    return out;
  }
  void press(const voEV::Point& at) {
    host.dispatch(*voEV::MouseEvent::create(voEV::MouseButtonPress, voEV::ButtonLeft, voEV::ButtonLeft, 0, 1, at, host.now()));
  }
  void move(const voEV::Point& to) {
    host.advance(0.05);
    host.dispatch(*voEV::MouseEvent::create(voEV::MouseMove, 0, voEV::ButtonLeft, 0, 0, to, host.now()));
  }
  void release(const voEV::Point& at) {
    host.advance(0.05);
    host.dispatch(*voEV::MouseEvent::create(voEV::MouseButtonRelease, voEV::ButtonLeft, 0, 0, 1, at, host.now()));
  }
  // Whether the client's list of the last move holds `item`.
  bool listed(const voDMG::SnapItem* item) const {
    const auto* list = snapManager.items(&tool->snap);
    if (!list) return false;
    for (const auto& entry : *list)
      if (entry.get() == item) return true;
    return false;
  }
};

bool finite(const Point& p) { return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z); }
bool finite(const Vector& v) { return std::isfinite(v.getX()) && std::isfinite(v.getY()) && std::isfinite(v.getZ()); }

}  // namespace

TEST(SnapDragGLTest, ADragCatchesAMeshCornerHoldsItTearsAwayAndOneUndoRestoresTransformAndPlane) {
  DragScene drag;
  ASSERT_TRUE(drag.scene.system);
  MoveTool* tool = drag.tool.get();
  const auto positionOf = [&]() { return drag.position(); };

  const Point2 corner = drag.pixel(Point(1.5, 1, 0.5));
  const voEV::Point cornerPixel(corner);
  auto at = [&](int dx, int dy) { return voEV::Point(cornerPixel.x + dx, cornerPixel.y + dy); };
  const Point2 start = drag.pixel(Point(-2, -1, 0));

  drag.press(voEV::Point(start));
  // Off everything: the object follows the cursor on the bed.
  const voEV::Point open(voEV::Point(start).x + 40, voEV::Point(start).y);
  drag.move(open);
  drag.move(voEV::Point(open.x + 10, open.y));
  ASSERT_TRUE(tool->projector);
  EXPECT_FALSE(tool->lastResult);
  {
    const Point expected = tool->projector->project(voEV::Point(open.x + 10, open.y).asPoint2());
    EXPECT_NEAR(positionOf().getX(), expected.x, 1e-9);
    EXPECT_NEAR(positionOf().getZ(), 0.0, 1e-9);
  }
  // On the other object's top face, 5 pixels from its corner: the corner catches.
  drag.move(at(-4, -3));
  ASSERT_TRUE(tool->lastResult);
  auto* vertex = dynamic_cast<voDMG::MeshVertexSnapResult*>(tool->lastResult.get());
  ASSERT_NE(vertex, nullptr);
  EXPECT_NEAR(positionOf().getX(), 1.5, 1e-9);
  EXPECT_NEAR(positionOf().getY(), 1.0, 1e-9);
  EXPECT_NEAR(positionOf().getZ(), 0.5, 1e-9);
  EXPECT_NEAR(tool->projector->getPlane().getPoint().z, 0.5, 1e-9);
  // Still within reach: held.
  drag.move(at(-5, -4));
  ASSERT_TRUE(dynamic_cast<voDMG::MeshVertexSnapResult*>(tool->lastResult.get()));
  EXPECT_NEAR(positionOf().getX(), 1.5, 1e-9);
  // Further in on the face, past the reach of every corner: the surface point under the cursor.
  drag.move(at(-14, -12));
  ASSERT_TRUE(dynamic_cast<voDMG::MeshFaceSnapResult*>(tool->lastResult.get()));
  EXPECT_NEAR(positionOf().getZ(), 0.5, 1e-6);
  EXPECT_LT(positionOf().getX(), 1.5 - 1e-3);
  // Off the object: torn away, the cursor projected on the plane through the last point (z 0.5).
  const voEV::Point away(cornerPixel.x + 40, cornerPixel.y + 30);
  drag.move(away);
  EXPECT_FALSE(tool->lastResult);
  EXPECT_FALSE(tool->snap.getSnapItem());
  EXPECT_NEAR(positionOf().getZ(), 0.5, 1e-9);
  EXPECT_GT(positionOf().getX(), 1.5);
  drag.release(away);
  EXPECT_FALSE(drag.snapManager.activeItem(&tool->snap));

  // One undo: the object and the projector's plane go back together.
  ASSERT_TRUE(drag.txn.get()->undo());
  EXPECT_NEAR(positionOf().getX(), -2.0, 1e-12);
  EXPECT_NEAR(positionOf().getZ(), 0.0, 1e-12);
  EXPECT_NEAR(tool->projector->getPlane().getPoint().z, 0.0, 1e-12);
}

TEST(SnapDragGLTest, ACursorOutsideTheViewportDuringADragOverMeshesGivesNoResultAndNothingStale) {
  DragScene drag;
  ASSERT_TRUE(drag.scene.system);
  MoveTool* tool = drag.tool.get();
  // The other box's mesh is offered as a static item too, so its search runs at every move
  // whatever the hit test finds.
  tool->snap.addFactory(new voDMG::MeshSnapFactory(drag.other->findAttribute<voDMD::Mesh>()));
  const Point2 corner = drag.pixel(Point(1.5, 1, 0.5));
  const Point2 start = drag.pixel(Point(-2, -1, 0));
  drag.press(voEV::Point(start));
  drag.move(voEV::Point(start.x + 40, start.y));
  drag.move(voEV::Point(corner.x - 4, corner.y - 3));
  ASSERT_TRUE(dynamic_cast<voDMG::MeshVertexSnapResult*>(tool->lastResult.get()));
  const ru::Reference<voDMG::SnapItem> caught = tool->snap.getSnapItem();
  ASSERT_TRUE(caught);

  const double huge = 3e12;
  bool first = true;
  for (const Point2& outside : {Point2{-40, 128}, Point2{300, 128}, Point2{128, -1}, Point2{128, 256},
                                Point2{-huge, 5}, Point2{5, huge}}) {
    drag.move(voEV::Point(outside));
    EXPECT_FALSE(tool->lastResult) << outside.x << ", " << outside.y;
    EXPECT_FALSE(tool->snap.getSnapItem());
    EXPECT_FALSE(drag.snapManager.activeItem(&tool->snap));
    // The list of the move that tears it was gathered while it was still active; after that
    // move it is gone for good.
    if (!first) {
      EXPECT_FALSE(drag.listed(caught.get()));
    }
    first = false;
    EXPECT_TRUE(finite(drag.position()));
  }
  // Cursors no pixel can stand for, straight to the client.
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double infinity = std::numeric_limits<double>::infinity();
  for (const Point2& broken : {Point2{nan, 100}, Point2{100, nan}, Point2{infinity, 100}, Point2{100, -infinity}}) {
    EXPECT_FALSE(tool->snap.snap(broken));
    EXPECT_FALSE(tool->snap.getSnapItem());
    EXPECT_FALSE(drag.snapManager.activeItem(&tool->snap));
    EXPECT_FALSE(drag.listed(caught.get()));
  }
  // Back on the box: a fresh item catches the corner again.
  drag.move(voEV::Point(corner.x - 4, corner.y - 3));
  ASSERT_TRUE(dynamic_cast<voDMG::MeshVertexSnapResult*>(tool->lastResult.get()));
  EXPECT_NE(tool->snap.getSnapItem().get(), caught.get());
  EXPECT_NEAR(drag.position().getX(), 1.5, 1e-9);
  drag.release(voEV::Point(corner.x - 4, corner.y - 3));
  EXPECT_FALSE(drag.snapManager.activeItem(&tool->snap));
}

TEST(SnapDragGLTest, ACameraLookingAlongTheModelingPlaneDuringADragGivesFinitePointsAndNothingStale) {
  DragScene drag;
  ASSERT_TRUE(drag.scene.system);
  MoveTool* tool = drag.tool.get();
  drag.planes.setPlane(ruLinear::Plane(Point(0, 0, 0), ruLinear::Normal::z));
  tool->snap.addFactory(new voDMG::ModelingPlaneSnapItemFactory());
  // The eye on the plane z = 0, looking along it: the middle row's rays run in the plane.
  drag.document.camera()->set(voGR::test::GLScene::camera(Point(0, -10, 0), Point(0, 0, 0), Vector(0, 0, 1)));
  drag.documentDraw->draw();
  const Point2 start = drag.pixel(Point(-2, -0.25, 0.25));
  const Point2 side = drag.pixel(Point(1.0, 0.0, 0.25));  // the other box's face towards the eye
  const double horizon = 128.0;
  ASSERT_NEAR(drag.pixel(Point(5, 0, 0)).y, horizon, 1e-9);

  drag.press(voEV::Point(start));
  drag.move(voEV::Point(start.x + 40, start.y));
  const auto check = [&](const char* where) {
    SCOPED_TRACE(where);
    EXPECT_TRUE(finite(drag.position()));
    ASSERT_TRUE(tool->projector);
    EXPECT_TRUE(finite(tool->projector->getPlane().getPoint()));
    if (tool->lastResult && tool->lastResult->hasPosition()) {
      EXPECT_TRUE(finite(tool->lastResult->getPosition()));
    }
  };
  check("leaving the start");
  for (const Point2& cursor : {Point2{60, horizon}, Point2{200, horizon}, Point2{128, horizon + 0.5},
                               Point2{128, horizon - 0.5}, Point2{30, 250}, Point2{30, 3}}) {
    drag.move(voEV::Point(cursor));
    check("off the boxes");
    // Only the modeling plane is in reach, and it answers however the ray runs.
    ASSERT_TRUE(tool->lastResult);
    EXPECT_TRUE(voDMG::ModelingPlaneSnapResult::asModelingPlaneSnapResult(tool->lastResult));
    EXPECT_EQ(tool->snap.getSnapItem()->priority(), voDMG::SnapPriorityPlane);
  }
  // On the other box's side the mesh outranks the plane.
  drag.move(voEV::Point(side));
  check("on the box");
  ASSERT_TRUE(tool->lastResult);
  EXPECT_EQ(tool->snap.getSnapItem()->priority(), voDMG::SnapPriorityMesh);
  const ru::Reference<voDMG::SnapItem> onBox = tool->snap.getSnapItem();
  // Back along the plane, the mesh item has torn and the plane holds again.
  drag.move(voEV::Point(Point2{60, horizon}));
  check("back on the horizon");
  ASSERT_TRUE(tool->lastResult);
  EXPECT_EQ(tool->snap.getSnapItem()->priority(), voDMG::SnapPriorityPlane);
  drag.move(voEV::Point(Point2{200, horizon}));
  EXPECT_EQ(tool->snap.getSnapItem()->priority(), voDMG::SnapPriorityPlane);
  EXPECT_FALSE(drag.listed(onBox.get()));
  drag.release(voEV::Point(Point2{60, horizon}));
  EXPECT_FALSE(drag.snapManager.activeItem(&tool->snap));
  EXPECT_FALSE(tool->snap.getSnapItem());
  // One undo puts the box back where it started.
  ASSERT_TRUE(drag.txn.get()->undo());
  EXPECT_NEAR(drag.position().getX(), -2.0, 1e-12);
  EXPECT_NEAR(drag.position().getZ(), 0.0, 1e-12);
}
