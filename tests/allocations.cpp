#include "allocations.h"

#include <cstdlib>
#include <new>

std::atomic<long> allocations{0};

void* operator new(std::size_t bytes) {
  ++allocations;
  if (void* const memory = std::malloc(bytes ? bytes : 1)) return memory;
  throw std::bad_alloc();
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
