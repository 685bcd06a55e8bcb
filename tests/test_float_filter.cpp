/* MORVAX_Qfirf, MORVAX_Qiirf and MORVAX_FirRun_API_double. */
#include <gtest/gtest.h>

#include <memory>

#include "Fir_control.h"
#include "reference.h"
#include "support.h"

namespace {

TEST(FloatKernels, AgreeWithReference) {
  Random random(21);
  for (int trial = 0; trial < 800; ++trial) {
    const bool wild = random.one_in(6), feedback = random.one_in(2);
    const int blen = random.count(1, 300), alen = random.count(1, 300);
    const int len = random.one_in(100) ? 32767 : random.count(0, 700);
    const auto signal = [&](float* x, int count) { random.floats(x, count, wild); };
    Twin<float> past_inputs(random, blen - 1 + len, signal);
    Twin<double> past_outputs(random, alen - 1 + len,
                              [&](double* y, int count) { random.states(y, count); });
    Twin<double> b(random, blen, [&](double* x, int count) { random.taps(x, count, wild); });
    Twin<double> a(random, alen, [&](double* x, int count) { random.denominator(x, count, wild); });
    for (int call = 0; call < 2; ++call) {
      Twin<float> input(random, len, signal), separate(random, len, signal);
      Twin<float>& output = random.one_in(3) ? input : separate;
      for (bool lib : {false, true})
        if (feedback)
          (lib ? MORVAX_Qiirf : ref::qiir)(output[lib], input[lib], len, past_outputs[lib],
                                           past_inputs[lib], b[lib], blen, a[lib], alen);
        else
          (lib ? MORVAX_Qfirf : ref::qfir)(output[lib], input[lib], len, past_inputs[lib], b[lib],
                                           blen);
      ASSERT_TRUE(input.agrees() && output.agrees() && past_outputs.agrees() && b.agrees() &&
                  a.agrees())
          << "trial " << trial << " blen " << blen << " alen " << alen << " len " << len;
      // Inputs move as they are, NaNs with all their bits.
      const size_t bytes = past_inputs.expected.size() * sizeof(float);
      ASSERT_TRUE(bytes == 0 || std::memcmp(past_inputs[true], past_inputs[false], bytes) == 0);
    }
  }
}

TEST(FloatKernels, FirInDoubleSumsInOrder) {
  Random random(22);
  for (int trial = 0; trial < 300; ++trial) {
    const int blen = random.count(1, 700), count = random.count(0, 1100);
    const auto values = [&](double* x, int n) { random.taps(x, n, random.one_in(6)); };
    Twin<double> b(random, blen, values), x(random, blen - 1 + count, values), y(random, count);
    MORVAX_FirRun_API_double(y[true], x[true] + blen - 1, count, b[true], blen);
    for (int i = 0; i < count; ++i) {
      volatile double sum = 0.0;  // volatile: every product and sum is rounded, one after another
      for (int j = 0; j < blen; ++j) {
        const volatile double product = b[false][j] * x[false][blen - 1 + i - j];
        sum = sum + product;
      }
      y[false][i] = sum;
    }
    ASSERT_TRUE(y.agrees() && x.agrees() && b.agrees()) << blen << " taps, " << count;
  }
}

TEST(FloatKernels, WorkedExamples) {
  const double half[] = {0.5, 0.5}, one[] = {1.0}, any_first[] = {2.0, -0.5};
  float history[4] = {}, block[] = {1, 1, 1};
  MORVAX_Qfirf(block, block, 3, history, half, 2);
  EXPECT_TRUE(block[0] == 0.5f && block[1] == 1.0f && block[2] == 1.0f);
  float next[] = {3, 3, 3};
  MORVAX_Qfirf(next, next, 3, history, half, 2);
  EXPECT_TRUE(next[0] == 2.0f && next[1] == 3.0f && next[2] == 3.0f);
  float zero[] = {-0.0f};
  MORVAX_Qfirf(zero, zero, 1, history, one, 1);
  EXPECT_FALSE(std::signbit(zero[0])) << "sums start from +0";

  double past[5] = {};
  float impulse[] = {1, 0, 0, 0};
  MORVAX_Qiirf(impulse, impulse, 4, past, history, one, 1, any_first, 2);
  EXPECT_TRUE(impulse[0] == 1.0f && impulse[1] == 0.5f && impulse[3] == 0.125f);
  double cleared[3] = {};
  float faint[] = {8e-7f, 0.0f};
  MORVAX_Qiirf(faint, faint, 2, cleared, history, one, 1, any_first, 2);
  EXPECT_TRUE(faint[0] == 8e-7f && faint[1] == 4e-7f) << "nothing is flushed inside a block";
  MORVAX_Qiirf(faint, faint, 0, cleared, history, one, 1, any_first, 2);
  EXPECT_EQ(cleared[0], 0.0) << "a call of length 0 flushes";
}

}  // namespace
