/* shuzhiFilter_ID. */
#include "reference.h"
#include "support.h"

namespace {

/* A record with rubbish in it from set-up and reset through blocks and single samples; some change
 * their length without a reset, which leaves the slot behind a ring that got shorter. */
TEST(MovingSum, WholeRecordAgrees) {
  Random random(11);
  for (int trial = 0; trial < 600; ++trial) {
    shuzhiFilter_ID filter;
    random.signal(filter.meminput, 256);
    filter.memi = filter.memsumin = 99;
    filter.N_1 = kNaN;
    filter.blen = random.count(1, 256);
    shuzhiFilter_ID expected = filter;
    const bool set_up_first = random.one_in(2);
    if (set_up_first) MORVAX_shuzhiFilterCalcu_API(&filter);
    MORVAX_shuzhiFilterReset_API(&filter);
    ref::reset(&expected);
    if (!set_up_first) {
      ASSERT_EQ(std::memcmp(&filter, &expected, sizeof filter), 0);
      MORVAX_shuzhiFilterCalcu_API(&filter);
    }
    ref::set_up(&expected);
    for (int call = 0; call < 6; ++call) {
      if (random.one_in(10)) {
        filter.blen = expected.blen = random.count(1, 256);
        MORVAX_shuzhiFilterCalcu_API(&filter);
        ref::set_up(&expected);
      }
      if (random.one_in(3)) {
        const short x = random.sample();
        ASSERT_EQ(MORVAX_shuzhiFilterRun_API_inonesampleoutsum(&filter, x),
                  ref::push(&expected, x));
      }
      const int len = random.one_in(200) ? 40000 : random.count(0, 700);
      const auto run = [&](bool library, const short* in, short* out) {
        library ? MORVAX_shuzhiFilterRun_API(&filter, in, len, out)
                : ref::run(&expected, in, len, out);
      };
      ASSERT_TRUE(runs_alike(random, len, len, run)) << "blen " << filter.blen << " len " << len;
      MORVAX_shuzhiFilterRun_API(&filter, nullptr, -random.in(0, 5), nullptr);
      ASSERT_EQ(std::memcmp(&filter, &expected, sizeof filter), 0) << filter.blen;
    }
  }
}

/* The rounded scale decides whether a whole mean survives the truncation. */
TEST(MovingSum, WorkedMeans) {
  const struct {
    int blen;
    short steady, mean;
  } cases[] = {{41, 1, 0},        {41, 1000, 999},     {41, 100, 100},        {41, -32768, -32767},
               {3, 32767, 32767}, {3, -32768, -32768}, {256, -32768, -32768}, {256, 32767, 32767},
               {1, -7, -7},       {4, 100, 100}};
  for (const auto& c : cases) {
    shuzhiFilter_ID filter;
    filter.blen = c.blen;
    MORVAX_shuzhiFilterCalcu_API(&filter);
    MORVAX_shuzhiFilterReset_API(&filter);
    std::vector<short> block(c.blen, c.steady);
    MORVAX_shuzhiFilterRun_API(&filter, block.data(), c.blen, block.data());
    EXPECT_EQ(block.back(), c.mean) << c.blen << ' ' << c.steady;
    EXPECT_EQ(MORVAX_shuzhiFilterRun_API_inonesampleoutsum(&filter, c.steady), c.steady * c.blen);
  }
}

}  // namespace
