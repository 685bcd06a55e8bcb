/* Filters blocks through the installed library and prints the version and a checksum of the
 * outputs, which is the same for every build of the library. Returns non-zero when a number is
 * wrong. */
#include <stdio.h>
#include <string.h>

#include "ChanelConvert.h"
#include "Filter_control.h"

static Filter_ID filter;
static Filterlongfir_ID long_filter;
static unsigned checksum = 2166136261u;

static void add(const short* samples, int count) {
  int i;
  for (i = 0; i < count; ++i) checksum = (checksum ^ (unsigned)(samples[i] & 0xffff)) * 16777619u;
}

int main(void) {
  const float mean_of_two[] = {0.5f, 0.5f}, none[] = {1.0f, 0.0f};
  const float peak[] = {1.061f, -1.793f, 0.876f}, damping[] = {1.0f, -1.793f, 0.937f};
  const short expected[] = {50, -50, 100, -100};
  short block[] = {100, -100, 100, -100};
  short noise[512];
  unsigned seed = 1;
  int i;

  if (strcmp(MORVAX_Version_API(), JURN_VERSION_STRING) != 0) return 1;

  filter.chanel = 2;
  MORVAX_FilterCalcu_API_FromMatlabTable(&filter, mean_of_two, none, 1, -1);
  MORVAX_FilterReset_API(&filter);
  MORVAX_FilterRun_API(&filter, block, 4, block);
  if (memcmp(block, expected, sizeof block) != 0) return 2;

  /* A cascade, then 300 taps by FFT on its output: the kernels whose order of operations shows. */
  MORVAX_FilterCalcu_API_FromMatlabTable(&filter, peak, damping, 1, 1);
  MORVAX_FilterReset_API(&filter);
  long_filter.chanel = 2;
  long_filter.filtertype = -2;
  long_filter.blen = long_filter.bRlen = 300;
  for (i = 0; i < 300; ++i) long_filter.b[i] = long_filter.bR[299 - i] = 1.0f / (float)(i + 3);
  MORVAX_FilterlongfirReset_API(&long_filter);
  MORVAX_FilterlongfirCalcu_API_forFFT(&long_filter);
  for (i = 0; i < 100 * 512; ++i) {
    seed = seed * 1664525u + 1013904223u;
    noise[i % 512] = (short)((int)(seed >> 19) - 4096);
    if (i % 512 < 511) continue;
    MORVAX_FilterRun_API(&filter, noise, 512, noise);
    add(noise, 512);
    MORVAX_FilterlongfirRun_API(&long_filter, noise, 512, noise);
    add(noise, 512);
  }
  printf("%s %08x\n", MORVAX_Version_API(), checksum);
  return 0;
}
