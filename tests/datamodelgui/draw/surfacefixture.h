#pragma once

// A document drawn by a DefaultDocumentSurfaceDraw on a real off-screen draw system: the draw
// system, the document, its camera and a resource loader are entered in the call info, as a host
// does; the surface's target is a 256 x 256 frame buffer.

#include "../../platform/graphics/glscene.h"
#include "../docfixture.h"
#include "datamodelgui/draw/surfacedraw.h"
#include "platform/datamodel/attributes.h"
#include "platform/graphics/world.h"
#include "platform/resources/resources.h"
#include "platform/support/callinfo.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <string>

namespace surfacetest {

constexpr int kSize = voGR::test::kSize;

inline ruGeom::Camera lookAt(const ruLinear::Point& eye, const ruLinear::Point& target,
                             const ruLinear::Vector& up = ruLinear::Vector(0, 1, 0)) {
  return voGR::test::GLScene::camera(eye, target, up);
}

struct SurfaceFixture {
  SurfaceFixture() {
    ruString::CString error;
    system = voGR::DrawSystem::createOffscreen(&error);
    if (!system) {
      ADD_FAILURE() << "no off-screen context: " << error.c_str();
      return;
    }
    key = system->createFBOKey(ruRen::FBOInfo(kSize, kSize, true, false, false));
    info = system->createRenderTarget("Frame", key);
    doc.document.camera()->set(lookAt(ruLinear::Point(0, 0, 10), ruLinear::Point(0, 0, 0)));
    callInfo.set<voGR::DrawSystem>(system.get());
    callInfo.set<voDMD::Document>(&doc.document);
    callInfo.set<voDMD::Camera>(doc.document.camera());
    callInfo.set<voRES::Loader>(&loader);
    scope = std::make_unique<voSupport::CallScope>(callInfo);
    surface = new voDMG::DefaultDocumentSurfaceDraw(*system, info);
    surface->initialize();
    surface->updateCamera(doc.document.camera()->get());
    context = std::make_unique<voGR::DrawContext>(system.get(), system->allocateID());
  }
  ~SurfaceFixture() {
    surface = nullptr;
    scope.reset();
  }

  voGR::RenderTargetNode* target() const { return surface->renderTargetNode(); }
  voGR::World* world(voGR::WorldNode* node) const { return node->getWorld(); }
  static bool holds(const voGR::World& w, const voGR::DrawItem* item) {
    bool found = false;
    w.forEach([&](voGR::DrawItem& candidate) { found = found || &candidate == item; });
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

  // Draws the surface's target into its own frame buffer and reads it back (rows bottom-up);
  // writes <name>.png (top-down) under the build folder.
  ruImage::TypedImage<ruImage::Byte4> frame(const std::string& name) {
    ruImage::TypedImage<ruImage::Byte4> image;
    EXPECT_TRUE(key.lock());
    EXPECT_TRUE(system->draw(target()));
    EXPECT_TRUE(system->getRenDeviceContext()->readColorBuffer(key, 0, 0, kSize, kSize, image));
    key.unlock();
    voGR::test::writeFrame(image, name);
    return image;
  }

  static ru::Reference<voPLST::Dictionary> frameParameters(double width, double height, bool upsideDown,
                                                          bool multisample = false) {
    ru::Reference<voPLST::Dictionary> parameters = new voPLST::Dictionary();
    parameters->setDouble("width", width);
    parameters->setDouble("height", height);
    parameters->setBool("multisample", multisample);
    parameters->setBool("upsideDown", upsideDown);
    return parameters;
  }

  std::unique_ptr<voGR::DrawSystem> system;
  ruRen::FBOKey key;
  ru::Reference<voGR::DataNodeStateInfo> info;
  doctest::DocFixture doc;
  voRES::Loader loader;
  voSupport::CallInfo callInfo;
  std::unique_ptr<voSupport::CallScope> scope;
  ru::Reference<voDMG::DefaultDocumentSurfaceDraw> surface;
  std::unique_ptr<voGR::DrawContext> context;
};

// A solid image of one colour.
inline ru::Reference<ruImage::Image> solidImage(int width, int height, ruImage::Byte4 color) {
  ru::Reference<ruImage::TypedImage<ruImage::Byte4>> image = new ruImage::TypedImage<ruImage::Byte4>(width, height);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) image->pixel(x, y) = color;
  return ru::Reference<ruImage::Image>(image.get());
}

// Colour channels within `tolerance` (alpha not compared: the surface clears to alpha 0).
inline bool rgbNear(const ruImage::Byte4& a, const ruImage::Byte4& b, int tolerance) {
  return std::abs(a.r - b.r) <= tolerance && std::abs(a.g - b.g) <= tolerance && std::abs(a.b - b.b) <= tolerance;
}
inline int countRGB(const ruImage::TypedImage<ruImage::Byte4>& image, ruImage::Byte4 color, int tolerance) {
  int count = 0;
  for (int y = 0; y < image.ySize(); ++y)
    for (int x = 0; x < image.xSize(); ++x) count += rgbNear(image.pixel(x, y), color, tolerance) ? 1 : 0;
  return count;
}

// The box of the pixels near `color`: false when there is none.
inline bool pixelBox(const ruImage::TypedImage<ruImage::Byte4>& image, ruImage::Byte4 color, int tolerance, int& x0,
                     int& y0, int& x1, int& y1) {
  x0 = y0 = 1 << 30;
  x1 = y1 = -1;
  for (int y = 0; y < image.ySize(); ++y)
    for (int x = 0; x < image.xSize(); ++x)
      if (rgbNear(image.pixel(x, y), color, tolerance)) {
        x0 = std::min(x0, x), y0 = std::min(y0, y), x1 = std::max(x1, x), y1 = std::max(y1, y);
      }
  return x1 >= 0;
}

}  // namespace surfacetest
