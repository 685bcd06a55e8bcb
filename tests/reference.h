/* Naive scalar versions of every recurrence of the library, one operation after the other in the
 * order that fixes the result. They share nothing with the library but the records. */
#ifndef JURN_TESTS_REFERENCE_H
#define JURN_TESTS_REFERENCE_H

#include "Filter_control.h"
#include "Sections_control.h"

namespace ref {

void qfir(float* output, const float* input, int inlen, float* mem_input, const double* b,
          short blen);
void qiir(float* output, const float* input, int inlen, double* mem_output, float* mem_input,
          const double* b, short blen, const double* a, short alen);

void reset(Filter_ID* filter);
void set_up(Filter_ID* filter, const float* num, const float* den, int order, int type);
void copy(Filter_ID* to, const Filter_ID* from);
void run(Filter_ID* filter, const short* input, int inLen, short* output);

void reset(shuzhiFilter_ID* filter);
void set_up(shuzhiFilter_ID* filter);
void run(shuzhiFilter_ID* filter, const short* input, int inLen, short* output);
int push(shuzhiFilter_ID* filter, short input);

void reset(Filterf_ID* filter);
void run(Filterf_ID* filter, const float* input, int inLen, float* output);
void run(Filterf_ID* filter, const short* input, int inLen, float* output);

void reset(Buf16_ID* queue);
int have(const Buf16_ID* queue);
void put(Buf16_ID* queue, const short* in, int count, int stride);
int take(Buf16_ID* queue, short* out, int count);

void reset(Filterlongfir_ID* filter);
void save_for_fade(Filterlongfir_ID* filter);
/** All kinds but the FFT ones. */
void run(Filterlongfir_ID* filter, const short* input, int inLen, short* output);

/** One channel of a stream of sections, sample by sample; its frame number stays. */
void run(SectionsStream_ID* stream, const SectionsFilter_ID* filter, int channel, const double* x,
         int frames, double* y);
/** The frames of a call, after every channel's. */
void advance(SectionsStream_ID* stream, int frames, unsigned long long bad);

/** Exact convolution at one sample, in double: the sum of taps[j] * newest[-j]. */
double convolve(const float* taps, int count, const short* newest);

}  // namespace ref

#endif
