#include "textformat.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace qdtool {

std::string ShortestNumber(double value) {
  if (!std::isfinite(value)) return "null";
  char buffer[64];
  const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
  return std::string(buffer, result.ptr);
}

std::string FixedNumber(double value, int decimals) {
  if (std::isnan(value)) return "nan";
  if (std::isinf(value)) return value > 0 ? "inf" : "-inf";
  char buffer[512];  // room for the widest finite double in fixed notation
  std::snprintf(buffer, sizeof buffer, "%.*f", decimals, value);
  std::string text = buffer;
  if (text.find_first_not_of("-0.") == std::string::npos && text[0] == '-') text.erase(0, 1);
  return text;
}

int DecimalsNeeded(double value, int most) {
  if (!std::isfinite(value)) return 0;
  const std::string text = FixedNumber(value, most);
  const std::size_t point = text.find('.');
  if (point == std::string::npos) return 0;
  const std::size_t last = text.find_last_not_of('0');
  return last <= point ? 0 : static_cast<int>(last - point);
}

std::string TidyNumber(double value) {
  if (!std::isfinite(value)) return FixedNumber(value, 0);
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, "%.6g", value);
  std::string text = buffer;
  return text == "-0" ? "0" : text;
}

std::string TidyNumberText(std::string_view text) {
  const std::string copy(text);
  if (copy.empty()) return copy;
  char* end = nullptr;
  const double value = std::strtod(copy.c_str(), &end);
  if (end != copy.c_str() + copy.size() || copy.find_first_of(" \t\n") != std::string::npos) {
    return copy;
  }
  return TidyNumber(value);
}

std::string Quoted(std::string_view text) {
  std::string quoted = "\"";
  quoted += text;
  quoted += '"';
  return quoted;
}

std::string Hex(const unsigned char* bytes, std::size_t count) {
  static const char digits[] = "0123456789abcdef";
  std::string text;
  text.reserve(count * 2);
  for (std::size_t i = 0; i < count; ++i) {
    text += digits[bytes[i] >> 4];
    text += digits[bytes[i] & 15];
  }
  return text;
}

std::string JsonString(std::string_view text) {
  std::string out = "\"";
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') {
      out += '\\';
      out += c;
    } else if (byte < 0x20) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\u%04x", byte);
      out += escape;
    } else {
      out += c;
    }
  }
  return out + "\"";
}

std::string CsvField(std::string_view text) {
  if (text.find_first_of(",\"\r\n") == std::string_view::npos) return std::string(text);
  std::string out = "\"";
  for (const char c : text) {
    if (c == '"') out += '"';
    out += c;
  }
  return out + "\"";
}

std::string XmlEscape(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (const char c : text) {
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '"': out += "&quot;"; break;
      default:
        // XML cannot carry most control characters at all.
        out += static_cast<unsigned char>(c) < 0x20 && c != '\t' && c != '\n' ? '?' : c;
    }
  }
  return out;
}

std::string OneLine(std::string_view text) {
  std::string out(text);
  for (char& c : out) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) c = ' ';
  }
  return out;
}

std::size_t DisplayWidth(std::string_view text) {
  std::size_t width = 0;
  for (const char c : text) width += (static_cast<unsigned char>(c) & 0xC0) != 0x80;
  return width;
}

std::string Shorten(std::string_view text, std::size_t width) {
  if (width == 0 || DisplayWidth(text) <= width) return std::string(text);
  std::string out;
  std::size_t shown = 0;
  for (const char c : text) {
    const bool starts = (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    if (starts && ++shown == width) break;  // the last place goes to the ellipsis
    out += c;
  }
  return out + "\u2026";
}

}  // namespace qdtool
