// The library's entry point: what runs when the library is loaded and
// unloaded, and its version.
#include "qdparam/version.h"

namespace qdcore {

const char* GetParamLibraryVersion() noexcept { return QDPARAM_VERSION; }

}  // namespace qdcore
