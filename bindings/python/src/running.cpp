// The engine's filters in double over whole arrays, in the type and the layout that they have.
#include <pybind11/numpy.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "bindings.h"
#include "streams/samples.h"
#include "streams/stream.h"
#include "streams/transposed_form.h"

namespace jurn::python {
namespace {

namespace py = pybind11;

constexpr py::ssize_t kFrames = 1 << 20;  // of a call, which counts them in int
constexpr int kPiece = 512;               // that the first cache holds
constexpr int kMean = 3;                  // behind the kinds of designs
constexpr double kLongestMean = 1 << 24;

/** A table in one piece. Python brings nothing else here; anything else is refused. */
template <typename Sample>
using Table = py::array_t<Sample, py::array::c_style>;

void check(bool fits) {
  if (!fits) throw py::value_error("no arrays of one type and of the filter's shape");
}

std::vector<double> listed(const Table<double>& values) {
  return {values.data(), values.data() + values.size()};
}

FilterDesign design_of(int kind, const Table<double>& numerator, const Table<double>& denominator) {
  std::vector<double> b = listed(numerator), a = listed(denominator);
  const bool sections = kind == FilterDesign::kSections, fir = kind == FilterDesign::kFir;
  check(kind >= 0 && kind <= FilterDesign::kSections && !b.empty() && a.empty() == fir &&
        (!sections || (b.size() % 3 == 0 && a.size() == b.size())));
  for (std::size_t i = 0; i < a.size(); i += sections ? 3 : a.size()) check(a[i] == 1.0);
  return {static_cast<FilterDesign::Kind>(kind), std::move(b), std::move(a)};
}

std::unique_ptr<Voice> voice_of(int kind, const Table<double>& b, const Table<double>& a,
                                const Format& format) {
  if (kind == kMean) {
    check(b.size() == 1 && *b.data() >= 1.0 && *b.data() <= kLongestMean);
    return make_mean(static_cast<int>(*b.data()), Precision::kDouble, format);
  }
  Prepared prepared;
  prepared.design = design_of(kind, b, a);
  prepared.runs = kind == FilterDesign::kSections ? Runs::kSections
                  : kind == FilterDesign::kIir    ? Runs::kDirectForm
                                                  : Runs::kFir;
  return make_voice(prepared, format);
}

Format format_of(int channels) {
  check(channels >= 1 && channels <= 4096);
  Format format;
  format.inputs = format.outputs = channels;
  format.block = 1;
  format.history = 0;
  return format;
}

/** A filter as it runs, and its past. */
class Running {
 public:
  Running(int kind, const Table<double>& b, const Table<double>& a, int channels)
      : stream_(format_of(channels), voice_of(kind, b, a, format_of(channels))) {}

  /** Goes on with (frames, channels). */
  template <typename Sample>
  void go_on(const Table<Sample>& x, Table<Sample> y) {
    const py::ssize_t channels = stream_.format().inputs;
    check(x.ndim() == 2 && x.shape(1) == channels && y.ndim() == 2 && y.shape(1) == channels &&
          y.shape(0) == x.shape(0));
    const Sample* const in = x.data();
    Sample* const out = y.mutable_data();
    const py::gil_scoped_release unlocked;
    process(in, x.shape(0), out);
  }

  /** Filters (rows, frames), each row after its own (rows, numbers) of past samples. */
  template <typename Sample>
  void filter_rows(const Table<Sample>& x, Table<Sample> y, const Table<double>& past) {
    check(x.ndim() == 2 && y.ndim() == 2 && y.shape(0) == x.shape(0) && y.shape(1) == x.shape(1) &&
          past.ndim() == 2 && past.shape(0) == x.shape(0) && stream_.format().inputs == 1);
    const Sample* const in = x.data();
    Sample* const out = y.mutable_data();
    const double* const before = past.data();
    const py::gil_scoped_release unlocked;
    std::vector<double> unheard(static_cast<std::size_t>(past.shape(1)));
    for (py::ssize_t row = 0; row < x.shape(0); ++row) {
      stream_.reset();
      process(before + row * past.shape(1), past.shape(1), unheard.data());
      process(in + row * x.shape(1), x.shape(1), out + row * x.shape(1));
    }
  }

  unsigned long long bad_samples() const { return bad_samples_; }

 private:
  template <typename Sample>
  void process(const Sample* in, py::ssize_t frames, Sample* out) {
    const py::ssize_t channels = stream_.format().inputs;
    const auto found = [&] { return stream_.bad_samples() + stream_.voice().bad_samples(); };
    const unsigned long long before = found();
    for (py::ssize_t done = 0; done < frames; done += kFrames)
      stream_.process(in + done * channels, static_cast<int>(std::min(frames - done, kFrames)),
                      out + done * channels);
    bad_samples_ += found() - before;
  }

  Stream stream_;
  unsigned long long bad_samples_ = 0;  // that counted as 0
};

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

template <typename Sample>
void add_type(py::module_* m, py::class_<Running>* c) {
  c->def(
      "go_on",
      [](Running& r, const Table<Sample>& x, const Table<Sample>& y) { r.go_on<Sample>(x, y); },
      py::arg("x").noconvert(), py::arg("y").noconvert(), "go_on(self, x, y)\n--\n\n");
  c->def(
      "filter_rows",
      [](Running& r, const Table<Sample>& x, const Table<Sample>& y, const Table<double>& past) {
        r.filter_rows<Sample>(x, y, past);
      },
      py::arg("x").noconvert(), py::arg("y").noconvert(), py::arg("past"),
      "filter_rows(self, x, y, past)\n--\n\n");
  m->def("_run_from_state", &run_from_state<Sample>, py::arg("kind"), py::arg("b"), py::arg("a"),
         py::arg("x").noconvert(), py::arg("y").noconvert(), py::arg("z").noconvert(),
         "_run_from_state(kind, b, a, x, y, z)\n--\n\n");
}

}  // namespace

void add_running(py::module_* m) {
  py::class_<Running> c(*m, "_Running");
  c.def(py::init<int, const Table<double>&, const Table<double>&, int>(), py::arg("kind"),
        py::arg("b"), py::arg("a"), py::arg("channels"),
        "__init__(self, kind, b, a, channels)\n--\n\n");
  add_type<short>(m, &c);
  add_type<float>(m, &c);
  add_type<double>(m, &c);
  c.def_property_readonly("bad_samples", [](const Running& r) { return r.bad_samples(); });
}

}  // namespace jurn::python
