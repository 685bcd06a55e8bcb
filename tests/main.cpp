/* Runs all tests on one clone of the kernels: jurn_tests [baseline | avx2 | avx512] [gtest flags].
 * Without a name it is the best one; a clone that the CPU lacks is skipped (exit code 77). */
#include <gtest/gtest.h>

#include <cstring>

#include "simd/clones.h"

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  const char* const names[] = {"baseline", "avx2", "avx512"};
  for (int clone = JURN_CLONE_BASELINE; clone <= JURN_CLONE_AVX512; ++clone) {
    if (argc < 2 || std::strcmp(argv[1], names[clone]) != 0) continue;
    if (clone > JURN_best_clone()) return 77;
    JURN_clone_hook = static_cast<JURN_Clone>(clone);
  }
  return RUN_ALL_TESTS();
}
