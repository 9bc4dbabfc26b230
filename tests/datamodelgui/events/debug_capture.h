#pragma once

#include "platform/support/debug.h"

#include <string>
#include <vector>

namespace eventstest {

// Captures the debug log with code 40 enabled for its lifetime, and restores it afterwards.
class DebugCapture {
public:
  struct Record {
    int code;
    std::string function;
    std::string text;
  };

  DebugCapture() {
    auto& debug = voSupport::Debug::getInstance();
    debug.setSink([this](int code, const char* function, const char* text) { records.push_back({code, function, text}); });
    debug.setEnabled(voSupport::DebugEvents, true);
  }
  ~DebugCapture() {
    auto& debug = voSupport::Debug::getInstance();
    debug.setEnabled(voSupport::DebugEvents, false);
    debug.setSink({});
  }

  std::vector<std::string> texts() const {
    std::vector<std::string> out;
    for (const Record& record : records) out.push_back(record.text);
    return out;
  }
  // "function|text" of each record.
  std::vector<std::string> lines() const {
    std::vector<std::string> out;
    for (const Record& record : records) out.push_back(record.function + "|" + record.text);
    return out;
  }
  void clear() { records.clear(); }

  std::vector<Record> records;
};

}  // namespace eventstest
