/* The conversion of a filter's float result to an int16 sample. */
#ifndef JURN_FUNCTIONS_H
#define JURN_FUNCTIONS_H

/**
 * Converts a filter's float result to an int16 sample.
 *
 * 32767 at or above 32767.0, -32768 below -32768.0, otherwise x truncated toward zero; there is no
 * rounding to nearest. NaN gives 0 (silence), on every platform.
 *
 * @param x any float, on the int16 scale
 * @return the sample
 *
 * Real-time safe.
 */
static inline short stoshort(float x) {
  if (x >= 32767.0f) return 32767;
  if (x >= -32768.0f) return (short)x;
  return x < -32768.0f ? -32768 : 0; /* only a NaN fails all three comparisons */
}

#endif
