// A number that tells results apart: whoever has the same stamp has the same samples.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace jurn {

/**
 * The CRC-32 of zlib, PNG and Ethernet over the bytes of samples as a WAV file holds them:
 * interleaved, the low byte first.
 */
class Stamp {
 public:
  void add(const short* samples, std::size_t count);
  void add(const float* samples, std::size_t count);
  void add(const int* samples, std::size_t count);
  void add(const unsigned char* bytes, std::size_t count);

  std::uint32_t number() const { return ~rest_; }
  /** Eight hexadecimal digits and a zero. */
  std::array<char, 9> text() const;

 private:
  void add(std::uint32_t low, std::uint32_t high);
  template <typename Sample>
  void add_words(const Sample* samples, std::size_t count);
  void add_bytes(std::uint32_t value, int bytes);

  std::uint32_t rest_ = 0xFFFFFFFFu;
};

}  // namespace jurn
