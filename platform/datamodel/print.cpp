#include "platform/datamodel/print.h"

#include "platform/datamodel/actions.h"
#include "platform/datamodel/editscope.h"
#include "platform/geometry/algorithms.h"

namespace voDMD {

using detail::EditScope;

// --- KLTMesh ---------------------------------------------------------------------------------

KLTMesh::KLTMesh(voDMD::Object* owner, ru::Reference<ruGeom::CompactMesh> mesh)
    : Attribute(owner), mesh_(detail::ownMesh(mesh.get())) {}

void KLTMesh::setMesh(const ru::Reference<ruGeom::CompactMesh>& mesh) {
  EditScope scope(*txnManager(), "Replace mesh");
  txnWillWrite();
  mesh_ = detail::ownMesh(mesh.get());
  thickness.clear();
  thicknessValid_ = false;
  repaired_ = false;
  health_ = -1;
  refreshPlacement(true);
  modified();
}

void KLTMesh::setVisible(bool visible) {
  if (visible == visible_) return;
  EditScope scope(*txnManager(), visible ? "Show" : "Hide");
  txnWillWrite();
  visible_ = visible;
  refreshPlacement(true);
  modified();
}

void KLTMesh::refreshPlacement(bool withPrinter) {
  // The box depends on the mesh and the transform; the state must be current when the change is
  // announced, whatever order the attributes hear of it in.
  if (BoundingBox* box = owner()->findAttribute<KLTMeshBBox>()) box->invalidate();
  owner()->document()->decoration().updateMesh(this, false);
  if (withPrinter) owner()->document()->decoration().updatePrinter();
}

bool KLTMesh::analyseThickness() {
  if (!mesh_) return false;
  std::vector<float> measured = voDMA::computeThickness(*mesh_);
  EditScope scope(*txnManager(), "Analyse thickness");
  txnWillWrite();
  thickness = std::move(measured);
  thicknessValid_ = true;
  modified();
  return true;
}

bool KLTMesh::needsRepair() const {
  if (repaired_) return true;
  if (health_ < 0) health_ = (mesh_ && !voDMA::analyseMeshHealth(*mesh_).healthy()) ? 1 : 0;
  return health_ == 1;
}

namespace {

// Gives each vertex from `first` on (those the repair appended) the values of its source.
template <class T>
void copyAppended(const T* from, T* to, const std::vector<std::uint32_t>& sources, std::size_t first) {
  for (std::size_t v = first; v < sources.size(); ++v) to[v] = from[sources[v]];
}

// The repaired mesh: positions and triangles from the repair; texture coordinates, colours, lines
// and named attributes of the source kept (the vertices the repair appended copy them from their
// sources); normals computed again, since triangles may have turned; strips dropped, since the
// triangles they stand for changed.
ru::Reference<ruGeom::CompactMesh> rebuild(const ruGeom::CompactMesh& source, const std::vector<float>& positions,
                                           const std::vector<std::uint32_t>& triangles,
                                           const std::vector<std::uint32_t>& sources) {
  ru::Reference<ruGeom::CompactMesh> repaired(new ruGeom::CompactMesh(source));
  const std::size_t before = static_cast<std::size_t>(source.getNumVertices());
  const std::size_t count = positions.size() / 3;
  repaired->clearStrips();
  repaired->clearNormals();
  if (count != before) {
    repaired->setNumVertices(static_cast<int>(count));
    ruGeom::MeshVertex* v = repaired->editVertices();
    for (std::size_t i = before; i < count; ++i) v[i] = ruGeom::MeshVertex(positions[3 * i], positions[3 * i + 1], positions[3 * i + 2]);
    if (source.hasTextureCoordinates()) {
      copyAppended(source.getTextureCoordinates(), repaired->editTextureCoordinates(), sources, before);
    }
    if (source.hasColors()) copyAppended(source.getColors(), repaired->editColors(), sources, before);
    for (int a = 0; a < source.getNumAttributes(); ++a) {
      const ruGeom::MeshAttributeEntry& entry = source.getAttributeEntry(a);
      const ruGeom::MeshAttributes from = source.getAttributes(entry.name);
      const ruGeom::WritableMeshAttributes to = repaired->editAttributes(entry.name);
      if (!from.valid() || !to.valid()) continue;
      const auto width = static_cast<std::size_t>(from.getWidth());
      for (std::size_t i = before; i < count; ++i) {
        std::copy_n(from.asFloat() + width * sources[i], width, to.editFloat() + width * i);
      }
    }
  }
  repaired->setNumTriangles(static_cast<int>(triangles.size() / 3));
  std::copy(triangles.begin(), triangles.end(), repaired->editTriangles());
  ruGeom::meshComputeNormals(*repaired);
  return repaired;
}

} // namespace

bool KLTMesh::repair(voDMA::MeshRepairReport* report) {
  if (!mesh_ || repaired_ || !needsRepair()) return false;
  const ruGeom::CompactMesh& source = *mesh_;
  // Vertices are three packed floats, the layout the repair works on.
  const float* first = reinterpret_cast<const float*>(source.getVertices());
  std::vector<float> positions(first, first + 3 * static_cast<std::size_t>(source.getNumVertices()));
  std::vector<std::uint32_t> triangles(source.getTriangles(), source.getTriangles() + 3 * source.getNumTriangles());
  const Tolerances& tolerances = owner()->document()->getToleranceTable();
  std::vector<std::uint32_t> sources;
  const voDMA::MeshRepairReport done =
      voDMA::repairMesh(positions, triangles, static_cast<std::size_t>(std::max(0, tolerances.maxHoleEdges)), &sources);
  if (report) *report = done;
  ru::Reference<ruGeom::CompactMesh> repaired = rebuild(source, positions, triangles, sources);

  EditScope scope(*txnManager(), "Repair");
  txnWillWrite();
  mesh_ = repaired;
  thickness.clear();
  thicknessValid_ = false;
  repaired_ = true;
  health_ = -1;
  refreshPlacement(true);
  modified();
  return true;
}

ru::Reference<KLTSelection> KLTMesh::asSelection(const SubObject& subObject) const {
  if (subObject.owner() != owner() || subObject.kind() != SubObject::Selection) return nullptr;
  return ru::Reference<KLTSelection>(dynamic_cast<KLTSelection*>(subObject.payload()));
}

SubObject KLTMesh::selectionAsSubObject(const ru::Reference<KLTSelection>& selection) const {
  if (!selection) return SubObject();
  return SubObject(owner(), SubObject::Selection, ru::Reference<ru::ReferenceCount>(selection.get()));
}

void KLTMesh::onTransact(voTXN::Serializer& serializer) {
  serializer.beginScope(this, 0);
  Attribute::onTransact(serializer);
  serializer.field(mesh_);
  serializer.field(visible_);
  serializer.field(thickness);
  serializer.field(thicknessValid_);
  serializer.field(repaired_);
  serializer.endScope();
}

void KLTMesh::onTxnRestored() {
  health_ = -1;
  Attribute::onTxnRestored();
}

void KLTMesh::onSiblingModified(Attribute* sibling) {
  // A move changes the placement in the printer; it must be current when the move is announced.
  // The printer's totals follow once the move has been announced.
  if (dynamic_cast<Transform*>(sibling)) refreshPlacement(false);
}

// --- KLTMeshBBox -----------------------------------------------------------------------------

void KLTMeshBBox::collectMeshes(ru::vector<const ruGeom::CompactMesh*>& meshes) const {
  if (const KLTMesh* mesh = owner()->findAttribute<KLTMesh>(); mesh && mesh->getMesh()) {
    meshes.push_back(mesh->getMesh().get());
  }
}

// --- KLTPrinter ------------------------------------------------------------------------------

KLTPrinter::KLTPrinter(voDMD::Object* owner, const ruLinear::Range3d& useable, const ruLinear::Range3d& total)
    : Attribute(owner), useable_(useable), total_(total) {}

void KLTPrinter::setVolumes(const ruLinear::Range3d& useable, const ruLinear::Range3d& total) {
  if (useable == useable_ && total == total_) return;
  EditScope scope(*txnManager(), "Printer volume");
  txnWillWrite();
  useable_ = useable;
  total_ = total;
  modified();
}

void KLTPrinter::setConnected(bool connected) {
  if (connected == connected_) return;
  EditScope scope(*txnManager(), connected ? "Connect printer" : "Disconnect printer");
  txnWillWrite();
  connected_ = connected;
  modified();
}

void KLTPrinter::setMinimumThickness(double thickness) {
  if (thickness == minimumThickness) return;
  EditScope scope(*txnManager(), "Minimum thickness");
  txnWillWrite();
  minimumThickness = thickness;
  modified();
}

bool KLTPrinter::outOfBounds() const {
  const KLTDecoration& decoration = owner()->document()->decoration();
  return decoration.getPrinter() == this && decoration.outOfBoundsFaces() != 0;
}

void KLTPrinter::onTransact(voTXN::Serializer& serializer) {
  serializer.beginScope(this, 0);
  Attribute::onTransact(serializer);
  serializer.field(useable_);
  serializer.field(total_);
  serializer.field(connected_);
  serializer.field(minimumThickness);
  serializer.endScope();
}

void KLTPrinter::onTxnPreSerialized() {
  before_ = Values{useable_, total_, connected_, minimumThickness};
}

void KLTPrinter::onTxnRestored() {
  // A record kept only to mark the printer touched restores nothing: no modification for it (the
  // decoration announces the out-of-bounds change itself).
  const Values now{useable_, total_, connected_, minimumThickness};
  if (now.useable == before_.useable && now.total == before_.total && now.connected == before_.connected &&
      now.minimumThickness == before_.minimumThickness) {
    return;
  }
  Attribute::onTxnRestored();
}

// --- KLTDecoration ---------------------------------------------------------------------------

KLTDecoration* KLTDecoration::get() {
  Document* document = Document::current();
  return document ? &document->decoration() : nullptr;
}

KLTPrinter* KLTDecoration::getPrinter() const {
  if (printerValid_) return printer_;
  printer_ = nullptr;
  ++printerSearches_;
  for (ObjectIterator it(document_.root()); (it.next(), it.valid());) {
    if (KLTPrinter* printer = it.getObject()->findAttribute<KLTPrinter>()) {
      printer_ = printer;
      break;
    }
  }
  printerValid_ = true;
  return printer_;
}

unsigned KLTDecoration::facesPassed(const KLTMesh* mesh) const {
  const KLTPrinter* printer = getPrinter();
  const KLTMeshBBox* box = mesh->owner()->findAttribute<KLTMeshBBox>();
  if (!printer || !box) return 0;
  const ruLinear::Range3d world = box->getWorldSpace();
  const ruLinear::Range3d& volume = printer->useableVolume();
  if (!world.isValid() || !volume.isValid()) return 0;
  const double tolerance = document_.getToleranceTable().outOfBounds;
  unsigned faces = 0;
  for (int axis = 0; axis < 3; ++axis) {
    if (world.getMin(axis) < volume.getMin(axis) - tolerance) faces |= 1u << (2 * axis);
    if (world.getMax(axis) > volume.getMax(axis) + tolerance) faces |= 1u << (2 * axis + 1);
  }
  return faces;
}

void KLTDecoration::updateMesh(KLTMesh* mesh, bool notify) {
  const unsigned faces = facesPassed(mesh);
  if (faces != mesh->outOfBoundsFaces_) {
    mesh->outOfBoundsFaces_ = faces;
    mesh->outOfBoundsChanged_ = true;
  }
  // What the mesh adds to the printer's state: its faces while it is visible and in the tree.
  const unsigned contribution = (mesh->visible() && mesh->owner()->isInDocument()) ? faces : 0;
  const unsigned previous = mesh->contributionGeneration_ == generation_ ? mesh->contribution_ : 0;
  if (contribution != previous) {
    for (int bit = 0; bit < 6; ++bit) {
      if (previous & (1u << bit)) --counts_[bit];
      if (contribution & (1u << bit)) ++counts_[bit];
    }
  }
  mesh->contribution_ = contribution;
  mesh->contributionGeneration_ = generation_;
  if (notify && mesh->outOfBoundsChanged_) {
    mesh->outOfBoundsChanged_ = false;
    mesh->modified();
  }
}

void KLTDecoration::objectChanged(Object* object) {
  if (updating_) return;
  updating_ = true;
  // Which printer is the document's changes only when a subtree holding one comes or goes (found
  // below); other objects, in the tree or not (the camera's holder), leave the cached one.
  if (object->findAttribute<KLTPrinter>()) {
    printerValid_ = false;
    updating_ = false;
    recomputeAll();
    return;
  }
  bool printerMoved = false;
  for (ObjectIterator it(object); it.valid(); it.next()) {
    if (KLTMesh* mesh = it.getObject()->findAttribute<KLTMesh>()) updateMesh(mesh, true);
    if (it.getObject()->findAttribute<KLTPrinter>()) printerMoved = true;
  }
  updating_ = false;
  // A printer inside the subtree came or went: every mesh is measured against another volume.
  if (printerMoved) {
    recomputeAll();
    return;
  }
  updatePrinter();
}

void KLTDecoration::recomputeAll() {
  if (updating_) return;
  updating_ = true;
  printerValid_ = false;
  ++generation_;
  counts_.fill(0);
  for (ObjectIterator it(document_.root()); (it.next(), it.valid());) {
    if (KLTMesh* mesh = it.getObject()->findAttribute<KLTMesh>()) updateMesh(mesh, true);
  }
  updating_ = false;
  updatePrinter();
}

void KLTDecoration::updatePrinter() {
  unsigned faces = 0;
  for (int bit = 0; bit < 6; ++bit) {
    if (counts_[bit] > 0) faces |= 1u << bit;
  }
  if (faces == faces_) return;
  faces_ = faces;
  // The printer draws its out-of-bounds sides: it hears of every change of them, and counts as
  // touched by the transaction that made it (recorded unchanged), so its transaction signal fires
  // at the commit and again at undo and redo.
  if (KLTPrinter* printer = getPrinter()) {
    updating_ = true;
    if (printer->txnManager()->isOpen()) printer->txnWillWrite();
    printer->modified();
    updating_ = false;
  }
}

// --- Building objects ------------------------------------------------------------------------

ru::Reference<Object> createMeshObject(Document& document, ru::Reference<ruGeom::CompactMesh> mesh,
                                       const ruLinear::AffineMatrix& objToWorld) {
  ru::Reference<Object> object = Object::create(document, MeshClass::get());
  object->addAttribute<Mesh>(std::move(mesh));
  object->addAttribute<Transform>(objToWorld);
  object->addAttribute<BoundingBox>();
  return object;
}

ru::Reference<Object> createKLTMeshObject(Document& document, ru::Reference<ruGeom::CompactMesh> mesh,
                                          const ruLinear::AffineMatrix& objToWorld) {
  ru::Reference<Object> object = Object::create(document, KLTMeshClass::get());
  object->addAttribute<KLTMesh>(std::move(mesh));
  object->addAttribute<Transform>(objToWorld);
  object->addAttribute<KLTMeshBBox>();
  return object;
}

ru::Reference<Object> createPrinterObject(Document& document, const ruLinear::Range3d& useableVolume,
                                          const ruLinear::Range3d& totalVolume) {
  ru::Reference<Object> object = Object::create(document, KLTPrinterClass::get());
  object->addAttribute<KLTPrinter>(useableVolume, totalVolume);
  return object;
}

} // namespace voDMD
