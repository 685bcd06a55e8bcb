#include "exact.h"

#include "design/linear_phase.h"

#include <algorithm>
#include <cmath>

#include "design/windows.h"
#include "elementary.h"
#include "units.h"

namespace jurn {
namespace {

constexpr double kAttenuation = 100.0;  // dB
constexpr double kBeta = 0.1102 * (kAttenuation - 8.7);

/** Subtracts the low-pass of a corner from the taps, or adds it; its gain at 0 Hz is 1. */
void add_low_pass(double corner, double sign, int rate, std::vector<double>* taps) {
  const std::size_t middle = taps->size() / 2;
  std::vector<double> half(middle + 1);  // from the middle on
  const double step = 2.0 * corner / rate;
  double sum = 0.0;
  for (std::size_t i = middle + 1; i-- > 0;) {
    const double at = static_cast<double>(i), along = at / static_cast<double>(middle);
    const double turn = kPi * step * at;
    half[i] = (i ? step * elementary::sin(turn) / turn : step) *
              bessel_i0(kBeta * std::sqrt(1.0 - along * along));
    sum += i ? 2.0 * half[i] : half[i];
  }
  for (std::size_t i = 0; i < taps->size(); ++i)
    (*taps)[i] += sign * half[i < middle ? middle - i : i - middle] / sum;
}

}  // namespace

LinearPhaseBand linear_phase_band(const EqualiserFilter& f, int rate) {
  const double half_rate = rate / 2.0;
  LinearPhaseBand band{0.0, half_rate, f.transition};
  if (f.type == EqualiserType::kBandPass) {
    // From the centre to a corner: 2^(octaves / 2), which of a Q is e^asinh(1 / 2Q).
    const double x = 0.5 / f.q;
    const double ratio =
        f.octaves > 0.0 ? elementary::exp(kLogTwo * f.octaves / 2.0) : x + std::sqrt(x * x + 1.0);
    band.low = f.frequency / ratio;
    band.high = f.frequency * ratio;
  } else if (f.type == EqualiserType::kLowPass) {
    band.high = f.frequency;
  } else {
    band.low = f.frequency;
  }
  if (band.transition > 0.0) return band;
  const double lowest = band.low > 0.0 ? band.low : band.high;
  const double highest = band.high < half_rate ? band.high : band.low;
  band.transition = std::min({lowest / 2.0, half_rate - highest});
  return band;
}

std::size_t linear_phase_count(const EqualiserFilter& f, int rate) {
  const double width = 2.0 * kPi * linear_phase_band(f, rate).transition / rate;
  const double halves = std::ceil((kAttenuation - 7.95) / (2.285 * width) / 2.0);
  return 2 * static_cast<std::size_t>(std::min(halves, 1e12)) + 1;
}

std::vector<double> linear_phase_pass(const EqualiserFilter& f, int rate) {
  const LinearPhaseBand band = linear_phase_band(f, rate);
  std::vector<double> taps(linear_phase_count(f, rate));
  if (f.type == EqualiserType::kHighPass)
    taps[taps.size() / 2] = 1.0;
  else
    add_low_pass(band.high, 1.0, rate, &taps);
  if (f.type != EqualiserType::kLowPass) add_low_pass(band.low, -1.0, rate, &taps);
  return taps;
}

}  // namespace jurn
