// Parameters and XML: the stored form, updates from parameters, values and
// presets, and preset creation.
#include <gtest/gtest.h>

#include <string>

#include "qdparam/keyframe.h"
#include "qdparam/param.h"
#include "support/capture.h"
#include "support/xml.h"

using namespace qdcore;
using namespace qdtest;

namespace {

const char* const kStored =
    R"(<Parameter id="3" type="Double" value="0.500000000000" useKeyframe="True">)"
    R"(<Binary>AAEC</Binary><Propertys><Deep><Deeper a="1"/></Deep></Propertys>)"
    R"(<Keyframe position="0.000000000000" value="1.000000000000" interpolation="Linear"/>)"
    R"(<Keyframe position="0.500000000000" value="2.000000000000" interpolation="Bezier">)"
    R"(<Anchor position="0.100000000000" value="0.200000000000"/></Keyframe>)"
    R"(<Keyframe position="2.000000000000s" value="3.000000000000"/></Parameter>)";

}  // namespace

TEST(ParamXml, StoreWritesKeyframesAfterTheOtherChildrenAndLoadsBackEqual) {
  CParam param(Parse(kStored));
  ASSERT_EQ(param.GetSize(), 3u);
  EXPECT_EQ(param.GetNElements(P(u"Keyframe")), 0u);  // keyframes live in the list
  CXMLObject stored;
  ASSERT_TRUE(param.Store(stored));
  EXPECT_EQ(Text(stored), kStored);
  CParam again(stored);
  CXMLObject storedAgain;
  EXPECT_TRUE(again.Store(storedAgain) && storedAgain.IsEqual(stored));
  EXPECT_EQ(Text(param), Text(again));  // the store left the parameter alone
}

TEST(ParamXml, UpdateFindsItsSourceByKindAndId) {
  CParam param(Parse(R"(<Parameter id="3" value="1.000000000000" min="0.000000000000"/>)"));
  EXPECT_FALSE(param.Update(Parse(R"(<Preset><Parameter id="4" value="2"/></Preset>)"), false));
  EXPECT_FALSE(param.Update(Parse(R"(<Other id="3" value="2"/>)"), false));
  EXPECT_EQ(Attr(param, u"value"), "1.000000000000");
  EXPECT_TRUE(param.Update(
      Parse(R"(<Preset><Parameter id="4" value="2"/><Parameter id="3" value="5" max="9"/></Preset>)"), false));
  EXPECT_EQ(Attr(param, u"value"), "5");
  EXPECT_EQ(Attr(param, u"max"), "9");
  EXPECT_EQ(Attr(param, u"min"), "0.000000000000");  // absent in the source: kept
}

TEST(ParamXml, UpdateReplacesKeyframesPropertysAndBinaryOnlyWhenAsked) {
  const char* source = R"(<Parameter id="3" value="0.7"/>)";
  CParam kept(Parse(kStored));
  EXPECT_TRUE(kept.Update(Parse(source), false));
  EXPECT_EQ(kept.GetSize(), 3u);
  EXPECT_EQ(kept.GetNElements(P(u"Propertys")), 1u);
  EXPECT_EQ(kept.GetNElements(P(u"Binary")), 1u);
  EXPECT_FALSE(kept.HasAttribute(P(u"useKeyframe")));  // not in the source: removed

  CParam replaced(Parse(kStored));
  EXPECT_TRUE(replaced.Update(Parse(source), true));
  EXPECT_EQ(replaced.GetSize(), 0u);
  EXPECT_EQ(replaced.GetNElements(P(u"Propertys")), 0u);
  EXPECT_EQ(replaced.GetNElements(P(u"Binary")), 0u);

  CParam fromKeys(Parse(kStored));
  EXPECT_TRUE(fromKeys.Update(Parse(R"(<Parameter id="3"><Keyframe position="0.25" value="4"/></Parameter>)"), false));
  EXPECT_EQ(fromKeys.GetSize(), 1u);  // a source with keyframes replaces them
  EXPECT_EQ(Attr(fromKeys, u"value"), "0.500000000000");
}

TEST(ParamXml, UpdateFromAValueSetsKeyframeUseByItsFirstChild) {
  CParam param(Parse(R"(<Parameter id="3" value="1" useKeyframe="False"/>)"));
  EXPECT_TRUE(param.Update(Parse(R"(<Value id="3" value="2"><Keyframe position="0" value="2"/></Value>)"), false));
  EXPECT_EQ(Attr(param, u"useKeyframe"), "True");
  EXPECT_EQ(param.GetSize(), 1u);
  EXPECT_TRUE(param.Update(Parse(R"(<Value id="3" value="3"/>)"), false));
  EXPECT_FALSE(param.HasAttribute(P(u"useKeyframe")));
}

TEST(ParamXml, UpdateTakesAValueChildOrKeepsTheValue) {
  CParam param(Parse(R"(<Parameter id="3" type="String" value="plain"/>)"));
  EXPECT_TRUE(param.Update(Parse(R"(<Value id="3"><value><![CDATA[a<b]]></value></Value>)"), false));
  EXPECT_FALSE(param.HasAttribute(P(u"value")));
  EXPECT_TRUE(param.FindElementData(P(u"value")) == u"a<b");

  // A source without a value leaves the value alone.
  CParam numbers(Parse(R"(<Parameter id="3" type="Long" value="1"/>)"));
  EXPECT_TRUE(numbers.Update(Parse(R"(<Parameter id="3"><Keyframe position="0" value="2"/></Parameter>)"), false));
  EXPECT_EQ(Attr(numbers, u"value"), "1");
  EXPECT_EQ(numbers.GetSize(), 1u);
}

TEST(ParamXml, PresetsCompleteAndAgainstAReference) {
  CParam param(Parse(kStored));
  CXMLObject complete;
  ASSERT_TRUE(param.CreatePreset(complete));
  EXPECT_EQ(Text(complete).substr(0, 40), R"(<Value id="3" value="0.500000000000"><Ke)");
  EXPECT_EQ(complete.GetNElements(P(u"Keyframe")), 3u);

  CXMLObject out(P(u"Leftover"));
  ASSERT_TRUE(param.CreatePreset(out, CParam(Parse(kStored))));
  EXPECT_FALSE(out);  // identical: nothing

  CParam otherValue(Parse(kStored));
  otherValue.SetValueDouble(0.25);
  param.CreatePreset(out, otherValue);
  EXPECT_EQ(Text(out), R"(<Value id="3" value="0.500000000000"/>)");

  CParam otherKeys(Parse(kStored));
  otherKeys.Get(1)->SetAnchors(nullptr, 0);  // the Bezier handles differ
  param.CreatePreset(out, otherKeys);
  EXPECT_FALSE(out.HasAttribute(P(u"id")));  // keyframes only: no id
  EXPECT_EQ(out.GetNElements(P(u"Keyframe")), 3u);

  CParam bare(Parse(R"(<Parameter id="3" value="0.500000000000"/>)"));
  bare.CreatePreset(out, param);  // without keyframes nothing differs in them
  EXPECT_FALSE(out);
}
