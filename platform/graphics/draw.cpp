#include "platform/graphics/draw.h"

#include <cmath>

#include "platform/graphics/internal.h"
#include "platform/graphics/shader.h"
#include "platform/graphics/system_impl.h"
#include "platform/support/tags.h"

#include <algorithm>

namespace voGR {

DrawPolicy::~DrawPolicy() = default;
Transformer::~Transformer() = default;
Geometry::~Geometry() = default;

MeshGeometry::MeshGeometry(ru::Reference<ruGeom::CompactMesh> mesh, int flags) : mesh_(std::move(mesh)), flags_(flags) {}
MeshGeometry::~MeshGeometry() = default;

ruGeom::BoundingBox MeshGeometry::getBoundingBox() const {
  return mesh_ ? mesh_->getBoundingBox() : ruGeom::BoundingBox();
}

// ---------------------------------------------------------------------------------------------
// DrawItem

DrawItem::DrawItem() = default;

DrawItem::~DrawItem() = default;

void DrawItem::copyStateFrom(const DrawItem& other) {
  space_ = other.space_;
  type_ = other.type_;
  depth_ = other.depth_;
  active_ = other.active_;
  drawable_ = other.drawable_;
  pickable_ = other.pickable_;
  subItem_ = other.subItem_;
  overlay_ = other.overlay_;
  label_ = other.label_;
  subsystemId_ = other.subsystemId_;
  source_ = other.source_;
  owner_ = other.owner_;
  debugString_ = other.debugString_;
  color_ = other.color_;
  shader_ = other.shader_;
  transformer_ = other.transformer_;
  geometry_ = other.geometry_;
  imageKey_ = other.imageKey_;
  hasImage_ = other.hasImage_;
  transform_ = other.transform_;
  tags_ = other.tags_;
}

ruGeom::CompactMesh* DrawItem::getMesh() const noexcept {
  auto* mesh = dynamic_cast<MeshGeometry*>(geometry_.get());
  return mesh ? mesh->getMesh().get() : nullptr;
}

ruLinear::AffineMatrix DrawItem::getLocalToWorld() const {
  return transformer_ ? transformer_->evaluate() : transform_;
}

ruGeom::BoundingBox DrawItem::getWorldBoundingBox() const {
  if (!geometry_) return {};
  const ruGeom::BoundingBox local = geometry_->getBoundingBox();
  if (!local.valid()) return {};
  return ruGeom::BoundingBox(local.asRange3d() * getLocalToWorld());
}

bool DrawItem::getWorldBoundingSphere(ruLinear::Point& centre, double& radius) const {
  const ruGeom::CompactMesh* mesh = getMesh();
  if (!mesh || mesh->getNumVertices() == 0) return false;
  const std::uint64_t vertices = mesh->getVertexBufferId();
  if (!transformer_ && vertices == sphereVertices_) {
    centre = sphereCentre_;
    radius = sphereRadius_;
    return true;
  }
  const ruGeom::BoundingBox box = mesh->getBoundingBox();
  if (!box.valid()) return false;
  const ruLinear::AffineMatrix toWorld = getLocalToWorld();
  centre = box.getCenter() * toWorld;
  // The half diagonal stretched by the placement: the sum of each scaled half edge.
  const ruLinear::Vector half = (box.getMax() - box.getMin()) * 0.5;
  radius = (ruLinear::Vector(1, 0, 0) * toWorld).length() * std::abs(half.getX()) +
           (ruLinear::Vector(0, 1, 0) * toWorld).length() * std::abs(half.getY()) +
           (ruLinear::Vector(0, 0, 1) * toWorld).length() * std::abs(half.getZ());
  if (!std::isfinite(radius) || !std::isfinite(centre.x + centre.y + centre.z)) return false;
  if (!transformer_) {
    sphereVertices_ = vertices;
    sphereCentre_ = centre;
    sphereRadius_ = radius;
  }
  return true;
}

bool DrawItem::contains(const ruString::CString& tag) const {
  return std::find(tags_.begin(), tags_.end(), tag) != tags_.end();
}

bool DrawItem::contains(const voSupport::Tag* tag) const { return tag && contains(tag->name()); }

// ---------------------------------------------------------------------------------------------
// DrawData

DrawData::DrawData(DrawSystem* system, const void* source) : system_(system), source_(source) {}

DrawData::~DrawData() {
  clear();
  if (system_) system_->impl().forgetDrawData(this);
}

void DrawData::clear() {
  for (auto& item : items_) detachFromWorlds(*item);
  items_.clear();
}

// ---------------------------------------------------------------------------------------------
// Draw

Draw::Draw(DrawContext& context, const void* source, bool overlay) : context_(context), data_(nullptr) {
  if (DrawSystem* system = context.getDrawSystem()) {
    data_ = system->getDrawData(source, false);
    if (!data_) {
      // An undeclared source: the system keeps the block and frees it with the id (freeID).
      data_ = system->getDrawData(source, true);
      data_->ownedBySystem_ = true;
    }
    data_->lastId_ = context.getID();
    data_->clear();
  }
  state_.source_ = source;
  state_.overlay_ = overlay;
  state_.subsystemId_ = context.getID();
}

Draw::~Draw() = default;

void Draw::pushTransform() { stack_.push_back(state_.transform_); }

void Draw::popTransform() {
  if (stack_.empty()) return;
  state_.transform_ = stack_.back();
  stack_.pop_back();
}

void Draw::preMult(const ruLinear::AffineMatrix& matrix) noexcept { state_.transform_ = matrix * state_.transform_; }

void Draw::setShader(ru::Reference<Shader> shader) { state_.shader_ = std::move(shader); }

void Draw::setMesh(ru::Reference<ruGeom::CompactMesh> mesh, bool useTriangles) {
  if (!mesh) {
    state_.geometry_ = nullptr;
    return;
  }
  const bool triangles = useTriangles && (mesh->hasTriangles() || mesh->hasStrips());
  state_.geometry_ = new MeshGeometry(std::move(mesh), triangles ? MeshGeometry::Triangles : MeshGeometry::Lines);
}

void Draw::setMeshWithFlags(ru::Reference<ruGeom::CompactMesh> mesh, int flags) {
  if (!mesh) {
    state_.geometry_ = nullptr;
    return;
  }
  int kind = (flags & MeshGeometry::Triangles) ? MeshGeometry::Triangles : MeshGeometry::Lines;
  state_.geometry_ = new MeshGeometry(std::move(mesh), kind | (flags & MeshGeometry::UseStrips));
}

void Draw::setTransformer(ru::Reference<Transformer> transformer) { state_.transformer_ = std::move(transformer); }

void Draw::addTag(const ruString::CString& tag) {
  if (!state_.contains(tag)) state_.tags_.push_back(tag);
}

void Draw::removeTag(const ruString::CString& tag) {
  auto& tags = state_.tags_;
  tags.erase(std::remove(tags.begin(), tags.end(), tag), tags.end());
}

void Draw::addTag(const voSupport::Tag* tag) {
  if (tag) addTag(tag->name());
}

void Draw::removeTag(const voSupport::Tag* tag) {
  if (tag) removeTag(tag->name());
}

ru::Reference<DrawItem> Draw::emit() {
  ru::Reference<DrawItem> item(new DrawItem());
  item->copyStateFrom(state_);
  if (data_) {
    item->owner_ = data_->getObjectDrawOwner();
    data_->items_.push_back(item);
  }
  if (DrawSystem* system = context_.getDrawSystem()) {
    if (ru::Reference<Database> database = system->getActiveDatabase()) database->addItem(*item);
  }
  return item;
}

}  // namespace voGR
