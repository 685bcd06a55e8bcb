/* shuzhiFilter_ID. */
#include <gtest/gtest.h>

#include "support.h"

namespace {

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
