#include "platform/resources/builtins.h"

#include "platform/resources/font.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <vector>

namespace voRES {

namespace {

using Image4 = ruImage::TypedImage<ruImage::Byte4>;
using Image4Ref = ru::Reference<Image4>;

constexpr int pointMarkPixels = 15;
constexpr int surfaceMarkPixels = 19;
constexpr int axisMarkPixels = 17;
constexpr int centerMarkPixels = 21;

struct Rgb {
  float r, g, b;
};

// "Over" of a layer of colour `top` and coverage `a` onto a pixel.
void over(ruImage::Byte4& pixel, Rgb top, float a) {
  if (a <= 0.0f) return;
  const float below = pixel.a / 255.0f;
  const float alpha = a + below * (1.0f - a);
  auto channel = [&](float t, std::uint8_t b) {
    const float value = (t * a + (b / 255.0f) * below * (1.0f - a)) / alpha;
    return static_cast<std::uint8_t>(std::lround(std::clamp(value, 0.0f, 1.0f) * 255.0f));
  };
  pixel = ruImage::Byte4(channel(top.r, pixel.r), channel(top.g, pixel.g), channel(top.b, pixel.b),
                         static_cast<std::uint8_t>(std::lround(alpha * 255.0f)));
}

// --- The grid ----------------------------------------------------------------------------------------

Image4Ref drawModelingPlane() {
  using namespace builtin;
  Image4Ref image(new Image4(gridPixels, gridPixels));
  auto lineKind = [](int p) {
    const int inCell = p % gridCellPixels;
    if (inCell != 0 && inCell != gridCellPixels - 1) return 0;
    const int major = p % (gridCellPixels * gridMajorEvery);
    return (major == 0 || major == gridCellPixels * gridMajorEvery - 1) ? 2 : 1;
  };
  // A faint, see-through sheet with grey lines, so that the model below stays visible.
  const ruImage::Byte4 sheet(205, 210, 220, 40);
  const ruImage::Byte4 minor(125, 130, 140, 150);
  const ruImage::Byte4 major(70, 75, 85, 220);
  for (int y = 0; y < gridPixels; ++y) {
    for (int x = 0; x < gridPixels; ++x) {
      const int kind = std::max(lineKind(x), lineKind(y));
      image->pixel(x, y) = kind == 2 ? major : kind == 1 ? minor : sheet;
    }
  }
  return image;
}

// --- The axis names ----------------------------------------------------------------------------------

Image4Ref drawAxisName(char32_t letter, Rgb colour, ruString::CString* error) {
  using namespace builtin;
  ru::Reference<Font> font = Font::create(Font::defaultFamily, FontStyle::Bold, axisNameFontPixels, error);
  if (!font) return nullptr;
  const GlyphBitmap glyph = font->rasterizeGlyph(letter);
  if (!glyph.image) {
    if (error) *error = "the axis letter has no glyph in the font";
    return nullptr;
  }
  const int size = axisNamePixels;
  const int w = glyph.image->xSize();
  const int h = glyph.image->ySize();
  // The letter's ink is centred; the rim needs one pixel on each side.
  const int left = (size - w) / 2;
  const int top = (size - h) / 2;
  std::vector<float> ink(static_cast<std::size_t>(size) * size, 0.0f);
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) {
      const int ix = left + x, iy = top + y;
      if (ix < 0 || iy < 0 || ix >= size || iy >= size) continue;
      ink[static_cast<std::size_t>(iy) * size + ix] = glyph.image->pixel(x, y).value / 255.0f;
    }
  }
  Image4Ref image(new Image4(size, size));
  for (int y = 0; y < size; ++y) {
    for (int x = 0; x < size; ++x) {
      float rim = 0.0f;
      for (int dy = -1; dy <= 1; ++dy) {
        for (int dx = -1; dx <= 1; ++dx) {
          const int nx = x + dx, ny = y + dy;
          if (nx >= 0 && ny >= 0 && nx < size && ny < size) rim = std::max(rim, ink[static_cast<std::size_t>(ny) * size + nx]);
        }
      }
      ruImage::Byte4& pixel = image->pixel(x, y);
      pixel = ruImage::Byte4(0, 0, 0, 0);
      over(pixel, Rgb{0.08f, 0.08f, 0.08f}, rim * 0.7f);
      over(pixel, colour, ink[static_cast<std::size_t>(y) * size + x]);
    }
  }
  return image;
}

// --- The snap marks ----------------------------------------------------------------------------------

// Signed distances in pixels from the mark's centre, negative inside.
float boxDistance(float x, float y, float halfWidth, float halfHeight) {
  return std::max(std::fabs(x) - halfWidth, std::fabs(y) - halfHeight);
}
float discDistance(float x, float y, float radius) { return std::hypot(x, y) - radius; }
float ringDistance(float x, float y, float radius, float halfThickness) {
  return std::fabs(std::hypot(x, y) - radius) - halfThickness;
}

struct MarkColours {
  Rgb fill;
  Rgb rim;
};

MarkColours stateColours(const ruString::CString& state) {
  // Highlight is brighter than the default; selected stands apart in hue.
  if (state == builtin::stateHighlight) return {{1.0f, 0.92f, 0.3f}, {0.1f, 0.1f, 0.1f}};
  if (state == builtin::stateSelected) return {{0.25f, 0.67f, 1.0f}, {0.05f, 0.05f, 0.15f}};
  return {{1.0f, 0.6f, 0.0f}, {0.12f, 0.12f, 0.12f}};
}

// Draws a mark of `size` pixels from its signed distance: a dark rim 1.25 pixels wide around the
// shape, then the shape filled, each antialiased over one pixel.
Image4Ref drawMark(int size, const std::function<float(float, float)>& distance, const MarkColours& colours) {
  Image4Ref image(new Image4(size, size));
  const float centre = size * 0.5f;
  for (int y = 0; y < size; ++y) {
    for (int x = 0; x < size; ++x) {
      // Pixel centres, y up from the centre of the image.
      const float px = x + 0.5f - centre;
      const float py = centre - (y + 0.5f);
      const float d = distance(px, py);
      ruImage::Byte4& pixel = image->pixel(x, y);
      pixel = ruImage::Byte4(0, 0, 0, 0);
      over(pixel, colours.rim, std::clamp(0.5f - (d - 1.25f), 0.0f, 1.0f) * 0.85f);
      over(pixel, colours.fill, std::clamp(0.5f - d, 0.0f, 1.0f));
    }
  }
  return image;
}

Image4Ref drawSnapMark(const ruString::CString& name, const ruString::CString& state) {
  const MarkColours colours = stateColours(state);
  if (name == builtin::pointSnapResult) {
    // A vertex: a filled square.
    return drawMark(pointMarkPixels, [](float x, float y) { return boxDistance(x, y, 4.0f, 4.0f); }, colours);
  }
  if (name == builtin::surfaceSnapResult) {
    // A point on a face: a ring with a dot.
    return drawMark(surfaceMarkPixels, [](float x, float y) { return std::min(ringDistance(x, y, 5.5f, 1.0f), discDistance(x, y, 1.5f)); },
                    colours);
  }
  if (name == builtin::axisSnapResult) {
    // A point on an axis: a diamond.
    return drawMark(axisMarkPixels, [](float x, float y) { return (std::fabs(x) + std::fabs(y) - 5.5f) / std::sqrt(2.0f); }, colours);
  }
  if (name == builtin::centerSnapCandidate) {
    // A centre on offer: a thin ring with four ticks pointing in, open in the middle.
    return drawMark(centerMarkPixels,
                    [](float x, float y) {
                      float d = ringDistance(x, y, 7.0f, 0.6f);
                      d = std::min(d, boxDistance(x, y - 5.5f, 0.6f, 2.0f));
                      d = std::min(d, boxDistance(x, y + 5.5f, 0.6f, 2.0f));
                      d = std::min(d, boxDistance(x - 5.5f, y, 2.0f, 0.6f));
                      d = std::min(d, boxDistance(x + 5.5f, y, 2.0f, 0.6f));
                      return d;
                    },
                    colours);
  }
  if (name == builtin::centerSnapResult) {
    // A centre caught: a bolder ring, full crosshair and a dot.
    return drawMark(centerMarkPixels,
                    [](float x, float y) {
                      float d = ringDistance(x, y, 7.0f, 1.1f);
                      d = std::min(d, boxDistance(x, y, 0.8f, 8.0f));
                      d = std::min(d, boxDistance(x, y, 8.0f, 0.8f));
                      d = std::min(d, discDistance(x, y, 2.5f));
                      return d;
                    },
                    colours);
  }
  return nullptr;
}

bool isStateName(const ruString::CString& state) {
  return state == builtin::stateDefault || state == builtin::stateHighlight || state == builtin::stateSelected;
}

}  // namespace

const ru::vector<BuiltinImage>& builtinImages() {
  using namespace builtin;
  static const ru::vector<BuiltinImage> images = [] {
    ru::vector<BuiltinImage> list;
    list.push_back({modelingPlane, false, gridPixels, gridPixels});
    list.push_back({axisXBillboard, false, axisNamePixels, axisNamePixels});
    list.push_back({axisYBillboard, false, axisNamePixels, axisNamePixels});
    list.push_back({axisZBillboard, false, axisNamePixels, axisNamePixels});
    list.push_back({pointSnapResult, true, pointMarkPixels, pointMarkPixels});
    list.push_back({surfaceSnapResult, true, surfaceMarkPixels, surfaceMarkPixels});
    list.push_back({axisSnapResult, true, axisMarkPixels, axisMarkPixels});
    list.push_back({centerSnapCandidate, true, centerMarkPixels, centerMarkPixels});
    list.push_back({centerSnapResult, true, centerMarkPixels, centerMarkPixels});
    return list;
  }();
  return images;
}

bool isBuiltinImage(const ruString::CString& name, const ruString::CString& state) {
  for (const BuiltinImage& image : builtinImages()) {
    if (name == image.name) return state.empty() || (image.hasStates && isStateName(state));
  }
  return false;
}

ru::Reference<ruImage::TypedImage<ruImage::Byte4>> drawBuiltinImage(const ruString::CString& name, const ruString::CString& state,
                                                                    ruString::CString* error) {
  if (!isBuiltinImage(name, state)) {
    if (error) {
      *error = state.empty() ? ruString::CString::format("\"%s\" is not a built-in image", name.c_str())
                             : ruString::CString::format("\"%s\" in state \"%s\" is not a built-in image", name.c_str(), state.c_str());
    }
    return nullptr;
  }
  if (name == builtin::modelingPlane) return drawModelingPlane();
  if (name == builtin::axisXBillboard) return drawAxisName(U'X', Rgb{0.95f, 0.15f, 0.15f}, error);
  if (name == builtin::axisYBillboard) return drawAxisName(U'Y', Rgb{0.15f, 0.8f, 0.15f}, error);
  if (name == builtin::axisZBillboard) return drawAxisName(U'Z', Rgb{0.2f, 0.4f, 1.0f}, error);
  return drawSnapMark(name, state);
}

}  // namespace voRES
