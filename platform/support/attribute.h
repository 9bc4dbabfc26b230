#pragma once

#include "platform/base/reference.h"
#include "platform/support/export.h"

namespace voSupport {

// A value that may change by itself (over time, say). Reference counted.
class VO_SUPPORT_API AttributeBase : public ru::ReferenceCount {
public:
  AttributeBase() = default;
  AttributeBase(const AttributeBase&) = default;
  AttributeBase& operator=(const AttributeBase&) = default;
  ~AttributeBase() override;
};

// A typed attribute: `dynamic()` tells whether its value may still change; `evaluate()` reads it.
template <class T>
class Attribute : public AttributeBase {
public:
  virtual bool dynamic() const = 0;
  virtual T evaluate() const = 0;
};

}  // namespace voSupport
