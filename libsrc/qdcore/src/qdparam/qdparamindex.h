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

#include <string_view>

#include "qdparam/param.h"

namespace qdcore {

// The first of `count` parameters from `params` whose attribute `attribute`
// reads `text` (an absent attribute reads as empty); null when none does.
const CParam* FindParam(const CParam* params, unsigned int count, const CZPoolString& attribute,
                        std::u16string_view text);

}  // namespace qdcore
