#include "platform/image/png.h"

#include "tests/fuzzing.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <unistd.h>

using namespace ruImage;
using ruString::CString;

namespace {

std::string fuzzPath(const char* name) {
  return (std::filesystem::temp_directory_path() / (std::string("ru_png_fuzz_") + std::to_string(::getpid()) + "_" + name))
      .string();
}

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void writeFile(const std::string& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

std::uint32_t crc32(const unsigned char* data, std::size_t size) {
  std::uint32_t crc = 0xFFFFFFFFu;
  for (std::size_t i = 0; i < size; ++i) {
    crc ^= data[i];
    for (int k = 0; k < 8; ++k) crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
  }
  return ~crc;
}

// Rewrites the checksum of every chunk that lies within the file, so that a mutation reaches the
// reader's handling of the chunk's contents instead of stopping at its checksum.
std::string withGoodChecksums(std::string bytes) {
  std::size_t at = 8;
  while (at + 12 <= bytes.size()) {
    const auto* p = reinterpret_cast<const unsigned char*>(bytes.data() + at);
    const std::size_t length = (std::size_t(p[0]) << 24) | (p[1] << 16) | (p[2] << 8) | p[3];
    if (length > bytes.size() - at - 12) break;
    const std::uint32_t crc = crc32(p + 4, length + 4);
    for (int k = 0; k < 4; ++k) bytes[at + 8 + length + k] = static_cast<char>((crc >> (24 - 8 * k)) & 0xFF);
    at += 12 + length;
  }
  return bytes;
}

// A small image with some variety, so that its rows use several filters.
std::string smallPng(const std::string& path) {
  TypedImage<Byte4> image(13, 9);
  for (int y = 0; y < 9; ++y) {
    for (int x = 0; x < 13; ++x) {
      image.pixel(x, y) = Byte4(static_cast<std::uint8_t>(x * 19), static_cast<std::uint8_t>(y * 28),
                                static_cast<std::uint8_t>((x * y) & 0xFF), static_cast<std::uint8_t>(255 - x));
    }
  }
  EXPECT_TRUE(writePng(image, path));
  return readFile(path);
}

}  // namespace

TEST(PngFuzz, EveryMutationOfASmallPngEndsInAnImageOrAClearError) {
  const std::string path = fuzzPath("case.png");
  const std::string original = smallPng(path);
  ASSERT_GT(original.size(), 50u);
  fuzz::Watchdog watchdog(10.0);
  int images = 0;
  const int cases = 4000;
  for (int index = 0; index < cases; ++index) {
    fuzz::Mutation mutation = fuzz::mutate(original, 21, index, std::string("\0\0\0\0" "IDAT", 8));
    // Half the cases with checksums repaired, to reach the decoder.
    const bool repaired = (index / 8) % 2 == 0;
    if (repaired) mutation.bytes = withGoodChecksums(mutation.bytes);
    const std::string caseName =
        "png case " + std::to_string(index) + " (" + mutation.name + (repaired ? ", checksums repaired)" : ")");
    watchdog.begin(caseName);
    writeFile(path, mutation.bytes);
    CString error;
    ru::Reference<TypedImage<Byte4>> image = readPng(path, &error);
    if (image) {
      ++images;
      EXPECT_GT(image->xSize(), 0) << caseName;
      EXPECT_GT(image->ySize(), 0) << caseName;
      // No more pixels than the file's bytes can inflate to, at the least one bit a pixel.
      const double pixels = static_cast<double>(image->xSize()) * image->ySize();
      EXPECT_LE(pixels / 8, 1032.0 * static_cast<double>(mutation.bytes.size())) << caseName;
      // Every pixel is readable (the sanitizer checks the reads).
      volatile unsigned sink = 0;
      for (int y = 0; y < image->ySize(); ++y) {
        for (int x = 0; x < image->xSize(); ++x) sink = sink + image->pixel(x, y).r;
      }
    } else {
      EXPECT_NE(error.str().find(path), std::string::npos) << caseName << ": " << error.c_str();
      EXPECT_GT(error.str().size(), path.size() + 16) << caseName << ": " << error.c_str();
    }
    watchdog.end();
    if (::testing::Test::HasFailure()) break;
  }
  ::testing::Test::RecordProperty("images", images);
  std::remove(path.c_str());
}
