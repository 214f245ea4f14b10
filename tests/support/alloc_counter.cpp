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
}  // namespace

namespace qdtest {
std::size_t AllocationCount() { return t_allocations; }
}  // namespace qdtest

void* operator new(std::size_t size) { return Allocate(size); }
void* operator new[](std::size_t size) { return Allocate(size); }
// The no-throw forms too (temporary buffers of std::stable_sort use them):
// every block this program hands out must come from malloc, as it goes back
// through free.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  ++t_allocations;
  return std::malloc(size ? size : 1);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  ++t_allocations;
  return std::malloc(size ? size : 1);
}
void operator delete(void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }
