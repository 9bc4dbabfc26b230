#include "platform/graphics/pickindex.h"

#include "platform/graphics/draw.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <mutex>

namespace voGR {

namespace {

// Leaves hold this many items at most.
constexpr int kLeafSize = 4;
// Joins since the last build that a query scans one by one before the tree is built again.
constexpr std::size_t kRecentLimit = 64;
// Empty slots tolerated before compaction (and at least this share of the kept items).
constexpr std::size_t kDeadLimit = 256;

// Whether a bounding sphere may meet the cone. The slack covers rounding (mostly that of the
// distance to the axis for a centre near it), so a node is never left out where one of its items
// would pass the exact test.
bool mayMeet(const PickCone& cone, const ruLinear::Point& centre, double radius) {
  double fromApex = 0;
  const double distance = coneDistance(cone, centre, fromApex);
  return distance <= radius + 1e-6 * (fromApex + radius) + 1e-12;
}

}  // namespace

struct PickIndex::Releases {
  std::mutex mutex;
  std::vector<ruGeom::BufferId> ids;
  // More releases than are worth keeping arrived between two queries: place every item again.
  bool overflow = false;
  std::atomic<bool> pending{false};
  std::vector<ruGeom::BufferId> taken;  // the query thread's, reused
};

namespace {

// Releases kept between queries; past this the next query simply rebuilds.
constexpr std::size_t kReleaseLimit = 1024;

}  // namespace

PickIndex::PickIndex() : releases_(new Releases()) {
  Releases* releases = releases_;
  token_ = ruGeom::subscribeBufferRelease([releases](ruGeom::BufferId id) {
    std::lock_guard<std::mutex> lock(releases->mutex);
    if (releases->ids.size() < kReleaseLimit) {
      releases->ids.push_back(id);
    } else {
      releases->overflow = true;
    }
    releases->pending.store(true, std::memory_order_release);
  });
}

PickIndex::~PickIndex() {
  // After this returns the listener is not running and will not run again.
  ruGeom::unsubscribeBufferRelease(token_);
  delete releases_;
}

void PickIndex::insert(DrawItem& item, int* slot) {
  *slot = -1;
  // These never change after emission: such an item can never take part in a hit test.
  if (!item.isPickable() || !item.isDrawable() || item.isOverlay()) return;
  if (!dynamic_cast<MeshGeometry*>(item.getGeometry())) return;
  const int index = static_cast<int>(entries_.size());
  Entry& entry = entries_.emplace_back();
  entry.item = &item;
  entry.slot = slot;
  entry.order = nextOrder_++;
  *slot = index;
  ++live_;
  // Placed by a transformer or in viewport pixels: not where the tree could know it.
  if (item.getTransformer() || item.getSpace() == SpaceScreen) {
    pushAlways(index);
    return;
  }
  if (dirty_) return;  // the next build takes it in
  if (recent_.size() >= kRecentLimit) {
    // Scanning more one by one would cost more than building again.
    for (int r : recent_) entries_[r].position = -1;
    recent_.clear();
    dirty_ = true;
    return;
  }
  entry.position = static_cast<int>(recent_.size());
  recent_.push_back(index);
}

void PickIndex::erase(int slot) {
  if (slot < 0 || slot >= static_cast<int>(entries_.size())) return;
  Entry& entry = entries_[slot];
  if (!entry.item) return;
  if (entry.state == State::Always) {
    removeFrom(always_, entry);
  } else if (entry.position >= 0) {
    removeFrom(recent_, entry);
  }
  // A leaf of the tree may still name the slot: it stays, empty, until compaction.
  entry.item = nullptr;
  *entry.slot = -1;
  entry.slot = nullptr;
  --live_;
  ++dead_;
  if (dead_ > std::max(kDeadLimit, live_ / 4)) compact();
}

void PickIndex::pushAlways(int index) {
  Entry& entry = entries_[index];
  entry.state = State::Always;
  entry.position = static_cast<int>(always_.size());
  always_.push_back(index);
}

void PickIndex::removeFrom(std::vector<int>& list, Entry& entry) {
  const int position = entry.position;
  const int last = list.back();
  list[position] = last;
  entries_[last].position = position;
  list.pop_back();
  entry.position = -1;
}

bool PickIndex::place(Entry& entry) {
  ruLinear::Point centre;
  double radius = 0;
  if (!entry.item->getWorldBoundingSphere(centre, radius)) return false;
  entry.centre = centre;
  entry.radius = radius;
  entry.state = State::Placed;
  // Marked so that a write of the buffer in place (or its death) is announced to takeReleases.
  const ruGeom::CompactMesh* mesh = entry.item->getMesh();
  entry.vertices = mesh->getVertexBufferId();
  if (const auto* storage = mesh->vertexBuffer().storage()) storage->markCached();
  return true;
}

void PickIndex::compact() {
  std::vector<Entry> kept;
  kept.reserve(live_);
  for (Entry& entry : entries_) {
    if (!entry.item) continue;
    *entry.slot = static_cast<int>(kept.size());
    kept.push_back(entry);
  }
  entries_.swap(kept);
  always_.clear();
  recent_.clear();
  for (std::size_t i = 0; i < entries_.size(); ++i) {
    entries_[i].position = -1;
    if (entries_[i].state == State::Always) pushAlways(static_cast<int>(i));
  }
  dead_ = 0;
  dirty_ = true;
}

void PickIndex::takeReleases() {
  if (!releases_->pending.load(std::memory_order_acquire)) return;
  std::vector<ruGeom::BufferId>& ids = releases_->taken;
  ids.clear();
  bool overflow = false;
  {
    std::lock_guard<std::mutex> lock(releases_->mutex);
    ids.swap(releases_->ids);
    overflow = releases_->overflow;
    releases_->overflow = false;
    releases_->pending.store(false, std::memory_order_relaxed);
  }
  if (overflow) dirty_ = true;
  if (dirty_) return;  // the next build places every item again anyway
  std::sort(ids.begin(), ids.end());
  for (const Entry& entry : entries_) {
    if (entry.item && entry.state == State::Placed && std::binary_search(ids.begin(), ids.end(), entry.vertices)) {
      dirty_ = true;
      return;
    }
  }
}

void PickIndex::build() {
  tree_.clear();
  nodes_.clear();
  recent_.clear();
  for (std::size_t i = 0; i < entries_.size(); ++i) {
    Entry& entry = entries_[i];
    if (!entry.item || entry.state == State::Always) continue;
    entry.position = -1;
    if (!place(entry)) {
      pushAlways(static_cast<int>(i));
      continue;
    }
    tree_.push_back(static_cast<int>(i));
  }
  if (!tree_.empty()) buildNode(0, static_cast<int>(tree_.size()));
  dirty_ = false;
}

int PickIndex::buildNode(int first, int count) {
  const int index = static_cast<int>(nodes_.size());
  nodes_.emplace_back();
  // The box of the members' spheres, and a sphere around them all from its centre.
  double lo[3] = {INFINITY, INFINITY, INFINITY}, hi[3] = {-INFINITY, -INFINITY, -INFINITY};
  double centreLo[3] = {INFINITY, INFINITY, INFINITY}, centreHi[3] = {-INFINITY, -INFINITY, -INFINITY};
  for (int i = first; i < first + count; ++i) {
    const Entry& entry = entries_[tree_[i]];
    const double c[3] = {entry.centre.x, entry.centre.y, entry.centre.z};
    for (int axis = 0; axis < 3; ++axis) {
      lo[axis] = std::min(lo[axis], c[axis] - entry.radius);
      hi[axis] = std::max(hi[axis], c[axis] + entry.radius);
      centreLo[axis] = std::min(centreLo[axis], c[axis]);
      centreHi[axis] = std::max(centreHi[axis], c[axis]);
    }
  }
  const ruLinear::Point centre(0.5 * (lo[0] + hi[0]), 0.5 * (lo[1] + hi[1]), 0.5 * (lo[2] + hi[2]));
  double radius = 0;
  for (int i = first; i < first + count; ++i) {
    const Entry& entry = entries_[tree_[i]];
    radius = std::max(radius, ruLinear::distance(entry.centre, centre) + entry.radius);
  }
  nodes_[index].centre = centre;
  nodes_[index].radius = radius;
  if (count <= kLeafSize) {
    nodes_[index].first = first;
    nodes_[index].count = count;
    return index;
  }
  // Halves along the widest spread of the centres.
  int axis = 0;
  for (int a = 1; a < 3; ++a) {
    if (centreHi[a] - centreLo[a] > centreHi[axis] - centreLo[axis]) axis = a;
  }
  const int half = count / 2;
  auto coordinate = [&](int entry) {
    const ruLinear::Point& c = entries_[entry].centre;
    return axis == 0 ? c.x : axis == 1 ? c.y : c.z;
  };
  std::nth_element(tree_.begin() + first, tree_.begin() + first + half, tree_.begin() + first + count,
                   [&](int a, int b) { return coordinate(a) < coordinate(b); });
  buildNode(first, half);
  const int right = buildNode(first + half, count - half);
  nodes_[index].right = right;
  return index;
}

void PickIndex::collect(const PickCone& cone, std::vector<std::pair<std::uint64_t, DrawItem*>>& out) {
  takeReleases();
  if (dirty_) build();
  for (int index : always_) out.emplace_back(entries_[index].order, entries_[index].item);
  if (!cone.bounded) {
    for (int index : tree_) {
      if (entries_[index].item) out.emplace_back(entries_[index].order, entries_[index].item);
    }
  } else if (!nodes_.empty()) {
    // The tree is balanced, so its depth stays near log2 of the items over the leaf size.
    int stack[64];
    int top = 0;
    stack[top++] = 0;
    while (top > 0) {
      const Node& node = nodes_[stack[--top]];
      if (!mayMeet(cone, node.centre, node.radius)) continue;
      if (node.count > 0) {
        for (int i = node.first; i < node.first + node.count; ++i) {
          const Entry& entry = entries_[tree_[i]];
          if (entry.item) out.emplace_back(entry.order, entry.item);
        }
        continue;
      }
      const int self = static_cast<int>(&node - nodes_.data());
      stack[top++] = node.right;
      stack[top++] = self + 1;
    }
  }
  // Joined since the build: placed now if need be, then tested one by one.
  for (std::size_t r = 0; r < recent_.size();) {
    const int index = recent_[r];
    Entry& entry = entries_[index];
    if (entry.state == State::Unplaced && !place(entry)) {
      removeFrom(recent_, entry);
      pushAlways(index);
      out.emplace_back(entry.order, entry.item);
      continue;  // the slot now holds another entry
    }
    if (!cone.bounded || mayMeet(cone, entry.centre, entry.radius)) out.emplace_back(entry.order, entry.item);
    ++r;
  }
}

}  // namespace voGR
