#include "datamodelgui/animation/animation.h"

#include "datamodelgui/events/parser.h"
#include "datamodelgui/events/scheduler.h"
#include "platform/base/clock.h"
#include "platform/base/containers.h"
#include "platform/support/broadcaster.h"
#include "platform/support/callinfo.h"
#include "platform/support/debug.h"

#include <cmath>

// The value attribute of the support library is instantiated here, for the intervals.
template class voSupport::Attribute<double>;

namespace voANM {

namespace {

using voSupport::DebugAnimation;
using voSupport::DebugPrint;

class MgrImpl : public ru::ImplBase, public ruRTB::SignalClient {
public:
  explicit MgrImpl(Manager* manager) : owner(manager) { stopWatch.start(); }
  ~MgrImpl() override { delete animFunction; }

  // One step of the clock: the time between the reading and the restart is lost, on purpose.
  void advance() {
    time += stopWatch.check();
    stopWatch.clear();
    stopWatch.start();
  }

  void preUpdate() {
    needsUpdate = false;
    advance();
    DebugPrint("`anonymous-namespace'::MgrImpl::preUpdate", DebugAnimation)("Anim time %.02f", time);
    owner->sigUpdated.emit();
  }

  bool preExecute() {
    DebugPrint("`anonymous-namespace'::MgrImpl::preExecute", DebugAnimation)("Anim preExecute");
    owner->sigExecuting.emit();
    return owner->sigExecuting.isConnected();
  }

  bool postUpdate() {
    const DebugPrint print("`anonymous-namespace'::MgrImpl::postUpdate", DebugAnimation);
    if (!needsUpdate) {
      for (Interval* interval : intervals) {
        if (interval->dynamic()) {
          needsUpdate = true;
          break;
        }
      }
    }
    if (needsUpdate) {
      print("Anim postUpdate - needs update");
      return true;
    }
    print("Anim postUpdate - static");
    if (animFunction) {
      print("Anim function deleted");
      delete animFunction;
      animFunction = nullptr;
    }
    return false;
  }

  // Keeps the animation scheduler non-empty, which keeps the host's frames coming.
  void onAnim(voEV::ScheduledFunction*) {
    advance();
    DebugPrint("`anonymous-namespace'::MgrImpl::onAnim", DebugAnimation)("Anim func at time %.02f", time);
  }

  void intervalCreated(Interval* interval) {
    DebugPrint("`anonymous-namespace'::MgrImpl::intervalCreated", DebugAnimation)(
        "Anim interval created (starting %.02f for %.02f)", interval->startTime(), interval->duration());
    intervals.insert(interval);
    owner->sigIntervalCreated.emit(interval);
    if (!intervals.empty() && !animFunction) {
      DebugPrint("`anonymous-namespace'::MgrImpl::intervalCreated", DebugAnimation)("Anim function created");
      // The host enters its timers in the call info; a missing entry is a host error, not guarded.
      voEV::Timers* timers = voSupport::ci().find<voEV::Timers>();
      animFunction = timers->animScheduler()->createFunction();
      animFunction->sigExecute.connect(this, &MgrImpl::onAnim, *this);
    }
  }

  void intervalDestroyed(Interval* interval) {
    DebugPrint("`anonymous-namespace'::MgrImpl::intervalDestroyed", DebugAnimation)("Anim interval destroyed");
    owner->sigIntervalDestroyed.emit(interval);
    // The function stays: it goes at the next postUpdate that finds everything static.
    intervals.erase(interval);
  }

  Manager* owner;
  double time = 0.0;
  voEV::ScheduledFunction* animFunction = nullptr;
  ruOS::StopWatch stopWatch;
  ru::set<Interval*> intervals;
  bool needsUpdate = false;
};

MgrImpl& impl(ru::ImplBase* base) { return *static_cast<MgrImpl*>(base); }

// Cleared by the first initialize; the broadcaster sets it back on reset.
bool firstTime = true;

// Exposes the animation classes to the reflection database. The registrations come with the
// script bindings; until then there is nothing to register.
void exposeAnimationClasses(voSupport::InitializeReflectionMsg&) {}

using StartupHook = void (*)();
// Run on every initialize, in order, up to the null entry. The animation layer has none.
constexpr StartupHook startupHooks[] = {nullptr};

} // namespace

// --- Manager ---------------------------------------------------------------------------------

Manager::Manager() : impl_(new MgrImpl(this)) {}

Manager::~Manager() {
  if (ownsImpl_) delete impl_;
}

double Manager::currentTime() const { return impl(impl_).time + impl(impl_).stopWatch.check(); }
double Manager::frameTime() const noexcept { return impl(impl_).time; }
void Manager::preUpdate() { impl(impl_).preUpdate(); }
bool Manager::preExecute() { return impl(impl_).preExecute(); }
bool Manager::postUpdate() { return impl(impl_).postUpdate(); }
void Manager::needsUpdate() noexcept { impl(impl_).needsUpdate = true; }
void Manager::intervalCreated(Interval* interval) { impl(impl_).intervalCreated(interval); }
void Manager::intervalDestroyed(Interval* interval) { impl(impl_).intervalDestroyed(interval); }

// --- Interval --------------------------------------------------------------------------------

Interval::Interval(Manager& manager, double duration, bool cyclic)
    : manager_(&manager), start_(manager.currentTime()), duration_(duration), reversed_(false), cyclic_(cyclic) {
  manager.intervalCreated(this);
}

Interval::~Interval() { manager_->intervalDestroyed(this); }

bool Interval::dynamic() const { return cyclic_ || start_ + duration_ > manager_->frameTime(); }

double Interval::evaluate() const {
  const double now = manager_->frameTime();
  const double from = reversed_ ? 1.0 : 0.0;
  const double to = reversed_ ? 0.0 : 1.0;
  double t = 0.0;
  if (cyclic_) {
    t = std::fmod(now - start_, duration_) / duration_;
  } else if (start_ > now) {
    return from;
  } else if (now >= start_ + duration_) {
    return to;
  } else {
    t = (now - start_) / duration_;
  }
  return (1.0 - t) * from + t * to;
}

void Interval::reverse() {
  if (!dynamic()) return;
  const double now = manager_->frameTime();
  reversed_ = !reversed_;
  start_ = 2.0 * now - start_ - duration_;
}

// --- initialize ------------------------------------------------------------------------------

void initialize() {
  if (firstTime) {
    // Without a broadcaster there is nothing to subscribe to yet; a later call will.
    if (voSupport::Broadcaster* broadcaster = voSupport::ci().find<voSupport::Broadcaster>()) {
      firstTime = false;
      broadcaster->addFirstTimeFlag(firstTime);
      broadcaster->addHandler<voSupport::InitializeReflectionMsg>(voSupport::Priority(4, 0), &exposeAnimationClasses);
    }
  }
  for (const StartupHook* hook = startupHooks; *hook; ++hook) (*hook)();
}

} // namespace voANM
