// The print view's surface on the real off-screen context: its worlds, its graph and the order of
// its passes, the cut-away with its caps, the three glows, thumbnails of one mesh and of the bed,
// and the box the camera controls frame.

#include "printsurfacefixture.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

using namespace printtest;

namespace {

class KLTSurfaceDrawGLTest : public ::testing::Test, public PrintFixture {};

class KLTSurfaceDrawNoCapsGLTest : public ::testing::Test, public PrintFixture {
protected:
  KLTSurfaceDrawNoCapsGLTest() : PrintFixture(false) {}
};

struct FixedPlace : voGR::Transformer {
  ruLinear::AffineMatrix evaluate() const override { return ruLinear::AffineMatrix::Identity; }
};

// The names of the pass nodes a draw of `state` runs, in the order it runs them.
std::string passOrder(voGR::Graph* graph, voGR::Node* state) {
  std::vector<voGR::Node*> order;
  EXPECT_TRUE(graph->dependencyOrder(state, order));
  std::string out;
  for (voGR::Node* node : order) {
    const std::string kind = node->getKindName();
    if (kind == "RenderTargetNode" || kind == "CameraNode" || kind == "WorldNode" || kind == "UpdateClipPlanesNode" ||
        kind == "DataNode")
      continue;
    const std::string name = node->getName().empty() ? kind : node->getName().c_str();
    out += (out.empty() ? "" : " ") + name;
  }
  return out;
}

int edgesInto(voGR::Graph* graph, const voGR::Node* target, const char* name) {
  int count = 0;
  for (const voGR::Edge* edge : graph->getEdges()) count += edge->target == target && edge->name == name;
  return count;
}

ruLinear::Point2 pixelOf(const ruGeom::Camera& camera, const ruLinear::Point& point) {
  ruLinear::Point2 out;
  EXPECT_TRUE(camera.project(point, out));
  return out;
}

const ruLinear::Range3d kUseable(ruLinear::Point(-5, -5, 0), ruLinear::Point(5, 5, 5));
const ruLinear::Range3d kTotal(ruLinear::Point(-6, -6, 0), ruLinear::Point(6, 6, 6));

}  // namespace

TEST_F(KLTSurfaceDrawGLTest, NineWorldsTakeTheItemsTheirFiltersAccept) {
  ASSERT_TRUE(system);
  voGR::Database& db = *surface->getDatabase();
  ASSERT_EQ(db.getNumWorlds(), 9);
  std::string names;
  for (int i = 0; i < db.getNumWorlds(); ++i) names += std::string(i ? " " : "") + db.getWorldNode(i)->getName().c_str();
  EXPECT_EQ(names, "SSPW SceneTriW SceneLinesW SceneW SelectedW XRayW SSW HoverW HoverSelW");
  EXPECT_EQ(system->getActiveDatabase(), surface->getDatabase());

  voGR::DrawContext context(system.get(), system->allocateID());
  voGR::Draw draw(context, this, false);
  ru::Reference<ruGeom::CompactMesh> solid = new ruGeom::CompactMesh();
  ruGeom::constructCuboid(cube(0, 0, 0, 1), *solid);
  ru::Reference<ruGeom::CompactMesh> wire = new ruGeom::CompactMesh();
  ruGeom::constructBoxEdgeLineStrips(ruGeom::BoundingBox(cube(0, 0, 0, 1)), *wire);

  auto emit = [&](auto&& setUp) {
    draw.setType(voGR::TypeOrdinary);
    draw.setSpace(voGR::SpaceWorld);
    draw.setDepthInteraction(voGR::DepthNormal);
    draw.setActive(false);
    draw.setTransformer(nullptr);
    draw.removeTag("KLTHoverTag");
    draw.removeTag("KLTHoverSelectedTag");
    draw.setMesh(solid);
    setUp();
    return worldsOf(draw.emit().get());
  };
  EXPECT_EQ(emit([] {}), "SceneTriW SceneW");
  EXPECT_EQ(emit([&] { draw.setMesh(wire, false); }), "SceneLinesW SceneW");
  EXPECT_EQ(emit([&] { draw.setType(voGR::TypeHelper); }), "SceneTriW");
  EXPECT_EQ(emit([&] { draw.setType(voGR::TypeHelper), draw.setMesh(wire, false); }), "SceneLinesW");
  EXPECT_EQ(emit([&] { draw.setActive(true); }), "SceneTriW SceneW SelectedW");
  EXPECT_EQ(emit([&] { draw.setDepthInteraction(voGR::DepthXRay); }), "XRayW");
  EXPECT_EQ(emit([&] { draw.setDepthInteraction(voGR::DepthXRay), draw.setActive(true); }), "SelectedW");
  EXPECT_EQ(emit([&] { draw.setTransformer(new FixedPlace()); }), "SSPW");
  EXPECT_EQ(emit([&] { draw.setSpace(voGR::SpaceScreen); }), "SSW");
  EXPECT_EQ(emit([&] { draw.addTag("KLTHoverTag"); }), "SceneTriW SceneW HoverW");
  EXPECT_EQ(emit([&] { draw.addTag("KLTHoverTag"), draw.setActive(true); }), "SceneTriW SceneW SelectedW");
  EXPECT_EQ(emit([&] { draw.addTag("KLTHoverSelectedTag"), draw.setActive(true); }),
            "SceneTriW SceneW SelectedW HoverSelW");
  EXPECT_EQ(emit([&] { draw.addTag("KLTHoverSelectedTag"); }), "SceneTriW SceneW");
}

TEST_F(KLTSurfaceDrawGLTest, PassOrderOfTheMainChainAndOfTheThumbnailBranch) {
  ASSERT_TRUE(system);
  voGR::Graph* graph = system->getGraph();
  EXPECT_EQ(passOrder(graph, surface->renderTargetNode()->getLastState()),
            "Background RenderTri Caps RenderLines Glow Glow Glow XRay XRay ScreenSpace");
  EXPECT_EQ(passOrder(graph, surface->thumbTargetNode()->getLastState()), "ClearNode RenderThumbTri");
  EXPECT_EQ(surface->thumbTargetNode()->getName(), "Thumbnail_FBO");
  EXPECT_EQ(surface->thumbTargetNode()->getLastState()->getName(), "Thumbnail_FBO");
  EXPECT_EQ(surface->renCameraNode()->getName(), "RenCam");
  // The clip range is fitted to four worlds; the thumbnail pass sees only the triangles.
  const voGR::Node* clip = nullptr;
  for (const voGR::Edge* edge : graph->getEdges())
    if (edge->target == surface->renCameraNode() && edge->name == "renCamera") clip = edge->source;
  ASSERT_TRUE(clip);
  EXPECT_EQ(edgesInto(graph, clip, "world"), 4);
  EXPECT_EQ(edgesInto(graph, clip, "viewCamera"), 1);
  EXPECT_EQ(edgesInto(graph, surface->thumbRenderNode(), "world"), 1);
  EXPECT_EQ(edgesInto(graph, surface->thumbRenderNode(), "camera"), 1);
  EXPECT_TRUE(surface->thumbRenderNode()->getRasterizerState().hasPolygonOffset());
  EXPECT_EQ(surface->thumbRenderNode()->getRasterizerState().getPolygonOffsetFactor(), 1.0f);
  EXPECT_EQ(surface->thumbRenderNode()->getRasterizerState().getPolygonOffsetUnits(), 1.0f);
  const ruRen::FBOInfo thumbInfo = voGR::FBOKeyAccessor(surface->thumbTargetNode()->getFBO()).getInfo();
  EXPECT_EQ(thumbInfo, ruRen::FBOInfo(1000, 1000, true, false, false));
  const ruGeom::Camera thumbCamera = surface->thumbCameraNode()->getCamera();
  EXPECT_EQ(thumbCamera.getViewport(), ruGeom::Viewport(0, 0, 1000, 1000));
  EXPECT_NEAR(thumbCamera.getEyeLocation().getX(), 50.0, 1e-9);
  EXPECT_NEAR(thumbCamera.getEyeLocation().getY(), -50.0, 1e-9);
  EXPECT_NEAR(thumbCamera.getEyeLocation().getZ(), 50.0, 1e-9);
  // The hit tester is given the camera the main passes draw with.
  EXPECT_EQ(surface->getRenderCamera(), surface->renCameraNode()->getCamera());
}

TEST_F(KLTSurfaceDrawGLTest, TheHitTesterLooksThroughTheSurfacesCamera) {
  ASSERT_TRUE(system);
  voDMD::Object* mesh = addPrintMesh(cube(0, 0, 0, 1));
  documentDraw->draw();
  // The document's camera looks away from the mesh; the surface's looks at it.
  doc.document.camera()->set(lookAt(ruLinear::Point(0, -0.001, 12), ruLinear::Point(30, 0, 0)));
  surface->updateCamera(lookAt(ruLinear::Point(0, -0.001, 12), ruLinear::Point(0, 0, 0)));
  voGR::HitTestConfig config;
  config.radius = 2;
  int heard = 0;
  ruRTB::SignalClient listener;
  hitTester.sigHitsChanged(config, false).addCallback([&] { ++heard; }, listener);
  hitTester.hitTest(ruLinear::Point2(kSize / 2, kSize / 2), voDMG::DocumentHitTester::Move);
  const ru::vector<voGR::HitRecord>* records = hitTester.records(config, false);
  ASSERT_TRUE(records);
  ASSERT_FALSE(records->empty());
  EXPECT_EQ(records->front().owner, documentDraw->getDraw(mesh));
  EXPECT_EQ(heard, 1);

  // Turned away, the surface's camera sees nothing there.
  surface->updateCamera(lookAt(ruLinear::Point(0, -0.001, 12), ruLinear::Point(-30, 0, 0)));
  hitTester.hitTest(ruLinear::Point2(kSize / 2, kSize / 2), voDMG::DocumentHitTester::Move);
  EXPECT_TRUE(hitTester.records(config, false)->empty());
}

TEST_F(KLTSurfaceDrawNoCapsGLTest, WithoutTheCapsSettingTheChainHasNoCapPass) {
  ASSERT_TRUE(system);
  EXPECT_EQ(passOrder(system->getGraph(), surface->renderTargetNode()->getLastState()),
            "Background RenderTri RenderLines Glow Glow Glow XRay XRay ScreenSpace");
}

TEST_F(KLTSurfaceDrawGLTest, RadialBackgroundIsLightAtTheCentreAndDarkerAtTheCorners) {
  ASSERT_TRUE(system);
  const auto image = frame("kltsurface_background");
  const ruImage::Byte4 centre = image.pixel(kSize / 2, kSize / 2), corner = image.pixel(0, 0);
  EXPECT_TRUE(rgbNear(centre, bytes(ruUtil::Color(0.99f, 0.99f, 0.99f)), 3)) << int(centre.r);
  EXPECT_TRUE(rgbNear(corner, bytes(ruUtil::Color(0.93f, 0.93f, 0.93f)), 3)) << int(corner.r);
}

TEST_F(KLTSurfaceDrawGLTest, ACutAwayPlaneHidesTheHalfItShouldAndCapsCloseTheCut) {
  ASSERT_TRUE(system);
  const ruLinear::Range3d bar(ruLinear::Point(-2.5, -0.8, 0), ruLinear::Point(2.5, 0.8, 1.6));
  voDMD::Object* object = addPrintMesh(bar);
  useMeshDraw(object);
  // The mesh is drawn darker than any part of the light background.
  auto countMesh = [](const ruImage::TypedImage<ruImage::Byte4>& image, int x0, int x1) {
    int count = 0;
    for (int y = 0; y < image.ySize(); ++y)
      for (int x = std::max(0, x0); x < std::min(x1, image.xSize()); ++x) count += image.pixel(x, y).r < 200;
    return count;
  };
  const ruGeom::Camera top = doc.document.camera()->get();
  const int middleColumn = static_cast<int>(pixelOf(top, ruLinear::Point(0, 0, 1.6)).x);
  const int leftEnd = static_cast<int>(pixelOf(top, ruLinear::Point(-2.5, 0, 1.6)).x);
  const int rightEnd = static_cast<int>(pixelOf(top, ruLinear::Point(2.5, 0, 1.6)).x);
  ASSERT_LT(leftEnd + 20, middleColumn);
  ASSERT_LT(middleColumn + 20, rightEnd);

  const auto whole = frame("kltsurface_cut_0_whole");
  const int leftWhole = countMesh(whole, leftEnd + 3, middleColumn - 3);
  const int rightWhole = countMesh(whole, middleColumn + 3, rightEnd - 3);
  EXPECT_GT(leftWhole, 1000);
  EXPECT_GT(rightWhole, 1000);

  // Keeps x >= 0: the left half goes, the right half stays.
  const ruLinear::Plane cut(ruLinear::Point(0, 0, 0), ruLinear::Normal(1, 0, 0));
  surface->clearClippingPlanes();
  surface->addClippingPlane(cut);
  const auto cutImage = frame("kltsurface_cut_1_cut");
  EXPECT_LT(countMesh(cutImage, leftEnd + 3, middleColumn - 3), leftWhole / 50);
  EXPECT_NEAR(countMesh(cutImage, middleColumn + 3, rightEnd - 3), rightWhole, rightWhole * 0.05);

  // From the cut side the caps close the bar where it is cut open.
  surface->updateCapPosition(cut, bar);
  surface->updateCapGeom(true);
  surface->updateCapVisibility(true);
  const ruGeom::Camera side = lookAt(ruLinear::Point(-8, -3, 5), ruLinear::Point(0, 0, 0.8));
  surface->updateCamera(side);
  const ruLinear::Point2 capPixel = pixelOf(side, ruLinear::Point(0, 0, 0.8));
  const ruImage::Byte4 capColor = bytes(surface->capEditor().getCapColor());
  // The setting was read when the graph was built: turning it off now keeps the caps.
  settings.set("vo.app.settings.CutawayCaps", false);
  const auto capped = frame("kltsurface_cut_2_capped");
  const ruImage::Byte4 atCap = capped.pixel(static_cast<int>(capPixel.x), static_cast<int>(capPixel.y));
  EXPECT_TRUE(rgbNear(atCap, capColor, 10)) << int(atCap.r) << " " << int(atCap.g) << " " << int(atCap.b);
  EXPECT_GT(countRGB(capped, capColor, 10), 300);

  surface->updateCapVisibility(false);
  const auto open = frame("kltsurface_cut_3_open");
  EXPECT_FALSE(rgbNear(open.pixel(static_cast<int>(capPixel.x), static_cast<int>(capPixel.y)), capColor, 10));
  EXPECT_LT(countRGB(open, capColor, 10), 20);
}

TEST_F(KLTSurfaceDrawGLTest, SelectedHoveredAndHoveredSelectedMeshesGlowInTheirThreeColours) {
  ASSERT_TRUE(system);
  Look selected, hovered, both;
  selected.color = hovered.color = both.color = ruUtil::Color(0.5f, 0.5f, 0.5f, 1.0f);
  selected.active = true;
  hovered.tag = "KLTHoverTag";
  both.active = true;
  both.tag = "KLTHoverSelectedTag";
  addPrintMesh(cube(-3.3, 0, 0, 0.6), selected);
  addPrintMesh(cube(0, 0, 0, 0.6), hovered);
  addPrintMesh(cube(3.3, 0, 0, 0.6), both);
  const auto image = frame("kltsurface_glows");
  const ruImage::Byte4 selectedGlow = bytes(ruUtil::Color(0.09f, 0.61f, 0.84f));
  const ruImage::Byte4 hoverGlow = bytes(ruUtil::Color(0.09f, 0.45f, 0.62f));
  const ruImage::Byte4 bothGlow = bytes(ruUtil::Color(0.09f, 0.6f, 0.95f));
  const int third = kSize / 3;
  EXPECT_GT(countRGB(image, selectedGlow, 6, 0, third), 200);
  EXPECT_LT(countRGB(image, hoverGlow, 6, 0, third), 10);
  EXPECT_LT(countRGB(image, bothGlow, 6, 0, third), 10);
  EXPECT_GT(countRGB(image, hoverGlow, 6, third, 2 * third), 200);
  EXPECT_LT(countRGB(image, selectedGlow, 6, third, 2 * third), 10);
  EXPECT_LT(countRGB(image, bothGlow, 6, third, 2 * third), 10);
  // The hovered-and-selected glow is wider than the selection's and drawn after it.
  const int bothCount = countRGB(image, bothGlow, 6, 2 * third, kSize);
  EXPECT_GT(bothCount, 200);
  EXPECT_GT(bothCount, 3 * countRGB(image, selectedGlow, 6, 2 * third, kSize));
  EXPECT_GT(bothCount, countRGB(image, selectedGlow, 6, 0, third));
}

TEST_F(KLTSurfaceDrawGLTest, AThumbnailWithAMeshShowsOnlyThatMeshsTriangles) {
  ASSERT_TRUE(system);
  addPrinter(kUseable, kTotal);
  Look a, b;
  a.color = ruUtil::Color(0.8f, 0.2f, 0.2f, 1.0f);
  a.lines = true;
  a.lineColor = ruUtil::Color(1.0f, 0.0f, 1.0f, 1.0f);
  b.color = ruUtil::Color(0.9f, 0.8f, 0.1f, 1.0f);
  voDMD::Object* first = addPrintMesh(cube(-2, 0, 1, 1), a);
  addPrintMesh(cube(2, 1, 1, 1), b);
  // An item of no document object, and a screen-space item.
  voGR::DrawContext context(system.get(), system->allocateID());
  voGR::Draw loose(context, this, false);
  ru::Reference<ruGeom::CompactMesh> solid = new ruGeom::CompactMesh();
  ruGeom::constructCuboid(cube(0, -3, 1, 1), *solid);
  loose.setColor(0.0f, 0.8f, 0.8f, 1.0f);
  loose.setMesh(solid);
  loose.emit();
  loose.setSpace(voGR::SpaceScreen);
  loose.emit();
  documentDraw->draw();

  const ru::Reference<ruImage::Image> thumb = surface->renderThumb(kltMesh(first), 160, 120);
  ASSERT_TRUE(thumb);
  const auto* image = typed(thumb);
  ASSERT_TRUE(image);
  voGR::test::writeFrame(*image, "kltsurface_thumb_mesh");
  EXPECT_EQ(image->xSize(), 160);
  EXPECT_EQ(image->ySize(), 120);
  EXPECT_EQ(surface->thumbObject(), first);
  const int mine = countRGB(*image, bytes(a.color), 10);
  EXPECT_GT(mine, 160 * 120 / 10);
  EXPECT_EQ(countRGB(*image, bytes(b.color), 10), 0);
  EXPECT_EQ(countRGB(*image, bytes(a.lineColor), 10), 0);
  EXPECT_EQ(countRGB(*image, bytes(StandInPrinterDraw::kColor), 10), 0);
  EXPECT_EQ(countRGB(*image, bytes(ruUtil::Color(0.0f, 0.8f, 0.8f)), 10), 0);
  // The rest is the transparent clear colour.
  int clear = 0;
  for (int y = 0; y < image->ySize(); ++y)
    for (int x = 0; x < image->xSize(); ++x) clear += image->pixel(x, y).a == 0;
  EXPECT_GT(clear, 160 * 120 / 4);
  EXPECT_GE(clear + countRGB(*image, bytes(a.color), 60), 160 * 120 - 5);
  // The mesh stands in the middle of the picture.
  EXPECT_TRUE(rgbNear(image->pixel(80, 60), bytes(a.color), 10));
}

TEST_F(KLTSurfaceDrawGLTest, AThumbnailWithANullMeshShowsAllTrianglesAndThePrinterLines) {
  ASSERT_TRUE(system);
  addPrinter(kUseable, kTotal);
  Look a, b;
  a.color = ruUtil::Color(0.8f, 0.2f, 0.2f, 1.0f);
  b.color = ruUtil::Color(0.9f, 0.8f, 0.1f, 1.0f);
  addPrintMesh(cube(-2, 0, 1, 1), a);
  addPrintMesh(cube(2, 1, 1, 1), b);
  documentDraw->draw();
  voGR::Graph* graph = system->getGraph();
  const std::size_t edges = graph->getEdges().size();

  const ru::Reference<ruImage::Image> thumb = surface->renderThumb(nullptr, 200, 200);
  ASSERT_TRUE(thumb);
  const auto* image = typed(thumb);
  ASSERT_TRUE(image);
  voGR::test::writeFrame(*image, "kltsurface_thumb_bed");
  EXPECT_EQ(image->xSize(), 200);
  EXPECT_EQ(image->ySize(), 200);
  EXPECT_EQ(surface->thumbObject(), nullptr);
  EXPECT_GT(countRGB(*image, bytes(a.color), 10), 100);
  EXPECT_GT(countRGB(*image, bytes(b.color), 10), 100);
  const ruImage::Byte4 blue = bytes(StandInPrinterDraw::kColor);
  EXPECT_GT(countRGB(*image, blue, 10), 200);

  // Framed on the total volume: its corners land where the thumbnail camera puts them.
  ruGeom::Camera camera = surface->thumbCameraNode()->getCamera();
  EXPECT_EQ(camera.getViewport(), ruGeom::Viewport(0, 0, 200, 200));
  EXPECT_NEAR(camera.getFrustum().getAngle(), 0.4363323129985824, 1e-12);
  const ruLinear::Vector span = kTotal.getDiagonal();
  const double diagonal = std::sqrt(span.getX() * span.getX() + span.getY() * span.getY() + span.getZ() * span.getZ());
  EXPECT_NEAR(camera.getFrustum().getNear(), diagonal, 1e-9);
  EXPECT_NEAR(camera.getFrustum().getFar(), 20 * diagonal, 1e-9);
  const ruLinear::Point eye = camera.getEyeLocation();
  EXPECT_NEAR(eye.getX(), 0 - 1.0 * diagonal * 1.7, 1e-9);
  EXPECT_NEAR(eye.getY(), 0 - 0.6 * diagonal * 1.7, 1e-9);
  EXPECT_NEAR(eye.getZ(), 3 + 0.4 * diagonal * 1.7, 1e-9);
  const ruLinear::Point2 nearCorner = pixelOf(camera, ruLinear::Point(-6, -6, 6));
  const ruLinear::Point2 farCorner = pixelOf(camera, ruLinear::Point(6, 6, 0));
  int lineNearCorner = 0;
  for (const ruLinear::Point2& corner : {nearCorner, farCorner})
    for (int dy = -3; dy <= 3; ++dy)
      for (int dx = -3; dx <= 3; ++dx) {
        const int x = static_cast<int>(corner.x) + dx, y = static_cast<int>(corner.y) + dy;
        if (x >= 0 && y >= 0 && x < 200 && y < 200) lineNearCorner += rgbNear(image->pixel(x, y), blue, 10);
      }
  EXPECT_GT(lineNearCorner, 4);

  // The temporary edge is gone after the call.
  EXPECT_EQ(graph->getEdges().size(), edges);
  EXPECT_EQ(edgesInto(graph, surface->thumbRenderNode(), "world"), 1);
}

TEST_F(KLTSurfaceDrawGLTest, TwoCallsWithTheSameSizeDoNotCreateANewKeyAndANewSizeStays) {
  ASSERT_TRUE(system);
  addPrinter(kUseable, kTotal);
  voDMD::Object* mesh = addPrintMesh(cube(0, 0, 1, 1));
  documentDraw->draw();
  const ruRen::FBOKey initial = surface->thumbTargetNode()->getFBO();
  ASSERT_TRUE(surface->renderThumb(kltMesh(mesh), 64, 64));
  const ruRen::FBOKey first = surface->thumbTargetNode()->getFBO();
  EXPECT_FALSE(first == initial);
  EXPECT_EQ(voGR::FBOKeyAccessor(first).getInfo(), ruRen::FBOInfo(64, 64, true, false, false));
  ASSERT_TRUE(surface->renderThumb(kltMesh(mesh), 64, 64));
  EXPECT_TRUE(surface->thumbTargetNode()->getFBO() == first);

  const ru::Reference<ruImage::Image> other = surface->renderThumb(kltMesh(mesh), 32, 48);
  ASSERT_TRUE(other);
  EXPECT_EQ(typed(other)->xSize(), 32);
  EXPECT_EQ(typed(other)->ySize(), 48);
  const ruRen::FBOKey second = surface->thumbTargetNode()->getFBO();
  EXPECT_FALSE(second == first);
  EXPECT_EQ(voGR::FBOKeyAccessor(second).getInfo(), ruRen::FBOInfo(32, 48, true, false, false));
  ASSERT_TRUE(surface->renderThumb(nullptr, 32, 48));
  EXPECT_TRUE(surface->thumbTargetNode()->getFBO() == second);
}

TEST_F(KLTSurfaceDrawGLTest, GetCameraControlsBBoxWithNoVisibleMeshFallsBackToTheWorlds) {
  ASSERT_TRUE(system);
  addPrinter(kUseable, kTotal);
  voDMD::Object* mesh = addPrintMesh(cube(1, 1, 1, 1));
  kltMesh(mesh)->setVisible(false);
  documentDraw->draw();
  ruGeom::BoundingBox box;
  surface->getDatabase()->getCameraControlsBBox(box);
  ASSERT_TRUE(box.valid());
  // Only the printer's wire box is left in the worlds.
  EXPECT_EQ(box, ruGeom::BoundingBox(kTotal));

  // A visible mesh inside the bed frames alone.
  kltMesh(mesh)->setVisible(true);
  documentDraw->draw();
  surface->getDatabase()->getCameraControlsBBox(box);
  EXPECT_EQ(box, ruGeom::BoundingBox(cube(1, 1, 1, 1)));
}

TEST_F(KLTSurfaceDrawGLTest, GetCameraControlsBBoxWithAnOutOfBoundsMeshFallsBackUnlessTheFlagIsCleared) {
  ASSERT_TRUE(system);
  addPrinter(kUseable, kTotal);
  const ruLinear::Range3d outside = cube(5.5, 0, 1, 1);
  voDMD::Object* mesh = addPrintMesh(outside);
  documentDraw->draw();
  ASSERT_TRUE(kltMesh(mesh)->isOutOfBounds());
  ruGeom::BoundingBox box;
  surface->getDatabase()->getCameraControlsBBox(box);
  ruGeom::BoundingBox worlds(kTotal);
  worlds.extend(ruGeom::BoundingBox(outside));
  EXPECT_EQ(box, worlds);

  surface->setExtendBBoxForMeshesInsideBed(false);
  surface->getDatabase()->getCameraControlsBBox(box);
  EXPECT_EQ(box, ruGeom::BoundingBox(outside));
}

TEST_F(KLTSurfaceDrawGLTest, AddClippingPlaneWithTheSamePlaneTwiceStoresItTwice) {
  ASSERT_TRUE(system);
  const ruLinear::Plane plane(ruLinear::Point(1, 2, 3), ruLinear::Normal(0, 1, 0));
  const ruLinear::Plane other(ruLinear::Point(0, 0, 1), ruLinear::Normal(0, 0, 1));
  surface->addClippingPlane(plane);
  surface->addClippingPlane(plane);
  surface->addSelectionClippingPlane(other);
  const std::vector<voDMG::ClippingPlane> planes = surface->planes();
  ASSERT_EQ(planes.size(), 3u);
  EXPECT_EQ(planes[0].plane.getPoint(), plane.getPoint());
  EXPECT_EQ(planes[1].plane.getPoint(), plane.getPoint());
  EXPECT_EQ(planes[2].plane.getPoint(), other.getPoint());
  EXPECT_FALSE(planes[0].selectionOnly);
  EXPECT_FALSE(planes[1].selectionOnly);
  EXPECT_TRUE(planes[2].selectionOnly);
  surface->clearClippingPlanes();
  EXPECT_TRUE(surface->planes().empty());
}

TEST_F(KLTSurfaceDrawGLTest, SetExtendBBoxForMeshesInsideBedDoesNotCallModified) {
  ASSERT_TRUE(system);
  voDMD::Object* mesh = addPrintMesh(cube(0, 0, 0, 1));
  voDMD::Object* other = addPrintMesh(cube(3, 0, 0, 1));
  voDMG::KLTMeshDraw* draw = useMeshDraw(mesh);
  documentDraw->draw();
  ASSERT_FALSE(draw->isModified());
  surface->setExtendBBoxForMeshesInsideBed(false);
  EXPECT_FALSE(draw->isModified());
  // Each plane call makes the print mesh draws (and only them) emit again.
  surface->addClippingPlane(ruLinear::Plane(ruLinear::Point(0, 0, 0), ruLinear::Normal(1, 0, 0)));
  EXPECT_TRUE(draw->isModified());
  EXPECT_FALSE(standIn(other)->isModified());
  documentDraw->draw();
  surface->addSelectionClippingPlane(ruLinear::Plane(ruLinear::Point(0, 0, 0), ruLinear::Normal(1, 0, 0)));
  EXPECT_TRUE(draw->isModified());
  documentDraw->draw();
  surface->clearClippingPlanes();
  EXPECT_TRUE(draw->isModified());
}

TEST_F(KLTSurfaceDrawNoCapsGLTest, WithCutawayCapsFalseUpdateCapGeomAndTheLikeStillReachTheEditor) {
  ASSERT_TRUE(system);
  const ruLinear::Plane cut(ruLinear::Point(0, 0, 0), ruLinear::Normal(1, 0, 0));
  EXPECT_FALSE(surface->capEditor().hasCapGeometry());
  surface->updateCapPosition(cut, cube(0, 0, 0, 1));
  EXPECT_TRUE(surface->capEditor().hasCapGeometry());
  surface->updateCapVisibility(false);
  EXPECT_FALSE(surface->capEditor().isCapVisible());
  surface->updateCapVisibility(true);
  EXPECT_TRUE(surface->capEditor().isCapVisible());
  surface->updateCapGeom(false);
  EXPECT_FALSE(surface->capEditor().hasCapGeometry());
  surface->updateCapGeom(true);
  EXPECT_TRUE(surface->capEditor().hasCapGeometry());
  // With no cap pass in the graph nothing of the cap is drawn; the setting counted once, when the
  // graph was built, so turning it on now changes nothing.
  settings.set("vo.app.settings.CutawayCaps", true);
  Look look;
  addPrintMesh(cube(0, 0, 0.8, 0.8), look);
  surface->addClippingPlane(cut);
  surface->updateCamera(lookAt(ruLinear::Point(-8, -3, 5), ruLinear::Point(0, 0, 0.8)));
  const auto image = frame("kltsurface_nocaps");
  EXPECT_LT(countRGB(image, bytes(surface->capEditor().getCapColor()), 10), 20);
}

TEST_F(KLTSurfaceDrawGLTest, BadInputGivesNullOrNothingAndSaysSo) {
  ASSERT_TRUE(system);
  voDMD::Object* mesh = addPrintMesh(cube(0, 0, 0, 1));
  voDMG::KLTMeshDraw* draw = useMeshDraw(mesh);
  documentDraw->draw();
  voGR::test::DebugCapture capture;
  EXPECT_FALSE(surface->renderThumb(kltMesh(mesh), 0, 10));
  EXPECT_TRUE(capture.contains("voDMG::KLTSurfaceDraw::renderThumb: the size 0 x 10 is not a positive size"));
  EXPECT_FALSE(surface->renderThumb(kltMesh(mesh), 10, -1));
  // No printer: the bed cannot be framed.
  EXPECT_FALSE(surface->renderThumb(nullptr, 10, 10));
  EXPECT_TRUE(capture.contains("voDMG::KLTSurfaceDraw::renderThumb: no printer, or its total volume is empty"));
  // A plane with a zero normal is refused and the meshes are not redrawn for it.
  const ruLinear::Plane flat(ruLinear::Point(0, 0, 0), ruLinear::Vector(0, 0, 0));
  const ruLinear::Normal n = flat.getNormal();
  if (std::isfinite(n.getX()) && std::abs(n.getX()) + std::abs(n.getY()) + std::abs(n.getZ()) > 0.5)
    GTEST_SKIP() << "the plane made a usable normal from a zero vector";
  surface->addClippingPlane(flat);
  surface->addSelectionClippingPlane(flat);
  EXPECT_TRUE(surface->planes().empty());
  EXPECT_FALSE(draw->isModified());
  EXPECT_TRUE(capture.contains("voDMG::KLTSurfaceDraw::addClippingPlane: a clipping plane with a zero normal is ignored"));
}

TEST_F(KLTSurfaceDrawGLTest, AnEmptyPrinterVolumeGivesNoBedThumbnail) {
  ASSERT_TRUE(system);
  addPrinter(ruLinear::Range3d(), ruLinear::Range3d());
  voGR::test::DebugCapture capture;
  EXPECT_FALSE(surface->renderThumb(nullptr, 16, 16));
  EXPECT_TRUE(capture.contains("voDMG::KLTSurfaceDraw::renderThumb: no printer, or its total volume is empty"));
}

TEST_F(KLTSurfaceDrawGLTest, DestructionSaysSoOnStandardOutput) {
  ASSERT_TRUE(system);
  StandInMeshDraw::surface() = nullptr;
  testing::internal::CaptureStdout();
  surface = nullptr;
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "~KLTSurfaceDraw called\n");
}

TEST_F(KLTSurfaceDrawGLTest, ThumbnailRowsStandBottomUpAsTheReadBackGivesThem) {
  ASSERT_TRUE(system);
  addPrinter(kUseable, kTotal);
  Look high, low;
  high.color = ruUtil::Color(0.8f, 0.2f, 0.2f, 1.0f);
  low.color = ruUtil::Color(0.2f, 0.3f, 0.9f, 1.0f);
  addPrintMesh(cube(0, 0, 5, 0.8), high);
  addPrintMesh(cube(0, 0, 0.8, 0.8), low);
  documentDraw->draw();
  const ru::Reference<ruImage::Image> thumb = surface->renderThumb(nullptr, 128, 128);
  ASSERT_TRUE(thumb);
  const auto* image = typed(thumb);
  ASSERT_TRUE(image);
  voGR::test::writeFrame(*image, "kltsurface_thumb_rows");
  // The camera's viewport positions count y upward, as the rows of the image do.
  const ruGeom::Camera camera = surface->thumbCameraNode()->getCamera();
  const ruLinear::Point2 up = pixelOf(camera, ruLinear::Point(0, 0, 5));
  const ruLinear::Point2 down = pixelOf(camera, ruLinear::Point(0, 0, 0.8));
  ASSERT_GT(up.y, down.y + 10);
  EXPECT_TRUE(rgbNear(image->pixel(static_cast<int>(up.x), static_cast<int>(up.y)), bytes(high.color), 12));
  EXPECT_TRUE(rgbNear(image->pixel(static_cast<int>(down.x), static_cast<int>(down.y)), bytes(low.color), 12));
  // So the upper mesh fills rows of greater index.
  auto rowsOf = [&](const ruUtil::Color& color, int y0, int y1) {
    int count = 0;
    for (int y = y0; y < y1; ++y)
      for (int x = 0; x < image->xSize(); ++x) count += rgbNear(image->pixel(x, y), bytes(color), 12);
    return count;
  };
  const int middle = static_cast<int>((up.y + down.y) / 2);
  EXPECT_GT(rowsOf(high.color, middle, 128), 50);
  EXPECT_EQ(rowsOf(high.color, 0, middle - 2), 0);
  EXPECT_GT(rowsOf(low.color, 0, middle), 50);
}

TEST_F(KLTSurfaceDrawGLTest, ANewSurfaceHoldsNoNodesNoPlanesAndNoThumbObjectUntilInitialize) {
  ASSERT_TRUE(system);
  ru::Reference<voGR::DataNodeStateInfo> otherInfo = system->createRenderTarget("Other", key);
  testing::internal::CaptureStdout();
  {
    ru::Reference<voDMG::KLTSurfaceDraw> fresh = new voDMG::KLTSurfaceDraw(*system, otherInfo);
    EXPECT_EQ(fresh->renCameraNode(), nullptr);
    for (voGR::WorldNode* world : {fresh->sceneWorldNode(), fresh->sceneTriWorldNode(), fresh->sceneLinesWorldNode(),
                                   fresh->selectedWorldNode(), fresh->xRayWorldNode(), fresh->ssPositionedWorldNode(),
                                   fresh->screenSpaceWorldNode(), fresh->hoverWorldNode(), fresh->hoverSelWorldNode()})
      EXPECT_EQ(world, nullptr);
    EXPECT_EQ(fresh->thumbCameraNode(), nullptr);
    EXPECT_EQ(fresh->thumbRenderNode(), nullptr);
    EXPECT_EQ(fresh->thumbTargetNode(), nullptr);
    EXPECT_EQ(fresh->thumbObject(), nullptr);
    EXPECT_TRUE(fresh->planes().empty());
    EXPECT_FALSE(fresh->capEditor().hasCapGeometry());
  }
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "~KLTSurfaceDraw called\n");
  // The getter of the surface just gone is left in the hit tester: give it the fixture's back.
  voDMG::KLTSurfaceDraw* kept = surface.get();
  hitTester.setCameraGetter([kept] { return kept->getRenderCamera(); });
}
