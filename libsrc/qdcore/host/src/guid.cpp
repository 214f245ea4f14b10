// Identifiers: 128 random bits and their text form.
#include <sys/random.h>

#include <cstring>

#include "qdcore/core.h"

namespace qdcore {

bool CGUID::create() {
  unsigned char fresh[sizeof bytes];
  std::size_t filled = 0;
  while (filled < sizeof fresh) {
    const ssize_t got = getrandom(fresh + filled, sizeof fresh - filled, 0);
    if (got < 0) return false;
    filled += static_cast<std::size_t>(got);
  }
  std::memcpy(bytes, fresh, sizeof bytes);
  return true;
}

namespace {

// Byte positions of the text form {XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}.
constexpr int kGroups[] = {4, 2, 2, 2, 6};
constexpr std::size_t kTextLength = 38;

int HexValue(wchar c) noexcept {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

}  // namespace

CZPoolString CGUID::GetString() const {
  static const char kDigits[] = "0123456789ABCDEF";
  wchar text[kTextLength];
  std::size_t at = 0;
  int index = 0;
  text[at++] = '{';
  for (int group = 0; group < 5; ++group) {
    if (group > 0) text[at++] = '-';
    for (int i = 0; i < kGroups[group]; ++i, ++index) {
      text[at++] = static_cast<wchar>(kDigits[bytes[index] >> 4]);
      text[at++] = static_cast<wchar>(kDigits[bytes[index] & 15]);
    }
  }
  text[at++] = '}';
  return CZPoolString(std::u16string_view(text, at));
}

bool CGUID::parse(const wchar* text) {
  if (!text) return false;
  const std::u16string_view view(text);
  if (view.size() != kTextLength || view.front() != '{' || view.back() != '}') return false;
  unsigned char parsed[sizeof bytes];
  std::size_t at = 1;
  int index = 0;
  for (int group = 0; group < 5; ++group) {
    if (group > 0 && view[at++] != '-') return false;
    for (int i = 0; i < kGroups[group]; ++i, ++index, at += 2) {
      const int high = HexValue(view[at]);
      const int low = HexValue(view[at + 1]);
      if (high < 0 || low < 0) return false;
      parsed[index] = static_cast<unsigned char>(high << 4 | low);
    }
  }
  std::memcpy(bytes, parsed, sizeof bytes);
  return true;
}

bool CGUID::operator<(const CGUID& other) const noexcept {
  return std::memcmp(bytes, other.bytes, sizeof bytes) < 0;
}

bool CGUID::operator==(const CGUID& other) const noexcept {
  return std::memcmp(bytes, other.bytes, sizeof bytes) == 0;
}

}  // namespace qdcore
