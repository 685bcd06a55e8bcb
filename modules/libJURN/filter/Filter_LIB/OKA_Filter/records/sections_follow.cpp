/* The start of a stream from the past of another. */
#include "../../../../common/exact_arithmetic.h"

#include "sections.h"

#include <string.h>

#include "../../../../common/functions.h"

void MORVAX_SectionsFollow_API(SectionsStream_ID* next, const SectionsFilter_ID* next_filter,
                               const SectionsStream_ID* previous,
                               const SectionsFilter_ID* previous_filter) {
  JURN_LIMIT(next->ready == section_ready && previous->ready == section_ready,
             "SectionsStream_ID: the stream must be set up");
  JURN_LIMIT(next->channels == previous->channels && next != previous,
             "SectionsStream_ID: next must be another stream with as many channels");
  (void)next_filter, (void)previous_filter;
  MORVAX_SectionsReset_API(next);
  next->position = previous->position;
  memcpy(JURN_section_inputs(next, 0), reinterpret_cast<const double*>(previous + 1),
         static_cast<size_t>(next->channels) * section_step * sizeof(double));
  const int groups = next->groups < previous->groups ? next->groups : previous->groups;
  for (int channel = 0; channel < next->channels; ++channel)
    memcpy(JURN_section_states(next, channel),
           JURN_section_states(const_cast<SectionsStream_ID*>(previous), channel),
           static_cast<size_t>(groups) * section_states * section_group * sizeof(double));
}
