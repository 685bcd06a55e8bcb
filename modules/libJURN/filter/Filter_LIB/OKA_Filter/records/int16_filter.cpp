/* Filter_ID. */
#include "../../../../common/exact_arithmetic.h"

#include "../../Filter_control.h"

#include <string.h>

#include "../../../../common/ChanelConvert.h"
#include "../../../../common/internal.h"
#include "filter_kinds.h"

static_assert(sizeof(short) == 2 && sizeof(int) == 4 && sizeof(float) == 4 && sizeof(double) == 8,
              "the records' layout");
// Without padding the places of the fields follow from their order, which modules/abi keeps.
static_assert(sizeof(FilterIOMEM) == 22944, "FilterIOMEM has no padding");
static_assert(sizeof(Filter_ID) == 55916, "Filter_ID has no padding");

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

namespace {

constexpr int most_records = 8;

/** How many records from the first on run side by side with it: recursive, mono, of one shape. One
 * record has its sections in the lanes, so fewer records than `least` are faster one by one, and
 * with many sections so are the fifth and the sixth. */
int count_alike(Filter_ID* const* filters, int count) {
  const Filter_ID* first = filters[0];
  const bool cascade =
      first->filtertype == JURN_CASCADE && first->ns > 0 && (first->n == 2 || first->n == 4);
  if (first->chanel != JURN_MONO || !(cascade || first->filtertype == JURN_IIR)) return 1;
  int alike = 1;
  for (; alike < count && alike < most_records; ++alike) {
    const Filter_ID* f = filters[alike];
    if (f->chanel != JURN_MONO || f->filtertype != first->filtertype) break;
    if (cascade ? f->n != first->n || f->ns != first->ns
                : f->blen != first->blen || f->alen != first->alen)
      break;
  }
  if (cascade) {
    const int least = first->ns <= 4 ? 2 : 3;
    if (alike < least) return 1;
    if (first->ns > 4 && alike < 7) return alike < 4 ? alike : 4;
  }
  return alike;
}

void run_side_by_side(Filter_ID* const* filters, int count, const short* const* input, int inLen,
                      short* const* output) {
  const float* b[most_records];
  const float* a[most_records];
  for (int i = 0; i < count; ++i) {
    check_limits(filters[i], inLen);
    b[i] = filters[i]->b;
    a[i] = filters[i]->a;
  }
  const Filter_ID* first = filters[0];
  if (first->filtertype == JURN_CASCADE) {
    float* px[most_records];
    float* py[most_records];
    for (int i = 0; i < count; ++i) {
      px[i] = filters[i]->memL.mempx;
      py[i] = filters[i]->memL.mempy;
    }
    filterNOrNsSec_records(first->n, first->ns, count, b, a, input, inLen, output, px, py);
  } else {
    float* past_outputs[most_records];
    short* past_inputs[most_records];
    for (int i = 0; i < count; ++i) {
      past_outputs[i] = filters[i]->memL.memoutput;
      past_inputs[i] = filters[i]->memL.meminput;
    }
    JURNiir_records(count, output, input, inLen, past_outputs, past_inputs, b,
                    static_cast<short>(first->blen), a, static_cast<short>(first->alen));
  }
}

}  // namespace

void MORVAX_FilterRun_API_records(Filter_ID* const* filters, int count, const short* const* input,
                                  int inLen, short* const* output) {
  for (int i = 0; i < count;) {
    const int alike = inLen > 0 ? count_alike(filters + i, count - i) : 1;
    if (alike == 1)
      MORVAX_FilterRun_API(filters[i], input[i], inLen, output[i]);
    else
      run_side_by_side(filters + i, alike, input + i, inLen, output + i);
    i += alike;
  }
}
