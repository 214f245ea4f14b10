// Replaces the global operator new of the test program so that tests can
// assert that a path allocates nothing. Only this thread's calls are counted.
#include <cstdlib>
#include <new>

#include "support/capture.h"

namespace {
thread_local std::size_t t_allocations = 0;

void* Allocate(std::size_t size) {
  ++t_allocations;
  if (void* memory = std::malloc(size ? size : 1)) return memory;
  throw std::bad_alloc();
}

void* AllocateOrNull(std::size_t size) noexcept {
  ++t_allocations;
  return std::malloc(size ? size : 1);
}
}  // namespace

namespace qdtest {
std::size_t AllocationCount() { return t_allocations; }
}  // namespace qdtest

void* operator new(std::size_t size) { return Allocate(size); }
void* operator new[](std::size_t size) { return Allocate(size); }
// The nothrow forms too (the standard library's temporary buffers use them),
// so that every block this program frees came from the same malloc.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return AllocateOrNull(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return AllocateOrNull(size);
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
