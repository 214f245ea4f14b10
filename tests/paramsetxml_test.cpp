// The parameter set and XML: loading, storing, updates, presets and the dump
// each of them writes to the trace.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "qdparam/keyframe.h"
#include "qdparam/paramset.h"
#include "support/capture.h"
#include "support/xml.h"

using namespace qdcore;
using namespace qdtest;

namespace {

std::string Stored(const CParamSet& set) {
  CXMLObject out;
  EXPECT_TRUE(set.Store(out));
  return Text(out);
}

// A glow effect as a host stores it: keyframed, static, inactive and
// string parameters, Bezier anchors, and a validation block the set leaves
// to the validator.
const std::string kGlowParams =
    R"(<Parameter id="1" name="radius" value="8.000000000000" min="0.000000000000" max="64.000000000000" useKeyframe="True">)"
    R"(<Keyframe position="0.000000000000" value="4.000000000000" interpolation="Linear"/>)"
    R"(<Keyframe position="0.250000000000" value="24.000000000000" interpolation="Bezier">)"
    R"(<Anchor position="0.330000000000" value="30.000000000000"/>)"
    R"(<Anchor position="0.660000000000" value="12.000000000000"/></Keyframe>)"
    R"(<Keyframe position="1.000000000000" value="2.000000000000" interpolation="Hold"/></Parameter>)"
    R"(<Parameter id="2" name="strength" value="0.750000000000" active="False" inactive="0.000000000000"/>)"
    R"(<Parameter id="3" name="mode" type="Long" value="1" min="0" max="3"/>)"
    R"(<Parameter id="4" name="enabled" type="Bool" value="True"/>)"
    R"(<Parameter id="5" name="caption" type="String"><value><![CDATA[Soft & warm <glow>]]></value></Parameter>)";
const std::string kGlow = R"(<Property name="Glow" alpha="Generate">)" + kGlowParams +
                          R"(<Validation><Condition id="4" relation="Equal" value="0"/></Validation></Property>)";
// What storing the glow writes: the parameters, without the validation block.
const std::string kGlowStored = R"(<Property name="Glow" alpha="Generate">)" + kGlowParams + R"(</Property>)";

CParamSet Glow() {
  CParamSet set;
  EXPECT_TRUE(set.Load(Parse(kGlow)));
  return set;
}

// The levels of the dumps written while `run` runs: one per dump.
template <typename Run>
std::vector<int> DumpLevels(Run run) {
  qdtest::TraceCapture trace(398, 8);
  run();
  std::vector<int> levels;
  for (const auto& line : trace.lines()) {
    if (line.text.starts_with("Display ParamSet")) levels.push_back(line.level);
  }
  return levels;
}

}  // namespace

// ---- Load and store

TEST(ParamSetXml, LoadsAnEffectAndStoresItBackAsItWas) {
  CParamSet set;
  set.SetStartTime(2.0);
  ASSERT_TRUE(set.Load(Parse(kGlow)));
  EXPECT_EQ(double(set.GetStartTime()), 0.0);  // a load starts from a reset
  EXPECT_EQ(set.GetNElements(P(u"")), 0u);  // children become parameters, or are left
  EXPECT_EQ(Stored(set), kGlowStored);
  CXMLObject stored;  // and what it stores loads back the same
  set.Store(stored);
  EXPECT_EQ(Stored(CParamSet(stored)), kGlowStored);
}

TEST(ParamSetXml, AFailedLoadLeavesAnEmptyResetSet) {
  // A load that never started writes no dump.
  struct Row { const char* what; std::string xml; bool dumped; } rows[] = {
      {"another element", R"(<Properties><Parameter id="1"/></Properties>)", false},
      {"a negative id", R"(<Property><Parameter id="1"/><Parameter id="-2"/></Property>)", true},
      {"no id", R"(<Property><Parameter id="1"/><Parameter name="x"/></Property>)", true},
  };
  for (const Row& row : rows) {
    CParamSet set = Glow();
    set.SetStartTime(5.0);
    bool loaded = true;
    const std::vector<int> levels = DumpLevels([&] { loaded = set.Load(Parse(row.xml)); });
    EXPECT_FALSE(loaded) << row.what;
    EXPECT_EQ(Text(set) + std::to_string(set.GetSize()), "<Property/>0") << row.what;
    EXPECT_EQ(double(set.GetStartTime()), 0.0) << row.what;
    EXPECT_EQ(levels, row.dumped ? std::vector<int>{5} : std::vector<int>{}) << row.what;
  }
}

TEST(ParamSetXml, LoadsTheFirstPropertyInsideAHostProperty) {
  const CXMLObject data = Parse(R"(<Data><Other/><Property name="first"><Parameter id="1"/></Property>)"
                                R"(<Property name="second"/></Data>)");
  CParamSet fromProperty{CZProperty(data)};
  EXPECT_EQ(fromProperty.GetSize(), 1u);
  EXPECT_EQ(Attr(fromProperty, u"name"), "first");

  const CParamSet invalid{CZProperty()};  // nothing loaded: not even a name or times
  EXPECT_FALSE(invalid);
  EXPECT_FALSE(invalid.GetDuration().isassigned());
  CParamSet set;
  EXPECT_FALSE(set.Load(CZProperty(Parse(R"(<Data><Parameter id="1"/></Data>)"))));
  EXPECT_FALSE(set.Load(CZProperty(Parse(R"(<Property/>)"))));  // the root is not searched
}

// ---- Updates

TEST(ParamSetXml, UpdateFromASetMergesByIdAndNeverReplaces) {
  CParamSet other;
  other.Load(Parse(R"(<Property alpha="Remove"><Parameter id="1" name="radius" value="9.000000000000"/>)"
                   R"(<Parameter id="9" name="new" value="1.000000000000"/></Property>)"));
  other.SetStartTime(3.0);
  std::string results[2];
  for (bool flag : {false, true}) {
    CParamSet set = Glow();
    ASSERT_TRUE(set.Update(other, flag));
    EXPECT_EQ(set.GetSize(), 6u);
    EXPECT_EQ(Attr(*set.Get(1ul), u"value"), "9.000000000000");
    EXPECT_EQ(set.Get(1ul)->GetSize(), 3u);  // a replace would have dropped them
    EXPECT_EQ(Attr(*set.Get(9ul), u"name"), "new");
    EXPECT_EQ(set.GetAlphaHandling(), ALPHA_GENERATE);  // the set's own attributes stay
    EXPECT_EQ(double(set.GetStartTime()), 0.0);
    results[flag] = Stored(set);
  }
  EXPECT_EQ(results[0], results[1]);

  CParamSet self = Glow();
  EXPECT_TRUE(self.Update(self, false));  // every id found: nothing added
  EXPECT_EQ(self.GetSize(), 5u);
  EXPECT_EQ(self.Get(1ul)->GetSize(), 3u);

  // Ids written "01" are not found by their number's text: each one is
  // added again while the set grows under the walk.
  CParamSet padded;
  padded.Load(Parse(R"(<Property><Parameter id="01"/><Parameter id="02"/><Parameter id="03"/>)"
                    R"(<Parameter id="04"/></Property>)"));
  EXPECT_TRUE(padded.Update(padded, false));
  EXPECT_EQ(padded.GetSize(), 8u);
}

TEST(ParamSetXml, UpdateFromXmlMergesParametersAndValuesById) {
  // Afterwards: parameter 1's "value" and keyframes, the set's size and alpha.
  struct Row { const char* what; const char* xml; bool flag, result; const char* radiusValue;
               unsigned int radiusKeys, size; const char* alpha; } rows[] = {
      {"a value", R"(<Update alpha="Remove"><Value id="1" value="5.0"/></Update>)", false, true, "5.0", 3, 5,
       "Generate"},
      {"an unknown value", R"(<Property><Value id="77" value="5.0"/></Property>)", false, true, "8.000000000000", 3,
       5, "Generate"},
      {"a parameter, merged", R"(<Property alpha="Remove"><Parameter id="1" value="6.0"/></Property>)", false, true,
       "6.0", 3, 5, "Remove"},
      {"a parameter, replaced", R"(<Property><Parameter id="1" value="6.0"/></Property>)", true, true, "6.0", 0, 5,
       "Generate"},
      {"a new parameter", R"(<Property><Parameter id="8" value="1.0"/></Property>)", false, true, "8.000000000000", 3,
       6, "Generate"},
      {"a refused parameter", R"(<Property><Parameter id="-8" value="1.0"/></Property>)", false, false, "", 0, 0, ""},
  };
  for (const Row& row : rows) {
    CParamSet set = Glow();
    set.SetDuration(4.0);
    EXPECT_EQ(set.Update(Parse(row.xml), row.flag), row.result) << row.what;
    EXPECT_EQ(set.GetSize(), row.size) << row.what;
    EXPECT_EQ(Attr(set, u"alpha"), row.alpha) << row.what;
    if (!row.result) {
      EXPECT_TRUE(set.IsName(u"Property"));
      EXPECT_EQ(double(set.GetDuration()), 1.0);  // reset
      continue;
    }
    EXPECT_EQ(Attr(*set.Get(1ul), u"value"), row.radiusValue) << row.what;
    EXPECT_EQ(set.Get(1ul)->GetSize(), row.radiusKeys) << row.what;
  }
  // Without an id an update addresses id 0: parameters first, then values.
  CParamSet zero(Parse(R"(<Property><Parameter id="0" name="zero" value="1.0"/></Property>)"));
  EXPECT_TRUE(zero.Update(Parse(R"(<Property><Parameter value="2.0"/><Value value="3.0"/></Property>)"), false));
  EXPECT_EQ(zero.GetSize(), 1u);
  EXPECT_EQ(Attr(*zero.Get(0ul), u"value"), "3.0");
}

// ---- Presets

TEST(ParamSetXml, PresetHoldsOneValuePerParameter) {
  const CParamSet set = Glow();
  CXMLObject preset;
  ASSERT_TRUE(set.CreatePreset(preset));
  EXPECT_TRUE(preset.IsName(u"Preset"));
  ASSERT_EQ(preset.GetNElements(P(u"Value")), 5u);
  const CXMLObject* first = preset.item(0);
  EXPECT_EQ(Attr(*first, u"id"), "1");
  EXPECT_EQ(first->GetNElements(P(u"Keyframe")), 3u);

  // A preset applied to a changed set brings the values and keyframes back.
  CParamSet changed = Glow();
  changed.Get(3ul)->SetValueLong(2);
  changed.Get(1ul)->Remove(0u);
  ASSERT_TRUE(changed.Update(preset, false));
  EXPECT_EQ(Attr(*changed.Get(3ul), u"value"), "1");
  ASSERT_EQ(changed.Get(1ul)->GetSize(), 3u);
  EXPECT_EQ(Attr(*changed.Get(1ul)->Get(0u), u"value"), "4.000000000000");

  CXMLObject untouched = Parse(R"(<Mine a="1"/>)");
  EXPECT_TRUE(set.CreatePreset(untouched, changed));
  EXPECT_EQ(Text(untouched), R"(<Mine a="1"/>)");
}

// ---- Dumps

TEST(ParamSetXml, EachOperationDumpsTheSetAtItsOwnLevel) {
  CParamSet set;
  CXMLObject out;
  EXPECT_EQ(DumpLevels([&] { set.Load(Parse(kGlow)); }), std::vector<int>{5});
  EXPECT_EQ(DumpLevels([&] { set.Update(Parse(kGlow), false); }), std::vector<int>{6});
  EXPECT_EQ(DumpLevels([&] { set.Update(set, false); }), std::vector<int>{6});
  EXPECT_EQ(DumpLevels([&] { set.Store(out); }), std::vector<int>{7});
  EXPECT_EQ(DumpLevels([&] { set.CreatePreset(out); }), std::vector<int>{8});
  EXPECT_EQ(DumpLevels([&] { set.CreatePreset(out, set); }), std::vector<int>{});
  EXPECT_EQ(DumpLevels([&] { EXPECT_TRUE(set.Update(CParam(PARAM_DOUBLE, u"x", 4), true)); }),
            std::vector<int>{});  // does nothing at all
  EXPECT_TRUE(set.Get(4ul)->GetName() == P(u"enabled"));
}

TEST(ParamSetXml, DumpPrintsTheSetItsParametersAndTheirKeyframesWhole) {
  const CParamSet set(Parse(R"(<Property name="Glow"><Parameter id="1" useKeyframe="True">)"
                            R"(<Keyframe position="0" value="4"/><Keyframe position="1" value="2"/></Parameter>)"
                            R"(<Parameter id="2" type="Bool" value="True"/></Property>)"));
  const std::string footer = "***************************************************\n";
  const std::string expected =
      "Display ParamSet **********************************\n<Property name=\"Glow\"/>\nParameter: \n"
      "  Param: <Parameter id=\"1\" useKeyframe=\"True\"/>\n"
      "    KeyFrame: <Keyframe position=\"0\" value=\"4\"/>\n"
      "    KeyFrame: <Keyframe position=\"1\" value=\"2\"/>\n"
      "  Param: <Parameter id=\"2\" type=\"Bool\" value=\"True\"/>\n" + footer;
  {
    qdtest::TraceCapture trace(398, 3);
    set.Display(398, 3);
    EXPECT_EQ(trace.text(), expected);
    EXPECT_EQ(trace.lines().size(), 8u);
    EXPECT_TRUE(trace.lines()[7].category == 398 && trace.lines()[7].level == 3);
    set.Display(398, 4);  // not active: nothing
    set.Display(397, 3);
    CParamSet().Display(398, 3);
    ASSERT_EQ(trace.lines().size(), 8u + 4u);
    EXPECT_EQ(trace.lines().back().text, footer);
  }
  // Dumps from several threads do not interleave.
  qdtest::TraceCapture trace(398, 3);
  auto dump = [&] {
    for (int i = 0; i < 50; ++i) set.Display(398, 3);
  };
  std::thread other(dump);
  dump();
  other.join();
  std::string hundred;
  for (int i = 0; i < 100; ++i) hundred += expected;
  EXPECT_TRUE(trace.text() == hundred);
}

// Updates look parameters up through an index kept current as they write:
// the answers must be those of looking each one up afresh, also on sets too
// long for the per-frame index, with ids repeated, added and rewritten.
TEST(ParamSetXml, LongUpdatesFindWhatAFreshLookupWouldFind) {
  constexpr int kCount = 600;
  std::string text = R"(<Property name="long">)";
  for (int id = 0; id < kCount; ++id) {
    const std::string digits = std::to_string(id);
    text.append("<Parameter id=\"").append(digits).append("\" name=\"p").append(digits);
    text.append("\" value=\"0\"/>");
  }
  text += R"(<Parameter id="7" name="second7" value="0"/></Property>)";
  CParamSet set;
  ASSERT_TRUE(set.Load(Parse(text)));
  const std::string update =
      R"(<Preset>)"
      R"(<Value id="7" value="7"/>)"                      // the first of two with id 7
      R"(<Parameter id="08" name="renamed" value="8"/>)"  // with the flag: its id text becomes 08
      R"(<Value id="8" value="88"/>)"                     // so no parameter reads 8 any more
      R"(<Parameter id="900" name="new" value="9"/>)"     // added
      R"(<Value id="900" value="90"/>)"                   // and found right after
      R"(<Value id="599" value="599"/>)"
      R"(</Preset>)";
  ASSERT_TRUE(set.Update(Parse(update), true));
  const struct {
    const char16_t* name;
    const char* value;
  } rows[] = {{u"p7", "7"}, {u"second7", "0"}, {u"renamed", "8"}, {u"new", "90"}, {u"p599", "599"}};
  for (const auto& row : rows) {
    const CParam* param = set.Get(P(row.name));
    ASSERT_NE(param, nullptr) << ToUtf8(row.name);
    EXPECT_EQ(ToUtf8(param->FindAttribute(P(u"value")).view()), row.value) << ToUtf8(row.name);
  }
  EXPECT_EQ(set.GetSize(), static_cast<unsigned int>(kCount + 2));
}
