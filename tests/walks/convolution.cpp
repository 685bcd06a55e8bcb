/* The convolution objects. One stream runs every block on the best clone and moves about, its twin
 * on the baseline clone; both must put out the same and keep the same memory. A third one fades
 * without the preparations of these two, and must put out the same too. Set-ups get shapes and
 * routes from the input, most of them valid, and must refuse the others by name. */
#include <utility>

#include "Convolution_control.h"
#include "simd/clones.h"
#include "walk.h"

namespace {

struct Routes {
  std::vector<std::vector<float>> taps;
  std::vector<Convolution_route> list;
};

Routes routes_from(Random& random, const Convolution_shape& shape) {
  Routes routes;
  const int count = random.in(0, 3);
  for (int r = 0; r < count; ++r) {
    const int blen = random.one_in(16) ? random.in(-1, 2)
                                       : random.in(1, std::max(1, std::min(shape.taps, 3000)));
    std::vector<float>& taps = routes.taps.emplace_back(std::max(1, blen));
    random.taps(taps.data(), static_cast<int>(taps.size()), random.one_in(10));
    const bool finite = random.one_in(2);
    for (float& x : taps)
      if (!std::isfinite(x) && finite) x = 1.0f;
    routes.list.push_back({random.one_in(20) ? -1 : random.in(0, std::max(0, shape.inputs - 1)),
                           random.one_in(20) ? 16 : random.in(0, std::max(0, shape.outputs - 1)),
                           nullptr, blen});
  }
  for (int r = 0; r < count; ++r) routes.list[r].b = routes.taps[r].data();
  return routes;
}

/** Memory of a stream or a response. */
struct Memory : Movable<float> {
  Memory(Random& random, size_t bytes) : Movable(random, static_cast<int>(bytes / sizeof(float))) {}
  template <class Record>
  Record* as() {
    return reinterpret_cast<Record*>(get());
  }
};

}  // namespace

void walk_convolution(Random& random) {
  const auto size = [&](int most, int odd_least, int odd_most) {
    return random.one_in(30) ? random.in(odd_least, odd_most) : random.in(1, most);
  };
  const Convolution_shape shape = {size(3, -1, 17), size(3, -1, 17),
                                   size(random.one_in(2) ? 32 : 300, -1, 4200),
                                   size(random.one_in(2) ? 300 : 9000, -1, 2)};
  const size_t stream_size = MORVAX_ConvolutionStreamSize_API(&shape);
  const bool valid = stream_size > 0;
  Memory stream(random, stream_size), twin(random, stream_size), plain(random, stream_size);
  Memory fresh(random, stream_size);
  for (Memory* m : {&stream, &twin, &plain, &fresh})
    require((MORVAX_ConvolutionStreamCalcu_API(m->as<ConvolutionStream_ID>(), stream_size,
                                               &shape) == 0) == valid,
            "a shape without a size is refused");
  if (!valid) return;
  require(shape.inputs >= 1 && shape.inputs <= 16 && shape.outputs >= 1 && shape.outputs <= 16 &&
              shape.block >= 1 && shape.block <= 4096 && shape.taps >= 1,
          "a shape that does not fit is refused");
  std::unique_ptr<Memory> response, next;
  const auto set_up = [&] {
    const Routes routes = routes_from(random, shape);
    const int count = static_cast<int>(routes.list.size());
    const size_t bytes = MORVAX_ConvolutionResponseSize_API(&shape, routes.list.data(), count);
    auto made = std::make_unique<Memory>(random, bytes);
    const int error =
        bytes == 0 ? -1
                   : MORVAX_ConvolutionResponseCalcu_API(made->as<ConvolutionResponse_ID>(), bytes,
                                                         &shape, routes.list.data(), count);
    for (const Convolution_route& r : routes.list) {
      const bool fits = r.input >= 0 && r.input < shape.inputs && r.output >= 0 &&
                        r.output < shape.outputs && r.blen >= 1 && r.blen <= shape.taps;
      require(fits || error != 0, "a route that does not fit is refused");
    }
    return error == 0 ? std::move(made) : nullptr;
  };
  for (int tries = 0; !response && tries < 9; ++tries) response = set_up();
  if (!response) return;
  int needed = -1;  // calls until the fade is prepared, once that has begun
  for (int call = 0; call < 200 && !random.ended(); ++call) {
    const int action = random.in(0, 15);
    if (random.one_in(60)) {
      for (Memory* m : {&stream, &twin, &plain})
        MORVAX_ConvolutionReset_API(m->as<ConvolutionStream_ID>());
      require(same(stream.get(), fresh.get(), stream_size / sizeof(float)), "a reset is a set-up");
      needed = -1;
    }
    if (action == 1) stream.move();
    if (action == 2) (next && random.one_in(2) ? next : response)->move();
    // A fade that is being prepared mostly waits for that.
    const bool fades = next && random.one_in(needed > 0 ? 40 : needed == 0 ? 2 : 5);
    if (!fades && random.one_in(next ? 40 : 8)) {
      if (auto made = set_up()) next = std::move(made), needed = -1;
    }
    std::unique_ptr<Memory> previous;
    if (fades) {
      previous = std::move(response);
      response = std::exchange(next, nullptr);
      needed = -1;
    }
    const int in_count = shape.inputs * shape.block, out_count = shape.outputs * shape.block;
    const auto run = [&](auto zero, auto run_plain, auto run_fade) {
      using Sample = decltype(zero);
      Twin<Sample> block(random, std::max(in_count, out_count));
      block.fill([&](Sample* x, int) { random.signal(x, in_count); });
      std::vector<Sample> wanted(out_count);
      const auto filter = [&](Memory& memory, const Sample* in, Sample* out) {
        auto* const s = memory.as<ConvolutionStream_ID>();
        auto* const r = response->as<ConvolutionResponse_ID>();
        if (fades)
          run_fade(s, previous->as<ConvolutionResponse_ID>(), r, in, out);
        else
          run_plain(s, r, in, out);
      };
      std::vector<Sample> of_plain(out_count);
      filter(plain, block[true], of_plain.data());
      filter(stream, block[true], block[true]);
      const JURN_Clone best = JURN_clone_hook;
      JURN_clone_hook = JURN_CLONE_BASELINE;
      filter(twin, block[false], wanted.data());
      JURN_clone_hook = best;
      require(same(block[true], wanted.data(), out_count), "the outputs are equal");
      require(same(of_plain.data(), wanted.data(), out_count), "a fade has one output");
    };
    if (random.one_in(2))
      run(float{}, MORVAX_ConvolutionRun_API_float, MORVAX_ConvolutionFade_API_float);
    else
      run(short{}, MORVAX_ConvolutionRun_API, MORVAX_ConvolutionFade_API);
    if (!next) continue;
    if (random.one_in(needed == 0 ? 4 : 20)) {  // a gap
      needed = -1;
      continue;
    }
    const auto prepare = [&](Memory& memory) {
      return MORVAX_ConvolutionPrepareFade_API(memory.as<ConvolutionStream_ID>(),
                                               next->as<ConvolutionResponse_ID>());
    };
    const int before = needed;
    needed = prepare(stream);
    require(random.one_in(4) || prepare(stream) == needed, "a second call is none");
    const JURN_Clone best = JURN_clone_hook;
    JURN_clone_hook = JURN_CLONE_BASELINE;
    require(prepare(twin) == needed, "both need as many calls");
    JURN_clone_hook = best;
    require(before < 0 || needed == std::max(0, before - 1), "every call brings the fade nearer");
  }
  require(same(stream.get(), twin.get(), stream_size / sizeof(float)), "the streams are equal");
}
