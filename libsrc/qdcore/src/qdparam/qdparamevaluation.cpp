// CParam: the typed value of a parameter at a time of an effect, and its
// integral. The getters themselves are qdtypedvalue.h; value arrays are
// qdvaluearrays.cpp.
#include "qdparamevaluation.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <utility>
#include <vector>

#include "qdformatnames.h"
#include "qdminduration.h"
#include "qdtypedvalue.h"

namespace qdcore {

using namespace names;

namespace {

constexpr const char* kGetValueStringSignature =
    "class qdcore::CZPoolString __cdecl qdcore::CParam::GetValueString(const class qdcore::mtime "
    "&,const class qdcore::mtime &,const class qdcore::CZPoolString &) const";
constexpr const char* kGetValueBinarySignature =
    "class qdcore::CZMemory __cdecl qdcore::CParam::GetValueBinary(const class qdcore::mtime "
    "&,const class qdcore::mtime &) const";
constexpr const char* kGetIntegralDoubleSignature =
    "double __cdecl qdcore::CParam::GetIntegralDouble(const class qdcore::mtime &,const class "
    "qdcore::mtime &) const";

// ---------------------------------------------------------------------------
// Processing trace
// ---------------------------------------------------------------------------

constexpr std::size_t kTraceField = 128;

void FormatAttribute(wchar (&field)[kTraceField], const CZPoolString& text, const wchar* format,
                     const wchar* absent) {
  if (text) {
    FormatBuffer(field, kTraceField, format, text.c_str());
  } else {
    FormatBuffer(field, kTraceField, u"%s", absent);
  }
}

}  // namespace

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
// Values at a time
// ---------------------------------------------------------------------------

// Each getter reads through the evaluation cache when one can be had, else
// live; the answers are the same.
template <typename Get>
auto ParamEvaluation::Read(const CParam& param, Get get) {
  if (const CParam::EvalCache* cache = CParam::EvalCache::For(param))
    return get(cache->Bind(param));
  return get(LiveParam(param));
}

double CParam::GetValueDouble(const mtime& time, const mtime& duration, double def) const {
  return ParamEvaluation::Double(*this, time, duration, CachedMinDuration(m_MinDuration), def);
}

double ParamEvaluation::Double(const CParam& param, mtime time, mtime duration, mtime minDuration,
                               double def) {
  return Read(param, [&](const auto& source) {
    return ValueDouble(source, time, duration, minDuration, def);
  });
}

double ParamEvaluation::DoubleFrom(const CParam& param, mtime time, mtime duration,
                                   mtime minDuration, unsigned int& cursor, bool traced) {
  const CParam::EvalCache* cache = CParam::EvalCache::For(param);
  if (!cache) {
    const unsigned int type = param.GetType();
    const bool number = type == PARAM_DOUBLE || type == PARAM_LONG || type == PARAM_BOOL;
    return number ? Double(param, time, duration, minDuration, 0.0)
                  : std::numeric_limits<double>::quiet_NaN();
  }
  if (traced) return Double(param, time, duration, minDuration, 0.0);
  const CParam::EvalCache::View view(param, *cache, cursor);
  // Untraced, the value is the trace's subject alone.
  const double value = TypedValue<double>(view, time, duration, minDuration, 0.0);
  cursor = view.Cursor();
  return value;
}

bool ParamEvaluation::IsTraced() { return wPrintf_IsUserLevelActive(kTraceCategory, kTraceLevel); }

long CParam::GetValueLong(const mtime& time, const mtime& duration, long def) const {
  return ParamEvaluation::Long(*this, time, duration, CachedMinDuration(m_MinDuration), def);
}

long ParamEvaluation::Long(const CParam& param, mtime time, mtime duration, mtime minDuration,
                           long def) {
  return Read(param, [&](const auto& source) {
    return ValueLong(source, time, duration, minDuration, def);
  });
}

bool CParam::GetValueBool(const mtime& time, const mtime& duration, bool def) const {
  return ParamEvaluation::Bool(*this, time, duration, CachedMinDuration(m_MinDuration), def);
}

bool ParamEvaluation::Bool(const CParam& param, mtime time, mtime duration, mtime minDuration,
                           bool def) {
  return Read(param, [&](const auto& source) {
    return ValueBool(source, time, duration, minDuration, def);
  });
}

CZPoolString CParam::GetValueString(const mtime& time, const mtime& duration,
                                    const CZPoolString& def) const {
  return ParamEvaluation::String(*this, time, duration, CachedMinDuration(m_MinDuration), def);
}

CZPoolString ParamEvaluation::String(const CParam& param, mtime time, mtime duration,
                                     mtime minDuration, const CZPoolString& def) {
  if (param.GetType() != PARAM_STRING) {
    QD_ILLEGAL_CODE_POINT("GetValueString - parameter type mismatch", kGetValueStringSignature);
    return def;
  }
  CZPoolString v;
  if (LiveParam(param).Inactive()) {
    if (param.GetInactiveValueString(v)) return v;
    // The bool getter's text: hosts match on it.
    QD_ILLEGAL_CODE_POINT_WIDE(
        u"GetValueBool - param set to inactive but no inactive value specified",
        kGetValueStringSignature);
    return def;
  }
  if (param.GetKeyFrameStatus()) {
    if (const CKeyFrame* kf = LiveSteppedKeyFrame(param, time, duration, minDuration)) {
      return kf->GetValueString(v) ? v : def;
    }
  }
  return param.GetValueString(v) ? v : def;
}

CZMemory CParam::GetValueBinary(const mtime&, const mtime&) const {
  if (GetType() != PARAM_BINARY) {
    QD_ILLEGAL_CODE_POINT("GetValueBinary - parameter type mismatch", kGetValueBinarySignature);
    return CZMemory::pnull;
  }
  return GetValueBinary();
}

void ParamEvaluation::SortedKeyTimes(const CParam& param, mtime duration, mtime minDuration,
                                     const std::function<void(std::span<const mtime>)>& use) {
  if (const CParam::EvalCache* cache = CParam::EvalCache::For(param)) {
    const Timeline* line = cache->LineFor(duration, minDuration);
    if (line && line->Ordered()) return use(line->times);
  }
  std::vector<mtime> times;
  times.reserve(param.GetSize());
  for (unsigned int i = 0; i < param.GetSize(); ++i) {
    const KeyPosition position = ReadKeyPosition(*param.Get(i));
    if (!position.read || position.qualifier == KEYFRAME_NO_TIME) continue;
    const mtime t = KeyTimeOnClip(position, duration, minDuration, mtime::null);
    if (std::isfinite(static_cast<double>(t))) times.push_back(t);
  }
  std::sort(times.begin(), times.end());
  use(times);
}

// A keyframe without a time is placed by the walk's own rule; a line in
// order that starts at or after 0 has none past the first, where both
// rules put it at 0.
const std::vector<mtime>* ParamEvaluation::OrderedKeyTimes(const CParam& param, mtime duration,
                                                           mtime minDuration) {
  const CParam::EvalCache* cache = CParam::EvalCache::For(param);
  const Timeline* line = cache ? cache->LineFor(duration, minDuration) : nullptr;
  if (!line || !line->Ordered() || (!line->times.empty() && !(line->times.front() >= 0.0))) {
    return nullptr;
  }
  return &line->times;
}

void ParamEvaluation::ForgetMinDuration(CParam& param) {
  CacheMinDuration(param.m_MinDuration, mtime::unassigned);
}

double CParam::GetDerivativeDouble(const mtime& time, const mtime& duration) const {
  return ParamEvaluation::Slope(*this, time, duration, CachedMinDuration(m_MinDuration));
}

double ParamEvaluation::Slope(const CParam& param, mtime time, mtime duration, mtime minDuration) {
  return Read(param,
              [&](const auto& source) { return NumberSlope(source, time, duration, minDuration); });
}

double CParam::GetIntegralDouble(const mtime& time, const mtime& duration) const {
  return ParamEvaluation::Integral(*this, time, duration, CachedMinDuration(m_MinDuration));
}

double ParamEvaluation::Integral(const CParam& param, mtime time, mtime duration,
                                 mtime minDuration) {
  if (param.GetType() != PARAM_DOUBLE) {
    QD_ILLEGAL_CODE_POINT("GetIntegralDouble - parameter type mismatch",
                          kGetIntegralDoubleSignature);
    return 0.0;
  }
  if (!param.GetKeyFrameStatus()) {
    return static_cast<double>(Double(param, time, duration, minDuration, 0.0) * time);
  }
  const auto keyed = [&](double t) {
    const CKeyFrame* prev = nullptr;
    const CKeyFrame* next = nullptr;
    mtime prevTime, nextTime;
    double integral = 0.0;
    const bool ok = DetermineKeyFrame(t, param, duration, minDuration, prev, prevTime, next,
                                      nextTime, true, integral);
    return ok ? integral : 0.0;
  };
  const Extrapolation modes =
      Read(param, [](const auto& source) { return Extrapolation(source.Extrapolations()); });
  if (!modes.Any()) [[likely]] {
    return keyed(time);
  }
  const KeyedSpan span = SpanOnClip(param, duration, minDuration);
  double fallback = 0.0;
  param.GetValueDouble(fallback);
  return ExtrapolatedIntegral(modes, span, static_cast<double>(time), keyed, [&](double t) {
    return SlopeParamDouble(t, param, duration, minDuration, fallback);
  });
}

}  // namespace qdcore
