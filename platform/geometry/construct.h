#pragma once

#include "platform/base/linear.h"
#include "platform/geometry/box.h"
#include "platform/geometry/export.h"
#include "platform/geometry/mesh.h"

namespace ruGeom {

// Every construction appends to `mesh`: new vertices after the existing ones, new triangles or
// lines referring to them. Triangles face outward (counter-clockwise seen from outside).
// Constructions that give texture coordinates or normals also give them to the vertices the mesh
// already had (zero) when it had none.

// The parameter square [0, 1] x [0, 1] of `plane`: corners origin, origin + u, origin + u + v,
// origin + v; two triangles facing along u x v, normals u x v (normalised), texture coordinates
// equal to the parameters (0, 0) at the origin, (1, 1) at origin + u + v.
RU_GEOM_API void constructRectangle(const ruLinear::ParamPlane& plane, CompactMesh& mesh);

// The rectangle [x0, x1] x [y0, y1] in the plane where coordinate `axis` (0, 1 or 2) equals
// `constant`; the rectangle's two coordinates are the two other axes in cyclic order (axis 2:
// x then y; axis 0: y then z; axis 1: z then x). Texture coordinates run from (0, 0) at (x0, y0)
// to (1, 1) at (x1, y1). With `facePositive` true the two triangles run counter-clockwise seen
// from +axis and the normals are +axis (a billboard in the camera's frame then faces the camera);
// with it false they face -axis. Does nothing when `axis` is out of range.
RU_GEOM_API void constructRectangle(double x0, double x1, double y0, double y1, int axis, double constant,
                                    CompactMesh& mesh, bool facePositive);

// A closed cylinder around `axis` from parameter 0 to 1, of `radius` world units, with `sides`
// sides (at least 3) and flat caps. Side vertices carry radial normals, cap vertices the cap's
// axial normal (so the caps have their own vertices). Vertices: 4 * sides + 2; triangles:
// 4 * sides. Does nothing for a zero-length axis or sides < 3.
RU_GEOM_API void constructCappedCylinder(const ruLinear::ParamLine& axis, double radius, int sides, CompactMesh& mesh);

// One line segment from line(start) to line(end): two vertices and one line.
RU_GEOM_API void constructLineSegment(const ruLinear::ParamLine& line, CompactMesh& mesh, double start, double end);
// One line segment from `a` to `b`: two vertices and one line.
RU_GEOM_API void constructLineSegment(const ruLinear::Point& a, const ruLinear::Point& b, CompactMesh& mesh);

// A solid box of the range: 24 vertices (four a face, with the face's normal and texture
// coordinates) and 12 triangles. Does nothing for an inverted range.
RU_GEOM_API void constructCuboid(const ruLinear::Range3d& range, CompactMesh& mesh);

// The twelve edges of the box as lines (8 vertices, 12 line segments). Does nothing for an
// invalid box.
RU_GEOM_API void constructBoxEdgeLineStrips(const BoundingBox& box, CompactMesh& mesh);

}  // namespace ruGeom
