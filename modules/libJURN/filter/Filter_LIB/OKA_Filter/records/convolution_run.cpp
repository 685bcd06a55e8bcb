/* The run of a convolution, block by block. */
#include "../../../../common/exact_arithmetic.h"

#include <string.h>

#include "../../../../common/functions.h"
#include "../../../../common/internal.h"
#include "../../../../common/samples.h"
#include "convolution_work.h"

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

void give(Stream* stream, short* output) {
  const int outputs = stream->shape.outputs, block = stream->shape.block;
  if (outputs == 1) {
    JURN_to_short(output, JURN_filtered_block(stream, 0), block);
  } else if (outputs == 2) {
    JURN_join_to_short(output, JURN_filtered_block(stream, 0), JURN_filtered_block(stream, 1),
                       block);
  } else {
    for (int channel = 0; channel < outputs; ++channel) {
      const float* const y = JURN_filtered_block(stream, channel);
      for (int i = 0; i < block; ++i) output[i * outputs + channel] = stoshort(y[i]);
    }
  }
}

void give(Stream* stream, float* output) {
  const int outputs = stream->shape.outputs, block = stream->shape.block;
  for (int channel = 0; channel < outputs; ++channel) {
    const float* const y = JURN_filtered_block(stream, channel);
    for (int i = 0; i < block; ++i) output[i * outputs + channel] = y[i];
  }
}

void give(Stream* stream, float* const* output) {
  for (int channel = 0; channel < stream->shape.outputs; ++channel)
    memcpy(output[channel], JURN_filtered_block(stream, channel),
           stream->shape.block * sizeof(float));
}

/* ---- One call ---- */

/** The first level's part of the block, and what the others have ready. */
void filter(Stream* stream, const Response* response) {
  const int block = stream->shape.block;
  ConvolutionWork first(stream, response, 0, 0);
  first.sum();
  for (int output = 0; output < stream->shape.outputs; ++output) {
    first.transform_back(output);
    float* const y = JURN_filtered_block(stream, output);
    for (int k = 1; k < stream->plan.levels; ++k) {
      const ConvolutionWork level(stream, response, k, stream->set);
      const float* const ready = level.ready(output) + stream->state[k].call * block;
      for (int i = 0; i < block; ++i) y[i] += ready[i];
    }
  }
}

/** Filters a block, from `previous` to `response` where there is one. */
template <class Input, class Output>
void run(Stream* stream, const Response* previous, const Response* response, Input input,
         Output output) {
  JURN_check_convolution(stream, response);
  if (previous) JURN_check_convolution(stream, previous);
  take(stream, input);
  stream->now += stream->shape.block;
  for (int k = 1; k < stream->plan.levels; ++k) {
    if (stream->state[k].call > 0) continue;
    ConvolutionWork(stream, response, k, stream->set).advance();
    stream->state[k].side ^= 1;
  }
  ConvolutionWork first(stream, response, 0, 0);
  first.advance();
  for (int i = 0; i < stream->shape.inputs; ++i) first.transform_window(i, 0);
  bool up_to_date = true;
  if (previous) {
    filter(stream, previous);
    up_to_date = JURN_exchange_response(stream, response);
  }
  filter(stream, response);
  if (previous) JURN_mix_fade(stream);
  give(stream, output);

  for (int k = 1; k < stream->plan.levels; ++k) {
    ConvolutionWork level(stream, response, k, stream->set);
    int& call = stream->state[k].call;
    const int done = up_to_date ? level.work_before(call) : 0;
    ++call;
    level.work(done, level.work_before(call), call);
    if (call == stream->plan.level[k].calls) call = 0;
  }
  if (stream->unprepared < 2) ++stream->unprepared;
  if (stream->now == stream->past_frames) stream->now = 0;
}

}  // namespace

void JURN_check_convolution(const Stream* stream, const Response* response) {
  JURN_LIMIT(stream->ready == 1, "ConvolutionStream_ID: the stream must be set up");
  JURN_LIMIT(response->ready == 1, "ConvolutionResponse_ID: the response must be set up");
  JURN_LIMIT(memcmp(&stream->shape, &response->shape, sizeof stream->shape) == 0,
             "ConvolutionStream_ID: the response must have the stream's shape");
  (void)stream, (void)response;
}

float* JURN_filtered_block(Stream* stream, int output) {
  const int N = stream->plan.level[0].N;
  return reinterpret_cast<float*>(stream) + stream->sums[0] + static_cast<size_t>(output) * N +
         (N - stream->shape.block);
}

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
