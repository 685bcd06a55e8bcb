/* The feedback half of the direct-form IIR kernels.
 *
 * Each output waits for the one before it and its sum has one fixed order, so the latency of that
 * chain of additions is the limit. The latest output stays in a register, and several channels run
 * interleaved: their chains overlap. */
#ifndef JURN_FEEDBACK_H
#define JURN_FEEDBACK_H

#include "../../../../common/internal.h"

/** As subtract_feedback, for the usual low orders: all past outputs stay in registers. */
template <int order, int channels, class Value>
static inline void subtract_feedback_of_order(Value* const (&y)[channels], int count,
                                              const Value* const (&a)[channels]) {
  Value past[channels][order];
  JURN_UNROLL
  for (int c = 0; c < channels; ++c) {
    JURN_UNROLL
    for (int j = 0; j < order; ++j) past[c][j] = y[c][-1 - j];
  }
  for (int i = 0; i < count; ++i) {
    JURN_UNROLL
    for (int c = 0; c < channels; ++c) {
      Value sum = a[c][1] * past[c][0];
      JURN_UNROLL
      for (int j = 1; j < order; ++j) sum += a[c][j + 1] * past[c][j];
      JURN_UNROLL
      for (int j = order - 1; j > 0; --j) past[c][j] = past[c][j - 1];
      y[c][i] = past[c][0] = y[c][i] - sum;
    }
  }
}

/**
 * y[c][i] -= sum over j = 1 .. alen - 1 of a[c][j] y[c][i-j], for each channel c.
 *
 * On entry y[c][0 .. count-1] holds the numerator sums and y[c][-1], y[c][-2] ... the past outputs.
 * The sum starts with its first product instead of 0: only the sign of a zero sum could differ,
 * which the subtraction from a numerator sum, itself never -0, does not show.
 */
template <int channels, class Value>
static inline void subtract_feedback(Value* const (&y)[channels], int count,
                                     const Value* const (&a)[channels], int alen) {
  switch (alen) {
    case 1:
      return;
    case 2:
      return subtract_feedback_of_order<1>(y, count, a);
    case 3:
      return subtract_feedback_of_order<2>(y, count, a);
    case 4:
      return subtract_feedback_of_order<3>(y, count, a);
    case 5:
      return subtract_feedback_of_order<4>(y, count, a);
  }
  Value latest[channels];
  JURN_UNROLL
  for (int c = 0; c < channels; ++c) latest[c] = y[c][-1];
  for (int i = 0; i < count; ++i) {
    Value sum[channels];
    JURN_UNROLL
    for (int c = 0; c < channels; ++c) sum[c] = a[c][1] * latest[c];
    for (int j = 2; j < alen; ++j) {
      JURN_UNROLL
      for (int c = 0; c < channels; ++c) sum[c] += a[c][j] * y[c][i - j];
    }
    JURN_UNROLL
    for (int c = 0; c < channels; ++c) y[c][i] = latest[c] = y[c][i] - sum[c];
  }
}

#endif
