#include "datamodelgui/draw/documentdraw.h"

#include "datamodelgui/animation/animation.h"
#include "datamodelgui/draw/modelingplanes.h"
#include "datamodelgui/events/dispatcher.h"
#include "datamodelgui/events/initialize.h"
#include "datamodelgui/print/meshdraw.h"
#include "datamodelgui/selection/hittester.h"
#include "datamodelgui/snap/snapmanager.h"
#include "drawfixture.h"
#include "platform/support/broadcaster.h"
#include "platform/support/debug.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <typeindex>
#include <vector>

namespace {

using drawtest::Batch;
using drawtest::setOf;
using voDMG::DocumentDraw;
using voDMG::ObjectDraw;
using voDMG::SelectionItem;
using voDMG::SelectionIterator;

// A drawing object that records what each draw handed it, and emits one item so that its
// presence in the database can be checked.
class RecordingDraw : public ObjectDraw {
public:
  RecordingDraw(DocumentDraw* documentDraw, voDMD::Object* object) : ObjectDraw(documentDraw, object) {}
  int draws = 0;
  long selectedLength = -1;
  long hoverLength = -1;
  voGR::DrawPolicy* policy = nullptr;
  bool markInsideDraw = false;

protected:
  void onDraw(voGR::DrawContext& context, SelectionIterator selectedBegin, SelectionIterator selectedEnd,
              SelectionIterator hoverBegin, SelectionIterator hoverEnd, ru::Reference<voGR::DrawPolicy> given) override {
    ++draws;
    selectedLength = std::distance(selectedBegin, selectedEnd);
    hoverLength = std::distance(hoverBegin, hoverEnd);
    policy = given.get();
    voGR::Draw draw(context, this, false);
    draw.emit();
    if (markInsideDraw) setModified();
  }
};

// The same recording under a class of its own, to show that policies match the exact type.
class DerivedRecordingDraw : public RecordingDraw {
public:
  using RecordingDraw::RecordingDraw;
};

ObjectDraw* makeRecording(DocumentDraw* documentDraw, voDMD::Object* object) {
  return new RecordingDraw(documentDraw, object);
}

class DocumentDrawGLTest : public ::testing::Test, public drawtest::DrawFixture {
protected:
  RecordingDraw* recording(voDMD::Object* object) { return dynamic_cast<RecordingDraw*>(documentDraw->getDraw(object)); }
  int postDraws = 0;
  void countPostDraws() { documentDraw->onPostDraw.addCallback([this] { ++postDraws; }, client); }
  // Groups draw through RecordingDraw in these tests; by default they have no factory.
  void recordGroups() { documentDraw->setDrawFactory(typeid(voDMD::GroupClass), &makeRecording); }
};

// Debug records of code 23 while alive.
struct HitTestCapture {
  HitTestCapture() {
    voSupport::Debug::getInstance().setSink([this](int code, const char* function, const char* text) {
      if (code == voSupport::DebugHitTest) lines.push_back(std::string(function) + "|" + text);
    });
    voSupport::Debug::getInstance().setEnabled(voSupport::DebugHitTest, true);
  }
  ~HitTestCapture() {
    voSupport::Debug::getInstance().setEnabled(voSupport::DebugHitTest, false);
    voSupport::Debug::getInstance().setSink({});
  }
  std::vector<std::string> lines;
};

TEST_F(DocumentDrawGLTest, BeforeAnyDrawingGetIdAnswersMinusOne) {
  doc.addCuboid(ruLinear::Range3d(ruLinear::Point(0, 0, 0), ruLinear::Point(1, 1, 1)));
  EXPECT_EQ(documentDraw->getID(), -1);
  documentDraw->update();
  EXPECT_EQ(documentDraw->getID(), -1);
  documentDraw->draw();
  EXPECT_NE(documentDraw->getID(), -1);
  EXPECT_NE(documentDraw->getID(), scene.id);
  // Items carry the drawing id they were emitted under.
  voDMD::Object* object = doc.document.root()->getChild(0);
  ASSERT_FALSE(itemsOf(object).empty());
  EXPECT_EQ(itemsOf(object)[0]->getSubsystemId(), documentDraw->getID());
}

TEST_F(DocumentDrawGLTest, TwoDrawsInARowWithoutAChangeTheSecondDoesNotEmitOnPostDraw) {
  doc.addCuboid(ruLinear::Range3d(ruLinear::Point(0, 0, 0), ruLinear::Point(1, 1, 1)));
  countPostDraws();
  documentDraw->draw();
  EXPECT_EQ(postDraws, 1);
  const int id = documentDraw->getID();
  documentDraw->draw();
  EXPECT_EQ(postDraws, 1);
  EXPECT_EQ(documentDraw->getID(), id);
}

TEST_F(DocumentDrawGLTest, ADocumentCreatedBeforeItsDrawIsPickedUpByTheFirstRebuild) {
  // The fixture's document draw exists already; a second one meets objects that were there first.
  voDMD::Object* a = doc.addCuboid(ruLinear::Range3d(ruLinear::Point(0, 0, 0), ruLinear::Point(1, 1, 1)));
  voDMD::Object* group = doc.addGroup();
  voDMD::Object* b = doc.addCuboid(ruLinear::Range3d(ruLinear::Point(0, 0, 0), ruLinear::Point(1, 1, 1)), ruLinear::AffineMatrix::Identity, group);
  DocumentDraw* second = new DocumentDraw(&doc.document);
  EXPECT_EQ(second->numDraws(), 0);
  second->update();
  EXPECT_EQ(second->numDraws(), 2);  // the group has no factory
  EXPECT_NE(second->getDraw(a), nullptr);
  EXPECT_NE(second->getDraw(b), nullptr);
  EXPECT_EQ(second->getDraw(group), nullptr);
  // Its drawing objects are complete: they emit into the database on the first draw.
  const std::size_t before = scene.database->getAllItems().size();
  second->draw();
  EXPECT_EQ(scene.database->getAllItems().size(), before + 2);
  ASSERT_NE(second->getDraw(a)->getDrawData(second->getDraw(a)), nullptr);
  EXPECT_EQ(second->getDraw(a)->getDrawData(second->getDraw(a))->getItems().size(), 1u);
  second->destroy();
  EXPECT_EQ(scene.database->getAllItems().size(), before);
}

TEST_F(DocumentDrawGLTest, SelectionSetUpdateAndSelectionBaseBringTheRegistryUpToDate) {
  voDMD::Object* a = doc.addCuboid(ruLinear::Range3d(ruLinear::Point(0, 0, 0), ruLinear::Point(1, 1, 1)));
  DocumentDraw* late = new DocumentDraw(&doc.document);
  voSupport::CallInfo inner = info;
  inner.set<DocumentDraw>(late);
  {
    voSupport::CallScope innerScope(inner);
    voDMG::SelectionSet set;
    ASSERT_EQ(set.getDraw(), late);
    EXPECT_EQ(late->getDraw(a), nullptr);
    set.update();
    EXPECT_NE(late->getDraw(a), nullptr);
  }
  DocumentDraw* other = new DocumentDraw(&doc.document);
  inner.set<DocumentDraw>(other);
  {
    voSupport::CallScope innerScope(inner);
    voDMG::SelectionSet set;
    voDMG::SelectionBase reader(&set);
    EXPECT_NE(other->getDraw(a), nullptr);
  }
  late->destroy();
  other->destroy();
}

TEST_F(DocumentDrawGLTest, AddingASubtreeMakesADrawForEveryObjectWithAFactory) {
  countPostDraws();
  documentDraw->draw();
  const int before = postDraws;
  ru::Reference<voDMD::Object> group = voDMD::Object::create(doc.document, voDMD::GroupClass::get());
  ru::Reference<voDMD::Object> child = voDMD::Object::create(doc.document, voDMD::MeshClass::get());
  ru::Reference<ruGeom::CompactMesh> mesh = new ruGeom::CompactMesh();
  ruGeom::constructCuboid(ruLinear::Range3d(ruLinear::Point(0, 0, 0), ruLinear::Point(1, 1, 1)), *mesh);
  child->addAttribute<voDMD::Mesh>(mesh);
  child->addAttribute<voDMD::Transform>();
  doc.document.insert(child, group.get());
  doc.document.insert(group);
  EXPECT_NE(documentDraw->getDraw(child.get()), nullptr);
  EXPECT_EQ(documentDraw->getDraw(group.get()), nullptr);
  documentDraw->draw();
  EXPECT_EQ(postDraws, before + 1);
  EXPECT_EQ(itemsOf(child.get()).size(), 1u);
}

TEST_F(DocumentDrawGLTest, ATransactionThatRemovesAnObjectRebuildDeletesItsDrawAndSetsModified) {
  voDMD::Object* a = doc.addCuboid(ruLinear::Range3d(ruLinear::Point(0, 0, 0), ruLinear::Point(1, 1, 1)));
  voDMD::Object* b = doc.addCuboid(ruLinear::Range3d(ruLinear::Point(2, 0, 0), ruLinear::Point(3, 1, 1)));
  countPostDraws();
  documentDraw->draw();
  ASSERT_EQ(postDraws, 1);
  ASSERT_EQ(scene.database->getAllItems().size(), 2u);

  // The removal's own signal takes the draw and its items.
  ru::Reference<voDMD::Object> keep(b);
  EXPECT_TRUE(doc.document.remove(b));
  EXPECT_EQ(documentDraw->getDraw(b), nullptr);
  EXPECT_EQ(scene.database->getAllItems().size(), 1u);
  EXPECT_EQ(documentDraw->numDraws(), 1);

  // A registry entry whose object is not in the document (here placed by hand) is what the
  // rebuild of a transaction deletes; it marks the document draw, so the next draw does work.
  documentDraw->setDraw(b, new RecordingDraw(documentDraw, b));
  documentDraw->draw();
  ASSERT_EQ(postDraws, 2);
  EXPECT_EQ(documentDraw->numDraws(), 2);
  doc.transformOf(a)->setObjToWorld(ruLinear::AffineMatrix().translate(ruLinear::Vector(0, 0, 1)));
  EXPECT_EQ(documentDraw->getDraw(b), nullptr);
  EXPECT_EQ(documentDraw->numDraws(), 1);
  documentDraw->draw();
  EXPECT_EQ(postDraws, 3);
  EXPECT_EQ(scene.database->getAllItems().size(), 1u);

  // Undo brings the removed object back, with a fresh draw.
  ASSERT_TRUE(doc.manager.undo());
  ASSERT_TRUE(doc.manager.undo());
  EXPECT_NE(documentDraw->getDraw(b), nullptr);
  documentDraw->draw();
  EXPECT_EQ(scene.database->getAllItems().size(), 2u);
}

TEST_F(DocumentDrawGLTest, AnObjectOfAClassWithNoFactoryIsNotDrawnAndSetsModifiedAtEachRebuild) {
  voDMD::Object* group = doc.addGroup();
  countPostDraws();
  documentDraw->draw();
  EXPECT_EQ(documentDraw->getDraw(group), nullptr);
  EXPECT_EQ(scene.database->getAllItems().size(), 0u);
  EXPECT_EQ(postDraws, 1);
  documentDraw->draw();
  EXPECT_EQ(postDraws, 1);  // no rebuild was asked for
  // A transaction asks for a rebuild, which offers the group again and marks the document draw.
  doc.document.root()->getChild(0)->setName("renamed");
  documentDraw->draw();
  EXPECT_EQ(postDraws, 2);
}

TEST_F(DocumentDrawGLTest, FactoriesAreKeyedByTheDocumentClassAndResetDrawRebuildsAnEntry) {
  recordGroups();
  voDMD::Object* group = doc.addGroup();
  RecordingDraw* first = recording(group);
  ASSERT_NE(first, nullptr);
  documentDraw->draw();
  EXPECT_EQ(first->draws, 1);
  documentDraw->resetDraw(group);
  RecordingDraw* second = recording(group);
  ASSERT_NE(second, nullptr);
  EXPECT_NE(second, first);
  EXPECT_TRUE(second->isModified());
  countPostDraws();
  documentDraw->draw();
  EXPECT_EQ(second->draws, 1);
  EXPECT_EQ(postDraws, 1);
  // The factory replaced, resetDraw makes the new kind of drawing object.
  voDMD::Object* mesh = doc.addCuboid(ruLinear::Range3d(ruLinear::Point(0, 0, 0), ruLinear::Point(1, 1, 1)));
  ObjectDraw* before = documentDraw->getDraw(mesh);
  documentDraw->setDrawFactory(typeid(voDMD::MeshClass), [](DocumentDraw* d, voDMD::Object* o) -> ObjectDraw* {
    return new RecordingDraw(d, o);
  });
  documentDraw->resetDraw(mesh);
  EXPECT_NE(documentDraw->getDraw(mesh), before);
  EXPECT_NE(recording(mesh), nullptr);
}

TEST_F(DocumentDrawGLTest, DrawReemitsOnlyMarkedObjects) {
  recordGroups();
  voDMD::Object* a = doc.addGroup();
  voDMD::Object* b = doc.addGroup();
  voDMD::Object* c = doc.addGroup();
  documentDraw->draw();
  EXPECT_EQ(recording(a)->draws, 1);
  EXPECT_EQ(recording(b)->draws, 1);
  EXPECT_EQ(recording(c)->draws, 1);
  recording(b)->setModified();
  documentDraw->draw();
  EXPECT_EQ(recording(a)->draws, 1);
  EXPECT_EQ(recording(b)->draws, 2);
  EXPECT_EQ(recording(c)->draws, 1);
  // A transaction on one object marks that object alone.
  c->setName("c");
  documentDraw->draw();
  EXPECT_EQ(recording(a)->draws, 1);
  EXPECT_EQ(recording(b)->draws, 2);
  EXPECT_EQ(recording(c)->draws, 2);
}

TEST_F(DocumentDrawGLTest, AMarkSetInsideOnDrawIsLost) {
  recordGroups();
  voDMD::Object* a = doc.addGroup();
  recording(a)->markInsideDraw = true;
  documentDraw->draw();
  EXPECT_FALSE(recording(a)->isModified());
  documentDraw->draw();
  // The document draw was marked, but the object's own mark was cleared after onDraw.
  EXPECT_EQ(recording(a)->draws, 1);
}

TEST_F(DocumentDrawGLTest, AnObjectWithTwoSelectedSubItemsGetsASelectedRangeOfLengthTwo) {
  recordGroups();
  voDMD::Object* a = doc.addGroup();
  voDMD::Object* b = doc.addGroup();
  documentDraw->draw();
  ru::Reference<ru::ReferenceCount> p1, p2, p3;
  selection.add(setOf({doctest::part(a, p1), doctest::part(a, p2)}));
  candidates.add(setOf({doctest::part(b, p3)}));
  documentDraw->draw();
  EXPECT_EQ(recording(a)->draws, 2);
  EXPECT_EQ(recording(a)->selectedLength, 2);
  EXPECT_EQ(recording(a)->hoverLength, 0);
  EXPECT_EQ(recording(b)->draws, 2);
  EXPECT_EQ(recording(b)->selectedLength, 0);
  EXPECT_EQ(recording(b)->hoverLength, 1);
}

TEST_F(DocumentDrawGLTest, SetDrawPolicyTwiceLeavesAStackOfOne) {
  recordGroups();
  voDMD::Object* a = doc.addGroup();
  documentDraw->draw();
  const std::type_index type(typeid(RecordingDraw));
  EXPECT_EQ(documentDraw->getDrawPolicy(type), nullptr);
  ru::Reference<voGR::DrawPolicy> first = new voGR::DrawPolicy();
  ru::Reference<voGR::DrawPolicy> second = new voGR::DrawPolicy();
  documentDraw->setDrawPolicy(type, first);
  documentDraw->setDrawPolicy(type, second);
  EXPECT_EQ(documentDraw->getDrawPolicy(type), second);
  documentDraw->draw();
  EXPECT_EQ(recording(a)->policy, second.get());
  // One element: a pop leaves the (empty) stack, whose top answers null here.
  documentDraw->popDrawPolicy(type);
  EXPECT_EQ(documentDraw->getDrawPolicy(type), nullptr);
}

TEST_F(DocumentDrawGLTest, PushDrawPolicyThenPopDrawPolicyRestoresTheEarlierTopAndMarksMembersBothTimes) {
  recordGroups();
  voDMD::Object* a = doc.addGroup();
  const std::type_index type(typeid(RecordingDraw));
  ru::Reference<voGR::DrawPolicy> base = new voGR::DrawPolicy();
  ru::Reference<voGR::DrawPolicy> pushed = new voGR::DrawPolicy();
  documentDraw->setDrawPolicy(type, base);
  documentDraw->draw();
  EXPECT_EQ(recording(a)->policy, base.get());
  countPostDraws();
  documentDraw->pushDrawPolicy(type, pushed);
  EXPECT_TRUE(recording(a)->isModified());
  documentDraw->draw();
  EXPECT_EQ(recording(a)->draws, 2);
  EXPECT_EQ(recording(a)->policy, pushed.get());
  documentDraw->popDrawPolicy(type);
  EXPECT_TRUE(recording(a)->isModified());
  EXPECT_EQ(documentDraw->getDrawPolicy(type), base);
  documentDraw->draw();
  EXPECT_EQ(recording(a)->draws, 3);
  EXPECT_EQ(recording(a)->policy, base.get());
  EXPECT_EQ(postDraws, 2);
}

TEST_F(DocumentDrawGLTest, PoliciesMatchTheExactDrawingClassNotItsBases) {
  documentDraw->setDrawFactory(typeid(voDMD::GroupClass), [](DocumentDraw* d, voDMD::Object* o) -> ObjectDraw* {
    return new DerivedRecordingDraw(d, o);
  });
  voDMD::Object* a = doc.addGroup();
  documentDraw->draw();
  documentDraw->setDrawPolicy(typeid(RecordingDraw), new voGR::DrawPolicy());
  EXPECT_FALSE(recording(a)->isModified());
  documentDraw->draw();
  EXPECT_EQ(recording(a)->draws, 1);
  EXPECT_EQ(recording(a)->policy, nullptr);
  documentDraw->setDrawPolicyModified(typeid(DerivedRecordingDraw));
  EXPECT_TRUE(recording(a)->isModified());
}

TEST_F(DocumentDrawGLTest, SetDrawPolicyModifiedForAClassWithNoDrawingObjectsChangesNothing) {
  recordGroups();
  voDMD::Object* a = doc.addGroup();
  countPostDraws();
  documentDraw->draw();
  ASSERT_EQ(postDraws, 1);
  documentDraw->setDrawPolicyModified(typeid(voDMG::MeshDraw));
  EXPECT_FALSE(recording(a)->isModified());
  documentDraw->draw();
  EXPECT_EQ(postDraws, 1);
  EXPECT_EQ(recording(a)->draws, 1);
}

TEST_F(DocumentDrawGLTest, OnSelectionModifiedWithAnEmptySetPrintsACountOfZeroAndMarksNothing) {
  recordGroups();
  voDMD::Object* a = doc.addGroup();
  countPostDraws();
  documentDraw->draw();
  HitTestCapture capture;
  documentDraw->onSelectionModified(ru::set<SelectionItem>());
  ASSERT_EQ(capture.lines.size(), 1u);
  EXPECT_EQ(capture.lines[0], "voDMG::DocumentDraw::onSelectionModified|DocumentDraw marking 0 objects modified by selection.");
  EXPECT_FALSE(recording(a)->isModified());
  documentDraw->draw();
  EXPECT_EQ(postDraws, 1);
}

TEST_F(DocumentDrawGLTest, OnSelectionModifiedCountsItemsAndPassesOverObjectsWithNoDraw) {
  recordGroups();
  voDMD::Object* a = doc.addGroup();
  documentDraw->draw();
  documentDraw->setDrawFactory(typeid(voDMD::GroupClass), nullptr);
  ru::Reference<voDMD::Object> loose = voDMD::Object::create(doc.document, voDMD::GroupClass::get());
  ru::Reference<ru::ReferenceCount> payload;
  HitTestCapture capture;
  selection.add(setOf({a, doctest::part(a, payload), loose.get()}));
  ASSERT_EQ(capture.lines.size(), 1u);
  EXPECT_EQ(capture.lines[0], "voDMG::DocumentDraw::onSelectionModified|DocumentDraw marking 3 objects modified by selection.");
  EXPECT_TRUE(recording(a)->isModified());
}

TEST_F(DocumentDrawGLTest, DestroyTakesEveryItemOutAndFreesTheId) {
  doc.addCuboid(ruLinear::Range3d(ruLinear::Point(0, 0, 0), ruLinear::Point(1, 1, 1)));
  doc.addCuboid(ruLinear::Range3d(ruLinear::Point(2, 0, 0), ruLinear::Point(3, 1, 1)));
  documentDraw->draw();
  const int id = documentDraw->getID();
  EXPECT_EQ(scene.database->getAllItems().size(), 2u);
  documentDraw->destroy();
  documentDraw = nullptr;
  EXPECT_EQ(scene.database->getAllItems().size(), 0u);
  EXPECT_EQ(itemsInWorlds(), 0);
  // The freed id is handed out again.
  const int next = scene.system->allocateID();
  EXPECT_EQ(next, id);
  scene.system->freeID(next);
}

TEST_F(DocumentDrawGLTest, RegisterObjectDrawMsgReachesHandlersWithTheDocumentDraw) {
  voSupport::Broadcaster broadcaster;
  DocumentDraw* seen = nullptr;
  broadcaster.addHandler<voDMG::RegisterObjectDrawMsg>(voSupport::Priority(10, 1), [&](voDMG::RegisterObjectDrawMsg& message) {
    seen = &message.documentDraw();
    message.documentDraw().setDrawFactory(typeid(voDMD::GroupClass), &makeRecording);
  });
  voDMG::RegisterObjectDrawMsg message(*documentDraw);
  broadcaster.broadcast(message);
  EXPECT_EQ(seen, documentDraw);
  voDMD::Object* group = doc.addGroup();
  EXPECT_NE(recording(group), nullptr);
}

TEST(DocumentDrawInitialize, SubscribesTheDocumentGroupOnceAndAgainAfterAReset) {
  voSupport::Broadcaster broadcaster;
  voSupport::CallInfo info;
  info.set<voSupport::Broadcaster>(&broadcaster);
  voSupport::CallScope scope(info);
  const std::size_t before = broadcaster.numHandlers(typeid(voSupport::InitializeReflectionMsg));
  voDMG::initialize();
  voDMG::initialize();
  // The document group at (10, 0) and the print group at (10, 1).
  EXPECT_EQ(broadcaster.numHandlers(typeid(voSupport::InitializeReflectionMsg)), before + 2);
  // After a reset the module subscribes again.
  broadcaster.reset();
  voDMG::initialize();
  EXPECT_EQ(broadcaster.numHandlers(typeid(voSupport::InitializeReflectionMsg)), 2u);
  // Leave the module ready to subscribe again for the tests that follow.
  broadcaster.reset();
}

TEST(DocumentDrawInitialize, ThePrintDrawHandlersComeOnceAtPriority10And1) {
  voSupport::Broadcaster broadcaster;
  {
    voSupport::CallInfo info;
    info.set<voSupport::Broadcaster>(&broadcaster);
    voSupport::CallScope scope(info);
    voDMG::initialize();
    voDMG::initialize();
  }
  EXPECT_EQ(broadcaster.numHandlers(typeid(voDMG::RegisterObjectDrawMsg)), 1u);
  EXPECT_EQ(broadcaster.numHandlers(typeid(voDMD::NewDocumentMsg)), 1u);
  // The print handler runs after a handler at (10, 0) and before one at (10, 2): only the
  // second sees the print meshes' policy it places.
  std::vector<bool> policySeen;
  auto probe = [&](voDMG::RegisterObjectDrawMsg& message) {
    policySeen.push_back(static_cast<bool>(message.documentDraw().getDrawPolicy(typeid(voDMG::KLTMeshDraw))));
  };
  broadcaster.addHandler<voDMG::RegisterObjectDrawMsg>(voSupport::Priority(10, 2), probe);
  broadcaster.addHandler<voDMG::RegisterObjectDrawMsg>(voSupport::Priority(10, 0), probe);
  doctest::DocFixture doc;
  DocumentDraw* documentDraw = new DocumentDraw(&doc.document);
  voDMG::RegisterObjectDrawMsg message(*documentDraw);
  broadcaster.broadcast(message);
  ASSERT_EQ(policySeen.size(), 2u);
  EXPECT_FALSE(policySeen[0]);
  EXPECT_TRUE(policySeen[1]);
  documentDraw->destroy();
  broadcaster.reset();
}

}  // namespace

namespace {

TEST_F(DocumentDrawGLTest, RemovingASubtreeDeletesEveryDrawBeneathWithoutMarkingTheDocumentDraw) {
  voDMD::Object* parent = doc.addCuboid(ruLinear::Range3d(ruLinear::Point(0, 0, 0), ruLinear::Point(1, 1, 1)));
  voDMD::Object* child = doc.addCuboid(ruLinear::Range3d(ruLinear::Point(2, 0, 0), ruLinear::Point(3, 1, 1)),
                                       ruLinear::AffineMatrix::Identity, parent);
  voDMD::Object* other = doc.addCuboid(ruLinear::Range3d(ruLinear::Point(4, 0, 0), ruLinear::Point(5, 1, 1)));
  countPostDraws();
  documentDraw->draw();
  ASSERT_EQ(postDraws, 1);
  ASSERT_EQ(documentDraw->numDraws(), 3);
  ASSERT_EQ(scene.database->getAllItems().size(), 3u);
  ru::Reference<voDMD::Object> keepParent(parent), keepChild(child);
  ASSERT_TRUE(doc.document.remove(parent));
  EXPECT_EQ(documentDraw->getDraw(parent), nullptr);
  EXPECT_EQ(documentDraw->getDraw(child), nullptr);
  EXPECT_NE(documentDraw->getDraw(other), nullptr);
  // The drawing objects took their items with them, so there is nothing to re-emit.
  EXPECT_EQ(scene.database->getAllItems().size(), 1u);
  documentDraw->draw();
  EXPECT_EQ(postDraws, 1);
}

}  // namespace

namespace {

// Start-up as a host runs it: the three initialize functions on one broadcaster, then the
// per-document objects. The library subscribes its four reflection groups and its print handlers,
// and neither hears nor sends the set-up messages that are the host's to send.
TEST(LibraryStartUp, InitializeSubscribesTheExposuresAndPrintHandlersAndNothingSendsTheHostsSetUpMessages) {
  voSupport::Broadcaster broadcaster;
  voSupport::CallInfo info;
  info.set<voSupport::Broadcaster>(&broadcaster);
  voSupport::CallScope scope(info);
  int registerSeen = 0;
  int candidatesSeen = 0;
  int gesturesSeen = 0;
  broadcaster.addHandler<voDMG::RegisterObjectDrawMsg>(voSupport::Priority(100, 0),
                                                       [&](voDMG::RegisterObjectDrawMsg&) { ++registerSeen; });
  broadcaster.addHandler<voDMG::InitializeCandidateSetMsg>(
      voSupport::Priority(100, 0), [&](voDMG::InitializeCandidateSetMsg&) { ++candidatesSeen; });
  broadcaster.addHandler<voEV::InstallGesturesMsg>(voSupport::Priority(100, 0),
                                                   [&](voEV::InstallGesturesMsg&) { ++gesturesSeen; });

  voEV::initialize();
  voANM::initialize();
  voDMG::initialize();
  // Events (1, 0), animation (4, 0), document (10, 0), print (10, 1).
  EXPECT_EQ(broadcaster.numHandlers(typeid(voSupport::InitializeReflectionMsg)), 4u);
  EXPECT_EQ(broadcaster.numHandlers(typeid(voDMG::RegisterObjectDrawMsg)), 2u);
  EXPECT_EQ(broadcaster.numHandlers(typeid(voDMD::NewDocumentMsg)), 1u);
  EXPECT_EQ(broadcaster.numHandlers(typeid(voDMG::InitializeCandidateSetMsg)), 1u);
  EXPECT_EQ(broadcaster.numHandlers(typeid(voEV::InstallGesturesMsg)), 1u);

  {
    doctest::DocFixture doc;
    auto dispatcher = std::make_unique<voEV::Dispatcher>();
    auto animation = std::make_unique<voANM::Manager>();
    auto* documentDraw = new DocumentDraw(&doc.document);
    info.set<DocumentDraw>(documentDraw);
    auto selection = std::make_unique<voDMG::SelectionSet>();
    auto hitTester = std::make_unique<voDMG::DocumentHitTester>();
    info.set<voDMG::DocumentHitTester>(hitTester.get());
    auto candidates = std::make_unique<voDMG::CandidateSet>();
    auto snapManager = std::make_unique<voDMG::SnapManager>();
    voDMG::ModelingPlanes* planes = voDMG::ModelingPlanes::create();
    documentDraw->draw();
    EXPECT_EQ(registerSeen, 0);
    EXPECT_EQ(candidatesSeen, 0);
    EXPECT_EQ(gesturesSeen, 0);
    // The host's message reaches the print handler (the policy) and the host's own.
    voDMG::RegisterObjectDrawMsg message(*documentDraw);
    broadcaster.broadcast(message);
    EXPECT_EQ(registerSeen, 1);
    EXPECT_TRUE(documentDraw->getDrawPolicy(typeid(voDMG::KLTMeshDraw)));
    delete planes;
    info.set<voDMG::DocumentHitTester>(nullptr);
    info.set<DocumentDraw>(nullptr);
    documentDraw->destroy();
  }
  EXPECT_EQ(candidatesSeen, 0);
  EXPECT_EQ(gesturesSeen, 0);
  broadcaster.reset();
}

}  // namespace
