#include "support/capture.h"

#include <cstdlib>
#include <filesystem>
#include <random>

namespace qdtest {

AssertCapture::AssertCapture() : m_previous(qdcore::SetAssertHandler(&AssertCapture::Handle, this)) {}

AssertCapture::~AssertCapture() { qdcore::SetAssertHandler(m_previous); }

bool AssertCapture::Handle(const qdcore::AssertReport& report, void* context) {
  auto* self = static_cast<AssertCapture*>(context);
  self->m_reports.push_back({report.expression, report.message ? report.message : "",
                             report.signature ? report.signature : ""});
  return false;
}

std::vector<std::string> AssertCapture::expressions() const {
  std::vector<std::string> out;
  for (const Report& report : m_reports) out.push_back(report.expression);
  return out;
}

TraceCapture::TraceCapture(int category, int level)
    : m_previous(qdcore::wPrintf_SetSink(&TraceCapture::Sink, this)), m_category(category) {
  if (m_category < 0) return;
  m_savedLevel = qdcore::wPrintf_GetUserLevel(m_category);
  qdcore::wPrintf_SetUserLevel(m_category, level);
}

TraceCapture::~TraceCapture() {
  if (m_category >= 0) qdcore::wPrintf_SetUserLevel(m_category, m_savedLevel);
  qdcore::wPrintf_SetSink(m_previous);
}

void TraceCapture::Sink(int category, int level, std::u16string_view text, void* context) {
  static_cast<TraceCapture*>(context)->m_lines.push_back({category, level, qdcore::ToUtf8(text)});
}

std::vector<std::string> TraceCapture::texts() const {
  std::vector<std::string> out;
  for (const Line& line : m_lines) out.push_back(line.text);
  return out;
}

std::string TraceCapture::text() const {
  std::string all;
  for (const Line& line : m_lines) all += line.text;
  return all;
}

TempDir::TempDir() {
  namespace fs = std::filesystem;
  if (const char* saved = std::getenv("TMPDIR")) {
    m_hadTmpdir = true;
    m_savedTmpdir = saved;
  }
  std::random_device random;
  const fs::path base = fs::temp_directory_path();
  for (;;) {
    const fs::path candidate = base / ("qdtest-" + std::to_string(random()));
    if (fs::create_directory(candidate)) {
      m_path = candidate.string();
      break;
    }
  }
  setenv("TMPDIR", m_path.c_str(), 1);
}

TempDir::~TempDir() {
  std::error_code error;
  std::filesystem::remove_all(m_path, error);
  if (m_hadTmpdir) {
    setenv("TMPDIR", m_savedTmpdir.c_str(), 1);
  } else {
    unsetenv("TMPDIR");
  }
}

}  // namespace qdtest
