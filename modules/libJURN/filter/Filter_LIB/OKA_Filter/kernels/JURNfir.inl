#include "../../../../common/simd/sample_lanes.inl"

#include "fir.inl"

void fir(short* output, const short* x, int count, const float* taps, int tap_count) {
  constexpr int tile = FirTile<float>::outputs;
  float sums[tile];
  for (int i = 0; i < count; i += tile) {
    const int here = count - i < tile ? count - i : tile;
    fir_tile(sums, x + i, here, taps, tap_count);
    narrow(output + i, sums, here);
  }
}
