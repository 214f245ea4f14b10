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
double SnapToGrid(double x, double grid) { return RoundHalfAwayFromZero(x / grid) * grid; }

int SnapToGrid(int x, int grid) {
  return TruncateToInt32(RoundHalfAwayFromZero(static_cast<double>(x) / grid) *
                         static_cast<double>(grid));
}

// 32-bit wraparound, as the stored whole numbers have, without overflow.
int WrappingAdd(int a, int b) { return static_cast<int>(static_cast<std::int64_t>(a) + b); }

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

// The limits move inward onto the grid, so a snapped value never leaves
// them. `add` is the type's own addition.
template <typename T, typename Add>
void MoveLimitsOntoGrid(T grid, bool hasMin, T& lower, bool hasMax, T& upper, Add add) {
  if (hasMin) {
    const T snapped = SnapToGrid(lower, grid);
    lower = lower > snapped ? add(snapped, grid) : snapped;
  }
  if (hasMax) {
    const T snapped = SnapToGrid(upper, grid);
    upper = snapped > upper ? add(snapped, -grid) : snapped;
  }
}

// A parameter's grid and limits, read by its getters of one type.
template <typename Limits, typename Getter>
Limits ReadLimits(const CParam& param, Getter grid, Getter min, Getter max) {
  Limits limits;
  (param.*grid)(limits.grid);
  limits.hasMin = (param.*min)(limits.min);
  limits.hasMax = (param.*max)(limits.max);
  return limits;
}

}  // namespace

DoubleLimits ReadDoubleLimits(const CParam& param) {
  return ReadLimits<DoubleLimits>(param, &CParam::GetGranularityDouble, &CParam::GetMinValueDouble,
                                  &CParam::GetMaxValueDouble);
}

LongLimits ReadLongLimits(const CParam& param) {
  return ReadLimits<LongLimits>(param, &CParam::GetGranularityLong, &CParam::GetMinValueLong,
                                &CParam::GetMaxValueLong);
}

double EnforceDoubleLimits(const DoubleLimits& limits, double value) {
  const double grid = limits.grid;
  double lower = limits.min, upper = limits.max;
  if (grid > 0.0) {
    // x + -g is x - g to the bit.
    MoveLimitsOntoGrid(grid, limits.hasMin, lower, limits.hasMax, upper,
                       [](double a, double b) { return a + b; });
    value = SnapToGrid(value, grid);
  }
  return ClampToLimits(value, limits.hasMin, lower, limits.hasMax, upper, kEnforceDoubleSignature);
}

long EnforceLongLimits(const LongLimits& limits, long value) {
  const int g = ToInt32(limits.grid);
  int lower = ToInt32(limits.min), upper = ToInt32(limits.max), v = ToInt32(value);
  if (g > 0) {
    MoveLimitsOntoGrid(g, limits.hasMin, lower, limits.hasMax, upper, &WrappingAdd);
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
