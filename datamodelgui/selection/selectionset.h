#pragma once

#include "datamodelgui/export.h"
#include "platform/base/containers.h"
#include "platform/base/linear.h"
#include "platform/base/signal.h"
#include "platform/datamodel/document.h"
#include "platform/geometry/box.h"

#include <cstdint>

namespace voDMG {

class DocumentDraw;

// One member of a selection: a document object, or a part of one. A plain value; the object is
// held by raw pointer and never owned, so whoever deletes an object removes it from the sets first.
class DMGUI_API SelectionItem {
public:
  // The invalid item: no object, no sub-object.
  SelectionItem() = default;
  // The whole object.
  SelectionItem(voDMD::Object* object) : object_(object) {}  // NOLINT: implicit on purpose, items are built from objects everywhere
  // A part of an object; the object is the sub-object's owner.
  SelectionItem(const voDMD::SubObject& subObject) : object_(subObject.owner()), subObject_(subObject) {}  // NOLINT
  SelectionItem(const SelectionItem&) = default;
  SelectionItem& operator=(const SelectionItem&) = default;

  voDMD::Object* getObject() const noexcept { return object_; }
  voDMD::SubObject getSubObject() const { return subObject_; }
  // The object pointer is non-null.
  bool valid() const noexcept { return object_ != nullptr; }
  // The item names a part of its object.
  bool isSubItem() const noexcept { return !subObject_.isNull(); }

  // The order of every selection: by object pointer (as an unsigned value), then the whole-object
  // item before the parts, then the parts by voDMD::SubObject::compare. Negative, zero or positive.
  // Pointer order is stable within a run and means nothing between runs.
  int compare(const SelectionItem& other) const noexcept;
  bool operator<(const SelectionItem& other) const noexcept { return compare(other) < 0; }
  bool operator==(const SelectionItem& other) const noexcept { return compare(other) == 0; }

private:
  voDMD::Object* object_ = nullptr;
  voDMD::SubObject subObject_;
};

using SelectionItems = ru::set<SelectionItem, ru::less<SelectionItem>>;
// The iterator type that drawing objects receive their selected and hover ranges in.
using SelectionIterator = ru::rbtree<SelectionItem, ru::RBTreeImpl::Null, ru::less<SelectionItem>>::const_iterator;

// A sorted set of selection items with batched change signals. Mutations inside lock()/unlock()
// reach listeners as one emission at the outermost unlock, in the order sigModified,
// sigModified2, sigMembershipChanged (with the changed items). One thread; lock() is a counter,
// not a mutual exclusion. The set does not listen to the document: stale items stay until removed.
class DMGUI_API SelectionSet {
public:
  // An empty set belonging to the voDMG::DocumentDraw of voSupport::ci() (null when there is none).
  SelectionSet();
  // Copies the members and the document draw only: no connections, no pending batch.
  SelectionSet(const SelectionSet& other);
  SelectionSet& operator=(const SelectionSet&) = delete;
  virtual ~SelectionSet();

  // Each mutator is one batch of its own; see the notes at each for what it reports.
  void add(const SelectionSet& other);
  void remove(const SelectionSet& other);
  void toggle(const SelectionSet& other);
  // Copies `other` (members and document draw) into this set by a swap with a temporary.
  void assign(const SelectionSet& other);
  // Exchanges members and document draws; both sides emit the symmetric difference.
  void swap(SelectionSet& other);
  // Empties the set; an empty set emits nothing.
  void clear();

  // Subset test; false for an empty `other`, on purpose.
  bool contains(const SelectionSet& other) const;
  bool intersects(const SelectionSet& other) const;
  bool equivalent(const SelectionSet& other) const;
  bool empty() const noexcept { return items_.empty(); }
  const SelectionItems& items() const noexcept { return items_; }
  DocumentDraw* getDraw() const noexcept { return draw_; }
  // Brings the document draw's registry up to date (DocumentDraw::update); nothing without one.
  void update() const;

  ruRTB::SignalArg<SelectionSet*> sigModified;
  ruRTB::SignalArg<SelectionSet*> sigModified2;
  ruRTB::SignalArg<const ru::set<SelectionItem>&> sigMembershipChanged;

protected:
  // Selectors edit a set one item at a time inside the batch they hold.
  friend class SelectorBase;
  // For selectors: a batch that they hold open for their whole life.
  void lock() noexcept;
  void unlock();
  void lockedClear();
  void insert(const SelectionItem& item);
  void erase(SelectionItems::iterator position);
  // Erases every item of `object` (the whole-object item and its parts).
  void eraseAll(voDMD::Object* object);
  SelectionItems::iterator find(const SelectionItem& item);
  void getIterators(SelectionItems::iterator& begin, SelectionItems::iterator& end);
  void getIterators(SelectionItems::const_iterator& begin, SelectionItems::const_iterator& end) const;

private:
  static void setUnion(const SelectionItems& a, const SelectionItems& b, SelectionItems& out);
  static void setIntersection(const SelectionItems& a, const SelectionItems& b, SelectionItems& out);
  static void setDifference(const SelectionItems& a, const SelectionItems& b, SelectionItems& out);
  static void setSymmetricDifference(const SelectionItems& a, const SelectionItems& b, SelectionItems& out);

  SelectionItems items_;
  SelectionItems changedItems_;
  DocumentDraw* draw_ = nullptr;
  std::int32_t lockCount_ = 0;
  bool modified_ = false;
};

// Base of a reader that wants the draw side up to date before it reads the set: its constructor
// calls DocumentDraw::update on the set's document draw.
class DMGUI_API SelectionBase {
public:
  explicit SelectionBase(const SelectionSet* set);

protected:
  const SelectionSet* set_;
};

// A read-only view of a set. Unlike SelectionBase it updates nothing. The set must outlive it and
// hold no stale item.
class DMGUI_API ObjectSelection {
public:
  // The voDMG::SelectionSet of voSupport::ci().
  ObjectSelection();
  explicit ObjectSelection(const SelectionSet& set) : set_(&set) {}

  // The object of the first whole-object item; null when there is none (parts are skipped).
  voDMD::Object* firstObject() const;
  int numItems() const;
  // Whole-object items.
  int numObjects() const;
  // Distinct objects over all items, parts included.
  int numUniqueObjects() const;
  void objects(ru::vector<voDMD::Object*>& out) const;
  void uniqueObjects(ru::vector<voDMD::Object*>& out) const;
  // The owners of the parts, adjacent duplicates dropped.
  void subObjectOwners(ru::vector<voDMD::Object*>& out) const;
  void subObjects(voDMD::Object* object, ru::vector<voDMD::SubObject>& out) const;

private:
  const SelectionSet* set_;
};

// The world box of the items (each object's voDMD::BoundingBox, the part's box for a part); the
// unbounded (inverted) range for an empty set. Every item's object must have a BoundingBox.
DMGUI_API ruLinear::Range3d getBoundingBox(const SelectionSet& set);
// For one item, its oriented world box under the current document's tolerance table; otherwise
// the axis-aligned getBoundingBox as an oriented box.
DMGUI_API ruGeom::OrientedBox getOrientedBox(const SelectionSet& set);

}  // namespace voDMG
