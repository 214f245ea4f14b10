// CZMTime: one mtime in a host memory block.
#include <new>

#include "qdparam/czmtime.h"

namespace qdcore {

namespace {

constexpr std::uint64_t kTimeBytes = sizeof(mtime);

// Gives `block` room for one time, all of it in use so that block copies carry
// the time along, and starts it as "nothing known".
void HoldOneTime(CZMemory& block) {
  if (!block.Realloc(kTimeBytes)) throw std::bad_alloc();
  block.SetSize(kTimeBytes);
  new (static_cast<void*>(block)) mtime(mtime::unassigned);
}

}  // namespace

CZMTime::CZMTime() { HoldOneTime(*this); }

CZMTime::CZMTime(const CZMTime& other) : CZMemory(other) {}

CZMTime& CZMTime::operator=(const CZMTime& other) {
  CZMemory::operator=(other);
  return *this;
}

CZMTime::~CZMTime() { Free(); }

mtime& CZMTime::operator*() {
  if (GetSize() < kTimeBytes) HoldOneTime(*this);  // released, or resized by a caller
  return *static_cast<mtime*>(static_cast<void*>(*this));
}

const mtime& CZMTime::operator*() const noexcept {
  if (GetSize() < kTimeBytes) return mtime::unassigned;
  return *static_cast<const mtime*>(static_cast<const void*>(*this));
}

}  // namespace qdcore
