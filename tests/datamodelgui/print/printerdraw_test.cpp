#include "printfixture.h"

#include "platform/geometry/mesh.h"
#include "platform/support/debug.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

namespace {

using printtest::cuboid;
using printtest::translation;
using voDMG::KLTPrinterDraw;

bool same(const ruUtil::Color& a, const ruUtil::Color& b) { return a.r == b.r && a.g == b.g && a.b == b.b && a.a == b.a; }

const ruUtil::Color kMajor{0.325f, 0.325f, 0.325f, 1.0f};
const ruUtil::Color kMinor{0.725f, 0.721f, 0.733f, 1.0f};
const ruUtil::Color kFrame{0.0f, 0.42f, 0.9f, 1.0f};

ruLinear::Range3d box(double x0, double y0, double z0, double x1, double y1, double z1) {
  return ruLinear::Range3d(ruLinear::Point(x0, y0, z0), ruLinear::Point(x1, y1, z1));
}

// What the printer emitted, sorted by kind in emission order.
struct Emitted {
  std::vector<voGR::DrawItem*> minorAlongY, minorAlongX, majorAlongY, majorAlongX, bars, other;
};

class KLTPrinterDrawGLTest : public ::testing::Test, public printtest::PrintFixture {
protected:
  Emitted emitted(voDMD::Object* printer) {
    Emitted out;
    for (voGR::DrawItem* item : itemsOf(printer)) {
      auto* line = dynamic_cast<const voGR::LineShader*>(item->getShader().get());
      const ruGeom::BoundingBox bounds = item->getWorldBoundingBox();
      if (line) {
        const bool alongY = bounds.getMax().x - bounds.getMin().x < 1e-9;
        if (same(line->color, kMinor)) (alongY ? out.minorAlongY : out.minorAlongX).push_back(item);
        else if (same(line->color, kMajor)) (alongY ? out.majorAlongY : out.majorAlongX).push_back(item);
        else out.other.push_back(item);
      } else if (item->isTriangles()) {
        out.bars.push_back(item);
      } else {
        out.other.push_back(item);
      }
    }
    return out;
  }
  static bool overstepped(const voGR::DrawItem* bar) {
    return !bar->getShader() && same(bar->getColor(), KLTPrinterDraw::kOversteppedColor);
  }
};

TEST_F(KLTPrinterDrawGLTest, BedOfHalfWidth60And60HasSpacing20FiveMajorAnd36MinorLinesEachWay) {
  voDMD::Object* printer = addPrinter(box(-60, -60, 0, 60, 60, 100), box(-70, -70, 0, 70, 70, 110));
  redraw();
  Emitted items = emitted(printer);
  EXPECT_EQ(items.majorAlongY.size(), 5u);
  EXPECT_EQ(items.majorAlongX.size(), 5u);
  EXPECT_EQ(items.minorAlongY.size(), 36u);
  EXPECT_EQ(items.minorAlongX.size(), 36u);
  ASSERT_FALSE(items.majorAlongY.empty());
  // Major lines every 20 from -40; the grid lies at the bottom and is never pickable.
  for (std::size_t i = 0; i < items.majorAlongY.size(); ++i)
    EXPECT_NEAR(items.majorAlongY[i]->getWorldBoundingBox().getMin().x, -40.0 + 20.0 * i, 1e-6);
  for (voGR::DrawItem* item : itemsOf(printer)) {
    EXPECT_FALSE(item->isPickable());
    EXPECT_EQ(item->getType(), voGR::TypeHelper);
  }
}

TEST_F(KLTPrinterDrawGLTest, BedDeeperThanWideKeepsSquareCellsAndHasMoreMajorLinesInY) {
  voDMD::Object* printer = addPrinter(box(-30, -60, 0, 30, 60, 50), box(-30, -60, 0, 30, 60, 50));
  redraw();
  Emitted items = emitted(printer);
  // Spacing 10 from the width: five lines across X, eleven across the 120-deep bed.
  EXPECT_EQ(items.majorAlongY.size(), 5u);
  EXPECT_EQ(items.majorAlongX.size(), 11u);
  ASSERT_GE(items.majorAlongX.size(), 2u);
  const double stepY = items.majorAlongX[1]->getWorldBoundingBox().getMin().y - items.majorAlongX[0]->getWorldBoundingBox().getMin().y;
  const double stepX = items.majorAlongY[1]->getWorldBoundingBox().getMin().x - items.majorAlongY[0]->getWorldBoundingBox().getMin().x;
  EXPECT_NEAR(stepX, stepY, 1e-9);
}

ruLinear::ParamPlane zPlane(double z, const ruLinear::Normal& normal) {
  return ruLinear::ParamPlane(ruLinear::Point(0, 0, z), normal, ruLinear::Vector(1, 0, 0), ruLinear::Vector(0, 1, 0));
}

TEST(KLTPrinterDrawSides, ZPlaneAtBottomPlus0009IsBottomAndAtBottomPlus001IsTop) {
  EXPECT_EQ(voDMG::kltOversteppedSides({zPlane(0.009, ruLinear::Normal::z)}, 0.0), 16u);
  EXPECT_EQ(voDMG::kltOversteppedSides({zPlane(0.01, ruLinear::Normal::z)}, 0.0), 32u);
}

TEST(KLTPrinterDrawSides, PlaneWithNormalMinusZLeavesAllZFlagsClear) {
  EXPECT_EQ(voDMG::kltOversteppedSides({zPlane(5.0, -ruLinear::Normal::z), zPlane(9.0, -ruLinear::Normal::z)}, 5.0), 0u);
}

TEST_F(KLTPrinterDrawGLTest, PlusXPlaneColoursTheFourBarsAtHalfWidthRows3_4_10_12) {
  voDMD::Object* printer = addPrinter(box(-10, -10, 0, 10, 10, 20), box(-12, -12, 0, 12, 12, 22));
  addPrintMesh(cuboid(box(-1, -1, 1, 1, 1, 3)), translation(10, 0, 0));
  redraw();
  Emitted items = emitted(printer);
  ASSERT_EQ(items.bars.size(), 12u);
  for (int row = 1; row <= 12; ++row) {
    const bool coloured = row == 3 || row == 4 || row == 10 || row == 12;
    EXPECT_EQ(overstepped(items.bars[row - 1]), coloured) << "bar " << row;
    if (!coloured) {
      auto* shader = dynamic_cast<const voGR::KLTPrinterBedShader*>(items.bars[row - 1]->getShader().get());
      ASSERT_NE(shader, nullptr);
      EXPECT_TRUE(same(shader->color, kFrame));
    }
  }
  // Bars grow outward: the +X vertical bars span X from 10 to 10.2.
  EXPECT_NEAR(items.bars[2]->getWorldBoundingBox().getMin().x, 10.0, 1e-6);
  EXPECT_NEAR(items.bars[2]->getWorldBoundingBox().getMax().x, 10.2, 1e-6);
  EXPECT_NEAR(items.bars[2]->getWorldBoundingBox().getMax().z, 20.2, 1e-6);
}

TEST_F(KLTPrinterDrawGLTest, ConnectedPrinterDrawsNoTotalVolumeBoxAndUnconnectedDrawsItAfterTheFrame) {
  voDMD::Object* printer = addPrinter(box(-10, -10, 0, 10, 10, 20), box(-12, -12, 0, 12, 12, 22));
  redraw();
  std::vector<voGR::DrawItem*> items = itemsOf(printer);
  ASSERT_FALSE(items.empty());
  voGR::DrawItem* last = items.back();
  EXPECT_FALSE(last->getShader());
  EXPECT_TRUE(same(last->getColor(), KLTPrinterDraw::kTotalVolumeColor));
  EXPECT_NEAR(last->getWorldBoundingBox().getMax().x, 12.0, 1e-6);
  EXPECT_NEAR(last->getWorldBoundingBox().getMax().z, 22.0, 1e-6);
  EXPECT_TRUE(emitted(printer).bars.back() == items[items.size() - 2]);

  doc.manager.begin("connect");
  printer->findAttribute<voDMD::KLTPrinter>()->setConnected(true);
  doc.manager.commit();
  redraw();
  for (voGR::DrawItem* item : itemsOf(printer)) EXPECT_FALSE(same(item->getColor(), KLTPrinterDraw::kTotalVolumeColor));
  EXPECT_EQ(itemsOf(printer).size(), items.size() - 1);
}

TEST_F(KLTPrinterDrawGLTest, PrinterWithInvertedVolumeDrawsNothingAndSaysSo) {
  std::vector<std::string> lines;
  voSupport::Debug::getInstance().setEnabled(voSupport::DebugHitTest, true);
  voSupport::Debug::getInstance().setSink([&](int, const char*, const char* text) { lines.emplace_back(text); });
  voDMD::Object* printer = addPrinter(ruLinear::Range3d(), ruLinear::Range3d());
  redraw();
  voSupport::Debug::getInstance().setSink(nullptr);
  voSupport::Debug::getInstance().setEnabled(voSupport::DebugHitTest, false);
  EXPECT_TRUE(itemsOf(printer).empty());
  bool said = false;
  for (const auto& line : lines) said = said || line.find("printer with an empty or inverted useable volume: nothing drawn") != std::string::npos;
  EXPECT_TRUE(said);
}

TEST_F(KLTPrinterDrawGLTest, ItemsComeGridMinorThenMajorThenTwelveBarsThenTheBoxAllNamedAfterOnDraw) {
  voDMD::Object* printer = addPrinter(box(-60, -60, 0, 60, 60, 100), box(-70, -70, 0, 70, 70, 110));
  redraw();
  const std::vector<voGR::DrawItem*> items = itemsOf(printer);
  // 36 + 36 minor lines, 5 + 5 major lines, 12 bars and the total-volume box.
  ASSERT_EQ(items.size(), 36u + 36u + 5u + 5u + 12u + 1u);
  std::size_t at = 0;
  auto lineColour = [](const voGR::DrawItem* item) {
    auto* line = dynamic_cast<const voGR::LineShader*>(item->getShader().get());
    return line ? line->color : ruUtil::Color(-1.0f, -1.0f, -1.0f, -1.0f);
  };
  for (std::size_t i = 0; i < 72; ++i, ++at) EXPECT_TRUE(same(lineColour(items[at]), kMinor)) << at;
  for (std::size_t i = 0; i < 10; ++i, ++at) EXPECT_TRUE(same(lineColour(items[at]), kMajor)) << at;
  for (std::size_t i = 0; i < 12; ++i, ++at) {
    EXPECT_TRUE(items[at]->isTriangles()) << at;
    EXPECT_NE(dynamic_cast<const voGR::KLTPrinterBedShader*>(items[at]->getShader().get()), nullptr) << at;
  }
  EXPECT_FALSE(items[at]->getShader());
  for (voGR::DrawItem* item : items) {
    EXPECT_EQ(item->getDebugString(), "KLTPrinterDraw::onDraw");
    EXPECT_EQ(item->getSpace(), 0);
    EXPECT_EQ(item->getDepthInteraction(), 0);
    // Every grid line lies at the bottom of the useable volume.
    if (!item->isTriangles() && item != items.back()) {
      EXPECT_NEAR(item->getWorldBoundingBox().getMin().z, 0.0, 1e-9);
      EXPECT_NEAR(item->getWorldBoundingBox().getMax().z, 0.0, 1e-9);
    }
  }
}

TEST_F(KLTPrinterDrawGLTest, NoBarIsColouredWhileNoMeshOverstepsTheVolume) {
  voDMD::Object* printer = addPrinter(box(-10, -10, 0, 10, 10, 20), box(-12, -12, 0, 12, 12, 22));
  addPrintMesh(cuboid(box(-1, -1, 1, 1, 1, 3)));
  redraw();
  Emitted items = emitted(printer);
  ASSERT_EQ(items.bars.size(), 12u);
  for (voGR::DrawItem* bar : items.bars) EXPECT_FALSE(overstepped(bar));
}

}  // namespace
