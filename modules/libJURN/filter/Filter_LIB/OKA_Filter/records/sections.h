/* What the sources of the sections objects share. kernels/sections_kernels.h says how sections lie
 * in memory. */
#ifndef JURN_SECTIONS_H
#define JURN_SECTIONS_H

#include "../../Sections_control.h"
#include "../kernels/sections_kernels.h"

enum {
  section_step = 4,    /* samples */
  section_chunk = 256, /* frames from one cleaning of the states to the next */
  section_ready = 0x53454331
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

#endif
