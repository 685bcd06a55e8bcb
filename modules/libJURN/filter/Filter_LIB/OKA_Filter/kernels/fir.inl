#include "../../../../common/simd/sample_lanes.inl"

/* Inner products of an FIR, or of an IIR's numerator, for a run of outputs.
 *
 * Outputs lie in the lanes of `group` vectors that stay in registers while the taps go by, so each
 * output still sums its taps in increasing order and the multipliers never wait for a sum. Loads
 * are what is short: most of them cross a cache line. So every other vector runs one vector's width
 * of taps ahead of the one before it, which makes both need the same samples: one load serves two.
 * Samples are widened once per tile; tiles of taps leave their partial sums in a small array, which
 * keeps everything in the first cache and the stack the same whatever the tap count. */

/** Adds the taps from begin to end to every other vector of sums, from the first or the second on;
 * x points to the first output's sample. */
template <int first, int group, class V, class Sum>
JURN_INLINE void add_to_every_other(V (&acc)[group], const Sum* x, const Sum* taps, int begin,
                                    int end) {
  constexpr int lanes = sizeof(V) / sizeof(Sum);
  for (int j = begin; j < end; ++j) {
    const V tap = broadcast<V>(taps[j]);
    JURN_UNROLL
    for (int k = first; k < group; k += 2) acc[k] += tap * load<V>(x + k * lanes - j);
  }
}

/** Adds count taps to the sums of `group` vectors of outputs; the first taps start the sums. */
template <int group, class Sum>
JURN_INLINE void fir_group(Sum* sums, const Sum* x, const Sum* taps, int count, bool starts) {
  constexpr int lanes = JURN_VECTOR_BYTES / sizeof(Sum);
  using V = Vec<Sum, lanes>;
  V acc[group] = {};
  if (!starts) {
    JURN_UNROLL
    for (int k = 0; k < group; ++k) acc[k] = load<V>(sums + k * lanes);
  }
  const int ahead = count < lanes ? count : lanes;
  add_to_every_other<1>(acc, x, taps, 0, ahead);
  for (int j = 0; j < count - ahead; ++j) {
    const V tap = broadcast<V>(taps[j]);
    const V tap_ahead = broadcast<V>(taps[j + ahead]);
    JURN_UNROLL
    for (int k = 0; k < group; k += 2) {
      V samples = load<V>(x + k * lanes - j);
      JURN_LOADED_ONCE(samples);
      acc[k] += tap * samples;
      if (k + 1 < group) acc[k + 1] += tap_ahead * samples;
    }
  }
  add_to_every_other<0>(acc, x, taps, count - ahead, count);
  JURN_UNROLL
  for (int k = 0; k < group; ++k) store(sums + k * lanes, acc[k]);
}

/** Covers `outputs` outputs, up to whole vectors, with groups of `group`, and the rest with smaller
 * groups. */
template <int group, class Sum>
JURN_INLINE void fir_groups(Sum* sums, const Sum* x, const Sum* taps, int count, bool starts,
                            int outputs) {
  constexpr int lanes = JURN_VECTOR_BYTES / sizeof(Sum);
  constexpr int step = group * lanes;
  for (; outputs > step - lanes; outputs -= step, sums += step, x += step)
    fir_group<group>(sums, x, taps, count, starts);
  if constexpr (group > 1)
    if (outputs > 0) fir_groups<(group > 8 ? 8 : group / 2)>(sums, x, taps, count, starts, outputs);
}

/** Sums of a tile of outputs and of taps: 3840 and 2048 bytes of them, in float or in double. */
template <class Sum>
struct FirTile {
  static constexpr int outputs = 3840 / sizeof(Sum);
  static constexpr int taps = 2048 / sizeof(Sum);
};

/** sums[i] = sum over j of taps[j] x[i - j] for i < count, at most a tile of outputs; the array
 * has room for the whole tile. */
template <class Sum, class Sample>
JURN_INLINE void fir_tile(Sum* sums, const Sample* x, int count, const Sum* taps, int tap_count) {
  constexpr int lanes = JURN_VECTOR_BYTES / sizeof(Sum);
  constexpr int group = 10;
  using Tile = FirTile<Sum>;
  Sum window[Tile::outputs + Tile::taps];
  const int padded = (count + lanes - 1) / lanes * lanes;
  for (int first = 0; first < tap_count; first += Tile::taps) {
    const int taps_here = tap_count - first < Tile::taps ? tap_count - first : Tile::taps;
    const int past = taps_here - 1;
    widen(window, x - first - past, past + count);
    memset(window + past + count, 0, (padded - count) * sizeof(Sum));
    fir_groups<group>(sums, window + past, taps + first, taps_here, first == 0, count);
  }
}

/** out[i] = sum over j of taps[j] x[i - j] for i < count, in Sum; a narrower Out by narrow. */
template <class Out, class Sample, class Sum>
JURN_INLINE void fir_outputs(Out* out, const Sample* x, int count, const Sum* taps, int tap_count) {
  constexpr int tile = FirTile<Sum>::outputs;
  Sum sums[tile];
  for (int i = 0; i < count; i += tile) {
    const int here = count - i < tile ? count - i : tile;
    fir_tile(sums, x + i, here, taps, tap_count);
    if constexpr (sizeof(Out) == sizeof(Sum))
      memcpy(out + i, sums, here * sizeof(Sum));
    else
      narrow(out + i, sums, here);
  }
}
