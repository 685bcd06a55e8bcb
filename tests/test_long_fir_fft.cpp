/* The FFT kinds of Filterlongfir_ID against exact convolution in double precision. */
#include <memory>

#include "fft_model.h"
#include "simd/clones.h"

namespace {

/* Every kind, both orders of the tap counts, calls of changing length, taps that change with and
 * without a change of the transform length, and a reset in the middle. */
TEST(FftKinds, OutputIsTheExactConvolution) {
  for (const Kind& kind : kKinds)
    for (int round = 0; round < 12; ++round) {
      Pair pair(kind, 100u + round);
      Random& random = pair.random;
      const int taps = random.one_of({1, 2, 3, 5, 8, 9, 64, 65, 100, 300});
      const int blen = random.one_in(2) ? taps : random.in(1, taps);
      pair.set_up(blen, blen == taps && random.one_in(2) ? random.in(1, taps) : taps);
      const auto before = std::make_unique<Filterlongfir_ID>(*pair.filter);
      for (int call = 0; call < 24; ++call) {
        if (call == 16 && round % 3 == 0) {
          // A pending fade outlives a change of the transform length, with spectra of the old one.
          ASSERT_NO_FATAL_FAILURE(pair.run(1100));
          pair.set_up(random.in(1, taps), random.in(1, 2 * taps));
        }
        if (call > 6 && random.one_in(4)) pair.set_up(pair.filter->blen, pair.filter->bRlen);
        ASSERT_NO_FATAL_FAILURE(
            pair.run(call == 0 ? 0 : random.one_of({0, 1, 3, 160, random.in(0, 900)})));
        if (call != 6) continue;
        // Until here nothing but the queues and the work blocks may have changed.
        before->mBufin = pair.filter->mBufin;
        before->mBufout = pair.filter->mBufout;
        std::memcpy(before->xLintl, pair.filter->xLintl, 6 * sizeof before->xLintl);
        ASSERT_EQ(std::memcmp(before.get(), pair.filter.get(), sizeof *before), 0);
      }
    }
}

TEST(FftKinds, LongestFilters) {
  for (const Kind& kind : {kKinds[0], kKinds[3]}) {
    Pair pair(kind, 7);
    pair.set_up(8192, 8000);
    ASSERT_NO_FATAL_FAILURE(pair.run(9000));
    pair.set_up(8192, 8000);
    ASSERT_NO_FATAL_FAILURE(pair.run(8000));
  }
}

/* Fixed figures: the delay of one hop, and both ends of a fade's emitted part. */
TEST(FftKinds, DelayAndFade) {
  for (const Kind& kind : kKinds) {
    auto filter = std::make_unique<Filterlongfir_ID>();
    filter->chanel = kind.chanel;
    filter->filtertype = kind.type;
    filter->blen = filter->bRlen = 100;
    filter->b[0] = filter->bR[0] = 1000.0f;
    MORVAX_FilterlongfirReset_API(filter.get());
    filter->mBufin.id = filter->mBufout.id = 5;
    MORVAX_FilterlongfirCalcu_API_forFFT(filter.get());
    EXPECT_EQ(filter->mBufin.id + filter->mBufout.id, 0);
    EXPECT_EQ(filter->fftN, 256);
    EXPECT_EQ(filter->offset, 157 * kind.chanel);
    EXPECT_EQ(filter->cmemcall, 0);
    const int out_channels = kind.type == -5 ? 2 : kind.chanel;
    std::vector<short> input(kind.chanel * 1000, 1), output(out_channels * 1000);
    MORVAX_FilterlongfirRun_API(filter.get(), input.data(), static_cast<int>(input.size()),
                                output.data());
    for (size_t i = 0; i < output.size(); ++i)
      ASSERT_NEAR(output[i], i / out_channels < 157 ? 0 : 1000, 1) << i;
    filter->b[0] = filter->bR[0] = 0.0f;
    MORVAX_FilterlongfirCalcu_API_forFFT(filter.get());
    EXPECT_EQ(filter->cmemcall, 1);
    MORVAX_FilterlongfirRun_API(filter.get(), input.data(), static_cast<int>(input.size()),
                                output.data());
    const bool fades = kind.type == -5 || (kind.type == -2 && kind.chanel == 2);
    EXPECT_EQ(filter->cmemcall, fades ? 0 : 1);
    // 1157 frames are a whole number of hops and 58 frames more, so a block starts after 99.
    for (int i = 0; i < 1000; ++i) {
      const double old_weight = i < 99 ? 1.0 : !fades || i >= 256 ? 0.0 : (255.0 - i) / 255.0;
      ASSERT_NEAR(output[out_channels * i], 1000.0 * old_weight, 1.0) << kind.type << ' ' << i;
    }
  }
}

}  // namespace
