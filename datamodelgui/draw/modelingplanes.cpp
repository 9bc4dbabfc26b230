#include "datamodelgui/draw/modelingplanes.h"

#include "platform/geometry/camera.h"

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

}  // namespace voDMG
