// The library's entry point: what runs when the library is loaded into a
// process and unloaded from it, and its version.
#include "qdnumberlocale.h"
#include "qdparam/version.h"

namespace qdcore {

namespace {
locale_t g_numberLocale = nullptr;
}  // namespace

locale_t NumberLocale() noexcept { return g_numberLocale; }

const char* GetParamLibraryVersion() noexcept { return QDPARAM_VERSION; }

}  // namespace qdcore

// Load and unload of the shared library: the number locale lives exactly as
// long as the library does.
__attribute__((constructor)) static void OnLibraryLoad() {
  qdcore::g_numberLocale = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
}

__attribute__((destructor)) static void OnLibraryUnload() {
  if (qdcore::g_numberLocale) freelocale(qdcore::g_numberLocale);
  qdcore::g_numberLocale = nullptr;
}
