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

// The candidates; the first `numSeeds` of them are the vertices extreme along the fixed
// directions.
std::vector<Point> computeHullCandidates(const MeshVertex* vertices, std::size_t count, std::size_t& numSeeds) {
  std::vector<Point> all;
  numSeeds = 0;
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
  numSeeds = inner.size();
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

// The candidates in a tree of boxes, so that the extreme along a direction is found by visiting
// only the boxes that could hold a better one: a round part, all of whose vertices are on the
// hull, is then searched in about the same time as a small one.
struct HullIndex {
  // A box around a node's points, turned to fit them (the principal axes of their spread): the
  // points of a patch of surface fill a flat box, so a direction close to the patch's normal
  // reaches little beyond the patch, and the search skips the patches near the extreme that
  // cannot beat it.
  struct Node {
    double centre[3];
    double axes[3][3];  // unit, orthogonal
    double half[3];     // half extents along the axes
    std::uint32_t first = 0, count = 0;  // the points of a leaf
    std::int32_t left = -1, right = -1;  // children; -1 for a leaf
  };
  std::vector<Point> points;  // ordered so that each leaf's points are contiguous
  std::vector<Node> nodes;    // nodes[0] is the root
  std::vector<Point> seeds;   // the points extreme along the fixed directions (some of `points`)

  static constexpr std::uint32_t kLeafSize = 8;
  static constexpr std::uint32_t kFittedNodeSize = 4096;

  HullIndex(std::vector<Point> candidates, std::size_t numSeeds) : points(std::move(candidates)) {
    if (points.empty()) return;
    seeds.assign(points.begin(), points.begin() + static_cast<std::ptrdiff_t>(std::min(numSeeds, points.size())));
    nodes.reserve(2 * (points.size() / kLeafSize + 1));
    build(0, static_cast<std::uint32_t>(points.size()));
  }

  // The eigenvectors of a symmetric 3 x 3 matrix (Jacobi rotations), as rows of `vectors`.
  static void eigenvectors(double a[3][3], double vectors[3][3]) {
    double v[3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    for (int sweep = 0; sweep < 32; ++sweep) {
      const double off = a[0][1] * a[0][1] + a[0][2] * a[0][2] + a[1][2] * a[1][2];
      if (!(off > 1e-30 * (a[0][0] * a[0][0] + a[1][1] * a[1][1] + a[2][2] * a[2][2]))) break;
      for (int p = 0; p < 2; ++p) {
        for (int q = p + 1; q < 3; ++q) {
          if (a[p][q] == 0.0) continue;
          const double theta = (a[q][q] - a[p][p]) / (2.0 * a[p][q]);
          const double t = (theta >= 0 ? 1.0 : -1.0) / (std::fabs(theta) + std::sqrt(theta * theta + 1.0));
          const double c = 1.0 / std::sqrt(t * t + 1.0), s = t * c;
          for (int k = 0; k < 3; ++k) {
            const double akp = a[k][p], akq = a[k][q];
            a[k][p] = c * akp - s * akq;
            a[k][q] = s * akp + c * akq;
          }
          for (int k = 0; k < 3; ++k) {
            const double apk = a[p][k], aqk = a[q][k];
            a[p][k] = c * apk - s * aqk;
            a[q][k] = s * apk + c * aqk;
          }
          for (int k = 0; k < 3; ++k) {
            const double vkp = v[k][p], vkq = v[k][q];
            v[k][p] = c * vkp - s * vkq;
            v[k][q] = s * vkp + c * vkq;
          }
        }
      }
    }
    for (int i = 0; i < 3; ++i) {
      for (int k = 0; k < 3; ++k) vectors[i][k] = v[k][i];
    }
  }

  std::int32_t build(std::uint32_t first, std::uint32_t last) {
    const double n = double(last - first);
    double mean[3] = {0, 0, 0};
    if (last - first <= kFittedNodeSize) {
      for (std::uint32_t i = first; i < last; ++i) {
        for (int a = 0; a < 3; ++a) mean[a] += points[i][a];
      }
      for (double& m : mean) m /= n;
    }
    double covariance[3][3] = {};
    for (std::uint32_t i = first; i < (last - first <= kFittedNodeSize ? last : first); ++i) {
      const double d[3] = {points[i].x - mean[0], points[i].y - mean[1], points[i].z - mean[2]};
      for (int a = 0; a < 3; ++a) {
        for (int b = 0; b < 3; ++b) covariance[a][b] += d[a] * d[b];
      }
    }
    Node node;
    // Large nodes are always opened near an extreme: world axes serve them as well and cost less.
    if (last - first <= kFittedNodeSize) {
      eigenvectors(covariance, node.axes);
    } else {
      for (int a = 0; a < 3; ++a) {
        for (int k = 0; k < 3; ++k) node.axes[a][k] = a == k ? 1.0 : 0.0;
      }
    }
    double low[3] = {HUGE_VAL, HUGE_VAL, HUGE_VAL}, high[3] = {-HUGE_VAL, -HUGE_VAL, -HUGE_VAL};
    for (std::uint32_t i = first; i < last; ++i) {
      for (int a = 0; a < 3; ++a) {
        const double t = node.axes[a][0] * points[i].x + node.axes[a][1] * points[i].y + node.axes[a][2] * points[i].z;
        low[a] = std::min(low[a], t);
        high[a] = std::max(high[a], t);
      }
    }
    for (int k = 0; k < 3; ++k) node.centre[k] = 0.0;
    for (int a = 0; a < 3; ++a) {
      const double middle = 0.5 * (low[a] + high[a]);
      node.half[a] = 0.5 * (high[a] - low[a]);
      for (int k = 0; k < 3; ++k) node.centre[k] += middle * node.axes[a][k];
    }
    node.first = first;
    node.count = last - first;
    const auto index = static_cast<std::int32_t>(nodes.size());
    nodes.push_back(node);
    if (last - first <= kLeafSize) return index;
    // Split across the widest axis of the box, at the median.
    int axis = 0;
    for (int a = 1; a < 3; ++a) {
      if (node.half[a] > node.half[axis]) axis = a;
    }
    const double direction[3] = {node.axes[axis][0], node.axes[axis][1], node.axes[axis][2]};
    const std::uint32_t middle = first + (last - first) / 2;
    std::nth_element(points.begin() + first, points.begin() + middle, points.begin() + last,
                     [&direction](const Point& a, const Point& b) {
                       return direction[0] * a.x + direction[1] * a.y + direction[2] * a.z <
                              direction[0] * b.x + direction[1] * b.y + direction[2] * b.z;
                     });
    const std::int32_t left = build(first, middle);
    const std::int32_t right = build(middle, last);
    nodes[static_cast<std::size_t>(index)].left = left;
    nodes[static_cast<std::size_t>(index)].right = right;
    return index;
  }

  // Coordinate `axis` of p * m, computed exactly as operator* does, so that the extreme found is
  // the one a walk over every point finds.
  static double coordinate(const Point& p, const ruLinear::AffineMatrix& m, int axis) noexcept {
    return p.x * m(0, axis) + p.y * m(1, axis) + p.z * m(2, axis) + m(3, axis);
  }

  // The largest (sign +1) or smallest (sign -1) coordinate `axis` of the points under `m`.
  double extreme(const ruLinear::AffineMatrix& m, int axis, double sign, double start,
                 std::vector<std::pair<std::int32_t, double>>& stack) const {
    const double column[3] = {m(0, axis), m(1, axis), m(2, axis)};
    // How far a node's points can reach along the direction, a little more for rounding.
    auto reach = [&](const Node& node) {
      const double middle = node.centre[0] * column[0] + node.centre[1] * column[1] + node.centre[2] * column[2] + m(3, axis);
      double spread = 0.0;
      for (int a = 0; a < 3; ++a) {
        spread += node.half[a] * std::fabs(node.axes[a][0] * column[0] + node.axes[a][1] * column[1] + node.axes[a][2] * column[2]);
      }
      const double slack = 1e-12 * (std::fabs(middle) + spread) + 1e-300;
      return sign * middle + spread + slack;
    };
    double best = sign * start;  // in signed terms
    stack.clear();
    stack.emplace_back(0, reach(nodes[0]));
    while (!stack.empty()) {
      const auto [index, bound] = stack.back();
      stack.pop_back();
      if (bound < best) continue;
      const Node& node = nodes[static_cast<std::size_t>(index)];
      if (node.left < 0) {
        for (std::uint32_t i = node.first; i < node.first + node.count; ++i) {
          best = std::max(best, sign * coordinate(points[i], m, axis));
        }
        continue;
      }
      const double leftBound = reach(nodes[static_cast<std::size_t>(node.left)]);
      const double rightBound = reach(nodes[static_cast<std::size_t>(node.right)]);
      // The more promising child is searched first, so that the other is often skipped.
      if (leftBound > rightBound) {
        if (rightBound >= best) stack.emplace_back(node.right, rightBound);
        if (leftBound >= best) stack.emplace_back(node.left, leftBound);
      } else {
        if (leftBound >= best) stack.emplace_back(node.left, leftBound);
        if (rightBound >= best) stack.emplace_back(node.right, rightBound);
      }
    }
    return sign * best;
  }
};

struct HullCache {
  std::mutex mutex;
  std::unordered_map<BufferId, std::shared_ptr<const HullIndex>> candidates;
};

HullCache& hullCache() {
  // Never destroyed: buffers may be released during static destruction.
  static HullCache* instance = [] {
    auto* cache = new HullCache();
    subscribeBufferRelease([cache](BufferId id) {
      std::shared_ptr<const HullIndex> released;  // freed outside the lock
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

std::shared_ptr<const HullIndex> hullIndex(const PointMesh& mesh) {
  const MeshBuffer<MeshVertex>& buffer = mesh.vertexBuffer();
  if (buffer.empty()) {
    static const auto empty = std::make_shared<const HullIndex>(std::vector<Point>(), 0);
    return empty;
  }
  HullCache& cache = hullCache();
  {
    std::lock_guard<std::mutex> lock(cache.mutex);
    auto found = cache.candidates.find(buffer.id());
    if (found != cache.candidates.end()) return found->second;
  }
  // Computed outside the lock; two threads computing the same buffer agree.
  std::size_t numSeeds = 0;
  auto index = std::make_shared<const HullIndex>(computeHullCandidates(buffer.data(), buffer.size(), numSeeds), numSeeds);
  std::lock_guard<std::mutex> lock(cache.mutex);
  auto inserted = cache.candidates.emplace(buffer.id(), std::move(index));
  buffer.storage()->markCached();
  return inserted.first->second;
}

}  // namespace

std::shared_ptr<const std::vector<ruLinear::Point>> meshHullCandidates(const PointMesh& mesh) {
  std::shared_ptr<const HullIndex> index = hullIndex(mesh);
  return std::shared_ptr<const std::vector<ruLinear::Point>>(index, &index->points);
}

ruLinear::Range3d meshTransformedRange(const PointMesh& mesh, const ruLinear::AffineMatrix& matrix) {
  const std::shared_ptr<const HullIndex> index = hullIndex(mesh);
  ruLinear::Range3d range;
  if (index->points.size() <= 4 * HullIndex::kLeafSize) {
    for (const ruLinear::Point& p : index->points) range.include(p * matrix);
    return range;
  }
  // The points extreme along the fixed directions give a box close to the answer, which lets
  // the searches skip most of the tree from the start.
  ruLinear::Range3d seed;
  for (const ruLinear::Point& p : index->seeds) seed.include(p * matrix);
  std::vector<std::pair<std::int32_t, double>> stack;
  stack.reserve(64);
  double low[3], high[3];
  for (int axis = 0; axis < 3; ++axis) {
    low[axis] = index->extreme(matrix, axis, -1.0, seed.getMin(axis), stack);
    high[axis] = index->extreme(matrix, axis, 1.0, seed.getMax(axis), stack);
  }
  range.set(Point(low[0], low[1], low[2]), Point(high[0], high[1], high[2]));
  return range;
}

std::size_t hullCandidateCacheSize() noexcept {
  HullCache& cache = hullCache();
  std::lock_guard<std::mutex> lock(cache.mutex);
  return cache.candidates.size();
}

}  // namespace ruGeom
