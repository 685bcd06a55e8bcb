/* Filterf_ID. */
#include "../../../../common/exact_arithmetic.h"

#include "../../Filter_control.h"

#include <stddef.h>
#include <string.h>

#include "../../../../common/internal.h"

static_assert(sizeof(FilterIOMEMf) == 2512 * 12, "FilterIOMEMf has no padding");
static_assert(offsetof(Filterf_ID, filtertype) == 2512 * 12 + 2 * 201 * 8 + 2 * 4,
              "Filterf_ID has padding at its end alone");

void MORVAX_FilterfReset_API(Filterf_ID* mFilter) {
  memset(&mFilter->memL, 0, sizeof mFilter->memL);
}

void MORVAX_FilterfRun_API(Filterf_ID* mFilter, const float* input, int inLen, float* output) {
  const int type = mFilter->filtertype;
  if (type != JURN_FIR && type != JURN_IIR) return;
  JURN_LIMIT(inLen == 0 || (mFilter->blen >= 1 && mFilter->blen <= JURN_FLOAT_COEFFICIENTS),
             "Filterf_ID: blen must be from 1 to 201");
  JURN_LIMIT(inLen >= 0 && (inLen == 0 || mFilter->blen - 1 + inLen <= JURN_FLOAT_HISTORY),
             "Filterf_ID: blen - 1 + inLen must be at most 2512");
  FilterIOMEMf& mem = mFilter->memL;
  const short blen = static_cast<short>(mFilter->blen);
  if (type == JURN_FIR) {
    MORVAX_Qfirf(output, input, inLen, mem.meminput, mFilter->b, blen);
  } else {
    JURN_LIMIT(mFilter->alen >= 1 && mFilter->alen <= JURN_FLOAT_COEFFICIENTS,
               "Filterf_ID: alen must be from 1 to 201");
    JURN_LIMIT(mFilter->alen - 1 + inLen <= JURN_FLOAT_HISTORY,
               "Filterf_ID: alen - 1 + inLen must be at most 2512");
    MORVAX_Qiirf(output, input, inLen, mem.memoutput, mem.meminput, mFilter->b, blen, mFilter->a,
                 static_cast<short>(mFilter->alen));
  }
}

void MORVAX_FilterfRun_API_shortin(Filterf_ID* mFilter, const short* input, int inLen,
                                   float* output) {
  if (inLen < 0) return;
  JURN_LIMIT(inLen <= JURN_BLOCK, "Filterf_ID: an int16 block must have at most 1056 samples");
  float inputf[JURN_BLOCK];
  for (int i = 0; i < inLen; ++i) inputf[i] = input[i];
  MORVAX_FilterfRun_API(mFilter, inputf, inLen, output);
}

int MORVAX_FilterfLongestBlock_API(const Filterf_ID* mFilter) {
  const int type = mFilter->filtertype;
  const int blen = mFilter->blen, alen = type == JURN_IIR ? mFilter->alen : 1;
  const auto fits = [](int count) { return count >= 1 && count <= JURN_FLOAT_COEFFICIENTS; };
  if ((type != JURN_FIR && type != JURN_IIR) || !fits(blen) || !fits(alen)) return 0;
  return JURN_FLOAT_HISTORY - (alen > blen ? alen : blen) + 1;
}
