// Plain decimal numbers ("-3.25", "100", "0.066666666667"), the way the
// library writes them, read without the general conversion: documents hold
// millions of them. Anything else (exponents, blanks, '+', units, long
// mantissas) is left to the general reading, which gives the same answer for
// everything read here.
#pragma once

#include <cstdint>
#include <iterator>
#include <optional>
#include <string_view>

namespace qdcore {

namespace decimal {

inline bool IsDigit(char16_t c) noexcept { return c >= u'0' && c <= u'9'; }

// Powers of ten that a double holds exactly.
inline constexpr double kExactPowers[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                          1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                          1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

}  // namespace decimal

// The value of `text` when it is an optional '-', digits, and optionally a
// point followed by digits, whose digits (19 at most) make a whole number
// of at most 2^53; none otherwise. Both the digits and the power of ten
// are then exact doubles, so their one division is rounded once, to the
// same double as the general reading.
inline std::optional<double> ReadPlainDecimal(std::u16string_view text) noexcept {
  constexpr std::size_t kMaxDigits = 19;  // any 19 digits fit in 64 bits
  constexpr std::uint64_t kMaxExact = std::uint64_t{1} << 53;
  const std::size_t sign = text.starts_with(u'-') ? 1 : 0;
  const std::size_t none = text.size();
  std::size_t point = none;
  std::uint64_t digits = 0;  // wraps past kMaxDigits, which the count then turns away
  for (std::size_t at = sign; at < text.size(); ++at) {
    const unsigned digit = static_cast<unsigned>(text[at]) - u'0';
    if (digit < 10) {
      digits = digits * 10 + digit;
    } else if (text[at] == u'.' && point == none) {
      point = at;
    } else {
      return std::nullopt;
    }
  }
  const std::size_t fraction = point == none ? 0 : text.size() - point - 1;
  const std::size_t whole = (point == none ? text.size() : point) - sign;
  const bool shaped = whole > 0 && (point == none || fraction > 0);
  if (!shaped || whole + fraction > kMaxDigits || digits > kMaxExact) return std::nullopt;
  static_assert(kMaxDigits < std::size(decimal::kExactPowers));
  const double value = static_cast<double>(digits) / decimal::kExactPowers[fraction];
  return sign ? -value : value;
}

// The value of `text` when it is an optional '-' and one to nine digits,
// which a 32-bit number always holds; none otherwise.
inline std::optional<long long> ReadPlainWhole(std::u16string_view text) noexcept {
  const bool negative = text.starts_with(u'-');
  const std::u16string_view digits = text.substr(negative ? 1 : 0);
  if (digits.empty() || digits.size() > 9) return std::nullopt;
  long long value = 0;
  for (const char16_t c : digits) {
    if (!decimal::IsDigit(c)) return std::nullopt;
    value = value * 10 + (c - u'0');
  }
  return negative ? -value : value;
}

}  // namespace qdcore
