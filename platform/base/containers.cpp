#include "platform/base/containers.h"

#include <cstring>

namespace ru {
namespace detail {

BlockPool::~BlockPool() {
  for (void* block : blocks_) ::operator delete(block, std::align_val_t(alignment_));
}

void* BlockPool::allocate(std::size_t size, std::size_t alignment) {
  if (nodeSize_ == 0) {
    // The first request fixes the node size: a tree only ever asks for its node type.
    nodeSize_ = size < sizeof(FreeNode) ? sizeof(FreeNode) : size;
    alignment_ = alignment < alignof(FreeNode) ? alignof(FreeNode) : alignment;
    nodeSize_ = (nodeSize_ + alignment_ - 1) / alignment_ * alignment_;
  }
  if (size > nodeSize_) return ::operator new(size);
  if (!free_) {
    auto* block = static_cast<char*>(::operator new(nodeSize_ * blockSize_, std::align_val_t(alignment_)));
    blocks_.push_back(block);
    for (std::size_t i = blockSize_; i-- > 0;) {
      auto* node = reinterpret_cast<FreeNode*>(block + i * nodeSize_);
      node->next = free_;
      free_ = node;
    }
  }
  FreeNode* node = free_;
  free_ = node->next;
  return node;
}

void BlockPool::deallocate(void* node, std::size_t size) noexcept {
  if (size > nodeSize_) {
    ::operator delete(node);
    return;
  }
  auto* freeNode = static_cast<FreeNode*>(node);
  freeNode->next = free_;
  free_ = freeNode;
}

}  // namespace detail

namespace {
std::uint64_t mix(std::uint64_t x) noexcept {
  // splitmix64 finaliser: every input bit reaches every output bit.
  x ^= x >> 30;
  x *= 0xBF58476D1CE4E5B9ull;
  x ^= x >> 27;
  x *= 0x94D049BB133111EBull;
  x ^= x >> 31;
  return x;
}
}  // namespace

Hasher& Hasher::add(std::uint64_t word) noexcept {
  state_ = mix(state_ ^ mix(word + 0x9E3779B97F4A7C15ull * ++count_));
  return *this;
}

Hasher& Hasher::add(const void* data, std::size_t bytes) noexcept {
  const auto* p = static_cast<const unsigned char*>(data);
  while (bytes >= 8) {
    std::uint64_t word;
    std::memcpy(&word, p, 8);
    add(word);
    p += 8;
    bytes -= 8;
  }
  if (bytes > 0) {
    std::uint64_t word = 0;
    std::memcpy(&word, p, bytes);
    add(word ^ (static_cast<std::uint64_t>(bytes) << 56));
  }
  return *this;
}

std::uint64_t Hasher::value() const noexcept { return mix(state_ ^ count_); }

}  // namespace ru
