/* Prepared fades of the convolution: what a response is known by, and what the dearest call of a
 * change costs. The walks show that the bits are those of a fade in one call. */
#include <memory>

#include "OKA_Filter/records/convolution.h"
#include "convolution_support.h"

namespace {

Routes full_routes(Random& random, const Convolution_shape& shape) {
  Routes routes;
  for (int channel = 0; channel < shape.outputs; ++channel) {
    routes.push_back({channel % shape.inputs, channel, std::vector<float>(shape.taps)});
    for (float& x : routes.back().taps) x = static_cast<float>(random.real(0.5));
  }
  return routes;
}

int longest_hop_in_calls(const Convolution_shape& shape) {
  ConvolutionPlan plan;
  JURN_plan_convolution(&plan, &shape);
  return plan.level[plan.levels - 1].calls;
}

template <class Work>
long long cost_of(Work work) {
  const long long before = JURN_convolution_work;
  work();
  return JURN_convolution_work - before;
}

/** A response is known by what is in it: it may move while it is prepared, and one that takes its
 * place is another one. */
TEST(ConvolutionFade, AResponseIsItsTaps) {
  Random random(7);
  const Convolution_shape shape = {1, 1, 32, 4000};
  ASSERT_GT(longest_hop_in_calls(shape), 4);
  Routes routes = full_routes(random, shape);
  Response playing(random, shape, full_routes(random, shape));
  Response next(random, shape, routes), copy(random, shape, routes);
  routes[0].taps.back() += 1.0f;
  Response other(random, shape, routes);
  Stream stream(random, shape);
  std::vector<float> block(shape.block);
  const auto prepare = [&](Response& response) {
    MORVAX_ConvolutionRun_API_float(stream.get(), playing.get(), block.data(), block.data());
    return MORVAX_ConvolutionPrepareFade_API(stream.get(), response.get());
  };
  while (prepare(next) > 3) {
  }
  EXPECT_EQ(prepare(copy), 2);
  EXPECT_GT(prepare(other), 4);
  while (prepare(other) > 0) {
  }
  // The newest has taken its place: the fade to the former one is a fade in one call.
  Stream twin(random, shape);
  std::memcpy(twin.get(), stream.get(), stream.size);
  const auto fade = [&](Stream& s, Response& response) {
    return cost_of([&] {
      MORVAX_ConvolutionFade_API_float(s.get(), playing.get(), response.get(), block.data(),
                                       block.data());
    });
  };
  EXPECT_GT(fade(twin, next), 2 * fade(stream, other));
  // What was prepared is over with the fade.
  EXPECT_GT(prepare(other), 4);
}

/** No run costs twice the mean, and no call of a prepared change more than four runs, at whatever
 * block of a step it begins. The unit is that of the plan. */
TEST(ConvolutionFade, DearestCallOfAChange) {
  for (const Convolution_shape shape : {Convolution_shape{2, 2, 64, 480000},
                                        {2, 2, 256, 96000},
                                        {1, 2, 33, 20000},
                                        {2, 2, 16, 3000},
                                        {1, 1, 8, 130000},
                                        {2, 1, 256, 300000},
                                        {1, 1, 512, 1048576}}) {
    Random random(shape.block);
    const Routes routes = full_routes(random, shape);
    Response playing(random, shape, routes),
        next(random, shape, Routes(routes.rbegin(), routes.rend()));
    Stream stream(random, shape);
    const int calls = longest_hop_in_calls(shape);
    std::vector<float> block(std::max(shape.inputs, shape.outputs) * shape.block, 1.0f);
    const auto run = [&] {
      MORVAX_ConvolutionRun_API_float(stream.get(), playing.get(), block.data(), block.data());
    };
    const auto fade = [&] {
      MORVAX_ConvolutionFade_API_float(stream.get(), playing.get(), next.get(), block.data(),
                                       block.data());
    };
    long long dearest = 0;
    const long long runs = cost_of([&] {
      for (int i = 0; i < calls; ++i) dearest = std::max(dearest, cost_of(run));
    });
    EXPECT_LT(dearest, 2 * runs / calls) << shape.taps << " taps";
    const long long most = 4 * runs / calls;
    for (const int start : {0, 1, calls / 3, calls - 1}) {
      int needed = calls;
      for (int i = 0; i < start; ++i) run();
      for (int i = 0; needed > 0; ++i) {
        ASSERT_LT(i, 2 * calls);
        const long long cost = cost_of([&] {
          run();
          needed = MORVAX_ConvolutionPrepareFade_API(stream.get(), next.get());
        });
        ASSERT_LE(cost, most) << shape.taps << " taps, call " << i << " after " << start;
      }
      EXPECT_LE(cost_of(fade), most) << shape.taps << " taps, after " << start;
    }
    for (int i = 0; i < calls / 2; ++i) run();
    EXPECT_GT(cost_of(fade), most) << shape.taps << " taps, in one call";
  }
}

}  // namespace
