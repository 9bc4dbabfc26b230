#include "platform/support/attribute.h"
#include "platform/support/keycache.h"
#include "platform/support/settings.h"

#include <gtest/gtest.h>

TEST(Parameters, DefaultsAndSettersAreReadLive) {
  EXPECT_EQ(voSupport::getMovingGestureThreshold(), 5.0);
  EXPECT_EQ(voSupport::getHitTestRadius(), 4);
  EXPECT_EQ(voSupport::getDisplayDPI(), 96.0);
  voSupport::setMovingGestureThreshold(8.5);
  voSupport::setHitTestRadius(6);
  voSupport::setDisplayDPI(144.0);
  EXPECT_EQ(voSupport::getMovingGestureThreshold(), 8.5);
  EXPECT_EQ(voSupport::getHitTestRadius(), 6);
  EXPECT_EQ(voSupport::getDisplayDPI(), 144.0);
  voSupport::setMovingGestureThreshold(5.0);
  voSupport::setHitTestRadius(4);
  voSupport::setDisplayDPI(96.0);
}

TEST(PropertySet, FindsByFullKeyAndMissGivesNull) {
  voSupport::PropertySet settings;
  settings.set("vo.app.settings.showOutOfBounds", true);
  settings.set("vo.app.settings.thicknessSurfaceCoverage", 0.25);
  EXPECT_NE(settings.find("vo.app.settings.showOutOfBounds"), nullptr);
  EXPECT_EQ(settings.find("showOutOfBounds"), nullptr);
  EXPECT_EQ(settings.get("vo.app.settings.showOutOfBounds", false), true);
  EXPECT_EQ(settings.get("vo.app.settings.thicknessSurfaceCoverage", 0.0), 0.25);
  EXPECT_EQ(settings.get("vo.app.settings.thicknessSurfaceCoverage", false), false);  // other type
}

TEST(PropertySet, UntransactedCloneReadsTheTypedValue) {
  voSupport::PropertySet settings;
  settings.set("vo.app.settings.CutawayCaps", true);
  ru::Reference<voSupport::Property> clone = settings.find("vo.app.settings.CutawayCaps")->cloneUnTxd();
  auto* typed = dynamic_cast<voSupport::PropertyTBase<bool>*>(clone.get());
  ASSERT_NE(typed, nullptr);
  EXPECT_TRUE(typed->getValue());
  settings.set("vo.app.settings.CutawayCaps", false);
  EXPECT_TRUE(typed->getValue());  // the clone stands apart from later edits
}

TEST(PropertySet, TypedPropertiesReadAndWriteUnderTheShortNames) {
  voSupport::PropertyTBase<double> coverage(0.25);
  EXPECT_EQ(coverage.get(), 0.25);
  coverage.set(0.75);
  EXPECT_EQ(coverage.get(), 0.75);
  EXPECT_EQ(coverage.getValue(), 0.75);
  EXPECT_EQ(static_cast<double>(coverage.value()->value()), 0.75);
}

TEST(PropertySet, ValueReadsAsADoubleThroughTheItem) {
  voSupport::PropertySet settings;
  settings.set("vo.app.settings.thicknessSurfaceCoverage", 0.4);
  ru::Reference<voPLST::Item> item = settings.find("vo.app.settings.thicknessSurfaceCoverage")->value();
  double coverage = item->value();
  EXPECT_EQ(coverage, 0.4);
}

TEST(PropertySet, SetValueFromAnItemConvertsOrRefuses) {
  voSupport::PropertyTBase<int> property(3);
  EXPECT_TRUE(property.setValue(voPLST::Double(7.9)));
  EXPECT_EQ(property.getValue(), 7);
  voPLST::Dictionary dictionary;
  EXPECT_FALSE(property.setValue(dictionary));
  EXPECT_EQ(property.getValue(), 7);
}

TEST(PropertySet, ChangesAreSignalledWithTheKey) {
  voSupport::PropertySet settings;
  std::vector<std::string> keys;
  settings.sigChanged.addCallback([&](const ruString::CString& key) { keys.push_back(key.str()); });
  settings.set("a", 1.0);
  settings.set("a", 2.0);
  settings.set("b", ruString::CString("text"));
  settings.set("c", "literal");
  EXPECT_TRUE(settings.remove("a"));
  EXPECT_FALSE(settings.remove("a"));
  EXPECT_EQ(keys, (std::vector<std::string>{"a", "a", "b", "c", "a"}));
  EXPECT_EQ(settings.get("c", ruString::CString()), "literal");
  EXPECT_EQ(settings.keys().size(), 2u);
}

namespace {
struct Ramp : voSupport::Attribute<double> {
  bool dynamic() const override { return true; }
  double evaluate() const override { return 0.5; }
};
struct Entry : ru::ReferenceCount {
  int payload = 3;
};
}  // namespace

TEST(Attribute, IsReferenceCountedAndEvaluates) {
  ru::Reference<voSupport::AttributeBase> base(new Ramp);
  auto typed = ru::dynamicCast<voSupport::Attribute<double>>(base);
  ASSERT_TRUE(typed);
  EXPECT_TRUE(typed->dynamic());
  EXPECT_EQ(typed->evaluate(), 0.5);
  EXPECT_EQ(base->refCount(), 2);
}

TEST(KeyedCache, DefaultKeyIsInvalidAndCopiesShareTheEntry) {
  ruKRCache::Key<Entry> none;
  EXPECT_FALSE(none.valid());
  ruKRCache::Key<Entry> key(ru::Reference<Entry>(new Entry));
  ruKRCache::Key<Entry> copy = key;
  EXPECT_TRUE(copy.valid());
  EXPECT_EQ(copy, key);
  EXPECT_EQ(copy->payload, 3);
  EXPECT_EQ(key.get()->refCount(), 2);
  copy.reset();
  EXPECT_FALSE(copy.valid());
  EXPECT_EQ(key.get()->refCount(), 1);
}
