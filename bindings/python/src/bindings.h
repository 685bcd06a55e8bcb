// The parts of the module.
#pragma once

#include <pybind11/pybind11.h>

namespace jurn {

void add_streams(pybind11::module_* m);
void add_convolution(pybind11::module_* m);
void add_toolkit(pybind11::module_* m);

}  // namespace jurn
