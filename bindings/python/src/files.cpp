// Files of coefficients, impulse responses and setups, for the functions in Python.
#include <pybind11/stl.h>

#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "bindings.h"
#include "coefficients/formats.h"
#include "coefficients/setups.h"
#include "design/stability.h"
#include "designs.h"
#include "impulse_responses/impulse_response.h"

namespace jurn::python {
namespace {

namespace py = pybind11;

std::tuple<Flat, int, std::optional<bool>> load_design(const std::vector<std::string>& paths,
                                                       std::optional<int> kind,
                                                       const std::vector<std::string>& variables,
                                                       int rate, std::optional<bool> negate,
                                                       bool in_double) {
  jurn::ReadOptions options;
  if (kind) options.wanted = static_cast<jurn::FilterDesign::Kind>(*kind);
  options.limits = jurn::filter_limits(precision_in(in_double));
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
  m->def("_read_setup", &read_setup, py::arg("path"), py::arg("rate"), py::arg("channels"),
         "_read_setup(path, rate, channels)\n--\n\n");
  m->def("_load_design", &load_design, py::arg("paths"), py::arg("kind"), py::arg("variables"),
         py::arg("rate"), py::arg("negate"), py::arg("in_double"),
         "_load_design(paths, kind, variables, rate, negate, in_double)\n--\n\n");
  m->def("_read_response", &read_response, py::arg("paths"), py::arg("rate"), py::arg("resample"),
         py::arg("truncate"), py::arg("normalise"),
         "_read_response(paths, rate, resample, truncate, normalise)\n--\n\n");
}

}  // namespace jurn::python
