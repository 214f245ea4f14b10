// The cubic Bezier, its analytic inverse and the eased time translations.
#include "qdparam/qdcalc.h"

#include <cmath>

#include "qdbezierinverse.h"
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

// The cubic case: the trigonometric and Cardano forms of the normalised
// cubic, with only e3 (that is, d) new for each value.
bool SolveCubic(const BezierInverse& f, double d, double& u) {
  const double e3 = d / f.a;
  const double R = (f.rLead + 27 * e3) / 54;
  const double R2 = std::pow(R, 2.0);
  if (f.q3 <= R2) {  // one real root, returned as it is
    const double A = -Sign(R) * std::pow(std::sqrt(R2 - f.q3) + std::fabs(R), kOneThird);
    const double Bq = A != 0.0 ? f.q / A : 0.0;
    u = Bq + A - f.e1Third;
    return true;
  }
  // Three real roots, tried in this order; each costs a cosine, so it is
  // taken only for a root that the curve lets fall in range, and only when
  // the ones before it did not.
  const double theta = std::acos(R / f.rootQ3);
  const double angles[] = {theta / 3, (theta + kTwoPi) / 3, (theta - kTwoPi) / 3};
  for (int i = 0; i < 3; ++i) {
    if (!f.rootMayFit[i]) continue;
    const double x = f.k * std::cos(angles[i]) - f.e1Third;
    if (-kZero <= x && x <= kUpperU) {
      u = x < 0.0 ? 0.0 : (x > 1.0 ? 1.0 : x);
      return true;
    }
  }
  return false;
}

// b u^2 + c u + d = 0, falling back to the linear root when b vanishes. The
// roots are formed without cancellation (q, then q/b and d/q).
bool SolveQuadratic(const BezierInverse& f, double d, double& u) {
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

// Whatever the angle (acos gives 0 to pi), the cosine in each of the three
// roots keeps to a band: cos(theta / 3) to [1/2, 1], cos((theta + 2 pi) / 3)
// to [-1, -1/2], cos((theta - 2 pi) / 3) to [-1/2, 1/2]. So the curve alone
// bounds each root, k cos - e1 / 3. A root whose bounds, widened far past any
// rounding, miss the accepted range can never be the answer.
bool RootMayFit(double k, double e1Third, double lowCosine, double highCosine) {
  const double a = k * lowCosine - e1Third, b = k * highCosine - e1Third;
  const double margin = 1e-9 * (1.0 + std::fabs(k) + std::fabs(e1Third));
  const double low = a < b ? a : b, high = a < b ? b : a;
  return !(high < -kZero - margin) && !(low > kUpperU + margin);  // NaN may fit
}

}  // namespace

double BezierValue(double u, double p0, double p1, double p2, double p3) noexcept {
  return 3 * u * u * (1 - u) * p2 +
         ((1 - u) * (1 - u) * (1 - u) * p0 + 3 * u * (1 - u) * (1 - u) * p1) + u * u * u * p3;
}

// Each expression keeps the grouping it has written out in full, so that
// the parts kept here and the parts added per value round as they always did.
BezierInverse PrepareBezierInverse(double p0, double p1, double p2, double p3) {
  BezierInverse f;
  f.p0 = p0;
  f.p3 = p3;
  f.a = 3 * p1 - p0 - 3 * p2 + p3;
  f.b = 3 * (p0 - 2 * p1 + p2);
  f.c = 3 * (p1 - p0);
  f.cubic = !(f.a > -kZero && f.a < kZero);
  if (!f.cubic) {
    f.cSquared = std::pow(f.c, 2.0);
    f.fourB = 4 * f.b;
    return f;
  }
  f.e1 = f.b / f.a;
  f.e2 = f.c / f.a;
  f.q = (f.e1 * f.e1 - 3 * f.e2) / 9;
  f.rLead = 2 * f.e1 * f.e1 * f.e1 - 9 * f.e1 * f.e2;
  f.q3 = f.q * f.q * f.q;
  f.e1Third = f.e1 / 3;
  f.rootQ3 = std::sqrt(f.q3);  // NaN for Q < 0, where the three-root form is never used
  f.k = -2 * std::sqrt(f.q);
  f.rootMayFit[0] = RootMayFit(f.k, f.e1Third, 0.5, 1.0);
  f.rootMayFit[1] = RootMayFit(f.k, f.e1Third, -1.0, -0.5);
  f.rootMayFit[2] = RootMayFit(f.k, f.e1Third, -0.5, 0.5);
  return f;
}

bool TrySolveBezierInverse(const BezierInverse& curve, double x, double& u) {
  if (curve.p0 == x) return u = 0.0, true;
  if (curve.p3 == x) return u = 1.0, true;
  const double d = curve.p0 - x;
  return curve.cubic ? SolveCubic(curve, d, u) : SolveQuadratic(curve, d, u);
}

double SolveBezierInverse(const BezierInverse& curve, double x) {
  double u = 0.0;
  return TrySolveBezierInverse(curve, x, u) ? u : ReportNoRoot();
}

double FindUForBezierValue(double x, double p0, double p1, double p2, double p3) {
  return SolveBezierInverse(PrepareBezierInverse(p0, p1, p2, p3), x);
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
