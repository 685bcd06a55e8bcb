/* What holds for every filter object: order of use, fields, arithmetic, state, real time, wrong
 * input; and the values of the fields that they share. */
/**
 * @defgroup objects What holds for every object
 *
 * - Filter_ID: mono or stereo int16 blocks through an FIR, a direct-form IIR, a cascade of second-
 * or fourth-order sections, or (mono) a moving average.
 * - shuzhiFilter_ID: the moving mean of a mono int16 stream, by block or by sample.
 * - Filterf_ID: one float channel through an FIR or a direct-form IIR in double precision.
 * - Filterlongfir_ID: impulse responses of thousands of taps on mono or stereo int16 blocks, in the
 *   time domain or by FFT convolution, with a fade when the coefficients change.
 *
 * **Order of use**: write the configuration and the coefficients, call the set-up function where
 * the kind has one, call the reset, then call the run once per block with the same block length
 * every time. (Filterlongfir_ID: reset first, FFT set-up after it.)
 *
 * **Fields**: those marked [caller] are yours to write before and between runs; the functions own
 * the others. No run changes a field marked [caller].
 *
 * **Arithmetic**: sums run in increasing coefficient index from 0 and every product is rounded
 * before it is added, in float for the int16 objects and in double for the float object. The result
 * is the same on every CPU and compiler. Int16 samples keep their value (no scaling to +-1.0);
 * results become int16 by truncation toward zero, with saturation (stoshort).
 *
 * **State**: all of it lies in the record that a function is given; nothing else is touched but the
 * output. Distinct records may run on distinct threads, one record on one thread at a time.
 *
 * **Real time**: every function is real-time safe: nothing is allocated, locked or waited for.
 * Where a call may take much longer than a block, its description says "Real time" and how long.
 *
 * **Wrong input**: no function checks its arguments. The arrays of the records set the limits,
 * which debug builds assert; breaking one in a release build is undefined. Pointers are never null,
 * but for the blocks of a call whose length is 0. "Wrong input" below names what is defined.
 */
#ifndef JURN_FILTER_RULES_H
#define JURN_FILTER_RULES_H

#include "../../common/JURN_api.h"

JURN_EXTERN_C_BEGIN

/** @addtogroup objects
 * @{ */

/** Values of the fields chanel. */
enum JURN_Chanel {
  JURN_MONO = 1,  /**< one sample per frame */
  JURN_STEREO = 2 /**< two samples per frame: left, right, left, right ... */
};

/** Values of the fields filtertype. The long kinds belong to Filterlongfir_ID alone; its table says
 * what each does with one and with two channels. */
enum JURN_Filtertype {
  JURN_FIR = -1,                     /**< FIR, in the time domain */
  JURN_IIR = 0,                      /**< direct-form IIR */
  JURN_CASCADE = 1,                  /**< cascade of sections */
  JURN_MOVING_AVERAGE = 2,           /**< mean of the last blen samples; mono only */
  JURN_LONG_FFT = -2,                /**< FFT, a filter for each channel, fade in stereo */
  JURN_LONG_TWO_FILTERS = -3,        /**< time domain, a filter for each channel, fade */
  JURN_LONG_FFT_LEFT_ONLY = -4,      /**< FFT, both outputs from the left input */
  JURN_LONG_FFT_MONO_TO_STEREO = -5, /**< FFT, both outputs from a mono input, fade */
  JURN_LONG_MONO_TO_STEREO = -6,     /**< time domain, both outputs from a mono input, fade */
  JURN_LONG_FFT_CROSSED = -7         /**< FFT, each output from the other input */
};

/** Entries of a history: the samples before the block, followed by the block. */
#define JURN_HISTORY 2156
/** Entries of a coefficient array of the int16 filter, and of the states of a cascade. */
#define JURN_COEFFICIENTS 1250
/** Frames that a stereo block, or any block of a cascade, may have at most. */
#define JURN_BLOCK 1056
/** Values that a faded int16 block may have at most: those of the longest stereo block. */
#define JURN_FADE_VALUES 2112

/** @} */

JURN_EXTERN_C_END

#endif
