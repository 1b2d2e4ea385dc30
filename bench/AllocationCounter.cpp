// The program's replacement of the global operator new and delete, counting allocations. Kept in a file of
// its own: inlined into a caller, GCC mistakes the malloc/free pairing here for a mismatch.
#include "AllocationCounter.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<long long> allocations{0};

}  // namespace

long long HeapAllocations() {
  return allocations;
}

void* operator new(std::size_t size) {
  ++allocations;
  if (void* memory = std::malloc(size != 0 ? size : 1)) return memory;
  throw std::bad_alloc();
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
