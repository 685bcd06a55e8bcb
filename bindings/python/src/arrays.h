// NumPy arrays in and out of the filters: blocks of frames without a copy where they lie in one
// piece, coefficients at double precision, and errors that name shape, type and limit.
#pragma once

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <cstdint>
#include <string>
#include <vector>

namespace jurn::python {

namespace py = pybind11;

/** "int16 of shape (480, 2)", or the type of what is no array. */
std::string described(py::handle object);

/** Whether it is an array of this type, however the type came to be: through pickle, say. */
template <class Sample>
bool holds(py::handle object);

/** The samples of a block, frames x channels, in one piece. */
template <class Sample>
struct Input {
  const Sample* data;
  py::ssize_t frames;
  int dimensions;  // 1: (frames,), 2: (frames, channels)
  py::object array;
};

/** Throws TypeError for another type than Sample and ValueError for another shape. */
template <class Sample>
Input<Sample> read_block(py::handle block, int channels);

/** Where a result goes: the caller's array or a new one. */
template <class Sample>
class Output {
 public:
  /** `out` is None for a new array, of two dimensions only where the input has them or the result
   * needs them. */
  Output(py::handle out, py::ssize_t frames, int channels, int dimensions);

  Sample* data() const { return data_; }
  py::ssize_t values() const { return values_; }

  /** The array, after what was written beside it has been copied to it. */
  py::object finish();

 private:
  py::object array_;
  py::object aside_;  // in one piece, for an array that is not
  Sample* data_ = nullptr;
  py::ssize_t values_ = 0;
};

/** An input that the output overwrites before it has been read is copied first. */
template <class Sample>
void keep_apart(Input<Sample>* in, int channels_in, const void* out, py::ssize_t out_bytes,
                bool same_frames);

/** A list of finite numbers with one dimension. `name` is for the errors. */
std::vector<double> numbers(py::handle object, const char* name, std::size_t least,
                            std::size_t most);

/** Sections as SciPy has them, one of 2 (order + 1) numbers per row: order 2, or 4. */
struct Sections {
  int order = 2;
  std::vector<double> b, a;  // order + 1 per section
};
Sections sections(py::handle object, std::size_t most_coefficients);

/** Throws for a denominator that does not begin with 1, which no filter reads. */
void check_leading(double a0, const char* name);

/** Rounds to float; throws for what a float cannot hold. */
void store(const std::vector<double>& from, float* to, const char* name);
inline void store(const std::vector<double>& from, double* to, const char*) {
  for (const double value : from) *to++ = value;
}

/** A view of memory that belongs to `owner`. */
template <class T>
py::array view(py::handle owner, const T* data, std::vector<py::ssize_t> shape,
               std::vector<py::ssize_t> strides, bool writeable) {
  py::array array(py::dtype::of<T>(), std::move(shape), std::move(strides), data, owner);
  if (!writeable)
    py::detail::array_proxy(array.ptr())->flags &= ~py::detail::npy_api::NPY_ARRAY_WRITEABLE_;
  return array;
}

}  // namespace jurn::python
