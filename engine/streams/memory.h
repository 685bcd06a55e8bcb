// Memory for the library's objects.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <new>

namespace jurn {

struct FreeMemory {
  void operator()(void* memory) const { std::free(memory); }
};
/** An object of the library's whose size it tells, where its loads are fastest. */
template <typename Object>
using Owned = std::unique_ptr<Object, FreeMemory>;

template <typename Object>
Owned<Object> allocate(std::size_t bytes) {
  constexpr std::size_t kAlignment = 64;
  void* const memory =
      std::aligned_alloc(kAlignment, (bytes + kAlignment - 1) / kAlignment * kAlignment);
  if (!memory || bytes == 0) {
    std::free(memory);
    throw std::bad_alloc();
  }
  return Owned<Object>(static_cast<Object*>(memory));
}

}  // namespace jurn
