// Memory blocks, object blocks and the host allocator.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

#include "qdcore/core.h"

namespace qdcore {

namespace {

// Larger requests than this cannot be satisfied and would overflow size
// arithmetic further down; refuse them up front.
constexpr std::uint64_t kMaxBlock = std::uint64_t{1} << 47;

unsigned char* AllocateBytes(std::uint64_t bytes) noexcept {
  if (bytes == 0 || bytes > kMaxBlock) return nullptr;
  return static_cast<unsigned char*>(std::malloc(static_cast<std::size_t>(bytes)));
}

}  // namespace

const CZMemory CZMemory::pnull;

// ---------------------------------------------------------------------------
// CZMemory
// ---------------------------------------------------------------------------

CZMemory::CZMemory(const CZMemory& other) { *this = other; }

CZMemory::CZMemory(CZMemory&& other) noexcept
    : m_data(other.m_data), m_size(other.m_size), m_alloc(other.m_alloc) {
  other.m_data = nullptr;
  other.m_size = other.m_alloc = 0;
}

CZMemory::~CZMemory() { ReleaseBytes(); }

CZMemory& CZMemory::operator=(const CZMemory& other) {
  if (this == &other) return *this;
  Free();
  if (other.m_size == 0) return *this;
  m_data = AllocateBytes(other.m_size);
  if (!m_data) throw std::bad_alloc();
  m_size = m_alloc = other.m_size;
  RelocateMemory(other.m_data, other.m_size, m_data, m_size, 2);
  return *this;
}

CZMemory& CZMemory::operator=(CZMemory&& other) noexcept {
  if (this == &other) return *this;
  Free();
  m_data = other.m_data;
  m_size = other.m_size;
  m_alloc = other.m_alloc;
  other.m_data = nullptr;
  other.m_size = other.m_alloc = 0;
  return *this;
}

bool CZMemory::Alloc(std::uint64_t bytes) {
  Free();
  if (bytes == 0) return true;
  m_data = AllocateBytes(bytes);
  if (!m_data) return false;
  m_size = m_alloc = bytes;
  return true;
}

bool CZMemory::Realloc(std::uint64_t bytes) {
  if (bytes == kKeepSize || bytes == m_alloc) return true;
  if (bytes == 0) {
    Free();
    return true;
  }
  if (bytes < m_size) return false;  // would drop elements unreleased
  unsigned char* fresh = AllocateBytes(bytes);
  if (!fresh) return false;
  if (m_data) {
    try {
      RelocateMemory(m_data, m_size, fresh, bytes, 0);
    } catch (...) {
      std::free(fresh);
      throw;
    }
  }
  std::free(m_data);  // the moved-from slots own nothing: no ClearForRelease
  m_data = fresh;
  m_alloc = bytes;
  return true;
}

bool CZMemory::SetSize(std::uint64_t bytes) noexcept {
  if (bytes <= m_alloc) {
    m_size = bytes;
    return true;
  }
  m_size = m_alloc;
  return false;
}

void CZMemory::Free() noexcept {
  if (!m_data) return;
  ClearForRelease();
  ReleaseBytes();
}

void CZMemory::ReleaseBytes() noexcept {
  std::free(m_data);
  m_data = nullptr;
  m_size = m_alloc = 0;
}

void CZMemory::RelocateMemory(void* from, std::uint64_t fromSize, void* to, std::uint64_t toSize,
                              int mode) {
  const std::uint64_t bytes = fromSize < toSize ? fromSize : toSize;
  if (bytes == 0 || from == to) return;
  if (mode < 2) {
    std::memmove(to, from, static_cast<std::size_t>(bytes));
  } else {
    std::memcpy(to, from, static_cast<std::size_t>(bytes));
  }
}

// ---------------------------------------------------------------------------
// CZObjectMemory
// ---------------------------------------------------------------------------

CZObjectMemory::CZObjectMemory(const CZObjectMemory& other) { *this = other; }

CZObjectMemory& CZObjectMemory::operator=(const CZObjectMemory& other) {
  if (this == &other) return *this;
  Free();
  if (!other.m_object) return *this;
  void* object = AllocateBytes(other.m_size);
  if (!object) throw std::bad_alloc();
  try {
    other.m_descriptor->copy(object, other.m_object);
  } catch (...) {
    std::free(object);
    throw;
  }
  m_object = object;
  m_size = other.m_size;
  m_descriptor = other.m_descriptor;
  return *this;
}

CZObjectMemory::~CZObjectMemory() { Free(); }

bool CZObjectMemory::Alloc(std::uint64_t size, const tagCZOVTABL* descriptor) {
  Free();
  if (!descriptor || !descriptor->construct || !descriptor->copy || !descriptor->destruct) {
    return false;
  }
  void* object = AllocateBytes(size);
  if (!object) return false;
  try {
    descriptor->construct(object);
  } catch (...) {
    std::free(object);
    throw;
  }
  m_object = object;
  m_size = size;
  m_descriptor = descriptor;
  return true;
}

bool CZObjectMemory::IsAssignable(std::uint64_t size, const tagCZOVTABL* descriptor) const noexcept {
  return m_object && m_size == size && m_descriptor == descriptor;
}

void CZObjectMemory::Free() noexcept {
  if (!m_object) return;
  m_descriptor->destruct(m_object);
  std::free(m_object);
  m_object = nullptr;
  m_size = 0;
  m_descriptor = nullptr;
}

// ---------------------------------------------------------------------------
// Allocator
// ---------------------------------------------------------------------------

void* _falloc(std::size_t bytes) noexcept { return std::malloc(bytes ? bytes : 1); }

void _ffree(void* pointer) noexcept { std::free(pointer); }

}  // namespace qdcore
