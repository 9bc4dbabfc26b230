#pragma once

// Small generated meshes for the data-model tests: welded positions and triangles.

#include <array>
#include <cstdint>
#include <map>
#include <vector>

namespace testmesh {

struct Soup {
  std::vector<float> positions;
  std::vector<std::uint32_t> triangles;

  std::size_t numVertices() const { return positions.size() / 3; }
  std::size_t numTriangles() const { return triangles.size() / 3; }

  // Index of the vertex at (x, y, z), added when new: identical positions share an index.
  std::uint32_t vertex(float x, float y, float z) {
    const std::array<float, 3> key{x, y, z};
    auto found = index_.find(key);
    if (found != index_.end()) return found->second;
    const auto i = static_cast<std::uint32_t>(numVertices());
    positions.insert(positions.end(), {x, y, z});
    index_.emplace(key, i);
    return i;
  }
  void triangle(std::uint32_t a, std::uint32_t b, std::uint32_t c) { triangles.insert(triangles.end(), {a, b, c}); }

private:
  std::map<std::array<float, 3>, std::uint32_t> index_;
};

// The six faces of a box as quads of corner bits (x = 1, y = 2, z = 4), counter-clockwise seen
// from outside.
inline const int kBoxFaces[6][4] = {{0, 2, 3, 1}, {4, 5, 7, 6}, {0, 1, 5, 4}, {2, 6, 7, 3}, {0, 4, 6, 2}, {1, 3, 7, 5}};

// Adds the box [lo, hi] facing outward (or inward when `inward`), each face split in n x n quads,
// leaving out the faces whose bit is set in `skipFaces` (bit k = face k above).
inline void addBox(Soup& soup, std::array<float, 3> lo, std::array<float, 3> hi, bool inward = false, int n = 1,
                   unsigned skipFaces = 0) {
  auto corner = [&](int bits) {
    return std::array<float, 3>{(bits & 1) ? hi[0] : lo[0], (bits & 2) ? hi[1] : lo[1], (bits & 4) ? hi[2] : lo[2]};
  };
  for (int f = 0; f < 6; ++f) {
    if (skipFaces & (1u << f)) continue;
    const auto a = corner(kBoxFaces[f][0]), b = corner(kBoxFaces[f][1]), d = corner(kBoxFaces[f][3]);
    auto at = [&](int i, int j) {
      const float s = float(i) / float(n), t = float(j) / float(n);
      return soup.vertex(a[0] + s * (b[0] - a[0]) + t * (d[0] - a[0]), a[1] + s * (b[1] - a[1]) + t * (d[1] - a[1]),
                         a[2] + s * (b[2] - a[2]) + t * (d[2] - a[2]));
    };
    for (int i = 0; i < n; ++i) {
      for (int j = 0; j < n; ++j) {
        const std::uint32_t p = at(i, j), q = at(i + 1, j), r = at(i + 1, j + 1), s = at(i, j + 1);
        if (inward) {
          soup.triangle(p, r, q);
          soup.triangle(p, s, r);
        } else {
          soup.triangle(p, q, r);
          soup.triangle(p, r, s);
        }
      }
    }
  }
}

inline Soup box(std::array<float, 3> lo = {0, 0, 0}, std::array<float, 3> hi = {1, 1, 1}, int n = 1) {
  Soup soup;
  addBox(soup, lo, hi, false, n);
  return soup;
}

// A box with walls of thickness `wall`: outer faces outward, inner faces toward the cavity.
inline Soup hollowBox(float size, float wall, int n) {
  Soup soup;
  addBox(soup, {0, 0, 0}, {size, size, size}, false, n);
  addBox(soup, {wall, wall, wall}, {size - wall, size - wall, size - wall}, true, n);
  return soup;
}

} // namespace testmesh

#include "platform/base/reference.h"
#include "platform/geometry/mesh.h"

namespace testmesh {

// The soup as a reference-counted geometry mesh.
inline ru::Reference<ruGeom::CompactMesh> toMesh(const Soup& soup) {
  ru::Reference<ruGeom::CompactMesh> mesh(new ruGeom::CompactMesh());
  for (std::size_t i = 0; i < soup.numVertices(); ++i) {
    mesh->addVertex(ruGeom::MeshVertex(soup.positions[3 * i], soup.positions[3 * i + 1], soup.positions[3 * i + 2]));
  }
  for (std::size_t t = 0; t < soup.numTriangles(); ++t) {
    mesh->addTriangle(soup.triangles[3 * t], soup.triangles[3 * t + 1], soup.triangles[3 * t + 2]);
  }
  return mesh;
}

} // namespace testmesh
