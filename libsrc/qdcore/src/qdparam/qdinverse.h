// The inverse of evaluation: the times at which a number parameter's value,
// exactly as GetValueDouble gives it, reaches a given value.
//
// The clip is cut where the walk changes segment; a segment is cut where
// its kind says its value may turn (the kinds table); on each piece the
// value is monotone, so one bracketed search over the forward evaluation
// finds its crossing. Segments whose values cannot hold the value (their
// kind's range, restricted) are passed over without evaluating them.
#pragma once

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

#include "qdkeys.h"
#include "qdnumbers.h"
#include "qdtimeline.h"
#include "qdtypedvalue.h"
#include "qdvalueindex.h"

namespace qdcore {

// ===========================================================================
// Searching over times
// ===========================================================================

// Doubles as integers in the same order, so that a search halves the count
// of doubles left, not their span: at most 64 steps, down to neighbours.
inline std::int64_t OrderedBits(double x) {
  const auto bits = std::bit_cast<std::int64_t>(x);
  return bits >= 0 ? bits : std::numeric_limits<std::int64_t>::min() - bits;
}
inline double FromOrderedBits(std::int64_t key) {
  return std::bit_cast<double>(key >= 0 ? key : std::numeric_limits<std::int64_t>::min() - key);
}

// The earliest t in (lo, hi] at which `holds` is true, given that it is
// false at lo, true at hi and switches once between.
template <typename Pred>
double FirstWhere(double lo, double hi, Pred holds) {
  std::int64_t a = OrderedBits(lo), b = OrderedBits(hi);
  while (b - a > 1) {
    const std::int64_t mid = (a >> 1) + (b >> 1) + (a & b & 1);
    if (holds(FromOrderedBits(mid))) {
      b = mid;
    } else {
      a = mid;
    }
  }
  return FromOrderedBits(b);
}

inline double Before(double t) {
  return std::nextafter(t, -std::numeric_limits<double>::infinity());
}
inline double After(double t) { return std::nextafter(t, std::numeric_limits<double>::infinity()); }

// The earliest t in (lo, hi] at which a monotone value reaches v, coming
// from `flo` at lo (not reached) towards `fhi` at hi (reached); `at` gives
// the value at a time. Regula falsi with the Illinois weights guesses
// (closed form where the value is a straight line), each guess is settled
// against its neighbouring double, and halving the span by bits takes over
// whenever the guesses stop narrowing it (steps of a grid, flat stretches).
template <typename At>
double FirstReaching(double lo, double hi, double flo, double fhi, double v, At at) {
  const bool rising = flo < fhi;
  const auto reached = [&](double f) { return rising ? f >= v : f <= v; };
  double gl = flo - v, gh = fhi - v;  // weighted distances of the ends from v
  int kept = 0;                       // +1: lo kept last time, -1: hi kept
  int slow = 0;                       // guesses in a row that did not halve the span
  for (;;) {
    const std::int64_t a = OrderedBits(lo), b = OrderedBits(hi);
    if (b - a <= 1) return hi;
    const double middle = FromOrderedBits((a >> 1) + (b >> 1) + (a & b & 1));
    double t = middle;
    if (slow < 2 && gl != gh && std::isfinite(gl) && std::isfinite(gh)) {
      t = lo + gl / (gl - gh) * (hi - lo);
      if (!(t > lo && t < hi)) t = middle;
    }
    const double span = hi - lo;
    const double ft = at(t);
    if (reached(ft)) {
      const double before = Before(t);
      if (before <= lo) return t;
      const double fb = at(before);
      if (!reached(fb)) return t;
      hi = before;
      gh = fb - v;
      if (kept == 1) gl *= 0.5;
      kept = 1;
    } else {
      const double after = After(t);
      if (after >= hi) return hi;
      const double fa = at(after);
      if (reached(fa)) return after;
      lo = after;
      gl = fa - v;
      if (kept == -1) gh *= 0.5;
      kept = -1;
    }
    slow = hi - lo > 0.5 * span ? slow + 1 : 0;
    if (slow > 2) slow = 0;  // after a halving, guess again
  }
}

// ===========================================================================
// The value as a function of time
// ===========================================================================

// What GetValueDouble gives for an active, keyframed Double or Long
// parameter, without the trace line. `Param` is LiveParam or a cache view.
template <typename Param>
struct ValueCurve {
  const Param& param;
  mtime duration, minDuration;
  bool whole;  // a Long parameter: its value is rounded before the limits
  bool eased;  // the parameter eases the whole clip's time

  double At(double t) const {
    if (whole) return static_cast<double>(OwnValue<long>(param, t, duration, minDuration, 0L));
    return OwnValue<double>(param, t, duration, minDuration, 0.0);
  }
  // A blended number as the value it becomes; monotone.
  double Restrict(double raw) const {
    if (whole)
      return static_cast<double>(param.Enforce(static_cast<long>(RoundHalfAwayFromZero(raw))));
    return param.Enforce(raw);
  }
  // What the keyframes fall back to.
  double Fallback() const {
    if (whole) {
      long v = 0;
      param.StaticValue(v);
      return static_cast<double>(v);
    }
    double v = 0.0;
    param.StaticValue(v);
    return v;
  }
  // The time the walk sees at clip time t.
  double WalkTime(double t) const {
    return eased ? TimeTranslationEaseInOut(t, 0.0, static_cast<double>(duration)) : t;
  }
  // The earliest clip time at which the walk's time reaches `walkTime`; the
  // ease covers [0, duration] only.
  double ClipTime(double walkTime) const {
    if (!eased || !std::isfinite(walkTime)) return walkTime;
    const double end = static_cast<double>(duration);
    if (!(walkTime > 0.0)) return 0.0;
    if (walkTime > end) return std::numeric_limits<double>::infinity();
    return FirstWhere(0.0, end, [&](double t) { return WalkTime(t) >= walkTime; });
  }
};

// ===========================================================================
// Segments
// ===========================================================================

// What a segment tells the search before any evaluation: bounds of its
// blended values and where inside it they may turn (segment times, that is
// as the walk sees time).
struct SegmentOutline {
  double lo = 0.0, hi = 0.0;
  bool easesSegment = false;  // its first keyframe eases the segment's time
};

// The same steps as InterpolateKeys, asking the kind for its range and
// turns instead of its value.
template <typename Key>
SegmentOutline OutlineSegment(mtime duration, const Key* prev, mtime prevTime, const Key* next,
                              mtime nextTime, double def, std::vector<double>* turns) {
  SegmentOutline outline;
  const auto level = [&](double v) {
    outline.lo = outline.hi = v;
    return outline;
  };
  if (!prev && !next) return level(def);
  const InterpolationKind* kind =
      FindInterpolationKind(prev ? InterpolationOf(*prev) : INTERPOLATION_HOLD);
  if (nextTime - prevTime < kShortestSegment || (kind && kind->holds)) {
    return level(prev ? ValueOf(*prev) : ValueOf(*next));
  }
  if (!kind || !kind->value || !kind->range) return level(def);
  const double y0 = ValueOf(*prev);
  if (!next) return level(y0);
  outline.easesSegment = (TimeTranslationOf(*prev) & TIMETRANSLATION_EASEINOUT) != 0;
  const Segment s{prevTime, duration, prevTime, nextTime, y0, ValueOf(*next)};
  WithShape(kind->needs, s, *prev, *next, [&](const SegmentShape& shape) {
    kind->range(s, shape, def, outline.lo, outline.hi);
    if (turns && kind->turns) kind->turns(s, shape, *turns);
    return 0.0;
  });
  return outline;
}

// ===========================================================================
// The search
// ===========================================================================

// Receives each crossing in time order; returns false to stop the search.
using CrossingSink = bool (*)(void* context, double time);

// The search over one clip. `Keys` gives the keyframes' times on the clip
// in list order (Times, Count, Ordered), the two keyframes around a walk
// stop as the blend reads them (WithPair), and the line's index of segment
// bounds where one can be kept (Index).
template <typename Param, typename Keys>
class CrossingSearch {
 public:
  CrossingSearch(const ValueCurve<Param>& curve, const Keys& keys, double value, double from,
                 double to, CrossingSink sink, void* context)
      : m_curve(curve),
        m_keys(keys),
        m_value(value),
        m_from(from),
        m_to(to),
        m_sink(sink),
        m_context(context),
        m_def(curve.Fallback()) {}

  // Walks the segments from the one holding `from`; false when the sink
  // stopped it. In time order the walk passes every keyframe at or before
  // the time, so the segment holding `from` ends at the first one after it,
  // and the others are found by their values' bounds.
  bool Run(bool ordered) {
    if (!ordered) return Scan(0, -std::numeric_limits<double>::infinity());
    const mtime* times = m_keys.Times();
    const unsigned int count = m_keys.Count();
    const auto i = static_cast<unsigned int>(
        std::upper_bound(times, times + count, mtime(m_curve.WalkTime(m_from))) - times);
    const double latest =
        i > 0 ? static_cast<double>(times[i - 1]) : -std::numeric_limits<double>::infinity();
    if (const ValueIndex* index = m_keys.Index([&] { return BuildIndex(); })) {
      return Indexed(*index, i, latest);
    }
    return Scan(i, latest);
  }

 private:
  // Every segment from walk stop `i` on, in turn, each passed over when its
  // bounds and the jump into it cannot hold the value.
  bool Scan(unsigned int i, double latest) {
    const mtime* times = m_keys.Times();
    const unsigned int count = m_keys.Count();
    double start = m_curve.ClipTime(latest);
    bool first = true;
    for (; i <= count; ++i) {
      const double at = i < count ? static_cast<double>(times[i]) : 0.0;
      // A keyframe no later than one passed before it is passed with it.
      if (i < count && at <= latest) continue;
      const bool last = i == count || std::isnan(at);
      const double walkEnd = last ? std::numeric_limits<double>::infinity() : at;
      const double end = m_curve.ClipTime(walkEnd);
      if (!(end <= m_from)) {
        SegmentOutline outline;
        std::vector<double>* turns = Outline(i, outline);
        if (IsCandidate(outline, first) &&
            !SearchSegment(i, latest, walkEnd, start, end, outline, *turns)) {
          return false;
        }
        first = false;
      }
      if (last || end > m_to) break;
      latest = at;
      start = end;
    }
    return true;
  }

  // The segment holding `from`, then only those the index says may hold the value.
  bool Indexed(const ValueIndex& index, unsigned int i, double latest) {
    const mtime* times = m_keys.Times();
    const unsigned int count = m_keys.Count();
    for (bool first = true;; first = false) {
      if (!first) {
        i = index.FirstFrom(i, m_value);
        if (i == ValueIndex::kNone) return true;
        latest = static_cast<double>(times[i - 1]);  // i > 0: the first stop came first
      }
      const double start = m_curve.ClipTime(latest);
      if (start > m_to) return true;
      const double walkEnd =
          i < count ? static_cast<double>(times[i]) : std::numeric_limits<double>::infinity();
      const double end = m_curve.ClipTime(walkEnd);
      SegmentOutline outline;
      std::vector<double>* turns = Outline(i, outline);
      if (!SearchSegment(i, latest, walkEnd, start, end, outline, *turns)) return false;
      if (end > m_to || i == count) return true;
      ++i;
    }
  }

  // The outline of walk stop `stop` and its turns (in a buffer of the search).
  std::vector<double>* Outline(unsigned int stop, SegmentOutline& outline) {
    const mtime* times = m_keys.Times();
    const unsigned int count = m_keys.Count();
    m_turns.clear();
    const mtime prevTime = stop > 0 ? times[stop - 1] : mtime();
    const mtime nextTime = stop < count ? times[stop] : mtime(kNoNextTime);
    m_keys.WithPair(stop, [&](const auto* prev, const auto* next) {
      outline = OutlineSegment(m_curve.duration, prev, prevTime, next, nextTime, m_def, &m_turns);
    });
    return &m_turns;
  }

  // Restricted bounds; infinite when unknown.
  void Bounds(const SegmentOutline& outline, double& lo, double& hi) const {
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    lo = outline.lo;
    hi = outline.hi;
    if (!(std::isfinite(lo) && std::isfinite(hi))) {
      lo = -kInfinity;
      hi = kInfinity;
      return;
    }
    lo = m_curve.Restrict(lo);
    hi = m_curve.Restrict(hi);
    if (lo > hi) std::swap(lo, hi);
    if (std::isnan(lo) || std::isnan(hi)) {
      lo = -kInfinity;
      hi = kInfinity;
    }
  }

  // Each walk stop of an ordered line with the bounds of its values and of
  // the jump into it; a stop at the time of the one before is no segment.
  const ValueIndex* BuildIndex() {
    const mtime* times = m_keys.Times();
    const unsigned int count = m_keys.Count();
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    std::vector<double> lo(count + 1, kInfinity), hi(count + 1, -kInfinity);
    bool any = false;
    double loBefore = 0.0, hiBefore = 0.0;
    for (unsigned int i = 0; i <= count; ++i) {
      if (i > 0 && i < count && !(times[i] > times[i - 1])) continue;
      SegmentOutline outline;
      Outline(i, outline);
      double segmentLo = 0.0, segmentHi = 0.0;
      Bounds(outline, segmentLo, segmentHi);
      lo[i] = any ? std::min(segmentLo, loBefore) : segmentLo;
      hi[i] = any ? std::max(segmentHi, hiBefore) : segmentHi;
      loBefore = segmentLo;
      hiBefore = segmentHi;
      any = true;
    }
    return new ValueIndex(lo, hi);
  }

  // The segment the walk takes for walk times in [latest, walkEnd): clip
  // times [start, end). False when the sink stopped the search.
  bool SearchSegment(unsigned int stop, double latest, double walkEnd, double start, double end,
                     const SegmentOutline& outline, const std::vector<double>& turns) {
    const mtime* times = m_keys.Times();
    const unsigned int count = m_keys.Count();
    const mtime prevTime = stop > 0 ? times[stop - 1] : mtime();
    const mtime nextTime = stop < count ? times[stop] : mtime(kNoNextTime);
    // Pieces on which the value is monotone, in clip time.
    const double a = std::max(start, m_from);
    m_points.clear();
    m_points.push_back(a);
    for (double turn : turns) {
      double walkTurn = turn;
      if (outline.easesSegment) walkTurn = UnEaseSegment(turn, prevTime, nextTime);
      if (!(walkTurn > latest && walkTurn < walkEnd)) continue;
      const double t = m_curve.ClipTime(walkTurn);
      if (t > a && t < end && t <= m_to) m_points.push_back(t);
    }
    std::sort(m_points.begin() + 1, m_points.end());
    m_points.erase(std::unique(m_points.begin(), m_points.end()), m_points.end());
    for (std::size_t k = 0; k < m_points.size(); ++k) {
      const double pieceEnd = k + 1 < m_points.size() ? m_points[k + 1] : end;
      if (!Piece(m_points[k], pieceEnd)) return false;
    }
    return true;
  }

  // The walk time at which the segment's ease reaches `eased`.
  static double UnEaseSegment(double eased, mtime t0, mtime t1) {
    const double a = static_cast<double>(t0), b = static_cast<double>(t1);
    if (!(eased > a)) return a;
    if (!(eased < b)) return b;
    return FirstWhere(a, b, [&](double t) { return TimeTranslationEaseInOut(t, a, b) >= eased; });
  }

  // A segment may hold the value when its restricted range, or the jump
  // into it from the segment before, does. The first one searched always
  // may: the jump at `from` comes from a segment not looked at.
  bool IsCandidate(const SegmentOutline& outline, bool first) {
    double lo = 0.0, hi = 0.0;
    Bounds(outline, lo, hi);
    const double lower = std::min(lo, m_loBefore), upper = std::max(hi, m_hiBefore);
    m_loBefore = lo;
    m_hiBefore = hi;
    return first || (lower <= m_value && m_value <= upper);
  }

  static bool StrictlyBetween(double a, double b, double v) {
    return (a < v && v < b) || (b < v && v < a);
  }

  bool Report(double t) {
    if (t <= m_lastFound) return true;  // a piece's end met again at the next one's start
    m_lastFound = t;
    return m_sink(m_context, t);
  }

  // One monotone piece, clip times [a, b) (with b when it is past the end
  // of the search). False when the sink stopped the search.
  bool Piece(double a, double b) {
    if (a > m_to) return true;
    const double v = m_value;
    const double fa = m_curve.At(a);
    // At its start: the value is there, or jumps across it.
    const bool jumpCounts = !(m_curve.eased && a <= 0.0);
    const double before = jumpCounts ? m_curve.At(Before(a)) : fa;
    const bool arrives = a == m_from ? fa == v || StrictlyBetween(before, fa, v)
                                     : before != v && (fa == v || StrictlyBetween(before, fa, v));
    if (arrives && !Report(a)) return false;
    if (fa == v) return true;  // already there: a monotone piece cannot come back to it
    const double e = b > m_to ? m_to : Before(b);
    if (!(e > a)) return true;
    const double fe = m_curve.At(e);
    const bool crosses = (fa < v && v <= fe) || (fa > v && v >= fe);
    if (!crosses) return true;
    return Report(FirstReaching(a, e, fa, fe, v, [&](double x) { return m_curve.At(x); }));
  }

  const ValueCurve<Param>& m_curve;
  const Keys& m_keys;
  double m_value, m_from, m_to;
  CrossingSink m_sink;
  void* m_context;
  double m_def;
  double m_lastFound = -std::numeric_limits<double>::infinity();
  double m_loBefore = 0.0, m_hiBefore = 0.0;
  std::vector<double> m_turns, m_points;
};

}  // namespace qdcore
