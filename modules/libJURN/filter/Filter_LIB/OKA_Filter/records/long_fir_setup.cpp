/* Filterlongfir_ID: reset, time-domain and FFT set-up. */
#include "../../../../common/exact_arithmetic.h"

#include "../../Filter_control.h"

#include <string.h>

#include "../../../../common/internal.h"
#include "filter_kinds.h"
#include "long_fir.h"

static_assert(sizeof(BIGFilterIOMEM) == 86280, "BIGFilterIOMEM has no padding");
static_assert(sizeof(Filterlongfir_ID) == 5129640, "Filterlongfir_ID has no padding");

void MORVAX_FilterlongfirReset_API(Filterlongfir_ID* mFilter) {
  reset_history(&mFilter->memL);
  reset_history(&mFilter->memR);
  MORVAX_BufresetAPI(&mFilter->mBufin);
  MORVAX_BufresetAPI(&mFilter->mBufout);
  mFilter->membufrear = -12345;  // equals no priming length, so the next FFT set-up primes
  mFilter->cmemcall = 0;
  mFilter->cmemblen = 0;
  mFilter->cmemfftN = 0;
}

void MORVAX_FilterlongfirCalcu_APItime(Filterlongfir_ID* mFilter) {
  const int blen = mFilter->blen;
  if (mFilter->cmemblen == blen) {
    const int samples = blen + JURN_BLOCK;
    JURN_LIMIT(blen <= 32767, "Filterlongfir_ID: a time-domain fade takes at most 32767 taps");
    if (blen > 0) {
      memcpy(mFilter->cmemb, mFilter->b, blen * sizeof(float));
      memcpy(mFilter->cmembR, mFilter->bR, blen * sizeof(float));
    }
    if (samples > 0) {
      memcpy(mFilter->cmeminputL, mFilter->memL.meminput, samples * sizeof(short));
      memcpy(mFilter->cmeminputR, mFilter->memR.meminput, samples * sizeof(short));
    }
    mFilter->cmemcall = 1;
  }
  mFilter->cmemblen = blen;
}

namespace {

/** Transforms count taps, zero-padded to the transform length. */
void transform_taps(const RealFFT_ID* fft, float* spectrum, const float* taps, int count, int N) {
  memcpy(spectrum, taps, count * sizeof(float));
  memset(spectrum + count, 0, (N - count) * sizeof(float));
  MORVAX_KLOV_RealFFT_Run2(fft, spectrum, static_cast<short>(N));
}

void prime(Buf16_ID* queue, int samples) {
  queue->id = 0;
  queue->front = 0;
  queue->rear = samples;
}

}  // namespace

void MORVAX_FilterlongfirCalcu_API_forFFT(Filterlongfir_ID* mFilter) {
  const int type = mFilter->filtertype;
  const bool two_filters = type == JURN_LONG_FFT || type == JURN_LONG_FFT_CROSSED ||
                           type == JURN_LONG_FFT_MONO_TO_STEREO || type == JURN_LONG_FFT_LEFT_ONLY;
  int hM = mFilter->blen;
  if (two_filters && mFilter->bRlen > hM) hM = mFilter->bRlen;
  JURN_LIMIT(hM >= 0 && hM <= JURN_FFT_MAX / 2,
             "Filterlongfir_ID: the FFT kinds take at most 8192 taps");
  int N = 2;
  while (N < 2 * hM) N *= 2;
  mFilter->fftN = N;
  mFilter->offset = mFilter->chanel * (N - hM + 1);

  const int primed = N * (type == JURN_LONG_FFT_LEFT_ONLY ? 1 : mFilter->chanel);
  if (primed != mFilter->membufrear) {
    prime(&mFilter->mBufin, primed);
    prime(&mFilter->mBufout, 0);
  }
  mFilter->membufrear = primed;

  MORVAX_KLOV_RealFFT_Init(&mFilter->realfft, static_cast<short>(N));
  if (mFilter->cmemfftN == N) {
    memcpy(mFilter->cmemhLrfft, mFilter->hLrfft, N * sizeof(float));
    memcpy(mFilter->cmemhRrfft, mFilter->hRrfft, N * sizeof(float));
    mFilter->cmemcall = 1;
  }
  mFilter->cmemfftN = N;
  transform_taps(&mFilter->realfft, mFilter->hLrfft, mFilter->b, hM, N);
  if (two_filters) transform_taps(&mFilter->realfft, mFilter->hRrfft, mFilter->bR, hM, N);
}
