// The state of what runs, to bytes and back.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace jurn {

/** Ends bytes with their checksum. */
void add_checksum(std::string* bytes);
/** The bytes without it; throws for what was altered or cut. */
std::string_view without_checksum(std::string_view bytes);

/**
 * Values to bytes or from them. One function passes the values of an object either way, so that
 * both have one order; what throws for bytes that do not fit leaves half an object, which is to be
 * dropped. The bytes are for the same version of this library on machines of the same kind, and
 * carry a checksum: by that nothing that was altered or cut is read.
 */
class StateBytes {
 public:
  /** To bytes. */
  StateBytes() = default;
  /** From bytes, which sealed() gave and which have to outlive this; throws what is wrong with
   * them. `what` they hold says the same word on both sides. */
  StateBytes(std::string_view bytes, const std::string& what);

  /** All bytes so far with a head and a checksum. */
  std::string sealed(const std::string& what) const;

  bool reads() const { return reads_; }
  /** Throws unless `right`, for values that were read. */
  static void check(bool right);
  /** Throws if bytes are left that nobody has read. */
  void check_end() const { check(left_.empty()); }

  void pass(void* value, std::size_t size);
  template <typename T>
  void pass(T* value) {
    static_assert(std::is_trivially_copyable_v<T>, "has bytes alone");
    pass(static_cast<void*>(value), sizeof *value);
  }
  /** Of a size that is known to both sides. */
  template <typename T>
  void pass_all(std::vector<T>* values) {
    pass(static_cast<void*>(values->data()), values->size() * sizeof(T));
  }
  /** With its size: a vector or a string. */
  template <typename Values>
  void pass_sized(Values* values) {
    using T = typename Values::value_type;
    std::uint64_t size = values->size();
    pass(&size);
    if (reads_) {
      check(size <= left_.size() / sizeof(T));
      values->resize(static_cast<std::size_t>(size));
    }
    pass(static_cast<void*>(values->data()), values->size() * sizeof(T));
  }

 private:
  bool reads_ = false;
  std::string written_;
  std::string_view left_;
};

}  // namespace jurn
