/* Responses and streams of the convolution for its tests, in memory between guard pages that is
 * exactly as long as the size functions say. */
#ifndef JURN_TESTS_CONVOLUTION_SUPPORT_H
#define JURN_TESTS_CONVOLUTION_SUPPORT_H

#include <gtest/gtest.h>

#include "Convolution_control.h"
#include "support.h"

struct Route {
  int input, output;
  std::vector<float> taps;
};
using Routes = std::vector<Route>;

inline std::vector<Convolution_route> list(const Routes& routes) {
  std::vector<Convolution_route> out;
  for (const Route& r : routes)
    out.push_back({r.input, r.output, r.taps.data(), static_cast<int>(r.taps.size())});
  return out;
}

inline Routes random_routes(Random& random, const Convolution_shape& shape, int most) {
  Routes routes(random.in(0, most));
  for (Route& r : routes) {
    r.input = random.in(0, shape.inputs - 1);
    r.output = random.in(0, shape.outputs - 1);
    r.taps.resize(random.count(1, shape.taps));
    for (float& x : r.taps) x = static_cast<float>(random.real(0.5));
    // The taps of a route before, or all but the last: alike ones share their spectra.
    if (&r != &routes[0] && random.one_in(2))
      r.taps = routes[random.in(0, &r - &routes[0] - 1)].taps;
    if (random.one_in(4)) r.taps.back() += 0.5f;
  }
  return routes;
}

class Response {
 public:
  Response(Random& random, const Convolution_shape& shape, const Routes& routes)
      : size_(MORVAX_ConvolutionResponseSize_API(&shape, list(routes).data(), count(routes))),
        memory_(random, static_cast<int>(size_ / sizeof(float))) {
    EXPECT_EQ(MORVAX_ConvolutionResponseCalcu_API(get(), size_, &shape, list(routes).data(),
                                                  count(routes)),
              0);
  }
  ConvolutionResponse_ID* get() {
    return reinterpret_cast<ConvolutionResponse_ID*>(memory_.data());
  }

 private:
  static int count(const Routes& routes) { return static_cast<int>(routes.size()); }
  size_t size_;
  GuardedArray<float> memory_;
};

class Stream {
 public:
  Stream(Random& random, const Convolution_shape& shape)
      : size(MORVAX_ConvolutionStreamSize_API(&shape)),
        memory_(random, static_cast<int>(size / sizeof(float))) {
    EXPECT_EQ(MORVAX_ConvolutionStreamCalcu_API(get(), size, &shape), 0);
  }
  ConvolutionStream_ID* get() { return reinterpret_cast<ConvolutionStream_ID*>(memory_.data()); }
  const size_t size;

 private:
  GuardedArray<float> memory_;
};

using Planar = std::vector<std::vector<float>>;

inline Planar random_block(Random& random, int channels, int frames) {
  Planar block(channels, std::vector<float>(frames));
  for (auto& channel : block)
    for (float& x : channel) x = random.one_in(20) ? 0.0f : random.sample();
  return block;
}

/** One block through the int16, the interleaved or the planar run or fade, perhaps in place. */
inline Planar run_block(Random& random, const Convolution_shape& shape,
                        ConvolutionStream_ID* stream, const ConvolutionResponse_ID* previous,
                        const ConvolutionResponse_ID* response, const Planar& input, bool ints) {
  Planar output(shape.outputs, std::vector<float>(shape.block));
  const int in_count = shape.inputs * shape.block, out_count = shape.outputs * shape.block;
  const bool in_place = random.one_in(2);
  const auto interleaved = [&](auto zero, auto run_plain, auto run_fade) {
    using Sample = decltype(zero);
    GuardedArray<Sample> in(random, in_place ? std::max(in_count, out_count) : in_count);
    GuardedArray<Sample> out(random, out_count);
    for (int i = 0; i < in_count; ++i)
      in.data()[i] = static_cast<Sample>(input[i % shape.inputs][i / shape.inputs]);
    Sample* const y = in_place ? in.data() : out.data();
    if (previous)
      run_fade(stream, previous, response, in.data(), y);
    else
      run_plain(stream, response, in.data(), y);
    for (int i = 0; i < out_count; ++i) output[i % shape.outputs][i / shape.outputs] = y[i];
  };
  if (ints) {
    interleaved(short{}, MORVAX_ConvolutionRun_API, MORVAX_ConvolutionFade_API);
  } else if (random.one_in(2)) {
    interleaved(float{}, MORVAX_ConvolutionRun_API_float, MORVAX_ConvolutionFade_API_float);
  } else {
    Planar in = input;
    if (in_place) in.resize(std::max(shape.inputs, shape.outputs), output[0]);
    std::vector<const float*> x;
    std::vector<float*> y;
    for (int i = 0; i < shape.inputs; ++i) x.push_back(in[i].data());
    for (int i = 0; i < shape.outputs; ++i) y.push_back((in_place ? in : output)[i].data());
    if (previous)
      MORVAX_ConvolutionFade_API_planar(stream, previous, response, x.data(), y.data());
    else
      MORVAX_ConvolutionRun_API_planar(stream, response, x.data(), y.data());
    if (in_place) std::copy_n(in.begin(), shape.outputs, output.begin());
  }
  return output;
}

#endif
