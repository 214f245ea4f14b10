// CParamList: parameters back to back in one host memory block.
//
// Parameters are relocatable byte by byte (every member is a handle), so the
// list shifts and moves them with raw byte moves and constructs or releases
// them only where a parameter is really made or dropped.
#include "qdparam/paramlist.h"

#include <cstdint>
#include <cstring>
#include <new>

#include "qdparam/param.h"

namespace qdcore {

// ---------------------------------------------------------------------------
// Slots
// ---------------------------------------------------------------------------

namespace {

constexpr std::uint64_t kSlot = sizeof(CParam);

// Growth of an append: a first block of 4, then steps of 8 while the list is
// small, then steps of 256; an insertion grows by 1, then by 4.
constexpr std::uint64_t kFirstAppend = 4;
constexpr std::uint64_t kSmallAppendStep = 8;
constexpr std::uint64_t kLargeAppendStep = 256;
constexpr std::uint64_t kLargeFrom = 40;
constexpr std::uint64_t kFirstInsert = 1;
constexpr std::uint64_t kInsertStep = 4;
// Room an Add of a whole list leaves beyond what it needs.
constexpr std::uint64_t kListAddSpare = 4;

std::uint64_t Count(const CZMemory& block) noexcept { return block.GetSize() / kSlot; }
std::uint64_t Capacity(const CZMemory& block) noexcept { return block.GetAllocSize() / kSlot; }

CParam* Slots(CZMemory& block) noexcept { return static_cast<CParam*>(static_cast<void*>(block)); }
const CParam* Slots(const CZMemory& block) noexcept {
  return static_cast<const CParam*>(static_cast<const void*>(block));
}

void MoveSlots(CParam* to, CParam* from, std::uint64_t count) noexcept {
  if (count) std::memmove(static_cast<void*>(to), static_cast<void*>(from), count * kSlot);
}

std::uintptr_t Address(const void* p) noexcept { return reinterpret_cast<std::uintptr_t>(p); }

// True when `param` is one of the list's parameters: it would move or vanish
// while the list grows or shifts, so the list copies it first.
bool Holds(const CZMemory& block, const CParam& param) noexcept {
  const std::uintptr_t first = Address(Slots(block));
  return first && Address(&param) >= first && Address(&param) < first + Count(block) * kSlot;
}

// Writes the bytes of `vacant` into `count` slots. Doubling copies keep this
// as cheap as the move it follows, which matters for long lists.
void FillSlots(CParam* slots, std::uint64_t count, const CParam& vacant) noexcept {
  if (count == 0) return;
  std::memcpy(static_cast<void*>(slots), static_cast<const void*>(&vacant), kSlot);
  for (std::uint64_t filled = 1; filled < count;) {
    const std::uint64_t chunk = filled < count - filled ? filled : count - filled;
    std::memcpy(static_cast<void*>(slots + filled), static_cast<void*>(slots), chunk * kSlot);
    filled += chunk;
  }
}

bool Reserve(CParamList& list, std::uint64_t elements) {
  return list.CZMemory::Realloc(elements * kSlot);
}

}  // namespace

// ---------------------------------------------------------------------------
// Lifetime
// ---------------------------------------------------------------------------

// The base constructor cannot reach RelocateMemory, so copy by assignment.
CParamList::CParamList(const CParamList& other) : CZMemory() {
  try {
    CZMemory::operator=(other);
  } catch (...) {
    Free();  // the parameters copied so far; the base destructor would only drop bytes
    throw;
  }
}

CParamList& CParamList::operator=(const CParamList& other) {
  CZMemory::operator=(other);
  return *this;
}

// The base destructor no longer reaches ClearForRelease.
CParamList::~CParamList() { Free(); }

bool CParamList::Realloc() { return CZMemory::Realloc(CZMemory::kKeepSize); }

// ---------------------------------------------------------------------------
// Editing
// ---------------------------------------------------------------------------

bool CParamList::Add(const CParam& param) {
  if (Holds(*this, param)) {
    const CParam copy(param);
    return Add(copy);
  }
  const std::uint64_t count = Count(*this);
  const std::uint64_t capacity = Capacity(*this);
  if (count + 1 > capacity) {
    const std::uint64_t step = capacity < kLargeFrom ? kSmallAppendStep : kLargeAppendStep;
    if (!Reserve(*this, capacity == 0 ? kFirstAppend : capacity + step)) return false;
  }
  new (Slots(*this) + count) CParam(param);
  SetSize((count + 1) * kSlot);
  return true;
}

bool CParamList::Add(const CParamList& other) {
  if (&other == this) {
    const CParamList copy(other);
    return Add(copy);
  }
  const std::uint64_t added = Count(other);
  if (added == 0) return true;
  const std::uint64_t count = Count(*this);
  if (count == 0) {
    *this = other;
    return true;
  }
  if (count + added > Capacity(*this) && !Reserve(*this, count + added + kListAddSpare)) {
    return false;
  }
  // The size follows the parameters actually built, so that no slot is ever
  // counted before it holds a parameter: the list ends with count + added.
  const CParam* source = Slots(other);
  for (std::uint64_t i = 0; i < added; ++i) {
    new (Slots(*this) + count + i) CParam(source[i]);
    SetSize((count + i + 1) * kSlot);
  }
  return true;
}

bool CParamList::Insert(const CParam& param, unsigned int index) {
  if (Holds(*this, param)) {
    const CParam copy(param);
    return Insert(copy, index);
  }
  const std::uint64_t count = Count(*this);
  const std::uint64_t capacity = Capacity(*this);
  if (count + 1 > capacity &&
      !Reserve(*this, capacity == 0 ? kFirstInsert : capacity + kInsertStep)) {
    return false;
  }
  const std::uint64_t at = index < count ? index : count;
  const std::uint64_t behind = count - at;
  CParam* slots = Slots(*this);
  MoveSlots(slots + at + 1, slots + at, behind);
  try {
    new (slots + at) CParam(param);
  } catch (...) {
    MoveSlots(slots + at, slots + at + 1, behind);
    throw;
  }
  SetSize((count + 1) * kSlot);
  return true;
}

bool CParamList::Delete(unsigned int index) {
  const std::uint64_t count = Count(*this);
  if (index >= count) return false;
  CParam* slots = Slots(*this);
  slots[index].Free();  // releases its content; the bytes are simply dropped
  if (count == 1) {
    Free();
    return true;
  }
  MoveSlots(slots + index, slots + index + 1, count - index - 1);
  SetSize((count - 1) * kSlot);
  return true;
}

CParam* CParamList::GetArray(unsigned int& count) noexcept {
  count = static_cast<unsigned int>(Count(*this));
  return count ? Slots(*this) : nullptr;
}

const CParam* CParamList::GetArray(unsigned int& count) const noexcept {
  count = static_cast<unsigned int>(Count(*this));
  return count ? Slots(*this) : nullptr;
}

// ---------------------------------------------------------------------------
// Hooks of the memory block
// ---------------------------------------------------------------------------

void CParamList::RelocateMemory(void* from, std::uint64_t fromSize, void* to,
                                std::uint64_t toSize, int mode) {
  const std::uint64_t count = (fromSize < toSize ? fromSize : toSize) / kSlot;
  CParam* source = static_cast<CParam*>(from);
  CParam* target = static_cast<CParam*>(to);

  if (mode >= 2) {
    // A copy: every parameter copy-constructed member by member, each then
    // given private XML storage. The target is this list's own new block;
    // should a copy fail, the size is cut back to the parameters built,
    // which are all a release may visit.
    std::uint64_t built = 0;
    try {
      while (built < count) {
        CParam* copy = new (target + built) CParam(source[built]);
        ++built;
        copy->Realloc();
      }
    } catch (...) {
      SetSize(built * kSlot);
      throw;
    }
    return;
  }

  if (count == 0) return;
  // A move. The vacated slots get fresh empty parameters, so that releasing
  // them cannot release what moved. This host drops vacated bytes without
  // releasing them, and a freshly constructed parameter owns an element and
  // a time block, so the empty parameter left there must own nothing: a
  // released one, copied bytewise. It is made before anything moves, so
  // that running out of memory leaves the block as it was.
  CParam vacant;
  vacant.Free();
  CZMemory::RelocateMemory(from, fromSize, to, toSize, mode);
  // Within one block the ranges may overlap: only the slots that the moved
  // parameters do not occupy now are vacated.
  const std::uintptr_t sourceBegin = Address(source);
  const std::uintptr_t targetBegin = Address(target);
  const std::uintptr_t bytes = count * kSlot;
  if (sourceBegin + bytes <= targetBegin || targetBegin + bytes <= sourceBegin) {
    FillSlots(source, count, vacant);
  } else if (sourceBegin < targetBegin) {
    FillSlots(source, (targetBegin - sourceBegin) / kSlot, vacant);  // whole slots only
  } else {
    const std::uint64_t kept = (targetBegin + bytes - sourceBegin + kSlot - 1) / kSlot;
    FillSlots(source + kept, count - kept, vacant);
  }
}

bool CParamList::ClearForRelease() {
  unsigned int count = 0;
  CParam* slots = GetArray(count);
  for (unsigned int i = 0; i < count; ++i) slots[i].Free();
  return true;
}

}  // namespace qdcore
