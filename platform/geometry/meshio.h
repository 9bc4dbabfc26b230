#pragma once

#include "platform/base/strings.h"
#include "platform/geometry/export.h"
#include "platform/geometry/mesh.h"

namespace ruGeom {

// Reads a mesh file into `mesh` (replacing what it held): STL (binary or ASCII), OBJ, 3MF or PLY,
// told apart by their contents and extension. All meshes of the file are merged into one list of
// triangles (polygons are triangulated; points and lines are ignored), and vertices at identical
// positions are welded into one, so the result is indexed and shares vertices between triangles.
// Nothing else of the file is kept (no normals, colours or materials). Returns false when the
// file is missing, unreadable, truncated or malformed, or holds no triangle; `mesh` is then
// empty and `error`, when given, says which file and what is wrong. Never throws.
RU_GEOM_API bool importMesh(const ruString::CString& path, CompactMesh& mesh, ruString::CString* error = nullptr);

// Writes the triangles of `mesh` as a binary STL file (80-byte header, facet normals from the
// corners' order). Returns false when the mesh has no triangles, a triangle names a missing
// vertex, or the file cannot be written; `error`, when given, then says which file and what is
// wrong.
RU_GEOM_API bool writeStlBinary(const CompactMesh& mesh, const ruString::CString& path,
                                ruString::CString* error = nullptr);

}  // namespace ruGeom
