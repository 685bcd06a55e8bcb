// A stream of convolution without latency, with its responses.
#pragma once

#include <memory>
#include <vector>

#include "Convolution_control.h"
#include "made.h"
#include "stream.h"
#include "streams/convolve.h"

namespace jurn::python {

struct Route {
  int input = 0;
  int output = 0;
  std::vector<float> taps;
};
using Routes = std::vector<Route>;

/** An impulse response, which streams share; nothing changes it. */
struct Response {
  Routes routes;
  Owned<ConvolutionResponse_ID> spectra;
};

/** The routes of Python: tuples of input, output and taps. */
Routes read_routes(const py::sequence& list);

/** Taps of the longest. */
int longest(const Routes& routes);

class Convolution {
 public:
  Convolution(const Convolution_shape& shape, Routes routes);
  /** Continues from the same state. */
  Convolution(const Convolution& other);

  const Convolution_shape& shape() const { return shape_; }
  std::size_t routes() const {
    InUse::check(in_use_);
    return response_->routes.size();
  }

  void reset();
  void fade_to(const py::sequence& list);

  /** process and run of Python, of int16 or float32. */
  py::object filter(py::handle samples, py::handle out, bool one_block);

  py::array state(py::handle self);
  py::bytes stored() const;
  static std::unique_ptr<Convolution> restored(const py::bytes& bytes);

 private:
  template <class Sample>
  py::object filter_samples(py::handle samples, py::handle out, bool one_block);

  Convolution_shape shape_;
  std::shared_ptr<const Response> response_;  // first, for it checks the shape
  ConvolutionStream stream_;
  std::shared_ptr<const Response> next_;
  bool in_use_ = false;
};

}  // namespace jurn::python

namespace pybind11::detail {
template <>
class type_caster<jurn::python::Convolution>
    : public jurn::python::MadeCaster<jurn::python::Convolution> {};
}  // namespace pybind11::detail
