// The classes of Python for int16 streams of one or two channels: Filter and LongFilter.
#include <pybind11/stl.h>

#include "stream_class.h"

namespace jurn::python {
namespace {

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
      arg("b"), arg("a"), arg("channels") = 1, R"(iir(b, a, channels=1)
--

Make a direct-form IIR.

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
      arg("sos"), arg("channels") = 1, R"(sos(sos, channels=1)
--

Make a cascade of sections.

Parameters
----------
sos : array_like
    Sections of shape (sections, 6), as SciPy has them, or (sections, 10) of fourth order: numerator
    and denominator, which begins with 1. Up to 416 of second order, 250 of fourth.
channels : int, optional
    1, or 2 for stereo.)");
  c->def_static(
      "average", [most_average](int length) { return make_average<Record>(length, most_average); },
      arg("length"), R"(average(length)
--

Make a moving average, of one channel.

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
      arg("taps"), arg("channels") = 1, R"(fir(taps, channels=1)
--

Make an FIR.

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
      arg("kind") = static_cast<int>(JURN_LONG_FFT),
      R"(fir(taps, right=None, *, channels=1, kind=-2)
--

Make an FIR.

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

}  // namespace jurn::python
