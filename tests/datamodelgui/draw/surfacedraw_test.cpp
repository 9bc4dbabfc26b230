#include "surfacefixture.h"

#include "datamodelgui/draw/affordance.h"

#include "platform/geometry/construct.h"
#include "platform/graphics/editors.h"
#include "platform/graphics/graph.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

using namespace surfacetest;

namespace {

ru::Reference<ruGeom::CompactMesh> cuboid(const ruLinear::Point& low, const ruLinear::Point& high) {
  ru::Reference<ruGeom::CompactMesh> mesh = new ruGeom::CompactMesh();
  ruGeom::constructCuboid(ruLinear::Range3d(low, high), *mesh);
  return mesh;
}

ru::Reference<ruGeom::CompactMesh> segment(const ruLinear::Point& a, const ruLinear::Point& b) {
  ru::Reference<ruGeom::CompactMesh> mesh = new ruGeom::CompactMesh();
  ruGeom::constructLineSegment(a, b, *mesh);
  return mesh;
}

// A transformer that leaves the item where its transform puts it.
class FixedTransformer : public voGR::Transformer {
public:
  ruLinear::AffineMatrix evaluate() const override { return ruLinear::AffineMatrix(); }
};

bool reddish(const ruImage::Byte4& p) { return p.r > 120 && p.g < 60 && p.b < 60; }

int countReddish(const ruImage::TypedImage<ruImage::Byte4>& image) {
  int count = 0;
  for (int y = 0; y < image.ySize(); ++y)
    for (int x = 0; x < image.xSize(); ++x) count += reddish(image.pixel(x, y)) ? 1 : 0;
  return count;
}

// Mean row of the reddish pixels; -1 without any.
double meanRedRow(const ruImage::TypedImage<ruImage::Byte4>& image) {
  double sum = 0.0;
  int count = 0;
  for (int y = 0; y < image.ySize(); ++y)
    for (int x = 0; x < image.xSize(); ++x)
      if (reddish(image.pixel(x, y))) sum += y, ++count;
  return count ? sum / count : -1.0;
}

const ruImage::TypedImage<ruImage::Byte4>* asBytes(const ru::Reference<ruImage::Image>& image) {
  return dynamic_cast<const ruImage::TypedImage<ruImage::Byte4>*>(image.get());
}

// Emits a red cuboid above the centre of the view, so the top and bottom of a frame differ.
struct RedBox {
  explicit RedBox(SurfaceFixture& fixture) {
    voGR::Draw draw(*fixture.context, this, false);
    draw.setColor(1.0f, 0.0f, 0.0f, 1.0f);
    draw.setMesh(cuboid(ruLinear::Point(-1, 1.5, -1), ruLinear::Point(1, 3.5, 1)));
    item = draw.emit();
  }
  ru::Reference<voGR::DrawItem> item;
};

// A surface recording what its graph building receives.
class RecordingSurface : public voDMG::SurfaceDraw {
public:
  using SurfaceDraw::SurfaceDraw;
  std::vector<voPLST::Dictionary*> received;
  std::vector<bool> initializeFlags;

private:
  ru::Reference<voGR::Database> onSetupDatabase() override { return new voGR::Database(ds().getGraph()); }
  void onSetupGraph(ru::Reference<voPLST::Dictionary> state) override {
    received.push_back(state.get());
    const voPLST::ValueBase* flag = state->findValue(Initialize);
    initializeFlags.push_back(flag && flag->toBool());
  }
  void onInitializeParams(ru::Reference<voPLST::Dictionary> state) override { state->setDouble("extra", 7.0); }
};

}  // namespace

TEST(SurfaceDrawGLTest, InitializeKeyAndTwoPhaseBuilding) {
  SurfaceFixture f;
  ASSERT_TRUE(f.system);
  EXPECT_STREQ(voDMG::SurfaceDraw::Initialize.c_str(), "initialize");
  ru::Reference<RecordingSurface> surface = new RecordingSurface(*f.system, f.info);
  EXPECT_FALSE(surface->getDatabase());
  EXPECT_TRUE(surface->received.empty());
  surface->initialize();
  ASSERT_TRUE(surface->getDatabase());
  ASSERT_EQ(surface->received.size(), 1u);
  // True during the very first building, false afterwards, in the same dictionary.
  EXPECT_TRUE(surface->initializeFlags[0]);
  ASSERT_EQ(surface->getRenderStates().size(), 1u);
  voPLST::Dictionary* base = surface->getRenderStates().front().get();
  EXPECT_EQ(base, surface->received[0]);
  EXPECT_FALSE(base->findValue("initialize")->toBool());
  EXPECT_EQ(base->findValue("extra")->toDouble(), 7.0);
  EXPECT_EQ(surface->renderTargetNode(), f.info->firstState());
}

TEST(SurfaceDrawGLTest, LeaveAfterTwoEntersReturnsToTheBaseState) {
  SurfaceFixture f;
  ASSERT_TRUE(f.system);
  ru::Reference<RecordingSurface> surface = new RecordingSurface(*f.system, f.info);
  surface->initialize();
  voPLST::Dictionary* base = surface->getRenderStates().front().get();
  ru::Reference<voPLST::Dictionary> first = new voPLST::Dictionary();
  ru::Reference<voPLST::Dictionary> second = new voPLST::Dictionary();
  surface->enterRenderState(first);
  surface->enterRenderState(second);
  surface->leaveRenderState();
  ASSERT_EQ(surface->received.size(), 4u);
  EXPECT_EQ(surface->received[1], first.get());
  EXPECT_EQ(surface->received[2], second.get());
  EXPECT_EQ(surface->received[3], base);
  EXPECT_NE(surface->received[3], first.get());
  EXPECT_FALSE(surface->initializeFlags[3]);
  // The stack lost only the last state.
  ASSERT_EQ(surface->getRenderStates().size(), 2u);
  EXPECT_EQ(surface->getRenderStates().back().get(), first.get());
  // An update rebuilds with its dictionary and leaves the stack alone.
  ru::Reference<voPLST::Dictionary> update = new voPLST::Dictionary();
  surface->updateRenderState(update);
  EXPECT_EQ(surface->received.back(), update.get());
  EXPECT_EQ(surface->getRenderStates().size(), 2u);
}

TEST(SurfaceDrawGLTest, DestroyingASurfaceWithAnInactiveDatabaseLeavesTheActiveOne) {
  SurfaceFixture f;
  ASSERT_TRUE(f.system);
  ru::Reference<voGR::Database> mine = f.surface->getDatabase();
  EXPECT_EQ(f.system->getActiveDatabase(), mine);
  ru::Reference<voDMG::DefaultDocumentSurfaceDraw> other =
      new voDMG::DefaultDocumentSurfaceDraw(*f.system, f.system->createRenderTarget("Other", ruRen::FBOKey()));
  other->initialize();
  EXPECT_EQ(f.system->getActiveDatabase(), other->getDatabase());
  f.system->setActiveDatabase(mine);
  other = nullptr;
  EXPECT_EQ(f.system->getActiveDatabase(), mine);
  // Destroying the surface whose database is active leaves none active.
  f.surface = nullptr;
  EXPECT_FALSE(f.system->getActiveDatabase());
}

TEST(SurfaceDrawGLTest, SevenWorldsWithTheirNamesInOrder) {
  SurfaceFixture f;
  ASSERT_TRUE(f.system);
  voGR::Database& db = *f.surface->getDatabase();
  ASSERT_EQ(db.getNumWorlds(), 7);
  const char* names[] = {"SSPW", "SceneTriW", "SceneLinesW", "SceneW", "SelectedW", "XRayW", "SSW"};
  for (int i = 0; i < 7; ++i) EXPECT_STREQ(db.getWorldNode(i)->getName().c_str(), names[i]) << i;
  EXPECT_EQ(f.surface->ssPositionedWorldNode(), db.getWorldNode(0));
  EXPECT_EQ(f.surface->sceneTriWorldNode(), db.getWorldNode(1));
  EXPECT_EQ(f.surface->sceneLinesWorldNode(), db.getWorldNode(2));
  EXPECT_EQ(f.surface->sceneWorldNode(), db.getWorldNode(3));
  EXPECT_EQ(f.surface->selectedWorldNode(), db.getWorldNode(4));
  EXPECT_EQ(f.surface->xRayWorldNode(), db.getWorldNode(5));
  EXPECT_EQ(f.surface->screenSpaceWorldNode(), db.getWorldNode(6));
  EXPECT_STREQ(f.surface->renCameraNode()->getName().c_str(), "RenCam");
  // The render camera is the view camera with clip planes fitted to the scene and x-ray worlds.
  voGR::Node* clip = f.surface->renCameraNode()->getInput("renCamera");
  ASSERT_TRUE(clip);
  EXPECT_STREQ(clip->getKindName(), "UpdateClipPlanesNode");
  ASSERT_TRUE(clip->getInput("viewCamera"));
  EXPECT_STREQ(clip->getInput("viewCamera")->getName().c_str(), "ViewCam");
  const std::vector<voGR::Node*> worlds = clip->getInputs("world");
  ASSERT_EQ(worlds.size(), 2u);
  EXPECT_EQ(worlds[0], f.surface->sceneWorldNode());
  EXPECT_EQ(worlds[1], f.surface->xRayWorldNode());
  EXPECT_EQ(f.surface->getModelDrawRenderTarget(), f.surface->renderTargetNode());
}

TEST(SurfaceDrawGLTest, ItemsLandInTheWorldsTheirPropertiesName) {
  SurfaceFixture f;
  ASSERT_TRUE(f.system);
  int sources[9];
  auto emit = [&](int which, auto&& configure) {
    voGR::Draw draw(*f.context, &sources[which], false);
    configure(draw);
    return draw.emit();
  };
  auto box = cuboid(ruLinear::Point(0, 0, 0), ruLinear::Point(1, 1, 1));
  auto line = segment(ruLinear::Point(0, 0, 0), ruLinear::Point(1, 0, 0));
  auto mesh = emit(0, [&](voGR::Draw& d) { d.setMesh(box); });
  auto lines = emit(1, [&](voGR::Draw& d) { d.setMesh(line); });
  auto helper = emit(2, [&](voGR::Draw& d) { d.setMesh(box), d.setType(voGR::TypeHelper); });
  auto xray = emit(3, [&](voGR::Draw& d) { d.setMesh(box), d.setDepthInteraction(voGR::DepthXRay); });
  auto activeXRay = emit(4, [&](voGR::Draw& d) {
    d.setMesh(box), d.setDepthInteraction(voGR::DepthXRay), d.setActive(true);
  });
  auto billboard = emit(5, [&](voGR::Draw& d) { d.setMesh(box), d.setTransformer(new FixedTransformer()); });
  auto screen = emit(6, [&](voGR::Draw& d) { d.setMesh(box), d.setSpace(voGR::SpaceScreen); });
  auto further = emit(7, [&](voGR::Draw& d) { d.setMesh(box), d.setDepthInteraction(voGR::DepthFurther); });
  auto activeLines = emit(8, [&](voGR::Draw& d) { d.setMesh(line), d.setActive(true); });
  EXPECT_EQ(f.worldsOf(mesh.get()), "SceneTriW SceneW");
  EXPECT_EQ(f.worldsOf(lines.get()), "SceneLinesW SceneW");
  EXPECT_EQ(f.worldsOf(helper.get()), "SceneTriW SceneW");
  EXPECT_EQ(f.worldsOf(xray.get()), "XRayW");
  EXPECT_EQ(f.worldsOf(activeXRay.get()), "SelectedW");
  EXPECT_EQ(f.worldsOf(billboard.get()), "SSPW");
  EXPECT_EQ(f.worldsOf(screen.get()), "SSW");
  EXPECT_EQ(f.worldsOf(further.get()), "");
  EXPECT_EQ(f.worldsOf(activeLines.get()), "SceneLinesW SceneW SelectedW");
}

TEST(SurfaceDrawGLTest, ActiveMeshItemStandsInSelectedAndSceneTriAndGlows) {
  SurfaceFixture f;
  ASSERT_TRUE(f.system);
  int source = 0;
  auto emitBox = [&](bool active) {
    voGR::Draw draw(*f.context, &source, false);
    draw.setColor(1.0f, 0.0f, 0.0f, 1.0f);
    draw.setActive(active);
    draw.setMesh(cuboid(ruLinear::Point(-1, -1, -1), ruLinear::Point(1, 1, 1)));
    return draw.emit();
  };
  auto plain = emitBox(false);
  const auto before = f.frame("surface_inactive_box");
  auto active = emitBox(true);
  EXPECT_EQ(f.worldsOf(active.get()), "SceneTriW SceneW SelectedW");
  EXPECT_EQ(f.worldsOf(plain.get()), "");  // re-emitting replaced it
  const auto after = f.frame("surface_active_box");
  // Drawn normally: the red body is there in both frames, as large.
  const int redBefore = countReddish(before), redAfter = countReddish(after);
  EXPECT_GT(redBefore, 1000);
  EXPECT_NEAR(redAfter, redBefore, redBefore / 20);
  // And the glow lightens the background around it: fewer pixels of the clear colour.
  const ruImage::Byte4 clear{64, 64, 64, 0};
  const int clearBefore = countRGB(before, clear, 3), clearAfter = countRGB(after, clear, 3);
  EXPECT_LT(clearAfter, clearBefore - 200);
}

TEST(SurfaceDrawGLTest, PassesRunInTheOrderOfThePlainSurface) {
  SurfaceFixture f;
  ASSERT_TRUE(f.system);
  RedBox box(f);
  f.frame("surface_pass_order");
  std::vector<std::string> passes;
  for (voGR::Node* node : f.system->getExecutionTrace()) {
    const std::string kind = node->getKindName();
    std::string label;
    if (kind == "ClearNode") label = "clear";
    else if (kind == "GroundShadowNode") label = "ground shadow";
    else if (kind == "RenderNode") label = node->getName().c_str();
    else if (kind == "GlowNode") label = "glow";
    else if (kind == "XRayNode") {
      voGR::Node* world = node->getInput("world");
      label = world && world->getName() == "SSPW" ? "billboards" : (world && world->getName() == "XRayW" ? "x-ray" : "?");
    } else if (kind == "ScreenSpaceNode") label = "screen space";
    else continue;
    if (passes.empty() || passes.back() != label) passes.push_back(label);
  }
  const std::vector<std::string> expected = {"clear", "ground shadow", "RenderTri", "RenderLines", "glow",
                                             "x-ray", "billboards", "screen space"};
  EXPECT_EQ(passes, expected);
  // Each pass writes a new state of the one target.
  EXPECT_GE(f.target()->getChain().size(), 8u);
  for (voGR::DataNode* state : f.target()->getChain()) EXPECT_EQ(state->getName(), f.target()->getName());
}

TEST(SurfaceDrawGLTest, TrianglePassHasPolygonOffsetAndLinePassHasNone) {
  SurfaceFixture f;
  ASSERT_TRUE(f.system);
  voGR::RenderNode* tri = nullptr;
  voGR::RenderNode* lines = nullptr;
  for (voGR::Node* node : f.system->getGraph()->getNodes()) {
    if (auto* render = dynamic_cast<voGR::RenderNode*>(node)) {
      if (render->getName() == "RenderTri" && render->getInput("world") == f.surface->sceneTriWorldNode()) tri = render;
      if (render->getName() == "RenderLines") lines = render;
    }
  }
  ASSERT_TRUE(tri);
  ASSERT_TRUE(lines);
  EXPECT_TRUE(tri->getRasterizerState().hasPolygonOffset());
  EXPECT_EQ(tri->getRasterizerState().getPolygonOffsetFactor(), 1.0f);
  EXPECT_EQ(tri->getRasterizerState().getPolygonOffsetUnits(), 1.0f);
  EXPECT_FALSE(lines->getRasterizerState().hasPolygonOffset());
  EXPECT_EQ(lines->getInput("world"), f.surface->sceneLinesWorldNode());
  EXPECT_EQ(tri->getInput("camera"), f.surface->renCameraNode());
  // The clear node's colour.
  ASSERT_GE(f.target()->getChain().size(), 2u);
  voGR::Node* clearNode = f.target()->getChain()[1]->getInput("target");
  ASSERT_TRUE(clearNode);
  auto* clear = dynamic_cast<voGR::ClearNode*>(clearNode);
  ASSERT_TRUE(clear);
  EXPECT_EQ(clear->getColor()[0], 0.25f);
  EXPECT_EQ(clear->getColor()[1], 0.25f);
  EXPECT_EQ(clear->getColor()[2], 0.25f);
  EXPECT_EQ(clear->getColor()[3], 0.0f);
}

TEST(SurfaceDrawGLTest, HelperAndLineItemsAddNothingToTheCameraBox) {
  SurfaceFixture f;
  ASSERT_TRUE(f.system);
  voGR::Database& db = *f.surface->getDatabase();
  ruGeom::BoundingBox box;
  db.getCameraControlsBBox(box);
  EXPECT_FALSE(box.valid());
  int a = 0, b = 0, c = 0, d = 0;
  {
    voGR::Draw draw(*f.context, &a, false);
    draw.setType(voGR::TypeHelper);
    draw.setMesh(cuboid(ruLinear::Point(-50, -50, -50), ruLinear::Point(50, 50, 50)));
    draw.emit();
  }
  {
    voGR::Draw draw(*f.context, &b, false);
    draw.setMesh(segment(ruLinear::Point(-40, 0, 0), ruLinear::Point(40, 0, 0)));
    draw.emit();
  }
  db.getCameraControlsBBox(box);
  EXPECT_FALSE(box.valid());
  {
    voGR::Draw draw(*f.context, &c, false);
    draw.setMesh(cuboid(ruLinear::Point(0, 0, 0), ruLinear::Point(1, 2, 3)));
    draw.emit();
  }
  {
    voGR::Draw draw(*f.context, &d, false);
    draw.setDepthInteraction(voGR::DepthXRay);
    draw.setMesh(cuboid(ruLinear::Point(-2, 0, 0), ruLinear::Point(-1, 1, 1)));
    draw.emit();
  }
  db.getCameraControlsBBox(box);
  ASSERT_TRUE(box.valid());
  EXPECT_DOUBLE_EQ(box.getMin().x, -2.0);
  EXPECT_DOUBLE_EQ(box.getMax().x, 1.0);
  EXPECT_DOUBLE_EQ(box.getMax().y, 2.0);
  EXPECT_DOUBLE_EQ(box.getMax().z, 3.0);
}

TEST(SurfaceDrawGLTest, RenderFrameWithoutFlipLeavesRowsInReadBackOrder) {
  SurfaceFixture f;
  ASSERT_TRUE(f.system);
  RedBox box(f);
  ru::Reference<ruImage::Image> raw = f.surface->renderFrame(SurfaceFixture::frameParameters(kSize, kSize, false));
  ru::Reference<ruImage::Image> flipped = f.surface->renderFrame(SurfaceFixture::frameParameters(kSize, kSize, true));
  ASSERT_TRUE(asBytes(raw));
  ASSERT_TRUE(asBytes(flipped));
  // The box stands above the centre of the view: read-back rows are bottom first, so it lies at
  // high rows; the flipped image has it at low rows.
  voGR::test::writeFrame(*asBytes(raw), "surface_renderframe_readback");
  EXPECT_GT(countReddish(*asBytes(raw)), 500);
  EXPECT_GT(meanRedRow(*asBytes(raw)), kSize / 2 + 20);
  EXPECT_LT(meanRedRow(*asBytes(flipped)), kSize / 2 - 20);
  ru::Reference<ruImage::Image> copy = raw->clone();
  ruImage::imageFlipVertical(*copy);
  ASSERT_EQ(copy->byteSize(), flipped->byteSize());
  EXPECT_EQ(0, std::memcmp(copy->bytes(), flipped->bytes(), copy->byteSize()));
}

TEST(SurfaceDrawGLTest, RenderFrameRestoresTheFrameBufferAndTheViewCamera) {
  SurfaceFixture f;
  ASSERT_TRUE(f.system);
  RedBox box(f);
  // The view camera looks away from the box; renderFrame draws with the document's camera.
  const ruGeom::Camera away = lookAt(ruLinear::Point(0, 0, 10), ruLinear::Point(0, 0, 20));
  f.surface->updateCamera(away);
  voGR::CameraNode* view = static_cast<voGR::CameraNode*>(f.surface->renCameraNode()->getInput("renCamera")->getInput("viewCamera"));
  const ruRen::FBOKey before = f.target()->getFBO();
  ru::Reference<ruImage::Image> image = f.surface->renderFrame(SurfaceFixture::frameParameters(200, 120, true, true));
  ASSERT_TRUE(asBytes(image));
  voGR::test::writeFrame(*asBytes(image), "surface_renderframe_document_camera");
  EXPECT_EQ(image->xSize(), 200);
  EXPECT_EQ(image->ySize(), 120);
  EXPECT_GT(countReddish(*asBytes(image)), 300);
  EXPECT_TRUE(f.target()->getFBO() == before);
  EXPECT_EQ(view->getCamera().getViewVector(), away.getViewVector());
  EXPECT_EQ(view->getCamera().getViewport(), away.getViewport());
  // The surface's own frame, with the view camera back, shows nothing of the box.
  EXPECT_EQ(countReddish(f.frame("surface_after_renderframe")), 0);
}

TEST(SurfaceDrawGLTest, AWidthOf100Point9GivesAnImage100PixelsWide) {
  SurfaceFixture f;
  ASSERT_TRUE(f.system);
  ru::Reference<ruImage::Image> image = f.surface->renderFrame(SurfaceFixture::frameParameters(100.9, 50.5, false));
  ASSERT_TRUE(image);
  EXPECT_EQ(image->xSize(), 100);
  EXPECT_EQ(image->ySize(), 50);
  EXPECT_EQ(image->getPixelFormat(), ruImage::PixelFormat::Byte4);
  // Nothing drawn: every pixel is the clear colour.
  EXPECT_EQ(countRGB(*asBytes(image), ruImage::Byte4{64, 64, 64, 0}, 2), 100 * 50);
}

TEST(SurfaceDrawGLTest, RenderFrameWithBadParametersAnswersNullAndSaysWhy) {
  SurfaceFixture f;
  ASSERT_TRUE(f.system);
  const ruRen::FBOKey before = f.target()->getFBO();
  {
    voGR::test::DebugCapture capture;
    EXPECT_FALSE(f.surface->renderFrame(SurfaceFixture::frameParameters(0, 64, false)));
    EXPECT_TRUE(capture.contains("renderFrame")) << (capture.lines.empty() ? "" : capture.lines[0]);
    EXPECT_TRUE(capture.contains("not a positive size"));
  }
  {
    voGR::test::DebugCapture capture;
    EXPECT_FALSE(f.surface->renderFrame(SurfaceFixture::frameParameters(64, -3, false)));
    EXPECT_TRUE(capture.contains("not a positive size"));
  }
  {
    voGR::test::DebugCapture capture;
    ru::Reference<voPLST::Dictionary> parameters = SurfaceFixture::frameParameters(64, 64, false);
    parameters->remove("multisample");
    EXPECT_FALSE(f.surface->renderFrame(parameters));
    EXPECT_TRUE(capture.contains("\"multisample\" is missing"));
  }
  {
    voGR::test::DebugCapture capture;
    EXPECT_FALSE(f.surface->renderFrame(nullptr));
    EXPECT_TRUE(capture.contains("no parameters"));
  }
  EXPECT_TRUE(f.target()->getFBO() == before);
}

TEST(SurfaceDrawGLTest, ThumbnailMessagesAreEmptyMessages) {
  voDMG::PushThumbnailRenderStateMsg push;
  voDMG::PushThumbnailRenderStateMsg pushCopy(push);
  pushCopy = push;
  voDMG::PopThumbnailRenderStateMsg pop;
  voDMG::PopThumbnailRenderStateMsg popCopy(pop);
  popCopy = pop;
  const voSupport::Message* asMessage = &pushCopy;
  EXPECT_TRUE(dynamic_cast<const voDMG::PushThumbnailRenderStateMsg*>(asMessage));
  EXPECT_FALSE(dynamic_cast<const voDMG::PopThumbnailRenderStateMsg*>(asMessage));
}

// The centre box of the frame, drawn red.
struct CentreBox {
  explicit CentreBox(SurfaceFixture& fixture, bool active = false) {
    voGR::Draw draw(*fixture.context, this, false);
    draw.setColor(1.0f, 0.0f, 0.0f, 1.0f);
    draw.setActive(active);
    draw.setMesh(cuboid(ruLinear::Point(-1, -1, -1), ruLinear::Point(1, 1, 1)));
    item = draw.emit();
  }
  ru::Reference<voGR::DrawItem> item;
};

TEST(SurfaceDrawGLTest, BillboardsBehindTheSceneShowThroughOnlyWhenActiveOrInXRay) {
  SurfaceFixture f;
  ASSERT_TRUE(f.system);
  f.loader.addImage("DMG//Mark", solidImage(16, 16, ruImage::Byte4{0, 200, 0, 255}));
  const voRES::ImageKey mark = f.loader.createImageKey("DMG//Mark", 0);
  int source = 0;
  // A billboard at the box's centre, wholly hidden by its front face. (It stays within the render
  // camera's clip planes, which are fitted to the scene and x-ray worlds only.)
  auto place = [&](bool active, voGR::DepthInteraction depth) {
    voGR::Draw draw(*f.context, &source, false);
    draw.setActive(active);
    draw.setDepthInteraction(depth);
    voDMG::drawBillboard(draw, mark, ruLinear::Point(0, 0, 0), ruLinear::Vector(0, 0, 0));
    return draw.getDrawData()->getItems()[0];
  };
  auto centreGreen = [&](const std::string& name) {
    const auto image = f.frame(name);
    return static_cast<int>(image.pixel(kSize / 2, kSize / 2).g);
  };
  // Without the box the billboard is seen.
  auto shown = place(false, voGR::DepthNormal);
  EXPECT_EQ(f.worldsOf(shown.get()), "SSPW");
  EXPECT_GT(centreGreen("billboard_alone"), 150);
  CentreBox box(f);
  const int hidden = centreGreen("billboard_hidden");
  EXPECT_LT(hidden, 40);
  // In x-ray, or active, it shows through the box, dimmed.
  place(false, voGR::DepthXRay);
  EXPECT_GT(centreGreen("billboard_xray_through"), hidden + 40);
  place(true, voGR::DepthNormal);
  EXPECT_GT(centreGreen("billboard_active_through"), hidden + 40);
}

TEST(SurfaceDrawGLTest, TheGlowOfAnActiveItemIsAWhiteHaloOfAboutEightPixelsOutsideIt) {
  SurfaceFixture f;
  ASSERT_TRUE(f.system);
  ruImage::TypedImage<ruImage::Byte4> plain, glowing;
  {
    CentreBox box(f, false);
    plain = f.frame("glow_plain");
  }
  {
    CentreBox box(f, true);
    glowing = f.frame("glow_active");
  }
  // The box's columns along the middle row, from the plain frame.
  const int row = kSize / 2;
  int left = -1, right = -1;
  for (int x = 0; x < kSize; ++x)
    if (reddish(plain.pixel(x, row))) {
      if (left < 0) left = x;
      right = x;
    }
  ASSERT_GT(left, 20);
  ASSERT_LT(right, kSize - 20);
  auto white = [](const ruImage::Byte4& p) { return p.r > 200 && p.g > 200 && p.b > 200; };
  // Close outside the silhouette: white; well past eight pixels: as before.
  EXPECT_TRUE(white(glowing.pixel(right + 4, row)));
  EXPECT_TRUE(white(glowing.pixel(left - 4, row)));
  EXPECT_FALSE(white(plain.pixel(right + 4, row)));
  EXPECT_TRUE(rgbNear(glowing.pixel(right + 12, row), plain.pixel(right + 12, row), 3));
  EXPECT_TRUE(rgbNear(glowing.pixel(left - 12, row), plain.pixel(left - 12, row), 3));
  // Only outside: the box's own pixels keep their colour.
  EXPECT_TRUE(rgbNear(glowing.pixel(kSize / 2, row), plain.pixel(kSize / 2, row), 3));
}

// Opens the protected view camera accessor.
class OpenSurface : public voDMG::DefaultDocumentSurfaceDraw {
public:
  using DefaultDocumentSurfaceDraw::DefaultDocumentSurfaceDraw;
  using DocumentSurfaceDraw::viewCameraNode;
};

TEST(SurfaceDrawGLTest, ConstructionMakesOnlyTheViewCameraAndUpdateCameraSetsTheCurrentViewCameraNode) {
  SurfaceFixture f;
  ASSERT_TRUE(f.system);
  ru::Reference<OpenSurface> surface =
      new OpenSurface(*f.system, f.system->createRenderTarget("Second", ruRen::FBOKey()));
  // Nothing of the database or the graph but the view camera, named "ViewCam".
  EXPECT_FALSE(surface->getDatabase());
  EXPECT_EQ(surface->renCameraNode(), nullptr);
  EXPECT_EQ(surface->sceneWorldNode(), nullptr);
  EXPECT_EQ(surface->sceneTriWorldNode(), nullptr);
  EXPECT_EQ(surface->sceneLinesWorldNode(), nullptr);
  EXPECT_EQ(surface->selectedWorldNode(), nullptr);
  EXPECT_EQ(surface->xRayWorldNode(), nullptr);
  EXPECT_EQ(surface->ssPositionedWorldNode(), nullptr);
  EXPECT_EQ(surface->screenSpaceWorldNode(), nullptr);
  EXPECT_TRUE(surface->getRenderStates().empty());
  voGR::CameraNode* view = surface->viewCameraNode();
  ASSERT_NE(view, nullptr);
  EXPECT_STREQ(view->getName().c_str(), "ViewCam");
  EXPECT_EQ(view->getGraph(), f.system->getGraph());
  const ruGeom::Camera first = lookAt(ruLinear::Point(0, 0, 5), ruLinear::Point(0, 0, 0));
  surface->updateCamera(first);
  EXPECT_TRUE(view->getCamera() == first);
  // A replaced view camera node is the one updateCamera sets from then on.
  auto* replacement = new voGR::CameraNode();
  voGR::GraphEditor(f.system->getGraph()).addNode(replacement);
  surface->setCameraNode(replacement);
  EXPECT_EQ(surface->viewCameraNode(), replacement);
  const ruGeom::Camera second = lookAt(ruLinear::Point(0, 3, 5), ruLinear::Point(0, 0, 0));
  surface->updateCamera(second);
  EXPECT_TRUE(replacement->getCamera() == second);
  EXPECT_TRUE(view->getCamera() == first);
}

TEST(SurfaceDrawGLTest, RenderFrameFitsTheDocumentCameraToTheImageAspect) {
  SurfaceFixture f;
  ASSERT_TRUE(f.system);
  CentreBox box(f);
  // A wide image: the box's square face stays square and centred.
  ru::Reference<ruImage::Image> image = f.surface->renderFrame(SurfaceFixture::frameParameters(200, 100, false));
  ASSERT_TRUE(asBytes(image));
  voGR::test::writeFrame(*asBytes(image), "surface_renderframe_wide");
  int x0, y0, x1, y1;
  ASSERT_TRUE(pixelBox(*asBytes(image), ruImage::Byte4{255, 0, 0, 255}, 100, x0, y0, x1, y1));
  const int width = x1 - x0 + 1, height = y1 - y0 + 1;
  EXPECT_GT(height, 10);
  EXPECT_NEAR(width, height, 2);
  EXPECT_NEAR((x0 + x1 + 1) / 2.0, 100.0, 1.5);
  EXPECT_NEAR((y0 + y1 + 1) / 2.0, 50.0, 1.5);
}
