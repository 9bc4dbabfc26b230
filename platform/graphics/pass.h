#pragma once

#include "platform/base/color.h"
#include "platform/geometry/camera.h"
#include "platform/graphics/device.h"
#include "platform/graphics/export.h"

#include <functional>
#include <vector>

namespace voGR {

class DrawItem;
class DrawSystem;
class Node;
class RenderTargetNode;
class Shader;
class World;

// How a pass draws a list of items.
struct ItemPassOptions {
  enum class DepthTest { Less, Greater, Always };
  DepthTest depthTest = DepthTest::Less;
  bool depthWrite = true;
  ruRen::RasterizerState rasterizer;
  // True: leave the item out.
  std::function<bool(DrawItem&)> reject;
  // When set, every item is drawn with this shader instead of its own.
  const Shader* overrideShader = nullptr;
  // Multiplies every item's output colour (x-ray dimming, glow masks).
  ruUtil::Color tint{1, 1, 1, 1};
  // Items in space 1 are drawn in viewport pixels when true; skipped otherwise.
  bool screenSpace = false;
};

// What a node's onExecute works with during one draw: the draw system and the renderer. Pass
// nodes of later effects use the same calls the built-in ones do.
class VO_GR_API PassContext {
public:
  virtual ~PassContext();
  virtual DrawSystem& getDrawSystem() = 0;
  // The render-target state a pass node feeds through its "target" output; null when none.
  static RenderTargetNode* targetOf(const Node& pass);
  // Binds the frame buffer of the chain of `state` and the viewport of `camera` (the whole frame
  // buffer when null). False (and a debug message) when the target has no frame buffer usable by
  // this draw system.
  virtual bool bindTarget(RenderTargetNode* state, const ruGeom::Camera* camera) = 0;
  // Clears the bound target.
  virtual void clear(const float rgba[4], bool color, bool depth) = 0;
  // Draws the drawable items of `worlds` (each item once even when in several) with `camera`.
  virtual void drawItems(const std::vector<World*>& worlds, const ruGeom::Camera& camera,
                         const ItemPassOptions& options) = 0;
  // Covers the bound target with `shader` (a full-surface quad, no depth test).
  virtual void drawFullSurface(const Shader& shader, const ruGeom::Camera& camera) = 0;
};

}  // namespace voGR
