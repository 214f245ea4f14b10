// The interpolation kinds (see qdinterpolation.h).
//
//   1. Values     each kind's value at a time
//   2. Samplers   each kind's samples of one segment, for value arrays
//   3. Integrals  each kind's area
//   4. Shapes     the values each kind spans and where it turns (inverse lookup)
//   5. Slopes     each kind's value with its derivative, and the eases'
//   6. The table
#include "qdinterpolation.h"

#include <algorithm>
#include <limits>

#include "qdassert.h"
#include "qdwidevectors.h"

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

// ClampToOrderedLimits without a branch: a limit that is absent is an
// infinite one, which no value passes (NaN included), so the comparisons
// stay as they are.
class LimitClamp {
 public:
  explicit LimitClamp(const DoubleLimits& limits)
      : lower_(limits.hasMin ? limits.min : -kInfinity),
        upper_(limits.hasMax ? limits.max : kInfinity) {}
  double operator()(double value) const {
    value = lower_ > value ? lower_ : value;
    return upper_ < value ? upper_ : value;
  }

 private:
  static constexpr double kInfinity = std::numeric_limits<double>::infinity();
  double lower_, upper_;
};

// The samplers that call the maths library for every sample take their
// samples a block at a time: each step over the whole block, so that the
// arithmetic runs several samples at once and the calls follow each other
// without waiting on one another.
constexpr int kSampleBlock = 128;

// The times of samples [from, from + n). Sample numbers convert to double as
// 32-bit ones, several at a time; the sum with the block's first stays the
// same whole number.
inline void BlockTimes(const SampleSpan& span, unsigned long from, int n, double* times) {
  const double first = static_cast<double>(from);
  for (int i = 0; i < n; ++i) {
    times[i] = static_cast<double>(span.start + (first + static_cast<double>(i)) * span.step);
  }
}

inline int BlockLength(const SampleSpan& span, unsigned long from) {
  return static_cast<int>(std::min(span.end - from, static_cast<unsigned long>(kSampleBlock)));
}

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
// once. Sample numbers are counted in 32-bit pieces, which convert to
// double several at a time; every sum stays an exact whole number.
SampleRun SampleLinear(const Segment& segment, const SegmentShape&, const SampleSpan& span) {
  const LimitClamp clamp(*span.limits);
  constexpr unsigned long kPiece = 1ul << 30;
  for (unsigned long piece = span.from; piece < span.end; piece += kPiece) {
    const auto count = static_cast<int>(std::min(span.end - piece, kPiece));
    const double base = static_cast<double>(piece);
    double* out = span.values + piece;
    for (int j = 0; j < count; ++j) {
      Segment s = segment;
      s.time = span.start + (base + static_cast<double>(j)) * span.step;
      out[j] = clamp(LinearValue(s));
    }
  }
  return {span.end - span.from, true};
}

// LinLogValue for each sample, with what the segment shares (its length, the
// rises of its values and logarithms) worked out once.
QD_WIDEST_VECTORS SampleRun SampleLinLog(const Segment& segment, const SegmentShape& shape,
                                         const SampleSpan& span) {
  const LimitClamp clamp(*span.limits);
  if (segment.y0 == -1.0 || segment.y1 == -1.0) {
    std::fill(span.values + span.from, span.values + span.end, clamp(span.def));
    return {span.end - span.from, true};
  }
  const double t0 = static_cast<double>(segment.t0);
  const double length = static_cast<double>(segment.t1 - segment.t0);
  const double rise = segment.y1 - segment.y0, logRise = shape.log1 - shape.log0;
  double fraction[kSampleBlock], power[kSampleBlock];
  for (unsigned long from = span.from; from < span.end; from += kSampleBlock) {
    const int n = BlockLength(span, from);
    BlockTimes(span, from, n, fraction);
    for (int i = 0; i < n; ++i) {
      fraction[i] = (fraction[i] - t0) / length;
      power[i] = logRise * fraction[i] + shape.log0;
    }
    for (int i = 0; i < n; ++i) power[i] = std::exp(power[i]);
    double* out = span.values + from;
    for (int i = 0; i < n; ++i) {
      const double logPart = power[i] - 1.0;
      const double linPart = rise * fraction[i] + segment.y0;
      out[i] = clamp((linPart + logPart) * 0.5);
    }
  }
  return {span.end - span.from, true};
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
// sample goes alone, report and all; a run that starts with one costs a
// single solve. The value's controls are worked out once.
QD_WIDEST_VECTORS SampleRun SampleBezier(const Segment& segment, const SegmentShape& shape,
                                         const SampleSpan& span) {
  if (!shape.timeCurve) return OneByOne(span);
  double firstU = 0.0;
  const double firstTime = static_cast<double>(span.TimeOf(span.from));
  if (!TrySolveBezierInverse(*shape.timeCurve, firstTime, firstU)) return {0, false};
  const BezierHandles& h = shape.handles;
  const double p0 = segment.y0, p1 = segment.y0 + h.outValue, p2 = segment.y1 + h.inValue,
               p3 = segment.y1;
  const LimitClamp clamp(*span.limits);
  double times[kSampleBlock], u[kSampleBlock];
  for (unsigned long from = span.from; from < span.end; from += kSampleBlock) {
    const int n = BlockLength(span, from);
    BlockTimes(span, from, n, times);
    const std::size_t solved = TrySolveBezierInverses(*shape.timeCurve, times, u, n);
    double* out = span.values + from;
    for (std::size_t i = 0; i < solved; ++i) {
      out[i] = clamp(BezierValueInline(u[i], p0, p1, p2, p3));
    }
    if (solved < static_cast<std::size_t>(n)) {
      const unsigned long length = from + solved - span.from;
      return {length, length > 0};
    }
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
// 4. Shapes
// ===========================================================================

constexpr double kUnbounded = std::numeric_limits<double>::infinity();

void Span(double a, double b, double& lo, double& hi) {
  lo = std::min(a, b);
  hi = std::max(a, b);
}

void Widen(double v, double& lo, double& hi) {
  lo = std::min(lo, v);
  hi = std::max(hi, v);
}

// Both are monotone between their ends: LinLog is the mean of two blends
// that move the same way.
void EndsRange(const Segment& s, const SegmentShape&, double, double& lo, double& hi) {
  Span(s.y0, s.y1, lo, hi);
}

void LinLogRange(const Segment& s, const SegmentShape&, double def, double& lo, double& hi) {
  if (s.y0 == -1.0 || s.y1 == -1.0) return Span(def, def, lo, hi);
  // Below -1 the logarithm is NaN, which a whole number turns into anything.
  if (!(s.y0 > -1.0 && s.y1 > -1.0)) return Span(-kUnbounded, kUnbounded, lo, hi);
  Span(s.y0, s.y1, lo, hi);
}

// A Bezier curve stays inside the hull of its controls.
void BezierRange(const Segment& s, const SegmentShape& shape, double, double& lo, double& hi) {
  Span(s.y0, s.y1, lo, hi);
  Widen(s.y0 + shape.handles.outValue, lo, hi);
  Widen(s.y1 + shape.handles.inValue, lo, hi);
}

// The roots in (0, 1) of the derivative of a cubic Bezier with controls
// p0..p3, appended to `out`: the curve is monotone between them.
void BezierTurns(double p0, double p1, double p2, double p3, double (&out)[2], int& count) {
  count = 0;
  const double d0 = p1 - p0, d1 = p2 - p1, d2 = p3 - p2;
  const double a = d0 - 2.0 * d1 + d2, b = 2.0 * (d1 - d0), c = d0;
  const auto keep = [&](double u) {
    if (u > 0.0 && u < 1.0) out[count++] = u;
  };
  const double scale = std::max({std::fabs(a), std::fabs(b), std::fabs(c)});
  if (!(scale > 0.0)) return;
  if (std::fabs(a) <= 1e-12 * scale) {
    if (b != 0.0) keep(-c / b);
    return;
  }
  const double disc = b * b - 4.0 * a * c;
  if (disc < 0.0) return;
  // The form without cancellation for both roots.
  const double q = -0.5 * (b + std::copysign(std::sqrt(disc), b));
  keep(q / a);
  if (q != 0.0) keep(c / q);
}

// The value turns where its curve of u does, and the solve for u may switch
// roots where the time curve turns back.
void BezierSegmentTurns(const Segment& s, const SegmentShape& shape, std::vector<double>& out) {
  const BezierHandles& h = shape.handles;
  const double t0 = static_cast<double>(s.t0), t1 = static_cast<double>(s.t1);
  const double c1 = static_cast<double>(h.outTime * s.duration + t0);
  const double c2 = static_cast<double>(h.inTime * s.duration + t1);
  double u[2];
  int count = 0;
  for (int curve = 0; curve < 2; ++curve) {
    if (curve == 0) {
      BezierTurns(s.y0, s.y0 + h.outValue, s.y1 + h.inValue, s.y1, u, count);
    } else {
      BezierTurns(t0, c1, c2, t1, u, count);
    }
    for (int i = 0; i < count; ++i) out.push_back(BezierValue(u[i], t0, c1, c2, t1));
  }
}

// Anchors in time order inside the segment: the pieces tile it and each one
// stays inside the hull of its controls. Otherwise the pieces extrapolate.
bool AnchorsTileSegment(const Segment& s, const SegmentShape& shape) {
  mtime last = s.t0;
  for (unsigned int i = 0; i < shape.anchorCount; ++i) {
    const mtime at = shape.anchors[i].position * s.duration;
    if (!(at > last)) return false;
    last = at;
  }
  return s.t1 > last;
}

void SplineRange(const Segment& s, const SegmentShape& shape, double, double& lo, double& hi) {
  if (shape.anchorCount == 0) {
    // Eases keep the ends; the line runs between its values there.
    Segment at = s;
    at.time = s.t0;
    const double first = SplineWithoutAnchors(at, shape.eases);
    at.time = s.t1;
    return Span(first, SplineWithoutAnchors(at, shape.eases), lo, hi);
  }
  if (!AnchorsTileSegment(s, shape)) return Span(-kUnbounded, kUnbounded, lo, hi);
  Span(s.y0, s.y1, lo, hi);
  for (unsigned int i = 0; i <= shape.anchorCount; ++i) {
    const SplinePiece piece = MakeSplinePiece(s, shape.anchors, shape.anchorCount, i);
    if (piece.flat) {
      Widen(piece.level, lo, hi);
      continue;
    }
    Widen(piece.controls.c1, lo, hi);
    Widen(piece.controls.c2, lo, hi);
    Widen(piece.controls.end, lo, hi);
  }
}

// The time in [a, b] that the ease in and out moves to `eased`.
double UnEaseInOut(double eased, double a, double b) {
  const double h = (b - a) * 0.5;
  const double u = FindUForBezierValue(eased, a, a, b, b);
  return BezierValue(u, a, a + h, b - h, b);
}

// Each anchor starts a piece; inside a piece the value turns where its
// curve of u does.
void SplineTurns(const Segment& s, const SegmentShape& shape, std::vector<double>& out) {
  const unsigned int count = shape.anchorCount;
  if (count == 0) return;  // a straight line
  for (unsigned int i = 0; i < count; ++i) out.push_back(shape.anchors[i].position * s.duration);
  for (unsigned int i = 0; i <= count; ++i) {
    const SplinePiece piece = MakeSplinePiece(s, shape.anchors, count, i);
    if (piece.flat) continue;
    const CubicControls& c = piece.controls;
    double u[2];
    int roots = 0;
    BezierTurns(c.start, c.c1, c.c2, c.end, u, roots);
    const double start = static_cast<double>(piece.start), end = static_cast<double>(piece.end);
    for (int j = 0; j < roots; ++j) {
      double at = start + u[j] * (end - start);
      if ((shape.eases & TIMETRANSLATION_ANCHOREASEINOUT) && start < end) {
        at = UnEaseInOut(at, start, end);
      }
      out.push_back(at);
    }
  }
}

// ===========================================================================
// 5. Slopes
// ===========================================================================
//
// Each value is computed by the same expressions as the value function, so
// a slope always comes with the very value GetValueDouble gives; the
// derivative is taken analytically, by the chain rule through every time
// translation.

}  // namespace

namespace {

// Derivatives below this share of the controls' reach count as zero.
constexpr double kStill = 1e-9;

// The derivative of order 1, 2 or 3 of the cubic Bezier `p` at u.
double BezierDerivativeOfOrder(int order, double u, const double (&p)[4]) {
  if (order == 1) return BezierDerivative(u, p[0], p[1], p[2], p[3]);
  if (order == 2) {
    return 6.0 * ((1.0 - u) * (p[2] - 2.0 * p[1] + p[0]) + u * (p[3] - 2.0 * p[2] + p[1]));
  }
  return 6.0 * (p[3] - 3.0 * p[2] + 3.0 * p[1] - p[0]);
}

double Reach(const double (&p)[4]) {
  return std::max({std::fabs(p[1] - p[0]), std::fabs(p[2] - p[0]), std::fabs(p[3] - p[0])});
}

// The eased time on the curve (a, p1, p2, b) -> (a, a, b, b), solved as the
// translations solve it.
ValueSlope EasedWithSlope(double t, double a, double p1, double p2, double b) {
  const double u = FindUForBezierValue(t, a, p1, p2, b);
  return {BezierValue(u, a, a, b, b), CurveSlope(u, {a, p1, p2, b}, {a, a, b, b})};
}

}  // namespace

double CurveSlope(double u, const double (&x)[4], const double (&y)[4]) {
  const double xReach = Reach(x), yReach = Reach(y);
  if (!(yReach > 0.0)) return 0.0;  // a level curve
  for (int order = 1; order <= 3; ++order) {
    const double dx = BezierDerivativeOfOrder(order, u, x);
    const double dy = BezierDerivativeOfOrder(order, u, y);
    if (std::fabs(dx) > kStill * xReach || std::fabs(dy) > kStill * yReach) return dy / dx;
  }
  return 0.0;  // x does not move at all: no slope to speak of
}

ValueSlope EaseInOutWithSlope(double t, double a, double b) {
  const double h = (b - a) * 0.5;
  return EasedWithSlope(t, a, a + h, b - h, b);
}

ValueSlope EaseInWithSlope(double t, double a, double b) {
  const double h = (b - a) * 0.5;
  return EasedWithSlope(t, a, h + a, b, b);
}

ValueSlope EaseOutWithSlope(double t, double a, double b) {
  const double h = (b - a) * 0.5;
  return EasedWithSlope(t, a, a, b - h, b);
}

namespace {

ValueSlope LinearSlope(const Segment& s, const SegmentShape&, double) {
  return {LinearValue(s), (s.y1 - s.y0) / static_cast<double>(s.t1 - s.t0)};
}

// d/dt of (lin + exp(log blend) - 1) / 2: both blends move with f.
ValueSlope LinLogSlope(const Segment& s, const SegmentShape& shape, double def) {
  const double value = LinLogValue(s, shape.log0, shape.log1, def);
  if (s.y0 == -1.0 || s.y1 == -1.0) return {value, 0.0};
  const double span = static_cast<double>(s.t1 - s.t0);
  const double f = static_cast<double>(s.time - s.t0) / span;
  const double logRise = shape.log1 - shape.log0;
  const double grown = std::exp(logRise * f + shape.log0);
  return {value, ((s.y1 - s.y0) + logRise * grown) * 0.5 / span};
}

// Time and value are one curve of u: dy/du over dt/du at the solved u.
ValueSlope BezierSlope(const Segment& s, const SegmentShape& shape, double) {
  const BezierHandles& h = shape.handles;
  const double at = static_cast<double>(s.time);
  const double u = shape.timeCurve ? SolveBezierInverse(*shape.timeCurve, at)
                                   : SolveBezierInverse(BezierTimeCurve(s, h), at);
  const double t0 = static_cast<double>(s.t0), t1 = static_cast<double>(s.t1);
  const double times[4] = {t0, static_cast<double>(h.outTime * s.duration + t0),
                           static_cast<double>(h.inTime * s.duration + t1), t1};
  const double values[4] = {s.y0, s.y0 + h.outValue, s.y1 + h.inValue, s.y1};
  return {BezierValueAt(s, h, u), CurveSlope(u, times, values)};
}

ValueSlope SplineWithoutAnchorsSlope(const Segment& s, unsigned int flags) {
  ValueSlope eased{static_cast<double>(s.time), 1.0};
  for (const Ease& ease : kSplineEases) {
    if (!(flags & ease.flag)) continue;
    eased = ease.withSlope(s.time, s.t0, s.t1);
    break;
  }
  const mtime time = eased.value;
  const double span = static_cast<double>(s.t1 - s.t0);
  return {static_cast<double>(time / span) * (s.y1 - s.y0) + s.y0,
          eased.slope * (s.y1 - s.y0) / span};
}

ValueSlope SplinePieceSlope(const SplinePiece& piece, mtime time, unsigned int flags) {
  if (piece.flat) return {piece.level, 0.0};
  double rate = 1.0;
  if (flags & TIMETRANSLATION_ANCHOREASEINOUT) {
    const ValueSlope eased = EaseInOutWithSlope(time, piece.start, piece.end);
    time = eased.value;
    rate = eased.slope;
  }
  const double span = static_cast<double>(piece.end - piece.start);
  const double u = static_cast<double>((time - piece.start) / span);
  const CubicControls& c = piece.controls;
  return {BezierValue(u, c.start, c.c1, c.c2, c.end),
          BezierDerivative(u, c.start, c.c1, c.c2, c.end) / span * rate};
}

ValueSlope SplineSlope(const Segment& s, const SegmentShape& shape, double) {
  if (shape.anchorCount == 0) return SplineWithoutAnchorsSlope(s, shape.eases);
  const unsigned int i = SplinePieceAt(s, shape.anchors, shape.anchorCount);
  return SplinePieceSlope(MakeSplinePiece(s, shape.anchors, shape.anchorCount, i), s.time,
                          shape.eases);
}

// ===========================================================================
// 6. The table
// ===========================================================================

// None is a member of a parameter's allowed set, not a keyframe's blend: a
// keyframe that names it is reported, but its segment integrates as held.
}  // namespace

extern constexpr InterpolationKind kInterpolationKinds[kInterpolationKindCount] = {
    {INTERPOLATION_HOLD, ShapeNeeds::Nothing, true, nullptr, nullptr, &HeldIntegral, nullptr,
     nullptr, nullptr},
    {INTERPOLATION_LINEAR, ShapeNeeds::Nothing, false, &Linear, &SampleLinear, &LinearIntegral,
     &EndsRange, nullptr, &LinearSlope},
    {INTERPOLATION_BEZIER, ShapeNeeds::Handles, false, &Bezier, &SampleBezier, &CurvedIntegral,
     &BezierRange, &BezierSegmentTurns, &BezierSlope},
    {INTERPOLATION_LINLOG, ShapeNeeds::Logarithms, false, &LinLog, &SampleLinLog, &CurvedIntegral,
     &LinLogRange, nullptr, &LinLogSlope},
    {INTERPOLATION_SPLINE, ShapeNeeds::Anchors, false, &Spline, &SampleSpline, &CurvedIntegral,
     &SplineRange, &SplineTurns, &SplineSlope},
    {INTERPOLATION_CUSTOM, ShapeNeeds::Nothing, true, nullptr, nullptr, &HeldIntegral, nullptr,
     nullptr, nullptr},
    {INTERPOLATION_NONE, ShapeNeeds::Nothing, false, nullptr, nullptr, &HeldIntegral, nullptr,
     nullptr, nullptr},
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
