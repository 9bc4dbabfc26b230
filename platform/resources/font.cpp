#include "platform/resources/font.h"

#include "platform/support/debug.h"

#include <ft2build.h>
#include FT_FREETYPE_H

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace voRES {

namespace {

constexpr char32_t replacementCharacter = U'\uFFFD';
// Empty pixels between glyphs in the atlas, so that filtering never reaches a neighbour.
constexpr int atlasGap = 2;
constexpr int maxAtlasSide = 4096;
constexpr int maxPixelSize = 512;
constexpr int preloadPixels = 64;

int roundToPixels(FT_Pos value26d6) { return static_cast<int>((value26d6 + (value26d6 >= 0 ? 32 : -32)) / 64); }

bool isBold(FontStyle style) { return style == FontStyle::Bold || style == FontStyle::BoldOblique; }
bool isOblique(FontStyle style) { return style == FontStyle::Oblique || style == FontStyle::BoldOblique; }

const char* styleName(FontStyle style) {
  switch (style) {
    case FontStyle::Regular: return "Regular";
    case FontStyle::Bold: return "Bold";
    case FontStyle::Oblique: return "Oblique";
    case FontStyle::BoldOblique: return "Bold Oblique";
  }
  return "?";
}

std::string lowerCase(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

// --- Font folders and the index of the faces they hold -------------------------------------------

struct FaceRecord {
  std::string family;  // lower case
  std::string styleName;
  bool bold = false;
  bool italic = false;
  std::string path;
};

struct FontIndex {
  std::mutex mutex;
  std::vector<std::string> userFolders;
  std::vector<FaceRecord> faces;
  bool scanned = false;
};

FontIndex& fontIndex() {
  static FontIndex index;
  return index;
}

std::vector<std::string> systemFontFolders() {
  return {"/usr/share/fonts/truetype/dejavu", "/usr/share/fonts", "/usr/local/share/fonts"};
}

// Reads the family and style of every face under the folders; called with the index locked.
void scanFonts(FontIndex& index) {
  index.faces.clear();
  FT_Library library = nullptr;
  if (FT_Init_FreeType(&library) != 0) return;
  std::vector<std::string> folders = index.userFolders;
  for (std::string& folder : systemFontFolders()) folders.push_back(std::move(folder));
  std::vector<std::string> seen;
  for (const std::string& folder : folders) {
    std::error_code error;
    std::filesystem::recursive_directory_iterator it(folder, std::filesystem::directory_options::skip_permission_denied, error);
    if (error) continue;
    for (; it != std::filesystem::recursive_directory_iterator(); it.increment(error)) {
      if (error) break;
      if (!it->is_regular_file(error)) continue;
      const std::string extension = lowerCase(it->path().extension().string());
      if (extension != ".ttf" && extension != ".otf" && extension != ".ttc") continue;
      const std::string path = it->path().lexically_normal().string();
      if (std::find(seen.begin(), seen.end(), path) != seen.end()) continue;
      seen.push_back(path);
      FT_Face face = nullptr;
      if (FT_New_Face(library, path.c_str(), 0, &face) != 0) continue;
      if (face->family_name) {
        FaceRecord record;
        record.family = lowerCase(face->family_name);
        record.styleName = face->style_name ? face->style_name : "";
        record.bold = (face->style_flags & FT_STYLE_FLAG_BOLD) != 0;
        record.italic = (face->style_flags & FT_STYLE_FLAG_ITALIC) != 0;
        record.path = path;
        index.faces.push_back(std::move(record));
      }
      FT_Done_Face(face);
    }
  }
  FT_Done_FreeType(library);
  index.scanned = true;
}

// Faces named plainly ("Book", "Bold") win over variants of the same flags ("Condensed", "ExtraLight").
bool isPlainStyleName(const std::string& name) {
  static const char* const plain[] = {"Regular", "Book", "Normal", "Roman", "Bold", "Oblique", "Italic", "Bold Oblique", "Bold Italic"};
  for (const char* p : plain) {
    if (name == p) return true;
  }
  return false;
}

// --- Glyphs and the atlas ----------------------------------------------------------------------------

struct Glyph {
  FT_UInt index = 0;
  int advance = 0;  // pixels
  int left = 0, top = 0, width = 0, height = 0;
  std::vector<std::uint8_t> coverage;  // width * height bytes, top row first
  int atlasX = -1, atlasY = -1;        // -1 until placed
};

}  // namespace

struct Font::Impl {
  FT_Library library = nullptr;
  FT_Face face = nullptr;
  ruString::CString family;
  ruString::CString path;
  FontStyle style = FontStyle::Regular;
  int pixelSize = 0;
  double ascender = 0, descender = 0, lineHeight = 0;
  bool kerning = false;
  FT_UInt replacementIndex = 0;
  std::unordered_map<char32_t, Glyph> glyphs;

  // The atlas: white pixels, glyph coverage in alpha, glyphs packed on shelves.
  ru::Reference<ruImage::TypedImage<ruImage::Byte4>> atlas;
  int shelfX = atlasGap, shelfY = atlasGap, shelfHeight = 0;
  ImageKey atlasKey;  // valid once handed out; the image behind it is then never written again
  int revision = 1;

  ~Impl() {
    if (face) FT_Done_Face(face);
    if (library) FT_Done_FreeType(library);
  }

  Glyph& glyph(char32_t codePoint);
  bool place(Glyph& glyph);
  void writeAtlas(const Glyph& glyph);
  void detachAtlas();
  TextGeometry layout(const ruString::IString& text, const TextLayoutOptions& options, bool placeGlyphs);
};

Glyph& Font::Impl::glyph(char32_t codePoint) {
  if (auto found = glyphs.find(codePoint); found != glyphs.end()) return found->second;
  Glyph& g = glyphs[codePoint];
  g.index = FT_Get_Char_Index(face, codePoint);
  if (g.index == 0) g.index = replacementIndex;
  if (FT_Load_Glyph(face, g.index, FT_LOAD_DEFAULT) != 0) return g;
  FT_GlyphSlot slot = face->glyph;
  g.advance = roundToPixels(slot->advance.x);
  if (FT_Render_Glyph(slot, FT_RENDER_MODE_NORMAL) != 0) return g;
  const FT_Bitmap& bitmap = slot->bitmap;
  if (bitmap.pixel_mode != FT_PIXEL_MODE_GRAY || bitmap.width == 0 || bitmap.rows == 0) return g;
  g.left = slot->bitmap_left;
  g.top = slot->bitmap_top;
  g.width = static_cast<int>(bitmap.width);
  g.height = static_cast<int>(bitmap.rows);
  g.coverage.resize(static_cast<std::size_t>(g.width) * g.height);
  const int pitch = std::abs(bitmap.pitch);
  for (int row = 0; row < g.height; ++row) {
    // A negative pitch stores the bottom row first.
    const int source = bitmap.pitch >= 0 ? row : g.height - 1 - row;
    const std::uint8_t* from = bitmap.buffer + static_cast<std::size_t>(source) * pitch;
    const std::uint8_t max = static_cast<std::uint8_t>(bitmap.num_grays > 1 ? bitmap.num_grays - 1 : 255);
    for (int x = 0; x < g.width; ++x) {
      g.coverage[static_cast<std::size_t>(row) * g.width + x] =
          max == 255 ? from[x] : static_cast<std::uint8_t>(from[x] * 255 / max);
    }
  }
  return g;
}

void Font::Impl::detachAtlas() {
  if (!atlasKey.valid()) return;
  // The image behind the handed-out key stays as it is; further glyphs go into a copy.
  atlas = ru::Reference<ruImage::TypedImage<ruImage::Byte4>>(new ruImage::TypedImage<ruImage::Byte4>(*atlas));
  atlasKey.reset();
  ++revision;
}

bool Font::Impl::place(Glyph& g) {
  if (g.atlasX >= 0 || g.width == 0) return true;
  int width = atlas->xSize();
  int height = atlas->ySize();
  if (shelfX + g.width + atlasGap > width) {
    shelfX = atlasGap;
    shelfY += shelfHeight + atlasGap;
    shelfHeight = 0;
  }
  int newWidth = width;
  while (g.width + 2 * atlasGap > newWidth && newWidth < maxAtlasSide) newWidth *= 2;
  int newHeight = height;
  while (shelfY + g.height + atlasGap > newHeight && newHeight < maxAtlasSide) newHeight *= 2;
  if (g.width + 2 * atlasGap > newWidth || shelfY + g.height + atlasGap > newHeight) return false;
  if (newWidth != width || newHeight != height) {
    ru::Reference<ruImage::TypedImage<ruImage::Byte4>> grown(new ruImage::TypedImage<ruImage::Byte4>(newWidth, newHeight));
    std::fill(grown->pixels(), grown->pixels() + static_cast<std::size_t>(newWidth) * newHeight, ruImage::Byte4(255, 255, 255, 0));
    for (int y = 0; y < height; ++y) std::memcpy(&grown->pixel(0, y), &atlas->pixel(0, y), atlas->rowBytes());
    const bool issued = atlasKey.valid();
    atlas = grown;
    atlasKey.reset();
    if (issued) ++revision;
    if (shelfX + g.width + atlasGap > newWidth) {
      shelfX = atlasGap;
      shelfY += shelfHeight + atlasGap;
      shelfHeight = 0;
    }
  } else {
    detachAtlas();
  }
  g.atlasX = shelfX;
  g.atlasY = shelfY;
  shelfX += g.width + atlasGap;
  shelfHeight = std::max(shelfHeight, g.height);
  writeAtlas(g);
  return true;
}

void Font::Impl::writeAtlas(const Glyph& g) {
  for (int row = 0; row < g.height; ++row) {
    for (int x = 0; x < g.width; ++x) {
      atlas->pixel(g.atlasX + x, g.atlasY + row).a = g.coverage[static_cast<std::size_t>(row) * g.width + x];
    }
  }
}

TextGeometry Font::Impl::layout(const ruString::IString& text, const TextLayoutOptions& options, bool placeGlyphs) {
  TextGeometry result;
  const std::u32string codePoints = text.toCodePoints();
  const int lineStep = static_cast<int>(std::lround(lineHeight * (options.lineSpacing > 0 ? options.lineSpacing : 1.0)));
  const int spaceAdvance = glyph(U' ').advance;

  int line = 0;
  int pen = 0;
  FT_UInt previous = 0;
  std::size_t lineStart = 0;  // first quad of the current line
  double boxLeft = 0, boxRight = 0;
  bool anyLine = false;

  auto finishLine = [&]() {
    const int width = pen;
    int offset = 0;
    if (options.align == TextAlign::Centre) offset = -static_cast<int>(std::lround(width * 0.5));
    if (options.align == TextAlign::Right) offset = -width;
    for (std::size_t q = lineStart; q < result.quads.size(); ++q) {
      result.quads[q].x0 += static_cast<float>(offset);
      result.quads[q].x1 += static_cast<float>(offset);
    }
    result.lineWidths.push_back(width);
    if (!anyLine || offset < boxLeft) boxLeft = offset;
    if (!anyLine || offset + width > boxRight) boxRight = offset + width;
    anyLine = true;
    lineStart = result.quads.size();
  };

  for (std::size_t i = 0; i < codePoints.size(); ++i) {
    const char32_t c = codePoints[i];
    if (c == U'\r' || c == U'\n') {
      if (c == U'\r' && i + 1 < codePoints.size() && codePoints[i + 1] == U'\n') continue;
      finishLine();
      ++line;
      pen = 0;
      previous = 0;
      continue;
    }
    if (c == U'\t') {
      pen += 4 * spaceAdvance;
      previous = 0;
      continue;
    }
    if (c < 0x20 || (c >= 0x7F && c < 0xA0)) continue;
    Glyph& g = glyph(c);
    if (options.kerning && kerning && previous != 0 && g.index != 0) {
      FT_Vector delta{0, 0};
      if (FT_Get_Kerning(face, previous, g.index, FT_KERNING_DEFAULT, &delta) == 0) pen += roundToPixels(delta.x);
    }
    if (g.width > 0 && placeGlyphs && !place(g)) {
      voSupport::Debug::getInstance().print(DebugResources, "voRES::Font::layout", "glyph U+%04X does not fit in the atlas; left out",
                                            static_cast<unsigned>(c));
    } else if (g.width > 0 && placeGlyphs) {
      GlyphQuad quad;
      quad.codePoint = c;
      quad.characterIndex = static_cast<int>(i);
      quad.line = line;
      const int baseline = -line * lineStep;
      quad.x0 = static_cast<float>(pen + g.left);
      quad.x1 = static_cast<float>(pen + g.left + g.width);
      quad.y1 = static_cast<float>(baseline + g.top);
      quad.y0 = static_cast<float>(baseline + g.top - g.height);
      quad.atlasX = g.atlasX;
      quad.atlasY = g.atlasY;
      quad.atlasWidth = g.width;
      quad.atlasHeight = g.height;
      result.quads.push_back(quad);
    } else if (g.width > 0 && !placeGlyphs) {
      // Measuring only: the ink still counts for the bounds.
      const int baseline = -line * lineStep;
      GlyphQuad quad;
      quad.line = line;
      quad.x0 = static_cast<float>(pen + g.left);
      quad.x1 = static_cast<float>(pen + g.left + g.width);
      quad.y1 = static_cast<float>(baseline + g.top);
      quad.y0 = static_cast<float>(baseline + g.top - g.height);
      result.quads.push_back(quad);
    }
    pen += g.advance;
    previous = g.index;
  }
  finishLine();
  result.numLines = line + 1;

  double top = ascender;
  double bottom = -line * lineStep + descender;
  double shift = 0;
  if (options.anchor == TextAnchor::Centre) shift = -std::round((top + bottom) * 0.5);
  result.boxBounds.xMin = boxLeft;
  result.boxBounds.xMax = boxRight;
  result.boxBounds.yMin = bottom + shift;
  result.boxBounds.yMax = top + shift;
  for (GlyphQuad& quad : result.quads) {
    quad.y0 += static_cast<float>(shift);
    quad.y1 += static_cast<float>(shift);
    PixelBounds& ink = result.inkBounds;
    if (!ink.valid()) {
      ink.xMin = quad.x0;
      ink.xMax = quad.x1;
      ink.yMin = quad.y0;
      ink.yMax = quad.y1;
    } else {
      ink.xMin = std::min<double>(ink.xMin, quad.x0);
      ink.xMax = std::max<double>(ink.xMax, quad.x1);
      ink.yMin = std::min<double>(ink.yMin, quad.y0);
      ink.yMax = std::max<double>(ink.yMax, quad.y1);
    }
  }
  if (!placeGlyphs) {
    result.quads.clear();
    return result;
  }
  // Texture coordinates only now: placing a later glyph may have grown the atlas.
  const float w = static_cast<float>(atlas->xSize());
  const float h = static_cast<float>(atlas->ySize());
  for (GlyphQuad& quad : result.quads) {
    quad.u0 = quad.atlasX / w;
    quad.u1 = (quad.atlasX + quad.atlasWidth) / w;
    quad.v1 = quad.atlasY / h;
    quad.v0 = (quad.atlasY + quad.atlasHeight) / h;
  }
  result.atlasWidth = atlas->xSize();
  result.atlasHeight = atlas->ySize();
  if (!atlasKey.valid()) atlasKey = Loader::keyForImage(atlas, "voRES/GlyphAtlas");
  result.atlas = atlasKey;
  return result;
}

// --- Font ---------------------------------------------------------------------------------------------

Font::Font(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
Font::~Font() = default;

ruString::CString Font::findFontFile(const ruString::CString& family, FontStyle style) {
  FontIndex& index = fontIndex();
  std::lock_guard<std::mutex> lock(index.mutex);
  if (!index.scanned) scanFonts(index);
  const std::string wanted = lowerCase(family.str());
  const FaceRecord* best = nullptr;
  for (const FaceRecord& face : index.faces) {
    if (face.family != wanted || face.bold != isBold(style) || face.italic != isOblique(style)) continue;
    if (!best || (isPlainStyleName(face.styleName) && !isPlainStyleName(best->styleName))) best = &face;
  }
  return best ? ruString::CString(best->path.c_str()) : ruString::CString();
}

void Font::addFontFolder(const ruString::CString& folder) {
  FontIndex& index = fontIndex();
  std::lock_guard<std::mutex> lock(index.mutex);
  index.userFolders.insert(index.userFolders.begin(), folder.str());
  index.scanned = false;
}

ru::Reference<Font> Font::create(const ruString::CString& family, FontStyle style, int pixelSize, ruString::CString* error) {
  const ruString::CString path = findFontFile(family, style);
  if (path.empty()) {
    if (error) *error = ruString::CString::format("no font of family \"%s\" in style %s is installed", family.c_str(), styleName(style));
    return nullptr;
  }
  ru::Reference<Font> font = createFromFile(path, pixelSize, error);
  if (font) font->impl_->style = style;
  return font;
}

ru::Reference<Font> Font::createDefault(int pixelSize, ruString::CString* error) {
  return create(defaultFamily, FontStyle::Regular, pixelSize, error);
}

ru::Reference<Font> Font::createFromFile(const ruString::CString& path, int pixelSize, ruString::CString* error) {
  auto fail = [&](ruString::CString message) -> ru::Reference<Font> {
    if (error) *error = std::move(message);
    return nullptr;
  };
  if (pixelSize < 1 || pixelSize > maxPixelSize) {
    return fail(ruString::CString::format("font size %d pixels is outside 1 to %d", pixelSize, maxPixelSize));
  }
  std::error_code fileError;
  if (!std::filesystem::is_regular_file(path.c_str(), fileError)) {
    return fail(ruString::CString::format("font file \"%s\" does not exist", path.c_str()));
  }
  std::unique_ptr<Impl> impl(new Impl);
  if (FT_Init_FreeType(&impl->library) != 0) {
    impl->library = nullptr;
    return fail("FreeType could not be initialised");
  }
  if (const FT_Error code = FT_New_Face(impl->library, path.c_str(), 0, &impl->face); code != 0) {
    impl->face = nullptr;
    return fail(ruString::CString::format("font file \"%s\" could not be read (FreeType error %d)", path.c_str(), code));
  }
  if (const FT_Error code = FT_Set_Pixel_Sizes(impl->face, 0, static_cast<FT_UInt>(pixelSize)); code != 0) {
    return fail(ruString::CString::format("font file \"%s\" has no size of %d pixels (FreeType error %d)", path.c_str(), pixelSize, code));
  }
  FT_Face face = impl->face;
  impl->family = face->family_name ? face->family_name : "";
  impl->path = path;
  const bool bold = (face->style_flags & FT_STYLE_FLAG_BOLD) != 0;
  const bool italic = (face->style_flags & FT_STYLE_FLAG_ITALIC) != 0;
  impl->style = bold ? (italic ? FontStyle::BoldOblique : FontStyle::Bold) : (italic ? FontStyle::Oblique : FontStyle::Regular);
  impl->pixelSize = pixelSize;
  impl->ascender = face->size->metrics.ascender / 64.0;
  impl->descender = face->size->metrics.descender / 64.0;
  impl->lineHeight = face->size->metrics.height / 64.0;
  impl->kerning = FT_HAS_KERNING(face);
  impl->replacementIndex = FT_Get_Char_Index(face, replacementCharacter);

  // An atlas about ten glyphs wide (four for large sizes). Up to preloadPixels, printable ASCII and
  // the replacement character go in at once, so that labels never change the atlas; larger sizes
  // add glyphs as text asks for them, to keep the atlas small.
  const int perRow = pixelSize <= preloadPixels ? 10 : 4;
  int side = 256;
  while (side < perRow * (pixelSize + atlasGap) && side < maxAtlasSide) side *= 2;
  impl->atlas = ru::Reference<ruImage::TypedImage<ruImage::Byte4>>(new ruImage::TypedImage<ruImage::Byte4>(side, 64));
  std::fill(impl->atlas->pixels(), impl->atlas->pixels() + static_cast<std::size_t>(side) * 64, ruImage::Byte4(255, 255, 255, 0));
  if (pixelSize <= preloadPixels) {
    for (char32_t c = 0x20; c < 0x7F; ++c) impl->place(impl->glyph(c));
    impl->place(impl->glyph(replacementCharacter));
  }
  return ru::Reference<Font>(new Font(std::move(impl)));
}

const ruString::CString& Font::family() const noexcept { return impl_->family; }
FontStyle Font::style() const noexcept { return impl_->style; }
const ruString::CString& Font::path() const noexcept { return impl_->path; }
int Font::pixelSize() const noexcept { return impl_->pixelSize; }
double Font::ascender() const noexcept { return impl_->ascender; }
double Font::descender() const noexcept { return impl_->descender; }
double Font::lineHeight() const noexcept { return impl_->lineHeight; }
bool Font::hasKerning() const noexcept { return impl_->kerning; }

bool Font::hasGlyph(char32_t codePoint) const { return FT_Get_Char_Index(impl_->face, codePoint) != 0; }

double Font::advance(char32_t codePoint) const { return impl_->glyph(codePoint).advance; }

double Font::kerning(char32_t left, char32_t right) const {
  if (!impl_->kerning) return 0.0;
  const FT_UInt a = impl_->glyph(left).index;
  const FT_UInt b = impl_->glyph(right).index;
  FT_Vector delta{0, 0};
  if (FT_Get_Kerning(impl_->face, a, b, FT_KERNING_DEFAULT, &delta) != 0) return 0.0;
  return roundToPixels(delta.x);
}

GlyphBitmap Font::rasterizeGlyph(char32_t codePoint) const {
  const Glyph& g = impl_->glyph(codePoint);
  GlyphBitmap result;
  result.advance = g.advance;
  result.left = g.left;
  result.top = g.top;
  if (g.width > 0) {
    result.image = ru::Reference<ruImage::TypedImage<ruImage::Byte1>>(new ruImage::TypedImage<ruImage::Byte1>(g.width, g.height));
    std::memcpy(result.image->pixels(), g.coverage.data(), g.coverage.size());
  }
  return result;
}

TextGeometry Font::layout(const ruString::IString& text, const TextLayoutOptions& options) {
  return impl_->layout(text, options, true);
}

TextGeometry Font::measure(const ruString::IString& text, const TextLayoutOptions& options) const {
  return impl_->layout(text, options, false);
}

ImageKey Font::atlasKey() {
  if (!impl_->atlasKey.valid()) impl_->atlasKey = Loader::keyForImage(impl_->atlas, "voRES/GlyphAtlas");
  return impl_->atlasKey;
}

int Font::atlasRevision() const noexcept { return impl_->revision; }

ru::Reference<ruImage::TypedImage<ruImage::Byte4>> Font::renderText(const ruString::IString& text, const TextLayoutOptions& options,
                                                                    ruImage::Byte4 color, int padding, int* originX, int* originY) {
  const TextGeometry geometry = layout(text, options);
  if (geometry.quads.empty()) return nullptr;
  padding = std::max(padding, 0);
  const PixelBounds& ink = geometry.inkBounds;
  const int left = static_cast<int>(std::floor(ink.xMin));
  const int top = static_cast<int>(std::ceil(ink.yMax));
  const int width = static_cast<int>(std::ceil(ink.xMax)) - left + 2 * padding;
  const int height = top - static_cast<int>(std::floor(ink.yMin)) + 2 * padding;
  std::vector<float> coverage(static_cast<std::size_t>(width) * height, 0.0f);
  const ruImage::TypedImage<ruImage::Byte4>& atlas = *impl_->atlas;
  for (const GlyphQuad& quad : geometry.quads) {
    const int column = static_cast<int>(quad.x0) - left + padding;
    const int row = top - static_cast<int>(quad.y1) + padding;
    for (int y = 0; y < quad.atlasHeight; ++y) {
      for (int x = 0; x < quad.atlasWidth; ++x) {
        const float c = atlas.pixel(quad.atlasX + x, quad.atlasY + y).a / 255.0f;
        float& out = coverage[static_cast<std::size_t>(row + y) * width + column + x];
        // Overlapping glyphs (kerned pairs) cover as two layers would.
        out = out + c * (1.0f - out);
      }
    }
  }
  ru::Reference<ruImage::TypedImage<ruImage::Byte4>> image(new ruImage::TypedImage<ruImage::Byte4>(width, height));
  for (std::size_t i = 0; i < coverage.size(); ++i) {
    image->pixels()[i] = ruImage::Byte4(color.r, color.g, color.b, static_cast<std::uint8_t>(std::lround(color.a * coverage[i])));
  }
  if (originX) *originX = padding - left;
  if (originY) *originY = padding + top;
  return image;
}

}  // namespace voRES
