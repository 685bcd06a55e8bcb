/* The run of a convolution, block by block. */
#include "../../../../common/exact_arithmetic.h"

#include "convolution.h"

#include <string.h>

#include "../../../../common/functions.h"
#include "../../../../common/samples.h"

namespace {

using Stream = Convolution_stream_st;
using Response = Convolution_response_st;

/* ---- Blocks of samples in and out ---- */

/** The block's frames of one input, in the past. */
float* newest_block(Stream* stream, int input) {
  return reinterpret_cast<float*>(stream) + stream->past +
         static_cast<size_t>(input) * stream->past_frames + stream->now;
}

void take(Stream* stream, const short* input) {
  const int inputs = stream->shape.inputs, block = stream->shape.block;
  if (inputs == 1) {
    JURN_to_float(newest_block(stream, 0), input, block);
  } else if (inputs == 2) {
    JURN_split_to_float(newest_block(stream, 0), newest_block(stream, 1), input, block);
  } else {
    for (int channel = 0; channel < inputs; ++channel) {
      float* const x = newest_block(stream, channel);
      for (int i = 0; i < block; ++i) x[i] = input[i * inputs + channel];
    }
  }
}

void take(Stream* stream, const float* input) {
  const int inputs = stream->shape.inputs, block = stream->shape.block;
  for (int channel = 0; channel < inputs; ++channel) {
    float* const x = newest_block(stream, channel);
    for (int i = 0; i < block; ++i) x[i] = input[i * inputs + channel];
  }
}

void take(Stream* stream, const float* const* input) {
  for (int channel = 0; channel < stream->shape.inputs; ++channel)
    memcpy(newest_block(stream, channel), input[channel], stream->shape.block * sizeof(float));
}

/** The block's frames of one output: the last ones of the first level's samples. */
float* filtered_block(Stream* stream, int output) {
  const int N = stream->plan.level[0].N;
  return reinterpret_cast<float*>(stream) + stream->sums[0] + static_cast<size_t>(output) * N +
         (N - stream->shape.block);
}

void give(Stream* stream, short* output) {
  const int outputs = stream->shape.outputs, block = stream->shape.block;
  if (outputs == 1) {
    JURN_to_short(output, filtered_block(stream, 0), block);
  } else if (outputs == 2) {
    JURN_join_to_short(output, filtered_block(stream, 0), filtered_block(stream, 1), block);
  } else {
    for (int channel = 0; channel < outputs; ++channel) {
      const float* const y = filtered_block(stream, channel);
      for (int i = 0; i < block; ++i) output[i * outputs + channel] = stoshort(y[i]);
    }
  }
}

void give(Stream* stream, float* output) {
  const int outputs = stream->shape.outputs, block = stream->shape.block;
  for (int channel = 0; channel < outputs; ++channel) {
    const float* const y = filtered_block(stream, channel);
    for (int i = 0; i < block; ++i) output[i * outputs + channel] = y[i];
  }
}

void give(Stream* stream, float* const* output) {
  for (int channel = 0; channel < stream->shape.outputs; ++channel)
    memcpy(output[channel], filtered_block(stream, channel), stream->shape.block * sizeof(float));
}

/* ---- Levels ---- */

const RealFFT_ID* fft_of(const Response* response, int k) {
  return reinterpret_cast<const RealFFT_ID*>(reinterpret_cast<const float*>(response) +
                                             response->fft[k]);
}

/** A level of a stream, with the response that it runs. */
class Level {
 public:
  Level(Stream* stream, const Response* response, int k)
      : stream_(stream),
        response_(response),
        k_(k),
        level_(stream->plan.level[k]),
        state_(stream->state[k]),
        memory_(reinterpret_cast<float*>(stream)) {}

  /** Transforms the window of one input that ends `frames` before the place of the next block. */
  void transform_window(int input, int frames) {
    const int N = level_.N;
    const float* const past =
        memory_ + stream_->past + static_cast<size_t>(input) * stream_->past_frames;
    int end = stream_->now - frames;
    if (end <= 0) end += stream_->past_frames;
    float* const window = sums(0);
    const int run = N < end ? N : end;
    memcpy(window + (N - run), past + (end - run), run * sizeof(float));
    memcpy(window, past + stream_->past_frames - (N - run), (N - run) * sizeof(float));
    MORVAX_KLOV_RealFFT_Run2(fft_of(response_, k_), window, static_cast<short>(N));
    JURN_put_spectrum(windows(state_.phase) + input * input_stride() +
                          static_cast<size_t>(state_.newest) * chunk_floats,
                      chunk_stride(), window, N);
  }

  /** Sums all chunks of the current step. */
  void sum() {
    const ConvolutionStep step = step_at(state_.phase, state_.newest);
    JURN_sum_chunks(&step, 0, chunks());
  }

  /** All chunks of the step before the current one, and their samples into the half of the outputs
   * that is being put out. */
  void compute_previous_step() {
    const bool wraps = state_.phase == 0;
    const int newest = state_.newest + wraps;
    const ConvolutionStep step =
        step_at(wraps ? level_.phases - 1 : state_.phase - 1, newest < level_.slots ? newest : 0);
    JURN_sum_chunks(&step, 0, chunks());
    for (int output = 0; output < stream_->shape.outputs; ++output)
      transform_back(output, outputs(state_.side, output));
  }

  /** The samples of one output. */
  void transform_back(int output) {
    MORVAX_KLOV_InverseRealFFT_Run2(fft_of(response_, k_), sums(output),
                                    static_cast<short>(level_.N));
  }
  void transform_back(int output, float* samples) {
    transform_back(output);
    memcpy(samples, sums(output) + (level_.N - level_.hop), level_.hop * sizeof(float));
  }

  int chunks() const { return level_.N / chunk_floats; }

  float* outputs(int side, int output) const {
    return memory_ + stream_->outputs[k_] +
           static_cast<size_t>(side * stream_->shape.outputs + output) * level_.hop;
  }

  /** The next step's window comes; every phases-th one starts a new slot. */
  void advance() {
    if (++state_.phase < level_.phases) return;
    state_.phase = 0;
    if (--state_.newest < 0) state_.newest = level_.slots - 1;
  }

  /** How many of a step's pieces of work come before a call: those whose middle lies in the calls
   * before, when all calls take equal shares of the cost. The pieces are every input's transform,
   * the slices of all chunks, every output's transform. */
  int pieces_before(int call) const {
    const long long inputs = stream_->shape.inputs, outputs = stream_->shape.outputs;
    const long long transform = 2LL * slices() * JURN_transform_cost(level_.N);
    const long long slice = 2LL * (products() > 0 ? products() : 1);
    const long long all = (inputs + outputs) * transform + chunks() * slices() * slice;
    long long until = all * call / level_.calls;
    const auto take = [&](long long count, long long cost) {
      const long long middles = until < 0 ? 0 : (until + cost / 2) / cost;
      until -= count * cost;
      return middles < count ? middles : count;
    };
    long long pieces = take(inputs, transform);
    pieces += take(chunks() * slices(), slice);
    pieces += take(outputs, transform);
    return static_cast<int>(pieces);
  }

  /** Pieces of work from first to last - 1. */
  void work(int first, int last) {
    const int inputs = stream_->shape.inputs, sum_pieces = chunks() * slices();
    const int past_window = state_.call * stream_->shape.block;
    for (; first < last && first < inputs; ++first) transform_window(first, past_window);
    const int sum_end = last < inputs + sum_pieces ? last : inputs + sum_pieces;
    if (first < sum_end) {
      sum_slices(first - inputs, sum_end - inputs);
      first = sum_end;
    }
    for (; first < last; ++first) {
      const int output = first - inputs - sum_pieces;
      transform_back(output, outputs(1 - state_.side, output));
    }
  }

 private:
  float* sums(int output) const {
    return memory_ + stream_->sums[k_] + static_cast<size_t>(output) * level_.N;
  }
  size_t chunk_stride() const {
    return static_cast<size_t>(level_.phases) * level_.slots * chunk_floats;
  }
  size_t input_stride() const { return chunks() * chunk_stride(); }
  float* windows(int phase) const {
    return memory_ + stream_->windows[k_] +
           static_cast<size_t>(phase) * level_.slots * chunk_floats;
  }

  ConvolutionStep step_at(int phase, int newest) const {
    const float* const response = reinterpret_cast<const float*>(response_);
    return {response,
            reinterpret_cast<const ConvolutionRoute*>(response + response_->routes),
            response_->first_route,
            k_,
            stream_->shape.outputs,
            level_.slots,
            newest,
            level_.N,
            windows(phase),
            input_stride(),
            chunk_stride(),
            sums(0)};
  }

  /** A chunk's products, and into how many slices they are cut. */
  int products() const { return response_->products[k_]; }
  int slices() const { return products() / most_products + 1; }

  void sum_slices(int first, int last) {
    const ConvolutionStep step = step_at(state_.phase, state_.newest);
    while (first < last) {
      const int chunk = first / slices(), slice = first % slices();
      const int whole = slice == 0 ? (last - first) / slices() : 0;
      if (whole > 0) {
        JURN_sum_chunks(&step, chunk, chunk + whole);
        first += whole * slices();
      } else {
        const int end = slice + last - first < slices() ? slice + last - first : slices();
        const auto at = [this](int i) {
          return static_cast<int>(static_cast<long long>(products()) * i / slices());
        };
        JURN_sum_part(&step, chunk, at(slice), at(end));
        first += end - slice;
      }
    }
  }

  Stream* const stream_;
  const Response* const response_;
  const int k_;
  const ConvolutionLevel& level_;
  ConvolutionState& state_;
  float* const memory_;
};

/* ---- One call ---- */

/** The first level's part of the block, and what the others have ready. */
void filter(Stream* stream, const Response* response) {
  const int block = stream->shape.block;
  Level first(stream, response, 0);
  first.sum();
  for (int output = 0; output < stream->shape.outputs; ++output) {
    first.transform_back(output);
    float* const y = filtered_block(stream, output);
    for (int k = 1; k < stream->plan.levels; ++k) {
      const float* const ready = Level(stream, response, k).outputs(stream->state[k].side, output) +
                                 stream->state[k].call * block;
      for (int i = 0; i < block; ++i) y[i] += ready[i];
    }
  }
}

void check(const Stream* stream, const Response* response) {
  JURN_LIMIT(stream->ready == 1, "ConvolutionStream_ID: the stream must be set up");
  JURN_LIMIT(response->ready == 1, "ConvolutionResponse_ID: the response must be set up");
  JURN_LIMIT(memcmp(&stream->shape, &response->shape, sizeof stream->shape) == 0,
             "ConvolutionStream_ID: the response must have the stream's shape");
  (void)stream, (void)response;
}

/** Mixes the previous response's block into the current one's. */
void fade(Stream* stream) {
  const int block = stream->shape.block;
  if (block < 2) return;
  for (int output = 0; output < stream->shape.outputs; ++output) {
    const float* const previous =
        reinterpret_cast<float*>(stream) + stream->previous + static_cast<size_t>(output) * block;
    float* const y = filtered_block(stream, output);
    for (int i = 0; i < block; ++i) {
      const float w = static_cast<float>(i) / static_cast<float>(block - 1);
      y[i] = (1.0f - w) * previous[i] + w * y[i];
    }
  }
}

/** Filters a block, from `previous` to `response` where there is one. */
template <class Input, class Output>
void run(Stream* stream, const Response* previous, const Response* response, Input input,
         Output output) {
  check(stream, response);
  if (previous) check(stream, previous);
  const int block = stream->shape.block;
  take(stream, input);
  stream->now += block;
  for (int k = 1; k < stream->plan.levels; ++k) {
    if (stream->state[k].call > 0) continue;
    Level(stream, response, k).advance();
    stream->state[k].side ^= 1;
  }
  Level first(stream, response, 0);
  first.advance();
  for (int i = 0; i < stream->shape.inputs; ++i) first.transform_window(i, 0);
  if (previous) {
    filter(stream, previous);
    for (int i = 0; i < stream->shape.outputs; ++i)
      memcpy(reinterpret_cast<float*>(stream) + stream->previous + static_cast<size_t>(i) * block,
             filtered_block(stream, i), block * sizeof(float));
    for (int k = 1; k < stream->plan.levels; ++k)
      Level(stream, response, k).compute_previous_step();
  }
  filter(stream, response);
  if (previous) fade(stream);
  give(stream, output);

  for (int k = 1; k < stream->plan.levels; ++k) {
    Level level(stream, response, k);
    int& call = stream->state[k].call;
    const int done = previous ? 0 : level.pieces_before(call);
    ++call;
    level.work(done, level.pieces_before(call));
    if (call == stream->plan.level[k].calls) call = 0;
  }
  if (stream->now == stream->past_frames) stream->now = 0;
}

}  // namespace

void MORVAX_ConvolutionRun_API(ConvolutionStream_ID* mFilter,
                               const ConvolutionResponse_ID* response, const short* input,
                               short* output) {
  run(mFilter, nullptr, response, input, output);
}
void MORVAX_ConvolutionRun_API_float(ConvolutionStream_ID* mFilter,
                                     const ConvolutionResponse_ID* response, const float* input,
                                     float* output) {
  run(mFilter, nullptr, response, input, output);
}
void MORVAX_ConvolutionRun_API_planar(ConvolutionStream_ID* mFilter,
                                      const ConvolutionResponse_ID* response,
                                      const float* const* input, float* const* output) {
  run(mFilter, nullptr, response, input, output);
}
void MORVAX_ConvolutionFade_API(ConvolutionStream_ID* mFilter,
                                const ConvolutionResponse_ID* previous,
                                const ConvolutionResponse_ID* next, const short* input,
                                short* output) {
  run(mFilter, previous, next, input, output);
}
void MORVAX_ConvolutionFade_API_float(ConvolutionStream_ID* mFilter,
                                      const ConvolutionResponse_ID* previous,
                                      const ConvolutionResponse_ID* next, const float* input,
                                      float* output) {
  run(mFilter, previous, next, input, output);
}
void MORVAX_ConvolutionFade_API_planar(ConvolutionStream_ID* mFilter,
                                       const ConvolutionResponse_ID* previous,
                                       const ConvolutionResponse_ID* next,
                                       const float* const* input, float* const* output) {
  run(mFilter, previous, next, input, output);
}
