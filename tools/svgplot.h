// Charts of parameter values over time, drawn as SVG: one panel per
// parameter, stacked on a shared time axis.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace qdtool {

// How a piece of curve came about, which decides its colour and dash.
enum class Stroke { Static, Held, Step, Hold, Linear, Bezier, LinLog, Spline, Custom };

struct Point {
  double time;
  double value;
};

// A stretch of curve drawn in one stroke.
struct Run {
  Stroke stroke;
  std::vector<Point> points;
};

// A keyframe segment, or a held stretch around the keyframes, named in the
// strip above the plot.
struct Ribbon {
  double from;
  double to;
  Stroke stroke;
  std::string label;
};

struct Mark {
  double time;
  double value;
  std::string tip;  // shown when the pointer rests on it
};

// A Bezier handle: the line from its keyframe to the point that shapes the
// curve.
struct Handle {
  Point from;
  Point to;
};

// A stretch of a String parameter's text, drawn as a labelled box.
struct Span {
  double from;
  double to;
  std::string text;
};

// A binary payload at a time, drawn small: curves in a unit square (tone
// curves), or colour swatches (colour wheels).
struct Glyph {
  double time;
  std::vector<std::vector<Point>> curves;  // x and y from 0 to 1
  std::vector<std::string> swatches;       // "#rrggbb", one per wheel
  std::string tip;                         // shown when the pointer rests on it
};

struct Panel {
  std::string title;
  std::string details;   // right of the title, in grey
  std::string unit;      // of the values; may be empty
  bool boolean = false;  // 0 and 1 read "off" and "on"
  bool whole = false;    // ticks never fall between whole numbers
  std::optional<double> min;
  std::optional<double> max;
  std::vector<Run> runs;
  std::vector<Ribbon> ribbons;
  std::vector<Mark> marks;
  std::vector<Handle> handles;      // drawn only when asked for
  std::vector<Point> splinePoints;  // the points a Spline segment passes through
  // A lane instead of a plot: a String parameter's spans or a binary
  // parameter's pictures along the time axis, without a value axis.
  bool lane = false;
  std::vector<Span> spans;
  std::vector<Glyph> glyphs;
};

struct Chart {
  std::string title;
  std::string subtitle;
  double from = 0.0;  // the time axis; `from` < `to`
  double to = 1.0;
  std::vector<Panel> panels;
  std::string note;  // under the panels; may be empty
};

std::string RenderSvg(const Chart& chart);

}  // namespace qdtool
