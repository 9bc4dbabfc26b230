#pragma once

#include "platform/base/containers.h"
#include "platform/base/reference.h"
#include "platform/base/strings.h"
#include "platform/image/image.h"
#include "platform/resources/export.h"
#include "platform/resources/resources.h"

#include <cstdint>
#include <memory>

// Text through FreeType: fonts at a pixel size, glyph images, a glyph atlas, and the layout of a
// UTF-8 string into positioned glyph quads. Everything is in pixels. Layout space has its y axis up,
// the first line's baseline on y = 0 and the origin at the left of the text (or at its centre or
// right, by alignment), so that a renderer placing one local unit on one screen pixel (a billboard)
// draws the quads as they are.
namespace voRES {

enum class FontStyle { Regular, Bold, Oblique, BoldOblique };

// Where each line stands against the origin, horizontally.
enum class TextAlign {
  Left,    // the line starts at x = 0
  Centre,  // the line's advance box is centred on x = 0 (rounded to whole pixels)
  Right,   // the line ends at x = 0
};

// Where the block of lines stands against the origin, vertically.
enum class TextAnchor {
  Baseline,  // the first line's baseline is y = 0
  Centre,    // the middle of the block (first ascender to last descender) is y = 0, rounded to whole pixels
};

struct TextLayoutOptions {
  TextAlign align = TextAlign::Left;
  TextAnchor anchor = TextAnchor::Baseline;
  // Distance between baselines, as a multiple of the font's line height.
  double lineSpacing = 1.0;
  // Apply the face's kerning pairs, when it has any.
  bool kerning = true;
};

// A rectangle in layout pixels, y up. Invalid (xMin > xMax) when it holds nothing.
struct PixelBounds {
  double xMin = 1.0, yMin = 1.0, xMax = 0.0, yMax = 0.0;
  bool valid() const noexcept { return xMin <= xMax && yMin <= yMax; }
  double width() const noexcept { return valid() ? xMax - xMin : 0.0; }
  double height() const noexcept { return valid() ? yMax - yMin : 0.0; }
};

// One glyph of a laid-out text: a rectangle in layout pixels and where its image lies in the atlas.
struct GlyphQuad {
  char32_t codePoint = 0;   // the character drawn (U+FFFD for a byte that was not UTF-8)
  int characterIndex = 0;   // index of that character among the text's code points
  int line = 0;             // line number, 0 for the first
  // Corners in layout pixels, y up: (x0, y0) is the lower left, (x1, y1) the upper right.
  float x0 = 0, y0 = 0, x1 = 0, y1 = 0;
  // Texture coordinates at (x0, y0) and at (x1, y1). They address the atlas image as stored: u runs
  // across the columns, v down the rows from row 0, and row 0 holds the glyphs' top rows. A renderer
  // that uploads row 0 as t = 0 uses them unchanged; v0 is therefore greater than v1.
  float u0 = 0, v0 = 0, u1 = 0, v1 = 0;
  // The same place in atlas pixels: column, row of the glyph's top row, width, height.
  int atlasX = 0, atlasY = 0, atlasWidth = 0, atlasHeight = 0;
};

// The plain result of a layout: what a renderer needs to draw the text as one textured quad per
// glyph, tinted by its colour (the atlas is white with the glyph coverage in alpha). Each quad is
// the rectangle (x0, y0) (x1, y0) (x1, y1) (x0, y1) with texture coordinates (u0, v0) (u1, v0)
// (u1, v1) (u0, v1), textured by `atlas`, one local unit to one pixel. The result owns nothing but
// the atlas key, which keeps its image alive.
struct TextGeometry {
  ru::vector<GlyphQuad> quads;  // in text order; characters without ink (spaces) have none
  ImageKey atlas;               // the atlas image the texture coordinates address
  int atlasWidth = 0, atlasHeight = 0;
  int numLines = 0;             // 1 for an empty text
  ru::vector<double> lineWidths;  // advance width of each line, in pixels
  // The union of the glyph quads; invalid when nothing has ink.
  PixelBounds inkBounds;
  // The advance boxes of the lines: from the left of the leftmost line to the right of the
  // rightmost, from the last line's descender to the first line's ascender.
  PixelBounds boxBounds;
};

// One glyph's coverage. The image is one byte a pixel, top row first; `left` is the column of its
// left edge from the pen, `top` the height of its top row above the baseline, in pixels.
struct GlyphBitmap {
  ru::Reference<ruImage::TypedImage<ruImage::Byte1>> image;  // null for a glyph without ink
  int left = 0;
  int top = 0;
  double advance = 0.0;  // pen advance in pixels
};

// A font face at one pixel size, with its glyph atlas. Reference counted; one thread at a time
// (layout adds glyphs to the atlas). Created through the static functions, which answer null and
// say why in `error` when the font file is missing or unreadable.
class VO_RES_API Font : public ru::ReferenceCount {
public:
  static constexpr const char* defaultFamily = "DejaVu Sans";

  // The face of `family` in `style` (matched against the faces' own family and style names in the
  // font folders), at `pixelSize` pixels per em (1 to 512). Null and `error` set when no such face
  // is installed or the size is out of range.
  static ru::Reference<Font> create(const ruString::CString& family, FontStyle style, int pixelSize,
                                    ruString::CString* error = nullptr);
  // DejaVu Sans, regular.
  static ru::Reference<Font> createDefault(int pixelSize, ruString::CString* error = nullptr);
  // The first face of a font file. Null and `error` set (naming the file) when it cannot be read.
  static ru::Reference<Font> createFromFile(const ruString::CString& path, int pixelSize,
                                            ruString::CString* error = nullptr);

  // The file holding `family` in `style`; empty when none of the font folders has it.
  static ruString::CString findFontFile(const ruString::CString& family, FontStyle style);
  // Adds a folder (searched with its subfolders) before the system ones. Process-wide.
  static void addFontFolder(const ruString::CString& folder);

  ~Font() override;
  Font(const Font&) = delete;
  Font& operator=(const Font&) = delete;

  const ruString::CString& family() const noexcept;
  FontStyle style() const noexcept;
  const ruString::CString& path() const noexcept;
  int pixelSize() const noexcept;

  // Vertical metrics in pixels: ascender above the baseline (positive), descender below it
  // (negative), and the distance between baselines.
  double ascender() const noexcept;
  double descender() const noexcept;
  double lineHeight() const noexcept;
  bool hasKerning() const noexcept;
  bool hasGlyph(char32_t codePoint) const;
  // Pen advance of a character, and the kerning to add between two, in pixels.
  double advance(char32_t codePoint) const;
  double kerning(char32_t left, char32_t right) const;

  // The coverage of one character; a character the face lacks draws the replacement glyph.
  GlyphBitmap rasterizeGlyph(char32_t codePoint) const;

  // Lays out UTF-8 text (bytes that are not UTF-8 become U+FFFD; '\n' and "\r\n" break lines;
  // a tab advances four spaces; other control characters are skipped). Adds missing glyphs to
  // the atlas. Up to 64 pixels, printable ASCII and U+FFFD are in the atlas from the start, so
  // laying out such text leaves the atlas key unchanged.
  TextGeometry layout(const ruString::IString& text, const TextLayoutOptions& options = {});
  // Width and bounds only; adds nothing to the atlas (`quads` empty, `atlas` invalid).
  TextGeometry measure(const ruString::IString& text, const TextLayoutOptions& options = {}) const;

  // A key of the atlas as it stands. A key once handed out keeps its image: glyphs added later go
  // into a new atlas image with a new key.
  ImageKey atlasKey();
  // Atlas revisions so far (starts at 1; each new key is a new revision).
  int atlasRevision() const noexcept;

  // The text drawn into a new image, top row first: `color` with the glyph coverage multiplied
  // into its alpha, transparent elsewhere, with `padding` pixels around the ink. Null for a text
  // without ink. `originX`, `originY` (when given) receive the image pixel (column, row from the
  // top) where the layout origin falls.
  ru::Reference<ruImage::TypedImage<ruImage::Byte4>> renderText(const ruString::IString& text,
                                                                 const TextLayoutOptions& options,
                                                                 ruImage::Byte4 color, int padding = 1,
                                                                 int* originX = nullptr, int* originY = nullptr);

private:
  struct Impl;
  explicit Font(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> impl_;
};

}  // namespace voRES
