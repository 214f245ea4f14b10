// Diagnostics of a parameter document: what a load would accept silently
// but a person would want to hear of, each with its place in the text.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "qdcore/core.h"
#include "qdparam/export.h"

namespace qdcore {

/// How bad a finding is.
enum class CheckSeverity {
  kWarning,  ///< read, but probably not as meant (an unknown name, keys out of order)
  kError     ///< cannot mean anything (malformed XML, a number that is none)
};

/// One finding: its severity, the 1-based line and column of the element it
/// concerns (or of the parse failure; 0 when it has no place) and a message
/// in UTF-8 that names the element.
struct CheckFinding {
  CheckSeverity severity = CheckSeverity::kWarning;  ///< warning or error
  unsigned int line = 0;                             ///< 1-based; 0 when it has no place
  unsigned int column = 0;                           ///< 1-based, in characters
  std::string message;                               ///< UTF-8, naming the element
};

/// Every finding in a parameter document given as UTF-8 text (a "Property"
/// set, or any document holding sets, parameters or presets), in document
/// order. A document that is not well-formed gives one error, the parser's.
/// The reading of the document by the library is not changed by this.
QDPARAM_API std::vector<CheckFinding> CheckParamDocument(std::string_view utf8);
/// The same for a file; a file that cannot be read gives one error.
QDPARAM_API std::vector<CheckFinding> CheckParamFile(const wchar* path);
/// True when any finding is an error.
QDPARAM_API bool HasCheckErrors(const std::vector<CheckFinding>& findings) noexcept;

}  // namespace qdcore
