#pragma once

#include "platform/base/reference.h"
#include "platform/image/export.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace ruImage {

// Pixel layouts an image can hold.
enum class PixelFormat {
  Byte4,  // four unsigned bytes a pixel: red, green, blue, alpha
  Byte1,  // one unsigned byte a pixel (grey or a single channel)
};

// Bytes one pixel of `format` takes.
RU_IMAGE_API int bytesPerPixel(PixelFormat format) noexcept;

// Four unsigned bytes: red, green, blue, alpha, in this order in memory.
struct Byte4 {
  std::uint8_t r = 0, g = 0, b = 0, a = 0;
  constexpr Byte4() noexcept = default;
  constexpr Byte4(std::uint8_t red, std::uint8_t green, std::uint8_t blue, std::uint8_t alpha) noexcept
      : r(red), g(green), b(blue), a(alpha) {}
  friend constexpr bool operator==(const Byte4& x, const Byte4& y) noexcept {
    return x.r == y.r && x.g == y.g && x.b == y.b && x.a == y.a;
  }
};
static_assert(sizeof(Byte4) == 4);
// The other spelling of the same type.
using UByte4 = Byte4;

// One unsigned byte.
struct Byte1 {
  std::uint8_t value = 0;
  constexpr Byte1() noexcept = default;
  constexpr explicit Byte1(std::uint8_t v) noexcept : value(v) {}
  friend constexpr bool operator==(const Byte1& x, const Byte1& y) noexcept { return x.value == y.value; }
};
static_assert(sizeof(Byte1) == 1);

template <class P>
struct PixelTraits;
template <>
struct PixelTraits<Byte4> {
  static constexpr PixelFormat format = PixelFormat::Byte4;
};
template <>
struct PixelTraits<Byte1> {
  static constexpr PixelFormat format = PixelFormat::Byte1;
};

// A reference-counted image: xSize() by ySize() pixels of one format, row-major and tightly packed
// (row y starts at byte y * xSize() * bytesPerPixel()). Row 0 is the first row in memory; which
// screen row that is belongs to whoever filled the image (a frame-buffer read-back fills it bottom
// row first, a PNG file top row first). Hold it with ru::Reference; one thread at a time.
class RU_IMAGE_API Image : public ru::ReferenceCount {
public:
  ~Image() override;

  int xSize() const noexcept { return xSize_; }
  int ySize() const noexcept { return ySize_; }
  PixelFormat getPixelFormat() const noexcept { return format_; }
  int bytesPerPixel() const noexcept { return ruImage::bytesPerPixel(format_); }
  std::size_t rowBytes() const noexcept { return static_cast<std::size_t>(xSize_) * bytesPerPixel(); }
  std::size_t byteSize() const noexcept { return bytes_.size(); }
  // The pixel bytes; null for an empty image. Valid until the next setSize.
  std::uint8_t* bytes() noexcept { return bytes_.empty() ? nullptr : bytes_.data(); }
  const std::uint8_t* bytes() const noexcept { return bytes_.empty() ? nullptr : bytes_.data(); }

  // Resizes to width by height pixels, all bytes zero. Negative sizes count as 0; a zero size in
  // either direction gives an image with no pixels (bytes() is null) that keeps the other size.
  void setSize(int width, int height);
  void resize(int width, int height) { setSize(width, height); }

  // A new image of the same dynamic type, size and pixels.
  ru::Reference<Image> clone() const { return onClone(); }

protected:
  explicit Image(PixelFormat format) noexcept : format_(format) {}
  Image(const Image&) = default;

private:
  // Must return a deep copy of the same dynamic type.
  virtual ru::Reference<Image> onClone() const = 0;

  PixelFormat format_;
  int xSize_ = 0;
  int ySize_ = 0;
  std::vector<std::uint8_t> bytes_;
};

// An image of pixels of type P (Byte4 or Byte1).
template <class P>
class TypedImage final : public Image {
public:
  using Pixel = P;

  TypedImage() noexcept : Image(PixelTraits<P>::format) {}
  TypedImage(int width, int height) : Image(PixelTraits<P>::format) { setSize(width, height); }

  // The pixel buffer, xSize() * ySize() pixels, row-major; null when empty.
  P* pixels() noexcept { return reinterpret_cast<P*>(bytes()); }
  const P* pixels() const noexcept { return reinterpret_cast<const P*>(bytes()); }
  // Pixel (x, y); the caller keeps 0 <= x < xSize() and 0 <= y < ySize().
  P& pixel(int x, int y) noexcept { return pixels()[static_cast<std::size_t>(y) * xSize() + x]; }
  const P& pixel(int x, int y) const noexcept { return pixels()[static_cast<std::size_t>(y) * xSize() + x]; }

private:
  ru::Reference<Image> onClone() const override { return ru::Reference<Image>(new TypedImage(*this)); }
};

extern template class RU_IMAGE_API TypedImage<Byte4>;
extern template class RU_IMAGE_API TypedImage<Byte1>;

// Reverses the order of the rows in place (the first row becomes the last).
RU_IMAGE_API void imageFlipVertical(Image& image);

}  // namespace ruImage
