#pragma once

#include "platform/base/color.h"
#include "platform/base/linear.h"
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
  // When set, every item is drawn with this shader instead of its own; an override without
  // clipping planes keeps each item's own planes (clipping shapes the item, it is not a look),
  // except with a world transform, which would move the item under them.
  const Shader* overrideShader = nullptr;
  // Multiplies every item's output colour (x-ray dimming, glow masks).
  ruUtil::Color tint{1, 1, 1, 1};
  // Items in space 1 are drawn in viewport pixels when true; skipped otherwise.
  bool screenSpace = false;
  // When set, applied in world space after each item's own placement (the ground shadow
  // flattens items onto the ground with it). Not owned; must outlive the call.
  const ruLinear::AffineMatrix* worldTransform = nullptr;
  // Colour is XORed into the target instead of written or blended: drawing white over a pixel
  // twice restores it, so a scratch surface counts the surfaces over a pixel by parity.
  bool toggleColor = false;
  // Leaves out the triangles facing away from the camera (a mask of closed solids needs only
  // the ones facing it).
  bool cullBackFaces = false;
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
  // Covers the bound target with `shader` (a full-surface quad, no depth test), blended by the
  // shader's alpha when the shader is transparent.
  virtual void drawFullSurface(const Shader& shader, const ruGeom::Camera& camera) = 0;

  // Scratch surfaces for effects of several steps (masks, blurs, parity counts): RGBA8 colour
  // with a depth buffer, each the size of the target last bound by bindTarget, owned by the draw
  // system and shared by every pass, so their content is only good within one pass. Every
  // shader can read them as `uniform sampler2D uScratch0` to `uScratch3`; texelFetch at
  // ivec2(gl_FragCoord.xy) reads the pixel under the fragment (they share the target's pixels).
  static constexpr int maxScratch = 4;
  // Binds scratch surface `index` with the viewport of `camera` (the whole surface when null)
  // and, when `clearColor` (4 floats) is given, clears its colour to that and its depth to the
  // far plane. False (nothing bound) for an index out of range or when no target was bound yet.
  // While bound, a scratch surface must not be read by the shader drawing into it.
  virtual bool bindScratch(int index, const ruGeom::Camera* camera, const float* clearColor) = 0;
  // Copies the colour of scratch surface `index` into the frame buffer of `key` (toKey true) or
  // back (false), so a pass can keep a result across draws in a frame buffer of its own. The key
  // must be of this draw system, not multisampled, and of the scratch surface's size. False, with
  // nothing copied, otherwise; unbinds the frame buffer (bind again before drawing).
  virtual bool copyScratch(int index, const ruRen::FBOKey& key, bool toKey) = 0;
};

}  // namespace voGR
