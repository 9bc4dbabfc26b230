#pragma once

// The interactive half of the host: its clock (timers and the two function schedulers the input
// layer and the animation manager ride on), the per-document objects a document needs for input
// (dispatcher, animation manager, modeling planes; the View holds the rest), and the tools, each a
// voEV::Client on the document's dispatcher. The viewer window and the replay
// of recorded sessions share all of it; they differ only in where events and time come from.
//
// Positions: every event handed to Workbench::dispatch carries viewport pixels with y up (the
// window's y-down cursor is converted by the caller: y' = height - 1 - y, after scaling to
// framebuffer pixels), since hit tests, snapping and projection all work in viewport pixels.

#include "host/scene.h"
#include "host/view.h"

#include "datamodelgui/events/dispatcher.h"
#include "datamodelgui/events/event.h"
#include "datamodelgui/events/parser.h"
#include "datamodelgui/events/scheduler.h"
#include "platform/base/linear.h"
#include "platform/base/signal.h"
#include "platform/geometry/camera.h"
#include "platform/support/broadcaster.h"
#include "platform/support/callinfo.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace voANM {
class Manager;
}
namespace voDMG {
class CandidateSet;
class DocumentHitTester;
class ModelingPlanes;
class ModelingPlanesDraw;
class SnapManager;
}  // namespace voDMG

namespace printprep {

class HostTimers;

// A host timer: armed when made, due `timeout` seconds later by the current ruOS clock. It fires
// once, from HostTimers::fireDue, and may be deleted inside its own sigTimer.
class HostTimer : public voEV::Timer {
public:
  HostTimer(HostTimers& owner, double timeout);
  ~HostTimer() override;
  void start() override;
  void stop() override;

private:
  friend class HostTimers;
  HostTimers& owner_;
  double due_ = 0.0;
  std::uint64_t order_ = 0;  // arming order breaks ties between timers due at the same time
  bool armed_ = false;
};

// A function scheduler whose passes the host's loop runs while it is started.
class LoopScheduler : public voEV::FunctionScheduler {
public:
  bool isRunning() const noexcept { return running_; }

private:
  void startExecution() override { running_ = true; }
  void stopExecution() override { running_ = false; }
  bool running_ = false;
};

// The host's voEV::Timers: timers on the current ruOS clock (the steady clock in the window, a
// manual one in a replay) and two loop schedulers, one for animation and one for idle work.
class HostTimers : public voEV::Timers {
public:
  HostTimers();
  ~HostTimers() override;

  // Fires, in order of due time and then of arming, every armed timer due by `now` (seconds on
  // the current clock). With a manual clock the clock is set to each timer's due time as it
  // fires, so what a timer's listeners read is the time it was due. Timers made by a listener are
  // considered on the next round.
  void fireDue(double now, ruOS::ManualClock* manual);
  // The earliest due time of an armed timer, if any.
  std::optional<double> nextDue() const;

  LoopScheduler& anim() const noexcept { return *static_cast<LoopScheduler*>(animScheduler()); }
  LoopScheduler& idle() const noexcept { return *static_cast<LoopScheduler*>(idleScheduler()); }

private:
  friend class HostTimer;
  voEV::Timer* onCreate(double timeout) override;
  void arm(HostTimer& timer);

  std::vector<HostTimer*> timers_;
  std::uint64_t nextOrder_ = 0;
};

class SelectTool;
class MoveTool;
class CameraTool;
class KeysTool;

// What the cut-away shows: on or off, and the height of its plane in mm (the part above is cut).
struct CutAway {
  bool on = false;
  double z = 0.0;
};

// The interactive objects of one scene and its view: the host's clock, the document's dispatcher
// with its gestures, the animation manager, the modeling planes and the four tools. The View holds
// what drawing and picking need (document draw, surface, selection and candidate sets, hit tester,
// snap manager) and sent their set-up messages; the workbench enters both in the document's call
// table. Made after the View, destroyed before it.
class Workbench {
public:
  // Enters every per-document object in the domain's table, sends the gestures' set-up message (the
  // view sent the other two) and makes the tools. The camera frames the printer and the parts from
  // `direction` in a width x height viewport (pixels). Clears the undo history: loading the parts
  // is not a step to undo.
  Workbench(Scene& scene, View& view, int width, int height, ViewDirection direction = ViewDirection::Iso);
  Workbench(const Workbench&) = delete;
  Workbench& operator=(const Workbench&) = delete;
  ~Workbench();

  // Hands one event (positions in viewport pixels, y up) to the dispatcher, within the document's
  // call table.
  void dispatch(const voEV::Event& event);
  // Fires the timers due by `now` on the current clock (see HostTimers::fireDue), and runs one
  // pass of each started scheduler.
  void advance(double now, ruOS::ManualClock* manual = nullptr);
  // One frame's bookkeeping before the view draws: the animation manager's bracket, the document
  // draw, the modeling planes' and the snap manager's drawings. True when the animation asks for
  // another frame at once.
  bool prepareFrame();

  // A new viewport size (pixels): the camera keeps its view and takes the new aspect.
  void resize(int width, int height);
  const ruGeom::Camera& camera() const;
  // Replaces the document's camera (and the view's), fitting its depth range to the scene.
  void setCamera(ruGeom::Camera camera);
  // Shows, hides or moves the cut-away (with its caps).
  void setCutAway(const CutAway& cut);
  const CutAway& cutAway() const noexcept { return cut_; }

  // The document's selection and hover candidates, as part indices of the scene, in order.
  std::vector<int> selectedParts() const;
  std::vector<int> hoveredParts() const;
  // The part index of `object`, or -1.
  int partIndex(const voDMD::Object* object) const;

  Scene& scene() noexcept { return scene_; }
  View& view() noexcept { return view_; }
  voEV::Dispatcher& dispatcher() noexcept { return *dispatcher_; }
  HostTimers& timers() noexcept { return *timers_; }
  voSupport::CallInfo& callInfo() noexcept;
  // The box the camera frames: the printer's volume and the parts.
  ruLinear::Range3d sceneBox() const;

  // Sent after every undo or redo, drag, camera change or cut-away change, with a short note of
  // what happened ("move part.stl", "undo move", "cut-away on", "orbit", ...).
  ruRTB::SignalArg<const std::string&> sigAction;

private:
  Scene& scene_;
  View& view_;
  std::unique_ptr<voSupport::Domain> domain_;
  std::unique_ptr<HostTimers> timers_;
  std::unique_ptr<voSupport::CallScope> scope_;
  std::unique_ptr<voANM::Manager> animation_;
  voDMG::ModelingPlanes* planes_ = nullptr;
  std::unique_ptr<voDMG::ModelingPlanesDraw> planesDraw_;
  std::unique_ptr<voEV::Dispatcher> dispatcher_;
  std::unique_ptr<MoveTool> move_;
  std::unique_ptr<SelectTool> select_;
  std::unique_ptr<CameraTool> camera_;
  std::unique_ptr<KeysTool> keys_;
  CutAway cut_;
};

// The printprep tools. Each registers with the workbench's dispatcher in its constructor.

// Hover highlights the part under the cursor (the hit tester fills the candidate set); a click
// selects what is under it, replacing the selection, or adds it with Shift; a click on nothing
// clears the selection (Shift-click on nothing keeps it).
class SelectTool : public voEV::Client {
public:
  explicit SelectTool(Workbench& bench);
  bool wantsInteraction(voEV::InteractionType interaction, const voEV::Event& event) override;
  void interactionStarted(voEV::InteractionType, const voEV::Event&) override {}
  void interaction(voEV::InteractionType, const voEV::Event&) override {}
  void interactionFinished(voEV::InteractionType interaction, const voEV::Event& event) override;
  bool mouseHover(const voEV::MouseEvent& event) override;

private:
  Workbench& bench_;
};

// A left drag (without Shift) that starts on a part moves it over the bed: the point grabbed stays under the
// cursor on a plane parallel to the modeling plane, and a corner of another part within reach
// catches it (its x and y; the part keeps resting where it was). One undo step a drag; Escape
// during the drag puts the part back and ignores the rest of the drag.
class MoveTool : public voEV::Client {
public:
  explicit MoveTool(Workbench& bench);
  ~MoveTool() override;
  bool wantsInteraction(voEV::InteractionType interaction, const voEV::Event& event) override;
  void interactionStarted(voEV::InteractionType interaction, const voEV::Event& event) override;
  void interaction(voEV::InteractionType interaction, const voEV::Event& event) override;
  void interactionFinished(voEV::InteractionType interaction, const voEV::Event& event) override;

  // Whether something caught the cursor at the last move of the drag.
  bool lastMoveSnapped() const noexcept { return snapped_; }

private:
  void moveTo(const voEV::Point& position);
  void end(bool keep);

  struct Drag;
  Workbench& bench_;
  std::unique_ptr<Drag> drag_;
  bool snapped_ = false;
  ruLinear::Point caught_;  // the snapped position of the last move that snapped
};

// Camera: a left drag off the parts or a right drag orbits about the camera's target, a middle
// drag or a left drag with Shift pans, the wheel zooms toward the target.
class CameraTool : public voEV::Client {
public:
  explicit CameraTool(Workbench& bench);
  bool wantsInteraction(voEV::InteractionType interaction, const voEV::Event& event) override;
  void interactionStarted(voEV::InteractionType interaction, const voEV::Event& event) override;
  void interaction(voEV::InteractionType interaction, const voEV::Event& event) override;
  void interactionFinished(voEV::InteractionType interaction, const voEV::Event& event) override;
  bool wheel(const voEV::WheelEvent& event) override;

private:
  void follow(const voEV::Point& position);

  Workbench& bench_;
  bool pan_ = false;
  voEV::Point last_;
  ruGeom::Camera start_;
};

// Keys: Ctrl+Z undoes, Ctrl+Shift+Z or Ctrl+Y redoes, C shows or hides the cut-away (first through
// the middle of the parts' height), Up and Down move its plane by a twentieth of the parts' height
// within it (held keys repeat), Escape clears the selection (during a drag the move tool takes
// Escape first).
class KeysTool : public voEV::Client {
public:
  explicit KeysTool(Workbench& bench);
  // The keys the tool's KeyClick gesture recognises.
  static ru::set<voEV::KeyCode> keys();
  bool wantsInteraction(voEV::InteractionType interaction, const voEV::Event& event) override;
  void interactionStarted(voEV::InteractionType interaction, const voEV::Event& event) override;
  void interaction(voEV::InteractionType, const voEV::Event&) override {}
  void interactionFinished(voEV::InteractionType, const voEV::Event&) override {}
  bool keyState(const voEV::KeyEvent& event) override;

private:
  bool press(const voEV::KeyEvent& event);
  Workbench& bench_;
  bool cutPlaced_ = false;
};

// The viewport point at the centre of the pixel an event names.
inline ruLinear::Point2 pixelCentre(const voEV::Point& position) {
  return ruLinear::Point2(position.x + 0.5, position.y + 0.5);
}

}  // namespace printprep
