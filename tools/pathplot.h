// The path view of qdparam plot: two parameters drawn against each other,
// moving along the motion path through their keyed values.
#pragma once

#include <string>
#include <vector>

#include "options.h"
#include "qdparam/qdparam.hpp"

namespace qdtool {

// The two parameter names of "x,y"; throws Failure for any other count.
std::vector<std::string> PathNames(const std::string& option);

// The SVG drawing of the path of parameters `x` and `y` of `set` from
// `from` to `to`: the curve, its vertices and a tick per second.
std::string RenderPath(const qd::Set& set, const qd::Param& x, const qd::Param& y,
                       const std::string& title, double from, double to);

}  // namespace qdtool
