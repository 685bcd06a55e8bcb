// What the command line's toolkit does with designs and files, for the functions in Python.
#include <pybind11/stl.h>

#include "bindings.h"
#include "coefficients/filter_design.h"
#include "coefficients/formats.h"
#include "design/prepare.h"
#include "design/stability.h"
#include "errors.h"
#include "impulse_responses/impulse_response.h"
#include "streams/stages.h"

namespace jurn {
namespace {

namespace py = pybind11;

/** Kind, b and a, as the functions in Python take a design apart. */
using Flat = std::tuple<int, std::vector<double>, std::vector<double>>;

Flat flat(const tool::FilterDesign& design) {
  return {design.kind, design.b, design.a};
}

py::tuple prepare(int kind, std::vector<double> b, std::vector<double> a, bool in_double,
                  bool as_is, bool as_sections) {
  const tool::FilterDesign design{static_cast<tool::FilterDesign::Kind>(kind), std::move(b),
                                  std::move(a)};
  tool::PrepareOptions options;
  options.precision = in_double ? tool::Precision::kDouble : tool::Precision::kInt16;
  options.as_is = as_is;
  options.as_sections = as_sections;
  tool::Prepared prepared;
  std::string peak;
  {
    const py::gil_scoped_release unlocked;
    prepared = tool::prepare(design, options);
    if (!in_double) peak = tool::check_peak({}, prepared.design, 1.0);
  }
  std::vector<std::string> notices, warnings;
  for (const tool::Notice& notice : prepared.notices)
    (notice.is_warning() ? warnings : notices).push_back(notice.text);
  if (!peak.empty()) warnings.push_back(peak.substr(2));  // ": " names no file
  return py::make_tuple(flat(prepared.design), prepared.stable, prepared.pole_radius,
                        prepared.expected_error, prepared.expected_error_rms, notices, warnings);
}

std::pair<Flat, std::vector<std::string>> load_design(const std::vector<std::string>& paths,
                                                      int kind,
                                                      const std::vector<std::string>& variables,
                                                      int rate, std::optional<bool> negate) {
  tool::ReadOptions options;
  options.wanted = static_cast<tool::FilterDesign::Kind>(kind);
  options.limit = kind == tool::FilterDesign::kFir   ? tool::fir_limit(tool::Precision::kInt16)
                  : kind == tool::FilterDesign::kIir ? tool::iir_limit(tool::Precision::kInt16)
                                                     : tool::section_limit();
  options.variables = variables;
  options.rate = rate;
  tool::FilterDesign design = paths.size() == 2 ? tool::load_design(paths[0], paths[1], options)
                                                : tool::load_design(paths[0], options);
  std::vector<std::string> warnings;
  for (const std::string& warning : {tool::check_stability(paths.back(), negate, &design),
                                     tool::check_peak(paths.back(), design, 1.0)})
    if (!warning.empty()) warnings.push_back(warning);
  return {flat(design), warnings};
}

tool::ImpulseResponse read_response(const std::vector<std::string>& paths, int rate, bool resample,
                                    int truncate, bool normalise) {
  tool::ResponseOptions options;
  options.resample = resample;
  options.truncate = truncate;
  options.normalise = normalise;
  options.max_taps = 1 << 20;
  options.limit = "the convolution takes " + std::to_string(options.max_taps);
  return tool::read_response(paths, rate, options);
}

}  // namespace

void add_toolkit(py::module_* m) {
  py::register_exception_translator([](std::exception_ptr error) {
    try {
      if (error) std::rethrow_exception(error);
    } catch (const tool::Error& e) {
      PyErr_SetString(PyExc_ValueError, e.what());
    }
  });
  m->def("_prepare", &prepare);
  m->def("_load_design", &load_design);
  m->def("_read_response", &read_response);
}

}  // namespace jurn
