// What the host API's set, parameter and keyframe files share: the state
// behind a Set and the conversions between its plain types and the
// library's own.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "qdcore/core.h"
#include "qdcore/xml.h"
#include "qdparam/paramset.h"
#include "qdparam/qdparam.hpp"

namespace qd::detail {

struct SetState {
  qdcore::CParamSet set;
  // The document's "Validation" rules, which the set itself does not keep;
  // stored back with it.
  qdcore::CXMLObject validation;
  // Advances whenever parameters may have moved in memory (added, removed,
  // replaced), so that handles know to look theirs up again.
  std::uint64_t generation = 0;
};

// UTF-8 to a pooled string; false for text that is not UTF-8.
bool ToPooled(std::string_view text, qdcore::CZPoolString& out);
std::string ToText(const qdcore::CZPoolString& text);

Error Failure(std::string message, unsigned int line = 0, unsigned int column = 0);

// The minimum duration that makes evaluation scale absolute keyframes onto
// a short clip as the format describes (see ScaleOntoClip).
qdcore::mtime ClipFit(const qdcore::CParam& param);

}  // namespace qd::detail
