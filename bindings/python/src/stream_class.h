// What the classes of Python over the records of the library have in common.
#pragma once

#include <memory>
#include <string>

#include "bindings.h"
#include "stream.h"

namespace jurn::python {

using py::arg;

template <class Record>
using Holder = std::unique_ptr<Stream<Record>>;

inline constexpr char kState[] = R"(The state as views, by name; writing to them changes the filter.

``inputs`` and ``outputs`` are the past samples, oldest first: arrays of shape (channels, count), of
a `FloatFilter` (count,). Those of sections have the shape (channels, sections, order), newest
first. ``ring`` is the ring of an average. A view is good until the next block: take it anew then.)";

inline constexpr char kRecord[] =
    R"(The whole record of the library, as a read-only structured array.

Its fields have the names of the header Filter_control.h.)";

inline constexpr char kProcess[] = R"(Filter one block.

Blocks may have any lengths up to `longest_block`, and each continues exactly where the one before
has ended. Other threads run meanwhile.

Parameters
----------
block : ndarray
    Samples of shape (frames,) or (frames, channels).
out : ndarray, optional
    Array for the result; may be `block` itself. By default a new one.

Returns
-------
ndarray
    `out`, or the new array.

Raises
------
TypeError
    For another type of samples.
ValueError
    For another shape, or a block that is too long.
RuntimeError
    When the object runs on another thread at the same time.)";

inline constexpr char kRun[] = R"(Filter any number of frames, in blocks.

The same as `process` for one block after the other, in one call.

Parameters
----------
samples : ndarray
    Samples of shape (frames,) or (frames, channels).
block : int, optional
    Frames of a block, up to `longest_block`; the last one may be shorter.
out : ndarray, optional
    Array for the result; may be `samples` itself.

Returns
-------
ndarray
    `out`, or a new array.)";

inline constexpr char kFadeTo[] = R"(Fade to other coefficients during the next block.

The next block begins wholly with the old filter and ends wholly with the new one, which goes on
with the same past. Sections start in silence when their count or order changes.

Parameters
----------
b : array_like
    Taps, numerator, or sections, as they were given when the filter was made.
a : array_like, optional
    Denominator of a direct-form IIR.
right : array_like, optional
    Taps of the right channel, for the kinds of a `LongFilter` with two filters.

Raises
------
ValueError
    For coefficients that the filter cannot take, or a kind that does not fade.)";

inline constexpr char kFromBytes[] = R"(Restore a filter from what ``bytes(filter)`` has stored.

The stream continues exactly, in another process or on another machine. `pickle` and `copy` use the
same form. It carries the number of its format and is checked.

Parameters
----------
data : bytes
    What `bytes` gave for a filter of the same class.

Raises
------
ValueError
    For anything else, or another format.)";

template <class Record>
void add_common(py::class_<Stream<Record>>* c) {
  using Self = Stream<Record>;
  c->def(
      "reset", &Self::clear,
      signed_doc("reset(self)", "Return to silence; configuration and coefficients stay.").c_str());
  c->def(
      "copy", [](const Self& s) { return std::make_unique<Self>(s); },
      signed_doc("copy(self)", "A second filter that continues from the same state.").c_str());
  c->def_static("from_bytes", &Self::restored, arg("data"),
                signed_doc("from_bytes(data)", kFromBytes).c_str());
  add_copies(c);
  c->def(
      "__repr__", [](const Self& s) { return described(s.record()); },
      signed_doc("__repr__(self, /)", "").c_str());
  c->def_property_readonly(
      "record",
      [](py::object self) {
        auto& s = self.cast<Self&>();
        return view(self, &s.record(), {}, {}, false);
      },
      kRecord);
  c->def_property_readonly(
      "state",
      [](py::object self) {
        auto& s = self.cast<Self&>();
        InUse::check(s.in_use());
        return state(self, s.record(), s.last());
      },
      kState);
  c->def_property_readonly(
      "longest_block", [](const Self& s) { return longest_block(s.record()); },
      "Frames that a block may have at most.");
  c->def_property_readonly(
      "channels", [](const Self& s) { return channels_in(s.record()); }, "Channels of the input.");
  c->def_property_readonly(
      "output_channels", [](const Self& s) { return channels_out(s.record()); },
      "Channels of the output.");
}

template <class Record, class In = typename Stream<Record>::Sample>
py::object process(Stream<Record>& s, py::handle block, py::handle out) {
  return s.template filter<In>(block, out, 0);
}

template <class Record, class In = typename Stream<Record>::Sample>
py::object run(Stream<Record>& s, py::handle samples, py::ssize_t block, py::handle out) {
  if (block < 1) throw py::value_error("block: takes 1 frame or more");
  return s.template filter<In>(samples, out, block);
}

template <class Record>
void add_runs(py::class_<Stream<Record>>* c) {
  c->def("process", &process<Record>, arg("block"), arg("out") = py::none(),
         signed_doc("process(self, block, out=None)", kProcess).c_str());
  c->def("run", &run<Record>, arg("samples"), arg("block") = 512, arg("out") = py::none(),
         signed_doc("run(self, samples, block=512, out=None)", kRun).c_str());
}

/** A view of a record's coefficients. */
template <class Record, class T>
py::array coefficients(py::handle self, const T* values, const Record& r, int count) {
  if (r.filtertype == JURN_MOVING_AVERAGE) count = 0;
  if (r.filtertype != JURN_CASCADE) return view(self, values, {count}, {sizeof(T)}, false);
  if constexpr (std::is_same_v<T, double>)
    return {};
  else
    return view(self, values, {r.ns, r.n + 1},
                {static_cast<py::ssize_t>(sizeof(T)) * (r.n + 1), sizeof(T)}, false);
}

/** What the filters with a kind and coefficients have. */
template <class Record>
void add_coefficients(py::class_<Stream<Record>>* c) {
  using Self = Stream<Record>;
  c->def("fade_to", &Self::fade_to, arg("b"), arg("a") = py::none(), arg("right") = py::none(),
         signed_doc("fade_to(self, b, a=None, right=None)", kFadeTo).c_str());
  c->def_property_readonly(
      "kind", [](const Self& s) { return s.record().filtertype; },
      "The library's number of the kind, ``filtertype``.");
  c->def_property_readonly(
      "b",
      [](py::object self) {
        auto& r = self.cast<Self&>().record();
        return coefficients(self, r.b, r, r.blen);
      },
      "Taps, numerator or the sections' numerators, as they run.");
  c->def_property_readonly(
      "a",
      [](py::object self) {
        auto& r = self.cast<Self&>().record();
        return coefficients(self, r.a, r, r.filtertype == JURN_FIR ? 0 : r.alen);
      },
      "Denominator or the sections' denominators, as they run.");
}

/** A new filter of one of the kinds -1, 0 and 1. */
template <class Record>
Holder<Record> make(int kind, int channels, py::handle b, py::handle a) {
  auto stream = std::make_unique<Stream<Record>>();
  Record& r = stream->record();
  if constexpr (!std::is_same_v<Record, Filterf_ID>) {
    if (channels != 1 && channels != 2)
      throw py::value_error("channels: " + std::to_string(channels) + "; takes 1 or 2");
    r.chanel = channels;
  }
  r.filtertype = kind;
  set_coefficients(r, b, a, py::none());
  stream->clear();
  return stream;
}

}  // namespace jurn::python
