#pragma once
// A document with the print classes registered as a host registers them: voDMG::initialize with a
// broadcaster in the call info, then RegisterObjectDrawMsg. The settings of the mesh drawing and a
// tag registry are entered too, and a document surface that offers cut-away planes can be put in.
#include "../draw/drawfixture.h"
#include "datamodelgui/draw/surfacedraw.h"
#include "datamodelgui/print/clipping.h"
#include "datamodelgui/print/meshdraw.h"
#include "datamodelgui/print/printerdraw.h"
#include "platform/datamodel/print.h"
#include "platform/geometry/construct.h"
#include "platform/graphics/shader.h"
#include "platform/support/broadcaster.h"
#include "platform/support/settings.h"
#include "platform/support/tags.h"

#include <typeinfo>

namespace printtest {

// A plain document surface that also hands out a list of cut-away planes.
class PlaneSurface : public voDMG::DefaultDocumentSurfaceDraw, public voDMG::ClippingPlaneSource {
public:
  using DefaultDocumentSurfaceDraw::DefaultDocumentSurfaceDraw;
  voDMG::ClippingPlaneList planes() const override { return list; }
  voDMG::ClippingPlaneList list;
};

inline ruLinear::AffineMatrix translation(double x, double y, double z) {
  ruLinear::AffineMatrix matrix;
  matrix.translate(ruLinear::Vector(x, y, z));
  return matrix;
}

inline ru::Reference<ruGeom::CompactMesh> cuboid(const ruLinear::Range3d& range) {
  ru::Reference<ruGeom::CompactMesh> mesh = new ruGeom::CompactMesh();
  ruGeom::constructCuboid(range, *mesh);
  return mesh;
}

// A candidate set whose batch interface is open, for hovering objects by hand.
class HoverSet : public voDMG::CandidateSet {
public:
  using SelectionSet::clear;
  using SelectionSet::insert;
  using SelectionSet::lock;
  using SelectionSet::unlock;
};

struct PrintFixture : drawtest::DrawFixture {
  PrintFixture() {
    info.set<voDMG::SelectionSet>(&selected);
    info.set<voDMG::CandidateSet>(&hovered);
    selected.sigMembershipChanged.connect(documentDraw, &voDMG::DocumentDraw::onSelectionModified, client);
    hovered.sigMembershipChanged.connect(documentDraw, &voDMG::DocumentDraw::onSelectionModified, client);
    info.set<voSupport::Broadcaster>(&broadcaster);
    info.set<voSupport::PropertySet>(&settings);
    info.set<voSupport::TagRegistry>(&tags);
    setShowOutOfBounds(true);
    settings.add("vo.app.settings.thicknessSurfaceCoverage", new voSupport::PropertyTBase<double>(0.5));
    voDMG::initialize();
    voDMG::RegisterObjectDrawMsg message(*documentDraw);
    broadcaster.broadcast(message);
  }
  ~PrintFixture() {
    broadcaster.reset();
    if (surface) info.set<voDMG::DocumentSurfaceDraw>(nullptr);
    surface = nullptr;
  }
  void setShowOutOfBounds(bool on) { settings.add("vo.app.settings.showOutOfBounds", new voSupport::PropertyTBase<bool>(on)); }
  // Puts a plane-offering surface in the call info (made once).
  PlaneSurface& planeSurface() {
    if (!surface) {
      surface = new PlaneSurface(*scene.system, scene.info);
      info.set<voDMG::DocumentSurfaceDraw>(surface.get());
    }
    return *surface;
  }
  voDMD::Object* addPrintMesh(ru::Reference<ruGeom::CompactMesh> mesh,
                              const ruLinear::AffineMatrix& objToWorld = ruLinear::AffineMatrix::Identity) {
    ru::Reference<voDMD::Object> object = voDMD::createKLTMeshObject(doc.document, mesh, objToWorld);
    doc.document.insert(object, nullptr);
    return object.get();
  }
  voDMD::Object* addPrinter(const ruLinear::Range3d& useable, const ruLinear::Range3d& total) {
    ru::Reference<voDMD::Object> object = voDMD::createPrinterObject(doc.document, useable, total);
    doc.document.insert(object, nullptr);
    return object.get();
  }
  static voDMD::KLTMesh* meshOf(voDMD::Object* object) { return object->findAttribute<voDMD::KLTMesh>(); }
  voDMG::KLTMeshDraw* drawOf(voDMD::Object* object) const {
    documentDraw->update();
    return dynamic_cast<voDMG::KLTMeshDraw*>(documentDraw->getDraw(object));
  }
  voDMG::KLTMeshDrawPolicy* policy() const {
    return static_cast<voDMG::KLTMeshDrawPolicy*>(documentDraw->getDrawPolicy(typeid(voDMG::KLTMeshDraw)).get());
  }
  // Marks every drawing object and draws.
  void redraw() {
    documentDraw->update();
    documentDraw->setDrawPolicyModified(typeid(voDMG::KLTMeshDraw));
    documentDraw->setDrawPolicyModified(typeid(voDMG::KLTPrinterDraw));
    documentDraw->draw();
  }
  void select(voDMD::Object* object) {
    selected.lock();
    selected.insert(voDMG::SelectionItem(object));
    selected.unlock();
  }
  void hover(voDMD::Object* object) {
    hovered.lock();
    hovered.insert(voDMG::SelectionItem(object));
    hovered.unlock();
  }

  drawtest::Batch selected;
  HoverSet hovered;
  voSupport::Broadcaster broadcaster;
  voSupport::PropertySet settings;
  voSupport::TagRegistry tags;
  ru::Reference<PlaneSurface> surface;
};

}  // namespace printtest
