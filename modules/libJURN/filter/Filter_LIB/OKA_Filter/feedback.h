/* The feedback half of the direct-form IIR kernels.
 *
 * Each output waits for the one before it and its sum has one fixed order, so the latency of that
 * chain of additions is the limit. The latest output stays in a register, and two channels run
 * interleaved: their chains overlap. */
#ifndef JURN_FEEDBACK_H
#define JURN_FEEDBACK_H

/**
 * y[c][i] -= sum over j = 1 .. alen - 1 of a[j] y[c][i-j], for each channel c.
 *
 * On entry y[c][0 .. count-1] holds the numerator sums and y[c][-1], y[c][-2] ... the past outputs.
 * The sum starts with its first product instead of 0: only the sign of a zero sum could differ,
 * which the subtraction from a numerator sum, itself never -0, does not show.
 */
template <int channels, class Value>
static inline void subtract_feedback(Value* const (&y)[channels], int count, const Value* a,
                                     int alen) {
  if (alen < 2) return;
  Value latest[channels];
  for (int c = 0; c < channels; ++c) latest[c] = y[c][-1];
  for (int i = 0; i < count; ++i) {
    Value sum[channels];
    for (int c = 0; c < channels; ++c) sum[c] = a[1] * latest[c];
    for (int j = 2; j < alen; ++j)
      for (int c = 0; c < channels; ++c) sum[c] += a[j] * y[c][i - j];
    for (int c = 0; c < channels; ++c) y[c][i] = latest[c] = y[c][i] - sum[c];
  }
}

#endif
