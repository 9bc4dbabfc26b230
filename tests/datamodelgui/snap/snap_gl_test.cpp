// Snap hints and marks drawn on the real off-screen context: the manager's draw of the items'
// hints, and a result's mark, rendered through the document surface and read back.

#include "datamodelgui/snap/snapitems.h"
#include "datamodelgui/snap/snapmanager.h"
#include "tests/datamodelgui/draw/surfacefixture.h"

#include <gtest/gtest.h>

#include <cstdlib>

using namespace surfacetest;
using ruLinear::Point;
using ruLinear::Point2;
using ruLinear::Vector;

namespace {

const ruImage::TypedImage<ruImage::Byte4>& bytesOf(const ru::Reference<ruImage::Image>& image) {
  return *dynamic_cast<const ruImage::TypedImage<ruImage::Byte4>*>(image.get());
}

// The surface fixture with a snap manager entered beside the draw system and camera.
struct SnapSurface : SurfaceFixture {
  voDMG::SnapManager manager;
  SnapSurface() { callInfo.set<voDMG::SnapManager>(&manager); }
  ~SnapSurface() { manager.clearItems(); }

  Point2 pixel(const Point& world) const {
    Point2 out;
    doc.document.camera()->get().project(world, out);
    return out;
  }
  ru::Reference<ruImage::Image> render(const std::string& name) {
    ru::Reference<ruImage::Image> image = surface->renderFrame(frameParameters(kSize, kSize, false));
    EXPECT_TRUE(image);
    if (image) voGR::test::writeFrame(bytesOf(image), name);
    return image;
  }
  int itemsOf(const void* source) const {
    voGR::DrawData* data = system->getDrawData(source, false);
    return data ? static_cast<int>(data->getItems().size()) : 0;
  }
};

// Pixels of rows [y0, y1] that differ from the frame's corner (the background) in any channel by
// more than `tolerance`. The frame's rows run top-down; y is viewport pixels, y up.
int litInRows(const ruImage::TypedImage<ruImage::Byte4>& image, int y0, int y1, int tolerance = 24) {
  const ruImage::Byte4 background = image.pixel(0, 0);
  int lit = 0;
  for (int y = std::max(0, y0); y <= std::min(kSize - 1, y1); ++y) {
    const int row = kSize - 1 - y;
    for (int x = 0; x < kSize; ++x) {
      const ruImage::Byte4 p = image.pixel(x, row);
      if (std::abs(p.r - background.r) > tolerance || std::abs(p.g - background.g) > tolerance ||
          std::abs(p.b - background.b) > tolerance)
        ++lit;
    }
  }
  return lit;
}

}  // namespace

TEST(SnapDrawGLTest, ACursorAt20PixelsFromAnAxisDrawsTheHintAndDoesNotCatchAt30ItDrawsNothing) {
  SnapSurface f;
  ASSERT_TRUE(f.system);
  ru::Reference<voDMG::CoordinateAxisSnapItem> axis(new voDMG::CoordinateAxisSnapItem(Point(0, 0, 0), Vector(1, 0, 0)));
  voDMG::SnapClient client{voGR::HitTestConfig()};
  client.addFactory(new voDMG::FixedSnapItemFactory(ru::Reference<voDMG::SnapItem>(axis)));
  const Point2 origin = f.pixel(Point(0, 0, 0));
  const int row = static_cast<int>(origin.y);

  EXPECT_FALSE(client.snap(Point2{origin.x + 100.0, origin.y + 20.0}));
  f.manager.draw();
  EXPECT_GT(f.itemsOf(axis.get()), 0);
  ru::Reference<ruImage::Image> hinted = f.render("snap_axis_hint_20px");
  ASSERT_TRUE(hinted);
  // The dashes run along the axis's row, about half of it lit; the cursor's row stays dark.
  const int alongAxis = litInRows(bytesOf(hinted), row - 2, row + 2);
  EXPECT_GT(alongAxis, kSize / 3);
  EXPECT_EQ(litInRows(bytesOf(hinted), row + 15, row + 25), 0);

  EXPECT_FALSE(client.snap(Point2{origin.x + 100.0, origin.y + 30.0}));
  f.manager.draw();
  EXPECT_EQ(f.itemsOf(axis.get()), 0);
  ru::Reference<ruImage::Image> plain = f.render("snap_axis_hint_30px");
  ASSERT_TRUE(plain);
  EXPECT_EQ(litInRows(bytesOf(plain), row - 2, row + 2), 0);
}

TEST(SnapDrawGLTest, HintsBelowTheActiveItemsPriorityAreNotDrawn) {
  SnapSurface f;
  ASSERT_TRUE(f.system);
  ru::Reference<voDMG::CoordinateAxisSnapItem> axis(new voDMG::CoordinateAxisSnapItem(Point(0, 0, 0), Vector(1, 0, 0)));
  voDMG::SnapClient client{voGR::HitTestConfig()};
  voDMG::SnapItemSet items;
  items.insert(axis);
  // A plane item is active wherever the cursor is, but it is below the axis: the axis still hints.
  items.insert(ru::Reference<voDMG::SnapItem>(new voDMG::ModelingPlaneSnapItem(ruLinear::Plane())));
  client.addFactory(new voDMG::FixedSnapItemFactory(items));
  const Point2 origin = f.pixel(Point(0, 0, 0));
  ru::Reference<voDMG::SnapResult> result = client.snap(Point2{origin.x + 100.0, origin.y + 20.0});
  ASSERT_TRUE(result);
  EXPECT_EQ(client.getSnapItem()->priority(), voDMG::SnapPriorityPlane);
  f.manager.draw();
  EXPECT_GT(f.itemsOf(axis.get()), 0);

  // With a higher item active the axis is not asked to draw: its hint stays as it was, empty here.
  voDMG::SnapManager& manager = f.manager;
  manager.clearItems();
  ru::Reference<voDMG::CoordinateAxisSnapItem> other(new voDMG::CoordinateAxisSnapItem(Point(0, 0, 0), Vector(0, 1, 0)));
  voDMG::SnapClient second{voGR::HitTestConfig()};
  ru::Reference<voDMG::ObjectCenterSnapItem> centre(
      new voDMG::ObjectCenterSnapItem(f.doc.addCuboid(ruLinear::Range3d(Point(0.9, 0.9, -0.1), Point(1.1, 1.1, 0.1)))));
  voDMG::SnapItemSet secondItems;
  secondItems.insert(other);
  secondItems.insert(centre);
  second.addFactory(new voDMG::FixedSnapItemFactory(secondItems));
  // On the centre and 20 pixels from the y axis.
  const Point2 onCentre = f.pixel(Point(1, 1, 0));
  ASSERT_GT(std::abs(onCentre.x - origin.x), 20.0);
  ru::Reference<voDMG::SnapResult> caught = second.snap(onCentre);
  ASSERT_TRUE(caught);
  EXPECT_EQ(second.getSnapItem().get(), centre.get());
  f.manager.draw();
  EXPECT_EQ(f.itemsOf(other.get()), 0);
  EXPECT_GT(f.itemsOf(centre.get()), 0);
  f.render("snap_centre_hint");
  caught->setDraw(nullptr);
}

TEST(SnapDrawGLTest, AnAxisResultDrawsItsDashedAxisAndMarkAtThePosition) {
  SnapSurface f;
  ASSERT_TRUE(f.system);
  ru::Reference<voDMG::CoordinateAxisSnapItem> axis(new voDMG::CoordinateAxisSnapItem(Point(0, 0, 0), Vector(1, 0, 0)));
  const Point2 origin = f.pixel(Point(0, 0, 0));
  ASSERT_TRUE(axis->shouldSnap(Point2{origin.x + 80.0, origin.y + 5.0}));
  ru::Reference<voDMG::SnapResult> result = axis->snap(Point2{origin.x + 80.0, origin.y + 5.0});
  ASSERT_TRUE(result);
  ASSERT_TRUE(result->hasDraw());
  int source = 0;
  {
    voGR::Draw draw(*f.context, &source, true);
    result->getDraw()->drawPosition(draw);
    EXPECT_GE(draw.getDrawData()->getItems().size(), 2u);  // the dashes and the mark
  }
  ru::Reference<ruImage::Image> image = f.render("snap_axis_result");
  ASSERT_TRUE(image);
  const int row = static_cast<int>(origin.y);
  EXPECT_GT(litInRows(bytesOf(image), row - 2, row + 2), kSize / 3);
  result->setDraw(nullptr);
}
