#include "platform/image/png.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <unistd.h>
#include <string>

using namespace ruImage;
using ruString::CString;

namespace {

std::string tempPath(const char* name) {
  return (std::filesystem::temp_directory_path() / (std::string("ru_png_") + std::to_string(::getpid()) + "_" + name)).string();
}

TypedImage<Byte4> pattern() {
  TypedImage<Byte4> image(5, 3);
  for (int y = 0; y < 3; ++y) {
    for (int x = 0; x < 5; ++x) {
      image.pixel(x, y) = Byte4(static_cast<std::uint8_t>(x * 50), static_cast<std::uint8_t>(y * 100),
                                static_cast<std::uint8_t>(x + y), static_cast<std::uint8_t>(255 - x));
    }
  }
  return image;
}

std::uint32_t crc32(const std::string& data) {
  std::uint32_t crc = 0xFFFFFFFFu;
  for (unsigned char byte : data) {
    crc ^= byte;
    for (int k = 0; k < 8; ++k) crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
  }
  return ~crc;
}

void putBigEndian(std::string& out, std::uint32_t value) {
  for (int shift = 24; shift >= 0; shift -= 8) out += static_cast<char>((value >> shift) & 0xFF);
}

void putChunk(std::string& out, const char* type, const std::string& data) {
  putBigEndian(out, static_cast<std::uint32_t>(data.size()));
  const std::string body = type + data;
  out += body;
  putBigEndian(out, crc32(body));
}

// A well-formed PNG header claiming width x height 8-bit RGBA pixels, followed by a scrap of
// image data: enough for a reader to get past the header and size its image.
std::string pngClaiming(std::uint32_t width, std::uint32_t height) {
  std::string bytes("\x89PNG\r\n\x1a\n", 8);
  std::string header;
  putBigEndian(header, width);
  putBigEndian(header, height);
  header += std::string("\x08\x06\x00\x00\x00", 5);  // depth 8, RGBA, deflate, no filter, no interlace
  putChunk(bytes, "IHDR", header);
  putChunk(bytes, "IDAT", std::string("\x78\x9c\x03\x00\x00\x00\x00\x01", 8));
  putChunk(bytes, "IEND", "");
  return bytes;
}

void expectTooLarge(std::uint32_t width, std::uint32_t height, const char* name) {
  const std::string path = tempPath(name);
  const std::string bytes = pngClaiming(width, height);
  std::ofstream(path, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  CString error;
  EXPECT_FALSE(readPng(path, &error));
  const std::string expected = "image too large (" + std::to_string(width) + "x" + std::to_string(height) + ")";
  EXPECT_NE(error.str().find(expected), std::string::npos) << error.c_str();
  EXPECT_NE(error.str().find(path), std::string::npos) << error.c_str();
  std::remove(path.c_str());
}

}  // namespace

TEST(Png, AHeaderClaimingAMillionByAMillionPixelsIsRefusedAsTooLarge) {
  expectTooLarge(1000000, 1000000, "huge.png");
}

TEST(Png, AHeaderClaimingRowsWiderThanTheLimitIsRefusedAsTooLarge) {
  expectTooLarge(2000000000u, 1, "wide.png");
  expectTooLarge(1, 0x7fffffffu, "tall.png");
}

TEST(Png, AHeaderClaimingMorePixelsThanTheFileCanHoldIsRefusedBeforeAllocating) {
  // 20000 x 20000 RGBA is 1.6 GB, within the size limit, but a file of this few bytes cannot
  // inflate to it: the reader must not allocate and clear the image to find out.
  const std::string path = tempPath("small_file_huge_image.png");
  const std::string bytes = pngClaiming(20000, 20000);
  ASSERT_LT(bytes.size(), 100u);
  std::ofstream(path, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  CString error;
  EXPECT_FALSE(readPng(path, &error));
  const std::string expected =
      "image too large (20000x20000) for a file of " + std::to_string(bytes.size()) + " bytes, which cannot hold";
  EXPECT_NE(error.str().find(expected), std::string::npos) << error.c_str();
  std::remove(path.c_str());
}

TEST(Png, AHighlyCompressedImageWithinWhatItsFileCanHoldStillReads) {
  // A uniform 1000 x 1000 image compresses to a few kilobytes, far below the stored row bytes.
  const std::string path = tempPath("uniform.png");
  TypedImage<Byte4> image(1000, 1000);
  for (int y = 0; y < 1000; ++y) {
    for (int x = 0; x < 1000; ++x) image.pixel(x, y) = Byte4(10, 20, 30, 255);
  }
  ASSERT_TRUE(writePng(image, path));
  ASSERT_LT(std::filesystem::file_size(path), 1000u * 1000u * 4u / 100u);
  CString error;
  ru::Reference<TypedImage<Byte4>> back = readPng(path, &error);
  ASSERT_TRUE(back) << error.c_str();
  EXPECT_EQ(back->pixel(999, 999), Byte4(10, 20, 30, 255));
  std::remove(path.c_str());
}

TEST(Png, WrittenImageReadsBackPixelForPixel) {
  const std::string path = tempPath("roundtrip.png");
  TypedImage<Byte4> image = pattern();
  CString error;
  ASSERT_TRUE(writePng(image, path, &error)) << error.c_str();
  ru::Reference<TypedImage<Byte4>> back = readPng(path, &error);
  ASSERT_TRUE(back) << error.c_str();
  ASSERT_EQ(back->xSize(), 5);
  ASSERT_EQ(back->ySize(), 3);
  for (int y = 0; y < 3; ++y) {
    for (int x = 0; x < 5; ++x) EXPECT_EQ(back->pixel(x, y), image.pixel(x, y)) << x << "," << y;
  }
  std::remove(path.c_str());
}

TEST(Png, AFlippedImageReadsBackFlipped) {
  const std::string path = tempPath("flip.png");
  TypedImage<Byte4> image = pattern();
  imageFlipVertical(image);
  ASSERT_TRUE(writePng(image, path));
  ru::Reference<TypedImage<Byte4>> back = readPng(path);
  ASSERT_TRUE(back);
  imageFlipVertical(*back);
  const TypedImage<Byte4> original = pattern();
  for (int y = 0; y < 3; ++y) {
    for (int x = 0; x < 5; ++x) EXPECT_EQ(back->pixel(x, y), original.pixel(x, y));
  }
  std::remove(path.c_str());
}

TEST(Png, GreyImagesReadBackAsOpaqueGreyRgba) {
  const std::string path = tempPath("grey.png");
  TypedImage<Byte1> image(2, 1);
  image.pixel(0, 0) = Byte1(10);
  image.pixel(1, 0) = Byte1(200);
  ASSERT_TRUE(writePng(image, path));
  ru::Reference<TypedImage<Byte4>> back = readPng(path);
  ASSERT_TRUE(back);
  EXPECT_EQ(back->pixel(0, 0), Byte4(10, 10, 10, 255));
  EXPECT_EQ(back->pixel(1, 0), Byte4(200, 200, 200, 255));
  std::remove(path.c_str());
}

TEST(Png, AMissingFileGivesAnErrorNamingIt) {
  CString error;
  EXPECT_FALSE(readPng("/nonexistent/dir/missing.png", &error));
  EXPECT_NE(error.str().find("/nonexistent/dir/missing.png"), std::string::npos) << error.c_str();
  EXPECT_NE(error.str().find("cannot open"), std::string::npos) << error.c_str();
}

TEST(Png, AFileThatIsNotAPngGivesABadSignatureError) {
  const std::string path = tempPath("text.png");
  std::ofstream(path) << "hello, this is not an image";
  CString error;
  EXPECT_FALSE(readPng(path, &error));
  EXPECT_NE(error.str().find("not a PNG"), std::string::npos) << error.c_str();
  EXPECT_NE(error.str().find(path), std::string::npos);
  std::remove(path.c_str());
}

TEST(Png, ATruncatedFileGivesAnErrorInsteadOfAnImage) {
  const std::string path = tempPath("truncated.png");
  TypedImage<Byte4> image(64, 64);
  for (int i = 0; i < 64 * 64; ++i) image.pixels()[i] = Byte4(static_cast<std::uint8_t>(i * 7), static_cast<std::uint8_t>(i), 3, 255);
  ASSERT_TRUE(writePng(image, path));
  const auto size = std::filesystem::file_size(path);
  std::filesystem::resize_file(path, size / 2);
  CString error;
  EXPECT_FALSE(readPng(path, &error));
  EXPECT_NE(error.str().find("corrupt or truncated"), std::string::npos) << error.c_str();
  std::remove(path.c_str());
}

TEST(Png, WritingAnEmptyImageFails) {
  TypedImage<Byte4> image;
  CString error;
  EXPECT_FALSE(writePng(image, tempPath("empty.png"), &error));
  EXPECT_NE(error.str().find("no pixels"), std::string::npos);
}

TEST(Png, WritingIntoAMissingFolderGivesAnErrorNamingTheFile) {
  TypedImage<Byte4> image(1, 1);
  CString error;
  EXPECT_FALSE(writePng(image, "/nonexistent/dir/out.png", &error));
  EXPECT_NE(error.str().find("/nonexistent/dir/out.png"), std::string::npos);
}
