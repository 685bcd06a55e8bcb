#include "stability.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>

#include "errors.h"
#include "spectrum.h"

namespace tool {
namespace {

using Complex = std::complex<double>;

// Of a double pole on the circle, rounding moves the computed radius by less.
constexpr double kRadiusTolerance = 1e-7;

// A gain that rounds to 0.0 dB is no news.
constexpr double kClipTolerance = 0.05;

/** Both roots of x² + p x + q, the larger first, so that neither suffers cancellation. */
std::vector<Complex> quadratic_roots(double p, double q) {
  const double d = p * p / 4.0 - q;
  if (d < 0.0) return {{-p / 2.0, std::sqrt(-d)}, {-p / 2.0, -std::sqrt(-d)}};
  const double x = -p / 2.0 - std::copysign(std::sqrt(d), p);
  return {x, x == 0.0 ? 0.0 : q / x};
}

/** The Newton step p(z)/p'(z), 0 where p(z) is within rounding of 0. Outside the unit circle the
 * reversed polynomial at 1/z is evaluated, which cannot overflow. */
Complex newton_step(const std::vector<double>& p, Complex z) {
  const std::size_t n = p.size() - 1;
  const bool outside = std::norm(z) > 1.0;
  const Complex x = outside ? 1.0 / z : z;
  const double size = std::abs(x);
  Complex value = 0.0, slope = 0.0;
  double bound = 0.0;
  for (std::size_t i = 0; i <= n; ++i) {
    const double c = outside ? p[n - i] : p[i];
    slope = slope * x + value;
    value = value * x + c;
    bound = bound * size + std::abs(c);
  }
  if (std::abs(value) <= 4.0 * std::numeric_limits<double>::epsilon() * bound) return 0.0;
  if (!outside) return value / slope;
  return value / (x * (static_cast<double>(n) * value - x * slope));
}

std::string decibels(double gain) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f dB", 20.0 * std::log10(gain));
  return text;
}

FilterDesign negated(FilterDesign design) {
  const std::size_t group = design.kind == FilterDesign::kSections ? 3 : design.a.size();
  for (std::size_t i = 0; i < design.a.size(); ++i)
    if (i % group) design.a[i] = -design.a[i];
  return design;
}

double largest_pole_radius(const FilterDesign& design) {
  double radius = 0.0;
  for (const Complex& pole : roots_of(design, design.a)) radius = std::max(radius, std::abs(pole));
  return radius;
}

}  // namespace

std::vector<Complex> roots(std::vector<double> p) {
  while (!p.empty() && p.front() == 0.0) p.erase(p.begin());
  std::size_t at_zero = 0;
  for (; !p.empty() && p.back() == 0.0; p.pop_back()) ++at_zero;
  if (p.empty()) return {};
  const std::size_t n = p.size() - 1;
  std::vector<Complex> z;
  if (n == 1) {
    z = {-p[1] / p[0]};
  } else if (n == 2) {
    z = quadratic_roots(p[1] / p[0], p[2] / p[0]);
  } else {
    // All roots at once, by the Aberth iteration; it starts on a circle with the roots' mean
    // radius, turned off the real axis, which they would else not leave.
    const double radius = std::pow(std::abs(p[n] / p[0]), 1.0 / static_cast<double>(n));
    for (std::size_t i = 0; i < n; ++i)
      z.push_back(std::polar(
          radius, (static_cast<double>(i) + 0.3) * 2.0 * std::acos(-1.0) / static_cast<double>(n)));
    std::vector<bool> done(n, false);
    for (int round = 0; round < 200; ++round) {
      bool all_done = true;
      for (std::size_t i = 0; i < n; ++i) {
        if (done[i]) continue;
        const Complex newton = newton_step(p, z[i]);
        Complex others = 0.0;
        for (std::size_t k = 0; k < n && newton != 0.0; ++k)
          if (k != i && z[k] != z[i]) others += 1.0 / (z[i] - z[k]);
        const Complex step = newton / (1.0 - newton * others);
        if (std::isfinite(std::abs(step))) z[i] -= step;
        done[i] = std::abs(step) <= 1e-15 * std::abs(z[i]);
        all_done = all_done && done[i];
      }
      if (all_done) break;
    }
  }
  z.resize(z.size() + at_zero);
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

std::string check_stability(const std::string& path, std::optional<bool> negate,
                            FilterDesign* design) {
  if (negate.value_or(false)) *design = negated(std::move(*design));
  const double radius = largest_pole_radius(*design);
  if (radius <= 1.0 + kRadiusTolerance) return {};
  char value[32];
  std::snprintf(value, sizeof value, "%.9g", radius);
  const std::string unstable =
      path + ": the filter is unstable, its outermost pole has the radius " + value;
  if (!negate && largest_pole_radius(negated(*design)) < 1.0)
    throw Error(kInputError,
                unstable +
                    "; with the signs of a turned it is stable, so they look negated: --negate-a "
                    "turns them, --keep-a runs it as it is");
  return unstable;
}

std::string check_peak(const std::string& path, const FilterDesign& design, double gain) {
  if (largest_pole_radius(design) > 1.0 + kRadiusTolerance) return {};
  const double peak = gain * peak_gain(design);
  if (std::isinf(peak)) return path + ": the filter's gain is infinite at some frequency";
  if (!(20.0 * std::log10(peak) >= kClipTolerance)) return {};
  return path + ": the filter's largest gain is " + decibels(peak) +
         ", by which a full-scale signal would clip";
}

}  // namespace tool
