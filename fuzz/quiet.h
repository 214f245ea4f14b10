// What every document fuzzer sets up first: assertion reports and trace
// lines go nowhere, so that only real faults stop the run.
#pragma once

#include <string_view>

#include "qdcore/core.h"
#include "qdcore/log.h"

namespace qdfuzz {

inline bool Quiet(const qdcore::AssertReport&, void*) { return false; }
inline void Discard(int, int, std::u16string_view, void*) {}

inline void Silence() {
  qdcore::SetAssertHandler(&Quiet);
  qdcore::wPrintf_SetSink(&Discard);
}

}  // namespace qdfuzz
