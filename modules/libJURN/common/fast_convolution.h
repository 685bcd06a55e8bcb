/* Steps of fast convolution that share a pass over the block: the same bits as the calls that they
 * stand for, in fewer loads and stores. */
#ifndef JURN_FAST_CONVOLUTION_H
#define JURN_FAST_CONVOLUTION_H

#include "DFTs.h"

JURN_EXTERN_C_BEGIN

/* Transforms of up to 131072 samples that run step by step. They give the bits of
 * MORVAX_KLOV_RealFFT_Run2 and MORVAX_KLOV_InverseRealFFT_Run2 where these go as far. */

#define JURN_LONG_FFT_MAX 131072

/** The floats of a table for transforms of N and any shorter ones. */
static inline unsigned JURN_fft_table_floats(int N) {
  return N > JURN_FFT_MAX ? 2u * (unsigned)N : 2u * JURN_FFT_MAX;
}

/** Puts what transforms of N read into a table; what is there for other lengths stays. */
void JURN_put_fft_table(float* table, int N);

/* A step is a slice of 512 floats in a pass of two or three levels, or all levels of a block of up
 * to 256 values or samples. Its cost: floats times levels, in units that a convolution's products
 * have too. */

enum { JURN_STEP_FLOATS = 512, JURN_STEP_VALUES = 256 };

static inline int JURN_pass_cost(int floats, int levels) {
  return floats * levels * 5 / 256;
}

static inline int JURN_log2(int N) {
  int levels = 0;
  while (1 << levels < N) ++levels;
  return levels;
}

/** Of a complex transform of `length` values. */
static inline int JURN_complex_cost(int length) {
  int passes = 0, block = length;
  for (; block > JURN_STEP_VALUES; block /= 4) ++passes;
  return passes * JURN_pass_cost(2 * length, 2) +
         length / block * JURN_pass_cost(2 * block, JURN_log2(block));
}

/** Of a whole transform of N samples. */
static inline int JURN_fft_cost(int N) {
  int cost = 4;
  for (; N > JURN_STEP_VALUES; N /= 4) cost += JURN_pass_cost(N, 3) + 3 * JURN_complex_cost(N / 8);
  return cost + JURN_pass_cost(N, JURN_log2(N));
}

/** Samples in two places: `count` of them from head on, those after them from rest on. */
typedef struct JURN_Window_st {
  const float* head;
  int count;
  const float* rest;
} JURN_Window;

#define JURN_ALL_STEPS 0x7fffffff

/** Of the forward transform of N samples the steps before which the others cost `from` to `to` - 1;
 * all from 0 to JURN_ALL_STEPS. The samples are the spectrum itself, or do not overlap it and stay
 * as they are. Returns what the steps cost, if they are not all. */
int JURN_forward_steps(const float* table, int N, float* spectrum, JURN_Window window, int from,
                       int to);

/** The same of the inverse transform's last N/2 samples. Spectrum becomes work space; half, where
 * they go, lies outside of it or is its last half. */
int JURN_inverse_steps(const float* table, int N, float* spectrum, float* half, int from, int to);

/** Shortest transform that JURN_forward_samples takes. */
#define JURN_SAMPLES_FFT_MIN 128

/** MORVAX_KLOV_RealFFT_Run2 of N frames of samples: mono, or channel 0 or 1 of interleaved stereo.
 * N, the state's, is 128 or more. */
void JURN_forward_samples(const RealFFT_ID* state, float* spectrum, const short* samples,
                          int channels, int channel);

/** MORVAX_rfftmut2 into out, which is neither factor, and MORVAX_KLOV_InverseRealFFT_Run2 of it. */
void JURN_inverse_product(const RealFFT_ID* state, float* out, const float* x1, const float* x2);

JURN_EXTERN_C_END

#endif
