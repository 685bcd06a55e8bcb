#include "exact_arithmetic.h"

#include "moving_sum.h"

#define JURN_CLONE_BODY "OKA_Filter/moving_sum.inl"
#include "for_each_clone.h"

namespace {

int mean_run(short* output, const short* input, int count, short* ring, float scale, int* sum) {
  JURN_CALL_CLONE(mean_run(output, input, count, ring, scale, sum));
}

}  // namespace

void moving_mean(short* output, const short* input, int inlen, short* ring, int len, float scale,
                 int* sum, int* memi) {
  JURN_LIMIT(*memi >= 0 && *memi < len, "moving average: memi must lie in 0 .. len - 1");
  for (int i = 0; i < inlen;) {
    const int to_end = len - *memi;
    const int run = inlen - i < to_end ? inlen - i : to_end;
    const int taken = mean_run(output + i, input + i, run, ring + *memi, scale, sum);
    *memi = *memi + taken == len ? 0 : *memi + taken;
    for (int k = taken; k < run; ++k) {
      moving_sum_push(input[i + k], ring, len, sum, memi);
      output[i + k] = static_cast<short>(static_cast<int>(scale * static_cast<float>(*sum)));
    }
    i += run;
  }
}
