/* One clone: the body with the vector types of its width, in the namespace JURN_CLONE_NAMESPACE.
 * The pragmas give its functions their instruction set, so headers with functions are included
 * before, never in a body. FMA is never asked for: no clone could keep the bits of the others with
 * it. */
#if JURN_VECTOR_BYTES == 32
#if defined(__clang__)
#pragma clang attribute push(__attribute__((target("avx2"))), apply_to = function)
#else
#pragma GCC push_options
#pragma GCC target("avx2")
#endif
#elif JURN_VECTOR_BYTES == 64
#if defined(__clang__)
#pragma clang attribute push(__attribute__((target("avx2,avx512f,avx512dq,avx512vl,avx512bw"))), \
                             apply_to = function)
#else
#pragma GCC push_options
#pragma GCC target("avx2,avx512f,avx512dq,avx512vl,avx512bw,prefer-vector-width=512")
#endif
#endif

namespace JURN_CLONE_NAMESPACE {
#include "vector.inl"
#include JURN_CLONE_BODY
}  // namespace JURN_CLONE_NAMESPACE

#if JURN_VECTOR_BYTES > 16
#if defined(__clang__)
#pragma clang attribute pop
#else
#pragma GCC pop_options
#endif
#endif

#undef JURN_CLONE_NAMESPACE
#undef JURN_INLINE
#undef JURN_LOADED_ONCE
#undef JURN_NOINLINE
#undef JURN_SHUFFLE
#undef JURN_VECTOR_BYTES
