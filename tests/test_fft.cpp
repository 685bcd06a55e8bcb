/* The real FFT and the spectrum product. */
#include <gtest/gtest.h>

#include <memory>

#include "DFTs.h"
#include "long_fft.h"
#include "simd/clones.h"
#include "support.h"

namespace {

using Floats = std::vector<float>;

std::unique_ptr<RealFFT_ID> transform(int N) {
  auto state = std::make_unique<RealFFT_ID>();
  std::memset(state.get(), 0x5a, sizeof *state);
  EXPECT_EQ(MORVAX_KLOV_RealFFT_Init(state.get(), static_cast<short>(N)), 0);
  return state;
}

Floats noise(Random& random, int N) {
  Floats x(N);
  for (float& value : x) value = static_cast<float>(random.real(1.0));
  return x;
}

/** The circular convolution; also checks that the product leaves its inputs alone. */
Floats convolve(Random& places, const RealFFT_ID& state, const Floats& x, const Floats& h) {
  const short N = static_cast<short>(x.size());
  Twin<float> X(places, N), H(places, N);
  GuardedArray<float> y(places, N);
  const auto transformed = [&](const Floats& samples) {
    return [&](float* spectrum, int) {
      std::copy(samples.begin(), samples.end(), spectrum);
      EXPECT_EQ(MORVAX_KLOV_RealFFT_Run2(&state, spectrum, N), 0);
    };
  };
  X.fill(transformed(x));
  H.fill(transformed(h));
  MORVAX_rfftmut2(y.data(), H[true], X[true], N);
  EXPECT_TRUE(X.agrees() && H.agrees());
  EXPECT_EQ(MORVAX_KLOV_InverseRealFFT_Run2(&state, y.data(), N), 0);
  return Floats(y.data(), y.data() + N);
}

/** Relative rms error at every step-th value, where exact(n) is the true one. */
template <class Exact>
double relative_error(const Floats& y, int step, Exact exact) {
  double error = 0, power = 0;
  for (int n = 0; n < static_cast<int>(y.size()); n += step) {
    const double truth = exact(n);
    error += (y[n] - truth) * (y[n] - truth);
    power += truth * truth;
  }
  return std::sqrt(error / power);
}

TEST(RealFFT, ChainIsTheCircularConvolutionAtUnitGain) {
  Random random(52), places(57);
  for (int N = 2; N <= JURN_FFT_MAX; N *= 2) {
    const auto state = transform(N);
    const Floats x = noise(random, N);

    /* Noise through noise. The roundings of the levels add up in power. A handful of values may
     * nearly cancel, which says nothing about the average. */
    const double bound = N < 64 ? 1e-6 : 7.2e-8 * std::sqrt(std::log2(N));
    const Floats h = noise(random, N);
    const auto convolution = [&](int n) {
      double sum = 0;
      for (int k = 0; k < N; ++k) sum += static_cast<double>(h[k]) * x[(n - k) & (N - 1)];
      return sum;
    };
    EXPECT_LT(relative_error(convolve(places, *state, x, h), N / 1024 + 1, convolution), bound)
        << N;

    /* An impulse rotates the block. */
    for (int d : {1, N / 2, N - 1, random.in(0, N - 1)}) {
      Floats impulse(N);
      impulse[d] = 1.0f;
      const auto rotated = [&](int n) { return x[(n - d) & (N - 1)]; };
      EXPECT_LT(relative_error(convolve(places, *state, x, impulse), 1, rotated), bound)
          << N << ", " << d;
    }

    /* An impulse at the start changes nothing, nor does the inverse right after the transform. */
    Floats impulse(N), y = x;
    impulse[0] = 1.0f;
    MORVAX_KLOV_RealFFT_Run2(state.get(), y.data(), static_cast<short>(N));
    MORVAX_KLOV_InverseRealFFT_Run2(state.get(), y.data(), static_cast<short>(N));
    EXPECT_LT(relative_error(y, 1, [&](int n) { return x[n]; }), 2e-7) << N;
    EXPECT_TRUE(same(y.data(), convolve(places, *state, x, impulse).data(), N)) << N;
  }
}

TEST(RealFFT, OtherLengthsTouchNothing) {
  auto state = std::make_unique<RealFFT_ID>(), before = std::make_unique<RealFFT_ID>();
  std::memset(state.get(), 0x5a, sizeof *state);
  *before = *state;
  for (int N : {0, 1, 3, 24, 16383, 32767, -1, -2, -32768}) {
    EXPECT_EQ(MORVAX_KLOV_RealFFT_Init(state.get(), static_cast<short>(N)), -1) << N;
    EXPECT_EQ(std::memcmp(state.get(), before.get(), sizeof *state), 0) << N;
  }
  state = transform(64);
  *before = *state;
  Random random(54);
  const Floats samples = noise(random, 128);
  Floats data = samples;
  for (int N : {0, 1, 2, 32, 63, 128, -64, -32768}) {
    EXPECT_EQ(MORVAX_KLOV_RealFFT_Run2(state.get(), data.data(), static_cast<short>(N)), -1) << N;
    EXPECT_EQ(MORVAX_KLOV_InverseRealFFT_Run2(state.get(), data.data(), static_cast<short>(N)), -1)
        << N;
    EXPECT_TRUE(same(data.data(), samples.data(), 128)) << N;
  }
  /* A record whose length is none at all, as after clearing. */
  state->N = before->N = 3;
  EXPECT_EQ(MORVAX_KLOV_RealFFT_Run2(state.get(), data.data(), 3), -1);
  EXPECT_TRUE(same(data.data(), samples.data(), 128));
  EXPECT_EQ(std::memcmp(state.get(), before.get(), sizeof *state), 0);
}

/** Runs all steps of a transform in cuts at random costs. */
template <class Run>
void run_steps(Random& random, int N, Run run) {
  const int cost = JURN_fft_cost(N), most = random.one_of({1, 90, 1000, 20000});
  int done = 0;
  for (int from = 0, to; from < cost; from = to) {
    to = std::min(cost, from + random.in(1, most));
    done += run(from, to);
  }
  EXPECT_EQ(done, cost) << N;
}

/** The steps give the bits of the whole transform, however they are cut and wherever arrays lie and
 * the samples wrap, on every clone. */
TEST(RealFFT, StepByStep) {
  const JURN_Clone chosen = JURN_clone_hook;
  Random random(55);
  for (int N = 2; N <= JURN_LONG_FFT_MAX; N *= 2) {
    const LongFFT fft(N);
    const Floats samples = noise(random, N);
    GuardedArray<float> spectrum(random, N), whole(random, N);
    std::copy(samples.begin(), samples.end(), spectrum.data());
    fft.forward(spectrum.data());
    std::copy_n(spectrum.data(), N, whole.data());
    fft.inverse(whole.data());
    for (int clone = JURN_CLONE_BASELINE; clone <= JURN_best_clone(); ++clone) {
      JURN_clone_hook = static_cast<JURN_Clone>(clone);
      const int head = random.one_in(3) ? N : random.in(1, N);
      const Floats end(samples.begin() + head, samples.end());
      GuardedArray<float> x(random, N), half(random, N / 2);
      const JURN_Window window = {samples.data(), head, end.data()};
      run_steps(random, N, [&](int from, int to) {
        return JURN_forward_steps(fft.table(), N, x.data(), window, from, to);
      });
      ASSERT_TRUE(same(x.data(), spectrum.data(), N)) << N << ", clone " << clone;
      float* const place = random.one_in(2) ? half.data() : x.data() + N / 2;
      run_steps(random, N, [&](int from, int to) {
        return JURN_inverse_steps(fft.table(), N, x.data(), place, from, to);
      });
      ASSERT_TRUE(same(place, whole.data() + N / 2, N / 2)) << N << ", clone " << clone;
    }
  }
  JURN_clone_hook = chosen;
}

TEST(RealFFT, LongOnesConvolve) {
  Random random(56);
  for (int N = 2 * JURN_FFT_MAX; N <= JURN_LONG_FFT_MAX; N *= 2) {
    const LongFFT fft(N);
    const Floats x = noise(random, N), h = noise(random, N);
    Floats X = x, H = h, y(N);
    fft.forward(X.data());
    fft.forward(H.data());
    fft.multiply(y.data(), X.data(), H.data());
    fft.inverse(y.data());
    y.erase(y.begin(), y.begin() + N / 2);
    const auto convolution = [&](int n) {
      double sum = 0;
      for (int k = 0; k < N; ++k) sum += static_cast<double>(h[k]) * x[(n + N / 2 - k) & (N - 1)];
      return sum;
    };
    EXPECT_LT(relative_error(y, N / 256 + 1, convolution), 7.2e-8 * std::sqrt(std::log2(N))) << N;
  }
}

}  // namespace
