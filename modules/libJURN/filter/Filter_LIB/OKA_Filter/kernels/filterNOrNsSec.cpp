#include "../../../../common/exact_arithmetic.h"

#include "../../OKA_Filter.h"

#define JURN_CLONE_BODY "../../filter/Filter_LIB/OKA_Filter/kernels/filterNOrNsSec.inl"
#include "../../../../common/simd/for_each_clone.h"

namespace {

template <int channels>
void run(const float* b, const float* a, int n, int ns, float* const (&x)[channels], int len,
         float* const (&px)[channels], float* const (&py)[channels]) {
  if ((n != 2 && n != 4) || ns <= 0 || len <= 0) return;
  return JURN_CALL_CLONE_OF(JURN_KERNEL_CASCADE, cascade(n, ns, b, a, x, len, px, py));
}

}  // namespace

void filterNOrNsSec(const float* b, const float* a, int n, int ns, float* x, int len, float* px,
                    float* py) {
  run<1>(b, a, n, ns, {x}, len, {px}, {py});
}

void filterNOrNsSec_stereo(const float* b, const float* a, int n, int ns, float* const x[2],
                           int len, float* const px[2], float* const py[2]) {
  run<2>(b, a, n, ns, {x[0], x[1]}, len, {px[0], px[1]}, {py[0], py[1]});
}
