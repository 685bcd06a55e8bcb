/* Steps of fast convolution that share a pass over the block: the same bits as the calls that they
 * stand for, in fewer loads and stores. */
#ifndef JURN_FAST_CONVOLUTION_H
#define JURN_FAST_CONVOLUTION_H

#include "DFTs.h"

JURN_EXTERN_C_BEGIN

/** MORVAX_KLOV_RealFFT_Run2 of the N samples, which are not changed, into spectrum, which does not
 * overlap them. */
void JURN_forward_array(const RealFFT_ID* state, float* spectrum, const float* samples);

/** The last N/2 samples of MORVAX_KLOV_InverseRealFFT_Run2. Spectrum becomes work space; samples
 * lie outside of it or are its last half. */
void JURN_inverse_half(const RealFFT_ID* state, float* spectrum, float* samples);

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
