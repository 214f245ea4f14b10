// The host API's per-frame evaluation.
#include <limits>
#include <utility>

#include "qdhostapi.h"

namespace qd {

Frame::Frame(std::vector<Param> params) : m_params(std::move(params)) {}

Frame Frame::numeric(const Set& set) {
  std::vector<Param> numbers;
  for (Param& param : set.params()) {
    const Type type = param.type();
    if (type == Type::Double || type == Type::Long || type == Type::Bool) {
      numbers.push_back(std::move(param));
    }
  }
  return Frame(std::move(numbers));
}

bool Frame::values(double time, std::span<double> out) const {
  if (out.size() < m_params.size()) return false;
  for (std::size_t i = 0; i < m_params.size(); ++i) {
    out[i] = m_params[i].value(time).value_or(std::numeric_limits<double>::quiet_NaN());
  }
  return true;
}

}  // namespace qd
