#include "../../../../common/exact_arithmetic.h"

#include "../../OKA_Filter.h"

#include "feedback.h"
#include "history.h"
#define JURN_CLONE_BODY "../../filter/Filter_LIB/OKA_Filter/kernels/JURNiir.inl"
#include "../../../../common/simd/for_each_clone.h"

namespace {

void numerator(float* y, const short* x, int count, const float* b, int blen) {
  return JURN_CALL_CLONE(numerator(y, x, count, b, blen));
}

void to_samples(short* output, const float* y, int count) {
  return JURN_CALL_CLONE(to_samples(output, y, count));
}

template <int channels>
void iir(short* const (&output)[channels], const short* const (&input)[channels], int inlen,
         float* const (&mem_output)[channels], short* const (&mem_input)[channels], const float* b,
         short blen, const float* a, short alen) {
  JURN_LIMIT(blen >= 1, "JURNiir: blen must be at least 1");
  JURN_LIMIT(alen >= 1, "JURNiir: alen must be at least 1");
  JURN_LIMIT(inlen >= 0, "JURNiir: inlen must not be negative");
  float* y[channels];
  for (int c = 0; c < channels; ++c) {
    const short* x = append_block(mem_input[c], blen - 1, input[c], inlen);
    y[c] = carry_outputs(mem_output[c], alen - 1, inlen);
    numerator(y[c], x, inlen, b, blen);
  }
  subtract_feedback(y, inlen, a, alen);
  for (int c = 0; c < channels; ++c) to_samples(output[c], y[c], inlen);
}

}  // namespace

void JURNiir(short* output, const short* input, int inlen, float* mem_output, short* mem_input,
             const float* b, short blen, const float* a, short alen) {
  iir<1>({output}, {input}, inlen, {mem_output}, {mem_input}, b, blen, a, alen);
}

void JURNiir_stereo(short* const output[2], const short* const input[2], int inlen,
                    float* const mem_output[2], short* const mem_input[2], const float* b,
                    short blen, const float* a, short alen) {
  iir<2>({output[0], output[1]}, {input[0], input[1]}, inlen, {mem_output[0], mem_output[1]},
         {mem_input[0], mem_input[1]}, b, blen, a, alen);
}
