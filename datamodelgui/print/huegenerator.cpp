#include "datamodelgui/print/huegenerator.h"

#include "platform/base/color.h"
#include "platform/image/image.h"

#include <cmath>
#include <cstddef>

namespace voDMG {

namespace {

// Hue angles in degrees at the thirteen borders of the twelve stretches of the image.
constexpr float kHueTable[13] = {0.0f, 23.0f, 34.0f, 47.0f, 60.0f, 78.0f, 117.0f,
                                 191.0f, 208.0f, 235.0f, 277.0f, 323.0f, 360.0f};

std::uint8_t toByte(float component) {
  // Truncated, not rounded; the components of HSLtoRGB stay within 0..1.
  return static_cast<std::uint8_t>(component * 255.0f);
}

} // namespace

HueGenerator::HueGenerator(int width) : voRES::ImageGenerator1<int>(width) {}

HueGenerator::HueGenerator(const HueGenerator& other) = default;

HueGenerator& HueGenerator::operator=(const HueGenerator& other) = default;

HueGenerator::~HueGenerator() = default;

bool HueGenerator::hasPredeterminedSize(const voRES::ImageKeys& /*keys*/) const {
  return true;
}

std::int64_t HueGenerator::getPredeterminedSize(const voRES::ImageKeys& /*keys*/) const {
  // A 32-bit product on purpose: unsigned so that wrapping is defined, then read back as signed.
  const auto product = static_cast<std::int32_t>(static_cast<std::uint32_t>(value) * 4u);
  return static_cast<std::int64_t>(product);
}

ru::Reference<ruImage::Image> HueGenerator::onGenerate(const voRES::ImageKeys& /*keys*/) const {
  const int width = value;
  // The pixel memory is accounted for the length of the generation.
  const std::size_t bytes = width > 0 ? static_cast<std::size_t>(width) * 4u : 0u;
  ru::Reference<voRES::ExternalResource> memory(new voRES::ExternalResource(bytes));

  ru::Reference<ruImage::TypedImage<ruImage::Byte4>> image(new ruImage::TypedImage<ruImage::Byte4>());
  image->setSize(width, 1);
  for (int i = 0; i < width; ++i) {
    float x = static_cast<float>(i) / static_cast<float>(width - 1) * 12.0f;
    // A width of 1 makes x = 0/0; take the left end rather than convert NaN to an integer.
    if (!std::isfinite(x)) x = 0.0f;
    int k = static_cast<int>(std::floor(x));
    if (k >= 12) {
      // The last pixel ends the last stretch instead of starting a thirteenth.
      k = 11;
      x = 12.0f;
    }
    const float f = x - static_cast<float>(k);
    const float hue = kHueTable[k + 1] * f + kHueTable[k] * (1.0f - f);

    ruUtil::Color rgb;
    ruUtil::HSLtoRGB(ruUtil::HSL(hue, 1.0, 0.5), rgb);
    image->pixel(i, 0) = ruImage::Byte4(toByte(rgb.r), toByte(rgb.g), toByte(rgb.b), 255);
  }
  return image;
}

} // namespace voDMG
