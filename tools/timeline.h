// Times: checking the user's clip, the times a command samples, and where a
// keyframe sits on the clip.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "options.h"
#include "qdparam/qdparam.hpp"

namespace qdtool {

struct Window {
  double from;
  double to;
};

// Throws Failure for a non-positive duration or a number that is no number.
void CheckTimeLine(const TimeLine& timeLine);
// Gives the set the clip's start and duration.
void PlaceOnClip(qd::Set& set, const TimeLine& timeLine);
// The stretch looked at, the clip itself unless --from or --to narrow it.
Window ResolveWindow(const TimeLine& timeLine);
// The times a command samples: every frame of --fps in the window (or the
// frames --frames names), each at its exact time; else evenly spaced times
// over the window, both ends included.
struct Sampling {
  std::vector<double> times;
  std::vector<std::int64_t> frames;  // the frame of each time; empty without --fps
  std::optional<qd::Rate> rate;
};
Sampling SampleTimes(const TimeLine& timeLine);

}  // namespace qdtool
