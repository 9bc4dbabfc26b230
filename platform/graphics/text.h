#pragma once

#include "platform/base/reference.h"
#include "platform/base/strings.h"
#include "platform/graphics/draw.h"
#include "platform/graphics/export.h"
#include "platform/resources/font.h"

namespace voGR {

// A font for drawText: a FreeType face at a pixel size (see voRES::Font). A plain value; copies
// share the face and its glyph atlas. A default Font is invalid and draws nothing.
class VO_GR_API Font {
public:
  Font() = default;
  explicit Font(ru::Reference<voRES::Font> face) : face_(std::move(face)) {}
  // The face of `family` in `style` at `pixelSize` pixels per em; invalid (with the reason in
  // `error`) when it is not installed or the size is out of range.
  Font(const ruString::CString& family, int pixelSize, voRES::FontStyle style = voRES::FontStyle::Regular,
       ruString::CString* error = nullptr);
  // DejaVu Sans, regular.
  static Font defaultFont(int pixelSize, ruString::CString* error = nullptr);

  bool valid() const noexcept { return face_.valid(); }
  voRES::Font* getFace() const noexcept { return face_.get(); }
  int getPixelSize() const noexcept { return face_ ? face_->pixelSize() : 0; }

private:
  ru::Reference<voRES::Font> face_;
};

// Where a text stands against its origin, and how its lines are spaced. Passed by value.
struct VO_GR_API TextLayout {
  voRES::TextAlign align = voRES::TextAlign::Left;
  voRES::TextAnchor anchor = voRES::TextAnchor::Baseline;
  // Distance between baselines, as a multiple of the font's line height.
  double lineSpacing = 1.0;
  bool kerning = true;

  TextLayout() = default;
  TextLayout(voRES::TextAlign a, voRES::TextAnchor v) : align(a), anchor(v) {}
  voRES::TextLayoutOptions options() const;
};

// Emits `text` through `draw` as one item: a textured quad per glyph, in local units of pixels
// (x right, y up, the first baseline on y = 0, the origin placed by `layout`) in the plane z = 0,
// so a transform (or transformer) scaling one unit to one screen pixel shows the glyphs at their
// own size. The item has the Draw's colour (the glyphs' coverage in its alpha, blended) and the
// font's atlas as its image; every other sticky setting applies. The Draw's shader, mesh and
// image are as before afterwards. Null, and nothing emitted, for an invalid font or a text
// without ink (empty, only spaces).
VO_GR_API ru::Reference<DrawItem> drawText(Draw& draw, const ruString::IString& text, const Font& font,
                                           TextLayout layout = TextLayout());

}  // namespace voGR
