// The motion path's curve and its arc length (see qdmotionpath.h).
#include "qdmotionpath.h"

#include <algorithm>
#include <cmath>

namespace qdcore {

namespace {

double Distance(const PathPoint& a, const PathPoint& b, unsigned int dimensions) {
  double sum = 0.0;
  for (unsigned int i = 0; i < dimensions; ++i) sum += (b[i] - a[i]) * (b[i] - a[i]);
  return std::sqrt(sum);
}

PathPoint Mirror(const PathPoint& about, const PathPoint& other, unsigned int dimensions) {
  PathPoint p{};
  for (unsigned int i = 0; i < dimensions; ++i) p[i] = about[i] + (about[i] - other[i]);
  return p;
}

// Eight-point Gauss-Legendre on [-1, 1]: exact for polynomials of degree 15.
constexpr double kNodes[4] = {0.1834346424956498, 0.5255324099163290, 0.7966664774136267,
                              0.9602898564975363};
constexpr double kWeights[4] = {0.3626837833783620, 0.3137066458778873, 0.2223810344533745,
                                0.1012285362903763};

}  // namespace

PathSegment CentripetalSegment(const PathPoint& p0, const PathPoint& p1, const PathPoint& p2,
                               const PathPoint& p3, unsigned int dimensions) {
  PathSegment s;
  s.dimensions = dimensions;
  s.start = p1;
  s.end = p2;
  const double d12 = Distance(p1, p2, dimensions);
  if (!(d12 > 0.0)) return s;  // a point: no tangents
  const PathPoint before = Distance(p0, p1, dimensions) > 0.0 ? p0 : Mirror(p1, p2, dimensions);
  const PathPoint after = Distance(p2, p3, dimensions) > 0.0 ? p3 : Mirror(p2, p1, dimensions);
  const double t01 = std::sqrt(Distance(before, p1, dimensions));
  const double t12 = std::sqrt(d12);
  const double t23 = std::sqrt(Distance(p2, after, dimensions));
  for (unsigned int i = 0; i < dimensions; ++i) {
    const double m1 =
        (p1[i] - before[i]) / t01 - (p2[i] - before[i]) / (t01 + t12) + (p2[i] - p1[i]) / t12;
    const double m2 =
        (p2[i] - p1[i]) / t12 - (after[i] - p1[i]) / (t12 + t23) + (after[i] - p2[i]) / t23;
    s.startTangent[i] = m1 * t12;
    s.endTangent[i] = m2 * t12;
  }
  return s;
}

PathPoint PointOnSegment(const PathSegment& s, double u) {
  const double u2 = u * u, u3 = u2 * u;
  const double h00 = 2 * u3 - 3 * u2 + 1, h10 = u3 - 2 * u2 + u;
  const double h01 = -2 * u3 + 3 * u2, h11 = u3 - u2;
  PathPoint p{};
  for (unsigned int i = 0; i < s.dimensions; ++i) {
    p[i] = h00 * s.start[i] + h10 * s.startTangent[i] + h01 * s.end[i] + h11 * s.endTangent[i];
  }
  return p;
}

PathArcLength::PathArcLength(const PathSegment& segment) : m_segment(segment) {
  for (unsigned int k = 0; k < kPanels; ++k) {
    m_prefix[k + 1] = m_prefix[k] + PanelLength(static_cast<double>(k) / kPanels,
                                                static_cast<double>(k + 1) / kPanels);
  }
}

double PathArcLength::Speed(double u) const {
  const PathSegment& s = m_segment;
  const double u2 = u * u;
  const double d00 = 6 * u2 - 6 * u, d10 = 3 * u2 - 4 * u + 1;
  const double d01 = -6 * u2 + 6 * u, d11 = 3 * u2 - 2 * u;
  double sum = 0.0;
  for (unsigned int i = 0; i < s.dimensions; ++i) {
    const double v =
        d00 * s.start[i] + d10 * s.startTangent[i] + d01 * s.end[i] + d11 * s.endTangent[i];
    sum += v * v;
  }
  return std::sqrt(sum);
}

double PathArcLength::PanelLength(double from, double to) const {
  const double half = (to - from) * 0.5, middle = (to + from) * 0.5;
  double sum = 0.0;
  for (int i = 0; i < 4; ++i) {
    sum += kWeights[i] * (Speed(middle - half * kNodes[i]) + Speed(middle + half * kNodes[i]));
  }
  return sum * half;
}

double PathArcLength::LengthTo(double u) const {
  u = std::clamp(u, 0.0, 1.0);
  const auto panel = std::min(static_cast<unsigned int>(u * kPanels), kPanels - 1);
  return m_prefix[panel] + PanelLength(static_cast<double>(panel) / kPanels, u);
}

// Newton's method on the length, kept inside a bracket that bisection
// narrows whenever a step would leave it (where the speed nearly vanishes).
double PathArcLength::ParameterAt(double share) const {
  const double total = Total();
  if (!(share > 0.0) || !(total > 0.0)) return 0.0;
  if (share >= 1.0) return 1.0;
  const double target = share * total;
  const auto panel = static_cast<unsigned int>(
      std::upper_bound(m_prefix.begin(), m_prefix.end(), target) - m_prefix.begin() - 1);
  double lo = static_cast<double>(std::min(panel, kPanels - 1)) / kPanels;
  double hi = std::min(lo + 1.0 / kPanels, 1.0);
  double u = lo + (hi - lo) * 0.5;
  const double tolerance = 1e-14 * total;
  for (int step = 0; step < 100; ++step) {
    const double error = LengthTo(u) - target;
    if (std::fabs(error) <= tolerance) break;
    if (error > 0.0) {
      hi = u;
    } else {
      lo = u;
    }
    const double speed = Speed(u);
    double next = speed > 0.0 ? u - error / speed : lo;
    if (!(next > lo && next < hi)) next = lo + (hi - lo) * 0.5;
    if (next == u || hi - lo <= 1e-16) break;
    u = next;
  }
  return u;
}

}  // namespace qdcore
