/* The sums over partitions, once per instruction set. */

constexpr int lane_count = JURN_VECTOR_BYTES / 4;
constexpr int vectors = 16 / lane_count;
using Floats = Vec<float, lane_count>;
using Mask = Vec<int, lane_count>;

/** Chunks up to end - 1 whose real parts a transform leaves from `real` on, 16 after 16, and their
 * imaginary parts `distance` floats behind. */
struct Run {
  int end, real, distance;
};

/** The run of a chunk that is not 0, at most up to last - 1. A spectrum of N has three runs of
 * M / 8 real and M / 8 imaginary parts for each M that is N divided by a power of 4, from M / 4 on,
 * and one of 16 and 16 where M comes down to 64: see DFTs.inl. */
JURN_INLINE Run run_of(int N, int chunk, int last) {
  const int at = chunk * chunk_floats;
  const bool through_64 = (N & 0x55555555) != 0;
  int floats = 32;
  if (!through_64 || chunk > 1) {
    floats = through_64 ? 64 : 32;
    while (4 * floats <= at) floats *= 4;
  }
  const int start = at & -floats, end = (start + floats) / chunk_floats;
  return {end < last ? end : last, start + (at - start) / 2, floats / 2};
}

/* The first chunk: the bins of the shortest lengths, and last the two that are real. */

static void put_first(float* chunk, const float* spectrum) {
  float *re = chunk, *im = chunk + 16;
  memcpy(re, spectrum + 16, 8 * sizeof(float));
  memcpy(im, spectrum + 24, 8 * sizeof(float));
  memcpy(re + 8, spectrum + 8, 4 * sizeof(float));
  memcpy(im + 8, spectrum + 12, 4 * sizeof(float));
  memcpy(re + 12, spectrum + 4, 2 * sizeof(float));
  memcpy(im + 12, spectrum + 6, 2 * sizeof(float));
  re[14] = spectrum[2], im[14] = spectrum[3];
  re[15] = spectrum[0], im[15] = spectrum[1];
}

static void take_first(float* spectrum, const float* chunk) {
  const float *re = chunk, *im = chunk + 16;
  memcpy(spectrum + 16, re, 8 * sizeof(float));
  memcpy(spectrum + 24, im, 8 * sizeof(float));
  memcpy(spectrum + 8, re + 8, 4 * sizeof(float));
  memcpy(spectrum + 12, im + 8, 4 * sizeof(float));
  memcpy(spectrum + 4, re + 12, 2 * sizeof(float));
  memcpy(spectrum + 6, im + 12, 2 * sizeof(float));
  spectrum[2] = re[14], spectrum[3] = im[14];
  spectrum[0] = re[15], spectrum[1] = im[15];
}

static void put_spectrum(float* chunks, size_t chunk_stride, const float* spectrum, int N,
                         int first, int last) {
  int chunk = first;
  if (chunk == 0) {
    put_first(chunks, spectrum);
    ++chunk;
  }
  while (chunk < last) {
    const Run run = run_of(N, chunk, last);
    for (const float* re = spectrum + run.real; chunk < run.end; ++chunk, re += 16) {
      float* const out = chunks + chunk * chunk_stride;
      for (int v = 0; v < 16; v += lane_count) {
        store(out + v, load<Floats>(re + v));
        store(out + 16 + v, load<Floats>(re + run.distance + v));
      }
    }
  }
}

struct Sum {
  Floats re[vectors], im[vectors];
};

/** Adds the products of count windows and partitions. In the first chunk the lanes that complex
 * leaves out hold two real bins. */
template <bool first_chunk>
JURN_INLINE void add_products(Sum& sum, const float* x, const float* h, int count,
                              const Mask* complex) {
  for (; count > 0; --count, x += chunk_floats, h += chunk_floats)
    for (int v = 0; v < vectors; ++v) {
      Floats xr = load<Floats>(x + v * lane_count), xi = load<Floats>(x + 16 + v * lane_count);
      Floats hr = load<Floats>(h + v * lane_count), hi = load<Floats>(h + 16 + v * lane_count);
      JURN_LOADED_ONCE(xr);
      JURN_LOADED_ONCE(xi);
      JURN_LOADED_ONCE(hr);
      JURN_LOADED_ONCE(hi);
      if constexpr (first_chunk) {
        const Floats none = {};
        sum.re[v] += xr * hr - select(complex[v], xi * hi, none);
        sum.im[v] += select(complex[v], xr, xi) * hi + select(complex[v], xi * hr, none);
      } else {
        sum.re[v] += xr * hr - xi * hi;
        sum.im[v] += xr * hi + xi * hr;
      }
    }
}

/** One route's windows and partitions of the current chunk. The windows lie in a ring: up to `run`
 * of them from `windows` on, the others from its start. */
struct Walk {
  const float *windows, *start, *partitions;
  int count, run;
};

/** The route's partitions from first to last - 1 of one chunk. */
JURN_INLINE Walk walk_of(const ConvolutionStep* step, const ConvolutionRoute* route, int chunk,
                         int first, int last) {
  const float* const start =
      step->windows + route->input * step->input_stride + chunk * step->chunk_stride;
  const float* const partitions =
      step->response + route->spectra[step->level] +
      ((size_t)chunk * route->partitions[step->level] + first) * chunk_floats;
  int slot = step->newest + first;
  if (slot >= step->slots) slot -= step->slots;
  const int count = last - first, to_end = step->slots - slot;
  return {start + slot * chunk_floats, start, partitions, count, count < to_end ? count : to_end};
}

/** Adds one route's products in the current chunk, and goes on to the next chunk. */
template <bool first_chunk>
JURN_INLINE void add_walk(Sum& sum, Walk* walk, size_t chunk_stride, const Mask* complex) {
  const float* const h = walk->partitions;
  const int run = walk->run, rest = walk->count - run;
  add_products<first_chunk>(sum, walk->windows, h, run, complex);
  add_products<first_chunk>(sum, walk->start, h + run * chunk_floats, rest, complex);
  walk->windows += chunk_stride;
  walk->start += chunk_stride;
  walk->partitions += walk->count * chunk_floats;
}

template <bool first_chunk>
JURN_INLINE Sum sum_routes(Walk* walk, const Walk* end, size_t chunk_stride, const Mask* complex) {
  Sum sum = {};
  for (; walk < end; ++walk) add_walk<first_chunk>(sum, walk, chunk_stride, complex);
  return sum;
}

struct FirstMask {
  FirstMask() {
    int lanes[16];
    for (int i = 0; i < 16; ++i) lanes[i] = i < 15 ? -1 : 0;
    for (int v = 0; v < vectors; ++v) complex[v] = load<Mask>(lanes + v * lane_count);
  }
  Mask complex[vectors];
};

JURN_INLINE void store_sum(float* re, ptrdiff_t distance, const Sum& sum) {
  for (int v = 0; v < vectors; ++v) {
    store(re + v * lane_count, sum.re[v]);
    store(re + distance + v * lane_count, sum.im[v]);
  }
}

static void sum_first_chunk(const ConvolutionStep* step, Walk* walks) {
  const FirstMask mask;
  for (int output = 0; output < step->outputs; ++output) {
    float chunk[chunk_floats];
    store_sum(
        chunk, 16,
        sum_routes<true>(walks + step->first_route[output], walks + step->first_route[output + 1],
                         step->chunk_stride, mask.complex));
    take_first(step->sums + (size_t)output * step->N, chunk);
  }
}

static void sum_chunks(const ConvolutionStep* step, int first, int last) {
  Walk walks[JURN_CONVOLUTION_ROUTES];
  for (int r = 0; r < step->first_route[step->outputs]; ++r)
    walks[r] = walk_of(step, &step->routes[r], first, 0, step->routes[r].partitions[step->level]);
  int chunk = first;
  if (chunk == 0) {
    sum_first_chunk(step, walks);
    ++chunk;
  }
  while (chunk < last) {
    const Run run = run_of(step->N, chunk, last);
    for (float* re = step->sums + run.real; chunk < run.end; ++chunk, re += 16)
      for (int output = 0; output < step->outputs; ++output)
        store_sum(
            re + (size_t)output * step->N, run.distance,
            sum_routes<false>(walks + step->first_route[output],
                              walks + step->first_route[output + 1], step->chunk_stride, nullptr));
  }
}

/** Adds one route's products to a chunk of a sum. */
static void add_route(float* spectrum, int N, int chunk, Walk walk, size_t chunk_stride) {
  Sum sum;
  float first[chunk_floats] = {};
  const Run run = chunk > 0 ? run_of(N, chunk, N) : Run{0, 0, 16};
  float* const re = chunk > 0 ? spectrum + run.real : first;
  if (chunk == 0) put_first(first, spectrum);
  for (int v = 0; v < vectors; ++v) {
    sum.re[v] = load<Floats>(re + v * lane_count);
    sum.im[v] = load<Floats>(re + run.distance + v * lane_count);
  }
  if (chunk == 0) {
    const FirstMask mask;
    add_walk<true>(sum, &walk, chunk_stride, mask.complex);
  } else {
    add_walk<false>(sum, &walk, chunk_stride, nullptr);
  }
  store_sum(re, run.distance, sum);
  if (chunk == 0) take_first(spectrum, first);
}

static void sum_part(const ConvolutionStep* step, int chunk, int first, int last) {
  int at = 0;
  for (int output = 0; output < step->outputs; ++output) {
    float* const spectrum = step->sums + (size_t)output * step->N;
    if (first == 0) {
      const float zeros[chunk_floats] = {};
      if (chunk == 0) {
        take_first(spectrum, zeros);
      } else {
        const Run run = run_of(step->N, chunk, step->N);
        memcpy(spectrum + run.real, zeros, 16 * sizeof(float));
        memcpy(spectrum + run.real + run.distance, zeros, 16 * sizeof(float));
      }
    }
    for (int r = step->first_route[output]; r < step->first_route[output + 1]; ++r) {
      const int count = step->routes[r].partitions[step->level];
      const int from = first > at ? first - at : 0, to = last - at < count ? last - at : count;
      if (from < to)
        add_route(spectrum, step->N, chunk, walk_of(step, &step->routes[r], chunk, from, to),
                  step->chunk_stride);
      at += count;
    }
  }
}
