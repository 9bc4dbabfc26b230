#include "platform/geometry/mesh.h"

#include <algorithm>
#include <atomic>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <utility>

namespace ruGeom {

namespace {

struct ReleaseListeners {
  // Announcements hold the lock shared, so they run in parallel; (un)subscribing holds it
  // exclusively, which is what lets unsubscribe promise that its listener is no longer running.
  std::shared_mutex mutex;
  std::vector<std::pair<std::uint64_t, std::function<void(BufferId)>>> listeners;
  std::uint64_t nextToken = 1;
};

ReleaseListeners& releaseListeners() {
  // Never destroyed: buffers may be released during static destruction.
  static ReleaseListeners* instance = new ReleaseListeners();
  return *instance;
}

}  // namespace

std::uint64_t subscribeBufferRelease(std::function<void(BufferId)> listener) {
  if (!listener) return 0;
  ReleaseListeners& r = releaseListeners();
  std::unique_lock<std::shared_mutex> lock(r.mutex);
  const std::uint64_t token = r.nextToken++;
  r.listeners.emplace_back(token, std::move(listener));
  return token;
}

void unsubscribeBufferRelease(std::uint64_t token) noexcept {
  if (token == 0) return;
  ReleaseListeners& r = releaseListeners();
  std::unique_lock<std::shared_mutex> lock(r.mutex);
  for (auto it = r.listeners.begin(); it != r.listeners.end(); ++it) {
    if (it->first == token) {
      r.listeners.erase(it);
      return;
    }
  }
}

namespace detail {

namespace {
std::atomic<BufferId> nextBufferId{1};

void releaseCachedBuffer(BufferId id) noexcept {
  ReleaseListeners& r = releaseListeners();
  std::shared_lock<std::shared_mutex> lock(r.mutex);
  for (const auto& entry : r.listeners) entry.second(id);
}
}  // namespace

BufferStorageBase::BufferStorageBase() noexcept : id_(nextBufferId.fetch_add(1, std::memory_order_relaxed)) {}

BufferStorageBase::~BufferStorageBase() {
  if (cached_) releaseCachedBuffer(id_);
}

void BufferStorageBase::renew() noexcept {
  if (cached_) releaseCachedBuffer(id_);
  cached_ = false;
  boxValid_ = false;
  id_ = nextBufferId.fetch_add(1, std::memory_order_relaxed);
}

}  // namespace detail

namespace {

template <class T>
void resizeIfPresent(MeshBuffer<T>& buffer, std::size_t count, const T& fill) {
  if (!buffer.empty() && buffer.size() != count) buffer.write().resize(count, fill);
}

}  // namespace

PointMesh::~PointMesh() = default;

MeshVertex* PointMesh::editVertices() { return vertices_.empty() ? nullptr : vertices_.write().data(); }

void PointMesh::setNumVertices(int count) {
  const std::size_t n = static_cast<std::size_t>(std::max(count, 0));
  if (n == vertices_.size()) return;
  if (n == 0) {
    vertices_.clear();
  } else {
    vertices_.write().resize(n);
  }
  resizePerVertex(n);
}

int PointMesh::addVertex(const ruLinear::Point& p) { return addVertex(MeshVertex(p)); }

int PointMesh::addVertex(const MeshVertex& v) {
  vertices_.write().push_back(v);
  resizePerVertex(vertices_.size());
  return static_cast<int>(vertices_.size()) - 1;
}

void PointMesh::shareVertices(const PointMesh& other) {
  vertices_ = other.vertices_;
  resizePerVertex(vertices_.size());
}

void PointMesh::resizePerVertex(std::size_t count) {
  if (count == 0) {
    normals_.clear();
    texCoords_.clear();
    colors_.clear();
  } else {
    resizeIfPresent(normals_, count, MeshNormal());
    resizeIfPresent(texCoords_, count, MeshTexCoord());
    resizeIfPresent(colors_, count, MeshColor());
  }
  bool any = false;
  for (std::size_t i = 0; i < attributes_.size(); ++i) {
    if (attributes_[i].values.size() != count * attributes_[i].width) any = true;
  }
  if (!any) return;
  for (MeshAttributeEntry& entry : attributes_.write()) {
    if (entry.values.size() != count * entry.width) entry.values.write().resize(count * entry.width, 0.0f);
  }
}

MeshNormal* PointMesh::editNormals() {
  if (vertices_.empty()) return nullptr;
  std::vector<MeshNormal>& data = normals_.write();
  data.resize(vertices_.size());
  return data.data();
}

MeshTexCoord* PointMesh::editTextureCoordinates() {
  if (vertices_.empty()) return nullptr;
  std::vector<MeshTexCoord>& data = texCoords_.write();
  data.resize(vertices_.size());
  return data.data();
}

MeshColor* PointMesh::editColors() {
  if (vertices_.empty()) return nullptr;
  std::vector<MeshColor>& data = colors_.write();
  data.resize(vertices_.size());
  return data.data();
}

WritableMeshAttributes PointMesh::allocAttributes(const ruString::CString& name, int width) {
  if (width < 1 || name.empty()) return WritableMeshAttributes();
  std::vector<MeshAttributeEntry>& entries = attributes_.write();
  auto it = std::find_if(entries.begin(), entries.end(), [&](const MeshAttributeEntry& e) { return e.name == name; });
  if (it == entries.end()) {
    entries.push_back(MeshAttributeEntry{name, width, {}});
    it = entries.end() - 1;
  }
  it->width = width;
  it->values.clear();
  std::vector<float>& values = it->values.write();
  values.assign(vertices_.size() * width, 0.0f);
  return WritableMeshAttributes(values.empty() ? nullptr : values.data(), width, getNumVertices());
}

MeshAttributes PointMesh::getAttributes(const ruString::CString& name) const {
  for (std::size_t i = 0; i < attributes_.size(); ++i) {
    const MeshAttributeEntry& entry = attributes_[i];
    if (entry.name == name) return MeshAttributes(entry.values.data(), entry.width, getNumVertices());
  }
  return MeshAttributes();
}

WritableMeshAttributes PointMesh::editAttributes(const ruString::CString& name) {
  if (!hasAttributes(name)) return WritableMeshAttributes();
  for (MeshAttributeEntry& entry : attributes_.write()) {
    if (entry.name == name) {
      if (entry.values.empty()) return WritableMeshAttributes(nullptr, entry.width, getNumVertices());
      std::vector<float>& values = entry.values.write();
      return WritableMeshAttributes(values.data(), entry.width, getNumVertices());
    }
  }
  return WritableMeshAttributes();
}

bool PointMesh::hasAttributes(const ruString::CString& name) const noexcept {
  for (std::size_t i = 0; i < attributes_.size(); ++i) {
    if (attributes_[i].name == name) return true;
  }
  return false;
}

bool PointMesh::removeAttributes(const ruString::CString& name) {
  if (!hasAttributes(name)) return false;
  std::vector<MeshAttributeEntry>& entries = attributes_.write();
  entries.erase(std::remove_if(entries.begin(), entries.end(), [&](const MeshAttributeEntry& e) { return e.name == name; }),
                entries.end());
  if (entries.empty()) attributes_.clear();
  return true;
}

BufferId PointMesh::getAttributeBufferId(const ruString::CString& name) const noexcept {
  for (std::size_t i = 0; i < attributes_.size(); ++i) {
    if (attributes_[i].name == name) return attributes_[i].values.id();
  }
  return 0;
}

BoundingBox PointMesh::getBoundingBox() const noexcept {
  BoundingBox box;
  const MeshVertex* v = vertices_.data();
  if (!v) return box;
  // Worked out once per contents: every copy of the mesh shares the vertex storage and its box.
  float cached[6];
  if (vertices_.storage()->getCachedBox(cached)) {
    box.set(ruLinear::Point(cached[0], cached[1], cached[2]), ruLinear::Point(cached[3], cached[4], cached[5]));
    return box;
  }
  float lo[3] = {v[0].x, v[0].y, v[0].z};
  float hi[3] = {v[0].x, v[0].y, v[0].z};
  for (std::size_t i = 1; i < vertices_.size(); ++i) {
    lo[0] = std::min(lo[0], v[i].x), hi[0] = std::max(hi[0], v[i].x);
    lo[1] = std::min(lo[1], v[i].y), hi[1] = std::max(hi[1], v[i].y);
    lo[2] = std::min(lo[2], v[i].z), hi[2] = std::max(hi[2], v[i].z);
  }
  const float computed[6] = {lo[0], lo[1], lo[2], hi[0], hi[1], hi[2]};
  vertices_.storage()->setCachedBox(computed);
  box.set(ruLinear::Point(lo[0], lo[1], lo[2]), ruLinear::Point(hi[0], hi[1], hi[2]));
  return box;
}

CompactMesh::~CompactMesh() = default;

void CompactMesh::clear() { *this = CompactMesh(); }

std::uint32_t* CompactMesh::editTriangles() { return triangles_.empty() ? nullptr : triangles_.write().data(); }

void CompactMesh::setNumTriangles(int count) {
  const std::size_t n = static_cast<std::size_t>(std::max(count, 0)) * 3;
  if (n == triangles_.size()) return;
  if (n == 0) {
    triangles_.clear();
  } else {
    triangles_.write().resize(n, 0u);
  }
}

int CompactMesh::addTriangle(std::uint32_t a, std::uint32_t b, std::uint32_t c) {
  std::vector<std::uint32_t>& t = triangles_.write();
  t.push_back(a);
  t.push_back(b);
  t.push_back(c);
  return static_cast<int>(t.size() / 3) - 1;
}

std::uint32_t* CompactMesh::editLines() { return lines_.empty() ? nullptr : lines_.write().data(); }

void CompactMesh::setNumLines(int count) {
  const std::size_t n = static_cast<std::size_t>(std::max(count, 0)) * 2;
  if (n == lines_.size()) return;
  if (n == 0) {
    lines_.clear();
  } else {
    lines_.write().resize(n, 0u);
  }
}

int CompactMesh::addLine(std::uint32_t a, std::uint32_t b) {
  std::vector<std::uint32_t>& l = lines_.write();
  l.push_back(a);
  l.push_back(b);
  return static_cast<int>(l.size() / 2) - 1;
}

bool CompactMesh::setStrips(const std::uint32_t* indices, int numIndices, const std::uint32_t* lengths,
                            int numStrips, const std::uint32_t* triangles) {
  if (numIndices < 0 || numStrips < 0) return false;
  std::size_t total = 0, stripTriangles = 0;
  for (int s = 0; s < numStrips; ++s) {
    if (lengths[s] < 3) return false;
    total += lengths[s];
    stripTriangles += lengths[s] - 2;
  }
  if (total != static_cast<std::size_t>(numIndices)) return false;
  clearStrips();
  if (numStrips == 0) return true;
  stripIndices_.write().assign(indices, indices + numIndices);
  stripLengths_.write().assign(lengths, lengths + numStrips);
  stripTriangles_.write().assign(triangles, triangles + stripTriangles);
  return true;
}

void CompactMesh::clearStrips() noexcept {
  stripIndices_.clear();
  stripLengths_.clear();
  stripTriangles_.clear();
}

}  // namespace ruGeom
