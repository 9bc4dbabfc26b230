#include "datamodelgui/selection/hittester.h"

#include "hitfixture.h"
#include "platform/support/broadcaster.h"
#include "platform/support/settings.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

using hittest::box;
using hittest::DebugLog;
using hittest::HitsRecorder;
using hittest::itemsOf;
using hittest::setOf;
using voDMG::DocumentHitTester;
using voDMG::SelectionItem;
using voDMG::SelectionSet;

const std::string kTester = "voDMG::DocumentHitTester::hitTest: ";
const std::string kCandidates = "voDMG::CandidateSet::onHitsChanged: ";

// A drawing object whose items are parts (sub-items) but which names no part: the base's
// onGetSubObjectItem, the invalid item.
class NoPartsDraw : public voDMG::ObjectDraw {
public:
  NoPartsDraw(voDMG::DocumentDraw* documentDraw, voDMD::Object* object, const ruLinear::Range3d& range)
      : ObjectDraw(documentDraw, object), range_(range) {}

protected:
  void onDraw(voGR::DrawContext& context, voDMG::SelectionIterator, voDMG::SelectionIterator, voDMG::SelectionIterator,
              voDMG::SelectionIterator, ru::Reference<voGR::DrawPolicy>) override {
    voGR::Draw draw(context, this, false);
    ru::Reference<ruGeom::CompactMesh> mesh = new ruGeom::CompactMesh();
    ruGeom::constructCuboid(range_, *mesh);
    draw.setMesh(mesh);
    draw.setSubItem(true);
    draw.emit();
  }

private:
  ruLinear::Range3d range_;
};

// Expands the item of `from` into `into` (a face into its body, as an application's rule would),
// recording every item it is offered.
struct ExpandRule : voDMG::SelectionRule {
  bool appliesTo(const SelectionItem& item) override {
    offered.push_back(item);
    return item.getObject() == from;
  }
  void expand(const SelectionItem&, SelectionSet& out) override {
    for (const SelectionItem& item : into) out.add(setOf({item}));
  }
  void ruleOperation3() override {}
  voDMD::Object* from = nullptr;
  std::vector<SelectionItem> into;
  std::vector<SelectionItem> offered;
};

// Removes everything but the items of one object, counting its calls in a shared log.
struct KeepOnly : voDMG::SelectionFilter {
  KeepOnly(voDMD::Object* object, std::vector<std::string>& log, std::string name)
      : object_(object), log_(&log), name_(std::move(name)) {}
  void filter(SelectionSet& set) const override {
    log_->push_back(name_ + ":" + std::to_string(set.items().size()));
    SelectionSet others;
    for (const SelectionItem& item : set.items()) {
      if (item.getObject() != object_) others.add(setOf({item}));
    }
    set.remove(others);
  }
  voDMD::Object* object_;
  std::vector<std::string>* log_;
  std::string name_;
};

// The lines of the hit tester and the candidate set (the document draw logs on the same code).
std::vector<std::string> ours(const DebugLog& log) {
  std::vector<std::string> out;
  for (const std::string& line : log.lines) {
    if (line.rfind(kTester, 0) == 0 || line.rfind(kCandidates, 0) == 0) out.push_back(line);
  }
  return out;
}

class HitTesterGLTest : public ::testing::Test, public hittest::HitFixture {
protected:
  // Two cubes side by side, A on the left, B on the right, drawn once so the document has an id.
  void twoCubes() {
    a = doc.addCuboid(box(-3, -1, -1, -1, 1, 1));
    b = doc.addCuboid(box(1, -1, -1, 3, 1, 1));
    documentDraw->draw();
  }
  ruLinear::Point2 overA() const { return pixelOf(ruLinear::Point(-2, -1, 0)); }
  ruLinear::Point2 overB() const { return pixelOf(ruLinear::Point(2, -1, 0)); }
  ruLinear::Point2 overNothing() const { return pixelOf(ruLinear::Point(0, -1, 3)); }
  const ru::vector<voGR::HitRecord>* candidateRecords() const {
    return hitTester.records(const_cast<voDMG::CandidateSet&>(candidates).hitTestConfig(), true);
  }
  // A candidate set made while the settings' radius is `radius`: its key has that radius.
  static std::unique_ptr<voDMG::CandidateSet> candidatesWithRadius(int radius) {
    const int saved = voSupport::getHitTestRadius();
    voSupport::setHitTestRadius(radius);
    auto made = std::make_unique<voDMG::CandidateSet>();
    voSupport::setHitTestRadius(saved);
    EXPECT_EQ(made->hitTestConfig().radius, radius);
    return made;
  }
  voGR::HitTestConfig plainConfig() const {
    voGR::HitTestConfig config;
    config.radius = 0;
    return config;
  }

  voDMD::Object* a = nullptr;
  voDMD::Object* b = nullptr;
};

TEST_F(HitTesterGLTest, HoverOverAnObjectMakesItTheCandidate) {
  twoCubes();
  std::vector<DocumentHitTester::EventType> changes;
  ruRTB::SignalClient listener;
  candidates.sigCandidatesChanged.addCallback([&](DocumentHitTester::EventType type) { changes.push_back(type); }, listener);
  hitTester.hitTest(overA(), DocumentHitTester::Move);
  EXPECT_EQ(itemsOf(candidates), std::vector<SelectionItem>{SelectionItem(a)});
  hitTester.hitTest(overB(), DocumentHitTester::Button);
  EXPECT_EQ(itemsOf(candidates), std::vector<SelectionItem>{SelectionItem(b)});
  hitTester.hitTest(overNothing(), DocumentHitTester::Move);
  EXPECT_TRUE(candidates.empty());
  EXPECT_EQ(changes, (std::vector<DocumentHitTester::EventType>{DocumentHitTester::Move, DocumentHitTester::Button,
                                                                 DocumentHitTester::Move}));
}

TEST_F(HitTesterGLTest, CandidateSetUsesTheSettingsRadiusAndItsModeOnThePrecedenceKey) {
  EXPECT_EQ(candidates.hitTestConfig().radius, voSupport::getHitTestRadius());
  EXPECT_EQ(candidates.hitTestConfig().hitTestMode, 0x40000000u);
  EXPECT_EQ(hitTester.numKeys(), 1);
  EXPECT_EQ(hitTester.sigHitsChanged(candidates.hitTestConfig(), true).numConnections(), 1);
  EXPECT_EQ(hitTester.sigHitsChanged(candidates.hitTestConfig(), false).numConnections(), 0);
}

TEST_F(HitTesterGLTest, HoverReachesTheDrawnStateOfExactlyTheHoveredObject) {
  twoCubes();
  hitTester.hitTest(overA(), DocumentHitTester::Move);
  documentDraw->draw();
  auto itemOf = [&](voDMD::Object* object) {
    voDMG::ObjectDraw* draw = documentDraw->getDraw(object);
    return draw->getDrawData(draw)->getItems().front().get();
  };
  EXPECT_TRUE(itemOf(a)->isActive());
  EXPECT_EQ(itemOf(a)->getColor(), voDMG::MeshDraw::kHoverColor.toColor());
  EXPECT_FALSE(itemOf(b)->isActive());
  EXPECT_EQ(selectedWorld->size(), 1u);
  scene.frame("hittester_hover_a");
  hitTester.hitTest(overB(), DocumentHitTester::Move);
  documentDraw->draw();
  EXPECT_FALSE(itemOf(a)->isActive());
  EXPECT_TRUE(itemOf(b)->isActive());
  EXPECT_EQ(selectedWorld->size(), 1u);
}

TEST_F(HitTesterGLTest, DebugTextsOfAChangeAndOfTheSameHits) {
  twoCubes();
  DebugLog log;
  hitTester.hitTest(overA(), DocumentHitTester::Move);
  const int records = static_cast<int>(candidateRecords()->size());
  ASSERT_GE(records, 1);
  const std::vector<std::string> changed{
      kTester + "Document hit test records changed (have " + std::to_string(records) + ").",
      kCandidates + "CandidateSet::onHitsChanged",
      kCandidates + "Number of hit records obtained = " + std::to_string(records) + " ",
      kCandidates + "CandidateSet changed (have 1 items).",
  };
  EXPECT_EQ(ours(log), changed);
  log.lines.clear();
  hitTester.hitTest(overA(), DocumentHitTester::Move);
  EXPECT_EQ(ours(log), std::vector<std::string>{kTester + "Same hit records, (" + std::to_string(records) + " records)"});
}

TEST_F(HitTesterGLTest, BeforeTheDocumentDrawHasAnIdHitTestLeavesEveryStoredVectorUnchanged) {
  a = doc.addCuboid(box(-3, -1, -1, -1, 1, 1));
  ASSERT_EQ(documentDraw->getID(), -1);
  HitsRecorder recorder;
  recorder.connect(hitTester.sigHitsChanged(plainConfig(), false));
  hitTester.sigHitsChanged(plainConfig(), true);  // a key without listeners, kept until a real pass
  DebugLog log;
  hitTester.hitTest(overA(), DocumentHitTester::Move);
  EXPECT_TRUE(recorder.sizes.empty());
  EXPECT_TRUE(candidates.empty());
  EXPECT_EQ(hitTester.records(plainConfig(), false), nullptr);
  EXPECT_EQ(hitTester.records(candidates.hitTestConfig(), true), nullptr);
  EXPECT_EQ(hitTester.numKeys(), 3);
  EXPECT_TRUE(log.lines.empty());
}

TEST_F(HitTesterGLTest, ARecordFromAnotherSubsystemEmptiesTheTrueKeyAndLeavesTheFalseKey) {
  twoCubes();
  HitsRecorder plain;
  plain.connect(hitTester.sigHitsChanged(plainConfig(), false));
  hitTester.hitTest(overA(), DocumentHitTester::Move);
  EXPECT_EQ(itemsOf(candidates), std::vector<SelectionItem>{SelectionItem(a)});
  ASSERT_EQ(plain.sizes, std::vector<int>{1});
  // An x-ray manipulator behind A: seen though farther, and it hides every document hit on the
  // true key.
  drawForeignCube(box(-3, 2, -1, -1, 3, 1), nullptr, true);
  hitTester.hitTest(overA(), DocumentHitTester::Move);
  EXPECT_TRUE(candidates.empty());
  EXPECT_TRUE(candidateRecords()->empty());
  // The false key sees only the document: its answer did not change, so it heard nothing.
  EXPECT_EQ(plain.sizes, std::vector<int>{1});
  const ru::vector<voGR::HitRecord>* records = hitTester.records(plainConfig(), false);
  ASSERT_EQ(records->size(), 1u);
  EXPECT_EQ((*records)[0].owner, documentDraw->getDraw(a));
}

TEST_F(HitTesterGLTest, TheFalseKeySeesOnlyDocumentItemsItsOwnFilterAccepts) {
  twoCubes();
  voGR::HitTestConfig config = plainConfig();
  config.secondFilter = new voDMG::SelectionSetHitFilter();
  HitsRecorder recorder;
  recorder.connect(hitTester.sigHitsChanged(config, false));
  hitTester.hitTest(overA(), DocumentHitTester::Move);
  EXPECT_EQ(hitTester.records(config, false)->size(), 0u);
  selection.add(setOf({a}));
  hitTester.hitTest(overA(), DocumentHitTester::Move);
  ASSERT_EQ(recorder.sizes, std::vector<int>{1});
  // The composing filter is left with the document's filter only.
  hitTester.hitTest(overB(), DocumentHitTester::Move);
  EXPECT_EQ(recorder.sizes, (std::vector<int>{1, 0}));
}

TEST_F(HitTesterGLTest, EventTypeOneUpdatesTheCacheAndLeavesTheCandidates) {
  twoCubes();
  int changes = 0;
  ruRTB::SignalClient listener;
  candidates.sigCandidatesChanged.addCallback([&] { ++changes; }, listener);
  hitTester.hitTest(overA(), DocumentHitTester::Passive);
  ASSERT_NE(candidateRecords(), nullptr);
  EXPECT_FALSE(candidateRecords()->empty());
  EXPECT_TRUE(candidates.empty());
  // The same hits send nothing, so the candidates stay behind.
  hitTester.hitTest(overA(), DocumentHitTester::Move);
  EXPECT_TRUE(candidates.empty());
  EXPECT_EQ(changes, 0);
  // Until the hits change.
  hitTester.hitTest(overB(), DocumentHitTester::Move);
  EXPECT_EQ(itemsOf(candidates), std::vector<SelectionItem>{SelectionItem(b)});
  EXPECT_EQ(changes, 1);
}

TEST_F(HitTesterGLTest, TwoHitTestsAtTheSamePointWithDifferentEventTypesSignalOnce) {
  twoCubes();
  HitsRecorder recorder;
  recorder.connect(hitTester.sigHitsChanged(plainConfig(), true));
  hitTester.hitTest(overA(), DocumentHitTester::Move);
  hitTester.hitTest(overA(), DocumentHitTester::Button);
  EXPECT_EQ(recorder.types, std::vector<DocumentHitTester::EventType>{DocumentHitTester::Move});
}

TEST_F(HitTesterGLTest, ClearWithAllVectorsEmptyEmitsNothing) {
  twoCubes();
  HitsRecorder recorder;
  recorder.connect(hitTester.sigHitsChanged(plainConfig(), true));
  hitTester.hitTest(overNothing(), DocumentHitTester::Move);
  hitTester.clear();
  hitTester.clear();
  EXPECT_TRUE(recorder.sizes.empty());
  EXPECT_EQ(hitTester.numKeys(), 2);
}

TEST_F(HitTesterGLTest, AfterClearTheNextHitTestWithTheFormerHitsEmitsAgain) {
  twoCubes();
  HitsRecorder recorder;
  recorder.connect(hitTester.sigHitsChanged(plainConfig(), true));
  hitTester.hitTest(overA(), DocumentHitTester::Move);
  hitTester.clear();
  // clear() told the listeners, with an empty answer and type 3; the candidates followed.
  EXPECT_EQ(recorder.sizes, (std::vector<int>{1, 0}));
  EXPECT_EQ(recorder.types, (std::vector<DocumentHitTester::EventType>{DocumentHitTester::Move, DocumentHitTester::Cleared}));
  EXPECT_TRUE(candidates.empty());
  hitTester.hitTest(overA(), DocumentHitTester::Move);
  EXPECT_EQ(recorder.sizes, (std::vector<int>{1, 0, 1}));
  EXPECT_EQ(itemsOf(candidates), std::vector<SelectionItem>{SelectionItem(a)});
}

TEST_F(HitTesterGLTest, ASubObjectHitOnADrawWithoutPartItemsAddsNoCandidate) {
  voDMD::Object* plain = doc.addGroup();
  documentDraw->update();
  documentDraw->setDraw(plain, new NoPartsDraw(documentDraw, plain, box(-3, -1, -1, -1, 1, 1)));
  b = doc.addCuboid(box(1, -1, -1, 3, 1, 1));
  documentDraw->draw();
  HitsRecorder recorder;
  recorder.connect(hitTester.sigHitsChanged(candidates.hitTestConfig(), true));
  hitTester.hitTest(overA(), DocumentHitTester::Move);
  // The hit is there, a part of the plain draw's object; it becomes no candidate.
  ASSERT_EQ(recorder.sizes, std::vector<int>{1});
  EXPECT_TRUE((*candidateRecords())[0].subObject);
  EXPECT_EQ((*candidateRecords())[0].owner, documentDraw->getDraw(plain));
  EXPECT_TRUE(candidates.empty());
  // A mesh names its whole object for a part hit.
  hitTester.hitTest(overB(), DocumentHitTester::Move);
  EXPECT_EQ(itemsOf(candidates), std::vector<SelectionItem>{SelectionItem(b)});
}

TEST_F(HitTesterGLTest, AKeyWhoseLastListenerHasGoneIsDroppedByTheNextPass) {
  twoCubes();
  voGR::HitTestConfig full = plainConfig();
  voGR::HitTestConfig empty = plainConfig();
  empty.radius = 1;
  auto recorder = std::make_unique<HitsRecorder>();
  recorder->connect(hitTester.sigHitsChanged(full, false));
  hitTester.hitTest(overA(), DocumentHitTester::Move);
  auto other = std::make_unique<HitsRecorder>();
  other->connect(hitTester.sigHitsChanged(empty, false));
  ASSERT_EQ(hitTester.numKeys(), 3);
  recorder.reset();
  other.reset();
  // Both keep their signal and answer until the next pass.
  EXPECT_EQ(hitTester.numKeys(), 3);
  EXPECT_EQ(hitTester.records(full, false)->size(), 1u);
  DebugLog log;
  hitTester.hitTest(overA(), DocumentHitTester::Move);
  EXPECT_EQ(hitTester.numKeys(), 1);
  EXPECT_EQ(hitTester.records(full, false), nullptr);
  EXPECT_EQ(hitTester.records(empty, false), nullptr);
  // Only the key that had an answer says so.
  EXPECT_EQ(log.count(kTester + "Document hit test records cleared - no clients."), 1);
}

TEST_F(HitTesterGLTest, SetOcclusionFiltersMovesTheConnectionToTheNewKey) {
  twoCubes();
  const voGR::HitTestConfig before = candidates.hitTestConfig();
  ru::Reference<voGR::HitFilter> second = new voDMG::SelectionSetHitFilter();
  candidates.setOcclusionFilters(nullptr, second.get());
  EXPECT_EQ(candidates.hitTestConfig().secondFilter.get(), second.get());
  EXPECT_EQ(hitTester.sigHitsChanged(before, true).numConnections(), 0);
  EXPECT_EQ(hitTester.sigHitsChanged(candidates.hitTestConfig(), true).numConnections(), 1);
  EXPECT_EQ(hitTester.numKeys(), 2);
  hitTester.hitTest(overA(), DocumentHitTester::Move);
  EXPECT_EQ(hitTester.numKeys(), 1);
  // Only selected objects can be candidates now.
  EXPECT_TRUE(candidates.empty());
  selection.add(setOf({a}));
  hitTester.hitTest(overNothing(), DocumentHitTester::Move);
  hitTester.hitTest(overA(), DocumentHitTester::Move);
  EXPECT_EQ(itemsOf(candidates), std::vector<SelectionItem>{SelectionItem(a)});
  // A direct change of the config does not move the connection; a later setOcclusionFilters then
  // looks for it on the changed key, so the first connection stays where it was.
  const voGR::HitTestConfig connected = candidates.hitTestConfig();
  candidates.hitTestConfig().radius = 7;
  EXPECT_EQ(hitTester.sigHitsChanged(candidates.hitTestConfig(), true).numConnections(), 0);
  candidates.setOcclusionFilters(nullptr, second.get());
  EXPECT_EQ(hitTester.sigHitsChanged(connected, true).numConnections(), 1);
  EXPECT_EQ(hitTester.sigHitsChanged(candidates.hitTestConfig(), true).numConnections(), 1);
}

TEST_F(HitTesterGLTest, FiltersRunInOrderThenPrecedenceFiltersAndNullIsIgnored) {
  twoCubes();
  // A wide pick disc between the cubes sees both.
  auto wide = candidatesWithRadius(40);
  const ruLinear::Point2 between = pixelOf(ruLinear::Point(0, -1, 0));
  std::vector<std::string> log;
  ru::Reference<voDMG::SelectionFilter> first = new KeepOnly(b, log, "first");
  ru::Reference<voDMG::SelectionFilter> second = new KeepOnly(b, log, "second");
  ru::Reference<voDMG::SelectionFilter> precedence = new KeepOnly(a, log, "precedence");
  wide->addPrecedenceFilter(precedence);
  wide->addFilter(first);
  wide->addFilter(nullptr);
  wide->addFilter(second);
  hitTester.hitTest(between, DocumentHitTester::Move);
  EXPECT_EQ(log, (std::vector<std::string>{"first:2", "second:1", "precedence:1"}));
  EXPECT_TRUE(wide->empty());
  log.clear();
  // Counted references are passed by value, removals as well as additions.
  void (voDMG::CandidateSet::*removePrecedence)(ru::Reference<voDMG::SelectionFilter>) =
      &voDMG::CandidateSet::removePrecedenceFilter;
  void (voDMG::CandidateSet::*remove)(ru::Reference<voDMG::SelectionFilter>) = &voDMG::CandidateSet::removeFilter;
  ((*wide).*removePrecedence)(precedence);
  ((*wide).*remove)(nullptr);
  ((*wide).*remove)(first);
  hitTester.hitTest(overNothing(), DocumentHitTester::Move);
  hitTester.hitTest(between, DocumentHitTester::Move);
  EXPECT_EQ(log, (std::vector<std::string>{"second:0", "second:2"}));
  EXPECT_EQ(itemsOf(*wide), std::vector<SelectionItem>{SelectionItem(b)});
}

TEST_F(HitTesterGLTest, TheDefaultRuleIsOfferedOnlyTheFirstItem) {
  twoCubes();
  voDMD::Object* c = doc.addCuboid(box(-1, 5, 3, 1, 6, 4));
  documentDraw->draw();
  auto wide = candidatesWithRadius(40);
  const ruLinear::Point2 between = pixelOf(ruLinear::Point(0, -1, 0));
  const SelectionItem first = std::min(SelectionItem(a), SelectionItem(b));
  ru::Reference<ExpandRule> rule = new ExpandRule();
  rule->from = first.getObject();
  rule->into = {SelectionItem(c)};
  wide->setDefaultRule(rule);
  std::vector<std::vector<SelectionItem>> changed;
  ruRTB::SignalClient listener;
  wide->sigMembershipChanged.addCallback(
      [&](const ru::set<SelectionItem>& items) { changed.emplace_back(items.begin(), items.end()); }, listener);
  hitTester.hitTest(between, DocumentHitTester::Move);
  EXPECT_EQ(rule->offered, std::vector<SelectionItem>{first});
  // The expansion replaces the whole answer.
  EXPECT_EQ(itemsOf(*wide), std::vector<SelectionItem>{SelectionItem(c)});
  ASSERT_EQ(changed.size(), 1u);
  EXPECT_EQ(changed[0], std::vector<SelectionItem>{SelectionItem(c)});
  // A rule that does not apply leaves the items as they are.
  rule->from = nullptr;
  hitTester.hitTest(overB(), DocumentHitTester::Move);
  EXPECT_EQ(itemsOf(*wide), std::vector<SelectionItem>{SelectionItem(b)});
  // The symmetric difference: c left, b came.
  ASSERT_EQ(changed.size(), 2u);
  std::vector<SelectionItem> expected{SelectionItem(b), SelectionItem(c)};
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(changed[1], expected);
}

TEST_F(HitTesterGLTest, AnAnswerEquivalentToTheCandidatesSignalsNothingButOneARuleChangedSwapsAgain) {
  twoCubes();
  std::vector<std::string> signals;
  std::vector<std::vector<SelectionItem>> changed;
  ruRTB::SignalClient listener;
  candidates.sigModified.addCallback([&](SelectionSet*) { signals.push_back("modified"); }, listener);
  candidates.sigModified2.addCallback([&](SelectionSet*) { signals.push_back("modified2"); }, listener);
  candidates.sigMembershipChanged.addCallback(
      [&](const ru::set<SelectionItem>& items) {
        signals.push_back("membership");
        changed.emplace_back(items.begin(), items.end());
      },
      listener);
  candidates.sigCandidatesChanged.addCallback([&](DocumentHitTester::EventType) { signals.push_back("candidates"); },
                                              listener);
  hitTester.hitTest(overA(), DocumentHitTester::Move);
  const std::vector<std::string> oneChange{"modified", "modified2", "membership", "candidates"};
  ASSERT_EQ(signals, oneChange);
  const ru::vector<voGR::HitRecord> records = *candidateRecords();
  const std::string obtained = kCandidates + "Number of hit records obtained = " + std::to_string(records.size()) + " ";
  DocumentHitTester::HitsSignal& key = hitTester.sigHitsChanged(candidates.hitTestConfig(), true);

  // The same answer told again: filtered, it equals the candidates, so nothing is signalled.
  signals.clear();
  {
    DebugLog log;
    key.emit(records, DocumentHitTester::Move);
    EXPECT_EQ(ours(log), (std::vector<std::string>{kCandidates + "CandidateSet::onHitsChanged", obtained}));
  }
  EXPECT_TRUE(signals.empty());
  // Event type 1 stops at once.
  {
    DebugLog log;
    key.emit(ru::vector<voGR::HitRecord>(), DocumentHitTester::Passive);
    EXPECT_EQ(ours(log), std::vector<std::string>{kCandidates + "CandidateSet::onHitsChanged"});
  }
  EXPECT_EQ(itemsOf(candidates), std::vector<SelectionItem>{SelectionItem(a)});

  // A rule that turns A into B: the candidates hold B after the rule, so the same answer, filtered
  // to A again, differs from them and swaps again, with an empty difference.
  ru::Reference<ExpandRule> rule = new ExpandRule();
  rule->from = a;
  rule->into = {SelectionItem(b)};
  candidates.setDefaultRule(rule);
  key.emit(ru::vector<voGR::HitRecord>(), DocumentHitTester::Move);
  ASSERT_TRUE(candidates.empty());
  signals.clear();
  changed.clear();
  key.emit(records, DocumentHitTester::Move);
  EXPECT_EQ(signals, oneChange);
  EXPECT_EQ(itemsOf(candidates), std::vector<SelectionItem>{SelectionItem(b)});
  ASSERT_EQ(changed.size(), 1u);
  EXPECT_EQ(changed[0], std::vector<SelectionItem>{SelectionItem(b)});
  signals.clear();
  changed.clear();
  {
    DebugLog log;
    key.emit(records, DocumentHitTester::Move);
    EXPECT_EQ(ours(log), (std::vector<std::string>{kCandidates + "CandidateSet::onHitsChanged", obtained,
                                                   kCandidates + "CandidateSet changed (have 1 items)."}));
  }
  EXPECT_EQ(signals, oneChange);
  ASSERT_EQ(changed.size(), 1u);
  EXPECT_TRUE(changed[0].empty());
  EXPECT_EQ(rule->offered, (std::vector<SelectionItem>{SelectionItem(a), SelectionItem(a)}));
}

TEST_F(HitTesterGLTest, APointOutsideTheViewportLeavesNoCandidate) {
  twoCubes();
  hitTester.hitTest(overA(), DocumentHitTester::Move);
  ASSERT_FALSE(candidates.empty());
  hitTester.hitTest(ruLinear::Point2(-50, 900), DocumentHitTester::Move);
  EXPECT_TRUE(candidates.empty());
  EXPECT_TRUE(candidateRecords()->empty());
}

TEST_F(HitTesterGLTest, AnObjectRemovedFromTheDocumentLeavesNoDanglingCandidate) {
  twoCubes();
  hitTester.hitTest(overA(), DocumentHitTester::Move);
  ASSERT_EQ(itemsOf(candidates), std::vector<SelectionItem>{SelectionItem(a)});
  // The host's part: forget the answers, then take the object out of the document.
  hitTester.clear();
  EXPECT_TRUE(candidates.empty());
  doc.document.remove(a);
  a = nullptr;
  documentDraw->draw();
  hitTester.hitTest(overA(), DocumentHitTester::Move);
  EXPECT_TRUE(candidates.empty());
  hitTester.hitTest(overB(), DocumentHitTester::Move);
  EXPECT_EQ(itemsOf(candidates), std::vector<SelectionItem>{SelectionItem(b)});
}

TEST_F(HitTesterGLTest, InitializeCandidateSetMessageLetsModulesInstallTheirFilters) {
  twoCubes();
  // A module's handler installs a filter that keeps A out of the candidates.
  voSupport::Broadcaster broadcaster;
  voDMG::CandidateSet* seen = nullptr;
  broadcaster.addHandler<voDMG::InitializeCandidateSetMsg>(voSupport::Priority(10, 0),
                                                          [&](voDMG::InitializeCandidateSetMsg& message) {
                                                            seen = &message.candidateSet();
                                                            message.candidateSet().addFilter(
                                                                new voDMG::ObjectFilter(setOf({a})));
                                                          });
  voDMG::InitializeCandidateSetMsg message(candidates);
  broadcaster.broadcast(message);
  EXPECT_EQ(seen, &candidates);
  hitTester.hitTest(overA(), DocumentHitTester::Move);
  EXPECT_TRUE(candidates.empty());
  hitTester.hitTest(overB(), DocumentHitTester::Move);
  EXPECT_EQ(itemsOf(candidates), std::vector<SelectionItem>{SelectionItem(b)});
}

TEST_F(HitTesterGLTest, ACopiedHitTesterHasNoKeysAndTheDestructorFreesEverySignal) {
  twoCubes();
  auto copy = std::make_unique<DocumentHitTester>(hitTester);
  EXPECT_EQ(copy->numKeys(), 0);
  HitsRecorder recorder;
  recorder.connect(copy->sigHitsChanged(plainConfig(), true));
  copy->sigHitsChanged(plainConfig(), false);
  copy->hitTest(overA(), DocumentHitTester::Move);
  EXPECT_EQ(recorder.sizes, std::vector<int>{1});
  copy.reset();
  // The recorder's connection ended with the signal; the original is untouched.
  EXPECT_EQ(recorder.client.numConnections(), 0);
  EXPECT_EQ(hitTester.numKeys(), 1);
}

}  // namespace
