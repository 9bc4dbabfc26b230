#include "datamodelgui/events/textinput.h"

namespace voEV {

TextInput::TextInput() : defaultString_("NONE"), string_("NONE"), internString_("NONE") {}

TextInput::~TextInput() = default;

void TextInput::setEnable(bool enable, const ruString::IString& text) {
  enabled_ = enable;
  if (enable) {
    defaultString_ = text;
    string_ = text;
    internString_ = text;
  } else {
    defaultString_.clear();
    string_.clear();
    internString_.clear();
  }
  sigEnabledChanged.emit();
}

void TextInput::setString(const ruString::IString& text) {
  if (!enabled_) {
    string_.clear();
    internString_.clear();
    return;
  }
  string_ = text;
}

void TextInput::setInternString(const ruString::IString& text) {
  if (!enabled_) {
    string_.clear();
    internString_.clear();
    return;
  }
  internString_ = text;
}

bool TextInput::setCursorAndAnchorPos(int cursorPos, int anchorPos) {
  if (!textClickDispatcher_) return false;
  textClickDispatcher_->onTextClick(cursorPos, anchorPos);
  return true;
}

}  // namespace voEV
