#include "platform/support/plist.h"

#include <gtest/gtest.h>

TEST(PropertyList, DictionaryStoresFindsAndReplaces) {
  ru::Reference<voPLST::Dictionary> dictionary(new voPLST::Dictionary);
  dictionary->setDouble("type", 3);
  dictionary->setBool("initialize", true);
  dictionary->setString("name", "bed");
  EXPECT_EQ(dictionary->size(), 3u);
  EXPECT_EQ(static_cast<double>(dictionary->find("type")->value()), 3.0);
  EXPECT_EQ(dictionary->find("missing"), nullptr);
  EXPECT_EQ(dictionary->findValue("name")->toString(), "bed");
  dictionary->set("type", nullptr);
  EXPECT_FALSE(dictionary->contains("type"));
}

TEST(PropertyList, BooleanChangesInPlace) {
  ru::Reference<voPLST::Dictionary> dictionary(new voPLST::Dictionary);
  dictionary->setBool("initialize", true);
  voPLST::Item* stored = dictionary->find("initialize");
  static_cast<voPLST::Boolean*>(stored)->set(false);
  EXPECT_EQ(dictionary->find("initialize"), stored);
  EXPECT_FALSE(static_cast<bool>(stored->value()));
}

TEST(PropertyList, ValuesConvertBetweenKinds) {
  voPLST::Double number(-2.75);
  EXPECT_EQ(static_cast<int>(number), -2);  // truncation toward zero
  EXPECT_TRUE(static_cast<bool>(number));
  voPLST::String text("12.5");
  EXPECT_EQ(static_cast<double>(text), 12.5);
  voPLST::Boolean flag(true);
  EXPECT_EQ(static_cast<double>(flag), 1.0);
  voPLST::Array array;
  EXPECT_EQ(static_cast<double>(array.value()), 0.0);  // containers have no scalar value
}

TEST(PropertyList, ArrayAppendsAndIndexes) {
  ru::Reference<voPLST::Array> array(new voPLST::Array);
  array->appendDouble(3);
  array->appendDouble(4);
  array->append(nullptr);
  EXPECT_EQ(array->size(), 2u);
  EXPECT_EQ(static_cast<double>(array->at(1)->value()), 4.0);
  EXPECT_EQ(array->at(2), nullptr);
}

TEST(PropertyList, KindQueriesAndCasts) {
  ru::Reference<voPLST::Item> dictionary(new voPLST::Dictionary);
  EXPECT_TRUE(dictionary->isDictionary());
  EXPECT_NE(dictionary->asDictionary(), nullptr);
  EXPECT_EQ(dictionary->asArray(), nullptr);
  ru::Reference<voPLST::Item> value(new voPLST::Double(1));
  EXPECT_TRUE(value->isValue());
  EXPECT_EQ(value->asDictionary(), nullptr);
}

TEST(PropertyList, RoundTripsThroughJSON) {
  ru::Reference<voPLST::Dictionary> event(new voPLST::Dictionary);
  event->setDouble("type", 2);
  event->setDouble("timestamp", 12.125);
  event->setBool("erase", false);
  event->setString("text", "h\xC3\xA9");
  ru::Reference<voPLST::Array> position(new voPLST::Array);
  position->appendDouble(10);
  position->appendDouble(-20);
  event->set("position", position);
  ru::Reference<voPLST::Array> touches(new voPLST::Array);
  touches->append(event->clone());
  event->set("touches", touches);

  ruString::CString json = voPLST::toJSON(*event);
  ruString::CString error;
  ru::Reference<voPLST::Item> back = voPLST::fromJSON(json.view(), &error);
  ASSERT_TRUE(back) << error.c_str();
  EXPECT_TRUE(back->equals(*event));
  EXPECT_TRUE(voPLST::fromJSON(voPLST::toJSON(*event, true).view())->equals(*event));
}

TEST(PropertyList, MalformedJSONGivesAnErrorThatSaysWhere) {
  ruString::CString error;
  EXPECT_FALSE(voPLST::fromJSON("{\"type\": 2,", &error));
  EXPECT_TRUE(error.startsWith("malformed JSON")) << error.c_str();
  EXPECT_NE(error.find("line 1"), ruString::CString::npos) << error.c_str();
  EXPECT_FALSE(voPLST::fromJSON("", &error));
  EXPECT_FALSE(voPLST::fromJSON("[1, 2] trailing", &error));
}

TEST(PropertyList, JSONNullHasNoPropertyListForm) {
  ruString::CString error;
  EXPECT_FALSE(voPLST::fromJSON("{\"a\": [1, null]}", &error));
  EXPECT_EQ(error, "JSON null at /a/1 has no property-list form");
}

TEST(PropertyList, CloneIsDeep) {
  ru::Reference<voPLST::Dictionary> original(new voPLST::Dictionary);
  original->setBool("flag", true);
  ru::Reference<voPLST::Item> copy = original->clone();
  static_cast<voPLST::Boolean*>(original->find("flag"))->set(false);
  EXPECT_TRUE(static_cast<bool>(copy->asDictionary()->find("flag")->value()));
  EXPECT_FALSE(copy->equals(*original));
}

TEST(PropertyList, DeeplyNestedJSONIsRefusedWithAClearError) {
  // 50,000 levels: a recursive reader would run out of stack long before the end.
  const std::string text = std::string(50000, '[') + std::string(50000, ']');
  ruString::CString error;
  EXPECT_FALSE(voPLST::fromJSON(text, &error));
  EXPECT_NE(error.str().find("nested deeper than 512 levels"), std::string::npos) << error.c_str();
  const std::string objects = [] {
    std::string t;
    for (int i = 0; i < 50000; ++i) t += "{\"a\":";
    t += "1";
    t += std::string(50000, '}');
    return t;
  }();
  EXPECT_FALSE(voPLST::fromJSON(objects, &error));
  EXPECT_NE(error.str().find("nested deeper"), std::string::npos) << error.c_str();
}

TEST(PropertyList, NestingUpToTheLimitReadsAndBracketsInStringsDoNotCount) {
  const int depth = voPLST::maxJSONDepth;
  const std::string text = std::string(depth, '[') + "\"[[[[\\\"{{{{\"" + std::string(depth, ']');
  ruString::CString error;
  ru::Reference<voPLST::Item> item = voPLST::fromJSON(text, &error);
  ASSERT_TRUE(item) << error.c_str();
  int levels = 0;
  const voPLST::Item* at = item.get();
  while (const voPLST::Array* array = at->asArray()) {
    ++levels;
    ASSERT_EQ(array->size(), 1u);
    at = array->begin()->get();
  }
  EXPECT_EQ(levels, depth);
  EXPECT_EQ(at->value().toString(), "[[[[\"{{{{");
  EXPECT_FALSE(voPLST::fromJSON(std::string(depth + 1, '[') + std::string(depth + 1, ']'), &error));
}

TEST(PropertyList, NumbersBeyondADoubleAreAnErrorNotAnException) {
  ruString::CString error;
  EXPECT_FALSE(voPLST::fromJSON("[1e400]", &error));
  EXPECT_NE(error.str().find("malformed JSON"), std::string::npos) << error.c_str();
}

TEST(PropertyList, InvalidUTF8IsWrittenAsReplacementCharacters) {
  ru::Reference<voPLST::Dictionary> dictionary(new voPLST::Dictionary);
  dictionary->setString("name", std::string("a\xff" "b\xc3", 4));
  dictionary->setString(std::string("k\x80", 2), "v");
  const std::string text = voPLST::toJSON(*dictionary).str();
  EXPECT_EQ(text, "{\"k\xef\xbf\xbd\":\"v\",\"name\":\"a\xef\xbf\xbd" "b\xef\xbf\xbd\"}");
  ruString::CString error;
  ru::Reference<voPLST::Item> back = voPLST::fromJSON(text, &error);
  ASSERT_TRUE(back) << error.c_str();
  EXPECT_EQ(back->asDictionary()->findValue("name")->toString(), "a\xef\xbf\xbd" "b\xef\xbf\xbd");
  // Invalid UTF-8 in the text read is a clear error.
  EXPECT_FALSE(voPLST::fromJSON("[\"\xff\"]", &error));
  EXPECT_NE(error.str().find("malformed JSON"), std::string::npos) << error.c_str();
}
