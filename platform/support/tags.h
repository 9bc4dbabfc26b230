#pragma once

#include "platform/base/containers.h"
#include "platform/base/strings.h"
#include "platform/support/export.h"

#include <deque>

namespace voSupport {

// A named mark that draw items can carry. Handles stay valid as long as their registry lives, and
// one name always gives the same handle.
class VO_SUPPORT_API Tag {
public:
  const ruString::CString& name() const noexcept { return name_; }
  int id() const noexcept { return id_; }

private:
  friend class TagRegistry;
  Tag(ruString::CString name, int id) : name_(std::move(name)), id_(id) {}
  ruString::CString name_;
  int id_;
};

class VO_SUPPORT_API TagRegistry {
public:
  TagRegistry() = default;
  TagRegistry(const TagRegistry&) = delete;
  TagRegistry& operator=(const TagRegistry&) = delete;

  // The tag of `name`, made on first use. Never null.
  const Tag* getTag(const ruString::CString& name);
  // The tag of `name` if it was made, else null.
  const Tag* findTag(const ruString::CString& name) const noexcept;
  std::size_t size() const noexcept { return tags_.size(); }

private:
  std::deque<Tag> tags_;  // a deque keeps addresses stable as it grows
  ru::map<ruString::CString, const Tag*> byName_;
};

}  // namespace voSupport
