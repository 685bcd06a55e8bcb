/* Convolution with impulse responses of any length and no latency, between any channels.
 *
 * Two pieces of memory that the caller provides:
 *  - ConvolutionResponse_ID: what to convolve with. A list of routes, each from one input to one
 *    output through taps of its own, kept as spectra. No run changes it, so any number of streams
 *    on any threads share one.
 *  - ConvolutionStream_ID: the past of one stream of blocks.
 * Both belong to a shape: the channels, the frames of a block and the longest impulse response.
 * A stream runs with any response of its own shape, and fades from one to another.
 *
 * Order of use: fill a shape, ask for the sizes, provide the memory, set both up, then run one
 * block per call. A whole program, a stereo room of two seconds at 48 kHz:
 * @code
 *   #include <JURN/Convolution_control.h>
 *   #include <stdlib.h>
 *
 *   static float left[96000], right[90000];  // the taps
 *
 *   int main(void) {
 *     const Convolution_shape shape = {2, 2, 256, 96000};  // inputs, outputs, block, most taps
 *     const Convolution_route routes[] = {{0, 0, left, 96000}, {1, 1, right, 90000}};
 *     left[0] = right[0] = 0.5f;
 *     size_t size = MORVAX_ConvolutionResponseSize_API(&shape, routes, 2);
 *     ConvolutionResponse_ID* hall = malloc(size);
 *     if (!hall) return 1;
 *     if (MORVAX_ConvolutionResponseCalcu_API(hall, size, &shape, routes, 2) != 0) return 1;
 *     size = MORVAX_ConvolutionStreamSize_API(&shape);
 *     ConvolutionStream_ID* stream = malloc(size);
 *     if (!stream || MORVAX_ConvolutionStreamCalcu_API(stream, size, &shape) != 0) return 1;
 *     short block[2 * 256] = {10000, -10000};
 *     for (int i = 0; i < 10; ++i)  // in place
 *       MORVAX_ConvolutionRun_API(stream, hall, block, block);
 *     free(hall), free(stream);
 *     return 0;
 *   }
 * @endcode
 *
 * What a run computes, for every output and frame:
 *
 *   y[n] = sum over the output's routes, and over j, of b[j] x[n-j]
 *
 * with x the route's input. There is no latency: y[n] holds the taps of x[n] itself.
 *
 * Algorithm: partitioned overlap-save convolution with frequency-domain delay lines on the
 * library's real FFT, and on longer transforms of its kind, up to 131072. The taps are cut into two
 * to four levels (one when they are few), the first of short partitions that every call computes,
 * the others of longer ones, whose work is spread over the calls by a fixed schedule. Partition
 * sizes follow from the shape alone: a transform of the first level has a power of two of at least
 * twice the block (32 at least), and a partition as many whole blocks as the transform has room
 * for.
 *
 * Cost of a call: where the routes fill the shape, as many as the larger of inputs and outputs and
 * each with at least half of its taps, the dearest run has less than twice the operations of the
 * mean one, in blocks of less than 8 frames less than 2.8 times. In time 1.1 to 2.1 times the mean
 * were measured from 16 frames on. Of a short response in a long shape the long levels' transforms
 * remain: the dearest run costs up to 5 times a mean that is small. So let a shape be as long as
 * the longest response that it will meet, and no longer.
 *
 * Arithmetic: in each level, and for each bin of the spectrum, the complex products of window and
 * partition are added from 0 in the order of the routes in the list, and in each route in
 * increasing partition index; every product is rounded before it is added, as MORVAX_rfftmut2
 * rounds it. The levels' samples are added in increasing level. So the bits follow from the shape,
 * the routes and the input, and are the same on every CPU and compiler.
 *
 * Int16 samples keep their value (no scaling to +-1.0) and are written by stoshort; floats may have
 * any scale and are not limited.
 *
 * Error against exact convolution: that of float transforms, which goes by what they sum and not by
 * what comes out. With L the input's rms level times the root of the sum of the taps' squares, its
 * rms is 1e-7 to 3.2e-7 L for noise through noise, and at most 7e-7 L through decays, high-passes
 * and single taps in shapes of all sizes. An output that the response takes away, such as a tone in
 * a notch, is exact to that part of L, not of itself. Taps that are thousands of equal values add
 * up parts of a slow tone that are larger than L and cancel: up to 7e-6 L.
 *
 * A float sample that is no finite number spoils whole blocks, until it has left the past:
 * shape.taps frames later, and two partitions more.
 *
 * Real time: every function is real-time safe but MORVAX_ConvolutionResponseCalcu_API, which takes
 * long.
 *
 * Both memories hold no pointers. They may have any alignment of a float, be copied or moved by
 * memcpy between two calls, and be written to a file for the same build; multiples of 64 bytes are
 * the fastest place. Nothing is allocated, and no function keeps state elsewhere: distinct streams
 * may run on distinct threads at once, one stream on one thread at a time. The run and the fade
 * check nothing; debug builds assert that stream and response are set up and of one shape. */
#ifndef JURN_CONVOLUTION_CONTROL_H
#define JURN_CONVOLUTION_CONTROL_H

#include <stddef.h>

#include "../../common/JURN_api.h"

JURN_EXTERN_C_BEGIN

/** Inputs, and outputs, at most. */
#define JURN_CONVOLUTION_CHANNELS 16
/** Routes of a response at most. */
#define JURN_CONVOLUTION_ROUTES 256
/** Frames of a block at most. */
#define JURN_CONVOLUTION_BLOCK 4096
/** Taps of a route at most. */
#define JURN_CONVOLUTION_TAPS 1048576

/** What a set-up returns: 0, or the first thing that does not fit. */
enum Convolution_error {
  JURN_CONVOLUTION_OK = 0,
  JURN_CONVOLUTION_BAD_CHANNELS = -1, /**< inputs or outputs are not from 1 to 16 */
  JURN_CONVOLUTION_BAD_BLOCK = -2,    /**< block is not from 1 to 4096 */
  JURN_CONVOLUTION_BAD_TAPS = -3,     /**< taps are not from 1 to 1048576 */
  JURN_CONVOLUTION_BAD_COUNT = -4,    /**< the count of routes is not from 0 to 256 */
  JURN_CONVOLUTION_BAD_ROUTE = -5,    /**< a route's input or output is not one of the shape's */
  JURN_CONVOLUTION_BAD_LENGTH = -6,   /**< a route's blen is not from 1 to the shape's taps */
  JURN_CONVOLUTION_BAD_VALUE = -7,    /**< a tap is infinite or no number */
  JURN_CONVOLUTION_TOO_SMALL = -8,    /**< the memory is smaller than the size function says */
  JURN_CONVOLUTION_TOO_LARGE = -9     /**< the size does not fit this machine's size_t */
};

/** What a stream and its responses have in common. */
struct Convolution_shape_st {
  int inputs;  /**< channels in, 1 to 16 */
  int outputs; /**< channels out, 1 to 16 */
  int block;   /**< frames of every call, 1 to 4096 */
  int taps;    /**< taps of the longest route that will be used, 1 to 1048576 */
};
typedef struct Convolution_shape_st Convolution_shape;

/** One way through a response. Several may share an input, an output, or both. */
struct Convolution_route_st {
  int input;      /**< from 0 */
  int output;     /**< from 0 */
  const float* b; /**< taps, b[0] of the current sample; only the set-up reads them */
  int blen;       /**< taps, 1 to the shape's */
};
typedef struct Convolution_route_st Convolution_route;

/** A prepared response, and a stream: memory whose content only the functions know. */
typedef struct Convolution_response_st ConvolutionResponse_ID;
typedef struct Convolution_stream_st ConvolutionStream_ID;

/**
 * The bytes that a response takes: 131,584 to 197,376 for the transforms' tables, or where a
 * transform is longer than 16384 twelve times its length, 1,573,376 at most, and for every
 * route 7.8 to 9 per tap where the block is a power of two to 1024 and the taps are 48,000 or more;
 * 5 to 15 for any block and taps of at least 1000 and four blocks.
 *
 * @param shape the stream's shape
 * @param routes count routes; b is not read
 * @param count routes, 0 to 256; none is silence
 * @return the size, or 0 for what the set-up would refuse
 *
 * State touched: none. Real-time safe.
 */
JURN_API size_t MORVAX_ConvolutionResponseSize_API(const Convolution_shape* shape,
                                                   const Convolution_route* routes, int count);

/**
 * Prepares a response: transforms the taps of every route.
 *
 * @param response memory of `size` bytes, aligned as a float
 * @param size at least what MORVAX_ConvolutionResponseSize_API gives
 * @param shape the stream's shape
 * @param routes count routes in the order in which sums take them
 * @param count routes, 0 to 256
 * @return JURN_CONVOLUTION_OK, or another Convolution_error, which leaves the response unusable
 *
 * State touched: the response. Wrong input: see the return. No heap and no lock, but the time of
 * about two transforms per partition: run it on another thread than the audio's, for any response
 * that no stream is running with at the moment.
 */
JURN_API int MORVAX_ConvolutionResponseCalcu_API(ConvolutionResponse_ID* response, size_t size,
                                                 const Convolution_shape* shape,
                                                 const Convolution_route* routes, int count);

/**
 * The bytes that a stream takes, with as many outputs as inputs, per tap and input: 8 to 16 where
 * the block is a power of two to 1024 and the taps are 48,000 or more; up to 33 for any block, most
 * where it lies just above a power of two; up to 61 from 1000 taps and four blocks on.
 *
 * @param shape the shape
 * @return the size, or 0 for a shape that the set-up would refuse
 *
 * State touched: none. Real-time safe.
 */
JURN_API size_t MORVAX_ConvolutionStreamSize_API(const Convolution_shape* shape);

/**
 * Sets a stream up, silent. Another block length, other channels or longer responses need it anew.
 *
 * @param mFilter memory of `size` bytes, aligned as a float
 * @param size at least what MORVAX_ConvolutionStreamSize_API gives
 * @param shape the shape
 * @return JURN_CONVOLUTION_OK, or another Convolution_error, which leaves the stream unusable
 *
 * State touched: the stream. Wrong input: see the return. Real-time safe; the time is that of
 * clearing the memory.
 */
JURN_API int MORVAX_ConvolutionStreamCalcu_API(ConvolutionStream_ID* mFilter, size_t size,
                                               const Convolution_shape* shape);

/**
 * Returns a stream to silence; its shape stays.
 *
 * @param mFilter a stream that was set up
 *
 * State touched: the stream. Wrong input: debug builds assert the set-up. Real-time safe; the time
 * is that of clearing the memory.
 */
JURN_API void MORVAX_ConvolutionReset_API(ConvolutionStream_ID* mFilter);

/**
 * Filters one block of int16 samples.
 *
 * @param mFilter a stream that was set up
 * @param response a response of the same shape, the one that the previous block ended with; to
 *   another one MORVAX_ConvolutionFade_API leads
 * @param input block x inputs interleaved samples
 * @param output receives block x outputs interleaved samples, by stoshort; may be input, with room
 *   for what is written
 *
 * State touched: the stream. Wrong input: debug builds assert the shapes. Real-time safe.
 */
JURN_API void MORVAX_ConvolutionRun_API(ConvolutionStream_ID* mFilter,
                                        const ConvolutionResponse_ID* response, const short* input,
                                        short* output);

/**
 * Filters one block of floats: MORVAX_ConvolutionRun_API without limits.
 *
 * @param mFilter, response as there
 * @param input block x inputs interleaved samples on any scale
 * @param output receives block x outputs interleaved samples; may be input, with room for what is
 *   written
 *
 * State touched, wrong input and real time: as there.
 */
JURN_API void MORVAX_ConvolutionRun_API_float(ConvolutionStream_ID* mFilter,
                                              const ConvolutionResponse_ID* response,
                                              const float* input, float* output);

/**
 * Filters one block of floats, each channel in an array of its own.
 *
 * @param mFilter, response as of MORVAX_ConvolutionRun_API
 * @param input as many arrays of block samples as the shape has inputs
 * @param output as many arrays of block samples as the shape has outputs; any of them may be any
 *   of input
 *
 * State touched, wrong input and real time: as there.
 */
JURN_API void MORVAX_ConvolutionRun_API_planar(ConvolutionStream_ID* mFilter,
                                               const ConvolutionResponse_ID* response,
                                               const float* const* input, float* const* output);

/**
 * Prepares a fade to another response, a share with every call, while the present one goes on.
 *
 * Call it once after each run until it returns 0; the next block can then be the fade. To let more
 * blocks pass first, go on calling it. It returns 0 after at most two hops of the longest
 * partitions, 8192 frames or a quarter of the shape's taps at most, and at once where there is one
 * level.
 * @code
 *   if (next && ready) {
 *     MORVAX_ConvolutionFade_API(stream, playing, next, block, block);
 *     playing = next, next = NULL, ready = 0;
 *   } else {
 *     MORVAX_ConvolutionRun_API(stream, playing, block, block);
 *     if (next) ready = MORVAX_ConvolutionPrepareFade_API(stream, next) == 0;
 *   }
 * @endcode
 *
 * @param mFilter a stream that was set up
 * @param next the response to fade to, of the same shape; nothing needs it between the calls, so
 *   another one may take its place at any time
 * @return how many calls are still needed, each after a run of its own; 0 when the fade is prepared
 *
 * A response is known by its routes and taps, wherever it lies. Another one than in the call before
 * starts anew, and so does a run without this call after it. A second call after the same run does
 * nothing. A preparation that nothing follows costs nothing.
 *
 * State touched: the stream, nothing of it that the present response needs. Wrong input: debug
 * builds assert the shapes. Real-time safe. A call costs less than one run with `next`.
 */
JURN_API int MORVAX_ConvolutionPrepareFade_API(ConvolutionStream_ID* mFilter,
                                               const ConvolutionResponse_ID* next);

/**
 * Filters one block of int16 samples through two responses, and fades from the first to the second.
 *
 *   y[i] = (1 - w) previous[i] + w next[i],   w = i / (block - 1)
 *
 * The ramp spans exactly this block: its first frame is wholly the previous response's, its last
 * wholly the next one's. A block of one frame is the next one's. Both see the same past, so that
 * what follows is as if the next response had run from the start.
 *
 * @param mFilter a stream that was set up
 * @param previous the response that the previous block ended with
 * @param next another response of the same shape, with any routes; the following blocks run with it
 * @param input, output as for MORVAX_ConvolutionRun_API
 *
 * State touched: the stream. After the call nothing needs the previous response. Wrong input: debug
 * builds assert the shapes. Real-time safe. One call takes the place of a run. Where
 * MORVAX_ConvolutionPrepareFade_API has returned 0 for `next` since the last run, it costs at most
 * two runs. Otherwise it gives the same bits and ends what was being prepared, but computes here
 * what the longer partitions give in up to two of their hops: for long responses and short blocks
 * more than a hundred runs.
 */
JURN_API void MORVAX_ConvolutionFade_API(ConvolutionStream_ID* mFilter,
                                         const ConvolutionResponse_ID* previous,
                                         const ConvolutionResponse_ID* next, const short* input,
                                         short* output);

/** MORVAX_ConvolutionFade_API on the arrays of MORVAX_ConvolutionRun_API_float. */
JURN_API void MORVAX_ConvolutionFade_API_float(ConvolutionStream_ID* mFilter,
                                               const ConvolutionResponse_ID* previous,
                                               const ConvolutionResponse_ID* next,
                                               const float* input, float* output);

/** MORVAX_ConvolutionFade_API on the arrays of MORVAX_ConvolutionRun_API_planar. */
JURN_API void MORVAX_ConvolutionFade_API_planar(ConvolutionStream_ID* mFilter,
                                                const ConvolutionResponse_ID* previous,
                                                const ConvolutionResponse_ID* next,
                                                const float* const* input, float* const* output);

JURN_EXTERN_C_END

#endif
