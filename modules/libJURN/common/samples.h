/* Blocks of samples between int16 and float, and between interleaved and planar. */
#ifndef JURN_SAMPLES_H
#define JURN_SAMPLES_H

#include "JURN_api.h"

JURN_EXTERN_C_BEGIN

/** out[i] = in[i]. */
void JURN_to_float(float* out, const short* in, int count);

/** out[i] = stoshort(in[i]). */
void JURN_to_short(short* out, const float* in, int count);

/** left[i] = in[2i], right[i] = in[2i + 1] for i < frames; in has 2 frames samples. */
void JURN_split_to_float(float* left, float* right, const short* in, int frames);
void JURN_split(short* left, short* right, const short* in, int frames);

/** out[2i] = left[i], out[2i + 1] = right[i] for i < frames, floats by stoshort. */
void JURN_join_to_short(short* out, const float* left, const float* right, int frames);
void JURN_join(short* out, const short* left, const short* right, int frames);

JURN_EXTERN_C_END

#endif
