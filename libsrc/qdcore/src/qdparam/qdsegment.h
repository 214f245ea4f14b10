// What the value of a keyframed parameter is made of, in the plain numbers
// that both evaluation paths share: the live one, which reads every
// keyframe's XML as it goes, and the cached one (qdevalcache.h), which reads
// records parsed once. Both run this code, so their results agree to the bit.
// Reports are made out of line, from the sources that always made them.
#pragma once

#include <cmath>

#include "qdbezierinverse.h"
#include "qdcore/core.h"
#include "qdparam/keyframe.h"
#include "qdparam/qdcalc.h"

namespace qdcore {

// The most spline anchors a keyframe contributes.
inline constexpr unsigned int kMaxSplineAnchors = 500;
// `nextTime` once the walk has passed a keyframe and found none after it.
inline constexpr double kNoNextTime = -1.0;
// Keyframes closer than this (seconds) are one instant: blending across them
// would divide by next to nothing.
inline constexpr double kShortestSegment = 1e-7;

// ---------------------------------------------------------------------------
// Segments and the blend of each kind
// ---------------------------------------------------------------------------

// One segment of a keyframed value: the time asked for, the clip's duration,
// and the two keyframes' times and values.
struct Segment {
  mtime time;
  mtime duration;
  mtime t0, t1;
  double y0, y1;
};

struct BezierHandles {
  double outTime = 0.0, outValue = 0.0;  // from the first keyframe
  double inTime = 0.0, inValue = 0.0;    // from the second keyframe
};

// Computed in mtime arithmetic and converted once.
inline double LinearValue(const Segment& s) {
  const mtime weighted = s.y1 * (s.time - s.t0) + s.y0 * (s.t1 - s.time);
  return static_cast<double>(weighted / static_cast<double>(s.t1 - s.t0));
}

// A Bezier segment's time curve: handle times are fractions of the clip.
BezierInverse BezierTimeCurve(const Segment& s, const BezierHandles& h);
// u is found on the time curve, then the value taken at u.
inline double BezierValueAt(const Segment& s, const BezierHandles& h, double u) {
  return BezierValue(u, s.y0, s.y0 + h.outValue, s.y1 + h.inValue, s.y1);
}
double BezierSegmentValue(const Segment& s, const BezierHandles& h, const BezierInverse& timeCurve);
inline double BezierSegmentValue(const Segment& s, const BezierHandles& h) {
  return BezierSegmentValue(s, h, BezierTimeCurve(s, h));
}
// LinLog blends in log(1 + v); the logarithms come with the values, so
// that a keyframe's is taken once.
inline double LogOnePlus(double value) { return std::log(value + 1.0); }
double LinLogValue(const Segment& s, double l0, double l1, double def);
// A Catmull-Rom curve through the first keyframe, the anchors and the
// second keyframe; without anchors, a straight line (see SplineWithoutAnchors).
double SplineValue(const Segment& s, unsigned int flags, const Anchor* anchors, unsigned int count);

// The parts of SplineValue with anchors, for callers that reuse a piece:
// which piece holds the segment's time, the piece, and its value at a time.
// Inline: a value array calls them for every sample.

// Spline values closer than this make a flat piece.
inline constexpr double kFlatSpline = 1e-7;

struct CubicControls {
  double start, c1, c2, end;
};

// Catmull-Rom tangents (half the difference of the neighbours) written as
// Bezier controls. The arithmetic runs on values shifted by their maximum,
// which keeps a large common offset out of the rounding.
inline CubicControls CatmullRomControls(double before, double start, double end, double after) {
  const double m = end > after ? end : after;
  const double upper = start > m ? start : m;
  const double shift = before > upper ? before : upper;
  const double b = before - shift, s = start - shift, e = end - shift, a = after - shift;
  const double c1 = s + (e - b) * 0.5 / 3.0;
  const double c2 = e - (a - s) * 0.5 / 3.0;
  return {s + shift, c1 + shift, c2 + shift, e + shift};
}

// Points 0 .. count + 1 are the first keyframe, the anchors (at fractions of
// the clip) and the second keyframe; piece i runs from point i to point i + 1.
struct SplinePiece {
  mtime start, end;
  bool flat = false;   // its two points are level: it holds `level`
  double level = 0.0;  // the value of its first point
  CubicControls controls{};
};

// The first anchor the time is before; `count` when none.
inline unsigned int SplinePieceAt(const Segment& s, const Anchor* anchors, unsigned int count) {
  unsigned int i = 0;
  while (i < count && !(s.time < anchors[i].position * s.duration)) ++i;
  return i;
}

inline SplinePiece MakeSplinePiece(const Segment& s, const Anchor* anchors, unsigned int count,
                                   unsigned int i) {
  const auto timeOf = [&](unsigned int j) -> mtime {
    if (j == 0) return s.t0;
    return j > count ? s.t1 : anchors[j - 1].position * s.duration;
  };
  const auto valueOf = [&](unsigned int j) {
    if (j == 0) return s.y0;
    return j > count ? s.y1 : anchors[j - 1].value;
  };
  SplinePiece piece;
  piece.start = timeOf(i);
  piece.end = timeOf(i + 1);
  const double p1 = valueOf(i), p2 = valueOf(i + 1);
  piece.level = p1;
  piece.flat = std::fabs(p2 - p1) < kFlatSpline;
  if (piece.flat) return piece;
  // Past either end the missing neighbour mirrors the other point.
  const double p0 = i > 0 ? valueOf(i - 1) : p1 + (p1 - p2);
  const double p3 = i < count ? valueOf(i + 2) : p2 + (p2 - p1);
  piece.controls = CatmullRomControls(p0, p1, p2, p3);
  return piece;
}

inline double SplinePieceValue(const SplinePiece& piece, mtime time, unsigned int flags) {
  if (piece.flat) return piece.level;
  if (flags & TIMETRANSLATION_ANCHOREASEINOUT) {
    time = TimeTranslationEaseInOut(time, piece.start, piece.end);
  }
  const double u = static_cast<double>((time - piece.start) /
                                       static_cast<double>(piece.end - piece.start));
  const CubicControls& c = piece.controls;
  return BezierValue(u, c.start, c.c1, c.c2, c.end);
}

// The anchors a Spline blend uses: up to kMaxSplineAnchors read into
// `anchors`, unread records zero. Returns how many to use.
unsigned int ReadSplineAnchors(const CKeyFrame& kf, Anchor (&anchors)[kMaxSplineAnchors]);

// Reports an interpolation code no kind has, and answers `def`.
double UnknownInterpolation(double def);

// ---------------------------------------------------------------------------
// Keyframes: live, or as records read once
// ---------------------------------------------------------------------------

// One keyframe as the blend reads it.
struct KeyRecord {
  unsigned int valueType = PARAM_UNDEFINED;  // the keyframe's m_Type that `value` was read for
  double value = 0.0;                        // CKeyFrame::GetValueDouble() for that type
  bool hasBool = false;                      // a "value" for a Bool keyframe's GetValueBool
  bool boolValue = false;
  double logValue = 0.0;  // LogOnePlus(value), next to a LinLog segment
  unsigned int interpolation = INTERPOLATION_HOLD;
  unsigned int timeTranslation = TIMETRANSLATION_LINEAR;
  // Reading the anchors reports (a time suffix on an anchor): such
  // keyframes read them live at every blend, reports and all.
  bool anchorsReport = false;
  // In the cache's pool: a Spline keyframe's anchors, or a Bezier
  // keyframe's two handle points as GetBezierAnchors gives them.
  unsigned int firstAnchor = 0, anchorCount = 0;
};

// A record with the keyframe it describes. The keyframe is read only where
// its record cannot answer: a value type changed since, or anchors that report.
struct CachedKey {
  const KeyRecord* record;
  const CKeyFrame* live;
  const Anchor* anchors;  // the pool that `firstAnchor` indexes
  // The time curve of the Bezier segment this keyframe starts, worked out
  // for the clip being asked about; null when there is none.
  const BezierInverse* timeCurve = nullptr;
};

inline BezierHandles HandlesOf(const KeyRecord& record, const Anchor* anchors) {
  const Anchor* h = anchors + record.firstAnchor;
  return {h[0].position, h[0].value, h[1].position, h[1].value};
}

// What the blend asks of a keyframe. Overloads, so that one template serves
// both kinds of keyframe.
unsigned int TimeTranslationOf(const CKeyFrame& kf);
unsigned int InterpolationOf(const CKeyFrame& kf);
double ValueOf(const CKeyFrame& kf);
double BezierOf(const Segment& s, const CKeyFrame& kf);
double LinLogOf(const Segment& s, const CKeyFrame& prev, const CKeyFrame& next, double def);
double SplineOf(const Segment& s, const CKeyFrame& kf);

inline unsigned int TimeTranslationOf(const CachedKey& key) { return key.record->timeTranslation; }
inline unsigned int InterpolationOf(const CachedKey& key) { return key.record->interpolation; }

// The value type is a public member that may change without a write to the
// element: the record answers only for the type it was read for.
inline double ValueOf(const CachedKey& key) {
  return key.live->m_Type == key.record->valueType ? key.record->value : ValueOf(*key.live);
}

inline double BezierOf(const Segment& s, const CachedKey& key) {
  if (key.record->anchorsReport) return BezierOf(s, *key.live);
  const BezierHandles h = HandlesOf(*key.record, key.anchors);
  return key.timeCurve ? BezierSegmentValue(s, h, *key.timeCurve) : BezierSegmentValue(s, h);
}

// A record's logarithm is that of the value it holds: for another value
// type the logarithm is taken afresh.
inline double LogOf(const CachedKey& key, double value) {
  return key.live->m_Type == key.record->valueType ? key.record->logValue : LogOnePlus(value);
}

inline double LinLogOf(const Segment& s, const CachedKey& prev, const CachedKey& next, double def) {
  if (s.y0 == -1.0 || s.y1 == -1.0) return def;
  return LinLogValue(s, LogOf(prev, s.y0), LogOf(next, s.y1), def);
}

inline double SplineOf(const Segment& s, const CachedKey& key) {
  const KeyRecord& record = *key.record;
  if (record.anchorsReport) return SplineOf(s, *key.live);
  return SplineValue(s, record.timeTranslation, key.anchors + record.firstAnchor,
                     record.anchorCount);
}

// ---------------------------------------------------------------------------
// The blend between two keyframes
// ---------------------------------------------------------------------------

// The value at `time` of the segment from `prev` (at `prevTime`) to `next`
// (at `nextTime`), blended by `prev`'s interpolation; either may be null.
// The same steps, reads and reports in the same order for both kinds of key.
template <typename Key>
double InterpolateKeys(mtime time, mtime duration, const Key* prev, mtime prevTime, const Key* next,
                       mtime nextTime, double def) {
  if (!prev && !next) return def;
  if (prev && (TimeTranslationOf(*prev) & TIMETRANSLATION_EASEINOUT)) {
    time = TimeTranslationEaseInOut(time, prevTime, nextTime);
  }
  // The segment's first keyframe governs it; before the first keyframe the
  // second one's value holds.
  const unsigned int code = prev ? InterpolationOf(*prev) : INTERPOLATION_HOLD;
  if (nextTime - prevTime < kShortestSegment || code == INTERPOLATION_HOLD ||
      code == INTERPOLATION_CUSTOM) {
    return prev ? ValueOf(*prev) : ValueOf(*next);
  }
  if (code != INTERPOLATION_LINEAR && code != INTERPOLATION_BEZIER &&
      code != INTERPOLATION_LINLOG && code != INTERPOLATION_SPLINE) {
    return UnknownInterpolation(def);
  }
  const double y0 = ValueOf(*prev);  // prev is set: without it the code is Hold
  if (!next) return y0;
  const Segment s{time, duration, prevTime, nextTime, y0, ValueOf(*next)};
  switch (code) {
    case INTERPOLATION_LINEAR:
      return LinearValue(s);
    case INTERPOLATION_BEZIER:
      return BezierOf(s, *prev);
    case INTERPOLATION_LINLOG:
      return LinLogOf(s, *prev, *next, def);
    default:
      return SplineOf(s, *prev);
  }
}

// The walk's check of the clip length, reported where the walk reports it.
void VerifyWalkDuration(mtime duration);

// ---------------------------------------------------------------------------
// Restrictions
// ---------------------------------------------------------------------------

// A parameter's grid and limits as the restriction steps read them.
struct DoubleLimits {
  double grid = 0.0;
  bool hasMin = false, hasMax = false;
  double min = 0.0, max = 0.0;
};
struct LongLimits {
  long grid = 0;
  bool hasMin = false, hasMax = false;
  long min = 0, max = 0;
};
DoubleLimits ReadDoubleLimits(const CParam& param);
LongLimits ReadLongLimits(const CParam& param);
double EnforceDoubleLimits(const DoubleLimits& limits, double value);
long EnforceLongLimits(const LongLimits& limits, long value);

// EnforceDoubleLimits for limits without a grid and in order: the clamp
// alone, the same comparisons in the same order.
inline double ClampToOrderedLimits(const DoubleLimits& limits, double value) {
  if (limits.hasMin && limits.min > value) value = limits.min;
  if (limits.hasMax && limits.max < value) value = limits.max;
  return value;
}

inline bool IsPlainClamp(const DoubleLimits& limits) {
  return !(limits.grid > 0.0) && !(limits.hasMin && limits.hasMax && limits.min > limits.max);
}

}  // namespace qdcore
