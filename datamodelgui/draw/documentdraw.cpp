#include "datamodelgui/draw/documentdraw.h"

#include "datamodelgui/draw/objectdraw.h"
#include "datamodelgui/print/printerdraw.h"
#include "datamodelgui/selection/hittester.h"
#include "platform/datamodel/attributes.h"
#include "platform/datamodel/document.h"
#include "platform/graphics/draw.h"
#include "platform/support/callinfo.h"
#include "platform/support/debug.h"

#include <typeinfo>

namespace voDMG {

namespace {

// Plain meshes draw through MeshDraw; an object without a mesh attribute gets no drawing object.
ObjectDraw* makeMeshDraw(DocumentDraw* documentDraw, voDMD::Object* object) {
  voDMD::Mesh* mesh = object->findAttribute<voDMD::Mesh>();
  return mesh ? new MeshDraw(documentDraw, mesh) : nullptr;
}

// The items of one object within a set: all items of an object stand together, the whole-object
// item first, so one lower-bound search and a short walk find them.
void objectRange(const SelectionItems& items, voDMD::Object* object, SelectionIterator& begin, SelectionIterator& end) {
  begin = items.lower_bound(SelectionItem(object));
  end = begin;
  while (end != items.end() && end->getObject() == object) ++end;
}

}  // namespace

DocumentDraw::DocumentDraw(voDMD::Document* document) : document_(document) {
  document_->sigObjectAdded.connect(this, &DocumentDraw::onObjectAdded, client_);
  document_->sigObjectRemoved.connect(this, &DocumentDraw::onObjectRemoved, client_);
  document_->sigTxnModified.connect(this, &DocumentDraw::onTxnModified, client_);
  setDrawFactory(typeid(voDMD::MeshClass), &makeMeshDraw);
}

DocumentDraw::~DocumentDraw() {
  // destroy() has emptied the registry; the trees and connections go with the members.
  for (auto& entry : objectDraws_) delete entry.second;
}

void DocumentDraw::destroy() {
  for (auto& entry : objectDraws_) delete entry.second;
  objectDraws_.clear();
  if (id_ != -1) {
    if (auto* system = voSupport::ci().find<voGR::DrawSystem>()) system->freeID(id_);
    id_ = -1;
  }
  delete this;
}

void DocumentDraw::addObject(voDMD::Object* object) {
  auto factory = drawFactories_.find(std::type_index(typeid(*object->getClass())));
  // No factory (or a null one): the object is simply not drawn.
  if (factory == drawFactories_.end() || !factory->second) return;
  // Callers make sure there is no entry yet.
  if (ObjectDraw* made = factory->second(this, object)) objectDraws_[object] = made;
}

void DocumentDraw::onObjectAdded(voDMD::Object* object) {
  for (voDMD::ObjectIterator it(object); it.valid(); it.next()) addObject(it.getObject());
  setModified();
}

void DocumentDraw::onObjectRemoved(voDMD::Object* object) {
  // Destroying a drawing object takes its items with it, so nothing needs re-emitting.
  for (voDMD::ObjectIterator it(object); it.valid(); it.next()) {
    auto found = objectDraws_.find(it.getObject());
    if (found == objectDraws_.end()) continue;
    delete found->second;
    objectDraws_.erase(found);
  }
}

void DocumentDraw::onTxnModified(const voDMD::Document*) {
  needsRebuild_ = true;
  rebuild();
}

void DocumentDraw::update() { rebuild(); }

void DocumentDraw::rebuild() {
  if (!needsRebuild_) return;
  needsRebuild_ = false;
  // Every object of this document, the invisible root left out: what the default iterator walks
  // when this document is the current one, without needing it to be.
  std::size_t entriesSeen = 0;
  voDMD::ObjectIterator walk(document_->root());
  for (walk.next(); walk.valid(); walk.next()) {
    voDMD::Object* object = walk.getObject();
    if (objectDraws_.find(object) != objectDraws_.end()) {
      ++entriesSeen;
    } else {
      // An object of a class with no factory lands here at every rebuild, and only sets modified.
      addObject(object);
      if (objectDraws_.find(object) != objectDraws_.end()) ++entriesSeen;
      modified_ = true;
    }
  }
  // Every entry belongs to an object met above: nothing is stale. This is the usual case, and it
  // spares the set of present objects that finding stale entries needs.
  if (entriesSeen == objectDraws_.size()) return;
  ru::hash_set<voDMD::Object*> present;
  present.reserve(entriesSeen);
  voDMD::ObjectIterator again(document_->root());
  for (again.next(); again.valid(); again.next()) present.insert(again.getObject());
  for (auto entry = objectDraws_.begin(); entry != objectDraws_.end();) {
    auto current = entry++;
    if (present.count(current->first)) continue;
    delete current->second;
    objectDraws_.erase(current);
    modified_ = true;
  }
}

void DocumentDraw::draw() {
  rebuild();
  // An idle frame stops here: no walk and no onPostDraw.
  if (!modified_) return;
  modified_ = false;
  voSupport::CallInfo& info = voSupport::ci();
  auto* system = info.find<voGR::DrawSystem>();
  if (id_ == -1 && system) id_ = system->allocateID();
  voGR::DrawContext context(system, id_);

  static const SelectionItems none;
  const SelectionSet* selection = info.find<SelectionSet>();
  const SelectionItems& selected = selection ? selection->items() : none;
  const CandidateSet* candidates = info.find<CandidateSet>();
  const SelectionItems* hover = candidates ? &candidates->items() : &none;

  for (auto& entry : objectDraws_) {
    SelectionIterator selectedBegin, selectedEnd, hoverBegin, hoverEnd;
    objectRange(selected, entry.first, selectedBegin, selectedEnd);
    objectRange(*hover, entry.first, hoverBegin, hoverEnd);
    ObjectDraw* objectDraw = entry.second;
    ru::Reference<voGR::DrawPolicy> policy;
    auto stack = drawPolicies_.find(std::type_index(typeid(*objectDraw)));
    if (stack != drawPolicies_.end() && !stack->second.empty()) policy = stack->second.back();
    // An object that is not marked does nothing here.
    objectDraw->draw(context, selectedBegin, selectedEnd, hoverBegin, hoverEnd, policy);
  }
  onPostDraw.emit();
}

ObjectDraw* DocumentDraw::getDraw(voDMD::Object* object) const {
  auto found = objectDraws_.find(object);
  return found == objectDraws_.end() ? nullptr : found->second;
}

void DocumentDraw::setDraw(voDMD::Object* object, ObjectDraw* draw) {
  auto found = objectDraws_.find(object);
  if (found != objectDraws_.end()) {
    delete found->second;
    objectDraws_.erase(found);
  }
  objectDraws_[object] = draw;
  draw->setModified();
  setModified();
}

void DocumentDraw::resetDraw(voDMD::Object* object) {
  auto factory = drawFactories_.find(std::type_index(typeid(*object->getClass())));
  if (factory == drawFactories_.end() || !factory->second) return;
  if (ObjectDraw* made = factory->second(this, object)) setDraw(object, made);
}

void DocumentDraw::setDrawFactory(std::type_index classType, ObjectDrawFactory factory) {
  drawFactories_.insert_or_assign(classType, factory);
}

ru::Reference<voGR::DrawPolicy> DocumentDraw::getDrawPolicy(std::type_index drawType) const {
  auto stack = drawPolicies_.find(drawType);
  if (stack == drawPolicies_.end() || stack->second.empty()) return nullptr;
  return stack->second.back();
}

void DocumentDraw::setDrawPolicy(std::type_index drawType, ru::Reference<voGR::DrawPolicy> policy) {
  PolicyStack& stack = drawPolicies_[drawType];
  if (stack.empty()) {
    stack.push_back(std::move(policy));
  } else {
    stack.back() = std::move(policy);
  }
  markMembersDirty(drawType);
}

void DocumentDraw::pushDrawPolicy(std::type_index drawType, ru::Reference<voGR::DrawPolicy> policy) {
  drawPolicies_[drawType].push_back(std::move(policy));
  markMembersDirty(drawType);
}

void DocumentDraw::popDrawPolicy(std::type_index drawType) {
  // The stack stays, even emptied.
  PolicyStack& stack = drawPolicies_[drawType];
  if (!stack.empty()) stack.pop_back();
  markMembersDirty(drawType);
}

void DocumentDraw::setDrawPolicyModified(std::type_index drawType) { markMembersDirty(drawType); }

void DocumentDraw::markMembersDirty(std::type_index drawType) {
  // Exact type equality: a policy for MeshDraw does not reach classes derived from it.
  for (auto& entry : objectDraws_) {
    if (std::type_index(typeid(*entry.second)) != drawType) continue;
    entry.second->setModified();
    modified_ = true;
  }
}

void DocumentDraw::onSelectionModified(const ru::set<SelectionItem>& items) {
  // The count is of items, not of objects.
  voSupport::DebugPrint("voDMG::DocumentDraw::onSelectionModified", voSupport::DebugHitTest)(
      "DocumentDraw marking %d objects modified by selection.", static_cast<int>(items.size()));
  needsRebuild_ = true;
  rebuild();
  for (const SelectionItem& item : items) {
    auto found = objectDraws_.find(item.getObject());
    if (found != objectDraws_.end()) found->second->setModified();
  }
}

// ---------------------------------------------------------------------------------------------
// Start-up

namespace {

// Cleared by the first initialize; the broadcaster sets it back on reset.
bool firstTime = true;

// Exposes the document classes to the reflection database. The registrations come with the
// script bindings; until then there is nothing to register.
void exposeDocumentClasses(voSupport::InitializeReflectionMsg&) {}

using StartupHook = void (*)();
// Run on every initialize, in order, up to the null entry: first the print classes (their exposure
// at (10, 1) and their RegisterObjectDrawMsg and NewDocumentMsg handlers).
constexpr StartupHook startupHooks[] = {&initializePrintClasses, nullptr};

}  // namespace

void initialize() {
  if (firstTime) {
    if (auto* broadcaster = voSupport::ci().find<voSupport::Broadcaster>()) {
      firstTime = false;
      broadcaster->addFirstTimeFlag(firstTime);
      broadcaster->addHandler<voSupport::InitializeReflectionMsg>(voSupport::Priority(10, 0), &exposeDocumentClasses);
    }
  }
  for (const StartupHook* hook = startupHooks; *hook; ++hook) (*hook)();
}

}  // namespace voDMG
