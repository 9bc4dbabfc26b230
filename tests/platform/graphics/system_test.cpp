// The draw system: contexts, frame buffers, read-back, transformers and bad input.

#include "glscene.h"

#include "platform/geometry/construct.h"
#include "platform/graphics/shader.h"

#include <epoxy/egl.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using namespace voGR;
using voGR::test::DebugCapture;
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

// Keeps a square of local units facing the camera at an anchor, one local unit a pixel whatever
// the distance: what a billboard's transformer does.
struct PixelTransformer final : Transformer {
  const ruGeom::Camera* camera = nullptr;
  Point anchor;
  ruLinear::AffineMatrix evaluate() const override {
    const double scale = camera->pixelScaleForDepth(camera->screenDepthAtPoint(anchor), 1.0);
    return ruLinear::AffineMatrix(camera->getRightVector() * scale, camera->getUpVector() * scale,
                                  camera->getViewVector() * -scale, anchor.asVector());
  }
};

}  // namespace

TEST(DrawSystemGLTest, AnOffscreenContextIsOpenGL33CoreOnEGL) {
  ruString::CString error;
  auto system = DrawSystem::createOffscreen(&error);
  ASSERT_TRUE(system) << error.c_str();
  EXPECT_TRUE(error.empty());
  EXPECT_NE(system->getRenDeviceContext(), nullptr);
  // Two systems at once, each with its own context.
  auto other = DrawSystem::createOffscreen();
  ASSERT_TRUE(other);
  EXPECT_TRUE(system->makeCurrent());
  EXPECT_TRUE(other->makeCurrent());
}

TEST(DrawSystemGLTest, AdoptingWithoutACurrentContextFailsClearly) {
  DebugCapture capture;
  ruString::CString error;
  auto system = DrawSystem::adoptCurrentContext(&error);
  EXPECT_FALSE(system);
  EXPECT_FALSE(error.empty());
  EXPECT_TRUE(capture.contains("no OpenGL context is current"));
}

TEST(DrawSystemGLTest, ActiveDatabaseAnswersTheFormerOne) {
  GLScene scene;
  ru::Reference<Database> other(new Database(scene.system->getGraph()));
  ru::Reference<Database> former = scene.system->setActiveDatabase(other);
  EXPECT_EQ(former.get(), scene.database.get());
  EXPECT_EQ(scene.system->getActiveDatabase().get(), other.get());
  EXPECT_EQ(scene.system->setActiveDatabase(nullptr).get(), other.get());
  // Items emitted with no active database join no world.
  int source = 0;
  {
    Draw draw(*scene.context, &source, false);
    draw.emit();
  }
  EXPECT_EQ(scene.database->getAllItems().size(), 0u);
}

TEST(FrameBufferGLTest, ReadBackRowsAreBottomUpAndFlippingMakesThemTopDown) {
  GLScene scene;
  int source = 0;
  {
    Draw draw(*scene.context, &source, false);
    draw.setColor(1.0f, 0.0f, 0.0f, 1.0f);
    draw.setMesh(cuboid(Point(-10, -10, -1), Point(10, -1, 0)));  // fills the lower part of the view
    draw.emit();
  }
  auto image = scene.frame("readback_lower_half");
  const Byte4 red(255, 0, 0, 255);
  EXPECT_EQ(image.pixel(128, 5), red);           // row 0 is the bottom row
  EXPECT_EQ(image.pixel(128, kSize - 5), kClear);
  ruImage::imageFlipVertical(image);
  EXPECT_EQ(image.pixel(128, 5), kClear);
  EXPECT_EQ(image.pixel(128, kSize - 5), red);
  // A rectangle of the frame.
  ruImage::TypedImage<Byte4> part;
  ASSERT_TRUE(scene.key.lock());
  EXPECT_TRUE(scene.system->getRenDeviceContext()->readColorBuffer(scene.key, 100, 0, 10, 20, part));
  scene.key.unlock();
  EXPECT_EQ(part.xSize(), 10);
  EXPECT_EQ(part.ySize(), 20);
  EXPECT_EQ(part.pixel(3, 3), red);
}

TEST(FrameBufferGLTest, KeysDescribeTheirFrameBufferAndLockNests) {
  GLScene scene;
  ruRen::FBOKey key = scene.system->createFBOKey(ruRen::FBOInfo(1000, 500, true, false, true));
  FBOKeyAccessor accessor(key);
  EXPECT_TRUE(accessor.valid());
  EXPECT_EQ(accessor.getInfo(), ruRen::FBOInfo(1000, 500, true, false, true));
  EXPECT_FALSE(key.isLocked());
  EXPECT_TRUE(key.lock());
  EXPECT_TRUE(key.lock());
  key.unlock();
  EXPECT_TRUE(key.isLocked());
  key.unlock();
  EXPECT_FALSE(key.isLocked());
  ruRen::FBOKey copy = key;
  EXPECT_TRUE(copy == key);
  EXPECT_FALSE(scene.system->createFBOKey(ruRen::FBOInfo(1000, 500, true, false, true)) == key);
}

TEST(FrameBufferGLTest, AMultisampledTargetRendersAndReadsBackResolved) {
  GLScene scene;
  ruRen::FBOKey key = scene.system->createFBOKey(ruRen::FBOInfo(kSize, kSize, true, false, true));
  scene.target->setFBO(key);
  scene.key = key;
  int source = 0;
  {
    Draw draw(*scene.context, &source, false);
    draw.setColor(0.0f, 0.0f, 1.0f, 1.0f);
    draw.setMesh(cuboid(Point(-1, -1, -1), Point(1, 1, 1)));
    draw.emit();
  }
  const auto image = scene.frame("multisampled");
  EXPECT_EQ(image.pixel(128, 128), Byte4(0, 0, 255, 255));
  EXPECT_EQ(image.pixel(3, 3), kClear);
  // Edge pixels are blends of the two.
  int blended = 0;
  for (int x = 0; x < kSize; ++x) {
    const Byte4& p = image.pixel(x, 128);
    if (!(p == kClear) && !(p == Byte4(0, 0, 255, 255))) ++blended;
  }
  EXPECT_GT(blended, 0);
}

TEST(TransformerGLTest, ATransformerItemKeepsItsPixelSizeWhenTheCameraMovesAway) {
  GLScene scene;
  ruGeom::Camera camera = GLScene::camera(Point(0, 0, 5), Point(0, 0, 0), Vector(0, 1, 0));
  scene.setCamera(camera);
  ru::Reference<PixelTransformer> transformer(new PixelTransformer());
  transformer->camera = &camera;
  transformer->anchor = Point(0, 0, 0);
  ru::Reference<ruGeom::CompactMesh> square(new ruGeom::CompactMesh());
  ruGeom::constructRectangle(-10, 10, -10, 10, 2, 0.0, *square, true);  // 20 local units
  int source = 0;
  {
    Draw draw(*scene.context, &source, false);
    draw.setColor(0.0f, 1.0f, 0.0f, 1.0f);
    draw.setTransformer(transformer);
    draw.setMesh(square);
    draw.emit();
    // A world-sized cuboid next to it shrinks as the camera moves away.
    draw.setTransformer(nullptr);
    draw.setColor(1.0f, 0.0f, 1.0f, 1.0f);
    draw.setMesh(cuboid(Point(1, -0.25, -0.25), Point(1.5, 0.25, 0.25)));
    draw.emit();
  }
  const Byte4 green(0, 255, 0, 255), magenta(255, 0, 255, 255);
  const auto near = scene.frame("transformer_near");
  const int nearWidth = voGR::test::countPixels(near, green, 0);
  const int nearCuboid = voGR::test::countPixels(near, magenta, 0);
  camera = GLScene::camera(Point(0, 0, 20), Point(0, 0, 0), Vector(0, 1, 0));
  scene.setCamera(camera);  // no re-emission
  const auto far = scene.frame("transformer_far");
  const int farWidth = voGR::test::countPixels(far, green, 0);
  EXPECT_NEAR(nearWidth, 400, 45);
  EXPECT_NEAR(farWidth, nearWidth, 45);
  EXPECT_LT(voGR::test::countPixels(far, magenta, 0), nearCuboid / 4);
}

TEST(BadInputGLTest, AnEmptyMeshDrawsNothingAndSaysSo) {
  GLScene scene;
  DebugCapture capture;
  int source = 0;
  {
    Draw draw(*scene.context, &source, false);
    draw.setMesh(new ruGeom::CompactMesh());
    draw.emit();
  }
  const auto image = scene.frame("bad_empty_mesh");
  EXPECT_EQ(voGR::test::countPixels(image, kClear, 0), kSize * kSize);
  EXPECT_TRUE(capture.contains("empty mesh"));
}

TEST(BadInputGLTest, IndicesOutOfRangeDrawNothingAndSaySo) {
  GLScene scene;
  DebugCapture capture;
  auto mesh = cuboid(Point(-1, -1, -1), Point(1, 1, 1));
  mesh->addTriangle(0, 1, 9999);
  int source = 0;
  {
    Draw draw(*scene.context, &source, false);
    draw.setMesh(mesh);
    draw.emit();
  }
  const auto image = scene.frame("bad_indices");
  EXPECT_EQ(voGR::test::countPixels(image, kClear, 0), kSize * kSize);
  EXPECT_TRUE(capture.contains("out of range"));
}

TEST(BadInputGLTest, ANaNTransformDrawsNothingAndSaysSo) {
  GLScene scene;
  DebugCapture capture;
  int source = 0;
  {
    Draw draw(*scene.context, &source, false);
    draw.setMesh(cuboid(Point(-1, -1, -1), Point(1, 1, 1)));
    draw.setTransform(ruLinear::AffineMatrix::scaling(std::numeric_limits<double>::quiet_NaN()));
    draw.emit();
  }
  const auto image = scene.frame("bad_nan_transform");
  EXPECT_EQ(voGR::test::countPixels(image, kClear, 0), kSize * kSize);
  EXPECT_TRUE(capture.contains("not finite"));
}

TEST(BadInputGLTest, AZeroSizeFrameBufferGivesAnInvalidKeyAndAnEmptyImage) {
  GLScene scene;
  DebugCapture capture;
  ruRen::FBOKey key = scene.system->createFBOKey(ruRen::FBOInfo(0, 0, true, false, false));
  EXPECT_FALSE(key.valid());
  EXPECT_TRUE(capture.contains("0 by 0"));
  EXPECT_FALSE(scene.system->createFBOKey(ruRen::FBOInfo(-5, 10, true, false, false)).valid());
  EXPECT_FALSE(key.lock());
  scene.target->setFBO(key);
  // An off-screen system has no window to fall back on.
  EXPECT_TRUE(scene.system->draw(scene.target));
  EXPECT_TRUE(capture.contains("no frame buffer"));
  ruImage::TypedImage<Byte4> image(4, 4);
  EXPECT_FALSE(scene.system->getRenDeviceContext()->readColorBuffer(key, 0, 0, 0, 0, image));
  EXPECT_EQ(image.xSize(), 0);
  EXPECT_EQ(image.pixels(), nullptr);
  // A frame buffer that was never drawn reads back nothing either.
  ruRen::FBOKey fresh = scene.system->createFBOKey(ruRen::FBOInfo(8, 8, true, false, false));
  EXPECT_FALSE(scene.system->getRenDeviceContext()->readColorBuffer(fresh, 0, 0, 8, 8, image));
  EXPECT_FALSE(scene.system->getRenDeviceContext()->readColorBuffer(scene.key, 0, 0, kSize + 1, 1, image));
}

TEST(BadInputGLTest, AMissingImageKeyDrawsNothingAndSaysSo) {
  GLScene scene;
  DebugCapture capture;
  voRES::Loader loader;
  ru::Reference<ruGeom::CompactMesh> quad(new ruGeom::CompactMesh());
  ruGeom::constructRectangle(-1, 1, -1, 1, 2, 0.0, *quad, true);
  int source = 0;
  {
    Draw draw(*scene.context, &source, false);
    draw.setImageKey(loader.createImageKey("No/Such/Image", 0));
    draw.setMesh(quad);
    draw.emit();
  }
  const auto image = scene.frame("bad_missing_image");
  EXPECT_EQ(voGR::test::countPixels(image, kClear, 0), kSize * kSize);
  EXPECT_TRUE(capture.contains("image"));
  // A shader's texture with a missing image shows the shader's colour alone.
  ru::Reference<UVTextureShader> shader(new UVTextureShader());
  shader->texture.setImageKey(loader.createImageKey("No/Such/Image", 0), false);
  shader->color = ruUtil::Color(0, 1, 0, 1);
  {
    Draw draw(*scene.context, &source, false);
    draw.setShader(shader);
    draw.setMesh(quad);
    draw.emit();
  }
  const auto plain = scene.frame("bad_missing_texture");
  EXPECT_EQ(plain.pixel(128, 128), Byte4(0, 255, 0, 255));
}

TEST(DrawSystemGLTest, DrawDataAndDatabasesMayOutliveTheDrawSystem) {
  DrawData* data = nullptr;
  ru::Reference<Database> database;
  ru::Reference<DrawItem> item;
  int source = 0;
  {
    GLScene scene;
    data = scene.system->getDrawData(&source, true);
    database = scene.database;
    Draw draw(*scene.context, &source, false);
    draw.setMesh(cuboid(Point(0, 0, 0), Point(1, 1, 1)));
    item = draw.emit();
    scene.frame("outlived");
  }
  EXPECT_EQ(data->getItems().size(), 1u);
  EXPECT_EQ(database->getAllItems().size(), 1u);
  data->clear();
  EXPECT_EQ(database->getAllItems().size(), 0u);
  delete data;
  EXPECT_EQ(item->refCount(), 1);
}

TEST(DrawSystemGLTest, AnAdoptedHostContextDrawsIntoFrameBufferKeys) {
  // The host's context: made here the way a window system would, then made current. The display
  // is the process's surfaceless one, which the library also uses, so it is not terminated here.
  EGLDisplay display = eglGetPlatformDisplayEXT(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr);
  ASSERT_NE(display, EGL_NO_DISPLAY);
  ASSERT_TRUE(eglInitialize(display, nullptr, nullptr));
  eglBindAPI(EGL_OPENGL_API);
  const EGLint attributes[] = {EGL_CONTEXT_MAJOR_VERSION, 3, EGL_CONTEXT_MINOR_VERSION, 3,
                               EGL_CONTEXT_OPENGL_PROFILE_MASK, EGL_CONTEXT_OPENGL_CORE_PROFILE_BIT, EGL_NONE};
  EGLContext host = eglCreateContext(display, EGL_NO_CONFIG_KHR, EGL_NO_CONTEXT, attributes);
  ASSERT_NE(host, EGL_NO_CONTEXT);
  ASSERT_TRUE(eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, host));
  {
    ruString::CString error;
    auto system = DrawSystem::adoptCurrentContext(&error);
    ASSERT_TRUE(system) << error.c_str();
    ruRen::FBOKey key = system->createFBOKey(ruRen::FBOInfo(64, 64, true, false, false));
    auto info = system->createRenderTarget("Window", key);
    auto* target = static_cast<RenderTargetNode*>(info->firstState());
    GraphEditor editor(system->getGraph());
    auto* clear = new ClearNode();
    clear->setColor(0.0f, 0.0f, 1.0f, 1.0f);
    auto* after = new RenderTargetNode();
    editor.addNode(clear);
    editor.addNode(after);
    target->appendState(after);
    editor.createEdge(target, clear);
    editor.createEdge(clear, after, "target");
    ASSERT_TRUE(system->draw(target));
    EXPECT_EQ(eglGetCurrentContext(), host);  // the host's context stays current
    ruImage::TypedImage<Byte4> image;
    ASSERT_TRUE(system->getRenDeviceContext()->readColorBuffer(key, 0, 0, 64, 64, image));
    EXPECT_EQ(voGR::test::countPixels(image, Byte4(0, 0, 255, 255), 0), 64 * 64);
  }
  eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
  eglDestroyContext(display, host);
}
