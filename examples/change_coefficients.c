/* New coefficients while audio runs, without a click. A long FIR filter is exchanged for one that
 * turns the signal upside down, the worst case. The time-domain kinds fade over one block: its
 * first frame is the old filter's output, its last the new one's. The FFT kinds begin their ramp
 * inside a transform block, part of the way to the new filter, so they suit small changes. */
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "Filter_control.h"

enum { TAPS = 1024, FRAMES = 256, BLOCKS = 60 };

static Filterlongfir_ID filter; /* 4.9 MiB: static, or allocated before the audio starts */
static short tone[2 * FRAMES * BLOCKS];
static short output[2 * FRAMES * BLOCKS];

static void set_tap(int tap, float value) {
  memset(filter.b, 0, TAPS * sizeof(float));
  filter.b[tap] = value;
  memcpy(filter.bR, filter.b, TAPS * sizeof(float));
}

/* The largest difference between neighbours of the left channel, from the given block on. */
static int largest_step(int block) {
  int largest = 0;
  for (int i = 2 * FRAMES * block + 2; i < 2 * FRAMES * BLOCKS; i += 2)
    if (abs(output[i] - output[i - 2]) > largest) largest = abs(output[i] - output[i - 2]);
  return largest;
}

int main(void) {
  const double step = 2 * 3.14159265358979 * 440 / 48000;
  for (int i = 0; i < BLOCKS * FRAMES; ++i)
    tone[2 * i] = tone[2 * i + 1] = (short)(10000 * sin(step * i));

  filter.chanel = JURN_STEREO;
  filter.filtertype = JURN_LONG_TWO_FILTERS; /* b on the left and bR on the right, fading */
  filter.blen = filter.bRlen = TAPS;
  set_tap(0, 1.0f);
  MORVAX_FilterlongfirReset_API(&filter);
  MORVAX_FilterlongfirCalcu_APItime(&filter); /* notes the length */

  for (int block = 0; block < BLOCKS; ++block) {
    if (block == 30) {
      MORVAX_FilterlongfirCalcu_APItime(&filter); /* saves the old taps, so it comes first */
      set_tap(TAPS / 2, -1.0f);
    }
    MORVAX_FilterlongfirRun_API(&filter, tone + 2 * FRAMES * block, 2 * FRAMES,
                                output + 2 * FRAMES * block);
  }

  /* The ramp crosses 20000 at most in FRAMES - 1 steps, on top of the tone's own. */
  const int allowed = (int)(10000 * step + 20000.0 / (FRAMES - 1)) + 2;
  const int steady = largest_step(50);
  const int fading = largest_step(10);
  printf("largest step: %d with one filter, %d with the change, %d allowed\n", steady, fading,
         allowed);
  return !(steady > 500 && fading <= allowed);
}
