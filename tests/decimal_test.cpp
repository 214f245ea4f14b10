// Plain decimal numbers read without the general conversion: each gives the
// very double (sign of zero included) and the same whole number that the
// general reading gives, and anything else is left to that reading.
#include <gtest/gtest.h>

#include <bit>
#include <charconv>
#include <cstdio>
#include <random>
#include <string>

#include "qddecimal.h"

using namespace qdcore;

namespace {

std::u16string Wide(const std::string& text) { return std::u16string(text.begin(), text.end()); }

// What the general conversion reads from the whole of `text`; none when it
// stops early or fails.
std::optional<double> General(const std::string& text) {
  double value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

void ExpectSameDouble(const std::string& text) {
  const std::optional<double> plain = ReadPlainDecimal(Wide(text));
  ASSERT_TRUE(plain) << text;
  const std::optional<double> general = General(text);
  ASSERT_TRUE(general) << text;
  EXPECT_EQ(std::bit_cast<std::uint64_t>(*plain), std::bit_cast<std::uint64_t>(*general)) << text;
}

TEST(PlainDecimal, ReadsAsTheGeneralConversion) {
  for (const char* text :
       {"0", "-0", "-0.000", "1", "100.000000000000", "-100.000000000000", "0.066666666667",
        "-3.499000000000", "0.1", "0.3", "123456789.123456", "9007199254740992",
        "0.9007199254740992", "4503599627370497", "0.000000000000000001", "007.50"}) {
    ExpectSameDouble(text);
  }
}

// Numbers as the library writes them ("%.12f" and shorter), and random
// digit strings up to the exact limit, in every place of the point.
TEST(PlainDecimal, ReadsRandomNumbersAsTheGeneralConversion) {
  std::mt19937_64 random(11);
  char line[64];
  for (int i = 0; i < 20000; ++i) {
    const double x = std::bit_cast<double>(random() >> 2) * (i % 2 ? 1 : -1);
    std::snprintf(line, sizeof line, "%.*f", static_cast<int>(i % 13), std::fmod(x, 1e6));
    if (ReadPlainDecimal(Wide(line))) ExpectSameDouble(line);
    const std::string whole = std::to_string(random() % (std::uint64_t{1} << 53));
    const std::size_t point = random() % whole.size() + 1;
    ExpectSameDouble(point < whole.size() ? whole.substr(0, point) + "." + whole.substr(point)
                                          : whole);
  }
}

// Everything beyond the plain form goes to the general reading.
TEST(PlainDecimal, LeavesAnythingElse) {
  for (const char* text : {"",
                           "-",
                           ".5",
                           "5.",
                           "+1",
                           " 1",
                           "1 ",
                           "1e5",
                           "1E5",
                           "0x10",
                           "inf",
                           "nan",
                           "1.2.3",
                           "1,5",
                           "--1",
                           "0.5s",
                           "50%",
                           "9007199254740993",
                           "1.00000000000000000000001",
                           "12345678901234567890",
                           "\xD9\xA1"}) {
    EXPECT_FALSE(ReadPlainDecimal(Wide(text))) << text;
  }
}

TEST(PlainWhole, ReadsOneToNineDigits) {
  const struct {
    const char* text;
    std::optional<long long> value;
  } cases[] = {{"0", 0},
               {"-0", 0},
               {"7", 7},
               {"-42", -42},
               {"999999999", 999999999},
               {"-999999999", -999999999},
               {"0012", 12},
               {"1234567890", {}},
               {"", {}},
               {"-", {}},
               {"+1", {}},
               {"1.0", {}},
               {" 1", {}},
               {"1x", {}}};
  for (const auto& c : cases) EXPECT_EQ(ReadPlainWhole(Wide(c.text)), c.value) << c.text;
}

}  // namespace
