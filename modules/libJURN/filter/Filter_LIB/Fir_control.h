/* An FIR in double precision, on memory of the caller's: for floats, 24 bits and files.
 *
 * A whole program, the mean of two samples over blocks of 64:
 * @code
 *   #include <JURN/Fir_control.h>
 *   #include <string.h>
 *
 *   int main(void) {
 *     const double b[] = {0.5, 0.5};
 *     double x[1 + 64] = {0.0};                              // the past, then the block
 *     for (int block = 0; block < 100; ++block) {
 *       for (int i = 0; i < 64; ++i) x[1 + i] = 1.0;         // the next samples
 *       double y[64];
 *       MORVAX_FirRun_API_double(y, x + 1, 64, b, 2);
 *       memcpy(x, x + 64, 1 * sizeof *x);                    // the block's end becomes the past
 *     }
 *     return 0;
 *   }
 * @endcode */
#ifndef JURN_FIR_CONTROL_H
#define JURN_FIR_CONTROL_H

#include "../../common/JURN_api.h"

JURN_EXTERN_C_BEGIN

/**
 * Filters one channel through an FIR.
 *
 *   y[n] = sum over j of b[j] x[n-j]
 *
 * The sum runs in increasing j from 0, and every product is rounded before it is added, so that the
 * result is the same on every CPU and compiler, and for every way to cut a signal into calls.
 *
 * @param output receives count samples; no part of x
 * @param x the first of count samples, with the blen - 1 samples before it right in front of it
 * @param count 0 or more
 * @param b blen taps, b[0] of the current sample
 * @param blen 1 or more
 *
 * State touched: none, the past lies in x. Wrong input: debug builds assert count and blen. Samples
 * may have any scale and are not limited; one that is no finite number spoils blen outputs.
 * Real-time safe. Direct convolution, many outputs side by side.
 */
JURN_API void MORVAX_FirRun_API_double(double* output, const double* x, int count, const double* b,
                                       int blen);

JURN_EXTERN_C_END

#endif
