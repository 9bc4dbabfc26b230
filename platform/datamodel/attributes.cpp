#include "platform/datamodel/attributes.h"

#include "platform/datamodel/editscope.h"
#include "platform/datamodel/print.h"
#include "platform/geometry/algorithms.h"

#include <cmath>

namespace voDMD {

namespace {

using detail::EditScope;

const ruGeom::CompactMesh& emptyMesh() {
  static const ruGeom::CompactMesh empty;
  return empty;
}

} // namespace

// --- Transform -------------------------------------------------------------------------------

Transform::Transform(voDMD::Object* owner, const ruLinear::AffineMatrix& matrix) : Attribute(owner), objToWorld_(matrix) {}

void Transform::setObjToWorld(const ruLinear::AffineMatrix& matrix) {
  if (matrix == objToWorld_) return;
  EditScope scope(*txnManager(), "Move");
  txnWillWrite();
  objToWorld_ = matrix;
  modified();
}

void Transform::onTransact(voTXN::Serializer& serializer) {
  serializer.beginScope(this, 0);
  Attribute::onTransact(serializer);
  serializer.field(objToWorld_);
  serializer.endScope();
}

// --- Mesh ------------------------------------------------------------------------------------

Mesh::Mesh(voDMD::Object* owner, ru::Reference<ruGeom::CompactMesh> mesh) : Attribute(owner) {
  if (mesh) subMeshes_.push_back(detail::ownMesh(mesh.get()));
  imageKeys_.resize(subMeshes_.size());
}

void Mesh::setVisible(bool visible) {
  if (visible == visible_) return;
  EditScope scope(*txnManager(), visible ? "Show" : "Hide");
  txnWillWrite();
  visible_ = visible;
  modified();
}

const ruGeom::CompactMesh& Mesh::getSubMesh(int index) const noexcept {
  if (index < 0 || index >= numSubMeshes()) return emptyMesh();
  return *subMeshes_[static_cast<std::size_t>(index)];
}

void Mesh::setSubMeshes(const ru::vector<ru::Reference<ruGeom::CompactMesh>>& meshes) {
  EditScope scope(*txnManager(), "Replace mesh");
  txnWillWrite();
  subMeshes_.clear();
  for (const auto& mesh : meshes) {
    if (mesh) subMeshes_.push_back(detail::ownMesh(mesh.get()));
  }
  imageKeys_.assign(subMeshes_.size(), voRES::ImageKey());
  modified();
}

voRES::ImageKey Mesh::getSubMeshImageKey(int index) const {
  if (index < 0 || index >= static_cast<int>(imageKeys_.size())) return voRES::ImageKey();
  return imageKeys_[static_cast<std::size_t>(index)];
}

bool Mesh::setSubMeshImageKey(int index, const voRES::ImageKey& key) {
  if (index < 0 || index >= numSubMeshes()) return false;
  if (imageKeys_[static_cast<std::size_t>(index)] == key) return true;
  EditScope scope(*txnManager(), "Texture");
  txnWillWrite();
  imageKeys_[static_cast<std::size_t>(index)] = key;
  modified();
  return true;
}

void Mesh::onTransact(voTXN::Serializer& serializer) {
  serializer.beginScope(this, 0);
  Attribute::onTransact(serializer);
  serializer.field(visible_);
  serializer.field(subMeshes_);
  serializer.field(imageKeys_);
  serializer.endScope();
}

// --- BoundingBox -----------------------------------------------------------------------------

BoundingBox::BoundingBox(voDMD::Object* owner) : Attribute(owner) {}

void BoundingBox::collectMeshes(ru::vector<const ruGeom::CompactMesh*>& meshes) const {
  if (const Mesh* mesh = owner()->findAttribute<Mesh>()) {
    for (int i = 0; i < mesh->numSubMeshes(); ++i) meshes.push_back(&mesh->getSubMesh(i));
  }
}

ruLinear::AffineMatrix BoundingBox::objToWorld() const {
  const Transform* transform = owner()->findAttribute<Transform>();
  return transform ? transform->getObjToWorld() : ruLinear::AffineMatrix::Identity;
}

ruLinear::Range3d BoundingBox::localRange() const {
  ru::vector<const ruGeom::CompactMesh*> meshes;
  collectMeshes(meshes);
  ruLinear::Range3d range;
  for (const ruGeom::CompactMesh* mesh : meshes) range.include(mesh->getBoundingBox().asRange3d());
  return range;
}

ruLinear::Range3d BoundingBox::getWorldSpace() const {
  if (valid_) return world_;
  // The box of the transformed vertices, tighter than the transformed local box under rotation.
  // It is taken over the hull candidates of each mesh (cached with the vertex buffer), and a move
  // that keeps the linear part only shifts the last one: a drag costs the same whatever the mesh.
  ru::vector<const ruGeom::CompactMesh*> meshes;
  collectMeshes(meshes);
  const ruLinear::AffineMatrix m = objToWorld();
  const ruLinear::AffineMatrix linear = m.linearPart();
  bool same = linear == linearPart_ && linearBuffers_.size() == meshes.size();
  for (std::size_t i = 0; same && i < meshes.size(); ++i) same = linearBuffers_[i] == meshes[i]->getVertexBufferId();
  if (!same) {
    linearBuffers_.clear();
    linearRange_ = ruLinear::Range3d();
    for (const ruGeom::CompactMesh* mesh : meshes) {
      linearBuffers_.push_back(mesh->getVertexBufferId());
      linearRange_.include(ruGeom::meshTransformedRange(*mesh, linear));
    }
    linearPart_ = linear;
  }
  world_ = linearRange_;
  if (world_.isValid()) {
    const ruLinear::Vector t = m.getTranslation();
    world_ = ruLinear::Range3d(linearRange_.getMin() + t, linearRange_.getMax() + t);
  }
  valid_ = true;
  return world_;
}

ruLinear::Range3d BoundingBox::getWorldSpace(const SubObject& subObject) const {
  const KLTMesh* kltMesh = owner()->findAttribute<KLTMesh>();
  ru::Reference<KLTSelection> selection = kltMesh ? kltMesh->asSelection(subObject) : nullptr;
  if (!selection || !kltMesh->getMesh()) return getWorldSpace();
  const ruGeom::CompactMesh& mesh = *kltMesh->getMesh();
  const ruLinear::AffineMatrix m = objToWorld();
  const ruGeom::MeshVertex* v = mesh.getVertices();
  const std::uint32_t* t = mesh.getTriangles();
  const auto numVertices = static_cast<unsigned>(mesh.getNumVertices());
  const auto numTriangles = static_cast<unsigned>(mesh.getNumTriangles());
  ruLinear::Range3d range;
  for (unsigned vertex : selection->vertices()) {
    if (vertex < numVertices) range.include(v[vertex].asPoint() * m);
  }
  for (unsigned face : selection->faces()) {
    if (face >= numTriangles) continue;
    // A triangle may name a vertex the mesh lacks (a mesh is not checked when it is set): skip it.
    for (int k = 0; k < 3; ++k) {
      const std::uint32_t corner = t[3 * static_cast<std::size_t>(face) + k];
      if (corner < numVertices) range.include(v[corner].asPoint() * m);
    }
  }
  return range;
}

ruGeom::OrientedBox BoundingBox::getOrientedWorldSpace(const Tolerances& tolerances) const {
  const ruLinear::Range3d local = localRange();
  if (!local.isValid()) return ruGeom::OrientedBox();
  const ruLinear::Vector grow = local.getDiagonal() * tolerances.box;
  const ruGeom::OrientedBox box(ruLinear::Range3d(local.getMin() - grow, local.getMax() + grow));
  return box.transformed(objToWorld());
}

ruGeom::OrientedBox BoundingBox::getOrientedWorldSpace(const SubObject& subObject, const Tolerances& tolerances) const {
  const KLTMesh* kltMesh = owner()->findAttribute<KLTMesh>();
  if (!kltMesh || !kltMesh->asSelection(subObject)) return getOrientedWorldSpace(tolerances);
  // A part's box is taken in the world's axes.
  const ruLinear::Range3d world = getWorldSpace(subObject);
  if (!world.isValid()) return ruGeom::OrientedBox();
  const ruLinear::Vector grow = world.getDiagonal() * tolerances.box;
  return ruGeom::OrientedBox(ruLinear::Range3d(world.getMin() - grow, world.getMax() + grow));
}

void BoundingBox::onSiblingModified(Attribute*) { valid_ = false; }

void BoundingBox::onTxnRestored() {
  valid_ = false;
  Attribute::onTxnRestored();
}

// --- Camera ----------------------------------------------------------------------------------

Camera::Camera(voDMD::Object* owner) : Attribute(owner) {}

void Camera::set(const ruGeom::Camera& camera) {
  camera_ = camera;
  sigCameraChanged.emit(&camera_);
  modified();
}

} // namespace voDMD
