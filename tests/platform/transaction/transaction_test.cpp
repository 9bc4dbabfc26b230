#include "platform/transaction/transaction.h"

#include "platform/base/linear.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace {

// A transacted object with a number and a name, logging its hooks.
class Item : public voTXN::Object {
public:
  explicit Item(voTXN::Manager* manager, std::vector<std::string>* log = nullptr) : Object(manager), log_(log) {}

  int value() const { return value_; }
  void setValue(int value) {
    txnWillWrite();
    value_ = value;
  }
  const std::string& name() const { return name_; }
  void setName(std::string name) {
    txnWillWrite();
    name_ = std::move(name);
  }

  void onTransact(voTXN::Serializer& serializer) override {
    serializer.beginScope(this, 0);
    Object::onTransact(serializer);
    serializer.field(value_);
    serializer.field(name_);
    serializer.endScope();
  }
  void onTxnPreSerialized() override { note("preSerialized"); }
  void onTxnRestored() override { note("restored"); }
  void onTxnModified() override { note("modified"); }
  void onTxnExtant() override { note("extant"); }

private:
  void note(const char* what) {
    if (log_) log_->push_back(what);
  }
  std::vector<std::string>* log_;
  int value_ = 0;
  std::string name_;
};

// Holds other objects by reference, like a parent holding children.
class Holder : public voTXN::Object {
public:
  explicit Holder(voTXN::Manager* manager) : Object(manager) {}
  struct Counted : ru::ReferenceCount {
    explicit Counted(int* counter) : deaths(counter) {}
    ~Counted() override { ++*deaths; }
    int* deaths;
  };
  void setHeld(ru::vector<ru::Reference<Counted>> held) {
    txnWillWrite();
    held_ = std::move(held);
  }
  const ru::vector<ru::Reference<Counted>>& held() const { return held_; }
  void onTransact(voTXN::Serializer& serializer) override {
    serializer.beginScope(this, 0);
    Object::onTransact(serializer);
    serializer.field(held_);
    serializer.endScope();
  }

private:
  ru::vector<ru::Reference<Counted>> held_;
};

using ruLinear::Line;
using ruLinear::Point;
using ruLinear::Vector;

// Like a projector: reference counted through virtual ref/unref, its line transacted.
class LineHolder : public voTXN::RefCountedObject {
public:
  static ru::Reference<LineHolder> create(voTXN::Manager* manager, const Line& line) {
    return ru::Reference<LineHolder>(new LineHolder(manager, line));
  }
  Line getLine() const { return line_; }
  void setLine(const Line& line) {
    txnWillWrite();
    line_ = line;
  }
  void onTransact(voTXN::Serializer& serializer) override {
    serializer.beginScope(this, 0);
    Object::onTransact(serializer);
    serializer.field(line_);
    serializer.endScope();
  }
  void onTxnDestroyed() override {
    txnWillWrite();
    ++destroyedCalls;
    Object::onTxnDestroyed();
  }
  static inline int destroyedCalls = 0;
  static inline int deaths = 0;
  ~LineHolder() override { ++deaths; }

private:
  LineHolder(voTXN::Manager* manager, const Line& line) : RefCountedObject(manager), line_(line) {}
  Line line_;
};

}  // namespace

TEST(Transaction, UndoRestoresTheValueFromBeforeTheTransaction) {
  voTXN::Manager manager;
  Item item(&manager);
  item.setValue(1);  // outside any transaction: not undoable
  manager.begin("Edit");
  item.setValue(2);
  item.setValue(3);
  item.setName("three");
  EXPECT_TRUE(manager.commit());
  EXPECT_EQ(manager.undoDepth(), 1u);
  EXPECT_EQ(manager.undoName(), "Edit");
  EXPECT_TRUE(manager.undo());
  EXPECT_EQ(item.value(), 1);
  EXPECT_EQ(item.name(), "");
  EXPECT_TRUE(manager.redo());
  EXPECT_EQ(item.value(), 3);
  EXPECT_EQ(item.name(), "three");
}

TEST(Transaction, RecordsEachObjectOncePerTransaction) {
  voTXN::Manager manager;
  Item a(&manager), b(&manager);
  manager.begin("Two");
  a.setValue(1);
  a.setValue(2);
  b.setValue(5);
  a.setValue(3);
  manager.commit();
  voTXN::Transaction* last = nullptr;
  manager.sigTransaction.addCallback([&](voTXN::Manager::Event, const voTXN::Transaction* t) {
    last = const_cast<voTXN::Transaction*>(t);
  });
  manager.undo();
  ASSERT_NE(last, nullptr);
  EXPECT_EQ(last->numRecords(), 2u);
  EXPECT_EQ(a.value(), 0);
  EXPECT_EQ(b.value(), 0);
}

TEST(Transaction, StampFollowsTheManager) {
  voTXN::Manager manager;
  Item item(&manager);
  EXPECT_NE(item.txnStamp(), manager.currentStamp());
  manager.begin();
  item.setValue(1);
  EXPECT_EQ(item.txnStamp(), manager.currentStamp());
  manager.commit();
  EXPECT_NE(item.txnStamp(), manager.currentStamp());
}

TEST(Transaction, HooksRunInOrderOnCommitUndoAndRedo) {
  voTXN::Manager manager;
  std::vector<std::string> log;
  Item item(&manager, &log);
  manager.begin();
  item.setValue(4);
  manager.commit();
  EXPECT_EQ(log, (std::vector<std::string>{"preSerialized", "modified"}));
  log.clear();
  manager.undo();
  EXPECT_EQ(log, (std::vector<std::string>{"preSerialized", "restored", "modified"}));
  log.clear();
  manager.redo();
  EXPECT_EQ(log, (std::vector<std::string>{"preSerialized", "restored", "modified"}));
}

TEST(Transaction, SignalFollowsEveryCommitUndoRedoAndAbort) {
  voTXN::Manager manager;
  Item item(&manager);
  std::vector<voTXN::Manager::Event> events;
  manager.sigTransaction.addCallback(
      [&](voTXN::Manager::Event event, const voTXN::Transaction*) { events.push_back(event); });
  manager.begin();
  item.setValue(1);
  manager.commit();
  manager.undo();
  manager.redo();
  manager.begin();
  item.setValue(9);
  manager.abort();
  using E = voTXN::Manager::Event;
  EXPECT_EQ(events, (std::vector<E>{E::Committed, E::Undone, E::Redone, E::Aborted}));
  EXPECT_EQ(item.value(), 1);
}

TEST(Transaction, NestedBeginJoinsTheOuterTransaction) {
  voTXN::Manager manager;
  Item item(&manager);
  manager.begin("Outer");
  item.setValue(1);
  manager.begin("Inner");
  item.setValue(2);
  EXPECT_TRUE(manager.commit());
  EXPECT_TRUE(manager.isOpen());
  EXPECT_FALSE(manager.undo());  // nothing to undo while a transaction is open
  EXPECT_TRUE(manager.commit());
  EXPECT_EQ(manager.undoDepth(), 1u);
  manager.undo();
  EXPECT_EQ(item.value(), 0);
  EXPECT_FALSE(manager.commit());
}

TEST(Transaction, NewCommitDropsTheRedoStack) {
  voTXN::Manager manager;
  Item item(&manager);
  manager.begin();
  item.setValue(1);
  manager.commit();
  manager.undo();
  EXPECT_TRUE(manager.canRedo());
  manager.begin();
  item.setValue(7);
  manager.commit();
  EXPECT_FALSE(manager.canRedo());
}

TEST(Transaction, EmptyTransactionLeavesNoHistory) {
  voTXN::Manager manager;
  manager.begin("Nothing");
  manager.commit();
  EXPECT_FALSE(manager.canUndo());
}

TEST(Transaction, ScopeAbortsUnlessCommitted) {
  voTXN::Manager manager;
  Item item(&manager);
  {
    voTXN::Scope scope(manager, "Dropped");
    item.setValue(5);
  }
  EXPECT_EQ(item.value(), 0);
  EXPECT_FALSE(manager.canUndo());
  {
    voTXN::Scope scope(manager, "Kept");
    item.setValue(6);
    EXPECT_TRUE(scope.commit());
  }
  EXPECT_EQ(item.value(), 6);
  EXPECT_EQ(manager.undoName(), "Kept");
}

TEST(Transaction, UndoLimitDropsTheOldest) {
  voTXN::Manager manager;
  Item item(&manager);
  manager.setUndoLimit(2);
  for (int i = 1; i <= 4; ++i) {
    manager.begin(ruString::CString::format("Set %d", i));
    item.setValue(i);
    manager.commit();
  }
  EXPECT_EQ(manager.undoDepth(), 2u);
  manager.undo();
  manager.undo();
  EXPECT_FALSE(manager.undo());
  EXPECT_EQ(item.value(), 2);
}

TEST(Transaction, RecordsKeepReferencedObjectsAliveUntilTheHistoryDrops) {
  int deaths = 0;
  voTXN::Manager manager;
  Holder holder(&manager);
  {
    ru::vector<ru::Reference<Holder::Counted>> held{new Holder::Counted(&deaths)};
    manager.begin("Add");
    holder.setHeld(held);
    manager.commit();
  }
  manager.begin("Remove");
  holder.setHeld({});
  manager.commit();
  EXPECT_EQ(deaths, 0);  // the "Remove" record still holds it
  manager.undo();
  ASSERT_EQ(holder.held().size(), 1u);
  manager.undo();
  EXPECT_TRUE(holder.held().empty());
  EXPECT_EQ(deaths, 0);  // the redo records hold it
  manager.clearHistory();
  EXPECT_EQ(deaths, 1);
}

TEST(Transaction, ObjectDyingDropsItsRecords) {
  voTXN::Manager manager;
  Item keep(&manager);
  auto* gone = new Item(&manager);
  manager.begin();
  keep.setValue(1);
  gone->setValue(1);
  manager.commit();
  delete gone;
  EXPECT_TRUE(manager.undo());
  EXPECT_EQ(keep.value(), 0);
}

TEST(Transaction, AnObjectKnowsItsOwnRecordsThroughCommitUndoRedoAndDrops) {
  voTXN::Manager manager;
  Item item(&manager), other(&manager);
  for (int i = 1; i <= 3; ++i) {
    manager.begin("Edit");
    item.setValue(i);
    item.setName("twice in one transaction is one record");
    manager.commit();
  }
  manager.begin("Other only");
  other.setValue(7);
  manager.commit();
  EXPECT_EQ(item.txnNumRecords(), 3u);
  EXPECT_EQ(other.txnNumRecords(), 1u);
  // Undo and redo move records between the stacks; the object still has all of them.
  manager.undo();
  manager.undo();
  EXPECT_EQ(item.txnNumRecords(), 3u);
  // A new commit drops the redo stack and the records in it.
  manager.begin("Edit");
  item.setValue(10);
  manager.commit();
  EXPECT_EQ(item.txnNumRecords(), 3u);
  EXPECT_EQ(other.txnNumRecords(), 0u);
  // An aborted transaction leaves no record.
  manager.begin("Aborted");
  item.setValue(11);
  EXPECT_EQ(item.txnNumRecords(), 4u);
  manager.abort();
  EXPECT_EQ(item.txnNumRecords(), 3u);
  EXPECT_EQ(item.value(), 10);
  manager.setUndoLimit(1);
  EXPECT_EQ(item.txnNumRecords(), 1u);
  manager.clearHistory();
  EXPECT_EQ(item.txnNumRecords(), 0u);
}

TEST(Transaction, ObjectsDyingInsideATransactionLeaveTheOthersRecordsWorking) {
  voTXN::Manager manager;
  std::vector<std::unique_ptr<Item>> items;
  for (int i = 0; i < 6; ++i) items.push_back(std::make_unique<Item>(&manager));
  manager.begin("Edit all");
  for (int i = 0; i < 6; ++i) items[static_cast<std::size_t>(i)]->setValue(i + 1);
  // Two die before the commit: the commit closes the gaps their records left.
  items[0].reset();
  items[3].reset();
  manager.commit();
  EXPECT_EQ(manager.undoDepth(), 1u);
  EXPECT_EQ(items[5]->txnNumRecords(), 1u);
  // One of the moved records' objects dies after the commit: only its own record goes.
  items[4].reset();
  ASSERT_TRUE(manager.undo());
  EXPECT_EQ(items[1]->value(), 0);
  EXPECT_EQ(items[2]->value(), 0);
  EXPECT_EQ(items[5]->value(), 0);
  ASSERT_TRUE(manager.redo());
  EXPECT_EQ(items[1]->value(), 2);
  EXPECT_EQ(items[2]->value(), 3);
  EXPECT_EQ(items[5]->value(), 6);
}

TEST(Transaction, AnObjectDyingWithRecordsOnBothStacksIsSkippedByUndoAndRedo) {
  voTXN::Manager manager;
  Item keep(&manager);
  auto gone = std::make_unique<Item>(&manager);
  for (int i = 1; i <= 4; ++i) {
    manager.begin("Edit");
    keep.setValue(i);
    gone->setValue(i);
    manager.commit();
  }
  manager.undo();
  manager.undo();
  EXPECT_EQ(gone->txnNumRecords(), 4u);
  gone.reset();
  EXPECT_TRUE(manager.undo());
  EXPECT_EQ(keep.value(), 1);
  EXPECT_TRUE(manager.redo());
  EXPECT_TRUE(manager.redo());
  EXPECT_TRUE(manager.redo());
  EXPECT_EQ(keep.value(), 4);
  EXPECT_EQ(keep.txnNumRecords(), 4u);
}

TEST(Transaction, RefCountedObjectLineIsRestoredByUndo) {
  voTXN::Manager manager;
  ru::Reference<LineHolder> projector = LineHolder::create(&manager, Line(Point(0, 0, 0), Vector::x));
  EXPECT_EQ(projector->refCount(), 1);
  manager.begin("Drag");
  projector->setLine(Line(Point(5, 5, 5), Vector::x));
  manager.commit();
  EXPECT_EQ(projector->getLine().getPoint().x, 5);
  manager.undo();
  EXPECT_EQ(projector->getLine().getPoint().x, 0);
  manager.redo();
  EXPECT_EQ(projector->getLine().getPoint().y, 5);
}

TEST(Transaction, LastReleaseGoesThroughTxnDeleteInsideATransaction) {
  voTXN::Manager manager;
  LineHolder::destroyedCalls = LineHolder::deaths = 0;
  manager.begin("Release");
  {
    ru::Reference<LineHolder> projector = LineHolder::create(&manager, Line());
    ru::Reference<LineHolder> second = projector;
  }
  EXPECT_EQ(LineHolder::destroyedCalls, 1);
  EXPECT_EQ(LineHolder::deaths, 1);
  manager.commit();
  EXPECT_FALSE(manager.canUndo());  // its record went with it
}

TEST(Transaction, DestroyedFlagIsTransactedAndUndoMakesTheObjectExtant) {
  voTXN::Manager manager;
  std::vector<std::string> log;
  Item item(&manager, &log);
  manager.begin("Destroy");
  item.onTxnDestroyed();
  manager.commit();
  EXPECT_TRUE(item.txnDestroyed());
  log.clear();
  manager.undo();
  EXPECT_FALSE(item.txnDestroyed());
  EXPECT_EQ(log, (std::vector<std::string>{"preSerialized", "restored", "extant", "modified"}));
}

TEST(Transaction, ClearModeResetsFields) {
  voTXN::Manager manager;
  Item item(&manager);
  item.setValue(8);
  item.setName("x");
  voTXN::Clear clear;
  item.onTransact(clear);
  EXPECT_EQ(item.value(), 0);
  EXPECT_EQ(item.name(), "");
}

TEST(Transaction, UndoSizeCountsSavedFields) {
  voTXN::Manager manager;
  Item item(&manager);
  manager.begin();
  item.setValue(1);
  manager.commit();
  EXPECT_GE(manager.undoSize(), sizeof(int) + sizeof(std::string));
  EXPECT_EQ(voTXN::getSize(3.0), sizeof(double));
}

TEST(Transaction, InconsistentSerialisationIsDetectedByTheReader) {
  voTXN::Writer writer;
  int number = 3;
  writer.field(number);
  voTXN::Writer::Record record = writer.takeRecord();
  voTXN::Reader reader(record);
  double wrongType = 0;
  reader.field(wrongType);
  EXPECT_FALSE(reader.ok());
  EXPECT_EQ(wrongType, 0);
}

namespace {

// Runs `action` from its hooks, the way a listener of a restored object edits something else.
class Reacting : public Item {
public:
  using Item::Item;
  std::function<void()> onRestored;
  std::function<void()> onModified;
  void onTxnRestored() override {
    Item::onTxnRestored();
    if (onRestored) onRestored();
  }
  void onTxnModified() override {
    Item::onTxnModified();
    if (onModified) onModified();
  }
};

} // namespace

TEST(Transaction, AnEditCommittedFromAHookDuringUndoIsSafeAndRecorded) {
  voTXN::Manager manager;
  Reacting watched(&manager);
  Item other(&manager);
  manager.begin("Set");
  watched.setValue(1);
  manager.commit();
  bool reacting = true;
  watched.onRestored = [&] {
    if (!reacting) return;
    reacting = false;
    manager.begin("Reaction");
    other.setValue(42);
    manager.commit();
  };
  EXPECT_TRUE(manager.undo());
  EXPECT_EQ(watched.value(), 0);
  EXPECT_EQ(other.value(), 42);
  // The reaction is a new edit: it is on the undo stack and nothing is left to redo.
  EXPECT_EQ(manager.undoName(), "Reaction");
  EXPECT_FALSE(manager.canRedo());
  EXPECT_TRUE(manager.undo());
  EXPECT_EQ(other.value(), 0);
}

TEST(Transaction, AnEditCommittedFromAHookDuringCommitLandsAfterIt) {
  voTXN::Manager manager;
  Reacting watched(&manager);
  Item other(&manager);
  bool reacting = true;
  watched.onModified = [&] {
    if (!reacting) return;
    reacting = false;
    manager.begin("Reaction");
    other.setValue(7);
    manager.commit();
  };
  manager.begin("Edit");
  watched.setValue(3);
  manager.commit();
  EXPECT_EQ(manager.undoDepth(), 2u);
  EXPECT_EQ(manager.undoName(), "Reaction");
  manager.undo();
  EXPECT_EQ(other.value(), 0);
  EXPECT_EQ(manager.undoName(), "Edit");
}

TEST(Transaction, RestoringIsAnnouncedBeforeAnythingChanges) {
  voTXN::Manager manager;
  Item item(&manager);
  manager.begin("Set");
  item.setValue(5);
  manager.commit();
  std::vector<std::string> seen;
  ruRTB::SignalClient client;
  manager.sigRestoring.addCallback(
      [&](voTXN::Manager::Event, const voTXN::Transaction* t) { seen.push_back(std::string(t->name().c_str()) + "=" + std::to_string(item.value())); },
      client);
  manager.undo();
  manager.redo();
  EXPECT_EQ(seen, (std::vector<std::string>{"Set=5", "Set=0"}));
}

TEST(Transaction, ClientsKeepDataWithATransaction) {
  voTXN::Manager manager;
  Item item(&manager);
  manager.begin("Set");
  item.setValue(1);
  static const int key = 0;
  manager.openTransaction()->attach(&key, std::make_shared<int>(99));
  manager.commit();
  std::vector<int> found;
  ruRTB::SignalClient client;
  manager.sigRestoring.addCallback(
      [&](voTXN::Manager::Event, const voTXN::Transaction* t) {
        found.push_back(*static_cast<int*>(t->attachment(&key)));
        EXPECT_EQ(t->attachment(&found), nullptr);
      },
      client);
  manager.undo();
  EXPECT_EQ(found, (std::vector<int>{99}));
  EXPECT_EQ(manager.openTransaction(), nullptr);
}

namespace {

// A projector-like object that writes its line the way the interactive layer's projectors do:
// when its stamp is not the manager's current one, it asks the manager to record it first.
class LineProjector : public voTXN::RefCountedObject {
public:
  explicit LineProjector(voTXN::Manager* manager) : RefCountedObject(manager) {}
  const ruLinear::Line& getLine() const { return line_; }
  void update(const ruLinear::Line& line) {
    if (txnStamp() != txnManager()->currentStamp()) txnManager()->onTransact(this);
    line_ = line;
  }
  void onTransact(voTXN::Serializer& serializer) override {
    serializer.beginScope(this, 0);
    Object::onTransact(serializer);
    serializer.field(line_);
    serializer.endScope();
  }
  void onTxnRestored() override { ++restored; }
  int restored = 0;

private:
  ruLinear::Line line_;
};

} // namespace

TEST(Transaction, AProjectorWritingThroughTheStampProtocolIsRestoredByUndo) {
  voTXN::Manager manager;
  ru::Reference<LineProjector> projector(new LineProjector(&manager));
  manager.begin("Drag");
  projector->update(Line(Point(1, 2, 3), Vector::x));
  projector->update(Line(Point(4, 5, 6), Vector::y));  // same stamp: recorded once
  manager.commit();
  EXPECT_EQ(projector->getLine().getPoint(), Point(4, 5, 6));
  manager.undo();
  EXPECT_EQ(projector->getLine().getPoint(), Point(0, 0, 0));
  EXPECT_EQ(projector->restored, 1);
  manager.redo();
  EXPECT_EQ(projector->getLine().getPoint(), Point(4, 5, 6));
  EXPECT_EQ(projector->restored, 2);
}
