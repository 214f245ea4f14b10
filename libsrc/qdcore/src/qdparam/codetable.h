// Spellings of enumerated codes, kept as flag-map entries so that one table
// serves reading, writing and the host's flag attributes.
#pragma once

#include <cstddef>

#include "qdcore/xml.h"

namespace qdcore {

// The code spelled `text`, or `otherwise` when no entry spells it.
template <std::size_t N>
unsigned int CodeOf(const CZPoolString& text, const tagXMLFLAGMAP (&table)[N],
                    unsigned int otherwise) noexcept {
  if (!text) return otherwise;
  for (const tagXMLFLAGMAP& entry : table) {
    if (entry.name == text) return entry.value;
  }
  return otherwise;
}

// The spelling of `code`, or null when the table has none.
template <std::size_t N>
const CZPoolString* NameOf(unsigned int code, const tagXMLFLAGMAP (&table)[N]) noexcept {
  for (const tagXMLFLAGMAP& entry : table) {
    if (entry.value == code) return &entry.name;
  }
  return nullptr;
}

}  // namespace qdcore
