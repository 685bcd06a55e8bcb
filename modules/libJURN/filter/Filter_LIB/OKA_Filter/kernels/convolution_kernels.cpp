/* The sums over partitions, and the order of spectra. */
#include "../../../../common/exact_arithmetic.h"

#include "convolution_kernels.h"

#define JURN_CLONE_BODY "../../filter/Filter_LIB/OKA_Filter/kernels/convolution_kernels.inl"
#include "../../../../common/simd/for_each_clone.h"

void JURN_put_spectrum(float* chunks, size_t chunk_stride, const float* spectrum, int N, int first,
                       int last) {
  return JURN_CALL_CLONE(put_spectrum(chunks, chunk_stride, spectrum, N, first, last));
}
void JURN_sum_chunks(const struct ConvolutionStep* step, int first, int last) {
  return JURN_CALL_CLONE(sum_chunks(step, first, last));
}
void JURN_sum_part(const struct ConvolutionStep* step, int chunk, int first, int last) {
  JURN_CALL_CLONE(sum_part(step, chunk, first, last));
}
