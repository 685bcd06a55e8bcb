/* Asks the compiler for exact IEEE arithmetic: every product is rounded before it is added. Each
 * source of the library includes this file first. The build also passes -ffp-contract=off; the
 * pragmas keep an embedder's own build, which may not, on the same bits. What a compiler hides from
 * a header, as clang does with -ffp-contract=fast, MORVAX_SelfCheck_API finds. */
#ifndef JURN_EXACT_ARITHMETIC_H
#define JURN_EXACT_ARITHMETIC_H

/* For the tests of that function alone. */
#ifndef JURN_ACCEPT_INEXACT

#if defined(__FAST_MATH__) || defined(_M_FP_FAST) || \
    (defined(__FINITE_MATH_ONLY__) && __FINITE_MATH_ONLY__ > 0)
#error "JURN: fast-math changes the results; build this library without it."
#endif

#if defined(__ASSOCIATIVE_MATH__) || defined(__NO_SIGNED_ZEROS__)
#error \
    "JURN: -funsafe-math-optimizations, -fassociative-math and -fno-signed-zeros change the results; build this library without them."
#endif

static_assert(sizeof(0.1) == sizeof(double),
              "JURN: constants must keep double precision; build this library without "
              "-fsingle-precision-constant.");

/* x87 code keeps intermediate results at 80 bits; 16 only widens half floats, which are not used.
 */
#if defined(__FLT_EVAL_METHOD__) && __FLT_EVAL_METHOD__ != 0 && __FLT_EVAL_METHOD__ != 16
#error "JURN: float expressions must be evaluated as float; on 32-bit x86 use -msse2 -mfpmath=sse."
#endif

/* The NEON unit of 32-bit ARM flushes denormals to zero. GCC keeps float arithmetic out of it. */
#if defined(__clang__) && defined(__arm__) && defined(__ARM_NEON)
#error "JURN: NEON of 32-bit ARM flushes denormals; with clang use -mfpu=vfpv3-d16."
#endif

#endif

#if defined(__clang__)
#if defined(__x86_64__) || defined(__i386__) /* undoes -funsafe-math-optimizations, here alone */
#pragma float_control(precise, on)
#endif
#pragma clang fp contract(off)
#elif defined(__GNUC__)
#pragma GCC optimize("fp-contract=off")
/* At -O2, GCC 12 leaves the set-up of short calls in scalars. For PowerPC it does not inline
 * lambdas into functions that have options of their own. */
#if defined(__OPTIMIZE__) && !defined(__OPTIMIZE_SIZE__) && !defined(__powerpc__)
#pragma GCC optimize("O3")
#endif
#elif defined(_MSC_VER)
#pragma fp_contract(off)
#endif

#endif
