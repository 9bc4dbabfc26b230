#pragma once

#include "platform/base/linear.h"
#include "platform/base/reference.h"
#include "platform/base/strings.h"
#include "platform/geometry/box.h"
#include "platform/geometry/buffer.h"
#include "platform/geometry/export.h"

#include <cstddef>
#include <cstdint>

namespace ruGeom {

// A vertex position in single precision, world units.
struct MeshVertex {
  float x = 0, y = 0, z = 0;
  constexpr MeshVertex() noexcept = default;
  constexpr MeshVertex(float px, float py, float pz) noexcept : x(px), y(py), z(pz) {}
  explicit MeshVertex(const ruLinear::Point& p) noexcept
      : x(static_cast<float>(p.x)), y(static_cast<float>(p.y)), z(static_cast<float>(p.z)) {}
  ruLinear::Point asPoint() const noexcept { return ruLinear::Point(x, y, z); }
  friend constexpr bool operator==(const MeshVertex& a, const MeshVertex& b) noexcept {
    return a.x == b.x && a.y == b.y && a.z == b.z;
  }
};
static_assert(sizeof(MeshVertex) == 12);

// A vertex normal in single precision (unit length when computed by meshComputeNormals).
struct MeshNormal {
  float x = 0, y = 0, z = 0;
  constexpr MeshNormal() noexcept = default;
  constexpr MeshNormal(float nx, float ny, float nz) noexcept : x(nx), y(ny), z(nz) {}
  ruLinear::Vector asVector() const noexcept { return ruLinear::Vector(x, y, z); }
};

// A texture coordinate; (0, 0) is the lower left of the image, v up.
struct MeshTexCoord {
  float u = 0, v = 0;
};

// A vertex colour, red, green, blue, alpha in 0..1.
struct MeshColor {
  float r = 1, g = 1, b = 1, a = 1;
};

// A read-only view of one named per-vertex attribute: `width` floats a vertex, contiguous, vertex
// after vertex. It owns nothing and stays valid until the mesh it came from changes its vertex
// count or writes the attribute. The memory may be shared with copies of the mesh, which is why
// it can only be read.
class RU_GEOM_API MeshAttributes {
public:
  MeshAttributes() noexcept = default;
  MeshAttributes(const float* data, int width, int numVertices) noexcept
      : data_(data), width_(width), numVertices_(numVertices) {}

  // False for an attribute the mesh does not have.
  bool valid() const noexcept { return width_ > 0; }
  int getWidth() const noexcept { return width_; }
  int getNumVertices() const noexcept { return numVertices_; }
  // True for a view that came from allocAttributes or editAttributes (see WritableMeshAttributes).
  bool isWritable() const noexcept { return writable_; }
  // The floats, getWidth() per vertex; null when invalid or when there are no vertices.
  const float* asFloat() const noexcept { return data_; }

protected:
  MeshAttributes(const float* data, int width, int numVertices, bool writable) noexcept
      : data_(data), width_(width), numVertices_(numVertices), writable_(writable) {}

private:
  const float* data_ = nullptr;
  int width_ = 0;
  int numVertices_ = 0;
  bool writable_ = false;
};

// A view of one attribute that may be written: the mesh detached the attribute's floats from its
// copies before handing it out. It is only as good as that detachment: copying the mesh shares
// the floats again, and taking another view (editAttributes, allocAttributes, removeAttributes)
// may move them, so either invalidates every writable view taken before. A write through such a
// stale view would reach the copies too; take a new view with editAttributes instead.
class RU_GEOM_API WritableMeshAttributes : public MeshAttributes {
public:
  WritableMeshAttributes() noexcept = default;
  WritableMeshAttributes(float* data, int width, int numVertices) noexcept
      : MeshAttributes(data, width, numVertices, true), editable_(data) {}

  // The floats for writing, getWidth() per vertex; null when invalid or without vertices.
  float* editFloat() const noexcept { return editable_; }

private:
  float* editable_ = nullptr;
};

// One named attribute of a mesh: its name, width and the shared floats.
struct MeshAttributeEntry {
  ruString::CString name;
  int width = 0;
  MeshBuffer<float> values;
};

// Points with optional per-vertex normals, texture coordinates, colours and named attributes. All
// arrays live in shared copy-on-write buffers (see MeshBuffer): copying or assigning a mesh copies
// no data, and writing to one copy detaches only the buffer written. The per-vertex arrays a mesh
// has are kept at the vertex count when it changes (new entries are zero, colours white).
// Reference counted; one thread at a time.
class RU_GEOM_API PointMesh : public ru::ReferenceCount {
public:
  PointMesh() = default;
  PointMesh(const PointMesh&) = default;
  PointMesh& operator=(const PointMesh&) = default;
  ~PointMesh() override;

  int getNumVertices() const noexcept { return static_cast<int>(vertices_.size()); }
  // The positions, getNumVertices() of them; null when there are none.
  const MeshVertex* getVertices() const noexcept { return vertices_.data(); }
  // The positions for writing (detaches them from copies; new identity).
  MeshVertex* editVertices();
  // Changes the vertex count, keeping existing vertices; also resizes every per-vertex array the
  // mesh has. Negative counts count as 0.
  void setNumVertices(int count);
  // Appends a vertex and returns its index.
  int addVertex(const ruLinear::Point& p);
  int addVertex(const MeshVertex& v);
  // Shares the other mesh's vertex positions (no copy); the other per-vertex arrays of this mesh
  // are resized to the new count.
  void shareVertices(const PointMesh& other);

  bool hasNormals() const noexcept { return !normals_.empty(); }
  const MeshNormal* getNormals() const noexcept { return normals_.data(); }
  // Allocates normals (zero) if the mesh has none and returns them for writing.
  MeshNormal* editNormals();
  void clearNormals() noexcept { normals_.clear(); }

  bool hasTextureCoordinates() const noexcept { return !texCoords_.empty(); }
  const MeshTexCoord* getTextureCoordinates() const noexcept { return texCoords_.data(); }
  MeshTexCoord* editTextureCoordinates();
  void clearTextureCoordinates() noexcept { texCoords_.clear(); }

  bool hasColors() const noexcept { return !colors_.empty(); }
  const MeshColor* getColors() const noexcept { return colors_.data(); }
  // Allocates colours (white) if the mesh has none and returns them for writing.
  MeshColor* editColors();
  void clearColors() noexcept { colors_.clear(); }

  // Allocates the per-vertex attribute `name` of `width` floats a vertex, all zero, replacing an
  // attribute of that name. Returns a writable view; an invalid view when width < 1 or the name
  // is empty.
  WritableMeshAttributes allocAttributes(const ruString::CString& name, int width);
  // The attribute `name` for reading; invalid when the mesh has none. A read, on a const mesh or
  // not: it copies nothing and keeps the buffer's identity, so a copy made for every redraw
  // costs nothing.
  MeshAttributes getAttributes(const ruString::CString& name) const;
  // The attribute `name` for writing: detaches its floats from the mesh's copies first and gives
  // them a new identity. Invalid when the mesh has none.
  WritableMeshAttributes editAttributes(const ruString::CString& name);
  bool hasAttributes(const ruString::CString& name) const noexcept;
  bool removeAttributes(const ruString::CString& name);
  int getNumAttributes() const noexcept { return static_cast<int>(attributes_.size()); }
  // Entry `i` in the order of allocation, for walking every attribute.
  const MeshAttributeEntry& getAttributeEntry(int i) const noexcept { return attributes_[i]; }

  // Buffer identities for caches (see BufferId).
  BufferId getVertexBufferId() const noexcept { return vertices_.id(); }
  BufferId getNormalBufferId() const noexcept { return normals_.id(); }
  BufferId getTextureCoordinateBufferId() const noexcept { return texCoords_.id(); }
  BufferId getColorBufferId() const noexcept { return colors_.id(); }
  BufferId getAttributeBufferId(const ruString::CString& name) const noexcept;

  // The box of all vertices; invalid when there are none.
  BoundingBox getBoundingBox() const noexcept;

  // The buffers themselves, for caches that mark them (see BufferId).
  const MeshBuffer<MeshVertex>& vertexBuffer() const noexcept { return vertices_; }
  const MeshBuffer<MeshNormal>& normalBuffer() const noexcept { return normals_; }
  const MeshBuffer<MeshTexCoord>& textureCoordinateBuffer() const noexcept { return texCoords_; }
  const MeshBuffer<MeshColor>& colorBuffer() const noexcept { return colors_; }

private:
  void resizePerVertex(std::size_t count);

  MeshBuffer<MeshVertex> vertices_;
  MeshBuffer<MeshNormal> normals_;
  MeshBuffer<MeshTexCoord> texCoords_;
  MeshBuffer<MeshColor> colors_;
  // The list of attributes is itself shared, so copying a mesh costs the same whatever it holds.
  MeshBuffer<MeshAttributeEntry> attributes_;
};

// A PointMesh with triangles, lines and triangle strips, all as 32-bit vertex indices in shared
// copy-on-write buffers. Triangles are counter-clockwise seen from outside (their front side).
// Triangle strips are kept apart from the triangle list (rendering may use either): strip `s` is
// getStripLength(s) vertex indices, triangle k of a strip uses indices k, k+1, k+2 with every odd
// triangle's first two swapped, and getStripTriangles() names, for each strip triangle in order,
// the triangle of the list it stands for. Reference counted (hold new meshes in ru::Reference);
// copying is cheap: assignment shares every buffer.
class RU_GEOM_API CompactMesh : public PointMesh {
public:
  CompactMesh() = default;
  CompactMesh(const CompactMesh&) = default;
  CompactMesh& operator=(const CompactMesh&) = default;
  ~CompactMesh() override;

  // Empties the mesh (every buffer released).
  void clear();

  int getNumTriangles() const noexcept { return static_cast<int>(triangles_.size() / 3); }
  bool hasTriangles() const noexcept { return !triangles_.empty(); }
  // Three vertex indices a triangle, in triangle order; null when there are none.
  const std::uint32_t* getTriangles() const noexcept { return triangles_.data(); }
  std::uint32_t* editTriangles();
  // Resizes the triangle list (new triangles are (0, 0, 0)); negative counts count as 0.
  void setNumTriangles(int count);
  // Appends a triangle and returns its index.
  int addTriangle(std::uint32_t a, std::uint32_t b, std::uint32_t c);

  int getNumLines() const noexcept { return static_cast<int>(lines_.size() / 2); }
  bool hasLines() const noexcept { return !lines_.empty(); }
  // Two vertex indices a line segment; null when there are none.
  const std::uint32_t* getLines() const noexcept { return lines_.data(); }
  std::uint32_t* editLines();
  void setNumLines(int count);
  int addLine(std::uint32_t a, std::uint32_t b);

  bool hasStrips() const noexcept { return !stripLengths_.empty(); }
  int getNumStrips() const noexcept { return static_cast<int>(stripLengths_.size()); }
  // Vertex indices of every strip, one after the other.
  const std::uint32_t* getStripIndices() const noexcept { return stripIndices_.data(); }
  int getNumStripIndices() const noexcept { return static_cast<int>(stripIndices_.size()); }
  // Number of vertex indices of each strip (triangles + 2).
  const std::uint32_t* getStripLengths() const noexcept { return stripLengths_.data(); }
  std::uint32_t getStripLength(int strip) const noexcept { return stripLengths_[strip]; }
  // For each strip triangle, in strip order, its index in the triangle list.
  const std::uint32_t* getStripTriangles() const noexcept { return stripTriangles_.data(); }
  // Replaces the strips; `lengths` counts vertex indices a strip (each at least 3) and
  // `triangles` holds sum(length - 2) triangle indices. Returns false (and keeps the old strips)
  // when the sizes disagree.
  bool setStrips(const std::uint32_t* indices, int numIndices, const std::uint32_t* lengths, int numStrips,
                 const std::uint32_t* triangles);
  void clearStrips() noexcept;

  BufferId getTriangleBufferId() const noexcept { return triangles_.id(); }
  BufferId getLineBufferId() const noexcept { return lines_.id(); }
  BufferId getStripBufferId() const noexcept { return stripIndices_.id(); }

  const MeshBuffer<std::uint32_t>& triangleBuffer() const noexcept { return triangles_; }
  const MeshBuffer<std::uint32_t>& lineBuffer() const noexcept { return lines_; }

private:
  MeshBuffer<std::uint32_t> triangles_;
  MeshBuffer<std::uint32_t> lines_;
  MeshBuffer<std::uint32_t> stripIndices_;
  MeshBuffer<std::uint32_t> stripLengths_;
  MeshBuffer<std::uint32_t> stripTriangles_;
};

}  // namespace ruGeom
