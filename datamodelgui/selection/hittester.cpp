#include "datamodelgui/selection/hittester.h"

#include "datamodelgui/draw/documentdraw.h"
#include "datamodelgui/selection/selector.h"
#include "platform/datamodel/attributes.h"
#include "platform/graphics/draw.h"
#include "platform/support/callinfo.h"
#include "platform/support/debug.h"
#include "platform/support/settings.h"

#include <algorithm>
#include <utility>

namespace voDMG {

namespace {

int documentDrawId() {
  const DocumentDraw* draw = voSupport::ci().find<DocumentDraw>();
  return draw ? draw->getID() : -1;
}

ruGeom::Camera documentCamera() { return voSupport::ci().find<voDMD::Camera>()->get(); }

}  // namespace

// ---------------------------------------------------------------------------------------------
// DocumentHitTester

DocumentHitTester::DocumentHitTester()
    : composingFilter_(new voGR::ComposingHitFilter()),
      propertyFilter_(new voGR::DrawItemPropertyHitFilter()),
      cameraGetter_(&documentCamera) {
  composingFilter_->add(propertyFilter_);
}

DocumentHitTester::DocumentHitTester(const DocumentHitTester& other)
    : composingFilter_(new voGR::ComposingHitFilter()),
      propertyFilter_(new voGR::DrawItemPropertyHitFilter()),
      cameraGetter_(other.cameraGetter_) {
  composingFilter_->add(propertyFilter_);
}

DocumentHitTester::~DocumentHitTester() {
  for (auto& entry : signals_) delete entry.second;
}

DocumentHitTester::HitsSignal& DocumentHitTester::sigHitsChanged(const voGR::HitTestConfig& config,
                                                                 bool subsystemPrecedence) {
  Key key{config, subsystemPrecedence};
  auto found = signals_.find(key);
  if (found == signals_.end()) found = signals_.emplace(std::move(key), new HitsSignal()).first;
  return *found->second;
}

const ru::vector<voGR::HitRecord>* DocumentHitTester::records(const voGR::HitTestConfig& config,
                                                             bool subsystemPrecedence) const {
  auto found = records_.find(Key{config, subsystemPrecedence});
  return found == records_.end() ? nullptr : &found->second;
}

void DocumentHitTester::hitTest(const ruLinear::Point2& point, EventType eventType) {
  const voSupport::DebugPrint debug("voDMG::DocumentHitTester::hitTest", voSupport::DebugHitTest);
  documentId_ = documentDrawId();
  // Nothing of the document has been drawn yet, so nothing of it can be hit.
  if (documentId_ == -1) return;
  propertyFilter_->setID(documentId_);
  dropList_.clear();
  dropList_.reserve(signals_.size());

  for (auto entry = signals_.begin(); entry != signals_.end(); ++entry) {
    const Key& key = entry->first;
    ru::vector<voGR::HitRecord>& stored = records_[key];
    if (entry->second->numConnections() == 0) {
      if (!stored.empty()) {
        debug("Document hit test records cleared - no clients.");
        stored.clear();
      }
      dropList_.push_back(entry);
      continue;
    }

    const voGR::DrawSystem* system = voSupport::ci().find<voGR::DrawSystem>();
    const ruGeom::Camera camera = cameraGetter_();
    ru::vector<voGR::HitRecord> fresh;
    if (key.subsystemPrecedence) {
      voGR::visibilityTest(*system, camera, point, key.config, fresh);
      applySubsystemPrecedence(fresh);
    } else {
      // The key sees the document's items that its own second filter also accepts.
      voGR::HitTestConfig config = key.config;
      config.secondFilter = composingFilter_;
      composingFilter_->add(key.config.secondFilter);
      voGR::visibilityTest(*system, camera, point, config, fresh);
      composingFilter_->remove(key.config.secondFilter);
    }

    // The event type is no part of the answer: a new event on the same hits tells nobody.
    if (voGR::equivalent(fresh, stored)) {
      debug("Same hit records, (%d records)", static_cast<int>(stored.size()));
      continue;
    }
    stored.swap(fresh);
    debug("Document hit test records changed (have %d).", static_cast<int>(stored.size()));
    entry->second->emit(stored, eventType);
  }

  // Erased only now, so that the walk above stays valid.
  for (SignalMap::iterator entry : dropList_) {
    HitsSignal* signal = entry->second;
    records_.erase(entry->first);
    signals_.erase(entry);
    delete signal;
  }
  dropList_.clear();
}

void DocumentHitTester::applySubsystemPrecedence(ru::vector<voGR::HitRecord>& records) const {
  // Whatever another subsystem drew here (a manipulator, say) hides the document, nearer or not.
  const bool foreign = std::any_of(records.begin(), records.end(),
                                   [this](const voGR::HitRecord& record) { return record.id != documentId_; });
  if (foreign) records.clear();
}

void DocumentHitTester::clear() {
  for (auto& entry : records_) {
    if (entry.second.empty()) continue;
    entry.second.clear();
    auto signal = signals_.find(entry.first);
    if (signal != signals_.end()) signal->second->emit(entry.second, Cleared);
  }
}

// ---------------------------------------------------------------------------------------------
// CandidateSet

CandidateSet::CandidateSet() : hitTester_(voSupport::ci().find<DocumentHitTester>()) {
  config_.radius = voSupport::getHitTestRadius();
  config_.hitTestMode = 0x40000000u;
  if (hitTester_) hitTester_->sigHitsChanged(config_, true).connect(this, &CandidateSet::onHitsChanged, client_);
}

CandidateSet::~CandidateSet() = default;

void CandidateSet::addFilter(Filters& filters, ru::Reference<SelectionFilter> filter) {
  if (filter) filters.push_back(std::move(filter));
}

void CandidateSet::removeFilter(Filters& filters, ru::Reference<SelectionFilter> filter) {
  if (!filter) return;
  auto found = std::find(filters.begin(), filters.end(), filter);
  if (found != filters.end()) filters.erase(found);
}

void CandidateSet::setOcclusionFilters(voGR::HitFilter* first, voGR::HitFilter* second) {
  // The config is the key: the connection moves with it. The old key, left without listeners, is
  // dropped by the next hit test.
  if (hitTester_) hitTester_->sigHitsChanged(config_, true).disconnect(client_);
  config_.firstFilter = first;
  config_.secondFilter = second;
  if (hitTester_) hitTester_->sigHitsChanged(config_, true).connect(this, &CandidateSet::onHitsChanged, client_);
}

void CandidateSet::onHitsChanged(const ru::vector<voGR::HitRecord>& records, DocumentHitTester::EventType eventType) {
  const voSupport::DebugPrint debug("voDMG::CandidateSet::onHitsChanged", voSupport::DebugHitTest);
  debug("CandidateSet::onHitsChanged");
  if (eventType == DocumentHitTester::Passive) return;

  SelectionSet scratch;
  {
    RawSelector selector(scratch);
    selector.add(records);
  }
  debug("Number of hit records obtained = %d ", static_cast<int>(records.size()));
  for (const auto& filter : filters_) (*filter)(scratch);
  for (const auto& filter : precedenceFilters_) (*filter)(scratch);

  // Compares the filtered value, before the rule, with the present one, after it.
  if (equivalent(scratch)) return;

  if (defaultRule_ && !scratch.empty()) {
    const SelectionItem first = *scratch.items().begin();
    if (defaultRule_->appliesTo(first)) {
      SelectionSet expanded;
      defaultRule_->expand(first, expanded);
      scratch.swap(expanded);
    }
  }
  swap(scratch);
  debug("CandidateSet changed (have %d items).", static_cast<int>(items().size()));
  sigCandidatesChanged.emit(eventType);
}

}  // namespace voDMG
