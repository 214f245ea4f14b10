// A parameter's values with the minimum duration given: the public getters
// pass the cached one, the host API the one that scales absolute keyframes
// onto short clips (ScaleOntoClip, qdkeys.h). One body for both, so the
// host API answers exactly what the getters answer on the same keyframes.
#pragma once

#include <cstddef>
#include <functional>
#include <span>
#include <vector>

#include "qdparam/param.h"

namespace qdcore {

struct ParamEvaluation {
  static double Double(const CParam& param, mtime time, mtime duration, mtime minDuration,
                       double def);
  // Double's value for a caller that evaluates the parameter again and
  // again: `cursor` (start with Timeline::kNoHint) keeps the segment found
  // last, and the trace line is written only when `traced` (the caller
  // asked IsTraced once for many values). The same value as Double; NaN
  // for a parameter that is not a number.
  static double DoubleFrom(const CParam& param, mtime time, mtime duration, mtime minDuration,
                           unsigned int& cursor, bool traced);
  // Whether evaluations write their trace lines now.
  static bool IsTraced();
  static long Long(const CParam& param, mtime time, mtime duration, mtime minDuration, long def);
  static bool Bool(const CParam& param, mtime time, mtime duration, mtime minDuration, bool def);
  static CZPoolString String(const CParam& param, mtime time, mtime duration, mtime minDuration,
                             const CZPoolString& def);
  // The slope of Double's value in units per second (qdderivative.h); 0.0
  // where it stands still or the type is no number.
  static double Slope(const CParam& param, mtime time, mtime duration, mtime minDuration);
  // 0.0 when the type is not Double or a keyframe time cannot be read.
  static double Integral(const CParam& param, mtime time, mtime duration, mtime minDuration);
  // Samples at start + i * step, each as Double with default 0.
  static void ArrayDouble(const CParam& param, mtime duration, mtime minDuration, mtime start,
                          mtime step, double* values, unsigned long count);
  // Samples at the given times, each as Double with default 0; nearby times
  // in a row are found from one another.
  // Hands each time in [from, duration] at which the value reaches `value`
  // to `sink`, in time order, until it returns false; false when the
  // parameter cannot be searched (see GetPositionFromValueDouble).
  static bool Crossings(const CParam& param, double value, mtime duration, mtime minDuration,
                        mtime from, bool (*sink)(void* context, double time), void* context) {
    return param.FindValueCrossings(value, duration, minDuration, from, sink, context);
  }
  // The keyframes' times on a clip, ascending, handed to `use`: the cached
  // time line itself when its keys are in time order (no copy), else the
  // times read and sorted. Keyframes without a time are left out.
  static void SortedKeyTimes(const CParam& param, mtime duration, mtime minDuration,
                             const std::function<void(std::span<const mtime>)>& use);
  // The cached time line when the keyframes are stored in time order and
  // none lacks a time (the list order is then the time order); null else.
  static const std::vector<mtime>* OrderedKeyTimes(const CParam& param, mtime duration,
                                                   mtime minDuration);
  // Makes the next GetMinDuration count again: removing or moving an
  // absolute keyframe leaves the cached span as it was.
  static void ForgetMinDuration(CParam& param);
  static void AtTimes(const CParam& param, mtime duration, mtime minDuration, const double* times,
                      double* values, std::size_t count);

 private:
  // Calls `get` with the parameter as its evaluation cache reads it, or live
  // when no cache can be had.
  template <typename Get>
  static auto Read(const CParam& param, Get get);
};

class CParamSet;

// CParamUtil::InterpolateParamsSpline with the parameters given as objects
// of `set`, for callers that hold them already.
bool InterpolateParamsPath(const CParamSet& set, const CParam* const* params, unsigned int count,
                           const mtime& time, double* values);

}  // namespace qdcore
