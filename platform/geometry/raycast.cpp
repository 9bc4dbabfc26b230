#include "platform/geometry/raycast.h"

#include <embree3/rtcore.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <string>
#include <cmath>
#include <limits>
#include <mutex>
#include <unordered_map>
#include <vector>

namespace ruGeom {

namespace {

using ruLinear::Point;
using ruLinear::Vector;

const char* embreeErrorName(RTCError code) noexcept {
  switch (code) {
    case RTC_ERROR_NONE: return "no error";
    case RTC_ERROR_INVALID_ARGUMENT: return "invalid argument";
    case RTC_ERROR_INVALID_OPERATION: return "invalid operation";
    case RTC_ERROR_OUT_OF_MEMORY: return "out of memory";
    case RTC_ERROR_UNSUPPORTED_CPU: return "unsupported CPU";
    case RTC_ERROR_CANCELLED: return "cancelled";
    default: return "unknown error";
  }
}

// One Embree device for the process, or null when Embree cannot make one (an unsupported CPU,
// no memory, bad options): every query then misses and rayQueryError() says why. Created on
// first use and kept to the end (Embree's own threads live with it).
struct Device {
  RTCDevice handle = nullptr;
  ruString::CString error;
};

const Device& device() {
  static const Device instance = [] {
    Device d;
    std::string config = "threads=0";
    if (const char* extra = std::getenv("RUGEOM_EMBREE_CONFIG"); extra && *extra) config += std::string(",") + extra;
    d.handle = rtcNewDevice(config.c_str());
    if (!d.handle) {
      d.error = ruString::CString::format("the Embree device could not be created with options '%s' (%s)",
                                          config.c_str(), embreeErrorName(rtcGetDeviceError(nullptr)));
    }
    return d;
  }();
  return instance;
}

struct CacheKey {
  BufferId vertices;
  BufferId triangles;
  bool operator==(const CacheKey& o) const noexcept { return vertices == o.vertices && triangles == o.triangles; }
};
struct CacheKeyHash {
  std::size_t operator()(const CacheKey& k) const noexcept {
    return std::hash<std::uint64_t>()(k.vertices * 0x9E3779B97F4A7C15ull ^ k.triangles);
  }
};

// Scenes by the identities of the buffers they were built from. A scene is listed under both
// identities so that the release of either drops it.
struct Cache {
  std::mutex mutex;
  std::unordered_map<CacheKey, RTCScene, CacheKeyHash> scenes;
  std::unordered_multimap<BufferId, CacheKey> keysOf;
  std::atomic<std::uint64_t> builds{0};
};

void releaseScenesOf(BufferId id) noexcept;

Cache& cache() {
  // Never destroyed: buffers may be released during static destruction. The cache hears of
  // released buffers through the release notification, subscribed once with the cache.
  static Cache* instance = [] {
    Cache* c = new Cache();
    subscribeBufferRelease([](BufferId id) { releaseScenesOf(id); });
    return c;
  }();
  return *instance;
}

// Builds the scene of a mesh's triangles; null when there are none or an index is out of range.
RTCScene buildScene(const CompactMesh& mesh) {
  const int numTriangles = mesh.getNumTriangles();
  const int numVertices = mesh.getNumVertices();
  if (numTriangles == 0 || numVertices == 0) return nullptr;
  const std::uint32_t* tri = mesh.getTriangles();
  for (std::size_t i = 0; i < static_cast<std::size_t>(numTriangles) * 3; ++i) {
    if (tri[i] >= static_cast<std::uint32_t>(numVertices)) return nullptr;
  }
  // Embree's calls crash on a null handle, so each handle is checked before it is used.
  RTCDevice handle = device().handle;
  if (!handle) return nullptr;
  RTCScene scene = rtcNewScene(handle);
  if (!scene) return nullptr;
  // The context filter lets a query skip one triangle (the one a ray starts from).
  rtcSetSceneFlags(scene, RTC_SCENE_FLAG_CONTEXT_FILTER_FUNCTION);
  rtcSetSceneBuildQuality(scene, RTC_BUILD_QUALITY_MEDIUM);
  RTCGeometry geometry = rtcNewGeometry(handle, RTC_GEOMETRY_TYPE_TRIANGLE);
  if (!geometry) {
    rtcReleaseScene(scene);
    return nullptr;
  }
  // Embree reads vertices as 16-byte loads: its own buffers carry the padding ours lack.
  auto* vertices = static_cast<float*>(
      rtcSetNewGeometryBuffer(geometry, RTC_BUFFER_TYPE_VERTEX, 0, RTC_FORMAT_FLOAT3, sizeof(MeshVertex), numVertices));
  auto* indices = static_cast<std::uint32_t*>(rtcSetNewGeometryBuffer(
      geometry, RTC_BUFFER_TYPE_INDEX, 0, RTC_FORMAT_UINT3, 3 * sizeof(std::uint32_t), numTriangles));
  if (!vertices || !indices) {
    rtcReleaseGeometry(geometry);
    rtcReleaseScene(scene);
    return nullptr;
  }
  std::copy_n(reinterpret_cast<const float*>(mesh.getVertices()), static_cast<std::size_t>(numVertices) * 3, vertices);
  std::copy_n(tri, static_cast<std::size_t>(numTriangles) * 3, indices);
  rtcCommitGeometry(geometry);
  rtcAttachGeometry(scene, geometry);
  rtcReleaseGeometry(geometry);
  rtcCommitScene(scene);
  // A build that ran out of memory leaves an unusable scene.
  if (rtcGetDeviceError(handle) != RTC_ERROR_NONE) {
    rtcReleaseScene(scene);
    return nullptr;
  }
  return scene;
}

// The cached scene of a mesh, retained for the caller (who releases it); null when the mesh has
// no usable triangles.
RTCScene acquireScene(const CompactMesh& mesh) {
  const MeshBuffer<MeshVertex>& vertices = mesh.vertexBuffer();
  const MeshBuffer<std::uint32_t>& triangles = mesh.triangleBuffer();
  if (vertices.empty() || triangles.empty()) return nullptr;
  const CacheKey key{vertices.id(), triangles.id()};
  Cache& c = cache();
  std::lock_guard<std::mutex> lock(c.mutex);
  auto it = c.scenes.find(key);
  if (it != c.scenes.end()) {
    rtcRetainScene(it->second);
    return it->second;
  }
  RTCScene scene = buildScene(mesh);
  if (!scene) return nullptr;
  c.builds.fetch_add(1, std::memory_order_relaxed);
  c.scenes.emplace(key, scene);
  c.keysOf.emplace(key.vertices, key);
  c.keysOf.emplace(key.triangles, key);
  vertices.storage()->markCached();
  triangles.storage()->markCached();
  rtcRetainScene(scene);
  return scene;
}

// Extends the intersection context with what to skip.
struct IgnoreContext {
  RTCIntersectContext context;
  unsigned triangle;             // RTC_INVALID_GEOMETRY_ID for none
  std::uint32_t vertex;          // 0xFFFFFFFF for none
  const std::uint32_t* indices;  // the mesh's triangles, for the vertex test
};

void ignoreFilter(const RTCFilterFunctionNArguments* args) {
  const auto* extended = reinterpret_cast<const IgnoreContext*>(args->context);
  for (unsigned i = 0; i < args->N; ++i) {
    if (args->valid[i] != -1) continue;
    const unsigned primitive = RTCHitN_primID(args->hit, args->N, i);
    if (primitive == extended->triangle) {
      args->valid[i] = 0;
      continue;
    }
    if (extended->vertex != 0xFFFFFFFFu) {
      const std::uint32_t* corners = extended->indices + 3 * static_cast<std::size_t>(primitive);
      if (corners[0] == extended->vertex || corners[1] == extended->vertex || corners[2] == extended->vertex) {
        args->valid[i] = 0;
      }
    }
  }
}

bool castRay(RTCScene scene, const CompactMesh& mesh, const ruLinear::Line& ray, MeshRayHit& hit,
             const MeshRayOptions& options) {
  hit = MeshRayHit();
  if (!scene) return false;
  Vector direction = ray.getDirection();
  const double length = direction.length();
  if (!(length > 0.0) || !std::isfinite(length)) return false;
  direction /= length;
  if (options.maxDistance < options.minDistance) return false;
  IgnoreContext extended;
  rtcInitIntersectContext(&extended.context);
  extended.triangle = options.ignoreTriangle >= 0 ? static_cast<unsigned>(options.ignoreTriangle) : RTC_INVALID_GEOMETRY_ID;
  extended.vertex = options.ignoreVertex >= 0 ? static_cast<std::uint32_t>(options.ignoreVertex) : 0xFFFFFFFFu;
  extended.indices = mesh.getTriangles();
  // Without anything to skip no filter runs, so the plain query pays nothing for the option.
  if (options.ignoreTriangle >= 0 || options.ignoreVertex >= 0) extended.context.filter = ignoreFilter;
  RTCRayHit rayHit;
  const Point& origin = ray.getPoint();
  rayHit.ray.org_x = static_cast<float>(origin.x);
  rayHit.ray.org_y = static_cast<float>(origin.y);
  rayHit.ray.org_z = static_cast<float>(origin.z);
  rayHit.ray.dir_x = static_cast<float>(direction.getX());
  rayHit.ray.dir_y = static_cast<float>(direction.getY());
  rayHit.ray.dir_z = static_cast<float>(direction.getZ());
  rayHit.ray.tnear = static_cast<float>(std::max(options.minDistance, 0.0));
  rayHit.ray.tfar = options.maxDistance >= static_cast<double>(std::numeric_limits<float>::max())
                        ? std::numeric_limits<float>::infinity()
                        : static_cast<float>(options.maxDistance);
  rayHit.ray.time = 0.0f;
  rayHit.ray.mask = 0xFFFFFFFFu;
  rayHit.ray.id = 0;
  rayHit.ray.flags = 0;
  rayHit.hit.geomID = RTC_INVALID_GEOMETRY_ID;
  rayHit.hit.primID = RTC_INVALID_GEOMETRY_ID;
  rtcIntersect1(scene, &extended.context, &rayHit);
  if (rayHit.hit.geomID == RTC_INVALID_GEOMETRY_ID) return false;
  hit.hit = true;
  hit.triangle = static_cast<int>(rayHit.hit.primID);
  hit.distance = rayHit.ray.tfar;
  hit.u = rayHit.hit.u;
  hit.v = rayHit.hit.v;
  // Along the ray rather than from the corners: no reads of the mesh's arrays on the hot path.
  hit.point = origin + direction * hit.distance;
  return true;
}

}  // namespace

namespace {

void releaseScenesOf(BufferId id) noexcept {
  Cache& c = cache();
  std::lock_guard<std::mutex> lock(c.mutex);
  auto range = c.keysOf.equal_range(id);
  std::vector<CacheKey> keys;
  for (auto it = range.first; it != range.second; ++it) keys.push_back(it->second);
  c.keysOf.erase(id);
  for (const CacheKey& key : keys) {
    auto scene = c.scenes.find(key);
    if (scene == c.scenes.end()) continue;
    rtcReleaseScene(scene->second);
    c.scenes.erase(scene);
    // Drop the entry under the other identity too.
    const BufferId other = key.vertices == id ? key.triangles : key.vertices;
    auto others = c.keysOf.equal_range(other);
    for (auto it = others.first; it != others.second; ++it) {
      if (it->second == key) {
        c.keysOf.erase(it);
        break;
      }
    }
  }
}

}  // namespace

ruString::CString rayQueryError() { return device().error; }

Point MeshCoord::evaluate() const noexcept {
  if (!valid()) return Point();
  return corners_[0] + (corners_[1] - corners_[0]) * getU() + (corners_[2] - corners_[0]) * getV();
}

bool meshRayIntersect(const CompactMesh& mesh, const ruLinear::Line& ray, MeshRayHit& hit, const MeshRayOptions& options) {
  RTCScene scene = acquireScene(mesh);
  const bool found = castRay(scene, mesh, ray, hit, options);
  if (scene) rtcReleaseScene(scene);
  return found;
}

MeshRayQuery::MeshRayQuery(const CompactMesh& mesh) : mesh_(mesh), scene_(acquireScene(mesh)) {}

MeshRayQuery::~MeshRayQuery() {
  if (scene_) rtcReleaseScene(static_cast<RTCScene>(scene_));
}

bool MeshRayQuery::intersect(const ruLinear::Line& ray, MeshRayHit& hit, const MeshRayOptions& options) const {
  return castRay(static_cast<RTCScene>(scene_), mesh_, ray, hit, options);
}

int MeshRayQuery::intersect(const float origin[3], const float direction[3], float maxDistance, float& distance,
                            float& u, float& v) const {
  if (!scene_) return -1;
  RTCIntersectContext context;
  rtcInitIntersectContext(&context);
  RTCRayHit rayHit;
  rayHit.ray.org_x = origin[0];
  rayHit.ray.org_y = origin[1];
  rayHit.ray.org_z = origin[2];
  rayHit.ray.dir_x = direction[0];
  rayHit.ray.dir_y = direction[1];
  rayHit.ray.dir_z = direction[2];
  rayHit.ray.tnear = 0.0f;
  rayHit.ray.tfar = maxDistance;
  rayHit.ray.time = 0.0f;
  rayHit.ray.mask = 0xFFFFFFFFu;
  rayHit.ray.id = 0;
  rayHit.ray.flags = 0;
  rayHit.hit.geomID = RTC_INVALID_GEOMETRY_ID;
  rtcIntersect1(static_cast<RTCScene>(scene_), &context, &rayHit);
  if (rayHit.hit.geomID == RTC_INVALID_GEOMETRY_ID) return -1;
  distance = rayHit.ray.tfar;
  u = rayHit.hit.u;
  v = rayHit.hit.v;
  return static_cast<int>(rayHit.hit.primID);
}

namespace {

struct Screen {
  double x, y, w;
};

// The point of segment p-q nearest to c, as the parameter along it.
double nearestOnSegment(double cx, double cy, const Screen& p, const Screen& q) {
  const double dx = q.x - p.x, dy = q.y - p.y;
  const double length2 = dx * dx + dy * dy;
  if (length2 == 0.0) return 0.0;
  return std::clamp(((cx - p.x) * dx + (cy - p.y) * dy) / length2, 0.0, 1.0);
}

bool collectCandidate(RTCPointQueryFunctionArguments* args) {
  static_cast<std::vector<unsigned>*>(args->userPtr)->push_back(args->primID);
  return false;  // the query's radius stays as it is
}

// The world radius that `pixels` pixels span around `p`, measured across the ray (the smaller
// screen scale of two directions, so the radius is never short); negative when `p` has no
// screen position.
double pixelRadius(const ruLinear::ProjMatrix& m, const Point& p, const Vector& e1, const Vector& e2, double pixels,
                   double step) {
  double w0 = 0, w1 = 0, w2 = 0;
  const Point q0 = m.transform(p, &w0);
  const Point q1 = m.transform(p + e1 * step, &w1);
  const Point q2 = m.transform(p + e2 * step, &w2);
  if (!(w0 > 0 && w1 > 0 && w2 > 0)) return -1.0;
  const double perUnit = std::min(std::hypot(q1.x - q0.x, q1.y - q0.y), std::hypot(q2.x - q0.x, q2.y - q0.y)) / step;
  if (!(perUnit > 0) || !std::isfinite(perUnit)) return -1.0;
  return pixels / perUnit;
}

// Gathers the triangles that may lie within `tolerance` pixels of the ray on screen: a chain of
// spheres covers the cone of that radius along the ray, clipped to the scene's box, and each
// sphere is an Embree point query. Returns false when the cone cannot be measured.
bool coneCandidates(RTCScene scene, const ruLinear::ProjMatrix& m, const Point& origin, const Vector& direction,
                    int tolerance, const RTCBounds& b, std::vector<unsigned>& out) {
  const double pixels = tolerance + 1.0;  // the cursor lies anywhere in its pixel
  const double lower[3] = {b.lower_x, b.lower_y, b.lower_z}, upper[3] = {b.upper_x, b.upper_y, b.upper_z};
  double tFar = 0;
  for (int i = 0; i < 8; ++i) {
    tFar = std::max(tFar, ruLinear::distance(origin, Point(i & 1 ? upper[0] : lower[0], i & 2 ? upper[1] : lower[1],
                                                           i & 4 ? upper[2] : lower[2])));
  }
  const Vector e1 = direction.orthogonalVector().normalized();
  const Vector e2 = ruLinear::cross(direction, e1);
  auto wAt = [&](double t) {
    double w = 0;
    m.transform(origin + direction * t, &w);
    return w;
  };
  // w is affine along the ray. Where it is 0 lies the eye, the apex of the cone, where the
  // radius is 0 but cannot be measured; behind it nothing is drawn. A ray from the eye starts
  // there, so the apex must not stop the walk (that made a pick from inside the box test
  // every triangle).
  const double wOrigin = wAt(0.0), wSlope = wAt(1.0) - wOrigin;
  const bool hasApex = wSlope != 0.0 && std::isfinite(wOrigin) && std::isfinite(wSlope);
  const double tApex = hasApex ? -wOrigin / wSlope : 0.0;
  const double farStep = 1e-4 * std::max(tFar, 1e-6);
  auto radiusAt = [&](double t) {
    // Near the apex a sideways step must not reach behind the eye.
    const double step = hasApex ? std::min(farStep, 1e-3 * std::fabs(t - tApex)) : farStep;
    if (hasApex && !(step > 0)) return 0.0;
    return pixelRadius(m, origin + direction * t, e1, e2, pixels, step);
  };
  // The part of the ray that is drawn and lies inside the box grown by the largest radius.
  double t0 = 0, t1 = tFar;
  if (hasApex) {
    if (wSlope > 0) t0 = std::max(t0, tApex);
    else t1 = std::min(t1, tApex);
    if (t0 >= t1) return true;  // the box is behind the eye
  }
  const double rFar = std::max(radiusAt(t0), radiusAt(t1));
  if (rFar < 0) return false;
  t1 = tFar + rFar;
  if (hasApex && wSlope < 0) t1 = std::min(t1, tApex);
  for (int axis = 0; axis < 3; ++axis) {
    const double o = origin[axis], d = direction[axis];
    const double lo = lower[axis] - rFar, hi = upper[axis] + rFar;
    if (std::fabs(d) < 1e-300) {
      if (o < lo || o > hi) return true;
      continue;
    }
    double ta = (lo - o) / d, tb = (hi - o) / d;
    if (ta > tb) std::swap(ta, tb);
    t0 = std::max(t0, ta);
    t1 = std::min(t1, tb);
  }
  if (t0 > t1) return true;
  RTCPointQueryContext context;
  rtcInitPointQueryContext(&context);
  // Each sphere spans up to eight cone radii of ray; the radius grows linearly along the ray, so
  // the larger end's radius bounds the whole piece. At most about 256 pieces near the eye.
  const double minimum = (t1 - t0) / 256.0 + 1e-12;
  for (double a = t0; a < t1;) {
    const double ra = radiusAt(a);
    if (ra < 0) return false;
    const double bEnd = std::min(a + std::max(8.0 * ra, minimum), t1);
    const double rb = radiusAt(bEnd);
    if (rb < 0) return false;
    const double half = 0.5 * (bEnd - a);
    const double rmax = std::max(ra, rb);
    const Point centre = origin + direction * (a + half);
    RTCPointQuery query;
    query.x = static_cast<float>(centre.x);
    query.y = static_cast<float>(centre.y);
    query.z = static_cast<float>(centre.z);
    query.time = 0.0f;
    query.radius = static_cast<float>(std::sqrt(half * half + rmax * rmax) * 1.001 + 1e-6 * (1 + tFar));
    rtcPointQuery(scene, &query, &context, collectCandidate, &out);
    if (bEnd >= t1) break;
    a = bEnd;
  }
  return true;
}

}  // namespace

MeshCoord meshRayIntersectScreen(const CompactMesh& mesh, const ruLinear::ProjMatrixFlt& worldToViewport, int x, int y,
                                 int tolerance, const ruLinear::Line& ray) {
  const MeshVertex* vertices = mesh.getVertices();
  const std::uint32_t* tri = mesh.getTriangles();
  auto corner = [&](int triangle, int i) { return vertices[tri[3 * triangle + i]].asPoint(); };
  RTCScene scene = acquireScene(mesh);
  if (!scene) return MeshCoord();  // no triangles, or indices out of range
  struct Release {
    RTCScene scene;
    ~Release() { rtcReleaseScene(scene); }
  } release{scene};
  MeshRayHit hit;
  const bool found = castRay(scene, mesh, ray, hit, MeshRayOptions());
  RTCBounds bounds;
  rtcGetSceneBounds(scene, &bounds);
  if (found) {
    return MeshCoord(hit.triangle, hit.u, hit.v, corner(hit.triangle, 0), corner(hit.triangle, 1),
                     corner(hit.triangle, 2), hit.distance);
  }
  if (tolerance <= 0) return MeshCoord();
  const ruLinear::ProjMatrix matrix = worldToViewport.asProjMatrix();
  const double cx = x + 0.5, cy = y + 0.5;
  // A cursor well away from the projection of the mesh's box cannot be near any triangle: skip
  // the scan, which is what keeps a miss cheap on large meshes.
  {
    bool inFront = true;
    double lowX = INFINITY, lowY = INFINITY, highX = -INFINITY, highY = -INFINITY;
    for (int i = 0; i < 8 && inFront; ++i) {
      const Point p((i & 1) ? bounds.upper_x : bounds.lower_x, (i & 2) ? bounds.upper_y : bounds.lower_y,
                    (i & 4) ? bounds.upper_z : bounds.lower_z);
      double w = 0;
      const Point q = matrix.transform(p, &w);
      inFront = w > 0;
      lowX = std::min(lowX, q.x), highX = std::max(highX, q.x);
      lowY = std::min(lowY, q.y), highY = std::max(highY, q.y);
    }
    if (inFront && (cx < lowX - tolerance || cx > highX + tolerance || cy < lowY - tolerance || cy > highY + tolerance)) {
      return MeshCoord();
    }
  }
  Vector direction = ray.getDirection();
  if (direction.length2() == 0.0) return MeshCoord();
  direction.normalize();
  MeshCoord best;
  double bestDistance = std::numeric_limits<double>::infinity();
  // Tests one triangle against the pixel's tolerance disc in screen space.
  auto test = [&](int t) {
    Screen s[3];
    bool inFront = true;
    for (int i = 0; i < 3; ++i) {
      double w = 0;
      const Point p = matrix.transform(corner(t, i), &w);
      s[i] = Screen{p.x, p.y, w};
      inFront = inFront && w > 0;
    }
    if (!inFront) return;
    // Screen barycentrics of the nearest point of the projected triangle to the pixel centre.
    double b[3] = {0, 0, 0};
    const double area = (s[1].x - s[0].x) * (s[2].y - s[0].y) - (s[2].x - s[0].x) * (s[1].y - s[0].y);
    bool inside = false;
    if (area != 0.0) {
      const double l1 = ((cx - s[0].x) * (s[2].y - s[0].y) - (s[2].x - s[0].x) * (cy - s[0].y)) / area;
      const double l2 = ((s[1].x - s[0].x) * (cy - s[0].y) - (cx - s[0].x) * (s[1].y - s[0].y)) / area;
      if (l1 >= 0 && l2 >= 0 && l1 + l2 <= 1) {
        b[0] = 1 - l1 - l2, b[1] = l1, b[2] = l2;
        inside = true;
      }
    }
    double gap = 0.0;
    if (!inside) {
      gap = std::numeric_limits<double>::infinity();
      for (int e = 0; e < 3; ++e) {
        const int i = e, j = (e + 1) % 3;
        const double f = nearestOnSegment(cx, cy, s[i], s[j]);
        const double px = s[i].x + f * (s[j].x - s[i].x), py = s[i].y + f * (s[j].y - s[i].y);
        const double d = std::hypot(px - cx, py - cy);
        if (d < gap) {
          gap = d;
          b[0] = b[1] = b[2] = 0;
          b[i] = 1 - f;
          b[j] = f;
        }
      }
    }
    if (gap > tolerance) return;
    // Screen barycentrics to world ones: divide by each corner's w and renormalise.
    double wb[3], sum = 0;
    for (int i = 0; i < 3; ++i) sum += (wb[i] = b[i] / s[i].w);
    if (!(sum > 0)) return;
    for (double& value : wb) value /= sum;
    const Point a = corner(t, 0), p1 = corner(t, 1), p2 = corner(t, 2);
    const Point point = a + (p1 - a) * wb[1] + (p2 - a) * wb[2];
    const double along = ruLinear::dot(point - ray.getPoint(), direction);
    if (along < bestDistance) {
      bestDistance = along;
      best = MeshCoord(t, wb[1], wb[2], a, p1, p2, along);
    }
    };
  // Candidates: triangles whose bounds meet a chain of spheres that covers the cone of the
  // tolerance disc along the ray inside the mesh's box. Each sphere is found by an Embree point
  // query, so a miss costs a few queries rather than a pass over every triangle.
  std::vector<unsigned> candidates;
  if (!coneCandidates(scene, matrix, ray.getPoint(), direction, tolerance, bounds, candidates)) {
    // The matrix and ray do not give a usable cone (a point without screen position): test all.
    for (int t = 0; t < mesh.getNumTriangles(); ++t) test(t);
    return best;
  }
  std::sort(candidates.begin(), candidates.end());
  candidates.erase(std::unique(candidates.begin(), candidates.end()), candidates.end());
  for (unsigned t : candidates) test(static_cast<int>(t));
  return best;
}

std::uint64_t accelerationBuildCount() noexcept { return cache().builds.load(std::memory_order_relaxed); }

std::size_t accelerationCacheSize() noexcept {
  Cache& c = cache();
  std::lock_guard<std::mutex> lock(c.mutex);
  return c.scenes.size();
}

}  // namespace ruGeom
