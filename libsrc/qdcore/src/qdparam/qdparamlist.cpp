// CParamList: parameters back to back in one host memory block.
#include "qdparam/paramlist.h"

#include "blocklist.h"
#include "qdparam/param.h"

namespace qdcore {

namespace {
using Slots = BlockList<CParam>;
}  // namespace

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

bool CParamList::Add(const CParam& param) { return Slots::Add(*this, param); }

bool CParamList::Add(const CParamList& other) { return Slots::AddList(*this, other); }

bool CParamList::Insert(const CParam& param, unsigned int index) {
  return Slots::Insert(*this, param, index);
}

bool CParamList::Delete(unsigned int index) { return Slots::Delete(*this, index); }

CParam* CParamList::GetArray(unsigned int& count) noexcept { return Slots::Array(*this, count); }

const CParam* CParamList::GetArray(unsigned int& count) const noexcept {
  return Slots::Array(*this, count);
}

void CParamList::RelocateMemory(void* from, std::uint64_t fromSize, void* to,
                                std::uint64_t toSize, int mode) {
  const std::uint64_t count = (fromSize < toSize ? fromSize : toSize) / Slots::kSlot;
  if (mode >= 2) return Slots::CopyInto(*this, from, to, count);
  if (count == 0) return;
  // A freshly constructed parameter owns an element and a time block, so the
  // vacated slots get a released one. It is made before anything moves, so
  // that running out of memory leaves the block as it was.
  CParam vacant;
  vacant.Free();
  CZMemory::RelocateMemory(from, fromSize, to, toSize, mode);
  Slots::FillVacated(from, to, count, vacant);
}

bool CParamList::ClearForRelease() {
  Slots::FreeAll(*this);
  return true;
}

}  // namespace qdcore
