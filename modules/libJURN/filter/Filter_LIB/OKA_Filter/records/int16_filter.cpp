/* Filter_ID. */
#include "../../../../common/exact_arithmetic.h"

#include "../../Filter_control.h"

#include <stddef.h>
#include <string.h>

#include "../../../../common/ChanelConvert.h"
#include "../../../../common/functions.h"
#include "filter_kinds.h"

static_assert(sizeof(short) == 2 && sizeof(int) == 4 && sizeof(float) == 4 && sizeof(double) == 8,
              "the records' layout");
static_assert(offsetof(FilterIOMEM, memi) == 4312 && offsetof(FilterIOMEM, memsumin) == 4316 &&
                  offsetof(FilterIOMEM, memoutput) == 4320 &&
                  offsetof(FilterIOMEM, mempx) == 12944 && offsetof(FilterIOMEM, mempy) == 17944 &&
                  sizeof(FilterIOMEM) == 22944,
              "FilterIOMEM has no padding");
static_assert(offsetof(Filter_ID, memR) == 22944 && offsetof(Filter_ID, b) == 45888 &&
                  offsetof(Filter_ID, a) == 50888 && offsetof(Filter_ID, blen) == 55888 &&
                  offsetof(Filter_ID, alen) == 55892 && offsetof(Filter_ID, Order) == 55896 &&
                  offsetof(Filter_ID, ns) == 55900 && offsetof(Filter_ID, n) == 55904 &&
                  offsetof(Filter_ID, chanel) == 55908 &&
                  offsetof(Filter_ID, filtertype) == 55912 && sizeof(Filter_ID) == 55916,
              "Filter_ID has no padding");

void MORVAX_FilterReset_API(Filter_ID* mFilter) {
  reset_history(&mFilter->memL);
  reset_history(&mFilter->memR);
}

void MORVAX_FilterCalcu_API_FromMatlabTable(Filter_ID* mFilter, const float* num, const float* den,
                                            int Order, int type) {
  JURN_LIMIT(Order < JURN_COEFFICIENTS, "Filter_ID: Order must be at most 1249");
  mFilter->Order = Order;
  mFilter->blen = mFilter->alen = Order + 1;
  mFilter->ns = (Order + 1) / 2;
  mFilter->n = 2;
  mFilter->filtertype = type;
  if (type >= 1) {
    JURN_LIMIT(3 * mFilter->ns <= JURN_COEFFICIENTS,
               "Filter_ID: the Order of a section table must be at most 832");
    MORVAX_SecOrSecMatlab(mFilter->b, mFilter->a, num, den, mFilter->ns);
  } else {
    for (int i = 0; i <= Order; ++i) {
      mFilter->b[i] = num[i];
      mFilter->a[i] = den[i];
    }
  }
}

void MORVAX_Filter_abCopy_API(Filter_ID* dstmFilter, const Filter_ID* srcFilter) {
  JURN_LIMIT(srcFilter->blen <= JURN_COEFFICIENTS && srcFilter->alen <= JURN_COEFFICIENTS,
             "Filter_ID: blen and alen must be at most 1250");
  dstmFilter->blen = srcFilter->blen;
  dstmFilter->alen = srcFilter->alen;
  if (srcFilter->blen > 0) memmove(dstmFilter->b, srcFilter->b, srcFilter->blen * sizeof(float));
  if (srcFilter->alen > 0) memmove(dstmFilter->a, srcFilter->a, srcFilter->alen * sizeof(float));
}

void MORVAX_FilterRun_API(Filter_ID* mFilter, const short* input, int inLen, short* output) {
  run_plain_kind(mFilter, input, inLen, output);
}

int MORVAX_FilterLongestBlock_API(const Filter_ID* mFilter) {
  return longest_block(mFilter);
}
