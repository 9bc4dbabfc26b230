#pragma once

#include "datamodelgui/export.h"
#include "datamodelgui/selection/selectionset.h"
#include "platform/base/color.h"
#include "platform/base/containers.h"
#include "platform/base/reference.h"
#include "platform/base/signal.h"

namespace voDMD {
class Mesh;
class Modification;
class Object;
}  // namespace voDMD

namespace ruGeom {
class Camera;
}

namespace voGR {
class DrawContext;
class DrawData;
class DrawPolicy;
class HitRecord;
}  // namespace voGR

namespace voDMG {

class DocumentDraw;
class SnapItemFactory;

// The drawing of one document object. It listens to its object and remembers that it must be
// redrawn; the next DocumentDraw::draw calls onDraw, which emits draw items through voGR::Draw
// under the sources this object declared. Its items stay in the database until it emits again or
// dies: the destructor destroys its draw data, which takes the items out of every world.
// Owned by its DocumentDraw, which deletes it through the virtual destructor. Needs the
// voGR::DrawSystem in voSupport::ci() when made.
class DMGUI_API ObjectDraw {
public:
  // Listens to `object` (not owned) and declares this object as its first draw source.
  ObjectDraw(DocumentDraw* documentDraw, voDMD::Object* object);
  ObjectDraw(const ObjectDraw&) = delete;
  ObjectDraw& operator=(const ObjectDraw&) = delete;
  virtual ~ObjectDraw();

  // Calls onDraw when marked modified, then clears the mark (so a setModified from inside onDraw
  // is lost, on purpose); does nothing otherwise. A null policy still draws.
  void draw(voGR::DrawContext& context, SelectionIterator selectedBegin, SelectionIterator selectedEnd,
            SelectionIterator hoverBegin, SelectionIterator hoverEnd, ru::Reference<voGR::DrawPolicy> policy);
  // Marks this object and its document draw for the next frame.
  void setModified();
  bool isModified() const noexcept { return modified_; }
  // When on, every change of the document's camera (voDMD::Camera of voSupport::ci()) redraws.
  void setViewDependent(bool on);
  bool isViewDependent() const noexcept { return viewDependent_; }
  // Makes `source` a draw source of this object: a draw data block, owned here, whose items the
  // destructor removes. The draw system is that of voSupport::ci().
  void declareDrawDataSource(void* source);
  // The draw data of a declared source; null for another.
  voGR::DrawData* getDrawData(void* source) const;

  voDMD::Object* getObject() const noexcept { return object_; }
  DocumentDraw* getDocumentDraw() const noexcept { return documentDraw_; }
  // The whole object; the hit record is not read.
  SelectionItem getItem(const voGR::HitRecord& hit);
  SelectionItem getSubObjectItem(const voGR::HitRecord& hit);
  // Where a snap under the cursor gets its items for this hit; null when the object offers none.
  ru::Reference<SnapItemFactory> createSnapItemFactory(const voGR::HitRecord& hit);

protected:
  // Emits the object's items. Selected and hover ranges are the object's items in the selection
  // and candidate sets (empty when none); the policy is its class's, or null.
  virtual void onDraw(voGR::DrawContext& context, SelectionIterator selectedBegin, SelectionIterator selectedEnd,
                      SelectionIterator hoverBegin, SelectionIterator hoverEnd,
                      ru::Reference<voGR::DrawPolicy> policy) = 0;
  // The part of the object a hit names; the default is the invalid item.
  virtual SelectionItem onGetSubObjectItem(const voGR::HitRecord& hit);
  // An attribute of the object changed; the default redraws.
  virtual void onObjectModified(const voDMD::Modification& modification);
  // A transaction touched the object; called after the object is already marked. Default: nothing.
  virtual void onObjectTxnModified();
  // The snap items of a hit; the default offers none.
  virtual ru::Reference<SnapItemFactory> onCreateSnapItemFactory(const voGR::HitRecord& hit);

  ruRTB::SignalClient client_;

private:
  void onObjectTxnModified_(const voDMD::Object* object);
  void onCameraChanged(ruGeom::Camera* camera);

  DocumentDraw* documentDraw_;
  voDMD::Object* object_;
  bool modified_ = true;
  bool viewDependent_ = false;
  ru::map<void*, voGR::DrawData*> drawDataSources_;
  ruRTB::Connection* cameraConnection_ = nullptr;
};

// The drawing of a plain mesh object (voDMD::Mesh and voDMD::Transform attributes): one item per
// sub-mesh, labelled by index, coloured and shaded by state; with debug channel 12 on, a
// wireframe and the open edges as overlay items.
class DMGUI_API MeshDraw : public ObjectDraw {
public:
  // Draws the owner of `mesh`, and listens to the debug channels.
  MeshDraw(DocumentDraw* documentDraw, voDMD::Mesh* mesh);
  ~MeshDraw() override;

  // Colours of the looks: plain, selected (also when hovered), hovered.
  static const ruUtil::Color kDefaultColor;
  static const ruUtil::Color8 kSelectedColor;
  static const ruUtil::Color8 kHoverColor;

protected:
  void onDraw(voGR::DrawContext& context, SelectionIterator selectedBegin, SelectionIterator selectedEnd,
              SelectionIterator hoverBegin, SelectionIterator hoverEnd,
              ru::Reference<voGR::DrawPolicy> policy) override;
  SelectionItem onGetSubObjectItem(const voGR::HitRecord& hit) override;
  // A MeshSnapFactory for the object's mesh: its corners and faces under the cursor.
  ru::Reference<SnapItemFactory> onCreateSnapItemFactory(const voGR::HitRecord& hit) override;

private:
  void onDebugChannel(int code);
};

}  // namespace voDMG
