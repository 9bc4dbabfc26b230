#include "datamodelgui/snap/snapitems.h"

#include "datamodelgui/draw/modelingplanes.h"
#include "platform/datamodel/attributes.h"
#include "platform/datamodel/document.h"
#include "platform/geometry/mesh.h"
#include "platform/geometry/raycast.h"
#include "platform/geometry/camera.h"
#include "platform/graphics/draw.h"
#include "platform/support/callinfo.h"

#include <atomic>
#include <bit>
#include <cmath>
#include <cstring>
#include <cstdint>
#include <limits>
#include <type_traits>

namespace voDMG {

namespace {

constexpr double kAxisSnapDistance = 15.0;
constexpr double kAxisHintDistance = 30.0;
constexpr double kAxisDeadZone = 65.0;

const ruGeom::Camera* currentCamera() {
  auto* camera = voSupport::ci().find<voDMD::Camera>();
  return camera ? &camera->get() : nullptr;
}

// The world-to-viewport matrix of the camera last measured with, and a generation that changes
// whenever that camera does. Point items measure at every cursor move, a hundred of them in a
// busy scene, and the matrix (a tangent and two 4x4 products) only changes with the camera.
struct ViewportTransform {
  ruGeom::Camera camera;
  ruLinear::ProjMatrix worldToViewport;
  std::uint64_t generation = 0;
};

static_assert(std::is_trivially_copyable_v<ruGeom::Camera>, "cameras are compared bitwise");

const ViewportTransform& viewportTransform(const ruGeom::Camera& camera) {
  // Generations are unique across threads, so an item measured on two threads never takes one
  // camera's projection for another's.
  static std::atomic<std::uint64_t> generations{0};
  thread_local ViewportTransform cache;
  // Bitwise, so that a changed sign of zero or a NaN counts as a change, never as a match.
  if (cache.generation == 0 || std::memcmp(&cache.camera, &camera, sizeof(ruGeom::Camera)) != 0) {
    cache.camera = camera;
    cache.worldToViewport = camera.getWorldToViewport();
    cache.generation = ++generations;
  }
  return cache;
}

// Whether `distance` > hypot(dx, dy), the squares deciding where they are clearly apart: hypot is
// within two ulps of the square root of the sum, so only near the radius does it need to run.
bool withinPixels(double distance, double dx, double dy) {
  if (!(distance > 0.0)) return false;
  const double squared = dx * dx + dy * dy;
  const double radius = distance * distance;
  if (squared > radius * (1.0 + 1e-9)) return false;
  if (squared < radius * (1.0 - 1e-9)) return true;
  return distance > std::hypot(dx, dy);
}

// The axis result's mark: the axis dashed through the position, and the image on it.
class CoordinateAxisSnapResultDraw : public SnapResultDraw {
public:
  CoordinateAxisSnapResultDraw(ru::Reference<SnapResult> result, const ruString::CString& imageName)
      : SnapResultDraw(std::move(result)),
        dashedLine_(new DashedLine()),
        image_(new ImageAtPoint(imageName, AffordanceCentred)) {}

private:
  void onDrawPosition(voGR::Draw& draw) const override {
    const ru::Reference<SnapResult> snapped = result();
    const ruLinear::Point& position = snapped->getPosition();
    dashedLine_->lockPatternOrigin(position);
    dashedLine_->setLine(ruLinear::Line(position, snapped->getVector().getDirection()));
    dashedLine_->draw(draw);
    image_->setWorldPosition(position);
    image_->draw(draw);
  }
  void onDrawVector(voGR::Draw&) const override {}
  void onDrawFrame(voGR::Draw&) const override {}

  ru::Reference<DashedLine> dashedLine_;
  ru::Reference<ImageAtPoint> image_;
};

}  // namespace

ImageSnapResultDraw::ImageSnapResultDraw(ru::Reference<SnapResult> result, const ruString::CString& imageName)
    : SnapResultDraw(std::move(result)), image_(new ImageAtPoint(imageName, AffordanceCentred)) {}

ImageSnapResultDraw::~ImageSnapResultDraw() = default;

void ImageSnapResultDraw::onDrawPosition(voGR::Draw& draw) const {
  image_->setWorldPosition(result()->getPosition());
  image_->draw(draw);
}

FreePointSnapResult::FreePointSnapResult(const ruLinear::Point& position) { setPosition(position); }

FreePointSnapResult::~FreePointSnapResult() = default;

ru::Reference<FreePointSnapResult> FreePointSnapResult::asFreePointSnapResult(ru::Reference<SnapResult> result) {
  return ru::Reference<FreePointSnapResult>(dynamic_cast<FreePointSnapResult*>(result.get()));
}

PointSnapItem::PointSnapItem(SnapPriority priority) : SnapItem(priority) {}

PointSnapItem::PointSnapItem(SnapPriority priority, const ruLinear::Point& position)
    : SnapItem(priority), position_(position) {}

PointSnapItem::~PointSnapItem() = default;

bool PointSnapItem::withinDistance(const ruLinear::Point2& cursor, int distance, DistanceType) {
  const ruGeom::Camera* camera = currentCamera();
  if (!camera) return false;
  const ViewportTransform& transform = viewportTransform(*camera);
  if (projectedFor_ != transform.generation) {
    const ruLinear::Point projected = position_ * transform.worldToViewport;
    projected_ = ruLinear::Point2{projected.x, projected.y};
    projectedFor_ = transform.generation;
  }
  return withinPixels(static_cast<double>(distance), cursor.x - projected_.x, cursor.y - projected_.y);
}

CoordinateAxisSnapResult::CoordinateAxisSnapResult(const ruLinear::ParamLine& axis, double param)
    : axis_(axis), param_(param) {
  setPosition(axis.evaluate(param));
  setVector(axis);
}

CoordinateAxisSnapResult::~CoordinateAxisSnapResult() = default;

CoordinateAxisSnapItem::CoordinateAxisSnapItem(const ruLinear::ParamLine& axis)
    : SnapItem(SnapPriorityAxis), axis_(axis), dashedLine_(new DashedLine()) {
  initDistances();
}

CoordinateAxisSnapItem::CoordinateAxisSnapItem(const ruLinear::Point& origin, const ruLinear::Vector& direction)
    : CoordinateAxisSnapItem(ruLinear::ParamLine(origin, direction)) {}

CoordinateAxisSnapItem::~CoordinateAxisSnapItem() = default;

void CoordinateAxisSnapItem::initDistances() {
  setTearDistance(45);
  setSnapDistance(15);
}

double CoordinateAxisSnapItem::project(const ruLinear::Line& ray, const ruLinear::Line& line) {
  ruLinear::Point point;
  return project(ray, line, point);
}

double CoordinateAxisSnapItem::project(const ruLinear::Line& ray, const ruLinear::Line& line, ruLinear::Point& point) {
  bool intersected = false;
  point = ruLinear::intersect(ray, line, intersected, ruLinear::perpendicular2Tol);
  if (!intersected) return std::numeric_limits<double>::max();
  const ruLinear::Point foot = ruLinear::project(point, ray);
  double pixels = std::numeric_limits<double>::max();
  const ruGeom::Camera* camera = currentCamera();
  if (camera && camera->pixelDistance(foot, point, pixels)) return pixels;
  return std::numeric_limits<double>::max();
}

bool CoordinateAxisSnapItem::inOriginDeadZone(const ruLinear::Line& ray) const {
  const ruLinear::Point foot = ruLinear::project(axis_.getOrigin(), ray);
  // A failed measure leaves 0, which counts as inside.
  double pixels = 0.0;
  if (const ruGeom::Camera* camera = currentCamera()) camera->pixelDistance(axis_.getOrigin(), foot, pixels);
  return kAxisDeadZone > pixels;
}

bool CoordinateAxisSnapItem::withinDistance(const ruLinear::Point2& cursor, int distance, DistanceType type) {
  const ruLinear::Line ray = getWorldSpaceRay(cursor);
  // Only catching minds the dead zone: a caught axis holds through its origin.
  if (type == DistanceSnap && inOriginDeadZone(ray)) return false;
  return static_cast<double>(distance) > project(ray, axis_.asLine());
}

ru::Reference<SnapResult> CoordinateAxisSnapItem::onSnap(const ruLinear::Point2& cursor) const {
  const ruLinear::Line ray = getWorldSpaceRay(cursor);
  ruLinear::Point nearest;
  project(ray, axis_.asLine(), nearest);
  double param = 0.0;
  ruLinear::project(nearest, axis_, param);
  ru::Reference<SnapResult> result(new CoordinateAxisSnapResult(axis_, param));
  result->setDraw(new CoordinateAxisSnapResultDraw(result, "DMG/AxisSnapResult"));
  return result;
}

void CoordinateAxisSnapItem::onDraw(voGR::DrawContext& context, const ruLinear::Point2& cursor) {
  const ruLinear::Line ray = getWorldSpaceRay(cursor);
  if (inOriginDeadZone(ray)) {
    if (drawData()) drawData()->clear();
    return;
  }
  ruLinear::Point nearest;
  const double pixels = project(ray, axis_.asLine(), nearest);
  if (pixels >= kAxisSnapDistance && pixels < kAxisHintDistance) {
    dashedLine_->lockPatternOrigin(nearest);
    dashedLine_->setLine(ruLinear::Line(nearest, axis_.getDirection()));
    voGR::Draw draw(context, this, true);
    draw.setDebugString("CoordinateAxisSnapItem");
    dashedLine_->draw(draw);
  } else if (drawData()) {
    drawData()->clear();
  }
}

ModelingPlaneSnapResult::ModelingPlaneSnapResult(const ruLinear::Plane& plane, const ruLinear::Point& position) {
  setPosition(position);
  const ruLinear::Vector u = plane.getNormal().orthogonalVector();
  const ruLinear::Vector v = ruLinear::cross(plane.getNormal().asVector(), u);
  setFrame(ruLinear::ParamPlane(position, plane.getNormal(), u, v, false));
}

ModelingPlaneSnapResult::~ModelingPlaneSnapResult() = default;

ru::Reference<ModelingPlaneSnapResult> ModelingPlaneSnapResult::asModelingPlaneSnapResult(
    ru::Reference<SnapResult> result) {
  return ru::Reference<ModelingPlaneSnapResult>(dynamic_cast<ModelingPlaneSnapResult*>(result.get()));
}

ModelingPlaneSnapItem::ModelingPlaneSnapItem(const ruLinear::Plane& plane) : SnapItem(SnapPriorityPlane), plane_(plane) {}

ModelingPlaneSnapItem::~ModelingPlaneSnapItem() = default;

int ModelingPlaneSnapItem::computeIntersection(const ruLinear::Point2& cursor, ruLinear::Point& point) const {
  bool intersected = false;
  point = ruLinear::intersect(getWorldSpaceRay(cursor), plane_, intersected, 1e-5);
  return intersected ? 1 : 0;
}

ru::Reference<SnapResult> ModelingPlaneSnapItem::onSnap(const ruLinear::Point2& cursor) const {
  ruLinear::Point point;
  computeIntersection(cursor, point);
  return ru::Reference<SnapResult>(new ModelingPlaneSnapResult(plane_, point));
}

FixedSnapItemFactory::FixedSnapItemFactory(const SnapItemSet& items) : items_(items) {}

FixedSnapItemFactory::FixedSnapItemFactory(ru::Reference<SnapItem> item) { items_.insert(std::move(item)); }

FixedSnapItemFactory::~FixedSnapItemFactory() = default;

void FixedSnapItemFactory::getItems(SnapItemSet& items) { items.insert(items_.begin(), items_.end()); }

ModelingPlaneSnapItemFactory::ModelingPlaneSnapItemFactory() = default;

ModelingPlaneSnapItemFactory::~ModelingPlaneSnapItemFactory() = default;

void ModelingPlaneSnapItemFactory::getItems(SnapItemSet& items) {
  auto* planes = voSupport::ci().find<ModelingPlanes>();
  if (!planes) return;  // no modeling planes in this host: nothing to fall back on
  items.insert(ru::Reference<SnapItem>(new ModelingPlaneSnapItem(planes->getPlane())));
}

namespace {

// One search of a sub-mesh under the cursor: what it depends on, then what it found. The
// manager asks both the active mesh item and the fresh one for the same mesh at each move, and
// moves that leave the cursor, camera and mesh as they were ask again; every input of the search
// is in the key (the mesh by the identities of its vertex and triangle contents, which change on
// any write and are never reused, the camera by its generation), so a repeat is an answer.
struct MeshSearch {
  ruGeom::BufferId vertices = 0;
  ruGeom::BufferId triangles = 0;
  std::uint64_t camera = 0;
  double x = 0.0;
  double y = 0.0;
  int distance = 0;
  bool answered = false;
  bool hit = false;
  std::int32_t vertexIndex = -1;
  std::int32_t faceIndex = -1;
  ruLinear::Point snapPoint;

  bool sameQuestion(const MeshSearch& other) const noexcept {
    return vertices == other.vertices && triangles == other.triangles && camera == other.camera &&
           std::bit_cast<std::uint64_t>(x) == std::bit_cast<std::uint64_t>(other.x) &&
           std::bit_cast<std::uint64_t>(y) == std::bit_cast<std::uint64_t>(other.y) && distance == other.distance;
  }
};

// The entry answering `key`, or the oldest of the few kept, emptied for it (answered false).
MeshSearch& recentMeshSearch(const MeshSearch& key) {
  constexpr int kKept = 4;
  thread_local MeshSearch kept[kKept];
  thread_local int next = 0;
  for (MeshSearch& entry : kept) {
    if (entry.answered && entry.sameQuestion(key)) return entry;
  }
  MeshSearch& entry = kept[next];
  next = (next + 1) % kKept;
  entry = MeshSearch();
  return entry;
}

// A mesh surface under the cursor. withinDistance searches and remembers; onSnap reads what the
// last search found, so the two run in that order on one thread.
class MeshSnapItem : public SnapItem {
public:
  explicit MeshSnapItem(voDMD::Mesh* mesh) : SnapItem(SnapPriorityMesh), mesh_(mesh) {}

private:
  bool withinDistance(const ruLinear::Point2& cursor, int distance, DistanceType) override {
    subMeshIndex_ = vertexIndex_ = faceIndex_ = -1;
    if (!mesh_ || mesh_->numSubMeshes() == 0) return false;
    for (int index = 0; index < mesh_->numSubMeshes(); ++index) {
      if (search(mesh_->getSubMesh(index), cursor, distance)) {
        subMeshIndex_ = index;
        return true;
      }
    }
    return false;
  }

  bool search(const ruGeom::CompactMesh& subMesh, const ruLinear::Point2& cursor, int distance) {
    const ruGeom::Camera* camera = currentCamera();
    if (!camera || !subMesh.hasTriangles()) return false;
    if (!std::isfinite(cursor.x) || !std::isfinite(cursor.y)) return false;
    // The search takes whole pixels; a cursor beyond what an int holds stands for no pixel.
    constexpr double kLowest = static_cast<double>(std::numeric_limits<int>::min());
    constexpr double kHighest = static_cast<double>(std::numeric_limits<int>::max());
    if (!(cursor.x > kLowest - 1.0 && cursor.x < kHighest + 1.0 && cursor.y > kLowest - 1.0 && cursor.y < kHighest + 1.0))
      return false;
    const ViewportTransform& transform = viewportTransform(*camera);
    MeshSearch key;
    key.vertices = subMesh.getVertexBufferId();
    key.triangles = subMesh.getTriangleBufferId();
    key.camera = transform.generation;
    key.x = cursor.x;
    key.y = cursor.y;
    key.distance = distance;
    MeshSearch& found = recentMeshSearch(key);
    if (!found.answered) {
      found = key;
      found.answered = true;
      found.hit = search(subMesh, *camera, transform.worldToViewport, cursor, distance, found);
    }
    if (!found.hit) return false;
    snapPoint_ = found.snapPoint;
    vertexIndex_ = found.vertexIndex;
    faceIndex_ = found.faceIndex;
    return true;
  }

  static bool search(const ruGeom::CompactMesh& subMesh, const ruGeom::Camera& camera,
                     const ruLinear::ProjMatrix& worldToViewport, const ruLinear::Point2& cursor, int distance,
                     MeshSearch& out) {
    const ruLinear::ProjMatrixFlt matrix(worldToViewport);
    const ruLinear::Line ray = getWorldSpaceRay(cursor);
    const ruGeom::MeshCoord coord = ruGeom::meshRayIntersectScreen(subMesh, matrix, static_cast<int>(cursor.x),
                                                                   static_cast<int>(cursor.y), 1, ray);
    if (!coord.valid()) return false;
    const std::uint32_t* triangle = subMesh.getTriangles() + 3 * coord.getTriangle();
    const ruLinear::Point hit = coord.evaluate();
    // The first corner in reach of the hit point wins, not the nearest.
    for (int corner = 0; corner < 3; ++corner) {
      const ruLinear::Point point = subMesh.getVertices()[triangle[corner]].asPoint();
      double pixels = 0.0;
      if (camera.pixelDistance(point, hit, pixels) && static_cast<double>(distance) > pixels) {
        out.snapPoint = point;
        out.vertexIndex = static_cast<std::int32_t>(triangle[corner]);
        return true;
      }
    }
    // On the surface counts as within reach, however far the corners are.
    out.snapPoint = hit;
    out.faceIndex = coord.getTriangle();
    return true;
  }

  ru::Reference<SnapResult> onSnap(const ruLinear::Point2&) const override {
    if (!mesh_ || subMeshIndex_ < 0) return nullptr;
    if (vertexIndex_ >= 0) {
      ru::Reference<SnapResult> result(new MeshVertexSnapResult(mesh_, subMeshIndex_, vertexIndex_));
      result->setDraw(new ImageSnapResultDraw(result, "DMG/PointSnapResult"));
      return result;
    }
    if (faceIndex_ < 0) return nullptr;
    ru::Reference<SnapResult> result(new MeshFaceSnapResult(mesh_, subMeshIndex_, faceIndex_, snapPoint_));
    result->setDraw(new ImageSnapResultDraw(result, "DMG/SurfaceSnapResult"));
    return result;
  }

  SelectionItem getCreator() const override { return SelectionItem(); }

  voDMD::Mesh* mesh_;
  std::int32_t subMeshIndex_ = -1;
  std::int32_t vertexIndex_ = -1;
  std::int32_t faceIndex_ = -1;
  ruLinear::Point snapPoint_;
};

}  // namespace

ObjectCenterSnapItem::ObjectCenterSnapItem(voDMD::Object* object)
    : PointSnapItem(SnapPriorityObjectCenter),
      object_(object),
      image_(new ImageAtPoint("DMG/CenterSnapCandidate", AffordanceCentred)) {
  if (const voDMD::BoundingBox* box = object ? object->findAttribute<voDMD::BoundingBox>() : nullptr) {
    const ruLinear::Range3d range = box->getWorldSpace();
    const ruLinear::Point& low = range.getMin();
    const ruLinear::Point& high = range.getMax();
    setPosition(ruLinear::Point(0.5 * (low.x + high.x), 0.5 * (low.y + high.y), 0.5 * (low.z + high.z)));
  }
  image_->setState(0);
}

ObjectCenterSnapItem::~ObjectCenterSnapItem() = default;

ru::Reference<SnapResult> ObjectCenterSnapItem::onSnap(const ruLinear::Point2&) const {
  ru::Reference<SnapResult> result(new FreePointSnapResult(position()));
  result->setDraw(new ImageSnapResultDraw(result, "DMG/CenterSnapResult"));
  return result;
}

void ObjectCenterSnapItem::onDraw(voGR::DrawContext& context, const ruLinear::Point2&) {
  image_->setWorldPosition(position());
  voGR::Draw draw(context, this, true);
  image_->draw(draw);
}

MeshVertexSnapResult::MeshVertexSnapResult(voDMD::Mesh* mesh, int subMeshID, int vertexID)
    : mesh_(mesh), subMeshID_(subMeshID), vertexID_(vertexID) {
  computePosition();
}

MeshVertexSnapResult::~MeshVertexSnapResult() = default;

void MeshVertexSnapResult::computePosition() {
  if (!mesh_ || subMeshID_ < 0 || subMeshID_ >= mesh_->numSubMeshes()) return;
  const ruGeom::CompactMesh& subMesh = mesh_->getSubMesh(subMeshID_);
  if (vertexID_ < 0 || vertexID_ >= subMesh.getNumVertices()) return;
  setPosition(subMesh.getVertices()[vertexID_].asPoint());
}

MeshFaceSnapResult::MeshFaceSnapResult(voDMD::Mesh* mesh, int subMeshId, int faceId, const ruLinear::Point& position)
    : mesh_(mesh), subMeshId_(subMeshId), faceId_(faceId) {
  setPosition(position);
  if (!mesh_ || subMeshId_ < 0 || subMeshId_ >= mesh_->numSubMeshes()) return;
  const ruGeom::CompactMesh& subMesh = mesh_->getSubMesh(subMeshId_);
  if (faceId_ < 0 || faceId_ >= subMesh.getNumTriangles()) return;
  const std::uint32_t* triangle = subMesh.getTriangles() + 3 * faceId_;
  const ruLinear::Point p0 = subMesh.getVertices()[triangle[0]].asPoint();
  const ruLinear::Vector e1 = subMesh.getVertices()[triangle[1]].asPoint() - p0;
  const ruLinear::Vector e2 = subMesh.getVertices()[triangle[2]].asPoint() - p0;
  const ruLinear::Normal normal(ruLinear::cross(e1, e2).normalized());
  setFrame(ruLinear::ParamPlane(position, normal, e1, e2, false));
}

MeshFaceSnapResult::~MeshFaceSnapResult() = default;

MeshSnapFactory::MeshSnapFactory(voDMD::Mesh* mesh) : mesh_(mesh) {}

MeshSnapFactory::~MeshSnapFactory() = default;

void MeshSnapFactory::getItems(SnapItemSet& items) { items.insert(ru::Reference<SnapItem>(new MeshSnapItem(mesh_))); }

}  // namespace voDMG
