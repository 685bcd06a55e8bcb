/* The steps of the levels of a convolution, and the schedule of their pieces. */
#include "../../../../common/exact_arithmetic.h"

#include "convolution_work.h"

#include <string.h>

namespace {

const RealFFT_ID* fft_of(const Convolution_response_st* response, int k) {
  return reinterpret_cast<const RealFFT_ID*>(reinterpret_cast<const float*>(response) +
                                             response->fft[k]);
}

/** Counts work for the tests, in the plan's unit of cost. */
void count_work(long long cost) {
#ifdef JURN_CLONE_HOOK
  JURN_convolution_work += cost;
#else
  (void)cost;
#endif
}

}  // namespace

ConvolutionWork::ConvolutionWork(Convolution_stream_st* stream,
                                 const Convolution_response_st* response, int k, int set)
    : stream_(stream),
      response_(response),
      k_(k),
      set_(set),
      level_(stream->plan.level[k]),
      state_(stream->state[k]),
      memory_(reinterpret_cast<float*>(stream)) {}

void ConvolutionWork::advance() {
  if (++state_.phase < level_.phases) return;
  state_.phase = 0;
  if (--state_.newest < 0) state_.newest = level_.slots - 1;
}

void ConvolutionWork::transform_window(int input, int frames) {
  transform_window_piece(input, frames, JURN_ALL_PIECES);
}

void ConvolutionWork::transform_window_piece(int input, int frames, int piece) {
  const int N = level_.N;
  const RealFFT_ID* const fft = fft_of(response_, k_);
  float* const window = sums(0);
  const float* samples = window;
  if (piece <= 0) {
    const float* const past =
        memory_ + stream_->past + static_cast<size_t>(input) * stream_->past_frames;
    int end = stream_->now - frames;
    if (end <= 0) end += stream_->past_frames;
    if (N <= end) {
      samples = past + (end - N);
    } else {
      memcpy(window + (N - end), past, end * sizeof(float));
      memcpy(window, past + stream_->past_frames - (N - end), (N - end) * sizeof(float));
    }
  }
  JURN_forward_piece(fft, window, samples, piece);
  if (is_last(piece))
    JURN_put_spectrum(windows(state_.phase) + input * input_stride() +
                          static_cast<size_t>(state_.newest) * chunk_floats,
                      chunk_stride(), window, N);
  count_work(JURN_piece_cost(N, piece < 0 ? piece : transform_pieces() - 1 - piece));
}

void ConvolutionWork::sum() {
  sum_chunks(step_at(state_.phase, state_.newest), 0, chunks());
}

void ConvolutionWork::compute_previous_step() {
  const bool wraps = state_.phase == 0;
  const int newest = state_.newest + wraps;
  sum_chunks(
      step_at(wraps ? level_.phases - 1 : state_.phase - 1, newest < level_.slots ? newest : 0), 0,
      chunks());
  for (int output = 0; output < stream_->shape.outputs; ++output)
    transform_back_to(outputs(state_.side, output), output, JURN_ALL_PIECES);
}

void ConvolutionWork::transform_back(int output) {
  transform_back_piece(output, sums(output) + level_.N / 2, JURN_ALL_PIECES);
}

void ConvolutionWork::transform_back_piece(int output, float* half, int piece) {
  JURN_inverse_piece(fft_of(response_, k_), sums(output), half, piece);
  count_work(JURN_piece_cost(level_.N, piece));
}

void ConvolutionWork::transform_back_to(float* samples, int output, int piece) {
  if (2 * level_.hop == level_.N) {
    transform_back_piece(output, samples, piece);
  } else {
    transform_back_piece(output, sums(output) + level_.N / 2, piece);
    if (is_last(piece))
      memcpy(samples, sums(output) + (level_.N - level_.hop), level_.hop * sizeof(float));
  }
}

int ConvolutionWork::pieces_before(int call) const {
  const long long pieces_of_one = transform_pieces();
  const long long inputs = stream_->shape.inputs * pieces_of_one;
  const long long outputs = stream_->shape.outputs * pieces_of_one;
  const long long transform = 2LL * slices() * JURN_transform_cost(level_.N);
  const long long slice = 2LL * pieces_of_one * (products() > 0 ? products() : 1);
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

void ConvolutionWork::work(int first, int last, int calls) {
  const int transforms = transform_pieces();
  const int inputs = stream_->shape.inputs * transforms, sum_pieces = chunks() * slices();
  for (; first < last && first < inputs; ++first)
    transform_window_piece(first / transforms, calls * stream_->shape.block, first % transforms);
  const int sum_end = last < inputs + sum_pieces ? last : inputs + sum_pieces;
  if (first < sum_end) {
    sum_slices(first - inputs, sum_end - inputs);
    first = sum_end;
  }
  for (; first < last; ++first) {
    const int piece = first - inputs - sum_pieces, output = piece / transforms;
    transform_back_to(outputs(1 - state_.side, output), output, piece % transforms);
  }
}

void ConvolutionWork::sum_chunks(const ConvolutionStep& step, int first, int last) {
  JURN_sum_chunks(&step, first, last);
  count_work(static_cast<long long>(last - first) * products());
}

void ConvolutionWork::sum_slices(int first, int last) {
  const ConvolutionStep step = step_at(state_.phase, state_.newest);
  while (first < last) {
    const int chunk = first / slices(), slice = first % slices();
    const int whole = slice == 0 ? (last - first) / slices() : 0;
    if (whole > 0) {
      sum_chunks(step, chunk, chunk + whole);
      first += whole * slices();
    } else {
      const int end = slice + last - first < slices() ? slice + last - first : slices();
      const auto at = [this](int i) {
        return static_cast<int>(static_cast<long long>(products()) * i / slices());
      };
      JURN_sum_part(&step, chunk, at(slice), at(end));
      count_work(at(end) - at(slice));
      first += end - slice;
    }
  }
}

ConvolutionStep ConvolutionWork::step_at(int phase, int newest) const {
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

float* ConvolutionWork::outputs(int side, int output) const {
  return memory_ + stream_->outputs[k_] +
         (static_cast<size_t>(2 * set_ + side) * stream_->shape.outputs + output) * level_.hop;
}

/* The first level has one set of sums: none of its work outlasts a call. */
float* ConvolutionWork::sums(int output) const {
  const int set = k_ > 0 ? set_ : 0;
  return memory_ + stream_->sums[k_] +
         (static_cast<size_t>(set) * stream_->shape.outputs + output) * level_.N;
}

float* ConvolutionWork::windows(int phase) const {
  return memory_ + stream_->windows[k_] + static_cast<size_t>(phase) * level_.slots * chunk_floats;
}

size_t ConvolutionWork::chunk_stride() const {
  return static_cast<size_t>(level_.phases) * level_.slots * chunk_floats;
}

size_t ConvolutionWork::input_stride() const {
  return chunks() * chunk_stride();
}
