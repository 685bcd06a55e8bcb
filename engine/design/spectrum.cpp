#include "exact.h"

#include "design/spectrum.h"

#include <algorithm>
#include <cmath>

#include "elementary.h"
#include "units.h"

namespace jurn {
namespace {

// Fine enough for the sharp resonances of recursive filters.
constexpr std::size_t kGrid = 65536;

// So few coefficients are faster point by point.
constexpr std::size_t kFew = 16;

/** Points around the circle on which a filter with so many coefficients shows its peak. A FIR of n
 * taps cannot rise by more than 0.5 % between 32 n of them. */
std::size_t grid(std::size_t coefficients, bool is_recursive) {
  const std::size_t fine = std::max(kGrid, 4 * coefficients);
  return is_recursive ? fine : std::clamp<std::size_t>(32 * coefficients, 4096, fine);
}

}  // namespace

std::vector<std::complex<double>> spectrum(const std::vector<double>& coefficients,
                                           std::size_t size) {
  std::size_t n = 2;
  while (n < std::max(size, coefficients.size())) n *= 2;
  // e^(-2 pi i k / n) for the first half of the circle.
  std::vector<std::complex<double>> roots(n / 2 + 1);
  const double turn = -2.0 * kPi / static_cast<double>(n);
  for (std::size_t k = 0; k < roots.size(); ++k)
    roots[k] = elementary::polar(1.0, turn * static_cast<double>(k));
  if (coefficients.size() <= kFew) {
    for (std::complex<double>& value : roots) {
      const double re = value.real(), im = value.imag();
      double sum_re = 0.0, sum_im = 0.0;
      for (std::size_t j = coefficients.size(); j-- > 0;) {
        const double turned = sum_re * re - sum_im * im;
        sum_im = sum_re * im + sum_im * re;
        sum_re = turned + coefficients[j];
      }
      value = {sum_re, sum_im};
    }
    return roots;
  }
  std::vector<std::complex<double>> x(coefficients.begin(), coefficients.end());
  x.resize(n);
  // Decimation in time on bit-reversed data.
  for (std::size_t i = 1, j = 0; i < n; ++i) {
    std::size_t bit = n / 2;
    for (; j & bit; bit /= 2) j ^= bit;
    j ^= bit;
    if (i < j) std::swap(x[i], x[j]);
  }
  for (std::size_t half = 1; half < n; half *= 2) {
    for (std::size_t block = 0; block < n; block += 2 * half) {
      for (std::size_t k = 0; k < half; ++k) {
        const std::complex<double> w = roots[k * (n / 2 / half)];
        std::complex<double>&even = x[block + k], &other = x[block + k + half];
        const std::complex<double> odd{w.real() * other.real() - w.imag() * other.imag(),
                                       w.real() * other.imag() + w.imag() * other.real()};
        other = even - odd;
        even += odd;
      }
    }
  }
  x.resize(n / 2 + 1);
  return x;
}

/** Multiplies the gains of a design into those of a grid, as powers. */
static void multiply(const FilterDesign& design, std::size_t points, std::vector<double>* power) {
  const std::size_t group = group_of(design);
  for (std::size_t at = 0; at < std::max(design.b.size(), design.a.size()); at += group) {
    const auto part = [&](const std::vector<double>& all) {
      const std::size_t end = std::min(at + group, all.size());
      return spectrum({all.begin() + static_cast<std::ptrdiff_t>(at),
                       all.begin() + static_cast<std::ptrdiff_t>(end)},
                      points);
    };
    const std::vector<std::complex<double>> b = part(design.b);
    power->resize(b.size(), 1.0);
    for (std::size_t i = 0; i < b.size(); ++i) (*power)[i] *= std::norm(b[i]);
    if (design.a.empty()) continue;
    const std::vector<std::complex<double>> a = part(design.a);
    for (std::size_t i = 0; i < a.size(); ++i) (*power)[i] /= std::norm(a[i]);
  }
}

double peak_gain(const std::vector<FilterDesign>& chain) {
  std::size_t points = 0;
  for (const FilterDesign& design : chain)
    points = std::max(points, grid(group_of(design), !design.a.empty()));
  std::vector<double> power;
  for (const FilterDesign& design : chain) multiply(design, points, &power);
  return std::sqrt(*std::max_element(power.begin(), power.end()));
}

double peak_gain(const FilterDesign& design) {
  return peak_gain(std::vector<FilterDesign>{design});
}

}  // namespace jurn
