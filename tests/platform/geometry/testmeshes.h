#pragma once

// Generated meshes the geometry tests share, and a brute-force ray query to check against.

#include "platform/geometry/mesh.h"
#include "platform/geometry/raycast.h"

#include <string>
#include <vector>

namespace ruGeomTest {

// A closed UV sphere of radius `radius` around `centre`: outward-facing, welded poles.
ruGeom::CompactMesh makeSphere(int rings, int segments, double radius = 1.0,
                               const ruLinear::Point& centre = ruLinear::Point());
// A closed torus around z (major radius 2, minor 0.7), outward-facing.
ruGeom::CompactMesh makeTorus(int around, int tube);
// An open, bumpy grid of n by m quads over [0, n] x [0, m], facing +z.
ruGeom::CompactMesh makeGrid(int n, int m);
// A grid with degenerate triangles added: repeated indices, collinear corners, a point triangle.
ruGeom::CompactMesh makeGridWithDegenerates(int n, int m);

struct NamedMesh {
  std::string name;
  ruGeom::CompactMesh mesh;
  bool closed;
};
// Every generated mesh, for properties checked over a corpus.
std::vector<NamedMesh> corpus();

// The nearest hit by testing every triangle (double precision), with the same meaning as
// ruGeom::meshRayIntersect.
bool bruteForceIntersect(const ruGeom::CompactMesh& mesh, const ruLinear::Line& ray, ruGeom::MeshRayHit& hit,
                         const ruGeom::MeshRayOptions& options = ruGeom::MeshRayOptions());

}  // namespace ruGeomTest
