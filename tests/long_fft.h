/* Transforms of any length for tests of the convolution: the public ones, and beyond their longest
 * those that its levels run step by step. */
#ifndef JURN_TESTS_LONG_FFT_H
#define JURN_TESTS_LONG_FFT_H

#include <memory>
#include <vector>

#include "DFTs.h"
#include "fast_convolution.h"

class LongFFT {
 public:
  explicit LongFFT(int N) : N_(N), table_(JURN_fft_table_floats(N)) {
    JURN_put_fft_table(table_.data(), N);
    if (N > JURN_FFT_MAX) return;
    public_ = std::make_unique<RealFFT_ID>();
    MORVAX_KLOV_RealFFT_Init(public_.get(), static_cast<short>(N));
  }
  const float* table() const { return table_.data(); }

  void forward(float* x) const {
    if (public_)
      MORVAX_KLOV_RealFFT_Run2(public_.get(), x, static_cast<short>(N_));
    else
      JURN_forward_steps(table(), N_, x, {x, N_, nullptr}, 0, JURN_ALL_STEPS);
  }

  /** The last N/2 samples are left in x. */
  void inverse(float* x) const {
    if (public_)
      MORVAX_KLOV_InverseRealFFT_Run2(public_.get(), x, static_cast<short>(N_));
    else
      JURN_inverse_steps(table(), N_, x, x + N_ / 2, 0, JURN_ALL_STEPS);
  }

  /** Arrays of N/8 real and N/8 imaginary parts follow the spectrum of N/4. */
  void multiply(float* out, const float* a, const float* b) const {
    int N = N_;
    for (; N > JURN_FFT_MAX; N /= 4)
      for (int array = N / 4; array < N; array += N / 4)
        for (int i = array; i < array + N / 8; ++i) {
          const int j = i + N / 8;
          const float re = a[i] * b[i] - a[j] * b[j], im = a[i] * b[j] + a[j] * b[i];
          out[i] = re, out[j] = im;
        }
    MORVAX_rfftmut2(out, a, b, N);
  }

 private:
  int N_;
  std::vector<float> table_;
  std::unique_ptr<RealFFT_ID> public_;
};

#endif
