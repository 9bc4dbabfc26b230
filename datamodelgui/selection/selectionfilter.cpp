#include "datamodelgui/selection/selectionfilter.h"

#include "datamodelgui/draw/documentdraw.h"
#include "datamodelgui/draw/objectdraw.h"
#include "platform/graphics/draw.h"
#include "platform/support/callinfo.h"

namespace voDMG {

SelectionFilter::~SelectionFilter() = default;

ObjectFilter& ObjectFilter::operator=(const ObjectFilter& other) {
  if (this == &other) return *this;
  SelectionFilter::operator=(other);
  // Members only: the held set has no listeners of its own to keep.
  objects_.assign(other.objects_);
  return *this;
}

ObjectFilter::~ObjectFilter() = default;

void ObjectFilter::filter(SelectionSet& set) const { set.remove(objects_); }

SelectionRule::~SelectionRule() = default;

bool SelectionRule::isApplicable(const SelectionSet&) { return false; }

SelectionSetHitFilter::~SelectionSetHitFilter() = default;

bool SelectionSetHitFilter::filter(const voGR::DrawItem& item) const {
  const SelectionSet* selection = voSupport::ci().find<SelectionSet>();
  if (!selection) return false;
  const DocumentDraw* draw = selection->getDraw();
  // A manipulator or a grid may store a pointer that happens to match: only the document's own
  // drawing id counts.
  if (!draw || draw->getID() != item.getSubsystemId()) return false;
  const ObjectDraw* owner = item.getObjectDrawOwner();
  if (!owner) return false;
  voDMD::Object* object = owner->getObject();
  const SelectionItems& items = selection->items();
  // The whole-object item is the first of its object's items, so its lower bound finds any of them.
  auto position = items.lower_bound(SelectionItem(object));
  return position != items.end() && position->getObject() == object;
}

}  // namespace voDMG
