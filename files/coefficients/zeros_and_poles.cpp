// Filters given by their zeros, poles and gain.
#include "exact.h"

#include <algorithm>
#include <cmath>
#include <complex>

#include "coefficients/roles.h"
#include "elementary.h"

namespace jurn {
namespace {

using Complex = std::complex<double>;
using elementary::magnitude;

/** Two roots that a section takes, as the polynomial 1, c1, c2. */
struct Pair {
  Complex first, second;
};

/** Roots as pairs: conjugates together, real ones by their size, a lone one with a root at 0. */
std::vector<Pair> pairs_of(const std::string& path, const Array& array) {
  std::vector<Complex> complex;
  std::vector<double> real;
  for (std::size_t i = 0; i < array.values.size(); ++i) {
    const double imaginary = array.imaginary.empty() ? 0.0 : array.imaginary[i];
    if (imaginary == 0.0)
      real.push_back(array.values[i]);
    else
      complex.emplace_back(array.values[i], imaginary);
  }
  std::vector<Pair> pairs;
  while (!complex.empty()) {
    const Complex root = complex.back();
    complex.pop_back();
    const auto mate =
        std::min_element(complex.begin(), complex.end(), [&](const Complex& x, const Complex& y) {
          return magnitude(x - std::conj(root)) < magnitude(y - std::conj(root));
        });
    if (mate == complex.end() ||
        magnitude(*mate - std::conj(root)) > 1e-6 * (1.0 + magnitude(root)))
      fail(path, label(array) + " holds the root " + shown(root.real()) +
                     (root.imag() < 0 ? " - " : " + ") + shown(std::abs(root.imag())) +
                     "i without its conjugate; filters of real samples have both");
    complex.erase(mate);
    pairs.push_back({root, std::conj(root)});
  }
  std::stable_sort(real.begin(), real.end(),
                   [](double x, double y) { return std::abs(x) > std::abs(y); });
  for (std::size_t i = 0; i < real.size(); i += 2)
    pairs.push_back({real[i], i + 1 < real.size() ? real[i + 1] : 0.0});
  return pairs;
}

double distance(const Pair& zeros, const Pair& poles) {
  return magnitude(zeros.first - poles.first) + magnitude(zeros.second - poles.second);
}

}  // namespace

FilterDesign zpk_design(const std::string& path, const Array& zeros, const Array& poles,
                        double gain) {
  const auto count = [](const Array& array) { return array.values.size(); };
  if (count(zeros) > count(poles))
    fail(path, "has " + count_of(count(zeros), "zero") + " and " + count_of(count(poles), "pole") +
                   "; a digital filter has as many poles, or more");
  std::vector<Pair> rest = pairs_of(path, zeros), sections = pairs_of(path, poles);
  std::stable_sort(sections.begin(), sections.end(), [](const Pair& x, const Pair& y) {
    return magnitude(x.first) > magnitude(y.first);
  });
  FilterDesign design{FilterDesign::kSections, {}, {}};
  // Each zero less is a delay of one sample.
  std::ptrdiff_t delays =
      static_cast<std::ptrdiff_t>(count(poles)) - static_cast<std::ptrdiff_t>(count(zeros));
  for (const Pair& pole : sections) {
    double b[3] = {1.0, 0.0, 0.0};
    if (!rest.empty()) {
      const auto near = std::min_element(
          rest.begin(), rest.end(),
          [&](const Pair& x, const Pair& y) { return distance(x, pole) < distance(y, pole); });
      b[1] = -(near->first + near->second).real();
      b[2] = (near->first * near->second).real();
      rest.erase(near);
    }
    design.b.insert(design.b.end(), b, b + 3);
    design.a.insert(design.a.end(),
                    {1.0, -(pole.first + pole.second).real(), (pole.first * pole.second).real()});
  }
  if (sections.empty()) {
    design.b = {1.0, 0.0, 0.0};
    design.a = {1.0, 0.0, 0.0};
  }
  // Each delay moves one numerator that ends with 0 on by a sample.
  for (std::size_t s = 0; s < design.b.size() && delays > 0; s += 3)
    while (delays > 0 && design.b[s + 2] == 0.0) {
      std::rotate(design.b.begin() + static_cast<std::ptrdiff_t>(s),
                  design.b.begin() + static_cast<std::ptrdiff_t>(s + 2),
                  design.b.begin() + static_cast<std::ptrdiff_t>(s + 3));
      --delays;
    }
  for (std::size_t i = 0; i < 3; ++i) design.b[i] *= gain;
  return design;
}

}  // namespace jurn
