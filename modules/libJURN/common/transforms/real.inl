/* Splitting real sequences, and the shortest ones. */

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
 * another one, from int16 samples, or from one channel of interleaved ones. A type of its own for
 * the other array lets compilers build the pass in place around one pointer. */
struct InArray {
  const float* x;
  JURN_INLINED Floats at(ptrdiff_t i) const { return load_once(x + i); }
};

struct InOther : InArray {};

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
 * ones of length/8. Of the length/8 columns those from first to last - 1, multiples of 16. */
template <class Source>
static void split_forward(float* x, int length, const float* w, Source source, ptrdiff_t first,
                          ptrdiff_t last) {
  const ptrdiff_t eighth = length / 8;
  const float* t = real_twiddles(w, length) + 6 * first;
  const Floats half = broadcast<Floats>(sqrt_half);
  for (ptrdiff_t i = first; i < last; i += 16, t += 96) {
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

/** Undoes split_forward, from x to out, which may be x. Of the samples the last half alone, if
 * `last_half`; out may then be where x has it. */
template <bool last_half>
static void split_inverse(const float* x, int length, const float* w, float scale, float* out,
                          ptrdiff_t first, ptrdiff_t last) {
  const ptrdiff_t eighth = length / 8;
  const float* t = real_twiddles(w, length) + 6 * first;
  const Floats half = broadcast<Floats>(sqrt_half), gain = broadcast<Floats>(scale);
  for (ptrdiff_t i = first; i < last; i += 16, t += 96) {
    for (int lane = 0; lane < 16; lane += lane_count) {
      const float* const p = x + i + lane;
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
      float* y = out + i + lane;
      if constexpr (!last_half) {
        store(y, (s0 + d0) * gain);
        store(y + eighth, (s1 + d1) * gain);
        store(y + 2 * eighth, (s2 - d2) * gain);
        store(y + 3 * eighth, (s3 + d3) * gain);
        y += 4 * eighth;
      }
      store(y, (s0 - d0) * gain);
      store(y + eighth, (s1 - d1) * gain);
      store(y + 2 * eighth, (s2 + d2) * gain);
      store(y + 3 * eighth, (s3 - d3) * gain);
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
