/* The memory of responses and streams, and the transforms of the taps. */
#include "../../../../common/exact_arithmetic.h"

#include "convolution.h"

#include <stdint.h>
#include <string.h>

#include "../../../../common/fast_convolution.h"
#include "../../../../common/internal.h"

static_assert(sizeof(float) == 4 && sizeof(int) == 4 &&
                  alignof(Convolution_response_st) <= alignof(float) &&
                  alignof(Convolution_stream_st) <= alignof(float) &&
                  alignof(ConvolutionRoute) <= alignof(float),
              "the memories' layout");

namespace {

/** Counts floats, every piece of memory from a multiple of 64 bytes on. */
class Layout {
 public:
  unsigned add(uint64_t count) {
    const uint64_t start = floats_;
    floats_ += (count + 15) / 16 * 16;
    return static_cast<unsigned>(start);
  }
  template <class Record>
  unsigned add_record() {
    return add((sizeof(Record) + 3) / 4);
  }
  /** Bytes, or 0 when they do not fit a size_t, or their floats an unsigned. */
  size_t bytes() const {
    const bool fits = floats_ <= SIZE_MAX / 2 / sizeof(float) && floats_ <= UINT32_MAX;
    return fits ? static_cast<size_t>(floats_) * sizeof(float) : 0;
  }

 private:
  uint64_t floats_ = 0;
};

int check_shape(const Convolution_shape* shape) {
  const auto in = [](int x, int most) { return x >= 1 && x <= most; };
  if (!in(shape->inputs, JURN_CONVOLUTION_CHANNELS) ||
      !in(shape->outputs, JURN_CONVOLUTION_CHANNELS))
    return JURN_CONVOLUTION_BAD_CHANNELS;
  if (!in(shape->block, JURN_CONVOLUTION_BLOCK)) return JURN_CONVOLUTION_BAD_BLOCK;
  if (!in(shape->taps, JURN_CONVOLUTION_TAPS)) return JURN_CONVOLUTION_BAD_TAPS;
  return JURN_CONVOLUTION_OK;
}

int check_routes(const Convolution_shape* shape, const Convolution_route* routes, int count) {
  const int error = check_shape(shape);
  if (error) return error;
  if (count < 0 || count > JURN_CONVOLUTION_ROUTES) return JURN_CONVOLUTION_BAD_COUNT;
  for (int r = 0; r < count; ++r) {
    if (routes[r].input < 0 || routes[r].input >= shape->inputs || routes[r].output < 0 ||
        routes[r].output >= shape->outputs)
      return JURN_CONVOLUTION_BAD_ROUTE;
    if (routes[r].blen < 1 || routes[r].blen > shape->taps) return JURN_CONVOLUTION_BAD_LENGTH;
  }
  return JURN_CONVOLUTION_OK;
}

/** Fills in everything but the routes' order; returns where the spectra start. */
Layout lay_out(Convolution_response_st* response, const Convolution_shape* shape, int count) {
  Layout layout;
  layout.add_record<Convolution_response_st>();
  response->shape = *shape;
  response->count = count;
  JURN_plan_convolution(&response->plan, shape);
  response->routes = layout.add(count * ((sizeof(ConvolutionRoute) + 3) / 4));
  const int longest = response->plan.level[response->plan.levels - 1].N;
  response->table = layout.add(JURN_fft_table_floats(longest));
  response->work = layout.add(longest);
  return layout;
}

uint64_t spectra_floats(const ConvolutionPlan* plan, int level, int blen) {
  return static_cast<uint64_t>(JURN_partitions(plan, level, blen)) * plan->level[level].N;
}

void lay_out(Convolution_stream_st* stream, const Convolution_shape* shape, Layout* layout) {
  layout->add_record<Convolution_stream_st>();
  stream->shape = *shape;
  JURN_plan_convolution(&stream->plan, shape);
  const ConvolutionLevel* const last = &stream->plan.level[stream->plan.levels - 1];
  const int frames = last->N + (stream->plan.levels > 1 ? last->hop : 0);
  stream->past_frames = (frames + shape->block - 1) / shape->block * shape->block;
  stream->past = layout->add(static_cast<uint64_t>(shape->inputs) * stream->past_frames);
  for (int k = 0; k < stream->plan.levels; ++k) {
    const ConvolutionLevel* const level = &stream->plan.level[k];
    stream->windows[k] =
        layout->add(static_cast<uint64_t>(shape->inputs) * level->N * level->phases * level->slots);
    stream->sums[k] = layout->add((k > 0 ? 2ull : 1ull) * shape->outputs * level->N);
    stream->outputs[k] = k > 0 ? layout->add(2ull * shape->outputs * level->N) : 0;
  }
  stream->previous = layout->add(static_cast<uint64_t>(shape->outputs) * shape->block);
  stream->floats = static_cast<unsigned>(layout->bytes() / sizeof(float));
}

/** Tells responses apart by what is in them, wherever they lie: a hash of all routes and taps. */
class Fingerprint {
 public:
  void add(uint32_t word) {
    bits_ = (bits_ ^ word) * 0xff51afd7ed558ccdull;
    bits_ ^= bits_ >> 32;
  }
  void add(const Convolution_route& route) {
    add(static_cast<uint32_t>(route.input));
    add(static_cast<uint32_t>(route.output));
    add(static_cast<uint32_t>(route.blen));
    for (int j = 0; j < route.blen; ++j) {
      uint32_t word;
      memcpy(&word, &route.b[j], sizeof word);
      add(word);
    }
  }
  void store(unsigned* words) const {
    words[0] = static_cast<unsigned>(bits_);
    words[1] = static_cast<unsigned>(bits_ >> 32);
  }

 private:
  uint64_t bits_ = 1;
};

bool same_taps(const Convolution_route& a, const Convolution_route& b) {
  return a.blen == b.blen && memcmp(a.b, b.b, static_cast<size_t>(a.blen) * sizeof(float)) == 0;
}

/** Puts one partition's spectrum in its place among those of its route. */
void transform_partition(const Convolution_response_st* response, float* memory,
                         const ConvolutionRoute* route, const Convolution_route* taps, int k,
                         int partition) {
  const ConvolutionLevel* const level = &response->plan.level[k];
  const int size = level->phases * level->hop;
  const int first = level->first + partition * size;
  const bool last = k + 1 == response->plan.levels;
  int end = first + size < taps->blen ? first + size : taps->blen;
  if (!last && end > response->plan.level[k + 1].first) end = response->plan.level[k + 1].first;
  const int N = level->N;
  float* const work = memory + response->work;
  memcpy(work, taps->b + first, (end - first) * sizeof(float));
  memset(work + (end - first), 0, (N - (end - first)) * sizeof(float));
  JURN_forward_steps(memory + response->table, N, work, {work, N, nullptr}, 0, JURN_ALL_STEPS);
  JURN_put_spectrum(memory + route->spectra[k] + partition * chunk_floats,
                    static_cast<size_t>(route->partitions[k]) * chunk_floats, work, N, 0,
                    N / chunk_floats);
}

}  // namespace

size_t MORVAX_ConvolutionResponseSize_API(const Convolution_shape* shape,
                                          const Convolution_route* routes, int count) {
  if (check_routes(shape, routes, count) != JURN_CONVOLUTION_OK) return 0;
  Convolution_response_st response;
  Layout layout = lay_out(&response, shape, count);
  for (int r = 0; r < count; ++r)
    for (int k = 0; k < response.plan.levels; ++k)
      layout.add(spectra_floats(&response.plan, k, routes[r].blen));
  return layout.bytes();
}

int MORVAX_ConvolutionResponseCalcu_API(ConvolutionResponse_ID* response, size_t size,
                                        const Convolution_shape* shape,
                                        const Convolution_route* routes, int count) {
  if (size >= sizeof response->ready) response->ready = 0;
  const int error = check_routes(shape, routes, count);
  if (error) return error;
  const size_t needed = MORVAX_ConvolutionResponseSize_API(shape, routes, count);
  if (needed == 0) return JURN_CONVOLUTION_TOO_LARGE;
  if (size < needed) return JURN_CONVOLUTION_TOO_SMALL;
  for (int r = 0; r < count; ++r)
    for (int j = 0; j < routes[r].blen; ++j)
      if (!(routes[r].b[j] - routes[r].b[j] == 0)) return JURN_CONVOLUTION_BAD_VALUE;

  memset(response, 0, sizeof *response);
  Layout layout = lay_out(response, shape, count);
  Fingerprint fingerprint;
  for (int r = 0; r < count; ++r) fingerprint.add(routes[r]);
  fingerprint.store(response->fingerprint);
  float* const memory = reinterpret_cast<float*>(response);
  for (int k = 0; k < response->plan.levels; ++k)
    JURN_put_fft_table(memory + response->table, response->plan.level[k].N);

  auto* const first = reinterpret_cast<ConvolutionRoute*>(memory + response->routes);
  int source[JURN_CONVOLUTION_ROUTES];  // of each route placed so far
  int placed = 0;
  for (int output = 0; output < shape->outputs; ++output) {
    for (int r = 0; r < count; ++r) {
      if (routes[r].output != output) continue;
      const int place = placed++;
      int like = 0;
      while (like < place && !same_taps(routes[source[like]], routes[r])) ++like;
      source[place] = r;
      ConvolutionRoute* const route = first + place;
      route->input = routes[r].input;
      for (int k = 0; k < response->plan.levels; ++k) {
        route->partitions[k] = JURN_partitions(&response->plan, k, routes[r].blen);
        response->shares[k].products += route->partitions[k];
        if (like < place) {
          route->spectra[k] = first[like].spectra[k];
          continue;
        }
        route->spectra[k] = layout.add(spectra_floats(&response->plan, k, routes[r].blen));
        for (int i = 0; i < route->partitions[k]; ++i)
          transform_partition(response, memory, route, &routes[r], k, i);
      }
    }
    response->first_route[output + 1] = placed;
  }
  for (int k = 0; k < response->plan.levels; ++k)
    JURN_share_step(&response->shares[k], &response->plan.level[k], shape);
  response->ready = 1;
  return JURN_CONVOLUTION_OK;
}

size_t MORVAX_ConvolutionStreamSize_API(const Convolution_shape* shape) {
  if (check_shape(shape) != JURN_CONVOLUTION_OK) return 0;
  Convolution_stream_st stream;
  Layout layout;
  lay_out(&stream, shape, &layout);
  return layout.bytes();
}

int MORVAX_ConvolutionStreamCalcu_API(ConvolutionStream_ID* mFilter, size_t size,
                                      const Convolution_shape* shape) {
  if (size >= sizeof mFilter->ready) mFilter->ready = 0;
  const int error = check_shape(shape);
  if (error) return error;
  const size_t needed = MORVAX_ConvolutionStreamSize_API(shape);
  if (needed == 0) return JURN_CONVOLUTION_TOO_LARGE;
  if (size < needed) return JURN_CONVOLUTION_TOO_SMALL;
  memset(mFilter, 0, needed);
  Layout layout;
  lay_out(mFilter, shape, &layout);
  mFilter->ready = 1;
  return JURN_CONVOLUTION_OK;
}

void MORVAX_ConvolutionReset_API(ConvolutionStream_ID* mFilter) {
  JURN_LIMIT(mFilter->ready == 1, "ConvolutionStream_ID: the stream must be set up");
  const Convolution_shape shape = mFilter->shape;
  MORVAX_ConvolutionStreamCalcu_API(mFilter, static_cast<size_t>(mFilter->floats) * sizeof(float),
                                    &shape);
}
