// The library's assertion reports, gathered while a command runs and shown
// once each at the end instead of one line per evaluation.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "qdcore/core.h"

namespace qdtool {

class LibraryReports {
 public:
  LibraryReports();
  ~LibraryReports();  // the default handler comes back
  LibraryReports(const LibraryReports&) = delete;
  LibraryReports& operator=(const LibraryReports&) = delete;

  // One warning line per distinct report, with how often it came.
  void PrintWarnings(std::FILE* out) const;

 private:
  struct Entry {
    std::string text;
    int count;
  };
  static bool Handle(const qdcore::AssertReport& report, void* context);
  std::vector<Entry> m_entries;
};

}  // namespace qdtool
