/* The running sum in the lanes: a prefix sum of the differences between the arriving and the
 * leaving samples, added to the sum so far. Sums are exact integers, so the order does not matter.
 */

/** Sum of a lane and all lanes before it. */
JURN_INLINE Vec<int, 4> prefix_sum(Vec<int, 4> v) {
  const Vec<int, 4> zero{};
  v += JURN_SHUFFLE(zero, v, 3, 4, 5, 6);
  return v + JURN_SHUFFLE(zero, v, 2, 3, 4, 5);
}
JURN_INLINE Vec<int, 4> last_lane(Vec<int, 4> v) {
  return JURN_SHUFFLE(v, v, 3, 3, 3, 3);
}
#if JURN_VECTOR_BYTES >= 32
JURN_INLINE Vec<int, 8> prefix_sum(Vec<int, 8> v) {
  const Vec<int, 8> zero{};
  v += JURN_SHUFFLE(zero, v, 0, 8, 9, 10, 0, 12, 13, 14);  // within each half first
  v += JURN_SHUFFLE(zero, v, 0, 0, 8, 9, 0, 0, 12, 13);
  return v + JURN_SHUFFLE(zero, v, 0, 0, 0, 0, 11, 11, 11, 11);
}
JURN_INLINE Vec<int, 8> last_lane(Vec<int, 8> v) {
  return JURN_SHUFFLE(v, v, 7, 7, 7, 7, 7, 7, 7, 7);
}
#endif

/** A run of samples that does not cross the end of the ring; returns how many were taken, a whole
 * number of vectors. */
int mean_run(short* output, const short* input, int count, short* ring, float scale, int* sum) {
  constexpr int lanes = JURN_VECTOR_BYTES >= 32 ? 8 : 4;
  using Int = Vec<int, lanes>;
  using Float = Vec<float, lanes>;
  using Short = Vec<short, lanes>;
  Int before = broadcast<Int>(*sum);  // stays in the vector unit from step to step
  int i = 0;
  for (; i + lanes <= count; i += lanes) {
    const Int arriving = widen_samples<Int>(input + i);
    const Int sums = before + prefix_sum(arriving - widen_samples<Int>(ring + i));
    store(ring + i, load<Short>(input + i));
    const Float means = broadcast<Float>(scale) * convert<Float>(sums);
    store(output + i, convert<Short>(convert<Int>(means)));
    before = last_lane(sums);
  }
  *sum = before[0];
  return i;
}
