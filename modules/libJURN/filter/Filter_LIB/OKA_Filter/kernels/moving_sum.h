/* The running sum over a ring of samples, which the moving averages of all objects share. */
#ifndef JURN_MOVING_SUM_H
#define JURN_MOVING_SUM_H

/** 1 / len, divided in double precision and rounded to float. */
static inline float moving_mean_scale(int len) {
  return static_cast<float>(1.0 / len);
}

/**
 * Pushes one sample: *sum becomes the sum of the last len samples.
 *
 * @param ring len samples; *memi is the slot of the oldest, which the sample replaces. Where len
 * has become smaller without a reset, it may lie behind them and comes back with this sample.
 */
static inline void moving_sum_push(short sample, short* ring, int len, int* sum, int* memi) {
  *sum += sample - ring[*memi];
  ring[*memi] = sample;
  const int next = *memi + 1;
  *memi = next < len ? next : next % len;
}

/** Means of the last len samples: output[i] = scale * sum, truncated toward zero, not limited. */
void moving_mean(short* output, const short* input, int inlen, short* ring, int len, float scale,
                 int* sum, int* memi);

#endif
