#include "platform/image/image.h"

#include <gtest/gtest.h>

#include <type_traits>

using namespace ruImage;

TEST(Image, UByte4IsTheSameTypeAsByte4) {
  EXPECT_TRUE((std::is_same_v<UByte4, Byte4>));
  EXPECT_EQ(sizeof(Byte4), 4u);
}

TEST(Image, SizingGivesTightlyPackedRowMajorZeroPixels) {
  TypedImage<Byte4> image;
  EXPECT_EQ(image.xSize(), 0);
  EXPECT_EQ(image.pixels(), nullptr);
  image.setSize(3, 2);
  EXPECT_EQ(image.xSize(), 3);
  EXPECT_EQ(image.ySize(), 2);
  EXPECT_EQ(image.byteSize(), 24u);
  EXPECT_EQ(image.rowBytes(), 12u);
  EXPECT_EQ(image.getPixelFormat(), PixelFormat::Byte4);
  for (int i = 0; i < 6; ++i) EXPECT_EQ(image.pixels()[i], Byte4());
  image.pixel(2, 1) = Byte4(1, 2, 3, 4);
  EXPECT_EQ(image.pixels()[5], Byte4(1, 2, 3, 4));
  EXPECT_EQ(image.bytes()[1 * 12 + 2 * 4 + 0], 1);
  EXPECT_EQ(image.bytes()[1 * 12 + 2 * 4 + 3], 4);
}

TEST(Image, ResizeIsSetSizeUnderItsOtherName) {
  TypedImage<Byte4> image(2, 2);
  image.pixel(1, 1) = Byte4(9, 9, 9, 9);
  image.resize(3, 2);
  EXPECT_EQ(image.xSize(), 3);
  EXPECT_EQ(image.ySize(), 2);
  EXPECT_EQ(image.byteSize(), 24u);
  EXPECT_EQ(image.pixel(1, 1), Byte4());
  image.resize(-1, 4);
  EXPECT_EQ(image.xSize(), 0);
  EXPECT_EQ(image.pixels(), nullptr);
}

TEST(Image, NegativeSizesClampToZero) {
  TypedImage<Byte4> image(4, 4);
  image.setSize(-3, 5);
  EXPECT_EQ(image.xSize(), 0);
  EXPECT_EQ(image.ySize(), 5);
  EXPECT_EQ(image.byteSize(), 0u);
  EXPECT_EQ(image.pixels(), nullptr);
  image.setSize(2, -1);
  EXPECT_EQ(image.xSize(), 2);
  EXPECT_EQ(image.ySize(), 0);
  EXPECT_EQ(image.byteSize(), 0u);
}

TEST(Image, AWidthOfZeroByOneGivesAnImageWithoutPixels) {
  TypedImage<Byte4> image;
  image.setSize(0, 1);
  EXPECT_EQ(image.byteSize(), 0u);
  EXPECT_EQ(image.bytes(), nullptr);
}

TEST(Image, ResizingClearsThePixels) {
  TypedImage<Byte4> image(2, 2);
  image.pixel(0, 0) = Byte4(9, 9, 9, 9);
  image.setSize(2, 2);
  EXPECT_EQ(image.pixel(0, 0), Byte4());
}

TEST(Image, FlipVerticalReversesTheRowOrder) {
  TypedImage<Byte4> image(2, 3);
  for (int y = 0; y < 3; ++y) {
    for (int x = 0; x < 2; ++x) image.pixel(x, y) = Byte4(static_cast<std::uint8_t>(x), static_cast<std::uint8_t>(y), 0, 255);
  }
  imageFlipVertical(image);
  for (int y = 0; y < 3; ++y) {
    for (int x = 0; x < 2; ++x) EXPECT_EQ(image.pixel(x, y), Byte4(static_cast<std::uint8_t>(x), static_cast<std::uint8_t>(2 - y), 0, 255));
  }
  imageFlipVertical(image);
  EXPECT_EQ(image.pixel(1, 0), Byte4(1, 0, 0, 255));
}

TEST(Image, FlipVerticalOfAnEvenHeightSwapsEveryPair) {
  TypedImage<Byte1> image(1, 4);
  for (int y = 0; y < 4; ++y) image.pixel(0, y) = Byte1(static_cast<std::uint8_t>(y));
  imageFlipVertical(image);
  for (int y = 0; y < 4; ++y) EXPECT_EQ(image.pixel(0, y).value, 3 - y);
}

TEST(Image, FlipVerticalOfAnEmptyImageDoesNothing) {
  TypedImage<Byte4> image;
  imageFlipVertical(image);
  EXPECT_EQ(image.byteSize(), 0u);
}

TEST(Image, CloneKeepsTheDynamicTypeAndPixels) {
  ru::Reference<Image> image(new TypedImage<Byte4>(2, 2));
  static_cast<TypedImage<Byte4>&>(*image).pixel(1, 1) = Byte4(5, 6, 7, 8);
  ru::Reference<Image> copy = image->clone();
  auto* typed = dynamic_cast<TypedImage<Byte4>*>(copy.get());
  ASSERT_NE(typed, nullptr);
  EXPECT_NE(copy.get(), image.get());
  EXPECT_EQ(typed->pixel(1, 1), Byte4(5, 6, 7, 8));
}

TEST(Image, AnImageIsReferenceCounted) {
  ru::Reference<Image> a(new TypedImage<Byte4>(1, 1));
  ru::Reference<Image> b = a;
  EXPECT_EQ(a->refCount(), 2);
}
