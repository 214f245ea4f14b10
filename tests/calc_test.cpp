// The cubic Bezier, its inverse and the eased time translations.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "qdparam/qdcalc.h"
#include "support/capture.h"

using namespace qdcore;

TEST(Bezier, ValueAndInverseByBranch) {
  qdtest::AssertCapture asserts;
  struct Case { const char* branch; double x, p0, p1, p2, p3, u; } cases[] = {
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
  // The value at u sums its terms in a fixed order, bit for bit.
  const double u = 0.3, p0 = 0.1, p1 = 1.7, p2 = -2.3, p3 = 0.9;
  EXPECT_EQ(BezierValue(u, p0, p1, p2, p3),
            3 * u * u * (1 - u) * p2 +
                ((1 - u) * (1 - u) * (1 - u) * p0 + 3 * u * (1 - u) * (1 - u) * p1) + u * u * u * p3);
}

TEST(Bezier, InverseAgreesWithBruteForceOnMonotoneCurves) {
  qdtest::AssertCapture asserts;
  std::mt19937 random(7);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  for (int i = 0; i < 2000; ++i) {
    // Monotone time curves, as keyframe timing makes them: p0 <= p1, p2 <= p3.
    const double p0 = 0.0, p3 = 1.0 + 9 * unit(random);
    const double p1 = p0 + (p3 - p0) * unit(random), p2 = p3 - (p3 - p0) * unit(random);
    const double x = p0 + (p3 - p0) * unit(random);
    const double u = FindUForBezierValue(x, p0, p1, p2, p3);
    ASSERT_GE(u, -1e-9) << i;
    ASSERT_LE(u, 1.0 + 1e-9) << i;
    EXPECT_NEAR(BezierValue(u, p0, p1, p2, p3), x, 1e-6 * (p3 - p0)) << i;
  }
  EXPECT_TRUE(asserts.reports().empty());
}

TEST(Bezier, NoRootInRangeIsReported) {
  qdtest::AssertCapture asserts;
  // Quadratic with a clearly negative discriminant: no real root.
  EXPECT_EQ(FindUForBezierValue(5.0, 0, 1, 1, 0), 0.0);
  ASSERT_EQ(asserts.reports().size(), 1u);
  EXPECT_EQ(asserts.reports()[0].expression, "FindUForBezierValue - illegal internal state");
  EXPECT_EQ(asserts.reports()[0].message, "Illegal code point reached");
  EXPECT_EQ(asserts.reports()[0].signature,
            "double __cdecl FindUForBezierValue(double,double,double,double,double)");
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
