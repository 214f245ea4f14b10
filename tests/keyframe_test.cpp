// Keyframes: position texts, time resolution, typed values with their guards
// and clamping, interpolation codes, time translation and anchors.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "qdparam/keyframe.h"
#include "support/capture.h"
#include "support/xml.h"

using namespace qdcore;
using qdtest::Attr, qdtest::Element, qdtest::P;

namespace {

using Pairs = std::vector<std::pair<const wchar*, const wchar*>>;

CKeyFrame AtPosition(const wchar* position) {
  CKeyFrame kf(PARAM_DOUBLE);
  kf.SetPositionValue(position);
  return kf;
}

// One "Anchor" child per pair; a null text leaves that attribute out.
CKeyFrame WithAnchors(const Pairs& anchors) {
  CKeyFrame kf(PARAM_DOUBLE);
  for (const auto& [position, value] : anchors) {
    CXMLObject anchor(P(u"Anchor"));
    if (position) anchor.SetAttribute(P(u"position"), position);
    if (value) anchor.SetAttribute(P(u"value"), value);
    kf.Add(anchor);
  }
  return kf;
}

}  // namespace

TEST(KeyFramePosition, TextsGiveQualifierAndNumber) {
  const std::u16string digits127 = std::u16string(126, u'0') + u"7";
  struct Row { std::u16string text; unsigned int qualifier; double number; } rows[] = {
      {u"50%", KEYFRAME_RELATIVE, 0.5},         {u"2.5s", KEYFRAME_ABSOLUTE, 2.5},
      {u"-3fs", KEYFRAME_FIXED_ABSOLUTE, -3.0}, {u"abc", KEYFRAME_RELATIVE, 0.0},
      {u"1.5xs", KEYFRAME_ABSOLUTE, 1.5},       {digits127 + u"s", KEYFRAME_ABSOLUTE, 7.0},
      {u"0" + digits127, KEYFRAME_RELATIVE, 0.0},  // too long to be a number
      {std::u16string(100000, u'9') + u"fs", KEYFRAME_FIXED_ABSOLUTE, 0.0},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(ToUtf8(row.text.substr(0, 20)));
    const CZPoolString text{std::u16string_view(row.text)};
    unsigned int qualifier = 99;
    double number = -1.0;
    EXPECT_TRUE(CKeyFrame::ExtractValue(text, qualifier, number));
    EXPECT_EQ(qualifier, row.qualifier);
    EXPECT_EQ(number, row.number);
    EXPECT_EQ(AtPosition(text).GetType(), row.qualifier);
  }
  EXPECT_EQ(CKeyFrame(PARAM_DOUBLE).GetType(), KEYFRAME_NO_TIME);
  EXPECT_EQ(AtPosition(u"").GetType(), KEYFRAME_NO_TIME);
  CKeyFrame kf(PARAM_DOUBLE);  // the setters write texts of twelve decimals
  kf.SetPosition(0.5);
  EXPECT_EQ(Attr(kf, u"position"), "0.500000000000");
  kf.SetTime(-1.25, true);
  EXPECT_EQ(Attr(kf, u"position"), "-1.250000000000fs");
}

TEST(KeyFrameTime, ResolvesOnTheClip) {
  const double unknown = -std::numeric_limits<double>::infinity();
  struct Row { const wchar* position; double duration, minDuration, time, relative; } rows[] = {
      // A clip shorter than the minimum: absolute times shrink, fixed ones do not.
      {u"5s", 10, 20, 2.5, 0.25},   {u"-5s", 10, 20, 7.5, -0.25}, {u"5fs", 10, 20, 5, 0.25},
      {u"-5fs", 10, 20, 15, -0.25},
      // A long enough clip: both count from the start or back from the end.
      {u"5s", 30, 20, 5, 5.0 / 30}, {u"-5s", 30, 20, 25, -5.0 / 30}, {u"-5fs", 30, 20, 25, -0.25},
      {u"50%", 8, 20, 4, 0.5},      {u"-2s", 10, unknown, 8, -0.2},  // unknown: shorter than any
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(ToUtf8(row.position) + " on " + std::to_string(row.duration));
    const CKeyFrame kf = AtPosition(row.position);
    EXPECT_DOUBLE_EQ(double(kf.GetTime(row.duration, row.minDuration)), row.time);
    EXPECT_DOUBLE_EQ(kf.GetPosition(row.duration, row.minDuration), row.relative);
  }
}

// Keyframe and static values alike are clamped to the parameter's limits
// (here 0 to 10), and reported.
TEST(KeyFrameValue, SettersClampToTheParameterLimits) {
  struct Row { bool keyframe, isReal; double input; const char* stored; const char* report; } rows[] = {
      {true, true, 12.0, "10.000000000000", "value <= minmax"}, {true, true, 0.25, "0.250000000000", nullptr},
      {true, true, std::nan(""), "0.000000000000", "value >= minmax"}, {true, false, -5, "0", "value >= minmax"},
      {true, false, 12, "10", "value <= minmax"},                 {false, false, -5, "0", "lValue >= minmax"},
      {false, false, 12, "10", "lValue <= minmax"},               {false, false, 10, "10", nullptr},
      {false, true, 10.5, "10.000000000000", "dValue <= minmax"},
      {false, true, -0.25, "0.000000000000", "dValue >= minmax"}};
  for (const Row& row : rows) {
    CParam param(Element(u"Parameter", {{u"type", row.isReal ? u"Double" : u"Long"}, {u"min", u"0"}, {u"max", u"10"}}));
    CKeyFrame kf(param);
    qdtest::AssertCapture asserts;
    if (row.keyframe) {
      EXPECT_TRUE(row.isReal ? kf.SetValueDouble(row.input) : kf.SetValueLong(long(row.input)));
    } else {
      EXPECT_TRUE(row.isReal ? param.SetValueDouble(row.input) : param.SetValueLong(long(row.input)));
    }
    EXPECT_EQ(Attr(row.keyframe ? static_cast<const CXMLObject&>(kf) : param, u"value"), row.stored);
    EXPECT_EQ(asserts.expressions(), qdtest::OneOrNone(row.report)) << row.stored;
  }
}

#define KF_SIG(ret, text) ret " __cdecl qdcore::CKeyFrame::" text
#define KF_MTIMES "(const class qdcore::mtime &,const class qdcore::mtime &) const"

// Each keyframe starts with "value" 1 and no position. Texts with " - " and
// "type needs" are unreachable points, the others failed assumptions.
TEST(KeyFrameValue, GuardsAndUnreachablePointsReport) {
  struct Row {
    unsigned int type;
    bool (*call)(CKeyFrame&);
    bool result;
    const char* expression;  // null: no report
    const char* signature;
  } rows[] = {
      {PARAM_DOUBLE, [](CKeyFrame& k) { return k.GetTime(10.0, 5.0) != 0.0; }, false,
       "GetTime - no valid time information", KF_SIG("class qdcore::mtime", "GetTime" KF_MTIMES)},
      {PARAM_DOUBLE, [](CKeyFrame& k) { return k.GetPosition(10.0, 5.0) != 0.0; }, false,
       "GetPosition - unknown time value qualifier", KF_SIG("double", "GetPosition" KF_MTIMES)},
      {PARAM_DOUBLE, [](CKeyFrame& k) { double p; return k.SetPositionValue(u"2s") && k.GetPosition(p); },
       false, "type == KEYFRAME_RELATIVE", KF_SIG("bool", "GetPosition(double &) const")},
      {PARAM_DOUBLE, [](CKeyFrame& k) { mtime t; return k.SetPosition(0.5) && k.GetTime(t); }, false,
       "type == KEYFRAME_ABSOLUTE || type == KEYFRAME_FIXED_ABSOLUTE",
       KF_SIG("bool", "GetTime(class qdcore::mtime &) const")},
      {PARAM_LONG, [](CKeyFrame& k) { double v; return k.GetValueDouble(v); }, false,
       "m_Type == PARAM_UNDEFINED || m_Type == PARAM_DOUBLE", KF_SIG("bool", "GetValueDouble(double &) const")},
      {PARAM_DOUBLE, [](CKeyFrame& k) { long v; return k.GetValueLong(v); }, false,
       "m_Type == PARAM_UNDEFINED || m_Type == PARAM_LONG", KF_SIG("bool", "GetValueLong(long &) const")},
      {PARAM_UNDEFINED, [](CKeyFrame& k) { bool v; return k.GetValueBool(v); }, false,  // strict
       "m_Type == PARAM_BOOL", KF_SIG("bool", "GetValueBool(bool &) const")},
      {PARAM_BOOL, [](CKeyFrame& k) { CZPoolString v; return k.GetValueString(v); }, false,
       "m_Type == PARAM_UNDEFINED || m_Type == PARAM_STRING",
       KF_SIG("bool", "GetValueString(class qdcore::CZPoolString &) const")},
      {PARAM_STRING, [](CKeyFrame& k) { return k.GetValueBinary(nullptr, 0, 0) != 0; }, false,
       "m_Type == PARAM_UNDEFINED || m_Type == PARAM_BINARY",
       KF_SIG("unsigned int", "GetValueBinary(unsigned char *,unsigned int,unsigned int) const")},
      {PARAM_STRING, [](CKeyFrame& k) { return k.GetValueLong() != 0; }, false,
       "type needs to be PARAM_BOOL, PARAM_LONG or PARAM_DOUBLE", KF_SIG("long", "GetValueLong(void) const")},
      {PARAM_DOUBLE, [](CKeyFrame& k) { return k.SetValueBool(true) && k.GetValue(P(u"value")) == u"True"; },
       true, "m_Type == PARAM_BOOL", KF_SIG("bool", "SetValueBool(bool)")},
      {PARAM_LONG, [](CKeyFrame& k) { return k.SetValueString(u"x") && k.GetValue(P(u"value")) == u"x"; },
       true, "m_Type == PARAM_UNDEFINED || m_Type == PARAM_STRING",
       KF_SIG("bool", "SetValueString(const class qdcore::CZPoolString &)")},
      {PARAM_UNDEFINED, [](CKeyFrame& k) { return k.SetValueString(u"s") && k.GetValueString() == u"s"; },
       true, nullptr, nullptr},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.signature ? row.signature : "undefined");
    CKeyFrame kf(row.type);
    kf.SetAttribute(P(u"value"), u"1");
    qdtest::AssertCapture asserts;
    EXPECT_EQ(row.call(kf), row.result);
    const std::string expression = row.expression ? row.expression : "";
    const bool unreachable = expression.find(" - ") != std::string::npos || expression.starts_with("type needs");
    const char* message = unreachable ? kIllegalCodePointReached : kRuntimeAssumptionFailed;
    EXPECT_EQ(asserts.reports(),
              (row.expression ? qdtest::Reports{{expression, message, row.signature}} : qdtest::Reports{}));
  }
}

TEST(KeyFrameValue, ConvertingGetters) {
  const int kNoNumber = std::numeric_limits<int>::min();
  // A null text: no value.
  struct Row { unsigned int type; const wchar* text; double asDouble; long asLong; bool asBool; } rows[] = {
      {PARAM_DOUBLE, u"-2.5", -2.5, -3, true},          {PARAM_DOUBLE, u"2.4", 2.4, 2, true},
      {PARAM_DOUBLE, u"1e300", 1e300, kNoNumber, true}, {PARAM_LONG, u"-7", -7.0, -7, true},
      {PARAM_BOOL, u"True", 1.0, 1, true},              {PARAM_DOUBLE, nullptr, 0.0, 0, false}};
  for (const Row& row : rows) {
    CKeyFrame kf(row.type);
    if (row.text) kf.SetAttribute(P(u"value"), row.text);
    EXPECT_EQ(kf.GetValueDouble(), row.asDouble) << row.asDouble;
    EXPECT_EQ(kf.GetValueLong(), row.asLong) << row.asDouble;
    EXPECT_EQ(kf.GetValueBool(), row.asBool) << row.asDouble;
  }
}

TEST(KeyFrameInterpolation, SingleCodesOnlyAndTimeTranslationFlags) {
  CKeyFrame kf(PARAM_DOUBLE);
  EXPECT_EQ(kf.GetInterpolation(), INTERPOLATION_HOLD);
  for (unsigned int code = 1; code <= 32; code <<= 1) {
    EXPECT_TRUE(kf.SetInterpolation(code));
    EXPECT_EQ(kf.GetInterpolation(), code);
  }
  for (unsigned int code : {0u, 3u, 64u, 0xFFFFFFFFu}) EXPECT_FALSE(kf.SetInterpolation(code));
  EXPECT_EQ(Attr(kf, u"interpolation"), "Custom");
  kf.SetAttribute(P(u"interpolation"), u"EaseIn");
  EXPECT_EQ(kf.GetInterpolation(), INTERPOLATION_HOLD);

  kf.SetTimeTranslation(TIMETRANSLATION_EASEINOUT | TIMETRANSLATION_EASEOUT);
  EXPECT_EQ(Attr(kf, u"timeTranslation"), "EaseInOut;EaseOut");
  EXPECT_EQ(kf.GetTimeTranslation(), 9u);
  EXPECT_TRUE(kf.SetTimeTranslation(0));  // no attribute rather than "Linear"
  EXPECT_FALSE(kf.HasAttribute(P(u"timeTranslation")));
}

TEST(KeyFrameAnchors, GetAnchorsCountsAllAndFillsWhatFits) {
  struct Row { Pairs anchors; unsigned int capacity; bool result; unsigned int count, filled; } rows[] = {
      {{}, 0, true, 0, 0},
      {{{u"0.1", u"1"}, {u"0.2", u"2"}, {u"0.3", u"3"}}, 2, false, 3, 2},
      {{{u"0.1", u"1"}, {u"0.2", u"2"}}, 4, true, 2, 2},
      {{{u"0.1", u"1"}, {u"0.2", nullptr}, {u"0.3", u"3"}}, 4, false, 3, 1},  // none stored after a gap
      {{{nullptr, u"1"}}, 1, false, 1, 0},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.anchors.size());
    const CKeyFrame kf = WithAnchors(row.anchors);
    Anchor out[4] = {{-1, -1}, {-1, -1}, {-1, -1}, {-1, -1}};
    unsigned int count = 99;
    EXPECT_EQ(kf.GetAnchors(out, row.capacity, count), row.result);
    EXPECT_EQ(count, row.count);
    for (unsigned int i = 0; i < 4; ++i) {
      EXPECT_EQ(out[i].position, i < row.filled ? 0.1 * (i + 1) : -1.0) << i;
      EXPECT_EQ(out[i].value, i < row.filled ? i + 1.0 : -1.0) << i;
    }
  }
}

TEST(KeyFrameAnchors, BezierHandles) {
  struct Row { Pairs anchors; bool result; double x1, y1, x2, y2; } rows[] = {
      {{{u"0.3", u"0.8"}}, true, 0.3, 0.8, -0.7, 0.8},  // one anchor is both handles
      {{{u"-0.5", u"1"}}, true, -0.5, 1.0, -1.5, 1.0},
      {{{u"0.1", u"0.2"}, {u"0.6", u"0.9"}}, true, 0.1, 0.2, 0.6, 0.9},
      {{}, false, 0, 0, 0, 0},
      {{{u"0.1", u"1"}, {u"0.2", u"2"}, {u"0.3", u"3"}}, false, 0, 0, 0, 0},
      {{{u"0.1", u"1"}, {u"0.2", nullptr}}, false, 0, 0, 0, 0},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.anchors.size());
    double x1 = 9, y1 = 9, x2 = 9, y2 = 9;
    EXPECT_EQ(WithAnchors(row.anchors).GetBezierAnchors(x1, y1, x2, y2), row.result);
    EXPECT_EQ(std::vector<double>({x1, y1, x2, y2}), std::vector<double>({row.x1, row.y1, row.x2, row.y2}));
  }
  CKeyFrame kf = WithAnchors({{u"9", u"9"}});
  const Anchor written[] = {{0.25, -1.5}, {0.75, 2.0}};
  EXPECT_TRUE(kf.SetAnchors(written, 2));  // replaces all
  double x1, y1, x2, y2;
  EXPECT_TRUE(kf.GetBezierAnchors(x1, y1, x2, y2));
  EXPECT_EQ(x1 + y1 + x2 + y2, 1.5);
  EXPECT_EQ(Attr(*kf.FindNextElement(P(u"Anchor"), nullptr), u"value"), "-1.500000000000");

  qdtest::AssertCapture asserts;  // an absolute anchor text is reported, its number kept
  EXPECT_TRUE(WithAnchors({{u"0.5s", u"2"}}).GetBezierAnchors(x1, y1, x2, y2));
  EXPECT_EQ(x1, 0.5);
  ASSERT_EQ(asserts.reports().size(), 1u);
  EXPECT_EQ(asserts.reports()[0].signature,
            KF_SIG("bool", "GetBezierAnchors(double &,double &,double &,double &) const"));
}

TEST(KeyFrameLifetime, OnlyKeyframeElementsAreTaken) {
  const CXMLObject keyframe = Element(u"Keyframe", {{u"position", u"0.5"}, {u"value", u"3"}});
  const CXMLObject other = Element(u"Parameter", {{u"value", u"3"}});
  EXPECT_EQ(CKeyFrame(PARAM_LONG, keyframe).GetValueLong(), 3);
  EXPECT_EQ(CKeyFrame(PARAM_LONG, other).GetAttributeCount(), 0u);
  CKeyFrame kf(PARAM_DOUBLE, keyframe);
  EXPECT_TRUE(kf.Load(other));
  EXPECT_TRUE(kf.IsName(P(u"Keyframe")));
  EXPECT_EQ(kf.GetAttributeCount(), 0u);
  kf.Add(keyframe);
  EXPECT_TRUE(kf.Load(*kf.FindNextElement(P(u"Keyframe"), nullptr)));  // from its own child
  CXMLObject stored;
  EXPECT_TRUE(kf.Store(stored) && stored.IsEqual(keyframe));
  kf.Reset();
  EXPECT_EQ(kf.GetAttributeCount() + kf.GetNElements(u""), 0u);
  EXPECT_EQ(kf.m_Type, PARAM_DOUBLE);
}
