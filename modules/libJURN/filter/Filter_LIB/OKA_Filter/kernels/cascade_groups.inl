/* Cascades of four records, several sections in one vector: a group of four lanes holds one section
 * of all records, the next group the next section, two samples behind. So a step costs the latency
 * of one section and takes all records one sample further. Sections sit in the topmost groups, so
 * that the last one's outputs are always in the same lanes. The first and last steps, when some
 * groups have no sample, run masked. */

constexpr int group_lanes = 4;

template <int order, int lanes>
struct GroupedSections {
  using Float = Vec<float, lanes>;
  using Int = Vec<int, lanes>;

  Float b[order + 1];
  Float a[order + 1];  // a[0] is not used
  Float x[order + 1];  // x[j] is the input j samples back
  Float y[order + 1];  // y[j] the output j samples back
  Float previous;      // the outputs of the last step, also of lanes without a sample,
  Float late;          // and of the one before, which the next group takes as its input
  Int first;           // -1 in the lanes of the first section
  Int small;           // the bits of 1e-6f in the lanes that hold a section, in others -1
  Int delay;           // samples by which a lane is behind the first section
};

/** The bits of the absolute values. They are ordered as the values, NaNs above all. */
template <int lanes>
JURN_INLINE Vec<int, lanes> magnitude(Vec<float, lanes> v) {
  return (Vec<int, lanes>)v & 0x7fffffff;
}

/** Not 0 where a lane is at most its bound. */
JURN_INLINE int any_at_most(Vec<int, 8> v, Vec<int, 8> bound) {
  return __builtin_ia32_movmskps256((Vec<float, 8>)(v <= bound));
}
#if JURN_VECTOR_BYTES == 64
JURN_INLINE int any_at_most(Vec<int, 16> v, Vec<int, 16> bound) {
  constexpr int less_or_equal = 2;
  return __builtin_ia32_cmpd512_mask(v, bound, less_or_equal, 0xffff);
}
#endif

/** The first group in every group. */
template <int lanes>
JURN_INLINE Vec<float, lanes> every_group(Vec<float, lanes> v) {
  if constexpr (lanes == 8)
    return JURN_SHUFFLE(v, v, 0, 1, 2, 3, 0, 1, 2, 3);
  else
    return JURN_SHUFFLE(v, v, 0, 1, 2, 3, 0, 1, 2, 3, 0, 1, 2, 3, 0, 1, 2, 3);
}

/** The topmost group of `before` and all but the topmost of v: every group's outputs where the next
 * one has its inputs. */
template <int lanes>
JURN_INLINE Vec<float, lanes> next_group(Vec<float, lanes> before, Vec<float, lanes> v) {
  if constexpr (lanes == 8)
    return JURN_SHUFFLE(before, v, 4, 5, 6, 7, 8, 9, 10, 11);
  else
    return JURN_SHUFFLE(before, v, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27);
}

template <int lanes>
JURN_INLINE Vec<float, group_lanes> topmost_group(Vec<float, lanes> v) {
  if constexpr (lanes == 8)
    return JURN_SHUFFLE(v, v, 4, 5, 6, 7);
  else
    return JURN_SHUFFLE(v, v, 12, 13, 14, 15);
}

/** One step of all vectors, from a sample of each record, in every group, to the last vector's
 * outputs. */
template <bool masked, int vectors, int order, int lanes>
JURN_INLINE Vec<float, lanes> step_groups(GroupedSections<order, lanes> (&s)[vectors],
                                          Vec<float, lanes> samples, int time, int frames) {
  using Float = Vec<float, lanes>;
  using Int = Vec<int, lanes>;
  Float x[vectors], y[vectors];
  int any_small = 0;
  JURN_UNROLL
  for (int v = 0; v < vectors; ++v) {
    const auto late = [&](int k) JURN_INLINED { return masked ? s[k].late : s[k].y[2]; };
    x[v] = next_group<lanes>(late(v == 0 ? 0 : v - 1), late(v));
    if (v == 0) x[v] = select(s[v].first, samples, x[v]);
    y[v] = x[v] * s[v].b[0];
    JURN_UNROLL
    for (int j = 1; j <= order; ++j) y[v] += s[v].b[j] * s[v].x[j] - s[v].a[j] * s[v].y[j];
    any_small |= any_at_most(magnitude<lanes>(y[v]), s[v].small);
  }
  if (JURN_UNLIKELY(any_small)) {
    JURN_UNROLL
    for (int v = 0; v < vectors; ++v)
      y[v] = select(magnitude<lanes>(y[v]) <= s[v].small, Float{}, y[v]);
  }
  JURN_UNROLL
  for (int v = 0; v < vectors; ++v) {
    Int active{};
    if constexpr (masked) {
      const Int at = broadcast<Int>(time) - s[v].delay;
      active = (at >= Int{}) & (at < broadcast<Int>(frames));
      s[v].late = s[v].previous;
      s[v].previous = y[v];
    }
    const auto put = [&](Float& state, Float value)
                         JURN_INLINED { state = masked ? select(active, value, state) : value; };
    JURN_UNROLL
    for (int j = order; j >= 2; --j) {
      put(s[v].x[j], s[v].x[j - 1]);
      put(s[v].y[j], s[v].y[j - 1]);
    }
    put(s[v].x[1], x[v]);
    put(s[v].y[1], y[v]);
  }
  return y[vectors - 1];
}

template <int lanes>
JURN_INLINE Vec<float, lanes> widen_fours(Vec<long long, lanes / 4> fours) {
  return convert<Vec<float, lanes>>(convert<Vec<int, lanes>>((Vec<short, lanes>)fours));
}

/** Four frames of all records, each in every group, from int16. */
template <int lanes>
JURN_INLINE void read_groups(Vec<float, lanes> (&v)[4], const CascadeRecords<group_lanes>& r,
                             int time) {
  using Fours = Vec<long long, lanes / 4>;
  const auto four = [&](int k) JURN_INLINED { return load<long long>(r.input[k] + time); };
  if constexpr (lanes == 16) {  // frame by frame in one vector
    const auto all = widen_fours<lanes>(Fours{four(0), four(1), four(2), four(3)});
    v[0] = JURN_SHUFFLE(all, all, 0, 4, 8, 12, 0, 4, 8, 12, 0, 4, 8, 12, 0, 4, 8, 12);
    v[1] = JURN_SHUFFLE(all, all, 1, 5, 9, 13, 1, 5, 9, 13, 1, 5, 9, 13, 1, 5, 9, 13);
    v[2] = JURN_SHUFFLE(all, all, 2, 6, 10, 14, 2, 6, 10, 14, 2, 6, 10, 14, 2, 6, 10, 14);
    v[3] = JURN_SHUFFLE(all, all, 3, 7, 11, 15, 3, 7, 11, 15, 3, 7, 11, 15, 3, 7, 11, 15);
  } else {
    JURN_UNROLL
    for (int k = 0; k < 4; ++k) v[k] = widen_fours<lanes>(broadcast<Fours>(four(k)));
    transpose(v[0], v[1], v[2], v[3]);
  }
}

/** Four frames of outputs, which are in the topmost groups, to int16. */
template <int lanes>
JURN_INLINE void write_groups(const Vec<float, lanes> (&v)[4], const CascadeRecords<group_lanes>& r,
                              int time) {
  if constexpr (lanes == 16) {
    using Float = Vec<float, lanes>;
    const Float low =
        JURN_SHUFFLE(v[0], v[1], 12, 13, 14, 15, 12, 13, 14, 15, 28, 29, 30, 31, 28, 29, 30, 31);
    const Float high =
        JURN_SHUFFLE(v[2], v[3], 12, 13, 14, 15, 12, 13, 14, 15, 28, 29, 30, 31, 28, 29, 30, 31);
    const Float frames =
        JURN_SHUFFLE(low, high, 0, 1, 2, 3, 8, 9, 10, 11, 16, 17, 18, 19, 24, 25, 26, 27);
    const Float all =
        JURN_SHUFFLE(frames, frames, 0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15);
    const auto fours =
        (Vec<long long, 4>)convert<Vec<short, lanes>>(sample_lanes<Vec<int, lanes>>(all));
    JURN_UNROLL
    for (int k = 0; k < group_lanes; ++k) store(r.output[k] + time, fours[k]);
  } else {
    Vec<float, group_lanes> top[4];
    JURN_UNROLL
    for (int k = 0; k < 4; ++k) top[k] = topmost_group<lanes>(v[k]);
    write_frames<4>(top, r, time);
  }
}

/** The entries of a section after another, `stride` apart, of all records: into the lanes of the
 * vectors that hold a section, and from them back. */
JURN_NOINLINE void gather_groups(float* lanes, const float* const (&arrays)[group_lanes], int count,
                                 int stride, int entry) {
  for (int k = 0; k < count; ++k)
    for (int i = 0; i < group_lanes; ++i)
      lanes[k * group_lanes + i] = arrays[i][entry + k * stride];
}
JURN_NOINLINE void scatter_groups(const float* lanes, float* const (&arrays)[group_lanes], int used,
                                  int count, int stride, int entry) {
  for (int k = 0; k < count; ++k)
    for (int i = 0; i < used; ++i) arrays[i][entry + k * stride] = lanes[k * group_lanes + i];
}

/** Frames through `count` sections behind `before` others, from the block or, behind the first
 * pass, from `chunk`, and into the chunk or, in the last pass, into the block. */
template <int vectors, int order, int lanes>
JURN_NOINLINE void run_groups(const CascadeRecords<group_lanes>& all, int before, int count,
                              bool first, bool last, int begin, int frames,
                              Vec<float, group_lanes>* chunk) {
  using Float = Vec<float, lanes>;
  using Int = Vec<int, lanes>;
  constexpr int stride = order + 1;
  const CascadeRecords<group_lanes> r = all;  // of this function alone: stores leave it as it is
  const int unused = vectors * lanes - count * group_lanes;
  GroupedSections<order, lanes> s[vectors];
  float flat[vectors * lanes] = {};
  const auto gather = [&](const auto& arrays, int j, auto member) {
    gather_groups(flat + unused, arrays, count, stride, before * stride + j);
    for (int v = 0; v < vectors; ++v) member(s[v]) = load<Float>(flat + v * lanes);
  };
  JURN_UNROLL
  for (int j = 0; j <= order; ++j) {
    gather(r.b, j, [j](auto& section) -> Float& { return section.b[j]; });
    if (j == 0) continue;
    gather(r.a, j, [j](auto& section) -> Float& { return section.a[j]; });
    gather(r.px, j, [j](auto& section) -> Float& { return section.x[j]; });
    gather(r.py, j, [j](auto& section) -> Float& { return section.y[j]; });
  }
  int bits;
  const float small = 1e-6f;
  memcpy(&bits, &small, sizeof bits);
  for (int v = 0; v < vectors; ++v) {
    int section[lanes];  // -1 and below in lanes without one
    for (int k = 0; k < lanes; ++k)
      section[k] = (v * lanes + k + group_lanes - unused) / group_lanes - 1;
    const Int number = load<Int>(section);
    s[v].first = number == Int{};
    s[v].small = select(number >= Int{}, broadcast<Int>(bits), broadcast<Int>(-1));
    s[v].delay = number + number;
    s[v].previous = s[v].late = Float{};
  }

  const int last_delay = 2 * (count - 1);
  const auto masked_steps = [&](int time, int end) {
    for (; time < end; ++time) {
      float samples[lanes] = {};
      for (int k = 0; k < lanes && time < frames; ++k)
        samples[k] = first ? r.input[k % group_lanes][begin + time] : chunk[time][k % group_lanes];
      const auto y = topmost_group<lanes>(step_groups<true>(s, load<Float>(samples), time, frames));
      const int done = time - last_delay;
      if (done >= 0 && last) {
        float of_records[group_lanes];
        store(of_records, y);
        for (int k = 0; k < r.records; ++k) r.output[k][begin + done] = stoshort(of_records[k]);
      } else if (done >= 0) {
        chunk[done] = y;
      }
    }
  };
  masked_steps(0, last_delay);
  int time = last_delay;
  if (time + 4 <= frames) {
    GroupedSections<order, lanes> fast[vectors];  // never in memory, as s is for the masked steps
    JURN_UNROLL
    for (int v = 0; v < vectors; ++v) fast[v] = s[v];
    for (; time + 4 <= frames; time += 4) {
      Float x[4];
      if (first) {
        read_groups<lanes>(x, r, begin + time);
      } else {
        JURN_UNROLL
        for (int k = 0; k < 4; ++k) x[k] = every_group<lanes>(load<Float>(chunk + time + k));
      }
      JURN_UNROLL
      for (int k = 0; k < 4; ++k) x[k] = step_groups<false>(fast, x[k], 0, 0);
      if (last) {
        write_groups<lanes>(x, r, begin + time - last_delay);
      } else {
        JURN_UNROLL
        for (int k = 0; k < 4; ++k) chunk[time - last_delay + k] = topmost_group<lanes>(x[k]);
      }
    }
    JURN_UNROLL
    for (int v = 0; v < vectors; ++v) {
      s[v] = fast[v];
      s[v].previous = s[v].y[1];
      s[v].late = s[v].y[2];
    }
  }
  masked_steps(time, frames + last_delay);

  const auto scatter = [&](float* const(&arrays)[group_lanes], int j, auto member) {
    for (int v = 0; v < vectors; ++v) store(flat + v * lanes, member(s[v]));
    scatter_groups(flat + unused, arrays, r.records, count, stride, before * stride + j);
  };
  scatter(r.px, 0, [](auto& section) { return section.x[1]; });
  JURN_UNROLL
  for (int j = 1; j <= order; ++j) {
    scatter(r.px, j, [j](auto& section) { return section.x[j]; });
    scatter(r.py, j, [j](auto& section) { return section.y[j]; });
  }
}
