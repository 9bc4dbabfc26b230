#include "platform/datamodel/meshhealth.h"

#include "meshes.h"

#include <gtest/gtest.h>

using testmesh::Soup;

namespace {

voDMA::MeshHealth healthOf(const Soup& soup) {
  return voDMA::analyseMeshHealth(soup.positions.data(), soup.numVertices(), soup.triangles.data(),
                                  soup.numTriangles());
}

double signedVolume(const Soup& soup) {
  double v = 0;
  for (std::size_t t = 0; t < soup.numTriangles(); ++t) {
    const float* a = &soup.positions[3 * soup.triangles[3 * t]];
    const float* b = &soup.positions[3 * soup.triangles[3 * t + 1]];
    const float* c = &soup.positions[3 * soup.triangles[3 * t + 2]];
    v += (a[0] * (b[1] * c[2] - b[2] * c[1]) - a[1] * (b[0] * c[2] - b[2] * c[0]) + a[2] * (b[0] * c[1] - b[1] * c[0])) /
         6.0;
  }
  return v;
}

// Two unit cubes touching along the edge x = 1, y = 1.
Soup cubesSharingAnEdge() {
  Soup soup;
  testmesh::addBox(soup, {0, 0, 0}, {1, 1, 1});
  testmesh::addBox(soup, {1, 1, 0}, {2, 2, 1});
  return soup;
}

} // namespace

TEST(MeshHealth, ClosedCubeIsHealthy) {
  for (int n : {1, 3}) {
    const Soup cube = testmesh::box({0, 0, 0}, {1, 1, 1}, n);
    EXPECT_TRUE(healthOf(cube).healthy());
    EXPECT_NEAR(signedVolume(cube), 1.0, 1e-6);
  }
}

TEST(MeshHealth, CubeMissingAFaceHasExactlyTheRimAsOpenEdges) {
  Soup soup;
  testmesh::addBox(soup, {0, 0, 0}, {1, 1, 1}, false, 2, 1u << 1);
  const voDMA::MeshHealth health = healthOf(soup);
  EXPECT_EQ(health.openEdges, 8u);  // the missing face's rim: 4 sides of 2 segments
  EXPECT_EQ(health.nonManifoldEdges, 0u);
  EXPECT_EQ(health.inconsistentEdges, 0u);
  EXPECT_FALSE(health.healthy());
}

TEST(MeshHealth, CubesSharingAnEdgeAreNonManifold) {
  const voDMA::MeshHealth health = healthOf(cubesSharingAnEdge());
  EXPECT_EQ(health.nonManifoldEdges, 1u);
  EXPECT_EQ(health.openEdges, 0u);
}

TEST(MeshHealth, FlippedTrianglesAreInconsistentlyOriented) {
  Soup cube = testmesh::box();
  std::swap(cube.triangles[1], cube.triangles[2]);
  const voDMA::MeshHealth health = healthOf(cube);
  EXPECT_EQ(health.inconsistentEdges, 3u);
  EXPECT_EQ(health.openEdges, 0u);
}

TEST(MeshHealth, DegenerateAndDuplicateTrianglesAreCounted) {
  Soup cube = testmesh::box();
  cube.triangle(0, 0, 1);  // repeated corner
  const std::uint32_t mid = cube.vertex(0.5f, 0, 0);
  cube.triangle(cube.vertex(0, 0, 0), mid, cube.vertex(1, 0, 0));  // no area
  cube.triangle(cube.triangles[5], cube.triangles[3], cube.triangles[4]);  // the second triangle again
  cube.triangle(7, 8, 9);                                                 // out of range
  const voDMA::MeshHealth health = healthOf(cube);
  EXPECT_EQ(health.degenerateTriangles, 3u);
  EXPECT_EQ(health.duplicateTriangles, 1u);
}

TEST(MeshHealth, RepairClosesAMissingFace) {
  Soup soup;
  testmesh::addBox(soup, {0, 0, 0}, {1, 1, 1}, false, 1, 1u << 3);
  const voDMA::MeshRepairReport report = voDMA::repairMesh(soup.positions, soup.triangles);
  EXPECT_EQ(report.closedHoles, 1u);
  EXPECT_EQ(report.addedTriangles, 2u);
  EXPECT_TRUE(healthOf(soup).healthy());
  EXPECT_NEAR(signedVolume(soup), 1.0, 1e-6);
}

TEST(MeshHealth, RepairSeparatesCubesSharingAnEdge) {
  Soup soup = cubesSharingAnEdge();
  const std::size_t before = soup.numVertices();
  const voDMA::MeshRepairReport report = voDMA::repairMesh(soup.positions, soup.triangles);
  EXPECT_EQ(report.splitVertices, 2u);
  EXPECT_EQ(soup.numVertices(), before + 2);
  EXPECT_TRUE(healthOf(soup).healthy());
  EXPECT_NEAR(signedVolume(soup), 2.0, 1e-6);
}

TEST(MeshHealth, RepairTurnsFlippedTrianglesBack) {
  Soup cube = testmesh::box({0, 0, 0}, {1, 1, 1}, 2);
  for (std::size_t t : {0u, 5u, 17u}) std::swap(cube.triangles[3 * t + 1], cube.triangles[3 * t + 2]);
  const voDMA::MeshRepairReport report = voDMA::repairMesh(cube.positions, cube.triangles);
  EXPECT_EQ(report.flippedTriangles, 3u);
  EXPECT_TRUE(healthOf(cube).healthy());
  EXPECT_NEAR(signedVolume(cube), 1.0, 1e-6);
}

TEST(MeshHealth, RepairTurnsAnInsideOutCubeOutward) {
  Soup soup;
  testmesh::addBox(soup, {0, 0, 0}, {1, 1, 1}, true);
  EXPECT_TRUE(healthOf(soup).healthy());
  EXPECT_NEAR(signedVolume(soup), -1.0, 1e-6);
  voDMA::repairMesh(soup.positions, soup.triangles);
  EXPECT_NEAR(signedVolume(soup), 1.0, 1e-6);
}

TEST(MeshHealth, RepairRemovesDegenerateAndDuplicateTriangles) {
  Soup cube = testmesh::box();
  cube.triangle(0, 0, 1);
  cube.triangle(cube.triangles[2], cube.triangles[0], cube.triangles[1]);
  const voDMA::MeshRepairReport report = voDMA::repairMesh(cube.positions, cube.triangles);
  EXPECT_EQ(report.removedDegenerate, 1u);
  EXPECT_EQ(report.removedDuplicate, 1u);
  EXPECT_EQ(cube.numTriangles(), 12u);
  EXPECT_TRUE(healthOf(cube).healthy());
}

TEST(MeshHealth, RepairLeavesLargeHolesOpen) {
  Soup soup;
  testmesh::addBox(soup, {0, 0, 0}, {1, 1, 1}, false, 8, 1u << 0);  // a rim of 32 edges
  const voDMA::MeshRepairReport report = voDMA::repairMesh(soup.positions, soup.triangles, 16);
  EXPECT_EQ(report.closedHoles, 0u);
  EXPECT_EQ(healthOf(soup).openEdges, 32u);
}

TEST(MeshHealth, EmptyMeshIsHealthy) {
  EXPECT_TRUE(voDMA::analyseMeshHealth(nullptr, 0, nullptr, 0).healthy());
  std::vector<float> p;
  std::vector<std::uint32_t> t;
  const voDMA::MeshRepairReport report = voDMA::repairMesh(p, t);
  EXPECT_EQ(report.addedTriangles, 0u);
}

TEST(MeshHealth, RepairOfASliverOnATJunctionSplitsItsNeighbourAndLeavesNoGap) {
  // A unit cube whose triangle (a, b, c) is cut at the middle m of its side a-b, with the sliver
  // (a, b, m) closing the side: closed and consistent, but with a triangle of no area.
  Soup cube = testmesh::box();
  const std::uint32_t a = cube.triangles[0], b = cube.triangles[1], c = cube.triangles[2];
  const float* A = &cube.positions[3 * a];
  const float* B = &cube.positions[3 * b];
  const std::uint32_t m = cube.vertex((A[0] + B[0]) / 2, (A[1] + B[1]) / 2, (A[2] + B[2]) / 2);
  cube.triangles[0] = a;
  cube.triangles[1] = m;
  cube.triangles[2] = c;
  cube.triangle(m, b, c);
  cube.triangle(a, b, m);
  const voDMA::MeshHealth before = healthOf(cube);
  EXPECT_EQ(before.degenerateTriangles, 1u);
  EXPECT_EQ(before.openEdges, 0u);
  const voDMA::MeshRepairReport report = voDMA::repairMesh(cube.positions, cube.triangles);
  EXPECT_EQ(report.removedDegenerate, 1u);
  EXPECT_EQ(report.closedHoles, 0u);
  EXPECT_TRUE(healthOf(cube).healthy());
  EXPECT_NEAR(signedVolume(cube), 1.0, 1e-6);
}
