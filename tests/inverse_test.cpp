// The inverse lookup: the times at which a parameter's value reaches a
// value. Hand-checkable tables first, then a brute-force oracle over the
// forward evaluation for random parameters of every kind.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "qdparam/keyframe.h"
#include "qdparam/param.h"
#include "qdparam/paramset.h"
#include "qdvalueindex.h"
#include "support/capture.h"
#include "support/xml.h"

using namespace qdcore;
using qdtest::P;

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// A parameter from the text inside its element; 10 s clips throughout.
CParam Param(const std::string& attributes, const std::string& keys) {
  const std::string xml = "<Parameter name=\"p\" " + attributes + ">" + keys + "</Parameter>";
  return CParam(qdtest::Parse(xml.c_str()));
}

std::string Key(double position, double value, const char* interpolation = "Linear",
                const char* extra = "") {
  return "<Keyframe position=\"" + std::to_string(position) + "\" value=\"" +
         std::to_string(value) + "\" interpolation=\"" + interpolation + "\" " + extra + "/>";
}

const std::string kRamp = Key(0, 0) + Key(1, 100);  // 0 -> 100 over the clip

struct Case {
  const char* name;
  std::string attributes, keys;
  double value, from;
  bool found;
  double at;
};

// Each answer can be checked by hand on a 10 s clip.
TEST(Inverse, HandCheckedTable) {
  const std::string keyed = "value=\"0\" useKeyframe=\"True\" ";
  const std::vector<Case> cases = {
      {"linear", keyed, kRamp, 25, 0, true, 2.5},
      {"linear from later", keyed, kRamp, 25, 4, false, 0},
      {"linear end", keyed, kRamp, 100, 0, true, 10},
      {"linear out of range", keyed, kRamp, 101, 0, false, 0},
      {"linear at start", keyed, kRamp, 0, 0, true, 0},
      {"falling", keyed, Key(0, 100) + Key(1, 0), 25, 0, true, 7.5},
      {"hold value", keyed, Key(0, 10, "Hold") + Key(0.5, 30, "Hold"), 10, 0, true, 0},
      {"hold jump across", keyed, Key(0, 10, "Hold") + Key(0.5, 30, "Hold"), 20, 0, true, 5},
      {"hold jump onto", keyed, Key(0, 10, "Hold") + Key(0.5, 30, "Hold"), 30, 0, true, 5},
      {"hold never between", keyed, Key(0, 10, "Hold") + Key(0.5, 30, "Hold"), 40, 0, false, 0},
      {"triangle first", keyed, Key(0, 0) + Key(0.5, 100) + Key(1, 0), 50, 0, true, 2.5},
      {"triangle second", keyed, Key(0, 0) + Key(0.5, 100) + Key(1, 0), 50, 3, true, 7.5},
      {"triangle peak", keyed, Key(0, 0) + Key(0.5, 100) + Key(1, 0), 100, 0, true, 5},
      // Grid 1: the value steps to 3 where the blend reaches 2.5, and never
      // equals 2.5, but jumps across it there.
      {"grid step", keyed + "granularity=\"1\"", Key(0, 0) + Key(1, 10), 2.5, 0, true, 2.5},
      {"grid onto", keyed + "granularity=\"1\"", Key(0, 0) + Key(1, 10), 3, 0, true, 2.5},
      {"limit", keyed + "max=\"50\"", kRamp, 50, 0, true, 5},
      {"below limit", keyed + "min=\"20\"", kRamp, 10, 0, false, 0},
      // LinLog 0 -> 99: the midpoint is (49.5 + 9) / 2.
      {"linlog", keyed, Key(0, 0, "LinLog") + Key(1, 99), 29.25, 0, true, 5},
      // A symmetric ease passes the middle value at the middle time.
      {"eased segment", keyed, Key(0, 0, "Linear", "timeTranslation=\"EaseInOut\"") + Key(1, 100),
       50, 0, true, 5},
      {"eased clip", keyed + "timeTranslation=\"EaseInOut\"", kRamp, 50, 0, true, 5},
      // Long 0 -> 3 rounds half away from zero: 2 from a blend of 1.5 on.
      {"long", "type=\"Long\" " + keyed, Key(0, 0) + Key(1, 3), 2, 0, true, 5},
      {"constant", "value=\"7\"", "", 7, 1.5, true, 1.5},
      {"constant other", "value=\"7\"", "", 8, 0, false, 0},
      {"inactive", keyed + "active=\"False\" inactive=\"4\"", kRamp, 4, 2, true, 2},
      {"inactive ramp", keyed + "active=\"False\" inactive=\"4\"", kRamp, 50, 0, false, 0},
      {"bool", "type=\"Bool\" value=\"True\"", "", 1, 0, false, 0},
      {"string", "type=\"String\" value=\"a\"", "", 0, 0, false, 0},
      {"nan", keyed, kRamp, kNaN, 0, false, 0},
      {"empty range", keyed, kRamp, 50, 11, false, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    qdtest::AssertCapture quiet;
    const CParam param = Param(c.attributes, c.keys);
    mtime at = -1.0;
    EXPECT_EQ(param.GetPositionFromValueDouble(c.value, 10.0, at, c.from), c.found);
    if (!c.found) {
      EXPECT_EQ(static_cast<double>(at), -1.0);  // untouched
      continue;
    }
    EXPECT_NEAR(static_cast<double>(at), c.at, 1e-9);
  }
}

// Where the value is continuous, the answer lies on the value.
TEST(Inverse, ContinuousAnswersAreExact) {
  const CParam param = Param("value=\"0\" useKeyframe=\"True\"",
                             Key(0, 3, "Bezier") + Key(0.4, 80, "Spline") + Key(1, -20));
  for (double v : {3.5, 10.0, 42.0, 79.9, 0.0, -19.0}) {
    mtime at;
    ASSERT_TRUE(param.GetPositionFromValueDouble(v, 10.0, at)) << v;
    EXPECT_NEAR(param.GetValueDouble(at, 10.0, 0.0), v, 1e-9 * std::max(1.0, std::fabs(v))) << v;
  }
}

TEST(Inverse, EveryCrossingInOrder) {
  const CParam param = Param("value=\"0\" useKeyframe=\"True\"",
                             Key(0, 0) + Key(0.25, 100) + Key(0.5, 0, "Hold") + Key(0.75, 100));
  mtime at[8];
  // Up to 2.5 s, down to 5 s, held at 0, a jump to 100 at 7.5 s.
  ASSERT_EQ(param.GetPositionsFromValueDouble(50, 10.0, at, 8), 3u);
  EXPECT_NEAR(static_cast<double>(at[0]), 1.25, 1e-9);
  EXPECT_NEAR(static_cast<double>(at[1]), 3.75, 1e-9);
  EXPECT_EQ(static_cast<double>(at[2]), 7.5);
  // A null array counts; a short one takes the earliest.
  EXPECT_EQ(param.GetPositionsFromValueDouble(50, 10.0, nullptr, 0), 3u);
  mtime one[1];
  EXPECT_EQ(param.GetPositionsFromValueDouble(50, 10.0, one, 1), 3u);
  EXPECT_NEAR(static_cast<double>(one[0]), 1.25, 1e-9);
  // A value held over a span is reached once, where the span starts.
  EXPECT_EQ(param.GetPositionsFromValueDouble(0, 10.0, at, 8, 1.0), 1u);
  EXPECT_EQ(static_cast<double>(at[0]), 5.0);
  EXPECT_EQ(param.GetPositionsFromValueDouble(kNaN, 10.0, at, 8), 0u);
}

// By name, id and object, on the set's time line (starting at 10 s).
TEST(Inverse, SetFormsUseTheSetsTimeLine) {
  CParamSet set(
      qdtest::Parse(R"(<Property><Parameter id="1" name="ramp" value="0" useKeyframe="True">)"
                    R"(<Keyframe position="0" value="0" interpolation="Linear"/>)"
                    R"(<Keyframe position="1" value="4" interpolation="Linear"/></Parameter>)"
                    R"(<Parameter id="2" name="caption" type="String" value="x"/></Property>)"));
  set.SetStartTime(10.0);
  set.SetDuration(4.0);
  auto forms = [&](auto key, double value, double from, bool found, double at) {
    mtime position = -1.0;
    EXPECT_EQ(set.GetPositionFromValueDouble(key, value, position, from), found);
    EXPECT_NEAR(static_cast<double>(position), found ? at : -1.0, 1e-9);
  };
  for (int form = 0; form < 3; ++form) {
    SCOPED_TRACE(form);
    const auto check = [&](double value, double from, bool found, double at) {
      if (form == 0) forms(P(u"ramp"), value, from, found, at);
      if (form == 1) forms(1ul, value, from, found, at);
      if (form == 2) forms(set.Get(1ul), value, from, found, at);
    };
    check(2.0, 0.0, true, 12.0);
    check(1.0, 12.0, false, 0.0);
    check(4.0, 0.0, true, 14.0);
  }
  mtime position = -1.0;
  EXPECT_FALSE(set.GetPositionFromValueDouble(P(u"missing"), 1.0, position));
  EXPECT_FALSE(set.GetPositionFromValueDouble(P(u"caption"), 1.0, position));
  EXPECT_FALSE(set.GetPositionFromValueDouble(static_cast<const CParam*>(nullptr), 1.0, position));
  EXPECT_EQ(static_cast<double>(position), -1.0);
}

// The tree finds the first segment from a given one whose bounds hold a value.
TEST(Inverse, ValueIndexFindsTheNextSegmentThatMayHoldAValue) {
  const double inf = std::numeric_limits<double>::infinity();
  //                    0    1    2     3    4     5 (no segment)  6
  const ValueIndex index({0, 10, 5, -inf, 40, inf, 0}, {4, 20, 12, inf, 50, -inf, 100});
  const struct {
    unsigned int from;
    double value;
    unsigned int first;
  } cases[] = {
      {0, 2, 0},
      {0, 11, 1},
      {2, 11, 2},
      {0, 30, 3},
      {4, 45, 4},
      {4, 60, 6},
      {5, 2, 6},
      {7, 2, ValueIndex::kNone},
      {4, 200, ValueIndex::kNone},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(index.FirstFrom(c.from, c.value), c.first) << c.from << " " << c.value;
  }
}

// ---------------------------------------------------------------------------
// The oracle: the forward evaluation sampled densely. A sampler can miss a
// narrow crossing, never invent one, so it checks that the answer reaches
// the value and that no sampled crossing comes before it.
// ---------------------------------------------------------------------------

constexpr double kClip = 10.0;

CParam RandomParam(std::mt19937& rng) {
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  std::uniform_int_distribution<int> pick(0, 1 << 20);
  const bool whole = pick(rng) % 4 == 0;
  CParam param(whole ? PARAM_LONG : PARAM_DOUBLE, u"p", 1);
  param.SetKeyFrameStatus(true);
  if (whole)
    param.SetValueLong(0);
  else
    param.SetValueDouble(0.0);
  if (whole) {
    if (pick(rng) % 4 == 0) param.SetGranularityLong(2);
    if (pick(rng) % 4 == 0) param.SetMinValueLong(pick(rng) % 40 - 40);
    if (pick(rng) % 4 == 0) param.SetMaxValueLong(20 + pick(rng) % 40);
  } else {
    if (pick(rng) % 4 == 0) param.SetGranularityDouble(5.0 * unit(rng) + 0.5);
    if (pick(rng) % 4 == 0) param.SetMinValueDouble(-40.0 + 40.0 * unit(rng));
    if (pick(rng) % 4 == 0) param.SetMaxValueDouble(20.0 + 40.0 * unit(rng));
  }
  if (pick(rng) % 5 == 0) param.SetTimeTranslation(TIMETRANSLATION_EASEINOUT);
  const unsigned int kinds[] = {INTERPOLATION_HOLD, INTERPOLATION_LINEAR, INTERPOLATION_BEZIER,
                                INTERPOLATION_LINLOG, INTERPOLATION_SPLINE};
  const unsigned int eases[] = {TIMETRANSLATION_LINEAR, TIMETRANSLATION_EASEINOUT,
                                TIMETRANSLATION_ANCHOREASEINOUT, TIMETRANSLATION_EASEIN,
                                TIMETRANSLATION_EASEOUT};
  const int count = 2 + pick(rng) % 6;
  std::vector<double> positions;
  for (int i = 0; i < count; ++i) positions.push_back(unit(rng));
  // Mostly in time order; otherwise the walk's list order decides.
  if (pick(rng) % 5 != 0) std::sort(positions.begin(), positions.end());
  for (int i = 0; i < count; ++i) {
    CKeyFrame kf(whole ? PARAM_LONG : PARAM_DOUBLE);
    kf.SetPosition(positions[i]);
    if (whole)
      kf.SetValueLong(pick(rng) % 61 - 10);
    else
      kf.SetValueDouble(-10.0 + 70.0 * unit(rng));
    const unsigned int kind = kinds[pick(rng) % 5];
    kf.SetInterpolation(kind);
    kf.SetTimeTranslation(eases[pick(rng) % 5]);
    const double gap = i + 1 < count ? std::max(positions[i + 1] - positions[i], 0.0) : 0.0;
    if (kind == INTERPOLATION_BEZIER) {
      // Handles that keep time moving forward, values that overshoot.
      const Anchor handles[2] = {{gap / 3.0 * unit(rng), 40.0 * (unit(rng) - 0.5)},
                                 {-gap / 3.0 * unit(rng), 40.0 * (unit(rng) - 0.5)}};
      kf.SetAnchors(handles, 2);
    }
    if (kind == INTERPOLATION_SPLINE && gap > 0.0 && pick(rng) % 2 == 0) {
      std::vector<Anchor> anchors;
      const int n = 1 + pick(rng) % 3;
      for (int j = 1; j <= n; ++j) {
        anchors.push_back({positions[i] + gap * j / (n + 1), -10.0 + 70.0 * unit(rng)});
      }
      kf.SetAnchors(anchors.data(), static_cast<unsigned int>(anchors.size()));
    }
    EXPECT_TRUE(param.Add(kf, kClip, false));
  }
  return param;
}

std::string Stored(const CParam& param) {
  CXMLObject element(P(u"Parameter"));
  param.Store(element);
  return qdtest::Text(element);
}

double ValueAt(const CParam& param, double t) { return param.GetValueDouble(t, kClip, 0.0); }

// The value reaches `v` going from a to b (neighbouring samples).
bool Crosses(double a, double b, double v) {
  return b == v || (a < v && v < b) || (b < v && v < a);
}

TEST(Inverse, OracleOverRandomParameters) {
  std::mt19937 rng(20261125);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  constexpr int kSamples = 4000;
  for (int round = 0; round < 400; ++round) {
    SCOPED_TRACE(round);
    const CParam param = RandomParam(rng);
    const double from = unit(rng) < 0.5 ? 0.0 : kClip * unit(rng);
    // A value it takes (the usual question), or any value in its span.
    const double v = unit(rng) < 0.7 ? ValueAt(param, from + (kClip - from) * unit(rng))
                                     : -20.0 + 90.0 * unit(rng);
    mtime at;
    const bool found = param.GetPositionFromValueDouble(v, kClip, at, from);
    const double t = static_cast<double>(at);
    double previous = ValueAt(param, from);
    bool sampled = previous == v;
    double earliest = sampled ? from : kClip;  // a sampled crossing lies at or before it
    for (int k = 1; k <= kSamples && !sampled; ++k) {
      const double s = from + (kClip - from) * k / kSamples;
      const double value = ValueAt(param, s);
      if (Crosses(previous, value, v)) {
        sampled = true;
        earliest = s;
      }
      previous = value;
    }
    if (!found) {
      EXPECT_FALSE(sampled) << "missed a crossing by " << earliest << " of " << v << " from "
                            << from << " " << Stored(param);
      continue;
    }
    ASSERT_GE(t, from);
    ASSERT_LE(t, kClip);
    // It reaches the value at t: equal there, or across a jump into t.
    const double here = ValueAt(param, t);
    const double before = ValueAt(param, std::nextafter(t, -1e300));
    EXPECT_TRUE(Crosses(before, here, v)) << t << ": " << before << " -> " << here << " for " << v;
    // Nothing sampled reaches it earlier.
    if (sampled) {
      EXPECT_LE(t, earliest) << v << " from " << from << " " << Stored(param);
    }
  }
}

}  // namespace
