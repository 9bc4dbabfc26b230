#include "platform/image/png.h"

#include <gtest/gtest.h>

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

}  // namespace

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
