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
// point followed by digits, whose digits make a whole number of at most
// 2^53 and which has at most 22 digits after the point; none otherwise.
// Both the digits and the power of ten are then exact doubles, so their
// one division is rounded once, to the same double as the general reading.
inline std::optional<double> ReadPlainDecimal(std::u16string_view text) noexcept {
  constexpr std::uint64_t kMaxExact = std::uint64_t{1} << 53;
  const bool negative = text.starts_with(u'-');
  std::size_t at = negative ? 1 : 0;
  std::uint64_t digits = 0;
  const auto take = [&](std::size_t& count) {
    for (; at < text.size() && decimal::IsDigit(text[at]); ++at, ++count) {
      digits = digits * 10 + static_cast<std::uint64_t>(text[at] - u'0');
      if (digits > kMaxExact) return false;
    }
    return true;
  };
  std::size_t whole = 0;
  std::size_t fraction = 0;
  if (!take(whole) || whole == 0) return std::nullopt;
  if (at < text.size()) {
    if (text[at] != u'.') return std::nullopt;
    ++at;
    if (!take(fraction) || fraction == 0 || at < text.size()) return std::nullopt;
  }
  if (fraction >= std::size(decimal::kExactPowers)) return std::nullopt;
  const double value = static_cast<double>(digits) / decimal::kExactPowers[fraction];
  return negative ? -value : value;
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
