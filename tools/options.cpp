#include "options.h"

#include <CLI/CLI.hpp>

namespace qdtool {

void AddFileArgument(CLI::App& command, std::string& file) {
  command.add_option("FILE", file,
                     "parameter set file (a \"Property\" element); "
                     "the bundled example when left out");
}

void AddSelection(CLI::App& command, Selection& selection) {
  // One value per flag, so that a file named after it is not taken for a name.
  command.add_option("-p,--param", selection.names, "only the parameter of this name (repeatable)")
      ->allow_extra_args(false);
  command.add_option("-i,--id", selection.ids, "only the parameter of this id (repeatable)")
      ->allow_extra_args(false);
}

void AddDuration(CLI::App& command, TimeLine& timeLine) {
  command.add_option("-d,--duration", timeLine.duration, "length of the clip in seconds")
      ->capture_default_str();
}

void AddClipWindow(CLI::App& command, TimeLine& timeLine) {
  AddDuration(command, timeLine);
  command.add_option("-s,--start", timeLine.start, "start time of the clip in seconds")
      ->capture_default_str();
  command.add_option("--from", timeLine.from, "first time to look at (default: the clip's start)");
  command.add_option("--to", timeLine.to, "last time to look at (default: the clip's end)");
}

void AddSampling(CLI::App& command, TimeLine& timeLine) {
  CLI::Option* fps = command.add_option(
      "--fps", timeLine.fps, "frames per second to sample at, exactly: 25, 29.97 or 30000/1001");
  CLI::Option* step =
      command.add_option("--step", timeLine.step, "seconds between samples (default: ten steps)");
  fps->excludes(step);
}

void AddFrames(CLI::App& command, TimeLine& timeLine) {
  command.add_option("--frames", timeLine.frames,
                     "only frames A to B of --fps (A..B, frame 0 at time 0)");
}

void AddOutput(CLI::App& command, std::string& out, bool& force, const std::string& what) {
  command.add_option("-o,--out", out, what);
  command.add_flag("-f,--force", force, "replace the output file if it exists");
}

}  // namespace qdtool
