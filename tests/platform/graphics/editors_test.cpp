// Render editors: what each effect puts in a 256 x 256 frame, and the order of their passes.

#include "glscene.h"

#include "platform/geometry/construct.h"
#include "platform/graphics/editors.h"
#include "platform/graphics/pass.h"
#include "platform/graphics/shader.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <deque>
#include <string>

using namespace voGR;
using voGR::test::kSize;
using ruImage::Byte4;
using ruLinear::Point;
using ruLinear::Vector;

namespace {

using Image = ruImage::TypedImage<Byte4>;
constexpr Byte4 kBackground{64, 64, 64, 255};

ru::Reference<ruGeom::CompactMesh> cuboid(const Point& a, const Point& b) {
  ru::Reference<ruGeom::CompactMesh> mesh(new ruGeom::CompactMesh());
  ruGeom::constructCuboid(ruLinear::Range3d(a, b), *mesh);
  return mesh;
}

// A mesh of the given triangles, as corner triples.
ru::Reference<ruGeom::CompactMesh> triangles(const std::vector<Point>& corners) {
  ru::Reference<ruGeom::CompactMesh> mesh(new ruGeom::CompactMesh());
  const int n = static_cast<int>(corners.size());
  mesh->setNumVertices(n);
  for (int i = 0; i < n; ++i) mesh->editVertices()[i] = ruGeom::MeshVertex(corners[i]);
  mesh->setNumTriangles(n / 3);
  for (int i = 0; i < n; ++i) mesh->editTriangles()[i] = static_cast<std::uint32_t>(i);
  return mesh;
}

// The rectangle [x0, x1] x [y0, y1] at height z, as two triangles.
ru::Reference<ruGeom::CompactMesh> rectangle(double x0, double x1, double y0, double y1, double z) {
  return triangles({Point(x0, y0, z), Point(x1, y0, z), Point(x1, y1, z), Point(x0, y0, z), Point(x1, y1, z),
                    Point(x0, y1, z)});
}

// A cube of side 2 around the origin without its bottom face (z = -1): open below.
ru::Reference<ruGeom::CompactMesh> openBox() {
  std::vector<Point> corners;
  auto quad = [&](Point a, Point b, Point c, Point d) { corners.insert(corners.end(), {a, b, c, a, c, d}); };
  quad(Point(-1, -1, 1), Point(1, -1, 1), Point(1, 1, 1), Point(-1, 1, 1));
  quad(Point(-1, -1, -1), Point(1, -1, -1), Point(1, -1, 1), Point(-1, -1, 1));
  quad(Point(1, -1, -1), Point(1, 1, -1), Point(1, 1, 1), Point(1, -1, 1));
  quad(Point(1, 1, -1), Point(-1, 1, -1), Point(-1, 1, 1), Point(1, 1, 1));
  quad(Point(-1, 1, -1), Point(-1, -1, -1), Point(-1, -1, 1), Point(-1, 1, 1));
  return triangles(corners);
}

Byte4 byte4(const ruUtil::Color& c) {
  auto b = [](float v) { return static_cast<std::uint8_t>(std::lround(std::clamp(v, 0.0f, 1.0f) * 255.0f)); };
  return Byte4(b(c.r), b(c.g), b(c.b), b(c.a));
}

int brightness(const Byte4& p) { return p.r + p.g + p.b; }

ruLinear::Point2 pixelOf(const ruGeom::Camera& camera, const Point& p) {
  ruLinear::Point2 v;
  EXPECT_TRUE(camera.project(p, v));
  return v;
}

const Byte4& at(const Image& image, const ruGeom::Camera& camera, const Point& p) {
  const ruLinear::Point2 v = pixelOf(camera, p);
  return image.pixel(static_cast<int>(v.x), static_cast<int>(v.y));
}

// A frame target on a real off-screen context: a clear pass, then whatever the test adds with
// the editors. Worlds select items by tag; "scene" items are drawn by `addScenePass`.
struct EffectScene {
  EffectScene() {
    ruString::CString error;
    system = DrawSystem::createOffscreen(&error);
    if (!system) {
      ADD_FAILURE() << "no off-screen context: " << error.c_str();
      return;
    }
    key = system->createFBOKey(ruRen::FBOInfo(kSize, kSize, true, false, false));
    info = system->createRenderTarget("Frame", key);
    target = static_cast<RenderTargetNode*>(info->firstState());
    database = new Database(system->getGraph());
    system->setActiveDatabase(database);
    cameraNode = new CameraNode();
    cameraNode->setName("RenCam");
    GraphEditor(system->getGraph()).addNode(cameraNode);
    context = std::make_unique<DrawContext>(system.get(), system->allocateID());
  }

  WorldNode* world(const char* tag) {
    const ruString::CString name(tag);
    WorldNode* node = database->getWorldNode(
        database->addWorld(new ListWorld(true), [name](DrawItem& item) { return item.contains(name); }));
    node->setName(tag);
    return node;
  }

  // A pass of `pass` after the last state, as the surfaces write them by hand.
  void addPass(Node* pass, WorldNode* worldNode) {
    GraphEditor editor(system->getGraph());
    DataNode* last = target->getLastState();
    auto* next = new RenderTargetNode();
    next->setName(target->getName());
    editor.addNode(next);
    last->appendState(next);
    editor.addNode(pass);
    if (worldNode) editor.createEdge(worldNode, pass, "world");
    if (dynamic_cast<RenderNode*>(pass)) editor.createEdge(cameraNode, pass, "camera");
    editor.createEdge(last, pass);
    editor.createEdge(pass, next, "target");
  }
  void addClear() {
    auto* clear = new ClearNode();
    clear->setName("Clear");
    clear->setColor(kBackground.r / 255.0f, kBackground.g / 255.0f, kBackground.b / 255.0f, 1.0f);
    addPass(clear, nullptr);
  }
  void addScenePass(WorldNode* sceneWorld) {
    auto* render = new RenderNode();
    render->setName("RenderTri");
    render->getRasterizerState().enablePolygonOffset(1.0f, 1.0f);
    addPass(render, sceneWorld);
  }

  // Emits one item with the given tags (each item its own source).
  ru::Reference<DrawItem> emit(ru::Reference<ruGeom::CompactMesh> mesh, const ruUtil::Color& color,
                               std::initializer_list<const char*> tags, ru::Reference<Shader> shader = {},
                               int depthInteraction = 0, int space = 0) {
    sources.emplace_back(0);
    Draw draw(*context, &sources.back(), false);
    draw.setMesh(std::move(mesh));
    draw.setColor(color);
    draw.setShader(std::move(shader));
    draw.setDepthInteraction(depthInteraction);
    draw.setSpace(space);
    for (const char* tag : tags) draw.addTag(tag);
    return draw.emit();
  }

  Image frame(const std::string& name) {
    Image image;
    EXPECT_TRUE(key.lock());
    EXPECT_TRUE(system->draw(target));
    EXPECT_TRUE(system->getRenDeviceContext()->readColorBuffer(key, 0, 0, kSize, kSize, image));
    key.unlock();
    voGR::test::writeFrame(image, "effects_" + name);
    return image;
  }

  void setCamera(const ruGeom::Camera& camera) { cameraNode->setCamera(camera); }

  std::unique_ptr<DrawSystem> system;
  ruRen::FBOKey key;
  ru::Reference<DataNodeStateInfo> info;
  RenderTargetNode* target = nullptr;
  ru::Reference<Database> database;
  CameraNode* cameraNode = nullptr;
  std::unique_ptr<DrawContext> context;
  std::deque<int> sources;
};

ruGeom::Camera lookingDown() {
  return voGR::test::GLScene::camera(Point(0, 0, 5), Point(0, 0, 0), Vector(0, 1, 0));
}

// The pixels of a rectangle [x0, x1] x [y0, y1] at z = 0 seen by `lookingDown`: the centres of
// the pixels it covers lie within the projected corners.
struct PixelRect {
  double x0, x1, y0, y1;
  // Euclidean distance from a pixel centre to the rectangle (0 inside).
  double distance(int x, int y) const {
    const double cx = x + 0.5, cy = y + 0.5;
    const double dx = std::max({x0 - cx, 0.0, cx - x1}), dy = std::max({y0 - cy, 0.0, cy - y1});
    return std::sqrt(dx * dx + dy * dy);
  }
  bool inside(int x, int y) const { return x + 0.5 > x0 && x + 0.5 < x1 && y + 0.5 > y0 && y + 0.5 < y1; }
};

PixelRect project(const ruGeom::Camera& camera, double x0, double x1, double y0, double y1) {
  const ruLinear::Point2 a = pixelOf(camera, Point(x0, y0, 0)), b = pixelOf(camera, Point(x1, y1, 0));
  return {std::min(a.x, b.x), std::max(a.x, b.x), std::min(a.y, b.y), std::max(a.y, b.y)};
}

}  // namespace

TEST(GlowEditorGLTest, PixelsWithinTheSizeOutsideTheSilhouetteTakeTheGlowColourAndFartherOnesKeepTheBackground) {
  EffectScene s;
  ASSERT_TRUE(s.system);
  WorldNode* scene = s.world("scene");
  WorldNode* selected = s.world("selected");
  s.addClear();
  s.addScenePass(scene);
  const ruUtil::Color glow(1, 1, 0, 1);
  ASSERT_TRUE(GlowEditor(*s.system).add(s.target, selected, s.cameraNode, glow, true, 0.25));  // 8 pixels
  s.setCamera(lookingDown());
  const ruUtil::Color red(0.8f, 0.1f, 0.1f, 1);
  s.emit(rectangle(-0.5, 0.5, -0.5, 0.5, 0), red, {"scene", "selected"});
  const Image image = s.frame("glow");
  const PixelRect rect = project(lookingDown(), -0.5, 0.5, -0.5, 0.5);
  int glowing = 0, item = 0, far = 0;
  for (int y = 0; y < kSize; ++y) {
    for (int x = 0; x < kSize; ++x) {
      const double d = rect.distance(x, y);
      const Byte4& p = image.pixel(x, y);
      if (rect.inside(x, y) && d == 0 && x + 1.5 < rect.x1 && x - 0.5 > rect.x0 && y + 1.5 < rect.y1 && y - 0.5 > rect.y0) {
        EXPECT_TRUE(voGR::test::near(p, byte4(red), 1)) << x << "," << y;  // the item unchanged
        ++item;
      } else if (d > 0.75 && d <= 7.0) {
        EXPECT_TRUE(voGR::test::near(p, byte4(glow), 1)) << x << "," << y << " at " << d;
        ++glowing;
      } else if (d >= 9.5) {
        EXPECT_TRUE(voGR::test::near(p, kBackground, 0)) << x << "," << y << " at " << d;
        ++far;
      }
    }
  }
  EXPECT_GT(item, 1000);
  EXPECT_GT(glowing, 1000);
  EXPECT_GT(far, 10000);
}

TEST(GlowEditorGLTest, ThreeGlowsOfOneEditorEachKeepTheirColourAndSize) {
  EffectScene s;
  ASSERT_TRUE(s.system);
  WorldNode* scene = s.world("scene");
  WorldNode* a = s.world("a");
  WorldNode* b = s.world("b");
  WorldNode* c = s.world("c");
  s.addClear();
  s.addScenePass(scene);
  KLTGlowEditor glow(*s.system);
  const ruUtil::Color colors[3] = {{0.09f, 0.61f, 0.84f, 1}, {0.09f, 0.45f, 0.62f, 1}, {0.9f, 0.6f, 0.1f, 1}};
  const double sizes[3] = {0.125, 0.25, 0.5};  // 4, 8 and 16 pixels
  ASSERT_TRUE(glow.add(s.target, a, s.cameraNode, colors[0], true, sizes[0]));
  ASSERT_TRUE(glow.add(s.target, b, s.cameraNode, colors[1], true, sizes[1]));
  ASSERT_TRUE(glow.add(s.target, c, s.cameraNode, colors[2], true, sizes[2]));
  s.setCamera(lookingDown());
  const double x0[3] = {-1.5, -0.3, 0.9};
  for (int i = 0; i < 3; ++i) {
    s.emit(rectangle(x0[i], x0[i] + 0.6, -0.3, 0.3, 0), ruUtil::Color(0.2f, 0.2f, 0.2f, 1),
           {"scene", i == 0 ? "a" : i == 1 ? "b" : "c"});
  }
  const Image image = s.frame("three_glows");
  for (int i = 0; i < 3; ++i) {
    const PixelRect rect = project(lookingDown(), x0[i], x0[i] + 0.6, -0.3, 0.3);
    const int pixels = int(std::lround(sizes[i] * 32));
    const int y = int((rect.y0 + rect.y1) / 2);
    // Below the rectangle, straight down: the glow runs exactly `pixels` rows.
    int run = 0;
    for (int yy = int(std::floor(rect.y0)) - 1; yy >= 0 && voGR::test::near(image.pixel(int(rect.x0) + 5, yy), byte4(colors[i]), 2); --yy) ++run;
    EXPECT_NEAR(run, pixels, 1) << "glow " << i;
    EXPECT_TRUE(voGR::test::near(image.pixel(int(rect.x0) + 5, y), Byte4(51, 51, 51, 255), 1)) << "glow " << i;
  }
}

TEST(XRayEditorGLTest, AHiddenXRayItemShowsBetweenItsColourAndTheOccluderAndNotWithTheBehindFilter) {
  for (bool behind : {false, true}) {
    EffectScene s;
    ASSERT_TRUE(s.system);
    WorldNode* scene = s.world("scene");
    WorldNode* xray = s.world("xray");
    s.addClear();
    s.addScenePass(scene);
    XRayEditor editor(*s.system);
    if (behind) editor.setBehindFilter([](DrawItem& item) { return !item.isActive() && item.getDepthInteraction() != 1; });
    ASSERT_TRUE(editor.add(s.target, xray, s.cameraNode));
    s.setCamera(lookingDown());
    const ruUtil::Color blue(0.1f, 0.2f, 0.9f, 1), red(0.9f, 0.1f, 0.1f, 1);
    s.emit(rectangle(-0.3, 0.3, -0.3, 0.3, 1.0), blue, {"scene"});  // nearer
    // Behind the blue one and reaching out from under it; depth interaction 0 so the filter
    // decides.
    s.emit(rectangle(-0.6, 0.6, -0.6, 0.6, 0.0), red, {"xray"});
    const Image image = s.frame(behind ? "xray_behind_filter" : "xray");
    const ruGeom::Camera camera = lookingDown();
    const Byte4 hidden = at(image, camera, Point(0, 0, 0));
    const Byte4 exposed = at(image, camera, Point(0.5, 0.5, 0));
    EXPECT_TRUE(voGR::test::near(exposed, byte4(red), 1));
    if (behind) {
      EXPECT_TRUE(voGR::test::near(hidden, byte4(blue), 1));
    } else {
      EXPECT_FALSE(voGR::test::near(hidden, byte4(blue), 3));
      const Byte4 a = byte4(blue), b = byte4(red);
      EXPECT_GT(hidden.r, std::min(a.r, b.r));
      EXPECT_LT(hidden.r, std::max(a.r, b.r));
      EXPECT_GT(hidden.b, std::min(a.b, b.b));
      EXPECT_LT(hidden.b, std::max(a.b, b.b));
    }
  }
}

TEST(GroundShadowEditorGLTest, TheGroundBelowAnItemIsDarkerThanBesideIt) {
  EffectScene s;
  ASSERT_TRUE(s.system);
  WorldNode* scene = s.world("scene");
  s.addClear();
  ASSERT_TRUE(GroundShadowEditor(*s.system).add(s.target, scene, s.cameraNode));
  s.addScenePass(scene);
  const ruGeom::Camera camera = voGR::test::GLScene::camera(Point(0, -10, 8), Point(0, 0, 1));
  s.setCamera(camera);
  s.emit(cuboid(Point(-0.5, -0.5, 2), Point(0.5, 0.5, 3)), ruUtil::Color(0.7f, 0.7f, 0.7f, 1), {"scene"});
  const Image image = s.frame("ground_shadow");
  const Byte4 below = at(image, camera, Point(0, 0, 0));
  const Byte4 beside = at(image, camera, Point(2.5, 0, 0));
  EXPECT_TRUE(voGR::test::near(beside, kBackground, 0));
  EXPECT_LT(brightness(below), brightness(beside) - 60);
  // Soft: halfway out of the footprint's edge the shadow is lighter than at its middle.
  const Byte4 edge = at(image, camera, Point(0.5, 0, 0));
  EXPECT_GT(brightness(edge), brightness(below));
  EXPECT_LT(brightness(edge), brightness(beside));
}

TEST(ScreenSpaceEditorGLTest, AnItemAtGivenPixelsCoversExactlyThemOnTopOfANearerSceneItem) {
  EffectScene s;
  ASSERT_TRUE(s.system);
  WorldNode* scene = s.world("scene");
  WorldNode* screen = s.world("screen");
  s.addClear();
  s.addScenePass(scene);
  ASSERT_TRUE(ScreenSpaceEditor(*s.system).add(s.target, screen, s.cameraNode));
  s.setCamera(lookingDown());
  const ruUtil::Color blue(0.1f, 0.2f, 0.9f, 1), green(0.1f, 0.9f, 0.2f, 1);
  s.emit(rectangle(-1, 1, -1, 1, 4.0), blue, {"scene"});  // just in front of the near plane's eye
  s.emit(rectangle(100, 140, 100, 120, 0), green, {"screen"}, {}, 0, 1);
  const Image image = s.frame("screen_space");
  int green_ = 0;
  for (int y = 0; y < kSize; ++y) {
    for (int x = 0; x < kSize; ++x) {
      const bool inside = x >= 100 && x < 140 && y >= 100 && y < 120;
      const bool isGreen = voGR::test::near(image.pixel(x, y), byte4(green), 1);
      EXPECT_EQ(inside, isGreen) << x << "," << y;
      green_ += isGreen ? 1 : 0;
    }
  }
  EXPECT_EQ(green_, 40 * 20);
  EXPECT_TRUE(voGR::test::near(image.pixel(99, 110), byte4(blue), 1));
}

TEST(BackgroundEditorGLTest, TheShaderCoversTheFrameAndStartsItWithAClearDepth) {
  EffectScene s;
  ASSERT_TRUE(s.system);
  WorldNode* scene = s.world("scene");
  ru::Reference<RadialGradientColorShader> gradient(new RadialGradientColorShader());
  gradient->color0 = ruUtil::Color(1, 0, 0, 1);
  gradient->color2 = ruUtil::Color(0, 0, 1, 1);
  gradient->color1 = ruUtil::Color(0, 1, 0, 1);
  gradient->position0 = 0.0f;
  gradient->position1 = 0.5f;
  gradient->position2 = 0.9f;
  ASSERT_TRUE(BackgroundEditor(*s.system).add(s.target, s.cameraNode, gradient));
  s.addScenePass(scene);
  s.setCamera(lookingDown());
  s.emit(rectangle(-0.1, 0.1, -0.1, 0.1, 0), ruUtil::Color(1, 1, 1, 1), {"scene"});
  // Two frames: the second must not keep the first's depth.
  s.frame("background_first");
  const Image image = s.frame("background");
  EXPECT_TRUE(voGR::test::near(image.pixel(0, 0), Byte4(0, 0, 255, 255), 2));
  EXPECT_TRUE(voGR::test::near(image.pixel(128, 128), Byte4(255, 255, 255, 255), 0));
  // Between the first two stops the colour blends linearly by the distance from the centre over
  // half the diagonal.
  const double t = std::hypot(128.5 - 128.0, 100.5 - 128.0) / std::hypot(128.0, 128.0);
  const double f = t / 0.5;
  EXPECT_TRUE(voGR::test::near(image.pixel(128, 100), byte4(ruUtil::Color(float(1 - f), float(f), 0, 1)), 3))
      << int(image.pixel(128, 100).r) << " " << int(image.pixel(128, 100).g);
}

namespace {

struct CapCase {
  const char* name;
  bool closed;
  bool caps;
};

// A cube of side 2 around the origin cut by the plane z = 0, keeping the lower half, with the cap
// editor drawing it; looking straight down into the cut. Answers how many sampled points of the
// cut show the cap colour.
int capPixels(const CapCase& c, const ruGeom::Camera& camera, KLTCapEditor* reuse = nullptr, bool visible = true) {
  EffectScene s;
  if (!s.system) return -1;
  WorldNode* tri = s.world("tri");
  s.addClear();
  KLTCapEditor editor(*s.system);
  const ruUtil::Color capColor(0.95f, 0.1f, 0.6f, 1);
  editor.setCapColor(capColor);
  EXPECT_TRUE(editor.add(s.target, tri, s.cameraNode, c.caps));
  const ruLinear::Plane plane(Point(0, 0, 0), Vector(0, 0, -1));
  editor.updateCapPosition(s.target, plane, ruLinear::Range3d(Point(-1.1, -1.1, -1.1), Point(1.1, 1.1, 1.1)));
  editor.updateCapVisibility(s.target, visible);
  if (reuse) *reuse = editor;
  ru::Reference<KLTFacetedShader> shader(new KLTFacetedShader());
  shader->color = ruUtil::Color(0.6f, 0.6f, 0.6f, 1);
  shader->clippingPlanes().add(plane);
  s.emit(c.closed ? cuboid(Point(-1, -1, -1), Point(1, 1, 1)) : openBox(), ruUtil::Color(1, 1, 1, 1), {"tri"}, shader);
  s.setCamera(camera);
  const Image image = s.frame(std::string("caps_") + c.name);
  int count = 0;
  for (double x = -0.8; x <= 0.8; x += 0.1) {
    for (double y = -0.8; y <= 0.8; y += 0.1) count += voGR::test::near(at(image, camera, Point(x, y, 0)), byte4(capColor), 1);
  }
  return count;
}

constexpr int kCutSamples = 17 * 17;

}  // namespace

TEST(KLTCapEditorGLTest, AClosedCubeCutByThePlaneShowsTheCapColourAcrossTheCut) {
  EXPECT_EQ(capPixels({"closed", true, true}, lookingDown()), kCutSamples);
  const ruGeom::Camera oblique = voGR::test::GLScene::camera(Point(0.7, -2.5, 4.5), Point(0, 0, 0));
  EXPECT_EQ(capPixels({"closed_oblique", true, true}, oblique), kCutSamples);
}

// The samples are where the view runs out through the open bottom: there the parity stays even.
// (Near the walls a ray leaving through a wall crosses one surface, which no count can tell from
// a solid's inside; the frame written shows that ring.)
TEST(KLTCapEditorGLTest, AnOpenBoxShowsNoCap) {
  EXPECT_EQ(capPixels({"open", false, true}, lookingDown()), 0);
}

TEST(KLTCapEditorGLTest, WithoutCapsOrHiddenTheCutStaysOpenAndTheUpdatesAreHarmless) {
  EXPECT_EQ(capPixels({"not_added", true, false}, lookingDown()), 0);
  EXPECT_EQ(capPixels({"hidden", true, true}, lookingDown(), nullptr, false), 0);
  KLTCapEditor unused;
  unused.updateCapPosition(nullptr, ruLinear::Plane(), ruLinear::Range3d());
  unused.updateCapGeom(nullptr, true);
  unused.updateCapVisibility(nullptr, false);
  EXPECT_FALSE(unused.hasCapGeometry());
}

TEST(KLTCapEditorGLTest, TheCapFollowsTheRangeAndGeometryUpdates) {
  KLTCapEditor editor;
  editor.updateCapPosition(nullptr, ruLinear::Plane(Point(0, 0, 0), Vector(0, 0, 1)),
                           ruLinear::Range3d(Point(-1, -1, -1), Point(1, 1, 1)));
  EXPECT_TRUE(editor.hasCapGeometry());
  editor.updateCapGeom(nullptr, false);
  EXPECT_FALSE(editor.hasCapGeometry());
  editor.updateCapGeom(nullptr, true);
  EXPECT_TRUE(editor.hasCapGeometry());
  // A plane missing the range leaves no cap.
  editor.updateCapPosition(nullptr, ruLinear::Plane(Point(0, 0, 5), Vector(0, 0, 1)),
                           ruLinear::Range3d(Point(-1, -1, -1), Point(1, 1, 1)));
  EXPECT_FALSE(editor.hasCapGeometry());
  ruLinear::Range3d unbounded;
  editor.updateCapPosition(nullptr, ruLinear::Plane(), unbounded);
  EXPECT_FALSE(editor.hasCapGeometry());
}

TEST(RenderEditorsGLTest, PassesRunInTheOrderTheEditorsWereCalled) {
  EffectScene s;
  ASSERT_TRUE(s.system);
  WorldNode* scene = s.world("scene");
  WorldNode* lines = s.world("lines");
  WorldNode* selected = s.world("selected");
  WorldNode* xray = s.world("xray");
  WorldNode* billboards = s.world("billboards");
  WorldNode* screen = s.world("screen");
  DrawSystem& ds = *s.system;
  RenderTargetNode* first = s.target;
  ASSERT_TRUE(BackgroundEditor(ds).add(first, s.cameraNode, new RadialGradientColorShader()));
  ASSERT_TRUE(GroundShadowEditor(ds).add(first, scene, s.cameraNode));
  KLTCapEditor caps(ds);
  ASSERT_TRUE(caps.add(first, scene, s.cameraNode, true));
  s.addScenePass(lines);
  KLTGlowEditor glow(ds);
  ASSERT_TRUE(glow.add(first, selected, s.cameraNode, ruUtil::Color(1, 1, 1, 1), true, 0.18));
  ASSERT_TRUE(glow.add(first, selected, s.cameraNode, ruUtil::Color(1, 0, 1, 1), true, 0.5));
  // The later editors get the last state, as the surfaces pass it; each still appends.
  RenderTargetNode* last = static_cast<RenderTargetNode*>(first->getLastState());
  ASSERT_TRUE(XRayEditor(ds).add(last, xray, s.cameraNode));
  XRayEditor second(ds);
  second.setBehindFilter([](DrawItem&) { return true; });
  ASSERT_TRUE(second.add(last, billboards, s.cameraNode));
  ASSERT_TRUE(ScreenSpaceEditor(ds).add(last, screen, s.cameraNode));
  s.setCamera(lookingDown());
  s.emit(cuboid(Point(-0.5, -0.5, 0), Point(0.5, 0.5, 1)), ruUtil::Color(1, 1, 1, 1), {"scene", "selected"});
  s.frame("all_editors");

  std::vector<std::string> passes;
  for (Node* node : ds.getExecutionTrace()) {
    if (dynamic_cast<DataNode*>(node) || dynamic_cast<CameraNode*>(node) || dynamic_cast<WorldNode*>(node)) continue;
    passes.push_back(std::string(node->getKindName()) + " " + node->getName().c_str());
  }
  const std::vector<std::string> expected = {
      "BackgroundNode Background", "GroundShadowNode GroundShadow", "RenderNode RenderTri", "CapNode Caps",
      "RenderNode RenderTri",      "GlowNode Glow",                 "GlowNode Glow",        "XRayNode XRay",
      "XRayNode XRay",             "ScreenSpaceNode ScreenSpace"};
  EXPECT_EQ(passes, expected);
  // One chain: every pass feeds the state after the one it reads.
  EXPECT_EQ(first->getChain().size(), expected.size() + 1);
}

TEST(RenderEditorsGLTest, BadInputAddsNothingAndSaysWhy) {
  EffectScene s;
  ASSERT_TRUE(s.system);
  WorldNode* scene = s.world("scene");
  voGR::test::DebugCapture capture;
  const std::size_t nodes = s.system->getGraph()->getNodes().size();
  DrawSystem& ds = *s.system;
  EXPECT_FALSE(GroundShadowEditor(ds).add(nullptr, scene, s.cameraNode));
  EXPECT_FALSE(GlowEditor(ds).add(s.target, nullptr, s.cameraNode, ruUtil::Color(), true, 0.25));
  EXPECT_FALSE(XRayEditor(ds).add(s.target, scene, nullptr));
  EXPECT_FALSE(ScreenSpaceEditor(ds).add(nullptr, nullptr, nullptr));
  EXPECT_FALSE(BackgroundEditor(ds).add(s.target, s.cameraNode, nullptr));
  EXPECT_FALSE(KLTCapEditor().add(s.target, scene, s.cameraNode, true));  // no draw system
  RenderTargetNode stray;  // in no graph
  EXPECT_FALSE(ScreenSpaceEditor(ds).add(&stray, scene, s.cameraNode));
  EXPECT_EQ(s.system->getGraph()->getNodes().size(), nodes);
  EXPECT_TRUE(capture.contains("voGR::GroundShadowEditor::add: the target is null"));
  EXPECT_TRUE(capture.contains("voGR::BackgroundEditor::add: no shader"));
  // A glow of an empty world, an absurd size and a frame still draw.
  s.addClear();
  ASSERT_TRUE(GlowEditor(ds).add(s.target, scene, s.cameraNode, ruUtil::Color(1, 1, 1, 1), true, -5.0));
  ASSERT_TRUE(GlowEditor(ds).add(s.target, scene, s.cameraNode, ruUtil::Color(1, 1, 1, 1), true, std::nan("")));
  s.setCamera(lookingDown());
  const Image image = s.frame("bad_input");
  EXPECT_EQ(voGR::test::countPixels(image, kBackground, 0), kSize * kSize);
}

TEST(GlowEditorGLTest, TheKeptMaskFollowsTheCameraAndTheItemsAndAStillFrameRepeats) {
  EffectScene s;
  ASSERT_TRUE(s.system);
  WorldNode* scene = s.world("scene");
  WorldNode* selected = s.world("selected");
  s.addClear();
  ASSERT_TRUE(GroundShadowEditor(*s.system).add(s.target, scene, s.cameraNode));
  s.addScenePass(scene);
  const ruUtil::Color glow(1, 1, 0, 1);
  ASSERT_TRUE(GlowEditor(*s.system).add(s.target, selected, s.cameraNode, glow, true, 0.25));
  s.setCamera(lookingDown());
  const ruUtil::Color red(0.8f, 0.1f, 0.1f, 1);
  auto item = s.emit(rectangle(-0.5, 0.5, -0.5, 0.5, 0), red, {"scene", "selected"});
  const Image first = s.frame("glow_kept_first");
  const Image again = s.frame("glow_kept_again");
  EXPECT_EQ(std::memcmp(first.pixels(), again.pixels(), std::size_t(kSize) * kSize * 4), 0);
  auto glowAt = [&](const Image& image, double x, double y) {
    return voGR::test::near(at(image, lookingDown(), Point(x, y, 0)), byte4(glow), 1);
  };
  const PixelRect rect = project(lookingDown(), -0.5, 0.5, -0.5, 0.5);
  const double pixel = 1.0 / (rect.x1 - rect.x0);  // world units per pixel at z = 0
  EXPECT_TRUE(glowAt(first, 0.5 + 4 * pixel, 0));
  // The item moves right by 20 pixels: the glow moves with it.
  DrawData* former = s.system->getDrawData(&s.sources.back(), false);
  ASSERT_NE(former, nullptr);
  former->clear();
  s.emit(rectangle(-0.5 + 20 * pixel, 0.5 + 20 * pixel, -0.5, 0.5, 0), red, {"scene", "selected"});
  item = nullptr;
  const Image moved = s.frame("glow_kept_moved");
  EXPECT_FALSE(glowAt(moved, 0.5 + 4 * pixel, 0));
  EXPECT_TRUE(glowAt(moved, 0.5 + 24 * pixel, 0));
  EXPECT_TRUE(glowAt(moved, -0.5 + 16 * pixel, 0));
  // The camera moves: so does everything.
  const ruGeom::Camera shifted = voGR::test::GLScene::camera(Point(1, 0, 5), Point(1, 0, 0), Vector(0, 1, 0));
  s.setCamera(shifted);
  const Image panned = s.frame("glow_kept_panned");
  ruLinear::Point2 edge;
  ASSERT_TRUE(shifted.project(Point(0.5 + 20 * pixel, 0, 0), edge));
  EXPECT_TRUE(voGR::test::near(panned.pixel(int(edge.x) + 4, int(edge.y)), byte4(glow), 1));
  EXPECT_TRUE(voGR::test::near(panned.pixel(int(edge.x) - 4, int(edge.y)), byte4(red), 1));
}

TEST(XRayEditorGLTest, AnItemOfDepthInteractionTwoIsDrawnOnTopUndimmed) {
  EffectScene s;
  ASSERT_TRUE(s.system);
  WorldNode* scene = s.world("scene");
  WorldNode* xray = s.world("xray");
  s.addClear();
  s.addScenePass(scene);
  ASSERT_TRUE(XRayEditor(*s.system).add(s.target, xray, s.cameraNode));
  s.setCamera(lookingDown());
  const ruUtil::Color blue(0.1f, 0.2f, 0.9f, 1), green(0.1f, 0.9f, 0.2f, 1);
  s.emit(rectangle(-0.6, 0.6, -0.6, 0.6, 1.0), blue, {"scene"});
  s.emit(rectangle(-0.3, 0.3, -0.3, 0.3, 0.0), green, {"xray"}, {}, 2);
  const Image image = s.frame("xray_on_top");
  EXPECT_TRUE(voGR::test::near(at(image, lookingDown(), Point(0, 0, 0)), byte4(green), 1));
  EXPECT_TRUE(voGR::test::near(at(image, lookingDown(), Point(0.45, 0.45, 0)), byte4(blue), 1));
}

TEST(GlowEditorGLTest, TheGlowFollowsTheClippedSilhouette) {
  EffectScene s;
  ASSERT_TRUE(s.system);
  WorldNode* scene = s.world("scene");
  WorldNode* selected = s.world("selected");
  s.addClear();
  s.addScenePass(scene);
  const ruUtil::Color glow(1, 1, 0, 1);
  ASSERT_TRUE(GlowEditor(*s.system).add(s.target, selected, s.cameraNode, glow, true, 0.25));
  s.setCamera(lookingDown());
  ru::Reference<KLTFacetedShader> shader(new KLTFacetedShader());
  shader->clippingPlanes().add(ruLinear::Plane(Point(0, 0, 0), Vector(-1, 0, 0)));  // keeps x <= 0
  s.emit(rectangle(-0.5, 0.5, -0.5, 0.5, 0), ruUtil::Color(1, 1, 1, 1), {"scene", "selected"}, shader);
  const Image image = s.frame("glow_clipped");
  const PixelRect rect = project(lookingDown(), -0.5, 0.5, -0.5, 0.5);
  const double pixel = 1.0 / (rect.x1 - rect.x0);
  auto glowAt = [&](double x) { return voGR::test::near(at(image, lookingDown(), Point(x, 0, 0)), byte4(glow), 1); };
  EXPECT_TRUE(glowAt(4 * pixel));            // beside the cut
  EXPECT_TRUE(glowAt(-0.5 - 4 * pixel));     // beside the kept edge
  EXPECT_FALSE(glowAt(0.5 + 4 * pixel));     // beside the edge cut away
  EXPECT_TRUE(voGR::test::near(at(image, lookingDown(), Point(0.25, 0, 0)), kBackground, 0));
}

// A turned camera takes the kept ground mask through the plane's homography: the frame must match
// one drawn from scratch with that camera, up to resampling at the mask's soft edge.
TEST(GroundShadowEditorGLTest, AShadowKeptFromAnotherViewMatchesOneDrawnAfresh) {
  auto scene = [](EffectScene& s) {
    WorldNode* world = s.world("scene");
    s.addClear();
    EXPECT_TRUE(GroundShadowEditor(*s.system).add(s.target, world, s.cameraNode));
    s.addScenePass(world);
    s.emit(cuboid(Point(-0.5, -0.5, 2), Point(0.5, 0.5, 3)), ruUtil::Color(0.7f, 0.7f, 0.7f, 1), {"scene"});
    s.emit(cuboid(Point(0.8, 0.2, 1), Point(1.6, 0.6, 1.5)), ruUtil::Color(0.7f, 0.7f, 0.7f, 1), {"scene"});
  };
  const ruGeom::Camera first = voGR::test::GLScene::camera(Point(0, -10, 8), Point(0, 0, 1));
  const ruGeom::Camera turned = voGR::test::GLScene::camera(Point(2.5, -9, 7), Point(0.2, 0, 1));
  EffectScene kept;
  ASSERT_TRUE(kept.system);
  scene(kept);
  kept.setCamera(first);
  kept.frame("shadow_kept_first");
  kept.setCamera(turned);
  const std::int64_t before = kept.system->getStatistics().itemsDrawn;
  const Image reprojected = kept.frame("shadow_kept_turned");
  // Only the scene pass drew the two items: the shadow did not draw them again.
  EXPECT_EQ(kept.system->getStatistics().itemsDrawn - before, 2);
  EffectScene fresh;
  ASSERT_TRUE(fresh.system);
  scene(fresh);
  fresh.setCamera(turned);
  const Image drawn = fresh.frame("shadow_fresh_turned");
  int differing = 0, largest = 0, darkened = 0;
  for (int y = 0; y < kSize; ++y) {
    for (int x = 0; x < kSize; ++x) {
      const Byte4 a = reprojected.pixel(x, y), b = drawn.pixel(x, y);
      const int d = std::max({std::abs(a.r - b.r), std::abs(a.g - b.g), std::abs(a.b - b.b)});
      largest = std::max(largest, d);
      differing += d > 2 ? 1 : 0;
      darkened += brightness(b) < brightness(kBackground) - 30 ? 1 : 0;
    }
  }
  EXPECT_GT(darkened, 200);  // there is a shadow to compare
  EXPECT_LT(differing, darkened / 10);
  EXPECT_LE(largest, 40) << differing << " of " << darkened;
  // And the shadow is where the footprints are: on a grid of ground points, those more than the
  // blur away from every footprint's edge keep the background outside and take the full
  // darkness inside (where no cube covers them).
  struct Rect {
    double x0, x1, y0, y1;
  };
  const Rect footprints[2] = {{-0.5, 0.5, -0.5, 0.5}, {0.8, 1.6, 0.2, 0.6}};
  for (const auto& [image, camera] : {std::pair{&reprojected, &turned}, std::pair{&drawn, &turned}}) {
    int inside = 0, outside = 0;
    for (double x = -2.5; x <= 2.5; x += 0.025) {
      for (double y = -2.5; y <= 2.5; y += 0.025) {
        ruLinear::Point2 p;
        if (!camera->project(Point(x, y, 0), p) || p.x < 0 || p.y < 0 || p.x >= kSize || p.y >= kSize) continue;
        bool in = false;
        double edge = 1e9;  // pixels to the nearest footprint edge
        for (const Rect& r : footprints) {
          const bool within = x > r.x0 && x < r.x1 && y > r.y0 && y < r.y1;
          in = in || within;
          const Point nearest = within ? Point(std::min({x - r.x0, r.x1 - x}) < std::min({y - r.y0, r.y1 - y})
                                                   ? (x - r.x0 < r.x1 - x ? r.x0 : r.x1)
                                                   : x,
                                               std::min({x - r.x0, r.x1 - x}) < std::min({y - r.y0, r.y1 - y})
                                                   ? y
                                                   : (y - r.y0 < r.y1 - y ? r.y0 : r.y1),
                                               0)
                                       : Point(std::clamp(x, r.x0, r.x1), std::clamp(y, r.y0, r.y1), 0);
          ruLinear::Point2 q;
          if (camera->project(nearest, q)) edge = std::min(edge, std::hypot(q.x - p.x, q.y - p.y));
        }
        if (edge < GroundShadowEditor::blurPixels + 3) continue;
        const Byte4 pixel = image->pixel(int(p.x), int(p.y));
        if (brightness(pixel) > 300) continue;  // a cube in front
        if (in) {
          const int expected = int(std::lround(kBackground.r * (1 - GroundShadowEditor::darkness)));
          EXPECT_NEAR(pixel.r, expected, 3) << x << "," << y;
          ++inside;
        } else {
          EXPECT_TRUE(voGR::test::near(pixel, kBackground, 0)) << x << "," << y;
          ++outside;
        }
      }
    }
    EXPECT_GT(inside, 40);
    EXPECT_GT(outside, 1000);
  }
}

namespace {

// A cube on 8 shared corners, its 12 triangles wound outward (or inward): closed and oriented.
ru::Reference<ruGeom::CompactMesh> sharedCube(const Point& a, const Point& b, bool inward) {
  ru::Reference<ruGeom::CompactMesh> mesh(new ruGeom::CompactMesh());
  mesh->setNumVertices(8);
  for (int i = 0; i < 8; ++i) {
    mesh->editVertices()[i] = ruGeom::MeshVertex(Point(i & 1 ? b.x : a.x, i & 2 ? b.y : a.y, i & 4 ? b.z : a.z));
  }
  const std::uint32_t quads[6][4] = {{0, 2, 3, 1}, {4, 5, 7, 6}, {0, 1, 5, 4}, {2, 6, 7, 3}, {0, 4, 6, 2}, {1, 3, 7, 5}};
  mesh->setNumTriangles(12);
  std::uint32_t* t = mesh->editTriangles();
  for (int q = 0; q < 6; ++q) {
    const std::uint32_t* c = quads[q];
    const std::uint32_t tri[6] = {c[0], c[1], c[2], c[0], c[2], c[3]};
    for (int k = 0; k < 6; ++k) t[6 * q + k] = tri[inward ? 5 - k : k];
  }
  return mesh;
}

Image glowFrame(ru::Reference<ruGeom::CompactMesh> mesh, const std::string& name) {
  EffectScene s;
  if (!s.system) return {};
  WorldNode* scene = s.world("scene");
  WorldNode* selected = s.world("selected");
  s.addClear();
  s.addScenePass(scene);
  EXPECT_TRUE(GlowEditor(*s.system).add(s.target, selected, s.cameraNode, ruUtil::Color(1, 1, 0, 1), true, 0.25));
  s.setCamera(voGR::test::GLScene::camera(Point(2, -3, 4), Point(0, 0, 0)));
  s.emit(std::move(mesh), ruUtil::Color(0.8f, 0.1f, 0.1f, 1), {"scene", "selected"});
  return s.frame(name);
}

}  // namespace

// A closed solid's mask skips its triangles facing away; the glow must not change for it.
TEST(GlowEditorGLTest, AClosedSolidGlowsAsTheSameShapeMadeOfSeparateFaces) {
  const Image faces = glowFrame(cuboid(Point(-0.5, -0.5, -0.5), Point(0.5, 0.5, 0.5)), "glow_cube_faces");
  const Image outward = glowFrame(sharedCube(Point(-0.5, -0.5, -0.5), Point(0.5, 0.5, 0.5), false), "glow_cube_closed");
  const Image inward = glowFrame(sharedCube(Point(-0.5, -0.5, -0.5), Point(0.5, 0.5, 0.5), true), "glow_cube_inward");
  ASSERT_EQ(faces.xSize(), kSize);
  int glow = 0, same = 0, sameInward = 0;
  for (int y = 0; y < kSize; ++y) {
    for (int x = 0; x < kSize; ++x) {
      const bool isGlow = voGR::test::near(faces.pixel(x, y), Byte4(255, 255, 0, 255), 1);
      glow += isGlow;
      same += isGlow == voGR::test::near(outward.pixel(x, y), Byte4(255, 255, 0, 255), 1);
      sameInward += isGlow == voGR::test::near(inward.pixel(x, y), Byte4(255, 255, 0, 255), 1);
    }
  }
  EXPECT_GT(glow, 1000);
  EXPECT_EQ(same, kSize * kSize);
  EXPECT_EQ(sameInward, kSize * kSize);
}
