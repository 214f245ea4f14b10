#include "timeline.h"

#include <algorithm>
#include <cmath>
#include <exception>
#include <string>
#include <tuple>
#include <utility>

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

void CheckCount(double samples) {
  if (!(samples <= kMostSamples)) {
    throw Failure("that would be more than " + TidyNumber(kMostSamples) +
                  " times; use a larger --step or a lower --fps");
  }
}

qd::Rate RateOf(const std::string& text) {
  const qd::Result<qd::Rate> rate = qd::Rate::parse(text);
  if (!rate) {
    throw Failure(
        "--fps must be a positive number of frames per second, as 25, 29.97 or "
        "30000/1001, not " +
        text);
  }
  return *rate;
}

// "A..B" with A <= B.
std::pair<std::int64_t, std::int64_t> FrameRange(const std::string& text) {
  const std::size_t dots = text.find("..");
  const auto number = [](const std::string& digits, std::int64_t& out) {
    std::size_t used = 0;
    try {
      out = std::stoll(digits, &used);
    } catch (const std::exception&) {
      return false;
    }
    return used == digits.size() && !digits.empty();
  };
  std::int64_t first = 0, last = 0;
  if (dots == std::string::npos || !number(text.substr(0, dots), first) ||
      !number(text.substr(dots + 2), last) || first > last) {
    throw Failure("--frames takes a range of frames A..B with A at most B, as 0..250, not " + text);
  }
  return {first, last};
}

// The first frame at or after `time`, and the last at or before it: from
// an estimate, moved until the exact frame times agree.
std::int64_t FirstFrameFrom(const qd::Rate& rate, double time) {
  auto frame = static_cast<std::int64_t>(std::ceil(time * static_cast<double>(rate.numerator) /
                                                   static_cast<double>(rate.denominator)));
  while (rate.frame_time(frame - 1) >= time) --frame;
  while (rate.frame_time(frame) < time) ++frame;
  return frame;
}
std::int64_t LastFrameUpTo(const qd::Rate& rate, double time) {
  std::int64_t frame = FirstFrameFrom(rate, time);
  while (rate.frame_time(frame) > time) --frame;
  return frame;
}

// Frames of --fps: those --frames names, else those in the window.
Sampling SampleFrames(const TimeLine& timeLine) {
  const qd::Rate rate = RateOf(*timeLine.fps);
  std::int64_t first = 0, last = 0;
  if (timeLine.frames) {
    std::tie(first, last) = FrameRange(*timeLine.frames);
  } else {
    const Window window = ResolveWindow(timeLine);
    // Frame numbers must stay whole numbers a double holds exactly.
    const double farthest = static_cast<double>(rate.numerator) /
                            static_cast<double>(rate.denominator) *
                            std::max(std::fabs(window.from), std::fabs(window.to));
    if (!(farthest < 1e15)) throw Failure("the times are too far from 0 to count frames");
    first = FirstFrameFrom(rate, window.from);
    last = LastFrameUpTo(rate, window.to);
  }
  CheckCount(static_cast<double>(last) - static_cast<double>(first) + 1);
  Sampling sampling;
  sampling.rate = rate;
  for (std::int64_t frame = first; frame <= last; ++frame) {
    sampling.frames.push_back(frame);
    sampling.times.push_back(rate.frame_time(frame));
  }
  return sampling;
}

}  // namespace

void CheckTimeLine(const TimeLine& timeLine) {
  RequirePositive("--duration", timeLine.duration);
  RequireFinite("--start", timeLine.start);
  if (!std::isfinite(timeLine.start + timeLine.duration)) {
    throw Failure("--start plus --duration is beyond the largest time");
  }
  if (timeLine.from) RequireFinite("--from", *timeLine.from);
  if (timeLine.to) RequireFinite("--to", *timeLine.to);
  if (timeLine.fps) RateOf(*timeLine.fps);
  if (timeLine.frames && !timeLine.fps) throw Failure("--frames counts frames of --fps: give both");
  if (timeLine.frames) FrameRange(*timeLine.frames);
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

Sampling SampleTimes(const TimeLine& timeLine) {
  CheckTimeLine(timeLine);
  if (timeLine.fps) return SampleFrames(timeLine);
  const Window window = ResolveWindow(timeLine);
  const double span = window.to - window.from;
  if (span == 0) return {{window.from}, {}, std::nullopt};
  const double step = timeLine.step ? *timeLine.step : span / kDefaultSteps;
  // A step that lands on the end within rounding still reaches it.
  const double steps = std::floor(span / step + 1e-9);
  CheckCount(steps + 1);
  Sampling sampling;
  sampling.times.reserve(static_cast<std::size_t>(steps) + 1);
  for (double i = 0; i <= steps; ++i) sampling.times.push_back(Tidy(window.from + i * step));
  return sampling;
}

}  // namespace qdtool
