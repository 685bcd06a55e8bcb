/* Real FFT: set-up of the tables, and the choice of the clone. */
#include "exact_arithmetic.h"

#include "DFTs.h"
#include "fast_convolution.h"

#include <stddef.h>

#include <initializer_list>

static_assert(sizeof(RealFFT_ID) == 163848, "RealFFT_ID has no padding");

/* fft_w: a table for every length that a transform of N passes through, at places that depend on
 * that length alone, so that no two tables meet:
 *
 *   splitting a real sequence of M     at M           3 M / 4 floats
 *   complex ones of L = M / 8 values   at 14 L        3 L / 2 floats at most, right behind
 *   blocks of 128 values               at 14 x 128    224 floats
 *   all short lengths                  from 31744 on
 *
 * A table of JURN_fft_table_floats(N) floats goes on like that beyond 16384.
 */
enum {
  table_halve = 31744 - 16, /* plus the length, 16 to 64 */
  table8 = 31840,
  table16 = 31872,
  table32 = table16 + 96
};

#define JURN_CLONE_BODY "../DFTs.inl"
#include "simd/for_each_clone.h"

namespace {

bool is_length(int n) {
  return n >= 2 && n <= JURN_FFT_MAX && (n & (n - 1)) == 0;
}

struct Rotation {
  double re, im;
};

/** exp(-2 pi i k / n) for n a power of two up to 131072: the angle reduced to an eighth of a turn
 * in whole numbers, then Taylor's series, whose remainder is below 1e-16. */
Rotation rotation(int k, int n) {
  const int turn = 131072;
  const int angle = k * (turn / n) & (turn - 1);
  const int quarter = (angle + turn / 8) / (turn / 4);
  const int rest = angle - quarter * (turn / 4);
  const double x = rest * (6.28318530717958647693 / turn), y = x * x;
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
void put_row(float* w, int first, int count, int step, int n) {
  for (int k = 0; k < count; ++k) {
    const Rotation r = rotation((first + k) * step, n);
    w[k] = (float)r.re;
    w[count + k] = (float)r.im;
  }
}

/** Rows of 16 for each of the steps in turn, k from 0 to count. */
void put_rows(float* w, int count, std::initializer_list<int> steps, int n) {
  for (int first = 0; first < count; first += 16)
    for (int step : steps) {
      put_row(w, first, 16, step, n);
      w += 32;
    }
}

/** count values, repeated for every group of the widest vector that takes them: 2 rows of size. */
void put_groups(float* w, int first, int count, int size, int step, int n) {
  for (int i = 0; i < 16; ++i) {
    const Rotation r = rotation((first + i % count) * step, n);
    w[i] = (float)r.re;
    w[size + i] = (float)r.im;
  }
}

}  // namespace

void JURN_put_fft_table(float* w, int N) {
  for (int n = 16; n <= 64; n *= 2) put_row(w + table_halve + n, 0, n / 4, 1, n);
  put_row(w + table8, 0, 4, 1, 8);
  for (int i = 0; i < 3; ++i) put_groups(w + table16 + 32 * i, 0, 4, 16, i + 1, 16);
  for (int i = 0; i < 2; ++i) put_groups(w + table32 + 16 * i, 8 * i, 8, 32, 1, 32);
  if (N >= 1024) put_rows(w + 14 * 128, 16, {1, 2, 3, 4, 5, 6, 7}, 128);
  for (int n = N; n >= 128; n /= 4) {
    put_rows(w + n, n / 8, {2, 1, 5}, n);
    const int length = n / 8;
    if (length == 256)
      put_row(w + 14 * 256, 0, 128, 1, 256);
    else if (length == 64 || length >= 512)
      put_rows(w + 14 * length, length / 4, {1, 2, 3}, length);
  }
}

short MORVAX_KLOV_RealFFT_Init(RealFFT_ID* state, short N) {
  if (!is_length(N)) return -1;
  state->N = N;
  state->scale = 2.f / N;
  JURN_put_fft_table(state->fft_w, N);
  return 0;
}

short MORVAX_KLOV_RealFFT_Run2(const RealFFT_ID* state, float* data, short N) {
  if (!is_length(N) || N != state->N) return -1;
  return JURN_CALL_CLONE(forward(state->fft_w, data, N));
}

short MORVAX_KLOV_InverseRealFFT_Run2(const RealFFT_ID* state, float* data, short N) {
  if (!is_length(N) || N != state->N) return -1;
  return JURN_CALL_CLONE(inverse(state->fft_w, data, N, state->scale));
}

void MORVAX_rfftmut2(float* out, const float* x1, const float* x2, int N) {
  JURN_LIMIT(is_length(N), "MORVAX_rfftmut2: N is a power of two from 2 to 16384");
  return JURN_CALL_CLONE(product(out, x1, x2, N));
}

int JURN_forward_steps(const float* table, int N, float* spectrum, JURN_Window window, int from,
                       int to) {
  return JURN_CALL_CLONE(forward_steps(table, spectrum, N, window, from, to));
}

int JURN_inverse_steps(const float* table, int N, float* spectrum, float* half, int from, int to) {
  return JURN_CALL_CLONE(inverse_steps(table, spectrum, N, half, from, to));
}

void JURN_forward_samples(const RealFFT_ID* state, float* spectrum, const short* samples,
                          int channels, int channel) {
  return JURN_CALL_CLONE(
      forward_samples(state->fft_w, spectrum, samples, channels, channel, state->N));
}

void JURN_inverse_product(const RealFFT_ID* state, float* out, const float* x1, const float* x2) {
  return JURN_CALL_CLONE(inverse_product(state->fft_w, out, x1, x2, state->N, state->scale));
}
