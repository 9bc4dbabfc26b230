#include "platform/base/strings.h"
#include "platform/base/typename.h"

#include <gtest/gtest.h>

TEST(CString, DefaultIsEmptyAndComparisonIsExact) {
  ruString::CString empty;
  EXPECT_TRUE(empty.empty());
  EXPECT_EQ(ruString::CString("keyG"), ruString::CString("keyG"));
  EXPECT_FALSE(ruString::CString("keyG") == ruString::CString("KeyG"));
  EXPECT_TRUE(ruString::CString("abc") < ruString::CString("abd"));
  EXPECT_EQ(ruString::CString(nullptr), "");
}

TEST(CString, FormatsLikePrintf) {
  EXPECT_EQ(ruString::CString::format("(%d,%d)", -3, 12), "(-3,12)");
  EXPECT_EQ(ruString::CString::format("%.02f %s", 1.0 / 3.0, "x"), "0.33 x");
  std::string longText(1000, 'q');
  EXPECT_EQ(ruString::CString::format("%s!", longText.c_str()).size(), 1001u);
}

TEST(CString, AppendsAndJoins) {
  ruString::CString text("Left");
  text += ",";
  text.append("Right").appendFormat("%d", 3);
  EXPECT_EQ(text, "Left,Right3");
  EXPECT_EQ(ruString::CString("a") + "b", "ab");
  EXPECT_TRUE(text.startsWith("Left"));
  EXPECT_EQ(text.find("Right"), 5u);
  EXPECT_EQ(text.substr(5, 5), "Right");
}

TEST(IString, HoldsUtf8AndCountsCharacters) {
  ruString::IString text("h\xC3\xA9llo \xE2\x82\xAC");  // "héllo €"
  EXPECT_EQ(text.size(), 10u);
  EXPECT_EQ(text.numCharacters(), 7u);
  std::u32string points = text.toCodePoints();
  EXPECT_EQ(points[1], U'\u00E9');
  EXPECT_EQ(points[6], U'\u20AC');
  EXPECT_EQ(ruString::IString::fromCodePoints(points), text);
}

TEST(IString, MalformedBytesBecomeReplacementCharacters) {
  ruString::IString text("a\xC3");  // truncated sequence
  std::u32string points = text.toCodePoints();
  ASSERT_EQ(points.size(), 2u);
  EXPECT_EQ(points[1], U'\uFFFD');
}

TEST(IString, StrayBytesBecomeOneReplacementCharacterEach) {
  const std::u32string points = ruString::IString("a\xFF\x80" "b").toCodePoints();
  EXPECT_EQ(points, std::u32string(U"a\uFFFD\uFFFDb"));
}

TEST(IString, ConvertsExplicitlyToAndFromCString) {
  ruString::IString text(ruString::CString("NONE"));
  EXPECT_EQ(text, "NONE");
  EXPECT_EQ(text.toCString(), "NONE");
  EXPECT_EQ(ruString::IString::fromCString(ruString::CString("keyG")), ruString::IString("keyG"));
  EXPECT_TRUE(ruString::IString::fromCString(ruString::CString()).empty());
  text.clear();
  EXPECT_TRUE(text.empty());
}

namespace demo {
struct Sample {
  virtual ~Sample() = default;
};
struct Derived : Sample {};
}  // namespace demo

TEST(ClassName, GivesTheReadableRunTimeClassName) {
  demo::Derived derived;
  const demo::Sample& base = derived;
  EXPECT_EQ(ru::classNameOf(base), "demo::Derived");
  EXPECT_EQ(ru::className(typeid(int)), "int");
}
