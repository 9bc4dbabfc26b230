#include "datamodelgui/snap/snapitems.h"

#include "datamodelgui/draw/modelingplanes.h"
#include "platform/datamodel/attributes.h"
#include "platform/geometry/camera.h"
#include "platform/graphics/draw.h"
#include "platform/support/callinfo.h"

#include <limits>

namespace voDMG {

namespace {

constexpr double kAxisSnapDistance = 15.0;
constexpr double kAxisHintDistance = 30.0;
constexpr double kAxisDeadZone = 65.0;

const ruGeom::Camera* currentCamera() {
  auto* camera = voSupport::ci().find<voDMD::Camera>();
  return camera ? &camera->get() : nullptr;
}

// The axis result's mark: the axis dashed through the position, and the image on it.
class CoordinateAxisSnapResultDraw : public SnapResultDraw {
public:
  CoordinateAxisSnapResultDraw(ru::Reference<SnapResult> result, const ruString::CString& imageName)
      : SnapResultDraw(std::move(result)),
        dashedLine_(new DashedLine()),
        image_(new ImageAtPoint(imageName, AffordanceCentred)) {}

private:
  void onDrawPosition(voGR::Draw& draw) const override {
    const ru::Reference<SnapResult> snapped = result();
    const ruLinear::Point& position = snapped->getPosition();
    dashedLine_->lockPatternOrigin(position);
    dashedLine_->setLine(ruLinear::Line(position, snapped->getVector().getDirection()));
    dashedLine_->draw(draw);
    image_->setWorldPosition(position);
    image_->draw(draw);
  }
  void onDrawVector(voGR::Draw&) const override {}
  void onDrawFrame(voGR::Draw&) const override {}

  ru::Reference<DashedLine> dashedLine_;
  ru::Reference<ImageAtPoint> image_;
};

}  // namespace

ImageSnapResultDraw::ImageSnapResultDraw(ru::Reference<SnapResult> result, const ruString::CString& imageName)
    : SnapResultDraw(std::move(result)), image_(new ImageAtPoint(imageName, AffordanceCentred)) {}

ImageSnapResultDraw::~ImageSnapResultDraw() = default;

void ImageSnapResultDraw::onDrawPosition(voGR::Draw& draw) const {
  image_->setWorldPosition(result()->getPosition());
  image_->draw(draw);
}

FreePointSnapResult::FreePointSnapResult(const ruLinear::Point& position) { setPosition(position); }

FreePointSnapResult::~FreePointSnapResult() = default;

ru::Reference<FreePointSnapResult> FreePointSnapResult::asFreePointSnapResult(ru::Reference<SnapResult> result) {
  return ru::Reference<FreePointSnapResult>(dynamic_cast<FreePointSnapResult*>(result.get()));
}

PointSnapItem::PointSnapItem(SnapPriority priority) : SnapItem(priority) {}

PointSnapItem::PointSnapItem(SnapPriority priority, const ruLinear::Point& position)
    : SnapItem(priority), position_(position) {}

PointSnapItem::~PointSnapItem() = default;

bool PointSnapItem::withinDistance(const ruLinear::Point2& cursor, int distance, DistanceType) {
  const ruGeom::Camera* camera = currentCamera();
  if (!camera) return false;
  const ruLinear::Point projected = position_ * camera->getWorldToViewport();
  return static_cast<double>(distance) > ruLinear::distance(cursor, ruLinear::Point2{projected.x, projected.y});
}

CoordinateAxisSnapResult::CoordinateAxisSnapResult(const ruLinear::ParamLine& axis, double param)
    : axis_(axis), param_(param) {
  setPosition(axis.evaluate(param));
  setVector(axis);
}

CoordinateAxisSnapResult::~CoordinateAxisSnapResult() = default;

CoordinateAxisSnapItem::CoordinateAxisSnapItem(const ruLinear::ParamLine& axis)
    : SnapItem(SnapPriorityAxis), axis_(axis), dashedLine_(new DashedLine()) {
  initDistances();
}

CoordinateAxisSnapItem::CoordinateAxisSnapItem(const ruLinear::Point& origin, const ruLinear::Vector& direction)
    : CoordinateAxisSnapItem(ruLinear::ParamLine(origin, direction)) {}

CoordinateAxisSnapItem::~CoordinateAxisSnapItem() = default;

void CoordinateAxisSnapItem::initDistances() {
  setTearDistance(45);
  setSnapDistance(15);
}

double CoordinateAxisSnapItem::project(const ruLinear::Line& ray, const ruLinear::Line& line) {
  ruLinear::Point point;
  return project(ray, line, point);
}

double CoordinateAxisSnapItem::project(const ruLinear::Line& ray, const ruLinear::Line& line, ruLinear::Point& point) {
  bool intersected = false;
  point = ruLinear::intersect(ray, line, intersected, ruLinear::perpendicular2Tol);
  if (!intersected) return std::numeric_limits<double>::max();
  const ruLinear::Point foot = ruLinear::project(point, ray);
  double pixels = std::numeric_limits<double>::max();
  const ruGeom::Camera* camera = currentCamera();
  if (camera && camera->pixelDistance(foot, point, pixels)) return pixels;
  return std::numeric_limits<double>::max();
}

bool CoordinateAxisSnapItem::inOriginDeadZone(const ruLinear::Line& ray) const {
  const ruLinear::Point foot = ruLinear::project(axis_.getOrigin(), ray);
  // A failed measure leaves 0, which counts as inside.
  double pixels = 0.0;
  if (const ruGeom::Camera* camera = currentCamera()) camera->pixelDistance(axis_.getOrigin(), foot, pixels);
  return kAxisDeadZone > pixels;
}

bool CoordinateAxisSnapItem::withinDistance(const ruLinear::Point2& cursor, int distance, DistanceType type) {
  const ruLinear::Line ray = getWorldSpaceRay(cursor);
  // Only catching minds the dead zone: a caught axis holds through its origin.
  if (type == DistanceSnap && inOriginDeadZone(ray)) return false;
  return static_cast<double>(distance) > project(ray, axis_.asLine());
}

ru::Reference<SnapResult> CoordinateAxisSnapItem::onSnap(const ruLinear::Point2& cursor) const {
  const ruLinear::Line ray = getWorldSpaceRay(cursor);
  ruLinear::Point nearest;
  project(ray, axis_.asLine(), nearest);
  double param = 0.0;
  ruLinear::project(nearest, axis_, param);
  ru::Reference<SnapResult> result(new CoordinateAxisSnapResult(axis_, param));
  result->setDraw(new CoordinateAxisSnapResultDraw(result, "DMG/AxisSnapResult"));
  return result;
}

void CoordinateAxisSnapItem::onDraw(voGR::DrawContext& context, const ruLinear::Point2& cursor) {
  const ruLinear::Line ray = getWorldSpaceRay(cursor);
  if (inOriginDeadZone(ray)) {
    if (drawData()) drawData()->clear();
    return;
  }
  ruLinear::Point nearest;
  const double pixels = project(ray, axis_.asLine(), nearest);
  if (pixels >= kAxisSnapDistance && pixels < kAxisHintDistance) {
    dashedLine_->lockPatternOrigin(nearest);
    dashedLine_->setLine(ruLinear::Line(nearest, axis_.getDirection()));
    voGR::Draw draw(context, this, true);
    draw.setDebugString("CoordinateAxisSnapItem");
    dashedLine_->draw(draw);
  } else if (drawData()) {
    drawData()->clear();
  }
}

ModelingPlaneSnapResult::ModelingPlaneSnapResult(const ruLinear::Plane& plane, const ruLinear::Point& position) {
  setPosition(position);
  const ruLinear::Vector u = plane.getNormal().orthogonalVector();
  const ruLinear::Vector v = ruLinear::cross(plane.getNormal().asVector(), u);
  setFrame(ruLinear::ParamPlane(position, plane.getNormal(), u, v, false));
}

ModelingPlaneSnapResult::~ModelingPlaneSnapResult() = default;

ru::Reference<ModelingPlaneSnapResult> ModelingPlaneSnapResult::asModelingPlaneSnapResult(
    ru::Reference<SnapResult> result) {
  return ru::Reference<ModelingPlaneSnapResult>(dynamic_cast<ModelingPlaneSnapResult*>(result.get()));
}

ModelingPlaneSnapItem::ModelingPlaneSnapItem(const ruLinear::Plane& plane) : SnapItem(SnapPriorityPlane), plane_(plane) {}

ModelingPlaneSnapItem::~ModelingPlaneSnapItem() = default;

int ModelingPlaneSnapItem::computeIntersection(const ruLinear::Point2& cursor, ruLinear::Point& point) const {
  bool intersected = false;
  point = ruLinear::intersect(getWorldSpaceRay(cursor), plane_, intersected, 1e-5);
  return intersected ? 1 : 0;
}

ru::Reference<SnapResult> ModelingPlaneSnapItem::onSnap(const ruLinear::Point2& cursor) const {
  ruLinear::Point point;
  computeIntersection(cursor, point);
  return ru::Reference<SnapResult>(new ModelingPlaneSnapResult(plane_, point));
}

FixedSnapItemFactory::FixedSnapItemFactory(const SnapItemSet& items) : items_(items) {}

FixedSnapItemFactory::FixedSnapItemFactory(ru::Reference<SnapItem> item) { items_.insert(std::move(item)); }

FixedSnapItemFactory::~FixedSnapItemFactory() = default;

void FixedSnapItemFactory::getItems(SnapItemSet& items) { items.insert(items_.begin(), items_.end()); }

ModelingPlaneSnapItemFactory::ModelingPlaneSnapItemFactory() = default;

ModelingPlaneSnapItemFactory::~ModelingPlaneSnapItemFactory() = default;

void ModelingPlaneSnapItemFactory::getItems(SnapItemSet& items) {
  auto* planes = voSupport::ci().find<ModelingPlanes>();
  if (!planes) return;  // no modeling planes in this host: nothing to fall back on
  items.insert(ru::Reference<SnapItem>(new ModelingPlaneSnapItem(planes->getPlane())));
}

}  // namespace voDMG
