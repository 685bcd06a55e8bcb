// Filters whose state is the caller's, as SciPy and MATLAB have it: transposed direct form II.
#pragma once

#include <cstddef>
#include <vector>

#include "design/filter_design.h"

namespace jurn {

/**
 * Runs numerator and denominator, or one section after another, in double:
 *
 *   y = b[0] x + z[0]
 *   z[i] = (z[i + 1] + b[i + 1] x) - a[i + 1] y,      i < n - 1, of a numerator and denominator;
 *   z[n - 1] = b[n] x - a[n] y
 *   z[0] = (b[1] x - a[1] y) + z[1],  z[1] = b[2] x - a[2] y    of a section
 *
 * with n the order, every product and sum rounded, in the order of scipy.signal's lfilter and
 * sosfilt. Slower than a Voice and, for direct forms of high order, less exact: for those who bring
 * a state or want one. Nothing decays to zero by rule.
 */
class TransposedForm {
 public:
  /** a[0] of the design is 1; taps have no a. */
  explicit TransposedForm(const FilterDesign& design);

  /** Numbers of a channel's state: the order, or two for each section. */
  std::size_t states() const { return states_; }

  /** Filters one channel and leaves the state behind its last sample. `out` may be `in`. */
  void run(const double* in, int frames, double* out, double* state) const;

 private:
  bool is_sections_;
  std::vector<double> b_, a_;  // of the same length
  std::size_t states_;
};

}  // namespace jurn
