// A document of three meshes drawn by a DocumentDraw on the standard surface, with a selection set
// connected as a host connects it, through edits, selection, hiding, undo and deletion.

#include "datamodelgui/draw/documentdraw.h"
#include "datamodelgui/draw/objectdraw.h"
#include "datamodelgui/selection/selectionset.h"
#include "surfacefixture.h"

#include <gtest/gtest.h>

#include <vector>

using namespace surfacetest;

namespace {

struct Coverage {
  int count = 0;        // pixels other than the clear colour
  int clearCount = 0;   // pixels of the clear colour
  double x = 0, y = 0;  // mean position of the others
};

Coverage coverage(const ru::Reference<ruImage::Image>& image) {
  Coverage result;
  const auto* bytes = dynamic_cast<const ruImage::TypedImage<ruImage::Byte4>*>(image.get());
  if (!bytes) return result;
  for (int y = 0; y < bytes->ySize(); ++y)
    for (int x = 0; x < bytes->xSize(); ++x) {
      if (rgbNear(bytes->pixel(x, y), ruImage::Byte4{64, 64, 64, 0}, 2)) {
        ++result.clearCount;
        continue;
      }
      ++result.count, result.x += x, result.y += y;
    }
  if (result.count) result.x /= result.count, result.y /= result.count;
  return result;
}

// Opens the batch interface, as a selector does.
class Batch : public voDMG::SelectionSet {
public:
  using SelectionSet::insert;
};

ruLinear::AffineMatrix translation(double x, double y, double z) {
  return ruLinear::AffineMatrix::translation(ruLinear::Vector(x, y, z));
}

class SurfaceEndToEndGLTest : public ::testing::Test, public SurfaceFixture {
protected:
  SurfaceEndToEndGLTest() {
    callInfo.set<voDMG::SelectionSet>(&selection);
    documentDraw = new voDMG::DocumentDraw(&doc.document);
    callInfo.set<voDMG::DocumentDraw>(documentDraw);
    selection.sigMembershipChanged.connect(documentDraw, &voDMG::DocumentDraw::onSelectionModified, client);
  }
  ~SurfaceEndToEndGLTest() override {
    client.disconnectAll();
    documentDraw->destroy();
  }
  std::vector<voGR::DrawItem*> itemsOf(voDMD::Object* object) const {
    std::vector<voGR::DrawItem*> out;
    voDMG::ObjectDraw* draw = documentDraw->getDraw(object);
    voGR::DrawData* data = draw ? draw->getDrawData(draw) : nullptr;
    if (data)
      for (const auto& item : data->getItems()) out.push_back(item.get());
    return out;
  }
  int itemsInWorlds() const {
    int count = 0;
    for (int i = 0; i < surface->getDatabase()->getNumWorlds(); ++i)
      count += static_cast<int>(surface->getDatabase()->getWorld(i)->size());
    return count;
  }
  Coverage shot(const char* name) {
    ru::Reference<ruImage::Image> image = surface->renderFrame(frameParameters(kSize, kSize, false));
    EXPECT_TRUE(image);
    if (image) voGR::test::writeFrame(*dynamic_cast<const ruImage::TypedImage<ruImage::Byte4>*>(image.get()), name);
    return coverage(image);
  }

  voDMG::SelectionSet selection;
  voDMG::DocumentDraw* documentDraw = nullptr;
  ruRTB::SignalClient client;
};

TEST_F(SurfaceEndToEndGLTest, ThreeMeshesThroughEditsSelectionHidingUndoAndDeletion) {
  ASSERT_TRUE(system);
  const ruLinear::Range3d cube(ruLinear::Point(-0.5, -0.5, -0.5), ruLinear::Point(0.5, 0.5, 0.5));
  voDMD::Object* left = doc.addCuboid(cube, translation(-1.5, 0, 0));
  voDMD::Object* middle = doc.addCuboid(cube);
  voDMD::Object* right = doc.addCuboid(cube, translation(1.5, 0, 0));
  documentDraw->draw();
  const Coverage all = shot("surface_e2e_0_three");
  EXPECT_GT(all.count, 3000);
  EXPECT_NEAR(all.x, 127.5, 4.0);
  // Mesh items stand in the triangle and scene worlds.
  ASSERT_EQ(itemsOf(middle).size(), 1u);
  EXPECT_EQ(worldsOf(itemsOf(middle)[0]), "SceneTriW SceneW");

  // Moving one object re-emits it alone, and its pixels move up the screen (rows bottom-up).
  const auto leftItems = itemsOf(left), middleItems = itemsOf(middle), rightItems = itemsOf(right);
  doc.transformOf(middle)->setObjToWorld(translation(0, 1.2, 0));
  documentDraw->draw();
  EXPECT_EQ(itemsOf(left), leftItems);
  EXPECT_EQ(itemsOf(right), rightItems);
  EXPECT_NE(itemsOf(middle), middleItems);
  const Coverage moved = shot("surface_e2e_1_moved");
  EXPECT_GT(moved.y, all.y + 3.0);

  // Selecting it moves its item to "SelectedW" too, and a glow takes background pixels around it.
  Batch batch;
  batch.insert(voDMG::SelectionItem(middle));
  selection.add(batch);
  documentDraw->draw();
  EXPECT_EQ(itemsOf(left), leftItems);
  ASSERT_EQ(itemsOf(middle).size(), 1u);
  EXPECT_EQ(worldsOf(itemsOf(middle)[0]), "SceneTriW SceneW SelectedW");
  const Coverage selected = shot("surface_e2e_2_selected");
  EXPECT_LT(selected.clearCount, moved.clearCount - 200);

  // Hiding it removes its pixels, glow included.
  doc.meshOf(middle)->setVisible(false);
  documentDraw->draw();
  const Coverage hidden = shot("surface_e2e_3_hidden");
  EXPECT_LT(hidden.count, moved.count * 0.8);
  EXPECT_EQ(surface->selectedWorldNode()->getWorld()->size(), 0u);

  // Undo brings everything back.
  ASSERT_TRUE(doc.manager.undo());
  ASSERT_TRUE(doc.manager.undo());
  selection.clear();
  documentDraw->draw();
  const Coverage restored = shot("surface_e2e_4_undone");
  EXPECT_NEAR(restored.count, all.count, all.count * 0.01);
  EXPECT_NEAR(restored.y, all.y, 0.5);

  // Deleting the object removes its items from every world.
  const int before = itemsInWorlds();
  ru::Reference<voDMD::Object> keep(middle);
  ASSERT_TRUE(doc.document.remove(middle));
  EXPECT_EQ(itemsInWorlds(), before - 2);  // it stood in "SceneTriW" and "SceneW"
  documentDraw->draw();
  const Coverage deleted = shot("surface_e2e_5_deleted");
  EXPECT_LT(deleted.count, all.count * 0.8);
}

}  // namespace
