#include "platform/graphics/world.h"

#include "platform/graphics/internal.h"

#include <algorithm>

namespace voGR {

World::World() = default;

World::~World() {
  // The items outlive the world: forget the memberships that point here.
  for (auto& item : items_) {
    auto& memberships = item->memberships_;
    memberships.erase(std::remove_if(memberships.begin(), memberships.end(),
                                     [this](const auto& m) { return m->world == this; }),
                      memberships.end());
  }
}

void World::forEach(const std::function<void(DrawItem&)>& visit) const {
  for (const auto& item : items_) visit(*item);
}

void World::getBoundingBox(ruGeom::BoundingBox& box, const std::function<bool(DrawItem&)>& skip) const {
  box.setInvalid();
  for (const auto& item : items_) {
    if (skip && skip(*item)) continue;
    const ruGeom::BoundingBox itemBox = item->getWorldBoundingBox();
    if (itemBox.valid()) box.extend(itemBox);
  }
}

void World::add(DrawItem& item) {
  for (const auto& m : item.memberships_) {
    if (m->world == this) return;
  }
  items_.push_back(ru::Reference<DrawItem>(&item));
  auto membership = std::make_unique<DrawItem::Membership>();
  membership->world = this;
  membership->position = std::prev(items_.end());
  if (pickIndex_) pickIndex_->insert(item, &membership->pickSlot);
  item.memberships_.push_back(std::move(membership));
}

bool World::remove(DrawItem& item) {
  auto& memberships = item.memberships_;
  for (auto it = memberships.begin(); it != memberships.end(); ++it) {
    if ((*it)->world != this) continue;
    // Keep the item alive until its membership is gone: the list may hold the last reference.
    ru::Reference<DrawItem> keep(&item);
    if (pickIndex_) pickIndex_->erase((*it)->pickSlot);
    auto position = (*it)->position;
    memberships.erase(it);
    items_.erase(position);
    return true;
  }
  return false;
}

void detachFromWorlds(DrawItem& item) {
  ru::Reference<DrawItem> keep(&item);
  while (!item.memberships_.empty()) item.memberships_.back()->world->remove(item);
}

ListWorld::~ListWorld() = default;

WorldNode::WorldNode(ru::Reference<World> world) : world_(std::move(world)) {}
WorldNode::~WorldNode() = default;
const char* WorldNode::onKindName() const { return "WorldNode"; }

Database::Database(Graph* graph) : graph_(graph), pickIndex_(std::make_unique<PickIndex>()) {
  all_.pickIndex_ = pickIndex_.get();
}

PickIndex& pickIndexOf(const Database& database) { return *database.pickIndex_; }

Database::~Database() {
  // Items stay alive as long as their draw data holds them; they just leave this database's
  // worlds (which die with it unless a world node still holds them).
  for (Entry& entry : worlds_) {
    std::vector<ru::Reference<DrawItem>> items;
    entry.world->forEach([&](DrawItem& item) { items.emplace_back(&item); });
    for (auto& item : items) entry.world->remove(*item);
  }
  // The index dies with the database: no need to keep it up to date while it empties.
  all_.pickIndex_ = nullptr;
  std::vector<ru::Reference<DrawItem>> items;
  all_.forEach([&](DrawItem& item) { items.emplace_back(&item); });
  for (auto& item : items) all_.remove(*item);
}

int Database::addWorld(ru::Reference<World> world, Filter filter) {
  if (!world) return -1;
  // The node belongs to the graph; without a graph the world has none.
  WorldNode* node = nullptr;
  if (graph_) {
    node = new WorldNode(world);
    GraphEditor(graph_).addNode(node);
  }
  worlds_.push_back(Entry{std::move(world), std::move(filter), node});
  return static_cast<int>(worlds_.size()) - 1;
}

WorldNode* Database::getWorldNode(int index) const noexcept {
  return index >= 0 && index < getNumWorlds() ? worlds_[index].node : nullptr;
}

World* Database::getWorld(int index) const noexcept {
  return index >= 0 && index < getNumWorlds() ? worlds_[index].world.get() : nullptr;
}

void Database::addItem(DrawItem& item) {
  all_.add(item);
  // Each filter is asked once, now: later changes of the item do not move it between worlds.
  for (Entry& entry : worlds_) {
    if (!entry.filter || entry.filter(item)) entry.world->add(item);
  }
}

void Database::getCameraControlsBBox(ruGeom::BoundingBox& box) const {
  if (bboxCallback_) {
    bboxCallback_(box);
    return;
  }
  all_.getBoundingBox(box, {});
}

}  // namespace voGR
