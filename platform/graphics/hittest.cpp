#include "platform/graphics/hittest.h"

#include "platform/geometry/raycast.h"
#include "platform/graphics/internal.h"
#include "platform/graphics/world.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <tuple>
#include <vector>

namespace voGR {

HitFilter::~HitFilter() = default;

ComposingHitFilter::ComposingHitFilter() = default;
ComposingHitFilter::~ComposingHitFilter() = default;

void ComposingHitFilter::add(ru::Reference<HitFilter> filter) { members_.push_back(std::move(filter)); }

bool ComposingHitFilter::remove(const ru::Reference<HitFilter>& filter) {
  auto found = std::find_if(members_.begin(), members_.end(),
                            [&](const ru::Reference<HitFilter>& member) { return member.get() == filter.get(); });
  if (found == members_.end()) return false;
  members_.erase(found);
  return true;
}

bool ComposingHitFilter::filter(const DrawItem& item) const {
  for (const ru::Reference<HitFilter>& member : members_) {
    if (member && !member->accepts(item)) return false;
  }
  return true;
}

DrawItemPropertyHitFilter::~DrawItemPropertyHitFilter() = default;

bool DrawItemPropertyHitFilter::filter(const DrawItem& item) const { return item.getSubsystemId() == id_; }

namespace {

auto configKey(const HitTestConfig& c) noexcept {
  return std::make_tuple(reinterpret_cast<std::uintptr_t>(c.firstFilter.get()),
                         reinterpret_cast<std::uintptr_t>(c.secondFilter.get()), c.radius, c.hitTestMode);
}

}  // namespace

bool operator<(const HitTestConfig& a, const HitTestConfig& b) noexcept { return configKey(a) < configKey(b); }
bool operator==(const HitTestConfig& a, const HitTestConfig& b) noexcept { return configKey(a) == configKey(b); }

bool equivalent(const ru::vector<HitRecord>& a, const ru::vector<HitRecord>& b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (a[i].owner != b[i].owner || a[i].id != b[i].id || a[i].label != b[i].label ||
        a[i].subObject != b[i].subObject)
      return false;
  }
  return true;
}

namespace {

using ruLinear::Point;
using ruLinear::Vector;

constexpr float kNoHit = std::numeric_limits<float>::infinity();
// Drawn edges lie on the faces they outline; a line point this much (relative to its distance
// from the eye) behind the nearest face still counts as in front.
constexpr double kLineDepthAllowance = 1e-3;

// Offsets of the pick disc inside the rectangle [x0, x1] x [y0, y1] of offsets, nearest the
// centre first (then by row, then by column).
void makeDisc(int radius, int x0, int x1, int y0, int y1, std::vector<std::pair<int, int>>& offsets) {
  offsets.clear();
  const long long r2 = static_cast<long long>(radius) * radius;
  for (int dy = std::max(-radius, y0); dy <= std::min(radius, y1); ++dy) {
    for (int dx = std::max(-radius, x0); dx <= std::min(radius, x1); ++dx) {
      if (static_cast<long long>(dx) * dx + static_cast<long long>(dy) * dy <= r2) offsets.emplace_back(dx, dy);
    }
  }
  std::sort(offsets.begin(), offsets.end(), [](const auto& a, const auto& b) {
    const long long da = static_cast<long long>(a.first) * a.first + static_cast<long long>(a.second) * a.second;
    const long long db = static_cast<long long>(b.first) * b.first + static_cast<long long>(b.second) * b.second;
    return std::tie(da, a.second, a.first) < std::tie(db, b.second, b.first);
  });
}

// The whole disc for the usual small radii, kept per thread since the radius rarely changes.
const std::vector<std::pair<int, int>>& discOffsets(int radius) {
  thread_local int cachedRadius = -1;
  thread_local std::vector<std::pair<int, int>> offsets;
  if (radius != cachedRadius) {
    makeDisc(radius, -radius, radius, -radius, radius, offsets);
    cachedRadius = radius;
  }
  return offsets;
}

enum class Kind { Triangles, Lines, Points };

// The triangles of one item, in its local coordinates: Embree through the shared acceleration
// structure, or (for a mesh that only has strips, which Embree is not given) a direct test. Kept
// between calls for reuse, holding a mesh only from reset to release.
class TriangleSource {
public:
  void reset(const ruGeom::CompactMesh& mesh) {
    mesh_ = &mesh;
    strips_.clear();
    if (mesh.hasTriangles()) {
      query_.emplace(mesh);
    } else {
      const std::uint32_t* indices = mesh.getStripIndices();
      std::size_t start = 0;
      for (int s = 0; s < mesh.getNumStrips(); ++s) {
        const std::uint32_t length = mesh.getStripLength(s);
        for (std::uint32_t k = 0; k + 2 < length; ++k) {
          std::uint32_t a = indices[start + k], b = indices[start + k + 1];
          if (k % 2) std::swap(a, b);
          strips_.insert(strips_.end(), {a, b, indices[start + k + 2]});
        }
        start += length;
      }
    }
  }
  // Lets go of the mesh and its acceleration structure.
  void release() {
    query_.reset();
    strips_.clear();
    mesh_ = nullptr;
  }

  // The nearest triangle along origin + t * direction (t >= 0), -1 for none; `t` in units of
  // the direction.
  int intersect(const Point& origin, const Vector& direction, float& t) const {
    if (query_) {
      const float o[3] = {float(origin.x), float(origin.y), float(origin.z)};
      const float d[3] = {float(direction.getX()), float(direction.getY()), float(direction.getZ())};
      float u = 0, v = 0;
      return query_->intersect(o, d, kNoHit, t, u, v);
    }
    const ruGeom::MeshVertex* vertices = mesh_->getVertices();
    const std::uint32_t count = static_cast<std::uint32_t>(mesh_->getNumVertices());
    int best = -1;
    double bestT = std::numeric_limits<double>::infinity();
    for (std::size_t i = 0; i + 2 < strips_.size(); i += 3) {
      if (strips_[i] >= count || strips_[i + 1] >= count || strips_[i + 2] >= count) continue;
      const Point a = vertices[strips_[i]].asPoint(), b = vertices[strips_[i + 1]].asPoint(),
                  c = vertices[strips_[i + 2]].asPoint();
      // Moeller-Trumbore, both sides.
      const Vector e1 = b - a, e2 = c - a;
      const Vector p = ruLinear::cross(direction, e2);
      const double determinant = ruLinear::dot(e1, p);
      if (std::abs(determinant) < 1e-300) continue;
      const Vector s = origin - a;
      const double u = ruLinear::dot(s, p) / determinant;
      if (u < 0 || u > 1) continue;
      const Vector q = ruLinear::cross(s, e1);
      const double v = ruLinear::dot(direction, q) / determinant;
      if (v < 0 || u + v > 1) continue;
      const double hit = ruLinear::dot(e2, q) / determinant;
      if (hit >= 0 && hit < bestT) {
        bestT = hit;
        best = static_cast<int>(i / 3);
      }
    }
    if (best >= 0) t = static_cast<float>(bestT);
    return best;
  }

private:
  const ruGeom::CompactMesh* mesh_ = nullptr;
  std::optional<ruGeom::MeshRayQuery> query_;
  std::vector<std::uint32_t> strips_;
};

struct Candidate {
  DrawItem* item = nullptr;
  std::uint64_t order = 0;
  Kind kind = Kind::Triangles;
  bool screen = false;
  bool occluder = false;
  bool reported = false;
  bool hidable = false;
  const ruGeom::CompactMesh* mesh = nullptr;
  ruLinear::AffineMatrix toWorld;
  ruLinear::AffineMatrix toLocal;
  TriangleSource* triangles = nullptr;
  // The world sphere holding the item's vertices, when it has one (world items only).
  bool bounded = false;
  Point centre;
  double radius = 0;
};

struct Found {
  int group = 1;  // 0: viewport pixels, 1: world
  double depth = 0;
  std::uint64_t order = 0;
  HitRecord record;
};

struct DiscPixel {
  double x, y;  // centre, viewport pixels
  Vector direction;
  bool hasDirection = false;
};

struct Scratch {
  std::vector<DiscPixel> disc;
  std::vector<std::pair<std::uint64_t, DrawItem*>> visited;
  std::vector<Candidate> candidates;
  std::vector<std::unique_ptr<TriangleSource>> sources;
  std::size_t sourcesUsed = 0;
  std::vector<float> hitT, occluded;
  std::vector<int> hitTriangle, slot;
  std::vector<Found> found;
  // A triangle source for `mesh`, from those kept.
  TriangleSource* source(const ruGeom::CompactMesh& mesh) {
    if (sourcesUsed == sources.size()) sources.push_back(std::make_unique<TriangleSource>());
    TriangleSource* s = sources[sourcesUsed++].get();
    s->reset(mesh);
    return s;
  }
  void clear() {
    disc.clear();
    visited.clear();
    candidates.clear();
    found.clear();
    for (std::size_t i = 0; i < sourcesUsed; ++i) sources[i]->release();
    sourcesUsed = 0;
  }
};

// The world ray through the centre of a viewport pixel: from the eye, unit direction.
Vector pixelDirection(const ruGeom::Camera& camera, double x, double y) {
  return camera.getWorldSpaceRay(ruLinear::Point2(x, y)).getDirection();
}

// True when the ray from `origin` along `direction` (t >= 0) certainly passes the item's sphere, so
// it cannot hit the item: a few multiplications instead of a trip through the acceleration
// structure. The slack keeps rounding from turning away a ray that grazes the sphere.
bool passesSphere(const Candidate& c, const Point& origin, const Vector& direction) {
  if (!c.bounded) return false;
  const Vector toCentre = c.centre - origin;
  const double length2 = dotInline(direction, direction);
  if (!(length2 > 0)) return false;
  const double along = dotInline(toCentre, direction) / std::sqrt(length2);
  const double squared = dotInline(toCentre, toCentre);
  const double reach = c.radius + 1e-6 * (c.radius + std::sqrt(squared)) + 1e-12;
  if (along < -reach) return true;  // wholly behind the origin
  return squared - along * along > reach * reach;
}

// The nearest hit of a world ray on the item's triangles, in world units along the (unit) ray.
int hitWorld(const Candidate& c, const Point& eye, const Vector& direction, float& t) {
  if (passesSphere(c, eye, direction)) return -1;
  return c.triangles->intersect(eye * c.toLocal, direction * c.toLocal, t);
}

}  // namespace

float visibilityTest(const DrawSystem& system, const ruGeom::Camera& camera, const ruLinear::Point2& point,
                     const HitTestConfig& config, ru::vector<HitRecord>& records) {
  records.clear();
  const ruGeom::Viewport& viewport = camera.getViewport();
  if (config.radius < 0 || !std::isfinite(point.x) || !std::isfinite(point.y)) return FLT_MAX;
  if (!(viewport.width >= 1 && viewport.height >= 1)) return FLT_MAX;
  if (point.x < viewport.x || point.y < viewport.y || point.x >= viewport.x + viewport.width ||
      point.y >= viewport.y + viewport.height)
    return FLT_MAX;
  const ru::Reference<Database> database = system.getActiveDatabase();
  if (!database) return FLT_MAX;

  // The pick disc, clipped to the viewport, centre first.
  const int cx = static_cast<int>(std::floor(point.x)), cy = static_cast<int>(std::floor(point.y));
  // Working storage kept per thread between calls; a test started from inside a filter gets
  // its own.
  thread_local Scratch shared;
  thread_local int nesting = 0;
  std::unique_ptr<Scratch> own;
  Scratch& scratch = nesting == 0 ? shared : *(own = std::make_unique<Scratch>());
  // Nothing outlives the call: the candidates hold meshes and acceleration structures.
  struct Nesting {
    int& depth;
    Scratch& scratch;
    Nesting(int& d, Scratch& s) : depth(d), scratch(s) { ++depth; }
    ~Nesting() {
      scratch.clear();
      --depth;
    }
  } nested(nesting, scratch);
  std::vector<DiscPixel>& disc = scratch.disc;
  // A large disc is cut to the viewport before it is made.
  thread_local std::vector<std::pair<int, int>> large;
  const std::vector<std::pair<int, int>>* offsets = &large;
  if (config.radius <= 32) {
    offsets = &discOffsets(config.radius);
  } else {
    const int left = static_cast<int>(std::floor(viewport.x)) - cx - 1;
    const int bottom = static_cast<int>(std::floor(viewport.y)) - cy - 1;
    const int right = static_cast<int>(std::ceil(viewport.x + viewport.width)) - cx + 1;
    const int top = static_cast<int>(std::ceil(viewport.y + viewport.height)) - cy + 1;
    makeDisc(config.radius, left, right, bottom, top, large);
  }
  for (const auto& [dx, dy] : *offsets) {
    const double x = cx + dx + 0.5, y = cy + dy + 0.5;
    if (x < viewport.x || y < viewport.y || x >= viewport.x + viewport.width || y >= viewport.y + viewport.height)
      continue;
    disc.push_back({x, y, Vector(), false});
  }
  const std::size_t numPixels = disc.size();

  // The items taking part.
  const HitFilter* first = config.firstFilter.get();
  const HitFilter* second = config.secondFilter.get();
  std::vector<Candidate>& candidates = scratch.candidates;
  // Every ray a world item is tested along (disc pixels, and lines within reach of the centre)
  // lies in a cone around the ray through the centre pixel. Two rays through points s apart on
  // the image plane at unit distance make an angle of at most s, so the cone's half-angle is the
  // reach in pixels times the larger pixel side there. An item whose bounding sphere misses the
  // cone can neither be seen nor hide anything, and is left out before any ray is cast.
  const double reachPixels = config.radius + 2.0;
  const double unitPixel =
      2.0 * std::tan(0.5 * camera.getFrustum().getAngle()) *
      std::max(1.0 / viewport.height, std::max(camera.getFrustum().getAspectRatio(), 1e-12) / viewport.width);
  const double coneAngle = reachPixels * unitPixel;
  const bool coneCull = std::isfinite(coneAngle) && coneAngle > 0 && coneAngle < 1.5;
  PickCone cone;
  cone.apex = camera.getEyeLocation();
  cone.axis = pixelDirection(camera, cx + 0.5, cy + 0.5);
  cone.sine = std::sin(coneAngle);
  cone.cosine = std::cos(coneAngle);
  cone.bounded = coneCull;
  const double centrePixelX = cx + 0.5 - viewport.x, centrePixelY = cy + 0.5 - viewport.y;
  // False when the item's bounding sphere cannot reach the pick region.
  auto mayReach = [&](bool bounded, const Point& centre, double radius, bool screen) {
    if (!bounded) return true;
    if (screen) {
      const double dx = centre.x - centrePixelX, dy = centre.y - centrePixelY;
      return std::sqrt(dx * dx + dy * dy) <= radius + reachPixels;
    }
    if (!coneCull) return true;
    double fromApex = 0;
    return coneDistance(cone, centre, fromApex) <= radius;
  };
  // The database's index hands over the items whose sphere may meet the cone (and those it cannot
  // place); they are taken in the order they joined, as a walk of every item would.
  std::vector<std::pair<std::uint64_t, DrawItem*>>& visited = scratch.visited;
  pickIndexOf(*database).collect(cone, visited);
  std::sort(visited.begin(), visited.end());
  for (const auto& [index, itemPointer] : visited) {
    DrawItem& item = *itemPointer;
    if (!item.isPickable() || !item.isDrawable() || item.isOverlay()) continue;
    auto* geometry = dynamic_cast<MeshGeometry*>(item.getGeometry());
    const ruGeom::CompactMesh* mesh = geometry ? geometry->getMesh().get() : nullptr;
    if (!mesh || mesh->getNumVertices() == 0) continue;
    Candidate c;
    c.item = &item;
    c.order = index;
    c.mesh = mesh;
    c.screen = item.getSpace() == SpaceScreen;
    if (geometry->isTriangles()) {
      if (!mesh->hasTriangles() && !mesh->hasStrips()) continue;
      c.kind = Kind::Triangles;
    } else {
      c.kind = mesh->hasLines() ? Kind::Lines : Kind::Points;
    }
    c.bounded = item.getWorldBoundingSphere(c.centre, c.radius);
    if (!mayReach(c.bounded, c.centre, c.radius, c.screen)) continue;
    // Viewport items are not tested along world rays.
    if (c.screen) c.bounded = false;
    c.hidable = !c.screen && item.getDepthInteraction() == DepthNormal;
    c.occluder = c.hidable && c.kind == Kind::Triangles && (!first || first->accepts(item));
    c.reported = !second || second->accepts(item);
    if (!c.occluder && !c.reported) continue;
    bool invertible = true;
    c.toWorld = item.getLocalToWorld();
    c.toLocal = c.toWorld.inverse(&invertible);
    if (!invertible) continue;
    if (c.kind == Kind::Triangles) c.triangles = scratch.source(*mesh);
    candidates.push_back(std::move(c));
  }
  if (candidates.empty()) return FLT_MAX;

  const Point eye = camera.getEyeLocation();
  const ruLinear::ProjMatrix worldToViewport = camera.getWorldToViewport();
  // A disc pixel's ray, worked out when first needed: a hit at the centre usually settles it.
  auto directionAt = [&](std::size_t k) -> const Vector& {
    DiscPixel& p = disc[k];
    if (!p.hasDirection) {
      p.direction = pixelDirection(camera, p.x, p.y);
      p.hasDirection = true;
    }
    return p.direction;
  };

  // World triangle hits of the items at the disc pixels, and the nearest occluder per pixel, each
  // cast when first asked for (kNotCast until then) and kept for the rest of the call.
  constexpr float kNotCast = -1.0f;
  std::vector<float>& hitT = scratch.hitT;
  std::vector<int>& hitTriangle = scratch.hitTriangle;
  std::vector<float>& occluded = scratch.occluded;
  std::vector<int>& slot = scratch.slot;
  occluded.assign(numPixels, kNotCast);
  slot.assign(candidates.size(), -1);
  int numSlots = 0;
  for (std::size_t i = 0; i < candidates.size(); ++i) {
    if (!candidates[i].screen && candidates[i].kind == Kind::Triangles) slot[i] = numSlots++;
  }
  hitT.assign(std::size_t(numSlots) * numPixels, kNotCast);
  hitTriangle.assign(std::size_t(numSlots) * numPixels, -1);
  auto hitAt = [&](std::size_t i, std::size_t k) {
    const std::size_t at = slot[i] * numPixels + k;
    if (hitT[at] == kNotCast) {
      float t = kNoHit;
      const int triangle = hitWorld(candidates[i], eye, directionAt(k), t);
      hitT[at] = triangle < 0 ? kNoHit : t;
      hitTriangle[at] = triangle;
    }
    return hitT[at];
  };
  auto occludedAt = [&](std::size_t k) {
    if (occluded[k] == kNotCast) {
      float nearest = kNoHit;
      for (std::size_t i = 0; i < candidates.size(); ++i) {
        if (candidates[i].occluder) nearest = std::min(nearest, hitAt(i, k));
      }
      occluded[k] = nearest;
    }
    return occluded[k];
  };
  // The nearest occluder along any other world ray (for line and point items).
  auto occluderAlong = [&](const Vector& direction) {
    float nearest = kNoHit;
    for (const Candidate& c : candidates) {
      if (!c.occluder) continue;
      float t = kNoHit;
      if (hitWorld(c, eye, direction, t) >= 0) nearest = std::min(nearest, t);
    }
    return nearest;
  };

  const double centreX = cx + 0.5, centreY = cy + 0.5;
  const double lineReach = config.radius + 0.5;
  const double nearDistance = camera.getFrustum().getNear();
  const Vector view = camera.getViewVector();
  std::vector<Found>& found = scratch.found;
  for (std::size_t i = 0; i < candidates.size(); ++i) {
    const Candidate& c = candidates[i];
    if (!c.reported) continue;
    Found f;
    f.group = c.screen ? 0 : 1;
    f.order = c.order;
    bool seen = false;
    if (c.kind == Kind::Triangles && !c.screen) {
      for (std::size_t k = 0; k < numPixels && !seen; ++k) {
        const float t = hitAt(i, k);
        if (t == kNoHit || (c.hidable && t > occludedAt(k))) continue;
        seen = true;
        f.record.point = eye + disc[k].direction * double(t);
        f.record.triangle = hitTriangle[slot[i] * numPixels + k];
        f.depth = (f.record.point * worldToViewport).z;
      }
    } else if (c.kind == Kind::Triangles) {
      // Viewport pixels: a line across the item's plane through each pixel centre, both ways.
      const Vector across = Vector(0, 0, 1) * c.toLocal;
      for (std::size_t k = 0; k < numPixels && !seen; ++k) {
        const Point at(disc[k].x - viewport.x, disc[k].y - viewport.y, 0.0);
        const Point origin = at * c.toLocal;
        float t = kNoHit;
        int triangle = c.triangles->intersect(origin, across, t);
        if (triangle < 0) {
          triangle = c.triangles->intersect(origin, -across, t);
          t = -t;
        }
        if (triangle < 0) continue;
        seen = true;
        f.record.point = Point(at.x, at.y, double(t));
        f.record.triangle = triangle;
      }
    } else {
      // Lines and points: the primitive whose projection comes nearest the centre pixel.
      const ruGeom::MeshVertex* vertices = c.mesh->getVertices();
      const int numVertices = c.mesh->getNumVertices();
      const double px = c.screen ? centreX - viewport.x : centreX;
      const double py = c.screen ? centreY - viewport.y : centreY;
      double best = std::numeric_limits<double>::infinity();
      int bestIndex = -1;
      Point bestPoint;
      // Projects a world point: viewport x, y and its eye depth.
      auto project = [&](const Point& world, double& x, double& y) {
        if (c.screen) {
          x = world.x, y = world.y;
          return;
        }
        const Point v = world * worldToViewport;
        x = v.x, y = v.y;
      };
      auto consider = [&](int index, Point a, Point b) {
        if (!c.screen) {
          // Keep the part in front of the near plane; eye depth is affine along the segment.
          const double da = ruLinear::dot(a - eye, view), db = ruLinear::dot(b - eye, view);
          if (da < nearDistance && db < nearDistance) return;
          if (da < nearDistance) a = a + (b - a) * ((nearDistance - da) / (db - da));
          else if (db < nearDistance) b = b + (a - b) * ((nearDistance - db) / (da - db));
        }
        double ax, ay, bx, by;
        project(a, ax, ay);
        project(b, bx, by);
        const double ex = bx - ax, ey = by - ay;
        const double len2 = ex * ex + ey * ey;
        double s = len2 > 0 ? ((px - ax) * ex + (py - ay) * ey) / len2 : 0.0;
        s = std::clamp(s, 0.0, 1.0);
        const double qx = ax + s * ex - px, qy = ay + s * ey - py;
        const double d = std::sqrt(qx * qx + qy * qy);
        if (d >= best) return;
        best = d;
        bestIndex = index;
        if (c.screen) {
          bestPoint = a + (b - a) * s;
        } else {
          // Back from the screen parameter to the segment's own (perspective).
          const double wa = ruLinear::dot(a - eye, view), wb = ruLinear::dot(b - eye, view);
          const double denominator = (1.0 - s) * wb + s * wa;
          const double tau = denominator > 0 ? s * wa / denominator : s;
          bestPoint = a + (b - a) * tau;
        }
      };
      if (c.kind == Kind::Lines) {
        const std::uint32_t* lines = c.mesh->getLines();
        for (int l = 0; l < c.mesh->getNumLines(); ++l) {
          const std::uint32_t ia = lines[2 * l], ib = lines[2 * l + 1];
          if (ia >= std::uint32_t(numVertices) || ib >= std::uint32_t(numVertices)) continue;
          consider(l, vertices[ia].asPoint() * c.toWorld, vertices[ib].asPoint() * c.toWorld);
        }
      } else {
        for (int v = 0; v < numVertices; ++v) {
          const Point p = vertices[v].asPoint() * c.toWorld;
          consider(v, p, p);
        }
      }
      if (bestIndex >= 0 && best <= lineReach) {
        seen = true;
        if (c.hidable) {
          Vector direction = bestPoint - eye;
          const double distance = direction.normalize();
          const float t = occluderAlong(direction);
          if (t != kNoHit && distance > double(t) * (1.0 + kLineDepthAllowance)) seen = false;
        }
        f.record.point = bestPoint;
        f.record.line = bestIndex;
        if (!c.screen) f.depth = (bestPoint * worldToViewport).z;
      }
    }
    if (!seen) continue;
    f.record.owner = c.item->getObjectDrawOwner();
    f.record.source = c.item->getSource();
    f.record.id = c.item->getSubsystemId();
    f.record.subObject = c.item->isSubItem();
    f.record.label = c.item->getLabel();
    f.record.item = c.item;
    f.record.depth = f.depth;
    found.push_back(std::move(f));
  }
  if (found.empty()) return FLT_MAX;
  std::sort(found.begin(), found.end(), [](const Found& a, const Found& b) {
    return std::tie(a.group, a.depth, a.order) < std::tie(b.group, b.depth, b.order);
  });
  records.reserve(found.size());
  for (Found& f : found) records.push_back(std::move(f.record));
  return static_cast<float>(records.front().depth);
}

}  // namespace voGR
