#pragma once

#include "platform/base/reference.h"

namespace ruKRCache {

// A handle to an entry of a keyed cache. A default key is invalid; copies share the entry, which
// lives while a key or the cache holds it. T is reference counted.
template <class T>
class Key {
public:
  Key() = default;
  explicit Key(ru::Reference<T> entry) : entry_(std::move(entry)) {}

  bool valid() const noexcept { return static_cast<bool>(entry_); }
  T* get() const noexcept { return entry_.get(); }
  T* operator->() const noexcept { return entry_.get(); }
  void reset() { entry_.reset(); }

  friend bool operator==(const Key& a, const Key& b) noexcept { return a.entry_ == b.entry_; }
  friend bool operator<(const Key& a, const Key& b) noexcept { return a.entry_ < b.entry_; }

private:
  ru::Reference<T> entry_;
};

}  // namespace ruKRCache
