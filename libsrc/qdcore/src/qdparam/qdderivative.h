// The slope of a parameter's value: how fast GetValueDouble's answer moves,
// in units per second, taken analytically along the very walk, segment and
// kind that make the value (SlopeOfKeys in qdkeys.h, the kinds' slope
// column in qdinterpolation.h). Written once for the live and cached routes.
//
// At a keyframe the slope is the one of the segment the keyframe starts
// (the walk gives a time equal to a keyframe's to the segment after it).
// Wherever the value stands still for the host it is 0: static, inactive,
// Bool, before the first keyframe and after the last, Hold segments, and
// where the limits clamp the value or a granularity grid snaps it (a snapped
// value moves in steps). A Long parameter's slope is that of its blend
// before rounding: the rate at which the whole number moves.
#pragma once

#include "qdassert.h"
#include "qdcore/core.h"
#include "qdextrapolation.h"
#include "qdinterpolation.h"
#include "qdnumbers.h"
#include "qdparam/export.h"
#include "qdparam/param.h"

namespace qdcore {

inline constexpr const char* kGetDerivativeDoubleSignature =
    "double __cdecl qdcore::CParam::GetDerivativeDouble(const class qdcore::mtime &,const class "
    "qdcore::mtime &) const";

// The keyframed value before limits, as InterpolateParamDouble gives it,
// with its slope, read live from the XML. Exported, though the header is
// private, so that the tests reach it.
QDPARAM_API ValueSlope SlopeParamDouble(mtime time, const CParam& param, mtime duration,
                                        mtime minDuration, double def);

// The keyframed value before limits with its slope, extrapolated as the
// parameter asks.
template <typename Param>
ValueSlope KeyframedSlope(const Param& param, mtime time, mtime duration, mtime minDuration,
                          double def) {
  const Extrapolation& modes = param.Extrapolations();
  if (!modes.Any()) return param.Slope(time, duration, minDuration, def);
  return ExtrapolatedParamBlend(param, modes, time, duration, minDuration, def);
}

// The slope of the number `param` (LiveParam or EvalCache::View) gives at
// `time`; 0 where it stands still, 0 and a report for a type that is no number.
template <typename Param>
double NumberSlope(const Param& param, mtime time, mtime duration, mtime minDuration) {
  const unsigned int type = param.Type();
  if (type == PARAM_BOOL) return 0.0;
  if (type != PARAM_DOUBLE && type != PARAM_LONG) {
    QD_ILLEGAL_CODE_POINT("GetDerivativeDouble - parameter type mismatch",
                          kGetDerivativeDoubleSignature);
    return 0.0;
  }
  if (param.Inactive() || !param.KeyFramed() || param.Snaps()) return 0.0;
  // The keyframes' fallback is the one the value getters use.
  if (type == PARAM_DOUBLE) {
    double fallback = 0.0;
    param.StaticValue(fallback);
    const ValueSlope blend = KeyframedSlope(param, time, duration, minDuration, fallback);
    return param.Enforce(blend.value) == blend.value ? blend.slope : 0.0;
  }
  long fallback = 0;
  param.StaticValue(fallback);
  const ValueSlope blend =
      KeyframedSlope(param, time, duration, minDuration, static_cast<double>(fallback));
  const long whole = RoundHalfAwayFromZero(blend.value);
  return param.Enforce(whole) == whole ? blend.slope : 0.0;
}

}  // namespace qdcore
