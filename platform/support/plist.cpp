#include "platform/support/plist.h"

#include <nlohmann/json.hpp>

#include <cmath>
#include <cstdlib>
#include <limits>

namespace voPLST {

namespace {
// What a dictionary or an array answers when asked for its scalar value.
class NoValue final : public ValueBase {
public:
  Kind kind() const noexcept override { return Kind::String; }
  ru::Reference<Item> clone() const override { return ru::Reference<Item>(new String()); }
  bool equals(const Item&) const noexcept override { return false; }
  double toDouble() const noexcept override { return 0.0; }
  bool toBool() const noexcept override { return false; }
  ruString::CString toString() const override { return {}; }
};
}  // namespace

const ValueBase& Item::value() const noexcept {
  if (isValue()) return static_cast<const ValueBase&>(*this);
  static NoValue none;
  return none;
}

Dictionary* Item::asDictionary() noexcept { return isDictionary() ? static_cast<Dictionary*>(this) : nullptr; }
const Dictionary* Item::asDictionary() const noexcept {
  return isDictionary() ? static_cast<const Dictionary*>(this) : nullptr;
}
Array* Item::asArray() noexcept { return isArray() ? static_cast<Array*>(this) : nullptr; }
const Array* Item::asArray() const noexcept { return isArray() ? static_cast<const Array*>(this) : nullptr; }

ValueBase::operator int() const noexcept {
  const double value = toDouble();
  if (!(value > static_cast<double>(std::numeric_limits<int>::min()) - 1.0)) return std::numeric_limits<int>::min();
  if (!(value < static_cast<double>(std::numeric_limits<int>::max()) + 1.0)) return std::numeric_limits<int>::max();
  return static_cast<int>(value);
}

ru::Reference<Item> Double::clone() const { return ru::Reference<Item>(new Double(value_)); }
bool Double::equals(const Item& other) const noexcept {
  return other.kind() == Kind::Double && static_cast<const Double&>(other).value_ == value_;
}
ruString::CString Double::toString() const { return ruString::CString::format("%.17g", value_); }

ru::Reference<Item> Boolean::clone() const { return ru::Reference<Item>(new Boolean(value_)); }
bool Boolean::equals(const Item& other) const noexcept {
  return other.kind() == Kind::Boolean && static_cast<const Boolean&>(other).value_ == value_;
}

ru::Reference<Item> String::clone() const { return ru::Reference<Item>(new String(value_)); }
bool String::equals(const Item& other) const noexcept {
  return other.kind() == Kind::String && static_cast<const String&>(other).value_ == value_;
}
double String::toDouble() const noexcept {
  const char* text = value_.c_str();
  char* end = nullptr;
  const double value = std::strtod(text, &end);
  return end == text ? 0.0 : value;
}

ru::Reference<Item> Dictionary::clone() const {
  ru::Reference<Dictionary> copy(new Dictionary);
  for (const auto& [key, item] : items_) copy->items_[key] = item->clone();
  return copy;
}

bool Dictionary::equals(const Item& other) const noexcept {
  const Dictionary* dictionary = other.asDictionary();
  if (!dictionary || dictionary->items_.size() != items_.size()) return false;
  auto a = items_.begin();
  auto b = dictionary->items_.begin();
  for (; a != items_.end(); ++a, ++b) {
    if (!(a->first == b->first) || !a->second->equals(*b->second)) return false;
  }
  return true;
}

void Dictionary::set(const ruString::CString& key, ru::Reference<Item> item) {
  if (!item) {
    items_.erase(key);
    return;
  }
  items_[key] = std::move(item);
}

Item* Dictionary::find(const ruString::CString& key) const noexcept {
  auto it = items_.find(key);
  return it == items_.end() ? nullptr : it->second.get();
}

const ValueBase* Dictionary::findValue(const ruString::CString& key) const noexcept {
  Item* item = find(key);
  return item && item->isValue() ? static_cast<const ValueBase*>(item) : nullptr;
}

bool Dictionary::remove(const ruString::CString& key) { return items_.erase(key) != 0; }

ru::Reference<Item> Array::clone() const {
  ru::Reference<Array> copy(new Array);
  copy->items_.reserve(items_.size());
  for (const auto& item : items_) copy->items_.push_back(item->clone());
  return copy;
}

bool Array::equals(const Item& other) const noexcept {
  const Array* array = other.asArray();
  if (!array || array->items_.size() != items_.size()) return false;
  for (std::size_t i = 0; i < items_.size(); ++i) {
    if (!items_[i]->equals(*array->items_[i])) return false;
  }
  return true;
}

void Array::append(ru::Reference<Item> item) {
  if (item) items_.push_back(std::move(item));
}

bool Array::set(std::size_t index, ru::Reference<Item> item) {
  if (index >= items_.size() || !item) return false;
  items_[index] = std::move(item);
  return true;
}

bool Array::remove(std::size_t index) {
  if (index >= items_.size()) return false;
  items_.erase(items_.begin() + static_cast<std::ptrdiff_t>(index));
  return true;
}

namespace {

using Json = nlohmann::json;

Json toJson(const Item& item) {
  switch (item.kind()) {
    case Kind::Double: {
      const double value = static_cast<const Double&>(item).get();
      // JSON has no infinities or NaN; write them as the strings a reader turns back into numbers.
      if (!std::isfinite(value)) return Json(static_cast<const Double&>(item).toString().str());
      return Json(value);
    }
    case Kind::Boolean: return Json(static_cast<const Boolean&>(item).get());
    case Kind::String: return Json(static_cast<const String&>(item).get().str());
    case Kind::Dictionary: {
      Json object = Json::object();
      for (const auto& [key, child] : *item.asDictionary()) object[key.str()] = toJson(*child);
      return object;
    }
    case Kind::Array: {
      Json array = Json::array();
      for (const auto& child : *item.asArray()) array.push_back(toJson(*child));
      return array;
    }
  }
  return Json();
}

// Recursive: the caller has bounded the nesting.
ru::Reference<Item> fromJson(const Json& json, const std::string& path, ruString::CString* error) {
  switch (json.type()) {
    case Json::value_t::boolean: return ru::Reference<Item>(new Boolean(json.get<bool>()));
    case Json::value_t::number_integer:
    case Json::value_t::number_unsigned:
    case Json::value_t::number_float: return ru::Reference<Item>(new Double(json.get<double>()));
    case Json::value_t::string: return ru::Reference<Item>(new String(json.get<std::string>()));
    case Json::value_t::object: {
      ru::Reference<Dictionary> dictionary(new Dictionary);
      for (auto it = json.begin(); it != json.end(); ++it) {
        ru::Reference<Item> child = fromJson(it.value(), path + "/" + it.key(), error);
        if (!child) return nullptr;
        dictionary->set(it.key(), child);
      }
      return dictionary;
    }
    case Json::value_t::array: {
      ru::Reference<Array> array(new Array);
      std::size_t index = 0;
      for (const Json& element : json) {
        ru::Reference<Item> child = fromJson(element, path + "/" + std::to_string(index++), error);
        if (!child) return nullptr;
        array->append(child);
      }
      return array;
    }
    default:
      if (error) {
        *error = ruString::CString::format("JSON %s at %s has no property-list form", json.type_name(),
                                           path.empty() ? "/" : path.c_str());
      }
      return nullptr;
  }
}

// The deepest nesting of the text, found without parsing, and the offset where it first passes
// `limit` (brackets inside strings do not count).
bool nestingWithin(std::string_view text, int limit, std::size_t& offset) {
  int depth = 0;
  bool inString = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (inString) {
      if (c == '\\') {
        ++i;  // the escaped character cannot end the string
      } else if (c == '"') {
        inString = false;
      }
    } else if (c == '"') {
      inString = true;
    } else if (c == '[' || c == '{') {
      if (++depth > limit) {
        offset = i;
        return false;
      }
    } else if (c == ']' || c == '}') {
      --depth;
    }
  }
  return true;
}

}  // namespace

ruString::CString toJSON(const Item& item, bool indent) {
  try {
    return toJson(item).dump(indent ? 2 : -1, ' ', false, Json::error_handler_t::replace);
  } catch (...) {
    // Only an allocation can fail here: invalid UTF-8 is replaced, not reported.
    return {};
  }
}

ru::Reference<Item> fromJSON(std::string_view text, ruString::CString* error) {
  std::size_t offset = 0;
  if (!nestingWithin(text, maxJSONDepth, offset)) {
    if (error) {
      *error = ruString::CString::format("JSON nested deeper than %d levels (at byte %zu)", maxJSONDepth, offset);
    }
    return nullptr;
  }
  try {
    const Json json = Json::parse(text.begin(), text.end());
    return fromJson(json, "", error);
  } catch (const Json::exception& failure) {
    // Syntax errors, invalid UTF-8 and numbers beyond a double's range all land here.
    if (error) *error = ruString::CString::format("malformed JSON: %s", failure.what());
  } catch (const std::exception& failure) {
    if (error) *error = ruString::CString::format("cannot read JSON: %s", failure.what());
  }
  return nullptr;
}

}  // namespace voPLST
