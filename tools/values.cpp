#include "values.h"

#include <algorithm>
#include <cmath>

#include "names.h"
#include "qdparam/types.h"
#include "textformat.h"

namespace qdtool {

using namespace qdcore;

namespace {

// Bytes shown of a binary value: enough to tell payloads apart.
constexpr std::size_t kHeadBytes = 8;
// Numbers this large read better with an exponent.
constexpr double kLargestFixed = 1e15;
std::string BytesText(const Bytes& bytes) {
  std::string text = std::to_string(bytes.size) + (bytes.size == 1 ? " byte" : " bytes");
  if (bytes.head.empty()) return text;
  text += ": " + Hex(bytes.head.data(), bytes.head.size());
  return bytes.head.size() < bytes.size ? text + "\u2026" : text;
}

}  // namespace

Bytes BinaryHead(const unsigned char* data, std::size_t size) {
  const std::size_t shown = std::min(size, kHeadBytes);
  return {size, std::vector<unsigned char>(data, data + shown)};
}

bool IsNumeric(unsigned int type) {
  return type == PARAM_DOUBLE || type == PARAM_LONG || type == PARAM_BOOL;
}

// Numbers and texts through the host API, which scales absolute keyframes
// onto short clips; binaries, which it does not blend, from the set itself.
Value ValueAt(const qd::Set& set, const qd::Param& param, double time) {
  switch (param.type()) {
    case qd::Type::Double:
      return param.value(time).value_or(0.0);
    case qd::Type::Long:
      return static_cast<long>(param.value(time).value_or(0.0));
    case qd::Type::Bool:
      return param.value(time).value_or(0.0) != 0.0;
    case qd::Type::String:
      return param.text(time).value_or(std::string());
    case qd::Type::Binary:
      return ReadBytes([&](unsigned char* buffer, unsigned int size) {
        return set.native().GetValueBinary(param.native(), time, buffer, size);
      });
    default:
      return std::monostate{};
  }
}

std::vector<unsigned char> BinaryAt(const qd::Set& set, const qd::Param& param, double time) {
  const qdcore::CParam* native = param.native();
  if (!native) return {};
  return ReadAllBytes([&](unsigned char* buffer, unsigned int size) {
    return set.native().GetValueBinary(native, time, buffer, size);
  });
}

double NumberAt(const qd::Param& param, double time) { return param.value(time).value_or(0.0); }

std::string ValueText(const Value& value, int decimals) {
  struct {
    int decimals;
    std::string operator()(std::monostate) const { return "-"; }
    std::string operator()(double v) const {
      return std::fabs(v) < kLargestFixed ? FixedNumber(v, decimals) : TidyNumber(v);
    }
    std::string operator()(long v) const { return std::to_string(v); }
    std::string operator()(bool v) const { return v ? "true" : "false"; }
    std::string operator()(const std::string& v) const { return v; }
    std::string operator()(const Bytes& v) const { return BytesText(v); }
  } text{decimals};
  return std::visit(text, value);
}

std::string ValueTextExact(const Value& value) {
  if (const double* number = std::get_if<double>(&value)) return ShortestNumber(*number);
  return ValueText(value, 0);
}

}  // namespace qdtool
