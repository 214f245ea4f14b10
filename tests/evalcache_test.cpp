// The evaluation cache is invisible: values, value arrays and reports equal
// those of the walk that reads every keyframe's XML in list order, whatever
// the list holds; every kind of write shows in the next evaluation; and
// threads evaluating one set at once agree with one thread.
#include <gtest/gtest.h>

#include <atomic>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "qdparam/keyframe.h"
#include "qdparam/param.h"
#include "qdparam/paramset.h"
#include "qdparam/processing.h"
#include "support/capture.h"
#include "support/xml.h"

using namespace qdcore;
using qdtest::Element, qdtest::P;

namespace {

constexpr double kDuration = 10.0;

std::uint64_t Bits(double v) { return std::bit_cast<std::uint64_t>(v); }

// What GetValueDouble gives for a Double parameter with its values present,
// read live by the public getters, walk and restriction functions.
double LiveValue(const CParam& param, double time, double duration) {
  double v = 0.0;
  bool inactive = false;
  if (param.GetInactiveStatus(inactive) && inactive) {
    param.GetInactiveValueDouble(v);
    return EnforceRestricitionsDouble(param, v);
  }
  param.GetValueDouble(v);
  if (!param.GetKeyFrameStatus()) return EnforceRestricitionsDouble(param, v);
  return EnforceRestricitionsDouble(param, InterpolateParamDouble(time, param, duration, param.GetMinDuration(), v));
}

// The cached value equals the live one to the bit, with the same reports.
void ExpectLive(const CParam& param, double time, double duration) {
  param.GetMinDuration();  // both read the same cached minimum duration
  qdtest::AssertCapture live;
  const double expected = LiveValue(param, time, duration);
  const qdtest::Reports liveReports = live.reports();
  live.clear();
  const double cached = param.GetValueDouble(time, duration, -7.0);
  EXPECT_EQ(Bits(cached), Bits(expected)) << "at " << time << ": " << cached << " vs " << expected;
  EXPECT_EQ(live.reports(), liveReports) << "at " << time;
}

// ---- Random keyframe lists against the live walk

// Position texts of every form, including none, repeats, text that is no
// number and times out of order.
std::u16string RandomPosition(std::mt19937& random, const std::u16string& previous) {
  std::uniform_real_distribution<double> fraction(-0.3, 1.3), seconds(-12.0, 12.0);
  char text[64];
  switch (random() % 10) {
    case 0: return previous;  // an equal time
    case 1: return u"abc";
    case 2: return u"";  // no position at all (see below)
    case 3: std::snprintf(text, sizeof text, "%.3f%%", fraction(random) * 100); break;
    case 4: std::snprintf(text, sizeof text, "%.3fs", seconds(random)); break;
    case 5: std::snprintf(text, sizeof text, "%.3ffs", seconds(random)); break;
    default: std::snprintf(text, sizeof text, "%.3f", fraction(random)); break;
  }
  return std::u16string(text, text + std::strlen(text));
}

CKeyFrame RandomKey(std::mt19937& random, const CParam& param, std::u16string& position) {
  static const unsigned int kinds[] = {INTERPOLATION_HOLD,   INTERPOLATION_LINEAR,
                                       INTERPOLATION_BEZIER, INTERPOLATION_LINLOG,
                                       INTERPOLATION_SPLINE, INTERPOLATION_CUSTOM};
  static const unsigned int eases[] = {0, 0, 0, TIMETRANSLATION_EASEINOUT,
                                       TIMETRANSLATION_ANCHOREASEINOUT, TIMETRANSLATION_EASEIN,
                                       TIMETRANSLATION_EASEOUT};
  std::uniform_real_distribution<double> value(-5.0, 105.0), fraction(-0.2, 1.2);
  CKeyFrame kf(param);
  position = RandomPosition(random, position);
  if (!position.empty()) kf.SetPositionValue(CZPoolString(std::u16string_view(position)));
  kf.SetValueDouble(random() % 12 == 0 ? -1.0 : value(random));
  kf.SetInterpolation(kinds[random() % std::size(kinds)]);
  kf.SetTimeTranslation(eases[random() % std::size(eases)]);
  std::vector<Anchor> anchors(random() % 4);
  for (Anchor& a : anchors) a = {fraction(random), value(random)};
  kf.SetAnchors(anchors.data(), static_cast<unsigned int>(anchors.size()));
  if (!anchors.empty() && random() % 6 == 0) {  // a time suffix on an anchor reports
    kf.FindNextElement(P(u"Anchor"), nullptr)->SetAttribute(P(u"position"), u"0.5s");
  }
  return kf;
}

CParam RandomParam(std::mt19937& random) {
  CParam param(PARAM_DOUBLE, u"gain", 1);
  param.SetKeyFrameStatus(true);
  if (random() % 3) param.SetMinValueDouble(0.0);
  if (random() % 3) param.SetMaxValueDouble(random() % 5 ? 100.0 : -1.0);  // sometimes inverted
  if (random() % 4 == 0) param.SetGranularityDouble(0.25);
  if (random() % 5 == 0) param.SetTimeTranslation(TIMETRANSLATION_EASEINOUT);
  if (random() % 2) param.SetValueDouble(random() % 2 ? 3.0 : 50.0);
  std::u16string position = u"0";
  const unsigned int count = random() % 9;
  for (unsigned int i = 0; i < count; ++i) param.Add(RandomKey(random, param, position), kDuration, false);
  return param;
}

std::vector<double> ProbeTimes(std::mt19937& random, const CParam& param, double duration) {
  std::uniform_real_distribution<double> time(-2.0, duration + 2.0);
  std::vector<double> times = {0.0, duration, -0.0, std::nan("")};
  for (int i = 0; i < 12; ++i) times.push_back(time(random));
  // Exactly on the keyframes, where equal times decide which one is `prev`.
  for (unsigned int i = 0; i < param.GetSize(); ++i) {
    times.push_back(param.Get(i)->GetTime(duration, param.GetMinDuration()));
  }
  return times;
}

TEST(EvalCache, RandomListsGiveTheLiveWalksValuesAndReports) {
  std::mt19937 random(11);
  for (int round = 0; round < 300; ++round) {
    SCOPED_TRACE(round);
    const CParam param = RandomParam(random);
    // A clip shorter than the absolute keyframes need, one that reports,
    // and the clip itself: several resolutions of one cache.
    for (double duration : {kDuration, 3.0, 0.0, 25.0, kDuration}) {
      for (double t : ProbeTimes(random, param, duration)) ExpectLive(param, t, duration);
    }
  }
}

TEST(EvalCache, ValueArraysEqualTheirSamplesOneByOne) {
  std::mt19937 random(12);
  const struct {
    double start, step;
  } arrays[] = {{0.0, 0.037}, {-1.0, 0.1}, {11.0, -0.09}, {4.0, 0.0}, {0.0, 1e-4}};
  for (int round = 0; round < 150; ++round) {
    const CParam param = RandomParam(random);
    param.GetMinDuration();
    for (const auto& a : arrays) {
      constexpr unsigned long kSamples = 400;
      std::vector<double> values(kSamples), expected(kSamples);
      qdtest::AssertCapture capture;
      for (unsigned long i = 0; i < kSamples; ++i) {
        expected[i] = LiveValue(param, a.start + static_cast<double>(i) * a.step, kDuration);
      }
      const qdtest::Reports oneByOne = capture.reports();
      capture.clear();
      ASSERT_TRUE(param.GetValueArrayDouble(kDuration, a.start, a.step, values.data(), kSamples));
      EXPECT_EQ(capture.reports(), oneByOne) << "round " << round;
      for (unsigned long i = 0; i < kSamples; ++i) {
        ASSERT_EQ(Bits(values[i]), Bits(expected[i])) << "round " << round << " step " << a.step << " sample " << i;
      }
    }
  }
}

// LinLog and Bezier segments are filled a block of samples at a time: each
// sample must be the single getter's to the bit, with the same reports,
// whatever the values (LinLog's -1 and below) and whatever the handles bend
// time into: three real roots, one, none (quadratic, straight), time turned
// back, and no number at all (no root: a report per sample).
TEST(EvalCache, CurvedArraysAreTheSingleValuesBitForBit) {
  std::mt19937 random(15);
  std::uniform_real_distribution<double> value(-5.0, 105.0), lift(-40.0, 40.0), jitter(-0.3, 0.3);
  const double handleTimes[] = {0.3, 0.42, 1.0 / 3.0, 0.0, -0.2, 0.9, 2.5, NAN};  // of a segment
  const struct {
    double start, step;
  } arrays[] = {{-0.5, 0.0123}, {10.5, -0.0171}, {0.0, kDuration / 1000}};
  for (int round = 0; round < 120; ++round) {
    const unsigned int kind = round % 3 ? INTERPOLATION_BEZIER : INTERPOLATION_LINLOG;
    CParam param(PARAM_DOUBLE, u"gain", 1);
    param.SetKeyFrameStatus(true);
    if (round % 2) param.SetMinValueDouble(0.0), param.SetMaxValueDouble(100.0);
    const unsigned int count = 2 + random() % 5;
    const double segment = 1.0 / (count - 1);
    for (unsigned int i = 0; i < count; ++i) {
      CKeyFrame kf(param);
      kf.SetPosition((i + (i == 0 || i + 1 == count ? 0.0 : jitter(random))) * segment);
      const unsigned int pick = random() % 12;
      kf.SetValueDouble(pick == 0 ? -1.0 : (pick == 1 ? -3.0 : value(random)));
      kf.SetInterpolation(kind);
      const double out = handleTimes[random() % std::size(handleTimes)];
      const double in = handleTimes[random() % std::size(handleTimes)];
      const Anchor handles[] = {{out * segment, lift(random)}, {-in * segment, lift(random)}};
      kf.SetAnchors(handles, 2);
      param.Add(kf, kDuration, false);
    }
    for (const auto& a : arrays) {
      constexpr unsigned long kSamples = 1000;
      std::vector<double> values(kSamples), expected(kSamples);
      qdtest::AssertCapture capture;
      for (unsigned long i = 0; i < kSamples; ++i) {
        expected[i] =
            param.GetValueDouble(a.start + static_cast<double>(i) * a.step, kDuration, 0.0);
      }
      const qdtest::Reports oneByOne = capture.reports();
      capture.clear();
      ASSERT_TRUE(param.GetValueArrayDouble(kDuration, a.start, a.step, values.data(), kSamples));
      ASSERT_EQ(capture.reports(), oneByOne) << "round " << round;
      for (unsigned long i = 0; i < kSamples; ++i) {
        ASSERT_EQ(Bits(values[i]), Bits(expected[i])) << "round " << round << " sample " << i;
      }
    }
  }
}

TEST(EvalCache, ArraysWriteOneTraceLinePerSampleWhenTheTraceIsOn) {
  std::mt19937 random(13);
  CParam param = RandomParam(random);
  while (param.GetSize() < 3) param = RandomParam(random);
  double values[50];
  std::vector<std::string> expected;
  {
    qdtest::TraceCapture trace(398, 10);
    for (int i = 0; i < 50; ++i) param.GetValueDouble(i * 0.2, kDuration, 0.0);
    expected = trace.texts();
  }
  qdtest::TraceCapture trace(398, 10);
  param.GetValueArrayDouble(kDuration, 0.0, 0.2, values, 50);
  EXPECT_EQ(trace.texts(), expected);
}

// A keyframe at `at` on each of a keyframed Long (linear) and Bool parameter.
void AddPair(CParam& whole, CParam& flag, double at, long n, bool on) {
  CKeyFrame kn(whole), kb(flag);
  kn.SetPosition(at);
  kb.SetPosition(at);
  kn.SetValueLong(n);
  kn.SetInterpolation(INTERPOLATION_LINEAR);
  kb.SetValueBool(on);
  whole.Add(kn, kDuration, false);
  flag.Add(kb, kDuration, false);
}

TEST(EvalCache, LongAndBoolParametersGiveTheLiveWalksValues) {
  // A Long parameter rounds the keyframed value; a Bool one steps.
  std::mt19937 random(14);
  for (int round = 0; round < 50; ++round) {
    CParam whole(PARAM_LONG, u"n", 2), flag(PARAM_BOOL, u"b", 3);
    for (CParam* p : {&whole, &flag}) p->SetKeyFrameStatus(true);
    std::uniform_real_distribution<double> position(0.0, 1.0);
    for (int i = 0; i < 6; ++i) {
      const double at = position(random);
      const long n = static_cast<long>(random() % 100) - 50;
      AddPair(whole, flag, at, n, random() % 2);
    }
    for (double t = -1.0; t < 11.0; t += 0.37) {
      // Without a static value the keyframes fall back to the default.
      const double r = InterpolateParamDouble(t, whole, kDuration, whole.GetMinDuration(), 9.0);
      const long rounded = TruncateToInt32(r + (r > 0 ? 0.5 : (r < 0 ? -0.5 : 0.0)));
      EXPECT_EQ(whole.GetValueLong(t, kDuration, 9), EnforceRestricitionsLong(whole, rounded));
      const CKeyFrame* prev = nullptr;
      const CKeyFrame* next = nullptr;
      mtime prevTime, nextTime;
      double integral = 0.0;
      DetermineKeyFrame(t, flag, kDuration, flag.GetMinDuration(), prev, prevTime, next, nextTime, false, integral);
      const CKeyFrame* stepped = prev ? prev : next;
      EXPECT_EQ(flag.GetValueBool(t, kDuration, false), stepped->GetValueBool());
    }
  }
}

// ---- Every kind of write shows in the next evaluation

CKeyFrame Key(const CParam& param, double position, double value, unsigned int kind) {
  CKeyFrame kf(param);
  kf.SetPosition(position);
  kf.SetValueDouble(value);
  kf.SetInterpolation(kind);
  return kf;
}

// Four keyframes, each kind once, so that any write changes some values.
CParam Sample() {
  CParam param(PARAM_DOUBLE, u"gain", 1);
  param.SetKeyFrameStatus(true);
  param.SetMinValueDouble(-100.0);
  param.SetMaxValueDouble(35.0);  // clamps some values
  param.Add(Key(param, 0.0, 10.0, INTERPOLATION_LINEAR), kDuration, false);
  CKeyFrame bezier = Key(param, 0.3, 40.0, INTERPOLATION_BEZIER);
  const Anchor handles[] = {{0.05, 5.0}, {-0.05, -5.0}};
  bezier.SetAnchors(handles, 2);
  param.Add(bezier, kDuration, false);
  CKeyFrame spline = Key(param, 0.6, 20.0, INTERPOLATION_SPLINE);
  const Anchor middle{0.7, 60.0};
  spline.SetAnchors(&middle, 1);
  param.Add(spline, kDuration, false);
  param.Add(Key(param, 0.9, 30.0, INTERPOLATION_LINLOG), kDuration, false);
  return param;
}

// As bit patterns, so that NaN equals itself.
std::vector<std::uint64_t> Values(const CParam& param) {
  std::vector<std::uint64_t> values;
  for (double t = -0.5; t < 10.5; t += 0.25) values.push_back(Bits(param.GetValueDouble(t, kDuration, -7.0)));
  return values;
}

CXMLObject* AnchorOf(CKeyFrame* kf) { return kf->FindNextElement(P(u"Anchor"), nullptr); }
CXMLObject& ElementOf(CKeyFrame* kf) { return *kf; }
CXMLObject NewAnchor() { return Element(u"Anchor", {{u"position", u"0.65"}, {u"value", u"-40"}}); }

const struct Write {
  const char* what;
  std::function<void(CParam&)> write;
} kWrites[] = {
    {"limit", [](CParam& p) { p.SetMaxValueDouble(25.0); }},
    {"limit removed", [](CParam& p) { p.ResetMaxValue(); }},
    {"granularity", [](CParam& p) { p.SetGranularityDouble(7.0); }},
    {"keyframes off", [](CParam& p) { p.SetKeyFrameStatus(false); p.SetValueDouble(4.0); }},
    {"inactive", [](CParam& p) { p.SetInactiveStatus(true); p.SetInactiveValueDouble(1.5); }},
    {"own easing", [](CParam& p) { p.SetTimeTranslation(TIMETRANSLATION_EASEINOUT); }},
    {"attribute through the element", [](CParam& p) { p.SetAttribute(P(u"max"), u"5"); }},
    {"attributes merged", [](CParam& p) { p.MergeAttributes(Element(u"Parameter", {{u"min", u"12"}}), true); }},
    {"keyframe added", [](CParam& p) { p.Add(Key(p, 0.95, -80.0, INTERPOLATION_HOLD), kDuration, false); }},
    {"keyframe inserted",
     [](CParam& p) { p.Insert(Key(p, 0.1, 90.0, INTERPOLATION_LINEAR), 1u, kDuration, false); }},
    {"keyframe removed", [](CParam& p) { p.Remove(1u); }},
    {"removed and another added",
     [](CParam& p) { p.Remove(3u); p.Add(Key(p, 0.9, -30.0, INTERPOLATION_LINEAR), kDuration, false); }},
    {"value by pointer", [](CParam& p) { p.Get(0)->SetValueDouble(-20.0); }},
    {"position by pointer", [](CParam& p) { p.Get(1)->SetPosition(0.5); }},
    {"absolute time by pointer", [](CParam& p) { p.Get(2)->SetTime(3.0, false); }},
    {"interpolation by pointer", [](CParam& p) { p.Get(0)->SetInterpolation(INTERPOLATION_HOLD); }},
    {"easing by pointer", [](CParam& p) { p.Get(0)->SetTimeTranslation(TIMETRANSLATION_EASEINOUT); }},
    {"anchors by pointer", [](CParam& p) { const Anchor handle{0.2, 70.0}; p.Get(1)->SetAnchors(&handle, 1); }},
    {"value type by pointer", [](CParam& p) { p.Get(0)->m_Type = PARAM_BOOL; }},
    {"anchor through a child pointer", [](CParam& p) { AnchorOf(p.Get(2))->SetAttribute(P(u"value"), u"-90"); }},
    {"anchor replaced through a child pointer",
     [](CParam& p) { const CXMLObject anchor = NewAnchor(); *AnchorOf(p.Get(2)) = anchor; }},
    {"keyframe freed", [](CParam& p) { p.Get(1)->Free(); }},
    {"keyframe assigned", [](CParam& p) { *p.Get(0) = Key(p, 0.2, 80.0, INTERPOLATION_LINEAR); }},
    {"element reassigned", [](CParam& p) { ElementOf(p.Get(3)).Reassign(Key(p, 0.4, -9.0, INTERPOLATION_HOLD)); }},
    {"element moved out", [](CParam& p) { (void)CXMLObject(std::move(ElementOf(p.Get(3)))); }},
    {"keyframe loaded", [](CParam& p) { p.Get(0)->Load(Key(p, 0.05, 55.0, INTERPOLATION_LINEAR)); }},
    {"parameter loaded",
     [](CParam& p) {
       CParam other = Sample();
       other.Get(0)->SetValueDouble(77.0);
       CXMLObject stored;
       other.Store(stored);
       p.Load(stored);
     }},
    {"parameter updated",
     [](CParam& p) {
       CXMLObject value = Element(u"Value", {{u"id", u"1"}});
       value.Add(Key(p, 0.5, 12.0, INTERPOLATION_LINEAR));
       p.Update(value, true);
     }},
    {"parameter assigned", [](CParam& p) { CParam other = Sample(); other.SetMaxValueDouble(15.0); p = other; }},
    {"shared keyframe written through its other holder",
     [](CParam& p) {
       // The copy shares the element until it writes: the write is private to it.
       CParam copy = p;
       copy.Get(0)->SetValueDouble(99.0);
       p.Get(0)->SetValueDouble(copy.Get(0)->GetValueDouble() - 100.0);
     }},
};

// The evaluation right after the write is the one that counts: anything in
// between (even a copy) may write elsewhere and so make the cache look again.
TEST(EvalCache, EveryKindOfWriteShowsInTheNextEvaluation) {
  for (const Write& w : kWrites) {
    SCOPED_TRACE(w.what);
    CParam param = Sample();
    const std::vector<std::uint64_t> before = Values(param);  // builds the cache
    w.write(param);
    const std::vector<std::uint64_t> after = Values(param);
    const CParam fresh(param);  // a copy starts without a cache
    EXPECT_NE(Values(fresh), before) << "the write changes nothing to look for";
    EXPECT_EQ(after, Values(fresh));
    for (double t = -0.5; t < 10.5; t += 0.25) ExpectLive(param, t, kDuration);
  }
}

// ---- Edits read in place agree with a cache built afresh

// One random write to `param`, of the kinds an editor makes most, now and
// then one that moves keyframes in the list or reaches a shared copy.
void RandomEdit(std::mt19937& random, CParam& param) {
  std::uniform_real_distribution<double> value(-5.0, 105.0), fraction(-0.1, 1.1);
  const unsigned int count = param.GetSize();
  CKeyFrame* kf = count ? param.Get(static_cast<unsigned int>(random() % count)) : nullptr;
  std::u16string position = u"0.5";
  switch (kf ? random() % 12 : 9) {
    case 0: case 1: case 2: kf->SetValueDouble(value(random)); break;
    case 3: kf->SetPosition(fraction(random)); break;
    case 4: kf->SetTime(fraction(random) * 12.0, random() % 2 == 0); break;
    case 5: kf->SetInterpolation(INTERPOLATION_HOLD << (random() % 5)); break;
    case 6: kf->SetTimeTranslation(random() % 2 ? TIMETRANSLATION_EASEINOUT : 0); break;
    case 7: {
      std::vector<Anchor> anchors(random() % 3);
      for (Anchor& a : anchors) a = {fraction(random), value(random)};
      kf->SetAnchors(anchors.data(), static_cast<unsigned int>(anchors.size()));
      break;
    }
    case 8: param.SetMaxValueDouble(random() % 2 ? 60.0 : 100.0); break;
    case 9: param.Insert(RandomKey(random, param, position), random() % (count + 1), kDuration, false); break;
    case 10: param.Remove(static_cast<unsigned int>(random() % count)); break;
    default: {
      if (random() % 4) return kf->SetValueDouble(value(random)), void();
      CParam copy = param;  // shares every element until one side writes
      copy.GetValueDouble(1.0, kDuration, 0.0);
      kf->SetValueDouble(value(random));
      break;
    }
  }
}

TEST(EvalCache, EditsReadInPlaceAgreeWithAFreshCache) {
  std::mt19937 random(21);
  // More clip lengths than a cache keeps lines for, so that lines refill.
  const double durations[] = {kDuration, 4.0, 25.0, 7.0, 13.0, kDuration};
  for (int round = 0; round < 120; ++round) {
    SCOPED_TRACE(round);
    CParam param = RandomParam(random);
    for (int step = 0; step < 25; ++step) {
      // Mostly one write between evaluations; sometimes more than are kept by name.
      const int writes = random() % 8 == 0 ? 70 : 1 + static_cast<int>(random() % 3);
      for (int w = 0; w < writes; ++w) RandomEdit(random, param);
      const double duration = durations[random() % std::size(durations)];
      for (double t : ProbeTimes(random, param, duration)) ExpectLive(param, t, duration);
      // From text: a copy would share the elements, and a cache reading
      // elements that another reads too is rebuilt, never patched.
      CXMLObject stored;
      param.Store(stored);
      const CParam fresh(qdtest::Parse(qdtest::Text(stored)));
      // A keyframe's time written through its pointer leaves the parameter's
      // minimum duration as it was; the copy works it out afresh.
      if (Bits(fresh.GetMinDuration()) != Bits(param.GetMinDuration())) continue;
      std::vector<double> values(64), expected(64);
      param.GetValueArrayDouble(duration, -0.5, duration / 60.0, values.data(), values.size());
      fresh.GetValueArrayDouble(duration, -0.5, duration / 60.0, expected.data(), expected.size());
      for (std::size_t i = 0; i < values.size(); ++i) ASSERT_EQ(Bits(values[i]), Bits(expected[i])) << step;
      mtime found[8], freshFound[8];
      const double target = 50.0;
      const unsigned int n = param.GetPositionsFromValueDouble(target, duration, found, 8, 0.0);
      ASSERT_EQ(n, fresh.GetPositionsFromValueDouble(target, duration, freshFound, 8, 0.0));
      for (unsigned int i = 0; i < std::min(n, 8u); ++i) EXPECT_EQ(Bits(found[i]), Bits(freshFound[i]));
    }
  }
}

// A long session on a dense curve: keyframes go in and out hundreds of
// times between writes to keyframes placed long before, so that where each
// one is now must be traced through every move since, and the records left
// behind are closed up on the way.
TEST(EvalCache, KeyframesWrittenAfterManyMovesAreFoundInTheirPlace) {
  std::mt19937 random(5);
  std::uniform_real_distribution<double> value(0.0, 100.0), fraction(0.0, 1.0);
  CParam param(PARAM_DOUBLE, u"gain", 1);
  param.SetKeyFrameStatus(true);
  const auto key = [&](double position) {
    CKeyFrame kf(param);
    kf.SetPosition(position);
    kf.SetValueDouble(value(random));
    kf.SetInterpolation(INTERPOLATION_LINEAR);
    return kf;
  };
  for (int i = 0; i < 300; ++i) param.Add(key(i / 299.0), kDuration, false);
  for (int step = 0; step < 1000; ++step) {
    const auto count = param.GetSize();
    if (step % 2 == 0) {
      param.Insert(key(fraction(random)), static_cast<unsigned int>(random() % count), kDuration, false);
    } else {
      param.Remove(static_cast<unsigned int>(random() % count));
    }
    CKeyFrame* written = param.Get(static_cast<unsigned int>(random() % param.GetSize()));
    written->SetValueDouble(value(random));
    ExpectLive(param, written->GetTime(kDuration, param.GetMinDuration()), kDuration);
    ExpectLive(param, fraction(random) * kDuration, kDuration);
  }
}

// Pointers handed out before the cache was built reach what it read.
TEST(EvalCache, ChildPointersTakenBeforehandStillCount) {
  const std::pair<const char*, std::function<void(CXMLObject&)>> writes[] = {
      {"attribute", [](CXMLObject& anchor) { anchor.SetAttribute(P(u"value"), u"-90"); }},
      {"assignment", [](CXMLObject& anchor) { const CXMLObject other = NewAnchor(); anchor = other; }},
      {"freed", [](CXMLObject& anchor) { anchor.Free(); }},
  };
  for (const auto& [what, write] : writes) {
    CParam param = Sample();
    CXMLObject* anchor = AnchorOf(param.Get(2));
    const std::vector<std::uint64_t> before = Values(param);
    write(*anchor);
    const std::vector<std::uint64_t> after = Values(param);
    EXPECT_NE(after, before) << what;
    EXPECT_EQ(after, Values(CParam(param))) << what;
  }
}

TEST(EvalCache, EvaluationAllocatesNothingOnceBuilt) {
  const CParam param = Sample();
  std::vector<double> values(300);
  param.GetValueArrayDouble(kDuration, 0.0, 0.05, values.data(), 300);
  CParam other = Sample();
  other.GetValueDouble(1.0, kDuration, 0.0);
  other.Get(0)->SetValueDouble(3.0);  // another parameter's write, not this one's
  std::size_t before = qdtest::AllocationCount();
  for (double t : {0.5, 3.3, 6.1, 9.9}) param.GetValueDouble(t, kDuration, 0.0);
  param.GetValueArrayDouble(kDuration, 0.0, 0.05, values.data(), 300);
  EXPECT_EQ(qdtest::AllocationCount(), before);
  // A keyframe's value edited is read in place, not by a new cache.
  for (double v : {3.0, 4.0}) {
    other.Get(1)->SetValueDouble(v);
    before = qdtest::AllocationCount();
    other.GetValueDouble(4.0, kDuration, 0.0);
  }
  EXPECT_EQ(qdtest::AllocationCount(), before);
}

// ---- Lookups by name and by id answer as a scan in list order would

const CParam* ScanFor(const CParamSet& set, const CZPoolString& attribute, const CZPoolString& text) {
  for (const CParam* p = set.FindNextParam(nullptr); p; p = set.FindNextParam(p)) {
    if (p->FindAttribute(attribute) == text) return p;
  }
  return nullptr;
}

CZPoolString Name(long i) { return CZPoolString(FormatString(u"n%ld", i)); }

// Names and ids that repeat (the first one answers), a parameter without a
// name, and ids as texts ("7" is not "07").
CParamSet NamedSet(int count) {
  CParamSet set;
  for (long i = 0; i < count; ++i) {
    CParam param(PARAM_DOUBLE, i % 7 == 3 ? CZPoolString(u"dup") : Name(i), i % 11 == 5 ? 5 : i);
    if (i == 4) param.DeleteAttribute(P(u"name"));
    if (i == 6) param.SetAttribute(P(u"id"), u"07");
    set.Add(param);
  }
  return set;
}

void ExpectLookupsScan(const CParamSet& set, int count) {
  std::vector<CZPoolString> names = {CZPoolString(u"dup"), CZPoolString(u"missing"), CZPoolString()};
  for (int i = 0; i < count + 2; ++i) names.push_back(Name(i));
  for (int pass = 0; pass < 3; ++pass) {  // the index is built by the second
    for (const CZPoolString& name : names) {
      EXPECT_EQ(set.Get(name), ScanFor(set, P(u"name"), name)) << ToUtf8(name.view());
    }
    for (long id = 0; id < count + 2; ++id) {
      EXPECT_EQ(set.Get(static_cast<unsigned long>(id)), ScanFor(set, P(u"id"), CZPoolString(id))) << "id " << id;
    }
  }
}

TEST(ParamIndex, LookupsAnswerTheFirstMatchInListOrder) {
  for (int count : {1, 300}) {  // the longest is compared one by one; 20 below
    SCOPED_TRACE(count);
    ExpectLookupsScan(NamedSet(count), count);
  }
}

TEST(ParamIndex, LookupsSeeEveryChangeToTheSet) {
  const std::pair<const char*, std::function<void(CParamSet&)>> writes[] = {
      {"renamed", [](CParamSet& s) { s.Get(2ul)->SetName(CZPoolString(u"dup")); }},
      {"renamed through the element", [](CParamSet& s) { s.Get(8ul)->SetAttribute(P(u"name"), u"n1"); }},
      {"id changed", [](CParamSet& s) { s.Get(9ul)->SetID(1); }},
      {"first removed", [](CParamSet& s) { s.Remove(0u); }},
      {"inserted first", [](CParamSet& s) { s.Insert(CParam(PARAM_DOUBLE, u"n12", 12), 0u); }},
      {"added", [](CParamSet& s) { s.Add(CParam(PARAM_DOUBLE, u"dup", 3)); }},
      {"removed and added", [](CParamSet& s) { s.Remove(3u); s.Add(CParam(PARAM_DOUBLE, u"n3", 2)); }},
      {"assigned", [](CParamSet& s) { *s.Get(10ul) = CParam(PARAM_DOUBLE, u"n0", 0); }},
      {"freed", [](CParamSet& s) { s.Get(11ul)->Free(); }},
      {"loaded", [](CParamSet& s) { CXMLObject stored; NamedSet(15).Store(stored); s.Load(stored); }},
  };
  for (const auto& [what, write] : writes) {
    SCOPED_TRACE(what);
    CParamSet set = NamedSet(20);
    ExpectLookupsScan(set, 20);
    write(set);
    ExpectLookupsScan(set, 20);
  }
}

// ---- Concurrent readers

// Every typed getter of every parameter, by name and by id, and an array.
std::vector<double> AskAll(const CParamSet& set) {
  std::vector<double> out;
  for (const CParam* p = set.FindNextParam(nullptr); p; p = set.FindNextParam(p)) {
    const CZPoolString name = p->GetName();
    const auto id = static_cast<unsigned long>(p->GetID());
    for (double t = -0.5; t < 10.5; t += 0.7) {
      out.push_back(set.GetValueDouble(name, t, -1.0));
      out.push_back(static_cast<double>(set.GetValueLong(id, t, -1)));
      out.push_back(set.GetValueBool(name, t, false) ? 1.0 : 0.0);
    }
    double array[64];
    p->GetValueArrayDouble(kDuration, 0.0, 0.16, array, 64);
    out.insert(out.end(), array, array + 64);
  }
  return out;
}

CParamSet SampleSet() {
  CParamSet set;
  set.SetDuration(kDuration);
  // First, so that the readers meet on it: written without a typed setter,
  // its type is read for the first time by the readers.
  CParam fixed(PARAM_DOUBLE, u"fixed", 22);
  fixed.SetValue(P(u"value"), u"2.5");
  set.Add(fixed);
  CParam whole(PARAM_LONG, u"whole", 20), flag(PARAM_BOOL, u"flag", 21);
  whole.SetKeyFrameStatus(true);
  flag.SetKeyFrameStatus(true);
  for (double at : {0.1, 0.5, 0.8}) AddPair(whole, flag, at, static_cast<long>(at * 40), at > 0.3);
  set.Add(whole);
  set.Add(flag);
  std::mt19937 random(15);
  for (long id = 0; id < 12; ++id) {
    CParam param = id % 3 == 0 ? Sample() : RandomParam(random);
    param.SetID(id);
    param.SetName(CZPoolString(id));
    set.Add(param);
  }
  return set;
}

// Readers start together and meet on the same parameters, building,
// checking and replacing caches at once, while another set is written.
TEST(EvalCache, ThreadsEvaluatingOneSetAgreeWithOneThread) {
  constexpr int kThreads = 4;
  CParamSet set = SampleSet();
  CParamSet busy = SampleSet();  // written meanwhile: its writes move the epoch
  CParam* written = busy.FindNextParam(nullptr);
  while (written->GetSize() == 0) written = busy.FindNextParam(written);
  for (int phase = 0; phase < 8; ++phase) {
    // Between phases (never during one) the set changes, so that readers
    // also race to replace stale caches.
    for (CParam* p = set.FindNextParam(nullptr); p && phase > 0; p = set.FindNextParam(p)) {
      if (p->GetSize() && p->GetType() == PARAM_DOUBLE) p->Get(0)->SetValueDouble(phase * 3.0);
    }
    const CParamSet reference(set);  // a private copy, evaluated alone
    const std::vector<double> expected = AskAll(reference);
    std::vector<std::vector<double>> answers(kThreads);
    std::atomic<bool> go{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
      threads.emplace_back([&, t] {
        while (!go.load(std::memory_order_acquire)) std::this_thread::yield();
        answers[t] = AskAll(set);
      });
    }
    std::thread writer([&] {
      while (!go.load(std::memory_order_acquire)) std::this_thread::yield();
      for (int i = 0; i < 20; ++i) {
        written->Get(0)->SetValueDouble(i);
        written->GetValueDouble(1.0, kDuration, 0.0);  // watched again
      }
    });
    go.store(true, std::memory_order_release);
    for (std::thread& thread : threads) thread.join();
    writer.join();
    for (int t = 0; t < kThreads; ++t) EXPECT_TRUE(answers[t] == expected) << "phase " << phase;
  }
}

}  // namespace
