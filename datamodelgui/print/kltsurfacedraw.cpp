#include "datamodelgui/print/kltsurfacedraw.h"

#include "datamodelgui/draw/documentdraw.h"
#include "datamodelgui/draw/objectdraw.h"
#include "datamodelgui/print/meshdraw.h"
#include "datamodelgui/selection/hittester.h"
#include "platform/datamodel/actions.h"
#include "platform/datamodel/print.h"
#include "platform/graphics/device.h"
#include "platform/graphics/draw.h"
#include "platform/graphics/graph.h"
#include "platform/graphics/shader.h"
#include "platform/graphics/world.h"
#include "platform/support/callinfo.h"
#include "platform/support/debug.h"
#include "platform/support/settings.h"

#include <cmath>
#include <cstdio>

namespace voDMG {

namespace {

bool inWorldSpace(const voGR::DrawItem& item) { return item.getSpace() == voGR::SpaceWorld; }
bool placed(const voGR::DrawItem& item) { return static_cast<bool>(item.getTransformer()); }
bool triangles(const voGR::DrawItem& item) { return item.getGeometry() && item.getGeometry()->isTriangles(); }
bool normalDepth(const voGR::DrawItem& item) { return item.getDepthInteraction() == voGR::DepthNormal; }

// Thumbnail framing: looking along this direction (not normalised) from this many box diagonals.
const ruLinear::Vector kThumbDirection(1.0, 0.6, -0.4);
constexpr double kThumbDistance = 1.7;
constexpr double kThumbAngle = 0.4363323129985824;  // 25 degrees
constexpr int kThumbInitialSize = 1000;

bool usableNormal(const ruLinear::Plane& plane) {
  const ruLinear::Normal& n = plane.getNormal();
  const double length = std::sqrt(n.getX() * n.getX() + n.getY() * n.getY() + n.getZ() * n.getZ());
  return std::isfinite(length) && length > 0.5;
}

void mergeInto(ruGeom::BoundingBox& out, const ruGeom::BoundingBox& box) {
  if (!box.valid()) return;
  if (out.valid())
    out.extend(box);
  else
    out = box;
}

}  // namespace

KLTSurfaceDraw::KLTSurfaceDraw(voGR::DrawSystem& system, ru::Reference<voGR::DataNodeStateInfo> stateInfo)
    : DocumentSurfaceDraw(system, std::move(stateInfo)),
      capEditor_(system),
      documentDraw_(voSupport::ci().find<DocumentDraw>()) {
  // The hit tester works with the camera of the last print surface made.
  if (auto* hitTester = voSupport::ci().find<DocumentHitTester>())
    hitTester->setCameraGetter([this] { return getRenderCamera(); });
}

KLTSurfaceDraw::~KLTSurfaceDraw() {
  std::fputs("~KLTSurfaceDraw called\n", stdout);
}

ruGeom::Camera KLTSurfaceDraw::getRenderCamera() const {
  return renCamera_ ? renCamera_->getCamera() : ruGeom::Camera();
}

// ---------------------------------------------------------------------------------------------
// Cut-away

void KLTSurfaceDraw::addClippingPlane(const ruLinear::Plane& plane) {
  if (!usableNormal(plane)) {
    voSupport::Debug::getInstance().print(voGR::DebugGraphics, "voDMG::KLTSurfaceDraw::addClippingPlane",
                                          "a clipping plane with a zero normal is ignored");
    return;
  }
  clippingPlanes_.push_back(ClippingPlane{plane, false});
  modified();
}

void KLTSurfaceDraw::addSelectionClippingPlane(const ruLinear::Plane& plane) {
  if (!usableNormal(plane)) {
    voSupport::Debug::getInstance().print(voGR::DebugGraphics, "voDMG::KLTSurfaceDraw::addSelectionClippingPlane",
                                          "a clipping plane with a zero normal is ignored");
    return;
  }
  clippingPlanes_.push_back(ClippingPlane{plane, true});
  modified();
}

void KLTSurfaceDraw::clearClippingPlanes() {
  clippingPlanes_.clear();
  modified();
}

void KLTSurfaceDraw::modified() {
  if (documentDraw_) documentDraw_->setDrawPolicyModified(typeid(KLTMeshDraw));
}

void KLTSurfaceDraw::updateCapPosition(const ruLinear::Plane& plane, ruLinear::Range3d range) {
  capEditor_.updateCapPosition(renderTargetNode(), plane, range);
}

void KLTSurfaceDraw::updateCapGeom(bool rebuild) { capEditor_.updateCapGeom(renderTargetNode(), rebuild); }

void KLTSurfaceDraw::updateCapVisibility(bool visible) {
  capEditor_.updateCapVisibility(renderTargetNode(), visible);
}

// ---------------------------------------------------------------------------------------------
// Database and graph

ru::Reference<voGR::Database> KLTSurfaceDraw::onSetupDatabase() {
  ru::Reference<voGR::Database> database =
      makeActiveDatabase([this](ruGeom::BoundingBox& box) { getCameraControlsBBox(box); });
  auto add = [&](const char* name, voGR::Database::Filter filter) {
    return addNamedWorld(*database, name, std::move(filter));
  };
  ssPositionedWorld_ = add("SSPW", [](voGR::DrawItem& item) { return inWorldSpace(item) && placed(item); });
  sceneTriWorld_ = add("SceneTriW", [](voGR::DrawItem& item) {
    return inWorldSpace(item) && triangles(item) && !placed(item) && normalDepth(item);
  });
  sceneLinesWorld_ = add("SceneLinesW", [](voGR::DrawItem& item) {
    return inWorldSpace(item) && !triangles(item) && !placed(item) && normalDepth(item);
  });
  // The printer's helpers (type 2) stay out: they do not count in the clip range or the glow.
  sceneWorld_ = add("SceneW", [](voGR::DrawItem& item) {
    return inWorldSpace(item) && !placed(item) && item.getType() != voGR::TypeHelper && normalDepth(item);
  });
  selectedWorld_ = add("SelectedW", [](voGR::DrawItem& item) { return inWorldSpace(item) && !placed(item) && item.isActive(); });
  xRayWorld_ = add("XRayW", [](voGR::DrawItem& item) {
    return inWorldSpace(item) && !placed(item) && !item.isActive() && item.getDepthInteraction() == voGR::DepthXRay;
  });
  screenSpaceWorld_ = add("SSW", [](voGR::DrawItem& item) { return item.getSpace() == voGR::SpaceScreen; });
  hoverWorld_ = add("HoverW", [](voGR::DrawItem& item) { return item.contains("KLTHoverTag") && !item.isActive(); });
  hoverSelWorld_ =
      add("HoverSelW", [](voGR::DrawItem& item) { return item.contains("KLTHoverSelectedTag") && item.isActive(); });
  return database;
}

void KLTSurfaceDraw::onSetupGraph(ru::Reference<voPLST::Dictionary>) {
  voGR::Graph* graph = ds().getGraph();
  voGR::GraphEditor editor(graph);

  renCamera_ = new voGR::CameraNode();
  editor.addNode(renCamera_);
  renCamera_->setName("RenCam");
  auto* clip = new voGR::UpdateClipPlanesNode();
  editor.addNode(clip);
  editor.createEdge(viewCameraNode(), clip, "viewCamera");
  for (voGR::WorldNode* world : {sceneWorld_, sceneTriWorld_, sceneLinesWorld_, xRayWorld_})
    editor.createEdge(world, clip, "world");
  editor.createEdge(clip, renCamera_, "renCamera");

  auto newState = [&](voGR::DataNode* of) {
    auto* state = new voGR::RenderTargetNode();
    state->setName(of->getName());
    of->appendState(state);
    editor.addNode(state);
    return state;
  };

  voGR::RenderTargetNode* target = renderTargetNode();
  if (target) {
    ru::Reference<voGR::RadialGradientColorShader> background = new voGR::RadialGradientColorShader();
    background->color0 = ruUtil::Color(0.99f, 0.99f, 0.99f, 1.0f);
    background->color1 = ruUtil::Color(0.933f, 0.933f, 0.933f, 1.0f);
    background->color2 = ruUtil::Color(0.93f, 0.93f, 0.93f, 1.0f);
    background->position0 = 0.0f;
    background->position1 = 0.7f;
    background->position2 = 0.9f;
    voGR::BackgroundEditor(ds()).add(target, renCamera_, ru::Reference<voGR::Shader>(background.get()));

    // Read once: the cap passes exist only if the setting was on when the graph was built.
    bool caps = false;
    if (auto* settings = voSupport::ci().find<voSupport::PropertySet>())
      if (voSupport::Property* property = settings->find("vo.app.settings.CutawayCaps"))
        if (ru::Reference<voSupport::Property> copy = property->cloneUnTxd())
          if (ru::Reference<voPLST::Item> value = copy->value(); value && value->isValue()) caps = value->value().toBool();
    capEditor_.add(target, sceneTriWorld_, renCamera_, caps);

    voGR::DataNode* last = target->getLastState();
    voGR::RenderTargetNode* afterLines = newState(last);
    auto* lines = new voGR::RenderNode();
    editor.addNode(lines);
    lines->setName("RenderLines");
    editor.createEdge(renCamera_, lines, "camera");
    editor.createEdge(last, lines);
    editor.createEdge(sceneLinesWorld_, lines, "world");
    editor.createEdge(lines, afterLines, "target");

    voGR::KLTGlowEditor glow(ds());
    glow.add(target, selectedWorld_, renCamera_, ruUtil::Color(0.09f, 0.61f, 0.84f, 1.0f), true, 0.18);
    glow.add(target, hoverWorld_, renCamera_, ruUtil::Color(0.09f, 0.45f, 0.62f, 1.0f), true, 0.5);
    glow.add(target, hoverSelWorld_, renCamera_, ruUtil::Color(0.09f, 0.6f, 0.95f, 1.0f), true, 0.5);

    auto* afterGlow = static_cast<voGR::RenderTargetNode*>(target->getLastState());
    voGR::XRayEditor(ds()).add(afterGlow, xRayWorld_, renCamera_);
    // Billboards show through what hides them unless active or drawn in x-ray already.
    voGR::XRayEditor billboards(ds());
    billboards.setBehindFilter(
        [](voGR::DrawItem& item) { return !item.isActive() && item.getDepthInteraction() != voGR::DepthXRay; });
    billboards.add(afterGlow, ssPositionedWorld_, renCamera_);
    voGR::ScreenSpaceEditor(ds()).add(afterGlow, screenSpaceWorld_, renCamera_);
  }

  // The thumbnail branch: its own camera and frame buffer, never reached from the main target.
  ruGeom::Camera thumbCamera;
  thumbCamera.setViewport(ruGeom::Viewport(0.0, 0.0, kThumbInitialSize, kThumbInitialSize));
  thumbCamera.setWorldToEye(ruLinear::Point(0, 0, 0), ruLinear::Point(50, -50, 50), ruLinear::Vector(0, 0, 1));
  thumbCamera_ = new voGR::CameraNode();
  editor.addNode(thumbCamera_);
  thumbCamera_->setCamera(thumbCamera);

  const ruRen::FBOKey thumbKey = ds().createFBOKey(ruRen::FBOInfo(kThumbInitialSize, kThumbInitialSize, true, false, false));
  thumbTarget_ = new voGR::RenderTargetNode();
  editor.addNode(thumbTarget_);
  thumbTarget_->setFBO(thumbKey);
  thumbTarget_->setName("Thumbnail_FBO");

  voGR::RenderTargetNode* cleared = newState(thumbTarget_);
  auto* clear = new voGR::ClearNode();
  editor.addNode(clear);
  clear->setColor(0.0f, 0.0f, 0.0f, 0.0f);
  editor.createEdge(thumbTarget_, clear, "input");
  editor.createEdge(clear, cleared, "target");

  voGR::RenderTargetNode* rendered = newState(cleared);
  thumbRender_ = new voGR::RenderNode();
  editor.addNode(thumbRender_);
  thumbRender_->setName("RenderThumbTri");
  thumbRender_->setRejectItemFunc([this](voGR::DrawItem& item) {
    if (!thumbObject_) return false;
    const ObjectDraw* owner = item.getObjectDrawOwner();
    return !owner || owner->getObject() != thumbObject_;
  });
  thumbRender_->getRasterizerState().enablePolygonOffset(1.0f, 1.0f);
  editor.createEdge(thumbCamera_, thumbRender_, "camera");
  editor.createEdge(cleared, thumbRender_);
  editor.createEdge(sceneTriWorld_, thumbRender_, "world");
  editor.createEdge(thumbRender_, rendered, "target");

  voGR::printOutGraph(graph);
}

void KLTSurfaceDraw::onPreRenderFrame(ru::Reference<voPLST::Dictionary>) {}
void KLTSurfaceDraw::onPostRenderFrame(ru::Reference<voPLST::Dictionary>) {}

// ---------------------------------------------------------------------------------------------
// Thumbnails

ru::Reference<ruImage::Image> KLTSurfaceDraw::renderThumb(voDMD::KLTMesh* mesh, int width, int height) {
  constexpr const char* kWhere = "voDMG::KLTSurfaceDraw::renderThumb";
  auto complain = [&](const char* text) { voSupport::Debug::getInstance().print(voGR::DebugGraphics, kWhere, "%s", text); };
  if (width <= 0 || height <= 0) {
    voSupport::Debug::getInstance().print(voGR::DebugGraphics, kWhere, "the size %d x %d is not a positive size", width,
                                          height);
    return nullptr;
  }
  voGR::DrawSystem* system = voSupport::ci().find<voGR::DrawSystem>();
  if (!system || !thumbTarget_ || !thumbRender_ || !thumbCamera_) {
    complain(system ? "the surface has not been initialised" : "no draw system in the call context");
    return nullptr;
  }

  // The box to show, found before anything changes so that a refusal leaves the surface as it was.
  ruLinear::Range3d box;
  if (mesh) {
    const auto* bbox = mesh->owner() ? mesh->owner()->findAttribute<voDMD::KLTMeshBBox>() : nullptr;
    if (bbox) box = bbox->getWorldSpace();
  } else if (voDMD::KLTDecoration* decoration = voDMD::KLTDecoration::get()) {
    if (voDMD::KLTPrinter* printer = decoration->getPrinter()) box = printer->totalVolume();
  }
  if (!box.isValid()) {
    complain(mesh ? "the print mesh has no extent" : "no printer, or its total volume is empty");
    return nullptr;
  }

  thumbObject_ = mesh ? mesh->owner() : nullptr;
  voGR::GraphEditor editor(system->getGraph());
  // The whole-bed picture also shows the printer's lines.
  voGR::Edge* linesEdge = mesh ? nullptr : editor.createEdge(sceneLinesWorld_, thumbRender_, "world");

  ruRen::FBOInfo info = voGR::FBOKeyAccessor(thumbTarget_->getFBO()).getInfo();
  if (info.width != width || info.height != height) {
    info.width = width;
    info.height = height;
    thumbTarget_->setFBO(system->createFBOKey(info));
  }

  ru::Reference<ruImage::TypedImage<ruImage::Byte4>> image = new ruImage::TypedImage<ruImage::Byte4>(width, height);

  ruGeom::Camera camera = thumbCamera_->getCamera();
  const ruLinear::Point middle = box.getMiddle();
  const ruLinear::Vector span = box.getDiagonal();
  const double diagonal = std::sqrt(span.getX() * span.getX() + span.getY() * span.getY() + span.getZ() * span.getZ());
  const ruLinear::Point eye = middle - kThumbDirection * (diagonal * kThumbDistance);
  camera.setWorldToEye(middle, eye, ruLinear::Vector(0, 0, 1));
  camera.setViewport(ruGeom::Viewport(0.0, 0.0, width, height));
  ruGeom::AngleAspect frustum;
  camera.getFrustum(frustum);
  frustum.setAspectRatio(static_cast<double>(width) / static_cast<double>(height));
  frustum.setAngle(kThumbAngle);
  // A point-sized box still needs a depth range in front of the eye.
  const double depth = diagonal > 0.0 ? diagonal : 1.0;
  frustum.setDepthRange(depth, 20.0 * depth);
  camera.setFrustum(frustum);
  thumbCamera_->setCamera(camera);

  const ruRen::FBOKey key = thumbTarget_->getFBO();
  key.lock();
  bool ok = system->draw(thumbTarget_);
  ok = ok && system->getRenDeviceContext()->readColorBuffer(key, 0, 0, width, height, *image);
  key.unlock();

  if (linesEdge) editor.deleteEdge(linesEdge);
  if (!ok) {
    complain("the thumbnail could not be drawn or read back");
    return nullptr;
  }
  return ru::Reference<ruImage::Image>(image.get());
}

// ---------------------------------------------------------------------------------------------
// Framing

void KLTSurfaceDraw::getCameraControlsBBox(ruGeom::BoundingBox& out) {
  out.setInvalid();
  for (voDMD::KLTMesh* mesh : voDMA::findKLTMeshes()) {
    ruLinear::Range3d range;
    range.setUnbounded();
    const bool take = extendBBoxForMeshesInsideBed_ ? mesh->visible() && !mesh->isOutOfBounds() : mesh->visible();
    if (take && mesh->owner())
      if (const auto* bbox = mesh->owner()->findAttribute<voDMD::KLTMeshBBox>()) range = bbox->getWorldSpace();
    if (range.getMax(0) >= range.getMin(0)) mergeInto(out, ruGeom::BoundingBox(range));
  }
  if (out.valid()) return;
  for (voGR::WorldNode* node : {sceneTriWorld_, sceneLinesWorld_, sceneWorld_}) {
    if (!node || !node->getWorld()) continue;
    ruGeom::BoundingBox part;
    node->getWorld()->getBoundingBox(part, {});
    mergeInto(out, part);
  }
}

}  // namespace voDMG
