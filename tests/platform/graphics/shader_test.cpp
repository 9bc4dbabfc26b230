// Pixels: what the shaders and the default rendering put in a 256 x 256 frame.

#include "glscene.h"

#include "platform/geometry/construct.h"
#include "platform/graphics/pass.h"
#include "platform/graphics/shader.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace voGR;
using voGR::test::GLScene;
using voGR::test::kClear;
using voGR::test::kSize;
using ruImage::Byte4;
using ruLinear::Point;
using ruLinear::Vector;

namespace {

ru::Reference<ruGeom::CompactMesh> cuboid(const Point& a, const Point& b) {
  ru::Reference<ruGeom::CompactMesh> mesh(new ruGeom::CompactMesh());
  ruGeom::constructCuboid(ruLinear::Range3d(a, b), *mesh);
  return mesh;
}

Byte4 byte4(const ruUtil::Color& c) {
  auto b = [](float v) { return static_cast<std::uint8_t>(std::lround(std::clamp(v, 0.0f, 1.0f) * 255.0f)); };
  return Byte4(b(c.r), b(c.g), b(c.b), b(c.a));
}

// The pixel a world point falls in (bottom-up rows, as read back).
const Byte4& at(const ruImage::TypedImage<Byte4>& image, const ruGeom::Camera& camera, const Point& p) {
  ruLinear::Point2 v;
  EXPECT_TRUE(camera.project(p, v));
  return image.pixel(static_cast<int>(v.x), static_cast<int>(v.y));
}

// Length of the run of pixels of `color` through (x, y) along a row or a column.
int run(const ruImage::TypedImage<Byte4>& image, int x, int y, bool alongRow, const Byte4& color) {
  int count = 0;
  for (int i = 0; i < (alongRow ? image.xSize() : image.ySize()); ++i) {
    count += voGR::test::near(alongRow ? image.pixel(i, y) : image.pixel(x, i), color, 8) ? 1 : 0;
  }
  return count;
}

}  // namespace

TEST(PixelsGLTest, ALambertCuboidIsLitByTheLambertFormulaWhereItProjectsAndClearElsewhere) {
  GLScene scene;
  const Point eye(1.5, -2.0, 5.0);
  const ruGeom::Camera camera = GLScene::camera(eye, Point(0, 0, 0));
  scene.setCamera(camera);
  ru::Reference<LambertShader> shader(new LambertShader());
  shader->color = ruUtil::Color(0.67f, 0.5f, 0.3f, 1.0f);
  int source = 0;
  {
    Draw draw(*scene.context, &source, false);
    draw.setShader(shader);
    draw.setMesh(cuboid(Point(-1, -1, -1), Point(1, 1, 1)));
    draw.emit();
  }
  const auto image = scene.frame("lambert_cuboid");
  // The centre pixel sees the top face (normal +z); the headlight shines along the view.
  const Vector toViewer = (eye - Point(0, 0, 0)).normalized();
  const double diffuse = 0.25 + 0.75 * std::abs(ruLinear::dot(Vector(0, 0, 1), toViewer));
  const Byte4 expected = byte4(ruUtil::Color(float(0.67 * diffuse), float(0.5 * diffuse), float(0.3 * diffuse), 1.0f));
  const Byte4 centre = image.pixel(kSize / 2, kSize / 2);
  EXPECT_TRUE(voGR::test::near(centre, expected, 3)) << int(centre.r) << "," << int(centre.g) << "," << int(centre.b)
                                                     << " expected " << int(expected.r) << "," << int(expected.g) << ","
                                                     << int(expected.b);
  // Clear colour away from the cuboid.
  EXPECT_EQ(image.pixel(2, 2), kClear);
  EXPECT_EQ(image.pixel(kSize - 3, kSize - 3), kClear);
  // Every pixel is either the clear colour or a lit face (no pixel brighter than full diffuse).
  int lit = 0;
  for (int y = 0; y < kSize; ++y) {
    for (int x = 0; x < kSize; ++x) {
      const Byte4& p = image.pixel(x, y);
      if (p == kClear) continue;
      ++lit;
      EXPECT_LE(p.r, 171 + 1);
    }
  }
  EXPECT_GT(lit, 2000);
}

TEST(PixelsGLTest, TheNearerOfTwoOverlappingItemsWins) {
  GLScene scene;
  int source = 0;
  {
    Draw draw(*scene.context, &source, false);
    draw.setColor(0.0f, 1.0f, 0.0f, 1.0f);
    draw.setMesh(cuboid(Point(-0.5, -0.5, 0.5), Point(0.5, 0.5, 1.0)));  // near, emitted first
    draw.emit();
    draw.setColor(1.0f, 0.0f, 0.0f, 1.0f);
    draw.setMesh(cuboid(Point(-1, -1, -1), Point(1, 1, 0)));  // far, larger
    draw.emit();
  }
  const auto image = scene.frame("nearer_wins");
  EXPECT_EQ(image.pixel(128, 128), Byte4(0, 255, 0, 255));
  const ruGeom::Camera camera = GLScene::camera(Point(0, 0, 5), Point(0, 0, 0), Vector(0, 1, 0));
  EXPECT_EQ(at(image, camera, Point(0.8, 0.8, 0)), Byte4(255, 0, 0, 255));
}

class LineWidthGLTest : public ::testing::TestWithParam<int> {};

TEST_P(LineWidthGLTest, LinesHaveTheWidthAsked) {
  const int width = GetParam();
  GLScene scene;
  ru::Reference<SolidColorShader> shader(new SolidColorShader());
  shader->color = ruUtil::Color(1, 1, 0, 1);
  shader->lineWidth = float(width);
  ru::Reference<ruGeom::CompactMesh> lines(new ruGeom::CompactMesh());
  ruGeom::constructLineSegment(Point(-2, 0.3, 0), Point(2, 0.3, 0), *lines);  // horizontal
  ruGeom::constructLineSegment(Point(0.7, -2, 0), Point(0.7, 2, 0), *lines);  // vertical
  int source = 0;
  {
    Draw draw(*scene.context, &source, false);
    draw.setShader(shader);
    draw.setMesh(lines);
    draw.emit();
  }
  const auto image = scene.frame("line_width_" + std::to_string(width));
  const Byte4 yellow(255, 255, 0, 255);
  EXPECT_EQ(run(image, 40, 0, false, yellow), width);   // across the horizontal line
  EXPECT_EQ(run(image, 0, 40, true, yellow), width);    // across the vertical line
}

INSTANTIATE_TEST_SUITE_P(Widths, LineWidthGLTest, ::testing::Values(1, 2, 5, 8),
                         [](const ::testing::TestParamInfo<int>& param) { return "Width" + std::to_string(param.param); });

TEST(PixelsGLTest, AShaderlessTexturedQuadShowsItsImage) {
  GLScene scene;
  voRES::Loader loader;
  // Quadrants of 8 x 8 texels: red top left, green top right, blue bottom left, white bottom right
  // (row 0 of an image is its top row).
  ru::Reference<ruImage::TypedImage<Byte4>> image(new ruImage::TypedImage<Byte4>(16, 16));
  for (int y = 0; y < 16; ++y) {
    for (int x = 0; x < 16; ++x) {
      const bool right = x >= 8, bottom = y >= 8;
      image->pixel(x, y) = !bottom ? (right ? Byte4(0, 255, 0, 255) : Byte4(255, 0, 0, 255))
                                   : (right ? Byte4(255, 255, 255, 255) : Byte4(0, 0, 255, 255));
    }
  }
  loader.addImage("Test/Quad", image);
  ru::Reference<ruGeom::CompactMesh> quad(new ruGeom::CompactMesh());
  ruGeom::constructRectangle(-1, 1, -1, 1, 2, 0.0, *quad, true);
  int source = 0;
  {
    Draw draw(*scene.context, &source, false);
    draw.setImageKey(loader.createImageKey("Test/Quad", 0));
    draw.setMesh(quad);
    draw.emit();
  }
  const auto frame = scene.frame("textured_quad");
  const ruGeom::Camera camera = GLScene::camera(Point(0, 0, 5), Point(0, 0, 0), Vector(0, 1, 0));
  EXPECT_EQ(at(frame, camera, Point(-0.5, 0.5, 0)), Byte4(255, 0, 0, 255));
  EXPECT_EQ(at(frame, camera, Point(0.5, 0.5, 0)), Byte4(0, 255, 0, 255));
  EXPECT_EQ(at(frame, camera, Point(-0.5, -0.5, 0)), Byte4(0, 0, 255, 255));
  EXPECT_EQ(at(frame, camera, Point(0.5, -0.5, 0)), Byte4(255, 255, 255, 255));
  EXPECT_EQ(at(frame, camera, Point(1.5, 1.5, 0)), kClear);
}

TEST(PixelsGLTest, AClippingPlaneRemovesTheHalfBehindItsNormal) {
  GLScene scene;
  ru::Reference<LambertShader> shader(new LambertShader());
  shader->clippingPlanes().add(ruLinear::Plane(Point(0.25, 0, 0), Vector(1, 0, 0)));  // keeps x >= 0.25
  int source = 0;
  {
    Draw draw(*scene.context, &source, false);
    draw.setShader(shader);
    draw.setMesh(cuboid(Point(-1, -1, -1), Point(1, 1, 1)));
    draw.emit();
  }
  const auto image = scene.frame("clipping_plane");
  const ruGeom::Camera camera = GLScene::camera(Point(0, 0, 5), Point(0, 0, 0), Vector(0, 1, 0));
  EXPECT_NE(at(image, camera, Point(0.6, 0, 1)), kClear);
  EXPECT_NE(at(image, camera, Point(0.3, 0.5, 1)), kClear);
  // Through the cut one sees the inside of the kept half down to its bottom face.
  EXPECT_EQ(at(image, camera, Point(0.1, 0, -1)), kClear);
  EXPECT_EQ(at(image, camera, Point(-0.6, 0, 1)), kClear);
  // The kept part: the columns from x = 0.25 on the top face to its right edge; the removed part
  // left of x = 0.25 on the bottom face.
  ruLinear::Point2 left, right, cut;
  camera.project(Point(0.25, 0, 1), left);
  camera.project(Point(1, 0, 1), right);
  camera.project(Point(0.25, 0, -1), cut);
  const int row = kSize / 2;
  for (int x = 0; x < kSize; ++x) {
    const bool kept = x + 0.5 > left.x + 1 && x + 0.5 < right.x - 1;
    const bool removed = x + 0.5 < cut.x - 1;
    if (kept) {
      EXPECT_NE(image.pixel(x, row), kClear) << x;
    }
    if (removed) {
      EXPECT_EQ(image.pixel(x, row), kClear) << x;
    }
  }
}

TEST(PixelsGLTest, VertexColorsAndTheThicknessShaderShowPerVertexData) {
  GLScene scene;
  auto mesh = cuboid(Point(-1, -1, -1), Point(1, 1, 1));
  ruGeom::MeshColor* colors = mesh->editColors();
  for (int i = 0; i < mesh->getNumVertices(); ++i) colors[i] = ruGeom::MeshColor{0, 0, 1, 1};
  ruGeom::WritableMeshAttributes thickness = mesh->allocAttributes("thickness", 1);
  for (int i = 0; i < mesh->getNumVertices(); ++i) thickness.editFloat()[i] = 0.5f;
  ru::Reference<KLTThicknessShader> thick(new KLTThicknessShader());
  thick->color = ruUtil::Color(0, 1, 0, 1);
  thick->thinColor = ruUtil::Color(1, 0, 0, 1);
  thick->minimumThickness = 1.0f;
  int source = 0;
  {
    Draw draw(*scene.context, &source, false);
    draw.setShader(new VertexColorShader());
    draw.setMesh(mesh);
    draw.setTransform(ruLinear::AffineMatrix::translation(Vector(-1.2, 0, 0)));
    draw.emit();
    draw.setShader(thick);
    draw.setTransform(ruLinear::AffineMatrix::translation(Vector(1.2, 0, 0)));
    draw.emit();
  }
  const auto image = scene.frame("vertex_color_thickness");
  const ruGeom::Camera camera = GLScene::camera(Point(0, 0, 5), Point(0, 0, 0), Vector(0, 1, 0));
  EXPECT_EQ(at(image, camera, Point(-1.2, 0, 1)), Byte4(0, 0, 255, 255));
  // Thinner than the minimum: thin colour, lit straight on (diffuse 1).
  EXPECT_EQ(at(image, camera, Point(1.2, 0, 1)), Byte4(255, 0, 0, 255));
  thick->minimumThickness = 0.25f;
  const auto thicker = scene.frame("thickness_above_minimum");
  EXPECT_EQ(at(thicker, camera, Point(1.2, 0, 1)), Byte4(0, 255, 0, 255));
}

TEST(PixelsGLTest, TransparentItemsBlendOverTheOpaqueOnes) {
  GLScene scene;
  int source = 0;
  {
    Draw draw(*scene.context, &source, false);
    ru::Reference<ruGeom::CompactMesh> pane(new ruGeom::CompactMesh());
    ruGeom::constructRectangle(-0.5, 0.5, -0.5, 0.5, 2, 1.0, *pane, true);
    draw.setColor(1.0f, 1.0f, 1.0f, 0.5f);  // a near, transparent pane, emitted first
    draw.setMesh(pane);
    draw.emit();
    draw.setColor(0.0f, 0.0f, 1.0f, 1.0f);
    draw.setMesh(cuboid(Point(-1, -1, -1), Point(1, 1, 0)));
    draw.emit();
  }
  const auto image = scene.frame("transparent_over_opaque");
  const Byte4 p = image.pixel(128, 128);
  EXPECT_TRUE(voGR::test::near(p, Byte4(128, 128, 255, 255), 2)) << int(p.r) << "," << int(p.g) << "," << int(p.b) << "," << int(p.a);
}

TEST(PixelsGLTest, TheRadialGradientRunsFromCentreToCorners) {
  GLScene scene;
  RadialGradientColorShader shader;
  shader.color0 = ruUtil::Color(1, 1, 1, 1);
  shader.color1 = ruUtil::Color(0.5f, 0.5f, 0.5f, 1);
  shader.color2 = ruUtil::Color(0, 0, 0, 1);
  shader.position0 = 0.0f;
  shader.position1 = 0.5f;
  shader.position2 = 1.0f;
  // A pass node of its own, as later effect passes are made.
  struct Background final : Node {
    const Shader* shader = nullptr;
    void onExecute(PassContext& context) override {
      ruGeom::Camera camera;
      camera.setViewport(ruGeom::Viewport(0, 0, kSize, kSize));
      if (context.bindTarget(PassContext::targetOf(*this), &camera)) context.drawFullSurface(*shader, camera);
    }
  };
  GraphEditor editor(scene.system->getGraph());
  auto* pass = new Background();
  pass->shader = &shader;
  editor.addNode(pass);
  DataNode* last = scene.target->getLastState();
  auto* after = new RenderTargetNode();
  editor.addNode(after);
  last->appendState(after);
  editor.createEdge(last, pass);
  editor.createEdge(pass, after, "target");
  const auto image = scene.frame("radial_gradient");
  EXPECT_TRUE(voGR::test::near(image.pixel(128, 128), Byte4(255, 255, 255, 255), 3));
  EXPECT_TRUE(voGR::test::near(image.pixel(0, 0), Byte4(0, 0, 0, 255), 6));
  // Half way to the corner: the middle colour.
  EXPECT_TRUE(voGR::test::near(image.pixel(64, 64), Byte4(128, 128, 128, 255), 6));
}

TEST(PixelsGLTest, PolygonOffsetKeepsLinesOnTheirTrianglesVisibleAndRejectedItemsStayOut) {
  GLScene scene;
  // Triangles in the scene's pass, pushed back by polygon offset; lines in a second pass.
  scene.render->getRasterizerState().enablePolygonOffset(1.0f, 1.0f);
  scene.render->setRejectItemFunc([](DrawItem& item) { return !item.isTriangles() || item.getLabel() == 7; });
  GraphEditor editor(scene.system->getGraph());
  DataNode* last = scene.target->getLastState();
  auto* after = new RenderTargetNode();
  editor.addNode(after);
  last->appendState(after);
  auto* lines = new RenderNode();
  lines->setName("RenderLines");
  lines->setRejectItemFunc([](DrawItem& item) { return item.isTriangles(); });
  editor.addNode(lines);
  editor.createEdge(scene.cameraNode, lines, "camera");
  editor.createEdge(last, lines);
  editor.createEdge(scene.worldNode, lines, "world");
  editor.createEdge(lines, after, "target");
  const ruGeom::Camera camera = GLScene::camera(Point(0, -4, 2.5), Point(0, 0, 0));
  scene.setCamera(camera);

  ru::Reference<ruGeom::CompactMesh> plane(new ruGeom::CompactMesh());
  ruGeom::constructRectangle(-2, 2, -2, 2, 2, 0.0, *plane, true);
  ru::Reference<ruGeom::CompactMesh> segment(new ruGeom::CompactMesh());
  ruGeom::constructLineSegment(Point(-1.5, -1, 0), Point(1.5, 1, 0), *segment);
  ru::Reference<SolidColorShader> yellow(new SolidColorShader());
  yellow->color = ruUtil::Color(1, 1, 0, 1);
  yellow->lineWidth = 3.0f;
  int source = 0;
  {
    Draw draw(*scene.context, &source, false);
    draw.setColor(1.0f, 0.0f, 0.0f, 1.0f);
    draw.setMesh(plane);
    draw.emit();
    draw.setShader(yellow);
    draw.setMesh(segment);
    draw.emit();
    draw.setShader(nullptr);
    draw.setLabel(7);  // rejected by the triangle pass
    draw.setColor(0.0f, 0.0f, 1.0f, 1.0f);
    draw.setMesh(cuboid(Point(-0.2, -0.2, 0), Point(0.2, 0.2, 1)));
    draw.emit();
  }
  const auto image = scene.frame("polygon_offset");
  // Every sample along the segment (short of its ends, which the quad stops at) is the line's.
  for (int i = 1; i < 20; ++i) {
    const double t = i / 20.0;
    const Point p(-1.5 + 3 * t, -1 + 2 * t, 0);
    EXPECT_EQ(at(image, camera, p), Byte4(255, 255, 0, 255)) << t;
  }
  EXPECT_EQ(voGR::test::countPixels(image, Byte4(0, 0, 255, 255), 0), 0);
  EXPECT_EQ(at(image, camera, Point(1.5, -1.5, 0)), Byte4(255, 0, 0, 255));
}

TEST(PixelsGLTest, DashedLinesAlternateDashesAndGapsAndThePatternOffsetShiftsThem) {
  GLScene scene;
  ru::Reference<DashedShader> dashed(new DashedShader());
  dashed->color = ruUtil::Color(1, 1, 1, 1);
  ru::Reference<ruGeom::CompactMesh> line(new ruGeom::CompactMesh());
  ruGeom::constructLineSegment(Point(-2, 0.3, 0), Point(2, 0.3, 0), *line);
  int source = 0;
  {
    Draw draw(*scene.context, &source, false);
    draw.setShader(dashed);
    draw.setMesh(line);
    draw.emit();
  }
  const ruGeom::Camera camera = GLScene::camera(Point(0, 0, 5), Point(0, 0, 0), Vector(0, 1, 0));
  ruLinear::Point2 start;
  camera.project(Point(-2, 0.3, 0), start);
  const int row = static_cast<int>(start.y);
  auto pattern = [&](const ruImage::TypedImage<Byte4>& image) {
    std::string bits;
    for (int x = 0; x < kSize; ++x) bits += image.pixel(x, row) == Byte4(255, 255, 255, 255) ? '#' : '.';
    return bits;
  };
  const std::string plain = pattern(scene.frame("dashed"));
  // Runs of 8 lit pixels separated by runs of 8 unlit ones, from the line's start.
  int lit = 0, transitions = 0;
  for (int x = 1; x < kSize; ++x) {
    lit += plain[x] == '#';
    transitions += plain[x] != plain[x - 1];
  }
  EXPECT_NEAR(lit, kSize / 2, 12);
  EXPECT_GE(transitions, 2 * (kSize / 16) - 4);
  EXPECT_NE(plain.find("########"), std::string::npos);
  EXPECT_EQ(plain.find("#########"), std::string::npos);
  // Half a dash period of offset (8 of the 600 pixels) swaps dashes and gaps.
  dashed->patternOffset = 8.0f / DashedShader::spanPixels;
  const std::string shifted = pattern(scene.frame("dashed_offset"));
  int swapped = 0;
  for (int x = 8; x < kSize - 8; ++x) swapped += plain[x] != shifted[x];
  EXPECT_GT(swapped, kSize - 16 - 24);
}

class ShaderColorGLTest : public ::testing::TestWithParam<int> {};

// Each shader drawn straight on (diffuse factor 1) shows its colour at the centre of a cuboid.
TEST_P(ShaderColorGLTest, EachShaderShowsItsColourFacingTheViewer) {
  GLScene scene;
  const ruUtil::Color color(0.2f, 0.6f, 0.4f, 1.0f);
  ru::Reference<Shader> shader;
  switch (GetParam()) {
    case 0: { auto* s = new LambertShader(); s->color = color; shader = s; break; }
    case 1: { auto* s = new KLTFacetedShader(); s->color = color; shader = s; break; }
    case 2: { auto* s = new KLTPrinterBedShader(); s->color = color; shader = s; break; }
    case 3: { auto* s = new SolidColorShader(); s->color = color; shader = s; break; }
    case 4: { auto* s = new LineShader(); s->color = color; shader = s; break; }
    case 5: { auto* s = new UVTextureShader(); s->color = color; shader = s; break; }
    default: { auto* s = new KLTThicknessShader(); s->color = color; shader = s; break; }
  }
  int source = 0;
  {
    Draw draw(*scene.context, &source, false);
    draw.setShader(shader);
    draw.setMesh(cuboid(Point(-1, -1, -1), Point(1, 1, 1)));
    draw.emit();
  }
  const auto image = scene.frame("shader_color_" + std::to_string(GetParam()));
  EXPECT_TRUE(voGR::test::near(image.pixel(128, 128), byte4(color), 2));
  EXPECT_EQ(image.pixel(5, 5), kClear);
}

std::string shaderName(const ::testing::TestParamInfo<int>& info) {
  static const char* const names[] = {"Lambert", "KLTFaceted", "KLTPrinterBed", "SolidColor",
                                      "Line", "UVTextureWithoutImage", "KLTThickness"};
  return names[info.param];
}

INSTANTIATE_TEST_SUITE_P(Shaders, ShaderColorGLTest, ::testing::Range(0, 7), shaderName);

TEST(PixelsGLTest, APassCanDrawScreenSpaceItemsInViewportPixels) {
  GLScene scene;
  // Screen-space items are left to passes that ask for them; the scene's render pass skips them.
  struct ScreenPass final : Node {
    void onExecute(PassContext& context) override {
      auto* cameraNode = static_cast<CameraNode*>(getInput("camera"));
      const ruGeom::Camera camera = cameraNode->getCamera();
      if (!context.bindTarget(PassContext::targetOf(*this), &camera)) return;
      std::vector<World*> worlds;
      for (Node* node : getInputs("world")) worlds.push_back(static_cast<WorldNode*>(node)->getWorld());
      ItemPassOptions options;
      options.screenSpace = true;
      context.drawItems(worlds, camera, options);
    }
  };
  GraphEditor editor(scene.system->getGraph());
  auto* pass = new ScreenPass();
  editor.addNode(pass);
  DataNode* last = scene.target->getLastState();
  auto* after = new RenderTargetNode();
  editor.addNode(after);
  last->appendState(after);
  editor.createEdge(last, pass);
  editor.createEdge(scene.cameraNode, pass, "camera");
  editor.createEdge(scene.worldNode, pass, "world");
  editor.createEdge(pass, after, "target");
  ru::Reference<ruGeom::CompactMesh> square(new ruGeom::CompactMesh());
  ruGeom::constructRectangle(10, 30, 200, 220, 2, 0.0, *square, true);  // pixels
  int source = 0;
  {
    Draw draw(*scene.context, &source, false);
    draw.setSpace(SpaceScreen);
    draw.setColor(0.0f, 1.0f, 1.0f, 1.0f);
    draw.setMesh(square);
    draw.emit();
  }
  const auto image = scene.frame("screen_space");
  EXPECT_EQ(voGR::test::countPixels(image, Byte4(0, 255, 255, 255), 0), 400);
  EXPECT_EQ(image.pixel(20, 210), Byte4(0, 255, 255, 255));
  EXPECT_EQ(image.pixel(20, 230), kClear);
}
