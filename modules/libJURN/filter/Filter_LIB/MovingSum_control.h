/* shuzhiFilter_ID: the mean of the last samples of a mono int16 stream, by block or by sample.
 *
 * One record holds everything. Set blen, derive the scale, reset, then run blocks of any length. A
 * whole program, a meter's mean over 48 samples:
 * @code
 *   #include <JURN/MovingSum_control.h>
 *
 *   int main(void) {
 *     static shuzhiFilter_ID mean;
 *     mean.blen = 48;                        // samples averaged, 1 to 256
 *     MORVAX_shuzhiFilterCalcu_API(&mean);
 *     MORVAX_shuzhiFilterReset_API(&mean);
 *     short block[480];
 *     for (int i = 0; i < 480; ++i) block[i] = 1000;
 *     MORVAX_shuzhiFilterRun_API(&mean, block, 480, block);  // in place; any length
 *     const int sum = MORVAX_shuzhiFilterRun_API_inonesampleoutsum(&mean, 1000);
 *     return !(block[0] == 20 && sum == 48000);
 *   }
 * @endcode
 *
 * What holds for every object stands in Filter_rules.h. */
#ifndef JURN_MOVINGSUM_CONTROL_H
#define JURN_MOVINGSUM_CONTROL_H

#include "Filter_rules.h"

JURN_EXTERN_C_BEGIN

/** @defgroup moving_sum Moving mean: shuzhiFilter_ID
 * @{ */

/** Slots of the ring: samples that a moving-sum filter averages at most. */
#define JURN_MOVING_SUM_MAX 256

/** The moving mean of a mono int16 stream, 528 bytes. Its blocks may have any length. */
struct shuzhiFilter_mem {
  short meminput[JURN_MOVING_SUM_MAX]; /**< ring of the last blen samples */
  int memi;                            /**< slot of the oldest sample */
  int memsumin;                        /**< sum of the ring */
  float N_1;                           /**< 1 / blen */
  int blen;                            /**< [caller] samples averaged, 1 to 256 */
};
typedef struct shuzhiFilter_mem shuzhiFilter_ID;

/**
 * Returns a moving-sum filter to silence.
 *
 * @param mFilter any record; N_1 and blen keep their values
 *
 * State touched: the ring, memi and memsumin become 0.
 */
JURN_API void MORVAX_shuzhiFilterReset_API(shuzhiFilter_ID* mFilter);

/**
 * Derives the scale of the block run: N_1 = 1 / blen, divided in double and rounded to float.
 *
 * @param mFilter a record whose blen is set, 1 to 256
 *
 * A change of blen needs this call and a reset, in either order; without the reset the sum is no
 * longer the ring's.
 *
 * State touched: N_1.
 */
JURN_API void MORVAX_shuzhiFilterCalcu_API(shuzhiFilter_ID* mFilter);

/**
 * Filters one block: y[n] = N_1 (x[n] + ... + x[n-blen+1]), truncated toward zero.
 *
 * The sum is an exact integer. Because N_1 is rounded, a whole mean may come out one nearer to
 * zero. The scale is derived once; the moving averages of Filter_ID and Filterlongfir_ID, whose
 * lengths are cut to 16 bits, derive the same value on every call.
 *
 * @param mFilter a record with N_1 derived and reset
 * @param input inLen samples
 * @param inLen any length, the same or not; 0 or less does nothing
 * @param output receives inLen samples; may be input
 *
 * State touched: meminput, memi, memsumin. The time does not depend on blen: a running sum over a
 * ring.
 */
JURN_API void MORVAX_shuzhiFilterRun_API(shuzhiFilter_ID* mFilter, const short* input, int inLen,
                                         short* output);

/**
 * Pushes one sample and returns the running sum, x[n] + ... + x[n-blen+1], not scaled.
 *
 * @param mFilter a reset record; N_1 is not read. Calls may be mixed with block runs.
 * @param input the sample
 * @return the sum of the last blen samples
 *
 * State touched: meminput, memi, memsumin.
 */
JURN_API int MORVAX_shuzhiFilterRun_API_inonesampleoutsum(shuzhiFilter_ID* mFilter, short input);

/** @} */

JURN_EXTERN_C_END

#endif
