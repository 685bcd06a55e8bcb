/* The internal kernels. They keep no state of their own: histories belong to the caller and have at
 * least the lengths given here; nothing beyond them is read or written. A history array holds the
 * past samples followed by the block; each call first moves the past to the front, found by the
 * current block length. */
#ifndef JURN_OKA_FILTER_H
#define JURN_OKA_FILTER_H

#include "../../common/JURN_api.h"

JURN_EXTERN_C_BEGIN

/**
 * FIR over an int16 block: output[i] = stoshort(sum over j of b[j] x[i-j]), in float.
 *
 * @param output, input inlen samples; may be the same array
 * @param mem_input blen - 1 + inlen samples
 * @param b blen taps, blen at least 1
 */
void JURNfir(short* output, const short* input, int inlen, short* mem_input, const float* b,
             short blen);

/**
 * Moving average over an int16 block: the mean of the last len samples, truncated toward zero.
 *
 * @param output, input inlen samples, at most 32767; may be the same array
 * @param mem_input ring of len samples
 * @param len 1 or more
 * @param memsum the ring's sum
 * @param memi slot of the oldest sample
 */
void JURN_shuzhi2(short* output, const short* input, int inlen, short* mem_input, short len,
                  int* memsum, int* memi);

/**
 * Direct-form IIR over an int16 block, y[i] = sum of b[j] x[i-j] - sum over j >= 1 of a[j] y[i-j],
 * in float; output[i] = stoshort(y[i]). Past outputs below 1e-6 become 0 at the start of the call.
 *
 * @param output, input inlen samples; may be the same array
 * @param mem_output alen - 1 + inlen outputs, unsaturated
 * @param mem_input blen - 1 + inlen samples
 * @param b, blen numerator, blen at least 1
 * @param a, alen denominator, alen at least 1; a[0] is not read
 */
void JURNiir(short* output, const short* input, int inlen, float* mem_output, short* mem_input,
             const float* b, short blen, const float* a, short alen);

/**
 * Cascade of ns sections of order n over a float block, in place. Each section's output is
 * (b0 x + (b1 x1 - a1 y1)) + (b2 x2 - a2 y2) ..., set to 0 when its magnitude is below 1e-6.
 *
 * @param b, a ns (n + 1) coefficients; the first of each section in a is not read
 * @param n order of a section; other than 2 and 4 does nothing
 * @param x the block, len samples
 * @param px, py ns (n + 1) states; the first of each section in py is not touched
 */
void filterNOrNsSec(const float* b, const float* a, int n, int ns, float* x, int len, float* px,
                    float* py);

/** Two channels through JURNiir at once, with one set of coefficients: the same as two calls. */
void JURNiir_stereo(short* const output[2], const short* const input[2], int inlen,
                    float* const mem_output[2], short* const mem_input[2], const float* b,
                    short blen, const float* a, short alen);

/** Two channels through filterNOrNsSec at once: the same as two calls. */
void filterNOrNsSec_stereo(const float* b, const float* a, int n, int ns, float* const x[2],
                           int len, float* const px[2], float* const py[2]);

/** Several records through JURNiir at once, each with coefficients of its own and all with the same
 * numbers of them: the same as one call each. */
void JURNiir_records(int records, short* const* output, const short* const* input, int inlen,
                     float* const* mem_output, short* const* mem_input, const float* const* b,
                     short blen, const float* const* a, short alen);

/** Several records of ns sections of order n, 2 or 4, from int16 to int16, each with coefficients
 * of its own: the same as filterNOrNsSec and the conversions for each. ns is at least 1. */
void filterNOrNsSec_records(int n, int ns, int records, const float* const* b,
                            const float* const* a, const short* const* input, int frames,
                            short* const* output, float* const* px, float* const* py);

JURN_EXTERN_C_END

#endif
