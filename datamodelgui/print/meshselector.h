#pragma once

#include "datamodelgui/export.h"
#include "datamodelgui/selection/selector.h"
#include "platform/base/reference.h"

namespace voDMD {
class KLTMesh;
class KLTSelection;
}  // namespace voDMD

namespace voDMG {

// Selects printable meshes, whole or in part. Per mesh the set holds at most one whole-mesh item
// (the mesh's object) and at most one partial item, whose sub-object carries a live
// voDMD::KLTSelection of vertex and face indices that this selector edits in place. A scoped
// batch like every selector: its edits reach listeners as one emission when it ends.
class DMGUI_API KLTMeshSelector : public SelectorBase {
public:
  // On the voDMG::SelectionSet of voSupport::ci().
  KLTMeshSelector();
  explicit KLTMeshSelector(SelectionSet& set) : SelectorBase(set) {}
  KLTMeshSelector(const KLTMeshSelector& other) noexcept : SelectorBase(other) {}
  ~KLTMeshSelector() override;

  // Adds the whole-mesh item unless it is there; a partial item is left as it is.
  void addObject(voDMD::KLTMesh* mesh);
  // Removes every item of the mesh's object, whole and partial. Always true.
  bool removeObject(voDMD::KLTMesh* mesh);
  // Adds the whole-mesh item when absent (keeping a partial one); otherwise removes every item of
  // the mesh, the partial one included.
  void toggleObject(voDMD::KLTMesh* mesh);

  // Appends the indices of `selection` to the mesh's partial selection (made when absent), with no
  // duplicate test.
  void addSelection(voDMD::KLTMesh* mesh, ru::Reference<voDMD::KLTSelection> selection);
  // Removes, for each index of `selection`, its first occurrence from the partial selection. The
  // item stays even when it becomes empty; nothing is made when there is none.
  void removeSelection(voDMD::KLTMesh* mesh, ru::Reference<voDMD::KLTSelection> selection);
  // Removes the partial items of the mesh; the whole-mesh item stays.
  void clearSelection(voDMD::KLTMesh* mesh);
  // The live partial selection of the mesh, or a new empty one that is not in the set.
  ru::Reference<voDMD::KLTSelection> getSelection(voDMD::KLTMesh* mesh);

  // Removes the items of every printable mesh of the document; other objects' items stay.
  void clear();
  // Selects every printable mesh of the document whole (hidden ones too), after clear().
  void selectAll();

private:
  // The first whole-mesh item, or the end iterator.
  Iterator findWhole(voDMD::KLTMesh* mesh);
  // The first partial item, or the end iterator.
  Iterator findPartial(voDMD::KLTMesh* mesh);
  // The partial selection behind `position`, after re-inserting its item: the set hears of the
  // change the lists are about to make.
  ru::Reference<voDMD::KLTSelection> touch(voDMD::KLTMesh* mesh, Iterator position);
};

}  // namespace voDMG
