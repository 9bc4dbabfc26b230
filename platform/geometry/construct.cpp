#include "platform/geometry/construct.h"

#include <cmath>

namespace ruGeom {

using ruLinear::Point;
using ruLinear::Vector;

namespace {

// Appends a vertex with normal and texture coordinate, giving the mesh normals and texture
// coordinates if it had none.
std::uint32_t addFull(CompactMesh& mesh, const Point& p, const Vector& n, float u, float v) {
  const int index = mesh.addVertex(p);
  mesh.editNormals()[index] = MeshNormal(static_cast<float>(n.getX()), static_cast<float>(n.getY()),
                                         static_cast<float>(n.getZ()));
  mesh.editTextureCoordinates()[index] = MeshTexCoord{u, v};
  return static_cast<std::uint32_t>(index);
}

std::uint32_t addWithNormal(CompactMesh& mesh, const Point& p, const Vector& n) {
  const int index = mesh.addVertex(p);
  mesh.editNormals()[index] = MeshNormal(static_cast<float>(n.getX()), static_cast<float>(n.getY()),
                                         static_cast<float>(n.getZ()));
  return static_cast<std::uint32_t>(index);
}

// A quad a, b, c, d (counter-clockwise) as two triangles.
void addQuad(CompactMesh& mesh, std::uint32_t a, std::uint32_t b, std::uint32_t c, std::uint32_t d) {
  mesh.addTriangle(a, b, c);
  mesh.addTriangle(a, c, d);
}

}  // namespace

void constructRectangle(const ruLinear::ParamPlane& plane, CompactMesh& mesh) {
  const Vector u = plane.getFirstVector(), v = plane.getSecondVector();
  const Vector n = ruLinear::cross(u, v).normalized();
  const std::uint32_t a = addFull(mesh, plane.evaluate(0, 0), n, 0, 0);
  const std::uint32_t b = addFull(mesh, plane.evaluate(1, 0), n, 1, 0);
  const std::uint32_t c = addFull(mesh, plane.evaluate(1, 1), n, 1, 1);
  const std::uint32_t d = addFull(mesh, plane.evaluate(0, 1), n, 0, 1);
  addQuad(mesh, a, b, c, d);
}

void constructRectangle(double x0, double x1, double y0, double y1, int axis, double constant, CompactMesh& mesh,
                        bool facePositive) {
  if (axis < 0 || axis > 2) return;
  const int first = (axis + 1) % 3, second = (axis + 2) % 3;
  auto at = [&](double s, double t) {
    Point p;
    p[axis] = constant;
    p[first] = s;
    p[second] = t;
    return p;
  };
  Vector n;
  n[axis] = facePositive ? 1.0 : -1.0;
  const std::uint32_t a = addFull(mesh, at(x0, y0), n, 0, 0);
  const std::uint32_t b = addFull(mesh, at(x1, y0), n, 1, 0);
  const std::uint32_t c = addFull(mesh, at(x1, y1), n, 1, 1);
  const std::uint32_t d = addFull(mesh, at(x0, y1), n, 0, 1);
  // a, b, c, d runs counter-clockwise seen from +axis unless exactly one range is reversed.
  const bool counterClockwise = (x1 < x0) == (y1 < y0);
  if (counterClockwise == facePositive) {
    addQuad(mesh, a, b, c, d);
  } else {
    addQuad(mesh, a, d, c, b);
  }
}

void constructCappedCylinder(const ruLinear::ParamLine& axis, double radius, int sides, CompactMesh& mesh) {
  const Vector direction = axis.getDirection();
  if (direction.length2() == 0.0 || sides < 3) return;
  const Vector w = direction.normalized();
  const Vector u = w.orthogonalVector().normalized();
  const Vector v = ruLinear::cross(w, u);
  const Point bottom = axis.evaluate(0.0), top = axis.evaluate(1.0);
  const std::uint32_t base = static_cast<std::uint32_t>(mesh.getNumVertices());
  for (int i = 0; i < sides; ++i) {
    const double angle = 2.0 * ruLinear::pi * i / sides;
    const Vector radial = u * std::cos(angle) + v * std::sin(angle);
    addWithNormal(mesh, bottom + radial * radius, radial);
    addWithNormal(mesh, top + radial * radius, radial);
  }
  const std::uint32_t capBottom = base + 2 * sides;
  for (int i = 0; i < sides; ++i) {
    const double angle = 2.0 * ruLinear::pi * i / sides;
    const Vector radial = u * std::cos(angle) + v * std::sin(angle);
    addWithNormal(mesh, bottom + radial * radius, -w);
  }
  const std::uint32_t capTop = capBottom + sides;
  for (int i = 0; i < sides; ++i) {
    const double angle = 2.0 * ruLinear::pi * i / sides;
    const Vector radial = u * std::cos(angle) + v * std::sin(angle);
    addWithNormal(mesh, top + radial * radius, w);
  }
  const std::uint32_t centreBottom = addWithNormal(mesh, bottom, -w);
  const std::uint32_t centreTop = addWithNormal(mesh, top, w);
  for (int i = 0; i < sides; ++i) {
    const std::uint32_t j = static_cast<std::uint32_t>((i + 1) % sides);
    const std::uint32_t b0 = base + 2 * i, t0 = b0 + 1, b1 = base + 2 * j, t1 = b1 + 1;
    // u, v, w is right-handed, so increasing angle runs counter-clockwise seen from +w.
    addQuad(mesh, b0, b1, t1, t0);
    mesh.addTriangle(centreBottom, capBottom + j, capBottom + i);
    mesh.addTriangle(centreTop, capTop + i, capTop + j);
  }
}

void constructLineSegment(const ruLinear::ParamLine& line, CompactMesh& mesh, double start, double end) {
  constructLineSegment(line.evaluate(start), line.evaluate(end), mesh);
}

void constructLineSegment(const Point& a, const Point& b, CompactMesh& mesh) {
  const int i = mesh.addVertex(a);
  const int j = mesh.addVertex(b);
  mesh.addLine(static_cast<std::uint32_t>(i), static_cast<std::uint32_t>(j));
}

void constructCuboid(const ruLinear::Range3d& range, CompactMesh& mesh) {
  if (!range.isValid()) return;
  const Point lo = range.getMin(), hi = range.getMax();
  // For each face: its normal axis and sign; corners are walked counter-clockwise from outside.
  for (int axis = 0; axis < 3; ++axis) {
    const int s = (axis + 1) % 3, t = (axis + 2) % 3;
    for (int side = 0; side < 2; ++side) {
      Vector n;
      n[axis] = side ? 1.0 : -1.0;
      auto corner = [&](int i, int j) {
        Point p;
        p[axis] = side ? hi[axis] : lo[axis];
        p[s] = i ? hi[s] : lo[s];
        p[t] = j ? hi[t] : lo[t];
        return p;
      };
      const std::uint32_t a = addFull(mesh, corner(0, 0), n, 0, 0);
      const std::uint32_t b = addFull(mesh, corner(1, 0), n, 1, 0);
      const std::uint32_t c = addFull(mesh, corner(1, 1), n, 1, 1);
      const std::uint32_t d = addFull(mesh, corner(0, 1), n, 0, 1);
      // s x t = +axis, so a, b, c, d runs counter-clockwise seen from +axis.
      if (side) {
        addQuad(mesh, a, b, c, d);
      } else {
        addQuad(mesh, a, d, c, b);
      }
    }
  }
}

void constructBoxEdgeLineStrips(const BoundingBox& box, CompactMesh& mesh) {
  if (!box.valid()) return;
  const Point lo = box.getMin(), hi = box.getMax();
  std::uint32_t corner[8];
  for (int i = 0; i < 8; ++i) {
    corner[i] = static_cast<std::uint32_t>(
        mesh.addVertex(Point((i & 1) ? hi.x : lo.x, (i & 2) ? hi.y : lo.y, (i & 4) ? hi.z : lo.z)));
  }
  for (int i = 0; i < 8; ++i) {
    for (int bit = 1; bit < 8; bit <<= 1) {
      if (!(i & bit)) mesh.addLine(corner[i], corner[i | bit]);
    }
  }
}

}  // namespace ruGeom
