#include "exact.h"

#include "design/windows.h"

#include <cmath>

#include "elementary.h"
#include "units.h"

namespace jurn {

double bessel_i0(double x) {
  double sum = 1.0, term = 1.0;
  for (int k = 1; term > 1e-17 * sum; ++k) {
    term *= (x / (2.0 * k)) * (x / (2.0 * k));
    sum += term;
  }
  return sum;
}

std::vector<double> window(Window kind, std::size_t count, double beta) {
  std::vector<double> values(count, 1.0);
  if (count < 2) return values;
  // Of the windows that are sums of cosines.
  static const double kCosines[][4] = {{1.0, 0.0, 0.0, 0.0},
                                       {0.5, 0.5, 0.0, 0.0},
                                       {0.54, 0.46, 0.0, 0.0},
                                       {0.42, 0.5, 0.08, 0.0},
                                       {0.35875, 0.48829, 0.14128, 0.01168}};
  const double last = static_cast<double>(count - 1);
  for (std::size_t i = 0; i < count; ++i) {
    const double at = static_cast<double>(i);
    if (kind == Window::kKaiser) {
      const double along = (at - last / 2.0) / (last / 2.0);
      values[i] = bessel_i0(beta * std::sqrt(1.0 - along * along)) / bessel_i0(beta);
      continue;
    }
    const double* const c = kCosines[static_cast<int>(kind)];
    values[i] = 0.0;
    for (int k = 0; k < 4; ++k)
      values[i] += (k % 2 ? -c[k] : c[k]) * elementary::cos(2.0 * kPi * k * at / last);
  }
  return values;
}

}  // namespace jurn
