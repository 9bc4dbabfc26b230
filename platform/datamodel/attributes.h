#pragma once

#include "platform/base/linear.h"
#include "platform/datamodel/document.h"
#include "platform/geometry/camera.h"
#include "platform/geometry/box.h"
#include "platform/geometry/mesh.h"
#include "platform/resources/resources.h"

#include <vector>

namespace voDMD {

// Where an object sits: its object-to-world matrix (row vectors, p * M). Transacted.
class VO_DMD_API Transform : public Attribute {
public:
  const ruLinear::AffineMatrix& getObjToWorld() const noexcept { return objToWorld_; }
  // Moves the object; a matrix equal to the current one changes nothing.
  void setObjToWorld(const ruLinear::AffineMatrix& matrix);

  void onTransact(voTXN::Serializer& serializer) override;

private:
  friend class voDMD::Object;
  explicit Transform(voDMD::Object* owner, const ruLinear::AffineMatrix& matrix = ruLinear::AffineMatrix::Identity);
  ruLinear::AffineMatrix objToWorld_;
};

// The geometry of a plain mesh object: sub-meshes in the object's coordinates, and a visibility
// flag. Transacted; the meshes are shared, never copied.
class VO_DMD_API Mesh : public Attribute {
public:
  bool visible() const noexcept { return visible_; }
  void setVisible(bool visible);

  int numSubMeshes() const noexcept { return static_cast<int>(subMeshes_.size()); }
  // The sub-mesh at `index`, for reading only (the attribute never changes it in place); an empty
  // mesh for an index out of range.
  const ruGeom::CompactMesh& getSubMesh(int index) const noexcept;
  // Replaces every sub-mesh (null entries are dropped), undoably; the image keys go with the old
  // meshes. The attribute keeps its own copies sharing the buffers, so later writes to the
  // meshes handed in detach them and do not reach the attribute.
  void setSubMeshes(const ru::vector<ru::Reference<ruGeom::CompactMesh>>& meshes);
  // The image that textures the sub-mesh at `index` through its texture coordinates; an invalid key
  // when it has none or the index is out of range.
  voRES::ImageKey getSubMeshImageKey(int index) const;
  // Sets (or, with an invalid key, clears) the image of a sub-mesh. False for an index out of range.
  bool setSubMeshImageKey(int index, const voRES::ImageKey& key);

  void onTransact(voTXN::Serializer& serializer) override;

private:
  friend class voDMD::Object;
  explicit Mesh(voDMD::Object* owner, ru::Reference<ruGeom::CompactMesh> mesh = nullptr);
  bool visible_ = true;
  ru::vector<ru::Reference<ruGeom::CompactMesh>> subMeshes_;
  ru::vector<voRES::ImageKey> imageKeys_;  // one per sub-mesh
};

// The world-space extent of an object. Derived from its geometry and transform, recomputed when
// either changes.
class VO_DMD_API BoundingBox : public Attribute {
public:
  // The axis-aligned world box of the object; the unbounded (inverted) range when it has no
  // geometry.
  ruLinear::Range3d getWorldSpace() const;
  // The world box of a part of the object (the corners of a selection's vertices and faces); the
  // whole object's box for a null sub-object or one of another object.
  ruLinear::Range3d getWorldSpace(const SubObject& subObject) const;
  // The object's box in its own frame, carried to the world, grown on each side by the tolerance
  // table's `box` fraction of its size.
  ruGeom::OrientedBox getOrientedWorldSpace(const Tolerances& tolerances) const;
  ruGeom::OrientedBox getOrientedWorldSpace(const SubObject& subObject, const Tolerances& tolerances) const;
  // Drops the cached world box; the next read measures again. For attributes whose geometry the
  // box covers, before they announce a change.
  void invalidate() noexcept { valid_ = false; }

protected:
  friend class voDMD::Object;
  explicit BoundingBox(voDMD::Object* owner);
  // The meshes the box is taken over, in object coordinates.
  virtual void collectMeshes(ru::vector<const ruGeom::CompactMesh*>& meshes) const;
  void onSiblingModified(Attribute* sibling) override;
  void onTxnRestored() override;

private:
  ruLinear::AffineMatrix objToWorld() const;
  ruLinear::Range3d localRange() const;
  mutable bool valid_ = false;
  mutable ruLinear::Range3d world_;
  // The box of the vertices under the transform's linear part alone, for the vertex buffers and
  // linear part it was taken with: a move that only translates shifts it.
  mutable std::vector<ruGeom::BufferId> linearBuffers_;
  mutable ruLinear::AffineMatrix linearPart_;
  mutable ruLinear::Range3d linearRange_;
};

// The document's camera. It owns the live ruGeom::Camera; views and tools read it and keep a
// pointer for the change signal. Not transacted: moving the view is not an edit of the document.
class VO_DMD_API Camera : public Attribute {
public:
  const ruGeom::Camera& get() const noexcept { return camera_; }
  // Replaces the camera: fires sigCameraChanged with the live camera, then the owner's
  // modification signal with this attribute.
  void set(const ruGeom::Camera& camera);

  ruRTB::SignalArg<ruGeom::Camera*> sigCameraChanged;

private:
  friend class voDMD::Object;
  explicit Camera(voDMD::Object* owner);
  ruGeom::Camera camera_;
};

} // namespace voDMD
