// Samples of every type to doubles, and back.
#pragma once

#include <cstddef>

namespace jurn {

/** Rounds to the nearest int16, ties to even, and limits. What is no number becomes 0. */
inline short to_sample(double x, short) {
  if (!(x > -32768.0)) return x <= -32768.0 ? static_cast<short>(-32768) : static_cast<short>(0);
  if (x > 32767.0) x = 32767.0;
  constexpr double kWhole = 0x1.8p52;  // numbers of its size have no fraction
  return static_cast<short>((x + kWhole) - kWhole);
}
inline float to_sample(double x, float) {
  return static_cast<float>(x);
}
inline double to_sample(double x, double) {
  return x;
}

/** Takes every `stride`-th sample, to every `step`-th double. What is infinite or no number becomes
 * 0; returns how many were. */
template <typename Sample>
unsigned long long take_samples(const Sample* in, std::ptrdiff_t stride, int count, double* out,
                                std::ptrdiff_t step = 1) {
  if constexpr (sizeof(Sample) == sizeof(short)) {
    for (int i = 0; i < count; ++i) out[i * step] = in[i * stride];
    return 0;
  } else {
    double bad = 0.0;
    for (int i = 0; i < count; ++i) {
      const double x = in[i * stride];
      const bool is_finite = x - x == 0.0;
      out[i * step] = is_finite ? x : 0.0;
      bad += is_finite ? 0.0 : 1.0;
    }
    return static_cast<unsigned long long>(bad);
  }
}

/** Writes every `stride`-th sample, of every `step`-th double. */
template <typename Sample>
void give_samples(const double* in, int count, Sample* out, std::ptrdiff_t stride,
                  std::ptrdiff_t step = 1) {
  for (int i = 0; i < count; ++i) out[i * stride] = to_sample(in[i * step], Sample{});
}

}  // namespace jurn
