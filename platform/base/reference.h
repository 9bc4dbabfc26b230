#pragma once

#include "platform/base/export.h"

#include <cstddef>
#include <functional>
#include <type_traits>
#include <utility>

namespace ru {

// Intrusive reference count of a shared object. A new object starts at zero; the first
// ru::Reference to it takes it to one, and the last one to let go deletes it through the
// virtual destructor. Copying an object copies no count: a copy is a new, unowned object and
// an assignment keeps the target's count. One thread only (see ruThread::ReferenceCount).
class RU_BASE_API ReferenceCount {
public:
  ReferenceCount() noexcept = default;
  ReferenceCount(const ReferenceCount&) noexcept {}
  ReferenceCount& operator=(const ReferenceCount&) noexcept { return *this; }
  virtual ~ReferenceCount();

  void ref() const noexcept { ++count_; }
  // Deletes the object when the count reaches zero.
  void unref() const {
    if (--count_ == 0) delete this;
  }
  // The number of references held now; for tests and diagnostics.
  int refCount() const noexcept { return count_; }

private:
  mutable int count_ = 0;
};

// Counted pointer. It calls the pointee's own ref() and unref(), whichever class provides them
// (ru::ReferenceCount, ruThread::ReferenceCount or a class with virtual ones), so it never assumes
// a particular base. Comparisons are by identity; ordering is by pointer value.
template <class T>
class Reference {
public:
  using element_type = T;

  Reference() noexcept = default;
  Reference(std::nullptr_t) noexcept {}
  Reference(T* pointer) : pointer_(pointer) { acquire(); }
  Reference(const Reference& other) : pointer_(other.pointer_) { acquire(); }
  Reference(Reference&& other) noexcept : pointer_(std::exchange(other.pointer_, nullptr)) {}
  template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
  Reference(const Reference<U>& other) : pointer_(other.get()) {
    acquire();
  }
  template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
  Reference(Reference<U>&& other) noexcept : pointer_(other.detach()) {}
  ~Reference() { release(); }

  Reference& operator=(const Reference& other) {
    reset(other.pointer_);
    return *this;
  }
  Reference& operator=(Reference&& other) noexcept {
    if (this != &other) {
      T* old = std::exchange(pointer_, std::exchange(other.pointer_, nullptr));
      if (old) old->unref();
    }
    return *this;
  }
  template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
  Reference& operator=(const Reference<U>& other) {
    reset(other.get());
    return *this;
  }
  Reference& operator=(T* pointer) {
    reset(pointer);
    return *this;
  }
  Reference& operator=(std::nullptr_t) {
    reset();
    return *this;
  }

  // Drops the reference held (if any) and takes one on `pointer`. Safe when `pointer` is the
  // object already held, or an object that only the old reference keeps alive.
  void reset(T* pointer = nullptr) {
    if (pointer) pointer->ref();
    T* old = std::exchange(pointer_, pointer);
    if (old) old->unref();
  }

  // Gives up the pointer without unref; the caller takes over the reference.
  T* detach() noexcept { return std::exchange(pointer_, nullptr); }

  T* get() const noexcept { return pointer_; }
  T* operator->() const noexcept { return pointer_; }
  T& operator*() const noexcept { return *pointer_; }
  explicit operator bool() const noexcept { return pointer_ != nullptr; }
  bool valid() const noexcept { return pointer_ != nullptr; }

  void swap(Reference& other) noexcept { std::swap(pointer_, other.pointer_); }

private:
  void acquire() {
    if (pointer_) pointer_->ref();
  }
  void release() {
    if (pointer_) std::exchange(pointer_, nullptr)->unref();
  }

  T* pointer_ = nullptr;
};

template <class T, class U>
bool operator==(const Reference<T>& a, const Reference<U>& b) noexcept {
  return a.get() == b.get();
}
template <class T, class U>
bool operator==(const Reference<T>& a, const U* b) noexcept {
  return a.get() == b;
}
template <class T>
bool operator==(const Reference<T>& a, std::nullptr_t) noexcept {
  return a.get() == nullptr;
}
template <class T, class U>
bool operator<(const Reference<T>& a, const Reference<U>& b) noexcept {
  return std::less<const void*>()(a.get(), b.get());
}

template <class T>
void swap(Reference<T>& a, Reference<T>& b) noexcept {
  a.swap(b);
}

// A reference to the same object as `from` if it is a U, else a null reference.
template <class U, class T>
Reference<U> dynamicCast(const Reference<T>& from) {
  return Reference<U>(dynamic_cast<U*>(from.get()));
}

// An unchecked cast for callers that know the dynamic type.
template <class U, class T>
Reference<U> staticCast(const Reference<T>& from) {
  return Reference<U>(static_cast<U*>(from.get()));
}

// Base of hidden implementation objects: an exported class holds one through a pointer and an
// ownership flag and deletes it through this virtual destructor.
class RU_BASE_API ImplBase {
public:
  ImplBase() = default;
  ImplBase(const ImplBase&) = default;
  ImplBase& operator=(const ImplBase&) = default;
  virtual ~ImplBase();
};

}  // namespace ru

template <class T>
struct std::hash<ru::Reference<T>> {
  size_t operator()(const ru::Reference<T>& reference) const noexcept { return std::hash<T*>()(reference.get()); }
};
