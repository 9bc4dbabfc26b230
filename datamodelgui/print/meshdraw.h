#pragma once

#include "datamodelgui/draw/objectdraw.h"
#include "datamodelgui/export.h"
#include "platform/base/reference.h"
#include "platform/graphics/draw.h"

namespace voDMD {
class KLTMesh;
}
namespace ruGeom {
class CompactMesh;
}

namespace voDMG {

class KLTMeshDrawPolicy;

// How a printable mesh looks, decided per part from the mesh's state (thin walls, repair, out of
// bounds) and the interaction (hovered, selected), under the cut-away of the print surface. One
// policy serves every mesh of a document; its only state is the report flag.
class DMGUI_API KLTMeshDrawPolicy : public voGR::DrawPolicy {
public:
  KLTMeshDrawPolicy() = default;
  KLTMeshDrawPolicy(const KLTMeshDrawPolicy&) = default;
  KLTMeshDrawPolicy& operator=(const KLTMeshDrawPolicy&) = default;
  ~KLTMeshDrawPolicy() override;

  // False when the cut-away hides the whole mesh, or the mesh is hidden. Selected meshes are never
  // cut away; in report mode everything is drawn.
  virtual bool shouldDraw(const voDMD::KLTMesh* mesh) const;
  // Emits one part of `mesh` with the colour, shader, clipping planes and hover tags of its state.
  // `thicknessSurfaceCoverage` is not read here.
  virtual void drawMeshPart(voGR::Draw& draw, const voDMD::KLTMesh* mesh, ru::Reference<ruGeom::CompactMesh> part,
                            bool hovered, bool selected, bool showOutOfBounds, double thicknessSurfaceCoverage) const;

  // Report mode: everything in its plain state. Changing it marks nothing; the caller redraws.
  bool getChangeDrawStatesForReport() const noexcept { return changeDrawStatesForReport_; }
  void setChangeDrawStatesForReport(bool on) noexcept { changeDrawStatesForReport_ = on; }

  // Colours by interaction, row (hovered ? 1 : 0) | (selected ? 2 : 0). Writable on purpose.
  static ruUtil::Color baseColors[4];
  static ruUtil::Color needsRepairColors[4];
  static ruUtil::Color repairedColors[4];
  static ruUtil::Color thinColors[4];
  static ruUtil::Color outOfBoundsColors[4];

  // The world-space wall limit `limit` expressed in the coordinates of `mesh`'s object.
  static float minimumThicknessInObject(const voDMD::KLTMesh* mesh, float limit);

private:
  bool changeDrawStatesForReport_ = false;
};

// The drawing of one printable mesh (voDMD::KLTMesh). Keeps the mesh cut into render-ready parts
// of fewer than 65535 vertices, with the per-vertex "thickness" laid on once an analysis exists,
// and hands every part to the KLTMeshDrawPolicy installed for this class. The parts are rebuilt on
// the first draw after a change of the mesh attribute or any transaction on the object.
class DMGUI_API KLTMeshDraw : public ObjectDraw {
public:
  KLTMeshDraw(DocumentDraw* documentDraw, voDMD::KLTMesh* mesh);
  ~KLTMeshDraw() override;

  // Emits every cached part through the policy (building the parts first when there are none),
  // placed by the object's transform. Note the flags: selected first here, hovered first in the
  // policy's drawMeshPart.
  void drawTriangles(voGR::Draw& draw, const KLTMeshDrawPolicy* policy, bool selected, bool hovered);

  // The cached parts, in order; empty before the first draw and after a change. For inspection.
  const ru::vector<ru::Reference<ruGeom::CompactMesh>>& getParts() const;

  // voDMA::isPartThick(mesh) for this drawing's mesh, kept while what it reads stays the same:
  // the analysis state, the thickness values, the model mesh, the printer's limit and the
  // object's placement. A redraw for a hover change then costs no scan of a million corners.
  // The values are checked by a signature (their buffer, count, the attribute's transaction stamp
  // and up to 1024 of them spread evenly, all of them on a small mesh); a change through the
  // attribute's own operations or undo also clears it. `mesh` other than this drawing's mesh is
  // answered by voDMA::isPartThick directly.
  bool isPartThick(const voDMD::KLTMesh* mesh);
  // How many times isPartThick scanned the values rather than answering from what it kept. For
  // tests and diagnostics.
  int thicknessScans() const noexcept;

  // The largest vertex count a part may have, less one.
  static constexpr int kMaxPartVertices = 65535;

protected:
  void onDraw(voGR::DrawContext& context, SelectionIterator selectedBegin, SelectionIterator selectedEnd,
              SelectionIterator hoverBegin, SelectionIterator hoverEnd,
              ru::Reference<voGR::DrawPolicy> policy) override;
  void onObjectModified(const voDMD::Modification& modification) override;
  void onObjectTxnModified() override;
  // For subclasses; not called from onDraw. Releases the policy and does nothing else.
  virtual void drawExtra(voGR::Draw& draw, SelectionIterator selectedBegin, SelectionIterator selectedEnd,
                         SelectionIterator hoverBegin, SelectionIterator hoverEnd,
                         ru::Reference<voGR::DrawPolicy> policy);

  // The first attribute of the object that is a KLTMesh; null when none is.
  const voDMD::KLTMesh* getMesh() const;
  // Fills the cached parts from the model mesh.
  void computeMeshes();

private:
  class DrawImpl;
  DrawImpl* impl_;
  bool ownsImpl_;
};

// The per-vertex thickness of `mesh` from per-corner values `corners` (three a triangle): every
// vertex starts at the largest corner value; then, corner by corner in triangle order, a vertex
// whose value is negative or above the corner's takes the corner's value.
DMGUI_API void fillVertexThickness(const ruGeom::CompactMesh& mesh, const float* corners, std::size_t numCorners,
                                   float* vertexValues);

}  // namespace voDMG
