#include "datamodelgui/events/textinput.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

using namespace voEV;

namespace {

struct Counter : ruRTB::SignalClient {
  int emissions = 0;
  void onChanged() { ++emissions; }
};

struct CaretHook : TextClickDispatcher {
  std::vector<std::pair<int, int>> clicks;
  void onTextClick(int cursorPos, int anchorPos) override { clicks.emplace_back(cursorPos, anchorPos); }
};

}  // namespace

TEST(TextInput, ANewInputReadsNoneUntilSetEnableAndIsEmptyAfterDisabling) {
  TextInput input;
  EXPECT_FALSE(input.getEnable());
  EXPECT_EQ(input.getString(), "NONE");
  EXPECT_EQ(input.getInternString(), "NONE");
  EXPECT_EQ(input.getDefaultString(), "NONE");
  input.setEnable(false, "ignored");
  EXPECT_EQ(input.getString(), "");
  EXPECT_EQ(input.getInternString(), "");
  EXPECT_EQ(input.getDefaultString(), "");
}

TEST(TextInput, SetStringWhileDisabledEmptiesTheComposedTextTooButNotTheDefault) {
  TextInput input;
  input.setString("late");
  EXPECT_EQ(input.getString(), "");
  EXPECT_EQ(input.getInternString(), "");
  EXPECT_EQ(input.getDefaultString(), "NONE");
  TextInput other;
  other.setInternString("late");
  EXPECT_EQ(other.getString(), "");
  EXPECT_EQ(other.getInternString(), "");
  EXPECT_EQ(other.getDefaultString(), "NONE");
}

TEST(TextInput, SetCursorAndAnchorPosWithNoDispatcherReturnsFalseAndChangesNothing) {
  TextInput input;
  input.setEnable(true, "abc");
  EXPECT_FALSE(input.setCursorAndAnchorPos(1, 2));
  EXPECT_EQ(input.getString(), "abc");
  CaretHook hook;
  input.setTextClickDispatcher(&hook);
  EXPECT_TRUE(input.setCursorAndAnchorPos(3, 1));
  EXPECT_EQ(hook.clicks, (std::vector<std::pair<int, int>>{{3, 1}}));
  input.setTextClickDispatcher(nullptr);
  EXPECT_FALSE(input.setCursorAndAnchorPos(0, 0));
  EXPECT_EQ(hook.clicks.size(), 1u);
}

TEST(TextInput, SetEnableWhileAlreadyEnabledResetsAllThreeStringsAndEmitsAgain) {
  TextInput input;
  Counter counter;
  input.sigEnabledChanged.connect(&counter, &Counter::onChanged, counter);
  input.setEnable(true, "first");
  input.setString("typed");
  input.setInternString("composing");
  EXPECT_EQ(input.getString(), "typed");
  EXPECT_EQ(input.getInternString(), "composing");
  EXPECT_EQ(input.getDefaultString(), "first");
  input.setEnable(true, "second");
  EXPECT_EQ(input.getString(), "second");
  EXPECT_EQ(input.getInternString(), "second");
  EXPECT_EQ(input.getDefaultString(), "second");
  EXPECT_EQ(counter.emissions, 2);
  input.setEnable(false, "x");
  input.setEnable(false, "x");
  EXPECT_EQ(counter.emissions, 4);
}

TEST(TextInput, SettingOneStringWhileEnabledLeavesTheOtherAlone) {
  TextInput input;
  input.setEnable(true, "base");
  input.setInternString("ka");
  EXPECT_EQ(input.getString(), "base");
  input.setString("done");
  EXPECT_EQ(input.getInternString(), "ka");
  EXPECT_EQ(input.getString(), "done");
}
