/* Compiles the file that JURN_CLONE_BODY names once per instruction set, each time in a namespace
 * of its own and with the vector type of its width (vector.inl). The pragmas give the functions of
 * a body their instruction set; headers with functions are included before, never in a body. FMA is
 * never asked for: no clone could keep the bits of the others with it. */
#include "../functions.h"
#include "clones.h"

#include <string.h>

namespace clone_baseline {
#define JURN_VECTOR_BYTES 16
#include "vector.inl"
#include JURN_CLONE_BODY
#undef JURN_VECTOR_BYTES
#undef JURN_INLINE
#undef JURN_NOINLINE
#undef JURN_SHUFFLE
#undef JURN_LOADED_ONCE
}  // namespace clone_baseline

#if JURN_X86_CLONES

#if defined(__clang__)
#pragma clang attribute push(__attribute__((target("avx2"))), apply_to = function)
#else
#pragma GCC push_options
#pragma GCC target("avx2")
#endif
namespace clone_avx2 {
#define JURN_VECTOR_BYTES 32
#include "vector.inl"
#include JURN_CLONE_BODY
#undef JURN_VECTOR_BYTES
#undef JURN_INLINE
#undef JURN_NOINLINE
#undef JURN_SHUFFLE
#undef JURN_LOADED_ONCE
}  // namespace clone_avx2
#if defined(__clang__)
#pragma clang attribute pop
#else
#pragma GCC pop_options
#endif

#if defined(__clang__)
#pragma clang attribute push(__attribute__((target("avx2,avx512f,avx512dq,avx512vl,avx512bw"))), \
                             apply_to = function)
#else
#pragma GCC push_options
#pragma GCC target("avx2,avx512f,avx512dq,avx512vl,avx512bw,prefer-vector-width=512")
#endif
namespace clone_avx512 {
#define JURN_VECTOR_BYTES 64
#include "vector.inl"
#include JURN_CLONE_BODY
#undef JURN_VECTOR_BYTES
#undef JURN_INLINE
#undef JURN_NOINLINE
#undef JURN_SHUFFLE
#undef JURN_LOADED_ONCE
}  // namespace clone_avx512
#if defined(__clang__)
#pragma clang attribute pop
#else
#pragma GCC pop_options
#endif

#endif
