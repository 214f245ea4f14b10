// Whole-number conventions of the library.
#pragma once

#include "qdcore/core.h"

namespace qdcore {

// Whole numbers are stored and computed as signed 32-bit values, whatever the
// width of `long`: a wider argument is narrowed as a 32-bit caller would.
inline int ToInt32(long value) noexcept { return static_cast<int>(value); }

// Rounds half away from zero by truncating value + 0.5 * sign(value); NaN and
// out-of-range values give INT32_MIN, as the truncation does.
inline int RoundHalfAwayFromZero(double value) noexcept {
  const double sign = value > 0.0 ? 1.0 : (value < 0.0 ? -1.0 : 0.0);
  return TruncateToInt32(value + 0.5 * sign);
}

}  // namespace qdcore
