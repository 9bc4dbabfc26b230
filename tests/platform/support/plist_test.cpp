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
