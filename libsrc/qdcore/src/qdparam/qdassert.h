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
