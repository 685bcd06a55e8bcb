/* What the functions do at the edges of the contract, in debug and release builds alike. */
#include <gtest/gtest.h>

#include <memory>

#include "ChanelConvert.h"
#include "Filter_control.h"
#include "support.h"

namespace {

/* Without a set-up for its chanel an FFT kind has no hop: it writes nothing, and comes back. */
TEST(Edges, FftKindWithoutItsSetUpWritesNothing) {
  const auto filter = std::make_unique<Filterlongfir_ID>();
  const auto before = std::make_unique<Filterlongfir_ID>();
  for (int set_up = 0; set_up < 3; ++set_up)
    for (int type : {-7, -5, -4, -2})
      for (int chanel : {1, 2}) {
        *filter = {};
        filter->filtertype = type;
        if (set_up > 0) {  // for no channel, or without a tap
          filter->blen = filter->bRlen = set_up == 1 ? 100 : 0;
          filter->chanel = set_up == 1 ? 0 : chanel;
          MORVAX_FilterlongfirCalcu_API_forFFT(filter.get());
          EXPECT_EQ(filter->fftN, set_up == 1 ? 256 : 2);
          EXPECT_EQ(filter->offset, set_up == 1 ? 0 : 3 * chanel);
        }
        filter->chanel = chanel;
        *before = *filter;
        short input[64] = {1, 2, 3}, output[128];
        std::fill(output, output + 128, short(77));
        MORVAX_FilterlongfirRun_API(filter.get(), input, 64, output);
        EXPECT_EQ(std::count(output, output + 128, 77), 128) << type << ' ' << chanel;
        EXPECT_EQ(std::memcmp(filter.get(), before.get(), sizeof *filter), 0);
      }
}

TEST(Edges, MoreTapsThanTheTransformEmitNothingAndConsumeTheirHop) {
  const auto filter = std::make_unique<Filterlongfir_ID>();
  filter->chanel = 2;
  filter->filtertype = -2;
  filter->b[0] = filter->bR[0] = 1.0f;
  filter->blen = filter->bRlen = 100;
  MORVAX_FilterlongfirReset_API(filter.get());
  MORVAX_FilterlongfirCalcu_API_forFFT(filter.get());
  filter->blen = 257;
  short block[400];
  std::fill(block, block + 400, short(1000));
  MORVAX_FilterlongfirRun_API(filter.get(), block, 400, block);
  EXPECT_EQ(std::count(block, block + 400, 0), 400);
  EXPECT_EQ(filter->mBufin.front, 2 * 314);  // 456 frames held two transforms of 256
  EXPECT_EQ(filter->mBufout.rear, 0);
}

TEST(Edges, NothingHappens) {
  short samples[4] = {5, 6, 7, 8};
  const auto cascade = std::make_unique<Filter_ID>();
  cascade->chanel = 1;
  cascade->filtertype = 1;
  cascade->n = 3;
  cascade->ns = 1000000000;
  MORVAX_FilterRun_API(cascade.get(), samples, 4, samples);
  EXPECT_EQ(samples[0], 5);

  const auto filter = std::make_unique<Filterf_ID>();
  const auto moving_sum = std::make_unique<shuzhiFilter_ID>();
  for (int type : {-1, 0})
    for (int inLen : {0, -1, -1000000}) {
      float output = 9.0f;
      filter->filtertype = type;
      filter->alen = 1;
      MORVAX_FilterfRun_API_shortin(filter.get(), samples, inLen, &output);
      EXPECT_EQ(output, 9.0f);
      MORVAX_shuzhiFilterRun_API(moving_sum.get(), samples, inLen, samples);
      EXPECT_EQ(samples[0], 5);
    }
}

/* The rows of an exported header against the same filter written as sections. */
TEST(Edges, GainsOfAnExportedHeaderAreFolded) {
  const float num[5][3] = {{0.5f, 0, 0}, {1, 2, 1}, {0.25f, 0, 0}, {1, -1, 0}, {3, 0, 0}};
  const float den[5][3] = {{1, 0, 0}, {1, -0.5f, 0.25f}, {1, 0, 0}, {1, 0.5f, 0}, {1, 0, 0}};
  const float b_folded[6] = {0.5f, 1, 0.5f, 0.75f, -0.75f, 0};
  const float a_folded[6] = {1, -0.5f, 0.25f, 1, 0.5f, 0};
  float b[15], a[15];
  std::memcpy(b, num, sizeof b);
  std::memcpy(a, den, sizeof a);
  ASSERT_EQ(MORVAX_SecFoldMatlabGains(b, a, b, a, 5), 2);
  EXPECT_TRUE(std::equal(b_folded, b_folded + 6, b));
  EXPECT_TRUE(std::equal(a_folded, a_folded + 6, a));
  const double num_double[2][3] = {{0.1, 0, 0}, {3, 1, 0}}, den_double[2][3] = {{1}, {1, 0.5}};
  double b_double[6], a_double[6];
  ASSERT_EQ(MORVAX_SecFoldMatlabGains_double(b_double, a_double, num_double[0], den_double[0], 2),
            1);
  EXPECT_EQ(b_double[0], 0.1 * 3);
  // Gains alone are one section; no row is none.
  ASSERT_EQ(MORVAX_SecFoldMatlabGains(b, a, num[0], den[0], 1), 1);
  EXPECT_EQ(b[0], 0.5f);
  EXPECT_EQ(a[0], 1.0f);
  EXPECT_EQ(MORVAX_SecFoldMatlabGains(b, a, num[0], den[0], 0), 0);
}

/* The figures of the guide; debug builds assert the limits that the longest blocks reach. */
TEST(Edges, LongestBlocksRunAndAreNamed) {
  const struct {
    int chanel, type, blen, alen, longest, of_long;
  } cases[] = {{1, -1, 1250, 1, 907, 32575}, {2, -1, 1, 1, 1056, 1056}, {1, 0, 3, 1250, 907, 907},
               {1, 1, 1, 1, 1056, 1056},     {2, 1, 1, 1, 1056, 1056},  {1, 2, 9, 1, 32767, 32767},
               {2, 2, 9, 1, 0, 0},           {3, -1, 1, 1, 0, 0},       {2, -3, 32767, 1, 0, 1056},
               {1, -6, 1000, 1, 0, 1056},    {1, -3, 9, 1, 0, 0},       {2, -2, 100, 1, 0, 52543},
               {1, -5, 8192, 1, 0, 36415},   {1, -2, 1, 1, 0, 105597},  {2, -4, 20, 1, 0, 52735}};
  const auto filter = std::make_unique<Filter_ID>();
  const auto long_filter = std::make_unique<Filterlongfir_ID>();
  static short block[2 * 110000];
  const auto configure = [](const auto& c, auto* f) {
    f->chanel = c.chanel;
    f->filtertype = c.type;
    f->blen = c.blen;
    f->alen = c.alen;
    f->n = 2;
    f->ns = 1;
  };
  for (const auto& c : cases) {
    configure(c, filter.get());
    EXPECT_EQ(MORVAX_FilterLongestBlock_API(filter.get()), c.longest) << c.type;
    MORVAX_FilterRun_API(filter.get(), block, c.chanel * c.longest, block);
    configure(c, long_filter.get());
    long_filter->bRlen = 1;
    MORVAX_FilterlongfirReset_API(long_filter.get());
    const bool fft = c.type == -2 || c.type <= -4;
    long_filter->fftN = 0;
    if (fft && c.type != -6) {
      EXPECT_EQ(MORVAX_FilterlongfirLongestBlock_API(long_filter.get()), 0) << c.type;
      EXPECT_EQ(MORVAX_FilterlongfirLatency_API(long_filter.get()), 0) << c.type;
      MORVAX_FilterlongfirCalcu_API_forFFT(long_filter.get());
    }
    EXPECT_EQ(MORVAX_FilterlongfirLongestBlock_API(long_filter.get()), c.of_long) << c.type;
    MORVAX_FilterlongfirRun_API(long_filter.get(), block, c.chanel * c.of_long, block);
    const int latency = MORVAX_FilterlongfirLatency_API(long_filter.get());
    EXPECT_EQ(latency, long_filter->fftN > 0 ? long_filter->fftN - c.blen + 1 : 0) << c.type;
  }
  const auto floats = std::make_unique<Filterf_ID>();
  floats->blen = 201;
  floats->alen = 3;
  floats->filtertype = -1;
  EXPECT_EQ(MORVAX_FilterfLongestBlock_API(floats.get()), 2312);
  floats->blen = 1;
  floats->filtertype = 0;
  EXPECT_EQ(MORVAX_FilterfLongestBlock_API(floats.get()), 2510);
  floats->filtertype = 2;
  EXPECT_EQ(MORVAX_FilterfLongestBlock_API(floats.get()), 0);
}

}  // namespace
