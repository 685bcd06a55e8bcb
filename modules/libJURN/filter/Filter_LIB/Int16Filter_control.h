/* Filter_ID: mono or stereo int16 blocks through an FIR, a direct-form IIR, a cascade of sections
 * or (mono) a moving average, in single precision.
 *
 * One record holds the configuration and the past. Set chanel, set the coefficients up, reset, then
 * run once per block. A whole program, a section with the resonance of a small room on stereo:
 * @code
 *   #include <JURN/Int16Filter_control.h>
 *
 *   static Filter_ID filter;  // 55 KiB, too large for most stacks of a real-time thread
 *
 *   int main(void) {
 *     const float num[] = {0.05f, 0.0f, -0.05f};   // rows {b0, b1, b2}, here of one section
 *     const float den[] = {1.0f, -1.8f, 0.9f};     // rows {a0, a1, a2}, a0 = 1
 *     filter.chanel = JURN_STEREO;                 // left, right, left, right ...
 *     MORVAX_FilterCalcu_API_FromMatlabTable(&filter, num, den, 2, JURN_CASCADE);
 *     MORVAX_FilterReset_API(&filter);
 *     short block[2 * 480] = {10000, -10000};
 *     for (int i = 0; i < 10; ++i)                 // 480 frames a call, in place
 *       MORVAX_FilterRun_API(&filter, block, 2 * 480, block);
 *     return MORVAX_FilterLongestBlock_API(&filter) < 480;
 *   }
 * @endcode
 *
 * To change coefficients while audio runs, set a second record up and let MORVAX_FilterFade_API
 * take the place of one run. Floats, 24 bits and files: Sections_control.h. What holds for every
 * object stands in Filter_rules.h. */
#ifndef JURN_INT16FILTER_CONTROL_H
#define JURN_INT16FILTER_CONTROL_H

#include "Filter_rules.h"

JURN_EXTERN_C_BEGIN

/** @defgroup int16_filter Int16 filter: Filter_ID
 * @{ */

/** The history of one channel of a Filter_ID, 22,944 bytes. */
struct Filter_mem {
  short meminput[JURN_HISTORY];  /**< FIR, IIR: past inputs, then the block; moving average: ring */
  int memi;                      /**< moving average: slot of the oldest sample */
  int memsumin;                  /**< moving average: sum of the ring */
  float memoutput[JURN_HISTORY]; /**< IIR: past outputs, then the block's */
  float mempx[JURN_COEFFICIENTS]; /**< cascade: past inputs, n + 1 per section */
  float mempy[JURN_COEFFICIENTS]; /**< cascade: past outputs, n + 1 per section */
};
typedef struct Filter_mem FilterIOMEM;

/**
 * A filter for one int16 stream, 55,916 bytes. memL and memR are the state, everything else is
 * configuration, which both channels share.
 *
 * Limits: blen and alen from 1 to 1250 (moving average: blen to 2156); ns (n + 1) at most 1250;
 * blen - 1, and alen - 1, plus the frames of a block at most 2156, see
 * MORVAX_FilterLongestBlock_API.
 */
struct Filter_memory {
  FilterIOMEM memL;           /**< history of the left, or only, channel */
  FilterIOMEM memR;           /**< history of the right channel; untouched in mono */
  float b[JURN_COEFFICIENTS]; /**< [caller] taps, numerator, or the sections' numerators, n + 1 each
                               */
  float a[JURN_COEFFICIENTS]; /**< [caller] denominator, normalised: a[0], and each section's, is
                                 not read */
  int blen;       /**< [caller] numerator coefficients; moving average: samples averaged */
  int alen;       /**< [caller] denominator coefficients */
  int Order;      /**< order given to the set-up; no run reads it */
  int ns;         /**< [caller] sections of the cascade */
  int n;          /**< [caller] order of each section, 2 or 4 */
  int chanel;     /**< [caller] JURN_MONO or JURN_STEREO; no function writes it */
  int filtertype; /**< [caller] JURN_FIR, JURN_IIR, JURN_CASCADE, or in mono JURN_MOVING_AVERAGE */
};
typedef struct Filter_memory Filter_ID;

/**
 * Returns a filter to silence.
 *
 * Clears meminput, memoutput, memi and memsumin of both channels, and the first 750 entries of
 * mempx and mempy: the state of 250 sections of order 2 or 150 of order 4. The sections of a larger
 * cascade start from what their state holds.
 *
 * @param mFilter any record; its configuration keeps its values
 *
 * State touched: memL, memR.
 */
JURN_API void MORVAX_FilterReset_API(Filter_ID* mFilter);

/**
 * Sets the coefficients from MATLAB's vectors or section table.
 *
 * - JURN_FIR, JURN_IIR (type < 1): b = num and a = den, Order + 1 values each, current sample
 *   first, a[0] = 1.
 * - JURN_CASCADE (type >= 1): num and den hold (Order + 1) / 2 rows of three, {b0, b1, b2} and
 *   {a0, a1, a2} with a0 = 1; see MORVAX_SecOrSecMatlab.
 *
 * In both cases Order is stored, blen = alen = Order + 1, ns = (Order + 1) / 2, n = 2,
 * filtertype = type. Nothing is normalised.
 *
 * The header that MATLAB exports ("Generate C Header") is no section table: rows {g, 0, 0} with
 * gains stand between its sections. Fold them with MORVAX_SecFoldMatlabGains first, or another
 * filter runs.
 *
 * Spread a small gain over the sections. A section's output below 1e-6 becomes 0, so a cascade
 * whose first section has a gain of 1e-10 or less may pass nothing: give each of ns numerators
 * the factor g^(1/ns).
 *
 * @param mFilter any record; chanel and both histories keep their values
 * @param num, den vectors or tables as above
 * @param Order order of the filter: 0 to 1249 for vectors, 0 to 832 for tables
 * @param type the filtertype to set
 *
 * State touched: the configuration named above; allowed between two runs.
 * Wrong input: a negative Order with type < 1 copies nothing.
 *
 * Example, the mean of two samples:
 * @code
 *   const float num[] = {0.5f, 0.5f}, den[] = {1.0f, 0.0f};
 *   filter.chanel = JURN_MONO;
 *   MORVAX_FilterCalcu_API_FromMatlabTable(&filter, num, den, 1, JURN_FIR);
 *   MORVAX_FilterReset_API(&filter);
 * @endcode
 */
JURN_API void MORVAX_FilterCalcu_API_FromMatlabTable(Filter_ID* mFilter, const float* num,
                                                     const float* den, int Order, int type);

/**
 * Copies the coefficients of one filter to another.
 *
 * Copies blen, alen, b[0 .. blen-1] and a[0 .. alen-1] and nothing else: a cascade set up from a
 * table has 3 ns coefficients, which may be more than blen, so its copy is complete only when the
 * caller raises blen and alen of the source first.
 *
 * @param dstmFilter the filter that changes; its history goes on under the new coefficients
 * @param srcFilter the filter to copy from; may be the same record
 *
 * State touched: the fields named above; allowed between two runs.
 * Wrong input: a count of 0 or less copies no coefficient.
 */
JURN_API void MORVAX_Filter_abCopy_API(Filter_ID* dstmFilter, const Filter_ID* srcFilter);

/**
 * Filters one block of int16 samples.
 *
 * - JURN_FIR: y[n] = sum over j of b[j] x[n-j], in float.
 * - JURN_IIR: y[n] = sum over j of b[j] x[n-j] - sum over j >= 1 of a[j] y[n-j]; y stays float and
 *   unlimited in the history; past outputs below 1e-6 become 0 at the start of a call.
 * - JURN_CASCADE: ns sections of order n (direct form I); section outputs below 1e-6 become 0.
 * - JURN_MOVING_AVERAGE, mono only: mean of the last blen samples, truncated toward zero. In stereo
 *   it writes nothing, which leaves old samples in output: run two mono filters instead.
 *
 * @param mFilter a configured filter, reset before its first run
 * @param input inLen samples (mono) or interleaved values (stereo)
 * @param inLen 0 or more; stereo at most 2 x 1056, mono cascade at most 1056, moving average at
 *   most 32767, FIR and IIR within the limits of the record. The FIR and the IIR continue exactly
 *   only when every call has the same length; the cascade and the mean take any lengths.
 * @param output receives inLen samples; of an odd stereo inLen the last value is neither read nor
 *   written. May be input.
 *
 * State touched: memL, and memR in stereo. Direct convolution, direct form I, a running sum.
 * Wrong input: another chanel or filtertype writes nothing; a cascade of another order, or of no
 * section, passes the input on.
 */
JURN_API void MORVAX_FilterRun_API(Filter_ID* mFilter, const short* input, int inLen,
                                   short* output);

/**
 * The longest block, in frames, that a configured filter runs.
 *
 * @param mFilter a record whose configuration is complete
 * @return frames; 0 when chanel and filtertype select nothing, or no block fits
 *
 * State touched: none.
 */
JURN_API int MORVAX_FilterLongestBlock_API(const Filter_ID* mFilter);

/**
 * Filters one block through two filters, and fades from the first to the second.
 *
 *   y[i] = (previous[i] (frames - 1 - i) + next[i] i) / (frames - 1), truncated toward zero
 *
 * The ramp spans exactly this block: its first frame is wholly the previous filter's output, its
 * last wholly the next one's, and equal outputs pass unchanged. A block of one frame is the next
 * filter's. Any two kinds and coefficient counts may meet; the next filter goes on from what its
 * histories hold. Where blen, alen and the kind are equal, copy memL and memR of the previous one
 * first, and no transient is heard at all; otherwise reset it, so that its start is faded in.
 *
 * @param previous the filter that ran until now; it runs this block as well
 * @param next the filter that the following blocks run with; another record, the same chanel
 * @param input, inLen as for MORVAX_FilterRun_API, within the limits of both records
 * @param output as for MORVAX_FilterRun_API; inLen at most JURN_FADE_VALUES
 *
 * State touched: memL, and memR in stereo, of both.
 * Wrong input: a record that would write nothing counts as silence.
 */
JURN_API void MORVAX_FilterFade_API(Filter_ID* previous, Filter_ID* next, const short* input,
                                    int inLen, short* output);

/**
 * Filters one block of each of several streams: MORVAX_FilterRun_API for each record in turn, with
 * the same bits, in less time.
 *
 * A recursion waits for its own last output, so one record leaves most of the machine idle. Mono
 * cascades with the same n and ns that follow each other in the list, and mono IIRs with the same
 * blen and alen, run up to eight side by side, each with coefficients of its own: surround
 * channels, microphone arrays, the bands of a crossover. All other records run one after another.
 *
 * @param filters count configured filters, reset before their first run; no record twice
 * @param count 0 or more
 * @param input count blocks, each as MORVAX_FilterRun_API takes it
 * @param inLen samples of every block, within the limits of every record
 * @param output count blocks that receive the results; output[i] may be input[i], and overlaps no
 *   other block
 *
 * State touched, and wrong input: as MORVAX_FilterRun_API, of each record.
 *
 * Example, six channels in place:
 * @code
 *   Filter_ID* filters[6];           // one for each channel
 *   short* blocks[6];                // 480 samples each
 *   MORVAX_FilterRun_API_records(filters, 6, (const short* const*)blocks, 480, blocks);
 * @endcode
 */
JURN_API void MORVAX_FilterRun_API_records(Filter_ID* const* filters, int count,
                                           const short* const* input, int inLen,
                                           short* const* output);

/** @} */

JURN_EXTERN_C_END

#endif
