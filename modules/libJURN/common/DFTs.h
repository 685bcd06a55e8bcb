/* RealFFT_ID, a real FFT of power-of-two length, in place, with the spectrum product of fast
 * convolution. A whole program, the circular convolution of two blocks:
 * @code
 *   #include <JURN/DFTs.h>
 *
 *   static RealFFT_ID fft;  // 160 KiB
 *
 *   int main(void) {
 *     float x[1024] = {0, 1000}, h[1024] = {0, 0, 0.5f}, y[1024];
 *     if (MORVAX_KLOV_RealFFT_Init(&fft, 1024) != 0) return 1;
 *     MORVAX_KLOV_RealFFT_Run2(&fft, x, 1024);
 *     MORVAX_KLOV_RealFFT_Run2(&fft, h, 1024);
 *     MORVAX_rfftmut2(y, x, h, 1024);
 *     MORVAX_KLOV_InverseRealFFT_Run2(&fft, y, 1024);
 *     return !(y[3] > 499.99f && y[3] < 500.01f);  // at unit gain
 *   }
 * @endcode */
#ifndef JURN_DFTS_H
#define JURN_DFTS_H

#include "JURN_api.h"

JURN_EXTERN_C_BEGIN

/** @defgroup transform Real FFT: RealFFT_ID
 *
 * The rules of @ref objects hold here too.
 * @{ */

/** Longest transform: the largest power of two that the routines' 16-bit length carries. */
#define JURN_FFT_MAX 16384

/** Transform state for one length, 163,848 bytes. Only the routines below look inside. */
struct RealFFT_st {
  int N;              /**< transform length */
  int fft_ip[8192];   /**< integer work table; this transform needs none */
  float fft_w[32768]; /**< twiddle factors, in the order in which they are read */
  float scale;        /**< factor of the inverse transform */
};
typedef struct RealFFT_st RealFFT_ID;

/**
 * Prepares a state for transforms of length N.
 *
 * @param state any record
 * @param N transform length, a power of two from 2 to 16384
 * @return 0, or -1 for any other length
 *
 * State touched: N, scale, and of fft_w the tables that transforms of N read. Wrong input: another
 * length touches nothing. The time grows linearly with N. The twiddle factors are Taylor's series
 * in double, of additions, multiplications and divisions alone, so they hold the same bits on every
 * platform.
 */
JURN_API short MORVAX_KLOV_RealFFT_Init(RealFFT_ID* state, short N);

/**
 * Transforms N real samples into their spectrum, in place.
 *
 *   X[k] = sum over n of data[n] exp(-2 pi i k n / N), in an order of the library's own.
 *
 * The spectrum fills the same N floats and means something only to the inverse transform and to
 * the spectrum product for the same length.
 *
 * @param state prepared by MORVAX_KLOV_RealFFT_Init for the same N; not changed
 * @param data N real samples in, the spectrum out; any alignment
 * @param N transform length
 * @return 0, or -1 when N is not a valid length or not the state's
 *
 * State touched: none but data. Wrong input: another length touches nothing. Real-time safe. Real
 * sequences split three levels a pass into a quarter and three complex ones, which decimation in
 * frequency of radix 4 transforms; nothing is put in order.
 */
JURN_API short MORVAX_KLOV_RealFFT_Run2(const RealFFT_ID* state, float* data, short N);

/**
 * Transforms a spectrum back into N real samples in natural order, in place.
 *
 * The inverse of the product of two forward transforms is their samples' circular convolution at
 * unit gain: the routines carry the whole normalisation. The inverse of a forward transform is the
 * block itself. Rounding leaves a relative rms error that grows with the root of log2 N: for noise
 * through noise 1.5e-7 at 64, 2.5e-7 at 16384.
 *
 * @param state prepared by MORVAX_KLOV_RealFFT_Init for the same N; not changed
 * @param data a spectrum in, N real samples out; any alignment
 * @param N transform length
 * @return 0, or -1 when N is not a valid length or not the state's
 *
 * State touched: none but data. Wrong input: another length touches nothing. Real-time safe. The
 * forward transform's steps undone, decimation in time.
 */
JURN_API short MORVAX_KLOV_InverseRealFFT_Run2(const RealFFT_ID* state, float* data, short N);

/**
 * Multiplies two spectra bin by bin.
 *
 *   out[k] = x1[k] x2[k], complex; the two bins that are real for real samples multiply as reals.
 *
 * @param out receives the product, N floats; must not overlap x1 or x2
 * @param x1, x2 spectra of transforms of length N; not changed; they may be the same
 * @param N transform length, a power of two from 2 to 16384
 *
 * State touched: none. Wrong input: debug builds assert the length. Real-time safe.
 */
JURN_API void MORVAX_rfftmut2(float* out, const float* x1, const float* x2, int N);

/** @} */

JURN_EXTERN_C_END

#endif
