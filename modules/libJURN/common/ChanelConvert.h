/* Conversion between interleaved and planar channels, and of MATLAB's section tables. */
#ifndef JURN_CHANELCONVERT_H
#define JURN_CHANELCONVERT_H

#include "JURN_api.h"

JURN_EXTERN_C_BEGIN

/**
 * Splits an interleaved stereo block into two channels, or joins two channels into one.
 *
 * (innum, outnum) = (1, 2): out1[i] = in1[2i], out2[i] = in1[2i + 1] for i < len / 2.
 * (innum, outnum) = (2, 1): out1[2i] = in1[i], out1[2i + 1] = in2[i] for i < len.
 *
 * @param innum, outnum number of source and of destination blocks
 * @param len samples of each source block, 0 or more; an odd last value of the split is not read
 * @param in1, in2 source blocks of len samples; in2 is not used by the split and may be null
 * @param out1, out2 destination blocks: len / 2 samples each for the split, 2 len samples in out1
 *   for the join, whose out2 is not used and may be null; they must not overlap the sources
 *
 * State touched: none. Wrong input: other counts do nothing; debug builds assert the rest.
 * Real-time safe.
 */
JURN_API void MORVAX_ChanelConvert(int innum, int outnum, int len, const short* in1,
                                   const short* in2, short* out1, short* out2);

/**
 * Copies a table of second-order sections into the layout that the section cascade reads.
 *
 * num and den are MATLAB's section matrix split into its two halves, row by row: for section k,
 * num[3k .. 3k+2] = {b0, b1, b2} and den[3k .. 3k+2] = {a0, a1, a2} with a0 = 1, of
 *   y[n] = b0 x[n] + b1 x[n-1] + b2 x[n-2] - a1 y[n-1] - a2 y[n-2].
 * Nothing is normalised; a gain has to be part of the numerators.
 *
 * @param b, a destinations of 3 ns entries each
 * @param num, den ns rows of three
 * @param ns number of sections
 *
 * The destinations may be the sources. State touched: none. Wrong input: ns of 0 or less copies
 * nothing. Real-time safe.
 */
JURN_API void MORVAX_SecOrSecMatlab(float* b, float* a, const float* num, const float* den, int ns);

JURN_EXTERN_C_END

#endif
