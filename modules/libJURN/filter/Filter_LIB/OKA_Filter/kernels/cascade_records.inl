#include "record_lanes.inl"
#if JURN_VECTOR_BYTES >= 32
#include "cascade_groups.inl"
#endif

/* Cascades of several records side by side, one record per lane.
 *
 * Every section is a vector of its own, so a step costs the latency of one section as long as the
 * sections' chains overlap; up to four run at once, in registers or near them. More run in turn
 * over a chunk of frames, which keeps the stack small. */

/** The same section of all records. */
template <int order, int lanes>
struct SectionOfRecords {
  Vec<float, lanes> b[order + 1];
  Vec<float, lanes> a[order + 1];  // a[0] is not used
  Vec<float, lanes> x[order + 1];  // x[j] is the input j samples back, x[0] is not used
  Vec<float, lanes> y[order + 1];
};

/** One frame through all sections. */
template <int sections, int order, int lanes>
JURN_INLINE Vec<float, lanes> step_records(SectionOfRecords<order, lanes> (&s)[sections],
                                           Vec<float, lanes> x) {
  using Float = Vec<float, lanes>;
  JURN_UNROLL
  for (int i = 0; i < sections; ++i) {
    Float y = x * s[i].b[0];
    JURN_UNROLL
    for (int j = 1; j <= order; ++j) y += s[i].b[j] * s[i].x[j] - s[i].a[j] * s[i].y[j];
    // The float nearest to 1e-6 lies below 1e-6, so this is |y| < 1e-6 in double.
    const auto small = (y <= broadcast<Float>(1e-6f)) & (y >= broadcast<Float>(-1e-6f));
    if (JURN_UNLIKELY(any(small))) y = select(small, Float{}, y);
    JURN_UNROLL
    for (int j = order; j >= 2; --j) {
      s[i].x[j] = s[i].x[j - 1];
      s[i].y[j] = s[i].y[j - 1];
    }
    s[i].x[1] = x;
    s[i].y[1] = y;
    x = y;
  }
  return x;
}

/** Frames of a chunk, which wait in `chunk` between the sections of one pass and of the next. */
template <int lanes>
constexpr int chunk_frames = 2048 / lanes;

/** From how many sections and frames on they run in groups, as measured: with fewer, loading lanes
 * and the masked steps take longer than what is won. */
constexpr int least_sections = JURN_VECTOR_BYTES == 64 ? 3 : 4;
constexpr int least_frames = JURN_VECTOR_BYTES == 64 ? 64 : 96;

template <int sections, int order, int lanes>
JURN_NOINLINE void run_records(const CascadeRecords<lanes>& records, int before, bool first,
                               bool last, int begin, int frames, Vec<float, lanes>* chunk) {
  using Float = Vec<float, lanes>;
  constexpr int group = order + 1;
  const CascadeRecords<lanes> r = records;  // of this function alone: stores leave it as it is
  SectionOfRecords<order, lanes> s[sections];
  JURN_UNROLL
  for (int i = 0; i < sections; ++i) {
    const int at = (before + i) * group;
    s[i].b[0] = gather_lanes(r.b, at);
    JURN_UNROLL
    for (int j = 1; j <= order; ++j) {
      s[i].b[j] = gather_lanes(r.b, at + j);
      s[i].a[j] = gather_lanes(r.a, at + j);
      s[i].x[j] = gather_lanes(r.px, at + j);
      s[i].y[j] = gather_lanes(r.py, at + j);
    }
  }

  // What is read for the next four frames and written for the last four stands between the steps,
  // where it fills the time that the recursion waits.
  const auto read = [&](Float(&v)[4], int at) JURN_INLINED {
    if (first) {
      read_frames<lanes>(v, r, begin + at);
    } else {
      JURN_UNROLL
      for (int k = 0; k < 4; ++k) v[k] = chunk[at + k];
    }
  };
  const auto write = [&](Float(&v)[4], int at) JURN_INLINED {
    if (last) {
      write_frames<lanes>(v, r, begin + at);
    } else {
      JURN_UNROLL
      for (int k = 0; k < 4; ++k) chunk[at + k] = v[k];
    }
  };
  int i = 0;
  if (frames >= 4) {
    Float next[4], done[4] = {};
    read(next, 0);
    for (; i + 4 <= frames; i += 4) {
      Float v[4] = {next[0], next[1], next[2], next[3]};
      v[0] = step_records(s, v[0]);
      if (i + 8 <= frames) read(next, i + 4);
      v[1] = step_records(s, v[1]);
      v[2] = step_records(s, v[2]);
      if (i > 0) write(done, i - 4);
      v[3] = step_records(s, v[3]);
      JURN_UNROLL
      for (int k = 0; k < 4; ++k) done[k] = v[k];
    }
    write(done, i - 4);
  }
  for (; i < frames; ++i) {
    float all[lanes];
    for (int k = 0; k < lanes && first; ++k) all[k] = r.input[k][begin + i];
    const Float y = step_records(s, first ? load<Float>(all) : chunk[i]);
    chunk[i] = y;
    store(all, y);
    for (int k = 0; k < r.records && last; ++k) r.output[k][begin + i] = stoshort(all[k]);
  }

  for (int k = 0; k < sections; ++k) {
    const int at = (before + k) * group;
    scatter_lanes(s[k].x[1], r.px, at, r.records);
    for (int j = 1; j <= order; ++j) {
      scatter_lanes(s[k].x[j], r.px, at + j, r.records);
      scatter_lanes(s[k].y[j], r.py, at + j, r.records);
    }
  }
}

/** The sections of a chunk, in passes of up to `most`: pass(before, count, first, last). */
template <class Pass>
JURN_INLINE void in_passes(int ns, int most, Pass pass) {
  for (int done = 0; done < ns; done += most) {
    const int count = ns - done < most ? ns - done : most;
    pass(done, count, done == 0, done + count == ns);
  }
}

template <int order, int lanes>
JURN_INLINE void cascade_lanes(int ns, const CascadeRecords<lanes>& r, int frames) {
  constexpr int most = chunk_frames<lanes>;
  Vec<float, lanes> chunk[most + 3];  // loads of 16 lanes go beyond four
  for (int begin = 0; begin < frames; begin += most) {
    const int here = frames - begin < most ? frames - begin : most;
#if JURN_VECTOR_BYTES >= 32
    if constexpr (lanes == group_lanes) {
      if (ns >= least_sections && here >= least_frames) {
        constexpr int wide = JURN_VECTOR_BYTES / 4, groups = wide / group_lanes;
        in_passes(ns, 2 * groups, [&](int before, int count, bool first, bool last) JURN_INLINED {
          if (count <= groups)
            run_groups<1, order, wide>(r, before, count, first, last, begin, here, chunk);
          else
            run_groups<2, order, wide>(r, before, count, first, last, begin, here, chunk);
        });
        continue;
      }
    }
#endif
    in_passes(ns, 4, [&](int before, int count, bool first, bool last) JURN_INLINED {
      if (count == 4)
        run_records<4, order>(r, before, first, last, begin, here, chunk);
      else if (count == 3)
        run_records<3, order>(r, before, first, last, begin, here, chunk);
      else if (count == 2)
        run_records<2, order>(r, before, first, last, begin, here, chunk);
      else
        run_records<1, order>(r, before, first, last, begin, here, chunk);
    });
  }
}

template <int lanes>
JURN_NOINLINE void cascade_of_width(int n, int ns, int records, const float* const* b,
                                    const float* const* a, const short* const* input, int frames,
                                    short* const* output, float* const* px, float* const* py) {
  short dropped[JURN_BLOCK];
  CascadeRecords<lanes> r;
  r.records = records;
  for (int k = 0; k < lanes; ++k) {
    const int from = k < records ? k : 0;
    r.b[k] = b[from];
    r.a[k] = a[from];
    r.input[k] = input[from];
    r.output[k] = k < records ? output[k] : &dropped[0];
    r.px[k] = px[from];
    r.py[k] = py[from];
  }
  if (n == 2)
    cascade_lanes<2, lanes>(ns, r, frames);
  else
    cascade_lanes<4, lanes>(ns, r, frames);
}

void cascade_records(int n, int ns, int records, const float* const* b, const float* const* a,
                     const short* const* input, int frames, short* const* output, float* const* px,
                     float* const* py) {
  constexpr int widest = JURN_VECTOR_BYTES >= 32 ? 8 : 4;
  // With AVX-512 twice four in groups are faster than eight from five sections on.
  const int most = JURN_VECTOR_BYTES == 64 && ns > 4 ? 4 : widest;
  for (int done = 0; done < records;) {
    const int here = records - done < most ? records - done : most;
    const auto run = [&](auto width) JURN_INLINED {
      cascade_of_width<width>(n, ns, here, b + done, a + done, input + done, frames, output + done,
                              px + done, py + done);
    };
    if (here <= 4)  // NOLINT(bugprone-branch-clone): the widest may be 4
      run(std::integral_constant<int, 4>());
    else
      run(std::integral_constant<int, widest>());
    done += here;
  }
}
