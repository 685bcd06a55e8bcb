#include "exact.h"

#include "design/frequency_response.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "design/roots.h"
#include "elementary.h"
#include "units.h"

namespace jurn {
namespace {

using Complex = std::complex<double>;

constexpr std::size_t kFrequencies = 1000;
constexpr std::size_t kMaxImpulse = 65536;  // of recursive filters, in samples
constexpr double kDecayed = 1e-3;

/** Multiplies (or divides) by a polynomial in x, and adds (or subtracts) its delay. */
void apply(const double* c, std::size_t count, Complex x, bool divide, ResponsePoint* h) {
  Complex value = 0.0, slope = 0.0;
  for (std::size_t k = count; k-- > 0;) {
    slope = slope * x + value;
    value = value * x + c[k];
  }
  const double delay = elementary::quotient(slope * x, value).real();
  h->value = divide ? elementary::quotient(h->value, value) : h->value * value;
  h->delay += divide ? -delay : delay;
}

/** Applies one section, or all coefficients of other kinds. */
void apply_group(const FilterDesign& design, std::size_t at, std::size_t group, Complex x,
                 ResponsePoint* h) {
  for (const std::vector<double>* all : {&design.b, &design.a})
    if (at < all->size())
      apply(all->data() + at, std::min(group, all->size() - at), x, all == &design.a, h);
}

std::vector<double> frequencies(int rate) {
  const double top = rate / 2.0, bottom = std::min(10.0, top / 1000.0);
  const double rise = elementary::log(top / bottom);
  std::vector<double> result;
  for (std::size_t i = 0; i + 1 < kFrequencies; ++i)
    result.push_back(bottom * elementary::exp(rise * static_cast<double>(i) / (kFrequencies - 1)));
  result.push_back(top);
  return result;
}

}  // namespace

ResponsePoint response_at(const FilterDesign& design, double frequency) {
  const Complex x = elementary::polar(1.0, -frequency);
  const std::size_t group = group_of(design);
  ResponsePoint h{1.0, 0.0};
  // Section by section, so that the product of many numerators does not leave the numbers.
  for (std::size_t at = 0; at < std::max(design.b.size(), design.a.size()); at += group)
    apply_group(design, at, group, x, &h);
  return h;
}

ResponsePoint section_response_at(const FilterDesign& sections, std::size_t k, double frequency) {
  ResponsePoint h{1.0, 0.0};
  apply_group(sections, 3 * k, 3, elementary::polar(1.0, -frequency), &h);
  return h;
}

std::vector<double> impulse_response(const FilterDesign& design) {
  if (design.a.empty()) return design.b;
  std::vector<double> x(kMaxImpulse, 0.0), y(kMaxImpulse, 0.0);
  x[0] = 1.0;
  const std::size_t group = group_of(design);
  for (std::size_t at = 0; at < std::max(design.b.size(), design.a.size()); at += group) {
    for (std::size_t n = 0; n < x.size(); ++n) {
      double sum = 0.0;
      for (std::size_t k = 0; k < std::min(group, design.b.size() - at) && k <= n; ++k)
        sum += design.b[at + k] * x[n - k];
      for (std::size_t k = 1; k < std::min(group, design.a.size() - at) && k <= n; ++k)
        sum -= design.a[at + k] * y[n - k];
      y[n] = sum;
    }
    x.swap(y);
  }
  double peak = 0.0;
  for (std::size_t n = 0; n < x.size(); ++n) {
    peak = std::max(peak, std::abs(x[n]));
    if (!(peak < 1e6)) x.resize(n + 1);  // unstable
  }
  while (x.size() > 16 && std::abs(x.back()) < kDecayed * peak) x.pop_back();
  return x;
}

Response respond(const FilterDesign& design, int rate) {
  Response r;
  r.frequency = frequencies(rate);
  for (const double f : r.frequency) {
    const ResponsePoint h = response_at(design, 2.0 * kPi * f / rate);
    r.magnitude.push_back(to_decibels(elementary::magnitude(h.value)));
    r.phase.push_back(std::arg(h.value) * 180.0 / kPi);
    r.delay.push_back(1000.0 * h.delay / rate);
  }
  r.impulse = impulse_response(design);
  double sum = 0.0;
  for (const double x : r.impulse) r.step.push_back(sum += x);
  r.has_roots = design.kind == FilterDesign::kSections ||
                std::max(design.b.size(), design.a.size()) <= kMaxRootTaps;
  if (r.has_roots) {
    r.zeros = roots_of(design, design.b);
    if (!design.a.empty()) r.poles = roots_of(design, design.a);
  }
  return r;
}

}  // namespace jurn
