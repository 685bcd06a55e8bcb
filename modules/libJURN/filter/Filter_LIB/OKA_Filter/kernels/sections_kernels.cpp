/* Steps of four samples through cascades of sections. */
#include "../../../../common/exact_arithmetic.h"

#include "sections_kernels.h"

#include <type_traits>

#define JURN_CLONE_BODY "../../filter/Filter_LIB/OKA_Filter/kernels/sections_kernels.inl"
#include "../../../../common/simd/for_each_clone.h"

void JURN_run_sections(const struct SectionsChannel* channel, int channels, int sections, int steps,
                       int keep) {
  return JURN_CALL_CLONE(run_sections(channel, channels, sections, steps, keep != 0));
}

void JURN_clean_sections(double* states, int groups) {
  const double smallest = 1e-30, largest = 1.7976931348623157e308;
  for (int i = 0; i < groups * section_states * section_group; ++i) {
    if (i % (section_states * section_group) >= section_group) continue;
    const double a = states[i] < 0 ? -states[i] : states[i];
    const double other = states[i + section_group], b = other < 0 ? -other : other;
    const bool finite = a <= largest && b <= largest;
    if (!finite || (a < smallest && b < smallest)) states[i] = states[i + section_group] = 0.0;
  }
}

int JURN_take_short(double* x, const short* in, int stride, int count) {
  return JURN_CALL_CLONE(take(x, in, stride, count));
}
void JURN_give_short(short* out, int stride, double* x, int count) {
  return JURN_CALL_CLONE(give(out, stride, x, count));
}

int JURN_take_float(double* x, const float* in, int stride, int count) {
  return JURN_CALL_CLONE(take(x, in, stride, count));
}
void JURN_give_float(float* out, int stride, double* x, int count) {
  return JURN_CALL_CLONE(give(out, stride, x, count));
}

int JURN_take_double(double* x, const double* in, int stride, int count) {
  return JURN_CALL_CLONE(take(x, in, stride, count));
}
void JURN_give_double(double* out, int stride, double* x, int count) {
  return JURN_CALL_CLONE(give(out, stride, x, count));
}
