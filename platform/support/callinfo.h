#pragma once

#include "platform/base/signal.h"
#include "platform/support/export.h"

#include <cstddef>
#include <functional>
#include <typeinfo>
#include <utility>
#include <vector>

namespace voSupport {

// The table of the current call: pairs of a type and a pointer. Components find one another here
// instead of holding pointers to one another. Look-up is by the exact type an entry was made under
// (not by derivation), in line, the first match winning; a miss gives null.
class VO_SUPPORT_API CallInfo {
public:
  CallInfo() = default;

  // Enters `object` under T, replacing an entry of the same type. The table does not own it.
  template <class T>
  void set(T* object) {
    setEntry(typeid(T), const_cast<void*>(static_cast<const void*>(object)));
  }
  // The object entered under exactly T, or null.
  template <class T>
  T* find() const {
    return static_cast<T*>(findEntry(typeid(T)));
  }
  template <class T>
  void remove() {
    removeEntry(typeid(T));
  }

  std::size_t size() const noexcept { return entries_.size(); }
  bool empty() const noexcept { return entries_.empty(); }
  void clear() noexcept { entries_.clear(); }

  struct Entry {
    const std::type_info* type;
    void* object;
  };
  const std::vector<Entry>& entries() const noexcept { return entries_; }

private:
  void setEntry(const std::type_info& type, void* object);
  void* findEntry(const std::type_info& type) const noexcept;
  void removeEntry(const std::type_info& type) noexcept;

  std::vector<Entry> entries_;
};

// The innermost table pushed on this thread, or, when none is, the process-wide table (empty
// unless the host fills it).
VO_SUPPORT_API CallInfo& ci();

// Makes `info` the current table for its lifetime. Scopes nest; the table must outlive the scope.
class CallScope;
// The same scope under its longer name.
using CallInfoScope = CallScope;

class VO_SUPPORT_API CallScope {
public:
  explicit CallScope(CallInfo& info);
  CallScope(const CallScope&) = delete;
  CallScope& operator=(const CallScope&) = delete;
  ~CallScope();

private:
  CallInfo* info_;
};

// A unit of work of the host, usually one per document. It holds its own call table, in which it
// enters itself; a host enters its per-document objects there too. `sigDestroying` is emitted with
// the domain before it dies. Closing work runs when the outermost context of the domain closes.
class VO_SUPPORT_API Domain {
public:
  Domain();
  Domain(const Domain&) = delete;
  Domain& operator=(const Domain&) = delete;
  ~Domain();

  CallInfo& callInfo() noexcept { return callInfo_; }
  const CallInfo& callInfo() const noexcept { return callInfo_; }

  // Queues `work` to run when the outermost open context of this domain closes, or at once when no
  // context of it is open.
  void addClosingWork(std::function<void()> work);

  // Contexts of this domain open now.
  int openContexts() const noexcept { return openContexts_; }

  ruRTB::SignalArg<Domain*> sigDestroying;

private:
  friend class Context;
  void runClosingWork();

  CallInfo callInfo_;
  std::vector<std::function<void()>> closingWork_;
  int openContexts_ = 0;
};

// A scope of work inside a domain: pushes the domain's call table for its lifetime and tells what
// kind of work runs (the mode). A null domain opens nothing.
class VO_SUPPORT_API Context {
public:
  enum Mode : int {
    StartBatch = 0,     // delivery of the start batch of an interaction
    ProgressEvent = 1,  // one event of a progress batch
    FinishBatch = 2,    // delivery of the finish batch
    KeyOrWheel = 3,     // a key or wheel event outside an interaction
    Motion = 4,         // mouse motion, and passes of the function scheduler
    Background = 5,     // work of the host outside the input layer
    Hover = 6,          // hover events
  };

  Context(Domain* domain, Mode mode);
  // The mode by its number, for callers that name modes by value (0 to 6).
  Context(Domain* domain, int mode) : Context(domain, static_cast<Mode>(mode)) {}
  Context(const Context&) = delete;
  Context& operator=(const Context&) = delete;
  ~Context();

  Domain* domain() const noexcept { return domain_; }
  Mode mode() const noexcept { return mode_; }
  // The innermost open context on this thread, or null.
  static const Context* current() noexcept;

private:
  Domain* domain_;
  Mode mode_;
  const Context* outer_;
};

}  // namespace voSupport
