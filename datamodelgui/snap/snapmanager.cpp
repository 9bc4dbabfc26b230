#include "datamodelgui/snap/snapmanager.h"

#include "datamodelgui/draw/objectdraw.h"
#include "datamodelgui/snap/snapitems.h"
#include "platform/datamodel/attributes.h"
#include "platform/graphics/draw.h"
#include "platform/support/callinfo.h"
#include "platform/support/debug.h"

#include <algorithm>
#include <typeinfo>

namespace voDMG {

namespace {

SnapManager* currentManager() { return voSupport::ci().find<SnapManager>(); }

}  // namespace

SnapManager::SnapManager() = default;

SnapManager::~SnapManager() {
  if (graphicsID_ != -1) {
    if (auto* system = voSupport::ci().find<voGR::DrawSystem>()) system->freeID(graphicsID_);
    graphicsID_ = -1;
  }
  activeItems_.clear();
  clientItems_.clear();
  clients_.clear();
}

void SnapManager::addClient(const SnapClient* client, voGR::HitTestConfig config) {
  clients_[client] = std::move(config);
}

void SnapManager::removeClient(const SnapClient* client) {
  if (auto it = clients_.find(client); it != clients_.end()) clients_.erase(it);
  if (auto it = activeItems_.find(client); it != activeItems_.end()) activeItems_.erase(it);
  if (auto it = clientItems_.find(client); it != clientItems_.end()) clientItems_.erase(it);
}

void SnapManager::beginSnap(const SnapClient*) {}

void SnapManager::endSnap(const SnapClient* client) {
  if (auto it = clientItems_.find(client); it != clientItems_.end()) {
    // A copy: an item's onEndSnap must not be able to pull the list from under the loop.
    const ItemList list = it->second;
    for (const auto& item : list) item->endSnap();
  }
  if (auto it = activeItems_.find(client); it != activeItems_.end()) activeItems_.erase(it);
}

ru::Reference<SnapItem> SnapManager::snap(const SnapClient* client, const ruLinear::Point2& cursor) {
  if (!enabled()) return nullptr;
  createSnapItems(client, cursor);
  lastCursor_ = cursor;
  const voSupport::DebugPrint log("voDMG::SnapManager::snap", voSupport::DebugSnap);
  log("SnapManager::snap( client = %p, cursorPos = (%g,%g) )", static_cast<const void*>(client), cursor.x, cursor.y);

  ru::Reference<SnapItem> active;
  if (auto it = activeItems_.find(client); it != activeItems_.end()) active = it->second;
  if (active && active->shouldTear(cursor)) {
    log("Active item (%p) priority=%d is tearing.", static_cast<const void*>(active.get()),
        static_cast<int>(active->priority()));
    activeItems_.erase(client);
    active = nullptr;
  }

  // A copy keeps the items alive and the walk stable whatever withinDistance or a filter does.
  ItemList list;
  list.swap(spareWalk_);
  if (auto it = clientItems_.find(client); it != clientItems_.end()) list.assign(it->second.begin(), it->second.end());
  ru::Reference<SnapItem> winner;
  for (const auto& item : list) {
    if (!item || reject(item.get(), client)) continue;
    if (active && item->priority() < active->priority()) continue;
    if (item->shouldSnap(cursor)) {
      winner = item;
      break;
    }
  }
  if (winner) {
    active = winner;
    activeItems_[client] = winner;
    SnapItem& found = *winner;
    log("  found a new item to snap (%p) priority=%d, type=%s", static_cast<const void*>(winner.get()),
        static_cast<int>(winner->priority()), typeid(found).name());
  }
  // The copy lets go of its items now, and its room goes back for the next move.
  list.clear();
  if (spareWalk_.capacity() < list.capacity()) spareWalk_.swap(list);
  return active;
}

void SnapManager::clearItems() {
  activeItems_.clear();
  clientItems_.clear();
}

void SnapManager::draw() {
  auto* system = voSupport::ci().find<voGR::DrawSystem>();
  if (!system) return;
  voGR::DrawContext context(system, getGraphicsID());
  ru::Reference<SnapItem> active;
  if (!activeItems_.empty()) active = activeItems_.begin()->second;
  // Copies: an item's drawing must not disturb the lists being walked.
  const auto lists = clientItems_;
  for (const auto& entry : lists) {
    for (const auto& item : entry.second) {
      if (active && item->priority() < active->priority()) continue;
      item->draw(context, lastCursor_);
    }
  }
}

int SnapManager::getGraphicsID() {
  if (graphicsID_ == -1) {
    if (auto* system = voSupport::ci().find<voGR::DrawSystem>()) graphicsID_ = system->allocateID();
  }
  return graphicsID_;
}

ru::Reference<SnapItem> SnapManager::activeItem(const SnapClient* client) const {
  auto it = activeItems_.find(client);
  return it == activeItems_.end() ? nullptr : it->second;
}

const ru::vector<ru::Reference<SnapItem>>* SnapManager::items(const SnapClient* client) const {
  auto it = clientItems_.find(client);
  return it == clientItems_.end() ? nullptr : &it->second;
}

void SnapManager::createSnapItems(const SnapClient* client, const ruLinear::Point2& cursor) {
  // The client's last list is emptied with the others, but its room is kept for the new one.
  ItemList list;
  if (auto it = clientItems_.find(client); it != clientItems_.end()) list.swap(it->second);
  clientItems_.clear();
  list.clear();
  if (!enabled()) return;
  voSupport::DebugPrint("voDMG::SnapManager::createSnapItems", voSupport::DebugSnap)("SnapManager::createSnapItems");
  auto found = clients_.find(client);
  if (found == clients_.end()) return;  // an unregistered client: nothing to gather for it
  const voGR::HitTestConfig config = found->second;
  ru::vector<voGR::HitRecord> records;
  records.swap(spareRecords_);
  hitTest(cursor, config, records);
  addSnapItemsFromHitRecords(records, list);
  // The records hold their draw items: let go of them now, keeping only the room.
  records.clear();
  if (spareRecords_.capacity() < records.capacity()) spareRecords_.swap(records);
  addStaticSnapItems(client, list);
  clientItems_[client] = std::move(list);
}

void SnapManager::hitTest(const ruLinear::Point2& cursor, const voGR::HitTestConfig& config,
                          ru::vector<voGR::HitRecord>& records) {
  records.clear();
  auto* system = voSupport::ci().find<voGR::DrawSystem>();
  auto* camera = voSupport::ci().find<voDMD::Camera>();
  if (!system || !camera) return;
  voGR::visibilityTest(*system, camera->get(), cursor, config, records);
}

bool SnapManager::reject(SnapItem* item, const SnapClient* client) const {
  for (const auto& filter : client->filters()) {
    if (filter && !filter->accept(item)) return true;
  }
  return false;
}

void SnapManager::addSnapItems(SnapItemFactory& factory, ItemList& list) {
  // A plain fixed factory would add its own set to the empty one, so its set, already in pointer
  // order, is what comes out: take it as it is rather than build a tree of it at every move.
  if (typeid(factory) == typeid(FixedSnapItemFactory)) {
    const SnapItemSet& fixed = static_cast<const FixedSnapItemFactory&>(factory).items();
    list.reserve(list.size() + fixed.size());
    for (const auto& item : fixed) {
      if (item) list.push_back(item);
    }
    return;
  }
  SnapItemSet set;
  factory.getItems(set);
  list.reserve(list.size() + set.size());
  for (const auto& item : set) {
    if (item) list.push_back(item);
  }
}

void SnapManager::addSnapItemsFromHitRecords(const ru::vector<voGR::HitRecord>& records, ItemList& list) {
  for (const auto& record : records) {
    if (!record.owner) continue;
    ru::Reference<SnapItemFactory> factory = record.owner->createSnapItemFactory(record);
    if (factory) addSnapItems(*factory, list);
  }
}

void SnapManager::addSnapItemsFromFactories(const SnapClient* client, ItemList& list) {
  // A copy: a factory may change the client's list while it makes items.
  const auto factories = client->factories();
  for (const auto& factory : factories) {
    if (factory) addSnapItems(*factory, list);
  }
}

void SnapManager::addActiveSnapItems(ItemList& list) {
  for (const auto& entry : activeItems_) {
    if (std::find(list.begin(), list.end(), entry.second) == list.end()) list.push_back(entry.second);
  }
}

void SnapManager::addStaticSnapItems(const SnapClient* client, ItemList& list) {
  addSnapItemsFromFactories(client, list);
  addActiveSnapItems(list);
  voSupport::DebugPrint("voDMG::SnapManager::addStaticSnapItems", voSupport::DebugSnap)(
      "  now have %d SnapItems", static_cast<int>(list.size()));
  if (list.empty()) return;
  sortByPriority(list);
}

void SnapManager::sortByPriority(ItemList& list) {
  const auto higher = [](const ru::Reference<SnapItem>& a, const ru::Reference<SnapItem>& b) {
    return a->priority() > b->priority();
  };
  if (std::is_sorted(list.begin(), list.end(), higher)) return;
  // A list holds few distinct priorities (the library has four): gathering the items of each in
  // turn, highest first, keeps their order within one priority as a stable sort does, in room
  // kept from the last move instead of a buffer made for each sort.
  constexpr std::size_t kMostBuckets = 8;
  SnapPriority priorities[kMostBuckets];
  std::size_t count = 0;
  for (const auto& item : list) {
    const SnapPriority priority = item->priority();
    if (std::find(priorities, priorities + count, priority) != priorities + count) continue;
    if (count == kMostBuckets) {
      std::stable_sort(list.begin(), list.end(), higher);
      return;
    }
    priorities[count++] = priority;
  }
  // Highest first; a handful of values, so an insertion sort.
  for (std::size_t i = 1; i < count; ++i) {
    for (std::size_t j = i; j > 0 && priorities[j - 1] < priorities[j]; --j) std::swap(priorities[j - 1], priorities[j]);
  }
  ItemList sorted;
  sorted.swap(spareSort_);
  sorted.reserve(list.size());
  for (std::size_t bucket = 0; bucket < count; ++bucket) {
    for (auto& item : list) {
      // Items taken by an earlier bucket are null now.
      if (item && item->priority() == priorities[bucket]) sorted.push_back(std::move(item));
    }
  }
  list.swap(sorted);
  // What is left holds only moved-from references; its room serves the next sort.
  sorted.clear();
  spareSort_.swap(sorted);
}

void SnapManager::addObjectCenterSnapItems(const ru::vector<voGR::HitRecord>& records, ItemList& list) {
  ru::set<voDMD::Object*> objects;
  for (const auto& record : records) {
    if (record.owner && record.owner->getObject()) objects.insert(record.owner->getObject());
  }
  for (voDMD::Object* object : objects) {
    FixedSnapItemFactory factory(ru::Reference<SnapItem>(new ObjectCenterSnapItem(object)));
    addSnapItems(factory, list);
  }
}

SnapClient::SnapClient(voGR::HitTestConfig config) : config_(std::move(config)) {
  if (auto* manager = currentManager()) manager->addClient(this, config_);
}

SnapClient::SnapClient(const SnapClient& other)
    : ru::ReferenceCount(other),
      filters_(other.filters_),
      snapping_(other.snapping_),
      config_(other.config_),
      factories_(other.factories_),
      item_(other.item_) {}

SnapClient& SnapClient::operator=(const SnapClient& other) {
  if (this == &other) return *this;
  filters_ = other.filters_;
  snapping_ = other.snapping_;
  config_ = other.config_;
  factories_ = other.factories_;
  item_ = other.item_;
  return *this;
}

SnapClient::~SnapClient() {
  if (auto* manager = currentManager()) manager->removeClient(this);
}

void SnapClient::addFactory(ru::Reference<SnapItemFactory> factory) { factories_.push_back(std::move(factory)); }

void SnapClient::removeFactory(ru::Reference<SnapItemFactory> factory) {
  auto it = std::find(factories_.begin(), factories_.end(), factory);
  if (it != factories_.end()) factories_.erase(it);
}

void SnapClient::pushFilter(ru::Reference<SnapFilter> filter) { filters_.push_back(std::move(filter)); }

void SnapClient::popFilter() {
  if (!filters_.empty()) filters_.pop_back();
}

void SnapClient::beginSnap() {
  snapping_ = true;
  if (auto* manager = currentManager()) manager->beginSnap(this);
}

void SnapClient::endSnap() {
  snapping_ = false;
  item_ = nullptr;
  if (auto* manager = currentManager()) manager->endSnap(this);
}

ru::Reference<SnapResult> SnapClient::snap(const ruLinear::Point2& cursor) {
  auto* manager = currentManager();
  item_ = manager ? manager->snap(this, cursor) : nullptr;
  if (!item_) return nullptr;
  return item_->snap(cursor);
}

}  // namespace voDMG
