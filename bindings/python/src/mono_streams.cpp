// The classes of Python for streams of one channel: MovingSum and FloatFilter.
#include "stream_class.h"

namespace jurn::python {
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
        arg("length"), "__init__(self, length)\n--\n\n");
  add_common(&c);
  add_runs(&c);
  c.def(
      "push",
      [](Self& s, short sample) {
        InUse::check(s.in_use());
        return MORVAX_shuzhiFilterRun_API_inonesampleoutsum(&s.record(), sample);
      },
      arg("sample"), R"(push(self, sample)
--

Push one sample.

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
      arg("taps"), R"(fir(taps)
--

Make an FIR.

Parameters
----------
taps : array_like
    1 to 201 taps.)");
  c.def_static(
      "iir", [](py::handle b, py::handle a) { return make<Filterf_ID>(JURN_IIR, 1, b, a); },
      arg("b"), arg("a"), R"(iir(b, a)
--

Make a direct-form IIR.

Parameters
----------
b, a : array_like
    Numerator and denominator, 1 to 201 numbers each, with ``a[0] == 1``.)");
  c.def(
      "process",
      [](Self& s, py::handle block, py::handle out) {
        return holds<short>(block) ? process<Filterf_ID, short>(s, block, out)
                                   : process<Filterf_ID>(s, block, out);
      },
      arg("block"), arg("out") = py::none(),
      signed_doc("process(self, block, out=None)", kProcess).c_str());
  c.def(
      "run",
      [](Self& s, py::handle samples, py::ssize_t block, py::handle out) {
        return holds<short>(samples) ? run<Filterf_ID, short>(s, samples, block, out)
                                     : run<Filterf_ID>(s, samples, block, out);
      },
      arg("samples"), arg("block") = 512, arg("out") = py::none(),
      signed_doc("run(self, samples, block=512, out=None)", kRun).c_str());
  add_common(&c);
  add_coefficients(&c);
  c.def_property_readonly(
      "latency", [](const Self&) { return 0; }, "Frames by which the output is late: none.");
}

}  // namespace jurn::python
