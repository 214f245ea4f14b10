// Curve simplification: the greedy scan and the fit of one piece.
#include "qdsimplify.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

namespace qdcore::simplify {

namespace {

// The cubic Bernstein weights of the two handles at u.
struct HandleWeights {
  double out, in;
};
HandleWeights WeightsAt(double u) {
  const double r = 1.0 - u;
  return {3.0 * u * r * r, 3.0 * u * u * r};
}

// The curve through both ends with handles of zero value offset, at u.
double BaseAt(double u, double v0, double v1) {
  const double r = 1.0 - u;
  const HandleWeights w = WeightsAt(u);
  return v0 * (r * r * r + w.out) + v1 * (w.in + u * u * u);
}

class Fitter {
 public:
  Fitter(const Samples& curve, double tolerance, Shape shape, const DoubleLimits& limits)
      : m_curve(curve),
        m_tolerance(tolerance),
        m_shape(shape),
        m_limits(limits),
        m_plainClamp(IsPlainClamp(limits)) {}

  // Whether one piece from keyframe `a` to `b` keeps every sample between
  // them within the tolerance; `piece` gets it when it does.
  bool Fits(unsigned int a, unsigned int b, Piece& piece) const {
    piece = Piece{a, b};
    if (m_shape == Shape::Bezier) FitHandles(piece);
    const double t0 = m_curve.keyTimes[a], t1 = m_curve.keyTimes[b];
    const double v0 = m_curve.keyValues[a], v1 = m_curve.keyValues[b];
    return AllSamples(a, b, [&](double t, double value) {
      return std::fabs(Restrict(Model(piece, t, t0, t1, v0, v1)) - value) <= m_tolerance;
    });
  }

 private:
  // Calls visit(time, value) for each sample from just after keyframe `a`
  // to just before keyframe `b`, while it answers true.
  template <typename Visit>
  bool AllSamples(unsigned int a, unsigned int b, Visit visit) const {
    const unsigned int per = m_curve.perInterval;
    for (unsigned int i = a; i < b; ++i) {
      if (i > a && !visit(m_curve.keyTimes[i], m_curve.atKeys[i])) return false;
      for (std::size_t k = std::size_t{i} * per; k < std::size_t{i + 1} * per; ++k) {
        if (!visit(m_curve.times[k], m_curve.values[k])) return false;
      }
    }
    return true;
  }

  // The piece as evaluation blends it: a Linear segment as the library
  // weighs it, or a Bezier segment whose handles lie at thirds of its time,
  // so that its time runs evenly and u is the share of the piece.
  double Model(const Piece& piece, double t, double t0, double t1, double v0, double v1) const {
    if (m_shape == Shape::Linear) return (v1 * (t - t0) + v0 * (t1 - t)) / (t1 - t0);
    const double u = (t - t0) / (t1 - t0);
    const HandleWeights w = WeightsAt(u);
    return BaseAt(u, v0, v1) + piece.outValue * w.out + piece.inValue * w.in;
  }

  double Restrict(double value) const {
    return m_plainClamp ? ClampToOrderedLimits(m_limits, value)
                        : EnforceDoubleLimits(m_limits, value);
  }

  // The handles' value offsets by least squares over the piece's samples,
  // its ends fixed; zero (a straight piece) when the samples cannot tell
  // the two handles apart.
  void FitHandles(Piece& piece) const {
    const double t0 = m_curve.keyTimes[piece.from], t1 = m_curve.keyTimes[piece.to];
    const double v0 = m_curve.keyValues[piece.from], v1 = m_curve.keyValues[piece.to];
    double oo = 0, oi = 0, ii = 0, ro = 0, ri = 0;
    AllSamples(piece.from, piece.to, [&](double t, double value) {
      const double u = (t - t0) / (t1 - t0);
      const HandleWeights w = WeightsAt(u);
      const double rest = value - BaseAt(u, v0, v1);
      oo += w.out * w.out;
      oi += w.out * w.in;
      ii += w.in * w.in;
      ro += w.out * rest;
      ri += w.in * rest;
      return true;
    });
    const double det = oo * ii - oi * oi;
    if (!(det > 1e-12 * oo * ii)) return;
    const double out = (ro * ii - ri * oi) / det, in = (oo * ri - oi * ro) / det;
    if (!std::isfinite(out) || !std::isfinite(in)) return;
    piece.outValue = out;
    piece.inValue = in;
  }

  const Samples& m_curve;
  double m_tolerance;
  Shape m_shape;
  DoubleLimits m_limits;
  bool m_plainClamp;
};

bool Consistent(const Samples& c) {
  const std::size_t n = c.keyTimes.size();
  return n >= 2 && c.perInterval > 0 && c.keyValues.size() == n && c.atKeys.size() == n &&
         c.times.size() == (n - 1) * c.perInterval && c.values.size() == c.times.size() &&
         (c.pinned.empty() || c.pinned.size() == n);
}

// For each keyframe, the first keyframe after it that must stay (the last
// one always does).
std::vector<unsigned int> NextPinned(const Samples& c) {
  const auto n = static_cast<unsigned int>(c.keyTimes.size());
  const auto pinned = [&](unsigned int i) {
    return (!c.pinned.empty() && c.pinned[i]) || (i > 0 && c.keyTimes[i] == c.keyTimes[i - 1]) ||
           (i + 1 < n && c.keyTimes[i] == c.keyTimes[i + 1]);
  };
  std::vector<unsigned int> next(n, n - 1);
  for (unsigned int i = n - 1; i-- > 0;) next[i] = pinned(i + 1) ? i + 1 : next[i + 1];
  return next;
}

// The longest piece from `a` to at most `limit` that the scan finds:
// doubling its length until it fails, then halving the gap.
Piece LongestFrom(const Fitter& fitter, unsigned int a, unsigned int limit) {
  Piece best{a, a + 1}, trial;
  unsigned int failed = limit + 1;  // none yet
  for (std::uint64_t length = 2; best.to < limit; length *= 2) {
    const unsigned int b = length >= limit - a ? limit : a + static_cast<unsigned int>(length);
    if (!fitter.Fits(a, b, trial)) {
      failed = b;
      break;
    }
    best = trial;
  }
  while (failed <= limit && failed - best.to > 1) {
    const unsigned int middle = best.to + (failed - best.to) / 2;
    if (fitter.Fits(a, middle, trial)) {
      best = trial;
    } else {
      failed = middle;
    }
  }
  return best;
}

}  // namespace

std::vector<double> SampleTimes(std::span<const double> keyTimes, unsigned int perInterval) {
  std::vector<double> times;
  if (keyTimes.size() < 2 || perInterval == 0) return times;
  times.reserve((keyTimes.size() - 1) * perInterval);
  for (std::size_t i = 0; i + 1 < keyTimes.size(); ++i) {
    const double t0 = keyTimes[i], t1 = keyTimes[i + 1];
    for (unsigned int k = 1; k < perInterval; ++k)
      times.push_back(t0 + (t1 - t0) * k / perInterval);
    times.push_back(std::nextafter(t1, -std::numeric_limits<double>::infinity()));
  }
  return times;
}

std::vector<Piece> Simplify(const Samples& curve, double tolerance, Shape shape,
                            const DoubleLimits& limits) {
  if (!Consistent(curve)) return {};
  const Fitter fitter(curve, tolerance, shape, limits);
  const std::vector<unsigned int> next = NextPinned(curve);
  const auto last = static_cast<unsigned int>(curve.keyTimes.size() - 1);
  std::vector<Piece> pieces;
  for (unsigned int a = 0; a < last;) {
    pieces.push_back(LongestFrom(fitter, a, next[a]));
    a = pieces.back().to;
  }
  return pieces;
}

}  // namespace qdcore::simplify
