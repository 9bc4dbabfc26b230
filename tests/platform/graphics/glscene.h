#pragma once

// A real off-screen draw system with one 256 x 256 frame target: clear, then a render node drawing
// the world "SceneW" (which accepts every item) with the camera node "ViewCam".

#include "platform/geometry/camera.h"
#include "platform/graphics/draw.h"
#include "platform/graphics/graph.h"
#include "platform/graphics/world.h"
#include "platform/image/image.h"
#include "platform/support/debug.h"

#include <memory>
#include <string>
#include <vector>

namespace voGR::test {

constexpr int kSize = 256;
// The clear colour, as bytes.
constexpr ruImage::Byte4 kClear{64, 64, 64, 255};

struct GLScene {
  GLScene();
  ~GLScene();

  std::unique_ptr<DrawSystem> system;
  ru::Reference<Database> database;
  ru::Reference<DataNodeStateInfo> info;
  ruRen::FBOKey key;
  RenderTargetNode* target = nullptr;
  CameraNode* cameraNode = nullptr;
  ClearNode* clear = nullptr;
  RenderNode* render = nullptr;
  WorldNode* worldNode = nullptr;
  int id = 0;
  std::unique_ptr<DrawContext> context;

  // A camera on the whole frame looking from `eye` at `target`, z up unless told.
  static ruGeom::Camera camera(const ruLinear::Point& eye, const ruLinear::Point& target,
                               const ruLinear::Vector& up = ruLinear::Vector(0, 0, 1));
  void setCamera(const ruGeom::Camera& camera) { cameraNode->setCamera(camera); }
  // Draws the target and reads the frame back (rows bottom-up); writes <name>.png (top-down).
  ruImage::TypedImage<ruImage::Byte4> frame(const std::string& name);
};

// Records what the debug channel of the graphics library prints while alive.
struct DebugCapture {
  DebugCapture();
  ~DebugCapture();
  bool contains(const std::string& text) const;
  std::vector<std::string> lines;
};

bool near(const ruImage::Byte4& a, const ruImage::Byte4& b, int tolerance);
int countPixels(const ruImage::TypedImage<ruImage::Byte4>& image, const ruImage::Byte4& color, int tolerance);
// Writes a copy of the bottom-up frame top-down, as GRAPHICS_FRAME_DIR/<name>.png.
void writeFrame(const ruImage::TypedImage<ruImage::Byte4>& image, const std::string& name);

}  // namespace voGR::test
