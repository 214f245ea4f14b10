// qdparam simplify: a densely keyed parameter thinned to the fewest
// keyframes that keep it within a tolerance, written to a new file.
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "commands.h"
#include "document.h"
#include "failure.h"
#include "outputfile.h"
#include "selection.h"
#include "textformat.h"
#include "timeline.h"

namespace qdtool {

using namespace qdcore;

void Simplify(const SimplifyOptions& options) {
  CheckTimeLine(options.timeLine);
  if (!std::isfinite(options.tolerance) || options.tolerance < 0.0) {
    throw Failure("--tolerance must be a finite number, 0 or more");
  }
  CheckOutputPath(options.out, options.force);
  Document document(options.file);
  PlaceOnClip(document.Api(), options.timeLine);
  const std::vector<const CParam*> chosen = SelectParams(document.Set(), options.selection);
  if (chosen.size() != 1) {
    throw Failure("simplify thins one parameter: name it with --param or --id");
  }
  qd::Param param = document.Handle(*chosen.front());
  const auto shape = options.bezier ? qd::Interpolation::Bezier : qd::Interpolation::Linear;
  const auto report = param.simplify(options.tolerance, shape);
  if (!report) throw Failure(report.error().message);
  std::printf("%s: %zu -> %zu keyframes, largest difference %s\n", param.name().c_str(),
              report->keys_before, report->keys_after, TidyNumber(report->max_deviation).c_str());
  WriteTextFile(options.out, document.Api().to_xml(), options.force);
  std::printf("wrote %s\n", options.out.c_str());
}

}  // namespace qdtool
