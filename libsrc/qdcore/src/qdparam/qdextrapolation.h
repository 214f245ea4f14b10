// Extrapolation: what a keyframed parameter does before its first and after
// its last keyframe, when it asks for more than the held end value. A time
// outside the keyed span is read inside it (a cycle, a swing back) with an
// offset, or the end's slope goes on; these small pure functions over plain
// numbers are all of it, and every getter calls them with its own blend.
// Without the attributes none of this runs, so every result stays as it was.
#pragma once

#include <cmath>
#include <limits>

#include "qdinterpolation.h"
#include "qdparam/param.h"
#include "qdparam/types.h"

namespace qdcore {

// The EXTRAPOLATION_* mode of each end.
struct Extrapolation {
  unsigned int before = EXTRAPOLATION_HOLD, after = EXTRAPOLATION_HOLD;
  bool Any() const { return (before | after) != EXTRAPOLATION_HOLD; }
};

// The parameter's modes; Hold at both ends when it eases its whole clip,
// whose ease is defined over the clip alone.
Extrapolation ReadExtrapolation(const CParam& param);

// The clip times of the earliest and the latest keyframe.
struct KeyedSpan {
  double first = 0.0, last = 0.0;
  // Too short to repeat or to have a slope: the ends hold.
  bool Holds() const { return !(last - first >= kShortestSegment); }
  double Length() const { return last - first; }
};

// The span of the parameter's keyframes on a clip of `duration`; one that
// holds when there are fewer than two times.
KeyedSpan SpanOnClip(const CParam& param, mtime duration, mtime minDuration);

// Where a time outside the span is read inside it: `cycles` whole spans
// away (negative before it), running backwards (direction -1) on the odd
// swings of Oscillate.
struct Repeat {
  double time;
  double cycles;
  double direction;
};

inline Repeat MapIntoSpan(unsigned int mode, double t, const KeyedSpan& span) {
  const double length = span.Length();
  const double cycles = std::floor((t - span.first) / length);
  double into = t - span.first - cycles * length;
  // Rounding may leave it a hair outside [0, length].
  if (into < 0.0) into = 0.0;
  if (into > length) into = length;
  const bool back = mode == EXTRAPOLATION_OSCILLATE && std::fmod(cycles, 2.0) != 0.0;
  return {back ? span.last - into : span.first + into, cycles, back ? -1.0 : 1.0};
}

// The mode that applies at `t`: Hold inside the span, for a span that
// holds, and for NaN.
inline unsigned int ModeAt(const Extrapolation& modes, const KeyedSpan& span, double t) {
  if (span.Holds()) return EXTRAPOLATION_HOLD;
  if (t < span.first) return modes.before;
  if (t > span.last) return modes.after;
  return EXTRAPOLATION_HOLD;
}

// The time a stepping (Bool) value is read at: repeats map into the span;
// the other modes hold, as a step has no slope to go on with or offset to add.
inline double SteppedTime(const Extrapolation& modes, const KeyedSpan& span, double t) {
  const unsigned int mode = ModeAt(modes, span, t);
  if (mode < EXTRAPOLATION_CYCLE || mode > EXTRAPOLATION_OSCILLATE) return t;
  return MapIntoSpan(mode, t, span).time;
}

// The extrapolated value before limits, with its slope. `blend(x)` is the
// keyframed value before limits at walk time x with its slope (ValueSlope).
// The slope at the end of the span is the one of the segment that ends
// there; at its start, that of the segment that starts there.
template <typename Blend>
ValueSlope ExtrapolatedBlend(const Extrapolation& modes, const KeyedSpan& span, double t,
                             Blend blend) {
  const unsigned int mode = ModeAt(modes, span, t);
  const bool before = t < span.first;
  switch (mode) {
    case EXTRAPOLATION_LINEAR: {
      const double end = before ? span.first : span.last;
      const ValueSlope at = blend(end);
      const double slope =
          before ? at.slope
                 : blend(std::nextafter(end, -std::numeric_limits<double>::infinity())).slope;
      // A level end stays level out to infinite times, where 0 * inf is NaN.
      if (slope == 0.0) return at;
      return {at.value + slope * (t - end), slope};
    }
    case EXTRAPOLATION_CYCLE:
    case EXTRAPOLATION_CYCLEWITHOFFSET:
    case EXTRAPOLATION_OSCILLATE: {
      const Repeat repeat = MapIntoSpan(mode, t, span);
      ValueSlope v = blend(repeat.time);
      v.slope *= repeat.direction;
      if (mode == EXTRAPOLATION_CYCLEWITHOFFSET) {
        v.value += repeat.cycles * (blend(span.last).value - blend(span.first).value);
      }
      return v;
    }
    default:
      return blend(t);
  }
}

// The area under the extrapolated value from time 0 to `t`, given
// `integral(x)`, the parameter's own integral from 0 to x, and `blend` as
// above. Inside the span it is the parameter's own; each repeat adds the
// span's area as the parameter's integral counts it (offsets and linear
// ends exactly).
template <typename Integral, typename Blend>
double ExtrapolatedIntegral(const Extrapolation& modes, const KeyedSpan& span, double t,
                            Integral integral, Blend blend);

// ExtrapolatedBlend of a parameter as the typed getters read it (LiveParam
// or EvalCache::View).
template <typename Param>
ValueSlope ExtrapolatedParamBlend(const Param& param, const Extrapolation& modes, mtime time,
                                  mtime duration, mtime minDuration, double def) {
  const KeyedSpan span = SpanOnClip(param.Param(), duration, minDuration);
  return ExtrapolatedBlend(modes, span, static_cast<double>(time),
                           [&](double x) { return param.Slope(x, duration, minDuration, def); });
}

namespace extrapolation_detail {

// An antiderivative of the extrapolated value: the parameter's integral
// inside the span (and on a held end), carried on outside it.
template <typename Integral, typename Blend>
double Antiderivative(const Extrapolation& modes, const KeyedSpan& span, double x,
                      Integral integral, Blend blend) {
  const unsigned int mode = ModeAt(modes, span, x);
  if (mode == EXTRAPOLATION_HOLD || mode > EXTRAPOLATION_OSCILLATE) return integral(x);
  const bool before = x < span.first;
  const double end = before ? span.first : span.last;
  const double atEnd = integral(end);
  if (mode == EXTRAPOLATION_LINEAR) {
    const ValueSlope line = ExtrapolatedBlend(modes, span, x, blend);
    const double dx = x - end;
    // The line's value at x less its slope's rise gives the value at the end.
    return atEnd + (line.value - 0.5 * line.slope * dx) * dx;
  }
  const double length = span.Length();
  const double first = integral(span.first), last = integral(span.last);
  const double area = last - first;
  const Repeat repeat = MapIntoSpan(mode, x, span);
  const double into = repeat.direction > 0.0 ? repeat.time - span.first : span.last - repeat.time;
  // The part of x's repeat from its start to x.
  const double partial =
      repeat.direction > 0.0 ? integral(repeat.time) - first : last - integral(repeat.time);
  double offset = 0.0;
  if (mode == EXTRAPOLATION_CYCLEWITHOFFSET) {
    offset = blend(span.last).value - blend(span.first).value;
  }
  // Repeat k (k = cycles) spans [first + kL, first + (k + 1)L] and adds k *
  // offset to the span's values; from the span's start to x that is the
  // whole repeats 0 .. k - 1 (or back to k + 1 .. -1) and x's part.
  const double k = repeat.cycles;
  const double wholeRepeats = k * area + offset * length * k * (k - 1.0) * 0.5;
  return first + wholeRepeats + partial + offset * k * into;
}

}  // namespace extrapolation_detail

template <typename Integral, typename Blend>
double ExtrapolatedIntegral(const Extrapolation& modes, const KeyedSpan& span, double t,
                            Integral integral, Blend blend) {
  using extrapolation_detail::Antiderivative;
  const double at = Antiderivative(modes, span, t, integral, blend);
  // The parameter's integral counts from its own start; only where the
  // clip starts outside a held end does the area before 0 come off.
  if (ModeAt(modes, span, 0.0) == EXTRAPOLATION_HOLD) return at;
  return at - Antiderivative(modes, span, 0.0, integral, blend) + integral(0.0);
}

}  // namespace qdcore
