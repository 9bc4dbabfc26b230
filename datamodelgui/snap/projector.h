#pragma once

#include "datamodelgui/export.h"
#include "platform/base/linear.h"
#include "platform/base/reference.h"
#include "platform/transaction/transaction.h"

// Projection of the cursor onto lines and planes, for tools that drag things.
//
// A projector keeps its line or plane as transacted state under the data model's transaction
// manager, so an undo of the operation that moved the constraint moves it back too. Projection
// reads the camera from the call info on each call: positions are viewport pixels, y up, origin at
// the viewport's lower left corner; results are world points.
namespace voDMG {

// The shared half of the projectors. Abstract; held by ru::Reference, whose ref and unref are the
// virtual ones of voTXN::RefCountedObject, so the last release goes through txnDelete.
// Expects the call info to hold a voDMA::TxnManager (at construction) and a voDMD::Camera (at each
// projection); a missing entry is the caller's error.
class DMGUI_API Projector : public voTXN::RefCountedObject {
public:
  Projector(const Projector& other);
  Projector& operator=(const Projector& other);
  ~Projector() override;

  // The world point under the viewport position `position`. Never fails: where the ray through the
  // position is parallel to the constraint, the answer is what ruLinear::intersect gives then (the
  // foot of the eye on the line or plane). The side of the eye is not checked: a plane behind the
  // camera still gives a point.
  ruLinear::Point project(const ruLinear::Point2& position) const { return doProject(position); }
  // Projects `point` to the viewport and then that position as above. A point with no viewport
  // position (at or behind the eye) comes back unchanged.
  ruLinear::Point project(const ruLinear::Point& point) const;
  // Moves the constraint through `point`, keeping its direction or normal. Transacted.
  void update(const ruLinear::Point& point) { doUpdate(point); }

protected:
  // Takes the transaction manager of the call info's voDMA::TxnManager entry.
  Projector();

private:
  // Overrides give the world point for `position` (pixels, y up). Must not allocate: this runs on
  // every cursor move.
  virtual ruLinear::Point doProject(const ruLinear::Point2& position) const = 0;
  // Overrides move the constraint through `point`, recording the old value first.
  virtual void doUpdate(const ruLinear::Point& point) = 0;
};

// Keeps the answer on a line (a point and a direction). The direction is used as given; a zero one
// makes every projection the foot of the eye on the line's point, i.e. the line's point.
class DMGUI_API LineProjector : public Projector {
public:
  // A fresh projector on `line`.
  static ru::Reference<LineProjector> create(const ruLinear::Line& line);
  // `projector` as a line projector, or null when it is of another class. Releases `projector`.
  static ru::Reference<LineProjector> tryTypeCast(ru::Reference<Projector> projector);

  LineProjector(const LineProjector& other);
  LineProjector& operator=(const LineProjector& other);
  ~LineProjector() override;

  ruLinear::Line getLine() const noexcept { return line_; }
  // Transacted: records the old line before writing when this transaction has not yet.
  void setLine(ruLinear::Line line);

  void onTransact(voTXN::Serializer& serializer) override;
  // Records the line before the object goes, then tells the base.
  void onTxnDestroyed() override;

protected:
  explicit LineProjector(const ruLinear::Line& line);

private:
  ruLinear::Point doProject(const ruLinear::Point2& position) const override;
  void doUpdate(const ruLinear::Point& point) override;

  ruLinear::Line line_;
};

// Keeps the answer on a plane (a point and a normal).
class DMGUI_API PlaneProjector : public Projector {
public:
  // A fresh projector on `plane`.
  static ru::Reference<PlaneProjector> create(const ruLinear::Plane& plane);
  // `projector` as a plane projector (a supporting-plane projector is one), or null. Releases
  // `projector`.
  static ru::Reference<PlaneProjector> tryTypeCast(ru::Reference<Projector> projector);

  PlaneProjector(const PlaneProjector& other);
  PlaneProjector& operator=(const PlaneProjector& other);
  ~PlaneProjector() override;

  const ruLinear::Plane& getPlane() const noexcept { return plane_; }
  // Transacted: records the old plane before writing when this transaction has not yet.
  void setPlane(const ruLinear::Plane& plane);

  void onTransact(voTXN::Serializer& serializer) override;
  // Records the plane before the object goes, then tells the base.
  void onTxnDestroyed() override;

protected:
  explicit PlaneProjector(const ruLinear::Plane& plane);

private:
  ruLinear::Point doProject(const ruLinear::Point2& position) const override;
  void doUpdate(const ruLinear::Point& point) override;

  ruLinear::Plane plane_;
};

// A plane projector whose normal follows the current modeling plane (the call info's
// voDMG::ModelingPlanes entry) while its point stays where update() put it. Each projection first
// turns the stored plane to the modeling plane's normal, through setPlane, so even a projection is
// a transacted write.
class DMGUI_API SupportingPlaneProjector : public PlaneProjector {
public:
  // A fresh projector on the current modeling plane.
  static ru::Reference<SupportingPlaneProjector> create();
  // `projector` as a supporting-plane projector, or null. Releases `projector`.
  static ru::Reference<SupportingPlaneProjector> tryTypeCast(ru::Reference<Projector> projector);

  SupportingPlaneProjector(const SupportingPlaneProjector& other);
  SupportingPlaneProjector& operator=(const SupportingPlaneProjector& other);
  ~SupportingPlaneProjector() override;

  void onTransact(voTXN::Serializer& serializer) override;
  void onTxnDestroyed() override;

protected:
  SupportingPlaneProjector();

private:
  ruLinear::Point doProject(const ruLinear::Point2& position) const override;
  // The stored plane's point with the modeling plane's normal.
  void updatePlane();
};

}  // namespace voDMG
