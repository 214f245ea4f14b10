// Validation: comparisons, conditions, actions and the validator.
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "qdparam/paramset.h"
#include "qdparam/validator.h"
#include "support/capture.h"

using namespace qdcore;

namespace {

CZPoolString P(const wchar* text) { return CStringPool::GetStringRef(text); }

CXMLObject Parse(const std::string& text) {
  CXMLDoc doc;
  EXPECT_EQ(doc.OpenDocMemory(std::string_view(text)), 0) << text;
  return doc.GetContentElement();
}

// A set with a Long "count" (id 1, value 5), a Double "gain" (id 2, value
// 0.5), a Bool "on" (id 3, false) and a keyframed Long "steps" (id 4, 9).
const char* const kSet =
    R"(<Property>)"
    R"(<Parameter id="1" name="count" type="Long" value="5"/>)"
    R"(<Parameter id="2" name="gain" type="Double" value="0.500000000000"/>)"
    R"(<Parameter id="3" name="on" type="Bool" value="False"/>)"
    R"(<Parameter id="4" name="steps" type="Long" value="9" useKeyframe="True"/>)"
    R"(</Property>)";

struct Outcome {
  bool result;
  bool changed;
  CParamSet set;
};

Outcome Validated(const std::string& rules, const char* setText = kSet) {
  Outcome outcome{false, false, CParamSet(Parse(setText))};
  CValidator validator(Parse("<Validation>" + rules + "</Validation>"));
  outcome.result = validator.Validate(&outcome.set, outcome.changed);
  return outcome;
}

std::string Attr(const CParamSet& set, unsigned long id, const wchar* name) {
  const CParam* param = set.Get(id);
  return param ? ToUtf8(param->FindAttribute(P(name)).view()) : "<none>";
}

}  // namespace

TEST(Compare, RelationsAndNaN) {
  const double nan = std::nan("");
  struct Case {
    const wchar* relation;
    bool less, equal, withNaN;
  } cases[] = {
      {u"Equal", false, true, false},       {u"NotEqual", true, false, true},
      {u"Smaller", true, false, false},     {u"SmallerEqual", true, true, false},
      {u"Greater", false, false, false},    {u"GreaterEqual", false, true, false},
  };
  for (const Case& c : cases) {
    const CZPoolString relation(c.relation);
    EXPECT_EQ(compValues<double>(1.0, 2.0, relation), c.less) << ToUtf8(c.relation);
    EXPECT_EQ(compValues<long>(2, 2, relation), c.equal) << ToUtf8(c.relation);
    EXPECT_EQ(compValues<double>(nan, 2.0, relation), c.withNaN) << ToUtf8(c.relation);
  }
  qdtest::AssertCapture asserts;
  EXPECT_FALSE(compValues<long>(1, 1, CZPoolString(u"equal")));  // names are case-sensitive
  ASSERT_EQ(asserts.reports().size(), 1u);
  EXPECT_EQ(asserts.reports()[0].expression, "Condition - unknown relation specified");
  EXPECT_EQ(asserts.reports()[0].message, "Illegal code point reached");
  EXPECT_EQ(asserts.reports()[0].signature,
            "bool __cdecl compValues<long>(const long &,const long &,const class qdcore::CZPoolString &)");
}

TEST(Validation, ConditionsDecideWhetherTheirActionsRun) {
  struct Case {
    const char* what;
    std::string rules;
    bool result, changed;
    std::string countMax;
  } cases[] = {
      {"holding test narrows", R"(<Condition id="1" relation="Greater" value="3"><Action id="1" max="4"/></Condition>)",
       true, true, "4"},
      {"failing test runs nothing", R"(<Condition id="1" relation="Smaller" value="3"><Action id="1" max="4"/></Condition>)",
       true, false, ""},
      {"missing parameter is satisfied", R"(<Condition id="9" relation="Equal" value="1"><Action id="1" max="4"/></Condition>)",
       true, false, ""},
      {"True runs no children", R"(<Condition id="1" relation="True" value="1"><Action id="1" max="4"/></Condition>)",
       true, false, ""},
      {"empty constant is satisfied", R"(<Condition id="1" relation="Equal" value=""><Action/></Condition>)",
       true, false, ""},
      {"bool compares with false", R"(<Condition id="3" relation="Equal" value="True"><Action id="1" max="4"/></Condition>)",
       true, true, "4"},
      {"action without id fails", R"(<Condition id="1" relation="Equal" value="5"><Action max="4"/></Condition>)",
       false, false, ""},
      {"action on a bool fails", R"(<Condition id="1" relation="Equal" value="5"><Action id="3" max="4"/></Condition>)",
       false, false, ""},
      {"nested conditions", R"(<Condition id="1" relation="Equal" value="5"><Condition id="2" relation="Smaller" value="0.6"><Action id="1" max="4"/></Condition></Condition>)",
       true, true, "4"},
      {"a failed child stops the rest", R"(<Condition id="1" relation="Equal" value="5"><Action id="8"/><Action id="1" max="4"/></Condition>)",
       false, false, ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    Outcome outcome = Validated(c.rules);
    EXPECT_EQ(outcome.result, c.result);
    EXPECT_EQ(outcome.changed, c.changed);
    EXPECT_EQ(Attr(outcome.set, 1, u"max"), c.countMax);
  }
}

TEST(Validation, ActionsClampStaticValuesOnly) {
  Outcome narrowed = Validated(R"(<Condition id="1" relation="Greater" value="3"><Action id="1" max="4"/><Action id="2" min="0.75"/></Condition>)");
  EXPECT_TRUE(narrowed.result);
  EXPECT_EQ(Attr(narrowed.set, 1, u"value"), "4");
  EXPECT_EQ(Attr(narrowed.set, 2, u"min"), "0.75");
  EXPECT_EQ(Attr(narrowed.set, 2, u"value"), "0.750000000000");

  Outcome keyframed = Validated(R"(<Condition id="1" relation="Equal" value="5"><Action id="4" max="4"/></Condition>)");
  EXPECT_EQ(Attr(keyframed.set, 4, u"max"), "4");
  EXPECT_EQ(Attr(keyframed.set, 4, u"value"), "9");

  // Running the same rule again finds nothing to change.
  CValidator validator(Parse(R"(<Validation><Condition id="2" relation="Greater" value="0"><Action id="2" max="0.25"/></Condition></Validation>)"));
  CParamSet set(Parse(kSet));
  bool changed = false;
  EXPECT_TRUE(validator.Validate(&set, changed));
  EXPECT_TRUE(changed);
  EXPECT_EQ(Attr(set, 2, u"value"), "0.250000000000");
  EXPECT_TRUE(validator.Validate(&set, changed));
  EXPECT_FALSE(changed);
}

TEST(Validation, AllowedValuesFallBackToTheLeadingEntry) {
  const std::string rule = R"(<Condition id="1" relation="Equal" value="5"><Action id="1" allowedValues="1;2;4"/></Condition>)";
  Outcome outcome = Validated(rule);
  EXPECT_TRUE(outcome.changed);
  EXPECT_EQ(Attr(outcome.set, 1, u"allowedValues"), "1;2;4");
  EXPECT_EQ(Attr(outcome.set, 1, u"value"), "1");
  Outcome allowed = Validated(R"(<Condition id="1" relation="Equal" value="5"><Action id="1" allowedValues="5;6"/></Condition>)");
  EXPECT_EQ(Attr(allowed.set, 1, u"value"), "5");
}

TEST(Validator, LoadingAndRunningRules) {
  CParamSet set(Parse(kSet));
  bool changed = true;
  CValidator empty;
  EXPECT_FALSE(empty.Validate(&set, changed));
  EXPECT_TRUE(changed);  // untouched
  EXPECT_FALSE(empty.Load(Parse("<Property><Other/></Property>")));
  EXPECT_FALSE(empty.Validate(&set, changed));

  CValidator none(Parse("<Validation><Other/></Validation>"));
  EXPECT_TRUE(none.Validate(&set, changed));
  EXPECT_FALSE(changed);
  EXPECT_FALSE(none.Validate(nullptr, changed));

  // Rules from a "Property", appended by a second load; a copy keeps them.
  CValidator rules(Parse(R"(<Property><Validation><Condition id="1" relation="Equal" value="5"><Action id="1" max="4"/></Condition></Validation></Property>)"));
  rules.Load(Parse(R"(<Validation><Condition id="2" relation="Equal" value="0.5"><Action id="2" max="0.25"/></Condition></Validation>)"));
  const CValidator copy(rules);
  rules = CValidator();
  EXPECT_TRUE(copy.Validate(&set, changed));
  EXPECT_EQ(Attr(set, 1, u"value"), "4");
  EXPECT_EQ(Attr(set, 2, u"value"), "0.250000000000");
}

TEST(Validator, AFailedRuleStopsLaterOnesButKeepsEarlierChanges) {
  Outcome outcome = Validated(
      R"(<Condition id="1" relation="Equal" value="5"><Action id="1" max="4"/></Condition>)"
      R"(<Condition id="1" relation="Equal" value="4"><Action id="7"/></Condition>)"
      R"(<Condition id="2" relation="Equal" value="0.5"><Action id="2" max="0.25"/></Condition>)");
  EXPECT_FALSE(outcome.result);
  EXPECT_TRUE(outcome.changed);
  EXPECT_EQ(Attr(outcome.set, 1, u"value"), "4");
  EXPECT_EQ(Attr(outcome.set, 2, u"max"), "");
}

TEST(Validator, DeeplyNestedRulesAreSafe) {
  std::string rules;
  for (int i = 0; i < 20000; ++i) rules += R"(<Condition id="1" relation="Equal" value="5">)";
  rules += R"(<Action id="1" max="4"/>)";
  for (int i = 0; i < 20000; ++i) rules += "</Condition>";
  Outcome outcome = Validated(rules);
  EXPECT_TRUE(outcome.result);  // the conditions past the depth limit are ignored
  EXPECT_EQ(Attr(outcome.set, 1, u"max"), "");
}
