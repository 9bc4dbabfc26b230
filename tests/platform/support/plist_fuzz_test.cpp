#include "platform/support/plist.h"

#include "tests/fuzzing.h"

#include <gtest/gtest.h>

#include <string>

namespace {

// A property list of every kind, nested, with strings that need escapes and non-ASCII text.
std::string sampleJson() {
  ru::Reference<voPLST::Dictionary> root(new voPLST::Dictionary);
  root->setDouble("count", 42);
  root->setDouble("ratio", -0.125e-3);
  root->setBool("visible", true);
  root->setString("name", "bed \"A\"\\\t\xc3\xa9\xe2\x82\xac");
  ru::Reference<voPLST::Array> list(new voPLST::Array);
  for (int i = 0; i < 4; ++i) list->appendDouble(i * 1.5);
  ru::Reference<voPLST::Dictionary> inner(new voPLST::Dictionary);
  inner->setString("unit", "mm");
  inner->set("corners", list);
  ru::Reference<voPLST::Array> nested(new voPLST::Array);
  nested->append(inner);
  nested->append(new voPLST::Array);
  root->set("items", nested);
  return voPLST::toJSON(*root).str();
}

}  // namespace

// Whatever the text, reading ends in a list or an error; a list read writes back to text that reads
// back to the same list.
TEST(PropertyListFuzz, EveryMutationOfJSONEndsInAListThatRoundTripsOrAClearError) {
  const std::string original = sampleJson();
  ASSERT_TRUE(voPLST::fromJSON(original));
  fuzz::Watchdog watchdog(10.0);
  int lists = 0;
  const int cases = 6000;
  for (int index = 0; index < cases; ++index) {
    // Alternate openers: arrays, then objects.
    const fuzz::Mutation mutation = fuzz::mutate(original, 31, index, (index / 8) % 2 ? "[" : "{\"k\":");
    const std::string caseName = "json case " + std::to_string(index) + " (" + mutation.name + ")";
    watchdog.begin(caseName);
    ruString::CString error;
    ru::Reference<voPLST::Item> item = voPLST::fromJSON(mutation.bytes, &error);
    if (item) {
      ++lists;
      EXPECT_TRUE(error.str().empty()) << caseName;
      const ruString::CString text = voPLST::toJSON(*item, index % 2 == 0);
      ru::Reference<voPLST::Item> back = voPLST::fromJSON(text.str(), &error);
      ASSERT_TRUE(back) << caseName << ": " << error.c_str();
      EXPECT_TRUE(back->equals(*item)) << caseName << ": " << text.c_str();
    } else {
      EXPECT_FALSE(error.str().empty()) << caseName;
    }
    watchdog.end();
    if (::testing::Test::HasFailure()) break;
  }
  ::testing::Test::RecordProperty("lists", lists);
}

// Strings of random bytes, most of them not UTF-8, are written as valid JSON that reads back.
TEST(PropertyListFuzz, ArbitraryBytesInStringsAndKeysAlwaysWriteValidJSON) {
  fuzz::Random random(32);
  fuzz::Watchdog watchdog(10.0);
  for (int index = 0; index < 3000; ++index) {
    std::string key, value;
    for (std::size_t i = 1 + random.below(12); i > 0; --i) key += static_cast<char>(1 + random.below(255));
    for (std::size_t i = random.below(24); i > 0; --i) value += static_cast<char>(1 + random.below(255));
    const std::string caseName = "bytes case " + std::to_string(index);
    watchdog.begin(caseName);
    ru::Reference<voPLST::Dictionary> dictionary(new voPLST::Dictionary);
    dictionary->setString(key, value);
    const ruString::CString text = voPLST::toJSON(*dictionary);
    ruString::CString error;
    ru::Reference<voPLST::Item> back = voPLST::fromJSON(text.str(), &error);
    ASSERT_TRUE(back) << caseName << ": " << error.c_str();
    ASSERT_TRUE(back->asDictionary()) << caseName;
    EXPECT_EQ(back->asDictionary()->size(), 1u) << caseName;
    watchdog.end();
  }
}
