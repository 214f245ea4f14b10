// What each command is asked to do, as read from the command line.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace qdtool {

// Which parameters a command looks at; nothing chosen means all of them.
struct Selection {
  std::vector<std::string> names;
  std::vector<long> ids;
};

// The clip the set is placed on and the stretch of it a command looks at.
struct TimeLine {
  double duration = 10.0;
  double start = 0.0;
  std::optional<double> from;         // default: the clip's start
  std::optional<double> to;           // default: the clip's end
  std::optional<std::string> fps;     // sampling, one or the other: a rate ("30000/1001")
  std::optional<double> step;         // or seconds; default: ten equal steps
  std::optional<std::string> frames;  // "A..B": only these frames of --fps
};

struct EvalOptions {
  std::string file;
  Selection selection;
  TimeLine timeLine;
  std::string format = "table";  // or csv, json
  bool slope = false;            // each number's slope per second instead of its value
};

struct PlotOptions {
  std::string file;
  Selection selection;
  TimeLine timeLine;
  std::string out;
  bool force = false;
  std::string path;      // "x,y": the motion path of two parameters instead
  std::string html;      // the interactive page to write instead of the SVG
  bool handles = false;  // Bezier handles and spline points at their keyframes
};

struct ShowOptions {
  std::string file;
  Selection selection;
  TimeLine timeLine;
};

struct FindOptions {
  std::string file;
  Selection selection;
  TimeLine timeLine;
  double value = 0.0;
  bool all = false;  // every time, not only the first
};

struct SimplifyOptions {
  std::string file;
  Selection selection;
  TimeLine timeLine;
  double tolerance = 0.0;
  bool bezier = false;  // fitted Bezier pieces instead of straight ones
  std::string out;
  bool force = false;
};

struct DumpOptions {
  std::string file;
};

struct ValidateOptions {
  std::string file;
  std::string out;
  bool force = false;
};

struct CheckOptions {
  std::string file;
};

// The options several commands share, added to a command's parser.
void AddFileArgument(CLI::App& command, std::string& file);
void AddSelection(CLI::App& command, Selection& selection);
void AddDuration(CLI::App& command, TimeLine& timeLine);
// The clip (--duration, --start) and the stretch of it to look at (--from, --to).
void AddClipWindow(CLI::App& command, TimeLine& timeLine);
void AddSampling(CLI::App& command, TimeLine& timeLine);
// --frames A..B, for commands that sample frames.
void AddFrames(CLI::App& command, TimeLine& timeLine);
void AddOutput(CLI::App& command, std::string& out, bool& force, const std::string& what);

}  // namespace qdtool
