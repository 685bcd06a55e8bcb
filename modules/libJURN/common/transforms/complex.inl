/* Complex transforms of all lengths: those of 4 to 32 values here, the others pass by pass. */

#include "blocks.inl"

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

/** Transforms count blocks of 32 values, 32 real parts and 32 imaginary ones each. */
template <class V = Floats>
JURN_INLINE void blocks32_forward(float* z, int count, const float* w) {
  constexpr int step = sizeof(V) == 64 ? 2 : 1;
  int i = 0;
  for (; i + step <= count; i += step)
    pair_forward<true, V>(z + i * 64, z + i * 64 + 16, 32, 64, w);
  if constexpr (step == 2)
    if (i < count) blocks32_forward<Vec<float, 8>>(z + i * 64, 1, w);
}

template <class Source, class V = Floats>
JURN_INLINE void blocks32_inverse(float* z, int count, const float* w, Source source) {
  constexpr int step = sizeof(V) == 64 ? 2 : 1;
  int i = 0;
  for (; i + step <= count; i += step)
    pair_inverse<true, V>(z + i * 64, z + i * 64 + 16, 32, 64, w, source);
  if constexpr (step == 2)
    if (i < count) blocks32_inverse<Source, Vec<float, 8>>(z + i * 64, 1, w, source);
}

using Pair = Vec < float, lane_count<8 ? 4 : 8>;

/** The last levels of count values: every block of length, 64 to 256. */
static void blocks_forward(float* z, int count, int size, int length, const float* w) {
  if (length == 256)
    blocks256_forward(z, count, size, w);
  else if (length == 128)
    blocks128_forward(z, count, size, w);
  else
    blocks64_forward(z, count, size, w);
}

template <class Source>
static void blocks_inverse(float* z, int count, int size, int length, const float* w,
                           Source source) {
  if (length == 256)
    blocks256_inverse(z, count, size, w, source);
  else if (length == 128)
    blocks128_inverse(z, count, size, w, source);
  else
    blocks64_inverse(z, count, size, w, source);
}

/** Transforms one array of 64 values or more: length real parts, then length imaginary ones. */
static void long_forward(float* z, int length, const float* w) {
  int l = length;
  for (; l > 256; l /= 4) radix4_forward(z, length, l, complex_twiddles(w, l));
  blocks_forward(z, length, length, l, w);
}

template <class Source>
static void long_inverse(float* z, int length, const float* w, Source source) {
  int last = length;
  while (last > 256) last /= 4;
  blocks_inverse(z, length, length, last, w, source);
  for (int l = 4 * last; l <= length; l *= 4) radix4_inverse(z, length, l, complex_twiddles(w, l));
}

/** Transforms three arrays, one after the other. */
static void complex_forward(float* z, int length, const float* w) {
  if (length == 16) {
    pair_forward<false, Pair>(z, z + 32, 16, 0, w);
    complex16_forward(z + 64, w);
  } else if (length == 32) {
    blocks32_forward(z, 3, w);
  } else {
    for (int i = 0; i < 3; ++i) long_forward(z + 2 * i * length, length, w);
  }
}

template <class Source>
static void complex_inverse(float* z, int length, const float* w, Source source) {
  if (length == 16) {
    pair_inverse<false, Pair>(z, z + 32, 16, 0, w, source);
    complex16_inverse(z + 64, w, source);
  } else if (length == 32) {
    blocks32_inverse(z, 3, w, source);
  } else {
    for (int i = 0; i < 3; ++i) long_inverse(z + 2 * i * length, length, w, source);
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
