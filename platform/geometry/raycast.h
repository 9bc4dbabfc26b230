#pragma once

#include "platform/base/linear.h"
#include "platform/base/reference.h"
#include "platform/base/strings.h"
#include "platform/geometry/export.h"
#include "platform/geometry/mesh.h"

#include <cfloat>
#include <cstddef>
#include <cstdint>

namespace ruGeom {

// Ray queries on the triangles of a CompactMesh, in the mesh's own coordinates (apply no object
// transform: transform the ray into the mesh's space first).
//
// Acceleration: the first query of a mesh builds an Embree scene of its triangles. The scene is
// cached by the identities of the vertex and triangle buffers, so every copy of the mesh (which
// shares the buffers) reuses it, and it is released when either buffer is released or written.
// The cache may be reached from one thread at a time; queries through one MeshRayQuery may run in
// parallel with each other once it is built.

// A point on a triangle: the triangle index and barycentric coordinates (u, v): the point is
// (1 - u - v) * a + u * b + v * c for the triangle's corners a, b, c.
class RU_GEOM_API MeshCoordBase {
public:
  MeshCoordBase() noexcept = default;
  MeshCoordBase(int triangle, double u, double v) noexcept : triangle_(triangle), u_(u), v_(v) {}
  // False for "no hit".
  bool valid() const noexcept { return triangle_ >= 0; }
  int getTriangle() const noexcept { return triangle_; }
  double getU() const noexcept { return u_; }
  double getV() const noexcept { return v_; }

private:
  int triangle_ = -1;
  double u_ = 0, v_ = 0;
};

// A MeshCoordBase that also keeps its triangle's corners and the distance along the ray that
// found it, so it can give the point without the mesh.
class RU_GEOM_API MeshCoord : public MeshCoordBase {
public:
  MeshCoord() noexcept = default;
  MeshCoord(int triangle, double u, double v, const ruLinear::Point& a, const ruLinear::Point& b,
            const ruLinear::Point& c, double distance) noexcept
      : MeshCoordBase(triangle, u, v), corners_{a, b, c}, distance_(distance) {}
  // The point on the triangle; the origin when invalid.
  ruLinear::Point evaluate() const noexcept;
  // Corner 0, 1 or 2 of the triangle.
  const ruLinear::Point& getCorner(int i) const noexcept { return corners_[i]; }
  // Distance from the ray's point along its (unit) direction, world units.
  double getDistance() const noexcept { return distance_; }

private:
  ruLinear::Point corners_[3];
  double distance_ = 0;
};

// What a nearest-hit query looks for.
struct MeshRayOptions {
  // Only hits at distances in [minDistance, maxDistance] count, in world units along the ray.
  double minDistance = 0.0;
  double maxDistance = DBL_MAX;
  // A triangle to ignore (the one the ray starts from), -1 for none.
  int ignoreTriangle = -1;
  // A vertex whose triangles are all ignored (for a ray cast from a mesh corner, which touches
  // every triangle around it at distance 0), -1 for none.
  int ignoreVertex = -1;
};

// The result of a nearest-hit query.
struct MeshRayHit {
  bool hit = false;
  int triangle = -1;                 // triangle index, -1 when no hit
  double distance = 0.0;             // world units from the ray's point along its direction
  double u = 0.0, v = 0.0;           // barycentrics as in MeshCoordBase
  ruLinear::Point point;             // the hit point: ray point + distance * unit direction
};

// The nearest hit of the ray (ray.getPoint() + t * unit direction, t in the options' range) with
// the mesh's triangles, either side of a triangle counting. Returns false when there is none,
// when the mesh has no triangles or the direction is zero; `hit` is then reset. Builds or reuses
// the cached acceleration structure.
RU_GEOM_API bool meshRayIntersect(const CompactMesh& mesh, const ruLinear::Line& ray, MeshRayHit& hit,
                                  const MeshRayOptions& options = MeshRayOptions());

// The same query for many rays on one mesh: holds the mesh's acceleration structure so that each
// query skips the cache look-up. Keep it only while the mesh is unchanged. `intersect` is safe
// to call from several threads at once.
class RU_GEOM_API MeshRayQuery {
public:
  // Builds or reuses the mesh's acceleration structure now.
  explicit MeshRayQuery(const CompactMesh& mesh);
  ~MeshRayQuery();
  MeshRayQuery(const MeshRayQuery&) = delete;
  MeshRayQuery& operator=(const MeshRayQuery&) = delete;

  // False when the mesh has no triangles (every query then misses).
  bool valid() const noexcept { return scene_ != nullptr; }
  bool intersect(const ruLinear::Line& ray, MeshRayHit& hit, const MeshRayOptions& options = MeshRayOptions()) const;
  // Single-precision form for hot loops: origin and direction (need not be unit; the distance
  // is then in units of its length). Returns the triangle, -1 for none; `distance`, `u`, `v` are
  // set on a hit.
  int intersect(const float origin[3], const float direction[3], float maxDistance, float& distance, float& u,
                float& v) const;

private:
  CompactMesh mesh_;  // a copy, sharing the buffers, that keeps them alive
  void* scene_ = nullptr;
};

// The triangle under a viewport pixel. `worldToViewport` maps the mesh's coordinates to viewport
// pixels (x, y up, as Camera::getWorldToViewport), (x, y) is the pixel (cursor coordinates
// truncated toward zero), `tolerance` in pixels, `ray` the world ray through the cursor (as
// Camera::getWorldSpaceRay gives it). The nearest triangle along the ray that the ray hits wins;
// when the ray hits nothing, triangles whose projection comes within `tolerance` pixels of the
// pixel's centre (x + 0.5, y + 0.5) count, and the one whose nearest point is nearest along the
// ray wins, the coordinate naming that point. Invalid when there is no such triangle.
RU_GEOM_API MeshCoord meshRayIntersectScreen(const CompactMesh& mesh, const ruLinear::ProjMatrixFlt& worldToViewport,
                                             int x, int y, int tolerance, const ruLinear::Line& ray);
// The same with the camera's double-precision matrix as it comes (Camera::getWorldToViewport).
inline MeshCoord meshRayIntersectScreen(const CompactMesh& mesh, const ruLinear::ProjMatrix& worldToViewport, int x,
                                        int y, int tolerance, const ruLinear::Line& ray) {
  return meshRayIntersectScreen(mesh, ruLinear::ProjMatrixFlt(worldToViewport), x, y, tolerance, ray);
}

// Why ray queries cannot run, empty when they can. Embree may fail to make its device (an
// unsupported CPU, no memory, or bad options in the environment variable RUGEOM_EMBREE_CONFIG,
// whose Embree options, such as "verbose=1", are added to ours); every query then misses and
// MeshRayQuery::valid() is false, so a host should check this once and tell its user.
RU_GEOM_API ruString::CString rayQueryError();

// Diagnostics of the acceleration cache: structures built since the start, and alive now.
RU_GEOM_API std::uint64_t accelerationBuildCount() noexcept;
RU_GEOM_API std::size_t accelerationCacheSize() noexcept;

}  // namespace ruGeom
