#include "datamodelgui/print/huegenerator.h"

#include "platform/base/color.h"
#include "platform/image/png.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>

using voDMG::HueGenerator;
using Image4 = ruImage::TypedImage<ruImage::Byte4>;

namespace {

// The hue angles each twelfth of the image starts and ends at, as the test expects them.
constexpr double kTable[13] = {0, 23, 34, 47, 60, 78, 117, 191, 208, 235, 277, 323, 360};

std::filesystem::path outputFolder() {
  std::filesystem::path folder(DMGUI_TEST_OUTPUT_DIR);
  std::filesystem::create_directories(folder);
  return folder;
}

ru::Reference<Image4> generate(int width, const voRES::ImageKeys& keys = {}) {
  ru::Reference<HueGenerator> generator(new HueGenerator(width));
  ru::Reference<ruImage::Image> image = generator->generate(keys);
  if (!image || image->getPixelFormat() != ruImage::PixelFormat::Byte4) return nullptr;
  return ru::Reference<Image4>(static_cast<Image4*>(image.get()));
}

// Full saturation, half lightness, worked out here independently of the platform: each component
// is 1 - clamp(|((hue / 60 + n) mod 6) - 3| - 1), truncated to a byte.
ruImage::Byte4 expectedColour(double hue) {
  auto component = [hue](double n) {
    const double k = std::fmod(hue / 60.0 + n, 6.0);
    const double value = std::clamp(std::abs(k - 3.0) - 1.0, 0.0, 1.0);
    return static_cast<std::uint8_t>(value * 255.0);
  };
  return ruImage::Byte4(component(0.0), component(4.0), component(2.0), 255);
}

// The hue of a pixel in degrees, 0..360, from its bytes.
double hueOf(const ruImage::Byte4& p) {
  const double r = p.r / 255.0, g = p.g / 255.0, b = p.b / 255.0;
  const double high = std::max({r, g, b}), low = std::min({r, g, b});
  const double chroma = high - low;
  if (chroma == 0.0) return 0.0;
  double hue;
  if (high == r) hue = std::fmod((g - b) / chroma + 6.0, 6.0);
  else if (high == g) hue = (b - r) / chroma + 2.0;
  else hue = (r - g) / chroma + 4.0;
  return hue * 60.0;
}

// Where pixel i of a width-pixel image should sit on the wheel: linear within its twelfth.
double expectedHue(int i, int width) {
  const double x = static_cast<double>(i) / (width - 1) * 12.0;
  const int k = std::min(static_cast<int>(std::floor(x)), 11);
  const double f = x - k;
  return kTable[k] + (kTable[k + 1] - kTable[k]) * f;
}

void expectNear(const ruImage::Byte4& actual, const ruImage::Byte4& wanted, int tolerance, const std::string& where) {
  EXPECT_LE(std::abs(actual.r - wanted.r), tolerance) << where;
  EXPECT_LE(std::abs(actual.g - wanted.g), tolerance) << where;
  EXPECT_LE(std::abs(actual.b - wanted.b), tolerance) << where;
  EXPECT_EQ(actual.a, 255) << where;
}

// The image repeated over `rows` rows, so that it can be looked at.
void writeTall(const Image4& image, int rows, const char* file) {
  Image4 tall(image.xSize(), rows);
  for (int y = 0; y < rows; ++y)
    for (int x = 0; x < image.xSize(); ++x) tall.pixel(x, y) = image.pixel(x, 0);
  ASSERT_TRUE(ruImage::writePng(tall, (outputFolder() / file).string().c_str()));
}

const ruImage::Byte4 kRed(255, 0, 0, 255);

} // namespace

TEST(HueGenerator, WidthThirteenGivesTheThirteenTableHuesWithRedAtBothEnds) {
  const ru::Reference<Image4> image = generate(13);
  ASSERT_TRUE(image);
  ASSERT_EQ(image->xSize(), 13);
  ASSERT_EQ(image->ySize(), 1);
  for (int i = 0; i < 13; ++i) {
    const std::string where = "pixel " + std::to_string(i) + ", hue " + std::to_string(kTable[i]);
    // Exactly the table hue: the same bytes as converting the table hue itself.
    ruUtil::Color rgb;
    ruUtil::HSLtoRGB(ruUtil::HSL(kTable[i], 1.0, 0.5), rgb);
    const ruImage::Byte4 converted(static_cast<std::uint8_t>(rgb.r * 255.0f), static_cast<std::uint8_t>(rgb.g * 255.0f),
                                   static_cast<std::uint8_t>(rgb.b * 255.0f), 255);
    EXPECT_EQ(image->pixel(i, 0), converted) << where;
    // And that is the colour of the hue as worked out here, and reads back as the hue.
    expectNear(image->pixel(i, 0), expectedColour(kTable[i]), 1, where);
    if (i > 0 && i < 12) {
      EXPECT_NEAR(hueOf(image->pixel(i, 0)), kTable[i], 1.0) << where;
    }
  }
  EXPECT_EQ(image->pixel(0, 0), kRed);
  EXPECT_EQ(image->pixel(12, 0), kRed);
  EXPECT_EQ(image->pixel(4, 0), ruImage::Byte4(255, 255, 0, 255));  // hue 60, yellow
  writeTall(*image, 8, "hue_13.png");
}

TEST(HueGenerator, WidthTwoGivesTwoRedPixels) {
  const ru::Reference<Image4> image = generate(2);
  ASSERT_TRUE(image);
  ASSERT_EQ(image->xSize(), 2);
  ASSERT_EQ(image->ySize(), 1);
  EXPECT_EQ(image->pixel(0, 0), kRed);
  EXPECT_EQ(image->pixel(1, 0), kRed);
}

// One pixel sits at 0/0 of the way along; its colour is not to be relied on, but generating it
// must be safe (no undefined conversion under the sanitizers) and give one opaque pixel.
TEST(HueGenerator, WidthOneIsNotReliedOnButGivesOneOpaquePixelSafely) {
  const ru::Reference<Image4> image = generate(1);
  ASSERT_TRUE(image);
  ASSERT_EQ(image->xSize(), 1);
  ASSERT_EQ(image->ySize(), 1);
  EXPECT_EQ(image->pixel(0, 0).a, 255);
}

TEST(HueGenerator, GeneratorsOfEqualWidthCompareEqualHashAlikeAndShareOneCachedImage) {
  ru::Reference<HueGenerator> first(new HueGenerator(256));
  ru::Reference<HueGenerator> second(new HueGenerator(256));
  ru::Reference<HueGenerator> other(new HueGenerator(128));
  EXPECT_EQ(first->compare(second.get()), 0);
  EXPECT_EQ(first->hash(), second->hash());
  EXPECT_NE(first->compare(other.get()), 0);
  EXPECT_NE(first->hash(), other->hash());

  voRES::Loader loader;
  const voRES::ImageKey a = loader.createImageKey(first, {}, 0);
  const voRES::ImageKey b = loader.createImageKey(second, {}, 0);
  const voRES::ImageKey c = loader.createImageKey(other, {}, 0);
  ASSERT_TRUE(a.valid());
  ASSERT_TRUE(c.valid());
  EXPECT_EQ(a, b);
  EXPECT_NE(a, c);
  EXPECT_EQ(loader.numCachedKeys(), 2u);
  const voRES::ImageKeyAccessor shared(a);
  ASSERT_NE(shared.image(), nullptr);
  EXPECT_EQ(shared.image(), voRES::ImageKeyAccessor(b).image());
  EXPECT_EQ(shared.xSize(), 256);
  EXPECT_EQ(shared.ySize(), 1);
  EXPECT_EQ(voRES::ImageKeyAccessor(c).xSize(), 128);
}

TEST(HueGenerator, CompareIsMinusOneWhenTheOthersWidthIsGreaterAsSignedIntegers) {
  const HueGenerator narrow(-5), wide(300);
  EXPECT_EQ(narrow.compare(&wide), -1);
  EXPECT_EQ(wide.compare(&narrow), 1);
  EXPECT_EQ(wide.compare(&wide), 0);
}

TEST(HueGenerator, HashIsTheTypeHashThenTheSignExtendedWidth) {
  for (int width : {2, 13, -7}) {
    const HueGenerator generator(width);
    const std::uint64_t wanted =
        ru::Hasher().add(generator.getTypeHash()).add(static_cast<std::uint64_t>(static_cast<std::int64_t>(width))).value();
    EXPECT_EQ(generator.hash(), wanted) << width;
  }
  EXPECT_NE(HueGenerator(-7).hash(), HueGenerator(2).hash());
}

TEST(HueGenerator, ItsOperationsAnswerWhenCalledByTheirOwnNames) {
  const HueGenerator narrow(3), wide(13);
  EXPECT_EQ(narrow.onCompare(&wide), -1);
  EXPECT_EQ(wide.onCompare(&narrow), 1);
  EXPECT_EQ(narrow.onHash(), narrow.hash());
  const ru::Reference<ruImage::Image> image = wide.onGenerate({});
  ASSERT_TRUE(image);
  ASSERT_EQ(image->getPixelFormat(), ruImage::PixelFormat::Byte4);
  EXPECT_EQ(image->xSize(), 13);
  EXPECT_EQ(image->ySize(), 1);
  const ruImage::Byte4 last = static_cast<const Image4*>(image.get())->pixel(12, 0);
  EXPECT_EQ(last, ruImage::Byte4(255, 0, 0, 255));
}

TEST(HueGenerator, PredeterminedSizeIsFourBytesAPixelFromA32BitProduct) {
  EXPECT_TRUE(HueGenerator(13).hasPredeterminedSize({}));
  EXPECT_EQ(HueGenerator(13).getPredeterminedSize({}), 52);
  EXPECT_EQ(HueGenerator(0).getPredeterminedSize({}), 0);
  EXPECT_EQ(HueGenerator(-1).getPredeterminedSize({}), -4);
  // 600000000 * 4 overflows 32 bits and comes back negative, sign-extended.
  EXPECT_EQ(HueGenerator(600000000).getPredeterminedSize({}), std::int64_t(2400000000LL - 4294967296LL));
  // The size told matches the bytes generated.
  const ru::Reference<Image4> image = generate(97);
  ASSERT_TRUE(image);
  EXPECT_EQ(static_cast<std::int64_t>(image->byteSize()), HueGenerator(97).getPredeterminedSize({}));
}

TEST(HueGenerator, WidthBelowOneGivesASizedEmptyImage) {
  for (int width : {0, -3}) {
    const ru::Reference<Image4> image = generate(width);
    ASSERT_TRUE(image) << width;
    EXPECT_EQ(image->xSize(), 0) << width;
    EXPECT_EQ(image->ySize(), 1) << width;
    EXPECT_EQ(image->bytes(), nullptr) << width;
  }
}

TEST(HueGenerator, EachTwelfthOfTheImageSpansItsOwnStretchOfHues) {
  constexpr int width = 1201;  // 100 pixels a twelfth, plus the last
  const ru::Reference<Image4> image = generate(width);
  ASSERT_TRUE(image);
  ASSERT_EQ(image->xSize(), width);
  writeTall(*image, 64, "hue_1201.png");
  for (int i = 0; i < width; ++i) {
    const double hue = expectedHue(i, width);
    const std::string where = "pixel " + std::to_string(i) + ", hue " + std::to_string(hue);
    expectNear(image->pixel(i, 0), expectedColour(hue), 1, where);
    // Interior pixels read back as a hue within the stretch of their twelfth.
    if (i > 0 && i < width - 1) {
      const int k = i / 100;
      const double read = hueOf(image->pixel(i, 0));
      EXPECT_GE(read, kTable[k] - 1.0) << where;
      EXPECT_LE(read, kTable[k + 1] + 1.0) << where;
    }
  }
  // Uneven on purpose: the twelfth from 117 to 191 covers 74 degrees in as many pixels as the one
  // from 23 to 34 covers 11, so the hue climbs much faster there.
  const double slowStep = hueOf(image->pixel(150, 0)) - hueOf(image->pixel(110, 0));
  const double fastStep = hueOf(image->pixel(650, 0)) - hueOf(image->pixel(610, 0));
  EXPECT_NEAR(slowStep, 11.0 * 40 / 100, 1.0);
  EXPECT_NEAR(fastStep, 74.0 * 40 / 100, 1.0);
}

TEST(HueGenerator, InputKeysAreIgnored) {
  voRES::ImageKeys inputs;
  inputs.push_back(voRES::Loader::keyForImage(ru::Reference<ruImage::Image>(new Image4(3, 3))));
  const ru::Reference<Image4> with = generate(40, inputs);
  const ru::Reference<Image4> without = generate(40);
  ASSERT_TRUE(with);
  ASSERT_TRUE(without);
  ASSERT_EQ(with->xSize(), without->xSize());
  for (int i = 0; i < 40; ++i) EXPECT_EQ(with->pixel(i, 0), without->pixel(i, 0)) << i;
  EXPECT_EQ(HueGenerator(40).getPredeterminedSize(inputs), 160);
}

TEST(HueGenerator, CopiesKeepTheWidthAndStayEqualToTheOriginal) {
  const HueGenerator original(77);
  const HueGenerator copy(original);
  HueGenerator assigned(3);
  assigned = original;
  EXPECT_EQ(copy.value, 77);
  EXPECT_EQ(assigned.value, 77);
  EXPECT_EQ(copy.compare(&original), 0);
  EXPECT_EQ(assigned.hash(), original.hash());
  EXPECT_EQ(copy.refCount(), 0);
}
