/* Steps of four samples through cascades of sections. */
#include "../../../../common/exact_arithmetic.h"

#include "../records/sections.h"

#include <math.h>

void JURN_run_sections(const double* coefficients, double* states, int sections, double* x,
                       int steps, int keep) {
  for (int k = 0; k < sections; ++k) {
    const double* const h = coefficients +
                            k / section_group * (section_coefficients * section_group) +
                            k % section_group;
    double* const s =
        states + k / section_group * (section_states * section_group) + k % section_group;
    const auto at = [&](int i) { return h[i * section_group]; };
    double s0 = s[0], s1 = s[section_group];
    for (int i = 0; i < 4 * steps; i += 4) {
      const double x0 = x[i], x1 = x[i + 1], x2 = x[i + 2], x3 = x[i + 3];
      const double e0 = at(section_e), e1 = at(section_e + 1), e2 = at(section_e + 2),
                   e3 = at(section_e + 3), b = at(section_b);
      x[i] = (at(section_c) * s0 + e0 * s1) + (0.0 + b * x0);
      x[i + 1] = (at(section_c + 1) * s0 + e1 * s1) + ((0.0 + e0 * x0) + b * x1);
      x[i + 2] = (at(section_c + 2) * s0 + e2 * s1) + (((0.0 + e1 * x0) + e0 * x1) + b * x2);
      x[i + 3] =
          (at(section_c + 3) * s0 + e3 * s1) + ((((0.0 + e2 * x0) + e1 * x1) + e0 * x2) + b * x3);
      const double next =
          (at(section_p) * s0 + at(section_q) * s1) +
          (((0.0 + at(section_f) * x0) + at(section_f + 1) * x1) + at(section_f + 2) * x2);
      s1 = (at(section_p) * s1 + at(section_r) * s0) +
           ((((0.0 + at(section_g) * x0) + at(section_g + 1) * x1) + at(section_g + 2) * x2) + x3);
      s0 = next;
    }
    if (keep) {
      s[0] = s0;
      s[section_group] = s1;
    }
  }
}

void JURN_clean_sections(double* states, int sections) {
  const double smallest = 1e-30;
  for (int k = 0; k < sections; ++k) {
    double* const s =
        states + k / section_group * (section_states * section_group) + k % section_group;
    const double a = fabs(s[0]), b = fabs(s[section_group]);
    const bool finite = a - a == 0 && b - b == 0;
    if (!finite || (a < smallest && b < smallest)) s[0] = s[section_group] = 0.0;
  }
}
