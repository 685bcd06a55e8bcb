#include "convolution_stream.h"

#include <algorithm>
#include <string>
#include <utility>

#include "streams/state_bytes.h"

namespace jurn::python {
namespace {

void check(int error) {
  static const char* const kMessages[] = {"",
                                          "inputs, outputs: take 1 to 16 channels",
                                          "block: takes 1 to 4096 frames",
                                          "taps: take 1 to 1048576",
                                          "routes: takes at most 256",
                                          "routes: an input or output is not one of the channels",
                                          "routes: the taps of one are none, or more than `taps`",
                                          "routes: a tap is not finite",
                                          "the memory is too small",
                                          "the response is too large for this machine"};
  if (error != JURN_CONVOLUTION_OK) throw py::value_error(kMessages[-error]);
}

std::shared_ptr<const Response> prepared_response(const Convolution_shape& shape, Routes routes) {
  std::vector<Convolution_route> list;
  for (const Route& route : routes)
    list.push_back(
        {route.input, route.output, route.taps.data(), static_cast<int>(route.taps.size())});
  const int count = static_cast<int>(list.size());
  const std::size_t size = MORVAX_ConvolutionResponseSize_API(&shape, list.data(), count);
  if (size == 0) check(MORVAX_ConvolutionResponseCalcu_API(nullptr, 0, &shape, list.data(), count));
  auto response = std::make_shared<Response>();
  response->spectra = allocate<ConvolutionResponse_ID>(size);
  response->routes = std::move(routes);
  int error;
  {
    const py::gil_scoped_release unlocked;
    error = MORVAX_ConvolutionResponseCalcu_API(response->spectra.get(), size, &shape, list.data(),
                                                count);
  }
  check(error);
  return response;
}

void run(ConvolutionStream_ID* stream, const Response& response, const short* in, short* out) {
  MORVAX_ConvolutionRun_API(stream, response.spectra.get(), in, out);
}
void run(ConvolutionStream_ID* stream, const Response& response, const float* in, float* out) {
  MORVAX_ConvolutionRun_API_float(stream, response.spectra.get(), in, out);
}
void fade(ConvolutionStream_ID* stream, const Response& from, const Response& to, const short* in,
          short* out) {
  MORVAX_ConvolutionFade_API(stream, from.spectra.get(), to.spectra.get(), in, out);
}
void fade(ConvolutionStream_ID* stream, const Response& from, const Response& to, const float* in,
          float* out) {
  MORVAX_ConvolutionFade_API_float(stream, from.spectra.get(), to.spectra.get(), in, out);
}

constexpr char kStoredConvolution[] = "convolution";

void pass(StateBytes* state, Routes* routes) {
  std::uint64_t count = routes->size();
  state->pass(&count);
  StateBytes::check(count <= JURN_CONVOLUTION_ROUTES);
  routes->resize(count);
  for (Route& route : *routes) {
    state->pass(&route.input);
    state->pass(&route.output);
    state->pass_sized(&route.taps);
  }
}

}  // namespace

Routes read_routes(const py::sequence& list) {
  Routes routes;
  for (std::size_t i = 0; i < list.size(); ++i) {
    const py::object entry = list[i];  // held: an array makes a new one each time
    if (!py::isinstance<py::sequence>(entry) || py::len(entry) != 3)
      throw py::type_error("routes: takes tuples (input, output, taps)");
    const py::sequence route = entry;
    Route r;
    r.input = route[0].cast<int>();
    r.output = route[1].cast<int>();
    const std::vector<double> taps =
        numbers(route[2].cast<py::object>(), "taps", 1, JURN_CONVOLUTION_TAPS);
    r.taps.resize(taps.size());
    store(taps, r.taps.data(), "taps");
    routes.push_back(std::move(r));
  }
  return routes;
}

int longest(const Routes& routes) {
  std::size_t taps = 1;
  for (const Route& route : routes) taps = std::max(taps, route.taps.size());
  return static_cast<int>(taps);
}

Convolution::Convolution(const Convolution_shape& shape, Routes routes)
    : shape_(shape), response_(prepared_response(shape, std::move(routes))), stream_(shape) {}

Convolution::Convolution(const Convolution& other)
    : shape_(other.shape_),
      response_((InUse::check(other.in_use_), other.response_)),
      stream_(other.stream_),
      next_(other.next_) {}

void Convolution::reset() {
  InUse::check(in_use_);
  MORVAX_ConvolutionReset_API(stream_.get());
  if (next_) response_ = std::move(next_);
  next_.reset();
}

void Convolution::fade_to(const py::sequence& list) {
  Routes routes = read_routes(list);
  if (longest(routes) > shape_.taps)
    throw py::value_error("routes: has " + std::to_string(longest(routes)) +
                          " taps; this object was made for " + std::to_string(shape_.taps));
  auto next = prepared_response(shape_, std::move(routes));
  InUse::check(in_use_);
  next_ = std::move(next);
}

template <class Sample>
py::object Convolution::filter_samples(py::handle samples, py::handle out, bool one_block) {
  const InUse in_use(&in_use_);
  Input<Sample> in = read_block<Sample>(samples, shape_.inputs);
  if (one_block ? in.frames != shape_.block : in.frames % shape_.block != 0)
    throw py::value_error("block: " + std::to_string(in.frames) + " frames; this object takes " +
                          (one_block ? "exactly " : "multiples of ") +
                          std::to_string(shape_.block));
  Output<Sample> result(out, in.frames, shape_.outputs, in.dimensions);
  keep_apart(&in, shape_.inputs, result.data(),
             result.values() * static_cast<py::ssize_t>(sizeof(Sample)),
             shape_.inputs == shape_.outputs);
  {
    const py::gil_scoped_release unlocked;
    for (py::ssize_t done = 0; done < in.frames; done += shape_.block) {
      const Sample* const from = in.data + done * shape_.inputs;
      Sample* const to = result.data() + done * shape_.outputs;
      if (next_) {
        fade(stream_.get(), *response_, *next_, from, to);
        response_ = std::move(next_);
        next_.reset();
      } else {
        run(stream_.get(), *response_, from, to);
      }
    }
  }
  return result.finish();
}

py::object Convolution::filter(py::handle samples, py::handle out, bool one_block) {
  const bool is_float = py::isinstance<py::array>(samples) &&
                        py::reinterpret_borrow<py::array>(samples).dtype().kind() == 'f';
  return is_float ? filter_samples<float>(samples, out, one_block)
                  : filter_samples<short>(samples, out, one_block);
}

py::array Convolution::state(py::handle self) {
  InUse::check(in_use_);
  return view(self, reinterpret_cast<const std::uint8_t*>(stream_.get()),
              {static_cast<py::ssize_t>(MORVAX_ConvolutionStreamSize_API(&shape_))}, {1}, false);
}

py::bytes Convolution::stored() const {
  InUse::check(in_use_);
  StateBytes to;
  Convolution_shape shape = shape_;
  std::uint8_t fades = next_ ? 1 : 0;
  to.pass(&shape);
  to.pass(&fades);
  for (const auto& response : {response_, next_}) {
    if (!response) continue;
    Routes routes = response->routes;
    pass(&to, &routes);
  }
  ConvolutionStream(stream_).pass_state(&to);
  return py::bytes(to.sealed(kStoredConvolution));
}

std::unique_ptr<Convolution> Convolution::restored(const py::bytes& bytes) {
  StateBytes from(bytes, kStoredConvolution);
  Convolution_shape shape{};
  std::uint8_t fades = 0;
  Routes routes;
  from.pass(&shape);
  from.pass(&fades);
  pass(&from, &routes);
  auto result = std::make_unique<Convolution>(shape, std::move(routes));
  if (fades) {
    Routes next;
    pass(&from, &next);
    result->next_ = prepared_response(shape, std::move(next));
  }
  result->stream_.pass_state(&from);
  from.check_end();
  return result;
}

}  // namespace jurn::python
