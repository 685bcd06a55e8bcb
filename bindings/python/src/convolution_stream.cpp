#include "convolution_stream.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <string>

namespace jurn::python {
namespace {

template <class T>
Memory<T> allocate(std::size_t size) {
  return Memory<T>(static_cast<T*>(::operator new (size, std::align_val_t{64})));
}

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
  const std::size_t size =
      std::max<std::size_t>(MORVAX_ConvolutionResponseSize_API(&shape, list.data(), count), 4);
  auto response = std::make_shared<Response>();
  response->spectra = allocate<ConvolutionResponse_ID>(size);
  response->routes = std::move(routes);
  int error;
  {
    const Unlocked unlocked;
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

// ---- Storing, in the byte order of the machine -------------------------------------------------

template <class T>
void put(std::string* to, const T& value) {
  to->append(reinterpret_cast<const char*>(&value), sizeof value);
}

class Taker {
 public:
  explicit Taker(std::string_view data) : data_(data) {}

  void take(void* to, std::size_t size) {
    if (size > data_.size()) throw py::value_error("data: is cut");
    std::memcpy(to, data_.data(), size);
    data_.remove_prefix(size);
  }
  template <class T>
  T take() {
    T value;
    take(&value, sizeof value);
    return value;
  }
  std::size_t left() const { return data_.size(); }

 private:
  std::string_view data_;
};

constexpr std::uint8_t kTag = 5;

void put(std::string* to, const Response& response) {
  put(to, static_cast<std::int32_t>(response.routes.size()));
  for (const Route& route : response.routes) {
    put(to, static_cast<std::int32_t>(route.input));
    put(to, static_cast<std::int32_t>(route.output));
    put(to, static_cast<std::int32_t>(route.taps.size()));
    to->append(reinterpret_cast<const char*>(route.taps.data()), route.taps.size() * sizeof(float));
  }
}

Routes take_routes(Taker* from) {
  Routes routes;
  for (auto count = from->take<std::int32_t>(); count > 0; --count) {
    Route route;
    route.input = from->take<std::int32_t>();
    route.output = from->take<std::int32_t>();
    const auto taps = static_cast<std::size_t>(from->take<std::int32_t>());
    if (taps > from->left() / sizeof(float)) throw py::value_error("data: is cut");
    route.taps.resize(taps);
    from->take(route.taps.data(), taps * sizeof(float));
    routes.push_back(std::move(route));
  }
  return routes;
}

}  // namespace

Routes read_routes(const py::sequence& list) {
  Routes routes;
  for (const py::handle item : list) {
    const auto entry = py::reinterpret_borrow<py::object>(item);
    if (!py::isinstance<py::sequence>(item) || py::len(entry) != 3)
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
    : shape_(shape),
      size_(MORVAX_ConvolutionStreamSize_API(&shape)),
      stream_(allocate<ConvolutionStream_ID>(std::max<std::size_t>(size_, 4))) {
  check(MORVAX_ConvolutionStreamCalcu_API(stream_.get(), size_, &shape));
  response_ = prepared_response(shape, std::move(routes));
}

Convolution::Convolution(const Convolution& other)
    : shape_(other.shape_),
      size_(other.size_),
      stream_(allocate<ConvolutionStream_ID>(size_)),
      response_(other.response_),
      next_(other.next_) {
  InUse::check(other.in_use_);
  std::memcpy(static_cast<void*>(stream_.get()), other.stream_.get(), size_);
}

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
    const Unlocked unlocked;
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
              {static_cast<py::ssize_t>(size_)}, {1}, false);
}

py::bytes Convolution::stored() const {
  InUse::check(in_use_);
  StoredHead head;
  head.tag = kTag;
  head.fading = next_ ? 1 : 0;
  head.size = static_cast<std::uint32_t>(std::strlen(MORVAX_Version_API()));
  std::string all;
  put(&all, head);
  all += MORVAX_Version_API();
  put(&all, shape_);
  put(&all, *response_);
  if (next_) put(&all, *next_);
  put(&all, static_cast<std::uint64_t>(size_));
  all.append(reinterpret_cast<const char*>(stream_.get()), size_);
  return sealed(std::move(all));
}

std::unique_ptr<Convolution> Convolution::restored(const py::bytes& bytes) {
  stored_head(bytes);
  Taker from{unsealed(bytes)};
  const auto head = from.take<StoredHead>();
  if (head.tag != kTag || head.size > from.left())
    throw py::value_error("data: holds another kind of filter, or is cut");
  std::string version(head.size, '\0');
  from.take(version.data(), version.size());
  if (version != MORVAX_Version_API())
    throw py::value_error("data: was stored by version " + version + "; this is " +
                          MORVAX_Version_API());
  const auto shape = from.take<Convolution_shape>();
  auto result = std::make_unique<Convolution>(shape, take_routes(&from));
  if (head.fading) result->next_ = prepared_response(shape, take_routes(&from));
  if (from.take<std::uint64_t>() != result->size_ || from.left() != result->size_)
    throw py::value_error("data: is cut, or of another build");
  from.take(result->stream_.get(), result->size_);
  return result;
}

}  // namespace jurn::python
