// The cubic Bezier, its analytic inverse and the eased time translations.
#include "qdparam/qdcalc.h"

#include <algorithm>
#include <cmath>

#include "qdbezierinverse.h"
#include "qdcore/core.h"
#include "qdwidevectors.h"

namespace qdcore {

namespace {

using namespace bezierinverse;

double ReportNoRoot() {
  ReportFailure("FindUForBezierValue - illegal internal state", kIllegalCodePointReached,
                __FILE_NAME__, __LINE__,
                "double __cdecl FindUForBezierValue(double,double,double,double,double)");
  return 0.0;
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

// Values solved a block at a time, so that the scratch stays in the
// nearest cache.
constexpr std::size_t kBlock = 128;

// What a value of a cubic needs once its R is known, as a double, so that
// the step that finds it runs several values at once. As whole numbers the
// codes are bits, which a block ors together to learn what its values need.
constexpr double kSolved = 0.0, kCubeRoot = 1.0, kAngle = 2.0;
constexpr int kNeedsCubeRoot = 1, kNeedsAngle = 2;

// Each step below is written as choices between values, so that a loop of
// it runs several values at once.
double NextFor(const BezierInverse& f, double x, double R) {
  const double root = HasOneRealRoot(f, R) ? kCubeRoot : kAngle;
  const double unlessStart = f.p0 == x ? kSolved : root;
  return f.p3 == x ? kSolved : unlessStart;
}

// The ends answer without solving, as TrySolveBezierInverseWith does.
double EndsOr(const BezierInverse& f, double x, double solved) {
  return f.p0 == x ? 0.0 : (f.p3 == x ? 1.0 : solved);
}

// The cubic case for one block, step by step over all its values: the
// steps without library calls run several values at once, and the calls of
// the library, on arguments worked out before, follow each other without
// waiting on one another. A value that takes the three-root form is given
// its u last, in order, so that the first without a root ends the block.
QD_WIDEST_VECTORS std::size_t SolveCubicBlock(const BezierInverse& f, const double* x, double* u,
                                              std::size_t n) {
  double R[kBlock], cosine[kBlock], cubed[kBlock], called[kBlock];
  double next[kBlock];
  int needs = 0;
  for (std::size_t i = 0; i < n; ++i) {
    R[i] = CubicR(f, f.p0 - x[i]);
    next[i] = NextFor(f, x[i], R[i]);
    needs |= static_cast<int>(next[i]);
  }
  if (needs & kNeedsAngle) {
    for (std::size_t i = 0; i < n; ++i) cosine[i] = AngleCosine(f, R[i]);
  }
  if (needs & kNeedsCubeRoot) {
    for (std::size_t i = 0; i < n; ++i) cubed[i] = CubeRootArgument(f, R[i]);
  }
  for (std::size_t i = 0; i < n; ++i) {
    if (next[i] == kCubeRoot) {
      called[i] = Libm::CubeRoot(cubed[i]);
    } else {
      called[i] = next[i] == kAngle ? Libm::Acos(cosine[i]) : 0.0;
    }
  }
  const bool cardano = needs & kNeedsCubeRoot;
  for (std::size_t i = 0; i < n; ++i) {
    u[i] = EndsOr(f, x[i], cardano ? CardanoRoot(f, R[i], called[i]) : 0.0);
  }
  if (needs & kNeedsAngle) {
    for (std::size_t i = 0; i < n; ++i) {
      if (next[i] == kAngle && !TrigonometricRoot<Libm>(f, called[i], u[i])) return i;
    }
  }
  return n;
}

std::size_t SolveQuadraticBlock(const BezierInverse& f, const double* x, double* u, std::size_t n) {
  for (std::size_t i = 0; i < n; ++i) {
    if (!TrySolveBezierInverseWith(f, x[i], u[i])) return i;
  }
  return n;
}

}  // namespace

double BezierValue(double u, double p0, double p1, double p2, double p3) noexcept {
  return BezierValueInline(u, p0, p1, p2, p3);
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
  // Each root's angle shift with the band its cosine keeps to.
  const struct {
    double shift, lowCosine, highCosine;
  } roots[] = {{0.0, 0.5, 1.0}, {kTwoPi, -1.0, -0.5}, {-kTwoPi, -0.5, 0.5}};
  for (const auto& root : roots) {
    if (RootMayFit(f.k, f.e1Third, root.lowCosine, root.highCosine)) {
      f.rootShifts[f.rootCount++] = root.shift;
    }
  }
  return f;
}

bool TrySolveBezierInverse(const BezierInverse& curve, double x, double& u) {
  return TrySolveBezierInverseWith(curve, x, u);
}

std::size_t TrySolveBezierInverses(const BezierInverse& curve, const double* x, double* u,
                                   std::size_t count) {
  const auto solveBlock = curve.cubic ? &SolveCubicBlock : &SolveQuadraticBlock;
  for (std::size_t from = 0; from < count; from += kBlock) {
    const std::size_t n = std::min(count - from, kBlock);
    const std::size_t solved = solveBlock(curve, x + from, u + from, n);
    if (solved < n) return from + solved;
  }
  return count;
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
