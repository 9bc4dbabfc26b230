#pragma once

#include "platform/base/export.h"
#include "platform/base/strings.h"

#include <typeinfo>

namespace ru {

// The readable name of a type ("voEV::ClickMouse"), for debug prints. The exact text is the
// compiler's and nothing may depend on it.
RU_BASE_API ruString::CString className(const std::type_info& type);

// The readable name of the run-time class of `object`.
template <class T>
ruString::CString classNameOf(const T& object) {
  return className(typeid(object));
}

}  // namespace ru
