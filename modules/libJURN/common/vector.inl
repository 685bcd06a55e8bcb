/* The vector types of one clone, JURN_VECTOR_BYTES wide, over the compilers' vector extensions;
 * other compilers get the same operations on a plain array. Included by for_each_clone.h inside
 * each clone's namespace, hence without an include guard. Operators work lane by lane with scalar
 * rounding, comparisons give lanes of 0 or -1. */

#if defined(__GNUC__) && !defined(JURN_PLAIN_VECTORS)

#define JURN_INLINE static inline __attribute__((always_inline))

template <class T, int lanes>
struct VectorOf {
  typedef T type __attribute__((vector_size(lanes * sizeof(T))));
};
template <class T, int lanes>
using Vec = typename VectorOf<T, lanes>::type;

/** A vector with x in every lane. */
template <class V, class T>
JURN_INLINE V broadcast(T x) {
  return x - V{};
}

/** Lane-wise conversion between integer and floating types; floats are truncated toward zero. */
template <class To, class From>
JURN_INLINE To convert(From v) {
  return __builtin_convertvector(v, To);
}

/** Lane-wise choice by a comparison's result. */
template <class M, class V>
JURN_INLINE V select(M mask, V yes, V no) {
  return mask ? yes : no;
}

/** The same bits as another type. */
template <class To, class From>
JURN_INLINE To bits(From v) {
  return (To)v;
}

/** Whether any lane of a comparison's result is set. */
#if JURN_X86_CLONES
JURN_INLINE bool any(Vec<int, 4> mask) {
  return __builtin_ia32_movmskps((Vec<float, 4>)mask) != 0;
}
#if JURN_VECTOR_BYTES >= 32
JURN_INLINE bool any(Vec<int, 8> mask) {
  return __builtin_ia32_movmskps256((Vec<float, 8>)mask) != 0;
}
#endif
#else
JURN_INLINE bool any(Vec<int, 4> mask) {
  const auto halves = (Vec<long long, 2>)mask;
  return (halves[0] | halves[1]) != 0;
}
#endif

#define JURN_SHUFFLE(a, b, ...) __builtin_shufflevector(a, b, __VA_ARGS__)

#endif

/** The vector at p, which may have any alignment. */
template <class V, class T>
JURN_INLINE V load(const T* p) {
  V v;
  memcpy(&v, p, sizeof v);
  return v;
}

/** Writes v to p, which may have any alignment. */
template <class V, class T>
JURN_INLINE void store(T* p, V v) {
  memcpy(p, &v, sizeof v);
}
