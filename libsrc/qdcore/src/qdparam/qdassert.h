// One-line assertion reports for the library's sources. Each report carries
// the failed expression or message, its kind, the reporting file and line and
// the reporting function's signature text; then the caller goes on and
// returns its failure value.
#pragma once

#include "qdcore/core.h"

// A broken precondition, named by the text of the condition that should hold.
#define QD_ASSUMPTION_FAILED(expression, signature)                                          \
  ::qdcore::ReportFailure((expression), ::qdcore::kRuntimeAssumptionFailed, __FILE_NAME__, \
                          __LINE__, (signature))

// A branch that must not be reached, named by a message.
#define QD_ILLEGAL_CODE_POINT(message, signature)                                            \
  ::qdcore::ReportFailure((message), ::qdcore::kIllegalCodePointReached, __FILE_NAME__,     \
                          __LINE__, (signature))

// Evaluates `condition`, reports its own text when it is false, and yields it,
// so that the reported text is always the code that was checked.
#define QD_VERIFY(condition, signature) \
  ((condition) ? true : (QD_ASSUMPTION_FAILED(#condition, signature), false))

// As QD_VERIFY, for a check whose reported text is written differently from
// the code that performs it (the report names the caller's variables).
#define QD_VERIFY_TEXT(condition, text, signature) \
  ((condition) ? true : (QD_ASSUMPTION_FAILED(text, signature), false))

namespace qdcore {

// ReportFailure for messages that are kept as wide text.
inline void ReportFailureWide(const wchar* message, const char* kind, const char* file, int line,
                              const char* signature) {
  if (DetailedMessageBox(message, kind, file, line, signature) && IsDebuggerPresent()) {
    DebugBreak();
  }
}

}  // namespace qdcore

// QD_ILLEGAL_CODE_POINT with a wide message.
#define QD_ILLEGAL_CODE_POINT_WIDE(message, signature)                                      \
  ::qdcore::ReportFailureWide((message), ::qdcore::kIllegalCodePointReached, __FILE_NAME__, \
                              __LINE__, (signature))
