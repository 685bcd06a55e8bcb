#include "exact.h"

#include "design/bessel.h"

#include "design/roots.h"
#include "design/wide.h"
#include "elementary.h"

namespace jurn {
namespace {

using Complex = std::complex<double>;

struct WideComplex {
  Wide real, imag;
};

WideComplex operator*(const WideComplex& x, Complex y) {
  return {x.real * y.real() + x.imag * -y.imag(), x.real * y.imag() + x.imag * y.real()};
}

WideComplex operator+(const WideComplex& x, const WideComplex& y) {
  return {x.real + y.real, x.imag + y.imag};
}

Complex narrow(const WideComplex& x) {
  return {x.real.high, x.imag.high};
}

/** A root of the reverse Bessel polynomial near s, by Newton's method. The polynomial comes from
 * t_n = (2n - 1) t_(n-1) + s^2 t_(n-2), and its slope is t_n - s t_(n-1); near the roots of high
 * orders these are small differences of large numbers. */
Complex refined(int order, Complex s) {
  for (int step = 0; step < 20; ++step) {
    WideComplex before{{1.0}, {0.0}}, now = WideComplex{{1.0}, {0.0}} + before * s;
    for (int n = 2; n <= order; ++n) {
      const WideComplex next = now * Complex(2.0 * n - 1.0) + before * s * s;
      before = now;
      now = next;
    }
    const Complex move = elementary::quotient(narrow(now), narrow(now) - s * narrow(before));
    s -= move;
    if (elementary::magnitude(move) < 1e-16 * elementary::magnitude(s)) break;
  }
  return s;
}

}  // namespace

RootsAndGain bessel_prototype(int order) {
  check_order(order, kMostBesselOrder);
  // The coefficient of s^k is (2n-k)! / (2^(n-k) k! (n-k)!), here from the highest power on; with s
  // scaled by the n-th root of the last one, so that both ends are 1.
  std::vector<double> polynomial{1.0};
  double last = 1.0;
  for (int k = 2; k <= 2 * order; k += 2) last *= k - 1.0;
  const double unit = elementary::exp(elementary::log(last) / order);
  double coefficient = 1.0;
  for (int k = order; k > 0; --k) {
    coefficient *= (2.0 * order - k + 1.0) * k / (2.0 * (order - k + 1.0)) / unit;
    polynomial.push_back(coefficient);
  }
  RootsAndGain f;
  f.poles = roots(polynomial);
  for (Complex& pole : f.poles) pole = refined(order, pole * unit) / unit;
  return f;
}

FilterDesign bessel(int order, const Corners& corners, int rate) {
  return digital_filter(bessel_prototype(order), corners, rate);
}

}  // namespace jurn
