#include "streams/rounding.h"

#include <algorithm>
#include <vector>

namespace jurn {

static constexpr std::size_t kPiece = 1 << 20;  // so that an int counts its samples

void to_int16(const float* in, std::size_t count, short* out, std::int64_t* clipped,
              Dither* dither) {
  std::vector<float> noisy;
  if (dither) {
    noisy.assign(in, in + count);
    for (float& x : noisy) x += dither->next();
    in = noisy.data();
  }
  // Written for the compiler's vectors: counters as wide as the samples, and a sum that leaves no
  // bits for fractions in place of a call that rounds.
  constexpr float kRounds = 12582912.0f;  // 1.5 * 2^23
  for (std::size_t first = 0; first < count; first += kPiece) {
    const std::size_t end = std::min(count, first + kPiece);
    int beyond = 0;
    for (std::size_t i = first; i < end; ++i) {
      const float x = in[i];
      beyond += static_cast<int>(x >= 32767.5f) + static_cast<int>(x < -32768.5f);
      const float low = x < -32768.0f ? -32768.0f : x;
      const float limited = low > 32767.0f ? 32767.0f : low;
      out[i] = static_cast<short>(static_cast<int>((limited + kRounds) - kRounds));
    }
    *clipped += beyond;
  }
}

}  // namespace jurn
