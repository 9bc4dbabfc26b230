#include "platform/transaction/transaction.h"

#include <algorithm>

namespace voTXN {

Serializer::~Serializer() = default;

void Writer::beginScope(const Object*, int) { ++depth_; }
void Writer::field(void* value, const FieldOps& operations) { operations.write(*this, value); }
void Writer::endScope() { --depth_; }

void Reader::beginScope(const Object*, int) {}
void Reader::field(void* value, const FieldOps& operations) { operations.read(*this, value); }
void Reader::endScope() {}

void Clear::beginScope(const Object*, int) {}
void Clear::field(void* value, const FieldOps& operations) { operations.clear(*this, value); }
void Clear::endScope() {}

Object::Object(Manager* manager) noexcept : manager_(manager) {}

Object::Object(const Object& other) noexcept : manager_(other.manager_) {}

Object::~Object() {
  if (manager_) manager_->forget(this);
}

void Object::onTxnPreSerialized() {}

void Object::onTransact(Serializer& serializer) { serializer.field(destroyed_); }

void Object::onTxnRestored() {}

void Object::onTxnModified() {}

void Object::onTxnDestroyed() {
  txnWillWrite();
  destroyed_ = true;
}

void Object::onTxnExtant() {}

void Object::onTxnGetSize(ObjectSize& size) const { size.add(sizeof(Object)); }

void Object::txnWillWrite() {
  if (manager_ && stamp_ != manager_->currentStamp()) manager_->onTransact(this);
}

RefCountedObject::~RefCountedObject() = default;

void RefCountedObject::txnDelete() {
  onTxnDestroyed();
  delete this;  // the destructor drops the records of this object
}

void RefCountedObject::ref() const { ++count_; }

void RefCountedObject::unref() const {
  if (--count_ == 0) const_cast<RefCountedObject*>(this)->txnDelete();
}

Transaction::~Transaction() {
  // The objects stop pointing here first: the records' states may hold the last references to
  // objects, which then forget their own records as they die.
  for (std::size_t i = 0; i < records_.size(); ++i) {
    if (Object* object = records_[i].object) {
      auto& where = object->records_;
      auto found = std::find(where.begin(), where.end(), std::make_pair(this, i));
      if (found != where.end()) where.erase(found);
    }
  }
}

void Transaction::attach(const void* key, std::shared_ptr<void> data) {
  for (auto& [owner, value] : attachments_) {
    if (owner == key) {
      value = std::move(data);
      return;
    }
  }
  attachments_.emplace_back(key, std::move(data));
}

void* Transaction::attachment(const void* key) const noexcept {
  for (const auto& [owner, value] : attachments_) {
    if (owner == key) return value.get();
  }
  return nullptr;
}

bool Transaction::touches(const Object* object) const noexcept {
  return std::any_of(records_.begin(), records_.end(), [&](const Record& r) { return r.object == object; });
}

Manager::Manager() = default;

Manager::~Manager() {
  // Records may hold the last references to objects; those objects call forget() as they die,
  // which must find nothing left to scan.
  std::vector<std::unique_ptr<Transaction>> gone;
  if (open_) gone.push_back(std::move(open_));
  for (auto& t : undo_) gone.push_back(std::move(t));
  for (auto& t : redo_) gone.push_back(std::move(t));
  undo_.clear();
  redo_.clear();
  depth_ = 0;
  gone.clear();
}

bool Manager::begin(const ruString::CString& name) {
  if (replaying_) return false;
  if (depth_++ == 0) {
    ++stamp_;
    open_ = std::make_unique<Transaction>(name);
  }
  return true;
}

bool Manager::commit() {
  if (depth_ == 0) return false;
  if (--depth_ > 0) return true;
  std::unique_ptr<Transaction> done = std::move(open_);
  // Writes after the commit belong to no transaction.
  ++stamp_;
  // Objects that died during the transaction left records with no object.
  auto& records = done->records_;
  // Their states are let go only once the live records sit at their new places: releasing them
  // may end more objects, which forget their records by index.
  std::vector<Writer::Record> released;
  for (auto& record : records) {
    if (!record.object) released.push_back(std::move(record.state));
  }
  std::size_t kept = 0;
  for (std::size_t i = 0; i < records.size(); ++i) {
    Object* object = records[i].object;
    if (!object) continue;
    if (kept != i) {
      records[kept] = std::move(records[i]);
      *std::find(object->records_.begin(), object->records_.end(), std::make_pair(done.get(), i)) =
          std::make_pair(done.get(), kept);
    }
    ++kept;
  }
  records.erase(records.begin() + static_cast<std::ptrdiff_t>(kept), records.end());
  released.clear();
  if (done->empty()) {
    sigTransaction.emit(Event::Committed, done.get());
    return true;
  }
  // On the stack before the hooks run, so an edit a hook commits lands after it.
  Transaction* committed = done.get();
  drop(redo_, redo_.size());
  undo_.push_back(std::move(done));
  holdInFlight(committed);
  if (undoLimit_ && undo_.size() > undoLimit_) drop(undo_, undo_.size() - undoLimit_);
  for (std::size_t i = 0; i < committed->records_.size(); ++i) {
    if (Object* object = committed->records_[i].object) object->onTxnModified();
  }
  sigTransaction.emit(Event::Committed, committed);
  releaseInFlight();
  return true;
}

bool Manager::abort() {
  if (depth_ == 0) return false;
  depth_ = 0;
  std::unique_ptr<Transaction> aborted = std::move(open_);
  ++stamp_;
  sigRestoring.emit(Event::Aborted, aborted.get());
  holdInFlight(aborted.get());
  restore(*aborted, true);
  sigTransaction.emit(Event::Aborted, aborted.get());
  releaseInFlight();
  return true;
}

bool Manager::undo() {
  if (!canUndo() || replaying_) return false;
  Transaction* replayed = undo_.back().get();
  sigRestoring.emit(Event::Undone, replayed);
  // A listener of sigRestoring may have changed the stacks: undo what is on top now, if anything.
  if (undo_.empty() || undo_.back().get() != replayed) return false;
  std::unique_ptr<Transaction> transaction = std::move(undo_.back());
  undo_.pop_back();
  ++stamp_;
  redo_.push_back(std::move(transaction));
  holdInFlight(replayed);
  restore(*replayed, true);
  sigTransaction.emit(Event::Undone, replayed);
  releaseInFlight();
  return true;
}

bool Manager::redo() {
  if (!canRedo() || replaying_) return false;
  Transaction* replayed = redo_.back().get();
  sigRestoring.emit(Event::Redone, replayed);
  if (redo_.empty() || redo_.back().get() != replayed) return false;
  std::unique_ptr<Transaction> transaction = std::move(redo_.back());
  redo_.pop_back();
  ++stamp_;
  undo_.push_back(std::move(transaction));
  holdInFlight(replayed);
  restore(*replayed, false);
  sigTransaction.emit(Event::Redone, replayed);
  releaseInFlight();
  return true;
}

void Manager::releaseInFlight() noexcept {
  Transaction* done = inFlight_.back();
  inFlight_.pop_back();
  // Dropped by a hook or listener meanwhile: it goes now that nothing uses it.
  for (auto it = droppedInFlight_.begin(); it != droppedInFlight_.end(); ++it) {
    if (it->get() == done) {
      std::unique_ptr<Transaction> gone = std::move(*it);
      droppedInFlight_.erase(it);
      break;
    }
  }
}

bool Manager::isInFlight(const Transaction* transaction) const noexcept {
  return std::find(inFlight_.begin(), inFlight_.end(), transaction) != inFlight_.end();
}

void Manager::restore(Transaction& transaction, bool reverse) {
  replaying_ = true;
  replayed_ = &transaction;
  auto& records = transaction.records_;
  const std::size_t count = records.size();
  std::vector<char> wasDestroyed(count, 0);
  // Swap each object's state with its record, so the record then holds what the opposite
  // direction needs. Records of objects that die meanwhile have a null object and are skipped.
  for (std::size_t k = 0; k < count; ++k) {
    const std::size_t i = reverse ? count - 1 - k : k;
    Object* object = records[i].object;
    if (!object) continue;
    wasDestroyed[i] = object->destroyed_;
    object->onTxnPreSerialized();
    Writer current;
    object->onTransact(current);
    Reader reader(records[i].state);
    object->onTransact(reader);
    Writer::Record previous = std::move(records[i].state);
    records[i].state = current.takeRecord();
    object->stamp_ = stamp_;
    previous.clear();  // may release objects, which then forget their records
  }
  replaying_ = false;
  replayed_ = nullptr;
  for (std::size_t k = 0; k < count; ++k) {
    const std::size_t i = reverse ? count - 1 - k : k;
    if (Object* object = records[i].object) {
      object->onTxnRestored();
      if (records[i].object == object && wasDestroyed[i] && !object->destroyed_) object->onTxnExtant();
    }
  }
  for (std::size_t k = 0; k < count; ++k) {
    const std::size_t i = reverse ? count - 1 - k : k;
    if (Object* object = records[i].object) object->onTxnModified();
  }
}

void Manager::onTransact(Object* object) {
  if (!open_ || replaying_) {
    object->stamp_ = stamp_;
    return;
  }
  if (object->stamp_ == stamp_) return;
  object->stamp_ = stamp_;
  object->onTxnPreSerialized();
  Writer writer;
  object->onTransact(writer);
  object->records_.emplace_back(open_.get(), open_->records_.size());
  open_->records_.push_back({object, writer.takeRecord()});
}

void Manager::forget(const Object* object) noexcept {
  // The object is dying; its list of records is its own to empty.
  auto& where = const_cast<Object*>(object)->records_;
  for (const auto& [transaction, index] : where) transaction->records_[index].object = nullptr;
  where.clear();
}

void Manager::drop(std::vector<std::unique_ptr<Transaction>>& stack, std::size_t count) {
  // Take them off the stack first: their records may hold the last references to objects, which
  // call forget() as they die.
  count = std::min(count, stack.size());
  std::vector<std::unique_ptr<Transaction>> gone;
  auto take = [&](std::unique_ptr<Transaction>& t) {
    if (isInFlight(t.get())) {
      droppedInFlight_.push_back(std::move(t));
    } else {
      gone.push_back(std::move(t));
    }
  };
  if (&stack == &redo_) {
    for (std::size_t i = 0; i < count; ++i) {
      take(stack.back());
      stack.pop_back();
    }
  } else {
    for (std::size_t i = 0; i < count; ++i) take(stack[i]);
    stack.erase(stack.begin(), stack.begin() + static_cast<std::ptrdiff_t>(count));
  }
  gone.clear();
}

void Manager::setUndoLimit(std::size_t count) {
  undoLimit_ = count;
  if (undoLimit_ && undo_.size() > undoLimit_) drop(undo_, undo_.size() - undoLimit_);
}

void Manager::clearHistory() {
  drop(undo_, undo_.size());
  drop(redo_, redo_.size());
}

ruString::CString Manager::undoName() const { return undo_.empty() ? ruString::CString() : undo_.back()->name(); }

ruString::CString Manager::redoName() const { return redo_.empty() ? ruString::CString() : redo_.back()->name(); }

std::size_t Manager::undoSize() const {
  ObjectSize size;
  for (const auto& transaction : undo_) {
    for (const auto& record : transaction->records_) {
      for (const auto& box : record.state) size.add(box->size());
      if (record.object) record.object->onTxnGetSize(size);
    }
  }
  return size.bytes();
}

}  // namespace voTXN
