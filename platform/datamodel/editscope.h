#pragma once

// Internal to libDataModel (not installed with the public headers).

#include "platform/geometry/mesh.h"
#include "platform/transaction/transaction.h"

namespace voDMD::detail {

// Runs an edit inside the open transaction, or in one of its own named `name` when none is open.
class EditScope {
public:
  EditScope(voTXN::Manager& manager, const char* name) : manager_(manager), opened_(!manager.isOpen()) {
    if (opened_) manager_.begin(name);
  }
  EditScope(const EditScope&) = delete;
  EditScope& operator=(const EditScope&) = delete;
  ~EditScope() {
    if (opened_) manager_.commit();
  }

private:
  voTXN::Manager& manager_;
  bool opened_;
};

// The attribute's own mesh object for `mesh`, sharing its buffers (nothing is copied): whoever
// handed `mesh` in may go on writing it, which detaches their buffers and leaves the attribute's
// as they were. Null for null.
inline ru::Reference<ruGeom::CompactMesh> ownMesh(const ruGeom::CompactMesh* mesh) {
  return mesh ? ru::Reference<ruGeom::CompactMesh>(new ruGeom::CompactMesh(*mesh)) : nullptr;
}

} // namespace voDMD::detail
