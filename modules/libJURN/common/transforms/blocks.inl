/* Blocks of 64, 128 and 256 values.
 *
 * The first level of 64 and 128, radix 4 or 8, leaves four or eight transforms of 16 values. Four
 * of these run side by side: row m of their results, 16 values, holds frequencies 4 m to 4 m + 3 of
 * each in turn. With 16 lanes a block never leaves the registers. Narrower vectors keep it in an
 * array between its levels, for they write a row's results where values of other rows come from. */

#include "radix.inl"

constexpr int group_count = lane_count / 4;

/** The rows of as many transforms of 16 as a vector has groups, and back: each row in turn takes a
 * group of every one. x holds their values, vector after vector. */
JURN_INLINE void to_rows(Complex<Floats> (&x)[4]) {
  if constexpr (group_count == 4) {
    transpose_groups(x[0].re, x[1].re, x[2].re, x[3].re);
    transpose_groups(x[0].im, x[1].im, x[2].im, x[3].im);
  } else if constexpr (group_count == 2) {
    const Complex<Floats> a = x[0], b = x[1], c = x[2], d = x[3];
    x[0] = {even_groups(a.re, c.re), even_groups(a.im, c.im)};
    x[1] = {odd_groups(a.re, c.re), odd_groups(a.im, c.im)};
    x[2] = {even_groups(b.re, d.re), even_groups(b.im, d.im)};
    x[3] = {odd_groups(b.re, d.re), odd_groups(b.im, d.im)};
  }
}

JURN_INLINE void from_rows(Complex<Floats> (&x)[4]) {
  if constexpr (group_count == 4) {
    to_rows(x);
  } else if constexpr (group_count == 2) {
    const Complex<Floats> a = x[0], b = x[1], c = x[2], d = x[3];
    x[0] = {even_groups(a.re, b.re), even_groups(a.im, b.im)};
    x[1] = {even_groups(c.re, d.re), even_groups(c.im, d.im)};
    x[2] = {odd_groups(a.re, b.re), odd_groups(a.im, b.im)};
    x[3] = {odd_groups(c.re, d.re), odd_groups(c.im, d.im)};
  }
}

/** Transforms the 16 values of each group in x and stores the rows. */
JURN_INLINE void rows_forward(float* z, ptrdiff_t distance, const float* w,
                              const Complex<Floats>* values) {
  Complex<Floats> x[4] = {values[0], values[1], values[2], values[3]};
  to_rows(x);
  Tile<Floats> tile = {x[0], x[1], x[2], x[3]};
  tile_forward(tile, w);
  store_complex(z, distance, tile.a);
  store_complex(z + 16, distance, tile.b);
  store_complex(z + 32, distance, tile.c);
  store_complex(z + 48, distance, tile.d);
}

template <class Source>
JURN_INLINE void rows_inverse(const float* z, ptrdiff_t distance, const float* w,
                              Complex<Floats>* values, Source source) {
  Tile<Floats> tile = {
      source.template at<Floats>(z, distance), source.template at<Floats>(z + 16, distance),
      source.template at<Floats>(z + 32, distance), source.template at<Floats>(z + 48, distance)};
  tile_inverse(tile, w);
  Complex<Floats> x[4] = {tile.a, tile.b, tile.c, tile.d};
  from_rows(x);
  for (int i = 0; i < 4; ++i) values[i] = x[i];
}

/** A block in registers, whose values load_values gives. */
template <int radix, class Load>
JURN_INLINE void block_forward(float* z, ptrdiff_t distance, const float* w, Load load_values) {
  const float* const t = complex_twiddles(w, 16 * radix);
  Complex<Floats> x[radix];
  JURN_UNROLL
  for (int i = 0; i < radix; ++i) x[i] = load_values(16 * i);
  butterfly_forward(x);
  JURN_UNROLL
  for (int i = 1; i < radix; ++i) x[i] = x[i] * load_once(t + 32 * (i - 1), 16);
  JURN_UNROLL
  for (int i = 0; i < radix; i += 4) rows_forward(z + 16 * i, distance, w, x + i);
}

/** Undoes it at 16 x radix times the gain: store_values takes the values. */
template <int radix, class Source, class Store>
JURN_INLINE void block_inverse(const float* z, ptrdiff_t distance, const float* w, Source source,
                               Store store_values) {
  const float* const t = complex_twiddles(w, 16 * radix);
  Complex<Floats> x[radix];
  JURN_UNROLL
  for (int i = 0; i < radix; i += 4) rows_inverse(z + 16 * i, distance, w, x + i, source);
  JURN_UNROLL
  for (int i = 1; i < radix; ++i) x[i] = times_conjugate(x[i], load_once(t + 32 * (i - 1), 16));
  butterfly_inverse(x);
  JURN_UNROLL
  for (int i = 0; i < radix; ++i) store_values(16 * i, x[i]);
}

/** A block in narrower vectors: 16 x radix values between its levels. */
template <int radix>
struct Work {
  static constexpr int distance = 16 * radix;
  float values[2 * distance];

  /** Of the first level, every step-th frequency from first on. */
  template <int first, int step, class Load>
  JURN_INLINED void put(const float* t, Load load_values) {
    for (int lane = 0; lane < 16; lane += lane_count) {
      Complex<Floats> x[4];
      JURN_UNROLL
      for (int i = 0; i < 4; ++i) x[i] = load_values(i, lane);
      if constexpr (first == 0)
        butterfly_forward(x);
      else
        odd_forward(x);
      JURN_UNROLL
      for (int i = 0; i < 4; ++i) {
        const int k = first + i * step;
        if (k > 0) x[i] = x[i] * load_once(t + 32 * (k - 1) + lane, 16);
        store_complex(values + 16 * k + lane, distance, x[i]);
      }
    }
  }

  template <int first, int step, class Store>
  JURN_INLINED void take(const float* t, Store store_values) const {
    for (int lane = 0; lane < 16; lane += lane_count) {
      Complex<Floats> x[4];
      JURN_UNROLL
      for (int i = 0; i < 4; ++i) {
        const int k = first + i * step;
        x[i] = load_once(values + 16 * k + lane, distance);
        if (k > 0) x[i] = times_conjugate(x[i], load_once(t + 32 * (k - 1) + lane, 16));
      }
      if constexpr (first == 0)
        butterfly_inverse(x);
      else
        odd_inverse(x);
      JURN_UNROLL
      for (int i = 0; i < 4; ++i) store_values(i, lane, x[i]);
    }
  }

  /** The transforms of 16 from here to z, and back. */
  void to_rows_of(float* z, ptrdiff_t z_distance, const float* w) const {
    for (int i = 0; i < radix; i += 4)
      for (int j = 0; j < 4; j += group_count) {
        Complex<Floats> x[4];
        JURN_UNROLL
        for (int k = 0; k < 4; ++k)
          x[k] = load_complex<Floats>(values + 16 * (i + j) + lane_count * k, distance);
        rows_forward(z + 16 * i + 4 * j, z_distance, w, x);
      }
  }

  template <class Source>
  void from_rows_of(const float* z, ptrdiff_t z_distance, const float* w, Source source) {
    for (int i = 0; i < radix; i += 4)
      for (int j = 0; j < 4; j += group_count) {
        Complex<Floats> x[4];
        rows_inverse(z + 16 * i + 4 * j, z_distance, w, x, source);
        JURN_UNROLL
        for (int k = 0; k < 4; ++k)
          store_complex(values + 16 * (i + j) + lane_count * k, distance, x[k]);
      }
  }
};

/** Transforms every block of 64 of count values, whose imaginary parts lie size floats behind. */
static void blocks64_forward(float* z, int count, int size, const float* w) {
  for (float* end = z + count; z < end; z += 64) {
    if constexpr (group_count == 4) {
      block_forward<4>(z, size, w, [=](int i) JURN_INLINED { return load_once(z + i, size); });
    } else {
      Work<4> work;
      work.put<0, 1>(complex_twiddles(w, 64), [=](int i, int lane) JURN_INLINED {
        return load_once(z + 16 * i + lane, size);
      });
      work.to_rows_of(z, size, w);
    }
  }
}

template <class Source>
static void blocks64_inverse(float* z, int count, int size, const float* w, Source source) {
  for (float* end = z + count; z < end; z += 64) {
    if constexpr (group_count == 4) {
      block_inverse<4>(z, size, w, source, [=](int i, Complex<Floats> x) JURN_INLINED {
        store_complex(z + i, size, x);
      });
    } else {
      Work<4> work;
      work.from_rows_of(z, size, w, source);
      work.take<0, 1>(complex_twiddles(w, 64),
                      [=](int i, int lane, Complex<Floats> x)
                          JURN_INLINED { store_complex(z + 16 * i + lane, size, x); });
    }
  }
}

/** Transforms every block of 128 values. */
static void blocks128_forward(float* z, int count, int size, const float* w) {
  for (float* end = z + count; z < end; z += 128) {
    if constexpr (group_count == 4) {
      block_forward<8>(z, size, w, [=](int i) JURN_INLINED { return load_once(z + i, size); });
    } else {
      const float* const t = complex_twiddles(w, 128);
      Work<8> work;
      work.put<0, 2>(t, [=](int i, int lane) JURN_INLINED {
        const float* const p = z + 16 * i + lane;
        return load_complex<Floats>(p, size) + load_complex<Floats>(p + 64, size);
      });
      work.put<1, 2>(t, [=](int i, int lane) JURN_INLINED {
        const float* const p = z + 16 * i + lane;
        return load_complex<Floats>(p, size) - load_complex<Floats>(p + 64, size);
      });
      work.to_rows_of(z, size, w);
    }
  }
}

template <class Source>
static void blocks128_inverse(float* z, int count, int size, const float* w, Source source) {
  for (float* end = z + count; z < end; z += 128) {
    if constexpr (group_count == 4) {
      block_inverse<8>(z, size, w, source, [=](int i, Complex<Floats> x) JURN_INLINED {
        store_complex(z + i, size, x);
      });
    } else {
      const float* const t = complex_twiddles(w, 128);
      Work<8> work;
      work.from_rows_of(z, size, w, source);
      work.take<0, 2>(t, [=](int i, int lane, Complex<Floats> x)
                             JURN_INLINED { store_complex(z + 16 * i + lane, size, x); });
      work.take<1, 2>(t, [=](int i, int lane, Complex<Floats> x) JURN_INLINED {
        float* const p = z + 16 * i + lane;
        const auto even = load_complex<Floats>(p, size);
        store_complex(p, size, plus_odd(i, even, x));
        store_complex(p + 64, size, minus_odd(i, even, x));
      });
    }
  }
}

/** Transforms every block of 256 values: radix 2, and two blocks of 128. Wide vectors do the level
 * of radix 2 while they load the first, narrower ones in one pass with both blocks' first level. */
static void blocks256_forward(float* z, int count, int size, const float* w) {
  const float* const t = complex_twiddles(w, 256);
  for (float* end = z + count; z < end; z += 256) {
    float* const second = z + 128;
    if constexpr (group_count == 4) {
      block_forward<8>(z, size, w, [=](int i) JURN_INLINED {
        const auto a = load_once(z + i, size), b = load_once(second + i, size);
        store_complex(second + i, size, (a - b) * load_once(t + i, 128));
        return a + b;
      });
      block_forward<8>(second, size, w,
                       [=](int i) JURN_INLINED { return load_once(second + i, size); });
    } else {
      for (int i = 0; i < 64; i += lane_count) {
        float *const p = z + i, *const q = second + i;
        const auto a = load_once(p, size), b = load_once(p + 64, size);
        const auto c = load_once(q, size), d = load_once(q + 64, size);
        const auto ac = a + c, bd = b + d;
        const auto a_c = (a - c) * load_complex<Floats>(t + i, 128);
        const auto b_d = (b - d) * load_complex<Floats>(t + 64 + i, 128);
        store_complex(p, size, ac + bd);
        store_complex(p + 64, size, ac - bd);
        store_complex(q, size, a_c + b_d);
        store_complex(q + 64, size, a_c - b_d);
      }
      for (float* block : {z, second}) {
        const float* const t128 = complex_twiddles(w, 128);
        Work<8> work;
        work.put<0, 2>(t128, [=](int i, int lane)
                                 JURN_INLINED { return load_once(block + 16 * i + lane, size); });
        work.put<1, 2>(t128, [=](int i, int lane) JURN_INLINED {
          return load_once(block + 64 + 16 * i + lane, size);
        });
        work.to_rows_of(block, size, w);
      }
    }
  }
}

template <class Source>
static void blocks256_inverse(float* z, int count, int size, const float* w, Source source) {
  const float* const t = complex_twiddles(w, 256);
  for (float* end = z + count; z < end; z += 256) {
    float* const second = z + 128;
    if constexpr (group_count == 4) {
      block_inverse<8>(second, size, w, source, [=](int i, Complex<Floats> x) JURN_INLINED {
        store_complex(second + i, size, x);
      });
      block_inverse<8>(z, size, w, source, [=](int i, Complex<Floats> a) JURN_INLINED {
        const auto b =
            times_conjugate(load_complex<Floats>(second + i, size), load_once(t + i, 128));
        store_complex(z + i, size, a + b);
        store_complex(second + i, size, a - b);
      });
    } else {
      for (float* block : {z, second}) {
        const float* const t128 = complex_twiddles(w, 128);
        Work<8> work;
        work.from_rows_of(block, size, w, source);
        work.take<0, 2>(t128, [=](int i, int lane, Complex<Floats> x)
                                  JURN_INLINED { store_complex(block + 16 * i + lane, size, x); });
        work.take<1, 2>(t128, [=](int i, int lane, Complex<Floats> x) JURN_INLINED {
          store_complex(block + 64 + 16 * i + lane, size, x);
        });
      }
      JURN_UNROLL
      for (int i = 0; i < 4; ++i)
        for (int lane = 0; lane < 16; lane += lane_count) {
          const int at = 16 * i + lane;
          float *const p = z + at, *const q = second + at;
          const auto even = load_once(p, size), odd = load_once(p + 64, size);
          const auto even2 = load_once(q, size), odd2 = load_once(q + 64, size);
          const auto a = plus_odd(i, even, odd), b = minus_odd(i, even, odd);
          const auto c =
              times_conjugate(plus_odd(i, even2, odd2), load_complex<Floats>(t + at, 128));
          const auto d =
              times_conjugate(minus_odd(i, even2, odd2), load_complex<Floats>(t + 64 + at, 128));
          store_complex(p, size, a + c);
          store_complex(q, size, a - c);
          store_complex(p + 64, size, b + d);
          store_complex(q + 64, size, b - d);
        }
    }
  }
}
