#include "platform/base/typename.h"

#include <cxxabi.h>

#include <cstdlib>

namespace ru {

ruString::CString className(const std::type_info& type) {
  int status = 0;
  char* demangled = abi::__cxa_demangle(type.name(), nullptr, nullptr, &status);
  if (status != 0 || !demangled) return ruString::CString(type.name());
  ruString::CString name(demangled);
  std::free(demangled);
  return name;
}

}  // namespace ru
