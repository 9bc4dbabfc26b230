#include "platform/image/png.h"

#include <png.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
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

// The most bytes a file may make us allocate (four a pixel and a row pointer a row): a header can
// claim any size up to 2^31 - 1 each way, and a corrupt or hostile one must not make us try.
constexpr std::uint64_t maxImageBytes = std::uint64_t(1) << 31;

// Deflate turns one input byte into at most 1032 output bytes (a 258-byte match in two bits, and
// the zlib stream around it), so a file of N bytes holds at most about 1032 * N bytes of rows.
constexpr std::uint64_t maxInflateRatio = 1032;

enum class HeaderResult { Ok, Error, Unsupported, TooLarge, TooLargeForFile };

// The libpng calls run in these helpers, which hold no C++ objects across setjmp: libpng leaves
// through longjmp on an error, and only plain locals survive that safely.
HeaderResult readHeader(png_structp png, png_infop info, std::FILE* file, std::uint64_t fileBytes, png_uint_32* width,
                        png_uint_32* height) {
  if (setjmp(png_jmpbuf(png))) return HeaderResult::Error;
  png_init_io(png, file);
  png_set_sig_bytes(png, 8);
  // libpng's own size limit is below what the format allows; lift it to the format's so that the
  // size check below, with its clearer message, is the one that refuses a huge image.
  png_set_user_limits(png, 0x7fffffffu, 0x7fffffffu);
  png_read_info(png, info);
  *width = png_get_image_width(png, info);
  *height = png_get_image_height(png, info);
  // Before png_read_update_info, which allocates a row.
  const std::uint64_t rowBytes = static_cast<std::uint64_t>(*width) * 4 + sizeof(png_bytep);
  if (*height > maxImageBytes / rowBytes) return HeaderResult::TooLarge;
  // The rows as the file stores them (a filter byte each; interlacing only adds to this) must fit
  // in what the file's bytes can inflate to, or the body is bound to fail: refuse before the
  // image is allocated and cleared.
  const std::uint64_t storedBytes = static_cast<std::uint64_t>(*height) * (png_get_rowbytes(png, info) + 1);
  if (storedBytes / maxInflateRatio > fileBytes) return HeaderResult::TooLargeForFile;
  const int colorType = png_get_color_type(png, info);
  const int bitDepth = png_get_bit_depth(png, info);
  if (bitDepth == 16) png_set_strip_16(png);
  if (colorType == PNG_COLOR_TYPE_PALETTE) png_set_palette_to_rgb(png);
  if (colorType == PNG_COLOR_TYPE_GRAY && bitDepth < 8) png_set_expand_gray_1_2_4_to_8(png);
  const bool transparency = png_get_valid(png, info, PNG_INFO_tRNS) != 0;
  if (transparency) png_set_tRNS_to_alpha(png);
  if (colorType == PNG_COLOR_TYPE_GRAY || colorType == PNG_COLOR_TYPE_GRAY_ALPHA) png_set_gray_to_rgb(png);
  if (!(colorType & PNG_COLOR_MASK_ALPHA) && !transparency) png_set_filler(png, 0xFF, PNG_FILLER_AFTER);
  png_set_interlace_handling(png);
  png_read_update_info(png, info);
  return png_get_rowbytes(png, info) == static_cast<std::size_t>(*width) * 4 ? HeaderResult::Ok
                                                                             : HeaderResult::Unsupported;
}

bool readBody(png_structp png, png_bytepp rows) {
  if (setjmp(png_jmpbuf(png))) return false;
  png_read_image(png, rows);
  png_read_end(png, nullptr);
  return true;
}

bool writeBody(png_structp png, png_infop info, std::FILE* file, int width, int height, int colorType, png_bytepp rows) {
  if (setjmp(png_jmpbuf(png))) return false;
  png_init_io(png, file);
  png_set_IHDR(png, info, width, height, 8, colorType, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
               PNG_FILTER_TYPE_DEFAULT);
  png_write_info(png, info);
  png_write_image(png, rows);
  png_write_end(png, nullptr);
  return true;
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
  // The file's size bounds the image it can hold.
  std::uint64_t fileBytes = 0;
  if (std::fseek(file.get(), 0, SEEK_END) == 0) {
    const long end = std::ftell(file.get());
    fileBytes = end > 0 ? static_cast<std::uint64_t>(end) : 0;
  }
  if (std::fseek(file.get(), 8, SEEK_SET) != 0) {
    setError(error, path, "cannot read (not a regular file)");
    return nullptr;
  }
  ErrorState state;
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &state, onPngError, onPngWarning);
  png_infop info = png ? png_create_info_struct(png) : nullptr;
  if (!info) {
    png_destroy_read_struct(&png, nullptr, nullptr);
    setError(error, path, "out of memory");
    return nullptr;
  }
  png_uint_32 width = 0, height = 0;
  const HeaderResult header = readHeader(png, info, file.get(), fileBytes, &width, &height);
  if (header != HeaderResult::Ok) {
    png_destroy_read_struct(&png, &info, nullptr);
    if (header == HeaderResult::TooLarge) {
      setError(error, path, ruString::CString::format("image too large (%ux%u)", width, height).c_str());
    } else if (header == HeaderResult::TooLargeForFile) {
      setError(error, path,
               ruString::CString::format("image too large (%ux%u) for a file of %llu bytes, which cannot hold "
                                         "its pixels",
                                         width, height, static_cast<unsigned long long>(fileBytes))
                   .c_str());
    } else if (header == HeaderResult::Error) {
      setError(error, path, ruString::CString::format("corrupt or truncated header (%s)", state.message).c_str());
    } else {
      setError(error, path, "unsupported pixel layout");
    }
    return nullptr;
  }
  // Within the limit the allocation can still fail on a small machine: that is an error for
  // this file, not an exception for the caller.
  ru::Reference<TypedImage<Byte4>> image;
  std::vector<png_bytep> rows;
  try {
    image = new TypedImage<Byte4>(static_cast<int>(width), static_cast<int>(height));
    rows.resize(height);
  } catch (const std::bad_alloc&) {
    png_destroy_read_struct(&png, &info, nullptr);
    setError(error, path, ruString::CString::format("out of memory for a %ux%u image", width, height).c_str());
    return nullptr;
  }
  for (png_uint_32 y = 0; y < height; ++y) rows[y] = image->bytes() + static_cast<std::size_t>(y) * width * 4;
  const bool ok = readBody(png, rows.data());
  png_destroy_read_struct(&png, &info, nullptr);
  if (!ok) {
    setError(error, path, ruString::CString::format("corrupt or truncated data (%s)", state.message).c_str());
    return nullptr;
  }
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
  png_infop info = png ? png_create_info_struct(png) : nullptr;
  if (!info) {
    png_destroy_write_struct(&png, nullptr);
    setError(error, path, "out of memory");
    return false;
  }
  std::vector<png_bytep> rows(image.ySize());
  for (int y = 0; y < image.ySize(); ++y) {
    rows[y] = const_cast<png_bytep>(image.bytes() + static_cast<std::size_t>(y) * image.rowBytes());
  }
  const int colorType = image.getPixelFormat() == PixelFormat::Byte4 ? PNG_COLOR_TYPE_RGBA : PNG_COLOR_TYPE_GRAY;
  const bool ok = writeBody(png, info, file.get(), image.xSize(), image.ySize(), colorType, rows.data());
  png_destroy_write_struct(&png, &info);
  if (!ok) {
    setError(error, path, ruString::CString::format("cannot write (%s)", state.message).c_str());
    return false;
  }
  if (std::fflush(file.get()) != 0 || std::ferror(file.get())) {
    setError(error, path, "cannot write (disk full or I/O error)");
    return false;
  }
  return true;
}

}  // namespace ruImage
