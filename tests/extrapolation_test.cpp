// Extrapolation before the first and after the last keyframe: hand-checked
// values and slopes of each mode, value arrays against single values,
// the integral against a quadrature of the values, the stepping of Bool
// parameters, and the attributes through an edit and a round trip.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "qdparam/qdparam.hpp"

namespace {

using E = qd::Extrapolation;

std::string Spelled(E mode) { return std::string(qd::name_of(mode)); }

// A ramp from 10 at 2 s to 30 at 4 s of a 10 s clip, its keyframes at
// shares of the clip or in seconds, extrapolated as asked.
qd::Set Ramp(E before, E after, bool seconds = false, const char* type = "Double") {
  std::string xml = "<Property><Parameter id=\"1\" name=\"ramp\" type=\"" + std::string(type) +
                    "\" value=\"0\" useKeyframe=\"True\"";
  if (before != E::Hold) xml += " extrapolateBefore=\"" + Spelled(before) + "\"";
  if (after != E::Hold) xml += " extrapolateAfter=\"" + Spelled(after) + "\"";
  xml += seconds ? "><Keyframe position=\"2s\" value=\"10\" interpolation=\"Linear\"/>"
                   "<Keyframe position=\"4s\" value=\"30\" interpolation=\"Linear\"/>"
                 : "><Keyframe position=\"0.2\" value=\"10\" interpolation=\"Linear\"/>"
                   "<Keyframe position=\"0.4\" value=\"30\" interpolation=\"Linear\"/>";
  xml += "</Parameter></Property>";
  auto set = qd::Set::parse(xml);
  EXPECT_TRUE(set.ok());
  set->set_clip(0.0, 10.0);
  return std::move(*set);
}

qd::Param RampParam(const qd::Set& set) { return *set.param("ramp"); }

TEST(Extrapolation, EachModeByHand) {
  const struct {
    E before, after;
    double time, value, slope;
  } rows[] = {
      {E::Hold, E::Hold, 1.0, 10.0, 0.0},
      {E::Hold, E::Hold, 5.0, 30.0, 0.0},
      {E::Linear, E::Linear, 1.0, 0.0, 10.0},
      {E::Linear, E::Linear, 7.0, 60.0, 10.0},
      {E::Cycle, E::Cycle, 4.5, 15.0, 10.0},
      {E::Cycle, E::Cycle, 6.0, 10.0, 10.0},  // a seam starts a repeat
      {E::Cycle, E::Cycle, 1.0, 20.0, 10.0},
      {E::Cycle, E::Cycle, 0.0, 10.0, 10.0},
      {E::CycleWithOffset, E::CycleWithOffset, 5.0, 40.0, 10.0},
      {E::CycleWithOffset, E::CycleWithOffset, 6.0, 50.0, 10.0},
      {E::CycleWithOffset, E::CycleWithOffset, 1.0, 0.0, 10.0},
      {E::CycleWithOffset, E::CycleWithOffset, 0.0, -10.0, 10.0},
      {E::Oscillate, E::Oscillate, 4.5, 25.0, -10.0},
      {E::Oscillate, E::Oscillate, 6.0, 10.0, 10.0},
      {E::Oscillate, E::Oscillate, 7.0, 20.0, 10.0},
      {E::Oscillate, E::Oscillate, 1.5, 15.0, -10.0},
      // The ends differ; the span itself is never touched.
      {E::Linear, E::Cycle, 1.0, 0.0, 10.0},
      {E::Linear, E::Cycle, 5.0, 20.0, 10.0},
      {E::Oscillate, E::Hold, 9.0, 30.0, 0.0},
      {E::Oscillate, E::Linear, 3.0, 20.0, 10.0},
      {E::Oscillate, E::Linear, 4.0, 30.0, 0.0},  // at the last keyframe: held there
  };
  for (const auto& r : rows) {
    for (bool seconds : {false, true}) {
      const qd::Set set = Ramp(r.before, r.after, seconds);
      const qd::Param p = RampParam(set);
      const std::string what = Spelled(r.before) + "/" + Spelled(r.after) + " at " +
                               std::to_string(r.time) + (seconds ? " (seconds)" : "");
      EXPECT_NEAR(*p.value(r.time), r.value, 1e-9) << what;
      EXPECT_NEAR(*p.slope(r.time), r.slope, 1e-9) << what;
    }
  }
}

TEST(Extrapolation, LongValuesRoundTheExtrapolatedBlend) {
  const qd::Set set = Ramp(E::CycleWithOffset, E::Linear, false, "Long");
  const qd::Param p = RampParam(set);
  EXPECT_EQ(*p.value(0.0), -10.0);
  EXPECT_EQ(*p.value(6.25), 53.0);  // 52.5 rounds away from zero
}

TEST(Extrapolation, BoolStepsRepeatAndTheOtherModesHold) {
  const char* xml =
      "<Property><Parameter id=\"1\" name=\"on\" type=\"Bool\" value=\"False\" "
      "useKeyframe=\"True\" extrapolateBefore=\"Linear\" extrapolateAfter=\"Cycle\">"
      "<Keyframe position=\"0.2\" value=\"True\"/><Keyframe position=\"0.3\" value=\"False\"/>"
      "<Keyframe position=\"0.4\" value=\"False\"/></Parameter></Property>";
  auto set = qd::Set::parse(xml);
  ASSERT_TRUE(set.ok());
  set->set_clip(0.0, 10.0);
  const qd::Param on = *set->param("on");
  EXPECT_EQ(*on.value(1.0), 1.0);  // Linear holds a step
  EXPECT_EQ(*on.value(4.5), 1.0);  // the first half of a repeat
  EXPECT_EQ(*on.value(5.5), 0.0);
  EXPECT_EQ(*on.value(6.2), 1.0);
}

std::uint64_t Bits(double v) { return std::bit_cast<std::uint64_t>(v); }

const E kModes[] = {E::Hold, E::Linear, E::Cycle, E::CycleWithOffset, E::Oscillate};

TEST(Extrapolation, ValueArraysAreTheSingleValuesBitForBit) {
  for (E before : kModes) {
    for (E after : kModes) {
      const qd::Set set = Ramp(before, after);
      const qd::Param p = RampParam(set);
      std::vector<double> values(997);
      ASSERT_TRUE(p.values(-3.0, 0.0171, values));
      for (std::size_t i = 0; i < values.size(); ++i) {
        const double t = -3.0 + static_cast<double>(i) * 0.0171;
        ASSERT_EQ(Bits(values[i]), Bits(*p.value(t))) << Spelled(before) << "/" << Spelled(after);
      }
    }
  }
}

// The midpoint rule over steps of 0.01 s: exact for values that are
// straight between the steps' ends, where every key, seam and kink of the
// ramps below lies.
double Quadrature(const qd::Param& p, double to) {
  constexpr double kStep = 0.01;
  std::vector<double> v(static_cast<std::size_t>(std::lround(to / kStep)));
  p.values(0.5 * kStep, kStep, v);
  double area = 0.0;
  for (double x : v) area += x;
  return area * kStep;
}

TEST(Extrapolation, IntegralIsTheAreaUnderTheExtrapolatedValues) {
  for (E before : kModes) {
    for (E after : kModes) {
      for (bool seconds : {false, true}) {
        const qd::Set set = Ramp(before, after, seconds);
        const qd::Param p = RampParam(set);
        for (double t : {1.0, 3.0, 4.0, 5.3, 7.0, 9.99}) {
          EXPECT_NEAR(*p.integral(t), Quadrature(p, t), 1e-7)
              << Spelled(before) << "/" << Spelled(after) << " to " << t;
        }
      }
    }
  }
}

TEST(Extrapolation, InverseFindsTheCrossingsOfEachRepeat) {
  const double afterLast = std::nextafter(4.0, 5.0);  // a jump right after the span
  const struct {
    E before, after;
    double value;
    std::vector<double> times;
  } rows[] = {
      // Each seam jumps from 30 back to 10, across 20.
      {E::Hold, E::Cycle, 20.0, {3.0, afterLast, 5.0, 6.0, 7.0, 8.0, 9.0, 10.0}},
      {E::Cycle, E::Cycle, 20.0, {1.0, 2.0, 3.0, afterLast, 5.0, 6.0, 7.0, 8.0, 9.0, 10.0}},
      {E::Hold, E::Cycle, 25.0, {3.5, afterLast, 5.5, 6.0, 7.5, 8.0, 9.5, 10.0}},
      {E::Hold, E::Oscillate, 25.0, {3.5, 4.5, 7.5, 8.5}},
      {E::Oscillate, E::Hold, 25.0, {0.5, 3.5}},
      {E::Hold, E::CycleWithOffset, 45.0, {5.5}},
      {E::Hold, E::CycleWithOffset, 50.0, {6.0}},
      {E::CycleWithOffset, E::Hold, -5.0, {0.5}},
      {E::Linear, E::Linear, 5.0, {1.5}},
      {E::Linear, E::Linear, 45.0, {5.5}},
      {E::Linear, E::Hold, 30.0, {4.0}},  // reached at the last key, held after
  };
  for (const auto& r : rows) {
    for (bool seconds : {false, true}) {
      const qd::Set set = Ramp(r.before, r.after, seconds);
      const qd::Param p = RampParam(set);
      const std::vector<double> found = p.find_all(r.value);
      const std::string what =
          Spelled(r.before) + "/" + Spelled(r.after) + " reaching " + std::to_string(r.value);
      ASSERT_EQ(found.size(), r.times.size()) << what;
      for (std::size_t i = 0; i < found.size(); ++i) {
        EXPECT_NEAR(found[i], r.times[i], 1e-9) << what << " crossing " << i;
      }
      if (!found.empty()) {
        EXPECT_EQ(*p.find(r.value), found.front()) << what;
      }
    }
  }
}

// Wherever dense samples of the value pass a level, a crossing is reported
// between them, and every crossing reported reaches the level or jumps across it.
TEST(Extrapolation, InverseAgreesWithDenseSamples) {
  constexpr double kStep = 1.0 / 1024;
  for (E before : kModes) {
    for (E after : kModes) {
      const qd::Set set = Ramp(before, after);
      const qd::Param p = RampParam(set);
      std::vector<double> v(10 * 1024 + 1);
      p.values(0.0, kStep, v);
      for (double level : {-7.3, 5.1, 12.7, 29.9, 33.3, 47.6}) {
        const std::vector<double> found = p.find_all(level);
        EXPECT_TRUE(std::is_sorted(found.begin(), found.end()));
        for (double t : found) {
          const double a = *p.value(std::nextafter(t, -1e9)), b = *p.value(t);
          const bool reaches = std::fabs(b - level) < 1e-9 || (a - level) * (b - level) < 0.0;
          EXPECT_TRUE(reaches) << Spelled(before) << "/" << Spelled(after) << " at " << t;
        }
        for (std::size_t i = 0; i + 1 < v.size(); ++i) {
          if (!((v[i] - level) * (v[i + 1] - level) < 0.0)) continue;
          const double lo = static_cast<double>(i) * kStep, hi = lo + kStep;
          const bool reported =
              std::any_of(found.begin(), found.end(), [&](double t) { return t >= lo && t <= hi; });
          EXPECT_TRUE(reported) << Spelled(before) << "/" << Spelled(after) << " level " << level
                                << " in [" << lo << ", " << hi << "]";
        }
      }
    }
  }
}

// Times no clip holds, and spans too short to repeat: answers, never a
// fault or a search without end (the sanitizer build runs this too).
TEST(Extrapolation, OddTimesAndSpansAreSafe) {
  const double odd[] = {std::nan(""), INFINITY, -INFINITY, 1e308, -1e308, -0.0, 1e-300};
  // A span of 0.1 s repeated 1e7 times over the clip, and a span of one instant.
  const char* spans[] = {"0.2000001\" value=\"30", "0.2\" value=\"30"};
  for (E before : kModes) {
    for (E after : kModes) {
      for (const char* second : spans) {
        std::string xml =
            "<Property><Parameter id=\"1\" name=\"ramp\" value=\"0\" "
            "useKeyframe=\"True\" extrapolateBefore=\"" +
            Spelled(before) + "\" extrapolateAfter=\"" + Spelled(after) +
            "\"><Keyframe position=\"0.2\" value=\"10\" interpolation=\"Linear\"/>"
            "<Keyframe position=\"" +
            second + "\"/></Parameter></Property>";
        auto set = qd::Set::parse(xml);
        ASSERT_TRUE(set.ok());
        set->set_clip(0.0, 1e6);
        const qd::Param p = RampParam(*set);
        for (double t : odd) {
          p.value(t);
          p.slope(t);
          p.integral(t);
        }
        EXPECT_LE(p.find_all(20.0, std::nullopt, 1000).size(), 1000u);
        // Never reached: the repeats searched are bounded.
        if (before == after) {
          EXPECT_FALSE(p.find(1e9).has_value());
        }
        EXPECT_EQ(p.find_all(std::nan("")).size(), 0u);
      }
    }
  }
}

TEST(Extrapolation, SetThroughTheHostApiAndKeptThroughARoundTrip) {
  qd::Set set = Ramp(E::Hold, E::Hold);
  qd::Param p = RampParam(set);
  const std::string plain = set.to_xml();
  const double held = *p.value(7.0);
  ASSERT_TRUE(p.set_extrapolation(E::Oscillate, E::CycleWithOffset).ok());
  EXPECT_EQ(p.extrapolation(), (qd::Extrapolations{E::Oscillate, E::CycleWithOffset}));
  const std::string xml = set.to_xml();
  EXPECT_NE(xml.find("extrapolateBefore=\"Oscillate\""), std::string::npos);
  EXPECT_NE(xml.find("extrapolateAfter=\"CycleWithOffset\""), std::string::npos);
  auto again = qd::Set::parse(xml);
  ASSERT_TRUE(again.ok());
  again->set_clip(0.0, 10.0);
  const qd::Param q = RampParam(*again);
  EXPECT_EQ(q.extrapolation(), p.extrapolation());
  EXPECT_EQ(*q.value(7.0), *p.value(7.0));
  // Back to Hold: no attribute, the file and the values as before.
  ASSERT_TRUE(p.set_extrapolation(E::Hold, E::Hold).ok());
  EXPECT_EQ(set.to_xml(), plain);
  EXPECT_EQ(Bits(*p.value(7.0)), Bits(held));
  EXPECT_FALSE(p.set_extrapolation(static_cast<E>(9), E::Hold).ok());
}

}  // namespace
