// Extrapolation (see qdextrapolation.h): reading the modes and the span.
#include "qdextrapolation.h"

#include <new>

#include "qdparamevaluation.h"

namespace qdcore {

Extrapolation ReadExtrapolation(const CParam& param) {
  if (param.GetTimeTranslation() == TIMETRANSLATION_EASEINOUT) return {};
  return {param.GetExtrapolationBefore(), param.GetExtrapolationAfter()};
}

// Without memory to sort the times in, the ends hold.
KeyedSpan SpanOnClip(const CParam& param, mtime duration, mtime minDuration) {
  KeyedSpan span;
  try {
    ParamEvaluation::SortedKeyTimes(
        param, duration, minDuration, [&](std::span<const mtime> times) {
          if (times.size() < 2) return;
          span = {static_cast<double>(times.front()), static_cast<double>(times.back())};
        });
  } catch (const std::bad_alloc&) {
    return {};
  }
  return span;
}

}  // namespace qdcore
