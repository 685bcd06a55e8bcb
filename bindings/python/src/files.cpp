// Designs and files, for the functions in Python.
#include <pybind11/complex.h>
#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include <complex>

#include "bindings.h"
#include "coefficients/formats.h"
#include "coefficients/setups.h"
#include "design/filter_design.h"
#include "design/frequency_response.h"
#include "design/prepare.h"
#include "design/roots.h"
#include "design/stability.h"
#include "errors.h"
#include "impulse_responses/impulse_response.h"
#include "streams/stages.h"

namespace jurn::python {
namespace {

namespace py = pybind11;

/** Kind, b and a, as the functions in Python take a design apart. */
using Flat = std::tuple<int, std::vector<double>, std::vector<double>>;

Flat flat(const jurn::FilterDesign& design) {
  return {design.kind, design.b, design.a};
}

jurn::FilterDesign of_flat(int kind, std::vector<double> b, std::vector<double> a) {
  const std::size_t group = kind == jurn::FilterDesign::kSections ? 3 : 1;
  const bool recursive = kind != jurn::FilterDesign::kFir;
  if (kind < 0 || kind > jurn::FilterDesign::kSections || b.empty() || a.empty() == recursive ||
      b.size() % group || (group == 3 && a.size() != b.size()))
    throw py::value_error("no design");  // Design of Python says what is wrong
  return {static_cast<jurn::FilterDesign::Kind>(kind), std::move(b), std::move(a)};
}

jurn::Precision precision_of(bool in_double) {
  return in_double ? jurn::Precision::kDouble : jurn::Precision::kInt16;
}

py::tuple prepare(int kind, std::vector<double> b, std::vector<double> a, bool in_double,
                  bool as_is, bool as_sections, std::optional<bool> prepared_in_double) {
  jurn::FilterDesign design = of_flat(kind, std::move(b), std::move(a));
  if (prepared_in_double) design.prepared = precision_of(*prepared_in_double);
  jurn::PrepareOptions options;
  options.precision = precision_of(in_double);
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

std::tuple<Flat, int, std::optional<bool>> load_design(const std::vector<std::string>& paths,
                                                       std::optional<int> kind,
                                                       const std::vector<std::string>& variables,
                                                       int rate, std::optional<bool> negate,
                                                       bool in_double) {
  jurn::ReadOptions options;
  if (kind) options.wanted = static_cast<jurn::FilterDesign::Kind>(*kind);
  options.limits = jurn::filter_limits(precision_of(in_double));
  options.variables = variables;
  options.rate = rate;
  jurn::FilterDesign design = paths.size() == 2 ? jurn::load_design(paths[0], paths[1], options)
                                                : jurn::load_design(paths[0], options);
  jurn::check_signs(paths.back(), negate, &design);
  std::optional<bool> prepared_in_double;
  if (design.prepared) prepared_in_double = *design.prepared == jurn::Precision::kDouble;
  return {flat(design), design.delay, prepared_in_double};
}

jurn::ImpulseResponse read_response(const std::vector<std::string>& paths, int rate, bool resample,
                                    int truncate, bool normalise) {
  jurn::ImpulseResponseOptions options;
  options.resample = resample;
  options.truncate = truncate;
  options.normalise = normalise;
  return jurn::read_impulse_response(paths, rate, options);
}

/** A setup, what was rounded in it, what to warn of, and the frames by which it is late. */
py::tuple read_setup(const std::string& path, int rate, int channels) {
  const jurn::SetupFile file = jurn::read_setup(path, rate, channels);
  jurn::PrepareOptions options;
  options.rate = rate;
  const jurn::PreparedSetup prepared = jurn::prepare(file.setup, options);
  std::vector<std::string> warnings;
  for (const jurn::Notice& notice : prepared.notices)
    if (notice.is_warning()) warnings.push_back(notice.text);
  return py::make_tuple(file.setup, file.setup.inputs, file.setup.outputs(), prepared.latency(),
                        file.remarks, warnings);
}

}  // namespace

void add_files(py::module_* m) {
  const py::class_<jurn::Setup> setup(*m, "_Setup");
  m->def("_read_setup", &read_setup, py::arg("path"), py::arg("rate"), py::arg("channels"),
         "_read_setup(path, rate, channels)\n--\n\n");
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
            static_cast<jurn::FilterDesign::Kind>(kind), precision_of(in_double));
        return std::make_pair(limit.count, limit.reason);
      },
      py::arg("kind"), py::arg("in_double"), "_coefficient_limit(kind, in_double)\n--\n\n");
  m->def("_load_design", &load_design, py::arg("paths"), py::arg("kind"), py::arg("variables"),
         py::arg("rate"), py::arg("negate"), py::arg("in_double"),
         "_load_design(paths, kind, variables, rate, negate, in_double)\n--\n\n");
  m->def("_read_response", &read_response, py::arg("paths"), py::arg("rate"), py::arg("resample"),
         py::arg("truncate"), py::arg("normalise"),
         "_read_response(paths, rate, resample, truncate, normalise)\n--\n\n");
}

}  // namespace jurn::python
