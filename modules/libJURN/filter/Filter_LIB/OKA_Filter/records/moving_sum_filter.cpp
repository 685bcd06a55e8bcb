/* shuzhiFilter_ID. */
#include "../../../../common/exact_arithmetic.h"

#include "../../Filter_control.h"

#include <string.h>

#include "../../../../common/internal.h"
#include "../kernels/moving_sum.h"

static_assert(sizeof(shuzhiFilter_ID) == 528, "shuzhiFilter_ID has no padding");

void MORVAX_shuzhiFilterReset_API(shuzhiFilter_ID* mFilter) {
  memset(mFilter->meminput, 0, sizeof mFilter->meminput);
  mFilter->memi = 0;
  mFilter->memsumin = 0;
}

void MORVAX_shuzhiFilterCalcu_API(shuzhiFilter_ID* mFilter) {
  JURN_LIMIT(mFilter->blen >= 1 && mFilter->blen <= JURN_MOVING_SUM_MAX,
             "shuzhiFilter_ID: blen must be from 1 to 256");
  mFilter->N_1 = moving_mean_scale(mFilter->blen);
}

[[maybe_unused]] static bool is_ready(const shuzhiFilter_ID* mFilter) {
  return mFilter->blen >= 1 && mFilter->blen <= JURN_MOVING_SUM_MAX && mFilter->memi >= 0 &&
         mFilter->memi < JURN_MOVING_SUM_MAX;
}

void MORVAX_shuzhiFilterRun_API(shuzhiFilter_ID* mFilter, const short* input, int inLen,
                                short* output) {
  JURN_LIMIT(inLen <= 0 || is_ready(mFilter),
             "shuzhiFilter_ID: blen must be from 1 to 256, memi from 0 to 255");
  moving_mean(output, input, inLen, mFilter->meminput, mFilter->blen, mFilter->N_1,
              &mFilter->memsumin, &mFilter->memi);
}

int MORVAX_shuzhiFilterRun_API_inonesampleoutsum(shuzhiFilter_ID* mFilter, short input) {
  JURN_LIMIT(is_ready(mFilter), "shuzhiFilter_ID: blen must be from 1 to 256, memi from 0 to 255");
  moving_sum_push(input, mFilter->meminput, mFilter->blen, &mFilter->memsumin, &mFilter->memi);
  return mFilter->memsumin;
}
