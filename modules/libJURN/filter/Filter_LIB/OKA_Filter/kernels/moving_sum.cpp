#include "../../../../common/exact_arithmetic.h"

#include "moving_sum.h"

#include "../../../../common/internal.h"
#include "../../OKA_Filter.h"

#define JURN_CLONE_BODY "../../filter/Filter_LIB/OKA_Filter/kernels/moving_sum.inl"
#include "../../../../common/simd/for_each_clone.h"

namespace {

int mean_run(short* output, const short* input, int count, short* ring, float scale, int* sum) {
  return JURN_CALL_CLONE(mean_run(output, input, count, ring, scale, sum));
}

/** Sample by sample, with the state in registers. */
void mean_samples(short* output, const short* input, int count, short* ring, int len, float scale,
                  int* sum, int* memi) {
  int sum_here = *sum;
  int slot = *memi;
  for (int i = 0; i < count; ++i) {
    moving_sum_push(input[i], ring, len, &sum_here, &slot);
    output[i] = static_cast<short>(static_cast<int>(scale * static_cast<float>(sum_here)));
  }
  *sum = sum_here;
  *memi = slot;
}

}  // namespace

void moving_mean(short* output, const short* input, int inlen, short* ring, int len, float scale,
                 int* sum, int* memi) {
  const int shortest_run = 8;  // of a ring that fills vectors
  for (int i = 0; i < inlen;) {
    const int left = inlen - i;
    int taken = 0;
    int run = left;
    if (*memi >= len) {
      run = 1;
    } else if (len >= shortest_run) {
      run = left < len - *memi ? left : len - *memi;
      taken = mean_run(output + i, input + i, run, ring + *memi, scale, sum);
      *memi = *memi + taken == len ? 0 : *memi + taken;
    }
    mean_samples(output + i + taken, input + i + taken, run - taken, ring, len, scale, sum, memi);
    i += run;
  }
}

void JURN_shuzhi2(short* output, const short* input, int inlen, short* mem_input, short len,
                  int* memsum, int* memi) {
  JURN_LIMIT(len >= 1, "JURN_shuzhi2: len must be from 1 to 32767");
  JURN_LIMIT(inlen <= 32767, "JURN_shuzhi2: inlen must be at most 32767");
  moving_mean(output, input, inlen, mem_input, len, moving_mean_scale(len), memsum, memi);
}
