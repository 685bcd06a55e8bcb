#include "exact.h"

#include "design/chebyshev.h"

#include <cmath>

#include "elementary.h"
#include "units.h"

namespace jurn {
namespace {

/** -sinh(mu) cos(theta) - i cosh(mu) sin(theta). */
std::complex<double> on_ellipse(double mu, double theta) {
  const double sinh = elementary::sinh(mu), cosh = std::sqrt(1.0 + sinh * sinh);
  return {-sinh * elementary::cos(theta), -cosh * elementary::sin(theta)};
}

}  // namespace

RootsAndGain chebyshev1_prototype(int order, double ripple) {
  check_order(order);
  check_decibels(ripple, "a ripple");
  const double epsilon = std::sqrt(excess(ripple));
  const double mu = elementary::asinh(1.0 / epsilon) / order;
  RootsAndGain f;
  for (int m = 1 - order; m < order; m += 2)
    f.poles.push_back(on_ellipse(mu, kPi * m / (2.0 * order)));
  f.gain = product_of_negated(f.poles).real();
  if (order % 2 == 0) f.gain /= std::sqrt(1.0 + epsilon * epsilon);
  return f;
}

RootsAndGain chebyshev2_prototype(int order, double attenuation) {
  check_order(order);
  check_decibels(attenuation, "an attenuation");
  const double mu = elementary::asinh(std::sqrt(excess(attenuation))) / order;
  RootsAndGain f;
  for (int m = 1 - order; m < order; m += 2) {
    const double theta = kPi * m / (2.0 * order);
    f.poles.push_back(elementary::quotient(1.0, on_ellipse(mu, theta)));
    if (m != 0) f.zeros.emplace_back(0.0, 1.0 / elementary::sin(theta));
  }
  f.gain = elementary::quotient(product_of_negated(f.poles), product_of_negated(f.zeros)).real();
  return f;
}

FilterDesign chebyshev1(int order, double ripple, const Corners& corners, int rate) {
  return digital_filter(chebyshev1_prototype(order, ripple), corners, rate);
}

FilterDesign chebyshev2(int order, double attenuation, const Corners& corners, int rate) {
  return digital_filter(chebyshev2_prototype(order, attenuation), corners, rate);
}

}  // namespace jurn
