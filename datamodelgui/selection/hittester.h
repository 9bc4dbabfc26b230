#pragma once

#include "datamodelgui/export.h"
#include "datamodelgui/selection/selectionfilter.h"
#include "datamodelgui/selection/selectionset.h"
#include "platform/base/containers.h"
#include "platform/base/linear.h"
#include "platform/base/reference.h"
#include "platform/base/signal.h"
#include "platform/geometry/camera.h"
#include "platform/graphics/hittest.h"
#include "platform/support/broadcaster.h"

#include <cstdint>
#include <functional>

namespace voDMG {

// Asks the graphics library what lies under the cursor, once per distinct hit test configuration
// that has a listener, keeps each answer and signals that configuration's listeners only when the
// answer changes. The host calls hitTest with the cursor; nothing in this library does.
class DMGUI_API DocumentHitTester {
public:
  // Why a hit test ran. Passed through to listeners; the candidate set ignores Passive, and
  // clear() reports Cleared. The host may use other values.
  enum EventType : std::uint32_t {
    Move = 0,
    Passive = 1,
    Button = 2,
    Cleared = 3,
  };
  using HitsSignal = ruRTB::Signal2Args<const ru::vector<voGR::HitRecord>&, EventType>;

  // The camera comes from the voDMD::Camera of voSupport::ci() until setCameraGetter.
  DocumentHitTester();
  // Takes the camera source only: no keys, answers or listeners.
  DocumentHitTester(const DocumentHitTester& other);
  DocumentHitTester& operator=(const DocumentHitTester&) = delete;
  ~DocumentHitTester();

  // One pass over every key at `point` (viewport pixels). Nothing happens before the document draw
  // has a drawing id. Keys found without listeners are dropped at the end of the pass.
  void hitTest(const ruLinear::Point2& point, EventType eventType);
  // Forgets every non-empty answer and tells its listeners (an empty answer, Cleared).
  void clear();
  // The signal of the key (config, subsystemPrecedence), made on first request. With
  // subsystemPrecedence, anything another subsystem drew at the point hides every document hit;
  // without it, the key sees only the document's items that its own second filter also accepts.
  HitsSignal& sigHitsChanged(const voGR::HitTestConfig& config, bool subsystemPrecedence);
  void setCameraGetter(std::function<ruGeom::Camera()> getter) { cameraGetter_ = std::move(getter); }

  // The stored answer of a key, or null when it has none; for diagnostics and tests.
  const ru::vector<voGR::HitRecord>* records(const voGR::HitTestConfig& config, bool subsystemPrecedence) const;
  // Number of keys with a signal.
  int numKeys() const noexcept { return static_cast<int>(signals_.size()); }

private:
  struct Key {
    voGR::HitTestConfig config;
    bool subsystemPrecedence = false;
  };
  struct KeyLess {
    bool operator()(const Key& a, const Key& b) const noexcept {
      if (a.config < b.config) return true;
      if (b.config < a.config) return false;
      return a.subsystemPrecedence < b.subsystemPrecedence;
    }
  };
  using SignalMap = ru::map<Key, HitsSignal*, KeyLess>;

  void applySubsystemPrecedence(ru::vector<voGR::HitRecord>& records) const;

  SignalMap signals_;
  ru::map<Key, ru::vector<voGR::HitRecord>, KeyLess> records_;
  ru::Reference<voGR::ComposingHitFilter> composingFilter_;
  ru::Reference<voGR::DrawItemPropertyHitFilter> propertyFilter_;
  std::function<ruGeom::Camera()> cameraGetter_;
  // Keys found without listeners in the pass under way; kept to spare an allocation per pass.
  ru::vector<SignalMap::iterator> dropList_;
  // The document's id during the pass under way.
  int documentId_ = -1;
};

// The set of what the cursor rests on: the hover set the document draw hands to each object draw.
// It listens to the hit tester of voSupport::ci() on the key of its own config with subsystem
// precedence, turns the records into items, runs its filters, then its precedence filters, and lets
// its default rule expand the first item.
class DMGUI_API CandidateSet : public SelectionSet {
public:
  // Connects to the voDMG::DocumentHitTester of voSupport::ci() with the settings' hit test radius.
  CandidateSet();
  CandidateSet(const CandidateSet&) = delete;
  CandidateSet& operator=(const CandidateSet&) = delete;
  ~CandidateSet() override;

  void addFilter(ru::Reference<SelectionFilter> filter) { addFilter(filters_, std::move(filter)); }
  // The filter must be in the list; null does nothing.
  void removeFilter(ru::Reference<SelectionFilter> filter) { removeFilter(filters_, std::move(filter)); }
  void addPrecedenceFilter(ru::Reference<SelectionFilter> filter) { addFilter(precedenceFilters_, std::move(filter)); }
  void removePrecedenceFilter(ru::Reference<SelectionFilter> filter) {
    removeFilter(precedenceFilters_, std::move(filter));
  }
  void setDefaultRule(ru::Reference<SelectionRule> rule) { defaultRule_ = std::move(rule); }
  // Moves the set to the key of a config with these occlusion filters (either may be null).
  void setOcclusionFilters(voGR::HitFilter* first, voGR::HitFilter* second);
  // The stored config. Changing it directly does not move the connection to another key.
  voGR::HitTestConfig& hitTestConfig() noexcept { return config_; }

  // After the set took a new value.
  ruRTB::SignalArg<DocumentHitTester::EventType> sigCandidatesChanged;

private:
  using Filters = ru::vector<ru::Reference<SelectionFilter>>;
  static void addFilter(Filters& filters, ru::Reference<SelectionFilter> filter);
  static void removeFilter(Filters& filters, ru::Reference<SelectionFilter> filter);

  void onHitsChanged(const ru::vector<voGR::HitRecord>& records, DocumentHitTester::EventType eventType);

  ruRTB::SignalClient client_;
  voGR::HitTestConfig config_;
  Filters filters_;
  Filters precedenceFilters_;
  ru::Reference<SelectionRule> defaultRule_;
  DocumentHitTester* hitTester_ = nullptr;
};

// Broadcast by the host once the candidate set exists, so that modules install filters and rules.
class DMGUI_API InitializeCandidateSetMsg : public voSupport::Message {
public:
  explicit InitializeCandidateSetMsg(CandidateSet& candidateSet) noexcept : candidateSet_(&candidateSet) {}
  CandidateSet& candidateSet() const noexcept { return *candidateSet_; }

private:
  CandidateSet* candidateSet_;
};

}  // namespace voDMG
