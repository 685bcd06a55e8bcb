/* What the functions do at the edges of the contract, in debug and release builds alike. */
#include <gtest/gtest.h>

#include <limits>
#include <memory>

#include "ChanelConvert.h"
#include "Filter_control.h"
#include "support.h"

namespace {

/* Without a set-up for its chanel an FFT kind has no hop, or half or twice its own: it writes
 * nothing, and comes back. */
TEST(Edges, FftKindWithoutItsSetUpWritesNothing) {
  const auto filter = std::make_unique<Filterlongfir_ID>();
  const auto before = std::make_unique<Filterlongfir_ID>();
  for (int type : {-7, -5, -4, -2})
    for (int chanel : {1, 2}) {
      const int other = 3 - chanel;
      const std::pair<int, int> set_ups[] = {{0, 100},     {chanel, 0},   {other, 1},    {other, 2},
                                             {other, 100}, {other, 1024}, {other, 1025}, {-1, 0}};
      for (const auto& [for_chanel, blen] : set_ups) {
        *filter = {};
        filter->filtertype = type;
        filter->chanel = for_chanel;
        filter->blen = filter->bRlen = blen;
        if (for_chanel >= 0) {
          MORVAX_FilterlongfirReset_API(filter.get());
          MORVAX_FilterlongfirCalcu_API_forFFT(filter.get());
        }
        filter->chanel = chanel;
        *before = *filter;
        short input[5000] = {1, 2, 3}, output[10000];
        std::fill(output, output + 10000, short(77));
        MORVAX_FilterlongfirRun_API(filter.get(), input, 5000, output);
        EXPECT_EQ(std::count(output, output + 10000, 77), 10000) << type << ' ' << blen;
        EXPECT_EQ(std::memcmp(filter.get(), before.get(), sizeof *filter), 0);
        EXPECT_EQ(MORVAX_FilterlongfirLatency_API(filter.get()), 0);
        EXPECT_EQ(MORVAX_FilterlongfirLongestBlock_API(filter.get()), 0);
      }
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

/* Gains before, between and after sections, some of which have only poles or only zeros: every
 * numerator is the exact product, rounded once. */
TEST(Edges, FoldedGainsAreRoundedOnce) {
  Random random(8);
  for (int round = 0; round < 2000; ++round) {
    float num[6][3] = {}, den[6][3] = {};
    long double exact[2][3], gain = 1;
    int rows = 0;
    const auto add_gain = [&] {
      den[rows][0] = 1;
      return num[rows++][0] = static_cast<float>(random.real(1.0));
    };
    const int sections = random.in(1, 2);
    for (int k = 0; k < sections; ++k) {
      if (random.one_in(2)) gain *= add_gain();
      const int which = random.in(1, 15);  // of the coefficients beyond the current sample's
      for (int j = 0; j < 3; ++j) {
        const float b = static_cast<float>(random.real(1.0));
        const float a = static_cast<float>(random.real(1.0));
        num[rows][j] = j == 0 || which & j ? b : 0;
        den[rows][j] = j == 0 ? 1 : which & 4 * j ? a : 0;
        exact[k][j] = gain * num[rows][j];
      }
      gain = 1;
      ++rows;
    }
    if (random.one_in(2)) gain = add_gain();
    for (auto& x : exact[sections - 1]) x *= gain;
    ASSERT_EQ(MORVAX_SecFoldMatlabGains(num[0], den[0], num[0], den[0], rows), sections);
    for (int k = 0; k < sections; ++k)
      for (int j = 0; j < 3; ++j) ASSERT_EQ(num[k][j], static_cast<float>(exact[k][j])) << round;
  }
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
      long_filter->fftN = 2 * JURN_FFT_MAX;
      long_filter->offset = c.chanel * long_filter->fftN;
      EXPECT_EQ(MORVAX_FilterlongfirLongestBlock_API(long_filter.get()), 0) << c.type;
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

/* No block fits counts that debug builds assert against; the last one that they allow runs. */
TEST(Edges, NoBlockFitsCountsOutsideTheLimits) {
  const auto filter = std::make_unique<Filter_ID>();
  const auto long_filter = std::make_unique<Filterlongfir_ID>();
  const auto floats = std::make_unique<Filterf_ID>();
  const auto longest = [&](bool of_long, int chanel, int type, int blen, int alen, int ns, int n) {
    const auto ask = [=](auto* f, auto longest_block) {
      f->chanel = chanel, f->filtertype = type, f->n = n, f->ns = ns;
      f->blen = blen, f->alen = alen;
      return longest_block(f);
    };
    return of_long ? ask(long_filter.get(), MORVAX_FilterlongfirLongestBlock_API)
                   : ask(filter.get(), MORVAX_FilterLongestBlock_API);
  };
  long_filter->bRlen = 1;
  const int least = std::numeric_limits<int>::min(), most = std::numeric_limits<int>::max();
  for (bool of_long : {false, true})
    for (int chanel : {1, 2}) {
      const int taps = of_long ? 32767 : 1250, averaged = of_long ? 32767 : 2156;
      for (int blen : {least, -5, 0, taps + 1, 33000, most}) {
        EXPECT_EQ(longest(of_long, chanel, -1, blen, 1, 1, 2), 0) << blen;
        EXPECT_EQ(longest(of_long, chanel, 0, blen, 1, 1, 2), 0) << blen;
      }
      for (int alen : {least, 0, 1251, most})
        EXPECT_EQ(longest(of_long, chanel, 0, 1, alen, 1, 2), 0) << alen;
      for (int blen : {least, 0, averaged + 1, 33000, most})
        EXPECT_EQ(longest(of_long, chanel, 2, blen, 1, 1, 2), 0) << blen;
      EXPECT_EQ(longest(of_long, chanel, 1, 1, 1, 417, 2), 0);
      EXPECT_EQ(longest(of_long, chanel, 1, 1, 1, 5000, 2), 0);
      EXPECT_EQ(longest(of_long, chanel, 1, 1, 1, 251, 4), 0);
      EXPECT_EQ(longest(of_long, chanel, 1, 1, 1, 416, 2), 1056);
      EXPECT_EQ(longest(of_long, chanel, 1, 1, 1, 250, 4), 1056);
      EXPECT_EQ(longest(of_long, chanel, 1, 0, 0, most, 3), 1056);  // passes the input on
      EXPECT_GT(longest(of_long, chanel, -1, taps, 0, 0, 0), 0);
      EXPECT_EQ(longest(of_long, 1, 2, averaged, 0, 0, 0), 32767);
    }
  for (const auto& kind : {std::pair<int, int>{2, -3}, {1, -6}})
    for (int count : {least, 0, 32768, most}) {
      long_filter->bRlen = 9;
      EXPECT_EQ(longest(true, kind.first, kind.second, count, 1, 1, 2), 0) << count;
      long_filter->bRlen = count;
      EXPECT_EQ(longest(true, kind.first, kind.second, 9, 1, 1, 2), 0) << count;
    }
  for (int type : {-1, 0})
    for (int count : {least, 0, 202, 500, most}) {
      floats->filtertype = type;
      floats->blen = count, floats->alen = 1;
      EXPECT_EQ(MORVAX_FilterfLongestBlock_API(floats.get()), 0) << count;
      floats->blen = 1, floats->alen = count;
      EXPECT_EQ(MORVAX_FilterfLongestBlock_API(floats.get()), type == 0 ? 0 : 2512) << count;
    }
}

}  // namespace
