// Locale-free number parsing and UTF-8 conversion at the I/O boundary.
#include <clocale>
#include <cstdlib>
#include <limits>
#include <locale.h>
#include <string>

#include "qdcore/core.h"
#include "utf8.h"

namespace qdcore {

namespace {

// The "C" number locale: decimal point "." whatever the process locale.
locale_t NumberLocale() noexcept {
  static const locale_t locale = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
  return locale;
}

bool IsBlank(wchar c) noexcept { return c == ' ' || (c >= '\t' && c <= '\r'); }

// Characters that can be part of a real number's text, in any of the forms
// the C library reads (decimal, hexadecimal, inf, nan(...)).
bool IsNumberChar(wchar c) noexcept {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '.' ||
         c == '+' || c == '-' || c == '(' || c == ')' || c == '_';
}

}  // namespace

double ParseDouble(const wchar* text, const wchar** end) noexcept {
  return ParseDoubleL(text, end, NumberLocale());
}

double ParseDoubleL(const wchar* text, const wchar** end, locale_t locale) noexcept {
  if (!locale) locale = NumberLocale();
  if (end) *end = text;
  if (!text) return 0.0;
  const wchar* start = text;
  while (IsBlank(*start)) ++start;
  // Numbers are short: read them from a stack copy, and only a run of number
  // characters too long for it from the heap.
  constexpr std::size_t kStack = 128;
  char stack[kStack + 1];
  std::size_t count = 0;
  while (count < kStack && IsNumberChar(start[count])) {
    stack[count] = static_cast<char>(start[count]);
    ++count;
  }
  stack[count] = 0;
  std::string heap;
  const char* narrow = stack;
  if (count == kStack && IsNumberChar(start[count])) {
    try {
      heap.assign(stack, count);
      while (IsNumberChar(start[count])) heap += static_cast<char>(start[count++]);
    } catch (...) {
      return 0.0;
    }
    narrow = heap.c_str();
  }
  char* stop = nullptr;
  const double value = strtod_l(narrow, &stop, locale);
  if (stop == narrow) return 0.0;
  if (end) *end = start + (stop - narrow);
  return value;
}

std::int32_t ParseInt(const wchar* text, const wchar** end) noexcept {
  if (end) *end = text;
  if (!text) return 0;
  const wchar* p = text;
  while (IsBlank(*p)) ++p;
  bool negative = false;
  if (*p == '+' || *p == '-') negative = (*p++ == '-');
  if (*p < '0' || *p > '9') return 0;
  constexpr std::int64_t kLimit = std::int64_t{1} << 31;
  std::int64_t magnitude = 0;
  for (; *p >= '0' && *p <= '9'; ++p) {
    if (magnitude <= kLimit) magnitude = magnitude * 10 + (*p - '0');
  }
  if (end) *end = p;
  if (negative) return magnitude >= kLimit ? std::numeric_limits<std::int32_t>::min()
                                           : static_cast<std::int32_t>(-magnitude);
  return magnitude >= kLimit ? std::numeric_limits<std::int32_t>::max()
                             : static_cast<std::int32_t>(magnitude);
}

std::int32_t TruncateToInt32(double value) noexcept {
  if (!(value > -2147483649.0 && value < 2147483648.0)) {
    return std::numeric_limits<std::int32_t>::min();
  }
  return static_cast<std::int32_t>(value);
}

// ---------------------------------------------------------------------------
// UTF-8 <-> UTF-16
// ---------------------------------------------------------------------------

std::string ToUtf8(std::u16string_view text) {
  std::string out;
  out.reserve(text.size() + text.size() / 2);
  for (std::size_t i = 0; i < text.size(); ++i) {
    char32_t c = text[i];
    if (c >= 0xD800 && c <= 0xDFFF) {
      const bool paired = c <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 &&
                          text[i + 1] <= 0xDFFF;
      c = paired ? 0x10000 + ((c - 0xD800) << 10) + (text[++i] - 0xDC00) : 0xFFFD;
    }
    AppendUtf8(out, c);
  }
  return out;
}

bool FromUtf8(std::string_view text, std::u16string& out) {
  out.clear();
  out.reserve(text.size());
  const auto* p = reinterpret_cast<const unsigned char*>(text.data());
  const auto* const end = p + text.size();
  while (p < end) {
    const unsigned char lead = *p++;
    if (lead < 0x80) {
      out += static_cast<wchar>(lead);
      continue;
    }
    int extra;
    char32_t c;
    char32_t least;  // the smallest value this length may carry: no overlongs
    if ((lead & 0xE0) == 0xC0) {
      extra = 1, c = lead & 0x1F, least = 0x80;
    } else if ((lead & 0xF0) == 0xE0) {
      extra = 2, c = lead & 0x0F, least = 0x800;
    } else if ((lead & 0xF8) == 0xF0) {
      extra = 3, c = lead & 0x07, least = 0x10000;
    } else {
      return false;
    }
    if (end - p < extra) return false;
    for (int i = 0; i < extra; ++i) {
      if ((p[i] & 0xC0) != 0x80) return false;
      c = (c << 6) | (p[i] & 0x3F);
    }
    p += extra;
    if (c < least || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) return false;
    if (c < 0x10000) {
      out += static_cast<wchar>(c);
    } else {
      c -= 0x10000;
      out += static_cast<wchar>(0xD800 + (c >> 10));
      out += static_cast<wchar>(0xDC00 + (c & 0x3FF));
    }
  }
  return true;
}

}  // namespace qdcore
