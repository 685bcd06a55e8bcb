#include "../../../../common/simd/groups.inl"
#include "../../../../common/simd/sample_lanes.inl"

/* The samples, coefficients and states of several mono records, one record per lane. */

/** What a call works on, by lane; lanes without a record repeat the first one, so that they decide
 * nothing, and their outputs are dropped. */
template <int lanes>
struct CascadeRecords {
  int records;
  const float* b[lanes];
  const float* a[lanes];
  const short* input[lanes];
  short* output[lanes];
  float* px[lanes];
  float* py[lanes];
};

template <int lanes, class Array>
JURN_INLINE Vec<float, lanes> gather_lanes(const Array (&arrays)[lanes], int entry) {
  float all[lanes];
  for (int k = 0; k < lanes; ++k) all[k] = arrays[k][entry];
  return load<Vec<float, lanes>>(all);
}

template <int lanes>
JURN_INLINE void scatter_lanes(Vec<float, lanes> v, float* const (&arrays)[lanes], int entry,
                               int records) {
  float all[lanes];
  store(all, v);
  for (int k = 0; k < records; ++k) arrays[k][entry] = all[k];
}

/** Four frames of all records as vectors over the records, from int16 and back. */
template <int lanes>
JURN_INLINE void read_frames(Vec<float, lanes> (&v)[4], const CascadeRecords<lanes>& r, int time) {
  using Int = Vec<int, 4>;
  JURN_UNROLL
  for (int k = 0; k < 4; ++k) {
    const Int low = widen_samples<Int>(r.input[k] + time);
    if constexpr (lanes == 4) {
      v[k] = convert<Vec<float, 4>>(low);
    } else {
      const Int high = widen_samples<Int>(r.input[k + 4] + time);
      v[k] = convert<Vec<float, 8>>(JURN_SHUFFLE(low, high, 0, 1, 2, 3, 4, 5, 6, 7));
    }
  }
  transpose(v[0], v[1], v[2], v[3]);
}

template <int lanes>
JURN_INLINE void write_frames(Vec<float, lanes> (&v)[4], const CascadeRecords<lanes>& r, int time) {
  transpose(v[0], v[1], v[2], v[3]);
  JURN_UNROLL
  for (int k = 0; k < 4; k += 2) {
    const auto fours =
        pack_groups(sample_lanes<Vec<int, lanes>>(v[k]), sample_lanes<Vec<int, lanes>>(v[k + 1]));
    store(r.output[k] + time, fours[0]);
    store(r.output[k + 1] + time, fours[1]);
    if constexpr (lanes == 8) {
      store(r.output[k + 4] + time, fours[2]);
      store(r.output[k + 5] + time, fours[3]);
    }
  }
}
