// The modeling plane turned by the view, its signal, and its drawing; the origin axes' drawing.
// The drawing tests render through the document surface on the off-screen context.

#include "datamodelgui/draw/modelingplanes.h"
#include "datamodelgui/draw/originaxis.h"
#include "platform/graphics/shader.h"
#include "tests/datamodelgui/draw/surfacefixture.h"

#include <gtest/gtest.h>

#include <cmath>
#include <algorithm>
#include <cstdlib>
#include <memory>

using namespace surfacetest;
using ruLinear::Point;
using ruLinear::Vector;

namespace {

ruGeom::Camera viewing(const Vector& view) {
  return lookAt(Point(0, 0, 0) - view * 10.0, Point(0, 0, 0), std::fabs(view.getY()) > 0.9 ? Vector(0, 0, 1) : Vector(0, 1, 0));
}

struct Counter {
  int count = 0;
  ruRTB::SignalClient client;
  void onModified(voDMG::ModelingPlanes*) { ++count; }
};

const ruImage::TypedImage<ruImage::Byte4>& bytesOf(const ru::Reference<ruImage::Image>& image) {
  return *dynamic_cast<const ruImage::TypedImage<ruImage::Byte4>*>(image.get());
}

ru::Reference<ruImage::Image> render(SurfaceFixture& f, const std::string& name) {
  ru::Reference<ruImage::Image> image = f.surface->renderFrame(SurfaceFixture::frameParameters(kSize, kSize, false));
  EXPECT_TRUE(image);
  if (image) voGR::test::writeFrame(bytesOf(image), name);
  return image;
}

// Pixels of the box [x0, x1] x [y0, y1] (frame rows top-down) for which `test` holds.
template <class Test>
int countIn(const ruImage::TypedImage<ruImage::Byte4>& image, int x0, int x1, int y0, int y1, Test test) {
  int n = 0;
  for (int y = y0; y <= y1; ++y)
    for (int x = x0; x <= x1; ++x)
      if (test(image.pixel(x, y))) ++n;
  return n;
}

bool differs(const ruImage::Byte4& a, const ruImage::Byte4& b) {
  return std::abs(a.r - b.r) + std::abs(a.g - b.g) + std::abs(a.b - b.b) > 30;
}

}  // namespace

TEST(ModelingPlanes, WithAViewStraightAlong111NormalisedXWinsSinceLaterAxesMustBeStrictlyGreater) {
  ruGeom::Camera camera = viewing(Vector(1, 1, 1).normalized());
  const ruLinear::Plane plane = voDMG::viewBasedDominantModelingPlane(camera);
  EXPECT_NEAR(plane.getNormal().getX(), 1.0, 1e-12);
  EXPECT_EQ(plane.getPoint().x, 0.0);
}

TEST(ModelingPlanes, AViewAlongMinusZGivesThePlaneWithNormalPlusZ) {
  const ruLinear::Plane plane = voDMG::viewBasedDominantModelingPlane(viewing(Vector(0, 0, -1)));
  EXPECT_NEAR(plane.getNormal().getZ(), 1.0, 1e-12);
  const ruLinear::Plane side = voDMG::viewBasedDominantModelingPlane(viewing(Vector(0.2, -0.9, 0.1).normalized()));
  EXPECT_NEAR(side.getNormal().getY(), 1.0, 1e-12);
}

TEST(ModelingPlanes, SetVisibilityTrueOnAVisiblePlaneEmitsNothingSetPlaneWithAnEqualPlaneDoesEmit) {
  voDMG::ModelingPlanes planes;
  Counter counter;
  planes.sigModified.connect(&counter, &Counter::onModified, counter.client);
  planes.setVisibility(true);
  EXPECT_EQ(counter.count, 0);
  planes.setVisibility(false);
  EXPECT_EQ(counter.count, 1);
  planes.setVisibility(false);
  EXPECT_EQ(counter.count, 1);
  planes.setPlane(planes.getParamPlane());
  EXPECT_EQ(counter.count, 2);
  planes.setPlane(planes.getPlane());
  EXPECT_EQ(counter.count, 3);
}

TEST(ModelingPlanes, WhileInactiveCameraChangesLeaveThePlaneAloneAndSetActiveTrueAloneDoesNotRefreshIt) {
  doctest::DocFixture doc;
  voDMD::Camera* camera = doc.document.camera();
  camera->set(viewing(Vector(0, 0, -1)));
  voDMG::ModelingPlanes planes;
  planes.setPlane(ruLinear::Plane(Point(1, 2, 3), ruLinear::Normal::x));
  voDMG::ModelingPlanesFromView fromView(planes, *camera);
  // Turned at once, keeping the origin.
  EXPECT_NEAR(planes.getPlane().getNormal().getZ(), 1.0, 1e-12);
  EXPECT_EQ(planes.getPlane().getPoint().y, 2.0);
  Counter counter;
  planes.sigModified.connect(&counter, &Counter::onModified, counter.client);
  camera->set(viewing(Vector(1, 0, 0)));
  EXPECT_NEAR(planes.getPlane().getNormal().getX(), 1.0, 1e-12);
  EXPECT_GE(counter.count, 1);
  fromView.setActive(false);
  EXPECT_FALSE(fromView.isActive());
  const int before = counter.count;
  camera->set(viewing(Vector(0, 1, 0)));
  EXPECT_NEAR(planes.getPlane().getNormal().getX(), 1.0, 1e-12);
  EXPECT_EQ(counter.count, before);
  fromView.setActive(true);
  EXPECT_NEAR(planes.getPlane().getNormal().getX(), 1.0, 1e-12);
  EXPECT_EQ(counter.count, before);
  camera->set(viewing(Vector(0, -1, 0)));
  EXPECT_NEAR(planes.getPlane().getNormal().getY(), 1.0, 1e-12);
  EXPECT_EQ(planes.getPlane().getPoint().x, 1.0);
  EXPECT_EQ(planes.getPlane().getPoint().z, 3.0);
}

TEST(ModelingPlanesGLTest, TheVisiblePlaneDrawsOneUnpickableTexturedItemAndAHiddenPlaneNone) {
  SurfaceFixture f;
  ASSERT_TRUE(f.system);
  voDMG::ModelingPlanes planes;
  // The xy square from (-1, -1) to (1, 1), facing the camera on +z.
  planes.setPlane(ruLinear::ParamPlane(Point(-1, -1, 0), Vector(2, 0, 0), Vector(0, 2, 0)));
  voDMG::ModelingPlanesDraw drawer(&planes);
  EXPECT_NE(drawer.getID(), -1);
  drawer.draw();
  voGR::DrawData* data = f.system->getDrawData(&drawer, false);
  ASSERT_NE(data, nullptr);
  ASSERT_EQ(data->getItems().size(), 1u);
  const voGR::DrawItem& item = *data->getItems()[0];
  EXPECT_EQ(item.getDebugString(), "ModellingPlane");
  EXPECT_FALSE(item.isPickable());
  EXPECT_EQ(static_cast<int>(item.getDepthInteraction()), 0);
  EXPECT_FLOAT_EQ(item.getColor().a, 0.99f);
  auto* shader = dynamic_cast<voGR::UVTextureShader*>(item.getShader().get());
  ASSERT_NE(shader, nullptr);
  EXPECT_FLOAT_EQ(shader->color.a, 0.99f);
  EXPECT_FLOAT_EQ(shader->backColor.a, 0.99f);
  ru::Reference<ruImage::Image> shown = render(f, "modeling_plane_visible");
  ASSERT_TRUE(shown);
  const ruImage::Byte4 background = bytesOf(shown).pixel(2, 2);
  // The square covers the middle of the frame and not its corners.
  const int middle = countIn(bytesOf(shown), 100, 156, 100, 156, [&](const ruImage::Byte4& p) { return differs(p, background); });
  EXPECT_GT(middle, 57 * 57 / 20);
  EXPECT_EQ(countIn(bytesOf(shown), 0, 40, 0, 40, [&](const ruImage::Byte4& p) { return differs(p, background); }), 0);
  // The shader is kept between frames.
  drawer.draw();
  EXPECT_EQ(f.system->getDrawData(&drawer, false)->getItems()[0]->getShader().get(), shader);

  planes.setVisibility(false);
  drawer.draw();
  EXPECT_TRUE(f.system->getDrawData(&drawer, false)->getItems().empty());
  ru::Reference<ruImage::Image> hidden = render(f, "modeling_plane_hidden");
  ASSERT_TRUE(hidden);
  EXPECT_EQ(countIn(bytesOf(hidden), 100, 156, 100, 156, [&](const ruImage::Byte4& p) { return differs(p, background); }), 0);
}

TEST(OriginAxisGLTest, WithWantAxesNameFalseExactlyThreeItemsAreEmittedWithTrueSix) {
  SurfaceFixture f;
  ASSERT_TRUE(f.system);
  voDMG::OriginAxisDraw axes;
  EXPECT_NE(axes.getID(), -1);
  axes.setWantAxesName(false);
  axes.draw();
  ASSERT_NE(f.system->getDrawData(&axes, false), nullptr);
  EXPECT_EQ(f.system->getDrawData(&axes, false)->getItems().size(), 3u);
  axes.setWantAxesName(true);
  axes.draw();
  EXPECT_EQ(f.system->getDrawData(&axes, false)->getItems().size(), 6u);
}

TEST(OriginAxisGLTest, TheOrderOfEmissionIsXYZThenTheThreeNames) {
  SurfaceFixture f;
  ASSERT_TRUE(f.system);
  f.doc.document.camera()->set(lookAt(Point(1.5, 1.0, 4), Point(0.3, 0.3, 0)));
  f.surface->updateCamera(f.doc.document.camera()->get());
  voDMG::OriginAxisDraw axes;
  axes.draw();
  const auto& items = f.system->getDrawData(&axes, false)->getItems();
  ASSERT_EQ(items.size(), 6u);
  const float expected[3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(items[i]->getColor().r, expected[i][0]) << i;
    EXPECT_EQ(items[i]->getColor().g, expected[i][1]) << i;
    EXPECT_EQ(items[i]->getColor().b, expected[i][2]) << i;
    EXPECT_FALSE(items[i]->hasImageKey()) << i;
    EXPECT_EQ(static_cast<int>(items[i]->getDepthInteraction()), 1);
    EXPECT_EQ(static_cast<int>(items[i]->getType()), 2);
    EXPECT_FALSE(items[i]->isPickable());
  }
  for (int i = 3; i < 6; ++i) EXPECT_TRUE(items[i]->hasImageKey()) << i;
  ru::Reference<ruImage::Image> image = render(f, "origin_axes");
  ASSERT_TRUE(image);
  // Red where the x axis runs, green for y, blue for z: each colour shows somewhere.
  auto reddish = [](const ruImage::Byte4& p) { return p.r > 150 && p.g < 90 && p.b < 90; };
  auto greenish = [](const ruImage::Byte4& p) { return p.g > 150 && p.r < 90 && p.b < 90; };
  auto bluish = [](const ruImage::Byte4& p) { return p.b > 150 && p.r < 90 && p.g < 90; };
  EXPECT_GT(countIn(bytesOf(image), 0, kSize - 1, 0, kSize - 1, reddish), 10);
  EXPECT_GT(countIn(bytesOf(image), 0, kSize - 1, 0, kSize - 1, greenish), 10);
  EXPECT_GT(countIn(bytesOf(image), 0, kSize - 1, 0, kSize - 1, bluish), 3);
}

TEST(ModelingPlanes, CreateGivesAVisiblePlaneThroughTheOriginSpannedByYAndZ) {
  std::unique_ptr<voDMG::ModelingPlanes> planes(voDMG::ModelingPlanes::create());
  ASSERT_TRUE(planes);
  EXPECT_TRUE(planes->isVisible());
  const ruLinear::ParamPlane& plane = planes->getParamPlane();
  EXPECT_EQ(plane.getOrigin(), Point(0, 0, 0));
  EXPECT_EQ(plane.getFirstVector(), Vector(0, 1, 0));
  EXPECT_EQ(plane.getSecondVector(), Vector(0, 0, 1));
  // y x z: the plane faces along +x.
  EXPECT_NEAR(planes->getPlane().getNormal().getX(), 1.0, 1e-12);
  EXPECT_EQ(planes->getPlane().getPoint(), Point(0, 0, 0));
}

TEST(ModelingPlanes, SetPlaneFromAPlaneBuildsTheParameterVectorsFromItsNormal) {
  voDMG::ModelingPlanes planes;
  const ruLinear::Normal normal(Vector(1, 2, 2) * (1.0 / 3.0));
  planes.setPlane(ruLinear::Plane(Point(4, -1, 2), normal));
  const ruLinear::ParamPlane& plane = planes.getParamPlane();
  EXPECT_EQ(plane.getOrigin(), Point(4, -1, 2));
  EXPECT_NEAR(plane.getNormal().getX(), 1.0 / 3.0, 1e-12);
  EXPECT_NEAR(plane.getNormal().getY(), 2.0 / 3.0, 1e-12);
  EXPECT_NEAR(plane.getNormal().getZ(), 2.0 / 3.0, 1e-12);
  // The first vector is the normal's orthogonal vector, the second normal x first.
  const Vector first = normal.orthogonalVector();
  EXPECT_EQ(plane.getFirstVector(), first);
  EXPECT_EQ(plane.getSecondVector(), ruLinear::cross(normal.asVector(), first));
  EXPECT_NEAR(ruLinear::dot(plane.getFirstVector(), normal.asVector()), 0.0, 1e-12);
  EXPECT_NEAR(ruLinear::dot(plane.getSecondVector(), normal.asVector()), 0.0, 1e-12);
  EXPECT_NEAR(ruLinear::dot(plane.getFirstVector(), plane.getSecondVector()), 0.0, 1e-12);
}

TEST(ModelingPlanesGLTest, ThePlaneItemCarriesTheModelingPlaneImageAndLeavesWithItsDrawer) {
  SurfaceFixture f;
  ASSERT_TRUE(f.system);
  voDMG::ModelingPlanes planes;
  int id = -1;
  {
    voDMG::ModelingPlanesDraw drawer(&planes);
    id = drawer.getID();
    ASSERT_NE(id, -1);
    drawer.draw();
    voGR::DrawData* data = f.system->getDrawData(&drawer, false);
    ASSERT_NE(data, nullptr);
    ASSERT_EQ(data->getItems().size(), 1u);
    const voGR::DrawItem& item = *data->getItems()[0];
    EXPECT_EQ(item.getSubsystemId(), id);
    // The defaults of a new emitter: world space, an ordinary item, not active.
    EXPECT_EQ(item.getSpace(), voGR::SpaceWorld);
    EXPECT_EQ(item.getType(), voGR::TypeOrdinary);
    EXPECT_FALSE(item.isActive());
    EXPECT_EQ(item.getColor(), ruUtil::Color(1.0f, 1.0f, 1.0f, 0.99f));
    auto* shader = dynamic_cast<voGR::UVTextureShader*>(item.getShader().get());
    ASSERT_NE(shader, nullptr);
    EXPECT_EQ(shader->color, ruUtil::Color(1.0f, 1.0f, 1.0f, 0.99f));
    EXPECT_EQ(shader->backColor, ruUtil::Color(1.0f, 1.0f, 1.0f, 0.99f));
    ASSERT_TRUE(shader->texture.getImageKey().valid());
    EXPECT_STREQ(shader->texture.getImageKey()->name().c_str(), "DMG//ModelingPlane");
    EXPECT_FALSE(shader->texture.getRepeat());
    // The parameter square of the default plane: x = 0, y and z from 0 to 1.
    const ruGeom::BoundingBox box = item.getWorldBoundingBox();
    ASSERT_TRUE(box.valid());
    EXPECT_NEAR(box.getMin().x, 0.0, 1e-9);
    EXPECT_NEAR(box.getMax().x, 0.0, 1e-9);
    EXPECT_NEAR(box.getMin().y, 0.0, 1e-9);
    EXPECT_NEAR(box.getMax().y, 1.0, 1e-9);
    EXPECT_NEAR(box.getMin().z, 0.0, 1e-9);
    EXPECT_NEAR(box.getMax().z, 1.0, 1e-9);
    EXPECT_EQ(f.surface->getDatabase()->getAllItems().size(), 1u);
    // A copy shares the id.
    voDMG::ModelingPlanesDraw copy(drawer);
    EXPECT_EQ(copy.getID(), id);
  }
  // The id went back to the draw system, and the plane's item with it.
  EXPECT_EQ(f.surface->getDatabase()->getAllItems().size(), 0u);
  const int next = f.system->allocateID();
  EXPECT_EQ(next, id);
  f.system->freeID(next);
}

TEST(OriginAxisGLTest, TheNamesAreTheAxisBillboardImagesAtTheTipsTwelvePixelsUp) {
  SurfaceFixture f;
  ASSERT_TRUE(f.system);
  voDMG::OriginAxisDraw axes;
  axes.draw();
  const auto& items = f.system->getDrawData(&axes, false)->getItems();
  ASSERT_EQ(items.size(), 6u);
  const char* names[3] = {"DMG//AxisX_Billboard", "DMG//AxisY_Billboard", "DMG//AxisZ_Billboard"};
  const ruGeom::Camera camera = f.doc.document.camera()->get();
  for (int i = 0; i < 3; ++i) {
    const voGR::DrawItem& name = *items[3 + i];
    ASSERT_TRUE(name.getImageKey().valid()) << i;
    EXPECT_STREQ(name.getImageKey()->name().c_str(), names[i]);
    EXPECT_EQ(name.getSpace(), voGR::SpaceWorld);
    ASSERT_TRUE(name.getTransformer());
    // The image's centre stands 12 pixels above the axis's tip on the screen.
    Point tip(0, 0, 0);
    (i == 0 ? tip.x : i == 1 ? tip.y : tip.z) = 1.0;
    const Point tipOnScreen = tip * camera.getWorldToViewport();
    const Point centreOnScreen = (Point(0, 0, 0) * name.getLocalToWorld()) * camera.getWorldToViewport();
    EXPECT_NEAR(centreOnScreen.x - tipOnScreen.x, 0.0, 1e-6) << i;
    EXPECT_NEAR(centreOnScreen.y - tipOnScreen.y, 12.0, 1e-6) << i;
  }
}

TEST(OriginAxisGLTest, TheAxesAreUnitCylindersOfRadiusAFloatHundredthAndGiveTheirIdBack) {
  SurfaceFixture f;
  ASSERT_TRUE(f.system);
  int id = -1;
  {
    voDMG::OriginAxisDraw axes;
    id = axes.getID();
    ASSERT_NE(id, -1);
    axes.setWantAxesName(false);
    axes.draw();
    const auto& items = f.system->getDrawData(&axes, false)->getItems();
    ASSERT_EQ(items.size(), 3u);
    const double radius = static_cast<double>(0.01f);
    for (int axis = 0; axis < 3; ++axis) {
      const voGR::DrawItem& item = *items[axis];
      EXPECT_EQ(item.getSubsystemId(), id);
      EXPECT_EQ(item.getSpace(), voGR::SpaceWorld);
      EXPECT_TRUE(item.isTriangles());
      EXPECT_FALSE(item.getTransformer());
      // From the origin to the unit point along the axis, every vertex on the mantle or the axis.
      ASSERT_NE(item.getMesh(), nullptr);
      const ruGeom::CompactMesh& mesh = *item.getMesh();
      double lowest = 1e9, highest = -1e9, widest = 0.0;
      for (int v = 0; v < mesh.getNumVertices(); ++v) {
        const Point p = mesh.getVertices()[v].asPoint() * item.getTransform();
        const double along = axis == 0 ? p.x : axis == 1 ? p.y : p.z;
        const double off = std::hypot(axis == 0 ? p.y : p.x, axis == 2 ? p.y : p.z);
        lowest = std::min(lowest, along), highest = std::max(highest, along), widest = std::max(widest, off);
        EXPECT_TRUE(std::fabs(off - radius) < 1e-6 || off < 1e-6) << axis << " " << off;
      }
      EXPECT_NEAR(lowest, 0.0, 1e-9) << axis;
      EXPECT_NEAR(highest, 1.0, 1e-9) << axis;
      EXPECT_NEAR(widest, radius, 1e-6) << axis;
      // Ten sides: 4 * sides triangles.
      EXPECT_EQ(mesh.getNumTriangles(), 40);
    }
    // A copy shares the id.
    voDMG::OriginAxisDraw copy(axes);
    EXPECT_EQ(copy.getID(), id);
  }
  const int next = f.system->allocateID();
  EXPECT_EQ(next, id);
  f.system->freeID(next);
}

TEST(ModelingPlanes, EachCameraChangeTurnsThePlaneAndSignalsEvenWhenTheAxisStaysTheSame) {
  doctest::DocFixture doc;
  voDMD::Camera* camera = doc.document.camera();
  camera->set(viewing(Vector(0, 0, -1)));
  voDMG::ModelingPlanes planes;
  Counter counter;
  planes.sigModified.connect(&counter, &Counter::onModified, counter.client);
  voDMG::ModelingPlanesFromView fromView(planes, *camera);
  // Turned at once, with a signal.
  EXPECT_EQ(counter.count, 1);
  const ruLinear::ParamPlane turned = planes.getParamPlane();
  // Another view closest to z: the same plane, signalled again.
  camera->set(viewing(Vector(0.1, 0.2, -1).normalized()));
  EXPECT_EQ(counter.count, 2);
  EXPECT_EQ(planes.getParamPlane().getNormal(), turned.getNormal());
  EXPECT_EQ(planes.getParamPlane().getFirstVector(), turned.getFirstVector());
  EXPECT_EQ(planes.getParamPlane().getOrigin(), turned.getOrigin());
}
