#include "exact.h"

#include "streams/stamp.h"

#include <cstdio>
#include <cstring>

namespace jurn {
namespace {

using Remainders = std::array<std::array<std::uint32_t, 256>, 8>;

/** Row k: what a byte becomes with k bytes of zeros behind it. */
constexpr Remainders make_table() {
  Remainders table{};
  for (std::uint32_t byte = 0; byte < 256; ++byte) {
    std::uint32_t rest = byte;
    for (int bit = 0; bit < 8; ++bit) rest = rest >> 1 ^ (rest & 1 ? 0xEDB88320u : 0u);
    table[0][byte] = rest;
  }
  for (std::size_t row = 1; row < 8; ++row)
    for (std::size_t byte = 0; byte < 256; ++byte)
      table[row][byte] = table[row - 1][byte] >> 8 ^ table[0][table[row - 1][byte] & 255];
  return table;
}

constexpr Remainders kTable = make_table();

}  // namespace

/** Eight bytes at once. */
void Stamp::add(std::uint32_t low, std::uint32_t high) {
  low ^= rest_;
  rest_ = kTable[7][low & 255] ^ kTable[6][low >> 8 & 255] ^ kTable[5][low >> 16 & 255] ^
          kTable[4][low >> 24] ^ kTable[3][high & 255] ^ kTable[2][high >> 8 & 255] ^
          kTable[1][high >> 16 & 255] ^ kTable[0][high >> 24];
}

void Stamp::add_bytes(std::uint32_t value, int bytes) {
  for (; bytes > 0; --bytes, value >>= 8) rest_ = rest_ >> 8 ^ kTable[0][(rest_ ^ value) & 255];
}

template <typename Sample>
void Stamp::add_words(const Sample* samples, std::size_t count) {
  const auto word = [samples](std::size_t i) {
    std::uint32_t value;
    std::memcpy(&value, samples + i, sizeof value);
    return value;
  };
  std::size_t i = 0;
  for (; i + 2 <= count; i += 2) add(word(i), word(i + 1));
  if (i < count) add_bytes(word(i), 4);
}

void Stamp::add(const float* samples, std::size_t count) {
  add_words(samples, count);
}

void Stamp::add(const int* samples, std::size_t count) {
  add_words(samples, count);
}

void Stamp::add(const short* samples, std::size_t count) {
  const auto half = [samples](std::size_t i) {
    return static_cast<std::uint32_t>(static_cast<std::uint16_t>(samples[i]));
  };
  std::size_t i = 0;
  for (; i + 4 <= count; i += 4) add(half(i) | half(i + 1) << 16, half(i + 2) | half(i + 3) << 16);
  for (; i < count; ++i) add_bytes(half(i), 2);
}

void Stamp::add(const unsigned char* bytes, std::size_t count) {
  std::size_t i = 0;
  for (; i + 8 <= count; i += 8) {
    std::array<std::uint32_t, 2> words{};
    for (std::size_t k = 0; k < 8; ++k)
      words[k / 4] |= static_cast<std::uint32_t>(bytes[i + k]) << (8 * (k % 4));
    add(words[0], words[1]);
  }
  for (; i < count; ++i) add_bytes(bytes[i], 1);
}

std::array<char, 9> Stamp::text() const {
  std::array<char, 9> digits{};
  std::snprintf(digits.data(), digits.size(), "%08x", static_cast<unsigned>(number()));
  return digits;
}

}  // namespace jurn
