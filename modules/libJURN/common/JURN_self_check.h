/* Whether a build of the library, on the thread that asks, keeps the promise of equal bits. */
#ifndef JURN_SELF_CHECK_H
#define JURN_SELF_CHECK_H

#include "JURN_api.h"

JURN_EXTERN_C_BEGIN

/** @defgroup self_check Check of the build
 *
 * Whether a build keeps the promise of equal bits.
 * @{ */

/** What MORVAX_SelfCheck_API finds: bits of its result. The first three come from the options with
 * which the library was compiled, the others from the floating-point mode of the thread. */
enum JURN_Broken {
  JURN_BROKEN_PRODUCTS = 1,  /**< products reach a sum unrounded: fused, or in excess precision */
  JURN_BROKEN_SUMS = 2,      /**< sums are reordered, or signs of zeros or NaNs dropped */
  JURN_BROKEN_CONSTANTS = 4, /**< double constants are stored as float */
  JURN_BROKEN_ROUNDING = 8,  /**< results are not rounded to nearest, ties to even */
  JURN_BROKEN_RESULTS = 16,  /**< denormal results become zero (flush-to-zero) */
  JURN_BROKEN_OPERANDS = 32  /**< denormal operands count as zero (denormals-are-zero) */
};

/**
 * Tries the library's arithmetic, compiled as its kernels are, on the calling thread.
 *
 * @return 0 when everything is as promised, otherwise bits of JURN_Broken
 *
 * Real-time safe, a few microseconds at most; reads and changes no state. Audio hosts set
 * flush-to-zero on their threads. With it results can differ from other machines' where numbers get
 * smaller than 1.2e-38, and nowhere else: nothing that is heard, but not the same bits.
 */
JURN_API int MORVAX_SelfCheck_API(void);

/** @} */

JURN_EXTERN_C_END

#endif
