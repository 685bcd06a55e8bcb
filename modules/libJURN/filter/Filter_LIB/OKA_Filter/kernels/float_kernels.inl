#include "fir.inl"

void fir(float* output, const float* x, int count, const double* b, int blen) {
  fir_outputs(output, x, count, b, blen);
}

void numerator(double* y, const float* x, int count, const double* b, int blen) {
  fir_outputs(y, x, count, b, blen);
}

void fir_in_double(double* output, const double* x, int count, const double* b, int blen) {
  fir_outputs(output, x, count, b, blen);
}

void to_float(float* output, const double* y, int count) {
  narrow(output, y, count);
}
