#include "exact_arithmetic.h"

#include "ChanelConvert.h"

#include <stddef.h>
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

namespace {

template <class Real>
void scale(Real* row, double gain) {
  for (int j = 0; j < 3; ++j) row[j] = static_cast<Real>(gain * row[j]);
}

/** A gain waits for the section after it; the last ones go to the last section. */
template <class Real>
int fold_gains(Real* b, Real* a, const Real* num, const Real* den, int rows) {
  int sections = 0;
  double gain = 1.0;
  for (const Real* end = num + 3 * static_cast<ptrdiff_t>(rows > 0 ? rows : 0); num != end;
       num += 3, den += 3) {
    if (num[1] == 0 && num[2] == 0 && den[1] == 0 && den[2] == 0) {
      gain *= num[0];
      continue;
    }
    memmove(b + 3 * sections, num, 3 * sizeof(Real));
    memmove(a + 3 * sections, den, 3 * sizeof(Real));
    scale(b + 3 * sections, gain);
    gain = 1.0;
    ++sections;
  }
  if (sections == 0 && rows > 0) {
    const Real through[3] = {1, 0, 0};
    memcpy(b, through, sizeof through);
    memcpy(a, through, sizeof through);
    sections = 1;
  }
  if (sections > 0) scale(b + 3 * (sections - 1), gain);
  return sections;
}

}  // namespace

int MORVAX_SecFoldMatlabGains(float* b, float* a, const float* num, const float* den, int rows) {
  return fold_gains(b, a, num, den, rows);
}

int MORVAX_SecFoldMatlabGains_double(double* b, double* a, const double* num, const double* den,
                                     int rows) {
  return fold_gains(b, a, num, den, rows);
}
