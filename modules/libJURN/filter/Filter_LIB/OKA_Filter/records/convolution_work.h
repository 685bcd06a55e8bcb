/* The work of one level of a stream: its steps, cut into slices that a fixed schedule spreads over
 * the calls of a step. */
#ifndef JURN_CONVOLUTION_WORK_H
#define JURN_CONVOLUTION_WORK_H

#include "../../../../common/fast_convolution.h"
#include "convolution.h"

/** A level of a stream, with the response that it runs, in one of the stream's sets of sums and
 * outputs: the current one, or the other one, which a fade is prepared in. */
class ConvolutionWork {
 public:
  ConvolutionWork(Convolution_stream_st* stream, const Convolution_response_st* response, int k,
                  int set);

  /** The next step's window comes; every phases-th one starts a new slot. */
  void advance();
  /** Transforms the window of one input that ends `frames` before the place of the next block. */
  void transform_window(int input, int frames);
  /** Sums all chunks of the current step. */
  void sum();
  /** The samples of one output: the last `hop` of what stands in its sums afterwards, of which the
   * first half is none. */
  void transform_back(int output);
  /** All chunks of the step before the current one, and their samples into the half of the outputs
   * that is being put out. */
  void compute_previous_step();

  /** The cost of a step's work that comes before a call. */
  int work_before(int call) const;
  /** What begins from `from` to `to` - 1 of a step's work: every input's transform, the slices of
   * all chunks, every output's transform. The window ends `calls` calls ago. */
  void work(int from, int to, int calls);

  /** What one output puts out in the current step (`side` is the stream's). */
  const float* ready(int output) const {
    return outputs(state_.side, output) + (level_.N / 2 - level_.hop);
  }

 private:
  float* sums(int output) const;
  float* windows(int phase) const;
  size_t chunk_stride() const;
  size_t input_stride() const;
  int chunks() const { return level_.N / chunk_floats; }
  ConvolutionStep step_at(int phase, int newest) const;
  JURN_Window window(int input, int frames) const;
  void put_spectrum(int input, int first, int last);
  void transform_back(float* half, int output);
  /** What begins from `from` to `to` - 1 of a part of the work, each counted from the part's start
   * on. */
  void transform_window(int input, int frames, int from, int to);
  void sum(int from, int to);
  void transform_back(float* half, int output, int from, int to);
  void sum_chunks(const ConvolutionStep& step, int first, int last);
  void sum_slices(const ConvolutionStep& step, int chunk, int first, int last);
  /** The last N/2 samples of a step of one output, its last hop of which are put out. */
  float* outputs(int side, int output) const;

  Convolution_stream_st* const stream_;
  const Convolution_response_st* const response_;
  const int k_, set_;
  const ConvolutionLevel& level_;
  const ConvolutionShares& shares_;
  ConvolutionState& state_;
  float* const memory_;
};

/** Debug builds assert that both are set up and of one shape. */
void JURN_check_convolution(const Convolution_stream_st* stream,
                            const Convolution_response_st* response);

/** The block's frames of one output: the last ones of the first level's samples. */
float* JURN_filtered_block(Convolution_stream_st* stream, int output);

/** Turns the stream from the response that it ran with to the next one, once the current block has
 * been filtered through the former, and keeps that block for the mix. Says whether all work of
 * the current step that comes before the current call is done. */
bool JURN_exchange_response(Convolution_stream_st* stream, const Convolution_response_st* next);

/** Mixes the kept block into the current one's. */
void JURN_mix_fade(Convolution_stream_st* stream);

#endif
