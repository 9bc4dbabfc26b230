#pragma once

#include "datamodelgui/export.h"
#include "platform/base/linear.h"
#include "platform/base/reference.h"
#include "platform/base/signal.h"

namespace ruGeom {
class Camera;
}
namespace voDMD {
class Camera;
class Modification;
}  // namespace voDMD
namespace voGR {
class Shader;
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

// Draws the modeling plane as its parameter square carrying the grid image, under a drawing id of
// its own. The host calls draw on every frame it wants the plane refreshed: there is no modified
// flag, each call re-emits (and a hidden plane's item goes). Needs the call info's draw system at
// construction and its resource loader at the first visible draw.
class DMGUI_API ModelingPlanesDraw {
public:
  explicit ModelingPlanesDraw(const ModelingPlanes* planes);
  // A copy shares the id (and frees it too: keep one of them alive at a time).
  ModelingPlanesDraw(const ModelingPlanesDraw& other);
  ModelingPlanesDraw& operator=(const ModelingPlanesDraw& other);
  ~ModelingPlanesDraw();

  void draw();
  int getID() const noexcept { return id_; }

private:
  // The grid's extent around a point: fixed, -5 to 5 both ways. Unused for now.
  void getXYRanges(const ruLinear::Point& point, ruLinear::Range1d& x, ruLinear::Range1d& y);

  const ModelingPlanes* planes_;
  int id_ = -1;
  ru::Reference<voGR::Shader> shader_;
};

// Keeps the modeling plane facing the viewer: at each camera change (while active) the plane turns
// to the coordinate plane closest to the view, keeping its origin.
class DMGUI_API ModelingPlanesFromView {
public:
  // Turns `planes` at once, then at each modification of `camera`'s owner. Both must outlive this.
  ModelingPlanesFromView(ModelingPlanes& planes, voDMD::Camera& camera);
  ModelingPlanesFromView(const ModelingPlanesFromView&) = delete;
  ModelingPlanesFromView& operator=(const ModelingPlanesFromView&) = delete;

  bool isActive() const noexcept { return active_; }
  // Takes effect at the next camera change; turning on does not update by itself.
  void setActive(bool active) noexcept { active_ = active; }

private:
  void onCameraModified(const voDMD::Modification& modification);
  void update(const voDMD::Camera* camera);

  ruRTB::SignalClient client_;
  ModelingPlanes& planes_;
  bool active_ = true;
};

}  // namespace voDMG
