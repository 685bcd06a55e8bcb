/* Filterf_ID: one channel of float samples through an FIR or a direct-form IIR of up to 201
 * coefficients, in double precision.
 *
 * One record holds the configuration and the past. Write the coefficients, reset, then run once per
 * block of the same length. A whole program, a one-pole low-pass:
 * @code
 *   #include <JURN/FloatFilter_control.h>
 *
 *   int main(void) {
 *     static Filterf_ID filter;              // 33 KiB
 *     filter.filtertype = JURN_IIR;
 *     filter.blen = 1, filter.b[0] = 0.1;    // y[n] = 0.1 x[n] + 0.9 y[n-1]
 *     filter.alen = 2, filter.a[1] = -0.9;   // a[0] counts as 1
 *     MORVAX_FilterfReset_API(&filter);
 *     float block[480] = {1000.0f};
 *     MORVAX_FilterfRun_API(&filter, block, 480, block);  // in place
 *     return !(block[0] == 100.0f && block[1] == 90.0f);
 *   }
 * @endcode
 *
 * The scale of the samples matters: at the start of every block an IIR's past outputs below 1e-6
 * become 0. That is meant for the scale of int16, where it is a millionth of a step of the output.
 * On floats of +-1.0 it is a jump of -120 dB, which a filter with poles near 1, such as a high-pass
 * at 20 to 100 Hz, turns into bursts as loud as the signal and louder. So multiply such samples by
 * 32768 and the outputs by its inverse, which changes no digit; or take Sections_control.h, which
 * has no such scale, any number of channels and blocks of any length.
 *
 * What holds for every object stands in Filter_rules.h. */
#ifndef JURN_FLOATFILTER_CONTROL_H
#define JURN_FLOATFILTER_CONTROL_H

#include "Filter_rules.h"

JURN_EXTERN_C_BEGIN

/** @defgroup float_filter Float filter: Filterf_ID
 * @{ */

/** Coefficients of a float filter at most. */
#define JURN_FLOAT_COEFFICIENTS 201
/** Entries of a float filter's histories: the samples before the block, followed by the block. */
#define JURN_FLOAT_HISTORY 2512

/** The history of a Filterf_ID, 30,144 bytes. */
struct Filter_memf {
  float meminput[JURN_FLOAT_HISTORY];   /**< past inputs, then the block */
  double memoutput[JURN_FLOAT_HISTORY]; /**< IIR: past outputs, then the block's, in double */
};
typedef struct Filter_memf FilterIOMEMf;

/**
 * A filter for one float channel with double coefficients and accumulation, 33,376 bytes.
 *
 * Limits: blen and alen from 1 to 201; blen - 1, and alen - 1, plus the block at most 2512, see
 * MORVAX_FilterfLongestBlock_API.
 */
struct Filter_memoryf {
  FilterIOMEMf memL;                 /**< the state */
  double b[JURN_FLOAT_COEFFICIENTS]; /**< [caller] taps or numerator */
  double a[JURN_FLOAT_COEFFICIENTS]; /**< [caller] denominator, normalised: a[0] is not read */
  int blen;                          /**< [caller] numerator coefficients */
  int alen;                          /**< [caller] denominator coefficients; IIR only */
  int filtertype;                    /**< [caller] JURN_FIR or JURN_IIR */
};
typedef struct Filter_memoryf Filterf_ID;

/**
 * Returns a float filter to silence: both histories become 0.
 *
 * @param mFilter any record; its configuration keeps its values
 *
 * Needed after a change of blen, alen, filtertype or the block length; new coefficient values alone
 * take effect at the next block.
 *
 * State touched: memL.
 */
JURN_API void MORVAX_FilterfReset_API(Filterf_ID* mFilter);

/**
 * Filters one float block by MORVAX_Qfirf (JURN_FIR) or MORVAX_Qiirf (JURN_IIR).
 *
 * @param mFilter a configured filter, reset before its first run
 * @param input inLen samples on any scale
 * @param inLen 0 or more, within the limits of the record, the same on every call
 * @param output receives inLen samples; may be input
 *
 * State touched: memL.
 * Wrong input: another filtertype writes nothing.
 */
JURN_API void MORVAX_FilterfRun_API(Filterf_ID* mFilter, const float* input, int inLen,
                                    float* output);

/**
 * Filters one block through two filters, and fades from the first to the second as
 * MORVAX_FilterFade_API does, in double: y[i] = (1 - w) previous[i] + w next[i], w = i / (inLen -
 * 1).
 *
 * @param previous the filter that ran until now; it runs this block as well
 * @param next the filter that the following blocks run with; another record
 * @param input, inLen as for MORVAX_FilterfRun_API, within the limits of both records
 * @param output receives inLen samples; may be input
 *
 * State touched: memL of both.
 * Wrong input: a record that would write nothing counts as silence.
 */
JURN_API void MORVAX_FilterfFade_API(Filterf_ID* previous, Filterf_ID* next, const float* input,
                                     int inLen, float* output);

/**
 * Filters one int16 block to float: MORVAX_FilterfRun_API on the samples' values, not scaled.
 *
 * @param mFilter a configured filter, reset before its first run
 * @param input inLen samples
 * @param inLen at most 1056, within the limits of the record, the same on every call
 * @param output receives inLen samples on the int16 scale; must not overlap input
 *
 * State touched: memL.
 * Wrong input: another filtertype, or an inLen of 0 or less, writes nothing.
 */
JURN_API void MORVAX_FilterfRun_API_shortin(Filterf_ID* mFilter, const short* input, int inLen,
                                            float* output);

/**
 * The longest block, in samples, that a configured filter runs; of int16 samples at most 1056.
 *
 * @param mFilter a record whose configuration is complete
 * @return samples; 0 when filtertype selects nothing, or no block fits
 *
 * State touched: none.
 */
JURN_API int MORVAX_FilterfLongestBlock_API(const Filterf_ID* mFilter);

/**
 * Filters one float block through a direct-form IIR on histories of the caller's.
 *
 *   y[n] = sum over j of b[j] x[n-j] - sum over j >= 1 of a[j] y[n-j], in double.
 *
 * At the start of a call the last samples of the previous block move to the front of the histories,
 * found by the current inlen; past outputs below 1e-6 in magnitude become 0 there. Nothing is
 * flushed inside a block.
 *
 * @param output receives inlen samples, y rounded to float; may be input, not a history
 * @param input inlen samples
 * @param inlen samples, 0 to 32767, the same on every call until the histories are cleared
 * @param mem_output alen - 1 + inlen doubles, zero before the first call
 * @param mem_input blen - 1 + inlen floats, zero before the first call
 * @param b blen coefficients, b[0] of the current sample
 * @param blen 1 or more
 * @param a alen coefficients; a[0] is not read and counts as 1
 * @param alen 1 or more
 *
 * State touched: the two histories. Direct form I.
 */
JURN_API void MORVAX_Qiirf(float* output, const float* input, int inlen, double* mem_output,
                           float* mem_input, const double* b, short blen, const double* a,
                           short alen);

/**
 * Filters one float block through an FIR on a history of the caller's.
 *
 *   y[n] = sum over j of b[j] x[n-j], in double.
 *
 * @param output receives inlen samples, y rounded to float; may be input, not the history
 * @param input inlen samples
 * @param inlen samples, 0 to 32767, the same on every call until the history is cleared
 * @param mem_input blen - 1 + inlen floats, zero before the first call
 * @param b blen coefficients, b[0] of the current sample
 * @param blen 1 or more
 *
 * State touched: the history. Direct convolution.
 */
JURN_API void MORVAX_Qfirf(float* output, const float* input, int inlen, float* mem_input,
                           const double* b, short blen);

/** @} */

JURN_EXTERN_C_END

#endif
