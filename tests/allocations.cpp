#include "allocations.h"

#include <cstdlib>
#include <new>

std::atomic<long> allocations{0};

void* operator new(std::size_t bytes) {
  ++allocations;
  if (void* const memory = std::malloc(bytes ? bytes : 1)) return memory;
  throw std::bad_alloc();
}
// Of the library's objects.
void* operator new(std::size_t bytes, std::align_val_t alignment) {
  const auto to = static_cast<std::size_t>(alignment);
  ++allocations;
  if (void* const memory = std::aligned_alloc(to, (bytes + to - 1) / to * to)) return memory;
  throw std::bad_alloc();
}
void operator delete(void* memory, std::align_val_t) noexcept {
  std::free(memory);
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
