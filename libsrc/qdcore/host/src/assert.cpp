// The assertion routine: an installable handler and the debugger break.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

#include "qdcore/core.h"

namespace qdcore {

namespace {

bool WriteToStderr(const AssertReport& report, void*) {
  static const bool silent = [] {
    const char* mode = std::getenv("QD_ASSERT");
    return mode && std::strcmp(mode, "silent") == 0;
  }();
  if (silent) return false;
  std::fprintf(stderr, "%s:%d: %s: %s (%s)\n", report.file ? report.file : "?", report.line,
               report.message ? report.message : "", report.expression.c_str(),
               report.signature ? report.signature : "");
  return false;
}

struct Handler {
  std::recursive_mutex lock;  // a handler may itself report
  AssertHandler handler = WriteToStderr;
  void* context = nullptr;
};

Handler& TheHandler() {
  static Handler* handler = new Handler;
  return *handler;
}

bool Report(std::string expression, const char* message, const char* file, int line,
            const char* signature) {
  Handler& current = TheHandler();
  std::lock_guard<std::recursive_mutex> hold(current.lock);
  const AssertReport report{std::move(expression), message, file, line, signature};
  return current.handler(report, current.context);
}

}  // namespace

AssertHandler SetAssertHandler(AssertHandler handler, void* context) {
  Handler& current = TheHandler();
  std::lock_guard<std::recursive_mutex> hold(current.lock);
  const AssertHandler previous = current.handler;
  current.handler = handler ? handler : WriteToStderr;
  current.context = handler ? context : nullptr;
  return previous;
}

bool DetailedMessageBox(const char* expression, const char* message, const char* file, int line,
                        const char* signature) {
  return Report(expression ? expression : "", message, file, line, signature);
}

bool DetailedMessageBox(const wchar* expression, const char* message, const char* file, int line,
                        const char* signature) {
  return Report(expression ? ToUtf8(expression) : std::string(), message, file, line, signature);
}

bool IsDebuggerPresent() noexcept {
  try {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
      if (line.rfind("TracerPid:", 0) == 0) return std::atoi(line.c_str() + 10) != 0;
    }
  } catch (...) {
  }
  return false;
}

void DebugBreak() noexcept { std::raise(SIGTRAP); }

void ReportFailure(const char* expression, const char* message, const char* file, int line,
                   const char* signature) {
  if (DetailedMessageBox(expression, message, file, line, signature) && IsDebuggerPresent()) {
    DebugBreak();
  }
}

}  // namespace qdcore
