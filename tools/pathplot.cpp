#include "pathplot.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <optional>

#include "failure.h"
#include "names.h"
#include "selection.h"
#include "textformat.h"
#include "timeline.h"

namespace qdtool {

using namespace qdcore;

namespace {

// ---- page layout, in pixels
constexpr double kSize = 640;   // the square the path is drawn in
constexpr double kMargin = 70;  // room for the axis labels
constexpr double kTop = 70;     // room for the title
constexpr double kSamples = 1000;
constexpr const char* kFont = "DejaVu Sans, Helvetica, Arial, sans-serif";

struct XY {
  double x, y;
};

std::string Px(double value) {
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%.1f", value);
  return buffer;
}

std::string Text(double x, double y, const std::string& text, const std::string& attributes) {
  return "<text x=\"" + Px(x) + "\" y=\"" + Px(y) + "\" " + attributes + ">" + XmlEscape(text) +
         "</text>\n";
}

std::optional<XY> PointAt(const qd::Set& set, const qd::Param (&params)[2], double time) {
  double values[2];
  if (!set.path(params, time, values)) return std::nullopt;
  if (!std::isfinite(values[0]) || !std::isfinite(values[1])) return std::nullopt;
  return XY{values[0], values[1]};
}

// Where values land in the square: x to the right, y downwards as on a
// screen, each axis fitted to the values with a little room.
struct Frame {
  double minX, maxX, minY, maxY;
  XY Place(XY p) const {
    return {kMargin + (p.x - minX) / (maxX - minX) * kSize,
            kTop + (p.y - minY) / (maxY - minY) * kSize};
  }
};

Frame FrameAround(const std::vector<XY>& points) {
  Frame f{points[0].x, points[0].x, points[0].y, points[0].y};
  for (const XY& p : points) {
    f.minX = std::min(f.minX, p.x), f.maxX = std::max(f.maxX, p.x);
    f.minY = std::min(f.minY, p.y), f.maxY = std::max(f.maxY, p.y);
  }
  const auto widen = [](double& lo, double& hi) {
    const double room = hi > lo ? (hi - lo) * 0.06 : std::max(1.0, std::fabs(lo) * 0.1);
    lo -= room;
    hi += room;
  };
  widen(f.minX, f.maxX);
  widen(f.minY, f.maxY);
  return f;
}

std::string Axes(const Frame& frame, const std::string& xName, const std::string& yName) {
  std::string svg = "<rect x=\"" + Px(kMargin) + "\" y=\"" + Px(kTop) + "\" width=\"" + Px(kSize) +
                    "\" height=\"" + Px(kSize) + "\" fill=\"#fafafa\" stroke=\"#bbbbbb\"/>\n";
  const std::string small = "font-size=\"11\" fill=\"#555555\"";
  svg += Text(kMargin, kTop + kSize + 16, TidyNumber(frame.minX), small);
  svg += Text(kMargin + kSize, kTop + kSize + 16, TidyNumber(frame.maxX),
              small + " text-anchor=\"end\"");
  svg += Text(kMargin - 6, kTop + 11, TidyNumber(frame.minY), small + " text-anchor=\"end\"");
  svg += Text(kMargin - 6, kTop + kSize, TidyNumber(frame.maxY), small + " text-anchor=\"end\"");
  svg += Text(kMargin + kSize / 2, kTop + kSize + 34, xName + " \u2192",
              "font-size=\"13\" text-anchor=\"middle\"");
  svg += Text(kMargin - 14, kTop + kSize / 2, yName + " \u2192",
              "font-size=\"13\" text-anchor=\"middle\" transform=\"rotate(90 " + Px(kMargin - 14) +
                  " " + Px(kTop + kSize / 2) + ")\"");
  return svg;
}

}  // namespace

std::vector<std::string> PathNames(const std::string& option) {
  std::vector<std::string> names;
  std::size_t begin = 0;
  for (;;) {
    const std::size_t comma = option.find(',', begin);
    names.push_back(option.substr(begin, comma == std::string::npos ? comma : comma - begin));
    if (comma == std::string::npos) break;
    begin = comma + 1;
  }
  const bool empty =
      std::any_of(names.begin(), names.end(), [](const std::string& n) { return n.empty(); });
  if (names.size() != 2 || empty) {
    throw Failure("--path takes two parameter names, as x,y (for example position_x,position_y)");
  }
  return names;
}

std::string RenderPath(const qd::Set& set, const qd::Param& x, const qd::Param& y,
                       const std::string& title, double from, double to) {
  const qd::Param names[2] = {x, y};
  std::vector<XY> curve;
  for (int i = 0; i <= kSamples; ++i) {
    if (const auto p = PointAt(set, names, from + (to - from) * i / kSamples)) curve.push_back(*p);
  }
  if (curve.empty())
    throw Failure("the path of " + ParamLabel(*x.native()) + " and " + ParamLabel(*y.native()) +
                  " has no point to draw");
  // The vertices: the path's points at the first parameter's keyframes.
  std::vector<std::pair<double, XY>> vertices;
  if (x.keyframed()) {
    for (const qd::Keyframe& key : x.keys()) {
      if (key.time < from || key.time > to) continue;
      if (const auto p = PointAt(set, names, key.time)) vertices.emplace_back(key.time, *p);
    }
  }
  const Frame frame = FrameAround(curve);
  const double width = kSize + 2 * kMargin, height = kTop + kSize + kMargin;
  std::string svg = "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" + Px(width) +
                    "\" height=\"" + Px(height) + "\" viewBox=\"0 0 " + Px(width) + " " +
                    Px(height) + "\" font-family=\"" + kFont + "\">\n";
  svg += "<rect width=\"100%\" height=\"100%\" fill=\"#ffffff\"/>\n";
  svg += Text(kMargin, 30, title, "font-size=\"18\" font-weight=\"bold\"");
  svg += Text(kMargin, 52,
              "path of " + ParamLabel(*x.native()) + " and " + ParamLabel(*y.native()) + ", " +
                  TidyNumber(from) + " s to " + TidyNumber(to) +
                  " s; dots each second, rings at keyframes",
              "font-size=\"12\" fill=\"#555555\"");
  svg += Axes(frame, ParamLabel(*x.native()), ParamLabel(*y.native()));
  std::string points;
  for (const XY& p : curve) {
    const XY at = frame.Place(p);
    points += Px(at.x) + "," + Px(at.y) + " ";
  }
  svg += "<polyline class=\"path\" fill=\"none\" stroke=\"#0072b2\" stroke-width=\"2\" points=\"" +
         points + "\"/>\n";
  for (double second = std::ceil(from); second <= to; second += 1.0) {
    const auto p = PointAt(set, names, second);
    if (!p) continue;
    const XY at = frame.Place(*p);
    svg += "<circle class=\"tick\" cx=\"" + Px(at.x) + "\" cy=\"" + Px(at.y) +
           "\" r=\"2.5\" fill=\"#333333\"><title>" + TidyNumber(second) +
           " s: " + TidyNumber(p->x) + ", " + TidyNumber(p->y) + "</title></circle>\n";
    svg += Text(at.x + 5, at.y - 5, TidyNumber(second) + " s", "font-size=\"10\" fill=\"#777777\"");
  }
  for (const auto& [time, p] : vertices) {
    const XY at = frame.Place(p);
    svg += "<circle class=\"vertex\" cx=\"" + Px(at.x) + "\" cy=\"" + Px(at.y) +
           "\" r=\"6\" fill=\"none\" stroke=\"#d55e00\" stroke-width=\"2\"><title>keyframe at " +
           TidyNumber(time) + " s: " + TidyNumber(p.x) + ", " + TidyNumber(p.y) +
           "</title></circle>\n";
  }
  svg += "</svg>\n";
  return svg;
}

}  // namespace qdtool
