// qdparam plot: the numeric parameters over time, as an SVG chart.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "commands.h"
#include "document.h"
#include "failure.h"
#include "htmlplot.h"
#include "names.h"
#include "outputfile.h"
#include "pathplot.h"
#include "payloads.h"
#include "qdparam/keyframe.h"
#include "qdparam/qdcalc.h"
#include "qdparam/types.h"
#include "selection.h"
#include "svgplot.h"
#include "textformat.h"
#include "timeline.h"
#include "values.h"

namespace qdtool {

using namespace qdcore;

namespace {

// About one sample per pixel of the plot's width; the page, which zooms,
// takes more.
constexpr int kCurveSamples = 820;
constexpr int kPageSamples = 8000;

// Which stretch of the curve a time falls in: before the keyframes, between
// keyframe `index` and the next, after the last one, or a static value.
struct Segment {
  enum Kind { Static, Before, Between, After } kind;
  int index;
  bool operator==(const Segment&) const = default;
};

// How each interpolation kind's segments are drawn; any other code holds.
constexpr std::pair<unsigned int, Stroke> kKindStrokes[] = {
    {INTERPOLATION_LINEAR, Stroke::Linear}, {INTERPOLATION_BEZIER, Stroke::Bezier},
    {INTERPOLATION_LINLOG, Stroke::LinLog}, {INTERPOLATION_SPLINE, Stroke::Spline},
    {INTERPOLATION_CUSTOM, Stroke::Custom},
};

Stroke InterpolationStroke(unsigned int code) {
  for (const auto& [kind, stroke] : kKindStrokes) {
    if (kind == code) return stroke;
  }
  return Stroke::Hold;
}

bool Steps(const CParam& param) { return param.GetType() == PARAM_BOOL; }

// Keyframes on the set's time line, in time order.
using KeyTimes = std::vector<std::pair<const CKeyFrame*, double>>;

KeyTimes KeyFrameTimes(const qd::Param& handle) {
  KeyTimes times;
  const CParam& param = *handle.native();
  if (!param.GetKeyFrameStatus()) return times;
  for (const qd::Keyframe& key : handle.keys()) times.emplace_back(param.Get(key.index), key.time);
  return times;
}

struct PanelSource {
  int samples;  // evenly spread over the window, besides the keyframes
  bool handles;
  const qd::Param& handle;
  const CParam& param;
  Window window;
  double start;
  double duration;
};

// The keyframes that bracket `time` (on the set's time line): the last one
// at or before it and whether one follows. Booleans ignore the parameter's
// easing, as their evaluation does.
Segment SegmentAt(const PanelSource& source, const KeyTimes& keys, double time) {
  const CParam& param = source.param;
  if (!param.GetKeyFrameStatus() || keys.empty()) return {Segment::Static, -1};
  if (!Steps(param) && param.GetTimeTranslation() == TIMETRANSLATION_EASEINOUT) {
    time = source.start + TimeTranslationEaseInOut(time - source.start, 0.0, source.duration);
  }
  const auto after = std::upper_bound(keys.begin(), keys.end(), time,
                                      [](double t, const auto& key) { return t < key.second; });
  if (after == keys.begin()) return {Segment::Before, -1};
  return {after != keys.end() ? Segment::Between : Segment::After,
          param.GetIndex(std::prev(after)->first)};
}

Stroke StrokeOf(const CParam& param, const Segment& segment) {
  switch (segment.kind) {
    case Segment::Static:
      return Stroke::Static;
    case Segment::Before:
    case Segment::After:
      return Stroke::Held;
    case Segment::Between:
      break;
  }
  if (Steps(param)) return Stroke::Step;
  const CKeyFrame* start = param.Get(static_cast<unsigned int>(segment.index));
  return start ? InterpolationStroke(start->GetInterpolation()) : Stroke::Hold;
}

std::string RibbonLabel(const CParam& param, const Segment& segment, Stroke stroke) {
  if (segment.kind == Segment::Static) return "static value";
  if (stroke == Stroke::Held) return "held";
  if (stroke == Stroke::Step) return "steps";
  const CKeyFrame* start = param.Get(static_cast<unsigned int>(segment.index));
  if (!start) return "";
  std::string label = InterpolationName(start->GetInterpolation());
  unsigned int anchors = 0;
  start->GetAnchors(nullptr, 0, anchors);
  if (stroke == Stroke::Spline && anchors) {
    label += ", " + std::to_string(anchors) + (anchors == 1 ? " anchor" : " anchors");
  }
  const std::string easing = EasingName(start->GetTimeTranslation());
  return easing.empty() ? label : label + ", " + easing;
}

// Evenly spread times, plus every keyframe's time so that corners and steps are exact.
std::vector<double> CurveTimes(const Window& window, const KeyTimes& keys, int samples) {
  std::vector<double> times;
  for (int i = 0; i <= samples; ++i) {
    times.push_back(window.from + (window.to - window.from) * i / samples);
  }
  for (const auto& key : keys) {
    if (key.second > window.from && key.second < window.to) times.push_back(key.second);
  }
  std::sort(times.begin(), times.end());
  times.erase(std::unique(times.begin(), times.end()), times.end());
  return times;
}

// Starts a run and its ribbon at `time`. The run begins at the last point
// drawn, so that the curve stays whole where the stroke changes.
void StartRun(const PanelSource& source, const Segment& segment, double time, Panel& panel) {
  const Stroke stroke = StrokeOf(source.param, segment);
  Run run{stroke, {}};
  if (!panel.runs.empty()) {
    panel.ribbons.back().to = time;
    if (!panel.runs.back().points.empty()) run.points.push_back(panel.runs.back().points.back());
  }
  panel.runs.push_back(std::move(run));
  panel.ribbons.push_back(
      {time, source.window.to, stroke, RibbonLabel(source.param, segment, stroke)});
}

// The curve in runs of one stroke each, one run per segment it crosses.
void AddCurve(const PanelSource& source, const KeyTimes& keys, const std::vector<double>& times,
              Panel& panel) {
  std::optional<Segment> current;
  for (const double time : times) {
    const Segment segment = SegmentAt(source, keys, time);
    if (!current || !(segment == *current)) {
      StartRun(source, segment, time, panel);
      current = segment;
    }
    const double value = NumberAt(source.handle, time);
    if (std::isfinite(value)) panel.runs.back().points.push_back({time, value});
  }
}

void AddMarks(const PanelSource& source, const KeyTimes& keys, Panel& panel) {
  int number = 0;
  for (const auto& [kf, time] : keys) {
    ++number;
    if (time < source.window.from || time > source.window.to) continue;
    const double value = NumberAt(source.handle, time);
    std::string tip = "keyframe " + std::to_string(number) + " at " + TidyNumber(time) +
                      " s: " + TidyNumber(value) + ", " + InterpolationName(kf->GetInterpolation());
    const std::string easing = EasingName(kf->GetTimeTranslation());
    if (!easing.empty()) tip += ", " + easing;
    panel.marks.push_back({time, value, tip});
  }
}

void AddLimits(const CParam& param, Panel& panel) {
  if (param.GetType() == PARAM_DOUBLE) {
    double v = 0;
    if (param.GetMinValueDouble(v)) panel.min = v;
    if (param.GetMaxValueDouble(v)) panel.max = v;
  } else if (param.GetType() == PARAM_LONG) {
    long v = 0;
    if (param.GetMinValueLong(v)) panel.min = static_cast<double>(v);
    if (param.GetMaxValueLong(v)) panel.max = static_cast<double>(v);
  }
}

std::string Details(const CParam& param) {
  std::string details = TypeName(param.GetType()) + " \u00b7 id " + std::to_string(param.GetID());
  const unsigned int count = param.GetKeyFrameStatus() ? param.GetSize() : 0;
  details += count ? " \u00b7 " + std::to_string(count) + (count == 1 ? " keyframe" : " keyframes")
                   : " \u00b7 static";
  double granularity = 0;
  long wholeGranularity = 0;
  if (param.GetType() == PARAM_DOUBLE && param.GetGranularityDouble(granularity)) {
    details += " \u00b7 steps of " + TidyNumber(granularity);
  } else if (param.GetType() == PARAM_LONG && param.GetGranularityLong(wholeGranularity)) {
    details += " \u00b7 steps of " + std::to_string(wholeGranularity);
  }
  bool inactive = false;
  if (param.GetInactiveStatus(inactive) && inactive) {
    details += " \u00b7 INACTIVE: drawn at its inactive value";
  }
  return details;
}

// Bezier handles and spline points of each keyframe, on the set's time line.
// A handle's time offset is a share of the clip; the first leaves this
// keyframe, the second (or, alone, its mirror one clip back) reaches the next.
void AddHandles(const PanelSource& source, Panel& panel) {
  const std::vector<qd::Keyframe> keys = source.handle.keys();
  for (std::size_t i = 0; i + 1 < keys.size(); ++i) {
    const qd::Keyframe &key = keys[i], &next = keys[i + 1];
    const std::vector<qd::Anchor>& anchors = key.anchors;
    if (key.interpolation == qd::Interpolation::Spline) {
      for (const qd::Anchor& a : anchors) {
        panel.splinePoints.push_back({source.start + a.position * source.duration, a.value});
      }
    }
    if (key.interpolation != qd::Interpolation::Bezier || anchors.empty() || anchors.size() > 2) {
      continue;
    }
    const qd::Anchor second =
        anchors.size() == 2 ? anchors[1] : qd::Anchor{anchors[0].position - 1.0, anchors[0].value};
    const Point from{key.time, key.value}, to{next.time, next.value};
    panel.handles.push_back(
        {from, {from.time + anchors[0].position * source.duration, from.value + anchors[0].value}});
    panel.handles.push_back(
        {to, {to.time + second.position * source.duration, to.value + second.value}});
  }
}

Panel BuildPanel(const PanelSource& source) {
  Panel panel;
  panel.title = ParamLabel(source.param);
  panel.details = Details(source.param);
  panel.unit = Utf8(source.param.GetValue(Pooled(u"unit")));
  panel.boolean = source.param.GetType() == PARAM_BOOL;
  panel.whole = source.param.GetType() == PARAM_LONG;
  AddLimits(source.param, panel);
  const KeyTimes keys = KeyFrameTimes(source.handle);
  AddCurve(source, keys, CurveTimes(source.window, keys, source.samples), panel);
  AddMarks(source, keys, panel);
  if (source.handles) AddHandles(source, panel);
  return panel;
}

// ---- lanes

// A picture of the payload at each keyframe and at a few times between.
constexpr int kGlyphsBetween = 6;

bool IsDrawnAsLane(const CParam& param) {
  if (param.GetType() == PARAM_STRING) return true;
  const unsigned int kind = param.GetBinaryInterpolationType();
  return param.GetType() == PARAM_BINARY &&
         (kind == BINARY_INTERPOLATION_TONECURVE || kind == BINARY_INTERPOLATION_COLORWHEEL ||
          kind == BINARY_INTERPOLATION_MASKMULTIPOLYGON);
}

std::optional<Glyph> GlyphAt(const Document& document, const PanelSource& source, double time) {
  const std::vector<unsigned char> bytes = BinaryAt(document.Api(), source.handle, time);
  const unsigned int kind = source.param.GetBinaryInterpolationType();
  Glyph glyph{time, {}, {}, TidyNumber(time) + " s: " + DescribePayload(kind, bytes)};
  if (kind == BINARY_INTERPOLATION_TONECURVE) {
    const auto curves = ReadToneCurves(bytes);
    if (!curves) return std::nullopt;
    for (const auto& curve : *curves) {
      std::vector<Point> points;
      if (curve.empty()) points = {{0, 0}, {1, 1}};  // the identity
      for (const auto& [x, y] : curve) points.push_back({x, y});
      glyph.curves.push_back(std::move(points));
    }
    return glyph;
  }
  if (kind == BINARY_INTERPOLATION_MASKMULTIPOLYGON) {
    const auto polygons = ReadPolygons(bytes);
    if (!polygons) return std::nullopt;
    for (const auto& polygon : *polygons) {
      std::vector<Point> outline;  // closed, and upright as on a screen
      for (const auto& [x, y] : polygon) outline.push_back({x, 1.0 - y});
      if (!outline.empty()) outline.push_back(outline.front());
      glyph.curves.push_back(std::move(outline));
    }
    return glyph;
  }
  const auto wheels = ReadColorWheels(bytes);
  if (!wheels) return std::nullopt;
  for (const ColorWheel& wheel : *wheels) glyph.swatches.push_back(WheelColour(wheel));
  return glyph;
}

// The times a lane looks at: the window's ends, its keyframes and, for
// pictures, a few evenly spread times.
std::vector<double> LaneTimes(const PanelSource& source, const KeyTimes& keys, int between) {
  std::vector<double> times{source.window.from};
  for (int i = 1; i < between; ++i) {
    times.push_back(source.window.from + (source.window.to - source.window.from) * i / between);
  }
  for (const auto& key : keys) {
    if (key.second > source.window.from && key.second < source.window.to)
      times.push_back(key.second);
  }
  std::sort(times.begin(), times.end());
  times.erase(std::unique(times.begin(), times.end()), times.end());
  return times;
}

Panel BuildLane(const Document& document, const PanelSource& source) {
  Panel panel;
  panel.lane = true;
  panel.title = ParamLabel(source.param);
  panel.details = Details(source.param);
  const KeyTimes keys = KeyFrameTimes(source.handle);
  if (source.param.GetType() == PARAM_STRING) {
    const std::vector<double> starts = LaneTimes(source, keys, 1);
    for (std::size_t i = 0; i < starts.size(); ++i) {
      const double end = i + 1 < starts.size() ? starts[i + 1] : source.window.to;
      const std::string text = source.handle.text(starts[i]).value_or("");
      if (!panel.spans.empty() && panel.spans.back().text == text) {
        panel.spans.back().to = end;  // the same text goes on
      } else {
        panel.spans.push_back({starts[i], end, text});
      }
    }
  } else {
    std::vector<double> times = LaneTimes(source, keys, kGlyphsBetween);
    times.push_back(source.window.to);  // and how it ends
    for (const double time : times) {
      if (auto glyph = GlyphAt(document, source, time)) panel.glyphs.push_back(std::move(*glyph));
    }
  }
  for (const auto& [kf, time] : keys) {
    if (time >= source.window.from && time <= source.window.to) {
      panel.marks.push_back({time, NAN, "keyframe at " + TidyNumber(time) + " s"});
    }
  }
  return panel;
}

std::string NotDrawn(const std::vector<const CParam*>& params) {
  std::string list;
  for (const CParam* param : params) {
    if (IsNumeric(param->GetType()) || IsDrawnAsLane(*param)) continue;
    list +=
        (list.empty() ? "" : ", ") + ParamLabel(*param) + " (" + TypeName(param->GetType()) + ")";
  }
  return list.empty() ? "" : "Not drawn, as they are not numbers: " + list + ".";
}

Chart BuildChart(const Document& document, const std::vector<const CParam*>& params,
                 const TimeLine& timeLine, int samples, bool handles) {
  const Window window = ResolveWindow(timeLine);
  Chart chart;
  const std::string name = Utf8(document.Set().FindAttribute(Pooled(u"name")));
  chart.title = document.Name() + (name.empty() ? "" : " \u2014 " + name);
  chart.subtitle = TidyNumber(window.from) + " s to " + TidyNumber(window.to) + " s of a " +
                   TidyNumber(timeLine.duration) + " s clip starting at " +
                   TidyNumber(timeLine.start) + " s";
  chart.from = window.from;
  chart.to = window.to;
  for (const CParam* param : params) {
    const PanelSource source{samples, handles,        document.Handle(*param), *param,
                             window,  timeLine.start, timeLine.duration};
    if (IsDrawnAsLane(*param)) chart.panels.push_back(BuildLane(document, source));
    if (!IsNumeric(param->GetType())) continue;
    chart.panels.push_back(BuildPanel(source));
  }
  chart.note = NotDrawn(params);
  return chart;
}

// Both parameters of --path, each a number that moves or stands.
std::string PathSvg(const Document& document, const PlotOptions& options) {
  const std::vector<std::string> names = PathNames(options.path);
  std::vector<qd::Param> params;
  for (const std::string& name : names) {
    const std::vector<const CParam*> found = SelectParams(document.Set(), Selection{{name}, {}});
    const CParam& param = *found.front();
    if (param.GetType() != PARAM_DOUBLE && param.GetType() != PARAM_LONG) {
      throw Failure(ParamLabel(param) + " is not a Double or Long parameter: it has no path");
    }
    params.push_back(document.Handle(param));
  }
  const Window window = ResolveWindow(options.timeLine);
  return RenderPath(document.Api(), params[0], params[1], document.Name(), window.from, window.to);
}

std::string DefaultOutput(const Document& document) {
  return std::filesystem::path(document.Path()).stem().string() + ".svg";
}

}  // namespace

void Plot(const PlotOptions& options) {
  CheckTimeLine(options.timeLine);
  const Window window = ResolveWindow(options.timeLine);
  if (!(window.from < window.to)) throw Failure("--from must be before --to to draw a chart");
  Document document(options.file);
  if (!options.html.empty() && !options.out.empty()) {
    throw Failure("--html names the page to write: leave --out out");
  }
  const std::string out = !options.html.empty() ? options.html
                          : options.out.empty() ? DefaultOutput(document)
                                                : options.out;
  CheckOutputPath(out, options.force);
  PlaceOnClip(document.Api(), options.timeLine);
  if (!options.path.empty()) {
    WriteTextFile(out, PathSvg(document, options), options.force);
    std::printf("wrote %s: the path of %s\n", out.c_str(), options.path.c_str());
    return;
  }
  const bool page = !options.html.empty();
  const Chart chart =
      BuildChart(document, SelectParams(document.Set(), options.selection), options.timeLine,
                 page ? kPageSamples : kCurveSamples, options.handles);
  if (chart.panels.empty()) throw Failure("nothing to draw: no numeric parameter chosen");
  WriteTextFile(out, page ? RenderHtml(chart) : RenderSvg(chart), options.force);
  std::printf("wrote %s: %zu panel%s\n", out.c_str(), chart.panels.size(),
              chart.panels.size() == 1 ? "" : "s");
}

}  // namespace qdtool
