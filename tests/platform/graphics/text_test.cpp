// Text drawn through the Draw emitter: glyph quads from the FreeType atlas, checked pixel by
// pixel against each glyph's own coverage bitmap, so orientation and placement are both seen.

#include "glscene.h"

#include "platform/graphics/shader.h"
#include "platform/graphics/text.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace voGR;
using voGR::test::GLScene;
using ruLinear::Point;
using ruLinear::Vector;

namespace {

// Looks straight down -z from a height where one world unit at z = 0 covers one pixel, with
// world (x, y, 0) landing on viewport pixel (x, y).
ruGeom::Camera pixelCamera() {
  ruGeom::Camera camera;
  camera.setViewport(ruGeom::Viewport(0, 0, voGR::test::kSize, voGR::test::kSize));
  ruGeom::AngleAspect frustum;
  frustum.setAngle(0.7853981633974483);
  frustum.setAspectRatio(1.0);
  frustum.setDepthRange(1.0, 1000.0);
  camera.setFrustum(frustum);
  const double half = voGR::test::kSize / 2.0;
  const double height = half / std::tan(0.7853981633974483 / 2);
  camera.setWorldToEye(Point(half, half, 0), Point(half, half, height), Vector(0, 1, 0));
  return camera;
}

bool isInk(const ruImage::Byte4& p) { return p.r > 180 && p.g < 110 && p.b < 110; }

}  // namespace

TEST(TextGLTest, GlyphsAreUprightAndWhereTheLayoutPutsThem) {
  GLScene scene;
  const ruGeom::Camera camera = pixelCamera();
  ruLinear::Point2 check;
  ASSERT_TRUE(camera.project(Point(100, 90, 0), check));
  ASSERT_NEAR(check.x, 100, 1e-6);
  ASSERT_NEAR(check.y, 90, 1e-6);
  scene.setCamera(camera);

  ruString::CString error;
  const Font font = Font::defaultFont(48, &error);
  ASSERT_TRUE(font.valid()) << error.c_str();
  int source = 0;
  ru::Reference<ruGeom::CompactMesh> before(new ruGeom::CompactMesh());
  {
    Draw draw(*scene.context, &source, false);
    draw.setMesh(before);
    const ru::Reference<Geometry> geometry = draw.getGeometry();
    draw.setColor(1.0f, 0.1f, 0.1f, 1.0f);
    draw.setTransform(ruLinear::AffineMatrix::translation(Vector(30, 90, 0)));
    ru::Reference<DrawItem> item = drawText(draw, "TL", font);
    ASSERT_TRUE(item);
    EXPECT_TRUE(item->hasImageKey());
    EXPECT_EQ(item->getMesh()->getNumTriangles(), 4);
    // The emitter's own state is back.
    EXPECT_EQ(draw.getGeometry().get(), geometry.get());
    EXPECT_FALSE(draw.getShader());
    EXPECT_FALSE(draw.hasImageKey());
  }
  const auto frame = scene.frame("text_TL");

  // Each glyph's bitmap, placed where the layout puts its quad, against the frame.
  const voRES::TextGeometry layout = font.getFace()->layout("TL");
  ASSERT_EQ(layout.quads.size(), 2u);
  int inkChecked = 0, clearChecked = 0;
  for (const voRES::GlyphQuad& quad : layout.quads) {
    const voRES::GlyphBitmap glyph = font.getFace()->rasterizeGlyph(quad.codePoint);
    ASSERT_TRUE(glyph.image);
    const auto& bitmap = *glyph.image;
    ASSERT_EQ(int(std::lround(quad.x1 - quad.x0)), bitmap.xSize());
    ASSERT_EQ(int(std::lround(quad.y1 - quad.y0)), bitmap.ySize());
    ASSERT_EQ(int(std::lround(quad.y1)), glyph.top);
    for (int row = 0; row < bitmap.ySize(); ++row) {
      for (int column = 0; column < bitmap.xSize(); ++column) {
        const int coverage = bitmap.pixel(column, row).value;
        const int x = 30 + int(std::lround(quad.x0)) + column;
        const int y = 90 + glyph.top - 1 - row;  // bitmap rows run down from the glyph's top
        const ruImage::Byte4& p = frame.pixel(x, y);
        if (coverage >= 224) {
          EXPECT_TRUE(isInk(p)) << char(quad.codePoint) << " at " << column << ", " << row;
          ++inkChecked;
        } else if (coverage == 0) {
          EXPECT_TRUE(voGR::test::near(p, voGR::test::kClear, 6)) << char(quad.codePoint) << " at " << column << ", " << row;
          ++clearChecked;
        }
      }
    }
  }
  EXPECT_GT(inkChecked, 150);
  EXPECT_GT(clearChecked, 300);

  // The T by itself: its bar is the top of the ink, 48-pixel type puts that about 35 pixels
  // above the baseline, and the stem stands on the baseline.
  const voRES::GlyphQuad& t = layout.quads[0];
  const int left = 30 + int(std::lround(t.x0)), right = 30 + int(std::lround(t.x1));
  int top = -1, bottom = -1;
  auto inkIn = [&](int y) {
    int count = 0;
    for (int x = left; x < right; ++x) count += isInk(frame.pixel(x, y));
    return count;
  };
  for (int y = 0; y < voGR::test::kSize; ++y) {
    if (inkIn(y) > 0) {
      if (bottom < 0) bottom = y;
      top = y;
    }
  }
  ASSERT_GE(bottom, 0);
  EXPECT_NEAR(bottom, 90, 1);
  EXPECT_NEAR(top - 90 + 1, 48 * 0.73, 3);  // DejaVu's cap height is 0.73 em
  EXPECT_GT(inkIn(top - 1), 3 * inkIn(bottom + 1));
}

TEST(TextGLTest, NothingToDrawEmitsNothing) {
  GLScene scene;
  int source = 0;
  Draw draw(*scene.context, &source, false);
  EXPECT_FALSE(drawText(draw, "T", Font()));
  const Font font = Font::defaultFont(20);
  ASSERT_TRUE(font.valid());
  EXPECT_FALSE(drawText(draw, "", font));
  EXPECT_FALSE(drawText(draw, "   ", font));
  EXPECT_TRUE(draw.getDrawData()->getItems().empty());
  ruString::CString error;
  EXPECT_FALSE(Font("No Such Family", 20, voRES::FontStyle::Regular, &error).valid());
  EXPECT_FALSE(error.empty());
  // Centred: the ink straddles the origin.
  draw.setShader(new SolidColorShader());
  ru::Reference<DrawItem> item = drawText(draw, "HH", font, TextLayout(voRES::TextAlign::Centre, voRES::TextAnchor::Centre));
  ASSERT_TRUE(item);
  const ruGeom::BoundingBox box = item->getWorldBoundingBox();
  EXPECT_LT(box.getMin().x, 0);
  EXPECT_GT(box.getMax().x, 0);
  EXPECT_LT(box.getMin().y, 0);
  EXPECT_GT(box.getMax().y, 0);
  EXPECT_TRUE(draw.getShader());
}
