#include "platform/base/color.h"

#include <gtest/gtest.h>

#include <cstring>

TEST(Color8, PackedValueIsRedGreenBlueAlphaInMemoryOrder) {
  ruUtil::Color8 color(0xFFA564F0u);
  EXPECT_EQ(color.r, 0xF0);
  EXPECT_EQ(color.g, 0x64);
  EXPECT_EQ(color.b, 0xA5);
  EXPECT_EQ(color.a, 0xFF);
  unsigned char bytes[4];
  std::memcpy(bytes, &color, 4);
  EXPECT_EQ(bytes[0], 0xF0);
  EXPECT_EQ(bytes[1], 0x64);
  EXPECT_EQ(bytes[2], 0xA5);
  EXPECT_EQ(bytes[3], 0xFF);
  EXPECT_EQ(color.packed(), 0xFFA564F0u);
}

TEST(Color8, ConvertsToColorByDividingBy255) {
  ruUtil::Color white = ruUtil::Color8(0xFFFFFFFFu);
  EXPECT_EQ(white, ruUtil::Color::white);
  ruUtil::Color color = ruUtil::Color8(0xFFA564F0u).toColor();
  EXPECT_FLOAT_EQ(color.r, 0xF0 / 255.0f);
  EXPECT_FLOAT_EQ(color.b, 0xA5 / 255.0f);
}

struct HueCase {
  double hue;
  float r, g, b;
};

class HSLPrimaries : public ::testing::TestWithParam<HueCase> {};

TEST_P(HSLPrimaries, ComeOutExact) {
  ruUtil::Color color;
  ruUtil::HSLtoRGB(ruUtil::HSL(GetParam().hue, 1.0, 0.5), color);
  EXPECT_EQ(color.r, GetParam().r);
  EXPECT_EQ(color.g, GetParam().g);
  EXPECT_EQ(color.b, GetParam().b);
  EXPECT_EQ(color.a, 1.0f);
}

INSTANTIATE_TEST_SUITE_P(Hues, HSLPrimaries,
                         ::testing::Values(HueCase{0, 1, 0, 0}, HueCase{60, 1, 1, 0}, HueCase{120, 0, 1, 0},
                                           HueCase{180, 0, 1, 1}, HueCase{240, 0, 0, 1}, HueCase{300, 1, 0, 1},
                                           HueCase{360, 1, 0, 0}, HueCase{-120, 0, 0, 1}, HueCase{720, 1, 0, 0}),
                         [](const auto& testInfo) {
                           std::string name = "Hue" + std::to_string(static_cast<int>(testInfo.param.hue));
                           for (char& c : name) {
                             if (c == '-') c = 'm';
                           }
                           return name;
                         });

TEST(HSL, GreyAndExtremeLightness) {
  ruUtil::Color color;
  ruUtil::HSLtoRGB(ruUtil::HSL(200, 0.0, 0.25), color);
  EXPECT_FLOAT_EQ(color.r, 0.25f);
  EXPECT_FLOAT_EQ(color.g, 0.25f);
  EXPECT_FLOAT_EQ(color.b, 0.25f);
  ruUtil::HSLtoRGB(ruUtil::HSL(30, 1.0, 1.0), color);
  EXPECT_EQ(color, ruUtil::Color(1, 1, 1, 1));
  ruUtil::HSLtoRGB(ruUtil::HSL(30, 1.0, 0.0), color);
  EXPECT_EQ(color, ruUtil::Color(0, 0, 0, 1));
}

TEST(HSL, HalfwayHueMixesTwoPrimaries) {
  ruUtil::Color color;
  ruUtil::HSLtoRGB(ruUtil::HSL(30, 1.0, 0.5), color);
  EXPECT_FLOAT_EQ(color.r, 1.0f);
  EXPECT_FLOAT_EQ(color.g, 0.5f);
  EXPECT_FLOAT_EQ(color.b, 0.0f);
}
