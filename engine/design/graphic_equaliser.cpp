#include "exact.h"

#include "design/graphic_equaliser.h"

#include <algorithm>
#include <cmath>

#include "design/spectrum.h"
#include "elementary.h"
#include "units.h"

namespace jurn {
namespace {

double gain_at(const std::vector<GraphicPoint>& points, double frequency) {
  const auto above = std::find_if(points.begin(), points.end(),
                                  [&](const GraphicPoint& p) { return p.frequency >= frequency; });
  if (above == points.begin()) return above->gain;
  if (above == points.end()) return points.back().gain;
  const GraphicPoint& low = above[-1];
  if (low.frequency <= 0.0) return above->gain;
  const double part = elementary::log(frequency / low.frequency) /
                      elementary::log(above->frequency / low.frequency);
  return low.gain + part * (above->gain - low.gain);
}

}  // namespace

std::vector<double> linear_phase_taps(const std::vector<GraphicPoint>& points, int rate,
                                      std::size_t count) {
  std::size_t bins = 16384;
  while (bins < 4 * count) bins *= 2;
  // An even spectrum is the same forwards and backwards.
  std::vector<double> magnitude(bins);
  for (std::size_t k = 0; k <= bins / 2; ++k) {
    const double frequency = static_cast<double>(k) * rate / static_cast<double>(bins);
    magnitude[k] = from_decibels(gain_at(points, frequency));
    if (k > 0) magnitude[bins - k] = magnitude[k];
  }
  const std::vector<std::complex<double>> impulse = spectrum(magnitude, bins);
  std::vector<double> taps(count);
  const std::size_t middle = count / 2;
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t away = i < middle ? middle - i : i - middle;
    const double phase = kPi * static_cast<double>(away) / static_cast<double>(middle + 1);
    taps[i] =
        impulse[away].real() / static_cast<double>(bins) * (0.5 + 0.5 * elementary::cos(phase));
  }
  return taps;
}

std::size_t graphic_taps(int rate, std::size_t most) {
  const std::size_t count = std::min(most, static_cast<std::size_t>(0.4 * rate) + 1);
  return count - 1 + count % 2;
}

}  // namespace jurn
