// The classes of Python over the records of the library.
#include <pybind11/stl.h>

#include "bindings.h"
#include "stream.h"

namespace jurn {
namespace {

using py::arg;

template <class Record>
using Holder = std::unique_ptr<Stream<Record>>;

constexpr char kState[] = R"(The state as views, by name; writing to them changes the filter.

``inputs`` and ``outputs`` are the past samples, oldest first: arrays of shape (channels, count), of
a `FloatFilter` (count,). Those of sections have the shape (channels, sections, order), newest
first. ``ring`` is the ring of an average. A view is good until the next block: take it anew then.)";

constexpr char kRecord[] = R"(The whole record of the library, as a read-only structured array.

Its fields have the names of the header Filter_control.h.)";

constexpr char kProcess[] = R"(Filter one block.

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

constexpr char kRun[] = R"(Filter any number of frames, in blocks.

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

constexpr char kFadeTo[] = R"(Fade to other coefficients during the next block.

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

constexpr char kFromBytes[] = R"(Restore a filter from what ``bytes(filter)`` has stored.

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
      "reset",
      [](Self& s) {
        InUse::check(s.in_use());
        s.clear();
      },
      "Return to silence; configuration and coefficients stay.");
  c->def(
      "copy",
      [](const Self& s) {
        InUse::check(s.in_use());
        return std::make_unique<Self>(s);
      },
      "A second filter that continues from the same state.");
  c->def("__copy__", [](const Self& s) { return std::make_unique<Self>(s); });
  c->def(
      "__deepcopy__", [](const Self& s, const py::dict&) { return std::make_unique<Self>(s); },
      arg("memo"));
  c->def("__bytes__", &Self::stored);
  c->def_static("from_bytes", &Self::restored, arg("data"), kFromBytes);
  c->def(py::pickle([](const Self& s) { return s.stored(); }, &Self::restored));
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

bool is_int16(py::handle samples) {
  return py::isinstance<py::array>(samples) &&
         py::reinterpret_borrow<py::array>(samples).dtype().is(py::dtype::of<short>());
}

template <class Record>
void add_runs(py::class_<Stream<Record>>* c) {
  c->def("process", &process<Record>, arg("block"), arg("out") = py::none(), kProcess);
  c->def("run", &run<Record>, arg("samples"), arg("block") = 512, arg("out") = py::none(), kRun);
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
         kFadeTo);
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

template <class Record>
Holder<Record> make_average(int length, int most) {
  if (length < 1 || length > most)
    throw py::value_error("length: " + std::to_string(length) + "; takes 1 to " +
                          std::to_string(most));
  auto stream = std::make_unique<Stream<Record>>();
  stream->record().chanel = 1;
  stream->record().filtertype = JURN_MOVING_AVERAGE;
  stream->record().blen = length;
  stream->clear();
  return stream;
}

template <class Record>
void add_makers(py::class_<Stream<Record>>* c, int most_average) {
  c->def_static(
      "iir",
      [](py::handle b, py::handle a, int channels) {
        return make<Record>(JURN_IIR, channels, b, a);
      },
      arg("b"), arg("a"), arg("channels") = 1, R"(Make a direct-form IIR.

Parameters
----------
b, a : array_like
    Numerator and denominator, 1 to 1250 numbers each, with ``a[0] == 1``.
channels : int, optional
    1, or 2 for stereo.)");
  c->def_static(
      "sos",
      [](py::handle sos, int channels) {
        return make<Record>(JURN_CASCADE, channels, sos, py::none());
      },
      arg("sos"), arg("channels") = 1, R"(Make a cascade of sections.

Parameters
----------
sos : array_like
    Sections of shape (sections, 6), as SciPy has them, or (sections, 10) of fourth order: numerator
    and denominator, which begins with 1. Up to 416 of second order, 250 of fourth.
channels : int, optional
    1, or 2 for stereo.)");
  c->def_static(
      "average", [most_average](int length) { return make_average<Record>(length, most_average); },
      arg("length"), R"(Make a moving average, of one channel.

Parameters
----------
length : int
    Samples that are averaged.)");
}

void add_filter(py::module_* m) {
  py::class_<Stream<Filter_ID>> c(*m, "Filter", R"(A filter for a mono or stereo int16 stream.

One of `fir`, `iir`, `sos` and `average` makes it: FIR, direct-form IIR, cascade of sections, or
moving average.

Examples
--------
>>> import numpy as np
>>> import jurn
>>> echo = jurn.Filter.fir([1.0, 0.0, -0.5])
>>> echo.process(np.array([1000, 0], dtype=np.int16))
array([1000,    0], dtype=int16)
>>> echo.process(np.array([0, 7], dtype=np.int16))
array([-500,    7], dtype=int16)
)");
  c.def_static(
      "fir",
      [](py::handle taps, int channels) {
        return make<Filter_ID>(JURN_FIR, channels, taps, py::none());
      },
      arg("taps"), arg("channels") = 1, R"(Make an FIR.

Parameters
----------
taps : array_like
    1 to 1250 taps.
channels : int, optional
    1, or 2 for stereo.)");
  add_makers(&c, JURN_HISTORY);
  add_common(&c);
  add_runs(&c);
  add_coefficients(&c);
  c.def_property_readonly(
      "latency", [](const Stream<Filter_ID>&) { return 0; },
      "Frames by which the output is late: none.");
}

void add_moving_sum(py::module_* m) {
  using Self = Stream<shuzhiFilter_ID>;
  py::class_<Self> c(*m, "MovingSum", R"(The moving mean, or sum, of a mono int16 stream.

Parameters
----------
length : int
    Samples that are averaged, 1 to 256.

Examples
--------
>>> import numpy as np
>>> import jurn
>>> mean = jurn.MovingSum(2)
>>> mean.process(np.array([10, 20, 30], dtype=np.int16))
array([ 5, 15, 25], dtype=int16)
>>> mean.push(5)
35
)");
  c.def(py::init([](int length) {
          if (length < 1 || length > JURN_MOVING_SUM_MAX)
            throw py::value_error("length: " + std::to_string(length) + "; takes 1 to 256");
          auto stream = std::make_unique<Self>();
          stream->record().blen = length;
          MORVAX_shuzhiFilterCalcu_API(&stream->record());
          stream->clear();
          return stream;
        }),
        arg("length"));
  add_common(&c);
  add_runs(&c);
  c.def(
      "push",
      [](Self& s, short sample) {
        InUse::check(s.in_use());
        return MORVAX_shuzhiFilterRun_API_inonesampleoutsum(&s.record(), sample);
      },
      arg("sample"), R"(Push one sample.

Parameters
----------
sample : int
    The sample, of int16's range.

Returns
-------
int
    The sum of the last `length` samples.)");
  c.def_property_readonly(
      "length", [](const Self& s) { return s.record().blen; }, "Samples that are averaged.");
  c.def_property_readonly(
      "latency", [](const Self&) { return 0; }, "Frames by which the output is late: none.");
}

void add_float_filter(py::module_* m) {
  using Self = Stream<Filterf_ID>;
  py::class_<Self> c(*m, "FloatFilter",
                     R"(A filter for one float32 channel, double precision inside.

`fir` or `iir` makes it. It takes float32 of any scale, and int16 without scaling, and gives float32.
Outputs below 1e-6 that an IIR carries from block to block become 0.

Examples
--------
>>> import numpy as np
>>> import jurn
>>> decay = jurn.FloatFilter.iir([1.0], [1.0, -0.5])
>>> decay.process(np.array([1, 0, 0], dtype=np.float32))
array([1.  , 0.5 , 0.25], dtype=float32)
)");
  c.def_static(
      "fir", [](py::handle taps) { return make<Filterf_ID>(JURN_FIR, 1, taps, py::none()); },
      arg("taps"), R"(Make an FIR.

Parameters
----------
taps : array_like
    1 to 201 taps.)");
  c.def_static(
      "iir", [](py::handle b, py::handle a) { return make<Filterf_ID>(JURN_IIR, 1, b, a); },
      arg("b"), arg("a"), R"(Make a direct-form IIR.

Parameters
----------
b, a : array_like
    Numerator and denominator, 1 to 201 numbers each, with ``a[0] == 1``.)");
  c.def(
      "process",
      [](Self& s, py::handle block, py::handle out) {
        return is_int16(block) ? process<Filterf_ID, short>(s, block, out)
                               : process<Filterf_ID>(s, block, out);
      },
      arg("block"), arg("out") = py::none(), kProcess);
  c.def(
      "run",
      [](Self& s, py::handle samples, py::ssize_t block, py::handle out) {
        return is_int16(samples) ? run<Filterf_ID, short>(s, samples, block, out)
                                 : run<Filterf_ID>(s, samples, block, out);
      },
      arg("samples"), arg("block") = 512, arg("out") = py::none(), kRun);
  add_common(&c);
  add_coefficients(&c);
  c.def_property_readonly(
      "latency", [](const Self&) { return 0; }, "Frames by which the output is late: none.");
}

void add_long_filter(py::module_* m) {
  using Self = Stream<Filterlongfir_ID>;
  py::class_<Self> c(*m, "LongFilter",
                     R"(A filter of up to 32767 taps for a mono or stereo int16 stream.

`fir` makes one of its FIR kinds, in the time domain or by FFT, with one set of taps or two; `iir`,
`sos` and `average` make the kinds that a `Filter` has, too. An object takes 5 MB.

Examples
--------
>>> import numpy as np
>>> import jurn
>>> room = jurn.LongFilter.fir([0.5, 0.25], kind=jurn.Kind.LONG_FFT)
>>> room.latency
3
>>> room.process(np.array([400, 0, 0, 0, 0], dtype=np.int16))
array([  0,   0,   0, 200, 100], dtype=int16)
)");
  c.def_static(
      "fir",
      [](py::handle taps, py::handle right, int channels, int kind) {
        auto stream = std::make_unique<Self>();
        Filterlongfir_ID& r = stream->record();
        set_kind(r, kind, channels);
        set_coefficients(r, taps, py::none(), right);
        stream->clear();
        return stream;
      },
      arg("taps"), arg("right") = py::none(), py::kw_only(), arg("channels") = 1,
      arg("kind") = static_cast<int>(JURN_LONG_FFT), R"(Make an FIR.

Parameters
----------
taps : array_like
    Up to 8192 taps for the kinds with FFT, 32767 for others: of the left filter, or of all.
right : array_like, optional
    Taps of the right filter, for the kinds with two; by default those of the left. The shorter set
    gets zeros.
channels : int, optional
    1, or 2 for stereo.
kind : int, optional
    A `Kind`.)");
  add_makers(&c, 32767);
  add_common(&c);
  add_runs(&c);
  add_coefficients(&c);
  c.def_property_readonly(
      "right",
      [](py::object self) -> py::object {
        auto& r = self.cast<Self&>().record();
        if (r.filtertype >= JURN_FIR) return py::none();
        return view(self, r.bR, {r.bRlen}, {sizeof(float)}, false);
      },
      "Taps of the right filter, of the kinds with two.");
  c.def_property_readonly(
      "latency", [](const Self& s) { return MORVAX_FilterlongfirLatency_API(&s.record()); },
      "Frames by which the output is late.");
}

}  // namespace

void add_streams(py::module_* m) {
  PYBIND11_NUMPY_DTYPE(FilterIOMEM, meminput, memi, memsumin, memoutput, mempx, mempy);
  PYBIND11_NUMPY_DTYPE(Filter_ID, memL, memR, b, a, blen, alen, Order, ns, n, chanel, filtertype);
  PYBIND11_NUMPY_DTYPE(shuzhiFilter_ID, meminput, memi, memsumin, N_1, blen);
  PYBIND11_NUMPY_DTYPE(FilterIOMEMf, meminput, memoutput);
  PYBIND11_NUMPY_DTYPE(Filterf_ID, memL, b, a, blen, alen, filtertype);
  PYBIND11_NUMPY_DTYPE(BIGFilterIOMEM, meminput, memi, memsumin, memoutput, mempx, mempy);
  PYBIND11_NUMPY_DTYPE(Buf16_ID, membuf, id, front, rear);
  PYBIND11_NUMPY_DTYPE(RealFFT_ID, N, fft_ip, fft_w, scale);
  PYBIND11_NUMPY_DTYPE(Filterlongfir_ID, memL, memR, mBufin, mBufout, realfft, hLrfft, hRrfft,
                       xLintl, xRintl, xLhL, xRhR, xLhL0, xRhR0, fftN, offset, cmemhLrfft,
                       cmemhRrfft, cmemb, cmembR, cmeminputL, cmeminputR, cmemfftN, cmemblen,
                       cmemcall, b, a, membufrear, blen, alen, Order, ns, n, bR, aR, bRlen, aRlen,
                       OrderR, nsR, nR, chanel, filtertype);
  add_filter(m);
  add_moving_sum(m);
  add_float_filter(m);
  add_long_filter(m);
}

}  // namespace jurn
