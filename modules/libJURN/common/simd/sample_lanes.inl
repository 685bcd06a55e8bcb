/* Conversions between sample types, a vector at a time. */

/* An interleaved pair is handled as one int: its first sample in the low half on little-endian
 * machines, in the high half on big-endian ones. */
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
constexpr bool first_is_high = true;
#else
constexpr bool first_is_high = false;
#endif

template <class Int>
JURN_INLINE Int first_of(Int pairs) {
  return first_is_high ? pairs >> 16 : Int(pairs << 16) >> 16;
}

template <class Int>
JURN_INLINE Int second_of(Int pairs) {
  return first_is_high ? Int(pairs << 16) >> 16 : pairs >> 16;
}

/** As stoshort, lane by lane; the samples are still ints. */
template <class Int, class Float>
JURN_INLINE Int sample_lanes(Float x) {
#if JURN_NEON  // whose conversion saturates and makes a NaN 0
  const int32x4_t whole = vcvtq_s32_f32((float32x4_t)x);
  return (Int)vminq_s32(vmaxq_s32(whole, vdupq_n_s32(-32768)), vdupq_n_s32(32767));
#else
  const Int number = x == x;  // 0 in the lanes that hold a NaN
  const Float lowest = broadcast<Float>(-32768.0f);
  const Float highest = broadcast<Float>(32767.0f);
  return convert<Int>(smaller(larger(x, lowest), highest)) & number;
#endif
}

/** Widens int16 to float or float to double. */
template <class To, class From>
JURN_INLINE void widen(To* out, const From* in, int count) {
  constexpr int lanes = JURN_VECTOR_BYTES / sizeof(To);
  using Wide = Vec<To, lanes>;
  int i = 0;
  for (; i + lanes <= count; i += lanes) {
    if constexpr (sizeof(From) == 2)
      store(out + i, convert<Wide>(widen_samples<Vec<int, lanes>>(in + i)));
    else
      store(out + i, convert<Wide>(load<Vec<From, lanes>>(in + i)));
  }
  for (; i < count; ++i) out[i] = in[i];
}

/** Narrows two vectors of float to int16 by stoshort. */
JURN_INLINE void narrow_two(short* out, const float* in) {
  constexpr int lanes = JURN_VECTOR_BYTES / sizeof(float);
  using Int = Vec<int, lanes>;
  store_short(out, sample_lanes<Int>(load<Vec<float, lanes>>(in)),
              sample_lanes<Int>(load<Vec<float, lanes>>(in + lanes)));
}

/** Narrows float to int16 by stoshort; the last step goes over some samples again. */
JURN_INLINE void narrow(short* out, const float* in, int count) {
  constexpr int step = 2 * JURN_VECTOR_BYTES / sizeof(float);
  if (count < step) {
    for (int i = 0; i < count; ++i) out[i] = stoshort(in[i]);
    return;
  }
  for (int i = 0; i + step <= count; i += step) narrow_two(out + i, in + i);
  narrow_two(out + count - step, in + count - step);
}

/** Narrows double to float, rounded to nearest. */
JURN_INLINE void narrow(float* out, const double* in, int count) {
  constexpr int lanes = JURN_VECTOR_BYTES / sizeof(double);
  int i = 0;
  for (; i + lanes <= count; i += lanes)
    store(out + i, convert<Vec<float, lanes>>(load<Vec<double, lanes>>(in + i)));
  for (; i < count; ++i) out[i] = static_cast<float>(in[i]);
}
