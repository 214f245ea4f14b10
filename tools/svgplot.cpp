#include "svgplot.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <optional>
#include <string>

#include "textformat.h"

namespace qdtool {

namespace {

// ---- page layout, in pixels
constexpr double kWidth = 1000;
constexpr double kLeft = 86;    // room for the value ticks
constexpr double kRight = 124;  // room for the limit labels and the time unit
constexpr double kPlotWidth = kWidth - kLeft - kRight;
constexpr double kTitleHeight = 26;
constexpr double kRibbonHeight = 20;
constexpr double kPlotHeight = 120;
constexpr double kAxisHeight = 22;
constexpr double kPanelGap = 22;
constexpr double kPanelHeight =
    kTitleHeight + kRibbonHeight + kPlotHeight + kAxisHeight + kPanelGap;
constexpr double kLegendTop = 74;
constexpr double kLegendLine = 20;
constexpr double kFooterHeight = 30;
constexpr const char* kFont = "DejaVu Sans, Helvetica, Arial, sans-serif";
// Average advance of this font per character, as a share of its size.
constexpr double kCharWidth = 0.6;
// Values may fill this share of the plot's height; the rest keeps marks off the frame.
constexpr double kHeadroom = 0.08;
// Limits far outside the values would flatten the curve: they widen the value
// axis only up to this many times the values' own span.
constexpr double kWidestLimitZoom = 4;

// Tick labels from here on take an exponent, to fit left of the plot.
constexpr double kLongestTick = 1e6;

struct Style {
  const char* colour;
  const char* dash;
  const char* legend;
};

Style StyleOf(Stroke stroke) {
  switch (stroke) {
    case Stroke::Static:
      return {"#444444", "", "static value"};
    case Stroke::Held:
      return {"#8c8c8c", "6 4", "held before/after the keyframes"};
    case Stroke::Step:
      return {"#d55e00", "", "steps"};
    case Stroke::Hold:
      return {"#d55e00", "", "Hold"};
    case Stroke::Linear:
      return {"#0072b2", "", "Linear"};
    case Stroke::Bezier:
      return {"#cc79a7", "", "Bezier"};
    case Stroke::LinLog:
      return {"#e69f00", "", "LinLog"};
    case Stroke::Spline:
      return {"#009e73", "", "Spline"};
    case Stroke::Custom:
      return {"#56b4e9", "", "Custom"};
  }
  return {"#000000", "", ""};
}

constexpr Stroke kAllStrokes[] = {Stroke::Linear, Stroke::Bezier, Stroke::Spline,
                                  Stroke::LinLog, Stroke::Hold,   Stroke::Custom,
                                  Stroke::Step,   Stroke::Static, Stroke::Held};

std::string Px(double value) {
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%.1f", value);
  return buffer;
}

double TextWidth(const std::string& text, double size) {
  return static_cast<double>(DisplayWidth(text)) * size * kCharWidth;
}

std::string Text(double x, double y, const std::string& text, const std::string& attributes) {
  return "<text x=\"" + Px(x) + "\" y=\"" + Px(y) + "\" " + attributes + ">" + XmlEscape(text) +
         "</text>\n";
}

std::string Line(double x1, double y1, double x2, double y2, const std::string& attributes) {
  return "<line x1=\"" + Px(x1) + "\" y1=\"" + Px(y1) + "\" x2=\"" + Px(x2) + "\" y2=\"" + Px(y2) +
         "\" " + attributes + "/>\n";
}

std::string Rect(double x, double y, double width, double height, const std::string& attributes) {
  return "<rect x=\"" + Px(x) + "\" y=\"" + Px(y) + "\" width=\"" + Px(std::max(width, 0.0)) +
         "\" height=\"" + Px(std::max(height, 0.0)) + "\" " + attributes + "/>\n";
}

std::string Diamond(double x, double y, double radius) {
  std::string path = "M";
  path += Px(x) + "," + Px(y - radius) + " L" + Px(x + radius) + "," + Px(y) + " L" + Px(x) + "," +
          Px(y + radius) + " L" + Px(x - radius) + "," + Px(y) + " Z";
  return path;
}

// ---- scales

// A round step that splits `span` into about `parts` pieces.
double NiceStep(double span, double parts) {
  const double raw = span / parts;
  const double magnitude = std::pow(10.0, std::floor(std::log10(raw)));
  const double fraction = raw / magnitude;
  const double nice = fraction < 1.5 ? 1 : fraction < 3 ? 2 : fraction < 7 ? 5 : 10;
  return nice * magnitude;
}

// A stretch of numbers, ticks every `step` from `lo` to `hi`, mapped onto pixels.
struct Axis {
  double lo;
  double hi;
  double step;  // 0: no round ticks, only the ends

  // Halves keep the arithmetic finite for values near the largest double.
  double Share(double value) const {
    const double share = (value * 0.5 - lo * 0.5) / (hi * 0.5 - lo * 0.5);
    return std::clamp(std::isfinite(share) ? share : 0.5, -10.0, 11.0);
  }

  std::vector<double> Ticks() const {
    if (!(step > 0) || !std::isfinite((hi - lo) / step)) return {lo, hi};
    std::vector<double> ticks;
    for (int k = 0; k <= 100; ++k) {
      const double tick = lo + k * step;
      if (tick > hi + step * 1e-6) break;
      ticks.push_back(std::fabs(tick) < step * 1e-9 ? 0.0 : tick);
    }
    return ticks;
  }

  std::string Label(double value) const {
    if (std::fabs(value) >= kLongestTick) return TidyNumber(value);
    return FixedNumber(value, step > 0 ? DecimalsNeeded(step, 6) : 3);
  }
};

Axis RoundAxis(double lo, double hi, double parts, bool whole) {
  double step = NiceStep(hi - lo, parts);
  if (whole) step = std::max(1.0, std::round(step));
  const Axis rounded{std::floor(lo / step) * step, std::ceil(hi / step) * step, step};
  if (!std::isfinite(rounded.lo) || !std::isfinite(rounded.hi) || !(step > 0)) return {lo, hi, 0};
  return rounded;
}

Axis ValueAxis(const Panel& panel) {
  if (panel.boolean) return {0, 1, 1};
  double lo = INFINITY;
  double hi = -INFINITY;
  for (const Run& run : panel.runs) {
    for (const Point& point : run.points) {
      if (!std::isfinite(point.value)) continue;
      lo = std::min(lo, point.value);
      hi = std::max(hi, point.value);
    }
  }
  if (lo > hi) {  // nothing to draw
    lo = 0;
    hi = 1;
  }
  const double limitLo = std::min(lo, panel.min.value_or(lo));
  const double limitHi = std::max(hi, panel.max.value_or(hi));
  if (hi == lo || limitHi - limitLo <= kWidestLimitZoom * (hi - lo)) {
    lo = limitLo;
    hi = limitHi;
  }
  if (hi == lo) {
    const double pad = std::max(lo != 0 ? std::fabs(lo) * 0.1 : 1.0, panel.whole ? 1.0 : 0.0);
    lo -= pad;
    hi += pad;
  }
  if (!std::isfinite(hi - lo)) return {lo, hi, 0};
  return RoundAxis(lo, hi, 4, panel.whole);
}

// ---- one panel

struct Frame {
  double left;
  double top;
  double width;
  double height;
  Axis time;
  Axis value;
  Axis view;  // the value axis with headroom

  double X(double t) const { return left + time.Share(t) * width; }
  double Y(double v) const { return top + height - view.Share(v) * height; }
};

Frame MakeFrame(const Panel& panel, double top, double from, double to) {
  const Axis value = ValueAxis(panel);
  const double room = (value.hi * 0.5 - value.lo * 0.5) * 2 * kHeadroom;
  const Axis view{value.lo - room, value.hi + room, 0};
  const double timeStep = NiceStep(to - from, 10);
  return {kLeft,
          top,
          kPlotWidth,
          kPlotHeight,
          {from, to, timeStep},
          value,
          std::isfinite(view.hi - view.lo) ? view : value};
}

std::string ValueTickLabel(const Panel& panel, const Axis& axis, double tick) {
  if (panel.boolean) return tick == 0 ? "off" : "on";
  return axis.Label(tick);
}

// The time ticks and their guides, under a plot or a lane.
std::string TimeGrid(const Frame& f) {
  std::string svg;
  std::vector<double> timeTicks = f.time.Ticks();
  if (f.time.step > 0) {  // round ticks start at the first multiple inside the axis
    const double first = std::ceil(f.time.lo / f.time.step - 1e-9) * f.time.step;
    timeTicks = Axis{first, f.time.hi, f.time.step}.Ticks();
  }
  for (const double tick : timeTicks) {
    const double x = f.X(tick);
    svg += Line(x, f.top, x, f.top + f.height, "stroke=\"#f2f2f2\"");
    svg += Line(x, f.top + f.height, x, f.top + f.height + 4, "stroke=\"#999999\"");
    svg += Text(x, f.top + f.height + 16, f.time.Label(tick),
                "text-anchor=\"middle\" font-size=\"11\" fill=\"#555555\"");
  }
  svg += Text(f.left + f.width + 18, f.top + f.height + 16, "time (s)",
              "font-size=\"11\" fill=\"#555555\"");
  return svg;
}

std::string Grid(const Panel& panel, const Frame& f) {
  std::string svg = Rect(f.left, f.top, f.width, f.height, "fill=\"#ffffff\" stroke=\"#c8c8c8\"");
  for (const double tick : f.value.Ticks()) {
    const double y = f.Y(tick);
    svg += Line(f.left, y, f.left + f.width, y, "stroke=\"#ececec\"");
    svg += Text(f.left - 8, y + 4, ValueTickLabel(panel, f.value, tick),
                "text-anchor=\"end\" font-size=\"11\" fill=\"#555555\"");
  }
  if (!panel.unit.empty()) {
    svg += Text(f.left - 8, f.top - 6, panel.unit,
                "text-anchor=\"end\" font-size=\"11\" fill=\"#555555\"");
  }
  return svg + TimeGrid(f);
}

// Percent and degree signs sit against the number; other units follow a space.
std::string WithUnit(const std::string& unit) {
  if (unit.empty()) return "";
  return unit == "%" || unit == "\u00b0" ? unit : " " + unit;
}

std::string LimitLine(const Frame& f, double limit, const std::string& name,
                      const std::string& unit) {
  const double y = f.Y(limit);
  const bool inside = y >= f.top && y <= f.top + f.height;
  std::string label = name + " " + TidyNumber(limit) + WithUnit(unit);
  if (!inside) label += y < f.top ? " \u2191" : " \u2193";
  const double shown = std::clamp(y, f.top + 4, f.top + f.height);
  std::string svg;
  if (inside) {
    svg += Line(f.left, y, f.left + f.width, y,
                "class=\"limit\" stroke=\"#7f93ad\" stroke-dasharray=\"3 3\"");
  }
  return svg + Text(f.left + f.width + 8, shown + 4, label, "font-size=\"11\" fill=\"#5b6f89\"");
}

std::string Limits(const Panel& panel, const Frame& f) {
  if (!panel.min && !panel.max) return "";
  const double top = panel.max ? std::clamp(f.Y(*panel.max), f.top, f.top + f.height) : f.top;
  const double bottom =
      panel.min ? std::clamp(f.Y(*panel.min), f.top, f.top + f.height) : f.top + f.height;
  std::string svg = "<g class=\"limits\">\n";
  svg += Rect(f.left, top, f.width, bottom - top, "fill=\"#e6eef8\"");
  if (panel.max) svg += LimitLine(f, *panel.max, "max", panel.unit);
  if (panel.min) svg += LimitLine(f, *panel.min, "min", panel.unit);
  return svg + "</g>\n";
}

std::string Ribbons(const Panel& panel, const Frame& f) {
  std::string svg;
  const double bar = f.top - 8;
  for (const Ribbon& ribbon : panel.ribbons) {
    const double x1 = f.X(std::max(ribbon.from, f.time.lo));
    const double x2 = f.X(std::min(ribbon.to, f.time.hi));
    if (x2 - x1 < 0.5) continue;
    const Style style = StyleOf(ribbon.stroke);
    svg += Rect(x1 + 1, bar, x2 - x1 - 2, 4,
                std::string("class=\"segment\" fill=\"") + style.colour + "\" fill-opacity=\"" +
                    (ribbon.stroke == Stroke::Held ? "0.45" : "0.9") + "\"");
    if (TextWidth(ribbon.label, 11) + 8 > x2 - x1) continue;  // no room: the colour tells
    svg +=
        Text((x1 + x2) / 2, bar - 4, ribbon.label,
             std::string("text-anchor=\"middle\" font-size=\"11\" fill=\"") + style.colour + "\"");
  }
  return svg;
}

// A run's points in pixels, at most four in each half-pixel column: the
// first, the lowest, the highest and the last, in their order. A dense curve
// costs the plot's width, not its samples, and stays exact to the pixel.
class PixelThinner {
 public:
  explicit PixelThinner(std::vector<Point>& out) : m_out(out) {}
  ~PixelThinner() { Flush(); }
  PixelThinner(const PixelThinner&) = delete;
  PixelThinner& operator=(const PixelThinner&) = delete;

  void Add(Point at) {
    if (!m_column.empty() && std::fabs(at.time - m_column.front().time) >= 0.5) Flush();
    m_column.push_back(at);
  }

 private:
  void Flush() {
    if (m_column.empty()) return;
    const auto byValue = [](const Point& a, const Point& b) { return a.value < b.value; };
    const auto low = std::min_element(m_column.begin(), m_column.end(), byValue);
    const auto high = std::max_element(m_column.begin(), m_column.end(), byValue);
    std::vector<std::size_t> keep{0, static_cast<std::size_t>(low - m_column.begin()),
                                  static_cast<std::size_t>(high - m_column.begin()),
                                  m_column.size() - 1};
    std::sort(keep.begin(), keep.end());
    keep.erase(std::unique(keep.begin(), keep.end()), keep.end());
    for (const std::size_t i : keep) m_out.push_back(m_column[i]);
    m_column.clear();
  }

  std::vector<Point>& m_out;
  std::vector<Point> m_column;
};

void AppendPixels(const Run& run, const Frame& f, bool steps, PixelThinner& thinner) {
  std::optional<double> lastValue;
  for (const Point& point : run.points) {
    const Point at{f.X(point.time), f.Y(point.value)};
    if (steps && lastValue) thinner.Add({at.time, f.Y(*lastValue)});
    lastValue = point.value;
    thinner.Add(at);
  }
}

std::string Curves(const Panel& panel, const Frame& f, const std::string& clip) {
  std::string svg = "<g clip-path=\"url(#" + clip +
                    ")\" fill=\"none\" stroke-width=\"2.2\" "
                    "stroke-linejoin=\"round\">\n";
  // Whole numbers and switches change at once: steps, not slopes.
  const bool steps = panel.whole || panel.boolean;
  // Runs of one stroke that follow each other are one line.
  for (std::size_t i = 0; i < panel.runs.size();) {
    const Stroke stroke = panel.runs[i].stroke;
    std::vector<Point> pixels;
    {
      PixelThinner thinner(pixels);
      for (; i < panel.runs.size() && panel.runs[i].stroke == stroke; ++i) {
        AppendPixels(panel.runs[i], f, steps, thinner);
      }
    }
    if (pixels.empty()) continue;
    std::string points;
    for (const Point& at : pixels) {
      if (!points.empty()) points += ' ';
      points += Px(at.time) + "," + Px(at.value);
    }
    const Style style = StyleOf(stroke);
    svg += "<polyline class=\"curve\" stroke=\"" + std::string(style.colour) + "\"";
    if (*style.dash) svg += std::string(" stroke-dasharray=\"") + style.dash + "\"";
    svg += " points=\"" + points + "\"/>\n";
  }
  return svg + "</g>\n";
}

// Where a switch is on, a band under its curve: one band a stretch.
std::string OnBands(const Panel& panel, const Frame& f) {
  if (!panel.boolean) return "";
  std::string svg;
  const auto band = [&](double from, double to) {
    svg += Rect(f.X(from), f.Y(1), f.X(to) - f.X(from), f.Y(0) - f.Y(1),
                "class=\"on-band\" fill=\"#f6d4a6\" fill-opacity=\"0.6\"");
  };
  bool on = false;
  double since = 0.0, last = 0.0;      // where the stretch being gathered began; the last time
  for (const Run& run : panel.runs) {  // runs go on from one another
    for (const Point& point : run.points) {
      const bool now = point.value >= 0.5;
      if (now && !on) since = point.time;
      if (on && !now) band(since, point.time);
      on = now;
      last = point.time;
    }
  }
  if (on) band(since, last);
  return svg;
}

// ---- lanes: a String parameter's spans, a binary parameter's pictures

constexpr const char* kCurveColours[] = {"#333333", "#d62728", "#2ca02c", "#1f77b4"};
constexpr double kGlyph = 64;  // the side of a picture

std::string SpanBoxes(const Panel& panel, const Frame& f) {
  std::string svg;
  const double top = f.top + f.height / 2 - 14;
  for (const Span& span : panel.spans) {
    const double x1 = f.X(std::max(span.from, f.time.lo));
    const double x2 = f.X(std::min(span.to, f.time.hi));
    if (x2 - x1 < 1) continue;
    svg += Rect(x1 + 1, top, x2 - x1 - 2, 28,
                "class=\"span\" fill=\"#eef3e6\" stroke=\"#8aa36a\" rx=\"4\"");
    const std::string label = Shorten(span.text, static_cast<std::size_t>((x2 - x1) / 7));
    svg += "<text x=\"" + Px(x1 + 6) + "\" y=\"" + Px(top + 18) +
           "\" font-size=\"12\" fill=\"#33421f\">" + XmlEscape(label) + "<title>" +
           XmlEscape(span.text) + "</title></text>\n";
  }
  return svg;
}

std::string GlyphBoxes(const Panel& panel, const Frame& f) {
  std::string svg;
  const double top = f.top + (f.height - kGlyph) / 2;
  for (const Glyph& glyph : panel.glyphs) {
    const double left = std::clamp(f.X(glyph.time) - kGlyph / 2, f.left, f.left + f.width - kGlyph);
    svg += "<g class=\"glyph\"><title>" + XmlEscape(glyph.tip) + "</title>\n";
    svg += Rect(left, top, kGlyph, kGlyph, "fill=\"#ffffff\" stroke=\"#999999\"");
    for (std::size_t c = 0; c < glyph.curves.size(); ++c) {
      std::string points;
      for (const Point& p : glyph.curves[c]) {
        if (!std::isfinite(p.time) || !std::isfinite(p.value)) continue;
        points += Px(left + std::clamp(p.time, 0.0, 1.0) * kGlyph) + "," +
                  Px(top + kGlyph - std::clamp(p.value, 0.0, 1.0) * kGlyph) + " ";
      }
      svg += std::string("<polyline fill=\"none\" stroke-width=\"1.4\" stroke=\"") +
             kCurveColours[c % std::size(kCurveColours)] + "\" points=\"" + points + "\"/>\n";
    }
    const double swatch = kGlyph / std::max<std::size_t>(glyph.swatches.size(), 1);
    for (std::size_t s = 0; s < glyph.swatches.size(); ++s) {
      svg += Rect(left, top + s * swatch, kGlyph, swatch,
                  "class=\"swatch\" fill=\"" + glyph.swatches[s] + "\"");
    }
    svg += "</g>\n";
  }
  return svg;
}

std::string RenderLane(const Panel& panel, const Frame& f) {
  std::string svg = Rect(f.left, f.top, f.width, f.height, "fill=\"#fafafa\" stroke=\"#c8c8c8\"");
  svg += TimeGrid(f);
  return svg + SpanBoxes(panel, f) + GlyphBoxes(panel, f);
}

// Keyframes closer than this many pixels apart on average are too dense
// for a mark each: they become one row of ticks under the plot.
constexpr double kDensestMarks = 4;

std::string Marks(const Panel& panel, const Frame& f) {
  std::string svg;
  if (static_cast<double>(panel.marks.size()) * kDensestMarks > f.width) {
    std::string ticks, lastX;  // one tick a pixel
    const std::string y = Px(f.top + f.height - 6);
    for (const Mark& mark : panel.marks) {
      const std::string x = Px(f.X(mark.time));
      if (x == lastX) continue;
      ticks += 'M';
      ticks += x;
      ticks += ',';
      ticks += y;
      ticks += "v6";
      lastX = x;
    }
    return "<path class=\"keyframe-ticks\" d=\"" + ticks +
           "\" stroke=\"#1b1b1b\" stroke-width=\"1\"><title>" + std::to_string(panel.marks.size()) +
           " keyframes</title></path>\n";
  }
  for (const Mark& mark : panel.marks) {  // guides first, so that no guide crosses a mark
    const double x = f.X(mark.time);
    svg += Line(x, f.top - 6, x, f.top + f.height, "stroke=\"#b0b0b0\" stroke-dasharray=\"1 3\"");
  }
  for (const Mark& mark : panel.marks) {
    const double y = std::isfinite(mark.value)
                         ? std::clamp(f.Y(mark.value), f.top, f.top + f.height)
                         : f.top + f.height;
    svg += "<path class=\"keyframe\" d=\"" + Diamond(f.X(mark.time), y, 5.5) +
           "\" fill=\"#ffffff\" stroke=\"#1b1b1b\" stroke-width=\"1.6\"><title>" +
           XmlEscape(mark.tip) + "</title></path>\n";
  }
  return svg;
}

std::string Handles(const Panel& panel, const Frame& f, const std::string& clip) {
  if (panel.handles.empty() && panel.splinePoints.empty()) return "";
  std::string svg = "<g clip-path=\"url(#" + clip + ")\">\n";
  for (const Handle& handle : panel.handles) {
    const double x = f.X(handle.to.time), y = f.Y(handle.to.value);
    svg += Line(f.X(handle.from.time), f.Y(handle.from.value), x, y,
                "class=\"handle\" stroke=\"#7a7a7a\" stroke-width=\"1.2\"");
    svg += "<circle cx=\"" + Px(x) + "\" cy=\"" + Px(y) +
           "\" r=\"3.2\" fill=\"#ffffff\" stroke=\"#555555\" stroke-width=\"1.2\"/>\n";
  }
  for (const Point& point : panel.splinePoints) {
    svg += Rect(f.X(point.time) - 3, f.Y(point.value) - 3, 6, 6,
                "class=\"spline-point\" fill=\"#ffffff\" stroke=\"#555555\" stroke-width=\"1.2\"");
  }
  return svg + "</g>\n";
}

std::string RenderPanel(const Panel& panel, std::size_t index, double top, double from, double to) {
  const Frame f = MakeFrame(panel, top + kTitleHeight + kRibbonHeight, from, to);
  const std::string clip = "plot-" + std::to_string(index);
  std::string svg = "<g class=\"panel\" data-name=\"" + XmlEscape(panel.title) + "\">\n";
  svg += "<clipPath id=\"" + clip + "\">" + Rect(f.left, f.top, f.width, f.height, "") +
         "</clipPath>\n";
  svg +=
      Text(kLeft, top + 16, panel.title, "font-size=\"14\" font-weight=\"bold\" fill=\"#1b1b1b\"");
  svg += Text(kLeft + kPlotWidth, top + 16, panel.details,
              "text-anchor=\"end\" font-size=\"12\" fill=\"#666666\"");
  if (panel.lane) {
    svg += RenderLane(panel, f);
    svg += Marks(panel, f);
    return svg + "</g>\n";
  }
  svg += Grid(panel, f);
  svg += Limits(panel, f);
  svg += Ribbons(panel, f);
  svg += OnBands(panel, f);
  svg += Curves(panel, f, clip);
  svg += Handles(panel, f, clip);
  svg += Marks(panel, f);
  return svg + "</g>\n";
}

// ---- header and legend

std::vector<Stroke> StrokesUsed(const Chart& chart) {
  std::vector<Stroke> used;
  for (const Stroke stroke : kAllStrokes) {
    for (const Panel& panel : chart.panels) {
      const bool uses = std::any_of(panel.runs.begin(), panel.runs.end(),
                                    [&](const Run& run) { return run.stroke == stroke; });
      if (uses && std::find(used.begin(), used.end(), stroke) == used.end()) used.push_back(stroke);
    }
  }
  return used;
}

struct LegendItem {
  std::string svgAt;  // drawn with its left edge at x = 0, its middle at y = 0
  std::string label;
};

std::vector<LegendItem> LegendItems(const Chart& chart) {
  std::vector<LegendItem> items;
  for (const Stroke stroke : StrokesUsed(chart)) {
    const Style style = StyleOf(stroke);
    std::string line = "<line x1=\"0\" y1=\"0\" x2=\"24\" y2=\"0\" stroke-width=\"2.6\" stroke=\"" +
                       std::string(style.colour) + "\"";
    if (*style.dash) line += std::string(" stroke-dasharray=\"") + style.dash + "\"";
    items.push_back({line + "/>", style.legend});
  }
  items.push_back({"<path d=\"" + Diamond(12, 0, 5.5) +
                       "\" fill=\"#ffffff\" stroke=\"#1b1b1b\" stroke-width=\"1.6\"/>",
                   "keyframe"});
  items.push_back(
      {"<rect x=\"0\" y=\"-6\" width=\"24\" height=\"12\" fill=\"#e6eef8\" "
       "stroke=\"#7f93ad\" stroke-dasharray=\"3 3\"/>",
       "allowed range (limits)"});
  return items;
}

// The legend's items in rows that fit the page; `rows` gets their count.
std::string Legend(const Chart& chart, int& rows) {
  std::string svg;
  double x = kLeft;
  rows = 1;
  for (const LegendItem& item : LegendItems(chart)) {
    const double width = 32 + TextWidth(item.label, 12) + 18;
    if (x > kLeft && x + width > kWidth - 20) {
      x = kLeft;
      ++rows;
    }
    const double y = kLegendTop + (rows - 1) * kLegendLine;
    svg += "<g transform=\"translate(" + Px(x) + "," + Px(y) + ")\">" + item.svgAt + "</g>\n";
    svg += Text(x + 32, y + 4, item.label, "font-size=\"12\" fill=\"#333333\"");
    x += width;
  }
  return svg;
}

}  // namespace

std::string RenderSvg(const Chart& chart) {
  int legendRows = 1;
  const std::string legend = Legend(chart, legendRows);
  const double panelsTop = kLegendTop + legendRows * kLegendLine + 16;
  const double height =
      panelsTop + static_cast<double>(chart.panels.size()) * kPanelHeight + kFooterHeight;
  std::string svg =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" +
      Px(kWidth) + "\" height=\"" + Px(height) + "\" viewBox=\"0 0 " + Px(kWidth) + " " +
      Px(height) + "\" font-family=\"" + kFont + "\">\n";
  svg += Rect(0, 0, kWidth, height, "fill=\"#ffffff\"");
  svg += Text(kLeft, 34, chart.title, "font-size=\"20\" font-weight=\"bold\" fill=\"#1b1b1b\"");
  svg += Text(kLeft, 56, chart.subtitle, "font-size=\"13\" fill=\"#555555\"");
  svg += legend;
  for (std::size_t i = 0; i < chart.panels.size(); ++i) {
    svg += RenderPanel(chart.panels[i], i, panelsTop + static_cast<double>(i) * kPanelHeight,
                       chart.from, chart.to);
  }
  if (!chart.note.empty()) {
    svg += Text(kLeft, height - 14, chart.note, "font-size=\"12\" fill=\"#666666\"");
  }
  return svg + "</svg>\n";
}

}  // namespace qdtool
