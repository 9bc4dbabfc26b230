#include "platform/image/png.h"

#include <png.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

namespace ruImage {

namespace {

struct FileCloser {
  void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

// libpng reports errors through a callback that must not return; we keep the first message and
// longjmp back to the caller's setjmp.
struct ErrorState {
  char message[256] = {0};
};

void onPngError(png_structp png, png_const_charp message) {
  auto* state = static_cast<ErrorState*>(png_get_error_ptr(png));
  if (state && !state->message[0]) std::snprintf(state->message, sizeof(state->message), "%s", message);
  png_longjmp(png, 1);
}

void onPngWarning(png_structp, png_const_charp) {}

void setError(ruString::CString* error, const ruString::CString& path, const char* what) {
  if (error) *error = ruString::CString::format("PNG file '%s': %s", path.c_str(), what);
}

}  // namespace

ru::Reference<TypedImage<Byte4>> readPng(const ruString::CString& path, ruString::CString* error) {
  File file(std::fopen(path.c_str(), "rb"));
  if (!file) {
    setError(error, path, ruString::CString::format("cannot open for reading (%s)", std::strerror(errno)).c_str());
    return nullptr;
  }
  unsigned char signature[8];
  if (std::fread(signature, 1, 8, file.get()) != 8 || png_sig_cmp(signature, 0, 8) != 0) {
    setError(error, path, "not a PNG file (bad signature)");
    return nullptr;
  }
  ErrorState state;
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &state, onPngError, onPngWarning);
  if (!png) {
    setError(error, path, "out of memory");
    return nullptr;
  }
  png_infop info = png_create_info_struct(png);
  ru::Reference<TypedImage<Byte4>> image(new TypedImage<Byte4>());
  std::vector<png_bytep> rows;
  if (setjmp(png_jmpbuf(png))) {
    png_destroy_read_struct(&png, &info, nullptr);
    setError(error, path, ruString::CString::format("corrupt or truncated data (%s)", state.message).c_str());
    return nullptr;
  }
  png_init_io(png, file.get());
  png_set_sig_bytes(png, 8);
  png_read_info(png, info);
  const png_uint_32 width = png_get_image_width(png, info);
  const png_uint_32 height = png_get_image_height(png, info);
  const int colorType = png_get_color_type(png, info);
  const int bitDepth = png_get_bit_depth(png, info);
  if (bitDepth == 16) png_set_strip_16(png);
  if (colorType == PNG_COLOR_TYPE_PALETTE) png_set_palette_to_rgb(png);
  if (colorType == PNG_COLOR_TYPE_GRAY && bitDepth < 8) png_set_expand_gray_1_2_4_to_8(png);
  if (png_get_valid(png, info, PNG_INFO_tRNS)) png_set_tRNS_to_alpha(png);
  if (colorType == PNG_COLOR_TYPE_GRAY || colorType == PNG_COLOR_TYPE_GRAY_ALPHA) png_set_gray_to_rgb(png);
  if (!(colorType & PNG_COLOR_MASK_ALPHA) && !png_get_valid(png, info, PNG_INFO_tRNS)) {
    png_set_filler(png, 0xFF, PNG_FILLER_AFTER);
  }
  png_set_interlace_handling(png);
  png_read_update_info(png, info);
  if (png_get_rowbytes(png, info) != static_cast<std::size_t>(width) * 4) {
    png_destroy_read_struct(&png, &info, nullptr);
    setError(error, path, "unsupported pixel layout");
    return nullptr;
  }
  image->setSize(static_cast<int>(width), static_cast<int>(height));
  rows.resize(height);
  for (png_uint_32 y = 0; y < height; ++y) rows[y] = image->bytes() + static_cast<std::size_t>(y) * width * 4;
  png_read_image(png, rows.data());
  png_read_end(png, nullptr);
  png_destroy_read_struct(&png, &info, nullptr);
  return image;
}

bool writePng(const Image& image, const ruString::CString& path, ruString::CString* error) {
  if (!image.bytes() || image.xSize() <= 0 || image.ySize() <= 0) {
    setError(error, path, "the image has no pixels to write");
    return false;
  }
  File file(std::fopen(path.c_str(), "wb"));
  if (!file) {
    setError(error, path, ruString::CString::format("cannot open for writing (%s)", std::strerror(errno)).c_str());
    return false;
  }
  ErrorState state;
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &state, onPngError, onPngWarning);
  if (!png) {
    setError(error, path, "out of memory");
    return false;
  }
  png_infop info = png_create_info_struct(png);
  std::vector<png_bytep> rows(image.ySize());
  if (setjmp(png_jmpbuf(png))) {
    png_destroy_write_struct(&png, &info);
    setError(error, path, ruString::CString::format("cannot write (%s)", state.message).c_str());
    return false;
  }
  png_init_io(png, file.get());
  const int colorType = image.getPixelFormat() == PixelFormat::Byte4 ? PNG_COLOR_TYPE_RGBA : PNG_COLOR_TYPE_GRAY;
  png_set_IHDR(png, info, image.xSize(), image.ySize(), 8, colorType, PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_write_info(png, info);
  for (int y = 0; y < image.ySize(); ++y) {
    rows[y] = const_cast<png_bytep>(image.bytes() + static_cast<std::size_t>(y) * image.rowBytes());
  }
  png_write_image(png, rows.data());
  png_write_end(png, nullptr);
  png_destroy_write_struct(&png, &info);
  if (std::fflush(file.get()) != 0 || std::ferror(file.get())) {
    setError(error, path, "cannot write (disk full or I/O error)");
    return false;
  }
  return true;
}

}  // namespace ruImage
