/* The operations of the kernels on operands that betray a compiler's liberties. The operands come
 * from volatile memory, so nothing is worked out while compiling. */

/** Numbers of a precision. */
template <class Real>
struct Probe {
  static constexpr bool is_float = sizeof(Real) == 4;
  static constexpr Real step = is_float ? Real(0x1p-23) : Real(0x1p-52);      // from 1 on
  static constexpr Real half_way = is_float ? Real(0x1p-13) : Real(0x1p-27);  // squared, step / 8
  static constexpr Real smallest = is_float ? Real(0x1p-126) : Real(0x1p-1022);  // normal number
};

/** V is Real itself or a vector of it. */
template <class V, class Real>
JURN_INLINE V value(Real x) {
  const volatile Real hidden = x;
  Real lane[sizeof(V) / sizeof(Real)];  // NOLINT(bugprone-sizeof-expression): V may be Real
  for (Real& entry : lane) entry = hidden;
  return load<V>(lane);
}

/** Whether every lane is x, and a zero of the same sign. */
template <class Real, class V>
JURN_INLINE bool all_are(V v, Real x) {
  Real lane[sizeof(V) / sizeof(Real)];  // NOLINT(bugprone-sizeof-expression)
  store(lane, v);
  for (const Real& entry : lane)
    if (memcmp(&entry, &x, sizeof x) != 0) return false;
  return true;
}

/** A product of its own for each use, since compilers fuse none that they need twice. */
template <class V, class Real>
JURN_INLINE V product(Real x) {
  return value<V>(x) * value<V>(x);
}

template <class Real, class V>
JURN_INLINE int broken_mode() {
  using P = Probe<Real>;
  int broken = 0;
  const V one = value<V>(Real(1)), quarter = value<V>(P::step / 4);
  if (!all_are(one + quarter, Real(1)) || !all_are(value<V>(Real(-1)) - quarter, Real(-1)) ||
      !all_are(one + quarter * value<V>(Real(3)), 1 + P::step))
    broken |= JURN_BROKEN_ROUNDING;
  if (!all_are(value<V>(P::smallest) * value<V>(Real(0.5)), P::smallest / 2))
    broken |= JURN_BROKEN_RESULTS;
  if (!all_are(value<V>(P::smallest / 2) * value<V>(Real(4)), 2 * P::smallest))
    broken |= JURN_BROKEN_OPERANDS;
  return broken;
}

/** In round-to-nearest. */
template <class Real, class V>
JURN_INLINE int broken_expressions() {
  using P = Probe<Real>;
  int broken = 0;
  const V zero{}, one = value<V>(Real(1));

  // (1 + e)^2 is e^2 larger than 1 + 2e, to which it is rounded.
  const V square = value<V>(1 + 2 * P::half_way);
  V sum = zero - square;
  sum += product<V>(1 + P::half_way);
  if (!all_are(sum, Real(0)) || !all_are(product<V>(1 + P::half_way) - square * one, Real(0)) ||
      !all_are(square * one - product<V>(1 + P::half_way), Real(0)) ||
      !all_are(square - product<V>(1 + P::half_way), Real(0)))
    broken |= JURN_BROKEN_PRODUCTS;

  // A quarter step is lost, however often it is added. Adding to 0 makes -0 a plain 0.
  const V quarter = value<V>(P::step / 4);
  sum = one + quarter;
  sum = sum + quarter + quarter + quarter;
  if (!all_are(sum - one, Real(0)) || !all_are((one + quarter) - one, Real(0)) ||
      !all_are(value<V>(-Real(0)) + zero, Real(0)))
    broken |= JURN_BROKEN_SUMS;
  return broken;
}

/** The same in a loop, which compilers like to cut into partial sums. */
template <class Real>
JURN_INLINE int broken_loop() {
  constexpr int most = 64;
  const int count = value<int>(most);
  Real x[most];
  for (int i = 0; i < count; ++i) x[i] = i == 0 ? Real(1) : value<Real>(Probe<Real>::step / 4);
  Real sum = 0;
  for (int i = 0; i < count; ++i) sum += x[i] * x[0];
  return sum == 1 ? 0 : JURN_BROKEN_SUMS;
}

template <class Real>
JURN_INLINE int broken_precision() {
  using V = Vec<Real, JURN_VECTOR_BYTES / sizeof(Real)>;
  const int mode = broken_mode<Real, Real>() | broken_mode<Real, V>();
  if (mode & JURN_BROKEN_ROUNDING) return mode;
  return mode | broken_expressions<Real, Real>() | broken_expressions<Real, V>() |
         broken_loop<Real>();
}

int self_check() {
  const double tenth = 0.1;
  const bool exact = value<double>(tenth) != static_cast<double>(value<float>(0.1f));
  return (exact ? 0 : JURN_BROKEN_CONSTANTS) | broken_precision<float>() |
         broken_precision<double>();
}
