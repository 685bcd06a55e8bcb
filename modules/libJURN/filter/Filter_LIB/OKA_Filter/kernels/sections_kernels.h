/* Steps of four samples through cascades of sections, and the samples' way in and out.
 *
 * Sections lie in groups of four, so that vectors of sections are loaded in one piece: of each
 * coefficient, and of each state, those of the group lie side by side. A list ends with a full
 * group; what its first group has too much, in front, is 0. */
#ifndef JURN_SECTIONS_KERNELS_H
#define JURN_SECTIONS_KERNELS_H

#include "../../../../common/JURN_api.h"

enum { section_group = 4, section_states = 2 };

/* The coefficients of a section, by the letters of Sections_control.h. */
enum {
  section_c = 0,
  section_e = 4,
  section_b = 8,
  section_p = 9,
  section_q = 10,
  section_r = 11,
  section_f = 12,
  section_g = 15,
  section_h = 18,     /* D / k */
  section_level = 19, /* the factor, a power of two, that is in the section's input */
  section_coefficients = 20
};

/** What a kernel works on: a channel's coefficients and states from their first group on, and a
 * chunk of samples, which is filtered in place. */
struct SectionsChannel {
  const double* coefficients;
  double* states;
  double* x;
};

JURN_EXTERN_C_BEGIN

/**
 * Runs steps of one channel, or of two, through all sections.
 *
 * @param sections 1 or more
 * @param steps of 4 samples, 1 or more
 * @param keep whether the states change
 */
void JURN_run_sections(const struct SectionsChannel* channel, int channels, int sections, int steps,
                       int keep);

/** Cleans the states of so many groups: see "Silence" in Sections_control.h. */
void JURN_clean_sections(double* states, int groups);

/** Samples that lie `stride` apart as doubles; those that are not finite become 0. Returns their
 * number. */
int JURN_take_short(double* x, const short* in, int stride, int count);
int JURN_take_float(double* x, const float* in, int stride, int count);
int JURN_take_double(double* x, const double* in, int stride, int count);

/** Writes samples `stride` apart: int16 rounded to the nearest, ties to even, and limited. x is
 * lost.
 */
void JURN_give_short(short* out, int stride, double* x, int count);
void JURN_give_float(float* out, int stride, double* x, int count);
void JURN_give_double(double* out, int stride, double* x, int count);

JURN_EXTERN_C_END

#endif
