#include "design/spectrum.h"

#include <algorithm>
#include <cmath>

#include "units.h"

namespace tool {
namespace {

// Fine enough for the sharp resonances of recursive filters.
constexpr std::size_t kGrid = 65536;

}  // namespace

std::vector<std::complex<double>> spectrum(const std::vector<double>& coefficients,
                                           std::size_t size) {
  std::size_t n = 2;
  while (n < std::max(size, coefficients.size())) n *= 2;
  std::vector<std::complex<double>> x(coefficients.begin(), coefficients.end());
  x.resize(n);
  // Decimation in time on bit-reversed data.
  for (std::size_t i = 1, j = 0; i < n; ++i) {
    std::size_t bit = n / 2;
    for (; j & bit; bit /= 2) j ^= bit;
    j ^= bit;
    if (i < j) std::swap(x[i], x[j]);
  }
  const double turn = -2.0 * kPi;
  for (std::size_t half = 1; half < n; half *= 2) {
    for (std::size_t k = 0; k < half; ++k) {
      const std::complex<double> w =
          std::polar(1.0, turn * static_cast<double>(k) / static_cast<double>(2 * half));
      for (std::size_t i = k; i < n; i += 2 * half) {
        const std::complex<double> odd = w * x[i + half];
        x[i + half] = x[i] - odd;
        x[i] += odd;
      }
    }
  }
  x.resize(n / 2 + 1);
  return x;
}

double peak_gain(const FilterDesign& design) {
  const std::size_t group =
      design.kind == FilterDesign::kSections ? 3 : std::max(design.b.size(), design.a.size());
  std::vector<double> gain;
  for (std::size_t at = 0; at < std::max(design.b.size(), design.a.size()); at += group) {
    const auto part = [&](const std::vector<double>& all) {
      const std::size_t end = std::min(at + group, all.size());
      return spectrum({all.begin() + static_cast<std::ptrdiff_t>(at),
                       all.begin() + static_cast<std::ptrdiff_t>(end)},
                      std::max(kGrid, 4 * group));
    };
    const std::vector<std::complex<double>> b = part(design.b);
    gain.resize(b.size(), 1.0);
    for (std::size_t i = 0; i < b.size(); ++i) gain[i] *= std::abs(b[i]);
    if (design.a.empty()) continue;
    const std::vector<std::complex<double>> a = part(design.a);
    for (std::size_t i = 0; i < a.size(); ++i) gain[i] /= std::abs(a[i]);
  }
  return *std::max_element(gain.begin(), gain.end());
}

}  // namespace tool
