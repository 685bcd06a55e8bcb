// The class of Python for convolution without latency.
#include <pybind11/stl.h>

#include <optional>
#include <tuple>
#include <vector>

#include "bindings.h"
#include "convolution_stream.h"
#include "streams/routing.h"

namespace jurn::python {

using py::arg;

void add_convolution(py::module_* m) {
  py::class_<Convolution> c(*m, "Convolution",
                            R"(Convolution with impulse responses, without latency.

Parameters
----------
routes : sequence of (int, int, array_like)
    Each from an input through taps to an output; channels count from 0.
inputs, outputs : int, optional
    Channels, 1 to 16.
block : int, optional
    Frames of every block, 1 to 4096.
taps : int, optional
    Taps of the longest response that `fade_to` will bring; by default those of the routes.

Examples
--------
>>> import numpy as np
>>> import jurn
>>> echo = jurn.Convolution([(0, 0, [0.5, 0.25]), (0, 1, [0.0, 1.0])], outputs=2, block=2)
>>> echo.process(np.array([400, 0], dtype=np.int16))
array([[200,   0],
       [100, 400]], dtype=int16)
)");
  c.def(py::init([](const py::sequence& list, int inputs, int outputs, int block,
                    const std::optional<int>& taps) {
          Routes routes = read_routes(list);
          const int length = taps.value_or(longest(routes));
          return std::make_unique<Convolution>(Convolution_shape{inputs, outputs, block, length},
                                               std::move(routes));
        }),
        arg("routes"), py::kw_only(), arg("inputs") = 1, arg("outputs") = 1, arg("block") = 256,
        arg("taps") = py::none(),
        "__init__(self, routes, *, inputs=1, outputs=1, block=256, taps=None)\n--\n\n");
  c.def(
      "process",
      [](Convolution& s, py::handle block, py::handle out) { return s.filter(block, out, true); },
      arg("block"), arg("out") = py::none(), R"(process(self, block, out=None)
--

Filter one block, of int16 or float32.

Parameters
----------
block : ndarray
    Samples of shape (block, inputs), or (block,) for one input.
out : ndarray, optional
    Array of the same type for the result; may be `block` itself.

Returns
-------
ndarray
    `out`, or a new array of shape (block, outputs).)");
  c.def(
      "run",
      [](Convolution& s, py::handle samples, py::handle out) {
        return s.filter(samples, out, false);
      },
      arg("samples"), arg("out") = py::none(), R"(run(self, samples, out=None)
--

Filter several blocks.

Parameters
----------
samples : ndarray
    Samples of a whole number of blocks.
out : ndarray, optional
    Array for the result; may be `samples` itself.

Returns
-------
ndarray
    `out`, or a new array.)");
  c.def("fade_to", &Convolution::fade_to, arg("routes"),
        R"(fade_to(self, routes)
--

Fade to other responses during the next block.

Parameters
----------
routes : sequence of (int, int, array_like)
    As for the constructor; no longer than `taps`.)");
  c.def("reset", &Convolution::reset,
        "reset(self)\n--\n\nReturn to silence; a fade that waits is completed.");
  c.def(
      "copy", [](const Convolution& s) { return std::make_unique<Convolution>(s); },
      "copy(self)\n--\n\nA second stream that continues from the same state.");
  c.def_static("from_bytes", &Convolution::restored, arg("data"),
               R"(from_bytes(data)
--

Restore a stream from what ``bytes(convolution)`` has stored.

It has to come from the same version of the library.

Parameters
----------
data : bytes
    What `bytes` gave.)");
  add_copies(&c);
  c.def("__repr__", [](const Convolution& s) {
    const Convolution_shape& shape = s.shape();
    return "<jurn.Convolution: " + std::to_string(shape.inputs) + " to " +
           std::to_string(shape.outputs) + " channels, " + std::to_string(s.routes()) +
           " routes of up to " + std::to_string(shape.taps) + " taps, blocks of " +
           std::to_string(shape.block) + ">";
  });
  c.def_property_readonly(
      "state", [](py::object self) { return self.cast<Convolution&>().state(self); },
      "The memory of the stream, read-only bytes.");
  c.def_property_readonly(
      "inputs", [](const Convolution& s) { return s.shape().inputs; }, "Channels in.");
  c.def_property_readonly(
      "outputs", [](const Convolution& s) { return s.shape().outputs; }, "Channels out.");
  c.def_property_readonly(
      "block", [](const Convolution& s) { return s.shape().block; }, "Frames of every block.");
  c.def_property_readonly(
      "taps", [](const Convolution& s) { return s.shape().taps; },
      "Taps that a response may have at most.");
  c.def_property_readonly(
      "latency", [](const Convolution&) { return 0; }, "Frames by which the output is late: none.");
  m->def(
      "_connections",
      [](int channels, int inputs, const std::string& name) {
        std::vector<std::tuple<int, int, int>> all;
        for (const Connection& each : connections(channels, Wiring::kAutomatic, inputs, name))
          all.emplace_back(each.input, each.output, each.channel);
        return all;
      },
      arg("channels"), arg("inputs"), arg("name"), "_connections(channels, inputs, name)\n--\n\n");
}

}  // namespace jurn::python
