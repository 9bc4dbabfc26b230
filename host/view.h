#pragma once

// How the host draws a scene: one off-screen draw system and the print view on it, set up as a
// host sets up the library for a document. The View owns the per-document objects that drawing,
// hover, selection and snapping need (settings, tag registry, broadcaster, hit tester, selection,
// candidate set, snap manager, document draw, print surface), enters them in the scene's call
// info and broadcasts the set-up messages. Parts are drawn by the library's print mesh drawing
// (out-of-bounds, repair and thin-wall looks), the printer by the library's printer drawing (bed
// grid, volume bars turning red where a part oversteps), and the surface adds the glows of the
// selected and hovered parts, the cut-away with its caps, and thumbnails.

#include "host/scene.h"

#include "datamodelgui/selection/selectionset.h"
#include "platform/base/linear.h"
#include "platform/base/reference.h"
#include "platform/base/signal.h"

#include <memory>
#include <string>
#include <vector>

namespace ruGeom {
class Camera;
}
namespace ruImage {
class Image;
}
namespace voGR {
class DrawContext;
class DrawSystem;
}  // namespace voGR
namespace voRES {
class Loader;
}
namespace voSupport {
class Broadcaster;
class PropertySet;
class TagRegistry;
}  // namespace voSupport
namespace voDMG {
class CandidateSet;
class DocumentDraw;
class DocumentHitTester;
class KLTSurfaceDraw;
class SnapManager;
class SnapResult;
}  // namespace voDMG

namespace printprep {

enum class ViewDirection { Iso, Top, Front, Side };

// "iso", "top", "front", "side"; false for another word.
bool parseViewDirection(const std::string& text, ViewDirection& direction);

class View {
public:
  // Opens the draw system (off-screen, no display needed) and the print surface for `scene`, whose
  // call info receives the draw system, the camera, the loader, the settings, the selection and
  // candidate sets, the hit tester, the snap manager, the document draw and the surface. `scene`
  // must outlive the view. Null with the reason in `error` when no context can be made.
  // With `inCurrentContext` the draw system adopts the OpenGL context current on this thread (a
  // window's, which must stay current and outlive the view) and drawToWindow draws the frame into
  // that window; render, renderPng and the thumbnails still draw off-screen images.
  static std::unique_ptr<View> create(Scene& scene, std::string& error, bool inCurrentContext = false);
  View(const View&) = delete;
  View& operator=(const View&) = delete;
  ~View();

  // Selects the parts at these indices (others leave the selection; indices out of range are
  // ignored). Selected parts glow.
  void select(const std::vector<int>& parts);
  // Hovers the part at `part` (its hover glow), or nothing when `part` is negative or out of range.
  void hover(int part);
  // Points the document's camera at `box` from `direction`, framing it in a width x height image.
  void look(const ruLinear::Range3d& box, ViewDirection direction, int width, int height);
  // As look, but close: the box's corners rather than the sphere around it fill the image, so a
  // flat box (a bed with a few parts) fills the frame instead of floating in its middle.
  void lookClosely(const ruLinear::Range3d& box, ViewDirection direction, int width, int height);
  // As lookClosely, framing these points: a few boxes' corners frame the boxes without the empty
  // floor between them that one box around them all would add.
  void lookClosely(const std::vector<ruLinear::Point>& corners, ViewDirection direction, int width, int height);
  // Cuts every part away above the height `z` (mm) and closes the cut solids with caps.
  void setCut(double z);
  // Removes the cut-away and its caps.
  void clearCut();
  bool hasCut() const noexcept { return cut_; }

  // Draws what changed and renders a width x height image, top row first; null on failure.
  ru::Reference<ruImage::Image> render(int width, int height);
  // render, then writes the PNG: to a temporary file renamed into place, so a failure leaves no
  // half-written file. False with "PATH: what is wrong" in `error`.
  bool renderPng(int width, int height, const std::string& path, std::string& error);
  // A size x size thumbnail of part `part` alone, or of the whole bed (every part and the printer,
  // framed on the printer's total volume) when `part` is negative; top row first, transparent
  // around the picture. Null on failure.
  ru::Reference<ruImage::Image> thumbnail(int part, int size);
  // thumbnail, then writes the PNG as renderPng does.
  bool thumbnailPng(int part, int size, const std::string& path, std::string& error);

  // Shows the mark of a snap result (its draw) until the next call; null removes it. The view keeps
  // the result alive while it shows it.
  void showSnapResult(ru::Reference<voDMG::SnapResult> result);

  // The per-document objects, for tools of the host. They live as long as the view.
  voGR::DrawSystem& drawSystem() const noexcept { return *system_; }
  voDMG::KLTSurfaceDraw& surface() const noexcept { return *surface_; }
  voDMG::DocumentDraw& documentDraw() const noexcept { return *documentDraw_; }
  voDMG::SelectionSet& selection() noexcept { return selection_; }
  voDMG::CandidateSet& candidates() const noexcept;
  voDMG::DocumentHitTester& hitTester() const noexcept { return *hitTester_; }
  voDMG::SnapManager& snapManager() const noexcept { return *snapManager_; }
  Scene& scene() const noexcept { return scene_; }

  // For interactive hosts (the viewer, the replay of sessions).
  // Replaces the document's camera and the surface's view camera.
  void setCamera(const ruGeom::Camera& camera);
  // Draws what changed and the frame into the window's framebuffer, at the camera's viewport.
  // False when the view was not made in a window's context, or the draw fails.
  bool drawToWindow();

private:
  explicit View(Scene& scene);

  Scene& scene_;
  std::unique_ptr<voGR::DrawSystem> system_;
  std::unique_ptr<voRES::Loader> loader_;
  std::unique_ptr<voSupport::PropertySet> settings_;
  std::unique_ptr<voSupport::TagRegistry> tags_;
  std::unique_ptr<voSupport::Broadcaster> broadcaster_;
  std::unique_ptr<voDMG::DocumentHitTester> hitTester_;
  std::unique_ptr<voDMG::SnapManager> snapManager_;
  voDMG::SelectionSet selection_;
  class Candidates;
  std::unique_ptr<Candidates> candidates_;
  voDMG::DocumentDraw* documentDraw_ = nullptr;
  ru::Reference<voDMG::KLTSurfaceDraw> surface_;
  std::unique_ptr<voGR::DrawContext> markContext_;
  ru::Reference<voDMG::SnapResult> mark_;
  bool cut_ = false;
  bool inWindow_ = false;
  ruRTB::SignalClient client_;
};

// Writes `image` as a PNG to a temporary file renamed to `path`, so a failure leaves no half-written
// file. False with "PATH: what is wrong" in `error` (a null image counts as a frame not drawn).
bool writePngInPlace(const ru::Reference<ruImage::Image>& image, const std::string& path, std::string& error);

// The number of pixels of `image` unlike the print view's background: a pixel counts unless it is
// a light neutral grey (the radial gradient runs from 0.93 to 0.99 grey) or fully transparent.
int pixelsUnlikeBackground(const ruImage::Image& image);

}  // namespace printprep
