/* The filter objects: plain records that the caller allocates, and the functions that run them. */
/**
 * @defgroup objects What holds for every object
 *
 * - Filter_ID: mono or stereo int16 blocks through an FIR, a direct-form IIR, a cascade of second-
 * or fourth-order sections, or (mono) a moving average.
 * - shuzhiFilter_ID: the moving mean of a mono int16 stream, by block or by sample.
 * - Filterf_ID: one float channel through an FIR or a direct-form IIR in double precision.
 * - Filterlongfir_ID: impulse responses of thousands of taps on mono or stereo int16 blocks, in the
 *   time domain or by FFT convolution, with a fade when the coefficients change.
 *
 * **Order of use**: write the configuration and the coefficients, call the set-up function where
 * the kind has one, call the reset, then call the run once per block with the same block length
 * every time. (Filterlongfir_ID: reset first, FFT set-up after it.)
 *
 * **Fields**: those marked [caller] are yours to write before and between runs; the functions own
 * the others. No run changes a field marked [caller].
 *
 * **Arithmetic**: sums run in increasing coefficient index from 0 and every product is rounded
 * before it is added, in float for the int16 objects and in double for the float object. The result
 * is the same on every CPU and compiler. Int16 samples keep their value (no scaling to +-1.0);
 * results become int16 by truncation toward zero, with saturation (stoshort).
 *
 * **State**: all of it lies in the record that a function is given; nothing else is touched but the
 * output. Distinct records may run on distinct threads, one record on one thread at a time.
 *
 * **Real time**: every function is real-time safe: nothing is allocated, locked or waited for.
 * Where a call may take much longer than a block, its description says so.
 *
 * **Wrong input**: no function checks its arguments. The arrays of the records set the limits,
 * which debug builds assert; breaking one in a release build is undefined. Pointers are never null,
 * but for the blocks of a call whose length is 0. "Wrong input" below names what is defined.
 */
#ifndef JURN_FILTER_CONTROL_H
#define JURN_FILTER_CONTROL_H

#include "../../Delay/Delay_LIB/Delay_control.h"
#include "../../common/DFTs.h"
#include "../../common/JURN_api.h"

JURN_EXTERN_C_BEGIN

/** @addtogroup objects
 * @{ */

/** Values of the fields chanel. */
enum JURN_Chanel {
  JURN_MONO = 1,  /**< one sample per frame */
  JURN_STEREO = 2 /**< two samples per frame: left, right, left, right ... */
};

/** Values of the fields filtertype. The long kinds belong to Filterlongfir_ID alone; its table says
 * what each does with one and with two channels. */
enum JURN_Filtertype {
  JURN_FIR = -1,                     /**< FIR, in the time domain */
  JURN_IIR = 0,                      /**< direct-form IIR */
  JURN_CASCADE = 1,                  /**< cascade of sections */
  JURN_MOVING_AVERAGE = 2,           /**< mean of the last blen samples; mono only */
  JURN_LONG_FFT = -2,                /**< FFT, a filter for each channel, fade in stereo */
  JURN_LONG_TWO_FILTERS = -3,        /**< time domain, a filter for each channel, fade */
  JURN_LONG_FFT_LEFT_ONLY = -4,      /**< FFT, both outputs from the left input */
  JURN_LONG_FFT_MONO_TO_STEREO = -5, /**< FFT, both outputs from a mono input, fade */
  JURN_LONG_MONO_TO_STEREO = -6,     /**< time domain, both outputs from a mono input, fade */
  JURN_LONG_FFT_CROSSED = -7         /**< FFT, each output from the other input */
};

/** @} */

/** @defgroup int16_filter Int16 filter: Filter_ID
 * @{ */

/** Entries of a history: the samples before the block, followed by the block. */
#define JURN_HISTORY 2156
/** Entries of a coefficient array of the int16 filter, and of the states of a cascade. */
#define JURN_COEFFICIENTS 1250
/** Frames that a stereo block, or any block of a cascade, may have at most. */
#define JURN_BLOCK 1056
/** Values that a faded int16 block may have at most: those of the longest stereo block. */
#define JURN_FADE_VALUES 2112

/** The history of one channel of a Filter_ID, 22,944 bytes. */
struct Filter_mem {
  short meminput[JURN_HISTORY];  /**< FIR, IIR: past inputs, then the block; moving average: ring */
  int memi;                      /**< moving average: slot of the oldest sample */
  int memsumin;                  /**< moving average: sum of the ring */
  float memoutput[JURN_HISTORY]; /**< IIR: past outputs, then the block's */
  float mempx[JURN_COEFFICIENTS]; /**< cascade: past inputs, n + 1 per section */
  float mempy[JURN_COEFFICIENTS]; /**< cascade: past outputs, n + 1 per section */
};
typedef struct Filter_mem FilterIOMEM;

/**
 * A filter for one int16 stream, 55,916 bytes. memL and memR are the state, everything else is
 * configuration, which both channels share.
 *
 * Limits: blen and alen from 1 to 1250 (moving average: blen to 2156); ns (n + 1) at most 1250;
 * blen - 1, and alen - 1, plus the frames of a block at most 2156, see
 * MORVAX_FilterLongestBlock_API.
 */
struct Filter_memory {
  FilterIOMEM memL;           /**< history of the left, or only, channel */
  FilterIOMEM memR;           /**< history of the right channel; untouched in mono */
  float b[JURN_COEFFICIENTS]; /**< [caller] taps, numerator, or the sections' numerators, n + 1 each
                               */
  float a[JURN_COEFFICIENTS]; /**< [caller] denominator, normalised: a[0], and each section's, is
                                 not read */
  int blen;       /**< [caller] numerator coefficients; moving average: samples averaged */
  int alen;       /**< [caller] denominator coefficients */
  int Order;      /**< order given to the set-up; no run reads it */
  int ns;         /**< [caller] sections of the cascade */
  int n;          /**< [caller] order of each section, 2 or 4 */
  int chanel;     /**< [caller] JURN_MONO or JURN_STEREO; no function writes it */
  int filtertype; /**< [caller] JURN_FIR, JURN_IIR, JURN_CASCADE, or in mono JURN_MOVING_AVERAGE */
};
typedef struct Filter_memory Filter_ID;

/**
 * Returns a filter to silence.
 *
 * Clears meminput, memoutput, memi and memsumin of both channels, and the first 750 entries of
 * mempx and mempy: the state of 250 sections of order 2 or 150 of order 4. The sections of a larger
 * cascade start from what their state holds.
 *
 * @param mFilter any record; its configuration keeps its values
 *
 * State touched: memL, memR.
 */
JURN_API void MORVAX_FilterReset_API(Filter_ID* mFilter);

/**
 * Sets the coefficients from MATLAB's vectors or section table.
 *
 * - type < 1: b = num and a = den, Order + 1 values each, current sample first, a[0] = 1.
 * - type >= 1: num and den hold (Order + 1) / 2 rows of three, {b0, b1, b2} and {a0, a1, a2} with
 *   a0 = 1; see MORVAX_SecOrSecMatlab.
 *
 * In both cases Order is stored, blen = alen = Order + 1, ns = (Order + 1) / 2, n = 2,
 * filtertype = type. Nothing is normalised.
 *
 * The header that MATLAB exports ("Generate C Header") is no section table: rows {g, 0, 0} with
 * gains stand between its sections. Fold them with MORVAX_SecFoldMatlabGains first, or another
 * filter runs.
 *
 * Spread a small gain over the sections. A section's output below 1e-6 becomes 0, so a cascade
 * whose first section has a gain of 1e-10 or less may pass nothing: give each of ns numerators
 * the factor g^(1/ns).
 *
 * @param mFilter any record; chanel and both histories keep their values
 * @param num, den vectors or tables as above
 * @param Order order of the filter: 0 to 1249 for vectors, 0 to 832 for tables
 * @param type the filtertype to set
 *
 * State touched: the configuration named above; allowed between two runs.
 * Wrong input: a negative Order with type < 1 copies nothing.
 *
 * Example, the mean of two samples:
 * @code
 *   const float num[] = {0.5f, 0.5f}, den[] = {1.0f, 0.0f};
 *   filter.chanel = JURN_MONO;
 *   MORVAX_FilterCalcu_API_FromMatlabTable(&filter, num, den, 1, JURN_FIR);
 *   MORVAX_FilterReset_API(&filter);
 * @endcode
 */
JURN_API void MORVAX_FilterCalcu_API_FromMatlabTable(Filter_ID* mFilter, const float* num,
                                                     const float* den, int Order, int type);

/**
 * Copies the coefficients of one filter to another.
 *
 * Copies blen, alen, b[0 .. blen-1] and a[0 .. alen-1] and nothing else: a cascade set up from a
 * table has 3 ns coefficients, which may be more than blen, so its copy is complete only when the
 * caller raises blen and alen of the source first.
 *
 * @param dstmFilter the filter that changes; its history goes on under the new coefficients
 * @param srcFilter the filter to copy from; may be the same record
 *
 * State touched: the fields named above; allowed between two runs.
 * Wrong input: a count of 0 or less copies no coefficient.
 */
JURN_API void MORVAX_Filter_abCopy_API(Filter_ID* dstmFilter, const Filter_ID* srcFilter);

/**
 * Filters one block of int16 samples.
 *
 * - JURN_FIR: y[n] = sum over j of b[j] x[n-j], in float.
 * - JURN_IIR: y[n] = sum over j of b[j] x[n-j] - sum over j >= 1 of a[j] y[n-j]; y stays float and
 *   unlimited in the history; past outputs below 1e-6 become 0 at the start of a call.
 * - JURN_CASCADE: ns sections of order n (direct form I); section outputs below 1e-6 become 0.
 * - JURN_MOVING_AVERAGE, mono only: mean of the last blen samples, truncated toward zero. In stereo
 *   it writes nothing, which leaves old samples in output: run two mono filters instead.
 *
 * @param mFilter a configured filter, reset before its first run
 * @param input inLen samples (mono) or interleaved values (stereo)
 * @param inLen 0 or more; stereo at most 2 x 1056, mono cascade at most 1056, moving average at
 *   most 32767, FIR and IIR within the limits of the record. The FIR and the IIR continue exactly
 *   only when every call has the same length; the cascade and the mean take any lengths.
 * @param output receives inLen samples; of an odd stereo inLen the last value is neither read nor
 *   written. May be input.
 *
 * State touched: memL, and memR in stereo.
 * Wrong input: another chanel or filtertype writes nothing; a cascade of another order, or of no
 * section, passes the input on.
 */
JURN_API void MORVAX_FilterRun_API(Filter_ID* mFilter, const short* input, int inLen,
                                   short* output);

/**
 * The longest block, in frames, that a configured filter runs.
 *
 * @param mFilter a record whose configuration is complete
 * @return frames; 0 when chanel and filtertype select nothing, or no block fits
 */
JURN_API int MORVAX_FilterLongestBlock_API(const Filter_ID* mFilter);

/**
 * Filters one block through two filters, and fades from the first to the second.
 *
 *   y[i] = (previous[i] (frames - 1 - i) + next[i] i) / (frames - 1), truncated toward zero
 *
 * The ramp spans exactly this block: its first frame is wholly the previous filter's output, its
 * last wholly the next one's, and equal outputs pass unchanged. A block of one frame is the next
 * filter's. Any two kinds and coefficient counts may meet; the next filter goes on from what its
 * histories hold. Where blen, alen and the kind are equal, copy memL and memR of the previous one
 * first, and no transient is heard at all; otherwise reset it, so that its start is faded in.
 *
 * @param previous the filter that ran until now; it runs this block as well
 * @param next the filter that the following blocks run with; another record, the same chanel
 * @param input, inLen as for MORVAX_FilterRun_API, within the limits of both records
 * @param output as for MORVAX_FilterRun_API; inLen at most JURN_FADE_VALUES
 *
 * State touched: memL, and memR in stereo, of both.
 * Wrong input: a record that would write nothing counts as silence.
 */
JURN_API void MORVAX_FilterFade_API(Filter_ID* previous, Filter_ID* next, const short* input,
                                    int inLen, short* output);

/**
 * Filters one block of each of several streams: MORVAX_FilterRun_API for each record in turn, with
 * the same bits, in less time.
 *
 * A recursion waits for its own last output, so one record leaves most of the machine idle. Mono
 * cascades with the same n and ns that follow each other in the list, and mono IIRs with the same
 * blen and alen, run up to eight side by side, each with coefficients of its own: surround
 * channels, microphone arrays, the bands of a crossover. All other records run one after another.
 *
 * @param filters count configured filters, reset before their first run; no record twice
 * @param count 0 or more
 * @param input count blocks, each as MORVAX_FilterRun_API takes it
 * @param inLen samples of every block, within the limits of every record
 * @param output count blocks that receive the results; output[i] may be input[i], and overlaps no
 *   other block
 *
 * State touched, and wrong input: as MORVAX_FilterRun_API, of each record.
 *
 * Example, six channels in place:
 * @code
 *   Filter_ID* filters[6];           // one for each channel
 *   short* blocks[6];                // 480 samples each
 *   MORVAX_FilterRun_API_records(filters, 6, (const short* const*)blocks, 480, blocks);
 * @endcode
 */
JURN_API void MORVAX_FilterRun_API_records(Filter_ID* const* filters, int count,
                                           const short* const* input, int inLen,
                                           short* const* output);

/** @} */

/** @defgroup moving_sum Moving mean: shuzhiFilter_ID
 * @{ */

/** Slots of the ring: samples that a moving-sum filter averages at most. */
#define JURN_MOVING_SUM_MAX 256

/** The moving mean of a mono int16 stream, 528 bytes. Its blocks may have any length. */
struct shuzhiFilter_mem {
  short meminput[JURN_MOVING_SUM_MAX]; /**< ring of the last blen samples */
  int memi;                            /**< slot of the oldest sample */
  int memsumin;                        /**< sum of the ring */
  float N_1;                           /**< 1 / blen */
  int blen;                            /**< [caller] samples averaged, 1 to 256 */
};
typedef struct shuzhiFilter_mem shuzhiFilter_ID;

/**
 * Returns a moving-sum filter to silence.
 *
 * @param mFilter any record; N_1 and blen keep their values
 *
 * State touched: the ring, memi and memsumin become 0.
 */
JURN_API void MORVAX_shuzhiFilterReset_API(shuzhiFilter_ID* mFilter);

/**
 * Derives the scale of the block run: N_1 = 1 / blen, divided in double and rounded to float.
 *
 * @param mFilter a record whose blen is set, 1 to 256
 *
 * A change of blen needs this call and a reset, in either order; without the reset the sum is no
 * longer the ring's.
 *
 * State touched: N_1.
 */
JURN_API void MORVAX_shuzhiFilterCalcu_API(shuzhiFilter_ID* mFilter);

/**
 * Filters one block: y[n] = N_1 (x[n] + ... + x[n-blen+1]), truncated toward zero.
 *
 * The sum is an exact integer. Because N_1 is rounded, a whole mean may come out one nearer to
 * zero. The scale is derived once; the moving averages of Filter_ID and Filterlongfir_ID, whose
 * lengths are cut to 16 bits, derive the same value on every call.
 *
 * @param mFilter a record with N_1 derived and reset
 * @param input inLen samples
 * @param inLen any length, the same or not; 0 or less does nothing
 * @param output receives inLen samples; may be input
 *
 * State touched: meminput, memi, memsumin. The time does not depend on blen: a running sum over a
 * ring.
 */
JURN_API void MORVAX_shuzhiFilterRun_API(shuzhiFilter_ID* mFilter, const short* input, int inLen,
                                         short* output);

/**
 * Pushes one sample and returns the running sum, x[n] + ... + x[n-blen+1], not scaled.
 *
 * @param mFilter a reset record; N_1 is not read. Calls may be mixed with block runs.
 * @param input the sample
 * @return the sum of the last blen samples
 *
 * State touched: meminput, memi, memsumin.
 */
JURN_API int MORVAX_shuzhiFilterRun_API_inonesampleoutsum(shuzhiFilter_ID* mFilter, short input);

/** @} */

/** @defgroup float_filter Float filter: Filterf_ID
 * @{ */

/** Coefficients of a float filter at most. */
#define JURN_FLOAT_COEFFICIENTS 201
/** Entries of a float filter's histories: the samples before the block, followed by the block. */
#define JURN_FLOAT_HISTORY 2512

/** The history of a Filterf_ID, 30,144 bytes. */
struct Filter_memf {
  float meminput[JURN_FLOAT_HISTORY];   /**< past inputs, then the block */
  double memoutput[JURN_FLOAT_HISTORY]; /**< IIR: past outputs, then the block's, in double */
};
typedef struct Filter_memf FilterIOMEMf;

/**
 * A filter for one float channel with double coefficients and accumulation, 33,376 bytes.
 *
 * Limits: blen and alen from 1 to 201; blen - 1, and alen - 1, plus the block at most 2512, see
 * MORVAX_FilterfLongestBlock_API.
 */
struct Filter_memoryf {
  FilterIOMEMf memL;                 /**< the state */
  double b[JURN_FLOAT_COEFFICIENTS]; /**< [caller] taps or numerator */
  double a[JURN_FLOAT_COEFFICIENTS]; /**< [caller] denominator, normalised: a[0] is not read */
  int blen;                          /**< [caller] numerator coefficients */
  int alen;                          /**< [caller] denominator coefficients; IIR only */
  int filtertype;                    /**< [caller] JURN_FIR or JURN_IIR */
};
typedef struct Filter_memoryf Filterf_ID;

/**
 * Returns a float filter to silence: both histories become 0.
 *
 * @param mFilter any record; its configuration keeps its values
 *
 * Needed after a change of blen, alen, filtertype or the block length; new coefficient values alone
 * take effect at the next block.
 *
 * State touched: memL.
 */
JURN_API void MORVAX_FilterfReset_API(Filterf_ID* mFilter);

/**
 * Filters one float block by MORVAX_Qfirf (JURN_FIR) or MORVAX_Qiirf (JURN_IIR).
 *
 * @param mFilter a configured filter, reset before its first run
 * @param input inLen samples on any scale
 * @param inLen 0 or more, within the limits of the record, the same on every call
 * @param output receives inLen samples; may be input
 *
 * State touched: memL.
 * Wrong input: another filtertype writes nothing.
 */
JURN_API void MORVAX_FilterfRun_API(Filterf_ID* mFilter, const float* input, int inLen,
                                    float* output);

/**
 * Filters one block through two filters, and fades from the first to the second as
 * MORVAX_FilterFade_API does, in double: y[i] = (1 - w) previous[i] + w next[i], w = i / (inLen -
 * 1).
 *
 * @param previous the filter that ran until now; it runs this block as well
 * @param next the filter that the following blocks run with; another record
 * @param input, inLen as for MORVAX_FilterfRun_API, within the limits of both records
 * @param output receives inLen samples; may be input
 *
 * State touched: memL of both.
 * Wrong input: a record that would write nothing counts as silence.
 */
JURN_API void MORVAX_FilterfFade_API(Filterf_ID* previous, Filterf_ID* next, const float* input,
                                     int inLen, float* output);

/**
 * Filters one int16 block to float: MORVAX_FilterfRun_API on the samples' values, not scaled.
 *
 * @param mFilter a configured filter, reset before its first run
 * @param input inLen samples
 * @param inLen at most 1056, within the limits of the record, the same on every call
 * @param output receives inLen samples on the int16 scale; must not overlap input
 *
 * State touched: memL.
 * Wrong input: another filtertype, or an inLen of 0 or less, writes nothing.
 */
JURN_API void MORVAX_FilterfRun_API_shortin(Filterf_ID* mFilter, const short* input, int inLen,
                                            float* output);

/**
 * The longest block, in samples, that a configured filter runs; of int16 samples at most 1056.
 *
 * @param mFilter a record whose configuration is complete
 * @return samples; 0 when filtertype selects nothing, or no block fits
 */
JURN_API int MORVAX_FilterfLongestBlock_API(const Filterf_ID* mFilter);

/**
 * Filters one float block through a direct-form IIR on histories of the caller's.
 *
 *   y[n] = sum over j of b[j] x[n-j] - sum over j >= 1 of a[j] y[n-j], in double.
 *
 * At the start of a call the last samples of the previous block move to the front of the histories,
 * found by the current inlen; past outputs below 1e-6 in magnitude become 0 there. Nothing is
 * flushed inside a block.
 *
 * @param output receives inlen samples, y rounded to float; may be input, not a history
 * @param input inlen samples
 * @param inlen 0 to 32767, the same on every call until the histories are cleared
 * @param mem_output alen - 1 + inlen doubles, zero before the first call
 * @param mem_input blen - 1 + inlen floats, zero before the first call
 * @param b blen coefficients, b[0] of the current sample
 * @param blen 1 or more
 * @param a alen coefficients; a[0] is not read and counts as 1
 * @param alen 1 or more
 *
 * State touched: the two histories. Direct form I.
 */
JURN_API void MORVAX_Qiirf(float* output, const float* input, int inlen, double* mem_output,
                           float* mem_input, const double* b, short blen, const double* a,
                           short alen);

/**
 * Filters one float block through an FIR on a history of the caller's.
 *
 *   y[n] = sum over j of b[j] x[n-j], in double.
 *
 * @param output receives inlen samples, y rounded to float; may be input, not the history
 * @param input inlen samples
 * @param inlen 0 to 32767, the same on every call until the history is cleared
 * @param mem_input blen - 1 + inlen floats, zero before the first call
 * @param b blen coefficients, b[0] of the current sample
 * @param blen 1 or more
 *
 * State touched: the history. Direct convolution.
 */
JURN_API void MORVAX_Qfirf(float* output, const float* input, int inlen, float* mem_input,
                           const double* b, short blen);

/** @} */

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
 *   filtertype | chanel 2 (stereo in and out)             | chanel 1 (mono in)
 *   -----------|------------------------------------------|-----------------------------------
 *       -7     | FFT, left = b on right, right = bR on left | -
 *       -6     | -                                        | time domain, stereo out, b, bR, fade
 *       -5     | -                                        | FFT, stereo out, b, bR, fade
 *       -4     | FFT, stereo of the left input, b, bR     | -
 *       -3     | time domain, b on left, bR on right, fade | -
 *       -2     | FFT, b on left, bR on right, fade        | FFT, b
 *       -1     | time domain, b on both                   | time domain, b
 *        0     | IIR, b and a on both                     | IIR
 *        1     | cascade on both                          | cascade
 *        2     | -                                        | moving average of blen samples
 *
 * Limits: time domain: taps from 1 to 32767, taps - 1 plus the frames of a block at most 33824, and
 * 1056 frames per block except mono -1 (32767); FFT: 1 to 8192 taps; the shorter array of two zero
 * up to the longer's length; IIR, cascade, average: as the int16 filter's, with 33824 inputs of
 * history and blen of the average to 32767. MORVAX_FilterlongfirLongestBlock_API gives the frames.
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
 * The FFT kinds need MORVAX_FilterlongfirCalcu_API_forFFT after it, which primes the FIFOs. Takes
 * as long as clearing 600 KiB.
 *
 * State touched: memL, memR, mBufin, mBufout, membufrear and the three fields above.
 */
JURN_API void MORVAX_FilterlongfirReset_API(Filterlongfir_ID* mFilter);

/**
 * Arms the fade of the time-domain kinds -3 and -6.
 *
 * When blen is the same as at the previous call, saves b and bR (blen taps each) and both
 * histories (blen + 1056 samples) as the filter from which the next block fades to whatever b and
 * bR then hold. Otherwise, as on the first call after a reset, only notes blen.
 *
 * @param mFilter a filter whose b, bR and blen still hold the old coefficients; blen at most 32767
 *
 * State touched: cmemb, cmembR, cmeminputL, cmeminputR, cmemblen, cmemcall. The time grows linearly
 * with blen.
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
 * hM is the longer tap count of the two-filter kinds (-2, -7, -5, -4), blen for others; fftN is the
 * smallest power of two of at least 2 hM; the hop is fftN - hM + 1 frames, by which the output is
 * delayed. Transforms the taps into hLrfft (and hRrfft).
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
 * @param mFilter a filter that was reset; blen and bRlen from 1 to 8192, equal in mono -2; the
 *   shorter array of two holds zeros up to the longer one's length
 *
 * Takes as long as a few blocks; linear in the taps but for the transform's logarithm. Overlap-save
 * with one partition.
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
 * @param input inLen samples (chanel 1) or interleaved values (chanel 2)
 * @param inLen 0 or more, even for chanel 2; time-domain kinds: the same on every call, at most
 *   2 x 1056 in stereo, 1056 for the kinds -6 and 1 in mono, 32767 for -1 and 2 in mono; FFT kinds:
 *   any length with channels (fftN + frames) below 105600, channels being 2 in stereo and for -5
 * @param output receives inLen values; 2 inLen interleaved values for the mono-to-stereo kinds
 *   -5 and -6. May be input, with room for what is written.
 *
 * The FFT kinds run zero, one or several transforms per call, so the dearest call costs a transform
 * block more than the mean. Their results are floats within a rounding error of the exact sums, and
 * truncation takes one that lies just below a whole number to the one nearer to zero. So a unit
 * impulse does not pass samples unchanged: of white noise 26 % come out one nearer to zero with 8
 * taps, 46.6 % with 100, 51 % with 8192, none with 1 or 2. Where whole numbers have to come out
 * exact, take a time-domain kind.
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
 */
JURN_API int MORVAX_FilterlongfirLatency_API(const Filterlongfir_ID* mFilter);

/**
 * The longest block, in frames, that a configured filter runs.
 *
 * @param mFilter a record whose configuration is complete; an FFT kind that was set up
 * @return frames; 0 when chanel and filtertype select nothing, or no block fits
 */
JURN_API int MORVAX_FilterlongfirLongestBlock_API(const Filterlongfir_ID* mFilter);

/** @} */

JURN_EXTERN_C_END

#endif
