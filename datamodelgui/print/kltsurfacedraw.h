#pragma once

#include "datamodelgui/draw/surfacedraw.h"
#include "datamodelgui/export.h"
#include "datamodelgui/print/clipping.h"
#include "platform/base/linear.h"
#include "platform/graphics/editors.h"


namespace voDMD {
class KLTMesh;
class Object;
}  // namespace voDMD

namespace voGR {
class RenderNode;
}

namespace voDMG {

class DocumentDraw;

// The document surface of the print view: nine filtered worlds, a radial background, the triangle
// pass with cut-away caps, lines, three glows (selected, hovered, hovered and selected), x-ray and
// screen-space passes, and beside the main chain an off-screen branch that renders thumbnails of
// one print mesh or of the whole bed. It keeps the cut-away's planes, which the print meshes' draw
// policy reads at each emission.
class DMGUI_API KLTSurfaceDraw : public DocumentSurfaceDraw, public ClippingPlaneSource {
public:
  KLTSurfaceDraw(voGR::DrawSystem& system, ru::Reference<voGR::DataNodeStateInfo> stateInfo);
  ~KLTSurfaceDraw() override;

  void addClippingPlane(const ruLinear::Plane& plane);
  void addSelectionClippingPlane(const ruLinear::Plane& plane);
  void clearClippingPlanes();
  // A copy of the list, oldest first.
  ClippingPlaneList planes() const override { return clippingPlanes_; }

  // The caps are driven from outside: whoever sets the planes also places, rebuilds and shows them.
  void updateCapPosition(const ruLinear::Plane& plane, ruLinear::Range3d range);
  void updateCapGeom(bool rebuild);
  void updateCapVisibility(bool visible);

  // An image of `mesh` alone, or of the whole bed (every triangle and the printer's lines, framed
  // on the printer's total volume) when `mesh` is null, width by height pixels, rows bottom-up as
  // the read-back gives them.
  ru::Reference<ruImage::Image> renderThumb(voDMD::KLTMesh* mesh, int width, int height);

  // True (the default): framing leaves out print meshes outside the useable volume.
  void setExtendBBoxForMeshesInsideBed(bool extend) noexcept { extendBBoxForMeshesInsideBed_ = extend; }

  // The camera the main passes draw with (the view camera with its depth range fitted to the
  // scene); the constructor gives the hit tester of the call info a getter of it, which is not
  // taken back at destruction: the surface must outlive the hit tester's use of it.
  ruGeom::Camera getRenderCamera() const;

  // The nodes, null until initialize (for the host and for inspection).
  voGR::CameraNode* renCameraNode() const noexcept { return renCamera_; }
  voGR::WorldNode* sceneWorldNode() const noexcept { return sceneWorld_; }
  voGR::WorldNode* sceneTriWorldNode() const noexcept { return sceneTriWorld_; }
  voGR::WorldNode* sceneLinesWorldNode() const noexcept { return sceneLinesWorld_; }
  voGR::WorldNode* selectedWorldNode() const noexcept { return selectedWorld_; }
  voGR::WorldNode* xRayWorldNode() const noexcept { return xRayWorld_; }
  voGR::WorldNode* ssPositionedWorldNode() const noexcept { return ssPositionedWorld_; }
  voGR::WorldNode* screenSpaceWorldNode() const noexcept { return screenSpaceWorld_; }
  voGR::WorldNode* hoverWorldNode() const noexcept { return hoverWorld_; }
  voGR::WorldNode* hoverSelWorldNode() const noexcept { return hoverSelWorld_; }
  voGR::CameraNode* thumbCameraNode() const noexcept { return thumbCamera_; }
  voGR::RenderNode* thumbRenderNode() const noexcept { return thumbRender_; }
  voGR::RenderTargetNode* thumbTargetNode() const noexcept { return thumbTarget_; }
  voDMD::Object* thumbObject() const noexcept { return thumbObject_; }
  const voGR::KLTCapEditor& capEditor() const noexcept { return capEditor_; }

private:
  ru::Reference<voGR::Database> onSetupDatabase() override;
  void onSetupGraph(ru::Reference<voPLST::Dictionary> state) override;
  // The print view keeps its own camera handling: a frame changes nothing around the draw.
  void onPreRenderFrame(ru::Reference<voPLST::Dictionary> parameters) override;
  void onPostRenderFrame(ru::Reference<voPLST::Dictionary> parameters) override;

  // Makes the print meshes (KLTMeshDraw) emit again, so they take up the new plane list.
  void modified();
  // The box the camera controls frame (see the source).
  void getCameraControlsBBox(ruGeom::BoundingBox& out);

  voGR::CameraNode* renCamera_ = nullptr;
  voGR::WorldNode* sceneWorld_ = nullptr;
  voGR::WorldNode* sceneTriWorld_ = nullptr;
  voGR::WorldNode* sceneLinesWorld_ = nullptr;
  voGR::WorldNode* selectedWorld_ = nullptr;
  voGR::WorldNode* xRayWorld_ = nullptr;
  voGR::WorldNode* ssPositionedWorld_ = nullptr;
  voGR::WorldNode* screenSpaceWorld_ = nullptr;
  voGR::WorldNode* hoverWorld_ = nullptr;
  voGR::WorldNode* hoverSelWorld_ = nullptr;
  voGR::CameraNode* thumbCamera_ = nullptr;
  voGR::RenderNode* thumbRender_ = nullptr;
  voGR::RenderTargetNode* thumbTarget_ = nullptr;
  voDMD::Object* thumbObject_ = nullptr;
  bool extendBBoxForMeshesInsideBed_ = true;
  voGR::KLTCapEditor capEditor_;
  ClippingPlaneList clippingPlanes_;
  DocumentDraw* documentDraw_ = nullptr;
};

}  // namespace voDMG
