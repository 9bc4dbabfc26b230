#include "platform/base/strings.h"

#include <cstdarg>
#include <cstdio>

namespace ruString {

namespace {
void appendV(std::string& out, const char* format, va_list args) {
  va_list copy;
  va_copy(copy, args);
  char small[256];
  int needed = std::vsnprintf(small, sizeof small, format, copy);
  va_end(copy);
  if (needed < 0) return;
  if (static_cast<std::size_t>(needed) < sizeof small) {
    out.append(small, static_cast<std::size_t>(needed));
    return;
  }
  std::size_t start = out.size();
  out.resize(start + static_cast<std::size_t>(needed) + 1);
  std::vsnprintf(out.data() + start, static_cast<std::size_t>(needed) + 1, format, args);
  out.resize(start + static_cast<std::size_t>(needed));
}
}  // namespace

CString CString::format(const char* format, ...) {
  std::string text;
  va_list args;
  va_start(args, format);
  appendV(text, format, args);
  va_end(args);
  return CString(std::move(text));
}

CString& CString::appendFormat(const char* format, ...) {
  va_list args;
  va_start(args, format);
  appendV(text_, format, args);
  va_end(args);
  return *this;
}

IString IString::fromCodePoints(const std::u32string& codePoints) {
  std::string out;
  for (char32_t c : codePoints) {
    if (c < 0x80) {
      out += static_cast<char>(c);
    } else if (c < 0x800) {
      out += static_cast<char>(0xC0 | (c >> 6));
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
      out += static_cast<char>(0xE0 | (c >> 12));
      out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x110000) {
      out += static_cast<char>(0xF0 | (c >> 18));
      out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
      out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
      out += "\xEF\xBF\xBD";  // replacement character
    }
  }
  return IString(std::move(out));
}

std::u32string IString::toCodePoints() const {
  std::u32string out;
  const std::size_t n = text_.size();
  auto byte = [&](std::size_t k) { return static_cast<unsigned char>(text_[k]); };
  std::size_t i = 0;
  while (i < n) {
    const unsigned char lead = byte(i);
    const int extra = lead < 0x80 ? 0 : (lead >> 5) == 0x6 ? 1 : (lead >> 4) == 0xE ? 2 : (lead >> 3) == 0x1E ? 3 : -1;
    // A lead byte that starts nothing (extra < 0) is bad and must not reach the shift.
    char32_t c = extra <= 0 ? lead : static_cast<char32_t>(lead & (0x3F >> extra));
    bool bad = extra < 0;
    for (int k = 1; !bad && k <= extra; ++k) {
      const std::size_t at = i + static_cast<std::size_t>(k);
      if (at >= n || (byte(at) & 0xC0) != 0x80) {
        bad = true;
      } else {
        c = (c << 6) | (byte(at) & 0x3F);
      }
    }
    if (bad) {
      // A stray or truncated sequence stands for one replacement character per byte.
      out += U'\uFFFD';
      ++i;
      continue;
    }
    out += c;
    i += static_cast<std::size_t>(extra) + 1;
  }
  return out;
}

std::size_t IString::numCharacters() const noexcept {
  std::size_t count = 0;
  for (char c : text_) {
    if ((static_cast<unsigned char>(c) & 0xC0) != 0x80) ++count;
  }
  return count;
}

}  // namespace ruString
