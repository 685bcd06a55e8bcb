/* A mono source heard by two ears: one long FIR filter per ear on the same input. The responses
 * stand for a source on the left; real ones come from a measured set, as jurn-filter binaural uses.
 */
#include <stdio.h>

#include "Filter_control.h"

enum { TAPS = 512, FRAMES = 240, BLOCKS = 10 };

static Filterlongfir_ID filter;

/* Sound that reaches an ear after a delay, with a gain, and dies away. */
static void ear(float* taps, int delay, float gain) {
  for (int i = 0; i < TAPS; ++i) taps[i] = 0.0f;
  for (int i = delay; i < TAPS; ++i, gain *= 0.9f) taps[i] = gain;
}

int main(void) {
  short input[BLOCKS * FRAMES] = {1000}; /* a click */
  short output[2 * BLOCKS * FRAMES];     /* left, right, left, right, ... */

  filter.chanel = JURN_MONO;
  filter.filtertype = JURN_LONG_FFT_MONO_TO_STEREO; /* b gives the left, bR the right */
  filter.blen = filter.bRlen = TAPS;
  ear(filter.b, 10, 1.0f);
  ear(filter.bR, 42, 0.5f); /* 32 samples, or 0.67 ms at 48 kHz, later and 6 dB softer */
  MORVAX_FilterlongfirReset_API(&filter);
  MORVAX_FilterlongfirCalcu_API_forFFT(&filter);

  for (int block = 0; block < BLOCKS; ++block)
    MORVAX_FilterlongfirRun_API(&filter, input + FRAMES * block, FRAMES,
                                output + 2 * FRAMES * block);

  const int latency = filter.fftN - TAPS + 1; /* one hop, known after the set-up */
  int first[2] = {-1, -1};
  for (int i = 2 * BLOCKS * FRAMES - 1; i >= 0; --i)
    if (output[i] > 1) first[i % 2] = i / 2;
  const int left = output[2 * first[0]], right = output[2 * first[1] + 1];
  printf("latency %d frames; left ear at %d: %d, right ear at %d: %d\n", latency, first[0], left,
         first[1], right);
  /* The transform's rounding may fall below the whole number, which truncation then shows. */
  return !(first[0] == latency + 10 && first[1] == latency + 42 && left >= 999 && left <= 1000 &&
           right >= 499 && right <= 500);
}
