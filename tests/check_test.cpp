// Diagnostics of parameter documents: each kind of finding on a small
// document, with its severity and line; well-formed sets give none.
#include "qdparam/check.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "qdcore/xml.h"

using namespace qdcore;

namespace {

struct Expected {
  CheckSeverity severity;
  unsigned int line;
  const char* words;  // a part of the message
};

// The parameters of `body` inside a set, one line down (line 2 onwards).
std::vector<CheckFinding> CheckSet(const std::string& body) {
  return CheckParamDocument("<Property name=\"t\">\n" + body + "\n</Property>");
}

std::string Describe(const std::vector<CheckFinding>& findings) {
  std::string text;
  for (const CheckFinding& f : findings) {
    text += std::to_string(f.line) + ":" + std::to_string(f.column) +
            (f.severity == CheckSeverity::kError ? " error " : " warning ") + f.message + "\n";
  }
  return text;
}

constexpr auto kError = CheckSeverity::kError;
constexpr auto kWarning = CheckSeverity::kWarning;

}  // namespace

TEST(Check, EachKindOfNonsenseIsReportedWithItsLine) {
  const struct {
    const char* body;
    Expected expected;
  } rows[] = {
      {R"(<Parameter id="1" name="a" value="nan" min="0" max="1"/>)", {kError, 2, "not a finite"}},
      {R"(<Parameter id="1" name="a" granularity="inf"/>)", {kError, 2, "not a finite"}},
      {R"(<Parameter id="1" name="a" value="2.5abc"/>)", {kWarning, 2, "ignored"}},
      {R"(<Parameter id="1" name="a" value="abc"/>)", {kError, 2, "not a number"}},
      {R"(<Parameter id="1" name="a" value="1e400"/>)", {kError, 2, "out of range"}},
      {R"(<Parameter id="1" name="a" type="Long" value="2147483648"/>)", {kError, 2, "32-bit"}},
      {R"(<Parameter id="1" name="a" type="Long" value="3.5"/>)", {kWarning, 2, "ignored"}},
      {R"(<Parameter id="1" name="a" type="Lnog"/>)", {kError, 2, "unknown type"}},
      {R"(<Parameter id="1" name="a" min="5" max="1"/>)", {kWarning, 2, "min is above max"}},
      {R"(<Parameter id="1" name="a" granularity="0"/>)", {kWarning, 2, "not above 0"}},
      {R"(<Parameter id="1" name="a" granularity="1e-310"/>)", {kWarning, 2, "too small"}},
      {R"(<Parameter id="1" name="a" useKeyframe="yes"/>)", {kWarning, 2, "True or False"}},
      {R"(<Parameter id="1" name="a" extrapolateAfter="Loop"/>)",
       {kWarning, 2, "extrapolateAfter: unknown name \"Loop\""}},
      {R"(<Parameter id="-4" name="a"/>)", {kError, 2, "negative id"}},
      {"<Parameter id=\"1\" name=\"a\">\n<Keyframe position=\"0.5\" value=\"nan\"/></Parameter>",
       {kError, 3, "not a finite"}},
      {"<Parameter id=\"1\" name=\"a\">\n<Keyframe position=\"0\" interpolation=\"Cubic\"/>"
       "</Parameter>",
       {kWarning, 3, "unknown name \"Cubic\""}},
      {"<Parameter id=\"1\" name=\"a\">\n<Keyframe position=\"0\" "
       "timeTranslation=\"EaseIn;Wobble\"/>"
       "</Parameter>",
       {kWarning, 3, "unknown name \"Wobble\""}},
      {"<Parameter id=\"1\" name=\"a\">\n<Keyframe position=\"0.5\"/>\n<Keyframe position=\"0.2\"/>"
       "</Parameter>",
       {kWarning, 4, "comes before"}},
      {"<Parameter id=\"1\" name=\"a\">\n<Keyframe position=\"1.5\"/></Parameter>",
       {kWarning, 3, "beyond the clip"}},
      {"<Parameter id=\"1\" name=\"a\">\n<Keyframe position=\"0.5 min\"/></Parameter>",
       {kWarning, 3, "unknown unit"}},
      {"<Parameter id=\"1\" name=\"a\"><Keyframe position=\"0\" interpolation=\"Bezier\">\n"
       "<Anchor position=\"0.9\" value=\"0\"/><Anchor position=\"-0.1\" value=\"0\"/></Keyframe>"
       "<Keyframe position=\"0.5\"/></Parameter>",
       {kWarning, 3, "outside its segment"}},
      {"<Parameter id=\"1\" name=\"a\" type=\"Binary\">\n<Binary>not base64!</Binary></Parameter>",
       {kError, 3, "not base64"}},
      {"<Parameter id=\"1\" name=\"a\"/>\n<Parameter id=\"1\" name=\"b\"/>",
       {kError, 3, "same id"}},
      {"<Parameter id=\"1\" name=\"a\"/>\n<Parameter id=\"2\" name=\"a\"/>",
       {kWarning, 3, "same name"}},
      {"<Parameter id=\"1\" name=\"a\"/>\n<Validation><Condition id=\"1\" relation=\"Equal\" "
       "value=\"0\">\n<Action id=\"9\" max=\"1\"/></Condition></Validation>",
       {kWarning, 4, "names no parameter"}},
      {"<Parameter id=\"1\" name=\"a\">\n<value>&amp;ok; &#38; &lt; &nbsp;</value></Parameter>",
       {kWarning, 3, "&nbsp; is no declared entity"}},
      {"<Parameter id=\"1\" name=\"a\"/>\n<Validation><Condition id=\"1\" relation=\"Like\"/>"
       "</Validation>",
       {kWarning, 3, "unknown name \"Like\""}},
  };
  for (const auto& row : rows) {
    const std::vector<CheckFinding> findings = CheckSet(row.body);
    ASSERT_EQ(findings.size(), 1u) << row.body << "\n" << Describe(findings);
    EXPECT_EQ(findings[0].severity, row.expected.severity) << row.body;
    EXPECT_EQ(findings[0].line, row.expected.line) << row.body;
    EXPECT_NE(findings[0].message.find(row.expected.words), std::string::npos)
        << row.body << "\n"
        << findings[0].message;
    EXPECT_EQ(HasCheckErrors(findings), row.expected.severity == kError);
  }
}

TEST(Check, WellFormedSetsGiveNoFindings) {
  const std::vector<CheckFinding> findings = CheckSet(
      "<Parameter id=\"1\" name=\"a\" value=\"8.000000000000\" min=\"0\" max=\"64\" "
      "granularity=\"0.5\" useKeyframe=\"True\" interpolation=\"Hold;Linear;None\">"
      "<Keyframe position=\"0.000000000000\" value=\"4\" interpolation=\"Bezier\">"
      "<Anchor position=\"0.1\" value=\"3\"/><Anchor position=\"-0.1\" value=\"1\"/></Keyframe>"
      "<Keyframe position=\"2.5s\" value=\"4\" timeTranslation=\"EaseIn;EaseOut\"/>"
      "<Keyframe position=\"-1s\" value=\"5\" interpolation=\"Spline\"/>"
      "<Keyframe position=\"100%\" value=\"2\"/></Parameter>\n"
      "<Parameter id=\"2\" name=\"b\" type=\"Long\" value=\"-2147483648\" min=\"-5\" max=\"5\"/>"
      "<Parameter id=\"3\" name=\"c\" type=\"Bool\" value=\"true\" active=\"False\"/>"
      "<Parameter id=\"4\" name=\"d\" type=\"Binary\"><Binary>AAEC\nAw==</Binary></Parameter>"
      "<Validation><Condition id=\"2\" relation=\"Greater\" value=\"1\">"
      "<Action id=\"1\" max=\"10\"/></Condition></Validation>");
  EXPECT_TRUE(findings.empty()) << Describe(findings);
}

TEST(Check, UnreadableDocumentsGiveOneErrorWithTheParsersPlace) {
  const std::vector<CheckFinding> findings =
      CheckParamDocument("<Property>\n  <Parameter id=\"1\">\n</Property>");
  ASSERT_EQ(findings.size(), 1u);
  EXPECT_EQ(findings[0].severity, kError);
  EXPECT_EQ(findings[0].line, 3u);
  EXPECT_TRUE(HasCheckErrors(CheckParamFile(u"/nonexistent/file.xml")));
}

// Conditions nest deeply in hostile files: no recursion, every one seen.
TEST(Check, DeeplyNestedRulesAreWalkedWithoutRecursion) {
  std::string rules;
  for (int i = 0; i < 20000; ++i) rules += "<Condition id=\"1\" relation=\"Equal\" value=\"5\">";
  rules += "<Action id=\"7\"/>";
  for (int i = 0; i < 20000; ++i) rules += "</Condition>";
  const std::vector<CheckFinding> findings =
      CheckSet("<Parameter id=\"1\" name=\"a\"/><Validation>" + rules + "</Validation>");
  ASSERT_EQ(findings.size(), 1u) << Describe(findings);
  EXPECT_NE(findings[0].message.find("<Action id=\"7\">"), std::string::npos);
}

// A count that promises more numbers than the payload holds; the same
// payload with them all is clean.
TEST(Check, PayloadsWhoseCountsDoNotFitAreErrors) {
  std::vector<unsigned char> graph(4 * 12, 0);
  graph[0] = 2;   // kind 2: a counted tail
  graph[44] = 3;  // of three numbers
  for (const bool whole : {false, true}) {
    if (whole) graph.resize(graph.size() + 12, 0);
    CXMLObject binary(CZPoolString(u"Binary"));
    binary.Set(graph.data(), graph.size());
    const std::string base64 = ToUtf8(binary.GetData().view());
    const std::vector<CheckFinding> findings = CheckSet(
        "<Parameter id=\"1\" name=\"g\" type=\"Binary\" binaryInterpolationType=\"SplitGraph\">"
        "<Keyframe position=\"0\">\n<Binary>" +
        base64 + "</Binary></Keyframe></Parameter>");
    if (whole) {
      EXPECT_TRUE(findings.empty()) << Describe(findings);
      continue;
    }
    ASSERT_EQ(findings.size(), 1u) << Describe(findings);
    EXPECT_EQ(findings[0].severity, kError);
    EXPECT_EQ(findings[0].line, 3u);
    EXPECT_NE(findings[0].message.find("counts do not fit"), std::string::npos);
  }
}
