/* Complex values in vectors, and where an inverse transform takes its spectrum from. */

#include "../simd/groups.inl"
#include "../simd/sample_lanes.inl"

constexpr int lane_count = JURN_VECTOR_BYTES / 4;
using Floats = Vec<float, lane_count>;
using Quad = Vec<float, 4>;

/* Signs for a group of four lanes. */
const float negate_low[4] = {-1, -1, 1, 1};
const float negate_high[4] = {1, 1, -1, -1};
const float negate_third[4] = {1, 1, -1, 1};
const float negate_last[4] = {1, 1, 1, -1};
const float negate_inner[4] = {1, -1, -1, 1};
const float alternate[4] = {1, -1, 1, -1};
constexpr float sqrt_half = 0.70710678118654752440f;

template <class V>
constexpr int lanes_of = int(sizeof(V) / 4);

/* The tables for splitting real sequences and for radix 4. */
JURN_INLINE const float* real_twiddles(const float* w, int length) {
  return w + length;
}
JURN_INLINE const float* complex_twiddles(const float* w, int length) {
  return w + 14 * length;
}

template <class V>
struct Complex {
  V re, im;
};

template <class V>
JURN_INLINE Complex<V> operator+(Complex<V> a, Complex<V> b) {
  return {a.re + b.re, a.im + b.im};
}

template <class V>
JURN_INLINE Complex<V> operator-(Complex<V> a, Complex<V> b) {
  return {a.re - b.re, a.im - b.im};
}

/** a + i b */
template <class V>
JURN_INLINE Complex<V> plus_i(Complex<V> a, Complex<V> b) {
  return {a.re - b.im, a.im + b.re};
}

/** a - i b */
template <class V>
JURN_INLINE Complex<V> minus_i(Complex<V> a, Complex<V> b) {
  return {a.re + b.im, a.im - b.re};
}

template <class V>
JURN_INLINE Complex<V> operator*(Complex<V> a, Complex<V> b) {
  return {a.re * b.re - a.im * b.im, a.re * b.im + a.im * b.re};
}

/** a times the conjugate of w */
template <class V>
JURN_INLINE Complex<V> times_conjugate(Complex<V> a, Complex<V> w) {
  return {a.re * w.re + a.im * w.im, a.im * w.re - a.re * w.im};
}

/** The complex values whose real parts are at p and imaginary parts at p + distance. */
template <class V>
JURN_INLINE Complex<V> load_complex(const float* p, ptrdiff_t distance) {
  return {load<V>(p), load<V>(p + distance)};
}

/** A load whose value is used more than once: loads are what butterflies are short of. */
JURN_INLINE Floats load_once(const float* p) {
  Floats v = load<Floats>(p);
  JURN_LOADED_ONCE(v);
  return v;
}

JURN_INLINE Complex<Floats> load_once(const float* p, ptrdiff_t distance) {
  return {load_once(p), load_once(p + distance)};
}

template <class V>
JURN_INLINE void store_complex(float* p, ptrdiff_t distance, Complex<V> a) {
  store(p, a.re);
  store(p + distance, a.im);
}

/* Vectors made of groups of four lanes, each group from a tile of its own. */

/** The even groups of both vectors in turn, and the odd ones. */
template <class V>
JURN_INLINE V even_groups(V a, V b) {
  if constexpr (sizeof(V) == 32)
    return JURN_SHUFFLE(a, b, 0, 1, 2, 3, 8, 9, 10, 11);
  else
    return JURN_SHUFFLE(a, b, 0, 1, 2, 3, 16, 17, 18, 19, 8, 9, 10, 11, 24, 25, 26, 27);
}

template <class V>
JURN_INLINE V odd_groups(V a, V b) {
  if constexpr (sizeof(V) == 32)
    return JURN_SHUFFLE(a, b, 4, 5, 6, 7, 12, 13, 14, 15);
  else
    return JURN_SHUFFLE(a, b, 4, 5, 6, 7, 20, 21, 22, 23, 12, 13, 14, 15, 28, 29, 30, 31);
}

/** Rows to columns, where an element is a group of lanes of 16. */
template <class V>
JURN_INLINE void transpose_groups(V& a, V& b, V& c, V& d) {
  const V ab01 = JURN_SHUFFLE(a, b, 0, 1, 2, 3, 4, 5, 6, 7, 16, 17, 18, 19, 20, 21, 22, 23);
  const V ab23 = JURN_SHUFFLE(a, b, 8, 9, 10, 11, 12, 13, 14, 15, 24, 25, 26, 27, 28, 29, 30, 31);
  const V cd01 = JURN_SHUFFLE(c, d, 0, 1, 2, 3, 4, 5, 6, 7, 16, 17, 18, 19, 20, 21, 22, 23);
  const V cd23 = JURN_SHUFFLE(c, d, 8, 9, 10, 11, 12, 13, 14, 15, 24, 25, 26, 27, 28, 29, 30, 31);
  a = JURN_SHUFFLE(ab01, cd01, 0, 1, 2, 3, 8, 9, 10, 11, 16, 17, 18, 19, 24, 25, 26, 27);
  b = JURN_SHUFFLE(ab01, cd01, 4, 5, 6, 7, 12, 13, 14, 15, 20, 21, 22, 23, 28, 29, 30, 31);
  c = JURN_SHUFFLE(ab23, cd23, 0, 1, 2, 3, 8, 9, 10, 11, 16, 17, 18, 19, 24, 25, 26, 27);
  d = JURN_SHUFFLE(ab23, cd23, 4, 5, 6, 7, 12, 13, 14, 15, 20, 21, 22, 23, 28, 29, 30, 31);
}

/** Eight floats from p, and for a vector of 16 lanes eight more from p + stride. */
template <class V>
JURN_INLINE V load_eights(const float* p, ptrdiff_t stride) {
  if constexpr (sizeof(V) <= 32) {
    return load<V>(p);
  } else {
    const auto a = load<Vec<float, 8>>(p), b = load<Vec<float, 8>>(p + stride);
    return JURN_SHUFFLE(a, b, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
  }
}

template <class V>
JURN_INLINE void store_eights(float* p, ptrdiff_t stride, V v) {
  if constexpr (sizeof(V) <= 32) {
    store(p, v);
  } else {
    store(p, JURN_SHUFFLE(v, v, 0, 1, 2, 3, 4, 5, 6, 7));
    store(p + stride, JURN_SHUFFLE(v, v, 8, 9, 10, 11, 12, 13, 14, 15));
  }
}

template <class V>
JURN_INLINE Complex<V> load_eights(const float* p, ptrdiff_t distance, ptrdiff_t stride) {
  return {load_eights<V>(p, stride), load_eights<V>(p + distance, stride)};
}

template <class V>
JURN_INLINE void store_eights(float* p, ptrdiff_t distance, ptrdiff_t stride, Complex<V> a) {
  store_eights(p, stride, a.re);
  store_eights(p + distance, stride, a.im);
}

/* Where the first pass of an inverse transform takes its spectrum from: the array that it works in,
 * or the product of two other spectra. */

struct InPlace {
  template <class V>
  JURN_INLINED Complex<V> at(const float* p, ptrdiff_t distance) const {
    return load_complex<V>(p, distance);
  }
  template <class V>
  JURN_INLINED Complex<V> row(const float* p, ptrdiff_t distance, ptrdiff_t stride) const {
    return load_eights<V>(p, distance, stride);
  }
};

struct Product {
  const float* out;
  const float* a;
  const float* b;

  template <class V>
  JURN_INLINED Complex<V> at(const float* p, ptrdiff_t distance) const {
    return load_complex<V>(a + (p - out), distance) * load_complex<V>(b + (p - out), distance);
  }
  template <class V>
  JURN_INLINED Complex<V> row(const float* p, ptrdiff_t distance, ptrdiff_t stride) const {
    return load_eights<V>(a + (p - out), distance, stride) *
           load_eights<V>(b + (p - out), distance, stride);
  }
};
