#include "host/view.h"

#include "datamodelgui/draw/documentdraw.h"
#include "datamodelgui/print/kltsurfacedraw.h"
#include "datamodelgui/selection/hittester.h"
#include "datamodelgui/snap/snapmanager.h"
#include "platform/datamodel/print.h"
#include "platform/geometry/camera.h"
#include "platform/graphics/draw.h"
#include "platform/graphics/graph.h"
#include "platform/image/png.h"
#include "platform/resources/resources.h"
#include "platform/support/broadcaster.h"
#include "platform/support/settings.h"
#include "platform/support/tags.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>

namespace printprep {

namespace {

using ruLinear::Point;
using ruLinear::Range3d;
using ruLinear::Vector;

// Opens the batch interface of the selection, as a selector does.
class Batch : public voDMG::SelectionSet {
public:
  using SelectionSet::insert;
};

}  // namespace

bool writePngInPlace(const ru::Reference<ruImage::Image>& image, const std::string& path, std::string& error) {
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

bool parseViewDirection(const std::string& text, ViewDirection& direction) {
  if (text == "iso") direction = ViewDirection::Iso;
  else if (text == "top") direction = ViewDirection::Top;
  else if (text == "front") direction = ViewDirection::Front;
  else if (text == "side") direction = ViewDirection::Side;
  else return false;
  return true;
}

// The candidate set with its batch interface open: the host hovers a part by hand as the hit
// tester would after a pick under the cursor.
class View::Candidates : public voDMG::CandidateSet {
public:
  using SelectionSet::insert;
  using SelectionSet::lock;
  using SelectionSet::lockedClear;
  using SelectionSet::unlock;
};

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
  View& v = *view;
  v.loader_ = std::make_unique<voRES::Loader>();
  v.settings_ = std::make_unique<voSupport::PropertySet>();
  v.tags_ = std::make_unique<voSupport::TagRegistry>();
  v.broadcaster_ = std::make_unique<voSupport::Broadcaster>();
  v.hitTester_ = std::make_unique<voDMG::DocumentHitTester>();
  // Parts past the printer's volume take the out-of-bounds look; the caps exist only if this is
  // on when the surface builds its graph.
  v.settings_->set("vo.app.settings.showOutOfBounds", true);
  v.settings_->set("vo.app.settings.thicknessSurfaceCoverage", 0.5);
  v.settings_->set("vo.app.settings.CutawayCaps", true);

  voSupport::CallInfo& info = scene.callInfo();
  info.set<voGR::DrawSystem>(v.system_.get());
  info.set<voDMD::Camera>(scene.document().camera());
  info.set<voRES::Loader>(v.loader_.get());
  info.set<voSupport::PropertySet>(v.settings_.get());
  info.set<voSupport::TagRegistry>(v.tags_.get());
  info.set<voSupport::Broadcaster>(v.broadcaster_.get());
  info.set<voDMG::SelectionSet>(&v.selection_);
  info.set<voDMG::DocumentHitTester>(v.hitTester_.get());
  // Made after the hit tester is entered: the candidate set connects to it.
  v.candidates_ = std::make_unique<Candidates>();
  info.set<voDMG::CandidateSet>(v.candidates_.get());
  v.snapManager_ = std::make_unique<voDMG::SnapManager>();
  info.set<voDMG::SnapManager>(v.snapManager_.get());
  voDMG::initialize();

  // The document draw first: the print surface finds it in the call info when it is made.
  v.documentDraw_ = new voDMG::DocumentDraw(&scene.document());
  info.set<voDMG::DocumentDraw>(v.documentDraw_);
  // A window's view draws into the window (no key); renderFrame sizes its own images either way.
  ruRen::FBOKey key = inCurrentContext ? ruRen::FBOKey()
                                       : v.system_->createFBOKey(ruRen::FBOInfo(256, 256, true, false, false));
  v.surface_ = new voDMG::KLTSurfaceDraw(*v.system_, v.system_->createRenderTarget("Frame", key));
  v.surface_->initialize();
  info.set<voDMG::DocumentSurfaceDraw>(v.surface_.get());

  // The set-up messages: the print classes install their drawings and policy on the document draw.
  voDMG::RegisterObjectDrawMsg registerDraws(*v.documentDraw_);
  v.broadcaster_->broadcast(registerDraws);
  voDMG::InitializeCandidateSetMsg initializeCandidates(*v.candidates_);
  v.broadcaster_->broadcast(initializeCandidates);

  v.selection_.sigMembershipChanged.connect(v.documentDraw_, &voDMG::DocumentDraw::onSelectionModified, v.client_);
  v.candidates_->sigMembershipChanged.connect(v.documentDraw_, &voDMG::DocumentDraw::onSelectionModified, v.client_);
  v.markContext_ = std::make_unique<voGR::DrawContext>(v.system_.get(), v.system_->allocateID());
  return view;
}

View::~View() {
  client_.disconnectAll();
  if (mark_) mark_->setDraw(nullptr);
  mark_ = nullptr;
  markContext_.reset();
  if (snapManager_) snapManager_->clearItems();
  if (documentDraw_) documentDraw_->destroy();
  documentDraw_ = nullptr;
  voSupport::CallInfo& info = scene_.callInfo();
  info.set<voDMG::DocumentSurfaceDraw>(nullptr);
  surface_ = nullptr;
  info.set<voDMG::DocumentDraw>(nullptr);
  info.set<voDMG::SnapManager>(nullptr);
  snapManager_.reset();
  info.set<voDMG::CandidateSet>(nullptr);
  candidates_.reset();
  info.set<voDMG::DocumentHitTester>(nullptr);
  hitTester_.reset();
  info.set<voDMG::SelectionSet>(nullptr);
  if (broadcaster_) broadcaster_->reset();
  info.set<voSupport::Broadcaster>(nullptr);
  info.set<voSupport::TagRegistry>(nullptr);
  info.set<voSupport::PropertySet>(nullptr);
  info.set<voRES::Loader>(nullptr);
  info.set<voDMD::Camera>(nullptr);
  info.set<voGR::DrawSystem>(nullptr);
}

voDMG::CandidateSet& View::candidates() const noexcept { return *candidates_; }

void View::select(const std::vector<int>& parts) {
  Batch batch;
  for (int index : parts)
    if (index >= 0 && index < static_cast<int>(scene_.parts().size()))
      batch.insert(voDMG::SelectionItem(scene_.parts()[index].object.get()));
  selection_.assign(batch);
}

void View::hover(int part) {
  candidates_->lock();
  candidates_->lockedClear();
  if (part >= 0 && part < static_cast<int>(scene_.parts().size()))
    candidates_->insert(voDMG::SelectionItem(scene_.parts()[part].object.get()));
  candidates_->unlock();
}

namespace {

// The direction from the box toward the eye, and the camera's up, of each view.
void viewAxes(ViewDirection direction, Vector& towardEye, Vector& up) {
  towardEye = Vector(1, -1, 0.8);
  up = Vector(0, 0, 1);
  switch (direction) {
    case ViewDirection::Iso: break;
    case ViewDirection::Top: towardEye = Vector(0, 0, 1), up = Vector(0, 1, 0); break;
    case ViewDirection::Front: towardEye = Vector(0, -1, 0); break;
    case ViewDirection::Side: towardEye = Vector(1, 0, 0); break;
  }
  towardEye *= 1.0 / std::sqrt(towardEye.getX() * towardEye.getX() + towardEye.getY() * towardEye.getY() +
                               towardEye.getZ() * towardEye.getZ());
}

double dotOf(const Vector& a, const Vector& b) { return a.getX() * b.getX() + a.getY() * b.getY() + a.getZ() * b.getZ(); }

Vector crossOf(const Vector& a, const Vector& b) {
  return Vector(a.getY() * b.getZ() - a.getZ() * b.getY(), a.getZ() * b.getX() - a.getX() * b.getZ(),
                a.getX() * b.getY() - a.getY() * b.getX());
}

Vector unit(const Vector& v) { return v * (1.0 / std::max(std::sqrt(dotOf(v, v)), 1e-12)); }

const double fieldOfView = 0.7853981633974483;

}  // namespace

void View::look(const Range3d& box, ViewDirection direction, int width, int height) {
  Vector towardEye, up;
  viewAxes(direction, towardEye, up);
  const Point centre = box.getMiddle();
  const Vector diagonal = box.getDiagonal();
  const double radius = std::max(0.5 * std::sqrt(dotOf(diagonal, diagonal)), 1e-3);
  // The narrower of the two angles decides the distance at which the sphere around the box fits.
  const double angle = fieldOfView;
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

void View::lookClosely(const Range3d& box, ViewDirection direction, int width, int height) {
  const Point low = box.getMin(), high = box.getMax();
  std::vector<Point> corners;
  for (int i = 0; i < 8; ++i)
    corners.emplace_back(i & 1 ? high.x : low.x, i & 2 ? high.y : low.y, i & 4 ? high.z : low.z);
  lookClosely(corners, direction, width, height);
}

void View::lookClosely(const std::vector<Point>& corners, ViewDirection direction, int width, int height) {
  if (corners.empty()) return;
  Vector towardEye, up;
  viewAxes(direction, towardEye, up);
  const Vector right = unit(crossOf(up, towardEye));
  const Vector screenUp = crossOf(towardEye, right);
  Range3d box(corners.front(), corners.front());
  for (const Point& corner : corners) box.include(corner);
  const int count = static_cast<int>(corners.size());
  // Aim at the middle of the corners as seen along the view, not at the box's middle: a flat box
  // seen from above at a slant is not symmetric on screen about its middle.
  Point centre = box.getMiddle();
  double minX = 0, maxX = 0, minY = 0, maxY = 0;
  for (int i = 0; i < count; ++i) {
    const Vector d = corners[i] - centre;
    const double x = dotOf(d, right), y = dotOf(d, screenUp);
    minX = i ? std::min(minX, x) : x, maxX = i ? std::max(maxX, x) : x;
    minY = i ? std::min(minY, y) : y, maxY = i ? std::max(maxY, y) : y;
  }
  centre = centre + right * (0.5 * (minX + maxX)) + screenUp * (0.5 * (minY + maxY));
  const double aspect = static_cast<double>(width) / std::max(height, 1);
  const double tanVertical = std::tan(fieldOfView / 2.0), tanHorizontal = tanVertical * aspect;
  // Every corner within the frustum: its offset across the view over its depth below the tangent.
  double distance = 1e-3, nearest = 0.0, farthest = 0.0;
  for (int i = 0; i < count; ++i) {
    const Vector d = corners[i] - centre;
    const double depth = dotOf(d, towardEye);
    distance = std::max({distance, depth + std::abs(dotOf(d, right)) / tanHorizontal,
                         depth + std::abs(dotOf(d, screenUp)) / tanVertical});
    nearest = i ? std::max(nearest, depth) : depth;
    farthest = i ? std::min(farthest, depth) : depth;
  }
  distance *= 1.04;
  const Vector diagonal = box.getDiagonal();
  const double radius = std::max(0.5 * std::sqrt(dotOf(diagonal, diagonal)), 1e-3);
  ruGeom::Camera camera;
  camera.setViewport(ruGeom::Viewport(0, 0, width, height));
  ruGeom::AngleAspect frustum;
  frustum.setAngle(fieldOfView);
  frustum.setAspectRatio(aspect);
  // Depth room beyond the box for what stands out of it (the printer's frame, a glow).
  frustum.setDepthRange(std::max(distance - nearest - radius, distance * 0.01), distance - farthest + 2.0 * radius);
  camera.setFrustum(frustum);
  camera.setWorldToEye(centre, centre + towardEye * distance, up);
  scene_.document().camera()->set(camera);
  surface_->updateCamera(camera);
}

void View::setCut(double z) {
  // The plane keeps the side its normal points to: everything below z.
  const ruLinear::Plane plane(Point(0, 0, z), ruLinear::Normal(0, 0, -1));
  surface_->clearClippingPlanes();
  surface_->addClippingPlane(plane);
  // The caps close what the plane cuts open, within the parts' box (a little larger, so that a
  // part's side lying on the box still gets its cap).
  Range3d range = scene_.partsBox();
  range.include(range.getMin() - Vector(1, 1, 1));
  range.include(range.getMax() + Vector(1, 1, 1));
  surface_->updateCapPosition(plane, range);
  surface_->updateCapGeom(true);
  surface_->updateCapVisibility(true);
  cut_ = true;
}

void View::clearCut() {
  surface_->clearClippingPlanes();
  surface_->updateCapVisibility(false);
  surface_->updateCapGeom(false);
  cut_ = false;
}

void View::showSnapResult(ru::Reference<voDMG::SnapResult> result) {
  // Opening the Draw drops the mark drawn before; emitting nothing leaves none.
  voGR::Draw draw(*markContext_, this, true);
  draw.setDebugString("SnapMark");
  if (mark_ && mark_ != result) mark_->setDraw(nullptr);
  mark_ = result;
  if (mark_ && mark_->hasDraw()) mark_->getDraw()->drawPosition(draw);
}

ru::Reference<ruImage::Image> View::render(int width, int height) {
  documentDraw_->draw();
  snapManager_->draw();
  ru::Reference<voPLST::Dictionary> parameters = new voPLST::Dictionary();
  parameters->setDouble("width", width);
  parameters->setDouble("height", height);
  parameters->setBool("multisample", false);
  parameters->setBool("upsideDown", true);
  ru::Reference<ruImage::Image> image = surface_->renderFrame(parameters);
  // A picture on disk shows the view opaque.
  if (image && image->bytesPerPixel() == 4 && image->bytes()) {
    std::uint8_t* bytes = image->bytes();
    for (std::size_t i = 3; i < image->byteSize(); i += 4) bytes[i] = 255;
  }
  return image;
}

bool View::renderPng(int width, int height, const std::string& path, std::string& error) {
  return writePngInPlace(render(width, height), path, error);
}

ru::Reference<ruImage::Image> View::thumbnail(int part, int size) {
  documentDraw_->draw();
  voDMD::KLTMesh* mesh = nullptr;
  if (part >= 0) {
    if (part >= static_cast<int>(scene_.parts().size())) return nullptr;
    mesh = scene_.parts()[part].object->findAttribute<voDMD::KLTMesh>();
    if (!mesh) return nullptr;
  }
  ru::Reference<ruImage::Image> image = surface_->renderThumb(mesh, size, size);
  // The read-back gives the rows bottom-up; a picture on disk starts at the top.
  if (image) ruImage::imageFlipVertical(*image);
  return image;
}

bool View::thumbnailPng(int part, int size, const std::string& path, std::string& error) {
  return writePngInPlace(thumbnail(part, size), path, error);
}

void View::setCamera(const ruGeom::Camera& camera) {
  scene_.document().camera()->set(camera);
  surface_->updateCamera(camera);
}

bool View::drawToWindow() {
  if (!inWindow_) return false;
  documentDraw_->draw();
  snapManager_->draw();
  return system_->draw(surface_->renderTargetNode());
}

int pixelsUnlikeBackground(const ruImage::Image& image) {
  const int bpp = image.bytesPerPixel();
  const std::uint8_t* bytes = image.bytes();
  if (!bytes || bpp < 3) return 0;
  int count = 0;
  const std::size_t pixels = image.byteSize() / static_cast<std::size_t>(bpp);
  for (std::size_t i = 0; i < pixels; ++i) {
    const std::uint8_t* p = bytes + i * static_cast<std::size_t>(bpp);
    if (bpp == 4 && p[3] == 0) continue;
    const int low = std::min({p[0], p[1], p[2]}), high = std::max({p[0], p[1], p[2]});
    if (high - low <= 3 && low >= 234) continue;
    ++count;
  }
  return count;
}

}  // namespace printprep
