// CKeyFrameList: keyframes back to back in one host memory block.
//
// Keyframes are relocatable byte by byte (every member is a handle), so the
// list shifts and moves them with raw byte moves and constructs or releases
// them only where a keyframe is really made or dropped.
#include "qdparam/keyframelist.h"

#include <cstdint>
#include <cstring>
#include <new>

#include "qdparam/keyframe.h"

namespace qdcore {

// ---------------------------------------------------------------------------
// Slots
// ---------------------------------------------------------------------------

namespace {

constexpr std::uint64_t kSlot = sizeof(CKeyFrame);

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

CKeyFrame* Slots(CZMemory& block) noexcept {
  return static_cast<CKeyFrame*>(static_cast<void*>(block));
}
const CKeyFrame* Slots(const CZMemory& block) noexcept {
  return static_cast<const CKeyFrame*>(static_cast<const void*>(block));
}

void MoveSlots(CKeyFrame* to, CKeyFrame* from, std::uint64_t count) noexcept {
  if (count) std::memmove(static_cast<void*>(to), static_cast<void*>(from), count * kSlot);
}

std::uintptr_t Address(const void* p) noexcept { return reinterpret_cast<std::uintptr_t>(p); }

// True when `kf` is one of the list's keyframes: it would move or vanish
// while the list grows or shifts, so the list copies it first.
bool Holds(const CZMemory& block, const CKeyFrame& kf) noexcept {
  const std::uintptr_t first = Address(Slots(block));
  return first && Address(&kf) >= first && Address(&kf) < first + Count(block) * kSlot;
}

bool Reserve(CKeyFrameList& list, std::uint64_t elements) {
  return list.CZMemory::Realloc(elements * kSlot);
}

}  // namespace

// ---------------------------------------------------------------------------
// Lifetime
// ---------------------------------------------------------------------------

// The base constructor cannot reach RelocateMemory, so copy by assignment.
CKeyFrameList::CKeyFrameList(const CKeyFrameList& other) : CZMemory() {
  try {
    CZMemory::operator=(other);
  } catch (...) {
    Free();  // the keyframes copied so far; the base destructor would only drop bytes
    throw;
  }
}

CKeyFrameList& CKeyFrameList::operator=(const CKeyFrameList& other) {
  CZMemory::operator=(other);
  return *this;
}

// The base destructor no longer reaches ClearForRelease.
CKeyFrameList::~CKeyFrameList() { Free(); }

bool CKeyFrameList::Realloc() { return CZMemory::Realloc(CZMemory::kKeepSize); }

// ---------------------------------------------------------------------------
// Editing
// ---------------------------------------------------------------------------

bool CKeyFrameList::Add(const CKeyFrame& kf) {
  if (Holds(*this, kf)) {
    const CKeyFrame copy(kf);
    return Add(copy);
  }
  const std::uint64_t count = Count(*this);
  const std::uint64_t capacity = Capacity(*this);
  if (count + 1 > capacity) {
    const std::uint64_t step = capacity < kLargeFrom ? kSmallAppendStep : kLargeAppendStep;
    if (!Reserve(*this, capacity == 0 ? kFirstAppend : capacity + step)) return false;
  }
  new (Slots(*this) + count) CKeyFrame(kf);
  SetSize((count + 1) * kSlot);
  return true;
}

bool CKeyFrameList::Add(const CKeyFrameList& other) {
  if (&other == this) {
    const CKeyFrameList copy(other);
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
  // The size follows the keyframes actually built, so that no slot is ever
  // counted before it holds a keyframe.
  const CKeyFrame* source = Slots(other);
  for (std::uint64_t i = 0; i < added; ++i) {
    new (Slots(*this) + count + i) CKeyFrame(source[i]);
    SetSize((count + i + 1) * kSlot);
  }
  return true;
}

bool CKeyFrameList::Insert(const CKeyFrame& kf, unsigned int index) {
  if (Holds(*this, kf)) {
    const CKeyFrame copy(kf);
    return Insert(copy, index);
  }
  const std::uint64_t count = Count(*this);
  const std::uint64_t capacity = Capacity(*this);
  if (count + 1 > capacity && !Reserve(*this, capacity == 0 ? kFirstInsert : capacity + kInsertStep)) {
    return false;
  }
  const std::uint64_t at = index < count ? index : count;
  const std::uint64_t behind = count - at;
  CKeyFrame* slots = Slots(*this);
  MoveSlots(slots + at + 1, slots + at, behind);
  try {
    new (slots + at) CKeyFrame(kf);
  } catch (...) {
    MoveSlots(slots + at, slots + at + 1, behind);
    throw;
  }
  SetSize((count + 1) * kSlot);
  return true;
}

bool CKeyFrameList::Delete(unsigned int index) {
  const std::uint64_t count = Count(*this);
  if (index >= count) return false;
  CKeyFrame* slots = Slots(*this);
  slots[index].Free();  // releases its content; the bytes are simply dropped
  if (count == 1) {
    Free();
    return true;
  }
  MoveSlots(slots + index, slots + index + 1, count - index - 1);
  SetSize((count - 1) * kSlot);
  return true;
}

CKeyFrame* CKeyFrameList::GetArray(unsigned int& count) noexcept {
  count = static_cast<unsigned int>(Count(*this));
  return count ? Slots(*this) : nullptr;
}

const CKeyFrame* CKeyFrameList::GetArray(unsigned int& count) const noexcept {
  count = static_cast<unsigned int>(Count(*this));
  return count ? Slots(*this) : nullptr;
}

// ---------------------------------------------------------------------------
// Hooks of the memory block
// ---------------------------------------------------------------------------

void CKeyFrameList::RelocateMemory(void* from, std::uint64_t fromSize, void* to,
                                   std::uint64_t toSize, int mode) {
  const std::uint64_t count = (fromSize < toSize ? fromSize : toSize) / kSlot;
  CKeyFrame* source = static_cast<CKeyFrame*>(from);
  CKeyFrame* target = static_cast<CKeyFrame*>(to);

  if (mode >= 2) {
    // A copy: every keyframe copy-constructed, each with private XML storage.
    // The target is this list's own new block; should a copy fail, the size
    // is cut back to the keyframes built, which are all a release may visit.
    std::uint64_t built = 0;
    try {
      while (built < count) {
        CKeyFrame* copy = new (target + built) CKeyFrame(source[built]);
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
  // A move. The vacated slots get empty keyframes of the same type, so that
  // releasing them cannot release what moved. This host drops vacated bytes
  // without releasing them, so the empty keyframe left there must own
  // nothing: a released one, copied bytewise. It is made before anything
  // moves, so that running out of memory leaves the block as it was.
  CKeyFrame vacant(source->m_Type);
  vacant.Free();
  CZMemory::RelocateMemory(from, fromSize, to, toSize, mode);
  const std::uintptr_t targetBegin = Address(target);
  const std::uintptr_t targetEnd = targetBegin + count * kSlot;
  for (std::uint64_t i = 0; i < count; ++i) {
    const std::uintptr_t slot = Address(source + i);
    const bool overlapsTarget = slot + kSlot > targetBegin && slot < targetEnd;
    if (!overlapsTarget) std::memcpy(static_cast<void*>(source + i), static_cast<const void*>(&vacant), kSlot);
  }
}

bool CKeyFrameList::ClearForRelease() {
  unsigned int count = 0;
  CKeyFrame* slots = GetArray(count);
  for (unsigned int i = 0; i < count; ++i) slots[i].Free();
  return true;
}

}  // namespace qdcore
