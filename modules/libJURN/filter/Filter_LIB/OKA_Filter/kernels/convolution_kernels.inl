/* The sums over partitions, once per instruction set. */

constexpr int lane_count = JURN_VECTOR_BYTES / 4;
constexpr int vectors = 16 / lane_count;
using Floats = Vec<float, lane_count>;
using Mask = Vec<int, lane_count>;

/** Where a transform leaves the 16 bins of a chunk other than the first: real parts from `real` on,
 * imaginary parts `distance` floats behind. */
struct Place {
  ptrdiff_t real, distance;
};

/** The chunk's place in the spectrum of N, see DFTs.inl: arrays of M / 8 real and M / 8 imaginary
 * parts, three for each M that is N divided by a power of 4, from M / 4 on; and one of 16 and 16
 * where M comes down to 64. */
JURN_INLINE Place place_of(int N, int chunk) {
  const int at = chunk * chunk_floats;
  const bool through_64 = (N & 0x5555) != 0;
  if (through_64 && chunk == 1) return {32, 16};
  int array = through_64 ? 64 : 32;
  while (4 * array <= at) array *= 4;
  const int start = at & -array;
  return {start + (at - start) / 2, array / 2};
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

static void put_spectrum(float* chunks, size_t chunk_stride, const float* spectrum, int N) {
  put_first(chunks, spectrum);
  for (int chunk = 1; chunk < N / chunk_floats; ++chunk) {
    const Place place = place_of(N, chunk);
    float* const out = chunks + chunk * chunk_stride;
    memcpy(out, spectrum + place.real, 16 * sizeof(float));
    memcpy(out + 16, spectrum + place.real + place.distance, 16 * sizeof(float));
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

template <bool first_chunk>
JURN_INLINE Sum sum_routes(const ConvolutionStep* step, int chunk, int output) {
  Mask complex[vectors];
  if constexpr (first_chunk) {
    int lanes[16];
    for (int i = 0; i < 16; ++i) lanes[i] = i < 15 ? -1 : 0;
    for (int v = 0; v < vectors; ++v) complex[v] = load<Mask>(lanes + v * lane_count);
  }
  Sum sum = {};
  for (int r = step->first_route[output]; r < step->first_route[output + 1]; ++r) {
    const ConvolutionRoute* const route = &step->routes[r];
    const int count = route->partitions[step->level];
    const int to_end = step->slots - step->newest;
    const int run = count < to_end ? count : to_end;
    const float* const x =
        step->windows + route->input * step->input_stride + chunk * step->chunk_stride;
    const float* const h =
        step->response + route->spectra[step->level] + (size_t)chunk * count * chunk_floats;
    add_products<first_chunk>(sum, x + step->newest * chunk_floats, h, run, complex);
    add_products<first_chunk>(sum, x, h + run * chunk_floats, count - run, complex);
  }
  return sum;
}

static void sum_first_chunk(const ConvolutionStep* step) {
  for (int output = 0; output < step->outputs; ++output) {
    const Sum sum = sum_routes<true>(step, 0, output);
    float chunk[chunk_floats];
    for (int v = 0; v < vectors; ++v) {
      store(chunk + v * lane_count, sum.re[v]);
      store(chunk + 16 + v * lane_count, sum.im[v]);
    }
    take_first(step->sums + (size_t)output * step->N, chunk);
  }
}

static void sum_chunks(const ConvolutionStep* step, int first, int last) {
  if (first == 0 && last > 0) {
    sum_first_chunk(step);
    first = 1;
  }
  for (int chunk = first; chunk < last; ++chunk) {
    const Place place = place_of(step->N, chunk);
    for (int output = 0; output < step->outputs; ++output) {
      const Sum sum = sum_routes<false>(step, chunk, output);
      float* const re = step->sums + (size_t)output * step->N + place.real;
      for (int v = 0; v < vectors; ++v) {
        store(re + v * lane_count, sum.re[v]);
        store(re + place.distance + v * lane_count, sum.im[v]);
      }
    }
  }
}
