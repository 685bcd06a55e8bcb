// Rounding to 16 bits, and noise that makes its error independent of the signal.
#pragma once

#include <cstddef>
#include <cstdint>

namespace jurn {

/** Noise with a triangular distribution from -1 to 1 steps: the sum of two even ones. The same seed
 * gives the same noise on every system. */
class Dither {
 public:
  explicit Dither(std::uint32_t seed) : state_(seed) {}

  float next() { return uniform() + uniform(); }

 private:
  /** From -1/2 to 1/2. */
  float uniform() {
    state_ = state_ * 1664525u + 1013904223u;  // its upper bits are random enough
    return static_cast<float>(static_cast<std::int32_t>(state_) >> 8) * 0x1p-24f;
  }

  std::uint32_t state_;
};

/** Rounds to the nearest int16, after adding dither if there is any, and saturates; counts the
 * samples that did not fit. What is no number becomes 0. */
void to_int16(const float* in, std::size_t count, short* out, std::int64_t* clipped,
              Dither* dither = nullptr);
void to_int16(const double* in, std::size_t count, short* out, std::int64_t* clipped,
              Dither* dither = nullptr);

}  // namespace jurn
