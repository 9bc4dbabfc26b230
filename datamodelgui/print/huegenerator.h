#pragma once

#include "datamodelgui/export.h"
#include "platform/resources/resources.h"

#include <cstdint>

namespace voDMG {

// An image one pixel high running through the colour wheel at full saturation and half lightness,
// from red (hue 0) at the left to red (hue 360) at the right. The wheel is not walked evenly: each
// twelfth of the image spans its own stretch of hues (see the table in the source), so the yellows
// and blues get more pixels than the greens. Hand it to voRES::Loader::createImageKey with no
// inputs; equal widths share one cached image. Reference counted; nothing in this library creates
// one, it is there for the host.
class DMGUI_API HueGenerator : public voRES::ImageGenerator1<int> {
public:
  // `width` in pixels (the inherited `value`). Callers pass at least 2: with 1 the position of the
  // only pixel is 0/0 (drawn red here, but not to be relied on); below 1 the image has no pixel.
  explicit HueGenerator(int width);
  HueGenerator(const HueGenerator& other);
  HueGenerator& operator=(const HueGenerator& other);
  ~HueGenerator() override;

  // Always true: the size depends on the width alone. The input keys are ignored.
  bool hasPredeterminedSize(const voRES::ImageKeys& keys) const override;
  // The byte size, width * 4, computed as a 32-bit product and sign-extended (so a negative width
  // gives a negative size, and a width past 2^29 wraps, as the cache has always been told).
  std::int64_t getPredeterminedSize(const voRES::ImageKeys& keys) const override;

  // A width-by-1 Byte4 image (red, green, blue, alpha 255); an empty image sized width-by-1 for a
  // width below 1. Never null.
  ru::Reference<ruImage::Image> onGenerate(const voRES::ImageKeys& keys) const override;
};

} // namespace voDMG
