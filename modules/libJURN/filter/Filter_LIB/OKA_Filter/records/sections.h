/* What the sources of the sections objects share.
 *
 * Sections lie in groups of four, so that vectors of sections are loaded in one piece: of each
 * coefficient, and of each state, those of the group lie side by side. What a last group has beyond
 * the sections is 0 and is not used. */
#ifndef JURN_SECTIONS_H
#define JURN_SECTIONS_H

#include "../../Sections_control.h"

enum {
  section_group = 4,
  section_states = 2,
  section_step = 4,    /* samples */
  section_chunk = 256, /* frames from one cleaning of the states to the next */
  section_ready = 0x53454331
};

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
  section_coefficients = 18
};

/** Followed by lists x groups x coefficients x 4 doubles. */
struct Sections_filter_st {
  int ready;
  int sections;
  int lists;
  int groups;
};

/** Followed by channels x 4 inputs of an unfinished step, and channels x groups x states x 4. */
struct Sections_stream_st {
  int ready;
  int channels;
  int sections; /* room */
  int groups;
  unsigned position; /* frames, modulo section_chunk */
  int unused;
  unsigned long long bad;
};

static inline const double* JURN_section_coefficients(const struct Sections_filter_st* filter,
                                                      int list) {
  return (const double*)(filter + 1) +
         (size_t)list * filter->groups * (section_coefficients * section_group);
}

static inline double* JURN_section_inputs(struct Sections_stream_st* stream, int channel) {
  return (double*)(stream + 1) + (size_t)channel * section_step;
}

static inline double* JURN_section_states(struct Sections_stream_st* stream, int channel) {
  return (double*)(stream + 1) + (size_t)stream->channels * section_step +
         (size_t)channel * stream->groups * (section_states * section_group);
}

JURN_EXTERN_C_BEGIN

/**
 * Runs steps of one channel through all sections, in place.
 *
 * @param coefficients, states of the channel, from the first group on
 * @param sections 1 or more
 * @param x 4 steps samples
 * @param keep whether the states change
 */
void JURN_run_sections(const double* coefficients, double* states, int sections, double* x,
                       int steps, int keep);

/** The cleaning: see "Silence" in Sections_control.h. */
void JURN_clean_sections(double* states, int sections);

JURN_EXTERN_C_END

#endif
