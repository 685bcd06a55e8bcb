#include "exact.h"

#include "streams/rounding.h"

#include <algorithm>
#include <vector>

namespace jurn {
namespace {

constexpr std::size_t kMostAtOnce = 1 << 20;  // so that an int counts its samples

// A sum that leaves no bits for fractions, in place of a call that rounds.
constexpr float kLeavesNoFraction(float) {
  return 0x1.8p23f;
}
constexpr double kLeavesNoFraction(double) {
  return 0x1.8p52;
}

/** Written for the compiler's vectors. */
template <typename Sample>
int round_piece(const Sample* in, std::size_t count, short* out) {
  constexpr Sample kLow = -32768, kHigh = 32767, kHalf = 0.5;
  constexpr Sample kRounds = kLeavesNoFraction(Sample{});
  int beyond = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const Sample x = in[i] == in[i] ? in[i] : Sample{};
    beyond += static_cast<int>(x >= kHigh + kHalf) + static_cast<int>(x < kLow - kHalf);
    const Sample low = x < kLow ? kLow : x;
    const Sample limited = low > kHigh ? kHigh : low;
    out[i] = static_cast<short>(static_cast<int>((limited + kRounds) - kRounds));
  }
  return beyond;
}

template <typename Sample>
void round_all(const Sample* in, std::size_t count, short* out, std::int64_t* clipped,
               Dither* dither) {
  std::vector<Sample> noisy;
  if (dither) {
    noisy.assign(in, in + count);
    for (Sample& x : noisy) x += static_cast<Sample>(dither->next());
    in = noisy.data();
  }
  for (std::size_t first = 0; first < count; first += kMostAtOnce)
    *clipped += round_piece(in + first, std::min(count - first, kMostAtOnce), out + first);
}

}  // namespace

void to_int16(const float* in, std::size_t count, short* out, std::int64_t* clipped,
              Dither* dither) {
  round_all(in, count, out, clipped, dither);
}
void to_int16(const double* in, std::size_t count, short* out, std::int64_t* clipped,
              Dither* dither) {
  round_all(in, count, out, clipped, dither);
}

}  // namespace jurn
