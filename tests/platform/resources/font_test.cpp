#include "platform/resources/font.h"

#include "platform/image/png.h"

#include <gtest/gtest.h>

#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_TRUETYPE_TABLES_H

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

using namespace voRES;

namespace {

std::filesystem::path outputFolder() {
  std::filesystem::path folder(DMGUI_TEST_OUTPUT_DIR);
  std::filesystem::create_directories(folder);
  return folder;
}

// The same font file read by FreeType directly, for the numbers a layout must agree with.
class ReferenceFace {
public:
  ReferenceFace(const char* path, int pixelSize) : size_(pixelSize) {
    FT_Init_FreeType(&library_);
    if (FT_New_Face(library_, path, 0, &face_) != 0) face_ = nullptr;
    if (face_) FT_Set_Pixel_Sizes(face_, 0, static_cast<FT_UInt>(pixelSize));
  }
  ~ReferenceFace() {
    if (face_) FT_Done_Face(face_);
    FT_Done_FreeType(library_);
  }
  bool valid() const { return face_ != nullptr; }

  // Height of the capitals in pixels, from the face's design units.
  double capHeight() const {
    const TT_OS2* os2 = static_cast<const TT_OS2*>(FT_Get_Sfnt_Table(face_, FT_SFNT_OS2));
    if (os2 && os2->version >= 2 && os2->sCapHeight > 0) return double(os2->sCapHeight) * size_ / face_->units_per_EM;
    FT_Load_Char(face_, 'H', FT_LOAD_NO_HINTING | FT_LOAD_NO_BITMAP);
    return face_->glyph->metrics.horiBearingY / 64.0;
  }
  // Hinted pen advance, whole pixels.
  int advance(char32_t c) const {
    FT_Load_Char(face_, c, FT_LOAD_DEFAULT);
    return static_cast<int>(std::lround(face_->glyph->advance.x / 64.0));
  }
  int kerning(char32_t a, char32_t b) const {
    FT_Vector delta{0, 0};
    FT_Get_Kerning(face_, FT_Get_Char_Index(face_, a), FT_Get_Char_Index(face_, b), FT_KERNING_DEFAULT, &delta);
    return static_cast<int>(std::lround(delta.x / 64.0));
  }
  double ascender() const { return face_->size->metrics.ascender / 64.0; }
  double descender() const { return face_->size->metrics.descender / 64.0; }
  double lineHeight() const { return face_->size->metrics.height / 64.0; }

private:
  int size_;
  FT_Library library_ = nullptr;
  FT_Face face_ = nullptr;
};

// Rows of a coverage image with any pixel at least half covered.
int inkRows(const ruImage::TypedImage<ruImage::Byte1>& image) {
  int rows = 0;
  for (int y = 0; y < image.ySize(); ++y) {
    bool ink = false;
    for (int x = 0; x < image.xSize(); ++x) ink = ink || image.pixel(x, y).value >= 128;
    rows += ink ? 1 : 0;
  }
  return rows;
}

int countInk(const ruImage::TypedImage<ruImage::Byte1>& image) {
  int count = 0;
  for (int i = 0; i < image.xSize() * image.ySize(); ++i) count += image.pixels()[i].value >= 128 ? 1 : 0;
  return count;
}

ru::Reference<Font> defaultFont(int size) {
  ruString::CString error;
  ru::Reference<Font> font = Font::createDefault(size, &error);
  EXPECT_TRUE(font) << error.c_str();
  return font;
}

const GlyphQuad* quadOf(const TextGeometry& geometry, char32_t c) {
  for (const GlyphQuad& quad : geometry.quads) {
    if (quad.codePoint == c) return &quad;
  }
  return nullptr;
}

}  // namespace

// --- Loading ----------------------------------------------------------------------------------------

TEST(Font, DefaultIsDejaVuSansRegularFromTheSystemFonts) {
  ru::Reference<Font> font = defaultFont(16);
  ASSERT_TRUE(font);
  EXPECT_EQ(font->family(), "DejaVu Sans");
  EXPECT_EQ(font->style(), FontStyle::Regular);
  EXPECT_EQ(font->pixelSize(), 16);
  EXPECT_TRUE(std::filesystem::exists(font->path().c_str()));
  EXPECT_EQ(std::filesystem::path(font->path().c_str()).filename(), "DejaVuSans.ttf");
}

TEST(Font, StylesFindTheirOwnFaces) {
  EXPECT_EQ(std::filesystem::path(Font::findFontFile("DejaVu Sans", FontStyle::Bold).c_str()).filename(), "DejaVuSans-Bold.ttf");
  EXPECT_EQ(std::filesystem::path(Font::findFontFile("dejavu sans", FontStyle::Oblique).c_str()).filename(), "DejaVuSans-Oblique.ttf");
  EXPECT_EQ(std::filesystem::path(Font::findFontFile("DejaVu Sans Mono", FontStyle::BoldOblique).c_str()).filename(),
            "DejaVuSansMono-BoldOblique.ttf");
  // Bold strokes are heavier: more ink in the same capital.
  ru::Reference<Font> regular = Font::create("DejaVu Sans", FontStyle::Regular, 32);
  ru::Reference<Font> bold = Font::create("DejaVu Sans", FontStyle::Bold, 32);
  ASSERT_TRUE(regular && bold);
  EXPECT_EQ(bold->style(), FontStyle::Bold);
  EXPECT_GT(countInk(*bold->rasterizeGlyph(U'H').image), countInk(*regular->rasterizeGlyph(U'H').image) * 5 / 4);
}

TEST(Font, MissingFamilyIsAClearFailure) {
  ruString::CString error;
  EXPECT_FALSE(Font::create("No Such Family", FontStyle::Regular, 16, &error));
  EXPECT_NE(error.find("No Such Family"), ruString::CString::npos) << error.c_str();
  EXPECT_TRUE(Font::findFontFile("No Such Family", FontStyle::Regular).empty());
}

TEST(Font, MissingOrUnreadableFileIsAClearFailure) {
  ruString::CString error;
  EXPECT_FALSE(Font::createFromFile("/nonexistent/folder/Font.ttf", 16, &error));
  EXPECT_NE(error.find("/nonexistent/folder/Font.ttf"), ruString::CString::npos) << error.c_str();

  const std::filesystem::path junk = std::filesystem::temp_directory_path() / ("font_test_junk_" + std::to_string(::getpid()) + ".ttf");
  {
    std::ofstream out(junk, std::ios::binary);
    out << "this is not a font file at all, only words";
  }
  error = "";
  EXPECT_FALSE(Font::createFromFile(junk.string().c_str(), 16, &error));
  EXPECT_NE(error.find(junk.string()), ruString::CString::npos) << error.c_str();
  std::filesystem::remove(junk);
}

TEST(Font, SizeOutsideTheRangeIsRefused) {
  ruString::CString error;
  EXPECT_FALSE(Font::createDefault(0, &error));
  EXPECT_FALSE(error.empty());
  EXPECT_FALSE(Font::createDefault(-3));
  EXPECT_FALSE(Font::createDefault(5000));
  EXPECT_FALSE(Font::createDefault(513));
  EXPECT_TRUE(Font::createDefault(512));
}

// --- Glyph size ---------------------------------------------------------------------------------------

class FontSizes : public testing::TestWithParam<int> {};

TEST_P(FontSizes, CapitalHeightMatchesTheFaceMetricsAtTheSize) {
  const int size = GetParam();
  ru::Reference<Font> font = defaultFont(size);
  ASSERT_TRUE(font);
  ReferenceFace reference(font->path().c_str(), size);
  ASSERT_TRUE(reference.valid());
  const double expected = reference.capHeight();
  // The capital height of DejaVu Sans is close to 0.73 em; the reading must be of that order.
  EXPECT_NEAR(expected / size, 0.73, 0.03);

  const GlyphBitmap h = font->rasterizeGlyph(U'H');
  ASSERT_TRUE(h.image);
  // Hinting snaps the top and the baseline to whole pixels.
  EXPECT_NEAR(inkRows(*h.image), expected, 1.0) << "size " << size;
  EXPECT_NEAR(h.top, expected, 1.0);
  EXPECT_NEAR(h.top - h.image->ySize(), 0.0, 1.0);  // stands on the baseline

  // The laid-out quad stands on y = 0 and rises to the capital height: y is up.
  const TextGeometry geometry = font->layout("H");
  ASSERT_EQ(geometry.quads.size(), 1u);
  EXPECT_NEAR(geometry.quads[0].y0, 0.0, 1.0);
  EXPECT_NEAR(geometry.quads[0].y1, expected, 1.0);
  EXPECT_GT(geometry.quads[0].y1, geometry.quads[0].y0);
}

TEST_P(FontSizes, VerticalMetricsAreThoseOfTheFace) {
  const int size = GetParam();
  ru::Reference<Font> font = defaultFont(size);
  ASSERT_TRUE(font);
  ReferenceFace reference(font->path().c_str(), size);
  EXPECT_DOUBLE_EQ(font->ascender(), reference.ascender());
  EXPECT_DOUBLE_EQ(font->descender(), reference.descender());
  EXPECT_DOUBLE_EQ(font->lineHeight(), reference.lineHeight());
  EXPECT_GT(font->ascender(), 0.0);
  EXPECT_LT(font->descender(), 0.0);
  EXPECT_GT(font->lineHeight(), size * 0.9);
}

INSTANTIATE_TEST_SUITE_P(Pixels, FontSizes, testing::Values(9, 12, 16, 24, 32, 48, 72, 128),
                         [](const testing::TestParamInfo<int>& param) { return "Size" + std::to_string(param.param); });

TEST(Font, DescendersGoBelowTheBaseline) {
  ru::Reference<Font> font = defaultFont(32);
  ASSERT_TRUE(font);
  const TextGeometry geometry = font->layout("gH");
  const GlyphQuad* g = quadOf(geometry, U'g');
  const GlyphQuad* h = quadOf(geometry, U'H');
  ASSERT_TRUE(g && h);
  EXPECT_LT(g->y0, -3.0f);
  EXPECT_GE(g->y0, font->descender() - 1.0);
  EXPECT_NEAR(h->y0, 0.0f, 1.0f);
}

// --- Layout -------------------------------------------------------------------------------------------

TEST(TextLayout, PenAdvancesByTheHintedAdvanceOfEachCharacter) {
  ru::Reference<Font> font = defaultFont(24);
  ASSERT_TRUE(font);
  ReferenceFace reference(font->path().c_str(), 24);
  TextLayoutOptions options;
  options.kerning = false;
  const TextGeometry geometry = font->layout("HiW", options);
  ASSERT_EQ(geometry.quads.size(), 3u);
  const GlyphBitmap hBitmap = font->rasterizeGlyph(U'H');
  const GlyphBitmap iBitmap = font->rasterizeGlyph(U'i');
  const GlyphBitmap wBitmap = font->rasterizeGlyph(U'W');
  // Each quad's left edge is the pen position plus the glyph's own bearing.
  EXPECT_FLOAT_EQ(geometry.quads[0].x0, float(hBitmap.left));
  EXPECT_FLOAT_EQ(geometry.quads[1].x0, float(reference.advance(U'H') + iBitmap.left));
  EXPECT_FLOAT_EQ(geometry.quads[2].x0, float(reference.advance(U'H') + reference.advance(U'i') + wBitmap.left));
  ASSERT_EQ(geometry.lineWidths.size(), 1u);
  EXPECT_DOUBLE_EQ(geometry.lineWidths[0], reference.advance(U'H') + reference.advance(U'i') + reference.advance(U'W'));
  EXPECT_DOUBLE_EQ(font->advance(U'W'), reference.advance(U'W'));
  // Quad sizes are the glyph images' sizes, one pixel to one unit.
  EXPECT_FLOAT_EQ(geometry.quads[2].x1 - geometry.quads[2].x0, float(wBitmap.image->xSize()));
  EXPECT_FLOAT_EQ(geometry.quads[2].y1 - geometry.quads[2].y0, float(wBitmap.image->ySize()));
}

TEST(TextLayout, KerningPairsMoveTheSecondGlyph) {
  ru::Reference<Font> font = defaultFont(48);
  ASSERT_TRUE(font);
  ASSERT_TRUE(font->hasKerning());
  ReferenceFace reference(font->path().c_str(), 48);
  const int pair = reference.kerning(U'A', U'V');
  ASSERT_LT(pair, 0) << "A and V tuck together in DejaVu Sans";
  EXPECT_DOUBLE_EQ(font->kerning(U'A', U'V'), pair);

  TextLayoutOptions plain;
  plain.kerning = false;
  const TextGeometry kerned = font->layout("AV");
  const TextGeometry loose = font->layout("AV", plain);
  ASSERT_EQ(kerned.quads.size(), 2u);
  ASSERT_EQ(loose.quads.size(), 2u);
  EXPECT_FLOAT_EQ(kerned.quads[1].x0 - loose.quads[1].x0, float(pair));
  EXPECT_DOUBLE_EQ(kerned.lineWidths[0] - loose.lineWidths[0], pair);
  EXPECT_FLOAT_EQ(kerned.quads[0].x0, loose.quads[0].x0);
}

TEST(TextLayout, AlignmentPlacesEachLineAgainstTheOrigin) {
  ru::Reference<Font> font = defaultFont(20);
  ASSERT_TRUE(font);
  const ruString::IString text("Wide line here\nshort");
  TextLayoutOptions options;
  const TextGeometry left = font->layout(text, options);
  options.align = TextAlign::Centre;
  const TextGeometry centre = font->layout(text, options);
  options.align = TextAlign::Right;
  const TextGeometry right = font->layout(text, options);
  ASSERT_EQ(left.lineWidths.size(), 2u);
  ASSERT_EQ(left.quads.size(), centre.quads.size());
  ASSERT_EQ(left.quads.size(), right.quads.size());
  const double wide = left.lineWidths[0];
  const double narrow = left.lineWidths[1];
  ASSERT_GT(wide, narrow);

  EXPECT_DOUBLE_EQ(left.boxBounds.xMin, 0.0);
  EXPECT_DOUBLE_EQ(left.boxBounds.xMax, wide);
  EXPECT_DOUBLE_EQ(right.boxBounds.xMax, 0.0);
  EXPECT_DOUBLE_EQ(right.boxBounds.xMin, -wide);
  EXPECT_NEAR(centre.boxBounds.xMin, -wide / 2, 0.5);
  EXPECT_NEAR(centre.boxBounds.xMax, wide / 2, 0.5);

  for (std::size_t i = 0; i < left.quads.size(); ++i) {
    const double width = left.lineWidths[left.quads[i].line];
    EXPECT_FLOAT_EQ(right.quads[i].x0 - left.quads[i].x0, float(-width));
    EXPECT_NEAR(centre.quads[i].x0 - left.quads[i].x0, -width / 2, 0.5);
    // Shifted whole pixels, so glyphs stay on the pixel grid.
    EXPECT_FLOAT_EQ(centre.quads[i].x0, std::round(centre.quads[i].x0));
    EXPECT_FLOAT_EQ(centre.quads[i].y0, left.quads[i].y0);
  }
}

TEST(TextLayout, CentreAnchoringCentresTheBlockOnTheOrigin) {
  ru::Reference<Font> font = defaultFont(20);
  ASSERT_TRUE(font);
  TextLayoutOptions options;
  options.anchor = TextAnchor::Centre;
  for (const char* text : {"Axis", "two\nlines", "three\nlines\nhere"}) {
    const TextGeometry baseline = font->layout(text);
    const TextGeometry centred = font->layout(text, options);
    EXPECT_NEAR((centred.boxBounds.yMin + centred.boxBounds.yMax) / 2, 0.0, 0.5) << text;
    EXPECT_DOUBLE_EQ(centred.boxBounds.height(), baseline.boxBounds.height());
    const float shift = centred.quads[0].y0 - baseline.quads[0].y0;
    EXPECT_FLOAT_EQ(shift, std::round(shift));
    for (std::size_t i = 0; i < baseline.quads.size(); ++i) EXPECT_FLOAT_EQ(centred.quads[i].y0 - baseline.quads[i].y0, shift);
  }
}

TEST(TextLayout, NewlinesStartLinesOneLineHeightLower) {
  ru::Reference<Font> font = defaultFont(16);
  ASSERT_TRUE(font);
  const TextGeometry geometry = font->layout("H\nH\r\nH");
  ASSERT_EQ(geometry.numLines, 3);
  ASSERT_EQ(geometry.quads.size(), 3u);
  const float step = float(std::lround(font->lineHeight()));
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(geometry.quads[i].line, i);
    EXPECT_FLOAT_EQ(geometry.quads[i].x0, geometry.quads[0].x0);
    EXPECT_FLOAT_EQ(geometry.quads[i].y0, geometry.quads[0].y0 - i * step);
  }
  EXPECT_DOUBLE_EQ(geometry.boxBounds.yMax, font->ascender());
  EXPECT_DOUBLE_EQ(geometry.boxBounds.yMin, font->descender() - 2 * step);

  TextLayoutOptions spaced;
  spaced.lineSpacing = 2.0;
  const TextGeometry wide = font->layout("H\nH", spaced);
  EXPECT_FLOAT_EQ(wide.quads[1].y0 - wide.quads[0].y0, -float(std::lround(font->lineHeight() * 2.0)));
}

TEST(TextLayout, BoundsHoldEveryGlyphAndTheAdvanceBoxes) {
  ru::Reference<Font> font = defaultFont(24);
  ASSERT_TRUE(font);
  const TextGeometry geometry = font->layout("Jog, quick\nfox!");
  ASSERT_TRUE(geometry.inkBounds.valid());
  float xMin = 1e9f, xMax = -1e9f, yMin = 1e9f, yMax = -1e9f;
  for (const GlyphQuad& quad : geometry.quads) {
    xMin = std::min(xMin, quad.x0);
    xMax = std::max(xMax, quad.x1);
    yMin = std::min(yMin, quad.y0);
    yMax = std::max(yMax, quad.y1);
  }
  EXPECT_DOUBLE_EQ(geometry.inkBounds.xMin, xMin);
  EXPECT_DOUBLE_EQ(geometry.inkBounds.xMax, xMax);
  EXPECT_DOUBLE_EQ(geometry.inkBounds.yMin, yMin);
  EXPECT_DOUBLE_EQ(geometry.inkBounds.yMax, yMax);
  EXPECT_DOUBLE_EQ(geometry.boxBounds.xMax, std::max(geometry.lineWidths[0], geometry.lineWidths[1]));
  EXPECT_DOUBLE_EQ(geometry.boxBounds.yMax, font->ascender());
  // The ink stays inside the box, give or take the overhang of a glyph's outline.
  EXPECT_GE(geometry.inkBounds.yMin, geometry.boxBounds.yMin - 1);
  EXPECT_LE(geometry.inkBounds.yMax, geometry.boxBounds.yMax + 1);

  // Measuring gives the same bounds without quads.
  const TextGeometry measured = font->measure("Jog, quick\nfox!");
  EXPECT_TRUE(measured.quads.empty());
  EXPECT_FALSE(measured.atlas.valid());
  EXPECT_DOUBLE_EQ(measured.inkBounds.xMax, geometry.inkBounds.xMax);
  EXPECT_DOUBLE_EQ(measured.boxBounds.yMin, geometry.boxBounds.yMin);
}

TEST(TextLayout, EmptyTextHasOneEmptyLineAndNoQuads) {
  ru::Reference<Font> font = defaultFont(16);
  ASSERT_TRUE(font);
  const TextGeometry geometry = font->layout("");
  EXPECT_TRUE(geometry.quads.empty());
  EXPECT_EQ(geometry.numLines, 1);
  EXPECT_FALSE(geometry.inkBounds.valid());
  EXPECT_DOUBLE_EQ(geometry.boxBounds.width(), 0.0);
  EXPECT_DOUBLE_EQ(geometry.boxBounds.yMax, font->ascender());
  EXPECT_TRUE(geometry.atlas.valid());
  EXPECT_FALSE(font->renderText("", {}, ruImage::Byte4(255, 255, 255, 255)));
  // Spaces have advance but no ink.
  const TextGeometry spaces = font->layout("   ");
  EXPECT_TRUE(spaces.quads.empty());
  EXPECT_DOUBLE_EQ(spaces.lineWidths[0], 3 * font->advance(U' '));
  EXPECT_DOUBLE_EQ(font->layout("\t").lineWidths[0], 4 * font->advance(U' '));
}

TEST(TextLayout, Utf8TextGivesItsCodePoints) {
  ru::Reference<Font> font = defaultFont(16);
  ASSERT_TRUE(font);
  const TextGeometry geometry = font->layout("\xC3\xA9\xE2\x82\xAC\xCE\xA9");  // é € Ω
  ASSERT_EQ(geometry.quads.size(), 3u);
  EXPECT_EQ(geometry.quads[0].codePoint, U'\u00E9');
  EXPECT_EQ(geometry.quads[1].codePoint, U'\u20AC');
  EXPECT_EQ(geometry.quads[2].codePoint, U'\u03A9');
  EXPECT_EQ(geometry.quads[2].characterIndex, 2);
}

TEST(TextLayout, InvalidBytesBecomeReplacementCharacters) {
  ru::Reference<Font> font = defaultFont(16);
  ASSERT_TRUE(font);
  const GlyphBitmap replacement = font->rasterizeGlyph(U'\uFFFD');
  ASSERT_TRUE(replacement.image);
  for (const char* text : {"a\xFF" "b", "a\xE2\x82" "b", "a\x80\x80" "b", "\xC3", "\xF0\x9F\x98"}) {
    const TextGeometry geometry = font->layout(text);
    ASSERT_FALSE(geometry.quads.empty()) << text;
    int replacements = 0;
    for (const GlyphQuad& quad : geometry.quads) {
      if (quad.codePoint == U'\uFFFD') {
        ++replacements;
        EXPECT_EQ(quad.atlasWidth, replacement.image->xSize());
        EXPECT_EQ(quad.atlasHeight, replacement.image->ySize());
      }
    }
    EXPECT_GE(replacements, 1) << text;
  }
  // A character the face lacks draws the replacement glyph as well.
  ASSERT_FALSE(font->hasGlyph(U'\u4E2D'));
  const TextGeometry missing = font->layout("\xE4\xB8\xAD");
  ASSERT_EQ(missing.quads.size(), 1u);
  EXPECT_EQ(missing.quads[0].codePoint, U'\u4E2D');
  EXPECT_EQ(missing.quads[0].atlasWidth, replacement.image->xSize());
}

// --- The atlas ----------------------------------------------------------------------------------------

TEST(GlyphAtlas, QuadsAddressTheirGlyphTopRowFirst) {
  ru::Reference<Font> font = defaultFont(32);
  ASSERT_TRUE(font);
  const TextGeometry geometry = font->layout("T");
  ASSERT_EQ(geometry.quads.size(), 1u);
  const GlyphQuad& t = geometry.quads[0];
  const ImageKeyAccessor accessor(geometry.atlas);
  ASSERT_TRUE(accessor.image());
  EXPECT_EQ(accessor.xSize(), geometry.atlasWidth);
  EXPECT_EQ(accessor.ySize(), geometry.atlasHeight);
  const auto& atlas = static_cast<const ruImage::TypedImage<ruImage::Byte4>&>(*accessor.image());
  // The bar of the T is the glyph's top row: at atlas row atlasY, and at v1 (the quad's top).
  auto inked = [&](int row) {
    int count = 0;
    for (int x = 0; x < t.atlasWidth; ++x) count += atlas.pixel(t.atlasX + x, row).a >= 128 ? 1 : 0;
    return count;
  };
  EXPECT_GT(inked(t.atlasY), t.atlasWidth * 3 / 4);
  EXPECT_LT(inked(t.atlasY + t.atlasHeight - 1), t.atlasWidth / 3);
  EXPECT_FLOAT_EQ(t.v1, float(t.atlasY) / geometry.atlasHeight);
  EXPECT_FLOAT_EQ(t.v0, float(t.atlasY + t.atlasHeight) / geometry.atlasHeight);
  EXPECT_FLOAT_EQ(t.u0, float(t.atlasX) / geometry.atlasWidth);
  EXPECT_FLOAT_EQ(t.u1, float(t.atlasX + t.atlasWidth) / geometry.atlasWidth);
  EXPECT_GT(t.v0, t.v1);
  // The atlas holds exactly the glyph's coverage, on white.
  const GlyphBitmap bitmap = font->rasterizeGlyph(U'T');
  for (int y = 0; y < t.atlasHeight; ++y) {
    for (int x = 0; x < t.atlasWidth; ++x) {
      const ruImage::Byte4& p = atlas.pixel(t.atlasX + x, t.atlasY + y);
      ASSERT_EQ(p.a, bitmap.image->pixel(x, y).value);
      ASSERT_EQ(p.r, 255);
    }
  }
}

TEST(GlyphAtlas, AsciiIsThereFromTheStartAndNewGlyphsMakeANewKey) {
  ru::Reference<Font> font = defaultFont(20);
  ASSERT_TRUE(font);
  const TextGeometry ascii = font->layout("The quick brown fox jumps over 13 lazy dogs. {}[]~");
  const ImageKey first = ascii.atlas;
  EXPECT_TRUE(font->layout("ASCII \xEF\xBF\xBD only").atlas == first);  // U+FFFD is preloaded too
  EXPECT_EQ(font->atlasRevision(), 1);

  const ImageKeyAccessor before(first);
  const ru::Reference<ruImage::Image> snapshot = before.image()->clone();

  const TextGeometry cyrillic = font->layout("\xD0\x96\xD0\xB8\xD0\xB7\xD0\xBD\xD1\x8C");  // Жизнь
  EXPECT_FALSE(cyrillic.atlas == first);
  EXPECT_EQ(font->atlasRevision(), 2);
  // The key handed out before still shows the atlas as it was.
  ASSERT_EQ(before.image()->byteSize(), snapshot->byteSize());
  EXPECT_EQ(std::memcmp(before.image()->bytes(), snapshot->bytes(), snapshot->byteSize()), 0);
  // Laying out known glyphs again changes nothing further.
  EXPECT_TRUE(font->layout("\xD0\x96 and ASCII").atlas == cyrillic.atlas);
  EXPECT_TRUE(font->atlasKey() == cyrillic.atlas);
}

TEST(GlyphAtlas, GrowsAndKeepsGlyphsApart) {
  ru::Reference<Font> font = defaultFont(48);
  ASSERT_TRUE(font);
  std::u32string everything;
  for (char32_t c = 0x400; c < 0x500; ++c) everything += c;
  for (char32_t c = 0x391; c < 0x3CA; ++c) everything += c;
  const TextGeometry geometry = font->layout(ruString::IString::fromCodePoints(everything));
  ASSERT_GT(geometry.quads.size(), 200u);
  EXPECT_GT(geometry.atlasHeight, 256);
  const ImageKeyAccessor accessor(geometry.atlas);
  EXPECT_EQ(accessor.xSize(), geometry.atlasWidth);
  EXPECT_EQ(accessor.ySize(), geometry.atlasHeight);
  for (std::size_t i = 0; i < geometry.quads.size(); ++i) {
    const GlyphQuad& a = geometry.quads[i];
    EXPECT_GE(a.atlasX, 0);
    EXPECT_GE(a.atlasY, 0);
    EXPECT_LE(a.atlasX + a.atlasWidth, geometry.atlasWidth);
    EXPECT_LE(a.atlasY + a.atlasHeight, geometry.atlasHeight);
    EXPECT_GE(a.u0, 0.0f);
    EXPECT_LE(a.u1, 1.0f);
    EXPECT_LE(a.v0, 1.0f);
    EXPECT_GE(a.v1, 0.0f);
    for (std::size_t j = i + 1; j < geometry.quads.size(); ++j) {
      const GlyphQuad& b = geometry.quads[j];
      if (a.atlasX == b.atlasX && a.atlasY == b.atlasY) continue;  // the same glyph twice
      const bool apart = a.atlasX + a.atlasWidth < b.atlasX || b.atlasX + b.atlasWidth < a.atlasX ||
                         a.atlasY + a.atlasHeight < b.atlasY || b.atlasY + b.atlasHeight < a.atlasY;
      ASSERT_TRUE(apart) << "glyphs " << i << " and " << j << " overlap in the atlas";
    }
  }
  // The atlas is white with coverage in alpha; written dark on light to be looked at.
  const auto& atlas = static_cast<const ruImage::TypedImage<ruImage::Byte4>&>(*accessor.image());
  ruImage::TypedImage<ruImage::Byte4> visible(atlas.xSize(), atlas.ySize());
  for (int i = 0; i < atlas.xSize() * atlas.ySize(); ++i) {
    const std::uint8_t v = static_cast<std::uint8_t>(255 - atlas.pixels()[i].a);
    visible.pixels()[i] = ruImage::Byte4(v, v, v, 255);
  }
  ASSERT_TRUE(ruImage::writePng(visible, (outputFolder() / "glyph_atlas_48.png").string().c_str()));
}

TEST(GlyphAtlas, LargeSizesAddGlyphsOnlyAsTextAsksForThem) {
  ru::Reference<Font> font = defaultFont(256);
  ASSERT_TRUE(font);
  // Nothing is in the atlas yet: too short for even one glyph of this size.
  const int emptyHeight = ImageKeyAccessor(font->atlasKey()).ySize();
  EXPECT_LT(emptyHeight, font->rasterizeGlyph(U'B').image->ySize());
  const TextGeometry geometry = font->layout("Big W");
  EXPECT_GT(geometry.atlasHeight, emptyHeight);
  ASSERT_EQ(geometry.quads.size(), 4u);
  for (const GlyphQuad& quad : geometry.quads) {
    EXPECT_LE(quad.atlasX + quad.atlasWidth, geometry.atlasWidth);
    EXPECT_LE(quad.atlasY + quad.atlasHeight, geometry.atlasHeight);
    EXPECT_GT(quad.atlasHeight, 100);
  }
  EXPECT_LE(geometry.atlasWidth, 4096);
  EXPECT_LE(geometry.atlasHeight, 4096);
}

// --- Rendering ----------------------------------------------------------------------------------------

TEST(TextImage, RenderedTextHasTheInkOfItsGlyphsWhereTheLayoutPutsThem) {
  ru::Reference<Font> font = defaultFont(28);
  ASSERT_TRUE(font);
  const ruString::IString text("Print preparation \xE2\x80\x94 \xC3\x84\xC3\x96\xC3\x9C 123\nA second line, kerned: AVAW Ty");
  int originX = 0, originY = 0;
  const ruImage::Byte4 colour(20, 40, 200, 255);
  ru::Reference<ruImage::TypedImage<ruImage::Byte4>> image = font->renderText(text, {}, colour, 2, &originX, &originY);
  ASSERT_TRUE(image);
  const TextGeometry geometry = font->layout(text);
  EXPECT_EQ(image->xSize(), int(geometry.inkBounds.width()) + 4);
  EXPECT_EQ(image->ySize(), int(geometry.inkBounds.height()) + 4);
  EXPECT_EQ(originX, 2 - int(geometry.inkBounds.xMin));
  EXPECT_EQ(originY, 2 + int(geometry.inkBounds.yMax));
  // Every glyph's coverage appears at its quad: image row = originY - y (rows go down, y goes up).
  for (const GlyphQuad& quad : geometry.quads) {
    const GlyphBitmap bitmap = font->rasterizeGlyph(quad.codePoint);
    int matched = 0, inked = 0;
    for (int y = 0; y < quad.atlasHeight; ++y) {
      for (int x = 0; x < quad.atlasWidth; ++x) {
        if (bitmap.image->pixel(x, y).value < 200) continue;
        ++inked;
        const int column = originX + int(quad.x0) + x;
        const int row = originY - int(quad.y1) + y;
        const ruImage::Byte4& p = image->pixel(column, row);
        matched += (p.a >= 200 && p.r == colour.r && p.b == colour.b) ? 1 : 0;
      }
    }
    EXPECT_EQ(matched, inked) << "glyph U+" << std::hex << int(quad.codePoint);
  }
  // The padding is clear.
  for (int x = 0; x < image->xSize(); ++x) EXPECT_EQ(image->pixel(x, 0).a, 0);
  ASSERT_TRUE(ruImage::writePng(*image, (outputFolder() / "text_sample.png").string().c_str()));

  TextLayoutOptions centred;
  centred.align = TextAlign::Centre;
  centred.anchor = TextAnchor::Centre;
  ru::Reference<ruImage::TypedImage<ruImage::Byte4>> block =
      font->renderText("Centred\nand anchored\nin the middle", centred, ruImage::Byte4(0, 0, 0, 255), 4);
  ASSERT_TRUE(block);
  ASSERT_TRUE(ruImage::writePng(*block, (outputFolder() / "text_centred.png").string().c_str()));
}
