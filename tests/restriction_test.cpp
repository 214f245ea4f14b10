// Restrictions: the granularity grid and the limits a value is forced into.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <limits>
#include <optional>

#include "qdparam/param.h"
#include "qdparam/processing.h"
#include "support/capture.h"

using namespace qdcore;

namespace {

struct Limits { std::optional<double> granularity, min, max; };

CParam Restricted(unsigned int type, const Limits& limits) {
  CParam param(type, u"p", 1);
  const auto set = [&](const std::optional<double>& v, bool (CParam::*real)(double), bool (CParam::*whole)(long)) {
    if (!v) return;
    type == PARAM_DOUBLE ? (param.*real)(*v) : (param.*whole)(static_cast<long>(*v));
  };
  set(limits.granularity, &CParam::SetGranularityDouble, &CParam::SetGranularityLong);
  set(limits.min, &CParam::SetMinValueDouble, &CParam::SetMinValueLong);
  set(limits.max, &CParam::SetMaxValueDouble, &CParam::SetMaxValueLong);
  return param;
}

}  // namespace

TEST(Restrictions, ValuesSnapToTheGridAndClampToLimitsMovedOntoIt) {
  constexpr unsigned int D = PARAM_DOUBLE, L = PARAM_LONG;
  const struct { unsigned int type; Limits limits; double value, expected; } rows[] = {
      // limits 0.3 and 2.2 move inward to 0.5 and 2.0
      {D, {0.5, 0.3, 2.2}, 1.25, 1.5}, {D, {0.5, 0.3, 2.2}, -1.25, 0.5}, {D, {0.5, 0.3, 2.2}, 3, 2.0},
      {D, {0.5, 0.3, 2.2}, 0.74, 0.5}, {D, {0.5, 0.3, 2.2}, 1.2, 1.0},   {D, {{}, 0.3, 2.2}, 1.25, 1.25},
      {D, {{}, 0.3, 2.2}, -1, 0.3},    {D, {{}, 0.3, 2.2}, 3, 2.2},      {D, {0.5, {}, {}}, -0.75, -1.0},
      {D, {0.5, 0.2, {}}, -3, 0.5},    {D, {0.5, {}, 1.9}, 7, 1.5},
      {D, {-0.5, 0, {}}, 1.3, 1.3},  // a negative grid is no grid
      {L, {5, 3, 22}, 12, 10},  {L, {5, 3, 22}, 13, 15}, {L, {5, 3, 22}, -100, 5},   {L, {5, 3, 22}, 100, 20},
      {L, {5, 7, 18}, 0, 10},   {L, {5, 7, 18}, 99, 15}, {L, {5, {}, {}}, -13, -15}, {L, {{}, 3, 22}, 13, 13},
      {L, {{}, 3, 22}, -1, 3},  {L, {0, 3, 22}, 23, 22},
  };
  for (const auto& r : rows) {
    const CParam param = Restricted(r.type, r.limits);
    EXPECT_EQ(r.type == D ? EnforceRestricitionsDouble(param, r.value)
                          : static_cast<double>(EnforceRestricitionsLong(param, static_cast<long>(r.value))),
              r.expected)
        << r.type << ": " << r.value;
  }
}

TEST(Restrictions, InvertedLimitsAreReportedAndUsedSwapped) {
  for (double value : {-10.0, 3.0, 10.0}) {
    qdtest::AssertCapture asserts;
    const Limits inverted{{}, 5, 1};
    EXPECT_EQ(EnforceRestricitionsDouble(Restricted(PARAM_DOUBLE, inverted), value), std::clamp(value, 1.0, 5.0));
    EXPECT_EQ(EnforceRestricitionsLong(Restricted(PARAM_LONG, inverted), static_cast<long>(value)),
              std::clamp(static_cast<long>(value), 1L, 5L));
    EXPECT_EQ(asserts.reports(),
              (qdtest::Reports{{"min <= max", kRuntimeAssumptionFailed,
                                "double __cdecl EnforceRestricitionsDouble(const class qdcore::CParam &,double)"},
                               {"min <= max", kRuntimeAssumptionFailed,
                                "long __cdecl EnforceRestricitionsLong(const class qdcore::CParam &,long)"}}));
  }
}

// Run under the sanitizers: conversions of NaN, infinities and huge values
// to 32-bit steps must stay defined.
TEST(Restrictions, ExtremeInputsStayDefinedAndWithinLimits) {
  const double inf = std::numeric_limits<double>::infinity();
  for (double value : {std::nan(""), inf, -inf, 1e300, -1e300, 4.2e9}) {
    const double snapped = EnforceRestricitionsDouble(Restricted(PARAM_DOUBLE, {0.5, -100, 100}), value);
    EXPECT_TRUE(snapped >= -100 && snapped <= 100) << value;
  }
  // Without a grid NaN passes the limits untouched.
  EXPECT_TRUE(std::isnan(EnforceRestricitionsDouble(Restricted(PARAM_DOUBLE, {{}, -1, 1}), std::nan(""))));
  for (long value : {long{INT_MAX}, long{INT_MIN}, 0L}) {
    for (const Limits& limits : {Limits{10, INT_MAX - 5, {}}, Limits{10, {}, INT_MIN + 5}, Limits{INT_MAX, 1, {}}}) {
      EnforceRestricitionsLong(Restricted(PARAM_LONG, limits), value);
    }
  }
}
