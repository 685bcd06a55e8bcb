#include "exact.h"

#include "streams/transposed_form.h"

#include <algorithm>
#include <array>

namespace jurn {
namespace {

/** A numerator and denominator; Order is known, so that the state lies in registers. */
template <std::size_t Order>
void run_order(const double* b, const double* a, const double* in, int frames, double* out,
               double* state) {
  std::array<double, Order> z;
  std::copy_n(state, Order, z.begin());
  for (int i = 0; i < frames; ++i) {
    const double x = in[i];
    const double y = b[0] * x + z[0];
    for (std::size_t j = 1; j < Order; ++j) z[j - 1] = z[j] + b[j] * x - a[j] * y;
    z[Order - 1] = b[Order] * x - a[Order] * y;
    out[i] = y;
  }
  std::copy_n(z.begin(), Order, state);
}

void run_any(const double* b, const double* a, std::size_t order, const double* in, int frames,
             double* out, double* state) {
  for (int i = 0; i < frames; ++i) {
    const double x = in[i];
    const double y = order > 0 ? b[0] * x + state[0] : b[0] * x;
    for (std::size_t j = 1; j < order; ++j) state[j - 1] = state[j] + b[j] * x - a[j] * y;
    if (order > 0) state[order - 1] = b[order] * x - a[order] * y;
    out[i] = y;
  }
}

/** Sections, all of them for a sample: the next sample's first need not wait for the last. */
void run_sections(const double* b, const double* a, std::size_t count, const double* in, int frames,
                  double* out, double* state) {
  for (int i = 0; i < frames; ++i) {
    double x = in[i];
    for (std::size_t k = 0; k < count; ++k) {
      const double* const n = b + 3 * k;
      const double* const d = a + 3 * k;
      double* const z = state + 2 * k;
      const double y = n[0] * x + z[0];
      z[0] = n[1] * x - d[1] * y + z[1];
      z[1] = n[2] * x - d[2] * y;
      x = y;
    }
    out[i] = x;
  }
}

}  // namespace

TransposedForm::TransposedForm(const FilterDesign& design)
    : is_sections_(design.kind == FilterDesign::kSections), b_(design.b), a_(design.a) {
  if (!is_sections_) {
    const std::size_t count = std::max(b_.size(), a_.size());
    b_.resize(count);
    a_.resize(count);
  }
  states_ = is_sections_ ? b_.size() / 3 * 2 : b_.size() - 1;
}

void TransposedForm::run(const double* in, int frames, double* out, double* state) const {
  const double* const b = b_.data();
  const double* const a = a_.data();
  if (is_sections_) return run_sections(b, a, states_ / 2, in, frames, out, state);
  switch (states_) {
    case 1:
      return run_order<1>(b, a, in, frames, out, state);
    case 2:
      return run_order<2>(b, a, in, frames, out, state);
    case 3:
      return run_order<3>(b, a, in, frames, out, state);
    case 4:
      return run_order<4>(b, a, in, frames, out, state);
    default:
      return run_any(b, a, states_, in, frames, out, state);
  }
}

}  // namespace jurn
