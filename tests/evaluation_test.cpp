// Evaluation: the keyframe walk, its integral, the interpolation kinds against
// an independent transcription of their formulas, the typed getters, the
// processing trace and the value arrays.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "qdcore/log.h"
#include "qdparam/czmtime.h"
#include "qdparam/keyframe.h"
#include "qdparam/param.h"
#include "qdparam/processing.h"
#include "qdparam/qdcalc.h"
#include "support/capture.h"

using namespace qdcore;

namespace {

CKeyFrame Key(const wchar* position, double value,
              unsigned int interpolation = INTERPOLATION_LINEAR,
              unsigned int timeTranslation = TIMETRANSLATION_LINEAR) {
  CKeyFrame kf(PARAM_DOUBLE);
  if (position) kf.SetPositionValue(position);
  kf.SetValueDouble(value);
  kf.SetInterpolation(interpolation);
  kf.SetTimeTranslation(timeTranslation);
  return kf;
}

CKeyFrame LongKey(const wchar* position, long value) {
  CKeyFrame kf(PARAM_LONG);
  kf.SetPositionValue(position);
  kf.SetValueLong(value);
  kf.SetInterpolation(INTERPOLATION_LINEAR);
  return kf;
}

CParam Keyed(unsigned int type, const std::vector<CKeyFrame>& keys) {
  CParam param(type, u"gain", 7);
  param.SetKeyFrameStatus(true);
  for (const CKeyFrame& kf : keys) EXPECT_TRUE(param.Add(kf, 1.0, false));
  return param;
}

// ---- each kind's formula, transcribed independently, over the numbers the
// keyframes hold

double B(double u, double p0, double p1, double p2, double p3) {
  return 3 * u * u * (1 - u) * p2 +
         ((1 - u) * (1 - u) * (1 - u) * p0 + 3 * u * (1 - u) * (1 - u) * p1) + u * u * u * p3;
}

double OracleSpline(double t, double d, double t0, double t1, double y0, double y1,
                    unsigned int flags, const std::vector<Anchor>& a) {
  const size_t n = a.size();
  if (n == 0) {
    if (flags & 2) t = TimeTranslationEaseInOut(t, t0, t1);
    else if (flags & 4) t = TimeTranslationEaseIn(t, t0, t1);
    else if (flags & 8) t = TimeTranslationEaseOut(t, t0, t1);
    return t / (t1 - t0) * (y1 - y0) + y0;
  }
  size_t i = 0;
  while (i < n && !(t < a[i].position * d)) ++i;
  double st, et, P0, P1, P2, P3;
  if (i == n) {
    st = a[n - 1].position * d, et = t1, P1 = a[n - 1].value, P2 = y1;
    P0 = n == 1 ? y0 : a[n - 2].value, P3 = y1 + (y1 - a[n - 1].value);
  } else if (i == 0) {
    st = t0, et = a[0].position * d, P1 = y0, P2 = a[0].value;
    P0 = y0 + (y0 - a[0].value), P3 = n == 1 ? y1 : a[1].value;
  } else {
    st = a[i - 1].position * d, et = a[i].position * d, P1 = a[i - 1].value, P2 = a[i].value;
    P0 = i == 1 ? y0 : a[i - 2].value, P3 = i + 1 == n ? y1 : a[i + 1].value;
  }
  if (std::fabs(P2 - P1) < 1e-7) return P1;
  const double m = P2 > P3 ? P2 : P3;
  const double M = P0 > std::max(P1, m) ? P0 : (P1 > m ? P1 : m);
  P0 -= M, P1 -= M, P2 -= M, P3 -= M;
  double c1 = P1 + (P2 - P0) * 0.5 / 3.0, c2 = P2 - (P3 - P1) * 0.5 / 3.0;
  P1 += M, c1 += M, c2 += M, P2 += M;
  if (flags & 2) t = TimeTranslationEaseInOut(t, st, et);
  return B((t - st) / (et - st), P1, c1, c2, P2);
}

double Oracle(double t, double d, const CKeyFrame& k0, double t0, const CKeyFrame& k1, double t1) {
  const double y0 = k0.GetValueDouble(), y1 = k1.GetValueDouble();
  const unsigned int flags = k0.GetTimeTranslation(), code = k0.GetInterpolation();
  if (flags & 1) t = TimeTranslationEaseInOut(t, t0, t1);
  if (t1 - t0 < 1e-7 || code == 1 || code == 32) return y0;
  switch (code) {
    case 2: return (y1 * (t - t0) + y0 * (t1 - t)) / (t1 - t0);
    case 4: {
      double a1, b1, a2, b2;
      k0.GetBezierAnchors(a1, b1, a2, b2);
      const double u = FindUForBezierValue(t, t0, a1 * d + t0, a2 * d + t1, t1);
      return B(u, y0, y0 + b1, y1 + b2, y1);
    }
    case 8: {
      const double f = (t - t0) / (t1 - t0), l0 = std::log(y0 + 1.0), l1 = std::log(y1 + 1.0);
      const double logPart = std::exp((l1 - l0) * f + l0) - 1.0, linPart = (y1 - y0) * f + y0;
      return (linPart + logPart) * 0.5;
    }
    default: {
      std::vector<Anchor> anchors(8);
      unsigned int n = 0;
      k0.GetAnchors(anchors.data(), 8, n);
      anchors.resize(n);
      return OracleSpline(t, d, t0, t1, y0, y1, flags, anchors);
    }
  }
}

// A number with a few decimals, stored exactly as written.
double Decimal(std::mt19937& random, int lo, int hi) {
  return std::uniform_int_distribution<int>(lo * 1000, hi * 1000)(random) / 1000.0;
}

CKeyFrame RandomKey(std::mt19937& random, unsigned int code, double t0, double t1, double d) {
  const unsigned int flags[] = {0, 1, 2, 4, 8, 3};
  CKeyFrame kf = Key(nullptr, Decimal(random, code == INTERPOLATION_LINLOG ? 0 : -50, 50), code, flags[random() % 6]);
  std::vector<Anchor> anchors(code == INTERPOLATION_SPLINE   ? random() % 4
                              : code == INTERPOLATION_BEZIER ? 1 + random() % 2
                                                             : 0);
  for (size_t i = 0; i < anchors.size(); ++i) {
    const double at = code == INTERPOLATION_SPLINE
                          ? (t0 + (t1 - t0) * (i + 1) / (anchors.size() + 1)) / d
                          : Decimal(random, 0, 1) * 0.3;
    anchors[i] = {at, Decimal(random, -50, 50)};
  }
  kf.SetAnchors(anchors.data(), static_cast<unsigned int>(anchors.size()));
  return kf;
}

const unsigned int kKinds[] = {INTERPOLATION_HOLD,   INTERPOLATION_LINEAR, INTERPOLATION_BEZIER,
                               INTERPOLATION_LINLOG, INTERPOLATION_SPLINE, INTERPOLATION_CUSTOM};

// One step of the keyframe walk, starting from times the walk may leave alone.
struct Walked {
  bool found = false;
  const CKeyFrame *prev = nullptr, *next = nullptr;
  mtime prevTime = 42.0, nextTime = 43.0;
  double integral = 5;
};
Walked Walk(double time, const CParam& param, double duration, mtime minDuration) {
  Walked w;
  w.found = DetermineKeyFrame(time, param, duration, minDuration, w.prev, w.prevTime, w.next,
                              w.nextTime, false, w.integral);
  return w;
}

#define MTIME "const class qdcore::mtime &"
#define PARAM_SIG(ret, name, args) ret " __cdecl qdcore::CParam::" name "(" MTIME "," MTIME args ") const"

}  // namespace

// ---- The keyframe walk

TEST(KeyFrameWalk, ResolvesTimesByType) {
  const mtime none = mtime::unassigned;
  struct Row { const wchar* position; double duration; mtime minDuration; double expected; } rows[] = {
      {u"0.25", 8, none, 2}, {u"-0.25", 8, none, 6}, {u"50%", 8, none, 4},
      {u"2s", 4, 10, 2.0 / 10.0}, {u"2s", 4, 4, 2}, {u"-1s", 4, none, 3},
      {u"-2s", 4, 10, -2.0 / 10.0 + 4.0}, {u"2fs", 4, 10, 2},
      {u"-1fs", 4, none, -1},  // fixed times are never folded
  };
  for (const Row& r : rows) {
    const CParam param = Keyed(PARAM_DOUBLE, {Key(r.position, 1)});
    const Walked w = Walk(100.0, param, r.duration, r.minDuration);
    EXPECT_TRUE(w.found && w.prev == param.Get(0) && w.integral == 0.0) << ToUtf8(r.position);
    EXPECT_EQ(static_cast<double>(w.prevTime), r.expected) << ToUtf8(r.position);
  }
}

TEST(KeyFrameWalk, BracketsTheTimeAndTheLaterOfEqualKeyframesWins) {
  const CParam param = Keyed(PARAM_DOUBLE, {Key(u"1s", 1), Key(u"3s", 2), Key(u"3s", 3), Key(u"5s", 4)});
  // `prev` and `next`: indexes, -1 for none.
  struct Row { double time; int prev, next; double nextTime; } rows[] = {
      {0.5, -1, 0, 1}, {1, 0, 1, 3}, {2.9, 0, 1, 3}, {3, 2, 3, 5}, {5, 3, -1, -1}};
  for (const Row& r : rows) {
    const Walked w = Walk(r.time, param, 10.0, mtime::unassigned);
    EXPECT_EQ(w.prev, r.prev < 0 ? nullptr : param.Get(r.prev)) << r.time;
    EXPECT_EQ(w.next, r.next < 0 ? nullptr : param.Get(r.next)) << r.time;
    EXPECT_EQ(static_cast<double>(w.nextTime), r.nextTime) << r.time;
  }
  // Without keyframes, and before a timeless first keyframe, the caller's times stay.
  for (const CParam& p : {Keyed(PARAM_DOUBLE, {}), Keyed(PARAM_DOUBLE, {Key(nullptr, 1)})}) {
    const Walked w = Walk(1.0, p, 10.0, 0.0);
    EXPECT_TRUE(w.found && w.prev == nullptr && w.next == p.Get(0));
    EXPECT_EQ(static_cast<double>(w.prevTime) + static_cast<double>(w.nextTime), 85.0);
  }
  // A duration that is not positive is reported, and used.
  qdtest::AssertCapture asserts;
  EXPECT_EQ(InterpolateParamDouble(2.0, param, 0.0, mtime::unassigned, -1), 1.5);
  EXPECT_EQ(asserts.reports(),
            (qdtest::Reports{{"duration > 0.0", "Runtime assumption failed",
                              "bool __cdecl DetermineKeyFrame(class qdcore::mtime,const class qdcore::CParam &,"
                              "class qdcore::mtime,class qdcore::mtime,const class qdcore::CKeyFrame *&,class "
                              "qdcore::mtime &,const class qdcore::CKeyFrame *&,class qdcore::mtime &,bool,"
                              "double &)"}}));
}

TEST(KeyFrameWalk, IntegralHoldsTheEndsAndCountsCurvesAsOne) {
  struct Row { unsigned int firstKind; double time, expected; } rows[] = {
      {INTERPOLATION_HOLD, 5, 1 * 2 + 2 * 2 + 2 * 4},
      {INTERPOLATION_LINEAR, 5, 2 + (2.0 * 2 * 2 / 4 + 2 * 2) + 8},
      {INTERPOLATION_BEZIER, 5, 2 + 1.0 + 8},
      {INTERPOLATION_LINEAR, 2, 2 + (1.0 * 1 * 2 / 4 + 1 * 2)},  // cut inside the segment
      {INTERPOLATION_LINEAR, 0.5, 0.5 * 2},                      // before the first keyframe
  };
  for (const Row& r : rows) {
    const CParam param = Keyed(PARAM_DOUBLE, {Key(u"1s", 2, r.firstKind), Key(u"3s", 4)});
    EXPECT_EQ(param.GetIntegralDouble(r.time, 10.0), r.expected) << r.firstKind << " at " << r.time;
  }
  CParam constant(PARAM_DOUBLE, u"c", 1);
  constant.SetValueDouble(3);
  EXPECT_EQ(constant.GetIntegralDouble(4.0, 10.0), 12.0);
}

// ---- Interpolation kinds

// Values worked out by hand, where the arithmetic has a twist.
TEST(Interpolation, HandCheckedSegments) {
  const CKeyFrame end = Key(nullptr, 20);
  const auto at = [&](const CKeyFrame& k0, double t0, double t1, double time, double def = -1) {
    return InterpolateDouble(time, 10.0, &k0, t0, &end, t1, def);
  };
  EXPECT_EQ(at(Key(nullptr, 10, INTERPOLATION_CUSTOM), 2, 4, 3.99), 10);  // custom holds
  EXPECT_EQ(at(Key(nullptr, 10), 2, 2 + 5e-8, 2 + 2e-8), 10);             // one instant
  EXPECT_EQ(at(Key(nullptr, 10, INTERPOLATION_SPLINE), 2, 4, 3), 25);      // spline: time over length
  EXPECT_EQ(at(Key(nullptr, 10, INTERPOLATION_SPLINE), 0, 4, 1), 12.5);    // from 0 it is linear
  EXPECT_EQ(at(Key(nullptr, -1, INTERPOLATION_LINLOG), 0, 2, 1, -7), -7);  // no logarithm of 0
  EXPECT_NEAR(at(Key(nullptr, 0, INTERPOLATION_LINLOG), 0, 2, 1), (9 + std::sqrt(21.0)) / 2, 1e-12);
  // At a piece's middle Catmull-Rom gives (-P0 + 9 P1 + 9 P2 - P3) / 16, the
  // outer neighbours mirrored where the curve ends.
  CKeyFrame spline = Key(nullptr, 10, INTERPOLATION_SPLINE);
  const Anchor anchor{0.5, 30};
  spline.SetAnchors(&anchor, 1);
  EXPECT_NEAR(InterpolateDouble(1.0, 4.0, &spline, 0.0, &end, 4.0, -1), 350 / 16.0, 1e-12);
  EXPECT_NEAR(InterpolateDouble(3.0, 4.0, &spline, 0.0, &end, 4.0, -1), 430 / 16.0, 1e-12);
  // A missing keyframe holds the other one, or gives the default.
  EXPECT_EQ(InterpolateDouble(3.0, 10.0, nullptr, 0.0, nullptr, 0.0, -1), -1);
  EXPECT_EQ(InterpolateDouble(3.0, 10.0, nullptr, 0.0, &end, 4.0, -1), 20);
  EXPECT_EQ(InterpolateDouble(3.0, 10.0, &spline, -5.0, nullptr, -1.0, -1), 10);
}

TEST(Interpolation, EveryKindMatchesItsFormulaBitForBit) {
  qdtest::AssertCapture asserts;
  std::mt19937 random(11);
  const double d = 10.0;
  for (int i = 0; i < 3000; ++i) {
    const unsigned int kind = kKinds[i % 6];
    const double t0 = Decimal(random, 0, 5), t1 = t0 + Decimal(random, 1, 5);
    const CKeyFrame k0 = RandomKey(random, kind, t0, t1, d), k1 = Key(nullptr, Decimal(random, 0, 50));
    const double t = t0 + (t1 - t0) * std::uniform_real_distribution<double>(0, 1)(random);
    ASSERT_EQ(InterpolateDouble(t, d, &k0, t0, &k1, t1, -1), Oracle(t, d, k0, t0, k1, t1))
        << "kind " << kind << " case " << i;
  }
}

TEST(Interpolation, ParameterWalkPicksTheSegmentAndEasesTime) {
  std::mt19937 random(5);
  std::vector<CKeyFrame> keys;
  std::vector<double> times;
  for (int i = 0; i < 12; ++i) {
    times.push_back(i * 0.75);
    keys.push_back(RandomKey(random, kKinds[i % 6], i * 0.75, i * 0.75 + 0.75, 10.0));
    keys.back().SetPositionValue(CZPoolString(FormatString(u"%.2fs", times.back())));
  }
  CParam param = Keyed(PARAM_DOUBLE, keys);
  for (bool eased : {false, true}) {
    param.SetTimeTranslation(eased ? TIMETRANSLATION_EASEINOUT : TIMETRANSLATION_LINEAR);
    for (int i = 0; i < 200; ++i) {
      const double asked = std::uniform_real_distribution<double>(0, 6.0)(random);
      const double t = eased ? TimeTranslationEaseInOut(asked, 0.0, 10.0) : asked;
      const size_t k = static_cast<size_t>(std::upper_bound(times.begin(), times.end(), t) - times.begin()) - 1;
      EXPECT_EQ(param.GetValueDouble(asked, 10.0, -1),
                Oracle(t, 10.0, keys[k], times[k], keys[k + 1], times[k + 1])) << asked;
    }
  }
}

// ---- Typed getters

TEST(Evaluation, DoubleChoosesInactiveStaticOrKeyframedValue) {
  const std::optional<double> none;
  // The maximum is 2.
  struct Row { bool inactive, keyframed; std::optional<double> inactiveValue, staticValue; double expected;
               const char* report; } rows[] = {
      {true, false, 2.5, none, 2.0, nullptr},
      {true, false, none, 1.0, -1, "GetValueDouble - param set to inactive but no inactive value specified"},
      {false, false, none, 2.5, 2.0, nullptr},
      {false, false, none, none, -1, "GetValueDouble - request for static value but no value specified"},
      {false, true, none, none, 0.0, nullptr},  // keyframes fall back to 0.0, not the default
      {false, true, none, 1.5, 1.5, nullptr},
  };
  for (const Row& r : rows) {
    qdtest::AssertCapture asserts;
    CParam param(PARAM_DOUBLE, u"p", 1);
    param.SetInactiveStatus(r.inactive);
    param.SetKeyFrameStatus(r.keyframed);
    if (r.inactiveValue) param.SetInactiveValueDouble(*r.inactiveValue);
    if (r.staticValue) param.SetValueDouble(*r.staticValue);
    param.SetMaxValueDouble(2);  // after the value, which would be clamped on the way in
    EXPECT_EQ(param.GetValueDouble(1.0, 10.0, -1), r.expected) << &r - rows;
    EXPECT_EQ(asserts.expressions(), qdtest::OneOrNone(r.report));
  }
}

TEST(Evaluation, NumbersConvertBetweenTypes) {
  qdtest::AssertCapture asserts;
  CParam coarse = Keyed(PARAM_LONG, {LongKey(u"0s", 0), LongKey(u"1s", 25)});
  coarse.SetGranularityLong(5);
  EXPECT_EQ(coarse.GetValueLong(0.5, 10.0, -1), 15);  // 12.5 rounds to 13, snaps to 15
  coarse.Get(1)->SetValueLong(-25);
  EXPECT_EQ(coarse.GetValueLong(0.5, 10.0, -1), -15);
  EXPECT_EQ(coarse.GetValueDouble(0.5, 10.0, -1), -15.0);
  EXPECT_EQ(Keyed(PARAM_LONG, {}).GetValueLong(0.5, 10.0, 42), 42);  // keyframed: falls back to def

  // Longs are truncated, not rounded.
  struct Row { const wchar* text; long asLong; bool asBool; } rows[] = {
      {u"2.9", 2, true}, {u"-2.9", -2, true}, {u"1e-300", 0, true}, {u"0", 0, false}};
  CParam real(PARAM_DOUBLE, u"r", 2);
  for (const Row& r : rows) {
    real.SetValue(CStringPool::GetStringRef(u"value"), r.text);
    EXPECT_EQ(real.GetValueLong(0.0, 10.0, -1), r.asLong) << ToUtf8(r.text);
    EXPECT_EQ(real.GetValueBool(0.0, 10.0, !r.asBool), r.asBool) << ToUtf8(r.text);
  }
  CParam flag(PARAM_BOOL, u"b", 3);
  flag.SetValueBool(true);
  EXPECT_EQ(flag.GetValueDouble(0.0, 10.0, -1), 1.0);
  EXPECT_EQ(flag.GetValueLong(0.0, 10.0, -1), 1);
  EXPECT_TRUE(asserts.reports().empty());
}

TEST(Evaluation, BooleansAndStringsStep) {
  CKeyFrame off(PARAM_BOOL), on(PARAM_BOOL), one(PARAM_STRING), two(PARAM_STRING);
  for (CKeyFrame* kf : {&off, &one}) kf->SetPositionValue(u"1s");
  for (CKeyFrame* kf : {&on, &two}) kf->SetPositionValue(u"2s");
  off.SetValueBool(false);
  on.SetValueBool(true);
  one.SetValueString(u"one");
  two.SetValueString(u"two");
  const CParam flag = Keyed(PARAM_BOOL, {off, on});
  CParam text = Keyed(PARAM_STRING, {one, two});
  struct Row { double time; bool on; const char* word; } rows[] = {
      {0.5, false, "one"}, {1.99, false, "one"}, {2.0, true, "two"}, {9.0, true, "two"}};
  for (const Row& r : rows) {
    EXPECT_EQ(flag.GetValueBool(r.time, 10.0, !r.on), r.on) << r.time;
    EXPECT_EQ(ToUtf8(text.GetValueString(r.time, 10.0, u"def").view()), r.word) << r.time;
  }
  qdtest::AssertCapture asserts;
  text.SetInactiveStatus(true);
  EXPECT_EQ(ToUtf8(text.GetValueString(1.0, 10.0, u"def").view()), "def");
  EXPECT_EQ(asserts.expressions(),
            std::vector<std::string>{"GetValueBool - param set to inactive but no inactive value specified"});
}

TEST(Evaluation, TypeMismatchesReportAndReturnTheDefault) {
  qdtest::AssertCapture asserts;
  qdtest::TraceCapture trace(398, 10);
  const CParam text(PARAM_STRING, u"s", 1), number(PARAM_DOUBLE, u"d", 2);
  EXPECT_EQ(text.GetValueDouble(0.0, 1.0, -1), -1);
  EXPECT_EQ(text.GetValueLong(0.0, 1.0, -2), -2);
  EXPECT_EQ(text.GetValueBool(0.0, 1.0, true), true);
  EXPECT_EQ(text.GetIntegralDouble(0.0, 1.0), 0.0);
  EXPECT_EQ(text.GetValueBinary(0.0, 1.0).GetSize(), 0u);
  EXPECT_EQ(ToUtf8(number.GetValueString(0.0, 1.0, u"def").view()), "def");
  unsigned char out[4] = {0xEE, 0xEE, 0xEE, 0xEE};  // left alone
  EXPECT_TRUE(number.GetValueBinary(0.0, 1.0, out, 4) == 0u && out[0] == 0xEE && out[3] == 0xEE);
  const char* rows[][2] = {
      {"GetValueDouble", PARAM_SIG("double", "GetValueDouble", ",double")},
      {"GetValueLong", PARAM_SIG("long", "GetValueLong", ",long")},
      {"GetValueBool", PARAM_SIG("bool", "GetValueBool", ",bool")},
      {"GetIntegralDouble", PARAM_SIG("double", "GetIntegralDouble", "")},
      {"GetValueBinary", PARAM_SIG("class qdcore::CZMemory", "GetValueBinary", "")},
      {"GetValueString", PARAM_SIG("class qdcore::CZPoolString", "GetValueString",
                                   ",const class qdcore::CZPoolString &")},
      {"GetValueBinary", PARAM_SIG("unsigned int", "GetValueBinary", ",unsigned char *,unsigned int")},
  };
  qdtest::Reports expected;
  for (const auto& [name, signature] : rows)
    expected.push_back({std::string(name) + " - parameter type mismatch", "Illegal code point reached", signature});
  EXPECT_EQ(asserts.reports(), expected);
  EXPECT_TRUE(trace.lines().empty());

  CParam blob(PARAM_BINARY, u"b", 3);  // the block whatever the time, keyframed or not
  const unsigned char bytes[] = {1, 2, 3};
  blob.SetValueBinary(bytes, 3);
  blob.SetKeyFrameStatus(true);
  EXPECT_EQ(blob.GetValueBinary(5.0, 10.0).GetSize(), 3u);
}

// ---- Processing trace and value arrays

TEST(Trace, OneLinePerDoubleEvaluationInTheStatedFields) {
  CParam named(PARAM_DOUBLE, u"gain", 7), bare(PARAM_LONG, u"", 0);
  named.SetValueDouble(2.25);
  bare.DeleteAttribute(CStringPool::GetStringRef(u"id"));
  bare.SetValueLong(3);
  {
    qdtest::TraceCapture off(398, 9);
    named.GetValueDouble(1.5, 10.0, 0);
    EXPECT_TRUE(off.lines().empty());
  }
  qdtest::TraceCapture trace(398, 10);
  named.GetValueDouble(1.5, 10.0, 0);
  bare.GetValueDouble(mtime::unassigned, 10.0, 0);
  EXPECT_EQ(trace.text(),
            "processing param (id:     7, name:     gain, type: Double  , time:     1.50, value:     2.25\n"
            "processing param (id: -----, name: Double, type:     Long, time: -----------, value:     3.00(*)\n");
  EXPECT_EQ(trace.lines()[0].category, 398);
  EXPECT_EQ(trace.lines()[0].level, 10);
}

// Double arrays against single evaluations are the cache's to check; Long
// arrays round each sample and write no trace.
TEST(ValueArrays, LongSamplesRoundAndEmptyArraysAreReported) {
  const CParam whole = Keyed(PARAM_LONG, {LongKey(u"0", 0), LongKey(u"1", 3)});
  long wholes[9];
  qdtest::TraceCapture trace(398, 10);
  ASSERT_TRUE(whole.GetValueArrayLong(8.0, -0.5, 1.125, wholes, 9));
  EXPECT_TRUE(trace.lines().empty());
  for (int i = 0; i < 9; ++i) {
    EXPECT_EQ(wholes[i], whole.GetValueLong(mtime(-0.5) + static_cast<double>(i) * mtime(1.125), 8.0, 0)) << i;
  }
  long steps[4];
  whole.GetValueArrayLong(4.0, 0.0, 1.0, steps, 4);  // 0, 0.75, 1.5, 2.25
  EXPECT_EQ(std::vector<long>(steps, steps + 4), (std::vector<long>{0, 1, 2, 2}));
  whole.GetValueArrayLong(4.0, 2.0, 0.0, steps, 4);
  EXPECT_EQ(std::vector<long>(steps, steps + 4), (std::vector<long>{2, 2, 2, 2}));
  Keyed(PARAM_DOUBLE, {Key(u"0", 0), Key(u"1", 3)}).GetValueArrayLong(4.0, 0.0, 1.0, steps, 4);
  EXPECT_EQ(std::vector<long>(steps, steps + 4), (std::vector<long>{0, 0, 1, 2}));  // Doubles truncate
  // Empty and null arrays are reported.
  qdtest::AssertCapture asserts;
  const CParam param(PARAM_DOUBLE, u"p", 1);
  double value = 9;
  EXPECT_TRUE(param.GetValueArrayDouble(1.0, 0.0, 0.1, &value, 0));
  EXPECT_EQ(value, 9);
  EXPECT_FALSE(param.GetValueArrayLong(1.0, 0.0, 0.1, nullptr, 0));
  ASSERT_EQ(asserts.expressions(), (std::vector<std::string>{"uNValues > 0", "pValues", "uNValues > 0"}));
  EXPECT_EQ(asserts.reports()[0].signature,
            PARAM_SIG("bool", "GetValueArrayDouble", "," MTIME ",double *,unsigned long"));
  EXPECT_EQ(asserts.reports()[2].signature, PARAM_SIG("bool", "GetValueArrayLong", "," MTIME ",long *,unsigned long"));
}

TEST(CZMTime, HoldsOneTimeThatCopiesAlongAndReadsUnassignedWhenReleased) {
  const auto read = [](const CZMTime& time) { return *time; };  // a const read never allocates
  CZMTime held;
  EXPECT_FALSE(read(held).isassigned());  // nothing known yet
  *held = 2.5;
  CZMTime copy(held), assigned;
  assigned = held;
  *held = 1.0;  // copies are independent
  EXPECT_TRUE(read(copy) == 2.5 && read(assigned) == 2.5);
  held.Free();
  EXPECT_FALSE(read(held).isassigned());
  *held = 4.0;  // the other one gives the block back
  EXPECT_EQ(static_cast<double>(read(held)), 4.0);
}
