#include "fir.inl"

void numerator(float* y, const short* x, int count, const float* b, int blen) {
  fir_outputs(y, x, count, b, blen);
}

void to_samples(short* output, const float* y, int count) {
  narrow(output, y, count);
}
