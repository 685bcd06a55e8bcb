/* The steps of the levels of a convolution, and the schedule of their slices. */
#include "../../../../common/exact_arithmetic.h"

#include "convolution_work.h"

#include <string.h>

namespace {

const float* table_of(const Convolution_response_st* response) {
  return reinterpret_cast<const float*>(response) + response->table;
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
      shares_(response->shares[k]),
      state_(stream->state[k]),
      memory_(reinterpret_cast<float*>(stream)) {}

void ConvolutionWork::advance() {
  if (++state_.phase < level_.phases) return;
  state_.phase = 0;
  if (--state_.newest < 0) state_.newest = level_.slots - 1;
}

JURN_Window ConvolutionWork::window(int input, int frames) const {
  const int N = level_.N, kept = stream_->past_frames;
  const float* const past = memory_ + stream_->past + static_cast<size_t>(input) * kept;
  int end = stream_->now - frames;
  if (end <= 0) end += kept;
  if (N <= end) return {past + (end - N), N, nullptr};
  return {past + kept - (N - end), N - end, past};
}

void ConvolutionWork::put_spectrum(int input, int first, int last) {
  JURN_put_spectrum(windows(state_.phase) + input * input_stride() +
                        static_cast<size_t>(state_.newest) * chunk_floats,
                    chunk_stride(), sums(0), level_.N, first, last);
}

void ConvolutionWork::transform_window(int input, int frames) {
  JURN_forward_steps(table_of(response_), level_.N, sums(0), window(input, frames), 0,
                     JURN_ALL_STEPS);
  put_spectrum(input, 0, chunks());
  count_work(level_.transform_cost + level_.put_cost);
}

void ConvolutionWork::transform_window(int input, int frames, int from, int to) {
  const int cost = level_.transform_cost;
  if (from < cost)
    count_work(JURN_forward_steps(table_of(response_), level_.N, sums(0), window(input, frames),
                                  from, to < cost ? to : cost));
  const auto chunk_at = [this](int put) {
    if (put <= 0) return 0;
    return put < level_.put_cost ? put * chunks() / level_.put_cost & -put_chunks : chunks();
  };
  const int first = chunk_at(from - cost), last = chunk_at(to - cost);
  if (first == last) return;
  put_spectrum(input, first, last);
  count_work((last - first) * (level_.put_cost / chunks()));
}

void ConvolutionWork::sum() {
  sum_chunks(step_at(state_.phase, state_.newest), 0, chunks());
}

/* Of a level above the first, whose windows have one phase: it moves on by more than a third. */
void ConvolutionWork::compute_previous_step() {
  const int newest = state_.newest + 1;
  sum_chunks(step_at(0, newest < level_.slots ? newest : 0), 0, chunks());
  for (int output = 0; output < stream_->shape.outputs; ++output)
    transform_back(outputs(state_.side, output), output);
}

void ConvolutionWork::transform_back(int output) {
  transform_back(sums(output) + level_.N / 2, output);
}

void ConvolutionWork::transform_back(float* half, int output) {
  JURN_inverse_steps(table_of(response_), level_.N, sums(output), half, 0, JURN_ALL_STEPS);
  count_work(level_.transform_cost);
}

void ConvolutionWork::transform_back(float* half, int output, int from, int to) {
  count_work(JURN_inverse_steps(table_of(response_), level_.N, sums(output), half, from, to));
}

/* Levels take turns where they work for several calls at once. */
int ConvolutionWork::work_before(int call) const {
  const int until = ((call + k_) & -level_.share) - k_;
  if (until <= 0) return 0;
  const long long work = static_cast<long long>(until) * shares_.call_cost / 16;
  return call < level_.calls && work < shares_.step_cost ? static_cast<int>(work)
                                                         : shares_.step_cost;
}

void ConvolutionWork::work(int from, int to, int calls) {
  if (from == to) return;
  /* Of a part of the work that costs so much. */
  const auto part = [&](int cost, auto run) {
    if (from < cost && to > 0) run(from > 0 ? from : 0, to < cost ? to : cost);
    from -= cost, to -= cost;
  };
  for (int input = 0; input < stream_->shape.inputs; ++input)
    part(level_.transform_cost + level_.put_cost, [&](int first, int last) {
      transform_window(input, calls * stream_->shape.block, first, last);
    });
  part(chunks() * shares_.slices * shares_.slice_cost,
       [&](int first, int last) { sum(first, last); });
  for (int output = 0; output < stream_->shape.outputs; ++output)
    part(level_.transform_cost, [&](int first, int last) {
      transform_back(outputs(1 - state_.side, output), output, first, last);
    });
}

void ConvolutionWork::sum(int from, int to) {
  const ConvolutionStep step = step_at(state_.phase, state_.newest);
  const int slices = shares_.slices;
  int first = (from + shares_.slice_cost - 1) / shares_.slice_cost;
  const int last = (to + shares_.slice_cost - 1) / shares_.slice_cost;
  while (first < last) {
    const int chunk = first / slices, slice = first - chunk * slices;
    const int whole = slice == 0 ? (last - first) / slices : 0;
    const int until = last - first < slices - slice ? slice + last - first : slices;
    if (whole > 0)
      sum_chunks(step, chunk, chunk + whole);
    else
      sum_slices(step, chunk, slice, until);
    first += whole > 0 ? whole * slices : until - slice;
  }
}

void ConvolutionWork::sum_chunks(const ConvolutionStep& step, int first, int last) {
  JURN_sum_chunks(&step, first, last);
  count_work(static_cast<long long>(last - first) * shares_.products * level_.product_cost);
}

void ConvolutionWork::sum_slices(const ConvolutionStep& step, int chunk, int first, int last) {
  const int from = shares_.products * first / shares_.slices;
  const int to = shares_.products * last / shares_.slices;
  JURN_sum_part(&step, chunk, from, to);
  count_work(static_cast<long long>(to - from) * level_.product_cost);
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
         (static_cast<size_t>(2 * set_ + side) * stream_->shape.outputs + output) * (level_.N / 2);
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
