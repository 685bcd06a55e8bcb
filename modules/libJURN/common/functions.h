/* Small inline routines that all filters share. */
#ifndef JURN_FUNCTIONS_H
#define JURN_FUNCTIONS_H

#include <assert.h>

/* Whatever the optimisation level, so that small arrays live in registers: JURN_UNROLL unrolls the
 * loop that follows, JURN_INLINED behind its parameters puts a lambda's body in place. Builds with
 * sanitizers define JURN_PLAIN_CALLS, for checked code in many places takes minutes to compile. */
#if defined(__GNUC__) && !defined(JURN_PLAIN_CALLS)
#define JURN_UNROLL _Pragma("GCC unroll 16")
#define JURN_INLINED __attribute__((always_inline))
#else
#define JURN_UNROLL
#define JURN_INLINED
#endif

/* A limit that the caller keeps: checked in debug builds, where the message names the limit, and
 * nowhere else. */
#ifdef NDEBUG
#define JURN_LIMIT(condition, message) ((void)sizeof((condition) ? 1 : 0))
#else
#define JURN_LIMIT(condition, message) assert((condition) && message)
#endif

/* A condition that hardly ever holds. */
#if defined(__GNUC__)
#define JURN_UNLIKELY(condition) __builtin_expect(condition, 0)
#else
#define JURN_UNLIKELY(condition) (condition)
#endif

/**
 * Converts a filter's float result to an int16 sample.
 *
 * 32767 at or above 32767.0, -32768 below -32768.0, otherwise x truncated toward zero; there is no
 * rounding to nearest. NaN gives 0 (silence), on every platform.
 *
 * @param x any float, on the int16 scale
 * @return the sample
 *
 * Real-time safe.
 */
static inline short stoshort(float x) {
  if (x >= 32767.0f) return 32767;
  if (x >= -32768.0f) return (short)x;
  return x < -32768.0f ? -32768 : 0; /* only a NaN fails all three comparisons */
}

#endif
