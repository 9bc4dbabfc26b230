// Databases, worlds and the clip-plane node.

#include "glscene.h"

#include "platform/geometry/construct.h"

#include <gtest/gtest.h>

using namespace voGR;
using voGR::test::GLScene;
using ruLinear::Point;

namespace {

ru::Reference<ruGeom::CompactMesh> cuboid(const Point& a, const Point& b) {
  ru::Reference<ruGeom::CompactMesh> mesh(new ruGeom::CompactMesh());
  ruGeom::constructCuboid(ruLinear::Range3d(a, b), *mesh);
  return mesh;
}

ru::Reference<ruGeom::CompactMesh> segment(const Point& a, const Point& b) {
  ru::Reference<ruGeom::CompactMesh> mesh(new ruGeom::CompactMesh());
  ruGeom::constructLineSegment(a, b, *mesh);
  return mesh;
}

}  // namespace

TEST(DatabaseGLTest, WorldFiltersSeeEachItemOnceAtEmission) {
  GLScene scene;
  int asked = 0;
  const int index = scene.database->addWorld(new ListWorld(true), [&](DrawItem&) {
    ++asked;
    return true;
  });
  GraphEditor(scene.system->getGraph()).createEdge(scene.database->getWorldNode(index), scene.render, "world");
  int source = 0;
  {
    Draw draw(*scene.context, &source, false);
    draw.setMesh(cuboid(Point(0, 0, 0), Point(1, 1, 1)));
    draw.emit();
    draw.emit();
    draw.emit();
  }
  EXPECT_EQ(asked, 3);
  scene.frame("database_filters_once");
  scene.frame("database_filters_once");
  EXPECT_EQ(asked, 3);
  EXPECT_EQ(scene.database->getWorld(index)->size(), 3u);
}

TEST(DatabaseGLTest, AnItemJoinsEveryAcceptingWorldAndTheirFiltersSeeItsState) {
  GLScene scene;
  Database& db = *scene.database;
  const int triangles = db.addWorld(new ListWorld(true), [](DrawItem& i) { return i.getSpace() == 0 && i.isTriangles(); });
  const int lines = db.addWorld(new ListWorld(true), [](DrawItem& i) { return i.getSpace() == 0 && !i.isTriangles(); });
  const int active = db.addWorld(new ListWorld(true), [](DrawItem& i) { return i.isActive(); });
  const int screen = db.addWorld(new ListWorld(true), [](DrawItem& i) { return i.getSpace() == 1; });
  const int hover = db.addWorld(new ListWorld(true), [](DrawItem& i) { return i.contains("KLTHoverTag") && !i.isActive(); });
  int source = 0;
  {
    Draw draw(*scene.context, &source, false);
    draw.setMesh(cuboid(Point(0, 0, 0), Point(1, 1, 1)));
    draw.setActive(true);
    draw.emit();  // triangles, active
    draw.setActive(false);
    draw.addTag("KLTHoverTag");
    draw.setMesh(segment(Point(0, 0, 0), Point(1, 0, 0)));
    draw.emit();  // lines, hover
    draw.removeTag("KLTHoverTag");
    draw.removeTag("KLTHoverTag");  // harmless
    draw.setSpace(SpaceScreen);
    draw.emit();  // screen lines
  }
  EXPECT_EQ(db.getWorld(triangles)->size(), 1u);
  EXPECT_EQ(db.getWorld(lines)->size(), 1u);
  EXPECT_EQ(db.getWorld(active)->size(), 1u);
  EXPECT_EQ(db.getWorld(screen)->size(), 1u);
  EXPECT_EQ(db.getWorld(hover)->size(), 1u);
  EXPECT_EQ(db.getWorld(0)->size(), 3u);  // the scene's world accepts every item
  EXPECT_EQ(db.getAllItems().size(), 3u);
}

TEST(DatabaseGLTest, ClearingOrDestroyingASourcesDrawDataEmptiesItFromEveryWorld) {
  GLScene scene;
  Database& db = *scene.database;
  const int second = db.addWorld(new ListWorld(true), {});
  int a = 0, b = 0;
  DrawData* dataA = scene.system->getDrawData(&a, true);
  DrawData* dataB = scene.system->getDrawData(&b, true);
  ASSERT_NE(dataA, nullptr);
  EXPECT_EQ(scene.system->getDrawData(&a, false), dataA);
  {
    Draw draw(*scene.context, &a, false);
    draw.setMesh(cuboid(Point(0, 0, 0), Point(1, 1, 1)));
    draw.emit();
    draw.emit();
  }
  {
    Draw draw(*scene.context, &b, false);
    draw.setMesh(cuboid(Point(0, 0, 0), Point(1, 1, 1)));
    draw.emit();
  }
  EXPECT_EQ(db.getWorld(second)->size(), 3u);
  ru::Reference<DrawItem> kept = dataA->getItems().front();
  dataA->clear();
  EXPECT_EQ(db.getWorld(0)->size(), 1u);
  EXPECT_EQ(db.getWorld(second)->size(), 1u);
  EXPECT_EQ(db.getAllItems().size(), 1u);
  EXPECT_EQ(kept->refCount(), 1);  // only the test holds it now
  delete dataB;
  EXPECT_EQ(db.getWorld(0)->size(), 0u);
  EXPECT_EQ(db.getWorld(second)->size(), 0u);
  EXPECT_EQ(scene.system->getDrawData(&b, false), nullptr);
  // Opening a Draw again replaces the source's items.
  {
    Draw draw(*scene.context, &a, false);
    draw.setMesh(cuboid(Point(0, 0, 0), Point(1, 1, 1)));
    draw.emit();
  }
  {
    Draw draw(*scene.context, &a, false);
    draw.emit();
  }
  EXPECT_EQ(db.getWorld(0)->size(), 1u);
  {
    Draw emitsNothing(*scene.context, &a, false);
  }
  EXPECT_EQ(db.getWorld(0)->size(), 0u);
  delete dataA;
}

TEST(DatabaseGLTest, GetBoundingBoxUnitesItemsInWorldSpaceAndSkipsWhatThePredicateNames) {
  GLScene scene;
  int source = 0;
  {
    Draw draw(*scene.context, &source, false);
    draw.setMesh(cuboid(Point(0, 0, 0), Point(1, 1, 1)));
    draw.setTransform(ruLinear::AffineMatrix::translation(ruLinear::Vector(10, 0, 0)));
    draw.emit();
    draw.setType(TypeHelper);
    draw.setTransform(ruLinear::AffineMatrix::Identity);
    draw.setMesh(cuboid(Point(-5, -5, -5), Point(-4, -4, -4)));
    draw.emit();
  }
  World* world = scene.worldNode->getWorld();
  ruGeom::BoundingBox box(Point(100, 100, 100), Point(101, 101, 101));  // reset by the call
  world->getBoundingBox(box, {});
  ASSERT_TRUE(box.valid());
  EXPECT_DOUBLE_EQ(box.getMin().x, -5);
  EXPECT_DOUBLE_EQ(box.getMax().x, 11);
  world->getBoundingBox(box, [](DrawItem& item) { return item.getType() != TypeOrdinary; });
  ASSERT_TRUE(box.valid());
  EXPECT_DOUBLE_EQ(box.getMin().x, 10);
  EXPECT_DOUBLE_EQ(box.getMax().x, 11);
  EXPECT_DOUBLE_EQ(box.getMin().y, 0);
  world->getBoundingBox(box, [](DrawItem&) { return true; });
  EXPECT_FALSE(box.valid());
  // The camera controls' box: the callback when set.
  bool called = false;
  scene.database->setCameraControlsBBox([&](ruGeom::BoundingBox& out) {
    called = true;
    out = ruGeom::BoundingBox(Point(1, 2, 3), Point(4, 5, 6));
  });
  ruGeom::BoundingBox framing;
  scene.database->getCameraControlsBBox(framing);
  EXPECT_TRUE(called);
  EXPECT_DOUBLE_EQ(framing.getMax().z, 6);
}

TEST(DatabaseGLTest, CameraClipPlanesAreFittedToTheWorlds) {
  GLScene scene;
  GraphEditor editor(scene.system->getGraph());
  auto* clip = new UpdateClipPlanesNode();
  auto* renCamera = new CameraNode();
  renCamera->setName("RenCam");
  editor.addNode(clip);
  editor.addNode(renCamera);
  editor.createEdge(scene.cameraNode, clip, "viewCamera");
  editor.createEdge(scene.worldNode, clip, "world");
  editor.createEdge(clip, renCamera, "renCamera");
  const ruGeom::Camera view = GLScene::camera(Point(0, 0, 50), Point(0, 0, 0), ruLinear::Vector(0, 1, 0));
  scene.setCamera(view);
  // Empty worlds: the view camera as it is.
  EXPECT_DOUBLE_EQ(renCamera->getCamera().getFrustum().getNear(), view.getFrustum().getNear());
  int source = 0;
  {
    Draw draw(*scene.context, &source, false);
    draw.setMesh(cuboid(Point(-1, -1, -2), Point(1, 1, 3)));  // eye depths 47 to 52
    draw.emit();
  }
  // Before any draw: computed on demand.
  const ruGeom::AngleAspect fitted = renCamera->getCamera().getFrustum();
  EXPECT_GT(fitted.getNear(), 40.0);
  EXPECT_LE(fitted.getNear(), 47.0);
  EXPECT_GE(fitted.getFar(), 52.0);
  EXPECT_LT(fitted.getFar(), 55.0);
  EXPECT_DOUBLE_EQ(fitted.getAngle(), view.getFrustum().getAngle());
  EXPECT_DOUBLE_EQ(renCamera->getCamera().getEyeLocation().z, view.getEyeLocation().z);
  // A world reaching behind the eye keeps near positive.
  {
    Draw draw(*scene.context, &source, false);
    draw.setMesh(cuboid(Point(-1, -1, -10), Point(1, 1, 60)));
    draw.emit();
  }
  EXPECT_GT(renCamera->getCamera().getFrustum().getNear(), 0.0);
  EXPECT_GE(renCamera->getCamera().getFrustum().getFar(), 60.0);
}
