/* Vectors made of groups of four lanes. */

/** Shuffles all groups alike: lanes 0 to 3 are those of a's group, 4 to 7 those of b's. */
template <int i, int j, int k, int l, class V>
JURN_INLINE V shuffle_groups(V a, V b) {
  constexpr int n = int(sizeof(V) / 4);
  constexpr int i0 = i < 4 ? i : i - 4 + n, j0 = j < 4 ? j : j - 4 + n;
  constexpr int k0 = k < 4 ? k : k - 4 + n, l0 = l < 4 ? l : l - 4 + n;
  if constexpr (n == 4) {
    return JURN_SHUFFLE(a, b, i0, j0, k0, l0);
  } else if constexpr (n == 8) {
    return JURN_SHUFFLE(a, b, i0, j0, k0, l0, i0 + 4, j0 + 4, k0 + 4, l0 + 4);
  } else {
    return JURN_SHUFFLE(a, b, i0, j0, k0, l0, i0 + 4, j0 + 4, k0 + 4, l0 + 4, i0 + 8, j0 + 8,
                        k0 + 8, l0 + 8, i0 + 12, j0 + 12, k0 + 12, l0 + 12);
  }
}

/** Turns rows into columns inside each group of four lanes. */
template <class V>
JURN_INLINE void transpose(V& a, V& b, V& c, V& d) {
  const V ab01 = shuffle_groups<0, 4, 1, 5>(a, b), ab23 = shuffle_groups<2, 6, 3, 7>(a, b);
  const V cd01 = shuffle_groups<0, 4, 1, 5>(c, d), cd23 = shuffle_groups<2, 6, 3, 7>(c, d);
  a = shuffle_groups<0, 1, 4, 5>(ab01, cd01);
  b = shuffle_groups<2, 3, 6, 7>(ab01, cd01);
  c = shuffle_groups<0, 1, 4, 5>(ab23, cd23);
  d = shuffle_groups<2, 3, 6, 7>(ab23, cd23);
}
