// Motion paths through several parameters: the vertices, the pace along the
// curve, its shape, and what the path refuses.
#include "qdparam/paramutil.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "qdmotionpath.h"
#include "qdparam/paramset.h"
#include "qdparam/qdcalc.h"
#include "support/capture.h"
#include "support/xml.h"

using namespace qdcore;
using qdtest::P;

namespace {

constexpr double kClip = 10.0;
constexpr double kNAN = std::numeric_limits<double>::quiet_NaN();

std::string Keys(const std::vector<std::pair<double, double>>& keys,
                 const char* interpolation = "Linear", const char* extra = "") {
  std::string text;
  for (const auto& [seconds, value] : keys) {
    text += "<Keyframe position=\"" + std::to_string(seconds) + "fs\" value=\"" +
            std::to_string(value) + "\" interpolation=\"" + interpolation + "\" " + extra + "/>";
  }
  return text;
}

std::string Parameter(int id, const char* name, const std::string& keys,
                      const char* attributes = "") {
  return "<Parameter id=\"" + std::to_string(id) + "\" name=\"" + name +
         "\" value=\"0\" useKeyframe=\"True\" " + attributes + ">" + keys + "</Parameter>";
}

CParamSet Set(const std::string& parameters) {
  CParamSet set(qdtest::Parse("<Property>" + parameters + "</Property>"));
  set.SetDuration(kClip);
  return set;
}

// x's keys set the vertex times; y has eased keys of its own, elsewhere.
const std::string kXY =
    Parameter(1, "x", Keys({{1, 10}, {3, 60}, {6, 40}, {9, 90}})) +
    Parameter(2, "y",
              Keys({{0, 0}, {5, 50}, {10, 100}}, "Linear", "timeTranslation=\"EaseInOut\""));

struct Point {
  double x = 0.0, y = 0.0;
};

Point At(const CParamSet& set, double time) {
  const CZPoolString names[] = {P(u"x"), P(u"y")};
  double values[2] = {kNAN, kNAN};
  EXPECT_TRUE(CParamUtil::InterpolateParamsSpline(set, names, 2, time, values));
  return {values[0], values[1]};
}

double Distance(Point a, Point b) { return std::hypot(b.x - a.x, b.y - a.y); }

TEST(MotionPath, VerticesAreTheValuesAtTheFirstParametersKeys) {
  const CParamSet set = Set(kXY);
  for (double t : {1.0, 3.0, 6.0, 9.0}) {
    const Point p = At(set, t);
    EXPECT_EQ(p.x, set.GetValueDouble(P(u"x"), t, 0.0)) << t;
    EXPECT_EQ(p.y, set.GetValueDouble(P(u"y"), t, 0.0)) << t;
  }
  // Held before the first key and after the last.
  EXPECT_EQ(At(set, 0.2).y, At(set, 1.0).y);
  EXPECT_EQ(At(set, 9.7).x, 90.0);
  EXPECT_EQ(At(set, 9.7).y, At(set, 9.0).y);
}

// Equal time steps cover equal lengths of curve, each measured by many
// short chords (a sharp turn at a vertex makes one chord too short).
TEST(MotionPath, UnEasedSegmentsAreTravelledAtConstantSpeed) {
  const CParamSet set = Set(kXY);
  for (auto [a, b] : {std::pair{1.0, 3.0}, {3.0, 6.0}, {6.0, 9.0}}) {
    constexpr int kSteps = 50, kChords = 40;
    double shortest = 1e300, longest = 0.0;
    Point previous = At(set, a);
    for (int k = 0; k < kSteps; ++k) {
      double length = 0.0;
      for (int c = 1; c <= kChords; ++c) {
        const Point p = At(set, a + (b - a) * (k * kChords + c) / (kSteps * kChords));
        length += Distance(previous, p);
        previous = p;
      }
      shortest = std::min(shortest, length);
      longest = std::max(longest, length);
    }
    EXPECT_LT(longest / shortest - 1.0, 1e-4) << a;
  }
}

TEST(MotionPath, CollinearVerticesGiveAStraightPath) {
  // y = 2x + 1 at every key of x, with uneven gaps.
  const CParamSet set = Set(Parameter(1, "x", Keys({{0, 0}, {2, 1}, {3, 5}, {8, 6}})) +
                            Parameter(2, "y", Keys({{0, 1}, {2, 3}, {3, 11}, {8, 13}})));
  Point previous = At(set, 2.0);
  for (int k = 1; k <= 50; ++k) {
    const Point p = At(set, 2.0 + k * 0.02);
    EXPECT_NEAR(p.y, 2.0 * p.x + 1.0, 1e-9);
    EXPECT_NEAR(Distance(previous, p), std::hypot(4.0, 8.0) / 50, 1e-9);
    previous = p;
  }
}

// A path of one parameter moves along its own values at constant speed:
// a straight blend between monotone vertices.
TEST(MotionPath, OneParameterMovesEvenlyBetweenItsValues) {
  const CParamSet set = Set(Parameter(1, "x", Keys({{0, 0}, {4, 20}, {6, 50}, {10, 90}})));
  const CZPoolString name = P(u"x");
  for (double t = 0.0; t <= kClip; t += 0.25) {
    double v = kNAN;
    ASSERT_TRUE(CParamUtil::InterpolateParamsSpline(set, &name, 1, t, &v));
    EXPECT_NEAR(v, set.GetValueDouble(name, t, 0.0), 1e-9) << t;
  }
}

TEST(MotionPath, TheFirstKeyframeSetsThePace) {
  const std::string y = Parameter(2, "y", Keys({{0, 0}, {10, 50}}));
  const CParamSet plain = Set(Parameter(1, "x", Keys({{0, 0}, {4, 40}, {10, 0}})) + y);
  const CParamSet held = Set(Parameter(1, "x", Keys({{0, 0}, {4, 40}, {10, 0}}, "Hold")) + y);
  const CParamSet eased =
      Set(Parameter(1, "x",
                    Keys({{0, 0}, {4, 40}, {10, 0}}, "Linear", "timeTranslation=\"EaseInOut\"")) +
          y);
  for (double t : {0.5, 1.0, 2.0, 3.5}) {
    const Point h = At(held, t), start = At(held, 0.0);
    EXPECT_TRUE(h.x == start.x && h.y == start.y) << t;
    // Eased, the point is where the plain path is at the eased time.
    const Point e = At(eased, t), p = At(plain, TimeTranslationEaseInOut(t, 0.0, 4.0));
    EXPECT_NEAR(e.x, p.x, 1e-9) << t;
    EXPECT_NEAR(e.y, p.y, 1e-9) << t;
  }
}

TEST(MotionPath, CoordinatesKeepTheirParametersLimitsAndGrid) {
  const CParamSet set = Set(Parameter(1, "x", Keys({{0, 0}, {5, 100}, {10, 0}}), "max=\"60\"") +
                            Parameter(2, "y", Keys({{0, 0}, {10, 10}}), "granularity=\"2\""));
  for (double t = 0.0; t <= kClip; t += 0.1) {
    const Point p = At(set, t);
    EXPECT_LE(p.x, 60.0);
    EXPECT_EQ(std::fmod(p.y, 2.0), 0.0) << t;
  }
}

TEST(MotionPath, IdsNameTheSameParameters) {
  const CParamSet set = Set(kXY);
  const unsigned long ids[] = {1, 2};
  double values[2];
  ASSERT_TRUE(CParamUtil::InterpolateParamsSpline(set, ids, 2, 4.5, values));
  const Point p = At(set, 4.5);
  EXPECT_EQ(values[0], p.x);
  EXPECT_EQ(values[1], p.y);
}

TEST(MotionPath, RefusesWhatItCannotDraw) {
  qdtest::AssertCapture quiet;
  const CParamSet set =
      Set(kXY + "<Parameter id=\"3\" name=\"label\" type=\"String\" value=\"a\"/>" +
          "<Parameter id=\"4\" name=\"still\" value=\"7\"/>");
  const CZPoolString names[] = {P(u"x"), P(u"y"), P(u"label"), P(u"nothing")};
  double values[9] = {-1, -1, -1, -1, -1, -1, -1, -1, -1};
  EXPECT_FALSE(CParamUtil::InterpolateParamsSpline(set, names, 0, 1.0, values));
  EXPECT_FALSE(CParamUtil::InterpolateParamsSpline(set, names, 3, 1.0, values));
  EXPECT_FALSE(CParamUtil::InterpolateParamsSpline(set, names + 3, 1, 1.0, values));
  EXPECT_FALSE(CParamUtil::InterpolateParamsSpline(set, names, 2, 1.0, nullptr));
  EXPECT_FALSE(CParamUtil::InterpolateParamsSpline(set, static_cast<const CZPoolString*>(nullptr),
                                                   2, 1.0, values));
  const std::vector<CZPoolString> nine(9, P(u"x"));
  EXPECT_FALSE(CParamUtil::InterpolateParamsSpline(set, nine.data(), 9, 1.0, values));
  for (double v : values) EXPECT_EQ(v, -1.0);
  // A first parameter without two keys: each parameter's own value.
  const CZPoolString still[] = {P(u"still"), P(u"y")};
  ASSERT_TRUE(CParamUtil::InterpolateParamsSpline(set, still, 2, 5.0, values));
  EXPECT_EQ(values[0], 7.0);
  EXPECT_EQ(values[1], 50.0);
}

// The curve's own arithmetic: lengths and the inverse of length.
TEST(MotionPath, ArcLengthAndItsInverse) {
  PathPoint p0{}, p1{}, p2{}, p3{};
  p0[0] = -1.0, p1[0] = 0.0, p2[0] = 3.0, p2[1] = 4.0, p3[0] = 7.0, p3[1] = 1.0;
  const PathSegment curve = CentripetalSegment(p0, p1, p2, p3, 2);
  const PathArcLength length(curve);
  EXPECT_GT(length.Total(), 5.0);  // longer than its chord
  for (double share : {0.0, 0.1, 0.5, 0.93, 1.0}) {
    EXPECT_NEAR(length.LengthTo(length.ParameterAt(share)), share * length.Total(),
                1e-12 * length.Total());
  }
  // A straight segment is as long as its chord.
  PathPoint q3{};
  q3[0] = 6.0, q3[1] = 8.0;
  const PathSegment line = CentripetalSegment(p1, p1, p2, q3, 2);
  EXPECT_NEAR(PathArcLength(line).Total(), 5.0, 1e-12);
}

}  // namespace
