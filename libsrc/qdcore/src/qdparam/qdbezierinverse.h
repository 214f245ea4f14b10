// The inverse of a one-dimensional cubic Bezier in two steps: what depends
// on the curve alone, worked out once, then the solve for one value. A
// segment's time curve stays the same while its time is asked for again and
// again, so evaluation keeps the first step (qdevalcache.h).
// FindUForBezierValue is these two steps back to back: every caller gets
// the same bits.
//
// The solve for one value and the curve's value at u are written here,
// inline, so that a loop over the samples of a segment (a value array) runs
// them without a call, and several samples at once.
#pragma once

#include <cmath>
#include <cstddef>

#include "qdparam/export.h"

namespace qdcore {

struct BezierInverse {
  double p0 = 0.0, p3 = 0.0;  // the ends, which answer without solving
  double a = 0.0;             // a u^3 + b u^2 + c u + d = 0, d = p0 - x
  double b = 0.0, c = 0.0;
  bool cubic = false;  // a is not zero
  // The normalised cubic u^3 + e1 u^2 + e2 u + e3: the parts of its Q and R
  // that do not depend on e3, and its three-root form.
  double e1 = 0.0, e2 = 0.0;
  double rLead = 0.0;  // 2 e1^3 - 9 e1 e2, the start of R's numerator
  double q = 0.0, q3 = 0.0;
  double rootQ3 = 0.0, k = 0.0;  // sqrt(Q^3) and -2 sqrt(Q)
  // The three-root form's roots that the curve lets fall in range, in the
  // order they are tried, each as the shift of its angle: root i is
  // k cos((theta + shift) / 3) - e1 / 3 with shift 0, 2 pi or -2 pi.
  double rootShifts[3] = {};
  int rootCount = 0;
  double e1Third = 0.0;
  // The quadratic's discriminant, but for d.
  double cSquared = 0.0, fourB = 0.0;
};

// Exported, though the header is private, so that the tests reach them.
QDPARAM_API BezierInverse PrepareBezierInverse(double p0, double p1, double p2, double p3);
// The u at which the curve equals x; reports and gives 0.0 when none is in
// range.
QDPARAM_API double SolveBezierInverse(const BezierInverse& curve, double x);
// The same without the report: false, and `u` unspecified, when none is.
QDPARAM_API bool TrySolveBezierInverse(const BezierInverse& curve, double x, double& u);
// TrySolveBezierInverse for x[0 .. count), several values at once: u[i] for
// each; the number solved before the first value without a root (count
// when every value has one). u beyond that number is unspecified.
QDPARAM_API std::size_t TrySolveBezierInverses(const BezierInverse& curve, const double* x,
                                               double* u, std::size_t count);

namespace bezierinverse {

// Coefficients below this size count as zero: the curve then degenerates to
// a lower degree and the higher-degree formulas would divide by noise.
inline constexpr double kZero = 1e-10;
// Roots may overshoot [0, 1] by rounding; accept them within this margin.
inline constexpr double kUpperU = 1.0000000001;
// A slightly negative discriminant is rounding noise of a double root.
inline constexpr double kDiscriminantNoise = 0.0001;
inline constexpr double kTwoPi = 6.283185307179586;
inline constexpr double kOneThird = 0.3333333333333333;

// The calls into the maths library that a solve makes, apart from the
// square roots (one instruction each). A parameter of the solve, so that a
// benchmark can record them and replay them alone: the floor of the solve.
struct Libm {
  static double Acos(double v) { return std::acos(v); }
  static double Cos(double v) { return std::cos(v); }
  static double CubeRoot(double v) { return std::pow(v, kOneThird); }
};

inline double Sign(double v) { return v > 0.0 ? 1.0 : (v < 0.0 ? -1.0 : 0.0); }

inline bool InOpenRange(double u) { return -kZero < u && u < kUpperU; }

// ---- the cubic case, step by step: the trigonometric and Cardano forms of
// the normalised cubic, with only e3 (that is, d) new for each value. A
// solve runs the steps one after the other; a solve for many values runs
// each step over all of them before the next.

// R for d: the one part of the cubic's Q and R that d changes.
inline double CubicR(const BezierInverse& f, double d) {
  const double e3 = d / f.a;
  return (f.rLead + 27 * e3) / 54;
}

// Q^3 <= R^2: one real root. R^2 is pow(R, 2.0), which an optimising build
// makes R * R.
inline bool HasOneRealRoot(const BezierInverse& f, double R) { return f.q3 <= std::pow(R, 2.0); }

// The one real root (Cardano's form), returned as it is, given the cube root
// of CubeRootArgument.
inline double CubeRootArgument(const BezierInverse& f, double R) {
  return std::sqrt(std::pow(R, 2.0) - f.q3) + std::fabs(R);
}
inline double CardanoRoot(const BezierInverse& f, double R, double cubeRoot) {
  const double A = -Sign(R) * cubeRoot;
  // Q / A is taken whatever A (by 1 for 0, then dropped), so that a loop of
  // these runs several at once.
  const double quotient = f.q / (A != 0.0 ? A : 1.0);
  const double Bq = A != 0.0 ? quotient : 0.0;
  return Bq + A - f.e1Third;
}

// Three real roots: the angle theta is the arc cosine of AngleCosine.
inline double AngleCosine(const BezierInverse& f, double R) { return R / f.rootQ3; }

// The first of the three-root form's roots that falls in range, clamped
// into [0, 1]; false when none does. Each costs a cosine, so it is taken
// only for a root that the curve lets fall in range, and only when the ones
// before it did not. The first root's shift of 0 leaves theta as it is
// (acos never gives -0).
template <typename Math>
bool TrigonometricRoot(const BezierInverse& f, double theta, double& u) {
  for (int i = 0; i < f.rootCount; ++i) {
    const double x = f.k * Math::Cos((theta + f.rootShifts[i]) / 3) - f.e1Third;
    if (-kZero <= x && x <= kUpperU) {
      u = x < 0.0 ? 0.0 : (x > 1.0 ? 1.0 : x);
      return true;
    }
  }
  return false;
}

template <typename Math>
bool SolveCubic(const BezierInverse& f, double d, double& u) {
  const double R = CubicR(f, d);
  if (HasOneRealRoot(f, R)) {
    u = CardanoRoot(f, R, Math::CubeRoot(CubeRootArgument(f, R)));
    return true;
  }
  return TrigonometricRoot<Math>(f, Math::Acos(AngleCosine(f, R)), u);
}

// b u^2 + c u + d = 0, falling back to the linear root when b vanishes. The
// roots are formed without cancellation (q, then q/b and d/q).
inline bool SolveQuadratic(const BezierInverse& f, double d, double& u) {
  if (-kZero < f.b && f.b < kZero) {
    u = -(d / f.c);
    return true;
  }
  double disc = f.cSquared - f.fourB * d;
  if (disc < 0.0) {
    if (std::fabs(disc) >= kDiscriminantNoise) return false;
    disc = 0.0;
  }
  const double q = -0.5 * (f.c + Sign(f.c) * std::sqrt(disc));
  const double r1 = q / f.b, r2 = d / q;
  if (InOpenRange(r1)) return u = r1, true;
  if (InOpenRange(r2)) return u = r2, true;
  return false;
}

}  // namespace bezierinverse

// TrySolveBezierInverse, inline, with the maths library's calls made
// through `Math`.
template <typename Math = bezierinverse::Libm>
inline bool TrySolveBezierInverseWith(const BezierInverse& curve, double x, double& u) {
  if (curve.p0 == x) return u = 0.0, true;
  if (curve.p3 == x) return u = 1.0, true;
  const double d = curve.p0 - x;
  return curve.cubic ? bezierinverse::SolveCubic<Math>(curve, d, u)
                     : bezierinverse::SolveQuadratic(curve, d, u);
}

// BezierValue (qdparam/qdcalc.h), inline: the same terms in the same order.
inline double BezierValueInline(double u, double p0, double p1, double p2, double p3) {
  return 3 * u * u * (1 - u) * p2 +
         ((1 - u) * (1 - u) * (1 - u) * p0 + 3 * u * (1 - u) * (1 - u) * p1) + u * u * u * p3;
}

}  // namespace qdcore
