// The library's entry point: what runs when the library is loaded into a
// process and unloaded from it, and its version.
#include "qdnumberlocale.h"
#include "qdparam/staticsource.h"
#include "qdparam/version.h"
#include "staticsourceregistry.h"

namespace qdcore {

namespace {
locale_t g_numberLocale = nullptr;
}  // namespace

locale_t NumberLocale() noexcept { return g_numberLocale; }

const char* GetParamLibraryVersion() noexcept { return QDPARAM_VERSION; }

}  // namespace qdcore

// Load and unload of the shared library: the number locale and the static
// source registry live exactly as long as the library does. These run in no
// fixed order with the C++ statics (at process exit, after they are
// destroyed), so they touch only state that does not depend on them.
__attribute__((constructor)) static void OnLibraryLoad() {
  qdcore::g_numberLocale = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
  qdcore::CStaticSource::StartStaticSource();
}

__attribute__((destructor)) static void OnLibraryUnload() {
  qdcore::CStaticSource::EndStaticSource();
  qdcore::FreeStaticSourceRegistry();
  if (qdcore::g_numberLocale) freelocale(qdcore::g_numberLocale);
  qdcore::g_numberLocale = nullptr;
}
