#include "platform/geometry/mesh.h"

#include "testmeshes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <type_traits>
#include <vector>
#include <utility>

using namespace ruGeom;
using ruLinear::Point;

TEST(CompactMesh, ANewMeshIsEmpty) {
  CompactMesh mesh;
  EXPECT_EQ(mesh.getNumVertices(), 0);
  EXPECT_EQ(mesh.getNumTriangles(), 0);
  EXPECT_EQ(mesh.getVertices(), nullptr);
  EXPECT_EQ(mesh.getTriangles(), nullptr);
  EXPECT_FALSE(mesh.hasNormals());
  EXPECT_FALSE(mesh.hasStrips());
  EXPECT_FALSE(mesh.hasTextureCoordinates());
  EXPECT_FALSE(mesh.hasColors());
  EXPECT_FALSE(mesh.getBoundingBox().valid());
  EXPECT_EQ(mesh.getVertexBufferId(), 0u);
}

TEST(CompactMesh, IsAReferenceCountedPointMesh) {
  ru::Reference<CompactMesh> mesh(new CompactMesh());
  ru::Reference<PointMesh> asPoints = mesh;
  EXPECT_EQ(mesh->refCount(), 2);
  mesh->addVertex(Point(1, 2, 3));
  EXPECT_EQ(asPoints->getNumVertices(), 1);
  EXPECT_EQ(asPoints->getVertices()[0].asPoint(), Point(1, 2, 3));
}

TEST(CompactMesh, TrianglesAreThreeIndicesEachInOrder) {
  CompactMesh mesh;
  for (int i = 0; i < 4; ++i) mesh.addVertex(Point(i, 0, 0));
  EXPECT_EQ(mesh.addTriangle(0, 1, 2), 0);
  EXPECT_EQ(mesh.addTriangle(1, 3, 2), 1);
  ASSERT_EQ(mesh.getNumTriangles(), 2);
  const std::uint32_t expected[] = {0, 1, 2, 1, 3, 2};
  for (int i = 0; i < 6; ++i) EXPECT_EQ(mesh.getTriangles()[i], expected[i]);
}

TEST(CompactMesh, ACopySharesEveryBufferUntilWritten) {
  CompactMesh mesh = ruGeomTest::makeSphere(6, 8);
  mesh.editNormals();
  mesh.allocAttributes("thickness", 1);
  const CompactMesh copy = mesh;
  EXPECT_EQ(copy.getVertices(), mesh.getVertices());
  EXPECT_EQ(copy.getTriangles(), mesh.getTriangles());
  EXPECT_EQ(copy.getNormals(), mesh.getNormals());
  EXPECT_EQ(copy.getVertexBufferId(), mesh.getVertexBufferId());
  EXPECT_EQ(copy.getTriangleBufferId(), mesh.getTriangleBufferId());
  EXPECT_EQ(copy.getAttributes("thickness").asFloat(), mesh.getAttributes("thickness").asFloat());
}

TEST(CompactMesh, WritingOneSideLeavesTheOtherIntactAndDetachesOnlyThatBuffer) {
  CompactMesh mesh = ruGeomTest::makeGrid(3, 3);
  CompactMesh copy;
  copy = mesh;
  const MeshVertex before = mesh.getVertices()[0];
  const BufferId vertexId = mesh.getVertexBufferId();
  copy.editVertices()[0] = MeshVertex(9, 9, 9);
  EXPECT_EQ(mesh.getVertices()[0], before);
  EXPECT_EQ(copy.getVertices()[0], MeshVertex(9, 9, 9));
  EXPECT_NE(copy.getVertices(), mesh.getVertices());
  EXPECT_EQ(mesh.getVertexBufferId(), vertexId);
  EXPECT_NE(copy.getVertexBufferId(), vertexId);
  // The triangles were not written: still shared.
  EXPECT_EQ(copy.getTriangles(), mesh.getTriangles());
  EXPECT_EQ(copy.getTriangleBufferId(), mesh.getTriangleBufferId());
}

TEST(CompactMesh, WritingAnUnsharedBufferGivesItANewIdentity) {
  CompactMesh mesh = ruGeomTest::makeGrid(2, 2);
  const BufferId id = mesh.getTriangleBufferId();
  const std::uint32_t* data = mesh.getTriangles();
  mesh.editTriangles()[0] = 1;
  EXPECT_EQ(mesh.getTriangles(), data);  // written in place
  EXPECT_NE(mesh.getTriangleBufferId(), id);
}

TEST(CompactMesh, IdentitiesAreNeverReused) {
  BufferId previous = 0;
  for (int i = 0; i < 5; ++i) {
    CompactMesh mesh;
    mesh.addVertex(Point());
    EXPECT_GT(mesh.getVertexBufferId(), previous);
    previous = mesh.getVertexBufferId();
  }
}

TEST(CompactMesh, AttributesCopyWithTheMeshAndDetachOnWrite) {
  CompactMesh mesh = ruGeomTest::makeGrid(2, 2);
  const WritableMeshAttributes thickness = mesh.allocAttributes("thickness", 1);
  ASSERT_TRUE(thickness.valid());
  EXPECT_EQ(thickness.getWidth(), 1);
  EXPECT_EQ(thickness.getNumVertices(), mesh.getNumVertices());
  for (int i = 0; i < mesh.getNumVertices(); ++i) EXPECT_EQ(thickness.asFloat()[i], 0.0f);
  thickness.editFloat()[3] = 2.5f;
  CompactMesh copy = mesh;
  const WritableMeshAttributes written = copy.editAttributes("thickness");
  ASSERT_TRUE(written.isWritable());
  written.editFloat()[3] = 7.0f;
  EXPECT_EQ(mesh.getAttributes("thickness").asFloat()[3], 2.5f);
  EXPECT_EQ(copy.getAttributes("thickness").asFloat()[3], 7.0f);
  EXPECT_EQ(copy.getVertices(), mesh.getVertices());
}

TEST(CompactMesh, ReadingAnAttributeOfAMutableMeshCopiesNothingAndKeepsItsIdentity) {
  CompactMesh mesh = ruGeomTest::makeGrid(2, 2);
  mesh.allocAttributes("thickness", 1).editFloat()[1] = 3.0f;
  // A copy per redraw, read through a non-const mesh: still the same floats and identity.
  CompactMesh copy = mesh;
  const BufferId id = mesh.getAttributeBufferId("thickness");
  const MeshAttributes read = copy.getAttributes("thickness");
  EXPECT_FALSE(read.isWritable());
  EXPECT_EQ(read.asFloat(), mesh.getAttributes("thickness").asFloat());
  EXPECT_EQ(read.asFloat()[1], 3.0f);
  EXPECT_EQ(copy.getAttributeBufferId("thickness"), id);
  EXPECT_EQ(mesh.getAttributeBufferId("thickness"), id);
}

TEST(CompactMesh, ReadOnlyAttributeViewsGiveConstFloats) {
  static_assert(std::is_same_v<decltype(std::declval<const MeshAttributes&>().asFloat()), const float*>);
  static_assert(std::is_same_v<decltype(std::declval<const WritableMeshAttributes&>().editFloat()), float*>);
  static_assert(std::is_same_v<decltype(std::declval<CompactMesh&>().getAttributes("a")), MeshAttributes>);
  CompactMesh mesh = ruGeomTest::makeGrid(1, 1);
  mesh.allocAttributes("a", 1);
  EXPECT_FALSE(mesh.getAttributes("a").isWritable());
  EXPECT_TRUE(mesh.editAttributes("a").isWritable());
}

TEST(CompactMesh, AWriteThroughEditAttributesAfterCopyingLeavesTheCopyIntact) {
  CompactMesh mesh = ruGeomTest::makeGrid(2, 2);
  const WritableMeshAttributes before = mesh.allocAttributes("thickness", 1);
  before.editFloat()[0] = 1.0f;
  const CompactMesh copy = mesh;
  // Copying invalidated `before` (it now points into the floats the copy shares): take a new view.
  const BufferId id = copy.getAttributeBufferId("thickness");
  const WritableMeshAttributes after = mesh.editAttributes("thickness");
  after.editFloat()[0] = 5.0f;
  EXPECT_NE(after.editFloat(), before.editFloat());
  EXPECT_EQ(copy.getAttributes("thickness").asFloat()[0], 1.0f);
  EXPECT_EQ(copy.getAttributeBufferId("thickness"), id);
  EXPECT_EQ(mesh.getAttributes("thickness").asFloat()[0], 5.0f);
  EXPECT_NE(mesh.getAttributeBufferId("thickness"), id);
}

TEST(CompactMesh, AttributesOfSeveralFloatsAVertex) {
  CompactMesh mesh = ruGeomTest::makeGrid(1, 1);
  const WritableMeshAttributes rgb = mesh.allocAttributes("rgb", 3);
  ASSERT_TRUE(rgb.valid());
  rgb.editFloat()[3 * 2 + 1] = 0.5f;
  const CompactMesh& constant = mesh;
  const MeshAttributes read = constant.getAttributes("rgb");
  EXPECT_FALSE(read.isWritable());
  EXPECT_EQ(read.getWidth(), 3);
  EXPECT_EQ(read.asFloat()[7], 0.5f);
  EXPECT_TRUE(mesh.hasAttributes("rgb"));
  EXPECT_EQ(mesh.getNumAttributes(), 1);
  EXPECT_EQ(mesh.getAttributeEntry(0).name, "rgb");
}

TEST(CompactMesh, MissingAttributesAreInvalid) {
  CompactMesh mesh = ruGeomTest::makeGrid(1, 1);
  EXPECT_FALSE(mesh.getAttributes("none").valid());
  EXPECT_EQ(mesh.getAttributes("none").asFloat(), nullptr);
  EXPECT_FALSE(mesh.editAttributes("none").valid());
  EXPECT_EQ(mesh.editAttributes("none").editFloat(), nullptr);
  EXPECT_FALSE(mesh.allocAttributes("bad", 0).valid());
  EXPECT_FALSE(mesh.allocAttributes("", 1).valid());
  EXPECT_FALSE(mesh.removeAttributes("none"));
}

TEST(CompactMesh, AttributesFollowTheVertexCount) {
  CompactMesh mesh;
  mesh.addVertex(Point());
  mesh.allocAttributes("a", 2).editFloat()[1] = 4;
  mesh.editColors();
  mesh.addVertex(Point(1, 0, 0));
  const CompactMesh& constant = mesh;
  EXPECT_EQ(constant.getAttributes("a").getNumVertices(), 2);
  EXPECT_EQ(constant.getAttributes("a").asFloat()[1], 4);
  EXPECT_EQ(constant.getAttributes("a").asFloat()[3], 0);
  EXPECT_EQ(constant.getColors()[1].a, 1.0f);
  EXPECT_TRUE(mesh.removeAttributes("a"));
  EXPECT_FALSE(mesh.hasAttributes("a"));
}

TEST(CompactMesh, ShareVerticesCopiesNoPositions) {
  const CompactMesh mesh = ruGeomTest::makeGrid(2, 2);
  CompactMesh lines;
  lines.shareVertices(mesh);
  lines.addLine(0, 1);
  EXPECT_EQ(lines.getVertices(), mesh.getVertices());
  EXPECT_EQ(lines.getNumVertices(), mesh.getNumVertices());
  EXPECT_EQ(lines.getNumTriangles(), 0);
  EXPECT_EQ(lines.getNumLines(), 1);
}

TEST(CompactMesh, LineArrayResizesAndTakesPairs) {
  CompactMesh mesh = ruGeomTest::makeGrid(1, 1);
  mesh.setNumLines(3 * mesh.getNumTriangles());
  std::uint32_t* lines = mesh.editLines();
  for (int t = 0; t < mesh.getNumTriangles(); ++t) {
    const std::uint32_t* tri = mesh.getTriangles() + 3 * t;
    for (int e = 0; e < 3; ++e) {
      lines[6 * t + 2 * e] = tri[e];
      lines[6 * t + 2 * e + 1] = tri[(e + 1) % 3];
    }
  }
  EXPECT_EQ(mesh.getNumLines(), 6);
  EXPECT_EQ(mesh.getLines()[2], mesh.getTriangles()[1]);
}

TEST(CompactMesh, SetStripsRejectsMismatchedSizes) {
  CompactMesh mesh = ruGeomTest::makeGrid(1, 1);
  const std::uint32_t indices[] = {0, 1, 3, 2};
  const std::uint32_t lengths[] = {4};
  const std::uint32_t triangles[] = {0, 1};
  EXPECT_FALSE(mesh.setStrips(indices, 3, lengths, 1, triangles));
  EXPECT_FALSE(mesh.hasStrips());
  const std::uint32_t tooShort[] = {2};
  EXPECT_FALSE(mesh.setStrips(indices, 2, tooShort, 1, triangles));
  EXPECT_TRUE(mesh.setStrips(indices, 4, lengths, 1, triangles));
  EXPECT_TRUE(mesh.hasStrips());
  EXPECT_EQ(mesh.getStripLength(0), 4u);
}

TEST(CompactMesh, BoundingBoxHoldsEveryVertex) {
  const CompactMesh mesh = ruGeomTest::makeSphere(8, 8, 2.0, Point(1, 1, 1));
  const BoundingBox box = mesh.getBoundingBox();
  ASSERT_TRUE(box.valid());
  EXPECT_NEAR(box.getMin().z, -1, 1e-6);
  EXPECT_NEAR(box.getMax().z, 3, 1e-6);
}

TEST(CompactMesh, ClearReleasesEverything) {
  CompactMesh mesh = ruGeomTest::makeGrid(2, 2);
  mesh.allocAttributes("x", 1);
  mesh.clear();
  EXPECT_EQ(mesh.getNumVertices(), 0);
  EXPECT_EQ(mesh.getNumTriangles(), 0);
  EXPECT_EQ(mesh.getNumAttributes(), 0);
}

TEST(CompactMesh, NegativeCountsCountAsZero) {
  CompactMesh mesh = ruGeomTest::makeGrid(2, 2);
  mesh.setNumTriangles(-1);
  mesh.setNumVertices(-4);
  EXPECT_EQ(mesh.getNumTriangles(), 0);
  EXPECT_EQ(mesh.getNumVertices(), 0);
}

namespace {

// A stand-in for any cache keyed by buffer identity: it records the identities it hears of.
struct ReleaseRecorder {
  std::vector<BufferId> heard;
  std::uint64_t token = 0;
  ReleaseRecorder() {
    token = subscribeBufferRelease([this](BufferId id) { heard.push_back(id); });
  }
  ~ReleaseRecorder() { unsubscribeBufferRelease(token); }
  bool heardOf(BufferId id) const { return std::find(heard.begin(), heard.end(), id) != heard.end(); }
};

}  // namespace

TEST(BufferRelease, EveryCacheSubscribedHearsAMarkedBufferDie) {
  ReleaseRecorder first;
  ReleaseRecorder second;
  BufferId id = 0;
  {
    CompactMesh mesh;
    mesh.addVertex(Point(0, 0, 0));
    mesh.vertexBuffer().storage()->markCached();
    id = mesh.getVertexBufferId();
    EXPECT_FALSE(first.heardOf(id));
  }
  EXPECT_TRUE(first.heardOf(id));
  EXPECT_TRUE(second.heardOf(id));
}

TEST(BufferRelease, WritingAMarkedBufferAnnouncesItsOldIdentityOnce) {
  ReleaseRecorder first;
  ReleaseRecorder second;
  CompactMesh mesh;
  mesh.addVertex(Point(0, 0, 0));
  mesh.vertexBuffer().storage()->markCached();
  const BufferId old = mesh.getVertexBufferId();
  mesh.addVertex(Point(1, 0, 0));
  EXPECT_NE(mesh.getVertexBufferId(), old);
  EXPECT_EQ(std::count(first.heard.begin(), first.heard.end(), old), 1);
  EXPECT_EQ(std::count(second.heard.begin(), second.heard.end(), old), 1);
  // The new identity is not marked until a cache marks it again, so releasing it says nothing.
  const BufferId fresh = mesh.getVertexBufferId();
  mesh.clear();
  EXPECT_FALSE(first.heardOf(fresh));
}

TEST(BufferRelease, ASharedBufferIsAnnouncedWhenItsLastCopyLetsGo) {
  ReleaseRecorder recorder;
  CompactMesh mesh;
  mesh.addVertex(Point(0, 0, 0));
  const BufferId plain = mesh.getVertexBufferId();
  {
    CompactMesh copy = mesh;
    copy.vertexBuffer().storage()->markCached();
  }
  EXPECT_TRUE(recorder.heard.empty());  // the mesh still holds the storage
  mesh.clear();
  EXPECT_TRUE(recorder.heardOf(plain));
}

TEST(BufferRelease, AnUnsubscribedListenerHearsNothingMore) {
  std::vector<BufferId> heard;
  const std::uint64_t token = subscribeBufferRelease([&heard](BufferId id) { heard.push_back(id); });
  EXPECT_NE(token, 0u);
  unsubscribeBufferRelease(token);
  {
    CompactMesh mesh;
    mesh.addVertex(Point(0, 0, 0));
    mesh.vertexBuffer().storage()->markCached();
  }
  EXPECT_TRUE(heard.empty());
  EXPECT_EQ(subscribeBufferRelease({}), 0u);
  unsubscribeBufferRelease(0);
  unsubscribeBufferRelease(token);  // twice is harmless
}

TEST(CompactMesh, TheBoxIsWorkedOutOnceForCopiesAndAgainAfterAWrite) {
  CompactMesh mesh;
  mesh.addVertex(Point(0, 0, 0));
  mesh.addVertex(Point(1, 2, 3));
  const CompactMesh copy = mesh;
  EXPECT_EQ(mesh.getBoundingBox().getMax(), Point(1, 2, 3));
  EXPECT_EQ(copy.getBoundingBox().getMax(), Point(1, 2, 3));  // the shared storage's box
  mesh.editVertices()[1] = ruGeom::MeshVertex(Point(-4, 5, 6));
  EXPECT_EQ(mesh.getBoundingBox().getMin(), Point(-4, 0, 0));
  EXPECT_EQ(mesh.getBoundingBox().getMax(), Point(0, 5, 6));
  EXPECT_EQ(copy.getBoundingBox().getMax(), Point(1, 2, 3));  // the copy kept its contents
  mesh.addVertex(Point(9, 9, 9));  // written in place: no other copy shares it now
  EXPECT_EQ(mesh.getBoundingBox().getMax(), Point(9, 9, 9));
}
