// Finding a parameter of a set by an attribute's text ("name", "id")
// without comparing every parameter: an index per parameter list and
// attribute, kept per thread for the last few lists asked about.
//
// An index is built once the lists' elements have gone unwritten from one
// lookup to the next (XMLWriteEpoch() held), and is good while the epoch
// and the list stay as they are: building it watches every parameter's
// element, so that any write to one, or any parameter dropped, moves the
// epoch. While writes keep coming, lookups compare parameter by parameter.
#pragma once

#include <charconv>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "qdparam/param.h"

namespace qdcore {

// The decimal text of an id, built on the stack so that a lookup by id per
// frame allocates nothing. Ids are 32-bit values whatever the width of long.
class IdText {
 public:
  explicit IdText(unsigned long id) noexcept {
    char digits[16];
    const auto result = std::to_chars(digits, digits + sizeof digits,
                                      static_cast<std::int32_t>(static_cast<std::uint32_t>(id)));
    m_length = static_cast<std::size_t>(result.ptr - digits);
    for (std::size_t i = 0; i < m_length; ++i) m_text[i] = static_cast<wchar>(digits[i]);
  }
  std::u16string_view view() const noexcept { return {m_text, m_length}; }

 private:
  wchar m_text[16] = {};
  std::size_t m_length = 0;
};

// The first of `count` parameters from `params` whose attribute `attribute`
// reads `text` (an absent attribute reads as empty); null when none does.
const CParam* FindParam(const CParam* params, unsigned int count, const CZPoolString& attribute,
                        std::u16string_view text);

// The positions of a list's parameters by one attribute's text, for a caller
// that looks up and edits the same list in one pass (an update from a
// preset): it reports each parameter it wrote or added through Refresh, and
// each lookup answers what a fresh scan of the list would, in log time.
class ParamPositions {
 public:
  explicit ParamPositions(const CZPoolString& attribute) : m_attribute(attribute) {}

  // The position of the first parameter whose attribute reads `text`; -1
  // when none does.
  long Find(std::u16string_view text) const;
  // Re-reads the text of the parameter at `position` (appending it when the
  // list grew by one). Positions past the list's end are ignored.
  void Refresh(const CParam* params, unsigned int count, unsigned int position);
  // Reads every parameter of the list, which must be the one last refreshed.
  void Build(const CParam* params, unsigned int count);

 private:
  CZPoolString m_attribute;
  std::vector<std::u16string> m_texts;  // each position's text as last read
  std::map<std::u16string, std::set<unsigned int>, std::less<>> m_positions;
};

}  // namespace qdcore
