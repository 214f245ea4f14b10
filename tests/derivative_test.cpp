// The slope of a parameter's value: hand-checked values, a central difference
// of the forward evaluation over random parameters of every kind and ease,
// and the cached route against the live one.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "qdderivative.h"
#include "qdparam/keyframe.h"
#include "qdparam/param.h"
#include "qdparam/paramset.h"
#include "qdparam/processing.h"
#include "support/capture.h"

using namespace qdcore;

namespace {

constexpr double kDuration = 10.0;

struct KeySpec {
  double at;  // fraction of the clip
  double value;
  unsigned int interpolation = INTERPOLATION_LINEAR;
  unsigned int eases = TIMETRANSLATION_LINEAR;
  std::vector<Anchor> anchors = {};
};

CParam Keyed(const std::vector<KeySpec>& keys, unsigned int type = PARAM_DOUBLE) {
  CParam param(type, u"gain", 1);
  param.SetKeyFrameStatus(true);
  for (const KeySpec& k : keys) {
    CKeyFrame kf(param);
    kf.SetPosition(k.at);
    if (type == PARAM_LONG) {
      kf.SetValueLong(static_cast<long>(k.value));
    } else if (type == PARAM_BOOL) {
      kf.SetValueBool(k.value != 0.0);
    } else {
      kf.SetValueDouble(k.value);
    }
    kf.SetInterpolation(k.interpolation);
    kf.SetTimeTranslation(k.eases);
    kf.SetAnchors(k.anchors.data(), static_cast<unsigned int>(k.anchors.size()));
    EXPECT_TRUE(param.Add(kf, kDuration, false));
  }
  return param;
}

double Slope(const CParam& param, double t) { return param.GetDerivativeDouble(t, kDuration); }

// ---- hand-checked slopes

TEST(Derivative, HandCheckedValues) {
  const CParam ramp = Keyed({{0.0, 0.0}, {1.0, 100.0}});  // 0 -> 100 over 10 s
  const CParam peak = Keyed({{0.0, 0.0}, {0.5, 100.0}, {1.0, 0.0}});
  const CParam held = Keyed({{0.2, 5.0, INTERPOLATION_HOLD}, {0.8, 50.0}});
  // Zero-length handles make the Bezier a straight line: its time curve
  // stands still at the keys, where the slope is the limit.
  const CParam flatHandles =
      Keyed({{0.0, 0.0, INTERPOLATION_BEZIER, 0, {{0.0, 0.0}, {0.0, 0.0}}}, {1.0, 100.0}});
  const CParam eased =
      Keyed({{0.0, 0.0, INTERPOLATION_LINEAR, TIMETRANSLATION_EASEINOUT}, {1.0, 100.0}});
  CParam clamped = Keyed({{0.0, 0.0}, {1.0, 100.0}});
  clamped.SetMaxValueDouble(50.0);
  CParam snapped = Keyed({{0.0, 0.0}, {1.0, 100.0}});
  snapped.SetGranularityDouble(0.5);
  CParam inactive = Keyed({{0.0, 0.0}, {1.0, 100.0}});
  inactive.SetInactiveValueDouble(3.0);
  inactive.SetInactiveStatus(true);
  CParam still(PARAM_DOUBLE, u"still", 2);
  still.SetValueDouble(4.0);
  const CParam whole = Keyed({{0.0, 0.0}, {1.0, 7.0}}, PARAM_LONG);
  const struct {
    const char* what;
    const CParam& param;
    double time, slope;
  } rows[] = {
      {"linear", ramp, 5.0, 10.0},
      {"at the first key: the segment it starts", ramp, 0.0, 10.0},
      {"at the last key: held after it", ramp, 10.0, 0.0},
      {"before the first key", ramp, -1.0, 0.0},
      {"after the last key", ramp, 11.0, 0.0},
      {"rising", peak, 4.999, 20.0},
      {"at a key: the segment after it", peak, 5.0, -20.0},
      {"hold", held, 4.0, 0.0},
      {"hold up to the next key", held, 8.0 - 1e-9, 0.0},
      {"before a held first key", held, 1.0, 0.0},
      {"Bezier without handles, inside", flatHandles, 3.0, 10.0},
      {"Bezier without handles, at its key", flatHandles, 0.0, 10.0},
      {"ease in and out: still at the key", eased, 0.0, 0.0},
      {"ease in and out: twice as fast halfway", eased, 5.0, 20.0},
      {"below the limit", clamped, 3.0, 10.0},
      {"clamped by the limit", clamped, 7.0, 0.0},
      {"snapped to a grid", snapped, 3.0, 0.0},
      {"inactive", inactive, 3.0, 0.0},
      {"static", still, 3.0, 0.0},
      {"Long: the unrounded blend", whole, 3.0, 0.7},
  };
  for (const auto& r : rows) {
    EXPECT_NEAR(Slope(r.param, r.time), r.slope, 1e-6) << r.what;
  }
  // The value next to the last row's key, to show the side taken there.
  EXPECT_EQ(held.GetValueDouble(8.0, kDuration, 0.0), 50.0);
}

TEST(Derivative, TypesThatAreNoNumberReportAndGiveZero) {
  CParam flag = Keyed({{0.0, 0.0}, {1.0, 1.0}}, PARAM_BOOL);
  CParam text(PARAM_STRING, u"title", 3);
  qdtest::AssertCapture asserts;
  EXPECT_EQ(Slope(flag, 5.0), 0.0);
  EXPECT_TRUE(asserts.reports().empty());
  EXPECT_EQ(Slope(text, 5.0), 0.0);
  ASSERT_EQ(asserts.reports().size(), 1u);
  EXPECT_EQ(asserts.reports()[0].expression, "GetDerivativeDouble - parameter type mismatch");
}

TEST(Derivative, SetAsksOnItsTimeLine) {
  CParamSet set;
  set.SetDuration(kDuration);
  set.SetStartTime(100.0);
  CParam ramp = Keyed({{0.0, 0.0}, {1.0, 100.0}});
  set.Add(ramp);
  EXPECT_NEAR(set.GetDerivativeDouble(u"gain", 105.0), 10.0, 1e-9);
  EXPECT_EQ(set.GetDerivativeDouble(u"gain", 95.0), 0.0);  // before the clip: held
  EXPECT_EQ(set.GetDerivativeDouble(u"missing", 105.0), 0.0);
  EXPECT_EQ(set.GetDerivativeDouble(static_cast<const CParam*>(nullptr), 105.0), 0.0);
}

// ---- random parameters against a central difference

double Uniform(std::mt19937& random, double lo, double hi) {
  return std::uniform_real_distribution<double>(lo, hi)(random);
}

// Keys in time order, each kind with anchors that keep its time curve
// monotone, every ease; sometimes the parameter's own ease.
CParam RandomSmoothParam(std::mt19937& random) {
  static const unsigned int kinds[] = {INTERPOLATION_HOLD, INTERPOLATION_LINEAR,
                                       INTERPOLATION_BEZIER, INTERPOLATION_LINLOG,
                                       INTERPOLATION_SPLINE};
  static const unsigned int eases[] = {0,
                                       TIMETRANSLATION_EASEINOUT,
                                       TIMETRANSLATION_ANCHOREASEINOUT,
                                       TIMETRANSLATION_EASEIN,
                                       TIMETRANSLATION_EASEOUT,
                                       TIMETRANSLATION_EASEINOUT | TIMETRANSLATION_ANCHOREASEINOUT};
  const unsigned int count = 2 + random() % 5;
  std::vector<double> at = {Uniform(random, -0.1, 0.2)};
  for (unsigned int i = 1; i < count; ++i) at.push_back(at.back() + Uniform(random, 0.08, 0.3));
  std::vector<KeySpec> keys;
  for (unsigned int i = 0; i < count; ++i) {
    KeySpec k{at[i], Uniform(random, 0.0, 100.0), kinds[random() % std::size(kinds)],
              eases[random() % std::size(eases)]};
    const double span = i + 1 < count ? at[i + 1] - at[i] : 0.1;
    if (k.interpolation == INTERPOLATION_BEZIER) {
      k.anchors = {{Uniform(random, 0.0, 0.45) * span, Uniform(random, -40.0, 40.0)},
                   {-Uniform(random, 0.0, 0.45) * span, Uniform(random, -40.0, 40.0)}};
    } else if (k.interpolation == INTERPOLATION_SPLINE) {
      const unsigned int anchors = random() % 4;
      for (unsigned int j = 1; j <= anchors; ++j) {
        k.anchors.push_back({at[i] + span * j / (anchors + 1), Uniform(random, 0.0, 100.0)});
      }
    }
    keys.push_back(k);
  }
  CParam param = Keyed(keys);
  if (random() % 4 == 0) param.SetTimeTranslation(TIMETRANSLATION_EASEINOUT);
  return param;
}

double Value(const CParam& param, double t) { return param.GetValueDouble(t, kDuration, 0.0); }

// Over random parameters, extrapolated before and after their keys when
// `extrapolated`: the slope is the central difference of the values wherever
// the values are smooth around the time.
void ExpectCentralDifferences(unsigned int seed, bool extrapolated) {
  std::mt19937 random(seed);
  constexpr double h = 1e-6;
  int checked = 0, kinks = 0;
  for (int round = 0; round < 400; ++round) {
    CParam param = RandomSmoothParam(random);
    if (extrapolated) {
      param.SetExtrapolationBefore(random() % (EXTRAPOLATION_OSCILLATE + 1));
      param.SetExtrapolationAfter(random() % (EXTRAPOLATION_OSCILLATE + 1));
    }
    for (int i = 0; i < 40; ++i) {
      const double t =
          Uniform(random, -1.0 - 9.0 * extrapolated, kDuration + 1.0 + 9.0 * extrapolated);
      const double before = Value(param, t - h), at = Value(param, t), after = Value(param, t + h);
      const double left = (at - before) / h, right = (after - at) / h;
      const double central = (after - before) / (2 * h);
      // A key, an anchor or a seam between t - h and t + h: no difference
      // answers there.
      if (std::fabs(right - left) > 0.05 * (1.0 + std::fabs(central))) {
        ++kinks;
        continue;
      }
      ++checked;
      const double slope = Slope(param, t);
      ASSERT_NEAR(slope, central, 1e-4 * (1.0 + std::fabs(central)))
          << "round " << round << " at " << t;
    }
  }
  EXPECT_GT(checked, 10 * kinks);
}

TEST(Derivative, MatchesACentralDifferenceOfTheValue) { ExpectCentralDifferences(23, false); }

TEST(Derivative, MatchesACentralDifferenceWhereTheValueIsExtrapolated) {
  ExpectCentralDifferences(31, true);
}

// ---- the cached route against the live one

std::uint64_t Bits(double v) { return std::bit_cast<std::uint64_t>(v); }

// What GetDerivativeDouble gives for an active keyframed Double parameter
// without a grid, from the live walk and the public restriction function.
double LiveSlope(const CParam& param, double t, mtime minDuration) {
  double fallback = 0.0;
  param.GetValueDouble(fallback);
  const ValueSlope blend = SlopeParamDouble(t, param, kDuration, minDuration, fallback);
  return EnforceRestricitionsDouble(param, blend.value) == blend.value ? blend.slope : 0.0;
}

TEST(Derivative, CacheAndLiveWalkGiveTheSameSlopeAndReports) {
  std::mt19937 random(29);
  for (int round = 0; round < 200; ++round) {
    CParam param = RandomSmoothParam(random);
    if (random() % 3 == 0) param.SetMaxValueDouble(60.0);
    // Keys out of order and on top of one another as well.
    if (random() % 3 == 0) param.Get(0)->SetPosition(Uniform(random, 0.0, 1.0));
    if (random() % 5 == 0) param.Get(param.GetSize() - 1)->SetPositionValue(u"abc");
    const mtime minDuration = param.GetMinDuration();
    for (int i = 0; i < 20; ++i) {
      const double t = i < 2 ? static_cast<double>(param.Get(i)->GetTime(kDuration, minDuration))
                             : Uniform(random, -1.0, kDuration + 1.0);
      qdtest::AssertCapture asserts;
      const double live = LiveSlope(param, t, minDuration);
      const qdtest::Reports liveReports = asserts.reports();
      asserts.clear();
      EXPECT_EQ(Bits(Slope(param, t)), Bits(live)) << "round " << round << " at " << t;
      EXPECT_EQ(asserts.reports(), liveReports);
    }
  }
}

}  // namespace
