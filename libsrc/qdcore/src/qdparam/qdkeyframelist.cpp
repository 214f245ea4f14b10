// CKeyFrameList: keyframes back to back in one host memory block.
#include "qdparam/keyframelist.h"

#include "blocklist.h"
#include "qdparam/keyframe.h"

namespace qdcore {

namespace {
using Slots = BlockList<CKeyFrame>;
}  // namespace

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

bool CKeyFrameList::Add(const CKeyFrame& kf) { return Slots::Add(*this, kf); }

bool CKeyFrameList::Add(const CKeyFrameList& other) { return Slots::AddList(*this, other); }

bool CKeyFrameList::Insert(const CKeyFrame& kf, unsigned int index) {
  return Slots::Insert(*this, kf, index);
}

bool CKeyFrameList::Delete(unsigned int index) { return Slots::Delete(*this, index); }

CKeyFrame* CKeyFrameList::GetArray(unsigned int& count) noexcept { return Slots::Array(*this, count); }

const CKeyFrame* CKeyFrameList::GetArray(unsigned int& count) const noexcept {
  return Slots::Array(*this, count);
}

void CKeyFrameList::RelocateMemory(void* from, std::uint64_t fromSize, void* to,
                                   std::uint64_t toSize, int mode) {
  const std::uint64_t count = (fromSize < toSize ? fromSize : toSize) / Slots::kSlot;
  if (mode >= 2) return Slots::CopyInto(*this, from, to, count);
  if (count == 0) return;
  // The vacated slots hold empty keyframes of the moved ones' type. It is
  // made before anything moves, so that running out of memory leaves the
  // block as it was.
  CKeyFrame vacant(static_cast<const CKeyFrame*>(from)->m_Type);
  vacant.Free();
  CZMemory::RelocateMemory(from, fromSize, to, toSize, mode);
  Slots::FillVacated(from, to, count, vacant);
}

bool CKeyFrameList::ClearForRelease() {
  Slots::FreeAll(*this);
  return true;
}

}  // namespace qdcore
