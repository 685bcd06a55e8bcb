#include "../../../../common/exact_arithmetic.h"

#include "../../OKA_Filter.h"

#include <type_traits>

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

/** The same number of coefficients for every channel, of each channel's own. */
template <int channels>
void iir(short* const* output, const short* const* input, int inlen, float* const* mem_output,
         short* const* mem_input, const float* const* b, short blen, const float* const* a,
         short alen) {
  JURN_LIMIT(blen >= 1, "JURNiir: blen must be at least 1");
  JURN_LIMIT(alen >= 1, "JURNiir: alen must be at least 1");
  JURN_LIMIT(inlen >= 0, "JURNiir: inlen must not be negative");
  float* y[channels];
  const float* denominators[channels];
  for (int c = 0; c < channels; ++c) {
    const short* x = append_block(mem_input[c], blen - 1, input[c], inlen);
    y[c] = carry_outputs(mem_output[c], alen - 1, inlen);
    numerator(y[c], x, inlen, b[c], blen);
    denominators[c] = a[c];
  }
  subtract_feedback(y, inlen, denominators, alen);
  for (int c = 0; c < channels; ++c) to_samples(output[c], y[c], inlen);
}

}  // namespace

void JURNiir(short* output, const short* input, int inlen, float* mem_output, short* mem_input,
             const float* b, short blen, const float* a, short alen) {
  iir<1>(&output, &input, inlen, &mem_output, &mem_input, &b, blen, &a, alen);
}

void JURNiir_stereo(short* const output[2], const short* const input[2], int inlen,
                    float* const mem_output[2], short* const mem_input[2], const float* b,
                    short blen, const float* a, short alen) {
  const float* const numerators[2] = {b, b};
  const float* const denominators[2] = {a, a};
  iir<2>(output, input, inlen, mem_output, mem_input, numerators, blen, denominators, alen);
}

void JURNiir_records(int records, short* const* output, const short* const* input, int inlen,
                     float* const* mem_output, short* const* mem_input, const float* const* b,
                     short blen, const float* const* a, short alen) {
  for (int r = 0; r < records;) {
    const int rest = records - r;
    const auto run = [&](auto channels) {
      iir<channels>(output + r, input + r, inlen, mem_output + r, mem_input + r, b + r, blen, a + r,
                    alen);
    };
    if (rest >= 4)
      run(std::integral_constant<int, 4>());
    else if (rest == 3)
      run(std::integral_constant<int, 3>());
    else if (rest == 2)
      run(std::integral_constant<int, 2>());
    else
      run(std::integral_constant<int, 1>());
    r += rest < 4 ? rest : 4;
  }
}
