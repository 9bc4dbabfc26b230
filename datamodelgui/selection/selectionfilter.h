#pragma once

#include "datamodelgui/export.h"
#include "datamodelgui/selection/selectionset.h"
#include "platform/base/reference.h"
#include "platform/graphics/hittest.h"

namespace voDMG {

// Removes items from a finished set (the candidates, after each hit test). Held by reference.
class DMGUI_API SelectionFilter : public ru::ReferenceCount {
public:
  ~SelectionFilter() override;
  // Edits `set` in place.
  void operator()(SelectionSet& set) const { filter(set); }

protected:
  SelectionFilter() = default;
  SelectionFilter(const SelectionFilter&) = default;
  SelectionFilter& operator=(const SelectionFilter&) = default;

private:
  virtual void filter(SelectionSet& set) const = 0;
};

// Takes a fixed list of items out of a set. The list is copied at construction, so later changes
// of the source do not reach the filter. Removes exact items: a whole-object item does not take
// the parts of that object with it.
class DMGUI_API ObjectFilter : public SelectionFilter {
public:
  explicit ObjectFilter(const SelectionSet& objects) : objects_(objects) {}
  ObjectFilter(const ObjectFilter& other) : SelectionFilter(other), objects_(other.objects_) {}
  ObjectFilter& operator=(const ObjectFilter& other);
  ~ObjectFilter() override;

  const SelectionSet& objects() const noexcept { return objects_; }

private:
  void filter(SelectionSet& set) const override;
  SelectionSet objects_;
};

// Turns one hit item into the items it stands for (a face into its whole body, say). Concrete rules
// belong to the application.
class DMGUI_API SelectionRule : public ru::ReferenceCount {
public:
  SelectionRule() = default;
  SelectionRule(const SelectionRule&) = default;
  SelectionRule& operator=(const SelectionRule&) = default;
  ~SelectionRule() override;

  // Whether the rule has anything to say about a whole set; false here. Not called by this library.
  virtual bool isApplicable(const SelectionSet& set);
  // The rule has something to say about this item.
  virtual bool appliesTo(const SelectionItem& item) = 0;
  // Fills the empty `out` with what `item` stands for.
  virtual void expand(const SelectionItem& item, SelectionSet& out) = 0;
  // Reserved for the application's rules; this library never calls it.
  virtual void ruleOperation3() = 0;
};

// Lets a hit test see only what the current selection (the voDMG::SelectionSet of voSupport::ci())
// names: a draw item of the document passes when any item of the selection, whole object or part,
// names the item's object. Reads the live selection on every call and caches nothing.
class DMGUI_API SelectionSetHitFilter : public voGR::HitFilter {
public:
  SelectionSetHitFilter() = default;
  SelectionSetHitFilter(const SelectionSetHitFilter&) = default;
  SelectionSetHitFilter& operator=(const SelectionSetHitFilter&) = default;
  ~SelectionSetHitFilter() override;

private:
  bool filter(const voGR::DrawItem& item) const override;
};

}  // namespace voDMG
