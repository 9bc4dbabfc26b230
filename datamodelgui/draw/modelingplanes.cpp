#include "datamodelgui/draw/modelingplanes.h"

#include "platform/datamodel/attributes.h"
#include "platform/datamodel/document.h"
#include "platform/geometry/camera.h"
#include "platform/geometry/construct.h"
#include "platform/graphics/draw.h"
#include "platform/graphics/shader.h"
#include "platform/resources/resources.h"
#include "platform/support/callinfo.h"

#include <cmath>

namespace voDMG {

ModelingPlanes* ModelingPlanes::create() { return new ModelingPlanes(); }

ModelingPlanes::ModelingPlanes()
    : plane_(ruLinear::Point::origin, ruLinear::Vector(ruLinear::Normal::y), ruLinear::Vector(ruLinear::Normal::z),
             false) {}

// The copy has no listeners of its own: connections belong to the original.
ModelingPlanes::ModelingPlanes(const ModelingPlanes& other) : plane_(other.plane_), visible_(other.visible_) {}

ModelingPlanes& ModelingPlanes::operator=(const ModelingPlanes& other) {
  plane_ = other.plane_;
  visible_ = other.visible_;
  return *this;
}

ModelingPlanes::~ModelingPlanes() = default;

void ModelingPlanes::setPlane(const ruLinear::ParamPlane& plane) {
  plane_ = plane;
  sigModified.emit(this);
}

void ModelingPlanes::setPlane(const ruLinear::Plane& plane) {
  const ruLinear::Vector normal = plane.getNormal();
  const ruLinear::Vector first = normal.orthogonalVector();
  plane_.setOrigin(plane.getPoint());
  plane_.setNormal(plane.getNormal());
  plane_.setFirstVector(first);
  plane_.setSecondVector(ruLinear::cross(normal, first));
  sigModified.emit(this);
}

void ModelingPlanes::setVisibility(bool visible) {
  if (visible == visible_) return;
  visible_ = visible;
  sigModified.emit(this);
}

ruLinear::Plane viewBasedDominantModelingPlane(const ruGeom::Camera& camera) {
  const ruLinear::Vector& view = camera.getViewVector();
  ruLinear::Normal normal = ruLinear::Normal::x;
  double best = std::fabs(ruLinear::dot(view, ruLinear::Vector::x));
  const double alongY = std::fabs(ruLinear::dot(view, ruLinear::Vector::y));
  if (alongY > best) {
    normal = ruLinear::Normal::y;
    best = alongY;
  }
  if (std::fabs(ruLinear::dot(view, ruLinear::Vector::z)) > best) normal = ruLinear::Normal::z;
  return ruLinear::Plane(ruLinear::Point::origin, normal);
}

ModelingPlanesDraw::ModelingPlanesDraw(const ModelingPlanes* planes) : planes_(planes) {
  if (auto* system = voSupport::ci().find<voGR::DrawSystem>()) id_ = system->allocateID();
}

ModelingPlanesDraw::ModelingPlanesDraw(const ModelingPlanesDraw& other)
    : planes_(other.planes_), id_(other.id_), shader_(other.shader_) {}

ModelingPlanesDraw& ModelingPlanesDraw::operator=(const ModelingPlanesDraw& other) {
  planes_ = other.planes_;
  id_ = other.id_;
  shader_ = other.shader_;
  return *this;
}

ModelingPlanesDraw::~ModelingPlanesDraw() {
  if (id_ != -1) {
    if (auto* system = voSupport::ci().find<voGR::DrawSystem>()) system->freeID(id_);
    id_ = -1;
  }
  shader_ = nullptr;
}

void ModelingPlanesDraw::getXYRanges(const ruLinear::Point&, ruLinear::Range1d& x, ruLinear::Range1d& y) {
  x = ruLinear::Range1d(-5.0, 5.0);
  y = ruLinear::Range1d(-5.0, 5.0);
}

void ModelingPlanesDraw::draw() {
  auto* system = voSupport::ci().find<voGR::DrawSystem>();
  if (!system || !planes_) return;
  voGR::DrawContext context(system, id_);
  // Opening the emitter clears the former item, so a hidden plane goes away.
  voGR::Draw draw(context, this, false);
  if (!planes_->isVisible()) return;
  const ruUtil::Color colour(1.0f, 1.0f, 1.0f, 0.99f);
  if (!shader_) {
    ru::Reference<voGR::UVTextureShader> shader(new voGR::UVTextureShader());
    voRES::ImageKey key;
    if (auto* loader = voSupport::ci().find<voRES::Loader>()) key = loader->createImageKey("DMG//ModelingPlane", 0);
    shader->texture.setImageKey(key, false);
    shader_ = shader;
  }
  auto* shader = static_cast<voGR::UVTextureShader*>(shader_.get());
  shader->color = colour;
  shader->backColor = ruUtil::Color(1.0f, 1.0f, 1.0f, colour.a);
  const ruLinear::ParamPlane plane = planes_->getParamPlane();
  ru::Reference<ruGeom::CompactMesh> mesh(new ruGeom::CompactMesh());
  ruGeom::constructRectangle(plane, *mesh);
  draw.setMesh(mesh);
  draw.setShader(shader_);
  draw.setDepthInteraction(0);
  draw.setColor(colour);
  draw.setPickable(false);
  draw.setDebugString("ModellingPlane");
  draw.emit();
}

ModelingPlanesFromView::ModelingPlanesFromView(ModelingPlanes& planes, voDMD::Camera& camera) : planes_(planes) {
  camera.owner()->sigModified.connect(this, &ModelingPlanesFromView::onCameraModified, client_);
  update(&camera);
}

void ModelingPlanesFromView::onCameraModified(const voDMD::Modification& modification) {
  if (!active_) return;
  // Only camera changes turn the plane; the owner's other attributes are not ours to follow.
  if (const auto* camera = dynamic_cast<const voDMD::Camera*>(modification.getAttribute())) update(camera);
}

void ModelingPlanesFromView::update(const voDMD::Camera* camera) {
  ruLinear::Plane plane = viewBasedDominantModelingPlane(camera->get());
  // Only the orientation follows the view; the origin stays.
  plane.setPoint(planes_.getPlane().getPoint());
  planes_.setPlane(plane);
}

}  // namespace voDMG
