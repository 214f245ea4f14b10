// CParamUtil: questions about several parameters of a set at once.
#pragma once

#include "qdcore/core.h"
#include "qdparam/export.h"

namespace qdcore {

class CParamSet;

/// Questions about several parameters of a set at once: the motion path
/// through their keyed values.
class QDPARAM_API CParamUtil {
 public:
  /// The most parameters a path runs through (its dimensions).
  static constexpr unsigned int kMaxPathParams = 8;

  /// The point at `time` (the set's time line) on the path through the keyed
  /// values of `count` parameters of `set`, one coordinate per parameter
  /// written to values[0..count). The vertices are the parameters' values at
  /// the first one's keyframe times; between them the point moves along a
  /// centripetal Catmull-Rom curve at the pace of the first parameter's
  /// keyframe (hold, or its eased share of the segment's arc length). False,
  /// `values` untouched, when count is 0 or above kMaxPathParams, an argument
  /// is null, or a parameter is missing or not Double or Long.
  static bool InterpolateParamsSpline(const CParamSet& set, const CZPoolString* names,
                                      unsigned int count, const mtime& time, double* values);
  /// The same with the parameters named by id.
  static bool InterpolateParamsSpline(const CParamSet& set, const unsigned long* ids,
                                      unsigned int count, const mtime& time, double* values);
};

}  // namespace qdcore
