// Test helpers: capture assertion reports and trace lines, give a test a
// private temporary folder, and count heap allocations.
#pragma once

#include <cstddef>
#include <ostream>
#include <string>
#include <vector>

#include "qdcore/core.h"
#include "qdcore/log.h"

namespace qdtest {

// Records every assertion report while alive; the previous handler returns
// afterwards.
class AssertCapture {
 public:
  struct Report {
    std::string expression, message, signature;
    bool operator==(const Report&) const = default;
    friend void PrintTo(const Report& r, std::ostream* os) {
      *os << r.expression << " | " << r.message << " | " << r.signature;
    }
  };

  AssertCapture();
  ~AssertCapture();
  AssertCapture(const AssertCapture&) = delete;
  AssertCapture& operator=(const AssertCapture&) = delete;

  const std::vector<Report>& reports() const { return m_reports; }
  std::vector<std::string> expressions() const;
  void clear() { m_reports.clear(); }

 private:
  static bool Handle(const qdcore::AssertReport& report, void* context);
  std::vector<Report> m_reports;
  qdcore::AssertHandler m_previous;
};

// Records every trace text (UTF-8) while alive and sets the given category's
// level; both are restored afterwards.
class TraceCapture {
 public:
  struct Line { int category; int level; std::string text; };

  explicit TraceCapture(int category = -1, int level = 0);
  ~TraceCapture();
  TraceCapture(const TraceCapture&) = delete;
  TraceCapture& operator=(const TraceCapture&) = delete;

  const std::vector<Line>& lines() const { return m_lines; }
  std::vector<std::string> texts() const;
  // All captured texts joined, for whole-dump comparisons.
  std::string text() const;

 private:
  static void Sink(int category, int level, std::u16string_view text, void* context);
  std::vector<Line> m_lines;
  qdcore::TraceSink m_previous;
  int m_category;
  int m_savedLevel = 0;
};

// A fresh folder that TMPDIR points at while alive; removed afterwards.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::string& path() const { return m_path; }

 private:
  std::string m_path;
  std::string m_savedTmpdir;
  bool m_hadTmpdir = false;
};

// Heap allocations made by this thread through operator new since the start
// of the process (the test program replaces the global operator new).
std::size_t AllocationCount();

using Reports = std::vector<AssertCapture::Report>;

// The expressions of one expected report, or of none when `expression` is null.
inline std::vector<std::string> OneOrNone(const char* expression) {
  return expression ? std::vector<std::string>{expression} : std::vector<std::string>{};
}

}  // namespace qdtest
