#include "streams/convolve.h"

#include <cstring>
#include <vector>

#include "errors.h"

namespace jurn {
namespace {

void run(ConvolutionStream_ID* stream, const ConvolutionResponse_ID* response, const short* in,
         short* out) {
  MORVAX_ConvolutionRun_API(stream, response, in, out);
}
void run(ConvolutionStream_ID* stream, const ConvolutionResponse_ID* response, const float* in,
         float* out) {
  MORVAX_ConvolutionRun_API_float(stream, response, in, out);
}
void fade(ConvolutionStream_ID* stream, const ConvolutionResponse_ID* from,
          const ConvolutionResponse_ID* to, const short* in, short* out) {
  MORVAX_ConvolutionFade_API(stream, from, to, in, out);
}
void fade(ConvolutionStream_ID* stream, const ConvolutionResponse_ID* from,
          const ConvolutionResponse_ID* to, const float* in, float* out) {
  MORVAX_ConvolutionFade_API_float(stream, from, to, in, out);
}

/** A stream of blocks and the response that it runs with. */
class Convolver {
 public:
  Convolver(const Convolution& c, int block)
      : shape_{c.routing.inputs, c.routing.outputs, block, c.longest},
        change_(c.change),
        response_(std::make_unique<ConvolutionResponse>(shape_, c.routing)),
        stream_(shape_) {}

  template <typename Sample>
  void process(const Sample* in, Sample* out) {
    const Routing* const next = change_ ? change_(first_, shape_.block) : nullptr;
    first_ += shape_.block;
    if (!next) return run(stream_.get(), response_->get(), in, out);
    auto prepared = std::make_unique<ConvolutionResponse>(shape_, *next);
    fade(stream_.get(), response_->get(), prepared->get(), in, out);
    response_ = std::move(prepared);
  }

 private:
  Convolution_shape shape_;
  decltype(Convolution::change) change_;
  std::int64_t first_ = 0;  // frame of the next block
  std::unique_ptr<ConvolutionResponse> response_;
  ConvolutionStream stream_;
};

class Int16Convolve : public Int16Stage {
 public:
  Int16Convolve(const Convolution& c, int block)
      : Int16Stage(c.routing.inputs, c.routing.outputs, block), convolver_(c, block) {
    tail = c.longest - 1;
  }

 private:
  void run(const short* in, short* out) override { convolver_.process(in, out); }
  Convolver convolver_;
};

class FloatConvolve : public Stage {
 public:
  FloatConvolve(const Convolution& c, int block)
      : Stage(c.routing.inputs, c.routing.outputs, block), convolver_(c, block) {
    tail = c.longest - 1;
  }

 private:
  void call(const float* in, float* out) override { convolver_.process(in, out); }
  Convolver convolver_;
};

}  // namespace

ConvolutionResponse::ConvolutionResponse(const Convolution_shape& shape, const Routing& routing) {
  std::vector<std::vector<float>> taps;
  std::vector<Convolution_route> routes;
  for (const Route& route : routing.routes) {
    taps.emplace_back(route.taps.begin(), route.taps.end());
    routes.push_back(
        {route.input, route.output, taps.back().data(), static_cast<int>(taps.back().size())});
  }
  const int count = static_cast<int>(routes.size());
  size_ = MORVAX_ConvolutionResponseSize_API(&shape, routes.data(), count);
  response_ = allocate<ConvolutionResponse_ID>(size_);
  set(shape, routes.data(), count);
}

ConvolutionResponse::ConvolutionResponse(const void* prepared, std::size_t size)
    : size_(size), response_(allocate<ConvolutionResponse_ID>(size)) {
  std::memcpy(response_.get(), prepared, size);
}

void ConvolutionResponse::set(const Convolution_shape& shape, const Convolution_route* routes,
                              int count) {
  if (MORVAX_ConvolutionResponseCalcu_API(response_.get(), size_, &shape, routes, count))
    throw Error(kInputError, "the impulse response has taps beyond the numbers of float");
}

ConvolutionStream::ConvolutionStream(const Convolution_shape& shape)
    : size_(MORVAX_ConvolutionStreamSize_API(&shape)),
      stream_(allocate<ConvolutionStream_ID>(size_)) {
  MORVAX_ConvolutionStreamCalcu_API(get(), size_, &shape);
}

ConvolutionStream::ConvolutionStream(const ConvolutionStream& other)
    : size_(other.size_), stream_(allocate<ConvolutionStream_ID>(size_)) {
  std::memcpy(static_cast<void*>(get()), other.get(), size_);
}

std::unique_ptr<Stage> make_convolver(const Convolution& convolution, Precision precision,
                                      int block) {
  if (precision == Precision::kDouble) return std::make_unique<FloatConvolve>(convolution, block);
  return std::make_unique<Int16Convolve>(convolution, block);
}

}  // namespace jurn
