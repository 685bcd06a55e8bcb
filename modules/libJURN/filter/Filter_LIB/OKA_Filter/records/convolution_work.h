/* The work of one level of a stream: its steps, cut into pieces that a fixed schedule spreads over
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

  /** How many of a step's pieces of work come before a call: those whose middle lies in the calls
   * before, when all calls take equal shares of the cost. The pieces are those of every input's
   * transform, the slices of all chunks, those of every output's transform. */
  int pieces_before(int call) const;
  /** Pieces of work from first to last - 1; the window ends `calls` calls ago. */
  void work(int first, int last, int calls);

  /** What one output puts out in the current step (`side` is the stream's), or in the next one. */
  float* outputs(int side, int output) const;

 private:
  float* sums(int output) const;
  float* windows(int phase) const;
  size_t chunk_stride() const;
  size_t input_stride() const;
  int chunks() const { return level_.N / chunk_floats; }
  /** A chunk's products, and into how many slices they are cut. */
  int products() const { return response_->products[k_]; }
  int slices() const { return products() / most_products + 1; }
  ConvolutionStep step_at(int phase, int newest) const;
  void sum_chunks(const ConvolutionStep& step, int first, int last);
  void sum_slices(int first, int last);
  int transform_pieces() const { return JURN_fft_pieces(level_.N); }
  bool is_last(int piece) const { return piece < 0 || piece == transform_pieces() - 1; }
  void transform_window_piece(int input, int frames, int piece);
  /** A piece of an output's transform; the last gives the half that holds the last hop, or the last
   * hop itself. */
  void transform_back_piece(int output, float* half, int piece);
  void transform_back_to(float* samples, int output, int piece);

  Convolution_stream_st* const stream_;
  const Convolution_response_st* const response_;
  const int k_, set_;
  const ConvolutionLevel& level_;
  ConvolutionState& state_;
  float* const memory_;
};

/** Debug builds assert that both are set up and of one shape. */
void JURN_check_convolution(const Convolution_stream_st* stream,
                            const Convolution_response_st* response);

/** The block's frames of one output: the last ones of the first level's samples. */
float* JURN_filtered_block(Convolution_stream_st* stream, int output);

/** Turns the stream from the response that it ran with to the next one, once the current block has
 * been filtered through the former, and keeps that block for the mix. Says whether all pieces of
 * the current step that come before the current call are done. */
bool JURN_exchange_response(Convolution_stream_st* stream, const Convolution_response_st* next);

/** Mixes the kept block into the current one's. */
void JURN_mix_fade(Convolution_stream_st* stream);

#endif
