/* Random walks of every record, on the clone that this run is for. */
#include "walks/walk.h"

#include <gtest/gtest.h>

#include "simd/clones.h"

namespace {

struct Kind {
  const char* name;
  void (*walk)(Random&);
  unsigned count;
};

// With sanitizers, which make a walk slow, each clone walks another third of the seeds.
#ifdef JURN_PLAIN_CALLS
constexpr unsigned kSeedStep = 3;
#else
constexpr unsigned kSeedStep = 1;
#endif

class Walk : public testing::TestWithParam<Kind> {};

TEST_P(Walk, AgreesAtEveryStep) {
  for (unsigned seed = JURN_clone_hook % kSeedStep; seed < GetParam().count; seed += kSeedStep) {
    Random random(seed);
    try {
      GetParam().walk(random);
    } catch (const std::exception& error) {
      FAIL() << "seed " << seed << ": not so: " << error.what();
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Records, Walk,
                         testing::Values(Kind{"int16", walk_int16, 300},
                                         Kind{"long_time", walk_long_time, 60},
                                         Kind{"long_fft", walk_long_fft, 100},
                                         Kind{"float", walk_float, 100},
                                         Kind{"moving_sum", walk_moving_sum, 200},
                                         Kind{"convolution", walk_convolution, 100},
                                         Kind{"sections", walk_sections, 300}),
                         [](const auto& kind) { return std::string(kind.param.name); });

}  // namespace
