/* The convolution objects: bits against the definition in plain loops over the whole past, memory
 * that ends where it says, and what the set-ups refuse. */
#include <memory>

#include "OKA_Filter/records/convolution.h"
#include "convolution_support.h"
#include "functions.h"
#include "long_fft.h"
#include "simd/clones.h"

namespace {

/** The definition: every level's steps on windows cut from the whole past. */
class Model {
 public:
  explicit Model(const Convolution_shape& shape) : shape_(shape), past_(shape.inputs) {
    JURN_plan_convolution(&plan_, &shape);
    for (int k = 0; k < plan_.levels; ++k) fft_.emplace_back(plan_.level[k].N);
  }

  void push(const std::vector<std::vector<float>>& block) {
    for (int i = 0; i < shape_.inputs; ++i)
      past_[i].insert(past_[i].end(), block[i].begin(), block[i].end());
    ++calls_;
  }

  /** The current block of one output. */
  std::vector<float> filter(const Routes& routes, int output) {
    std::vector<float> y(shape_.block);
    for (int k = 0; k < plan_.levels; ++k) {
      const ConvolutionLevel& level = plan_.level[k];
      // Steps whose output is complete; of the frames of the newest, those of the current call.
      const long step = k == 0 ? calls_ : (calls_ - 1) / level.calls - 1;
      const int call = k == 0 ? 0 : static_cast<int>((calls_ - 1) % level.calls);
      const std::vector<float> samples = filter_step(routes, output, k, step);
      for (int i = 0; i < shape_.block; ++i) {
        const float part = samples[call * shape_.block + i];
        y[i] = k == 0 ? part : y[i] + part;
      }
    }
    return y;
  }

 private:
  std::vector<float> filter_step(const Routes& routes, int output, int k, long step) {
    const ConvolutionLevel& level = plan_.level[k];
    const int N = level.N, size = level.phases * level.hop;
    const int end = k + 1 < plan_.levels ? plan_.level[k + 1].first : shape_.taps;
    std::vector<float> sum(N), product(N);
    for (const Route& route : routes) {
      if (route.output != output) continue;
      const int taps = std::min(static_cast<int>(route.taps.size()), end);
      for (int first = level.first, i = 0; first < taps; first += size, ++i) {
        std::vector<float> x = window(route.input, N, (step - i * level.phases) * level.hop), h(N);
        std::copy_n(route.taps.begin() + first, std::min(size, taps - first), h.begin());
        for (auto* spectrum : {&x, &h}) fft_[k].forward(spectrum->data());
        fft_[k].multiply(product.data(), x.data(), h.data());
        for (int bin = 0; bin < N; ++bin) sum[bin] += product[bin];
      }
    }
    fft_[k].inverse(sum.data());
    return std::vector<float>(sum.end() - level.hop, sum.end());
  }

  std::vector<float> window(int input, int N, long end) const {
    std::vector<float> x(N);
    for (int i = 0; i < N; ++i)
      if (end - N + i >= 0) x[i] = past_[input][end - N + i];
    return x;
  }

  Convolution_shape shape_;
  ConvolutionPlan plan_;
  std::vector<LongFFT> fft_;
  std::vector<std::vector<float>> past_;
  long calls_ = 0;
};

/** Random shapes, routes and blocks, with a fade to other routes now and then; the last rounds have
 * transforms that the public ones do not reach. */
TEST(Convolution, BitsOfTheDefinition) {
  for (int round = 0; round < 46; ++round) {
    const int levels = round < 42 ? 1 + round % 3 : 4;
    Random random(round);
    Convolution_shape shape;
    ConvolutionPlan plan;
    do {
      shape = {random.in(1, 3), random.in(1, 3), random.one_of({1, 2, 5, 16, 31, 64, 100, 301}),
               random.count(1, levels == 1 ? 1500 : 8000)};
      if (levels == 4) shape = {1, random.in(1, 2), 64, random.in(90000, 110000)};
      if (round >= 44) shape = {1, 1, random.in(500, 1100), random.in(300000, 600000)};
      JURN_plan_convolution(&plan, &shape);
    } while (round < 44 ? plan.levels != levels : plan.level[plan.levels - 1].N <= JURN_FFT_MAX);
    Model model(shape);
    Stream stream(random, shape);
    Routes routes = random_routes(random, shape, 4);
    auto response = std::make_unique<Response>(random, shape, routes);
    const int calls = std::min(700, 40 + 2 * shape.taps / shape.block);
    const int compared = std::max(1, calls / 30), fade_in = std::max(10, calls / 15);
    for (int call = 0; call < calls; ++call) {
      const Planar input = random_block(random, shape.inputs, shape.block);
      model.push(input);
      const bool fades = random.one_in(fade_in), ints = random.one_in(3);
      const Routes previous_routes = routes;
      std::unique_ptr<Response> previous;
      if (fades) {
        routes = random_routes(random, shape, 4);
        previous = std::move(response);
        response = std::make_unique<Response>(random, shape, routes);
      }
      const Planar output =
          run_block(random, shape, stream.get(), fades ? previous->get() : nullptr, response->get(),
                    input, ints);
      if (!fades && call % compared != 0) continue;
      for (int channel = 0; channel < shape.outputs; ++channel) {
        std::vector<float> wanted = model.filter(routes, channel);
        if (fades) {
          const std::vector<float> old = model.filter(previous_routes, channel);
          for (int i = 0; i < shape.block && shape.block > 1; ++i) {
            const float w = static_cast<float>(i) / static_cast<float>(shape.block - 1);
            wanted[i] = (1.0f - w) * old[i] + w * wanted[i];
          }
        }
        if (ints)
          for (float& x : wanted) x = stoshort(x);
        ASSERT_EQ(std::memcmp(wanted.data(), output[channel].data(), shape.block * sizeof(float)),
                  0)
            << "round " << round << " call " << call << " block " << shape.block << " taps "
            << shape.taps;
      }
    }
  }
}

/** The plan decides the order of all sums: another one puts out other bits, so a change of it has
 * to be meant. */
TEST(Convolution, PlansStayAsTheyAre) {
  Random random(5);
  unsigned hash = 1;
  for (int trial = 0; trial < 3000; ++trial) {
    Convolution_shape shape = {random.in(1, 16), random.in(1, 16),
                               random.one_in(2) ? 1 << random.in(0, 12) : random.in(1, 4096),
                               random.in(1, 16) << random.in(0, 16)};
    shape.taps = std::clamp(shape.taps + random.in(-1, 1), 1, 1048576);
    ConvolutionPlan plan;
    JURN_plan_convolution(&plan, &shape);
    for (int k = 0; k < plan.levels; ++k) {
      const ConvolutionLevel& level = plan.level[k];
      for (int field : {level.N, level.hop, level.calls, level.phases, level.first, level.slots})
        hash = hash * 1000003u + static_cast<unsigned>(field);
    }
  }
  EXPECT_EQ(hash, 3734358214u);
}

/** And whatever a set-up refuses, what the memory held before cannot be run any more; memory too
 * small to say so is not touched. */
TEST(Convolution, SetUpsNameWhatDoesNotFit) {
  const Convolution_shape good = {2, 3, 64, 100};
  float taps[100] = {1.0f}, bad_taps[100] = {};
  const Convolution_route route = {0, 0, taps, 100}, bad_route = {0, 0, bad_taps, 100};
  const size_t size = MORVAX_ConvolutionResponseSize_API(&good, &route, 1);
  const size_t stream_size = MORVAX_ConvolutionStreamSize_API(&good);
  std::vector<float> memory(std::max(size, stream_size) / sizeof(float));
  auto* const response = reinterpret_cast<ConvolutionResponse_ID*>(memory.data());
  auto* const stream = reinterpret_cast<ConvolutionStream_ID*>(memory.data());
  const auto refuse = [&](int error, const Convolution_shape& shape, const Convolution_route& r,
                          int count, size_t bytes) {
    EXPECT_EQ(MORVAX_ConvolutionResponseCalcu_API(response, size, &good, &route, 1), 0);
    EXPECT_EQ(response->ready, 1);
    EXPECT_EQ(MORVAX_ConvolutionResponseCalcu_API(response, bytes, &shape, &r, count), error);
    EXPECT_EQ(response->ready, 0);
  };
  const auto refuse_stream = [&](int error, const Convolution_shape& shape, size_t bytes) {
    EXPECT_EQ(MORVAX_ConvolutionStreamCalcu_API(stream, stream_size, &good), 0);
    EXPECT_EQ(MORVAX_ConvolutionStreamCalcu_API(stream, bytes, &shape), error);
    EXPECT_EQ(stream->ready, 0);
  };
  const struct {
    int error;
    Convolution_shape shape;
  } shapes[] = {{JURN_CONVOLUTION_BAD_CHANNELS, {0, 1, 1, 1}},
                {JURN_CONVOLUTION_BAD_CHANNELS, {1, 17, 1, 1}},
                {JURN_CONVOLUTION_BAD_BLOCK, {1, 1, 0, 1}},
                {JURN_CONVOLUTION_BAD_BLOCK, {1, 1, 4097, 1}},
                {JURN_CONVOLUTION_BAD_TAPS, {1, 1, 1, 0}},
                {JURN_CONVOLUTION_BAD_TAPS, {1, 1, 1, 1048577}}};
  for (const auto& c : shapes) {
    EXPECT_EQ(MORVAX_ConvolutionStreamSize_API(&c.shape), 0u);
    refuse_stream(c.error, c.shape, stream_size);
    refuse(c.error, c.shape, route, 0, size);
  }
  const struct {
    int error, count;
    Convolution_route route;
  } routes[] = {{JURN_CONVOLUTION_BAD_COUNT, -1, {0, 0, taps, 1}},
                {JURN_CONVOLUTION_BAD_COUNT, 257, {0, 0, taps, 1}},
                {JURN_CONVOLUTION_BAD_ROUTE, 1, {2, 0, taps, 1}},
                {JURN_CONVOLUTION_BAD_ROUTE, 1, {0, 3, taps, 1}},
                {JURN_CONVOLUTION_BAD_ROUTE, 1, {0, -1, taps, 1}},
                {JURN_CONVOLUTION_BAD_LENGTH, 1, {0, 0, taps, 0}},
                {JURN_CONVOLUTION_BAD_LENGTH, 1, {0, 0, taps, 101}}};
  for (const auto& c : routes) {
    EXPECT_EQ(MORVAX_ConvolutionResponseSize_API(&good, &c.route, c.count), 0u);
    refuse(c.error, good, c.route, c.count, size);
  }
  refuse(JURN_CONVOLUTION_TOO_SMALL, good, route, 1, size - 1);
  refuse(JURN_CONVOLUTION_TOO_SMALL, good, route, 1, sizeof(int));
  refuse_stream(JURN_CONVOLUTION_TOO_SMALL, good, stream_size - 1);
  EXPECT_LT(MORVAX_ConvolutionResponseCalcu_API(nullptr, 0, &good, &route, 1), 0);
  EXPECT_LT(MORVAX_ConvolutionStreamCalcu_API(nullptr, 0, &good), 0);
  for (const float bad : {kNaN, INFINITY, -INFINITY}) {
    bad_taps[99] = bad;
    refuse(JURN_CONVOLUTION_BAD_VALUE, good, bad_route, 1, size);
  }
  // 16 inputs through 256 routes of 2^20 taps: where it does not fit, the size says so.
  const Convolution_shape huge = {16, 16, 1, 1048576};
  const std::vector<Convolution_route> all(256, {0, 0, taps, 1048576});
  EXPECT_EQ(MORVAX_ConvolutionResponseSize_API(&huge, all.data(), 256) > 0, sizeof(size_t) == 8);
}

}  // namespace
