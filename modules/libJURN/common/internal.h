/* The macros of the library's own sources: limits, and hints to the compiler. Not installed. */
#ifndef JURN_INTERNAL_H
#define JURN_INTERNAL_H

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

#endif
