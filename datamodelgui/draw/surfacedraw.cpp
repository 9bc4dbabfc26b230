#include "datamodelgui/draw/surfacedraw.h"

#include "platform/datamodel/attributes.h"
#include "platform/datamodel/document.h"
#include "platform/graphics/draw.h"
#include "platform/graphics/editors.h"
#include "platform/graphics/graph.h"
#include "platform/graphics/world.h"
#include "platform/resources/resources.h"
#include "platform/support/callinfo.h"
#include "platform/support/debug.h"

#include <cmath>
#include <limits>

namespace voDMG {

const ruString::CString SurfaceDraw::Initialize = "initialize";

SurfaceDraw::SurfaceDraw(voGR::DrawSystem& system, ru::Reference<voGR::DataNodeStateInfo> stateInfo)
    : drawSystem_(system), stateInfo_(std::move(stateInfo)) {}

SurfaceDraw::~SurfaceDraw() {
  // Only our own database is taken out; another surface's stays active.
  if (database_ && drawSystem_.getActiveDatabase() == database_) drawSystem_.setActiveDatabase(nullptr);
}

void SurfaceDraw::initialize() {
  database_ = onSetupDatabase();
  ru::Reference<voPLST::Dictionary> base = new voPLST::Dictionary();
  base->setBool(Initialize, true);
  onInitializeParams(base);
  enterRenderState(base);
  // In place: the base state keeps its identity at the front of the stack.
  if (auto* flag = dynamic_cast<voPLST::Boolean*>(base->find(Initialize))) flag->set(false);
}

void SurfaceDraw::enterRenderState(ru::Reference<voPLST::Dictionary> state) {
  renderStates_.push_back(state);
  onSetupGraph(state);
}

void SurfaceDraw::leaveRenderState() {
  if (renderStates_.empty()) return;
  renderStates_.pop_back();
  if (renderStates_.empty()) return;
  onSetupGraph(renderStates_.front());
}

void SurfaceDraw::updateRenderState(ru::Reference<voPLST::Dictionary> state) { onSetupGraph(state); }

ru::Reference<voGR::Database> SurfaceDraw::getDatabase() const { return database_; }

voGR::RenderTargetNode* SurfaceDraw::renderTargetNode() const {
  return stateInfo_ ? dynamic_cast<voGR::RenderTargetNode*>(stateInfo_->firstState()) : nullptr;
}

void SurfaceDraw::onInitializeParams(ru::Reference<voPLST::Dictionary>) {}
void SurfaceDraw::onPreRenderFrame(ru::Reference<voPLST::Dictionary>) {}
void SurfaceDraw::onPostRenderFrame(ru::Reference<voPLST::Dictionary>) {}

namespace {

constexpr const char* kRenderFrame = "voDMG::SurfaceDraw::renderFrame";

void complain(const char* format, const char* detail) {
  voSupport::Debug::getInstance().print(voGR::DebugGraphics, kRenderFrame, format, detail);
}

// A pixel count from a parameter: truncated; false when it is not a finite positive whole size.
bool readSize(const voPLST::ValueBase* value, int& out) {
  const double number = value->toDouble();
  if (!std::isfinite(number) || number < 1.0 || number > static_cast<double>(std::numeric_limits<int>::max())) return false;
  out = static_cast<int>(number);
  return true;
}

}  // namespace

ru::Reference<ruImage::Image> SurfaceDraw::renderFrame(ru::Reference<voPLST::Dictionary> parameters) {
  if (!parameters) {
    complain("%s", "no parameters");
    return nullptr;
  }
  const voPLST::ValueBase* values[4] = {};
  const char* keys[4] = {"width", "height", "multisample", "upsideDown"};
  for (int i = 0; i < 4; ++i) {
    values[i] = parameters->findValue(keys[i]);
    if (!values[i]) {
      complain("the parameter \"%s\" is missing", keys[i]);
      return nullptr;
    }
  }
  int width = 0, height = 0;
  if (!readSize(values[0], width) || !readSize(values[1], height)) {
    voSupport::Debug::getInstance().print(voGR::DebugGraphics, kRenderFrame, "the size %g x %g is not a positive size",
                                          values[0]->toDouble(), values[1]->toDouble());
    return nullptr;
  }
  const bool multisample = values[2]->toBool();
  const bool upsideDown = values[3]->toBool();

  voGR::DrawSystem* system = voSupport::ci().find<voGR::DrawSystem>();
  voGR::RenderTargetNode* target = renderTargetNode();
  if (!system || !target) {
    complain("%s", system ? "the surface has no render target" : "no draw system in the call context");
    return nullptr;
  }
  const ruRen::FBOKey key = system->createFBOKey(ruRen::FBOInfo(width, height, true, false, multisample));
  if (!key.valid()) {
    complain("%s", "no frame buffer of that size");
    return nullptr;
  }
  ru::Reference<voRES::ExternalResource> memory =
      new voRES::ExternalResource(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4u);
  ru::Reference<ruImage::TypedImage<ruImage::Byte4>> image = new ruImage::TypedImage<ruImage::Byte4>(width, height);

  const ruRen::FBOKey saved = target->getFBO();
  target->setFBO(key);
  onPreRenderFrame(parameters);
  key.lock();
  bool ok = system->draw(target);
  ok = ok && system->getRenDeviceContext()->readColorBuffer(key, 0, 0, width, height, *image);
  key.unlock();
  onPostRenderFrame(parameters);
  target->setFBO(saved);
  if (!ok) {
    complain("%s", "the frame could not be drawn or read back");
    return nullptr;
  }
  if (upsideDown) ruImage::imageFlipVertical(*image);
  return ru::Reference<ruImage::Image>(image.get());
}

// ---------------------------------------------------------------------------------------------

DocumentSurfaceDraw::DocumentSurfaceDraw(voGR::DrawSystem& system, ru::Reference<voGR::DataNodeStateInfo> stateInfo)
    : SurfaceDraw(system, std::move(stateInfo)) {
  voGR::GraphEditor editor(system.getGraph());
  viewCamera_ = new voGR::CameraNode();
  editor.addNode(viewCamera_);
  viewCamera_->setName("ViewCam");
}

DocumentSurfaceDraw::~DocumentSurfaceDraw() = default;

void DocumentSurfaceDraw::updateCamera(const ruGeom::Camera& camera) {
  if (viewCamera_) viewCamera_->setCamera(camera);
}

voGR::RenderTargetNode* DocumentSurfaceDraw::getModelDrawRenderTarget() const { return renderTargetNode(); }

void DocumentSurfaceDraw::onPreRenderFrame(ru::Reference<voPLST::Dictionary> parameters) {
  if (!viewCamera_) return;
  const int width = static_cast<int>(parameters->findValue("width")->toDouble());
  const int height = static_cast<int>(parameters->findValue("height")->toDouble());
  savedCamera_ = viewCamera_->getCamera();
  ruGeom::Camera camera = savedCamera_;
  if (auto* document = voSupport::ci().find<voDMD::Document>(); document && document->camera())
    camera = document->camera()->get();
  else if (auto* attribute = voSupport::ci().find<voDMD::Camera>())
    camera = attribute->get();
  ruGeom::Viewport viewport = camera.getViewport();
  viewport.setOrigin(0.0, 0.0);
  viewport.setSize(static_cast<double>(width), static_cast<double>(height));
  camera.setViewport(viewport);
  ruGeom::AngleAspect frustum;
  camera.getFrustum(frustum);
  frustum.setAspectRatio(static_cast<double>(width) / static_cast<double>(height));
  camera.setFrustum(frustum);
  viewCamera_->setCamera(camera);
}

void DocumentSurfaceDraw::onPostRenderFrame(ru::Reference<voPLST::Dictionary>) {
  if (viewCamera_) viewCamera_->setCamera(savedCamera_);
}

ru::Reference<voGR::Database> DocumentSurfaceDraw::makeActiveDatabase(
    std::function<void(ruGeom::BoundingBox&)> cameraControlsBox) {
  ru::Reference<voGR::Database> database = new voGR::Database(ds().getGraph());
  ds().setActiveDatabase(database);
  database->setCameraControlsBBox(std::move(cameraControlsBox));
  return database;
}

voGR::WorldNode* DocumentSurfaceDraw::addNamedWorld(voGR::Database& database, const char* name,
                                                   std::function<bool(voGR::DrawItem&)> filter) {
  const int index = database.addWorld(new voGR::ListWorld(true), std::move(filter));
  voGR::WorldNode* node = database.getWorldNode(index);
  if (node) node->setName(name);
  return node;
}

// ---------------------------------------------------------------------------------------------

DefaultDocumentSurfaceDraw::DefaultDocumentSurfaceDraw(voGR::DrawSystem& system,
                                                       ru::Reference<voGR::DataNodeStateInfo> stateInfo)
    : DocumentSurfaceDraw(system, std::move(stateInfo)) {}

DefaultDocumentSurfaceDraw::~DefaultDocumentSurfaceDraw() = default;

namespace {

bool inWorldSpace(const voGR::DrawItem& item) { return item.getSpace() == voGR::SpaceWorld; }
bool placed(const voGR::DrawItem& item) { return static_cast<bool>(item.getTransformer()); }
bool lines(const voGR::DrawItem& item) { return item.getGeometry() && !item.getGeometry()->isTriangles(); }
bool normalDepth(const voGR::DrawItem& item) { return item.getDepthInteraction() == voGR::DepthNormal; }

}  // namespace

ru::Reference<voGR::Database> DefaultDocumentSurfaceDraw::onSetupDatabase() {
  ru::Reference<voGR::Database> database =
      makeActiveDatabase([this](ruGeom::BoundingBox& box) { getCameraControlsBBox(box); });
  auto add = [&](const char* name, voGR::Database::Filter filter) {
    return addNamedWorld(*database, name, std::move(filter));
  };
  ssPositionedWorld_ = add("SSPW", [](voGR::DrawItem& item) { return inWorldSpace(item) && placed(item); });
  sceneTriWorld_ = add("SceneTriW", [](voGR::DrawItem& item) {
    return inWorldSpace(item) && item.isTriangles() && !placed(item) && normalDepth(item);
  });
  sceneLinesWorld_ = add("SceneLinesW", [](voGR::DrawItem& item) {
    return inWorldSpace(item) && lines(item) && !placed(item) && normalDepth(item);
  });
  sceneWorld_ = add("SceneW", [](voGR::DrawItem& item) { return inWorldSpace(item) && !placed(item) && normalDepth(item); });
  selectedWorld_ = add("SelectedW", [](voGR::DrawItem& item) { return inWorldSpace(item) && !placed(item) && item.isActive(); });
  xRayWorld_ = add("XRayW", [](voGR::DrawItem& item) {
    return inWorldSpace(item) && !placed(item) && !item.isActive() && item.getDepthInteraction() == voGR::DepthXRay;
  });
  screenSpaceWorld_ = add("SSW", [](voGR::DrawItem& item) { return item.getSpace() == voGR::SpaceScreen; });
  return database;
}

void DefaultDocumentSurfaceDraw::onSetupGraph(ru::Reference<voPLST::Dictionary>) {
  voGR::Graph* graph = ds().getGraph();
  voGR::GraphEditor editor(graph);

  renCamera_ = new voGR::CameraNode();
  editor.addNode(renCamera_);
  renCamera_->setName("RenCam");
  auto* clip = new voGR::UpdateClipPlanesNode();
  editor.addNode(clip);
  editor.createEdge(viewCameraNode(), clip, "viewCamera");
  editor.createEdge(sceneWorld_, clip, "world");
  editor.createEdge(xRayWorld_, clip, "world");
  editor.createEdge(clip, renCamera_, "renCamera");

  // A new state of the target's chain, named as the target.
  auto newState = [&](voGR::DataNode* of) {
    auto* state = new voGR::RenderTargetNode();
    state->setName(of->getName());
    of->appendState(state);
    editor.addNode(state);
    return state;
  };

  voGR::RenderTargetNode* first = renderTargetNode();
  if (!first) return;
  voGR::RenderTargetNode* afterClear = newState(first);
  auto* clear = new voGR::ClearNode();
  editor.addNode(clear);
  clear->setColor(0.25f, 0.25f, 0.25f, 0.0f);
  editor.createEdge(first, clear);
  editor.createEdge(clear, afterClear, "target");

  voGR::GroundShadowEditor(ds()).add(renderTargetNode(), sceneWorld_, renCamera_);

  auto pass = [&](const char* name, voGR::WorldNode* world, bool polygonOffset) {
    voGR::DataNode* last = renderTargetNode()->getLastState();
    voGR::RenderTargetNode* after = newState(last);
    auto* render = new voGR::RenderNode();
    editor.addNode(render);
    render->setName(name);
    // Filled triangles step back so the lines drawn over them win the depth test.
    if (polygonOffset) render->getRasterizerState().enablePolygonOffset(1.0f, 1.0f);
    editor.createEdge(renCamera_, render, "camera");
    editor.createEdge(last, render);
    editor.createEdge(world, render, "world");
    editor.createEdge(render, after, "target");
  };
  pass("RenderTri", sceneTriWorld_, true);
  pass("RenderLines", sceneLinesWorld_, false);

  voGR::GlowEditor(ds()).add(renderTargetNode(), selectedWorld_, renCamera_, ruUtil::Color(1.0f, 1.0f, 1.0f, 1.0f), true, 0.25);

  auto lastState = [&] { return static_cast<voGR::RenderTargetNode*>(renderTargetNode()->getLastState()); };
  voGR::XRayEditor(ds()).add(lastState(), xRayWorld_, renCamera_);

  // Billboards show through what hides them unless active or already drawn in x-ray.
  voGR::XRayEditor billboards(ds());
  billboards.setBehindFilter([](voGR::DrawItem& item) {
    return !item.isActive() && item.getDepthInteraction() != voGR::DepthXRay &&
           item.getDepthInteraction() != voGR::DepthFurther;
  });
  billboards.add(lastState(), ssPositionedWorld_, renCamera_);

  voGR::ScreenSpaceEditor(ds()).add(lastState(), screenSpaceWorld_, renCamera_);

  voGR::printOutGraph(graph);
}

void DefaultDocumentSurfaceDraw::getCameraControlsBBox(ruGeom::BoundingBox& box) {
  box.setInvalid();
  // Only ordinary triangle meshes frame the camera: helpers and lines are skipped.
  const auto skip = [](voGR::DrawItem& item) { return item.getType() != voGR::TypeOrdinary || !item.isTriangles(); };
  for (voGR::WorldNode* node : {sceneWorld_, xRayWorld_}) {
    if (!node || !node->getWorld()) continue;
    ruGeom::BoundingBox part;
    node->getWorld()->getBoundingBox(part, skip);
    if (!part.valid()) continue;
    if (box.valid())
      box.extend(part);
    else
      box = part;
  }
}

PushThumbnailRenderStateMsg::~PushThumbnailRenderStateMsg() = default;
PopThumbnailRenderStateMsg::~PopThumbnailRenderStateMsg() = default;

}  // namespace voDMG
