#pragma once

#include "platform/base/containers.h"
#include "platform/base/reference.h"
#include "platform/base/strings.h"
#include "platform/support/export.h"

#include <cstddef>
#include <string_view>

// Property lists: trees of doubles, booleans, strings, dictionaries and arrays, with a JSON form.
namespace voPLST {

class ValueBase;
class Dictionary;
class Array;

enum class Kind { Double, Boolean, String, Dictionary, Array };

// A reference-counted node of a property list.
class VO_SUPPORT_API Item : public ru::ReferenceCount {
public:
  virtual Kind kind() const noexcept = 0;
  // A deep copy.
  virtual ru::Reference<Item> clone() const = 0;
  // Same kind and same contents, deeply.
  virtual bool equals(const Item& other) const noexcept = 0;

  // The scalar value of this item. A dictionary or an array has none and answers a value that reads
  // as 0, false and the empty string.
  const ValueBase& value() const noexcept;

  bool isDictionary() const noexcept { return kind() == Kind::Dictionary; }
  bool isArray() const noexcept { return kind() == Kind::Array; }
  bool isValue() const noexcept { return !isDictionary() && !isArray(); }
  // This item as a dictionary or an array, or null when it is not one.
  Dictionary* asDictionary() noexcept;
  const Dictionary* asDictionary() const noexcept;
  Array* asArray() noexcept;
  const Array* asArray() const noexcept;
};

// A scalar: a double, a boolean or a string. Reads convert between the three: a number reads as
// true when not 0; a string reads as the number it starts with.
class VO_SUPPORT_API ValueBase : public Item {
public:
  virtual double toDouble() const noexcept = 0;
  virtual bool toBool() const noexcept = 0;
  virtual ruString::CString toString() const = 0;

  operator double() const noexcept { return toDouble(); }
  operator bool() const noexcept { return toBool(); }
  // Truncated toward zero.
  operator int() const noexcept;
};

class VO_SUPPORT_API Double : public ValueBase {
public:
  explicit Double(double value = 0.0) noexcept : value_(value) {}
  Kind kind() const noexcept override { return Kind::Double; }
  ru::Reference<Item> clone() const override;
  bool equals(const Item& other) const noexcept override;
  double toDouble() const noexcept override { return value_; }
  bool toBool() const noexcept override { return value_ != 0.0; }
  ruString::CString toString() const override;

  double get() const noexcept { return value_; }
  void set(double value) noexcept { value_ = value; }

private:
  double value_;
};

// A boolean that can be changed in place.
class VO_SUPPORT_API Boolean : public ValueBase {
public:
  explicit Boolean(bool value = false) noexcept : value_(value) {}
  Kind kind() const noexcept override { return Kind::Boolean; }
  ru::Reference<Item> clone() const override;
  bool equals(const Item& other) const noexcept override;
  double toDouble() const noexcept override { return value_ ? 1.0 : 0.0; }
  bool toBool() const noexcept override { return value_; }
  ruString::CString toString() const override { return value_ ? "true" : "false"; }

  bool get() const noexcept { return value_; }
  void set(bool value) noexcept { value_ = value; }

private:
  bool value_;
};

class VO_SUPPORT_API String : public ValueBase {
public:
  explicit String(ruString::CString value = {}) : value_(std::move(value)) {}
  Kind kind() const noexcept override { return Kind::String; }
  ru::Reference<Item> clone() const override;
  bool equals(const Item& other) const noexcept override;
  double toDouble() const noexcept override;
  bool toBool() const noexcept override { return value_ == "true" || toDouble() != 0.0; }
  ruString::CString toString() const override { return value_; }

  const ruString::CString& get() const noexcept { return value_; }
  void set(ruString::CString value) { value_ = std::move(value); }

private:
  ruString::CString value_;
};

// String keys to items, in key order.
class VO_SUPPORT_API Dictionary : public Item {
public:
  using Map = ru::map<ruString::CString, ru::Reference<Item>>;

  Kind kind() const noexcept override { return Kind::Dictionary; }
  ru::Reference<Item> clone() const override;
  bool equals(const Item& other) const noexcept override;

  // Inserts or replaces; a null item removes the key.
  void set(const ruString::CString& key, ru::Reference<Item> item);
  void setDouble(const ruString::CString& key, double value) { set(key, new Double(value)); }
  void setBool(const ruString::CString& key, bool value) { set(key, new Boolean(value)); }
  void setString(const ruString::CString& key, ruString::CString value) { set(key, new String(std::move(value))); }
  // The item under `key`, or null.
  Item* find(const ruString::CString& key) const noexcept;
  // The value under `key` when it is a scalar, else null.
  const ValueBase* findValue(const ruString::CString& key) const noexcept;
  bool contains(const ruString::CString& key) const noexcept { return items_.count(key) != 0; }
  bool remove(const ruString::CString& key);
  void clear() noexcept { items_.clear(); }

  std::size_t size() const noexcept { return items_.size(); }
  bool empty() const noexcept { return items_.empty(); }
  Map::const_iterator begin() const noexcept { return items_.begin(); }
  Map::const_iterator end() const noexcept { return items_.end(); }

private:
  Map items_;
};

class VO_SUPPORT_API Array : public Item {
public:
  Kind kind() const noexcept override { return Kind::Array; }
  ru::Reference<Item> clone() const override;
  bool equals(const Item& other) const noexcept override;

  // Appends; a null item is not appended.
  void append(ru::Reference<Item> item);
  void appendDouble(double value) { append(new Double(value)); }
  // The item at `index`, or null when out of range.
  Item* at(std::size_t index) const noexcept { return index < items_.size() ? items_[index].get() : nullptr; }
  bool set(std::size_t index, ru::Reference<Item> item);
  bool remove(std::size_t index);
  void clear() noexcept { items_.clear(); }

  std::size_t size() const noexcept { return items_.size(); }
  bool empty() const noexcept { return items_.empty(); }
  ru::vector<ru::Reference<Item>>::const_iterator begin() const noexcept { return items_.begin(); }
  ru::vector<ru::Reference<Item>>::const_iterator end() const noexcept { return items_.end(); }

private:
  ru::vector<ru::Reference<Item>> items_;
};

// The JSON text of a property list (compact, or indented by two spaces). Strings and keys are
// written as UTF-8: a byte that is not part of valid UTF-8 is written as U+FFFD (the replacement
// character), so text from anywhere can be written, though such bytes do not read back. Never
// throws; answers an empty string only when memory runs out.
VO_SUPPORT_API ruString::CString toJSON(const Item& item, bool indent = false);

// The deepest nesting of arrays and objects fromJSON reads. Reading is recursive, and a hostile
// text of a few hundred kilobytes of brackets must not exhaust the stack.
constexpr int maxJSONDepth = 512;

// Reads JSON into a property list. On malformed JSON, JSON nested deeper than maxJSONDepth, or
// JSON that a property list cannot hold (null), answers null and, when `error` is given, says what
// is wrong and where. Never throws.
VO_SUPPORT_API ru::Reference<Item> fromJSON(std::string_view text, ruString::CString* error = nullptr);

}  // namespace voPLST
