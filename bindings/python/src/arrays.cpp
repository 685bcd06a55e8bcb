#include "arrays.h"

#include <cmath>
#include <cstring>
#include <limits>
#include <new>

namespace jurn::python {
namespace {

using py::detail::array_proxy;
using py::detail::npy_api;

bool in_one_piece(py::handle array) {
  return array_proxy(array.ptr())->flags & npy_api::NPY_ARRAY_C_CONTIGUOUS_;
}

template <class Sample>
const char* name_of_type() {
  return sizeof(Sample) == 2 ? "int16" : "float32";
}

template <class Sample>
const py::dtype& type_of() {
  static const py::dtype* const type = new py::dtype(py::dtype::of<Sample>());  // never destroyed
  return *type;
}

template <class Sample>
bool has_type(py::handle array) {
  PyObject* const type = array_proxy(array.ptr())->descr;
  return type == type_of<Sample>().ptr() ||
         npy_api::get().PyArray_EquivTypes_(type, type_of<Sample>().ptr());
}

template <class Sample>
[[noreturn]] void fail_shape(const char* name, py::handle given, int channels) {
  const std::string expected =
      channels == 1 ? "(frames,) or (frames, 1)" : "(frames, " + std::to_string(channels) + ")";
  throw py::value_error(std::string(name) + ": " + described(given) + "; takes " +
                        name_of_type<Sample>() + " of shape " + expected);
}

/** The frames of an array, which has to be a block of `channels`. */
template <class Sample>
py::ssize_t frames_of(const char* name, py::handle array, int channels) {
  if (!holds<Sample>(array))
    throw py::type_error(std::string(name) + ": " + described(array) + "; takes an array of " +
                         name_of_type<Sample>());
  const auto* proxy = array_proxy(array.ptr());
  const bool fits =
      proxy->nd == 2 ? proxy->dimensions[1] == channels : proxy->nd == 1 && channels == 1;
  if (!fits) fail_shape<Sample>(name, array, channels);
  return proxy->dimensions[0];
}

py::object new_array(const py::dtype& type, py::ssize_t frames, int channels, int dimensions) {
  const Py_intptr_t shape[2] = {frames, channels};
  auto& api = npy_api::get();
  PyObject* const array = api.PyArray_NewFromDescr_(
      api.PyArray_Type_, type.inc_ref().ptr(), dimensions, shape, nullptr, nullptr, 0, nullptr);
  if (!array) throw py::error_already_set();
  return py::reinterpret_steal<py::object>(array);
}

}  // namespace

std::string described(py::handle object) {
  if (!py::isinstance<py::array>(object))
    return py::str(py::type::handle_of(object).attr("__name__"));
  const auto array = py::reinterpret_borrow<py::array>(object);
  return std::string(py::str(array.dtype())) + " of shape " +
         std::string(py::str(array.attr("shape")));
}

template <class Sample>
Input<Sample> read_block(py::handle block, int channels) {
  const py::ssize_t frames = frames_of<Sample>("block", block, channels);
  auto array = py::reinterpret_borrow<py::object>(block);
  if (!in_one_piece(block)) {
    array = py::array_t<Sample, py::array::c_style>::ensure(block);
    if (!array) throw std::bad_alloc();
  }
  const auto* proxy = array_proxy(array.ptr());
  return {reinterpret_cast<const Sample*>(proxy->data), frames, proxy->nd, std::move(array)};
}

template <class Sample>
bool holds(py::handle object) {
  return npy_api::get().PyArray_Check_(object.ptr()) && has_type<Sample>(object);
}

template <class Sample>
Output<Sample>::Output(py::handle out, py::ssize_t frames, int channels, int dimensions)
    : values_(frames * channels) {
  if (out.is_none()) {
    array_ = new_array(type_of<Sample>(), frames, channels, channels > 1 ? 2 : dimensions);
  } else {
    if (frames_of<Sample>("out", out, channels) != frames)
      throw py::value_error("out: " + described(out) + "; the result has " +
                            std::to_string(frames) + " frames");
    if (!(array_proxy(out.ptr())->flags & npy_api::NPY_ARRAY_WRITEABLE_))
      throw py::value_error("out: is read-only");
    array_ = py::reinterpret_borrow<py::object>(out);
    if (!in_one_piece(out))
      aside_ = new_array(type_of<Sample>(), frames, channels, array_proxy(out.ptr())->nd);
  }
  data_ = reinterpret_cast<Sample*>(array_proxy((aside_ ? aside_ : array_).ptr())->data);
}

template <class Sample>
py::object Output<Sample>::finish() {
  if (aside_ && npy_api::get().PyArray_CopyInto_(array_.ptr(), aside_.ptr()))
    throw py::error_already_set();
  return std::move(array_);
}

template <class Sample>
void keep_apart(Input<Sample>* in, int channels_in, const void* out, py::ssize_t out_bytes,
                bool same_frames) {
  const auto in_begin = reinterpret_cast<std::uintptr_t>(in->data);
  const auto in_end =
      in_begin + static_cast<std::uintptr_t>(in->frames * channels_in) * sizeof(Sample);
  const auto out_begin = reinterpret_cast<std::uintptr_t>(out);
  const auto out_end = out_begin + static_cast<std::uintptr_t>(out_bytes);
  if (in_begin >= out_end || out_begin >= in_end) return;
  if (same_frames && in_begin == out_begin) return;
  in->array = in->array.attr("copy")();
  in->data = reinterpret_cast<const Sample*>(array_proxy(in->array.ptr())->data);
}

#define JURN_SAMPLES(Sample)                                  \
  template bool holds<Sample>(py::handle);                    \
  template Input<Sample> read_block<Sample>(py::handle, int); \
  template class Output<Sample>;                              \
  template void keep_apart<Sample>(Input<Sample>*, int, const void*, py::ssize_t, bool);
JURN_SAMPLES(short)
JURN_SAMPLES(float)
#undef JURN_SAMPLES

namespace {

py::array_t<double> doubles(py::handle object, const char* name) {
  const auto given = py::array::ensure(object);
  if (!given || std::strchr("fiub", given.dtype().kind()) == nullptr) {
    PyErr_Clear();
    throw py::type_error(std::string(name) + ": " + described(object) + "; takes real numbers");
  }
  const auto array = py::array_t<double, py::array::c_style | py::array::forcecast>::ensure(given);
  if (!array) throw std::bad_alloc();
  for (py::ssize_t i = 0; i < array.size(); ++i)
    if (!std::isfinite(array.data()[i]))
      throw py::value_error(std::string(name) + ": number " + std::to_string(i) + " is not finite");
  return array;
}

}  // namespace

std::vector<double> numbers(py::handle object, const char* name, std::size_t least,
                            std::size_t most) {
  const auto array = doubles(object, name);
  if (array.ndim() != 1)
    throw py::value_error(std::string(name) + ": " + described(array) + "; takes one dimension");
  const auto count = static_cast<std::size_t>(array.size());
  if (count < least || count > most)
    throw py::value_error(std::string(name) + ": has " + std::to_string(count) +
                          " numbers; this filter takes " + std::to_string(least) + " to " +
                          std::to_string(most));
  return {array.data(), array.data() + count};
}

Sections sections(py::handle object, std::size_t most_coefficients) {
  const auto array = doubles(object, "sos");
  if (array.ndim() != 2 || (array.shape(1) != 6 && array.shape(1) != 10))
    throw py::value_error("sos: " + described(array) +
                          "; takes (sections, 6), or (sections, 10) of order 4");
  Sections result;
  const auto group = static_cast<std::size_t>(array.shape(1) / 2);
  const auto count = static_cast<std::size_t>(array.shape(0));
  const std::size_t most = most_coefficients / group;
  if (count < 1 || count > most)
    throw py::value_error("sos: has " + std::to_string(count) +
                          " sections; this filter takes 1 to " + std::to_string(most));
  result.order = static_cast<int>(group) - 1;
  for (std::size_t i = 0; i < count; ++i) {
    const double* const row = array.data() + i * 2 * group;
    check_leading(row[group], ("sos: section " + std::to_string(i)).c_str());
    result.b.insert(result.b.end(), row, row + group);
    result.a.insert(result.a.end(), row + group, row + 2 * group);
  }
  return result;
}

void check_leading(double a0, const char* name) {
  if (a0 != 1.0)
    throw py::value_error(std::string(name) + ": a0 is " + std::string(py::str(py::float_(a0))) +
                          ", but the filters count it as 1; divide the filter by it");
}

void store(const std::vector<double>& from, float* to, const char* name) {
  for (const double value : from) {
    if (std::abs(value) > static_cast<double>(std::numeric_limits<float>::max()))
      throw py::value_error(std::string(name) + ": " + std::string(py::str(py::float_(value))) +
                            " is beyond the range of float32, which this filter stores");
    *to++ = static_cast<float>(value);
  }
}

}  // namespace jurn::python
