// Elements of one type back to back in a host memory block: the growth,
// shifting and relocation that the keyframe list and the parameter list
// share.
//
// Elements are relocatable byte by byte (every member is a handle), so they
// are shifted and moved with raw byte moves, and constructed or released
// only where an element is really made or dropped. The element type has
// Free() (release the content, keep the object) and Realloc() (private
// storage).
#pragma once

#include <cstdint>
#include <cstring>
#include <new>

#include "qdcore/core.h"

namespace qdcore {

template <typename T>
class BlockList {
 public:
  static constexpr std::uint64_t kSlot = sizeof(T);

  static std::uint64_t Count(const CZMemory& block) noexcept { return block.GetSize() / kSlot; }

  static T* Array(CZMemory& block, unsigned int& count) noexcept {
    count = static_cast<unsigned int>(Count(block));
    return count ? Slots(block) : nullptr;
  }
  static const T* Array(const CZMemory& block, unsigned int& count) noexcept {
    count = static_cast<unsigned int>(Count(block));
    return count ? Slots(block) : nullptr;
  }

  // Growth of an append: a first block of 4, then steps of 8 while the list
  // is small, then steps of 256.
  static bool Add(CZMemory& block, const T& item) {
    if (Holds(block, item)) {
      const T copy(item);  // the original would move while the block grows
      return Add(block, copy);
    }
    const std::uint64_t count = Count(block);
    const std::uint64_t capacity = Capacity(block);
    if (count + 1 > capacity) {
      const std::uint64_t step = capacity < kLargeFrom ? kSmallAppendStep : kLargeAppendStep;
      if (!Reserve(block, capacity == 0 ? kFirstAppend : capacity + step)) return false;
    }
    new (Slots(block) + count) T(item);
    block.SetSize((count + 1) * kSlot);
    return true;
  }

  // Appends copies of all of `other`'s elements. An empty list takes the
  // other's block whole (by assignment); a list added to itself adds a copy
  // of itself. The list ends with exactly its count plus the other's.
  template <typename List>
  static bool AddList(List& list, const List& other) {
    if (&other == &list) {
      const List copy(other);
      return AddList(list, copy);
    }
    if (Count(other) == 0) return true;
    if (Count(list) == 0) {
      list = other;
      return true;
    }
    return AddAll(list, other);
  }

  // Appends copies of all of `other`'s elements to a list that already holds
  // some; `other` is another list. The size follows the elements actually
  // built, so that no slot is ever counted before it holds an element.
  static bool AddAll(CZMemory& block, const CZMemory& other) {
    const std::uint64_t count = Count(block);
    const std::uint64_t added = Count(other);
    if (count + added > Capacity(block) && !Reserve(block, count + added + kListAddSpare)) {
      return false;
    }
    const T* source = Slots(other);
    for (std::uint64_t i = 0; i < added; ++i) {
      new (Slots(block) + count + i) T(source[i]);
      block.SetSize((count + i + 1) * kSlot);
    }
    return true;
  }

  // Growth of an insertion: room for one, then steps of 4. An index past the
  // end appends.
  static bool Insert(CZMemory& block, const T& item, unsigned int index) {
    if (Holds(block, item)) {
      const T copy(item);
      return Insert(block, copy, index);
    }
    const std::uint64_t count = Count(block);
    const std::uint64_t capacity = Capacity(block);
    if (count + 1 > capacity &&
        !Reserve(block, capacity == 0 ? kFirstInsert : capacity + kInsertStep)) {
      return false;
    }
    const std::uint64_t at = index < count ? index : count;
    const std::uint64_t behind = count - at;
    T* slots = Slots(block);
    MoveSlots(slots + at + 1, slots + at, behind);
    try {
      new (slots + at) T(item);
    } catch (...) {
      MoveSlots(slots + at, slots + at + 1, behind);
      throw;
    }
    block.SetSize((count + 1) * kSlot);
    return true;
  }

  // Releases the element's content and drops its bytes; the last one takes
  // the block with it.
  static bool Delete(CZMemory& block, unsigned int index) {
    const std::uint64_t count = Count(block);
    if (index >= count) return false;
    T* slots = Slots(block);
    slots[index].Free();
    if (count == 1) {
      block.Free();
      return true;
    }
    MoveSlots(slots + index, slots + index + 1, count - index - 1);
    block.SetSize((count - 1) * kSlot);
    return true;
  }

  // The copy mode of relocation: every element copy-constructed into the
  // block's new storage, each with private XML storage. Should a copy fail,
  // the size is cut back to the elements built, all a release may visit.
  static void CopyInto(CZMemory& block, const void* from, void* to, std::uint64_t count) {
    const T* source = static_cast<const T*>(from);
    T* target = static_cast<T*>(to);
    std::uint64_t built = 0;
    try {
      while (built < count) {
        T* copy = new (target + built) T(source[built]);
        ++built;
        copy->Realloc();
      }
    } catch (...) {
      block.SetSize(built * kSlot);
      throw;
    }
  }

  // After a move of `count` elements from `from` to `to`, gives every slot
  // the move left behind the bytes of `vacant`, an element released before
  // the move so that it owns nothing: the host drops vacated bytes without
  // releasing them. Within one block the ranges may overlap, and only the
  // slots the moved elements do not occupy now are vacated.
  static void FillVacated(void* from, const void* to, std::uint64_t count, const T& vacant) noexcept {
    T* source = static_cast<T*>(from);
    const std::uintptr_t sourceBegin = Address(from);
    const std::uintptr_t targetBegin = Address(to);
    const std::uintptr_t bytes = count * kSlot;
    if (sourceBegin + bytes <= targetBegin || targetBegin + bytes <= sourceBegin) {
      Fill(source, count, vacant);
    } else if (sourceBegin < targetBegin) {
      Fill(source, (targetBegin - sourceBegin) / kSlot, vacant);  // whole slots only
    } else {
      const std::uint64_t kept = (targetBegin + bytes - sourceBegin + kSlot - 1) / kSlot;
      Fill(source + kept, count - kept, vacant);
    }
  }

  static void FreeAll(CZMemory& block) noexcept {
    unsigned int count = 0;
    T* slots = Array(block, count);
    for (unsigned int i = 0; i < count; ++i) slots[i].Free();
  }

 private:
  static constexpr std::uint64_t kFirstAppend = 4;
  static constexpr std::uint64_t kSmallAppendStep = 8;
  static constexpr std::uint64_t kLargeAppendStep = 256;
  static constexpr std::uint64_t kLargeFrom = 40;
  static constexpr std::uint64_t kFirstInsert = 1;
  static constexpr std::uint64_t kInsertStep = 4;
  // Room an append of a whole list leaves beyond what it needs.
  static constexpr std::uint64_t kListAddSpare = 4;

  static std::uint64_t Capacity(const CZMemory& block) noexcept { return block.GetAllocSize() / kSlot; }
  static T* Slots(CZMemory& block) noexcept { return static_cast<T*>(static_cast<void*>(block)); }
  static const T* Slots(const CZMemory& block) noexcept {
    return static_cast<const T*>(static_cast<const void*>(block));
  }
  static std::uintptr_t Address(const void* p) noexcept { return reinterpret_cast<std::uintptr_t>(p); }

  static void MoveSlots(T* to, T* from, std::uint64_t count) noexcept {
    if (count) std::memmove(static_cast<void*>(to), static_cast<void*>(from), count * kSlot);
  }

  // True when `item` is one of the block's elements.
  static bool Holds(const CZMemory& block, const T& item) noexcept {
    const std::uintptr_t first = Address(Slots(block));
    return first && Address(&item) >= first && Address(&item) < first + Count(block) * kSlot;
  }

  static bool Reserve(CZMemory& block, std::uint64_t elements) {
    return block.Realloc(elements * kSlot);
  }

  // Doubling copies keep the fill as cheap as the move it follows.
  static void Fill(T* slots, std::uint64_t count, const T& vacant) noexcept {
    if (count == 0) return;
    std::memcpy(static_cast<void*>(slots), static_cast<const void*>(&vacant), kSlot);
    for (std::uint64_t filled = 1; filled < count;) {
      const std::uint64_t chunk = filled < count - filled ? filled : count - filled;
      std::memcpy(static_cast<void*>(slots + filled), static_cast<void*>(slots), chunk * kSlot);
      filled += chunk;
    }
  }
};

}  // namespace qdcore
