// qdparam dump: the set's diagnostic dump, as the library writes it to its trace.
#include <cstdio>
#include <string>

#include "commands.h"
#include "document.h"
#include "qdcore/log.h"

namespace qdtool {

using namespace qdcore;

namespace {

// The trace category of parameter sets and the level of a dump after loading.
constexpr int kSetTrace = 398;
constexpr int kDumpLevel = 5;

// Sends the set's trace into a string while alive; the sink and the level
// the user chose (QD_TRACE) come back afterwards.
class TraceToString {
 public:
  explicit TraceToString(std::string& text)
      : m_previousSink(wPrintf_SetSink(&Append, &text)),
        m_previousLevel(wPrintf_GetUserLevel(kSetTrace)) {
    wPrintf_SetUserLevel(kSetTrace, kDumpLevel);
  }
  ~TraceToString() {
    wPrintf_SetUserLevel(kSetTrace, m_previousLevel);
    wPrintf_SetSink(m_previousSink);
  }
  TraceToString(const TraceToString&) = delete;
  TraceToString& operator=(const TraceToString&) = delete;

 private:
  static void Append(int category, int, std::u16string_view text, void* context) {
    if (category == kSetTrace) *static_cast<std::string*>(context) += ToUtf8(text);
  }
  TraceSink m_previousSink;
  int m_previousLevel;
};

}  // namespace

void Dump(const DumpOptions& options) {
  const Document document(options.file);
  std::string text;
  {
    const TraceToString capture(text);
    document.Set().Display(kSetTrace, kDumpLevel);
  }
  std::fputs(text.c_str(), stdout);
}

}  // namespace qdtool
