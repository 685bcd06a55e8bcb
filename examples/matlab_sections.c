/* A table of second-order sections, as MATLAB's and SciPy's design functions give it, becomes a
 * cascade. The filter is a Butterworth low-pass of order 8 at 200 Hz, for 48 kHz. */
#include <math.h>
#include <stdio.h>
#include <stdlib.h>

#include "Filter_control.h"

enum { SECTIONS = 4 };
/* [z, p, k] = butter(8, 200 / 24000); [sos, g] = zp2sos(z, p, k); rows {b0 b1 b2 1 a1 a2} */
static const float sos[SECTIONS][6] = {{1.0f, 2.0f, 1.0f, 1.0f, -1.94926918f, 0.949937375f},
                                       {1.0f, 2.0f, 1.0f, 1.0f, -1.95672585f, 0.957396603f},
                                       {1.0f, 2.0f, 1.0f, 1.0f, -1.97065515f, 0.971330675f},
                                       {1.0f, 2.0f, 1.0f, 1.0f, -1.98915629f, 0.989838157f}};
static const double g = 8.06429809e-16;

static Filter_ID filter;

/* The peak of a tone of 10000 after the filter has settled. */
static int peak_after_filter(double hertz) {
  int peak = 0;
  MORVAX_FilterReset_API(&filter);
  for (int block = 0; block < 100; ++block) {
    short samples[480];
    for (int i = 0; i < 480; ++i)
      samples[i] = (short)(10000 * sin(2 * 3.14159265358979 * hertz * (480 * block + i) / 48000));
    MORVAX_FilterRun_API(&filter, samples, 480, samples);
    for (int i = 0; block >= 50 && i < 480; ++i)
      if (abs(samples[i]) > peak) peak = abs(samples[i]);
  }
  return peak;
}

/* Sets the filter up with one gain for the first section and one for each of the others. */
static void set_up(double first, double others) {
  float num[3 * SECTIONS], den[3 * SECTIONS];
  for (int k = 0; k < SECTIONS; ++k)
    for (int j = 0; j < 3; ++j) {
      num[3 * k + j] = (float)(sos[k][j] * (k == 0 ? first : others));
      den[3 * k + j] = sos[k][3 + j];
    }
  filter.chanel = JURN_MONO;
  MORVAX_FilterCalcu_API_FromMatlabTable(&filter, num, den, 2 * SECTIONS, JURN_CASCADE);
}

int main(void) {
  /* The whole gain in the first section leaves nothing above 1e-6, below which an output becomes 0.
   * Spread over the sections it keeps every output on the scale of the samples. */
  set_up(g, 1.0);
  const int silent = peak_after_filter(50);
  const double each = pow(g, 1.0 / SECTIONS);
  set_up(each, each);

  const int low = peak_after_filter(50);
  const int edge = peak_after_filter(200);
  const int high = peak_after_filter(800);
  printf("gain in the first section: %d\n", silent);
  printf("50 Hz: %d, 200 Hz: %d, 800 Hz: %d of 10000\n", low, edge, high);
  return !(silent == 0 && low >= 9990 && low <= 10000 && abs(edge - 7071) <= 10 && high < 10);
}
