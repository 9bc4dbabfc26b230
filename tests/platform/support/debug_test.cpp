#include "platform/support/debug.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

struct Record {
  int code;
  std::string function;
  std::string text;
};

// Captures the debug log and restores it afterwards.
class DebugCapture : public ::testing::Test {
protected:
  void SetUp() override {
    voSupport::Debug::getInstance().setSink([this](int code, const char* function, const char* text) {
      records.push_back({code, function, text});
    });
  }
  void TearDown() override {
    auto& debug = voSupport::Debug::getInstance();
    for (int code : {12, 23, 24, 36, 40}) debug.setEnabled(code, false);
    debug.setSink({});
  }
  std::vector<Record> records;
};

}  // namespace

TEST_F(DebugCapture, SilentUnlessTheCodeIsEnabled) {
  voSupport::DebugPrint("voEV::Parser::reset", voSupport::DebugEvents)("Parser: reset %d", 1);
  voSupport::Debug::getInstance().print_(voSupport::DebugEvents, "event\n");
  EXPECT_TRUE(records.empty());
  EXPECT_FALSE(voSupport::Debug::getInstance().isEnabled(40));
}

TEST_F(DebugCapture, EnabledPrintReachesTheSinkWithCodeFunctionAndText) {
  voSupport::Debug::getInstance().setEnabled(voSupport::DebugEvents, true);
  voSupport::DebugPrint("voEV::Parser::flushEvents", voSupport::DebugEvents)("Parser: %s %d", "flush", 2);
  voSupport::Debug::getInstance().print_(40, "(%d,%d)\n", 3, 4);
  voSupport::DebugPrint("voDMG::SnapManager::snap", voSupport::DebugSnap)("not on");
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records[0].code, 40);
  EXPECT_EQ(records[0].function, "voEV::Parser::flushEvents");
  EXPECT_EQ(records[0].text, "Parser: flush 2");
  EXPECT_EQ(records[1].function, "");
  EXPECT_EQ(records[1].text, "(3,4)\n");
}

TEST_F(DebugCapture, APrintMayNameItsCodeByNumber) {
  voSupport::DebugPrint("voDMG::CandidateSet::onHitsChanged", 23)("off");
  EXPECT_TRUE(records.empty());
  voSupport::Debug::getInstance().setEnabled(23, true);
  const voSupport::DebugPrint print("voDMG::CandidateSet::onHitsChanged", 23);
  EXPECT_TRUE(print.enabled());
  print("%d hits", 3);
  voSupport::DebugPrint("voDMG::SnapManager::snap", 24)("still off");
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].code, 23);
  EXPECT_EQ(records[0].function, "voDMG::CandidateSet::onHitsChanged");
  EXPECT_EQ(records[0].text, "3 hits");
}

TEST_F(DebugCapture, SwitchingAChannelEmitsItsCodeOnce) {
  std::vector<int> switched;
  ruRTB::SignalClient client;
  voSupport::Debug::getInstance().sigChannelChanged.addCallback([&](int code) { switched.push_back(code); }, client);
  voSupport::Debug::getInstance()->setEnabled(12, true);
  voSupport::Debug::getInstance()->setEnabled(12, true);  // no change, no signal
  EXPECT_TRUE(voSupport::Debug::getInstance()->isEnabled(12));
  voSupport::Debug::getInstance()->setEnabled(12, false);
  EXPECT_EQ(switched, (std::vector<int>{12, 12}));
}

TEST_F(DebugCapture, CodesOutsideTheTableAreNeverEnabled) {
  voSupport::Debug::getInstance().setEnabled(-1, true);
  voSupport::Debug::getInstance().setEnabled(1000, true);
  EXPECT_FALSE(voSupport::Debug::getInstance().isEnabled(-1));
  EXPECT_FALSE(voSupport::Debug::getInstance().isEnabled(1000));
}

TEST(DebugCodes, HaveTheirFixedValues) {
  EXPECT_EQ(voSupport::DebugWireframe, 12);
  EXPECT_EQ(voSupport::DebugHitTest, 23);
  EXPECT_EQ(voSupport::DebugSnap, 24);
  EXPECT_EQ(voSupport::DebugAnimation, 36);
  EXPECT_EQ(voSupport::DebugEvents, 40);
}

TEST(DebugDefaultSink, WritesToStandardErrorWithOneNewline) {
  auto& debug = voSupport::Debug::getInstance();
  debug.setSink({});
  debug.setEnabled(24, true);
  ::testing::internal::CaptureStderr();
  voSupport::DebugPrint("voDMG::SnapManager::snap", voSupport::DebugSnap)("caught %d", 1);
  debug.print_(24, "line\n");
  std::string out = ::testing::internal::GetCapturedStderr();
  debug.setEnabled(24, false);
  EXPECT_EQ(out, "[24] voDMG::SnapManager::snap: caught 1\n[24] line\n");
}
