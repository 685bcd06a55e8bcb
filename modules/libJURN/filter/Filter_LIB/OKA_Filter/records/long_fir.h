/* What the sources of Filterlongfir_ID share. */
#ifndef JURN_LONG_FIR_H
#define JURN_LONG_FIR_H

#include "../../Filter_control.h"

/** Frames by which a transform of an FFT kind moves on; 0 before the set-up for its chanel. A
 * set-up gives more than half of fftN and at most all of it, which the offset of another chanel
 * misses. */
static inline int hop_of(const Filterlongfir_ID* mFilter) {
  const int N = mFilter->fftN;
  const int hop = mFilter->offset / mFilter->chanel;
  return N >= 2 && N <= JURN_FFT_MAX && hop > N / 2 && hop <= N ? hop : 0;
}

/** Runs one call of an FFT kind; chanel and filtertype name one. */
void run_fft_kind(Filterlongfir_ID* mFilter, const short* input, int inLen, short* output);

#endif
