#include "platform/datamodel/meshhealth.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <numeric>
#include <tuple>
#include <unordered_map>
#include <unordered_set>
#include <utility>

namespace voDMA {

namespace {

// One triangle's use of an undirected edge, filed under the edge's smaller vertex.
struct EdgeUse {
  std::uint32_t other;    // the larger vertex
  std::uint32_t triangle;
  bool forward;           // the triangle runs from the smaller vertex to the larger
};

// Every edge of a set of triangles, grouped by edge. Built in linear time by filing the uses under
// their smaller vertex (a counting sort) and sorting each vertex's short list.
class EdgeTable {
public:
  // `include(t)` tells which triangles take part.
  template <class Include>
  void build(std::size_t numVertices, const std::uint32_t* triangles, std::size_t numTriangles, Include include) {
    offsets_.assign(numVertices + 1, 0);
    for (std::size_t t = 0; t < numTriangles; ++t) {
      if (!include(t)) continue;
      const std::uint32_t* c = triangles + 3 * t;
      for (int e = 0; e < 3; ++e) ++offsets_[std::min(c[e], c[(e + 1) % 3]) + 1];
    }
    std::partial_sum(offsets_.begin(), offsets_.end(), offsets_.begin());
    uses_.resize(offsets_.back());
    std::vector<std::size_t> fill(offsets_.begin(), offsets_.end() - 1);
    for (std::size_t t = 0; t < numTriangles; ++t) {
      if (!include(t)) continue;
      const std::uint32_t* c = triangles + 3 * t;
      for (int e = 0; e < 3; ++e) {
        const std::uint32_t a = c[e], b = c[(e + 1) % 3];
        const std::uint32_t lo = std::min(a, b), hi = std::max(a, b);
        uses_[fill[lo]++] = EdgeUse{hi, static_cast<std::uint32_t>(t), a < b};
      }
    }
    for (std::size_t v = 0; v + 1 < offsets_.size(); ++v) {
      auto first = uses_.begin() + static_cast<std::ptrdiff_t>(offsets_[v]);
      auto last = uses_.begin() + static_cast<std::ptrdiff_t>(offsets_[v + 1]);
      std::sort(first, last, [](const EdgeUse& x, const EdgeUse& y) {
        return x.other != y.other ? x.other < y.other : x.triangle < y.triangle;
      });
    }
  }

  // Calls f(lo, hi, uses, count) once per undirected edge.
  template <class F>
  void forEachEdge(F f) const {
    for (std::size_t v = 0; v + 1 < offsets_.size(); ++v) {
      std::size_t i = offsets_[v];
      const std::size_t end = offsets_[v + 1];
      while (i < end) {
        std::size_t j = i + 1;
        while (j < end && uses_[j].other == uses_[i].other) ++j;
        f(static_cast<std::uint32_t>(v), uses_[i].other, &uses_[i], j - i);
        i = j;
      }
    }
  }

private:
  std::vector<std::size_t> offsets_;
  std::vector<EdgeUse> uses_;
};

bool indexDegenerate(const std::uint32_t* c, std::size_t numVertices) {
  return c[0] >= numVertices || c[1] >= numVertices || c[2] >= numVertices || c[0] == c[1] || c[1] == c[2] ||
         c[0] == c[2];
}

// No area: the sine of the angle between two sides is below 1e-10 (or a side has no length).
bool areaDegenerate(const float* positions, const std::uint32_t* c) {
  const float* p0 = positions + 3 * static_cast<std::size_t>(c[0]);
  const float* p1 = positions + 3 * static_cast<std::size_t>(c[1]);
  const float* p2 = positions + 3 * static_cast<std::size_t>(c[2]);
  const double e1[3] = {double(p1[0]) - p0[0], double(p1[1]) - p0[1], double(p1[2]) - p0[2]};
  const double e2[3] = {double(p2[0]) - p0[0], double(p2[1]) - p0[1], double(p2[2]) - p0[2]};
  const double x = e1[1] * e2[2] - e1[2] * e2[1];
  const double y = e1[2] * e2[0] - e1[0] * e2[2];
  const double z = e1[0] * e2[1] - e1[1] * e2[0];
  const double cross2 = x * x + y * y + z * z;
  const double len2 = (e1[0] * e1[0] + e1[1] * e1[1] + e1[2] * e1[2]) * (e2[0] * e2[0] + e2[1] * e2[1] + e2[2] * e2[2]);
  return cross2 <= 1e-20 * len2;
}

bool degenerate(const float* positions, std::size_t numVertices, const std::uint32_t* c) {
  return indexDegenerate(c, numVertices) || areaDegenerate(positions, c);
}

// Marks every triangle whose three corners an earlier triangle already has. `include` filters.
template <class Include>
std::vector<char> findDuplicates(std::size_t numVertices, const std::uint32_t* triangles, std::size_t numTriangles,
                                 Include include) {
  std::vector<char> duplicate(numTriangles, 0);
  std::vector<std::size_t> offsets(numVertices + 1, 0);
  auto sorted = [&](std::size_t t) {
    std::uint32_t c[3] = {triangles[3 * t], triangles[3 * t + 1], triangles[3 * t + 2]};
    std::sort(c, c + 3);
    return std::make_tuple(c[0], c[1], c[2]);
  };
  for (std::size_t t = 0; t < numTriangles; ++t) {
    if (include(t)) ++offsets[std::get<0>(sorted(t)) + 1];
  }
  std::partial_sum(offsets.begin(), offsets.end(), offsets.begin());
  struct Entry {
    std::uint32_t b, c, triangle;
  };
  std::vector<Entry> entries(offsets.back());
  std::vector<std::size_t> fill(offsets.begin(), offsets.end() - 1);
  for (std::size_t t = 0; t < numTriangles; ++t) {
    if (!include(t)) continue;
    const auto [a, b, c] = sorted(t);
    entries[fill[a]++] = Entry{b, c, static_cast<std::uint32_t>(t)};
  }
  for (std::size_t v = 0; v < numVertices; ++v) {
    auto first = entries.begin() + static_cast<std::ptrdiff_t>(offsets[v]);
    auto last = entries.begin() + static_cast<std::ptrdiff_t>(offsets[v + 1]);
    std::sort(first, last, [](const Entry& x, const Entry& y) {
      return std::tie(x.b, x.c, x.triangle) < std::tie(y.b, y.c, y.triangle);
    });
    for (auto it = first; it != last && it + 1 != last; ++it) {
      if (it->b == (it + 1)->b && it->c == (it + 1)->c) duplicate[(it + 1)->triangle] = 1;
    }
  }
  return duplicate;
}

void flip(std::uint32_t* c) { std::swap(c[1], c[2]); }

// Union-find over triangles.
class Components {
public:
  explicit Components(std::size_t n) : parent_(n) { std::iota(parent_.begin(), parent_.end(), 0u); }
  std::uint32_t find(std::uint32_t x) {
    while (parent_[x] != x) {
      parent_[x] = parent_[parent_[x]];
      x = parent_[x];
    }
    return x;
  }
  void join(std::uint32_t a, std::uint32_t b) {
    a = find(a);
    b = find(b);
    if (a != b) parent_[std::max(a, b)] = std::min(a, b);
  }

private:
  std::vector<std::uint32_t> parent_;
};

// Stitches open edges: vertices on open edges that sit at exactly the same place (0 and -0 alike)
// become one, so a mesh whose faces carry their own copies of shared corners is judged as the
// solid it describes. Vertices of closed parts keep their identity, so parts that a repair took
// apart at a shared edge stay apart.
std::vector<std::uint32_t> weldOpenEdges(const float* positions, std::size_t numVertices,
                                         const std::uint32_t* triangles, std::size_t numTriangles) {
  std::vector<std::uint32_t> welded(triangles, triangles + 3 * numTriangles);
  std::vector<char> valid(numTriangles, 1);
  for (std::size_t t = 0; t < numTriangles; ++t) valid[t] = !indexDegenerate(triangles + 3 * t, numVertices);
  // A copy of a triangle does not close its edges: they are open if the triangle's are.
  const std::vector<char> duplicate =
      findDuplicates(numVertices, triangles, numTriangles, [&](std::size_t t) { return valid[t] != 0; });
  for (std::size_t t = 0; t < numTriangles; ++t) valid[t] = valid[t] && !duplicate[t];
  EdgeTable edges;
  edges.build(numVertices, triangles, numTriangles, [&](std::size_t t) { return valid[t] != 0; });
  std::vector<std::uint32_t> rim;
  std::vector<char> onRim(numVertices, 0);
  edges.forEachEdge([&](std::uint32_t lo, std::uint32_t hi, const EdgeUse*, std::size_t count) {
    if (count != 1) return;
    for (std::uint32_t v : {lo, hi}) {
      if (!onRim[v]) {
        onRim[v] = 1;
        rim.push_back(v);
      }
    }
  });
  if (rim.empty()) return welded;
  auto key = [positions](std::uint32_t v) {
    const float* p = positions + 3 * static_cast<std::size_t>(v);
    return std::make_tuple(p[0] + 0.0f, p[1] + 0.0f, p[2] + 0.0f);
  };
  std::sort(rim.begin(), rim.end(), [&](std::uint32_t a, std::uint32_t b) {
    const auto ka = key(a), kb = key(b);
    return ka != kb ? ka < kb : a < b;
  });
  std::vector<std::uint32_t> canonical(numVertices);
  std::iota(canonical.begin(), canonical.end(), 0u);
  for (std::size_t i = 1; i < rim.size(); ++i) {
    if (key(rim[i]) == key(rim[i - 1])) canonical[rim[i]] = canonical[rim[i - 1]];
  }
  for (std::uint32_t& v : welded) {
    if (v < numVertices) v = canonical[v];
  }
  return welded;
}

using TriangleKey = std::array<std::uint32_t, 3>;
struct TriangleKeyHash {
  std::size_t operator()(const TriangleKey& k) const noexcept {
    return std::hash<std::uint64_t>()((std::uint64_t(k[0]) * 0x9E3779B97F4A7C15ull) ^ (std::uint64_t(k[1]) << 21) ^ k[2]);
  }
};

// A triangle's corners in ascending order, whatever its winding.
TriangleKey triangleKey(const std::uint32_t* c) {
  TriangleKey key{c[0], c[1], c[2]};
  std::sort(key.begin(), key.end());
  return key;
}

// Triangulates a hole's rim (vertices in rim order) by cutting ears, each time the ear whose
// smallest angle is largest, so that a rim with straight runs (a flat side) gets no triangle
// without area. The triangles run against the rim, as its neighbours do across it. Refuses
// (false, `fill` empty) when the rim leaves nothing but flat or repeated ears.
bool fillHole(const float* positions, std::vector<std::uint32_t> rim,
              const std::unordered_set<TriangleKey, TriangleKeyHash>& existing, std::vector<std::uint32_t>& fill) {
  fill.clear();
  auto quality = [&](std::uint32_t a, std::uint32_t b, std::uint32_t c) {
    const std::uint32_t corners[3] = {a, b, c};
    if (a == b || b == c || a == c || areaDegenerate(positions, corners)) return -1.0;
    if (existing.count(triangleKey(corners))) return -1.0;
    double smallest = 2.0;
    for (int k = 0; k < 3; ++k) {
      const float* p = positions + 3 * std::size_t(corners[k]);
      const float* q = positions + 3 * std::size_t(corners[(k + 1) % 3]);
      const float* r = positions + 3 * std::size_t(corners[(k + 2) % 3]);
      double u[3], v[3], uu = 0, vv = 0, uv = 0;
      for (int i = 0; i < 3; ++i) {
        u[i] = double(q[i]) - p[i];
        v[i] = double(r[i]) - p[i];
        uu += u[i] * u[i];
        vv += v[i] * v[i];
        uv += u[i] * v[i];
      }
      smallest = std::min(smallest, 1.0 - uv / std::sqrt(uu * vv));  // 0 (no angle) to 2 (flat)
    }
    return smallest;
  };
  while (rim.size() > 3) {
    std::size_t best = rim.size();
    double bestQuality = 0.0;
    for (std::size_t i = 0; i < rim.size(); ++i) {
      const double q = quality(rim[(i + rim.size() - 1) % rim.size()], rim[i], rim[(i + 1) % rim.size()]);
      if (q > bestQuality) {
        bestQuality = q;
        best = i;
      }
    }
    if (best == rim.size()) {
      fill.clear();
      return false;
    }
    const std::uint32_t previous = rim[(best + rim.size() - 1) % rim.size()], next = rim[(best + 1) % rim.size()];
    fill.insert(fill.end(), {previous, next, rim[best]});
    rim.erase(rim.begin() + static_cast<std::ptrdiff_t>(best));
  }
  if (quality(rim[0], rim[1], rim[2]) <= 0.0) {
    fill.clear();
    return false;
  }
  fill.insert(fill.end(), {rim[0], rim[2], rim[1]});
  return true;
}

} // namespace

MeshHealth analyseMeshHealth(const float* positions, std::size_t numVertices, const std::uint32_t* rawTriangles,
                             std::size_t numTriangles) {
  const std::vector<std::uint32_t> welded = weldOpenEdges(positions, numVertices, rawTriangles, numTriangles);
  const std::uint32_t* triangles = welded.data();
  MeshHealth health;
  std::vector<char> valid(numTriangles, 1);
  for (std::size_t t = 0; t < numTriangles; ++t) {
    const std::uint32_t* c = triangles + 3 * t;
    if (indexDegenerate(c, numVertices)) {
      valid[t] = 0;
      ++health.degenerateTriangles;
    } else if (areaDegenerate(positions, c)) {
      ++health.degenerateTriangles;
    }
  }
  const std::vector<char> duplicate =
      findDuplicates(numVertices, triangles, numTriangles, [&](std::size_t t) { return valid[t] != 0; });
  health.duplicateTriangles = static_cast<std::size_t>(std::count(duplicate.begin(), duplicate.end(), 1));

  EdgeTable edges;
  edges.build(numVertices, triangles, numTriangles, [&](std::size_t t) { return valid[t] != 0; });
  edges.forEachEdge([&](std::uint32_t, std::uint32_t, const EdgeUse* uses, std::size_t count) {
    if (count == 1) {
      ++health.openEdges;
    } else if (count > 2) {
      ++health.nonManifoldEdges;
    } else if (uses[0].forward == uses[1].forward) {
      ++health.inconsistentEdges;
    }
  });
  return health;
}

MeshRepairReport repairMesh(std::vector<float>& positions, std::vector<std::uint32_t>& triangles,
                            std::size_t maxHoleEdges, std::vector<std::uint32_t>* sources) {
  MeshRepairReport report;
  std::size_t numVertices = positions.size() / 3;
  std::size_t numTriangles = triangles.size() / 3;
  const std::size_t inputVertices = numVertices;
  const std::size_t inputTriangles = numTriangles;
  // Open edges whose corners meet other open edges' corners are stitched first; the copies stay in
  // the array, unused until the end gives each corner back the vertex it had.
  const std::vector<std::uint32_t> input = triangles;
  triangles = weldOpenEdges(positions.data(), numVertices, triangles.data(), numTriangles);
  const std::vector<std::uint32_t> stitched = triangles;
  // The input triangle each triangle comes from; none for those the repair adds.
  constexpr std::uint32_t kAdded = 0xFFFFFFFFu;
  std::vector<std::uint32_t> origin(numTriangles);
  std::iota(origin.begin(), origin.end(), 0u);
  // The vertex each appended copy copies.
  std::vector<std::uint32_t> copied;

  // 0. Slivers whose corner lies on their opposite side (a T-junction): the neighbour across that
  // side is split at the corner, so that removing the sliver below leaves no gap.
  {
    struct Sliver {
      std::uint32_t triangle, from, to, middle;  // the long side from-to and the corner on it
    };
    std::vector<Sliver> slivers;
    std::unordered_map<std::uint64_t, std::vector<std::uint32_t>> sides;
    auto sideKey = [](std::uint32_t a, std::uint32_t b) {
      return (std::uint64_t(std::min(a, b)) << 32) | std::max(a, b);
    };
    for (std::size_t t = 0; t < numTriangles; ++t) {
      const std::uint32_t* c = &triangles[3 * t];
      if (indexDegenerate(c, numVertices) || !areaDegenerate(positions.data(), c)) continue;
      for (int k = 0; k < 3; ++k) {
        const std::uint32_t p = c[(k + 1) % 3], q = c[(k + 2) % 3], m = c[k];
        const float* P = &positions[3 * std::size_t(p)];
        const float* Q = &positions[3 * std::size_t(q)];
        const float* M = &positions[3 * std::size_t(m)];
        double pq[3], pm[3], len2 = 0, along = 0;
        for (int i = 0; i < 3; ++i) {
          pq[i] = double(Q[i]) - P[i];
          pm[i] = double(M[i]) - P[i];
          len2 += pq[i] * pq[i];
          along += pq[i] * pm[i];
        }
        if (len2 > 0.0 && along > 0.0 && along < len2) {
          slivers.push_back({static_cast<std::uint32_t>(t), p, q, m});
          sides[sideKey(p, q)];
          break;
        }
      }
    }
    if (!slivers.empty()) {
      for (std::size_t t = 0; t < numTriangles; ++t) {
        const std::uint32_t* c = &triangles[3 * t];
        if (indexDegenerate(c, numVertices)) continue;
        for (int k = 0; k < 3; ++k) {
          auto found = sides.find(sideKey(c[k], c[(k + 1) % 3]));
          if (found != sides.end()) found->second.push_back(static_cast<std::uint32_t>(t));
        }
      }
      std::vector<char> split(numTriangles, 0);
      for (const Sliver& sliver : slivers) {
        for (std::uint32_t n : sides[sideKey(sliver.from, sliver.to)]) {
          if (n == sliver.triangle || split[n] || areaDegenerate(positions.data(), &triangles[3 * std::size_t(n)])) {
            continue;
          }
          std::uint32_t* c = &triangles[3 * std::size_t(n)];
          // Rotate so that the shared side is c[0] -> c[1]; the corner goes in between.
          int k = 0;
          while (!((c[k] == sliver.from || c[k] == sliver.to) && (c[(k + 1) % 3] == sliver.from || c[(k + 1) % 3] == sliver.to))) ++k;
          const std::uint32_t x = c[k], y = c[(k + 1) % 3], r = c[(k + 2) % 3];
          c[0] = x;
          c[1] = sliver.middle;
          c[2] = r;
          triangles.insert(triangles.end(), {sliver.middle, y, r});
          origin.push_back(origin[n]);
          split[n] = 1;
          ++report.addedTriangles;
          break;
        }
      }
      numTriangles = triangles.size() / 3;
    }
  }

  // 1. Degenerate and duplicate triangles go.
  {
    std::vector<char> keep(numTriangles, 1);
    for (std::size_t t = 0; t < numTriangles; ++t) {
      if (degenerate(positions.data(), numVertices, &triangles[3 * t])) {
        keep[t] = 0;
        ++report.removedDegenerate;
      }
    }
    const std::vector<char> duplicate =
        findDuplicates(numVertices, triangles.data(), numTriangles, [&](std::size_t t) { return keep[t] != 0; });
    std::size_t out = 0;
    for (std::size_t t = 0; t < numTriangles; ++t) {
      if (duplicate[t]) ++report.removedDuplicate;
      if (!keep[t] || duplicate[t]) continue;
      for (int k = 0; k < 3; ++k) triangles[3 * out + k] = triangles[3 * t + k];
      origin[out] = origin[t];
      ++out;
    }
    triangles.resize(3 * out);
    origin.resize(out);
    numTriangles = out;
  }
  auto all = [](std::size_t) { return true; };

  // 2. Parts: triangles joined through edges that exactly two triangles share.
  Components parts(numTriangles);
  {
    EdgeTable edges;
    edges.build(numVertices, triangles.data(), numTriangles, all);
    edges.forEachEdge([&](std::uint32_t, std::uint32_t, const EdgeUse* uses, std::size_t count) {
      if (count == 2) parts.join(uses[0].triangle, uses[1].triangle);
    });
  }

  // 3. A vertex used by several parts gets a copy per extra part, so parts that only touched
  // along an edge or at a point come apart.
  {
    std::vector<std::size_t> offsets(numVertices + 1, 0);
    for (std::uint32_t v : triangles) ++offsets[v + 1];
    std::partial_sum(offsets.begin(), offsets.end(), offsets.begin());
    std::vector<std::uint32_t> corners(triangles.size());  // corner slots, grouped by vertex
    std::vector<std::size_t> fill(offsets.begin(), offsets.end() - 1);
    for (std::size_t i = 0; i < triangles.size(); ++i) corners[fill[triangles[i]]++] = static_cast<std::uint32_t>(i);
    std::vector<std::pair<std::uint32_t, std::uint32_t>> partCopy;  // (part, vertex) for this vertex
    for (std::size_t v = 0; v < numVertices; ++v) {
      partCopy.clear();
      for (std::size_t k = offsets[v]; k < offsets[v + 1]; ++k) {
        const std::uint32_t slot = corners[k];
        const std::uint32_t part = parts.find(slot / 3);
        auto found = std::find_if(partCopy.begin(), partCopy.end(), [&](const auto& p) { return p.first == part; });
        if (found == partCopy.end()) {
          std::uint32_t index = static_cast<std::uint32_t>(v);
          if (!partCopy.empty()) {
            index = static_cast<std::uint32_t>(positions.size() / 3);
            positions.push_back(positions[3 * v]);
            positions.push_back(positions[3 * v + 1]);
            positions.push_back(positions[3 * v + 2]);
            copied.push_back(static_cast<std::uint32_t>(v));
            ++report.splitVertices;
          }
          partCopy.emplace_back(part, index);
          found = partCopy.end() - 1;
        }
        triangles[slot] = found->second;
      }
    }
    numVertices = positions.size() / 3;
  }

  // 4. Consistent orientation within each part: walk the part through its shared edges and turn
  // each neighbour to run the shared edge the other way. Keep whichever of the two orientations
  // flips fewer triangles.
  std::vector<std::uint32_t> partOf(numTriangles);
  for (std::size_t t = 0; t < numTriangles; ++t) partOf[t] = parts.find(static_cast<std::uint32_t>(t));
  {
    EdgeTable edges;
    edges.build(numVertices, triangles.data(), numTriangles, all);
    // Neighbour lists: for each triangle, (neighbour, my forward, its forward) per shared edge.
    struct Link {
      std::uint32_t neighbour;
      bool mine, theirs;
    };
    std::vector<std::vector<Link>> links(numTriangles);
    edges.forEachEdge([&](std::uint32_t, std::uint32_t, const EdgeUse* uses, std::size_t count) {
      if (count != 2) return;
      links[uses[0].triangle].push_back({uses[1].triangle, uses[0].forward, uses[1].forward});
      links[uses[1].triangle].push_back({uses[0].triangle, uses[1].forward, uses[0].forward});
    });
    std::vector<signed char> flipped(numTriangles, -1);
    std::vector<std::uint32_t> stack, members;
    for (std::size_t seed = 0; seed < numTriangles; ++seed) {
      if (flipped[seed] >= 0) continue;
      flipped[seed] = 0;
      stack.assign(1, static_cast<std::uint32_t>(seed));
      members.clear();
      std::size_t flips = 0;
      while (!stack.empty()) {
        const std::uint32_t t = stack.back();
        stack.pop_back();
        members.push_back(t);
        for (const Link& link : links[t]) {
          if (flipped[link.neighbour] >= 0) continue;
          const bool runs = link.mine != (flipped[t] != 0);
          // The neighbour must run the edge the other way.
          flipped[link.neighbour] = static_cast<signed char>(link.theirs == runs);
          flips += static_cast<std::size_t>(flipped[link.neighbour]);
          stack.push_back(link.neighbour);
        }
      }
      const bool invert = 2 * flips > members.size();
      for (std::uint32_t t : members) {
        if ((flipped[t] != 0) != invert) {
          flip(&triangles[3 * t]);
          ++report.flippedTriangles;
        }
      }
    }
  }

  // 5. Close small holes: follow rims of open edges and fill each with a fan, turned to match.
  {
    EdgeTable edges;
    edges.build(numVertices, triangles.data(), numTriangles, all);
    std::vector<std::size_t> outCount(numVertices, 0);
    std::vector<std::pair<std::uint32_t, std::uint32_t>> rim;  // directed open edges (from, to)
    std::vector<std::uint32_t> rimTriangle;
    edges.forEachEdge([&](std::uint32_t lo, std::uint32_t hi, const EdgeUse* uses, std::size_t count) {
      if (count != 1) return;
      const auto edge = uses[0].forward ? std::make_pair(lo, hi) : std::make_pair(hi, lo);
      rim.push_back(edge);
      rimTriangle.push_back(uses[0].triangle);
      ++outCount[edge.first];
    });
    std::vector<std::size_t> order(rim.size());
    std::iota(order.begin(), order.end(), 0);
    std::sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) { return rim[a].first < rim[b].first; });
    std::vector<std::size_t> firstOut(numVertices, SIZE_MAX);
    for (std::size_t k = order.size(); k-- > 0;) firstOut[rim[order[k]].first] = order[k];
    std::vector<char> used(rim.size(), 0);
    std::vector<std::uint32_t> loop;
    // The triangles there are, so that no fill repeats one.
    std::unordered_set<TriangleKey, TriangleKeyHash> existing;
    if (!rim.empty()) {
      for (std::size_t t = 0; t < numTriangles; ++t) existing.insert(triangleKey(&triangles[3 * t]));
    }
    for (std::size_t start = 0; start < rim.size(); ++start) {
      if (used[start] || outCount[rim[start].first] != 1) continue;
      loop.clear();
      std::size_t e = start;
      bool closed = false;
      while (true) {
        used[e] = 1;
        loop.push_back(rim[e].first);
        const std::uint32_t next = rim[e].second;
        if (next == rim[start].first) {
          closed = true;
          break;
        }
        // A rim that branches (several open edges leave one vertex) is not a simple hole.
        if (outCount[next] != 1 || used[firstOut[next]] || loop.size() > maxHoleEdges) break;
        e = firstOut[next];
      }
      if (!closed || loop.size() < 3 || loop.size() > maxHoleEdges) continue;
      const std::uint32_t part = partOf[rimTriangle[start]];
      std::vector<std::uint32_t> fill;
      if (!fillHole(positions.data(), loop, existing, fill)) continue;  // left open, and reported
      for (std::size_t i = 0; i < fill.size(); i += 3) {
        triangles.insert(triangles.end(), {fill[i], fill[i + 1], fill[i + 2]});
        existing.insert(triangleKey(&fill[i]));
        origin.push_back(kAdded);
        partOf.push_back(part);
        ++report.addedTriangles;
      }
      ++report.closedHoles;
    }
    numTriangles = triangles.size() / 3;
  }

  // 6. Closed parts face outward: a negative enclosed volume turns the whole part.
  {
    EdgeTable edges;
    edges.build(numVertices, triangles.data(), numTriangles, all);
    std::vector<char> open(numTriangles, 0);
    edges.forEachEdge([&](std::uint32_t, std::uint32_t, const EdgeUse* uses, std::size_t count) {
      if (count != 2) {
        for (std::size_t k = 0; k < count; ++k) open[uses[k].triangle] = 1;
      }
    });
    std::vector<double> volume(numTriangles, 0.0);
    std::vector<char> partOpen(numTriangles, 0);
    for (std::size_t t = 0; t < numTriangles; ++t) {
      const std::uint32_t* c = &triangles[3 * t];
      const float* a = &positions[3 * static_cast<std::size_t>(c[0])];
      const float* b = &positions[3 * static_cast<std::size_t>(c[1])];
      const float* d = &positions[3 * static_cast<std::size_t>(c[2])];
      volume[partOf[t]] += double(a[0]) * (double(b[1]) * d[2] - double(b[2]) * d[1]) -
                           double(a[1]) * (double(b[0]) * d[2] - double(b[2]) * d[0]) +
                           double(a[2]) * (double(b[0]) * d[1] - double(b[1]) * d[0]);
      if (open[t]) partOpen[partOf[t]] = 1;
    }
    for (std::size_t t = 0; t < numTriangles; ++t) {
      if (!partOpen[partOf[t]] && volume[partOf[t]] < 0.0) {
        flip(&triangles[3 * t]);
        ++report.flippedTriangles;
      }
    }
  }

  // 7. Corners give back the vertices the stitching replaced (same place, their own attributes),
  // and copies carry the attributes of the vertex they copy.
  std::vector<std::uint32_t> source(numVertices);
  std::iota(source.begin(), source.begin() + static_cast<std::ptrdiff_t>(inputVertices), 0u);
  for (std::size_t i = 0; i < copied.size(); ++i) source[inputVertices + i] = copied[i];
  std::vector<char> sourceSet(numVertices, 0);
  for (std::size_t t = 0; t < numTriangles; ++t) {
    if (origin[t] == kAdded || origin[t] >= inputTriangles) continue;
    const std::size_t from = 3 * static_cast<std::size_t>(origin[t]);
    for (int k = 0; k < 3; ++k) {
      std::uint32_t& corner = triangles[3 * t + static_cast<std::size_t>(k)];
      const std::uint32_t stitchedVertex = corner < inputVertices ? corner : source[corner];
      for (int j = 0; j < 3; ++j) {
        if (stitched[from + static_cast<std::size_t>(j)] != stitchedVertex) continue;
        const std::uint32_t own = input[from + static_cast<std::size_t>(j)];
        if (corner < inputVertices) {
          corner = own;
        } else if (!sourceSet[corner]) {
          source[corner] = own;
          sourceSet[corner] = 1;
        }
        break;
      }
    }
  }
  report.remaining = analyseMeshHealth(positions.data(), numVertices, triangles.data(), numTriangles);
  if (sources) *sources = std::move(source);
  return report;
}

} // namespace voDMA
