#pragma once

#include "platform/datamodel/export.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace voDMA {

// What is wrong with a triangle mesh as a printable solid. Edges are undirected pairs of vertices;
// open edges are first stitched where their corners sit at exactly the same place, so a box whose
// faces carry their own corners is a closed solid.
struct VO_DMD_API MeshHealth {
  // Edges used by exactly one triangle: the rims of holes.
  std::size_t openEdges = 0;
  // Edges used by more than two triangles.
  std::size_t nonManifoldEdges = 0;
  // Edges shared by two triangles that run along them in the same direction, so one of the two
  // faces the wrong way.
  std::size_t inconsistentEdges = 0;
  // Triangles with a repeated corner index or no area.
  std::size_t degenerateTriangles = 0;
  // Triangles with the same three corners as an earlier one (in any order).
  std::size_t duplicateTriangles = 0;

  bool healthy() const noexcept {
    return openEdges == 0 && nonManifoldEdges == 0 && inconsistentEdges == 0 && degenerateTriangles == 0 &&
           duplicateTriangles == 0;
  }
};

// Examines `numTriangles` triangles of `triangles` (three indices each) over `numVertices`
// positions (x, y, z each). Triangles with an index out of range count as degenerate. Linear time.
VO_DMD_API MeshHealth analyseMeshHealth(const float* positions, std::size_t numVertices, const std::uint32_t* triangles,
                                        std::size_t numTriangles);

// What a repair did.
struct VO_DMD_API MeshRepairReport {
  std::size_t removedDegenerate = 0;
  std::size_t removedDuplicate = 0;
  // Vertices copied so that surfaces meeting only along an edge or at a point come apart.
  std::size_t splitVertices = 0;
  std::size_t flippedTriangles = 0;
  std::size_t closedHoles = 0;
  std::size_t addedTriangles = 0;
  // What is still wrong afterwards (holes with more edges than allowed, say); healthy() when the
  // repair fixed everything.
  MeshHealth remaining;
};

// Repairs a mesh in place: removes degenerate and duplicate triangles, separates surfaces that
// share an edge or a vertex without being joined (so every edge has at most two triangles), makes
// the orientation consistent (outward for closed parts), and closes holes whose rim has at most
// `maxHoleEdges` edges. Open edges are stitched first as the analysis does (the copies stay in the
// array, unused). Vertices may be appended; none are removed or moved. Every triangle that is
// not removed as degenerate or duplicate is kept (turned, or cut in two along a sliver's corner,
// perhaps), and its corners keep the vertices they had wherever the stitching allows, so the
// attributes of those vertices stay with them. Returns what it did and what is left to fix.
//
// `sources`, when given, receives for every vertex of the result the vertex of the input whose
// attributes it should carry: itself for the input's vertices, the vertex it copies for those
// appended.
VO_DMD_API MeshRepairReport repairMesh(std::vector<float>& positions, std::vector<std::uint32_t>& triangles,
                                       std::size_t maxHoleEdges = 64, std::vector<std::uint32_t>* sources = nullptr);

} // namespace voDMA
