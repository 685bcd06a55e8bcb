/* Prepared fades of the convolution: the bits of a fade in one call, at any moment and after any
 * change of mind, and what the dearest call of a change costs. */
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

/** Two streams fade on the same blocks, one of them after a random preparation: none, part of one,
 * one for another response, one with gaps, one that lasts longer than it has to. */
TEST(ConvolutionFade, BitsOfAFadeInOneCall) {
  int prepared = 0, unprepared = 0;
  for (int round = 0; round < 13; ++round) {
    const int levels = round < 12 ? 1 + round % 3 : 4;
    Random random(round);
    Convolution_shape shape;
    ConvolutionPlan plan;
    do {
      shape = {random.in(1, 3), random.in(1, 3), random.one_of({1, 2, 16, 31, 64, 100}),
               random.count(1, levels == 1 ? 1500 : 8000)};
      if (levels == 4) shape = {1, 2, 64, random.in(90000, 110000)};
      JURN_plan_convolution(&plan, &shape);
    } while (plan.levels != levels);
    const int most_calls = plan.levels > 1 ? 2 * plan.level[plan.levels - 1].calls - 1 : 1;
    Stream stream(random, shape), plain(random, shape);
    std::unique_ptr<Response> responses[3];
    for (auto& r : responses)
      r = std::make_unique<Response>(random, shape, random_routes(random, shape, 4));
    Response* playing = responses[0].get();
    for (int change = 0; change < 12; ++change) {
      Response* next = responses[random.in(0, 2)].get();
      const int calls = random.in(0, 2 * most_calls + 2), gaps = random.one_of({0, 0, 0, 30});
      int needed = -1;
      for (int call = 0; call < calls; ++call) {
        const Planar input = random_block(random, shape.inputs, shape.block);
        ASSERT_EQ(run_block(random, shape, stream.get(), nullptr, playing->get(), input, false),
                  run_block(random, shape, plain.get(), nullptr, playing->get(), input, false))
            << "round " << round << " change " << change << " call " << call;
        const bool turns = gaps > 0 && random.one_in(gaps),
                   misses = gaps > 0 && random.one_in(gaps);
        if (turns) next = responses[random.in(0, 2)].get();
        if (misses) {
          needed = -1;
          continue;
        }
        const int before = needed;
        needed = MORVAX_ConvolutionPrepareFade_API(stream.get(), next->get());
        if (before >= 0 && !turns) {
          ASSERT_EQ(needed, std::max(0, before - 1));
        }
        ASSERT_LT(needed, most_calls);
        if (random.one_in(5)) {  // once more without a run
          ASSERT_EQ(MORVAX_ConvolutionPrepareFade_API(stream.get(), next->get()), needed);
        }
      }
      if (random.one_in(8)) next = responses[random.in(0, 2)].get();
      ++(needed == 0 ? prepared : unprepared);
      const Planar input = random_block(random, shape.inputs, shape.block);
      ASSERT_EQ(run_block(random, shape, stream.get(), playing->get(), next->get(), input, false),
                run_block(random, shape, plain.get(), playing->get(), next->get(), input, false))
          << "round " << round << " change " << change;
      playing = next;
    }
  }
  EXPECT_GT(prepared, 30);
  EXPECT_GT(unprepared, 30);
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
