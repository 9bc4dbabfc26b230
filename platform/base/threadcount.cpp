#include "platform/base/threadcount.h"

namespace ruThread {
ReferenceCount::~ReferenceCount() = default;
}  // namespace ruThread
