// Validation: comparisons, conditions, actions and the validator.
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "qdparam/paramset.h"
#include "qdparam/validator.h"
#include "support/capture.h"
#include "support/xml.h"

using namespace qdcore;
using qdtest::P, qdtest::Parse;

namespace {

// A set with a Long "count" (id 1, value 5), a Double "gain" (id 2, value
// 0.5), a Bool "on" (id 3, false) and a keyframed Long "steps" (id 4, 9).
const char* const kSet =
    R"(<Property><Parameter id="1" name="count" type="Long" value="5"/>)"
    R"(<Parameter id="2" name="gain" type="Double" value="0.500000000000"/>)"
    R"(<Parameter id="3" name="on" type="Bool" value="False"/>)"
    R"(<Parameter id="4" name="steps" type="Long" value="9" useKeyframe="True"/></Property>)";

// A condition on parameter `id` around `inner`, its actions and conditions.
std::string If(const char* id, const char* relation, const char* value, const std::string& inner) {
  return std::string("<Condition id=\"") + id + "\" relation=\"" + relation + "\" value=\"" + value +
         "\">" + inner + "</Condition>";
}
const std::string kCountMax4 = R"(<Action id="1" max="4"/>)";
const std::string kGainMax = R"(<Action id="2" max="0.25"/>)";

struct Outcome { bool result; bool changed; CParamSet set; };

Outcome Validated(const std::string& rules) {
  Outcome outcome{false, false, CParamSet(Parse(kSet))};
  CValidator validator(Parse("<Validation>" + rules + "</Validation>"));
  outcome.result = validator.Validate(&outcome.set, outcome.changed);
  return outcome;
}

std::string Attr(const CParamSet& set, unsigned long id, const wchar* name) {
  const CParam* param = set.Get(id);
  return param ? qdtest::Attr(*param, name) : "<none>";
}

}  // namespace

TEST(Compare, RelationsAndNaN) {
  const double nan = std::nan("");
  struct Case { const wchar* relation; bool less, equal, withNaN; } cases[] = {
      {u"Equal", false, true, false},   {u"NotEqual", true, false, true},
      {u"Smaller", true, false, false}, {u"SmallerEqual", true, true, false},
      {u"Greater", false, false, false}, {u"GreaterEqual", false, true, false}};
  for (const Case& c : cases) {
    const CZPoolString relation(c.relation);
    EXPECT_EQ(compValues<double>(1.0, 2.0, relation), c.less) << ToUtf8(c.relation);
    EXPECT_EQ(compValues<long>(2, 2, relation), c.equal) << ToUtf8(c.relation);
    EXPECT_EQ(compValues<double>(nan, 2.0, relation), c.withNaN) << ToUtf8(c.relation);
  }
  qdtest::AssertCapture asserts;
  EXPECT_FALSE(compValues<long>(1, 1, CZPoolString(u"equal")));  // names are case-sensitive
  EXPECT_EQ(asserts.reports(), (qdtest::Reports{{"Condition - unknown relation specified", "Illegal code point reached",
                                                 "bool __cdecl compValues<long>(const long &,const long &,"
                                                 "const class qdcore::CZPoolString &)"}}));
}

TEST(Validation, ConditionsDecideWhetherTheirActionsRun) {
  struct Case { const char* what; std::string rules; bool result, changed; std::string countMax; } cases[] = {
      {"holding test narrows", If("1", "Greater", "3", kCountMax4), true, true, "4"},
      {"failing test runs nothing", If("1", "Smaller", "3", kCountMax4), true, false, ""},
      {"missing parameter is satisfied", If("9", "Equal", "1", kCountMax4), true, false, ""},
      {"True runs no children", If("1", "True", "1", kCountMax4), true, false, ""},
      {"empty constant is satisfied", If("1", "Equal", "", "<Action/>"), true, false, ""},
      {"bool compares with false", If("3", "Equal", "True", kCountMax4), true, true, "4"},
      {"action without id fails", If("1", "Equal", "5", R"(<Action max="4"/>)"), false, false, ""},
      {"action on a bool fails", If("1", "Equal", "5", R"(<Action id="3" max="4"/>)"), false, false, ""},
      {"nested conditions", If("1", "Equal", "5", If("2", "Smaller", "0.6", kCountMax4)), true, true, "4"},
      {"a failed child stops the rest", If("1", "Equal", "5", R"(<Action id="8"/>)" + kCountMax4), false, false, ""},
      // The second rule sees the first one's change; the third never runs.
      {"a failed rule stops later ones, keeping earlier changes",
       If("1", "Equal", "5", kCountMax4) + If("1", "Equal", "4", R"(<Action id="7"/>)") +
           If("1", "Equal", "4", R"(<Action id="1" max="3"/>)"),
       false, true, "4"},
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
  Outcome narrowed = Validated(If("1", "Greater", "3", kCountMax4 + R"(<Action id="2" min="0.75"/>)"));
  EXPECT_TRUE(narrowed.result);
  EXPECT_EQ(Attr(narrowed.set, 1, u"value"), "4");
  EXPECT_EQ(Attr(narrowed.set, 2, u"min"), "0.75");
  EXPECT_EQ(Attr(narrowed.set, 2, u"value"), "0.750000000000");
  Outcome keyframed = Validated(If("1", "Equal", "5", R"(<Action id="4" max="4"/>)"));
  EXPECT_EQ(Attr(keyframed.set, 4, u"max"), "4");
  EXPECT_EQ(Attr(keyframed.set, 4, u"value"), "9");
  // Allowed values fall back to the leading entry.
  Outcome listed = Validated(If("1", "Equal", "5", R"(<Action id="1" allowedValues="1;2;4"/>)"));
  EXPECT_TRUE(listed.changed);
  EXPECT_EQ(Attr(listed.set, 1, u"allowedValues"), "1;2;4");
  EXPECT_EQ(Attr(listed.set, 1, u"value"), "1");
  Outcome allowed = Validated(If("1", "Equal", "5", R"(<Action id="1" allowedValues="5;6"/>)"));
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
  CValidator rules(Parse("<Property><Validation>" + If("1", "Equal", "5", kCountMax4) + "</Validation></Property>"));
  rules.Load(Parse("<Validation>" + If("2", "Equal", "0.5", kGainMax) + "</Validation>"));
  const CValidator copy(rules);
  rules = CValidator();
  EXPECT_TRUE(copy.Validate(&set, changed));
  EXPECT_TRUE(changed);
  EXPECT_EQ(Attr(set, 1, u"value"), "4");
  EXPECT_EQ(Attr(set, 2, u"value"), "0.250000000000");
  EXPECT_TRUE(copy.Validate(&set, changed));  // the same rules again find nothing to change
  EXPECT_FALSE(changed);
}

TEST(Validator, DeeplyNestedRulesAreSafe) {
  std::string rules;
  for (int i = 0; i < 20000; ++i) rules += R"(<Condition id="1" relation="Equal" value="5">)";
  rules += kCountMax4;
  for (int i = 0; i < 20000; ++i) rules += "</Condition>";
  Outcome outcome = Validated(rules);
  EXPECT_TRUE(outcome.result);  // the conditions past the depth limit are ignored
  EXPECT_EQ(Attr(outcome.set, 1, u"max"), "");
}
