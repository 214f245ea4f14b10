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

// Every time in the window, on the set's time line.
std::vector<double> AllTimes(const CParamSet& set, const CParam& param, double value,
                             const Window& window) {
  const double start = static_cast<double>(set.GetStartTime());
  const mtime duration = set.GetDuration();
  std::vector<mtime> onClip(kMostListed);
  const unsigned int count = param.GetPositionsFromValueDouble(value, duration, onClip.data(),
                                                               kMostListed, window.from - start);
  if (count > kMostListed) {
    std::fprintf(stderr, "qdparam: %u times; the first %u are listed\n", count, kMostListed);
  }
  std::vector<double> times;
  for (unsigned int i = 0; i < count && i < kMostListed; ++i) {
    const double time = static_cast<double>(onClip[i]) + start;
    if (time <= window.to) times.push_back(time);
  }
  return times;
}

std::vector<double> FirstTime(const CParamSet& set, const CParam& param, double value,
                              const Window& window) {
  mtime position;
  if (!set.GetPositionFromValueDouble(&param, value, position, window.from)) return {};
  const double time = static_cast<double>(position);
  if (time > window.to) return {};
  return {time};
}

}  // namespace

void Find(const FindOptions& options) {
  CheckTimeLine(options.timeLine);
  if (!std::isfinite(options.value)) throw Failure("--value must be a finite number");
  Document document(options.file);
  PlaceOnClip(document.Set(), options.timeLine);
  const CParamSet& set = document.Set();
  const CParam& param = FindTarget(set, options);
  const Window window = ResolveWindow(options.timeLine);
  const std::vector<double> times = options.all ? AllTimes(set, param, options.value, window)
                                                : FirstTime(set, param, options.value, window);
  if (times.empty()) {
    throw Failure(ParamLabel(param) + " never reaches " + TidyNumber(options.value) + " between " +
                  TidyNumber(window.from) + " s and " + TidyNumber(window.to) + " s");
  }
  for (const double time : times) {
    std::printf("%s\n", FixedNumber(time, DecimalsNeeded(time, kDecimals)).c_str());
  }
}

}  // namespace qdtool
