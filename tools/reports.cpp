#include "reports.h"

#include <algorithm>

namespace qdtool {

using namespace qdcore;

LibraryReports::LibraryReports() { SetAssertHandler(&Handle, this); }

LibraryReports::~LibraryReports() { SetAssertHandler(nullptr); }

bool LibraryReports::Handle(const AssertReport& report, void* context) {
  auto& entries = static_cast<LibraryReports*>(context)->m_entries;
  const std::string text = report.expression + " (" + (report.message ? report.message : "") + ")";
  const auto known = std::find_if(entries.begin(), entries.end(),
                                  [&](const Entry& entry) { return entry.text == text; });
  if (known != entries.end()) {
    ++known->count;
  } else {
    entries.push_back({text, 1});
  }
  return false;  // never break into a debugger from the command line
}

void LibraryReports::PrintWarnings(std::FILE* out) const {
  for (const Entry& entry : m_entries) {
    std::fprintf(out, "qdparam: warning: the library reported %s", entry.text.c_str());
    if (entry.count > 1) std::fprintf(out, ", %d times", entry.count);
    std::fprintf(out, "\n");
  }
}

}  // namespace qdtool
