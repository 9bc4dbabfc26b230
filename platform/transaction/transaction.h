#pragma once

#include "platform/base/containers.h"
#include "platform/base/signal.h"
#include "platform/base/strings.h"
#include "platform/transaction/export.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

// Transacted objects with undo and redo.
//
// An object keeps its state in fields. Before it writes a field it calls txnWillWrite(): when the
// object's stamp differs from its manager's current stamp, the manager records the object's state
// (through onTransact with a Writer) in the open transaction and stamps the object, so one record
// per object and transaction holds the state from before the transaction. Undo replays the records
// in reverse (onTransact with a Reader), redo replays them forward; each object restored hears
// onTxnRestored, then every object touched hears onTxnModified. Records hold copies of the fields,
// so a field holding ru::References keeps those objects alive while the record lives.
namespace voTXN {

class Manager;
class Object;
class Transaction;
class Writer;
class Reader;
class Clear;
class ObjectSize;

using Stamp = std::uint64_t;

// The three operations on one field: save it into a record, restore it from one, release it.
struct FieldOps {
  void (*write)(Writer&, const void* field);
  void (*read)(Reader&, void* field);
  void (*clear)(Clear&, void* field);
};

// Visits the fields of an object in one of three modes: Writer saves them, Reader restores them,
// Clear releases what they hold.
class VO_TXN_API Serializer {
public:
  // Opens the scope of one class of `object`; `flags` is 0 for a plain scope.
  virtual void beginScope(const Object* object, int flags) = 0;
  // One field, with the operations that save, restore and release it.
  virtual void field(void* value, const FieldOps& operations) = 0;
  virtual void endScope() = 0;
  virtual ~Serializer();

  // Passes a field with the field operations found for T by overload resolution.
  template <class T>
  void field(T& value);
};

// Saves fields into a record.
class VO_TXN_API Writer final : public Serializer {
public:
  void beginScope(const Object* object, int flags) override;
  void field(void* value, const FieldOps& operations) override;
  void endScope() override;
  using Serializer::field;

  // Appends a copy of `value` to the record.
  template <class T>
  void save(const T& value) {
    boxes_.push_back(std::make_unique<Box<std::decay_t<T>>>(value));
  }

  struct BoxBase {
    virtual ~BoxBase() = default;
    virtual std::size_t size() const = 0;
  };
  template <class T>
  struct Box final : BoxBase {
    explicit Box(const T& v) : value(v) {}
    std::size_t size() const override { return sizeof(T); }
    T value;
  };
  using Record = std::vector<std::unique_ptr<BoxBase>>;
  Record takeRecord() { return std::move(boxes_); }

private:
  Record boxes_;
  int depth_ = 0;
};

// Restores fields from a record, in the order they were saved.
class VO_TXN_API Reader final : public Serializer {
public:
  explicit Reader(Writer::Record& record) : record_(record) {}

  void beginScope(const Object* object, int flags) override;
  void field(void* value, const FieldOps& operations) override;
  void endScope() override;
  using Serializer::field;

  // Restores the next saved value into `value`; false (and `value` untouched) when the record has
  // no further value of that type.
  template <class T>
  bool restore(T& value) {
    if (next_ >= record_.size()) return false;
    auto* box = dynamic_cast<Writer::Box<T>*>(record_[next_].get());
    if (!box) return false;
    ++next_;
    value = std::move(box->value);  // a record is read once, then dropped
    return true;
  }

  // False once a field did not match what was saved: the object was serialised inconsistently.
  bool ok() const noexcept { return ok_ && next_ == record_.size(); }
  void fail() noexcept { ok_ = false; }

private:
  Writer::Record& record_;
  std::size_t next_ = 0;
  bool ok_ = true;
};

// Releases what fields hold, resetting each to its default value.
class VO_TXN_API Clear final : public Serializer {
public:
  void beginScope(const Object* object, int flags) override;
  void field(void* value, const FieldOps& operations) override;
  void endScope() override;
  using Serializer::field;
};

// The field operations for any copyable T. A type that needs more gets overloads of write, read and
// clear in its own namespace, where argument-dependent lookup finds them from fieldOps.
template <class T>
void write(Writer& writer, const T& value) {
  writer.save(value);
}
template <class T>
void read(Reader& reader, T& value) {
  if (!reader.restore(value)) reader.fail();
}
template <class T>
void clear(Clear&, T& value) {
  value = T();
}

template <class T>
const FieldOps& fieldOps() {
  static const FieldOps operations{
      [](Writer& writer, const void* field) { write(writer, *static_cast<const T*>(field)); },
      [](Reader& reader, void* field) { read(reader, *static_cast<T*>(field)); },
      [](Clear& clearer, void* field) { clear(clearer, *static_cast<T*>(field)); },
  };
  return operations;
}

template <class T>
void Serializer::field(T& value) {
  field(&value, fieldOps<T>());
}

// Memory an object's transacted state takes, summed over its parts.
class VO_TXN_API ObjectSize {
public:
  void add(std::size_t bytes) noexcept { bytes_ += bytes; }
  std::size_t bytes() const noexcept { return bytes_; }

private:
  std::size_t bytes_ = 0;
};

// Transacted size of a value; overload for types whose state lies elsewhere.
template <class T>
std::size_t getSize(const T&) {
  return sizeof(T);
}

// An object whose fields take part in transactions. Hooks, in this order, may be overridden:
// onTxnPreSerialized before its state is saved; onTransact to pass its fields (call the base
// first); onTxnRestored after undo or redo restored it; onTxnModified after every commit, undo or
// redo of a transaction that touched it; onTxnDestroyed when it is destroyed inside a transaction
// (save first, call the base last); onTxnExtant when undo brings a destroyed object back;
// onTxnGetSize to account its memory.
class VO_TXN_API Object {
public:
  // `manager` must outlive the object; null makes an object outside any transaction.
  explicit Object(Manager* manager) noexcept;
  // A copy is a new object under the same manager, never yet recorded.
  Object(const Object& other) noexcept;
  Object& operator=(const Object&) noexcept { return *this; }
  virtual ~Object();

  virtual void onTxnPreSerialized();
  virtual void onTransact(Serializer& serializer);
  virtual void onTxnRestored();
  virtual void onTxnModified();
  virtual void onTxnDestroyed();
  virtual void onTxnExtant();
  virtual void onTxnGetSize(ObjectSize& size) const;

  Manager* txnManager() const noexcept { return manager_; }
  Stamp txnStamp() const noexcept { return stamp_; }
  // Destroyed inside a transaction that has not been undone.
  bool txnDestroyed() const noexcept { return destroyed_; }

  // To call before writing a field: records the state when this transaction has not yet.
  void txnWillWrite();
  // How many records of this object the manager keeps (open transaction and both stacks).
  std::size_t txnNumRecords() const noexcept { return records_.size(); }

private:
  friend class Manager;
  friend class Transaction;
  Manager* manager_;
  Stamp stamp_ = 0;
  bool destroyed_ = false;
  // Where this object's records are (transaction, index of the record), so that its death
  // touches only its own records whatever the length of the history. Not copied.
  std::vector<std::pair<Transaction*, std::size_t>> records_;
};

// An object held by ru::Reference through its virtual ref/unref; its last release goes through
// txnDelete, which tells the transaction and deletes it.
class VO_TXN_API RefCountedObject : public Object {
public:
  explicit RefCountedObject(Manager* manager) noexcept : Object(manager) {}
  RefCountedObject(const RefCountedObject& other) noexcept : Object(other) {}
  RefCountedObject& operator=(const RefCountedObject&) noexcept { return *this; }
  ~RefCountedObject() override;

  virtual void txnDelete();
  virtual void ref() const;
  virtual void unref() const;

  int refCount() const noexcept { return count_; }

private:
  mutable int count_ = 0;
};

// One transaction: the records of the objects it touched, in the order they were first touched.
class VO_TXN_API Transaction {
public:
  explicit Transaction(ruString::CString name) : name_(std::move(name)) {}
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;
  ~Transaction();

  const ruString::CString& name() const noexcept { return name_; }
  std::size_t numRecords() const noexcept { return records_.size(); }
  bool empty() const noexcept { return records_.empty(); }
  bool touches(const Object* object) const noexcept;
  // The objects recorded, in the order they were first touched (null for one that died since).
  Object* recordedObject(std::size_t index) const noexcept { return records_[index].object; }

  // Data a client keeps with the transaction (a log of what it did, say), under a key of its own;
  // released with the transaction. Attaching again under the same key replaces the data.
  void attach(const void* key, std::shared_ptr<void> data);
  void* attachment(const void* key) const noexcept;

private:
  friend class Manager;
  struct Record {
    Object* object;
    Writer::Record state;
  };
  ruString::CString name_;
  std::vector<Record> records_;
  std::vector<std::pair<const void*, std::shared_ptr<void>>> attachments_;
};

// Keeps the current stamp, the open transaction and the undo and redo stacks.
class VO_TXN_API Manager {
public:
  enum class Event { Committed, Undone, Redone, Aborted };

  Manager();
  Manager(const Manager&) = delete;
  Manager& operator=(const Manager&) = delete;
  ~Manager();

  Stamp currentStamp() const noexcept { return stamp_; }

  // Opens a transaction, or joins the open one (nested calls count). Refused (false) during undo
  // or redo.
  bool begin(const ruString::CString& name = "");
  // Closes one level; the outermost commits: a transaction that touched something goes on the undo
  // stack and empties the redo stack. False when none is open.
  bool commit();
  // Rolls the open transaction back, whatever its depth, and drops it. False when none is open.
  bool abort();
  bool isOpen() const noexcept { return depth_ > 0; }

  bool canUndo() const noexcept { return !isOpen() && !undo_.empty(); }
  bool canRedo() const noexcept { return !isOpen() && !redo_.empty(); }
  bool undo();
  bool redo();
  // Name of the transaction that undo (redo) would revert (replay), or empty.
  ruString::CString undoName() const;
  ruString::CString redoName() const;
  std::size_t undoDepth() const noexcept { return undo_.size(); }
  std::size_t redoDepth() const noexcept { return redo_.size(); }
  // Keeps at most `count` transactions on the undo stack (0: no limit), dropping the oldest.
  void setUndoLimit(std::size_t count);
  // Drops both stacks.
  void clearHistory();

  // The open transaction, or null: where a client attaches what it needs to replay it.
  Transaction* openTransaction() noexcept { return open_.get(); }

  // Saves `object`'s state in the open transaction (when none is open, only stamps the object).
  void onTransact(Object* object);
  // Drops every record of an object that is going away for good, in time proportional to the
  // number of records the object has.
  void forget(const Object* object) noexcept;

  // Sum of the sizes the objects of the undo stack report.
  std::size_t undoSize() const;

  // Before an undo, redo or abort changes anything: listeners still see the state as it is.
  ruRTB::Signal2Args<Event, const Transaction*> sigRestoring;
  // After every commit, undo, redo and abort, once the objects have heard their hooks.
  ruRTB::Signal2Args<Event, const Transaction*> sigTransaction;

private:
  void restore(Transaction& transaction, bool reverse);
  void drop(std::vector<std::unique_ptr<Transaction>>& stack, std::size_t count);
  // Keeps the transaction being committed, undone or redone alive while hooks and listeners run,
  // even if one of them drops it from the stacks (by committing an edit of its own).
  void holdInFlight(Transaction* transaction) { inFlight_.push_back(transaction); }
  void releaseInFlight() noexcept;
  bool isInFlight(const Transaction* transaction) const noexcept;

  Stamp stamp_ = 1;
  int depth_ = 0;
  bool replaying_ = false;
  Transaction* replayed_ = nullptr;  // the transaction being restored, which may be off both stacks
  // The transactions whose hooks and listeners are running (nested when a hook commits an edit),
  // and those of them dropped from the stacks meanwhile, deleted when they are done.
  std::vector<Transaction*> inFlight_;
  std::vector<std::unique_ptr<Transaction>> droppedInFlight_;
  std::unique_ptr<Transaction> open_;
  std::vector<std::unique_ptr<Transaction>> undo_;
  std::vector<std::unique_ptr<Transaction>> redo_;
  std::size_t undoLimit_ = 0;
};

// Opens a transaction for its lifetime: commit() keeps it; leaving the scope without commit()
// aborts it.
class VO_TXN_API Scope {
public:
  Scope(Manager& manager, const ruString::CString& name) : manager_(manager), open_(manager.begin(name)) {}
  Scope(const Scope&) = delete;
  Scope& operator=(const Scope&) = delete;
  ~Scope() {
    if (open_) manager_.abort();
  }
  bool commit() {
    if (!open_) return false;
    open_ = false;
    return manager_.commit();
  }

private:
  Manager& manager_;
  bool open_;
};

}  // namespace voTXN
