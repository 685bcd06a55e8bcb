/* Conversion between interleaved and planar channels, and of MATLAB's section tables. */
#ifndef JURN_CHANELCONVERT_H
#define JURN_CHANELCONVERT_H

#include "JURN_api.h"

JURN_EXTERN_C_BEGIN

/** @defgroup conversion Channels and section tables
 *
 * The rules of @ref objects hold here too.
 * @{ */

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
 * nothing.
 */
JURN_API void MORVAX_SecOrSecMatlab(float* b, float* a, const float* num, const float* den, int ns);

/**
 * Folds the gain rows of a header that MATLAB exports into the sections.
 *
 * "Generate C Header" writes a filter of second-order sections as NUM[MWSPT_NSEC][3] and
 * DEN[MWSPT_NSEC][3], in which rows {g, 0, 0} over {1, 0, 0} stand before, between and after the
 * sections. Taken for a section table they make another filter: the Order that fits the real
 * sections leaves the last rows out. Each gain is multiplied into the numerator of the section
 * after it, those at the end into the last section's; products are in double and rounded once. Rows
 * of gains alone become one section.
 *
 * @param b, a destinations with room for rows rows of three; may be num and den
 * @param num, den rows rows of three
 * @param rows MWSPT_NSEC
 * @return the number of sections written to b and a, 0 when rows is 0 or less
 *
 * State touched: none. Wrong input: a0 other than 1 is neither seen nor mended.
 *
 * Example:
 * @code
 *   float b[MWSPT_NSEC * 3], a[MWSPT_NSEC * 3];
 *   const int ns = MORVAX_SecFoldMatlabGains(b, a, NUM[0], DEN[0], MWSPT_NSEC);
 *   MORVAX_FilterCalcu_API_FromMatlabTable(&filter, b, a, 2 * ns, JURN_CASCADE);
 * @endcode
 */
JURN_API int MORVAX_SecFoldMatlabGains(float* b, float* a, const float* num, const float* den,
                                       int rows);

/** MORVAX_SecFoldMatlabGains for a header of doubles, MATLAB's default (real64_T). */
JURN_API int MORVAX_SecFoldMatlabGains_double(double* b, double* a, const double* num,
                                              const double* den, int rows);

/** @} */

JURN_EXTERN_C_END

#endif
