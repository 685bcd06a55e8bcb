#include "exact.h"

#include "design/digital_filter.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <string>

#include "elementary.h"
#include "errors.h"
#include "number_text.h"
#include "units.h"

namespace jurn {
namespace {

using Complex = std::complex<double>;
using elementary::magnitude, elementary::quotient;

std::string shown(double value) {
  return printed("%.6g", value);
}

/** Of each root the two that a band's transform makes of it. */
std::vector<Complex> split(const std::vector<Complex>& roots, double center) {
  std::vector<Complex> both;
  for (const double sign : {1.0, -1.0})
    for (const Complex& root : roots)
      both.push_back(root + sign * elementary::square_root(root * root - center * center));
  return both;
}

/** Moves the corner of a prototype to `low`, or to both; these are in rad/s. */
RootsAndGain moved(RootsAndGain f, Pass pass, double low, double high) {
  const std::size_t degree = f.poles.size() - f.zeros.size();
  const int powers = static_cast<int>(degree);
  const double width = high - low, center = std::sqrt(low * high);
  const auto each = [&](auto change) {
    for (auto* roots : {&f.zeros, &f.poles})
      for (Complex& root : *roots) root = change(root);
  };
  switch (pass) {
    case Pass::kLow:
      each([&](const Complex& root) { return low * root; });
      f.gain *= elementary::power(low, powers);
      break;
    case Pass::kHigh:
      f.gain *= quotient(product_of_negated(f.zeros), product_of_negated(f.poles)).real();
      each([&](const Complex& root) { return quotient(low, root); });
      f.zeros.insert(f.zeros.end(), degree, 0.0);
      break;
    case Pass::kBand:
      each([&](const Complex& root) { return root * (width / 2.0); });
      f.zeros = split(f.zeros, center);
      f.poles = split(f.poles, center);
      f.zeros.insert(f.zeros.end(), degree, 0.0);
      f.gain *= elementary::power(width, powers);
      break;
    case Pass::kStop:
      f.gain *= quotient(product_of_negated(f.zeros), product_of_negated(f.poles)).real();
      each([&](const Complex& root) { return quotient(width / 2.0, root); });
      f.zeros = split(f.zeros, center);
      f.poles = split(f.poles, center);
      for (const double sign : {1.0, -1.0})
        f.zeros.insert(f.zeros.end(), degree, Complex(0.0, sign * center));
      break;
  }
  return f;
}

constexpr double kTwiceRate = 4.0;  // of the bilinear transform, at a rate of 2

RootsAndGain bilinear(RootsAndGain f) {
  Complex gain = f.gain;
  for (const Complex& zero : f.zeros) gain *= kTwiceRate - zero;
  for (const Complex& pole : f.poles) gain = quotient(gain, kTwiceRate - pole);
  f.gain = gain.real();
  for (auto* roots : {&f.zeros, &f.poles})
    for (Complex& root : *roots) root = quotient(kTwiceRate + root, kTwiceRate - root);
  f.zeros.resize(f.poles.size(), -1.0);
  return f;
}

bool is_real(const Complex& root) {
  return root.imag() == 0.0;
}

/** Of conjugates the upper one, by rising real part, then the real roots. */
std::vector<Complex> upper_half(const std::vector<Complex>& roots) {
  constexpr double kTolerance = 100.0 * 2.220446049250313e-16;
  std::vector<Complex> upper, real;
  for (const Complex& root : roots) {
    if (std::abs(root.imag()) <= kTolerance * magnitude(root))
      real.emplace_back(root.real());
    else if (root.imag() > 0.0)
      upper.push_back(root);
  }
  const auto before = [](const Complex& x, const Complex& y) {
    return x.real() != y.real() ? x.real() < y.real() : x.imag() < y.imag();
  };
  std::stable_sort(upper.begin(), upper.end(), before);
  std::stable_sort(real.begin(), real.end(), before);
  upper.insert(upper.end(), real.begin(), real.end());
  return upper;
}

constexpr char kNothingLeft[] =
    "no filter of this order and these corners is left in double precision";

enum class Which { kAny, kReal };

/** Takes the root for which `distance` is least. */
template <typename Distance>
Complex take(std::vector<Complex>* roots, Which which, Distance distance) {
  auto best = roots->end();
  for (auto root = roots->begin(); root != roots->end(); ++root) {
    if (which == Which::kReal && !is_real(*root)) continue;
    if (best == roots->end() || distance(*root) < distance(*best)) best = root;
  }
  if (best == roots->end()) throw Error(kInputError, kNothingLeft);
  const Complex taken = *best;
  roots->erase(best);
  return taken;
}

/** The last section has the poles that are nearest to the unit circle, with the zeros that are
 * nearest to them; and so on. */
FilterDesign sections_of(RootsAndGain f) {
  const std::size_t count = (f.poles.size() + 1) / 2;
  f.poles.resize(2 * count);
  f.zeros.resize(2 * count);
  std::vector<Complex> poles = upper_half(f.poles), zeros = upper_half(f.zeros);
  const auto from_circle = [](const Complex& root) { return std::abs(1.0 - magnitude(root)); };
  FilterDesign design{FilterDesign::kSections, std::vector<double>(3 * count),
                      std::vector<double>(3 * count)};
  for (std::size_t k = count; k-- > 0;) {
    const Complex pole = take(&poles, Which::kAny, from_circle);
    const auto near = [&](const Complex& root) { return magnitude(pole - root); };
    const Complex other_pole =
        is_real(pole) ? take(&poles, Which::kReal, from_circle) : std::conj(pole);
    const Complex zero = take(&zeros, Which::kAny, near);
    const Complex other_zero = is_real(zero) ? take(&zeros, Which::kReal, near) : std::conj(zero);
    double* const b = &design.b[3 * k];
    double* const a = &design.a[3 * k];
    b[0] = a[0] = 1.0;
    b[1] = -(zero + other_zero).real();
    b[2] = (zero * other_zero).real();
    a[1] = -(pole + other_pole).real();
    a[2] = (pole * other_pole).real();
  }
  for (std::size_t i = 0; i < 3; ++i) design.b[i] *= f.gain;
  return design;
}

}  // namespace

double excess(double decibels) {
  const double half = 0.05 * kLogTen * decibels;
  return 2.0 * elementary::sinh(half) * elementary::exp(half);  // e^(2 half) - 1
}

Complex product_of_negated(const std::vector<Complex>& roots) {
  Complex product = 1.0;
  for (const Complex& root : roots) product *= -root;
  return product;
}

void check_corners(const Corners& corners, int rate) {
  const bool two = corners.pass == Pass::kBand || corners.pass == Pass::kStop;
  for (const double corner : {corners.low, two ? corners.high : corners.low})
    if (!(corner > 0.0 && corner < rate / 2.0))
      throw Error(kInputError, "a corner of " + shown(corner) +
                                   " Hz; accepted are more than 0 and less than " +
                                   shown(rate / 2.0) + " Hz, half the sample rate");
  if (two && !(corners.low < corners.high))
    throw Error(kInputError, "corners of " + shown(corners.low) + " and " + shown(corners.high) +
                                 " Hz; the second has to be the higher one");
}

void check_order(int order, int most) {
  if (order < 1 || order > most)
    throw Error(kInputError, "order " + std::to_string(order) + "; 1 to " + std::to_string(most) +
                                 " are accepted");
}

void check_decibels(double decibels, const char* name) {
  if (!(decibels > 0.0 && decibels <= 300.0))
    throw Error(kInputError, std::string(name) + " of " + shown(decibels) +
                                 " dB; more than 0 and up to 300 dB are accepted");
}

FilterDesign digital_filter(const RootsAndGain& prototype, const Corners& corners, int rate) {
  check_corners(corners, rate);
  const auto warped = [&](double corner) {
    return kTwiceRate * elementary::tan(kPi * (2.0 * corner / rate) / 2.0);
  };
  FilterDesign design = sections_of(
      bilinear(moved(prototype, corners.pass, warped(corners.low), warped(corners.high))));
  for (const std::vector<double>* part : {&design.b, &design.a})
    for (const double value : *part)
      if (!std::isfinite(value) || design.b[0] == 0.0) throw Error(kInputError, kNothingLeft);
  return design;
}

}  // namespace jurn
