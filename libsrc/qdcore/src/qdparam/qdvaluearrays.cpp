// Value arrays: sample i at start + i * step, each exactly as the
// single-time getter with default 0. Whole segments of an active keyframed
// Double parameter are filled at once through their kind's sampler
// (qdinterpolation.h) where no sample of them can report.
#include <algorithm>
#include <cmath>
#include <utility>

#include "qdminduration.h"
#include "qdparamevaluation.h"
#include "qdtypedvalue.h"

namespace qdcore {

namespace {

constexpr const char* kGetValueArrayDoubleSignature =
    "bool __cdecl qdcore::CParam::GetValueArrayDouble(const class qdcore::mtime &,const class "
    "qdcore::mtime &,const class qdcore::mtime &,double *,unsigned long) const";
constexpr const char* kGetValueArrayLongSignature =
    "bool __cdecl qdcore::CParam::GetValueArrayLong(const class qdcore::mtime &,const class "
    "qdcore::mtime &,const class qdcore::mtime &,long *,unsigned long) const";

// Null is refused; an empty request is reported but succeeds.
bool CheckArray(const void* values, unsigned long count, const char* signature) {
  if (!values) QD_ASSUMPTION_FAILED("pValues", signature);
  if (count == 0) QD_ASSUMPTION_FAILED("uNValues > 0", signature);
  return values != nullptr;
}

mtime SampleTime(const mtime& start, const mtime& step, unsigned long i) {
  return start + static_cast<double>(i) * step;
}

}  // namespace

// One view serves every sample, so that the cache is checked once and the
// segment found for one sample is where the search for the next begins.
// Without the trace, whole segments of an active keyframed Double parameter
// are filled at once where no sample of them can report.
bool CParam::GetValueArrayDouble(const mtime& duration, const mtime& start, const mtime& step,
                                 double* pValues, unsigned long uNValues) const {
  if (!CheckArray(pValues, uNValues, kGetValueArrayDoubleSignature)) return false;
  ParamEvaluation::ArrayDouble(*this, duration, CachedMinDuration(m_MinDuration), start, step,
                               pValues, uNValues);
  return true;
}

void ParamEvaluation::ArrayDouble(const CParam& param, mtime duration, mtime minDuration,
                                  mtime start, mtime step, double* values, unsigned long count) {
  const auto sample = [&](const auto& source, unsigned long i) {
    values[i] = ValueDouble(source, SampleTime(start, step, i), duration, minDuration, 0.0);
  };
  const CParam::EvalCache* cache = CParam::EvalCache::For(param);
  if (!cache) {
    const LiveParam live(param);
    for (unsigned long i = 0; i < count; ++i) sample(live, i);
    return;
  }
  const auto view = cache->Bind(param);
  // Extrapolated parameters go sample by sample.
  const bool byRuns = view.Type() == PARAM_DOUBLE && !view.Inactive() && view.KeyFramed() &&
                      !view.Extrapolations().Any();
  double fallback = 0.0;  // what keyframes fall back to: the static value, else 0.0
  view.StaticValue(fallback);
  for (unsigned long i = 0; i < count;) {
    CParam::EvalCache::Run run;
    if (byRuns && !wPrintf_IsUserLevelActive(kTraceCategory, kTraceLevel)) {
      run = view.FillRun(duration, minDuration, start, step, fallback, values, i, count);
    }
    if (run.filled) {
      i += run.length;
      continue;
    }
    for (const unsigned long end = i + std::max(run.length, 1ul); i < end; ++i) sample(view, i);
  }
}

// One view for every time, so that the cache is checked once and each
// search starts where the last one ended.
void ParamEvaluation::AtTimes(const CParam& param, mtime duration, mtime minDuration,
                              const double* times, double* values, std::size_t count) {
  const auto fill = [&](const auto& source) {
    for (std::size_t i = 0; i < count; ++i) {
      values[i] = ValueDouble(source, times[i], duration, minDuration, 0.0);
    }
  };
  if (const CParam::EvalCache* cache = CParam::EvalCache::For(param)) {
    fill(cache->Bind(param));
  } else {
    fill(LiveParam(param));
  }
}

// Long samples write no trace line, not even for a Double parameter.
bool CParam::GetValueArrayLong(const mtime& duration, const mtime& start, const mtime& step,
                               long* pValues, unsigned long uNValues) const {
  if (!CheckArray(pValues, uNValues, kGetValueArrayLongSignature)) return false;
  const mtime minDuration = CachedMinDuration(m_MinDuration);
  const auto fill = [&](const auto& param) {
    for (unsigned long i = 0; i < uNValues; ++i) {
      const mtime t = SampleTime(start, step, i);
      pValues[i] = param.Type() == PARAM_DOUBLE
                       ? TruncateToInt32(OwnValue(param, t, duration, minDuration, 0.0))
                       : ValueLong(param, t, duration, minDuration, 0);
    }
  };
  if (const EvalCache* cache = EvalCache::For(*this)) {
    fill(cache->Bind(*this));
  } else {
    fill(LiveParam(*this));
  }
  return true;
}

}  // namespace qdcore

// ---- the evaluation cache's part: a segment at a time
//
// Sample times never decrease (or never increase) with a finite step, so
// the samples of one segment follow each other.

namespace qdcore {

namespace {

// The first sample from `from` (which is in) on that is out, by doubling
// then halving: a run costs the logarithm of its length.
template <typename In>
unsigned long EndOfRun(unsigned long from, unsigned long count, In in) {
  unsigned long inside = from, reach = 1;
  while (count - inside > reach && in(inside + reach)) {
    inside += reach;
    reach *= 2;
  }
  unsigned long outside = count - inside > reach ? inside + reach : count;
  while (outside - inside > 1) {
    const unsigned long middle = inside + (outside - inside) / 2;
    (in(middle) ? inside : outside) = middle;
  }
  return outside;
}

}  // namespace

// Only what cannot report is filled here: segments with a clamp alone, by
// their kind's sampler. The rest is measured and left to go sample by
// sample, with reports and trace lines in order.
SampleRun CParam::EvalCache::FillRun(const CParam& param, mtime duration, mtime minDuration,
                                     mtime start, mtime step, double def, double* values,
                                     unsigned long from, unsigned long count,
                                     unsigned int& cursor) const {
  // The parameter's own easing and a clip length that reports go sample by sample.
  if (m_liveWalk || easeInOut || !(duration > 0.0)) return {};
  if (!std::isfinite(static_cast<double>(start)) || !std::isfinite(static_cast<double>(step))) {
    return {};
  }
  const Timeline* line = TimelineFor(duration, minDuration);
  if (!line || !line->Ordered()) return {};
  const unsigned int k = line->Find(SampleTime(start, step, from), cursor);
  const auto stopsAtK = [&](unsigned long j) {
    const mtime t = SampleTime(start, step, j);
    return (k == 0 || t >= line->times[k - 1]) && (k == m_keyCount || !(t >= line->times[k]));
  };
  const unsigned long end = EndOfRun(from, count, stopsAtK);
  const SampleRun bySample{end - from, false};

  const CachedKey prev = k > 0 ? KeyAt(param, k - 1, line) : CachedKey{};
  const CachedKey next = k < m_keyCount ? KeyAt(param, k, line) : CachedKey{};
  const CachedKey* first = k > 0 ? &prev : nullptr;
  const CachedKey* second = k < m_keyCount ? &next : nullptr;
  const mtime prevTime = k > 0 ? line->times[k - 1] : mtime();
  const mtime nextTime = k < m_keyCount ? line->times[k] : mtime(kNoNextTime);
  // Limits that may report, and easing within the segment, go sample by sample.
  if (!plainClamp) return bySample;
  if (first && (first->record->timeTranslation & TIMETRANSLATION_EASEINOUT)) return bySample;
  const InterpolationKind* kind =
      FindInterpolationKind(first ? first->record->interpolation : INTERPOLATION_HOLD);
  if (nextTime - prevTime < kShortestSegment || !second || (kind && kind->holds)) {
    // Every sample of the segment is the same value.
    const double value = InterpolateKeys(SampleTime(start, step, from), duration, first, prevTime,
                                         second, nextTime, def);
    std::fill(values + from, values + end, ClampToOrderedLimits(doubleLimits, value));
    return {end - from, true};
  }
  if (!kind || !kind->sample) return bySample;
  const Segment segment{mtime(), duration, prevTime, nextTime, ValueOf(prev), ValueOf(next)};
  SegmentShape shape;
  if (!RecordedShape(kind->needs, segment, prev, next, shape)) return bySample;
  const SampleSpan span{start, step, from, end, values, &doubleLimits, def};
  return kind->sample(segment, shape, span);
}

}  // namespace qdcore
