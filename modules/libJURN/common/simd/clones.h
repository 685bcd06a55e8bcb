/* Which clone of a kernel this CPU runs.
 *
 * The hot kernels are compiled once per instruction set from one body (for_each_clone.h). All
 * clones give the same bits; only their speed differs. JURN_PLAIN_VECTORS builds the one clone that
 * compilers without vector extensions get. */
#ifndef JURN_CLONES_H
#define JURN_CLONES_H

#if (defined(__x86_64__) || defined(__i386__)) && defined(__GNUC__) && !defined(JURN_PLAIN_VECTORS)
#define JURN_X86_CLONES 1
#else
#define JURN_X86_CLONES 0
#endif

enum JURN_Clone { JURN_CLONE_BASELINE = 0, JURN_CLONE_AVX2 = 1, JURN_CLONE_AVX512 = 2 };

/** The best clone that the CPU and the operating system support. The compiler's run-time fills the
 * feature words when the program loads, so a question costs a load and a test. */
static inline enum JURN_Clone JURN_best_clone(void) {
#if JURN_X86_CLONES
  if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq") &&
      __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512bw"))
    return JURN_CLONE_AVX512;
  if (__builtin_cpu_supports("avx2")) return JURN_CLONE_AVX2;
#endif
  return JURN_CLONE_BASELINE;
}

#ifdef JURN_CLONE_HOOK
/* Tests and benchmarks build the library with this hook to run every clone on one machine; it is
 * the one mutable global, and no release of the library has it. */
extern "C" enum JURN_Clone JURN_clone_hook;
static inline enum JURN_Clone JURN_clone(void) {
  return JURN_clone_hook;
}
#else
static inline enum JURN_Clone JURN_clone(void) {
  return JURN_best_clone();
}
#endif

/* A call to a function of the chosen clone, as an expression:
 *   return JURN_CALL_CLONE(sum(input, count)); */
#if JURN_X86_CLONES
#define JURN_CALL_CLONE(call)                             \
  (JURN_clone() == JURN_CLONE_AVX512 ? clone_avx512::call \
   : JURN_clone() == JURN_CLONE_AVX2 ? clone_avx2::call   \
                                     : clone_baseline::call)
#else
#define JURN_CALL_CLONE(call) clone_baseline::call
#endif

#endif
