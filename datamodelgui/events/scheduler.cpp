#include "datamodelgui/events/scheduler.h"

#include "platform/base/containers.h"
#include "platform/support/callinfo.h"

namespace voEV {

ScheduledFunction::~ScheduledFunction() { sigDestroying.emit(this); }

// Reaches the private hooks of FunctionScheduler for its implementation.
class FunctionSchedulerAccess {
public:
  static void startExecution(FunctionScheduler& scheduler) { scheduler.startExecution(); }
  static void stopExecution(FunctionScheduler& scheduler) { scheduler.stopExecution(); }
};

namespace {

struct FunctionState {
  bool runnable = false;   // takes part in the next pass
  bool destroyed = false;  // deleted while its signal was being emitted
  bool running = false;    // its signal is being emitted now
  bool dead = false;       // deleted under another domain: still counted, never run again
};

using FunctionMap = ru::map<ScheduledFunction*, FunctionState>;

class FunctionSchedulerImpl : public ru::ImplBase {
public:
  explicit FunctionSchedulerImpl(FunctionScheduler& owner) : owner_(owner) {}

  ScheduledFunction* createFunction() {
    voSupport::Domain* domain = voSupport::ci().find<voSupport::Domain>();
    if (!domains_.count(domain) && domain) {
      domain->sigDestroying.connect(this, &FunctionSchedulerImpl::onDomainDestroying, owner_);
    }
    FunctionMap& functions = domains_[domain];
    auto* function = new ScheduledFunction;
    function->sigDestroying.connect(this, &FunctionSchedulerImpl::onFunctionDestroying, owner_);
    // A function made during a pass first runs in the next one.
    functions[function] = FunctionState{!executing_, false, false, false};
    functionAdded();
    return function;
  }

  void scheduledExecution(voSupport::Domain* domain) {
    FunctionMap& functions = domains_[domain];
    const bool outer = !executing_;
    executing_ = true;
    voSupport::Domain* const enclosing = executingDomain_;
    executingDomain_ = domain;
    // Walk in address order. Listeners may delete functions: another one is erased at once, this
    // one only marked, so the iterator stays valid.
    for (auto it = functions.begin(); it != functions.end(); ++it) {
      if (!it->second.runnable || it->second.dead) continue;
      it->second.running = true;
      ScheduledFunction* function = it->first;
      function->sigExecute.emit(function);
      it->second.running = false;
    }
    for (auto it = functions.begin(); it != functions.end();) {
      auto next = std::next(it);
      it->second.runnable = true;
      if (it->second.destroyed) eraseFunction(functions, it);
      it = next;
    }
    executingDomain_ = enclosing;
    // A nested pass leaves the flag to the pass around it.
    if (outer) executing_ = false;
  }

  void onExecution() { scheduledExecution(voSupport::ci().find<voSupport::Domain>()); }

  void onExecutionWithoutContext() {
    // Closing work run by a context may remove domains: walk a copy of the keys.
    ru::vector<voSupport::Domain*> keys;
    keys.reserve(domains_.size());
    for (const auto& [domain, functions] : domains_) keys.push_back(domain);
    for (voSupport::Domain* domain : keys) {
      auto found = domains_.find(domain);
      if (found == domains_.end() || found->second.empty()) continue;
      // Open and close at once, so the domain's closing work gets its chance.
      { voSupport::Context context(domain, voSupport::Context::Motion); }
      found = domains_.find(domain);
      if (found != domains_.end() && !found->second.empty()) scheduledExecution(domain);
    }
  }

  int functionCount() const noexcept { return functionCount_; }
  bool executing() const noexcept { return executing_; }
  const ru::map<voSupport::Domain*, FunctionMap>& domains() const noexcept { return domains_; }

private:
  void onFunctionDestroying(ScheduledFunction* function) {
    // The function's entry is looked for in the current domain, then in the domain whose pass is
    // running (a pass without a context runs under the host's call info).
    FunctionMap* functions = nullptr;
    FunctionMap::iterator it;
    for (voSupport::Domain* domain : {voSupport::ci().find<voSupport::Domain>(), executingDomain_}) {
      auto found = domains_.find(domain);
      if (found == domains_.end()) continue;
      it = found->second.find(function);
      if (it != found->second.end()) {
        functions = &found->second;
        break;
      }
    }
    if (!functions) {
      // Deleted under another domain than its own: the bookkeeping ignores the call (the function
      // stays counted), but the entry is marked so that no pass calls the deleted object.
      for (auto& [domain, others] : domains_) {
        if (auto stale = others.find(function); stale != others.end()) stale->second.dead = true;
      }
      return;
    }
    if (it->second.running) {
      // Deleting itself from its own signal: the pass erases the entry when it is done.
      it->second.destroyed = true;
      return;
    }
    eraseFunction(*functions, it);
  }

  void onDomainDestroying(voSupport::Domain* domain) {
    // The functions of the domain are not counted down, so stopExecution is not called for them.
    domains_.erase(domain);
  }

  void eraseFunction(FunctionMap& functions, FunctionMap::iterator it) {
    functions.erase(it);
    functionRemoved();
  }

  void functionAdded() {
    if (functionCount_++ == 0) FunctionSchedulerAccess::startExecution(owner_);
  }

  void functionRemoved() {
    if (--functionCount_ == 0) FunctionSchedulerAccess::stopExecution(owner_);
  }

  FunctionScheduler& owner_;
  ru::map<voSupport::Domain*, FunctionMap> domains_;
  int functionCount_ = 0;
  bool executing_ = false;
  voSupport::Domain* executingDomain_ = nullptr;  // the domain whose pass is running, if any
};

FunctionSchedulerImpl& implOf(ru::ImplBase* impl) { return *static_cast<FunctionSchedulerImpl*>(impl); }

}  // namespace

FunctionScheduler::FunctionScheduler() : impl_(new FunctionSchedulerImpl(*this)) {}

FunctionScheduler::~FunctionScheduler() {
  // End the connections to functions and domains before the implementation goes.
  disconnectAll();
  if (ownsImpl_) delete impl_;
}

ScheduledFunction* FunctionScheduler::createFunction() { return implOf(impl_).createFunction(); }

void FunctionScheduler::onExecution() { implOf(impl_).onExecution(); }

void FunctionScheduler::onExecutionWithoutContext() { implOf(impl_).onExecutionWithoutContext(); }

int FunctionScheduler::functionCount() const noexcept { return implOf(impl_).functionCount(); }

bool FunctionScheduler::isExecuting() const noexcept { return implOf(impl_).executing(); }

int FunctionScheduler::functionCount(voSupport::Domain* domain) const noexcept {
  auto it = implOf(impl_).domains().find(domain);
  return it == implOf(impl_).domains().end() ? 0 : static_cast<int>(it->second.size());
}

bool FunctionScheduler::hasDomain(voSupport::Domain* domain) const noexcept {
  return implOf(impl_).domains().count(domain) != 0;
}

}  // namespace voEV
