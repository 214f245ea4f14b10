// The interpolation kinds: how the value between two keyframes is made, as
// small pure functions over plain numbers, and the one table that says
// which function serves which kind (kInterpolationKinds). Everything that
// evaluates a segment (one time, a value array, the integral) finds its kind
// there, so a new kind or a new question about every kind is written once.
// Reports are made only by the host calls these functions make (the Bezier
// solve) and by the callers that read keyframes.
#pragma once

#include <bit>
#include <cmath>
#include <vector>

#include "qdbezierinverse.h"
#include "qdcore/core.h"
#include "qdparam/keyframe.h"
#include "qdparam/qdcalc.h"
#include "qdrestrictions.h"

namespace qdcore {

// The most spline anchors a keyframe contributes.
inline constexpr unsigned int kMaxSplineAnchors = 500;
// Keyframes closer than this (seconds) are one instant: blending across them
// would divide by next to nothing.
inline constexpr double kShortestSegment = 1e-7;

// ===========================================================================
// Segments and what a kind reads besides their ends
// ===========================================================================

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

// What a kind reads of its keyframes besides their times and values. Each
// kind names the part it needs (ShapeNeeds), and only that part is read:
// reading a keyframe's anchors can report, so no other kind may read them.
enum class ShapeNeeds { Nothing, Logarithms, Handles, Anchors };

struct SegmentShape {
  double log0 = 0.0, log1 = 0.0;  // LogOnePlus of the two values (LinLog)
  BezierHandles handles;          // Bezier
  // The Bezier time curve worked out for this segment and clip; null: work
  // it out from the handles.
  const BezierInverse* timeCurve = nullptr;
  unsigned int eases = TIMETRANSLATION_LINEAR;  // the first keyframe's time translation (Spline)
  const Anchor* anchors = nullptr;              // Spline anchors, at fractions of the clip
  unsigned int anchorCount = 0;
};

// The shape of a kind that reads nothing besides the values.
inline constexpr SegmentShape kNoShape{};

// ===========================================================================
// Eases
// ===========================================================================

// A value with its rate of change per second at the same time.
struct ValueSlope {
  double value = 0.0;
  double slope = 0.0;
};

// The eased time translations with their rates (d eased / d t), each eased
// time bit for bit the one of the translation of the same name.
ValueSlope EaseInOutWithSlope(double t, double a, double b);
ValueSlope EaseInWithSlope(double t, double a, double b);
ValueSlope EaseOutWithSlope(double t, double a, double b);

// A time translation: `t` in [a, b] moved along an easing curve.
struct Ease {
  unsigned int flag;
  double (*translate)(double t, double a, double b);
  ValueSlope (*withSlope)(double t, double a, double b);
};

// The eases a Spline keyframe may ask for; the first flag set wins. (A
// keyframe's plain EaseInOut applies to every kind, before the blend.)
inline constexpr Ease kSplineEases[] = {
    {TIMETRANSLATION_ANCHOREASEINOUT, &TimeTranslationEaseInOut, &EaseInOutWithSlope},
    {TIMETRANSLATION_EASEIN, &TimeTranslationEaseIn, &EaseInWithSlope},
    {TIMETRANSLATION_EASEOUT, &TimeTranslationEaseOut, &EaseOutWithSlope},
};
inline constexpr unsigned int kSplineEaseFlags =
    TIMETRANSLATION_ANCHOREASEINOUT | TIMETRANSLATION_EASEIN | TIMETRANSLATION_EASEOUT;

// ===========================================================================
// The value of each kind at a time
// ===========================================================================

// Computed in mtime arithmetic and converted once.
inline double LinearValue(const Segment& s) {
  const mtime weighted = s.y1 * (s.time - s.t0) + s.y0 * (s.t1 - s.time);
  return static_cast<double>(weighted / static_cast<double>(s.t1 - s.t0));
}

// LinLog blends in log(1 + v); the logarithms come with the values, so
// that a keyframe's is taken once.
inline double LogOnePlus(double value) { return std::log(value + 1.0); }
// The mean of a linear blend and a blend of log(1 + v), given those logs;
// `def` when either value is -1, which has no logarithm.
double LinLogValue(const Segment& s, double l0, double l1, double def);

// A Bezier segment's time curve: handle times are fractions of the clip.
BezierInverse BezierTimeCurve(const Segment& s, const BezierHandles& h);
// u is found on the time curve, then the value taken at u.
inline double BezierValueAt(const Segment& s, const BezierHandles& h, double u) {
  return BezierValue(u, s.y0, s.y0 + h.outValue, s.y1 + h.inValue, s.y1);
}
double BezierSegmentValue(const Segment& s, const BezierHandles& h, const BezierInverse& timeCurve);

// A Catmull-Rom curve through the first keyframe, the anchors and the
// second keyframe; without anchors, a straight line.
double SplineValue(const Segment& s, unsigned int flags, const Anchor* anchors, unsigned int count);

// ---- the parts of SplineValue with anchors, for callers that reuse a piece:
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
  const double u =
      static_cast<double>((time - piece.start) / static_cast<double>(piece.end - piece.start));
  const CubicControls& c = piece.controls;
  return BezierValue(u, c.start, c.c1, c.c2, c.end);
}

// ===========================================================================
// Value arrays: the samples of one segment at once
// ===========================================================================

// Samples [from, end) of a value array, all in one segment: sample j is
// taken at start + j * step and written to values[j], clamped to `limits`
// (a clamp alone: IsPlainClamp).
struct SampleSpan {
  mtime start, step;
  unsigned long from, end;
  double* values;
  const DoubleLimits* limits;
  double def;  // what the keyframes fall back to
  mtime TimeOf(unsigned long j) const { return start + static_cast<double>(j) * step; }
};

// What a sampler did: `filled` when it wrote the first `length` samples;
// else those are to be taken one by one. A length of 0 says nothing about
// the samples after the first.
struct SampleRun {
  unsigned long length = 0;
  bool filled = false;
};

// ===========================================================================
// The table of kinds
// ===========================================================================

// One interpolation kind: what it reads, its value at a time, a sampler for
// value arrays, its integral, what the inverse lookup asks of it (the
// values it spans, where it may turn) and its slope.
struct InterpolationKind {
  unsigned int code;  // INTERPOLATION_*
  ShapeNeeds needs;
  // Over the segment the first keyframe's value holds: `value` is not asked.
  bool holds;
  // The value at s.time; null for a code no keyframe blends by.
  double (*value)(const Segment& s, const SegmentShape& shape, double def);
  // The samples of `span` (see SampleRun); null: one by one.
  SampleRun (*sample)(const Segment& s, const SegmentShape& shape, const SampleSpan& span);
  // The integral over [t0, min(time, t1)].
  double (*integral)(const Segment& s);
  // Bounds `lo` <= `hi` of every value over [t0, t1] (infinite when they
  // cannot be known); null for a kind that holds or has no value.
  void (*range)(const Segment& s, const SegmentShape& shape, double def, double& lo, double& hi);
  // Appends the times in (t0, t1), as the kind's value sees its time, where
  // that value may turn or jump: between two of them it is monotone. Null:
  // monotone over the whole segment.
  void (*turns)(const Segment& s, const SegmentShape& shape, std::vector<double>& out);
  // The value at s.time (bit for bit `value`'s) with its derivative with
  // respect to s.time, worked out together so that a solve is made, and
  // reported, once. Null where `value` is.
  ValueSlope (*slope)(const Segment& s, const SegmentShape& shape, double def);
};

// In bit order: entry i is the kind whose code is 1 << i.
inline constexpr unsigned int kInterpolationKindCount = 7;
extern const InterpolationKind kInterpolationKinds[kInterpolationKindCount];

// The kind of `code`; null for a code that no kind has.
inline const InterpolationKind* FindInterpolationKind(unsigned int code) {
  if (code == 0 || (code & (code - 1)) != 0) return nullptr;  // not a single bit
  const auto bit = static_cast<unsigned int>(std::countr_zero(code));
  return bit < kInterpolationKindCount ? &kInterpolationKinds[bit] : nullptr;
}

// ---- derivatives of the cubic Bezier with respect to u, for slopes

inline double BezierDerivative(double u, double p0, double p1, double p2, double p3) {
  const double v = 1.0 - u;
  return 3.0 * (v * v * (p1 - p0) + 2.0 * v * u * (p2 - p1) + u * u * (p3 - p2));
}

// dy/dx along the curve (x(u), y(u)) of the two Bezier control lists at u.
// Where x stands still (an ease at its end, a handle of zero length) the
// slope is the limit, taken from the first derivatives that do not vanish;
// infinite where x stands still and y does not.
double CurveSlope(double u, const double (&x)[4], const double (&y)[4]);

// Reports an interpolation code no kind has, and answers `def`.
double UnknownInterpolation(double def);

}  // namespace qdcore
