#include "exact.h"

#include "design/roots.h"
#include "units.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <type_traits>

#include "design/wide.h"
#include "elementary.h"

namespace jurn {
namespace {

using Complex = std::complex<double>;
using elementary::magnitude, elementary::quotient;

constexpr double kEpsilon = std::numeric_limits<double>::epsilon();
constexpr std::size_t kMaxOrder = 64;

double narrow(double x) {
  return x;
}

double narrow(Wide x) {
  return x.high;
}

template <typename Real>
struct ComplexOf {
  Real real{}, imag{};
};

/** x * y + c, where y is exact in double. */
template <typename Real>
ComplexOf<Real> multiply_add(const ComplexOf<Real>& x, Complex y, const ComplexOf<Real>& c) {
  return {x.real * y.real() + x.imag * -y.imag() + c.real,
          x.real * y.imag() + x.imag * y.real() + c.imag};
}

/** Both roots of x² + p x + q, the larger first, so that neither suffers cancellation. */
std::vector<Complex> quadratic_roots(double p, double q) {
  const double half = p / 2.0, rough = half * half - q;
  // The digits below count where the two cancel; where one overflows there are none.
  const double d = std::isfinite(rough) ? (Wide{half, 0.0} * half + Wide{-q, 0.0}).high : rough;
  if (d < 0.0) return {{-half, std::sqrt(-d)}, {-half, -std::sqrt(-d)}};
  const double x = -half - std::copysign(std::sqrt(d), p);
  return {x, x == 0.0 ? 0.0 : q / x};
}

/** The Newton step p(z)/p'(z), 0 where p(z) is within rounding of 0. Outside the unit circle the
 * reversed polynomial at 1/z is evaluated, which cannot overflow. */
template <typename Real>
Complex newton_step(const std::vector<Real>& p, Complex z) {
  constexpr double rounding = std::is_same_v<Real, Wide> ? kEpsilon * kEpsilon : kEpsilon;
  const std::size_t n = p.size() - 1;
  const bool outside = std::norm(z) > 1.0;
  const Complex x = outside ? quotient(1.0, z) : z;
  const double size = magnitude(x);
  ComplexOf<Real> wide_value, wide_slope;
  double bound = 0.0;
  for (std::size_t i = 0; i <= n; ++i) {
    const Real c = outside ? p[n - i] : p[i];
    wide_slope = multiply_add(wide_slope, x, wide_value);
    wide_value = multiply_add(wide_value, x, {c, Real{}});
    bound = bound * size + std::abs(narrow(c));
  }
  const Complex value(narrow(wide_value.real), narrow(wide_value.imag));
  const Complex slope(narrow(wide_slope.real), narrow(wide_slope.imag));
  if (magnitude(value) <= 4.0 * rounding * bound) return 0.0;
  if (!outside) return quotient(value, slope);
  return quotient(value, x * (static_cast<double>(n) * value - x * slope));
}

/** Divides by (z - root) while it is a root exactly. Of a root that comes several times an
 * iteration would find no more than a ring around it. */
void take_out(double root, std::vector<Wide>* p, std::vector<Complex>* z) {
  while (p->size() > 1) {
    std::vector<Wide> quotient;
    Wide value;
    double bound = 0.0;
    for (const Wide& c : *p) {
      value = value * root + c;
      bound += std::abs(c.high);
      quotient.push_back(value);
    }
    if (std::abs(value.high) > 16.0 * kEpsilon * kEpsilon * bound) return;
    quotient.pop_back();
    *p = quotient;
    z->push_back(root);
  }
}

/** All roots at once, by the Aberth iteration; it starts on a circle with the roots' mean radius,
 * turned off the real axis, which they would else not leave. */
template <typename Real>
std::vector<Complex> iterate(const std::vector<Real>& p) {
  const std::size_t n = p.size() - 1;
  const double radius = elementary::exp(elementary::log(std::abs(narrow(p[n]) / narrow(p[0]))) /
                                        static_cast<double>(n));
  std::vector<Complex> z;
  for (std::size_t i = 0; i < n; ++i)
    z.push_back(elementary::polar(
        radius, (static_cast<double>(i) + 0.3) * 2.0 * kPi / static_cast<double>(n)));
  std::vector<bool> done(n, false);
  for (int round = 0; round < 200; ++round) {
    bool all_done = true;
    for (std::size_t i = 0; i < n; ++i) {
      if (done[i]) continue;
      const Complex newton = newton_step(p, z[i]);
      Complex others = 0.0;
      for (std::size_t k = 0; k < n && newton != 0.0; ++k)
        if (k != i && z[k] != z[i]) others += quotient(1.0, z[i] - z[k]);
      const Complex step = quotient(newton, 1.0 - newton * others);
      if (std::isfinite(magnitude(step))) z[i] -= step;
      done[i] = magnitude(step) <= 1e-15 * magnitude(z[i]);
      all_done = all_done && done[i];
    }
    if (all_done) break;
  }
  return z;
}

/** Makes conjugates exact. A root that is real but for rounding becomes real. */
std::vector<Complex> conjugates(std::vector<Complex> z) {
  std::vector<Complex> result;
  std::vector<Complex> below;
  for (Complex& root : z) {
    if (std::abs(root.imag()) <= 1e-13 * magnitude(root))
      result.push_back(root.real());
    else if (root.imag() < 0.0)
      below.push_back(root);
  }
  for (const Complex& root : z) {
    if (!(root.imag() > 1e-13 * magnitude(root)) || below.empty()) continue;
    const auto partner =
        std::min_element(below.begin(), below.end(), [&](const Complex& x, const Complex& y) {
          return magnitude(std::conj(x) - root) < magnitude(std::conj(y) - root);
        });
    below.erase(partner);
    result.push_back(root);
    result.push_back(std::conj(root));
  }
  return result.size() == z.size() ? result : z;
}

struct ZerosPolesGain {
  std::vector<Complex> zeros, poles;
  double gain = 1.0;
  std::size_t delay = 0;
};

/** Drops roots at 0, which only say how the counts of coefficients differ. */
void drop_origin(std::vector<Complex>* z) {
  z->erase(std::remove(z->begin(), z->end(), Complex(0.0)), z->end());
}

ZerosPolesGain zeros_poles_gain(const FilterDesign& design) {
  ZerosPolesGain result;
  result.zeros = roots_of(design, design.b);
  result.poles = roots_of(design, design.a);
  drop_origin(&result.zeros);
  drop_origin(&result.poles);
  const std::size_t group = design.kind == FilterDesign::kSections ? 3 : design.b.size();
  for (std::size_t at = 0; at < design.b.size(); at += group) {
    std::size_t i = 0;
    while (i < group && design.b[at + i] == 0.0) ++i;
    result.gain *= i < group ? design.b[at + i] : 0.0;
    result.delay += i;
  }
  return result;
}

/** Removes the root nearest to `place` and, of a pair, its conjugate, or of real ones the nearest
 * other; appends them to `taken`. */
void take_nearest(Complex place, std::vector<Complex>* all, std::vector<Complex>* taken) {
  const auto move_nearest = [&](bool real_only) {
    auto best = all->end();
    for (auto i = all->begin(); i != all->end(); ++i)
      if ((!real_only || i->imag() == 0.0) &&
          (best == all->end() || magnitude(*i - place) < magnitude(*best - place)))
        best = i;
    if (best == all->end()) return;
    taken->push_back(*best);
    all->erase(best);
  };
  if (all->empty()) return;
  move_nearest(false);
  if (taken->back().imag() == 0.0) return move_nearest(true);
  const auto other = std::find(all->begin(), all->end(), std::conj(taken->back()));
  if (other == all->end()) return;
  taken->push_back(*other);
  all->erase(other);
}

/** The coefficients of (1 - r0/z) (1 - r1/z). */
void append_factor(const std::vector<Complex>& r, std::vector<double>* out) {
  const Complex r0 = r.empty() ? 0.0 : r[0], r1 = r.size() > 1 ? r[1] : 0.0;
  out->push_back(1.0);
  out->push_back(-(r0 + r1).real());
  out->push_back((r0 * r1).real());
}

/** Whether the sections' factors multiply to the polynomial, as far as doubles can tell. */
bool gives_back(const std::vector<double>& polynomial, const std::vector<double>& factors,
                double gain) {
  std::vector<Wide> product{{gain, 0.0}};
  for (std::size_t at = 0; at < factors.size(); at += 3) {
    std::vector<Wide> next(product.size() + 2);
    for (std::size_t i = 0; i < product.size(); ++i)
      for (std::size_t k = 0; k < 3; ++k) next[i + k] = next[i + k] + product[i] * factors[at + k];
    product = std::move(next);
  }
  std::size_t first = 0;
  while (first < polynomial.size() && polynomial[first] == 0.0) ++first;
  double difference = 0.0, size = 0.0;
  for (std::size_t i = 0; i < std::max(product.size(), polynomial.size() - first); ++i) {
    const double wanted = first + i < polynomial.size() ? polynomial[first + i] : 0.0;
    difference =
        std::max(difference, std::abs(i < product.size() ? product[i].high - wanted : wanted));
    size = std::max(size, std::abs(wanted));
  }
  return difference <= 1e-13 * size;
}

}  // namespace

std::vector<Complex> roots(std::vector<double> p) {
  p.erase(p.begin(), std::find_if(p.begin(), p.end(), [](double c) { return c != 0.0; }));
  std::vector<Complex> z;
  for (; !p.empty() && p.back() == 0.0; p.pop_back()) z.push_back(0.0);
  std::vector<Complex> found;
  if (p.size() == 2) {
    found = {-p[1] / p[0]};
  } else if (p.size() == 3) {
    found = quadratic_roots(p[1] / p[0], p[2] / p[0]);
  } else if (p.size() > kMaxOrder + 1) {
    found = conjugates(iterate(p));
  } else if (p.size() > 3) {
    std::vector<Wide> wide;
    for (const double c : p) wide.push_back({c, 0.0});
    take_out(-1.0, &wide, &z);
    take_out(1.0, &wide, &z);
    if (wide.size() > 1) found = conjugates(iterate(wide));
  }
  z.insert(z.end(), found.begin(), found.end());
  return z;
}

std::vector<Complex> roots_of(const FilterDesign& design, const std::vector<double>& all) {
  const std::size_t group = design.kind == FilterDesign::kSections ? 3 : all.size();
  std::vector<Complex> result;
  for (std::size_t at = 0; at < all.size(); at += group) {
    const auto first = all.begin() + static_cast<std::ptrdiff_t>(at);
    const std::vector<Complex> part = roots({first, first + static_cast<std::ptrdiff_t>(group)});
    result.insert(result.end(), part.begin(), part.end());
  }
  return result;
}

double pole_radius(const FilterDesign& design) {
  double radius = 0.0;
  for (const Complex& pole : roots_of(design, design.a)) radius = std::max(radius, magnitude(pole));
  return radius;
}

std::optional<FilterDesign> paired_sections(const FilterDesign& design) {
  const bool is_direct = design.kind != FilterDesign::kSections;
  const std::size_t order = std::max(design.b.size(), design.a.size());
  if (order > (is_direct ? kMaxOrder + 1 : 3 * kMaxOrder / 2)) return {};
  ZerosPolesGain all = zeros_poles_gain(design);
  if (all.gain == 0.0 || !std::isfinite(all.gain)) return {};

  // The outermost poles choose their zeros first; a real one goes with the next real one.
  std::vector<FilterDesign> sections;
  while (!all.poles.empty() || !all.zeros.empty()) {
    std::vector<Complex> poles, zeros;
    const auto outermost =
        std::max_element(all.poles.begin(), all.poles.end(),
                         [](Complex x, Complex y) { return std::norm(x) < std::norm(y); });
    const Complex place = outermost == all.poles.end() ? Complex(0.0) : *outermost;
    take_nearest(place, &all.poles, &poles);
    take_nearest(place, &all.zeros, &zeros);
    sections.push_back({FilterDesign::kSections, {}, {}});
    append_factor(zeros, &sections.back().b);
    append_factor(poles, &sections.back().a);
  }
  FilterDesign result{FilterDesign::kSections, {}, {}};
  for (auto s = sections.rbegin(); s != sections.rend(); ++s) {
    result.b.insert(result.b.end(), s->b.begin(), s->b.end());
    result.a.insert(result.a.end(), s->a.begin(), s->a.end());
  }
  if (is_direct && !(gives_back(design.b, result.b, all.gain) &&
                     gives_back(design.a, result.a, design.a.empty() ? 1.0 : design.a[0])))
    return {};
  for (; all.delay > 0 || result.b.empty(); all.delay -= std::min<std::size_t>(all.delay, 2)) {
    for (std::size_t i = 0; i < 3; ++i) {
      result.b.push_back(i == std::min<std::size_t>(all.delay, 2) ? 1.0 : 0.0);
      result.a.push_back(i == 0 ? 1.0 : 0.0);
    }
  }
  for (std::size_t i = 0; i < 3; ++i) result.b[i] *= all.gain;
  return result;
}

}  // namespace jurn
