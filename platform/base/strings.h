#pragma once

#include "platform/base/export.h"

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace ruString {

// 8-bit string: names, keys, messages. Comparison is exact and case-sensitive.
class RU_BASE_API CString {
public:
  CString() = default;
  CString(const char* text) : text_(text ? text : "") {}
  CString(const char* text, std::size_t length) : text_(text, length) {}
  CString(std::string text) : text_(std::move(text)) {}
  CString(std::string_view text) : text_(text) {}

  // printf-style formatting into a new string.
  static CString format(const char* format, ...) __attribute__((format(printf, 1, 2)));

  const char* c_str() const noexcept { return text_.c_str(); }
  const char* data() const noexcept { return text_.data(); }
  const std::string& str() const noexcept { return text_; }
  std::string_view view() const noexcept { return text_; }
  operator std::string_view() const noexcept { return text_; }

  std::size_t size() const noexcept { return text_.size(); }
  std::size_t length() const noexcept { return text_.size(); }
  bool empty() const noexcept { return text_.empty(); }
  void clear() noexcept { text_.clear(); }
  char operator[](std::size_t index) const noexcept { return text_[index]; }

  CString& append(std::string_view text) {
    text_.append(text);
    return *this;
  }
  CString& operator+=(std::string_view text) { return append(text); }
  CString& operator+=(char c) {
    text_.push_back(c);
    return *this;
  }
  // Appends printf-style formatted text.
  CString& appendFormat(const char* format, ...) __attribute__((format(printf, 2, 3)));

  bool startsWith(std::string_view prefix) const noexcept { return text_.starts_with(prefix); }
  bool endsWith(std::string_view suffix) const noexcept { return text_.ends_with(suffix); }
  // Position of the first `text` at or after `from`, or npos.
  std::size_t find(std::string_view text, std::size_t from = 0) const noexcept { return text_.find(text, from); }
  CString substr(std::size_t from, std::size_t count = npos) const { return CString(text_.substr(from, count)); }

  friend bool operator==(const CString& a, const CString& b) noexcept { return a.text_ == b.text_; }
  friend bool operator==(const CString& a, const char* b) noexcept { return a.text_ == (b ? b : ""); }
  friend auto operator<=>(const CString& a, const CString& b) noexcept { return a.text_ <=> b.text_; }
  friend CString operator+(CString a, std::string_view b) { return a.append(b); }

  static constexpr std::size_t npos = std::string::npos;

private:
  std::string text_;
};

// Text of key and text events, in UTF-8. Kept apart from CString so that text and names do not
// mix by accident; convert explicitly.
class RU_BASE_API IString {
public:
  IString() = default;
  IString(const char* utf8) : text_(utf8 ? utf8 : "") {}
  IString(std::string utf8) : text_(std::move(utf8)) {}
  explicit IString(const CString& text) : text_(text.str()) {}
  // From UTF-32 code points.
  static IString fromCodePoints(const std::u32string& codePoints);

  const char* c_str() const noexcept { return text_.c_str(); }
  const std::string& utf8() const noexcept { return text_; }
  CString toCString() const { return CString(text_); }
  static IString fromCString(const CString& text) { return IString(text); }
  std::u32string toCodePoints() const;

  // Size in bytes, and in characters (code points).
  std::size_t size() const noexcept { return text_.size(); }
  std::size_t numCharacters() const noexcept;
  bool empty() const noexcept { return text_.empty(); }
  void clear() noexcept { text_.clear(); }

  IString& append(const IString& text) {
    text_.append(text.text_);
    return *this;
  }
  IString& operator+=(const IString& text) { return append(text); }

  friend bool operator==(const IString& a, const IString& b) noexcept { return a.text_ == b.text_; }
  friend bool operator==(const IString& a, const char* b) noexcept { return a.text_ == (b ? b : ""); }
  friend auto operator<=>(const IString& a, const IString& b) noexcept { return a.text_ <=> b.text_; }

private:
  std::string text_;
};

}  // namespace ruString

template <>
struct std::hash<ruString::CString> {
  std::size_t operator()(const ruString::CString& text) const noexcept { return std::hash<std::string>()(text.str()); }
};
