/* Filterlongfir_ID: impulse responses of thousands of taps on mono or stereo int16 blocks, in the
 * time domain without latency or by FFT at the least cost, with a fade when the taps change.
 *
 * One record holds the configuration, the past and all work space. Write chanel, filtertype and the
 * taps, reset, set the FFT kinds up, then run once per block. A whole program, two FFT filters:
 * @code
 *   #include <JURN/LongFilter_control.h>
 *   #include <stdlib.h>
 *
 *   int main(void) {
 *     Filterlongfir_ID* filter = calloc(1, sizeof *filter);  // 5 MB, or static
 *     if (!filter) return 1;
 *     filter->chanel = JURN_STEREO;
 *     filter->filtertype = JURN_LONG_FFT;                 // b on the left, bR on the right
 *     filter->blen = filter->bRlen = 1024;
 *     filter->b[0] = filter->bR[1023] = 0.5f;
 *     MORVAX_FilterlongfirReset_API(filter);              // first the reset,
 *     MORVAX_FilterlongfirCalcu_API_forFFT(filter);       // then the set-up
 *     short block[2 * 480] = {10000, -10000};
 *     MORVAX_FilterlongfirRun_API(filter, block, 2 * 480, block);  // in place
 *     filter->b[0] = 0.25f;                               // other taps: the next set-up
 *     MORVAX_FilterlongfirCalcu_API_forFFT(filter);       // fades to them
 *     MORVAX_FilterlongfirRun_API(filter, block, 2 * 480, block);
 *     const int delay = MORVAX_FilterlongfirLatency_API(filter);
 *     free(filter);
 *     return delay != 1025;
 *   }
 * @endcode
 *
 * Without latency and with any number of taps: Convolution_control.h. What holds for every object
 * stands in Filter_rules.h. */
#ifndef JURN_LONGFILTER_CONTROL_H
#define JURN_LONGFILTER_CONTROL_H

#include "../../Delay/Delay_LIB/Delay_control.h"
#include "../../common/DFTs.h"
#include "Filter_rules.h"

JURN_EXTERN_C_BEGIN

/** @defgroup long_filter Long FIR filter: Filterlongfir_ID
 * @{ */

/** Entries of a tap array. The time domain runs 32767 of them, the FFT kinds 8192. */
#define JURN_LONG_TAPS 100250
/** Entries of a long filter's input history. */
#define JURN_LONG_HISTORY 33824
/** Entries of a spectrum and of a transform block. */
#define JURN_SPECTRUM 65536
/** Entries of a long filter's denominator. */
#define JURN_LONG_DENOMINATOR 1250

/** The time-domain state of one channel of a Filterlongfir_ID, 86,280 bytes. */
struct bFilter_mem {
  short meminput[JURN_LONG_HISTORY]; /**< FIR, IIR: past inputs, then the block; average: ring */
  int memi;                          /**< moving average: slot of the oldest sample */
  int memsumin;                      /**< moving average: sum of the ring */
  float memoutput[JURN_HISTORY];     /**< IIR: past outputs, then the block's */
  float mempx[JURN_COEFFICIENTS];    /**< cascade: past inputs, n + 1 per section */
  float mempy[JURN_COEFFICIENTS];    /**< cascade: past outputs, n + 1 per section */
};
typedef struct bFilter_mem BIGFilterIOMEM;

/**
 * A long FIR filter, 5,129,640 bytes.
 *
 *   filtertype                   | JURN_STEREO in and out           | JURN_MONO in
 *   -----------------------------|----------------------------------|----------------------
 *   JURN_LONG_FFT_CROSSED        | FFT, left = b on right,          | -
 *                                | right = bR on left               |
 *   JURN_LONG_MONO_TO_STEREO     | -                                | time domain, stereo
 *                                |                                  | out, b, bR, fade
 *   JURN_LONG_FFT_MONO_TO_STEREO | -                                | FFT, stereo out,
 *                                |                                  | b, bR, fade
 *   JURN_LONG_FFT_LEFT_ONLY      | FFT, stereo of the left input,   | -
 *                                | b, bR                            |
 *   JURN_LONG_TWO_FILTERS        | time domain, b on left, bR on    | -
 *                                | right, fade                      |
 *   JURN_LONG_FFT                | FFT, b on left, bR on right,     | FFT, b
 *                                | fade                             |
 *   JURN_FIR                     | time domain, b on both           | time domain, b
 *   JURN_IIR                     | IIR, b and a on both             | IIR
 *   JURN_CASCADE                 | cascade on both                  | cascade
 *   JURN_MOVING_AVERAGE          | -                                | mean of blen samples
 *
 * Limits: time domain: taps from 1 to 32767, taps - 1 plus the frames of a block at most 33824, and
 * 1056 frames per block except JURN_FIR in mono (32767); FFT: 1 to 8192 taps; the shorter array of
 * two zero up to the longer's length; IIR, cascade, average: as the int16 filter's, with 33824
 * inputs of history and blen of the average to 32767. MORVAX_FilterlongfirLongestBlock_API gives
 * the frames.
 */
struct bFilter_memory {
  BIGFilterIOMEM memL;                 /**< time-domain state, left or mono */
  BIGFilterIOMEM memR;                 /**< time-domain state, right */
  Buf16_ID mBufin;                     /**< FFT: samples waiting for a transform */
  Buf16_ID mBufout;                    /**< FFT: filtered samples waiting for the caller */
  RealFFT_ID realfft;                  /**< FFT: transform state for fftN */
  float hLrfft[JURN_SPECTRUM];         /**< FFT: spectrum of b */
  float hRrfft[JURN_SPECTRUM];         /**< FFT: spectrum of bR */
  float xLintl[JURN_SPECTRUM];         /**< work: input block of the left filter */
  float xRintl[JURN_SPECTRUM];         /**< work: input block of the right filter */
  float xLhL[JURN_SPECTRUM];           /**< work: left output block */
  float xRhR[JURN_SPECTRUM];           /**< work: right output block */
  float xLhL0[JURN_SPECTRUM];          /**< work: left output of the previous filter */
  float xRhR0[JURN_SPECTRUM];          /**< work: right output of the previous filter */
  int fftN;                            /**< FFT: transform length */
  int offset;                          /**< FFT: chanel times the hop */
  float cmemhLrfft[JURN_SPECTRUM];     /**< fade: previous hLrfft */
  float cmemhRrfft[JURN_SPECTRUM];     /**< fade: previous hRrfft */
  float cmemb[JURN_LONG_TAPS];         /**< fade: previous b */
  float cmembR[JURN_LONG_TAPS];        /**< fade: previous bR */
  short cmeminputL[JURN_LONG_HISTORY]; /**< fade: the previous left filter's history */
  short cmeminputR[JURN_LONG_HISTORY]; /**< fade: the previous right filter's history */
  int cmemfftN;                        /**< fftN of the previous FFT set-up, 0 after a reset */
  int cmemblen;                   /**< blen of the previous time-domain set-up, 0 after reset */
  int cmemcall;                   /**< 1 while a fade is pending */
  float b[JURN_LONG_TAPS];        /**< [caller] taps of the left, mono or only filter; numerators */
  float a[JURN_LONG_DENOMINATOR]; /**< [caller] IIR and cascade: denominators; a[0] is not read */
  int membufrear;                 /**< FFT: samples that the last set-up primed */
  int blen;                       /**< [caller] taps of b; IIR: numerator; average: samples */
  int alen;                       /**< [caller] IIR: denominator coefficients */
  int Order;                      /**< not used */
  int ns;                         /**< [caller] cascade: sections */
  int n;                          /**< [caller] cascade: order of a section, 2 or 4 */
  float bR[JURN_LONG_TAPS];       /**< [caller] taps of the right filter */
  float aR[JURN_LONG_DENOMINATOR]; /**< not used */
  int bRlen;                       /**< [caller] taps of bR */
  int aRlen;                       /**< not used */
  int OrderR;                      /**< not used */
  int nsR;                         /**< not used */
  int nR;                          /**< not used */
  int chanel;                      /**< [caller] JURN_MONO or JURN_STEREO */
  int filtertype;                  /**< [caller] the kind, see above */
};
typedef struct bFilter_memory Filterlongfir_ID;

/**
 * Returns a long filter to silence.
 *
 * Clears both channels' histories (mempx and mempy: their first 750 entries), empties and clears
 * both FIFOs and forgets the previous filter (cmemcall, cmemblen, cmemfftN = 0).
 *
 * @param mFilter any record; coefficients, configuration and spectra keep their values
 *
 * The FFT kinds need MORVAX_FilterlongfirCalcu_API_forFFT after it, which primes the FIFOs.
 *
 * Real time: takes as long as clearing 600 KiB.
 *
 * State touched: memL, memR, mBufin, mBufout, membufrear and the three fields above.
 */
JURN_API void MORVAX_FilterlongfirReset_API(Filterlongfir_ID* mFilter);

/**
 * Arms the fade of JURN_LONG_TWO_FILTERS and JURN_LONG_MONO_TO_STEREO.
 *
 * When blen is the same as at the previous call, saves b and bR (blen taps each) and both
 * histories (blen + 1056 samples) as the filter from which the next block fades to whatever b and
 * bR then hold. Otherwise, as on the first call after a reset, only notes blen.
 *
 * @param mFilter a filter whose b, bR and blen still hold the old coefficients; blen at most 32767
 *
 * State touched: cmemb, cmembR, cmeminputL, cmeminputR, cmemblen, cmemcall. Real time: the time
 * grows linearly with blen.
 *
 * Example:
 * @code
 *   MORVAX_FilterlongfirCalcu_APItime(filter);   // once, after the reset
 *   ...                                          // blocks
 *   MORVAX_FilterlongfirCalcu_APItime(filter);   // saves the old taps
 *   memcpy(filter->b, new_taps, sizeof new_taps);
 *   MORVAX_FilterlongfirRun_API(filter, input, frames * 2, output);   // fades
 * @endcode
 */
JURN_API void MORVAX_FilterlongfirCalcu_APItime(Filterlongfir_ID* mFilter);

/**
 * Sets up the FFT kinds from b, bR, blen, bRlen, chanel and filtertype.
 *
 * hM is the longer tap count of the FFT kinds, blen of others; fftN is the smallest power of two of
 * at least 2 hM; the hop is fftN - hM + 1 frames, by which the output is delayed. Transforms the
 * taps into hLrfft (and hRrfft).
 *
 * When the priming length changes (after a reset always), primes the input FIFO with one transform
 * length per queued channel and empties the output FIFO. Priming moves indices and clears nothing:
 * without a reset, old samples of the ring are filtered and heard. So reset before a set-up that
 * changes fftN, chanel, or filtertype between JURN_LONG_FFT_LEFT_ONLY and others:
 * @code
 *   MORVAX_FilterlongfirReset_API(filter);         // silence instead of old samples
 *   MORVAX_FilterlongfirCalcu_API_forFFT(filter);  // primes with it
 * @endcode
 * While the priming length stays, the stream goes on; another hM changes its delay, so that as many
 * frames are skipped or repeated.
 *
 * When fftN is unchanged, saves the previous spectra, and the next block of JURN_LONG_FFT in stereo
 * and of JURN_LONG_FFT_MONO_TO_STEREO fades from them. A fade that is still pending when fftN
 * changes stays pending, with spectra of the old length: run a block of a fading kind, or reset, in
 * between.
 *
 * @param mFilter a filter that was reset; blen and bRlen from 1 to 8192, equal for JURN_LONG_FFT in
 * mono; the shorter array of two holds zeros up to the longer one's length
 *
 * Real time: takes as long as a few blocks, linear in the taps but for the transform's logarithm.
 * Overlap-save with one partition.
 *
 * State touched: fftN, offset, membufrear, the FIFOs' indices, realfft, spectra, cmemhLrfft,
 * cmemhRrfft, cmemcall, cmemfftN.
 * Wrong input: no tap gives fftN 2 and a hop of 3, with which a run writes nothing.
 */
JURN_API void MORVAX_FilterlongfirCalcu_API_forFFT(Filterlongfir_ID* mFilter);

/**
 * Filters one block by the kind that chanel and filtertype select (see Filterlongfir_ID).
 *
 * Time domain: y[n] = sum over j of b[j] x[n-j] in float, converted by stoshort. FFT: the same sum
 * by overlap-save convolution, correct within the transform's float error, delayed by one hop of
 * fftN - hM + 1 frames. IIR, cascade and average: as MORVAX_FilterRun_API. A pending fade mixes the
 * previous filter's output into one block (time domain: the call's; FFT: one transform's) along a
 * linear ramp. A time-domain fade over a single frame is the current filter's output. The ramp of
 * the FFT kinds spans the transform, of which the last hop is emitted: it begins there with
 * (hM - 1) / (fftN - 1) of the current filter.
 * The two-filter FFT kinds discard hM - 1 samples of every transform on both channels, so bRlen may
 * be greater than blen.
 *
 * @param mFilter a filter that was reset and, for the FFT kinds, set up after that
 * @param input inLen samples (JURN_MONO) or interleaved values (JURN_STEREO)
 * @param inLen 0 or more, even in stereo; time-domain kinds: the same on every call, at most
 *   2 x 1056 in stereo; in mono 1056 for JURN_LONG_MONO_TO_STEREO and JURN_CASCADE, 32767 for
 *   JURN_FIR and JURN_MOVING_AVERAGE; FFT kinds: any length with channels (fftN + frames) below
 *   105600, channels being 2 in stereo and for JURN_LONG_FFT_MONO_TO_STEREO
 * @param output receives inLen values; 2 inLen interleaved values for the two mono-to-stereo
 *   kinds. May be input, with room for what is written.
 *
 * Real time: the FFT kinds run zero, one or several transforms per call, so the dearest call costs
 * a transform block more than the mean. Their results are floats within a rounding error of the
 * exact sums, and truncation takes one that lies just below a whole number to the one nearer to
 * zero. So a unit impulse does not pass samples unchanged: of white noise 26 % come out one nearer
 * to zero with 8 taps, 46.6 % with 100, 51 % with 8192, none with 1 or 2. Where whole numbers have
 * to come out exact, take a time-domain kind.
 *
 * State touched: the part of the record that the kind uses.
 * Wrong input: a chanel and filtertype without an entry in the table write nothing, which leaves
 * old samples in output; so does an FFT kind before its set-up or with chanel written after it.
 * With more taps than fftN a transform of an FFT kind emits nothing and consumes its hop.
 */
JURN_API void MORVAX_FilterlongfirRun_API(Filterlongfir_ID* mFilter, const short* input, int inLen,
                                          short* output);

/**
 * Filters one block through two filters, and fades from the first to the second as
 * MORVAX_FilterFade_API does: for the kinds that have no fade of their own, between kinds, and
 * over one block exactly.
 *
 * Both filters keep their latency. Two FFT kinds meet in time where their hops are equal; a hop
 * after its set-up the next filter's output begins, so run it on the stream for as long before,
 * or fade from a time-domain kind and accept the step in time.
 *
 * @param previous the filter that ran until now; it runs this block as well
 * @param next the filter that the following blocks run with; another record, with as many inputs
 *   and outputs
 * @param input, inLen as for MORVAX_FilterlongfirRun_API, within the limits of both records
 * @param output as for MORVAX_FilterlongfirRun_API, at most JURN_FADE_VALUES values
 *
 * State touched: the parts of both records that their kinds use.
 * Wrong input: a record that would write nothing counts as silence.
 */
JURN_API void MORVAX_FilterlongfirFade_API(Filterlongfir_ID* previous, Filterlongfir_ID* next,
                                           const short* input, int inLen, short* output);

/**
 * The latency of a configured filter.
 *
 * @param mFilter a record that was set up
 * @return frames by which the output is delayed: the hop of an FFT kind, 0 of the others and of an
 *   FFT kind before its set-up
 *
 * State touched: none.
 */
JURN_API int MORVAX_FilterlongfirLatency_API(const Filterlongfir_ID* mFilter);

/**
 * The longest block, in frames, that a configured filter runs.
 *
 * @param mFilter a record whose configuration is complete; an FFT kind that was set up
 * @return frames; 0 when chanel and filtertype select nothing, or no block fits
 *
 * State touched: none.
 */
JURN_API int MORVAX_FilterlongfirLongestBlock_API(const Filterlongfir_ID* mFilter);

/** @} */

JURN_EXTERN_C_END

#endif
