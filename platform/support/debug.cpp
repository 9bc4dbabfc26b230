#include "platform/support/debug.h"

#include <cstdio>
#include <string>

namespace voSupport {

Debug& Debug::getInstance() {
  static Debug instance;
  return instance;
}

void Debug::setEnabled(int code, bool enabled) {
  if (code < 0 || code >= numCodes || enabled_[code] == enabled) return;
  enabled_[code] = enabled;
  sigChannelChanged.emit(code);
}

void Debug::print_(int code, const char* format, ...) {
  if (!isEnabled(code)) return;
  va_list args;
  va_start(args, format);
  printV(code, "", format, args);
  va_end(args);
}

void Debug::print(int code, const char* functionName, const char* format, ...) {
  if (!isEnabled(code)) return;
  va_list args;
  va_start(args, format);
  printV(code, functionName, format, args);
  va_end(args);
}

void Debug::printV(int code, const char* functionName, const char* format, va_list args) {
  if (!isEnabled(code)) return;
  std::string text;
  va_list copy;
  va_copy(copy, args);
  const int needed = std::vsnprintf(nullptr, 0, format, copy);
  va_end(copy);
  if (needed > 0) {
    text.resize(static_cast<std::size_t>(needed) + 1);
    std::vsnprintf(text.data(), text.size(), format, args);
    text.resize(static_cast<std::size_t>(needed));
  }
  if (!functionName) functionName = "";
  if (sink_) {
    sink_(code, functionName, text.c_str());
    return;
  }
  if (*functionName) {
    std::fprintf(stderr, "[%d] %s: %s", code, functionName, text.c_str());
  } else {
    std::fprintf(stderr, "[%d] %s", code, text.c_str());
  }
  if (text.empty() || text.back() != '\n') std::fputc('\n', stderr);
}

void Debug::setSink(Sink sink) { sink_ = std::move(sink); }

void DebugPrint::operator()(const char* format, ...) const {
  Debug& debug = Debug::getInstance();
  if (!debug.isEnabled(code_)) return;
  va_list args;
  va_start(args, format);
  debug.printV(code_, functionName_, format, args);
  va_end(args);
}

}  // namespace voSupport
