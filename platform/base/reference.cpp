#include "platform/base/reference.h"

namespace ru {

ReferenceCount::~ReferenceCount() = default;
ImplBase::~ImplBase() = default;

}  // namespace ru
