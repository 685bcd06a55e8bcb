// Memory for the library's objects.
#pragma once

#include <cstddef>
#include <memory>
#include <new>

namespace jurn {

struct FreeMemory {
  static constexpr std::align_val_t kAlignment{64};
  void operator()(void* memory) const { ::operator delete(memory, kAlignment); }
};
/** An object of the library's whose size it tells, where its loads are fastest. */
template <typename Object>
using Owned = std::unique_ptr<Object, FreeMemory>;

/** Throws std::bad_alloc, also for 0 bytes, by which a size function says: too large. */
template <typename Object>
Owned<Object> allocate(std::size_t bytes) {
  if (bytes == 0) throw std::bad_alloc();
  return Owned<Object>(static_cast<Object*>(::operator new(bytes, FreeMemory::kAlignment)));
}

}  // namespace jurn
