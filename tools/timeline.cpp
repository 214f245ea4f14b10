#include "timeline.h"

#include <cmath>
#include <string>

#include "failure.h"
#include "qdparam/types.h"
#include "textformat.h"

namespace qdtool {

using namespace qdcore;

namespace {

// Enough for a minute at 1000 fps; more would only flood the terminal.
constexpr double kMostSamples = 100001;
// The default sampling splits the window into this many steps.
constexpr double kDefaultSteps = 10;

void RequireFinite(const char* option, double value) {
  if (!std::isfinite(value)) throw Failure(std::string(option) + " must be a finite number");
}

void RequirePositive(const char* option, double value) {
  RequireFinite(option, value);
  if (value <= 0) {
    throw Failure(std::string(option) + " must be a positive number of seconds, not " +
                  TidyNumber(value));
  }
}

// Times read back as written: no 0.30000000000000004 from 3 x 0.1.
double Tidy(double time) { return std::fabs(time) < 1e9 ? std::round(time * 1e9) / 1e9 : time; }

}  // namespace

void CheckTimeLine(const TimeLine& timeLine) {
  RequirePositive("--duration", timeLine.duration);
  RequireFinite("--start", timeLine.start);
  if (!std::isfinite(timeLine.start + timeLine.duration)) {
    throw Failure("--start plus --duration is beyond the largest time");
  }
  if (timeLine.from) RequireFinite("--from", *timeLine.from);
  if (timeLine.to) RequireFinite("--to", *timeLine.to);
  if (timeLine.fps && !(std::isfinite(*timeLine.fps) && *timeLine.fps > 0)) {
    throw Failure("--fps must be a positive number, not " + TidyNumber(*timeLine.fps));
  }
  if (timeLine.step) RequirePositive("--step", *timeLine.step);
  const Window window = ResolveWindow(timeLine);
  if (!std::isfinite(window.to - window.from)) throw Failure("--from and --to are too far apart");
  if (window.from > window.to) {
    throw Failure("--from (" + TidyNumber(window.from) + " s) is after --to (" +
                  TidyNumber(window.to) + " s)");
  }
}

void PlaceOnClip(qd::Set& set, const TimeLine& timeLine) {
  set.set_clip(timeLine.start, timeLine.duration);
}

Window ResolveWindow(const TimeLine& timeLine) {
  return {timeLine.from.value_or(timeLine.start),
          timeLine.to.value_or(timeLine.start + timeLine.duration)};
}

std::vector<double> SampleTimes(const TimeLine& timeLine) {
  CheckTimeLine(timeLine);
  const Window window = ResolveWindow(timeLine);
  const double span = window.to - window.from;
  if (span == 0) return {window.from};
  const double step = timeLine.fps    ? 1.0 / *timeLine.fps
                      : timeLine.step ? *timeLine.step
                                      : span / kDefaultSteps;
  // A step that lands on the end within rounding still reaches it.
  const double steps = std::floor(span / step + 1e-9);
  if (!(steps < kMostSamples)) {
    throw Failure("that would be more than " + TidyNumber(kMostSamples) +
                  " times; use a larger --step or a lower --fps");
  }
  std::vector<double> times;
  times.reserve(static_cast<std::size_t>(steps) + 1);
  for (double i = 0; i <= steps; ++i) times.push_back(Tidy(window.from + i * step));
  return times;
}

}  // namespace qdtool
