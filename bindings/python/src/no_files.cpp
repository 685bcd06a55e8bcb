// In place of what reads and writes files, where the libraries for that are missing.
#include <pybind11/pybind11.h>

#include <stdexcept>

#include "bindings.h"

namespace jurn::python {
namespace {

namespace py = pybind11;

void refuse(const py::args&, const py::kwargs&) {
  throw std::runtime_error(
      "this build of jurn reads and writes no files: it was made without libsndfile and the other "
      "libraries for them; filters of arrays work");
}

}  // namespace

void add_files(py::module_* m) {
  for (const char* const name : {"_load_design", "_read_response", "_read_setup"})
    m->def(name, &refuse);
}

void add_recordings(py::module_* m) {
  for (const char* const name :
       {"_RecordingFilter", "_filter_recording", "_Reader", "_Writer", "_audio_types"})
    m->def(name, &refuse);
}

}  // namespace jurn::python
