#include "exact.h"

#include "design/chebyshev.h"

#include <cmath>

#include "units.h"

namespace jurn {
namespace {

using Complex = std::complex<double>;

/** e^2 of so many decibels: 10^(dB / 10) - 1, without cancellation where these are few. */
}  // namespace

RootsAndGain chebyshev1_prototype(int order, double ripple) {
  check_order(order);
  check_decibels(ripple, "a ripple");
  const double epsilon = std::sqrt(excess(ripple));
  const double mu = std::asinh(1.0 / epsilon) / order;
  RootsAndGain f;
  for (int m = 1 - order; m < order; m += 2) {
    const double theta = kPi * m / (2.0 * order);
    f.poles.emplace_back(-std::sinh(mu) * std::cos(theta), -std::cosh(mu) * std::sin(theta));
  }
  f.gain = product_of_negated(f.poles).real();
  if (order % 2 == 0) f.gain /= std::sqrt(1.0 + epsilon * epsilon);
  return f;
}

RootsAndGain chebyshev2_prototype(int order, double attenuation) {
  check_order(order);
  check_decibels(attenuation, "an attenuation");
  const double mu = std::asinh(std::sqrt(excess(attenuation))) / order;
  RootsAndGain f;
  for (int m = 1 - order; m < order; m += 2) {
    const double theta = kPi * m / (2.0 * order);
    f.poles.push_back(1.0 /
                      Complex(-std::sinh(mu) * std::cos(theta), -std::cosh(mu) * std::sin(theta)));
    if (m != 0) f.zeros.emplace_back(0.0, 1.0 / std::sin(theta));
  }
  f.gain = (product_of_negated(f.poles) / product_of_negated(f.zeros)).real();
  return f;
}

FilterDesign chebyshev1(int order, double ripple, const Corners& corners, int rate) {
  return digital_filter(chebyshev1_prototype(order, ripple), corners, rate);
}

FilterDesign chebyshev2(int order, double attenuation, const Corners& corners, int rate) {
  return digital_filter(chebyshev2_prototype(order, attenuation), corners, rate);
}

}  // namespace jurn
