// jurn._core, what the package is made of.
#include "bindings.h"

#include "Filter_control.h"

PYBIND11_MODULE(_core, m) {
  pybind11::options options;
  options.disable_function_signatures();  // the texts have those that Python reads
  m.doc() = "The library's filters as Python objects.";
  m.attr("__version__") = MORVAX_Version_API();
  jurn::python::add_streams(&m);
  jurn::python::add_convolution(&m);
  jurn::python::add_designs(&m);
  jurn::python::add_files(&m);
  jurn::python::add_recordings(&m);
  jurn::python::add_running(&m);
}
