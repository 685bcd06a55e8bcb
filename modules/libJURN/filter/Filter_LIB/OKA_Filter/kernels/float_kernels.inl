#include "../../../../common/simd/sample_lanes.inl"

#include "fir.inl"

/** Sums in double, kept (out is double) or rounded to float. */
template <class Out>
JURN_INLINE void fir_double(Out* out, const float* x, int count, const double* b, int blen) {
  constexpr int tile = FirTile<double>::outputs;
  double sums[tile];
  for (int i = 0; i < count; i += tile) {
    const int here = count - i < tile ? count - i : tile;
    fir_tile(sums, x + i, here, b, blen);
    if constexpr (sizeof(Out) == sizeof(double))
      memcpy(out + i, sums, here * sizeof(double));
    else
      narrow(out + i, sums, here);
  }
}

void fir(float* output, const float* x, int count, const double* b, int blen) {
  fir_double(output, x, count, b, blen);
}

void numerator(double* y, const float* x, int count, const double* b, int blen) {
  fir_double(y, x, count, b, blen);
}

void to_float(float* output, const double* y, int count) {
  narrow(output, y, count);
}
