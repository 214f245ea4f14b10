// The parameter set's typed reads: finding the parameter by name, id or
// object, placing the time on the set's time line, and the defaults.
#include <gtest/gtest.h>

#include "qdparam/paramset.h"
#include "support/capture.h"
#include "support/xml.h"

using namespace qdcore;
using qdtest::P;

namespace {

// A clip starting at 10 s and lasting 4 s. "ramp" climbs from 0 to 4 over
// the clip (relative keyframes: the duration counts); "seconds" climbs 10 per
// second from the clip's start (absolute keyframes: the start time counts).
CParamSet Clip() {
  CParamSet set(qdtest::Parse(
      R"(<Property><Parameter id="1" name="ramp" value="0" useKeyframe="True">)"
      R"(<Keyframe position="0" value="0" interpolation="Linear"/>)"
      R"(<Keyframe position="1" value="4" interpolation="Linear"/></Parameter>)"
      R"(<Parameter id="2" name="seconds" type="Long" value="0" useKeyframe="True">)"
      R"(<Keyframe position="0s" value="0" interpolation="Linear"/>)"
      R"(<Keyframe position="3s" value="30" interpolation="Linear"/></Parameter>)"
      R"(<Parameter id="3" name="caption" type="String" value="hello"/>)"
      R"(<Parameter id="4" name="on" type="Bool" value="True"/>)"
      R"(<Parameter id="5" name="curve" type="Binary"><Binary>AQID</Binary></Parameter>)"
      R"(<Parameter id="6" name="level" value="3"/></Property>)"));
  set.SetStartTime(10.0);
  set.SetDuration(4.0);
  return set;
}

}  // namespace

// Each read is checked in its three forms: by name, by id and by object.
TEST(ParamSetAccess, EveryFormReadsOnTheSetsTimeLine) {
  const CParamSet set = Clip();
  auto forms = [&](const wchar* name, unsigned long id, auto check) {
    check(P(name));
    check(id);
    check(set.Get(id));
  };
  const mtime at12 = 12.0;  // 2 s into the clip, half of it
  forms(u"ramp", 1, [&](auto key) {
    EXPECT_EQ(set.GetValueDouble(key, at12, -1.0), 2.0);
    EXPECT_EQ(set.GetValueDouble(key, 13.0, -1.0), 3.0);
    EXPECT_EQ(set.GetValueDouble(key, 5.0, -1.0), 0.0);  // before the clip: the first keyframe
  });
  forms(u"seconds", 2, [&](auto key) {
    EXPECT_EQ(set.GetValueLong(key, at12, -1), 20);
    EXPECT_EQ(set.GetValueLong(key, 11.5, -1), 15);
  });
  forms(u"caption", 3, [&](auto key) {
    EXPECT_TRUE(set.GetValueString(key, at12, P(u"x")) == P(u"hello"));
  });
  forms(u"on", 4, [&](auto key) { EXPECT_TRUE(set.GetValueBool(key, at12, false)); });
  forms(u"curve", 5, [&](auto key) {
    const CZMemory block = set.GetValueBinary(key, at12);
    ASSERT_EQ(block.GetSize(), 3u);
    EXPECT_EQ(static_cast<const unsigned char*>(static_cast<const void*>(block))[2], 3);
    unsigned char buffer[8] = {};
    EXPECT_EQ(set.GetValueBinary(key, at12, nullptr, 0), 3u);  // the size
    EXPECT_EQ(set.GetValueBinary(key, at12, buffer, sizeof buffer), 3u);
    EXPECT_EQ(buffer[2], 3);
  });
  // A static value times the time since the clip's start.
  forms(u"level", 6, [&](auto key) { EXPECT_EQ(set.GetIntegralDouble(key, 14.0), 12.0); });
}

// A missing parameter gives the caller's default, quietly. One that is there
// but cannot answer gives its own failure value, reported: the double read
// hands it 0.0, the others the caller's default.
TEST(ParamSetAccess, UnansweredReadsGiveDefaults) {
  const CParamSet set = Clip();
  qdtest::AssertCapture reports;
  auto check = [&](auto key) {
    unsigned char buffer[4];
    EXPECT_EQ(set.GetValueDouble(key, 12.0, 5.0), 5.0);
    EXPECT_EQ(set.GetValueLong(key, 12.0, 5), 5);
    EXPECT_TRUE(set.GetValueBool(key, 12.0, true));
    EXPECT_TRUE(set.GetValueString(key, 12.0, P(u"d")) == P(u"d"));
    EXPECT_FALSE(set.GetValueBinary(key, 12.0));
    EXPECT_EQ(set.GetValueBinary(key, 12.0, buffer, sizeof buffer), 0u);
    EXPECT_EQ(set.GetIntegralDouble(key, 12.0), 0.0);
  };
  check(P(u"missing"));
  check(99ul);
  check(static_cast<const CParam*>(nullptr));
  EXPECT_TRUE(reports.reports().empty());

  EXPECT_EQ(set.GetValueDouble(P(u"caption"), 12.0, 5.0), 0.0);
  EXPECT_EQ(set.GetValueLong(P(u"caption"), 12.0, 5), 5);
  EXPECT_TRUE(set.GetValueBool(P(u"caption"), 12.0, true));
  EXPECT_TRUE(set.GetValueString(P(u"ramp"), 12.0, P(u"d")) == P(u"d"));
  EXPECT_EQ(set.GetIntegralDouble(P(u"caption"), 12.0), 0.0);
  EXPECT_EQ(set.GetValueBinary(P(u"ramp"), 12.0, nullptr, 0), 0u);
  EXPECT_EQ(reports.reports().size(), 6u);  // each one a type mismatch
}
