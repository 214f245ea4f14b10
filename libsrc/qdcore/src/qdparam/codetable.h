// Spellings of enumerated codes, kept as flag-map entries so that one table
// serves reading, writing and the host's flag attributes (qdformatnames.h).
#pragma once

#include <span>

#include "qdcore/xml.h"

namespace qdcore {

// The code spelled `text`, or `otherwise` when no entry spells it.
inline unsigned int CodeOf(const CZPoolString& text, std::span<const tagXMLFLAGMAP> table,
                           unsigned int otherwise) noexcept {
  if (!text) return otherwise;
  for (const tagXMLFLAGMAP& entry : table) {
    if (entry.name == text) return entry.value;
  }
  return otherwise;
}

// The spelling of `code`, or null when the table has none.
inline const CZPoolString* NameOf(unsigned int code,
                                  std::span<const tagXMLFLAGMAP> table) noexcept {
  for (const tagXMLFLAGMAP& entry : table) {
    if (entry.value == code) return &entry.name;
  }
  return nullptr;
}

}  // namespace qdcore
