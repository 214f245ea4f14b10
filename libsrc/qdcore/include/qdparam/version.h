// The library's version, for hosts that log what they loaded.
#pragma once

#include "qdparam/export.h"

namespace qdcore {

/// "major.minor.patch"
QDPARAM_API const char* GetParamLibraryVersion() noexcept;

}  // namespace qdcore
