/* Which clone of a kernel this CPU runs.
 *
 * The hot kernels are compiled once per instruction set from one body (for_each_clone.h). All
 * clones give the same bits; only their speed differs. JURN_ONE_CLONE leaves those of AVX2 and
 * AVX-512 out, for a small library. JURN_PLAIN_VECTORS builds the one clone that compilers without
 * vector extensions get. */
#ifndef JURN_CLONES_H
#define JURN_CLONES_H

#if (defined(__x86_64__) || defined(__i386__)) && defined(__GNUC__) && \
    !defined(JURN_PLAIN_VECTORS) && !defined(JURN_ONE_CLONE)
#define JURN_X86_CLONES 1
#else
#define JURN_X86_CLONES 0
#endif

enum JURN_Clone {
  JURN_CLONE_BASELINE = 0,
  JURN_CLONE_AVX2 = 1,
  JURN_CLONE_AVX512 = 2,
  JURN_CLONE_FASTEST = 3 /* of the hook below alone: each kernel's own */
};

/* Kinds of kernels for the choice between AVX2 and AVX-512. The time of the AVX-512 clone, in parts
 * of the AVX2 clone's, by the group "clones" of the benchmarks on AMD CPUs:
 *
 *                         512-bit units (family 26)           halves (family 25)
 *   FIR, float            0.57 to 0.79                        1.08 to 1.12
 *   FIR, double           0.57 to 0.67                        1.03 to 1.06
 *   cascade of sections   1.02 to 1.04, from 6 sections 1.0   1.03 to 1.06
 *   transforms            0.70 to 0.96 from 256 on            below 1 from 8192 on
 *   sums of spectra       0.61 to 0.97                        below 1
 *
 * Everything else runs on the widest clone, as do all kernels of CPUs that nobody has measured. */
enum JURN_Kernel { JURN_KERNEL_OTHER, JURN_KERNEL_FIR, JURN_KERNEL_CASCADE };

/** The widest clone that the CPU and the operating system support. The compiler's run-time fills
 * the feature words when the program loads, so a question costs a load and a test. */
static inline enum JURN_Clone JURN_best_clone(void) {
#if JURN_X86_CLONES
  if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq") &&
      __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512bw"))
    return JURN_CLONE_AVX512;
  if (__builtin_cpu_supports("avx2")) return JURN_CLONE_AVX2;
#endif
  return JURN_CLONE_BASELINE;
}

/** Whether a CPU with AVX-512 computes 512 bits in two halves: AMD's of family 25. Compilers too
 * old to know that family say no. */
static inline int JURN_halves_512(void) {
#if JURN_X86_CLONES && !defined(__apple_build_version__) && \
    ((defined(__clang__) && __clang_major__ >= 13) || (!defined(__clang__) && __GNUC__ >= 11))
  return __builtin_cpu_is("amdfam19h") != 0;
#else
  return 0;
#endif
}

static inline enum JURN_Clone JURN_fastest_clone(enum JURN_Kernel kernel) {
  const enum JURN_Clone best = JURN_best_clone();
  if (best != JURN_CLONE_AVX512) return best;
  if (kernel == JURN_KERNEL_CASCADE) return JURN_CLONE_AVX2;
  if (kernel == JURN_KERNEL_FIR && JURN_halves_512()) return JURN_CLONE_AVX2;
  return best;
}

#ifdef JURN_CLONE_HOOK
/* Tests and benchmarks build the library with this hook to run every clone on one machine; it is
 * the one mutable global, and no release of the library has it. */
extern "C" enum JURN_Clone JURN_clone_hook;
static inline enum JURN_Clone JURN_clone(enum JURN_Kernel kernel) {
  return JURN_clone_hook == JURN_CLONE_FASTEST ? JURN_fastest_clone(kernel) : JURN_clone_hook;
}
#else
static inline enum JURN_Clone JURN_clone(enum JURN_Kernel kernel) {
  return JURN_fastest_clone(kernel);
}
#endif

/* A call to a function of the chosen clone, as an expression:
 *   return JURN_CALL_CLONE(sum(input, count));
 *   return JURN_CALL_CLONE_OF(JURN_KERNEL_FIR, fir(output, x, count, taps, tap_count)); */
#if JURN_X86_CLONES
#define JURN_CALL_CLONE_OF(kernel, call)                        \
  (JURN_clone(kernel) == JURN_CLONE_AVX512 ? clone_avx512::call \
   : JURN_clone(kernel) == JURN_CLONE_AVX2 ? clone_avx2::call   \
                                           : clone_baseline::call)
#else
#define JURN_CALL_CLONE_OF(kernel, call) clone_baseline::call
#endif
#define JURN_CALL_CLONE(call) JURN_CALL_CLONE_OF(JURN_KERNEL_OTHER, call)

#endif
