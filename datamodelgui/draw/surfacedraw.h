#pragma once

#include "datamodelgui/export.h"
#include "platform/base/reference.h"
#include "platform/base/strings.h"
#include "platform/geometry/box.h"
#include "platform/geometry/camera.h"
#include "platform/image/image.h"
#include "platform/support/broadcaster.h"
#include "platform/support/plist.h"

#include <functional>
#include <list>

namespace voGR {
class CameraNode;
class DataNodeStateInfo;
class Database;
class DrawItem;
class DrawSystem;
class RenderTargetNode;
class WorldNode;
}  // namespace voGR

namespace voDMG {

// One place where the document is drawn: owns the surface's draw database and builds its part of
// the shared render graph, and renders off-screen into an image. Building is two-phase: the
// constructor makes nothing that needs a virtual call, and initialize() (called once, after the
// most derived constructor) sets up the database and the graph.
class DMGUI_API SurfaceDraw : public ru::ReferenceCount {
public:
  // The key of the base render state that is true during the very first graph building.
  static const ruString::CString Initialize;

  SurfaceDraw(voGR::DrawSystem& system, ru::Reference<voGR::DataNodeStateInfo> stateInfo);
  SurfaceDraw(const SurfaceDraw&) = delete;
  SurfaceDraw& operator=(const SurfaceDraw&) = delete;
  ~SurfaceDraw() override;

  // Sets up the database, then enters the base render state {"initialize": true}, which stays at
  // the front of the stack with "initialize" turned false.
  void initialize();
  // Pushes a render state and rebuilds the graph with it.
  void enterRenderState(ru::Reference<voPLST::Dictionary> state);
  // Pops the last state and rebuilds with the base state: a leave always returns to the base,
  // whatever stood between.
  void leaveRenderState();
  // Rebuilds with `state`; the stack is left as it is.
  void updateRenderState(ru::Reference<voPLST::Dictionary> state);

  // Renders the target off-screen into a new image. Parameters: "width" and "height" (numbers,
  // truncated to whole pixels), "multisample" and "upsideDown" (Booleans; upsideDown flips the
  // rows so the top row comes first). The target's frame buffer, and what the hooks change, are
  // restored afterwards. Null, with the reason on the graphics debug channel, when a parameter is
  // missing, the size is not positive, no draw system is in the call context, or the draw fails.
  ru::Reference<ruImage::Image> renderFrame(ru::Reference<voPLST::Dictionary> parameters);

  ru::Reference<voGR::Database> getDatabase() const;
  voGR::RenderTargetNode* renderTargetNode() const;
  // The render states, the base one first (for inspection).
  const std::list<ru::Reference<voPLST::Dictionary>>& getRenderStates() const noexcept { return renderStates_; }

protected:
  voGR::DrawSystem& ds() const noexcept { return drawSystem_; }

private:
  virtual ru::Reference<voGR::Database> onSetupDatabase() = 0;
  virtual void onSetupGraph(ru::Reference<voPLST::Dictionary> state) = 0;
  virtual void onInitializeParams(ru::Reference<voPLST::Dictionary> state);
  virtual void onPreRenderFrame(ru::Reference<voPLST::Dictionary> parameters);
  virtual void onPostRenderFrame(ru::Reference<voPLST::Dictionary> parameters);

  voGR::DrawSystem& drawSystem_;
  ru::Reference<voGR::Database> database_;
  ru::Reference<voGR::DataNodeStateInfo> stateInfo_;
  std::list<ru::Reference<voPLST::Dictionary>> renderStates_;
};

// A surface showing the document through a view camera, the node "ViewCam" made by the
// constructor. renderFrame draws with the document's camera fitted to the image and puts the view
// camera back afterwards.
class DMGUI_API DocumentSurfaceDraw : public SurfaceDraw {
public:
  DocumentSurfaceDraw(voGR::DrawSystem& system, ru::Reference<voGR::DataNodeStateInfo> stateInfo);
  ~DocumentSurfaceDraw() override;

  // Replaces the view camera node (one owned by the graph).
  void setCameraNode(voGR::CameraNode* node) noexcept { viewCamera_ = node; }
  void updateCamera(const ruGeom::Camera& camera);
  virtual voGR::RenderTargetNode* getModelDrawRenderTarget() const;

protected:
  voGR::CameraNode* viewCameraNode() const noexcept { return viewCamera_; }
  // For onSetupDatabase: a database on the draw system's graph, made the active one, whose
  // camera-controls box is answered by `cameraControlsBox`.
  ru::Reference<voGR::Database> makeActiveDatabase(std::function<void(ruGeom::BoundingBox&)> cameraControlsBox);
  // Adds a world named `name` to `database`, holding the items `filter` accepts at emission;
  // answers its node (owned by the graph).
  static voGR::WorldNode* addNamedWorld(voGR::Database& database, const char* name,
                                        std::function<bool(voGR::DrawItem&)> filter);
  void onPreRenderFrame(ru::Reference<voPLST::Dictionary> parameters) override;
  void onPostRenderFrame(ru::Reference<voPLST::Dictionary> parameters) override;

private:
  voGR::CameraNode* viewCamera_ = nullptr;
  ruGeom::Camera savedCamera_;
};

// The standard surface: seven worlds and a fixed graph filling the target with clear, ground
// shadow, triangles, lines, glow of the active items, x-ray, billboards and screen-space items.
// The graph is built whole on every onSetupGraph, so it is meant to be built once.
class DMGUI_API DefaultDocumentSurfaceDraw : public DocumentSurfaceDraw {
public:
  DefaultDocumentSurfaceDraw(voGR::DrawSystem& system, ru::Reference<voGR::DataNodeStateInfo> stateInfo);
  ~DefaultDocumentSurfaceDraw() override;

  // The nodes, null until initialize (for the host and for inspection).
  voGR::CameraNode* renCameraNode() const noexcept { return renCamera_; }
  voGR::WorldNode* sceneWorldNode() const noexcept { return sceneWorld_; }
  voGR::WorldNode* sceneTriWorldNode() const noexcept { return sceneTriWorld_; }
  voGR::WorldNode* sceneLinesWorldNode() const noexcept { return sceneLinesWorld_; }
  voGR::WorldNode* selectedWorldNode() const noexcept { return selectedWorld_; }
  voGR::WorldNode* xRayWorldNode() const noexcept { return xRayWorld_; }
  voGR::WorldNode* ssPositionedWorldNode() const noexcept { return ssPositionedWorld_; }
  voGR::WorldNode* screenSpaceWorldNode() const noexcept { return screenSpaceWorld_; }

private:
  ru::Reference<voGR::Database> onSetupDatabase() override;
  void onSetupGraph(ru::Reference<voPLST::Dictionary> state) override;
  // The box the camera controls frame: the ordinary triangle meshes of the scene and x-ray worlds.
  void getCameraControlsBBox(ruGeom::BoundingBox& box);

  voGR::CameraNode* renCamera_ = nullptr;
  voGR::WorldNode* sceneWorld_ = nullptr;
  voGR::WorldNode* sceneTriWorld_ = nullptr;
  voGR::WorldNode* sceneLinesWorld_ = nullptr;
  voGR::WorldNode* selectedWorld_ = nullptr;
  voGR::WorldNode* xRayWorld_ = nullptr;
  voGR::WorldNode* ssPositionedWorld_ = nullptr;
  voGR::WorldNode* screenSpaceWorld_ = nullptr;
};

// Messages for the host around thumbnail rendering; they carry nothing and this library neither
// sends nor handles them.
class DMGUI_API PushThumbnailRenderStateMsg : public voSupport::Message {
public:
  PushThumbnailRenderStateMsg() = default;
  PushThumbnailRenderStateMsg(const PushThumbnailRenderStateMsg&) = default;
  PushThumbnailRenderStateMsg& operator=(const PushThumbnailRenderStateMsg&) = default;
  ~PushThumbnailRenderStateMsg() override;
};

class DMGUI_API PopThumbnailRenderStateMsg : public voSupport::Message {
public:
  PopThumbnailRenderStateMsg() = default;
  PopThumbnailRenderStateMsg(const PopThumbnailRenderStateMsg&) = default;
  PopThumbnailRenderStateMsg& operator=(const PopThumbnailRenderStateMsg&) = default;
  ~PopThumbnailRenderStateMsg() override;
};

}  // namespace voDMG
