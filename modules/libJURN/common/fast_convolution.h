/* Steps of fast convolution that share a pass over the block: the same bits as the calls that they
 * stand for, in fewer loads and stores. */
#ifndef JURN_FAST_CONVOLUTION_H
#define JURN_FAST_CONVOLUTION_H

#include "DFTs.h"

JURN_EXTERN_C_BEGIN

/** Transforms from this length on have pieces to be run one by one: of about equal cost, the one
 * with a transform of N/4 a quarter of all. Shorter ones are one piece, number 0. */
#define JURN_PIECES_FFT_MIN 512
#define JURN_ALL_PIECES (-1)
static inline int JURN_fft_pieces(int N) {
  return N < JURN_PIECES_FFT_MIN ? 1 : 5;
}

/** MORVAX_KLOV_RealFFT_Run2 of the N samples into spectrum, after pieces 0 to the last in turn, or
 * all at once. The samples are spectrum itself, or do not overlap it and stay as they are; they may
 * go after the first piece. */
void JURN_forward_piece(const RealFFT_ID* state, float* spectrum, const float* samples, int piece);

/** The last N/2 samples of MORVAX_KLOV_InverseRealFFT_Run2 after pieces 0 to the last in turn, or
 * all at once.
 * Spectrum becomes work space; half, where the last piece puts them, lies outside of it or is its
 * last half. */
void JURN_inverse_piece(const RealFFT_ID* state, float* spectrum, float* half, int piece);

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
