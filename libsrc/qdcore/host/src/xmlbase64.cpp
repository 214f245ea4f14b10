// Base64 for binary element data.
#include <array>
#include <cstdint>

#include "xmlnode.h"

namespace qdcore {

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr std::uint8_t kInvalid = 0xFF;
constexpr std::uint8_t kBlank = 0xFE;
constexpr std::uint8_t kPad = 0xFD;

constexpr std::array<std::uint8_t, 128> MakeDecodeTable() {
  std::array<std::uint8_t, 128> table{};
  for (auto& entry : table) entry = kInvalid;
  for (std::uint8_t i = 0; i < 64; ++i) table[static_cast<unsigned char>(kAlphabet[i])] = i;
  table[' '] = table['\t'] = table['\r'] = table['\n'] = kBlank;
  table['='] = kPad;
  return table;
}

constexpr std::array<std::uint8_t, 128> kDecode = MakeDecodeTable();

std::uint8_t Classify(char16_t c) noexcept { return c < 128 ? kDecode[c] : kInvalid; }

}  // namespace

void AppendBase64(std::u16string& out, const unsigned char* bytes, std::size_t size) {
  const std::size_t start = out.size();
  out.resize(start + (size + 2) / 3 * 4);
  char16_t* to = out.data() + start;
  std::size_t i = 0;
  for (; i + 3 <= size; i += 3) {
    const std::uint32_t v =
        (std::uint32_t{bytes[i]} << 16) | (std::uint32_t{bytes[i + 1]} << 8) | bytes[i + 2];
    *to++ = kAlphabet[v >> 18];
    *to++ = kAlphabet[(v >> 12) & 63];
    *to++ = kAlphabet[(v >> 6) & 63];
    *to++ = kAlphabet[v & 63];
  }
  if (i == size) return;
  const bool two = size - i == 2;
  const std::uint32_t v =
      (std::uint32_t{bytes[i]} << 16) | (two ? std::uint32_t{bytes[i + 1]} << 8 : 0);
  *to++ = kAlphabet[v >> 18];
  *to++ = kAlphabet[(v >> 12) & 63];
  *to++ = two ? kAlphabet[(v >> 6) & 63] : u'=';
  *to = u'=';
}

bool DecodeBase64(std::u16string_view text, std::vector<unsigned char>& out) {
  out.clear();
  std::size_t digits = 0;
  std::size_t pads = 0;
  for (const char16_t c : text) {
    const std::uint8_t kind = Classify(c);
    if (kind == kInvalid) return false;
    if (kind == kBlank) continue;
    if (kind == kPad) {
      ++pads;
      continue;
    }
    if (pads) return false;  // digits after padding
    ++digits;
  }
  if (digits % 4 == 1 || pads > 2) return false;
  if (pads && (digits + pads) % 4 != 0) return false;

  out.reserve(digits * 3 / 4);
  std::uint32_t acc = 0;
  unsigned bits = 0;
  for (const char16_t c : text) {
    const std::uint8_t value = Classify(c);
    if (value >= 64) continue;  // blanks and padding: already checked
    acc = (acc << 6) | value;
    bits += 6;
    if (bits >= 8) {
      bits -= 8;
      out.push_back(static_cast<unsigned char>(acc >> bits));
      acc &= (1u << bits) - 1;
    }
  }
  return true;
}

}  // namespace qdcore
