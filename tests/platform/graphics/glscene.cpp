#include "glscene.h"

#include "platform/image/png.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

namespace voGR::test {

GLScene::GLScene() {
  ruString::CString error;
  system = DrawSystem::createOffscreen(&error);
  if (!system) {
    ADD_FAILURE() << "no off-screen context: " << error.c_str();
    return;
  }
  key = system->createFBOKey(ruRen::FBOInfo(kSize, kSize, true, false, false));
  info = system->createRenderTarget("Frame", key);
  target = static_cast<RenderTargetNode*>(info->firstState());
  Graph* graph = system->getGraph();
  GraphEditor editor(graph);
  database = new Database(graph);
  system->setActiveDatabase(database);
  worldNode = database->getWorldNode(database->addWorld(new ListWorld(true), {}));
  worldNode->setName("SceneW");
  cameraNode = new CameraNode();
  cameraNode->setName("ViewCam");
  editor.addNode(cameraNode);
  setCamera(camera(ruLinear::Point(0, 0, 5), ruLinear::Point(0, 0, 0), ruLinear::Vector(0, 1, 0)));

  auto* afterClear = new RenderTargetNode();
  afterClear->setName(target->getName());
  editor.addNode(afterClear);
  target->appendState(afterClear);
  clear = new ClearNode();
  clear->setColor(kClear.r / 255.0f, kClear.g / 255.0f, kClear.b / 255.0f, 1.0f);
  editor.addNode(clear);
  editor.createEdge(target, clear);
  editor.createEdge(clear, afterClear, "target");

  auto* afterRender = new RenderTargetNode();
  afterRender->setName(target->getName());
  editor.addNode(afterRender);
  DataNode* last = target->getLastState();
  last->appendState(afterRender);
  render = new RenderNode();
  render->setName("RenderTri");
  editor.addNode(render);
  editor.createEdge(cameraNode, render, "camera");
  editor.createEdge(last, render);
  editor.createEdge(worldNode, render, "world");
  editor.createEdge(render, afterRender, "target");

  id = system->allocateID();
  context = std::make_unique<DrawContext>(system.get(), id);
}

GLScene::~GLScene() = default;

ruGeom::Camera GLScene::camera(const ruLinear::Point& eye, const ruLinear::Point& target, const ruLinear::Vector& up) {
  ruGeom::Camera camera;
  camera.setViewport(ruGeom::Viewport(0, 0, kSize, kSize));
  ruGeom::AngleAspect frustum;
  frustum.setAngle(0.7853981633974483);
  frustum.setAspectRatio(1.0);
  frustum.setDepthRange(0.1, 100.0);
  camera.setFrustum(frustum);
  camera.setWorldToEye(target, eye, up);
  return camera;
}

ruImage::TypedImage<ruImage::Byte4> GLScene::frame(const std::string& name) {
  ruImage::TypedImage<ruImage::Byte4> image;
  EXPECT_TRUE(key.lock());
  EXPECT_TRUE(system->draw(target));
  EXPECT_TRUE(system->getRenDeviceContext()->readColorBuffer(key, 0, 0, kSize, kSize, image));
  key.unlock();
  writeFrame(image, name);
  return image;
}

DebugCapture::DebugCapture() {
  auto& debug = voSupport::Debug::getInstance();
  debug.setEnabled(DebugGraphics, true);
  debug.setSink([this](int code, const char* function, const char* text) {
    if (code == DebugGraphics) lines.push_back(std::string(function ? function : "") + ": " + text);
  });
}

DebugCapture::~DebugCapture() {
  auto& debug = voSupport::Debug::getInstance();
  debug.setSink({});
  debug.setEnabled(DebugGraphics, false);
}

bool DebugCapture::contains(const std::string& text) const {
  for (const std::string& line : lines) {
    if (line.find(text) != std::string::npos) return true;
  }
  return false;
}

bool near(const ruImage::Byte4& a, const ruImage::Byte4& b, int tolerance) {
  return std::abs(a.r - b.r) <= tolerance && std::abs(a.g - b.g) <= tolerance && std::abs(a.b - b.b) <= tolerance &&
         std::abs(a.a - b.a) <= tolerance;
}

int countPixels(const ruImage::TypedImage<ruImage::Byte4>& image, const ruImage::Byte4& color, int tolerance) {
  int count = 0;
  for (int y = 0; y < image.ySize(); ++y) {
    for (int x = 0; x < image.xSize(); ++x) count += near(image.pixel(x, y), color, tolerance) ? 1 : 0;
  }
  return count;
}

void writeFrame(const ruImage::TypedImage<ruImage::Byte4>& image, const std::string& name) {
  if (image.xSize() == 0 || image.ySize() == 0) return;
  std::filesystem::create_directories(GRAPHICS_FRAME_DIR);
  auto copy = image.clone();
  ruImage::imageFlipVertical(*copy);
  ruString::CString error;
  const std::string path = std::string(GRAPHICS_FRAME_DIR) + "/" + name + ".png";
  EXPECT_TRUE(ruImage::writePng(*copy, path.c_str(), &error)) << error.c_str();
}

}  // namespace voGR::test
