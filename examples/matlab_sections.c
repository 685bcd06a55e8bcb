/* A table of second-order sections, as MATLAB's and SciPy's design functions give it, becomes a
 * cascade. The filter is a Butterworth low-pass of order 4 at 1 kHz, for 48 kHz. */
#include <math.h>
#include <stdio.h>
#include <stdlib.h>

#include "Filter_control.h"

/* [z, p, k] = butter(4, 1000 / 24000); [sos, g] = zp2sos(z, p, k); rows {b0 b1 b2 1 a1 a2} */
static const float sos[2][6] = {{1.0f, 2.0f, 1.0f, 1.0f, -1.76950435f, 0.784773332f},
                                {1.0f, 2.0f, 1.0f, 1.0f, -1.88855595f, 0.904852229f}};
static const float g = 1.55517218e-05f;

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

int main(void) {
  float num[6], den[6];
  for (int k = 0; k < 2; ++k)
    for (int j = 0; j < 3; ++j) {
      num[3 * k + j] = sos[k][j] * (k == 0 ? g : 1.0f); /* the overall gain joins a section */
      den[3 * k + j] = sos[k][3 + j];
    }
  filter.chanel = 1;
  MORVAX_FilterCalcu_API_FromMatlabTable(&filter, num, den, 4,
                                         1); /* 4 gives (4 + 1) / 2 sections */

  const int low = peak_after_filter(100);
  const int edge = peak_after_filter(1000);
  const int high = peak_after_filter(4000);
  printf("100 Hz: %d, 1 kHz: %d, 4 kHz: %d of 10000\n", low, edge, high);
  return !(low >= 9990 && low <= 10000 && abs(edge - 7071) <= 10 && high < 40);
}
