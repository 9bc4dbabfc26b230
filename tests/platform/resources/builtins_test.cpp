#include "platform/resources/builtins.h"

#include "platform/image/png.h"
#include "platform/resources/font.h"
#include "platform/resources/resources.h"
#include "platform/support/debug.h"

#include <gtest/gtest.h>

#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_TRUETYPE_TABLES_H

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

using namespace voRES;

namespace {

using Image4 = ruImage::TypedImage<ruImage::Byte4>;

std::filesystem::path outputFolder() {
  std::filesystem::path folder(DMGUI_TEST_OUTPUT_DIR);
  std::filesystem::create_directories(folder);
  return folder;
}

const Image4& pixelsOf(const ImageKey& key) {
  const ImageKeyAccessor accessor(key);
  return static_cast<const Image4&>(*accessor.image());
}

std::string fileStem(const char* name, const char* state) {
  std::string stem = Loader::fileName(name, state).c_str();
  return stem.substr(0, stem.size() - 4);
}

// The names exactly as the drawing and snapping code asks for them, with the states asked.
struct Wanted {
  const char* name;
  bool states;
};
const Wanted wantedImages[] = {
    {"DMG//ModelingPlane", false},      {"DMG//AxisX_Billboard", false},  {"DMG//AxisY_Billboard", false},
    {"DMG//AxisZ_Billboard", false},    {"DMG/PointSnapResult", true},    {"DMG/SurfaceSnapResult", true},
    {"DMG/AxisSnapResult", true},       {"DMG/CenterSnapCandidate", true}, {"DMG/CenterSnapResult", true},
};
const char* const states[] = {"default", "highlight", "selected"};

bool sameImage(const Image4& a, const Image4& b) {
  return a.xSize() == b.xSize() && a.ySize() == b.ySize() && std::memcmp(a.bytes(), b.bytes(), a.byteSize()) == 0;
}

// Capital height of DejaVu Sans Bold at `size` pixels, from the face's design units.
double boldCapHeight(int size) {
  const ruString::CString path = Font::findFontFile("DejaVu Sans", FontStyle::Bold);
  FT_Library library = nullptr;
  FT_Face face = nullptr;
  FT_Init_FreeType(&library);
  double height = 0;
  if (FT_New_Face(library, path.c_str(), 0, &face) == 0) {
    const TT_OS2* os2 = static_cast<const TT_OS2*>(FT_Get_Sfnt_Table(face, FT_SFNT_OS2));
    FT_Set_Pixel_Sizes(face, 0, static_cast<FT_UInt>(size));
    if (os2 && os2->version >= 2 && os2->sCapHeight > 0) {
      height = double(os2->sCapHeight) * size / face->units_per_EM;
    } else if (FT_Load_Char(face, 'H', FT_LOAD_NO_HINTING | FT_LOAD_NO_BITMAP) == 0) {
      height = face->glyph->metrics.horiBearingY / 64.0;
    }
    FT_Done_Face(face);
  }
  FT_Done_FreeType(library);
  return height;
}

struct InkBox {
  int xMin = 1 << 30, yMin = 1 << 30, xMax = -1, yMax = -1, count = 0;
  void add(int x, int y) {
    xMin = std::min(xMin, x);
    yMin = std::min(yMin, y);
    xMax = std::max(xMax, x);
    yMax = std::max(yMax, y);
    ++count;
  }
};

// Lays images side by side, each scaled up `zoom` times over a grey and white check, so that a
// person can look at them.
void writeContactSheet(const std::vector<const Image4*>& images, int zoom, const std::filesystem::path& path) {
  int width = 0, height = 0;
  for (const Image4* image : images) {
    width += image->xSize() * zoom + 8;
    height = std::max(height, image->ySize() * zoom + 8);
  }
  Image4 sheet(width, height);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const std::uint8_t check = ((x / 8 + y / 8) % 2) ? 150 : 110;
      sheet.pixel(x, y) = ruImage::Byte4(check, check, check, 255);
    }
  }
  int left = 4;
  for (const Image4* image : images) {
    for (int y = 0; y < image->ySize() * zoom; ++y) {
      for (int x = 0; x < image->xSize() * zoom; ++x) {
        const ruImage::Byte4 p = image->pixel(x / zoom, y / zoom);
        ruImage::Byte4& out = sheet.pixel(left + x, 4 + y);
        auto mix = [&](std::uint8_t top, std::uint8_t below) { return std::uint8_t((top * p.a + below * (255 - p.a)) / 255); };
        out = ruImage::Byte4(mix(p.r, out.r), mix(p.g, out.g), mix(p.b, out.b), 255);
      }
    }
    left += image->xSize() * zoom + 8;
  }
  ASSERT_TRUE(ruImage::writePng(sheet, path.string().c_str()));
}

}  // namespace

TEST(BuiltinImages, EveryNameTheLibraryUsesLoadsWithItsStates) {
  Loader loader;
  for (const Wanted& wanted : wantedImages) {
    ASSERT_TRUE(isBuiltinImage(wanted.name)) << wanted.name;
    const ImageKey plain = loader.createImageKey(wanted.name, 0);
    ASSERT_TRUE(plain.valid()) << wanted.name;
    const ImageKeyAccessor accessor(plain);
    EXPECT_GT(accessor.xSize(), 0);
    EXPECT_GT(accessor.ySize(), 0);
    ASSERT_TRUE(ruImage::writePng(*accessor.image(), (outputFolder() / (fileStem(wanted.name, "") + ".png")).string().c_str()));
    for (const char* state : states) {
      const ImageKey key = loader.createImageKey(wanted.name, state, 0);
      EXPECT_EQ(key.valid(), wanted.states) << wanted.name << " " << state;
      if (!key.valid()) continue;
      EXPECT_EQ(ImageKeyAccessor(key).xSize(), accessor.xSize());
      EXPECT_EQ(ImageKeyAccessor(key).ySize(), accessor.ySize());
      ASSERT_TRUE(ruImage::writePng(pixelsOf(key), (outputFolder() / (fileStem(wanted.name, state) + ".png")).string().c_str()));
    }
  }
  EXPECT_EQ(builtinImages().size(), std::size(wantedImages));

  std::vector<const Image4*> marks, names;
  for (const Wanted& wanted : wantedImages) {
    if (wanted.states) {
      for (const char* state : states) marks.push_back(&pixelsOf(loader.createImageKey(wanted.name, state, 0)));
    } else if (std::string(wanted.name).find("Axis") != std::string::npos) {
      names.push_back(&pixelsOf(loader.createImageKey(wanted.name, 0)));
    }
  }
  writeContactSheet(marks, 6, outputFolder() / "sheet_snap_marks.png");
  writeContactSheet(names, 8, outputFolder() / "sheet_axis_names.png");
  writeContactSheet({&pixelsOf(loader.createImageKey("DMG//ModelingPlane", 0))}, 2, outputFolder() / "sheet_modeling_plane.png");
}

TEST(BuiltinImages, NamesMatchExactly) {
  Loader loader;
  for (const char* near : {"DMG/ModelingPlane", "DMG///ModelingPlane", "dmg//modelingplane", "DMG//ModellingPlane",
                           "DMG/AxisX_Billboard", "DMG//PointSnapResult", "DMG/PointSnapResult ", "DMG/AxisSnapresult"}) {
    EXPECT_FALSE(loader.createImageKey(near, 0).valid()) << near;
    EXPECT_FALSE(isBuiltinImage(near));
  }
  EXPECT_FALSE(loader.createImageKey("DMG/PointSnapResult", "hover", 0).valid());
  EXPECT_FALSE(loader.createImageKey("DMG//ModelingPlane", "highlight", 0).valid());
}

TEST(BuiltinImages, SizesAreThoseOfTheirDesign) {
  Loader loader;
  const ImageKeyAccessor grid(loader.createImageKey("DMG//ModelingPlane", 0));
  EXPECT_EQ(grid.xSize(), builtin::gridCells * builtin::gridCellPixels);
  EXPECT_EQ(grid.ySize(), builtin::gridCells * builtin::gridCellPixels);
  for (const char* axis : {"DMG//AxisX_Billboard", "DMG//AxisY_Billboard", "DMG//AxisZ_Billboard"}) {
    const ImageKeyAccessor name(loader.createImageKey(axis, 0));
    EXPECT_EQ(name.xSize(), builtin::axisNamePixels);
    EXPECT_EQ(name.ySize(), builtin::axisNamePixels);
  }
  for (const BuiltinImage& image : builtinImages()) {
    const ImageKeyAccessor accessor(loader.createImageKey(image.name, 0));
    EXPECT_EQ(accessor.xSize(), image.width) << image.name;
    EXPECT_EQ(accessor.ySize(), image.height) << image.name;
    if (image.hasStates) {
      // Marks are centred on their anchor: odd sizes put a pixel on the centre.
      EXPECT_EQ(image.width % 2, 1) << image.name;
      EXPECT_EQ(image.width, image.height) << image.name;
      EXPECT_GE(image.width, 9);
      EXPECT_LE(image.width, 32);
    }
  }
}

TEST(BuiltinImages, GridLinesLieOnTheCellEdges) {
  Loader loader;
  const Image4& grid = pixelsOf(loader.createImageKey("DMG//ModelingPlane", 0));
  const int cell = builtin::gridCellPixels;
  const int majorPeriod = cell * builtin::gridMajorEvery;
  auto onLine = [&](int p, int period) { return p % period == 0 || p % period == period - 1; };
  const ruImage::Byte4 inside = grid.pixel(cell / 2, cell / 2);
  EXPECT_GT(inside.a, 0) << "the sheet is faintly visible";
  EXPECT_LT(inside.a, 96) << "and lets the model show through";
  const ruImage::Byte4 minorLine = grid.pixel(cell, cell / 2);
  const ruImage::Byte4 majorLine = grid.pixel(majorPeriod, cell / 2);
  EXPECT_GT(minorLine.a, inside.a + 64);
  EXPECT_GT(majorLine.a, minorLine.a);
  EXPECT_LT(majorLine.r, minorLine.r);
  for (int y = 0; y < grid.ySize(); ++y) {
    for (int x = 0; x < grid.xSize(); ++x) {
      const bool major = onLine(x, majorPeriod) || onLine(y, majorPeriod);
      const bool minor = !major && (onLine(x, cell) || onLine(y, cell));
      const ruImage::Byte4 expected = major ? majorLine : minor ? minorLine : inside;
      ASSERT_EQ(grid.pixel(x, y), expected) << "pixel " << x << ", " << y;
    }
  }
  // Repeats seamlessly: the first and last columns and rows are half lines of the same kind.
  for (int i = 0; i < grid.xSize(); ++i) {
    EXPECT_EQ(grid.pixel(0, i), grid.pixel(grid.xSize() - 1, i));
    EXPECT_EQ(grid.pixel(i, 0), grid.pixel(i, grid.ySize() - 1));
  }
}

TEST(BuiltinImages, AxisNamesAreTheirLettersInTheirColours) {
  Loader loader;
  const double capHeight = boldCapHeight(builtin::axisNameFontPixels);
  ASSERT_GT(capHeight, 8.0);
  struct Axis {
    const char* name;
    int channel;  // 0 red, 1 green, 2 blue
  };
  std::vector<const Image4*> images;
  for (const Axis axis : {Axis{"DMG//AxisX_Billboard", 0}, Axis{"DMG//AxisY_Billboard", 1}, Axis{"DMG//AxisZ_Billboard", 2}}) {
    const Image4& image = pixelsOf(loader.createImageKey(axis.name, 0));
    images.push_back(&image);
    InkBox letter;
    InkBox anything;
    for (int y = 0; y < image.ySize(); ++y) {
      for (int x = 0; x < image.xSize(); ++x) {
        const ruImage::Byte4& p = image.pixel(x, y);
        if (p.a > 0) anything.add(x, y);
        const int channels[3] = {p.r, p.g, p.b};
        const int others = std::max(channels[(axis.channel + 1) % 3], channels[(axis.channel + 2) % 3]);
        if (p.a >= 200 && channels[axis.channel] >= 150 && channels[axis.channel] > others + 80) letter.add(x, y);
      }
    }
    ASSERT_GT(letter.count, 20) << axis.name;
    // Everything drawn, rim included, stays off the image's edges.
    EXPECT_GE(anything.xMin, 1) << axis.name;
    EXPECT_GE(anything.yMin, 1) << axis.name;
    EXPECT_LE(anything.xMax, image.xSize() - 2) << axis.name;
    EXPECT_LE(anything.yMax, image.ySize() - 2) << axis.name;
    // A capital letter of the font's capital height, centred.
    EXPECT_NEAR(letter.yMax - letter.yMin + 1, capHeight, 1.5) << axis.name;
    EXPECT_NEAR((letter.xMin + letter.xMax + 1) / 2.0, image.xSize() / 2.0, 1.0) << axis.name;
    EXPECT_NEAR((letter.yMin + letter.yMax + 1) / 2.0, image.ySize() / 2.0, 1.0) << axis.name;
  }
  EXPECT_FALSE(sameImage(*images[0], *images[1]));
  EXPECT_FALSE(sameImage(*images[1], *images[2]));
  // Top row first: the Y's arms are at the top, its stem at the bottom, so the top ink row is wider.
  const Image4& y = *images[1];
  auto rowInk = [&](int row) {
    int count = 0;
    for (int x = 0; x < y.xSize(); ++x) count += (y.pixel(x, row).a >= 200 && y.pixel(x, row).g >= 150) ? 1 : 0;
    return count;
  };
  int top = 0, bottom = y.ySize() - 1;
  while (top < y.ySize() && rowInk(top) == 0) ++top;
  while (bottom > 0 && rowInk(bottom) == 0) --bottom;
  EXPECT_GT(rowInk(top + 1), rowInk(bottom - 1) + 2);
}

TEST(BuiltinImages, MarksAreCentredSymmetricAndClearAtTheCorners) {
  Loader loader;
  for (const BuiltinImage& mark : builtinImages()) {
    if (!mark.hasStates) continue;
    const Image4& image = pixelsOf(loader.createImageKey(mark.name, "default", 0));
    const int n = image.xSize();
    int opaque = 0;
    for (int y = 0; y < n; ++y) {
      for (int x = 0; x < n; ++x) {
        // Point-symmetric about the centre pixel, and mirror-symmetric both ways.
        ASSERT_NEAR(image.pixel(x, y).a, image.pixel(n - 1 - x, n - 1 - y).a, 1) << mark.name;
        ASSERT_NEAR(image.pixel(x, y).a, image.pixel(n - 1 - x, y).a, 1) << mark.name;
        opaque += image.pixel(x, y).a >= 200 ? 1 : 0;
      }
    }
    EXPECT_GT(opaque, 12) << mark.name;
    EXPECT_EQ(image.pixel(0, 0).a, 0) << mark.name;
    EXPECT_EQ(image.pixel(n - 1, n - 1).a, 0) << mark.name;
    // Nothing is cut off: the outermost pixels are (nearly) clear all round.
    for (int i = 0; i < n; ++i) {
      EXPECT_LT(image.pixel(i, 0).a, 40) << mark.name << " column " << i;
      EXPECT_LT(image.pixel(0, i).a, 40) << mark.name << " row " << i;
    }
    const ruImage::Byte4 centre = image.pixel(n / 2, n / 2);
    if (std::strcmp(mark.name, "DMG/CenterSnapCandidate") == 0) {
      EXPECT_EQ(centre.a, 0) << "an offered centre leaves its middle open";
    } else {
      EXPECT_EQ(centre.a, 255) << mark.name;
    }
  }
  // A caught centre is bolder than an offered one: more pixels in the mark's own (warm) colour.
  auto coverage = [&](const char* name) {
    const Image4& image = pixelsOf(loader.createImageKey(name, "default", 0));
    int count = 0;
    for (int i = 0; i < image.xSize() * image.ySize(); ++i) {
      const ruImage::Byte4& p = image.pixels()[i];
      count += (p.a >= 200 && p.r >= 200) ? 1 : 0;
    }
    return count;
  };
  EXPECT_GT(coverage("DMG/CenterSnapResult"), coverage("DMG/CenterSnapCandidate") * 3 / 2);
}

TEST(BuiltinImages, StatesDifferAndThePlainImageIsTheDefault) {
  Loader loader;
  for (const BuiltinImage& mark : builtinImages()) {
    if (!mark.hasStates) continue;
    const Image4& plain = pixelsOf(loader.createImageKey(mark.name, 0));
    const Image4& normal = pixelsOf(loader.createImageKey(mark.name, "default", 0));
    const Image4& highlight = pixelsOf(loader.createImageKey(mark.name, "highlight", 0));
    const Image4& selected = pixelsOf(loader.createImageKey(mark.name, "selected", 0));
    EXPECT_TRUE(sameImage(plain, normal)) << mark.name;
    EXPECT_FALSE(sameImage(normal, highlight)) << mark.name;
    EXPECT_FALSE(sameImage(normal, selected)) << mark.name;
    EXPECT_FALSE(sameImage(highlight, selected)) << mark.name;
    // The same shape in each state: equal alpha everywhere.
    for (int i = 0; i < normal.xSize() * normal.ySize(); ++i) {
      ASSERT_EQ(normal.pixels()[i].a, highlight.pixels()[i].a) << mark.name;
      ASSERT_EQ(normal.pixels()[i].a, selected.pixels()[i].a) << mark.name;
    }
    // Highlight is the brighter of the two warm states.
    const int c = normal.xSize() / 2;
    const ruImage::Byte4 n = normal.pixel(c, c), h = highlight.pixel(c, c);
    if (n.a == 255) {
      EXPECT_GT(h.r + h.g + h.b, n.r + n.g + n.b) << mark.name;
    }
  }
}

TEST(BuiltinImages, AHostImageOfTheSameNameWins) {
  Loader loader;
  ru::Reference<ruImage::Image> own(new Image4(8, 4));
  loader.addImage("DMG//ModelingPlane", own);
  EXPECT_EQ(ImageKeyAccessor(loader.createImageKey("DMG//ModelingPlane", 0)).xSize(), 8);
  loader.addImage("DMG//ModelingPlane", nullptr);
  EXPECT_EQ(ImageKeyAccessor(loader.createImageKey("DMG//ModelingPlane", 0)).xSize(), builtin::gridPixels);
}

TEST(BuiltinImages, ALoaderCanDoWithoutThem) {
  Loader loader;
  EXPECT_TRUE(loader.builtinImagesEnabled());
  loader.setBuiltinImagesEnabled(false);
  EXPECT_FALSE(loader.createImageKey("DMG//ModelingPlane", 0).valid());
  EXPECT_FALSE(loader.createImageKey("DMG/PointSnapResult", "default", 0).valid());
  loader.setBuiltinImagesEnabled(true);
  EXPECT_TRUE(loader.createImageKey("DMG/PointSnapResult", "default", 0).valid());
}

TEST(BuiltinImages, KeysAreCachedByNameAndState) {
  Loader loader;
  const ImageKey a = loader.createImageKey("DMG/AxisSnapResult", "selected", 0);
  EXPECT_TRUE(loader.createImageKey("DMG/AxisSnapResult", "selected", 0) == a);
  EXPECT_FALSE(loader.createImageKey("DMG/AxisSnapResult", "highlight", 0) == a);
}

TEST(BuiltinImages, DrawingAnUnknownImageSaysWhy) {
  ruString::CString error;
  EXPECT_FALSE(drawBuiltinImage("DMG/NoSuchImage", "", &error));
  EXPECT_NE(error.find("DMG/NoSuchImage"), ruString::CString::npos);
  error = "";
  EXPECT_FALSE(drawBuiltinImage("DMG//AxisX_Billboard", "selected", &error));
  EXPECT_NE(error.find("selected"), ruString::CString::npos);
}
