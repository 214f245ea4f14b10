// The path view of qdparam plot: two parameters drawn against each other,
// moving along the motion path through their keyed values.
#pragma once

#include <string>
#include <vector>

#include "options.h"
#include "qdparam/paramset.h"

namespace qdtool {

// The two parameter names of "x,y"; throws Failure for any other count.
std::vector<std::string> PathNames(const std::string& option);

// The SVG drawing of the path of parameters `x` and `y` of `set` over
// `window`: the curve, its vertices and a tick per second.
std::string RenderPath(const qdcore::CParamSet& set, const qdcore::CParam& x,
                       const qdcore::CParam& y, const std::string& title, double from, double to,
                       double start, double duration);

}  // namespace qdtool
