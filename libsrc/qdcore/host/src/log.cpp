// Levelled trace output: per-category levels and an installable sink.
#include <array>
#include <cstdio>
#include <cstdlib>
#include <map>

#include "qdcore/log.h"

namespace qdcore {

namespace {

class Levels {
 public:
  Levels() { ReadEnvironment(std::getenv("QD_TRACE")); }

  int Get(int category) noexcept {
    if (IsDirect(category)) return m_direct[category].load(std::memory_order_relaxed);
    std::lock_guard<std::mutex> hold(m_lock);
    auto found = m_other.find(category);
    return found == m_other.end() ? 0 : found->second;
  }

  void Set(int category, int level) noexcept {
    if (IsDirect(category)) {
      m_direct[category].store(level, std::memory_order_relaxed);
      return;
    }
    try {
      std::lock_guard<std::mutex> hold(m_lock);
      m_other[category] = level;
    } catch (...) {
      // Out of memory for a trace setting: the category stays as it was.
    }
  }

 private:
  // Categories in use are small numbers: answer those without a lock.
  static constexpr int kDirect = 4096;
  static bool IsDirect(int category) noexcept { return category >= 0 && category < kDirect; }

  // "398:10,835:1": pairs of category and level; malformed pairs are skipped.
  void ReadEnvironment(const char* text) noexcept {
    if (!text) return;
    while (*text) {
      char* end = nullptr;
      const long category = std::strtol(text, &end, 10);
      if (end != text && *end == ':') {
        const char* levelText = end + 1;
        const long level = std::strtol(levelText, &end, 10);
        if (end != levelText && category >= INT32_MIN && category <= INT32_MAX &&
            level >= INT32_MIN && level <= INT32_MAX) {
          Set(static_cast<int>(category), static_cast<int>(level));
        }
      }
      while (*end && *end != ',') ++end;
      text = *end ? end + 1 : end;
    }
  }

  std::array<std::atomic<int>, kDirect> m_direct{};
  std::mutex m_lock;
  std::map<int, int> m_other;
};

Levels& TheLevels() {
  static Levels* levels = new Levels;  // outlives every static that traces
  return *levels;
}

void WriteToStderr(int, int, std::u16string_view text, void*) {
  const std::string utf8 = ToUtf8(text);
  std::fwrite(utf8.data(), 1, utf8.size(), stderr);
}

struct Sink {
  std::mutex lock;  // one line at a time, whatever the thread
  TraceSink sink = WriteToStderr;
  void* context = nullptr;
};

Sink& TheSink() {
  static Sink* sink = new Sink;
  return *sink;
}

}  // namespace

bool wPrintf_IsUserLevelActive(int category, int level) noexcept {
  return level <= TheLevels().Get(category);
}

void wPrintf_SetUserLevel(int category, int level) noexcept { TheLevels().Set(category, level); }

int wPrintf_GetUserLevel(int category) noexcept { return TheLevels().Get(category); }

void wPrintf(int category, int level, const wchar* format, ...) {
  std::u16string text;
  std::va_list args;
  va_start(args, format);
  AppendFormatV(text, format, args);
  va_end(args);
  Sink& sink = TheSink();
  std::lock_guard<std::mutex> hold(sink.lock);
  sink.sink(category, level, text, sink.context);
}

TraceSink wPrintf_SetSink(TraceSink sink, void* context) {
  Sink& current = TheSink();
  std::lock_guard<std::mutex> hold(current.lock);
  const TraceSink previous = current.sink;
  current.sink = sink ? sink : WriteToStderr;
  current.context = sink ? context : nullptr;
  return previous;
}

}  // namespace qdcore
