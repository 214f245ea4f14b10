// qdparam find: the times at which a parameter's value reaches a number.
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "commands.h"
#include "document.h"
#include "failure.h"
#include "selection.h"
#include "textformat.h"
#include "timeline.h"
#include "values.h"

namespace qdtool {

using namespace qdcore;

namespace {

// Nanoseconds: finer than any frame, and the search is exact to far less.
constexpr int kDecimals = 9;
// Crossings past this many are only counted.
constexpr unsigned int kMostListed = 100000;

const CParam& FindTarget(const CParamSet& set, const FindOptions& options) {
  const std::vector<const CParam*> chosen = SelectParams(set, options.selection);
  if (chosen.size() != 1)
    throw Failure("find looks at one parameter: name it with --param or --id");
  const CParam& param = *chosen.front();
  if (!IsNumeric(param.GetType()) || param.GetType() == PARAM_BOOL) {
    throw Failure(ParamLabel(param) + " is not a number parameter");
  }
  return param;
}

// The first time, or every time, in the window, on the set's time line.
std::vector<double> Times(const qd::Param& param, double value, const Window& window, bool all) {
  std::vector<double> times = all ? param.find_all(value, window.from, kMostListed + 1)
                                  : param.find_all(value, window.from, 1);
  if (times.size() > kMostListed) {
    std::fprintf(stderr, "qdparam: more than %u times; the first %u are listed\n", kMostListed,
                 kMostListed);
    times.resize(kMostListed);
  }
  std::erase_if(times, [&](double time) { return time > window.to; });
  return times;
}

}  // namespace

void Find(const FindOptions& options) {
  CheckTimeLine(options.timeLine);
  if (!std::isfinite(options.value)) throw Failure("--value must be a finite number");
  Document document(options.file);
  PlaceOnClip(document.Api(), options.timeLine);
  const CParam& param = FindTarget(document.Set(), options);
  const Window window = ResolveWindow(options.timeLine);
  const std::vector<double> times =
      Times(document.Handle(param), options.value, window, options.all);
  if (times.empty()) {
    throw Failure(ParamLabel(param) + " never reaches " + TidyNumber(options.value) + " between " +
                  TidyNumber(window.from) + " s and " + TidyNumber(window.to) + " s");
  }
  for (const double time : times) {
    std::printf("%s\n", FixedNumber(time, DecimalsNeeded(time, kDecimals)).c_str());
  }
}

}  // namespace qdtool
