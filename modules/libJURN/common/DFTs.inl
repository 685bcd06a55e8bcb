/* The real FFT, once per instruction set.
 *
 * What makes it fast:
 * - A real sequence of M is split, eight samples a time, into a real sequence of M/4 and three
 *   complex ones of M/8: three levels in one pass, without a pass that unpacks real bins. The real
 *   quarter is split again, down to 16 samples.
 * - The complex transforms run decimation in frequency, radix 4, the inverse decimation in time;
 *   nothing is ever put in order. The last four levels of 16 values stay in registers, which turn
 *   from rows to columns by a 4 x 4 transposition inside each group of four lanes; wide vectors
 *   take several such tiles side by side.
 * - Real and imaginary parts live in arrays of their own, so every operation fills whole vectors.
 * - Twiddle factors lie in the order in which they are read, and the smaller transforms finish
 *   while they are in the cache.
 *
 * Each value goes through the same operations whatever the vector width, so the clones agree in
 * every bit, and their spectra have one layout. Where M is 128 or more that is
 *
 *   real M/4 | frequencies 2 (mod 4) | 1 (mod 8) | 5 (mod 8)    each M/8 real, M/8 imaginary parts
 *
 * and below
 *
 *   real M/2 | frequencies 1 (mod 4)                            M/4 real, M/4 imaginary parts
 *
 * where the other odd frequencies are conjugates of these. The real part is itself such a spectrum;
 * the last one has the two real bins. */

#include "simd/groups.inl"
#include "simd/sample_lanes.inl"

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
  JURN_INLINED Complex<V> row(const float* p, ptrdiff_t distance, ptrdiff_t stride) const {
    return load_eights<V>(p, distance, stride);
  }
};

struct Product {
  const float* out;
  const float* a;
  const float* b;

  template <class V>
  JURN_INLINED Complex<V> row(const float* p, ptrdiff_t distance, ptrdiff_t stride) const {
    return load_eights<V>(a + (p - out), distance, stride) *
           load_eights<V>(b + (p - out), distance, stride);
  }
};

/* ---- Complex transforms ---- */

template <class V>
JURN_INLINE void butterfly_forward(Complex<V>& a, Complex<V>& b, Complex<V>& c, Complex<V>& d) {
  const Complex<V> ac = a + c, a_c = a - c, bd = b + d, b_d = b - d;
  a = ac + bd;
  b = minus_i(a_c, b_d);
  c = ac - bd;
  d = plus_i(a_c, b_d);
}

template <class V>
JURN_INLINE void butterfly_inverse(Complex<V>& a, Complex<V>& b, Complex<V>& c, Complex<V>& d) {
  const Complex<V> ac = a + c, a_c = a - c, bd = b + d, b_d = b - d;
  a = ac + bd;
  b = plus_i(a_c, b_d);
  c = ac - bd;
  d = minus_i(a_c, b_d);
}

/** The first level of every block of length values; size values in all. */
static void radix4_forward(float* z, int size, int length, const float* twiddles) {
  const ptrdiff_t quarter = length / 4;
  for (float* end = z + size; z < end; z += length) {
    const float* w = twiddles;
    for (ptrdiff_t i = 0; i < quarter; i += 16, w += 96) {
      for (int lane = 0; lane < 16; lane += lane_count) {
        float* p = z + i + lane;
        const float* t = w + lane;
        auto a = load_once(p, size), b = load_once(p + quarter, size);
        auto c = load_once(p + 2 * quarter, size);
        auto d = load_once(p + 3 * quarter, size);
        butterfly_forward(a, b, c, d);
        store_complex(p, size, a);
        store_complex(p + quarter, size, b * load_complex<Floats>(t, 16));
        store_complex(p + 2 * quarter, size, c * load_complex<Floats>(t + 32, 16));
        store_complex(p + 3 * quarter, size, d * load_complex<Floats>(t + 64, 16));
      }
    }
  }
}

/** Undoes radix4_forward, at four times the gain. */
static void radix4_inverse(float* z, int size, int length, const float* twiddles) {
  const ptrdiff_t quarter = length / 4;
  for (float* end = z + size; z < end; z += length) {
    const float* w = twiddles;
    for (ptrdiff_t i = 0; i < quarter; i += 16, w += 96) {
      for (int lane = 0; lane < 16; lane += lane_count) {
        float* p = z + i + lane;
        const float* t = w + lane;
        auto a = load_once(p, size), b = load_once(p + quarter, size);
        auto c = load_once(p + 2 * quarter, size);
        auto d = load_once(p + 3 * quarter, size);
        b = times_conjugate(b, load_complex<Floats>(t, 16));
        c = times_conjugate(c, load_complex<Floats>(t + 32, 16));
        d = times_conjugate(d, load_complex<Floats>(t + 64, 16));
        butterfly_inverse(a, b, c, d);
        store_complex(p, size, a);
        store_complex(p + quarter, size, b);
        store_complex(p + 2 * quarter, size, c);
        store_complex(p + 3 * quarter, size, d);
      }
    }
  }
}

/** Sixteen values in each group of lanes: rows of four. */
template <class V>
struct Tile {
  Complex<V> a, b, c, d;
};

template <class V>
JURN_INLINE void transpose(Tile<V>& x) {
  transpose(x.a.re, x.b.re, x.c.re, x.d.re);
  transpose(x.a.im, x.b.im, x.c.im, x.d.im);
}

/** The transform of 16 values: value 4 j + l is lane l of row j, frequency k + 4 m lane k of row m.
 */
template <class V>
JURN_INLINE void tile_forward(Tile<V>& x, const float* w) {
  butterfly_forward(x.a, x.b, x.c, x.d);
  x.b = x.b * load_complex<V>(w + table16, 16);
  x.c = x.c * load_complex<V>(w + table16 + 32, 16);
  x.d = x.d * load_complex<V>(w + table16 + 64, 16);
  transpose(x);
  butterfly_forward(x.a, x.b, x.c, x.d);
}

template <class V>
JURN_INLINE void tile_inverse(Tile<V>& x, const float* w) {
  butterfly_inverse(x.a, x.b, x.c, x.d);
  transpose(x);
  x.b = times_conjugate(x.b, load_complex<V>(w + table16, 16));
  x.c = times_conjugate(x.c, load_complex<V>(w + table16 + 32, 16));
  x.d = times_conjugate(x.d, load_complex<V>(w + table16 + 64, 16));
  butterfly_inverse(x.a, x.b, x.c, x.d);
}

/** Transforms 16 values. */
static void complex16_forward(float* z, const float* w) {
  Tile<Quad> x = {load_complex<Quad>(z, 16), load_complex<Quad>(z + 4, 16),
                  load_complex<Quad>(z + 8, 16), load_complex<Quad>(z + 12, 16)};
  tile_forward(x, w);
  store_complex(z, 16, x.a);
  store_complex(z + 4, 16, x.b);
  store_complex(z + 8, 16, x.c);
  store_complex(z + 12, 16, x.d);
}

template <class Source>
static void complex16_inverse(float* z, const float* w, Source source) {
  Tile<Quad> x = {source.template row<Quad>(z, 16, 0), source.template row<Quad>(z + 4, 16, 0),
                  source.template row<Quad>(z + 8, 16, 0),
                  source.template row<Quad>(z + 12, 16, 0)};
  tile_inverse(x, w);
  store_complex(z, 16, x.a);
  store_complex(z + 4, 16, x.b);
  store_complex(z + 8, 16, x.c);
  store_complex(z + 12, 16, x.d);
}

/** Two transforms of 16 at once, or with radix2 one of 32: its first level makes two of 16. The 16
 * values at p and those at q are the two halves; the results fill both, four of the first transform
 * and four of the second in turn. Vectors of 16 lanes do the same stride floats farther on. */
template <bool radix2, class V>
JURN_INLINE void pair_forward(float* p, float* q, ptrdiff_t distance, ptrdiff_t stride,
                              const float* w) {
  if constexpr (sizeof(V) == 16) {
    Tile<V> x, y;
    const auto load_row = [=](int i, Complex<V>& a, Complex<V>& b) JURN_INLINED {
      a = load_complex<V>(p + i, distance), b = load_complex<V>(q + i, distance);
      if constexpr (radix2) {
        const auto difference = a - b;
        a = a + b;
        b = difference * load_complex<V>(w + table32 + i % 8 + i / 8 * 16, 32);
      }
    };
    load_row(0, x.a, y.a);
    load_row(4, x.b, y.b);
    load_row(8, x.c, y.c);
    load_row(12, x.d, y.d);
    tile_forward(x, w);
    store_complex(p, distance, x.a);
    store_complex(p + 8, distance, x.b);
    store_complex(q, distance, x.c);
    store_complex(q + 8, distance, x.d);
    tile_forward(y, w);
    store_complex(p + 4, distance, y.a);
    store_complex(p + 12, distance, y.b);
    store_complex(q + 4, distance, y.c);
    store_complex(q + 12, distance, y.d);
  } else {
    Tile<V> x;
    const auto load_rows = [=](int i, Complex<V>& even, Complex<V>& odd) JURN_INLINED {
      auto a = load_eights<V>(p + i, distance, stride);
      auto b = load_eights<V>(q + i, distance, stride);
      if constexpr (radix2) {
        const auto difference = a - b;
        a = a + b;
        b = difference * load_complex<V>(w + table32 + 2 * i, 32);
      }
      even = {even_groups(a.re, b.re), even_groups(a.im, b.im)};
      odd = {odd_groups(a.re, b.re), odd_groups(a.im, b.im)};
    };
    load_rows(0, x.a, x.b);
    load_rows(8, x.c, x.d);
    tile_forward(x, w);
    store_eights(p, distance, stride, x.a);
    store_eights(p + 8, distance, stride, x.b);
    store_eights(q, distance, stride, x.c);
    store_eights(q + 8, distance, stride, x.d);
  }
}

template <bool radix2, class V, class Source>
JURN_INLINE void pair_inverse(float* p, float* q, ptrdiff_t distance, ptrdiff_t stride,
                              const float* w, Source source) {
  const auto row = [=](const float* from)
                       JURN_INLINED { return source.template row<V>(from, distance, stride); };
  if constexpr (sizeof(V) == 16) {
    Tile<V> x = {row(p), row(p + 8), row(q), row(q + 8)};
    Tile<V> y = {row(p + 4), row(p + 12), row(q + 4), row(q + 12)};
    tile_inverse(x, w);
    tile_inverse(y, w);
    const auto store_row = [=](int i, Complex<V> a, Complex<V> b) JURN_INLINED {
      if constexpr (radix2) {
        const auto difference =
            times_conjugate(b, load_complex<V>(w + table32 + i % 8 + i / 8 * 16, 32));
        b = a - difference;
        a = a + difference;
      }
      store_complex(p + i, distance, a);
      store_complex(q + i, distance, b);
    };
    store_row(0, x.a, y.a);
    store_row(4, x.b, y.b);
    store_row(8, x.c, y.c);
    store_row(12, x.d, y.d);
  } else {
    Tile<V> x = {row(p), row(p + 8), row(q), row(q + 8)};
    tile_inverse(x, w);
    const auto store_rows = [=](int i, Complex<V> even, Complex<V> odd) JURN_INLINED {
      Complex<V> a = {even_groups(even.re, odd.re), even_groups(even.im, odd.im)};
      Complex<V> b = {odd_groups(even.re, odd.re), odd_groups(even.im, odd.im)};
      if constexpr (radix2) {
        const auto difference = times_conjugate(b, load_complex<V>(w + table32 + 2 * i, 32));
        b = a - difference;
        a = a + difference;
      }
      store_eights(p + i, distance, stride, a);
      store_eights(q + i, distance, stride, b);
    };
    store_rows(0, x.a, x.b);
    store_rows(8, x.c, x.d);
  }
}

/** Runs the last four or five levels of count blocks of 32 values, stride floats apart. */
template <bool radix2, class V = Floats>
JURN_INLINE void last_levels(float* z, int count, ptrdiff_t distance, ptrdiff_t stride,
                             const float* w) {
  constexpr int step = sizeof(V) == 64 ? 2 : 1;
  int i = 0;
  for (; i + step <= count; i += step)
    pair_forward<radix2, V>(z + i * stride, z + i * stride + 16, distance, stride, w);
  if constexpr (step == 2)
    if (i < count) last_levels<radix2, Vec<float, 8>>(z + i * stride, 1, distance, stride, w);
}

/** Undoes last_levels. */
template <bool radix2, class Source, class V = Floats>
JURN_INLINE void first_levels(float* z, int count, ptrdiff_t distance, ptrdiff_t stride,
                              const float* w, Source source) {
  constexpr int step = sizeof(V) == 64 ? 2 : 1;
  int i = 0;
  for (; i + step <= count; i += step)
    pair_inverse<radix2, V>(z + i * stride, z + i * stride + 16, distance, stride, w, source);
  if constexpr (step == 2)
    if (i < count)
      first_levels<radix2, Source, Vec<float, 8>>(z + i * stride, 1, distance, stride, w, source);
}

using Pair = Vec < float, lane_count<8 ? 4 : 8>;

/** Transforms three arrays of length values: length real parts, then length imaginary ones. */
static void complex_forward(float* z, int length, const float* w) {
  if (length == 16) {
    pair_forward<false, Pair>(z, z + 32, 16, 0, w);
    complex16_forward(z + 64, w);
  } else if (length == 32) {
    last_levels<true>(z, 3, 32, 64, w);
  } else {
    for (int i = 0; i < 3; ++i, z += 2 * length) {
      int l = length;
      for (; l >= 64; l /= 4) radix4_forward(z, length, l, complex_twiddles(w, l));
      if (l == 32)
        last_levels<true>(z, length / 32, length, 32, w);
      else
        last_levels<false>(z, length / 32, length, 32, w);
    }
  }
}

template <class Source>
static void complex_inverse(float* z, int length, const float* w, Source source) {
  if (length == 16) {
    pair_inverse<false, Pair>(z, z + 32, 16, 0, w, source);
    complex16_inverse(z + 64, w, source);
  } else if (length == 32) {
    first_levels<true>(z, 3, 32, 64, w, source);
  } else {
    int last = length;
    while (last >= 64) last /= 4;
    for (int i = 0; i < 3; ++i, z += 2 * length) {
      if (last == 32)
        first_levels<true>(z, length / 32, length, 32, w, source);
      else
        first_levels<false>(z, length / 32, length, 32, w, source);
      for (int l = 4 * last; l <= length; l *= 4)
        radix4_inverse(z, length, l, complex_twiddles(w, l));
    }
  }
}

/* Eight values: radix 2, then radix 4 on columns whose lanes are the real parts of both results and
 * their imaginary parts. */

static void complex8_forward(float* z, const float* w) {
  const auto x = load_complex<Quad>(z, 8), y = load_complex<Quad>(z + 4, 8);
  auto sum = x + y, difference = (x - y) * load_complex<Quad>(w + table8, 4);
  transpose(sum.re, difference.re, sum.im, difference.im);
  const Quad a = sum.re, b = difference.re, c = sum.im, d = difference.im;
  const Quad ac = a + c, a_c = a - c, bd = b + d;
  const Quad turned = shuffle_groups<2, 3, 0, 1>(b - d, b - d) * load<Quad>(negate_high);
  const Quad k0 = ac + bd, k1 = a_c + turned, k2 = ac - bd, k3 = a_c - turned;
  store(z, shuffle_groups<0, 1, 4, 5>(k0, k1));
  store(z + 4, shuffle_groups<0, 1, 4, 5>(k2, k3));
  store(z + 8, shuffle_groups<2, 3, 6, 7>(k0, k1));
  store(z + 12, shuffle_groups<2, 3, 6, 7>(k2, k3));
}

static void complex8_inverse(float* z, const float* w) {
  const auto x = load_complex<Quad>(z, 8), y = load_complex<Quad>(z + 4, 8);
  const Quad k0 = shuffle_groups<0, 1, 4, 5>(x.re, x.im),
             k1 = shuffle_groups<2, 3, 6, 7>(x.re, x.im);
  const Quad k2 = shuffle_groups<0, 1, 4, 5>(y.re, y.im),
             k3 = shuffle_groups<2, 3, 6, 7>(y.re, y.im);
  const Quad ac = k0 + k2, a_c = k0 - k2, bd = k1 + k3;
  const Quad turned = shuffle_groups<2, 3, 0, 1>(k1 - k3, k1 - k3) * load<Quad>(negate_high);
  Quad a = ac + bd, b = a_c - turned, c = ac - bd, d = a_c + turned;
  transpose(a, b, c, d);
  const Complex<Quad> sum = {a, c};
  const auto difference = times_conjugate(Complex<Quad>{b, d}, load_complex<Quad>(w + table8, 4));
  store_complex(z, 8, sum + difference);
  store_complex(z + 4, 8, sum - difference);
}

/* Four values, packed in two vectors: real parts of the even and odd ones, imaginary parts. */

static void complex4_forward(float* z) {
  const auto x = load_complex<Quad>(z, 4);
  const Quad a = shuffle_groups<0, 1, 4, 5>(x.re, x.im), b = shuffle_groups<2, 3, 6, 7>(x.re, x.im);
  const Quad sum = a + b, difference = a - b;
  const Quad even = shuffle_groups<0, 2, 4, 6>(sum, difference);
  const Quad odd = shuffle_groups<1, 3, 7, 5>(sum, difference) * load<Quad>(negate_last);
  const Quad k01 = even + odd, k23 = even - odd;
  store(z, shuffle_groups<0, 2, 4, 6>(k01, k23));
  store(z + 4, shuffle_groups<1, 3, 5, 7>(k01, k23));
}

static void complex4_inverse(float* z) {
  const auto x = load_complex<Quad>(z, 4);
  /* re: k0 k1 k2 k3 -> (k0.re, k0.im, k1.re, k1.im), (k2.re, k2.im, k3.re, k3.im) */
  const Quad k01 = shuffle_groups<0, 4, 1, 5>(x.re, x.im),
             k23 = shuffle_groups<2, 6, 3, 7>(x.re, x.im);
  const Quad even = k01 + k23, odd = (k01 - k23) * load<Quad>(negate_last);
  const Quad sum = shuffle_groups<0, 4, 1, 5>(even, odd);
  const Quad difference = shuffle_groups<2, 7, 3, 6>(even, odd);
  const Quad a = sum + difference, b = sum - difference;
  store(z, shuffle_groups<0, 1, 4, 5>(a, b));
  store(z + 4, shuffle_groups<2, 3, 6, 7>(a, b));
}

/* ---- Splitting real sequences ---- */

/** One step of radix 2: a real sequence of length values into one of length/2 and a complex one of
 * length/4, each value the difference of two less i times the difference of the two a quarter on.
 */
JURN_INLINE void halve_forward(float* x, int length, const float* w) {
  const ptrdiff_t quarter = length / 4;
  const float* t = w + table_halve + length;
  for (ptrdiff_t i = 0; i < quarter; i += 4, x += 4, t += 4) {
    const Quad a = load<Quad>(x), b = load<Quad>(x + quarter);
    const Quad c = load<Quad>(x + 2 * quarter), d = load<Quad>(x + 3 * quarter);
    store(x, a + c);
    store(x + quarter, b + d);
    store_complex(x + 2 * quarter, quarter,
                  Complex<Quad>{a - c, d - b} * load_complex<Quad>(t, quarter));
  }
}

JURN_INLINE void halve_inverse(float* x, int length, const float* w, float scale) {
  const ptrdiff_t quarter = length / 4;
  const float* t = w + table_halve + length;
  const Quad gain = broadcast<Quad>(scale);
  for (ptrdiff_t i = 0; i < quarter; i += 4, x += 4, t += 4) {
    const Quad ac = load<Quad>(x), bd = load<Quad>(x + quarter);
    const auto difference = times_conjugate(load_complex<Quad>(x + 2 * quarter, quarter),
                                            load_complex<Quad>(t, quarter));
    store(x, (ac + difference.re) * gain);
    store(x + quarter, (bd - difference.im) * gain);
    store(x + 2 * quarter, (ac - difference.re) * gain);
    store(x + 3 * quarter, (bd + difference.im) * gain);
  }
}

/** The samples of the first pass of a forward transform, from the array that it works in, from
 * int16 samples, or from one channel of interleaved ones. */
struct InArray {
  const float* x;
  JURN_INLINED Floats at(ptrdiff_t i) const { return load_once(x + i); }
};

using Ints = Vec<int, lane_count>;

struct Mono {
  const short* samples;
  JURN_INLINED Floats at(ptrdiff_t i) const {
    return convert<Floats>(widen_samples<Ints>(samples + i));
  }
};

template <int channel>
struct Interleaved {
  const short* samples;
  JURN_INLINED Floats at(ptrdiff_t i) const {
    const auto pairs = load<Ints>(samples + 2 * i);
    return convert<Floats>(channel == 0 ? first_of(pairs) : second_of(pairs));
  }
};

/** Three levels at once: a real sequence of length values into one of length/4 and three complex
 * ones of length/8. */
template <class Source>
static void split_forward(float* x, int length, const float* w, Source source) {
  const ptrdiff_t eighth = length / 8;
  const float* t = real_twiddles(w, length);
  const Floats half = broadcast<Floats>(sqrt_half);
  for (ptrdiff_t i = 0; i < eighth; i += 16, t += 96) {
    for (int lane = 0; lane < 16; lane += lane_count) {
      float* p = x + i + lane;
      const Floats x0 = source.at(i + lane), x1 = source.at(i + lane + eighth);
      const Floats x2 = source.at(i + lane + 2 * eighth), x3 = source.at(i + lane + 3 * eighth);
      const Floats x4 = source.at(i + lane + 4 * eighth), x5 = source.at(i + lane + 5 * eighth);
      const Floats x6 = source.at(i + lane + 6 * eighth), x7 = source.at(i + lane + 7 * eighth);
      const Floats s0 = x0 + x4, s1 = x1 + x5, s2 = x2 + x6, s3 = x3 + x7;
      const Floats d0 = x0 - x4, d1 = x1 - x5, d2 = x2 - x6, d3 = x3 - x7;
      /* (d1 - i d3) turned by an eighth: u - i v */
      const Floats u = (d1 - d3) * half, v = (d1 + d3) * half;
      store(p, s0 + s2);
      store(p + eighth, s1 + s3);
      store_complex(p + 2 * eighth, eighth,
                    Complex<Floats>{s0 - s2, s3 - s1} * load_complex<Floats>(t + lane, 16));
      store_complex(p + 4 * eighth, eighth,
                    times_conjugate(load_complex<Floats>(t + lane + 32, 16),
                                    Complex<Floats>{d0 + u, d2 + v}));
      store_complex(p + 6 * eighth, eighth,
                    Complex<Floats>{d0 - u, v - d2} * load_complex<Floats>(t + lane + 64, 16));
    }
  }
}

static void split_inverse(float* x, int length, const float* w, float scale) {
  const ptrdiff_t eighth = length / 8;
  const float* t = real_twiddles(w, length);
  const Floats half = broadcast<Floats>(sqrt_half), gain = broadcast<Floats>(scale);
  for (ptrdiff_t i = 0; i < eighth; i += 16, t += 96) {
    for (int lane = 0; lane < 16; lane += lane_count) {
      float* p = x + i + lane;
      const Floats s02 = load_once(p), s13 = load_once(p + eighth);
      const auto a = times_conjugate(load_complex<Floats>(p + 2 * eighth, eighth),
                                     load_complex<Floats>(t + lane, 16));
      const auto b = times_conjugate(load_complex<Floats>(p + 4 * eighth, eighth),
                                     load_complex<Floats>(t + lane + 32, 16));
      const auto c = times_conjugate(load_complex<Floats>(p + 6 * eighth, eighth),
                                     load_complex<Floats>(t + lane + 64, 16));
      const Floats s0 = s02 + a.re, s2 = s02 - a.re, s1 = s13 - a.im, s3 = s13 + a.im;
      const Floats d0 = b.re + c.re, u = b.re - c.re, d2 = b.im + c.im, v = c.im - b.im;
      const Floats d1 = (u + v) * half, d3 = (v - u) * half;
      store(p, (s0 + d0) * gain);
      store(p + eighth, (s1 + d1) * gain);
      store(p + 2 * eighth, (s2 - d2) * gain);
      store(p + 3 * eighth, (s3 + d3) * gain);
      store(p + 4 * eighth, (s0 - d0) * gain);
      store(p + 5 * eighth, (s1 - d1) * gain);
      store(p + 6 * eighth, (s2 + d2) * gain);
      store(p + 7 * eighth, (s3 - d3) * gain);
    }
  }
}

/* ---- The shortest sequences ---- */

const float turn[4] = {1, sqrt_half, -1, sqrt_half};

static void real8_forward(float* x) {
  const float s0 = x[0] + x[4], s1 = x[1] + x[5], s2 = x[2] + x[6], s3 = x[3] + x[7];
  const float d0 = x[0] - x[4], d1 = x[1] - x[5], d2 = x[2] - x[6], d3 = x[3] - x[7];
  const float u = (d1 - d3) * sqrt_half, v = (d1 + d3) * sqrt_half;
  x[0] = s0, x[1] = s1, x[2] = s2, x[3] = s3;
  x[4] = d0 + u, x[5] = d0 - u;
  x[6] = -d2 - v, x[7] = v - d2;
}

/** Both levels in two vectors: scalars would reach the next step, which loads vectors, through
 * memory that is still being written. The two real bins count once where every complex one stands
 * for two, so they are halved. */
static void real8_inverse(float* x, float scale) {
  const Quad low = load<Quad>(x), high = load<Quad>(x + 4);
  const Quad bins = shuffle_groups<0, 0, 0, 0>(low, low) +
                    shuffle_groups<1, 1, 1, 1>(low, low) * load<Quad>(alternate);
  const Quad s =
      bins * broadcast<Quad>(.5f) + shuffle_groups<2, 3, 2, 3>(low, low) * load<Quad>(negate_inner);
  /* d0, u, d2, v as in split_inverse, then d0, d1, -d2, d3 */
  const Quad f = shuffle_groups<0, 0, 2, 3>(high, high) +
                 shuffle_groups<1, 1, 3, 2>(high, high) * load<Quad>(alternate);
  const Quad d =
      (f + shuffle_groups<4, 3, 4, 1>(f, Quad{}) * load<Quad>(negate_last)) * load<Quad>(turn);
  store(x, (s + d) * broadcast<Quad>(scale));
  store(x + 4, (s - d) * broadcast<Quad>(scale));
}

static void real4_forward(float* x) {
  const float s02 = x[0] + x[2], s13 = x[1] + x[3], re = x[0] - x[2], im = x[3] - x[1];
  x[0] = s02 + s13, x[1] = s02 - s13, x[2] = re, x[3] = im;
}

static void real4_inverse(float* x, float scale) {
  const float s02 = (x[0] + x[1]) * .5f, s13 = (x[0] - x[1]) * .5f, re = x[2], im = x[3];
  x[0] = (s02 + re) * scale, x[2] = (s02 - re) * scale;
  x[1] = (s13 - im) * scale, x[3] = (s13 + im) * scale;
}

/* ---- The routines ---- */

static short forward(const float* w, float* x, int length) {
  for (; length >= 128; length /= 4) {
    split_forward(x, length, w, InArray{x});
    complex_forward(x + length / 4, length / 8, w);
  }
  if (length >= 64) {
    halve_forward(x, 64, w);
    complex16_forward(x + 32, w);
  }
  if (length >= 32) {
    halve_forward(x, 32, w);
    complex8_forward(x + 16, w);
  }
  if (length >= 16) {
    halve_forward(x, 16, w);
    complex4_forward(x + 8);
  }
  if (length >= 8) real8_forward(x);
  if (length >= 4) {
    real4_forward(x);
  } else {
    const float a = x[0], b = x[1];
    x[0] = a + b, x[1] = a - b;
  }
  return 0;
}

/** forward of samples that are converted as the first pass reads them; length is 128 or more. */
template <class Source>
JURN_INLINE void forward_from(const float* w, float* x, int length, Source source) {
  split_forward(x, length, w, source);
  complex_forward(x + length / 4, length / 8, w);
  forward(w, x, length / 4);
}

static void forward_samples(const float* w, float* x, const short* samples, int channels,
                            int channel, int length) {
  if (channels == 1)
    forward_from(w, x, length, Mono{samples});
  else if (channel == 0)
    forward_from(w, x, length, Interleaved<0>{samples});
  else
    forward_from(w, x, length, Interleaved<1>{samples});
}

template <class V>
JURN_INLINE void multiply(float* out, const float* a, const float* b, ptrdiff_t bins) {
  for (ptrdiff_t i = 0; i < bins; i += lanes_of<V>)
    store_complex(out + i, bins, load_complex<V>(a + i, bins) * load_complex<V>(b + i, bins));
}

/** The first eight floats of a spectrum: two real bins, and three complex ones of three lengths. */
JURN_INLINE void multiply8(float* out, const float* a, const float* b) {
  const Quad a0 = load<Quad>(a), b0 = load<Quad>(b), a1 = load<Quad>(a + 4), b1 = load<Quad>(b + 4);
  store(out, a0 * shuffle_groups<0, 1, 2, 2>(b0, b0) + shuffle_groups<4, 4, 3, 2>(a0, Quad{}) *
                                                           shuffle_groups<4, 4, 3, 3>(b0, Quad{}) *
                                                           load<Quad>(negate_third));
  store(out + 4, a1 * shuffle_groups<0, 1, 0, 1>(b1, b1) + shuffle_groups<2, 3, 0, 1>(a1, a1) *
                                                               shuffle_groups<2, 3, 2, 3>(b1, b1) *
                                                               load<Quad>(negate_low));
}

static void product(float* out, const float* a, const float* b, int length) {
  for (; length >= 128; length /= 4)
    for (int i = length / 4; i < length; i += length / 4)
      multiply<Floats>(out + i, a + i, b + i, length / 8);
  if (length >= 64) multiply<Floats>(out + 32, a + 32, b + 32, 16);
  if (length >= 32) multiply<Pair>(out + 16, a + 16, b + 16, 8);
  if (length >= 16) multiply<Quad>(out + 8, a + 8, b + 8, 4);
  if (length >= 8) {
    multiply8(out, a, b);
  } else {
    if (length == 4) multiply<float>(out + 2, a + 2, b + 2, 1);
    out[0] = a[0] * b[0], out[1] = a[1] * b[1];
  }
}

/** Spectra of 128 and more begin with one of 16 to 64, which no array of complex transforms
 * belongs to; an inverse of a product starts with that part's product in place. */
static int base_length(int length) {
  while (length >= 128) length /= 4;
  return length;
}

template <class Source>
JURN_INLINE void inverse_from(const float* w, float* x, int length, float scale, Source source) {
  const int base = base_length(length);
  const auto scale_at = [=](int n) JURN_INLINED { return n == length ? scale : 1.f; };
  if (base >= 8) {
    real8_inverse(x, scale_at(8));
  } else if (base == 4) {
    real4_inverse(x, scale);
  } else {
    const float a = x[0], b = x[1];
    x[0] = (a + b) * .5f * scale, x[1] = (a - b) * .5f * scale;
  }
  if (base >= 16) {
    complex4_inverse(x + 8);
    halve_inverse(x, 16, w, scale_at(16));
  }
  if (base >= 32) {
    complex8_inverse(x + 16, w);
    halve_inverse(x, 32, w, scale_at(32));
  }
  if (base >= 64) {
    complex16_inverse(x + 32, w, InPlace());
    halve_inverse(x, 64, w, scale_at(64));
  }
  for (int n = 4 * base; n <= length; n *= 4) {
    complex_inverse(x + n / 4, n / 8, w, source);
    split_inverse(x, n, w, scale_at(n));
  }
}

static short inverse(const float* w, float* x, int length, float scale) {
  inverse_from(w, x, length, scale, InPlace());
  return 0;
}

/** inverse(out = a b), where the product is taken as the first pass reads it. */
static void inverse_product(const float* w, float* out, const float* a, const float* b, int length,
                            float scale) {
  product(out, a, b, base_length(length));
  inverse_from(w, out, length, scale, Product{out, a, b});
}
