/* The figures in Convolution_control.h: sizes per tap, and the error against exact convolution by
 * the taps' norm and the input's level. */
#include <functional>

#include "convolution_support.h"

namespace {

struct Range {
  double least = 1e9, most = 0;
  void add(double x) {
    least = std::fmin(least, x);
    most = std::fmax(most, x);
  }
};

struct Sizes {
  Range tables, response, stream;
  void add(int channels, int block, int taps) {
    const Convolution_shape shape = {channels, channels, block, taps};
    const Convolution_route route = {0, 0, nullptr, taps};
    const auto none = static_cast<double>(MORVAX_ConvolutionResponseSize_API(&shape, nullptr, 0));
    const auto one = static_cast<double>(MORVAX_ConvolutionResponseSize_API(&shape, &route, 1));
    tables.add(none);
    response.add((one - none) / taps);
    stream.add(static_cast<double>(MORVAX_ConvolutionStreamSize_API(&shape)) / taps / channels);
  }
};

TEST(ConvolutionFigures, Sizes) {
  Sizes even, any, few;
  for (int channels : {1, 2, 8}) {
    for (double taps = 48000; taps < 1048576; taps *= 1.1)
      for (int block = 16; block <= 1024; block *= 2)
        even.add(channels, block, static_cast<int>(taps));
    for (double taps = 1000; taps < 1048576; taps *= 1.19)
      for (int block = 1; block <= 4096 && 4 * block <= taps; block += block < 64 ? 1 : 41)
        (taps < 48000 ? few : any).add(channels, block, static_cast<int>(taps));
  }
  EXPECT_GE(even.response.least, 7.8);
  EXPECT_LE(even.response.most, 9);
  EXPECT_GE(even.stream.least, 8);
  EXPECT_LE(even.stream.most, 16);
  EXPECT_LE(any.stream.most, 33);
  EXPECT_LE(few.stream.most, 61);
  for (const Sizes& sizes : {even, any, few}) {
    EXPECT_GE(sizes.tables.least, 131584);
    EXPECT_LE(sizes.tables.most, 1573376);
    EXPECT_GE(sizes.response.least, 5);
    EXPECT_LE(sizes.response.most, 15);
  }
}

/** The rms error over samples of a run, in parts of the taps' norm times the input's rms. */
double error_of(const Convolution_shape& shape, const std::vector<float>& taps,
                const std::function<double(size_t)>& signal) {
  Random places(1);
  Response response(places, shape, {{0, 0, taps}});
  Stream stream(places, shape);
  std::vector<float> x((2 * shape.taps + 9000) / shape.block * shape.block), y(x.size());
  double power = 0, squares = 0, error = 0;
  for (size_t i = 0; i < x.size(); ++i) {
    x[i] = static_cast<float>(signal(i));
    power += static_cast<double>(x[i]) * x[i];
  }
  for (const float tap : taps) squares += static_cast<double>(tap) * tap;
  for (size_t i = 0; i < x.size(); i += shape.block)
    MORVAX_ConvolutionRun_API_float(stream.get(), response.get(), &x[i], &y[i]);
  int count = 0;
  for (size_t n = shape.taps; n < x.size(); n += x.size() / 60 + 1, ++count) {
    double exact = 0;
    for (int j = 0; j < shape.taps; ++j) exact += static_cast<double>(taps[j]) * x[n - j];
    error += (exact - y[n]) * (exact - y[n]);
  }
  return std::sqrt(error / count / squares / (power / static_cast<double>(x.size())));
}

TEST(ConvolutionFigures, ErrorByTheTapsNorm) {
  Random random(11);
  const auto noise = [&](int taps) {
    std::vector<float> h(taps);
    random.uniform(h.data(), taps, 1.0);
    return h;
  };
  const auto sample = [&](size_t) { return random.sample(); };
  for (const Convolution_shape shape : {Convolution_shape{1, 1, 1, 700},
                                        {1, 1, 7, 5000},
                                        {1, 1, 64, 40000},
                                        {1, 1, 520, 20000},
                                        {1, 1, 1056, 96000},
                                        {1, 1, 4096, 30000}})
    EXPECT_LT(error_of(shape, noise(shape.taps), sample), 3.2e-7) << shape.block;
  for (const Convolution_shape shape :
       {Convolution_shape{1, 1, 5, 9268}, {1, 1, 16, 19289}, {1, 1, 480, 9000}, {1, 1, 3000, 7}}) {
    const int taps = shape.taps;
    std::vector<float> decay(taps), high_pass(taps, -1.0f / taps), one(taps);
    for (int i = 0; i < taps; ++i) {
      decay[i] = static_cast<float>(random.real(1.0) * std::exp(-7.0 * i / taps));
    }
    high_pass[taps / 2] += 1.0f;
    one[taps - 1] = 1.0f;
    for (const auto& h : {noise(taps), decay, high_pass, one}) {
      EXPECT_LT(error_of(shape, h, sample), 3.2e-7);
      EXPECT_LT(error_of(shape, h, [](size_t) { return 10000.0; }), 7e-7);
      EXPECT_LT(error_of(shape, h, [](size_t i) { return 10000 * std::sin(0.01 * i); }), 7e-7);
    }
    const std::vector<float> equal(taps, 1.0f);
    EXPECT_LT(error_of(shape, equal, [](size_t i) { return 10000 * std::sin(0.01 * i); }), 7e-6);
  }
}

}  // namespace
