#pragma once

#include "datamodelgui/export.h"
#include "platform/base/reference.h"
#include "platform/base/signal.h"
#include "platform/base/strings.h"

namespace voEV {

// The host's hook for placing the caret and the selection anchor of an edited text.
class DMGUI_API TextClickDispatcher {
public:
  TextClickDispatcher() = default;
  TextClickDispatcher(const TextClickDispatcher& other) = default;
  TextClickDispatcher& operator=(const TextClickDispatcher& other) = default;

  // Positions in characters within the text.
  virtual void onTextClick(int cursorPos, int anchorPos) = 0;

protected:
  // Not deleted through this interface.
  ~TextClickDispatcher() = default;
};

// The model of an editable text: the committed text and the text in composition of an input
// method, and whether editing is on. All three strings read "NONE" until editing is first switched.
class DMGUI_API TextInput : public ru::ReferenceCount {
public:
  TextInput();
  TextInput(const TextInput& other) = default;
  TextInput& operator=(const TextInput& other) = default;
  ~TextInput() override;

  // Switches editing on (all three strings become `text`) or off (all three become empty), and
  // emits sigEnabledChanged on every call, changed or not.
  void setEnable(bool enable, const ruString::IString& text);
  bool getEnable() const noexcept { return enabled_; }

  // Sets the committed text. While editing is off the argument is ignored and both the committed
  // and the composed text are erased, so a late update cannot leave text behind.
  void setString(const ruString::IString& text);
  // Sets the text in composition, with the same rule.
  void setInternString(const ruString::IString& text);

  const ruString::IString& getString() const noexcept { return string_; }
  const ruString::IString& getInternString() const noexcept { return internString_; }
  const ruString::IString& getDefaultString() const noexcept { return defaultString_; }

  // Not owned; null to clear.
  void setTextClickDispatcher(TextClickDispatcher* dispatcher) noexcept { textClickDispatcher_ = dispatcher; }
  TextClickDispatcher* getTextClickDispatcher() const noexcept { return textClickDispatcher_; }
  // Passes the positions to the host's hook; false, and nothing done, when there is none.
  bool setCursorAndAnchorPos(int cursorPos, int anchorPos);

  ruRTB::SignalVoid sigEnabledChanged;

private:
  bool enabled_ = false;
  ruString::IString defaultString_;
  ruString::IString string_;
  ruString::IString internString_;
  TextClickDispatcher* textClickDispatcher_ = nullptr;
};

}  // namespace voEV
