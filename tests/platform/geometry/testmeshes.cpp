#include "testmeshes.h"

#include <cfloat>
#include <cmath>

using ruGeom::CompactMesh;
using ruLinear::Point;
using ruLinear::Vector;

namespace ruGeomTest {

CompactMesh makeSphere(int rings, int segments, double radius, const Point& centre) {
  CompactMesh mesh;
  const std::uint32_t north = static_cast<std::uint32_t>(mesh.addVertex(centre + Vector(0, 0, radius)));
  for (int i = 1; i < rings; ++i) {
    const double theta = ruLinear::pi * i / rings;
    for (int j = 0; j < segments; ++j) {
      const double phi = 2 * ruLinear::pi * j / segments;
      mesh.addVertex(centre + Vector(std::sin(theta) * std::cos(phi), std::sin(theta) * std::sin(phi), std::cos(theta)) * radius);
    }
  }
  const std::uint32_t south = static_cast<std::uint32_t>(mesh.addVertex(centre + Vector(0, 0, -radius)));
  auto at = [&](int ring, int j) { return static_cast<std::uint32_t>(1 + (ring - 1) * segments + (j % segments)); };
  for (int j = 0; j < segments; ++j) mesh.addTriangle(north, at(1, j), at(1, j + 1));
  for (int i = 1; i < rings - 1; ++i) {
    for (int j = 0; j < segments; ++j) {
      mesh.addTriangle(at(i, j), at(i + 1, j), at(i + 1, j + 1));
      mesh.addTriangle(at(i, j), at(i + 1, j + 1), at(i, j + 1));
    }
  }
  for (int j = 0; j < segments; ++j) mesh.addTriangle(south, at(rings - 1, j + 1), at(rings - 1, j));
  return mesh;
}

CompactMesh makeTorus(int around, int tube) {
  CompactMesh mesh;
  for (int i = 0; i < around; ++i) {
    const double u = 2 * ruLinear::pi * i / around;
    for (int j = 0; j < tube; ++j) {
      const double v = 2 * ruLinear::pi * j / tube;
      mesh.addVertex(Point((2 + 0.7 * std::cos(v)) * std::cos(u), (2 + 0.7 * std::cos(v)) * std::sin(u), 0.7 * std::sin(v)));
    }
  }
  auto at = [&](int i, int j) { return static_cast<std::uint32_t>((i % around) * tube + (j % tube)); };
  for (int i = 0; i < around; ++i) {
    for (int j = 0; j < tube; ++j) {
      mesh.addTriangle(at(i, j), at(i + 1, j), at(i + 1, j + 1));
      mesh.addTriangle(at(i, j), at(i + 1, j + 1), at(i, j + 1));
    }
  }
  return mesh;
}

CompactMesh makeGrid(int n, int m) {
  CompactMesh mesh;
  for (int j = 0; j <= m; ++j) {
    for (int i = 0; i <= n; ++i) mesh.addVertex(Point(i, j, 0.3 * std::sin(i * 0.7) * std::cos(j * 0.5)));
  }
  auto at = [&](int i, int j) { return static_cast<std::uint32_t>(j * (n + 1) + i); };
  for (int j = 0; j < m; ++j) {
    for (int i = 0; i < n; ++i) {
      mesh.addTriangle(at(i, j), at(i + 1, j), at(i + 1, j + 1));
      mesh.addTriangle(at(i, j), at(i + 1, j + 1), at(i, j + 1));
    }
  }
  return mesh;
}

CompactMesh makeGridWithDegenerates(int n, int m) {
  CompactMesh mesh = makeGrid(n, m);
  mesh.addTriangle(0, 0, 1);  // repeated index
  const std::uint32_t a = static_cast<std::uint32_t>(mesh.addVertex(Point(0.5, 0.5, 1)));
  const std::uint32_t b = static_cast<std::uint32_t>(mesh.addVertex(Point(1.5, 1.5, 1)));
  const std::uint32_t c = static_cast<std::uint32_t>(mesh.addVertex(Point(2.5, 2.5, 1)));
  mesh.addTriangle(a, b, c);  // collinear corners
  const std::uint32_t d = static_cast<std::uint32_t>(mesh.addVertex(Point(3, 3, 2)));
  const std::uint32_t e = static_cast<std::uint32_t>(mesh.addVertex(Point(3, 3, 2)));
  mesh.addTriangle(d, e, d);  // a point
  return mesh;
}

std::vector<NamedMesh> corpus() {
  return {
      {"sphere", makeSphere(12, 16), true},
      {"torus", makeTorus(24, 12), true},
      {"grid", makeGrid(10, 7), false},
      {"degenerate", makeGridWithDegenerates(6, 6), false},
  };
}

bool bruteForceIntersect(const CompactMesh& mesh, const ruLinear::Line& ray, ruGeom::MeshRayHit& hit,
                         const ruGeom::MeshRayOptions& options) {
  hit = ruGeom::MeshRayHit();
  Vector d = ray.getDirection();
  if (d.length2() == 0) return false;
  d.normalize();
  const Point o = ray.getPoint();
  double best = DBL_MAX;
  for (int t = 0; t < mesh.getNumTriangles(); ++t) {
    if (t == options.ignoreTriangle) continue;
    const std::uint32_t* tri = mesh.getTriangles() + 3 * t;
    if (options.ignoreVertex >= 0) {
      const std::uint32_t v = static_cast<std::uint32_t>(options.ignoreVertex);
      if (tri[0] == v || tri[1] == v || tri[2] == v) continue;
    }
    const Point a = mesh.getVertices()[tri[0]].asPoint(), b = mesh.getVertices()[tri[1]].asPoint(),
                c = mesh.getVertices()[tri[2]].asPoint();
    const Vector e1 = b - a, e2 = c - a;
    const Vector p = ruLinear::cross(d, e2);
    const double det = ruLinear::dot(e1, p);
    if (std::fabs(det) < 1e-14) continue;
    const Vector s = o - a;
    const double u = ruLinear::dot(s, p) / det;
    if (u < 0 || u > 1) continue;
    const Vector q = ruLinear::cross(s, e1);
    const double v = ruLinear::dot(d, q) / det;
    if (v < 0 || u + v > 1) continue;
    const double distance = ruLinear::dot(e2, q) / det;
    if (distance < options.minDistance || distance > options.maxDistance) continue;
    if (distance < best) {
      best = distance;
      hit.hit = true;
      hit.triangle = t;
      hit.distance = distance;
      hit.u = u;
      hit.v = v;
      hit.point = o + d * distance;
    }
  }
  return hit.hit;
}

}  // namespace ruGeomTest
