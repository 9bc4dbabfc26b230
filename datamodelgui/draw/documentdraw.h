#pragma once

#include "datamodelgui/export.h"
#include "datamodelgui/selection/selectionset.h"
#include "platform/base/containers.h"
#include "platform/base/reference.h"
#include "platform/base/signal.h"
#include "platform/support/broadcaster.h"

#include <typeindex>

namespace voDMD {
class Document;
class Object;
}  // namespace voDMD

namespace voGR {
class DrawPolicy;
}

namespace voDMG {

class DocumentDraw;
class ObjectDraw;

// Makes the drawing object of a document object; the document draw owns the result.
using ObjectDrawFactory = ObjectDraw* (*)(DocumentDraw*, voDMD::Object*);

// The drawing of one document: a drawing object (ObjectDraw) for every document object whose class
// has a factory, kept in step with the document's signals, and the per-class draw policies. Each
// frame's draw() re-emits only the objects marked modified, so an idle frame costs a flag test.
// The draw system, selection set and candidate set come from voSupport::ci() at each draw.
// Owned by the host; ends only through destroy(), which gives back the drawing id.
class DMGUI_API DocumentDraw {
public:
  // Listens to `document` (not owned; it must outlive this object) and installs the factory of
  // plain meshes (voDMD::MeshClass makes a MeshDraw).
  explicit DocumentDraw(voDMD::Document* document);
  DocumentDraw(const DocumentDraw&) = delete;
  DocumentDraw& operator=(const DocumentDraw&) = delete;

  // Deletes every drawing object (their items leave the database), frees the drawing id in the
  // draw system of voSupport::ci(), then deletes this object. The only way to end it.
  void destroy();

  // One frame: brings the registry up to date, then, when something is marked, lets each drawing
  // object draw with its selected and hover ranges and its class's policy, and emits onPostDraw.
  // The drawing id is taken from the draw system on the first draw that does work.
  void draw();
  // Brings the registry up to date with the document (nothing when it is known to be).
  void update();
  void setModified() noexcept { modified_ = true; }
  // The drawing id; -1 before the first draw that did work.
  int getID() const noexcept { return id_; }

  // The drawing object of `object`, or null.
  ObjectDraw* getDraw(voDMD::Object* object) const;
  // Replaces the drawing object of `object` and takes ownership of `draw` (not null).
  void setDraw(voDMD::Object* object, ObjectDraw* draw);
  // Makes the drawing object of `object` anew from its class's factory; nothing without one.
  void resetDraw(voDMD::Object* object);
  // Installs or replaces the factory for document objects whose voDMD::Class has this dynamic type.
  void setDrawFactory(std::type_index classType, ObjectDrawFactory factory);

  // Policies stack per drawing-object class (its exact dynamic type). The top of the stack, or
  // null when the class has no stack. A stack popped empty must not be read.
  ru::Reference<voGR::DrawPolicy> getDrawPolicy(std::type_index drawType) const;
  // Replaces the top (creating the stack with `policy` the first time); marks that class's objects.
  void setDrawPolicy(std::type_index drawType, ru::Reference<voGR::DrawPolicy> policy);
  void pushDrawPolicy(std::type_index drawType, ru::Reference<voGR::DrawPolicy> policy);
  // Callers pop only what they pushed.
  void popDrawPolicy(std::type_index drawType);
  // Marks every drawing object of exactly that class modified, so that a changed policy shows.
  void setDrawPolicyModified(std::type_index drawType);

  // Connected by the host to SelectionSet::sigMembershipChanged: marks the objects of the changed
  // items (those without a drawing object are passed over).
  void onSelectionModified(const ru::set<SelectionItem>& items);

  // Number of drawing objects; for tests and diagnostics.
  int numDraws() const noexcept { return static_cast<int>(objectDraws_.size()); }

  // Emitted at the end of every draw that did work: the draw items are current.
  ruRTB::SignalVoid onPostDraw;

private:
  // Deleted through destroy() only.
  virtual ~DocumentDraw();

  void addObject(voDMD::Object* object);
  void markMembersDirty(std::type_index drawType);
  void onObjectAdded(voDMD::Object* object);
  void onObjectRemoved(voDMD::Object* object);
  void onTxnModified(const voDMD::Document* document);
  void rebuild();

  using PolicyStack = ru::vector<ru::Reference<voGR::DrawPolicy>>;

  ruRTB::SignalClient client_;
  voDMD::Document* document_;
  int id_ = -1;
  ru::hash_map<voDMD::Object*, ObjectDraw*> objectDraws_;
  bool modified_ = true;
  bool needsRebuild_ = true;
  ru::map<std::type_index, PolicyStack> drawPolicies_;
  ru::map<std::type_index, ObjectDrawFactory> drawFactories_;
};

// Broadcast by the host once a new DocumentDraw exists; handlers install factories and policies on
// it.
class DMGUI_API RegisterObjectDrawMsg : public voSupport::Message {
public:
  explicit RegisterObjectDrawMsg(DocumentDraw& documentDraw) noexcept : documentDraw_(&documentDraw) {}
  DocumentDraw& documentDraw() const noexcept { return *documentDraw_; }

private:
  DocumentDraw* documentDraw_;
};

// Called by the host once at start, with its voSupport::Broadcaster in the call info: subscribes the
// document classes' reflection exposure to voSupport::InitializeReflectionMsg at priority (10, 0)
// the first time (and again after the broadcaster's reset), then runs the module hooks.
DMGUI_API void initialize();

}  // namespace voDMG
