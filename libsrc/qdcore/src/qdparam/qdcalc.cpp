// The cubic Bezier, its analytic inverse and the eased time translations.
#include "qdparam/qdcalc.h"

#include <cmath>

#include "qdcore/core.h"

namespace qdcore {

namespace {

// Coefficients below this size count as zero: the curve then degenerates to
// a lower degree and the higher-degree formulas would divide by noise.
constexpr double kZero = 1e-10;
// Roots may overshoot [0, 1] by rounding; accept them within this margin.
constexpr double kUpperU = 1.0000000001;
// A slightly negative discriminant is rounding noise of a double root.
constexpr double kDiscriminantNoise = 0.0001;
constexpr double kTwoPi = 6.283185307179586;
constexpr double kOneThird = 0.3333333333333333;

double Sign(double v) noexcept { return v > 0.0 ? 1.0 : (v < 0.0 ? -1.0 : 0.0); }

bool InOpenRange(double u) noexcept { return -kZero < u && u < kUpperU; }

double ReportNoRoot() {
  ReportFailure("FindUForBezierValue - illegal internal state", kIllegalCodePointReached,
                __FILE_NAME__, __LINE__,
                "double __cdecl FindUForBezierValue(double,double,double,double,double)");
  return 0.0;
}

// a u^3 + b u^2 + c u + d = 0 with a not zero (the trigonometric and
// Cardano forms of the normalised cubic).
bool SolveCubic(double a, double b, double c, double d, double& u) {
  const double e1 = b / a, e2 = c / a, e3 = d / a;
  const double Q = (e1 * e1 - 3 * e2) / 9;
  const double R = (2 * e1 * e1 * e1 - 9 * e1 * e2 + 27 * e3) / 54;
  const double Q3 = Q * Q * Q;
  const double R2 = std::pow(R, 2.0);
  if (Q3 <= R2) {  // one real root, returned as it is
    const double A = -Sign(R) * std::pow(std::sqrt(R2 - Q3) + std::fabs(R), kOneThird);
    const double Bq = A != 0.0 ? Q / A : 0.0;
    u = Bq + A - e1 / 3;
    return true;
  }
  const double theta = std::acos(R / std::sqrt(Q3));
  const double k = -2 * std::sqrt(Q);
  const double candidates[] = {k * std::cos(theta / 3) - e1 / 3,
                               k * std::cos((theta + kTwoPi) / 3) - e1 / 3,
                               k * std::cos((theta - kTwoPi) / 3) - e1 / 3};
  for (double x : candidates) {
    if (-kZero <= x && x <= kUpperU) {
      u = x < 0.0 ? 0.0 : (x > 1.0 ? 1.0 : x);
      return true;
    }
  }
  return false;
}

// b u^2 + c u + d = 0, falling back to the linear root when b vanishes. The
// roots are formed without cancellation (q, then q/b and d/q).
bool SolveQuadratic(double b, double c, double d, double& u) {
  if (-kZero < b && b < kZero) {
    u = -(d / c);
    return true;
  }
  double disc = std::pow(c, 2.0) - 4 * b * d;
  if (disc < 0.0) {
    if (std::fabs(disc) >= kDiscriminantNoise) return false;
    disc = 0.0;
  }
  const double q = -0.5 * (c + Sign(c) * std::sqrt(disc));
  const double r1 = q / b, r2 = d / q;
  if (InOpenRange(r1)) return u = r1, true;
  if (InOpenRange(r2)) return u = r2, true;
  return false;
}

}  // namespace

double BezierValue(double u, double p0, double p1, double p2, double p3) noexcept {
  return 3 * u * u * (1 - u) * p2 + ((1 - u) * (1 - u) * (1 - u) * p0 + 3 * u * (1 - u) * (1 - u) * p1) +
         u * u * u * p3;
}

double FindUForBezierValue(double x, double p0, double p1, double p2, double p3) {
  if (p0 == x) return 0.0;
  if (p3 == x) return 1.0;
  const double a = 3 * p1 - p0 - 3 * p2 + p3;
  const double b = 3 * (p0 - 2 * p1 + p2);
  const double c = 3 * (p1 - p0);
  const double d = p0 - x;
  double u = 0.0;
  const bool found = (a > -kZero && a < kZero) ? SolveQuadratic(b, c, d, u) : SolveCubic(a, b, c, d, u);
  return found ? u : ReportNoRoot();
}

double TimeTranslationEaseInOut(double t, double a, double b) {
  const double h = (b - a) * 0.5;
  return BezierValue(FindUForBezierValue(t, a, a + h, b - h, b), a, a, b, b);
}

double TimeTranslationEaseIn(double t, double a, double b) {
  const double h = (b - a) * 0.5;
  return BezierValue(FindUForBezierValue(t, a, h + a, b, b), a, a, b, b);
}

double TimeTranslationEaseOut(double t, double a, double b) {
  const double h = (b - a) * 0.5;
  return BezierValue(FindUForBezierValue(t, a, a, b - h, b), a, a, b, b);
}

}  // namespace qdcore
