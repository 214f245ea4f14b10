// The wide printf subset shared by the trace and the XML attribute writer.
// Numbers are formatted by the C library in the "C" locale, then widened.
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>
#include <system_error>
#include <type_traits>

#include "qdcore/log.h"

namespace qdcore {

namespace {

struct Spec {
  char flags[8] = {};
  int flagCount = 0;
  int width = -1;
  int precision = -1;
  char length[3] = {};  // "", "l", "ll", "z", "h", "hh", "L"
  wchar conversion = 0;
  bool leftAlign = false;
};

bool IsFlag(wchar c) { return c == '-' || c == '+' || c == ' ' || c == '0' || c == '#'; }

int ReadNumber(const wchar*& p) {
  int value = 0;
  while (*p >= '0' && *p <= '9') {
    if (value < 100000) value = value * 10 + (*p - '0');
    ++p;
  }
  return value;
}

// Reads a conversion after '%'; returns false when the text is no conversion.
bool ReadSpec(const wchar*& p, std::va_list& args, Spec& spec) {
  while (IsFlag(*p)) {
    if (*p == '-') spec.leftAlign = true;
    if (spec.flagCount < 7) spec.flags[spec.flagCount++] = static_cast<char>(*p);
    ++p;
  }
  if (*p == '*') {
    spec.width = va_arg(args, int);
    if (spec.width < 0) {
      spec.leftAlign = true;
      spec.flags[spec.flagCount < 7 ? spec.flagCount++ : 6] = '-';
      spec.width = -spec.width;
    }
    ++p;
  } else if (*p >= '0' && *p <= '9') {
    spec.width = ReadNumber(p);
  }
  if (*p == '.') {
    ++p;
    if (*p == '*') {
      spec.precision = va_arg(args, int);
      ++p;
    } else {
      spec.precision = ReadNumber(p);
    }
  }
  int n = 0;
  while (n < 2 && (*p == 'l' || *p == 'h' || *p == 'z' || *p == 'L' || *p == 'j' || *p == 't')) {
    spec.length[n++] = static_cast<char>(*p++);
  }
  if (!*p) return false;
  spec.conversion = *p++;
  return true;
}

void AppendNarrow(std::u16string& out, const char* text, std::size_t size) {
  for (std::size_t i = 0; i < size; ++i)
    out += static_cast<wchar>(static_cast<unsigned char>(text[i]));
}

// The plain real conversions (no flags, no width) by std::to_chars, which
// gives printf's text in the "C" locale without parsing a format; false
// when the text does not fit, to go the long way.
bool AppendPlainReal(std::u16string& out, const Spec& spec, char conversion, double value) {
  if (spec.flagCount != 0 || spec.width >= 0) return false;
  std::chars_format style;
  switch (conversion) {
    case 'f':
      style = std::chars_format::fixed;
      break;
    case 'e':
      style = std::chars_format::scientific;
      break;
    case 'g':
      style = std::chars_format::general;
      break;
    default:
      return false;
  }
  // printf's default precision, and a precision of 0 for %g means 1 there too.
  const int precision = spec.precision >= 0 ? spec.precision : 6;
  char buffer[512];
  const std::to_chars_result r =
      std::to_chars(buffer, buffer + sizeof buffer, value, style, precision);
  if (r.ec != std::errc()) return false;
  AppendNarrow(out, buffer, static_cast<std::size_t>(r.ptr - buffer));
  return true;
}

template <typename T>
void AppendNumber(std::u16string& out, const Spec& spec, const char* length, char conversion,
                  T value) {
  if constexpr (std::is_same_v<T, double>) {
    if (AppendPlainReal(out, spec, conversion, value)) return;
  }
  char format[32];
  int f = 0;
  format[f++] = '%';
  for (int i = 0; i < spec.flagCount; ++i) format[f++] = spec.flags[i];
  f += std::snprintf(format + f, sizeof format - f, "%s%s", spec.width >= 0 ? "*" : "",
                     spec.precision >= 0 ? ".*" : "");
  f += std::snprintf(format + f, sizeof format - f, "%s%c", length, conversion);
  char buffer[512];
  auto print = [&](char* into, std::size_t size) {
    if (spec.width >= 0 && spec.precision >= 0)
      return std::snprintf(into, size, format, spec.width, spec.precision, value);
    if (spec.width >= 0) return std::snprintf(into, size, format, spec.width, value);
    if (spec.precision >= 0) return std::snprintf(into, size, format, spec.precision, value);
    return std::snprintf(into, size, format, value);
  };
  const int needed = print(buffer, sizeof buffer);
  if (needed < 0) return;
  if (static_cast<std::size_t>(needed) < sizeof buffer) {
    AppendNarrow(out, buffer, static_cast<std::size_t>(needed));
    return;
  }
  std::string large(static_cast<std::size_t>(needed) + 1, '\0');
  print(large.data(), large.size());
  AppendNarrow(out, large.data(), static_cast<std::size_t>(needed));
}

void AppendPadded(std::u16string& out, const Spec& spec, std::u16string_view text) {
  if (spec.precision >= 0 && text.size() > static_cast<std::size_t>(spec.precision)) {
    text = text.substr(0, static_cast<std::size_t>(spec.precision));
  }
  const std::size_t pad = spec.width > 0 && static_cast<std::size_t>(spec.width) > text.size()
                              ? spec.width - text.size()
                              : 0;
  if (!spec.leftAlign) out.append(pad, u' ');
  out.append(text);
  if (spec.leftAlign) out.append(pad, u' ');
}

void AppendInteger(std::u16string& out, const Spec& spec, std::va_list& args) {
  const std::string_view length = spec.length;
  const char conversion = static_cast<char>(spec.conversion);
  const bool isSigned = conversion == 'd' || conversion == 'i';
  if (length == "ll" || length == "j") {
    if (isSigned) return AppendNumber(out, spec, "ll", conversion, va_arg(args, long long));
    return AppendNumber(out, spec, "ll", conversion, va_arg(args, unsigned long long));
  }
  if (length == "l" || length == "z" || length == "t") {
    if (isSigned) return AppendNumber(out, spec, "l", conversion, va_arg(args, long));
    return AppendNumber(out, spec, "l", conversion, va_arg(args, unsigned long));
  }
  if (isSigned) return AppendNumber(out, spec, "", conversion, va_arg(args, int));
  return AppendNumber(out, spec, "", conversion, va_arg(args, unsigned int));
}

// False for a conversion outside the subset, which the caller copies as text.
bool AppendConversion(std::u16string& out, const Spec& spec, std::va_list& args) {
  switch (spec.conversion) {
    case 'd':
    case 'i':
    case 'u':
    case 'x':
    case 'X':
    case 'o':
      AppendInteger(out, spec, args);
      return true;
    case 'f':
    case 'F':
    case 'e':
    case 'E':
    case 'g':
    case 'G':
    case 'a':
    case 'A':
      if (spec.length[0] == 'L') {
        AppendNumber(out, spec, "L", static_cast<char>(spec.conversion), va_arg(args, long double));
      } else {
        AppendNumber(out, spec, "", static_cast<char>(spec.conversion), va_arg(args, double));
      }
      return true;
    case 'c': {
      const wchar c = static_cast<wchar>(va_arg(args, int));
      AppendPadded(out, spec, std::u16string_view(&c, 1));
      return true;
    }
    case 's': {
      const wchar* text = va_arg(args, const wchar*);
      AppendPadded(out, spec, text ? std::u16string_view(text) : std::u16string_view(u"(null)"));
      return true;
    }
    case 'p':
      AppendNumber(out, spec, "", 'p', va_arg(args, void*));
      return true;
    default:
      return false;
  }
}

}  // namespace

void AppendFormatV(std::u16string& out, const wchar* format, std::va_list args) {
  if (!format) return;
  std::va_list local;
  va_copy(local, args);
  const wchar* p = format;
  while (*p) {
    const wchar* literal = p;
    while (*p && *p != '%') ++p;
    out.append(literal, static_cast<std::size_t>(p - literal));
    if (!*p) break;
    const wchar* percent = p++;
    if (*p == '%') {
      out += u'%';
      ++p;
      continue;
    }
    Spec spec;
    if (!ReadSpec(p, local, spec)) {
      out.append(percent);
      break;
    }
    if (!AppendConversion(out, spec, local))
      out.append(percent, static_cast<std::size_t>(p - percent));
  }
  va_end(local);
}

std::u16string FormatString(const wchar* format, ...) {
  std::u16string out;
  std::va_list args;
  va_start(args, format);
  AppendFormatV(out, format, args);
  va_end(args);
  return out;
}

int FormatBuffer(wchar* buffer, std::size_t count, const wchar* format, ...) {
  std::u16string out;
  std::va_list args;
  va_start(args, format);
  AppendFormatV(out, format, args);
  va_end(args);
  if (buffer && count > 0) {
    const std::size_t copied = out.size() < count - 1 ? out.size() : count - 1;
    std::memcpy(buffer, out.data(), copied * sizeof(wchar));
    buffer[copied] = 0;
  }
  return static_cast<int>(out.size());
}

}  // namespace qdcore
