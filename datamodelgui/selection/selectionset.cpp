#include "datamodelgui/selection/selectionset.h"

#include "datamodelgui/draw/documentdraw.h"
#include "platform/datamodel/attributes.h"
#include "platform/support/callinfo.h"

#include <cstdint>
#include <utility>

namespace voDMG {

// ---------------------------------------------------------------------------------------------
// SelectionItem

int SelectionItem::compare(const SelectionItem& other) const noexcept {
  const auto a = reinterpret_cast<std::uintptr_t>(object_);
  const auto b = reinterpret_cast<std::uintptr_t>(other.object_);
  if (a != b) return a < b ? -1 : 1;
  const bool sub = isSubItem();
  const bool otherSub = other.isSubItem();
  if (sub != otherSub) return sub ? 1 : -1;
  if (!sub) return 0;
  return subObject_.compare(other.subObject_);
}

// ---------------------------------------------------------------------------------------------
// SelectionSet

SelectionSet::SelectionSet() : draw_(voSupport::ci().find<DocumentDraw>()) {}

SelectionSet::SelectionSet(const SelectionSet& other) : items_(other.items_), draw_(other.draw_) {}

SelectionSet::~SelectionSet() = default;

void SelectionSet::lock() noexcept { ++lockCount_; }

void SelectionSet::unlock() {
  const std::int32_t before = lockCount_--;
  // Only the outermost unlock of a batch that changed something reports, once.
  if (before != 1 || !modified_) return;
  modified_ = false;
  sigModified.emit(this);
  sigModified2.emit(this);
  sigMembershipChanged.emit(changedItems_);
  changedItems_.clear();
}

void SelectionSet::add(const SelectionSet& other) {
  lock();
  // The new members: those of `other` not yet here.
  SelectionItems added;
  setDifference(other.items_, items_, added);
  for (const SelectionItem& item : added) changedItems_.insert(item);
  SelectionItems merged;
  setUnion(items_, other.items_, merged);
  items_.swap(merged);
  // Reported even when nothing was added: an add is always a change to listeners.
  modified_ = true;
  unlock();
}

void SelectionSet::remove(const SelectionSet& other) {
  lock();
  // Deliberately the same expression as in add: the listed items are those of `other` that were
  // not members, not the ones actually removed. Listeners rely on this.
  SelectionItems listed;
  setDifference(other.items_, items_, listed);
  for (const SelectionItem& item : listed) changedItems_.insert(item);
  SelectionItems rest;
  setDifference(items_, other.items_, rest);
  items_.swap(rest);
  modified_ = true;
  unlock();
}

void SelectionSet::toggle(const SelectionSet& other) {
  lock();
  // Every item of `other` is reported, added or dropped alike.
  changedItems_ = other.items_;
  SelectionItems result;
  setSymmetricDifference(items_, other.items_, result);
  items_.swap(result);
  modified_ = true;
  unlock();
}

void SelectionSet::assign(const SelectionSet& other) {
  // The temporary's own emissions reach nobody: it has no connections.
  SelectionSet copy(other);
  swap(copy);
}

void SelectionSet::swap(SelectionSet& other) {
  other.lock();
  lock();
  SelectionItems difference;
  setSymmetricDifference(items_, other.items_, difference);
  changedItems_ = difference;
  other.changedItems_ = difference;
  items_.swap(other.items_);
  std::swap(draw_, other.draw_);
  // Both sides report, even with equal members (an empty difference).
  modified_ = true;
  other.modified_ = true;
  unlock();
  other.unlock();
}

void SelectionSet::clear() {
  lock();
  lockedClear();
  unlock();
}

void SelectionSet::lockedClear() {
  // An empty set is left alone, so clearing it emits nothing.
  if (items_.empty()) return;
  changedItems_ = items_;
  items_.clear();
  modified_ = true;
}

void SelectionSet::insert(const SelectionItem& item) {
  // Listed even when it was already a member.
  changedItems_.insert(item);
  items_.insert(item);
  modified_ = true;
}

void SelectionSet::erase(SelectionItems::iterator position) {
  changedItems_.insert(*position);
  items_.erase(position);
  modified_ = true;
}

void SelectionSet::eraseAll(voDMD::Object* object) {
  // All items of one object stand together, the whole-object item first.
  auto begin = items_.lower_bound(SelectionItem(object));
  auto end = begin;
  while (end != items_.end() && end->getObject() == object) {
    changedItems_.insert(*end);
    ++end;
  }
  if (begin == end) return;
  items_.erase(begin, end);
  modified_ = true;
}

SelectionItems::iterator SelectionSet::find(const SelectionItem& item) { return items_.find(item); }

void SelectionSet::getIterators(SelectionItems::iterator& begin, SelectionItems::iterator& end) {
  begin = items_.begin();
  end = items_.end();
}

void SelectionSet::getIterators(SelectionItems::const_iterator& begin, SelectionItems::const_iterator& end) const {
  begin = items_.begin();
  end = items_.end();
}

bool SelectionSet::contains(const SelectionSet& other) const {
  // The empty subset answers false on purpose.
  if (other.items_.empty()) return false;
  if (items_.size() < other.items_.size()) return false;
  SelectionItems merged;
  setUnion(items_, other.items_, merged);
  return merged.size() == items_.size();
}

bool SelectionSet::intersects(const SelectionSet& other) const {
  SelectionItems common;
  setIntersection(items_, other.items_, common);
  return !common.empty();
}

bool SelectionSet::equivalent(const SelectionSet& other) const {
  if (items_.size() != other.items_.size()) return false;
  auto a = items_.begin();
  for (auto b = other.items_.begin(); b != other.items_.end(); ++a, ++b) {
    if (a->compare(*b) != 0) return false;
  }
  return true;
}

void SelectionSet::update() const {
  if (draw_) draw_->update();
}

// The merges walk both inputs once in item order and append at the end of `out` (hinted insert),
// so each costs linear time.
void SelectionSet::setUnion(const SelectionItems& a, const SelectionItems& b, SelectionItems& out) {
  auto i = a.begin();
  auto j = b.begin();
  while (i != a.end() || j != b.end()) {
    if (j == b.end() || (i != a.end() && i->compare(*j) < 0)) {
      out.insert(out.end(), *i++);
    } else if (i == a.end() || j->compare(*i) < 0) {
      out.insert(out.end(), *j++);
    } else {
      out.insert(out.end(), *i++);
      ++j;
    }
  }
}

void SelectionSet::setIntersection(const SelectionItems& a, const SelectionItems& b, SelectionItems& out) {
  auto i = a.begin();
  auto j = b.begin();
  while (i != a.end() && j != b.end()) {
    const int order = i->compare(*j);
    if (order < 0) {
      ++i;
    } else if (order > 0) {
      ++j;
    } else {
      out.insert(out.end(), *i++);
      ++j;
    }
  }
}

void SelectionSet::setDifference(const SelectionItems& a, const SelectionItems& b, SelectionItems& out) {
  auto i = a.begin();
  auto j = b.begin();
  while (i != a.end()) {
    if (j == b.end()) {
      out.insert(out.end(), *i++);
      continue;
    }
    const int order = i->compare(*j);
    if (order < 0) {
      out.insert(out.end(), *i++);
    } else if (order > 0) {
      ++j;
    } else {
      ++i;
      ++j;
    }
  }
}

void SelectionSet::setSymmetricDifference(const SelectionItems& a, const SelectionItems& b, SelectionItems& out) {
  auto i = a.begin();
  auto j = b.begin();
  while (i != a.end() || j != b.end()) {
    if (j == b.end() || (i != a.end() && i->compare(*j) < 0)) {
      out.insert(out.end(), *i++);
    } else if (i == a.end() || j->compare(*i) < 0) {
      out.insert(out.end(), *j++);
    } else {
      ++i;
      ++j;
    }
  }
}

// ---------------------------------------------------------------------------------------------
// SelectionBase, ObjectSelection

SelectionBase::SelectionBase(const SelectionSet* set) : set_(set) {
  if (set_ && set_->getDraw()) set_->getDraw()->update();
}

ObjectSelection::ObjectSelection() : set_(voSupport::ci().find<SelectionSet>()) {}

voDMD::Object* ObjectSelection::firstObject() const {
  for (const SelectionItem& item : set_->items()) {
    if (!item.isSubItem()) return item.getObject();
  }
  return nullptr;
}

int ObjectSelection::numItems() const { return static_cast<int>(set_->items().size()); }

int ObjectSelection::numObjects() const {
  int count = 0;
  for (const SelectionItem& item : set_->items()) count += item.isSubItem() ? 0 : 1;
  return count;
}

int ObjectSelection::numUniqueObjects() const {
  // Items of one object are adjacent, so comparing with the previous one is enough.
  int count = 0;
  voDMD::Object* previous = nullptr;
  bool first = true;
  for (const SelectionItem& item : set_->items()) {
    if (first || item.getObject() != previous) ++count;
    previous = item.getObject();
    first = false;
  }
  return count;
}

void ObjectSelection::objects(ru::vector<voDMD::Object*>& out) const {
  for (const SelectionItem& item : set_->items()) {
    if (!item.isSubItem()) out.push_back(item.getObject());
  }
}

void ObjectSelection::uniqueObjects(ru::vector<voDMD::Object*>& out) const {
  bool any = false;
  voDMD::Object* previous = nullptr;
  for (const SelectionItem& item : set_->items()) {
    if (item.isSubItem()) continue;
    if (!any || item.getObject() != previous) out.push_back(item.getObject());
    previous = item.getObject();
    any = true;
  }
}

void ObjectSelection::subObjectOwners(ru::vector<voDMD::Object*>& out) const {
  bool any = false;
  voDMD::Object* previous = nullptr;
  for (const SelectionItem& item : set_->items()) {
    if (!item.isSubItem()) continue;
    if (!any || item.getObject() != previous) out.push_back(item.getObject());
    previous = item.getObject();
    any = true;
  }
}

void ObjectSelection::subObjects(voDMD::Object* object, ru::vector<voDMD::SubObject>& out) const {
  for (auto it = set_->items().lower_bound(SelectionItem(object));
       it != set_->items().end() && it->getObject() == object; ++it) {
    if (it->isSubItem()) out.push_back(it->getSubObject());
  }
}

// ---------------------------------------------------------------------------------------------
// Boxes

ruLinear::Range3d getBoundingBox(const SelectionSet& set) {
  ruLinear::Range3d result;
  result.setUnbounded();
  bool first = true;
  for (const SelectionItem& item : set.items()) {
    // Every selectable object has a BoundingBox; a missing one is the caller's error.
    const voDMD::BoundingBox* box = item.getObject()->findAttribute<voDMD::BoundingBox>();
    const ruLinear::Range3d range = item.isSubItem() ? box->getWorldSpace(item.getSubObject()) : box->getWorldSpace();
    if (first) {
      result.set(range.getMin(), range.getMax());
      first = false;
    } else {
      result.include(range);
    }
  }
  return result;
}

ruGeom::OrientedBox getOrientedBox(const SelectionSet& set) {
  if (set.items().size() == 1) {
    const SelectionItem& item = *set.items().begin();
    const voDMD::BoundingBox* box = item.getObject()->findAttribute<voDMD::BoundingBox>();
    const voDMD::Tolerances& tolerances = voSupport::ci().find<voDMD::Document>()->getToleranceTable();
    return item.isSubItem() ? box->getOrientedWorldSpace(item.getSubObject(), tolerances)
                            : box->getOrientedWorldSpace(tolerances);
  }
  // Several items (or none): the axis-aligned box of them all.
  return ruGeom::OrientedBox(getBoundingBox(set));
}

}  // namespace voDMG
