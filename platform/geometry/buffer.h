#pragma once

#include "platform/base/reference.h"
#include "platform/geometry/export.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

namespace ruGeom {

// Identity of the contents of a mesh buffer. Every buffer gets a new identity when it is created
// and each time its contents are opened for writing, and identities are never reused, so a cache
// keyed on one (the ray-query acceleration structure, GPU buffers) stays valid as long as the
// identity is alive. 0 is no buffer.
using BufferId = std::uint64_t;

// A cache keeping derived data per buffer identity (the ray-query scenes, GPU buffers) subscribes
// here to hear when an identity dies: its buffer was destroyed or opened for writing. Only buffers
// that some cache marked (MeshBuffer::storage()->markCached()) are announced, so plain meshes pay
// nothing. The listener is called on the thread that released the buffer, possibly during static
// destruction and possibly while another thread uses the cache: it must be quick, thread-safe, must
// not throw and must not release mesh buffers itself. Answers a token for unsubscribeBufferRelease;
// 0 when the listener is empty.
RU_GEOM_API std::uint64_t subscribeBufferRelease(std::function<void(BufferId)> listener);
// Stops the listener of a token; unknown tokens and 0 are ignored. When it returns, the listener is
// not running on any thread and will not be called again.
RU_GEOM_API void unsubscribeBufferRelease(std::uint64_t token) noexcept;

namespace detail {

// The shared storage behind MeshBuffer. The count is not atomic: a buffer and all the meshes that
// share it belong to one thread at a time.
class RU_GEOM_API BufferStorageBase : public ru::ReferenceCount {
public:
  BufferStorageBase() noexcept;
  ~BufferStorageBase() override;
  BufferId id() const noexcept { return id_; }
  // Gives the storage a new identity and drops what caches hold for the old one.
  void renew() noexcept;
  // Set by a cache that keeps derived data for this identity, so that it hears of its release.
  void markCached() const noexcept { cached_ = true; }
  // A box of the contents (min x, y, z, max x, y, z) that a reader worked out once, shared by
  // every copy and forgotten when the contents change: the vertex buffer's bounding box.
  bool getCachedBox(float box[6]) const noexcept {
    if (!boxValid_) return false;
    for (int i = 0; i < 6; ++i) box[i] = box_[i];
    return true;
  }
  void setCachedBox(const float box[6]) const noexcept {
    for (int i = 0; i < 6; ++i) box_[i] = box[i];
    boxValid_ = true;
  }

private:
  BufferId id_;
  mutable bool cached_ = false;
  mutable bool boxValid_ = false;
  mutable float box_[6] = {};
};

template <class T>
class BufferStorage final : public BufferStorageBase {
public:
  std::vector<T> data;
};

}  // namespace detail

// A copy-on-write array: copies share one storage until one side opens it for writing, and then
// only that side's buffer is copied. Reading never copies.
template <class T>
class MeshBuffer {
public:
  MeshBuffer() = default;

  std::size_t size() const noexcept { return storage_ ? storage_->data.size() : 0; }
  bool empty() const noexcept { return size() == 0; }
  // The elements for reading; null when empty. Valid until the next write to this buffer.
  const T* data() const noexcept { return empty() ? nullptr : storage_->data.data(); }
  const T& operator[](std::size_t i) const noexcept { return storage_->data[i]; }
  // The identity of the contents now; 0 when there is no storage.
  BufferId id() const noexcept { return storage_ ? storage_->id() : 0; }
  // True when both share one storage.
  bool shares(const MeshBuffer& other) const noexcept { return storage_ && storage_ == other.storage_; }
  const detail::BufferStorageBase* storage() const noexcept { return storage_.get(); }

  // The elements for writing: detaches from the other copies first and gives the contents a new
  // identity. Valid until the next call that changes this buffer's size or sharing.
  std::vector<T>& write() {
    if (!storage_) {
      storage_ = new detail::BufferStorage<T>();
    } else if (storage_->refCount() > 1) {
      ru::Reference<detail::BufferStorage<T>> copy(new detail::BufferStorage<T>());
      copy->data = storage_->data;
      storage_ = copy;
    } else {
      storage_->renew();
    }
    return storage_->data;
  }
  void clear() noexcept { storage_ = nullptr; }

private:
  ru::Reference<detail::BufferStorage<T>> storage_;
};

}  // namespace ruGeom
