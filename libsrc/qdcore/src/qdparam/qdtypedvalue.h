// The typed value of a parameter at a time, written once for both ways of
// reading a parameter: live from its XML (LiveParam) or from its evaluation
// cache (CParam::EvalCache::View). Each getter chooses between the inactive
// value, the static value and the keyframes, converts between the numeric
// types and forces numbers into the parameter's limits.
#pragma once

#include <type_traits>

#include "qdassert.h"
#include "qdcore/log.h"
#include "qdderivative.h"
#include "qdevalcache.h"
#include "qdextrapolation.h"
#include "qdnumbers.h"
#include "qdparam/keyframe.h"
#include "qdparam/param.h"
#include "qdparam/processing.h"
#include "qdrestrictions.h"

namespace qdcore {

inline constexpr const char *kGetValueDoubleSignature =
    "double __cdecl qdcore::CParam::GetValueDouble(const class qdcore::mtime "
    "&,const class "
    "qdcore::mtime &,double) const";
inline constexpr const char *kGetValueLongSignature =
    "long __cdecl qdcore::CParam::GetValueLong(const class qdcore::mtime "
    "&,const class "
    "qdcore::mtime &,long) const";
inline constexpr const char *kGetValueBoolSignature =
    "bool __cdecl qdcore::CParam::GetValueBool(const class qdcore::mtime "
    "&,const class "
    "qdcore::mtime &,bool) const";

// The processing trace: one line per double evaluation.
inline constexpr int kTraceCategory = 398;
inline constexpr int kTraceLevel = 10;
// Writes the line; formats nothing unless the level is on. `converted`
// marks a value that was not a Double parameter's own.
void TraceDoubleValue(const CParam &param, const mtime &time, double value, bool converted);

// ---------------------------------------------------------------------------
// The parameter as evaluation sees it: read live from its XML (LiveParam
// below) or from its evaluation cache (CParam::EvalCache::View). Both answer
// the same questions with the same values, so one body of code serves both.
// ---------------------------------------------------------------------------

class LiveParam {
 public:
  explicit LiveParam(const CParam &param) : m_param(param) {}
  const CParam &Param() const { return m_param; }
  unsigned int Type() const { return m_param.GetType(); }
  bool Inactive() const {
    bool inactive = false;
    return m_param.GetInactiveStatus(inactive) && inactive;
  }
  bool KeyFramed() const { return m_param.GetKeyFrameStatus(); }
  bool InactiveValue(double &v) const { return m_param.GetInactiveValueDouble(v); }
  bool InactiveValue(long &v) const { return m_param.GetInactiveValueLong(v); }
  bool InactiveValue(bool &v) const { return m_param.GetInactiveValueBool(v); }
  bool StaticValue(double &v) const { return m_param.GetValueDouble(v); }
  bool StaticValue(long &v) const { return m_param.GetValueLong(v); }
  bool StaticValue(bool &v) const { return m_param.GetValueBool(v); }
  double Enforce(double v) const { return EnforceRestricitionsDouble(m_param, v); }
  long Enforce(long v) const { return EnforceRestricitionsLong(m_param, v); }
  double Interpolate(mtime time, mtime duration, mtime minDuration, double def) const {
    return InterpolateParamDouble(time, m_param, duration, minDuration, def);
  }
  ValueSlope Slope(mtime time, mtime duration, mtime minDuration, double def) const {
    return SlopeParamDouble(time, m_param, duration, minDuration, def);
  }
  Extrapolation Extrapolations() const { return ReadExtrapolation(m_param); }
  // A granularity grid snaps the value of the parameter's type.
  bool Snaps() const {
    return Type() == PARAM_LONG ? ReadLongLimits(m_param).grid > 0
                                : ReadDoubleLimits(m_param).grid > 0.0;
  }
  // Values that cannot be blended step: the keyframe at or before `time`,
  // else the first one after it, else the static value.
  bool SteppedBool(mtime time, mtime duration, mtime minDuration, bool def) const {
    bool v = false;
    if (const CKeyFrame *kf = LiveSteppedKeyFrame(m_param, time, duration, minDuration)) {
      return kf->GetValueBool(v) ? v : def;
    }
    return StaticValue(v) ? v : def;
  }

 private:
  const CParam &m_param;
};

// ---------------------------------------------------------------------------
// Each type's own value; the caller has checked the type
// ---------------------------------------------------------------------------

// The keyframed value before limits: the walk's blend, or past the keyed
// span what the parameter's extrapolation makes of it.
template <typename Param>
double KeyframedBlend(const Param &param, mtime time, mtime duration, mtime minDuration,
                      double def) {
  const Extrapolation &modes = param.Extrapolations();
  if (!modes.Any()) [[likely]] {
    return param.Interpolate(time, duration, minDuration, def);
  }
  return ExtrapolatedParamBlend(param, modes, time, duration, minDuration, def).value;
}

// What differs between the two number types: what keyframes fall back to
// and how a blend becomes the type, and the reports (their texts are what
// hosts match on).
struct DoubleNumbers {
  using Value = double;
  // Without a static value keyframes fall back to 0.0, not `def`.
  template <typename Param>
  static double Keyframed(const Param &param, mtime time, mtime duration, mtime minDuration,
                          double) {
    double v = 0.0;
    param.StaticValue(v);
    return KeyframedBlend(param, time, duration, minDuration, v);
  }
  static void ReportNoInactive() {
    QD_ILLEGAL_CODE_POINT_WIDE(
        u"GetValueDouble - param set to inactive but no "
        u"inactive value specified",
        kGetValueDoubleSignature);
  }
  static void ReportNoStatic() {
    QD_ILLEGAL_CODE_POINT_WIDE(u"GetValueDouble - request for static value but no value specified",
                               kGetValueDoubleSignature);
  }
};

struct LongNumbers {
  using Value = long;
  // Keyframes fall back to the static value, else `def`; the blend rounds.
  template <typename Param>
  static long Keyframed(const Param &param, mtime time, mtime duration, mtime minDuration,
                        long def) {
    long v = def;
    param.StaticValue(v);
    return RoundHalfAwayFromZero(
        KeyframedBlend(param, time, duration, minDuration, static_cast<double>(v)));
  }
  static void ReportNoInactive() {
    QD_ILLEGAL_CODE_POINT("GetValueLong - param set to inactive but no inactive value specified",
                          kGetValueLongSignature);
  }
  static void ReportNoStatic() {
    QD_ILLEGAL_CODE_POINT_WIDE(u"GetValueLong - request for static value but no value specified",
                               kGetValueLongSignature);
  }
};

// The inactive value, else the keyframes, else the static value, forced
// into the limits; `def` (reported) where the one that applies is absent.
template <typename Numbers, typename Param>
typename Numbers::Value NumberParamValue(const Param &param, const mtime &time,
                                         const mtime &duration, mtime minDuration,
                                         typename Numbers::Value def) {
  typename Numbers::Value v{};
  if (param.Inactive()) {
    if (param.InactiveValue(v)) return param.Enforce(v);
    Numbers::ReportNoInactive();
    return def;
  }
  if (param.KeyFramed()) {
    return param.Enforce(Numbers::Keyframed(param, time, duration, minDuration, def));
  }
  if (param.StaticValue(v)) return param.Enforce(v);
  Numbers::ReportNoStatic();
  return def;
}

template <typename Param>
bool BoolParamValue(const Param &param, const mtime &time, const mtime &duration, mtime minDuration,
                    bool def) {
  bool v = false;
  if (param.Inactive()) {
    if (param.InactiveValue(v)) return v;
    QD_ILLEGAL_CODE_POINT("GetValueBool - param set to inactive but no inactive value specified",
                          kGetValueBoolSignature);
    return def;
  }
  if (!param.KeyFramed()) {
    if (param.StaticValue(v)) return v;
    QD_ILLEGAL_CODE_POINT_WIDE(u"GetValueBool - request for static value but no value specified",
                               kGetValueBoolSignature);
    return def;
  }
  const Extrapolation &modes = param.Extrapolations();
  if (!modes.Any()) [[likely]] {
    return param.SteppedBool(time, duration, minDuration, def);
  }
  const KeyedSpan span = SpanOnClip(param.Param(), duration, minDuration);
  return param.SteppedBool(SteppedTime(modes, span, time), duration, minDuration, def);
}

// ---------------------------------------------------------------------------
// The typed getters, converting between the numeric types. The cached
// minimum duration is passed on as it stands (read through the const holder,
// which never allocates): evaluation does not refresh it.
// ---------------------------------------------------------------------------

// The parameter type each getter's type belongs to, and the getter's
// report for a type it cannot give.
struct GetterKind {
  unsigned int ownType;
  const char *mismatch;
  const char *signature;
};
template <typename T>
inline constexpr GetterKind kGetter{};
template <>
inline constexpr GetterKind kGetter<double>{
    PARAM_DOUBLE, "GetValueDouble - parameter type mismatch", kGetValueDoubleSignature};
template <>
inline constexpr GetterKind kGetter<long>{PARAM_LONG, "GetValueLong - parameter type mismatch",
                                          kGetValueLongSignature};
template <>
inline constexpr GetterKind kGetter<bool>{PARAM_BOOL, "GetValueBool - parameter type mismatch",
                                          kGetValueBoolSignature};

// A parameter's value of its own type T.
template <typename T, typename Param>
T OwnValue(const Param &param, const mtime &time, const mtime &duration, mtime minDuration, T def) {
  if constexpr (std::is_same_v<T, double>) {
    return NumberParamValue<DoubleNumbers>(param, time, duration, minDuration, def);
  } else if constexpr (std::is_same_v<T, long>) {
    return NumberParamValue<LongNumbers>(param, time, duration, minDuration, def);
  } else {
    return BoolParamValue(param, time, duration, minDuration, def);
  }
}

// Another numeric type's value as `To`: a real truncated to 32 bits, any
// non-zero value (NaN too) as true, true as one.
template <typename To, typename From>
To As(From value) {
  if constexpr (std::is_same_v<From, double> && std::is_same_v<To, long>) {
    return TruncateToInt32(value);
  } else if constexpr (std::is_same_v<To, bool>) {
    return value != From{};
  } else {
    return static_cast<To>(value);
  }
}

template <typename Param>
double ValueDouble(const Param &param, const mtime &time, const mtime &duration, mtime minDuration,
                   double def);

// The parameter's value as T: its own type's value, or another numeric
// type's converted (with that type's default); `def`, reported, for the rest.
template <typename T, typename Param>
T TypedValue(const Param &param, const mtime &time, const mtime &duration, mtime minDuration,
             T def) {
  const unsigned int type = param.Type();
  if (type == kGetter<T>.ownType) return OwnValue(param, time, duration, minDuration, def);
  switch (type) {
    case PARAM_DOUBLE:
      return As<T>(ValueDouble(param, time, duration, minDuration, 0.0));
    case PARAM_LONG:
      return As<T>(TypedValue<long>(param, time, duration, minDuration, 0L));
    case PARAM_BOOL:
      return As<T>(TypedValue<bool>(param, time, duration, minDuration, false));
    default:
      QD_ILLEGAL_CODE_POINT(kGetter<T>.mismatch, kGetter<T>.signature);
      return def;
  }
}

// Every real a number parameter gives writes its trace line.
template <typename Param>
double ValueDouble(const Param &param, const mtime &time, const mtime &duration, mtime minDuration,
                   double def) {
  const unsigned int type = param.Type();
  const double result = TypedValue<double>(param, time, duration, minDuration, def);
  if (type == PARAM_DOUBLE || type == PARAM_LONG || type == PARAM_BOOL) {
    TraceDoubleValue(param.Param(), time, result, type != PARAM_DOUBLE);
  }
  return result;
}

template <typename Param>
long ValueLong(const Param &param, const mtime &time, const mtime &duration, mtime minDuration,
               long def) {
  return TypedValue<long>(param, time, duration, minDuration, def);
}

template <typename Param>
bool ValueBool(const Param &param, const mtime &time, const mtime &duration, mtime minDuration,
               bool def) {
  return TypedValue<bool>(param, time, duration, minDuration, def);
}

}  // namespace qdcore
