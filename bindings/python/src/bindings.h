// The parts of the module.
#pragma once

#include <pybind11/pybind11.h>

#include <memory>
#include <string>

namespace jurn::python {

/** The text of a function with its signature before it, where Python's inspect looks for one. */
inline std::string signed_doc(const char* signature, const char* text) {
  return std::string(signature) + "\n--\n\n" + text;
}

/** Copying and pickling by T::stored and T::restored. */
template <class T>
void add_copies(pybind11::class_<T>* c) {
  namespace py = pybind11;
  c->def(
      "__copy__", [](const T& s) { return std::make_unique<T>(s); },
      signed_doc("__copy__(self)", "").c_str());
  c->def(
      "__deepcopy__", [](const T& s, const py::dict&) { return std::make_unique<T>(s); },
      py::arg("memo"), signed_doc("__deepcopy__(self, memo)", "").c_str());
  c->def("__bytes__", &T::stored, signed_doc("__bytes__(self)", "").c_str());
  c->def(py::pickle([](const T& s) { return s.stored(); }, &T::restored));
}

void add_streams(pybind11::module_* m);
void add_moving_sum(pybind11::module_* m);
void add_float_filter(pybind11::module_* m);
void add_convolution(pybind11::module_* m);
void add_designs(pybind11::module_* m);
void add_files(pybind11::module_* m);
void add_recordings(pybind11::module_* m);
void add_running(pybind11::module_* m);

}  // namespace jurn::python
