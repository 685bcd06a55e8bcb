/* The sums over partitions of the convolution objects, and the order of their spectra.
 *
 * Spectra are stored in chunks of 16 bins: 16 real parts, then 16 imaginary ones. Chunk 0 holds
 * what the transform leaves in its first 32 floats; the last of its bins are the two real ones.
 * Of each chunk all partitions lie side by side, so that sums over partitions run through memory
 * from front to back with their result in registers. */
#ifndef JURN_CONVOLUTION_KERNELS_H
#define JURN_CONVOLUTION_KERNELS_H

#include <stddef.h>

#include "../../Convolution_control.h"

enum { most_levels = 4, chunk_floats = 32 };

struct ConvolutionRoute {
  int input;
  int partitions[most_levels];
  unsigned spectra[most_levels]; /* floats from the start of the response: chunks x partitions */
};

/** One step of one level: a response's partitions on the windows of a stream. */
struct ConvolutionStep {
  const float* response;
  const struct ConvolutionRoute* routes;
  const int* first_route;
  int level, outputs, slots, newest, N;
  const float* windows; /* of input 0, at the step's phase */
  size_t input_stride, chunk_stride;
  float* sums;
};

/** Puts the spectrum of a transform into chunks that lie chunk_stride floats apart: those from
 * first to last - 1. */
void JURN_put_spectrum(float* chunks, size_t chunk_stride, const float* spectrum, int N, int first,
                       int last);

/** Sums the chunks from first to last - 1 for every output, into the transform's order. */
void JURN_sum_chunks(const struct ConvolutionStep* step, int first, int last);

/** The same for a part of one chunk: of its products, counted through outputs, routes and
 * partitions, those from first to last - 1, added to what the parts before have left. */
void JURN_sum_part(const struct ConvolutionStep* step, int chunk, int first, int last);

#endif
