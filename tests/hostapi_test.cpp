// The host API: loading with places of failure, values on the set's clip,
// keyframes in time order, edits, presets, atomic stores and threads.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <cmath>
#include <functional>
#include <thread>

#include "qdparam/paramset.h"
#include "qdparam/qdparam.hpp"
#include "support/capture.h"
#include "support/xml.h"

namespace {

const std::string kPip = std::string(QD_EXAMPLES_DIR) + "/pip.xml";
const std::string kColorGrade = std::string(QD_EXAMPLES_DIR) + "/colorgrade.xml";

qd::Set Load(const std::string& path) {
  auto set = qd::Set::load(path);
  EXPECT_TRUE(set.ok()) << set.error().describe();
  return set.ok() ? *set : qd::Set();
}

qd::Param ParamOf(const qd::Set& set, std::string_view name) {
  auto param = set.param(name);
  EXPECT_TRUE(param.has_value()) << name;
  return *param;
}

const char* const kRamp = R"(<Property>
  <Parameter id="1" name="ramp" value="0" useKeyframe="True">
    <Keyframe position="0" value="0" interpolation="Linear"/>
    <Keyframe position="1" value="100" interpolation="Hold"/>
  </Parameter>
  <Parameter id="2" name="steps" type="Long" value="3"/>
</Property>)";

// ---------------------------------------------------------------------------
// Loading
// ---------------------------------------------------------------------------

TEST(HostApi, AbsoluteKeyframesScaleOntoAShortClip) {
  qd::Set set = Load(kPip);
  const qd::Param x = ParamOf(set, "position_x");
  set.set_clip(0.0, 10.0);
  EXPECT_EQ(x.value(4.0), 20.0);  // the clip is long enough: "4s" is at 4 s
  set.set_clip(0.0, 4.0);
  EXPECT_EQ(x.value(2.0), 20.0);  // half of the 8 s the keyframes need
  set.set_clip(5.0, 4.0);
  EXPECT_EQ(x.value(7.0), 20.0);  // on the set's time line
}

TEST(HostApi, FailuresSayWhereTheyAre) {
  struct Case {
    const char* text;
    unsigned int line, column;
    const char* words;
  };
  const Case cases[] = {
      {"<Property>\n  <Parameter id=\"1\"\n</Property>", 3, 1, "start element"},
      {"<Property>\n<Parameter id='1'/>\n</Property>\ntext", 3, 12, "outside"},
      {"<Effect/>", 1, 1, "not <Property>"},
      {"", 0, 0, "no element"},
      {"<Property><Parameter name=\"a\"/></Property>", 0, 0, "has no id"},
      {"<Property>\n <Parameter id=\"1\" type=\"Dubble\" value=\"1\"/></Property>", 2, 2, "Dubble"},
      {"<Property>\n\n  <Parameter id=\"1\" value=\"nan\"/></Property>", 3, 3, "nan"},
  };
  for (const Case& c : cases) {
    const auto set = qd::Set::parse(c.text);
    ASSERT_FALSE(set.ok()) << c.text;
    EXPECT_EQ(set.error().line, c.line) << c.text;
    EXPECT_EQ(set.error().column, c.column) << c.text;
    EXPECT_NE(set.error().message.find(c.words), std::string::npos) << set.error().message;
  }
  const auto missing = qd::Set::load("/nonexistent/set.xml");
  ASSERT_FALSE(missing.ok());
  EXPECT_EQ(missing.error().file, "/nonexistent/set.xml");
  EXPECT_EQ(missing.error().describe(), "/nonexistent/set.xml: " + missing.error().message);
}

// A big document is checked while its set loads: the answers are those of a
// small one, failures placed as exactly, whether read from text or a file.
TEST(HostApi, BigDocumentsLoadAndFailAsSmallOnesDo) {
  constexpr int kParams = 6000;  // about 1.3 MB: past the size that checks aside
  const auto document = [](const std::string& last) {
    std::string text = "<Property>\n";
    for (int i = 0; i < kParams; ++i) {
      text += "  <Parameter id=\"" + std::to_string(i) + "\" name=\"p" + std::to_string(i) +
              "\" value=\"0\" useKeyframe=\"True\">\n"
              "    <Keyframe position=\"0\" value=\"1\" interpolation=\"Linear\"/>\n"
              "    <Keyframe position=\"1\" value=\"3\" interpolation=\"Linear\"/>\n"
              "  </Parameter>\n";
    }
    return text + last + "</Property>\n";
  };
  const unsigned int lastLine = 4 * kParams + 2;
  const std::string lastName = std::string("p") + std::to_string(kParams - 1);
  struct Case {
    std::string last;  // the document's last parameter
    unsigned int line, column;
    const char* words;  // null: the set loads
  };
  const Case cases[] = {
      {"", 0, 0, nullptr},
      {"  <Parameter id=\"99999\" value=\"nan\"/>\n", lastLine, 3, "nan"},
      {"  <Parameter name=\"no id\" value=\"nan\"/>\n", 0, 0, "has no id"},
  };
  qdtest::TempDir dir;
  for (const Case& c : cases) {
    const std::string text = document(c.last);
    const std::string path = dir.path() + "/big.xml";
    qdtest::WriteFile(path, text);
    for (const auto& set : {qd::Set::parse(text), qd::Set::load(path)}) {
      if (!c.words) {
        ASSERT_TRUE(set.ok()) << set.error().describe();
        EXPECT_EQ(set->param(lastName)->value(0.5), 2.0);
        continue;
      }
      ASSERT_FALSE(set.ok()) << c.last;
      EXPECT_EQ(set.error().line, c.line) << c.last;
      EXPECT_EQ(set.error().column, c.column) << c.last;
      EXPECT_NE(set.error().message.find(c.words), std::string::npos) << set.error().message;
    }
  }
}

TEST(HostApi, ColumnsCountCharactersNotBytes) {
  const auto set = qd::Set::parse("<Property name=\"é\"><Parameter id=1/></Property>");
  ASSERT_FALSE(set.ok());
  EXPECT_EQ(set.error().line, 1u);
  EXPECT_EQ(set.error().column, 34u);
}

// ---------------------------------------------------------------------------
// Values
// ---------------------------------------------------------------------------

// Where the clip is long enough for every keyframe the host API gives what
// the library's getters give, bit for bit, for every numeric parameter.
TEST(HostApi, ValuesAreTheLibrarysOwn) {
  for (const std::string& file : {kPip, kColorGrade}) {
    qd::Set set = Load(file);
    set.set_clip(1.0, 12.0);
    qdtest::AssertCapture silence;
    for (const qd::Param& param : set.params()) {
      if (!param.value(0.0)) continue;
      for (double t = 0.0; t <= 14.0; t += 0.37) {
        EXPECT_EQ(*param.value(t), set.native().GetValueDouble(param.native(), t, 0.0))
            << file << " " << param.name() << " at " << t;
      }
    }
  }
}

TEST(HostApi, ArraysTimesAndFramesAgreeWithSingleValues) {
  qd::Set set = Load(kPip);
  const qd::Rate ntsc{30000, 1001};
  for (const qd::Param& param : set.params()) {
    if (!param.value(0.0)) continue;
    std::vector<double> byStep(50), times(50), atTimes(50), byFrame(50);
    set.set_clip(0.0, 4.0);
    ASSERT_TRUE(param.values(0.0, 0.1, byStep));
    for (std::size_t i = 0; i < byStep.size(); ++i) {
      EXPECT_EQ(byStep[i], *param.value(static_cast<double>(i) * 0.1)) << param.name() << i;
    }
    set.set_clip(0.5, 4.0);
    for (std::size_t i = 0; i < times.size(); ++i) times[i] = 4.5 - 0.09 * static_cast<double>(i);
    ASSERT_TRUE(param.values(times, atTimes));
    ASSERT_TRUE(param.frames(ntsc, 10, byFrame));
    for (std::size_t i = 0; i < times.size(); ++i) {
      EXPECT_EQ(atTimes[i], *param.value(times[i])) << param.name() << " " << i;
      EXPECT_EQ(byFrame[i], *param.value(ntsc.frame_time(10 + static_cast<std::int64_t>(i))));
    }
  }
}

TEST(HostApi, TypesDecideWhatIsAnswered) {
  const qd::Set set = Load(kPip);
  const qd::Param caption = ParamOf(set, "caption");
  EXPECT_EQ(caption.type(), qd::Type::String);
  EXPECT_FALSE(caption.value(0.0));
  EXPECT_EQ(caption.text(0.0), "Live from the studio");
  std::vector<double> out(3, -1.0);
  EXPECT_FALSE(caption.values(0.0, 1.0, out));
  EXPECT_EQ(out[0], -1.0);
  const qd::Param border = ParamOf(set, "border_width");
  EXPECT_EQ(border.type(), qd::Type::Long);
  EXPECT_FALSE(border.integral(1.0));
  EXPECT_EQ(border.min(), 0.0);
  EXPECT_EQ(border.granularity(), 2.0);
  EXPECT_EQ(border.unit(), "px");
  EXPECT_EQ(ParamOf(set, "shadow").value(0.0), 0.0);
  std::vector<double> tooShort(1);
  EXPECT_FALSE(ParamOf(set, "size").values(std::vector<double>{0.0, 1.0}, tooShort));
  EXPECT_FALSE(set.param("no such parameter"));
  EXPECT_FALSE(set.param_by_id(-1));
  EXPECT_EQ(set.param_by_id(6)->name(), "border_width");
}

TEST(HostApi, FrameRates) {
  struct Case {
    const char* text;
    bool ok;
    std::int64_t numerator, denominator;
  };
  const Case cases[] = {{"25", true, 25, 1},
                        {"30000/1001", true, 30000, 1001},
                        {"29.97", true, 2997, 100},
                        {"23.976", true, 2997, 125},
                        {"50/2", true, 25, 1},
                        {"1.5/0.5", true, 3, 1},
                        {".", false, 0, 0},
                        {"0", false, 0, 0},
                        {"25/0", false, 0, 0},
                        {"", false, 0, 0},
                        {"-25", false, 0, 0},
                        {"1/2/3", false, 0, 0},
                        {"9999999999999999", false, 0, 0}};
  for (const Case& c : cases) {
    const auto rate = qd::Rate::parse(c.text);
    ASSERT_EQ(rate.ok(), c.ok) << c.text;
    if (!c.ok) continue;
    EXPECT_EQ(rate->numerator, c.numerator);
    EXPECT_EQ(rate->denominator, c.denominator);
  }
  const qd::Rate ntsc{30000, 1001};
  EXPECT_EQ(ntsc.frame_time(30000), 1001.0);  // exact where steps would drift
  EXPECT_EQ(ntsc.frame_time(7), 7.0 * 1001.0 / 30000.0);
  EXPECT_TRUE(std::isnan(qd::Rate{0, 1}.frame_time(1)));
  // Frames past the last one there is are refused, not wrapped around.
  const qd::Set set = Load(kPip);
  std::vector<double> out(4, -1.0);
  EXPECT_FALSE(ParamOf(set, "size").frames(ntsc, INT64_MAX - 2, out));
  EXPECT_EQ(out[0], -1.0);
}

// ---------------------------------------------------------------------------
// Keyframes and edits
// ---------------------------------------------------------------------------

TEST(HostApi, KeysComeInTimeOrder) {
  const auto set = qd::Set::parse(R"(<Property><Parameter id="1" name="p" useKeyframe="True">
      <Keyframe position="0.5" value="5" interpolation="Bezier" timeTranslation="EaseIn">
        <Anchor position="0.1" value="2"/></Keyframe>
      <Keyframe position="0" value="1" interpolation="Linear"/>
      <Keyframe position="0.75s" value="3"/></Parameter></Property>)");
  ASSERT_TRUE(set.ok()) << set.error().describe();
  const auto keys = set->param("p")->keys();
  ASSERT_EQ(keys.size(), 3u);
  EXPECT_EQ(keys[0].index, 1u);
  EXPECT_EQ(keys[1].index, 0u);
  EXPECT_EQ(keys[2].index, 2u);
  EXPECT_EQ(keys[1].time, 0.5);
  EXPECT_EQ(keys[1].position, "0.5");
  EXPECT_EQ(keys[1].interpolation, qd::Interpolation::Bezier);
  EXPECT_EQ(keys[1].ease, qd::Ease::In);
  ASSERT_EQ(keys[1].anchors.size(), 1u);
  EXPECT_EQ(keys[1].anchors[0].value, 2.0);
  EXPECT_EQ(keys[2].time, 0.75);
  EXPECT_EQ(keys[2].text, "3");
  EXPECT_EQ(qd::name_of(keys[1].interpolation), "Bezier");
  EXPECT_EQ(qd::name_of(qd::Ease::In | qd::Ease::Out), "");
  EXPECT_EQ(qd::name_of(qd::Type::Long), "Long");
}

TEST(HostApi, EditsKeepTimeOrderAndTheCurve) {
  auto set = qd::Set::parse(kRamp);
  ASSERT_TRUE(set.ok());
  set->set_clip(0.0, 10.0);
  qd::Param ramp = *set->param("ramp");
  // A keyframe without a value takes the curve's: nothing moves.
  const auto added = ramp.add_key(2.5);
  ASSERT_TRUE(added.ok()) << added.error().describe();
  EXPECT_EQ(*added, 1u);
  EXPECT_EQ(ramp.value(2.5), 25.0);
  EXPECT_EQ(ramp.value(6.0), 60.0);
  // Moved past the last keyframe, it goes behind it.
  const auto moved = ramp.move_key(1, 12.0);
  ASSERT_TRUE(moved.ok());
  EXPECT_EQ(*moved, 2u);
  EXPECT_EQ(ramp.keys().back().time, 12.0);
  ASSERT_TRUE(ramp.set_key_value(0, 50.0));
  EXPECT_EQ(ramp.value(5.0), 75.0);
  ASSERT_TRUE(ramp.set_key_interpolation(0, qd::Interpolation::Hold));
  EXPECT_EQ(ramp.value(5.0), 50.0);
  EXPECT_TRUE(ramp.remove_key(2));
  EXPECT_EQ(ramp.keys().size(), 2u);
  // Refused edits change nothing.
  EXPECT_FALSE(ramp.remove_key(7));
  EXPECT_FALSE(ramp.set_key_interpolation(0, qd::Interpolation::LinLog));  // not allowed
  EXPECT_FALSE(ramp.add_key(NAN));
  EXPECT_FALSE(ramp.set_value(INFINITY));
  EXPECT_FALSE(ramp.set_text("text"));
  EXPECT_EQ(ramp.keys().size(), 2u);
  qd::Param steps = *set->param("steps");
  EXPECT_TRUE(steps.set_value(6.4));
  EXPECT_EQ(steps.value(0.0), 6.0);
  EXPECT_FALSE(steps.set_value(1e12));
}

// Removing the keyframe that needed the longest span shortens it at once.
TEST(HostApi, RemovingAnAbsoluteKeyframeRescalesTheRest) {
  auto set = qd::Set::parse(R"(<Property><Parameter id="1" name="p" useKeyframe="True">
      <Keyframe position="0" value="0" interpolation="Linear"/>
      <Keyframe position="2s" value="20" interpolation="Linear"/>
      <Keyframe position="8s" value="80" interpolation="Hold"/></Parameter></Property>)");
  ASSERT_TRUE(set.ok());
  set->set_clip(0.0, 4.0);
  qd::Param p = *set->param("p");
  EXPECT_EQ(p.value(1.0), 20.0);  // 2 s of 8 s needed, on a 4 s clip
  ASSERT_TRUE(p.remove_key(2));
  EXPECT_EQ(p.value(1.0), 10.0);  // now 2 s are needed and the clip holds them
}

// ---------------------------------------------------------------------------
// Presets, validation, handles
// ---------------------------------------------------------------------------

TEST(HostApi, PresetsTravelBetweenSets) {
  qd::Set source = Load(kPip);
  ASSERT_TRUE(source.param("corner_radius")->set_value(30.0));
  const std::string preset = source.preset();
  qd::Set target = Load(kPip);
  const qd::Param before = *target.param("corner_radius");
  ASSERT_TRUE(target.apply(preset));
  EXPECT_EQ(target.param("corner_radius")->value(0.0), 30.0);
  EXPECT_FALSE(before.valid());  // the set was replaced under it
  EXPECT_EQ(before.id(), -1);
  EXPECT_FALSE(before.value(0.0));
  // A preset that does not fit leaves the set as it was.
  const auto failed = target.apply("<Preset><Value id=\"1\" value=\"x\"");
  EXPECT_FALSE(failed.ok());
  EXPECT_EQ(target.param("corner_radius")->value(0.0), 30.0);
}

TEST(HostApi, ValidationNarrowsLimits) {
  qd::Set set = Load(kPip);
  ASSERT_TRUE(set.param("border_width")->set_value(2.0));
  ASSERT_TRUE(set.param("corner_radius")->set_value(30.0));
  const auto changed = set.validate();
  ASSERT_TRUE(changed.ok()) << changed.error().describe();
  EXPECT_TRUE(*changed);
  EXPECT_EQ(set.param("corner_radius")->max(), 10.0);
}

// ---------------------------------------------------------------------------
// Storing
// ---------------------------------------------------------------------------

TEST(HostApi, StoresAtomicallyAndReadsBack) {
  qdtest::TempDir dir;
  const std::string path = dir.path() + "/set.xml";
  qd::Set set = Load(kPip);
  ASSERT_TRUE(set.param("size")->add_key(3.0, 55.0).ok());
  ASSERT_TRUE(set.store(path));
  const qd::Set back = Load(path);
  EXPECT_EQ(back.to_xml(), set.to_xml());
  EXPECT_NE(back.to_xml().find("<Validation>"), std::string::npos);
  // Failures leave what was there.
  const std::string old = qdtest::ReadFile(path);
  EXPECT_FALSE(set.store(dir.path() + "/missing/set.xml"));
  EXPECT_FALSE(set.store(dir.path()));   // a folder
  EXPECT_FALSE(set.store("/dev/full"));  // a device is never replaced
  struct stat info;
  ASSERT_EQ(::stat("/dev/full", &info), 0);
  EXPECT_TRUE(S_ISCHR(info.st_mode));
  EXPECT_EQ(qdtest::ReadFile(path), old);
}

// ---------------------------------------------------------------------------
// Threads
// ---------------------------------------------------------------------------

// Readers share one set and one parameter; an editor changes the original
// while a render thread reads its snapshot.
TEST(HostApi, ReadersShareAndRenderersReadSnapshots) {
  qd::Set set = Load(kPip);
  set.set_clip(0.0, 4.0);
  const qd::Param x = *set.param("position_x");
  const double expected = *x.value(1.3);
  std::atomic<int> wrong{0};
  std::vector<std::thread> readers;
  for (int r = 0; r < 4; ++r) {
    readers.emplace_back([&] {
      std::vector<double> out(64);
      for (int i = 0; i < 200; ++i) {
        if (x.value(1.3) != expected || !set.param("size") || x.keys().size() != 3) ++wrong;
        x.values(0.0, 0.05, out);
      }
    });
  }
  for (std::thread& t : readers) t.join();
  EXPECT_EQ(wrong.load(), 0);

  const qd::Set frame = set.snapshot();
  const qd::Param seen = *frame.param("position_x");
  std::thread render([&] {
    for (int i = 0; i < 500; ++i) {
      if (seen.value(1.3) != expected) ++wrong;
    }
  });
  qd::Param edited = *set.param("position_x");
  for (int i = 0; i < 50; ++i) edited.set_key_value(1, 20.0 + i);
  render.join();
  EXPECT_EQ(wrong.load(), 0);
  EXPECT_NE(edited.value(1.3), expected);
}

}  // namespace

namespace {

// The library's own objects, freshly loaded, asked by four threads at once:
// the minimum duration and the type are filled on first use.
TEST(HostApi, FreshObjectsAnswerFourThreadsAtOnce) {
  for (int round = 0; round < 20; ++round) {
    const qd::Set loaded = Load(kPip);
    const qdcore::CParamSet set(loaded.native());
    const qdcore::CParam* x = set.Get(qdcore::CStringPool::GetStringRef(u"position_x"));
    ASSERT_NE(x, nullptr);
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int r = 0; r < 4; ++r) {
      threads.emplace_back([&] {
        if (x->GetMinDuration() != 8.0 || x->GetType() != qdcore::PARAM_DOUBLE) ++wrong;
        if (set.GetValueDouble(qdcore::CStringPool::GetStringRef(u"size"), 0.0, -1.0) != 30.0) {
          ++wrong;
        }
      });
    }
    for (std::thread& t : threads) t.join();
    EXPECT_EQ(wrong.load(), 0);
  }
}

}  // namespace

namespace {

TEST(HostApi, AFrameHoldsEveryNumberOfTheSet) {
  qd::Set set = Load(kPip);
  set.set_clip(0.0, 6.0);
  const qd::Frame frame = qd::Frame::numeric(set);
  std::vector<std::string> names;
  for (const qd::Param& param : frame.params()) names.push_back(param.name());
  EXPECT_EQ(names,
            (std::vector<std::string>{"position_x", "position_y", "size", "rotation", "opacity",
                                      "border_width", "shadow", "corner_radius"}));
  std::vector<double> out(frame.params().size());
  for (double t = 0.0; t < 6.0; t += 0.7) {
    ASSERT_TRUE(frame.values(t, out));
    for (std::size_t i = 0; i < out.size(); ++i) EXPECT_EQ(out[i], frame.params()[i].value(t));
  }
  std::vector<double> tooShort(2, -1.0);
  EXPECT_FALSE(frame.values(0.0, tooShort));
  EXPECT_EQ(tooShort[0], -1.0);
  // A handle that answers nothing gives NaN in its place.
  const qd::Frame mixed({*set.param("caption"), *set.param("size")});
  std::vector<double> two(2);
  ASSERT_TRUE(mixed.values(0.0, two));
  EXPECT_TRUE(std::isnan(two[0]));
  EXPECT_EQ(two[1], 30.0);
}

// A frame starts each search where the last one ended: whatever the order of
// its times and whatever changed in between, it answers what single values do,
// and writes each value's trace line.
TEST(HostApi, AFrameAgreesWithSingleValuesAcrossJumpsAndEdits) {
  qd::Set set = Load(kPip);
  set.set_clip(0.0, 6.0);
  const qd::Frame frame = qd::Frame::numeric(set);
  std::vector<double> out(frame.params().size());
  const auto agrees = [&](double t) {
    if (!frame.values(t, out)) return false;
    for (std::size_t i = 0; i < out.size(); ++i) {
      const double single = frame.params()[i].value(t).value_or(NAN);
      if (!(out[i] == single || (std::isnan(out[i]) && std::isnan(single)))) return false;
    }
    return true;
  };
  qd::Param x = *set.param("position_x");
  const std::vector<std::function<void()>> changes = {
      [] {},
      [&] { ASSERT_TRUE(x.add_key(1.3, 0.25).ok()); },
      [&] { ASSERT_TRUE(x.remove_key(0).ok()); },
      [&] { ASSERT_TRUE(x.move_key(0, 5.5).ok()); },
      [&] { set.set_clip(2.0, 3.0); },
  };
  for (const auto& change : changes) {
    change();
    for (double t : {0.0, 5.9, 0.1, 3.0, 3.01, 2.99, -1.0, 9.0, 4.5, 1.2, 1.3}) {
      EXPECT_TRUE(agrees(t)) << t;
    }
  }
  qdtest::TraceCapture trace(398, 10);
  ASSERT_TRUE(agrees(2.5));
  EXPECT_EQ(trace.lines().size(), 2 * out.size());  // the frame's lines and the singles'
}

}  // namespace

namespace {

// Inverse lookup and motion paths place keyframes on the clip as values do.
TEST(HostApi, FindAndPathFollowTheClipAsValuesDo) {
  qd::Set set = Load(kPip);
  set.set_clip(10.0, 4.0);
  const qd::Param x = ParamOf(set, "position_x"), y = ParamOf(set, "position_y");
  const auto reached = x.find(20.0);
  ASSERT_TRUE(reached);
  // The "4s" keyframe, at 2 s of the 4 s clip; the curve arrives flat, so
  // the last nanoseconds before it already round to the keyframe's value.
  EXPECT_NEAR(*reached, 12.0, 1e-8);
  EXPECT_NEAR(*x.value(*reached), 20.0, 1e-9);

  const qd::Param opacity = ParamOf(set, "opacity");
  const std::vector<double> halves = opacity.find_all(50.0);
  ASSERT_EQ(halves.size(), 2u);  // fading in, fading out
  EXPECT_EQ(opacity.find(50.0, halves[0] + 0.1), halves[1]);
  EXPECT_EQ(opacity.find_all(50.0, std::nullopt, 1).size(), 1u);
  EXPECT_FALSE(opacity.find(150.0));
  EXPECT_FALSE(opacity.find(NAN));
  EXPECT_FALSE(ParamOf(set, "caption").find(0.0));

  // At a keyframe of the first parameter the path is at its vertex.
  const qd::Param xy[] = {x, y};
  double point[2] = {};
  ASSERT_TRUE(set.path(xy, 12.0, point));
  EXPECT_NEAR(point[0], *x.value(12.0), 1e-9);
  EXPECT_NEAR(point[1], *y.value(12.0), 1e-9);

  // Refused: nothing, too many, a parameter of another set, no room.
  const qd::Set other = Load(kPip);
  const qd::Param foreign[] = {x, ParamOf(other, "position_y")};
  const std::vector<qd::Param> nine(9, x);
  std::vector<double> out(9, -1.0);
  EXPECT_FALSE(set.path({}, 12.0, out));
  EXPECT_FALSE(set.path(nine, 12.0, out));
  EXPECT_FALSE(set.path(foreign, 12.0, out));
  EXPECT_FALSE(set.path(xy, 12.0, std::span<double>(out).first(1)));
  EXPECT_EQ(out[0], -1.0);
}

}  // namespace

namespace {

// An editor's "next keyframe" and "previous keyframe", on the set's time
// line, in time order whatever order the keyframes are stored in.
TEST(HostApi, KeyNavigation) {
  for (const bool ordered : {true, false}) {
    auto set = qd::Set::parse(ordered ? R"(<Property><Parameter id="1" name="p" useKeyframe="True">
          <Keyframe position="0.1" value="0"/><Keyframe position="0.4" value="1"/>
          <Keyframe position="0.4" value="2"/><Keyframe position="0.9" value="3"/></Parameter></Property>)"
                                      : R"(<Property><Parameter id="1" name="p" useKeyframe="True">
          <Keyframe position="0.9" value="3"/><Keyframe position="0.4" value="1"/>
          <Keyframe position="0.1" value="0"/><Keyframe position="0.4" value="2"/></Parameter></Property>)");
    ASSERT_TRUE(set.ok()) << set.error().describe();
    set->set_clip(100.0, 10.0);
    const qd::Param p = *set->param("p");
    EXPECT_EQ(p.next_key(100.0), 101.0);
    EXPECT_EQ(p.next_key(101.0), 101.0);  // at or after
    EXPECT_EQ(p.next_key(101.5), 104.0);
    EXPECT_FALSE(p.next_key(109.5));
    EXPECT_EQ(p.previous_key(104.5), 104.0);
    EXPECT_FALSE(p.previous_key(100.5));
    EXPECT_EQ(p.nearest_key(102.5), 101.0);  // as near as 104: the earlier
    EXPECT_EQ(p.nearest_key(107.0), 109.0);
    EXPECT_EQ(p.count_keys(100.0, 110.0), 4u);
    EXPECT_EQ(p.count_keys(104.0, 104.0), 2u);
    EXPECT_EQ(p.count_keys(105.0, 104.0), 0u);
    EXPECT_FALSE(p.next_key(NAN));
  }
  const qd::Set pip = Load(kPip);
  EXPECT_FALSE(ParamOf(pip, "corner_radius").next_key(0.0));  // not keyframed
}

}  // namespace

namespace {

// A keyframe put into a curve leaves it where it was: exactly for Bezier
// (split in two) and Linear; the others measured.
TEST(HostApi, InsertedKeysKeepTheCurve) {
  struct Case {
    const char* name;
    double at, from, to, tolerance;
    std::size_t keys;  // after the insertion
  } cases[] = {
      {"position_x", 1.3, 0.0, 4.0, 1e-9, 4},   // Bezier, two handles
      {"position_y", 5.5, 4.0, 8.0, 1e-9, 4},   // Bezier, the second segment
      {"border_width", 1.5, 0.0, 3.0, 0.0, 5},  // Linear, whole numbers
      {"size", 3.0, 2.0, 6.0, 0.5, 4},          // LinLog: the halves blend their own logarithms
      // An eased segment: the ease spans the segment, and each half now eases
      // on its own. Measured, not hidden: up to a fifth of the fade.
      {"opacity", 9.4, 9.0, 10.0, 20.0, 5},
  };
  for (const Case& c : cases) {
    qd::Set set = Load(kPip);
    set.set_clip(0.0, 10.0);
    qd::Param param = *set.param(c.name);
    std::vector<double> before(401), after(401);
    ASSERT_TRUE(param.values(c.from, (c.to - c.from) / 400, before));
    const auto inserted = param.insert_key(c.at);
    ASSERT_TRUE(inserted.ok()) << c.name << ": " << inserted.error().describe();
    EXPECT_EQ(param.keys().size(), c.keys) << c.name;
    ASSERT_TRUE(param.values(c.from, (c.to - c.from) / 400, after));
    double deviation = 0;
    for (std::size_t i = 0; i < before.size(); ++i) {
      deviation = std::max(deviation, std::fabs(after[i] - before[i]));
    }
    EXPECT_LE(deviation, c.tolerance) << c.name;
  }
}

}  // namespace
