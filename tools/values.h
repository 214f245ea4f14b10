// A parameter's value at a time, whatever its type, and its text.
#pragma once

#include <cstddef>
#include <string>
#include <variant>
#include <vector>

#include "qdparam/param.h"
#include "qdparam/paramset.h"
#include "qdparam/qdparam.hpp"

namespace qdtool {

// A binary value: its size and its first bytes.
struct Bytes {
  std::size_t size = 0;
  std::vector<unsigned char> head;
};

// Nothing (std::monostate) for a type that has no value at a time.
using Value = std::variant<std::monostate, double, long, bool, std::string, Bytes>;

// The value of `param` (which belongs to `set`) at `time` on the set's time line.
Value ValueAt(const qd::Set& set, const qd::Param& param, double time);

// The whole binary payload of `param` at `time`; empty when it has none or
// it is larger than kLargestFetched.
std::vector<unsigned char> BinaryAt(const qd::Set& set, const qd::Param& param, double time);

// The numeric value used for charts: booleans as 0 and 1.
double NumberAt(const qd::Param& param, double time);
bool IsNumeric(unsigned int type);

// The text of a value for people ("80 bytes: 01000000…" for binaries);
// numbers get `decimals` digits after the point.
std::string ValueText(const Value& value, int decimals);
// The same for machines: numbers as the shortest exact text.
std::string ValueTextExact(const Value& value);

// The size and head of `size` bytes at `data`.
Bytes BinaryHead(const unsigned char* data, std::size_t size);

// Larger binary values are only counted, not fetched.
inline constexpr unsigned int kLargestFetched = 64u << 20;

// Binary values are read the library's way: `read(nullptr, 0)` tells the
// size, `read(buffer, size)` copies the value and answers how many bytes it
// wrote. The bytes of a value of `size`; empty when there are none or more
// than kLargestFetched.
template <typename Reader>
std::vector<unsigned char> FetchBytes(Reader read, unsigned int size) {
  if (size == 0 || size > kLargestFetched) return {};
  std::vector<unsigned char> bytes(size);
  const unsigned int written = read(bytes.data(), size);
  bytes.resize(written < size ? written : size);
  return bytes;
}

// The whole value, as FetchBytes gives it.
template <typename Reader>
std::vector<unsigned char> ReadAllBytes(Reader read) {
  return FetchBytes(read, read(nullptr, 0u));
}

// The value's size and its first bytes.
template <typename Reader>
Bytes ReadBytes(Reader read) {
  const unsigned int size = read(nullptr, 0u);
  const std::vector<unsigned char> bytes = FetchBytes(read, size);
  Bytes head = BinaryHead(bytes.data(), bytes.size());
  head.size = size;
  return head;
}

}  // namespace qdtool
