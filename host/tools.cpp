#include "host/tools.h"

#include "datamodelgui/animation/animation.h"
#include "datamodelgui/draw/documentdraw.h"
#include "datamodelgui/draw/modelingplanes.h"
#include "datamodelgui/draw/objectdraw.h"
#include "datamodelgui/draw/surfacedraw.h"
#include "datamodelgui/events/gesture.h"
#include "datamodelgui/events/initialize.h"
#include "datamodelgui/selection/hittester.h"
#include "datamodelgui/selection/selectionset.h"
#include "datamodelgui/selection/selector.h"
#include "datamodelgui/snap/projector.h"
#include "datamodelgui/snap/snapitems.h"
#include "datamodelgui/snap/snapmanager.h"
#include "platform/datamodel/actions.h"
#include "platform/datamodel/attributes.h"
#include "platform/datamodel/print.h"
#include "platform/graphics/draw.h"
#include "platform/graphics/hittest.h"
#include "platform/resources/resources.h"
#include "platform/support/settings.h"
#include "platform/support/tags.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace printprep {

using ruLinear::AffineMatrix;
using ruLinear::Point;
using ruLinear::Point2;
using ruLinear::Range3d;
using ruLinear::Vector;

namespace {


voTXN::Manager& transactions() { return *voSupport::ci().find<voDMA::TxnManager>()->get(); }

// Opens the set's batch interface to the tools: a click without Shift replaces the selection.
class ReplacingSelector : public voDMG::ObjectSelector {
public:
  explicit ReplacingSelector(voDMG::SelectionSet& set) : ObjectSelector(set) {}
  using SelectorBase::clear;
};

// Keeps one object's drawings out of a hit test (the part being dragged snaps to the others).
class NotOwnedBy : public voGR::HitFilter {
public:
  explicit NotOwnedBy(const voDMG::ObjectDraw* owner) : owner_(owner) {}

private:
  bool filter(const voGR::DrawItem& item) const override { return item.getObjectDrawOwner() != owner_; }
  const voDMG::ObjectDraw* owner_;
};

}  // namespace

// ---------------------------------------------------------------------------------------------
// The clock

HostTimer::HostTimer(HostTimers& owner, double timeout) : voEV::Timer(timeout), owner_(owner) {
  owner_.timers_.push_back(this);
  // A host timer runs from its creation; the parser never calls start().
  owner_.arm(*this);
}

HostTimer::~HostTimer() {
  auto& timers = owner_.timers_;
  timers.erase(std::remove(timers.begin(), timers.end(), this), timers.end());
}

void HostTimer::start() { owner_.arm(*this); }

void HostTimer::stop() { armed_ = false; }

HostTimers::HostTimers() : voEV::Timers(new LoopScheduler, new LoopScheduler) {}

HostTimers::~HostTimers() = default;

voEV::Timer* HostTimers::onCreate(double timeout) { return new HostTimer(*this, timeout); }

void HostTimers::arm(HostTimer& timer) {
  timer.due_ = ruOS::currentClock().now() + timer.getTimeout();
  timer.order_ = nextOrder_++;
  timer.armed_ = true;
}

std::optional<double> HostTimers::nextDue() const {
  std::optional<double> due;
  for (const HostTimer* timer : timers_)
    if (timer->armed_ && (!due || timer->due_ < *due)) due = timer->due_;
  return due;
}

void HostTimers::fireDue(double now, ruOS::ManualClock* manual) {
  for (;;) {
    HostTimer* next = nullptr;
    for (HostTimer* timer : timers_) {
      if (!timer->armed_ || timer->due_ > now) continue;
      if (!next || timer->due_ < next->due_ || (timer->due_ == next->due_ && timer->order_ < next->order_)) next = timer;
    }
    if (!next) break;
    if (manual) manual->set(std::max(manual->now(), next->due_));
    next->armed_ = false;
    // The listener may delete the timer: it is not touched after this.
    next->sigTimer.emit(next);
  }
  if (manual) manual->set(std::max(manual->now(), now));
}

// ---------------------------------------------------------------------------------------------
// Workbench

Workbench::Workbench(Scene& scene, View& view, int width, int height, ViewDirection direction)
    : scene_(scene), view_(view), domain_(std::make_unique<voSupport::Domain>()), timers_(std::make_unique<HostTimers>()) {
  // One table for everything: the dispatcher and the schedulers push the domain's table around
  // their deliveries, so what the scene and the view entered (the view made the document draw,
  // surface, selection and candidate sets, hit tester and snap manager, and sent their set-up
  // messages) goes there too.
  voSupport::CallInfo& table = domain_->callInfo();
  const voSupport::CallInfo& from = scene.callInfo();
  table.set<voDMD::Document>(from.find<voDMD::Document>());
  table.set<voDMA::TxnManager>(from.find<voDMA::TxnManager>());
  table.set<voDMD::Camera>(from.find<voDMD::Camera>());
  table.set<voGR::DrawSystem>(from.find<voGR::DrawSystem>());
  table.set<voRES::Loader>(from.find<voRES::Loader>());
  table.set<voSupport::PropertySet>(from.find<voSupport::PropertySet>());
  table.set<voSupport::TagRegistry>(from.find<voSupport::TagRegistry>());
  table.set<voSupport::Broadcaster>(from.find<voSupport::Broadcaster>());
  table.set<voDMG::SelectionSet>(from.find<voDMG::SelectionSet>());
  table.set<voDMG::CandidateSet>(from.find<voDMG::CandidateSet>());
  table.set<voDMG::DocumentHitTester>(from.find<voDMG::DocumentHitTester>());
  table.set<voDMG::SnapManager>(from.find<voDMG::SnapManager>());
  table.set<voDMG::DocumentDraw>(from.find<voDMG::DocumentDraw>());
  table.set<voDMG::DocumentSurfaceDraw>(from.find<voDMG::DocumentSurfaceDraw>());
  table.set<voEV::Timers>(timers_.get());
  scope_ = std::make_unique<voSupport::CallScope>(table);

  voSupport::Broadcaster& broadcaster = *table.find<voSupport::Broadcaster>();
  voEV::initialize();
  voANM::initialize();
  animation_ = std::make_unique<voANM::Manager>();
  planes_ = voDMG::ModelingPlanes::create();
  // Parts are modelled on the bed: the modeling plane is the bed's plane.
  planes_->setPlane(ruLinear::Plane(scene.useableVolume().getMin(), ruLinear::Normal(0, 0, 1)));
  planes_->setVisibility(false);
  table.set<voANM::Manager>(animation_.get());
  table.set<voDMG::ModelingPlanes>(planes_);
  // The grid of the modeling plane stays hidden over the bed, which shows its own; its drawing
  // is still made and called each frame, so showing the plane is all it takes.
  planesDraw_ = std::make_unique<voDMG::ModelingPlanesDraw>(planes_);
  dispatcher_ = std::make_unique<voEV::Dispatcher>();

  // The third set-up message: the gestures of the tools.
  broadcaster.addHandler<voEV::InstallGesturesMsg>(voSupport::Priority(100, 0), [](voEV::InstallGesturesMsg& message) {
    message.parser().pushBackGesture(new voEV::ClickMouse);
    message.parser().pushBackGesture(new voEV::DragMouse);
    message.parser().pushBackGesture(new voEV::KeyClick(KeysTool::keys()));
  });
  voEV::InstallGesturesMsg installGestures(dispatcher_->parser());
  broadcaster.broadcast(installGestures);

  // Tools are offered interactions in this order: a drag on a part moves it before the camera
  // sees it.
  move_ = std::make_unique<MoveTool>(*this);
  select_ = std::make_unique<SelectTool>(*this);
  camera_ = std::make_unique<CameraTool>(*this);
  keys_ = std::make_unique<KeysTool>(*this);

  view_.look(sceneBox(), direction, width, height);
  setCamera(camera());
  // Work starts from the job as loaded: putting the parts on the bed is not a step to undo.
  table.find<voDMA::TxnManager>()->get()->clearHistory();
}

Workbench::~Workbench() {
  keys_.reset();
  camera_.reset();
  select_.reset();
  move_.reset();
  dispatcher_.reset();
  planesDraw_.reset();
  domain_->callInfo().set<voDMG::ModelingPlanes>(nullptr);
  delete planes_;
  animation_.reset();
  scope_.reset();
  timers_.reset();
  domain_.reset();
}

voSupport::CallInfo& Workbench::callInfo() noexcept { return domain_->callInfo(); }

void Workbench::dispatch(const voEV::Event& event) {
  voSupport::CallScope scope(callInfo());
  dispatcher_->dispatch(event);
}

void Workbench::advance(double now, ruOS::ManualClock* manual) {
  voSupport::CallScope scope(callInfo());
  timers_->fireDue(now, manual);
  for (LoopScheduler* scheduler : {&timers_->anim(), &timers_->idle()}) {
    if (!scheduler->isRunning()) continue;
    voSupport::Context context(domain_.get(), voSupport::Context::Motion);
    scheduler->onExecution();
  }
}

bool Workbench::prepareFrame() {
  voSupport::CallScope scope(callInfo());
  animation_->preUpdate();
  animation_->preExecute();
  callInfo().find<voDMG::DocumentDraw>()->draw();
  planesDraw_->draw();
  callInfo().find<voDMG::SnapManager>()->draw();
  return animation_->postUpdate();
}

Range3d Workbench::sceneBox() const {
  Range3d box = scene_.useableVolume();
  if (!scene_.parts().empty()) box.include(scene_.partsBox());
  return box;
}

const ruGeom::Camera& Workbench::camera() const { return scene_.document().camera()->get(); }

void Workbench::setCamera(ruGeom::Camera camera) {
  // Near and far hug the scene's sphere from wherever the eye is.
  const Range3d box = sceneBox();
  const double radius = std::max(0.5 * ruLinear::length(box.getDiagonal()), 1e-3);
  const double distance = ruLinear::length(camera.getEyeLocation() - box.getMiddle());
  ruGeom::AngleAspect frustum = camera.getFrustum();
  frustum.setDepthRange(std::max(distance - 1.5 * radius, 1e-3 * radius), distance + 1.5 * radius);
  camera.setFrustum(frustum);
  view_.setCamera(camera);
}

void Workbench::resize(int width, int height) {
  ruGeom::Camera camera = this->camera();
  camera.setViewport(ruGeom::Viewport(0, 0, width, height));
  ruGeom::AngleAspect frustum = camera.getFrustum();
  frustum.setAspectRatio(static_cast<double>(width) / std::max(height, 1));
  camera.setFrustum(frustum);
  setCamera(camera);
}

void Workbench::setCutAway(const CutAway& cut) {
  voSupport::CallScope scope(callInfo());
  cut_ = cut;
  if (cut.on) {
    view_.setCut(cut.z);
  } else {
    view_.clearCut();
  }
}

int Workbench::partIndex(const voDMD::Object* object) const {
  const auto& parts = scene_.parts();
  for (std::size_t i = 0; i < parts.size(); ++i)
    if (parts[i].object.get() == object) return static_cast<int>(i);
  return -1;
}

namespace {
std::vector<int> partsOf(const Workbench& bench, const voDMG::SelectionSet* set) {
  std::vector<int> out;
  if (!set) return out;
  for (const voDMG::SelectionItem& item : set->items()) {
    const int index = bench.partIndex(item.getObject());
    if (index >= 0 && std::find(out.begin(), out.end(), index) == out.end()) out.push_back(index);
  }
  std::sort(out.begin(), out.end());
  return out;
}
}  // namespace

std::vector<int> Workbench::selectedParts() const {
  return partsOf(*this, domain_->callInfo().find<voDMG::SelectionSet>());
}

std::vector<int> Workbench::hoveredParts() const { return partsOf(*this, &view_.candidates()); }

// ---------------------------------------------------------------------------------------------
// SelectTool

SelectTool::SelectTool(Workbench& bench) : Client(bench.dispatcher(), false, false), bench_(bench) {}

bool SelectTool::wantsInteraction(voEV::InteractionType interaction, const voEV::Event& event) {
  const auto* mouse = dynamic_cast<const voEV::MouseEvent*>(&event);
  return interaction == voEV::ClickMouseInteraction && mouse && mouse->getButton() == voEV::ButtonLeft;
}

void SelectTool::interactionFinished(voEV::InteractionType, const voEV::Event& event) {
  const auto* mouse = dynamic_cast<const voEV::MouseEvent*>(&event);
  if (!mouse) return;
  voSupport::CallInfo& info = voSupport::ci();
  info.find<voDMG::DocumentHitTester>()->hitTest(pixelCentre(mouse->getPosition()), voDMG::DocumentHitTester::Button);
  ru::vector<voDMD::Object*> hit;
  voDMG::ObjectSelection(*info.find<voDMG::CandidateSet>()).objects(hit);
  ru::vector<voDMD::Object*> parts;
  for (voDMD::Object* object : hit)
    if (bench_.partIndex(object) >= 0) parts.push_back(object);
  const bool adding = (mouse->getModifierMask() & voEV::ModifierShift) != 0;
  // One selector: listeners hear of the whole change once, when it closes.
  ReplacingSelector selector(*info.find<voDMG::SelectionSet>());
  if (!adding) selector.clear();
  selector.add(parts);
}

bool SelectTool::mouseHover(const voEV::MouseEvent& event) {
  voSupport::ci().find<voDMG::DocumentHitTester>()->hitTest(pixelCentre(event.getPosition()),
                                                            voDMG::DocumentHitTester::Move);
  return true;
}

// ---------------------------------------------------------------------------------------------
// MoveTool

// What a drag holds: the part, where it was grabbed, its placement before, and the snapping.
struct MoveTool::Drag {
  voDMD::Object* object = nullptr;
  Point grab;
  AffineMatrix start;
  ru::Reference<voDMG::PlaneProjector> projector;
  ru::Reference<voDMG::SnapClient> snap;
  // The other parts in world coordinates, as plain meshes for the mesh snap factories (whose
  // items read a mesh's vertices as world points). Never entered in the document.
  std::vector<ru::Reference<voDMD::Object>> targets;
  bool open = false;       // the transaction is open
  bool cancelled = false;  // Escape: the rest of the drag is ignored
};

MoveTool::MoveTool(Workbench& bench) : Client(bench.dispatcher(), false, false), bench_(bench) {}

MoveTool::~MoveTool() {
  if (drag_) end(false);
}

bool MoveTool::wantsInteraction(voEV::InteractionType interaction, const voEV::Event& event) {
  const auto* mouse = dynamic_cast<const voEV::MouseEvent*>(&event);
  // Shift with a left drag pans the camera, wherever it starts.
  if (interaction != voEV::DragMouseInteraction || !mouse || mouse->getButtonMask() != voEV::ButtonLeft ||
      (mouse->getModifierMask() & voEV::ModifierShift) != 0)
    return false;
  voSupport::CallInfo& info = voSupport::ci();
  ru::vector<voGR::HitRecord> records;
  voGR::HitTestConfig config;
  voGR::visibilityTest(*info.find<voGR::DrawSystem>(), bench_.camera(), pixelCentre(mouse->getPosition()), config,
                       records);
  for (const voGR::HitRecord& record : records) {
    voDMD::Object* object = record.owner ? record.owner->getObject() : nullptr;
    if (bench_.partIndex(object) < 0) continue;
    drag_ = std::make_unique<Drag>();
    drag_->object = object;
    drag_->grab = record.point;
    return true;
  }
  return false;
}

void MoveTool::interactionStarted(voEV::InteractionType, const voEV::Event&) {
  if (!drag_) return;
  voSupport::CallInfo& info = voSupport::ci();
  Drag& drag = *drag_;
  drag.start = drag.object->findAttribute<voDMD::Transform>()->getObjToWorld();
  voDMD::Document& document = *info.find<voDMD::Document>();
  voGR::HitTestConfig config;
  config.radius = voSupport::getHitTestRadius();
  config.secondFilter = new NotOwnedBy(info.find<voDMG::DocumentDraw>()->getDraw(drag.object));
  drag.snap = new voDMG::SnapClient(config);
  for (const ScenePart& part : bench_.scene().parts()) {
    if (part.object.get() == drag.object) continue;
    const voDMD::KLTMesh* mesh = part.object->findAttribute<voDMD::KLTMesh>();
    if (!mesh || !mesh->getMesh() || !mesh->visible()) continue;
    ru::Reference<ruGeom::CompactMesh> world = new ruGeom::CompactMesh();
    *world = *mesh->getMesh();
    const AffineMatrix& placement = part.object->findAttribute<voDMD::Transform>()->getObjToWorld();
    for (int i = 0; i < world->getNumVertices(); ++i) {
      ruGeom::MeshVertex& vertex = world->editVertices()[i];
      vertex = ruGeom::MeshVertex(vertex.asPoint() * placement);
    }
    ru::Reference<voDMD::Object> target = voDMD::Object::create(document, voDMD::MeshClass::get());
    target->addAttribute<voDMD::Mesh>(world);
    drag.snap->addFactory(new voDMG::MeshSnapFactory(target->findAttribute<voDMD::Mesh>()));
    drag.targets.push_back(target);
  }
  // The plane of the drag: the modeling plane's direction, through the point grabbed.
  const ruLinear::Plane modeling = info.find<voDMG::ModelingPlanes>()->getPlane();
  drag.projector = voDMG::PlaneProjector::create(ruLinear::Plane(drag.grab, modeling.getNormal()));
  drag.open = transactions().begin("move");
  drag.snap->beginSnap();
  snapped_ = false;
}

void MoveTool::interaction(voEV::InteractionType, const voEV::Event& event) {
  if (!drag_ || drag_->cancelled) return;
  if (const auto* key = dynamic_cast<const voEV::KeyEvent*>(&event)) {
    if (key->getType() == voEV::KeyPress && key->getKeyCode() == voEV::KeyEscape) {
      end(false);
      // The drag's remaining events still come here; they are ignored.
      drag_ = std::make_unique<Drag>();
      drag_->cancelled = true;
      bench_.sigAction.emit("move cancelled");
    }
    return;
  }
  const auto* mouse = dynamic_cast<const voEV::MouseEvent*>(&event);
  if (mouse && mouse->getType() == voEV::MouseMove) moveTo(mouse->getPosition());
}

void MoveTool::interactionFinished(voEV::InteractionType, const voEV::Event& event) {
  if (!drag_) return;
  if (!drag_->cancelled) {
    const auto* mouse = dynamic_cast<const voEV::MouseEvent*>(&event);
    if (mouse && mouse->getType() != voEV::MouseButtonPress) moveTo(mouse->getPosition());
    const int index = bench_.partIndex(drag_->object);
    std::string note = "move " + bench_.scene().parts()[index].file;
    if (snapped_) {
      char caught[96];
      std::snprintf(caught, sizeof caught, " (caught at %.3f, %.3f, %.3f)", caught_.x, caught_.y, caught_.z);
      note += caught;
    }
    end(true);
    bench_.sigAction.emit(note);
  }
  drag_.reset();
}

void MoveTool::moveTo(const voEV::Point& position) {
  Drag& drag = *drag_;
  const Point2 cursor = pixelCentre(position);
  Point target = drag.projector->project(cursor);
  // The view shows the result's mark until the next one, and lets go of the one before.
  const ru::Reference<voDMG::SnapResult> result = drag.snap->snap(cursor);
  bench_.view().showSnapResult(result);
  snapped_ = result && result->hasPosition();
  if (snapped_) {
    // The corner caught sets where the grabbed point goes within the drag's plane, so the part
    // keeps its height.
    const ruLinear::Plane& plane = drag.projector->getPlane();
    const Vector normal(plane.getNormal().getX(), plane.getNormal().getY(), plane.getNormal().getZ());
    const Point caught = result->getPosition();
    caught_ = caught;
    const Vector off = caught - plane.getPoint();
    const double along = off.getX() * normal.getX() + off.getY() * normal.getY() + off.getZ() * normal.getZ();
    target = caught - normal * along;
  }
  drag.object->findAttribute<voDMD::Transform>()->setObjToWorld(drag.start *
                                                                AffineMatrix::translation(target - drag.grab));
}

void MoveTool::end(bool keep) {
  Drag& drag = *drag_;
  if (drag.snap) {
    drag.snap->endSnap();
    // The snap items point into the meshes made for this drag, which go with it.
    voSupport::ci().find<voDMG::SnapManager>()->clearItems();
  }
  if (drag.open) {
    if (keep) {
      transactions().commit();
    } else {
      transactions().abort();
    }
  }
  drag.open = false;
  bench_.view().showSnapResult(nullptr);
  drag.snap = nullptr;
  drag.targets.clear();
}

// ---------------------------------------------------------------------------------------------
// CameraTool

CameraTool::CameraTool(Workbench& bench) : Client(bench.dispatcher(), false, false), bench_(bench) {}

bool CameraTool::wantsInteraction(voEV::InteractionType interaction, const voEV::Event& event) {
  const auto* mouse = dynamic_cast<const voEV::MouseEvent*>(&event);
  if (interaction != voEV::DragMouseInteraction || !mouse) return false;
  const int buttons = mouse->getButtonMask();
  const bool shift = (mouse->getModifierMask() & voEV::ModifierShift) != 0;
  pan_ = (buttons & voEV::ButtonMiddle) != 0 || ((buttons & voEV::ButtonLeft) != 0 && shift);
  return buttons != 0;
}

void CameraTool::interactionStarted(voEV::InteractionType, const voEV::Event& event) {
  last_ = voEV::position(event);
  start_ = bench_.camera();
}

void CameraTool::interaction(voEV::InteractionType, const voEV::Event& event) {
  if (event.getType() == voEV::MouseMove) follow(voEV::position(event));
}

void CameraTool::interactionFinished(voEV::InteractionType, const voEV::Event& event) {
  if (event.getType() == voEV::MouseButtonRelease) follow(voEV::position(event));
  bench_.sigAction.emit(pan_ ? "pan" : "orbit");
}

void CameraTool::follow(const voEV::Point& position) {
  ruGeom::Camera camera = start_;
  const double dx = position.x - last_.x, dy = position.y - last_.y;
  const Point target = start_.getTarget();
  const Vector toEye = start_.getEyeLocation() - target;
  const double distance = ruLinear::length(toEye);
  if (pan_) {
    // The scene follows the cursor at the target's depth.
    const double perPixel = 2.0 * distance * std::tan(start_.getFrustum().getAngle() / 2.0) /
                            std::max(start_.getViewport().height, 1.0);
    const Vector shift = start_.getRightVector() * (-dx * perPixel) + start_.getUpVector() * (-dy * perPixel);
    camera.setWorldToEye(target + shift, start_.getEyeLocation() + shift, start_.getUpVector());
  } else {
    // Turntable: across turns about the vertical, up and down tilts, short of the poles.
    const double azimuth = std::atan2(toEye.getY(), toEye.getX()) - dx * 0.01;
    const double elevation =
        std::clamp(std::asin(std::clamp(toEye.getZ() / distance, -1.0, 1.0)) - dy * 0.01, -1.45, 1.45);
    const Vector direction(std::cos(elevation) * std::cos(azimuth), std::cos(elevation) * std::sin(azimuth),
                           std::sin(elevation));
    camera.setWorldToEye(target, target + direction * distance, Vector(0, 0, 1));
  }
  bench_.setCamera(camera);
}

bool CameraTool::wheel(const voEV::WheelEvent& event) {
  ruGeom::Camera camera = bench_.camera();
  const Point target = camera.getTarget();
  const Vector toEye = camera.getEyeLocation() - target;
  const double radius = 0.5 * ruLinear::length(bench_.sceneBox().getDiagonal());
  // A step up comes a tenth closer.
  const double distance =
      std::clamp(ruLinear::length(toEye) * std::pow(0.9, event.getDelta()), 0.05 * radius, 20.0 * std::max(radius, 1e-3));
  camera.setWorldToEye(target, target + toEye * (distance / ruLinear::length(toEye)), camera.getUpVector());
  bench_.setCamera(camera);
  bench_.sigAction.emit("zoom");
  return true;
}

// ---------------------------------------------------------------------------------------------
// KeysTool

KeysTool::KeysTool(Workbench& bench) : Client(bench.dispatcher(), false, false), bench_(bench) {}

ru::set<voEV::KeyCode> KeysTool::keys() {
  ru::set<voEV::KeyCode> keys;
  for (voEV::KeyCode key : {voEV::KeyZ, voEV::KeyY, voEV::KeyC, voEV::KeyUp, voEV::KeyDown, voEV::KeyEscape})
    keys.insert(key);
  return keys;
}

bool KeysTool::wantsInteraction(voEV::InteractionType interaction, const voEV::Event& event) {
  return interaction == voEV::KeyboardInteraction && dynamic_cast<const voEV::KeyEvent*>(&event);
}

void KeysTool::interactionStarted(voEV::InteractionType, const voEV::Event& event) {
  if (const auto* key = dynamic_cast<const voEV::KeyEvent*>(&event)) press(*key);
}

bool KeysTool::keyState(const voEV::KeyEvent& event) { return event.getType() == voEV::KeyPress && press(event); }

bool KeysTool::press(const voEV::KeyEvent& event) {
  if (event.getType() != voEV::KeyPress) return false;
  const int modifiers = event.getModifierMask() & (voEV::ModifierShift | voEV::ModifierCtrl | voEV::ModifierAlt);
  const bool ctrl = modifiers == voEV::ModifierCtrl, ctrlShift = modifiers == (voEV::ModifierCtrl | voEV::ModifierShift);
  voTXN::Manager& manager = transactions();
  switch (event.getKeyCode()) {
    case voEV::KeyZ:
    case voEV::KeyY: {
      const bool redo = (event.getKeyCode() == voEV::KeyZ && ctrlShift) || (event.getKeyCode() == voEV::KeyY && ctrl);
      const bool undo = event.getKeyCode() == voEV::KeyZ && ctrl;
      if (undo) {
        const std::string name = manager.undoName().c_str();
        bench_.sigAction.emit(manager.undo() ? "undo " + name : "nothing to undo");
      } else if (redo) {
        const std::string name = manager.redoName().c_str();
        bench_.sigAction.emit(manager.redo() ? "redo " + name : "nothing to redo");
      }
      return undo || redo;
    }
    case voEV::KeyC: {
      if (modifiers != 0) return false;
      CutAway cut = bench_.cutAway();
      // The first cut goes through the middle of the parts' height.
      if (!cut.on && !cutPlaced_) cut.z = bench_.scene().partsBox().getMiddle().z;
      cutPlaced_ = true;
      cut.on = !cut.on;
      bench_.setCutAway(cut);
      bench_.sigAction.emit(cut.on ? "cut-away on" : "cut-away off");
      return true;
    }
    case voEV::KeyUp:
    case voEV::KeyDown: {
      CutAway cut = bench_.cutAway();
      if (!cut.on) return false;
      const Range3d box = bench_.scene().partsBox();
      const double step = std::max((box.getMax().z - box.getMin().z) / 20.0, 0.05);
      cut.z = std::clamp(cut.z + (event.getKeyCode() == voEV::KeyUp ? step : -step), box.getMin().z, box.getMax().z);
      bench_.setCutAway(cut);
      bench_.sigAction.emit("cut-away moved");
      return true;
    }
    case voEV::KeyEscape: {
      auto* set = voSupport::ci().find<voDMG::SelectionSet>();
      if (!set || set->empty()) return false;
      ReplacingSelector selector(*set);
      selector.clear();
      bench_.sigAction.emit("selection cleared");
      return true;
    }
    default:
      return false;
  }
}

}  // namespace printprep
