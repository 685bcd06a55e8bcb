/* Cascades of second-order sections in double precision, for floats, 24 bits and files.
 *
 * Two pieces of memory that the caller provides:
 *  - SectionsFilter_ID: the coefficients, one list of sections for all channels or one for each. No
 *    run changes it, so any number of streams on any threads share one.
 *  - SectionsStream_ID: the past of one stream of samples through one filter.
 *
 * Order of use: ask for the sizes, provide the memory, set both up, then run any number of frames
 * per call. A whole program:
 * @code
 *   #include <JURN/Sections_control.h>
 *   #include <stdlib.h>
 *
 *   int main(void) {
 *     const double low_pass[] = {0.25, 0.5, 0.25, 1.0, -0.5, 0.125};  // {b0, b1, b2, a0, a1, a2}
 *     const Sections_shape stereo = {2, 1};                           // channels, sections
 *     size_t size = MORVAX_SectionsFilterSize_API(1, 1);
 *     SectionsFilter_ID* filter = malloc(size);
 *     if (!filter || MORVAX_SectionsFilterCalcu_API(filter, size, low_pass, 1, 1) != 0) return 1;
 *     size = MORVAX_SectionsStreamSize_API(&stereo);
 *     SectionsStream_ID* stream = malloc(size);
 *     if (!stream || MORVAX_SectionsStreamCalcu_API(stream, size, &stereo) != 0) return 1;
 *     float block[2 * 480] = {1.0f};
 *     MORVAX_SectionsRun_API_float(stream, filter, block, 480, block);  // in place
 *     free(filter), free(stream);
 *     return 0;
 *   }
 * @endcode
 *
 * What a run computes, for every channel, section after section:
 *
 *   y[n] = (b0 x[n] + b1 x[n-1] + b2 x[n-2] - a1 y[n-1] - a2 y[n-2]) / a0
 *
 * with x the input for the first section, and the output of the one before for the others. There
 * is no latency. With 0 sections the output is the input, converted.
 *
 * **Cuts.** The output does not depend on how a stream is cut into calls, not in a single bit. A
 * call of any number of frames, 0 included, will do; multiples of 4 are the fastest, and a call of
 * one frame costs up to four times as much for each.
 *
 * **Samples.** Int16 samples keep their value (no scaling to +-1.0) and are written rounded to the
 * nearest, ties to even, and limited. Floats and doubles may have any scale and are not limited.
 * A sample that is infinite or no number counts as 0, and is counted; nothing of it lasts.
 *
 * **Silence.** At every frame of the stream whose number is a multiple of 256, states of a section
 * that are both below 1e-30 become 0. So what decays ends in exact zeros, and silence after music
 * costs what music costs. States that are not finite, as in a section that is not stable, become 0
 * there too.
 *
 * **Arithmetic.** A step takes four samples x0 to x3 of a section and its states s0 and s1, and
 * gives four outputs and the next states; everything is double:
 *
 *   y0 = (c0 s0 + e0 s1) + (0 + b x0)
 *   y1 = (c1 s0 + e1 s1) + ((0 + e0 x0) + b x1)
 *   y2 = (c2 s0 + e2 s1) + (((0 + e1 x0) + e0 x1) + b x2)
 *   y3 = (c3 s0 + e3 s1) + ((((0 + e2 x0) + e1 x1) + e0 x2) + b x3)
 *   s0' = (p s0 + q s1) + (((0 + f0 x0) + f1 x1) + f2 x2)
 *   s1' = (p s1 + r s0) + ((((0 + g0 x0) + g1 x1) + g2 x2) + x3)
 *
 * Every product is rounded before it is added. Steps start at the multiples of 4 of the stream's
 * frames; samples that are not known yet count as 0 until they are. The coefficients belong to the
 * states of the filter in a form whose rounding errors stay small for poles near 1, for double
 * poles and for real ones: the matrix of the step of one sample is {{m, k}, {D/k, m}} with
 * m = -a1/2, D = m^2 - a2 and k = max(sqrt |D|, |1 - |m||), or 1 where that is 0, the root by six
 * steps of Newton's. They are computed from the caller's in pairs of doubles and rounded once.
 * Between sections a signal is scaled by a power of two, which keeps it near the input's level
 * where the gains of a design all lie in its first section. So the bits follow from the sections
 * and the input, and are the same on every CPU and compiler. The error is at most that of the
 * transposed direct form II in double.
 *
 * **Speed.** A vector holds as many sections as it holds doubles: eight with AVX-512, four with
 * AVX2, two with NEON and SSE2; a single section has its four outputs in the lanes instead. Two
 * doubles a vector take about 1.5 times as long as four, measured with SSE2, and give the same
 * bits.
 *
 * Both memories hold no pointers. They may have any alignment of a double, be copied or moved by
 * memcpy between two calls, and be written to a file for the same build; multiples of 64 bytes are
 * the fastest place. Nothing is allocated, and no function keeps state elsewhere: distinct streams
 * may run on distinct threads at once, one stream on one thread at a time. Runs and fades check
 * nothing; debug builds assert the limits.
 *
 * **Real time**: every function is real-time safe but MORVAX_SectionsRing_API. */
#ifndef JURN_SECTIONS_CONTROL_H
#define JURN_SECTIONS_CONTROL_H

#include <stddef.h>

#include "../../common/JURN_api.h"

JURN_EXTERN_C_BEGIN

/** Channels of a stream, and lists of a filter, at most. */
#define JURN_SECTIONS_CHANNELS 64
/** Sections of a filter at most. */
#define JURN_SECTIONS_SECTIONS 1024
/** What MORVAX_SectionsRing_API gives at most: frames, 6 minutes at 44.1 kHz. */
#define JURN_SECTIONS_RING 16777216

/** What a set-up returns: 0, or the first thing that does not fit. */
enum Sections_error {
  JURN_SECTIONS_OK = 0,
  JURN_SECTIONS_BAD_CHANNELS = -1, /**< channels, or lists, are not from 1 to 64 */
  JURN_SECTIONS_BAD_SECTIONS = -2, /**< sections are not from 0 to 1024 */
  JURN_SECTIONS_BAD_VALUE = -3,    /**< a coefficient is not finite, or divided by a0 too large */
  JURN_SECTIONS_BAD_A0 = -4,       /**< an a0 is 0 */
  JURN_SECTIONS_TOO_SMALL = -5     /**< the memory is smaller than the size function says */
};

/** What a stream has room for. */
struct Sections_shape_st {
  int channels; /**< 1 to 64 */
  int sections; /**< of the longest filter that will be used, 0 to 1024 */
};
typedef struct Sections_shape_st Sections_shape;

/** Prepared coefficients, and a stream: memory whose content only the functions know. */
typedef struct Sections_filter_st SectionsFilter_ID;
typedef struct Sections_stream_st SectionsStream_ID;

/**
 * The bytes that a filter takes: about 200 for each section of each list.
 *
 * @param sections sections of each list, 0 to 1024
 * @param lists 1 for all channels alike, or as many as the streams have channels, to 64
 * @return the size, or 0 for what the set-up would refuse
 *
 * State touched: none.
 */
JURN_API size_t MORVAX_SectionsFilterSize_API(int sections, int lists);

/**
 * Prepares a filter.
 *
 * @param filter memory of `size` bytes, aligned as a double
 * @param size at least what MORVAX_SectionsFilterSize_API gives
 * @param sos lists x sections rows of six, {b0, b1, b2, a0, a1, a2}, as SciPy and MATLAB have them;
 *   a0 is divided out. A section of first order has b2 = a2 = 0. Sections that are not stable are
 *   taken.
 * @param sections sections of each list, 0 to 1024
 * @param lists 1, or the channels of the streams
 * @return JURN_SECTIONS_OK, or another Sections_error, which leaves the filter unusable
 *
 * State touched: the filter. Wrong input: see the return. The time grows with the square of the
 * sections.
 */
JURN_API int MORVAX_SectionsFilterCalcu_API(SectionsFilter_ID* filter, size_t size,
                                            const double* sos, int sections, int lists);

/**
 * The bytes that a stream takes: about 16 for each section of each channel.
 *
 * @param shape channels, and the sections of the longest filter that will be used
 * @return the size, or 0 for what the set-up would refuse
 *
 * State touched: none.
 */
JURN_API size_t MORVAX_SectionsStreamSize_API(const Sections_shape* shape);

/**
 * Sets a stream up, silent and at frame 0.
 *
 * @param stream memory of `size` bytes, aligned as a double
 * @param size at least what MORVAX_SectionsStreamSize_API gives
 * @param shape channels, and the sections of the longest filter that will be used
 * @return JURN_SECTIONS_OK, or another Sections_error, which leaves the stream unusable
 *
 * State touched: the stream. Wrong input: see the return.
 */
JURN_API int MORVAX_SectionsStreamCalcu_API(SectionsStream_ID* stream, size_t size,
                                            const Sections_shape* shape);

/**
 * Returns a stream to silence and to frame 0, and its count of bad samples to 0.
 *
 * @param stream a stream that was set up; its shape stays
 *
 * State touched: the stream.
 */
JURN_API void MORVAX_SectionsReset_API(SectionsStream_ID* stream);

/**
 * The samples that were infinite or no number, of all channels, since the set-up or the reset.
 *
 * @param stream a stream that was set up
 * @return how many
 *
 * State touched: none.
 */
JURN_API unsigned long long MORVAX_SectionsBadSamples_API(const SectionsStream_ID* stream);

/**
 * Filters frames of int16 samples.
 *
 * @param stream a stream that was set up
 * @param filter a filter with no more sections than the stream has room for, and one list or one
 *   for each channel: the one that the stream's past went through, or another one's coefficients
 *   for the same states make noise. To another filter MORVAX_SectionsFade_API leads.
 * @param input frames x channels interleaved samples
 * @param frames 0 or more
 * @param output receives frames x channels interleaved samples; may be input
 *
 * State touched: the stream. Wrong input: debug builds assert what is said of filter and frames.
 */
JURN_API void MORVAX_SectionsRun_API(SectionsStream_ID* stream, const SectionsFilter_ID* filter,
                                     const short* input, int frames, short* output);

/** MORVAX_SectionsRun_API on floats, without limits. */
JURN_API void MORVAX_SectionsRun_API_float(SectionsStream_ID* stream,
                                           const SectionsFilter_ID* filter, const float* input,
                                           int frames, float* output);

/** MORVAX_SectionsRun_API on doubles, without limits. */
JURN_API void MORVAX_SectionsRun_API_double(SectionsStream_ID* stream,
                                            const SectionsFilter_ID* filter, const double* input,
                                            int frames, double* output);

/**
 * MORVAX_SectionsRun_API_float with an array for each channel.
 *
 * @param stream, filter, frames as there
 * @param input as many arrays of frames samples as the stream has channels
 * @param output as many arrays; output[c] may be input[c], and no other of input
 */
JURN_API void MORVAX_SectionsRun_API_planar(SectionsStream_ID* stream,
                                            const SectionsFilter_ID* filter,
                                            const float* const* input, int frames,
                                            float* const* output);

/** MORVAX_SectionsRun_API_planar on int16 samples. */
JURN_API void MORVAX_SectionsRun_API_planar_short(SectionsStream_ID* stream,
                                                  const SectionsFilter_ID* filter,
                                                  const short* const* input, int frames,
                                                  short* const* output);

/** MORVAX_SectionsRun_API_planar on doubles. */
JURN_API void MORVAX_SectionsRun_API_planar_double(SectionsStream_ID* stream,
                                                   const SectionsFilter_ID* filter,
                                                   const double* const* input, int frames,
                                                   double* const* output);

/**
 * Starts a stream from the past of another, for a fade from one filter to another.
 *
 * It takes over the frame number and the samples of an unfinished step. The states s of a section
 * become M s of the section with the same number, with the matrix M that gives the next filter's
 * states with the smallest mean square error when all that is known are those of the previous one
 * and that the input was noise:
 *
 *   M = P Q^-1,   P = A' P A^T + B B^T,   Q = A Q A^T + B B^T
 *
 * with A' and A the next and the previous matrix of the step of one sample and B = (0, 1). With
 * equal denominators M is 1, so a change of the last section's numerator has no transient at all,
 * and a fade to an equal filter gives the same bits as none. Sections that the previous filter does
 * not have, those where one of the two is not stable, and states that are not finite start from 0.
 *
 * States are as large as the input of their section, which the sections before have made louder or
 * quieter. If in the previous filter the scale of any section's input, the power of two above, was
 * more than 32 times that of the next filter, all states are taken relative to these scales. So a
 * filter with its whole gain in the first section, as SciPy designs them, moves far without a
 * burst.
 *
 * @param next a stream that was set up, with as many channels; its past is lost
 * @param next_filter the filter that next will run with
 * @param previous the stream to follow, another one
 * @param previous_filter the filter that it ran with
 *
 * State touched: next; its count of bad samples becomes 0. Wrong input: debug builds assert the
 * limits of a run, and the channels.
 */
JURN_API void MORVAX_SectionsFollow_API(SectionsStream_ID* next,
                                        const SectionsFilter_ID* next_filter,
                                        const SectionsStream_ID* previous,
                                        const SectionsFilter_ID* previous_filter);

/** One of the filters that sound in a fade. */
struct Sections_voice_st {
  SectionsStream_ID* stream;       /**< of its own */
  const SectionsFilter_ID* filter; /**< the one that the stream runs with */
  int ramp; /**< frames of the fade from the voices before to this one, 1 or more */
  int done; /**< frames of the ramp that have passed: 0 at first; a fade adds its frames */
};
typedef struct Sections_voice_st Sections_voice;

/**
 * Filters frames of int16 samples through several filters, and fades from each to the next.
 *
 *   y = v[0];   for k = 1 to count - 1:   y = y + w (v[k] - y)
 *   w = i / (ramp - 1) for frame i of the ramp of voice k, and from its last frame on y = v[k]
 *
 * with v[k] what voice k's filter makes of the input. All of it is double, and rounded once for the
 * output. With two voices and ramp = frames this is the ordinary fade over a block: its first frame
 * is wholly the previous filter's, its last wholly the next one's. A longer ramp goes on through
 * the next calls. For a change during a fade, append a third voice: it fades from what sounds at
 * that moment, without a step. Once done >= ramp for a voice, those before it make no difference
 * any more: drop them. The ramps do not depend on how the stream is cut into calls either.
 *
 * @param voices count voices; ramp and done of the first are not used. All streams have as many
 *   channels, and each is another one.
 * @param count voices, 1 or more
 * @param input, frames, output as for MORVAX_SectionsRun_API
 *
 * State touched: every voice's stream and done (which stops at ramp). Wrong input: debug builds
 * assert the limits of a run for every voice, the channels and ramp. The time is that of a run for
 * every voice, and the mixture's.
 *
 * Example, a change that is heard over 2000 frames:
 * @code
 *   Sections_voice voices[2] = {{old_stream, old_filter, 1, 1}, {stream, filter, 2000, 0}};
 *   MORVAX_SectionsFollow_API(stream, filter, old_stream, old_filter);
 *   while (voices[1].done < voices[1].ramp)
 *     MORVAX_SectionsFade_API(voices, 2, next_block(), 256, block);
 *   // from here on MORVAX_SectionsRun_API(stream, filter, ...)
 * @endcode
 */
JURN_API void MORVAX_SectionsFade_API(Sections_voice* voices, int count, const short* input,
                                      int frames, short* output);

/** MORVAX_SectionsFade_API on the arrays of MORVAX_SectionsRun_API_float. */
JURN_API void MORVAX_SectionsFade_API_float(Sections_voice* voices, int count, const float* input,
                                            int frames, float* output);

/** MORVAX_SectionsFade_API on the arrays of MORVAX_SectionsRun_API_double. */
JURN_API void MORVAX_SectionsFade_API_double(Sections_voice* voices, int count, const double* input,
                                             int frames, double* output);

/** MORVAX_SectionsFade_API on the arrays of MORVAX_SectionsRun_API_planar. */
JURN_API void MORVAX_SectionsFade_API_planar(Sections_voice* voices, int count,
                                             const float* const* input, int frames,
                                             float* const* output);

/** MORVAX_SectionsFade_API on the arrays of MORVAX_SectionsRun_API_planar_short. */
JURN_API void MORVAX_SectionsFade_API_planar_short(Sections_voice* voices, int count,
                                                   const short* const* input, int frames,
                                                   short* const* output);

/** MORVAX_SectionsFade_API on the arrays of MORVAX_SectionsRun_API_planar_double. */
JURN_API void MORVAX_SectionsFade_API_planar_double(Sections_voice* voices, int count,
                                                    const double* const* input, int frames,
                                                    double* const* output);

/**
 * How long a filter rings: the frames after which its impulse response stays below a level.
 *
 * @param filter a filter that was set up
 * @param level share of the largest value of the response, above 0: 1e-6 is 120 dB below it
 * @return the smallest n with |h[i]| < level max |h| for all i >= n, the longest of all lists; at
 *   most JURN_SECTIONS_RING, which is also the answer for what does not decay
 *
 * State touched: none. Wrong input: debug builds assert the set-up and the level. Not real-time
 * safe: it filters an impulse until nothing is left of it, about five times as many frames as a
 * level of 1e-6 gives.
 */
JURN_API int MORVAX_SectionsRing_API(const SectionsFilter_ID* filter, double level);

JURN_EXTERN_C_END

#endif
