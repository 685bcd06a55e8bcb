/* Fades from one record to another over one block. */
#include "../../../../common/exact_arithmetic.h"

#include "../../Filter_control.h"

#include <string.h>

#include "../../../../common/internal.h"

namespace {

/** Runs both filters on one block, and mixes their outputs along the ramp. */
template <class Record>
void fade(Record* previous, Record* next, const short* input, int inLen, short* output,
          int channels, int frames, void (*run)(Record*, const short*, int, short*)) {
  const int values = frames * channels;
  JURN_LIMIT(inLen >= 0 && values <= JURN_FADE_VALUES,
             "fade: inLen must not be negative, and the block have at most 2112 values");
  JURN_LIMIT(previous != next && previous->chanel == next->chanel,
             "fade: the filters must be two records with the same chanel");
  short before[JURN_FADE_VALUES];
  short after[JURN_FADE_VALUES];
  memset(before, 0, values * sizeof(short));
  memset(after, 0, values * sizeof(short));
  run(previous, input, inLen, before);
  run(next, input, inLen, after);
  if (frames == 1) {
    memcpy(output, after, values * sizeof(short));
    return;
  }
  const int last = frames - 1;
  for (int i = 0; i < frames; ++i)
    for (int channel = 0; channel < channels; ++channel) {
      const int at = i * channels + channel;
      output[at] = static_cast<short>((before[at] * (last - i) + after[at] * i) / last);
    }
}

/** Runs a filter; one that would write nothing is silent. */
void run_or_clear(Filterf_ID* filter, const float* input, int inLen, float* output) {
  if (filter->filtertype == JURN_FIR || filter->filtertype == JURN_IIR)
    MORVAX_FilterfRun_API(filter, input, inLen, output);
  else
    memset(output, 0, inLen * sizeof(float));
}

}  // namespace

void MORVAX_FilterFade_API(Filter_ID* previous, Filter_ID* next, const short* input, int inLen,
                           short* output) {
  const int channels = next->chanel == JURN_STEREO ? 2 : 1;
  fade(previous, next, input, inLen, output, channels, inLen / channels, MORVAX_FilterRun_API);
}

void MORVAX_FilterlongfirFade_API(Filterlongfir_ID* previous, Filterlongfir_ID* next,
                                  const short* input, int inLen, short* output) {
  const auto spreads = [](const Filterlongfir_ID* filter) {
    return filter->chanel == JURN_MONO && (filter->filtertype == JURN_LONG_FFT_MONO_TO_STEREO ||
                                           filter->filtertype == JURN_LONG_MONO_TO_STEREO);
  };
  JURN_LIMIT(spreads(previous) == spreads(next),
             "Filterlongfir_ID: the filters of a fade must have as many outputs");
  const int inputs = next->chanel == JURN_STEREO ? 2 : 1;
  fade(previous, next, input, inLen, output, spreads(next) ? 2 : inputs, inLen / inputs,
       MORVAX_FilterlongfirRun_API);
}

void MORVAX_FilterfFade_API(Filterf_ID* previous, Filterf_ID* next, const float* input, int inLen,
                            float* output) {
  JURN_LIMIT(inLen >= 0 && inLen <= JURN_FLOAT_HISTORY,
             "Filterf_ID: the block of a fade must have at most 2512 samples");
  JURN_LIMIT(previous != next, "Filterf_ID: the filters of a fade must be two records");
  float before[JURN_FLOAT_HISTORY];
  // The previous filter comes first, since output may be input.
  run_or_clear(previous, input, inLen, before);
  run_or_clear(next, input, inLen, output);
  if (inLen == 1) return;
  for (int i = 0; i < inLen; ++i) {
    const double w = static_cast<double>(i) / (inLen - 1);
    output[i] = static_cast<float>((1.0 - w) * before[i] + w * output[i]);
  }
}
