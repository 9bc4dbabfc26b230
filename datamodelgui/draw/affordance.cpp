#include "datamodelgui/draw/affordance.h"

#include "platform/datamodel/attributes.h"
#include "platform/geometry/camera.h"
#include "platform/geometry/construct.h"
#include "platform/graphics/shader.h"
#include "platform/support/callinfo.h"

#include <cmath>

namespace voDMG {

namespace {

voDMD::Camera* contextCamera() { return voSupport::ci().find<voDMD::Camera>(); }

voRES::ImageKey imageKey(const ruString::CString& name, const char* state) {
  voRES::Loader* loader = voSupport::ci().find<voRES::Loader>();
  if (!loader) return voRES::ImageKey();
  return state ? loader->createImageKey(name, state, 0) : loader->createImageKey(name, 0);
}

}  // namespace

double getScreenSpaceScale(const ruGeom::Camera& camera, const ruLinear::Point& point) {
  return camera.pixelScaleForDepth(camera.screenDepthAtPoint(point), 1.0);
}

double getScreenSpaceScale(const ruLinear::Point& point) {
  voDMD::Camera* camera = contextCamera();
  return camera ? getScreenSpaceScale(camera->get(), point) : 1.0;
}

ruLinear::Line getWorldSpaceRay(const ruLinear::Point2& viewportPosition) {
  voDMD::Camera* camera = contextCamera();
  return camera ? camera->get().getWorldSpaceRay(viewportPosition) : ruLinear::Line();
}

void drawBillboard(voGR::Draw& draw, const voRES::ImageKey& image, const ruLinear::Point& position,
                   const ruLinear::Vector& offset) {
  const voRES::ImageKeyAccessor accessor(image);
  const float w = static_cast<float>(accessor.xSize());
  const float h = static_cast<float>(accessor.ySize());
  ru::Reference<ruGeom::CompactMesh> mesh = new ruGeom::CompactMesh();
  ruGeom::constructRectangle(-0.5f * w, 0.5f * w, -0.5f * h, 0.5f * h, 2, 0.0, *mesh, true);
  draw.setSpace(voGR::SpaceWorld);
  draw.setImageKey(image);
  draw.setMesh(mesh);
  draw.setColor(1.0f, 1.0f, 1.0f, 1.0f);
  draw.setTransformer(new BillboardTransformer(position, offset));
  draw.emit();
  draw.clearImageKey();
  draw.setTransformer(nullptr);
}

void drawText(voGR::Draw& draw, const ruString::IString& text, const ruLinear::Point& position, const voGR::Font& font,
              voGR::TextLayout layout) {
  const ruLinear::Point anchor = position * draw.getTransform();
  draw.setTransformer(new BillboardTransformer(anchor, ruLinear::Vector::zero));
  draw.setSpace(voGR::SpaceWorld);
  voGR::drawText(draw, text, font, layout);
  draw.setTransformer(nullptr);
}

// ---------------------------------------------------------------------------------------------

ImageAffordance::ImageAffordance(const ruString::CString& name)
    : defaultImage_(imageKey(name, "default")),
      highlightImage_(imageKey(name, "highlight")),
      selectedImage_(imageKey(name, "selected")) {
  if (!defaultImage_.valid()) defaultImage_ = imageKey(name, nullptr);
  currentImage_ = defaultImage_;
}

ImageAffordance::ImageAffordance(const ImageAffordance& other)
    : ru::ReferenceCount(),
      currentImage_(other.currentImage_),
      defaultImage_(other.defaultImage_),
      highlightImage_(other.highlightImage_),
      selectedImage_(other.selectedImage_) {}

ImageAffordance& ImageAffordance::operator=(const ImageAffordance& other) {
  currentImage_ = other.currentImage_;
  defaultImage_ = other.defaultImage_;
  highlightImage_ = other.highlightImage_;
  selectedImage_ = other.selectedImage_;
  return *this;
}

ImageAffordance::~ImageAffordance() = default;

void ImageAffordance::setState(AffordanceState state) {
  switch (static_cast<int>(state)) {
    case AffordanceDefault: currentImage_ = defaultImage_; break;
    case AffordanceHighlight: currentImage_ = highlightImage_; break;
    case AffordanceSelected: currentImage_ = selectedImage_; break;
    default: break;
  }
  if (!currentImage_.valid()) currentImage_ = defaultImage_;
}

// ---------------------------------------------------------------------------------------------

ImageAtPoint::ImageAtPoint(const ruString::CString& name, AffordanceAlignment alignment)
    : ImageAffordance(name), alignment_(alignment) {}

ImageAtPoint::ImageAtPoint(const ImageAtPoint& other)
    : ImageAffordance(other),
      alignment_(other.alignment_),
      screenOffsetX_(other.screenOffsetX_),
      screenOffsetY_(other.screenOffsetY_),
      worldPosition_(other.worldPosition_) {}

ImageAtPoint& ImageAtPoint::operator=(const ImageAtPoint& other) {
  ImageAffordance::operator=(other);
  alignment_ = other.alignment_;
  screenOffsetX_ = other.screenOffsetX_;
  screenOffsetY_ = other.screenOffsetY_;
  worldPosition_ = other.worldPosition_;
  return *this;
}

ImageAtPoint::~ImageAtPoint() = default;

ruLinear::Vector ImageAtPoint::getOffset() const {
  ruLinear::Vector offset(screenOffsetX_, screenOffsetY_, 0.0);
  if (alignment_ == AffordanceCorner) {
    const voRES::ImageKeyAccessor accessor(currentImage_);
    offset += ruLinear::Vector(0.5 * accessor.xSize(), 0.5 * accessor.ySize(), 0.0);
  }
  return offset;
}

void ImageAtPoint::draw(voGR::Draw& draw) { drawBillboard(draw, currentImage_, worldPosition_, getOffset()); }

// ---------------------------------------------------------------------------------------------

ImageOnPlane::ImageOnPlane(const ruString::CString& name, int label, const ruLinear::Point2& position, double normalOffset)
    : ImageAffordance(name), label_(label), position_(position), normalOffset_(normalOffset) {}

ImageOnPlane::ImageOnPlane(const ruString::CString& name, int label, double x, double y, double normalOffset)
    : ImageOnPlane(name, label, ruLinear::Point2(x, y), normalOffset) {}

ImageOnPlane::ImageOnPlane(const ImageOnPlane& other)
    : ImageAffordance(other),
      label_(other.label_),
      plane_(other.plane_),
      position_(other.position_),
      normalOffset_(other.normalOffset_),
      rotation_(other.rotation_) {}

ImageOnPlane& ImageOnPlane::operator=(const ImageOnPlane& other) {
  ImageAffordance::operator=(other);
  label_ = other.label_;
  plane_ = other.plane_;
  position_ = other.position_;
  normalOffset_ = other.normalOffset_;
  rotation_ = other.rotation_;
  return *this;
}

ImageOnPlane::~ImageOnPlane() = default;

void ImageOnPlane::setRotate(double degrees) { rotation_ = ruLinear::toRadians(degrees); }

void ImageOnPlane::draw(voGR::Draw& draw) { this->draw(draw, plane_); }

void ImageOnPlane::draw(voGR::Draw& draw, const ruLinear::ParamPlane& carrier) {
  const ruLinear::Point centre = carrier.evaluate(position_);
  const double scale = getScreenSpaceScale(centre);
  const voRES::ImageKeyAccessor accessor(currentImage_);
  const double w = accessor.xSize();
  const double h = accessor.ySize();
  const ruLinear::Vector u = carrier.getFirstVector().normalized() * (w * scale);
  const ruLinear::Vector v = carrier.getSecondVector().normalized() * (h * scale);
  const ruLinear::Vector normal = carrier.getNormal().asVector();
  ruLinear::ParamPlane rectangle(centre - u / 2.0 - v / 2.0, carrier.getNormal(), u, v);

  // Lifted towards the normal in proportion to the distance to the eye, so it clears the plane
  // it lies on at any zoom.
  if (voDMD::Camera* camera = contextCamera()) {
    const double d = (rectangle.getOrigin() - camera->get().getEyeLocation()).length();
    rectangle.setOrigin(rectangle.getOrigin() + normal * (normalOffset_ * d));
  }
  const ruLinear::AffineMatrix rotationMatrix =
      ruLinear::AffineMatrix::rotation(rotation_, rectangle.evaluate(0.5, 0.5), -normal);

  ru::Reference<ruGeom::CompactMesh> mesh = new ruGeom::CompactMesh();
  ruGeom::constructRectangle(rectangle, *mesh);

  draw.pushTransform();
  draw.setTransform(rotationMatrix);
  draw.setLabel(label_);
  draw.setImageKey(currentImage_);
  draw.setMesh(mesh);
  draw.setColor(1.0f, 1.0f, 1.0f, 0.99f);
  draw.setDepthInteraction(voGR::DepthXRay);
  draw.emit();
  draw.setDepthInteraction(voGR::DepthNormal);
  draw.popTransform();
  draw.clearImageKey();
  draw.setLabel(0);
}

// ---------------------------------------------------------------------------------------------

DashedLine::DashedLine() : shader_(new voGR::DashedShader()) {
  shader_->color = ruUtil::Color(0.35f, 0.35f, 0.35f, 1.0f);
}

DashedLine::DashedLine(const DashedLine& other)
    : ru::ReferenceCount(),
      line_(other.line_),
      patternOrigin_(other.patternOrigin_),
      patternLocked_(other.patternLocked_),
      shader_(other.shader_) {}

DashedLine& DashedLine::operator=(const DashedLine& other) {
  line_ = other.line_;
  patternOrigin_ = other.patternOrigin_;
  patternLocked_ = other.patternLocked_;
  shader_ = other.shader_;
  return *this;
}

DashedLine::~DashedLine() = default;

void DashedLine::draw(voGR::Draw& draw) {
  ru::Reference<ruGeom::CompactMesh> mesh = new ruGeom::CompactMesh();
  const ruLinear::Point& point = line_.getPoint();
  const ruLinear::Vector& direction = line_.getDirection();
  const double scale = getScreenSpaceScale(patternLocked_ ? patternOrigin_ : point);
  const ruLinear::Vector half = direction * (scale * 300.0);
  const ruLinear::ParamLine span(point - half, point + half);
  if (patternLocked_) {
    const ruLinear::Vector d = point - patternOrigin_;
    double offset = d.length() / (scale * 300.0 * 2.0);
    if (ruLinear::dot(d, direction) < 0.0) offset = -offset;
    shader_->patternOffset = static_cast<float>(offset);
  }
  ruGeom::constructLineSegment(span, *mesh, 0.0, 1.0);
  draw.setSpace(voGR::SpaceWorld);
  draw.setShader(shader_);
  draw.setMesh(mesh);
  draw.emit();
  draw.setShader(nullptr);
}

// ---------------------------------------------------------------------------------------------

BillboardTransformer::BillboardTransformer(const ruLinear::Point& position, const ruLinear::Vector& screenOffset)
    : position_(position), screenOffset_(screenOffset) {
  if (voDMD::Camera* camera = contextCamera()) {
    ruGeom::Camera current = camera->get();
    onCameraChange(&current);
    camera->sigCameraChanged.connect(this, &BillboardTransformer::onCameraChange, client_);
  }
}

BillboardTransformer::~BillboardTransformer() = default;

void BillboardTransformer::onCameraChange(ruGeom::Camera* camera) {
  if (!camera) return;
  const double scale = camera->pixelScaleForDepth(camera->screenDepthAtPoint(position_), 1.0);
  const ruLinear::Point screen = position_ * camera->getWorldToViewport();
  const ruLinear::Point moved = (screen + screenOffset_) * camera->getViewportToWorld();
  const ruLinear::Vector delta = moved - position_;
  ruLinear::Quaternion frame;
  frame.setFrame(camera->getRightVector(), camera->getUpVector(), -camera->getViewVector());
  frame.normalize();
  ruLinear::AffineMatrix matrix;
  matrix.translate(position_ - ruLinear::Point::origin);
  matrix.translate(delta);
  matrix.scale(scale);
  matrix_ = frame.getMatrix() * matrix;
}

}  // namespace voDMG
