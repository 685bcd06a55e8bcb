#include "../../../../common/simd/sample_lanes.inl"

#include "fir.inl"

void numerator(float* y, const short* x, int count, const float* b, int blen) {
  constexpr int tile = FirTile<float>::outputs;
  float sums[tile];
  for (int i = 0; i < count; i += tile) {
    const int here = count - i < tile ? count - i : tile;
    fir_tile(sums, x + i, here, b, blen);
    memcpy(y + i, sums, here * sizeof(float));
  }
}

void to_samples(short* output, const float* y, int count) {
  narrow(output, y, count);
}
