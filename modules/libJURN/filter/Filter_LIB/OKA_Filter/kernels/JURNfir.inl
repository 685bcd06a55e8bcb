#include "fir.inl"

void fir(short* output, const short* x, int count, const float* taps, int tap_count) {
  fir_outputs(output, x, count, taps, tap_count);
}
