// The qdparam program, run as a subprocess on the bundled examples and on
// small files written by the tests: output shapes, exit statuses, messages,
// the files it writes and the charts it draws.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <initializer_list>
#include <sstream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "qdparam/qdparam.hpp"
#include "support/capture.h"
#include "support/xml.h"

namespace {

namespace fs = std::filesystem;
using qdtest::ReadFile, qdtest::WriteFile;
using ::testing::AllOf, ::testing::HasSubstr, ::testing::Not;

const std::string kTool = QD_TEST_TOOL;
const std::string kExamples = QD_EXAMPLES_DIR;
const std::string kPip = kExamples + "/pip.xml";
const std::string kGrade = kExamples + "/colorgrade.xml";

struct Result { int status; std::string out; std::string err; };

// Runs the program in `folder` with its output in files there: no pipes to
// fill up, and the exit status straight from waitpid. `device` replaces the
// standard output's file.
Result Run(const std::string& folder, const std::vector<std::string>& args,
           const char* device = nullptr) {
  const std::string outPath = device ? device : folder + "/.stdout";
  const std::string errPath = folder + "/.stderr";
  std::vector<char*> argv{const_cast<char*>(kTool.c_str())};
  for (const std::string& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
  argv.push_back(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    const int out =
        device ? open(device, O_WRONLY) : open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const int err = open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (out < 0 || err < 0 || chdir(folder.c_str()) != 0) _exit(126);
    dup2(out, STDOUT_FILENO);
    dup2(err, STDERR_FILENO);
    execv(kTool.c_str(), argv.data());
    _exit(127);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, device ? "" : ReadFile(outPath),
          ReadFile(errPath)};
}

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

std::size_t Count(const std::string& text, const std::string& needle) {
  std::size_t count = 0;
  for (std::size_t at = text.find(needle); at != std::string::npos; at = text.find(needle, at + 1)) ++count;
  return count;
}

std::vector<std::string> Cells(const std::string& line) {
  std::vector<std::string> cells;
  std::istringstream stream(line);
  for (std::string cell; stream >> cell;) cells.push_back(cell);
  return cells;
}

std::vector<std::string> Split(const std::string& line, char separator) {
  std::vector<std::string> parts;
  std::istringstream stream(line);
  for (std::string part; std::getline(stream, part, separator);) parts.push_back(part);
  return parts;
}

class Tool : public ::testing::Test {
 protected:
  void SetUp() override {
    if (kTool.empty()) GTEST_SKIP() << "built without the command-line program";
  }
  Result Run(const std::vector<std::string>& args, const char* device = nullptr) {
    return ::Run(m_folder.path(), args, device);
  }
  std::string Path(const std::string& name) const { return m_folder.path() + "/" + name; }
  // A parameter set file in the test's folder.
  std::string SetFile(const std::string& name, const std::string& parameters) {
    WriteFile(Path(name), "<Property name=\"test\">" + parameters + "</Property>");
    return Path(name);
  }

 private:
  qdtest::TempDir m_folder;
};

// ---- eval

TEST_F(Tool, EvalPrintsATableOfEveryParameterOverTheDefaultClip) {
  const Result result = Run({"eval"});
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.err, "");
  const auto lines = Lines(result.out);
  ASSERT_EQ(lines.size(), 2u + 11u);  // header, rule, 0 s to 10 s in ten steps
  EXPECT_EQ(lines[1].find_first_not_of("- "), std::string::npos);
  // Every row as wide as the rule, so that the columns line up.
  for (std::size_t i = 2; i < lines.size() - 1; ++i) EXPECT_LE(lines[i].size(), lines[1].size());
  EXPECT_EQ(Cells(lines[2])[0], "0");
  EXPECT_EQ(Cells(lines[12])[0], "10");
  EXPECT_THAT(lines[2], HasSubstr("Live from the studio"));
  EXPECT_THAT(lines[12], HasSubstr("Thanks for watching"));
}

// Each row: the time and the value, on the set's own time line (the fade-in
// starts with the clip, wherever the clip starts).
TEST_F(Tool, EvalSamplesTheRequestedTimes) {
  struct Case { std::initializer_list<std::string> args; std::vector<std::string> rows; } cases[] = {
      {{"--fps", "4", "--to", "1"}, {"0.00 0.000", "0.25 10.589", "0.50 50.000", "0.75 89.411", "1.00 100.000"}},
      {{"--step", "2.5"}, {"0.0 0", "2.5 100", "5.0 100", "7.5 100", "10.0 0"}},
      {{"--from", "3", "--to", "3"}, {"3 100"}},
      {{"--duration", "2", "--step", "1"}, {"0 0", "1 100", "2 0"}},
      {{"--start", "100", "--step", "5"}, {"100 0", "105 100", "110 0"}},
      {{"--step", "0.1", "--from", "0.2", "--to", "0.5"}, {"0.2 6.450", "0.3 16.003", "0.4 30.886", "0.5 50.000"}},
  };
  for (const Case& c : cases) {
    std::vector<std::string> args{"eval", "-p", "opacity"};
    args.insert(args.end(), c.args);
    const Result result = Run(args);
    ASSERT_EQ(result.status, 0) << result.err;
    const auto lines = Lines(result.out);
    std::vector<std::string> rows;
    // The time and the value: the last two columns (a frame column comes first).
    for (std::size_t i = 2; i < lines.size(); ++i) {
      const auto cells = Cells(lines[i]);
      rows.push_back(cells[cells.size() - 2] + " " + cells.back());
    }
    EXPECT_EQ(rows, c.rows) << ::testing::PrintToString(args);
  }
}

// Frames at a rational rate: each at its exact time, numbered from time 0.
TEST_F(Tool, EvalSlopePrintsUnitsPerSecond) {
  SetFile("ramp.xml", R"(<Parameter id="1" name="ramp" value="0" useKeyframe="True">)"
                      R"(<Keyframe position="0" value="0" interpolation="Linear"/>)"
                      R"(<Keyframe position="0.5" value="50"/></Parameter>)"
                      R"(<Parameter id="2" name="title" type="String" value="Hi"/>)");
  const Result result = Run({"eval", "ramp.xml", "--slope", "--step", "2.5", "--format", "csv"});
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(Lines(result.out), (std::vector<std::string>{"time,ramp,title", "0,10,-", "2.5,10,-",
                                                         "5,0,-", "7.5,0,-", "10,0,-"}));
}

TEST_F(Tool, EvalSamplesFramesAtExactTimes) {
  const Result result = Run({"eval", "-p", "opacity", "--fps", "30000/1001", "--frames",
                             "28..31", "--format", "csv"});
  ASSERT_EQ(result.status, 0) << result.err;
  const auto lines = Lines(result.out);
  ASSERT_EQ(lines.size(), 5u);
  EXPECT_EQ(lines[0], "frame,time,opacity");
  for (int frame = 28; frame <= 31; ++frame) {
    const auto cells = Split(lines[static_cast<std::size_t>(frame - 27)], ',');
    EXPECT_EQ(cells[0], std::to_string(frame));
    EXPECT_EQ(std::stod(cells[1]), frame * 1001.0 / 30000.0);
  }
  // The window's frames: 2 s of 25 fps from 1 s is frames 25 to 75.
  const Result window = Run({"eval", "--fps", "25", "--from", "1", "--to", "3", "--format", "csv"});
  ASSERT_EQ(window.status, 0) << window.err;
  const auto rows = Lines(window.out);
  EXPECT_EQ(rows.size(), 52u);
  EXPECT_EQ(rows[1].substr(0, 5), "25,1,");
  EXPECT_EQ(rows.back().substr(0, 5), "75,3,");
  for (const auto& [args, message] : std::vector<std::pair<std::vector<std::string>, std::string>>{
           {{"eval", "--frames", "1..2"}, "--frames counts frames of --fps"},
           {{"eval", "--fps", "25", "--frames", "5..2"}, "--frames takes a range"},
           {{"eval", "--fps", "25/x"}, "--fps must be a positive number"}}) {
    const Result refused = Run(args);
    EXPECT_EQ(refused.status, 1);
    EXPECT_THAT(refused.err, HasSubstr(message));
  }
}

// The example's "4s" keyframe of an 8 s effect: at 2 s of a 4 s clip.
TEST_F(Tool, EvalScalesAbsoluteKeyframesOntoAShortClip) {
  const Result result = Run({"eval", "-p", "position_x", "--duration", "4", "--step", "2"});
  ASSERT_EQ(result.status, 0) << result.err;
  const auto lines = Lines(result.out);
  ASSERT_EQ(lines.size(), 5u);
  EXPECT_EQ(Cells(lines[3]), (std::vector<std::string>{"2", "20"}));
}

TEST_F(Tool, EvalChoosesParametersByNameAndIdInTheSetsOrder) {
  struct Case { std::vector<std::string> args; std::vector<std::string> header; } cases[] = {
      {{}, {"time", "(s)", "position_x", "position_y", "size", "rotation", "opacity", "border_width", "shadow",
            "corner_radius", "caption"}},
      {{"--id", "6", "-p", "opacity", "--id", "5"}, {"time", "(s)", "opacity", "border_width"}},
      {{"-p", "strength", kGrade}, {"time", "(s)", "strength"}},  // a file named after a choice
  };
  for (const Case& c : cases) {
    std::vector<std::string> args{"eval", "--to", "0"};
    args.insert(args.end(), c.args.begin(), c.args.end());
    const Result result = Run(args);
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(Cells(Lines(result.out)[0]), c.header);
  }
}

TEST_F(Tool, EvalPrintsEachTypeAsCsvAndJson) {
  const Result grade = Run({"eval", kGrade, "--format", "csv", "--to", "0"});
  ASSERT_EQ(grade.status, 0) << grade.err;
  EXPECT_EQ(Lines(grade.out),
            (std::vector<std::string>{
                "time,strength,wheels,curves,saturation,temperature,protect_skin,look",
                "0,0,80 bytes: 0000000000000000\u2026,16 bytes: 0400000000000000\u2026,100,6500,"
                "true,Teal & orange"}));
  // A blended colour wheel: the teal of the shadows (190 degrees) is there.
  EXPECT_THAT(Run({"eval", kGrade, "-p", "wheels", "--from", "3", "--to", "3"}).out,
              HasSubstr("80 bytes: 01000000be000000"));
  const auto curves =
      nlohmann::json::parse(Run({"eval", kGrade, "-p", "curves", "--format", "json", "--to", "0"}).out);
  EXPECT_EQ(curves["samples"][0]["values"][0],
            nlohmann::json::parse(R"({"bytes": 16, "head": "0400000000000000"})"));

  const std::string file = SetFile(
      "odd.xml", R"(<Parameter id="1" name="a,b" type="String" value="say &quot;hi&quot;"/>)"
                 R"(<Parameter id="2" name="x" value="0.1"/>)");
  const Result csv = Run({"eval", file, "--format", "csv", "--to", "0"});
  ASSERT_EQ(csv.status, 0) << csv.err;
  EXPECT_EQ(Lines(csv.out), (std::vector<std::string>{"time,\"a,b\",x", "0,\"say \"\"hi\"\"\",0.1"}));
  const Result json = Run({"eval", file, "--format", "json", "--step", "5"});
  ASSERT_EQ(json.status, 0) << json.err;
  const auto parsed = nlohmann::json::parse(json.out);
  EXPECT_EQ(parsed["parameters"][0],
            nlohmann::json::parse(R"({"id": 1, "name": "a,b", "type": "String"})"));
  EXPECT_EQ(parsed["samples"][1],
            nlohmann::json::parse(R"({"time": 5, "values": ["say \"hi\"", 0.1]})"));
  EXPECT_EQ(parsed["samples"].size(), 3u);
  // Read back, the numbers are the library's to the bit.
  const Result frames = Run({"eval", "-p", "opacity", "--fps", "30000/1001", "--to", "1",
                             "--format", "json"});
  ASSERT_EQ(frames.status, 0) << frames.err;
  const auto framed = nlohmann::json::parse(frames.out);
  EXPECT_EQ(framed["fps"], "30000/1001");
  auto set = qd::Set::load(std::string(QD_EXAMPLES_DIR) + "/pip.xml");
  ASSERT_TRUE(set.ok());
  set->set_clip(0.0, 10.0);
  const auto opacity = set->param("opacity");
  for (const auto& sample : framed["samples"]) {
    const double time = qd::Rate{30000, 1001}.frame_time(sample["frame"].get<std::int64_t>());
    EXPECT_EQ(sample["time"].get<double>(), time);
    EXPECT_EQ(sample["values"][0].get<double>(), *opacity->value(time));
  }
}

TEST_F(Tool, EvalGathersTheLibrarysReportsIntoOneWarning) {
  // No static value and no keyframes: every evaluation is reported.
  const std::string file = SetFile("novalue.xml", R"(<Parameter id="1" name="gain"/>)");
  const Result result = Run({"eval", file});
  ASSERT_EQ(result.status, 0);
  EXPECT_EQ(Lines(result.out).size(), 13u);
  const auto warnings = Lines(result.err);
  ASSERT_EQ(warnings.size(), 1u) << result.err;
  EXPECT_THAT(warnings[0], AllOf(HasSubstr("qdparam: warning: the library reported"),
                                 HasSubstr("no value specified"), HasSubstr("11 times")));
}

// ---- Errors: one line on stderr, nothing on stdout, a non-zero status

TEST_F(Tool, ErrorsAreOneClearLine) {
  WriteFile(Path("broken.xml"), "<Property><Parameter id=\"1\"");
  WriteFile(Path("other.xml"), "<Effect/>");
  WriteFile(Path("latin1.xml"), "<Property name=\"caf\xe9\"/>");
  SetFile("noid.xml", R"(<Parameter name="gain" value="1"/>)");
  SetFile("negative.xml", R"(<Parameter id="1" name="a" value="1"/><Parameter id="-4" name="b"/>)");
  SetFile("blob.xml", R"(<Parameter id="1" name="blob" type="Binary"/>)");
  SetFile("badtime.xml", R"(<Parameter id="1" name="k" value="0" useKeyframe="True">)"
                         R"(<Keyframe position="abc" value="1"/></Parameter>)");
  fs::create_directory(Path("folder"));
  struct Case { std::vector<std::string> args; int status; std::string message; } cases[] = {
      {{"eval", "missing.xml"}, 1, "missing.xml: no such file"},
      {{"eval", "folder"}, 1, "folder is a folder, not a file"},
      {{"show", "broken.xml"}, 1, "broken.xml:1:27: not well-formed XML"},
      {{"eval", "latin1.xml"}, 1, "latin1.xml:1:20: not UTF-8 text"},
      {{"dump", "other.xml"}, 1, "the document element is <Effect>, not <Property>"},
      {{"eval", "noid.xml"}, 1, "parameter 1 (\"gain\") has no id"},
      {{"eval", "negative.xml"}, 1, "parameter 2 (\"b\") has a negative id"},
      {{"show", "badtime.xml"}, 1, "position=\"abc\" is not a time"},
      {{"eval", "-p", "glow"}, 1, "no parameter named \"glow\"; the names are: position_x, "
       "position_y, size, rotation, opacity, border_width, shadow, corner_radius, caption"},
      {{"show", "--id", "42"}, 1, "no parameter with id 42; the ids are: 1, 2, 3, 4, 5, 6, 7, 8, 9"},
      {{"eval", "--duration", "abc"}, 2, "--duration"},
      {{"eval", "--duration", "0"}, 1, "--duration must be a positive number of seconds, not 0"},
      {{"plot", "--duration", "-3"}, 1, "--duration must be a positive number of seconds, not -3"},
      {{"eval", "--start", "inf"}, 1, "--start must be a finite number"},
      {{"eval", "--fps", "0"}, 1, "--fps must be a positive number"},
      {{"eval", "--fps", "25", "--step", "1"}, 2, "--fps excludes --step"},
      {{"eval", "--step", "1e-9"}, 1, "use a larger --step or a lower --fps"},
      {{"eval", "--from", "5", "--to", "2"}, 1, "--from (5 s) is after --to (2 s)"},
      {{"plot", "--from", "4", "--to", "4"}, 1, "--from must be before --to"},
      {{"eval", "--format", "xml"}, 2, "--format"},
      {{"eval", "a.xml", "b.xml"}, 2, "b.xml"},
      {{"frobnicate"}, 2, "unknown command \"frobnicate\"; the commands are eval, plot, show"},
      {{}, 2, "a command is required"},
      {{"plot", "blob.xml"}, 1, "nothing to draw: no numeric parameter chosen"},
      {{"validate", "--out", "folder"}, 1, "folder is a folder, not a file"},
      {{"plot", "--out", "no/such/folder/chart.svg"}, 1,
       "cannot write no/such/folder/chart.svg: No such file or directory"},
  };
  for (const Case& c : cases) {
    const Result result = Run(c.args);
    const std::string what = ::testing::PrintToString(c.args);
    EXPECT_EQ(result.status, c.status) << what;
    EXPECT_EQ(result.out, "") << what;
    EXPECT_EQ(Count(result.err, "\n"), 1u) << what << ": " << result.err;
    EXPECT_EQ(result.err.rfind("qdparam: ", 0), 0u) << what << ": " << result.err;
    EXPECT_NE(result.err.find(c.message), std::string::npos) << what << ": " << result.err;
  }
}

TEST_F(Tool, EveryCommandExplainsItself) {
  for (const std::string command :
       {"eval", "plot", "show", "dump", "validate", "find", "simplify"}) {
    const Result result = Run({command, "--help"});
    EXPECT_EQ(result.status, 0) << command;
    EXPECT_THAT(result.out, AllOf(HasSubstr("Usage: qdparam " + command), HasSubstr("FILE")));
  }
  const Result top = Run({"--help"}), version = Run({"--version"});
  EXPECT_TRUE(top.status == 0 && top.out.find("validate") != std::string::npos) << top.out;
  EXPECT_TRUE(version.status == 0 && version.out.rfind("qdparam ", 0) == 0) << version.out;
}

// ---- plot

// The chart must be XML that reads back, with one panel per numeric
// parameter and one mark per keyframe inside the window.
std::string CheckedChart(const std::string& path) {
  qdcore::CXMLDoc doc;
  EXPECT_EQ(doc.OpenDocFile(qdtest::Wide(path).c_str()), 0) << path;
  const std::string svg = ReadFile(path);
  EXPECT_THAT(svg, AllOf(Not(HasSubstr("nan")), Not(HasSubstr("inf"))));
  return svg;
}

// Handles where the curve gets its shape: two per Bezier segment, a square
// per spline point; an inactive parameter says so.
TEST_F(Tool, PlotDrawsHandlesAndMarksInactiveParameters) {
  const Result result = Run({"plot", "--handles", "-p", "position_x", "-p", "rotation", "--out",
                             Path("handles.svg")});
  ASSERT_EQ(result.status, 0) << result.err;
  const std::string svg = ReadFile(Path("handles.svg"));
  EXPECT_EQ(Count(svg, "class=\"handle\""), 4u);        // position_x: two Bezier segments
  EXPECT_EQ(Count(svg, "class=\"spline-point\""), 3u);  // rotation's anchors
  EXPECT_EQ(Count(svg, "INACTIVE"), 0u);
  const std::string file = SetFile(
      "off.xml", R"(<Parameter id="1" name="gain" value="3" active="False" inactive="1"/>)");
  ASSERT_EQ(Run({"plot", file, "--out", Path("off.svg")}).status, 0);
  EXPECT_THAT(ReadFile(Path("off.svg")), HasSubstr("INACTIVE: drawn at its inactive value"));
}

// A dense recorded curve costs the chart's width, not its keyframes: at most
// four points a half-pixel column and one tick a pixel for the keyframes.
TEST_F(Tool, PlotThinsDenseCurvesToThePixel) {
  std::string keys;
  for (int k = 0; k < 20000; ++k) {
    keys += "<Keyframe position=\"" + std::to_string(k / 19999.0) + "\" value=\"" +
            std::to_string(k * 37 % 200) + "\" interpolation=\"Linear\"/>";
  }
  const std::string file =
      SetFile("dense.xml", R"(<Parameter id="1" name="d" value="0" useKeyframe="True">)" + keys +
                               "</Parameter>");
  ASSERT_EQ(Run({"plot", file, "--out", Path("dense.svg")}).status, 0);
  const std::string svg = ReadFile(Path("dense.svg"));
  EXPECT_EQ(Count(svg, "class=\"keyframe-ticks\""), 1u);
  EXPECT_EQ(Count(svg, "class=\"keyframe\""), 0u);
  EXPECT_LT(svg.size(), 250000u);  // 20,000 keyframes would take megabytes
  // The ticks say how many keyframes they stand for.
  EXPECT_THAT(svg, HasSubstr("20000 keyframes"));
}

// A mask's polygons, outlined as they move from one keyframe to the next.
TEST_F(Tool, PlotOutlinesMasks) {
  const std::string file = SetFile(
      "mask.xml",
      R"(<Parameter id="1" name="mask" type="Binary" binaryInterpolationType="MaskMultiPolygon" )"
      R"(useKeyframe="True"><Keyframe position="0" interpolation="Linear"><Binary>)"
      R"(AAAAAAAAAAAAAAAAAAAAAAAAgD8AAIA/AQAAAAQAAADNzEw+zcxMPs3MTD/NzEw+zcxMP83MTD/NzEw+zcxMPw==)"
      R"(</Binary></Keyframe><Keyframe position="1"><Binary>)"
      R"(AAAAAAAAAAAAAAAAAAAAAAAAgD8AAIA/AQAAAAQAAADNzMw9zczMPWZmZj/NzMw9AAAAP2ZmZj8AAAA/ZmZmPw==)"
      R"(</Binary></Keyframe></Parameter>)");
  ASSERT_EQ(Run({"plot", file, "--out", Path("mask.svg")}).status, 0);
  const std::string svg = ReadFile(Path("mask.svg"));
  EXPECT_EQ(Count(svg, "class=\"glyph\""), 7u);  // six between, the keyframe at 10 s
  EXPECT_THAT(Run({"show", file}).out, HasSubstr("1 polygons, points: 4"));
}

// The page carries everything it needs: no address to fetch, the library's
// samples as data, and a script that says when it is done.
TEST_F(Tool, PlotWritesASelfContainedPage) {
  const Result result = Run({"plot", "--html", Path("chart.html")});
  ASSERT_EQ(result.status, 0) << result.err;
  const std::string page = ReadFile(Path("chart.html"));
  EXPECT_THAT(page, AllOf(HasSubstr("<!DOCTYPE html>"), HasSubstr("id=\"chart-data\""),
                          HasSubstr("data-ready"), Not(HasSubstr("http://")),
                          Not(HasSubstr("https://")), Not(HasSubstr(" src="))));
  EXPECT_EQ(Run({"plot", "--html", Path("a.html"), "--out", Path("b.svg")}).status, 1);
}

TEST_F(Tool, PlotDrawsAPanelPerNumericParameterWithItsKeyframes) {
  struct Case {
    std::vector<std::string> args;
    std::size_t panels;
    std::size_t keyframes;
    std::string chart = "chart.svg";
  } cases[] = {
      // Eight numeric parameters and the caption's lane; 23 + 3 keyframes.
      {{"--out", "chart.svg"}, 9, 26},
      // From 2 s to 6 s: position 4 s twice, size 2 s and 6 s, rotation 5 s,
      // border 3 s, shadow 2 s, caption 3 s.
      {{"--out", "chart.svg", "--from", "2", "--to", "6"}, 9, 8},
      {{"--out", "chart.svg", "-p", "shadow", "-p", "caption"}, 2, 6},
      // On a 20 s clip the relative keyframes move, the fixed ones stay.
      {{"--out", "chart.svg", "-p", "border_width", "--duration", "20", "--to", "10"}, 1, 3},
      // Without --out the chart is named after the input.
      // Four numbers, the wheels' and curves' pictures and the look's lane.
      {{kGrade}, 7, 13, "colorgrade.svg"},
  };
  for (const Case& c : cases) {
    std::vector<std::string> args{"plot", "--force"};
    args.insert(args.end(), c.args.begin(), c.args.end());
    const Result result = Run(args);
    const std::string what = ::testing::PrintToString(args);
    ASSERT_EQ(result.status, 0) << what << result.err;
    EXPECT_EQ(result.out, "wrote " + c.chart + ": " + std::to_string(c.panels) +
                              (c.panels == 1 ? " panel\n" : " panels\n"));
    const std::string svg = CheckedChart(Path(c.chart));
    EXPECT_EQ(Count(svg, "class=\"panel\""), c.panels) << what;
    EXPECT_EQ(Count(svg, "class=\"keyframe\""), c.keyframes) << what;
  }
}

TEST_F(Tool, PlotShowsSegmentsLimitsAndWhatItLeftOut) {
  const Result result = Run({"plot", "--out", "pip.svg"});
  ASSERT_EQ(result.status, 0) << result.err;
  const std::string svg = CheckedChart(Path("pip.svg"));
  for (const std::string name :
       {"position_x", "size", "rotation", "opacity", "border_width", "shadow", "corner_radius"}) {
    EXPECT_THAT(svg, HasSubstr("data-name=\"" + name + "\""));
  }
  // The caption's lane: one labelled span per text, no note of what was left out.
  EXPECT_THAT(svg, AllOf(HasSubstr("data-name=\"caption\""), HasSubstr(">Guest: Ana Ruiz<"),
                         Not(HasSubstr("Not drawn"))));
  EXPECT_EQ(Count(svg, "class=\"span\""), 3u);
  EXPECT_EQ(Count(svg, "class=\"on-band\""), 1u);  // the shadow is on from 2 s to 8.5 s
  // The interpolation of each segment is named above it.
  for (const std::string label : {">Bezier<", ">LinLog<", ">Spline, 2 anchors<", ">Linear<", ">steps<", ">held<",
                                  ">static value<"})
    EXPECT_THAT(svg, HasSubstr(label));
  // Every parameter with limits but the bool shows them.
  EXPECT_EQ(Count(svg, "class=\"limits\""), 7u);
  EXPECT_THAT(svg, AllOf(HasSubstr(">max 20 px<"), HasSubstr(">min 10%<")));
}

TEST_F(Tool, PlotKeepsFarLimitsFromFlatteningTheCurve) {
  // Near limits widen the axis and are drawn as lines; far ones stay off the
  // axis, marked by arrows. Each case: the limits, their labels, the lines drawn.
  struct Case { std::string limits, max, min; std::size_t lines; } cases[] = {
      {R"(min="-2" max="12")", ">max 12<", ">min -2<", 2},
      {R"(min="-1000" max="1000")", ">max 1000 \u2191<", ">min -1000 \u2193<", 0},
      {R"(min="0" max="1000")", ">max 1000 \u2191<", ">min 0<", 1}};
  for (const Case& c : cases) {
    SetFile("ramp.xml", R"(<Parameter id="1" name="ramp" value="0" useKeyframe="True" )" + c.limits +
                            R"(><Keyframe position="0" value="0" interpolation="Linear"/>)"
                            R"(<Keyframe position="1" value="10"/></Parameter>)");
    ASSERT_EQ(Run({"plot", "ramp.xml", "--force"}).status, 0);
    const std::string svg = CheckedChart(Path("ramp.svg"));
    EXPECT_THAT(svg, AllOf(HasSubstr(c.max), HasSubstr(c.min)));
    EXPECT_EQ(Count(svg, "class=\"limit\" "), c.lines) << c.limits;
  }
}

TEST_F(Tool, OutputFilesAreReplacedOnlyWithForce) {
  for (const std::string command : {"plot", "validate"}) {
    WriteFile(Path("kept"), "precious");
    const Result refused = Run({command, "--out", "kept"});
    EXPECT_EQ(refused.status, 1) << command;
    EXPECT_THAT(refused.err, HasSubstr("kept exists; pass --force to replace it"));
    EXPECT_EQ(ReadFile(Path("kept")), "precious") << command;

    const Result forced = Run({command, "--out", "kept", "--force"});
    EXPECT_EQ(forced.status, 0) << command << forced.err;
    EXPECT_NE(ReadFile(Path("kept")), "precious") << command;
  }
  // Nothing but the outputs is left behind.
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(Path(""))) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<std::string>{".stderr", ".stdout", "kept"}));
}

// ---- show and dump

TEST_F(Tool, ShowSummarisesEachParameter) {
  const Result result = Run({"show"});
  ASSERT_EQ(result.status, 0) << result.err;
  const std::string& out = result.out;
  EXPECT_EQ(out.rfind("pip.xml \"Picture in picture\": 9 parameters", 0), 0u) << out;
  EXPECT_EQ(Count(out, "\n  keyframes  "), 9u);
  EXPECT_THAT(out, AllOf(HasSubstr("border_width  (id 6, Long, in px)\n"
                                   "  limits     min 0, max 20, granularity 2\n"
                                   "  value      4\n"
                                   "  status     active\n"
                                   "  keyframes  4 keyframes, allowed Hold, Linear\n"),
                         HasSubstr("corner_radius  (id 8, Double, in px)"), HasSubstr("keyframes  not keyframed")));
  // Keyframe rows: stored index, resolved time, the time as written, value,
  // interpolation, easing, anchors.
  const auto lines = Lines(out);
  const std::vector<std::vector<std::string>> rows{
      {"2", "9.00", "-1s", "100", "Linear", "EaseInOut"},
      {"2", "8.50", "-1.5s", "false", "Hold"},
      {"2", "7.50", "0.75", "\"Thanks", "for", "watching\"", "Hold"},
      {"0", "0.00", "0", "0", "Spline", "2"}};
  for (const auto& row : rows) {
    EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [&](const std::string& line) {
      return Cells(line) == row;
    })) << ::testing::PrintToString(row);
  }
}

TEST_F(Tool, ShowNamesTheExtrapolatedEnds) {
  SetFile("loop.xml", R"(<Parameter id="1" name="loop" value="0" useKeyframe="True" )"
                      R"(extrapolateAfter="CycleWithOffset">)"
                      R"(<Keyframe position="0" value="0" interpolation="Linear"/>)"
                      R"(<Keyframe position="1" value="10"/></Parameter>)");
  const Result result = Run({"show", "loop.xml"});
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr("2 keyframes, allowed Hold, Linear, Bezier, Spline, "
                                    "extrapolated CycleWithOffset after\n"));
}

TEST_F(Tool, ShowPlacesEveryKindOfKeyframeTimeWhereEvaluationDoes) {
  struct Case {
    std::string position;
    std::string on10, on20;  // the time on a 10 s and on a 20 s clip
  } cases[] = {{"0.25", "2.50", "5.00"},  {"50%", "5.00", "10.00"}, {"-0.25", "7.50", "15.00"},
               {"2.5s", "2.50", "2.50"},  {"-2s", "8.00", "18.00"}, {"3fs", "3.00", "3.00"},
               {"-3fs", "-3.00", "-3.00"}};
  std::string keyframes;
  for (const Case& c : cases) keyframes += "<Keyframe position=\"" + c.position + "\" value=\"1\"/>";
  SetFile("times.xml", R"(<Parameter id="1" name="k" value="0" useKeyframe="True">)" + keyframes + "</Parameter>");
  for (const std::string duration : {"10", "20"}) {
    const Result result = Run({"show", "times.xml", "--duration", duration});
    ASSERT_EQ(result.status, 0) << result.err;
    const auto lines = Lines(result.out);
    ASSERT_GE(lines.size(), std::size(cases));
    // Rows come in time order; each is found by its position as written.
    std::vector<double> times;
    for (std::size_t row = lines.size() - std::size(cases); row < lines.size(); ++row) {
      const auto cells = Cells(lines[row]);
      ASSERT_GE(cells.size(), 3u);
      times.push_back(std::stod(cells[1]));
      const Case* c = std::find_if(std::begin(cases), std::end(cases),
                                   [&](const Case& k) { return k.position == cells[2]; });
      ASSERT_NE(c, std::end(cases)) << lines[row];
      EXPECT_EQ(cells[0], std::to_string(c - std::begin(cases))) << c->position;
      EXPECT_EQ(cells[1], duration == "10" ? c->on10 : c->on20) << c->position;
    }
    EXPECT_TRUE(std::is_sorted(times.begin(), times.end()));
    EXPECT_THAT(result.out, HasSubstr("stored out of time order"));
  }
}

TEST_F(Tool, ShowDescribesBinaryParameters) {
  const Result result = Run({"show", kGrade, "-p", "wheels", "-p", "curves"});
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.out, AllOf(HasSubstr("wheels  (id 2, Binary, ColorWheel)"),
                                HasSubstr("curves  (id 3, Binary, ToneCurve)"), HasSubstr("80 bytes: 01000000be000000"),
                                HasSubstr("112 bytes: 0800000000000000")));
  // The payloads in words: the wheels' colours, the curves' points.
  EXPECT_THAT(result.out, AllOf(HasSubstr("3 s: shadows 190\u00b0 35 % level -4 #539dac;"),
                                HasSubstr("10 s: tone curves: 1: (0, 0.03) (0.25, 0.16)")));
}

TEST_F(Tool, DumpPrintsTheSetsDiagnosticDump) {
  const Result result = Run({"dump"});
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.out.rfind("Display ParamSet ***", 0), 0u) << result.out;
  EXPECT_THAT(result.out, HasSubstr("<Property name=\"Picture in picture\" version=\"1\"/>"));
  EXPECT_EQ(Count(result.out, "\n  Param: <Parameter "), 9u);
  EXPECT_EQ(Count(result.out, "\n    KeyFrame: <Keyframe "), 26u);
  EXPECT_EQ(result.out.substr(result.out.size() - 5), "****\n");
}

// ---- validate

TEST_F(Tool, ValidatePrintsWhatTheRulesChangeAndWritesASetThatObeysThem) {
  struct Case { std::string file; std::vector<std::string> lines; } cases[] = {
      {kPip,
       {"pip.xml: 2 rules", "  border_width (id 6): max 20 -> 8",
        "  corner_radius (id 8): max 50 -> 10", "  corner_radius (id 8): value 12 -> 10"}},
      {kGrade, {"colorgrade.xml: 1 rule", "  saturation (id 4): max 200 -> 150"}},
  };
  for (const Case& c : cases) {
    const Result result = Run({"validate", c.file});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(Lines(result.out), c.lines);
  }
  // The set written out carries the rules and already obeys them.
  const Result first = Run({"validate", "--out", "valid.xml"});
  ASSERT_EQ(first.status, 0) << first.err;
  EXPECT_THAT(first.out, HasSubstr("wrote valid.xml"));
  const Result again = Run({"validate", "valid.xml"});
  ASSERT_EQ(again.status, 0) << again.err;
  EXPECT_EQ(Lines(again.out),
            (std::vector<std::string>{"valid.xml: 2 rules", "  nothing changed"}));
  // The new limit holds in evaluation: the border never exceeds 8 px.
  const Result border = Run({"eval", "valid.xml", "-p", "border_width", "--format", "csv"});
  for (const std::string& line : Lines(border.out)) {
    if (line.rfind("time", 0) == 0) continue;
    EXPECT_LE(std::stoi(line.substr(line.find(',') + 1)), 8) << line;
  }
}

TEST_F(Tool, ValidateFailsWithoutRulesOrWithABrokenOne) {
  const std::string plain = SetFile("plain.xml", R"(<Parameter id="1" name="a" value="1"/>)");
  const std::string broken = SetFile(
      "broken.xml", R"(<Parameter id="1" name="a" type="Long" value="3"/>)"
                    R"(<Validation><Condition id="1" relation="Greater" value="0">)"
                    R"(<Action id="1" max="2"/><Action id="9" max="1"/></Condition></Validation>)");
  const Result none = Run({"validate", plain});
  EXPECT_EQ(none.status, 1);
  EXPECT_THAT(none.err, HasSubstr("carries no Validation rules"));

  const Result failed = Run({"validate", broken, "--out", "never.xml"});
  EXPECT_EQ(failed.status, 1);
  EXPECT_THAT(failed.out, HasSubstr("a (id 1): max (none) -> 2"));
  EXPECT_THAT(failed.err, HasSubstr("failed: an action names a missing parameter"));
  EXPECT_FALSE(fs::exists(Path("never.xml")));
}

// ---- simplify

// A keyframe a frame at 25 fps for 4 s: a ramp and a sine.
std::string Recorded() {
  std::string keys[2];
  for (int i = 0; i <= 100; ++i) {
    const std::string at = "<Keyframe position=\"" + std::to_string(i / 100.0) + "\" value=\"";
    keys[0] += at + std::to_string(i * 0.5) + "\" interpolation=\"Linear\"/>";
    keys[1] += at + std::to_string(std::sin(i * 0.1)) + "\" interpolation=\"Linear\"/>";
  }
  return R"(<Parameter id="1" name="ramp" value="0" useKeyframe="True">)" + keys[0] +
         R"(</Parameter><Parameter id="2" name="wave" value="0" useKeyframe="True">)" + keys[1] +
         R"(</Parameter><Parameter id="3" name="count" type="Long" value="1"/>)";
}

TEST_F(Tool, SimplifyThinsOneParameterAndWritesTheSet) {
  const std::string file = SetFile("take.xml", Recorded());
  const Result ramp =
      Run({"simplify", file, "-p", "ramp", "--tolerance", "0.001", "--out", "thin.xml"});
  ASSERT_EQ(ramp.status, 0) << ramp.err;
  const std::vector<std::string> lines = Lines(ramp.out);
  ASSERT_EQ(lines.size(), 2u) << ramp.out;
  const std::string said = "ramp: 101 -> 2 keyframes, largest difference ";
  ASSERT_EQ(lines[0].rfind(said, 0), 0u) << lines[0];
  EXPECT_LE(std::stod(lines[0].substr(said.size())), 1e-12);
  EXPECT_EQ(lines[1], "wrote thin.xml");
  const auto thin = qd::Set::load(Path("thin.xml"));
  ASSERT_TRUE(thin.ok());
  EXPECT_EQ(thin->param("ramp")->keys().size(), 2u);
  EXPECT_EQ(thin->param("wave")->keys().size(), 101u);  // only the one named

  const Result wave =
      Run({"simplify", file, "-p", "wave", "-t", "0.005", "--bezier", "-o", "w.xml"});
  ASSERT_EQ(wave.status, 0) << wave.err;
  const std::size_t kept = qd::Set::load(Path("w.xml"))->param("wave")->keys().size();
  EXPECT_LT(kept, 20u);
  EXPECT_THAT(wave.out, HasSubstr("wave: 101 -> " + std::to_string(kept) + " keyframes"));
}

TEST_F(Tool, SimplifyRefusesAndWritesNothing) {
  const std::string file = SetFile("take.xml", Recorded());
  WriteFile(Path("kept.xml"), "precious");
  struct Case {
    std::vector<std::string> args;
    int status;
    const char* message;
  } cases[] = {
      {{"-p", "ramp", "-t", "0.1", "-o", "kept.xml"}, 1, "kept.xml exists; pass --force"},
      {{"-p", "ramp", "-t", "-1", "-o", "new.xml"}, 1, "--tolerance must be a finite number"},
      {{"-p", "count", "-t", "0.1", "-o", "new.xml"}, 1, "count is not a Double parameter"},
      {{"-t", "0.1", "-o", "new.xml"}, 1, "simplify thins one parameter"},
      {{"-p", "ramp", "-o", "new.xml"}, 2, "--tolerance is required"},
      {{"-p", "ramp", "-t", "0.1"}, 2, "--out is required"},
  };
  for (const Case& c : cases) {
    std::vector<std::string> args{"simplify", file};
    args.insert(args.end(), c.args.begin(), c.args.end());
    const Result result = Run(args);
    const std::string what = ::testing::PrintToString(c.args);
    EXPECT_EQ(result.status, c.status) << what;
    EXPECT_THAT(result.err, HasSubstr(c.message)) << what;
  }
  EXPECT_EQ(ReadFile(Path("kept.xml")), "precious");
  EXPECT_FALSE(fs::exists(Path("new.xml")));
}

// ---- find

// The fades of the example: in over the first second, out over the last.
TEST_F(Tool, FindPrintsWhenAValueIsReached) {
  struct Case {
    std::vector<std::string> args;
    std::vector<std::string> lines;
  } cases[] = {
      {{"find", "-p", "opacity", "--value", "50"}, {"0.5"}},
      {{"find", "-p", "opacity", "--value", "50", "--all"}, {"0.5", "9.5"}},
      {{"find", "-p", "opacity", "--value", "50", "--from", "1"}, {"9.5"}},
      {{"find", "-p", "opacity", "--value", "50", "--start", "100", "--all"}, {"100.5", "109.5"}},
      // 0 to 12 px over 3 s, whole pixels on a grid of 2: 5 px (from 4.5)
      // already shows as 6.
      {{"find", "-p", "border_width", "--value", "6"}, {"1.125"}},
  };
  for (const Case& c : cases) {
    const Result result = Run(c.args);
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(Lines(result.out), c.lines) << c.args.back();
  }
}

TEST_F(Tool, FindSaysWhenItCannot) {
  const std::pair<std::vector<std::string>, std::string> cases[] = {
      {{"find", "-p", "opacity", "--value", "500"}, "opacity never reaches 500 between 0 s and 10 s"},
      {{"find", "-p", "opacity", "--value", "50", "--to", "0.4"}, "never reaches 50"},
      {{"find", "-p", "shadow", "--value", "1"}, "shadow is not a number parameter"},
      {{"find", "--value", "1"}, "find looks at one parameter"},
  };
  for (const auto& [args, message] : cases) {
    const Result result = Run(args);
    EXPECT_EQ(result.status, 1) << message;
    EXPECT_THAT(result.err, HasSubstr(message));
  }
  EXPECT_EQ(Run({"find", "-p", "opacity"}).status, 2);  // --value is required
}

// ---- plot --path

TEST_F(Tool, PlotPathDrawsTheTrajectoryWithVerticesAndSeconds) {
  const Result result = Run({"plot", kPip, "--path", "position_x,position_y", "--out", "path.svg"});
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr("wrote path.svg"));
  const std::string svg = ReadFile(Path("path.svg"));
  EXPECT_EQ(Count(svg, "class=\"path\""), 1u);
  EXPECT_EQ(Count(svg, "class=\"vertex\""), 3u);  // position_x's keyframes
  EXPECT_EQ(Count(svg, "class=\"tick\""), 11u);   // 0 s to 10 s
  EXPECT_THAT(svg, HasSubstr("keyframe at 4 s: 20, 30"));
}

TEST_F(Tool, PlotPathNeedsTwoNumberParameters) {
  const std::pair<std::string, std::string> cases[] = {
      {"position_x", "--path takes two parameter names"},
      {"position_x,position_y,size", "--path takes two parameter names"},
      {"position_x,caption", "caption is not a Double or Long parameter"},
      {"position_x,nope", "no parameter named \"nope\""},
  };
  for (const auto& [path, message] : cases) {
    const Result result = Run({"plot", "--path", path, "--out", "never.svg"});
    EXPECT_EQ(result.status, 1) << path;
    EXPECT_THAT(result.err, HasSubstr(message));
  }
  EXPECT_FALSE(fs::exists(Path("never.svg")));
}

}  // namespace

// ---- failing output

// A full disk is a failure, whatever the command printed before it.
TEST_F(Tool, OutputLostToAFullDiskFails) {
  for (const char* command : {"eval", "show", "dump", "validate"}) {
    const Result result = Run({command}, "/dev/full");
    EXPECT_EQ(result.status, 1) << command;
    EXPECT_THAT(result.err, HasSubstr("cannot write the standard output")) << command;
  }
}

TEST_F(Tool, OnlyRegularFilesAreReplaced) {
  const Result device = Run({"validate", "--out", "/dev/full", "--force"});
  EXPECT_EQ(device.status, 1);
  EXPECT_THAT(device.err, HasSubstr("not a regular file"));
  EXPECT_TRUE(fs::is_character_file("/dev/full"));
  ASSERT_EQ(mkfifo(Path("pipe.xml").c_str(), 0600), 0);
  const Result pipe = Run({"validate", "--out", Path("pipe.xml"), "--force"});
  EXPECT_EQ(pipe.status, 1);
  EXPECT_TRUE(fs::is_fifo(Path("pipe.xml")));
  const Result read = Run({"show", Path("pipe.xml")});  // returns at once, never blocks
  EXPECT_EQ(read.status, 1);
}

// ---- check

TEST_F(Tool, CheckPrintsFindingsWithTheirPlaceAndFailsOnlyOnErrors) {
  const std::string warned =
      SetFile("warned.xml", "\n<Parameter id=\"1\" name=\"a\" min=\"2\" max=\"1\"/>");
  const Result warnings = Run({"check", warned});
  EXPECT_EQ(warnings.status, 0) << warnings.err;
  EXPECT_THAT(warnings.out,
              HasSubstr(warned + ":2:1: warning: <Parameter id=\"1\" name=\"a\">: min"));
  EXPECT_THAT(warnings.out, HasSubstr("0 errors, 1 warning"));
  const std::string broken =
      SetFile("broken.xml", "\n<Parameter id=\"1\" name=\"a\" value=\"nan\"/>");
  const Result errors = Run({"check", broken});
  EXPECT_EQ(errors.status, 1);
  EXPECT_THAT(errors.out, HasSubstr(broken + ":2:1: error:"));
  WriteFile(Path("malformed.xml"), "<Property>\n<Parameter>\n</Property>");
  const Result malformed = Run({"check", Path("malformed.xml")});
  EXPECT_EQ(malformed.status, 1);
  EXPECT_THAT(malformed.out, HasSubstr("malformed.xml:3:"));
  EXPECT_EQ(Run({"check"}).status, 0);  // the bundled example is clean
}
