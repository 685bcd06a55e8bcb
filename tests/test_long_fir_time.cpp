/* Filterlongfir_ID: reset, both set-ups, and every kind but the FFT ones. */
#include <gtest/gtest.h>

#include <memory>

#include "reference.h"
#include "support.h"

namespace {

TEST(LongFilter, UnknownCombinationsWriteNothing) {
  Random random(42);
  auto filter = std::make_unique<Filterlongfir_ID>(), before = std::make_unique<Filterlongfir_ID>();
  for (int chanel : {0, 1, 2, 3})
    for (int type = -9; type <= 4; ++type) {
      const bool known = (chanel == 2 && type >= -7 && type <= 1 && type != -6 && type != -5) ||
                         (chanel == 1 && type >= -6 && type <= 2 && type != -4 && type != -3);
      if (known) continue;
      filter->chanel = chanel;
      filter->filtertype = type;
      std::memcpy(before.get(), filter.get(), sizeof *filter);
      const auto run = [&](bool library, const short* in, short* out) {
        if (library) MORVAX_FilterlongfirRun_API(filter.get(), in, 6, out);
      };
      ASSERT_TRUE(runs_alike(random, 6, 12, run)) << chanel << ' ' << type;
      ASSERT_EQ(std::memcmp(before.get(), filter.get(), sizeof *filter), 0)
          << chanel << ' ' << type;
    }
}

TEST(LongFilter, WorkedFades) {
  const struct {
    float from, to;
    int frames;
    std::vector<short> output;
  } cases[] = {{1000, 0, 5, {1000, 750, 500, 250, 0}},
               {0, 1000, 5, {0, 250, 500, 750, 1000}},
               {0, 999, 3, {0, 499, 999}},
               {0, 100, 2, {0, 100}},
               {-5, 77, 1, {77}}};
  for (const auto& c : cases) {
    auto filter = std::make_unique<Filterlongfir_ID>();
    filter->chanel = 1;
    filter->filtertype = -6;
    filter->blen = filter->bRlen = 1;
    filter->b[0] = filter->bR[0] = c.from;
    MORVAX_FilterlongfirReset_API(filter.get());
    MORVAX_FilterlongfirCalcu_APItime(filter.get());
    EXPECT_EQ(filter->cmemcall, 0) << "only the length is noted";
    MORVAX_FilterlongfirCalcu_APItime(filter.get());
    EXPECT_EQ(filter->cmemcall, 1);
    filter->b[0] = filter->bR[0] = c.to;
    const std::vector<short> input(c.frames, 1);
    std::vector<short> output(2 * c.frames);
    for (int block = 0; block < 2; ++block) {
      MORVAX_FilterlongfirRun_API(filter.get(), input.data(), c.frames, output.data());
      for (int i = 0; i < c.frames; ++i)
        EXPECT_TRUE(output[2 * i] == output[2 * i + 1] &&
                    output[2 * i] == (block == 0 ? c.output[i] : static_cast<short>(c.to)))
            << i << ' ' << output[2 * i];
    }
  }
}

/* Fields, FIFOs, saved spectra and fade state after a row of FFT set-ups. */
TEST(LongFilter, FftSetUpAgrees) {
  Random random(43);
  auto filter = std::make_unique<Filterlongfir_ID>(),
       expected = std::make_unique<Filterlongfir_ID>();
  random.signal(filter->mBufin.membuf, 105600);
  random.signal(filter->mBufout.membuf, 105600);
  filter->membufrear = -12345;
  for (int trial = 0; trial < 60; ++trial) {
    filter->chanel = random.in(1, 2);
    filter->filtertype = random.in(-7, 2);
    const int taps = random.one_of({1, 2, 3, 1024, 1025, 8192, 500, 500, 500});
    filter->blen = random.one_in(2) ? taps : random.in(1, taps);
    filter->bRlen = random.one_in(2) ? taps : random.in(1, taps);
    filter->mBufin.front = random.in(0, 105599);
    filter->mBufout.rear = random.in(0, 105599);
    filter->mBufin.id = filter->mBufout.id = 5;
    for (int call = 0; call < 2; ++call) {
      random.taps(filter->b, 8192);
      random.taps(filter->bR, 8192);
      filter->cmemcall = 0;
      std::memcpy(expected.get(), filter.get(), sizeof *filter);
      MORVAX_FilterlongfirCalcu_API_forFFT(filter.get());
      ref::set_up_fft(expected.get());
      ASSERT_EQ(std::memcmp(filter.get(), expected.get(), sizeof *filter), 0)
          << "type " << filter->filtertype << " chanel " << filter->chanel << " blen "
          << filter->blen << " bRlen " << filter->bRlen;
    }
    if (random.one_in(10)) MORVAX_FilterlongfirReset_API(filter.get());
  }
}

}  // namespace
