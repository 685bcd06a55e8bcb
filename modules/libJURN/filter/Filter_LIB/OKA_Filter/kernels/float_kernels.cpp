/* MORVAX_Qfirf, MORVAX_Qiirf and MORVAX_FirRun_API_double. */
#include "../../../../common/exact_arithmetic.h"

#include "../../Filter_control.h"
#include "../../Fir_control.h"

#include "feedback.h"
#include "history.h"
#define JURN_CLONE_BODY "../../filter/Filter_LIB/OKA_Filter/kernels/float_kernels.inl"
#include "../../../../common/simd/for_each_clone.h"

namespace {

void fir(float* output, const float* x, int count, const double* b, int blen) {
  return JURN_CALL_CLONE_OF(JURN_KERNEL_FIR, fir(output, x, count, b, blen));
}

void numerator(double* y, const float* x, int count, const double* b, int blen) {
  return JURN_CALL_CLONE(numerator(y, x, count, b, blen));
}

void to_float(float* output, const double* y, int count) {
  return JURN_CALL_CLONE(to_float(output, y, count));
}

void fir_in_double(double* output, const double* x, int count, const double* b, int blen) {
  return JURN_CALL_CLONE(fir_in_double(output, x, count, b, blen));
}

}  // namespace

void MORVAX_FirRun_API_double(double* output, const double* x, int count, const double* b,
                              int blen) {
  JURN_LIMIT(blen >= 1, "MORVAX_FirRun_API_double: blen must be at least 1");
  JURN_LIMIT(count >= 0, "MORVAX_FirRun_API_double: count must not be negative");
  fir_in_double(output, x, count, b, blen);
}

void MORVAX_Qfirf(float* output, const float* input, int inlen, float* mem_input, const double* b,
                  short blen) {
  JURN_LIMIT(inlen == 0 || blen >= 1, "MORVAX_Qfirf: blen must be at least 1");
  JURN_LIMIT(inlen >= 0 && inlen <= 32767, "MORVAX_Qfirf: inlen must be from 0 to 32767");
  fir(output, append_block(mem_input, blen - 1, input, inlen), inlen, b, blen);
}

void MORVAX_Qiirf(float* output, const float* input, int inlen, double* mem_output,
                  float* mem_input, const double* b, short blen, const double* a, short alen) {
  JURN_LIMIT(inlen == 0 || blen >= 1, "MORVAX_Qiirf: blen must be at least 1");
  JURN_LIMIT(alen >= 1, "MORVAX_Qiirf: alen must be at least 1");
  JURN_LIMIT(inlen >= 0 && inlen <= 32767, "MORVAX_Qiirf: inlen must be from 0 to 32767");
  const float* x = append_block(mem_input, blen - 1, input, inlen);
  double* const y[1] = {carry_outputs(mem_output, alen - 1, inlen)};
  numerator(y[0], x, inlen, b, blen);
  subtract_feedback(y, inlen, {a}, alen);
  to_float(output, y[0], inlen);
}
