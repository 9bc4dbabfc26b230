#pragma once

// Meshes the benchmarks share, so that every figure is measured on the same geometry.

#include "platform/base/linear.h"
#include "platform/base/reference.h"
#include "platform/geometry/mesh.h"

#include <cmath>
#include <cstddef>
#include <cstdint>

namespace bench {

// A closed, bumpy torus of around * tube quads: 2 * around * tube triangles, around * tube
// vertices, no normals. torus(1000, 500) is the 1,000,000-triangle generated mesh.
inline ru::Reference<ruGeom::CompactMesh> torus(int around, int tube) {
  using ruLinear::Point;
  ru::Reference<ruGeom::CompactMesh> mesh(new ruGeom::CompactMesh());
  mesh->setNumVertices(around * tube);
  ruGeom::MeshVertex* v = mesh->editVertices();
  for (int i = 0; i < around; ++i) {
    const double u = 2 * ruLinear::pi * i / around;
    for (int j = 0; j < tube; ++j) {
      const double w = 2 * ruLinear::pi * j / tube;
      const double r = 0.7 + 0.02 * std::sin(13 * u) * std::cos(7 * w);
      v[i * tube + j] =
          ruGeom::MeshVertex(Point((2 + r * std::cos(w)) * std::cos(u), (2 + r * std::cos(w)) * std::sin(u), r * std::sin(w)));
    }
  }
  mesh->setNumTriangles(2 * around * tube);
  std::uint32_t* t = mesh->editTriangles();
  auto at = [&](int i, int j) { return static_cast<std::uint32_t>((i % around) * tube + (j % tube)); };
  for (int i = 0; i < around; ++i) {
    for (int j = 0; j < tube; ++j) {
      std::uint32_t* q = t + 6 * (static_cast<std::size_t>(i) * tube + j);
      q[0] = at(i, j), q[1] = at(i + 1, j), q[2] = at(i + 1, j + 1);
      q[3] = at(i, j), q[4] = at(i + 1, j + 1), q[5] = at(i, j + 1);
    }
  }
  return mesh;
}

}  // namespace bench
