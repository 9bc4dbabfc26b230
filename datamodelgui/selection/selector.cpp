#include "datamodelgui/selection/selector.h"

#include "datamodelgui/draw/documentdraw.h"
#include "datamodelgui/draw/objectdraw.h"
#include "platform/support/callinfo.h"

namespace voDMG {

SelectorBase::SelectorBase(SelectionSet& set) : set_(&set) {
  // The draw's object table must be current before records or objects are read.
  set_->update();
  set_->lock();
}

SelectorBase::~SelectorBase() { set_->unlock(); }

void SelectorBase::clear() { set_->lockedClear(); }

void SelectorBase::insert(const SelectionItem& item) { set_->insert(item); }

void SelectorBase::erase(Iterator position) { set_->erase(position); }

void SelectorBase::eraseAll(voDMD::Object* object) { set_->eraseAll(object); }

SelectorBase::Iterator SelectorBase::find(const SelectionItem& item) { return set_->find(item); }

void SelectorBase::getIterators(Iterator& begin, Iterator& end) { set_->getIterators(begin, end); }

RawSelector::~RawSelector() = default;

void RawSelector::add(const ru::vector<voGR::HitRecord>& records) {
  const DocumentDraw* draw = set_->getDraw();
  const int id = draw ? draw->getID() : -1;
  for (const voGR::HitRecord& record : records) {
    if (record.id != id || !record.owner) continue;
    ObjectDraw* owner = record.owner;
    const SelectionItem item = record.subObject ? owner->getSubObjectItem(record) : owner->getItem(record);
    // A draw that cannot name the part gives nothing rather than its whole object.
    if (item.valid()) insert(item);
  }
}

void RawSelector::remove(const ru::vector<voGR::HitRecord>& records) {
  const DocumentDraw* draw = set_->getDraw();
  const int id = draw ? draw->getID() : -1;
  for (const voGR::HitRecord& record : records) {
    if (record.id != id || !record.owner) continue;
    // Whole objects go, whichever part was hit.
    eraseAll(record.owner->getObject());
  }
}

void RawSelector::set(const ru::vector<voGR::HitRecord>& records) {
  clear();
  add(records);
}

ObjectSelector::ObjectSelector() : SelectorBase(*voSupport::ci().find<SelectionSet>()) {}

ObjectSelector::~ObjectSelector() = default;

void ObjectSelector::add(voDMD::Object* object) { insert(SelectionItem(object)); }

void ObjectSelector::add(const voDMD::SubObject& subObject) { insert(SelectionItem(subObject)); }

void ObjectSelector::add(const ru::vector<voDMD::Object*>& objects) {
  for (voDMD::Object* object : objects) add(object);
}

}  // namespace voDMG
