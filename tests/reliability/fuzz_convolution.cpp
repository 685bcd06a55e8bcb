/* The convolution objects. One stream runs every block on the best clone and moves about, its twin
 * on the baseline clone; both must put out the same and keep the same memory. Set-ups get shapes
 * and routes from the input, most of them valid, and must refuse the others by name. */
#include <memory>

#include "Convolution_control.h"
#include "fuzz.h"
#include "simd/clones.h"

namespace {

/** Memory that ends where its allocation ends, at any multiple of a float's alignment. */
class Memory {
 public:
  explicit Memory(size_t size) : size_(size) { place(0, nullptr); }
  Memory(const Memory&) = delete;
  Memory& operator=(const Memory&) = delete;
  ~Memory() { std::free(storage_); }
  void move(int steps) { place(steps, at_); }
  template <class Record>
  Record* as() {
    return reinterpret_cast<Record*>(at_);
  }

 private:
  void place(int steps, const char* content) {
    const size_t offset = steps * alignof(float);
    char* const storage = static_cast<char*>(std::malloc(offset + size_));
    if (content) std::memcpy(storage + offset, content, size_);
    std::free(storage_);
    storage_ = storage;
    at_ = storage + offset;
  }
  size_t size_;
  char *storage_ = nullptr, *at_ = nullptr;
};

struct Routes {
  std::vector<std::vector<float>> taps;
  std::vector<Convolution_route> list;
};

Routes routes_from(Bytes* bytes, const Convolution_shape& shape) {
  Routes routes;
  const int count = bytes->in(0, 3);
  for (int r = 0; r < count; ++r) {
    const int blen =
        bytes->in(0, 15) ? bytes->in(1, std::max(1, std::min(shape.taps, 3000))) : bytes->in(-1, 2);
    routes.taps.emplace_back(std::max(1, blen));
    bytes->coefficients(routes.taps.back().data(), std::max(1, blen));
    for (float& x : routes.taps.back())
      if (!std::isfinite(x) && bytes->in(0, 7)) x = 1.0f;
    routes.list.push_back({bytes->in(0, 20) ? bytes->in(0, std::max(0, shape.inputs - 1)) : -1,
                           bytes->in(0, 20) ? bytes->in(0, std::max(0, shape.outputs - 1)) : 16,
                           nullptr, blen});
  }
  for (int r = 0; r < count; ++r) routes.list[r].b = routes.taps[r].data();
  return routes;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Bytes bytes(data, size);
  const Convolution_shape shape = {
      bytes.in(0, 30) ? bytes.in(1, 3) : bytes.in(-1, 17),
      bytes.in(0, 30) ? bytes.in(1, 3) : bytes.in(-1, 17),
      bytes.in(0, 30) ? bytes.in(1, bytes.in(0, 1) ? 32 : 300) : bytes.in(-1, 4200),
      bytes.in(0, 30) ? bytes.in(1, bytes.in(0, 1) ? 300 : 9000) : bytes.in(-1, 2)};
  const size_t stream_size = MORVAX_ConvolutionStreamSize_API(&shape);
  Memory stream(stream_size), twin(stream_size);
  const bool valid = stream_size > 0;
  for (Memory* m : {&stream, &twin})
    require((MORVAX_ConvolutionStreamCalcu_API(m->as<ConvolutionStream_ID>(), stream_size,
                                               &shape) == 0) == valid,
            "a shape without a size is refused");
  if (!valid) return 0;
  require(shape.inputs >= 1 && shape.inputs <= 16 && shape.outputs >= 1 && shape.outputs <= 16 &&
              shape.block >= 1 && shape.block <= 4096 && shape.taps >= 1,
          "a shape that does not fit is refused");
  std::unique_ptr<Memory> response, previous;
  const auto prepare = [&] {
    const Routes routes = routes_from(&bytes, shape);
    const int count = static_cast<int>(routes.list.size());
    const size_t bytes_needed =
        MORVAX_ConvolutionResponseSize_API(&shape, routes.list.data(), count);
    auto next = std::make_unique<Memory>(bytes_needed);
    const int error = bytes_needed == 0 ? -1
                                        : MORVAX_ConvolutionResponseCalcu_API(
                                              next->as<ConvolutionResponse_ID>(), bytes_needed,
                                              &shape, routes.list.data(), count);
    for (const Convolution_route& r : routes.list) {
      const bool fits = r.input >= 0 && r.input < shape.inputs && r.output >= 0 &&
                        r.output < shape.outputs && r.blen >= 1 && r.blen <= shape.taps;
      require(fits || error != 0, "a route that does not fit is refused");
    }
    if (error != 0) return false;
    previous = std::move(response);
    response = std::move(next);
    return true;
  };
  for (int tries = 0; !response && tries < 9; ++tries) prepare();
  if (!response) return 0;
  for (int call = 0; call < 200 && !bytes.empty(); ++call) {
    const int action = bytes.in(0, 15);
    if (action == 0) {
      MORVAX_ConvolutionReset_API(stream.as<ConvolutionStream_ID>());
      MORVAX_ConvolutionReset_API(twin.as<ConvolutionStream_ID>());
    }
    if (action == 1) stream.move(bytes.in(0, 15));
    if (action == 2) response->move(bytes.in(0, 15));
    const bool fades = action >= 13 && prepare() && previous;
    const bool floats = bytes.in(0, 1);
    const int in_count = shape.inputs * shape.block, out_count = shape.outputs * shape.block;
    const auto run = [&](auto zero, auto run_plain, auto run_fade) {
      using Sample = decltype(zero);
      const std::vector<Sample> input = bytes.signal<Sample>(in_count);
      std::vector<Sample> output(std::max(in_count, out_count)), wanted(out_count);
      std::copy(input.begin(), input.end(), output.begin());
      const auto filter = [&](Memory& memory, const Sample* in, Sample* out) {
        auto* const s = memory.as<ConvolutionStream_ID>();
        auto* const r = response->as<ConvolutionResponse_ID>();
        if (fades)
          run_fade(s, previous->as<ConvolutionResponse_ID>(), r, in, out);
        else
          run_plain(s, r, in, out);
      };
      filter(stream, output.data(), output.data());
      const JURN_Clone best = JURN_clone_hook;
      JURN_clone_hook = JURN_CLONE_BASELINE;
      filter(twin, input.data(), wanted.data());
      JURN_clone_hook = best;
      require(same(output.data(), wanted.data(), out_count), "the outputs are equal");
    };
    if (floats)
      run(float{}, MORVAX_ConvolutionRun_API_float, MORVAX_ConvolutionFade_API_float);
    else
      run(short{}, MORVAX_ConvolutionRun_API, MORVAX_ConvolutionFade_API);
  }
  require(same(stream.as<float>(), twin.as<float>(), stream_size / sizeof(float)),
          "the streams are equal");
  return 0;
}
