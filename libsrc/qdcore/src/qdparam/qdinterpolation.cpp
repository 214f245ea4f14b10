// The interpolation kinds (see qdinterpolation.h).
//
//   1. Values     each kind's value at a time
//   2. Samplers   each kind's samples of one segment, for value arrays
//   3. Integrals  each kind's area
//   4. The table
#include "qdinterpolation.h"

#include <algorithm>
#include <limits>

#include "qdassert.h"

namespace qdcore {

namespace {

constexpr const char* kInterpolateDoubleSignature =
    "double __cdecl InterpolateDouble(class qdcore::mtime,class qdcore::mtime,const class "
    "qdcore::CKeyFrame *,class qdcore::mtime,const class qdcore::CKeyFrame *,class "
    "qdcore::mtime,double)";

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

// ===========================================================================
// 1. Values
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

// -1 has no logarithm; values below it give NaN, which passes through.
double LinLogValue(const Segment& s, double l0, double l1, double def) {
  if (s.y0 == -1.0 || s.y1 == -1.0) return def;
  const mtime f = (s.time - s.t0) / static_cast<double>(s.t1 - s.t0);
  const double logPart = std::exp(static_cast<double>((l1 - l0) * f) + l0) - 1.0;
  const double linPart = static_cast<double>((s.y1 - s.y0) * f) + s.y0;
  return (linPart + logPart) * 0.5;
}

double SplineValue(const Segment& s, unsigned int flags, const Anchor* anchors,
                   unsigned int count) {
  if (count == 0) return SplineWithoutAnchors(s, flags);
  const SplinePiece piece = MakeSplinePiece(s, anchors, count, SplinePieceAt(s, anchors, count));
  return SplinePieceValue(piece, s.time, flags);
}

double UnknownInterpolation(double def) {
  QD_ILLEGAL_CODE_POINT("InterpolateDouble - unknown interpolation specified",
                        kInterpolateDoubleSignature);
  return def;
}

namespace {

double Linear(const Segment& s, const SegmentShape&, double) { return LinearValue(s); }

double LinLog(const Segment& s, const SegmentShape& shape, double def) {
  return LinLogValue(s, shape.log0, shape.log1, def);
}

double Bezier(const Segment& s, const SegmentShape& shape, double) {
  if (shape.timeCurve) return BezierSegmentValue(s, shape.handles, *shape.timeCurve);
  return BezierSegmentValue(s, shape.handles, BezierTimeCurve(s, shape.handles));
}

double Spline(const Segment& s, const SegmentShape& shape, double) {
  return SplineValue(s, shape.eases, shape.anchors, shape.anchorCount);
}

// ===========================================================================
// 2. Samplers
// ===========================================================================
//
// Each sample is the kind's value at its time, computed by the same
// functions as one value alone; only what is the same for every sample of
// the segment is done once. A sampler writes nothing that could report:
// what could is left to go one by one, so reports stay in order.

SampleRun OneByOne(const SampleSpan& span) { return {span.end - span.from, false}; }

template <typename Blend>
SampleRun FillEach(const Segment& segment, const SampleSpan& span, Blend blend) {
  Segment s = segment;
  for (unsigned long j = span.from; j < span.end; ++j) {
    s.time = span.TimeOf(j);
    span.values[j] = ClampToOrderedLimits(*span.limits, blend(s));
  }
  return {span.end - span.from, true};
}

// Free of reports and branches, so the compiler does several samples at
// once. A limit that is absent is an infinite one, which no value passes
// (NaN included), so the comparisons stay as they are. Sample numbers are
// counted in 32-bit pieces, which convert to double several at a time;
// every sum stays an exact whole number.
SampleRun SampleLinear(const Segment& segment, const SegmentShape&, const SampleSpan& span) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  const DoubleLimits& limits = *span.limits;
  const double lower = limits.hasMin ? limits.min : -kInfinity;
  const double upper = limits.hasMax ? limits.max : kInfinity;
  constexpr unsigned long kPiece = 1ul << 30;
  for (unsigned long piece = span.from; piece < span.end; piece += kPiece) {
    const auto count = static_cast<int>(std::min(span.end - piece, kPiece));
    const double base = static_cast<double>(piece);
    double* out = span.values + piece;
    for (int j = 0; j < count; ++j) {
      Segment s = segment;
      s.time = span.start + (base + static_cast<double>(j)) * span.step;
      double value = LinearValue(s);
      value = lower > value ? lower : value;
      value = upper < value ? upper : value;
      out[j] = value;
    }
  }
  return {span.end - span.from, true};
}

SampleRun SampleLinLog(const Segment& segment, const SegmentShape& shape, const SampleSpan& span) {
  return FillEach(segment, span, [&](const Segment& s) { return LinLog(s, shape, span.def); });
}

// A piece between two points serves all the samples that fall in it. Eased
// splines solve a Bezier, which can report: they go one by one.
SampleRun SampleSpline(const Segment& segment, const SegmentShape& shape, const SampleSpan& span) {
  if (shape.eases & kSplineEaseFlags) return OneByOne(span);
  if (shape.anchorCount == 0) {
    return FillEach(segment, span, [&](const Segment& s) { return Spline(s, shape, span.def); });
  }
  constexpr unsigned int kNoPiece = ~0u;
  SplinePiece piece;
  unsigned int pieceIndex = kNoPiece;
  return FillEach(segment, span, [&](const Segment& s) {
    const unsigned int i = SplinePieceAt(s, shape.anchors, shape.anchorCount);
    if (i != pieceIndex)
      piece = MakeSplinePiece(s, shape.anchors, shape.anchorCount, pieceIndex = i);
    return SplinePieceValue(piece, s.time, shape.eases);
  });
}

// A time without a root would report: the run stops before it, and that
// sample goes alone, report and all.
SampleRun SampleBezier(const Segment& segment, const SegmentShape& shape, const SampleSpan& span) {
  if (!shape.timeCurve) return OneByOne(span);
  Segment s = segment;
  for (unsigned long j = span.from; j < span.end; ++j) {
    s.time = span.TimeOf(j);
    double u = 0.0;
    if (!TrySolveBezierInverse(*shape.timeCurve, static_cast<double>(s.time), u)) {
      return {j - span.from, j > span.from};
    }
    span.values[j] = ClampToOrderedLimits(*span.limits, BezierValueAt(s, shape.handles, u));
  }
  return {span.end - span.from, true};
}

// ===========================================================================
// 3. Integrals
// ===========================================================================

double HeldIntegral(const Segment& s) { return static_cast<double>(s.time - s.t0) * s.y0; }

double LinearIntegral(const Segment& s) {
  if (!(s.t1 - s.t0 >= kShortestSegment)) return 0.0;
  const double x = static_cast<double>(s.time - s.t0);
  const double span = static_cast<double>(s.t1 - s.t0);
  return x * x * (s.y1 - s.y0) / (span + span) + x * s.y0;
}

// Curved segments count exactly 1.0 each. Hosts' stored results were
// computed so; an exact area would change them.
double CurvedIntegral(const Segment&) { return 1.0; }

// ===========================================================================
// 4. The table
// ===========================================================================

// None is a member of a parameter's allowed set, not a keyframe's blend: a
// keyframe that names it is reported, but its segment integrates as held.
}  // namespace

extern constexpr InterpolationKind kInterpolationKinds[kInterpolationKindCount] = {
    {INTERPOLATION_HOLD, ShapeNeeds::Nothing, true, nullptr, nullptr, &HeldIntegral},
    {INTERPOLATION_LINEAR, ShapeNeeds::Nothing, false, &Linear, &SampleLinear, &LinearIntegral},
    {INTERPOLATION_BEZIER, ShapeNeeds::Handles, false, &Bezier, &SampleBezier, &CurvedIntegral},
    {INTERPOLATION_LINLOG, ShapeNeeds::Logarithms, false, &LinLog, &SampleLinLog, &CurvedIntegral},
    {INTERPOLATION_SPLINE, ShapeNeeds::Anchors, false, &Spline, &SampleSpline, &CurvedIntegral},
    {INTERPOLATION_CUSTOM, ShapeNeeds::Nothing, true, nullptr, nullptr, &HeldIntegral},
    {INTERPOLATION_NONE, ShapeNeeds::Nothing, false, nullptr, nullptr, &HeldIntegral},
};

// A code finds its kind by the position of its bit (FindInterpolationKind).
constexpr bool InBitOrder() {
  for (unsigned int i = 0; i < kInterpolationKindCount; ++i) {
    if (kInterpolationKinds[i].code != 1u << i) return false;
  }
  return true;
}
static_assert(InBitOrder());

}  // namespace qdcore
