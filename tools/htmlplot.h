// The interactive chart of qdparam plot --html: one self-contained page
// (script and styles inline, nothing fetched) that draws the chart's panels,
// reads every parameter's value at the hovered time, zooms and pans the time
// axis and shows or hides parameters by their names.
#pragma once

#include <string>

#include "svgplot.h"

namespace qdtool {

// The page for `chart`, whose runs must be sampled densely enough for the
// zoom the page allows: every value it shows is one the library gave.
std::string RenderHtml(const Chart& chart);

}  // namespace qdtool
