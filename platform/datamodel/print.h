#pragma once

#include "platform/base/linear.h"
#include "platform/datamodel/attributes.h"
#include "platform/datamodel/document.h"
#include "platform/datamodel/meshhealth.h"
#include "platform/geometry/mesh.h"

#include <array>
#include <cstdint>
#include <deque>
#include <vector>

// Printing: printable meshes with their analyses, the printer, and selections of mesh parts.
namespace voDMD {

// A selection of parts of one printable mesh: vertex and face indices in insertion order,
// duplicates allowed. Edited in place; shared by reference.
class VO_DMD_API KLTSelection : public ru::ReferenceCount {
public:
  KLTSelection() = default;

  std::deque<unsigned int>& vertices() noexcept { return vertices_; }
  const std::deque<unsigned int>& vertices() const noexcept { return vertices_; }
  std::deque<unsigned int>& faces() noexcept { return faces_; }
  const std::deque<unsigned int>& faces() const noexcept { return faces_; }

private:
  std::deque<unsigned int> vertices_;
  std::deque<unsigned int> faces_;
};

// What KLTMesh::getMesh hands out: the attribute's own mesh, read-only. Callers that want a
// ru::Reference<ruGeom::CompactMesh> (to draw it, split it or edit it) get a fresh mesh sharing
// its buffers: nothing is copied, and a write detaches the caller's buffers, never the attribute's.
class KLTMeshReference : public ru::Reference<const ruGeom::CompactMesh> {
public:
  using ru::Reference<const ruGeom::CompactMesh>::Reference;
  KLTMeshReference(const ru::Reference<const ruGeom::CompactMesh>& mesh) noexcept
      : ru::Reference<const ruGeom::CompactMesh>(mesh) {}

  // Null for an attribute without a mesh.
  operator ru::Reference<ruGeom::CompactMesh>() const {
    if (!get()) return nullptr;
    return ru::Reference<ruGeom::CompactMesh>(new ruGeom::CompactMesh(*get()));
  }
};

// A printable mesh and what is known of it: visibility, placement within the printer, wall
// thickness and health. The mesh is in the object's coordinates; its object's Transform places it.
// Transacted: replacing the mesh, showing and hiding, analyses and repairs can all be undone.
class VO_DMD_API KLTMesh : public Attribute {
public:
  // The mesh, for reading only: the attribute never changes it in place, so a reader may keep it.
  // Null only for an attribute made without one. To change the mesh, edit a copy (copies share
  // the buffers until written) and hand it to setMesh.
  // Converts to ru::Reference<ruGeom::CompactMesh> as a copy sharing the buffers (see above).
  KLTMeshReference getMesh() const noexcept { return mesh_; }
  // Replaces the mesh (undoably); the thickness analysis and the repair state start over. The
  // attribute keeps its own copy of `mesh` sharing its buffers, so later writes to `mesh` by the
  // caller detach them and do not reach the attribute.
  void setMesh(const ru::Reference<ruGeom::CompactMesh>& mesh);

  bool visible() const noexcept { return visible_; }
  void setVisible(bool visible);

  // Wall thickness at each triangle corner, three values a triangle in triangle order, in the
  // mesh's coordinates; negative where no opposite wall was found. Filled by analyseThickness();
  // read it only while needsAnalyseThickness() is false. Change it through analyseThickness().
  std::vector<float> thickness;
  // True until a thickness analysis of the current mesh is available.
  bool needsAnalyseThickness() const noexcept { return !thicknessValid_; }
  // Measures the wall thickness by casting a ray inward from each triangle corner, against the
  // face's normal, to the first wall it meets. Transacted; fires the owner's modification signal.
  // False for an attribute without a mesh.
  bool analyseThickness();

  // True when the mesh has open, non-manifold or inconsistently oriented edges, or degenerate or
  // duplicate triangles. Stays true after a repair: needsRepair() and isRepaired() together say
  // "repaired".
  bool needsRepair() const;
  bool isRepaired() const noexcept { return repaired_; }
  // Repairs the mesh (see voDMA::repairMesh) when it needs it, replacing it with the repaired one and
  // setting isRepaired(). Transacted. The repaired mesh keeps the texture coordinates, colours,
  // lines and named attributes of the vertices it keeps; normals are computed again. `report`,
  // when given, receives what the repair did and what it could not fix. False when there was
  // nothing to repair (the report is then left alone).
  bool repair(voDMA::MeshRepairReport* report = nullptr);

  // True when the mesh's world box passes the printer's useable volume on some side.
  bool isOutOfBounds() const noexcept { return outOfBoundsFaces_ != 0; }
  // The sides passed, a bit each: -X, +X, -Y, +Y, bottom, top (bit 0 to 5).
  unsigned outOfBoundsFaces() const noexcept { return outOfBoundsFaces_; }

  // The live selection `subObject` carries when it is a selection of this mesh; null otherwise.
  ru::Reference<KLTSelection> asSelection(const SubObject& subObject) const;
  // A sub-object of this mesh's object carrying `selection` itself (not a copy).
  SubObject selectionAsSubObject(const ru::Reference<KLTSelection>& selection) const;

  void onTransact(voTXN::Serializer& serializer) override;

private:
  friend class voDMD::Object;
  friend class KLTDecoration;
  KLTMesh(voDMD::Object* owner, ru::Reference<ruGeom::CompactMesh> mesh = nullptr);
  void onTxnRestored() override;
  void onSiblingModified(Attribute* sibling) override;
  void refreshPlacement(bool withPrinter);

  // Transacted.
  ru::Reference<ruGeom::CompactMesh> mesh_;
  bool visible_ = true;
  bool thicknessValid_ = false;
  bool repaired_ = false;
  // Derived.
  mutable int health_ = -1;  // -1 unknown, 0 healthy, 1 needs repair
  unsigned outOfBoundsFaces_ = 0;
  bool outOfBoundsChanged_ = false;
  // What this mesh counts for in the decoration's totals, and for which count of them.
  unsigned contribution_ = 0;
  std::uint64_t contributionGeneration_ = 0;
};

// The world box of a printable mesh.
class VO_DMD_API KLTMeshBBox : public BoundingBox {
private:
  friend class voDMD::Object;
  explicit KLTMeshBBox(voDMD::Object* owner) : BoundingBox(owner) {}
  void collectMeshes(ru::vector<const ruGeom::CompactMesh*>& meshes) const override;
};

// The printer: its useable and total volumes (world coordinates), whether a real one is connected,
// and the thinnest wall it prints. Transacted, except `minimumThickness` written directly.
class VO_DMD_API KLTPrinter : public Attribute {
public:
  const ruLinear::Range3d& useableVolume() const noexcept { return useable_; }
  const ruLinear::Range3d& totalVolume() const noexcept { return total_; }
  void setVolumes(const ruLinear::Range3d& useable, const ruLinear::Range3d& total);
  bool connected() const noexcept { return connected_; }
  void setConnected(bool connected);
  // The world-space wall thickness below which a part counts as thin (millimetres).
  double minimumThickness = 0.8;
  // Sets minimumThickness as an undoable edit.
  void setMinimumThickness(double thickness);

  // True when some visible printable mesh of the document passes the useable volume.
  bool outOfBounds() const;

  void onTransact(voTXN::Serializer& serializer) override;

private:
  friend class voDMD::Object;
  friend class KLTDecoration;
  KLTPrinter(voDMD::Object* owner, const ruLinear::Range3d& useable, const ruLinear::Range3d& total);
  void onTxnPreSerialized() override;
  void onTxnRestored() override;

  struct Values {
    ruLinear::Range3d useable;
    ruLinear::Range3d total;
    bool connected = false;
    double minimumThickness = 0.0;
  };
  Values before_;  // the values before the record now being restored
  ruLinear::Range3d useable_;
  ruLinear::Range3d total_;
  bool connected_ = false;
};

// The document's print decoration: the printer, and the bookkeeping that keeps every printable
// mesh's out-of-bounds state and the printer's current.
class VO_DMD_API KLTDecoration {
public:
  // The decoration of the current document (see Document::current()), or null.
  static KLTDecoration* get();

  // The printer: the KLTPrinter of the first printer object in the document; null when none.
  KLTPrinter* getPrinter() const;
  // The sides of the useable volume passed by some visible printable mesh (bits as in
  // KLTMesh::outOfBoundsFaces()).
  unsigned outOfBoundsFaces() const noexcept { return faces_; }
  // How many times getPrinter() has walked the document to find the printer (it keeps the answer
  // until a subtree holding a printer comes or goes); for diagnostics and tests.
  std::uint64_t printerSearches() const noexcept { return printerSearches_; }

private:
  friend class Document;
  friend class KLTMesh;
  friend class KLTPrinter;
  explicit KLTDecoration(Document& document) : document_(document) {}
  void objectChanged(Object* object);
  void recomputeAll();
  unsigned facesPassed(const KLTMesh* mesh) const;
  void updateMesh(KLTMesh* mesh, bool notify);
  void updatePrinter();

  Document& document_;
  // For each side, how many visible meshes in the tree pass it; recounted from scratch after undo,
  // redo and printer changes (a new generation), kept up incrementally otherwise.
  std::array<int, 6> counts_{};
  std::uint64_t generation_ = 1;
  unsigned faces_ = 0;
  bool updating_ = false;
  mutable KLTPrinter* printer_ = nullptr;
  mutable bool printerValid_ = false;
  mutable std::uint64_t printerSearches_ = 0;
};

// Building objects. Each makes an object of the right class with its attributes, ready to insert.
// A plain mesh object: Mesh, Transform, BoundingBox.
VO_DMD_API ru::Reference<Object> createMeshObject(Document& document, ru::Reference<ruGeom::CompactMesh> mesh,
                                                  const ruLinear::AffineMatrix& objToWorld = ruLinear::AffineMatrix::Identity);
// A printable mesh object: KLTMesh, Transform, KLTMeshBBox.
VO_DMD_API ru::Reference<Object> createKLTMeshObject(Document& document, ru::Reference<ruGeom::CompactMesh> mesh,
                                                     const ruLinear::AffineMatrix& objToWorld = ruLinear::AffineMatrix::Identity);
// A printer object: KLTPrinter.
VO_DMD_API ru::Reference<Object> createPrinterObject(Document& document, const ruLinear::Range3d& useableVolume,
                                                     const ruLinear::Range3d& totalVolume);

} // namespace voDMD
