#pragma once

#include "datamodelgui/export.h"
#include "datamodelgui/selection/selectionset.h"
#include "platform/base/containers.h"
#include "platform/datamodel/document.h"
#include "platform/graphics/hittest.h"

namespace voDMG {

// The way to edit a selection set one item at a time: a scoped batch. The constructor brings the
// set's document draw up to date and locks the set; the destructor unlocks it, so everything done
// through one selector reaches listeners as one emission at the end of its scope. Selectors live
// on the stack. A copy takes no lock but still unlocks when it dies, so never copy a selector while
// another one on the same set is in use.
class DMGUI_API SelectorBase {
public:
  explicit SelectorBase(SelectionSet& set);
  SelectorBase(const SelectorBase& other) noexcept : set_(other.set_) {}
  SelectorBase& operator=(const SelectorBase&) = delete;

protected:
  virtual ~SelectorBase();

  using Iterator = ru::rbtree<SelectionItem, ru::RBTreeImpl::Null, ru::less<SelectionItem>>::iterator;

  // These count on the lock the selector holds and record the change for the closing emission.
  void clear();
  void insert(const SelectionItem& item);
  void erase(Iterator position);
  void eraseAll(voDMD::Object* object);
  // The end iterator when absent.
  Iterator find(const SelectionItem& item);
  void getIterators(Iterator& begin, Iterator& end);

  SelectionSet* set_;
};

// Turns hit records into items: records of the set's document (its draw's id) only, each asked of
// its ObjectDraw, whole object or part as the record says; invalid items are dropped.
class DMGUI_API RawSelector : public SelectorBase {
public:
  explicit RawSelector(SelectionSet& set) : SelectorBase(set) {}
  RawSelector(const RawSelector& other) noexcept : SelectorBase(other) {}
  ~RawSelector() override;

  void add(const ru::vector<voGR::HitRecord>& records);
  // Takes out the whole objects the records name, parts and all, whatever part was hit.
  void remove(const ru::vector<voGR::HitRecord>& records);
  // Replaces the members with the items of the records.
  void set(const ru::vector<voGR::HitRecord>& records);
};

// Adds objects and parts of objects, without checks: the callers pass non-null objects.
class DMGUI_API ObjectSelector : public SelectorBase {
public:
  // On the voDMG::SelectionSet of voSupport::ci().
  ObjectSelector();
  explicit ObjectSelector(SelectionSet& set) : SelectorBase(set) {}
  ObjectSelector(const ObjectSelector& other) noexcept : SelectorBase(other) {}
  ~ObjectSelector() override;

  void add(voDMD::Object* object);
  void add(const voDMD::SubObject& subObject);
  void add(const ru::vector<voDMD::Object*>& objects);
};

}  // namespace voDMG
