/** One multiplication and one addition of `vectors` vectors each, again and again: as many
 * independent chains as hide the latency, all of them in registers. 0 + 0 and 1 * 1 stay what they
 * are and need no operand beside the chain itself. */
template <class Value>
JURN_INLINE void saturate(int count) {
  using V = Vec<Value, JURN_VECTOR_BYTES / sizeof(Value)>;
  V a0{}, a1{}, a2{}, a3{}, a4{}, a5{}, a6{}, a7{};
  const V one = broadcast<V>(Value(1));
  V m0 = one, m1 = one, m2 = one, m3 = one, m4 = one, m5 = one, m6 = one, m7 = one;
  for (int i = 0; i < count; ++i) {
#define JURN_PAIR(a, m) \
  a += a;               \
  m *= m;               \
  asm volatile("" : "+" JURN_REGISTER(a), "+" JURN_REGISTER(m))
    JURN_PAIR(a0, m0);
    JURN_PAIR(a1, m1);
    JURN_PAIR(a2, m2);
    JURN_PAIR(a3, m3);
    JURN_PAIR(a4, m4);
    JURN_PAIR(a5, m5);
    JURN_PAIR(a6, m6);
    JURN_PAIR(a7, m7);
#undef JURN_PAIR
  }
}

void saturate_float(int count) {
  saturate<float>(count);
}
void saturate_double(int count) {
  saturate<double>(count);
}
