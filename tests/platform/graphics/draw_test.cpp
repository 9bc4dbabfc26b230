// The Draw emitter, draw items and the GPU buffer cache.

#include "glscene.h"

#include "platform/geometry/algorithms.h"
#include "platform/geometry/construct.h"
#include "platform/graphics/shader.h"
#include "platform/support/tags.h"

#include <gtest/gtest.h>

using namespace voGR;
using voGR::test::GLScene;
using ruLinear::Point;
using ruLinear::Vector;

namespace {

ru::Reference<ruGeom::CompactMesh> cuboid(const Point& a, const Point& b) {
  ru::Reference<ruGeom::CompactMesh> mesh(new ruGeom::CompactMesh());
  ruGeom::constructCuboid(ruLinear::Range3d(a, b), *mesh);
  return mesh;
}

struct Offset final : Transformer {
  ruLinear::AffineMatrix evaluate() const override { return ruLinear::AffineMatrix::translation(Vector(0, 0, 7)); }
};

}  // namespace

TEST(DrawGLTest, AFreshDrawEmitsItemsWithTheDefaults) {
  GLScene scene;
  int source = 0;
  Draw draw(*scene.context, &source, false);
  ru::Reference<DrawItem> item = draw.emit();
  ASSERT_TRUE(item);
  EXPECT_EQ(item->getSpace(), SpaceWorld);
  EXPECT_EQ(item->getType(), TypeOrdinary);
  EXPECT_EQ(item->getDepthInteraction(), DepthNormal);
  EXPECT_FALSE(item->isActive());
  EXPECT_TRUE(item->isDrawable());
  EXPECT_TRUE(item->isPickable());
  EXPECT_FALSE(item->isSubItem());
  EXPECT_FALSE(item->isOverlay());
  EXPECT_EQ(item->getLabel(), 0);
  EXPECT_TRUE(item->getTransform().isIdentity());
  EXPECT_TRUE(item->getColor() == ruUtil::Color(1, 1, 1, 1));
  EXPECT_FALSE(item->getShader());
  EXPECT_EQ(item->getGeometry(), nullptr);
  EXPECT_FALSE(item->hasImageKey());
  EXPECT_FALSE(item->getTransformer());
  EXPECT_TRUE(item->getTags().empty());
  EXPECT_EQ(item->getSubsystemId(), scene.id);
  EXPECT_EQ(item->getSource(), &source);
  EXPECT_EQ(item->getObjectDrawOwner(), nullptr);
  EXPECT_NE(scene.id, -1);
}

TEST(DrawGLTest, SettersAreStickyAcrossEmits) {
  GLScene scene;
  int source = 0;
  auto* owner = reinterpret_cast<voDMG::ObjectDraw*>(&source);
  scene.system->getDrawData(&source, true)->setObjectDrawOwner(owner);
  ru::Reference<LambertShader> shader(new LambertShader());
  Draw draw(*scene.context, &source, true);
  draw.setDebugString("Mesh");
  draw.setLabel(4);
  draw.setType(2);
  draw.setSpace(1);
  draw.setDepthInteraction(1);
  draw.setDrawable(false);
  draw.setPickable(false);
  draw.setSubItem(true);
  draw.setActive(true);
  draw.setColor(ruUtil::Color8(0xFFA564F0u));
  draw.setShader(shader);
  draw.setMeshWithFlags(cuboid(Point(0, 0, 0), Point(1, 1, 1)), 5);
  draw.setTransformer(new Offset());
  draw.addTag("KLTHoverTag");
  ru::Reference<DrawItem> first = draw.emit();
  ru::Reference<DrawItem> second = draw.emit();
  for (const auto& item : {first, second}) {
    EXPECT_EQ(item->getDebugString(), "Mesh");
    EXPECT_EQ(item->getLabel(), 4);
    EXPECT_EQ(item->getType(), TypeHelper);
    EXPECT_EQ(item->getSpace(), SpaceScreen);
    EXPECT_EQ(item->getDepthInteraction(), DepthXRay);
    EXPECT_FALSE(item->isDrawable());
    EXPECT_FALSE(item->isPickable());
    EXPECT_TRUE(item->isSubItem());
    EXPECT_TRUE(item->isActive());
    EXPECT_TRUE(item->isOverlay());
    EXPECT_EQ(item->getColor().r, 0xF0 / 255.0f);
    EXPECT_EQ(item->getShader().get(), shader.get());
    EXPECT_TRUE(item->isTriangles());
    EXPECT_TRUE(item->contains("KLTHoverTag"));
    EXPECT_EQ(item->getObjectDrawOwner(), owner);
    // A transformer places the item alone.
    EXPECT_DOUBLE_EQ(item->getWorldBoundingBox().getMin().z, 7.0);
  }
  draw.setShader(nullptr);
  EXPECT_FALSE(draw.emit()->getShader());
  EXPECT_EQ(scene.system->getDrawData(&source, false)->getItems().size(), 3u);
  delete scene.system->getDrawData(&source, false);
}

TEST(DrawGLTest, TagsFromTheRegistryMarkItemsAsTheirNamesDo) {
  GLScene scene;
  voSupport::TagRegistry registry;
  const voSupport::Tag* hover = registry.getTag("KLTHoverTag");
  const voSupport::Tag* hoverSelected = registry.getTag("KLTHoverSelectedTag");
  int source = 0;
  Draw draw(*scene.context, &source, false);
  draw.addTag(hover);
  draw.addTag(hover);
  draw.addTag(static_cast<const voSupport::Tag*>(nullptr));
  ru::Reference<DrawItem> tagged = draw.emit();
  EXPECT_TRUE(tagged->contains(hover));
  EXPECT_TRUE(tagged->contains("KLTHoverTag"));
  EXPECT_FALSE(tagged->contains(hoverSelected));
  EXPECT_FALSE(tagged->contains(static_cast<const voSupport::Tag*>(nullptr)));
  EXPECT_EQ(tagged->getTags().size(), 1u);

  // A handle removes what its name added, and the other way round.
  draw.removeTag(hover);
  draw.removeTag(hoverSelected);
  draw.addTag("KLTHoverSelectedTag");
  ru::Reference<DrawItem> retagged = draw.emit();
  EXPECT_FALSE(retagged->contains(hover));
  EXPECT_TRUE(retagged->contains(hoverSelected));
  draw.removeTag(hoverSelected);
  EXPECT_TRUE(draw.emit()->getTags().empty());
}

TEST(DrawGLTest, TheGeometryKindIsFixedWhenTheMeshIsSet) {
  GLScene scene;
  int source = 0;
  auto mesh = cuboid(Point(0, 0, 0), Point(1, 1, 1));
  mesh->addLine(0, 1);
  Draw draw(*scene.context, &source, false);
  draw.setMesh(mesh);
  EXPECT_TRUE(draw.emit()->isTriangles());
  draw.setMesh(mesh, false);
  ru::Reference<DrawItem> lines = draw.emit();
  EXPECT_FALSE(lines->isTriangles());
  EXPECT_FALSE(lines->getGeometry()->isTriangles());
  draw.setMeshWithFlags(mesh, 2);
  EXPECT_FALSE(draw.emit()->isTriangles());
  draw.setMeshWithFlags(mesh, 5);
  EXPECT_TRUE(draw.emit()->isTriangles());
  // Lines only: setMesh draws them as lines.
  ru::Reference<ruGeom::CompactMesh> segment(new ruGeom::CompactMesh());
  ruGeom::constructLineSegment(Point(0, 0, 0), Point(1, 0, 0), *segment);
  draw.setMesh(segment);
  ru::Reference<DrawItem> item = draw.emit();
  EXPECT_FALSE(item->isTriangles());
  // The item holds the mesh itself, not a copy.
  EXPECT_EQ(item->getMesh(), segment.get());
}

TEST(DrawGLTest, TransformStackAndPreMultComposeInLocalSpaceFirst) {
  GLScene scene;
  int source = 0;
  Draw draw(*scene.context, &source, false);
  draw.setTransform(ruLinear::AffineMatrix::translation(Vector(10, 0, 0)));
  draw.pushTransform();
  draw.preMult(ruLinear::AffineMatrix::scaling(2.0));
  // A local point is scaled first, then translated.
  const Point p = Point(1, 0, 0) * draw.getTransform();
  EXPECT_DOUBLE_EQ(p.x, 12.0);
  draw.popTransform();
  EXPECT_DOUBLE_EQ((Point(1, 0, 0) * draw.getTransform()).x, 11.0);
  draw.popTransform();  // nothing pushed: no change
  EXPECT_DOUBLE_EQ((Point(1, 0, 0) * draw.getTransform()).x, 11.0);
}

TEST(DrawGLTest, IdsAreNeverMinusOneAndFreedIdsComeBack) {
  GLScene scene;
  const int a = scene.system->allocateID();
  const int b = scene.system->allocateID();
  EXPECT_NE(a, b);
  EXPECT_NE(a, -1);
  scene.system->freeID(a);
  EXPECT_EQ(scene.system->allocateID(), a);
  // Freeing an id destroys the draw data the system made for an undeclared source drawn under it.
  DrawContext context(scene.system.get(), b);
  int source = 0;
  {
    Draw draw(context, &source, false);
    draw.setMesh(cuboid(Point(0, 0, 0), Point(1, 1, 1)));
    draw.emit();
  }
  EXPECT_NE(scene.system->getDrawData(&source, false), nullptr);
  EXPECT_EQ(scene.worldNode->getWorld()->size(), 1u);
  scene.system->freeID(b);
  EXPECT_EQ(scene.system->getDrawData(&source, false), nullptr);
  EXPECT_EQ(scene.worldNode->getWorld()->size(), 0u);
}

TEST(BufferGLTest, EmittingTheSameMeshOrACopyAHundredTimesUploadsOnce) {
  GLScene scene;
  auto mesh = cuboid(Point(-1, -1, -1), Point(1, 1, 1));
  ru::Reference<LambertShader> shader(new LambertShader());
  int source = 0;
  auto emit = [&](ru::Reference<ruGeom::CompactMesh> which) {
    Draw draw(*scene.context, &source, false);
    draw.setShader(shader);
    draw.setMeshWithFlags(which, 5);
    draw.emit();
  };
  emit(mesh);
  scene.frame("buffers_first");
  const std::int64_t uploads = scene.system->getStatistics().bufferUploads;
  EXPECT_GE(uploads, 2);  // at least vertices and triangles
  for (int i = 0; i < 100; ++i) {
    emit(i % 2 ? mesh : ru::Reference<ruGeom::CompactMesh>(new ruGeom::CompactMesh(*mesh)));
    ASSERT_TRUE(scene.system->draw(scene.target));
  }
  EXPECT_EQ(scene.system->getStatistics().bufferUploads, uploads);
  EXPECT_EQ(scene.system->getStatistics().buffersFreed, 0);

  // Writing the vertices gives them a new identity: uploaded again, the old GPU buffer freed at
  // the next frame; the unchanged triangles stay.
  mesh->editVertices()[0].x -= 0.5f;
  emit(mesh);
  scene.frame("buffers_rewritten");
  const std::int64_t after = scene.system->getStatistics().bufferUploads;
  EXPECT_GT(after, uploads);
  EXPECT_LT(after - uploads, uploads);
  EXPECT_GE(scene.system->getStatistics().buffersFreed, 1);
  for (int i = 0; i < 10; ++i) ASSERT_TRUE(scene.system->draw(scene.target));
  EXPECT_EQ(scene.system->getStatistics().bufferUploads, after);
}

TEST(BufferGLTest, AMeshBufferThatDiesFreesItsGpuBufferAtTheNextFrame) {
  GLScene scene;
  int source = 0;
  {
    Draw draw(*scene.context, &source, false);
    draw.setMesh(cuboid(Point(-1, -1, -1), Point(1, 1, 1)));
    draw.emit();
  }
  scene.frame("buffers_dying");
  EXPECT_EQ(scene.system->getStatistics().buffersFreed, 0);
  {
    Draw emitsNothing(*scene.context, &source, false);  // the mesh's last holder lets go
  }
  ASSERT_TRUE(scene.system->draw(scene.target));
  EXPECT_EQ(scene.system->getStatistics().buffersFreed, scene.system->getStatistics().bufferUploads);
}

TEST(BufferGLTest, UploadPutsAnItemsBuffersOnTheGpuBeforeTheFirstFrame) {
  GLScene scene;
  int source = 0;
  ru::Reference<DrawItem> item;
  {
    Draw draw(*scene.context, &source, false);
    draw.setMesh(cuboid(Point(-1, -1, -1), Point(1, 1, 1)));
    item = draw.emit();
  }
  EXPECT_TRUE(scene.system->upload(*item));
  const std::int64_t uploads = scene.system->getStatistics().bufferUploads;
  EXPECT_GE(uploads, 2);
  EXPECT_TRUE(scene.system->upload(*item));
  scene.frame("uploaded_before_frame");
  EXPECT_EQ(scene.system->getStatistics().bufferUploads, uploads);
  // An item that would draw nothing.
  Draw draw(*scene.context, &source, false);
  EXPECT_FALSE(scene.system->upload(*draw.emit()));
}

TEST(BufferGLTest, RewritingOnlyTheNormalsFreesTheirOldGpuBufferAndKeepsTheOthers) {
  GLScene scene;
  auto mesh = cuboid(Point(-1, -1, -1), Point(1, 1, 1));
  if (!mesh->hasNormals()) {
    ASSERT_TRUE(ruGeom::meshComputeNormals(*mesh));
  }
  ru::Reference<LambertShader> shader(new LambertShader());
  int source = 0;
  auto emit = [&] {
    Draw draw(*scene.context, &source, false);
    draw.setShader(shader);
    draw.setMesh(mesh);
    draw.emit();
  };
  emit();
  scene.frame("buffers_normals_first");
  const DrawStatistics before = scene.system->getStatistics();
  EXPECT_EQ(before.buffersFreed, 0);

  mesh->editNormals()[0] = ruGeom::MeshNormal{0, 0, 1};
  emit();
  scene.frame("buffers_normals_rewritten");
  const DrawStatistics after = scene.system->getStatistics();
  EXPECT_EQ(after.bufferUploads, before.bufferUploads + 1);  // the normals alone
  EXPECT_EQ(after.buffersFreed, 1);                           // their old copy
}
