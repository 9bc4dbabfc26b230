#pragma once

// Private to libGraphics: the spatial index a database keeps over its pickable items, so that a
// hit test visits only the items whose world bounding sphere can meet the pick cone.

#include "platform/base/linear.h"
#include "platform/geometry/buffer.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <utility>
#include <vector>

namespace voGR {

class DrawItem;

// A cone from `apex` around the unit `axis`, of half-angle whose sine and cosine are given. An
// unbounded cone stands for "every item".
struct PickCone {
  ruLinear::Point apex;
  ruLinear::Vector axis;
  double sine = 0, cosine = 1;
  bool bounded = false;
};

// ruLinear::dot, inline for the loops over many items and rays (the same sums in the same order).
inline double dotInline(const ruLinear::Vector& a, const ruLinear::Vector& b) noexcept {
  return a.getX() * b.getX() + a.getY() * b.getY() + a.getZ() * b.getZ();
}

// A lower bound of the distance from `centre` to the cone's surface (negative inside): the
// distance to the axis times the cosine, less the distance along it times the sine. Shared by the
// index and the per-item test, so both read a sphere the same way.
inline double coneDistance(const PickCone& cone, const ruLinear::Point& centre, double& fromApex) {
  const ruLinear::Vector toCentre = centre - cone.apex;
  const double along = dotInline(toCentre, cone.axis);
  const double squared = dotInline(toCentre, toCentre);
  fromApex = std::sqrt(squared);
  const double across = std::sqrt(std::max(0.0, squared - along * along));
  return across * cone.cosine - along * cone.sine;
}

// The items of one database that a hit test may report or be hidden by (pickable, drawable, not
// overlay, with a mesh geometry), in three parts:
// - items placed in the world by their own transform: a bounding-volume tree of their world
//   spheres, built when first asked after a change of many items, plus a short list of the items
//   that joined since, so that re-emitting one object (a drag, a hover change) costs a push;
// - items whose place cannot be known ahead (a transformer, viewport pixels, no sphere yet): always
//   visited, their own test decides;
// - items that left: their slot is cleared at once (no pointer to them is kept) and the slots are
//   compacted once enough of them are empty.
// A sphere is worked out when the item is first asked about, not when it joins, so emission pays
// nothing for it. An item's sphere is kept while its mesh's vertex buffer keeps its identity; a
// buffer written in place while no copy shares it (so it keeps its storage and announces the new
// identity) makes the index re-place its items at the next query. Items are told apart by the order
// they joined in, which the query hands back so a caller can keep that order.
//
// Owned by its database; refers to the items without holding them (the database does).
// Runs on the draw system's thread; only the release listener may run elsewhere.
class PickIndex {
public:
  PickIndex();
  ~PickIndex();
  PickIndex(const PickIndex&) = delete;
  PickIndex& operator=(const PickIndex&) = delete;

  // A new item of the database. `slot` is where the item's membership keeps its place here; the
  // index writes it (-1 for an item it does not keep) and rewrites it when it compacts.
  void insert(DrawItem& item, int* slot);
  // An item left the database; `slot` as insert wrote it.
  void erase(int slot);

  // Appends (join order, item) of every kept item whose sphere may meet `cone` (every kept item
  // for an unbounded cone), in no particular order. An item is never left out when its own sphere
  // test against the cone (coneDistance <= radius) would pass.
  void collect(const PickCone& cone, std::vector<std::pair<std::uint64_t, DrawItem*>>& out);

private:
  enum class State : std::uint8_t { Unplaced, Placed, Always };
  struct Entry {
    DrawItem* item = nullptr;  // null once the item left
    int* slot = nullptr;
    std::uint64_t order = 0;
    ruLinear::Point centre;
    double radius = 0;
    ruGeom::BufferId vertices = 0;
    State state = State::Unplaced;
    int position = -1;  // place in always_ or recent_, -1 for neither
  };
  struct Node {
    ruLinear::Point centre;
    double radius = 0;
    int first = 0, count = 0;  // a leaf: tree_[first, first + count); else count 0
    int right = 0;             // an inner node: the left child follows it, the right is here
  };

  // Works out the entry's sphere: false when it has none (it is then always visited).
  bool place(Entry& entry);
  void pushAlways(int index);
  void removeFrom(std::vector<int>& list, Entry& entry);
  void build();
  int buildNode(int first, int count);
  void compact();
  void takeReleases();

  std::vector<Entry> entries_;
  std::vector<int> always_;  // entries visited by every query
  std::vector<int> recent_;  // world entries that joined after the tree was built
  std::vector<int> tree_;    // entries of the tree's leaves
  std::vector<Node> nodes_;
  std::uint64_t nextOrder_ = 0;
  std::size_t live_ = 0, dead_ = 0;
  bool dirty_ = true;  // the tree must be built before the next query
  // Buffer identities that died, heard from libGeometry (any thread).
  struct Releases;
  Releases* releases_;
  std::uint64_t token_ = 0;
};

}  // namespace voGR
