// Extrapolation (see qdextrapolation.h): reading the modes and the span.
#include "qdextrapolation.h"

#include "qdparamevaluation.h"

namespace qdcore {

Extrapolation ReadExtrapolation(const CParam& param) {
  if (param.GetTimeTranslation() == TIMETRANSLATION_EASEINOUT) return {};
  return {param.GetExtrapolationBefore(), param.GetExtrapolationAfter()};
}

KeyedSpan SpanOnClip(const CParam& param, mtime duration, mtime minDuration) {
  KeyedSpan span;
  ParamEvaluation::SortedKeyTimes(param, duration, minDuration, [&](std::span<const mtime> times) {
    if (times.size() < 2) return;
    span = {static_cast<double>(times.front()), static_cast<double>(times.back())};
  });
  return span;
}

}  // namespace qdcore
