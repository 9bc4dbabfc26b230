#include "platform/geometry/algorithms.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <mutex>
#include <unordered_map>

namespace ruGeom {

namespace {

bool indicesInRange(const std::uint32_t* indices, std::size_t count, std::uint32_t numVertices) {
  for (std::size_t i = 0; i < count; ++i) {
    if (indices[i] >= numVertices) return false;
  }
  return true;
}

// Fills `table` (three entries a triangle) with the triangle across each edge.
bool buildAdjacency(const CompactMesh& mesh, std::vector<int>& table) {
  table.clear();
  const int numTriangles = mesh.getNumTriangles();
  const std::uint32_t numVertices = static_cast<std::uint32_t>(mesh.getNumVertices());
  const std::uint32_t* tri = mesh.getTriangles();
  if (numTriangles == 0) return true;
  if (!indicesInRange(tri, static_cast<std::size_t>(numTriangles) * 3, numVertices)) return false;
  // Directed edges (slot 3t + e) grouped by their vertex pair: a counting sort by the smaller
  // vertex, then a sort of each vertex's few edges by the larger vertex and slot, puts each
  // pair's edges together in slot order in O(n log valence) whatever the valences (a vertex
  // shared by every triangle included). Edges from a vertex to itself join nothing.
  const std::size_t numSlots = static_cast<std::size_t>(numTriangles) * 3;
  auto to = [&](std::size_t slot) { return tri[slot % 3 == 2 ? slot - 2 : slot + 1]; };
  std::vector<std::uint32_t> start(static_cast<std::size_t>(numVertices) + 1, 0);
  for (std::size_t slot = 0; slot < numSlots; ++slot) {
    const std::uint32_t a = tri[slot], b = to(slot);
    if (a != b) ++start[std::min(a, b) + 1];
  }
  for (std::uint32_t v = 0; v < numVertices; ++v) start[v + 1] += start[v];
  // Each edge as (larger vertex << 32 | slot), so that sorting a bucket orders it by pair, then slot.
  std::vector<std::uint64_t> edges(start[numVertices]);
  {
    std::vector<std::uint32_t> next(start.begin(), start.end() - 1);
    for (std::size_t slot = 0; slot < numSlots; ++slot) {
      const std::uint32_t a = tri[slot], b = to(slot);
      if (a != b) edges[next[std::min(a, b)]++] = (static_cast<std::uint64_t>(std::max(a, b)) << 32) | slot;
    }
  }
  table.assign(numSlots, -1);
  auto slotOf = [](std::uint64_t edge) { return static_cast<std::size_t>(edge & 0xFFFFFFFFu); };
  auto pair = [&](std::size_t slot, std::size_t other) {
    table[slot] = static_cast<int>(other / 3);
    table[other] = static_cast<int>(slot / 3);
  };
  std::vector<std::size_t> ways[2];  // a pair's edges from its smaller vertex, and from its larger
  for (std::uint32_t lo = 0; lo < numVertices; ++lo) {
    std::uint64_t* bucket = edges.data() + start[lo];
    const std::size_t size = start[lo + 1] - start[lo];
    std::sort(bucket, bucket + size);
    for (std::size_t begin = 0; begin < size;) {
      std::size_t end = begin + 1;
      while (end < size && (bucket[end] >> 32) == (bucket[begin] >> 32)) ++end;
      if (end - begin == 2) {
        // The usual edge of two triangles: they pair whichever way they run.
        const std::size_t first = slotOf(bucket[begin]), second = slotOf(bucket[begin + 1]);
        if (first / 3 != second / 3) pair(first, second);
      } else if (end - begin > 2) {
        // Edges are taken in slot order; each still open takes the first open edge of another
        // triangle running the other way (consistent orientation), or else the first running the
        // same way. A triangle has at most one edge each way in a pair, so the scans skip at most
        // one open entry.
        ways[0].clear();
        ways[1].clear();
        for (std::size_t i = begin; i < end; ++i) ways[tri[slotOf(bucket[i])] == lo ? 0 : 1].push_back(slotOf(bucket[i]));
        std::size_t firstOpen[2] = {0, 0};  // every entry before these is paired
        auto take = [&](int way, std::size_t triangle) -> std::ptrdiff_t {
          const std::vector<std::size_t>& list = ways[way];
          while (firstOpen[way] < list.size() && table[list[firstOpen[way]]] != -1) ++firstOpen[way];
          for (std::size_t k = firstOpen[way]; k < list.size(); ++k) {
            if (table[list[k]] == -1 && list[k] / 3 != triangle) return static_cast<std::ptrdiff_t>(list[k]);
          }
          return -1;
        };
        for (std::size_t i = begin; i < end; ++i) {
          const std::size_t slot = slotOf(bucket[i]);
          if (table[slot] != -1) continue;
          const int way = tri[slot] == lo ? 0 : 1;
          std::ptrdiff_t other = take(1 - way, slot / 3);
          if (other == -1) other = take(way, slot / 3);
          if (other != -1) pair(slot, static_cast<std::size_t>(other));
        }
      }
      begin = end;
    }
  }
  return true;
}

}  // namespace

bool meshComputeNormals(CompactMesh& mesh) {
  const int numVertices = mesh.getNumVertices();
  const int numTriangles = mesh.getNumTriangles();
  if (numVertices == 0) return false;
  const std::uint32_t* tri = mesh.getTriangles();
  if (!indicesInRange(tri, static_cast<std::size_t>(numTriangles) * 3, static_cast<std::uint32_t>(numVertices))) {
    return false;
  }
  const MeshVertex* v = mesh.getVertices();
  std::vector<float> sum(static_cast<std::size_t>(numVertices) * 3, 0.0f);
  for (int t = 0; t < numTriangles; ++t) {
    const std::uint32_t a = tri[3 * t], b = tri[3 * t + 1], c = tri[3 * t + 2];
    const float e1x = v[b].x - v[a].x, e1y = v[b].y - v[a].y, e1z = v[b].z - v[a].z;
    const float e2x = v[c].x - v[a].x, e2y = v[c].y - v[a].y, e2z = v[c].z - v[a].z;
    // The cross product's length is twice the area: the sum is weighted by area.
    const float nx = e1y * e2z - e1z * e2y, ny = e1z * e2x - e1x * e2z, nz = e1x * e2y - e1y * e2x;
    for (std::uint32_t i : {a, b, c}) {
      sum[3 * i] += nx;
      sum[3 * i + 1] += ny;
      sum[3 * i + 2] += nz;
    }
  }
  MeshNormal* normals = mesh.editNormals();
  for (int i = 0; i < numVertices; ++i) {
    const double x = sum[3 * i], y = sum[3 * i + 1], z = sum[3 * i + 2];
    const double length = std::sqrt(x * x + y * y + z * z);
    if (length > 0.0 && std::isfinite(length)) {
      normals[i] = MeshNormal(static_cast<float>(x / length), static_cast<float>(y / length), static_cast<float>(z / length));
    } else {
      normals[i] = MeshNormal(0, 0, 1);
    }
  }
  return true;
}

int MeshAdjTris::neighbour(int triangle, int edge) const noexcept {
  if (triangle < 0 || edge < 0 || edge > 2 || triangle >= getNumTriangles()) return -1;
  return neighbours_[3 * static_cast<std::size_t>(triangle) + edge];
}

bool meshAdjTris(const CompactMesh& mesh, MeshAdjTris& out) {
  if (!buildAdjacency(mesh, out.neighbours_)) {
    out.neighbours_.clear();
    return false;
  }
  return true;
}

bool meshTriAdjTris(const CompactMesh& mesh, MeshTriAdjTrisDynamic& out) {
  if (!buildAdjacency(mesh, out.neighbours_)) {
    out.neighbours_.clear();
    return false;
  }
  return true;
}

void MeshTriAdjTrisDynamic::removeTriangle(int triangle) noexcept {
  if (triangle < 0 || triangle >= getNumTriangles()) return;
  for (int e = 0; e < 3; ++e) {
    const int other = neighbours_[3 * triangle + e];
    neighbours_[3 * triangle + e] = -1;
    if (other < 0) continue;
    for (int oe = 0; oe < 3; ++oe) {
      if (neighbours_[3 * other + oe] == triangle) neighbours_[3 * other + oe] = -1;
    }
  }
}

void MeshTriAdjTrisDynamic::setNeighbour(int triangle, int edge, int other) noexcept {
  if (triangle < 0 || triangle >= getNumTriangles() || edge < 0 || edge > 2) return;
  if (other < -1 || other >= getNumTriangles()) return;
  neighbours_[3 * triangle + edge] = other;
}

int MeshTriAdjTrisDynamic::countOpenEdges() const noexcept {
  return static_cast<int>(std::count(neighbours_.begin(), neighbours_.end(), -1));
}

int MeshTriStrip::computeStrips(int maxTriangles, int startTriangle) {
  const int numTriangles = mesh_.getNumTriangles();
  if (adjacency_.getNumTriangles() != numTriangles) return -1;
  if (maxTriangles < 1) maxTriangles = 1;
  if (startTriangle < 0 || startTriangle >= numTriangles) startTriangle = 0;
  const std::uint32_t* tri = mesh_.getTriangles();
  const std::vector<int>& adj = adjacency_.table();
  std::vector<std::uint8_t> used(numTriangles, 0);
  std::vector<std::uint32_t> indices, lengths, stripTriangles;
  indices.reserve(static_cast<std::size_t>(numTriangles) * 2 + 16);
  stripTriangles.reserve(numTriangles);
  auto proper = [&](int t) {
    const std::uint32_t a = tri[3 * t], b = tri[3 * t + 1], c = tri[3 * t + 2];
    return a != b && b != c && a != c;
  };
  // The neighbour across edge `e` of `t` if it can continue a strip: unused, proper, and running
  // the edge the other way (so its winding survives the strip's alternation). Gives its third
  // vertex.
  auto follower = [&](int t, int e, std::uint32_t& third) {
    const int n = adj[3 * t + e];
    if (n < 0 || used[n] || !proper(n)) return -1;
    const std::uint32_t a = tri[3 * t + e], b = tri[3 * t + (e + 1) % 3];
    for (int ne = 0; ne < 3; ++ne) {
      if (tri[3 * n + ne] == b && tri[3 * n + (ne + 1) % 3] == a) {
        third = tri[3 * n + (ne + 2) % 3];
        return n;
      }
    }
    return -1;
  };
  auto edgeOf = [&](int t, std::uint32_t p, std::uint32_t q) {
    for (int e = 0; e < 3; ++e) {
      const std::uint32_t a = tri[3 * t + e], b = tri[3 * t + (e + 1) % 3];
      if ((a == p && b == q) || (a == q && b == p)) return e;
    }
    return -1;
  };
  for (int k = 0; k < numTriangles; ++k) {
    const int t = (startTriangle + k) % numTriangles;
    if (used[t]) continue;
    used[t] = 1;
    // Start with the rotation whose walk runs longest: each walk is a dry run of the one below,
    // at most maxTriangles steps, so choosing costs at most three times the strip kept.
    int rotation = 0;
    if (proper(t)) {
      int longest = 0;
      for (int r = 0; r < 3; ++r) {
        int length = 1, current = t, edge = (r + 1) % 3;
        std::uint32_t last = tri[3 * t + (r + 2) % 3];
        while (length < maxTriangles) {
          std::uint32_t third;
          const int next = follower(current, edge, third);
          if (next < 0 || next == t) break;
          ++length;
          edge = edgeOf(next, last, third);
          last = third;
          current = next;
        }
        if (length > longest) longest = length, rotation = r;
      }
    }
    const std::size_t begin = indices.size();
    indices.push_back(tri[3 * t + rotation]);
    indices.push_back(tri[3 * t + (rotation + 1) % 3]);
    indices.push_back(tri[3 * t + (rotation + 2) % 3]);
    stripTriangles.push_back(static_cast<std::uint32_t>(t));
    int count = 1;
    int current = t;
    int edge = (rotation + 1) % 3;
    while (count < maxTriangles && proper(current)) {
      std::uint32_t third;
      const int next = follower(current, edge, third);
      if (next < 0) break;
      used[next] = 1;
      const std::uint32_t last = indices.back();
      indices.push_back(third);
      stripTriangles.push_back(static_cast<std::uint32_t>(next));
      ++count;
      current = next;
      edge = edgeOf(next, last, third);
    }
    lengths.push_back(static_cast<std::uint32_t>(indices.size() - begin));
  }
  mesh_.setStrips(indices.data(), static_cast<int>(indices.size()), lengths.data(), static_cast<int>(lengths.size()),
                  stripTriangles.data());
  return static_cast<int>(lengths.size());
}

bool meshSplit(const CompactMesh& mesh, int maxVertices, ru::vector<CompactMesh*>& out) {
  if (maxVertices < 3) return false;
  const std::uint32_t numVertices = static_cast<std::uint32_t>(mesh.getNumVertices());
  const std::size_t numTriangleIndices = static_cast<std::size_t>(mesh.getNumTriangles()) * 3;
  const std::size_t numLineIndices = static_cast<std::size_t>(mesh.getNumLines()) * 2;
  if (!indicesInRange(mesh.getTriangles(), numTriangleIndices, numVertices) ||
      !indicesInRange(mesh.getLines(), numLineIndices, numVertices)) {
    return false;
  }
  struct Part {
    std::vector<std::uint32_t> globals;  // original vertex of each part vertex
    std::vector<std::uint32_t> triangles, lines;
  };
  std::vector<Part> parts;
  std::vector<std::uint32_t> local(numVertices, 0);
  std::vector<std::int32_t> owner(numVertices, -1);  // part that holds a copy of the vertex
  auto place = [&](const std::uint32_t* prim, int corners, bool isTriangle) {
    int fresh = 0;
    const std::int32_t current = static_cast<std::int32_t>(parts.size()) - 1;
    for (int c = 0; c < corners; ++c) {
      bool repeat = false;
      for (int d = 0; d < c; ++d) repeat = repeat || prim[d] == prim[c];
      if (!repeat && (current < 0 || owner[prim[c]] != current)) ++fresh;
    }
    if (current < 0 || parts.back().globals.size() + fresh > static_cast<std::size_t>(maxVertices)) {
      parts.emplace_back();
    }
    Part& part = parts.back();
    const std::int32_t index = static_cast<std::int32_t>(parts.size()) - 1;
    for (int c = 0; c < corners; ++c) {
      const std::uint32_t v = prim[c];
      if (owner[v] != index) {
        owner[v] = index;
        local[v] = static_cast<std::uint32_t>(part.globals.size());
        part.globals.push_back(v);
      }
      (isTriangle ? part.triangles : part.lines).push_back(local[v]);
    }
  };
  for (std::size_t i = 0; i < numTriangleIndices; i += 3) place(mesh.getTriangles() + i, 3, true);
  for (std::size_t i = 0; i < numLineIndices; i += 2) place(mesh.getLines() + i, 2, false);

  const MeshVertex* vertices = mesh.getVertices();
  for (Part& part : parts) {
    auto* result = new CompactMesh();
    const int n = static_cast<int>(part.globals.size());
    result->setNumVertices(n);
    MeshVertex* v = result->editVertices();
    for (int i = 0; i < n; ++i) v[i] = vertices[part.globals[i]];
    if (mesh.hasNormals()) {
      MeshNormal* normals = result->editNormals();
      for (int i = 0; i < n; ++i) normals[i] = mesh.getNormals()[part.globals[i]];
    }
    if (mesh.hasTextureCoordinates()) {
      MeshTexCoord* uv = result->editTextureCoordinates();
      for (int i = 0; i < n; ++i) uv[i] = mesh.getTextureCoordinates()[part.globals[i]];
    }
    if (mesh.hasColors()) {
      MeshColor* colors = result->editColors();
      for (int i = 0; i < n; ++i) colors[i] = mesh.getColors()[part.globals[i]];
    }
    for (int a = 0; a < mesh.getNumAttributes(); ++a) {
      const MeshAttributeEntry& entry = mesh.getAttributeEntry(a);
      const WritableMeshAttributes values = result->allocAttributes(entry.name, entry.width);
      const float* source = entry.values.data();
      if (!source || !values.editFloat()) continue;
      for (int i = 0; i < n; ++i) {
        std::copy_n(source + static_cast<std::size_t>(part.globals[i]) * entry.width, entry.width,
                    values.editFloat() + static_cast<std::size_t>(i) * entry.width);
      }
    }
    if (!part.triangles.empty()) {
      result->setNumTriangles(static_cast<int>(part.triangles.size() / 3));
      std::copy(part.triangles.begin(), part.triangles.end(), result->editTriangles());
    }
    if (!part.lines.empty()) {
      result->setNumLines(static_cast<int>(part.lines.size() / 2));
      std::copy(part.lines.begin(), part.lines.end(), result->editLines());
    }
    out.push_back(result);
  }
  return true;
}

// --- Hull candidates ---------------------------------------------------------------------------

namespace {

using ruLinear::Point;

// Directions whose extreme vertices span the inner polytope: the 26 of the cube's faces, edges and
// corners, and 64 spread evenly over the sphere (a Fibonacci lattice), so that a rounded part
// keeps only a thin shell of its vertices.
const std::vector<std::array<double, 3>>& filterDirections() {
  static const std::vector<std::array<double, 3>> directions = [] {
    std::vector<std::array<double, 3>> d;
    for (int x = -1; x <= 1; ++x) {
      for (int y = -1; y <= 1; ++y) {
        for (int z = -1; z <= 1; ++z) {
          if (x != 0 || y != 0 || z != 0) d.push_back({double(x), double(y), double(z)});
        }
      }
    }
    const int n = 64;
    const double golden = 3.0 - std::sqrt(5.0);
    const double pi = 3.14159265358979323846;
    for (int i = 0; i < n; ++i) {
      const double z = 1.0 - (2.0 * i + 1.0) / n;
      const double r = std::sqrt(1.0 - z * z);
      const double a = pi * golden * i;
      d.push_back({r * std::cos(a), r * std::sin(a), z});
    }
    return d;
  }();
  return directions;
}

struct HullPlane {
  double n[3];  // outward, unit length
  double offset;
};

double dot(const double* n, const Point& p) noexcept { return n[0] * p.x + n[1] * p.y + n[2] * p.z; }

// The facets of the hull of a few points, by trying every triple: a triple is a facet's plane when
// no point lies beyond it by more than `tolerance`. The tolerance is generous so that rounding
// never drops a real facet (which would let the planes enclose more than the hull). Answers false
// when the points are flat (some plane has every point on it), where planes cannot enclose them.
bool smallHull(const std::vector<Point>& points, double tolerance, std::vector<HullPlane>& planes) {
  const std::size_t k = points.size();
  if (k < 4) return false;
  for (std::size_t a = 0; a < k; ++a) {
    for (std::size_t b = a + 1; b < k; ++b) {
      for (std::size_t c = b + 1; c < k; ++c) {
        const ruLinear::Vector u = points[b] - points[a], v = points[c] - points[a];
        double n[3] = {u.getY() * v.getZ() - u.getZ() * v.getY(), u.getZ() * v.getX() - u.getX() * v.getZ(),
                       u.getX() * v.getY() - u.getY() * v.getX()};
        const double length = std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
        if (!(length > 0.0)) continue;
        for (double& x : n) x /= length;
        const double offset = dot(n, points[a]);
        bool anyAbove = false, anyBelow = false;
        for (const Point& p : points) {
          const double s = dot(n, p) - offset;
          if (s > tolerance) anyAbove = true;
          if (s < -tolerance) anyBelow = true;
          if (anyAbove && anyBelow) break;
        }
        if (!anyAbove && !anyBelow) return false;
        if (anyAbove && anyBelow) continue;
        const double sign = anyAbove ? -1.0 : 1.0;
        planes.push_back(HullPlane{{sign * n[0], sign * n[1], sign * n[2]}, sign * offset});
      }
    }
  }
  return !planes.empty();
}

std::vector<Point> computeHullCandidates(const MeshVertex* vertices, std::size_t count) {
  std::vector<Point> all;
  if (count == 0) return all;
  // The vertices extreme along each direction (the first of equals).
  const auto& directions = filterDirections();
  std::vector<double> best(directions.size(), -HUGE_VAL);
  std::vector<std::size_t> extreme(directions.size(), 0);
  ruLinear::Range3d range;
  for (std::size_t i = 0; i < count; ++i) {
    const Point p = vertices[i].asPoint();
    range.include(p);
    for (std::size_t d = 0; d < directions.size(); ++d) {
      const double s = directions[d][0] * p.x + directions[d][1] * p.y + directions[d][2] * p.z;
      if (s > best[d]) {
        best[d] = s;
        extreme[d] = i;
      }
    }
  }
  std::sort(extreme.begin(), extreme.end());
  extreme.erase(std::unique(extreme.begin(), extreme.end()), extreme.end());
  std::vector<Point> inner;
  for (std::size_t i : extreme) inner.push_back(vertices[i].asPoint());
  const ruLinear::Vector diagonal = range.getDiagonal();
  const double size = std::max({std::fabs(diagonal.getX()), std::fabs(diagonal.getY()), std::fabs(diagonal.getZ())});
  const double tolerance = 1e-10 * std::max(size, std::max({std::fabs(range.getMin(0)), std::fabs(range.getMin(1)),
                                                           std::fabs(range.getMin(2)), std::fabs(range.getMax(0)),
                                                           std::fabs(range.getMax(1)), std::fabs(range.getMax(2))}));
  std::vector<HullPlane> planes;
  std::vector<Point> kept;
  if (!smallHull(inner, tolerance, planes)) {
    // Flat or nearly a point: no polytope to filter with.
    kept.reserve(count);
    for (std::size_t i = 0; i < count; ++i) kept.push_back(vertices[i].asPoint());
    return kept;
  }
  // The polytope's own corners are kept (they are the extremes), then every vertex outside it. A
  // vertex inside or on it can never pass the extremes in any direction.
  kept = inner;
  for (std::size_t i = 0, e = 0; i < count; ++i) {
    if (e < extreme.size() && extreme[e] == i) {
      ++e;
      continue;
    }
    const Point p = vertices[i].asPoint();
    for (const HullPlane& plane : planes) {
      if (dot(plane.n, p) > plane.offset + tolerance) {
        kept.push_back(p);
        break;
      }
    }
  }
  return kept;
}

struct HullCache {
  std::mutex mutex;
  std::unordered_map<BufferId, std::shared_ptr<const std::vector<Point>>> candidates;
};

HullCache& hullCache() {
  // Never destroyed: buffers may be released during static destruction.
  static HullCache* instance = [] {
    auto* cache = new HullCache();
    subscribeBufferRelease([cache](BufferId id) {
      std::shared_ptr<const std::vector<Point>> released;  // freed outside the lock
      std::lock_guard<std::mutex> lock(cache->mutex);
      auto found = cache->candidates.find(id);
      if (found == cache->candidates.end()) return;
      released = std::move(found->second);
      cache->candidates.erase(found);
    });
    return cache;
  }();
  return *instance;
}

}  // namespace

std::shared_ptr<const std::vector<ruLinear::Point>> meshHullCandidates(const PointMesh& mesh) {
  const MeshBuffer<MeshVertex>& buffer = mesh.vertexBuffer();
  if (buffer.empty()) {
    static const auto empty = std::make_shared<const std::vector<ruLinear::Point>>();
    return empty;
  }
  HullCache& cache = hullCache();
  {
    std::lock_guard<std::mutex> lock(cache.mutex);
    auto found = cache.candidates.find(buffer.id());
    if (found != cache.candidates.end()) return found->second;
  }
  // Computed outside the lock; two threads computing the same buffer agree.
  auto candidates = std::make_shared<const std::vector<Point>>(computeHullCandidates(buffer.data(), buffer.size()));
  std::lock_guard<std::mutex> lock(cache.mutex);
  auto inserted = cache.candidates.emplace(buffer.id(), std::move(candidates));
  buffer.storage()->markCached();
  return inserted.first->second;
}

ruLinear::Range3d meshTransformedRange(const PointMesh& mesh, const ruLinear::AffineMatrix& matrix) {
  const std::shared_ptr<const std::vector<ruLinear::Point>> candidates = meshHullCandidates(mesh);
  ruLinear::Range3d range;
  for (const ruLinear::Point& p : *candidates) range.include(p * matrix);
  return range;
}

std::size_t hullCandidateCacheSize() noexcept {
  HullCache& cache = hullCache();
  std::lock_guard<std::mutex> lock(cache.mutex);
  return cache.candidates.size();
}

}  // namespace ruGeom
