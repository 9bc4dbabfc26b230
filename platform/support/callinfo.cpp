#include "platform/support/callinfo.h"

namespace voSupport {

namespace {
thread_local std::vector<CallInfo*> scopes;
thread_local const Context* innermostContext = nullptr;
}  // namespace

void CallInfo::setEntry(const std::type_info& type, void* object) {
  for (Entry& entry : entries_) {
    if (*entry.type == type) {
      entry.object = object;
      return;
    }
  }
  entries_.push_back({&type, object});
}

void* CallInfo::findEntry(const std::type_info& type) const noexcept {
  for (const Entry& entry : entries_) {
    if (*entry.type == type) return entry.object;
  }
  return nullptr;
}

void CallInfo::removeEntry(const std::type_info& type) noexcept {
  for (auto it = entries_.begin(); it != entries_.end(); ++it) {
    if (*it->type == type) {
      entries_.erase(it);
      return;
    }
  }
}

CallInfo& ci() {
  if (!scopes.empty()) return *scopes.back();
  // The process-wide table: empty unless a host chooses to fill it.
  static CallInfo processTable;
  return processTable;
}

CallScope::CallScope(CallInfo& info) : info_(&info) { scopes.push_back(info_); }

CallScope::~CallScope() {
  // Scopes end in reverse order of creation; find ours from the top in case a caller broke that.
  for (auto it = scopes.rbegin(); it != scopes.rend(); ++it) {
    if (*it == info_) {
      scopes.erase(std::next(it).base());
      return;
    }
  }
}

Domain::Domain() { callInfo_.set<Domain>(this); }

Domain::~Domain() { sigDestroying.emit(this); }

void Domain::addClosingWork(std::function<void()> work) {
  if (!work) return;
  if (openContexts_ == 0) {
    work();
    return;
  }
  closingWork_.push_back(std::move(work));
}

void Domain::runClosingWork() {
  // Work queued by closing work runs in the same round.
  while (!closingWork_.empty()) {
    std::vector<std::function<void()>> work;
    work.swap(closingWork_);
    for (auto& item : work) item();
  }
}

Context::Context(Domain* domain, Mode mode) : domain_(domain), mode_(mode), outer_(innermostContext) {
  innermostContext = this;
  if (domain_) {
    ++domain_->openContexts_;
    scopes.push_back(&domain_->callInfo_);
  }
}

Context::~Context() {
  if (domain_) {
    for (auto it = scopes.rbegin(); it != scopes.rend(); ++it) {
      if (*it == &domain_->callInfo_) {
        scopes.erase(std::next(it).base());
        break;
      }
    }
    if (--domain_->openContexts_ == 0) domain_->runClosingWork();
  }
  innermostContext = outer_;
}

const Context* Context::current() noexcept { return innermostContext; }

}  // namespace voSupport
