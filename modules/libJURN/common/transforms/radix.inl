/* Butterflies, passes of radix 4, and the transform of 16 values in groups of lanes. */

#include "lanes.inl"

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

template <class V>
JURN_INLINE void butterfly_forward(Complex<V> (&x)[4]) {
  butterfly_forward(x[0], x[1], x[2], x[3]);
}

template <class V>
JURN_INLINE void butterfly_inverse(Complex<V> (&x)[4]) {
  butterfly_inverse(x[0], x[1], x[2], x[3]);
}

/* Radix 8: its first level leaves sums, of which butterfly_forward makes the even frequencies, and
 * differences, of which this makes the odd ones. */

template <class V>
JURN_INLINE void odd_forward(Complex<V> (&x)[4]) {
  /* x[1] turned by one eighth, x[3] by three: (u1, v1) and (u3, -v3) */
  const V half = broadcast<V>(sqrt_half);
  const V u1 = (x[1].re + x[1].im) * half, v1 = (x[1].im - x[1].re) * half;
  const V u3 = (x[3].im - x[3].re) * half, v3 = (x[3].re + x[3].im) * half;
  const Complex<V> d02 = minus_i(x[0], x[2]), d0_2 = plus_i(x[0], x[2]);
  const Complex<V> d13 = {u1 + u3, v1 - v3}, d1_3 = {u1 - u3, v1 + v3};
  x[0] = d02 + d13;
  x[1] = minus_i(d0_2, d1_3);
  x[2] = d02 - d13;
  x[3] = plus_i(d0_2, d1_3);
}

/** Undoes it but for quarter turns, which the sums and differences below make up for. */
template <class V>
JURN_INLINE void odd_inverse(Complex<V> (&x)[4]) {
  butterfly_inverse(x);
  const V half = broadcast<V>(sqrt_half);
  x[1] = {(x[1].re - x[1].im) * half, (x[1].re + x[1].im) * half};
  x[3] = {(x[3].re + x[3].im) * half, (x[3].re - x[3].im) * half};
}

template <class V>
JURN_INLINE Complex<V> plus_odd(int i, Complex<V> even, Complex<V> odd) {
  if (i == 2) return plus_i(even, odd);
  if (i == 3) return {even.re - odd.re, even.im + odd.im};
  return even + odd;
}

template <class V>
JURN_INLINE Complex<V> minus_odd(int i, Complex<V> even, Complex<V> odd) {
  if (i == 2) return minus_i(even, odd);
  if (i == 3) return {even.re + odd.re, even.im - odd.im};
  return even - odd;
}

template <class V>
JURN_INLINE void butterfly_forward(Complex<V> (&x)[8]) {
  Complex<V> even[4], odd[4];
  JURN_UNROLL
  for (int i = 0; i < 4; ++i) even[i] = x[i] + x[i + 4], odd[i] = x[i] - x[i + 4];
  butterfly_forward(even);
  odd_forward(odd);
  JURN_UNROLL
  for (int i = 0; i < 4; ++i) x[2 * i] = even[i], x[2 * i + 1] = odd[i];
}

template <class V>
JURN_INLINE void butterfly_inverse(Complex<V> (&x)[8]) {
  Complex<V> even[4], odd[4];
  JURN_UNROLL
  for (int i = 0; i < 4; ++i) even[i] = x[2 * i], odd[i] = x[2 * i + 1];
  butterfly_inverse(even);
  odd_inverse(odd);
  JURN_UNROLL
  for (int i = 0; i < 4; ++i)
    x[i] = plus_odd(i, even[i], odd[i]), x[i + 4] = minus_odd(i, even[i], odd[i]);
}

/** The first level of radix 4 in the columns of one block from first to last - 1: multiples of 16.
 */
JURN_INLINE void radix4_columns_forward(float* z, ptrdiff_t size, ptrdiff_t quarter,
                                        ptrdiff_t first, ptrdiff_t last, const float* twiddles) {
  const float* w = twiddles + 6 * first;
  for (ptrdiff_t i = first; i < last; i += 16, w += 96) {
    for (int lane = 0; lane < 16; lane += lane_count) {
      float* p = z + i + lane;
      const float* t = w + lane;
      auto a = load_once(p, size), b = load_once(p + quarter, size);
      auto c = load_once(p + 2 * quarter, size);
      auto d = load_once(p + 3 * quarter, size);
      butterfly_forward(a, b, c, d);
      store_complex(p, size, a);
      store_complex(p + quarter, size, b * load_once(t, 16));
      store_complex(p + 2 * quarter, size, c * load_once(t + 32, 16));
      store_complex(p + 3 * quarter, size, d * load_once(t + 64, 16));
    }
  }
}

/** The first level of every block of length values; size values in all. */
static void radix4_forward(float* z, int size, int length, const float* twiddles) {
  for (float* end = z + size; z < end; z += length)
    radix4_columns_forward(z, size, length / 4, 0, length / 4, twiddles);
}

/** Undoes radix4_columns_forward, at four times the gain, in the columns of one block from first to
 * last - 1: multiples of 16. */
JURN_INLINE void radix4_columns_inverse(float* z, ptrdiff_t size, ptrdiff_t quarter,
                                        ptrdiff_t first, ptrdiff_t last, const float* twiddles) {
  const float* w = twiddles + 6 * first;
  for (ptrdiff_t i = first; i < last; i += 16, w += 96) {
    for (int lane = 0; lane < 16; lane += lane_count) {
      float* p = z + i + lane;
      const float* t = w + lane;
      auto a = load_once(p, size), b = load_once(p + quarter, size);
      auto c = load_once(p + 2 * quarter, size);
      auto d = load_once(p + 3 * quarter, size);
      b = times_conjugate(b, load_once(t, 16));
      c = times_conjugate(c, load_once(t + 32, 16));
      d = times_conjugate(d, load_once(t + 64, 16));
      butterfly_inverse(a, b, c, d);
      store_complex(p, size, a);
      store_complex(p + quarter, size, b);
      store_complex(p + 2 * quarter, size, c);
      store_complex(p + 3 * quarter, size, d);
    }
  }
}

/** Undoes radix4_forward, at four times the gain. */
static void radix4_inverse(float* z, int size, int length, const float* twiddles) {
  for (float* end = z + size; z < end; z += length)
    radix4_columns_inverse(z, size, length / 4, 0, length / 4, twiddles);
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
