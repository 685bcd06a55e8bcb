#include "plain_loops.h"

#include <cmath>
#include <cstring>
#include <vector>

#include "functions.h"

namespace {

short convert(float y, short) {
  return stoshort(y);
}
float convert(double y, float) {
  return static_cast<float>(y);
}

template <class Sample, class Sum>
void fir(Sample* __restrict output, const Sample* __restrict x, int frames, const Sum* __restrict b,
         int count) {
  static Sum wide[40000];
  static Sum y[4096];
  const int past = count - 1;
  for (int i = 0; i < past + frames; ++i) wide[i] = x[i];
  memset(y, 0, frames * sizeof(Sum));
  for (int j = 0; j < count; ++j) {
    const Sum tap = b[j];
    const Sum* const from = wide + past - j;
    for (int i = 0; i < frames; ++i) y[i] += tap * from[i];
  }
  for (int i = 0; i < frames; ++i) output[i] = convert(y[i], Sample());
}

}  // namespace

void plain_fir(short* output, const short* x, int frames, const float* b, int count) {
  fir(output, x, frames, b, count);
}

void plain_fir(float* output, const float* x, int frames, const double* b, int count) {
  fir(output, x, frames, b, count);
}

void plain_cascade(const float* b, const float* a, int sections, float* x, int frames, float* px,
                   float* py) {
  for (int k = 0; k < sections; ++k, b += 3, a += 3, px += 3, py += 3) {
    const float b0 = b[0], b1 = b[1], b2 = b[2], a1 = a[1], a2 = a[2];
    float x1 = px[1], x2 = px[2], y1 = py[1], y2 = py[2];
    for (int i = 0; i < frames; ++i) {
      float y = (b0 * x[i] + (b1 * x1 - a1 * y1)) + (b2 * x2 - a2 * y2);
      if (std::fabs(static_cast<double>(y)) < 1e-6) y = 0.0f;
      x2 = x1;
      x1 = x[i];
      y2 = y1;
      y1 = x[i] = y;
    }
    px[1] = x1, px[2] = x2, py[1] = y1, py[2] = y2;
  }
}

void plain_sections(const double* sos, int sections, const float* input, int frames, double* states,
                    float* output) {
  static double y[4096];
  for (int i = 0; i < frames; ++i) y[i] = static_cast<double>(input[i]);
  for (int k = 0; k < sections; ++k, sos += 6, states += 2) {
    const double b0 = sos[0], b1 = sos[1], b2 = sos[2], a1 = sos[4], a2 = sos[5];
    double z1 = states[0], z2 = states[1];
    for (int i = 0; i < frames; ++i) {
      const double x = y[i];
      y[i] = b0 * x + z1;
      z1 = b1 * x - a1 * y[i] + z2;
      z2 = b2 * x - a2 * y[i];
    }
    states[0] = z1, states[1] = z2;
  }
  for (int i = 0; i < frames; ++i) output[i] = static_cast<float>(y[i]);
}

void plain_mean(short* output, const short* input, int frames, short* ring, int count, float scale,
                int* sum, int* slot) {
  for (int i = 0; i < frames; ++i) {
    *sum += input[i] - ring[*slot];
    ring[*slot] = input[i];
    *slot = (*slot + 1) % count;
    output[i] = static_cast<short>(scale * static_cast<float>(*sum));
  }
}

void plain_product(float* __restrict x, const float* __restrict h, int bins, float scale) {
  for (int k = 0; k < 2 * bins; k += 2) {
    const float re = x[k] * h[k] - x[k + 1] * h[k + 1];
    const float im = x[k] * h[k + 1] + x[k + 1] * h[k];
    x[k] = scale * re;
    x[k + 1] = scale * im;
  }
}

void plain_products(const float* __restrict x, const float* __restrict h, int bins,
                    float* __restrict sum) {
  for (int k = 0; k < 2 * bins; k += 2) {
    sum[k] += x[k] * h[k] - x[k + 1] * h[k + 1];
    sum[k + 1] += x[k] * h[k + 1] + x[k + 1] * h[k];
  }
}
