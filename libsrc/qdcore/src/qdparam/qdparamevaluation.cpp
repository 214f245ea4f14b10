// CParam: the typed value of a parameter at a time of an effect, and value
// arrays sampled from it. Each getter chooses between the inactive value, the
// static value and the keyframes, converts between the numeric types and
// forces numbers into the parameter's limits.
#include <algorithm>
#include <cstddef>
#include <utility>

#include "qdassert.h"
#include "qdcore/log.h"
#include "qdnumbers.h"
#include "qdparam/keyframe.h"
#include "qdparam/param.h"
#include "qdparam/processing.h"
#include "qdevalcache.h"

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

}  // namespace

// ---------------------------------------------------------------------------
// Values at a time
// ---------------------------------------------------------------------------

// Each getter reads through the evaluation cache when one can be had, else
// live; the answers are the same.

double CParam::GetValueDouble(const mtime& time, const mtime& duration, double def) const {
  const mtime minDuration = *std::as_const(m_MinDuration);
  if (const EvalCache* cache = EvalCache::For(*this)) {
    return ValueDouble(cache->Bind(*this), time, duration, minDuration, def);
  }
  return ValueDouble(LiveParam(*this), time, duration, minDuration, def);
}

long CParam::GetValueLong(const mtime& time, const mtime& duration, long def) const {
  const mtime minDuration = *std::as_const(m_MinDuration);
  if (const EvalCache* cache = EvalCache::For(*this)) {
    return ValueLong(cache->Bind(*this), time, duration, minDuration, def);
  }
  return ValueLong(LiveParam(*this), time, duration, minDuration, def);
}

bool CParam::GetValueBool(const mtime& time, const mtime& duration, bool def) const {
  const mtime minDuration = *std::as_const(m_MinDuration);
  if (const EvalCache* cache = EvalCache::For(*this)) {
    return ValueBool(cache->Bind(*this), time, duration, minDuration, def);
  }
  return ValueBool(LiveParam(*this), time, duration, minDuration, def);
}

CZPoolString CParam::GetValueString(const mtime& time, const mtime& duration,
                                    const CZPoolString& def) const {
  if (GetType() != PARAM_STRING) {
    QD_ILLEGAL_CODE_POINT("GetValueString - parameter type mismatch", kGetValueStringSignature);
    return def;
  }
  CZPoolString v;
  if (LiveParam(*this).Inactive()) {
    if (GetInactiveValueString(v)) return v;
    // The bool getter's text: hosts match on it.
    QD_ILLEGAL_CODE_POINT_WIDE(
        u"GetValueBool - param set to inactive but no inactive value specified",
        kGetValueStringSignature);
    return def;
  }
  if (GetKeyFrameStatus()) {
    if (const CKeyFrame* kf = LiveSteppedKeyFrame(*this, time, duration, *std::as_const(m_MinDuration))) {
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

// One view serves every sample, so that the cache is checked once and the
// segment found for one sample is where the search for the next begins.
// Without the trace, whole segments of an active keyframed Double parameter
// are filled at once where no sample of them can report.
bool CParam::GetValueArrayDouble(const mtime& duration, const mtime& start, const mtime& step,
                                 double* pValues, unsigned long uNValues) const {
  if (!CheckArray(pValues, uNValues, kGetValueArrayDoubleSignature)) return false;
  const mtime minDuration = *std::as_const(m_MinDuration);
  const auto sample = [&](const auto& param, unsigned long i) {
    pValues[i] = ValueDouble(param, SampleTime(start, step, i), duration, minDuration, 0.0);
  };
  const EvalCache* cache = EvalCache::For(*this);
  if (!cache) {
    const LiveParam live(*this);
    for (unsigned long i = 0; i < uNValues; ++i) sample(live, i);
    return true;
  }
  const auto view = cache->Bind(*this);
  const bool byRuns = view.Type() == PARAM_DOUBLE && !view.Inactive() && view.KeyFramed();
  double fallback = 0.0;  // what keyframes fall back to: the static value, else 0.0
  view.StaticDouble(fallback);
  for (unsigned long i = 0; i < uNValues;) {
    EvalCache::Run run;
    if (byRuns && !wPrintf_IsUserLevelActive(kTraceCategory, kTraceLevel)) {
      run = view.FillRun(duration, minDuration, start, step, fallback, pValues, i, uNValues);
    }
    if (run.filled) {
      i += run.length;
      continue;
    }
    for (const unsigned long end = i + std::max(run.length, 1ul); i < end; ++i) sample(view, i);
  }
  return true;
}

// Long samples write no trace line, not even for a Double parameter.
bool CParam::GetValueArrayLong(const mtime& duration, const mtime& start, const mtime& step,
                               long* pValues, unsigned long uNValues) const {
  if (!CheckArray(pValues, uNValues, kGetValueArrayLongSignature)) return false;
  const mtime minDuration = *std::as_const(m_MinDuration);
  const auto fill = [&](const auto& param) {
    for (unsigned long i = 0; i < uNValues; ++i) {
      const mtime t = SampleTime(start, step, i);
      pValues[i] = param.Type() == PARAM_DOUBLE
                       ? TruncateToInt32(DoubleParamValue(param, t, duration, minDuration, 0.0))
                       : ValueLong(param, t, duration, minDuration, 0);
    }
  };
  if (const EvalCache* cache = EvalCache::For(*this)) {
    fill(cache->Bind(*this));
  } else {
    fill(LiveParam(*this));
  }
  return true;
}

}  // namespace qdcore
