#include "printfixture.h"

#include "platform/datamodel/actions.h"
#include "platform/geometry/mesh.h"
#include "platform/support/debug.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using printtest::cuboid;
using printtest::translation;
using voDMG::KLTMeshDraw;
using voDMG::KLTMeshDrawPolicy;

const ruLinear::Range3d kUnitCube(ruLinear::Point(-0.5, -0.5, -0.5), ruLinear::Point(0.5, 0.5, 0.5));

// A flat sheet of `count` vertices on a grid 256 wide, every vertex used by some triangle.
ru::Reference<ruGeom::CompactMesh> sheet(int count) {
  ru::Reference<ruGeom::CompactMesh> mesh = new ruGeom::CompactMesh();
  const int width = 256;
  for (int i = 0; i < count; ++i) mesh->addVertex(ruLinear::Point(i % width, i / width, 0));
  for (int i = 0; i + width + 1 < count; ++i) {
    if (i % width == width - 1) continue;
    mesh->addTriangle(i, i + 1, i + width);
    mesh->addTriangle(i + 1, i + width + 1, i + width);
  }
  // The last row: fan its leftover vertices onto the row above so each is used.
  for (int i = count - width - 1; i < count - 1; ++i) {
    if (i < 1) continue;
    mesh->addTriangle(i - 1, i, i + 1);
  }
  return mesh;
}

ruUtil::Color colorOf(const voGR::DrawItem* item) {
  if (auto* faceted = dynamic_cast<const voGR::KLTFacetedShader*>(item->getShader().get())) return faceted->color;
  if (auto* thick = dynamic_cast<const voGR::KLTThicknessShader*>(item->getShader().get())) return thick->color;
  return item->getColor();
}

bool same(const ruUtil::Color& a, const ruUtil::Color& b) { return a.r == b.r && a.g == b.g && a.b == b.b && a.a == b.a; }

class KLTMeshDrawGLTest : public ::testing::Test, public printtest::PrintFixture {};

TEST_F(KLTMeshDrawGLTest, RegistrationMakesPrintDrawsAndInstallsThePolicy) {
  voDMD::Object* object = addPrintMesh(cuboid(kUnitCube));
  EXPECT_NE(drawOf(object), nullptr);
  ASSERT_NE(policy(), nullptr);
  EXPECT_FALSE(policy()->getChangeDrawStatesForReport());
  EXPECT_EQ(broadcaster.numHandlers(typeid(voDMG::RegisterObjectDrawMsg)), 1u);
  EXPECT_EQ(broadcaster.numHandlers(typeid(voDMD::NewDocumentMsg)), 1u);
  // A second initialize adds nothing.
  voDMG::initialize();
  EXPECT_EQ(broadcaster.numHandlers(typeid(voDMG::RegisterObjectDrawMsg)), 1u);
}

TEST_F(KLTMeshDrawGLTest, NewDocumentGetsAFreshPolicyWithReportFlagOff) {
  KLTMeshDrawPolicy* before = policy();
  before->setChangeDrawStatesForReport(true);
  voDMD::NewDocumentMsg message(&doc.document);
  broadcaster.broadcast(message);
  ASSERT_NE(policy(), nullptr);
  EXPECT_NE(policy(), before);
  EXPECT_FALSE(policy()->getChangeDrawStatesForReport());
}

TEST_F(KLTMeshDrawGLTest, MeshOneVertexShortOf65535YieldsOnePart) {
  ru::Reference<ruGeom::CompactMesh> mesh = sheet(65534);
  ASSERT_EQ(mesh->getNumVertices(), 65534);
  voDMD::Object* object = addPrintMesh(mesh);
  redraw();
  const auto& parts = drawOf(object)->getParts();
  ASSERT_EQ(parts.size(), 1u);
  // Not analysed: the part is the model's own mesh.
  EXPECT_EQ(parts[0].get(), meshOf(object)->getMesh().get());
  EXPECT_EQ(itemsOf(object).size(), 1u);
}

TEST_F(KLTMeshDrawGLTest, MeshOfExactly65535VerticesGoesThroughMeshSplit) {
  ru::Reference<ruGeom::CompactMesh> mesh = sheet(65535);
  voDMD::Object* object = addPrintMesh(mesh);
  redraw();
  const auto& parts = drawOf(object)->getParts();
  // The split keeps all 65535 vertices in one part (its limit is inclusive): the part is the
  // split's own copy, not the model's mesh.
  ASSERT_EQ(parts.size(), 1u);
  EXPECT_NE(parts[0].get(), meshOf(object)->getMesh().get());
  EXPECT_EQ(parts[0]->getNumVertices(), 65535);
  EXPECT_EQ(parts[0]->getNumTriangles(), mesh->getNumTriangles());
  EXPECT_EQ(itemsOf(object).size(), parts.size());
}

TEST_F(KLTMeshDrawGLTest, ThicknessAvailableOnlyReadOnceAModificationEmptiedTheParts) {
  voDMD::Object* object = addPrintMesh(cuboid(kUnitCube));
  redraw();
  ASSERT_EQ(drawOf(object)->getParts().size(), 1u);
  EXPECT_FALSE(drawOf(object)->getParts()[0]->getAttributes("thickness").valid());
  doc.manager.begin("analyse");
  ASSERT_TRUE(meshOf(object)->analyseThickness());
  // The analysis announced itself: the parts are dropped, and not rebuilt before the next draw.
  EXPECT_TRUE(drawOf(object)->getParts().empty());
  doc.manager.commit();
  EXPECT_TRUE(drawOf(object)->getParts().empty());
  documentDraw->draw();
  ASSERT_EQ(drawOf(object)->getParts().size(), 1u);
  const auto& part = drawOf(object)->getParts()[0];
  EXPECT_NE(part.get(), meshOf(object)->getMesh().get());
  ruGeom::MeshAttributes values = part->getAttributes("thickness");
  ASSERT_TRUE(values.valid());
  EXPECT_EQ(values.getWidth(), 1);
  // The model's mesh stays without the attribute.
  EXPECT_FALSE(meshOf(object)->getMesh()->getAttributes("thickness").valid());
}

TEST_F(KLTMeshDrawGLTest, OtherAttributeModificationKeepsPartsButTransactionEndEmptiesThem) {
  voDMD::Object* object = addPrintMesh(cuboid(kUnitCube));
  redraw();
  const ruGeom::CompactMesh* first = drawOf(object)->getParts()[0].get();
  doc.manager.begin("move");
  object->findAttribute<voDMD::Transform>()->setObjToWorld(translation(1, 0, 0));
  ASSERT_EQ(drawOf(object)->getParts().size(), 1u);
  EXPECT_EQ(drawOf(object)->getParts()[0].get(), first);
  doc.manager.commit();
  EXPECT_TRUE(drawOf(object)->getParts().empty());
  documentDraw->draw();
  EXPECT_EQ(drawOf(object)->getParts().size(), 1u);
  // The transform is applied at the draw.
  ASSERT_EQ(itemsOf(object).size(), 1u);
  EXPECT_EQ(itemsOf(object)[0]->getTransform().getTranslation(), ruLinear::Vector(1, 0, 0));
}

// Two triangles sharing vertex 0; `first` and `second` are vertex 0's corner values in them.
std::vector<float> sharedVertex(float first, float second, bool swapTriangles) {
  ruGeom::CompactMesh mesh;
  for (int i = 0; i < 5; ++i) mesh.addVertex(ruLinear::Point(i, i * i, 0));
  mesh.addTriangle(0, 1, 2);
  mesh.addTriangle(0, 3, 4);
  std::vector<float> corners = {first, 9, 9, second, 9, 9};
  if (swapTriangles) corners = {second, 9, 9, first, 9, 9};
  std::vector<float> values(5, 0.0f);
  voDMG::fillVertexThickness(mesh, corners.data(), corners.size(), values.data());
  return values;
}

TEST(KLTMeshDrawThickness, VertexSharedByCornersThreeAndTwoGetsTwoInEitherOrder) {
  EXPECT_EQ(sharedVertex(3.0f, 2.0f, false)[0], 2.0f);
  EXPECT_EQ(sharedVertex(3.0f, 2.0f, true)[0], 2.0f);
  EXPECT_EQ(sharedVertex(3.0f, 2.0f, false)[1], 9.0f);
}

TEST(KLTMeshDrawThickness, CornersMinusOneThenTwoGiveTwoWhileTwoThenMinusOneGiveMinusOne) {
  EXPECT_EQ(sharedVertex(-1.0f, 2.0f, false)[0], 2.0f);
  EXPECT_EQ(sharedVertex(2.0f, -1.0f, false)[0], -1.0f);
}

TEST_F(KLTMeshDrawGLTest, ShouldDrawFalseEmitsNothingAndDoesNotComputeMeshes) {
  voDMD::Object* object = addPrintMesh(cuboid(kUnitCube));
  doc.manager.begin("hide");
  meshOf(object)->setVisible(false);
  doc.manager.commit();
  redraw();
  EXPECT_TRUE(itemsOf(object).empty());
  EXPECT_TRUE(drawOf(object)->getParts().empty());
}

// Counts the calls of the extension point.
class CountingMeshDraw : public KLTMeshDraw {
public:
  using KLTMeshDraw::KLTMeshDraw;
  int extraCalls = 0;

protected:
  void drawExtra(voGR::Draw& draw, voDMG::SelectionIterator a, voDMG::SelectionIterator b, voDMG::SelectionIterator c,
                 voDMG::SelectionIterator d, ru::Reference<voGR::DrawPolicy> drawPolicy) override {
    ++extraCalls;
    KLTMeshDraw::drawExtra(draw, a, b, c, d, drawPolicy);
  }
};

TEST_F(KLTMeshDrawGLTest, DrawExtraIsNeverReachedFromOnDraw) {
  voDMD::Object* object = addPrintMesh(cuboid(kUnitCube));
  documentDraw->update();
  auto* counting = new CountingMeshDraw(documentDraw, meshOf(object));
  documentDraw->setDraw(object, counting);
  documentDraw->setDrawPolicy(typeid(CountingMeshDraw), new KLTMeshDrawPolicy());
  select(object);
  hover(object);
  redraw();
  EXPECT_EQ(itemsOf(object).size(), 1u);
  EXPECT_EQ(counting->extraCalls, 0);
}

TEST_F(KLTMeshDrawGLTest, SettingsAreReadAtEachDraw) {
  addPrinter(ruLinear::Range3d(ruLinear::Point(-10, -10, 0), ruLinear::Point(10, 10, 20)),
             ruLinear::Range3d(ruLinear::Point(-12, -12, 0), ruLinear::Point(12, 12, 22)));
  voDMD::Object* object = addPrintMesh(cuboid(kUnitCube), translation(10, 0, 5));
  redraw();
  ASSERT_TRUE(meshOf(object)->isOutOfBounds());
  EXPECT_TRUE(same(colorOf(itemsOf(object)[0]), KLTMeshDrawPolicy::outOfBoundsColors[0]));
  setShowOutOfBounds(false);
  redraw();
  EXPECT_TRUE(same(colorOf(itemsOf(object)[0]), KLTMeshDrawPolicy::baseColors[0]));
}

TEST_F(KLTMeshDrawGLTest, MeshWithoutTrianglesDrawsNothingAndSaysSo) {
  std::vector<std::string> lines;
  voSupport::Debug::getInstance().setEnabled(voSupport::DebugHitTest, true);
  voSupport::Debug::getInstance().setSink([&](int, const char*, const char* text) { lines.emplace_back(text); });
  ru::Reference<ruGeom::CompactMesh> empty = new ruGeom::CompactMesh();
  voDMD::Object* object = addPrintMesh(empty);
  redraw();
  voSupport::Debug::getInstance().setSink(nullptr);
  voSupport::Debug::getInstance().setEnabled(voSupport::DebugHitTest, false);
  EXPECT_TRUE(itemsOf(object).empty());
  bool said = false;
  for (const auto& line : lines) said = said || line.find("print mesh without triangles: nothing to draw") != std::string::npos;
  EXPECT_TRUE(said);
}

}  // namespace
