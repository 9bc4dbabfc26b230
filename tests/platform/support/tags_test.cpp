#include "platform/support/tags.h"

#include <gtest/gtest.h>

TEST(TagRegistry, SameNameGivesTheSameStableHandle) {
  voSupport::TagRegistry registry;
  const voSupport::Tag* hover = registry.getTag("KLTHoverTag");
  for (int i = 0; i < 100; ++i) registry.getTag(ruString::CString::format("tag%d", i));
  EXPECT_EQ(registry.getTag("KLTHoverTag"), hover);
  EXPECT_EQ(hover->name(), "KLTHoverTag");
  EXPECT_NE(registry.getTag("KLTHoverSelectedTag"), hover);
  EXPECT_EQ(registry.size(), 102u);
}

TEST(TagRegistry, FindDoesNotCreate) {
  voSupport::TagRegistry registry;
  EXPECT_EQ(registry.findTag("KLTHoverTag"), nullptr);
  const voSupport::Tag* tag = registry.getTag("KLTHoverTag");
  EXPECT_EQ(registry.findTag("KLTHoverTag"), tag);
  EXPECT_EQ(registry.findTag("klthovertag"), nullptr);
}
