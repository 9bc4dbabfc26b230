#include "platform/datamodel/actions.h"

#include "platform/datamodel/editscope.h"
#include "platform/datamodel/print.h"
#include "platform/geometry/mesh.h"
#include "platform/geometry/raycast.h"

#include <algorithm>
#include <cmath>
#include <thread>

namespace voDMA {

bool isPartThick(const voDMD::KLTMesh* mesh) {
  if (!mesh || mesh->needsAnalyseThickness()) return true;
  const voDMD::KLTPrinter* printer = mesh->owner()->document()->decoration().getPrinter();
  if (!printer) return true;
  // The limit is a world length; the measurements are in the mesh's coordinates.
  const double t = printer->minimumThickness;
  ruLinear::Vector limit(t / std::sqrt(3.0), t / std::sqrt(3.0), t / std::sqrt(3.0));
  if (const voDMD::Transform* transform = mesh->owner()->findAttribute<voDMD::Transform>()) {
    const ruLinear::AffineMatrix inverse = transform->getObjToWorld().inverse();
    if (inverse != ruLinear::AffineMatrix::Identity) limit = limit * inverse;
  }
  const double local = limit.length();
  return std::none_of(mesh->thickness.begin(), mesh->thickness.end(),
                      [local](float v) { return v >= 0.0f && v < local; });
}

std::vector<ruLinear::ParamPlane> kltGetOutOfBedPlanes() {
  std::vector<ruLinear::ParamPlane> planes;
  voDMD::KLTDecoration* decoration = voDMD::KLTDecoration::get();
  const voDMD::KLTPrinter* printer = decoration ? decoration->getPrinter() : nullptr;
  if (!printer) return planes;
  const unsigned faces = decoration->outOfBoundsFaces();
  const ruLinear::Range3d& volume = printer->useableVolume();
  const ruLinear::Point lo = volume.getMin(), hi = volume.getMax(), mid = volume.getMiddle();
  const ruLinear::Vector size = volume.getDiagonal();
  const ruLinear::Vector dx(size.getX(), 0, 0), dy(0, size.getY(), 0), dz(0, 0, size.getZ());
  // Each face: a plane through its centre, spanned by the face's two edges.
  if (faces & 1u) planes.emplace_back(ruLinear::Point(lo.x, mid.y, mid.z), -ruLinear::Normal::x, dy, dz, false);
  if (faces & 2u) planes.emplace_back(ruLinear::Point(hi.x, mid.y, mid.z), ruLinear::Normal::x, dy, dz, false);
  if (faces & 4u) planes.emplace_back(ruLinear::Point(mid.x, lo.y, mid.z), -ruLinear::Normal::y, dz, dx, false);
  if (faces & 8u) planes.emplace_back(ruLinear::Point(mid.x, hi.y, mid.z), ruLinear::Normal::y, dz, dx, false);
  // Bottom and top both face up: the bed tells them apart by height.
  if (faces & 16u) planes.emplace_back(ruLinear::Point(mid.x, mid.y, lo.z), ruLinear::Normal::z, dx, dy, false);
  if (faces & 32u) planes.emplace_back(ruLinear::Point(mid.x, mid.y, hi.z), ruLinear::Normal::z, dx, dy, false);
  return planes;
}

ru::vector<voDMD::KLTMesh*> findKLTMeshes() {
  ru::vector<voDMD::KLTMesh*> meshes;
  for (voDMD::ObjectIterator it; it.valid(); it.next()) {
    if (voDMD::KLTMesh* mesh = it.getObject()->findAttribute<voDMD::KLTMesh>()) meshes.push_back(mesh);
  }
  return meshes;
}

int analysePendingThickness() {
  ru::vector<voDMD::KLTMesh*> pending;
  for (voDMD::KLTMesh* mesh : findKLTMeshes()) {
    if (mesh->needsAnalyseThickness() && mesh->getMesh()) pending.push_back(mesh);
  }
  if (pending.empty()) return 0;
  voDMD::detail::EditScope scope(pending.front()->owner()->document()->txnManager(), "Analyse thickness");
  for (voDMD::KLTMesh* mesh : pending) mesh->analyseThickness();
  return static_cast<int>(pending.size());
}

std::vector<float> computeThickness(const ruGeom::CompactMesh& mesh) {
  const int numTriangles = mesh.getNumTriangles();
  std::vector<float> thickness(3 * static_cast<std::size_t>(numTriangles), -1.0f);
  if (numTriangles == 0) return thickness;
  const ruGeom::MeshRayQuery query(mesh);
  if (!query.valid()) return thickness;
  const ruGeom::MeshVertex* vertices = mesh.getVertices();
  const std::uint32_t* triangles = mesh.getTriangles();
  const auto numVertices = static_cast<std::uint32_t>(mesh.getNumVertices());
  // Hits closer than this to the start are the start's own surface.
  const double size = mesh.getBoundingBox().valid() ? mesh.getBoundingBox().getDiagonal().length() : 0.0;
  const double nearest = std::max(size * 1e-7, 1e-12);

  auto measure = [&](int first, int last) {
    ruGeom::MeshRayOptions options;
    options.minDistance = nearest;
    ruGeom::MeshRayHit hit;
    for (int t = first; t < last; ++t) {
      const std::uint32_t* c = triangles + 3 * static_cast<std::size_t>(t);
      if (c[0] >= numVertices || c[1] >= numVertices || c[2] >= numVertices) continue;
      const ruLinear::Point p[3] = {vertices[c[0]].asPoint(), vertices[c[1]].asPoint(), vertices[c[2]].asPoint()};
      const ruLinear::Vector inward = -ruLinear::cross(p[1] - p[0], p[2] - p[0]);
      if (inward.length2() == 0.0) continue;
      const ruLinear::Point centre = p[0] + ((p[1] - p[0]) + (p[2] - p[0])) / 3.0;
      options.ignoreTriangle = t;
      for (int k = 0; k < 3; ++k) {
        // Start a hair inside the triangle, so a ray from a corner on an edge does not run along
        // the neighbouring faces.
        const ruLinear::Point start = p[k] + (centre - p[k]) * 1e-3;
        if (query.intersect(ruLinear::Line(start, inward), hit, options)) {
          thickness[3 * static_cast<std::size_t>(t) + k] = static_cast<float>(hit.distance);
        }
      }
    }
  };
  const int threads = static_cast<int>(std::clamp(std::thread::hardware_concurrency(), 1u, 16u));
  if (threads == 1 || numTriangles < 4096) {
    measure(0, numTriangles);
  } else {
    std::vector<std::thread> workers;
    const int chunk = (numTriangles + threads - 1) / threads;
    for (int i = 0; i < threads; ++i) {
      const int first = i * chunk, last = std::min(numTriangles, first + chunk);
      if (first < last) workers.emplace_back(measure, first, last);
    }
    for (std::thread& worker : workers) worker.join();
  }
  return thickness;
}

MeshHealth analyseMeshHealth(const ruGeom::CompactMesh& mesh) {
  static_assert(sizeof(ruGeom::MeshVertex) == 3 * sizeof(float));
  return analyseMeshHealth(reinterpret_cast<const float*>(mesh.getVertices()),
                           static_cast<std::size_t>(mesh.getNumVertices()), mesh.getTriangles(),
                           static_cast<std::size_t>(mesh.getNumTriangles()));
}

} // namespace voDMA
