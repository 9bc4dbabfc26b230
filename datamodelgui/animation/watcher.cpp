#include "datamodelgui/animation/watcher.h"

#include "platform/base/containers.h"
#include "platform/support/debug.h"

namespace voANM {

namespace {

using voSupport::DebugAnimation;
using voSupport::DebugPrint;

class WatcherImpl : public ru::ImplBase, public ruRTB::SignalClient {
public:
  WatcherImpl(AttributeWatcher* watcher, Manager& watched) : owner(watcher), manager(&watched) {
    // For the watcher's whole life.
    manager->sigIntervalDestroyed.connect(this, &WatcherImpl::onIntervalDestroyed, *this);
  }

  void start(bool clear) {
    if (!updatedConnection) updatedConnection = manager->sigUpdated.connect(this, &WatcherImpl::onMgrUpdated, *this);
    if (!executingConnection) {
      executingConnection = manager->sigExecuting.connect(this, &WatcherImpl::onMgrExecuting, *this);
    }
    if (clear) intervals.clear();
    // Unconditional: a second start without stop leaves the older connection to the watcher's end.
    createdConnection = manager->sigIntervalCreated.connect(this, &WatcherImpl::onIntervalCreated, *this);
  }

  void stop() {
    if (createdConnection) manager->sigIntervalCreated.disconnect(createdConnection);
    createdConnection = nullptr;
  }

  void onMgrExecuting() {
    if (intervals.empty()) return;
    owner->onAnimate.emit(owner);
  }

  void onMgrUpdated() {
    if (intervals.empty()) return;
    // A handler of the end signal may drop the last outside reference.
    const ru::Reference<AttributeWatcher> keep(owner);
    for (Interval* interval : intervals) {
      if (interval->dynamic()) return;
    }
    DebugPrint("`anonymous-namespace'::WatcherImpl::onMgrUpdated", DebugAnimation)(
        "Anim watcher: all %d ival's expired.", static_cast<int>(intervals.size()));
    if (updatedConnection) manager->sigUpdated.disconnect(updatedConnection);
    updatedConnection = nullptr;
    if (executingConnection) manager->sigExecuting.disconnect(executingConnection);
    executingConnection = nullptr;
    manager->needsUpdate();
    owner->onAnimationEnded.emit(owner);
  }

  void onIntervalCreated(Interval* interval) {
    DebugPrint("`anonymous-namespace'::WatcherImpl::onIntervalCreated", DebugAnimation)("Anim watcher: ival created.");
    intervals.insert(interval);
  }

  void onIntervalDestroyed(Interval* interval) {
    auto found = intervals.find(interval);
    if (found == intervals.end()) return;
    DebugPrint("`anonymous-namespace'::WatcherImpl::onIntervalDestroyed", DebugAnimation)(
        "Anim watcher: ival destroyed.");
    intervals.erase(found);
  }

  AttributeWatcher* owner;
  Manager* manager;
  ru::set<Interval*> intervals;
  ruRTB::Connection* updatedConnection = nullptr;
  ruRTB::Connection* executingConnection = nullptr;
  ruRTB::Connection* createdConnection = nullptr;
};

WatcherImpl& impl(ru::ImplBase* base) { return *static_cast<WatcherImpl*>(base); }

} // namespace

AttributeWatcher::AttributeWatcher(Manager& manager) : impl_(new WatcherImpl(this, manager)) {}

AttributeWatcher::~AttributeWatcher() {
  // The implementation goes first, cutting all its connections; then the signals.
  if (ownsImpl_) delete impl_;
}

void AttributeWatcher::start(bool clear) { impl(impl_).start(clear); }
void AttributeWatcher::stop() { impl(impl_).stop(); }

void AttributeWatcher::clear() {
  start(true);
  stop();
}

int AttributeWatcher::numIntervals() const noexcept { return static_cast<int>(impl(impl_).intervals.size()); }

} // namespace voANM
