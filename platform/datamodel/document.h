#pragma once

#include "platform/base/containers.h"
#include "platform/base/reference.h"
#include "platform/base/signal.h"
#include "platform/base/strings.h"
#include "platform/datamodel/export.h"
#include "platform/support/broadcaster.h"
#include "platform/transaction/transaction.h"

#include <cstdint>
#include <memory>
#include <utility>

// The document model: a document holds a tree of objects; each object has a class and an ordered
// list of attributes. Every edit is transacted on the document's voTXN::Manager, so undo and redo
// restore it exactly and fire the same signals. An edit made while no transaction is open runs in
// a transaction of its own.
namespace voDMD {

class Attribute;
class Camera;
class Document;
class KLTDecoration;
class KLTPrinter;
class Object;

// What an object is. Classes are stateless singletons; code keys on their dynamic type.
class VO_DMD_API Class {
public:
  virtual ~Class();
  // The class's name, for messages.
  virtual const char* name() const = 0;
};

// An object that only groups others.
class VO_DMD_API GroupClass final : public Class {
public:
  static GroupClass* get();
  const char* name() const override;
};
// A plain mesh: `Mesh`, `Transform`, `BoundingBox`.
class VO_DMD_API MeshClass final : public Class {
public:
  static MeshClass* get();
  const char* name() const override;
};
// A printable mesh: `KLTMesh`, `Transform`, `KLTMeshBBox`.
class VO_DMD_API KLTMeshClass final : public Class {
public:
  static KLTMeshClass* get();
  const char* name() const override;
};
// The printer: `KLTPrinter`.
class VO_DMD_API KLTPrinterClass final : public Class {
public:
  static KLTPrinterClass* get();
  const char* name() const override;
};
// The holder of the document's camera: `Camera`.
class VO_DMD_API CameraClass final : public Class {
public:
  static CameraClass* get();
  const char* name() const override;
};

// Tolerances of a document, in document units (millimetres for printers).
struct VO_DMD_API Tolerances {
  // Lengths closer than this count as equal.
  double linear = 1e-4;
  // Relative slack of boxes: an oriented box grows by this fraction of its size on each side.
  double box = 0.0;
  // How far a print mesh may pass the printer's useable volume before it counts as out of bounds.
  double outOfBounds = 1e-3;
  // Holes whose rim has at most this many edges are closed by a repair.
  int maxHoleEdges = 64;
};

// Part of an object: its owner and a payload (a mesh selection, say). Sub-objects compare by
// owner, then payload kind, then payload identity, never by payload contents, so one whose payload
// is edited in place keeps its place in ordered sets.
class VO_DMD_API SubObject {
public:
  enum Kind { None = 0, Selection = 1 };

  // The null sub-object.
  SubObject() = default;
  SubObject(voDMD::Object* owner, Kind kind, ru::Reference<ru::ReferenceCount> payload)
      : owner_(owner), kind_(kind), payload_(std::move(payload)) {}

  voDMD::Object* owner() const noexcept { return owner_; }
  Kind kind() const noexcept { return kind_; }
  ru::ReferenceCount* payload() const noexcept { return payload_.get(); }
  bool isNull() const noexcept { return owner_ == nullptr && !payload_; }
  explicit operator bool() const noexcept { return !isNull(); }

  // Negative, zero or positive; a null sub-object sorts first.
  int compare(const SubObject& other) const noexcept;
  bool operator==(const SubObject& other) const noexcept { return compare(other) == 0; }
  bool operator<(const SubObject& other) const noexcept { return compare(other) < 0; }

private:
  Object* owner_ = nullptr;  // leading field: the object this is part of
  Kind kind_ = None;
  ru::Reference<ru::ReferenceCount> payload_;
};

// The attribute that changed, handed to an object's modification signal.
class VO_DMD_API Modification {
public:
  explicit Modification(Attribute* attribute) noexcept : attribute_(attribute) {}
  Attribute* getAttribute() const noexcept { return attribute_; }

private:
  Attribute* attribute_;
};

// A part of an object's state. Attributes belong to their object and die with it; their fields are
// transacted on the document's manager.
class VO_DMD_API Attribute : public voTXN::Object {
public:
  ~Attribute() override;

  // The object this attribute belongs to; never null.
  voDMD::Object* owner() const noexcept { return owner_; }

protected:
  explicit Attribute(voDMD::Object* owner);

  // Tells the owner and its listeners that this attribute changed: sibling attributes hear it
  // first (so derived values are current), then the owner's modification signal fires.
  void modified();

  // Hears another attribute of the same object change (a transform moving a box, say).
  virtual void onSiblingModified(Attribute* sibling);

  // Undo and redo: an attribute brought back announces itself as modified.
  void onTxnRestored() override;
  void onTxnModified() override;

private:
  friend class voDMD::Object;
  voDMD::Object* owner_;
};

// A node of a document: a class, attributes in order, children in order. Reference counted; a
// document holds its objects, and transactions hold removed ones for as long as they can be undone.
class VO_DMD_API Object : public voTXN::RefCountedObject {
public:
  // A new object of `documentClass` for `document`, not yet in the tree: add attributes, then insert
  // it with Document::insert.
  static ru::Reference<Object> create(Document& document, Class* objectClass);
  ~Object() override;

  Class* getClass() const noexcept { return class_; }
  Document* document() const noexcept { return document_; }
  const ruString::CString& name() const noexcept { return name_; }
  // Transacted.
  void setName(const ruString::CString& name);

  // Creates and appends an attribute of type T, constructed with this object and `args`. Meant for
  // building an object before it is inserted; the list itself is not transacted.
  template <class T, class... Args>
  T* addAttribute(Args&&... args) {
    std::unique_ptr<T> attribute(new T(this, std::forward<Args>(args)...));
    T* raw = attribute.get();
    attributes_.push_back(std::move(attribute));
    return raw;
  }
  std::size_t numAttributes() const noexcept { return attributes_.size(); }
  Attribute* getAttribute(std::size_t index) const noexcept {
    return index < attributes_.size() ? attributes_[index].get() : nullptr;
  }
  // The first attribute, in list order, that casts to T; null when none does.
  template <class T>
  T* findAttribute() const noexcept {
    for (const auto& attribute : attributes_) {
      if (T* found = dynamic_cast<T*>(attribute.get())) return found;
    }
    return nullptr;
  }

  Object* parent() const noexcept { return parent_; }
  std::size_t numChildren() const noexcept { return children_.size(); }
  Object* getChild(std::size_t index) const noexcept {
    return index < children_.size() ? children_[index].get() : nullptr;
  }
  // True while the object hangs under its document's root.
  bool isInDocument() const noexcept;

  // Fires at each change of an attribute, with that attribute, also when undo or redo changes it.
  ruRTB::SignalArg<const Modification&> sigModified;
  // Fires once at the end of each commit, undo or redo of a transaction that touched the object
  // or one of its attributes.
  ruRTB::SignalArg<const Object*> sigTxnModified;

  void onTransact(voTXN::Serializer& serializer) override;
  void onTxnModified() override;

private:
  friend class Attribute;
  friend class Document;
  Object(Document& document, Class* objectClass);
  void attributeModified(Attribute* attribute);
  void noteTxnTouched();

  Document* document_;
  Class* class_;
  ru::vector<std::unique_ptr<Attribute>> attributes_;
  // Transacted.
  ruString::CString name_;
  Object* parent_ = nullptr;
  ru::vector<ru::Reference<Object>> children_;
  // The manager stamp at which sigTxnModified last fired, so it fires once per transaction.
  voTXN::Stamp txnSignalled_ = 0;
};

// Walks an object and everything beneath it, parents before children, in child order; the default
// form walks every object of the current document (the voDMD::Document of voSupport::ci()).
class VO_DMD_API ObjectIterator {
public:
  ObjectIterator();
  explicit ObjectIterator(Object* object);

  bool valid() const noexcept { return current_ != nullptr; }
  Object* getObject() const noexcept { return current_; }
  void next();

private:
  ru::vector<std::pair<Object*, std::size_t>> stack_;  // (object, next child to visit)
  Object* current_ = nullptr;
};

// A document: the object tree, the camera, the tolerances and the decoration (the printer). It is
// what a host enters in the call info as the current document.
class VO_DMD_API Document {
public:
  // `manager` transacts every edit and must outlive the document. Several documents may share one
  // manager; each hears only of the transactions that touch it.
  explicit Document(voTXN::Manager& manager);
  Document(const Document&) = delete;
  Document& operator=(const Document&) = delete;
  // Clears the manager's whole history: its records hold this document's objects, which must not
  // outlive it.
  ~Document();

  // The document of the current call info, or null.
  static Document* current();

  voTXN::Manager& txnManager() const noexcept { return manager_; }

  // The invisible root whose children are the top-level objects.
  Object* root() const noexcept { return root_.get(); }
  // Inserts `object` (made for this document, not in the tree) as the last child of `parent`, or at
  // the top level when `parent` is null. Transacted; when `parent` is in the tree, fires
  // sigObjectAdded once, with `object`, for it and everything beneath it (a subtree may be built
  // under a parent that is not yet in the tree, then inserted whole). False, changing nothing, for
  // a null object, one of another document, one that already has a parent, a parent of another
  // document, or an object that would become its own ancestor.
  bool insert(const ru::Reference<Object>& object, Object* parent = nullptr);
  // Takes `object` and everything beneath it out of the tree. Transacted; sigObjectRemoved fires
  // first, while the subtree can still be walked. False for an object not in this document.
  bool remove(Object* object);

  // The camera of the document (an attribute of an object outside the tree).
  Camera* camera() const noexcept { return camera_; }
  const Tolerances& getToleranceTable() const noexcept { return tolerances_; }
  // Not transacted (a setting of the document, not an edit). Out-of-bounds states are reassessed.
  void setToleranceTable(const Tolerances& tolerances);
  KLTDecoration& decoration() const noexcept { return *decoration_; }

  // Once per inserted subtree (with its root), also when undo or redo brings one back.
  ruRTB::SignalArg<Object*> sigObjectAdded;
  // Once per removed subtree (with its root), before it leaves, also when undo or redo takes one out.
  ruRTB::SignalArg<Object*> sigObjectRemoved;
  // After every commit, undo, redo or abort of a transaction that changed something.
  ruRTB::SignalArg<const Document*> sigTxnModified;

private:
  friend class voDMD::Object;
  friend class Attribute;
  friend class KLTDecoration;
  struct PrintState;
  void announce(Object* object, bool added);
  // Notes an insertion or a removal in the open transaction, so that undo and redo can announce
  // removals before they take the subtree apart.
  void logStructure(Object* object, bool inserted);
  void onRestoring(voTXN::Manager::Event event, const voTXN::Transaction* transaction);
  bool touchedBy(const voTXN::Transaction* transaction) const;
  void onTransaction(voTXN::Manager::Event event, const voTXN::Transaction* transaction);
  void objectChanged(Object* object);
  void resynchronise();

  voTXN::Manager& manager_;
  ruRTB::SignalClient client_;
  ru::Reference<Object> root_;
  ru::Reference<Object> cameraHolder_;
  Camera* camera_ = nullptr;
  Tolerances tolerances_;
  std::unique_ptr<KLTDecoration> decoration_;
  // Every object in the tree, with the parent it had when it was announced.
  struct Announced {
    Object* parent;
    std::uint64_t order;
  };
  ru::hash_map<Object*, Announced> announced_;
  std::uint64_t announceOrder_ = 0;
  bool replaying_ = false;
};

// Broadcast when a new document starts, once the host has entered it (and whatever draws it) in the
// call info.
class VO_DMD_API NewDocumentMsg : public voSupport::Message {
public:
  explicit NewDocumentMsg(Document* document) noexcept : document_(document) {}
  Document* document() const noexcept { return document_; }

private:
  Document* document_;
};

} // namespace voDMD
