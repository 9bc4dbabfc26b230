#pragma once

#include "platform/base/export.h"

#include <cstdint>

namespace ruUtil {

// Red, green, blue and alpha, each 0..1.
struct RU_BASE_API Color {
  float r = 0.0f, g = 0.0f, b = 0.0f, a = 1.0f;

  constexpr Color() = default;
  constexpr Color(float red, float green, float blue, float alpha = 1.0f) : r(red), g(green), b(blue), a(alpha) {}

  static const Color white;
  static const Color black;

  friend constexpr bool operator==(const Color&, const Color&) = default;
};

// Four bytes in memory order red, green, blue, alpha. The 32-bit constructor reads the value as
// those bytes on a little-endian machine, whatever the machine: 0xFFA564F0 is F0, 64, A5, FF.
struct RU_BASE_API Color8 {
  std::uint8_t r = 0, g = 0, b = 0, a = 255;

  constexpr Color8() = default;
  constexpr Color8(std::uint8_t red, std::uint8_t green, std::uint8_t blue, std::uint8_t alpha = 255)
      : r(red), g(green), b(blue), a(alpha) {}
  constexpr explicit Color8(std::uint32_t packed)
      : r(static_cast<std::uint8_t>(packed & 0xFF)),
        g(static_cast<std::uint8_t>((packed >> 8) & 0xFF)),
        b(static_cast<std::uint8_t>((packed >> 16) & 0xFF)),
        a(static_cast<std::uint8_t>((packed >> 24) & 0xFF)) {}

  constexpr std::uint32_t packed() const {
    return static_cast<std::uint32_t>(r) | static_cast<std::uint32_t>(g) << 8 | static_cast<std::uint32_t>(b) << 16 |
           static_cast<std::uint32_t>(a) << 24;
  }
  // Each byte divided by 255.
  constexpr Color toColor() const { return Color(r / 255.0f, g / 255.0f, b / 255.0f, a / 255.0f); }
  constexpr operator Color() const { return toColor(); }

  friend constexpr bool operator==(const Color8&, const Color8&) = default;
};

// Hue in degrees (any value; taken modulo 360), saturation and lightness 0..1.
struct RU_BASE_API HSL {
  double hue = 0.0;
  double saturation = 0.0;
  double lightness = 0.0;

  constexpr HSL() = default;
  constexpr HSL(double h, double s, double l) : hue(h), saturation(s), lightness(l) {}
};

// The RGB colour of `hsl`, alpha 1. Fully saturated primaries at lightness 0.5 come out exactly
// 0 and 1; hue 0 and hue 360 are the same red.
RU_BASE_API void HSLtoRGB(const HSL& hsl, Color& rgb);

}  // namespace ruUtil
