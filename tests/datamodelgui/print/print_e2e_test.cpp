// End to end on the real off-screen context: a printer and print meshes whose analyses the data
// model computes, drawn by the registered print draws and checked by the colours of pixels.
#include "printfixture.h"

#include "platform/datamodel/actions.h"
#include "platform/geometry/mesh.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

using printtest::cuboid;
using printtest::translation;
using voDMG::KLTMeshDrawPolicy;
using voDMG::KLTPrinterDraw;
using Image = ruImage::TypedImage<ruImage::Byte4>;

ruImage::Byte4 bytes(const ruUtil::Color& color) {
  auto byte = [](float v) { return static_cast<std::uint8_t>(std::lround(std::clamp(v, 0.0f, 1.0f) * 255.0f)); };
  return ruImage::Byte4{byte(color.r), byte(color.g), byte(color.b), 255};
}

// Pixels near `color`, over the columns [x0, x1).
int count(const Image& image, const ruUtil::Color& color, int tolerance, int x0 = 0, int x1 = voGR::test::kSize) {
  const auto* pixels = reinterpret_cast<const ruImage::Byte4*>(image.bytes());
  const ruImage::Byte4 wanted = bytes(color);
  int n = 0;
  for (int y = 0; y < image.ySize(); ++y)
    for (int x = x0; x < x1; ++x) n += voGR::test::near(pixels[y * image.xSize() + x], wanted, tolerance) ? 1 : 0;
  return n;
}

class PrintViewGLTest : public ::testing::Test, public printtest::PrintFixture {
protected:
  PrintViewGLTest() {
    // Looking straight down on the bed: world X to the right, Y up the image.
    scene.setCamera(voGR::test::GLScene::camera(ruLinear::Point(0, 0, 40), ruLinear::Point(0, 0, 0), ruLinear::Vector(0, 1, 0)));
    printer = addPrinter(ruLinear::Range3d(ruLinear::Point(-10, -10, 0), ruLinear::Point(10, 10, 20)),
                         ruLinear::Range3d(ruLinear::Point(-11, -11, 0), ruLinear::Point(11, 11, 21)));
  }
  voDMD::Object* printer = nullptr;
};

TEST_F(PrintViewGLTest, MeshMovedPartlyOffTheBedTurnsOutOfBoundsAndItsBarsRedUntilUndone) {
  voDMD::Object* mesh = addPrintMesh(cuboid(ruLinear::Range3d(ruLinear::Point(-2, -2, 0), ruLinear::Point(2, 2, 4))));
  documentDraw->draw();
  Image before = scene.frame("print_oob_before");
  EXPECT_GT(count(before, KLTMeshDrawPolicy::baseColors[0], 6), 500);
  EXPECT_EQ(count(before, KLTMeshDrawPolicy::outOfBoundsColors[0], 6), 0);
  EXPECT_EQ(count(before, KLTPrinterDraw::kOversteppedColor, 4), 0);

  doc.manager.begin("move");
  mesh->findAttribute<voDMD::Transform>()->setObjToWorld(translation(9, 0, 0));
  doc.manager.commit();
  ASSERT_TRUE(meshOf(mesh)->isOutOfBounds());
  documentDraw->draw();
  Image moved = scene.frame("print_oob_moved");
  EXPECT_GT(count(moved, KLTMeshDrawPolicy::outOfBoundsColors[0], 6), 500);
  EXPECT_EQ(count(moved, KLTMeshDrawPolicy::baseColors[0], 6), 0);
  // The +X bars, right of the bed's middle, turn red; none left of it.
  EXPECT_GT(count(moved, KLTPrinterDraw::kOversteppedColor, 4, 128, 256), 20);
  EXPECT_EQ(count(moved, KLTPrinterDraw::kOversteppedColor, 4, 0, 128), 0);

  doc.manager.undo();
  ASSERT_FALSE(meshOf(mesh)->isOutOfBounds());
  documentDraw->draw();
  Image undone = scene.frame("print_oob_undone");
  EXPECT_GT(count(undone, KLTMeshDrawPolicy::baseColors[0], 6), 500);
  EXPECT_EQ(count(undone, KLTMeshDrawPolicy::outOfBoundsColors[0], 6), 0);
  EXPECT_EQ(count(undone, KLTPrinterDraw::kOversteppedColor, 4), 0);
}

// A thick cube left of the bed's middle and, in the same mesh, a 0.2-thick plate right of it.
ru::Reference<ruGeom::CompactMesh> cubeAndPlate(bool openPlate) {
  ru::Reference<ruGeom::CompactMesh> mesh = new ruGeom::CompactMesh();
  ruGeom::constructCuboid(ruLinear::Range3d(ruLinear::Point(-6, -3, 0), ruLinear::Point(-1, 3, 5)), *mesh);
  ruGeom::CompactMesh plate;
  ruGeom::constructCuboid(ruLinear::Range3d(ruLinear::Point(1, -3, 0), ruLinear::Point(6, 3, 0.2)), plate);
  const int base = mesh->getNumVertices();
  for (int i = 0; i < plate.getNumVertices(); ++i) mesh->addVertex(plate.getVertices()[i]);
  // Leaving out the plate's first two triangles opens its edges.
  for (int t = openPlate ? 2 : 0; t < plate.getNumTriangles(); ++t) {
    const std::uint32_t* tri = plate.getTriangles() + 3 * t;
    mesh->addTriangle(tri[0] + base, tri[1] + base, tri[2] + base);
  }
  return mesh;
}

TEST_F(PrintViewGLTest, ThinWallShowsTheThinColourWhereTheAnalysisSaysAndNowhereElse) {
  voDMD::Object* mesh = addPrintMesh(cubeAndPlate(false));
  ASSERT_FALSE(meshOf(mesh)->needsRepair());
  documentDraw->draw();
  Image unanalysed = scene.frame("print_thin_unanalysed");
  EXPECT_EQ(count(unanalysed, KLTMeshDrawPolicy::thinColors[0], 10), 0);

  doc.manager.begin("analyse");
  ASSERT_TRUE(meshOf(mesh)->analyseThickness());
  doc.manager.commit();
  ASSERT_FALSE(voDMA::isPartThick(meshOf(mesh)));
  documentDraw->draw();
  Image analysed = scene.frame("print_thin_analysed");
  EXPECT_GT(count(analysed, KLTMeshDrawPolicy::thinColors[0], 10, 128, 256), 500);
  EXPECT_EQ(count(analysed, KLTMeshDrawPolicy::thinColors[0], 10, 0, 128), 0);
  EXPECT_GT(count(analysed, KLTMeshDrawPolicy::baseColors[0], 6, 0, 128), 500);
}

TEST_F(PrintViewGLTest, OpenMeshShowsTheNeedsRepairLookAndAfterRepairTheRepairedLook) {
  ru::Reference<ruGeom::CompactMesh> open = cuboid(ruLinear::Range3d(ruLinear::Point(-3, -3, 0), ruLinear::Point(3, 3, 3)));
  open->setNumTriangles(open->getNumTriangles() - 2);  // one side left open
  voDMD::Object* mesh = addPrintMesh(open);
  ASSERT_TRUE(meshOf(mesh)->needsRepair());
  ASSERT_FALSE(meshOf(mesh)->isRepaired());
  documentDraw->draw();
  Image broken = scene.frame("print_needs_repair");
  EXPECT_GT(count(broken, KLTMeshDrawPolicy::needsRepairColors[0], 6), 500);
  EXPECT_EQ(count(broken, KLTMeshDrawPolicy::baseColors[0], 6), 0);

  doc.manager.begin("repair");
  ASSERT_TRUE(meshOf(mesh)->repair());
  doc.manager.commit();
  ASSERT_TRUE(meshOf(mesh)->isRepaired());
  documentDraw->draw();
  Image repaired = scene.frame("print_repaired");
  EXPECT_GT(count(repaired, KLTMeshDrawPolicy::repairedColors[0], 6), 500);
  EXPECT_EQ(count(repaired, KLTMeshDrawPolicy::baseColors[0], 6), 0);
}

}  // namespace
