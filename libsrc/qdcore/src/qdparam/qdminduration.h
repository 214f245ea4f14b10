// A parameter's cached minimum duration. Evaluation reads it on any number
// of threads while a const GetMinDuration may fill it: every access to the
// one time is atomic, and a const caller never allocates its block.
#pragma once

#include <atomic>

#include "qdparam/czmtime.h"

namespace qdcore {

// The cached time, mtime::unassigned when none is (or the block was released).
inline mtime CachedMinDuration(const CZMTime& holder) noexcept {
  if (holder.GetSize() < sizeof(mtime)) return mtime::unassigned;
  return std::atomic_ref<mtime>(const_cast<mtime&>(*holder)).load(std::memory_order_relaxed);
}

// Keeps `value` where the block exists; a released one stays released.
inline void CacheMinDuration(const CZMTime& holder, mtime value) noexcept {
  if (holder.GetSize() < sizeof(mtime)) return;
  std::atomic_ref<mtime>(const_cast<mtime&>(*holder)).store(value, std::memory_order_relaxed);
}

}  // namespace qdcore
