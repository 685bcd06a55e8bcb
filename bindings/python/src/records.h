// The library's records in Python: their coefficients, their state and their names.
#pragma once

#include <pybind11/pybind11.h>

#include <string>

#include "arrays.h"
#include "streams/records.h"

namespace jurn::python {

using namespace records;

/** What Python prints of a filter. */
std::string described(const Filter_ID& r);
std::string described(const shuzhiFilter_ID& r);
std::string described(const Filterf_ID& r);
std::string described(const Filterlongfir_ID& r);

/** The arrays of the state as views that belong to `owner`. */
py::dict state(py::handle owner, Filter_ID& r, int previous);
py::dict state(py::handle owner, shuzhiFilter_ID& r, int previous);
py::dict state(py::handle owner, Filterf_ID& r, int previous);
py::dict state(py::handle owner, Filterlongfir_ID& r, int previous);

/** Writes coefficients of Python into a record whose kind is set; for sections `b` is the table.
 * `right` is None but for the kinds with two filters. */
void set_coefficients(Filter_ID& r, py::handle b, py::handle a, py::handle right);
void set_coefficients(Filterf_ID& r, py::handle b, py::handle a, py::handle right);
void set_coefficients(Filterlongfir_ID& r, py::handle b, py::handle a, py::handle right);

/** Prepares the library's own fade to new coefficients, and returns true; false for the kinds that
 * have none. */
bool fade_inside(Filter_ID& r, py::handle b, py::handle right);
bool fade_inside(Filterf_ID& r, py::handle b, py::handle right);
bool fade_inside(Filterlongfir_ID& r, py::handle b, py::handle right);

}  // namespace jurn::python
