#pragma once

#include "platform/base/color.h"
#include "platform/base/linear.h"
#include "platform/base/reference.h"
#include "platform/graphics/export.h"

#include <functional>
#include <memory>

// Render editors: each inserts the passes of one effect after the current last state of a render
// target, as new states of the same chain, so a draw of the target runs them in the order the
// editors were called. An editor owns nothing in the graph: the nodes and edges it makes belong
// to the draw system's graph. Every pass reads its world and camera inputs when it runs, so the
// items emitted later and the camera of each frame are the ones drawn.
//
// Each `add` answers false, with a message on the debug channel and nothing added, when the
// target is null or not in the draw system's graph, or a world, camera or shader it needs is
// null.
namespace voGR {

class CameraNode;
class DrawItem;
class DrawSystem;
class RenderTargetNode;
class Shader;
class WorldNode;

// A soft shadow of the world's triangle items on the ground below them: the plane z = 0, or the
// plane through the lowest point of the items when they reach below it. The items are flattened
// straight down onto it, blurred over a few pixels and darken what is already drawn; meant to run
// before the scene's own passes, which then cover it where items stand in front. While the items
// stay as they are, their footprint is kept (seen from straight above) and each frame takes it
// through the ground plane's homography, so turning the camera draws no item again.
class VO_GR_API GroundShadowEditor {
public:
  explicit GroundShadowEditor(DrawSystem& system) noexcept : system_(&system) {}
  bool add(RenderTargetNode* target, WorldNode* world, CameraNode* camera);

  // Blur radius in pixels and darkness (0 none, 1 black) of the shadow's core.
  static constexpr int blurPixels = 6;
  static constexpr float darkness = 0.45f;

private:
  DrawSystem* system_;
};

// A halo of `color` around the silhouettes of the world's items, on top of everything drawn so
// far. `size` is the halo's width as a fraction of 32 pixels (0.25 is 8 pixels), at least 1 and
// at most 64 pixels: every pixel within that distance of a silhouette pixel takes the colour (the
// outermost half pixel fades out). With `outsideOnly` true the items' own pixels are left as they
// are; false tints them by the colour at half strength as well. The silhouette is the items' whole
// outline, hidden parts included, cut by their shaders' clipping planes. The silhouette is kept
// between draws and drawn again only when the camera, the frame's size or an item changes.
class VO_GR_API GlowEditor {
public:
  explicit GlowEditor(DrawSystem& system) noexcept : system_(&system) {}
  bool add(RenderTargetNode* target, WorldNode* world, CameraNode* camera, const ruUtil::Color& color,
           bool outsideOnly, double size);

  static constexpr double pixelsPerUnitSize = 32.0;
  static constexpr int maxPixels = 64;

private:
  DrawSystem* system_;
};

// The glow of the print view; one editor adds any number of glows (selected, hover,
// hover-selected), each with its own colour and size, in call order.
class VO_GR_API KLTGlowEditor : public GlowEditor {
public:
  explicit KLTGlowEditor(DrawSystem& system) noexcept : GlowEditor(system) {}
};

// Items seen through the scene. Each item of the world is drawn where it is visible, as any item
// is, and where something already drawn hides it, blended over that at `hiddenOpacity`. Items for
// which the behind filter answers true are drawn only where visible; items with depth
// interaction 2 are drawn on top of everything, undimmed. Without a filter every item shows
// through.
class VO_GR_API XRayEditor {
public:
  explicit XRayEditor(DrawSystem& system) noexcept : system_(&system) {}
  // The filter is copied into each pass added afterwards.
  void setBehindFilter(std::function<bool(DrawItem&)> filter) { behind_ = std::move(filter); }
  bool add(RenderTargetNode* target, WorldNode* world, CameraNode* camera);

  static constexpr float hiddenOpacity = 0.4f;

private:
  DrawSystem* system_;
  std::function<bool(DrawItem&)> behind_;
};

// The screen-space items (space 1) of the world in viewport pixels (origin at the viewport's
// lower left, y up), on top of everything, without depth test.
class VO_GR_API ScreenSpaceEditor {
public:
  explicit ScreenSpaceEditor(DrawSystem& system) noexcept : system_(&system) {}
  bool add(RenderTargetNode* target, WorldNode* world, CameraNode* camera);

private:
  DrawSystem* system_;
};

// A full-surface pass with `shader` over the camera's viewport (the radial gradient of the print
// view). It starts the frame: it clears the target's depth, so it belongs first in a chain.
class VO_GR_API BackgroundEditor {
public:
  explicit BackgroundEditor(DrawSystem& system) noexcept : system_(&system) {}
  bool add(RenderTargetNode* target, CameraNode* camera, ru::Reference<Shader> shader);

private:
  DrawSystem* system_;
};

// The triangle pass of the print view ("RenderTri", polygon offset 1, 1) and, when asked, flat
// caps closing the solids that the clipping plane cuts open. A cap is drawn on the plane where the
// view ray meets it inside a solid (odd parity of the solid's surfaces kept by the plane along the
// ray), limited to the cap range, and hidden by whatever is nearer. Closed solids get exact caps;
// an open surface gets none where its parity stays even.
//
// Copies share one cap state, so an editor held by value keeps driving the passes it added. The
// update calls only change that state: they are harmless when no caps were added, and the caps
// follow at the next draw.
class VO_GR_API KLTCapEditor {
public:
  KLTCapEditor();
  explicit KLTCapEditor(DrawSystem& system);
  KLTCapEditor(const KLTCapEditor&);
  KLTCapEditor& operator=(const KLTCapEditor&);
  ~KLTCapEditor();

  // Adds the triangle pass of `world` and, with `caps` true, the cap pass after it.
  bool add(RenderTargetNode* target, WorldNode* world, CameraNode* camera, bool caps);
  // Places the cap on `plane` (a plane with normal n through p keeps (x - p) . n >= 0, as the
  // shaders' clipping planes do) within the box `range` (world units), and rebuilds it. An
  // invalid range leaves no cap.
  void updateCapPosition(RenderTargetNode* target, const ruLinear::Plane& plane, ruLinear::Range3d range);
  // True rebuilds the cap from the current plane and range; false drops it until the next
  // rebuild.
  void updateCapGeom(RenderTargetNode* target, bool rebuild);
  // Shows or hides the caps (shown at first).
  void updateCapVisibility(RenderTargetNode* target, bool visible);

  void setCapColor(const ruUtil::Color& color);
  ruUtil::Color getCapColor() const;
  // Whether a cap polygon exists (a plane crossing a valid range) and is shown.
  bool hasCapGeometry() const;
  bool isCapVisible() const;

  struct Impl;

private:
  DrawSystem* system_ = nullptr;
  std::shared_ptr<Impl> impl_;
};

}  // namespace voGR
