#pragma once

#include "datamodelgui/export.h"
#include "datamodelgui/snap/snapmodel.h"
#include "platform/base/containers.h"
#include "platform/base/linear.h"
#include "platform/base/reference.h"
#include "platform/base/signal.h"
#include "platform/graphics/hittest.h"

// Which snap item holds the cursor, for each tool that snaps. There is one manager, entered in the
// call info under voDMG::SnapManager; a tool owns a SnapClient, which registers itself there, and
// calls its snap at each cursor move of a drag.
//
// At each snap the manager rebuilds the client's item list from what the cursor hits, what the
// client's factories offer and the items active now, and walks it highest priority first. An item
// catches at its snapDistance and lets go only past its tearDistance; while it holds, only an item
// of equal or higher priority can take over. The manager hears nothing of the document: when
// objects go away during a drag the host calls clearItems().
namespace voDMG {

class SnapClient;

class DMGUI_API SnapManager {
public:
  SnapManager();
  SnapManager(const SnapManager&) = delete;
  SnapManager& operator=(const SnapManager&) = delete;
  virtual ~SnapManager();

  // Registers `client`, or gives a registered one its new config.
  void addClient(const SnapClient* client, voGR::HitTestConfig config);
  // Forgets the client, its active item and its list.
  void removeClient(const SnapClient* client);
  void beginSnap(const SnapClient* client);
  // Ends each item of the client's list, then forgets its active item (the list stays).
  void endSnap(const SnapClient* client);
  // The item holding `client` at `cursor` (viewport pixels, y up), or null. `client` must be
  // registered.
  ru::Reference<SnapItem> snap(const SnapClient* client, const ruLinear::Point2& cursor);
  // Forgets every active item and every list; call it when document objects go away.
  void clearItems();
  // Lets the items of the lists draw their hints at the last cursor, down to the level of the
  // active item.
  void draw();
  // The drawing id of the hints, allocated on first use.
  int getGraphicsID();

  // For tests and diagnostics.
  const ruLinear::Point2& lastCursor() const noexcept { return lastCursor_; }
  ru::Reference<SnapItem> activeItem(const SnapClient* client) const;
  const ru::vector<ru::Reference<SnapItem>>* items(const SnapClient* client) const;
  bool hasClient(const SnapClient* client) const { return clients_.count(client) != 0; }

private:
  using ItemList = ru::vector<ru::Reference<SnapItem>>;

  void createSnapItems(const SnapClient* client, const ruLinear::Point2& cursor);
  bool enabled() const noexcept { return !clients_.empty(); }
  void hitTest(const ruLinear::Point2& cursor, const voGR::HitTestConfig& config, ru::vector<voGR::HitRecord>& records);
  bool reject(SnapItem* item, const SnapClient* client) const;
  void addSnapItems(SnapItemFactory& factory, ItemList& list);
  void addSnapItemsFromHitRecords(const ru::vector<voGR::HitRecord>& records, ItemList& list);
  void addSnapItemsFromFactories(const SnapClient* client, ItemList& list);
  void addActiveSnapItems(ItemList& list);
  void addStaticSnapItems(const SnapClient* client, ItemList& list);
  // By priority, highest first, keeping the order of equals.
  void sortByPriority(ItemList& list);
  // Object centres of the hit objects; no path calls it, a build that wants centres calls it
  // between the hit records and the static items.
  void addObjectCenterSnapItems(const ru::vector<voGR::HitRecord>& records, ItemList& list);

  ruRTB::SignalClient signalClient_;
  int graphicsID_ = -1;
  ru::hash_map<const SnapClient*, ru::Reference<SnapItem>> activeItems_;
  ru::hash_map<const SnapClient*, voGR::HitTestConfig> clients_;
  ru::map<const SnapClient*, ItemList> clientItems_;
  ruLinear::Point2 lastCursor_ = ruLinear::Point2::origin;
  // Room kept from one cursor move to the next, empty between calls, so that a move allocates
  // nothing for its hit records, its walk or its sort. A nested snap (from an item or a filter)
  // finds them taken and uses fresh ones.
  ru::vector<voGR::HitRecord> spareRecords_;
  ItemList spareWalk_;
  ItemList spareSort_;
};

// A tool's handle on snapping. Registers with the call info's manager on construction (when
// there is one) and unregisters on destruction.
class DMGUI_API SnapClient : public ru::ReferenceCount {
public:
  explicit SnapClient(voGR::HitTestConfig config);
  // Copies every field; a copy is not registered with the manager.
  SnapClient(const SnapClient& other);
  SnapClient& operator=(const SnapClient& other);
  ~SnapClient() override;

  void addFactory(ru::Reference<SnapItemFactory> factory);
  // Erases the first entry that is `factory`.
  void removeFactory(ru::Reference<SnapItemFactory> factory);
  const ru::list<ru::Reference<SnapItemFactory>>& factories() const noexcept { return factories_; }
  const ru::vector<ru::Reference<SnapFilter>>& filters() const noexcept { return filters_; }
  void pushFilter(ru::Reference<SnapFilter> filter);
  // Drops the last filter; nothing when there is none.
  void popFilter();

  void beginSnap();
  void endSnap();
  bool isSnapping() const noexcept { return snapping_; }
  // The result of the item holding the cursor, or null (no item, or the item gives none).
  ru::Reference<SnapResult> snap(const ruLinear::Point2& cursor);
  const ru::Reference<SnapItem>& getSnapItem() const noexcept { return item_; }
  const voGR::HitTestConfig& hitTestConfig() const noexcept { return config_; }

private:
  ru::vector<ru::Reference<SnapFilter>> filters_;
  bool snapping_ = false;
  voGR::HitTestConfig config_;
  ru::list<ru::Reference<SnapItemFactory>> factories_;
  ru::Reference<SnapItem> item_;
};

}  // namespace voDMG
