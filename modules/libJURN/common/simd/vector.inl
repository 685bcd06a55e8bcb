/* The vector types of one clone, JURN_VECTOR_BYTES wide, over the compilers' vector extensions;
 * other compilers get the same operations on a plain array. Included by for_each_clone.h inside
 * each clone's namespace, hence without an include guard. Operators work lane by lane with scalar
 * rounding, comparisons give lanes of 0 or -1. */

#if defined(__GNUC__) && !defined(JURN_PLAIN_VECTORS)

#ifdef JURN_PLAIN_CALLS
#define JURN_INLINE static inline
#else
#define JURN_INLINE static inline __attribute__((always_inline))
#endif
#define JURN_NOINLINE static __attribute__((noinline))

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

/** The larger and the smaller, lane by lane, and b where a is a NaN. GCC needs to be told. */
template <class V>
JURN_INLINE V larger(V a, V b) {
  return a > b ? a : b;
}
template <class V>
JURN_INLINE V smaller(V a, V b) {
  return a < b ? a : b;
}
#if JURN_X86_CLONES
JURN_INLINE Vec<float, 4> larger(Vec<float, 4> a, Vec<float, 4> b) {
  return __builtin_ia32_maxps(a, b);
}
JURN_INLINE Vec<float, 4> smaller(Vec<float, 4> a, Vec<float, 4> b) {
  return __builtin_ia32_minps(a, b);
}
#if JURN_VECTOR_BYTES >= 32
JURN_INLINE Vec<float, 8> larger(Vec<float, 8> a, Vec<float, 8> b) {
  return __builtin_ia32_maxps256(a, b);
}
JURN_INLINE Vec<float, 8> smaller(Vec<float, 8> a, Vec<float, 8> b) {
  return __builtin_ia32_minps256(a, b);
}
#endif
#endif

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

/** Keeps a loaded vector in its register; GCC would load it anew for each use. */
#if JURN_X86_CLONES && JURN_VECTOR_BYTES == 64
#define JURN_LOADED_ONCE(v) __asm__("" : "+v"(v))
#elif JURN_X86_CLONES
#define JURN_LOADED_ONCE(v) __asm__("" : "+x"(v))
#else
#define JURN_LOADED_ONCE(v) ((void)(v))
#endif

#if defined(__clang__) || __GNUC__ >= 12
#define JURN_SHUFFLE(a, b, ...) __builtin_shufflevector(a, b, __VA_ARGS__)
#else
template <class V>
using LaneOf = decltype(V{}[0] + V{}[0]);  // no vector of short is shuffled
template <int... index, class V>
JURN_INLINE Vec<LaneOf<V>, sizeof...(index)> shuffle(V a, V b) {
  // cppcheck-suppress sizeofwithnumericparameter ; LaneOf is a type
  constexpr int lanes = sizeof(V) / sizeof(LaneOf<V>);
  return Vec<LaneOf<V>, sizeof...(index)>{(index < lanes ? a[index % lanes] : b[index % lanes])...};
}
#define JURN_SHUFFLE(a, b, ...) shuffle<__VA_ARGS__>(a, b)
#endif

#else  // plain arrays

#define JURN_INLINE static inline
#define JURN_NOINLINE static

template <class T, int lanes>
struct Vec {
  T lane[lanes];
  T& operator[](int k) { return lane[k]; }
  T operator[](int k) const { return lane[k]; }
};

template <class V>
struct LanesOf;
template <class T, int lanes>
struct LanesOf<Vec<T, lanes>> {
  using type = T;
  static constexpr int count = lanes;
};

#define JURN_LANE_WISE(op)                                                       \
  template <class T, int lanes>                                                  \
  JURN_INLINE Vec<T, lanes> operator op(Vec<T, lanes> a, Vec<T, lanes> b) {      \
    for (int k = 0; k < lanes; ++k) a[k] = static_cast<T>(a[k] op b[k]);         \
    return a;                                                                    \
  }                                                                              \
  template <class T, int lanes>                                                  \
  JURN_INLINE Vec<T, lanes>& operator op##=(Vec<T, lanes>& a, Vec<T, lanes> b) { \
    return a = a op b;                                                           \
  }
JURN_LANE_WISE(+)
JURN_LANE_WISE(-)
JURN_LANE_WISE(*)
JURN_LANE_WISE(&)
JURN_LANE_WISE(|)
#undef JURN_LANE_WISE

#define JURN_LANE_WISE(op)                                                    \
  template <class T, int lanes>                                               \
  JURN_INLINE Vec<int, lanes> operator op(Vec<T, lanes> a, Vec<T, lanes> b) { \
    Vec<int, lanes> mask;                                                     \
    for (int k = 0; k < lanes; ++k) mask[k] = a[k] op b[k] ? -1 : 0;          \
    return mask;                                                              \
  }
JURN_LANE_WISE(<)
JURN_LANE_WISE(>)
JURN_LANE_WISE(<=)
JURN_LANE_WISE(>=)
JURN_LANE_WISE(==)
#undef JURN_LANE_WISE

template <class T, int lanes>
JURN_INLINE Vec<T, lanes> operator-(Vec<T, lanes> a) {
  for (int k = 0; k < lanes; ++k) a[k] = -a[k];
  return a;
}
template <int lanes>
JURN_INLINE Vec<int, lanes> operator<<(Vec<int, lanes> a, int by) {
  for (int k = 0; k < lanes; ++k) a[k] = static_cast<int>(static_cast<unsigned>(a[k]) << by);
  return a;
}
template <int lanes>
JURN_INLINE Vec<int, lanes> operator>>(Vec<int, lanes> a, int by) {
  for (int k = 0; k < lanes; ++k) a[k] >>= by;
  return a;
}

template <class V, class T>
JURN_INLINE V broadcast(T x) {
  V v;
  for (int k = 0; k < LanesOf<V>::count; ++k) v[k] = x;
  return v;
}

template <class To, class From>
JURN_INLINE To convert(From a) {
  To v;
  for (int k = 0; k < LanesOf<To>::count; ++k) v[k] = static_cast<typename LanesOf<To>::type>(a[k]);
  return v;
}

template <class M, class V>
JURN_INLINE V select(M mask, V yes, V no) {
  for (int k = 0; k < LanesOf<V>::count; ++k) yes[k] = mask[k] ? yes[k] : no[k];
  return yes;
}

template <class V>
JURN_INLINE V larger(V a, V b) {
  return select(a > b, a, b);
}
template <class V>
JURN_INLINE V smaller(V a, V b) {
  return select(a < b, a, b);
}

template <class M>
JURN_INLINE bool any(M mask) {
  int sum = 0;
  for (int k = 0; k < LanesOf<M>::count; ++k) sum |= mask[k];
  return sum != 0;
}

template <int... index, class T, int lanes>
JURN_INLINE Vec<T, sizeof...(index)> shuffle(Vec<T, lanes> a, Vec<T, lanes> b) {
  return {{(index < lanes ? a[index] : b[index - lanes])...}};
}
#define JURN_LOADED_ONCE(v) ((void)(v))
#define JURN_SHUFFLE(a, b, ...) shuffle<__VA_ARGS__>(a, b)

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

/** Writes the lanes of a and then those of b to p as short, which all of them fit. */
template <class Int>
JURN_INLINE void store_short(short* p, Int a, Int b) {
#if JURN_X86_CLONES && JURN_VECTOR_BYTES == 16
  store(p, __builtin_ia32_packssdw128(a, b));
#elif JURN_X86_CLONES && JURN_VECTOR_BYTES == 32
  const auto mixed = (Vec<long long, 4>)__builtin_ia32_packssdw256(a, b);
  store(p, JURN_SHUFFLE(mixed, mixed, 0, 2, 1, 3));
#else
  constexpr int lanes = JURN_VECTOR_BYTES / sizeof(int);
  store(p, convert<Vec<short, lanes>>(a));
  store(p + lanes, convert<Vec<short, lanes>>(b));
#endif
}

/** As short, which all lanes fit: those of a group of four of a, then of b's, group by group; four
 * of them are one lane of the result. */
JURN_INLINE Vec<long long, 2> pack_groups(Vec<int, 4> a, Vec<int, 4> b) {
#if JURN_X86_CLONES
  return (Vec<long long, 2>)__builtin_ia32_packssdw128(a, b);
#else
  const Vec<short, 4> fours[2] = {convert<Vec<short, 4>>(a), convert<Vec<short, 4>>(b)};
  return load<Vec<long long, 2>>(fours);
#endif
}
#if JURN_X86_CLONES && JURN_VECTOR_BYTES >= 32
JURN_INLINE Vec<long long, 4> pack_groups(Vec<int, 8> a, Vec<int, 8> b) {
  return (Vec<long long, 4>)__builtin_ia32_packssdw256(a, b);
}
#endif

/** Samples as int. GCC takes four of them apart unless it is told how. */
template <class Int>
JURN_INLINE Int widen_samples(const short* p) {
#if JURN_NEON
  if constexpr (sizeof(Int) == 16) return (Int)vmovl_s16(vld1_s16(p));
#elif JURN_X86_CLONES && !defined(__clang__)
  if constexpr (sizeof(Int) == 16) {
    // Each in both halves of an int, then down with its sign.
    const Vec<long long, 2> four = {load<long long>(p)};
    const auto samples = (Vec<short, 8>)four;
    return (Int)__builtin_ia32_punpcklwd128(samples, samples) >> 16;
  }
#endif
  return convert<Int>(load<Vec<short, sizeof(Int) / sizeof(int)>>(p));
}
