#include "../../../../common/exact_arithmetic.h"

#include "../../OKA_Filter.h"

#include "history.h"
#define JURN_CLONE_BODY "../../filter/Filter_LIB/OKA_Filter/kernels/JURNfir.inl"
#include "../../../../common/simd/for_each_clone.h"

namespace {

void fir(short* output, const short* x, int count, const float* taps, int tap_count) {
  return JURN_CALL_CLONE_OF(JURN_KERNEL_FIR, fir(output, x, count, taps, tap_count));
}

}  // namespace

void JURNfir(short* output, const short* input, int inlen, short* mem_input, const float* b,
             short blen) {
  JURN_LIMIT(blen >= 1, "JURNfir: blen must be at least 1");
  JURN_LIMIT(inlen >= 0, "JURNfir: inlen must not be negative");
  const short* x = append_block(mem_input, blen - 1, input, inlen);
  fir(output, x, inlen, b, blen);
}
