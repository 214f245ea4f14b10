// The typed value of a parameter at a time, written once for both ways of
// reading a parameter: live from its XML (LiveParam) or from its evaluation
// cache (CParam::EvalCache::View). Each getter chooses between the inactive
// value, the static value and the keyframes, converts between the numeric
// types and forces numbers into the parameter's limits.
#pragma once

#include "qdassert.h"
#include "qdcore/log.h"
#include "qdevalcache.h"
#include "qdnumbers.h"
#include "qdparam/keyframe.h"
#include "qdparam/param.h"
#include "qdparam/processing.h"
#include "qdrestrictions.h"

namespace qdcore {

inline constexpr const char* kGetValueDoubleSignature =
    "double __cdecl qdcore::CParam::GetValueDouble(const class qdcore::mtime &,const class "
    "qdcore::mtime &,double) const";
inline constexpr const char* kGetValueLongSignature =
    "long __cdecl qdcore::CParam::GetValueLong(const class qdcore::mtime &,const class "
    "qdcore::mtime &,long) const";
inline constexpr const char* kGetValueBoolSignature =
    "bool __cdecl qdcore::CParam::GetValueBool(const class qdcore::mtime &,const class "
    "qdcore::mtime &,bool) const";

// The processing trace: one line per double evaluation.
inline constexpr int kTraceCategory = 398;
inline constexpr int kTraceLevel = 10;
// Writes the line; formats nothing unless the level is on. `converted`
// marks a value that was not a Double parameter's own.
void TraceDoubleValue(const CParam& param, const mtime& time, double value, bool converted);

// ---------------------------------------------------------------------------
// The parameter as evaluation sees it: read live from its XML (LiveParam
// below) or from its evaluation cache (CParam::EvalCache::View). Both answer
// the same questions with the same values, so one body of code serves both.
// ---------------------------------------------------------------------------

class LiveParam {
 public:
  explicit LiveParam(const CParam& param) : m_param(param) {}
  const CParam& Param() const { return m_param; }
  unsigned int Type() const { return m_param.GetType(); }
  bool Inactive() const {
    bool inactive = false;
    return m_param.GetInactiveStatus(inactive) && inactive;
  }
  bool KeyFramed() const { return m_param.GetKeyFrameStatus(); }
  bool InactiveDouble(double& v) const { return m_param.GetInactiveValueDouble(v); }
  bool InactiveLong(long& v) const { return m_param.GetInactiveValueLong(v); }
  bool InactiveBool(bool& v) const { return m_param.GetInactiveValueBool(v); }
  bool StaticDouble(double& v) const { return m_param.GetValueDouble(v); }
  bool StaticLong(long& v) const { return m_param.GetValueLong(v); }
  bool StaticBool(bool& v) const { return m_param.GetValueBool(v); }
  double EnforceDouble(double v) const { return EnforceRestricitionsDouble(m_param, v); }
  long EnforceLong(long v) const { return EnforceRestricitionsLong(m_param, v); }
  double Interpolate(mtime time, mtime duration, mtime minDuration, double def) const {
    return InterpolateParamDouble(time, m_param, duration, minDuration, def);
  }
  // Values that cannot be blended step: the keyframe at or before `time`,
  // else the first one after it, else the static value.
  bool SteppedBool(mtime time, mtime duration, mtime minDuration, bool def) const {
    bool v = false;
    if (const CKeyFrame* kf = LiveSteppedKeyFrame(m_param, time, duration, minDuration)) {
      return kf->GetValueBool(v) ? v : def;
    }
    return StaticBool(v) ? v : def;
  }

 private:
  const CParam& m_param;
};

// ---------------------------------------------------------------------------
// Each type's own value; the caller has checked the type
// ---------------------------------------------------------------------------

template <typename Param>
double DoubleParamValue(const Param& param, const mtime& time, const mtime& duration,
                        mtime minDuration, double def) {
  double v = 0.0;
  if (param.Inactive()) {
    if (param.InactiveDouble(v)) return param.EnforceDouble(v);
    QD_ILLEGAL_CODE_POINT_WIDE(
        u"GetValueDouble - param set to inactive but no inactive value specified",
        kGetValueDoubleSignature);
    return def;
  }
  if (param.KeyFramed()) {
    param.StaticDouble(v);  // without a static value keyframes fall back to 0.0, not `def`
    return param.EnforceDouble(param.Interpolate(time, duration, minDuration, v));
  }
  if (param.StaticDouble(v)) return param.EnforceDouble(v);
  QD_ILLEGAL_CODE_POINT_WIDE(u"GetValueDouble - request for static value but no value specified",
                             kGetValueDoubleSignature);
  return def;
}

template <typename Param>
long LongParamValue(const Param& param, const mtime& time, const mtime& duration,
                    mtime minDuration, long def) {
  long v = 0;
  if (param.Inactive()) {
    if (param.InactiveLong(v)) return param.EnforceLong(v);
    QD_ILLEGAL_CODE_POINT("GetValueLong - param set to inactive but no inactive value specified",
                          kGetValueLongSignature);
    return def;
  }
  if (param.KeyFramed()) {
    v = def;
    param.StaticLong(v);  // keyframes fall back to the static value, else `def`
    const double r = param.Interpolate(time, duration, minDuration, static_cast<double>(v));
    return param.EnforceLong(RoundHalfAwayFromZero(r));
  }
  if (param.StaticLong(v)) return param.EnforceLong(v);
  QD_ILLEGAL_CODE_POINT_WIDE(u"GetValueLong - request for static value but no value specified",
                             kGetValueLongSignature);
  return def;
}

template <typename Param>
bool BoolParamValue(const Param& param, const mtime& time, const mtime& duration,
                    mtime minDuration, bool def) {
  bool v = false;
  if (param.Inactive()) {
    if (param.InactiveBool(v)) return v;
    QD_ILLEGAL_CODE_POINT("GetValueBool - param set to inactive but no inactive value specified",
                          kGetValueBoolSignature);
    return def;
  }
  if (!param.KeyFramed()) {
    if (param.StaticBool(v)) return v;
    QD_ILLEGAL_CODE_POINT_WIDE(u"GetValueBool - request for static value but no value specified",
                               kGetValueBoolSignature);
    return def;
  }
  return param.SteppedBool(time, duration, minDuration, def);
}

// ---------------------------------------------------------------------------
// The typed getters, converting between the numeric types. The cached
// minimum duration is passed on as it stands (read through the const holder,
// which never allocates): evaluation does not refresh it.
// ---------------------------------------------------------------------------

template <typename Param>
long ValueLong(const Param& param, const mtime& time, const mtime& duration, mtime minDuration,
               long def);
template <typename Param>
bool ValueBool(const Param& param, const mtime& time, const mtime& duration, mtime minDuration,
               bool def);

template <typename Param>
double ValueDouble(const Param& param, const mtime& time, const mtime& duration,
                   mtime minDuration, double def) {
  const unsigned int type = param.Type();
  double result = def;
  switch (type) {
    case PARAM_DOUBLE:
      result = DoubleParamValue(param, time, duration, minDuration, def);
      break;
    case PARAM_LONG:
      result = static_cast<double>(ValueLong(param, time, duration, minDuration, 0));
      break;
    case PARAM_BOOL:
      result = ValueBool(param, time, duration, minDuration, false) ? 1.0 : 0.0;
      break;
    default:
      QD_ILLEGAL_CODE_POINT("GetValueDouble - parameter type mismatch", kGetValueDoubleSignature);
      return def;
  }
  TraceDoubleValue(param.Param(), time, result, type != PARAM_DOUBLE);
  return result;
}

template <typename Param>
long ValueLong(const Param& param, const mtime& time, const mtime& duration, mtime minDuration,
               long def) {
  switch (param.Type()) {
    case PARAM_DOUBLE:
      return TruncateToInt32(ValueDouble(param, time, duration, minDuration, 0.0));
    case PARAM_BOOL:
      return ValueBool(param, time, duration, minDuration, false) ? 1 : 0;
    case PARAM_LONG:
      return LongParamValue(param, time, duration, minDuration, def);
    default:
      QD_ILLEGAL_CODE_POINT("GetValueLong - parameter type mismatch", kGetValueLongSignature);
      return def;
  }
}

template <typename Param>
bool ValueBool(const Param& param, const mtime& time, const mtime& duration, mtime minDuration,
               bool def) {
  switch (param.Type()) {
    case PARAM_DOUBLE:
      return ValueDouble(param, time, duration, minDuration, 0.0) != 0.0;  // NaN counts as true
    case PARAM_LONG:
      return ValueLong(param, time, duration, minDuration, 0) != 0;
    case PARAM_BOOL:
      return BoolParamValue(param, time, duration, minDuration, def);
    default:
      QD_ILLEGAL_CODE_POINT("GetValueBool - parameter type mismatch", kGetValueBoolSignature);
      return def;
  }
}

}  // namespace qdcore
