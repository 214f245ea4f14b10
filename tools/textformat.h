// Turning numbers, bytes and strings into text for people and for machines.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace qdtool {

// The shortest text that reads back as the same double; "null" for NaN and
// infinities, which the machine formats cannot carry.
std::string ShortestNumber(double value);
// Fixed-point text with `decimals` digits after the point.
std::string FixedNumber(double value, int decimals);
// The fewest decimals (at most `most`) that show `value` rounded to `most`.
int DecimalsNeeded(double value, int most);
// Up to six significant digits without trailing zeros: for reading.
std::string TidyNumber(double value);
// `text` tidied when the whole of it is a number (as the XML stores them).
std::string TidyNumberText(std::string_view text);

// `text` in double quotes.
std::string Quoted(std::string_view text);
std::string Hex(const unsigned char* bytes, std::size_t count);
std::string JsonString(std::string_view text);
std::string CsvField(std::string_view text);
std::string XmlEscape(std::string_view text);

// `text` with line breaks and other control characters shown as blanks, so
// that it keeps to one table cell.
std::string OneLine(std::string_view text);

// Characters a terminal shows for UTF-8 `text` (one per code point).
std::size_t DisplayWidth(std::string_view text);
// `text` cut to at most `width` characters, marked with an ellipsis when cut.
std::string Shorten(std::string_view text, std::size_t width);

}  // namespace qdtool
