/* Steps of four samples through cascades of sections, once per instruction set.
 *
 * Several sections run side by side, one per lane: in an iteration section k of a pack works on the
 * step before that of section k - 1, whose outputs move on by one lane. So nothing waits for more
 * than one section, and no product is wasted. Two channels share a pack where both fit. A single
 * section has its four outputs in the lanes instead, and its two states in another vector; there
 * the chain from one step's states to the next, a product and two sums, sets the time. */

constexpr int native_lanes = JURN_VECTOR_BYTES / 8;

/* One section. */

/** Four samples, in as many vectors as they take. */
constexpr int wide = native_lanes > 4 ? 4 : native_lanes;
constexpr int parts = 4 / wide;
using Wide = Vec<double, wide>;

/** The states are in every lane, so that none has to be moved on the way to the next ones. */
struct Single {
  Wide c[parts], e[parts], d[4][parts];
  Wide p, q, r, f[3], g[3], s0, s1;

  Single(const double* coefficients, const double* states) {
    const auto at = [&](int i) { return coefficients[i * section_group]; };
    double columns[6][4] = {};
    for (int i = 0; i < 4; ++i) {
      columns[4][i] = at(section_c + i);
      columns[5][i] = at(section_e + i);
      columns[i][i] = at(section_b);
      for (int j = 0; j < i; ++j) columns[j][i] = at(section_e + i - j - 1);
    }
    for (int v = 0; v < parts; ++v) {
      for (int j = 0; j < 4; ++j) d[j][v] = load<Wide>(columns[j] + v * wide);
      c[v] = load<Wide>(columns[4] + v * wide);
      e[v] = load<Wide>(columns[5] + v * wide);
    }
    p = broadcast<Wide>(at(section_p));
    q = broadcast<Wide>(at(section_q));
    r = broadcast<Wide>(at(section_r));
    for (int j = 0; j < 3; ++j) {
      f[j] = broadcast<Wide>(at(section_f + j));
      g[j] = broadcast<Wide>(at(section_g + j));
    }
    s0 = broadcast<Wide>(states[0]);
    s1 = broadcast<Wide>(states[section_group]);
  }

  void keep(double* states) const {
    states[0] = s0[0];
    states[section_group] = s1[0];
  }
};

JURN_INLINE void run_step(Single& h, double* x) {
  const Wide zero = {};
  const Wide x0 = broadcast<Wide>(x[0]), x1 = broadcast<Wide>(x[1]);
  const Wide x2 = broadcast<Wide>(x[2]), x3 = broadcast<Wide>(x[3]);
  const Wide s0 = h.s0, s1 = h.s1;
  for (int v = 0; v < parts; ++v)
    store(x + v * wide,
          (h.c[v] * s0 + h.e[v] * s1) +
              ((((zero + h.d[0][v] * x0) + h.d[1][v] * x1) + h.d[2][v] * x2) + h.d[3][v] * x3));
  h.s0 = (h.p * s0 + h.q * s1) + (((zero + h.f[0] * x0) + h.f[1] * x1) + h.f[2] * x2);
  h.s1 = (h.p * s1 + h.r * s0) + ((((zero + h.g[0] * x0) + h.g[1] * x1) + h.g[2] * x2) + x3);
}

template <int channels>
JURN_INLINE void run_single(const SectionsChannel* channel, int steps, bool keep) {
  const int last = section_group - 1;
  Single first(channel[0].coefficients + last, channel[0].states + last);
  Single second(channel[channels - 1].coefficients + last, channel[channels - 1].states + last);
  double *x = channel[0].x, *other = channel[channels - 1].x;
  for (int t = 0; t < steps; ++t, x += 4, other += 4) {
    run_step(first, x);
    if constexpr (channels == 2) run_step(second, other);
  }
  if (!keep) return;
  first.keep(channel[0].states + last);
  if constexpr (channels == 2) second.keep(channel[1].states + last);
}

/* Packs of sections. */

/** Lane by lane the value one lane before, and 0 in the first lane of each chain. */
template <int chains, int lanes>
JURN_INLINE Vec<double, lanes> moved_on(Vec<double, lanes> y) {
  const Vec<double, lanes> zero = {};
  if constexpr (lanes == 2)
    return JURN_SHUFFLE(zero, y, 0, 2);
  else if constexpr (lanes == 4 && chains == 1)
    return JURN_SHUFFLE(zero, y, 0, 4, 5, 6);
  else if constexpr (lanes == 4)
    return JURN_SHUFFLE(zero, y, 0, 4, 0, 6);
  else if constexpr (chains == 1)
    return JURN_SHUFFLE(zero, y, 0, 8, 9, 10, 11, 12, 13, 14);
  else
    return JURN_SHUFFLE(zero, y, 0, 8, 9, 10, 0, 12, 13, 14);
}

/** lanes / chains sections of each of `chains` channels, from lane `first` of a list on. The first
 * `empty` of them are not there: their coefficients and states are 0. */
template <int chains, int lanes>
JURN_NOINLINE void run_pack(const SectionsChannel* channel, int first, int empty, int steps,
                            bool keep) {
  using V = Vec<double, lanes>;
  constexpr int sections = lanes / chains;
  constexpr int piece = sections < section_group ? sections : section_group;
  V h[section_h], s0, s1;
  const auto place = [&](int i, int values) {
    return (first + i) / section_group * (values * section_group) + (first + i) % section_group;
  };
  const auto gather = [&](V* out, int count, int values, auto from) {
    for (int index = 0; index < count; ++index) {
      double all[lanes];
      for (int chain = 0; chain < chains; ++chain)
        for (int i = 0; i < sections; i += piece)
          memcpy(all + chain * sections + i, from(chain) + place(i, values) + index * section_group,
                 piece * sizeof(double));
      out[index] = load<V>(all);
    }
  };
  V states[2];
  gather(h, section_h, section_coefficients,
         [&](int chain) { return channel[chain].coefficients; });
  gather(states, 2, section_states, [&](int chain) { return channel[chain].states; });
  s0 = states[0], s1 = states[1];

  double numbers[lanes];
  for (int i = 0; i < lanes; ++i) numbers[i] = i % sections;
  const V lane = load<V>(numbers);
  double entries[chains][lanes] = {};
  for (int chain = 0; chain < chains; ++chain) entries[chain][chain * sections + empty] = 1.0;
  const auto enters = [&](int chain) JURN_INLINED { return load<V>(entries[chain]) > V{}; };
  const auto entry = enters(0), other_entry = enters(chains - 1);
  const V zero = {};
  V y[4] = {};
  double* x[chains];
  for (int chain = 0; chain < chains; ++chain) x[chain] = channel[chain].x;

  // Iteration t: the section in lane `empty` takes step t, the last one gives step t - delay.
  const int delay = sections - 1 - empty;
  const auto iterate = [&](int t, auto takes, auto gives, auto masked) JURN_INLINED {
    V in[4];
    for (int j = 0; j < 4; ++j) {
      in[j] = moved_on<chains, lanes>(y[j]);
      if constexpr (takes) {
        in[j] = select(entry, broadcast<V>(x[0][4 * t + j]), in[j]);
        if constexpr (chains == 2)
          in[j] = select(other_entry, broadcast<V>(x[1][4 * t + j]), in[j]);
      }
    }
    y[0] = (h[section_c] * s0 + h[section_e] * s1) + (zero + h[section_b] * in[0]);
    y[1] = (h[section_c + 1] * s0 + h[section_e + 1] * s1) +
           ((zero + h[section_e] * in[0]) + h[section_b] * in[1]);
    y[2] = (h[section_c + 2] * s0 + h[section_e + 2] * s1) +
           (((zero + h[section_e + 1] * in[0]) + h[section_e] * in[1]) + h[section_b] * in[2]);
    y[3] =
        (h[section_c + 3] * s0 + h[section_e + 3] * s1) +
        ((((zero + h[section_e + 2] * in[0]) + h[section_e + 1] * in[1]) + h[section_e] * in[2]) +
         h[section_b] * in[3]);
    const V next0 =
        (h[section_p] * s0 + h[section_q] * s1) +
        (((zero + h[section_f] * in[0]) + h[section_f + 1] * in[1]) + h[section_f + 2] * in[2]);
    const V next1 =
        (h[section_p] * s1 + h[section_r] * s0) +
        ((((zero + h[section_g] * in[0]) + h[section_g + 1] * in[1]) + h[section_g + 2] * in[2]) +
         in[3]);
    if constexpr (masked) {
      const V at = broadcast<V>(static_cast<double>(t + empty)) - lane;  // each lane's step
      const auto works = (at >= zero) & (at < broadcast<V>(static_cast<double>(steps)));
      s0 = select(works, next0, s0);
      s1 = select(works, next1, s1);
    } else {
      s0 = next0;
      s1 = next1;
    }
    if constexpr (gives)
      for (int chain = 0; chain < chains; ++chain)
        for (int j = 0; j < 4; ++j)
          x[chain][4 * (t - delay) + j] = y[j][chain * sections + sections - 1];
  };
  const std::integral_constant<bool, true> yes;
  const std::integral_constant<bool, false> no;
  int t = 0;
  if (steps > delay) {
    for (; t < delay; ++t) iterate(t, yes, no, yes);
    for (; t < steps; ++t) iterate(t, yes, yes, no);
    for (; t < steps + delay; ++t) iterate(t, no, yes, yes);
  } else {
    for (; t < steps; ++t) iterate(t, yes, no, yes);
    for (; t < delay; ++t) iterate(t, no, no, yes);
    for (; t < steps + delay; ++t) iterate(t, no, yes, yes);
  }
  if (!keep) return;
  for (int index = 0; index < 2; ++index) {
    double all[lanes];
    store(all, index == 0 ? s0 : s1);
    for (int chain = 0; chain < chains; ++chain)
      for (int i = 0; i < sections; i += piece)
        memcpy(channel[chain].states + place(i, section_states) + index * section_group,
               all + chain * sections + i, piece * sizeof(double));
  }
}

/** One channel's packs, the empty places in front. */
JURN_INLINE void run_packs(const SectionsChannel* channel, int places, int empty, int steps,
                           bool keep) {
  for (int first = 0; first < places;) {
    if constexpr (native_lanes == 8) {
      if (places - first >= 8) {
        run_pack<1, 8>(channel, first, empty, steps, keep);
        empty = 0;
        first += 8;
        continue;
      }
    }
    if (native_lanes == 2 || places - first - empty == 2) {
      if (empty < 2) run_pack<1, 2>(channel, first, empty, steps, keep);
      empty = empty < 2 ? 0 : empty - 2;
      first += 2;
      continue;
    }
    if constexpr (native_lanes >= 4) {
      run_pack<1, 4>(channel, first, empty, steps, keep);
      empty = 0;
      first += 4;
    }
  }
}

/** One channel's packs, or both channels' where they fit side by side. */
template <int channels>
JURN_INLINE void run_channels(const SectionsChannel* channel, int sections, int steps, bool keep) {
  if (sections == 1) {
    run_single<channels>(channel, steps, keep);
    return;
  }
  const int places = (sections + section_group - 1) / section_group * section_group;
  if constexpr (channels == 2 && native_lanes > 2) {
    if (sections == 2) {
      run_pack<2, 4>(channel, places - 2, 0, steps, keep);
      return;
    }
  }
  if constexpr (channels == 2 && native_lanes == 8) {
    if (sections <= 4) {
      run_pack<2, 8>(channel, places - 4, places - sections, steps, keep);
      return;
    }
  }
  for (int c = 0; c < channels; ++c) run_packs(channel + c, places, places - sections, steps, keep);
}

static void run_sections(const SectionsChannel* channel, int channels, int sections, int steps,
                         bool keep) {
  if (channels == 2)
    run_channels<2>(channel, sections, steps, keep);
  else
    run_channels<1>(channel, sections, steps, keep);
}

/* Samples. */

/** Samples `stride` apart as doubles; those that are not finite become 0. Returns their number. */
template <class Sample>
JURN_INLINE int take_samples(double* x, const Sample* in, int stride, int count) {
  if (stride == 1)
    for (int i = 0; i < count; ++i) x[i] = static_cast<double>(in[i]);
  else if (stride == 2)
    for (int i = 0; i < count; ++i) x[i] = static_cast<double>(in[2 * i]);
  else
    for (int i = 0; i < count; ++i) x[i] = static_cast<double>(in[static_cast<size_t>(i) * stride]);
  if constexpr (std::is_same<Sample, short>::value) return 0;

  using V = Vec<double, native_lanes>;
  V sum = {};  // of differences that are 0, or no number
  int i = 0;
  for (; i + native_lanes <= count; i += native_lanes) {
    const V v = load<V>(x + i);
    sum += v - v;
  }
  double rest = 0;
  for (; i < count; ++i) rest += x[i] - x[i];
  for (int k = 0; k < native_lanes; ++k) rest += sum[k];
  if (rest == 0) return 0;
  int bad = 0;
  for (i = 0; i < count; ++i)
    if (x[i] - x[i] != 0) {
      x[i] = 0;
      ++bad;
    }
  return bad;
}

/** Rounds to the integers of int16, ties to even, and limits; NaN becomes 0. */
JURN_INLINE void round_samples(double* x, int count) {
  const double whole = 6755399441055744.0;  // 1.5 * 2^52: what is added to it becomes an integer
  using V = Vec<double, native_lanes>;
  const V lowest = broadcast<V>(-32768.0), highest = broadcast<V>(32767.0);
  const V integers = broadcast<V>(whole), zero = {};
  int i = 0;
  for (; i + native_lanes <= count; i += native_lanes) {
    V v = load<V>(x + i);
    v = select(v == v, v, zero);
    v = select(v > highest, highest, select(v < lowest, lowest, v));
    store(x + i, (v + integers) - integers);
  }
  for (; i < count; ++i) {
    const double limited = x[i] > 32767.0     ? 32767.0
                           : x[i] >= -32768.0 ? x[i]
                           : x[i] < -32768.0  ? -32768.0
                                              : 0.0;
    x[i] = (limited + whole) - whole;
  }
}

template <class Sample>
JURN_INLINE void give_samples(Sample* out, int stride, double* x, int count) {
  if constexpr (std::is_same<Sample, short>::value) round_samples(x, count);
  if (stride == 1)
    for (int i = 0; i < count; ++i) out[i] = static_cast<Sample>(x[i]);
  else if (stride == 2)
    for (int i = 0; i < count; ++i) out[2 * i] = static_cast<Sample>(x[i]);
  else
    for (int i = 0; i < count; ++i)
      out[static_cast<size_t>(i) * stride] = static_cast<Sample>(x[i]);
}

int take(double* x, const short* in, int stride, int count) {
  return take_samples(x, in, stride, count);
}
int take(double* x, const float* in, int stride, int count) {
  return take_samples(x, in, stride, count);
}
int take(double* x, const double* in, int stride, int count) {
  return take_samples(x, in, stride, count);
}
void give(short* out, int stride, double* x, int count) {
  give_samples(out, stride, x, count);
}
void give(float* out, int stride, double* x, int count) {
  give_samples(out, stride, x, count);
}
void give(double* out, int stride, double* x, int count) {
  give_samples(out, stride, x, count);
}
