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

/** Moves every lane one up. */
template <int lanes>
JURN_INLINE Vec<float, lanes> next_lane(Vec<float, lanes> v) {
  if constexpr (lanes == 4)
    return JURN_SHUFFLE(v, v, 0, 0, 1, 2);
  else
    return JURN_SHUFFLE(v, v, 0, 0, 1, 2, 3, 4, 5, 6);
}

/** Puts `count` sections, of which `before` run in front of them, into the topmost lanes. */
template <int order, int lanes>
JURN_INLINE void load_sections(Sections<order, lanes>& s, int count, int before, const float* b,
                               const float* a, const float* px, const float* py) {
  constexpr int group = order + 1;
  const int unused = lanes - count;
  float column[lanes] = {};
  const auto gather = [&](const float* entries) {
    for (int k = 0; k < count; ++k) column[unused + k] = entries[k * group];
    return load<Vec<float, lanes>>(column);
  };
  for (int j = 0; j <= order; ++j) {
    s.b[j] = gather(b + j);
    if (j == 0) continue;
    s.a[j] = gather(a + j);
    s.x[j] = gather(px + j);
    s.y[j] = gather(py + j);
  }
  int first[lanes] = {};
  int used[lanes] = {};
  int delay[lanes] = {};
  first[unused] = -1;
  for (int k = 0; k < count; ++k) {
    used[unused + k] = -1;
    delay[unused + k] = 2 * (before + k);
  }
  s.first = load<Vec<int, lanes>>(first);
  s.used = load<Vec<int, lanes>>(used);
  s.delay = load<Vec<int, lanes>>(delay);
}

template <int order, int lanes>
JURN_INLINE void store_sections(const Sections<order, lanes>& s, int count, float* px, float* py) {
  constexpr int group = order + 1;
  float column[lanes];
  const auto scatter = [&](float* entries, Vec<float, lanes> v) {
    store(column, v);
    for (int k = 0; k < count; ++k) entries[k * group] = column[lanes - count + k];
  };
  scatter(px, s.x[1]);
  for (int j = 1; j <= order; ++j) {
    scatter(px + j, s.x[j]);
    scatter(py + j, s.y[j]);
  }
}

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
  const auto put = [&](Float& state, Float value) {
    state = masked ? select(active, value, state) : value;
  };
  for (int j = order; j >= 2; --j) {
    put(s.x[j], s.x[j - 1]);
    put(s.y[j], s.y[j - 1]);
  }
  put(s.x[1], x);
  put(s.y[1], y);
}

/** One step of all vectors: they are either one chain of sections or, not linked, one chain per
 * channel. A first section takes its sample of the block, every other one what its predecessor put
 * out two steps ago. `last_delay` is the delay of the last section, whose output goes back into the
 * block. */
template <bool masked, bool linked, int vectors, int order, int lanes>
JURN_INLINE void step(Sections<order, lanes> (&s)[vectors], float* const* block, int time,
                      int frames, int last_delay) {
  using Float = Vec<float, lanes>;
  using Int = Vec<int, lanes>;
  Float x[vectors];
  Float y[vectors];
  Int small[vectors];
  Int any_small{};
  for (int v = 0; v < vectors; ++v) {
    const Float late = masked ? s[v].late : s[v].y[2];
    float first = 0.0f;
    if (linked && v > 0)
      first = (masked ? s[v - 1].late : s[v - 1].y[2])[lanes - 1];
    else if (!masked || time < frames)
      first = block[v][time];
    x[v] = select(s[v].first, broadcast<Float>(first), next_lane<lanes>(late));
    y[v] = x[v] * s[v].b[0];
    for (int j = 1; j <= order; ++j) y[v] += s[v].b[j] * s[v].x[j] - s[v].a[j] * s[v].y[j];
    // The float nearest to 1e-6 lies below 1e-6, so this is |y| < 1e-6 in double.
    small[v] = (y[v] <= broadcast<Float>(1e-6f)) & (y[v] >= broadcast<Float>(-1e-6f));
    any_small |= small[v] & s[v].used;
  }
  if (__builtin_expect(any(any_small), 0))
    for (int v = 0; v < vectors; ++v) y[v] = select(small[v], Float{}, y[v]);
  for (int v = 0; v < vectors; ++v) advance<masked>(s[v], x[v], y[v], time, frames);
  if (masked && time < last_delay) return;
  for (int v = linked ? vectors - 1 : 0; v < vectors; ++v)
    block[linked ? 0 : v][time - last_delay] = y[v][lanes - 1];
}

/** The block through `count` sections of order `order`, at most as many as there are lanes. */
template <int order, int vectors, int lanes, bool linked>
JURN_INLINE void run_sections(int count, const float* b, const float* a, float* const* x,
                              int frames, float* const* px, float* const* py) {
  constexpr int group = order + 1;
  Sections<order, lanes> s[vectors] = {};
  const auto share = [&](int v) {  // the sections of vector v, and those before it
    struct Share {
      int before, count;
    };
    if (!linked) return Share{0, count};
    return Share{v * lanes, v + 1 < vectors ? lanes : count - v * lanes};
  };
  for (int v = 0; v < vectors; ++v) {
    const int channel = linked ? 0 : v;
    const int skip = share(v).before * group;
    load_sections(s[v], share(v).count, share(v).before, b + skip, a + skip, px[channel] + skip,
                  py[channel] + skip);
  }
  const int last_delay = 2 * (count - 1);
  const int end = frames + last_delay;
  int time = 0;
  for (; time < last_delay; ++time) step<true, linked>(s, x, time, frames, last_delay);
  if (time < frames) {
    for (; time < frames; ++time) step<false, linked>(s, x, time, frames, last_delay);
    for (int v = 0; v < vectors; ++v) {
      s[v].previous = s[v].y[1];
      s[v].late = s[v].y[2];
    }
  }
  for (; time < end; ++time) step<true, linked>(s, x, time, frames, last_delay);
  for (int v = 0; v < vectors; ++v) {
    const int channel = linked ? 0 : v;
    const int skip = share(v).before * group;
    store_sections(s[v], share(v).count, px[channel] + skip, py[channel] + skip);
  }
}

/** One channel, or two side by side, through all sections, as many at a time as fit the lanes. */
template <int order, int channels>
JURN_INLINE void run_cascade(int ns, const float* b, const float* a, float* const* x, int frames,
                             float* const* px_all, float* const* py_all) {
  constexpr int group = order + 1;
  constexpr int wide = JURN_VECTOR_BYTES >= 32 ? 8 : 4;
  constexpr bool mono = channels == 1;
  const int most = mono ? 2 * wide : wide;
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
    if (count <= 4)
      run_sections<order, channels, 4, mono>(count, b_here, a_here, x, frames, px, py);
    else if (count <= wide)
      run_sections<order, channels, wide, mono>(count, b_here, a_here, x, frames, px, py);
    else if constexpr (mono)
      run_sections<order, 2, wide, true>(count, b_here, a_here, x, frames, px, py);
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
