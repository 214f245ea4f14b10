// The static-source registry's part in the library's unload.
#pragma once

namespace qdcore {

// Frees every registry entry; called at unload once the registry has ended.
// Skipped when another thread holds the registry lock, as that thread may
// still be inside the registry (ReplaceSource leaves the lock held).
void FreeStaticSourceRegistry() noexcept;

}  // namespace qdcore
