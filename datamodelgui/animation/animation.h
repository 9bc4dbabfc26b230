#pragma once

#include "datamodelgui/export.h"
#include "platform/base/reference.h"
#include "platform/base/signal.h"
#include "platform/support/attribute.h"

// The animation layer: one shared animation clock and intervals whose value ramps with it.
namespace voANM {

class Interval;

// The animation clock and the set of live intervals. The host brackets every frame with
// preUpdate(), preExecute() and postUpdate(), in that order; postUpdate() tells it whether another
// frame is wanted at once. While intervals exist the manager keeps a function alive on the animation
// scheduler of the current call's voEV::Timers, so that the host keeps ticking. Owned by the host,
// which also enters it in the call info; it must outlive every interval and watcher.
class DMGUI_API Manager {
public:
  // The clock starts now, at time 0.
  Manager();
  Manager(const Manager&) = delete;
  Manager& operator=(const Manager&) = delete;
  // Deletes the scheduled function if there is one.
  ~Manager();

  // The frame time plus the time run since the last advance, in seconds. Changes between calls.
  double currentTime() const;
  // The clock as of the last advance, in seconds: every value read in one frame sees this instant.
  double frameTime() const noexcept;

  // Starts a frame: clears the needs-update flag, advances the clock, emits sigUpdated.
  void preUpdate();
  // Emits sigExecuting; true when someone still listens to it (a running watcher).
  bool preExecute();
  // Ends a frame: true when another frame is needed (needsUpdate() was called since preUpdate, or
  // an interval is dynamic). Otherwise deletes the scheduled function and answers false.
  bool postUpdate();
  // Asks for one more frame: the next postUpdate answers true unless a preUpdate comes first.
  void needsUpdate() noexcept;

  // At the end of preUpdate, after the clock has advanced.
  ruRTB::SignalVoid sigUpdated;
  // In preExecute.
  ruRTB::SignalVoid sigExecuting;
  // After an interval has entered the set.
  ruRTB::SignalArg<Interval*> sigIntervalCreated;
  // Before an interval leaves the set.
  ruRTB::SignalArg<Interval*> sigIntervalDestroyed;

private:
  friend class Interval;
  void intervalCreated(Interval* interval);
  void intervalDestroyed(Interval* interval);

  ru::ImplBase* impl_;
  bool ownsImpl_ = true;
};

// A value that ramps linearly from 0 to 1 (or 1 to 0 when reversed) over `duration` seconds of the
// manager's clock, from the time it was made. A cyclic interval saws without end. Reference
// counted; it stays in its manager's set, harmlessly, after it expires, until its last reference
// goes.
class DMGUI_API Interval : public voSupport::Attribute<double> {
public:
  // Starts at the manager's running clock (not the frame time), so an interval made between frames
  // begins after the current frame time and reads its start value until the next frame.
  Interval(Manager& manager, double duration, bool cyclic);
  Interval(const Interval&) = delete;
  Interval& operator=(const Interval&) = delete;
  ~Interval() override;

  double startTime() const noexcept { return start_; }
  double duration() const noexcept { return duration_; }
  bool isReversed() const noexcept { return reversed_; }
  bool isCyclic() const noexcept { return cyclic_; }
  Manager& manager() const noexcept { return *manager_; }
  // Plain writes: they neither move the start nor tell the manager.
  void setDuration(double duration) noexcept { duration_ = duration; }
  void setReverse(bool reversed) noexcept { reversed_ = reversed; }
  void setCyclic(bool cyclic) noexcept { cyclic_ = cyclic; }
  // Turns a running ramp round so that it runs back from its present value, taking as long as it
  // has run so far. Does nothing unless dynamic().
  void reverse();

  // True while the value may still change: always for a cyclic interval; otherwise until the frame
  // time reaches start + duration (an interval not yet begun counts as dynamic).
  bool dynamic() const override;
  // The value at the frame time. Before the start: the start value; at or past the end: the end
  // value. A cyclic interval before its start gives a value outside 0..1, on purpose.
  double evaluate() const override;

private:
  Manager* manager_;
  double start_;
  double duration_;
  bool reversed_;
  bool cyclic_;
};

// Called by the host once at start, with its voSupport::Broadcaster in the call info: the first
// call (and the first after the broadcaster's reset) subscribes the animation classes' reflection
// exposure to voSupport::InitializeReflectionMsg at priority (4, 0); every call runs the layer's
// start-up hooks. Without a broadcaster in the call info nothing is subscribed (and the first-time
// flag stays set, so a later call with one subscribes).
DMGUI_API void initialize();

} // namespace voANM
