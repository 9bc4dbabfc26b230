#include "platform/support/tags.h"

namespace voSupport {

const Tag* TagRegistry::getTag(const ruString::CString& name) {
  if (const Tag* tag = findTag(name)) return tag;
  tags_.push_back(Tag(name, static_cast<int>(tags_.size())));
  const Tag* tag = &tags_.back();
  byName_[name] = tag;
  return tag;
}

const Tag* TagRegistry::findTag(const ruString::CString& name) const noexcept {
  auto it = byName_.find(name);
  return it == byName_.end() ? nullptr : it->second;
}

}  // namespace voSupport
