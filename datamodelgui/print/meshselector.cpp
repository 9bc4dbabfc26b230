#include "datamodelgui/print/meshselector.h"

#include "platform/datamodel/document.h"
#include "platform/datamodel/print.h"
#include "platform/support/callinfo.h"

#include <algorithm>

namespace voDMG {

KLTMeshSelector::KLTMeshSelector() : SelectorBase(*voSupport::ci().find<SelectionSet>()) {}

KLTMeshSelector::~KLTMeshSelector() = default;

KLTMeshSelector::Iterator KLTMeshSelector::findWhole(voDMD::KLTMesh* mesh) {
  Iterator it, end;
  getIterators(it, end);
  for (; it != end; ++it)
    if (it->getObject() == mesh->owner() && !it->isSubItem()) return it;
  return end;
}

KLTMeshSelector::Iterator KLTMeshSelector::findPartial(voDMD::KLTMesh* mesh) {
  Iterator it, end;
  getIterators(it, end);
  for (; it != end; ++it)
    if (it->getObject() == mesh->owner() && mesh->asSelection(it->getSubObject())) return it;
  return end;
}

void KLTMeshSelector::addObject(voDMD::KLTMesh* mesh) {
  Iterator end, begin;
  getIterators(begin, end);
  if (findWhole(mesh) == end) insert(SelectionItem(mesh->owner()));
}

bool KLTMeshSelector::removeObject(voDMD::KLTMesh* mesh) {
  eraseAll(mesh->owner());
  return true;
}

void KLTMeshSelector::toggleObject(voDMD::KLTMesh* mesh) {
  Iterator end, begin;
  getIterators(begin, end);
  if (findWhole(mesh) == end)
    insert(SelectionItem(mesh->owner()));
  else
    eraseAll(mesh->owner());
}

ru::Reference<voDMD::KLTSelection> KLTMeshSelector::touch(voDMD::KLTMesh* mesh, Iterator position) {
  ru::Reference<voDMD::KLTSelection> target = mesh->asSelection(position->getSubObject());
  const SelectionItem copy = *position;
  erase(position);
  insert(copy);
  return target;
}

void KLTMeshSelector::addSelection(voDMD::KLTMesh* mesh, ru::Reference<voDMD::KLTSelection> selection) {
  Iterator end, begin;
  getIterators(begin, end);
  const Iterator found = findPartial(mesh);
  ru::Reference<voDMD::KLTSelection> target;
  if (found != end) {
    target = touch(mesh, found);
  } else {
    target = new voDMD::KLTSelection();
    insert(SelectionItem(mesh->selectionAsSubObject(target)));
  }
  // Copied first: the argument may be the target itself.
  const std::deque<unsigned int> vertices = selection->vertices(), faces = selection->faces();
  target->vertices().insert(target->vertices().end(), vertices.begin(), vertices.end());
  target->faces().insert(target->faces().end(), faces.begin(), faces.end());
}

void KLTMeshSelector::removeSelection(voDMD::KLTMesh* mesh, ru::Reference<voDMD::KLTSelection> selection) {
  Iterator end, begin;
  getIterators(begin, end);
  const Iterator found = findPartial(mesh);
  if (found == end) return;
  ru::Reference<voDMD::KLTSelection> target = touch(mesh, found);
  const std::deque<unsigned int> vertices = selection->vertices(), faces = selection->faces();
  auto removeFirst = [](std::deque<unsigned int>& list, unsigned int value) {
    const auto at = std::find(list.begin(), list.end(), value);
    if (at != list.end()) list.erase(at);
  };
  for (unsigned int value : vertices) removeFirst(target->vertices(), value);
  for (unsigned int value : faces) removeFirst(target->faces(), value);
}

void KLTMeshSelector::clearSelection(voDMD::KLTMesh* mesh) {
  for (;;) {
    Iterator it, end;
    getIterators(it, end);
    while (it != end && !(it->getObject() == mesh->owner() && it->isSubItem())) ++it;
    if (it == end) return;
    erase(it);
  }
}

ru::Reference<voDMD::KLTSelection> KLTMeshSelector::getSelection(voDMD::KLTMesh* mesh) {
  Iterator end, begin;
  getIterators(begin, end);
  const Iterator found = findPartial(mesh);
  ru::Reference<voDMD::KLTSelection> fresh = new voDMD::KLTSelection();
  if (found != end) return mesh->asSelection(found->getSubObject());
  return fresh;
}

void KLTMeshSelector::clear() {
  for (voDMD::ObjectIterator it; it.valid(); it.next())
    if (auto* mesh = it.getObject()->findAttribute<voDMD::KLTMesh>()) removeObject(mesh);
}

void KLTMeshSelector::selectAll() {
  clear();
  for (voDMD::ObjectIterator it; it.valid(); it.next())
    if (auto* mesh = it.getObject()->findAttribute<voDMD::KLTMesh>()) addObject(mesh);
}

}  // namespace voDMG
