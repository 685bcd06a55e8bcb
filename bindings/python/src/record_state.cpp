// What Python shows of a record: its state as views, and its name.
#include "records.h"

namespace jurn::python {
namespace {

/** A view of one array of both channels' states. */
template <class Memory, class T>
py::array channel_view(py::handle owner, const Memory* left, const T* first, int channels,
                       std::vector<py::ssize_t> shape, std::vector<py::ssize_t> strides) {
  (void)left;
  shape.insert(shape.begin(), channels);
  strides.insert(strides.begin(), static_cast<py::ssize_t>(sizeof(Memory)));
  return view(owner, first, std::move(shape), std::move(strides), true);
}

template <class Record>
py::dict plain_state(py::handle owner, Record& r, int previous) {
  py::dict result;
  auto* const left = &r.memL;
  const auto straight = [&](const char* name, auto* history, int past) {
    result[name] =
        channel_view(owner, left, history + previous, r.chanel, {past}, {sizeof *history});
  };
  const auto cascade = [&](const char* name, float* states) {
    result[name] = channel_view(owner, left, states + 1, r.chanel, {r.ns, r.n},
                                {static_cast<py::ssize_t>(sizeof(float)) * (r.n + 1),
                                 static_cast<py::ssize_t>(sizeof(float))});
  };
  switch (r.filtertype) {
    case JURN_IIR:
      straight("outputs", left->memoutput, r.alen - 1);
      [[fallthrough]];
    case JURN_FIR:
      straight("inputs", left->meminput, r.blen - 1);
      break;
    case JURN_CASCADE:
      cascade("inputs", left->mempx);
      cascade("outputs", left->mempy);
      break;
    default:
      result["ring"] = view(owner, left->meminput, {r.blen}, {sizeof(short)}, true);
  }
  return result;
}

std::string channels_of(int in, int out) {
  return ", " + std::to_string(in) + (in != out ? " to " + std::to_string(out) : "") +
         (out == 1 ? " channel>" : " channels>");
}

/** Any record with a kind. */
template <class Record>
std::string described(const char* name, const Record& r, int sections, int order) {
  std::string text = std::string("<jurn.") + name + ": ";
  const std::string taps = std::to_string(r.blen);
  if (r.filtertype == JURN_MOVING_AVERAGE)
    text += "mean of " + taps + " samples";
  else if (r.filtertype == JURN_CASCADE)
    text += "sections of order " + std::to_string(order) + ": " + std::to_string(sections);
  else if (r.filtertype == JURN_IIR)
    text += "IIR of " + taps + " and " + std::to_string(r.alen) + " coefficients";
  else
    text += "FIR of " + taps + " taps, kind " + std::to_string(r.filtertype);
  return text + channels_of(channels_in(r), channels_out(r));
}

}  // namespace

py::dict state(py::handle owner, Filter_ID& r, int previous) {
  return plain_state(owner, r, previous);
}
py::dict state(py::handle owner, shuzhiFilter_ID& r, int) {
  py::dict result;
  result["ring"] = view(owner, r.meminput, {r.blen}, {sizeof(short)}, true);
  return result;
}
py::dict state(py::handle owner, Filterf_ID& r, int previous) {
  py::dict result;
  result["inputs"] = view(owner, r.memL.meminput + previous, {r.blen - 1}, {sizeof(float)}, true);
  if (r.filtertype == JURN_IIR)
    result["outputs"] =
        view(owner, r.memL.memoutput + previous, {r.alen - 1}, {sizeof(double)}, true);
  return result;
}
py::dict state(py::handle owner, Filterlongfir_ID& r, int previous) {
  if (r.filtertype >= JURN_FIR) return plain_state(owner, r, previous);
  py::dict result;
  if (is_fft(r)) {
    result["input_queue"] = view(owner, r.mBufin.membuf, {JURN_RING_SLOTS}, {sizeof(short)}, true);
    result["output_queue"] =
        view(owner, r.mBufout.membuf, {JURN_RING_SLOTS}, {sizeof(short)}, true);
  } else {
    result["inputs"] =
        channel_view(owner, &r.memL, r.memL.meminput + previous, 2, {r.blen - 1}, {sizeof(short)});
  }
  return result;
}

std::string described(const Filter_ID& r) {
  return described("Filter", r, r.ns, r.n);
}
std::string described(const shuzhiFilter_ID& r) {
  return "<jurn.MovingSum: " + std::to_string(r.blen) + " samples>";
}
std::string described(const Filterf_ID& r) {
  return described("FloatFilter", r, 0, 0);
}
std::string described(const Filterlongfir_ID& r) {
  return described("LongFilter", r, r.ns, r.n);
}

}  // namespace jurn::python
