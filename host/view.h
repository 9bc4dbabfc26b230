#pragma once

// How the host draws a scene: one off-screen draw system, a document surface and a document draw,
// the selection connected so that selected parts glow. This is the one place that chooses the
// surface and the drawings of parts and printer: today the plain document surface with plain
// part and bed drawings; the print surface and its drawings take their place here.

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
class DrawSystem;
}
namespace voRES {
class Loader;
}
namespace voDMG {
class DefaultDocumentSurfaceDraw;
class DocumentDraw;
}  // namespace voDMG

namespace printprep {

enum class ViewDirection { Iso, Top, Front, Side };

// "iso", "top", "front", "side"; false for another word.
bool parseViewDirection(const std::string& text, ViewDirection& direction);

class View {
public:
  // Opens the draw system (off-screen, no display needed) and the surface for `scene`, whose call
  // info receives the draw system, the camera, the loader, the selection and the document draw.
  // Null with the reason in `error` when no context can be made.
  // With `inCurrentContext` the draw system adopts the OpenGL context current on this thread (a
  // window's, which must stay current and outlive the view) and the frame is drawn into that
  // window by drawToWindow; render and renderPng still draw off-screen images.
  static std::unique_ptr<View> create(Scene& scene, std::string& error, bool inCurrentContext = false);
  View(const View&) = delete;
  View& operator=(const View&) = delete;
  ~View();

  // Selects the parts at these indices (others leave the selection).
  void select(const std::vector<int>& parts);
  // Points the document's camera at `box` from `direction`, framing it in a width x height image.
  void look(const ruLinear::Range3d& box, ViewDirection direction, int width, int height);
  // Draws what changed and renders a width x height image, top row first; null on failure.
  ru::Reference<ruImage::Image> render(int width, int height);
  // render, then writes the PNG: to a temporary file renamed into place, so a failure leaves no
  // half-written file. False with "PATH: what is wrong" in `error`.
  bool renderPng(int width, int height, const std::string& path, std::string& error);

  // For interactive hosts (the viewer and the replay of sessions).
  // Replaces the document's camera and the surface's view camera.
  void setCamera(const ruGeom::Camera& camera);
  // Draws what changed and the frame into the window's framebuffer, at the camera's viewport.
  // False when the view was not made in a window's context or the draw fails.
  bool drawToWindow();
  // Cuts away what lies above height `z` (mm), with caps, or shows everything again; false when
  // the surface draws no cut-away.
  bool setCutAway(bool on, double z);

private:
  explicit View(Scene& scene);

  Scene& scene_;
  std::unique_ptr<voGR::DrawSystem> system_;
  std::unique_ptr<voRES::Loader> loader_;
  ru::Reference<voDMG::DefaultDocumentSurfaceDraw> surface_;
  voDMG::DocumentDraw* documentDraw_ = nullptr;
  voDMG::SelectionSet selection_;
  ruRTB::SignalClient client_;
  bool inWindow_ = false;
};

// True when `image` holds a pixel whose colour differs from its corner pixel (the background).
int pixelsUnlikeBackground(const ruImage::Image& image);

}  // namespace printprep
