/* Compiles the file that JURN_CLONE_BODY names, by its path from this folder, once per instruction
 * set, each time in a namespace of its own. */
#include "../functions.h"
#include "../internal.h"
#include "clones.h"

#include <string.h>

/* The NEON unit of 64-bit ARM rounds and keeps denormals as the scalar one does. */
#if defined(__aarch64__) && defined(__ARM_NEON) && defined(__GNUC__) && \
    !defined(JURN_PLAIN_VECTORS) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
#include <arm_neon.h>
#define JURN_NEON 1
#else
#define JURN_NEON 0
#endif

#define JURN_CLONE_NAMESPACE clone_baseline
#define JURN_VECTOR_BYTES 16
#include "clone.inl"

#if JURN_X86_CLONES
#define JURN_CLONE_NAMESPACE clone_avx2
#define JURN_VECTOR_BYTES 32
#include "clone.inl"

#define JURN_CLONE_NAMESPACE clone_avx512
#define JURN_VECTOR_BYTES 64
#include "clone.inl"
#endif
