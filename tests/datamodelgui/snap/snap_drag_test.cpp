// A drag end to end: input dispatched through the test host to a tool that moves an object with a
// snap client and a plane projector, over a document drawn on the off-screen context. The cursor
// catches a corner of another object, holds it, tears away, and one undo puts the object and the
// projector's plane back together.

#include "datamodelgui/events/dispatcher.h"
#include "datamodelgui/events/gesture.h"
#include "datamodelgui/snap/projector.h"
#include "datamodelgui/snap/snapitems.h"
#include "datamodelgui/snap/snapmanager.h"
#include "platform/datamodel/actions.h"
#include "tests/datamodelgui/draw/drawfixture.h"
#include "tests/testhost/testhost.h"

#include <gtest/gtest.h>

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

}  // namespace

TEST(SnapDragGLTest, ADragCatchesAMeshCornerHoldsItTearsAwayAndOneUndoRestoresTransformAndPlane) {
  testhost::TestHost host;
  host.broadcaster().addHandler<voEV::InstallGesturesMsg>(voSupport::Priority(1, 0), [](voEV::InstallGesturesMsg& message) {
    message.parser().pushBackGesture(new voEV::DragMouse);
  });
  host.installGestures();
  voGR::test::GLScene scene;
  ASSERT_TRUE(scene.system);
  voDMA::TxnManager txn;
  voDMD::Document document{*txn.get()};
  voDMG::SelectionSet selection;
  voDMG::CandidateSet candidates;
  voDMG::SnapManager snapManager;
  voSupport::CallInfo& info = host.callInfo();
  info.set<voGR::DrawSystem>(scene.system.get());
  info.set<voDMD::Document>(&document);
  info.set<voDMD::Camera>(document.camera());
  info.set<voDMA::TxnManager>(&txn);
  info.set<voDMG::SelectionSet>(&selection);
  info.set<voDMG::CandidateSet>(&candidates);
  info.set<voDMG::SnapManager>(&snapManager);
  document.camera()->set(voGR::test::GLScene::camera(Point(0, 0, 10), Point(0, 0, 0), Vector(0, 1, 0)));

  auto add = [&](const ruLinear::Range3d& range, const ruLinear::AffineMatrix& placement) {
    ru::Reference<ruGeom::CompactMesh> mesh = new ruGeom::CompactMesh();
    ruGeom::constructCuboid(range, *mesh);
    ru::Reference<voDMD::Object> object = voDMD::Object::create(document, voDMD::MeshClass::get());
    object->addAttribute<voDMD::Mesh>(mesh);
    object->addAttribute<voDMD::Transform>(placement);
    object->addAttribute<voDMD::BoundingBox>();
    document.insert(object, nullptr);
    return object.get();
  };
  txn.get()->begin("populate");
  voDMD::Object* moved = add(ruLinear::Range3d(Point(-0.25, -0.25, 0), Point(0.25, 0.25, 0.5)), translation(Vector(-2, 0, 0)));
  add(ruLinear::Range3d(Point(0.5, 0, 0), Point(1.5, 1, 0.5)), ruLinear::AffineMatrix::Identity);
  txn.get()->commit();
  auto* documentDraw = new voDMG::DocumentDraw(&document);
  info.set<voDMG::DocumentDraw>(documentDraw);
  documentDraw->draw();

  voGR::HitTestConfig config;
  config.secondFilter = new NotOwnedBy(documentDraw->getDraw(moved));
  auto tool = std::make_unique<MoveTool>(host.dispatcher(), *txn.get(), moved, config);
  const auto positionOf = [&]() { return moved->findAttribute<voDMD::Transform>()->getObjToWorld().getTranslation(); };

  Point2 corner;
  ASSERT_TRUE(document.camera()->get().project(Point(1.5, 1, 0.5), corner));
  const voEV::Point cornerPixel(corner);
  auto at = [&](int dx, int dy) { return voEV::Point(cornerPixel.x + dx, cornerPixel.y + dy); };
  Point2 start;
  document.camera()->get().project(Point(-2, -1, 0), start);

  auto send = [&](const ru::Reference<voEV::MouseEvent>& event) { host.dispatch(*event); };
  send(voEV::MouseEvent::create(voEV::MouseButtonPress, voEV::ButtonLeft, voEV::ButtonLeft, 0, 1, voEV::Point(start), host.now()));
  host.advance(0.05);
  // Off everything: the object follows the cursor on the bed.
  const voEV::Point open(voEV::Point(start).x + 40, voEV::Point(start).y);
  send(voEV::MouseEvent::create(voEV::MouseMove, 0, voEV::ButtonLeft, 0, 0, open, host.now()));
  host.advance(0.05);
  send(voEV::MouseEvent::create(voEV::MouseMove, 0, voEV::ButtonLeft, 0, 0, voEV::Point(open.x + 10, open.y), host.now()));
  ASSERT_TRUE(tool->projector);
  EXPECT_FALSE(tool->lastResult);
  {
    const Point expected = tool->projector->project(voEV::Point(open.x + 10, open.y).asPoint2());
    EXPECT_NEAR(positionOf().getX(), expected.x, 1e-9);
    EXPECT_NEAR(positionOf().getZ(), 0.0, 1e-9);
  }
  // On the other object's top face, 5 pixels from its corner: the corner catches.
  host.advance(0.05);
  send(voEV::MouseEvent::create(voEV::MouseMove, 0, voEV::ButtonLeft, 0, 0, at(-4, -3), host.now()));
  ASSERT_TRUE(tool->lastResult);
  auto* vertex = dynamic_cast<voDMG::MeshVertexSnapResult*>(tool->lastResult.get());
  ASSERT_NE(vertex, nullptr);
  EXPECT_NEAR(positionOf().getX(), 1.5, 1e-9);
  EXPECT_NEAR(positionOf().getY(), 1.0, 1e-9);
  EXPECT_NEAR(positionOf().getZ(), 0.5, 1e-9);
  EXPECT_NEAR(tool->projector->getPlane().getPoint().z, 0.5, 1e-9);
  // Still within reach: held.
  host.advance(0.05);
  send(voEV::MouseEvent::create(voEV::MouseMove, 0, voEV::ButtonLeft, 0, 0, at(-5, -4), host.now()));
  ASSERT_TRUE(dynamic_cast<voDMG::MeshVertexSnapResult*>(tool->lastResult.get()));
  EXPECT_NEAR(positionOf().getX(), 1.5, 1e-9);
  // Further in on the face, past the reach of every corner: the surface point under the cursor.
  host.advance(0.05);
  send(voEV::MouseEvent::create(voEV::MouseMove, 0, voEV::ButtonLeft, 0, 0, at(-14, -12), host.now()));
  ASSERT_TRUE(dynamic_cast<voDMG::MeshFaceSnapResult*>(tool->lastResult.get()));
  EXPECT_NEAR(positionOf().getZ(), 0.5, 1e-6);
  EXPECT_LT(positionOf().getX(), 1.5 - 1e-3);
  // Off the object: torn away, the cursor projected on the plane through the last point (z 0.5).
  host.advance(0.05);
  const voEV::Point away(cornerPixel.x + 40, cornerPixel.y + 30);
  send(voEV::MouseEvent::create(voEV::MouseMove, 0, voEV::ButtonLeft, 0, 0, away, host.now()));
  EXPECT_FALSE(tool->lastResult);
  EXPECT_FALSE(tool->snap.getSnapItem());
  EXPECT_NEAR(positionOf().getZ(), 0.5, 1e-9);
  EXPECT_GT(positionOf().getX(), 1.5);
  send(voEV::MouseEvent::create(voEV::MouseButtonRelease, voEV::ButtonLeft, 0, 0, 1, away, host.now()));
  EXPECT_FALSE(snapManager.activeItem(&tool->snap));

  // One undo: the object and the projector's plane go back together.
  ASSERT_TRUE(txn.get()->undo());
  EXPECT_NEAR(positionOf().getX(), -2.0, 1e-12);
  EXPECT_NEAR(positionOf().getZ(), 0.0, 1e-12);
  EXPECT_NEAR(tool->projector->getPlane().getPoint().z, 0.0, 1e-12);

  tool.reset();
  snapManager.clearItems();
  documentDraw->destroy();
}
