#include "datamodelgui/snap/projector.h"

#include "datamodelgui/draw/modelingplanes.h"
#include "platform/datamodel/actions.h"
#include "platform/datamodel/attributes.h"
#include "platform/geometry/camera.h"
#include "platform/support/callinfo.h"

namespace voDMG {

namespace {

const ruGeom::Camera& currentCamera() { return voSupport::ci().find<voDMD::Camera>()->get(); }

voTXN::Manager* currentTxnManager() { return voSupport::ci().find<voDMA::TxnManager>()->get(); }

}  // namespace

// --- Projector -----------------------------------------------------------------------------

Projector::Projector() : voTXN::RefCountedObject(currentTxnManager()) {}

Projector::Projector(const Projector& other) : voTXN::RefCountedObject(other) {}

Projector& Projector::operator=(const Projector& other) {
  voTXN::RefCountedObject::operator=(other);
  return *this;
}

Projector::~Projector() = default;

ruLinear::Point Projector::project(const ruLinear::Point& point) const {
  ruLinear::Point2 position;
  // The one check of visibility: a point with no screen position stays where it is.
  if (!currentCamera().project(point, position)) return point;
  return doProject(position);
}

// --- LineProjector -------------------------------------------------------------------------

LineProjector::LineProjector(const ruLinear::Line& line) : line_(line) {}

LineProjector::LineProjector(const LineProjector& other) : Projector(other), line_(other.line_) {}

LineProjector& LineProjector::operator=(const LineProjector& other) {
  if (this != &other) setLine(other.line_);
  return *this;
}

LineProjector::~LineProjector() = default;

ru::Reference<LineProjector> LineProjector::create(const ruLinear::Line& line) {
  return ru::Reference<LineProjector>(new LineProjector(line));
}

ru::Reference<LineProjector> LineProjector::tryTypeCast(ru::Reference<Projector> projector) {
  return ru::Reference<LineProjector>(dynamic_cast<LineProjector*>(projector.get()));
}

void LineProjector::setLine(ruLinear::Line line) {
  txnWillWrite();
  line_ = line;
}

void LineProjector::onTransact(voTXN::Serializer& serializer) {
  serializer.beginScope(this, 0);
  voTXN::Object::onTransact(serializer);
  serializer.field(line_);
  serializer.endScope();
}

void LineProjector::onTxnDestroyed() {
  txnWillWrite();
  voTXN::Object::onTxnDestroyed();
}

ruLinear::Point LineProjector::doProject(const ruLinear::Point2& position) const {
  ruLinear::Line ray;
  currentCamera().getWorldSpaceRay(position, ray);
  // The flag is not read on purpose: a ray parallel to the line gets the fallback of intersect.
  bool intersected = false;
  return ruLinear::intersect(ray, line_, intersected, ruLinear::perpendicular2Tol);
}

void LineProjector::doUpdate(const ruLinear::Point& point) {
  setLine(ruLinear::Line(point, line_.getDirection()));
}

// --- PlaneProjector ------------------------------------------------------------------------

PlaneProjector::PlaneProjector(const ruLinear::Plane& plane) : plane_(plane) {}

PlaneProjector::PlaneProjector(const PlaneProjector& other) : Projector(other), plane_(other.plane_) {}

PlaneProjector& PlaneProjector::operator=(const PlaneProjector& other) {
  if (this != &other) setPlane(other.plane_);
  return *this;
}

PlaneProjector::~PlaneProjector() = default;

ru::Reference<PlaneProjector> PlaneProjector::create(const ruLinear::Plane& plane) {
  return ru::Reference<PlaneProjector>(new PlaneProjector(plane));
}

ru::Reference<PlaneProjector> PlaneProjector::tryTypeCast(ru::Reference<Projector> projector) {
  return ru::Reference<PlaneProjector>(dynamic_cast<PlaneProjector*>(projector.get()));
}

void PlaneProjector::setPlane(const ruLinear::Plane& plane) {
  txnWillWrite();
  plane_ = plane;
}

void PlaneProjector::onTransact(voTXN::Serializer& serializer) {
  serializer.beginScope(this, 0);
  voTXN::Object::onTransact(serializer);
  serializer.field(plane_);
  serializer.endScope();
}

void PlaneProjector::onTxnDestroyed() {
  txnWillWrite();
  voTXN::Object::onTxnDestroyed();
}

ruLinear::Point PlaneProjector::doProject(const ruLinear::Point2& position) const {
  ruLinear::Line ray;
  currentCamera().getWorldSpaceRay(position, ray);
  // The flag is not read on purpose: a ray along the plane gets the fallback of intersect.
  bool intersected = false;
  return ruLinear::intersect(ray, plane_, intersected, ruLinear::perpendicular2Tol);
}

void PlaneProjector::doUpdate(const ruLinear::Point& point) {
  setPlane(ruLinear::Plane(point, plane_.getNormal()));
}

// --- SupportingPlaneProjector --------------------------------------------------------------

SupportingPlaneProjector::SupportingPlaneProjector()
    : PlaneProjector(ruLinear::Plane(ruLinear::Point::origin, ruLinear::Normal::z)) {
  setPlane(voSupport::ci().find<ModelingPlanes>()->getPlane());
}

SupportingPlaneProjector::SupportingPlaneProjector(const SupportingPlaneProjector& other) : PlaneProjector(other) {}

SupportingPlaneProjector& SupportingPlaneProjector::operator=(const SupportingPlaneProjector& other) {
  PlaneProjector::operator=(other);
  return *this;
}

SupportingPlaneProjector::~SupportingPlaneProjector() = default;

ru::Reference<SupportingPlaneProjector> SupportingPlaneProjector::create() {
  return ru::Reference<SupportingPlaneProjector>(new SupportingPlaneProjector());
}

ru::Reference<SupportingPlaneProjector> SupportingPlaneProjector::tryTypeCast(ru::Reference<Projector> projector) {
  return ru::Reference<SupportingPlaneProjector>(dynamic_cast<SupportingPlaneProjector*>(projector.get()));
}

void SupportingPlaneProjector::onTransact(voTXN::Serializer& serializer) {
  serializer.beginScope(this, 0);
  PlaneProjector::onTransact(serializer);
  serializer.endScope();
}

void SupportingPlaneProjector::onTxnDestroyed() {
  txnWillWrite();
  voTXN::Object::onTxnDestroyed();
}

void SupportingPlaneProjector::updatePlane() {
  const ruLinear::Plane modeling = voSupport::ci().find<ModelingPlanes>()->getPlane();
  setPlane(ruLinear::Plane(getPlane().getPoint(), modeling.getNormal()));
}

ruLinear::Point SupportingPlaneProjector::doProject(const ruLinear::Point2& position) const {
  ruLinear::Line ray;
  currentCamera().getWorldSpaceRay(position, ray);
  // A const projection that turns the stored plane: the plane follows the modeling plane at the
  // moment it is used, and that write is transacted like any other.
  const_cast<SupportingPlaneProjector*>(this)->updatePlane();
  bool intersected = false;
  return ruLinear::intersect(ray, getPlane(), intersected, ruLinear::perpendicular2Tol);
}

}  // namespace voDMG
