// Restrictions: the granularity grid and the limits a parameter's value is
// forced into after it has been read or blended.
#pragma once

#include "qdparam/param.h"

namespace qdcore {

// A parameter's grid and limits as the restriction steps read them.
struct DoubleLimits {
  double grid = 0.0;
  bool hasMin = false, hasMax = false;
  double min = 0.0, max = 0.0;
};
struct LongLimits {
  long grid = 0;
  bool hasMin = false, hasMax = false;
  long min = 0, max = 0;
};

DoubleLimits ReadDoubleLimits(const CParam& param);
LongLimits ReadLongLimits(const CParam& param);
// The value snapped to the grid, then clamped to the limits moved inward
// onto it; inverted limits are reported and used swapped.
double EnforceDoubleLimits(const DoubleLimits& limits, double value);
long EnforceLongLimits(const LongLimits& limits, long value);

// EnforceDoubleLimits for limits without a grid and in order: the clamp
// alone, the same comparisons in the same order.
inline double ClampToOrderedLimits(const DoubleLimits& limits, double value) {
  if (limits.hasMin && limits.min > value) value = limits.min;
  if (limits.hasMax && limits.max < value) value = limits.max;
  return value;
}

// True when the limits are a clamp alone: no grid, and not inverted (which reports).
inline bool IsPlainClamp(const DoubleLimits& limits) {
  return !(limits.grid > 0.0) && !(limits.hasMin && limits.hasMax && limits.min > limits.max);
}

}  // namespace qdcore
