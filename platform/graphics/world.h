#pragma once

#include "platform/base/reference.h"
#include "platform/geometry/box.h"
#include "platform/graphics/draw.h"
#include "platform/graphics/export.h"
#include "platform/graphics/graph.h"

#include <cstddef>
#include <functional>
#include <list>
#include <memory>
#include <vector>

namespace voGR {

class PickIndex;

// A set of draw items that passes draw. Items join at emission (Database) and leave when their
// draw data is cleared or destroyed, or when the world dies. Reference counted; holds its items.
class VO_GR_API World : public ru::ReferenceCount {
public:
  World();
  ~World() override;

  std::size_t size() const noexcept { return items_.size(); }
  // Calls `visit` for every item, in the order they joined.
  void forEach(const std::function<void(DrawItem&)>& visit) const;
  // The world box of every item for which `skip` answers false (an empty function skips none).
  // `box` is reset first, so it stays invalid when nothing counted.
  void getBoundingBox(ruGeom::BoundingBox& box, const std::function<bool(DrawItem&)>& skip) const;

  // Adds an item (once; a second add does nothing) and removes one. Used by Database; items
  // remove themselves when their draw data lets them go.
  void add(DrawItem& item);
  bool remove(DrawItem& item);

private:
  friend class Database;
  std::list<ru::Reference<DrawItem>> items_;
  // Told of every add and remove: the database's index of pickable items (its all-items world only).
  PickIndex* pickIndex_ = nullptr;
};

// A world keeping its items in emission order. The flag is kept for the callers that pass it; no
// behaviour depends on it.
class VO_GR_API ListWorld : public World {
public:
  explicit ListWorld(bool ordered = true) : ordered_(ordered) {}
  ~ListWorld() override;
  bool isOrdered() const noexcept { return ordered_; }

private:
  bool ordered_;
};

// The graph node of a world: the source of "world" edges into passes. Holds the world.
class VO_GR_API WorldNode : public Node {
public:
  explicit WorldNode(ru::Reference<World> world);
  ~WorldNode() override;
  World* getWorld() const noexcept { return world_.get(); }

private:
  const char* onKindName() const override;
  ru::Reference<World> world_;
};

// The items of a surface and its worlds. A new item (emitted while the database is active) joins
// every world whose filter accepts it, each filter asked once, at emission. The database also
// keeps its pickable items in a spatial index, so that a hit test (hittest.h) visits only those
// near the pick point. Reference counted.
class VO_GR_API Database : public ru::ReferenceCount {
public:
  using Filter = std::function<bool(DrawItem&)>;

  // Worlds' nodes are added to `graph`, which owns them.
  explicit Database(Graph* graph);
  ~Database() override;

  // Adds a world with its filter and its node; answers the world's index (0, 1, ...), or -1
  // for a null world. An empty filter accepts every item.
  int addWorld(ru::Reference<World> world, Filter filter);
  int getNumWorlds() const noexcept { return static_cast<int>(worlds_.size()); }
  // Null for an index out of range.
  WorldNode* getWorldNode(int index) const noexcept;
  World* getWorld(int index) const noexcept;
  // Every item of the database (in no world or several).
  World& getAllItems() noexcept { return all_; }
  const World& getAllItems() const noexcept { return all_; }

  // Called by the Draw emitter.
  void addItem(DrawItem& item);

  // The host's camera controls call getCameraControlsBBox for framing; a surface sets what it
  // computes. Without a callback the box is the bounds of every item.
  void setCameraControlsBBox(std::function<void(ruGeom::BoundingBox&)> callback) { bboxCallback_ = std::move(callback); }
  void getCameraControlsBBox(ruGeom::BoundingBox& box) const;

private:
  friend PickIndex& pickIndexOf(const Database& database);
  struct Entry {
    ru::Reference<World> world;
    Filter filter;
    WorldNode* node;
  };
  Graph* graph_;
  std::vector<Entry> worlds_;
  // Declared before all_ so that it outlives it.
  std::unique_ptr<PickIndex> pickIndex_;
  World all_;
  std::function<void(ruGeom::BoundingBox&)> bboxCallback_;
};

}  // namespace voGR
