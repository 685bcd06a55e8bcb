/* A cascade with its sections in the lanes of a vector.
 *
 * The feedback of one section is a chain of dependent operations, so one section leaves the machine
 * idle. Here lane s runs section s two samples behind lane s - 1: all sections advance one sample
 * per step for the latency of one, and the shift of their outputs to the next lane is off the
 * chain. Sections sit in the topmost lanes, so that the last one's output is always in the same
 * lane. The first and last steps, when some lanes have no sample, run masked.
 *
 * Setting small outputs to 0 is off the chain too: a branch that is hardly ever taken, and always
 * in silence, is predicted, so the next step does not wait for the comparison. */

template <int order, int lanes>
struct Sections {
  using Float = Vec<float, lanes>;
  using Int = Vec<int, lanes>;

  Float b[order + 1];
  Float a[order + 1];  // a[0] is not used
  Float x[order + 1];  // x[j] is the input j samples back
  Float y[order + 1];  // y[j] the output j samples back
  Float previous;      // the outputs of the last step, also of lanes without a sample,
  Float late;          // and of the one before: the next inputs, one lane further on; while all
                       // lanes have samples they are y[1] and y[2]
  Int first;           // -1 in the lane of the first section
  Int used;            // -1 in the lanes that hold a section
  Int delay;           // samples by which a lane is behind the first section
};

/** Moves every lane one up; the lowest, which nobody reads, gets the topmost, for CPUs that rotate.
 */
template <int lanes>
JURN_INLINE Vec<float, lanes> next_lane(Vec<float, lanes> v) {
  if constexpr (lanes == 4)
    return JURN_SHUFFLE(v, v, 3, 0, 1, 2);
  else
    return JURN_SHUFFLE(v, v, 7, 0, 1, 2, 3, 4, 5, 6);
}

/** The lanes of low in the lower half, those of high in the upper one. */
template <int lanes>
JURN_INLINE Vec<float, lanes> halves(Vec<float, lanes> low, Vec<float, lanes> high) {
  if constexpr (lanes == 4)
    return JURN_SHUFFLE(low, high, 0, 1, 6, 7);
  else
    return JURN_SHUFFLE(low, high, 0, 1, 2, 3, 12, 13, 14, 15);
}

/** Sets lanes of a state from arrays, and arrays from lanes. */
template <class V, class T>
JURN_INLINE void set_lanes(V& v, int lane, int count, const T* entries, int stride) {
  T all[sizeof(V) / sizeof(T)];
  store(all, v);
  for (int k = 0; k < count; ++k) all[lane + k] = entries[k * stride];
  v = load<V>(all);
}
template <class V, class T>
JURN_INLINE void get_lanes(V v, int lane, int count, T* entries, int stride) {
  T all[sizeof(V) / sizeof(T)];
  store(all, v);
  for (int k = 0; k < count; ++k) entries[k * stride] = all[lane + k];
}

/** Puts `count` sections, of which `before` run in front of them, into the lanes from `lane` on. */
template <int order, int lanes>
JURN_INLINE void load_sections(Sections<order, lanes>& s, int lane, int count, int before,
                               const float* b, const float* a, const float* px, const float* py) {
  constexpr int group = order + 1;
  set_lanes(s.b[0], lane, count, b, group);
  for (int j = 1; j <= order; ++j) {
    set_lanes(s.b[j], lane, count, b + j, group);
    set_lanes(s.a[j], lane, count, a + j, group);
    set_lanes(s.x[j], lane, count, px + j, group);
    set_lanes(s.y[j], lane, count, py + j, group);
  }
  const int set = -1;
  set_lanes(s.first, lane, 1, &set, 0);
  set_lanes(s.used, lane, count, &set, 0);
  for (int k = 0; k < count; ++k) {
    const int delay = 2 * (before + k);
    set_lanes(s.delay, lane + k, 1, &delay, 0);
  }
}

template <int order, int lanes>
JURN_INLINE void store_sections(const Sections<order, lanes>& s, int lane, int count, float* px,
                                float* py) {
  constexpr int group = order + 1;
  get_lanes(s.x[1], lane, count, px, group);
  for (int j = 1; j <= order; ++j) {
    get_lanes(s.x[j], lane, count, px + j, group);
    get_lanes(s.y[j], lane, count, py + j, group);
  }
}

/** How sections lie in vectors: one chain through all vectors, or one chain per channel, either in
 * the halves of one vector or in a vector each. */
enum Layout { one_chain, chain_per_half, chain_per_vector };

/** Puts the values of one step into the state. Masked, only the lanes whose sample at this step
 * exists take them. */
template <bool masked, int order, int lanes>
JURN_INLINE void advance(Sections<order, lanes>& s, Vec<float, lanes> x, Vec<float, lanes> y,
                         int time, int frames) {
  using Float = Vec<float, lanes>;
  using Int = Vec<int, lanes>;
  Int active{};
  if constexpr (masked) {
    const Int sample = broadcast<Int>(time) - s.delay;
    active = (sample >= Int{}) & (sample < broadcast<Int>(frames));
    s.late = s.previous;
    s.previous = y;
  }
  const auto put = [&](Float& state, Float value)
                       JURN_INLINED { state = masked ? select(active, value, state) : value; };
  JURN_UNROLL
  for (int j = order; j >= 2; --j) {
    put(s.x[j], s.x[j - 1]);
    put(s.y[j], s.y[j - 1]);
  }
  put(s.x[1], x);
  put(s.y[1], y);
}

/** One step of all vectors. A first section takes its sample of the block, every other one what its
 * predecessor put out two steps ago. `last_delay` is the delay of the last section, whose output
 * goes back into the block. */
template <bool masked, Layout layout, int vectors, int order, int lanes>
JURN_INLINE void step(Sections<order, lanes> (&s)[vectors], float* const* block, int time,
                      int frames, int last_delay) {
  using Float = Vec<float, lanes>;
  using Int = Vec<int, lanes>;
  const auto sample = [&](int channel) JURN_INLINED {
    return broadcast<Float>(!masked || time < frames ? block[channel][time] : 0.0f);
  };
  Float x[vectors];
  Float y[vectors];
  Int small[vectors];
  Int any_small{};
  JURN_UNROLL
  for (int v = 0; v < vectors; ++v) {
    const Float late = masked ? s[v].late : s[v].y[2];
    Float first;
    if constexpr (layout == chain_per_half)
      first = halves<lanes>(sample(0), sample(1));
    else if (layout == one_chain && v > 0)
      first = broadcast<Float>((masked ? s[v - 1].late : s[v - 1].y[2])[lanes - 1]);
    else
      first = sample(v);
    x[v] = select(s[v].first, first, next_lane<lanes>(late));
    y[v] = x[v] * s[v].b[0];
    JURN_UNROLL
    for (int j = 1; j <= order; ++j) y[v] += s[v].b[j] * s[v].x[j] - s[v].a[j] * s[v].y[j];
    // The float nearest to 1e-6 lies below 1e-6, so this is |y| < 1e-6 in double.
    small[v] = (y[v] <= broadcast<Float>(1e-6f)) & (y[v] >= broadcast<Float>(-1e-6f));
    any_small |= small[v] & s[v].used;
  }
  if (JURN_UNLIKELY(any(any_small))) {
    JURN_UNROLL
    for (int v = 0; v < vectors; ++v) y[v] = select(small[v], Float{}, y[v]);
  }
  JURN_UNROLL
  for (int v = 0; v < vectors; ++v) advance<masked>(s[v], x[v], y[v], time, frames);
  if (masked && time < last_delay) return;
  const int done = time - last_delay;
  block[0][done] = layout == one_chain          ? y[vectors - 1][lanes - 1]
                   : layout == chain_per_vector ? y[0][lanes - 1]
                                                : y[0][lanes / 2 - 1];
  if (layout != one_chain) block[1][done] = y[vectors - 1][lanes - 1];
}

/** Steps in which some lanes have no sample; not inlined, for there are two such runs. */
template <Layout layout, int vectors, int order, int lanes>
JURN_NOINLINE void masked_steps(Sections<order, lanes> (&s)[vectors], float* const* block, int time,
                                int end, int frames, int last_delay) {
  for (; time < end; ++time) step<true, layout>(s, block, time, frames, last_delay);
}

/** The block through `count` sections of each chain, at most as many as there are lanes for it. */
template <Layout layout, int vectors, int order, int lanes>
JURN_INLINE void run_sections(int count, const float* b, const float* a, float* const* x,
                              int frames, float* const* px, float* const* py) {
  Sections<order, lanes> s[vectors] = {};
  const auto for_each_part =
      [&](auto act) JURN_INLINED {  // act(vector, lane, sections, before, channel)
        if constexpr (layout == chain_per_half) {
          act(s[0], lanes / 2 - count, count, 0, 0);
          act(s[0], lanes - count, count, 0, 1);
        } else if constexpr (layout == chain_per_vector) {
          for (int v = 0; v < vectors; ++v) act(s[v], lanes - count, count, 0, v);
        } else {
          const int last = count - (vectors - 1) * lanes;
          for (int v = 0; v < vectors - 1; ++v) act(s[v], 0, lanes, v * lanes, 0);
          act(s[vectors - 1], lanes - last, last, (vectors - 1) * lanes, 0);
        }
      };
  for_each_part([&](auto& part, int lane, int sections, int before, int channel) JURN_INLINED {
    const int skip = before * (order + 1);
    load_sections(part, lane, sections, before, b + skip, a + skip, px[channel] + skip,
                  py[channel] + skip);
  });
  const int last_delay = 2 * (count - 1);
  masked_steps<layout>(s, x, 0, last_delay, frames, last_delay);
  int time = last_delay;
  if (time < frames) {
    Sections<order, lanes> fast[vectors];  // never in memory, as s is for the masked steps
    JURN_UNROLL
    for (int v = 0; v < vectors; ++v) fast[v] = s[v];
    for (; time < frames; ++time) step<false, layout>(fast, x, time, frames, last_delay);
    JURN_UNROLL
    for (int v = 0; v < vectors; ++v) {
      s[v] = fast[v];
      s[v].previous = s[v].y[1];
      s[v].late = s[v].y[2];
    }
  }
  masked_steps<layout>(s, x, time, frames + last_delay, frames, last_delay);
  for_each_part([&](auto& part, int lane, int sections, int before, int channel) JURN_INLINED {
    const int skip = before * (order + 1);
    store_sections(part, lane, sections, px[channel] + skip, py[channel] + skip);
  });
}

/** A short block, frame by frame through a few sections, in scalars: what takes its time is less
 * than loading lanes and the masked steps. The sections' recursions overlap here too. */
template <int sections, int order>
JURN_NOINLINE void run_short(const float* b, const float* a, float* block, int frames, float* px,
                             float* py) {
  constexpr int group = order + 1;
  float x[sections][group], y[sections][group];
  JURN_UNROLL
  for (int k = 0; k < sections; ++k) {
    JURN_UNROLL
    for (int j = 1; j <= order; ++j) {
      x[k][j] = px[k * group + j];
      y[k][j] = py[k * group + j];
    }
  }
  for (int i = 0; i < frames; ++i) {
    float in = block[i];
    JURN_UNROLL
    for (int k = 0; k < sections; ++k) {
      float out = in * b[k * group];
      JURN_UNROLL
      for (int j = 1; j <= order; ++j)
        out += b[k * group + j] * x[k][j] - a[k * group + j] * y[k][j];
      if (JURN_UNLIKELY(out <= 1e-6f && out >= -1e-6f)) out = 0.0f;
      JURN_UNROLL
      for (int j = order; j >= 2; --j) {
        x[k][j] = x[k][j - 1];
        y[k][j] = y[k][j - 1];
      }
      x[k][1] = in;
      y[k][1] = in = out;
    }
    block[i] = in;
  }
  JURN_UNROLL
  for (int k = 0; k < sections; ++k) {
    px[k * group] = x[k][1];
    JURN_UNROLL
    for (int j = 1; j <= order; ++j) {
      px[k * group + j] = x[k][j];
      py[k * group + j] = y[k][j];
    }
  }
}

template <int order>
JURN_INLINE void run_short_cascade(int ns, const float* b, const float* a, float* block, int frames,
                                   float* px, float* py) {
  constexpr int group = order + 1;
  for (; ns >= 4; ns -= 4, b += 4 * group, a += 4 * group, px += 4 * group, py += 4 * group)
    run_short<4, order>(b, a, block, frames, px, py);
  if (ns == 3) run_short<3, order>(b, a, block, frames, px, py);
  if (ns == 2) run_short<2, order>(b, a, block, frames, px, py);
  if (ns == 1) run_short<1, order>(b, a, block, frames, px, py);
}

/** One channel, or two side by side, through all sections, as many at a time as fit the lanes. */
template <int order, int channels>
JURN_INLINE void run_cascade(int ns, const float* b, const float* a, float* const* x, int frames,
                             float* const* px_all, float* const* py_all) {
  constexpr int group = order + 1;
  constexpr int lanes = JURN_VECTOR_BYTES >= 32 ? 8 : 4;
  const int most = 2 * lanes / channels;
  if (frames <= 32 || frames * ns <= 96) {  // as measured
    for (int c = 0; c < channels; ++c)
      run_short_cascade<order>(ns, b, a, x[c], frames, px_all[c], py_all[c]);
    return;
  }
  float* px[channels];
  float* py[channels];
  for (int done = 0; done < ns;) {
    const int count = ns - done < most ? ns - done : most;
    for (int c = 0; c < channels; ++c) {
      px[c] = px_all[c] + done * group;
      py[c] = py_all[c] + done * group;
    }
    const float* b_here = b + done * group;
    const float* a_here = a + done * group;
    const bool one_vector = count <= most / 2;
    if constexpr (channels == 1) {
      if (count <= 4)  // shorter vectors have a little less latency
        run_sections<one_chain, 1, order, 4>(count, b_here, a_here, x, frames, px, py);
      else if (one_vector)
        run_sections<one_chain, 1, order, lanes>(count, b_here, a_here, x, frames, px, py);
      else
        run_sections<one_chain, 2, order, lanes>(count, b_here, a_here, x, frames, px, py);
    } else {
      if (one_vector)
        run_sections<chain_per_half, 1, order, lanes>(count, b_here, a_here, x, frames, px, py);
      else
        run_sections<chain_per_vector, 2, order, lanes>(count, b_here, a_here, x, frames, px, py);
    }
    done += count;
  }
}

template <int channels>
JURN_INLINE void cascade_of(int n, int ns, const float* b, const float* a, float* const* x,
                            int frames, float* const* px, float* const* py) {
  if (n == 2)
    run_cascade<2, channels>(ns, b, a, x, frames, px, py);
  else
    run_cascade<4, channels>(ns, b, a, x, frames, px, py);
}

void cascade(int n, int ns, const float* b, const float* a, float* const (&x)[1], int frames,
             float* const (&px)[1], float* const (&py)[1]) {
  cascade_of<1>(n, ns, b, a, x, frames, px, py);
}

void cascade(int n, int ns, const float* b, const float* a, float* const (&x)[2], int frames,
             float* const (&px)[2], float* const (&py)[2]) {
  cascade_of<2>(n, ns, b, a, x, frames, px, py);
}
