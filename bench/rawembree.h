#pragma once

// The yardstick of the ray-query benchmarks: Embree used directly, on the same geometry and with
// the same build quality as libGeometry's ray queries.

#include "platform/geometry/mesh.h"

#include <embree3/rtcore.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace bench {

inline RTCDevice rawDevice() {
  static RTCDevice device = rtcNewDevice("threads=0");
  return device;
}

// A committed scene of the mesh's triangles; the caller releases it.
inline RTCScene rawScene(const ruGeom::CompactMesh& mesh) {
  RTCScene scene = rtcNewScene(rawDevice());
  rtcSetSceneBuildQuality(scene, RTC_BUILD_QUALITY_MEDIUM);
  RTCGeometry geometry = rtcNewGeometry(rawDevice(), RTC_GEOMETRY_TYPE_TRIANGLE);
  auto* vertices = static_cast<float*>(rtcSetNewGeometryBuffer(geometry, RTC_BUFFER_TYPE_VERTEX, 0, RTC_FORMAT_FLOAT3,
                                                               12, mesh.getNumVertices()));
  std::copy_n(reinterpret_cast<const float*>(mesh.getVertices()), 3 * static_cast<std::size_t>(mesh.getNumVertices()), vertices);
  auto* indices = static_cast<std::uint32_t*>(rtcSetNewGeometryBuffer(geometry, RTC_BUFFER_TYPE_INDEX, 0, RTC_FORMAT_UINT3,
                                                                      12, mesh.getNumTriangles()));
  std::copy_n(mesh.getTriangles(), 3 * static_cast<std::size_t>(mesh.getNumTriangles()), indices);
  rtcCommitGeometry(geometry);
  rtcAttachGeometry(scene, geometry);
  rtcReleaseGeometry(geometry);
  rtcCommitScene(scene);
  return scene;
}

}  // namespace bench
