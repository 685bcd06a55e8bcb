// The engine's filters in double over whole arrays, in the type and the layout that they have, and
// over streams.
#include "running.h"

#include "bindings.h"
#include "streams/transposed_form.h"

namespace jurn::python {
namespace {

constexpr int kPiece = 512;  // that the first cache holds

/** Filters (rows, frames) from a state of (rows, numbers) and leaves the next one in its place.
 * Returns how many samples were infinite or no number; they count as 0. */
template <typename Sample>
unsigned long long run_from_state(int kind, const Table<double>& b, const Table<double>& a,
                                  const Table<Sample>& x, Table<Sample> y, Table<double> z) {
  const TransposedForm form(design_of(kind, b, a));
  const auto states = static_cast<py::ssize_t>(form.states());
  check(x.ndim() == 2 && y.ndim() == 2 && y.shape(0) == x.shape(0) && y.shape(1) == x.shape(1) &&
        z.ndim() == 2 && z.shape(0) == x.shape(0) && z.shape(1) == states);
  const Sample* const in = x.data();
  Sample* const out = y.mutable_data();
  double* const state = z.mutable_data();
  const py::gil_scoped_release unlocked;
  unsigned long long bad = 0;
  std::vector<double> piece(kPiece);
  const py::ssize_t frames = x.shape(1);
  for (py::ssize_t row = 0; row < x.shape(0); ++row)
    for (py::ssize_t done = 0; done < frames; done += kPiece) {
      const int count = static_cast<int>(std::min<py::ssize_t>(frames - done, kPiece));
      bad += take_samples(in + row * frames + done, 1, count, piece.data());
      form.run(piece.data(), count, piece.data(), state + row * states);
      give_samples(piece.data(), count, out + row * frames + done, 1);
    }
  return bad;
}

/** Calls the function with an array of its own type, of those that samples have. */
template <typename Function>
auto by_type(const py::array& x, const Function& function) {
  if (py::isinstance<Table<short>>(x)) return function(x.cast<Table<short>>());
  if (py::isinstance<Table<float>>(x)) return function(x.cast<Table<float>>());
  check(py::isinstance<Table<double>>(x));
  return function(x.cast<Table<double>>());
}

/** An array beside it, which has the same type. */
template <typename Like>
Like like(const Like&, const py::array& y) {
  check(py::isinstance<Like>(y));
  return y.cast<Like>();
}

}  // namespace

void add_running(py::module_* m) {
  py::class_<Running> c(*m, "_Running");
  c.def(py::init<int, const Table<double>&, const Table<double>&, int>(), py::arg("kind"),
        py::arg("b"), py::arg("a"), py::arg("channels"),
        "__init__(self, kind, b, a, channels)\n--\n\n");
  c.def_static(
      "stream",
      [](int kind, const py::object& b, const Table<double>& a, bool as_is, bool in_int16,
         int inputs, int outputs, int rate, int block, int taps) {
        const Wanted wanted(kind, b, a, precision_of(in_int16), as_is);
        const Format format = changing_format(inputs, outputs, rate, block);
        const py::gil_scoped_release unlocked;
        return std::make_unique<Running>(wanted, format, taps);
      },
      py::arg("kind"), py::arg("b"), py::arg("a"), py::arg("as_is"), py::arg("in_int16"),
      py::arg("inputs"), py::arg("outputs"), py::arg("rate"), py::arg("block"), py::arg("taps"),
      "stream(kind, b, a, as_is, in_int16, inputs, outputs, rate, block, taps)\n--\n\n");
  c.def(
      "change",
      [](Running& r, int kind, const py::object& b, const Table<double>& a, bool as_is,
         bool in_int16,
         int fade) { r.change(Wanted(kind, b, a, precision_of(in_int16), as_is), fade); },
      py::arg("kind"), py::arg("b"), py::arg("a"), py::arg("as_is"), py::arg("in_int16"),
      py::arg("fade"), "change(self, kind, b, a, as_is, in_int16, fade)\n--\n\n");
  c.def("reset", &Running::reset, "reset(self)\n--\n\n");
  c.def(
      "copy", [](const Running& r) { return std::make_unique<Running>(r); }, "copy(self)\n--\n\n");
  c.def(
      "stored", [](Running& r, const std::string& note) { return py::bytes(r.stored(note)); },
      py::arg("note"), "stored(self, note)\n--\n\n");
  c.def_static(
      "restored",
      [](const py::bytes& data) {
        std::string note;
        StateBytes from(data, kStored);
        auto running = std::make_unique<Running>(&from, &note);
        return py::make_tuple(std::move(running), note);
      },
      py::arg("data"), "restored(data)\n--\n\n");
  c.def_property_readonly("tail", &Running::tail);
  c.def_property_readonly("changing", &Running::changing);
  c.def(
      "go_on",
      [](Running& r, const py::array& x, const py::array& y, bool channels_first) {
        by_type(x, [&](const auto& in) { r.go_on(in, like(in, y), channels_first); });
      },
      py::arg("x"), py::arg("y"), py::arg("channels_first") = false,
      "go_on(self, x, y, channels_first=False)\n--\n\n");
  c.def(
      "filter_rows",
      [](Running& r, const py::array& x, const py::array& y, const Table<double>& past) {
        by_type(x, [&](const auto& in) { r.filter_rows(in, like(in, y), past); });
      },
      py::arg("x"), py::arg("y"), py::arg("past"), "filter_rows(self, x, y, past)\n--\n\n");
  m->def(
      "_run_from_state",
      [](int kind, const Table<double>& b, const Table<double>& a, const py::array& x,
         const py::array& y, const Table<double>& z) {
        return by_type(
            x, [&](const auto& in) { return run_from_state(kind, b, a, in, like(in, y), z); });
      },
      py::arg("kind"), py::arg("b"), py::arg("a"), py::arg("x"), py::arg("y"),
      py::arg("z").noconvert(), "_run_from_state(kind, b, a, x, y, z)\n--\n\n");
  c.def_property_readonly("bad_samples", [](const Running& r) { return r.bad_samples(); });
}

}  // namespace jurn::python
