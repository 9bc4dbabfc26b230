#include "platform/datamodel/document.h"

#include "platform/datamodel/attributes.h"
#include "platform/datamodel/editscope.h"
#include "platform/datamodel/print.h"
#include "platform/support/callinfo.h"

#include <algorithm>
#include <vector>

namespace voDMD {

// --- Classes ---------------------------------------------------------------------------------

Class::~Class() = default;

#define VO_DMD_CLASS(Type, text)        \
  Type* Type::get() {                   \
    static Type instance;               \
    return &instance;                   \
  }                                     \
  const char* Type::name() const { return text; }

VO_DMD_CLASS(GroupClass, "voDMD::GroupClass")
VO_DMD_CLASS(MeshClass, "voDMD::MeshClass")
VO_DMD_CLASS(KLTMeshClass, "voDMD::KLTMeshClass")
VO_DMD_CLASS(KLTPrinterClass, "voDMD::KLTPrinterClass")
VO_DMD_CLASS(CameraClass, "voDMD::CameraClass")
#undef VO_DMD_CLASS

// --- Sub-objects -----------------------------------------------------------------------------

int SubObject::compare(const SubObject& other) const noexcept {
  const std::less<const void*> before;
  if (owner_ != other.owner_) return before(owner_, other.owner_) ? -1 : 1;
  if (kind_ != other.kind_) return kind_ < other.kind_ ? -1 : 1;
  if (payload_.get() != other.payload_.get()) return before(payload_.get(), other.payload_.get()) ? -1 : 1;
  return 0;
}

// --- Attributes ------------------------------------------------------------------------------

Attribute::Attribute(voDMD::Object* owner) : voTXN::Object(&owner->document()->txnManager()), owner_(owner) {}

Attribute::~Attribute() = default;

void Attribute::modified() { owner_->attributeModified(this); }

void Attribute::onSiblingModified(Attribute*) {}

void Attribute::onTxnRestored() { modified(); }

void Attribute::onTxnModified() { owner_->noteTxnTouched(); }

// --- Objects ---------------------------------------------------------------------------------

Object::Object(Document& document, Class* objectClass)
    : voTXN::RefCountedObject(&document.txnManager()), document_(&document), class_(objectClass) {}

Object::~Object() {
  // Children first (they outlive this object when held elsewhere, and lose their parent), then the
  // attributes, which forget their transaction records as they go.
  //
  // Released through a work list rather than child by child down the tree: a child this list
  // holds last hands its own children to the list before it goes, so it dies childless and the
  // depth of a tree costs heap, not stack.
  std::vector<ru::Reference<Object>> pending(children_.begin(), children_.end());
  children_.clear();
  for (const auto& child : pending) {
    if (child && child->parent_ == this) child->parent_ = nullptr;
  }
  std::size_t next = 0;
  while (next < pending.size()) {
    ru::Reference<Object> child = std::move(pending[next++]);
    if (child && child->refCount() == 1) {
      for (auto& grandchild : child->children_) {
        if (grandchild && grandchild->parent_ == child.get()) grandchild->parent_ = nullptr;
        pending.push_back(std::move(grandchild));
      }
      child->children_.clear();
    }
    child.reset();
    // Keep the list short on wide trees: drop the released front once it is half the list.
    if (next > 1024 && next * 2 > pending.size()) {
      pending.erase(pending.begin(), pending.begin() + static_cast<std::ptrdiff_t>(next));
      next = 0;
    }
  }
  attributes_.clear();
}

ru::Reference<Object> Object::create(Document& document, Class* objectClass) {
  return ru::Reference<Object>(new Object(document, objectClass ? objectClass : GroupClass::get()));
}

void Object::setName(const ruString::CString& name) {
  detail::EditScope scope(*txnManager(), "Rename");
  txnWillWrite();
  name_ = name;
}

bool Object::isInDocument() const noexcept {
  const Object* o = this;
  while (o->parent_) o = o->parent_;
  return o == document_->root();
}

void Object::onTransact(voTXN::Serializer& serializer) {
  serializer.beginScope(this, 0);
  voTXN::RefCountedObject::onTransact(serializer);
  serializer.field(name_);
  serializer.field(parent_);
  serializer.field(children_);
  serializer.endScope();
}

void Object::onTxnModified() { noteTxnTouched(); }

void Object::noteTxnTouched() {
  const voTXN::Stamp stamp = txnManager()->currentStamp();
  if (txnSignalled_ == stamp) return;
  txnSignalled_ = stamp;
  sigTxnModified.emit(this);
}

void Object::attributeModified(Attribute* attribute) {
  for (const auto& sibling : attributes_) {
    if (sibling.get() != attribute) sibling->onSiblingModified(attribute);
  }
  sigModified.emit(Modification(attribute));
  document_->objectChanged(this);
}

// --- Iteration -------------------------------------------------------------------------------

ObjectIterator::ObjectIterator() {
  if (Document* document = Document::current()) {
    stack_.emplace_back(document->root(), 0);
    next();
  }
}

ObjectIterator::ObjectIterator(Object* object) : current_(object) {
  if (object) stack_.emplace_back(object, 0);
}

void ObjectIterator::next() {
  current_ = nullptr;
  while (!stack_.empty()) {
    auto& [object, index] = stack_.back();
    if (index < object->numChildren()) {
      Object* child = object->getChild(index++);
      stack_.emplace_back(child, 0);
      current_ = child;
      return;
    }
    stack_.pop_back();
  }
}

// --- Documents -------------------------------------------------------------------------------

Document::Document(voTXN::Manager& manager) : manager_(manager) {
  root_ = Object::create(*this, GroupClass::get());
  cameraHolder_ = Object::create(*this, CameraClass::get());
  camera_ = cameraHolder_->addAttribute<Camera>();
  decoration_.reset(new KLTDecoration(*this));
  manager_.sigRestoring.connect(this, &Document::onRestoring, client_);
  manager_.sigTransaction.connect(this, &Document::onTransaction, client_);
}

Document::~Document() {
  client_.disconnectAll();
  // The history may hold objects of this document; they must not outlive it.
  manager_.clearHistory();
  decoration_.reset();
  root_.reset();
  cameraHolder_.reset();
}

void Document::setToleranceTable(const Tolerances& tolerances) {
  tolerances_ = tolerances;
  if (decoration_) decoration_->recomputeAll();
}

Document* Document::current() { return voSupport::ci().find<Document>(); }

bool Document::insert(const ru::Reference<Object>& object, Object* parent) {
  if (!object || object->document_ != this || object->parent_ || object.get() == root_.get()) return false;
  if (!parent) parent = root_.get();
  if (parent->document_ != this) return false;
  for (Object* a = parent; a; a = a->parent_) {
    if (a == object.get()) return false;
  }
  // Under a parent outside the tree the object only joins that subtree, which is announced, as
  // one, when it is inserted itself.
  const bool intoTree = parent->isInDocument();
  detail::EditScope scope(manager_, "Insert");
  parent->txnWillWrite();
  object->txnWillWrite();
  parent->children_.push_back(object);
  object->parent_ = parent;
  if (intoTree) {
    logStructure(object.get(), true);
    announce(object.get(), true);
    sigObjectAdded.emit(object.get());
    objectChanged(object.get());
  }
  return true;
}

bool Document::remove(Object* object) {
  if (!object || object->document_ != this || object == root_.get() || !object->isInDocument()) return false;
  // Keep it alive through the detachment; the transaction then holds it.
  ru::Reference<Object> keep(object);
  detail::EditScope scope(manager_, "Remove");
  sigObjectRemoved.emit(object);
  logStructure(object, false);
  announce(object, false);
  Object* parent = object->parent_;
  parent->txnWillWrite();
  object->txnWillWrite();
  auto& siblings = parent->children_;
  siblings.erase(std::find(siblings.begin(), siblings.end(), keep));
  object->parent_ = nullptr;
  objectChanged(object);
  return true;
}

void Document::announce(Object* object, bool added) {
  for (ObjectIterator it(object); it.valid(); it.next()) {
    Object* o = it.getObject();
    if (added) {
      announced_[o] = Announced{o->parent_, ++announceOrder_};
    } else {
      announced_.erase(o);
    }
  }
}

namespace {

// One structural edit of a transaction, kept with it.
struct StructureOp {
  ru::Reference<Object> object;
  bool inserted;
};
using StructureLog = ru::vector<StructureOp>;

} // namespace

void Document::logStructure(Object* object, bool inserted) {
  voTXN::Transaction* transaction = manager_.openTransaction();
  if (!transaction) return;
  auto* log = static_cast<StructureLog*>(transaction->attachment(this));
  if (!log) {
    auto fresh = std::make_shared<StructureLog>();
    log = fresh.get();
    transaction->attach(this, std::move(fresh));
  }
  log->push_back(StructureOp{ru::Reference<Object>(object), inserted});
}

void Document::onRestoring(voTXN::Manager::Event event, const voTXN::Transaction* transaction) {
  const auto* log = transaction ? static_cast<const StructureLog*>(transaction->attachment(this)) : nullptr;
  if (!log) return;
  // The subtrees this restore will take out of the tree, announced while they are still whole:
  // undo and abort take out what the transaction inserted, redo what it removed.
  const bool backwards = event != voTXN::Manager::Event::Redone;
  ru::vector<Object*> leaving;
  auto consider = [&](const StructureOp& op) {
    if (op.inserted == backwards && announced_.count(op.object.get())) leaving.push_back(op.object.get());
  };
  if (backwards) {
    for (auto it = log->rbegin(); it != log->rend(); ++it) consider(*it);
  } else {
    for (const StructureOp& op : *log) consider(op);
  }
  auto leaves = [&](const Object* o) { return std::find(leaving.begin(), leaving.end(), o) != leaving.end(); };
  for (Object* object : leaving) {
    bool underAnother = false;
    for (const Object* a = object->parent_; a && !underAnother; a = a->parent_) underAnother = leaves(a);
    // Still announced: a root not yet taken out with an earlier one.
    if (underAnother || !announced_.count(object)) continue;
    sigObjectRemoved.emit(object);
    announce(object, false);
  }
}

void Document::objectChanged(Object* object) {
  if (decoration_) decoration_->objectChanged(object);
}

bool Document::touchedBy(const voTXN::Transaction* transaction) const {
  if (transaction->attachment(this)) return true;
  for (std::size_t i = 0; i < transaction->numRecords(); ++i) {
    const voTXN::Object* recorded = transaction->recordedObject(i);
    if (const auto* object = dynamic_cast<const Object*>(recorded); object && object->document_ == this) return true;
    if (const auto* attribute = dynamic_cast<const Attribute*>(recorded);
        attribute && attribute->owner()->document_ == this) {
      return true;
    }
  }
  return false;
}

void Document::onTransaction(voTXN::Manager::Event event, const voTXN::Transaction* transaction) {
  // Other documents may share the manager: only transactions of this one concern it.
  if (!transaction || transaction->empty() || !touchedBy(transaction)) return;
  if (event != voTXN::Manager::Event::Committed) resynchronise();
  sigTxnModified.emit(this);
}

void Document::resynchronise() {
  // Undo, redo and abort rewrite the tree wholesale: compare what is in it now with what was
  // announced, and tell the difference, a signal per subtree.
  ru::hash_map<Object*, Object*> now;
  for (ObjectIterator it(root_.get()); (it.next(), it.valid());) now[it.getObject()] = it.getObject()->parent_;

  // Removed subtrees first (in the order they were announced), while the transaction records
  // still hold their objects.
  ru::vector<std::pair<std::uint64_t, Object*>> removedRoots;
  for (const auto& [object, entry] : announced_) {
    if (now.count(object)) continue;
    const bool parentRemoved = entry.parent && announced_.count(entry.parent) && !now.count(entry.parent);
    if (!parentRemoved) removedRoots.emplace_back(entry.order, object);
  }
  std::sort(removedRoots.begin(), removedRoots.end());
  ru::vector<ru::Reference<Object>> keep;
  for (const auto& removed : removedRoots) keep.emplace_back(removed.second);
  for (const auto& removed : removedRoots) sigObjectRemoved.emit(removed.second);
  for (auto it = announced_.begin(); it != announced_.end();) {
    it = now.count(it->first) ? std::next(it) : announced_.erase(it);
  }

  // Added subtrees, in document order.
  ru::vector<Object*> addedRoots;
  for (ObjectIterator it(root_.get()); (it.next(), it.valid());) {
    Object* o = it.getObject();
    if (!announced_.count(o) && (o->parent_ == root_.get() || announced_.count(o->parent_))) addedRoots.push_back(o);
  }
  for (ObjectIterator it(root_.get()); (it.next(), it.valid());) {
    Object* o = it.getObject();
    if (!announced_.count(o)) announced_[o] = Announced{o->parent_, ++announceOrder_};
  }
  for (Object* object : addedRoots) sigObjectAdded.emit(object);
  if (decoration_) decoration_->recomputeAll();
}

} // namespace voDMD
