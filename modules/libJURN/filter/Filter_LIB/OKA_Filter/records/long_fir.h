/* What the sources of Filterlongfir_ID share. */
#ifndef JURN_LONG_FIR_H
#define JURN_LONG_FIR_H

#include "../../Filter_control.h"

/** The kinds that only the long filter has; the others are those of filter_kinds.h. */
enum LongFilterKind {
  KIND_FFT_CROSSED = -7,
  KIND_TIME_MONO_TO_STEREO = -6,
  KIND_FFT_MONO_TO_STEREO = -5,
  KIND_FFT_LEFT_ONLY = -4,
  KIND_TIME_TWO_FILTERS = -3,
  KIND_FFT = -2
};

/** Runs one call of an FFT kind; chanel and filtertype name one. */
void run_fft_kind(Filterlongfir_ID* mFilter, const short* input, int inLen, short* output);

#endif
