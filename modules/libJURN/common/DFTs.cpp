/* Real FFT: set-up of the tables, and the choice of the clone. */
#include "exact_arithmetic.h"

#include "DFTs.h"

#include <stddef.h>

#define JURN_CLONE_BODY "DFTs.inl"
#include "for_each_clone.h"

namespace {

bool is_length(int n) {
  return n >= 2 && n <= JURN_FFT_MAX && (n & (n - 1)) == 0;
}

struct Rotation {
  double re, im;
};

/** exp(-2 pi i k / n) for n a power of two up to 65536: the angle reduced to an eighth of a turn
 * in whole numbers, then Taylor's series, whose remainder is below 1e-16. */
Rotation rotation(int k, int n) {
  const int turn = 65536;
  const int angle = k * (turn / n) & (turn - 1);
  const int quarter = (angle + turn / 8) / (turn / 4);
  const double x = (angle - quarter * (turn / 4)) * (6.28318530717958647693 / turn), y = x * x;
  const double sine =
      x *
      (1 + y * (-1. / 6 +
                y * (1. / 120 + y * (-1. / 5040 +
                                     y * (1. / 362880 + y * (-1. / 39916800 +
                                                             y * (1. / 6227020800 +
                                                                  y * (-1. / 1307674368000))))))));
  const double cosine =
      1 + y * (-1. / 2 +
               y * (1. / 24 + y * (-1. / 720 + y * (1. / 40320 +
                                                    y * (-1. / 3628800 +
                                                         y * (1. / 479001600 +
                                                              y * (-1. / 87178291200 +
                                                                   y * (1. / 20922789888000))))))));
  switch (quarter & 3) {
    case 0:
      return {cosine, -sine};
    case 1:
      return {-sine, -cosine};
    case 2:
      return {-cosine, sine};
    default:
      return {sine, cosine};
  }
}

/** Writes exp(-2 pi i step k / n) for count values of k from first: real, then imaginary parts. */
float* put_row(float* w, int first, int count, int step, int n) {
  for (int k = 0; k < count; ++k) {
    const Rotation r = rotation((first + k) * step, n);
    w[k] = (float)r.re;
    w[count + k] = (float)r.im;
  }
  return w + 2 * count;
}

/** A table of the powers steps[0..2] of exp(-2 pi i k / n), rows of 16 in turn, k below count. */
void put_table(float* w, int count, const int (&steps)[3], int n) {
  const int row = count < 16 ? count : 16;
  for (int first = 0; first < count; first += row)
    for (int step : steps) w = put_row(w, first, row, step, n);
}

}  // namespace

short MORVAX_KLOV_RealFFT_Init(RealFFT_ID* state, short N) {
  if (!is_length(N)) return -1;
  state->N = N;
  state->scale = 2.f / N;
  float* w = state->fft_w;
  /* Short lengths: halving steps, the radix-2 levels of 8 and 32, the level of 16. */
  for (int n = 16; n <= 64; n *= 2) put_row(w + n, 0, n / 4, 1, n);
  put_row(w + 14 * 8, 0, 4, 1, 8);
  put_row(w + 14 * 32, 0, 16, 1, 32);
  put_table(w + 14 * 16, 4, {1, 2, 3}, 16);
  for (int n = N; n >= 128; n /= 4) {
    put_table(w + n, n / 8, {2, 1, 5}, n);
    if (n / 8 >= 64) put_table(w + 14 * (n / 8), n / 8 / 4, {1, 2, 3}, n / 8);
  }
  return 0;
}

short MORVAX_KLOV_RealFFT_Run2(const RealFFT_ID* state, float* data, short N) {
  if (!is_length(N) || N != state->N) return -1;
  JURN_CALL_CLONE(forward(state->fft_w, data, N));
}

short MORVAX_KLOV_InverseRealFFT_Run2(const RealFFT_ID* state, float* data, short N) {
  if (!is_length(N) || N != state->N) return -1;
  JURN_CALL_CLONE(inverse(state->fft_w, data, N, state->scale));
}

void MORVAX_rfftmut2(float* out, const float* x1, const float* x2, int N) {
  JURN_LIMIT(is_length(N), "MORVAX_rfftmut2: N is a power of two from 2 to 16384");
  JURN_CALL_CLONE(product(out, x1, x2, N));
}
