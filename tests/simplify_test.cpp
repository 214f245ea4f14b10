// Curve simplification: hand-checked curves, a random oracle that measures
// the result independently, the kept time forms, and the refusals.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "qdparam/qdparam.hpp"
#include "qdsimplify.h"

namespace {

constexpr double kFps = 25.0;

// A Double parameter "curve" keyed at every frame with `valueAt(frame)`,
// each keyframe at a share of the clip.
std::string Recorded(int frames, const std::function<double(int)>& valueAt,
                     const std::string& interpolation = "Linear",
                     const std::string& attributes = "") {
  std::ostringstream xml;
  xml.precision(17);
  xml << "<Property><Parameter id=\"1\" name=\"curve\" value=\"0\" "
         "useKeyframe=\"True\" "
      << attributes << ">";
  for (int i = 0; i < frames; ++i) {
    xml << "<Keyframe position=\"" << static_cast<double>(i) / (frames - 1) << "\" value=\""
        << valueAt(i) << "\" interpolation=\"" << interpolation << "\"/>";
  }
  xml << "</Parameter></Property>";
  return xml.str();
}

qd::Set Parse(const std::string& xml, double duration) {
  auto set = qd::Set::parse(xml);
  EXPECT_TRUE(set.ok()) << set.error().describe();
  qd::Set parsed = set.ok() ? *set : qd::Set();
  parsed.set_clip(0.0, duration);
  return parsed;
}

double Duration(int frames) { return (frames - 1) / kFps; }

// The largest difference between two parameters over their clip, sampled
// `per` times in each frame: measured apart from the samples the
// simplification compares.
double Deviation(const qd::Param& a, const qd::Param& b, int frames, int per) {
  const std::size_t n = static_cast<std::size_t>(frames - 1) * per + 1;
  std::vector<double> va(n), vb(n);
  const double step = 1.0 / kFps / per;
  EXPECT_TRUE(a.values(0.0, step, va));
  EXPECT_TRUE(b.values(0.0, step, vb));
  double largest = 0;
  for (std::size_t i = 0; i < n; ++i) largest = std::max(largest, std::fabs(va[i] - vb[i]));
  return largest;
}

struct Simplified {
  qd::SimplifyReport report;
  double measured = 0;  // by Deviation, 13 samples a frame
};

// Simplifies a copy of `set`'s curve and measures it against the original.
Simplified Simplify(const qd::Set& set, int frames, double tolerance, qd::Interpolation shape) {
  const qd::Set copy = set.snapshot();
  qd::Param param = *copy.param("curve");
  const auto report = param.simplify(tolerance, shape);
  EXPECT_TRUE(report.ok()) << report.error().describe();
  if (!report.ok()) return {};
  EXPECT_EQ(param.keys().size(), report->keys_after);
  return {*report, Deviation(*set.param("curve"), param, frames, 13)};
}

const qd::Interpolation kShapes[] = {qd::Interpolation::Linear, qd::Interpolation::Bezier};

TEST(Simplify, AStraightLineKeepsItsEnds) {
  const int frames = 1000;
  const qd::Set set =
      Parse(Recorded(frames, [](int i) { return 3.0 - 0.01 * i; }), Duration(frames));
  for (const auto shape : kShapes) {
    const Simplified s = Simplify(set, frames, 1e-9, shape);
    EXPECT_EQ(s.report.keys_before, 1000u);
    EXPECT_EQ(s.report.keys_after, 2u) << name_of(shape);
    EXPECT_LE(s.measured, 1e-9) << name_of(shape);
  }
}

// A linear extrapolation continues the end segments, so their inner keys stay.
TEST(Simplify, LinearExtrapolationKeepsItsEndSlopes) {
  const int frames = 500;
  const std::string attributes = "extrapolateBefore=\"Linear\" extrapolateAfter=\"Linear\"";
  const qd::Set set = Parse(
      Recorded(frames, [](int i) { return std::sin(i * 0.05); }, "Linear", attributes),
      Duration(frames));
  const qd::Set copy = set.snapshot();
  qd::Param thinned = *copy.param("curve");
  ASSERT_TRUE(thinned.simplify(0.01, qd::Interpolation::Linear).ok());
  const qd::Param original = *set.param("curve");
  for (double t : {-1.0, Duration(frames) + 1.0}) {
    EXPECT_DOUBLE_EQ(*thinned.slope(t), *original.slope(t)) << t;
  }
}

TEST(Simplify, StepsKeepTheirCorners) {
  // A jump over one frame (Linear) keeps both sides of it; a Hold jump
  // keeps the keyframe it holds from, whose segment stays Hold.
  const auto step = [](int i) { return i < 50 ? 0.0 : 1.0; };
  for (const char* interpolation : {"Linear", "Hold"}) {
    const qd::Set set = Parse(Recorded(100, step, interpolation), Duration(100));
    for (const auto shape : kShapes) {
      const Simplified s = Simplify(set, 100, 0.01, shape);
      EXPECT_EQ(s.report.keys_after, 4u) << interpolation << " " << name_of(shape);
      EXPECT_LE(s.measured, 1e-12) << interpolation << " " << name_of(shape);
    }
  }
}

TEST(Simplify, ASineNeedsFewKeysAndBezierFarFewer) {
  const int frames = 2500;  // 100 s, a period of 10 s
  const qd::Set set =
      Parse(Recorded(frames, [](int i) { return 5.0 * std::sin(i / kFps * 0.2 * M_PI); }),
            Duration(frames));
  std::size_t kept[2] = {};
  for (int k = 0; k < 2; ++k) {
    const Simplified s = Simplify(set, frames, 0.01, kShapes[k]);
    kept[k] = s.report.keys_after;
    EXPECT_LE(s.report.max_deviation, 0.01);
    EXPECT_LE(s.measured, 0.01 * 1.001) << name_of(kShapes[k]);
  }
  // About 400 straight pieces and 40 cubic ones.
  EXPECT_LT(kept[0], frames / 5u);
  EXPECT_LT(kept[1], frames / 50u);
}

TEST(Simplify, RandomCurvesStayWithinTheTolerance) {
  std::mt19937 random(std::getenv("SEED") ? atoi(std::getenv("SEED")) : 17);
  for (int round = 0; round < 60; ++round) {
    const int frames = std::uniform_int_distribution<int>(3, 400)(random);
    std::normal_distribution<double> noise(0.0,
                                           std::uniform_real_distribution<double>(0, 0.05)(random));
    const double freq = std::uniform_real_distribution<double>(0.01, 1.0)(random);
    // Limits that the keyframes keep, as an editor writes them: the fitted
    // pieces may still overshoot them.
    const bool limited = round % 4 == 0;
    std::vector<double> values(frames);
    for (int i = 0; i < frames; ++i) {
      values[i] = std::sin(i * freq) * 3 + noise(random);
      if (limited) values[i] = std::clamp(values[i], -2.0, 2.5);
    }
    const char* kinds[] = {"Linear", "Hold", "Bezier"};
    const std::string kind = kinds[round % 3];
    const std::string limits = limited ? "min=\"-2\" max=\"2.5\"" : "";
    const qd::Set set = Parse(Recorded(
                                  frames, [&](int i) { return values[i]; }, kind, limits),
                              Duration(frames));
    const double tolerance = std::uniform_real_distribution<double>(0.0, 0.5)(random);
    for (const auto shape : kShapes) {
      const Simplified s = Simplify(set, frames, tolerance, shape);
      EXPECT_LE(s.report.max_deviation, tolerance + 1e-9) << round;
      EXPECT_LE(s.report.keys_after, s.report.keys_before);
      // A straight piece over straight (or held) frames differs most where
      // it is compared; a Bezier piece may bulge a little further between.
      const double room = shape == qd::Interpolation::Linear ? 1.0 : 1.03;
      EXPECT_LE(s.measured, tolerance * room + 1e-9)
          << "round " << round << ", " << kind << " frames to " << name_of(shape);
    }
  }
}

TEST(Simplify, KeyframesKeepTheirTimeForms) {
  // Seconds counted from the start and back from the end: on a 3 s clip the
  // 4 s they need are scaled onto it, so the keyframes fixing that need stay.
  std::ostringstream xml;
  xml << "<Property><Parameter id=\"1\" name=\"curve\" useKeyframe=\"True\" value=\"0\">";
  for (int i = 0; i <= 50; ++i) {
    xml << "<Keyframe position=\"" << i * 0.04 << "s\" value=\"" << i
        << "\" interpolation=\"Linear\"/>";
  }
  for (int i = 50; i >= 1; --i) {
    xml << "<Keyframe position=\"-" << i * 0.04 << "s\" value=\"" << 100 - i
        << "\" interpolation=\"Linear\"/>";
  }
  xml << "</Parameter></Property>";
  const qd::Set set = Parse(xml.str(), 3.0);
  const qd::Set copy = set.snapshot();
  qd::Param param = *copy.param("curve");
  const auto report = param.simplify(1e-6);
  ASSERT_TRUE(report.ok()) << report.error().describe();
  std::vector<std::string> positions;
  for (const qd::Keyframe& key : param.keys()) positions.push_back(key.position);
  EXPECT_EQ(positions, (std::vector<std::string>{"0s", "2s", "-2s", "-0.04s"}));
  EXPECT_LE(Deviation(*set.param("curve"), param, 75, 4), 1e-6);
}

TEST(Simplify, RefusesWhatItCannotDo) {
  const std::string ramp = Recorded(10, [](int i) { return i; });
  struct Case {
    std::string xml;
    double tolerance;
    qd::Interpolation shape;
    const char* words;
  };
  const Case cases[] = {
      {Recorded(
           10, [](int i) { return i; }, "Linear", "type=\"Long\""),
       0.1, qd::Interpolation::Linear, "not a Double"},
      {std::string(ramp).replace(ramp.find("True"), 4, "False"), 0.1, qd::Interpolation::Linear,
       "not animated"},
      {Recorded(
           10, [](int i) { return i; }, "Linear", "active=\"False\""),
       0.1, qd::Interpolation::Linear, "inactive"},
      {Recorded(
           10, [](int i) { return i; }, "Linear", "timeTranslation=\"EaseInOut\""),
       0.1, qd::Interpolation::Linear, "eases"},
      {Recorded(
           10, [](int i) { return i; }, "Linear", "interpolation=\"Hold;Linear\""),
       0.1, qd::Interpolation::Bezier, "not allowed"},
      {Recorded(
           10, [](int i) { return i; }, "Linear", "granularity=\"0.5\""),
       0.1, qd::Interpolation::Linear, "steps of 0.5"},
      {ramp, -0.5, qd::Interpolation::Linear, "tolerance"},
      {ramp, NAN, qd::Interpolation::Linear, "tolerance"},
      {ramp, INFINITY, qd::Interpolation::Linear, "tolerance"},
      {ramp, 0.1, qd::Interpolation::Spline, "Linear or Bezier"},
  };
  for (const Case& c : cases) {
    qd::Set set = Parse(c.xml, 1.0);
    qd::Param param = *set.param("curve");
    const std::string before = set.to_xml();
    const auto report = param.simplify(c.tolerance, c.shape);
    ASSERT_FALSE(report.ok()) << c.words;
    EXPECT_NE(report.error().message.find(c.words), std::string::npos) << report.error().message;
    EXPECT_EQ(set.to_xml(), before) << c.words;
  }
}

TEST(Simplify, ScanKeepsPinnedKeyframesAndRefusesMismatchedSamples) {
  using namespace qdcore::simplify;
  const double times[] = {0, 1, 2}, values[] = {0, 1, 2};
  const std::vector<double> inside = SampleTimes(times, 2);  // 0.5, just before 1, 1.5, before 2
  const double samples[] = {0.5, 1, 1.5, 2};
  const unsigned char middle[] = {0, 1, 0};
  const Samples free{times, values, values, inside, samples, 2, {}};
  const Samples pinned{times, values, values, inside, samples, 2, middle};
  const Samples mismatched{times, values, values, inside, {samples, 3}, 2, {}};
  EXPECT_EQ(Simplify(free, 1e-12, Shape::Linear, {}).size(), 1u);
  EXPECT_EQ(Simplify(pinned, 1e-12, Shape::Linear, {}).size(), 2u);
  EXPECT_TRUE(Simplify(mismatched, 1e-12, Shape::Linear, {}).empty());
}

}  // namespace
