#pragma once

#include "platform/base/containers.h"
#include "platform/geometry/export.h"
#include "platform/geometry/mesh.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace ruGeom {

// Sets unit vertex normals from the triangles: each vertex gets the area-weighted sum of the
// normals of its triangles, normalised, so closed meshes with outward-facing triangles get outward
// normals. A vertex without a (non-degenerate) triangle gets (0, 0, 1). Replaces existing normals.
// Returns false (and changes nothing) when the mesh has no vertices or a triangle names a vertex
// out of range.
RU_GEOM_API bool meshComputeNormals(CompactMesh& mesh);

// Triangle adjacency: for each triangle and edge (edge 0 = (a, b), 1 = (b, c), 2 = (c, a)), the
// triangle across that edge, or -1 when the edge is open. Triangles are neighbours across an edge
// when they share its two vertex indices; a neighbour that runs the edge in the opposite direction
// (consistent orientation) is preferred. On an edge of more than two triangles each takes one of
// the others. A snapshot: it does not follow later changes of the mesh.
class RU_GEOM_API MeshAdjTris {
public:
  MeshAdjTris() = default;
  int getNumTriangles() const noexcept { return static_cast<int>(neighbours_.size() / 3); }
  // The triangle across `edge` (0, 1, 2) of `triangle`, -1 when open or out of range.
  int neighbour(int triangle, int edge) const noexcept;
  // The whole table, three entries a triangle.
  const std::vector<int>& table() const noexcept { return neighbours_; }

protected:
  friend RU_GEOM_API bool meshAdjTris(const CompactMesh& mesh, MeshAdjTris& out);
  std::vector<int> neighbours_;
};

// Builds the adjacency of `mesh`'s triangles into `out` in O(n log d) time for n triangles and a
// largest vertex valence d (each vertex's edges are sorted), so linear for any usual mesh and
// still fast when one vertex is shared by every triangle. Returns false (and leaves `out` empty)
// when a triangle names a vertex out of range.
RU_GEOM_API bool meshAdjTris(const CompactMesh& mesh, MeshAdjTris& out);

// Adjacency that can follow edits: triangles can be removed (their neighbours' links open up) and
// links set one by one.
class RU_GEOM_API MeshTriAdjTrisDynamic : public MeshAdjTris {
public:
  MeshTriAdjTrisDynamic() = default;
  // Opens every edge of `triangle` and the matching edges of its neighbours.
  void removeTriangle(int triangle) noexcept;
  // Links `triangle` across `edge` to `other` (-1 to open); one direction only.
  void setNeighbour(int triangle, int edge, int other) noexcept;
  // Number of open edges (neighbour -1) over all triangles.
  int countOpenEdges() const noexcept;

private:
  friend RU_GEOM_API bool meshTriAdjTris(const CompactMesh& mesh, MeshTriAdjTrisDynamic& out);
};

// Same as meshAdjTris, into a dynamic table.
RU_GEOM_API bool meshTriAdjTris(const CompactMesh& mesh, MeshTriAdjTrisDynamic& out);

// Builds triangle strips of a mesh into the mesh (CompactMesh::setStrips), walking from triangle
// to neighbour across consistently oriented edges. Every triangle ends up in exactly one strip,
// with its winding kept. Linear time in the number of triangles. The mesh and adjacency must
// outlive the object and the adjacency must be of the mesh as it is now.
class RU_GEOM_API MeshTriStrip {
public:
  MeshTriStrip(CompactMesh& mesh, const MeshAdjTris& adjacency) noexcept : mesh_(mesh), adjacency_(adjacency) {}

  // Replaces the mesh's strips with strips of at most `maxTriangles` triangles (values below 1
  // count as 1). `startTriangle` is where the walk begins (out-of-range values count as 0); the
  // result covers every triangle whatever it is. Returns the number of strips, or -1 (mesh
  // unchanged) when the adjacency does not match the mesh.
  int computeStrips(int maxTriangles, int startTriangle);

private:
  CompactMesh& mesh_;
  const MeshAdjTris& adjacency_;
};

// Cuts `mesh` into parts of at most `maxVertices` vertices each (at least 3), taking triangles in
// order and then lines, starting a new part when the next primitive would not fit. Each part keeps
// the vertices its primitives use with their normals, texture coordinates, colours and every named
// attribute; every triangle and line lands in exactly one part, in order. Strips are not carried
// (compute them per part). Vertices no primitive uses are dropped. Appends the parts to `out` as
// new objects with no reference taken: the caller owns them (adopt them into ru::Reference).
// Returns false (and appends nothing) when maxVertices < 3 or an index is out of range.
RU_GEOM_API bool meshSplit(const CompactMesh& mesh, int maxVertices, ru::vector<CompactMesh*>& out);

// The vertices of a mesh that can be extreme in some direction: every corner of its convex hull,
// possibly with a few more, but none that lie inside, or on a face of, the hull of the vertices
// that are extreme along 90 fixed directions. A box taken over these after any affine map is the
// box of all the mesh's vertices after that map, to within 1e-9 of the mesh's size. A flat mesh
// (all vertices in one plane) keeps every vertex. Computed once per vertex buffer identity (linear
// time) and cached until that identity is released; later calls on a mesh sharing the buffer cost
// a lookup. Never null: an empty list for a mesh without vertices. Thread-safe.
RU_GEOM_API std::shared_ptr<const std::vector<ruLinear::Point>> meshHullCandidates(const PointMesh& mesh);

// The axis-aligned box of the mesh's vertices carried by `matrix` (p * matrix), with the same
// values a walk over every vertex gives. Once the candidates above are known it looks only at
// them, through a tree of boxes fitted to them that each extreme is searched in: a flat-faced
// part costs a handful of points, and a round one, every vertex of which is on its hull, visits
// a few hundred (about 15 microseconds for a sphere of a million triangles). The tree takes some
// 60 bytes a candidate. The unbounded (invalid) range for a mesh without vertices.
RU_GEOM_API ruLinear::Range3d meshTransformedRange(const PointMesh& mesh, const ruLinear::AffineMatrix& matrix);

// Number of meshes whose hull candidates are cached now (for tests of the release).
RU_GEOM_API std::size_t hullCandidateCacheSize() noexcept;

}  // namespace ruGeom
