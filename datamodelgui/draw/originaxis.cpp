#include "datamodelgui/draw/originaxis.h"

#include "datamodelgui/draw/affordance.h"
#include "platform/geometry/construct.h"
#include "platform/graphics/draw.h"
#include "platform/support/callinfo.h"

namespace voDMG {

namespace {
// A float 0.01 widened: the radius the axes have always had.
constexpr double kRadius = static_cast<double>(0.01f);
constexpr int kSides = 10;
}  // namespace

OriginAxisDraw::OriginAxisDraw() {
  if (auto* system = voSupport::ci().find<voGR::DrawSystem>()) id_ = system->allocateID();
  if (auto* loader = voSupport::ci().find<voRES::Loader>()) {
    imageX_ = loader->createImageKey("DMG//AxisX_Billboard", 0);
    imageY_ = loader->createImageKey("DMG//AxisY_Billboard", 0);
    imageZ_ = loader->createImageKey("DMG//AxisZ_Billboard", 0);
  }
}

OriginAxisDraw::OriginAxisDraw(const OriginAxisDraw& other)
    : imageX_(other.imageX_), imageY_(other.imageY_), imageZ_(other.imageZ_), id_(other.id_),
      wantAxesName_(other.wantAxesName_) {}

OriginAxisDraw& OriginAxisDraw::operator=(const OriginAxisDraw& other) {
  imageX_ = other.imageX_;
  imageY_ = other.imageY_;
  imageZ_ = other.imageZ_;
  id_ = other.id_;
  wantAxesName_ = other.wantAxesName_;
  return *this;
}

OriginAxisDraw::~OriginAxisDraw() {
  if (id_ != -1) {
    if (auto* system = voSupport::ci().find<voGR::DrawSystem>()) system->freeID(id_);
    id_ = -1;
  }
  imageX_.reset();
  imageY_.reset();
  imageZ_.reset();
}

void OriginAxisDraw::draw() {
  auto* system = voSupport::ci().find<voGR::DrawSystem>();
  if (!system) return;
  voGR::DrawContext context(system, id_);
  voGR::Draw draw(context, this, false);
  // X-ray items: seen through the model, and left out of the camera's bounding box.
  draw.setSpace(0);
  draw.setType(2);
  draw.setDepthInteraction(1);
  draw.setPickable(false);
  const ruLinear::Vector directions[3] = {ruLinear::Vector(1, 0, 0), ruLinear::Vector(0, 1, 0), ruLinear::Vector(0, 0, 1)};
  const ruUtil::Color colours[3] = {ruUtil::Color(1.0f, 0.0f, 0.0f, 1.0f), ruUtil::Color(0.0f, 1.0f, 0.0f, 1.0f),
                                    ruUtil::Color(0.0f, 0.0f, 1.0f, 1.0f)};
  for (int axis = 0; axis < 3; ++axis) {
    ru::Reference<ruGeom::CompactMesh> mesh(new ruGeom::CompactMesh());
    ruGeom::constructCappedCylinder(ruLinear::ParamLine(ruLinear::Point::origin, directions[axis]), kRadius, kSides, *mesh);
    draw.setMesh(mesh);
    draw.setColor(colours[axis]);
    draw.emit();
  }
  if (!wantAxesName_) return;
  // The names stand 12 pixels off the tips.
  const ruLinear::Vector offset(0, 12, 0);
  drawBillboard(draw, imageX_, ruLinear::Point(1, 0, 0), offset);
  drawBillboard(draw, imageY_, ruLinear::Point(0, 1, 0), offset);
  drawBillboard(draw, imageZ_, ruLinear::Point(0, 0, 1), offset);
}

}  // namespace voDMG
