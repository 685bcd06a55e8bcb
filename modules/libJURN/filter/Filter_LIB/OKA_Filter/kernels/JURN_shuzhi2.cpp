#include "../../../../common/exact_arithmetic.h"

#include "../../OKA_Filter.h"

#include "../../../../common/functions.h"
#include "moving_sum.h"

void JURN_shuzhi2(short* output, const short* input, int inlen, short* mem_input, short len,
                  int* memsum, int* memi) {
  JURN_LIMIT(len >= 1, "JURN_shuzhi2: len must be from 1 to 32767");
  JURN_LIMIT(inlen <= 32767, "JURN_shuzhi2: inlen must be at most 32767");
  moving_mean(output, input, inlen, mem_input, len, moving_mean_scale(len), memsum, memi);
}
