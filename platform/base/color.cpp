#include "platform/base/color.h"

#include <algorithm>
#include <cmath>

namespace ruUtil {

const Color Color::white(1.0f, 1.0f, 1.0f, 1.0f);
const Color Color::black(0.0f, 0.0f, 0.0f, 1.0f);

void HSLtoRGB(const HSL& hsl, Color& rgb) {
  const double s = std::clamp(hsl.saturation, 0.0, 1.0);
  const double l = std::clamp(hsl.lightness, 0.0, 1.0);
  double h = std::fmod(hsl.hue, 360.0);
  if (h < 0.0) h += 360.0;
  const double chroma = (1.0 - std::fabs(2.0 * l - 1.0)) * s;
  const double sector = h / 60.0;  // 0 <= sector < 6
  const double x = chroma * (1.0 - std::fabs(std::fmod(sector, 2.0) - 1.0));
  const double m = l - chroma / 2.0;
  double r = 0.0, g = 0.0, b = 0.0;
  switch (static_cast<int>(sector)) {
    case 0: r = chroma, g = x; break;
    case 1: r = x, g = chroma; break;
    case 2: g = chroma, b = x; break;
    case 3: g = x, b = chroma; break;
    case 4: r = x, b = chroma; break;
    default: r = chroma, b = x; break;
  }
  rgb = Color(static_cast<float>(std::clamp(r + m, 0.0, 1.0)), static_cast<float>(std::clamp(g + m, 0.0, 1.0)),
              static_cast<float>(std::clamp(b + m, 0.0, 1.0)), 1.0f);
}

}  // namespace ruUtil
