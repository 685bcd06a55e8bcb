/* What the sources of the sections objects share.
 *
 * Sections lie in groups of four, so that vectors of sections are loaded in one piece: of each
 * coefficient, and of each state, those of the group lie side by side. A list ends with a full
 * group; what its first group has too much, in front, is 0. */
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
  section_h = 18,     /* D / k */
  section_level = 19, /* the factor, a power of two, that is in the section's input */
  section_coefficients = 20
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
         (size_t)list * filter->groups * ((size_t)section_coefficients * section_group);
}

static inline int JURN_section_groups(int sections) {
  return (sections + section_group - 1) / section_group;
}

/** Where the values of section k of so many lie, when each section has `values`. */
static inline size_t JURN_section_at(int sections, int k, int values) {
  const int place = JURN_section_groups(sections) * section_group - sections + k;
  return (size_t)(place / section_group) * (values * section_group) + place % section_group;
}

static inline double* JURN_section_inputs(struct Sections_stream_st* stream, int channel) {
  return (double*)(stream + 1) + (size_t)channel * section_step;
}

static inline double* JURN_section_states(struct Sections_stream_st* stream, int channel) {
  return (double*)(stream + 1) + (size_t)stream->channels * section_step +
         (size_t)channel * stream->groups * (section_states * section_group);
}

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
