#include "exact.h"

#include "streams/convolve.h"

#include <cstring>
#include <vector>

#include "errors.h"
#include "streams/state_bytes.h"

namespace jurn {

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

void ConvolutionStream::pass_state(StateBytes* state) {
  state->pass(static_cast<void*>(get()), size_);
}

}  // namespace jurn
