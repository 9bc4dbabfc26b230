#pragma once

// The print view on a real off-screen draw system: a document with a printer and print meshes,
// a DocumentDraw, the settings, and a KLTSurfaceDraw on a 256 x 256 frame buffer, all entered in
// the call info as a host enters them. Print meshes are drawn by the library's KLTMeshDraw where a
// test asks (useMeshDraw); elsewhere, so that pixels can be told apart by colour, by a stand-in of
// the test's own: flat colour (a colour per object), the cut-away planes copied into its shader as
// the print policy does, an optional tag, and a wire box of its extent as a line item. The printer
// is drawn as the wire box of its total volume (type 2 lines).

#include "../../platform/graphics/glscene.h"
#include "../docfixture.h"
#include "datamodelgui/draw/documentdraw.h"
#include "datamodelgui/draw/objectdraw.h"
#include "datamodelgui/print/kltsurfacedraw.h"
#include "datamodelgui/print/meshdraw.h"
#include "datamodelgui/selection/hittester.h"
#include "platform/datamodel/print.h"
#include "platform/geometry/construct.h"
#include "platform/graphics/draw.h"
#include "platform/graphics/graph.h"
#include "platform/graphics/shader.h"
#include "platform/graphics/world.h"
#include "platform/support/callinfo.h"
#include "platform/support/settings.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <memory>
#include <string>

namespace printtest {

constexpr int kSize = voGR::test::kSize;

// How the stand-in draws one print mesh.
struct Look {
  ruUtil::Color color{0.8f, 0.2f, 0.2f, 1.0f};
  ruUtil::Color lineColor{0.0f, 0.0f, 0.0f, 1.0f};
  bool active = false;
  bool lines = false;
  ruString::CString tag;
};

class StandInMeshDraw : public voDMG::ObjectDraw {
public:
  StandInMeshDraw(voDMG::DocumentDraw* documentDraw, voDMD::Object* object) : ObjectDraw(documentDraw, object) {}
  static std::map<const voDMD::Object*, Look>& looks() {
    static std::map<const voDMD::Object*, Look> table;
    return table;
  }
  static voDMG::KLTSurfaceDraw*& surface() {
    static voDMG::KLTSurfaceDraw* current = nullptr;
    return current;
  }
  int draws = 0;

protected:
  void onDraw(voGR::DrawContext& context, voDMG::SelectionIterator, voDMG::SelectionIterator, voDMG::SelectionIterator,
              voDMG::SelectionIterator, ru::Reference<voGR::DrawPolicy>) override {
    ++draws;
    voGR::Draw draw(context, this, false);
    auto* mesh = getObject()->findAttribute<voDMD::KLTMesh>();
    auto* transform = getObject()->findAttribute<voDMD::Transform>();
    if (!mesh || !mesh->visible() || !mesh->getMesh()) return;
    const Look look = looks()[getObject()];
    if (transform) draw.setTransform(transform->getObjToWorld());
    ru::Reference<voGR::SolidColorShader> shader = new voGR::SolidColorShader();
    shader->color = look.color;
    if (surface())
      for (const voDMG::ClippingPlane& plane : surface()->planes())
        if (!plane.selectionOnly || look.active) shader->clippingPlanes().add(plane.plane);
    draw.setShader(ru::Reference<voGR::Shader>(shader.get()));
    draw.setActive(look.active);
    if (!look.tag.empty()) draw.addTag(look.tag);
    draw.setMesh(new ruGeom::CompactMesh(*mesh->getMesh()));
    draw.emit();
    if (look.lines) {
      ru::Reference<ruGeom::CompactMesh> box = new ruGeom::CompactMesh();
      ruGeom::constructBoxEdgeLineStrips(mesh->getMesh()->getBoundingBox(), *box);
      ru::Reference<voGR::SolidColorShader> lineShader = new voGR::SolidColorShader();
      lineShader->color = look.lineColor;
      lineShader->lineWidth = 3.0f;
      draw.setShader(ru::Reference<voGR::Shader>(lineShader.get()));
      draw.setMesh(box, false);
      draw.emit();
    }
  }
};

class StandInPrinterDraw : public voDMG::ObjectDraw {
public:
  StandInPrinterDraw(voDMG::DocumentDraw* documentDraw, voDMD::Object* object) : ObjectDraw(documentDraw, object) {}
  static constexpr ruUtil::Color kColor{0.0f, 0.0f, 1.0f, 1.0f};

protected:
  void onDraw(voGR::DrawContext& context, voDMG::SelectionIterator, voDMG::SelectionIterator, voDMG::SelectionIterator,
              voDMG::SelectionIterator, ru::Reference<voGR::DrawPolicy>) override {
    voGR::Draw draw(context, this, false);
    auto* printer = getObject()->findAttribute<voDMD::KLTPrinter>();
    if (!printer || !printer->totalVolume().isValid()) return;
    ru::Reference<ruGeom::CompactMesh> box = new ruGeom::CompactMesh();
    ruGeom::constructBoxEdgeLineStrips(ruGeom::BoundingBox(printer->totalVolume()), *box);
    ru::Reference<voGR::SolidColorShader> shader = new voGR::SolidColorShader();
    shader->color = kColor;
    shader->lineWidth = 3.0f;
    draw.setShader(ru::Reference<voGR::Shader>(shader.get()));
    draw.setType(voGR::TypeHelper);
    draw.setPickable(false);
    draw.setMesh(box, false);
    draw.emit();
  }
};

inline voDMG::ObjectDraw* makeMeshDraw(voDMG::DocumentDraw* documentDraw, voDMD::Object* object) {
  return new StandInMeshDraw(documentDraw, object);
}
inline voDMG::ObjectDraw* makePrinterDraw(voDMG::DocumentDraw* documentDraw, voDMD::Object* object) {
  return new StandInPrinterDraw(documentDraw, object);
}

inline ruGeom::Camera lookAt(const ruLinear::Point& eye, const ruLinear::Point& target,
                             const ruLinear::Vector& up = ruLinear::Vector(0, 0, 1)) {
  return voGR::test::GLScene::camera(eye, target, up);
}

inline ruLinear::Range3d cube(double x, double y, double z, double half) {
  return ruLinear::Range3d(ruLinear::Point(x - half, y - half, z - half), ruLinear::Point(x + half, y + half, z + half));
}

struct PrintFixture {
  // `caps`: the value of "vo.app.settings.CutawayCaps" when the graph is built.
  explicit PrintFixture(bool caps = true) {
    ruString::CString error;
    system = voGR::DrawSystem::createOffscreen(&error);
    if (!system) {
      ADD_FAILURE() << "no off-screen context: " << error.c_str();
      return;
    }
    key = system->createFBOKey(ruRen::FBOInfo(kSize, kSize, true, false, false));
    info = system->createRenderTarget("Frame", key);
    doc.document.camera()->set(lookAt(ruLinear::Point(0, -0.001, 12), ruLinear::Point(0, 0, 0)));
    settings.set("vo.app.settings.CutawayCaps", caps);
    callInfo.set<voGR::DrawSystem>(system.get());
    callInfo.set<voDMD::Document>(&doc.document);
    callInfo.set<voDMD::Camera>(doc.document.camera());
    callInfo.set<voSupport::PropertySet>(&settings);
    callInfo.set<voDMG::SelectionSet>(&selection);
    callInfo.set<voDMG::DocumentHitTester>(&hitTester);
    scope = std::make_unique<voSupport::CallScope>(callInfo);
    documentDraw = new voDMG::DocumentDraw(&doc.document);
    callInfo.set<voDMG::DocumentDraw>(documentDraw);
    documentDraw->setDrawFactory(typeid(voDMD::KLTMeshClass), &makeMeshDraw);
    documentDraw->setDrawFactory(typeid(voDMD::KLTPrinterClass), &makePrinterDraw);
    documentDraw->setDrawPolicy(typeid(voDMG::KLTMeshDraw), new voDMG::KLTMeshDrawPolicy());
    surface = new voDMG::KLTSurfaceDraw(*system, info);
    surface->initialize();
    callInfo.set<voDMG::DocumentSurfaceDraw>(surface.get());
    surface->updateCamera(doc.document.camera()->get());
    StandInMeshDraw::surface() = surface.get();
  }
  ~PrintFixture() {
    StandInMeshDraw::surface() = nullptr;
    StandInMeshDraw::looks().clear();
    if (documentDraw) documentDraw->destroy();
    surface = nullptr;
    scope.reset();
  }

  voDMD::Object* addPrintMesh(const ruLinear::Range3d& range, const Look& look = Look()) {
    ru::Reference<ruGeom::CompactMesh> mesh = new ruGeom::CompactMesh();
    ruGeom::constructCuboid(range, *mesh);
    ru::Reference<voDMD::Object> object = voDMD::createKLTMeshObject(doc.document, mesh);
    StandInMeshDraw::looks()[object.get()] = look;
    doc.document.insert(object, nullptr);
    return object.get();
  }
  voDMD::Object* addPrinter(const ruLinear::Range3d& useable, const ruLinear::Range3d& total) {
    ru::Reference<voDMD::Object> object = voDMD::createPrinterObject(doc.document, useable, total);
    doc.document.insert(object, nullptr);
    return object.get();
  }
  // Draws `object` with the library's print mesh draw and policy instead of the stand-in.
  voDMG::KLTMeshDraw* useMeshDraw(voDMD::Object* object) {
    auto* draw = new voDMG::KLTMeshDraw(documentDraw, kltMesh(object));
    documentDraw->setDraw(object, draw);
    return draw;
  }
  static voDMD::KLTMesh* kltMesh(voDMD::Object* object) { return object->findAttribute<voDMD::KLTMesh>(); }
  StandInMeshDraw* standIn(voDMD::Object* object) const {
    return dynamic_cast<StandInMeshDraw*>(documentDraw->getDraw(object));
  }

  static bool holds(const voGR::World& world, const voGR::DrawItem* item) {
    bool found = false;
    world.forEach([&](voGR::DrawItem& candidate) { found = found || &candidate == item; });
    return found;
  }
  // The names of the worlds holding `item`, in the database's order, joined by spaces.
  std::string worldsOf(const voGR::DrawItem* item) const {
    std::string out;
    voGR::Database& db = *surface->getDatabase();
    for (int i = 0; i < db.getNumWorlds(); ++i)
      if (holds(*db.getWorld(i), item)) out += (out.empty() ? "" : " ") + std::string(db.getWorldNode(i)->getName().c_str());
    return out;
  }

  // Draws the surface's target into its frame buffer and reads it back (rows bottom-up); writes
  // <name>.png (top-down) under the build folder.
  ruImage::TypedImage<ruImage::Byte4> frame(const std::string& name) {
    documentDraw->draw();
    ruImage::TypedImage<ruImage::Byte4> image;
    EXPECT_TRUE(key.lock());
    EXPECT_TRUE(system->draw(surface->renderTargetNode()));
    EXPECT_TRUE(system->getRenDeviceContext()->readColorBuffer(key, 0, 0, kSize, kSize, image));
    key.unlock();
    voGR::test::writeFrame(image, name);
    return image;
  }

  std::unique_ptr<voGR::DrawSystem> system;
  ruRen::FBOKey key;
  ru::Reference<voGR::DataNodeStateInfo> info;
  doctest::DocFixture doc;
  voSupport::PropertySet settings;
  voDMG::SelectionSet selection;
  voDMG::DocumentHitTester hitTester;
  voSupport::CallInfo callInfo;
  std::unique_ptr<voSupport::CallScope> scope;
  voDMG::DocumentDraw* documentDraw = nullptr;
  ru::Reference<voDMG::KLTSurfaceDraw> surface;
};

inline ruImage::Byte4 bytes(const ruUtil::Color& color) {
  auto channel = [](float v) { return static_cast<unsigned char>(std::lround(std::clamp(v, 0.0f, 1.0f) * 255.0f)); };
  ruImage::Byte4 out;
  out.r = channel(color.r), out.g = channel(color.g), out.b = channel(color.b), out.a = channel(color.a);
  return out;
}
inline bool rgbNear(const ruImage::Byte4& a, const ruImage::Byte4& b, int tolerance) {
  return std::abs(a.r - b.r) <= tolerance && std::abs(a.g - b.g) <= tolerance && std::abs(a.b - b.b) <= tolerance;
}
// Pixels near `color` within the columns [x0, x1).
inline int countRGB(const ruImage::TypedImage<ruImage::Byte4>& image, const ruImage::Byte4& color, int tolerance,
                    int x0 = 0, int x1 = 1 << 30) {
  int count = 0;
  for (int y = 0; y < image.ySize(); ++y)
    for (int x = std::max(0, x0); x < std::min(x1, image.xSize()); ++x) count += rgbNear(image.pixel(x, y), color, tolerance);
  return count;
}
inline const ruImage::TypedImage<ruImage::Byte4>* typed(const ru::Reference<ruImage::Image>& image) {
  return dynamic_cast<const ruImage::TypedImage<ruImage::Byte4>*>(image.get());
}

}  // namespace printtest
