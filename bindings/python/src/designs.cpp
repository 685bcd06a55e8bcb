// Designs, for the functions in Python.
#include <pybind11/complex.h>
#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include <complex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "bindings.h"
#include "coefficients/formats.h"
#include "design/frequency_response.h"
#include "design/prepare.h"
#include "design/roots.h"
#include "design/setup.h"
#include "design/stability.h"
#include "designs.h"
#include "errors.h"

namespace jurn::python {
namespace {

namespace py = pybind11;

jurn::FilterDesign of_flat(int kind, std::vector<double> b, std::vector<double> a) {
  if (kind < 0 || kind > jurn::FilterDesign::kSections) throw py::value_error("kind: is none");
  return jurn::checked_design(static_cast<jurn::FilterDesign::Kind>(kind), std::move(b),
                              std::move(a));
}

py::tuple prepare(int kind, std::vector<double> b, std::vector<double> a, bool in_double,
                  bool as_is, bool as_sections, std::optional<bool> prepared_in_double) {
  jurn::FilterDesign design = of_flat(kind, std::move(b), std::move(a));
  if (prepared_in_double) design.prepared = precision_in(*prepared_in_double);
  jurn::PrepareOptions options;
  options.precision = precision_in(in_double);
  options.as_is = as_is;
  options.as_sections = as_sections;
  jurn::Prepared prepared;
  std::string peak;
  {
    const py::gil_scoped_release unlocked;
    prepared = jurn::prepare(design, options);
    peak = jurn::check_peak({}, prepared.design, 1.0);
  }
  std::vector<std::string> notices, warnings, clips;
  for (const jurn::Notice& notice : prepared.notices)
    (notice.is_warning() ? warnings : notices).push_back(notice.text);
  if (!peak.empty()) clips.push_back(peak.substr(2));  // ": " names no file
  return py::make_tuple(flat(prepared.design), prepared.stable, prepared.pole_radius,
                        prepared.expected_error, prepared.expected_error_rms, notices, warnings,
                        clips);
}

/** Response and group delay at frequencies in radians per sample. */
py::tuple response(int kind, std::vector<double> b, std::vector<double> a,
                   const py::array_t<double, py::array::c_style>& frequencies) {
  const jurn::FilterDesign design = of_flat(kind, std::move(b), std::move(a));
  py::array_t<std::complex<double>> values(frequencies.size());
  py::array_t<double> delays(frequencies.size());
  for (py::ssize_t i = 0; i < frequencies.size(); ++i) {
    const jurn::ResponsePoint point = jurn::response_at(design, frequencies.data()[i]);
    values.mutable_data()[i] = point.value;
    delays.mutable_data()[i] = point.delay;
  }
  return py::make_tuple(values, delays);
}

/** Zeros and poles. */
py::tuple roots(int kind, std::vector<double> b, std::vector<double> a) {
  const jurn::FilterDesign design = of_flat(kind, std::move(b), std::move(a));
  const auto array = [](const std::vector<std::complex<double>>& from) {
    return py::array_t<std::complex<double>>(static_cast<py::ssize_t>(from.size()), from.data());
  };
  return py::make_tuple(array(jurn::roots_of(design, design.b)),
                        array(design.a.empty() ? std::vector<std::complex<double>>()
                                               : jurn::roots_of(design, design.a)));
}

}  // namespace

void add_designs(py::module_* m) {
  const py::class_<jurn::Setup> setup(*m, "_Setup");
  py::register_exception_translator([](std::exception_ptr error) {
    try {
      if (error) std::rethrow_exception(error);
    } catch (const jurn::Error& e) {
      PyErr_SetString(PyExc_ValueError, e.what());
    }
  });
  m->def("_prepare", &prepare, py::arg("kind"), py::arg("b"), py::arg("a"), py::arg("in_double"),
         py::arg("as_is"), py::arg("as_sections"), py::arg("prepared_in_double"),
         "_prepare(kind, b, a, in_double, as_is, as_sections, prepared_in_double)\n--\n\n");
  m->def("_response", &response, py::arg("kind"), py::arg("b"), py::arg("a"),
         py::arg("frequencies"), "_response(kind, b, a, frequencies)\n--\n\n");
  m->def("_roots", &roots, py::arg("kind"), py::arg("b"), py::arg("a"),
         "_roots(kind, b, a)\n--\n\n");
  m->def(
      "_equaliser",
      [](const std::vector<std::string>& filters, int rate) {
        return flat(jurn::parse_equaliser_words(filters, rate));
      },
      py::arg("filters"), py::arg("rate"), "_equaliser(filters, rate)\n--\n\n");
  m->def(
      "_coefficient_limit",
      [](int kind, bool in_double) {
        const jurn::CoefficientLimit limit = jurn::coefficient_limit(
            static_cast<jurn::FilterDesign::Kind>(kind), precision_in(in_double));
        return std::make_pair(limit.count, limit.reason);
      },
      py::arg("kind"), py::arg("in_double"), "_coefficient_limit(kind, in_double)\n--\n\n");
}

}  // namespace jurn::python
