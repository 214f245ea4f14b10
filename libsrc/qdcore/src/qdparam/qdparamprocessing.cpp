// Evaluation of keyframed parameters.
//
//   1. Keyframe times      where a keyframe sits on the clip's time line
//   2. The keyframe walk   DetermineKeyFrame, its running integral, and the
//                          walk-and-interpolate value form
//   3. Interpolation kinds one small function per kind, over plain numbers
//   4. InterpolateDouble   the blend between two keyframes, live or cached
//   5. Restrictions        the granularity grid and the limits
#include "qdparam/processing.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <utility>

#include "qdassert.h"
#include "qdnumbers.h"
#include "qdparam/keyframe.h"
#include "qdparam/param.h"
#include "qdparam/qdcalc.h"
#include "qdsegment.h"

namespace qdcore {

namespace {

constexpr const char* kDetermineKeyFrameSignature =
    "bool __cdecl DetermineKeyFrame(class qdcore::mtime,const class qdcore::CParam &,class "
    "qdcore::mtime,class qdcore::mtime,const class qdcore::CKeyFrame *&,class qdcore::mtime &,const "
    "class qdcore::CKeyFrame *&,class qdcore::mtime &,bool,double &)";
constexpr const char* kInterpolateDoubleSignature =
    "double __cdecl InterpolateDouble(class qdcore::mtime,class qdcore::mtime,const class "
    "qdcore::CKeyFrame *,class qdcore::mtime,const class qdcore::CKeyFrame *,class "
    "qdcore::mtime,double)";
constexpr const char* kEnforceDoubleSignature =
    "double __cdecl EnforceRestricitionsDouble(const class qdcore::CParam &,double)";
constexpr const char* kEnforceLongSignature =
    "long __cdecl EnforceRestricitionsLong(const class qdcore::CParam &,long)";

// ===========================================================================
// 1. Keyframe times
// ===========================================================================

// Resolves `kf`'s time on a clip of `duration` into `k`. A keyframe without
// a time leaves `k` as it was. False when the time could not be read.
bool ResolveTime(const CKeyFrame& kf, mtime duration, mtime minDuration, mtime& k) {
  switch (kf.GetType()) {
    case KEYFRAME_RELATIVE: {
      double position = 0.0;
      const bool ok = kf.GetPosition(position);
      k = position * duration;
      if (k < 0.0) k = k + duration;  // negative positions count back from the end
      return ok;
    }
    case KEYFRAME_ABSOLUTE: {
      const bool ok = kf.GetTime(k);
      // A clip shorter than the keyframes need divides by the bare minimum
      // duration (no rescaling to the clip): stored effects are timed so.
      if (duration < minDuration) k = k / static_cast<double>(minDuration);
      if (k < 0.0) k = k + duration;
      return ok;
    }
    case KEYFRAME_FIXED_ABSOLUTE:
      return kf.GetTime(k);
    default:
      return true;
  }
}

// ===========================================================================
// 2. The keyframe walk
// ===========================================================================

// Visits the keyframes in list order until one lies after `time`. Each
// keyframe is first `next` with its time in `nextTime` (when `visit` sees
// it), then, if it lies at or before `time`, becomes `prev`. `next` is left
// non-null only when the walk stopped at a keyframe after `time`.
template <typename Visit>
bool WalkKeyFrames(mtime time, const CParam& param, mtime duration, mtime minDuration,
                   const CKeyFrame*& prev, mtime& prevTime, const CKeyFrame*& next,
                   mtime& nextTime, Visit visit) {
  VerifyWalkDuration(duration);
  prev = nullptr;
  next = nullptr;
  bool ok = true;
  for (const CKeyFrame* kf = param.FindNextKeyFrame(nullptr); kf; kf = param.FindNextKeyFrame(kf)) {
    next = kf;
    ok = ResolveTime(*kf, duration, minDuration, nextTime) && ok;
    visit(*kf);
    if (!(time >= nextTime)) return ok;
    prev = kf;
    prevTime = nextTime;
    next = nullptr;
    nextTime = kNoNextTime;
    if (!ok) break;  // times after an unreadable one mean nothing
  }
  return ok;
}

// The integral over [t0, min(t, t1)] of the segment from (t0, y0) to (t1, y1).
double SegmentIntegral(mtime t, unsigned int code, mtime t0, double y0, mtime t1, double y1) {
  if (t > t1) t = t1;
  switch (code) {
    case INTERPOLATION_HOLD:
    case INTERPOLATION_CUSTOM:
    case INTERPOLATION_NONE:
      return static_cast<double>(t - t0) * y0;
    case INTERPOLATION_LINEAR: {
      if (!(t1 - t0 >= kShortestSegment)) return 0.0;
      const double x = static_cast<double>(t - t0);
      const double span = static_cast<double>(t1 - t0);
      return x * x * (y1 - y0) / (span + span) + x * y0;
    }
    default:
      // Curved segments count exactly 1.0 each. Hosts' stored results were
      // computed so; an exact area would change them.
      return 1.0;
  }
}

}  // namespace

// Reported, then used as it is.
void VerifyWalkDuration(mtime duration) { QD_VERIFY(duration > 0.0, kDetermineKeyFrameSignature); }

bool DetermineKeyFrame(mtime time, const CParam& param, mtime duration, mtime minDuration,
                       const CKeyFrame*& prev, mtime& prevTime, const CKeyFrame*& next,
                       mtime& nextTime, bool accumulate, double& integral) {
  integral = 0.0;
  const auto addSegment = [&](const CKeyFrame& kf) {
    if (!accumulate) return;
    const double value = kf.GetValueDouble();
    if (!prev) {  // before the first keyframe its value holds from time 0
      const mtime end = time > nextTime ? nextTime : time;
      integral += static_cast<double>(end) * value;
      return;
    }
    integral += SegmentIntegral(time, prev->GetInterpolation(), prevTime, prev->GetValueDouble(),
                                nextTime, value);
  };
  const bool ok =
      WalkKeyFrames(time, param, duration, minDuration, prev, prevTime, next, nextTime, addSegment);
  // After the last keyframe its value holds.
  if (accumulate && !next && prev) {
    integral += static_cast<double>(time - prevTime) * prev->GetValueDouble();
  }
  return ok;
}

double InterpolateParamDouble(mtime time, const CParam& param, mtime duration, mtime minDuration,
                              double def) {
  if (param.GetTimeTranslation() == TIMETRANSLATION_EASEINOUT) {
    time = TimeTranslationEaseInOut(static_cast<double>(time), 0.0, static_cast<double>(duration));
  }
  const CKeyFrame* prev = nullptr;
  const CKeyFrame* next = nullptr;
  mtime prevTime, nextTime;
  WalkKeyFrames(time, param, duration, minDuration, prev, prevTime, next, nextTime,
                [](const CKeyFrame&) {});
  return InterpolateDouble(time, duration, prev, prevTime, next, nextTime, def);
}

// ===========================================================================
// 3. Interpolation kinds
// ===========================================================================

BezierInverse BezierTimeCurve(const Segment& s, const BezierHandles& h) {
  const double c1 = static_cast<double>(h.outTime * s.duration + static_cast<double>(s.t0));
  const double c2 = static_cast<double>(h.inTime * s.duration + static_cast<double>(s.t1));
  return PrepareBezierInverse(static_cast<double>(s.t0), c1, c2, static_cast<double>(s.t1));
}

// Time and value follow the same curve of u, so u is found from the time first.
double BezierSegmentValue(const Segment& s, const BezierHandles& h,
                          const BezierInverse& timeCurve) {
  return BezierValueAt(s, h, SolveBezierInverse(timeCurve, static_cast<double>(s.time)));
}

// The mean of a linear blend and a blend of log(1 + v), given those logs.
// -1 has no logarithm; values below it give NaN, which passes through.
double LinLogValue(const Segment& s, double l0, double l1, double def) {
  if (s.y0 == -1.0 || s.y1 == -1.0) return def;
  const mtime f = (s.time - s.t0) / static_cast<double>(s.t1 - s.t0);
  const double logPart = std::exp(static_cast<double>((l1 - l0) * f) + l0) - 1.0;
  const double linPart = static_cast<double>((s.y1 - s.y0) * f) + s.y0;
  return (linPart + logPart) * 0.5;
}

namespace {

struct Ease {
  unsigned int flag;
  double (*translate)(double t, double a, double b);
};

// The first flag set wins.
constexpr Ease kSplineEases[] = {
    {TIMETRANSLATION_ANCHOREASEINOUT, &TimeTranslationEaseInOut},
    {TIMETRANSLATION_EASEIN, &TimeTranslationEaseIn},
    {TIMETRANSLATION_EASEOUT, &TimeTranslationEaseOut},
};

mtime EaseSplineTime(mtime time, mtime t0, mtime t1, unsigned int flags) {
  for (const Ease& ease : kSplineEases) {
    if (flags & ease.flag) return ease.translate(time, t0, t1);
  }
  return time;
}

// Without anchors a spline is a straight line over the time itself divided
// by the segment length (not the time since the segment's start); stored
// effects were rendered with this form, so it stays.
double SplineWithoutAnchors(const Segment& s, unsigned int flags) {
  const mtime time = EaseSplineTime(s.time, s.t0, s.t1, flags);
  return static_cast<double>(time / static_cast<double>(s.t1 - s.t0)) * (s.y1 - s.y0) + s.y0;
}

}  // namespace

double SplineValue(const Segment& s, unsigned int flags, const Anchor* anchors,
                   unsigned int count) {
  if (count == 0) return SplineWithoutAnchors(s, flags);
  const SplinePiece piece = MakeSplinePiece(s, anchors, count, SplinePieceAt(s, anchors, count));
  return SplinePieceValue(piece, s.time, flags);
}

// ---- what the blend asks of a live keyframe

unsigned int TimeTranslationOf(const CKeyFrame& kf) { return kf.GetTimeTranslation(); }
unsigned int InterpolationOf(const CKeyFrame& kf) { return kf.GetInterpolation(); }
double ValueOf(const CKeyFrame& kf) { return kf.GetValueDouble(); }

double BezierOf(const Segment& s, const CKeyFrame& kf) {
  BezierHandles h;
  kf.GetBezierAnchors(h.outTime, h.outValue, h.inTime, h.inValue);  // zeros without handles
  return BezierSegmentValue(s, h);
}

double LinLogOf(const Segment& s, const CKeyFrame&, const CKeyFrame&, double def) {
  if (s.y0 == -1.0 || s.y1 == -1.0) return def;
  return LinLogValue(s, LogOnePlus(s.y0), LogOnePlus(s.y1), def);
}

double SplineOf(const Segment& s, const CKeyFrame& kf) {
  Anchor anchors[kMaxSplineAnchors];
  const unsigned int count = ReadSplineAnchors(kf, anchors);
  return SplineValue(s, kf.GetTimeTranslation(), anchors, count);
}

unsigned int ReadSplineAnchors(const CKeyFrame& kf, Anchor (&anchors)[kMaxSplineAnchors]) {
  unsigned int count = 0;
  if (!kf.GetAnchors(anchors, kMaxSplineAnchors, count)) {
    // An incomplete or overlong list leaves records unwritten: read them as
    // zeros, never as whatever the stack held.
    std::fill(std::begin(anchors), std::end(anchors), Anchor{0.0, 0.0});
    kf.GetAnchors(anchors, kMaxSplineAnchors, count);
  }
  return std::min(count, kMaxSplineAnchors);
}

// ===========================================================================
// 4. InterpolateDouble (the blend itself is InterpolateKeys, qdsegment.h)
// ===========================================================================

double UnknownInterpolation(double def) {
  QD_ILLEGAL_CODE_POINT("InterpolateDouble - unknown interpolation specified",
                        kInterpolateDoubleSignature);
  return def;
}

double InterpolateDouble(mtime time, mtime duration, const CKeyFrame* prev, mtime prevTime,
                         const CKeyFrame* next, mtime nextTime, double def) {
  return InterpolateKeys(time, duration, prev, prevTime, next, nextTime, def);
}

// ===========================================================================
// 5. Restrictions
// ===========================================================================

namespace {

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
