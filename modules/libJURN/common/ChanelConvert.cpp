#include "exact_arithmetic.h"

#include "ChanelConvert.h"

#include <string.h>

#include "functions.h"
#include "samples.h"

void MORVAX_ChanelConvert(int innum, int outnum, int len, const short* in1, const short* in2,
                          short* out1, short* out2) {
  JURN_LIMIT(len >= 0, "MORVAX_ChanelConvert: len must not be negative");
  if (innum == 1 && outnum == 2)
    JURN_split(out1, out2, in1, len / 2);
  else if (innum == 2 && outnum == 1)
    JURN_join(out1, in1, in2, len);
}

void MORVAX_SecOrSecMatlab(float* b, float* a, const float* num, const float* den, int ns) {
  if (ns <= 0) return;
  const size_t bytes = 3 * static_cast<size_t>(ns) * sizeof(float);
  memmove(b, num, bytes);
  memmove(a, den, bytes);
}
