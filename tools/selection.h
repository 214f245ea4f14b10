// Picking the parameters a command works on.
#pragma once

#include <string>
#include <vector>

#include "options.h"
#include "qdparam/paramset.h"

namespace qdtool {

// The parameters chosen by name or id, in the set's order; all of them when
// nothing is chosen. Throws Failure naming what exists when a choice matches
// nothing.
std::vector<const qdcore::CParam*> SelectParams(const qdcore::CParamSet& set,
                                                const Selection& selection);

// The parameter's name on one line, or "#id" for one without a name.
std::string ParamLabel(const qdcore::CParam& param);

}  // namespace qdtool
