// The host API's curve simplification: a densely keyed Double parameter
// sampled, thinned by the pure scan of qdsimplify.h, written back, and
// measured again through evaluation itself. Should the measurement exceed
// the tolerance (a curve the scan's model does not foresee), the original
// keyframes are put back.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include "qdhostapi.h"
#include "qdkeys.h"
#include "qdparam/keyframe.h"
#include "qdparamevaluation.h"
#include "qdrestrictions.h"
#include "qdsimplify.h"

namespace qd {

using namespace qdcore;

namespace {

// Samples inside each interval, the last just before its end. A straight
// piece over straight or held frames differs most at the keyframes, so the
// middle is enough; a Bezier piece bulges, and curved or eased frames and
// limits bend between keyframes, which closer samples catch.
unsigned int SamplesPerInterval(simplify::Shape shape, const DoubleLimits& limits,
                                const std::vector<Keyframe>& keys) {
  const auto straight = [](const Keyframe& key) {
    return (key.interpolation == Interpolation::Linear ||
            key.interpolation == Interpolation::Hold) &&
           key.ease == Ease::None;
  };
  const bool limited = limits.hasMin || limits.hasMax;
  const bool allStraight = std::all_of(keys.begin(), keys.end() - 1, straight);
  return shape == simplify::Shape::Linear && !limited && allStraight ? 2 : 8;
}

// A number as people write it: 0.5, 1e-07.
std::string Shortest(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%g", value);
  return text;
}

// The keyframes that fix the parameter's minimum duration (the absolute one
// latest from the start, the one longest back from the end): removing one
// would move every other absolute keyframe on a short clip. And the inner
// keyframe of an end segment whose slope a linear extrapolation continues.
std::vector<unsigned char> Pinned(const CParam& param, const std::vector<Keyframe>& keys) {
  std::vector<unsigned char> pinned(keys.size(), 0);
  std::size_t forward = keys.size(), backward = keys.size();
  double latest = 0.0, longest = 0.0;
  for (std::size_t i = 0; i < keys.size(); ++i) {
    const KeyPosition position = ReadKeyPosition(*param.Get(keys[i].index));
    if (position.qualifier != KEYFRAME_ABSOLUTE && position.qualifier != KEYFRAME_FIXED_ABSOLUTE) {
      continue;
    }
    if (position.number >= latest) {
      latest = position.number;
      forward = i;
    }
    if (-position.number > longest) {
      longest = -position.number;
      backward = i;
    }
  }
  if (forward < keys.size()) pinned[forward] = 1;
  if (backward < keys.size()) pinned[backward] = 1;
  // A linear extrapolation goes on with the slope of the end segment, which
  // stays as it was only with both its keyframes.
  if (keys.size() > 2 && param.GetExtrapolationBefore() == EXTRAPOLATION_LINEAR) pinned[1] = 1;
  if (keys.size() > 2 && param.GetExtrapolationAfter() == EXTRAPOLATION_LINEAR) {
    pinned[keys.size() - 2] = 1;
  }
  return pinned;
}

// `kf` made to start a fitted piece from `from` to `to` (clip times).
void Reshape(CKeyFrame& kf, simplify::Shape shape, const simplify::Piece& piece, double from,
             double to, double duration) {
  kf.SetTimeTranslation(0);
  if (shape == simplify::Shape::Linear) {
    kf.SetInterpolation(INTERPOLATION_LINEAR);
    kf.SetAnchors(nullptr, 0);
    return;
  }
  // Handles at thirds of the piece's time: its time then runs evenly.
  const double third = (to - from) / 3.0 / duration;
  const qdcore::Anchor handles[2] = {{third, piece.outValue}, {-third, piece.inValue}};
  kf.SetInterpolation(INTERPOLATION_BEZIER);
  kf.SetAnchors(handles, 2);
}

// Replaces every keyframe of `param` by `keys`, in order.
void ReplaceKeys(CParam& param, const std::vector<CKeyFrame>& keys, double duration) {
  // From the end, so that nothing behind a removed keyframe moves.
  for (unsigned int n = param.GetSize(); n > 0; --n) param.Remove(n - 1);
  for (const CKeyFrame& kf : keys) param.Add(kf, duration, false);
  ParamEvaluation::ForgetMinDuration(param);
}

// The largest difference between two sample lists; NaN against NaN counts
// as none, NaN against a number as infinite.
double LargestDifference(const std::vector<double>& a, const std::vector<double>& b) {
  double largest = 0.0;
  for (std::size_t i = 0; i < a.size() && i < b.size(); ++i) {
    if (std::isnan(a[i]) && std::isnan(b[i])) continue;
    const double d = std::fabs(a[i] - b[i]);
    largest = std::isnan(d) ? std::numeric_limits<double>::infinity() : std::max(largest, d);
  }
  return largest;
}

// Rounding room for the measurement: evaluation blends in its own order
// of operations, so a piece fitted exactly may measure a few ulps off.
double RoundingRoom(const std::vector<double>& values) {
  double largest = 1.0;
  for (const double v : values) {
    if (std::isfinite(v)) largest = std::max(largest, std::fabs(v));
  }
  return largest * 1e-12;
}

// The original curve's samples, and room for the simplified one's.
struct Sampled {
  std::vector<double> keyTimes, keyValues, times, atKeys, values;
  std::vector<double> atKeysAfter, valuesAfter;
};

Sampled Sample(const Param& param, const std::vector<Keyframe>& keys, unsigned int per) {
  Sampled s;
  for (const Keyframe& key : keys) {
    s.keyTimes.push_back(key.time);
    s.keyValues.push_back(key.value);
  }
  s.times = simplify::SampleTimes(s.keyTimes, per);
  s.atKeys.resize(keys.size());
  s.values.resize(s.times.size());
  param.values(s.keyTimes, s.atKeys);
  param.values(s.times, s.values);
  s.atKeysAfter.resize(keys.size());
  s.valuesAfter.resize(s.times.size());
  return s;
}

// The largest difference between the curve sampled before and now.
double MeasureAgain(const Param& param, Sampled& s) {
  param.values(s.keyTimes, s.atKeysAfter);
  param.values(s.times, s.valuesAfter);
  return std::max(LargestDifference(s.atKeys, s.atKeysAfter),
                  LargestDifference(s.values, s.valuesAfter));
}

// Why `param` cannot be simplified, or nothing.
std::optional<Error> Refusal(const Param& param, const CParam& p, double tolerance,
                             Interpolation shape) {
  if (!std::isfinite(tolerance) || tolerance < 0.0) {
    return detail::Failure("the tolerance must be a finite number, 0 or more");
  }
  if (shape != Interpolation::Linear && shape != Interpolation::Bezier) {
    return detail::Failure("a curve simplifies to Linear or Bezier segments only");
  }
  const std::string name = param.name();
  if (p.GetType() != PARAM_DOUBLE) return detail::Failure(name + " is not a Double parameter");
  if (!param.keyframed()) return detail::Failure(name + " is not animated by keyframes");
  if (!param.active()) return detail::Failure(name + " is inactive: its keyframes are not shown");
  if (p.GetTimeTranslation() == TIMETRANSLATION_EASEINOUT) {
    return detail::Failure(name + " eases its whole clip, which simplification does not follow");
  }
  double grid = 0.0;
  if (p.GetGranularityDouble(grid) && grid > 0.0) {
    return detail::Failure(name + " snaps to steps of " + Shortest(grid) +
                           ", which no sampling can follow between keyframes");
  }
  if (!(p.GetAllowedInterpolation() & (1u << static_cast<unsigned int>(shape)))) {
    return detail::Failure(std::string(name_of(shape)) + " is not allowed for " + name);
  }
  return std::nullopt;
}

// The keyframes that start each piece, reshaped where a piece spans
// several of the originals, and the last one.
std::vector<CKeyFrame> KeptKeys(const std::vector<CKeyFrame>& originals,
                                const std::vector<simplify::Piece>& pieces, simplify::Shape shape,
                                const std::vector<double>& keyTimes, const CParamSet& set) {
  const double start = set.GetStartTime(), duration = set.GetDuration();
  std::vector<CKeyFrame> kept;
  kept.reserve(pieces.size() + 1);
  for (const simplify::Piece& piece : pieces) {
    kept.push_back(originals[piece.from]);
    if (piece.to == piece.from + 1) continue;
    Reshape(kept.back(), shape, piece, keyTimes[piece.from] - start, keyTimes[piece.to] - start,
            duration);
  }
  kept.push_back(originals.back());
  return kept;
}

}  // namespace

Result<SimplifyReport> Param::simplify(double tolerance, Interpolation shape) try {
  CParam* p = Resolve();
  if (!p) return detail::Failure("the parameter is no longer in its set");
  if (std::optional<Error> refused = Refusal(*this, *p, tolerance, shape)) return *refused;
  const std::vector<Keyframe> keys = this->keys();
  for (std::size_t i = 0; i < keys.size(); ++i) {
    if (keys[i].index != i) {
      return detail::Failure("the keyframes of " + name() + " are not stored in time order");
    }
  }
  if (keys.size() < 3) return SimplifyReport{keys.size(), keys.size(), 0.0};

  const auto fit =
      shape == Interpolation::Linear ? simplify::Shape::Linear : simplify::Shape::Bezier;
  const DoubleLimits limits = ReadDoubleLimits(*p);
  const unsigned int per = SamplesPerInterval(fit, limits, keys);
  Sampled s = Sample(*this, keys, per);
  const std::vector<unsigned char> pinned = Pinned(*p, keys);
  const simplify::Samples curve{s.keyTimes, s.keyValues, s.atKeys, s.times, s.values, per, pinned};
  const std::vector<simplify::Piece> pieces = simplify::Simplify(curve, tolerance, fit, limits);
  if (pieces.empty()) return detail::Failure("the keyframes of " + name() + " cannot be read");

  std::vector<CKeyFrame> originals;
  originals.reserve(keys.size());
  for (unsigned int i = 0; i < keys.size(); ++i) originals.push_back(*p->Get(i));
  const std::vector<CKeyFrame> kept = KeptKeys(originals, pieces, fit, s.keyTimes, m_state->set);
  const double duration = m_state->set.GetDuration();
  ReplaceKeys(*p, kept, duration);
  const double deviation = MeasureAgain(*this, s);
  if (!(deviation <= tolerance + RoundingRoom(s.values))) {
    ReplaceKeys(*p, originals, duration);
    return detail::Failure(name() + " could not be simplified within the tolerance (it would " +
                           "differ by " + Shortest(deviation) + "); nothing was changed");
  }
  return SimplifyReport{keys.size(), kept.size(), deviation};
} catch (const std::bad_alloc&) {
  // The samples and the copies are all made before the keyframes are replaced.
  return detail::Failure("out of memory");
}

}  // namespace qd
