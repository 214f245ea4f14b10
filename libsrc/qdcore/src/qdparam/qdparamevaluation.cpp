// CParam: the typed value of a parameter at a time of an effect, and value
// arrays sampled from it. Each getter chooses between the inactive value, the
// static value and the keyframes, converts between the numeric types and
// forces numbers into the parameter's limits.
#include <cstddef>
#include <utility>

#include "qdassert.h"
#include "qdcore/log.h"
#include "qdnumbers.h"
#include "qdparam/keyframe.h"
#include "qdparam/param.h"
#include "qdparam/processing.h"

namespace qdcore {

namespace {

constexpr const char* kGetValueDoubleSignature =
    "double __cdecl qdcore::CParam::GetValueDouble(const class qdcore::mtime &,const class "
    "qdcore::mtime &,double) const";
constexpr const char* kGetValueLongSignature =
    "long __cdecl qdcore::CParam::GetValueLong(const class qdcore::mtime &,const class "
    "qdcore::mtime &,long) const";
constexpr const char* kGetValueBoolSignature =
    "bool __cdecl qdcore::CParam::GetValueBool(const class qdcore::mtime &,const class "
    "qdcore::mtime &,bool) const";
constexpr const char* kGetValueStringSignature =
    "class qdcore::CZPoolString __cdecl qdcore::CParam::GetValueString(const class qdcore::mtime "
    "&,const class qdcore::mtime &,const class qdcore::CZPoolString &) const";
constexpr const char* kGetValueBinarySignature =
    "class qdcore::CZMemory __cdecl qdcore::CParam::GetValueBinary(const class qdcore::mtime "
    "&,const class qdcore::mtime &) const";
constexpr const char* kGetIntegralDoubleSignature =
    "double __cdecl qdcore::CParam::GetIntegralDouble(const class qdcore::mtime &,const class "
    "qdcore::mtime &) const";
constexpr const char* kGetValueArrayDoubleSignature =
    "bool __cdecl qdcore::CParam::GetValueArrayDouble(const class qdcore::mtime &,const class "
    "qdcore::mtime &,const class qdcore::mtime &,double *,unsigned long) const";
constexpr const char* kGetValueArrayLongSignature =
    "bool __cdecl qdcore::CParam::GetValueArrayLong(const class qdcore::mtime &,const class "
    "qdcore::mtime &,const class qdcore::mtime &,long *,unsigned long) const";

// ---------------------------------------------------------------------------
// Processing trace
// ---------------------------------------------------------------------------

constexpr int kTraceCategory = 398;
constexpr int kTraceLevel = 10;
constexpr std::size_t kTraceField = 128;

const CZPoolString kId = CStringPool::GetStringRef(u"id");
const CZPoolString kName = CStringPool::GetStringRef(u"name");
const CZPoolString kType = CStringPool::GetStringRef(u"type");

void FormatAttribute(wchar (&field)[kTraceField], const CZPoolString& text, const wchar* format,
                     const wchar* absent) {
  if (text) {
    FormatBuffer(field, kTraceField, format, text.c_str());
  } else {
    FormatBuffer(field, kTraceField, u"%s", absent);
  }
}

// One line per double evaluation; formats nothing unless the level is on.
// `converted` marks a value that was not a Double parameter's own.
void TraceDoubleValue(const CParam& param, const mtime& time, double value, bool converted) {
  if (!wPrintf_IsUserLevelActive(kTraceCategory, kTraceLevel)) return;
  wchar id[kTraceField], name[kTraceField], type[kTraceField], when[kTraceField],
      number[kTraceField];
  FormatAttribute(id, param.GetValue(kId), u"%5s", u"-----");
  FormatAttribute(name, param.GetValue(kName), u"%8s", u"Double");
  FormatAttribute(type, param.GetValue(kType), u"%8s", u"Double  ");
  if (time.isassigned()) {
    FormatBuffer(when, kTraceField, u"%8.2f", static_cast<double>(time));
  } else {
    FormatBuffer(when, kTraceField, u"%s", u"-----------");
  }
  FormatBuffer(number, kTraceField, u"%8.2f", value);
  wPrintf(kTraceCategory, kTraceLevel,
          u"processing param (id: %s, name: %s, type: %s, time: %s, value: %s%s\n", id, name, type,
          when, number, converted ? u"(*)" : u"");
}

// ---------------------------------------------------------------------------
// Each type's own value; the caller has checked the type
// ---------------------------------------------------------------------------

bool IsInactive(const CParam& param) {
  bool inactive = false;
  return param.GetInactiveStatus(inactive) && inactive;
}

double DoubleParamValue(const CParam& param, const mtime& time, const mtime& duration,
                        mtime minDuration, double def) {
  double v = 0.0;
  if (IsInactive(param)) {
    if (param.GetInactiveValueDouble(v)) return EnforceRestricitionsDouble(param, v);
    QD_ILLEGAL_CODE_POINT_WIDE(
        u"GetValueDouble - param set to inactive but no inactive value specified",
        kGetValueDoubleSignature);
    return def;
  }
  if (param.GetKeyFrameStatus()) {
    param.GetValueDouble(v);  // without a static value keyframes fall back to 0.0, not `def`
    return EnforceRestricitionsDouble(
        param, InterpolateParamDouble(time, param, duration, minDuration, v));
  }
  if (param.GetValueDouble(v)) return EnforceRestricitionsDouble(param, v);
  QD_ILLEGAL_CODE_POINT_WIDE(u"GetValueDouble - request for static value but no value specified",
                             kGetValueDoubleSignature);
  return def;
}

long LongParamValue(const CParam& param, const mtime& time, const mtime& duration,
                    mtime minDuration, long def) {
  long v = 0;
  if (IsInactive(param)) {
    if (param.GetInactiveValueLong(v)) return EnforceRestricitionsLong(param, v);
    QD_ILLEGAL_CODE_POINT("GetValueLong - param set to inactive but no inactive value specified",
                          kGetValueLongSignature);
    return def;
  }
  if (param.GetKeyFrameStatus()) {
    v = def;
    param.GetValueLong(v);  // keyframes fall back to the static value, else `def`
    const double r =
        InterpolateParamDouble(time, param, duration, minDuration, static_cast<double>(v));
    return EnforceRestricitionsLong(param, RoundHalfAwayFromZero(r));
  }
  if (param.GetValueLong(v)) return EnforceRestricitionsLong(param, v);
  QD_ILLEGAL_CODE_POINT_WIDE(u"GetValueLong - request for static value but no value specified",
                             kGetValueLongSignature);
  return def;
}

// Values that cannot be blended step: the keyframe at or before `time`, else
// the first one after it; null without keyframes.
const CKeyFrame* SteppedKeyFrame(const CParam& param, const mtime& time, const mtime& duration,
                                 mtime minDuration) {
  const CKeyFrame* prev = nullptr;
  const CKeyFrame* next = nullptr;
  mtime prevTime, nextTime;
  double integral = 0.0;
  DetermineKeyFrame(time, param, duration, minDuration, prev, prevTime, next, nextTime, false,
                    integral);
  return prev ? prev : next;
}

bool BoolParamValue(const CParam& param, const mtime& time, const mtime& duration,
                    mtime minDuration, bool def) {
  bool v = false;
  if (IsInactive(param)) {
    if (param.GetInactiveValueBool(v)) return v;
    QD_ILLEGAL_CODE_POINT("GetValueBool - param set to inactive but no inactive value specified",
                          kGetValueBoolSignature);
    return def;
  }
  if (!param.GetKeyFrameStatus()) {
    if (param.GetValueBool(v)) return v;
    QD_ILLEGAL_CODE_POINT_WIDE(u"GetValueBool - request for static value but no value specified",
                               kGetValueBoolSignature);
    return def;
  }
  if (const CKeyFrame* kf = SteppedKeyFrame(param, time, duration, minDuration)) {
    return kf->GetValueBool(v) ? v : def;
  }
  return param.GetValueBool(v) ? v : def;
}

}  // namespace

// ---------------------------------------------------------------------------
// Values at a time
// ---------------------------------------------------------------------------

// The cached minimum duration is passed on as it stands (read through the
// const holder, which never allocates): evaluation does not refresh it.

double CParam::GetValueDouble(const mtime& time, const mtime& duration, double def) const {
  const unsigned int type = GetType();
  double result = def;
  switch (type) {
    case PARAM_DOUBLE:
      result = DoubleParamValue(*this, time, duration, *std::as_const(m_MinDuration), def);
      break;
    case PARAM_LONG:
      result = static_cast<double>(GetValueLong(time, duration, 0));
      break;
    case PARAM_BOOL:
      result = GetValueBool(time, duration, false) ? 1.0 : 0.0;
      break;
    default:
      QD_ILLEGAL_CODE_POINT("GetValueDouble - parameter type mismatch", kGetValueDoubleSignature);
      return def;
  }
  TraceDoubleValue(*this, time, result, type != PARAM_DOUBLE);
  return result;
}

long CParam::GetValueLong(const mtime& time, const mtime& duration, long def) const {
  switch (GetType()) {
    case PARAM_DOUBLE:
      return TruncateToInt32(GetValueDouble(time, duration, 0.0));
    case PARAM_BOOL:
      return GetValueBool(time, duration, false) ? 1 : 0;
    case PARAM_LONG:
      return LongParamValue(*this, time, duration, *std::as_const(m_MinDuration), def);
    default:
      QD_ILLEGAL_CODE_POINT("GetValueLong - parameter type mismatch", kGetValueLongSignature);
      return def;
  }
}

bool CParam::GetValueBool(const mtime& time, const mtime& duration, bool def) const {
  switch (GetType()) {
    case PARAM_DOUBLE:
      return GetValueDouble(time, duration, 0.0) != 0.0;  // NaN counts as true
    case PARAM_LONG:
      return GetValueLong(time, duration, 0) != 0;
    case PARAM_BOOL:
      return BoolParamValue(*this, time, duration, *std::as_const(m_MinDuration), def);
    default:
      QD_ILLEGAL_CODE_POINT("GetValueBool - parameter type mismatch", kGetValueBoolSignature);
      return def;
  }
}

CZPoolString CParam::GetValueString(const mtime& time, const mtime& duration,
                                    const CZPoolString& def) const {
  if (GetType() != PARAM_STRING) {
    QD_ILLEGAL_CODE_POINT("GetValueString - parameter type mismatch", kGetValueStringSignature);
    return def;
  }
  CZPoolString v;
  if (IsInactive(*this)) {
    if (GetInactiveValueString(v)) return v;
    // The bool getter's text: hosts match on it.
    QD_ILLEGAL_CODE_POINT_WIDE(
        u"GetValueBool - param set to inactive but no inactive value specified",
        kGetValueStringSignature);
    return def;
  }
  if (GetKeyFrameStatus()) {
    if (const CKeyFrame* kf = SteppedKeyFrame(*this, time, duration, *std::as_const(m_MinDuration))) {
      return kf->GetValueString(v) ? v : def;
    }
  }
  return GetValueString(v) ? v : def;
}

CZMemory CParam::GetValueBinary(const mtime&, const mtime&) const {
  if (GetType() != PARAM_BINARY) {
    QD_ILLEGAL_CODE_POINT("GetValueBinary - parameter type mismatch", kGetValueBinarySignature);
    return CZMemory::pnull;
  }
  return GetValueBinary();
}

double CParam::GetIntegralDouble(const mtime& time, const mtime& duration) const {
  if (GetType() != PARAM_DOUBLE) {
    QD_ILLEGAL_CODE_POINT("GetIntegralDouble - parameter type mismatch",
                          kGetIntegralDoubleSignature);
    return 0.0;
  }
  if (!GetKeyFrameStatus()) return static_cast<double>(GetValueDouble(time, duration, 0.0) * time);
  const CKeyFrame* prev = nullptr;
  const CKeyFrame* next = nullptr;
  mtime prevTime, nextTime;
  double integral = 0.0;
  const bool ok = DetermineKeyFrame(time, *this, duration, *std::as_const(m_MinDuration), prev,
                                    prevTime, next, nextTime, true, integral);
  return ok ? integral : 0.0;
}

// ---------------------------------------------------------------------------
// Value arrays: sample i at start + i * step, each exactly as the single-time
// getter with default 0
// ---------------------------------------------------------------------------

namespace {

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

bool CParam::GetValueArrayDouble(const mtime& duration, const mtime& start, const mtime& step,
                                 double* pValues, unsigned long uNValues) const {
  if (!CheckArray(pValues, uNValues, kGetValueArrayDoubleSignature)) return false;
  for (unsigned long i = 0; i < uNValues; ++i) {
    pValues[i] = GetValueDouble(SampleTime(start, step, i), duration, 0.0);
  }
  return true;
}

// Long samples write no trace line, not even for a Double parameter.
bool CParam::GetValueArrayLong(const mtime& duration, const mtime& start, const mtime& step,
                               long* pValues, unsigned long uNValues) const {
  if (!CheckArray(pValues, uNValues, kGetValueArrayLongSignature)) return false;
  for (unsigned long i = 0; i < uNValues; ++i) {
    const mtime t = SampleTime(start, step, i);
    pValues[i] = GetType() == PARAM_DOUBLE
                     ? TruncateToInt32(DoubleParamValue(*this, t, duration,
                                                        *std::as_const(m_MinDuration), 0.0))
                     : GetValueLong(t, duration, 0);
  }
  return true;
}

}  // namespace qdcore
