#pragma once

#include "platform/base/export.h"

#include <atomic>

namespace ruThread {

// A reference count that may be taken and dropped from several threads. Same contract as
// ru::ReferenceCount: starts at zero, is not copied, deletes the object at zero.
class RU_BASE_API ReferenceCount {
public:
  ReferenceCount() noexcept = default;
  ReferenceCount(const ReferenceCount&) noexcept {}
  ReferenceCount& operator=(const ReferenceCount&) noexcept { return *this; }
  virtual ~ReferenceCount();

  void ref() const noexcept { count_.fetch_add(1, std::memory_order_relaxed); }
  void unref() const {
    if (count_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
  }
  int refCount() const noexcept { return count_.load(std::memory_order_relaxed); }

private:
  mutable std::atomic<int> count_{0};
};

}  // namespace ruThread
