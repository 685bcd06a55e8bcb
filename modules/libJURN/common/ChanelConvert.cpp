#include "exact_arithmetic.h"

#include "ChanelConvert.h"

#include <stddef.h>
#include <string.h>

#include "internal.h"
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

/** A gain waits for the section after it; the last ones go to the last section. A section's row is
 * scaled once, when all of its gains are known. */
template <class Real>
int fold_gains(Real* b, Real* a, const Real* num, const Real* den, int rows) {
  Real numerator[3] = {1, 0, 0}; /* of the newest section, or of gains alone */
  double gain = 1.0;             /* of that section, and */
  double next_gain = 1.0;        /* those after it, which are the next one's if there is one */
  int sections = 0;
  const auto finish = [&](double factor) {
    for (int j = 0; j < 3; ++j)
      b[3 * (sections - 1) + j] = static_cast<Real>(factor * numerator[j]);
  };
  for (const Real* end = num + 3 * static_cast<ptrdiff_t>(rows > 0 ? rows : 0); num != end;
       num += 3, den += 3) {
    if (num[1] == 0 && num[2] == 0 && den[1] == 0 && den[2] == 0) {
      next_gain *= num[0];
      continue;
    }
    if (sections > 0) finish(gain);
    memcpy(numerator, num, sizeof numerator);
    memmove(a + 3 * sections, den, sizeof numerator);
    gain = next_gain;
    next_gain = 1.0;
    ++sections;
  }
  if (sections == 0 && rows > 0) {
    memcpy(a, numerator, sizeof numerator);
    sections = 1;
  }
  if (sections > 0) finish(gain * next_gain);
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
