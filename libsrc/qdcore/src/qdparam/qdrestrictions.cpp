// Restrictions: the granularity grid and the limits (see qdrestrictions.h).
#include "qdrestrictions.h"

#include <cstdint>
#include <utility>

#include "qdassert.h"
#include "qdnumbers.h"
#include "qdparam/processing.h"

namespace qdcore {

namespace {

constexpr const char* kEnforceDoubleSignature =
    "double __cdecl EnforceRestricitionsDouble(const class qdcore::CParam &,double)";
constexpr const char* kEnforceLongSignature =
    "long __cdecl EnforceRestricitionsLong(const class qdcore::CParam &,long)";

// The nearest multiple of `grid`, halves away from zero, counted in 32-bit
// steps (a count beyond them gives INT32_MIN steps, never undefined behaviour).
double SnapToGrid(double x, double grid) {
  return RoundHalfAwayFromZero(x / grid) * grid;
}

int SnapToGrid(int x, int grid) {
  return TruncateToInt32(RoundHalfAwayFromZero(static_cast<double>(x) / grid) *
                         static_cast<double>(grid));
}

// 32-bit wraparound, as the stored whole numbers have, without overflow.
int WrappingAdd(int a, int b) {
  return static_cast<int>(static_cast<std::int64_t>(a) + b);
}

// Raises the value to `lower` and lowers it to `upper` where present.
// Inverted limits are reported and used swapped, so the result lies between
// them whatever their order.
template <typename T>
T ClampToLimits(T value, bool hasMin, T lower, bool hasMax, T upper, const char* signature) {
  if (hasMin) {
    if (hasMax && lower > upper) {
      QD_ASSUMPTION_FAILED("min <= max", signature);
      std::swap(lower, upper);
    }
    if (lower > value) value = lower;
  }
  if (hasMax && upper < value) value = upper;
  return value;
}

}  // namespace

DoubleLimits ReadDoubleLimits(const CParam& param) {
  DoubleLimits limits;
  param.GetGranularityDouble(limits.grid);
  limits.hasMin = param.GetMinValueDouble(limits.min);
  limits.hasMax = param.GetMaxValueDouble(limits.max);
  return limits;
}

LongLimits ReadLongLimits(const CParam& param) {
  LongLimits limits;
  param.GetGranularityLong(limits.grid);
  limits.hasMin = param.GetMinValueLong(limits.min);
  limits.hasMax = param.GetMaxValueLong(limits.max);
  return limits;
}

// The limits move inward onto the grid, so a snapped value never leaves them.
double EnforceDoubleLimits(const DoubleLimits& limits, double value) {
  const double grid = limits.grid;
  double lower = limits.min, upper = limits.max;
  if (grid > 0.0) {
    if (limits.hasMin) {
      const double snapped = SnapToGrid(lower, grid);
      lower = lower > snapped ? snapped + grid : snapped;
    }
    if (limits.hasMax) {
      const double snapped = SnapToGrid(upper, grid);
      upper = snapped > upper ? snapped - grid : snapped;
    }
    value = SnapToGrid(value, grid);
  }
  return ClampToLimits(value, limits.hasMin, lower, limits.hasMax, upper, kEnforceDoubleSignature);
}

long EnforceLongLimits(const LongLimits& limits, long value) {
  const int g = ToInt32(limits.grid);
  int lower = ToInt32(limits.min), upper = ToInt32(limits.max), v = ToInt32(value);
  if (g > 0) {
    if (limits.hasMin) {
      const int snapped = SnapToGrid(lower, g);
      lower = snapped < lower ? WrappingAdd(snapped, g) : snapped;
    }
    if (limits.hasMax) {
      const int snapped = SnapToGrid(upper, g);
      upper = snapped > upper ? WrappingAdd(snapped, -g) : snapped;
    }
    v = SnapToGrid(v, g);
  }
  return ClampToLimits(v, limits.hasMin, lower, limits.hasMax, upper, kEnforceLongSignature);
}

double EnforceRestricitionsDouble(const CParam& param, double value) {
  return EnforceDoubleLimits(ReadDoubleLimits(param), value);
}

long EnforceRestricitionsLong(const CParam& param, long value) {
  return EnforceLongLimits(ReadLongLimits(param), value);
}

}  // namespace qdcore
