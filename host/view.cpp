#include "host/view.h"

#include "datamodelgui/draw/documentdraw.h"
#include "datamodelgui/draw/objectdraw.h"
#include "datamodelgui/draw/surfacedraw.h"
#include "datamodelgui/print/kltsurfacedraw.h"
#include "platform/datamodel/attributes.h"
#include "platform/datamodel/print.h"
#include "platform/geometry/algorithms.h"
#include "platform/geometry/camera.h"
#include "platform/geometry/construct.h"
#include "platform/graphics/draw.h"
#include "platform/graphics/graph.h"
#include "platform/graphics/shader.h"
#include "platform/image/png.h"
#include "platform/resources/resources.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <typeindex>

namespace printprep {

namespace {

using ruLinear::Point;
using ruLinear::Range3d;
using ruLinear::Vector;

// A mesh ready for drawing: normals and strips computed on a private copy.
ru::Reference<ruGeom::CompactMesh> drawableCopy(const ruGeom::CompactMesh& mesh) {
  ru::Reference<ruGeom::CompactMesh> copy = new ruGeom::CompactMesh();
  *copy = mesh;
  if (!copy->hasNormals()) ruGeom::meshComputeNormals(*copy);
  if (!copy->hasStrips()) {
    ruGeom::MeshAdjTris adjacency;
    ruGeom::meshAdjTris(*copy, adjacency);
    ruGeom::MeshTriStrip(*copy, adjacency).computeStrips(128, 0);
  }
  return copy;
}

// A printable part drawn plainly: shaded, reddish while it passes the printer's volume, glowing
// when selected or hovered (the active flag puts it in the selected world).
class PartDraw : public voDMG::ObjectDraw {
public:
  PartDraw(voDMG::DocumentDraw* documentDraw, voDMD::Object* object) : ObjectDraw(documentDraw, object) {}

  static voDMG::ObjectDraw* make(voDMG::DocumentDraw* documentDraw, voDMD::Object* object) {
    return new PartDraw(documentDraw, object);
  }

protected:
  void onDraw(voGR::DrawContext& context, voDMG::SelectionIterator selectedBegin, voDMG::SelectionIterator selectedEnd,
              voDMG::SelectionIterator hoverBegin, voDMG::SelectionIterator hoverEnd,
              ru::Reference<voGR::DrawPolicy>) override {
    voDMD::Object* object = getObject();
    const voDMD::KLTMesh* mesh = object->findAttribute<voDMD::KLTMesh>();
    // Opening the Draw drops what was emitted before: emitting nothing hides the part.
    voGR::Draw draw(context, this, false);
    draw.setDebugString("Part");
    if (!mesh || !mesh->visible() || !mesh->getMesh() || mesh->getMesh()->getNumTriangles() == 0) return;
    const bool selected = selectedBegin != selectedEnd;
    const bool hovered = hoverBegin != hoverEnd;
    draw.setLabel(0);
    draw.setType(0);
    draw.setDepthInteraction(0);
    draw.setMeshWithFlags(drawableCopy(*mesh->getMesh()), 5);
    draw.setDrawable(true);
    draw.setSubItem(true);
    if (const voDMD::Transform* transform = object->findAttribute<voDMD::Transform>())
      draw.setTransform(transform->getObjToWorld());
    draw.setActive(selected || hovered);
    if (selected) {
      draw.setColor(voDMG::MeshDraw::kSelectedColor);
    } else if (hovered) {
      draw.setColor(voDMG::MeshDraw::kHoverColor);
    } else {
      draw.setColor(voDMG::MeshDraw::kDefaultColor);
    }
    ru::Reference<voGR::LambertShader> shader = new voGR::LambertShader();
    shader->color = mesh->isOutOfBounds() ? ruUtil::Color(0.85f, 0.3f, 0.25f, 1.0f) : ruUtil::Color(0.55f, 0.7f, 0.9f, 1.0f);
    draw.setShader(shader);
    draw.setPickable(true);
    draw.emit();
  }
};

// The printer drawn plainly: its bed, a slab under the useable volume.
class BedDraw : public voDMG::ObjectDraw {
public:
  BedDraw(voDMG::DocumentDraw* documentDraw, voDMD::Object* object) : ObjectDraw(documentDraw, object) {}

  static voDMG::ObjectDraw* make(voDMG::DocumentDraw* documentDraw, voDMD::Object* object) {
    return new BedDraw(documentDraw, object);
  }

protected:
  void onDraw(voGR::DrawContext& context, voDMG::SelectionIterator, voDMG::SelectionIterator, voDMG::SelectionIterator,
              voDMG::SelectionIterator, ru::Reference<voGR::DrawPolicy>) override {
    const voDMD::KLTPrinter* printer = getObject()->findAttribute<voDMD::KLTPrinter>();
    voGR::Draw draw(context, this, false);
    draw.setDebugString("Bed");
    if (!printer) return;
    const Range3d& volume = printer->useableVolume();
    ru::Reference<ruGeom::CompactMesh> slab = new ruGeom::CompactMesh();
    ruGeom::constructCuboid(Range3d(Point(volume.getMin().x, volume.getMin().y, volume.getMin().z - 1.0),
                                    Point(volume.getMax().x, volume.getMax().y, volume.getMin().z - 0.01)),
                            *slab);
    draw.setLabel(0);
    draw.setType(0);
    draw.setDepthInteraction(0);
    draw.setMeshWithFlags(drawableCopy(*slab), 5);
    draw.setDrawable(true);
    draw.setColor(voDMG::MeshDraw::kDefaultColor);
    ru::Reference<voGR::LambertShader> shader = new voGR::LambertShader();
    shader->color = ruUtil::Color(0.3f, 0.32f, 0.36f, 1.0f);
    draw.setShader(shader);
    draw.setPickable(false);
    draw.emit();
  }
};

// Opens the batch interface of the selection, as a selector does.
class Batch : public voDMG::SelectionSet {
public:
  using SelectionSet::insert;
};

}  // namespace

bool parseViewDirection(const std::string& text, ViewDirection& direction) {
  if (text == "iso") direction = ViewDirection::Iso;
  else if (text == "top") direction = ViewDirection::Top;
  else if (text == "front") direction = ViewDirection::Front;
  else if (text == "side") direction = ViewDirection::Side;
  else return false;
  return true;
}

View::View(Scene& scene) : scene_(scene) {}

std::unique_ptr<View> View::create(Scene& scene, std::string& error, bool inCurrentContext) {
  std::unique_ptr<View> view(new View(scene));
  ruString::CString message;
  view->system_ = inCurrentContext ? voGR::DrawSystem::adoptCurrentContext(&message)
                                   : voGR::DrawSystem::createOffscreen(&message);
  if (!view->system_) {
    error = std::string(inCurrentContext ? "cannot use the window's OpenGL context: " : "no off-screen OpenGL context: ") +
            message.c_str();
    return nullptr;
  }
  view->inWindow_ = inCurrentContext;
  view->loader_ = std::make_unique<voRES::Loader>();
  voSupport::CallInfo& info = scene.callInfo();
  info.set<voGR::DrawSystem>(view->system_.get());
  info.set<voDMD::Camera>(scene.document().camera());
  info.set<voRES::Loader>(view->loader_.get());
  info.set<voDMG::SelectionSet>(&view->selection_);
  // The surface draws into its own target; renderFrame sizes each image itself.
  // A window's view draws into the window (no key); renderFrame still sizes its own images.
  ruRen::FBOKey key = inCurrentContext ? ruRen::FBOKey()
                                       : view->system_->createFBOKey(ruRen::FBOInfo(256, 256, true, false, false));
  view->surface_ = new voDMG::DefaultDocumentSurfaceDraw(*view->system_, view->system_->createRenderTarget("Frame", key));
  view->surface_->initialize();
  view->documentDraw_ = new voDMG::DocumentDraw(&scene.document());
  view->documentDraw_->setDrawFactory(std::type_index(typeid(voDMD::KLTMeshClass)), &PartDraw::make);
  view->documentDraw_->setDrawFactory(std::type_index(typeid(voDMD::KLTPrinterClass)), &BedDraw::make);
  info.set<voDMG::DocumentDraw>(view->documentDraw_);
  view->selection_.sigMembershipChanged.connect(view->documentDraw_, &voDMG::DocumentDraw::onSelectionModified,
                                               view->client_);
  return view;
}

View::~View() {
  client_.disconnectAll();
  if (documentDraw_) documentDraw_->destroy();
  surface_ = nullptr;
  voSupport::CallInfo& info = scene_.callInfo();
  info.set<voDMG::DocumentDraw>(nullptr);
  info.set<voDMG::SelectionSet>(nullptr);
  info.set<voRES::Loader>(nullptr);
  info.set<voGR::DrawSystem>(nullptr);
}

void View::select(const std::vector<int>& parts) {
  Batch batch;
  for (int index : parts)
    if (index >= 0 && index < static_cast<int>(scene_.parts().size()))
      batch.insert(voDMG::SelectionItem(scene_.parts()[index].object.get()));
  selection_.assign(batch);
}

void View::look(const Range3d& box, ViewDirection direction, int width, int height) {
  Vector towardEye(1, -1, 0.8);
  Vector up(0, 0, 1);
  switch (direction) {
    case ViewDirection::Iso: break;
    case ViewDirection::Top: towardEye = Vector(0, 0, 1), up = Vector(0, 1, 0); break;
    case ViewDirection::Front: towardEye = Vector(0, -1, 0); break;
    case ViewDirection::Side: towardEye = Vector(1, 0, 0); break;
  }
  towardEye *= 1.0 / std::sqrt(towardEye.getX() * towardEye.getX() + towardEye.getY() * towardEye.getY() +
                               towardEye.getZ() * towardEye.getZ());
  const Point centre = box.getMiddle();
  const Vector diagonal = box.getDiagonal();
  const double radius = std::max(0.5 * std::sqrt(diagonal.getX() * diagonal.getX() + diagonal.getY() * diagonal.getY() +
                                                 diagonal.getZ() * diagonal.getZ()),
                                 1e-3);
  // The narrower of the two angles decides the distance at which the sphere around the box fits.
  const double angle = 0.7853981633974483;
  const double aspect = static_cast<double>(width) / std::max(height, 1);
  const double halfNarrow = std::min(angle / 2.0, std::atan(std::tan(angle / 2.0) * aspect));
  const double distance = radius / std::sin(halfNarrow) * 1.02;
  ruGeom::Camera camera;
  camera.setViewport(ruGeom::Viewport(0, 0, width, height));
  ruGeom::AngleAspect frustum;
  frustum.setAngle(angle);
  frustum.setAspectRatio(aspect);
  frustum.setDepthRange(std::max(distance - 2.0 * radius, distance * 0.01), distance + 2.0 * radius);
  camera.setFrustum(frustum);
  camera.setWorldToEye(centre, centre + towardEye * distance, up);
  scene_.document().camera()->set(camera);
  surface_->updateCamera(camera);
}

ru::Reference<ruImage::Image> View::render(int width, int height) {
  documentDraw_->draw();
  ru::Reference<voPLST::Dictionary> parameters = new voPLST::Dictionary();
  parameters->setDouble("width", width);
  parameters->setDouble("height", height);
  parameters->setBool("multisample", false);
  parameters->setBool("upsideDown", true);
  ru::Reference<ruImage::Image> image = surface_->renderFrame(parameters);
  // The surface clears to a transparent grey; a picture on disk shows it opaque.
  if (image && image->bytesPerPixel() == 4 && image->bytes()) {
    std::uint8_t* bytes = image->bytes();
    for (std::size_t i = 3; i < image->byteSize(); i += 4) bytes[i] = 255;
  }
  return image;
}

bool View::renderPng(int width, int height, const std::string& path, std::string& error) {
  ru::Reference<ruImage::Image> image = render(width, height);
  if (!image) {
    error = path + ": the frame could not be drawn";
    return false;
  }
  const std::string partial = path + ".partial";
  ruString::CString message;
  if (!ruImage::writePng(*image, ruString::CString(partial.c_str()), &message)) {
    std::error_code ignored;
    std::filesystem::remove(partial, ignored);
    // The reason without the temporary name the user never asked for.
    std::string reason = message.c_str();
    for (std::size_t at = reason.find(partial); at != std::string::npos; at = reason.find(partial))
      reason.replace(at, partial.size(), path);
    error = reason.find(path) == std::string::npos ? path + ": " + reason : reason;
    return false;
  }
  std::error_code code;
  std::filesystem::rename(partial, path, code);
  if (code) {
    std::filesystem::remove(partial, code);
    error = path + ": cannot write the file";
    return false;
  }
  return true;
}

void View::setCamera(const ruGeom::Camera& camera) {
  scene_.document().camera()->set(camera);
  surface_->updateCamera(camera);
}

bool View::drawToWindow() {
  if (!inWindow_) return false;
  documentDraw_->draw();
  return system_->draw(surface_->renderTargetNode());
}

bool View::setCutAway(bool on, double z) {
  auto* print = dynamic_cast<voDMG::KLTSurfaceDraw*>(surface_.get());
  if (!print) return false;
  print->clearClippingPlanes();
  if (on) {
    // Keeps what lies below z: the plane's normal points down.
    const ruLinear::Plane plane(Point(0, 0, z), ruLinear::Normal(0, 0, -1));
    print->addClippingPlane(plane);
    print->updateCapPosition(plane, scene_.partsBox());
    print->updateCapGeom(true);
  }
  print->updateCapVisibility(on);
  // The meshes read the planes when they emit.
  documentDraw_->setModified();
  return true;
}

int pixelsUnlikeBackground(const ruImage::Image& image) {
  const int bpp = image.bytesPerPixel();
  const std::uint8_t* bytes = image.bytes();
  if (!bytes || bpp < 3) return 0;
  int count = 0;
  const std::size_t pixels = image.byteSize() / static_cast<std::size_t>(bpp);
  for (std::size_t i = 0; i < pixels; ++i) {
    const std::uint8_t* p = bytes + i * static_cast<std::size_t>(bpp);
    if (std::abs(p[0] - bytes[0]) + std::abs(p[1] - bytes[1]) + std::abs(p[2] - bytes[2]) > 6) ++count;
  }
  return count;
}

}  // namespace printprep
