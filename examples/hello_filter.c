/* The shortest whole program: the mean of two samples, on a stereo block, in place. */
#include <stdio.h>
#include <string.h>

#include "Filter_control.h"

static Filter_ID filter; /* 55 KiB, too large for most stacks of a real-time thread */

int main(void) {
  const float num[] = {0.5f, 0.5f}; /* y[n] = 0.5 x[n] + 0.5 x[n-1] */
  const float den[] = {1.0f, 0.0f}; /* an FIR filter has no feedback */
  short block[] = {100, -100, 100, -100, 100, -100};
  const short expected[] = {50, -50, 100, -100, 100, -100};

  filter.chanel = JURN_STEREO; /* left, right, left, right, ... */
  MORVAX_FilterCalcu_API_FromMatlabTable(&filter, num, den, 1, JURN_FIR);
  MORVAX_FilterReset_API(&filter);

  MORVAX_FilterRun_API(&filter, block, 6, block);

  for (int i = 0; i < 6; i += 2) printf("%6d %6d\n", block[i], block[i + 1]);
  return memcmp(block, expected, sizeof block) != 0;
}
