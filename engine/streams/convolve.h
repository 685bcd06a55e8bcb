// The library's convolution: its response and its stream, each with its memory.
#pragma once

#include <cstddef>

#include "Convolution_control.h"
#include "streams/memory.h"
#include "streams/routing.h"

namespace jurn {

class StateBytes;

/** A response of the library's, ready for streams of its shape. */
class ConvolutionResponse {
 public:
  /** Throws when a tap is no finite float. */
  ConvolutionResponse(const Convolution_shape& shape, const Routing& routing);
  /** A copy of one that was prepared for the same shape, perhaps by another instance of this
   * program. */
  ConvolutionResponse(const void* prepared, std::size_t size);
  std::size_t size() const { return size_; }
  /** Other taps of the same routes, none longer than before. Allocates nothing. */
  void set(const Convolution_shape& shape, const Convolution_route* routes, int count);
  const ConvolutionResponse_ID* get() const { return response_.get(); }

 private:
  std::size_t size_ = 0;
  Owned<ConvolutionResponse_ID> response_;
};

/** A stream of the library's, silent at first. */
class ConvolutionStream {
 public:
  explicit ConvolutionStream(const Convolution_shape& shape);
  /** Another one with the same past. */
  ConvolutionStream(const ConvolutionStream& other);
  ConvolutionStream_ID* get() const { return stream_.get(); }
  /** Passes the past, to bytes or from those of a stream of the same shape. */
  void pass_state(StateBytes* state);

 private:
  std::size_t size_;
  Owned<ConvolutionStream_ID> stream_;
};

}  // namespace jurn
