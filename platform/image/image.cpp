#include "platform/image/image.h"

#include <algorithm>
#include <cstring>

namespace ruImage {

int bytesPerPixel(PixelFormat format) noexcept {
  switch (format) {
    case PixelFormat::Byte4: return 4;
    case PixelFormat::Byte1: return 1;
  }
  return 0;
}

Image::~Image() = default;

void Image::setSize(int width, int height) {
  width = std::max(width, 0);
  height = std::max(height, 0);
  xSize_ = width;
  ySize_ = height;
  bytes_.assign(static_cast<std::size_t>(width) * height * bytesPerPixel(), 0);
}

template class TypedImage<Byte4>;
template class TypedImage<Byte1>;

void imageFlipVertical(Image& image) {
  const std::size_t row = image.rowBytes();
  const int height = image.ySize();
  std::uint8_t* bytes = image.bytes();
  if (!bytes) return;
  for (int top = 0, bottom = height - 1; top < bottom; ++top, --bottom) {
    std::swap_ranges(bytes + top * row, bytes + (top + 1) * row, bytes + bottom * row);
  }
}

}  // namespace ruImage
