#include "platform/datamodel/document.h"

#include "platform/datamodel/actions.h"
#include "platform/datamodel/attributes.h"
#include "platform/datamodel/print.h"
#include "platform/support/callinfo.h"

#include "meshes.h"

#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

using namespace voDMD;

namespace {

// A document on its own manager, with a log of the document's three signals.
struct Fixture {
  voDMA::TxnManager txn;
  Document document{*txn.get()};
  std::vector<std::string> log;
  ruRTB::SignalClient client;

  Fixture() {
    document.sigObjectAdded.addCallback([this](Object* o) { log.push_back("added " + name(o)); }, client);
    document.sigObjectRemoved.addCallback([this](Object* o) { log.push_back("removed " + name(o)); }, client);
    document.sigTxnModified.addCallback([this](const Document*) { log.push_back("txn"); }, client);
  }
  static std::string name(const Object* o) { return o->name().c_str(); }
  voTXN::Manager& manager() { return *txn.get(); }

  ru::Reference<Object> make(const char* name, Class* c = GroupClass::get()) {
    ru::Reference<Object> o = Object::create(document, c);
    o->setName(name);
    return o;
  }
};

ru::Reference<ruGeom::CompactMesh> unitCube() { return testmesh::toMesh(testmesh::box()); }

} // namespace

TEST(Document, InsertingASubtreeFiresObjectAddedOnceBeforeTheTransactionSignal) {
  Fixture f;
  ru::Reference<Object> parent = f.make("parent");
  ru::Reference<Object> a = f.make("a");
  ru::Reference<Object> b = f.make("b");
  f.manager().clearHistory();
  f.log.clear();
  f.manager().begin("Build");
  EXPECT_TRUE(f.document.insert(a, parent.get()));  // parent not in the tree yet: no signal
  EXPECT_TRUE(f.document.insert(b, parent.get()));
  EXPECT_TRUE(f.log.empty());
  EXPECT_TRUE(f.document.insert(parent));
  f.manager().commit();
  EXPECT_EQ(f.log, (std::vector<std::string>{"added parent", "txn"}));
  EXPECT_TRUE(a->isInDocument());
  EXPECT_EQ(parent->numChildren(), 2u);
}

TEST(Document, RemovingASubtreeFiresObjectRemovedWhileItCanStillBeWalked) {
  Fixture f;
  ru::Reference<Object> parent = f.make("parent");
  f.document.insert(parent);
  f.document.insert(f.make("a"), parent.get());
  f.document.insert(f.make("b"), parent.get());
  f.log.clear();
  std::vector<std::string> walked;
  ruRTB::SignalClient client;
  f.document.sigObjectRemoved.addCallback(
      [&](Object* o) {
        for (ObjectIterator it(o); it.valid(); it.next()) walked.push_back(Fixture::name(it.getObject()));
        EXPECT_TRUE(o->isInDocument());
      },
      client);
  EXPECT_TRUE(f.document.remove(parent.get()));
  EXPECT_EQ(walked, (std::vector<std::string>{"parent", "a", "b"}));
  EXPECT_EQ(f.log, (std::vector<std::string>{"removed parent", "txn"}));
  EXPECT_FALSE(parent->isInDocument());
  EXPECT_EQ(parent->numChildren(), 2u);
}

TEST(Document, UndoAndRedoOfAnInsertionFireRemovedAndAddedOnce) {
  Fixture f;
  ru::Reference<Object> parent = f.make("parent");
  f.manager().begin("Insert tree");
  f.document.insert(parent);
  f.document.insert(f.make("child"), parent.get());
  f.manager().commit();
  f.log.clear();
  // The removal on undo comes while the subtree is whole and still in the tree.
  std::vector<std::string> walked;
  ruRTB::SignalClient client;
  f.document.sigObjectRemoved.addCallback(
      [&](Object* o) {
        EXPECT_TRUE(o->isInDocument());
        for (ObjectIterator it(o); it.valid(); it.next()) walked.push_back(Fixture::name(it.getObject()));
      },
      client);
  EXPECT_TRUE(f.manager().undo());
  EXPECT_EQ(f.log, (std::vector<std::string>{"removed parent", "txn"}));
  EXPECT_EQ(walked, (std::vector<std::string>{"parent", "child"}));
  EXPECT_FALSE(parent->isInDocument());
  f.log.clear();
  EXPECT_TRUE(f.manager().redo());
  EXPECT_EQ(f.log, (std::vector<std::string>{"added parent", "txn"}));
  EXPECT_TRUE(parent->isInDocument());
  EXPECT_EQ(parent->numChildren(), 1u);
}

TEST(Document, UndoAndRedoOfARemovalBringTheSubtreeBackAndTakeItAway) {
  Fixture f;
  ru::Reference<Object> parent = f.make("parent");
  f.document.insert(parent);
  f.document.insert(f.make("child"), parent.get());
  Object* raw = parent.get();
  f.document.remove(raw);
  parent.reset();  // only the history holds it now
  f.log.clear();
  EXPECT_TRUE(f.manager().undo());
  EXPECT_EQ(f.log, (std::vector<std::string>{"added parent", "txn"}));
  EXPECT_TRUE(raw->isInDocument());
  EXPECT_EQ(raw->getChild(0)->name(), "child");
  f.log.clear();
  EXPECT_TRUE(f.manager().redo());
  EXPECT_EQ(f.log, (std::vector<std::string>{"removed parent", "txn"}));
}

TEST(Document, RedoOfARemovalInSeveralStepsAnnouncesTheWholeSubtreeOnce) {
  Fixture f;
  ru::Reference<Object> parent = f.make("parent");
  ru::Reference<Object> child = f.make("child");
  f.document.insert(parent);
  f.document.insert(child, parent.get());
  f.manager().begin("Remove both");
  f.document.remove(child.get());
  f.document.remove(parent.get());
  f.manager().commit();
  f.manager().undo();
  EXPECT_TRUE(child->isInDocument());
  f.log.clear();
  std::vector<std::string> walked;
  ruRTB::SignalClient client;
  f.document.sigObjectRemoved.addCallback(
      [&](Object* o) {
        for (ObjectIterator it(o); it.valid(); it.next()) walked.push_back(Fixture::name(it.getObject()));
      },
      client);
  f.manager().redo();
  EXPECT_EQ(f.log, (std::vector<std::string>{"removed parent", "txn"}));
  EXPECT_EQ(walked, (std::vector<std::string>{"parent", "child"}));
}

TEST(Document, RemovedObjectsDieWhenTheHistoryLetsThemGo) {
  Fixture f;
  ru::Reference<Object> o = f.make("gone");
  f.document.insert(o);
  f.document.remove(o.get());
  EXPECT_GT(o->refCount(), 1);
  f.manager().clearHistory();
  EXPECT_EQ(o->refCount(), 1);
}

TEST(Document, InsertRefusesWhatWouldBreakTheTree) {
  Fixture f;
  voDMA::TxnManager otherTxn;
  Document other(*otherTxn.get());
  ru::Reference<Object> parent = f.make("parent");
  ru::Reference<Object> child = f.make("child");
  EXPECT_FALSE(f.document.insert(nullptr));
  EXPECT_FALSE(f.document.insert(Object::create(other, nullptr)));
  EXPECT_TRUE(f.document.insert(parent));
  EXPECT_FALSE(f.document.insert(parent));  // already has a parent
  EXPECT_TRUE(f.document.insert(child, parent.get()));
  EXPECT_FALSE(f.document.insert(f.make("x"), Object::create(other, nullptr).get()));
  ru::Reference<Object> loose = f.make("loose");
  EXPECT_FALSE(f.document.remove(loose.get()));
  EXPECT_FALSE(f.document.remove(f.document.root()));
  EXPECT_FALSE(f.document.remove(nullptr));
}

TEST(Document, TransactionSignalFiresAfterEveryCommitUndoAndRedo) {
  Fixture f;
  ru::Reference<Object> o = createMeshObject(f.document, unitCube());
  f.document.insert(o);
  f.log.clear();
  o->findAttribute<Transform>()->setObjToWorld(ruLinear::AffineMatrix::translation(ruLinear::Vector(1, 0, 0)));
  f.manager().undo();
  f.manager().redo();
  EXPECT_EQ(f.log, (std::vector<std::string>{"txn", "txn", "txn"}));
}

TEST(Document, ObjectTransactionSignalFiresOncePerTransactionThatTouchedIt) {
  Fixture f;
  ru::Reference<Object> o = createMeshObject(f.document, unitCube());
  ru::Reference<Object> untouched = createMeshObject(f.document, unitCube());
  f.document.insert(o);
  f.document.insert(untouched);
  int fired = 0, other = 0;
  ruRTB::SignalClient client;
  o->sigTxnModified.addCallback([&](const Object* obj) {
        EXPECT_EQ(obj, o.get());
        ++fired;
      }, client);
  untouched->sigTxnModified.addCallback([&](const Object*) { ++other; }, client);
  f.manager().begin("Edit");
  o->findAttribute<Transform>()->setObjToWorld(ruLinear::AffineMatrix::scaling(2.0));
  o->findAttribute<Mesh>()->setVisible(false);
  o->setName("renamed");
  f.manager().commit();
  EXPECT_EQ(fired, 1);
  f.manager().undo();
  EXPECT_EQ(fired, 2);
  f.manager().redo();
  EXPECT_EQ(fired, 3);
  EXPECT_EQ(other, 0);
}

TEST(Document, ModificationSignalCarriesTheChangedAttributeAlsoOnUndo) {
  Fixture f;
  ru::Reference<Object> o = createMeshObject(f.document, unitCube());
  f.document.insert(o);
  Transform* transform = o->findAttribute<Transform>();
  std::vector<Attribute*> seen;
  ruRTB::SignalClient client;
  o->sigModified.addCallback([&](const Modification& m) { seen.push_back(m.getAttribute()); }, client);
  const auto moved = ruLinear::AffineMatrix::translation(ruLinear::Vector(0, 5, 0));
  transform->setObjToWorld(moved);
  transform->setObjToWorld(moved);  // no change, no signal
  EXPECT_EQ(seen, (std::vector<Attribute*>{transform}));
  f.manager().undo();
  EXPECT_EQ(seen.size(), 2u);
  EXPECT_EQ(seen.back(), transform);
  EXPECT_TRUE(transform->getObjToWorld() == ruLinear::AffineMatrix::Identity);
  f.manager().redo();
  EXPECT_TRUE(transform->getObjToWorld() == moved);
}

TEST(Document, EditsOutsideATransactionRunInOneOfTheirOwn) {
  Fixture f;
  ru::Reference<Object> o = createMeshObject(f.document, unitCube());
  f.document.insert(o);
  const std::size_t depth = f.manager().undoDepth();
  o->findAttribute<Mesh>()->setVisible(false);
  EXPECT_EQ(f.manager().undoDepth(), depth + 1);
  EXPECT_EQ(f.manager().undoName(), "Hide");
  f.manager().undo();
  EXPECT_TRUE(o->findAttribute<Mesh>()->visible());
}

TEST(Document, AbortRestoresTheTreeAndSaysSo) {
  Fixture f;
  ru::Reference<Object> o = f.make("o");
  f.log.clear();
  f.manager().begin("Try");
  f.document.insert(o);
  f.manager().abort();
  EXPECT_FALSE(o->isInDocument());
  EXPECT_EQ(f.log, (std::vector<std::string>{"added o", "removed o", "txn"}));
}

TEST(Document, DefaultObjectIteratorWalksTheCurrentDocumentInOrder) {
  Fixture f;
  ru::Reference<Object> a = f.make("a");
  f.document.insert(a);
  f.document.insert(f.make("a1"), a.get());
  f.document.insert(f.make("a2"), a.get());
  f.document.insert(f.make("b"));
  std::vector<std::string> names;
  {
    voSupport::CallInfo info;
    info.set(&f.document);
    voSupport::CallScope scope(info);
    EXPECT_EQ(Document::current(), &f.document);
    for (ObjectIterator it; it.valid(); it.next()) names.push_back(Fixture::name(it.getObject()));
  }
  EXPECT_EQ(names, (std::vector<std::string>{"a", "a1", "a2", "b"}));
  EXPECT_FALSE(ObjectIterator().valid());  // no current document
}

TEST(Document, AttributesAreFoundFirstMatchByDynamicCast) {
  Fixture f;
  ru::Reference<Object> o = createKLTMeshObject(f.document, unitCube());
  EXPECT_EQ(o->getClass(), KLTMeshClass::get());
  BoundingBox* box = o->findAttribute<BoundingBox>();
  ASSERT_NE(box, nullptr);
  EXPECT_NE(dynamic_cast<KLTMeshBBox*>(box), nullptr);
  EXPECT_EQ(o->findAttribute<Mesh>(), nullptr);
  EXPECT_EQ(o->getAttribute(0), o->findAttribute<KLTMesh>());
  EXPECT_EQ(o->getAttribute(1), o->findAttribute<Transform>());
  EXPECT_EQ(o->getAttribute(3), nullptr);
  EXPECT_EQ(o->findAttribute<KLTMesh>()->owner(), o.get());
}

TEST(Document, WorldBoxFollowsTheTransform) {
  Fixture f;
  ru::Reference<Object> o = createMeshObject(f.document, unitCube());
  f.document.insert(o);
  BoundingBox* box = o->findAttribute<BoundingBox>();
  EXPECT_EQ(box->getWorldSpace().getMax(), ruLinear::Point(1, 1, 1));
  ruLinear::AffineMatrix m;
  m.translate(ruLinear::Vector(10, 0, 0));
  m.scale(2.0);
  o->findAttribute<Transform>()->setObjToWorld(m);
  EXPECT_EQ(box->getWorldSpace().getMin(), ruLinear::Point(10, 0, 0));
  EXPECT_EQ(box->getWorldSpace().getMax(), ruLinear::Point(12, 2, 2));
  f.manager().undo();
  EXPECT_EQ(box->getWorldSpace().getMax(), ruLinear::Point(1, 1, 1));
  // An object without geometry has the unbounded box.
  ru::Reference<Object> empty = createMeshObject(f.document, nullptr);
  EXPECT_FALSE(empty->findAttribute<BoundingBox>()->getWorldSpace().isValid());
}

TEST(Document, OrientedWorldBoxTurnsWithTheObject) {
  Fixture f;
  ru::Reference<Object> o = createMeshObject(f.document, unitCube());
  f.document.insert(o);
  o->findAttribute<Transform>()->setObjToWorld(ruLinear::AffineMatrix::rotation(ruLinear::pi / 4, ruLinear::Vector::z));
  Tolerances tolerances;
  const ruGeom::OrientedBox box = o->findAttribute<BoundingBox>()->getOrientedWorldSpace(tolerances);
  ASSERT_TRUE(box.valid());
  EXPECT_NEAR(box.getAxis(0).length(), 1.0, 1e-12);
  EXPECT_NEAR(box.getAxis(0).getX(), std::sqrt(0.5), 1e-12);
  tolerances.box = 0.5;
  const ruGeom::OrientedBox grown = o->findAttribute<BoundingBox>()->getOrientedWorldSpace(tolerances);
  EXPECT_NEAR(grown.getAxis(0).length(), 2.0, 1e-12);
}

TEST(Document, SelectionSubObjectsRoundTripTheLiveSelection) {
  Fixture f;
  ru::Reference<Object> o = createKLTMeshObject(f.document, unitCube());
  f.document.insert(o);
  KLTMesh* mesh = o->findAttribute<KLTMesh>();
  ru::Reference<KLTSelection> selection(new KLTSelection());
  const SubObject sub = mesh->selectionAsSubObject(selection);
  EXPECT_EQ(sub.owner(), o.get());
  EXPECT_EQ(mesh->asSelection(sub).get(), selection.get());
  // Edited in place through the sub-object, seen through the original.
  mesh->asSelection(sub)->faces().push_back(3);
  EXPECT_EQ(selection->faces().size(), 1u);
  // A sub-object of another object is no selection of this mesh.
  ru::Reference<Object> other = createKLTMeshObject(f.document, unitCube());
  EXPECT_FALSE(mesh->asSelection(other->findAttribute<KLTMesh>()->selectionAsSubObject(selection)));
  EXPECT_FALSE(mesh->asSelection(SubObject()));
}

TEST(Document, SelectionBoxIsTheBoxOfItsVerticesAndFaces) {
  Fixture f;
  ru::Reference<Object> o = createKLTMeshObject(f.document, unitCube(),
                                                ruLinear::AffineMatrix::translation(ruLinear::Vector(5, 0, 0)));
  f.document.insert(o);
  KLTMesh* mesh = o->findAttribute<KLTMesh>();
  ru::Reference<KLTSelection> selection(new KLTSelection());
  selection->vertices().push_back(0);
  const SubObject sub = mesh->selectionAsSubObject(selection);
  BoundingBox* box = o->findAttribute<BoundingBox>();
  const ruLinear::Point v0 = mesh->getMesh()->getVertices()[0].asPoint() + ruLinear::Vector(5, 0, 0);
  EXPECT_EQ(box->getWorldSpace(sub).getMin(), v0);
  EXPECT_EQ(box->getWorldSpace(sub).getMax(), v0);
  selection->faces().push_back(999);  // out of range: ignored
  EXPECT_EQ(box->getWorldSpace(sub).getMax(), v0);
  EXPECT_EQ(box->getWorldSpace(SubObject()).getMax(), ruLinear::Point(6, 1, 1));
}

TEST(Document, SubObjectsCompareByOwnerKindAndIdentityNeverContents) {
  Fixture f;
  ru::Reference<Object> a = f.make("a");
  ru::Reference<KLTSelection> s1(new KLTSelection()), s2(new KLTSelection());
  const SubObject x(a.get(), SubObject::Selection, ru::Reference<ru::ReferenceCount>(s1.get()));
  const SubObject y(a.get(), SubObject::Selection, ru::Reference<ru::ReferenceCount>(s2.get()));
  const SubObject x2(a.get(), SubObject::Selection, ru::Reference<ru::ReferenceCount>(s1.get()));
  EXPECT_EQ(x.compare(x2), 0);
  EXPECT_NE(x.compare(y), 0);
  EXPECT_EQ(x.compare(y), -y.compare(x));
  const int before = x.compare(y);
  s1->faces().push_back(1);  // contents change, order does not
  EXPECT_EQ(x.compare(y), before);
  EXPECT_LT(SubObject().compare(x), 0);
  EXPECT_TRUE(SubObject().isNull());
  EXPECT_FALSE(x.isNull());
}

TEST(Document, CameraChangeFiresItsSignalThenTheOwnersModification) {
  Fixture f;
  Camera* camera = f.document.camera();
  ASSERT_NE(camera, nullptr);
  std::vector<std::string> order;
  ruRTB::SignalClient client;
  camera->sigCameraChanged.addCallback(
      [&](ruGeom::Camera* c) {
        EXPECT_EQ(c, &camera->get());
        order.push_back("camera");
      },
      client);
  camera->owner()->sigModified.addCallback(
      [&](const Modification& m) {
        EXPECT_EQ(m.getAttribute(), camera);
        order.push_back("modified");
      },
      client);
  ruGeom::Camera moved;
  moved.setWorldToEye(ruLinear::Point::origin, ruLinear::Point(0, -10, 0), ruLinear::Vector::z);
  camera->set(moved);
  EXPECT_EQ(order, (std::vector<std::string>{"camera", "modified"}));
  EXPECT_EQ(camera->get().getEyeLocation(), ruLinear::Point(0, -10, 0));
  EXPECT_EQ(camera->owner()->getClass(), CameraClass::get());
}

TEST(Document, NewDocumentMessageReachesItsHandlers) {
  Fixture f;
  voSupport::Broadcaster broadcaster;
  Document* heard = nullptr;
  broadcaster.addHandler<NewDocumentMsg>(voSupport::Priority(10, 1),
                                         [&](NewDocumentMsg& m) { heard = m.document(); });
  NewDocumentMsg message(&f.document);
  broadcaster.broadcast(message);
  EXPECT_EQ(heard, &f.document);
}

TEST(Document, TxnManagerEntryGivesTheManagerObjectsUse) {
  voDMA::TxnManager txn;
  Document document(*txn.get());
  EXPECT_EQ(&document.txnManager(), txn.get());
  ru::Reference<Object> o = Object::create(document, nullptr);
  EXPECT_EQ(o->txnManager(), txn.get());
  EXPECT_EQ(o->getClass(), GroupClass::get());
}

namespace {

// A snapshot of everything an undo must restore: the tree, names, placements and visibility.
std::string snapshot(const Document& document) {
  std::string out;
  for (ObjectIterator it(document.root()); (it.next(), it.valid());) {
    Object* o = it.getObject();
    out += std::string(o->name().c_str()) + "<" + (o->parent() ? o->parent()->name().c_str() : "?") + ">";
    if (const Transform* t = o->findAttribute<Transform>()) out += std::to_string(t->getObjToWorld()(3, 0));
    if (const Mesh* m = o->findAttribute<Mesh>()) out += m->visible() ? "v" : "h";
    out += ";";
  }
  return out;
}

} // namespace

TEST(Document, RandomEditsUndoAndRedoRestoreEveryStateAndKeepTheSignalsBalanced) {
  Fixture f;
  std::mt19937 rng(20261123);
  // Objects announced as in the tree, by the signals alone.
  std::map<Object*, int> inTree;
  ruRTB::SignalClient client;
  f.document.sigObjectAdded.addCallback(
      [&](Object* o) {
        for (ObjectIterator it(o); it.valid(); it.next()) ++inTree[it.getObject()];
      },
      client);
  f.document.sigObjectRemoved.addCallback(
      [&](Object* o) {
        for (ObjectIterator it(o); it.valid(); it.next()) --inTree[it.getObject()];
      },
      client);
  std::vector<ru::Reference<Object>> pool;
  std::vector<std::string> history{snapshot(f.document)};  // state after each undoable step
  std::size_t position = 0;
  int made = 0;
  auto inDocument = [&] {
    std::vector<Object*> objects;
    for (ObjectIterator it(f.document.root()); (it.next(), it.valid());) objects.push_back(it.getObject());
    return objects;
  };
  for (int step = 0; step < 600; ++step) {
    const int action = static_cast<int>(rng() % 7);
    const std::vector<Object*> objects = inDocument();
    const std::size_t depthBefore = f.manager().undoDepth();
    bool edited = false;
    if (action == 0 || objects.empty()) {
      ru::Reference<Object> o = createMeshObject(f.document, unitCube());
      f.manager().begin("Add");
      o->setName(("o" + std::to_string(made++)).c_str());
      Object* parent = objects.empty() || rng() % 2 ? nullptr : objects[rng() % objects.size()];
      f.document.insert(o, parent);
      f.manager().commit();
      pool.push_back(o);
      edited = true;
    } else if (action == 1) {
      // One removal, or several structural edits in one transaction.
      if (rng() % 3) {
        f.document.remove(objects[rng() % objects.size()]);
      } else {
        f.manager().begin("Batch");
        for (int k = 0, n = 2 + static_cast<int>(rng() % 3); k < n; ++k) {
          const std::vector<Object*> now = inDocument();
          if (now.empty() || rng() % 2) {
            ru::Reference<Object> o = createMeshObject(f.document, unitCube());
            o->setName(("o" + std::to_string(made++)).c_str());
            f.document.insert(o, now.empty() || rng() % 2 ? nullptr : now[rng() % now.size()]);
            pool.push_back(o);
          } else {
            f.document.remove(now[rng() % now.size()]);
          }
        }
        f.manager().commit();
      }
      edited = true;
    } else if (action == 2) {
      Object* o = objects[rng() % objects.size()];
      o->findAttribute<Transform>()->setObjToWorld(
          ruLinear::AffineMatrix::translation(ruLinear::Vector(double(rng() % 100), 0, 0)));
      edited = true;
    } else if (action == 3) {
      Object* o = objects[rng() % objects.size()];
      o->findAttribute<Mesh>()->setVisible(!o->findAttribute<Mesh>()->visible());
      edited = true;
    } else if (action == 4 || action == 5) {
      if (f.manager().canUndo() && position > 0) {
        f.manager().undo();
        --position;
        EXPECT_EQ(snapshot(f.document), history[position]) << "undo at step " << step;
      }
    } else if (f.manager().canRedo() && position + 1 < history.size()) {
      f.manager().redo();
      ++position;
      EXPECT_EQ(snapshot(f.document), history[position]) << "redo at step " << step;
    }
    // An edit that changed nothing (a move to the same place) records no transaction.
    if (edited && f.manager().undoDepth() == depthBefore + 1) {
      history.resize(position + 1);
      history.push_back(snapshot(f.document));
      ++position;
    }
    // The signals agree with the tree: every object in it announced once, every other not at all.
    std::set<Object*> now;
    for (Object* o : inDocument()) now.insert(o);
    for (const auto& [object, count] : inTree) {
      ASSERT_EQ(count, now.count(object) ? 1 : 0) << "step " << step;
    }
    for (Object* o : now) ASSERT_EQ(inTree[o], 1) << "step " << step;
  }
}

TEST(Document, SubMeshImageKeysAreSetPerSubMeshAndUndone) {
  Fixture f;
  ru::Reference<Object> o = createMeshObject(f.document, unitCube());
  f.document.insert(o);
  Mesh* mesh = o->findAttribute<Mesh>();
  EXPECT_FALSE(mesh->getSubMeshImageKey(0).valid());
  EXPECT_FALSE(mesh->getSubMeshImageKey(5).valid());
  voRES::Loader loader;
  loader.addImage("Checker", new ruImage::TypedImage<ruImage::Byte4>(4, 4));
  const voRES::ImageKey key = loader.createImageKey("Checker", 0);
  EXPECT_TRUE(mesh->setSubMeshImageKey(0, key));
  EXPECT_FALSE(mesh->setSubMeshImageKey(1, key));
  EXPECT_TRUE(mesh->getSubMeshImageKey(0) == key);
  f.manager().undo();
  EXPECT_FALSE(mesh->getSubMeshImageKey(0).valid());
  f.manager().redo();
  EXPECT_EQ(voRES::ImageKeyAccessor(mesh->getSubMeshImageKey(0)).xSize(), 4);
  mesh->setSubMeshes({unitCube(), unitCube()});
  EXPECT_EQ(mesh->numSubMeshes(), 2);
  EXPECT_FALSE(mesh->getSubMeshImageKey(0).valid());
}

TEST(Document, AChildOutlivingItsParentHasNoParent) {
  Fixture f;
  ru::Reference<Object> child = f.make("child");
  {
    ru::Reference<Object> parent = f.make("parent");
    f.document.insert(child, parent.get());
    EXPECT_EQ(child->parent(), parent.get());
  }
  f.manager().clearHistory();
  EXPECT_EQ(child->parent(), nullptr);
  EXPECT_TRUE(f.document.insert(child));
  EXPECT_TRUE(child->isInDocument());
}

TEST(Document, DocumentsSharingAManagerHearOnlyOfTheirOwnTransactions) {
  voDMA::TxnManager txn;
  Document first(*txn.get()), second(*txn.get());
  int firstHeard = 0, secondHeard = 0;
  ruRTB::SignalClient client;
  first.sigTxnModified.addCallback([&](const Document*) { ++firstHeard; }, client);
  second.sigTxnModified.addCallback([&](const Document*) { ++secondHeard; }, client);
  first.insert(Object::create(first, nullptr));
  txn.get()->undo();
  txn.get()->redo();
  EXPECT_EQ(firstHeard, 3);
  EXPECT_EQ(secondHeard, 0);
}

TEST(Document, SelectionBoxSkipsTriangleCornersTheMeshLacks) {
  Fixture f;
  ru::Reference<ruGeom::CompactMesh> broken(new ruGeom::CompactMesh);
  broken->addVertex(ruLinear::Point(0, 0, 0));
  broken->addVertex(ruLinear::Point(1, 0, 0));
  broken->addVertex(ruLinear::Point(0, 1, 0));
  broken->addTriangle(0, 1, 1000000);
  broken->addTriangle(2, 0xFFFFFFFFu, 2);
  ru::Reference<Object> o = createKLTMeshObject(f.document, broken);
  KLTMesh* mesh = o->findAttribute<KLTMesh>();
  ru::Reference<KLTSelection> selection(new KLTSelection());
  selection->faces().push_back(0);
  const SubObject sub = mesh->selectionAsSubObject(selection);
  BoundingBox* box = o->findAttribute<BoundingBox>();
  EXPECT_EQ(box->getWorldSpace(sub).getMin(), ruLinear::Point(0, 0, 0));
  EXPECT_EQ(box->getWorldSpace(sub).getMax(), ruLinear::Point(1, 0, 0));
  selection->faces().assign({1});
  EXPECT_EQ(box->getWorldSpace(sub).getMin(), ruLinear::Point(0, 1, 0));
  EXPECT_EQ(box->getWorldSpace(sub).getMax(), ruLinear::Point(0, 1, 0));
}

TEST(Document, DestroyingAVeryDeepTreeUsesNoStackPerLevel) {
  Fixture f;
  // Far deeper than the stack allows one nested destructor call per level.
  const int depth = 100000;
  ru::Reference<Object> top = Object::create(f.document, nullptr);
  ru::Reference<Object> middle;
  f.manager().begin("Build");
  for (int level = 1; level < depth; ++level) {
    // Built from the bottom up, so that each insertion walks no ancestors.
    ru::Reference<Object> above = Object::create(f.document, nullptr);
    ASSERT_TRUE(f.document.insert(top, above.get()));
    top = above;
    if (level == depth / 2) middle = top;
  }
  f.manager().commit();
  f.manager().clearHistory();
  // A subtree held elsewhere survives the release of the rest, without its parent.
  ASSERT_TRUE(middle);
  EXPECT_NE(middle->parent(), nullptr);
  top.reset();
  EXPECT_EQ(middle->parent(), nullptr);
  int below = 0;
  for (const Object* o = middle.get(); o->numChildren() == 1; o = o->getChild(0)) ++below;
  EXPECT_EQ(below, depth / 2);
  middle.reset();
}
