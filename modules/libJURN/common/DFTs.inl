/* The real FFT, once per instruction set.
 *
 * What makes it fast:
 * - A real sequence of M is split, eight samples a time, into a real sequence of M/4 and three
 *   complex ones of M/8: three levels in one pass, without a pass that unpacks real bins. The real
 *   quarter is split again, down to 16 samples.
 * - The complex transforms run decimation in frequency, radix 4, the inverse decimation in time;
 *   nothing is ever put in order. The last seven levels, blocks of 128 values (64 and 256 for some
 *   lengths), stay in the registers of AVX-512. The transforms of 16 in them turn from rows to
 *   columns by a 4 x 4 transposition inside each group of four lanes; wide vectors take several
 *   such tiles side by side.
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

#include "transforms/complex.inl"
#include "transforms/real.inl"

static short forward(const float* w, float* x, int length) {
  for (; length >= 128; length /= 4) {
    split_forward(x, length, w, InArray{x}, 0, length / 8);
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
  split_forward(x, length, w, source, 0, length / 8);
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
    split_inverse<false>(x, n, w, scale_at(n), x, 0, n / 8);
  }
}

static short inverse(const float* w, float* x, int length, float scale) {
  inverse_from(w, x, length, scale, InPlace());
  return 0;
}

/** inverse, of which the last half of the samples alone is put out. */
static void inverse_half(const float* w, float* x, int length, float scale, float* half) {
  if (length < 128) {
    inverse(w, x, length, scale);
    memmove(half, x + length / 2, length / 2 * sizeof(float));
  } else {
    inverse(w, x, length / 4, 1.f);
    complex_inverse(x + length / 4, length / 8, w, InPlace());
    split_inverse<true>(x, length, w, scale, half, 0, length / 8);
  }
}

/** inverse(out = a b), where the product is taken as the first pass reads it. */
static void inverse_product(const float* w, float* out, const float* a, const float* b, int length,
                            float scale) {
  product(out, a, b, base_length(length));
  inverse_from(w, out, length, scale, Product{out, a, b});
}

#include "transforms/steps.inl"
