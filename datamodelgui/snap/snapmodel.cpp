#include "datamodelgui/snap/snapmodel.h"

#include "platform/support/callinfo.h"

namespace voDMG {

SnapItem::SnapItem(SnapPriority priority) : priority_(priority) {
  // Items are made at every snap step, also in hosts with no drawing: then there is no block.
  if (auto* system = voSupport::ci().find<voGR::DrawSystem>()) drawData_ = system->getDrawData(this, true);
}

SnapItem::SnapItem(const SnapItem& other)
    : ru::ReferenceCount(other),
      priority_(other.priority_),
      snapDistance_(other.snapDistance_),
      tearDistance_(other.tearDistance_),
      drawData_(other.drawData_) {}

SnapItem& SnapItem::operator=(const SnapItem& other) {
  priority_ = other.priority_;
  snapDistance_ = other.snapDistance_;
  tearDistance_ = other.tearDistance_;
  drawData_ = other.drawData_;
  return *this;
}

SnapItem::~SnapItem() { delete drawData_; }

ru::Reference<SnapResult> SnapItem::snap(const ruLinear::Point2& cursor) const {
  ru::Reference<SnapResult> result = onSnap(cursor);
  if (result) result->setCreator(ru::Reference<SnapItem>(const_cast<SnapItem*>(this)));
  return result;
}

void SnapItem::onEndSnap() {}

void SnapItem::onDraw(voGR::DrawContext&, const ruLinear::Point2&) {}

SnapResult::SnapResult() = default;

SnapResult::~SnapResult() { delete draw_; }

void SnapResult::setDraw(SnapResultDraw* draw) {
  if (draw == draw_) return;
  SnapResultDraw* old = draw_;
  draw_ = draw;
  if (!old) return;
  // The old draw holds this result and may hold its last reference: keep the result alive until
  // the draw is gone, so it dies (if it must) after this function has stopped touching it.
  ru::Reference<SnapResult> keep(this);
  delete old;
}

SelectionItem SnapResult::datamodelCreator() const {
  if (!creator_) return SelectionItem();
  return creator_->creator();
}

SnapResultDraw::SnapResultDraw(ru::Reference<SnapResult> result) : result_(std::move(result)) {}

SnapResultDraw::~SnapResultDraw() = default;

SnapFilter::~SnapFilter() = default;

SnapItemFactory::~SnapItemFactory() = default;

}  // namespace voDMG
