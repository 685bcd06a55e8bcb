/* Fades of the time-domain kinds of Filterlongfir_ID. */
#include <gtest/gtest.h>

#include <memory>

#include "support.h"

namespace {

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

}  // namespace
