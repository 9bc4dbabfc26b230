#pragma once

#include "datamodelgui/draw/affordance.h"
#include "datamodelgui/export.h"
#include "datamodelgui/snap/snapmodel.h"
#include "platform/base/linear.h"
#include "platform/base/reference.h"

#include <cstdint>

// The kinds of snap the library ships: a coordinate axis, a fixed point (the host's items derive
// from it), and the modeling plane that always answers. Each measures distance its own way, in
// viewport pixels, and makes a result in world units that can draw itself.
namespace voDMG {

// A mark drawn at the result's position.
class DMGUI_API ImageSnapResultDraw : public SnapResultDraw {
public:
  // `imageName` is a built-in image resource, centred on the position.
  ImageSnapResultDraw(ru::Reference<SnapResult> result, const ruString::CString& imageName);
  ~ImageSnapResultDraw() override;

private:
  void onDrawPosition(voGR::Draw& draw) const override;
  void onDrawVector(voGR::Draw&) const override {}
  void onDrawFrame(voGR::Draw&) const override {}

  ru::Reference<ImageAtPoint> image_;
};

// Snapped to one point and nothing more.
class DMGUI_API FreePointSnapResult : public SnapResult {
public:
  explicit FreePointSnapResult(const ruLinear::Point& position);
  ~FreePointSnapResult() override;
  // `result` as a free point result, null when it is of another class.
  static ru::Reference<FreePointSnapResult> asFreePointSnapResult(ru::Reference<SnapResult> result);
};

// A world point, caught within snapDistance pixels of its projection. The depth is not looked
// at: a point behind the eye counts like any other. Subclasses give the result and the creator.
class DMGUI_API PointSnapItem : public SnapItem {
public:
  ~PointSnapItem() override;

protected:
  explicit PointSnapItem(SnapPriority priority);
  PointSnapItem(SnapPriority priority, const ruLinear::Point& position);
  const ruLinear::Point& position() const noexcept { return position_; }
  void setPosition(const ruLinear::Point& position) noexcept {
    position_ = position;
    projectedFor_ = 0;
  }

private:
  bool withinDistance(const ruLinear::Point2& cursor, int distance, DistanceType type) override;

  ruLinear::Point position_;
  // The position in viewport pixels for the camera of generation `projectedFor_` (0: none yet).
  // Dozens of point items measure at every cursor move while the camera mostly stands still.
  std::uint64_t projectedFor_ = 0;
  ruLinear::Point2 projected_;
};

// A point on an axis, with the axis as its vector.
class DMGUI_API CoordinateAxisSnapResult : public SnapResult {
public:
  CoordinateAxisSnapResult(const ruLinear::ParamLine& axis, double param);
  ~CoordinateAxisSnapResult() override;
  ruLinear::ParamLine axis() const noexcept { return axis_; }
  double param() const noexcept { return param_; }

private:
  ruLinear::ParamLine axis_;
  double param_;
};

// An infinite axis: caught within 15 pixels of the ray through the cursor, held to 45. Near its
// origin (65 pixels) it does not catch, so the axes do not fight over the point where they meet;
// once caught it holds through there.
class DMGUI_API CoordinateAxisSnapItem : public SnapItem {
public:
  explicit CoordinateAxisSnapItem(const ruLinear::ParamLine& axis);
  CoordinateAxisSnapItem(const ruLinear::Point& origin, const ruLinear::Vector& direction);
  ~CoordinateAxisSnapItem() override;
  const ruLinear::ParamLine& axis() const noexcept { return axis_; }

private:
  bool withinDistance(const ruLinear::Point2& cursor, int distance, DistanceType type) override;
  ru::Reference<SnapResult> onSnap(const ruLinear::Point2& cursor) const override;
  // Between 15 and 30 pixels a dashed line shows the axis is near.
  void onDraw(voGR::DrawContext& context, const ruLinear::Point2& cursor) override;
  SelectionItem getCreator() const override { return SelectionItem(); }

  bool inOriginDeadZone(const ruLinear::Line& ray) const;
  void initDistances();
  // Pixels between the ray and the line (the largest double when parallel); `point` gets the
  // point of the line nearest the ray.
  static double project(const ruLinear::Line& ray, const ruLinear::Line& line);
  static double project(const ruLinear::Line& ray, const ruLinear::Line& line, ruLinear::Point& point);

  ruLinear::ParamLine axis_;
  ru::Reference<DashedLine> dashedLine_;
};

// A point on the modeling plane, with the plane (through the point) as its frame.
class DMGUI_API ModelingPlaneSnapResult : public SnapResult {
public:
  ModelingPlaneSnapResult(const ruLinear::Plane& plane, const ruLinear::Point& position);
  ~ModelingPlaneSnapResult() override;
  static ru::Reference<ModelingPlaneSnapResult> asModelingPlaneSnapResult(ru::Reference<SnapResult> result);
};

// The fallback: always within distance, so it catches anywhere and never tears; it yields only
// to items of its priority or higher. The plane is a snapshot from when the item was made.
class DMGUI_API ModelingPlaneSnapItem : public SnapItem {
public:
  explicit ModelingPlaneSnapItem(const ruLinear::Plane& plane);
  ~ModelingPlaneSnapItem() override;
  const ruLinear::Plane& plane() const noexcept { return plane_; }

private:
  bool withinDistance(const ruLinear::Point2&, int, DistanceType) override { return true; }
  // The cursor's ray on the plane; a ray along the plane gives what the intersection gives then.
  ru::Reference<SnapResult> onSnap(const ruLinear::Point2& cursor) const override;
  SelectionItem getCreator() const override { return SelectionItem(); }
  // 1 when the ray meets the plane, 0 when it runs along it.
  int computeIntersection(const ruLinear::Point2& cursor, ruLinear::Point& point) const;

  ruLinear::Plane plane_;
};

// Offers the same items every time.
class DMGUI_API FixedSnapItemFactory : public SnapItemFactory {
public:
  explicit FixedSnapItemFactory(const SnapItemSet& items);
  explicit FixedSnapItemFactory(ru::Reference<SnapItem> item);
  ~FixedSnapItemFactory() override;
  void getItems(SnapItemSet& items) override;
  // The items it offers, in set order.
  const SnapItemSet& items() const noexcept { return items_; }

private:
  SnapItemSet items_;
};

// One modeling plane item per call, on the plane current then (the call info's ModelingPlanes).
class DMGUI_API ModelingPlaneSnapItemFactory : public SnapItemFactory {
public:
  ModelingPlaneSnapItemFactory();
  ~ModelingPlaneSnapItemFactory() override;
  void getItems(SnapItemSet& items) override;
};

}  // namespace voDMG

namespace voDMD {
class Mesh;
class Object;
}  // namespace voDMD

namespace voDMG {

// An object's centre: the middle of its world box when the item was made. Hinted with an image
// whenever it is in the list, caught like any point.
class DMGUI_API ObjectCenterSnapItem : public PointSnapItem {
public:
  // `object` must have a voDMD::BoundingBox.
  explicit ObjectCenterSnapItem(voDMD::Object* object);
  ~ObjectCenterSnapItem() override;
  voDMD::Object* object() const noexcept { return object_; }

private:
  ru::Reference<SnapResult> onSnap(const ruLinear::Point2& cursor) const override;
  void onDraw(voGR::DrawContext& context, const ruLinear::Point2& cursor) override;
  SelectionItem getCreator() const override { return SelectionItem(object_); }

  voDMD::Object* object_;
  ru::Reference<ImageAtPoint> image_;
};

// A corner of a sub-mesh.
class DMGUI_API MeshVertexSnapResult : public SnapResult {
public:
  MeshVertexSnapResult(voDMD::Mesh* mesh, int subMeshID, int vertexID);
  ~MeshVertexSnapResult() override;
  voDMD::Mesh* mesh() const noexcept { return mesh_; }
  int subMeshID() const noexcept { return subMeshID_; }
  int vertexID() const noexcept { return vertexID_; }

private:
  void computePosition();

  voDMD::Mesh* mesh_;
  int subMeshID_;
  int vertexID_;
};

// A point on a triangle of a sub-mesh, with the triangle's frame (its edges from the first corner).
class DMGUI_API MeshFaceSnapResult : public SnapResult {
public:
  MeshFaceSnapResult(voDMD::Mesh* mesh, int subMeshId, int faceId, const ruLinear::Point& position);
  ~MeshFaceSnapResult() override;
  voDMD::Mesh* mesh() const noexcept { return mesh_; }
  int subMeshId() const noexcept { return subMeshId_; }
  int faceId() const noexcept { return faceId_; }

private:
  voDMD::Mesh* mesh_;
  int subMeshId_;
  int faceId_;
};

// The snap items of a mesh under the cursor: one new surface item per call.
class DMGUI_API MeshSnapFactory : public SnapItemFactory {
public:
  explicit MeshSnapFactory(voDMD::Mesh* mesh);
  ~MeshSnapFactory() override;
  void getItems(SnapItemSet& items) override;
  voDMD::Mesh* mesh() const noexcept { return mesh_; }

private:
  voDMD::Mesh* mesh_;
};

}  // namespace voDMG
