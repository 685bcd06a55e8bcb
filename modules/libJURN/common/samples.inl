/* Conversions between sample types, a vector at a time. */

/** As stoshort, lane by lane; the samples are still ints. */
template <class Int, class Float>
JURN_INLINE Int sample_lanes(Float x) {
  const Int number = x == x;  // 0 in the lanes that hold a NaN
  const Float lowest = broadcast<Float>(-32768.0f);
  const Float highest = broadcast<Float>(32767.0f);
  x = select(x < lowest, lowest, x);
  x = select(x > highest, highest, x);
  return convert<Int>(x) & number;
}

/** Widens int16 to float or float to double. */
template <class To, class From>
JURN_INLINE void widen(To* out, const From* in, int count) {
  constexpr int lanes = JURN_VECTOR_BYTES / sizeof(To);
  using Wide = Vec<To, lanes>;
  int i = 0;
  for (; i + lanes <= count; i += lanes) {
    if constexpr (sizeof(From) == 2)
      store(out + i, convert<Wide>(convert<Vec<int, lanes>>(load<Vec<From, lanes>>(in + i))));
    else
      store(out + i, convert<Wide>(load<Vec<From, lanes>>(in + i)));
  }
  for (; i < count; ++i) out[i] = in[i];
}

/** Narrows float to int16 by stoshort. */
JURN_INLINE void narrow(short* out, const float* in, int count) {
  constexpr int lanes = JURN_VECTOR_BYTES / sizeof(float);
  using Int = Vec<int, lanes>;
  int i = 0;
  for (; i + lanes <= count; i += lanes)
    store(out + i, convert<Vec<short, lanes>>(sample_lanes<Int>(load<Vec<float, lanes>>(in + i))));
  for (; i < count; ++i) out[i] = stoshort(in[i]);
}

/** Narrows double to float, rounded to nearest. */
JURN_INLINE void narrow(float* out, const double* in, int count) {
  constexpr int lanes = JURN_VECTOR_BYTES / sizeof(double);
  int i = 0;
  for (; i + lanes <= count; i += lanes)
    store(out + i, convert<Vec<float, lanes>>(load<Vec<double, lanes>>(in + i)));
  for (; i < count; ++i) out[i] = static_cast<float>(in[i]);
}
