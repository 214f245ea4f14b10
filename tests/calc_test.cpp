// The cubic Bezier, its inverse and the eased time translations.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "qdbezierinverse.h"
#include "qdparam/qdcalc.h"
#include "support/capture.h"

using namespace qdcore;

TEST(Bezier, ValueAndInverseByBranch) {
  qdtest::AssertCapture asserts;
  struct Case {
    const char* branch;
    double x, p0, p1, p2, p3, u;
  } cases[] = {
      {"start", 0.0, 0.0, 5, 5, 1, 0.0},
      {"end", 1.0, 0.0, 5, 5, 1, 1.0},
      {"three roots", 0.5, 0, 0, 1, 1, 0.49999999999999994},
      // u = 1/2 + v with v^3 + 3/4 v + 1/4 = 0, solved by Cardano's formula
      {"one root", 0.25, 0, 0.5, 0.5, 1,
       0.5 + std::cbrt(std::sqrt(2.0) / 8 - 0.125) - std::cbrt(std::sqrt(2.0) / 8 + 0.125)},
      {"linear", 0.25, 0, 1.0 / 3, 2.0 / 3, 1, 0.25},
      {"quadratic", 0.25, 0, 0.1, 0.1 + 1.0 / 3, 1, (-0.3 + std::sqrt(0.09 + 0.7)) / 1.4},
  };
  for (const Case& c : cases) {
    EXPECT_NEAR(FindUForBezierValue(c.x, c.p0, c.p1, c.p2, c.p3), c.u, 1e-15) << c.branch;
  }
  // The three-root branch lands one ulp below the exact half; that is the
  // arithmetic as written, and callers depend on it staying so.
  EXPECT_EQ(FindUForBezierValue(0.5, 0, 0, 1, 1), 0.49999999999999994);
  EXPECT_TRUE(asserts.reports().empty());
  // A quadratic with a clearly negative discriminant has no real root.
  EXPECT_EQ(FindUForBezierValue(5.0, 0, 1, 1, 0), 0.0);
  EXPECT_EQ(asserts.reports(),
            (qdtest::Reports{{"FindUForBezierValue - illegal internal state", "Illegal code point reached",
                              "double __cdecl FindUForBezierValue(double,double,double,double,double)"}}));
}

namespace {

// The inverse transcribed in one piece, the formulas as they are written:
// the library splits it into a part kept per curve and a part per value,
// which must not move a single bit. NaN stands for "no root".
double InverseAsWritten(double x, double p0, double p1, double p2, double p3) {
  if (p0 == x) return 0.0;
  if (p3 == x) return 1.0;
  const double a = 3 * p1 - p0 - 3 * p2 + p3, b = 3 * (p0 - 2 * p1 + p2), c = 3 * (p1 - p0), d = p0 - x;
  const auto sign = [](double v) { return v > 0.0 ? 1.0 : (v < 0.0 ? -1.0 : 0.0); };
  if (!(-1e-10 < a && a < 1e-10)) {
    const double e1 = b / a, e2 = c / a, e3 = d / a;
    const double Q = (e1 * e1 - 3 * e2) / 9, R = (2 * e1 * e1 * e1 - 9 * e1 * e2 + 27 * e3) / 54;
    if (Q * Q * Q <= std::pow(R, 2.0)) {
      const double A = -sign(R) * std::pow(std::sqrt(std::pow(R, 2.0) - Q * Q * Q) + std::fabs(R), 0.3333333333333333);
      return (A != 0.0 ? Q / A : 0.0) + A - e1 / 3;
    }
    const double theta = std::acos(R / std::sqrt(Q * Q * Q)), k = -2 * std::sqrt(Q);
    for (double shift : {0.0, 6.283185307179586, -6.283185307179586}) {
      const double r = k * std::cos((theta + shift) / 3) - e1 / 3;
      if (-1e-10 <= r && r <= 1.0000000001) return std::fmin(std::fmax(r, 0.0), 1.0);
    }
    return NAN;
  }
  if (-1e-10 < b && b < 1e-10) return -(d / c);
  double disc = std::pow(c, 2.0) - 4 * b * d;
  if (disc < 0.0) {
    if (std::fabs(disc) >= 0.0001) return NAN;
    disc = 0.0;
  }
  const double q = -0.5 * (c + sign(c) * std::sqrt(disc));
  for (double r : {q / b, d / q}) {
    if (-1e-10 < r && r < 1.0000000001) return r;
  }
  return NAN;
}

}  // namespace

TEST(Bezier, InverseIsTheFormulaAsWrittenToTheBit) {
  std::mt19937 random(8);
  std::uniform_real_distribution<double> unit(-0.5, 1.5), inside(0.0, 1.0);
  int branches[3] = {};  // no root, in range, exactly at an end
  for (int i = 0; i < 20000; ++i) {
    // Arbitrary controls reach every branch; some are nudged to a quadratic
    // (a = 0) or a line (a = b = 0), some are keyframe timing (handles
    // inside the segment, where the first two of three roots never fit),
    // some are rising time curves, whose root must also map back onto x.
    double p0 = 10 * unit(random), p1 = 10 * unit(random), p2 = 10 * unit(random), p3 = 10 * unit(random);
    const bool timeCurve = i % 5 == 4;
    if (i % 5 == 1) p3 = p0 + 3 * (p2 - p1);
    if (i % 5 == 2) p1 = p0 + (p3 - p0) / 3, p2 = p0 + 2 * (p3 - p0) / 3;
    if (i % 5 == 3) p1 = p0 + (p3 - p0) * (unit(random) + 0.5) / 2, p2 = p3 - (p1 - p0);
    if (timeCurve) {
      p3 = p0 + 1 + 9 * inside(random);
      p1 = p0 + (p3 - p0) * inside(random);
      p2 = p3 - (p3 - p0) * inside(random);
    }
    const double x = i % 97 == 0 ? p0 : p0 + (p3 - p0) * (timeCurve ? inside(random) : unit(random));
    const double expected = InverseAsWritten(x, p0, p1, p2, p3);
    qdtest::AssertCapture asserts;
    const double u = FindUForBezierValue(x, p0, p1, p2, p3);
    const bool noRoot = std::isnan(expected);
    ++branches[noRoot ? 0 : (x == p0 ? 2 : 1)];
    ASSERT_EQ(asserts.reports().size(), noRoot ? 1u : 0u) << i;
    ASSERT_EQ(std::bit_cast<std::uint64_t>(u), std::bit_cast<std::uint64_t>(noRoot ? 0.0 : expected))
        << i << ": " << u << " vs " << expected;
    if (timeCurve) {
      ASSERT_NEAR(BezierValue(u, p0, p1, p2, p3), x, 1e-6 * (p3 - p0)) << i;
    }
  }
  for (int count : branches) EXPECT_GT(count, 0);
}

// Evaluation prepares a segment's time curve once and solves it for every
// time asked about: the prepared curve must hold nothing of one solve, and
// the quiet form must fail exactly where the reporting one reports.
TEST(Bezier, OnePreparedCurveSolvesEveryValueAsTheFormula) {
  std::mt19937 random(9);
  std::uniform_real_distribution<double> unit(-0.5, 1.5), inside(0.0, 1.0);
  int solved = 0, unsolved = 0;
  for (int curve = 0; curve < 400; ++curve) {
    const double p0 = 10 * unit(random), p3 = curve % 2 ? p0 + 1 + 9 * inside(random) : 10 * unit(random);
    const double p1 = curve % 2 ? p0 + (p3 - p0) * inside(random) : 10 * unit(random);
    const double p2 = curve % 2 ? p3 - (p3 - p0) * inside(random) : 10 * unit(random);
    const BezierInverse prepared = PrepareBezierInverse(p0, p1, p2, p3);
    for (int i = 0; i < 50; ++i) {
      const double x = i == 0 ? p0 : (i == 1 ? p3 : p0 + (p3 - p0) * unit(random));
      const double expected = InverseAsWritten(x, p0, p1, p2, p3);
      double quiet = -1.0;
      const bool found = TrySolveBezierInverse(prepared, x, quiet);
      qdtest::AssertCapture asserts;
      const double u = SolveBezierInverse(prepared, x);
      ASSERT_EQ(found, !std::isnan(expected)) << curve << "/" << i;
      ASSERT_EQ(asserts.reports().size(), found ? 0u : 1u) << curve << "/" << i;
      ASSERT_EQ(std::bit_cast<std::uint64_t>(u), std::bit_cast<std::uint64_t>(found ? expected : 0.0))
          << curve << "/" << i;
      if (found) {
        ASSERT_EQ(std::bit_cast<std::uint64_t>(quiet), std::bit_cast<std::uint64_t>(u));
      }
      ++(found ? solved : unsolved);
    }
  }
  EXPECT_GT(solved, 0);
  EXPECT_GT(unsolved, 0);
}

// Many values are solved at once, step by step over all of them: each u
// must be the single solve's to the bit, and the count must stop at the
// first value without a root, wherever it falls among the blocks.
TEST(Bezier, ManyValuesAtOnceAreTheSingleSolvesToTheBit) {
  std::mt19937 random(10);
  std::uniform_real_distribution<double> unit(-0.5, 1.5), inside(0.0, 1.0);
  const struct {
    const char* family;
    double (*p1)(double p0, double p3, double r), (*p2)(double p0, double p3, double r);
  } families[] = {
      // Arbitrary controls: every branch, values without a root among them.
      {"arbitrary", [](double p0, double, double r) { return p0 + 20 * (r - 0.5); },
       [](double, double p3, double r) { return p3 + 20 * (r - 0.5); }},
      // Keyframe timing: handles inside, three real roots or one.
      {"timing", [](double p0, double p3, double r) { return p0 + (p3 - p0) * r; },
       [](double p0, double p3, double r) { return p3 - (p3 - p0) * (1 - r); }},
      {"strong ease", [](double p0, double p3, double) { return p0 + 0.42 * (p3 - p0); },
       [](double p0, double p3, double) { return p3 - 0.42 * (p3 - p0); }},
      // a = 0: the quadratic, and with b = 0 the straight line.
      {"quadratic", [](double p0, double p3, double r) { return p0 + (p3 - p0) * r; },
       [](double p0, double p3, double r) { return p0 + (p3 - p0) * r + (p3 - p0) / 3; }},
      {"straight", [](double p0, double p3, double) { return p0 + (p3 - p0) / 3; },
       [](double p0, double p3, double) { return p0 + 2 * (p3 - p0) / 3; }},
  };
  int stoppedBeyondABlock = 0;
  for (const auto& family : families) {
    for (int curve = 0; curve < 60; ++curve) {
      const double p0 = 10 * unit(random), p3 = p0 + 1 + 9 * inside(random);
      const double p1 = family.p1(p0, p3, inside(random)), p2 = family.p2(p0, p3, inside(random));
      const BezierInverse prepared = PrepareBezierInverse(p0, p1, p2, p3);
      // Across several blocks: the ends exactly, NaN now and then, and values
      // a little outside the curve's span.
      std::vector<double> x(1 + random() % 600);
      for (double& v : x) {
        const unsigned int pick = random() % 50;
        v = pick == 0 ? p0 : pick == 1 ? p3 : pick == 2 ? NAN : p0 + (p3 - p0) * unit(random);
      }
      std::vector<double> u(x.size(), -7.0);
      const std::size_t solved = TrySolveBezierInverses(prepared, x.data(), u.data(), x.size());
      std::size_t expected = 0;
      for (double one = 0.0; expected < x.size(); ++expected) {
        if (!TrySolveBezierInverse(prepared, x[expected], one)) break;
        ASSERT_EQ(std::bit_cast<std::uint64_t>(u[expected]), std::bit_cast<std::uint64_t>(one))
            << family.family << " " << curve << "/" << expected;
      }
      ASSERT_EQ(solved, expected) << family.family << " " << curve;
      stoppedBeyondABlock += solved > 128 && solved < x.size();
    }
  }
  EXPECT_GT(stoppedBeyondABlock, 0);
}

TEST(Ease, TranslationsKeepTheEndsAndBendTheMiddle) {
  qdtest::AssertCapture asserts;
  for (auto ease : {TimeTranslationEaseInOut, TimeTranslationEaseIn, TimeTranslationEaseOut}) {
    EXPECT_EQ(ease(2.0, 2.0, 6.0), 2.0);
    EXPECT_EQ(ease(6.0, 2.0, 6.0), 6.0);
  }
  EXPECT_NEAR(TimeTranslationEaseInOut(4.0, 2.0, 6.0), 4.0, 1e-12);  // symmetric
  EXPECT_LT(TimeTranslationEaseInOut(3.0, 2.0, 6.0), 3.0);           // slow start
  EXPECT_GT(TimeTranslationEaseInOut(5.0, 2.0, 6.0), 5.0);           // slow end
  EXPECT_TRUE(asserts.reports().empty());
}
