#include "../../../../common/exact_arithmetic.h"

#include "../../Filter_control.h"
#include "../../OKA_Filter.h"

#include <type_traits>

#define JURN_CLONE_BODY "../../filter/Filter_LIB/OKA_Filter/kernels/cascade_records.inl"
#include "../../../../common/simd/for_each_clone.h"

void filterNOrNsSec_records(int n, int ns, int records, const float* const* b,
                            const float* const* a, const short* const* input, int frames,
                            short* const* output, float* const* px, float* const* py) {
  JURN_CALL_CLONE(cascade_records(n, ns, records, b, a, input, frames, output, px, py));
}
