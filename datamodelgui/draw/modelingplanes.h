#pragma once

#include "datamodelgui/export.h"
#include "platform/base/linear.h"
#include "platform/base/signal.h"

namespace ruGeom {
class Camera;
}

namespace voDMG {

// The plane in which the user's tools work, with its visibility. The host owns it and enters it in
// the call info; tools and projectors read it there. Drawing it is the job of a separate class.
class DMGUI_API ModelingPlanes {
public:
  // A new instance with the defaults; the caller owns it.
  static ModelingPlanes* create();

  ModelingPlanes();
  ModelingPlanes(const ModelingPlanes& other);
  ModelingPlanes& operator=(const ModelingPlanes& other);
  virtual ~ModelingPlanes();

  const ruLinear::ParamPlane& getParamPlane() const noexcept { return plane_; }
  // The plane carrying the parametrised plane: its origin and normal.
  ruLinear::Plane getPlane() const noexcept { return ruLinear::Plane(plane_); }
  bool isVisible() const noexcept { return visible_; }

  // Assigns, then emits sigModified.
  void setPlane(const ruLinear::ParamPlane& plane);
  // Takes the point and normal of `plane`; the parameter vectors are made from the normal (the
  // first its orthogonal vector, the second normal x first). Then emits sigModified.
  void setPlane(const ruLinear::Plane& plane);
  // Emits sigModified only when the value changes.
  void setVisibility(bool visible);

  // With this object, after each change.
  ruRTB::SignalArg<ModelingPlanes*> sigModified;

private:
  ruLinear::ParamPlane plane_;
  bool visible_ = true;
};

// The plane through the origin whose normal is the positive coordinate axis closest to the view
// direction of `camera` (by the absolute dot product; ties go to x, then y, then z).
DMGUI_API ruLinear::Plane viewBasedDominantModelingPlane(const ruGeom::Camera& camera);

}  // namespace voDMG
