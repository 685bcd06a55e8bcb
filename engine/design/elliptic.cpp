#include "exact.h"

#include "design/elliptic.h"

#include <algorithm>
#include <cmath>

#include "elementary.h"
#include "errors.h"
#include "units.h"

namespace jurn {
namespace {

using Complex = std::complex<double>;

constexpr double kSmall = 2e-16;

/** The complete elliptic integral K, of the parameter 1 - m1. */
double complete(double m1) {
  double a = 1.0, b = std::sqrt(m1);
  while (std::abs(a - b) > 1e-15 * a) {
    const double mean = 0.5 * (a + b);
    b = std::sqrt(a * b);
    a = mean;
  }
  return kPi / (a + b);
}

/** Carlson's R_F(x, y, z): half the integral of 1 / sqrt((t + x) (t + y) (t + z)) from 0 on. */
double carlson(double x, double y, double z) {
  double mean = (x + y + z) / 3.0;
  for (int i = 0; i < 60 && std::max({std::abs(x - mean), std::abs(y - mean), std::abs(z - mean)}) >
                                1e-3 * mean;
       ++i) {
    const double shift = std::sqrt(x * y) + std::sqrt(y * z) + std::sqrt(z * x);
    x = (x + shift) / 4.0;
    y = (y + shift) / 4.0;
    z = (z + shift) / 4.0;
    mean = (x + y + z) / 3.0;
  }
  const double dx = 1.0 - x / mean, dy = 1.0 - y / mean, dz = -dx - dy;
  const double e2 = dx * dy - dz * dz, e3 = dx * dy * dz;
  return (1.0 - e2 / 10.0 + e3 / 14.0 + e2 * e2 / 24.0 - 3.0 * e2 * e3 / 44.0) / std::sqrt(mean);
}

struct Jacobi {
  double sn, cn, dn;
};

/** The Jacobi functions of u, of the parameter m; 1 - m is given, too. */
Jacobi jacobi(double u, double m, double m1) {
  double a[32], c[32];
  a[0] = 1.0;
  c[0] = std::sqrt(m);
  double b = std::sqrt(m1), twice = 1.0;
  int n = 0;
  while (n < 30 && std::abs(c[n]) > kSmall * a[n]) {
    ++n;
    c[n] = 0.5 * (a[n - 1] - b);
    const double mean = std::sqrt(a[n - 1] * b);
    a[n] = 0.5 * (a[n - 1] + b);
    b = mean;
    twice *= 2.0;
  }
  double angle = twice * a[n] * u;
  for (; n > 0; --n) {
    const double sine = c[n] * elementary::sin(angle) / a[n];
    angle = 0.5 * (elementary::atan(sine / std::sqrt((1.0 - sine) * (1.0 + sine))) + angle);
  }
  const double sn = elementary::sin(angle), cn = elementary::cos(angle);
  return {sn, cn, std::sqrt(m1 + m * cn * cn)};
}

/** A parameter m and 1 - m. */
struct Parameter {
  double m, m1;
};

/** The parameter for which K(1 - m) / K(m) is `order` times less than for m1, by its nome. */
Parameter degree_parameter(int order, double m1) {
  const double less = kPi * complete(m1) / complete(1.0 - m1) / order;
  // A nome near 1 has series without an end; that of 1 - m is small then.
  const bool turned = less < kPi;
  const double nome = elementary::exp(turned ? -kPi * kPi / less : -less);
  double theta2 = 1.0, theta3 = 1.0, theta4 = 1.0;  // the first one over 2 nome^(1/4)
  for (int i = 1; i <= 4; ++i) {
    const double power = 2.0 * elementary::power(nome, i * i);
    theta2 += elementary::power(nome, i * (i + 1));
    theta3 += power;
    theta4 += i % 2 ? -power : power;
  }
  const double m = 16.0 * nome * elementary::power(theta2 / theta3, 4);
  const double rest = elementary::power(theta4 / theta3, 4);
  return turned ? Parameter{rest, m} : Parameter{m, rest};
}

}  // namespace

RootsAndGain elliptic_prototype(int order, double ripple, double attenuation) {
  check_order(order);
  check_decibels(ripple, "a ripple");
  check_decibels(attenuation, "an attenuation");
  const double square = excess(ripple);
  RootsAndGain f;
  if (order == 1) {
    f.poles.emplace_back(-std::sqrt(1.0 / square));
    f.gain = -f.poles[0].real();
    return f;
  }
  const double m1 = square / excess(attenuation);
  if (!(m1 > 0.0 && m1 < 1.0))
    throw Error(kInputError, "the attenuation has to be more than the ripple");
  const Parameter parameter = degree_parameter(order, m1);
  const double m = parameter.m, quarter = complete(parameter.m1);
  // Where the poles lie beside the imaginary axis: sc(u) = 1 / e of the parameter 1 - m1.
  const double sine2 = 1.0 / (1.0 + square), cosine2 = square * sine2;
  const double shift = std::sqrt(sine2) * carlson(cosine2, cosine2 + m1 * sine2, 1.0);
  const Jacobi v = jacobi(quarter * shift / (order * complete(1.0 - m1)), parameter.m1, m);
  std::vector<Complex> upper;
  for (int j = 1 - order % 2; j < order; j += 2) {
    const Jacobi u = jacobi(j * quarter / order, m, parameter.m1);
    if (std::abs(u.sn) > kSmall) {
      const double zero = 1.0 / (std::sqrt(m) * u.sn);
      f.zeros.emplace_back(0.0, zero);
      f.zeros.emplace_back(0.0, -zero);
    }
    const double below = v.cn * v.cn + m * (u.sn * v.sn) * (u.sn * v.sn);
    const Complex pole(-u.cn * u.dn * v.sn * v.cn / below, -u.sn * v.dn / below);
    f.poles.push_back(j == 0 ? Complex(pole.real()) : pole);
    if (j != 0) f.poles.push_back(std::conj(pole));
  }
  f.gain = elementary::quotient(product_of_negated(f.poles), product_of_negated(f.zeros)).real();
  if (order % 2 == 0) f.gain /= std::sqrt(1.0 + square);
  return f;
}

FilterDesign elliptic(int order, double ripple, double attenuation, const Corners& corners,
                      int rate) {
  return digital_filter(elliptic_prototype(order, ripple, attenuation), corners, rate);
}

}  // namespace jurn
