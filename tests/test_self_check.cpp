/* MORVAX_SelfCheck_API on the modes that a thread may be in. What it finds in builds with other
 * options, scripts/checksums shows. */
#include "JURN_self_check.h"

#include <gtest/gtest.h>

#include <cfenv>
#include <initializer_list>

#if defined(__SSE2__)
#include <pmmintrin.h>
#endif

namespace {

TEST(SelfCheck, NamesTheModeOfTheThread) {
  EXPECT_EQ(MORVAX_SelfCheck_API(), 0);
  for (int mode : {FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO}) {
    std::fesetround(mode);
    const int broken = MORVAX_SelfCheck_API();
    std::fesetround(FE_TONEAREST);
    EXPECT_EQ(broken, JURN_BROKEN_ROUNDING) << mode;
  }
#if defined(__SSE2__)
  _MM_SET_FLUSH_ZERO_MODE(_MM_FLUSH_ZERO_ON);
  const int flushing = MORVAX_SelfCheck_API();
  _MM_SET_FLUSH_ZERO_MODE(_MM_FLUSH_ZERO_OFF);
  EXPECT_EQ(flushing, JURN_BROKEN_RESULTS);
  _MM_SET_DENORMALS_ZERO_MODE(_MM_DENORMALS_ZERO_ON);
  const int ignoring = MORVAX_SelfCheck_API();
  _MM_SET_DENORMALS_ZERO_MODE(_MM_DENORMALS_ZERO_OFF);
  EXPECT_EQ(ignoring, JURN_BROKEN_OPERANDS);
#endif
}

}  // namespace
