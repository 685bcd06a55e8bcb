/* Runs all tests on one clone of the kernels: jurn_tests [baseline | avx2 | avx512] [gtest flags].
 * Without a name each kernel has its fastest one; a clone that the CPU lacks is skipped (exit code
 * 77). */
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>

#include "simd/clones.h"

#if JURN_X86_CLONES
#include <cpuid.h>
#endif

namespace {

/* By the CPU's own words, so that a broken choice of the clone fails and is not skipped as a CPU
 * without the instructions. */
JURN_Clone best_clone_of_cpu() {
#if JURN_X86_CLONES
  unsigned a, b = 0, c = 0, d, enabled = 0;
  if (__get_cpuid(1, &a, &b, &c, &d) && (c & bit_OSXSAVE))
    __asm__("xgetbv" : "=a"(enabled), "=d"(d) : "c"(0));
  if (!__get_cpuid_count(7, 0, &a, &b, &c, &d)) return JURN_CLONE_BASELINE;
  constexpr unsigned ymm = 0x06, zmm = 0xe6;  // what the operating system saves of a thread
  constexpr unsigned avx512 = bit_AVX512F | bit_AVX512DQ | bit_AVX512BW | bit_AVX512VL;
  if ((enabled & zmm) == zmm && (b & avx512) == avx512) return JURN_CLONE_AVX512;
  if ((enabled & ymm) == ymm && (b & bit_AVX2)) return JURN_CLONE_AVX2;
#endif
  return JURN_CLONE_BASELINE;
}

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  const char* const names[] = {"baseline", "avx2", "avx512"};
  const JURN_Clone best = best_clone_of_cpu();
  if (JURN_best_clone() != best) {
    std::fprintf(stderr, "the library takes its %s clone, this CPU's best is %s\n",
                 names[JURN_best_clone()], names[best]);
    return 1;
  }
  for (int clone = JURN_CLONE_BASELINE; clone <= JURN_CLONE_AVX512; ++clone) {
    if (argc < 2 || std::strcmp(argv[1], names[clone]) != 0) continue;
    if (clone > best) return 77;
    JURN_clone_hook = static_cast<JURN_Clone>(clone);
    for (JURN_Kernel kernel : {JURN_KERNEL_OTHER, JURN_KERNEL_FIR, JURN_KERNEL_CASCADE})
      if (JURN_clone(kernel) != clone) return 1;
  }
  return RUN_ALL_TESTS();
}
