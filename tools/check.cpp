// qdparam check: every finding in a parameter document, one line each, in
// the form compilers use so that editors can jump to it.
#include "qdparam/check.h"

#include <cstdio>
#include <string>

#include "commands.h"
#include "document.h"
#include "failure.h"

namespace qdtool {

using namespace qdcore;

namespace {

std::string Line(const std::string& path, const CheckFinding& finding) {
  std::string line = path + ":";
  if (finding.line)
    line += std::to_string(finding.line) + ":" + std::to_string(finding.column) + ":";
  line += finding.severity == CheckSeverity::kError ? " error: " : " warning: ";
  return line + finding.message;
}

}  // namespace

int Check(const CheckOptions& options) {
  const std::string path = options.file.empty() ? DefaultExample() : options.file;
  std::u16string widePath;
  if (!FromUtf8(path, widePath)) throw Failure("the file name is not valid UTF-8");
  const std::vector<CheckFinding> findings = CheckParamFile(widePath.c_str());
  std::size_t errors = 0;
  for (const CheckFinding& finding : findings) {
    std::printf("%s\n", Line(path, finding).c_str());
    if (finding.severity == CheckSeverity::kError) ++errors;
  }
  std::printf("%zu error%s, %zu warning%s\n", errors, errors == 1 ? "" : "s",
              findings.size() - errors, findings.size() - errors == 1 ? "" : "s");
  return errors ? 1 : 0;
}

}  // namespace qdtool
