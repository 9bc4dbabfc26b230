#include "datamodelgui/draw/objectdraw.h"

#include "datamodelgui/draw/documentdraw.h"
#include "datamodelgui/snap/snapitems.h"
#include "datamodelgui/snap/snapmodel.h"
#include "platform/datamodel/attributes.h"
#include "platform/datamodel/document.h"
#include "platform/geometry/algorithms.h"
#include "platform/graphics/draw.h"
#include "platform/graphics/shader.h"
#include "platform/support/callinfo.h"
#include "platform/support/debug.h"

#include <cstdint>

namespace voDMG {

// ---------------------------------------------------------------------------------------------
// ObjectDraw

ObjectDraw::ObjectDraw(DocumentDraw* documentDraw, voDMD::Object* object)
    : documentDraw_(documentDraw), object_(object) {
  object_->sigModified.connect(this, &ObjectDraw::onObjectModified, client_);
  object_->sigTxnModified.connect(this, &ObjectDraw::onObjectTxnModified_, client_);
  declareDrawDataSource(this);
}

ObjectDraw::~ObjectDraw() {
  // Destroying the draw data is what takes this object's items out of the database.
  for (auto& entry : drawDataSources_) delete entry.second;
  drawDataSources_.clear();
  if (cameraConnection_) {
    if (auto* camera = voSupport::ci().find<voDMD::Camera>()) camera->sigCameraChanged.disconnect(cameraConnection_);
    cameraConnection_ = nullptr;
  }
}

void ObjectDraw::draw(voGR::DrawContext& context, SelectionIterator selectedBegin, SelectionIterator selectedEnd,
                      SelectionIterator hoverBegin, SelectionIterator hoverEnd, ru::Reference<voGR::DrawPolicy> policy) {
  if (!modified_) return;
  onDraw(context, selectedBegin, selectedEnd, hoverBegin, hoverEnd, std::move(policy));
  // Cleared after onDraw: a mark set while drawing is lost, on purpose.
  modified_ = false;
}

void ObjectDraw::setModified() {
  modified_ = true;
  if (documentDraw_) documentDraw_->setModified();
}

void ObjectDraw::setViewDependent(bool on) {
  if (on == viewDependent_) return;
  viewDependent_ = on;
  auto* camera = voSupport::ci().find<voDMD::Camera>();
  if (!camera) return;
  if (on) {
    cameraConnection_ = camera->sigCameraChanged.connect(this, &ObjectDraw::onCameraChanged, client_);
  } else if (cameraConnection_) {
    camera->sigCameraChanged.disconnect(cameraConnection_);
    cameraConnection_ = nullptr;
  }
}

void ObjectDraw::onCameraChanged(ruGeom::Camera*) { setModified(); }

void ObjectDraw::declareDrawDataSource(void* source) {
  auto* system = voSupport::ci().find<voGR::DrawSystem>();
  if (!system || drawDataSources_.count(source)) return;
  voGR::DrawData* data = system->getDrawData(source, true);
  if (!data) return;
  // Its items answer this object when hit.
  data->setObjectDrawOwner(this);
  drawDataSources_[source] = data;
}

voGR::DrawData* ObjectDraw::getDrawData(void* source) const {
  auto found = drawDataSources_.find(source);
  return found == drawDataSources_.end() ? nullptr : found->second;
}

SelectionItem ObjectDraw::getItem(const voGR::HitRecord&) { return SelectionItem(object_); }

SelectionItem ObjectDraw::getSubObjectItem(const voGR::HitRecord& hit) { return onGetSubObjectItem(hit); }

SelectionItem ObjectDraw::onGetSubObjectItem(const voGR::HitRecord&) { return SelectionItem(); }

ru::Reference<SnapItemFactory> ObjectDraw::createSnapItemFactory(const voGR::HitRecord& hit) {
  return onCreateSnapItemFactory(hit);
}

ru::Reference<SnapItemFactory> ObjectDraw::onCreateSnapItemFactory(const voGR::HitRecord&) { return nullptr; }

void ObjectDraw::onObjectModified(const voDMD::Modification&) { setModified(); }

void ObjectDraw::onObjectTxnModified() {}

void ObjectDraw::onObjectTxnModified_(const voDMD::Object*) {
  // Every transaction on the object redraws it; the subclass hears of it with the mark set.
  setModified();
  onObjectTxnModified();
}

// ---------------------------------------------------------------------------------------------
// MeshDraw

const ruUtil::Color MeshDraw::kDefaultColor{0.5f, 0.5f, 0.7f, 1.0f};
const ruUtil::Color8 MeshDraw::kSelectedColor{0xFFA564F0u};
const ruUtil::Color8 MeshDraw::kHoverColor{0xFFFFFFFFu};

MeshDraw::MeshDraw(DocumentDraw* documentDraw, voDMD::Mesh* mesh) : ObjectDraw(documentDraw, mesh->owner()) {
  voSupport::Debug::getInstance().sigChannelChanged.connect(this, &MeshDraw::onDebugChannel, client_);
}

MeshDraw::~MeshDraw() = default;

void MeshDraw::onDebugChannel(int code) {
  // Toggling the wireframe channel redraws with or without the overlay.
  if (code == voSupport::DebugWireframe) setModified();
}

SelectionItem MeshDraw::onGetSubObjectItem(const voGR::HitRecord&) { return SelectionItem(getObject()); }

namespace {

// The wireframe's lines: the three edges of every triangle.
void fillTriangleEdges(ruGeom::CompactMesh& mesh) {
  const int triangles = mesh.getNumTriangles();
  mesh.setNumLines(3 * triangles);
  std::uint32_t* lines = mesh.editLines();
  const std::uint32_t* t = mesh.getTriangles();
  for (int i = 0; i < triangles; ++i, t += 3, lines += 6) {
    lines[0] = t[0], lines[1] = t[1];
    lines[2] = t[1], lines[3] = t[2];
    lines[4] = t[2], lines[5] = t[0];
  }
}

// The edges with no neighbouring triangle, as lines over the same vertices.
ru::Reference<ruGeom::CompactMesh> openEdges(const ruGeom::CompactMesh& mesh) {
  ruGeom::MeshTriAdjTrisDynamic adjacency;
  ruGeom::meshTriAdjTris(mesh, adjacency);
  ru::Reference<ruGeom::CompactMesh> edges = new ruGeom::CompactMesh();
  edges->shareVertices(mesh);
  const std::uint32_t* t = mesh.getTriangles();
  for (int i = 0; i < mesh.getNumTriangles(); ++i, t += 3) {
    // Edge 0 is (a, b), edge 1 (b, c), edge 2 (c, a).
    for (int edge = 0; edge < 3; ++edge) {
      if (adjacency.neighbour(i, edge) == -1) edges->addLine(t[edge], t[(edge + 1) % 3]);
    }
  }
  return edges;
}

}  // namespace

void MeshDraw::onDraw(voGR::DrawContext& context, SelectionIterator selectedBegin, SelectionIterator selectedEnd,
                      SelectionIterator hoverBegin, SelectionIterator hoverEnd, ru::Reference<voGR::DrawPolicy>) {
  voDMD::Object* object = getObject();
  voDMD::Mesh* mesh = object->findAttribute<voDMD::Mesh>();
  // Opening the Draw drops the items emitted before: returning without emitting hides the object.
  voGR::Draw draw(context, this, false);
  draw.setDebugString("Mesh");
  if (!mesh || !mesh->visible()) return;
  const int count = mesh->numSubMeshes();
  if (count < 1) return;
  const bool selected = selectedBegin != selectedEnd;
  const bool hovered = hoverBegin != hoverEnd;
  const voDMD::Transform* transform = object->findAttribute<voDMD::Transform>();
  const bool overlay = voSupport::Debug::getInstance()->isEnabled(voSupport::DebugWireframe);

  for (int i = 0; i < count; ++i) {
    // A private copy for the item: it shares the attribute's buffers until normals or strips are
    // written, which detach only those.
    ru::Reference<ruGeom::CompactMesh> copy = new ruGeom::CompactMesh();
    *copy = mesh->getSubMesh(i);
    if (!copy->hasNormals()) ruGeom::meshComputeNormals(*copy);
    if (!copy->hasStrips()) {
      ruGeom::MeshAdjTris adjacency;
      ruGeom::meshAdjTris(*copy, adjacency);
      ruGeom::MeshTriStrip(*copy, adjacency).computeStrips(128, 0);
    }
    // The label tells which sub-mesh a hit belongs to.
    draw.setLabel(i);
    draw.setType(0);
    draw.setDepthInteraction(0);
    draw.setMeshWithFlags(copy, 5);
    draw.setDrawable(true);
    draw.setSubItem(true);
    if (transform) draw.setTransform(transform->getObjToWorld());
    // The active flag is what puts the item in the selected world, where it glows.
    draw.setActive(selected || hovered);
    if (selected) {
      draw.setColor(kSelectedColor);
    } else if (hovered) {
      draw.setColor(kHoverColor);
    } else {
      draw.setColor(kDefaultColor);
    }

    const voRES::ImageKey key = mesh->getSubMeshImageKey(i);
    if (copy->hasTextureCoordinates() && key.valid()) {
      ru::Reference<voGR::UVTextureShader> shader = new voGR::UVTextureShader();
      shader->texture.setImageKey(key, false);
      shader->color = ruUtil::Color(1.0f, 1.0f, 1.0f, 1.0f);
      shader->backColor = ruUtil::Color(1.0f, 1.0f, 1.0f, 1.0f);
      draw.setShader(shader);
    } else if (copy->hasColors()) {
      draw.setShader(new voGR::VertexColorShader());
    } else {
      ru::Reference<voGR::LambertShader> shader = new voGR::LambertShader();
      shader->color = ruUtil::Color(0.67f, 0.67f, 0.67f, 1.0f);
      draw.setShader(shader);
    }
    // The only pickable items.
    draw.setPickable(true);
    draw.emit();
    draw.setShader(nullptr);

    if (overlay) {
      fillTriangleEdges(*copy);
      draw.setPickable(false);
      draw.setColor(0.2f, 0.1f, 0.0f, 0.1f);
      draw.setMesh(copy, false);
      draw.emit();

      ru::Reference<voGR::SolidColorShader> edgeShader = new voGR::SolidColorShader();
      edgeShader->color = ruUtil::Color(1.0f, 1.0f, 0.0f, 1.0f);
      edgeShader->lineWidth = 2.0f;
      draw.setShader(edgeShader);
      draw.setColor(ruUtil::Color::white);
      draw.setMesh(openEdges(*copy), false);
      draw.emit();
      // The next sub-mesh starts with no shader.
      draw.setShader(nullptr);
    }
  }
}

ru::Reference<SnapItemFactory> MeshDraw::onCreateSnapItemFactory(const voGR::HitRecord&) {
  voDMD::Mesh* mesh = getObject() ? getObject()->findAttribute<voDMD::Mesh>() : nullptr;
  if (!mesh) return nullptr;
  return ru::Reference<SnapItemFactory>(new MeshSnapFactory(mesh));
}

}  // namespace voDMG
