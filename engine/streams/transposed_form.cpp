#include "streams/transposed_form.h"

#include <algorithm>

namespace jurn {

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
  if (is_sections_) {
    for (std::size_t k = 0; k < b_.size(); k += 3, state += 2, in = out) {
      const double b0 = b_[k], b1 = b_[k + 1], b2 = b_[k + 2], a1 = a_[k + 1], a2 = a_[k + 2];
      double z0 = state[0], z1 = state[1];
      for (int i = 0; i < frames; ++i) {
        const double x = in[i];
        const double y = b0 * x + z0;
        z0 = b1 * x - a1 * y + z1;
        z1 = b2 * x - a2 * y;
        out[i] = y;
      }
      state[0] = z0;
      state[1] = z1;
    }
    return;
  }
  const std::size_t order = states_;
  for (int i = 0; i < frames; ++i) {
    const double x = in[i];
    const double y = order > 0 ? b_[0] * x + state[0] : b_[0] * x;
    for (std::size_t j = 1; j < order; ++j) state[j - 1] = state[j] + b_[j] * x - a_[j] * y;
    if (order > 0) state[order - 1] = b_[order] * x - a_[order] * y;
    out[i] = y;
  }
}

}  // namespace jurn
