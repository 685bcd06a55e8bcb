#include "simd/sample_lanes.inl"

template <class Int>
JURN_INLINE Int pairs_of(Int first, Int second) {
  const Int low_half = broadcast<Int>(0xffff);
  return first_is_high ? (first << 16) | (second & low_half) : (first & low_half) | (second << 16);
}

template <class Sample>
JURN_INLINE void split_block(Sample* left, Sample* right, const short* in, int frames) {
  constexpr int lanes = JURN_VECTOR_BYTES / sizeof(int);
  using Int = Vec<int, lanes>;
  using Out = Vec<Sample, lanes>;
  int i = 0;
  for (; i + lanes <= frames; i += lanes) {
    const Int pairs = load<Int>(in + 2 * i);
    store(left + i, convert<Out>(first_of(pairs)));
    store(right + i, convert<Out>(second_of(pairs)));
  }
  for (; i < frames; ++i) {
    left[i] = in[2 * i];
    right[i] = in[2 * i + 1];
  }
}

JURN_INLINE short to_sample(float x) {
  return stoshort(x);
}
JURN_INLINE short to_sample(short x) {
  return x;
}

template <class Int, int lanes>
JURN_INLINE Int int_samples(const float* in) {
  return sample_lanes<Int>(load<Vec<float, lanes>>(in));
}
template <class Int, int lanes>
JURN_INLINE Int int_samples(const short* in) {
  return widen_samples<Int>(in);
}

template <class Sample>
JURN_INLINE void join_block(short* out, const Sample* left, const Sample* right, int frames) {
  constexpr int lanes = JURN_VECTOR_BYTES / sizeof(int);
  using Int = Vec<int, lanes>;
  int i = 0;
  for (; i + lanes <= frames; i += lanes)
    store(out + 2 * i,
          pairs_of(int_samples<Int, lanes>(left + i), int_samples<Int, lanes>(right + i)));
  for (; i < frames; ++i) {
    out[2 * i] = to_sample(left[i]);
    out[2 * i + 1] = to_sample(right[i]);
  }
}

void to_float(float* out, const short* in, int count) {
  widen(out, in, count);
}
void to_short(short* out, const float* in, int count) {
  narrow(out, in, count);
}
void split(float* left, float* right, const short* in, int frames) {
  split_block(left, right, in, frames);
}
void split(short* left, short* right, const short* in, int frames) {
  split_block(left, right, in, frames);
}
void join(short* out, const float* left, const float* right, int frames) {
  join_block(out, left, right, frames);
}
void join(short* out, const short* left, const short* right, int frames) {
  join_block(out, left, right, frames);
}
