// The host API's per-frame evaluation.
#include <atomic>
#include <limits>
#include <utility>

#include "qdhostapi.h"
#include "qdparamevaluation.h"
#include "qdtimeline.h"

namespace qd {

using qdcore::CParam;
using qdcore::CParamSet;
using qdcore::ParamEvaluation;

Frame::Frame(std::vector<Param> params)
    : m_params(std::move(params)), m_cursors(m_params.size(), qdcore::Timeline::kNoHint) {}

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

// Param::value for each, with what a frame's values share asked once: the
// trace level, and the clip of each run of parameters from one set. Each
// parameter's search starts where its last frame's ended.
bool Frame::values(double time, std::span<double> out) const {
  if (out.size() < m_params.size()) return false;
  const bool traced = ParamEvaluation::IsTraced();
  const detail::SetState* clipOf = nullptr;
  qdcore::mtime clipTime, duration;
  for (std::size_t i = 0; i < m_params.size(); ++i) {
    const Param& param = m_params[i];
    const CParam* p = param.Resolve();
    if (!p) {
      out[i] = std::numeric_limits<double>::quiet_NaN();
      continue;
    }
    if (param.m_state.get() != clipOf) {
      clipOf = param.m_state.get();
      const CParamSet& set = clipOf->set;
      clipTime = time - set.GetStartTime();
      duration = set.GetDuration();
    }
    // One frame may be asked for values on several threads at once.
    std::atomic_ref<unsigned int> shared(m_cursors[i]);
    unsigned int cursor = shared.load(std::memory_order_relaxed);
    out[i] =
        ParamEvaluation::DoubleFrom(*p, clipTime, duration, detail::ClipFit(*p), cursor, traced);
    shared.store(cursor, std::memory_order_relaxed);
  }
  return true;
}

}  // namespace qd
