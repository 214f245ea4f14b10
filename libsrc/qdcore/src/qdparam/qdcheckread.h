// Checking a document the caller has read already, so that a load reads its
// text once.
#pragma once

#include <vector>

#include "qdcore/xml.h"
#include "qdparam/check.h"

namespace qdcore {

// The findings of the read document `doc`, as CheckParamDocument gives them
// for its text (its errors alone with `errorsOnly`); without the places of
// elements unless `doc` kept them. Out of memory is one error finding.
std::vector<CheckFinding> CheckReadDocument(const CXMLDoc& doc, bool errorsOnly = false) noexcept;

}  // namespace qdcore
