#pragma once

#include "platform/base/signal.h"
#include "platform/support/export.h"

#include <array>
#include <cstdarg>
#include <functional>

namespace voSupport {

// Channels of the debug log. A plain enumeration, so a code converts to int.
enum DebugCode : int {
  DebugWireframe = 12,  // switches the wireframe and open-edge overlay of mesh drawing
  DebugHitTest = 23,    // hit testing, candidates and selection drawing
  DebugSnap = 24,       // snapping
  DebugAnimation = 36,  // animation
  DebugEvents = 40,     // the event layer
};

// The process's debug log. Silent unless a channel is enabled; each print is one record handed to
// the sink with its code, the qualified name of the function that printed it, and the text.
// Both `Debug::getInstance().isEnabled(c)` and `Debug::getInstance()->isEnabled(c)` compile.
class VO_SUPPORT_API Debug {
public:
  using Sink = std::function<void(int code, const char* functionName, const char* text)>;

  static Debug& getInstance();
  Debug* operator->() noexcept { return this; }

  bool isEnabled(int code) const noexcept { return code >= 0 && code < numCodes && enabled_[code]; }
  // Switches a channel; emits sigChannelChanged with the code when the state changes. Codes
  // outside 0..255 are ignored.
  void setEnabled(int code, bool enabled);

  // Prints one record on `code` if it is enabled, with no function name.
  void print_(int code, const char* format, ...) __attribute__((format(printf, 3, 4)));
  // Prints one record on `code` if it is enabled.
  void print(int code, const char* functionName, const char* format, ...) __attribute__((format(printf, 4, 5)));
  void printV(int code, const char* functionName, const char* format, va_list args);

  // Replaces where records go; an empty function restores the default, standard error (the text as
  // formatted, with a newline added when it has none).
  void setSink(Sink sink);

  ruRTB::SignalArg<int> sigChannelChanged;

  static constexpr int numCodes = 256;

private:
  Debug() = default;
  std::array<bool, numCodes> enabled_{};
  Sink sink_;
};

// A print bound to a function name and a code: `DebugPrint("voEV::Parser::reset", DebugEvents)("...")`.
class VO_SUPPORT_API DebugPrint {
public:
  DebugPrint(const char* functionName, DebugCode code) noexcept : functionName_(functionName), code_(code) {}
  // The code by its number (12, 23, 24, 36, 40, ...).
  DebugPrint(const char* functionName, int code) noexcept
      : functionName_(functionName), code_(static_cast<DebugCode>(code)) {}
  void operator()(const char* format, ...) const __attribute__((format(printf, 2, 3)));
  bool enabled() const noexcept { return Debug::getInstance().isEnabled(code_); }

private:
  const char* functionName_;
  DebugCode code_;
};

}  // namespace voSupport
