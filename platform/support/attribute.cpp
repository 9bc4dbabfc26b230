#include "platform/support/attribute.h"

namespace voSupport {
AttributeBase::~AttributeBase() = default;
}  // namespace voSupport
