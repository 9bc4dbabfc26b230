#pragma once

#include "platform/base/export.h"
#include "platform/base/reference.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <new>
#include <set>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace ru {

// Sequences are the standard ones: contiguous storage, random-access iterators, O(1) swap.
template <class T, class Allocator = std::allocator<T>>
using vector = std::vector<T, Allocator>;

template <class T, class Allocator = std::allocator<T>>
using list = std::list<T, Allocator>;

// Ordering of the ordered containers: `a < b` unless specialised. References and raw pointers are
// ordered by pointer value (null first).
template <class T>
struct less {
  bool operator()(const T& a, const T& b) const { return a < b; }
};
template <class T>
struct less<T*> {
  bool operator()(const T* a, const T* b) const noexcept { return std::less<const T*>()(a, b); }
};
template <class T>
struct less<Reference<T>> {
  bool operator()(const Reference<T>& a, const Reference<T>& b) const noexcept {
    return std::less<const T*>()(a.get(), b.get());
  }
};

namespace detail {

// The free list and the blocks of one allocator. Nodes of one size are carved from blocks of
// `blockSize` nodes; the blocks go when the last container sharing the pool goes.
class RU_BASE_API BlockPool {
public:
  BlockPool(std::size_t blockSize) noexcept : blockSize_(blockSize) {}
  BlockPool(const BlockPool&) = delete;
  BlockPool& operator=(const BlockPool&) = delete;
  ~BlockPool();

  void* allocate(std::size_t size, std::size_t alignment);
  void deallocate(void* node, std::size_t size) noexcept;

  std::size_t blockCount() const noexcept { return blocks_.size(); }

private:
  struct FreeNode {
    FreeNode* next;
  };
  std::size_t blockSize_;
  std::size_t nodeSize_ = 0;
  std::size_t alignment_ = 0;
  FreeNode* free_ = nullptr;
  std::vector<void*> blocks_;
};

}  // namespace detail

// Allocator of the ordered containers: nodes come from blocks of N nodes (10 by default). Each
// container owns its pool; copies of a container get a pool of their own, while swapping or moving
// containers hands the pool over with the nodes, so swap stays O(1).
template <class T, std::size_t N = 10>
class BlockAllocator {
public:
  using value_type = T;
  using propagate_on_container_copy_assignment = std::false_type;
  using propagate_on_container_move_assignment = std::true_type;
  using propagate_on_container_swap = std::true_type;
  using is_always_equal = std::false_type;
  template <class U>
  struct rebind {
    using other = BlockAllocator<U, N>;
  };

  BlockAllocator() noexcept = default;
  template <class U>
  BlockAllocator(const BlockAllocator<U, N>& other) noexcept : pool_(other.pool_) {}

  BlockAllocator select_on_container_copy_construction() const noexcept { return BlockAllocator(); }

  T* allocate(std::size_t n) {
    if (n != 1) return static_cast<T*>(::operator new(n * sizeof(T), std::align_val_t(alignof(T))));
    if (!pool_) pool_ = std::make_shared<detail::BlockPool>(N);
    return static_cast<T*>(pool_->allocate(sizeof(T), alignof(T)));
  }
  void deallocate(T* pointer, std::size_t n) noexcept {
    if (n != 1) {
      ::operator delete(pointer, std::align_val_t(alignof(T)));
      return;
    }
    pool_->deallocate(pointer, sizeof(T));
  }

  // Blocks taken so far; for tests.
  std::size_t blockCount() const noexcept { return pool_ ? pool_->blockCount() : 0; }

  template <class U>
  bool operator==(const BlockAllocator<U, N>& other) const noexcept {
    return pool_ == other.pool_;
  }

private:
  template <class U, std::size_t M>
  friend class BlockAllocator;
  std::shared_ptr<detail::BlockPool> pool_;
};

namespace RBTreeImpl {
// The mapped type of a tree that maps nothing: such a tree is a set.
struct Null {};
}  // namespace RBTreeImpl

// Ordered red-black tree of keys, mapping each to a V, or a plain set when V is RBTreeImpl::Null.
// ru::map and ru::set derive from it, so their iterators are the tree's.
template <class K, class V, class Less = less<K>>
class rbtree : public std::map<K, V, Less, BlockAllocator<std::pair<const K, V>>> {
  using Base = std::map<K, V, Less, BlockAllocator<std::pair<const K, V>>>;

public:
  using Base::Base;
  using Base::operator=;
};

template <class K, class Less>
class rbtree<K, RBTreeImpl::Null, Less> : public std::set<K, Less, BlockAllocator<K>> {
  using Base = std::set<K, Less, BlockAllocator<K>>;

public:
  using Base::Base;
  using Base::operator=;
};

template <class T, class Less = less<T>>
class set : public rbtree<T, RBTreeImpl::Null, Less> {
  using Base = rbtree<T, RBTreeImpl::Null, Less>;

public:
  using Base::Base;
  using Base::operator=;
};

template <class K, class V, class Less = less<K>>
class map : public rbtree<K, V, Less> {
  using Base = rbtree<K, V, Less>;

public:
  using Base::Base;
  using Base::operator=;
};

// Order-sensitive 64-bit hash accumulator: feeding the same words in the same order gives the same
// value, in every run and on every machine.
class RU_BASE_API Hasher {
public:
  Hasher() noexcept = default;
  explicit Hasher(std::uint64_t seed) noexcept : state_(seed) {}

  Hasher& add(std::uint64_t word) noexcept;
  Hasher& add(const void* data, std::size_t bytes) noexcept;
  std::uint64_t value() const noexcept;

private:
  std::uint64_t state_ = 0x9E3779B97F4A7C15ull;
  std::uint64_t count_ = 0;
};

// Hash of the hash containers: pointers and integers go through ru::Hasher, other keys through
// std::hash.
template <class T>
struct Hash {
  std::size_t operator()(const T& value) const noexcept(noexcept(std::hash<T>()(value))) {
    if constexpr (std::is_pointer_v<T>) {
      return static_cast<std::size_t>(Hasher().add(reinterpret_cast<std::uintptr_t>(value)).value());
    } else if constexpr (std::is_integral_v<T> || std::is_enum_v<T>) {
      return static_cast<std::size_t>(Hasher().add(static_cast<std::uint64_t>(value)).value());
    } else {
      return std::hash<T>()(value);
    }
  }
};

// Hash table. Iteration order is the table's and no caller may depend on it.
template <class K, class V, class H = Hash<K>, class Equal = std::equal_to<K>>
using hash_map = std::unordered_map<K, V, H, Equal>;

template <class K, class H = Hash<K>, class Equal = std::equal_to<K>>
using hash_set = std::unordered_set<K, H, Equal>;

}  // namespace ru
