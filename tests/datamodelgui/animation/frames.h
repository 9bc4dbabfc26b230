#pragma once

// Helpers of the animation tests: one frame as a host runs it, and a capture of the animation
// layer's debug lines.

#include "datamodelgui/animation/animation.h"
#include "platform/support/debug.h"

#include <algorithm>
#include <string>
#include <vector>

namespace animationtest {

struct FrameResult {
  bool executing;  // preExecute's answer
  bool again;      // postUpdate's answer
};

// preUpdate, preExecute, postUpdate, in that order.
inline FrameResult frame(voANM::Manager& manager) {
  manager.preUpdate();
  const bool executing = manager.preExecute();
  return {executing, manager.postUpdate()};
}

// Captures the code-36 debug lines, as "function: text", while alive.
class AnimationLog {
public:
  AnimationLog() {
    voSupport::Debug::getInstance().setEnabled(voSupport::DebugAnimation, true);
    voSupport::Debug::getInstance().setSink([this](int code, const char* function, const char* text) {
      if (code == voSupport::DebugAnimation) lines.push_back(std::string(function) + ": " + text);
    });
  }
  ~AnimationLog() {
    voSupport::Debug::getInstance().setSink({});
    voSupport::Debug::getInstance().setEnabled(voSupport::DebugAnimation, false);
  }
  bool contains(const std::string& line) const { return std::find(lines.begin(), lines.end(), line) != lines.end(); }
  std::vector<std::string> lines;
};

} // namespace animationtest
